#include "swapi/cli_apply.h"

#include <cstdio>
#include <cstring>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"

namespace {

// What the switch OS has room for in a show capture, with the terminating zero.
constexpr std::size_t kShowCommandSize = 255;
constexpr std::size_t kShowFileSize = 96;

// The calls take texts they only read as writable.
open_buffdesc descriptor(const char *text) {
    return {static_cast<std::uint32_t>(std::strlen(text) + 1), const_cast<char *>(text)};
}

using ApplyCall = open_error_t (*)(openapiClientHandle_t *, open_buffdesc *, open_buffdesc *);

std::int32_t scriptApply(ApplyCall apply, openapiClientHandle_t *client, const char *inName,
                         const char *outName) {
    open_buffdesc in = descriptor(inName);
    open_buffdesc out = descriptor(outName);
    const open_error_t result = apply(client, &in, &out);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Bad return code trying to apply the configuration. (result = %d)\n", result);
    return RESULT_FAILED;
}

bool applyArgumentsGiven(const char *inName, const char *outName) {
    if (inName != nullptr && outName != nullptr)
        return true;
    LOG_ERROR("[%s:%d] txtCfgApply: Invalid argument\r\n");
    return false;
}

// Write, flush and close; all three can be the one that finds the disk full.
bool textWrite(FilePtr file, const char *text) {
    const bool written = std::fputs(text, file.get()) >= 0 && std::fflush(file.get()) == 0;
    return std::fclose(file.release()) == 0 && written;
}

}  // namespace

std::int32_t txtCfgApply(openapiClientHandle_t *client, const char *inName, const char *outName) {
    if (!applyArgumentsGiven(inName, outName))
        return RESULT_INVALID_ARGUMENT;
    LOG_TRACE("[%s:%d] inputName=%s, outputName=%s\n", inName, outName);
    return scriptApply(rpcclt_openapiTxtCfgApply, client, inName, outName);
}

std::int32_t txtCfgNDCApply(openapiClientHandle_t *client, const char *inName, const char *outName) {
    if (!applyArgumentsGiven(inName, outName))
        return RESULT_INVALID_ARGUMENT;
    return scriptApply(rpcclt_openapiTxtCfgNDCApply, client, inName, outName);
}

std::int32_t txtCfgNDCApplyUnCompress(openapiClientHandle_t *client, const char *inName,
                                      const char *outName) {
    return txtCfgNDCApply(client, inName, outName);
}

std::int32_t cliShowExecuteToFile(openapiClientHandle_t *client, const char *command, const char *outName) {
    if (command == nullptr || outName == nullptr) {
        LOG_ERROR("[%s:%d] cliShowExecuteToFile: Invalid argument\r\n");
        return RESULT_INVALID_ARGUMENT;
    }
    const std::string shownCommand(command, strnlen(command, kShowCommandSize - 1));
    const std::string shownFile(outName, strnlen(outName, kShowFileSize - 1));
    fileRemove(shownFile.c_str());  // no reader may take an earlier output for this one
    open_buffdesc commandText = descriptor(shownCommand.c_str());
    open_buffdesc fileText = descriptor(shownFile.c_str());
    const open_error_t result = rpcclt_openapiCliShowExecuteToFile(client, &commandText, &fileText);
    if (result == OPEN_E_NONE)
        return RESULT_SUCCESS;
    LOG_ERROR("[%s:%d] Execute show cmd faile, result:%d\r\n", result);
    return RESULT_FAILED;
}

std::int32_t writeFile(const char *path, const char *mode, const char *text) {
    if (path == nullptr || mode == nullptr || text == nullptr) {
        LOG_ERROR("[%s:%d] Content error...\r\n");
        return RESULT_INVALID_ARGUMENT;
    }
    FilePtr file = fileOpen(path, mode);
    if (file == nullptr) {
        LOG_ERROR("[%s:%d] Open dir error...%s\r\n", path);
        return -1;
    }
    if (!textWrite(std::move(file), text)) {
        LOG_ERROR("[%s:%d] Write file error...%s\r\n", path);
        if (mode[0] == 'w')
            fileRemove(path);  // half a script is worse than none
        return -1;
    }
    return RESULT_SUCCESS;
}

std::int32_t writeToFile(const char *path, const char *text) {
    const std::int32_t result = writeFile(path, "w", text);
    return result == -1 ? RESULT_FAILED : result;
}

std::int32_t writeAppendToFile(const char *path, const char *text) {
    const std::int32_t result = writeFile(path, "a", text);
    return result == -1 ? RESULT_FAILED : result;
}

std::int32_t cliScriptRun(openapiClientHandle_t *client, const std::string &script, const char *inName,
                          const char *outName, bool *applied) {
    fileRemove(inName);
    fileRemove(outName);
    std::int32_t result = writeToFile(inName, script.c_str());
    const bool written = result == RESULT_SUCCESS;
    if (applied != nullptr)
        *applied = written;
    if (written)
        result = txtCfgApply(client, inName, outName);
    fileRemove(inName);
    fileRemove(outName);
    return result;
}
