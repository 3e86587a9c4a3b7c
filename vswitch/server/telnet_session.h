// A user's session on the command line, as bytes: telnet negotiation, login, line editing, commands. No
// socket: what the user's end has sent goes in, what it is to be sent comes out.
//
// The switch asks for "User:" and "Password:", three times at most, and then runs one line after another,
// from "(name) >" on. It offers to echo and to work character by character, as telnet clients expect; a
// client that does not agree to that gets no echo. A line ends with CR LF, CR NUL, CR or LF; other zeros
// are ignored. '?' outside of quotes lists what may follow. Backspace, Ctrl-U and Ctrl-C edit the line,
// Ctrl-Z is "end", Ctrl-D on an empty line "logout". A user who has been changed or removed in the
// meantime is logged out with the next line. The password is neither echoed nor logged.
#ifndef PAVO_VSWITCH_SERVER_TELNET_SESSION_H
#define PAVO_VSWITCH_SERVER_TELNET_SESSION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vswitch/server/server.h"

namespace vswitch {

class TelnetSession {
  public:
    // Longer lines are refused.
    static constexpr std::size_t kLineMax = 4096;

    // What is sent first.
    static std::string greeting();

    void feed(std::string_view bytes) { input_ += bytes; }

    // Works off what was fed, at most up to the end of a line, and returns what to send; nothing when
    // more has to come first. To be called until then.
    std::optional<std::string> next(Server &server);

    bool isLoggedIn() const { return stage_ == Stage::Shell; }
    // What next() has returned refuses a login: it is sent after a pause, for those who guess.
    bool hasRefused() const { return refused_; }
    // The connection is to be closed once everything is sent.
    bool isOver() const { return stage_ == Stage::Over; }

  private:
    enum class Stage : std::uint8_t { User, Password, Shell, Over };
    enum class Telnet : std::uint8_t { Data, Command, Will, Wont, Do, Dont, Sub, SubCommand };

    std::optional<unsigned char> filter(unsigned char byte, std::string &out);
    void answerOption(unsigned char option, std::string &out);
    bool take(Server &server, unsigned char c, std::string &out);
    bool edit(Server &server, unsigned char c, std::string &out);
    void endLine(Server &server, std::string &out);
    void checkPassword(Server &server, const std::string &password, std::string &out);
    void runLine(Server &server, const std::string &line, std::string &out);
    bool echoes() const { return echo_ && stage_ != Stage::Password; }

    Stage stage_ = Stage::User;
    Telnet telnet_ = Telnet::Data;
    bool echo_ = false;
    bool afterCr_ = false;  // a line end has been taken for CR: LF or NUL belong to it
    int escape_ = 0;        // 1 behind ESC, 2 in a sequence
    bool tooLong_ = false;
    std::string input_, line_;
    std::size_t used_ = 0;  // of input_
    int attempts_ = 0;
    bool refused_ = false;
    std::string name_;
    User user_;  // as it was at login
    CliSession session_;
};

}  // namespace vswitch

#endif
