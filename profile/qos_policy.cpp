// The QoS policy POLICY_AV: a base policy, and classes that some profiles add to it.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/paths.h"
#include "profile/block_script.h"
#include "profile/blocks.h"
#include "swapi/cli_apply.h"

namespace {

constexpr const char *kPolicyBegin = "policy-map POLICY_AV in\n";

constexpr const char *kBasePolicy =
    "configure\n"
    "class-map match-all CLASS_AUDIO1\nmatch ip dscp 46\nexit\n"
    "class-map match-all CLASS_AUDIO2\nmatch ip dscp 34\nexit\n"
    "class-map match-all CLASS_VIDEO\nmatch ip dscp 26\nexit\n"
    "class-map match-all CLASS_LANTERN1\nmatch srcl4port 4443\nexit\n"
    "class-map match-all CLASS_LANTERN2\nmatch dstl4port 4443\nexit\n"
    "policy-map POLICY_AV in\n"
    "class CLASS_AUDIO1\nassign-queue 5\nexit\n"
    "class CLASS_AUDIO2\nassign-queue 5\nexit\n"
    "class CLASS_VIDEO\nassign-queue 4\nexit\n"
    "class CLASS_LANTERN1\nassign-queue 3\nexit\n"
    "class CLASS_LANTERN2\nassign-queue 3\nexit\n"
    "exit\n"
    "queue trust dot1p all\n"
    "queue cos-map all 2 2\nqueue cos-map all 3 3\nqueue cos-map all 4 4\n"
    "queue cos-map all 5 5\nqueue cos-map all 6 6\nqueue cos-map all 7 6\n"
    "service-policy in POLICY_AV\n"
    "exit\n";
constexpr const char *kPtpClassMaps =
    "class-map match-all CLASS_PTP1\nmatch dstip 224.0.1.129 255.255.255.255\nexit\n"
    "class-map match-all CLASS_PTP2\nmatch dstip 224.0.1.130 255.255.255.254\nexit\n"
    "class-map match-all CLASS_PTP3\nmatch dstip 224.0.1.132 255.255.255.255\nexit\n";
constexpr const char *kPtpEntries =
    "class CLASS_PTP1\nassign-queue 6\nexit\n"
    "class CLASS_PTP2\nassign-queue 6\nexit\n"
    "class CLASS_PTP3\nassign-queue 6\nexit\n";
constexpr const char *kTelosClassMap = "class-map match-all CLASS_TELOS\nmatch ip dscp 48\nexit\n";
constexpr const char *kTelosEntry = "class CLASS_TELOS\nassign-queue 4\nexit\n";
constexpr const char *kGdClassMaps =
    "class-map match-all CLASS_GD_CTRL\nmatch dstl4port 18246\nexit\n"
    "class-map match-all CLASS_GD_COM\nmatch dstl4port 18245\nexit\n"
    "class-map match-all CLASS_ESP\nmatch protocol 50\nexit\n"
    "class-map match-all CLASS_AH\nmatch protocol 51\nexit\n";
constexpr const char *kGdEntries =
    "class CLASS_GD_CTRL\nassign-queue 4\nexit\n"
    "class CLASS_GD_COM\nassign-queue 4\nexit\n"
    "class CLASS_ESP\nassign-queue 4\nexit\n"
    "class CLASS_AH\nassign-queue 4\nexit\n";

// Every class that any version of the policy has had; CLSS_AES_ANNOUNCE is how that one was created.
constexpr const char *kAllClasses[] = {
    "CLASS_PTP1",           "CLASS_PTP2",           "CLASS_PTP3",      "CLASS_AUDIO1",
    "CLASS_AUDIO2",         "CLASS_VIDEO",          "CLASS_MDNS",      "CLASS_QDP",
    "CLASS_DANTE_CTRLMON1", "CLASS_DANTE_CTRLMON2", "CLASS_SHURE_SLP", "CLASS_SSDP",
    "CLSS_AES_ANNOUNCE",    "CLASS_LANTERN",        "CLASS_LANTERN1",  "CLASS_LANTERN2",
    "CLASS_GD_CTRL",        "CLASS_GD_COM",         "CLASS_ESP",       "CLASS_AH",
    "CLASS_TELOS"};

constexpr const char *kPolicyDelete =
    "configure\nno service-policy in POLICY_AV\nno policy-map POLICY_AV\nexit\n";
constexpr const char *kAddFailed = "[%s:%d] Apply add global config of qos failed.\r\n";

constexpr BlockScript kAdd{"AvConfigGlobalQosAdd", "global_qos_add", kAddFailed, AV_QOS_SCRIPT_SIZE};

constexpr BlockScript qosDeleteBlock(const char *failure) {
    return {"AvConfigGlobalQosDelete", "global_qos_delete", failure, AV_QOS_SCRIPT_SIZE};
}

constexpr BlockScript profileClassBlock(const char *failure) {
    return {"AvConfigGlobalQosDeleteProfileClass", "global_qos_delete_profile", failure, AV_QOS_SCRIPT_SIZE};
}

std::string classMapsDelete() {
    std::string lines;
    for (const auto *name : kAllClasses)
        lines += std::string("no class-map ") + name + "\n";
    return lines;
}

std::string basePolicy(bool withPtp) {
    std::string script = kBasePolicy;
    if (withPtp) {
        // In front of all other classes, as class maps too.
        script.insert(std::strlen("configure\n"), kPtpClassMaps);
        script.insert(script.find(kPolicyBegin) + std::strlen(kPolicyBegin), kPtpEntries);
    }
    return script;
}

}  // namespace

