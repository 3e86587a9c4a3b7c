// The live session on the switch's command line, for what a script file cannot do: one per process, used
// by one thread at a time. It logs in as "admin" with the password that the switch OS knows, and stays at
// the configuration prompt. Whatever fails closes it, so that the next use begins with a login of its
// own.
//
// No call waits for the switch longer than swapi/cli_client.h says. Each failure is logged once; the
// password never.
#ifndef PAVO_SWAPI_CLI_SESSION_OPS_H
#define PAVO_SWAPI_CLI_SESSION_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

inline constexpr std::int32_t CLI_SESSION_OPEN = 1;        // log in unless that is done
inline constexpr std::int32_t CLI_SESSION_KEEP_ALIVE = 2;  // send something, when logged in
inline constexpr std::int32_t CLI_SESSION_QUERY = 3;       // 0 when logged in, 10000 when not
inline constexpr std::int32_t CLI_SESSION_CLOSE = 4;

// 0 or 10000; 10000 for any other action.
std::int32_t fastpath_cli_session_control(Switch sw, std::int32_t action);

// Runs `cmd` in the mode that `modeCmd` enters from privileged mode ("vlan database"), and returns to
// configuration mode. `reply` receives what the switch has sent since the call began, prompts included,
// cut and terminated. Opens the session if it is closed, or was closed by the switch. Both commands are
// lines of 1 to 127 characters that the caller has checked. 0; 10000 when an argument is missing, `cap`
// is less than 2, or the session fails.
std::int32_t fastpath_cli_vlan_db_cmd(Switch sw, const char *modeCmd, const char *cmd, char *reply,
                                      std::uint32_t cap);

// --- the steps

// Sends a line of `length` characters, 1 to 127. 0 or 10000.
std::int32_t send_data(const char *text, std::int32_t length);
// At most cap - 1 bytes of what the switch sends, terminated. 0; 10000 with an empty buffer when nothing
// comes.
std::int32_t receive_data(char *buffer, std::uint32_t cap);
// 0 at the configuration prompt; 10000 on an unknown prompt; -2 when nothing comes or the connection ends.
std::int32_t login_to_cli();

}  // namespace pavo

#endif
