// Audac detection against a virtual switch, one call of the cycle's steps at a time, and the thread itself.
#include "detection/audac.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>

#include "common/owners.h"
#include "common/result.h"
#include "detection/mac_association.h"
#include "platform/paths.h"
#include "tests/detection/detection_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

constexpr const char *kType = "AUDAC Audio and Control Network";
constexpr const char *kConfig = R"({"audioVlanID":100,"audacDevicePort":[5,6]})";
constexpr const char *kApply = "rpcclt_openapiTxtCfgApply";
constexpr const char *kAmp = "AA:BB:CC:00:00:01";
constexpr const char *kAmp2 = "AA:BB:CC:00:00:02";
constexpr int kProfileVlan = 50;

// Ports 5 and 6 are Audac ports with a control unit each; devices "amp" and "amp2" may be behind them.
class AudacTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        deviceListInit(&list, detectedDeviceFree, detectedDevicePrint, detectedDeviceCompare);
        config(kConfig);
        scene();
    }
    void TearDown() override {
        deviceListTearDown(&list);
        DetectionTest::TearDown();
    }

    // The network on a switch that is new.
    void scene() {
        profileAdd(kProfileVlan, kType);
        plug(host("control5", 5, "aa:bb:cc:dd:ee:05", "AUDAC matrix"));
        plug(host("control6", 6, "aa:bb:cc:dd:ee:06", "the Audac matrix"));
    }
    void ampPlug(const char *name = "amp", const char *mac = kAmp, vswitch::IfNum port = 5) {
        ASSERT_EQ(plug(host(name, port, mac, "", "control" + std::to_string(port))), OPEN_E_NONE);
    }
    // Unplugged, and forgotten by the switch at once.
    void away(const char *name = "amp") {
        ASSERT_EQ(unplug(name), OPEN_E_NONE);
        model([](vswitch::Model &m) { m.clearFdb(); });
    }
    static void config(const std::string &text) { writeText(paths::kAudacConfig, text); }

    // One cycle of the thread, minus the check of the profile.
    void scan() {
        repairAudacLink(&client, &list);
        audacLookup(&client, &list);
    }
    void scans(int count) {
        for (int i = 0; i < count; ++i)
            scan();
    }

    bool associated(const std::string &mac) {
        return show("show vlan association mac").find(mac + "  100\n") != std::string::npos;
    }
    std::size_t associations() { return occurrences(show("show vlan association mac"), "  100\n"); }
    bool nobody() { return list.count == 0 && associations() == 0; }
    std::uint32_t &missCount() { return recordAt<DetectedDevice>(list, 1)->missCount; }
    // The list as MAC and port.
    std::map<std::string, std::uint32_t> known() const {
        std::map<std::string, std::uint32_t> out;
        for (std::size_t i = 1; i <= list.count; ++i)
            out[recordAt<DetectedDevice>(list, i)->mac] = recordAt<DetectedDevice>(list, i)->port;
        return out;
    }
    int found() {
        const JsonPtr out(cJSON_CreateArray());
        audacListGet(&client, out.get());
        return cJSON_GetArraySize(out.get());
    }

    DeviceList list;
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
        m.learn(*vswitch::Mac::parse(kAmp), 50, 5);  // a second entry of the same device
    });

    ASSERT_EQ(audacValidityCheck(&client), RESULT_SUCCESS);
    scan();
    ASSERT_EQ(known(), (std::map<std::string, std::uint32_t>{{kAmp, 5}}));
    EXPECT_EQ(recordAt<DetectedDevice>(list, 1)->type, DEVICE_TYPE_AUDIO);
    EXPECT_EQ(recordAt<DetectedDevice>(list, 1)->controlMode, DEVICE_CONTROL_MODE_NONE);
    EXPECT_TRUE(associated(kAmp));
    EXPECT_EQ(associations(), 1u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join (MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(logged("FDB MAC AA:BB:CC:DD:EE:05 on port 5 matches control, skip."), 1u);
    EXPECT_FALSE(exists(paths::kAudacIn) || exists(paths::kAudacOut) ||
                 exists(paths::kShowVlanAssociationMac));

    scans(3);
    EXPECT_EQ(callCount(kApply), 1u);
    EXPECT_EQ(list.count, 1u);
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(AudacTest, LeavesAfterTwentyMissesInARow) {
    ampPlug();
    scan();
    away();
    scans(19);
    EXPECT_EQ(missCount(), 19u);
    ampPlug();
    scan();
    EXPECT_EQ(missCount(), 0u);
    EXPECT_TRUE(associated(kAmp));

    away();
    scans(19);
    EXPECT_TRUE(associated(kAmp));
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);
    scan();
    EXPECT_TRUE(nobody());
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: AA:BB:CC:00:00:01) on Port 0/5."), 1u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 1u);
    EXPECT_EQ(callCount(kApply), 2u);
}

