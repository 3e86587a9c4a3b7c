#include "profile/block_script.h"

#include "common/files.h"
#include "common/log.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

ScriptResult failedAt(ScriptFailure::Step step, ResultCode code) {
    return std::unexpected(ScriptFailure{step, code});
}

// Half a script would be another configuration.
bool fits(const BlockScript &block, const std::string &script) {
    if (script.size() < block.room)
        return true;
    logError(block.where(), "[%s:%d] Script of %zu bytes does not fit.\r\n", script.size());
    return false;
}

// Logs what the block says of a failed step, and passes it on.
ScriptResult reported(const BlockScript &block, ScriptResult result) {
    if (!result && result.error().step == ScriptFailure::Step::Write)
        logError(block.where(), "[%s:%d] Failed to write configuration to file.\r\n");
    else if (!result)
        block.failure.log(block.where(), result.error().code);
    return result;
}

}  // namespace

void BlockFailure::log(const Where &where, ResultCode result) const {
    logAt<>(LOG_LEVEL_ERROR, where, plain_);
    logAt<ResultCode>(LOG_LEVEL_ERROR, where, withResult_, result);
}

std::string fillScript(std::string script, std::string_view place, const std::string &value) {
    for (auto at = script.find(place); at != std::string::npos; at = script.find(place, at + value.size()))
        script.replace(at, place.size(), value);
    return script;
}

ScriptResult runBlockScript(Switch sw, const BlockScript &block, const std::string &script) {
    if (!fits(block, script))
        return failedAt(ScriptFailure::Step::Write, ResultCode::Failed);
    return reported(block, sw.apply(script, block.files(), block.where()));
}

ScriptResult writeBlockScript(const BlockScript &block, const std::string &script) {
    if (!fits(block, script))
        return failedAt(ScriptFailure::Step::Write, ResultCode::Failed);
    if (writeScriptFile(block.files().in, "w", script, block.where()))
        return {};
    return reported(block, failedAt(ScriptFailure::Step::Write, ResultCode::Failed));
}

ScriptResult applyBlockScript(Switch sw, const BlockScript &block) {
    const auto files = block.files();
    const auto applied = sw.applyFile(files.in, files.out, block.where());
    return applied ? ScriptResult()
                   : reported(block, failedAt(ScriptFailure::Step::Apply, applied.error().code));
}

void removeBlockFiles(const BlockScript &block) {
    const auto files = block.files();
    removeFile(files.in);
    removeFile(files.out);
}

}  // namespace pavo
