// The calls of the switch OS that the program uses.
//
// The switch OS is another process; behind these functions is either the client library of the virtual switch
// OS (vswitch/client) or the switch maker's own library, chosen at link time.
//
// Common to all calls:
//  - The first argument is the client handle filled by openapiClientRegister; one handle serves the whole
//    process and may be used by several threads at once.
//  - The result is OPEN_E_NONE (0) or another OPEN_E_ code. OPEN_E_RPC means that the switch OS could not be
//    reached or died during the call; a later call reconnects by itself.
//  - Interface numbers (ifNum) are the switch's internal 32-bit numbers; VLAN ids are 1 to 4094.
//  - Strings go in and out in a buffer descriptor. In: `size` is the length including the terminating zero.
//    Out: `size` is the capacity of the buffer on entry and the length including the terminating zero on
//    return; a string that does not fit is cut and terminated.
//  - "Next" calls return the entry after the one given (0, or an all-zero key, to start), and
//    OPEN_E_NOT_FOUND at the end.
#ifndef PAVO_PLATFORM_OPEN_CLIENT_H
#define PAVO_PLATFORM_OPEN_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t open_error_t;

enum {
    OPEN_E_NONE = 0,
    OPEN_E_RPC = -1,        // the switch OS cannot be reached
    OPEN_E_FAIL = -2,       // the switch OS refused or could not do it
    OPEN_E_FULL = -3,       // a table has no room left
    OPEN_E_NOT_FOUND = -4,  // no such entry, or the end of a walk
    OPEN_E_PARAM = -5,      // an argument is out of range
    OPEN_E_UNAVAIL = -6     // not offered by this switch
};

// Interface types of openapiIfTypeGet and the interface walks.
enum { OPEN_INTF_TYPE_PHY = 0, OPEN_INTF_TYPE_LAG = 2 };

// Participation of an interface in a VLAN.
enum {
    OPEN_VLAN_PARTICIPATION_MODE_INCLUDE = 0,
    OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE = 1,
    OPEN_VLAN_PARTICIPATION_MODE_AUTO = 2
};

// 802.1X port control modes; OPEN_DOT1X_NA where port control does not apply.
enum {
    OPEN_DOT1X_FORCE_UNAUTHORIZED = 1,
    OPEN_DOT1X_AUTO = 2,
    OPEN_DOT1X_FORCE_AUTHORIZED = 3,
    OPEN_DOT1X_NA = 5
};

enum { OPEN_DISABLE = 0, OPEN_ENABLE = 1 };
// Direction in which an access list filters.
enum { OPEN_ACL_INBOUND = 0, OPEN_ACL_OUTBOUND = 1 };
enum { OPEN_LINK_UP = 0, OPEN_LINK_DOWN = 1 };

// What a port is for: anything, end devices in one VLAN, or another switch.
enum { OPEN_SWITCHPORT_MODE_GENERAL = 1, OPEN_SWITCHPORT_MODE_ACCESS = 2, OPEN_SWITCHPORT_MODE_TRUNK = 3 };

// Type of a forwarding table entry.
enum { OPEN_FDB_ADDR_STATIC = 0, OPEN_FDB_ADDR_LEARNED = 1 };

// Frames that an interface accepts: all, only those with a VLAN tag, or only those without.
enum { OPEN_VLAN_ACCEPT_ALL = 1, OPEN_VLAN_ACCEPT_VLAN_ONLY = 2, OPEN_VLAN_ACCEPT_UNTAGGED_ONLY = 3 };

// Duplex mode of a setting or of a link.
enum { OPEN_DUPLEX_AUTO = 0, OPEN_DUPLEX_HALF = 1, OPEN_DUPLEX_FULL = 2 };

// Why the switch keeps a port down although it is enabled.
enum {
    OPEN_ERROR_DISABLE_NONE = 0,
    OPEN_ERROR_DISABLE_LINK_FLAP = 1,
    OPEN_ERROR_DISABLE_BPDU_GUARD = 2,
    OPEN_ERROR_DISABLE_PORT_SECURITY = 3,
    OPEN_ERROR_DISABLE_STORM_CONTROL = 4,
    OPEN_ERROR_DISABLE_UDLD = 5,
    OPEN_ERROR_DISABLE_TRANSCEIVER = 6
};

