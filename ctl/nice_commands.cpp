#include "ctl/nice_commands.h"

#include <cstdio>
#include <string>

#include "detection/nice.h"
#include "platform/paths.h"

namespace pavo::ctl {

void setNice(const Output &output, bool enabled) {
    require(writeNiceSetting(enabled));
    output.printDone(enabled ? "on" : "off");
}

void showNice(const Output &output) {
    const NiceSetting setting = readNiceSetting();
    if (setting == NiceSetting::Unreadable)
        throw Failure{ResultCode::OpenFailed, platform::paths::kNiceDetectConfig};
    const bool isOn = setting != NiceSetting::Off;
    if (!isOn && !output.json) {
        std::puts("off");
        return;
    }
    const Presence profile = findAppliedProfile();
    if (profile == Presence::Unknown)
        throw Failure{ResultCode::OpenFailed, platform::paths::kVlanProfileConfigDir};
    const bool isFactoryFresh = profile == Presence::Absent;
    if (output.json) {
        const JsonPtr answer(cJSON_CreateObject());
        cJSON_AddBoolToObject(answer.get(), "enabled", isOn);
        cJSON_AddBoolToObject(answer.get(), "factoryDefault", isFactoryFresh);
        printEnvelope(ResultCode::Success, "nice", printJson(answer.get()).c_str());
    } else {
        std::puts(isFactoryFresh ? "on: the first Nice device makes the profile \"Elan OS\""
                                 : "on: nothing to do, as there is a profile");
    }
}

}  // namespace pavo::ctl