TEST_F(AudacTest, FollowsAMoveWithoutAScript) {
    ampPlug();
    ampPlug("amp2", kAmp2);
    scan();
    move("amp", 6, "control6");
    missCount() = 7;
    scan();
    EXPECT_EQ(callCount(kApply), 2u);
    EXPECT_EQ(known(), (std::map<std::string, std::uint32_t>{{kAmp, 6}, {kAmp2, 5}}));
    EXPECT_EQ(missCount(), 0u);
    const std::string text = "AUDAC device (MAC: AA:BB:CC:00:00:01) from Port 0/5 change to Port 0/6.";
    EXPECT_EQ(systemLogged(text), 1u);
    EXPECT_EQ(logged(text + "\r\n"), 1u);

    // Learned on both ports, in two VLANs: whatever the port, the list must not grow.
    for (int i = 0; i < 10; ++i) {
        model([](vswitch::Model &m) { m.learn(*vswitch::Mac::parse(kAmp), 50, 5); });
        scan();
    }
    EXPECT_EQ(list.count, 3u);
    EXPECT_TRUE(associated(kAmp));
}

TEST_F(AudacTest, RepairsAnAssociationRemovedByHand) {
    ampPlug();
    ampPlug("amp2", kAmp2, 6);
    scan();
    cli({"vlan database", std::string("no vlan association mac ") + kAmp});
    ASSERT_FALSE(associated(kAmp));
    EXPECT_EQ(errorsOf([&] { scan(); }), 1u);
    EXPECT_EQ(logged("AA:BB:CC:00:00:01) in the linked list, but not in the VLAN association mac.\r\n"), 1u);
    EXPECT_TRUE(associated(kAmp));
    EXPECT_EQ(list.count, 2u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 3u);
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 0u);

    EXPECT_EQ(repairAudacLink(&client, &list), 1);
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(repairAudacLink(&client, &list), RESULT_FAILED);
    EXPECT_EQ(list.count, 2u);
}

TEST_F(AudacTest, RetriesAFailingJoinAndAFailingLeave) {
    ampPlug();
    failCall(kApply, 1, false);
    // Each try is two lines: the apply call's own and the family's, which names the script.
    EXPECT_EQ(errorsOf([&] { scans(3); }), 6u);
    EXPECT_EQ(logged("vlan database\nvlan association mac AA:BB:CC:00:00:01 100\nexit\n)\r\n"), 3u);
    EXPECT_TRUE(nobody());
    EXPECT_EQ(systemLogged("Join"), 0u);
    clearFaults();
    scan();
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 1u);

    away();
    scans(19);
    failCall(kApply, 1, false);
    EXPECT_EQ(errorsOf([&] { scans(3); }), 6u);
    ASSERT_EQ(list.count, 1u);
    EXPECT_GE(missCount(), DEVICE_MISS_MAX);
    EXPECT_TRUE(associated(kAmp));
    clearFaults();
    scan();
    EXPECT_TRUE(nobody());
    EXPECT_EQ(systemLogged("AUDAC device Leave"), 1u);
}

