#include <algorithm>
#include <utility>

#include "profile/apply.h"
#include "profile/change.h"
#include "profile/placing.h"
#include "profile/rules.h"

namespace pavo {
namespace {

// One attempt; what it did is in the transaction.
Result<> runSteps(Switch sw, ProfileTransaction &transaction, const VlanSet &ids) {
    const auto rows = transaction.rows();
    const auto stay = rowsWithout(rows, ids);
    std::set<std::string> types;
    for (const VlanId id : ids)
        types.insert(transaction.row(id)->profileType);
    const auto needsBefore = readFeatureNeeds(rows, transaction.state(), ids);
    const auto needsAfter = readFeatureNeeds(stay, transaction.state());
    // The blocks go first: their scripts touch VLANs that must still be there.
    if (auto done = changeFeatures(sw, transaction, needsBefore, needsAfter); !done)
        return done;
    auto wanted = transaction.state();
    vacateVlans(ids, wanted);
    placeMtu(transaction.state(), rows, stay, wanted);
    wanted.normalise();
    auto done = transaction.changeSwitch("vlan delete", wanted);
    if (done)
        done = dropRecords(transaction, ids);
    if (done)
        done = dropDetectionFiles(transaction, types);
    return done ? removeFilters(sw, transaction, needsBefore, needsAfter) : done;
}

// `strays` are rows of the profile whose id is no VLAN's: nothing of them is on the switch.
Result<> remove(Switch sw, ProfileTransaction &transaction, const VlanSet &ids,
                const std::set<std::int32_t> &strays = {}) {
    auto done = runSteps(sw, transaction, ids);
    for (auto stray = strays.begin(); done && stray != strays.end(); ++stray)
        done = transaction.dropRow(*stray);
    if (done)
        transaction.commit();
    return done;
}

}  // namespace

Result<> removeFromVlans(Switch sw, const VlanSet &ids, const ProfileLock &, Where where) {
    ProfileTransaction transaction(sw, where);
    if (auto begun = transaction.begin(); !begun)
        return begun;
    auto owned = ids;
    std::erase_if(owned, [&](VlanId id) { return transaction.row(id) == nullptr; });
    return remove(sw, transaction, owned);
}

Result<> removeProfile(Switch sw, const std::string &name, const ProfileLock &, Where where) {
    ProfileTransaction transaction(sw, where);
    if (auto begun = transaction.begin(); !begun)
        return begun;
    VlanSet ids;
    std::set<std::int32_t> strays;
    for (const auto &row : transaction.rows()) {
        if (row.profileName != name)
            continue;
        if (const auto id = row.vlan())
            ids.insert(*id);
        else
            strays.insert(row.id);
    }
    if (ids.empty() && strays.empty())
        return refuse(ResultCode::NotExist, "there is no such profile", where);
    return remove(sw, transaction, ids, strays);
}

}  // namespace pavo
