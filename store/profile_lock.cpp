#include "store/profile_lock.h"

#include <string>

#include "common/log.h"
#include "platform/paths.h"

namespace pavo {

Result<ProfileLock> ProfileLock::take(Where where, platform::Duration most) {
    auto lock =
        std::make_unique<FileLock>(platform::paths::kProfileLock, FileLock::Afterwards::Keep, most, where);
    if (lock->held())
        return ProfileLock(std::move(lock));
    const std::string reason =
        lock->timedOut()
            ? std::string("another profile operation does not end: it holds ") + platform::paths::kProfileLock
            : "cannot lock " + platform::fsPath(platform::paths::kProfileLock);
    logError(where, "[%s:%d] %s\n", reason);
    return failed(ResultCode::Failed, reason);
}

}  // namespace pavo
