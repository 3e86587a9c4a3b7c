// Lightware detection against a virtual switch.
#include "detection/lightware.h"

#include <gtest/gtest.h>

#include <set>

#include "common/json.h"
#include "detection/lag.h"
#include "detection/scan_ops.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
using Port = vswitch::IfNum;
using Ports = std::set<Port>;

constexpr const char *kType = "AVoIP Lightware AV network";
constexpr int kVlan = 300;
constexpr vswitch::VlanId kTaggedVlan = LIGHTWARE_TAGGED_VLAN.number();
constexpr const char *kParticipation = "rpcclt_openapiVlanIfParticipationSet";
constexpr Port kLag = 49;  // the first of the switch

class LightwareTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        profileStore(kVlan, kType);
        network({});
    }

    // A fresh switch with the profile on all ports, and nothing plugged in.
    void network(vswitch::ModelConfig config) {
        list.clear();
        const auto ports = config.physicalPorts;
        startSwitch(std::move(config));
        for (const auto vlan : {kTaggedVlan, vswitch::VlanId{kVlan}})
            vlanCreate(vlan);
        for (Port port = 1; port <= ports; ++port)
            model([&](vswitch::Model &m) { m.setPvid(port, kVlan); });
    }

    void connect(Port port, const std::string &chassis = "endpoint-a", const std::string &portDesc = "1",
                 const std::string &systemDesc = "UBEX endpoint") {
        vswitch::Device uplink;
        uplink.name = "uplink" + std::to_string(port);
        uplink.port = port;
        uplink.lldp.emplace();
        uplink.lldp->chassisId = chassis;
        uplink.lldp->portDesc = portDesc;
        uplink.lldp->systemDesc = systemDesc;
        ASSERT_EQ(plug(uplink), OPEN_E_NONE);
    }
    void disconnect(Port port) { ASSERT_EQ(unplug("uplink" + std::to_string(port)), OPEN_E_NONE); }
    // Cycles, and what they end with.
    std::string scans(int count = 1) {
        for (int i = 0; i < count; ++i)
            lightwareLookup(&client, &list);
        return links();
    }

    DeviceList<LightwareLink> list;  // what Lightware detection knows

    // The port's record, or null.
    LightwareLink *link(Port port) {
        for (LightwareLink &record : list)
            if (record.port.number() == port)
                return &record;
        return nullptr;
    }
    // The list in the order of the ports, with the LAG that each is meant to be in; "!" unless port and LAG
    // are all that an online step makes of them, with no other members: "1@49 2@49! 3@0".
    std::string links() {
        std::map<Port, Ports> lags;
        for (const LightwareLink &record : list)
            lags[record.lag.number()].insert(record.port.number());
        std::map<Port, std::string> out;
        for (const auto &[lag, ports] : lags)
            for (const Port port : ports)
                out[port] = std::to_string(port) + "@" + std::to_string(lag) +
                            (lag == 0 || (tagged(port) && bundled(lag, ports)) ? " " : "! ");
        std::string text;
        for (const auto &[port, one] : out)
            text += one;
        return text;
    }
    Port lagOf(Port port) {
        return model([&](vswitch::Model &m) { return m.interface(port)->lag; });
    }
    bool tagged(Port ifNum) {
        const vswitch::Membership wanted{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true};
        return model([&](vswitch::Model &m) { return m.membership(ifNum, kTaggedVlan) == wanted; });
    }
    bool bundled(Port lag, const Ports &ports) {
        const auto interface = model([&](vswitch::Model &m) { return *m.interface(lag); });
        const std::map<vswitch::VlanId, vswitch::Membership> vlans = {
            {1, {OPEN_VLAN_PARTICIPATION_MODE_AUTO, false}},
            {kTaggedVlan, {OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true}},
            {kVlan, {OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, false}}};
        return interface.members == ports && !interface.lagStatic && interface.pvid == kVlan &&
               interface.vlans == vlans;
    }
    // As if it had never been used, apart from its members.
    bool unbundled(Port lag) {
        const auto interface = model([&](vswitch::Model &m) { return *m.interface(lag); });
        return interface.lagStatic && interface.pvid == 1 && interface.vlans.empty();
    }
};

