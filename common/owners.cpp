#include "common/owners.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/paths.h"

FilePtr fileOpen(const char *fixedPath, const char *mode) {
    // "e": no child of the program inherits the descriptor.
    return FilePtr(std::fopen(platform::fsPath(fixedPath).c_str(), (std::string(mode) + "e").c_str()));
}

FileLock::FileLock(const char *fixedPath)
    // No truncation and no link: the folders are open to everybody.
    : fd_(open(platform::fsPath(fixedPath).c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0)
        if (errno != EINTR) {
            close(fd_);
            fd_ = -1;
        }
}

FileLock::~FileLock() {
    if (fd_ >= 0)
        close(fd_);
}

void fileRemove(const char *fixedPath) {
    unlink(platform::fsPath(fixedPath).c_str());
}
