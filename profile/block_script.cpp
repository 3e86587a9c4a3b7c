#include "profile/block_script.h"

#include <cstring>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "swapi/cli_apply.h"

std::string scriptFilled(std::string script, const char *place, const std::string &value) {
    for (auto at = script.find(place); at != std::string::npos; at = script.find(place, at + value.size()))
        script.replace(at, std::strlen(place), value);
    return script;
}

std::string blockInFile(const char *suffix) {
    return platform::paths::kScriptDir + std::string("pavo_in_") + suffix;
}

std::string blockOutFile(const char *suffix) {
    return platform::paths::kScriptDir + std::string("pavo_out_") + suffix;
}

std::int32_t blockScriptWrite(const BlockScript &block, const std::string &script) {
    // Half a script would be another configuration.
    if (script.size() >= block.room) {
        devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] Script of %zu bytes does not fit.\r\n", block.name, __LINE__,
                  script.size());
        return RESULT_FAILED;
    }
    if (writeToFile(blockInFile(block.suffix).c_str(), script.c_str()) == RESULT_SUCCESS)
        return RESULT_SUCCESS;
    devmgrLog(LOG_LEVEL_ERROR, "[%s:%d] Failed to write configuration to file.\r\n", block.name, __LINE__);
    return RESULT_FAILED;
}

std::int32_t blockScriptApply(openapiClientHandle_t *client, const BlockScript &block) {
    const auto result =
        txtCfgApply(client, blockInFile(block.suffix).c_str(), blockOutFile(block.suffix).c_str());
    // Messages without a place for the result ignore it.
    if (result != RESULT_SUCCESS && block.failure != nullptr)
        devmgrLog(LOG_LEVEL_ERROR, block.failure, block.name, __LINE__, result);
    return result;
}

void blockFilesRemove(const char *suffix) {
    fileRemove(blockInFile(suffix).c_str());
    fileRemove(blockOutFile(suffix).c_str());
}

std::int32_t blockScriptRun(openapiClientHandle_t *client, const BlockScript &block,
                            const std::string &script, bool *written) {
    auto result = blockScriptWrite(block, script);
    if (written != nullptr)
        *written = result == RESULT_SUCCESS;
    if (result == RESULT_SUCCESS)
        result = blockScriptApply(client, block);
    blockFilesRemove(block.suffix);
    return result;
}