TEST_F(LightwareTest, BundlesTheUplinksOfAnEndpoint) {
    connect(1, "endpoint-a", "1 first");
    connect(2, "endpoint-a", "2 second");
    connect(3, "endpoint-b", "1 first");
    EXPECT_EQ(scans(5), "1@49 2@49 3@50 ");
    EXPECT_EQ(link(2)->portDescNum, 2u);
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 3u);

    // Missing once is nothing; missing twice takes the LAG's settings away from the uplink that stays, until
    // the other one is back.
    disconnect(2);
    EXPECT_EQ(scans(), "1@49 2@49 3@50 ");
    EXPECT_EQ(link(2)->missCount, 1u);
    connect(2, "endpoint-a", "2 second");
    scans();
    EXPECT_EQ(link(2)->missCount, 0u);
    disconnect(2);
    EXPECT_EQ(scans(2), "1@49! 3@50 ");
    EXPECT_TRUE(unbundled(kLag) && tagged(1) && !tagged(2) && lagOf(1) == kLag && lagOf(2) == 0);
    connect(2, "endpoint-a", "2 second");
    EXPECT_EQ(scans(), "1@49 2@49 3@50 ");

    // A moved uplink is followed within one cycle.
    move("uplink3", 4);
    EXPECT_EQ(scans(), "1@49 2@49 4@50 ");
    EXPECT_FALSE(tagged(3));
    EXPECT_EQ(logged("(ERROR)"), 0u);
    EXPECT_EQ(clk::totalSlept(), 0s);
}

TEST_F(LightwareTest, TakesNothingElseForAnEndpoint) {
    Port port = 1;
    for (const char *description : {"ubex endpoint", " UBEX", "The UBEX", "UBE", ""})
        connect(port++, "a", "1", description);
    connect(6, "");
    connect(7);
    model([](vswitch::Model &m) { m.setPvid(7, 1); });
    profileStore(286, kType);  // never the profile's VLAN
    EXPECT_EQ(scans(3), "");
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 0u);
    profileRemove(kVlan);
    EXPECT_EQ(checkReason(lightwareDetection.loop, &client), Presence::Absent);
}

TEST_F(LightwareTest, MoreEndpointsThanLags) {
    network({.physicalPorts = 8, .lags = 1, .lagMembersMax = 2});
    connect(1);
    connect(2, "endpoint-b");
    connect(3, "endpoint-b", "2");
    EXPECT_EQ(scans(), "1@9 2@0 3@0 ");
    // A LAG that becomes free is not for those that are already here.
    disconnect(1);
    EXPECT_EQ(scans(4), "2@0 3@0 ");
    const auto changes = callCount(kParticipation);
    for (const Port port : {2, 3})
        disconnect(port);
    EXPECT_EQ(scans(2), "");
    EXPECT_EQ(callCount(kParticipation), changes);
    for (const Port port : {2, 3})
        connect(port, "endpoint-b", std::to_string(port));
    EXPECT_EQ(scans(), "2@9 3@9 ");
    EXPECT_EQ(logged("(ERROR)"), 0u);

    // A LAG without room: the uplink stays out of it, but gets its VLAN.
    connect(4, "endpoint-b", "4");
    expectErrors(1, {"Lightware: Failed to add interface 4 to LAG interface 9, result=-3\n"},
                 [&] { scans(3); });
    EXPECT_TRUE(link(4)->lag.number() == 9 && lagOf(4) == 0 && tagged(4));

    network({.physicalPorts = 8, .lags = 0});
    connect(1);
    EXPECT_EQ(scans(2), "1@0 ");
}

TEST_F(LightwareTest, TakesAPortOutOfTheLagItIsIn) {
    for (const Port port : {1, 2})
        model([&](vswitch::Model &m) { EXPECT_EQ(m.lagAdd(60, port), OPEN_E_NONE); });
    connect(1);
    EXPECT_EQ(scans(), "1@49 ");
    EXPECT_EQ(logged("Lightware: Successfully to delete interface 1 from LAG inaterface 60\n"), 1u);
    connect(2, "endpoint-a", "2");
    failCall("rpcclt_openapiLagPortDelete");
    expectErrors(2,
                 {"Lightware: Failed to delete interface 2 from LAG inaterface 60\n",
                  "Lightware: Failed to add interface 2 to LAG interface 49, result=-2\n"},
                 [&] { scans(); });
    EXPECT_EQ(clk::totalSlept(), 2s) << "only after leaving";
    // The static mode that cannot be set is a line, no more.
    connect(3, "endpoint-b");
    clearFaults();
    failCall("rpcclt_openapiLagStaticModeSet");
    expectErrors(1, {"Failed to set the static mode for the LAG interface 50, result=-2\n"},
                 [&] { scans(); });
    EXPECT_EQ(links(), "1@49! 2@49! 3@50! ");
    EXPECT_EQ(lagOf(3), 50u);
}

