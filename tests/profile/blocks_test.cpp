#include "profile/blocks_ops.h"

#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "profile/avb_ports.h"
#include "profile/qos_policy.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace test_support;
using platform::paths::kScriptDir;

constexpr std::int32_t kVlan = 10;
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";

class BlocksTest : public ProfileTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        fresh();
    }
    void TearDown() override {
        expectNoUnknownCommand();
        SwitchTest::TearDown();
    }
    void fresh() {
        expectNoUnknownCommand();
        startSwitch({});
        cli({"vlan database", "vlan 10"});
    }

    bool configured(const std::string &line) { return has("\n" + line + "\n"); }
    void expectNoUnknownCommand() {
        device->with([](vswitch::Server &server) { EXPECT_EQ(server.cli().unknownCommands(), 0u); });
    }
    // A call of a block's operation, made later.
    template <class Returned, class... Parameters, class... Arguments>
    auto call(Returned (*operation)(Switch, Parameters...), Arguments... arguments) {
        return [=, this] { operation(&client, arguments...); };
    }
    bool hasVlan(std::uint32_t id) { return openapiVlanCreatedCheck(&client, id) == OPEN_E_NONE; }
    static std::vector<std::string> scriptFiles() {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(platform::fsPath(kScriptDir)))
            names.push_back(entry.path().filename());
        return names;
    }
    Result<> setPtpTc(bool on) {
        const auto known = [](Switch, const char *name, std::int32_t *supported) {
            *supported = name == std::string("DOT1AS") ? 1 : 0;
            return 0;
        };
        return switchPtpTc(&client, on, known);
    }
};

// What the blocks consist of is seen where profiles have them.
TEST_F(BlocksTest, EveryAddIsUndoneByItsDelete) {
    const auto before = config();
    const auto check = [&](const auto &add, const auto &...remove) {
        add();
        const auto added = config();
        EXPECT_NE(added, before);
        (remove(), ...);
        EXPECT_EQ(config(), before) << added;
        EXPECT_TRUE(scriptFiles().empty());
        return added;
    };
    check(call(AvConfigGlobalAvbAdd), call(AvConfigGlobalAvbMrpPreDisable),
          call(AvConfigGlobalAvbDelete, false));
    check(call(AvConfigGlobalSonosAdd), call(AvConfigGlobalSonosDelete));
    check(call(AvConfigGlobalQosAdd, 0, 0), call(AvConfigGlobalQosDelete, AV_QOS_DELETE_ALL));
    check(call(AvConfigGlobalEtcAdd), call(AvConfigGlobalEtcDelete));
    check(call(AvConfigGlobalQuerierAdd, 30), call(AvConfigGlobalQuerierDelete));
    check(call(AvConfigGlobalFastLeaveAdd, kVlan), call(AvConfigGlobalFastLeaveDelete, kVlan));
    check(call(AvConfigGlobalEtcVidAdd, kVlan), call(AvConfigGlobalEtcVidDelete, kVlan));
    check(call(AvConfigGlobalHpPolyAdd, kVlan), call(AvConfigGlobalHpPolyDelete, kVlan));
    check(call(AvConfigGlobalIgmpLightwareAdd, kVlan), call(AvConfigGlobalIgmpLightwareDelete, kVlan));
    check(call(AvConfigGlobalIgmpPlusAdd, kVlan), call(AvConfigGlobalIgmpPlusDelete, kVlan));
    check(call(AvConfigGlobalrstpAdd, kVlan), call(AvConfigGlobalrstpDelete));
    // The older forms
    check(call(AVAVBGlobalConfigAdd), call(AVAVBGlobalConfigDelete, false));
    check(call(AVSonosGlobalConfigAdd), call(AVSonosGlobalConfigDelete));
    check(call(AVPTPGlobalConfigAdd), call(AvConfigGlobalPtpTcDelete));
    check(call(AvGlobalConfigQosAdd), call(AvGlobalConfigQosDelete));
    check(call(AvConfigGlobalQuerierAdd, 20), call(AVIgmpQuerierGlobalConfigDelete));
    const auto multicast =
        check(call(multicastGlobalConfigSet, kVlan, 30, 70), call(AvConfigGlobalIgmpPlusDelete, kVlan),
              call(AvConfigGlobalQuerierDelete), call(AvConfigGlobalEtcVidDelete, kVlan));
    EXPECT_TRUE(multicast.contains("query-interval 30\n") && multicast.contains("interval 10 70\n"));
    EXPECT_EQ(logged("ERROR"), 0u) << log();
}

