// Audac detection against a virtual switch, one call of the cycle's steps at a time, and the thread itself.
#include "detection/audac.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>
#include <set>

#include "common/files.h"
#include "common/json.h"
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
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";
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
    // Unplugged, and forgotten by the switch at once.
    void away(int amp = 1) {
        ASSERT_EQ(unplug("amp" + std::to_string(amp)), OPEN_E_NONE);
        model([](vswitch::Model &m) { m.clearFdb(); });
    }
    void removeByHand(int amp) { cli({"vlan database", "no vlan association mac " + macOf(amp)}); }
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
    std::string picture() {
        std::string out;
        for (const auto &[mac, vlan] : model([](vswitch::Model &m) { return m.macAssociations(); }))
            out += mac.text().substr(15) + (vlan == 100 ? " " : "? ");
        std::multiset<std::string> known;
        for (const DetectedDevice &one : list)
            known.insert(" " + one.mac.text().substr(15) + "@" + std::to_string(one.port.number()) +
                         (one.missCount != 0 ? "/" + std::to_string(one.missCount) : ""));
        return std::accumulate(known.begin(), known.end(), out + "|");
    }
    std::uint32_t &missCount() { return list.at(1)->missCount; }
    int found() {
        const JsonPtr out(cJSON_CreateArray());
        audacListGet(&client, out.get());
        return cJSON_GetArraySize(out.get());
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

    ASSERT_EQ(audacValidityCheck(&client), 0);
    ASSERT_EQ(scans(), "01 | 01@5");
    EXPECT_EQ(list.at(1)->type, DEVICE_TYPE_AUDIO);
    EXPECT_EQ(list.at(1)->controlMode, DEVICE_CONTROL_MODE_NONE);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join (MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(logged("FDB MAC AA:BB:CC:DD:EE:05 on port 5 matches control, skip."), 1u);
    EXPECT_FALSE(exists(paths::kAudacIn) || exists(paths::kAudacOut) ||
                 exists(paths::kShowVlanAssociationMac));
    scans(3);
    EXPECT_EQ(callCount(kApply), 1u);
    EXPECT_EQ(list.count(), 1u);
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(AudacTest, LeavesAfterTwentyMissesInARowAndRetriesWhatFails) {
    ampPlug();
    failCall(kApply, 1, false);
    // Each try is two lines: the apply call's own and the family's, which names the script.
    expectErrors(6, {}, [&] { scans(3); });
    EXPECT_EQ(logged("vlan database\nvlan association mac AA:BB:CC:00:00:01 100\nexit\n)\r\n"), 3u);
    EXPECT_EQ(picture(), "|");
    EXPECT_EQ(systemLogged("Join"), 0u);
    clearFaults();
    scans();
    away();
    EXPECT_EQ(scans(19), "01 | 01@5/19");
    ampPlug();
    EXPECT_EQ(scans(), "01 | 01@5");

    away();
    failCall(kApply, 1, false);
    expectErrors(0, {}, [&] { scans(19); });
    expectErrors(6, {}, [&] { scans(3); });
    EXPECT_EQ(picture(), "01 | 01@5/22");
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);
    clearFaults();
    EXPECT_EQ(scans(), "|");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 1u);
}

TEST_F(AudacTest, FollowsAMoveWithoutAScript) {
    ampPlug(1);
    ampPlug(2);
    scans();
    move("amp1", 6, "control6");
    missCount() = 7;
    scans();
    EXPECT_EQ(callCount(kApply), 2u);
    EXPECT_EQ(picture(), "01 02 | 01@6 02@5");
    const std::string text = "AUDAC device (MAC: AA:BB:CC:00:00:01) from Port 0/5 change to Port 0/6.";
    EXPECT_EQ(systemLogged(text), 1u);
    EXPECT_EQ(logged(text + "\r\n"), 1u);

    // Learned on both ports, in two VLANs: it stays where it is known, and nothing is done or said.
    for (int i = 0; i < 10; ++i) {
        model([](vswitch::Model &m) { m.learn(*vswitch::Mac::parse(macOf(1)), 50, 5); });
        EXPECT_EQ(scans(), "01 02 | 01@6 02@5");
    }
    // One that is new joins once, too.
    ampPlug(3);
    model([](vswitch::Model &m) { m.learn(*vswitch::Mac::parse(macOf(3)), 50, 6); });
    scans(3);
    EXPECT_EQ(callCount(kApply), 3u);
    EXPECT_EQ(list.count(), 3u);
    EXPECT_EQ(systemLogged("change to Port"), 1u);
}