TEST_F(AudacTest, ControlUnitsAndRestoredPorts) {
    DetectedDevice control{7, DEVICE_TYPE_CONTROL, 0, "aa:bb:cc:dd:ee:07", OPEN_DOT1X_AUTO};
    const auto port7 = [&] { return model([](vswitch::Model &m) { return *m.interface(7); }); };
    EXPECT_EQ(audacOnlineCli(&client, &control), 0);
    EXPECT_FALSE(port7().ptpTcEnabled);
    EXPECT_EQ(callCount(kApply), 0u);
    EXPECT_EQ(systemLogged("AUDAC Control device Join (MAC: aa:bb:cc:dd:ee:07) on Port 0/7, PTP dis"), 1u);
    failCall("rpcclt_openapiPtpTcIntfAdminModeSet");
    EXPECT_EQ(audacOnlineCli(&client, &control), OPEN_E_FAIL);
    EXPECT_EQ(logged("AudacLookup: Failed to disable PTP on port 7 (result=-2)\r\n"), 1u);

    model([](vswitch::Model &m) { m.edit(7)->dot1xControlMode = OPEN_DOT1X_FORCE_AUTHORIZED; });
    EXPECT_EQ(audacOfflineCli(&client, &control), 0);
    EXPECT_EQ(port7().dot1xControlMode, std::uint32_t{OPEN_DOT1X_AUTO});
    EXPECT_FALSE(port7().ptpTcEnabled);
    EXPECT_EQ(systemLogged("AUDAC device Leave (Control MAC: aa:bb:cc:dd:ee:07) on Port 0/7."), 1u);
    // The port is restored, and its result counts, whatever became of the script.
    failCall(kApply);
    EXPECT_EQ(audacOfflineCli(&client, &control), 0);
    clearFaults();
    failCall("rpcclt_openapiDot1xPortControlModeSet");
    EXPECT_EQ(audacOfflineCli(&client, &control), OPEN_E_FAIL);

    // No text but a MAC address gets into a script.
    DetectedDevice odd{7, DEVICE_TYPE_AUDIO, 0, "aa:bb:cc\nexit\n", DEVICE_CONTROL_MODE_NONE};
    const auto applied = callCount(kApply);
    EXPECT_EQ(audacOnlineCli(&client, &odd), RESULT_FAILED);
    EXPECT_EQ(audacOfflineCli(&client, &odd), RESULT_FAILED);
    odd.type = 7;
    EXPECT_EQ(audacOnlineCli(&client, &odd), 0);
    EXPECT_EQ(callCount(kApply), applied);
}

// The thread itself, on a clock that the test moves.
class AudacThreadTest : public AudacTest {
  protected:
    void start() {
        clk::setAutoAdvance(false);
        ASSERT_EQ(pthread_create(&id, nullptr, detect_audac_thread, &client), 0);
    }
    void cycles(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(clk::awaitSleepers(1));
            clk::advance(15s);
        }
        ASSERT_TRUE(clk::awaitSleepers(1));
    }
    void lastCycle() {
        clk::advance(15s);
        EXPECT_EQ(pthread_join(id, nullptr), 0);
    }
    pthread_t id{};
};

