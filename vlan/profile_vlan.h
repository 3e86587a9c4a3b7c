// The VLAN of a profile type, as the profile database and the switch have it. Any thread may call this.
#ifndef PAVO_VLAN_PROFILE_VLAN_H
#define PAVO_VLAN_PROFILE_VLAN_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string_view>

#include "swapi/switch.h"

namespace pavo {

// `vlan` counts when it is Present; Unknown when the database or the switch could not be asked, and `awaited`
// then says which (a string literal).
struct ProfileVlan {
    Presence presence = Presence::Absent;
    VlanId vlan{};
    const char *awaited = "";
};

// The first VLAN of that profile type, other than `excluded`, that exists on the switch.
ProfileVlan findVlanOfProfileType(Switch sw, std::string_view profileType, std::optional<VlanId> excluded,
                                  Where where = std::source_location::current());

// The first VLAN that has that role (a VLAN type) in that profile type, if it exists on the switch.
ProfileVlan findVlanOfRole(Switch sw, std::string_view profileType, std::int32_t vlanType,
                           Where where = std::source_location::current());

// The first of these as an operation: the VLAN id; 0 when there is none or it could not be asked for.
std::int32_t vlanInfoSelectHasofProfileType(Switch sw, const char *profileType, std::int32_t excluded);

}  // namespace pavo

#endif
