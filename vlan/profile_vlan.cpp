#include "vlan/profile_vlan.h"

#include "store/profile_db.h"

namespace pavo {

ProfileVlan findVlanOfProfileType(Switch sw, std::string_view profileType, std::optional<VlanId> excluded,
                                  Where where) {
    const auto ids = readIdsOfType(profileType, where);
    if (!ids)
        return {.presence = Presence::Unknown, .awaited = "the profile database"};
    ProfileVlan found;
    for (const std::int32_t number : *ids) {
        const auto id = VlanId::from(number);
        if (!id || id == excluded)
            continue;
        const Presence presence = sw.vlanPresence(*id);
        if (presence == Presence::Present)
            return {.presence = presence, .vlan = *id};
        if (presence == Presence::Unknown)
            found = {.presence = presence, .awaited = "the switch"};
    }
    return found;
}

ProfileVlan findVlanOfRole(Switch sw, std::string_view profileType, std::int32_t vlanType, Where where) {
    const auto ids = readIdsOfTypeAndRole(profileType, vlanType, where);
    if (!ids)
        return {.presence = Presence::Unknown, .awaited = "the profile database"};
    const auto id = ids->empty() ? std::nullopt : VlanId::from(ids->front());
    if (!id)
        return {};
    return {.presence = sw.vlanPresence(*id), .vlan = *id, .awaited = "the switch"};
}

std::int32_t vlanInfoSelectHasofProfileType(Switch sw, const char *profileType, std::int32_t excluded) {
    const std::string_view type = profileType != nullptr ? std::string_view(profileType) : std::string_view();
    const ProfileVlan found = findVlanOfProfileType(sw, type, VlanId::from(excluded));
    return found.presence == Presence::Present ? static_cast<std::int32_t>(found.vlan.number()) : 0;
}

}  // namespace pavo