TEST_F(AudacThreadTest, EndsWithTheProfileAndTakesEveryDeviceOut) {
    ampPlug();
    ampPlug("amp2", kAmp2, 6);
    start();
    ASSERT_TRUE(clk::awaitSleepers(1));
    EXPECT_EQ(associations(), 0u);  // the first look comes after the first period
    cycles(1);
    EXPECT_EQ(associations(), 2u);
    cli({"vlan database", std::string("no vlan association mac ") + kAmp2});
    cycles(1);
    EXPECT_EQ(associations(), 2u);

    // Without its configuration file the thread waits; it looks at nothing and forgets nothing.
    fileRemove(paths::kAudacConfig);
    cycles(25);
    EXPECT_EQ(logged("AUDAC Profile not already created, do nothing."), 25u);
    EXPECT_EQ(associations(), 2u);
    config(kConfig);
    cycles(1);
    EXPECT_EQ(associations(), 2u);
    EXPECT_EQ(systemLogged("AUDAC Audio device Join"), 3u);

    profileRemove(kProfileVlan);
    lastCycle();
    EXPECT_EQ(associations(), 0u);
    EXPECT_EQ(systemLogged("AUDAC device Leave (Audio MAC: "), 2u);
    EXPECT_EQ(logged("User already delete AUDAC profile, AudacLookup exit!\r\n"), 1u);
    EXPECT_EQ(logged("(ERROR)"), 1u);  // the repair

    // With no profile there is no first sleep either.
    start();
    EXPECT_EQ(pthread_join(id, nullptr), 0);
    EXPECT_EQ(clk::sleepers(), 0u);
}

TEST_F(AudacThreadTest, ComesBackAfterTheSwitchWasAway) {
    ampPlug();
    start();
    cycles(1);
    device->setDown(true);
    const std::size_t before = logged("(ERROR)");
    lastCycle();
    EXPECT_EQ(logged("(ERROR)") - before, 2u);  // the leave that nobody heard
    device->setDown(false);
    EXPECT_TRUE(associated(kAmp));

    start();
    cycles(1);
    EXPECT_TRUE(associated(kAmp));
    profileRemove(kProfileVlan);
    lastCycle();
    EXPECT_EQ(associations(), 0u);
}

// --- what users, devices and the machine may do to it

TEST_F(AudacTest, ConfigurationFilesOfAnyKind) {
    ampPlug();
    const std::string whole = kConfig;
    std::vector<std::string> unusable = {"", "{}", "[]", "null", whole.substr(0, whole.size() - 1)};
    unusable.push_back(std::string("\x00\xff\x7f\x45LF\x01{", 8));
    unusable.push_back(std::string(100'000, '['));
    unusable.push_back(whole + std::string(5u << 20, ' '));
    for (const char *vlan : {"0", "-1", "4095", "1e300", "\"100\"", "true", "[100]"})
        unusable.push_back(std::string(R"({"audacDevicePort":[5],"audioVlanID":)") + vlan + "}");
    for (const auto &text : unusable) {
        config(text);
        EXPECT_EQ(audacAudioVlanIdGet(), 0u) << text.substr(0, 60);
        EXPECT_EQ(audacValidityCheck(&client), RESULT_FAILED);
        scan();
        EXPECT_EQ(list.count, 0u);
    }
    EXPECT_EQ(logged("file too large:/tmp/audac_config"), 3u);  // once in each of the three reads
    fileRemove(paths::kAudacConfig);
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(audacValidityCheck(&client), RESULT_FAILED); }), 0u);
    std::filesystem::create_directory(platform::fsPath(paths::kAudacConfig));
    EXPECT_EQ(audacValidityCheck(&client), RESULT_FAILED);
    std::filesystem::remove(platform::fsPath(paths::kAudacConfig));
    EXPECT_EQ(associations(), 0u);

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
        EXPECT_EQ(audacValidityCheck(&client), RESULT_SUCCESS);
        EXPECT_EQ(found(), count) << ports;
    }

    // A join that finds no audio VLAN.
    config(R"({"audacDevicePort":[5]})");
    EXPECT_EQ(errorsOf([&] { audacLookup(&client, &list); }), 1u);
    EXPECT_NE(logged("AudacLookup get audio vlan failed. (audioVlan:0)\r\n"), 0u);
    EXPECT_EQ(list.count, 0u);
}

