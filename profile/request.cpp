#include "profile/request.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "profile/apply.h"
#include "profile/files.h"
#include "profile/templates.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "swapi/features.h"
#include "swapi/swapi.h"
#include "vlan/vlan_info.h"

namespace {

// A request has a handful of ports and VLANs; this is far beyond any honest one.
constexpr std::size_t kRequestMax = 1 << 20;
constexpr int kAudacPortsMax = 768;

class StopWatch {
  public:
    long milliseconds() const {
        return static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(platform::monotonicNow() - start_).count());
    }

  private:
    platform::Duration start_ = platform::monotonicNow();
};

template <std::size_t N>
void copyText(char (&out)[N], const char *text) {
    std::snprintf(out, N, "%s", text);
}

// An integer within int32; false for anything else, fractions included.
bool integerOf(const cJSON *item, std::int32_t *out) {
    if (!cJSON_IsNumber(item) || item->valuedouble != std::floor(item->valuedouble) ||
        std::fabs(item->valuedouble) > 2147483647.0)
        return false;
    *out = static_cast<std::int32_t>(item->valuedouble);
    return true;
}

const cJSON *member(const cJSON *object, const char *key) {
    return cJSON_GetObjectItemCaseSensitive(object, key);
}

// --- parsing

bool parsePorts(const cJSON *ports, const char *key, ProfilePortList *out) {
    const cJSON *list = member(ports, key);
    if (list == nullptr)
        return true;
    if (!cJSON_IsArray(list))
        return false;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, list) {
        std::int32_t port = 0;
        if (out->count == PROFILE_PORTS_MAX || !integerOf(item, &port) || port < 1)
            return false;
        out->ports[out->count++] = static_cast<std::uint32_t>(port);
    }
    return true;
}

bool parseText(const cJSON *item, char (&out)[16]) {
    if (!cJSON_IsString(item))
        return true;
    if (std::strlen(item->valuestring) >= sizeof out)
        return false;
    copyText(out, item->valuestring);
    return true;
}

bool parseRouting(const cJSON *routing, ProfileVlanRequest *vlan) {
    const cJSON *method = member(routing, "ipConfig");
    if (cJSON_IsNumber(method) && !integerOf(method, &vlan->routing))
        return false;
    return parseText(member(routing, "ipAddr"), vlan->ipAddr) &&
           parseText(member(routing, "ipMask"), vlan->ipMask);
}

bool parseVlan(const cJSON *in, const ProfileRequest &request, ProfileVlanRequest *vlan) {
    copyText(vlan->name, request.name);
    copyText(vlan->color, request.color);
    const cJSON *type = member(in, "profileType");
    copyText(vlan->profileType, cJSON_IsString(type) ? type->valuestring : request.profileType);
    vlan->ptpTc = request.ptpTc;
    const cJSON *ports = member(in, "ports");
    return integerOf(member(in, "vlanId"), &vlan->vlanId) &&
           integerOf(member(in, "vlanType"), &vlan->vlanType) &&
           (ports == nullptr || cJSON_IsObject(ports)) && parsePorts(ports, "untagged", &vlan->untagged) &&
           parsePorts(ports, "tagged", &vlan->tagged) && parsePorts(ports, "assignedPort", &vlan->assigned) &&
           parseRouting(member(in, "routing"), vlan);
}

bool parseVlans(const cJSON *vlans, ProfileRequest *request) {
    const cJSON *in = nullptr;
    cJSON_ArrayForEach(in, vlans) {
        if (request->vlanCount == PROFILE_VLANS_MAX ||
            !parseVlan(in, *request, &request->vlans[request->vlanCount++]))
            return false;
    }
    return true;
}

// --- adjustments

