// Logging in to the web interface with a user name and password of the switch.
//
// Five wrong passwords in a row, for a user or from an address, make both wait: the user 5 seconds first and
// twice as long after each further one, up to 160 seconds, the address twice as long. So a guesser at one
// address leaves the user time to log in from another; guessers at many can keep a user out, who is told for
// how long. An attempt counts before the password is looked at, so that many at once gain nothing, and a right
// one takes its own count back. What does not exist counts like what does. The counts are in
// "/tmp/session/.failures" and are forgotten after a quarter of an hour, at the latest with the next start of
// the switch.
//
// Any thread of any process may call these. Passwords are in no log.
#ifndef PAVO_WEB_LOGIN_H
#define PAVO_WEB_LOGIN_H

#include <functional>
#include <optional>
#include <source_location>
#include <string>

#include "common/result.h"
#include "common/where.h"
#include "web/sessions.h"

namespace pavo {

// A user as the switch has it now.
struct SwitchUser {
    UserLevel level;
    std::string password;
};
// Asks the switch; nothing when it has no such user, Failed when it does not tell.
using FindUser = std::function<Result<std::optional<SwitchUser>>(const std::string &name)>;

struct Credentials {
    std::string user, password;
    std::string address;  // that the request came from
};

struct Login {
    std::string token;
    Session session;
};

// WrongPassword, also for a user that does not exist; LockedOut while the user or the address has to wait;
// InvalidArgument for what cannot be a name; Failed when the switch does not tell or no session can be
// opened. All are logged.
Result<Login> logIn(const Credentials &credentials, const FindUser &findUser,
                    Where where = std::source_location::current());

// Whether the user of a session is still who logged in: exists, and has the same level and password. A session
// for which this is false is ended, unless it is its own file that cannot be read. A switch that does not tell ends none.
bool isStillTheUser(const std::string &token, const Session &session, const FindUser &findUser,
                    Where where = std::source_location::current());

}  // namespace pavo

#endif
