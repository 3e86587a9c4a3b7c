// What profiles touch comes back: what was there before, what others want, what an interruption left.
#include <gtest/gtest.h>

#include <cstdio>

#include "profile/apply.h"
#include "profile/avb_ports.h"
#include "profile/change.h"
#include "profile/configure.h"
#include "profile/list.h"
#include "profile/record.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace std::chrono_literals;
using namespace test_support;

constexpr const char *kOverwrite = R"(, "overwrite": true)";
constexpr const char *kPtp = R"(, "ptp": true)";
const std::string kDante = "Audio Dante", kEtc = "ETC Lighting", kDicentis = "DICENTIS Conference system";
const std::string kLightware = "AVoIP Lightware AV network", kSonos = "Sonos";

class BeforeTest : public ApplyTest {
  protected:
    // What an operator has set up by hand, of everything that profiles touch.
    void configureByHand() {
        cli({"vlan database",
             "vlan 77,78",
             "vlan name 77 \"the \\\"old\\\" one\"",
             "vlan name 78 guests",
             "set igmp maxresponse 77 7",
             "set igmp fast-leave 77",
             "set mld 77",
             "exit",
             "configure",
             "ip igmp snooping querier query-interval 60",
             "ipv6 mld snooping",
             "set igmp querier version 3",
             "set igmp querier timer expiry 90",
             "classofservice trust dot1p",
             "queue cos-map all 5 6",
             "queue cos-queue strict all 6",
             "class-map match-all CLASS_VIDEO",
             "match ip dscp 40",
             "exit",
             "class-map match-all CLASS_MDNS",
             "match dstl4port 5353",
             "exit",
             "spanning-tree mode rstp",
             "spanning-tree mst priority 0 4096",
             "ptp clock e2e-transparent",
             "igmp-plus 77",
             "port-channel auto",
             "port-channel auto load-balance 6",
             "monitor session 1 source interface 0/3 rx",
             "monitor session 1 destination interface 0/40",
             "monitor session 1 mode",
             "interface lag 3",
             "port-channel load-balance 5",
             "exit",
             "interface 0/3",
             "speed 100 full-duplex",
             "vlan pvid 77",
             "vlan participation include 77",
             "mtu 2000",
             "exit",
             "interface 0/4",
             "vlan participation include 78",
             "vlan tagging 78",
             "vlan participation exclude 1",
             "vlan pvid 78",
             "exit",
             "interface 0/6",
             "vlan participation include 77",
             "vlan tagging 77",
             "mtu 4000",
             "exit",
             "interface vlan 77",
             "routing",
             "ip address 10.0.77.1 255.255.255.0",
             "end"});
    }
    std::string status() {
        char *text = nullptr;
        EXPECT_EQ(0, profileStatusGet(&client, &text));
        return TextPtr(text).get();
    }
    std::string plan(const std::string &request, std::int32_t code = 0) {
        char *text = nullptr;
        EXPECT_EQ(code, profilePlanGet(&client, request.c_str(), &text)) << request;
        const TextPtr owner(text);
        return text != nullptr ? text : "";
    }
    static void loseTmp(bool alsoRecord = false) {
        for (const auto *path : {platform::paths::kProfileDb, kAudacConfig, kShureConfig})
            fs::remove(platform::fsPath(path));
        fs::remove_all(platform::fsPath(platform::paths::kVlanProfileConfigDir));
        fs::remove_all(platform::fsPath("/tmp/pavo"));
        if (alsoRecord)
            fs::remove(platform::fsPath(platform::paths::kProfileRecord));
    }
    std::string reason(const std::string &request) {
        const auto done = configureProfile(&client, request);
        return done ? "(applied)" : done.error().reason;
    }
};