TEST_F(AudacTest, RepairsAnAssociationRemovedByHand) {
    ampPlug(1);
    ampPlug(2, 6);
    scans();
    removeByHand(1);
    expectErrors(1, {"AA:BB:CC:00:00:01) in the linked list, but not in the VLAN association mac.\r\n"},
                 [&] { scans(); });
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 3u);
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);
    EXPECT_EQ(repairAudacLink(&client, &list), 1);
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(repairAudacLink(&client, &list), 10000);
    EXPECT_EQ(picture(), "01 02 | 01@5 02@6");
}

TEST_F(AudacTest, ControlUnitsAndRestoredPorts) {
    const DetectedDevice control{.port = IfNum(7),
                                 .type = DEVICE_TYPE_CONTROL,
                                 .mac = *Mac::parse("aa:bb:cc:dd:ee:07"),
                                 .controlMode = OPEN_DOT1X_AUTO};
    const auto port7 = [&] { return model([](vswitch::Model &m) { return *m.interface(7); }); };
    EXPECT_EQ(audacOnlineCli(&client, control), 0);
    EXPECT_FALSE(port7().ptpTcEnabled);
    EXPECT_EQ(callCount(kApply), 0u);
    EXPECT_EQ(systemLogged("AUDAC Control device Join (MAC: aa:bb:cc:dd:ee:07) on Port 0/7, PTP dis"), 1u);
    failCall("rpcclt_openapiPtpTcIntfAdminModeSet");
    EXPECT_EQ(audacOnlineCli(&client, control), OPEN_E_FAIL);
    EXPECT_EQ(logged("AudacLookup: Failed to disable PTP on port 7 (result=-2)\r\n"), 1u);

    model([](vswitch::Model &m) { m.edit(7)->dot1xControlMode = OPEN_DOT1X_FORCE_AUTHORIZED; });
    EXPECT_EQ(audacOfflineCli(&client, control), 0);
    EXPECT_EQ(port7().dot1xControlMode, std::uint32_t{OPEN_DOT1X_AUTO});
    EXPECT_FALSE(port7().ptpTcEnabled);
    EXPECT_EQ(systemLogged("AUDAC device Leave (Control MAC: aa:bb:cc:dd:ee:07) on Port 0/7."), 1u);
    // The port is restored, and its result counts, whatever became of the script.
    failCall(kApply);
    EXPECT_EQ(audacOfflineCli(&client, control), 0);
    clearFaults();
    failCall("rpcclt_openapiDot1xPortControlModeSet");
    EXPECT_EQ(audacOfflineCli(&client, control), OPEN_E_FAIL);

    // A device of no known type is left alone.
    const auto applied = callCount(kApply);
    EXPECT_EQ(audacOnlineCli(&client, {.port = IfNum(7), .type = 7, .mac = control.mac}), 0);
    EXPECT_EQ(callCount(kApply), applied);
}

// The thread itself, on a clock that the test moves.
class AudacThreadTest : public AudacTest {
  protected:
    void cycles(int count) {
        ASSERT_TRUE(clk::awaitSleepers(1));
        for (int i = 0; i < count; ++i) {
            clk::advance(15s);
            ASSERT_TRUE(clk::awaitSleepers(1));
        }
    }
    void lastCycle() {
        clk::advance(15s);
        join();
    }
};

