// Boot images, management address and port speeds, see swapi/switch_settings.h. The forms that end in Safe
// serialise themselves across threads and processes with a lock file and are the ones to call; 10000 when the
// lock cannot be had.
#ifndef PAVO_SWAPI_SWITCH_SETTINGS_OPS_H
#define PAVO_SWAPI_SWITCH_SETTINGS_OPS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "swapi/switch.h"

namespace pavo {

// One row of "show bootvar". Texts are cut to their width and terminated.
struct BootImageRecord {
    std::int32_t unit;
    char active[12];
    char backup[12];
    char currentActive[18];
    char nextActive[18];
};

struct BootImageList {
    BootImageRecord *records;  // the caller's array
    std::size_t capacity;
    std::size_t count;  // filled in
};

// 0 with the count filled in; 10016 when the show output cannot be read.
std::int32_t bootvarGet(Switch sw, BootImageList *list);
std::int32_t bootvarGetSafe(Switch sw, BootImageList *list);

// Room of each text of the management address, including the terminating zero.
inline constexpr std::size_t MGMT_TEXT_SIZE = 32;

// Management VLAN number, method ("DHCP", "Manual", ...), address, netmask and gateway. Fields that the
// switch does not show are left as they were; null outputs are skipped. 0, or 10016.
std::int32_t managementPortIPv4ParametersGet(Switch sw, std::int32_t *vlan, char method[MGMT_TEXT_SIZE],
                                             char ip[MGMT_TEXT_SIZE], char mask[MGMT_TEXT_SIZE],
                                             char gateway[MGMT_TEXT_SIZE]);
std::int32_t managementPortIPv4ParametersGetSafe(Switch sw, std::int32_t *vlan, char method[MGMT_TEXT_SIZE],
                                                 char ip[MGMT_TEXT_SIZE], char mask[MGMT_TEXT_SIZE],
                                                 char gateway[MGMT_TEXT_SIZE]);

// Mode 1 is static, any other DHCP. An empty gateway or "0.0.0.0" removes the gateway. Result of txtCfgApply;
// 10003, with nothing sent, for null or malformed addresses.
inline constexpr std::int32_t MGMT_MODE_STATIC = 1;
std::int32_t managementPortIPv4ParametersSet(Switch sw, std::int32_t vlan, std::int32_t mode, const char *ip,
                                             const char *mask, const char *gateway);
std::int32_t managementPortIPv4ParametersSetSafe(Switch sw, std::int32_t vlan, std::int32_t mode,
                                                 const char *ip, const char *mask, const char *gateway);

// Sets the speed of the ports (ifNums): a text such as "100 Full", "10 Half", "Auto". Result of txtCfgApply;
// 10003, with nothing sent, for a null or malformed speed text.
std::int32_t multipleIfSpeedSet(Switch sw, std::span<const std::uint32_t> ports, const char *speed);
std::int32_t multipleIfSpeedSetSafe(Switch sw, std::span<const std::uint32_t> ports, const char *speed);

// The management VLAN number; 1 when the switch shows none. 0, 10003 on a null argument, or the getter's
// code.
std::int32_t managementVlanGet(Switch sw, std::int32_t *vlan);

// The default gateway; empty when there is none. 0, 10003 on a null argument, or the getter's code.
std::int32_t managementGatewayGet(Switch sw, char *dst, std::size_t cap);

}  // namespace pavo

#endif
