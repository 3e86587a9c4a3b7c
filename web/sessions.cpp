#include "web/sessions.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "common/text.h"
#include "platform/clock.h"
#include "platform/paths.h"

namespace pavo {
namespace {

using platform::fsPath;
using platform::paths::kSessionDir;

constexpr std::size_t kTokenBytes = 32;
constexpr std::size_t kTokenMax = 128;  // characters of a token, ours or another program's
constexpr std::size_t kPathMax = 511;   // characters of the path in messages
constexpr std::size_t kLineMax = 200;   // characters of the first two lines
constexpr std::size_t kLevelLineMax = 16;
constexpr std::size_t kSessionFileMax = 2 * kLineMax + kLevelLineMax + kTokenMax + 4;
constexpr std::string_view kMarkSuffix = ".user";
constexpr std::string_view kUnfinishedSuffix = ".new";

std::string markNameOf(const std::string &token) {
    return token + std::string(kMarkSuffix);
}

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    Descriptor &operator=(Descriptor &&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_;
};

bool isTokenCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool isToken(std::string_view text) {
    return !text.empty() && text.size() <= kTokenMax && std::ranges::all_of(text, isTokenCharacter);
}

std::string pathOf(const std::string &name) {
    return (std::string(kSessionDir) + "/" + name).substr(0, kPathMax);
}

// Nobody else may have put anything into it.
bool isOurs(const struct stat &info) {
    return (info.st_uid == geteuid() || info.st_uid == 0) && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

Descriptor openDir() {
    Descriptor dir(open(fsPath(kSessionDir).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info{};
    return dir && fstat(dir.get(), &info) == 0 && isOurs(info) ? std::move(dir) : Descriptor(-1);
}

// A regular file in the folder.
Descriptor openIn(const Descriptor &dir, const std::string &name, int flags) {
    Descriptor file(dir ? openat(dir.get(), name.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC) : -1);
    struct stat info{};
    return file && fstat(file.get(), &info) == 0 && S_ISREG(info.st_mode) && isOurs(info) ? std::move(file)
                                                                                          : Descriptor(-1);
}

bool writeAll(int fd, std::string_view text) {
    off_t at = 0;
    while (!text.empty()) {
        const ssize_t done = pwrite(fd, text.data(), text.size(), at);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(done));
        at += done;
    }
    return ftruncate(fd, at) == 0;
}

std::string readAll(int fd) {
    std::string text(kSessionFileMax, '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t done = pread(fd, &text[size], text.size() - size, static_cast<off_t>(size));
        if (done <= 0)
            break;
        const std::size_t wanted = text.size() - size;
        size += static_cast<std::size_t>(done);
        // A file that gives less than it was asked for has no more.
        if (static_cast<std::size_t>(done) < wanted)
            break;
    }
    text.resize(size);
    return text;
}

// The next line with its line end, or its first `most` characters.
std::string takeLine(std::string_view &rest, std::size_t most) {
    const auto end = rest.find('\n');
    const auto size = std::min({most, rest.size(), end == std::string_view::npos ? rest.size() : end + 1});
    std::string line(rest.substr(0, size));
    rest.remove_prefix(size);
    return line;
}

std::string withoutLineEnd(std::string line) {
    if (line.ends_with('\n'))
        line.pop_back();
    return line;
}

// The lines as they stand in the file.
struct SessionLines {
    std::string user, used, level;  // level: empty for the administrator
    std::string token;

    bool isAdministrator() const { return user == std::string(kAdministrator) + "\n"; }
    long lastUse() const { return std::strtol(used.c_str(), nullptr, 10); }
    std::string print(long now) const { return user + std::to_string(now) + "\n" + level + token; }
};

SessionLines parseLines(std::string_view text) {
    SessionLines lines;
    lines.user = takeLine(text, kLineMax);
    lines.used = takeLine(text, kLineMax);
    if (!lines.isAdministrator())
        lines.level = takeLine(text, kLevelLineMax);
    lines.token = withoutLineEnd(std::string(text));
    return lines;
}

// Nothing for a line that names no level.
std::optional<UserLevel> levelOf(const SessionLines &lines) {
    if (lines.isAdministrator())
        return UserLevel::Administrator;
    for (const UserLevel level : {UserLevel::ReadOnly, UserLevel::ReadWrite})
        if (lines.level.starts_with(wordOf(level)))
            return level;
    return std::nullopt;
}

bool isEnough(UserLevel level, const SessionNeed &need) {
    if (level == UserLevel::Administrator)
        return true;
    return need.access != Access::Administrator &&
           (level == UserLevel::ReadWrite || need.method == HttpMethod::Get);
}

// Also for a number that stands in the file and is no time.
bool isExpired(long lastUse, long now) {
    return lastUse != 0 && lastUse < now - kSessionSeconds;
}

// The session goes first, so that none is left without its mark.
void removeSession(const Descriptor &dir, const std::string &token) {
    unlinkat(dir.get(), token.c_str(), 0);
    unlinkat(dir.get(), markNameOf(token).c_str(), 0);
}

bool lockWhole(int fd) {
    int result = 0;
    do
        result = flock(fd, LOCK_EX);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

// Whether somebody ended the session while its lock was waited for.
bool isGone(int fd) {
    struct stat info{};
    return fstat(fd, &info) != 0 || info.st_nlink == 0;
}

// The steps of checkSession() that are done under the lock.
std::optional<Session> checkLocked(const Descriptor &dir, const Descriptor &file, const std::string &token,
                                   const SessionNeed &need, const Where &where) {
    const std::string text = readAll(file.get());
    const SessionLines lines = parseLines(text);
    if (!isSameSecret(lines.token, token)) {
        logError(where, "[%s:%d] %s is not the file of its session\n", printable(pathOf(token)));
        return std::nullopt;
    }
    const auto level = levelOf(lines);
    if (!level) {
        logError(where, "[%s:%d] Invalid priviledged level in user session\n");
        return std::nullopt;
    }
    if (!isEnough(*level, need)) {
        logError(where, "[%s:%d] Permission denied, not a priviledged user\n");
        return std::nullopt;
    }
    const auto now = platform::systemUptime();
    if (!now) {
        logError(where, "[%s:%d] Failed to get sysinfo\r\n");
        return std::nullopt;
    }
    const std::string user = withoutLineEnd(lines.user);
    if (isExpired(lines.lastUse(), *now)) {
        logInfo(where,
                "[%s:%d] Token timeout(%ld - %ld).please login again. (userName: %s timestamp: %s)\r\n", *now,
                lines.lastUse(), printable(user), printable(withoutLineEnd(lines.used)));
        removeSession(dir, token);
        return std::nullopt;
    }
    if (need.use == SessionUse::Extend) {
        // Written over and cut afterwards: whoever is killed in between leaves a session, not an empty file. A
        // full disk ends no session.
        const std::string renewed = lines.print(*now);
        if (renewed == text || writeAll(file.get(), renewed))
            logDebug(where, "[%s:%d] Token update to file. (%s)\r\n", printable(user));
        else
            logError(where, "[%s:%d] %s cannot be written: %s\n", pathOf("TOKEN"), std::strerror(errno));
    }
    return Session{user, *level};
}

std::vector<std::string> namesIn(const Descriptor &dir) {
    std::vector<std::string> names;
    const int copy = fcntl(dir.get(), F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, int (*)(DIR *)> entries(copy >= 0 ? fdopendir(copy) : nullptr, closedir);
    if (entries == nullptr)
        return names;
    rewinddir(entries.get());
    while (const dirent *const entry = readdir(entries.get()))
        names.emplace_back(entry->d_name);
    return names;
}

// A session as a login finds it.
struct OpenedSession {
    std::string token, user;
    long lastUse = 0;
};

// Nothing for one that has expired, which is deleted. One whose lock is held is in use.
std::optional<OpenedSession> visitSession(const Descriptor &dir, const std::string &token, long now) {
    const Descriptor file = openIn(dir, token, O_RDWR);
    if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0)
        return OpenedSession{token, {}, 0};
    const SessionLines lines = parseLines(readAll(file.get()));
    if (!isExpired(lines.lastUse(), now))
        return OpenedSession{token, withoutLineEnd(lines.user), lines.lastUse()};
    removeSession(dir, token);
    return std::nullopt;
}

// Deletes what has expired, and what logins have left that were killed; the sessions that remain.
std::vector<OpenedSession> sweep(const Descriptor &dir, long now) {
    const auto names = namesIn(dir);
    std::vector<OpenedSession> sessions;
    std::set<std::string> tokens;
    for (const auto &name : names)
        if (isToken(name))
            if (auto session = visitSession(dir, name, now)) {
                tokens.insert(name);
                sessions.push_back(*std::move(session));
            }
    for (const auto &name : names)
        for (const std::string_view suffix : {kMarkSuffix, kUnfinishedSuffix})
            if (name.ends_with(suffix))
                if (const auto token = name.substr(0, name.size() - suffix.size());
                    isToken(token) && !tokens.contains(token))
                    unlinkat(dir.get(), name.c_str(), 0);
    return sessions;
}

// Ends those of a user's sessions that were not used for longest, so that one more is not too many. One that
// never expires is not ours to end.
void makeRoomFor(const std::string &user, const Descriptor &dir, std::vector<OpenedSession> &sessions,
                 const Where &where) {
    std::vector<OpenedSession> own;
    std::ranges::copy_if(sessions, std::back_inserter(own), [&](const OpenedSession &session) {
        return session.user == user && session.lastUse != 0;
    });
    std::ranges::sort(own, {}, &OpenedSession::lastUse);
    for (std::size_t i = 0; i + kSessionsOfUserMax <= own.size(); ++i) {
        logInfo(where, "[%s:%d] %s has %zu sessions: the oldest one ends\n", printable(user),
                kSessionsOfUserMax);
        removeSession(dir, own[i].token);
        std::erase_if(sessions, [&](const OpenedSession &session) { return session.token == own[i].token; });
    }
}

std::string randomToken() {
    std::array<unsigned char, kTokenBytes> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t done = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (done < 0 && errno != EINTR)
            return "";
        filled += done > 0 ? static_cast<std::size_t>(done) : 0;
    }
    static constexpr const char *kDigits = "0123456789abcdef";
    std::string token;
    for (const unsigned char byte : bytes) {
        token += kDigits[byte >> 4];
        token += kDigits[byte & 15];
    }
    return token;
}

bool isUserName(std::string_view name) {
    return !name.empty() && name.size() <= kUserNameMax && isUtf8(name) && printable(name) == name;
}

}  // namespace

const char *wordOf(UserLevel level) {
    switch (level) {
        case UserLevel::ReadOnly:
            return "ro";
        case UserLevel::ReadWrite:
            return "rw";
        case UserLevel::Administrator:
            break;
    }
    return "admin";
}

bool isSameSecret(std::string_view known, std::string_view given) {
    unsigned difference = known.size() == given.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i) {
        const char other = known.empty() ? '\0' : known[i % known.size()];
        difference |= static_cast<unsigned>(static_cast<unsigned char>(other ^ given[i]));
    }
    return difference == 0;
}

std::optional<Session> checkSession(const std::string &token, const SessionNeed &need, Where where) {
    const Descriptor dir = openDir();
    const Descriptor file = isToken(token) ? openIn(dir, token, O_RDWR) : Descriptor(-1);
    if (!file) {
        logDebug(where, "[%s:%d] %s file not exsits, ignore\n", printable(pathOf(token)));
        return std::nullopt;
    }
    if (!lockWhole(file.get())) {
        logError(where, "[%s:%d] File lock failed\n");
        return std::nullopt;
    }
    if (isGone(file.get())) {
        logDebug(where, "[%s:%d] %s file not exsits, ignore\n", printable(pathOf(token)));
        return std::nullopt;
    }
    auto session = checkLocked(dir, file, token, need, where);
    if (flock(file.get(), LOCK_UN) != 0) {
        logError(where, "[%s:%d] File unlock failed\n");
        return std::nullopt;
    }
    return session;
}

Result<> ensureSessionDir(Where where) {
    const std::string path = fsPath(kSessionDir);
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        logError(where, "[%s:%d] %s cannot be made: %s\n", kSessionDir, std::strerror(errno));
        return failed(ResultCode::Failed, "sessions cannot be kept");
    }
    const Descriptor dir = openDir();
    struct stat info{};
    const bool isSound = dir && fstat(dir.get(), &info) == 0 && info.st_uid == geteuid();
    if (!isSound || ((info.st_mode & 0777) != S_IRWXU && fchmod(dir.get(), S_IRWXU) != 0)) {
        logError(where, "[%s:%d] %s is not a folder of this user alone\n", kSessionDir);
        return failed(ResultCode::Failed, "sessions cannot be kept");
    }
    return {};
}

Result<std::string> openSession(const Session &session, std::string_view mark, Where where) {
    const bool isAdministrator = session.level == UserLevel::Administrator;
    if (!isUserName(session.user) || isAdministrator != (session.user == kAdministrator))
        return failed(ResultCode::InvalidArgument, "user name");
    if (auto made = ensureSessionDir(where); !made)
        return std::unexpected(std::move(made).error());
    const Descriptor dir = openDir();
    const auto now = platform::systemUptime();
    std::string token = randomToken();
    if (!now) {
        logError(where, "[%s:%d] Failed to get sysinfo\r\n");
        return failed(ResultCode::Failed, "no session can be opened");
    }
    if (token.empty()) {
        logError(where, "[%s:%d] no random numbers: %s\n", std::strerror(errno));
        return failed(ResultCode::Failed, "no session can be opened");
    }
    // One at a time, so that what another login has left half done can be told from what it is doing.
    const FileLock lock(std::string(kSessionDir) + "/.lock", FileLock::Afterwards::Keep, FileLock::kWaitMax,
                        where);
    if (!lock.held()) {
        logError(where, "[%s:%d] %s cannot be locked\n", kSessionDir);
        return failed(ResultCode::Failed, "no session can be opened");
    }
    auto sessions = sweep(dir, *now);
    makeRoomFor(session.user, dir, sessions, where);
    if (sessions.size() >= kSessionsMax) {
        logError(where, "[%s:%d] %zu sessions are open\n", kSessionsMax);
        return failed(ResultCode::Failed, "too many sessions are open");
    }
    // A time of 0 would never expire.
    const SessionLines lines{
        session.user + "\n", {}, isAdministrator ? "" : std::string(wordOf(session.level)) + "\n", token};
    // Under another name until it is whole, and the mark first: no session is ever without it.
    const auto write = [&](const std::string &name, std::string_view text) {
        const Descriptor file(
            openat(dir.get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        return file && writeAll(file.get(), text);
    };
    const std::string beside = token + std::string(kUnfinishedSuffix);
    if (!write(markNameOf(token), mark) || !write(beside, lines.print(std::max(*now, 1L))) ||
        renameat(dir.get(), beside.c_str(), dir.get(), token.c_str()) != 0) {
        logError(where, "[%s:%d] %s: no file can be written: %s\n", kSessionDir, std::strerror(errno));
        unlinkat(dir.get(), beside.c_str(), 0);
        removeSession(dir, token);
        return failed(ResultCode::Failed, "no session can be opened");
    }
    return token;
}

Result<std::optional<std::string>> sessionMark(const std::string &token) {
    if (!isToken(token))
        return std::nullopt;
    const Descriptor dir = openDir();
    if (const Descriptor file = openIn(dir, markNameOf(token), O_RDONLY))
        return readAll(file.get());
    struct stat info{};
    if (dir && fstatat(dir.get(), markNameOf(token).c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 &&
        errno == ENOENT)
        return std::nullopt;
    return failed(ResultCode::OpenFailed, "the mark of the session cannot be read");
}

// The time is that of the file with the mark; a clock that was set back makes the check due.
bool wasUserChecked(const std::string &token) {
    struct stat info{};
    timespec now{};
    const Descriptor file = isToken(token) ? openIn(openDir(), markNameOf(token), O_RDONLY) : Descriptor(-1);
    if (!file || fstat(file.get(), &info) != 0 || clock_gettime(CLOCK_REALTIME, &now) != 0)
        return false;
    const auto milliseconds = [](const timespec &time) {
        return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
    };
    const long age = milliseconds(now) - milliseconds(info.st_mtim);
    return age >= 0 && age < kUserCheckMilliseconds;
}

void noteUserCheck(const std::string &token) {
    const Descriptor file = isToken(token) ? openIn(openDir(), markNameOf(token), O_RDONLY) : Descriptor(-1);
    if (file)
        static_cast<void>(futimens(file.get(), nullptr));
}

bool endSession(const std::string &token) {
    const Descriptor dir = openDir();
    const Descriptor file = isToken(token) ? openIn(dir, token, O_RDWR) : Descriptor(-1);
    if (!file || !lockWhole(file.get()) || isGone(file.get()))
        return false;
    removeSession(dir, token);
    return true;
}

}  // namespace pavo
