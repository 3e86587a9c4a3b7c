#include "vlan/switchport_mode.h"

#include "common/text.h"
#include "platform/paths.h"
#include "swapi/switch_settings.h"

namespace pavo {
namespace {

constexpr std::string_view kModeLine = "switchport mode auto";
constexpr const char *kTag = "switchport_mode_auto";

}  // namespace

bool parseSwitchportModeAuto(std::string_view runningConfig) {
    bool on = false;
    forEachLine(runningConfig, runningConfig.size() + 1, [&](std::string_view line) {
        const auto before = line.substr(0, line.find(kModeLine));
        // A text that somebody has given a port or a VLAN is no setting.
        on = before.size() < line.size() && before.find('"') == std::string_view::npos &&
             before.find("description ") == std::string_view::npos && !before.ends_with("no ");
        return !on;
    });
    return on;
}

Result<bool> readSwitchportModeAuto(Switch sw, Where where) {
    return underLock(
        platform::paths::kSwitchportModeLock,
        [&]() -> Result<bool> {
            const auto shown = sw.show("show running-config", ScriptFiles::forTag(kTag).out, where);
            if (!shown)
                return std::unexpected(shown.error());
            return parseSwitchportModeAuto(*shown);
        },
        where);
}

Result<> setSwitchportModeAuto(Switch sw, bool on, Where where) {
    return underLock(
        platform::paths::kSwitchportModeLock,
        [&]() -> Result<> {
            const auto done = sw.apply(
                on ? "configure\nswitchport mode auto\nexit\n" : "configure\nno switchport mode auto\nexit\n",
                ScriptFiles::forTag(kTag), where);
            return done ? Result<>()
                        : failed(done.error().code, "the automatic switchport mode cannot be set");
        },
        where);
}

}  // namespace pavo
