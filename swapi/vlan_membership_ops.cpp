#include "swapi/vlan_membership_ops.h"

#include "common/log.h"
#include "swapi/poll.h"
#include "swapi/vlan_membership.h"

namespace pavo {
namespace {

// change(id) for a number that is a VLAN's. The switch has no other, and refuses it: refused(code) reports
// that.
template <class Change, class Refused>
std::int32_t onVlan(std::uint32_t vlanId, Change change, Refused refused) {
    if (const auto id = VlanId::from(vlanId))
        return codeOf(change(*id));
    refused(OpenError::Parameter);
    return codeOf(ResultCode::Failed);
}

}  // namespace

std::int32_t vlanIfPvidSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId) {
    return onVlan(
        vlanId, [&](VlanId id) { return setPvidAndVerify(sw, IfNum(ifNum), id); },
        [](OpenError code) {
            logError("[%s:%d] Bad return code trying to set PVID. (result = %d)\n", code);
        });
}

std::int32_t vlanIfTaggingSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId,
                                       std::uint32_t taggingMode) {
    const auto tagging = static_cast<Tagging>(taggingMode);
    return onVlan(
        vlanId, [&](VlanId id) { return setTaggingAndVerify(sw, IfNum(ifNum), id, tagging); },
        [&](OpenError code) {
            logError(
                "[%s:%d] Bad return code trying to set VLAN tagging configuration. (result = %d, ifNum = %u, "
                "taggingMode = %u)\n",
                code, ifNum, taggingMode);
        });
}

std::int32_t vlanIfParticipationSetAndVerify(Switch sw, std::uint32_t ifNum, std::uint32_t vlanId,
                                             std::uint32_t participationMode) {
    const auto mode = static_cast<Participation>(participationMode);
    return onVlan(
        vlanId, [&](VlanId id) { return setParticipationAndVerify(sw, IfNum(ifNum), id, mode); },
        [&](OpenError code) {
            logError(
                "[%s:%d] Bad return code trying to set VLAN participation configuration. (result = %d, ifNum "
                "= %u, partStatus = %u)\n",
                code, ifNum, participationMode);
        });
}

std::int32_t vlanDeleteAndVerify(Switch sw, std::uint32_t vlanId) {
    return onVlan(
        vlanId, [&](VlanId id) { return deleteVlanAndVerify(sw, id); },
        [](OpenError code) {
            logError("[%s:%d] Bad return code trying to delete vlan. (result = %d)\n", code);
        });
}

void ifAdminStateWaitSettled(Switch sw, std::uint32_t ifNum, std::uint32_t state) {
    const auto wanted = static_cast<AdminState>(state);
    const Poll outcome = pollUntil([&] {
        const auto now = sw.adminState(IfNum(ifNum));
        if (now)
            return *now == wanted ? Poll::Done : Poll::Again;
        logError("[%s:%d] ifAdminStateWaitSettled: get failed (rc = %d, ifNum = %u)\n", now.error(), ifNum);
        return Poll::Stop;
    });
    if (outcome == Poll::Again)
        logError(
            "[%s:%d] ifAdminStateWaitSettled: ifNum = %u did not reach admin state %d after %d retries\n",
            ifNum, state, kPolls);
}

std::int32_t swapiVlanIfPvidGet(Switch sw, std::uint32_t ifNum, std::uint32_t *pvid) {
    const auto read = sw.pvidNumber(IfNum(ifNum));
    if (!read) {
        logError("[%s:%d] Bad return code trying to get PVID. (result = %d)\n", read.error());
        return codeOf(ResultCode::Failed);
    }
    *pvid = *read;
    return 0;
}

std::int32_t swapiDot1qSwPortTaggedVlanListGet(Switch sw, std::uint32_t ifNum, open_buffdesc *list) {
    const auto read = sw.taggedVlans(IfNum(ifNum), list);
    if (read)
        return 0;
    logError("[%s:%d] Bad return code trying to get rhe tagged vlan list. (result = %d)\n", read.error());
    return codeOf(ResultCode::Failed);
}

}  // namespace pavo
