// Shure detection against a virtual switch, one call of the cycle's steps at a time, and the thread itself.
#include "detection/shure.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <utility>

#include "common/files.h"
#include "detection/audac.h"
#include "detection/scan_ops.h"
#include "platform/paths.h"
#include "swapi/swapi_ops.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

constexpr const char *kConfig = R"({"shureDevicePort":[5,6],"audioVlanID":100,"controlVlanID":101})";
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";
constexpr const char *kModeGet = "rpcclt_openapiDot1xPortControlModeGet";
constexpr const char *kModeSet = "rpcclt_openapiDot1xPortControlModeSet";
constexpr const char *kStatusGet = "rpcclt_openapiDot1xPortStatusGet";
constexpr const char *kGlobalGet = "rpcclt_openapiDot1xSystemAuthControlModeGet";
constexpr const char *kModeUnread = "] Bad return code trying to set port(";
constexpr auto kAuto = OPEN_DOT1X_AUTO, kForced = OPEN_DOT1X_FORCE_AUTHORIZED;
constexpr int kProfileVlan = 50;

// Ports 5 and 6 are Shure ports. Microphone n has the MAC address 00:0E:DD:00:00:0n.
class ShureTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        config(kConfig);
        profileStore(kProfileVlan, "Shure Split Audio and Control Network");
        network({});
    }

    // A fresh switch without 802.1X, and nobody known.
    void network(vswitch::ModelConfig model) {
        list.clear();
        startSwitch(std::move(model));
        vlanCreate(kProfileVlan);
        shureDetection.loop.begin(&client, std::source_location::current());
    }
    DeviceList<DetectedDevice> list;  // what Shure detection knows

    static std::string macOf(unsigned n) { return "00:0E:DD:00:00:0" + std::to_string(n); }
    static vswitch::Device mic(unsigned n, vswitch::IfNum port) {
        auto out = host("mic" + std::to_string(n), port, macOf(n), "Shure MXA920");
        out.lldp->chassisId = "02:0E:DD:00:00:0" + std::to_string(n);
        return out;
    }
    // Events, with commas between: what happens, to which microphone, port or setting, and at which port.
    void happen(const std::string &events) {
        std::istringstream all(events);
        for (std::string event; std::getline(all, event, ',');) {
            std::istringstream words(event);
            std::string what;
            unsigned n = 0, port = 0;
            words >> what >> n >> port;
            const auto name = "mic" + std::to_string(n);
            open_error_t result = OPEN_E_NONE;
            if (what == "plug")
                result = plug(mic(n, port));
            else if (what == "move")
                result = move(name, port);
            else if (what == "away")
                result = unplug(name);
            else if (what == "authenticate")
                result = model([&](vswitch::Model &m) { return m.setSupplicant(n, true); });
            else if (what == "dot1x")
                model([&](vswitch::Model &m) { m.setDot1x(n != 0); });
            else if (what == "modes")
                setModes(n);
            else if (what == "scans")
                scans(static_cast<int>(n));
            else if (what == "overdue")  // the next miss of the one that joined last is its last
                list.at(1)->missCount = DEVICE_MISS_MAX - 1;
            else if (what == "dissociate")
                removeAssociation(macOf(n));
            else
                FAIL() << "no such event:" << event;
            ASSERT_EQ(result, OPEN_E_NONE) << event;
        }
    }
    void setModes(std::uint32_t mode) {
        for (const vswitch::IfNum port : {5u, 6u})
            model([&](vswitch::Model &m) { m.setPortControl(port, mode); });
    }
    // A small switch with 802.1X, where microphone 1 holds port 5 and 2 holds port 6.
    void bothJoined() {
        network({.physicalPorts = 6, .lags = 1});
        happen("dot1x 1, plug 1 5, plug 2 6, authenticate 5, authenticate 6");
        ASSERT_EQ(scans(), "01 02 | 01@5 02@6 | 3 3");
    }
    static void config(const std::string &text) { writeText(paths::kShureConfig, text); }

    // Cycles of the thread, minus the check of the profile, and what they end with.
    std::string scans(int count = 1) {
        for (int i = 0; i < count; ++i) {
            repairShureLink(&client, &list);
            lldplookup(&client, &list);
        }
        return picture();
    }
    std::string after(const std::string &events, int count = 1) {
        happen(events);
        return scans(count);
    }
    // With a call that fails every time, and is made.
    std::string scansWithout(const char *call, int count = 1) {
        failCall(call, 1, false);
        const auto out = scans(count);
        EXPECT_GT(callsSeen(), 0u) << call;
        clearFaults();
        return out;
    }

    // Who is associated, who is known on which port with how many misses, and the 802.1X modes of ports
    // 5 and 6: "01 02 | 01@5 02@6/19 | 3 2".
    std::string picture() {
        std::string out = associations(100) + "|" + known({&list}) + " |";
        for (const vswitch::IfNum port : {5u, 6u})
            out += " " + std::to_string(
                             model([&](vswitch::Model &m) { return m.interface(port)->dot1xControlMode; }));
        return out;
    }
};

