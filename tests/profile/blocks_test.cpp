#include "profile/blocks.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sstream>

#include "swapi/swapi.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using platform::paths::kManualTrunkConfig;
using platform::paths::kScriptDir;
using test_support::occurrences;
using test_support::writeText;

constexpr std::int32_t kVlan = 10;
constexpr const char *kNotWritten = "] Failed to write configuration to file.\r\n";
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";

class BlocksTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        fresh();
    }
    void fresh() {
        startSwitch({});
        cli({"vlan database", "vlan 10"});
    }

    // The configuration without its heading, which tells the time.
    std::string config() {
        std::istringstream in(show("show running-config"));
        std::string out;
        for (std::string line; std::getline(in, line);)
            if (!line.starts_with("!"))
                out += line + "\n";
        return out;
    }
    bool configured(const std::string &line) {
        return config().find("\n" + line + "\n") != std::string::npos;
    }
    void expectConfigured(const std::vector<std::string> &lines) {
        for (const auto &line : lines)
            EXPECT_TRUE(configured(line)) << line;
    }
    std::uint64_t unknown() {
        return device->with([](vswitch::Server &server) { return server.cli().unknownCommands(); });
    }
    std::uint64_t refused() {
        return device->with([](vswitch::Server &server) { return server.cli().refusedCommands(); });
    }
    bool hasVlan(std::uint32_t id) { return openapiVlanCreatedCheck(&client, id) == OPEN_E_NONE; }
    static std::vector<std::string> scriptFiles() {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(platform::fsPath(kScriptDir)))
            names.push_back(entry.path().filename());
        return names;
    }
    static std::int32_t dot1asKnown(openapiClientHandle_t *, const char *name, std::int32_t *supported) {
        *supported = name == std::string("DOT1AS") ? 1 : 0;
        return 0;
    }
    std::int32_t run(AvBlock block, std::int32_t value = 0) { return avBlockRun(&client, block, value); }
};

