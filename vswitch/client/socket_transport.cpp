// The transport of real processes: a pool of connections to the socket of vswitchd, so that a slow call in
// one thread does not hold up another. A broken connection is dropped; the next call opens a new one.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/paths.h"
#include "vswitch/client/transport.h"
#include "vswitch/rpc/wire.h"

namespace vswitch::client {
namespace {

// A switch OS that does not answer for this long is considered gone.
constexpr int kAnswerSeconds = 30;

class Socket {
  public:
    explicit Socket(int fd) : fd_(fd) {}
    Socket(Socket &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Socket &operator=(Socket &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Socket() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    int fd() const { return fd_; }

  private:
    int fd_;
};

std::mutex poolMutex;
std::vector<Socket> pool;

Socket connectNow() {
    // A socket address holds 107 characters and the root folder may be deeper: go through a descriptor of the
    // folder.
    const std::filesystem::path path(platform::fsPath(rpc::kSocketPath));
    const Socket folder(::open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (folder.fd() < 0)
        return Socket(-1);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder.fd(),
                  path.filename().c_str());
    Socket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval limit{kAnswerSeconds, 0};
    if (socket.fd() < 0 || ::setsockopt(socket.fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0 ||
        ::setsockopt(socket.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0 ||
        ::connect(socket.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return Socket(-1);
    return socket;
}

// Transfers `size` bytes with `step` (sends or receives some of them from a given position on), repeating it
// as needed.
template <class Step>
bool moveAll(std::size_t size, Step step) {
    for (std::size_t moved = 0; moved < size;) {
        const auto done = step(moved, size - moved);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        moved += static_cast<std::size_t>(done);
    }
    return true;
}

bool sendAll(int fd, const char *data, std::size_t size) {
    return moveAll(
        size, [&](std::size_t at, std::size_t left) { return ::send(fd, data + at, left, MSG_NOSIGNAL); });
}

bool receiveAll(int fd, char *data, std::size_t size) {
    return moveAll(size, [&](std::size_t at, std::size_t left) { return ::recv(fd, data + at, left, 0); });
}

bool exchangeOn(int fd, const std::string &frame, std::string &reply) {
    unsigned char head[rpc::kLengthSize];
    if (!sendAll(fd, frame.data(), frame.size()) ||
        !receiveAll(fd, reinterpret_cast<char *>(head), sizeof head))
        return false;
    const auto length = rpc::getLength(head);
    if (length > rpc::kFrameMax)
        return false;
    reply.resize(length);
    return receiveAll(fd, reply.data(), length);
}

// True when the peer has hung up since the connection was last used.
bool stale(int fd) {
    char byte;
    const auto got = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

Socket takeIdle() {
    const std::lock_guard lock(poolMutex);
    while (!pool.empty()) {
        Socket socket = std::move(pool.back());
        pool.pop_back();
        if (!stale(socket.fd()))
            return socket;
    }
    return Socket(-1);
}

}  // namespace

bool exchange(const char *request, std::size_t size, std::string &reply) {
    Socket socket = takeIdle();
    if (socket.fd() < 0)
        socket = connectNow();
    if (socket.fd() < 0)
        return false;
    unsigned char head[rpc::kLengthSize];
    rpc::putLength(size, head);
    std::string frame(reinterpret_cast<const char *>(head), sizeof head);
    frame.append(request, size);
    if (!exchangeOn(socket.fd(), frame, reply))
        return false;
    const std::lock_guard lock(poolMutex);
    pool.push_back(std::move(socket));
    return true;
}

void disconnect() {
    const std::lock_guard lock(poolMutex);
    pool.clear();
}

}  // namespace vswitch::client
