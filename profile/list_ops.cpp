#include "profile/list_ops.h"

#include <cstring>

#include "common/log.h"
#include "profile/list.h"
#include "store/producers.h"

namespace pavo {
namespace {

std::int32_t listProfiles(Switch sw, ListDetails details, char **out, const Where &where) {
    if (out == nullptr)
        return codeOf(ResultCode::InvalidArgument);
    *out = nullptr;
    const auto profiles = readProfiles(sw, details, where);
    if (!profiles)
        return codeOf(profiles);
    if (const auto text = printProfiles(*profiles); !text.empty())
        *out = strdup(text.c_str());
    if (*out != nullptr)
        return 0;
    logError(where, "[%s:%d] Response error\r\n");
    return codeOf(ResultCode::Failed);
}

}  // namespace

std::int32_t profileListGet(Switch sw, char **out) {
    return listProfiles(sw, ListDetails::Brief, out, std::source_location::current());
}

std::int32_t profileListExGet(Switch sw, char **out) {
    return listProfiles(sw, ListDetails::Full, out, std::source_location::current());
}

std::int32_t profileListExGet(openapiClientHandle_t *client, char **json) {
    if (client != nullptr && json != nullptr)
        return listProfiles(client, ListDetails::Full, json, std::source_location::current());
    if (json != nullptr)
        *json = nullptr;
    logError("[%s:%d] param is null \r\n");
    return codeOf(ResultCode::InvalidArgument);
}

}  // namespace pavo
