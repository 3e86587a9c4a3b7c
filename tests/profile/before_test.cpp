// What profiles touch comes back: what was there before, what others want, what an interruption left.
#include <gtest/gtest.h>

#include "profile/avb_ports.h"
#include "profile/configure.h"
#include "profile/record.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace test_support;

constexpr const char *kOverwrite = R"(, "overwrite": true)";
constexpr const char *kPtp = R"(, "ptp": true)";
const std::string kDante = "Audio Dante", kEtc = "ETC Lighting", kDicentis = "DICENTIS Conference system";
const std::string kLightware = "AVoIP Lightware AV network", kSonos = "Sonos";

class BeforeTest : public ApplyTest {
  protected:
    // What an operator has set up by hand, of everything that profiles touch.
    void configureByHand() {
        enter(
            "vlan database; vlan 77,78; vlan name 77 \"the \\\"old\\\" one\"; vlan name 78 guests;"
            "set igmp maxresponse 77 7; set igmp fast-leave 77; set mld 77; exit; configure;"
            "mvrp periodic state machine; ip igmp snooping querier query-interval 60; ipv6 mld snooping;"
            "set igmp querier version 3;"
            "set igmp querier timer expiry 90; classofservice trust dot1p; queue cos-map all 5 6;"
            "queue cos-queue strict all 6; class-map match-all CLASS_VIDEO; match ip dscp 40; exit;"
            "class-map match-all CLASS_MDNS; match dstl4port 5353; exit; spanning-tree mode rstp;"
            "spanning-tree mst priority 0 4096; ptp clock e2e-transparent; igmp-plus 77; port-channel auto;"
            "port-channel auto load-balance 6; monitor session 1 source interface 0/3 rx;"
            "monitor session 1 destination interface 0/40; monitor session 1 mode; interface lag 3;"
            "port-channel load-balance 5; exit; interface 0/3; speed 100 full-duplex; vlan pvid 77;"
            "vlan participation include 77; mtu 2000; exit; interface 0/4; vlan participation include 78;"
            "vlan tagging 78; vlan participation exclude 1; vlan pvid 78; exit; interface 0/6;"
            "vlan participation include 77; vlan tagging 77; mtu 4000; exit; interface vlan 77; routing;"
            "ip address 10.0.77.1 255.255.255.0; exit; snmp-server location \"interface 0/1 vlan database\";"
            "snmp-server contact exit; radius server host auth 10.0.0.5 name \"no vlan 20\"; end");
    }
    bool statusHas(const std::string &part) {
        char *text = nullptr;
        EXPECT_EQ(0, profileStatusGet(&client, &text));
        return std::string(TextPtr(text).get()).find(part) != std::string::npos;
    }
    std::string plan(const std::string &request, std::int32_t code = 0) {
        char *text = nullptr;
        EXPECT_EQ(code, profilePlanGet(&client, request.c_str(), &text)) << request;
        const TextPtr owner(text);
        return text != nullptr ? text : "";
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
        applied("Hall", type, {vlanJson(77, 1, "4, 5", "3")}, R"(, "ptp": false)");
        EXPECT_NE(before, config());
        EXPECT_FALSE(type == kDante && has("ptp clock e2e"));
        removed("Hall");
        ASSERT_EQ(before, config()) << type;
    }
    // Port lists for AVB, and more than one profile, in another order off than on; a port that is tagged in
    // VLAN 1 and untagged elsewhere, and a VLAN that gets another address.
    const IfNum ports[] = {IfNum(4)};
    ASSERT_TRUE(writeManualTrunks(ports, {}));
    applied("A", "Audio Video AVB", {vlanJson(77, 1, "4, 5", "3")});
    applied("B", kDante, {vlanJson(20, 1, "6")});
    applied("C", kSonos, {vlanJson(78, 1, "7")});
    applied("D", "Video", {vlanJson(1, 1, "8", "9"), vlanJson(21, 1, "9")});
    const auto port = state().interfaces["0/9"];
    EXPECT_TRUE(port.tagged.contains(kDefaultVlan) && port.pvid == VlanId(21) && port.mtu == 9198u);
    applied(
        "C", kSonos,
        {R"({"vlanId": 78, "vlanType": 1})", R"({"vlanId": 77, "vlanType": 1, "routing": {"ipConfig": 2}})"},
        kOverwrite);
    EXPECT_TRUE(has("ip address dhcp"));
    for (const auto *name : {"A", "C", "D", "B"})
        removed(name);
    enter("configure; interface 0/4; no mrp leavetime; end");  // the cleanup has a value of its own
    EXPECT_EQ(before, config());
}

