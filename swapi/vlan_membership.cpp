#include "swapi/vlan_membership.h"

#include "common/log.h"
#include "common/result.h"
#include "platform/clock.h"

namespace {

constexpr int kPolls = 40;
constexpr platform::Duration kPollInterval = std::chrono::milliseconds(100);

// How far a change got, with the OpEN code of the call that failed.
struct Outcome {
    enum Step { SetFailed, GetFailed, NotShown, Done } step;
    open_error_t result = OPEN_E_NONE;

    std::int32_t code() const { return step == Done ? RESULT_SUCCESS : RESULT_FAILED; }
};

// Polls until `get` reads `wanted`. Every poll is followed by its pause, so nothing is read after the last
// pause.
template <class Get>
Outcome pollUntil(std::uint32_t wanted, Get get) {
    for (int budget = kPolls; budget > 0; --budget) {
        std::uint32_t value = 0;
        if (const open_error_t result = get(&value); result != OPEN_E_NONE)
            return {Outcome::GetFailed, result};
        if (value == wanted)
            return {Outcome::Done};
        platform::sleepFor(kPollInterval);
    }
    return {Outcome::NotShown};
}

template <class Set, class Get>
Outcome setAndVerify(std::uint32_t wanted, Set set, Get get) {
    if (const open_error_t result = set(); result != OPEN_E_NONE)
        return {Outcome::SetFailed, result};
    return pollUntil(wanted, get);
}

}  // namespace

std::int32_t vlanIfPvidSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum,
                                    std::uint32_t vlanId) {
    const Outcome outcome = setAndVerify(
        vlanId, [&] { return rpcclt_openapiVlanIfPvidSet(client, ifNum, vlanId); },
        [&](std::uint32_t *pvid) { return openapiVlanIfPvidGet(client, ifNum, pvid); });
    if (outcome.step == Outcome::SetFailed)
        LOG_ERROR("[%s:%d] Bad return code trying to set PVID. (result = %d)\n", outcome.result);
    else if (outcome.step == Outcome::GetFailed)
        LOG_ERROR("[%s:%d] Bad return code trying to get PVID. (result = %d)\n", outcome.result);
    return outcome.code();
}

std::int32_t vlanIfTaggingSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum,
                                       std::uint32_t vlanId, std::uint32_t taggingMode) {
    const Outcome outcome = setAndVerify(
        taggingMode, [&] { return rpcclt_openapiVlanIfTaggingSet(client, ifNum, vlanId, taggingMode); },
        [&](std::uint32_t *mode) { return openapiVlanIfTaggingGet(client, ifNum, vlanId, mode); });
    if (outcome.step == Outcome::SetFailed)
        LOG_ERROR(
            "[%s:%d] Bad return code trying to set VLAN tagging configuration. (result = %d, ifNum = %u, "
            "taggingMode = %u)\n",
            outcome.result, ifNum, taggingMode);
    else if (outcome.step == Outcome::GetFailed)
        LOG_ERROR(
            "[%s:%d] Bad return code trying to get VLAN tagging configuration. (result = %d, ifNum = %u, "
            "taggingMode = %u)\n",
            outcome.result, ifNum, taggingMode);
    return outcome.code();
}

std::int32_t vlanIfParticipationSetAndVerify(openapiClientHandle_t *client, std::uint32_t ifNum,
                                             std::uint32_t vlanId, std::uint32_t participationMode) {
    const Outcome outcome = setAndVerify(
        participationMode,
        [&] { return rpcclt_openapiVlanIfParticipationSet(client, vlanId, ifNum, participationMode); },
        [&](std::uint32_t *mode) {
            return rpcclt_openapiVlanIfCurrentParticipationGet(client, vlanId, ifNum, mode);
        });
    if (outcome.step == Outcome::SetFailed)
        LOG_ERROR(
            "[%s:%d] Bad return code trying to set VLAN participation configuration. (result = %d, ifNum "
            "= %u, partStatus = %u)\n",
            outcome.result, ifNum, participationMode);
    else if (outcome.step == Outcome::GetFailed)
        LOG_ERROR(
            "[%s:%d] Bad return code trying to get VLAN participation configuration. (result = %d, ifNum "
            "= %u, partStatus = %u)\n",
            outcome.result, ifNum, participationMode);
    return outcome.code();
}

std::int32_t vlanDeleteAndVerify(openapiClientHandle_t *client, std::uint32_t vlanId) {
    constexpr std::uint32_t kGone = 1;
    const Outcome outcome = setAndVerify(
        kGone, [&] { return rpcclt_openapiVlanDelete(client, vlanId); },
        [&](std::uint32_t *gone) {
            *gone = openapiVlanCreatedCheck(client, vlanId) != OPEN_E_NONE ? kGone : 0;
            return OPEN_E_NONE;
        });
    if (outcome.step == Outcome::SetFailed)
        LOG_ERROR("[%s:%d] Bad return code trying to delete vlan. (result = %d)\n", outcome.result);
    return outcome.code();
}

void ifAdminStateWaitSettled(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t state) {
    const Outcome outcome =
        pollUntil(state, [&](std::uint32_t *value) { return openapiIfAdminStateGet(client, ifNum, value); });
    if (outcome.step == Outcome::GetFailed)
        LOG_ERROR("[%s:%d] ifAdminStateWaitSettled: get failed (rc = %d, ifNum = %u)\n", outcome.result,
                  ifNum);
    else if (outcome.step == Outcome::NotShown)
        LOG_ERROR(
            "[%s:%d] ifAdminStateWaitSettled: ifNum = %u did not reach admin state %d after %d retries\n",
            ifNum, static_cast<int>(state), kPolls);
}

std::int32_t swapiVlanIfPvidGet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t *pvid) {
    const open_error_t result = openapiVlanIfPvidGet(client, ifNum, pvid);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Bad return code trying to get PVID. (result = %d)\n", result);
    return RESULT_FAILED;
}

std::int32_t swapiDot1qSwPortTaggedVlanListGet(openapiClientHandle_t *client, std::uint32_t ifNum,
                                               open_buffdesc *list) {
    const open_error_t result = rpcclt_openapiDot1qSwPortTaggedVlanListGet(client, ifNum, list);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Bad return code trying to get rhe tagged vlan list. (result = %d)\n", result);
    return RESULT_FAILED;
}

void ifTaggingClear(openapiClientHandle_t *client, std::uint32_t ifNum) {
    const int interface = static_cast<int>(ifNum);
    const int vlan = static_cast<int>(LIGHTWARE_TAGGED_VLAN);
    if (vlanIfParticipationSetAndVerify(client, ifNum, LIGHTWARE_TAGGED_VLAN,
                                        OPEN_VLAN_PARTICIPATION_MODE_AUTO) != RESULT_SUCCESS)
        LOG_ERROR(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n",
            interface, vlan);
    else
        LOG_TRACE(
            "[%s:%d] Lightware: set interface %d to vlan %d OPEN_VLAN_PARTICIPATION_MODE_AUTO success.\r\n",
            interface, vlan);
    if (vlanIfTaggingSetAndVerify(client, ifNum, LIGHTWARE_TAGGED_VLAN, 0) != RESULT_SUCCESS)
        LOG_ERROR("[%s:%d] Lightware: set interface %d to vlan %d tagged failed.\r\n", interface, vlan);
    else
        LOG_TRACE("[%s:%d] Lightware: set interface %d to vlan %d tagged success.\r\n", interface, vlan);
}
