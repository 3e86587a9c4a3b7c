#include "swapi/cli_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "common/log.h"
#include "common/result.h"
#include "platform/clock.h"

namespace pavo {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::int32_t kConnectionEnded = -2;
// After each line of a login, on the program's clock.
constexpr std::chrono::seconds kLoginPause{1};
constexpr std::size_t kReadMax = 255;
// More than this is no prompt, and more lines than this are no login.
constexpr std::size_t kPromptMax = 16u << 10;
constexpr int kLoginLinesMax = 12;
// Of input that nobody wants.
constexpr std::size_t kDiscardMax = 1u << 20;

constexpr const char *kMask = "********";

void logSystemError(const Where &where, int error) {
    logError(where, "[%s:%d] %s\n", std::generic_category().message(error));
}

// False when nothing happens until then.
bool await(int fd, short events, std::chrono::steady_clock::time_point until) {
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(until - std::chrono::steady_clock::now());
        pollfd wanted{fd, events, 0};
        const int ready = ::poll(&wanted, 1, static_cast<int>(std::max(left, milliseconds::zero()).count()));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

// A client that is given the very port it connects to talks to itself.
bool isSelfConnected(int fd) {
    sockaddr_in mine{}, other{};
    socklen_t mineSize = sizeof mine, otherSize = sizeof other;
    return ::getsockname(fd, reinterpret_cast<sockaddr *>(&mine), &mineSize) == 0 &&
           ::getpeername(fd, reinterpret_cast<sockaddr *>(&other), &otherSize) == 0 &&
           mine.sin_port == other.sin_port;
}

// Zero, or the errno of what went wrong.
int connectTo(int fd, std::uint16_t port, std::chrono::steady_clock::time_point until) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno != EINPROGRESS)
            return errno;
        if (!await(fd, POLLOUT, until))
            return ETIMEDOUT;
        int error = 0;
        socklen_t size = sizeof error;
        if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
            return errno;
        if (error != 0)
            return error;
    }
    return isSelfConnected(fd) ? ECONNREFUSED : 0;
}

// In lines of what one read holds.
void logInput(const Where &where, const std::string &text) {
    for (std::size_t at = 0; at < text.size(); at += kReadMax)
        logDebug(where, "[%s:%d] buffer: (%s)\n", text.substr(at, kReadMax));
}

}  // namespace

bool CliClient::connect(std::uint16_t port, Where where) {
    close();
    filter_ = {};
    pending_.clear();
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int error = fd_ < 0 ? errno : connectTo(fd_, port, Clock::now() + patience_);
    if (error == 0)
        return true;
    logSystemError(where, error);
    close();
    return false;
}

void CliClient::close() {
    if (fd_ < 0)
        return;
    ::shutdown(fd_, SHUT_RDWR);
    ::close(std::exchange(fd_, -1));
}

// --- bytes

// Waits until some text has come, at most until then.
CliClient::Input CliClient::readMore(Clock::time_point until) {
    for (;;) {
        if (fd_ < 0) {
            error_ = ENOTCONN;
            return Input::End;
        }
        char bytes[4096];
        const auto got = ::recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT);
        if (got > 0) {
            std::string answer;
            const auto text = filter_.take({bytes, static_cast<std::size_t>(got)}, answer);
            pending_ += text;
            if (!answer.empty() && !writeAll(answer)) {
                error_ = errno;
                return Input::End;
            }
            if (!text.empty())
                return Input::Text;
            if (Clock::now() >= until)  // a server may negotiate for ever
                return Input::Silence;
        } else if (got == 0) {
            error_ = ECONNRESET;
            return Input::End;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (Clock::now() >= until)
                return Input::Silence;
            await(fd_, POLLIN, until);
        } else if (errno != EINTR) {
            error_ = errno;
            return Input::End;
        }
    }
}

