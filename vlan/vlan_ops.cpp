#include "vlan/vlan_ops.h"

#include <string>
#include <string_view>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "store/profile_template.h"
#include "vlan/switchport_mode.h"
#include "vlan/vlan_changes.h"
#include "vlan/vlan_details.h"
#include "vlan/vlan_records.h"
#include "vlan/vlan_requests.h"

namespace pavo {
namespace {

constexpr std::int32_t kSuccess = codeOf(ResultCode::Success);
constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::int32_t kInvalid = codeOf(ResultCode::InvalidArgument);
// The role of a VLAN of no particular use.
constexpr std::uint32_t kPlainVlan = 1;

std::int32_t refuse(LogFormat<> why, const Where &where) {
    logAt<>(LOG_LEVEL_ERROR, where, why);
    return kInvalid;
}

// --- answers

std::int32_t handOut(const std::string &text, char **json, const Where &where) {
    *json = text.empty() ? nullptr : newText(text);
    if (*json != nullptr)
        return kSuccess;
    logError(where, "[%s:%d] Failed to allocate memory\n");
    return kFailed;
}

// What was read, printed; or its code.
template <class T, class Print>
std::int32_t answer(const Result<T> &read, Print print, char **json, const Where &where) {
    *json = nullptr;
    return read ? handOut(print(*read), json, where) : codeOf(read);
}

// The ports that the kept request of a profile type assigns to a VLAN's devices; null when no request is
// kept, or memory runs out.
JsonPtr assignedPorts(const char *profileType, std::uint32_t vlanId) {
    const std::string path = profileExFilePath(profileType);
    const JsonPtr file(path.empty() ? nullptr : jsonFileLoad(path.c_str()));
    JsonPtr ports(file != nullptr ? cJSON_CreateArray() : nullptr);
    if (ports == nullptr)
        return nullptr;
    const cJSON *vlan = nullptr;
    cJSON_ArrayForEach(vlan, member(member(file.get(), "profileConfig"), "vlans")) {
        if (integerMember(vlan, "vlanId") != static_cast<std::int32_t>(vlanId))
            continue;
        const cJSON *port = nullptr;
        cJSON_ArrayForEach(port, member(member(vlan, "ports"), "assignedPort")) {
            const auto number = integerOf(port);
            if (number && *number > 0 && !appendNumber(ports.get(), *number))
                return nullptr;
        }
        break;
    }
    return ports;
}

bool addCopy(cJSON *root, const char *key, const cJSON *array) {
    JsonPtr copy(cJSON_Duplicate(array, true));
    return copy != nullptr && addItem(root, key, std::move(copy));
}

bool addText(cJSON *root, const char *key, std::string_view text) {
    return cJSON_AddStringToObject(root, key, validUtf8(text).c_str()) != nullptr;
}

bool fillVlan(cJSON *root, const VLAN_INFO_T &info) {
    const bool filled =
        cJSON_AddNumberToObject(root, "vlanId", info.vlanId) != nullptr && addText(root, "name", info.name) &&
        addText(root, "color", info.color) && addText(root, "profileName", info.name) &&
        cJSON_AddNumberToObject(root, "vlanType", info.profileType) != nullptr &&
        cJSON_AddBoolToObject(root, "isStatic", info.isStatic) != nullptr &&
        addCopy(root, "assignedUntagPort", info.untagPorts) &&
        addCopy(root, "assignedtagPort", info.tagPorts) && addCopy(root, "assignedTagLag", info.tagLags) &&
        addCopy(root, "assignedUnTagLag", info.untagLags) &&
        addCopy(root, "assignedShureLearnPort", info.shureLearnPorts) &&
        addCopy(root, "shureDevicePort", info.shureDevicePorts) &&
        addText(root, "profileType", info.profile.profileName);
    if (!filled || info.profileType == kPlainVlan)
        return filled;
    JsonPtr ports = assignedPorts(info.profile.profileName, info.vlanId);
    return ports == nullptr || addItem(root, "assignedPort", std::move(ports));
}

}  // namespace

// --- some VLANs

std::int32_t v2VlanListCreate(Switch sw, const char *json) {
    return codeOf(requestVlans(sw, json));
}

std::int32_t v2VlanListDelete(Switch sw, const char *list) {
    return codeOf(requestNoVlans(sw, list));
}

std::int32_t v2VlanListGet(Switch sw, char **json) {
    const Where where = std::source_location::current();
    return answer(readVlanSummaries(sw, where), printVlanSummaries, json, where);
}

std::int32_t v2VlanDetailGet(Switch sw, std::uint32_t vlanId, char **json) {
    const Where where = std::source_location::current();
    return answer(readVlanDetails(sw, vlanId, where), printVlanDetails, json, where);
}

std::int32_t v2VlanNameGet(Switch sw, std::uint32_t vlanId, char **json) {
    const Where where = std::source_location::current();
    return answer(readVlanName(sw, vlanId, where), printVlanName, json, where);
}

std::int32_t v2VlanNameSet(Switch sw, const char *json) {
    return codeOf(requestVlanName(sw, json));
}

// --- all ports and LAGs

std::int32_t v2VlanParticipationAllSet(Switch sw, const char *json) {
    return codeOf(requestParticipation(sw, json));
}

std::int32_t v2VlanAcceptFrameAllSet(Switch sw, const char *json) {
    return codeOf(requestAcceptFrames(sw, json));
}

std::int32_t v2VlanPvidAllSet(Switch sw, const char *json) {
    return codeOf(requestPvid(sw, json));
}

std::int32_t v2VlanTaggingAllSet(Switch sw, const char *json) {
    return codeOf(requestTagging(sw, json));
}

// --- automatic switchport mode

std::int32_t switchportModeAutoGet(Switch sw, char **json) {
    const Where where = std::source_location::current();
    const auto print = [](bool on) {
        return std::string(on ? R"({"mode":"enable"})" : R"({"mode":"disable"})");
    };
    return answer(readSwitchportModeAuto(sw, where), print, json, where);
}

std::int32_t switchportModeAutoSet(Switch sw, const char *json) {
    const Where where = std::source_location::current();
    const JsonPtr body(json != nullptr ? cJSON_Parse(json) : nullptr);
    const auto mode = stringMember(body.get(), "mode");
    if (mode != "enable" && mode != "disable")
        return refuse("[%s:%d] Missing or invalid mode\n", where);
    return codeOf(setSwitchportModeAuto(sw, mode == "enable", where));
}

// --- for the profile pages

std::int32_t vlanCreateAndSet(Switch sw, std::int32_t vlanId, const char *name) {
    const Where where = std::source_location::current();
    if (name == nullptr && vlanId != 1)
        return refuse("[%s:%d] Missing or invalid vlan-id or name\n", where);
    return codeOf(createNamedVlan(sw, vlanId, name != nullptr ? name : "", where));
}

std::int32_t switchConfigVlanGet(Switch sw, std::uint32_t vlanId, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    const auto id = VlanId::from(vlanId);
    const Presence presence = id ? sw.vlanPresence(*id) : Presence::Absent;
    if (presence != Presence::Present) {
        logError(where, "[%s:%d] %s\n",
                 presence == Presence::Absent ? "VLAN is not configured" : "VLAN cannot be looked up");
        return kFailed;
    }
    const JsonPtr root(cJSON_CreateObject());
    if (root == nullptr) {
        logError("[%s:%d] Create object root error\n");
        return kFailed;
    }
    VLAN_INFO_T *created = nullptr;
    const std::int32_t result = vlanAllInfoCreate(sw, vlanId, true, &created);
    const VlanRecordPtr<VLAN_INFO_T> info(created);
    if (result != kSuccess || info == nullptr) {
        logError("[%s:%d] Call vlanAllInfoCreate return error\n");
        return result != kSuccess ? result : kFailed;
    }
    return handOut(fillVlan(root.get(), *info) ? printJsonLine(root.get()) : "", json, where);
}

}  // namespace pavo
