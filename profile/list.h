// The profiles in force. Any thread may call these functions; failures are logged on behalf of `where`.
#ifndef PAVO_PROFILE_LIST_H
#define PAVO_PROFILE_LIST_H

#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "profile/standing.h"
#include "store/profile_db.h"
#include "store/vlan_settings.h"
#include "swapi/switch.h"
#include "vlan/vlan_members.h"

namespace pavo {

struct ListedVlan {
    ProfileRow row;
    bool exists = false;  // on the switch
    // Only with full details; nothing for a VLAN that is not on the switch, or has no settings file. A LAG
    // without members that is in VLAN 1 untagged, as all of them are at first, is left out.
    std::optional<VlanMembers> members{};
    std::optional<VlanSettings> settings{};
};

struct ListedProfile {
    std::string name, profileType, color;  // those of its lowest VLAN
    std::vector<ListedVlan> vlans;         // ascending; empty when other profiles have taken all of them
    std::vector<Loss> incomplete{};        // what it goes without, because another profile has it
};

// How much is listed for each VLAN.
enum class ListDetails { Brief, Full };

// In the order of their lowest VLANs, those without VLANs last. Where the database has been lost, the record of
// what was applied stands in for it; where there is neither, there is the default profile alone. No database is
// made. Failed, with a human-readable reason, when the database, the record or the switch cannot be read: a list
// with holes would look as if something had gone.
Result<std::vector<ListedProfile>> readProfiles(Switch sw, ListDetails details,
                                                Where where = std::source_location::current());

// A profile as JSON: {"name", "profileType", "color", "vlans": [{"vlanId", "vlanType", "profileType",
// "exists"}, ...]}, "incomplete": [{"what", "to"}, ...] when it goes without something. With full details also
// "vlanName", "ports" {"untagged", "tagged"} (interface numbers) and "lags" {"untagged", "tagged"} (LAG numbers)
// for a VLAN that exists, and "ptpTc" and "assignedPort" where the profile's request named them. Well-formed
// UTF-8; empty when memory runs out.
std::string printProfile(const ListedProfile &profile);
std::string printProfiles(const std::vector<ListedProfile> &profiles);

}  // namespace pavo

#endif
