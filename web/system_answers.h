// The answers about the switch as a whole and about its VLANs: this documents what the producers declared in
// store/producers.h produce.
//
// Common to all: one JSON value on one line, well-formed UTF-8. A member whose value the switch does not
// tell is left out; there is never a zero or an empty string in its place. "?" marks members that may also
// be absent for the reason given. Times are seconds since 1970-01-01 UTC. Ports are interface numbers, with
// their names as in the CLI ("0/5"); LAGs are numbered from 1. An answer fails, with its result code, when
// the switch cannot be reached or one of its tables is not complete.
//
// systemInfoGet, object:
//   hostName, location, contact, model, serialNumber    strings
//   macAddress      burned-in, "02:50:56:00:10:00"
//   osVersion       string
//   apiVersion      of the OpEN calls, "release.version.maintenance.build"
//   upTime          seconds
//   management      vlanId, mode ("dhcp", "static"), address?, mask?, gateway? (while there is none), up
//
// deviceHealthGet, object:
//   temperature     array of {sensor, name, state: "normal" | "warning" | "critical" | "failed",
//                   celsius? (not of one that has failed), warningAbove, criticalAbove}
//   fans            array of {fan, name, state: "ok" | "failed" | "absent", rpm}
//   powerSupplies   array of {supply, name, state: as of a fan}
//   cpu             {percent}
//   memory          {totalKb, freeKb}
//
// getSpecialInfInfo, array: the management interface first, then the routing interfaces of VLANs, ascending:
//   type            "management" | "vlan"
//   vlanId
//   method          "static" | "dhcp" | "none"
//   address?, mask?     while it has one
//   gateway?        of the management interface, while there is one
//   up              an interface of the VLAN has link
//
// getDeviceTime, object of at most 1023 bytes:
//   utc             time of day by the switch's clock
//   time            the same in its time zone, "2026-11-23T15:00:00+01:00"
//   timeZone        {offsetMinutes (east of UTC), name}
//   sntp            {mode: "disabled" | "unicast" | "broadcast", synchronised, synchronisedTo? (host, while
//                   it is), lastUpdate? (of the last answer, if any), servers: [{host, port, priority}, ...]}
//
// getLogConfigJson, object of at most 4095 bytes; severities are "emergency", "alert", "critical", "error",
// "warning", "notice", "info", "debug":
//   buffered, console   {enabled, level: the least severe that is taken}
//   syslog          {enabled}: whether the hosts get log lines
//   hosts           array of {host, port, level}
//
// getImageInfo, object of at most 4095 bytes:
//   osVersion       of the system that runs
//   units           array of {unit, active, backup (images in flash), currentActive, nextActive (after the
//                   next start)}, versions as strings
//
// getRadiusServerJson, object of at most 8191 bytes:
//   timeout         seconds until a request is repeated
//   retransmit      number of repetitions
//   servers         array of {host, name, type: "auth" | "acct", port, priority (1 is asked first),
//                   secretSet}; the secret itself is in no answer
//
// getPortAuthConfigJson, object:
//   enabled         802.1X is on
//   ports           array of {port, name, controlMode: "auto" | "forceAuthorized" | "forceUnauthorized",
//                   state: "authorized" | "unauthorized", reauthentication, reauthPeriod (seconds)}
//
// switchPtpModeGet, object:
//   transparentClock, dot1as    of the whole switch
//   ports           array of {port, name, transparentClock, dot1as}
//
// switchConfigVlanList, array in the order of VLAN ids:
//   vlanId, name
//   color           "#rrggbb"
//   isStatic, isManagement
//   ptpTc?          boolean, when profile settings or template say so
//   vlanType        role within the profile
//   profileType     name of the profile type, "Default" without one
//   ports           {untagged: [port, ...], tagged: [port, ...]}; untagged: whose PVID it is
//   lags            the same with LAG numbers; LAGs without members are in none
#ifndef PAVO_WEB_SYSTEM_ANSWERS_H
#define PAVO_WEB_SYSTEM_ANSWERS_H

#include "store/producers.h"

#endif
