#include "store/response_cache_ops.h"

#include <sqlite3.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "common/log.h"
#include "common/result.h"
#include "store/response_cache.h"

namespace pavo {
namespace {

// Without storage for a missing one, which the engine refuses.
std::string_view given(const char *text) {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace

int restapi_db_operation(int operation, const char *api_name, const char *data) {
    switch (operation) {
        case REST_DB_CREATE:
            return codeOf(createResponseCache());
        case REST_DB_READ:
            return codeOf(readCachedAnswer(given(api_name)));
        case REST_DB_WRITE:
        case REST_DB_UPDATE: {
            const auto done = writeCachedAnswer(given(api_name), given(data));
            if (!done)
                return codeOf(done);
            return *done == CacheWrite::Written ? REST_DB_WRITTEN : REST_DB_UNCHANGED;
        }
        case REST_DB_DELETE:
            return codeOf(deleteCachedAnswer(given(api_name)));
        default:
            logError("[%s:%d] Invalid operation %d\n", operation);
            return -1;
    }
}

std::int32_t restapi_db_read(const char *api_name, char **out) {
    if (out != nullptr)
        *out = nullptr;
    if (api_name == nullptr || out == nullptr)
        return codeOf(ResultCode::InvalidArgument);
    const auto answer = readCachedAnswer(api_name);
    if (!answer)
        return codeOf(ResultCode::Failed);
    const std::optional<std::string> &text = *answer;
    if (!text)
        return codeOf(ResultCode::ApiNotFound);
    *out = strdup(text->c_str());
    return codeOf(*out != nullptr ? ResultCode::Success : ResultCode::Failed);
}

int rest_db_lock_acquire(const char *name, int *fd) {
    if (fd == nullptr)
        return -1;
    *fd = acquireApiLock(given(name));
    return *fd >= 0 ? 0 : -1;
}

void rest_db_lock_release(int fd) {
    releaseApiLock(fd);
}

void ensure_lock_dir() {
    ensureApiLockDir();
}

void send_signal_to_ws() {
    signalWebServer();
}

}  // namespace pavo
