#include "swapi/vlan_membership.h"

#include "common/log.h"
#include "swapi/poll.h"

namespace pavo {
namespace {

// For a set or a get that failed.
using MembershipFormat = LogFormat<OpenError, IfNum, std::uint32_t>;

// Polls until `get` reads `wanted`; onGetFailed(error) reports.
template <class T, class Get, class OnGetFailed>
Result<> verify(T wanted, Get get, OnGetFailed onGetFailed) {
    const Poll outcome = pollUntil([&] {
        const auto value = get();
        if (!value) {
            onGetFailed(value.error());
            return Poll::Stop;
        }
        return *value == wanted ? Poll::Done : Poll::Again;
    });
    return outcome == Poll::Done ? Result<>() : failed(ResultCode::Failed);
}

// Tagging and participation report alike: the mode is the one asked for, not the one read back.
template <class T, class Get>
Result<> setAndVerify(const OpenResult<> &set, IfNum ifNum, T wanted, Get get, const Where &where,
                      MembershipFormat setFailed, MembershipFormat getFailed) {
    const auto report = [&](MembershipFormat format, OpenError error) {
        logError(where, format, error, ifNum, static_cast<std::uint32_t>(wanted));
    };
    if (!set) {
        report(setFailed, set.error());
        return failed(ResultCode::Failed);
    }
    return verify(wanted, get, [&](OpenError error) { report(getFailed, error); });
}

}  // namespace

Result<> setPvidAndVerify(Switch sw, IfNum ifNum, VlanId id, Where where) {
    if (const auto set = sw.setPvid(ifNum, id); !set) {
        logError(where, "[%s:%d] Bad return code trying to set PVID. (result = %d)\n", set.error());
        return failed(ResultCode::Failed);
    }
    return verify(
        id.number(), [&] { return sw.pvidNumber(ifNum); },
        [&](OpenError error) {
            logError(where, "[%s:%d] Bad return code trying to get PVID. (result = %d)\n", error);
        });
}

Result<> setTaggingAndVerify(Switch sw, IfNum ifNum, VlanId id, Tagging tagging, Where where) {
    return setAndVerify(
        sw.setTagging(ifNum, id, tagging), ifNum, tagging, [&] { return sw.tagging(ifNum, id); }, where,
        "[%s:%d] Bad return code trying to set VLAN tagging configuration. (result = %d, ifNum = %u, "
        "taggingMode = %u)\n",
        "[%s:%d] Bad return code trying to get VLAN tagging configuration. (result = %d, ifNum = %u, "
        "taggingMode = %u)\n");
}

Result<> setParticipationAndVerify(Switch sw, IfNum ifNum, VlanId id, Participation participation,
                                   Where where) {
    return setAndVerify(
        sw.setParticipation(ifNum, id, participation), ifNum, participation,
        [&] { return sw.participation(ifNum, id); }, where,
        "[%s:%d] Bad return code trying to set VLAN participation configuration. (result = %d, ifNum "
        "= %u, partStatus = %u)\n",
        "[%s:%d] Bad return code trying to get VLAN participation configuration. (result = %d, ifNum "
        "= %u, partStatus = %u)\n");
}

Result<> deleteVlanAndVerify(Switch sw, VlanId id, Where where) {
    if (const auto deleted = sw.deleteVlan(id); !deleted) {
        logError(where, "[%s:%d] Bad return code trying to delete vlan. (result = %d)\n", deleted.error());
        return failed(ResultCode::Failed);
    }
    const Poll outcome = pollUntil([&] { return sw.checkVlan(id) ? Poll::Again : Poll::Done; });
    return outcome == Poll::Done ? Result<>() : failed(ResultCode::Failed);
}

Result<VlanId> readPvid(Switch sw, IfNum ifNum, Where where) {
    const auto pvid = sw.pvid(ifNum);
    if (pvid)
        return *pvid;
    logError(where, "[%s:%d] Bad return code trying to get PVID. (result = %d)\n", pvid.error());
    return failed(ResultCode::Failed);
}

Result<std::vector<VlanId>> readTaggedVlans(Switch sw, IfNum ifNum, Where where) {
    auto ids = sw.taggedVlans(ifNum);
    if (ids)
        return std::move(*ids);
    logError(where, "[%s:%d] Bad return code trying to get rhe tagged vlan list. (result = %d)\n",
             ids.error());
    return failed(ResultCode::Failed);
}

}  // namespace pavo
