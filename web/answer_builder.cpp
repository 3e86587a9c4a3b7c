#include "web/answer_builder.h"

#include <cstring>

#include "common/json.h"

namespace pavo {
namespace {

bool isComplete(const openapiClientHandle_t *client, bool hasPlace, const Where &where) {
    if (client != nullptr && hasPlace)
        return true;
    logError(where, "[%s:%d] param is null \r\n");
    return false;
}

std::int32_t reportNoMemory(const Where &where) {
    logError(where, "[%s:%d] out of memory\n");
    return codeOf(ResultCode::InvalidPointer);
}

}  // namespace

bool canAnswer(const openapiClientHandle_t *client, char **json, const Where &where) {
    if (json != nullptr)
        *json = nullptr;
    return isComplete(client, json != nullptr, where);
}

bool canAnswer(const openapiClientHandle_t *client, const char *buffer, const Where &where) {
    return isComplete(client, buffer != nullptr, where);
}

std::int32_t handOutText(const AnswerNode &answer, char **json, const Where &where) {
    const auto text = answer.print();
    *json = text.empty() ? nullptr : newText(text);
    return *json != nullptr ? 0 : reportNoMemory(where);
}

std::int32_t fillBuffer(const AnswerNode &answer, char *buffer, std::size_t size, const Where &where) {
    const auto text = answer.print();
    if (text.empty())
        return reportNoMemory(where);
    if (text.size() >= size) {
        logError(where, "[%s:%d] the answer has %zu bytes, and there is room for %zu\n", text.size(), size);
        return codeOf(ResultCode::Failed);
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 0;
}

}  // namespace pavo