TEST_F(BlocksTest, EveryAddIsUndoneByItsDelete) {
    auto *c = &client;
    const std::vector<std::string> avb = {
        "dot1as", "mvrp", "mvrp periodic state machine", "no mvrp include factory-default-vlan",
        "mmrp",   "msrp", "mmrp periodic state machine", "classofservice trust dot1p"};
    const std::vector<std::string> qos = {"class-map match-all CLASS_AUDIO1",
                                          "match ip dscp 46",
                                          "class-map match-all CLASS_PTP2",
                                          "match dstip 224.0.1.130 255.255.255.254",
                                          "match srcl4port 4443",
                                          "policy-map POLICY_AV in",
                                          "class CLASS_LANTERN2",
                                          "assign-queue 6",
                                          "service-policy in POLICY_AV",
                                          "classofservice trust dot1p",
                                          "queue cos-map all 7 6"};
    const struct {
        std::function<void()> add, remove;
        std::vector<std::string> lines;
    } pairs[] = {
        {[=] { AvConfigGlobalAvbAdd(c); }, [=] { AvConfigGlobalAvbDelete(c, false); }, avb},
        {[=] { AVAVBGlobalConfigAdd(c); }, [=] { AVAVBGlobalConfigDelete(c, false); }, avb},
        {[=] { AvConfigGlobalSonosAdd(c); },
         [=] { AvConfigGlobalSonosDelete(c); },
         {"spanning-tree mst priority 0 28672"}},
        {[=] { AVSonosGlobalConfigAdd(c); },
         [=] { AVSonosGlobalConfigDelete(c); },
         {"spanning-tree mst priority 0 28672"}},
        {[=] { AvConfigGlobalEtcAdd(c); },
         [=] { AvConfigGlobalEtcDelete(c); },
         {"set igmp querier version 2", "set igmp querier timer expiry 180", "spanning-tree mode rstp"}},
        {[=] { AvConfigGlobalQuerierAdd(c, 30); },
         [=] { AvConfigGlobalQuerierDelete(c); },
         {"ip igmp snooping querier query-interval 30"}},
        {[=] { AvConfigGlobalQuerierAdd(c, 20); },
         [=] { AVIgmpQuerierGlobalConfigDelete(c); },
         {"ip igmp snooping querier query-interval 20"}},
        {[=] { AvConfigGlobalFastLeaveAdd(c, kVlan); },
         [=] { AvConfigGlobalFastLeaveDelete(c, kVlan); },
         {"set igmp fast-leave 10"}},
        {[=] { AvConfigGlobalEtcVidAdd(c, kVlan); },
         [=] { AvConfigGlobalEtcVidDelete(c, kVlan); },
         {"set igmp querier election participate 10", "set igmp maxresponse 10 10",
          "set igmp groupmembership-interval 10 60"}},
        {[=] { AvConfigGlobalHpPolyAdd(c, kVlan); },
         [=] { AvConfigGlobalHpPolyDelete(c, kVlan); },
         {"set igmp proxy-querier 10", "set mld proxy-querier 10"}},
        {[=] { AvConfigGlobalIgmpLightwareAdd(c, kVlan); },
         [=] { AvConfigGlobalIgmpLightwareDelete(c, kVlan); },
         {"set igmp maxresponse 10 10", "set igmp groupmembership-interval 10 260",
          "set igmp mcrtrexpiretime 10 0"}},
        {[=] { AvConfigGlobalIgmpPlusAdd(c, kVlan); },
         [=] { AvConfigGlobalIgmpPlusDelete(c, kVlan); },
         {"igmp-plus 10", "ipv6 mld snooping", "set mld 10"}},
        {[=] { AvConfigGlobalrstpAdd(c, kVlan); },
         [=] { AvConfigGlobalrstpDelete(c); },
         {"spanning-tree mode rapid-pvst", "spanning-tree vlan 10 hello-time 9",
          "spanning-tree vlan 10 forward-time 30", "spanning-tree vlan 10 max-age 22"}},
        {[=] { EXPECT_EQ(AvConfigGlobalPtpTcAdd(c), 0); },
         [=] { EXPECT_EQ(AvConfigGlobalPtpTcDelete(c), 0); },
         {"ptp clock e2e-transparent"}},
        {[=] { AVPTPGlobalConfigAdd(c); },
         [=] { AvConfigGlobalPtpTcDelete(c); },
         {"ptp clock e2e-transparent"}},
        {[=] { AvConfigGlobalQosAdd(c, 0, 0); }, [=] { AvConfigGlobalQosDelete(c, AV_QOS_DELETE_ALL); }, qos},
        {[=] { AvGlobalConfigQosAdd(c); }, [=] { AvGlobalConfigQosDelete(c); }, qos},
        {[=] { multicastGlobalConfigSet(c, kVlan, 30, 70); },
         [=] {
             AvConfigGlobalIgmpPlusDelete(c, kVlan);
             AvConfigGlobalQuerierDelete(c);
             AvConfigGlobalEtcVidDelete(c, kVlan);
         },
         {"igmp-plus 10", "ip igmp snooping querier query-interval 30", "set igmp maxresponse 10 10",
          "set igmp groupmembership-interval 10 70"}},
        {[=] { AvConfigGlobalAvbAdd(c); },
         [=] {
             AvConfigGlobalAvbMrpPreDisable(c);
             AvConfigGlobalAvbDelete(c, false);
         },
         {"mvrp"}},
    };
    const auto before = config();
    for (const auto &[add, remove, lines] : pairs) {
        SCOPED_TRACE(lines.front());
        add();
        expectConfigured(lines);
        remove();
        EXPECT_EQ(config(), before);
        EXPECT_TRUE(scriptFiles().empty());
    }
    EXPECT_EQ(unknown(), 0u);
    EXPECT_EQ(logged("ERROR"), 0u) << log();
}

TEST_F(BlocksTest, AccessListsGoByNameAndFlag) {
    cli({"configure", "ip access-list NET-BLOCK", "deny ip any 224.0.0.0 0.255.255.255", "exit",
         "mac access-list extended visionaryNwAV", "permit any any", "exit", "ip access-list mine"});
    AvConfigGlobalAclDelete(&client);
    EXPECT_EQ(config().find("NET-BLOCK"), std::string::npos);
    EXPECT_TRUE(configured("ip access-list mine"));
    AvConfigGlobalmacfilterDelete(&client, 0);
    EXPECT_EQ(callCount(kApply), 1u);
    AvConfigGlobalmacfilterDelete(&client, AV_MAC_FILTER_SECOND);
    EXPECT_EQ(callCount(kApply), 2u);
    EXPECT_TRUE(configured("mac access-list extended visionaryNwAV")) << "an empty script";
    AvConfigGlobalmacfilterDelete(&client, AV_MAC_FILTER_VISIONARY | AV_MAC_FILTER_SECOND);
    EXPECT_FALSE(configured("mac access-list extended visionaryNwAV"));
    EXPECT_EQ(unknown() + refused(), 0u);
}

