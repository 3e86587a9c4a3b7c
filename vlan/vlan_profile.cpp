#include "vlan/vlan_profile.h"

#include <cstddef>

#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/vlan_settings.h"

namespace pavo {
namespace {

constexpr std::size_t kScannedTypesMax = 32;

VlanProfile makeProfile(const ProfileRow &row, ProfileTemplateCache &templates) {
    VlanProfile profile;
    profile.vlanType = static_cast<std::uint32_t>(row.vlanType);
    profile.profileType = row.profileType;
    if (!profile.profileType.empty())
        profile.demand = templateDemand(profile.profileType, templates.find(profile.profileType));
    return profile;
}

}  // namespace

Result<std::vector<VlanProfile>> readVlanProfiles(std::span<const VlanId> ids, Where where) {
    const auto rows = readProfileRowsOf(ids, where);
    if (!rows)
        return failed(ResultCode::Failed, "the profile database cannot be opened");
    ProfileTemplateCache templates;
    std::vector<VlanProfile> profiles(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (const auto &row = (*rows)[i])
            profiles[i] = makeProfile(*row, templates);
        if (const ProfileType *const type = findProfileType(profiles[i].profileType))
            profiles[i].attributes = type->attributes;
        if (const auto settings = readVlanSettings(ids[i]))
            profiles[i].ptpTc = settings->ptpTc;
    }
    return profiles;
}

std::vector<VlanProfile> scanVlanProfiles(std::span<const std::uint32_t> numbers, Where where) {
    const auto rows = readProfileRows(where).value_or(std::vector<ProfileRow>{});
    ProfileTemplateCache templates(kScannedTypesMax);
    std::vector<VlanProfile> profiles(numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i)
        if (const ProfileRow *const row = findProfileRow(rows, static_cast<std::int32_t>(numbers[i])))
            profiles[i] = makeProfile(*row, templates);
    return profiles;
}

}  // namespace pavo