// Every type touches something of what was set up by hand, on VLANs and ports that were in use.
TEST_F(BeforeTest, DeletionGivesBackWhatWasSetUpByHand) {
    configureByHand();
    const auto before = config();
    for (const auto &type : {kDante, kEtc, kDicentis, kLightware, kSonos, std::string("Audio Video AVB"),
                             std::string(PROFILE_TYPE_NAME_TELOS), std::string("Unite Audio"),
                             std::string(PROFILE_TYPE_NAME_POLY)}) {
        SCOPED_TRACE(type);
        applied("Hall", type, {vlanJson(77, 1, "4, 5", "3")}, type == kDante ? kPtp : "");
        EXPECT_NE(before, config());
        removed("Hall");
        ASSERT_EQ(before, config());
    }
    // Port lists for AVB, and more than one profile, in another order off than on.
    const IfNum ports[] = {IfNum(4)};
    ASSERT_TRUE(writeManualTrunks(ports, {}));
    applied("A", "Audio Video AVB", {vlanJson(77, 1, "4, 5", "3")});
    applied("B", kDante, {vlanJson(20, 1, "6")});
    applied("C", kSonos, {vlanJson(78, 1, "7")});
    removed("A");
    removed("C");
    removed("B");
    cli({"configure", "interface 0/4", "no mrp leavetime", "end"});  // the cleanup has a value of its own
    EXPECT_EQ(before, config());
}

TEST_F(BeforeTest, WhatWasChangedSinceIsLeftAlone) {
    cli({"configure", "ip igmp snooping querier query-interval 60", "end"});
    applied("A", kDante, {vlanJson(20, 1, "1, 2")});
    cli({"configure", "ip igmp snooping querier query-interval 45", "spanning-tree mode rstp",
         "interface 0/2", "mtu 3000", "end"});
    removed("A");
    EXPECT_TRUE(has("query-interval 45") && has("spanning-tree mode rstp") && has("mtu 3000"));
    EXPECT_FALSE(has("POLICY_AV"));
}

TEST_F(BeforeTest, ApplyingAgainRepairsDriftAndFollowsTheTemplate) {
    cli({"configure", "ip igmp snooping querier query-interval 60", "end"});
    const auto before = config();
    const auto request = requestJson("A", kDante, {vlanJson(20, 1, "1, 2", "9")}, kPtp);
    ASSERT_EQ(0, apply(request));
    const auto whole = config();
    EXPECT_NE(std::string::npos, status().find("\"asApplied\":\ttrue"));
    cli({"configure", "no service-policy in POLICY_AV", "no policy-map POLICY_AV",
         "no ip igmp snooping querier query-interval", "no ptp clock e2e-transparent", "interface 0/2",
         "vlan pvid 1", "exit", "interface 0/9", "no mtu", "end"});
    // Another profile does not touch that.
    applied("Z", "Data", {vlanJson(40, 1, "5")});
    EXPECT_FALSE(has("POLICY_AV"));
    removed("Z");
    for (const auto *part : {"\"asApplied\":\tfalse", "POLICY_AV", "query-interval", "interface 0/2 pvid"})
        EXPECT_NE(std::string::npos, status().find(part)) << part;
    ASSERT_EQ(0, apply(request));
    EXPECT_EQ(whole, config());

    const auto path = profileTemplatePath(kDante);
    const auto shipped = readFile(path.c_str());
    writeText(path.c_str(), R"({"name": "Audio Dante", "Sonos": true})");
    applied("Z", "Data", {vlanJson(40, 1, "5")});
    removed("Z");
    EXPECT_EQ(whole, config()) << "not by another profile's change";
    ASSERT_EQ(0, apply(request));
    EXPECT_TRUE(has("mst priority 0 28672") && !has("POLICY_AV"));
    writeText(path.c_str(), R"({"name": "Audio Dante"})");
    removed("A");
    EXPECT_EQ(before, config()) << "what a template said when the profile came, goes with it";
    writeText(path.c_str(), shipped);
}

TEST_F(BeforeTest, FailedChangeLeavesWhatWasSetUpByHand) {
    configureByHand();
    applied("Old", kSonos, {vlanJson(20, 1, "1, 2")});
    const auto from = everything();
    const auto change =
        requestJson("New", kDante, {vlanJson(77, 1, "2, 4", "3")}, std::string(kPtp) + kOverwrite);
    const auto etc = requestJson("New", kEtc, {vlanJson(77, 1, "4"), vlanJson(30, 2, "3")});
    for (const auto &request : {change, etc}) {
        for (std::uint64_t n = 1;; ++n) {
            failCall("*", n);
            const auto done = configureProfile(&client, request);
            const bool struck = callsSeen() >= n;
            clearFaults();
            if (done)
                ASSERT_TRUE(remove("New") == 0);
            else if (struck)
                ASSERT_FALSE(done.error().reason.empty()) << n;
            ASSERT_EQ(from, everything()) << n;
            if (!struck)
                break;
        }
        ASSERT_EQ(0, apply(request));
        const auto to = everything();
        for (std::uint64_t n = 1;; ++n) {
            failCall("*", n);
            const auto result = remove("New");
            const bool struck = callsSeen() >= n;
            clearFaults();
            ASSERT_EQ(result == 0 ? from : to, everything()) << n;
            ASSERT_EQ(0, apply(request));
            if (!struck)
                break;
        }
        removed("New");
    }
}

