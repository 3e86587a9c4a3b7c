// How a feature block's script gets to the switch: one file pair for each block, failures in the block's own
// words and under the name of its operation. Blocks of the same kind share file names, so one runs at a time.
#ifndef PAVO_PROFILE_BLOCK_SCRIPT_H
#define PAVO_PROFILE_BLOCK_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

// Room for a script, with the terminating zero; a script that does not fit is refused, never cut.
inline constexpr std::size_t AV_BLOCK_SCRIPT_SIZE = 1024;
inline constexpr std::size_t AV_QOS_SCRIPT_SIZE = 3072;

// What is logged when the switch refuses a script, with or without a place for the result. Empty: the line of
// the apply itself is enough.
class BlockFailure {
  public:
    constexpr BlockFailure() = default;
    consteval BlockFailure(const char *text) {
        if (formatFits<ResultCode>(text, "[%s:%d] "))
            withResult_ = LogFormat<ResultCode>(text);
        else
            plain_ = LogFormat<>(text);
    }

    void log(const Where &where, ResultCode result) const;

  private:
    LogFormat<> plain_;
    LogFormat<ResultCode> withResult_;
};

// What is special about the scripts of a block.
struct BlockScript {
    std::string_view operation;  // for the log
    const char *suffix;          // of its two files
    BlockFailure failure = {};
    std::size_t room = AV_BLOCK_SCRIPT_SIZE;

    // With the line of the call.
    Where where(int line = __builtin_LINE()) const { return {operation, line}; }
    ScriptFiles files() const { return ScriptFiles::forTag(suffix); }
};

// The script with `value` in every place ("%d", "%s").
std::string fillScript(std::string script, std::string_view place, const std::string &value);

// Writes, applies and deletes both files. The step that failed has been logged.
ScriptResult runBlockScript(Switch sw, const BlockScript &block, const std::string &script);

// The same in two steps that leave the files to the caller, also what another operation left there.
ScriptResult writeBlockScript(const BlockScript &block, const std::string &script);
ScriptResult applyBlockScript(Switch sw, const BlockScript &block);
void removeBlockFiles(const BlockScript &block);

inline bool wasWritten(const ScriptResult &result) {
    return result || result.error().step != ScriptFailure::Step::Write;
}

// For callers that do not ask for the step.
inline Result<> toResult(const ScriptResult &result) {
    return result ? Result<>() : failed(result.error().code);
}

}  // namespace pavo

#endif
