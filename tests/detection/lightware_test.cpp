// Lightware detection against a virtual switch.
#include "detection/lightware.h"

#include <gtest/gtest.h>

#include <set>

#include "common/json.h"
#include "common/text.h"
#include "detection/lag.h"
#include "detection/scan_ops.h"
#include "platform/paths.h"
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
constexpr vswitch::Membership kTagged{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true};
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
    // The endpoint with so many uplinks, on the first ports.
    void connectAll(Port count) {
        for (Port port = 1; port <= count; ++port)
            connect(port, "endpoint-a", std::to_string(port));
    }
    void disconnect(Port port) { ASSERT_EQ(unplug("uplink" + std::to_string(port)), OPEN_E_NONE); }
    // Cycles, and what they end with.
    std::string scans(int count = 1) {
        for (int i = 0; i < count; ++i)
            lightwareLookup(&client, &list);
        return links();
    }

    void restart() {
        list.clear();
        ASSERT_TRUE(adoptLightwareLinks(&client, &list));
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
        return model([&](vswitch::Model &m) { return m.membership(ifNum, kTaggedVlan) == kTagged; });
    }
    bool bundled(Port lag, const Ports &ports) {
        const auto interface = model([&](vswitch::Model &m) { return *m.interface(lag); });
        const std::map<vswitch::VlanId, vswitch::Membership> vlans = {
            {1, {OPEN_VLAN_PARTICIPATION_MODE_AUTO}},
            {kTaggedVlan, kTagged},
            {kVlan, {OPEN_VLAN_PARTICIPATION_MODE_INCLUDE}}};
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
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 3u);

    // Missing once is nothing; missing twice takes the LAG's settings away from the uplink that stays, until
    // the other one is back.
    for (int i = 0; i < 2; ++i) {
        disconnect(2);
        EXPECT_EQ(scans(), "1@49 2@49 3@50 ");
        connect(2, "endpoint-a", "2 second");
        EXPECT_EQ(scans(), "1@49 2@49 3@50 ");
    }
    disconnect(2);
    EXPECT_EQ(scans(2), "1@49! 3@50 ");
    EXPECT_TRUE(unbundled(kLag) && tagged(1) && !tagged(2) && lagOf(1) == kLag && lagOf(2) == 0);
    connect(2, "endpoint-a", "2 second");
    EXPECT_EQ(scans(), "1@49 2@49 3@50 ");

    // A moved uplink is followed within one cycle, also one whose description has no number.
    for (const Port port : {5, 6})
        connect(port, "endpoint-c", "eth" + std::to_string(port));
    scans();
    move("uplink3", 4);
    move("uplink6", 7);
    EXPECT_EQ(scans(), "1@49 2@49 4@50 5@51 7@51 ");
    EXPECT_FALSE(tagged(3) || tagged(6));
    scans(3);
    EXPECT_EQ(callCount("rpcclt_openapiLagPortAdd"), 8u);
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
    network({.physicalPorts = 8, .lags = 0});
    connect(1);
    EXPECT_EQ(scans(2), "1@0 ");

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
    connectAll(2);
    EXPECT_EQ(scans(), "1@9 2@9 ");
    EXPECT_EQ(logged("(ERROR)"), 0u);

    // A LAG without room: the uplink stays out of it, but gets its VLAN. That is an error once, and tried
    // until there is room.
    connect(4, "endpoint-a", "4");
    expectErrors(1, {}, [&] { scans(3); });
    EXPECT_EQ(logged("Lightware: Failed to add interface 4 to LAG interface 9, result=-3\n"), 3u);
    EXPECT_TRUE(link(4)->lag.number() == 9 && lagOf(4) == 0 && tagged(4));
    EXPECT_EQ(logged("port 4 added to LAG"), 0u);
    disconnect(2);
    EXPECT_EQ(scans(3), "1@9 4@9 ");
    EXPECT_EQ(logged("port 4 added to LAG"), 1u);
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
    EXPECT_EQ(scans(), "1@49 2@49 ");
    // A port whose LAG cannot be read is in no LAG that is known, and not free of one either.
    failCall("rpcclt_openapiLagMembersGet", 1, false);
    EXPECT_FALSE(phyPortLagNumGet(&client, IfNum(2)));
    EXPECT_FALSE(freeLagFind(&client));
    clearFaults();
    failCall("rpcclt_openapiIfNextGet", 3);
    EXPECT_FALSE(phyPortLagNumGet(&client, IfNum(48)));
}