TEST_F(AudacTest, AHalfWrittenConfigurationCostsNobodyItsAssociation) {
    ampPlug();
    scan();
    away();
    scans(19);
    const std::string whole = kConfig;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        config(whole.substr(0, length));
        audacLookup(&client, &list);  // the file is rewritten after the check of the cycle
    }
    EXPECT_EQ(list.count, 1u);
    EXPECT_TRUE(associated(kAmp));
    // A whole file that names no ports is a decision.
    config(R"({"audioVlanID":100})");
    scan();
    EXPECT_TRUE(nobody());
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
        unplug("amp");
    }
    // Each read of a neighbour may fail; what was read before it stays.
    plug(host("control6", 6, "aa:bb:cc:dd:ee:06", "Audac"));
    ampPlug("amp2", kAmp2, 6);
    ampPlug();
    for (const char *read : {"ChassisId", "PortId", "SystemDesc"}) {
        failCall("rpcclt_openapiLldpIntfRemoteDevice" + std::string(read) + "Get");
        EXPECT_EQ(errorsOf([&] { EXPECT_EQ(found(), 1); }), 1u);
        EXPECT_EQ(logged("Device" + std::string(read) + "Get error. (result = -2)\r\n"), 1u);
        clearFaults();
    }
    failCall("rpcclt_openapiLldpMgmtStrLenGet");
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(found(), 1); }), 1u);
    clearFaults();
    EXPECT_EQ(found(), 2);
    // The walk of a port ends with the failure, and says so.
    plug(host("second", 6, "aa:bb:cc:dd:ee:16", "Audac"));
    const JsonPtr out(cJSON_CreateArray());
    failCall("rpcclt_openapiLldpIntfRemoteDevicePortIdGet", 2);
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {6, out.get()}), RESULT_FAILED);
    EXPECT_EQ(cJSON_GetArraySize(out.get()), 1);
    EXPECT_EQ(lldpIntfRemoteAudacInfoGet(&client, {6, out.get()}), RESULT_SUCCESS);
    EXPECT_EQ(cJSON_GetArraySize(out.get()), 3);
    EXPECT_TRUE(logLinesIntact());
}

TEST_F(AudacTest, AnOutageInTheMiddleOfACycleLosesNobody) {
    ampPlug();
    scan();
    device->setDown(true);
    // One line for the show command; from the 20th miss on, the leave adds its two.
    EXPECT_EQ(errorsOf([&] { scans(25); }), 25u + 2 * 6u);
    EXPECT_EQ(list.count, 1u);
    EXPECT_EQ(audacValidityCheck(&client), RESULT_CONFIG_INVALID);
    device->setDown(false);
    EXPECT_EQ(errorsOf([&] { scans(2); }), 0u);
    EXPECT_EQ(missCount(), 0u);
    EXPECT_TRUE(associated(kAmp));
    EXPECT_EQ(callCount(kApply), 1u);
}

TEST_F(AudacTest, ProfileDatabasesOfAnyKind) {
    const auto path = platform::fsPath(paths::kProfileDb);
    namespace fs = std::filesystem;
    const auto check = [&] { return audacValidityCheck(&client); };
    const auto expectFailure = [&] {
        EXPECT_EQ(errorsOf([&] { EXPECT_EQ(check(), RESULT_CONFIG_INVALID); }), 1u);
    };
    EXPECT_EQ(check(), RESULT_SUCCESS);
    fs::permissions(path, fs::perms::owner_read);
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(check(), RESULT_SUCCESS); }), 0u);
    fs::permissions(path, fs::perms::owner_all);

    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    expectFailure();
    EXPECT_EQ(logged("database is locked"), 1u);
    sqlite3_close(other);
    EXPECT_EQ(check(), RESULT_SUCCESS);

    writeText(paths::kProfileDb, std::string(8192, 'x'));
    expectFailure();
    writeText(paths::kProfileDb, "");
    expectFailure();
    fs::remove(path);
    fs::create_directory(path);
    expectFailure();
    fs::remove(path);
    expectFailure();

    // VLAN 1 is no profile VLAN, nor is one that the switch does not have.
    vlanInfoTableCreate();
    vlanInfoReplace(1, 1, "test", kType, "#112233");
    vlanInfoReplace(51, 1, "test", kType, "#112233");
    EXPECT_EQ(check(), RESULT_CONFIG_INVALID);
    vlanCreate(51);
    EXPECT_EQ(check(), RESULT_SUCCESS);
}