TEST_F(BlocksTest, WhatSomebodyElseSetSurvives) {
    enter("configure; spanning-tree mst priority 0 4096; end");
    AvConfigGlobalSonosDelete(&client);
    AVSonosGlobalConfigDelete(&client);
    EXPECT_EQ(callCount(kApply), 0u);
    EXPECT_TRUE(configured("spanning-tree mst priority 0 4096"));

    AvConfigGlobalAvbAdd(&client);
    AvConfigGlobalAvbDelete(&client, true);
    EXPECT_TRUE(configured("classofservice trust dot1p") && !configured("dot1as"));
    AVAVBGlobalConfigDelete(&client, false);
    EXPECT_FALSE(configured("classofservice trust dot1p"));

    // Access lists go by name and flag.
    enter(
        "configure; ip access-list NET-BLOCK; deny ip any 224.0.0.0 0.255.255.255; exit;"
        "mac access-list extended visionaryNwAV; permit any any; exit; ip access-list mine");
    AvConfigGlobalAclDelete(&client);
    EXPECT_TRUE(configured("ip access-list mine") && !has("NET-BLOCK"));
    for (const std::int32_t flags :
         {0, AV_MAC_FILTER_SECOND, AV_MAC_FILTER_VISIONARY | AV_MAC_FILTER_SECOND}) {
        EXPECT_TRUE(configured("mac access-list extended visionaryNwAV")) << flags;
        AvConfigGlobalmacfilterDelete(&client, flags);
    }
    EXPECT_FALSE(configured("mac access-list extended visionaryNwAV"));
    EXPECT_EQ(device->with([](vswitch::Server &server) { return server.cli().refusedCommands(); }), 0u);
}

TEST_F(BlocksTest, DeletingTakesAwayAVlanThatTheScriptCreated) {
    AvConfigGlobalIgmpLightwareDelete(&client, 77);
    AvConfigGlobalIgmpPlusDelete(&client, 78);
    AvConfigGlobalIgmpLightwareDelete(&client, kVlan);
    AvConfigGlobalFastLeaveDelete(&client, 79);
    EXPECT_TRUE(!hasVlan(77) && !hasVlan(78) && hasVlan(kVlan) && hasVlan(79));
    EXPECT_EQ(logged("vlan 77 delete success\r\n"), 1u);
    EXPECT_TRUE(scriptFiles().empty());

    failCall("rpcclt_openapiVlanDelete");
    EXPECT_EQ(codeOf(switchBlockOff(&client, AvBlock::LightwareIgmp, 77)), 10000);
    EXPECT_EQ(logged("vlan 77 delete error :10000 \r\n"), 1u);
    EXPECT_EQ(scriptFiles().size(), 2u);

    // Nobody knows whether it is there: it stays.
    failCall("openapiVlanCreatedCheck", 1, true, OPEN_E_RPC);
    EXPECT_EQ(codeOf(switchBlockOff(&client, AvBlock::IgmpPlus, kVlan)), 10000);
    EXPECT_TRUE(hasVlan(kVlan));
}

TEST_F(BlocksTest, PtpClockAndDot1asAreNotOnTogether) {
    const auto clockOn = [&] { return Switch(&client).ptpTc().value(); };
    AvConfigGlobalPtpTcAdd(&client);
    AvConfigGlobalAvbAdd(&client);
    EXPECT_FALSE(clockOn()) << "802.1AS takes its place";
    EXPECT_TRUE(setPtpTc(true));
    failCall("rpcclt_openapiDot1asModeGet");
    EXPECT_FALSE(setPtpTc(true));
    EXPECT_FALSE(clockOn());
    AvConfigGlobalAvbDelete(&client, false);
    EXPECT_TRUE(setPtpTc(true));
    EXPECT_TRUE(clockOn());

    failCall("rpcclt_openapiPtpTcAdminModeSet", 1, false);
    EXPECT_EQ(AvConfigGlobalPtpTcDelete(&client) + AvConfigGlobalPtpTcAdd(&client), 0);
    AVPTPGlobalConfigAdd(&client);
    for (const std::string what : {"ptp tc to disable", "ptp tc to enable", "PTP to enable"})
        EXPECT_EQ(logged("] Apply " + what + " failed. (result = -2)\n"), 1u);
}

// --- QoS