TEST_F(AudacThreadTest, EndsWithTheProfileAndTakesEveryDeviceOut) {
    ampPlug(1);
    ampPlug(2, 6);
    start(detect_audac_thread);
    cycles(0);
    EXPECT_EQ(picture(), "|");  // the first look comes after the first period
    cycles(1);
    EXPECT_EQ(picture(), "01 02 |");
    removeByHand(2);
    cycles(1);
    EXPECT_EQ(picture(), "01 02 |");

    // While database or switch cannot be asked nobody leaves, and one line says what is waited for.
    const auto database = readFile(paths::kProfileDb);
    for (const auto &[awaited, begin, end] :
         {std::tuple<const char *, std::function<void()>, std::function<void()>>{
              "the profile database", [] { writeText(paths::kProfileDb, std::string(8192, 'x')); },
              [&] { writeText(paths::kProfileDb, database); }},
          {"the switch", [&] { device->setDown(true); }, [&] { device->setDown(false); }}}) {
        for (int episode = 1; episode <= 2; ++episode) {
            begin();
            cycles(25);
            end();
            EXPECT_EQ(picture(), "01 02 |");
            cycles(1);
            EXPECT_EQ(logged(std::string("waiting for ") + awaited + "; nothing is changed until then"),
                      static_cast<std::size_t>(episode));
        }
    }
    failCall("openapiVlanCreatedCheck");
    cycles(1);
    clearFaults();
    cycles(1);
    EXPECT_EQ(picture(), "01 02 |");
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);
    const auto skipped = logged("AUDAC Profile not already created, do nothing.");
    const auto errors = logged("(ERROR)");

    // Without its configuration file the thread waits; it looks at nothing and forgets nothing.
    removeFile(paths::kAudacConfig);
    cycles(25);
    EXPECT_EQ(logged("AUDAC Profile not already created, do nothing."), skipped + 25);
    EXPECT_EQ(logged("waiting for a configuration file with the audio VLAN"), 1u);
    EXPECT_EQ(picture(), "01 02 |");
    config(kConfig);
    cycles(1);
    EXPECT_EQ(picture(), "01 02 |");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 3u);

    profileRemove(kProfileVlan);
    lastCycle();
    EXPECT_EQ(picture(), "|");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: "), 2u);
    EXPECT_EQ(logged("User already delete AUDAC profile, AudacLookup exit!\r\n"), 1u);
    EXPECT_EQ(logged("(ERROR)"), errors);

    EXPECT_EQ(functionsLogged(),
              "audacLookup audacOfflineCli audacOnlineCli audacValidityCheck detect_audac_thread "
              "repairAudacLink ");

    // With no profile there is no first sleep either.
    start(detect_audac_thread);
    join();
    EXPECT_EQ(clk::sleepers(), 0u);
}

// --- what users, devices and the machine may do to it

