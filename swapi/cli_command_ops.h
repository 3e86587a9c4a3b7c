// Single commands by way of files. The files are the same for all callers, who wait for each other, in
// all processes. Commands go into the script as they are: the caller has checked them. Any thread may
// call these.
#ifndef PAVO_SWAPI_CLI_COMMAND_OPS_H
#define PAVO_SWAPI_CLI_COMMAND_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// With `configure` other than 0, applies the command in configuration mode and leaves `reply` alone. With
// 0, runs it as a show command (cut to 255 characters); `reply` receives what it prints, cut to `cap` and
// terminated. 0; 10000 when an argument is missing or the switch refuses the script; 10016 when there is
// no output to be read; 10005 without memory for it.
std::int32_t fastpath_cli_cmd_int(Switch sw, const char *cmd, char *reply, std::uint32_t cap,
                                  std::int32_t configure);
// The same, with 10000 for every failure; the second one always configures.
std::int32_t fastpath_cli_cmd(Switch sw, const char *cmd, char *reply, std::uint32_t cap,
                              std::int32_t configure);
std::int32_t fastpath_cli_config_cmd(Switch sw, const char *cmd, char *reply, std::uint32_t cap);

// Applies two commands, the second in the mode that the first one enters from configuration mode. When
// that fails, the files stay for somebody to look at. 0; 10000 when a file cannot be written or the
// switch refuses the script.
std::int32_t fastpath_cli_splmode_cmd_int(Switch sw, const char *cmd1, const char *cmd2);
// The same, with 10000 when an argument is missing; the second one has it for every failure.
std::int32_t fastpath_cli_splmode_cmd(Switch sw, const char *cmd1, const char *cmd2);
std::int32_t fastpath_cli_splmode_config_cmd(Switch sw, const char *cmd1, const char *cmd2);

}  // namespace pavo

#endif