// What a port is made of, and a mask of what it can do.
enum { OPEN_MEDIA_COPPER = 1, OPEN_MEDIA_SFP = 2 };
enum {
    OPEN_CAPABILITY_10M = 1 << 0,
    OPEN_CAPABILITY_100M = 1 << 1,
    OPEN_CAPABILITY_1G = 1 << 2,
    OPEN_CAPABILITY_2500M = 1 << 3,
    OPEN_CAPABILITY_5G = 1 << 4,
    OPEN_CAPABILITY_10G = 1 << 5,
    OPEN_CAPABILITY_25G = 1 << 6,
    OPEN_CAPABILITY_40G = 1 << 7,
    OPEN_CAPABILITY_100G = 1 << 8,
    OPEN_CAPABILITY_HALF_DUPLEX = 1 << 16,
    OPEN_CAPABILITY_AUTONEG = 1 << 17,
    OPEN_CAPABILITY_POE = 1 << 18  // it can feed a device
};

// Direction of traffic as the switch sees it.
enum { OPEN_TRAFFIC_IN = 0, OPEN_TRAFFIC_OUT = 1 };

// What a LAG chooses the member by that sends a frame.
enum {
    OPEN_LAG_HASH_SOURCE_MAC = 1,
    OPEN_LAG_HASH_DESTINATION_MAC = 2,
    OPEN_LAG_HASH_MAC = 3,  // both
    OPEN_LAG_HASH_SOURCE_IP = 4,
    OPEN_LAG_HASH_DESTINATION_IP = 5,
    OPEN_LAG_HASH_IP = 6
};

// What a mirror session copies of a source.
enum { OPEN_MIRROR_RX = 1, OPEN_MIRROR_TX = 2, OPEN_MIRROR_BOTH = 3 };

typedef struct {
    uint32_t size;
    char *pstart;
} open_buffdesc;

// Owned by the caller, filled and used by the client library only.
typedef struct {
    char name[100];
    void *session;
} openapiClientHandle_t;

// --- client

// Registers the process under `clientName`. Succeeds even when no switch OS is running;
// rpcclt_openapiConnectivityCheck tells whether one is.
open_error_t openapiClientRegister(const char *clientName, openapiClientHandle_t *client);
// Ends the registration; the handle may be registered again afterwards.
open_error_t openapiClientTearDown(openapiClientHandle_t *client);
// OPEN_E_NONE when the switch OS answers.
open_error_t rpcclt_openapiConnectivityCheck(openapiClientHandle_t *client);

// --- system

// Version string of the network OS, up to 100 bytes.
open_error_t rpcclt_openapiNetworkOSVersionGet(openapiClientHandle_t *client, open_buffdesc *version);
// Version of these calls: release, version, maintenance level, build.
open_error_t rpcclt_openapiApiVersionGet(openapiClientHandle_t *client, uint32_t *release, uint32_t *version,
                                         uint32_t *maintenance, uint32_t *build);
// Machine model, a string of up to 256 bytes.
open_error_t rpcclt_openapiSystemRegMachineModelGet(openapiClientHandle_t *client, open_buffdesc *model);

// --- configuration by text

// Applies the CLI script in file `input` and writes the CLI's output to file `output`. A command that the CLI
// refuses does not make the call fail.
open_error_t rpcclt_openapiTxtCfgApply(openapiClientHandle_t *client, open_buffdesc *input,
                                       open_buffdesc *output);
// The second entry point for apply: same files, same effect.
open_error_t rpcclt_openapiTxtCfgNDCApply(openapiClientHandle_t *client, open_buffdesc *input,
                                          open_buffdesc *output);
// Runs a show command and writes its output to `file`; OPEN_E_FAIL when `command` is not a show command or
// the file cannot be written.
open_error_t rpcclt_openapiCliShowExecuteToFile(openapiClientHandle_t *client, open_buffdesc *command,
                                                open_buffdesc *file);

// --- interfaces

// First and next interface of a type (OPEN_INTF_TYPE_).
open_error_t rpcclt_openapiIfFirstGet(openapiClientHandle_t *client, uint32_t type, uint32_t *ifNum);
open_error_t rpcclt_openapiIfNextGet(openapiClientHandle_t *client, uint32_t type, uint32_t ifNum,
                                     uint32_t *next);
open_error_t openapiIfTypeGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *type);
// Interface name ("0/1", "lag 1"), up to 60 bytes.
open_error_t openapiIfNameGet(openapiClientHandle_t *client, uint32_t ifNum, open_buffdesc *name);
// Administrative state: OPEN_ENABLE or OPEN_DISABLE.
open_error_t openapiIfAdminStateGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *state);
// Link state: OPEN_LINK_UP or OPEN_LINK_DOWN.
open_error_t openapiIfLinkStateGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *state);