TEST_F(AudacTest, ConfigurationFilesOfAnyKind) {
    ampPlug();
    const std::string whole = kConfig, deep(100'000, '['), binary("\x00\xff\x7f\x45LF\x01{", 8);
    std::vector<std::string> unusable = {"",     "{}", "[]", "null", whole.substr(0, whole.size() - 1),
                                         binary, deep};
    unusable.push_back(whole + std::string(5u << 20, ' '));
    for (const char *vlan : {"0", "-1", "4095", "1e300", "\"100\"", "true", "[100]"})
        unusable.push_back(std::string(R"({"audacDevicePort":[5],"audioVlanID":)") + vlan + "}");
    const auto check = [&] { EXPECT_EQ(audacValidityCheck(&client), 10000); };
    for (const auto &text : unusable) {
        config(text);
        EXPECT_FALSE(audacAudioVlanIdGet()) << text.substr(0, 60);
        check();
        EXPECT_EQ(scans(), "|");
    }
    EXPECT_EQ(logged("file too large:/tmp/audac_config"), 3u);  // once in each of the three reads
    removeFile(paths::kAudacConfig);
    expectErrors(0, {}, check);
    fs::create_directory(platform::fsPath(paths::kAudacConfig));
    check();
    fs::remove(platform::fsPath(paths::kAudacConfig));

    // Ports that are none are passed over one by one; a good one among them counts, however often it occurs.
    const std::pair<const char *, int> portLists[] = {
        {R"(["5", -5, 1e9, 1e300, -1e300, true, null, [5], {"5":5}, 0, 4.9, 767, 768, 4294967301])", 0},
        {R"([0, 767, "x", 5.9, 768])", 1},
        {"[5, 5, 5]", 1},
        {R"("5")", 0},
        {R"({"a":5})", 0},
        {"[]", 0}};
    for (const auto &[ports, count] : portLists) {
        config(std::string(R"({"audioVlanID":100,"audacDevicePort":)") + ports + "}");
        EXPECT_EQ(audacValidityCheck(&client), 0);
        EXPECT_EQ(found(), count) << ports;
    }

    // A join that finds no audio VLAN.
    config(R"({"audacDevicePort":[5]})");
    expectErrors(1, {}, [&] { audacLookup(&client, &list); });
    EXPECT_NE(logged("AudacLookup get audio vlan failed. (audioVlan:0)\r\n"), 0u);
    EXPECT_EQ(list.count(), 0u);
}

TEST_F(AudacTest, AHalfWrittenConfigurationCostsNobodyItsAssociation) {
    ampPlug();
    scans();
    away();
    scans(19);
    const std::string whole = kConfig;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        config(whole.substr(0, length));
        audacLookup(&client, &list);  // the file is rewritten after the check of the cycle
    }
    EXPECT_EQ(picture(), "01 | 01@5/19");
    // A whole file that names no ports is a decision.
    config(R"({"audioVlanID":100})");
    EXPECT_EQ(scans(), "|");
}

TEST_F(AudacTest, NeighbourTextsOfAnyLengthAndContent) {
    ampPlug();
    unplug("control6");
    for (std::size_t length = 0; length <= 255; ++length) {
        auto control = host("control5", 5, "aa:bb:cc:dd:ee:05", "x");
        control.macs.clear();
        control.lldp->chassisId = control.lldp->portId = hostileText(length);
        control.lldp->systemDesc = hostileText(length);
        const bool isControl = length >= 5;
        if (isControl)
            control.lldp->systemDesc.replace(length - 5, 5, length % 2 == 0 ? "Audac" : "aUDAC");
        unplug("control5");
        plug(control);
        ampPlug();
        ASSERT_EQ(found(), isControl ? 1 : 0) << length;
        unplug("amp1");
    }
    // Each read of a neighbour may fail; what was read before it stays.
    plug(host("control6", 6, "aa:bb:cc:dd:ee:06", "Audac"));
    ampPlug(1);
    ampPlug(2, 6);
    for (const std::string read : {"ChassisId", "PortId", "SystemDesc"}) {
        failCall("rpcclt_openapiLldpIntfRemoteDevice" + read + "Get");
        expectErrors(1, {"Device" + read + "Get error. (result = -2)\r\n"}, [&] { EXPECT_EQ(found(), 1); });
        clearFaults();
    }
    failCall("rpcclt_openapiLldpMgmtStrLenGet");
    expectErrors(1, {}, [&] { EXPECT_EQ(found(), 1); });
    clearFaults();
    EXPECT_EQ(found(), 2);
    // The walk of a port ends with the failure, and says so.
    plug(host("second", 6, "aa:bb:cc:dd:ee:16", "Audac"));
    const JsonPtr out(cJSON_CreateArray());
    failCall("rpcclt_openapiLldpIntfRemoteDevicePortIdGet", 2);
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {IfNum(6), out.get()}), 10000);
    EXPECT_EQ(printJsonLine(out.get()),
              R"([{"systemDesc":"Audac","chassisID":"aa:bb:cc:dd:ee:06","portId":"aa:bb:cc:dd:ee:06"}])");
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {IfNum(6), out.get()}), 0);
    EXPECT_EQ(cJSON_GetArraySize(out.get()), 3);
    EXPECT_TRUE(logLinesIntact());
}

