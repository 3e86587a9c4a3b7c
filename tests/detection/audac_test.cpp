// Audac detection against a virtual switch, one call of the cycle's steps at a time, and the thread itself.
#include "detection/audac.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "common/files.h"
#include "detection/scan_ops.h"
#include "platform/paths.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace fs = std::filesystem;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

constexpr const char *kType = "AUDAC Audio and Control Network";
constexpr const char *kConfig = R"({"audioVlanID":100,"audacDevicePort":[5,6]})";
constexpr int kProfileVlan = 50;

// Ports 5 and 6 are Audac ports with a control unit each; amplifiers 1 and 2 may be behind them.
class AudacTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        config(kConfig);
        profileStore(kProfileVlan, kType);
        network({});
    }

    // A fresh switch with both control units, and nobody known.
    void network(vswitch::ModelConfig model) {
        list.clear();
        startSwitch(std::move(model));
        vlanCreate(kProfileVlan);
        plug(host("control5", 5, "aa:bb:cc:dd:ee:05", "AUDAC matrix"));
        plug(host("control6", 6, "aa:bb:cc:dd:ee:06", "the Audac matrix"));
    }
    DeviceList<DetectedDevice> list;  // what Audac detection knows

    static std::string macOf(int amp) { return "AA:BB:CC:00:00:0" + std::to_string(amp); }
    void ampPlug(int amp = 1, vswitch::IfNum port = 5) {
        const auto control = "control" + std::to_string(port);
        ASSERT_EQ(plug(host("amp" + std::to_string(amp), port, macOf(amp), "", control)), OPEN_E_NONE);
    }
    void away(int amp = 1) { unplugForgotten("amp" + std::to_string(amp)); }
    static void config(const std::string &text) { writeText(paths::kAudacConfig, text); }

    // Cycles of the thread, minus the check of the profile, and what they end with.
    std::string scans(int count = 1) {
        for (int i = 0; i < count; ++i) {
            repairAudacLink(&client, &list);
            audacLookup(&client, &list);
        }
        return picture();
    }

    // Who is associated, and who is known on which port with how many misses: "01 02 | 01@5 02@6/19".
    std::string picture() { return associations(100) + "|" + known({&list}); }
    std::size_t found() {
        return occurrences(jsonOf([&](cJSON *out) { audacListGet(&client, out); }), "portId");
    }
};

// --- joining and leaving

TEST_F(AudacTest, JoinsWhatIsBehindAControlUnitAndNothingElse) {
    config(R"({"audioVlanID":100,"audacDevicePort":[5,8,9,49]})");
    ampPlug();
    plug(host("stray", 6, "AA:BB:CC:00:00:66"));  // a control unit, but no Audac port
    plug(host("other", 8, "AA:BB:CC:00:00:88", "some switch"));
    plug(host("control9", 9, "aa:bb:cc:dd:ee:09", "audac"));  // in a LAG: learned on interface 49
    plug(host("bundled", 9, "AA:BB:CC:00:00:99", "", "control9"));
    model([](vswitch::Model &m) {
        m.lagAdd(m.lagIfNum(1), 9);
        m.learn(vswitch::Mac{}, 1, 5);
        m.learn(*vswitch::Mac::parse(macOf(1)), 50, 5);  // a second entry of the same device
    });
    EXPECT_EQ(scans(4), "01 | 01@5");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join (MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_FALSE(exists(paths::kAudacIn) || exists(paths::kAudacOut) ||
                 exists(paths::kShowVlanAssociationMac));
    EXPECT_EQ(callCount(kApply), 1u);
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(AudacTest, LeavesAfterTwentyMissesInARowAndRetriesOrRepairsWhatIsMissing) {
    ampPlug();
    failCall(kApply, 1, false);
    // Each try is two lines: the apply call's own and the family's, which names the script.
    expectErrors(6, {}, [&] { EXPECT_EQ(scans(3), "|"); });
    EXPECT_EQ(logged("vlan database\nvlan association mac AA:BB:CC:00:00:01 100\nexit\n)\r\n"), 3u);
    clearFaults();
    scans();
    removeAssociation(macOf(1));
    expectErrors(1, {"AA:BB:CC:00:00:01) in the linked list, but not in the VLAN association mac.\r\n"},
                 [&] { EXPECT_EQ(scans(), "01 | 01@5"); });
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 2u);
    EXPECT_EQ(repairAudacLink(&client, &list), 1);
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(repairAudacLink(&client, &list), 10000);
    clearFaults();

    away();
    EXPECT_EQ(scans(19), "01 | 01@5/19");
    ampPlug();
    EXPECT_EQ(scans(), "01 | 01@5");

    away();
    failCall(kApply, 1, false);
    expectErrors(6, {}, [&] { EXPECT_EQ(scans(22), "01 | 01@5/22"); });
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);
    clearFaults();
    EXPECT_EQ(scans(), "|");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 2u);
}