TEST_F(LightwareTest, NeighbourTextsOfAnyLengthAndContent) {
    for (std::size_t length = 1; length <= 255; ++length) {
        unplug("uplink1");
        connect(1, hostileText(length), hostileText(255 - length));
        const JsonPtr out(cJSON_CreateArray());
        lightwareListGet(&client, out.get());
        ASSERT_EQ(cJSON_GetArraySize(out.get()), 1);
        ASSERT_EQ(cJSON_GetObjectItem(out->child, "chassisId")->valuestring, hostileText(length));
        scans();
    }
    EXPECT_LE(list.count(), 3u);
    EXPECT_EQ(functionsLogged(),
              "freeLagFind ifTaggingClear lightwareLookup lightwareOfflineCli lightwareOnlineCli ");
    unplug("uplink1");
    EXPECT_EQ(scans(2), "");
    EXPECT_TRUE(logLinesIntact());

    // An identity longer than a record keeps still names one endpoint, with two uplinks that stay put.
    connect(1, std::string(255, 'c'), "4294967295999");
    connect(2, std::string(255, 'c'), "12abc");
    connect(3, "endpoint-b", "abc");
    EXPECT_EQ(scans(4), "1@49 2@49 3@50 ");
    EXPECT_EQ(link(1)->chassisId, std::string(18, 'c'));
    EXPECT_TRUE(link(2)->portDescNum == 12 && link(3)->portDescNum == 0);

    // Two endpoints that cannot be told apart disturb each other, not the list and not the others.
    connect(4, "endpoint-b", "abc");
    EXPECT_TRUE(scans(10).starts_with("1@49 2@49 "));
    EXPECT_EQ(list.count(), 4u);
    EXPECT_NE(lagOf(3), lagOf(4));

    // A read that fails is an uplink missed once.
    for (const std::string read : {"SystemDesc", "ChassisId", "PortDesc"}) {
        failCall("rpcclt_openapiLldpIntfRemoteDevice" + read + "Get");
        expectErrors(1, {"Device" + read + "Get error. (result = -2)\r\n"}, [&] { scans(); });
        EXPECT_EQ(link(1)->missCount, 1u);
        EXPECT_TRUE(scans().starts_with("1@49 2@49 "));
        clearFaults();
    }
}

TEST_F(LightwareTest, ScansAsJson) {
    connect(1, "endpoint-a", "1 first");
    connect(2, "endpoint-a", "2 second");
    const auto shown = [this](IfNum port, std::int32_t code) {
        const JsonPtr out(cJSON_CreateArray());
        EXPECT_EQ(lldpIntfRemoteLightwareInfoGet(&client, {port, out.get()}), code);
        return printJsonLine(out.get());
    };
    EXPECT_EQ(shown(IfNum(1), 0),
              R"([{"systemDesc":"UBEX endpoint","chassisId":"endpoint-a","portDesc":"1 first"}])");
    // What was read before a failure stays, and is no uplink.
    for (const auto &[call, text] :
         {std::pair{"rpcclt_openapiLldpIntfRemoteDevicePortDescGet",
                    R"([{"systemDesc":"UBEX endpoint","chassisId":"endpoint-a"}])"},
          {"rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet", "[]"}}) {
        failCall(call);
        EXPECT_EQ(shown(IfNum(1), 10000), text);
        clearFaults();
    }
    failCall("rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet");
    const JsonPtr out(cJSON_CreateArray());
    lightwareListGet(&client, out.get());
    EXPECT_EQ(
        printJsonLine(out.get()),
        R"([{"portId":2,"systemDesc":"UBEX endpoint","chassisId":"endpoint-a","portDesc":"2 second"}])");
}

