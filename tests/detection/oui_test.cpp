// Harman and Telos detection and vendor recognition against a virtual switch: the steps of a cycle one at a time, and
// the threads themselves.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/files.h"
#include "detection/audac.h"
#include "detection/net_block.h"
#include "detection/oui_family.h"
#include "detection/recognition.h"
#include "detection/scan_ops.h"
#include "platform/paths.h"
#include "store/profile_types.h"
#include "tests/detection/detection_fixture.h"
#include "vlan/multicast.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace fs = std::filesystem;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

constexpr const char *kHarmanFile = "/tmp/pavo/pavo_ex/HARMAN_Professional_AV_Network";
constexpr const char *kTelosFile = "/tmp/pavo/pavo_ex/Telos_AllianceLivewire+_AES67";

// Harman has the VLANs 20 (control), 30 (audio) and 40 (video), Telos 50 (control) and 60 (audio); both have the ports
// 5 and 6. The last octet of an address is that of its device's name, "amp01".
class OuiTest : public DetectionTest {
  protected:
    void SetUp() override {
        DetectionTest::SetUp();
        fs::create_directories(platform::fsPath(paths::kPavoExDir));
        assign("[5, 6]");
        network({});
    }
    void network(vswitch::ModelConfig model) {
        list.clear();
        telosList.clear();
        removeFile(paths::kNetBlockPorts);
        startSwitch(std::move(model));
        for (const auto &[vlan, role, type] : {std::tuple{20, 2, PROFILE_TYPE_NAME_HARMAN},
                                               {30, 3, PROFILE_TYPE_NAME_HARMAN},
                                               {40, 4, PROFILE_TYPE_NAME_HARMAN},
                                               {50, 2, PROFILE_TYPE_NAME_TELOS},
                                               {60, 3, PROFILE_TYPE_NAME_TELOS}}) {
            vlanCreate(static_cast<vswitch::VlanId>(vlan));
            profileStore(vlan, type, role);
        }
        netBlockCreate();
    }
    void netBlockCreate() {
        commands("configure; ip access-list NET-BLOCK; deny ip any 239.0.0.0 0.255.255.255; exit; exit");
    }
    void netBlockDelete() { commands("configure; no ip access-list NET-BLOCK; exit"); }
    // What an operator says for port 5.
    void onPort5(const std::string &lines) {
        commands("configure; interface 0/5; " + lines + "; exit; exit");
    }

    static void assign(const std::string &ports) {
        for (const char *const file : {kHarmanFile, kTelosFile})
            writeText(file, R"({"profileConfig": {"vlans": [{"ports": {"assignedPort": )" + ports + "}}]}}");
    }
    void ampPlug(const std::string &last, vswitch::IfNum port = 5, const std::string &prefix = "00:0f:d4") {
        ASSERT_EQ(plug(host("amp" + last, port, prefix + ":00:00:" + last)), OPEN_E_NONE);
    }
    void away(const std::string &last) { unplugForgotten("amp" + last); }
    void removeByHand(const std::string &last) { removeAssociation("00:0f:d4:00:00:" + last); }

    // Harman's cycles, minus the check of the profile, and what they end with.
    std::string scans(int count = 1) {
        for (int i = 0; i < count; ++i) {
            repairHarmanLink(&client, &list);
            harmanDetectionLookup(&client, &list);
        }
        return picture();
    }
    std::string telosScans(int count = 1) {
        for (int i = 0; i < count; ++i)
            telosDetectionLookup(&client, &telosList);
        return picture();
    }
    // Who is in which VLAN, who is known to either family on which port with how many misses, and where NET-BLOCK is
    // bound: "01=30 | 01@5/2 | 5io".
    std::string picture() { return associations() + "|" + known({&list, &telosList}) + " |" + blocks(); }
    std::string blocks() {
        return model([](vswitch::Model &m) {
            std::string out;
            for (const auto &[ifNum, interface] : m.interfaces()) {
                if (!interface.accessGroups.empty())
                    out += " " + std::to_string(ifNum);
                for (const auto &group : interface.accessGroups)
                    out += group.direction == OPEN_ACL_INBOUND ? "i" : "o";
            }
            return out;
        });
    }
    DeviceList<DetectedDevice> list, telosList;
};

