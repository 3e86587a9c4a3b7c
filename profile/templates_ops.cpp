#include "profile/templates_ops.h"

#include "common/log.h"
#include "store/producers.h"

namespace pavo {
namespace {

std::int32_t store(TemplateStore how, Switch sw, const char *request, const Where &where) {
    logDebug(where, "[%s:%d] profile set %s\r\n", request != nullptr ? request : "");
    if (sw.handle() == nullptr || request == nullptr) {
        logError(where, "[%s:%d] param is null \r\n");
        return codeOf(ResultCode::InvalidArgument);
    }
    return codeOf(storeTemplate(how, request, where));
}

}  // namespace

std::int32_t ProfileTemplateGet(Switch sw, const char *, char *out) {
    const auto list = listTemplates(sw);
    out[list.copy(out, PROFILE_TEMPLATE_LIST_SIZE - 1)] = '\0';
    return codeOf(ResultCode::Success);
}

std::int32_t ProfileTemplateGet(openapiClientHandle_t *client, char *json, std::size_t size) {
    if (client == nullptr || json == nullptr) {
        logError("[%s:%d] param is null \r\n");
        return codeOf(ResultCode::InvalidArgument);
    }
    const auto list = listSoundTemplates(client);
    if (!list)
        return codeOf(list);
    if (list->size() >= size) {
        logError("[%s:%d] the answer has %zu bytes, and there is room for %zu\n", list->size(), size);
        return codeOf(ResultCode::Failed);
    }
    json[list->copy(json, size - 1)] = '\0';
    return codeOf(ResultCode::Success);
}

std::int32_t ProfileTemplateCreate(Switch sw, const char *request) {
    return store(TemplateStore::Create, sw, request, std::source_location::current());
}

std::int32_t ProfileTemplateEdit(Switch sw, const char *request) {
    return store(TemplateStore::Edit, sw, request, std::source_location::current());
}

std::int32_t ProfileTemplateDelete(Switch sw, const char *request) {
    return codeOf(deleteTemplate(sw, request != nullptr ? request : ""));
}

std::int32_t ProfileAssignedCount(Switch sw, const char *typeName) {
    return typeName != nullptr ? countAssigned(sw, typeName) : 0;
}

}  // namespace pavo