// --- forwarding database

// Next entry after (mac, vlanId), ordered by MAC address, then VLAN. `mac` is a string of 17 characters,
// colon-separated hexadecimal, in a buffer of 100 bytes; its `size` is the capacity on entry.
open_error_t rpcclt_openapiFdbEntryNextGet(openapiClientHandle_t *client, open_buffdesc *mac,
                                           uint32_t *vlanId, uint32_t *ifNum, uint32_t *entryType);

// --- LLDP

// Next LLDP-capable interface.
open_error_t rpcclt_openapiLldpIntfNextGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *next);
// Buffer size that the strings below need, including the terminating zero.
open_error_t rpcclt_openapiLldpMgmtStrLenGet(openapiClientHandle_t *client, uint32_t *len);
// Next neighbour of an interface after (remIndex, timeStamp).
open_error_t rpcclt_openapiLldpIntfRemoteDeviceNextGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                       uint32_t *remIndex, uint32_t *timeStamp);
// Chassis and port ID as strings, with their subtypes as on the wire.
open_error_t rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                            uint32_t remIndex, uint32_t timeStamp,
                                                            uint32_t *subtype, open_buffdesc *id);
open_error_t rpcclt_openapiLldpIntfRemoteDevicePortIdGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                         uint32_t remIndex, uint32_t timeStamp,
                                                         uint32_t *subtype, open_buffdesc *id);
open_error_t rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                             uint32_t remIndex, uint32_t timeStamp,
                                                             open_buffdesc *text);
open_error_t rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                             uint32_t remIndex, uint32_t timeStamp,
                                                             open_buffdesc *text);
open_error_t rpcclt_openapiLldpIntfRemoteDevicePortDescGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                           uint32_t remIndex, uint32_t timeStamp,
                                                           open_buffdesc *text);
// The capabilities that the neighbour has enabled, by name: "bridge, router".
open_error_t rpcclt_openapiLldpIntfRemoteDeviceSysCapEnabledGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                                uint32_t remIndex, uint32_t timeStamp,
                                                                open_buffdesc *text);

// --- VLANs

// OPEN_E_NONE when the VLAN exists, OPEN_E_NOT_FOUND when not.
open_error_t openapiVlanCreatedCheck(openapiClientHandle_t *client, uint32_t vlanId);
open_error_t rpcclt_openapiVlanNextGet(openapiClientHandle_t *client, uint32_t vlanId, uint32_t *next);
// Not a result code: 1 when the VLAN is static, 0 when it is dynamic or does not exist; negative (OPEN_E_)
// when the switch OS cannot be reached.
open_error_t openapiVlanIsStatic(openapiClientHandle_t *client, uint32_t vlanId);
// Buffer size that a VLAN name needs, including the terminating zero.
open_error_t rpcclt_openapiVlanNameLenGet(openapiClientHandle_t *client, uint32_t *len);
open_error_t rpcclt_openapiVlanNameGet(openapiClientHandle_t *client, uint32_t vlanId, open_buffdesc *name);
// At most 32 printable characters (else OPEN_E_PARAM), with or without a terminating zero within `size`; an
// empty name restores the default one.
open_error_t rpcclt_openapiVlanNameSet(openapiClientHandle_t *client, uint32_t vlanId, open_buffdesc *name);
open_error_t rpcclt_openapiVlanCreate(openapiClientHandle_t *client, uint32_t vlanId);
// Accepted at once; the VLAN may still be reported for a while.
open_error_t rpcclt_openapiVlanDelete(openapiClientHandle_t *client, uint32_t vlanId);

// Membership. A set call is accepted at once; the read calls show the change once it has taken effect.
open_error_t rpcclt_openapiVlanIfPvidSet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t vlanId);
open_error_t openapiVlanIfPvidGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *vlanId);
// Tagging: 1 tagged, 0 untagged.
open_error_t rpcclt_openapiVlanIfTaggingSet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t vlanId,
                                            uint32_t tagging);
open_error_t openapiVlanIfTaggingGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t vlanId,
                                     uint32_t *tagging);
// Participation: OPEN_VLAN_PARTICIPATION_MODE_. Note the order: VLAN first.
open_error_t rpcclt_openapiVlanIfParticipationSet(openapiClientHandle_t *client, uint32_t vlanId,
                                                  uint32_t ifNum, uint32_t mode);