TEST_F(BeforeTest, FailedUndoIsToldToTheUserAndDoneByTheNext) {
    applied("Old", kDante, {vlanJson(20, 1, "1")});
    const auto before = config();
    failCall("rpcclt_openapiTxtCfgApply", 2, false);
    const auto told = reason(requestJson("New", kEtc, {vlanJson(30, 1, "2")}));
    EXPECT_NE(std::string::npos, told.find("could not be taken back: the configuration of the switch"))
        << told;
    clearFaults();
    EXPECT_NE(std::string::npos, status().find("\"interrupted\":\ttrue"));
    removed("Old");
    applied("Old", kDante, {vlanJson(20, 1, "1")});
    EXPECT_EQ(before, config());
}

// From the n-th script on the switch refuses everything, the undo included.
TEST_F(BeforeTest, UndoAfterAFailedUndoGivesBackWhatHalfABlockTook) {
    configureByHand();
    cli({"configure", "policy-map OUTP out", "class CLASS_VIDEO", "assign-queue 2", "exit", "exit",
         "interface 0/9", "service-policy out OUTP", "end"});
    const auto before = config();
    applied("Z", "Data", {vlanJson(40, 1, "7")});
    for (const auto &type : {kDante, kEtc})
        for (std::uint64_t n = 1;; ++n) {
            failCall("rpcclt_openapiTxtCfgApply", n, false);
            const auto result = apply("A", type, {vlanJson(20, 1, "1")});
            clearFaults();
            if (result == 0)
                break;
            applied("Z", "Data", {vlanJson(40, 1, "7, 8")});
            applied("Z", "Data", {vlanJson(40, 1, "7")});
            remove("A");
            removed("Z");
            ASSERT_EQ(before, config()) << type << " " << n;
            applied("Z", "Data", {vlanJson(40, 1, "7")});
        }
    removed("A");
    removed("Z");
    EXPECT_EQ(before, config());
}

TEST_F(BeforeTest, WhatGoesAlongComesBack) {
    cli({"vlan database", "vlan 77", "exit", "configure", "spanning-tree mode rapid-pvst",
         "spanning-tree vlan 77 hello-time 5", "policy-map POLICY_AV in", "exit", "interface 0/9",
         "service-policy in POLICY_AV", "end"});
    const auto before = config();
    applied("A", kEtc, {vlanJson(20, 1, "1")});
    EXPECT_FALSE(has("hello-time 5"));
    applied("B", "Data", {vlanJson(30, 1, "2")});
    applied("A", kEtc, {vlanJson(20, 1, "1")});
    removed("A");
    EXPECT_TRUE(has("hello-time 5"));
    removed("B");
    EXPECT_EQ(before, config());
    // Nor is a template that cannot be read one that wants nothing.
    applied("A", kDante, {vlanJson(20, 1, "1")});
    const auto whole = config();
    const auto path = profileTemplatePath(kDante);
    const auto shipped = readFile(path.c_str());
    writeText(path.c_str(), "{\"name\":");
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply("A", kDante, {vlanJson(20, 1, "1")}));
    EXPECT_EQ(whole, config());
    writeText(path.c_str(), shipped);
}

