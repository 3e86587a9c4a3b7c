// Nice detection against a virtual switch: who counts as plugged in here, and what is made of it.
#include "detection/nice.h"

#include <gtest/gtest.h>

#include <thread>

#include "detection/profile_keeper.h"
#include "profile/apply.h"
#include "store/response_cache.h"
#include "tests/detection/detection_fixture.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace std::chrono_literals;
using namespace test_support;
namespace clk = platform::manual_clock;
namespace paths = platform::paths;

constexpr const char *kSettings = "/tmp/vlan_profile_config/1";
constexpr const char *kEnableFile = "/mnt/application/pavo/tmp/nice_detect_config";
constexpr const char *kMac = "F8:57:2E:00:00:01";
// A neighbour that is no switch: the device itself, say.
constexpr const char *kController = "Home controller";

class NiceTest : public ApplyTest {
  protected:
    void SetUp() override {
        ApplyTest::SetUp();
        ASSERT_TRUE(createResponseCache());
        database = readFile(paths::kProfileDb);
        niceDetectEnabledSet(true);
        factoryFresh();
    }
    // A switch, and files, as if nothing had ever been done with them; nothing is waited for.
    void factoryFresh() {
        neighbours = 0;
        startSwitch({.physicalPorts = 6, .lags = 2, .sfpPorts = 0});
        fs::remove_all(platform::fsPath(paths::kVlanProfileConfigDir));
        fs::remove(platform::fsPath(paths::kProfileRecord));
        writeText(paths::kProfileDb, database);
        niceDetectionLookup(&client);
    }
    void nicePlug(vswitch::IfNum port, const std::string &systemDesc = "", const std::string &mac = kMac) {
        ASSERT_EQ(plug(host("nice " + mac.substr(15), port, mac, systemDesc)), OPEN_E_NONE);
    }
    void neighbourPlug(vswitch::IfNum port, const std::string &systemDesc, const std::string &capabilities) {
        const auto number = std::to_string(++neighbours);
        auto one = host("neighbour " + number, port, "02:00:00:00:00:0" + number, systemDesc);
        one.lldp->capabilities = capabilities;
        ASSERT_EQ(plug(one), OPEN_E_NONE);
    }
    void forgetTexts() {
        for (const char *text : {"SysCapEnabled", "SystemDesc"})
            failCall("rpcclt_openapiLldpIntfRemoteDevice" + std::string(text) + "Get", 1, false,
                     OPEN_E_NOT_FOUND);
    }
    // A cycle, and what came of it.
    std::string cycle() {
        const auto deferrals = logged("deferring profile creation"), failures = logged("Failed to create");
        niceDetectionLookup(&client);
        return exists(kSettings)                                  ? "created"
               : logged("Failed to create") > failures            ? "failed"
               : logged("deferring profile creation") > deferrals ? "deferred"
                                                                  : "nothing";
    }
    std::string cycles(int count) {
        std::string all;
        for (int i = 0; i < count; ++i)
            all += (all.empty() ? "" : " ") + cycle();
        return all;
    }
    std::string answer(const char *name) { return readCachedAnswer(name).value().value_or("none"); }
    std::string database;  // without profiles
    int neighbours = 0;
    static void linger(const std::function<bool()> &until) {
        while (!until())
            std::this_thread::yield();
    }
};

TEST_F(NiceTest, CreatesTheProfileOnceAndShowsItInTheCache) {
    commands("configure; interface 0/4; addport lag 1; exit; exit");
    nicePlug(3, kController);
    EXPECT_EQ(cycle(), "created");
    EXPECT_EQ(logged("(Nice): Nice device found in FDB on port 3 - MAC: F8:57:2E:00:00:01\n"), 1u);
    const auto row = readProfileRow(1).value().value();
    EXPECT_EQ(row.profileName + row.profileType + row.color, "Elan OSNice Home Management#081855");
    const auto sent = readProfileRecord().value().profiles.at(0);
    EXPECT_EQ(printJsonLine(JsonPtr(cJSON_Parse(sent.document.c_str())).get()),
              R"({"profileConfig":{"name":"Elan OS","color":"#081855",)"
              R"("profileType":"Nice Home Management","ptp":true,"vlanNum":1,)"
              R"("vlans":[{"vlanId":1,"vlanType":1,)"
              R"("ports":{"tagged":[],"untagged":[1,2,3,4,5,6],"assignedPort":[]}}]}})");
    std::size_t from = 0;
    for (const char *name : {"profile/list_ex", "swcfg_ports_settings", "port_vendor_detect"}) {
        EXPECT_NE(answer(name), "none") << name;
        const auto at = readFile(paths::kResponseCacheDelta).find(std::string(name) + "\n", from);
        EXPECT_NE(at, std::string::npos) << name << " in its turn";
        from = at;
    }
    EXPECT_NE(answer("profile/list_ex").find("Elan OS"), std::string::npos);

    // There is a profile from now on; when the user deletes it, it is made again.
    const auto made = everything();
    cycle();
    EXPECT_EQ(logged("] (Nice): Found profile configuration file: 1\n"), 1u);
    EXPECT_EQ(logged("] (Nice): Not in factory default state, skipping profile creation\n"), 1u);
    removed("Elan OS");
    EXPECT_FALSE(exists(kSettings));
    EXPECT_EQ(cycle(), "created");
    EXPECT_EQ(everything(), made);
}