// The configured mode.
open_error_t rpcclt_openapiVlanIfParticipationGet(openapiClientHandle_t *client, uint32_t vlanId,
                                                  uint32_t ifNum, uint32_t *mode);
// 1 when the interface participates in the VLAN at present, 0 when not.
open_error_t openapiVlanIfParticipationStatusGet(openapiClientHandle_t *client, uint32_t vlanId,
                                                 uint32_t ifNum, uint32_t *takesPart);
open_error_t rpcclt_openapiVlanIfCurrentParticipationGet(openapiClientHandle_t *client, uint32_t vlanId,
                                                         uint32_t ifNum, uint32_t *mode);
// OPEN_VLAN_ACCEPT_; it takes effect at once.
open_error_t rpcclt_openapiVlanIfAcceptFrameTypeSet(openapiClientHandle_t *client, uint32_t ifNum,
                                                    uint32_t frames);
// VLANs that the interface carries tagged: `list` receives 16-bit VLAN ids in ascending order, as many as
// fit; its `size` is the capacity in bytes on entry and the bytes used on return.
open_error_t rpcclt_openapiDot1qSwPortTaggedVlanListGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                        open_buffdesc *list);

// --- link aggregation

open_error_t rpcclt_openapiLagMaxMemberCountGet(openapiClientHandle_t *client, uint32_t *max);
// Members of a LAG as 32-bit interface numbers in ascending order. `count` is the capacity of `members` in
// entries on entry and the number of members written on return. `members->size` is the capacity in bytes.
open_error_t rpcclt_openapiLagMembersGet(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t *count,
                                         open_buffdesc *members);
// OPEN_E_FULL when the LAG has no room, OPEN_E_FAIL when the port is already in a LAG.
open_error_t rpcclt_openapiLagPortAdd(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t ifNum);
open_error_t rpcclt_openapiLagPortDelete(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t ifNum);
// 1 static, 0 negotiated (LACP).
open_error_t rpcclt_openapiLagStaticModeSet(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t mode);

// --- 802.1X and PTP

// Port control mode: OPEN_DOT1X_.
open_error_t rpcclt_openapiDot1xPortControlModeSet(openapiClientHandle_t *client, uint32_t ifNum,
                                                   uint32_t mode);
open_error_t rpcclt_openapiDot1xPortControlModeGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                   uint32_t *mode);
// PTP transparent clock of the whole switch: OPEN_ENABLE or OPEN_DISABLE.
open_error_t rpcclt_openapiPtpTcAdminModeSet(openapiClientHandle_t *client, uint32_t mode);
open_error_t rpcclt_openapiPtpTcAdminModeGet(openapiClientHandle_t *client, uint32_t *mode);
// PTP transparent clock of one port: OPEN_ENABLE or OPEN_DISABLE.
open_error_t rpcclt_openapiPtpTcIntfAdminModeSet(openapiClientHandle_t *client, uint32_t ifNum,
                                                 uint32_t mode);
open_error_t rpcclt_openapiPtpTcIntfAdminModeGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                 uint32_t *mode);

// 802.1AS of the whole switch: OPEN_ENABLE or OPEN_DISABLE.
open_error_t rpcclt_openapiDot1asModeGet(openapiClientHandle_t *client, uint32_t *mode);

// --- spanning tree

// Bridge priority of a spanning-tree instance; OPEN_E_NOT_FOUND when there is no such instance.
open_error_t rpcclt_openapiStpMstBridgePriorityGet(openapiClientHandle_t *client, uint32_t instance,
                                                   uint32_t *priority);

// --- ports and LAGs: settings, counters, optics, trunks, mirroring

// Description that an operator has given, up to 65 bytes; empty when there is none.
open_error_t rpcclt_openapiIfDescrGet(openapiClientHandle_t *client, uint32_t ifNum, open_buffdesc *descr);
// Largest frame in bytes.
open_error_t rpcclt_openapiIfMtuGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *mtu);
// The setting: Mbit/s, 0 when speed and duplex are negotiated; OPEN_DUPLEX_. UNAVAIL for a LAG.
open_error_t rpcclt_openapiIfSpeedConfigGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *speed,
                                            uint32_t *duplex);
