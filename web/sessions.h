// Sessions of the web interface: files "/tmp/session/TOKEN" of four lines, the last without a line end:
//
//     admin
//     81234                time of the last use, in seconds of system uptime; 0: it does not expire
//     rw                   "ro" or "rw"; this line is missing for the user "admin"
//     0f3c...              the token
//
// Beside it "TOKEN.user" has a mark of what the user was on the switch at login, so that a session ends when
// the password changes; a session without one has been made by another program. Folder and files belong to
// the user that the web programs run as, with modes 0700 and 0600. A token is letters, digits, '-' and '_', so
// nothing else in the folder can be taken for a session, and no token leads out of it; a link or a folder
// in the place of a session file is none.
//
// Any thread of any process may call these functions: a session is checked and changed under a lock on its
// file. Failures are logged on behalf of the operation that `where` names.
#ifndef PAVO_WEB_SESSIONS_H
#define PAVO_WEB_SESSIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

#include "common/result.h"
#include "common/where.h"

namespace pavo {

enum class HttpMethod : std::uint32_t { Get = 0, Post = 1, Delete = 2, Put = 3 };

// Who may send a request.
enum class Access : std::uint32_t { Anyone = 0, User = 1, Administrator = 2 };

enum class UserLevel {
    ReadOnly,       // may read (GET) what any user may
    ReadWrite,      // may call what any user may
    Administrator,  // the user "admin", and no other
};
inline constexpr std::string_view kAdministrator = "admin";

// "ro", "rw" and "admin".
const char *wordOf(UserLevel level);

// Whether a request counts as a use, which puts the end of its session off.
enum class SessionUse { Extend, Poll };

struct SessionNeed {
    Access access;
    HttpMethod method;
    SessionUse use;
};

struct Session {
    std::string user;
    UserLevel level;
};

// A session that was not used for longer than this ends with the next check.
inline constexpr long kSessionSeconds = 7200;
inline constexpr std::size_t kUserNameMax = 64;  // bytes
// More are not opened at a time. Of one user's, the one that was not used for longest ends before there are more
// than its share: a reader who logs in without end keeps nobody out.
inline constexpr std::size_t kSessionsMax = 1000;
inline constexpr std::size_t kSessionsOfUserMax = 50;

// The session of a token when it may make such a request: it has a file, the level is enough, and it has not
// expired; one that has is deleted. Nothing otherwise.
std::optional<Session> checkSession(const std::string &token, const SessionNeed &need,
                                    Where where = std::source_location::current());

// Opens a session and returns its token: 256 bits of the kernel's random source. Sessions that have expired
// are deleted. InvalidArgument for a name of more than kUserNameMax bytes, without any, or with control
// characters.
Result<std::string> openSession(const Session &session, std::string_view mark,
                                Where where = std::source_location::current());

// The mark that the session was opened with; nothing when it has none. OpenFailed when it cannot be read.
Result<std::optional<std::string>> sessionMark(const std::string &token);

// The switch is asked what it knows of a user with each change, and for reads when it has not been for so long.
inline constexpr long kUserCheckMilliseconds = 2000;
bool wasUserChecked(const std::string &token);
void noteUserCheck(const std::string &token);

// Ends a session; false when there is none of this token.
bool endSession(const std::string &token);

// Makes the folder unless it is there. Failed (logged) when it is somebody else's, or no folder.
Result<> ensureSessionDir(Where where = std::source_location::current());

// Whether two strings are the same, in a time that depends on the length of the second alone.
bool isSameSecret(std::string_view known, std::string_view given);

}  // namespace pavo

#endif
