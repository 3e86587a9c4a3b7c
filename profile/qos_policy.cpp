#include "profile/qos_policy.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>

#include "common/log.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr std::string_view kPolicyBegin = "policy-map POLICY_AV in\n";
constexpr std::string_view kScriptBegin = "configure\n";

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
constexpr std::string_view kGdNames[] = {"CLASS_GD_COM", "CLASS_GD_CTRL", "CLASS_ESP", "CLASS_AH"};

constexpr const char *kPolicyDelete =
    "configure\nno service-policy in POLICY_AV\nno policy-map POLICY_AV\nexit\n";
constexpr const char *kStrictDelete = "no queue cos-queue strict all 0 1 2 3 4 5 6\n";
constexpr BlockFailure kAddFailed = "[%s:%d] Apply add global config of qos failed.\r\n";
// Lines of a show command are read in pieces of that length.
constexpr std::size_t kLineMax = 1023;

constexpr BlockScript qosBlock(std::string_view operation, const char *suffix, BlockFailure failure) {
    return {operation, suffix, failure, AV_QOS_SCRIPT_SIZE};
}

constexpr BlockScript offBlock(BlockFailure failure) {
    return qosBlock("AvConfigGlobalQosDelete", "global_qos_delete", failure);
}

constexpr BlockScript dropBlock(BlockFailure failure) {
    return qosBlock("AvConfigGlobalQosDeleteProfileClass", "global_qos_delete_profile", failure);
}

bool contains(std::string_view line, std::string_view part) {
    return line.find(part) != std::string_view::npos;
}

std::string classMapsDelete() {
    std::string lines;
    for (const auto *const name : kAllClasses)
        lines += std::string("no class-map ") + name + "\n";
    return lines;
}

std::string queuesDelete() {
    return std::string("no queue trust all\nno queue cos-map all\n") + kStrictDelete;
}

std::string basePolicy(bool withPtp) {
    std::string script = kBasePolicy;
    if (withPtp) {
        // In front of all other classes, as class maps too.
        script.insert(kScriptBegin.size(), kPtpClassMaps);
        script.insert(script.find(kPolicyBegin) + kPolicyBegin.size(), kPtpEntries);
    }
    return script;
}

// A class that does not fit in is left out (logged).
void addClassTo(std::string &script, std::string_view classMaps, std::string_view policyEntries) {
    if (auto rebuilt = addQosClass(script, classMaps, policyEntries))
        script = std::move(*rebuilt);
}

}  // namespace

PolicyClasses parsePolicyClasses(std::string_view policyMap) {
    PolicyClasses classes;
    forEachLine(policyMap, kLineMax, [&](std::string_view line) {
        classes.count += contains(line, "CLASS_") ? 1 : 0;
        classes.telos = classes.telos || contains(line, "CLASS_TELOS");
        classes.gd = classes.gd || std::any_of(std::begin(kGdNames), std::end(kGdNames),
                                               [&](std::string_view name) { return contains(line, name); });
        return true;
    });
    return classes;
}

Result<PolicyClasses> readPolicyClasses(Switch sw) {
    const Where where("parsePolicyMapClasses", __LINE__);
    char path[64];
    std::snprintf(path, sizeof path, platform::paths::kPolicyMapShow, static_cast<int>(getpid()));
    const auto text = sw.show("show policy-map", path, where, "[%s:%d] Cannot open output file: %s\r\n");
    if (text)
        return parsePolicyClasses(*text);
    if (text.error().code == ResultCode::Failed)
        logError(where, "[%s:%d] Failed to execute 'show policy-map' CLI command.\r\n");
    return failed(text.error().code);
}

Result<std::string> addQosClass(const std::string &script, std::string_view classMaps,
                                std::string_view policyEntries) {
    const Where where("AvConfigGlobalQosRebuildDynamic", __LINE__);
    const auto at = script.find(kPolicyBegin);
    if (at == std::string::npos) {
        logError(where, "[%s:%d] POLICY_AV block not found\n");
        return failed(ResultCode::Failed);
    }
    try {
        std::string rebuilt = script;
        rebuilt.insert(at + kPolicyBegin.size(), policyEntries);
        rebuilt.insert(at, classMaps);
        rebuilt.resize(std::min(rebuilt.size(), AV_QOS_SCRIPT_SIZE - 1));
        return rebuilt;
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] Memory allocation failed\n");
        return failed(ResultCode::Failed);
    }
}