TEST_F(AudacTest, FollowsAMoveWithoutAScriptAndAChangedAudioVlan) {
    ampPlug(1);
    ampPlug(2);
    scans();
    move("amp1", 6, "control6");
    list.at(1)->missCount = 7;
    EXPECT_EQ(scans(), "01 02 | 01@6 02@5");
    const std::string text = "AUDAC device (MAC: AA:BB:CC:00:00:01) from Port 0/5 change to Port 0/6.";
    EXPECT_EQ(systemLogged(text), 1u);
    EXPECT_EQ(logged(text + "\r\n"), 1u);

    // Learned on both ports, in two VLANs: it stays where it is known, and one that is new joins once.
    ampPlug(3);
    for (int i = 0; i < 10; ++i) {
        model([](vswitch::Model &m) {
            m.learn(*vswitch::Mac::parse(macOf(1)), 50, 5);
            m.learn(*vswitch::Mac::parse(macOf(3)), 50, 6);
        });
        EXPECT_TRUE(scans().starts_with("01 02 03 | 01@6 02@5 03@"));
    }
    EXPECT_EQ(callCount(kApply), 3u);
    EXPECT_EQ(list.count(), 3u);
    EXPECT_EQ(systemLogged("change to Port"), 1u);

    away(2);  // silent for a while
    config(R"({"audioVlanID":200,"audacDevicePort":[5,6]})");
    failCall(kApply, 1);
    EXPECT_EQ(scans(2), "01=200 02=200 03=200 | 01@6 02@5/2 03@5");
    EXPECT_EQ(systemLogged(" from VLAN 100 change to VLAN 200."), 3u);
    EXPECT_EQ(systemLogged("Join"), 3u);
    const auto scripts = callCount(kApply);
    scans(3);
    EXPECT_EQ(callCount(kApply), scripts);
}

TEST_F(AudacTest, ControlUnitsAndRestoredPorts) {
    const DetectedDevice control{.port = IfNum(7),
                                 .type = DEVICE_TYPE_CONTROL,
                                 .mac = *Mac::parse("aa:bb:cc:dd:ee:07"),
                                 .controlMode = OPEN_DOT1X_AUTO};
    model([](vswitch::Model &m) { m.edit(7)->dot1xControlMode = OPEN_DOT1X_FORCE_AUTHORIZED; });
    const auto port7 = [&] { return model([](vswitch::Model &m) { return *m.interface(7); }); };
    EXPECT_EQ(audacOnlineCli(&client, control), 0);
    EXPECT_FALSE(port7().ptpTcEnabled);
    EXPECT_EQ(systemLogged("AUDAC Control device Join (MAC: aa:bb:cc:dd:ee:07) on Port 0/7, PTP dis"), 1u);
    failCall("rpcclt_openapiPtpTcIntfAdminModeSet");
    EXPECT_EQ(audacOnlineCli(&client, control), OPEN_E_FAIL);
    EXPECT_EQ(logged("AudacLookup: Failed to disable PTP on port 7 (result=-2)\r\n"), 1u);
    // A device of no known type is left alone.
    EXPECT_EQ(audacOnlineCli(&client, {.port = IfNum(7), .type = 7, .mac = control.mac}), 0);
    EXPECT_EQ(callCount(kApply), 0u);

    // The port is restored, and its result counts, whatever became of the script.
    failCall(kApply);
    EXPECT_EQ(audacOfflineCli(&client, control), 0);
    EXPECT_EQ(port7().dot1xControlMode, std::uint32_t{OPEN_DOT1X_AUTO});
    EXPECT_EQ(audacOfflineCli(&client, control), 0);
    EXPECT_EQ(systemLogged("AUDAC device Leave (Control MAC: aa:bb:cc:dd:ee:07) on Port 0/7."), 1u);
    clearFaults();
    failCall("rpcclt_openapiDot1xPortControlModeSet");
    EXPECT_EQ(audacOfflineCli(&client, control), OPEN_E_FAIL);
}

