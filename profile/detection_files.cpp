#include "profile/detection_files.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "platform/paths.h"
#include "store/profile_template.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

constexpr std::size_t kAudacPortsMax = 768;

bool contains(std::span<const IfNum> ports, IfNum port) {
    return std::find(ports.begin(), ports.end(), port) != ports.end();
}

// The assigned ports, then the untagged ones that are not among them.
std::vector<IfNum> audacDevicePorts(const ProfileVlanRequest &vlan) {
    std::vector<IfNum> ports = vlan.assigned;
    for (const IfNum port : vlan.untagged)
        if (!contains(ports, port))
            ports.push_back(port);
    ports.resize(std::min(ports.size(), kAudacPortsMax));
    return ports;
}

void addVlan(cJSON *object, const char *key, const ProfileVlanRequest &vlan) {
    cJSON_AddNumberToObject(object, key, vlan.id.number());
    cJSON_AddStringToObject(object, "profileType", vlan.profileType.c_str());
}

// --- what the files say; keys in the order of the VLANs, readers take the first of two

std::string documentOf(const ProfileRequest &, const std::string &document, const Where &) {
    return document;
}

std::string shureConfigOf(const ProfileRequest &request, const std::string &, const Where &) {
    const JsonPtr object(cJSON_CreateObject());
    for (const auto &vlan : request.vlans) {
        const bool control = vlan.vlanType == VLAN_TYPE_CONTROL;
        if (!control && vlan.vlanType != VLAN_TYPE_AUDIO)
            continue;
        addVlan(object.get(), control ? "controlVlanID" : "audioVlanID", vlan);
        addNumbers(object.get(), "shureDevicePort", vlan.assigned);
        addNumbers(object.get(), control ? "controlUnTagPort" : "audioUnTagPort", vlan.untagged);
        addNumbers(object.get(), control ? "controlTagPort" : "audioTagPort", vlan.tagged);
    }
    return printJson(object.get());
}

void addAudacAudio(cJSON *object, const ProfileVlanRequest &vlan) {
    addVlan(object, "audioVlanID", vlan);
    addNumbers(object, "audacDevicePort", audacDevicePorts(vlan));
}

std::string audacConfigOf(const ProfileRequest &request, const std::string &, const Where &where) {
    const JsonPtr object(cJSON_CreateObject());
    const auto &vlans = request.vlans;
    bool audio = false;
    for (std::size_t i = 0; i < vlans.size(); ++i) {
        const auto &vlan = vlans[i];
        logDebug(where,
                 "[%s:%d] profileConfigAudacSaveToFile: vlan[%d] vlanId=%d vlanType=%d assignedPorts=%d "
                 "untaggedPorts=%d\r\n",
                 static_cast<int>(i), vlan.id, vlan.vlanType, static_cast<int>(vlan.assigned.size()),
                 static_cast<int>(vlan.untagged.size()));
        if (vlan.vlanType == VLAN_TYPE_CONTROL) {
            logDebug(where, "[%s:%d] profileConfigAudacSaveToFile: control VLAN %d\r\n", vlan.id);
            addVlan(object.get(), "controlVlanID", vlan);
            addNumbers(object.get(), "controlUnTagPort", vlan.untagged);
            addNumbers(object.get(), "controlTagPort", vlan.tagged);
        } else if (vlan.vlanType == VLAN_TYPE_AUDIO) {
            logDebug(where, "[%s:%d] profileConfigAudacSaveToFile: audio VLAN %d\r\n", vlan.id);
            audio = true;
            addAudacAudio(object.get(), vlan);
            addNumbers(object.get(), "audioTagPort", vlan.tagged);
        }
    }
    if (!audio && !vlans.empty()) {
        logDebug(where, "[%s:%d] profileConfigAudacSaveToFile: no audio VLAN, taking VLAN %d\r\n",
                 vlans[0].id);
        addAudacAudio(object.get(), vlans[0]);
    }
    return printJson(object.get());
}

constexpr DetectionFile kFiles[] = {
    {.profileType = nullptr,
     .path = nullptr,
     .operation = "profileConfigSet",
     .severalVlansOnly = true,
     .make = documentOf},
    {.profileType = PROFILE_TYPE_NAME_SHURE_SPLIT,
     .path = platform::paths::kShureConfig,
     .operation = "profileConfigShureSaveToFile",
     .severalVlansOnly = true,
     .make = shureConfigOf,
     .failed = "[%s:%d] Failed to write shure configuration to file.\r\n"},
    {.profileType = PROFILE_TYPE_NAME_AUDAC,
     .path = platform::paths::kAudacConfig,
     .operation = "profileConfigAudacSaveToFile",
     .severalVlansOnly = false,
     .make = audacConfigOf,
     .checking = "[%s:%d] profileConfigSet: checking AUDAC, profileType='%s' vs "
                 "PROFILE_TYPE_NAME_AUDAC='%s'\r\n",
     .writing = "[%s:%d] profileConfigSet: Calling profileConfigAudacSaveToFile\r\n",
     .failed = "[%s:%d] profileConfigAudacSaveToFile: Failed to write audac configuration to file.\r\n",
     .content = "[%s:%d] profileConfigAudacSaveToFile: %s\r\n",
     .written = "[%s:%d] profileConfigAudacSaveToFile: Successfully wrote config to '%s'\r\n"},
};