TEST_F(AudacTest, AnOutageInTheMiddleOfACycleLosesNobody) {
    ampPlug();
    scans();
    device->setDown(true);
    expectErrors(25, {}, [&] { scans(25); });  // a line for each show command
    EXPECT_EQ(missCount(), 0u);
    EXPECT_EQ(audacValidityCheck(&client), 10000);
    device->setDown(false);
    expectErrors(0, {}, [&] { scans(2); });
    EXPECT_EQ(picture(), "01 | 01@5");
    EXPECT_EQ(callCount(kApply), 1u);
}

TEST_F(AudacTest, ProfileDatabasesOfAnyKind) {
    const auto path = platform::fsPath(paths::kProfileDb);
    const auto expect = [&](std::int32_t result, std::size_t errors) {
        expectErrors(errors, {}, [&] { EXPECT_EQ(audacValidityCheck(&client), result); });
    };
    fs::permissions(path, fs::perms::owner_read);
    expect(0, 0);
    fs::permissions(path, fs::perms::owner_all);
    // VLAN 1 is no profile VLAN, nor is one that the switch does not have.
    profileRemove(kProfileVlan);
    for (const int vlan : {1, 51})
        profileStore(vlan, kType);
    expect(17001, 0);
    vlanCreate(51);
    expect(0, 0);

    // A database that cannot be asked is not one without the profile.
    writeText(paths::kProfileDb, std::string(8192, 'x'));
    expect(10000, 1);
    writeText(paths::kProfileDb, "");
    expect(10000, 1);
    fs::remove(path);
    expect(10000, 1);
}

TEST_F(AudacTest, AScriptFolderThatCannotBeWritten) {
    ampPlug(1);
    scans();
    const auto folder = platform::fsPath(paths::kScriptDir);
    fs::rename(folder, folder.substr(0, folder.size() - 1) + "-away");
    ampPlug(2, 6);
    // The show command, and the two lines of a script that cannot be written.
    expectErrors(3, {"AudacLookup write file failed.\r\n"}, [&] { scans(); });
    EXPECT_EQ(picture(), "01 | 01@5");
    DetectedDevice restored = *list.at(1);
    restored.controlMode = OPEN_DOT1X_AUTO;
    EXPECT_EQ(audacOfflineCli(&client, restored), 10000);
    EXPECT_EQ(callCount("rpcclt_openapiDot1xPortControlModeSet"), 0u);
    fs::create_directory(folder);
    expectErrors(0, {}, [&] { scans(); });
    EXPECT_EQ(picture(), "01 02 | 01@5 02@6");
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
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 1u);
    EXPECT_LT(callCount(kApply), 10u);  // tried again, less and less often
    // What leaves makes room at once.
    away(1);
    EXPECT_EQ(scans(20), "02 | 02@6");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join (MAC: AA:BB:CC:00:00:02) on Port 0/6."), 1u);
    EXPECT_EQ(logged("(ERROR)"), 1u);
}

TEST_F(AudacTest, DevicesFollowAChangedAudioVlan) {
    ampPlug(1);
    ampPlug(2, 6);
    scans();
    away(2);  // silent for a while
    config(R"({"audioVlanID":200,"audacDevicePort":[5,6]})");
    failCall(kApply, 1);
    scans();
    clearFaults();
    scans();
    for (const auto &[mac, vlan] : model([](vswitch::Model &m) { return m.macAssociations(); }))
        EXPECT_EQ(vlan, 200u) << mac.text();
    EXPECT_EQ(picture(), "01? 02? | 01@5 02@6/2");  // "?": not in VLAN 100
    EXPECT_EQ(systemLogged(" from VLAN 100 change to VLAN 200."), 2u);
    EXPECT_EQ(systemLogged("Join"), 2u);
    const auto scripts = callCount(kApply);
    scans(3);
    EXPECT_EQ(callCount(kApply), scripts);
}

