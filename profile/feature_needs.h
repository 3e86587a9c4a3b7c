// Which feature blocks the present profiles need together: the union of what each of them demands, and the
// blocks that follow from it.
#ifndef PAVO_PROFILE_FEATURE_NEEDS_H
#define PAVO_PROFILE_FEATURE_NEEDS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/result.h"
#include "profile/qos_policy.h"
#include "profile/settings.h"
#include "profile/standing.h"

namespace pavo {

struct FeatureNeeds {
    bool avb = false, sonos = false, etcGlobal = false, acl = false, ptpTc = false;
    bool ptpTcOff = false;  // a profile states that the transparent clock is to be off; counts without ptpTc
    bool qos = false;
    QosClasses qosClasses;             // counts with qos; without PTP as soon as one profile wants that
    std::int32_t querierInterval = 0;  // 0: none; the shortest of those wanted
    bool macFilterVisionary = false, macFilterSecond = false;
    VlanSet igmpPlus, fastLeave, etcVlan, rstp, lightwareIgmp, proxyQuerier;

    bool operator==(const FeatureNeeds &) const = default;
};

// What profiles need together. Reads their templates. Of needs that exclude each other the profile that was
// applied last has its way; the others are added to `losses` unless that is null.
FeatureNeeds readFeatureNeeds(const Standing &standing, std::vector<Loss> *losses = nullptr);

// A block as it is wanted: what its scripts write, and the scripts. The name tells it from the others.
struct FeatureBlock {
    std::string name;
    SettingWrites on, off;
    // Failures have been logged.
    std::function<Result<>(Switch sw)> switchOn, switchOff;
};

// In the order in which they are switched on and off. `other` is what was needed before, or is needed next.
std::vector<FeatureBlock> blocksOf(const FeatureNeeds &needs, const FeatureNeeds &other);

// A filter that detection or the web interface puts on the switch for a profile, and that goes with the last
// profile that wants it: the setting's name, or none for a filter that has nothing on the switch.
struct FilterBlock {
    std::string setting;
    std::function<Result<>(Switch sw)> switchOff;
};
std::vector<FilterBlock> filtersOf(const FeatureNeeds &needs);

}  // namespace pavo

#endif