// A PTP wish counts only for a type whose template knows PTP.
void adjustPtp(bool given, ProfileRequest *request) {
    if (request->ptpTc != PTP_CONFIG_NONE) {
        const JsonPtr pattern(profileTemplateLoad(request->profileType));
        if (pattern != nullptr && member(pattern.get(), "PTP") == nullptr) {
            LOG_INFORM(
                "[%s:%d] %s: template '%s' has no PTP field, overriding ptpTc from %d to PTP_CONFIG_NONE\n",
                "profileConfigSet", request->profileType, request->ptpTc);
            request->ptpTc = PTP_CONFIG_NONE;
        }
    }
    LOG_TRACE("[%s:%d] %s: profileType=%s ptpTc=%d (0=DISABLE,1=ENABLE,2=NONE) ptp_field_present=%d\n",
              "profileConfigSet", request->profileType, request->ptpTc, given ? 1 : 0);
}

// A VLAN that already belongs to another profile stays with it when a Kramer profile names it as one of its
// partners.
void adjustKramer(ProfileRequest *request) {
    for (std::size_t i = 0; i < request->vlanCount; ++i) {
        auto &vlan = request->vlans[i];
        if (std::strcmp(vlan.profileType, PROFILE_TYPE_NAME_KRAMER) != 0 || vlan.vlanType < 6 ||
            vlan.vlanType > 9)
            continue;
        char stored[VLAN_INFO_TYPE_SIZE] = "";
        if (vlanInfoSelectById(vlan.vlanId, nullptr, nullptr, stored, nullptr) > 0 &&
            std::strcmp(stored, PROFILE_TYPE_NAME_KRAMER) != 0)
            copyText(vlan.profileType, stored);
    }
}

void changeType(ProfileRequest *request, const char *type) {
    copyText(request->profileType, type);
    if (request->vlanCount > 0)
        copyText(request->vlans[0].profileType, type);
}

void adjustForced(openapiClientHandle_t *client, ProfileRequest *request) {
    if (std::strcmp(request->profileType, PROFILE_TYPE_NAME_SMPTE) == 0) {
        std::uint32_t units = 1;
        char model[MACHINE_MODEL_SIZE] = "";
        stackUnitCountGet(client, &units);
        machineModelGet(client, model);
        if (units >= 2 || !smpteModelSupported(model))
            changeType(request, PROFILE_TYPE_NAME_AES67);
    } else if (std::strcmp(request->profileType, PROFILE_TYPE_NAME_AVB) == 0) {
        std::int32_t supported = 0;
        featureSupportedGet(client, FEATURE_DOT1AS, &supported);
        if (supported == 0)
            changeType(request, PROFILE_TYPE_NAME_DEFAULT);
    }
}

// Puts VLAN 1 back to the default profile.
void becomeDefault(ProfileRequest *request) {
    *request = ProfileRequest{};
    copyText(request->color, "#000000");
    copyText(request->name, "default");
    copyText(request->profileType, PROFILE_TYPE_NAME_DEFAULT);
    request->ptpTc = PTP_CONFIG_NONE;
    request->declaredVlans = 1;
    request->vlanCount = 1;
    auto &vlan = request->vlans[0];
    copyText(vlan.name, request->name);
    copyText(vlan.color, request->color);
    copyText(vlan.profileType, request->profileType);
    vlan.ptpTc = PTP_CONFIG_NONE;
    vlan.vlanId = vlan.vlanType = 1;
}