// Of the link: Mbit/s, of a LAG those of its members together; OPEN_DUPLEX_. NOT_FOUND without link, UNAVAIL
// when the link does not tell.
open_error_t rpcclt_openapiIfSpeedGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *speed,
                                      uint32_t *duplex);
// OPEN_ERROR_DISABLE_. UNAVAIL for a LAG.
open_error_t rpcclt_openapiIfErrorDisableGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *reason);
// OPEN_MEDIA_, and a mask of OPEN_CAPABILITY_. UNAVAIL for a LAG.
open_error_t rpcclt_openapiIfHardwareGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *media,
                                         uint32_t *capabilities);

// Counters, since the switch was started or they were cleared; of a LAG, its members' together.
open_error_t rpcclt_openapiIfTrafficGet(openapiClientHandle_t *client, uint32_t ifNum, uint64_t *inOctets,
                                        uint64_t *outOctets, uint64_t *inPackets, uint64_t *outPackets);
// The packets of one direction (OPEN_TRAFFIC_) by kind. UNAVAIL where they are counted together.
open_error_t rpcclt_openapiIfCastPacketsGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t direction,
                                            uint64_t *unicast, uint64_t *multicast, uint64_t *broadcast);
open_error_t rpcclt_openapiIfErrorsGet(openapiClientHandle_t *client, uint32_t ifNum, uint64_t *inErrors,
                                       uint64_t *outErrors, uint64_t *inDiscards, uint64_t *outDiscards);

// The transceiver in a port: strings of up to 17 bytes as it has them, wavelength in nm (0 for a cable of
// copper). NOT_FOUND when there is none, UNAVAIL when the port has no place for one.
open_error_t rpcclt_openapiSfpInventoryGet(openapiClientHandle_t *client, uint32_t ifNum,
                                           open_buffdesc *vendor, open_buffdesc *partNumber,
                                           open_buffdesc *serial, uint32_t *wavelength);
// Temperature in 0.001 degrees Celsius, an int32_t; supply in mV, laser bias in uA. NOT_FOUND as above,
// UNAVAIL also when the transceiver does not measure.
open_error_t rpcclt_openapiSfpDiagnosticsGet(openapiClientHandle_t *client, uint32_t ifNum,
                                             uint32_t *temperature, uint32_t *voltage, uint32_t *bias);
// Optical power in 0.1 uW.
open_error_t rpcclt_openapiSfpPowerGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *txPower,
                                       uint32_t *rxPower);

// Name of a LAG, up to 16 bytes.
open_error_t rpcclt_openapiLagNameGet(openapiClientHandle_t *client, uint32_t lagIfNum, open_buffdesc *name);
// As rpcclt_openapiLagStaticModeSet takes it.
open_error_t rpcclt_openapiLagStaticModeGet(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t *mode);
// OPEN_LAG_HASH_.
open_error_t rpcclt_openapiLagHashModeGet(openapiClientHandle_t *client, uint32_t lagIfNum, uint32_t *mode);
// The members that carry traffic, as rpcclt_openapiLagMembersGet hands them out.
open_error_t rpcclt_openapiLagActiveMembersGet(openapiClientHandle_t *client, uint32_t lagIfNum,
                                               uint32_t *count, open_buffdesc *members);
// Whether the switch makes LAGs by itself (OPEN_ENABLE or OPEN_DISABLE), and their OPEN_LAG_HASH_.
open_error_t rpcclt_openapiAutoLagModeGet(openapiClientHandle_t *client, uint32_t *mode, uint32_t *hashMode);
// Whether the switch makes trunks by itself: OPEN_ENABLE or OPEN_DISABLE.
open_error_t rpcclt_openapiAutoTrunkModeGet(openapiClientHandle_t *client, uint32_t *mode);

// Mirror sessions are numbered from 1 to `max`; one that was never configured is disabled and empty.
open_error_t rpcclt_openapiMirrorSessionMaxGet(openapiClientHandle_t *client, uint32_t *max);
open_error_t rpcclt_openapiMirrorModeGet(openapiClientHandle_t *client, uint32_t session, uint32_t *mode);
// The port at which somebody listens; NOT_FOUND when there is none.
open_error_t rpcclt_openapiMirrorDestinationGet(openapiClientHandle_t *client, uint32_t session,
                                                uint32_t *ifNum);
// Next source after `ifNum`, a port or LAG, with OPEN_MIRROR_.
open_error_t rpcclt_openapiMirrorSourceNextGet(openapiClientHandle_t *client, uint32_t session,
                                               uint32_t ifNum, uint32_t *next, uint32_t *direction);

