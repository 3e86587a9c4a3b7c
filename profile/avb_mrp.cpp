// 802.1AS and MRP on the ports that carry AVB streams.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "profile/block_script.h"
#include "profile/blocks.h"
#include "swapi/cli_apply.h"

namespace {

constexpr int kPortMax = 912;
constexpr const char *kPhysicalKey = "physicalPort";
constexpr const char *kLagKey = "lagPort";
constexpr const char *kFailed = "[%s:%d] Apply cli for AVB MRP interfaces failed. (result = %d)\n";

constexpr BlockScript block(const char *name, const char *suffix) {
    return {name, suffix, kFailed, SIZE_MAX};  // as long as there are ports
}

void addInterfaces(const cJSON *config, const char *key, const std::string &prefix,
                   std::vector<std::string> *out) {
    const cJSON *number = nullptr;
    cJSON_ArrayForEach(number, cJSON_GetObjectItemCaseSensitive(config, key)) {
        if (!cJSON_IsNumber(number) || number->valueint < 1 || number->valueint > kPortMax ||
            number->valuedouble != std::trunc(number->valuedouble))
            continue;
        auto name = prefix + std::to_string(number->valueint);
        if (std::find(out->begin(), out->end(), name) == out->end())
            out->push_back(std::move(name));
    }
}

bool addNumbers(cJSON *config, const char *key, std::span<const std::uint32_t> numbers) {
    cJSON *array = cJSON_AddArrayToObject(config, key);
    return array != nullptr && std::all_of(numbers.begin(), numbers.end(), [&](std::uint32_t number) {
               return cJSON_AddItemToArray(array, cJSON_CreateNumber(number)) != 0;
           });
}

// `begin`, the lines for every port, and the end of the script.
std::string portScript(std::string script, const std::string &lines, std::int32_t mtu) {
    for (const auto &interface : manualTrunkInterfacesGet()) {
        const auto enter = "interface " + interface + "\n";
        script += enter + lines + "exit\n";
        if (mtu > 0)
            script += enter + "mtu " + std::to_string(mtu) + "\nexit\n";
    }
    return script + "\nexit\n";
}

}  // namespace

std::vector<std::string> manualTrunkInterfacesGet() {
    std::vector<std::string> names;
    const JsonPtr config(jsonFileLoad(platform::paths::kManualTrunkConfig));
    if (config != nullptr) {
        addInterfaces(config.get(), kPhysicalKey, "0/", &names);
        addInterfaces(config.get(), kLagKey, "lag ", &names);
    }
    return names;
}

std::int32_t manualTrunkConfigSet(std::span<const std::uint32_t> physicalPorts,
                                  std::span<const std::uint32_t> lagPorts) {
    const JsonPtr config(cJSON_CreateObject());
    if (config == nullptr || !addNumbers(config.get(), kPhysicalKey, physicalPorts) ||
        !addNumbers(config.get(), kLagKey, lagPorts))
        return RESULT_FAILED;
    const TextPtr text(cJSON_PrintUnformatted(config.get()));
    if (text == nullptr)
        return RESULT_FAILED;
    return writeToFile(platform::paths::kManualTrunkConfig, text.get());
}

std::int32_t avBlockMrpPostEnable(openapiClientHandle_t *client, bool applications, std::int32_t mtu) {
    const std::string timers = "mrp jointime 20\nmrp leavetime 500\nmrp leavealltime 1000\n";
    return blockScriptRun(
        client, block("AvConfigGlobalAvbMrpPostEnableEx", "global_avb_mrp_post"),
        portScript(
            "config\ndot1as\nmvrp\nmvrp periodic state machine\nmmrp\nmmrp periodic state machine\nmsrp\n",
            "service-policy in POLICY_AV\n" + std::string(applications ? "mvrp\nmmrp\nmsrp\ndot1as\n" : "") +
                timers,
            mtu));
}

void AvConfigGlobalAvbMrpPostEnableEx(openapiClientHandle_t *client, bool applications, std::int32_t mtu) {
    avBlockMrpPostEnable(client, applications, mtu);
}

std::int32_t avBlockMrpTimerPre(openapiClientHandle_t *client, std::int32_t mtu) {
    return blockScriptRun(
        client, block("AvConfigAvbMrpIntfTimerPre", "avb_mrp_intf_timer_pre"),
        portScript("config\n", "mrp jointime 20\nmrp leavetime 500\nmrp leavealltime 1000\n", mtu));
}

void AvConfigAvbMrpIntfTimerPre(openapiClientHandle_t *client, std::int32_t mtu) {
    avBlockMrpTimerPre(client, mtu);
}

// The leave time goes to 100, not back to 500: 500 is for ports that reserve streams.
std::int32_t avBlockMrpCleanup(openapiClientHandle_t *client, bool removePolicy) {
    return blockScriptRun(client, block("AvConfigAvbMrpIntfCleanup", "avb_mrp_intf_cleanup"),
                          portScript("config\n",
                                     "mrp jointime 20\nmrp leavetime 100\nmrp leavealltime 1000\n" +
                                         std::string(removePolicy ? "no service-policy in POLICY_AV\n" : "") +
                                         "no mvrp\nno mmrp\nno msrp\nno dot1as\n",
                                     0));
}

void AvConfigAvbMrpIntfCleanup(openapiClientHandle_t *client, bool removePolicy) {
    avBlockMrpCleanup(client, removePolicy);
}