// There is one AVB VLAN: the one requested takes the place of another. The VLANs that go, with the rest of
// the work.
std::vector<std::int32_t> adjustOverwrite(openapiClientHandle_t *client, ProfileRequest *request) {
    std::vector<std::int32_t> replaced;
    VLAN_PROFILE_LIST_T *list = nullptr;
    const auto listed = vlanListProfileCreateFastEX(client, &list);
    const std::unique_ptr<VLAN_PROFILE_LIST_T, void (*)(VLAN_PROFILE_LIST_T *)> owner(list,
                                                                                      vlanListProfileFreeEX);
    if (listed != RESULT_SUCCESS)
        return replaced;
    const auto first = request->vlanCount > 0 ? request->vlans[0].vlanId : 0;
    bool onVlan1 = false;
    for (std::uint32_t i = 0; i < list->count; ++i) {
        const auto id = static_cast<std::int32_t>(list->ids[i]->vlanId);
        // The list's profile name is the type, as the templates are named.
        if (id == first || std::strcmp(list->ids[i]->profileName, PROFILE_TYPE_NAME_AVB) != 0)
            continue;
        if (id == 1)
            onVlan1 = true;
        else
            replaced.push_back(id);
    }
    if (onVlan1)
        becomeDefault(request);
    return replaced;
}

// --- configuration files

// The assigned ports, then the untagged ones that are not among them.
void addAudacPorts(cJSON *object, const ProfileVlanRequest &vlan) {
    cJSON *array = cJSON_AddArrayToObject(object, "audacDevicePort");
    int count = 0;
    const auto add = [&](std::uint32_t port) {
        if (count < kAudacPortsMax && cJSON_AddItemToArray(array, cJSON_CreateNumber(port)))
            ++count;
    };
    const auto *assigned = vlan.assigned.ports;
    std::for_each(assigned, assigned + vlan.assigned.count, add);
    for (std::uint32_t i = 0; i < vlan.untagged.count; ++i)
        if (const auto port = vlan.untagged.ports[i];
            std::find(assigned, assigned + vlan.assigned.count, port) == assigned + vlan.assigned.count &&
            std::find(vlan.untagged.ports, vlan.untagged.ports + i, port) == vlan.untagged.ports + i)
            add(port);
}

std::int32_t saveObject(const cJSON *object, const char *path) {
    const TextPtr text(cJSON_Print(object));
    return text == nullptr ? RESULT_FAILED : fileReplace(path, text.get());
}

void saveFiles(openapiClientHandle_t *client, const cJSON *root, const ProfileRequest &request,
               FileSnapshots *snapshots) {
    // A type that is no plain file name is refused later; no file is written for it.
    if (request.declaredVlans > 1 && !profileTemplatePath(request.profileType).empty()) {
        const auto path = profileExFilePath(request.profileType);
        snapshots->note(path);
        saveObject(root, path.c_str());
        if (strcasecmp(request.profileType, PROFILE_TYPE_NAME_SHURE_SPLIT) == 0) {
            snapshots->note(platform::paths::kShureConfig);
            profileConfigShureSaveToFile(client, &request);
        }
    }
    LOG_TRACE(
        "[%s:%d] profileConfigSet: checking AUDAC, profileType='%s' vs PROFILE_TYPE_NAME_AUDAC='%s'\r\n",
        request.profileType, PROFILE_TYPE_NAME_AUDAC);
    if (strcasecmp(request.profileType, PROFILE_TYPE_NAME_AUDAC) == 0) {
        LOG_INFORM("[%s:%d] profileConfigSet: Calling profileConfigAudacSaveToFile\r\n");
        snapshots->note(platform::paths::kAudacConfig);
        profileConfigAudacSaveToFile(client, &request);
    }
}

std::int32_t parseBody(const cJSON *body, const char *requestText, ProfileRequest *request) {
    const cJSON *name = member(body, "name");
    const cJSON *color = member(body, "color");
    const cJSON *type = member(body, "profileType");
    const cJSON *ptp = member(body, "ptp");
    if (!cJSON_IsString(name) || !cJSON_IsString(color) || !cJSON_IsString(type) ||
        !integerOf(member(body, "vlanNum"), &request->declaredVlans) ||
        !cJSON_IsArray(member(body, "vlans"))) {
        LOG_ERROR("[%s:%d] Param error :%s\r\n", requestText);
        return RESULT_INVALID_ARGUMENT;
    }
    request->ptpTc = ptp == nullptr      ? PTP_CONFIG_NONE
                     : cJSON_IsTrue(ptp) ? PTP_CONFIG_ENABLE
                                         : PTP_CONFIG_DISABLE;
    copyText(request->name, name->valuestring);
    copyText(request->color, color->valuestring);
    copyText(request->profileType, type->valuestring);
    adjustPtp(ptp != nullptr, request);
    if (!parseVlans(member(body, "vlans"), request)) {
        LOG_ERROR("[%s:%d] Param error :%s\r\n", requestText);
        return RESULT_INVALID_ARGUMENT;
    }
    return RESULT_SUCCESS;
}