// --- system: identity, health, time, log, images, RADIUS, PTP

// State of a temperature sensor.
enum { OPEN_TEMP_NORMAL = 1, OPEN_TEMP_WARNING = 2, OPEN_TEMP_CRITICAL = 3, OPEN_TEMP_FAILED = 4 };
// State of a fan or power supply.
enum { OPEN_UNIT_OPERATIONAL = 1, OPEN_UNIT_FAILED = 2, OPEN_UNIT_ABSENT = 3 };
enum { OPEN_SNTP_DISABLED = 0, OPEN_SNTP_UNICAST = 1, OPEN_SNTP_BROADCAST = 2 };
// Type of a RADIUS server: authentication or accounting.
enum { OPEN_RADIUS_AUTH = 1, OPEN_RADIUS_ACCT = 2 };
enum { OPEN_DOT1X_PORT_AUTHORIZED = 1, OPEN_DOT1X_PORT_UNAUTHORIZED = 2 };
// Destinations of log lines.
enum { OPEN_LOG_BUFFERED = 1, OPEN_LOG_CONSOLE = 2 };

// Strings of up to 255 bytes each; the hardware address is 17 characters, colon-separated hexadecimal.
open_error_t rpcclt_openapiHostNameGet(openapiClientHandle_t *client, open_buffdesc *name);
open_error_t rpcclt_openapiSystemLocationGet(openapiClientHandle_t *client, open_buffdesc *location);
open_error_t rpcclt_openapiSystemContactGet(openapiClientHandle_t *client, open_buffdesc *contact);
open_error_t rpcclt_openapiSystemSerialNumberGet(openapiClientHandle_t *client, open_buffdesc *serial);
open_error_t rpcclt_openapiSystemBurnedInMacAddrGet(openapiClientHandle_t *client, open_buffdesc *mac);
// Seconds since the switch was started.
open_error_t rpcclt_openapiSystemUpTimeGet(openapiClientHandle_t *client, uint32_t *seconds);

// Temperature sensors, fans and power supplies are numbered from 1; names have up to 64 bytes.
open_error_t rpcclt_openapiTempSensorNextGet(openapiClientHandle_t *client, uint32_t sensor, uint32_t *next);
open_error_t rpcclt_openapiTempSensorNameGet(openapiClientHandle_t *client, uint32_t sensor,
                                             open_buffdesc *name);
// State (OPEN_TEMP_), and temperature and limits in degrees Celsius, negative ones in two's complement.
open_error_t rpcclt_openapiTempSensorStatusGet(openapiClientHandle_t *client, uint32_t sensor,
                                               uint32_t *state, uint32_t *celsius, uint32_t *warningAbove,
                                               uint32_t *criticalAbove);
open_error_t rpcclt_openapiFanNextGet(openapiClientHandle_t *client, uint32_t fan, uint32_t *next);
open_error_t rpcclt_openapiFanNameGet(openapiClientHandle_t *client, uint32_t fan, open_buffdesc *name);
// State (OPEN_UNIT_) and revolutions per minute.
open_error_t rpcclt_openapiFanStatusGet(openapiClientHandle_t *client, uint32_t fan, uint32_t *state,
                                        uint32_t *rpm);
open_error_t rpcclt_openapiPowerSupplyNextGet(openapiClientHandle_t *client, uint32_t supply, uint32_t *next);
open_error_t rpcclt_openapiPowerSupplyNameGet(openapiClientHandle_t *client, uint32_t supply,
                                              open_buffdesc *name);
// State (OPEN_UNIT_).
open_error_t rpcclt_openapiPowerSupplyStatusGet(openapiClientHandle_t *client, uint32_t supply,
                                                uint32_t *state);
// Load of the processor in percent.
open_error_t rpcclt_openapiCpuUtilizationGet(openapiClientHandle_t *client, uint32_t *percent);
open_error_t rpcclt_openapiMemoryGet(openapiClientHandle_t *client, uint32_t *totalKb, uint32_t *freeKb);

// Seconds since 1970-01-01 UTC by the switch's clock.
open_error_t rpcclt_openapiClockGet(openapiClientHandle_t *client, uint32_t *seconds);
// Offset from UTC in minutes, west of it in two's complement, and the zone's name, up to 16 bytes.
open_error_t rpcclt_openapiTimeZoneGet(openapiClientHandle_t *client, uint32_t *offsetMinutes,
                                       open_buffdesc *name);
