// Lightware detection against a virtual switch.
#include "detection/lightware.h"

#include <gtest/gtest.h>

#include <set>

#include "common/owners.h"
#include "common/result.h"
#include "detection/lag.h"
#include "swapi/vlan_membership.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
using vswitch::IfNum;
using Ports = std::set<IfNum>;

constexpr const char *kType = "AVoIP Lightware AV network";
constexpr int kVlan = 300;
constexpr IfNum kLag = 49;  // the first of the switch

class LightwareTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        deviceListInit(&list, lightwareLinkFree, nullptr, lightwareLinkCompare);
        network({});
    }
    void TearDown() override {
        deviceListTearDown(&list);
        DetectionTest::TearDown();
    }

    // A fresh switch with the profile on all ports, and nothing plugged in.
    void network(vswitch::ModelConfig config) {
        deviceListTearDown(&list);
        const auto ports = config.physicalPorts;
        startSwitch(std::move(config));
        vlanCreate(LIGHTWARE_TAGGED_VLAN);
        profileAdd(kVlan, kType);
        for (IfNum port = 1; port <= ports; ++port)
            model([&](vswitch::Model &m) { m.setPvid(port, kVlan); });
    }

    static vswitch::Device uplink(IfNum port, const std::string &chassis, const std::string &portDesc,
                                  const std::string &systemDesc = "UBEX endpoint") {
        vswitch::Device out;
        out.name = "uplink" + std::to_string(port);
        out.port = port;
        out.lldp.emplace();
        out.lldp->chassisId = chassis;
        out.lldp->portDesc = portDesc;
        out.lldp->systemDesc = systemDesc;
        return out;
    }
    void connect(IfNum port, const std::string &chassis, const std::string &portDesc) {
        ASSERT_EQ(plug(uplink(port, chassis, portDesc)), OPEN_E_NONE);
    }
    void disconnect(IfNum port) { ASSERT_EQ(unplug("uplink" + std::to_string(port)), OPEN_E_NONE); }
    void scans(int count = 1) {
        for (int i = 0; i < count; ++i)
            lightwareLookup(&client, &list);
    }

    // The port's record, or null.
    LightwareLink *link(IfNum port) {
        for (std::size_t i = 1; i <= list.count; ++i)
            if (auto *record = recordAt<LightwareLink>(list, i); record->port == port)
                return record;
        return nullptr;
    }
    IfNum lagOf(IfNum port) {
        return model([&](vswitch::Model &m) { return m.interface(port)->lag; });
    }
    bool tagged(IfNum ifNum) {
        const vswitch::Membership wanted{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true};
        return model([&](vswitch::Model &m) { return m.membership(ifNum, LIGHTWARE_TAGGED_VLAN) == wanted; });
    }
    // All that an online step sets for the uplinks on `ports`.
    bool bundled(IfNum lag, const Ports &ports) {
        const auto interface = model([&](vswitch::Model &m) { return *m.interface(lag); });
        bool good = interface.members == ports && !interface.lagStatic && interface.pvid == kVlan;
        const std::map<vswitch::VlanId, vswitch::Membership> vlans = {
            {1, {OPEN_VLAN_PARTICIPATION_MODE_AUTO, false}},
            {LIGHTWARE_TAGGED_VLAN, {OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true}},
            {kVlan, {OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, false}}};
        good = good && interface.vlans == vlans;
        for (const IfNum port : ports)
            good = good && tagged(port) && link(port) != nullptr && link(port)->lagIfNum == lag;
        return good;
    }
    // As if it had never been used, apart from its members.
    bool unbundled(IfNum lag) {
        const auto interface = model([&](vswitch::Model &m) { return *m.interface(lag); });
        return interface.lagStatic && interface.pvid == 1 && interface.vlans.empty();
    }

    DeviceList list;
};