// --- a new start finds devices that have joined before

TEST_F(AudacTest, ARestartTakesOverWhatHasJoined) {
    ampPlug(1);
    ampPlug(2, 6);
    scans();
    // Another VLAN's is nobody's business; a spelling is no other device.
    cli({"vlan database", "vlan association mac 02:00:00:00:00:77 50"});
    away(2);
    list.clear();
    const auto scripts = callCount(kApply);

    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_FALSE(adoptAudacDevices(&client, &list));
    EXPECT_TRUE(list.empty());
    clearFaults();
    ASSERT_TRUE(adoptAudacDevices(&client, &list));
    ASSERT_TRUE(adoptAudacDevices(&client, &list));  // whoever is known is not taken over again
    EXPECT_EQ(list.count(), 2u);
    for (DetectedDevice &one : list)
        one.mac = *Mac::parse(one.mac.text().replace(0, 2, "aA"));
    EXPECT_EQ(scans(), "77? 01 02 | 01@5 02@0/1");
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 2u);
    EXPECT_EQ(systemLogged("change to Port"), 0u);
    EXPECT_EQ(callCount(kApply), scripts);
    // What nobody sees ages out as usual.
    scans(18);
    EXPECT_EQ(systemLogged("Leave"), 0u);
    EXPECT_EQ(scans(), "77? 01 | 01@5");
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: aA:BB:CC:00:00:02) on Port 0/0."), 1u);
}

// --- every call may fail

enum class Event { Join, Leave, Repair, Move };

class AudacFaultTest : public AudacTest, public testing::WithParamInterface<Event> {
  protected:
    // Amplifier 1 is known on port 5; then something happens to 2 on port 6, known before unless it joins.
    void prepare() {
        network({.physicalPorts = 6, .lags = 1});
        ampPlug(1);
        scans();
        ampPlug(2, 6);
        if (GetParam() != Event::Join)
            scans();
        if (GetParam() == Event::Move)
            move("amp2", 5, "control5");
        if (GetParam() == Event::Repair)
            removeByHand(2);
        if (GetParam() == Event::Leave) {
            away(2);
            missCount() = DEVICE_MISS_MAX - 1;  // the last to join is the first of the list
        }
    }
};

TEST_P(AudacFaultTest, EndsUpWhereItDoesWithoutFaults) {
    prepare();
    scans(3);
    const auto without = picture();
    withEachCallFailing([&] { prepare(); }, [&](bool once) { scans(once ? 1 : 3); },
                        [&] {
                            // What is known and there is never put out by a failure.
                            ASSERT_EQ(occurrences(picture(), "01"), 2u);
                            ASSERT_TRUE(GetParam() != Event::Move || occurrences(picture(), "02") == 2);
                            ASSERT_EQ(scans(2), without);
                        });
}

// Nobody is new, gone or moved, and everybody would have to leave with the next miss.
TEST_F(AudacTest, NoFailedCallIsAnAbsence) {
    network({.physicalPorts = 6, .lags = 1});
    ampPlug(1);
    ampPlug(2, 6);
    const auto joined = scans();
    const auto scripts = callCount(kApply);
    withEachCallFailing(
        [&] {
            for (DetectedDevice &one : list)
                one.missCount = DEVICE_MISS_MAX - 1;
        },
        [&](bool) {
            EXPECT_NE(checkReason(audacDetection.loop, &client), Presence::Absent);
            scans();
        },
        [&] {
            ASSERT_EQ(list.count(), 2u);
            ASSERT_EQ(scans(), joined);
            ASSERT_EQ(callCount(kApply), scripts);
        });
    EXPECT_EQ(systemLogged("Leave") + systemLogged("change to"), 0u);
}

INSTANTIATE_TEST_SUITE_P(Audac, AudacFaultTest,
                         testing::Values(Event::Join, Event::Leave, Event::Repair, Event::Move));

}  // namespace
