#include "detection/daemon_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

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
        return false;
    struct flock lock = wholeFile();
    const bool isHeld = fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(fd);
    return isHeld;
}

}  // namespace pavo
