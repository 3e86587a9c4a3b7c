#include "profile/avb_ports.h"

#include <algorithm>
#include <utility>

#include "common/files.h"
#include "common/json.h"
#include "common/log.h"
#include "platform/paths.h"
#include "swapi/script_file.h"

namespace pavo {
namespace {

constexpr std::int32_t kPortMax = 912;
constexpr const char *kPhysicalKey = "physicalPort";
constexpr const char *kLagKey = "lagPort";
constexpr BlockFailure kFailed = "[%s:%d] Apply cli for AVB MRP interfaces failed. (result = %d)\n";

constexpr BlockScript portBlock(std::string_view operation, const char *suffix) {
    return {operation, suffix, kFailed, SIZE_MAX};  // as long as there are ports
}

std::vector<std::uint32_t> numbersOf(const cJSON *config, const char *key) {
    std::vector<std::uint32_t> numbers;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, member(config, key)) {
        const auto number = integerOf(item);
        if (!number || *number < 1 || *number > kPortMax)
            continue;
        const auto port = static_cast<std::uint32_t>(*number);
        if (std::ranges::find(numbers, port) == numbers.end())
            numbers.push_back(port);
    }
    return numbers;
}

ManualTrunks trunksOf(const cJSON *config) {
    return {numbersOf(config, kPhysicalKey), numbersOf(config, kLagKey)};
}

// What a port gets.
constexpr const char *kMtu = "interface %s\nmtu %d\nexit\n";
constexpr const char *kTimers =
    "interface %s\nmrp jointime 20\nmrp leavetime 500\nmrp leavealltime 1000\nexit\n";
constexpr const char *kPolicy =
    "interface %s\nservice-policy in POLICY_AV\nmrp jointime 20\nmrp leavetime 500\nmrp leavealltime 1000\n"
    "exit\n";
constexpr const char *kPolicyAndApplications =
    "interface %s\nservice-policy in POLICY_AV\nmvrp\nmmrp\nmsrp\ndot1as\n"
    "mrp jointime 20\nmrp leavetime 500\nmrp leavealltime 1000\nexit\n";
// The leave time goes to 100, not back to 500: 500 is for ports that reserve streams.
constexpr const char *kCleanup =
    "interface %s\nmrp jointime 20\nmrp leavetime 100\nmrp leavealltime 1000\n"
    "no mvrp\nno mmrp\nno msrp\nno dot1as\nexit\n";
constexpr const char *kCleanupWithPolicy =
    "interface %s\nmrp jointime 20\nmrp leavetime 100\nmrp leavealltime 1000\n"
    "no service-policy in POLICY_AV\nno mvrp\nno mmrp\nno msrp\nno dot1as\nexit\n";

// `begin`, the lines of every port and, if wanted, its MTU, and the end of the script.
std::string portScript(std::string begin, const char *port, std::int32_t mtu) {
    for (const auto &interface : readManualTrunks()) {
        begin += fillScript(port, "%s", interface);
        if (mtu > 0)
            begin += fillScript(fillScript(kMtu, "%s", interface), "%d", std::to_string(mtu));
    }
    return begin + "\nexit\n";
}

}  // namespace

std::vector<std::string> parseManualTrunks(const std::string &text) {
    const auto trunks = trunksOf(JsonPtr(cJSON_Parse(text.c_str())).get());
    std::vector<std::string> names;
    names.reserve(trunks.ports.size() + trunks.lags.size());
    for (const auto port : trunks.ports)
        names.push_back(portCliName(IfNum(port)));
    for (const auto lag : trunks.lags)
        names.push_back(lagCliName(lag));
    return names;
}

std::vector<std::string> readManualTrunks() {
    return parseManualTrunks(readFile(platform::paths::kManualTrunkConfig, JSON_FILE_MAX).value_or(""));
}

Result<ManualTrunks> loadManualTrunks(Where where) {
    const auto text = readFile(platform::paths::kManualTrunkConfig, JSON_FILE_MAX, where);
    if (!text && !fileExists(platform::paths::kManualTrunkConfig))
        return ManualTrunks{};
    const JsonPtr config(text ? cJSON_Parse(text->c_str()) : nullptr);
    if (cJSON_IsObject(config.get()))
        return trunksOf(config.get());
    logError(where, "[%s:%d] no list of trunks: %s\n", std::string(platform::paths::kManualTrunkConfig));
    return failed(ResultCode::Failed, "the list of manual trunks cannot be read");
}

Result<> writeManualTrunks(std::span<const IfNum> physicalPorts, std::span<const IfNum> lagPorts,
                           Where where) {
    const JsonPtr config(cJSON_CreateObject());
    if (!addNumbers(config.get(), kPhysicalKey, physicalPorts) ||
        !addNumbers(config.get(), kLagKey, lagPorts))
        return failed(ResultCode::Failed);
    const std::string text = printJsonLine(config.get());
    if (text.empty())
        return failed(ResultCode::Failed);
    return writeScriptFile(platform::paths::kManualTrunkConfig, "w", text, where);
}

Result<> switchAvbPortsOn(Switch sw, bool applications, std::int32_t mtu) {
    return toResult(runBlockScript(sw, portBlock("AvConfigGlobalAvbMrpPostEnableEx", "global_avb_mrp_post"),
                                   portScript("config\ndot1as\nmvrp\nmvrp periodic state machine\nmmrp\n"
                                              "mmrp periodic state machine\nmsrp\n",
                                              applications ? kPolicyAndApplications : kPolicy, mtu)));
}

SettingWrites avbPortWrites(bool on) {
    return parseSettingWrites(portScript("config\n", on ? kPolicyAndApplications : kCleanupWithPolicy, 0));
}

Result<> setAvbPortTimers(Switch sw, std::int32_t mtu) {
    return toResult(runBlockScript(sw, portBlock("AvConfigAvbMrpIntfTimerPre", "avb_mrp_intf_timer_pre"),
                                   portScript("config\n", kTimers, mtu)));
}

Result<> switchAvbPortsOff(Switch sw, bool removePolicy) {
    return toResult(runBlockScript(sw, portBlock("AvConfigAvbMrpIntfCleanup", "avb_mrp_intf_cleanup"),
                                   portScript("config\n", removePolicy ? kCleanupWithPolicy : kCleanup, 0)));
}

}  // namespace pavo