TEST_F(BeforeTest, OwnersKeepWhatTheyHave) {
    const auto before = everything();
    applied("A", "Video", {vlanJson(20, 1, "1, 2"), vlanJson(21, 2, "3")});
    const auto onlyA = everything();
    const auto vlan = requestJson("B", "Data", {vlanJson(20, 1, "5")});
    const auto port = requestJson("B", "Data", {vlanJson(30, 1, "2")});
    EXPECT_EQ(R"("vlans[0].vlanId": VLAN 20 belongs to profile "A"; "overwrite" takes it)", reason(vlan));
    EXPECT_EQ(R"("vlans[0].ports.untagged": interface 2 belongs to profile "A"; "overwrite" takes it)",
              reason(port));
    EXPECT_EQ(onlyA, everything());

    applied("B", "Data", {vlanJson(20, 1, "5, 2")}, kOverwrite);
    for (const auto *part : {"VLAN 20", "\"to\":\t\"B\"", "\"asApplied\":\tfalse"})
        EXPECT_NE(std::string::npos, status().find(part)) << part;
    EXPECT_FALSE(state().interfaces.contains("0/1")) << "out of the taken VLAN";
    applied("C", "Data", {vlanJson(40, 1, "3")}, kOverwrite);
    // Whoever lost may take it back, and lose nothing by the other's end.
    removed("B");
    removed("C");
    EXPECT_EQ(onlyA, everything());
    applied("B", "Data", {vlanJson(20, 1, "5")}, kOverwrite);
    applied("A", "Video", {vlanJson(20, 1, "1, 2"), vlanJson(21, 2, "3")}, kOverwrite);
    removed("B");
    EXPECT_EQ(onlyA, everything());
    // One that has lost everything can still be deleted.
    applied("B", "Data", {vlanJson(20, 1, "5"), vlanJson(21, 1, "")}, kOverwrite);
    removed("A");
    removed("B");
    EXPECT_EQ(before, everything());
}

TEST_F(BeforeTest, WhatExcludesEachOtherIsRefused) {
    const auto dante = requestJson("D", kDante, {vlanJson(20, 1, "1")}, kPtp);
    const auto avb = requestJson("V", "Audio Video AVB", {vlanJson(21, 1, "2")});
    ASSERT_EQ(0, apply(dante));
    EXPECT_EQ(14104, apply(avb));
    ASSERT_EQ(0, apply(requestJson("V", "Audio Video AVB", {vlanJson(21, 1, "2")}, kOverwrite)));
    EXPECT_TRUE(has("dot1as\n") && !has("ptp clock e2e"));
    removed("V");
    EXPECT_TRUE(has("ptp clock e2e") && !has("dot1as\n"));
    removed("D");
    ASSERT_EQ(0, apply(avb));
    EXPECT_EQ(14105, apply(dante));
    EXPECT_EQ(codeOf(ResultCode::AvbOneVlan), apply("M", PROFILE_TYPE_NAME_MILAN, {vlanJson(22, 1, "3")}));
    removed("V");
    cli({"configure", "dot1as", "end"});
    EXPECT_EQ(14105, apply(dante));
    cli({"configure", "no dot1as", "end"});

    applied("L", kDicentis, {vlanJson(23, 1, "4")});
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply("E", kEtc, {vlanJson(24, 1, "5")}));
    EXPECT_TRUE(has("spanning-tree mode rapid-pvst"));
    applied("E", kEtc, {vlanJson(24, 1, "5")}, kOverwrite);
    EXPECT_TRUE(has("spanning-tree mode rstp"));
    removed("E");
    EXPECT_TRUE(has("spanning-tree mode rapid-pvst") && has("hello-time 9"));
}

TEST_F(BeforeTest, ClockMtuAndOtherProfiles) {
    cli({"configure", "ptp clock e2e-transparent", "end"});
    const auto before = config();
    applied("P", kDante, {vlanJson(20, 1, "1")}, R"(, "ptp": false)");
    EXPECT_FALSE(has("ptp clock e2e"));
    removed("P");
    EXPECT_EQ(before, config());
    applied("One", "Video", {vlanJson(1, 1, "3, 4")});
    EXPECT_EQ(9198u, state().interfaces["0/3"].mtu);
    removed("One");
    EXPECT_EQ(before, config());
}

