// The answers about ports and LAGs as JSON. The operations that produce them are declared in
// store/producers.h; this is what their answers hold.
//
// A member whose value could not be read is missing; null says that it does not apply at present. Interface
// numbers ("ifNum") are those of the switch. Counters count from the start of the switch or from when they
// were cleared; they have 64 bits and are strings of decimal digits. Strings of devices and operators are
// well-formed UTF-8; a byte that was not is '?'. Lists are in ascending order of interface numbers.
//
// A port
//     "ifNum"            number
//     "unit", "slot", "port"  numbers, as on the front panel
//     "name"             string, as in CLI commands: "0/5"
//     "adminEnabled"     boolean
// and its settings
//     "description"      string
//     "autoNegotiation"  boolean
//     "speedSet"         number, Mbit/s; null when it is negotiated
//     "duplexSet"        "half" or "full"; null when it is negotiated
//     "mtu"              number, bytes of the largest frame
//     "pvid"             number
//     "taggedVlans"      numbers
//     "lag"              number of the LAG that it is a member of; null when it is in none
//     "poe"              boolean: it can feed a device
// its status
//     "linkUp"           boolean
//     "speed"            number, Mbit/s; null without link
//     "duplex"           "half" or "full"; null without link
//     "errorDisabled"    boolean: the switch keeps it down
//     "errorReason"      null, or why: "link-flap", "bpdu-guard", "port-security", "storm-control", "udld",
//                        "transceiver"
//     "lag"              as above
// its counters
//     "counters"         {"inOctets", "outOctets", "inPackets", "outPackets", "inUnicast", "inMulticast",
//                        "inBroadcast", "outUnicast", "outMulticast", "outBroadcast", "inErrors",
//                        "outErrors", "inDiscards", "outDiscards"}: strings. A switch that counts packets
//                        together has no members by kind
// and its hardware
//     "media"            "copper" or "sfp"
//     "capabilities"     {"speeds": numbers in Mbit/s, "halfDuplex", "autoNegotiation", "poe": booleans}
//
// A LAG
//     "ifNum", "adminEnabled"  as of a port
//     "lag"              number from 1
//     "interface"        string, as in CLI commands: "lag 1"
//     "name"             string that an operator has given
//     "static"           boolean; false: negotiated by LACP
//     "hash"             what a member is chosen by: "source-mac", "destination-mac", "mac", "source-ip",
//                        "destination-ip", "ip"
//     "linkUp", "speed", "duplex"  as of a port; "speed" is that of the active members together
//     "members"          interface numbers
//     "activeMembers"    interface numbers of those that carry traffic
//
// getPhyInfAllStatusFast   [port with settings, status and counters]
// getPortStatusListFast    [port with status]
// getPortsSettings         [port with settings]
// interfacesStatusBuild    {"ports": [port with status and counters], "lags": [LAG with "counters"]}
// getLagInfoList           [LAG]
// getLagInfoListEx         [LAG, with "description", "mtu", "pvid", "taggedVlans" and "counters"]
// getAutoLagCfg            {"enabled": boolean, "hash"}: LAGs that the switch makes by itself
// manualTrunkGet           {"physicalPort": numbers of ports, "lagPort": numbers of LAGs}: what
//                          "/tmp/manual_trunk_config" names, in its order; empty without that file
// switchTrunkModeGet       {"enabled": boolean, "trunks": [port, with "taggedVlans"]}: whether the switch
//                          makes trunks by itself; ports (in no LAG) and LAGs that carry VLANs tagged
// getPortMirroring         {"maxSessions": number, "sessions": [{"session": number, "enabled": boolean,
//                          "sources": [{"ifNum", "direction": "rx", "tx" or "both"}], "destination": null or
//                          {"ifNum"}}]}; with detail 1, every interface has its "name", too. Sessions that
//                          are not configured are left out
// portHardwareInfoBuild    [port with hardware]
// fiberOpticsGet           [port that takes a transceiver, with "present": boolean; and of what is present
//                          "vendor", "partNumber", "serial": strings, "wavelength": nm, null for a copper
//                          cable; "temperature": degrees Celsius, "voltage": V, "bias": mA, "txPower",
//                          "rxPower": mW, "txPowerDbm", "rxPowerDbm": dBm, null for no light. A transceiver
//                          that does not measure has null for all of these]
#ifndef PAVO_WEB_PORT_ANSWERS_H
#define PAVO_WEB_PORT_ANSWERS_H

#include <vector>

#include "profile/avb_ports.h"
#include "web/answer_node.h"
#include "web/port_facts.h"

namespace pavo {

// They hold what was read.
AnswerNode portsAnswer(const std::vector<InterfaceFacts> &ports);
AnswerNode lagsAnswer(const std::vector<LagFacts> &lags);
AnswerNode interfacesAnswer(const std::vector<InterfaceFacts> &ports, const std::vector<LagFacts> &lags);
AnswerNode autoLagAnswer(const AutoLag &setting);
AnswerNode manualTrunksAnswer(const ManualTrunks &trunks);
AnswerNode trunksAnswer(const TrunkFacts &trunks);
AnswerNode mirrorsAnswer(const MirrorTable &table);
AnswerNode opticsAnswer(const std::vector<SfpFacts> &places);

}  // namespace pavo

#endif