std::int32_t applyBody(openapiClientHandle_t *client, const cJSON *root, const char *requestText,
                       const StopWatch &watch) {
    const cJSON *body = member(root, "profileConfig");
    const auto request = std::make_unique<ProfileRequest>();
    if (const auto result = parseBody(body, requestText, request.get()); result != RESULT_SUCCESS)
        return result;
    adjustKramer(request.get());
    LOG_TRACE("[%s:%d] %s: JSON parsing and data extraction took %ld ms\n", "profileConfigSet",
              watch.milliseconds());
    if (cJSON_IsTrue(member(body, "force")))
        adjustForced(client, request.get());
    const bool overwrite = cJSON_IsTrue(member(body, "overwrite"));
    std::vector<std::int32_t> replaced;
    if (overwrite && std::strcmp(request->profileType, PROFILE_TYPE_NAME_AVB) == 0) {
        replaced = adjustOverwrite(client, request.get());
        LOG_TRACE("[%s:%d] %s: overwrite processing took %ld ms (cumulative)\n", "profileConfigSet",
                  watch.milliseconds());
    }
    FileSnapshots snapshots;
    saveFiles(client, root, *request, &snapshots);
    LOG_TRACE("[%s:%d] %s: save config to file took %ld ms (cumulative)\n", "profileConfigSet",
              watch.milliseconds());
    const auto result = profileApply(client, *request, overwrite, replaced);
    if (result != RESULT_SUCCESS)
        snapshots.restore();
    LOG_TRACE("[%s:%d] %s: profileVlanAdd took %ld ms (cumulative)\n", "profileConfigSet",
              watch.milliseconds());
    return result;
}

}  // namespace

std::string profileExFilePath(const char *profileType) {
    return std::string(platform::paths::kPavoExDir) + "/" + profileTemplateFileName(profileType);
}

void profilePortsToJson(cJSON *object, const char *key, const ProfilePortList &list) {
    cJSON *array = cJSON_AddArrayToObject(object, key);
    for (std::uint32_t i = 0; i < list.count; ++i)
        cJSON_AddItemToArray(array, cJSON_CreateNumber(list.ports[i]));
}

std::int32_t profileConfigShureSaveToFile(openapiClientHandle_t *, const ProfileRequest *request) {
    const JsonPtr object(cJSON_CreateObject());
    for (std::size_t i = 0; i < request->vlanCount; ++i) {
        const auto &vlan = request->vlans[i];
        const bool control = vlan.vlanType == VLAN_TYPE_CONTROL;
        if (!control && vlan.vlanType != VLAN_TYPE_AUDIO)
            continue;
        cJSON_AddNumberToObject(object.get(), control ? "controlVlanID" : "audioVlanID", vlan.vlanId);
        cJSON_AddStringToObject(object.get(), "profileType", vlan.profileType);
        profilePortsToJson(object.get(), "shureDevicePort", vlan.assigned);
        profilePortsToJson(object.get(), control ? "controlUnTagPort" : "audioUnTagPort", vlan.untagged);
        profilePortsToJson(object.get(), control ? "controlTagPort" : "audioTagPort", vlan.tagged);
    }
    const auto result = saveObject(object.get(), platform::paths::kShureConfig);
    if (result != RESULT_SUCCESS)
        LOG_ERROR("[%s:%d] Failed to write shure configuration to file.\r\n");
    return result;
}

