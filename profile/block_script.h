// How a block's script gets to the switch.
#ifndef PAVO_PROFILE_BLOCK_SCRIPT_H
#define PAVO_PROFILE_BLOCK_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/open_client.h"

// What is special about a block's script run.
struct BlockScript {
    const char *name;    // of the operation, for the log
    const char *suffix;  // of its two files
    const char
        *failure;      // logged with the result when the switch refuses; null: txtCfgApply's line is enough
    std::size_t room;  // for the script with its terminating zero
};

// The script with `value` in every place ("%d", "%s").
std::string scriptFilled(std::string script, const char *place, const std::string &value);

std::string blockInFile(const char *suffix);
std::string blockOutFile(const char *suffix);

// The two steps of a run. 0, or 10000 when the script does not fit or cannot be written (logged).
std::int32_t blockScriptWrite(const BlockScript &block, const std::string &script);
// 0, or the result of txtCfgApply (logged with the block's message).
std::int32_t blockScriptApply(openapiClientHandle_t *client, const BlockScript &block);
void blockFilesRemove(const char *suffix);

// The usual run: write, apply, remove both files. `written` (may be null) tells whether the first step
// succeeded.
std::int32_t blockScriptRun(openapiClientHandle_t *client, const BlockScript &block,
                            const std::string &script, bool *written = nullptr);

#endif