TEST_F(BlocksTest, WhatSomebodyElseSetSurvives) {
    cli({"configure", "spanning-tree mst priority 0 4096"});
    AvConfigGlobalSonosDelete(&client);
    AVSonosGlobalConfigDelete(&client);
    EXPECT_EQ(callCount(kApply), 0u);
    EXPECT_TRUE(configured("spanning-tree mst priority 0 4096"));

    AvConfigGlobalAvbAdd(&client);
    AvConfigGlobalAvbDelete(&client, true);
    EXPECT_TRUE(configured("classofservice trust dot1p"));
    EXPECT_FALSE(configured("dot1as"));
    AVAVBGlobalConfigDelete(&client, false);
    EXPECT_FALSE(configured("classofservice trust dot1p"));
}

TEST_F(BlocksTest, DeletingTakesAwayAVlanThatTheScriptCreated) {
    AvConfigGlobalIgmpLightwareDelete(&client, 77);
    AvConfigGlobalIgmpPlusDelete(&client, 78);
    EXPECT_FALSE(hasVlan(77) || hasVlan(78));
    EXPECT_EQ(logged("vlan 77 delete success\r\n"), 1u);
    EXPECT_EQ(callCount("rpcclt_openapiVlanDelete"), 2u);
    AvConfigGlobalIgmpLightwareDelete(&client, kVlan);
    AvConfigGlobalFastLeaveDelete(&client, 79);
    EXPECT_TRUE(hasVlan(kVlan) && hasVlan(79));
    EXPECT_TRUE(scriptFiles().empty());

    failCall("rpcclt_openapiVlanDelete");
    EXPECT_EQ(run(AvBlock::IgmpLightwareDelete, 77), 10000);
    EXPECT_EQ(logged("[AvConfigGlobalIgmpLightwareDelete:"), 2u);
    EXPECT_EQ(logged("vlan 77 delete error :10000 \r\n"), 1u);
    EXPECT_EQ(scriptFiles().size(), 2u);

    // Nobody knows whether it is there: it stays.
    failCall("openapiVlanCreatedCheck", 1, true, OPEN_E_RPC);
    EXPECT_EQ(run(AvBlock::IgmpPlusDelete, kVlan), 10000);
    EXPECT_TRUE(hasVlan(kVlan));
}

TEST_F(BlocksTest, PtpClockAndDot1asAreNotOnTogether) {
    const auto clockOn = [&] {
        std::uint32_t mode = 9;
        EXPECT_EQ(ptpTcAdminModeGet(&client, &mode), 0);
        return mode == 1;
    };
    AvConfigGlobalPtpTcAdd(&client);
    AvConfigGlobalAvbAdd(&client);
    EXPECT_FALSE(clockOn()) << "802.1AS takes its place";
    EXPECT_EQ(avBlockPtpTcSet(&client, true, dot1asKnown), 0);
    EXPECT_FALSE(clockOn());
    failCall("rpcclt_openapiDot1asModeGet");
    EXPECT_EQ(avBlockPtpTcSet(&client, true, dot1asKnown), 10000);
    EXPECT_FALSE(clockOn());
    AvConfigGlobalAvbDelete(&client, false);
    EXPECT_EQ(avBlockPtpTcSet(&client, true, dot1asKnown), 0);
    EXPECT_TRUE(clockOn());

    failCall("rpcclt_openapiPtpTcAdminModeSet", 1, false);
    EXPECT_EQ(AvConfigGlobalPtpTcDelete(&client) + AvConfigGlobalPtpTcAdd(&client), 0);
    AVPTPGlobalConfigAdd(&client);
    EXPECT_EQ(logged("[AvConfigGlobalPtpTcDelete:"), 1u);
    EXPECT_EQ(logged("] Apply ptp tc to disable failed. (result = -2)\n"), 1u);
    EXPECT_EQ(logged("] Apply ptp tc to enable failed. (result = -2)\n"), 1u);
    EXPECT_EQ(logged("] Apply PTP to enable failed. (result = -2)\n"), 1u);
}

// --- QoS
// --------------------------------------------------------------------------------------------------------

