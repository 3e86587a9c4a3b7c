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
    for (const auto &interface : manualTrunkInterfacesGet()) {
        begin += scriptFilled(port, "%s", interface);
        if (mtu > 0)
            begin += scriptFilled(scriptFilled(kMtu, "%s", interface), "%d", std::to_string(mtu));
    }
    return begin + "\nexit\n";
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
    return blockScriptRun(client, block("AvConfigGlobalAvbMrpPostEnableEx", "global_avb_mrp_post"),
                          portScript("config\ndot1as\nmvrp\nmvrp periodic state machine\nmmrp\n"
                                     "mmrp periodic state machine\nmsrp\n",
                                     applications ? kPolicyAndApplications : kPolicy, mtu));
}

void AvConfigGlobalAvbMrpPostEnableEx(openapiClientHandle_t *client, bool applications, std::int32_t mtu) {
    avBlockMrpPostEnable(client, applications, mtu);
}

std::int32_t avBlockMrpTimerPre(openapiClientHandle_t *client, std::int32_t mtu) {
    return blockScriptRun(client, block("AvConfigAvbMrpIntfTimerPre", "avb_mrp_intf_timer_pre"),
                          portScript("config\n", kTimers, mtu));
}

void AvConfigAvbMrpIntfTimerPre(openapiClientHandle_t *client, std::int32_t mtu) {
    avBlockMrpTimerPre(client, mtu);
}

std::int32_t avBlockMrpCleanup(openapiClientHandle_t *client, bool removePolicy) {
    return blockScriptRun(client, block("AvConfigAvbMrpIntfCleanup", "avb_mrp_intf_cleanup"),
                          portScript("config\n", removePolicy ? kCleanupWithPolicy : kCleanup, 0));
}

void AvConfigAvbMrpIntfCleanup(openapiClientHandle_t *client, bool removePolicy) {
    avBlockMrpCleanup(client, removePolicy);
}