std::int32_t parsePolicyMapClasses(openapiClientHandle_t *client, bool *telos, bool *gd) {
    static constexpr const char *kGdNames[] = {"CLASS_GD_COM", "CLASS_GD_CTRL", "CLASS_ESP", "CLASS_AH"};
    *telos = *gd = false;
    char path[64];
    std::snprintf(path, sizeof path, platform::paths::kPolicyMapShow, static_cast<int>(getpid()));
    if (cliShowExecuteToFile(client, "show policy-map", path) != RESULT_SUCCESS) {
        LOG_ERROR("[%s:%d] Failed to execute 'show policy-map' CLI command.\r\n");
        return -1;
    }
    std::int32_t count = -1;
    if (const FilePtr file = fileOpen(path, "r"); file == nullptr) {
        LOG_ERROR("[%s:%d] Cannot open output file: %s\r\n", path);
    } else {
        count = 0;
        char line[1024];
        while (std::fgets(line, sizeof line, file.get()) != nullptr) {
            count += std::strstr(line, "CLASS_") != nullptr ? 1 : 0;
            *telos = *telos || std::strstr(line, "CLASS_TELOS") != nullptr;
            for (const auto *name : kGdNames)
                *gd = *gd || std::strstr(line, name) != nullptr;
        }
    }
    fileRemove(path);
    return count;
}

std::int32_t AvConfigGlobalQosRebuildDynamic(std::string *script, const char *classMaps,
                                             const char *policyEntries) {
    const auto at = script->find(kPolicyBegin);
    if (at == std::string::npos) {
        LOG_ERROR("[%s:%d] POLICY_AV block not found\n");
        return RESULT_FAILED;
    }
    try {
        auto rebuilt = script->substr(0, at) + classMaps + kPolicyBegin + policyEntries +
                       script->substr(at + std::strlen(kPolicyBegin));
        if (rebuilt.size() >= AV_QOS_SCRIPT_SIZE)
            rebuilt.resize(AV_QOS_SCRIPT_SIZE - 1);
        *script = std::move(rebuilt);
    } catch (const std::bad_alloc &) {
        LOG_ERROR("[%s:%d] Memory allocation failed\n");
        return RESULT_FAILED;
    }
    return RESULT_SUCCESS;
}

std::int32_t avBlockQosAdd(openapiClientHandle_t *client, std::uint64_t features) {
    bool telos = false, gd = false;
    const auto found = parsePolicyMapClasses(client, &telos, &gd);
    if (found < 0)
        return RESULT_FAILED;  // rebuilding blindly would drop the classes of other profiles
    auto script = basePolicy((features & AV_QOS_NO_PTP) == 0);
    if ((features & AV_QOS_TELOS) != 0 || (found > 0 && telos))
        AvConfigGlobalQosRebuildDynamic(&script, kTelosClassMap, kTelosEntry);
    if ((features & AV_QOS_GD) != 0 || (found > 0 && telos && gd))
        AvConfigGlobalQosRebuildDynamic(&script, kGdClassMaps, kGdEntries);
    const auto deleted = avBlockQosDelete(client, AV_QOS_DELETE_POLICY);
    const auto added = blockScriptRun(client, kAdd, script);
    return deleted != RESULT_SUCCESS ? deleted : added;
}

