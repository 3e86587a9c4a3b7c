#include "web/answer_builder.h"

#include <cstring>

#include "common/json.h"

namespace pavo {
namespace {

bool isComplete(const openapiClientHandle_t *client, const void *place, const Where &where) {
    if (client != nullptr && place != nullptr)
        return true;
    logError(where, "[%s:%d] param is null \r\n");
    return false;
}

}  // namespace

bool canAnswer(const openapiClientHandle_t *client, char **json, const Where &where) {
    if (json != nullptr)
        *json = nullptr;
    return isComplete(client, json, where);
}

bool canAnswer(const openapiClientHandle_t *client, const char *buffer, const Where &where) {
    return isComplete(client, buffer, where);
}

std::int32_t handOutText(const AnswerNode &answer, char **json, const Where &where) {
    const auto text = answer.print();
    *json = text.empty() ? nullptr : newText(text);
    if (*json != nullptr)
        return 0;
    logError(where, "[%s:%d] Response error\r\n");
    return codeOf(ResultCode::Failed);
}

std::int32_t fillBuffer(const AnswerNode &answer, char *buffer, std::size_t size, const Where &where) {
    const auto text = answer.print();
    if (text.empty()) {
        logError(where, "[%s:%d] Response error\r\n");
        return codeOf(ResultCode::Failed);
    }
    if (text.size() >= size) {
        logError(where, "[%s:%d] the answer has %zu bytes, and there is room for %zu\n", text.size(), size);
        return codeOf(ResultCode::Failed);
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 0;
}

}  // namespace pavo