TEST_F(NiceTest, WhoIsPluggedInHere) {
    const struct {
        const char *what;
        std::function<void()> network;
        const char *outcome;
    } kCases[] = {
        {"nobody", [] {}, "nothing"},
        {"a neighbour", [&] { nicePlug(3, kController); }, "created"},
        {"small letters", [&] { nicePlug(3, kController, "f8:57:2e:00:00:01"); }, "created"},
        {"another prefix", [&] { nicePlug(3, kController, "F8:57:2F:00:00:01"); }, "nothing"},
        {"no neighbour", [&] { nicePlug(3); }, "deferred"},
        {"a trunk",
         [&] {
             commands("configure; interface 0/3; switchport mode trunk; exit; exit");
             nicePlug(3, kController);
         },
         "nothing"},
        {"a bridge",
         [&] {
             neighbourPlug(3, kController, "station");
             neighbourPlug(3, kController, "Router, BRIDGE");
             nicePlug(3);
         },
         "nothing"},
        {"a switch by its description",
         [&] {
             neighbourPlug(3, "24-port gigabit mANAGED sWITCH", "router");
             nicePlug(3);
         },
         "nothing"},
        {"stations", [&] { neighbourPlug(3, "Telephone", "station"), nicePlug(3); }, "created"},
        {"a neighbour that announces nothing",
         [&] {
             nicePlug(3, kController);
             forgetTexts();
         },
         "created"},
        {"a neighbour that leaves the table",
         [&] {
             nicePlug(3, kController);
             forgetTexts();
             failCall("rpcclt_openapiLldpIntfRemoteDeviceNextGet", 2, false, OPEN_E_NOT_FOUND);
         },
         "deferred"},
        {"a LAG",
         [&] {
             commands("configure; interface 0/3; addport lag 1; exit; exit");
             nicePlug(3, kController);
         },
         "nothing"},
        {"behind a LAG, and another on a port",
         [&] {
             commands("configure; interface 0/3; addport lag 1; exit; exit");
             nicePlug(3, kController);
             nicePlug(5, "second controller", "F8:57:2E:00:00:02");
         },
         "created"},
        {"deferred, and then one that is here",
         [&] {
             nicePlug(2);
             nicePlug(5, kController, "F8:57:2E:00:00:02");
         },
         "created"},
    };
    for (const auto &[what, network, outcome] : kCases) {
        factoryFresh();
        network();
        EXPECT_EQ(cycle(), outcome) << what << "\n" << log();
    }
}

TEST_F(NiceTest, WaitsForLldpInConsecutiveCycles) {
    nicePlug(3);
    EXPECT_EQ(cycles(4), "deferred deferred deferred deferred");
    EXPECT_EQ(logged("waiting for LLDP to converge (4/5)\n"), 1u);
    unplug("nice 01");
    cli({"clear mac-addr-table all"});
    EXPECT_EQ(cycle(), "nothing");
    nicePlug(3);
    EXPECT_EQ(cycles(5), "deferred deferred deferred deferred created");
    EXPECT_EQ(logged("LLDP did not converge after 5 cycles; treating NICE MAC as directly connected\n"), 1u);
}

TEST_F(NiceTest, AnyFileOfAProfileAndNothingElseStopsIt) {
    nicePlug(3, kController);
    const fs::path folder = platform::fsPath(paths::kVlanProfileConfigDir);
    EXPECT_TRUE(isFactoryDefaultState());
    fs::create_directories(folder / "sub folder");
    EXPECT_TRUE(isFactoryDefaultState());
    writeText("/tmp/vlan_profile_config/any\nname", "");
    EXPECT_FALSE(isFactoryDefaultState());
    EXPECT_EQ(logged("] (Nice): Found profile configuration file: any.name\n"), 1u);
    EXPECT_EQ(cycle(), "nothing");
    // One that cannot be looked into is not empty.
    fs::remove_all(folder);
    writeText(paths::kVlanProfileConfigDir, "");
    EXPECT_FALSE(isFactoryDefaultState());
}