TEST_F(BeforeTest, LagsOfConnectedEndpointsFollowTheirProfile) {
    applied("L", kLightware, {vlanJson(20, 1, "1, 2, 3")});
    cli({"vlan database", "vlan 286", "exit", "configure", "interface 0/2", "addport lag 1", "exit",
         "interface lag 1", "vlan pvid 20", "vlan participation auto 1", "vlan participation include 20,286",
         "vlan tagging 286", "end"});
    const auto joined = config();
    applied("L", kLightware, {vlanJson(20, 1, "1, 2, 3")});
    EXPECT_EQ(joined, config());
    applied("V", "Video", {vlanJson(30, 1, "7")});
    EXPECT_EQ(0u, state().interfaces["lag 1"].mtu);
    removed("V");
    EXPECT_EQ(joined, config());
    applied("L", kLightware, {vlanJson(21, 1, "1, 2, 3"), vlanJson(20, 2, "8")});
    const auto lag = state().interfaces["lag 1"];
    EXPECT_EQ(VlanId(21), lag.pvid);
    EXPECT_TRUE(lag.tagged.contains(VlanId(286)) && lag.isMemberOf(VlanId(286)));
    // It was taken out of the default VLAN when the endpoint joined, and would be in none.
    removed("L");
    const auto left = state().interfaces["lag 1"];
    EXPECT_EQ(kDefaultVlan, left.pvid);
    EXPECT_EQ(Participation::Include, left.participationIn(kDefaultVlan));
}

TEST_F(BeforeTest, DetectionFilesDescribeTheProfilesThatAreThere) {
    const auto request = profileExFilePath(PROFILE_TYPE_NAME_AUDAC);
    const auto audacHas = [](const char *part) {
        return exists(kAudacConfig) && readFile(kAudacConfig).find(part) != std::string::npos;
    };
    applied("A", PROFILE_TYPE_NAME_AUDAC, {vlanJson(10, 2, "1"), vlanJson(20, 3, "2")});
    applied("B", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 3, "4")});
    EXPECT_TRUE(audacHas("30"));
    removed("B");
    EXPECT_TRUE(audacHas("\"audioVlanID\":\t20") && exists(request.c_str()));
    applied("V", "Video", {vlanJson(20, 1, "6")}, kOverwrite);
    EXPECT_FALSE(exists(kAudacConfig)) << "a control VLAN is no audio VLAN";
    EXPECT_FALSE(exists(request.c_str()));
    removed("V");
    EXPECT_TRUE(audacHas("\"audioVlanID\":\t20"));

    applied("S", PROFILE_TYPE_NAME_SHURE_SPLIT, {vlanJson(40, 2, "11"), vlanJson(41, 3, "13")});
    EXPECT_TRUE(exists(kShureConfig));
    applied("S", PROFILE_TYPE_NAME_SHURE_SPLIT, {vlanJson(41, 3, "13")});
    EXPECT_FALSE(exists(kShureConfig));
    EXPECT_FALSE(exists(profileExFilePath(PROFILE_TYPE_NAME_SHURE_SPLIT).c_str()));
    for (const auto &entry : fs::recursive_directory_iterator(platform::fsPath("/tmp/pavo")))
        EXPECT_NE(".new", entry.path().extension());
}

TEST_F(BeforeTest, RebootLossAndDamage) {
    configureByHand();
    const auto before = config();
    for (const bool damaged : {false, true}) {
        applied("A", PROFILE_TYPE_NAME_AUDAC, {vlanJson(20, 2, "1"), vlanJson(77, 3, "2")});
        const auto whole = everything();
        loseTmp();
        if (damaged)
            writeText(platform::paths::kProfileDb, "SQLite format 3\nand nothing of it");
        ASSERT_TRUE(recoverProfiles(&client));
        EXPECT_EQ(whole, everything());
        loseTmp();
        removed("A");
        EXPECT_EQ(before, config());
    }
    // Without the record: rows and files of the VLANs still tell what the profile created.
    applied("A", kDante, {vlanJson(20, 1, "1")});
    fs::remove(platform::fsPath(platform::paths::kProfileRecord));
    removed("A");
    EXPECT_FALSE(has("vlan pvid 20") || has("\"A\"") || has("POLICY_AV") || has("interface 0/1\n"));
    // Nor the database.
    applied("A", kDante, {vlanJson(20, 1, "1")});
    fs::remove(platform::fsPath(platform::paths::kProfileRecord));
    fs::remove(platform::fsPath(platform::paths::kProfileDb));
    removed("A");
    EXPECT_FALSE(has("vlan pvid 20") || has("\"A\""));
    // A record that makes no sense is kept aside.
    applied("A", kDante, {vlanJson(20, 1, "1")});
    writeText(platform::paths::kProfileRecord, "{\"version\": 1, \"profi");
    removed("A");
    EXPECT_TRUE(exists((std::string(platform::paths::kProfileRecord) + ".damaged").c_str()));
    EXPECT_FALSE(has("\"A\""));
}