TEST_F(LightwareTest, NeighbourTextsOfAnyLengthAndContent) {
    for (std::size_t length = 1; length <= 255; ++length) {
        unplug("uplink1");
        connect(1, hostileText(length), hostileText(255 - length));
        const JsonPtr out(cJSON_CreateArray());
        lightwareListGet(&client, out.get());
        ASSERT_EQ(cJSON_GetArraySize(out.get()), 1);
        ASSERT_EQ(cJSON_GetObjectItem(out->child, "chassisId")->valuestring, wellFormed(hostileText(length)));
        scans();
    }
    EXPECT_LE(list.count(), 3u);
    EXPECT_EQ(functionsLogged(),
              "freeLagFind ifTaggingClear lightwareLookup lightwareOfflineCli lightwareOnlineCli ");
    EXPECT_TRUE(logLinesIntact());
    unplug("uplink1");
    EXPECT_EQ(scans(2), "");

    // An identity longer than a record keeps still names one endpoint, with two uplinks that stay put.
    connect(1, std::string(255, 'c'), "4294967295999");
    connect(2, std::string(255, 'c'), "12abc");
    connect(3, "endpoint-b", "abc");
    EXPECT_EQ(scans(4), "1@49 2@49 3@50 ");
    // Two endpoints that cannot be told apart disturb each other, not the list and not the others.
    connect(4, "endpoint-b", "abc");
    EXPECT_TRUE(scans(10).starts_with("1@49 2@49 "));
    EXPECT_EQ(list.count(), 4u);
    EXPECT_NE(lagOf(3), lagOf(4));
}

TEST_F(LightwareTest, ScansAsJson) {
    const auto shown = [this](Port port) {
        const JsonPtr out(cJSON_CreateArray());
        const auto code = lldpIntfRemoteLightwareInfoGet(&client, {IfNum(port), out.get()});
        return std::to_string(code) + printJsonLine(out.get());
    };
    // What was read before a failure stays, and is no uplink.
    connectAll(2);
    failCall("rpcclt_openapiLldpIntfRemoteDevicePortDescGet");
    EXPECT_EQ(shown(1), R"(10000[{"systemDesc":"UBEX endpoint","chassisId":"endpoint-a"}])");
    EXPECT_EQ(shown(2), R"(0[{"systemDesc":"UBEX endpoint","chassisId":"endpoint-a","portDesc":"2"}])");
    failCall("rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet");
    EXPECT_EQ(jsonOf([&](cJSON *out) { lightwareListGet(&client, out); }),
              R"([{"portId":2,"systemDesc":"UBEX endpoint","chassisId":"endpoint-a","portDesc":"2"}])");
}

