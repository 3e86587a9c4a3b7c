#include "profile/change.h"

#include <algorithm>
#include <iterator>

#include "profile/detection_files.h"

namespace pavo {
namespace {

constexpr const char *kFeatureStep = "profile_action_match_and_do";

}  // namespace

Result<> changeFeatures(Switch sw, ProfileTransaction &transaction, const FeatureNeeds &from,
                        const FeatureNeeds &to) {
    if (from == to)
        return {};
    return transaction.run(
        kFeatureStep, [&] { return switchFeatures(sw, from, to); },
        [sw, from, to] { return switchFeatures(sw, to, from); });
}

Result<> removeFilters(Switch sw, ProfileTransaction &transaction, const FeatureNeeds &from,
                       const FeatureNeeds &to) {
    return transaction.run(
        kFeatureStep, [&] { return dropFilters(sw, from, to); }, [] { return Result<>(); });
}

Result<> dropRecords(ProfileTransaction &transaction, const VlanSet &ids) {
    for (const VlanId id : ids) {
        auto done = id == kDefaultVlan ? transaction.putRow(defaultProfileRow())
                                       : transaction.dropRow(static_cast<std::int32_t>(id.number()));
        if (done)
            done = transaction.dropFile(vlanSettingsPath(id));
        if (!done)
            return done;
    }
    return {};
}

Result<> dropDetectionFiles(ProfileTransaction &transaction, const std::set<std::string> &types) {
    const auto left = typesOf(transaction.rows());
    for (const auto &type : types)
        if (!left.contains(type))
            for (const auto &path : detectionFilesOfType(type))
                if (auto dropped = transaction.dropFile(path); !dropped)
                    return dropped;
    return {};
}

std::vector<ProfileRow> rowsWithout(std::span<const ProfileRow> rows, const VlanSet &ids) {
    std::vector<ProfileRow> left;
    std::copy_if(rows.begin(), rows.end(), std::back_inserter(left), [&](const ProfileRow &row) {
        const auto id = row.vlan();
        return !id || !ids.contains(*id);
    });
    return left;
}

std::set<std::string> typesOf(std::span<const ProfileRow> rows) {
    std::set<std::string> types;
    for (const auto &row : rows)
        types.insert(row.profileType);
    return types;
}

}  // namespace pavo