void AvConfigGlobalQosAdd(openapiClientHandle_t *client, std::int32_t, std::uint64_t features) {
    avBlockQosAdd(client, features);
}

std::int32_t avBlockQosDelete(openapiClientHandle_t *client, std::int32_t mode) {
    const struct {
        BlockScript block;
        std::string script;
        bool wanted;
    } steps[] = {
        {qosDeleteBlock("[%s:%d] Apply delete global config of qos failed G1.\r\n"), kPolicyDelete, true},
        {qosDeleteBlock("[%s:%d] Apply delete global config of cos failed.\r\n"),
         "configure\nno queue cos-queue strict all 0 1 2 3 4 5 6\nexit\n", true},
        {qosDeleteBlock("[%s:%d] Apply delete global config of qos failed G2.\r\n"),
         "configure\n" + classMapsDelete() + "exit\n", true},
        {qosDeleteBlock("[%s:%d] Apply delete global config of qos failed G3.\r\n"),
         "configure\nno queue trust all\nno queue cos-map all\n"
         "no queue cos-queue strict all 0 1 2 3 4 5 6\nexit\n",
         (mode & 4) != 0},
    };
    std::int32_t first = RESULT_SUCCESS;
    for (const auto &step : steps) {
        if (!step.wanted)
            continue;
        bool written = false;
        const auto result = blockScriptRun(client, step.block, step.script, &written);
        if (first == RESULT_SUCCESS)
            first = result;
        if (!written)
            break;
    }
    return first;
}

void AvConfigGlobalQosDelete(openapiClientHandle_t *client, std::int32_t mode) {
    avBlockQosDelete(client, mode);
}

std::int32_t AvConfigGlobalQosDeleteProfileClass(openapiClientHandle_t *client, std::int32_t,
                                                 std::uint64_t features) {
    bool telos = false, gd = false;
    const auto found = parsePolicyMapClasses(client, &telos, &gd);
    if (found < 0) {
        LOG_ERROR("[%s:%d] Failed to fetch current QoS class list.\r\n");
        return RESULT_FAILED;
    }
    bool written = false;
    auto result =
        blockScriptRun(client, profileClassBlock("[%s:%d] Failed to apply QoS delete G1 config.\r\n"),
                       kPolicyDelete, &written);
    if (!written)
        return result;
    if ((features & AV_QOS_TELOS) != 0 && telos) {
        result =
            blockScriptRun(client, profileClassBlock("[%s:%d] Failed to apply QoS delete TELOS config.\r\n"),
                           "configure\nno class-map CLASS_TELOS\nexit\n", &written);
        telos = false;
    } else if ((features & AV_QOS_GD) != 0 && gd) {
        result =
            blockScriptRun(client, profileClassBlock("[%s:%d] Failed to apply QoS delete GND config.\r\n"),
                           "configure\nno class-map CLASS_GD_COM\nno class-map CLASS_GD_CTRL\n"
                           "no class-map CLASS_GD_ESP\nno class-map CLASS_GD_AH\nexit\n",
                           &written);
        gd = false;
    }
    if (!written)
        return result;
    if (found == 0)
        return avBlockQosDelete(client, AV_QOS_DELETE_ALL);
    const auto kept = (telos ? AV_QOS_TELOS : 0) | (gd ? AV_QOS_GD : 0);
    return avBlockQosAdd(client, (features & ~(AV_QOS_TELOS | AV_QOS_GD)) | kept);
}

void AvGlobalConfigQosAdd(openapiClientHandle_t *client) {
    blockScriptRun(client, {"AvGlobalConfigQosAdd", "qos_add", kAddFailed, AV_QOS_SCRIPT_SIZE},
                   basePolicy(true));
}

void AvGlobalConfigQosDelete(openapiClientHandle_t *client) {
    blockScriptRun(client,
                   {"AvGlobalConfigQosDelete", "qos_delete",
                    "[%s:%d] Apply delete global config of qos failed.\r\n", AV_QOS_SCRIPT_SIZE},
                   "configure\nno service-policy in POLICY_AV\nno policy-map POLICY_AV\n" +
                       classMapsDelete() +
                       "no queue trust all\nno queue cos-map all\n"
                       "no queue cos-queue strict all 0 1 2 3 4 5 6\nexit\n");
}
