// The settings file that a profile keeps for each of its VLANs: "/tmp/vlan_profile_config/ID", JSON. What the
// profile asked for is under "config"; beside it, what the VLAN was before the profile.
#ifndef PAVO_STORE_VLAN_SETTINGS_H
#define PAVO_STORE_VLAN_SETTINGS_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/if_num.h"
#include "common/vlan_id.h"
#include "common/where.h"

namespace pavo {

// A VLAN interface's address, as the running configuration states it.
struct VlanRouting {
    bool routing = false;
    bool dhcp = false;
    std::string ip, mask;  // both empty without a manual address

    bool operator==(const VlanRouting &) const = default;
};

// What a VLAN was before the profile.
struct VlanHistory {
    bool created = true;                      // the profile created the VLAN
    std::string oldName{};                    // its name on the switch before; empty: the default one
    std::optional<VlanRouting> oldRouting{};  // its VLAN interface before, once the profile has changed that

    bool operator==(const VlanHistory &) const = default;
};

struct VlanSettings {
    std::int32_t vlanType = 0;  // role within the profile
    std::string profileType;
    std::optional<bool> ptpTc;                        // the PTP transparent clock that the profile states
    std::optional<std::vector<IfNum>> assignedPorts;  // nothing in a file without the list
    std::optional<VlanHistory> history;               // nothing in a file that another program wrote

    // From the text of the file; keys that are missing or make no sense leave their member as it is above.
    // Nothing when the text does not parse.
    static std::optional<VlanSettings> parse(const std::string &text);
    // The text of the file, with an empty list and a fresh history where there is none; empty when memory
    // runs out.
    std::string print(VlanId id) const;
};

// What may stand in the name of a VLAN: well-formed UTF-8 without control characters, quotes and backslashes;
// false for an empty string.
bool isVlanName(std::string_view name);

std::string vlanSettingsPath(VlanId id);

// Nothing when there is no such file or it does not parse.
std::optional<VlanSettings> readVlanSettings(VlanId id, Where where = std::source_location::current());

}  // namespace pavo

#endif
