// One profile operation at a time, whoever calls it and in whatever process, and no change of VLANs by hand in
// the middle of one. Every entry that changes profiles or VLANs takes the lock itself; what runs inside of one
// asks for it as a parameter, so that nothing can be called without it and nobody takes it twice.
#ifndef PAVO_STORE_PROFILE_LOCK_H
#define PAVO_STORE_PROFILE_LOCK_H

#include <memory>
#include <source_location>
#include <utility>

#include "common/files.h"
#include "common/result.h"

namespace pavo {

// Held for as long as it lives.
class ProfileLock {
  public:
    // An operation that changes many ports of a slow switch takes minutes.
    static constexpr platform::Duration kWaitMax = std::chrono::minutes(5);

    // Waits for it, at most for `most`. Failed (logged), with a human-readable reason, when the lock file
    // cannot be locked.
    static Result<ProfileLock> take(Where where = std::source_location::current(),
                                    platform::Duration most = kWaitMax);

  private:
    explicit ProfileLock(std::unique_ptr<FileLock> lock) : lock_(std::move(lock)) {}

    std::unique_ptr<FileLock> lock_;
};

}  // namespace pavo

#endif
