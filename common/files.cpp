#include "common/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "common/log.h"
#include "common/owners.h"
#include "platform/paths.h"

namespace pavo {
namespace {

// A lock that somebody else has is tried again after this, and waited for so long without a word.
constexpr auto kPollInterval = std::chrono::milliseconds(2);
constexpr auto kReportAfter = std::chrono::seconds(1);

// Folders where everybody may put a link under a name that the program uses.
bool isSharedFolder(std::string_view fixedPath) {
    return fixedPath.starts_with("/tmp/") || fixedPath.starts_with(platform::paths::kScriptDir);
}

// Every file of the program is opened here. One that is written, or that is in a folder open to everybody, is
// never reached through a link.
int openFixed(const std::string &fixedPath, int flags) {
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    return openShared(fixedPath, flags | O_CLOEXEC | (writes || isSharedFolder(fixedPath) ? O_NOFOLLOW : 0),
                      0666);
}

int retryFlock(int fd, int operation) {
    int result = 0;
    do
        result = flock(fd, operation);
    while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

FilePtr openFile(const std::string &fixedPath, const char *mode) {
    const bool both = std::string_view(mode).find('+') != std::string_view::npos;
    int flags = both ? O_RDWR : O_WRONLY;
    if (mode[0] == 'r')
        flags = both ? O_RDWR : O_RDONLY;
    else
        flags |= O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC);
    if (std::string_view(mode).find('x') != std::string_view::npos)
        flags |= O_EXCL;
    const int fd = openFixed(fixedPath, flags | O_NONBLOCK);
    struct stat info{};
    FilePtr file(fd >= 0 && fstat(fd, &info) == 0 && S_ISREG(info.st_mode) ? fdopen(fd, mode) : nullptr);
    if (file == nullptr && fd >= 0)
        close(fd);
    return file;
}

bool writeWhole(FilePtr file, std::string_view text) {
    const bool written =
        std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() && std::fflush(file.get()) == 0;
    return std::fclose(file.release()) == 0 && written;
}

std::optional<std::string> readFile(const std::string &fixedPath, std::size_t most, Where where) {
    const int fd = openFixed(fixedPath, O_RDONLY | O_NONBLOCK);
    if (fd < 0)
        return std::nullopt;
    const FilePtr file(fdopen(fd, "r"));
    struct stat info{};
    if (file == nullptr || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        if (file == nullptr)
            close(fd);
        return std::nullopt;
    }
    // Somebody else has put it there.
    if (isDaemonsOwn(fixedPath) && info.st_uid != geteuid() && info.st_uid != 0)
        return std::nullopt;
    if (static_cast<std::size_t>(info.st_size) > most) {
        logError(where, "[%s:%d] file too large:%s\r\n", fixedPath);
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(info.st_size), '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file.get()));
    return text;
}

namespace {

bool syncPath(const std::string &path, int flags) {
    const int fd = open(path.c_str(), flags | O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool synced = fsync(fd) == 0;
    close(fd);
    return synced;
}

void makeFolders(const std::filesystem::path &fixedPath) {
    if (fixedPath.has_relative_path() && !fileExists(fixedPath.string())) {
        makeFolders(fixedPath.parent_path());
        makeSharedFolder(fixedPath.string(), 0777);
    }
}

Result<> replace(const std::string &beside, const std::string &fixedPath, std::string_view text, bool durably,
                 const Where &where) {
    const auto folder = std::filesystem::path(platform::fsPath(fixedPath)).parent_path();
    makeFolders(std::filesystem::path(fixedPath).parent_path());
    const bool isOwn = isDaemonsOwn(fixedPath);
    if (isOwn)
        removeFile(beside);
    FilePtr file = openFile(beside, isOwn ? "wx" : "w");
    if (file == nullptr) {
        logError(where, "[%s:%d] Open dir error...%s\r\n", beside);
        return failed(ResultCode::Failed, "cannot write " + beside);
    }
    if (!writeWhole(std::move(file), text) || (durably && !syncPath(platform::fsPath(beside), 0)))
        logError(where, "[%s:%d] Write file error...%s\r\n", beside);
    else if (std::rename(platform::fsPath(beside).c_str(), platform::fsPath(fixedPath).c_str()) != 0)
        logError(where, "[%s:%d] cannot replace %s: %s\r\n", fixedPath, std::strerror(errno));
    else if (durably && !syncPath(folder, O_DIRECTORY))
        logError(where, "[%s:%d] Write file error...%s\r\n", folder.string());
    else
        return {};
    removeFile(beside);
    return failed(ResultCode::Failed, "cannot write " + fixedPath);
}

}  // namespace

Result<> replaceFile(const std::string &fixedPath, std::string_view text, Where where) {
    return replace(fixedPath + ".new", fixedPath, text, false, where);
}

Result<> replaceFileBy(const std::string &beside, const std::string &fixedPath, std::string_view text,
                       Where where) {
    return replace(beside, fixedPath, text, false, where);
}

Result<> replaceFileDurably(const std::string &fixedPath, std::string_view text, Where where) {
    return replace(fixedPath + ".new", fixedPath, text, true, where);
}

Result<bool> createFile(const std::string &fixedPath, std::string_view text, Where where) {
    FilePtr file = openFile(fixedPath, "wx");
    if (file == nullptr && fileExists(fixedPath))
        return false;
    if (file != nullptr && writeWhole(std::move(file), text))
        return true;
    logError(where, "[%s:%d] Write file error...%s\r\n", fixedPath);
    return failed(ResultCode::Failed, "cannot write " + fixedPath);
}

void removeFile(const std::string &fixedPath) {
    unlink(platform::fsPath(fixedPath).c_str());
}

bool fileExists(const std::string &fixedPath) {
    return access(platform::fsPath(fixedPath).c_str(), F_OK) == 0;
}

FileLock::FileLock(std::string fixedPath, Afterwards afterwards, platform::Duration most, Where where)
    : path_(std::move(fixedPath)), afterwards_(afterwards) {
    take(most, where);
}

FileLock::~FileLock() {
    release();
}

// A holder may delete the file, so the lock can turn out to be on a file that is no longer the one the others
// see: then it is worth nothing and is taken anew.
void FileLock::take(platform::Duration most, const Where &where) {
    const auto begin = platform::monotonicNow();
    bool reported = false;
    for (;;) {
        // No truncation: the file may be another's.
        fd_ = openShared(path_, O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW,
                         afterwards_ == Afterwards::Remove ? 0666 : 0600);
        if (fd_ < 0) {
            state_ = State::NotOpened;
            return;
        }
        if (retryFlock(fd_, LOCK_EX | LOCK_NB) == 0) {
            if (isCurrent()) {
                state_ = State::Held;
                return;
            }
            close(std::exchange(fd_, -1));
            continue;
        }
        const bool taken = errno == EWOULDBLOCK;
        close(std::exchange(fd_, -1));
        const auto waited = platform::monotonicNow() - begin;
        if (!taken || waited >= most) {
            state_ = State::NotLocked;
            timedOut_ = taken;
            if (!taken && afterwards_ == Afterwards::Remove)
                removeFile(path_);
            return;
        }
        if (!reported && waited >= kReportAfter) {
            reported = true;
            logWarn(where, "[%s:%d] waiting for the lock %s, for at most %u s\n", path_,
                    static_cast<unsigned>(std::chrono::duration_cast<std::chrono::seconds>(most).count()));
        }
        // Not a sleep of the program's clock: this waits for a real process, and only its limit is time.
        std::this_thread::sleep_for(kPollInterval);
    }
}

bool FileLock::isCurrent() const {
    struct stat mine{};
    struct stat seen{};
    return fstat(fd_, &mine) == 0 && lstat(platform::fsPath(path_).c_str(), &seen) == 0 &&
           mine.st_dev == seen.st_dev && mine.st_ino == seen.st_ino;
}

bool FileLock::release() {
    if (fd_ < 0)
        return true;
    // The file goes before the lock does: deleted later, it could be the next holder's.
    if (afterwards_ == Afterwards::Remove)
        removeFile(path_);
    const bool unlocked = retryFlock(fd_, LOCK_UN) == 0;
    close(std::exchange(fd_, -1));
    return unlocked;
}

}  // namespace pavo
