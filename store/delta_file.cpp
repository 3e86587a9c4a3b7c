#include "store/delta_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

using platform::paths::kResponseCacheDelta;

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
constexpr off_t kBlock = 4096;
// Of one look: nobody waits longer for a file that is full of something else, or for writers that never pause.
constexpr off_t kReadMax = 64 << 20;

class File {
  public:
    // -1 with errno. What may not be changed can still be read.
    File() : fd_(openWith(O_RDWR)) {
        const int error = errno;
        if (fd_ < 0 && (error == EACCES || error == EPERM || error == EROFS)) {
            fd_ = openWith(O_RDONLY);
            whyKept_ = error;
        }
    }
    ~File() {
        if (fd_ >= 0)
            close(fd_);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    int fd() const { return fd_; }
    // Why it may not be changed; 0 when it may.
    int whyKept() const { return whyKept_; }

  private:
    static int openWith(int access) {
        return open(platform::fsPath(kResponseCacheDelta).c_str(),
                    access | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    }
    int whyKept_ = 0;
    int fd_;
};

// Empties the file when nobody else has it open and nothing stands behind `size`. Whoever opens it meanwhile
// waits for the lease to end; the signal that announces them is one that is ignored by default.
bool emptyAlone(int fd, off_t size) {
    if (fcntl(fd, F_SETSIG, SIGURG) != 0 || fcntl(fd, F_SETLEASE, F_WRLCK) != 0)
        return false;
    struct stat info{};
    const bool isEmptied = fstat(fd, &info) == 0 && info.st_size == size && ftruncate(fd, 0) == 0;
    fcntl(fd, F_SETLEASE, F_UNLCK);
    return isEmptied;
}

// Gives back the whole blocks in front of `size`; they read as zeros then, and the file keeps its length.
bool giveBack(int fd, off_t size) {
    const off_t blocks = size / kBlock * kBlock;
    return blocks == 0 || fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, blocks) == 0;
}

}  // namespace

// --- lines

void DeltaLines::take(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto end = std::min(bytes.find('\n'), bytes.size());
        line_ += bytes.substr(0, std::min(end, kNameMax + 1 - line_.size()));
        unfinished_ += end;
        bytes.remove_prefix(end);
        if (!bytes.empty()) {
            bytes.remove_prefix(1);
            endLine();
        }
    }
}

void DeltaLines::endLine() {
    const bool isName = std::ranges::none_of(line_, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    if (line_.size() > kNameMax || !isName || !isUtf8(line_))
        news_.everything = true;
    else if (!line_.empty())
        news_.names.insert(line_);
    if (news_.names.size() > kNamesMax) {
        news_.names.clear();
        news_.everything = true;
    }
    line_.clear();
    unfinished_ = 0;
}

void DeltaLines::cutShort() {
    news_.everything = news_.everything || unfinished_ > 0;
    line_.clear();
    unfinished_ = 0;
}

DeltaNews DeltaLines::news() {
    return std::exchange(news_, {});
}

// --- file

bool DeltaFile::hasNews() const {
    struct stat info{};
    if (lstat(platform::fsPath(kResponseCacheDelta).c_str(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    return info.st_dev != device_ || info.st_ino != inode_ || info.st_size != read_ ||
           lines_.unfinished() > 0;
}

void DeltaFile::restart(dev_t device, ino_t inode) {
    // The rest of the line went with the old content.
    lines_.cutShort();
    device_ = device;
    inode_ = inode;
    read_ = 0;
    isKept_ = false;
}

void DeltaFile::report(int error, const Where &where) {
    if (error != 0 && error != ENOENT && error != reported_)
        logError(where, "[%s:%d] %s cannot be read: %s\n", kResponseCacheDelta, std::strerror(error));
    reported_ = error;
}

// An errno, or 0.
int DeltaFile::readTo(int fd, off_t end) {
    std::array<char, kPieceSize> piece{};
    while (read_ < end) {
        // Past what has been given back, or was never written.
        off_t data = lseek(fd, read_, SEEK_DATA);
        if (data < 0)
            data = errno == ENXIO ? end : read_;
        if (data > read_) {
            lines_.cutShort();
            read_ = std::min(data, end);
            continue;
        }
        const auto most = std::min<off_t>(end - read_, kPieceSize);
        const ssize_t got = pread(fd, piece.data(), static_cast<std::size_t>(most), read_);
        if (got < 0 && errno != EINTR)
            return errno;
        if (got == 0)
            return 0;
        if (got > 0) {
            lines_.take({piece.data(), static_cast<std::size_t>(got)});
            read_ += got;
        }
    }
    return 0;
}

DeltaNews DeltaFile::take(Where where) {
    const File file;
    struct stat info{};
    if (file.fd() < 0 || fstat(file.fd(), &info) != 0 || !S_ISREG(info.st_mode)) {
        report(file.fd() < 0 ? errno : EINVAL, where);
        restart({}, {});
        return lines_.news();
    }
    if (info.st_dev != device_ || info.st_ino != inode_ || info.st_size < read_)
        restart(info.st_dev, info.st_ino);
    report(readTo(file.fd(), std::min(info.st_size, read_ + kReadMax)), where);

    const auto now = platform::monotonicNow();
    if (lines_.unfinished() == 0) {
        unfinishedSince_.reset();
    } else if (!unfinishedSince_ || unfinishedAt_ != read_) {
        unfinishedSince_ = now;
        unfinishedAt_ = read_;
    } else if (now - *unfinishedSince_ >= kLineWait) {
        lines_.cutShort();
        unfinishedSince_.reset();
    }
    if (read_ > 0 && lines_.unfinished() == 0) {
        int error = file.whyKept();
        if (error == 0 && emptyAlone(file.fd(), read_))
            read_ = 0;
        else if (error == 0 && !giveBack(file.fd(), read_))
            error = errno;
        if (error != 0 && !std::exchange(isKept_, true))
            logWarn(where, "[%s:%d] %s cannot be emptied: %s\n", kResponseCacheDelta, std::strerror(error));
    }
    return lines_.news();
}

}  // namespace pavo
