// The transport of real processes: a pool of connections to the socket of vswitchd, so that a slow call in
// one thread does not hold up another. A broken connection is dropped; the next call opens a new one.
//
// A switch OS that hangs costs one call its time limit, not every call: the connection of the call that was
// given up stays open, and until something comes back on it all further calls fail at once. A call that was
// given up may still be carried out, once the switch gets round to it.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/paths.h"
#include "vswitch/client/transport.h"
#include "vswitch/rpc/wire.h"

namespace vswitch::client {
namespace {

using std::chrono::milliseconds;

// A moment in real time; the program's clock may run faster.
class Deadline {
  public:
    explicit Deadline(milliseconds limit)
        : end_(platform::monotonicNow() +
               platform::Duration(static_cast<std::int64_t>(
                   static_cast<double>(platform::Duration(limit).count()) * platform::clockRate()))) {}

    // Not negative, and rounded up: no time is left only when it is over.
    milliseconds left() const {
        const auto rest = std::max(end_ - platform::monotonicNow(), platform::Duration::zero());
        return milliseconds(static_cast<std::int64_t>(
            (static_cast<double>(rest.count()) / platform::clockRate() + 999.0) / 1000.0));
    }
    bool isOver() const { return left() == milliseconds::zero(); }

  private:
    platform::Duration end_;
};

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

// True when one of the events, an error or the end of the connection is there, within the time.
bool await(int fd, short events, milliseconds time) {
    pollfd wanted{fd, events, 0};
    return ::poll(&wanted, 1, static_cast<int>(time.count())) > 0;
}

// What is known of the switch OS. Guarded by peerMutex.
struct Peer {
    std::vector<Socket> idle;
    // The switch hangs: either this connection is one whose answer is overdue, or not even a connection was
    // to be had, which is not tried again for a while.
    Socket overdue{-1};
    std::optional<Deadline> noConnectionUntil;

    bool hangs() {
        if (overdue.fd() >= 0 && await(overdue.fd(), POLLIN, milliseconds::zero()))
            overdue = Socket(-1);
        if (noConnectionUntil && noConnectionUntil->isOver())
            noConnectionUntil.reset();
        return overdue.fd() >= 0 || noConnectionUntil;
    }
};

std::mutex peerMutex;
// Never destroyed: detached threads may call while the process exits.
Peer &peer = *new Peer;

enum class Outcome { Done, Broken, TimedOut };

Socket connectNow(const Deadline &deadline) {
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
    // Only the connecting waits in the kernel; zero would mean for ever.
    const auto left = std::max(deadline.left(), milliseconds(1));
    const timeval limit{static_cast<time_t>(left.count() / 1000),
                        static_cast<suseconds_t>(left.count() % 1000 * 1000)};
    if (socket.fd() < 0 || ::setsockopt(socket.fd(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0 ||
        ::connect(socket.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return Socket(-1);
    return socket;
}

// Transfers `size` bytes with `step` (sends or receives some of them from a given position on, without
// waiting), repeating it as needed.
template <class Step>
Outcome moveAll(int fd, short event, std::size_t size, const Deadline &deadline, Step step) {
    for (std::size_t moved = 0; moved < size;) {
        const auto done = step(moved, size - moved);
        if (done > 0) {
            moved += static_cast<std::size_t>(done);
        } else if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            const auto left = deadline.left();
            if (left == milliseconds::zero())
                return Outcome::TimedOut;
            await(fd, event, left);
        } else if (done == 0 || errno != EINTR) {
            return Outcome::Broken;
        }
    }
    return Outcome::Done;
}

Outcome sendAll(int fd, const std::string &data, const Deadline &deadline) {
    return moveAll(fd, POLLOUT, data.size(), deadline, [&](std::size_t at, std::size_t left) {
        return ::send(fd, data.data() + at, left, MSG_NOSIGNAL | MSG_DONTWAIT);
    });
}

Outcome receiveAll(int fd, char *data, std::size_t size, const Deadline &deadline) {
    return moveAll(fd, POLLIN, size, deadline, [&](std::size_t at, std::size_t left) {
        return ::recv(fd, data + at, left, MSG_DONTWAIT);
    });
}

Outcome exchangeOn(int fd, const std::string &frame, std::string &reply, const Deadline &deadline) {
    unsigned char head[rpc::kLengthSize];
    if (const auto sent = sendAll(fd, frame, deadline); sent != Outcome::Done)
        return sent;
    if (const auto got = receiveAll(fd, reinterpret_cast<char *>(head), sizeof head, deadline);
        got != Outcome::Done)
        return got;
    const auto length = rpc::getLength(head);
    if (length > rpc::kFrameMax)
        return Outcome::Broken;
    reply.resize(length);
    return receiveAll(fd, reply.data(), length, deadline);
}

// True when the peer has hung up since the connection was last used.
bool stale(int fd) {
    char byte;
    const auto got = ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

Socket takeIdle() {
    while (!peer.idle.empty()) {
        Socket socket = std::move(peer.idle.back());
        peer.idle.pop_back();
        if (!stale(socket.fd()))
            return socket;
    }
    return Socket(-1);
}

}  // namespace

bool exchange(const char *request, std::size_t size, std::string &reply, milliseconds limit) {
    Socket socket(-1);
    {
        const std::lock_guard lock(peerMutex);
        if (peer.hangs())
            return false;
        socket = takeIdle();
    }
    const Deadline deadline(limit);
    if (socket.fd() < 0)
        socket = connectNow(deadline);
    if (socket.fd() < 0) {
        if (deadline.isOver()) {
            const std::lock_guard lock(peerMutex);
            peer.noConnectionUntil.emplace(limit);
        }
        return false;
    }
    unsigned char head[rpc::kLengthSize];
    rpc::putLength(size, head);
    std::string frame(reinterpret_cast<const char *>(head), sizeof head);
    frame.append(request, size);
    const Outcome outcome = exchangeOn(socket.fd(), frame, reply, deadline);
    const std::lock_guard lock(peerMutex);
    if (outcome == Outcome::Done)
        peer.idle.push_back(std::move(socket));
    else if (outcome == Outcome::TimedOut && peer.overdue.fd() < 0)
        peer.overdue = std::move(socket);
    return outcome == Outcome::Done;
}

void disconnect() {
    const std::lock_guard lock(peerMutex);
    peer.idle.clear();
    peer.overdue = Socket(-1);
    peer.noConnectionUntil.reset();
}

}  // namespace vswitch::client
