#include "store/response_cache.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "common/files.h"
#include "common/log.h"
#include "common/owners.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/sqlite.h"

namespace pavo {
namespace {

using platform::paths::kApiLockDir;
using platform::paths::kResponseCache;

constexpr const char *kCreate =
    "CREATE TABLE IF NOT EXISTS restapi_db (api_name TEXT PRIMARY KEY, data TEXT);";
constexpr const char *kSelect = "SELECT data FROM restapi_db WHERE api_name = ?;";
constexpr const char *kReplace = "REPLACE INTO restapi_db (api_name, data) VALUES (?, ?);";
constexpr const char *kDelete = "DELETE FROM restapi_db WHERE api_name = ?;";
constexpr const char *kList =
    "SELECT api_name, length(CAST(data AS BLOB)) FROM restapi_db WHERE api_name IS NOT NULL ORDER BY "
    "api_name;";
constexpr const char *kSettings =
    "PRAGMA cache_size = -2000;PRAGMA temp_store = MEMORY;PRAGMA journal_mode = MEMORY;PRAGMA synchronous = "
    "OFF;";

constexpr LogFormat<const char *> kCannotOpen = "[%s:%d] Can't open database: %s\n";
constexpr LogFormat<const char *> kPrepareFailed = "[%s:%d] prepare failed: %s\n";
constexpr LogFormat<const char *> kExecutionFailed = "[%s:%d] Execution failed: %s\n";
constexpr LogFormat<const char *> kSqlError = "[%s:%d] SQL error: %s\n";

constexpr const char *kRemakingLock = "restapi_db";

std::atomic<bool> cacheChanged = false;

// A name is a line of the delta file.
bool isName(std::string_view name) {
    return !name.empty() && std::ranges::none_of(name, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

int openCache(Connection &connection, Connection::Access access,
              std::chrono::milliseconds busyTimeout = kCacheBusyTimeout) {
    return connection.open(kResponseCache, access, busyTimeout, Connection::Links::Refuse);
}

// With the settings of a connection that changes the table. Reports on behalf of `where`.
DbResult<> openForChange(Connection &connection, Connection::Access access, const Where &where) {
    if (const int code = openCache(connection, access); code != SQLITE_OK) {
        logError(where, kCannotOpen, connection.message());
        return dbFailure(code, false);
    }
    // The time to wait for others is used up then; the statement that follows has the failure to report.
    if (connection.run(kSettings) == SQLITE_BUSY)
        sqlite3_busy_timeout(connection.handle(), 0);
    return {};
}

std::unexpected<DbFailure> failure(int code, const Where &where, const LogFormat<const char *> &format,
                                   const char *message) {
    logError(where, format, message);
    return dbFailure(code);
}

// What a file ends with; a line feed when it is empty.
char lastByte(int fd) {
    struct stat info{};
    char last = '\n';
    const bool read = fstat(fd, &info) == 0 && info.st_size > 0 && pread(fd, &last, 1, info.st_size - 1) == 1;
    return read ? last : '\n';
}

// The reader keeps others from opening the file while it empties it (store/delta_file.h): a matter of
// microseconds, and longer only when it is stopped in that moment.
FilePtr openDelta() {
    constexpr int kTries = 1000;
    for (int i = 0;; ++i) {
        FilePtr file = openFile(platform::paths::kResponseCacheDelta, "a+");
        if (file != nullptr || errno != EWOULDBLOCK || i == kTries)
            return file;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// In one piece: others append at the same time, and no lock is held. A line that a full disk has cut short is
// ended first, or the two names would become one.
bool appendToDelta(std::string_view name) {
    const FilePtr file = openDelta();
    if (file == nullptr)
        return false;
    const int fd = fileno(file.get());
    const std::string line = (lastByte(fd) == '\n' ? "" : "\n") + std::string(name) + '\n';
    return write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

// SQLITE_CORRUPT when the file was read and is not as it should be.
int checkCache(const Connection &connection) {
    Query check;
    int code = check.prepare(connection, "PRAGMA quick_check(1);");
    if (code == SQLITE_OK)
        code = check.step();
    if (code != SQLITE_ROW)
        return code;
    const bool isSound = check.text(0) == "ok";
    code = check.step();
    if (code != SQLITE_DONE && code != SQLITE_ROW)
        return code;  // for example because there was no memory for the text
    return isSound ? SQLITE_OK : SQLITE_CORRUPT;
}

bool isDamaged(int code) {
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

// A damaged file is left to the caller to report.
DbResult<> createTable(const Where &where) {
    Connection connection;
    if (auto opened = openForChange(connection, Connection::Access::Create, where); !opened)
        return opened;
    int code = connection.run(kCreate);
    if (code == SQLITE_OK)
        code = checkCache(connection);
    if (code == SQLITE_OK)
        return {};
    if (!isDamaged(code))
        logError(where, kSqlError, connection.message());
    return dbFailure(code);
}

bool isStored(const Query &stored, std::string_view answer) {
    return !stored.isNull(0) && stored.text(0) == answer;
}

}  // namespace

DbResult<> createResponseCache(Where where) {
    auto created = createTable(where);
    if (!isDamaged(codeOf(created)))
        return created;
    // One of those who find it so makes it anew, and nobody deletes what that one has made. Its writers do not
    // wait for the disk, so one that was killed can leave anything behind.
    const ApiLock lock(kRemakingLock, where);
    created = createTable(where);
    if (isDamaged(codeOf(created))) {
        logWarn(where, "[%s:%d] %s is damaged and made anew\n", kResponseCache);
        removeFile(kResponseCache);
        created = createTable(where);
    }
    if (isDamaged(codeOf(created)))
        logError(where, kSqlError, sqlite3_errstr(codeOf(created)));
    return created;
}

DbResult<CacheWrite> writeCachedAnswer(std::string_view name, std::string_view answer, Where where) {
    if (!isName(name) || answer.data() == nullptr)
        return failure(SQLITE_MISUSE, where, kExecutionFailed, sqlite3_errstr(SQLITE_MISUSE));
    Connection connection;
    if (const auto opened = openForChange(connection, Connection::Access::Write, where); !opened)
        return std::unexpected(opened.error());
    {
        Query stored;
        if (const int code = stored.prepare(connection, kSelect); code != SQLITE_OK)
            return failure(code, where, kPrepareFailed, connection.message());
        stored.bind(1, name);
        const int code = stored.step();
        if (code == SQLITE_ROW && isStored(stored, answer))
            return CacheWrite::Unchanged;
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            return failure(code, where, kExecutionFailed, connection.message());
    }
    if (!appendToDelta(name)) {
        logError(where, "[%s:%d] Unable to open delta file\n");
        return dbFailure(SQLITE_CANTOPEN);
    }
    cacheChanged = true;
    Query replace;
    if (const int code = replace.prepare(connection, kReplace); code != SQLITE_OK)
        return failure(code, where, kPrepareFailed, connection.message());
    replace.bind(1, name);
    replace.bind(2, answer);
    if (const int code = replace.step(); code != SQLITE_DONE)
        return failure(code, where, kExecutionFailed, connection.message());
    return CacheWrite::Written;
}

DbResult<std::optional<std::string>> readCachedAnswer(std::string_view name, Where where,
                                                      std::chrono::milliseconds busyTimeout) {
    Connection connection;
    if (const int code = openCache(connection, Connection::Access::Read, busyTimeout); code != SQLITE_OK) {
        logError(where, "[%s:%d] %s(): Can't open database: %s\n", where.function(), connection.message());
        return dbFailure(code, false);
    }
    Query stored;
    int code = stored.prepare(connection, kSelect);
    if (code != SQLITE_OK) {
        logError(where, "[%s:%d] %s(): prepare failed: %s\n", where.function(), connection.message());
        return dbFailure(code);
    }
    stored.bind(1, name);
    std::optional<std::string> answer;
    for (code = stored.step(); code == SQLITE_ROW; code = stored.step())
        if (!stored.isNull(0))
            answer = stored.text(0);
    if (code == SQLITE_DONE)
        return answer;
    logError(where, "[%s:%d] %s(): step rc=%d: %s\n", where.function(), code, connection.message());
    return dbFailure(code);
}

DbResult<> deleteCachedAnswer(std::string_view name, Where where) {
    if (!isName(name))
        return failure(SQLITE_MISUSE, where, kSqlError, sqlite3_errstr(SQLITE_MISUSE));
    Connection connection;
    if (const auto opened = openForChange(connection, Connection::Access::Write, where); !opened)
        return opened;
    Query statement;
    int code = statement.prepare(connection, kDelete);
    if (code == SQLITE_OK) {
        statement.bind(1, name);
        code = statement.step();
    }
    if (code != SQLITE_DONE)
        return failure(code, where, kSqlError, connection.message());
    static_cast<void>(appendToDelta(name));
    cacheChanged = true;
    return {};
}

DbResult<std::vector<CachedAnswer>> listCachedAnswers(Where where) {
    std::vector<CachedAnswer> answers;
    if (!fileExists(kResponseCache))
        return answers;
    Connection connection;
    if (const int code = openCache(connection, Connection::Access::Read); code != SQLITE_OK) {
        logError(where, kCannotOpen, connection.message());
        return dbFailure(code, false);
    }
    Query list;
    int code = list.prepare(connection, kList);
    if (code != SQLITE_OK)
        return failure(code, where, kPrepareFailed, connection.message());
    for (code = list.step(); code == SQLITE_ROW; code = list.step())
        answers.push_back({std::string(list.text(0)), leadingNumber(list.text(1))});
    if (code != SQLITE_DONE)
        return failure(code, where, kSqlError, connection.message());
    return answers;
}

bool takeCacheChanged() {
    return cacheChanged.exchange(false);
}

// --- locks

namespace {

int retryFlock(int fd, int operation) {
    int result = 0;
    do
        result = flock(fd, operation);
    while (result != 0 && errno == EINTR);
    return result;
}

// A lock file in its folder, neither of which may be a link; -1 with errno. Never descriptor 0, which
// rest_db_lock_release would not take.
int openLockFile(const std::string &file) {
    const int folder =
        open(platform::fsPath(kApiLockDir).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0)
        return -1;
    int fd = openShared(std::string(kApiLockDir) + '/' + file,
                        O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    int error = errno;
    if (fd == 0) {
        fd = fcntl(0, F_DUPFD_CLOEXEC, 1);
        error = errno;
        close(0);
    }
    close(folder);
    errno = error;
    return fd;
}

// Whether the file that is locked is still the one that others would lock, too.
bool isCurrent(int fd, const std::string &path) {
    struct stat mine{};
    struct stat seen{};
    return fstat(fd, &mine) == 0 && lstat(platform::fsPath(path).c_str(), &seen) == 0 &&
           mine.st_dev == seen.st_dev && mine.st_ino == seen.st_ino;
}

// As it may be logged.
std::string shownName(std::string_view name) {
    return wellFormed(printable(name));
}

}  // namespace

bool ensureApiLockDir(Where where) {
    if (makeSharedFolder(kApiLockDir, 0755) || errno == EEXIST)
        return true;
    logError(where, "[%s:%d] rest_db_lock: mkdir(%s) failed: %s\n", kApiLockDir, std::strerror(errno));
    return false;
}

int acquireApiLock(std::string_view name, Where where) {
    if (name.empty()) {
        logError(where, "[%s:%d] rest_db_lock_acquire: empty api_name\n");
        return -1;
    }
    if (!ensureApiLockDir(where))
        return -1;
    const std::string file = std::string(name) + ".lock";
    const std::string path = std::string(kApiLockDir) + '/' + file;
    if (path.size() > API_LOCK_PATH_MAX) {
        logError(where, "[%s:%d] rest_db_lock_acquire: path too long for '%s'\n",
                 shownName(cutToBytes(name, API_LOCK_PATH_MAX)));
        return -1;
    }
    if (name.find('/') != std::string_view::npos || name.find("..") != std::string_view::npos) {
        logError(where, "[%s:%d] rest_db_lock_acquire: open(%s) failed: %s\n", shownName(path),
                 std::strerror(EINVAL));
        return -1;
    }
    for (;;) {
        const int fd = openLockFile(file);
        if (fd < 0 && errno != ENOENT) {
            logError(where, "[%s:%d] rest_db_lock_acquire: open(%s) failed: %s\n", shownName(path),
                     std::strerror(errno));
            return -1;
        }
        if (fd >= 0 && retryFlock(fd, LOCK_EX) != 0) {
            logError(where, "[%s:%d] rest_db_lock_acquire: flock(%s) failed: %s\n", shownName(path),
                     std::strerror(errno));
            close(fd);
            return -1;
        }
        if (fd >= 0 && isCurrent(fd, path))
            return fd;
        if (fd >= 0)
            close(fd);
        // Somebody has cleared the folder in the meantime, or deleted it.
        if (!ensureApiLockDir(where))
            return -1;
    }
}

void releaseApiLock(int fd, Where where) {
    if (fd < 1)
        return;
    if (retryFlock(fd, LOCK_UN) != 0)
        logError(where, "[%s:%d] rest_db_lock_release: flock unlock failed: %s\n", std::strerror(errno));
    close(fd);
}

// --- web server

namespace {

constexpr std::size_t kPidLineMax = 32;

struct Thread {
    pid_t process;
    pid_t thread;
};

// The two numbers of a line.
std::optional<Thread> parseThread(std::string_view line) {
    std::array<pid_t, 2> ids{};
    for (pid_t &id : ids) {
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), id);
        if (error != std::errc())
            return std::nullopt;
        line.remove_prefix(static_cast<std::size_t>(end - line.data()));
    }
    return Thread{ids[0], ids[1]};
}

// Whoever has written the file may name processes of his own only, also where root reads it.
bool isOfOwner(pid_t process, std::FILE *file) {
    struct stat written{};
    struct stat running{};
    return fstat(fileno(file), &written) == 0 &&
           (geteuid() != 0 || written.st_uid == 0 ||
            stat(("/proc/" + std::to_string(process)).c_str(), &running) != 0 ||
            running.st_uid == written.st_uid);
}

}  // namespace

void signalWebServer(Where where) {
    const char *const path = platform::paths::kWebServerPid;
    if (!fileExists(path))
        return;
    const FilePtr file = openFile(path, "r");
    if (file == nullptr) {
        logError(where, "[%s:%d] %s(): Unable to open file\n", where.function());
        return;
    }
    char line[kPidLineMax] = "";
    const bool read = std::fgets(line, sizeof line, file.get()) != nullptr;
    const auto target = read ? parseThread(line) : std::nullopt;
    if (!target) {
        logError(where, "[%s:%d] %s(): Failed to parse integers from the file.\n", where.function());
        return;
    }
    if (target->process == 0 || target->thread == 0)
        return;
    const bool mayBeTold = isOfOwner(target->process, file.get());
    if (!mayBeTold)
        errno = EPERM;
    if (!mayBeTold || syscall(SYS_tgkill, target->process, target->thread, SIGINT) != 0)
        logError(where, "[%s:%d] %s(): cannot signal thread %d of process %d: %s\n", where.function(),
                 target->thread, target->process, std::strerror(errno));
}

}  // namespace pavo