// OPEN_SNTP_.
open_error_t rpcclt_openapiSntpModeGet(openapiClientHandle_t *client, uint32_t *mode);
// The server that the clock is synchronised to, up to 256 bytes, and when it last answered (seconds since
// 1970-01-01 UTC, 0 for never); an empty server while the clock is not synchronised.
open_error_t rpcclt_openapiSntpStatusGet(openapiClientHandle_t *client, uint32_t *lastUpdate,
                                         open_buffdesc *server);
// Servers are numbered from 1; hosts are addresses or DNS names of up to 256 bytes.
open_error_t rpcclt_openapiSntpServerNextGet(openapiClientHandle_t *client, uint32_t server, uint32_t *next);
open_error_t rpcclt_openapiSntpServerGet(openapiClientHandle_t *client, uint32_t server, open_buffdesc *host,
                                         uint32_t *port, uint32_t *priority);

// Whether a destination (OPEN_LOG_) gets log lines, and up to which severity (0 emergency to 7 debug).
open_error_t rpcclt_openapiLogSinkGet(openapiClientHandle_t *client, uint32_t sink, uint32_t *enabled,
                                      uint32_t *level);
// Whether the log hosts get log lines.
open_error_t rpcclt_openapiSyslogModeGet(openapiClientHandle_t *client, uint32_t *enabled);
// Hosts are numbered from 1.
open_error_t rpcclt_openapiLogHostNextGet(openapiClientHandle_t *client, uint32_t host, uint32_t *next);
open_error_t rpcclt_openapiLogHostGet(openapiClientHandle_t *client, uint32_t host, open_buffdesc *address,
                                      uint32_t *port, uint32_t *level);

// Seconds until a request is repeated, and the number of repetitions.
open_error_t rpcclt_openapiRadiusTimersGet(openapiClientHandle_t *client, uint32_t *timeout,
                                           uint32_t *retransmit);
// Servers are numbered from 1. No call gives a secret away.
open_error_t rpcclt_openapiRadiusServerNextGet(openapiClientHandle_t *client, uint32_t server,
                                               uint32_t *next);
open_error_t rpcclt_openapiRadiusServerGet(openapiClientHandle_t *client, uint32_t server,
                                           open_buffdesc *host, uint32_t *type, uint32_t *port,
                                           uint32_t *priority);
// Name, up to 64 bytes, and whether a secret is set.
open_error_t rpcclt_openapiRadiusServerNameGet(openapiClientHandle_t *client, uint32_t server,
                                               open_buffdesc *name, uint32_t *secretSet);

// 802.1X of the whole switch, and of one port: OPEN_DOT1X_PORT_; whether and after how many seconds
// whoever is there has to authenticate again.
open_error_t rpcclt_openapiDot1xSystemAuthControlModeGet(openapiClientHandle_t *client, uint32_t *mode);
open_error_t rpcclt_openapiDot1xPortStatusGet(openapiClientHandle_t *client, uint32_t ifNum,
                                              uint32_t *status);
open_error_t rpcclt_openapiDot1xPortReauthGet(openapiClientHandle_t *client, uint32_t ifNum,
                                              uint32_t *enabled, uint32_t *period);
// 802.1AS of one port: OPEN_ENABLE or OPEN_DISABLE.
open_error_t rpcclt_openapiDot1asIntfModeGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *mode);

// --- neighbours: ARP, LLDP management addresses, switch-port mode

// Next entry of the ARP table after (vlanId, ipAddr), in an order of the switch's own; both 0 to start.
// `ipAddr` is in host byte order; `mac` is a string of 17 characters as in the forwarding database.
open_error_t rpcclt_openapiArpEntryNextGet(openapiClientHandle_t *client, uint32_t *vlanId, uint32_t *ipAddr,
                                           open_buffdesc *mac);
// Next management address that a neighbour announces after (family, address); 0 and an empty string to start.
// The family is 1 (IPv4) or 2 (IPv6); `address` is the address as a string, and its `size` the capacity on
// entry.
open_error_t rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(openapiClientHandle_t *client,
                                                                  uint32_t ifNum, uint32_t remIndex,
                                                                  uint32_t timeStamp, uint32_t *family,
                                                                  open_buffdesc *address);
