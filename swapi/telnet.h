// What the program has to know of telnet, as functions of bytes: the negotiation, and the prompts of the
// switch.
#ifndef PAVO_SWAPI_TELNET_H
#define PAVO_SWAPI_TELNET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pavo {

// Takes telnet commands out of what a server sends, however it is cut into packets. Every option is
// refused: the session stays as simple as telnet can be.
class TelnetFilter {
  public:
    // The text in `bytes`, without commands and zeros. What the server has to be answered is appended to
    // `answer`.
    std::string take(std::string_view bytes, std::string &answer);

  private:
    enum class State : std::uint8_t { Data, Command, Will, Wont, Do, Dont, Sub, SubCommand };
    State state_ = State::Data;
};

// Hides a secret in a text that comes in pieces, also where the pieces cut it.
class SecretMask {
  public:
    // Refers to the secret. An empty one is none.
    explicit SecretMask(std::string_view secret) : secret_(secret) {}
    // The piece, with "********" for the secret, and for what may be the beginning of it at the end.
    std::string take(std::string_view piece);

  private:
    std::string_view secret_;
    std::size_t begun_ = 0;  // how much of it the last piece may have ended with
};

// Where a login is, by what the server has sent since it was last answered; the first that fits.
enum class LoginStage : std::int32_t {
    User = 0,        // "User:"
    Password = 1,    // "Password:"
    UserMode = 2,    // a '>' after the first character
    Privileged = 3,  // ") #"
    Done = 4,        // "configure" or "(Config)#"
    Invalid = 5,     // none of these
};
LoginStage loginStageOf(std::string_view text);

}  // namespace pavo

#endif
