#include "detection/lag.h"

#include <algorithm>
#include <new>
#include <optional>
#include <vector>

#include "common/log.h"
#include "swapi/vlan_membership.h"

namespace pavo {
namespace {

constexpr std::uint32_t kMembersMax = 4096;  // no switch has larger LAGs

// The first LAG whose members can be read and are as `wanted(members)` says. Failed when there is none among
// those that can be read, and there are others.
template <class Wanted>
Result<IfNum> findLag(Switch sw, const Where &where, Wanted wanted) {
    const auto max = sw.lagMaxMembers();
    if (!max || *max == 0) {
        logError(where,
                 "[%s:%d] Bad return code trying to get the LAG member limit. (result = %d, limit = %u)\n",
                 codeOf(max), max.value_or(0));
        return failed(ResultCode::Failed);
    }
    if (*max > kMembersMax) {
        logError(where, "[%s:%d] Failed to allocate memory\n");
        return failed(ResultCode::Failed);
    }
    try {
        std::optional<OpenError> error;
        auto lags = sw.lagsByNext();
        for (const IfNum lag : lags) {
            const auto members = sw.lagMembers(lag, *max);
            if (members && wanted(*members))
                return lag;
            if (!members)
                error = members.error();
        }
        if (lags.brokenBy())
            error = lags.brokenBy();
        if (!error)
            return IfNum();
        logError(where, "[%s:%d] Bad return code trying to get the members of the LAGs. (result = %d)\n",
                 *error);
        return failed(ResultCode::Failed);
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Failed to allocate memory\n");
        return failed(ResultCode::Failed);
    }
}

}  // namespace

Result<IfNum> phyPortLagNumGet(Switch sw, IfNum port) {
    return findLag(sw, std::source_location::current(), [port](const std::vector<IfNum> &members) {
        return std::ranges::find(members, port) != members.end();
    });
}

Result<IfNum> freeLagFind(Switch sw) {
    const auto lag = findLag(sw, std::source_location::current(),
                             [](const std::vector<IfNum> &members) { return members.empty(); });
    if (lag && *lag)
        logDebug("[%s:%d] LightwareLookup: LAG interface %d members is empty\n", *lag);
    return lag;
}

bool ifUntaggedSet(Switch sw, IfNum ifNum, VlanId vlan) {
    const auto pvid = readPvid(sw, ifNum);
    if (!pvid || (*pvid != vlan && !setParticipationAndVerify(sw, ifNum, *pvid, Participation::Auto)) ||
        !setParticipationAndVerify(sw, ifNum, vlan, Participation::Include))
        return false;
    return setPvidAndVerify(sw, ifNum, vlan).has_value();
}

bool ifUntaggingClear(Switch sw, IfNum ifNum) {
    const auto pvid = readPvid(sw, ifNum);
    if (!pvid ||
        (*pvid != kDefaultVlan && !setParticipationAndVerify(sw, ifNum, *pvid, Participation::Auto)) ||
        !setParticipationAndVerify(sw, ifNum, kDefaultVlan, Participation::Include))
        return false;
    return setPvidAndVerify(sw, ifNum, kDefaultVlan).has_value();
}

}  // namespace pavo