TEST_F(BeforeTest, WhatWasChangedSinceIsLeftAlone) {
    enter("configure; ip igmp snooping querier query-interval 60; end");
    applied("A", kDante, {vlanJson(20, 1, "1, 2")});
    enter(
        "configure; ip igmp snooping querier query-interval 45; spanning-tree mode rstp; interface 0/2;"
        "mtu 3000; end");
    removed("A");
    EXPECT_TRUE(has("query-interval 45") && has("spanning-tree mode rstp") && has("mtu 3000"));
    EXPECT_FALSE(has("POLICY_AV"));
}

TEST_F(BeforeTest, ApplyingAgainRepairsDriftAndFollowsTheTemplate) {
    enter("configure; ip igmp snooping querier query-interval 60; end");
    const auto before = config();
    const auto request = requestJson("A", kDante, {vlanJson(20, 1, "1, 2", "9")}, kPtp);
    ASSERT_EQ(0, apply(request));
    const auto whole = config();
    EXPECT_TRUE(statusHas("\"asApplied\":\ttrue"));
    enter(
        "configure; no service-policy in POLICY_AV; no policy-map POLICY_AV;"
        "no ip igmp snooping querier query-interval; no ptp clock e2e-transparent; interface 0/2;"
        "vlan pvid 1; exit; interface 0/9; no mtu; end");
    // Another profile does not touch that.
    applied("Z", "Data", {vlanJson(40, 1, "5")});
    EXPECT_FALSE(has("POLICY_AV"));
    removed("Z");
    for (const auto *part : {"\"asApplied\":\tfalse", "POLICY_AV", "query-interval", "interface 0/2 pvid"})
        EXPECT_TRUE(statusHas(part)) << part;
    ASSERT_EQ(0, apply(request));
    EXPECT_EQ(whole, config());

    const auto path = profileTemplatePath(kDante);
    writeText(path.c_str(), R"({"name": "Audio Dante", "Sonos": true})");
    applied("Z", "Data", {vlanJson(40, 1, "5")});
    removed("Z");
    EXPECT_EQ(whole, config()) << "not by another profile's change";
    ASSERT_EQ(0, apply(request));
    EXPECT_TRUE(has("mst priority 0 28672") && !has("POLICY_AV"));
    writeText(path.c_str(), R"({"name": "Audio Dante"})");
    removed("A");
    EXPECT_EQ(before, config()) << "what a template said when the profile came, goes with it";
}

