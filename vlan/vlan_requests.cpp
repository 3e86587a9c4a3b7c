#include "vlan/vlan_requests.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/json.h"
#include "common/log.h"
#include "vlan/vlan_list.h"

namespace pavo {
namespace {

std::unexpected<Failure> refuse(LogFormat<> why, const char *reason, const Where &where) {
    logAt<>(LOG_LEVEL_ERROR, where, why);
    return failed(ResultCode::InvalidArgument, reason);
}

JsonPtr parseBody(const char *json) {
    return JsonPtr(json != nullptr ? cJSON_Parse(json) : nullptr);
}

template <class Value>
using Words = std::pair<const char *, Value>;

constexpr Words<Participation> kModes[] = {
    {"include", Participation::Include}, {"auto", Participation::Auto}, {"exclude", Participation::Exclude}};
constexpr Words<AcceptFrames> kFrames[] = {{"all", AcceptFrames::All},
                                           {"vlanonly", AcceptFrames::VlanOnly},
                                           {"admituntaggedonly", AcceptFrames::UntaggedOnly}};
constexpr Words<Tagging> kTaggings[] = {{"tagged", Tagging::Tagged}, {"untagged", Tagging::Untagged}};

template <class Value, std::size_t N>
std::optional<Value> wordMember(const cJSON *body, const char *key, const Words<Value> (&words)[N]) {
    const auto text = stringMember(body, key);
    for (const auto &[word, value] : words)
        if (text == word)
            return value;
    return std::nullopt;
}

// A whole number; whether it is a VLAN's is asked later.
std::optional<std::uint32_t> vlanMember(const cJSON *body, const char *key) {
    const auto number = integerMember(body, key);
    return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

// A list of VLANs; its failure has been logged.
Result<std::vector<std::uint32_t>> parseList(const char *list, const Where &where) {
    ResultCode code = ResultCode::InvalidArgument;
    if (list != nullptr) {
        try {
            return parseVlanList(list);
        } catch (const std::bad_alloc &) {
            code = ResultCode::Failed;
        }
    }
    logError(where, "[%s:%d] Failed to parse VLAN list\n");
    return failed(code);
}

}  // namespace

Result<VlanChange> requestVlans(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    if (body == nullptr)
        return refuse("[%s:%d] Failed to parse request JSON\n", "the body is no JSON", where);
    const auto list = stringMember(body.get(), "vlan-list");
    if (!list)
        return refuse("[%s:%d] Missing or invalid vlan-list\n", "\"vlan-list\" is missing, or no string",
                      where);
    const auto vlans = parseList(list->c_str(), where);
    return vlans ? createVlans(sw, *vlans, where) : std::unexpected(vlans.error());
}

Result<VlanChange> requestNoVlans(Switch sw, const char *list, Where where) {
    const auto vlans = parseList(list, where);
    return vlans ? deleteVlans(sw, *vlans, OfProfiles::Change, where) : std::unexpected(vlans.error());
}

Result<VlanChange> requestVlanName(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    const auto vlan = vlanMember(body.get(), "vlan-id");
    const auto name = stringMember(body.get(), "name");
    if (!vlan || !name)
        return refuse("[%s:%d] Missing or invalid vlan-id or name\n",
                      "\"vlan-id\" has to be a whole number, and \"name\" a string", where);
    return renameVlan(sw, *vlan, *name, OfProfiles::Change, where);
}

// --- all ports and LAGs

Result<VlanChange> requestParticipation(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    const auto mode = wordMember(body.get(), "mode", kModes);
    const auto vlan = vlanMember(body.get(), "vlan-id");
    if (!mode || !vlan)
        return refuse(
            "[%s:%d] Missing or invalid mode or vlan-id\n",
            "\"mode\" has to be \"include\", \"auto\" or \"exclude\", and \"vlan-id\" a whole number", where);
    return setParticipationOfAll(sw, *vlan, *mode, OfProfiles::Change, where);
}

Result<VlanChange> requestAcceptFrames(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    const auto frames = wordMember(body.get(), "accept-frame", kFrames);
    if (!frames)
        return refuse("[%s:%d] Missing or invalid accept-frame\n",
                      "\"accept-frame\" has to be \"all\", \"vlanonly\" or \"admituntaggedonly\"", where);
    return setAcceptFramesOfAll(sw, *frames, OfProfiles::Change, where);
}

Result<VlanChange> requestPvid(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    const auto vlan = vlanMember(body.get(), "pvid");
    if (!vlan)
        return refuse("[%s:%d] Missing or invalid pvid\n", "\"pvid\" has to be a whole number", where);
    return setPvidOfAll(sw, *vlan, OfProfiles::Change, where);
}

Result<VlanChange> requestTagging(Switch sw, const char *json, Where where) {
    const JsonPtr body = parseBody(json);
    const auto vlan = vlanMember(body.get(), "vlan-id");
    const auto tagging = wordMember(body.get(), "tagging", kTaggings);
    if (!vlan || !tagging)
        return refuse("[%s:%d] Missing or invalid vlan-id or tagging\n",
                      "\"vlan-id\" has to be a whole number, and \"tagging\" \"tagged\" or \"untagged\"",
                      where);
    return setTaggingOfAll(sw, *vlan, *tagging, OfProfiles::Change, where);
}

}  // namespace pavo
