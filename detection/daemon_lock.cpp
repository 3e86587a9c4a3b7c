#include "detection/daemon_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "platform/paths.h"

namespace pavo {
namespace {

// Of the whole file. It belongs to the open file, as that of flock() does; others can ask for it without taking it.
struct flock wholeFile() {
    struct flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

// For who may not open the file: the kernel's list of locks, with device and inode, is for everybody.
bool isListedAsLocked() {
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kDaemonLock).c_str(), &info) != 0)
        return false;
    char place[64];
    std::snprintf(place, sizeof place, " %02x:%02x:%lu ", major(info.st_dev), minor(info.st_dev),
                  static_cast<unsigned long>(info.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);)
        if (line.find("WRITE") != std::string::npos && line.find(place) != std::string::npos)
            return true;
    return false;
}

// Without waiting: the other daemon may run for years.
DaemonLock::State tryLock(int fd) {
    struct flock lock = wholeFile();
    int result = 0;
    do
        result = fcntl(fd, F_OFD_SETLK, &lock);
    while (result != 0 && errno == EINTR);
    if (result == 0)
        return DaemonLock::State::Held;
    return errno == EAGAIN || errno == EACCES ? DaemonLock::State::TakenByOther
                                              : DaemonLock::State::NotOpened;
}

}  // namespace

// No truncation and no link, as the folder is open to everybody. The file stays: deleted, it could be one
// that another daemon has just locked.
DaemonLock::DaemonLock()
    : fd_(open(platform::fsPath(platform::paths::kDaemonLock).c_str(),
               O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600)),
      state_(fd_ < 0 ? State::NotOpened : tryLock(fd_)) {}

DaemonLock::~DaemonLock() {
    if (fd_ >= 0)
        close(fd_);
}

bool DaemonLock::isHeldByAnyone() {
    const int fd =
        open(platform::fsPath(platform::paths::kDaemonLock).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return errno == EACCES && isListedAsLocked();
    struct flock lock = wholeFile();
    const bool isHeld = fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(fd);
    return isHeld;
}

}  // namespace pavo