// The thread itself, on a clock that the test moves.
TEST_F(AudacTest, EndsWithTheProfileAndTakesEveryDeviceOut) {
    const auto cycles = [](int count) { passPeriods(count, 15s); };
    ampPlug(1);
    ampPlug(2, 6);
    start(detect_audac_thread);
    cycles(0);
    EXPECT_EQ(picture(), "|");  // the first look comes after the first period
    cycles(1);
    EXPECT_EQ(picture(), "01 02 |");
    removeAssociation(macOf(2));
    cycles(1);

    // While database, switch or file cannot be asked nobody leaves, and one line says what is waited for.
    const auto database = readFile(paths::kProfileDb);
    for (const auto &[awaited, begin, end] :
         {std::tuple<std::string, std::function<void()>, std::function<void()>>{
              "the profile database", [] { writeText(paths::kProfileDb, std::string(8192, 'x')); },
              [&] { writeText(paths::kProfileDb, database); }},
          {"the switch", [&] { device->setDown(true); }, [&] { device->setDown(false); }},
          {"a configuration file with the audio VLAN", [] { removeFile(paths::kAudacConfig); },
           [] { config(kConfig); }}})
        for (std::size_t episode = 1; episode <= 2; ++episode) {
            begin();
            cycles(25);
            end();
            EXPECT_EQ(picture(), "01 02 |");
            cycles(1);
            EXPECT_EQ(logged("waiting for " + awaited + "; nothing is changed until then"), episode);
        }
    EXPECT_EQ(logged("AUDAC Profile not already created, do nothing."), 6 * 25u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 3u);
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);

    profileRemove(kProfileVlan);
    clk::advance(15s);
    join();
    EXPECT_EQ(picture(), "|");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: "), 2u);
    EXPECT_EQ(logged("User already delete AUDAC profile, AudacLookup exit!\r\n"), 1u);
    EXPECT_EQ(functionsLogged(),
              "audacLookup audacOfflineCli audacOnlineCli audacValidityCheck detect_audac_thread "
              "repairAudacLink ");
    // With no profile there is no first sleep either.
    start(detect_audac_thread);
    join();
}

// --- what users, devices and the machine may do to it