TEST_F(LightwareTest, ASlowSwitch) {
    const auto latency = [&](platform::Duration time) {
        model([&](vswitch::Model &m) { m.setLatency(time); });
    };
    connect(1);
    latency(3900ms);
    EXPECT_EQ(scans(), "1@49 ");
    EXPECT_EQ(clk::totalSlept(), 7 * 3900ms);  // seven changes, each waited for
    EXPECT_EQ(logged("(ERROR)"), 0u);
    disconnect(1);
    scans(2);
    EXPECT_TRUE(unbundled(kLag) && !tagged(1));

    // Slower than anybody waits: tagging does not follow a participation that never showed, nor PVID the old
    // VLAN's. Nothing is said and the uplink counts as done.
    latency(4100ms);
    connect(1);
    const auto before = clk::totalSlept();
    const auto tagging = callCount("rpcclt_openapiVlanIfTaggingSet");
    expectErrors(0, {}, [&] { scans(); });
    EXPECT_EQ(clk::totalSlept() - before, 3 * 4s);
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), tagging);
    clk::advance(10s);
    EXPECT_EQ(links(), "1@49! ");
    const auto lag = model([](vswitch::Model &m) { return *m.interface(kLag); });
    EXPECT_EQ(lag.vlans.at(kTaggedVlan), (vswitch::Membership{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE}));
    EXPECT_EQ(lag.pvid, 1u);
    // Going offline says so, for LAG and port, and does all its steps.
    disconnect(1);
    expectErrors(2, {"set interface 49 to vlan 286 OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n"},
                 [&] { scans(2); });
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), tagging + 2);
    EXPECT_TRUE(list.count() == 0 && lagOf(1) == 0);
}

TEST_F(LightwareTest, AMembershipStepEndsWithItsFirstFailure) {
    // Going online, changes 3 and 4 take the LAG out of its old VLAN and into the profile's; going offline, 2
    // and 3 take it out of there and into VLAN 1. The PVID follows only when both were done.
    const auto check = [&](bool leaving, std::uint64_t nth, std::uint64_t changes) {
        network({});
        connect(1);
        if (leaving) {
            scans();
            disconnect(1);
        }
        failCall(kParticipation, nth);
        expectErrors(1, {}, [&] { scans(leaving ? 2 : 1); });
        EXPECT_EQ(callCount(kParticipation), changes) << "the port comes after the LAG";
        EXPECT_EQ(callCount("rpcclt_openapiVlanIfPvidSet"), leaving ? 1u : 0u);
        EXPECT_EQ(links(), leaving ? "" : "1@49! ");
    };
    check(false, 3, 3);
    check(false, 4, 4);
    check(true, 2, 4 + 3);
    check(true, 3, 4 + 4);
}

TEST_F(LightwareTest, ResultsOfTheSteps) {
    // An uplink whose online step fails is not in the list, and tried again.
    connect(1);
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    EXPECT_EQ(scans(), "");
    EXPECT_EQ(lagOf(1), 0u);
    clearFaults();
    failCall("openapiVlanCreatedCheck", 3);  // the scan makes two
    EXPECT_EQ(scans(), "");
    EXPECT_EQ(lagOf(1), kLag);
    clearFaults();
    EXPECT_EQ(scans(), "1@50 ");  // the first LAG was not empty

    LightwareLink record{.port = IfNum(2), .chassisId = "endpoint-b", .portDescNum = 1, .lag = {}};
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    EXPECT_EQ(codeOf(lightwareOnlineCli(&client, list, &record)), 10000);
    profileRemove(kVlan);
    EXPECT_EQ(codeOf(lightwareOnlineCli(&client, list, &record)), 17001);
    // Without a profile it got as far as the LAG, and gets out of there all the same.
    EXPECT_EQ(phyPortLagNumGet(&client, IfNum(3)).value(), IfNum());
    EXPECT_EQ(phyPortLagNumGet(&client, IfNum(2)).value(), record.lag);
    EXPECT_EQ(codeOf(lightwareOfflineCli(&client, &record)), 17001);
    EXPECT_TRUE(lagOf(2) == 0 && !tagged(2) && !tagged(record.lag.number()));
    record.lag = {};
    clearFaults();
    failCall("*");
    EXPECT_EQ(codeOf(lightwareOfflineCli(&client, &record)), 0);
    EXPECT_EQ(callsSeen(), 0u);
}

