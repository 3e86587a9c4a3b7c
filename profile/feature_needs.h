// Which feature blocks the present profiles need together: the union of what each of them demands. A block is
// switched on when the first profile that needs it comes and off when the last one goes: the difference of
// two needs.
#ifndef PAVO_PROFILE_FEATURE_NEEDS_H
#define PAVO_PROFILE_FEATURE_NEEDS_H

#include <cstdint>
#include <span>

#include "common/result.h"
#include "profile/qos_policy.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"

namespace pavo {

struct FeatureNeeds {
    bool avb = false, sonos = false, etcGlobal = false, acl = false, ptpTc = false;
    bool qos = false;
    QosClasses qosClasses;             // counts with qos; without PTP as soon as one profile wants that
    std::int32_t querierInterval = 0;  // 0: none; the shortest of those wanted
    bool macFilterVisionary = false, macFilterSecond = false;
    VlanSet igmpPlus, fastLeave, etcVlan, rstp, lightwareIgmp, proxyQuerier;

    bool operator==(const FeatureNeeds &) const = default;
};

// What the profiles of these rows need, as far as their VLANs exist in `state`; rows whose VLAN is in
// `leaving` count in any case, so that what they had switched on is switched off. Reads their templates and
// settings files.
FeatureNeeds readFeatureNeeds(std::span<const ProfileRow> rows, const SwitchState &state,
                              const VlanSet &leaving = {});

// Switches blocks off and on to get from one to the other. The failure of the first block that failed
// (logged); the blocks after it are not touched.
Result<> switchFeatures(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to);

// The filters that go with the last profile that needs them. There is no way to bring them back, so this is
// the last step of a change. As above.
Result<> dropFilters(Switch sw, const FeatureNeeds &from, const FeatureNeeds &to);

}  // namespace pavo

#endif
