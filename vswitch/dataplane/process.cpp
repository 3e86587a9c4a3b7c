#include "vswitch/dataplane/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <utility>

extern char **environ;

namespace vswitch {
namespace {

using Clock = std::chrono::steady_clock;

// The child's standard input, output and error; -1 for the null device. `group` is what it gets of its own: a
// process group, or a session, which is one, too.
pid_t spawn(const Arguments &arguments, const std::string &folder, int input, int output, int error,
            short group = POSIX_SPAWN_SETPGROUP) {
    std::vector<char *> words;
    for (const auto &argument : arguments)
        words.push_back(const_cast<char *>(argument.c_str()));
    words.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    const std::pair<int, int> streams[] = {
        {input, STDIN_FILENO}, {output, STDOUT_FILENO}, {error, STDERR_FILENO}};
    for (const auto &[from, to] : streams)
        if (from >= 0)
            ::posix_spawn_file_actions_adddup2(&actions, from, to);
        else
            ::posix_spawn_file_actions_addopen(&actions, to, "/dev/null",
                                               to == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0);
    // No descriptor of the switch, its listening socket above all, stays open in a child.
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    // An interrupt at the terminal is for the switch, which then ends its children in order.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, group);
    ::posix_spawnattr_setpgroup(&attributes, 0);

    pid_t pid = -1;
    const int failed = ::posix_spawnp(&pid, words[0], &actions, &attributes, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    return failed == 0 ? pid : -1;
}

int waitFor(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Pipe {
    Descriptor read{}, write{};

    static Pipe make() {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return Pipe();
        return {Descriptor(ends[0]), Descriptor(ends[1])};
    }
};

}  // namespace

Descriptor::Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

Descriptor &Descriptor::operator=(Descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    other.reset();
    return *this;
}

Descriptor::~Descriptor() {
    reset();
}

void Descriptor::reset() {
    if (fd_ >= 0)
        ::close(std::exchange(fd_, -1));
}

ToolResult runTool(const Arguments &arguments, const std::string &folder, std::chrono::milliseconds limit,
                   int abort, int otherAbort) {
    ToolResult result;
    auto output = Pipe::make(), error = Pipe::make();
    if (!output.read || !error.read)
        return result;
    const auto pid = spawn(arguments, folder, -1, output.write.get(), error.write.get());
    if (pid < 0) {
        result.error = "cannot start " + arguments.front();
        return result;
    }
    output.write.reset();
    error.write.reset();
    const auto begin = Clock::now(), deadline = begin + limit;
    const Descriptor over(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    bool killed = false;
    // Output first, then the exit: a tool that closes its output early is not finished.
    std::array<pollfd, 5> ends{{{output.read.get(), POLLIN, 0},
                                {error.read.get(), POLLIN, 0},
                                {over.get(), 0, 0},
                                {abort, POLLIN, 0},
                                {otherAbort, POLLIN, 0}}};
    std::array<char, 65536> buffer;
    while (ends[0].fd >= 0 || ends[1].fd >= 0 || ends[2].revents == 0) {
        if (ends[0].fd < 0 && ends[1].fd < 0)
            ends[2].events = POLLIN;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int ready = left <= 0 ? 0 : ::poll(ends.data(), ends.size(), static_cast<int>(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0 || ends[3].revents != 0 || ends[4].revents != 0) {
            killed = true;
            ::kill(-pid, SIGKILL);
            break;
        }
        for (std::size_t i = 0; i < 2; ++i) {
            if (ends[i].fd < 0 || ends[i].revents == 0)
                continue;
            const auto got = ::read(ends[i].fd, buffer.data(), buffer.size());
            if (got > 0)
                (i == 0 ? result.output : result.error).append(buffer.data(), static_cast<std::size_t>(got));
            else if (got == 0 || errno != EINTR)
                ends[i].fd = -1;
        }
    }
    result.status = waitFor(pid);
    result.took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    if (killed) {
        result.status = -1;
        result.error += arguments.front() + " was ended before it had finished";
    }
    return result;
}

ServerProcess::ServerProcess(std::string name, const Arguments &arguments, std::string folder)
    : name_(std::move(name)), arguments_(arguments), folder_(std::move(folder)) {}

ServerProcess::ServerProcess(ServerProcess &&other) noexcept
    : name_(std::move(other.name_)),
      arguments_(std::move(other.arguments_)),
      folder_(std::move(other.folder_)),
      pid_(std::exchange(other.pid_, -1)),
      end_(std::move(other.end_)),
      guard_(std::exchange(other.guard_, -1)),
      lifeline_(std::move(other.lifeline_)),
      starts_(other.starts_) {}

ServerProcess::~ServerProcess() {
    stop();
}

bool ServerProcess::start() {
    const auto path = folder_ + "/" + name_ + ".out";
    const Descriptor output(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600));
    auto lifeline = Pipe::make();
    if (!lifeline.read)
        return false;
    pid_ = spawn(arguments_, folder_, -1, output.get(), output.get(), POSIX_SPAWN_SETSID);
    if (pid_ < 0)
        return false;
    guard_ = spawn({"sh", "-c", "read -r line; kill -s KILL -- \"-$1\"", "guard", std::to_string(pid_)}, "/",
                   lifeline.read.get(), -1, -1);
    if (guard_ < 0) {
        stop(std::chrono::milliseconds(0));
        return false;
    }
    lifeline_ = std::move(lifeline.write);
    end_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    ++starts_;
    return true;
}

// Before its pipe is closed: by then the server's process group id may be somebody else's.
void ServerProcess::endGuard() {
    if (guard_ > 0) {
        ::kill(guard_, SIGKILL);
        waitFor(guard_);
    }
    guard_ = -1;
    lifeline_.reset();
}

void ServerProcess::setPriority(int nice) const {
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(pid_), nice);
    // Where the scheduler shares the processor out among sessions first, the value counts within one only.
    std::ofstream("/proc/" + std::to_string(pid_) + "/autogroup") << nice << '\n';
}

// What the server had started goes with it. Before it is reaped: until then nobody else can have its id.
int ServerProcess::reap() {
    ::kill(-pid_, SIGKILL);
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR)
        continue;
    endGuard();
    pid_ = -1;
    end_.reset();
    return status;
}

bool ServerProcess::ended(std::string &how) {
    siginfo_t info{};
    if (pid_ <= 0 || ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != pid_)
        return false;
    const int status = reap();
    how = WIFSIGNALED(status) ? "was ended by signal " + std::to_string(WTERMSIG(status))
                              : "ended with status " + std::to_string(WEXITSTATUS(status));
    return true;
}

void ServerProcess::stop(std::chrono::milliseconds patience) {
    if (pid_ <= 0)
        return;
    ::kill(pid_, SIGTERM);
    pollfd end{end_.get(), POLLIN, 0};
    if (end_)
        ::poll(&end, 1, static_cast<int>(patience.count()));
    reap();
}

void ServerProcess::trimOutput() const {
    constexpr off_t kOutputMax = 1 << 20;
    const auto path = folder_ + "/" + name_ + ".out";
    struct stat info{};
    if (::stat(path.c_str(), &info) == 0 && info.st_size > kOutputMax)
        // When that fails it is retried with the next call.
        [[maybe_unused]]
        const int done = ::truncate(path.c_str(), 0);
}

}  // namespace vswitch