TEST_F(AudacTest, ConfigurationFilesOfAnyKind) {
    ampPlug(1);
    scans();
    away();
    scans(19);
    ampPlug(2);
    // One that cannot be read, or is half written, brings in nobody and costs nobody the association.
    const std::string whole = kConfig;
    std::vector<std::string> unusable = {std::string(100'000, '['), whole + std::string(5u << 20, ' ')};
    for (std::size_t length = 0; length < whole.size(); ++length)
        unusable.push_back(whole.substr(0, length));
    for (const auto &text : unusable) {
        config(text);
        EXPECT_EQ(audacValidityCheck(&client), 10000);
        audacLookup(&client, &list);
        ASSERT_EQ(picture(), "01 | 01@5/19") << text.substr(0, 60);
    }
    // A whole file that names no ports is a decision.
    config(R"({"audioVlanID":100})");
    EXPECT_EQ(scans(), "|");
    for (const char *vlan : {"0", "-1", "4095", "1e300", "\"100\"", "[100]"}) {
        config(std::string(R"({"audacDevicePort":[5],"audioVlanID":)") + vlan + "}");
        EXPECT_EQ(audacValidityCheck(&client), 10000);
        EXPECT_EQ(scans(), "|") << vlan;
    }
    EXPECT_EQ(logged("AudacLookup get audio vlan failed. (audioVlan:0)\r\n"), 6u);

    // Ports that are none are passed over one by one; a good one among them counts, however often it occurs.
    for (const auto &[ports, count] :
         {std::pair{R"(["5", -5, 1e300, -1e300, true, null, [5], {"5":5}, 0, 4.9, 768, 4294967301])", 0u},
          {R"([0, 767, "x", 5.9, 5, 5])", 1u},
          {R"({"a":5})", 0u}}) {
        config(std::string(R"({"audioVlanID":100,"audacDevicePort":)") + ports + "}");
        EXPECT_EQ(audacValidityCheck(&client), 0);
        EXPECT_EQ(found(), count) << ports;
    }
    // VLAN 1 is no profile VLAN.
    profileRemove(kProfileVlan);
    profileStore(1, kType);
    EXPECT_EQ(audacValidityCheck(&client), 17001);
}

TEST_F(AudacTest, NeighbourTextsOfAnyLengthAndContent) {
    unplug("control6");
    for (std::size_t length = 0; length < 255; ++length) {
        auto control = host("control5", 5, "aa:bb:cc:dd:ee:05", hostileText(255 - length));
        control.lldp->chassisId = control.lldp->portId = hostileText(length);
        const bool isControl = length <= 250;
        if (isControl)
            control.lldp->systemDesc.replace(250 - length, 5, length % 2 == 0 ? "Audac" : "aUDAC");
        unplug("control5");
        plug(control);
        ASSERT_EQ(found(), isControl ? 1u : 0u) << length;
    }
    EXPECT_TRUE(logLinesIntact());
}

TEST_F(AudacTest, NeighboursThatCannotBeReadAreReported) {
    ampPlug(1);
    ampPlug(2, 6);
    for (const std::string read : {"ChassisId", "PortId", "SystemDesc"}) {
        failCall("rpcclt_openapiLldpIntfRemoteDevice" + read + "Get");
        expectErrors(1, {"Device" + read + "Get error. (result = -2)\r\n"}, [&] { EXPECT_EQ(found(), 1u); });
    }
    EXPECT_EQ(found(), 2u);
    // The walk of a port ends with the failure; what was read before it stays.
    plug(host("second", 6, "aa:bb:cc:dd:ee:16", "Audac"));
    const JsonPtr out(cJSON_CreateArray());
    failCall("rpcclt_openapiLldpIntfRemoteDevicePortIdGet", 2);
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {IfNum(6), out.get()}), 10000);
    EXPECT_EQ(
        printJsonLine(out.get()),
        R"([{"systemDesc":"the Audac matrix","chassisID":"aa:bb:cc:dd:ee:06","portId":"aa:bb:cc:dd:ee:06"}])");
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {IfNum(6), out.get()}), 0);
    EXPECT_EQ(cJSON_GetArraySize(out.get()), 3);
}

TEST_F(AudacTest, AScriptFolderThatCannotBeWritten) {
    ampPlug(1);
    scans();
    const auto folder = platform::fsPath(paths::kScriptDir);
    fs::remove_all(folder);
    ampPlug(2, 6);
    // The show command, and the two lines of a script that cannot be written.
    expectErrors(3, {"AudacLookup write file failed.\r\n"}, [&] { EXPECT_EQ(scans(), "01 | 01@5"); });
    DetectedDevice restored = *list.at(1);
    restored.controlMode = OPEN_DOT1X_AUTO;
    EXPECT_EQ(audacOfflineCli(&client, restored), 10000);
    EXPECT_EQ(callCount("rpcclt_openapiDot1xPortControlModeSet"), 0u);
    fs::create_directory(folder);
    EXPECT_EQ(scans(), "01 02 | 01@5 02@6");
}