class QosBlockTest : public BlocksTest {
  protected:
    // The classes of the policy in order, with their queues: "PTP1 6, AUDIO1 5".
    std::string policy() {
        return device->with([](vswitch::Server &server) -> std::string {
            const auto &policies = server.model().qos().policyMaps();
            std::string out;
            if (const auto it = policies.find("POLICY_AV"); it != policies.end())
                for (const auto &member : it->second.classes)
                    out += (out.empty() ? "" : ", ") + member.name.substr(6) + " " +
                           std::to_string(member.queue.value_or(99));
            return out;
        });
    }
    void add(std::uint64_t features) { AvConfigGlobalQosAdd(&client, 0, features); }
    std::int32_t drop(std::uint64_t features) {
        return AvConfigGlobalQosDeleteProfileClass(&client, 0, features);
    }
    const std::string base = "AUDIO1 5, AUDIO2 5, VIDEO 4, LANTERN1 3, LANTERN2 3";
    const std::string ptp = "PTP1 6, PTP2 6, PTP3 6, ";
    const std::string gd = "GD_CTRL 4, GD_COM 4, ESP 4, AH 4, ";
    const std::string telos = "TELOS 4, ";
};

TEST_F(QosBlockTest, ClassesWantedAndClassesKept) {
    const std::pair<std::uint64_t, std::string> steps[] = {
        {0, ptp + base},
        {AV_QOS_NO_PTP, base},
        {AV_QOS_NO_PTP | AV_QOS_GD, gd + base},
        {AV_QOS_NO_PTP, base},  // G&D is only kept beside Telos
        {AV_QOS_TELOS, telos + ptp + base},
        {AV_QOS_NO_PTP, telos + base},
        {AV_QOS_GD, gd + telos + ptp + base},
        {0, gd + telos + ptp + base},
        {AV_QOS_GD | AV_QOS_TELOS | AV_QOS_NO_PTP, gd + telos + base},
    };
    for (const auto &[features, classes] : steps) {
        add(features);
        EXPECT_EQ(policy(), classes) << features;
        EXPECT_TRUE(configured("service-policy in POLICY_AV"));
        EXPECT_EQ(config().find("CLASS_PTP") != std::string::npos, (features & AV_QOS_NO_PTP) == 0);
    }
    bool hasTelos = false, hasGd = false;
    EXPECT_EQ(parsePolicyMapClasses(&client, &hasTelos, &hasGd), 10);
    EXPECT_TRUE(hasTelos && hasGd);
    EXPECT_EQ(unknown(), 0u);
    EXPECT_TRUE(scriptFiles().empty());
}

TEST_F(QosBlockTest, DeleteModes) {
    const auto before = config();
    add(AV_QOS_TELOS | AV_QOS_GD);
    cli({"configure", "queue cos-queue strict all 5 6", "interface 0/3", "service-policy in POLICY_AV"});
    AvConfigGlobalQosDelete(&client, AV_QOS_DELETE_POLICY);
    expectConfigured({"classofservice trust dot1p", "queue cos-map all 2 2", "queue cos-map all 7 6"});
    for (const auto *gone : {"POLICY_AV", "class-map", "strict"})
        EXPECT_EQ(config().find(gone), std::string::npos) << gone;
    AvConfigGlobalQosDelete(&client, AV_QOS_DELETE_ALL);
    EXPECT_EQ(config(), before);
    EXPECT_EQ(unknown(), 0u);
}

TEST_F(QosBlockTest, DroppingTheClassesOfAProfile) {
    EXPECT_EQ(drop(AV_QOS_TELOS), 0);
    EXPECT_EQ(policy(), "") << "nothing was there";
    const struct {
        std::uint64_t present, dropped;
        std::string left;
    } cases[] = {{AV_QOS_TELOS, AV_QOS_TELOS, ptp + base},
                 {AV_QOS_GD, AV_QOS_GD, ptp + base},
                 {AV_QOS_TELOS | AV_QOS_GD, AV_QOS_TELOS, gd + ptp + base},
                 {AV_QOS_TELOS | AV_QOS_GD, AV_QOS_GD, telos + ptp + base},
                 {AV_QOS_TELOS | AV_QOS_GD, AV_QOS_TELOS | AV_QOS_GD, gd + ptp + base},
                 {AV_QOS_TELOS | AV_QOS_GD, AV_QOS_GD | AV_QOS_NO_PTP, telos + base},
                 {AV_QOS_TELOS, AV_QOS_GD, telos + ptp + base},
                 {AV_QOS_TELOS, 0, telos + ptp + base}};
    for (const auto &[present, dropped, left] : cases) {
        fresh();
        add(present);
        EXPECT_EQ(drop(dropped), 0);
        EXPECT_EQ(policy(), left);
        EXPECT_EQ(unknown(), 0u);
    }
    // The class maps of what went are gone too, whatever they are called.
    fresh();
    add(AV_QOS_GD);
    drop(AV_QOS_GD);
    for (const auto *gone : {"CLASS_GD", "CLASS_ESP", "CLASS_AH"})
        EXPECT_EQ(config().find(gone), std::string::npos) << gone;

    const auto before = config();
    failCall("rpcclt_openapiCliShowExecuteToFile", 1, false);
    EXPECT_EQ(drop(AV_QOS_TELOS), 10000);
    add(0);
    EXPECT_EQ(config(), before) << "what cannot be read is not rebuilt";
    EXPECT_EQ(logged("] Failed to fetch current QoS class list.\r\n"), 1u);
    EXPECT_EQ(logged("] Failed to execute 'show policy-map' CLI command.\r\n"), 2u);
}

