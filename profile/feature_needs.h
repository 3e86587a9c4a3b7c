// Which feature blocks the present profiles need together. A block is switched on when the first profile that
// needs it comes and off when the last one goes: the difference of two needs.
#ifndef PAVO_PROFILE_FEATURE_NEEDS_H
#define PAVO_PROFILE_FEATURE_NEEDS_H

#include <cstdint>
#include <set>
#include <span>

#include "platform/open_client.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"

struct FeatureNeeds {
    bool avb = false, sonos = false, etcGlobal = false, acl = false, ptpTc = false;
    bool qos = false, qosTelos = false, qosGd = false, qosNoPtp = false;
    std::int32_t querierInterval = 0;  // 0: none; the shortest of those wanted
    bool macFilterVisionary = false, macFilterSecond = false;
    // By VLAN.
    std::set<std::uint32_t> igmpPlus, fastLeave, etcVlan, rstp, lightwareIgmp, proxyQuerier;

    bool operator==(const FeatureNeeds &) const = default;
};

// What the profiles of these rows need, as far as their VLANs exist in `state`; rows whose VLAN is in
// `leaving` count in any case, so that what they had switched on is switched off.
FeatureNeeds featureNeedsGet(openapiClientHandle_t *client, std::span<const VlanInfoRow> rows,
                             const SwitchState &state, const std::set<std::int32_t> &leaving = {});

// Switches blocks off and on to get from one to the other. 0, or the code of the first block that failed; the
// blocks after it are not touched.
std::int32_t featureNeedsChange(openapiClientHandle_t *client, const FeatureNeeds &from,
                                const FeatureNeeds &to);

// The filters that go with the last profile that needs them. There is no way to bring them back, so this is
// the last step of a change. As above.
std::int32_t featureNeedsRemoveFilters(openapiClientHandle_t *client, const FeatureNeeds &from,
                                       const FeatureNeeds &to);

#endif