TEST_F(LightwareTest, BundlesTheUplinksOfAnEndpoint) {
    connect(1, "endpoint-a", "1 first");
    connect(2, "endpoint-a", "2 second");
    connect(3, "endpoint-b", "1 first");
    scans();
    EXPECT_TRUE(bundled(kLag, {1, 2}));
    EXPECT_TRUE(bundled(kLag + 1, {3}));
    EXPECT_EQ(link(2)->portDescNum, 2u);
    scans(5);
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 3u);

    // Missing once is nothing; missing twice takes the LAG's settings away from the uplink that stays, until
    // the other one is back.
    disconnect(2);
    scans();
    EXPECT_EQ(link(2)->missCount, 1u);
    EXPECT_TRUE(bundled(kLag, {1, 2}));
    connect(2, "endpoint-a", "2 second");
    scans();
    EXPECT_EQ(link(2)->missCount, 0u);
    disconnect(2);
    scans(2);
    EXPECT_EQ(list.count, 2u);
    EXPECT_TRUE(unbundled(kLag));
    EXPECT_EQ(lagOf(1), kLag);
    EXPECT_EQ(lagOf(2), 0u);
    EXPECT_FALSE(tagged(2));
    EXPECT_TRUE(tagged(1));
    connect(2, "endpoint-a", "2 second");
    scans();
    EXPECT_TRUE(bundled(kLag, {1, 2}));
    EXPECT_TRUE(bundled(kLag + 1, {3}));
    EXPECT_EQ(logged("(ERROR)"), 0u);
    EXPECT_EQ(clk::totalSlept(), 0s);
}

TEST_F(LightwareTest, FollowsAMovedUplinkWithinOneCycle) {
    connect(4, "endpoint-a", "1");
    scans();
    move("uplink4", 1);
    scans();
    EXPECT_EQ(list.count, 1u);
    EXPECT_TRUE(bundled(kLag, {1}));
    EXPECT_FALSE(tagged(4));
}

TEST_F(LightwareTest, TakesNothingElseForAnEndpoint) {
    IfNum port = 1;
    for (const char *description : {"ubex endpoint", " UBEX", "The UBEX", "UBE", ""})
        plug(uplink(port++, "a", "1", description));
    connect(6, "", "1");
    connect(7, "a", "1");
    model([](vswitch::Model &m) { m.setPvid(7, 1); });
    vlanInfoReplace(286, 1, "test", kType, "#112233");  // never the profile's VLAN
    scans(3);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 0u);
    profileRemove(kVlan);
    std::uint32_t vlan = 0;
    EXPECT_EQ(lightwareVlanIdGet(&client, &vlan), RESULT_CONFIG_INVALID);
}

TEST_F(LightwareTest, MoreEndpointsThanLags) {
    network({.physicalPorts = 8, .lags = 1, .lagMembersMax = 2});
    connect(1, "endpoint-a", "1");
    connect(2, "endpoint-b", "1");
    connect(3, "endpoint-b", "2");
    scans();
    EXPECT_TRUE(bundled(9, {1}));
    EXPECT_EQ(link(2)->lagIfNum, 0u);
    EXPECT_EQ(link(3)->lagIfNum, 0u);
    // A LAG that becomes free is not for those that are already here.
    disconnect(1);
    scans(4);
    EXPECT_EQ(model([](vswitch::Model &m) { return m.interface(9)->members.size(); }), 0u);
    EXPECT_EQ(list.count, 2u);
    const auto changes = callCount("rpcclt_openapiVlanIfParticipationSet");
    for (const IfNum port : {2, 3})
        disconnect(port);
    scans(2);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfParticipationSet"), changes);
    for (const IfNum port : {2, 3})
        connect(port, "endpoint-b", std::to_string(port));
    scans();
    EXPECT_TRUE(bundled(9, {2, 3}));
    EXPECT_EQ(logged("(ERROR)"), 0u);

    // A LAG without room: the uplink stays out of it, but gets its VLAN.
    connect(4, "endpoint-b", "4");
    EXPECT_EQ(errorsOf([&] { scans(3); }), 1u);
    EXPECT_EQ(logged("Lightware: Failed to add interface 4 to LAG interface 9, result=-3\n"), 1u);
    EXPECT_EQ(link(4)->lagIfNum, 9u);
    EXPECT_EQ(lagOf(4), 0u);
    EXPECT_TRUE(tagged(4));

    network({.physicalPorts = 8, .lags = 0});
    connect(1, "endpoint-a", "1");
    scans(2);
    EXPECT_EQ(link(1)->lagIfNum, 0u);
}

