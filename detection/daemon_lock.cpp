#include "detection/daemon_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "platform/paths.h"

namespace pavo {
namespace {

// Without waiting: the other daemon may run for years.
DaemonLock::State tryLock(int fd) {
    int result = 0;
    do
        result = flock(fd, LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    if (result == 0)
        return DaemonLock::State::Held;
    return errno == EWOULDBLOCK ? DaemonLock::State::TakenByOther : DaemonLock::State::NotOpened;
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

}  // namespace pavo
