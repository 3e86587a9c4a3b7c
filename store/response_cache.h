// Complete answers of the web interface by name, envelope included: SQLite file
// platform::paths::kResponseCache, one table `restapi_db`. The web server answers from it; whoever changes
// something has the answers concerned written back (store/writeback.h). It can be made anew at any time, so
// it trades durability for speed.
//
// Every function opens the database, with a busy timeout of 3000 ms, and closes it, so any thread of any
// process may call any of them. A failure is logged once, on behalf of the operation that `where` names. No
// link is followed to the files.
//
// A name is any string without control characters and not empty; it is bound, never part of a statement.
// Writing first, and deleting afterwards, appends the name and a line feed, in one piece, to
// platform::paths::kResponseCacheDelta; a line that was cut short there is ended before.
#ifndef PAVO_STORE_RESPONSE_CACHE_H
#define PAVO_STORE_RESPONSE_CACHE_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "common/where.h"
#include "store/db_result.h"

namespace pavo {

// --- answers

// Others may hold the database for as long as that; it is real time.
inline constexpr std::chrono::milliseconds kCacheBusyTimeout{3000};

// Makes the database with its table unless it is there. A file that is no sound database is replaced; one that
// could not be read or is locked is not.
DbResult<> createResponseCache(Where where = std::source_location::current());

enum class CacheWrite { Written, Unchanged };

// Stores an answer unless that very text is stored already: then nothing is written, and nobody told. When
// the name cannot be appended to the delta file, nothing is stored.
DbResult<CacheWrite> writeCachedAnswer(std::string_view name, std::string_view answer,
                                       Where where = std::source_location::current());

// Nothing when there is no such answer, or a null in its place. The log lines are those of restapi_db_read.
DbResult<std::optional<std::string>> readCachedAnswer(
    std::string_view name, Where where = std::source_location::current(),
    std::chrono::milliseconds busyTimeout = kCacheBusyTimeout);

// Deletes an answer; one that is not there is no error. The name goes into the delta file either way.
DbResult<> deleteCachedAnswer(std::string_view name, Where where = std::source_location::current());

struct CachedAnswer {
    std::string name;
    std::size_t size;  // bytes
};
// What is in the cache, by name. A cache that has not been made is empty.
DbResult<std::vector<CachedAnswer>> listCachedAnswers(Where where = std::source_location::current());

// Whether this process has changed the cache since the last call.
bool takeCacheChanged();

// --- locks

// A lock on refreshing one answer, among threads and processes, that ends with the process: a lock file for
// each name in platform::paths::kApiLockDir, whose path has at most this many characters.
inline constexpr std::size_t API_LOCK_PATH_MAX = 127;

// Waits for whoever has the lock, without limit. A descriptor of at least 1, closed when a program is
// executed; -1 when the name makes no file name in the folder or the file cannot be opened (logged).
int acquireApiLock(std::string_view name, Where where = std::source_location::current());
// Only for a descriptor of at least 1.
void releaseApiLock(int fd, Where where = std::source_location::current());

class ApiLock {
  public:
    explicit ApiLock(std::string_view name, Where where = std::source_location::current())
        : where_(where), fd_(acquireApiLock(name, where)) {}
    ~ApiLock() { releaseApiLock(fd_, where_); }
    ApiLock(const ApiLock &) = delete;
    ApiLock &operator=(const ApiLock &) = delete;

    bool held() const { return fd_ >= 0; }

  private:
    Where where_;
    int fd_;
};

// Makes the folder of the lock files unless it is there; false (logged) when that fails.
bool ensureApiLockDir(Where where = std::source_location::current());

// --- web server

// Sends SIGINT to the thread that the web server has named in platform::paths::kWebServerPid. Without that
// file nothing happens; failures are logged.
void signalWebServer(Where where = std::source_location::current());

}  // namespace pavo

#endif