TEST_F(LightwareTest, TakesAPortOutOfTheLagItIsIn) {
    const auto addElsewhere = [&](IfNum port) {
        model([&](vswitch::Model &m) { EXPECT_EQ(m.lagAdd(60, port), OPEN_E_NONE); });
    };
    addElsewhere(1);
    connect(1, "endpoint-a", "1");
    scans();
    EXPECT_EQ(clk::totalSlept(), 2s);
    EXPECT_TRUE(bundled(kLag, {1}));
    EXPECT_EQ(logged("Lightware: Successfully to delete interface 1 from LAG inaterface 60\n"), 1u);

    addElsewhere(2);
    connect(2, "endpoint-a", "2");
    failCall("rpcclt_openapiLagPortDelete");
    EXPECT_EQ(errorsOf([&] { scans(); }), 2u);
    EXPECT_EQ(logged("Lightware: Failed to delete interface 2 from LAG inaterface 60\n"), 1u);
    EXPECT_EQ(logged("Lightware: Failed to add interface 2 to LAG interface 49, result=-2\n"), 1u);
    EXPECT_EQ(clk::totalSlept(), 2s);
    EXPECT_EQ(link(2)->lagIfNum, kLag);

    // The static mode that cannot be set is a line, no more.
    connect(3, "endpoint-b", "1");
    clearFaults();
    failCall("rpcclt_openapiLagStaticModeSet");
    EXPECT_EQ(errorsOf([&] { scans(); }), 1u);
    EXPECT_EQ(logged("Failed to set the static mode for the LAG interface 50, result=-2\n"), 1u);
    EXPECT_EQ(lagOf(3), 50u);
}

TEST_F(LightwareTest, NeighbourTextsOfAnyLengthAndContent) {
    for (std::size_t length = 1; length <= 255; ++length) {
        unplug("uplink1");
        connect(1, hostileText(length), hostileText(255 - length));
        const JsonPtr out(cJSON_CreateArray());
        lightwareListGet(&client, out.get());
        ASSERT_EQ(cJSON_GetArraySize(out.get()), 1);
        ASSERT_EQ(cJSON_GetObjectItem(cJSON_GetArrayItem(out.get(), 0), "chassisId")->valuestring,
                  hostileText(length));
        scans();
    }
    EXPECT_LE(list.count, 3u);
    unplug("uplink1");
    scans(2);
    EXPECT_EQ(list.count, 0u);
    EXPECT_TRUE(logLinesIntact());

    // An identity longer than a record keeps still names one endpoint, with two uplinks that stay put.
    connect(1, std::string(255, 'c'), "4294967295999");
    connect(2, std::string(255, 'c'), "12abc");
    connect(3, "endpoint-b", "abc");
    scans(4);
    EXPECT_TRUE(bundled(kLag, {1, 2}));
    EXPECT_TRUE(bundled(kLag + 1, {3}));
    EXPECT_EQ(std::string(link(1)->chassisId), std::string(18, 'c'));
    EXPECT_EQ(link(2)->portDescNum, 12u);
    EXPECT_EQ(link(3)->portDescNum, 0u);

    // Two endpoints that cannot be told apart disturb each other, not the list and not the others.
    connect(4, "endpoint-b", "abc");
    scans(10);
    EXPECT_EQ(list.count, 4u);
    EXPECT_NE(lagOf(3), lagOf(4));
    EXPECT_TRUE(bundled(kLag, {1, 2}));

    // A read that fails is an uplink missed once.
    for (const char *read : {"SystemDesc", "ChassisId", "PortDesc"}) {
        failCall("rpcclt_openapiLldpIntfRemoteDevice" + std::string(read) + "Get");
        EXPECT_EQ(errorsOf([&] { scans(); }), 1u);
        EXPECT_EQ(logged("Device" + std::string(read) + "Get error. (result = -2)\r\n"), 1u);
        EXPECT_EQ(link(1)->missCount, 1u);
        scans();
        EXPECT_TRUE(bundled(kLag, {1, 2}));
        clearFaults();
    }
}

