// One picture of the switch's VLANs, put together from the switch OS, the profile database and the files that profiles
// keep. Nothing here changes the switch. Plain values; any thread may call these functions.
//
// "Untagged" means everywhere that the interface's PVID is the VLAN. A port, LAG or file that cannot be read counts as
// one that says nothing. Each failure is logged once, on behalf of the operation that `where` names.
#ifndef PAVO_VLAN_VLAN_PICTURE_H
#define PAVO_VLAN_VLAN_PICTURE_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/if_num.h"
#include "swapi/switch.h"

namespace pavo {

// Interface numbers of ports, and numbers of LAGs (1 for the first LAG interface), in the order of the switch's walk.
struct VlanMembers {
    std::vector<IfNum> taggedPorts;
    std::vector<IfNum> untaggedPorts;
    std::vector<std::uint32_t> taggedLags;
    std::vector<std::uint32_t> untaggedLags;
};

struct VlanPicture {
    VlanId id;
    std::string name;   // display name
    std::string color;  // "#rrggbb"
    bool isManagement = false;
    bool isStatic = false;
    std::optional<bool> ptpTc;   // nothing when neither settings nor template say
    std::uint32_t vlanType = 1;  // role within its profile, from the profile database
    std::string profileType;     // "Default" for a VLAN of no profile
    VlanMembers members;
};

// Every VLAN of the switch, ascending; each port and LAG is asked once, not once per VLAN. Failed when there is no LAG
// interface.
Result<std::vector<VlanPicture>> readVlanPictures(Switch sw, Where where = std::source_location::current());

}  // namespace pavo

#endif
