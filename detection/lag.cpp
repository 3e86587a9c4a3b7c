#include "detection/lag.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>

#include "common/log.h"
#include "common/result.h"
#include "detection/switch_walks.h"
#include "swapi/swapi.h"
#include "swapi/vlan_membership.h"

namespace {

constexpr std::uint32_t kDefaultVlan = 1;
constexpr std::uint32_t kMembersMax = 4096;  // no switch has larger LAGs
constexpr std::size_t kSlotsPerMember = 4;   // room to spare

// visit(lagIfNum, members) for every LAG whose members can be read, until it returns false. 0, or 10000.
template <class Visit>
std::int32_t lagMembersForEach(openapiClientHandle_t *client, Visit visit) {
    std::uint32_t max = 0;
    const std::int32_t result = lagMaxMemberCountGet(client, &max);
    if (result != 0 || max == 0) {
        LOG_ERROR("[%s:%d] Bad return code trying to get the LAG member limit. (result = %d, limit = %u)\n",
                  result, max);
        return RESULT_FAILED;
    }
    const std::size_t room = max * kSlotsPerMember;
    const std::unique_ptr<std::uint32_t[]> members(max <= kMembersMax ? new (std::nothrow) std::uint32_t[room]
                                                                      : nullptr);
    if (members == nullptr) {
        LOG_ERROR("[%s:%d] Failed to allocate memory\n");
        return RESULT_FAILED;
    }
    lagForEach(client, [&](std::uint32_t lagIfNum) {
        std::uint32_t count = max;
        open_buffdesc list{static_cast<std::uint32_t>(room * sizeof(std::uint32_t)),
                           reinterpret_cast<char *>(members.get())};
        if (rpcclt_openapiLagMembersGet(client, lagIfNum, &count, &list) != OPEN_E_NONE)
            return true;
        return visit(lagIfNum, std::span<const std::uint32_t>(members.get(), std::min(count, max)));
    });
    return RESULT_SUCCESS;
}

}  // namespace

std::int32_t phyPortLagNumGet(openapiClientHandle_t *client, std::uint32_t port, std::uint32_t *lagIfNum) {
    return lagMembersForEach(client, [&](std::uint32_t lag, std::span<const std::uint32_t> members) {
        if (std::find(members.begin(), members.end(), port) == members.end())
            return true;
        *lagIfNum = lag;
        return false;
    });
}

std::int32_t freeLagFind(openapiClientHandle_t *client, std::uint32_t *lagIfNum) {
    return lagMembersForEach(client, [&](std::uint32_t lag, std::span<const std::uint32_t> members) {
        if (!members.empty())
            return true;
        LOG_TRACE("[%s:%d] LightwareLookup: LAG interface %d members is empty\n", lag);
        *lagIfNum = lag;
        return false;
    });
}

void ifUntaggedSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t vlanId) {
    std::uint32_t pvid = 0;
    const open_error_t result = openapiVlanIfPvidGet(client, ifNum, &pvid);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] Bad return code trying to get PVID. (result = %d)\n", result);
        return;
    }
    if (pvid != vlanId &&
        vlanIfParticipationSetAndVerify(client, ifNum, pvid, OPEN_VLAN_PARTICIPATION_MODE_AUTO) != 0) {
        return;
    }
    if (vlanIfParticipationSetAndVerify(client, ifNum, vlanId, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE) == 0)
        vlanIfPvidSetAndVerify(client, ifNum, vlanId);
}

void ifUntaggingClear(openapiClientHandle_t *client, std::uint32_t ifNum) {
    std::uint32_t pvid = 0;
    const open_error_t result = openapiVlanIfPvidGet(client, ifNum, &pvid);
    if (result != OPEN_E_NONE) {
        LOG_ERROR("[%s:%d] Bad return code trying to get PVID. (result = %d)\n", result);
        return;
    }
    if (vlanIfParticipationSetAndVerify(client, ifNum, pvid, OPEN_VLAN_PARTICIPATION_MODE_AUTO) == 0 &&
        vlanIfParticipationSetAndVerify(client, ifNum, kDefaultVlan, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE) ==
            0) {
        vlanIfPvidSetAndVerify(client, ifNum, kDefaultVlan);
    }
}