Result<> switchQosOn(Switch sw, const QosClasses &wanted) {
    const auto found = readPolicyClasses(sw);
    if (!found)
        return failed(ResultCode::Failed);
    const bool any = found->count > 0;
    auto script = basePolicy(wanted.ptp);
    if (wanted.telos || (any && found->telos))
        addClassTo(script, kTelosClassMap, kTelosEntry);
    if (wanted.gd || (any && found->telos && found->gd))
        addClassTo(script, kGdClassMaps, kGdEntries);
    const auto deleted = switchQosOff(sw, QosDelete::Policy);
    const auto added =
        runBlockScript(sw, qosBlock("AvConfigGlobalQosAdd", "global_qos_add", kAddFailed), script);
    return deleted ? toResult(added) : deleted;
}

Result<> switchQosOff(Switch sw, QosDelete what) {
    const struct {
        BlockScript block;
        std::string script;
        bool wanted;
    } steps[] = {
        {offBlock("[%s:%d] Apply delete global config of qos failed G1.\r\n"), kPolicyDelete, true},
        {offBlock("[%s:%d] Apply delete global config of cos failed.\r\n"),
         std::string(kScriptBegin) + kStrictDelete + "exit\n", true},
        {offBlock("[%s:%d] Apply delete global config of qos failed G2.\r\n"),
         std::string(kScriptBegin) + classMapsDelete() + "exit\n", true},
        {offBlock("[%s:%d] Apply delete global config of qos failed G3.\r\n"),
         std::string(kScriptBegin) + queuesDelete() + "exit\n", what == QosDelete::All},
    };
    Result<> first;
    for (const auto &step : steps) {
        if (!step.wanted)
            continue;
        const auto done = runBlockScript(sw, step.block, step.script);
        if (first)
            first = toResult(done);
        if (!wasWritten(done))
            break;
    }
    return first;
}

SettingWrites qosWrites(const QosClasses &wanted) {
    auto script = basePolicy(wanted.ptp);
    if (wanted.telos)
        addClassTo(script, kTelosClassMap, kTelosEntry);
    if (wanted.gd)
        addClassTo(script, kGdClassMaps, kGdEntries);
    return parseSettingWrites(std::string(kScriptBegin) + classMapsDelete() + kStrictDelete + script);
}

SettingWrites qosOffWrites() {
    return parseSettingWrites(kPolicyDelete + std::string(kScriptBegin) + classMapsDelete() + queuesDelete());
}

Result<> dropQosClasses(Switch sw, const QosClasses &dropped) {
    auto left = readPolicyClasses(sw);
    if (!left) {
        logError(Where("AvConfigGlobalQosDeleteProfileClass", __LINE__),
                 "[%s:%d] Failed to fetch current QoS class list.\r\n");
        return failed(ResultCode::Failed);
    }
    auto done =
        runBlockScript(sw, dropBlock("[%s:%d] Failed to apply QoS delete G1 config.\r\n"), kPolicyDelete);
    if (!wasWritten(done))
        return toResult(done);
    if (dropped.telos && left->telos) {
        done = runBlockScript(sw, dropBlock("[%s:%d] Failed to apply QoS delete TELOS config.\r\n"),
                              "configure\nno class-map CLASS_TELOS\nexit\n");
        left->telos = false;
    } else if (dropped.gd && left->gd) {
        done = runBlockScript(sw, dropBlock("[%s:%d] Failed to apply QoS delete GND config.\r\n"),
                              "configure\nno class-map CLASS_GD_COM\nno class-map CLASS_GD_CTRL\n"
                              "no class-map CLASS_GD_ESP\nno class-map CLASS_GD_AH\nexit\n");
        left->gd = false;
    }
    if (!wasWritten(done))
        return toResult(done);
    if (left->count == 0)
        return switchQosOff(sw, QosDelete::All);
    return switchQosOn(sw, {.telos = left->telos, .gd = left->gd, .ptp = dropped.ptp});
}

void switchOldQosOn(Switch sw) {
    static_cast<void>(
        runBlockScript(sw, qosBlock("AvGlobalConfigQosAdd", "qos_add", kAddFailed), basePolicy(true)));
}

void switchOldQosOff(Switch sw) {
    static_cast<void>(runBlockScript(sw,
                                     qosBlock("AvGlobalConfigQosDelete", "qos_delete",
                                              "[%s:%d] Apply delete global config of qos failed.\r\n"),
                                     "configure\nno service-policy in POLICY_AV\nno policy-map POLICY_AV\n" +
                                         classMapsDelete() + queuesDelete() + "exit\n"));
}

}  // namespace pavo