// --- the switch does not do as it is told

TEST_F(AudacTest, AFullAssociationTableIsReportedOnce) {
    network({.macAssociationsMax = 1});
    ampPlug(1);
    scans();
    ampPlug(2, 6);
    expectErrors(1,
                 {"the switch has not taken the association of MAC AA:BB:CC:00:00:02 on Port 0/6 with "
                  "VLAN 100"},
                 [&] { EXPECT_EQ(scans(40), "01 | 01@5"); });
    EXPECT_LT(callCount(kApply), 10u);  // tried again, less and less often
    // What leaves makes room at once.
    away(1);
    EXPECT_EQ(scans(20), "02 | 02@6");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 2u);
    EXPECT_EQ(logged("(ERROR)"), 1u);
}

// --- a new start finds devices that have joined before

TEST_F(AudacTest, ARestartTakesOverWhatHasJoined) {
    ampPlug(1);
    ampPlug(2, 6);
    scans();
    cli({"vlan database", "vlan association mac 02:00:00:00:00:77 50"});  // another VLAN's
    away(2);
    list.clear();
    const auto scripts = callCount(kApply);
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_FALSE(adoptAudacDevices(&client, &list));
    EXPECT_TRUE(list.empty());
    for (int i = 0; i < 2; ++i)  // whoever is known is not taken over again
        ASSERT_TRUE(adoptAudacDevices(&client, &list));
    // A spelling is no other device.
    for (DetectedDevice &one : list)
        one.mac = *Mac::parse(one.mac.text().replace(0, 2, "aA"));
    EXPECT_EQ(scans(), "77=50 01 02 | 01@5 02@0/1");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 2u);
    EXPECT_EQ(systemLogged("change to Port"), 0u);
    EXPECT_EQ(callCount(kApply), scripts);
    // What nobody sees ages out as usual.
    EXPECT_EQ(scans(18), "77=50 01 02 | 01@5 02@0/19");
    EXPECT_EQ(scans(), "77=50 01 | 01@5");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: aA:BB:CC:00:00:02) on Port 0/0."), 1u);
}

// --- every call may fail

// Amplifier 1 is known on port 5; then something happens to 2 on port 6, known before unless it joins.
// Whoever is known would leave with the next miss.
TEST_F(AudacTest, NoFailedCallIsAnAbsenceAndEachIsMadeUpFor) {
    for (const std::string event : {"nothing", "join", "leave", "repair", "move"}) {
        SCOPED_TRACE(event);
        const auto prepare = [&] {
            network({.physicalPorts = 6, .lags = 1});
            ampPlug(1);
            scans();
            ampPlug(2, 6);
            if (event != "join")
                scans();
            if (event == "leave")
                away(2);
            else if (event == "repair")
                removeAssociation(macOf(2));
            else if (event == "move")
                move("amp2", 5, "control5");
            // Who moves is not on the known port, and would rightly go.
            for (DetectedDevice &one : list)
                one.missCount = event == "move" ? 0 : DEVICE_MISS_MAX - 1;
        };
        prepare();
        const auto without = scans(3);
        const auto scripts = callCount(kApply);
        for (const bool once : {true, false})
            failEachCall(
                once, prepare,
                [&] {
                    ASSERT_NE(checkReason(audacDetection.loop, &client), Presence::Absent);
                    scans(once ? 1 : 3);
                },
                [&] {
                    ASSERT_EQ(occurrences(picture(), "01"), 2u);
                    if (event == "nothing" || event == "move")
                        ASSERT_EQ(occurrences(picture(), "02"), 2u);
                    ASSERT_EQ(scans(2), without);
                    if (event == "nothing" || event == "move")
                        ASSERT_EQ(callCount(kApply), scripts);
                });
    }
}

}  // namespace
