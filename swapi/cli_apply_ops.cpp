#include "swapi/cli_apply_ops.h"

#include "common/log.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

constexpr std::int32_t kInvalidArgument = codeOf(ResultCode::InvalidArgument);

bool refuseMissing(const char *inName, const char *outName, Where where = std::source_location::current()) {
    if (inName != nullptr && outName != nullptr)
        return false;
    logError(where, "[%s:%d] txtCfgApply: Invalid argument\r\n");
    return true;
}

// 0; `failure` when the file cannot be written.
std::int32_t write(const char *path, const char *mode, const char *text, std::int32_t failure, Where where) {
    if (path == nullptr || mode == nullptr || text == nullptr) {
        logError(where, "[%s:%d] Content error...\r\n");
        return kInvalidArgument;
    }
    return writeScriptFile(path, mode, text, where) ? 0 : failure;
}

}  // namespace

std::int32_t txtCfgApply(Switch sw, const char *inName, const char *outName) {
    return refuseMissing(inName, outName) ? kInvalidArgument : codeOf(sw.applyFile(inName, outName));
}

std::int32_t txtCfgNDCApply(Switch sw, const char *inName, const char *outName) {
    return refuseMissing(inName, outName) ? kInvalidArgument : codeOf(sw.applyFileNdc(inName, outName));
}

std::int32_t txtCfgNDCApplyUnCompress(Switch sw, const char *inName, const char *outName) {
    return refuseMissing(inName, outName) ? kInvalidArgument : codeOf(sw.applyFileNdc(inName, outName));
}

std::int32_t cliShowExecuteToFile(Switch sw, const char *command, const char *outName) {
    if (command != nullptr && outName != nullptr)
        return codeOf(sw.captureShow(command, outName));
    logError("[%s:%d] cliShowExecuteToFile: Invalid argument\r\n");
    return kInvalidArgument;
}

std::int32_t writeFile(const char *path, const char *mode, const char *text) {
    return write(path, mode, text, -1, std::source_location::current());
}

std::int32_t writeToFile(const char *path, const char *text) {
    return write(path, "w", text, codeOf(ResultCode::Failed), std::source_location::current());
}

std::int32_t writeAppendToFile(const char *path, const char *text) {
    return write(path, "a", text, codeOf(ResultCode::Failed), std::source_location::current());
}

}  // namespace pavo
