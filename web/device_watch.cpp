#include "web/device_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <utility>

#include "platform/paths.h"

namespace pavo {
namespace {

bool isSameFile(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

DeviceWatch::DeviceWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

DeviceWatch::~DeviceWatch() {
    if (fd_ >= 0)
        close(fd_);
}

void DeviceWatch::watchFolder() {
    if (fd_ < 0)
        return;
    // What has happened is seen in the file itself; the watch of a folder that has gone ends with it.
    alignas(inotify_event) std::array<char, 4096> events{};
    while (read(fd_, events.data(), events.size()) > 0) {
    }
    const std::filesystem::path file(platform::fsPath(platform::paths::kDeviceStates));
    watch_ = inotify_add_watch(fd_, file.parent_path().c_str(), IN_MOVED_TO | IN_CLOSE_WRITE | IN_ONLYDIR);
}

std::vector<Event> DeviceWatch::look() {
    watchFolder();
    struct stat info{};
    if (stat(platform::fsPath(platform::paths::kDeviceStates).c_str(), &info) != 0 || isSameFile(info, seen_))
        return {};
    auto now = readDeviceStates();
    if (!now)
        return {};
    seen_ = info;
    std::vector<Event> events;
    if (known_)
        events = deviceEvents(*known_, *now);
    known_ = std::move(now);
    return events;
}

}  // namespace pavo
