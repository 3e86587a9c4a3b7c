#include "profile/rules.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "profile/offer.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "store/vlan_settings.h"
#include "swapi/features.h"

namespace pavo {
namespace {

struct OneVlanRule {
    std::vector<std::string_view> types;  // any of them counts
    std::size_t most;                     // VLANs of one request
    ResultCode code;
};
const OneVlanRule kOneVlanRules[] = {
    {{PROFILE_TYPE_NAME_AVB, PROFILE_TYPE_NAME_MILAN, PROFILE_TYPE_NAME_MILAN_DANTE},
     1,
     ResultCode::AvbOneVlan},
    {{PROFILE_TYPE_NAME_SMPTE}, 1, ResultCode::SmpteOneVlan},
    {{PROFILE_TYPE_NAME_SHURE_CONVERGED}, 1, ResultCode::ShureOneVlan},
    {{PROFILE_TYPE_NAME_SHURE_SPLIT}, 2, ResultCode::ShureOneVlan},
};

bool isAcceptable(const RoutingRequest &routing) {
    return routing.method >= IpConfig::Keep && routing.method <= IpConfig::Manual &&
           (routing.method != IpConfig::Manual || (routing.address && routing.mask));
}

// "vlans[0].KEY" of the VLAN at that position.
std::string fieldOf(std::size_t position, const char *key) {
    return "\"vlans[" + std::to_string(position) + "]." + key + "\": ";
}

Failure invalid(std::string reason) {
    return {ResultCode::InvalidArgument, std::move(reason)};
}

// What is wrong with the interfaces of a list, if anything.
std::optional<Failure> findFault(const std::string &field, const std::vector<IfNum> &list, PortNames &ports) {
    for (const IfNum port : list)
        if (const auto name = ports.find(port); !name) {
            const bool isAbsent = name.error() == OpenError::NotFound;
            const char *const why = isAbsent ? "there is no" : "the switch does not answer for";
            return Failure{isAbsent ? ResultCode::InvalidArgument : ResultCode::Failed,
                           formatText("%s%s interface %u", field, why, port)};
        }
    return std::nullopt;
}

// What is wrong with a VLAN of a request, if anything. `untagged` are the ports of the VLANs before.
std::optional<Failure> findFault(const ProfileVlanRequest &vlan, std::size_t position, PortNames &ports,
                                 std::set<IfNum> &untagged) {
    const auto fieldOfVlan = [&](const char *key) { return fieldOf(position, key); };
    if (findProfileType(vlan.profileType) == nullptr)
        return invalid(fieldOfVlan("profileType") + "there is no type " + quoteText(vlan.profileType));
    for (const auto &[key, list] : {std::pair("ports.untagged", &vlan.untagged),
                                    {"ports.tagged", &vlan.tagged},
                                    {"ports.assignedPort", &vlan.assigned}})
        if (auto fault = findFault(fieldOfVlan(key), *list, ports))
            return fault;
    for (const IfNum port : vlan.untagged)
        if (!untagged.insert(port).second)
            return invalid(fieldOfVlan("ports.untagged") + ports.of(port) + " is untagged twice");
    for (const IfNum port : vlan.tagged)
        if (std::find(vlan.untagged.begin(), vlan.untagged.end(), port) != vlan.untagged.end())
            return invalid(fieldOfVlan("ports.tagged") + ports.of(port) + " is untagged in this VLAN");
    if (!isAcceptable(vlan.routing))
        return invalid(fieldOfVlan("routing") + "a manual address needs \"ipAddr\" and \"ipMask\" as IPv4");
    return std::nullopt;
}

// "Default" is what VLAN 1 returns to, and no deletion takes it away; as "default" the program itself puts
// VLAN 1 back.
bool isReservedName(const ProfileRequest &request) {
    if (request.name != "Default" && request.name != "default")
        return false;
    return !std::ranges::all_of(request.vlans, [](const ProfileVlanRequest &vlan) {
        return vlan.id == kDefaultVlan && vlan.profileType == PROFILE_TYPE_NAME_DEFAULT;
    });
}

// The same for the request as a whole.
std::optional<Failure> findFault(const ProfileRequest &request) {
    if (request.vlans.empty() || request.vlans.size() > PROFILE_VLANS_MAX)
        return invalid("\"vlans\": a profile has one to four VLANs");
    if (request.name.size() > PROFILE_NAME_MAX)
        return invalid("\"name\": it has more than " + std::to_string(PROFILE_NAME_MAX) + " bytes");
    if (request.name.empty())
        return invalid("\"name\": it is empty");
    if (!isVlanName(request.name))
        return invalid("\"name\": it has characters that a VLAN name cannot have");
    if (findProfileType(request.profileType) == nullptr)
        return invalid("\"profileType\": there is no type " + quoteText(request.profileType));
    if (isReservedName(request))
        return invalid("\"name\": " + quoteText(request.name) + " is for the default profile of VLAN 1");
    for (auto vlan = request.vlans.begin(); vlan != request.vlans.end(); ++vlan)
        if (std::any_of(request.vlans.begin(), vlan, [&](const auto &other) { return other.id == vlan->id; }))
            return invalid(fieldOf(static_cast<std::size_t>(vlan - request.vlans.begin()), "vlanId") +
                           "VLAN " + std::to_string(vlan->id.number()) + " is named twice");
    return std::nullopt;
}

}  // namespace

std::unexpected<Failure> refuse(ResultCode code, std::string why, const Where &where) {
    logError(where, "[%s:%d] profile refused: %s (result = %d)\n", why, code);
    return failed(code, std::move(why));
}

std::unexpected<Failure> refuse(ResultCode code, const Where &where) {
    logError(where, "[%s:%d] profile refused: %s (result = %d)\n", getErrMsg(codeOf(code)), code);
    return failed(code);
}

Result<> checkRequest(Switch sw, const ProfileRequest &request, PortNames &ports, Where where) {
    auto fault = findFault(request);
    std::set<IfNum> untagged;
    for (std::size_t i = 0; !fault && i < request.vlans.size(); ++i)
        fault = findFault(request.vlans[i], i, ports, untagged);
    if (fault)
        return refuse(fault->code, std::move(fault->reason), where);
    // One that is not there leaves what the table of types says; one that cannot be read leaves nothing known.
    for (std::size_t i = 0; i < request.vlans.size(); ++i) {
        const auto &type = request.vlans[i].profileType;
        if (fileExists(profileTemplatePath(type)) && !loadProfileTemplate(type, where))
            return refuse(ResultCode::InvalidArgument,
                          fieldOf(i, "profileType") + "the template of " + quoteText(type) +
                              " cannot be read: " + profileTemplatePath(type),
                          where);
    }
    for (const auto &vlan : request.vlans)
        if (vlan.profileType == PROFILE_TYPE_NAME_SMPTE) {
            const auto model = readMachineModel(sw, where);
            if (model && !smpteModelSupported(std::string_view(*model)))
                return refuse(ResultCode::ProfileUnsupported, where);
        }
    return {};
}

Result<> checkName(const ProfileRequest &request, const AppliedProfiles &present, const SwitchState &state,
                   Where where) {
    const auto ids = request.ids();
    for (const auto &profile : present) {
        if (profile.request.name != request.name)
            continue;
        const auto &vlans = profile.request.vlans;
        const bool own = std::ranges::any_of(vlans, [&](const auto &vlan) { return ids.contains(vlan.id); });
        const bool there =
            std::ranges::any_of(vlans, [&](const auto &vlan) { return state.hasVlan(vlan.id); });
        if (there && !own)
            return refuse(ResultCode::NameInUse, where);
    }
    return {};
}

Result<> checkOneVlanTypes(const ProfileRequest &request, const Standing &others, const SwitchState &state,
                           Where where) {
    for (const auto &rule : kOneVlanRules) {
        const auto isOfType = [&](const ProfileVlanRequest &vlan) {
            return std::ranges::find(rule.types, vlan.profileType) != rule.types.end();
        };
        const auto wanted = static_cast<std::size_t>(std::ranges::count_if(request.vlans, isOfType));
        const auto present = std::ranges::find_if(others.vlans, [&](const PlacedVlan &placed) {
            return !placed.shared && isOfType(placed.vlan) && state.hasVlan(placed.vlan.id);
        });
        if (wanted > rule.most)
            return refuse(rule.code, where);
        if (wanted > 0 && present != others.vlans.end())
            return refuse(
                rule.code,
                formatText("VLAN %d is of type %s", present->vlan.id, quoteText(present->vlan.profileType)),
                where);
    }
    return {};
}

Result<> checkOwners(const ProfileRequest &request, const Standing &others, Where where) {
    const auto refuseTaken = [&](const std::string &what, const std::string &owner) {
        return refuse(ResultCode::ObjectExists,
                      formatText("%s belongs to profile %s; \"overwrite\" takes it", what, quoteText(owner)),
                      where);
    };
    for (std::size_t i = 0; i < request.vlans.size(); ++i) {
        const auto &vlan = request.vlans[i];
        for (const auto &placed : others.vlans) {
            if (placed.free)
                continue;
            const auto &owner = placed.profile->request.name;
            if (placed.vlan.id == vlan.id && !placed.shared && !isPartnerVlan(request, vlan))
                return refuseTaken(fieldOf(i, "vlanId") + "VLAN " + std::to_string(vlan.id.number()), owner);
            for (const IfNum port : vlan.untagged)
                if (std::ranges::find(placed.vlan.untagged, port) != placed.vlan.untagged.end())
                    return refuseTaken(
                        fieldOf(i, "ports.untagged") + "interface " + std::to_string(port.number()), owner);
        }
    }
    return {};
}

Result<> checkExclusions(const ProfileRequest &request, const Wanted &wanted, const SwitchState &state,
                         bool overwrite, Where where) {
    for (const auto &loss : wanted.losses) {
        if (overwrite || (loss.loser != request.name && loss.taker != request.name))
            continue;
        const auto &other = loss.loser == request.name ? loss.taker : loss.loser;
        const auto why = formatText("profile %s needs something that excludes it", quoteText(other));
        const bool asks = loss.taker == request.name;
        if (loss.what == kLossPtpTc || loss.what == kLossDot1as)
            return refuse(
                asks == (loss.what == kLossPtpTc) ? ResultCode::PtpTcEnabled : ResultCode::Dot1asEnabled, why,
                where);
        return refuse(
            ResultCode::InvalidArgument,
            formatText("%s and profile %s need different spanning-tree modes; \"overwrite\" takes it",
                       quoteText(request.name), quoteText(other)),
            where);
    }
    if (request.ptpTc.value_or(false) && wanted.needs.ptpTc && state.settings.contains("dot1as") &&
        !wanted.needs.avb)
        return refuse(ResultCode::Dot1asEnabled, "802.1AS is on", where);
    return {};
}

}  // namespace pavo