TEST_F(AudacTest, AScriptFolderThatCannotBeWritten) {
    namespace fs = std::filesystem;
    ampPlug();
    scan();
    const auto folder = platform::fsPath(paths::kScriptDir);
    fs::remove_all(folder);
    std::ofstream(folder.substr(0, folder.size() - 1)) << "no folder";
    ampPlug("amp2", kAmp2, 6);
    // The show command, and the two lines of a script that cannot be written.
    EXPECT_EQ(errorsOf([&] { scan(); }), 3u);
    EXPECT_EQ(logged("AudacLookup write file failed.\r\n"), 1u);
    EXPECT_EQ(known().size(), 1u);
    DetectedDevice restored{5, DEVICE_TYPE_AUDIO, 20, "AA:BB:CC:00:00:01", OPEN_DOT1X_AUTO};
    EXPECT_EQ(audacOfflineCli(&client, &restored), RESULT_FAILED);
    EXPECT_EQ(callCount("rpcclt_openapiDot1xPortControlModeSet"), 0u);

    fs::remove(folder.substr(0, folder.size() - 1));
    fs::create_directory(folder);
    EXPECT_EQ(errorsOf([&] { scan(); }), 0u);
    EXPECT_TRUE(associated(kAmp) && associated(kAmp2));
}

// --- every call may fail

enum class Event { Join, Leave, Repair, Move };

class AudacFaultTest : public AudacTest, public testing::WithParamInterface<Event> {
  protected:
    // "amp" is known on port 5; then something happens to "amp2" on port 6, known before unless it joins.
    void prepare() {
        deviceListTearDown(&list);
        startSwitch({});
        scene();
        ampPlug();
        scan();
        ampPlug("amp2", kAmp2, 6);
        if (GetParam() != Event::Join)
            scan();
        if (GetParam() == Event::Move)
            move("amp2", 5, "control5");
        if (GetParam() == Event::Repair)
            cli({"vlan database", std::string("no vlan association mac ") + kAmp2});
        if (GetParam() == Event::Leave) {
            away("amp2");
            missCount() = DEVICE_MISS_MAX - 1;  // the last to join is the first of the list
        }
    }
};

TEST_P(AudacFaultTest, EndsUpWhereItDoesWithoutFaults) {
    prepare();
    scans(3);
    const auto finalKnown = known();
    const auto finalAssociations = show("show vlan association mac");
    for (const bool once : {true, false}) {
        bool struck = true;
        for (std::uint64_t n = 1; struck; ++n) {
            SCOPED_TRACE(testing::Message() << "call " << n << (once ? " fails" : " and all after it fail"));
            prepare();
            failCall("*", n, once);
            scans(once ? 1 : 3);
            struck = callsSeen() >= n;
            clearFaults();
            // What is known and there is never put out by a failure.
            ASSERT_TRUE(associated(kAmp) && known().contains(kAmp));
            if (GetParam() == Event::Move) {
                ASSERT_TRUE(associated(kAmp2) && known().contains(kAmp2));
            }
            scans(2);
            ASSERT_EQ(known(), finalKnown);
            ASSERT_EQ(list.count, finalKnown.size());
            ASSERT_EQ(show("show vlan association mac"), finalAssociations);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Audac, AudacFaultTest,
                         testing::Values(Event::Join, Event::Leave, Event::Repair, Event::Move));

}  // namespace
