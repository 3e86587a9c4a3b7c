#include "profile/rules.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>

#include "common/log.h"
#include "profile/offer.h"
#include "store/profile_types.h"
#include "store/vlan_settings.h"
#include "swapi/features.h"

namespace pavo {
namespace {

struct OneVlanRule {
    std::string_view type;
    std::size_t most;  // VLANs of one request
    ResultCode code;
};
constexpr OneVlanRule kOneVlanRules[] = {
    {PROFILE_TYPE_NAME_AVB, 1, ResultCode::AvbOneVlan},
    {PROFILE_TYPE_NAME_MILAN, 1, ResultCode::AvbOneVlan},
    {PROFILE_TYPE_NAME_MILAN_DANTE, 1, ResultCode::AvbOneVlan},
    {PROFILE_TYPE_NAME_SMPTE, 1, ResultCode::SmpteOneVlan},
    {PROFILE_TYPE_NAME_SHURE_CONVERGED, 1, ResultCode::ShureOneVlan},
    {PROFILE_TYPE_NAME_SHURE_SPLIT, 2, ResultCode::ShureOneVlan},
};

// The VLAN of a row; nothing when it is not on the switch.
std::optional<VlanId> vlanOnSwitch(const ProfileRow &row, const SwitchState &state) {
    const auto id = row.vlan();
    return id && state.hasVlan(*id) ? id : std::nullopt;
}

bool isAcceptable(const RoutingRequest &routing) {
    return routing.method >= IpConfig::Keep && routing.method <= IpConfig::Manual &&
           (routing.method != IpConfig::Manual || (routing.address && routing.mask));
}

// What is wrong with a VLAN of a request; null when nothing is. `untagged` are the ports of the VLANs before.
const char *findFault(const ProfileVlanRequest &vlan, PortNames &ports, std::set<IfNum> &untagged) {
    if (findProfileType(vlan.profileType) == nullptr)
        return "unknown profile type";
    for (const auto *list : {&vlan.untagged, &vlan.tagged, &vlan.assigned})
        for (const IfNum port : *list)
            if (!ports.find(port))
                return "a port does not exist";
    for (const IfNum port : vlan.untagged)
        if (!untagged.insert(port).second)
            return "a port is untagged twice";
    for (const IfNum port : vlan.tagged)
        if (std::find(vlan.untagged.begin(), vlan.untagged.end(), port) != vlan.untagged.end())
            return "a port is tagged and untagged in one VLAN";
    return isAcceptable(vlan.routing) ? nullptr : "an IP address is malformed";
}

// The same for the request as a whole.
const char *findFault(const ProfileRequest &request) {
    if (request.vlans.empty() || request.vlans.size() > PROFILE_VLANS_MAX)
        return "a profile has one to four VLANs";
    if (!isVlanName(request.name))
        return "the name has characters that a VLAN name cannot have";
    if (findProfileType(request.profileType) == nullptr)
        return "unknown profile type";
    return request.ids().size() == request.vlans.size() ? nullptr : "a VLAN is named twice";
}

}  // namespace

std::unexpected<Failure> refuse(ResultCode code, const char *why, const Where &where) {
    logError(where, "[%s:%d] profile refused: %s (result = %d)\n", why, code);
    return failed(code);
}

std::unexpected<Failure> refuse(ResultCode code, const Where &where) {
    return refuse(code, getErrMsg(codeOf(code)), where);
}

Result<> checkRequest(Switch sw, const ProfileRequest &request, PortNames &ports, Where where) {
    const char *fault = findFault(request);
    std::set<IfNum> untagged;
    for (auto vlan = request.vlans.begin(); fault == nullptr && vlan != request.vlans.end(); ++vlan)
        fault = findFault(*vlan, ports, untagged);
    if (fault != nullptr)
        return refuse(ResultCode::InvalidArgument, fault, where);
    for (const auto &vlan : request.vlans)
        if (vlan.profileType == PROFILE_TYPE_NAME_SMPTE) {
            const auto model = readMachineModel(sw, where);
            if (model && !smpteModelSupported(std::string_view(*model)))
                return refuse(ResultCode::ProfileUnsupported, where);
        }
    return {};
}

Result<VlanSet> findLeftovers(const ProfileRequest &request, std::span<const ProfileRow> rows,
                              const SwitchState &state, bool overwrite, Where where) {
    const auto ids = request.ids();
    VlanSet left;
    bool own = overwrite;
    for (const auto &row : rows) {
        const auto id = vlanOnSwitch(row, state);
        if (!id || row.profileName != request.name)
            continue;
        if (ids.contains(*id))
            own = true;
        else
            left.insert(*id);
    }
    if (!left.empty() && !own)
        return refuse(ResultCode::NameInUse, where);
    return left;
}

Result<> checkOneVlanTypes(const ProfileRequest &request, std::span<const ProfileRow> rows,
                           const SwitchState &state, const VlanSet &gone, Where where) {
    for (const auto &rule : kOneVlanRules) {
        const auto wanted = static_cast<std::size_t>(
            std::count_if(request.vlans.begin(), request.vlans.end(),
                          [&](const ProfileVlanRequest &vlan) { return vlan.profileType == rule.type; }));
        const bool present = std::any_of(rows.begin(), rows.end(), [&](const ProfileRow &row) {
            const auto id = vlanOnSwitch(row, state);
            return row.profileType == rule.type && id && !gone.contains(*id);
        });
        if (wanted > rule.most || (wanted > 0 && present))
            return refuse(rule.code, where);
    }
    return {};
}

}  // namespace pavo