// A call whose failure does not matter leaves everything done; any other leaves nothing done.
TEST_F(BeforeTest, FailedChangeLeavesWhatWasSetUpByHand) {
    configureByHand();
    applied("Old", kSonos, {vlanJson(20, 1, "1, 2")});
    const auto from = everything();
    for (const auto &request :
         {requestJson("New", kDante, {vlanJson(77, 1, "2, 4", "3")}, std::string(kPtp) + kOverwrite),
          requestJson("New", kEtc, {vlanJson(77, 1, "4"), vlanJson(30, 2, "3")}),
          requestJson("New", PROFILE_TYPE_NAME_AUDAC,
                      {vlanJson(30, 2, "2, 3", "9"), vlanJson(31, 3, "4", "9")}, kOverwrite)}) {
        ASSERT_EQ(0, apply(request));
        const auto to = everything();
        removed("New");
        const auto checkApplied = [&](const std::string &why, std::uint64_t n) {
            const bool done = why == "(applied)";
            ASSERT_FALSE(why.empty()) << n;
            ASSERT_EQ(done ? to : from, everything()) << n;
            ASSERT_EQ(0, done ? remove("New") : 0) << n;
            ASSERT_EQ(from, everything()) << n;
        };
        failEach("*", [&] { return reason(request); }, checkApplied);
        ASSERT_EQ(0, apply(request));
        const auto checkRemoved = [&](std::int32_t result, std::uint64_t n) {
            ASSERT_EQ(result == 0 ? from : to, everything()) << n;
            ASSERT_EQ(0, apply(request)) << n;
        };
        failEach("*", [&] { return remove("New"); }, checkRemoved);
        removed("New");
    }
}

// From the n-th script on the switch refuses everything, the undo included.
TEST_F(BeforeTest, UndoAfterAFailedUndoGivesBackWhatHalfABlockTook) {
    configureByHand();
    enter(
        "configure; policy-map OUTP out; class CLASS_VIDEO; assign-queue 2; exit; exit; interface 0/9;"
        "service-policy out OUTP; end");
    const auto before = config();
    bool failed = false;
    for (const auto &type : {kDante, kEtc}) {
        applied("Z", "Data", {vlanJson(40, 1, "7")});
        const auto request = requestJson("A", type, {vlanJson(20, 1, "1")});
        const auto check = [&](const std::string &told, std::uint64_t n) {
            const bool torn =
                told.find("could not be taken back: the configuration of the switch") != std::string::npos;
            EXPECT_EQ(torn, statusHas("\"interrupted\":\ttrue")) << told;
            failed = failed || torn;
            applied("Z", "Data", {vlanJson(40, 1, "7, 8")});
            applied("Z", "Data", {vlanJson(40, 1, "7")});
            remove("A");
            removed("Z");
            ASSERT_EQ(before, config()) << type << " " << n;
            applied("Z", "Data", {vlanJson(40, 1, "7")});
        };
        failEach("rpcclt_openapiTxtCfgApply", [&] { return reason(request); }, check, false);
    }
    EXPECT_TRUE(failed) << "and it is told to the user";
}

TEST_F(BeforeTest, WhatGoesAlongComesBack) {
    enter(
        "vlan database; vlan 77; exit; configure; spanning-tree mode rapid-pvst;"
        "spanning-tree vlan 77 hello-time 5; policy-map POLICY_AV in; exit; interface 0/9;"
        "service-policy in POLICY_AV; end");
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
    writeText(profileTemplatePath(kDante).c_str(), "{\"name\":");
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply("A", kDante, {vlanJson(20, 1, "1")}));
    EXPECT_EQ(whole, config());
}

TEST_F(BeforeTest, OwnersKeepWhatTheyHave) {
    const auto before = everything();
    applied("A", "Video", {vlanJson(20, 1, "1, 2"), vlanJson(21, 2, "3")});
    const auto onlyA = everything();
    EXPECT_EQ(R"("vlans[0].vlanId": VLAN 20 belongs to profile "A"; "overwrite" takes it)",
              reason(requestJson("B", "Data", {vlanJson(20, 1, "5")})));
    EXPECT_EQ(R"("vlans[0].ports.untagged": interface 2 belongs to profile "A"; "overwrite" takes it)",
              reason(requestJson("B", "Data", {vlanJson(30, 1, "2")})));
    EXPECT_EQ(onlyA, everything());

    // Whoever lost may take it back, and lose nothing by the other's end.
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
    enter("configure; dot1as; end");
    EXPECT_EQ(14105, apply(dante));

    applied("L", kDicentis, {vlanJson(23, 1, "4")});
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply("E", kEtc, {vlanJson(24, 1, "5")}));
    applied("E", kEtc, {vlanJson(24, 1, "5")}, kOverwrite);
    EXPECT_TRUE(has("spanning-tree mode rstp"));
    removed("E");
    EXPECT_TRUE(has("spanning-tree mode rapid-pvst") && has("hello-time 9"));
}