// --- joining and leaving

TEST_F(OuiTest, JoinsByPrefixOnAssignedPortsAndNothingElse) {
    assign(R"([5, 7, 9, 49, 0, 768, "6"])");
    ampPlug("01");
    ampPlug("02", 5, "00:19:0B");
    ampPlug("03", 5, "00:60:9F");  // of type 2
    ampPlug("04", 7, "58:50:AB");  // a Telos device on a port of Harman's
    ampPlug("05", 5, "00:0F:D5");
    ampPlug("06", 6);
    ampPlug("09", 9);
    model([](vswitch::Model &m) {
        m.lagAdd(m.lagIfNum(1), 9);  // learned on interface 49
        m.learn(*vswitch::Mac::parse("00:0f:d4:00:00:01"), 20, 5);
    });
    EXPECT_EQ(scans(), "01=30 02=40 04=30 | 01@5 02@5 04@7 | 5io 7io");
    const auto harmans = jsonOf([&](cJSON *out) { harmanListGet(&client, out); });
    EXPECT_NE(harmans.find(R"({"portId":5,"mac":"00:19:0B:00:00:02","type":4})"), std::string::npos);
    EXPECT_EQ(occurrences(harmans, "mac"), 3u);
    EXPECT_EQ(occurrences(jsonOf([&](cJSON *out) { telosListGet(&client, out); }), "mac"), 2u);
    EXPECT_FALSE(exists(paths::kHarmanIn) || exists(paths::kHarmanOut) ||
                 exists(paths::kShowVlanAssociationMac));
    EXPECT_EQ(telosScans(), "01=60 02=40 04=60 | 01@5 01@5 02@5 04@7 04@7 | 5io 7io");
    EXPECT_EQ(logged("HarmanLookup: detection harman device(mac=00:0F:D4:00:00:01) online\r\n"), 1u);
    EXPECT_EQ(logged("TelosLookup: detection telos device(mac=58:50:AB:00:00:04) online\r\n"), 1u);
    // A port in mode 3, or in a LAG, is none for devices any more.
    model([](vswitch::Model &m) {
        m.edit(7)->switchportMode = OPEN_SWITCHPORT_MODE_TRUNK;
        m.lagAdd(m.lagIfNum(1), 5);
    });
    const auto applied = callCount(kApply);
    EXPECT_EQ(scans(19), "01=60 02=40 04=60 | 01@5 01@5/19 02@5/19 04@7 04@7/19 | 5io 7io");
    EXPECT_EQ(callCount(kApply), applied);
    EXPECT_EQ(scans(), "01=60 04=60 | 01@5 04@7 | 5io 7io");
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(OuiTest, AssociationsThatFailOrAreRemovedAreMadeAgainAndFollowTheVlanOfTheirType) {
    ampPlug("01");
    failCall(kApply);
    expectErrors(
        2, {"harmanDetection cli apply failed. (vlan database\nvlan association mac 00:0F:D4:00:00:01 30"},
        [&] { EXPECT_EQ(scans(), "| |"); });
    ampPlug("02");
    scans();
    list.at(1)->vlan.reset();  // could not be read when it joined
    profileRemove(30);
    profileStore(60, PROFILE_TYPE_NAME_HARMAN, 3);
    EXPECT_EQ(scans(), "01=60 02=60 | 01@5 02@5 | 5io");
    const auto applied = callCount(kApply);
    scans();
    EXPECT_EQ(callCount(kApply), applied);
    removeByHand("01");
    removeByHand("02");
    away("02");
    expectErrors(
        2, {"HarmanLookup check (mac: 00:0F:D4:00:00:01) in the linked list, but not in the VLAN assoc"},
        [&] { EXPECT_EQ(scans(), "01=60 | 01@5 | 5io"); });
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(repairHarmanLink(&client, &list), 10000);
    EXPECT_EQ(repairHarmanLink(&client, &list), 1);
    // Whoever is dropped and does not come again needs NET-BLOCK no more.
    removeByHand("01");
    away("01");
    EXPECT_EQ(scans(), "| |");
}

TEST_F(OuiTest, SingleSteps) {
    const auto expect = [&](auto step, std::uint32_t type, std::int32_t code, const std::string &after) {
        EXPECT_EQ(step(&client, {.port = IfNum(5), .type = type, .mac = *Mac::parse("00:0f:d4:00:00:01")}),
                  code);
        EXPECT_EQ(picture(), after);
    };
    expect(harmanOnlineCli, 4, 0, "01=40 | |");
    expect(harmanOnlineCli, 3, 0, "01=30 | | 5io");
    expect(harmanOfflineCli, 3, 0, "| |");
    expect(telosOnlineCli, 3, 0, "01=60 | | 5io");
    expect(telosOfflineCli, 3, 0, "| |");
    expect(harmanOnlineCli, 2, 0, "| |");
    // The VLANs are all there or nobody joins.
    model([](vswitch::Model &m) { m.deleteVlan(40); });
    profileRemove(60);
    writeText(paths::kHarmanIn, "left over");
    expectErrors(3, {"harmanDetection get video/audio vlan failed.\r\n"}, [&] {
        expect(harmanOnlineCli, 3, 10000, "| |");
        expect(telosOnlineCli, 3, 10000, "| |");
        profileStore(60, PROFILE_TYPE_NAME_TELOS, 3);
        expect(telosOnlineCli, 4, 10000, "| |");
    });
    EXPECT_FALSE(exists(paths::kHarmanIn));
    EXPECT_EQ(logged("telosDetection get audio vlan failed or invalid device type.\r\n"), 2u);
    const auto folder = platform::fsPath(paths::kScriptDir);
    fs::rename(folder, folder.substr(0, folder.size() - 1) + "-away");
    expectErrors(4, {"harmanDetection write file failed.\r\n", "telosDetection write file failed.\r\n"}, [&] {
        expect(harmanOfflineCli, 3, 10000, "| |");
        expect(telosOfflineCli, 3, 10000, "| |");
    });
}

TEST_F(OuiTest, ConfigurationFilesOfAnyKind) {
    ampPlug("01");
    scans();
    const auto whole = readFile(kHarmanFile);
    // Half a file is no decision, whatever it lacks.
    for (const std::string &text :
         {whole.substr(0, whole.size() - 1), std::string(), std::string(100'000, '[')}) {
        writeText(kHarmanFile, text);
        EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    }
    EXPECT_EQ(logged("harman detection: no device joins or leaves while"), 3u);
    // A file that names no ports is one, and so is none at all.
    int misses = 0;
    for (const char *const text :
         {"[]", R"({"profileConfig": {"vlans": []}})",
          R"({"profileConfig": {"vlans": {"ports": {"assignedPort": [5]}}}})",
          R"({"profileConfig": {"vlans": [{"ports": {}}, {"ports": {"assignedPort": [5]}}]}})",
          R"({"profileConfig": {"vlans": [{"ports": {"assignedPort": ["5", 6, 0, 768, -5, 1e300]}}]}})"}) {
        writeText(kHarmanFile, text);
        EXPECT_EQ(scans(), "01=30 | 01@5/" + std::to_string(++misses) + " | 5io") << text;
    }
    removeFile(kHarmanFile);
    EXPECT_EQ(scans(20 - misses), "| |");
}

// --- NET-BLOCK

TEST_F(OuiTest, NetBlockFollowsTheDevices) {
    ampPlug("01");
    ampPlug("02");
    ampPlug("03", 6, "00:19:0b");
    EXPECT_EQ(scans(), "01=30 02=30 03=40 | 01@5 02@5 03@6 | 5io");
    const auto applied = callCount(kApply);
    const auto said = logged("(INFO)") + logged("(ERROR)");
    move("amp01", 6);
    EXPECT_EQ(scans(), "01=30 02=30 03=40 | 01@6 02@5 03@6 | 5io 6io");
    move("amp02", 6);
    EXPECT_EQ(scans(), "01=30 02=30 03=40 | 01@6 02@6 03@6 | 6io");
    EXPECT_EQ(callCount(kApply), applied);
    EXPECT_EQ(logged("(INFO)") + logged("(ERROR)"), said);
    EXPECT_EQ(systemLogged(":00:00:0"), 0u);
    // The leave of one does not take it from the other.
    away("02");
    EXPECT_EQ(scans(20), "01=30 03=40 | 01@6 03@6 | 6io");
    EXPECT_EQ(logged("HarmanLookup: detection harman device(mac=00:0F:D4:00:00:02) offline\r\n"), 1u);
    away("01");
    EXPECT_EQ(scans(20), "03=40 | 03@6 |");
    EXPECT_FALSE(exists(paths::kNetBlockPorts));
}

TEST_F(OuiTest, NetBlockIsTheOperatorsToo) {
    netBlockDelete();
    ampPlug("01");
    expectErrors(0, {}, [&] { EXPECT_EQ(scans(2), "01=30 | 01@5 |"); });
    netBlockCreate();
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    netBlockDelete();
    scans();
    netBlockCreate();
    onPort5("ip access-group NET-BLOCK in 7");
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    EXPECT_EQ(model([](vswitch::Model &m) { return m.interface(5)->accessGroups.front().sequence; }), 7u);
    // What is unbound by hand is not bound again, until another device comes.
    onPort5("no ip access-group NET-BLOCK out");
    EXPECT_EQ(scans(3), "01=30 | 01@5 | 5i");
    ampPlug("02");
    EXPECT_EQ(scans(3), "01=30 02=30 | 01@5 02@5 | 5io");
    // Somebody else changes multicast settings: it is done later. What the operator bound stays.
    {
        const FileLock lock(paths::kMulticastLock);
        away("01");
        away("02");
        EXPECT_EQ(scans(20), "| | 5io");
    }
    EXPECT_EQ(scans(), "| | 5i");
    // Another list has the place; damaged files are none.
    commands("configure; ip access-list other; permit ip any any; exit; exit");
    onPort5("ip access-group other out 1");
    ampPlug("01");
    EXPECT_EQ(scans(2), "01=30 | 01@5 | 5io");
    onPort5("no ip access-group other out");
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    writeText(paths::kNetBlockPorts,
              R"({"ports": [5, {"port": 0, "needs": [7]}, {"port": 6, "in": "x", "needs": {}}]})");
    EXPECT_EQ(scans(2), "01=30 | 01@5 | 5io");
}

TEST_F(OuiTest, NetBlockThatIsLostIsBoundAgain) {
    const std::string unbind = "no ip access-group NET-BLOCK in; no ip access-group NET-BLOCK out";
    ampPlug("01");
    scans();
    // The user deletes the deny list and makes one before anybody looks.
    ASSERT_TRUE(changeDenyList(&client, {}));
    ASSERT_TRUE(changeDenyList(&client, std::vector<std::string>{"239.0.0.0/8"}));
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    // The switch starts again with a configuration that knows of the list and of nothing else,
    onPort5(unbind);
    removeByHand("01");
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    // or of the association, too, and the daemon with it.
    onPort5(unbind);
    list.clear();
    ASSERT_TRUE(adoptHarmanDevices(&client, &list));
    EXPECT_EQ(scans(), "01=30 | 01@5 | 5io");
    // An operator deletes the list and makes it again.
    ampPlug("02", 6);
    scans();
    netBlockDelete();
    netBlockCreate();
    EXPECT_EQ(scans(), "01=30 02=30 | 01@5 02@6 | 5io 6io");
}

// A thread could not unbind it when it ended.
TEST_F(OuiTest, NetBlockIsReleasedWhenTheProfileIsKnownToBeGone) {
    ampPlug("01");
    scans();
    telosScans();
    const auto released = [&](bool down) {
        device->setDown(down);
        releaseNetBlocks(&client);
        device->setDown(false);
        return blocks();
    };
    profileRemove(20);
    EXPECT_EQ(released(false), " 5io");  // Telos needs it
    profileRemove(50);
    EXPECT_EQ(released(true), " 5io");
    EXPECT_EQ(released(false), "");
}

TEST_F(OuiTest, ARestartTakesOverWhatHasJoined) {
    ampPlug("01");
    ampPlug("02", 6);
    ampPlug("03", 5, "00:19:0b");
    commands("vlan database; vlan association mac 02:00:00:00:00:77 30");  // the operator's
    scans();
    away("02");
    list.clear();
    const auto applied = callCount(kApply);
    for (const char *const call : {"rpcclt_openapiCliShowExecuteToFile", "openapiVlanCreatedCheck"}) {
        failCall(call, 2);
        EXPECT_FALSE(adoptHarmanDevices(&client, &list));
        clearFaults();
    }
    ASSERT_TRUE(adoptHarmanDevices(&client, &list));
    EXPECT_EQ(scans(19), "01=30 02=30 03=40 77=30 | 01@5 02@0/19 03@5 | 5io 6io");
    EXPECT_EQ(callCount(kApply), applied);
    EXPECT_EQ(scans(), "01=30 03=40 77=30 | 01@5 03@5 | 5io");
    away("01");
    EXPECT_EQ(scans(20), "03=40 77=30 | 03@5 |");
}

// --- one address, two families

TEST_F(OuiTest, ALeaveDoesNotCostAnotherFamilyItsAssociation) {
    ampPlug("01");
    scans();
    EXPECT_EQ(telosScans(3), "01=60 | 01@5 01@5 | 5io");
    scans(3);
    // The one whose association is in effect leaves: the other's is.
    profileRemove(50);
    away("01");
    EXPECT_EQ(telosScans(20), "01=30 | 01@5 | 5io");
    ampPlug("01");
    telosScans();
    EXPECT_EQ(scans(), "01=60 | 01@5 01@5 | 5io");
    // And the other way round; a leave that fails is still to be made.
    away("01");
    EXPECT_EQ(scans(20), "01=60 | 01@5 | 5io");
    failCall(kApply);
    EXPECT_EQ(telosScans(20), "01=60 | 01@5/20 | 5io");
    EXPECT_EQ(telosScans(), "| |");

    // A device that moves from Audac's port to Harman's belongs to Harman when Audac lets it go.
    writeText(paths::kAudacConfig, R"({"audioVlanID":20,"audacDevicePort":[9]})");
    plug(host("control9", 9, "aa:bb:cc:dd:ee:09", "Audac"));
    ASSERT_EQ(plug(host("amp1d", 9, "00:1D:C1:00:00:1D", "", "control9")), OPEN_E_NONE);
    DeviceList<DetectedDevice> audac;
    audacLookup(&client, &audac);
    EXPECT_EQ(picture(), "1D=20 | |");
    away("1d");
    ampPlug("1D", 5, "00:1D:C1");
    scans();
    for (int i = 0; i < 20; ++i)
        audacLookup(&client, &audac);
    EXPECT_TRUE(audac.empty());
    EXPECT_EQ(picture(), "1D=30 | 1D@5 | 5io");
}

// --- the threads

struct ThreadCase {
    const char *name;
    const DetectionRow &row;
    int control, audio;
    const char *ended;
    const char *functions;
    bool repairs;
};

class OuiThreadTest : public OuiTest, public testing::WithParamInterface<ThreadCase> {};

TEST_P(OuiThreadTest, EndsWithTheProfileAndTakesEveryDeviceOut) {
    const ThreadCase &family = GetParam();
    const auto period = family.row.loop.period;
    const std::string vlan = "=" + std::to_string(family.audio);
    const std::string both = "01" + vlan + " 02" + vlan + " | | 5io 6io";
    ampPlug("01");
    ampPlug("02", 6);
    start(family.row.entry);
    passPeriods(0, period);
    EXPECT_EQ(picture(), "| |");  // the first look comes after the first period
    passPeriods(1, period);
    EXPECT_EQ(picture(), both);
    removeByHand("01");
    passPeriods(1, period);
    EXPECT_EQ(picture() == both, family.repairs);
    const auto now = picture();
    const auto database = readFile(paths::kProfileDb);
    writeText(paths::kProfileDb, std::string(8192, 'x'));
    passPeriods(25, period);
    writeText(paths::kProfileDb, database);
    passPeriods(1, period);
    device->setDown(true);
    passPeriods(25, period);
    device->setDown(false);
    passPeriods(1, period);
    EXPECT_EQ(picture(), now);
    EXPECT_EQ(logged("waiting for the profile database") + logged("waiting for the switch;"), 2u);
    EXPECT_EQ(logged("offline\r\n"), 0u);

    // Types that are no sign of the profile, and one that the switch lacks.
    model([&](vswitch::Model &m) { m.deleteVlan(static_cast<vswitch::VlanId>(family.control)); });
    clk::advance(period);
    join();
    EXPECT_EQ(picture(), "| |");
    const std::string texts = std::string(family.name) + "Lookup ";
    EXPECT_EQ(logged(texts + "Init success!\r\n"), 1u);
    EXPECT_EQ(logged(texts + "wake up and start scanning arp table.\r\n"), 55u);
    EXPECT_EQ(logged(texts + family.ended), 1u);
    EXPECT_EQ(functionsLogged(), family.functions);
    // What an earlier run has bound for a profile that is gone is unbound; nothing happens while that is not known.
    addNetBlockNeed(&client, family.row.name, {*Mac::parse("00:0f:d4:00:00:07"), IfNum(7)});
    for (const bool down : {true, false}) {
        device->setDown(down);
        start(family.row.entry);
        join();
        device->setDown(false);
        EXPECT_EQ(picture(), down ? "| | 7io" : "| |");
    }
    EXPECT_EQ(clk::sleepers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Oui, OuiThreadTest,
    testing::Values(
        ThreadCase{
            "Harman", harmanDetection, 20, 30, "exit! User already delete harman profile\r\n",
            "detect_harman_thread harmanDetectionLookup harmanOfflineCli harmanOnlineCli repairHarmanLink ",
            true},
        ThreadCase{"Telos", telosDetection, 50, 60, "exit! User already deleted telos profile\r\n",
                   "detect_telos_thread telosDetectionLookup telosOfflineCli telosOnlineCli ", false}),
    [](const auto &param) { return param.param.name; });

// --- every call may fail

// Amplifier 1 is known on port 5; then something happens to 2 on port 6, known before unless it joins. Whoever is missed
// leaves. A daemon that is killed makes no more calls, and the next one knows nothing.
TEST_F(OuiTest, NoFailedCallIsAnAbsenceAndEachIsMadeUpFor) {
    for (const auto &[isTelos, event] : {std::pair<bool, std::string>{false, "join"},
                                         {false, "leave"},
                                         {false, "move"},
                                         {false, "repair"},
                                         {true, "join"},
                                         {true, "leave"},
                                         {true, "move"}}) {
        DeviceList<DetectedDevice> &devices = isTelos ? telosList : list;
        const auto cycles = [&](int count = 1) { return isTelos ? telosScans(count) : scans(count); };
        const auto prepare = [&] {
            network({.physicalPorts = 6, .lags = 1});
            ampPlug("01");
            cycles();
            ampPlug("02", 6);
            if (event != "join")
                cycles();
            if (event == "leave")
                away("02");
            else if (event == "move")
                move("amp02", 5);
            else if (event == "repair")
                removeByHand("02");
            for (DetectedDevice &one : devices)
                one.missCount = DEVICE_MISS_MAX - 1;
        };
        prepare();
        const auto without = cycles(3);
        const auto scripts = callCount(kApply);
        std::string during;
        for (const std::string trouble : {"one fails", "all fail", "killed"}) {
            SCOPED_TRACE(testing::Message() << event << ", " << trouble << (isTelos ? ", Telos" : ""));
            failEachCall(
                trouble == "one fails", prepare,
                [&] {
                    const auto &loop = (isTelos ? telosDetection : harmanDetection).loop;
                    ASSERT_NE(checkReason(loop, &client), Presence::Absent);
                    during = cycles(trouble == "all fail" ? 3 : 1);
                },
                [&] {
                    // What is known and there is never put out by a failure, and its port never opened; nor does it
                    // take a script to stay.
                    ASSERT_EQ(occurrences(during, "01"), 2u);
                    ASSERT_NE(during.find(" 5io"), std::string::npos);
                    ASSERT_TRUE(event != "move" || occurrences(during, "02") == 2);
                    if (trouble == "killed") {
                        devices.clear();
                        ASSERT_TRUE((isTelos ? adoptTelosDevices : adoptHarmanDevices)(&client, &devices));
                    }
                    ASSERT_EQ(cycles(trouble == "killed" ? 20 : 2), without);
                    ASSERT_TRUE(event != "move" || callCount(kApply) == scripts);
                });
        }
    }
}

// --- vendor recognition

TEST_F(OuiTest, RecognisesVendorsByPort) {
    ampPlug("01");
    ampPlug("02", 5, "00:1d:c1");
    ampPlug("03", 6, "00:60:9F");
    plug(host("stage", 6, "02:00:00:00:00:06", "A stage box"));
    ampPlug("04", 9, "58:50:ab");
    model([](vswitch::Model &m) { m.lagAdd(m.lagIfNum(1), 9); });
    recogniseVendors(&client);
    // File, neighbours and vendors.
    const auto known = [] {
        return std::array{printJsonLine(JsonPtr(cJSON_Parse(readFile(paths::kRecognition).c_str())).get()),
                          jsonOf(recognisedNeighboursGet), jsonOf(recognisedVendorsGet)};
    };
    const auto before = known();
    EXPECT_EQ(before[0], R"({"5":"harman","5":"audac","6":"harman","49":"telos"})");
    EXPECT_EQ(
        before[1],
        R"([[],[{"systemDesc":"A stage box","chassisID":"02:00:00:00:00:06","portId":"02:00:00:00:00:06",)"
        R"("systemName":"stage"}],[]])");
    EXPECT_TRUE(before[2].starts_with(R"([{"MAC Address":"00:0F:D4:00:00:01","IfIndex":5,"vendor":"harman"},)"
                                      R"({"MAC Address":"00:1D:C1:00:00:02","IfIndex":5,"vendor":"audac"},)"))
        << before[2];
    // What cannot be read keeps what was known of it, and others do not wait for it.
    withEachCallFailing([] {}, [&](bool) { recogniseVendors(&client); }, [&] { ASSERT_EQ(known(), before); });
    // A switch that is away for long is one line of the log.
    const auto lines = [&] { return logged("cannot be read to the end"); };
    const std::size_t written = lines();
    failCall("*", 1, false);
    for (int i = 0; i < 3; ++i)
        recogniseVendors(&client);
    EXPECT_EQ(lines(), written + 1);
    clearFaults();
    away("03");
    unplug("stage");
    recogniseVendors(&client);
    EXPECT_EQ(known()[0], R"({"5":"harman","5":"audac","49":"telos"})");
    EXPECT_EQ(known()[1], "[[],[]]");  // of ports with link
}

}  // namespace
