// The two ways to the switch's CLI: a script file that the switch OS applies, and a show command whose output
// it writes to a file; and the small file writers that scripts are built with.
//
// Paths are fixed paths (platform/paths.h). The operations hold no state; any thread may call them, but two
// callers must not use the same file at once. Each failure is one ERROR line.
#ifndef PAVO_SWAPI_CLI_APPLY_OPS_H
#define PAVO_SWAPI_CLI_APPLY_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// Has the switch OS apply the script file; what the CLI prints goes to the output file and is not looked at.
// 0; 10003 when a path is null; 10000 when the switch OS refuses.
std::int32_t txtCfgApply(Switch sw, const char *inName, const char *outName);

// The same through the switch OS's second apply entry.
std::int32_t txtCfgNDCApply(Switch sw, const char *inName, const char *outName);
std::int32_t txtCfgNDCApplyUnCompress(Switch sw, const char *inName, const char *outName);

// Runs a show command (cut to 254 characters) into the output file (path cut to 95 characters), which is
// deleted first. 0; 10003 when an argument is null; 10000 when the command fails.
std::int32_t cliShowExecuteToFile(Switch sw, const char *command, const char *outName);

// Write or append a string to a file. 0; 10003 when an argument is null; 10000 when the file cannot be opened
// or the string cannot be written whole. A file written anew is deleted then.
std::int32_t writeToFile(const char *path, const char *text);
std::int32_t writeAppendToFile(const char *path, const char *text);

// The same with any fopen mode; -1 instead of 10000.
std::int32_t writeFile(const char *path, const char *mode, const char *text);

}  // namespace pavo

#endif
