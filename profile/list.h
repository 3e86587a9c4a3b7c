// The profiles in force. Any thread may call these functions; failures are logged on behalf of `where`.
#ifndef PAVO_PROFILE_LIST_H
#define PAVO_PROFILE_LIST_H

#include <optional>
#include <source_location>
#include <string>
#include <vector>

#include "common/result.h"
#include "store/profile_db.h"
#include "store/vlan_settings.h"
#include "vlan/vlan_picture.h"

namespace pavo {

struct ListedVlan {
    ProfileRow row;
    bool exists = false;  // on the switch
    // Only with everything known; nothing for a VLAN that is not on the switch, or has no settings file.
    std::optional<VlanPicture> picture{};
    std::optional<VlanSettings> settings{};
};

struct ListedProfile {
    std::string name, profileType, color;  // those of its lowest VLAN
    std::vector<ListedVlan> vlans;         // ascending; never empty
};

// How much is listed for each VLAN.
enum class ListDetails { Brief, Full };

// In the order of their lowest VLANs. Failed when the database or, with everything known, the switch cannot
// be read.
Result<std::vector<ListedProfile>> readProfiles(Switch sw, ListDetails details,
                                                Where where = std::source_location::current());

// A profile as JSON: {"name", "profileType", "color", "vlans": [{"vlanId", "vlanType", "profileType",
// "exists"}, ...]}, and with everything known also "vlanName", "ptpTc", "ports" {"untagged", "tagged"}
// (interface numbers), "lags" {"untagged", "tagged"} (LAG numbers), and "assignedPort" where the profile's
// request named them. Empty when memory runs out.
std::string printProfile(const ListedProfile &profile);
std::string printProfiles(const std::vector<ListedProfile> &profiles);

}  // namespace pavo

#endif
