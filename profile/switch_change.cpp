#include "profile/switch_change.h"

#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

#include "common/log.h"
#include "platform/paths.h"
#include "profile/switch_script.h"
#include "swapi/poll.h"

namespace pavo {
namespace {

std::string processTag(const char *name) {
    return std::string(name) + "_" + std::to_string(getpid());
}

}  // namespace

Result<SwitchState> readSwitchState(Switch sw, Where where) {
    const auto path = platform::paths::kScriptDir + processTag("pavo_out_show_running-config");
    const auto text = sw.show("show running-config", path, where);
    if (!text)
        return failed(text.error().code);
    return parseSwitchState(*text);
}

Result<> changeSwitch(Switch sw, const SwitchState &from, const SwitchState &to, Where where) {
    const auto touched = Touched::by(from, to);
    const auto goal = touched.part(to);
    const auto script = switchScript(touched.part(from), goal);
    if (script.empty())
        return {};
    if (const auto applied = sw.apply(script, ScriptFiles::forTag(processTag("profile")), where); !applied)
        return failed(applied.error().code);
    std::optional<Failure> unreadable;
    const Poll outcome = pollUntil([&] {
        auto now = readSwitchState(sw, where);
        if (!now) {
            unreadable = std::move(now).error();
            return Poll::Stop;
        }
        return switchScript(touched.part(std::move(*now)), goal).empty() ? Poll::Done : Poll::Again;
    });
    if (outcome == Poll::Done)
        return {};
    if (unreadable)
        return std::unexpected(std::move(*unreadable));
    logError(where, "[%s:%d] the switch did not take the configuration after %d reads\n", kPolls);
    return failed(ResultCode::Failed);
}

Result<> restoreSwitch(Switch sw, const SwitchState &before, const SwitchState &wanted, Where where) {
    auto now = readSwitchState(sw, where);
    if (!now)
        return std::unexpected(std::move(now).error());
    const auto touched = Touched::by(before, wanted);
    return changeSwitch(sw, touched.part(std::move(*now)), touched.part(before), where);
}

}  // namespace pavo