TEST_F(QosBlockTest, RebuildKeepsWithinItsRoom) {
    std::string script = "configure\npolicy-map POLICY_AV in\nexit\n";
    EXPECT_EQ(AvConfigGlobalQosRebuildDynamic(&script, "maps\n", "entries\n"), 0);
    EXPECT_EQ(script, "configure\nmaps\npolicy-map POLICY_AV in\nentries\nexit\n");
    const std::string big(AV_QOS_SCRIPT_SIZE, 'x');
    EXPECT_EQ(AvConfigGlobalQosRebuildDynamic(&script, "", big.c_str()), 0);
    EXPECT_EQ(script.size(), AV_QOS_SCRIPT_SIZE - 1);
    script = "policy-map OTHER in\n";
    EXPECT_EQ(AvConfigGlobalQosRebuildDynamic(&script, "maps\n", "entries\n"), 10000);
    EXPECT_EQ(script, "policy-map OTHER in\n");
    EXPECT_EQ(logged("] POLICY_AV block not found\n"), 1u);
}

// --- AVB on ports
// -----------------------------------------------------------------------------------------------

TEST_F(BlocksTest, MrpOnTheManualTrunkPorts) {
    AvConfigGlobalQosAdd(&client, 0, 0);
    const auto before = config();
    std::vector<std::uint32_t> ports(48);
    for (std::uint32_t i = 0; i < ports.size(); ++i)
        ports[i] = i + 1;
    ASSERT_EQ(manualTrunkConfigSet(ports, std::vector<std::uint32_t>{2}), 0);
    const std::string applications = "dot1as\nmvrp\nmmrp\nmsrp\n", timers = "mrp leavetime 500\n";

    AvConfigAvbMrpIntfTimerPre(&client, 9198);
    EXPECT_NE(config().find("interface 0/48\n" + timers + "mtu 9198\nexit\n"), std::string::npos);
    cli({"configure", "interface 0/1-0/48", "no mtu", "interface lag 2", "no mtu"});
    AvConfigGlobalAvbMrpPostEnableEx(&client, false, 0);
    EXPECT_EQ(occurrences(config(), timers), 49u);
    EXPECT_EQ(occurrences(config(), "service-policy in POLICY_AV\n"), 50u);
    EXPECT_EQ(config().find(applications), config().rfind(applications)) << "the switch's own";
    AvConfigGlobalAvbMrpPostEnableEx(&client, true, 1500);
    EXPECT_EQ(occurrences(config(), applications + timers), 49u);
    EXPECT_EQ(occurrences(config(), "mtu 1500\n"), 49u);

    AvConfigAvbMrpIntfCleanup(&client, false);
    EXPECT_EQ(config().find(timers), std::string::npos);
    EXPECT_EQ(occurrences(config(), "service-policy in POLICY_AV\n"), 50u);
    AvConfigAvbMrpIntfCleanup(&client, true);
    cli({"configure", "interface 0/1-0/48", "no mtu", "interface lag 2", "no mtu"});
    AvConfigGlobalAvbDelete(&client, true);
    EXPECT_EQ(config(), before);
    EXPECT_EQ(unknown(), 0u);
    EXPECT_TRUE(scriptFiles().empty());
}