// A writer that is killed must not leave a file there that stops detection for ever.
TEST_F(NiceTest, SettingsAreWrittenOutsideOfTheirFolder) {
    for (const char *name : {"1.new", "20.new"})
        fs::create_directories(fs::path(platform::fsPath(paths::kVlanProfileConfigDir)) / name);
    applied("Stage", "Audio Dante", {vlanJson(20, 1, "2")});
    EXPECT_TRUE(exists("/tmp/vlan_profile_config/20"));
    EXPECT_FALSE(exists("/tmp/vlan_profile_config.20.new"));
}

TEST_F(NiceTest, SwitchesOffByFileAndByFlag) {
    nicePlug(3, kController);
    EXPECT_EQ(readFile(kEnableFile), "1") << "made by the first cycle";
    EXPECT_EQ(logged("] (Nice): Created config file with default enabled\n"), 1u);
    for (const char *off : {"0", "0\n", "01"}) {
        writeText(kEnableFile, off);
        EXPECT_EQ(cycle(), "nothing") << off;
        EXPECT_EQ(readFile(kEnableFile), off);
        niceDetectConfigLoad();
        EXPECT_FALSE(niceDetectEnabledGet());
    }
    EXPECT_EQ(logged("] (Nice): Nice detection is disabled, skipping\n"), 3u);
    for (const char *on : {"1", "x", " 0", ""}) {
        writeText(kEnableFile, on);
        niceDetectConfigLoad();
        EXPECT_TRUE(niceDetectEnabledGet()) << on;
        EXPECT_EQ(readNiceSetting(), NiceSetting::On);
    }
    const fs::path file = platform::fsPath(kEnableFile);
    fs::remove(file);
    niceDetectEnabledSet(false);
    niceDetectConfigLoad();
    EXPECT_TRUE(niceDetectEnabledGet());
    // What cannot be read may say no.
    fs::create_symlink("nowhere", file);
    EXPECT_EQ(cycle(), "nothing");
    fs::remove(file);
    fs::create_directory(file);
    niceDetectConfigLoad();
    EXPECT_FALSE(niceDetectEnabledGet());
    EXPECT_EQ(logged("(Nice): /mnt/application/pavo/tmp/nice_detect_config cannot be read"), 2u);
    EXPECT_EQ(cycle(), "nothing");
    fs::remove(file);
    EXPECT_EQ(cycle(), "created") << "a cycle does not ask the flag";
    EXPECT_EQ(readFile(kEnableFile), "1");
}

TEST_F(NiceTest, ThreadGoesByBothSwitches) {
    ASSERT_EQ(niceDetection.loop.check, nullptr) << "it runs from the start, and does not end";
    static int cycles;
    static std::string scanned;  // a digit for each cycle: how many had scanned before it
    cycles = 0;
    scanned.clear();
    auto loop = niceDetection.loop;
    loop.check = [](Switch, const Where &) {
        scanned += std::to_string(logged("] (Nice): Scanning for Nice devices...\n"));
        switch (++cycles) {
            case 3:  // an operator switches it on again: no restart is needed
                EXPECT_TRUE(writeNiceSetting(true));
                break;
            case 5:  // whoever sets the flag means it
                niceDetectEnabledSet(false);
                break;
            case 7:
                return Reason(Presence::Absent);
        }
        return Reason(Presence::Present);
    };
    ASSERT_TRUE(writeNiceSetting(false));
    niceDetectConfigLoad();
    cycles = -1;  // the question at the start
    scanned.clear();
    const auto slept = clk::totalSlept();
    runLoop(loop, &client);
    EXPECT_EQ(scanned, "00001222");
    EXPECT_EQ((clk::totalSlept() - slept) / 15s, 6);
    EXPECT_EQ(logged("] (Nice): Nice detection is disabled, skipping scan\n"), 4u);
}