TEST_F(LightwareTest, ASlowSwitch) {
    const auto latency = [&](platform::Duration time) {
        model([&](vswitch::Model &m) { m.setLatency(time); });
    };
    connect(1, "endpoint-a", "1");
    latency(3900ms);
    scans();
    EXPECT_TRUE(bundled(kLag, {1}));
    EXPECT_EQ(clk::totalSlept(), 7 * 3900ms);  // seven changes, each waited for
    EXPECT_EQ(logged("(ERROR)"), 0u);
    disconnect(1);
    scans(2);
    EXPECT_TRUE(unbundled(kLag));
    EXPECT_FALSE(tagged(1));

    // Slower than anybody waits: tagging does not follow a participation that never showed, nor PVID the old
    // VLAN's. Nothing is said and the uplink counts as done.
    latency(4100ms);
    connect(1, "endpoint-a", "1");
    const auto before = clk::totalSlept();
    const auto tagging = callCount("rpcclt_openapiVlanIfTaggingSet");
    EXPECT_EQ(errorsOf([&] { scans(); }), 0u);
    EXPECT_EQ(clk::totalSlept() - before, 3 * 4s);
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), tagging);
    clk::advance(10s);
    EXPECT_EQ(link(1)->lagIfNum, kLag);
    const auto lag = model([](vswitch::Model &m) { return *m.interface(kLag); });
    const vswitch::Membership untagged{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, false};
    EXPECT_EQ(lag.vlans.at(LIGHTWARE_TAGGED_VLAN), untagged);
    EXPECT_EQ(lag.pvid, 1u);
    // Going offline says so, for LAG and port, and does all its steps.
    disconnect(1);
    EXPECT_EQ(errorsOf([&] { scans(2); }), 2u);
    EXPECT_EQ(logged("set interface 49 to vlan 286 OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n"), 1u);
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), tagging + 2);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(lagOf(1), 0u);
}

TEST_F(LightwareTest, AMembershipStepEndsWithItsFirstFailure) {
    constexpr const char *kParticipation = "rpcclt_openapiVlanIfParticipationSet";
    constexpr const char *kPvid = "rpcclt_openapiVlanIfPvidSet";
    // Going online, changes 3 and 4 take the LAG out of its old VLAN and into the profile's; going offline, 2
    // and 3 take it out of there and into VLAN 1. The PVID follows only when both were done.
    for (const std::uint64_t nth : {3, 4}) {
        network({});
        connect(1, "endpoint-a", "1");
        failCall(kParticipation, nth);
        EXPECT_EQ(errorsOf([&] { scans(); }), 1u);
        EXPECT_EQ(callCount(kParticipation), nth);
        EXPECT_EQ(callCount(kPvid), 0u);
        EXPECT_EQ(link(1)->lagIfNum, kLag);

        network({});
        connect(1, "endpoint-a", "1");
        scans();
        disconnect(1);
        failCall(kParticipation, nth - 1);
        EXPECT_EQ(errorsOf([&] { scans(2); }), 1u);
        EXPECT_EQ(callCount(kParticipation), 4 + nth);  // the port comes after the LAG
        EXPECT_EQ(callCount(kPvid), 1u);
        EXPECT_EQ(list.count, 0u);
    }
}

TEST_F(LightwareTest, ResultsOfTheSteps) {
    // An uplink whose online step fails is not in the list, and tried again.
    connect(1, "endpoint-a", "1");
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    scans();
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(lagOf(1), 0u);
    clearFaults();
    failCall("openapiVlanCreatedCheck", 3);  // the scan makes two
    scans();
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(lagOf(1), kLag);
    clearFaults();
    scans();
    EXPECT_TRUE(bundled(kLag + 1, {1}));  // the first LAG was not empty

    LightwareLink record{2, "endpoint-b", 1, 0, 0};
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    EXPECT_EQ(lightwareOnlineCli(&client, &list, &record), RESULT_FAILED);
    profileRemove(kVlan);
    EXPECT_EQ(lightwareOnlineCli(&client, &list, &record), RESULT_CONFIG_INVALID);
    // Without a profile it got as far as the LAG, and gets out of there all the same.
    std::uint32_t lag = 7;
    EXPECT_EQ(phyPortLagNumGet(&client, 3, &lag), 0);
    EXPECT_EQ(lag, 7u);
    EXPECT_EQ(phyPortLagNumGet(&client, 2, &lag), 0);
    EXPECT_EQ(lag, record.lagIfNum);
    EXPECT_EQ(lightwareOfflineCli(&client, &list, &record), RESULT_CONFIG_INVALID);
    EXPECT_EQ(lagOf(2), 0u);
    EXPECT_FALSE(tagged(2) || tagged(lag));
    const auto calls = device->with([](vswitch::Server &s) { return s.callTotal(); });
    record.lagIfNum = 0;
    EXPECT_EQ(lightwareOfflineCli(&client, &list, &record), 0);
    EXPECT_EQ(device->with([](vswitch::Server &s) { return s.callTotal(); }), calls);
}

