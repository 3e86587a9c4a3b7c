#include "vswitch/dataplane/authenticator.h"

#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "vswitch/dataplane/eap.h"

namespace vswitch {
namespace {

using Clock = Authenticator::Clock;
using std::chrono::milliseconds;

constexpr auto kAnswerLimit = milliseconds(500), kWorkLimit = milliseconds(100);
constexpr auto kRefusedPause = milliseconds(1000), kConnectPause = milliseconds(100);
constexpr auto kLookPeriod = std::chrono::seconds(5), kRequestPeriod = std::chrono::seconds(30);
constexpr std::size_t kStationsLookedAt = 64;
constexpr int kGraces = 3;

// Sends a request for an identity; what cannot be sent is lost, as on a wire.
void ask(const AuthenticatedPort &port) {
    const Descriptor socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ifreq query{};
    port.netdev.copy(query.ifr_name, sizeof query.ifr_name - 1);
    if (!socket || ::ioctl(socket.get(), SIOCGIFHWADDR, &query) != 0)
        return;
    Mac source;
    std::memcpy(source.bytes.data(), query.ifr_hwaddr.sa_data, source.bytes.size());
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = port.index;
    const auto frame = identityRequest(source);
    [[maybe_unused]] const auto sent = ::sendto(socket.get(), frame.data(), frame.size(), 0,
                                                reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

bool writeFile(const std::string &path, const std::string &text) {
    // It holds passwords.
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

// --- the connection

bool Authenticator::connect() {
    if (socket_)
        return true;
    // By way of the folder's descriptor: the path may be longer than an address can be. Our own address is
    // one that the kernel makes up.
    const Descriptor place(::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!place || !socket ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address.sun_family) != 0)
        return false;
    const auto path = "/proc/self/fd/" + std::to_string(place.get()) + "/" + kSocket;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    socket_ = std::move(socket);
    if (request("ATTACH") == "OK\n")
        return true;
    disconnect();
    return false;
}

void Authenticator::disconnect() {
    socket_.reset();
    for (auto &[num, port] : ports_) {
        port.here = false;
        port.nextTry = {};
        if (port.authenticated && port.graceUntil == Clock::time_point{})
            grantGrace(port);
    }
}

// However often hostapd begins anew or refuses the port, nobody stays for ever without an exchange.
void Authenticator::grantGrace(Port &port) const {
    const auto now = Clock::now();
    if (port.graceUntil == Clock::time_point{})
        port.graceSince = now;
    port.graceUntil = std::min(now + grace_, port.graceSince + kGraces * grace_);
}

// The answer to a command; nothing, and the connection is closed, when there is none in time.
std::optional<std::string> Authenticator::request(const std::string &command) {
    const auto deadline = Clock::now() + kAnswerLimit;
    bool sent = false;
    std::array<char, 8192> buffer;
    while (socket_) {
        if (!sent)
            sent = ::send(socket_.get(), command.data(), command.size(), MSG_NOSIGNAL) >= 0;
        if (!sent && errno != EAGAIN && errno != EINTR)
            break;
        const auto got = sent ? ::recv(socket_.get(), buffer.data(), buffer.size(), 0) : -1;
        if (got >= 0) {
            const std::string_view message(buffer.data(), static_cast<std::size_t>(got));
            if (!message.starts_with("IFNAME=") && !message.starts_with('<'))
                return std::string(message);
            take(message);
            continue;
        }
        if (sent && errno != EAGAIN && errno != EINTR)
            break;
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
        pollfd ready{socket_.get(), static_cast<short>(sent ? POLLIN : POLLOUT), 0};
        if (left <= 0 || (::poll(&ready, 1, static_cast<int>(left)) < 0 && errno != EINTR))
            break;
    }
    disconnect();
    return std::nullopt;
}

void Authenticator::takeEvents() {
    std::array<char, 8192> buffer;
    while (socket_) {
        const auto got = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (got >= 0)
            take({buffer.data(), static_cast<std::size_t>(got)});
        else if (errno != EINTR)
            break;
    }
}

void Authenticator::take(std::string_view message) {
    const auto event = hostapdEventOf(message);
    if (!event)
        return;
    for (auto &[num, port] : ports_) {
        if (port.present.netdev != event->netdev)
            continue;
        port.nextLook = {};
        if (!event->failed)
            continue;
        port.graceUntil = {};
        // Somebody who tries all the time fills no log.
        if (!std::exchange(port.failureSaid, true)) {
            auto &change = changes_[num];
            change = {num, port.present.round, port.authenticated, true, port.mac, port.user};
        }
    }
}

// --- ports

void Authenticator::report(IfNum num, Port &port, bool authenticated, const std::string &mac,
                           const std::string &user) {
    if (port.authenticated == authenticated && port.mac == mac && port.user == user)
        return;
    port.authenticated = authenticated;
    port.failureSaid = port.failureSaid && !authenticated;
    port.mac = mac;
    port.user = user;
    auto &change = changes_[num];
    change = {num, port.present.round, authenticated, change.failed, mac, user};
}

std::vector<SeenSupplicant> Authenticator::takeChanges() {
    std::vector<SeenSupplicant> out;
    out.reserve(changes_.size());
    for (auto &[num, change] : changes_)
        out.push_back(std::move(change));
    changes_.clear();
    return out;
}

// What was accepted on a link that is gone, or in another round, is not any more.
void Authenticator::followLinks(const std::map<IfNum, AuthenticatedPort> &wanted) {
    const auto now = Clock::now();
    for (auto &[num, port] : ports_) {
        const auto it = wanted.find(num);
        const bool same = it != wanted.end() && it->second.sameLink(port.present);
        const bool graceOver = port.graceUntil != Clock::time_point{} && port.graceUntil <= now;
        if (!same || graceOver) {
            port.graceUntil = {};
            // One that hostapd has may have been accepted at this very moment.
            if (!same || !port.here || it->second != port.present)
                report(num, port, false);
            port.nextLook = {};
        }
    }
}

void Authenticator::wait(const std::map<IfNum, AuthenticatedPort> &wanted) {
    followLinks(wanted);
    std::erase_if(ports_, [&](const auto &item) { return !wanted.contains(item.first); });
    next_ = Clock::time_point::max();
    for (const auto &[num, port] : ports_)
        if (port.graceUntil != Clock::time_point{})
            next_ = std::min(next_, port.graceUntil);
}

// False when hostapd does not answer.
bool Authenticator::install(IfNum num, Port &port, const AuthenticatedPort &wanted, ToolResult &result) {
    const auto file = "hostapd-" + std::to_string(num) + ".conf";
    const auto on = "IFNAME=" + wanted.netdev + " ";
    port.here = false;
    // What it has from before, or from another connection, goes first.
    if (!request("REMOVE " + wanted.netdev))
        return false;
    const bool same = wanted.sameLink(port.present), kept = port.authenticated && same;
    port.failureSaid = port.failureSaid && same;
    if (kept)
        grantGrace(port);
    else
        port.graceUntil = {};
    port.present = wanted;
    port.nextTry = Clock::now() + kRefusedPause;
    if (!writeFile(folder_ + "/" + kUsers, wanted.users) || !writeFile(folder_ + "/" + file, wanted.config)) {
        result = {1, "", std::string("cannot write its configuration: ") + std::strerror(errno)};
        return true;
    }
    for (const auto &command : {"ADD " + wanted.netdev + " config=" + file, on + "ENABLE"}) {
        const auto answer = request(command);
        if (!answer)
            return false;
        if (*answer != "OK\n") {
            result = {1, "", "hostapd refuses port 0/" + std::to_string(num)};
            return request("REMOVE " + wanted.netdev).has_value();
        }
    }
    port.here = true;
    port.nextLook = port.nextRequest = {};
    return true;
}

// False when hostapd does not answer.
bool Authenticator::look(IfNum num, Port &port) {
    const auto on = "IFNAME=" + port.present.netdev + " ";
    std::optional<Station> accepted;
    bool anybody = false;
    // Before the questions: what happens meanwhile is looked at again.
    port.nextLook = Clock::now() + kLookPeriod;
    auto command = on + "STA-FIRST";
    for (std::size_t n = 0; n < kStationsLookedAt; ++n) {
        const auto answer = request(command);
        if (!answer)
            return false;
        auto station = stationOf(*answer);
        if (!station)
            break;
        anybody = true;
        command = on + "STA-NEXT " + station->mac;
        // The one that is known already, if it is still accepted.
        const auto mac = Mac::parse(station->mac);
        if (!station->authorized || !mac || (accepted && mac->text() != port.mac))
            continue;
        station->mac = mac->text();
        accepted = std::move(station);
    }
    if (accepted) {
        port.graceUntil = {};
        report(num, port, true, accepted->mac, accepted->user);
    } else if (port.graceUntil == Clock::time_point{}) {
        report(num, port, false);
    }
    if (!anybody && Clock::now() >= port.nextRequest) {
        ask(port.present);
        port.nextRequest = Clock::now() + kRequestPeriod;
    }
    return true;
}

ToolResult Authenticator::serve(const std::map<IfNum, AuthenticatedPort> &wanted) {
    const auto begin = Clock::now();
    ToolResult result{0, "", "", {}};
    const auto silent = [&] {
        const auto now = Clock::now();
        next_ = now + kConnectPause;
        return ToolResult{-1, "", "hostapd does not answer", std::chrono::ceil<milliseconds>(now - begin)};
    };
    followLinks(wanted);
    if (!connect())
        return silent();
    takeEvents();
    const auto late = [&] { return Clock::now() - begin > kWorkLimit; };
    for (auto it = ports_.begin(); it != ports_.end() && !late();)
        if (wanted.contains(it->first))
            ++it;
        else if (!it->second.here || request("REMOVE " + it->second.present.netdev))
            it = ports_.erase(it);
        else
            return silent();
    for (const auto &[num, port] : wanted) {
        if (late())
            break;
        auto &known = ports_[num];
        const auto now = Clock::now();
        bool answered = true;
        if (known.here && known.present == port)
            answered = now < known.nextLook || look(num, known);
        else if (known.here || known.present != port || now >= known.nextTry)
            answered = install(num, known, port, result);
        if (!answered)
            return silent();
    }
    next_ = late() ? Clock::now() : Clock::time_point::max();
    for (const auto &[num, port] : ports_) {
        next_ = std::min(next_, port.here ? port.nextLook : port.nextTry);
        if (port.graceUntil != Clock::time_point{})
            next_ = std::min(next_, port.graceUntil);
    }
    return result;
}

}  // namespace vswitch
