#include "vswitch/server/telnet_session.h"

#include <algorithm>
#include <utility>

namespace vswitch {
namespace {

// Of RFC 854, 857 and 858.
constexpr unsigned char kSe = 240, kInterrupt = 244, kAreYouThere = 246, kEraseChar = 247, kEraseLine = 248;
constexpr unsigned char kSb = 250, kWill = 251, kWont = 252, kDo = 253, kDont = 254, kIac = 255;
constexpr unsigned char kEcho = 1, kSuppressGoAhead = 3;

constexpr unsigned char kCtrlC = 3, kCtrlD = 4, kBackspace = 8, kCtrlU = 21, kCtrlZ = 26, kEsc = 27,
                        kDelete = 127;

constexpr int kAttemptsMax = 3;

std::string command(unsigned char verb, unsigned char option) {
    return {static_cast<char>(kIac), static_cast<char>(verb), static_cast<char>(option)};
}

// As it goes over the line.
std::string printed(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n')
            out += '\r';
        if (static_cast<unsigned char>(c) == kIac)
            out += c;
        out += c;
    }
    return out;
}

// Takes as long for any wrong password of the same length.
bool samePassword(std::string_view given, std::string_view wanted) {
    unsigned different = given.size() == wanted.size() ? 0 : 1;
    for (std::size_t i = 0; i < given.size(); ++i)
        different |= static_cast<unsigned char>(given[i]) ^
                     static_cast<unsigned char>(wanted.empty() ? '\0' : wanted[i % wanted.size()]);
    return different == 0;
}

// All but the first byte of a character in UTF-8.
bool continues(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Whether a line ends within quotes.
bool inQuotes(std::string_view line) {
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i)
        if (quoted && line[i] == '\\')
            ++i;
        else if (line[i] == '"')
            quoted = !quoted;
    return quoted;
}

}  // namespace

std::string TelnetSession::greeting() {
    return command(kWill, kEcho) + command(kWill, kSuppressGoAhead) + "\r\nUser:";
}

std::optional<std::string> TelnetSession::next(Server &server) {
    std::string out;
    refused_ = false;
    while (used_ < input_.size() && !isOver()) {
        const auto c = filter(static_cast<unsigned char>(input_[used_++]), out);
        if (c && take(server, *c, out))
            return out;
    }
    input_.clear();
    used_ = 0;
    return out.empty() ? std::nullopt : std::optional(out);
}

// --- telnet

// The character that a byte stands for, if any.
std::optional<unsigned char> TelnetSession::filter(unsigned char byte, std::string &out) {
    switch (telnet_) {
        case Telnet::Data:
            if (byte != kIac)
                return byte;
            telnet_ = Telnet::Command;
            return std::nullopt;
        case Telnet::Command:
            telnet_ = byte == kWill   ? Telnet::Will
                      : byte == kWont ? Telnet::Wont
                      : byte == kDo   ? Telnet::Do
                      : byte == kDont ? Telnet::Dont
                      : byte == kSb   ? Telnet::Sub
                                      : Telnet::Data;
            if (byte == kAreYouThere)
                out += "\r\n[yes]\r\n";
            return byte == kIac         ? std::optional(kIac)
                   : byte == kInterrupt ? std::optional(kCtrlC)
                   : byte == kEraseChar ? std::optional(kBackspace)
                   : byte == kEraseLine ? std::optional(kCtrlU)
                                        : std::nullopt;
        case Telnet::Sub:
            telnet_ = byte == kIac ? Telnet::SubCommand : Telnet::Sub;
            return std::nullopt;
        case Telnet::SubCommand:
            telnet_ = byte == kSe ? Telnet::Data : Telnet::Sub;
            return std::nullopt;
        default:
            answerOption(byte, out);
            telnet_ = Telnet::Data;
            return std::nullopt;
    }
}

// The two options that were offered are on when the other side agrees; all others stay off.
void TelnetSession::answerOption(unsigned char option, std::string &out) {
    const bool offered = option == kEcho || option == kSuppressGoAhead;
    switch (telnet_) {
        case Telnet::Will:
            out += command(kDont, option);
            break;
        case Telnet::Do:
            if (!offered)
                out += command(kWont, option);
            [[fallthrough]];
        case Telnet::Dont:
            if (option == kEcho)
                echo_ = telnet_ == Telnet::Do;
            break;
        default:
            break;
    }
}

// --- lines

// True at the end of a line.
bool TelnetSession::take(Server &server, unsigned char c, std::string &out) {
    const bool belongs = std::exchange(afterCr_, false) && (c == '\n' || c == '\0');
    if (belongs || c == '\0')
        return false;
    if (c == '\r' || c == '\n') {
        afterCr_ = c == '\r';
        endLine(server, out);
        return true;
    }
    return edit(server, c, out);
}

