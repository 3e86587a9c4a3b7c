#include "swapi/cli_session_ops.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "common/log.h"
#include "common/result.h"
#include "platform/cli_port.h"
#include "platform/clock.h"
#include "swapi/cli_client.h"

namespace pavo {
namespace {

using std::chrono::milliseconds;

constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::int32_t kLineMax = 127;
constexpr std::uint32_t kKeepAliveRead = 8190;
// Larger sizes of a user name or a password are none.
constexpr std::uint32_t kCredentialMax = 64u << 10;
constexpr milliseconds kShortPause{10}, kLongPause{1000};

struct Session {
    CliClient client;
    bool loggedIn = false;
    std::string userName, password;  // while it is being opened
};

Session &session() {
    static Session instance;
    return instance;
}

void forget(std::string &secret) {
    explicit_bzero(secret.data(), secret.size());
    secret = {};
}

std::int32_t closeSession() {
    session().client.close();
    session().loggedIn = false;
    return kFailed;
}

bool readCredentials(Switch sw, const Where &where) {
    auto &s = session();
    const auto nameSize = sw.userNameSize();
    if (!nameSize) {
        logError(where, "[%s:%d] Get Username Max Failed (%d).\n", nameSize.error());
        return false;
    }
    if (*nameSize == 0 || *nameSize > kCredentialMax) {
        logError(where, "[%s:%d] Could not allocate memory for Username.\n");
        return false;
    }
    s.userName = std::string("admin").substr(0, *nameSize - 1);
    const auto passwordSize = sw.passwordSize();
    if (!passwordSize) {
        logError(where, "[%s:%d] Get Password Max Failed (%d).\n", passwordSize.error());
        return false;
    }
    if (*passwordSize == 0 || *passwordSize > kCredentialMax) {
        logError(where, "[%s:%d] Could not allocate memory for Password.\n");
        return false;
    }
    auto password = sw.userPassword(s.userName, *passwordSize);
    if (!password) {
        logError(where, "[%s:%d] openapiUserPasswordGet Error: %d.\n", password.error());
        return false;
    }
    s.password = *password;
    forget(*password);
    return true;
}

std::int32_t openSession(Switch sw, const Where &where) {
    auto &s = session();
    if (s.loggedIn)
        return 0;
    if (!readCredentials(sw, where) || !s.client.connect(platform::cliPort(), where))
        return kFailed;
    if (login_to_cli() != 0) {
        logError(where, "[%s:%d] Could not login to the CLI interface.\n");
        return closeSession();
    }
    s.loggedIn = true;
    return 0;
}

std::int32_t keepAlive(const Where &where) {
    auto &s = session();
    if (!s.loggedIn)
        return 0;
    // Answers of an earlier command are none to this one.
    s.client.discardInput();
    if (!s.client.send("\r\n", CliClient::Content::Plain, where))
        return closeSession();
    platform::sleepFor(kLongPause);
    // What the switch has sent may be why it logs this user out.
    return s.client.receive(kKeepAliveRead, where) && s.client.discardInput() ? 0 : closeSession();
}

std::int32_t control(Switch sw, std::int32_t action, const Where &where) {
    switch (action) {
        case CLI_SESSION_OPEN:
            return openSession(sw, where);
        case CLI_SESSION_KEEP_ALIVE:
            return keepAlive(where);
        case CLI_SESSION_QUERY:
            return session().loggedIn ? 0 : kFailed;
        case CLI_SESSION_CLOSE:
            if (session().loggedIn)
                closeSession();
            return 0;
        default:
            return kFailed;
    }
}

std::int32_t sendLine(const char *line) {
    return send_data(line, static_cast<std::int32_t>(strnlen(line, kLineMax + 1)));
}

}  // namespace

std::int32_t fastpath_cli_session_control(Switch sw, std::int32_t action) {
    const std::int32_t result = control(sw, action, std::source_location::current());
    forget(session().userName);
    forget(session().password);
    return result;
}

std::int32_t fastpath_cli_vlan_db_cmd(Switch sw, const char *modeCmd, const char *cmd, char *reply,
                                      std::uint32_t cap) {
    if (modeCmd == nullptr || cmd == nullptr || reply == nullptr || cap < 2) {
        logError("[%s:%d] Invalid argument\n");
        return kFailed;
    }
    reply[0] = '\0';
    // Left over from the last command; and the switch may have closed the session meanwhile.
    if (session().loggedIn && !session().client.discardInput())
        closeSession();
    if (fastpath_cli_session_control(sw, CLI_SESSION_OPEN) != 0)
        return kFailed;
    logDebug("[%s:%d] mode=%s cmd='%s'\n", modeCmd, cmd);
    const auto step = [](const char *line, milliseconds pause) {
        if (sendLine(line) != 0)
            return false;
        platform::sleepFor(pause);
        return true;
    };
    if (!step("end", kShortPause) || !step(modeCmd, kShortPause) || !step(cmd, kLongPause) ||
        receive_data(reply, cap - 1) != 0)
        return closeSession();
    platform::sleepFor(kShortPause);
    if (!step("end", kShortPause) || !step("configure", kShortPause))
        return closeSession();
    return 0;
}

std::int32_t send_data(const char *text, std::int32_t length) {
    if (text == nullptr || length <= 0 || length > kLineMax) {
        logError("[%s:%d] Invalid argument\n");
        return kFailed;
    }
    const std::string_view line(text, strnlen(text, static_cast<std::size_t>(length)));
    return session().client.send(line) ? 0 : kFailed;
}

std::int32_t receive_data(char *buffer, std::uint32_t cap) {
    if (buffer == nullptr || cap == 0) {
        logError("[%s:%d] Invalid argument\n");
        return kFailed;
    }
    const auto text = session().client.receive(cap - 1);
    const std::size_t length = text ? text->size() : 0;
    std::memcpy(buffer, text ? text->data() : "", length);
    buffer[length] = '\0';
    return text ? 0 : kFailed;
}

std::int32_t login_to_cli() {
    return session().client.login(session().userName, session().password);
}

}  // namespace pavo