TEST_F(LightwareTest, TheThreadLeavesTheSwitchAsItIs) {
    connect(1, "endpoint-a", "1");
    clk::setAutoAdvance(false);
    pthread_t id{};
    const auto start = [&] {
        lightwareRunning = 1;
        ASSERT_EQ(pthread_create(&id, nullptr, detect_lightware_thread, &client), 0);
    };
    start();
    for (int cycle = 0; cycle < 3; ++cycle) {
        ASSERT_TRUE(clk::awaitSleepers(1));
        EXPECT_EQ(lagOf(1), cycle == 0 ? 0 : kLag);
        clk::advance(30s);
    }
    ASSERT_TRUE(clk::awaitSleepers(1));
    const auto configured = [&] {
        const auto text = show("show running-config");
        return text.substr(text.find("vlan database"));  // the head shows the time
    };
    const auto before = configured();
    EXPECT_EQ(lightwareRunning, 1);
    profileRemove(kVlan);
    clk::advance(30s);
    EXPECT_EQ(pthread_join(id, nullptr), 0);
    EXPECT_EQ(lightwareRunning, 0);
    EXPECT_EQ(configured(), before);
    EXPECT_EQ(logged("User already delete lightware profile, LightwareLookup exit!\r\n"), 1u);

    start();
    EXPECT_EQ(pthread_join(id, nullptr), 0);
    EXPECT_EQ(lightwareRunning, 0);
    EXPECT_EQ(logged("LightwareLookup Init success!\r\n"), 2u);
    EXPECT_EQ(logged("LightwareLookup exit!"), 1u);
}

// --- every call may fail

// Two uplinks on ports 1 and 2; the second one joins, leaves, or moves to port 5.
enum class Happening { Online, Offline, Move };

class LightwareFaultTest : public LightwareTest, public testing::WithParamInterface<Happening> {};

TEST_P(LightwareFaultTest, EveryEndpointIsWholeAfterARePlug) {
    const IfNum port = GetParam() == Happening::Move ? 5 : 2;
    for (const bool once : {true, false}) {
        bool struck = true;
        for (std::uint64_t n = 1; struck; ++n) {
            SCOPED_TRACE(testing::Message() << "call " << n << (once ? " fails" : " and all after it fail"));
            network({.physicalPorts = 6, .lags = 3});
            connect(1, "endpoint-a", "1");
            if (GetParam() != Happening::Online) {
                connect(2, "endpoint-a", "2");
                scans();
                ASSERT_TRUE(bundled(7, {1, 2}));
            }
            if (GetParam() == Happening::Online)
                connect(2, "endpoint-a", "2");
            else if (GetParam() == Happening::Move)
                move("uplink2", port);
            else
                disconnect(2), link(2)->missCount = 1;

            failCall("*", n, once);
            scans(once ? 1 : 3);
            struck = callsSeen() >= n;
            clearFaults();
            if (GetParam() != Happening::Online) {
                ASSERT_NE(link(1), nullptr);
            }

            scans(3);
            Ports present{1};
            if (GetParam() != Happening::Offline)
                present.insert(port);
            ASSERT_EQ(list.count, present.size());
            ASSERT_NE(link(1), nullptr);
            if (struck) {
                for (const IfNum plugged : present)
                    model([&](vswitch::Model &m) { m.setCarrier(plugged, vswitch::Carrier::ForcedDown); });
                scans(2);
                ASSERT_EQ(list.count, 0u);
                for (const IfNum plugged : present)
                    model([&](vswitch::Model &m) { m.setCarrier(plugged, vswitch::Carrier::FollowDevices); });
            }
            if (GetParam() == Happening::Offline)
                connect(2, "endpoint-a", "2");
            scans();
            ASSERT_EQ(list.count, 2u);
            const IfNum lag = link(1)->lagIfNum;
            // A port that could not be taken out of its LAG when its uplink left is still there.
            if (port != 2 && lagOf(2) != 0) {
                ASSERT_NE(logged("Failed to delete interface 2 from LAG"), 0u);
                model([&](vswitch::Model &m) { m.lagRemove(m.interface(2)->lag, 2); });
            }
            ASSERT_TRUE(bundled(lag, {1, port}));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lightware, LightwareFaultTest,
                         testing::Values(Happening::Online, Happening::Offline, Happening::Move));

}  // namespace