std::int32_t profileConfigAudacSaveToFile(openapiClientHandle_t *, const ProfileRequest *request) {
    const JsonPtr object(cJSON_CreateObject());
    bool audio = false;
    const auto addAudio = [&](const ProfileVlanRequest &vlan) {
        cJSON_AddNumberToObject(object.get(), "audioVlanID", vlan.vlanId);
        cJSON_AddStringToObject(object.get(), "profileType", vlan.profileType);
        addAudacPorts(object.get(), vlan);
    };
    for (std::size_t i = 0; i < request->vlanCount; ++i) {
        const auto &vlan = request->vlans[i];
        LOG_TRACE(
            "[%s:%d] profileConfigAudacSaveToFile: vlan[%d] vlanId=%d vlanType=%d assignedPorts=%d "
            "untaggedPorts=%d\r\n",
            static_cast<int>(i), vlan.vlanId, vlan.vlanType, static_cast<int>(vlan.assigned.count),
            static_cast<int>(vlan.untagged.count));
        if (vlan.vlanType == VLAN_TYPE_CONTROL) {
            LOG_TRACE("[%s:%d] profileConfigAudacSaveToFile: control VLAN %d\r\n", vlan.vlanId);
            cJSON_AddNumberToObject(object.get(), "controlVlanID", vlan.vlanId);
            cJSON_AddStringToObject(object.get(), "profileType", vlan.profileType);
            profilePortsToJson(object.get(), "controlUnTagPort", vlan.untagged);
            profilePortsToJson(object.get(), "controlTagPort", vlan.tagged);
        } else if (vlan.vlanType == VLAN_TYPE_AUDIO) {
            LOG_TRACE("[%s:%d] profileConfigAudacSaveToFile: audio VLAN %d\r\n", vlan.vlanId);
            audio = true;
            addAudio(vlan);
            profilePortsToJson(object.get(), "audioTagPort", vlan.tagged);
        }
    }
    if (!audio && request->vlanCount > 0) {
        LOG_TRACE("[%s:%d] profileConfigAudacSaveToFile: no audio VLAN, taking VLAN %d\r\n",
                  request->vlans[0].vlanId);
        addAudio(request->vlans[0]);
    }
    const auto result = saveObject(object.get(), platform::paths::kAudacConfig);
    if (result != RESULT_SUCCESS) {
        LOG_ERROR("[%s:%d] profileConfigAudacSaveToFile: Failed to write audac configuration to file.\r\n");
    } else {
        const TextPtr text(cJSON_PrintUnformatted(object.get()));
        LOG_TRACE("[%s:%d] profileConfigAudacSaveToFile: %s\r\n", text.get());
        LOG_INFORM("[%s:%d] profileConfigAudacSaveToFile: Successfully wrote config to '%s'\r\n",
                   platform::paths::kAudacConfig);
    }
    return result;
}

std::int32_t profileConfigSet(openapiClientHandle_t *client, const char *requestText) {
    const StopWatch watch;
    LOG_INFORM("[%s:%d] %s() Start\n", "profileConfigSet");
    const bool bounded = requestText != nullptr && strnlen(requestText, kRequestMax + 1) <= kRequestMax;
    const JsonPtr root(bounded ? cJSON_Parse(requestText) : nullptr);
    if (root == nullptr) {
        LOG_ERROR("[%s:%d] Json format error\r\n");
        return RESULT_INVALID_ARGUMENT;
    }
    auto result = RESULT_INVALID_ARGUMENT;
    if (!cJSON_IsObject(member(root.get(), "profileConfig")))
        LOG_ERROR("[%s:%d] Param error :%s\r\n", requestText);
    else
        result = applyBody(client, root.get(), requestText, watch);
    LOG_INFORM("[%s:%d] %s() End - Total execution time: %ld ms\n", "profileConfigSet", watch.milliseconds());
    return result;
}
