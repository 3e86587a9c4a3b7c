// A connection to the switch's own command line.
//
// No call waits for the server longer than the patience that the client was made with, whatever the
// server does; a login waits for twice that, and pauses. These are real times, also where the program's
// clock is a faster one. What fails is logged here, by `where`; passwords are not. One thread at a time.
#ifndef PAVO_SWAPI_CLI_CLIENT_H
#define PAVO_SWAPI_CLI_CLIENT_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

#include "common/where.h"
#include "swapi/telnet.h"

namespace pavo {

class CliClient {
  public:
    explicit CliClient(std::chrono::milliseconds patience = std::chrono::seconds(10))
        : patience_(patience), quiet_(patience / 100) {}
    ~CliClient() { close(); }
    CliClient(const CliClient &) = delete;
    CliClient &operator=(const CliClient &) = delete;

    // Connects to a port of the loopback address.
    bool connect(std::uint16_t port, Where where = std::source_location::current());
    bool isOpen() const { return fd_ >= 0; }
    void close();

    // Goes by the prompts up to configuration mode. 0; 10000 when something else than a known prompt
    // comes, or the prompts do not lead there; -2 when nothing comes or the connection ends.
    std::int32_t login(const std::string &name, const std::string &password,
                       Where where = std::source_location::current());

    // Sends a line: the text, a zero, CR LF. Secret: the log does not show it.
    enum class Content { Plain, Secret };
    bool send(std::string_view line, Content content = Content::Plain,
              Where where = std::source_location::current());

    // At most `most` bytes of what the server sends: waits for the first of them, and goes on until the
    // server pauses. Nothing when none come, or the connection has ended.
    std::optional<std::string> receive(std::size_t most, Where where = std::source_location::current());

    // Drops what has come and was not received. False when the connection has ended.
    bool discardInput();

  private:
    using Clock = std::chrono::steady_clock;
    enum class Input { Text, Silence, End };

    Input readMore(Clock::time_point until);
    bool writeAll(std::string_view bytes);
    Input readPrompt(Clock::time_point until, std::string &text);

    std::chrono::milliseconds patience_;
    std::chrono::milliseconds quiet_;  // a server that is silent for so long has finished what it was sending
    int fd_ = -1;
    int error_ = 0;  // errno of what ended the connection
    TelnetFilter filter_;
    std::string pending_;  // text that has come and was not received
};

}  // namespace pavo

#endif
