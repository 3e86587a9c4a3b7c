#include "vswitch/server/saved_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "vswitch/cli/command.h"

namespace vswitch {
namespace {

constexpr std::string_view kMark = "!vswitchd state ";
// How "show running-config" and a file of an earlier version begin.
constexpr std::string_view kBeginnings[] = {"!Current Configuration:\n", "vlan database\n", "configure\n"};
constexpr off_t kStateMax = 64 << 20;
constexpr auto kRetryAfter = std::chrono::seconds(1);

class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    bool close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }

  private:
    int fd_;
};

std::uint64_t checksum(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return hash;
}

std::string firstLineOf(std::string_view commands) {
    return cli::format("%s%zu %016" PRIx64 "\n", std::string(kMark).c_str(), commands.size(),
                       checksum(commands));
}

// What is wrong with the content of a state file; nothing for a sound one.
std::optional<std::string> damageOf(const std::string &content) {
    if (content.empty())
        return "it is empty";
    if (!content.starts_with(kMark)) {
        const bool whole =
            std::ranges::any_of(kBeginnings, [&](auto begin) { return content.starts_with(begin); }) &&
            content.ends_with("exit\n") && content.find('\0') == std::string::npos;
        return whole ? std::nullopt : std::optional<std::string>("it is no running configuration");
    }
    const auto end = content.find('\n');
    const auto commands =
        end == std::string::npos ? std::string_view() : std::string_view(content).substr(end + 1);
    if (end != std::string::npos && content.compare(0, end + 1, firstLineOf(commands)) == 0)
        return std::nullopt;
    return "length or checksum do not match";
}

// Writes all of it; false when that is not possible.
bool writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::string readAll(const std::string &path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info{};
    if (!file || ::fstat(file.get(), &info) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot read " + path);
    if (!S_ISREG(info.st_mode) || info.st_size > kStateMax)
        throw std::runtime_error("cannot read " + path + ": not a file that this program wrote");
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    std::size_t used = 0;
    while (used < content.size()) {
        const auto got = ::read(file.get(), content.data() + used, content.size() - used);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw std::system_error(errno, std::generic_category(), "cannot read " + path);
        if (got == 0)
            break;
        used += static_cast<std::size_t>(got);
    }
    content.resize(used);
    return content;
}

}  // namespace

bool SavedState::restore() {
    if (path_.empty() || (::access(path_.c_str(), F_OK) != 0 && errno == ENOENT))
        return false;
    const auto content = readAll(path_);
    if (const auto damage = damageOf(content))
        throw std::runtime_error("the state file " + path_ + " is damaged: " + *damage +
                                 "; repair it, or move it away to start with an empty switch");
    server_.cli().runScript(content);
    if (server_.cli().unknownCommands() + server_.cli().refusedCommands() > 0)
        std::filesystem::copy_file(path_, path_ + ".refused",
                                   std::filesystem::copy_options::overwrite_existing);
    saved_ = commands();
    return true;
}

bool SavedState::keep() {
    if (path_.empty())
        return true;
    const bool changed = server_.takeChange();
    const auto now = std::chrono::steady_clock::now();
    if (!changed && (!failing_ || now < retryAt_))
        return !failing_;
    auto wanted = commands();
    const bool written = wanted == saved_ || replaceFile(firstLineOf(wanted) + wanted);
    if (!written && !failing_)
        server_.model().log(3, "CONFIG", "saveTask", "cannot write " + path_ + ": " + std::strerror(errno));
    failing_ = !written;
    retryAt_ = now + kRetryAfter;
    if (written)
        saved_ = std::move(wanted);
    return written;
}

// Without the comments, which hold the time.
std::string SavedState::commands() const {
    const auto &model = std::as_const(server_).model();
    std::istringstream all(cli::runningConfig(model.changesPending() ? model.settled() : model));
    std::string out;
    for (std::string line; std::getline(all, line);)
        if (!line.starts_with('!'))
            out += line + '\n';
    return out;
}

bool SavedState::replaceFile(const std::string &text) const {
    const auto draft = path_ + ".new";
    ::unlink(draft.c_str());
    Descriptor file(::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        return false;
    if (writeAll(file.get(), text) && ::fsync(file.get()) == 0 && file.close() &&
        std::rename(draft.c_str(), path_.c_str()) == 0) {
        auto folder = std::filesystem::path(path_).parent_path();
        if (folder.empty())
            folder = ".";
        const Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return directory && ::fsync(directory.get()) == 0;
    }
    const int reason = errno;
    ::unlink(draft.c_str());
    errno = reason;
    return false;
}

}  // namespace vswitch
