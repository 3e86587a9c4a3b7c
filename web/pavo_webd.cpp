// pavo_webd: serves cached answers and events of the web interface, behind the web server, on a Unix socket.
//
//     pavo_webd --socket PATH
//
// It runs in the foreground and ends with status 0 on SIGTERM, or when it is interrupted at a terminal. Every other
// SIGINT means that the delta file of the response cache has news; "/tmp/resourse_pid.txt" names the process and
// thread to send it to. One runs at a time. What it needs is in the cache, in session files and on the switch: it
// may be killed and started again at any time, and browsers that come back are told what they have missed.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "common/files.h"
#include "common/log.h"
#include "platform/paths.h"
#include "store/response_cache.h"
#include "web/resident.h"

namespace pavo {
namespace {

using namespace platform;

constexpr auto kStopMax = std::chrono::milliseconds(500);
constexpr int kBacklog = 1024;
constexpr mode_t kSocketUmask = 0117;

// A failure to start is told in the log and where the program was started.
int fail(const std::string &what) {
    logError("[%s:%d] %s\n", what);
    std::fprintf(stderr, "pavo_webd: %s\n", what.c_str());
    return 1;
}

std::optional<sockaddr_un> addressOf(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        return std::nullopt;
    path.copy(address.sun_path, path.size());
    return address;
}

enum class Place { Free, Stale, InUse, NoSocket };

Place placeOf(const std::string &path, const sockaddr_un &address) {
    struct stat info{};
    if (lstat(path.c_str(), &info) != 0)
        return Place::Free;
    if (!S_ISSOCK(info.st_mode))
        return Place::NoSocket;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool isRefused = fd >= 0 &&
                           connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 &&
                           errno == ECONNREFUSED;
    if (fd >= 0)
        close(fd);
    return isRefused ? Place::Stale : Place::InUse;
}

// The socket in the file system, which goes with it if it is still the same.
class ListeningSocket {
  public:
    // Nobody else begins at the same time. What has failed is in error().
    explicit ListeningSocket(std::string path) : path_(std::move(path)) {
        const auto address = addressOf(path_);
        if (!address) {
            error_ = "the path of the socket is longer than 107 characters, or empty";
            return;
        }
        const Place place = placeOf(path_, *address);
        if (place == Place::InUse || place == Place::NoSocket) {
            error_ = path_ + (place == Place::InUse ? " is in use" : " is no socket");
            return;
        }
        if (place == Place::Stale)
            unlink(path_.c_str());
        fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const mode_t before = umask(kSocketUmask);
        const bool isBound =
            fd_ >= 0 && bind(fd_, reinterpret_cast<const sockaddr *>(&*address), sizeof *address) == 0;
        umask(before);
        if (!isBound || listen(fd_, kBacklog) != 0 || lstat(path_.c_str(), &made_) != 0)
            error_ = path_ + ": " + std::strerror(errno);
    }
    ~ListeningSocket() {
        struct stat info{};
        if (error_.empty() && lstat(path_.c_str(), &info) == 0 && info.st_ino == made_.st_ino &&
            info.st_dev == made_.st_dev)
            unlink(path_.c_str());
    }
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;

    const std::string &error() const { return error_; }
    int fd() const { return fd_; }  // whoever takes it closes it

  private:
    std::string path_;
    std::string error_;
    int fd_ = -1;
    struct stat made_{};
};

// Names this process and thread to those who change answers.
class Announcement {
  public:
    Announcement() : text_(std::to_string(getpid()) + " " + std::to_string(gettid())) {
        isMade_ = replaceFile(paths::kWebServerPid, text_).has_value();
    }
    ~Announcement() {
        if (isMade_ && readFile(paths::kWebServerPid) == text_)
            removeFile(paths::kWebServerPid);
    }
    Announcement(const Announcement &) = delete;
    Announcement &operator=(const Announcement &) = delete;
    bool isMade() const { return isMade_; }

  private:
    std::string text_;
    bool isMade_ = false;
};

// Each stream of events has a descriptor.
void raiseFileLimit() {
    constexpr rlim_t kWanted = 4096;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < kWanted) {
        limit.rlim_cur = std::min(kWanted, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int run(const std::string &path) {
    // Before any thread is made, so that all of them leave these to this one.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    raiseFileLimit();

    const FileLock lock(paths::kResidentLock, FileLock::Afterwards::Keep, Duration::zero());
    if (!lock.held())
        return fail(std::string(paths::kResidentLock) +
                    " is held: pavo_webd runs already, or it cannot be opened");
    if (!createResponseCache())
        return fail(std::string(paths::kResponseCache) + " cannot be made");
    const ListeningSocket listening(path);
    if (!listening.error().empty())
        return fail(listening.error());
    Resident resident(listening.fd());
    if (!resident.start())
        return fail("requests cannot be served");
    {
        const Announcement announcement;
        if (!announcement.isMade())
            logWarn("[%s:%d] changes are noticed late\n");
        logNotice("[%s:%d] serving on %s\n", path);
        for (;;) {
            siginfo_t info{};
            const int signal = sigwaitinfo(&signals, &info);
            if (signal == SIGTERM || (signal == SIGINT && info.si_code == SI_KERNEL))
                break;
            if (signal == SIGINT)
                resident.takeNews();
        }
    }
    const bool isDone = resident.stop(kStopMax);
    logNotice("[%s:%d] ended\n");
    if (!isDone) {
        // A thread waits for the switch, which does not answer; it has nothing to lose.
        unlink(path.c_str());
        devmgrLogClose();
        std::_Exit(0);
    }
    return 0;
}

}  // namespace
}  // namespace pavo

int main(int argc, char **argv) try {
    if (argc != 3 || std::string_view(argv[1]) != "--socket") {
        std::fputs("usage: pavo_webd --socket PATH\n", stderr);
        return 2;
    }
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "pavo_webd");
    const int status = pavo::run(argv[2]);
    pavo::devmgrLogClose();
    return status;
} catch (const std::exception &e) {
    std::fprintf(stderr, "pavo_webd: %s\n", e.what());
    return 1;
}
