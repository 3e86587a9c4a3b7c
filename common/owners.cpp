#include "common/owners.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <string>

#include "platform/paths.h"

namespace pavo {
namespace {

using platform::fsPath;
using namespace platform::paths;

constexpr std::array kDaemonsOwn = {kNetBlockPorts, kShurePorts, kDeviceStates, kDaemonLock};

// Only where the user could have made it himself: a folder of his, or one open to several. By way of links he could have
// led us anywhere.
bool isInSharedFolder(int fd, uid_t user) {
    std::string place(PATH_MAX, '\0');
    const ssize_t size =
        readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), place.data(), place.size());
    if (size <= 0)
        return false;
    place.resize(static_cast<std::size_t>(size));
    place.resize(std::max<std::size_t>(place.rfind('/'), 1));
    struct stat folder{};
    return lstat(place.c_str(), &folder) == 0 && S_ISDIR(folder.st_mode) &&
           (folder.st_uid == user || (folder.st_mode & S_ISVTX) != 0);
}

void share(int fd, std::string_view fixedPath) {
    struct stat scripts{};
    if (geteuid() != 0 || isDaemonsOwn(fixedPath) || stat(fsPath(kScriptDir).c_str(), &scripts) != 0 ||
        scripts.st_uid == 0 || !isInSharedFolder(fd, scripts.st_uid))
        return;
    // What cannot be shared is root's, and the log of the web programs tells what they could not do.
    [[maybe_unused]] const int ignored = fchown(fd, scripts.st_uid, scripts.st_gid);
}

}  // namespace

bool isDaemonsOwn(std::string_view fixedPath) {
    return std::ranges::any_of(kDaemonsOwn, [&](std::string_view own) {
        return fixedPath.starts_with(own) && (fixedPath.size() == own.size() || fixedPath[own.size()] == '.');
    });
}

int openShared(std::string_view fixedPath, int flags, mode_t mode) {
    const std::string path = fsPath(fixedPath);
    if ((flags & O_CREAT) == 0)
        return open(path.c_str(), flags);
    for (;;) {
        if ((flags & O_EXCL) == 0)
            if (const int fd = open(path.c_str(), flags & ~O_CREAT); fd >= 0 || errno != ENOENT)
                return fd;
        const int fd = open(path.c_str(), flags | O_EXCL, mode);
        if (fd >= 0)
            share(fd, fixedPath);
        if (fd >= 0 || errno != EEXIST || (flags & O_EXCL) != 0)
            return fd;
        // Somebody else has just made it; a link that leads nowhere is there as well, and stays.
        struct stat info{};
        if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
            errno = ELOOP;
            return -1;
        }
    }
}

bool makeSharedFolder(std::string_view fixedPath, mode_t mode) {
    const std::string path = fsPath(fixedPath);
    if (mkdir(path.c_str(), mode) != 0)
        return false;
    if (const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); fd >= 0) {
        share(fd, fixedPath);
        close(fd);
    }
    return true;
}

}  // namespace pavo