TEST_F(BeforeTest, SwitchThatHidesDefaults) {
    startSwitch({.defaultMtu = 1500});
    const auto before = config();
    applied("A", "Audio Q-SYS", {vlanJson(20, 1, "1, 2", "9")});
    EXPECT_FALSE(has("mtu 1500"));
    const auto scripts = callCount("rpcclt_openapiTxtCfgApply");
    applied("A", "Audio Q-SYS", {vlanJson(20, 1, "1, 2", "9")});
    EXPECT_EQ(scripts, callCount("rpcclt_openapiTxtCfgApply"));
    EXPECT_NE(std::string::npos, status().find("\"asApplied\":\ttrue"));
    cli({"configure", "interface 0/2", "mtu 9000", "end"});
    applied("A", "Audio Q-SYS", {vlanJson(20, 1, "1, 2", "9")});
    EXPECT_FALSE(has("mtu 9000"));
    removed("A");
    EXPECT_EQ(before, config());
}

TEST_F(BeforeTest, PlanTellsWhatApplyingDoes) {
    configureByHand();
    applied("A", "Video", {vlanJson(20, 1, "1, 2")});
    const auto before = everything();
    const auto request = requestJson("B", kDante, {vlanJson(20, 1, "2"), vlanJson(30, 2, "5")},
                                     std::string(kPtp) + kOverwrite);
    const auto text = plan(request);
    EXPECT_EQ(before, everything());
    const JsonPtr json(cJSON_Parse(text.c_str()));
    const auto lists = [&](const char *group, const std::string &what, const std::string &now,
                           const std::string &then) {
        const cJSON *line = nullptr;
        cJSON_ArrayForEach(line, member(json.get(), group)) {
            if (stringMember(line, "what") == what)
                return stringMember(line, "now") == now && stringMember(line, "then") == then;
        }
        return false;
    };
    EXPECT_TRUE(lists("switch", "ip igmp snooping querier query-interval", "60", "30")) << text;
    EXPECT_TRUE(lists("vlans", "vlan 30", "absent", "present")) << text;
    EXPECT_TRUE(lists("vlans", "vlan 20 name", "\"A\"", "\"B\"")) << text;
    EXPECT_TRUE(lists("ports", "interface 0/5 pvid", "1", "30")) << text;
    EXPECT_NE(std::string::npos,
              printJsonLine(member(json.get(), "taken")).find(R"({"what":"VLAN 20","from":"A","to":"B"})"));
    // The plan is what happens.
    ASSERT_EQ(0, apply(request));
    EXPECT_NE(std::string::npos, plan(request).find("\"changes\":\tfalse"));
    plan(requestJson("C", "Data", {vlanJson(20, 1, "7")}), codeOf(ResultCode::ObjectExists));
    plan("{}", codeOf(ResultCode::InvalidArgument));
}

// The record goes ahead of everything: whatever is found of a change that began, the next one sets it right.
TEST_F(BeforeTest, InterruptedChangeIsFinishedOrTakenBackByTheNext) {
    configureByHand();
    const auto before = everything();
    const auto request = requestJson("A", kDante, {vlanJson(77, 1, "4"), vlanJson(20, 2, "1")}, kPtp);
    ASSERT_EQ(0, apply(request));
    const auto whole = everything();
    // Before its first step.
    auto record = readProfileRecord().value();
    record.pending = PendingChange{record.profiles, "A"};
    record.profiles.clear();
    removed("A");
    ASSERT_EQ(before, everything());
    ASSERT_TRUE(writeProfileRecord(record));
    EXPECT_NE(std::string::npos, status().find("\"interrupted\":\ttrue"));
    ASSERT_TRUE(recoverProfiles(&client));
    EXPECT_EQ(whole, everything());
    // One that cannot be finished is taken back.
    record = readProfileRecord().value();
    record.pending = PendingChange{record.profiles, "A"};
    record.profiles.clear();
    ASSERT_TRUE(writeProfileRecord(record));
    cli({"configure", "no service-policy in POLICY_AV", "end"});
    failCall("rpcclt_openapiTxtCfgApply", 1);
    ASSERT_TRUE(recoverProfiles(&client));
    EXPECT_EQ(before, everything());
}

}  // namespace