// Another caller applies a profile, or an operator says no, while the lock is waited for.
TEST_F(NiceTest, AsksAgainOnceItHasTheLock) {
    nicePlug(3, kController);
    const auto meanwhile = [&](const std::function<void(const ProfileLock &)> &act) {
        const auto calls = logged("Calling profileConfigSet with payload\n");
        std::thread thread;
        {
            const auto lock = ProfileLock::take();
            ASSERT_TRUE(lock);
            thread = std::thread([&] { niceDetectionLookup(&client); });
            linger([&] { return logged("Calling profileConfigSet with payload\n") > calls; });
            act(*lock);
        }
        thread.join();
    };
    meanwhile([](const ProfileLock &) { ASSERT_TRUE(writeNiceSetting(false)); });
    EXPECT_EQ(logged("profile refused: Nice detection has been switched off"), 1u);
    EXPECT_FALSE(exists(kSettings));
    ASSERT_TRUE(writeNiceSetting(true));
    meanwhile([&](const ProfileLock &lock) {
        const auto config =
            parseProfileConfig(requestJson("Stage", "Audio Dante", {vlanJson(20, 1, "", "2")}));
        ASSERT_TRUE(applyProfile(&client, *config, {}, lock));
    });
    EXPECT_EQ(logged("profile refused: the switch is not in factory default state any more"), 1u);
    EXPECT_FALSE(exists(kSettings));
    EXPECT_EQ(readProfileRecord().value().profiles.size(), 1u);
    // Two at once make one.
    removed("Stage");
    std::thread other;
    meanwhile([&](const ProfileLock &) { other = std::thread([&] { createNiceProfile(&client); }); });
    other.join();
    EXPECT_TRUE(exists(kSettings));
    EXPECT_EQ(readProfileRecord().value().profiles.size(), 1u);
}

// After a reboot "/tmp" is empty: a switch whose profiles are only in the record is not factory-fresh.
TEST_F(NiceTest, ProfilesInTheRecordCount) {
    nicePlug(3, kController);
    EXPECT_EQ(cycle(), "created");
    const auto before = everything();
    fs::remove_all(platform::fsPath(paths::kVlanProfileConfigDir));
    EXPECT_EQ(cycle(), "failed");
    EXPECT_EQ(readProfileRecord().value().profiles.size(), 1u);
    profileKeeper.loop.cycle(&client, Where("keep_profiles_thread", __LINE__));
    EXPECT_EQ(everything(), before);
}

// --- failures

// Behind a switch, whatever call fails: nothing is made, but for a mode that cannot be read. And a device that is
// waited for is not forgotten.
TEST_F(NiceTest, NoFailedCallIsAnAbsence) {
    neighbourPlug(3, kController, "station");
    neighbourPlug(3, kController, "bridge");
    nicePlug(3);
    for (const bool once : {true, false})
        failEach(
            "*", [&] { return cycle(); },
            [&](const std::string &outcome, std::uint64_t call) {
                EXPECT_TRUE(outcome == "nothing" || outcome == "deferred") << outcome << ", call " << call;
                unplug("nice 01");
                cli({"clear mac-addr-table all"});
                cycle();
                nicePlug(3);
            },
            once);
    const auto wait = [&] {
        factoryFresh();
        nicePlug(5);
        cycles(3);
    };
    wait();
    failEach(
        "*", [&] { return cycle(); },
        [&](const std::string &outcome, std::uint64_t call) {
            EXPECT_EQ(cycles(2), outcome == "deferred" ? "created created" : "deferred created") << call;
            wait();
        });
}

// Whatever fails while the profile is made: everything is as before, or the profile is whole; and the next cycle
// makes it, also of what a switch that went away in the middle has.
TEST_F(NiceTest, CreationFailsAsAWhole) {
    const auto begin = [&] {
        factoryFresh();
        nicePlug(3, kController);
    };
    begin();
    const auto fresh = everything();
    EXPECT_EQ(cycle(), "created");
    const auto made = everything();
    begin();
    failEach(
        "*", [&] { return cycle(); },
        [&](const std::string &outcome, std::uint64_t call) {
            EXPECT_EQ(everything(), outcome == "created" ? made : fresh) << call;
            EXPECT_EQ(cycle(), "created") << call;
            EXPECT_EQ(everything(), made) << call;
            begin();
        });
    std::string outcome;
    for (std::uint64_t call = 1; outcome != "created" && !HasFailure(); ++call) {
        begin();
        failCall("*", call, false);
        outcome = cycle();
        clearFaults();
        EXPECT_EQ(cycle(), "created") << call;
        EXPECT_EQ(everything(), made) << call;
    }
}

// A switch that hangs costs a cycle its limit, and nothing else.
TEST_F(NiceTest, HostileNeighboursAndAHungSwitch) {
    nicePlug(3);
    for (std::size_t length : {1, 255}) {
        std::string text = "'\"%s%n\n\r\\;\x7f\x80\xff`$(x)\t";
        while (text.size() < length)
            text += text;
        neighbourPlug(3, text.substr(0, length), text.substr(0, length));
    }
    EXPECT_EQ(cycle(), "created");
    EXPECT_EQ(occurrences(log(), "\n2026-01-01 ") + 1, occurrences(log(), "\n")) << "a text started no line";
    factoryFresh();
    nicePlug(3);
    cycles(4);
    failCall("*", 1, false, OPEN_E_RPC);
    EXPECT_EQ(cycles(3), "nothing nothing nothing");
    clearFaults();
    EXPECT_EQ(cycle(), "created");
}

}  // namespace