TEST_F(BeforeTest, LagsOfConnectedEndpointsFollowTheirProfile) {
    applied("L", kLightware, {vlanJson(20, 1, "1, 2, 3")});
    enter(
        "vlan database; vlan 286; exit; configure; interface 0/2; addport lag 1; exit; interface lag 1;"
        "vlan pvid 20; vlan participation auto 1; vlan participation include 20,286; vlan tagging 286; end");
    const auto joined = config();
    applied("L", kLightware, {vlanJson(20, 1, "1, 2, 3")});
    EXPECT_EQ(joined, config());
    applied("V", "Video", {vlanJson(30, 1, "7")});
    EXPECT_EQ(0u, state().interfaces["lag 1"].mtu);
    removed("V");
    EXPECT_EQ(joined, config());
    applied("L", kLightware, {vlanJson(21, 1, "1, 2, 3"), vlanJson(20, 2, "8")});
    auto lag = state().interfaces["lag 1"];
    EXPECT_EQ(VlanId(21), lag.pvid);
    EXPECT_TRUE(lag.tagged.contains(VlanId(286)) && lag.isMemberOf(VlanId(286)));
    // It was taken out of the default VLAN when the endpoint joined, and would be in none.
    removed("L");
    lag = state().interfaces["lag 1"];
    EXPECT_TRUE(lag.pvid == kDefaultVlan && lag.participationIn(kDefaultVlan) == Participation::Include);
}

TEST_F(BeforeTest, DetectionFilesDescribeTheProfilesThatAreThere) {
    const auto request = profileExFilePath(PROFILE_TYPE_NAME_AUDAC);
    const auto audacHas = [](const char *part) {
        return exists(kAudacConfig) && readFile(kAudacConfig).find(part) != std::string::npos;
    };
    applied("A", PROFILE_TYPE_NAME_AUDAC,
            {vlanJson(10, 2, "1", "9"), vlanJson(20, 3, "5, 7", "", R"(, "assignedPort": [3, 5])")});
    const JsonPtr audac(jsonFileLoad(kAudacConfig)), kept(jsonFileLoad(request.c_str()));
    EXPECT_EQ(R"({"controlVlanID":10,"profileType":"AUDAC Audio and Control Network","controlUnTagPort":[1],)"
              R"("controlTagPort":[9],"audioVlanID":20,"profileType":"AUDAC Audio and Control Network",)"
              R"("audacDevicePort":[3,5,7],"audioTagPort":[]})",
              printJsonLine(audac.get()));
    EXPECT_TRUE(cJSON_HasObjectItem(kept.get(), "profileConfig")) << "the whole request is kept";
    applied("B", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 1, "4")});
    EXPECT_TRUE(audacHas("\"audioVlanID\":\t30")) << "the first VLAN is the audio VLAN";
    removed("B");
    EXPECT_TRUE(audacHas("\"audioVlanID\":\t20") && exists(request.c_str()));
    applied("V", "Video", {vlanJson(20, 1, "6")}, kOverwrite);
    EXPECT_FALSE(exists(kAudacConfig)) << "a control VLAN is no audio VLAN";
    EXPECT_FALSE(exists(request.c_str()));
    removed("V");
    EXPECT_TRUE(audacHas("\"audioVlanID\":\t20"));

    applied("S", PROFILE_TYPE_NAME_SHURE_SPLIT, {vlanJson(40, 2, "11"), vlanJson(41, 3, "13", "14")});
    EXPECT_NE(std::string::npos, readFile(kShureConfig).find("\"audioTagPort\":\t[14]"));
    applied("S", PROFILE_TYPE_NAME_SHURE_SPLIT, {vlanJson(41, 3, "13")});
    EXPECT_FALSE(exists(kShureConfig) || exists(profileExFilePath(PROFILE_TYPE_NAME_SHURE_SPLIT).c_str()));
    for (const auto &entry : fs::recursive_directory_iterator(platform::fsPath("/tmp/pavo")))
        EXPECT_NE(".new", entry.path().extension());
}

