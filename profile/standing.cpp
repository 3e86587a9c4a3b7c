#include "profile/standing.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <utility>

#include "store/profile_types.h"

namespace pavo {
namespace {

// Roles of the partners of a Kramer profile.
constexpr std::int32_t kFirstPartnerType = 6;
constexpr std::int32_t kLastPartnerType = 9;

// For each VLAN the last profile that has it as its own; a partner counts where nobody else does.
std::map<VlanId, const AppliedProfile *> ownersOf(const AppliedProfiles &profiles) {
    std::map<VlanId, const AppliedProfile *> owners;
    for (const bool partners : {true, false})
        for (const auto &profile : profiles)
            for (const auto &vlan : profile.request.vlans)
                if (isPartnerVlan(profile.request, vlan) == partners)
                    owners[vlan.id] = &profile;
    return owners;
}

// VLAN 1 under the default profile is there for anybody.
bool isFree(const ProfileVlanRequest &vlan) {
    return vlan.id == kDefaultVlan && vlan.profileType == PROFILE_TYPE_NAME_DEFAULT;
}

std::string portText(IfNum port) {
    return "port " + std::to_string(port.number());
}

}  // namespace

bool isPartnerVlan(const ProfileRequest &request, const ProfileVlanRequest &vlan) {
    return request.profileType == PROFILE_TYPE_NAME_KRAMER && vlan.vlanType >= kFirstPartnerType &&
           vlan.vlanType <= kLastPartnerType;
}

Standing standingOf(const AppliedProfiles &profiles) {
    Standing standing;
    const auto owners = ownersOf(profiles);
    std::map<IfNum, const AppliedProfile *> untagged;
    for (const auto &profile : profiles)
        for (const auto &vlan : profile.request.vlans) {
            const auto *const owner = owners.at(vlan.id);
            const bool shared = owner != &profile && isPartnerVlan(profile.request, vlan);
            if (owner != &profile && !shared) {
                if (isFree(vlan))
                    continue;
                standing.losses.push_back(
                    {profile.request.name, "VLAN " + std::to_string(vlan.id.number()), owner->request.name});
                continue;
            }
            for (const IfNum port : vlan.untagged)
                untagged[port] = &profile;
            standing.vlans.push_back({&profile, vlan, shared, isFree(vlan)});
        }
    for (auto &placed : standing.vlans) {
        const auto &name = placed.profile->request.name;
        const bool free = placed.free;
        std::erase_if(placed.vlan.untagged, [&](IfNum port) {
            const auto *const owner = untagged.at(port);
            if (owner == placed.profile)
                return false;
            if (!free)
                standing.losses.push_back({name, portText(port), owner->request.name});
            return true;
        });
    }
    return standing;
}

std::vector<ProfileRow> rowsOf(const Standing &standing) {
    std::map<std::int32_t, ProfileRow> rows;
    const auto seed = defaultProfileRow();
    rows[seed.id] = seed;
    for (const auto &[profile, vlan, shared, free] : standing.vlans) {
        const auto id = static_cast<std::int32_t>(vlan.id.number());
        if (!shared)
            rows[id] = {.id = id,
                        .vlanType = vlan.vlanType,
                        .profileName = profile->request.name,
                        .profileType = vlan.profileType,
                        .color = profile->request.color};
    }
    std::vector<ProfileRow> out;
    out.reserve(rows.size());
    for (auto &[id, row] : rows)
        out.push_back(std::move(row));
    return out;
}

AppliedProfiles withProfile(AppliedProfiles profiles, AppliedProfile profile, bool last) {
    const auto known = std::ranges::find_if(
        profiles, [&](const AppliedProfile &other) { return other.request.name == profile.request.name; });
    if (known != profiles.end() && !last) {
        *known = std::move(profile);
        return profiles;
    }
    if (known != profiles.end())
        profiles.erase(known);
    profiles.push_back(std::move(profile));
    return profiles;
}

AppliedProfiles withoutVlans(AppliedProfiles profiles, const VlanSet &ids) {
    for (auto &profile : profiles)
        std::erase_if(profile.request.vlans, [&](const auto &vlan) { return ids.contains(vlan.id); });
    std::erase_if(profiles, [](const AppliedProfile &profile) { return profile.request.vlans.empty(); });
    return profiles;
}

}  // namespace pavo
