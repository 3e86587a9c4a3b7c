// One picture of the switch's VLANs, put together from the switch OS, the profile database and the files that
// profiles keep. All that is changed is the profile database, in which VLAN 1 gets its entry when that is
// missing. Plain values; any thread may call these functions.
//
// A port, LAG or file that cannot be read counts as one that says nothing. Each failure is logged once, on
// behalf of the operation that `where` names.
#ifndef PAVO_VLAN_VLAN_PICTURE_H
#define PAVO_VLAN_VLAN_PICTURE_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "swapi/switch.h"
#include "vlan/vlan_members.h"

namespace pavo {

struct VlanPicture {
    VlanId id;
    std::string name;               // display name, at most 255 bytes
    std::string color = "#000000";  // "#rrggbb"
    bool isManagement = false;
    bool isStatic = false;
    std::optional<bool> ptpTc;            // nothing when neither settings nor template say
    std::uint32_t vlanType = 1;           // role within its profile, from the profile database
    std::string profileType = "Default";  // the default one also for a VLAN of no profile
    VlanMembers members;
};

// Every VLAN of the switch, ascending; each port and LAG is asked once, not once per VLAN. A switch may
// have no LAG interface; Failed when it does not tell. A VLAN that no profile names has its name on the switch
// or, without one, "VLAN10". A port or LAG in a VLAN that is not on the switch counts for the first one.
Result<std::vector<VlanPicture>> readVlanPictures(Switch sw, Where where = std::source_location::current());

// The same without gaps: Failed (logged once) as soon as the switch or the profile database does not
// answer, so that nothing unknown is taken for the state of the switch. A port or LAG in a VLAN that is not
// on the switch is left out. No VLAN is the management VLAN when the switch does not show one. Without a
// profile database, all VLANs are in the default profile.
Result<std::vector<VlanPicture>> readWholeVlanPictures(Switch sw,
                                                       Where where = std::source_location::current());

// The same as readVlanPictures without the members.
std::vector<VlanPicture> readVlanBases(Switch sw, Where where = std::source_location::current());

// One VLAN, without its members, isManagement and ptpTc; nothing when it is not on the switch. A VLAN that no
// profile names is "VLAN0010". Failed when the switch has no names, InvalidPointer when there is no memory
// for one.
Result<std::optional<VlanPicture>> readVlanBase(Switch sw, VlanId id,
                                                Where where = std::source_location::current());

}  // namespace pavo

#endif