bool TelnetSession::edit(Server &server, unsigned char c, std::string &out) {
    const auto erase = [&] {
        if (echoes())
            for (const char erased : line_)
                out += continues(erased) ? "" : "\b \b";
        line_.clear();
        tooLong_ = false;
    };
    // Cursor keys and the like: ESC, '[' or 'O', parameters, one letter.
    if (escape_ > 0) {
        const bool goesOn = escape_ == 1 ? c == '[' || c == 'O' : c >= 0x20 && c < 0x40;
        escape_ = goesOn ? 2 : 0;
        return false;
    }
    switch (c) {
        case kEsc:
            escape_ = 1;
            return false;
        case kBackspace:
        case kDelete:
            if (line_.empty())
                return false;
            while (line_.size() > 1 && continues(line_.back()))
                line_.pop_back();
            line_.pop_back();
            out += echoes() ? "\b \b" : "";
            return false;
        case kCtrlU:
            erase();
            return false;
        case kCtrlC:
            line_.clear();
            tooLong_ = false;
            endLine(server, out);
            return true;
        case kCtrlD:
            if (!line_.empty())
                return false;
            stage_ = Stage::Over;
            return true;
        case kCtrlZ:
            if (stage_ != Stage::Shell)
                return false;
            erase();
            line_ = "end";
            endLine(server, out);
            return true;
        default:
            break;
    }
    if (c == '?' && stage_ == Stage::Shell && !inQuotes(line_)) {
        const auto &cli = server.cli();
        out += echoes() ? "?\r\n" : "\r\n";
        out += printed(cli.help(session_, line_) + cli.prompt(session_) + (echoes() ? line_ : ""));
        return true;
    }
    if (c < 0x20 && c != '\t')
        return false;
    if (line_.size() == kLineMax) {
        tooLong_ = true;
        return false;
    }
    line_ += static_cast<char>(c);
    if (echoes())
        out += printed(std::string_view(line_).substr(line_.size() - 1));
    return false;
}

void TelnetSession::endLine(Server &server, std::string &out) {
    const std::string line = std::exchange(line_, {});
    const bool whole = !std::exchange(tooLong_, false);
    if (echo_)
        out += "\r\n";
    switch (stage_) {
        case Stage::User:
            name_ = whole ? line : "";
            if (!line.empty())
                stage_ = Stage::Password;
            out += line.empty() ? "User:" : "Password:";
            break;
        case Stage::Password:
            checkPassword(server, whole ? line : "", out);
            break;
        case Stage::Shell:
            if (!whole)
                out += "% Line too long.\r\n";
            runLine(server, whole ? line : "", out);
            break;
        case Stage::Over:
            break;
    }
}

// --- login and commands

void TelnetSession::checkPassword(Server &server, const std::string &password, std::string &out) {
    auto &model = server.model();
    const auto &users = model.settings().users;
    const auto found = users.find(name_);
    const bool known = found != users.end();
    const bool right = samePassword(password, known ? found->second.password : "");
    if (known && right && found->second.level != OPEN_USER_LEVEL_BLOCKED) {
        user_ = found->second;
        session_ = {};
        session_.modes = {CliMode::UserExec};
        session_.mayEnable = user_.level == OPEN_USER_LEVEL_ADMIN;
        stage_ = Stage::Shell;
        model.log(5, "USER_MGR", "cliLogin", "User " + name_ + " logged in to the command line");
        out += printed("\n" + server.cli().prompt(session_));
        return;
    }
    // What is no user's name may be a password that somebody has typed too early.
    model.log(4, "USER_MGR", "cliLogin",
              (known ? "User " + name_ : "Unknown user") + ": login to the command line refused");
    refused_ = true;
    const bool again = ++attempts_ < kAttemptsMax;
    stage_ = again ? Stage::User : Stage::Over;
    out += again ? "\r\nLogin incorrect\r\nUser:" : "\r\nLogin incorrect\r\n";
}

void TelnetSession::runLine(Server &server, const std::string &line, std::string &out) {
    const auto &users = std::as_const(server).model().settings().users;
    if (const auto now = users.find(name_); now == users.end() || now->second != user_) {
        out += "The account has changed.\r\n";
        stage_ = Stage::Over;
        return;
    }
    out += printed(server.cli().run(session_, line));
    if (session_.loggedOut)
        stage_ = Stage::Over;
    else
        out += printed((echo_ ? "" : "\n") + server.cli().prompt(session_));
}

}  // namespace vswitch
