#include "common/response_ops.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"

namespace pavo {
namespace {

enum class Envelope { Built, NoRoot, NoResp, NoData };

// The answer as an object; `data` under `key` when the code is 0 and a key is given.
Envelope buildEnvelope(std::int32_t code, const char *message, const char *key, const char *data,
                       JsonPtr &root) {
    root.reset(cJSON_CreateObject());
    if (root == nullptr)
        return Envelope::NoRoot;
    JsonPtr resp(cJSON_CreateObject());
    if (resp == nullptr || cJSON_AddNumberToObject(resp.get(), "respCode", code) == nullptr ||
        cJSON_AddStringToObject(resp.get(), "respMsg", message) == nullptr ||
        cJSON_AddStringToObject(resp.get(), "status", code == 0 ? "success" : "fail") == nullptr)
        return Envelope::NoResp;
    if (code == 0 && key != nullptr) {
        JsonPtr parsed(cJSON_Parse(data));
        if (parsed == nullptr || !addItem(root.get(), key, std::move(parsed)))
            return Envelope::NoData;
    }
    return addItem(root.get(), "resp", std::move(resp)) ? Envelope::Built : Envelope::NoResp;
}

std::int32_t refuseParameter(const cJSON *obj, const char *key,
                             Where where = std::source_location::current()) {
    logError(where, "[%s:%d] %s param error :%s\r\n", key, printJson(obj));
    return codeOf(ResultCode::InvalidArgument);
}

std::int32_t reportFailure(LogMessage<> message) {
    logAt<>(LOG_LEVEL_ERROR, message.where, message.format);
    return codeOf(ResultCode::Failed);
}

}  // namespace

int responseJsonStr(std::int32_t code, const char *key, const char *data, char *out) {
    JsonPtr root;
    if (buildEnvelope(code, getErrMsg(code), key, data, root) != Envelope::Built)
        return -1;
    const TextPtr text(cJSON_Print(root.get()));
    if (text == nullptr) {
        logError("[%s:%d] package response str error\r\n");
        return -1;
    }
    std::memcpy(out, text.get(), std::strlen(text.get()));
    return 0;
}

std::int32_t responseJsonRreallocStr(std::int32_t code, const char *key, const char *data, char **out) {
    JsonPtr root;
    switch (buildEnvelope(code, getErrMsg(code), data != nullptr ? key : nullptr, data, root)) {
        case Envelope::NoRoot:
            return reportFailure("[%s:%d] [MEM] Failed to create root object\n");
        case Envelope::NoResp:
            return reportFailure("[%s:%d] [MEM] Failed to create resp object\n");
        case Envelope::NoData:
            return reportFailure("[%s:%d] [MEM] Failed to parse data JSON\n");
        case Envelope::Built:
            break;
    }
    char *const text = cJSON_Print(root.get());
    if (text == nullptr)
        return reportFailure("[%s:%d] [MEM] Failed to print JSON\n");
    std::free(*out);
    *out = text;
    return 0;
}

std::string failureEnvelope(const Failure &failure) {
    JsonPtr root;
    const auto message = wellFormed(messageOf(failure));
    if (buildEnvelope(codeOf(failure.code), message.c_str(), nullptr, nullptr, root) == Envelope::Built)
        if (auto text = printJson(root.get()); !text.empty())
            return text;
    logError("[%s:%d] package response str error\r\n");
    return "";
}

std::int32_t responseJsonToStr(const cJSON *obj, char **out) {
    *out = cJSON_Print(obj);
    return *out != nullptr ? 0 : reportFailure("[%s:%d] Response error\r\n");
}

std::int32_t getStrAndCpyTo(const cJSON *obj, const char *key, char *dst, std::size_t cap) {
    const char *const text = cJSON_GetStringValue(member(obj, key));
    if (text == nullptr)
        return refuseParameter(obj, key);
    std::strncpy(dst, text, cap);
    return 0;
}

std::int32_t getIntAndCpyTo(const cJSON *obj, const char *key, std::int32_t *value) {
    const cJSON *const item = member(obj, key);
    if (!cJSON_IsNumber(item))
        return refuseParameter(obj, key);
    *value = item->valueint;
    return 0;
}

}  // namespace pavo