// Rows and files of the VLANs still tell what the profile created; nor is the database needed. A record that
// makes no sense is kept aside.
TEST_F(BeforeTest, ProfileIsDeletedWithoutItsRecord) {
    const auto record = platform::fsPath(platform::paths::kProfileRecord);
    for (const int lost : {1, 2, 3}) {
        applied("A", kDante, {vlanJson(20, 1, "1")});
        fs::remove(record);
        if (lost == 2)
            fs::remove(platform::fsPath(platform::paths::kProfileDb));
        if (lost == 3)
            writeText(platform::paths::kProfileRecord, "{\"version\": 1, \"profi");
        removed("A");
        EXPECT_FALSE(has("vlan pvid 20") || has("\"A\"")) << lost;
        EXPECT_FALSE(lost == 1 && (has("POLICY_AV") || has("interface 0/1\n")));
        EXPECT_EQ(lost == 3, fs::exists(record + ".damaged"));
    }
}

TEST_F(BeforeTest, SwitchThatHidesDefaults) {
    startSwitch({.defaultMtu = 1500});
    const auto before = config();
    const auto request = requestJson("A", "Audio Q-SYS", {vlanJson(20, 1, "1, 2", "9")});
    ASSERT_EQ(0, apply(request));
    EXPECT_FALSE(has("mtu 1500"));
    const auto scripts = callCount("rpcclt_openapiTxtCfgApply");
    ASSERT_EQ(0, apply(request));
    EXPECT_EQ(scripts, callCount("rpcclt_openapiTxtCfgApply"));
    EXPECT_TRUE(statusHas("\"asApplied\":\ttrue"));
    enter("configure; interface 0/2; mtu 9000; end");
    ASSERT_EQ(0, apply(request));
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
    const auto text = printJsonLine(JsonPtr(cJSON_Parse(plan(request).c_str())).get());
    EXPECT_EQ(before, everything());
    for (const auto *part : {R"({"what":"ip igmp snooping querier query-interval","now":"60","then":"30"})",
                             R"({"what":"vlan 30","now":"absent","then":"present"})",
                             R"({"what":"vlan 20 name","now":"\"A\"","then":"\"B\""})",
                             R"({"what":"interface 0/5 pvid","now":"1","then":"30"})",
                             R"({"what":"VLAN 20","from":"A","to":"B"})"})
        EXPECT_NE(std::string::npos, text.find(part)) << part;
    // The plan is what happens.
    ASSERT_EQ(0, apply(request));
    EXPECT_NE(std::string::npos, plan(request).find("\"changes\":\tfalse"));
    plan(requestJson("C", "Data", {vlanJson(20, 1, "7")}), codeOf(ResultCode::ObjectExists));
    plan("{}", codeOf(ResultCode::InvalidArgument));
}

TEST_F(BeforeTest, InterruptedChangeThatCannotBeFinishedIsTakenBack) {
    configureByHand();
    const auto before = everything();
    applied("A", kDante, {vlanJson(77, 1, "4"), vlanJson(20, 2, "1")}, kPtp);
    // As if it had been killed at its end.
    auto record = readProfileRecord().value();
    record.pending = PendingChange{record.profiles, "A"};
    record.profiles.clear();
    ASSERT_TRUE(writeProfileRecord(record));
    EXPECT_TRUE(statusHas("\"interrupted\":\ttrue"));
    enter("configure; no service-policy in POLICY_AV; end");
    failCall("rpcclt_openapiTxtCfgApply", 1);
    ASSERT_TRUE(recoverProfiles(&client));
    EXPECT_EQ(before, everything());
}

}  // namespace