class QosBlockTest : public BlocksTest {
  protected:
    // The classes of the policy in order, with their queues: "PTP1 6, AUDIO1 5".
    std::string policy() {
        return device->with([](vswitch::Server &server) -> std::string {
            std::string out;
            for (const auto &[name, policyMap] : server.model().qos().policyMaps())
                for (const auto &member : policyMap.classes)
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
    const auto before = config();
    const std::pair<std::uint64_t, std::string> steps[] = {
        {0, ptp + base},
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
        EXPECT_EQ(has("CLASS_PTP"), (features & AV_QOS_NO_PTP) == 0);
    }
    bool hasTelos = false, hasGd = false;
    EXPECT_EQ(parsePolicyMapClasses(&client, &hasTelos, &hasGd), 10);
    EXPECT_TRUE(hasTelos && hasGd);
    EXPECT_TRUE(scriptFiles().empty());

    enter("configure; queue cos-queue strict all 5 6; interface 0/3; service-policy in POLICY_AV");
    AvConfigGlobalQosDelete(&client, AV_QOS_DELETE_POLICY);
    expectConfigured("classofservice trust dot1p\nqueue cos-map all 2 2\nqueue cos-map all 7 6");
    EXPECT_FALSE(has("POLICY_AV") || has("class-map") || has("strict"));
    AvConfigGlobalQosDelete(&client, AV_QOS_DELETE_ALL);
    EXPECT_EQ(config(), before);
}

TEST_F(QosBlockTest, DroppingTheClassesOfAProfile) {
    EXPECT_EQ(drop(AV_QOS_TELOS), 0);
    EXPECT_EQ(policy(), "") << "nothing was there";
    constexpr auto kBoth = AV_QOS_TELOS | AV_QOS_GD;
    const std::tuple<std::uint64_t, std::uint64_t, std::string> rows[] = {
        {AV_QOS_TELOS, AV_QOS_TELOS, ptp + base}, {AV_QOS_TELOS, AV_QOS_GD, telos + ptp + base},
        {AV_QOS_TELOS, 0, telos + ptp + base},    {kBoth, AV_QOS_GD, telos + ptp + base},
        {kBoth, kBoth, gd + ptp + base},          {kBoth, AV_QOS_GD | AV_QOS_NO_PTP, telos + base},
        {AV_QOS_GD, AV_QOS_GD, ptp + base}};
    for (const auto &[present, dropped, left] : rows) {
        fresh();
        add(present);
        EXPECT_EQ(drop(dropped), 0);
        EXPECT_EQ(policy(), left);
    }
    // The class maps of what went are gone too, whatever they are called.
    EXPECT_FALSE(has("CLASS_GD") || has("CLASS_ESP") || has("CLASS_AH"));

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

TEST_F(BlocksTest, MrpOnTheManualTrunkPorts) {
    AvConfigGlobalQosAdd(&client, 0, 0);
    const auto before = config();
    std::vector<IfNum> ports;
    for (std::uint32_t port = 1; port <= 48; ++port)
        ports.emplace_back(port);
    ASSERT_TRUE(writeManualTrunks(ports, std::vector{IfNum(2)}));
    const std::string applications = "dot1as\nmvrp\nmmrp\nmsrp\n", timers = "mrp leavetime 500\n";

    AvConfigAvbMrpIntfTimerPre(&client, 9198);
    EXPECT_TRUE(has("interface 0/48\n" + timers + "mtu 9198\nexit\n"));
    enter("configure; interface 0/1-0/48; no mtu; interface lag 2; no mtu");
    AvConfigGlobalAvbMrpPostEnableEx(&client, false, 0);
    const std::string policy = "service-policy in POLICY_AV\n";
    EXPECT_TRUE(occurrences(config(), timers) == 49u && occurrences(config(), policy) == 50u);
    EXPECT_FALSE(has(applications)) << "they are another step";
    AvConfigGlobalAvbMrpPostEnableEx(&client, true, 1500);
    EXPECT_EQ(occurrences(config(), applications + timers), 49u);
    EXPECT_EQ(occurrences(config(), "mtu 1500\n"), 49u);
    AvConfigAvbMrpIntfCleanup(&client, false);
    EXPECT_TRUE(!has(timers) && occurrences(config(), policy) == 50u);
    AvConfigAvbMrpIntfCleanup(&client, true);
    enter("configure; interface 0/1-0/48; no mtu; interface lag 2; no mtu");
    AvConfigGlobalAvbDelete(&client, true);
    EXPECT_EQ(config(), before);
    EXPECT_TRUE(scriptFiles().empty());
}

TEST_F(BlocksTest, ManualTrunkFilesOfAnyKind) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(parseManualTrunks(R"({"physicalPort":[0,-1,913,1.5,1e99,"2","3\nhostname x",null,[4],7,7],)"
                                R"("lagPort":{"a":3}})"),
              (Names{"0/7", "lag 3"}));
    EXPECT_EQ(parseManualTrunks(R"({"physicalPort":[1)"), Names{});
    EXPECT_EQ(readManualTrunks(), Names{}) << "no file";
    EXPECT_TRUE(switchAvbPortsOff(&client, true));
}

// --- failures

class BlockFailureTest : public BlocksTest {
  protected:
    void SetUp() override {
        BlocksTest::SetUp();
        ASSERT_TRUE(writeManualTrunks(std::vector{IfNum(1)}, {}));
        for (int i = 0; i < static_cast<int>(AvBlock::Count); ++i) {
            const auto block = static_cast<AvBlock>(i);
            const auto value = block == AvBlock::MacFilter ? AV_MAC_FILTER_VISIONARY : kVlan;
            if (!std::set{AvBlock::AvbMrp, AvBlock::Acl, AvBlock::MacFilter, AvBlock::OldQuerier}.contains(
                    block))
                add([=, this] { return switchBlockOn(&client, block, value); });
            add([=, this] {
                enter("configure; spanning-tree mst priority 0 28672");
                return switchBlockOff(&client, block, value);
            });
        }
        dropsVlan = operations.size();
        add([this] { return switchBlockOff(&client, AvBlock::LightwareIgmp, 77); });
        add([this] { return setPtpTc(true); });
        add([this] { return switchQosOn(&client, {.telos = true, .gd = true}); });
        add([this] { return switchQosOff(&client, QosDelete::All); });
        add([this] { return switchAvbPortsOn(&client, true, 1500); });
        add([this] { return setAvbPortTimers(&client, 1500); });
        add([this] { return switchAvbPortsOff(&client, true); });
    }
    template <class Operation>
    void add(Operation operation) {
        operations.emplace_back([operation] { return codeOf(operation()); });
    }
    std::vector<std::function<std::int32_t()>> operations;
    std::size_t dropsVlan = 0;
};

TEST_F(BlockFailureTest, WhicheverCallFailsIsReported) {
    for (std::size_t i = 0; i < operations.size(); ++i) {
        const auto check = [&](std::int32_t result, std::uint64_t nth) {
            SCOPED_TRACE(std::to_string(i) + " call " + std::to_string(nth));
            // Whether the VLAN has come into being or has gone need not be known.
            const bool harmless = result == 0 && (nth == 0 || i == dropsVlan);
            EXPECT_TRUE(result == 10000 || harmless) << result;
            EXPECT_LE(logged("ERROR"), 3u);
            EXPECT_EQ(logged("ERROR") > 0, !harmless);
            for (const auto &name : scriptFiles()) {
                EXPECT_NE(name.find("global_igmp_"), std::string::npos) << name;
                fs::remove(platform::fsPath(kScriptDir + name));
            }
            fresh();
            writeText(platform::paths::kLogFile, "");
        };
        failEach("*", operations[i], check);
    }
}

// Each operation says once, under its name, that the switch refused a script, and then its own texts.
TEST_F(BlockFailureTest, RefusedScriptsAreReportedInTheirOwnWords) {
    const std::tuple<std::string, std::function<void()>, std::size_t> rows[] = {
        {"AvConfigGlobalAvbAdd", call(AvConfigGlobalAvbAdd), 1},
        {"AvConfigGlobalEtcAdd", call(AvConfigGlobalEtcAdd), 0},
        {"AvConfigGlobalrstpAdd", call(AvConfigGlobalrstpAdd, kVlan), 2},
        {"AvConfigGlobalQosDelete", call(AvConfigGlobalQosDelete, AV_QOS_DELETE_ALL), 4},
        {"AvConfigAvbMrpIntfCleanup", call(AvConfigAvbMrpIntfCleanup, true), 1},
        {"AVSonosGlobalConfigDelete", call(AVSonosGlobalConfigDelete), 1},
        {"AvGlobalConfigQosAdd", call(AvGlobalConfigQosAdd), 1},
        {"multicastGlobalConfigSet", call(multicastGlobalConfigSet, kVlan, 0, 0), 1}};
    enter("configure; spanning-tree mst priority 0 28672");
    failCall(kApply, 1, false);
    for (const auto &[operation, run, texts] : rows) {
        const auto before = log().size();
        run();
        const auto lines = log().substr(before);
        const auto refused = occurrences(lines, "trying to apply the configuration. (result = -2)\n");
        EXPECT_EQ(occurrences(lines, "[" + operation + ":"), occurrences(lines, "): test: [")) << lines;
        EXPECT_EQ(occurrences(lines, "(ERROR)"), refused + texts) << lines;
        EXPECT_EQ(occurrences(lines, "] Apply "), texts) << lines;
    }
    EXPECT_EQ(logged("] Apply cli for add AVB failed. (result = 10000)\n"), 1u);
    EXPECT_EQ(logged("] Apply delete global config of qos failed G3.\r\n"), 1u);
}

TEST_F(BlockFailureTest, ScriptThatCannotBeWrittenEndsItsSeries) {
    fs::create_directories(platform::fsPath(kScriptDir) + "pavo_in_global_qos_delete");
    EXPECT_EQ(codeOf(switchQosOff(&client, QosDelete::All)), 10000);
    EXPECT_EQ(logged("] Failed to write configuration to file.\r\n"), 1u);
    EXPECT_EQ(callCount(kApply), 0u);
}

}  // namespace
