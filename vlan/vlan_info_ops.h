// The picture of the switch's VLANs (vlan/vlan_picture.h, vlan/vlan_profile.h, vlan/ip_interfaces.h) as plain
// records that the caller owns. Nothing here changes the switch.
//
// Numbers in the port arrays are JSON numbers: of a physical port its interface number, of a LAG its LAG
// number (1 for the first LAG interface). "Untagged" means everywhere that the interface's PVID is the VLAN.
//
// Results are 0, 10000 (failure), 10002 (out of memory) or 10016 (a file cannot be opened); each failure is
// logged once. A port, LAG or file that cannot be read counts as one that says nothing. The operations keep
// no state between calls and any thread may call them.
//
// A create operation hands out what it allocated also when filling it failed, and null only when it could not
// be allocated; vlanListAllInfoCreateEX hands out null on any failure. Free operations accept null. Records
// and lists to be filled are fresh: zeroed, a single VLAN_INFO_T with its six arrays empty, lists without
// records.
#ifndef PAVO_VLAN_VLAN_INFO_OPS_H
#define PAVO_VLAN_VLAN_INFO_OPS_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>

#include "store/profile_types.h"
#include "swapi/switch.h"

namespace pavo {

// Room of tables with one entry per VLAN, some of them indexed by VLAN id.
inline constexpr std::size_t VLAN_TABLE_SIZE = 4096;

// Bits of VLAN_PROFILE_INFO_T::features and ::specified. "Off" features are those that a template switches
// off.
enum VlanProfileBit : std::uint32_t {
    VLAN_PROFILE_PTP = 1u << 0,  // specified: by the VLAN's settings file
    VLAN_PROFILE_AVB = 1u << 1,
    VLAN_PROFILE_FLOW_CONTROL = 1u << 2,  // feature: on; specified: on or off
    VLAN_PROFILE_POE = 1u << 3,
    VLAN_PROFILE_QUERY_INTERVAL = 1u << 5,
    VLAN_PROFILE_MTU = 1u << 6,  // feature: off; specified: the type has an MTU
    VLAN_PROFILE_STORM_OFF = 1u << 7,
    VLAN_PROFILE_QOS = 1u << 8,
    VLAN_PROFILE_SONOS = 1u << 9,
    VLAN_PROFILE_LLDP_OFF = 1u << 10,
    VLAN_PROFILE_ISDP_OFF = 1u << 11,
    VLAN_PROFILE_STP_OFF = 1u << 12,
    VLAN_PROFILE_PTP_BC = 1u << 13,
};
// Specified bits of the other parameters of the type: bit 4 for the second one, bits 15 to 26 for the rest in
// order.

// Bits of VLAN_PROFILE_INFO_T::avbKind.
inline constexpr std::uint8_t VLAN_AVB_MILAN = 1u << 5;
inline constexpr std::uint8_t VLAN_AVB_MILAN_DANTE = 1u << 6;

// Values of VLAN_INFO_T::ptpTc and, numbered differently, of VLAN_PROFILE_INFO_T::ptpTc.
enum : std::int16_t { VLAN_PTP_TC_OFF = 0, VLAN_PTP_TC_ON = 1, VLAN_PTP_TC_UNKNOWN = 2 };
enum : std::uint16_t {
    VLAN_PROFILE_PTP_TC_NOT_SET = 0,
    VLAN_PROFILE_PTP_TC_ON = 1,
    VLAN_PROFILE_PTP_TC_OFF = 2
};

// Port assignment of one VLAN.
struct VLAN_PORT_ASS_T {
    std::uint32_t vlanId;
    cJSON *tagPorts;    // physical ports that carry the VLAN tagged
    cJSON *untagPorts;  // physical ports whose PVID is the VLAN
    cJSON *tagLags;     // LAG numbers, likewise
    cJSON *untagLags;
    cJSON *shureDevicePorts;  // ports listed as Shure device ports (filled by vlanAllInfoGet only)
    cJSON *shureLearnPorts;   // ports on which LLDP saw a Shure device (likewise)
};

// Profile features of one VLAN.
struct VLAN_PROFILE_INFO_T {
    std::uint32_t vlanId;
    std::uint32_t profileType;         // the VLAN's role, from the profile database
    std::uint16_t features;            // VLAN_PROFILE_ bits: what the template turns on or changes
    std::uint16_t ptpTc;               // VLAN_PROFILE_PTP_TC_, from the VLAN's settings file
    ProfileTypeAttributes parameters;  // of the profile name, from the table of profile types
    std::uint32_t specified;           // VLAN_PROFILE_ and parameter bits: what the profile states
    std::uint8_t avbKind;              // VLAN_AVB_
    char profileName[256];             // the profile type's name
    char templatePath[512];            // template folder and profile name, blanks kept
};

// Everything known of one VLAN.
struct VLAN_INFO_T {
    std::uint32_t vlanId;
    std::uint8_t exists;      // on the switch
    char name[256];           // display name
    char color[8];            // "#rrggbb"
    std::uint8_t isMgmtVlan;  // set by the list builders only
    std::uint8_t isStatic;
    std::int16_t ptpTc;         // VLAN_PTP_TC_; the list builders find it out
    std::uint32_t profileType;  // the VLAN's role, from the profile database
    cJSON *tagPorts;            // the six arrays as in VLAN_PORT_ASS_T; null in a list with base info only
    cJSON *untagPorts;
    cJSON *tagLags;
    cJSON *untagLags;
    cJSON *shureDevicePorts;
    cJSON *shureLearnPorts;
    VLAN_PROFILE_INFO_T profile;  // the list builders fill vlanId, profileType and profileName
};

// Records in ascending order of VLAN id. A VLAN that has no record is at position 0 like the first one.
template <class Record>
struct VlanRecordList {
    Record *ids[VLAN_TABLE_SIZE];
    std::uint32_t count;
    std::uint32_t position[VLAN_TABLE_SIZE];  // by VLAN id
};
using VLAN_PORT_LIST_T = VlanRecordList<VLAN_PORT_ASS_T>;
using VLAN_INFOX_LIST_T = VlanRecordList<VLAN_INFO_T>;
using VLAN_PROFILE_LIST_T = VlanRecordList<VLAN_PROFILE_INFO_T>;

// Routing interface of one VLAN.
struct VLAN_ROUTING_INFO_T {
    std::uint32_t vlanId;    // 0: no routing interface
    std::uint32_t ipConfig;  // IpMethod
    char ipAddr[16];
    char ipMask[16];
};

// --- one VLAN

// Base info, port assignment, profile name and, with `withShure` and a profile type of 2 or 3, the Shure
// arrays. A VLAN that is not on the switch is a success with `exists` 0.
std::int32_t vlanAllInfoCreate(Switch sw, std::uint32_t vlanId, bool withShure, VLAN_INFO_T **info);
std::int32_t vlanAllInfoGet(Switch sw, std::uint32_t vlanId, bool withShure, VLAN_INFO_T *info);
void vlanAllInfoFree(VLAN_INFO_T *info);

// Exists, name, colour, isStatic, profile type and name. A VLAN without an entry in the profile database is
// named "VLAN0010", VLAN 1 "Default" and then given an entry.
std::int32_t vlanBaseInfoGet(Switch sw, std::uint32_t vlanId, VLAN_INFO_T *info);

// Appends the ports and LAGs of the VLAN; 10000 with the ports only when there is no LAG interface.
std::int32_t vlanAssInfoGet(Switch sw, std::uint32_t vlanId, cJSON *tagPorts, cJSON *untagPorts,
                            cJSON *tagLags, cJSON *untagLags);

// VLAN id and profile name, the latter left alone when the profile database has no entry. Always 0.
std::int32_t vlanProfileDetailGet(Switch sw, std::uint32_t vlanId, VLAN_PROFILE_INFO_T *profile);

// Appends the interface numbers of a LAG's members.
std::int32_t lagMembersJsonArrayGet(Switch sw, std::uint32_t lagIfNum, cJSON *array);

// --- every VLAN of the switch: each port and LAG is asked once, not once per VLAN

// Port and LAG assignment; 10000 with an empty list when there is no LAG interface. An interface in a VLAN
// that is not in the list is found in the record at position 0. The Shure arrays stay empty.
std::int32_t vlanListPortAssCreate(Switch sw, VLAN_PORT_LIST_T **list);
std::int32_t vlanListPortAssGet(Switch sw, VLAN_PORT_LIST_T *list);
void vlanListPortAssFree(VLAN_PORT_LIST_T *list);

// The same with a record for every VLAN of `viList`, in its order; 10002 also when that has an empty entry.
std::int32_t vlanListPortAssGetFromVlanList(Switch sw, VLAN_PORT_LIST_T *list,
                                            const VLAN_INFOX_LIST_T *viList);

// As vlanBaseInfoGet, with isMgmtVlan and ptpTc, but a VLAN without an entry in the profile database has its
// name on the switch or, without one, is named "VLAN10". 0 once the records are allocated.
std::int32_t vlanListBaseInfoCreateEX(Switch sw, VLAN_INFOX_LIST_T **list);
std::int32_t vlanListBaseInfoGetEX(Switch sw, VLAN_INFOX_LIST_T *list);

// Base info and the six port arrays.
std::int32_t vlanListAllInfoCreateEX(Switch sw, VLAN_INFOX_LIST_T **list);
std::int32_t vlanListAllInfoGetEX(Switch sw, VLAN_INFOX_LIST_T *list);
void vlanListInfoFreeEX(VLAN_INFOX_LIST_T *list);

// Full profile features; 10000 when the profile database cannot be opened.
std::int32_t vlanListProfileCreateEX(Switch sw, VLAN_PROFILE_LIST_T **list);
std::int32_t vlanListProfileInfoGetEX(Switch sw, VLAN_PROFILE_LIST_T *list);
void vlanListProfileFreeEX(VLAN_PROFILE_LIST_T *list);

// The quick form: VLANs from one "show vlan", of the template only PTP, PTP-BC, AVB, flowControl and Sonos,
// and avbKind; no parameters, no ptpTc. Features are found for the first 32 different profile names.
std::int32_t vlanListProfileCreateFastEX(Switch sw, VLAN_PROFILE_LIST_T **list);

// Routing interfaces as "show ip interface brief" lists them; `table` has VLAN_TABLE_SIZE records, indexed by
// VLAN id, and is cleared first. 0 or 10016.
std::int32_t vlanListRoutingInfoGet(Switch sw, VLAN_ROUTING_INFO_T *table);

}  // namespace pavo

#endif
