// Steps that applying and removing profiles have in common.
#ifndef PAVO_PROFILE_CHANGE_H
#define PAVO_PROFILE_CHANGE_H

#include <set>
#include <span>
#include <string>
#include <vector>

#include "profile/feature_needs.h"
#include "profile/transaction.h"

namespace pavo {

// Switches feature blocks on and off, with the way back; nothing when the needs are the same.
Result<> changeFeatures(Switch sw, ProfileTransaction &transaction, const FeatureNeeds &from,
                        const FeatureNeeds &to);
// The last step of a change: there is no way back from it.
Result<> removeFilters(Switch sw, ProfileTransaction &transaction, const FeatureNeeds &from,
                       const FeatureNeeds &to);

// Rows and settings files of VLANs that leave their profile. VLAN 1 goes to the default profile.
Result<> dropRecords(ProfileTransaction &transaction, const VlanSet &ids);

// Drops the files that tell detection about these types, as far as no row uses a type any longer.
Result<> dropDetectionFiles(ProfileTransaction &transaction, const std::set<std::string> &types);

std::vector<ProfileRow> rowsWithout(std::span<const ProfileRow> rows, const VlanSet &ids);
std::set<std::string> typesOf(std::span<const ProfileRow> rows);

}  // namespace pavo

#endif