TEST_F(BlocksTest, ManualTrunkFilesOfAnyKind) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(manualTrunkInterfacesGet(), Names{});
    const std::pair<const char *, Names> files[] = {
        {"{\"physicalPort\":[1,48,1],\"lagPort\":[2]}", {"0/1", "0/48", "lag 2"}},
        {"{\"physicalPort\":[0,-1,913,1.5,1e99,\"2\",\"3\\nhostname x\",null,[4],7]}", {"0/7"}},
        {"{\"physicalPort\":5,\"lagPort\":{\"a\":3}}", {"lag 3"}},
        {"[1,2]", {}},
        {"{\"physicalPort\":[1", {}},
        {"", {}}};
    for (const auto &[text, names] : files) {
        writeText(kManualTrunkConfig, text);
        EXPECT_EQ(manualTrunkInterfacesGet(), names) << text;
    }
    EXPECT_EQ(avBlockMrpCleanup(&client, true), 0);
}

// --- failures
// ----------------------------------------------------------------------------------------------------

class BlockFailureTest : public BlocksTest {
  protected:
    void SetUp() override {
        BlocksTest::SetUp();
        ASSERT_EQ(manualTrunkConfigSet(std::vector<std::uint32_t>{1}, {}), 0);
        for (auto block = AvBlock{}; block != AvBlock::Count;
             block = static_cast<AvBlock>(static_cast<int>(block) + 1))
            operations.emplace_back([this, block] {
                cli({"configure", "spanning-tree mst priority 0 28672"});
                return run(block, block == AvBlock::MacFilterDelete ? AV_MAC_FILTER_VISIONARY : kVlan);
            });
        dropsVlan = operations.size();
        operations.emplace_back([this] { return run(AvBlock::IgmpLightwareDelete, 77); });
        operations.emplace_back([this] { return avBlockPtpTcSet(&client, true, dot1asKnown); });
        operations.emplace_back([this] { return avBlockQosAdd(&client, AV_QOS_TELOS | AV_QOS_GD); });
        operations.emplace_back([this] { return avBlockQosDelete(&client, AV_QOS_DELETE_ALL); });
        operations.emplace_back([this] { return avBlockMrpPostEnable(&client, true, 1500); });
        operations.emplace_back([this] { return avBlockMrpTimerPre(&client, 1500); });
        operations.emplace_back([this] { return avBlockMrpCleanup(&client, true); });
    }
    std::vector<std::function<std::int32_t()>> operations;
    std::size_t dropsVlan = 0;
};

TEST_F(BlockFailureTest, WhicheverCallFailsIsReported) {
    for (std::size_t i = 0; i < operations.size(); ++i)
        for (std::uint64_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::to_string(i) + " call " + std::to_string(nth));
            fresh();
            failCall("*", nth);
            const auto errors = logged("ERROR");
            const auto result = operations[i]();
            if (callsSeen() < nth) {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(logged("ERROR"), errors);
                break;
            }
            // Whether the VLAN has come into being or has gone need not be known.
            const bool harmless = result == 0 && i == dropsVlan;
            EXPECT_TRUE(result == 10000 || harmless) << result;
            EXPECT_LE(logged("ERROR"), errors + 3);
            EXPECT_EQ(logged("ERROR") > errors, !harmless);
            for (const auto &name : scriptFiles()) {
                EXPECT_NE(name.find("global_igmp_"), std::string::npos) << name;
                fs::remove(platform::fsPath(kScriptDir + name));
            }
        }
}

TEST_F(BlockFailureTest, WithoutAFolderForScriptsNothingIsApplied) {
    const auto folder = platform::fsPath(kScriptDir);
    fs::remove_all(folder);
    const auto before = config();
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const auto result = operations[i]();
        EXPECT_TRUE(result == 10000 || configured("ptp clock e2e-transparent")) << i;
        cli({"configure", "no ptp clock e2e-transparent", "no spanning-tree mst priority 0"});
    }
    EXPECT_EQ(AvConfigGlobalQosDeleteProfileClass(&client, 0, AV_QOS_TELOS), 10000);
    EXPECT_EQ(config(), before);
    EXPECT_EQ(callCount(kApply), 0u);
    EXPECT_EQ(logged(kNotWritten), operations.size() - 2) << "the clock has no script, QoS cannot be read";

    // The disk fills up behind the first script of a series.
    fs::create_directories(folder);
    fs::create_symlink("/dev/full", folder + "pavo_in_global_qos_delete");
    EXPECT_EQ(avBlockQosDelete(&client, AV_QOS_DELETE_ALL), 10000);
    EXPECT_EQ(callCount(kApply), 0u) << "stops at the first";
    EXPECT_EQ(logged("[AvConfigGlobalQosDelete:"), 2u);
}

}  // namespace
