#include "profile/apply_ops.h"

#include <cstring>
#include <string>

#include "common/json.h"
#include "profile/apply.h"
#include "profile/configure.h"
#include "store/profile_types.h"

namespace pavo {
namespace {

std::int32_t handOut(const std::string &text, char **out) {
    if (out == nullptr)
        return codeOf(ResultCode::InvalidPointer);
    *out = text.empty() ? nullptr : strdup(text.c_str());
    return codeOf(*out != nullptr ? ResultCode::Success : ResultCode::InvalidPointer);
}

// One byte more than a request may have is enough to refuse it.
std::string textOf(const char *request) {
    return request != nullptr ? std::string(request, strnlen(request, PROFILE_REQUEST_MAX + 1)) : "";
}

}  // namespace

std::int32_t profileConfigSet(Switch sw, const char *requestText) {
    return codeOf(configureProfile(sw, textOf(requestText)));
}

std::int32_t profilePlanGet(Switch sw, const char *requestText, char **text) {
    JsonPtr request(cJSON_Parse(textOf(requestText).c_str()));
    if (cJSON *const config = cJSON_GetObjectItemCaseSensitive(request.get(), "profileConfig");
        cJSON_IsObject(config)) {
        cJSON_DeleteItemFromObjectCaseSensitive(config, "plan");
        cJSON_AddBoolToObject(config, "plan", true);
    }
    const auto planned = configureProfile(sw, request != nullptr ? printJson(request.get()) : "");
    if (!planned)
        return codeOf(planned);
    const auto &plan = *planned;
    return handOut(plan ? printPlan(*plan) : "", text);
}

std::int32_t profileStatusGet(Switch sw, char **text) {
    const auto status = readProfileStatus(sw);
    return status ? handOut(printStatus(*status), text) : codeOf(status);
}

std::int32_t profileDelete(Switch sw, const char *requestText) {
    return codeOf(deleteProfile(sw, textOf(requestText)));
}

std::int32_t profileVlanAdd(Switch sw, const ProfileRequest &request, std::int32_t overwrite) {
    const auto lock = ProfileLock::take();
    if (!lock)
        return codeOf(lock);
    const ProfileConfig config{
        .request = request, .overwrite = overwrite != 0, .force = false, .plan = false, .document = ""};
    return codeOf(applyProfile(sw, config, {}, *lock));
}

std::int32_t profileVlansRemove(Switch sw, const VlanSet &ids) {
    const auto lock = ProfileLock::take();
    return lock ? codeOf(removeFromVlans(sw, ids, *lock)) : codeOf(lock);
}

std::int32_t profileConfigShureSaveToFile(Switch, const ProfileRequest &request) {
    return codeOf(writeDetectionFile(detectionFileOf(PROFILE_TYPE_NAME_SHURE_SPLIT), request));
}

std::int32_t profileConfigAudacSaveToFile(Switch, const ProfileRequest &request) {
    return codeOf(writeDetectionFile(detectionFileOf(PROFILE_TYPE_NAME_AUDAC), request));
}

}  // namespace pavo