TEST_F(LightwareTest, ASlowSwitch) {
    // Scans with time for everything to show in between.
    const auto slowScans = [&](int count) {
        for (int i = 0; i < count; ++i) {
            scans();
            clk::advance(10s);
        }
        return links();
    };
    connect(1);
    model([](vswitch::Model &m) { m.setLatency(3900ms); });
    EXPECT_EQ(scans(), "1@49 ");
    EXPECT_EQ(clk::totalSlept(), 7 * 3900ms);  // seven changes, each waited for
    disconnect(1);
    EXPECT_EQ(scans(2), "");
    EXPECT_TRUE(unbundled(kLag) && !tagged(1));

    // Slower than anybody waits: tagging does not follow a participation that never showed, nor PVID the old
    // VLAN's. Nothing is said, the uplink does not count as online, and each scan gets one step further.
    model([](vswitch::Model &m) { m.setLatency(4100ms); });
    connect(1);
    const auto before = clk::totalSlept();
    const auto tagging = callCount("rpcclt_openapiVlanIfTaggingSet");
    EXPECT_EQ(slowScans(1), "1@49! ");
    EXPECT_EQ(clk::totalSlept() - before, 3 * 4s);
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), tagging);
    EXPECT_EQ(model([](vswitch::Model &m) { return m.interface(kLag)->pvid; }), 1u);
    EXPECT_EQ(logged("port 1 added to LAG"), 1u);
    EXPECT_EQ(slowScans(4), "1@49 ");
    EXPECT_EQ(logged("port 1 added to LAG"), 2u);
    EXPECT_EQ(logged("(ERROR)"), 0u);
    // Going offline says so, for LAG and port, does all its steps, and goes on with the next scan.
    disconnect(1);
    const auto untagging = callCount("rpcclt_openapiVlanIfTaggingSet");
    expectErrors(4, {}, [&] { scans(2); });
    EXPECT_EQ(callCount("rpcclt_openapiVlanIfTaggingSet"), untagging + 2);
    EXPECT_EQ(lagOf(1), 0u);
    clk::advance(10s);
    EXPECT_EQ(slowScans(4), "");
    EXPECT_TRUE(unbundled(kLag) && !tagged(1));
}

TEST_F(LightwareTest, AMembershipStepEndsWithItsFirstFailure) {
    // Going online, changes 3 and 4 take the LAG out of its old VLAN and into the profile's; going offline, 2
    // and 3 take it out of there and into VLAN 1. The PVID follows only when both were done.
    for (const auto &[leaving, nth] : {std::pair(false, 3u), {false, 4u}, {true, 2u}, {true, 3u}}) {
        network({});
        connect(1);
        if (leaving) {
            scans();
            disconnect(1);
        }
        failCall(kParticipation, nth);
        expectErrors(1, {}, [&] { EXPECT_EQ(scans(leaving ? 2 : 1), "1@49! "); });
        EXPECT_EQ(callCount(kParticipation), leaving ? 4 + nth + 1 : nth) << "the port comes after the LAG";
        EXPECT_EQ(callCount("rpcclt_openapiVlanIfPvidSet"), leaving ? 1u : 0u);
        EXPECT_EQ(scans(), leaving ? "" : "1@49 ");
        EXPECT_EQ(unbundled(kLag), leaving);
    }
    // Tagging is cleared in two steps, whatever happens.
    const auto clear = [&] { ifTaggingClear(&client, IfNum(kLag)); };
    for (const auto &[call, text] :
         {std::pair{kParticipation,
                    "set interface 49 to vlan 286 OPEN_VLAN_PARTICIPATION_MODE_AUTO failed.\r\n"},
          {"rpcclt_openapiVlanIfTaggingSet", "Lightware: set interface 49 to vlan 286 tagged failed.\r\n"}}) {
        connect(1);
        scans();
        failCall(call);
        expectErrors(2, {text}, clear);
        const auto left = model([](vswitch::Model &m) { return m.membership(kLag, kTaggedVlan); });
        EXPECT_NE(left.participation == OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, left.tagged);
        disconnect(1);
        scans(2);
    }
}

TEST_F(LightwareTest, ResultsOfTheSteps) {
    // An uplink whose online step fails is not in the list, and tried again; what has begun is finished.
    connect(1);
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    EXPECT_EQ(scans(), "");
    failCall("openapiVlanCreatedCheck", 3);  // the scan makes two
    EXPECT_EQ(scans(), "1@49! ");
    EXPECT_EQ(scans(), "1@49 ");

    LightwareLink record{.port = IfNum(2), .chassisId = "endpoint-b", .portDescNum = 1, .lag = {}};
    failCall("rpcclt_openapiLagMaxMemberCountGet");
    EXPECT_EQ(codeOf(lightwareOnlineCli(&client, list, &record)), 10000);
    profileRemove(kVlan);
    EXPECT_EQ(codeOf(lightwareOnlineCli(&client, list, &record)), 17001);
    // Without a profile it got as far as the LAG, and gets out of there all the same.
    EXPECT_EQ(phyPortLagNumGet(&client, IfNum(2)).value(), record.lag);
    EXPECT_EQ(codeOf(lightwareOfflineCli(&client, &record)), 17001);
    EXPECT_TRUE(lagOf(2) == 0 && !tagged(2) && !tagged(record.lag.number()));
}