// --- without 802.1X

TEST_F(ShureTest, JoinsShureDevicesOnShurePortsAndNothingElse) {
    happen("plug 1 5, plug 2 7");  // 7 is no Shure port
    const std::pair<const char *, const char *> others[] = {
        {"02:0e:dd:00:00:03", "Shure MXA920"},  // the chassis itself, spelled another way
        {"00:00:00:00:00:00", "Shure MXA920"},
        {"", "Shure MXA920"},
        {"00:0E:DD:00:00:03 5\nexit\n", "Shure MXA920"},
        {"00:0E:DD:00:00:03", "shure mixer"},
        {"00:0E:DD:00:00:03", "my Shure"},
        {"00:0E:DD:00:00:03", "Shur"}};
    for (const auto &[portId, description] : others) {
        auto other = mic(3, 6);
        other.lldp->portId = portId;
        other.lldp->systemDesc = description;
        ASSERT_EQ(plug(other), OPEN_E_NONE);
        ASSERT_EQ(scans(), "01 | 01@5 | 2 2") << portId << description;
        happen("away 3");
    }
    EXPECT_EQ(list.at(1)->controlMode, DEVICE_CONTROL_MODE_NONE);
    EXPECT_EQ(systemLogged("Shure device Join (Audio MAC: 00:0E:DD:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(callCount(kStatusGet) + callCount(kModeSet), 0u);
    EXPECT_TRUE(logLinesIntact());
    EXPECT_EQ(logged("(ERROR)"), 0u);

    EXPECT_EQ(jsonOf([&](cJSON *out) { shureListGet(&client, out); }),
              R"([{"portId":5,"controlMode":2,"systemDesc":"Shure MXA920",)"
              R"("mac":"00:0E:DD:00:00:01","type":2}])");
    happen("plug 4 5");
    failCall("rpcclt_openapiLldpIntfRemoteDevicePortIdGet", 2);
    EXPECT_EQ(
        jsonOf([&](cJSON *out) { EXPECT_EQ(lldpIntfRemoteShureInfoGet(&client, {IfNum(5), out}), 10000); }),
        R"([{"systemDesc":"Shure MXA920","chassisID":"02:0E:DD:00:00:01",)"
        R"("portId":"00:0E:DD:00:00:01"}])");
}

TEST_F(ShureTest, LeavesAfterTwentyMissesAndRetriesWhatFails) {
    after("plug 1 5");
    happen("modes 3, away 1");
    // The first miss is the port's, also without 802.1X. One that fails is tried again with the next scan.
    expectErrors(1, {"trying to set port(5) control mode (result = -2)\n"},
                 [&] { EXPECT_EQ(scansWithout(kModeSet, 3), "01 | 01@5/3 | 3 3"); });
    EXPECT_EQ(scans(16), "01 | 01@5/19 | 2 3");
    expectErrors(2, {"vlan database\nno vlan association mac 00:0E:DD:00:00:01\nexit\n)\r\n"},
                 [&] { EXPECT_EQ(scansWithout(kApply), "01 | 01@5/20 | 2 3"); });
    EXPECT_EQ(systemLogged("Shure device Leave"), 0u);
    EXPECT_EQ(scans(), "| | 2 3");
    EXPECT_EQ(systemLogged("Shure device Leave (Audio MAC: 00:0E:DD:00:00:01) on Port 0/5."), 1u);
}

// --- with 802.1X

TEST_F(ShureTest, RepairsAnAssociationRemovedByHand) {
    bothJoined();
    const auto sets = callCount(kModeSet);
    expectErrors(1, {"ShureLookup check (mac: 00:0E:DD:00:00:01) in the linked list, but not in the VLAN"},
                 [&] { EXPECT_EQ(after("dissociate 1"), "01 02 | 01@5 02@6 | 3 3"); });
    EXPECT_EQ(systemLogged("Shure device Join"), 3u);
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(repairShureLink(&client, &list), 10000);
    // The forced port has been left alone, and is known to be ours all the same.
    EXPECT_EQ(callCount(kModeSet), sets);
    shureClear(&client, &list);
    EXPECT_EQ(picture(), "| | 2 2");
}

TEST_F(ShureTest, ADeviceWaitsForItsPortAndHoldsIt) {
    EXPECT_EQ(after("dot1x 1, plug 1 5", 3), "| | 2 2");
    EXPECT_EQ(logged("ShureLookup: port 5 is unauthorized, not onboard!"), 3u);
    happen("authenticate 5");
    for (const char *call : {kStatusGet, kModeSet, kGlobalGet})
        EXPECT_EQ(scansWithout(call), "| | 2 2") << call;
    EXPECT_EQ(logged("(ERROR)"), 1u);
    EXPECT_EQ(logged("ShureLookup: the 802.1X mode of the switch cannot be read (result = -2)"), 1u);
    EXPECT_EQ(scans(), "01 | 01@5 | 3 2");
    EXPECT_EQ(list.at(1)->controlMode, std::uint32_t{kAuto});
    EXPECT_EQ(logged("ShureLookup: set port 5 control mode to 3. (result=0)"), 1u);

    // Missed once, the port has to be authorised again.
    EXPECT_EQ(after("away 1"), "01 | 01@5/1 | 2 2");
    EXPECT_EQ(logged("ShureLookup: set port 5 control mode to 2 (result = 0)\n"), 1u);
    EXPECT_EQ(after("plug 1 5"), "01 | 01@5 | 2 2");
    EXPECT_EQ(after("authenticate 5", 2), "01 | 01@5 | 3 2");
    EXPECT_EQ(logged("ShureLookup: set port 5 control mode to 3 again. (result=0)"), 1u);
    after("away 1", 19);
    EXPECT_EQ(scansWithout(kModeSet), "| 01@5/20 | 2 2");  // the port is still to be put back
    EXPECT_EQ(scans(), "| | 2 2");
    EXPECT_EQ(logged("ShureLookup: set port 5 control mode to 2 (result=0)"), 1u);

    // A port that somebody has forced authorised stays so when all leave, but not when its device moves.
    EXPECT_EQ(after("modes 3, plug 1 6"), "01 | 01@6 | 3 3");
    EXPECT_EQ(list.at(1)->controlMode, std::uint32_t{kForced});
    shureClear(&client, &list);
    EXPECT_EQ(picture(), "| | 3 3");
    scans();
    EXPECT_EQ(after("move 1 5"), "01 | 01@5 | 3 2");
    // One whose device cannot join goes back when that is gone.
    happen("modes 2, plug 2 6, authenticate 6");
    EXPECT_EQ(scansWithout(kApply), "01 | 01@5 | 2 3");
    EXPECT_EQ(scansWithout("rpcclt_openapiLldpMgmtStrLenGet", 2), "01 | 01@5 | 2 3");
    EXPECT_EQ(after("away 2"), "01 | 01@5 | 2 2");
}

TEST_F(ShureTest, Dot1xMayBeSwitchedOnBetweenCycles) {
    config(R"({"shureDevicePort":[5,900,6],"audioVlanID":100,"controlVlanID":101})");
    EXPECT_EQ(after("modes 3, plug 1 5", 2), "01 | 01@5 | 3 3");
    happen("authenticate 5, dot1x 1");
    // A port that cannot be held is tried again, unless somebody is there.
    expectErrors(3, {"ShureLookup: Bad return code trying to set port(900) control mode (result = -2)\n"},
                 [&] { EXPECT_EQ(scansWithout(kModeSet, 2), "01 | 01@5 | 3 3"); });
    EXPECT_EQ(scans(), "01 | 01@5 | 3 2");
    EXPECT_EQ(after("dot1x 0", 2), "01 | 01@5 | 3 2");
    // A mode that could not be read is neither on nor off.
    happen("dot1x 1");
    EXPECT_EQ(scansWithout(kGlobalGet), "01 | 01@5 | 3 2");
    const auto sets = callCount(kModeSet);
    scans();
    EXPECT_EQ(callCount(kModeSet), sets + 4);  // three ports, and one again
    scansWithout(kGlobalGet);
    scans();
    EXPECT_EQ(callCount(kModeSet), sets + 4);
    // The device joined without 802.1X, and yet its port does not stay forced when all have left.
    shureClear(&client, &list);
    EXPECT_EQ(picture(), "| | 2 2");

    const std::pair<const char *, int> results[] = {
        {R"({"shureDevicePort":[5,900]})", OPEN_E_PARAM}, {kConfig, 0}, {"{}", 0}, {"", 10000}};
    for (const auto &[text, result] : results) {
        config(text);
        EXPECT_EQ(shureDot1xPortSet(&client), result) << text;
    }
    std::uint32_t status = 3;
    EXPECT_EQ(swapiDot1xPortStatusGet(&client, 6, &status), 0);
    EXPECT_EQ(status, std::uint32_t{OPEN_DOT1X_PORT_UNAUTHORIZED});
}

TEST_F(ShureTest, APortThatIsLeftIsForcedNoLonger) {
    ASSERT_EQ(after("dot1x 1, plug 1 5, plug 2 5, authenticate 5"), "01 02 | 01@5 02@5 | 3 2");
    EXPECT_EQ(after("move 1 6"), "01 02 | 01@6 02@5 | 3 2");  // the other one is still there
    const std::string text = "Shure device (MAC: 00:0E:DD:00:00:01) from Port 0/5 change to Port 0/6.";
    EXPECT_EQ(systemLogged(text), 1u);
    EXPECT_EQ(logged(text + "\r\n"), 1u);
    EXPECT_EQ(after("authenticate 6"), "01 02 | 01@6 02@5 | 3 3");
    // Each takes the other's place.
    EXPECT_EQ(after("move 1 5, move 2 6"), "01 02 | 01@5 02@6 | 3 3");

    // Somebody new in that place has nothing of it.
    happen("move 2 5, plug 3 6");
    expectErrors(1, {}, [&] { EXPECT_EQ(scansWithout(kModeSet), "01 02 | 01@5 02@5 | 3 3"); });
    expectErrors(0, {}, [&] { EXPECT_EQ(scans(2), "01 02 | 01@5 02@5 | 3 2"); });
    EXPECT_EQ(after("authenticate 6"), "01 02 03 | 01@5 02@5 03@6 | 3 3");
    // Gone, and its association removed by hand: the record is dropped without a word, but not the port.
    EXPECT_EQ(after("away 3, dissociate 3"), "01 02 | 01@5 02@5 | 3 2");

    // Forced by a call whose reply has been lost.
    happen("plug 3 6, authenticate 6");
    EXPECT_EQ(scansWithout(kModeSet), "01 02 | 01@5 02@5 | 3 2");
    EXPECT_EQ(after("modes 3, move 3 5"), "01 02 03 | 01@5 02@5 03@5 | 3 2");
    // What somebody has set by hand since is his.
    EXPECT_EQ(after("modes 1, move 1 6, move 2 6, move 3 6"), "01 02 03 | 01@6 02@6 03@6 | 1 1");
}

// Nobody counts as seen in such a cycle, wherever in the walk the read fails.
TEST_F(ShureTest, AnUnreadablePortModeMakesEverybodyMiss) {
    after("plug 1 5, plug 2 6");
    happen("modes 3, plug 3 5");
    failCall(kModeGet, 2);
    expectErrors(1, {std::string(kModeUnread) + "6) control mode (result = -2)\n"},
                 [&] { EXPECT_EQ(scans(), "01 02 | 01@5/1 02@6/1 | 2 2"); });
    clearFaults();
    const auto all = "01 02 03 | 01@5 02@6 03@5 | 2 2";
    EXPECT_EQ(scans(), all);
    // What LLDP does not tell is another matter.
    EXPECT_EQ(scansWithout("rpcclt_openapiLldpIntfRemoteDevicePortIdGet"), all);
    EXPECT_EQ(scansWithout(kModeGet, 20), "| | 2 2");
}

// --- the profile, and the thread

TEST_F(ShureTest, WhatTheProfileHasToHave) {
    for (const char *unusable :
         {"", R"({"audioVlanID":100,"controlVlanID":0})", R"({"audioVlanID":0,"controlVlanID":101})"}) {
        config(unusable);
        EXPECT_EQ(shureValidityCheck(&client), 10000) << unusable;
    }
    config(kConfig);
    EXPECT_EQ(shureValidityCheck(&client), 0);
    failCall("openapiVlanCreatedCheck");
    EXPECT_EQ(shureValidityCheck(&client), 10000);
    model([](vswitch::Model &m) { m.deleteVlan(kProfileVlan); });
    EXPECT_EQ(shureValidityCheck(&client), 17001);
    profileRemove(kProfileVlan);
    EXPECT_EQ(shureValidityCheck(&client), 17001);

    // A join and a leave on their own, for devices that no scan has found.
    const DetectedDevice control{
        .port = IfNum(5), .type = DEVICE_TYPE_CONTROL, .mac = *Mac::parse(macOf(9)), .controlMode = kAuto};
    writeText(paths::kShureIn, "of an earlier run");
    EXPECT_EQ(shureOnlineCli(&client, control), 0);
    EXPECT_FALSE(exists(paths::kShureIn));
    EXPECT_EQ(callCount(kApply), 0u);
    setModes(kForced);
    failCall(kApply);
    EXPECT_EQ(shureOfflineCli(&client, control), 0);  // the port's result counts
    EXPECT_EQ(picture(), "| | 2 3");
    failCall(kModeSet);
    EXPECT_EQ(shureOfflineCli(&client, control), OPEN_E_FAIL);
    config("{}");
    expectErrors(1, {"ShureLookup get control/audio vlan failed. (audioVlan:0)\r\n"},
                 [&] { EXPECT_EQ(shureOnlineCli(&client, control), 10000); });
}

TEST_F(ShureTest, TheThreadTakesOverAndEndsWithTheProfile) {
    bothJoined();
    list.clear();
    happen("away 2");
    const auto cycles = [](int count) { passPeriods(count, 15s); };
    start(detect_shure_thread);
    cycles(0);
    EXPECT_EQ(picture(), "01 02 | | 2 2");  // the ports are held from the start
    cycles(1);
    EXPECT_EQ(picture(), "01 02 | | 3 2");
    EXPECT_EQ(readFile(paths::kShurePorts), R"({"ports":[5]})");
    cycles(19);
    EXPECT_EQ(picture(), "01 | | 3 2");
    config(R"({"shureDevicePort":[5,6],"audioVlanID":100,"controlVlanID":0})");
    cycles(25);
    EXPECT_EQ(logged("Shure Profile not already created, do nothing."), 25u);
    EXPECT_EQ(picture(), "01 | | 3 2");
    EXPECT_EQ(systemLogged("Shure device Join"), 2u);

    profileRemove(kProfileVlan);
    clk::advance(15s);
    join();
    EXPECT_EQ(picture(), "| | 2 2");
    EXPECT_EQ(logged("User already delete shure profile, ShureLookup exit!\r\n"), 1u);
    EXPECT_EQ(functionsLogged(),
              "adoptShureDevices detect_shure_thread lldplookup shureOfflineCli shureOnlineCli ");
    EXPECT_FALSE(fileExists(paths::kShurePorts));

    // What a daemon has forced that was killed as the profile was deleted goes back when the next one knows that it is
    // gone; what somebody else has forced stays.
    setModes(kForced);
    writeText(paths::kShurePorts, R"({"ports":[5]})");
    for (const bool isDown : {true, false}) {
        device->setDown(isDown);
        start(detect_shure_thread);
        join();
        EXPECT_EQ(fileExists(paths::kShurePorts), isDown);
    }
    EXPECT_EQ(picture(), "| | 2 3");
}

// Two families look at the associations in one file.
TEST_F(ShureTest, RepairsOfTwoFamiliesDoNotDisturbEachOther) {
    cli({"vlan database", "vlan association mac " + macOf(1) + " 100"});
    const auto repairs = [&](auto repair) {
        DeviceList<DetectedDevice> mine;
        EXPECT_TRUE(mine.push({.port = IfNum(5), .mac = *Mac::parse(macOf(1))}));
        for (int i = 0; i < 50; ++i)
            EXPECT_EQ(repair(Switch(&client), &mine), 1);
        EXPECT_EQ(mine.count(), 1u);
    };
    std::thread other([&] { repairs(repairAudacLink); });
    repairs(repairShureLink);
    other.join();
}

// --- every call may fail

TEST_F(ShureTest, EndsUpWhereItDoesWithoutFaults) {
    // What happens to microphone 2; 1 stays where it is.
    for (const std::string events : {"away 2, overdue, scans 1, plug 2 6, authenticate 6", "away 2, overdue",
                                     "dissociate 2", "move 2 5", "dot1x 0, scans 1, dot1x 1"}) {
        SCOPED_TRACE(events);
        const auto prepare = [&] {
            bothJoined();
            happen(events);
        };
        prepare();
        const auto without = scans(3);
        const bool isMove = events.starts_with("move");
        withEachCallFailing(
            prepare, [&](bool once) { scans(once ? 1 : 3); },
            [&] {
                ASSERT_EQ(occurrences(picture(), "01"), 2u);
                ASSERT_TRUE(!isMove || occurrences(picture(), "02") == 2);
                ASSERT_EQ(scans(3), without);
            });
    }
}

// A device has moved while the daemon was down.
TEST_F(ShureTest, EndsUpThereAfterARestartToo) {
    const auto &loop = shureDetection.loop;
    const Where where = std::source_location::current();
    bool hasBegun = false;
    const auto cycles = [&] {
        for (int i = 0; i < 3; ++i)
            if (hasBegun = hasBegun || loop.begin(&client, where); hasBegun)
                loop.cycle(&client, where);
    };
    withEachCallFailing(
        [&] {
            bothJoined();
            list.clear();
            happen("move 2 5");
            hasBegun = false;
        },
        [&](bool) { cycles(); },
        [&] {
            cycles();
            ASSERT_EQ(picture(), "01 02 | | 3 2");
            loop.end(&client, where);
            ASSERT_EQ(picture(), "| | 2 2");
        });
    // No port stays forced because one call fails while all leave.
    failEachCall(
        true, [&] { bothJoined(); }, [&] { shureClear(&client, &list); },
        [&] { ASSERT_TRUE(picture().ends_with("| | 2 2")) << picture(); });
}

// Nobody is new, gone or moved, and everybody would have to leave with the next miss. The one call whose
// failure is a miss is the read of a port's mode.
TEST_F(ShureTest, NoFailedCallIsAnAbsence) {
    bothJoined();
    const auto joined = picture();
    std::size_t modesUnread = 0;
    std::uint64_t scripts = 0;
    withEachCallFailing(
        [&] {
            scripts = callCount(kApply);
            for (DetectedDevice &one : list)
                one.missCount = DEVICE_MISS_MAX - 1;
        },
        [&](bool) {
            EXPECT_NE(checkReason(shureDetection.loop, &client), Presence::Absent);
            scans();
        },
        [&] {
            if (std::exchange(modesUnread, logged(kModeUnread)) != logged(kModeUnread)) {
                bothJoined();
                return;
            }
            ASSERT_EQ(list.count(), 2u);
            ASSERT_EQ(scans(), joined);
            ASSERT_EQ(callCount(kApply), scripts);
        });
    EXPECT_EQ(modesUnread, 4u);
}

}  // namespace
