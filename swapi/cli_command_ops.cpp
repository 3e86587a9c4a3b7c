#include "swapi/cli_command_ops.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <string>

#include "common/files.h"
#include "common/log.h"
#include "platform/paths.h"
#include "swapi/cli_apply_ops.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

using platform::paths::kCommandIn;
using platform::paths::kCommandLock;
using platform::paths::kCommandOut;

constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::size_t kShowMax = 255;

void removeFiles() {
    removeFile(kCommandIn);
    removeFile(kCommandOut);
}

bool refuseMissing(bool missing, const Where &where = std::source_location::current()) {
    if (missing)
        logError(where, "[%s:%d] Invalid argument\n");
    return missing;
}

bool refuseUnlocked(const FileLock &lock, const Where &where = std::source_location::current()) {
    if (!lock.held())
        logError(where, "[%s:%d] cannot lock %s\n", kCommandLock);
    return !lock.held();
}

std::int32_t configureBy(Switch sw, const std::string &cmd, const Where &where) {
    if (!writeScriptFile(kCommandIn, "w", "configure\n" + cmd + "\nend\n", where))
        return kFailed;
    const std::int32_t result = txtCfgApply(sw, kCommandIn, kCommandOut);
    if (result != 0)
        logError(where, "[%s:%d] openapiTxtCfgApply failed\n");
    return result;
}

std::int32_t showBy(Switch sw, const std::string &cmd, char *reply, std::uint32_t cap, const Where &where) {
    // The output goes where commands come from otherwise.
    if (!sw.tryCaptureShow(cmd.substr(0, kShowMax), kCommandIn)) {
        logError(where, "[%s:%d] Failed to generate output %s file via openAPI\n", kCommandIn);
        return codeOf(ResultCode::OpenFailed);
    }
    try {
        const auto text = readFile(kCommandIn, SIZE_MAX, where);
        if (!text) {
            logError(where, "[%s:%d] Failed to open file %s\n", kCommandIn);
            return codeOf(ResultCode::OpenFailed);
        }
        if (cap > 0) {
            const std::size_t length = std::min<std::size_t>(cap - 1, text->size());
            std::memcpy(reply, text->data(), length);
            reply[length] = '\0';
        }
        return 0;
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Failed to allocate memory\n");
        return codeOf(ResultCode::OutOfMemory);
    }
}

std::int32_t failedOr(std::int32_t result) {
    return result == 0 ? 0 : kFailed;
}

}  // namespace

std::int32_t fastpath_cli_cmd_int(Switch sw, const char *cmd, char *reply, std::uint32_t cap,
                                  std::int32_t configure) {
    if (refuseMissing(sw.handle() == nullptr || cmd == nullptr || reply == nullptr))
        return kFailed;
    const FileLock lock(kCommandLock);
    if (refuseUnlocked(lock))
        return kFailed;
    removeFiles();
    const Where where = std::source_location::current();
    return configure != 0 ? configureBy(sw, cmd, where) : showBy(sw, cmd, reply, cap, where);
}

std::int32_t fastpath_cli_cmd(Switch sw, const char *cmd, char *reply, std::uint32_t cap,
                              std::int32_t configure) {
    return failedOr(fastpath_cli_cmd_int(sw, cmd, reply, cap, configure));
}

std::int32_t fastpath_cli_config_cmd(Switch sw, const char *cmd, char *reply, std::uint32_t cap) {
    return failedOr(fastpath_cli_cmd_int(sw, cmd, reply, cap, 1));
}

std::int32_t fastpath_cli_splmode_cmd_int(Switch sw, const char *cmd1, const char *cmd2) {
    if (refuseMissing(sw.handle() == nullptr || cmd1 == nullptr || cmd2 == nullptr))
        return kFailed;
    const FileLock lock(kCommandLock);
    if (refuseUnlocked(lock))
        return kFailed;
    removeFiles();
    const std::string script =
        std::string("end\nconfigure\n") + cmd1 + "\n" + cmd2 + "\nend\nconfigure\nend\nconfigure\n";
    if (!writeScriptFile(kCommandIn, "w", script))
        return kFailed;
    const std::int32_t result = txtCfgApply(sw, kCommandIn, kCommandOut);
    if (result == 0)
        removeFiles();
    else
        logError("[%s:%d] openapiTxtCfgApply failed for interface dot1p queue map\n");
    return result;
}

std::int32_t fastpath_cli_splmode_cmd(Switch sw, const char *cmd1, const char *cmd2) {
    return fastpath_cli_splmode_cmd_int(sw, cmd1, cmd2);
}

std::int32_t fastpath_cli_splmode_config_cmd(Switch sw, const char *cmd1, const char *cmd2) {
    return failedOr(fastpath_cli_splmode_cmd_int(sw, cmd1, cmd2));
}

}  // namespace pavo