TEST_F(LightwareTest, ALeaveThatIsNotThroughIsFinished) {
    connectAll(2);
    scans();
    disconnect(2);
    failCall("rpcclt_openapiLagPortDelete", 1, false);
    expectErrors(1, {}, [&] { scans(4); });
    EXPECT_EQ(logged("Failed to delete interface 2 from LAG inaterface 49\n"), 3u);
    EXPECT_EQ(lagOf(2), kLag);
    // Another uplink has come meanwhile: the rest of the leave does not cost it the LAG's VLANs.
    connect(3, "endpoint-a", "3");
    scans();
    clearFaults();
    EXPECT_EQ(scans(), "1@49 3@49 ");
    EXPECT_FALSE(tagged(2));
    // The uplink that is back while its leave is under way is online again.
    disconnect(3);
    failCall("rpcclt_openapiLagPortDelete", 1, false);
    scans(3);
    clearFaults();
    connect(3, "endpoint-a", "3");
    EXPECT_EQ(scans(), "1@49 3@49 ");
}

TEST_F(LightwareTest, WithoutVlan286AnUplinkIsNotWholeUntilItIsThere) {
    const auto removeVlan = [&] { model([](vswitch::Model &m) { m.deleteVlan(kTaggedVlan); }); };
    removeVlan();
    connect(1);
    expectErrors(2, {}, [&] { scans(); });
    const auto changes = callCount(kParticipation);
    expectErrors(0, {}, [&] { EXPECT_EQ(scans(5), "1@49! "); });
    EXPECT_EQ(callCount(kParticipation), changes);
    vlanCreate(kTaggedVlan);
    EXPECT_EQ(scans(), "1@49 ");
    // Nor does its absence keep one from leaving.
    removeVlan();
    disconnect(1);
    EXPECT_EQ(scans(2), "");
    EXPECT_TRUE(lagOf(1) == 0 && unbundled(kLag));
}

// --- a new start finds uplinks that are online

TEST_F(LightwareTest, ARestartTakesOverWhatIsOnlineAndOurs) {
    network({.physicalPorts = 8, .lags = 3});
    connectAll(2);
    connect(3, "endpoint-b");
    connect(4, "endpoint-c");
    scans();
    const auto changes = callCount(kParticipation);
    restart();
    EXPECT_EQ(scans(3), "1@9 2@9 3@10 4@11 ");
    EXPECT_EQ(callCount(kParticipation), changes) << "what is whole is left alone";

    // Who has left meanwhile is taken offline as usual, which makes room; it costs the other uplink nothing.
    for (const Port port : {2, 3})
        disconnect(port);
    restart();
    EXPECT_EQ(scans(), "1@9 2@9 3@10 4@11 ");
    EXPECT_EQ(scans(), "1@9 4@11 ");
    EXPECT_TRUE(unbundled(10) && !tagged(2) && !tagged(3));
    // Another endpoint in the place of the one that has left: the LAG stays with the first.
    connect(2, "endpoint-a", "2");
    scans();
    disconnect(2);
    connect(2, "endpoint-e");
    restart();
    EXPECT_EQ(scans(), "1@9 2@10 4@11 ");

    network({.physicalPorts = 8, .lags = 4});
    // LAG 9 was made by hand; 10 has our settings, but another switch at the other end; 11 is empty: left by
    // an earlier run, which has not finished 12.
    const std::pair<Port, Port> members[] = {{9, 1}, {9, 2}, {10, 3}, {10, 4}, {12, 5}, {12, 6}};
    model([&](vswitch::Model &m) {
        for (const auto &[lag, port] : members)
            EXPECT_EQ(m.lagAdd(lag, port), OPEN_E_NONE);
        for (const Port ifNum : {3, 4, 10, 11}) {
            m.setPvid(ifNum, kVlan);
            m.setParticipation(ifNum, kVlan, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE);
            m.setParticipation(ifNum, kTaggedVlan, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE);
            m.setTagging(ifNum, kTaggedVlan, true);
        }
    });
    for (const Port port : {3, 4})
        connect(port, "trunk", std::to_string(port), "some switch");
    connect(5);
    connect(6, "endpoint-a", "2");
    restart();
    EXPECT_TRUE(unbundled(11));
    EXPECT_EQ(scans(3), "5@12 6@12 ");
    for (const auto &[lag, port] : members)
        EXPECT_EQ(lagOf(port), lag);
}