TEST_F(LightwareTest, TaggingIsClearedInTwoStepsWhateverHappens) {
    const auto membership = [&] {
        return model([&](vswitch::Model &m) { return m.membership(kLag, kTaggedVlan); });
    };
    connect(1);
    scans();
    failCall(kParticipation);
    expectErrors(2, {"set interface 49 to vlan 286 OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n"},
                 [&] { ifTaggingClear(&client, IfNum(kLag)); });
    EXPECT_EQ(membership(), (vswitch::Membership{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, false}));
    failCall("rpcclt_openapiVlanIfTaggingSet");
    expectErrors(2, {"Lightware: set interface 49 to vlan 286 tagged failed.\r\n"},
                 [&] { ifTaggingClear(&client, IfNum(kLag)); });
    EXPECT_EQ(membership().participation, std::uint32_t{OPEN_VLAN_PARTICIPATION_MODE_AUTO});
}

TEST_F(LightwareTest, TheThreadLeavesTheSwitchAsItIs) {
    connect(1);
    lightwareRunning = 1;
    start(detect_lightware_thread);
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
    join();
    EXPECT_EQ(lightwareRunning, 0);
    EXPECT_EQ(configured(), before);
    EXPECT_EQ(logged("User already delete lightware profile, LightwareLookup exit!\r\n"), 1u);

    lightwareRunning = 1;
    start(detect_lightware_thread);
    join();
    EXPECT_EQ(lightwareRunning, 0);
    EXPECT_EQ(logged("LightwareLookup Init success!\r\n"), 2u);
    EXPECT_EQ(logged("LightwareLookup exit!"), 1u);
}

// --- every call may fail

// Two uplinks on ports 1 and 2; the second one joins, leaves, or moves to port 3.
enum class Happening { Online, Offline, Move };

class LightwareFaultTest : public LightwareTest, public testing::WithParamInterface<Happening> {};

TEST_P(LightwareFaultTest, EveryEndpointIsWholeAfterARePlug) {
    const Port port = GetParam() == Happening::Move ? 3 : 2;
    for (const bool once : {true, false}) {
        bool struck = true;
        for (std::uint64_t n = 1; struck; ++n) {
            SCOPED_TRACE(testing::Message() << "call " << n << (once ? " fails" : " and all after it fail"));
            network({.physicalPorts = 3, .lags = 3});
            connect(1);
            connect(2, "endpoint-a", "2");
            if (GetParam() != Happening::Online)
                ASSERT_EQ(scans(), "1@4 2@4 ");
            if (GetParam() == Happening::Move)
                move("uplink2", port);
            else if (GetParam() == Happening::Offline)
                disconnect(2), link(2)->missCount = 1;

            failCall("*", n, once);
            scans(once ? 1 : 3);
            struck = callsSeen() >= n;
            clearFaults();
            if (GetParam() != Happening::Online)
                ASSERT_NE(link(1), nullptr);

            scans(3);
            Ports present{1};
            if (GetParam() != Happening::Offline)
                present.insert(port);
            ASSERT_TRUE(link(1) != nullptr && list.count() == present.size());
            const auto carrier = [&](vswitch::Carrier state) {
                for (const Port plugged : present)
                    model([&](vswitch::Model &m) { m.setCarrier(plugged, state); });
            };
            if (struck) {
                carrier(vswitch::Carrier::ForcedDown);
                ASSERT_EQ(scans(2), "");
                carrier(vswitch::Carrier::FollowDevices);
            }
            if (GetParam() == Happening::Offline)
                connect(2, "endpoint-a", "2");
            scans();
            // A port that could not be taken out of its LAG when its uplink left is still there.
            if (port != 2 && lagOf(2) != 0) {
                ASSERT_NE(logged("Failed to delete interface 2 from LAG"), 0u);
                model([&](vswitch::Model &m) { m.lagRemove(m.interface(2)->lag, 2); });
            }
            ASSERT_NE(link(1), nullptr);
            const auto lag = std::to_string(link(1)->lag.number());
            std::string whole = "1@" + lag;
            whole.append(" ").append(std::to_string(port)).append("@").append(lag).append(" ");
            ASSERT_EQ(links(), whole);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lightware, LightwareFaultTest,
                         testing::Values(Happening::Online, Happening::Offline, Happening::Move));

}  // namespace