std::string pathOf(const DetectionFile &file, std::string_view profileType) {
    return file.path != nullptr ? file.path : profileExFilePath(profileType);
}

bool isOfType(const DetectionFile &file, const std::string &profileType) {
    return file.profileType == nullptr || strcasecmp(file.profileType, profileType.c_str()) == 0;
}

const AppliedProfile *lastOfType(const Standing &standing, const char *type) {
    const AppliedProfile *last = nullptr;
    for (const auto &placed : standing.vlans)
        if (!placed.shared && strcasecmp(type, placed.profile->request.profileType.c_str()) == 0)
            last = placed.profile;
    return last;
}

// What is left of a request when another profile has some of its VLANs; nothing when detection could do harm
// with the rest: a control VLAN is not to be taken for the audio VLAN.
std::optional<ProfileRequest> ownRequestOf(const Standing &standing, const AppliedProfile &profile) {
    auto request = profile.request;
    request.vlans.clear();
    for (const auto &placed : standing.vlans)
        if (placed.profile == &profile && !placed.shared)
            request.vlans.push_back(placed.vlan);
    const auto hasAudio = [](const ProfileRequest &some) {
        return std::ranges::any_of(some.vlans,
                                   [](const auto &vlan) { return vlan.vlanType == VLAN_TYPE_AUDIO; });
    };
    if (hasAudio(profile.request) && !hasAudio(request))
        return std::nullopt;
    if (request.vlans.size() < profile.request.vlans.size())
        request.declaredVlans = static_cast<std::int32_t>(request.vlans.size());
    return request;
}

// Without the blanks between its parts.
std::string inOneLine(std::string json) {
    cJSON_Minify(json.data());
    return json.c_str();
}

}  // namespace

const DetectionFile &detectionFileOf(std::string_view profileType) {
    return *std::find_if(std::begin(kFiles), std::end(kFiles), [&](const DetectionFile &file) {
        return file.profileType != nullptr && file.profileType == profileType;
    });
}

std::string detectionFilePath(std::string_view profileType) {
    for (const auto &file : kFiles)
        if (file.profileType != nullptr && file.profileType == profileType)
            return file.path;
    return profileExFilePath(profileType);
}

Result<> writeDetectionFile(const DetectionFile &file, const ProfileRequest &request,
                            const std::string &document) {
    const Where where(file.operation, __LINE__);
    const auto text = file.make(request, document, where);
    const auto path = pathOf(file, request.profileType);
    auto done = text.empty() ? Result<>(failed(ResultCode::Failed)) : replaceProfileFile(path, text, where);
    if (!done) {
        logAt<>(LOG_LEVEL_ERROR, where, file.failed);
        return done;
    }
    logAt<std::string>(LOG_LEVEL_DEBUG, where, file.content, inOneLine(text));
    logAt<std::string>(LOG_LEVEL_INFO, where, file.written, path);
    return done;
}

void writeDetectionFiles(const ProfileConfig &config, FileSnapshots &snapshots, Where where) {
    const auto &request = config.request;
    // A type that is no plain file name is refused later; no file is written for it.
    const bool named = !profileTemplatePath(request.profileType).empty();
    for (const auto &file : kFiles) {
        if (file.profileType != nullptr)
            logAt<std::string, std::string>(LOG_LEVEL_DEBUG, where, file.checking, request.profileType,
                                            file.profileType);
        if (!named || !isOfType(file, request.profileType) ||
            (file.severalVlansOnly && request.declaredVlans <= 1))
            continue;
        logAt<>(LOG_LEVEL_INFO, where, file.writing);
        snapshots.note(pathOf(file, request.profileType));
        static_cast<void>(writeDetectionFile(file, request, config.document));
    }
}

std::vector<DetectionFileState> detectionFilesOf(const Standing &standing, const Where &where) {
    std::vector<DetectionFileState> states;
    for (const auto &type : profileTypes()) {
        const auto *const profile = lastOfType(standing, type.name);
        const auto request = profile != nullptr ? ownRequestOf(standing, *profile) : std::nullopt;
        for (const auto &file : kFiles) {
            if (file.profileType != nullptr && file.profileType != std::string_view(type.name))
                continue;
            // A request that is not known cannot be written, nor is what stands there wrong.
            if (request && file.profileType == nullptr && profile->document.empty())
                continue;
            DetectionFileState state{pathOf(file, type.name), std::nullopt};
            if (request && (!file.severalVlansOnly || request->declaredVlans > 1))
                if (auto text = file.make(*request, profile->document, where); !text.empty())
                    state.text = std::move(text);
            states.push_back(std::move(state));
        }
    }
    return states;
}

}  // namespace pavo