bool CliClient::writeAll(std::string_view bytes) {
    const auto until = Clock::now() + patience_;
    while (!bytes.empty()) {
        const auto sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            if (!await(fd_, POLLOUT, until)) {
                errno = ETIMEDOUT;
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool CliClient::send(std::string_view line, Content content, Where where) {
    std::string bytes;
    bytes.reserve(2 * line.size() + 1);  // a secret is not copied about
    for (const char c : line) {
        if (c == '\xff')  // announces a telnet command unless it is doubled
            bytes += c;
        bytes += c;
    }
    bytes += '\0';
    const bool written = writeAll(bytes);
    if (content == Content::Secret)
        explicit_bzero(bytes.data(), bytes.size());
    if (!written) {
        logError(where, "[%s:%d] Failed to write data to telnet server\n");
        return false;
    }
    if (!writeAll("\r\n")) {
        logError(where, "[%s:%d] keepalive of telnet session failed.\n");
        return false;
    }
    logDebug(where, "[%s:%d] Sent: (%s)\n", content == Content::Secret ? kMask : std::string(line));
    return true;
}

std::optional<std::string> CliClient::receive(std::size_t most, Where where) {
    const auto end = Clock::now() + patience_;
    while (pending_.size() < most) {
        const bool first = pending_.empty();
        const auto input = readMore(first ? end : std::min(end, Clock::now() + quiet_));
        if (input == Input::Text)
            continue;
        if (!first)
            break;
        logSystemError(where, input == Input::Silence ? ETIMEDOUT : error_);
        return std::nullopt;
    }
    std::string text = pending_.substr(0, most);
    pending_.erase(0, text.size());
    logDebug(where, "[%s:%d] Recv: (%s)\n", text);
    return text;
}

bool CliClient::discardInput() {
    Input input = Input::Text;
    for (std::size_t dropped = 0; input == Input::Text && dropped < kDiscardMax;) {
        dropped += pending_.size();
        pending_.clear();
        input = readMore(Clock::now());
    }
    pending_.clear();
    return input != Input::End;
}

// --- login

// Reads until the text holds a known prompt and the server pauses: a prompt may come in pieces, and
// behind what looks like one there may be another.
CliClient::Input CliClient::readPrompt(Clock::time_point until, std::string &text) {
    for (;;) {
        const bool known = loginStageOf(text) != LoginStage::Invalid;
        const auto input = readMore(known ? std::min(until, Clock::now() + quiet_) : until);
        text += std::exchange(pending_, {});
        if (input != Input::Text || text.size() > kPromptMax)
            return text.empty() ? input : Input::Text;
    }
}

std::int32_t CliClient::login(const std::string &name, const std::string &password, Where where) {
    const auto finish = [&](std::int32_t result) {
        logDebug(where, "[%s:%d] Finished here either way (%d)\n", result);
        return result;
    };
    auto budget = Clock::duration(2 * patience_);
    SecretMask mask(password);
    for (int lines = 0;; ++lines) {
        const auto begin = Clock::now();
        std::string text;
        const auto input = readPrompt(begin + std::min(budget, Clock::duration(patience_)), text);
        budget -= std::min(budget, Clock::now() - begin);
        if (input != Input::Text) {
            logSystemError(where, input == Input::Silence ? ETIMEDOUT : error_);
            return finish(kConnectionEnded);
        }
        logInput(where, mask.take(text));

        auto stage = loginStageOf(text);
        explicit_bzero(text.data(), text.size());  // some servers echo passwords
        if (lines == kLoginLinesMax && stage != LoginStage::Done)
            stage = LoginStage::Invalid;  // the server asks the same again and again
        logDebug(where, "[%s:%d] stage: %d\n", stage);
        bool sent = false;
        switch (stage) {
            case LoginStage::User:
                sent = send(name, Content::Plain, where);
                break;
            case LoginStage::Password:
                sent = send(password, Content::Secret, where);
                break;
            case LoginStage::UserMode:
                sent = send("enable", Content::Plain, where);
                break;
            case LoginStage::Privileged:
                sent = send("configure", Content::Plain, where);
                break;
            case LoginStage::Done:
                return finish(0);
            case LoginStage::Invalid:
                logError(where, "[%s:%d] We encountered an invalid switch prompt!\n");
                return finish(kFailed);
        }
        if (!sent)
            return finish(kConnectionEnded);
        platform::sleepFor(kLoginPause);
    }
}

}  // namespace pavo