TEST_F(LightwareTest, TheThreadLeavesTheSwitchAsItIs) {
    connect(1);
    lightwareRunning = 1;
    start(detect_lightware_thread);
    passPeriods(0, 30s);
    EXPECT_EQ(lagOf(1), 0u);
    passPeriods(3, 30s);
    EXPECT_EQ(lagOf(1), kLag);
    const auto configured = [&] {
        const auto text = show("show running-config");
        return text.substr(text.find("vlan database"));  // the head shows the time
    };
    const auto before = configured();
    profileRemove(kVlan);
    clk::advance(30s);
    join();
    EXPECT_EQ(lightwareRunning, 0);
    EXPECT_EQ(configured(), before);
    EXPECT_EQ(logged("LightwareLookup Init success!\r\n"), 1u);
    EXPECT_EQ(logged("User already delete lightware profile, LightwareLookup exit!\r\n"), 1u);
}

// --- every call may fail

// Two uplinks on ports 1 and 2; the second one comes, leaves, or moves to port 3. Uplinks that are known
// would leave with the next miss. A daemon that is killed makes no more calls, and the next one knows
// nothing.
TEST_F(LightwareTest, NoFailedCallIsAnAbsenceAndEveryEndpointIsWholeInTheEnd) {
    for (const std::string event : {"nothing", "online", "offline", "move"}) {
        const Port port = event == "move" ? 3 : 2;
        const auto prepare = [&] {
            network({.physicalPorts = 3, .lags = 3});
            connectAll(2);
            if (event != "online")
                ASSERT_EQ(scans(), "1@4 2@4 ");
            if (event == "move")
                move("uplink2", port);
            else if (event == "offline")
                disconnect(2);
            for (LightwareLink &one : list)
                one.missCount = 1;
        };
        prepare();
        const auto changes = callCount(kParticipation);
        for (const std::string trouble : {"one fails", "all fail", "killed"}) {
            SCOPED_TRACE(testing::Message() << event << ", " << trouble);
            failEachCall(
                trouble == "one fails", prepare,
                [&] {
                    ASSERT_NE(checkReason(lightwareDetection.loop, &client), Presence::Absent);
                    scans(trouble == "all fail" ? 3 : 1);
                    if (event != "online")
                        ASSERT_NE(link(1), nullptr);
                },
                [&] {
                    if (trouble == "killed")
                        restart();
                    scans(5);
                    if (event == "nothing")
                        ASSERT_EQ(callCount(kParticipation), changes);
                    // Taking an uplink offline takes the LAG's VLANs along, until one comes online.
                    if (event == "offline")
                        connect(2, "endpoint-a", "2");
                    scans();
                    ASSERT_NE(link(1), nullptr);
                    const auto lag = std::to_string(link(1)->lag.number());
                    ASSERT_EQ(links(), "1@" + lag + " " + std::to_string(port) + "@" + lag + " ");
                    ASSERT_TRUE(lag == "4" || event == "online");
                    ASSERT_TRUE(port == 2 || lagOf(2) == 0);
                });
        }
    }
}

}  // namespace