// OPEN_SWITCHPORT_MODE_: what the interface is for. It does not change VLAN membership.
open_error_t rpcclt_openapiDot1qSwPortModeGet(openapiClientHandle_t *client, uint32_t ifNum, uint32_t *mode);
// Where an interface is: unit, slot, and port within the slot. Ports are in slot 0 of unit 1; a LAG is in
// no unit (0), in slot 1, and its port is the number of the LAG.
open_error_t rpcclt_openapiHashIntfUnitSlotPortGet(openapiClientHandle_t *client, uint32_t ifNum,
                                                   uint32_t *unit, uint32_t *slot, uint32_t *port);

// --- multicast: access lists, IGMP snooping

// The result of rpcclt_openapiAclGet for a list that does not exist.
enum { OPEN_E_ACL_NOT_EXIST = -29 };
// Kind of access list.
enum { OPEN_ACL_TYPE_IPV4 = 1 };
// Address family of IGMP snooping; IPv6 has MLD snooping.
enum { OPEN_AF_INET = 1 };

// The id of an access list, by its name of up to 31 characters. It stays that of the name, also when the list
// is deleted and created again.
open_error_t rpcclt_openapiAclGet(openapiClientHandle_t *client, uint32_t type, open_buffdesc *name,
                                  uint32_t *aclId);
// A list without rules, which filters nothing. OPEN_E_FAIL when there is one of that name, OPEN_E_FULL when
// there are too many, OPEN_E_PARAM for a name that no list can have.
open_error_t rpcclt_openapiAclCreate(openapiClientHandle_t *client, uint32_t type, open_buffdesc *name,
                                     uint32_t *aclId);
// The rules of a list by their numbers, in the order in which they are tried. Of a list that does not exist:
// OPEN_E_NOT_FOUND.
open_error_t rpcclt_openapiAclRuleGetFirst(openapiClientHandle_t *client, uint32_t aclId, uint32_t *rule);
open_error_t rpcclt_openapiAclRuleGetNext(openapiClientHandle_t *client, uint32_t aclId, uint32_t rule,
                                          uint32_t *next);
// OPEN_E_NOT_FOUND when there is none.
open_error_t rpcclt_openapiAclRuleDeleteLast(openapiClientHandle_t *client, uint32_t aclId);
// The interfaces that a list is bound to in a direction (OPEN_ACL_), ascending. `count` is the capacity of
// `list` in entries on entry, and their number on return; `list` receives 32-bit interface numbers. Those
// that do not fit are left out.
open_error_t rpcclt_openapiAclAssignedIntfDirListGet(openapiClientHandle_t *client, uint32_t aclId,
                                                     uint32_t direction, uint32_t *count,
                                                     open_buffdesc *list);
// Binds a list to an interface. Lower sequence numbers are tried first; OPEN_E_FAIL when another list has
// that number.
open_error_t rpcclt_openapiAclIntfDirAdd(openapiClientHandle_t *client, uint32_t ifNum, uint32_t direction,
                                         uint32_t aclId, uint32_t sequence);
// OPEN_E_NOT_FOUND when it is not bound there.
open_error_t rpcclt_openapiAclIntfDirDelete(openapiClientHandle_t *client, uint32_t ifNum, uint32_t direction,
                                            uint32_t aclId, uint32_t sequence);
// Next interface on which a multicast router has been configured.
open_error_t rpcclt_openapiSnoopIntfMrouterStateNextGet(openapiClientHandle_t *client, uint32_t family,
                                                        uint32_t ifNum, uint32_t *next);

// --- users of the command line

// What a user may do. A blocked one cannot log in, a reader cannot enter privileged mode.
enum { OPEN_USER_LEVEL_BLOCKED = 0, OPEN_USER_LEVEL_READ = 1, OPEN_USER_LEVEL_ADMIN = 15 };

// Room that user names and passwords need, with the terminating zero.
open_error_t rpcclt_openapiUserNameSizeGet(openapiClientHandle_t *client, uint32_t *size);
open_error_t rpcclt_openapiPasswordSizeGet(openapiClientHandle_t *client, uint32_t *size);
// The password of a user in clear text. OPEN_E_NOT_FOUND when there is no such user, here and below.
open_error_t rpcclt_openapiUserPasswordGet(openapiClientHandle_t *client, open_buffdesc *name,
                                           open_buffdesc *password);
// OPEN_USER_LEVEL_.
open_error_t rpcclt_openapiUserLevelGet(openapiClientHandle_t *client, open_buffdesc *name, uint32_t *level);

#ifdef __cplusplus
}
#endif

#endif
