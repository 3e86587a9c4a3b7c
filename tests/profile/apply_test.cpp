// Profiles from request to switch and back.
#include <gtest/gtest.h>

#include <sstream>

#include "common/json.h"
#include "common/result.h"
#include "profile/apply_ops.h"
#include "profile/configure.h"
#include "profile/list_ops.h"
#include "profile/session.h"
#include "store/profile_db_ops.h"
#include "store/profile_demand.h"
#include "store/profile_template.h"
#include "store/vlan_settings.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace std::chrono_literals;
using namespace test_support;

// --- every type

class EveryTypeTest : public ApplyTest, public testing::WithParamInterface<ProfileType> {};

TEST_P(EveryTypeTest, AppliedListedChangedInPlaceAndDeletedWithoutATrace) {
    const std::string type = GetParam().name;
    SCOPED_TRACE(type);
    cli({"configure", "interface 0/40", "description \"not ours\"", "mtu 2000", "end"});
    const auto before = config();
    const bool single = type.find("AVB") != std::string::npos || type.find("SMPTE") != std::string::npos ||
                        type == PROFILE_TYPE_NAME_SHURE_CONVERGED;
    std::vector<std::string> vlans = {vlanJson(20, 2, "1, 2, 3", "48")};
    if (!single)
        vlans.push_back(vlanJson(30, 3, "5, 6", "48", R"(, "assignedPort": [5, 7])"));

    applied("Hall", type, vlans, R"(, "ptp": true)");
    const auto changed = config();
    EXPECT_TRUE(has("vlan name 20 \"Hall\"") && has("vlan pvid 20"));
    const auto mtu = GetParam().attributes.mtu;
    EXPECT_EQ(mtu != 0, has("\nmtu " + std::to_string(mtu) + "\n"));

    for (const auto &part : {std::string("\"name\":\t\"Hall\""), "\"profileType\":\t\"" + type + "\""})
        EXPECT_NE(std::string::npos, everything().find(part)) << part;

    const auto scripts = callCount("rpcclt_openapiTxtCfgApply");
    applied("Hall", type, vlans, R"(, "ptp": true)");
    EXPECT_EQ(changed, config());
    EXPECT_EQ(scripts, callCount("rpcclt_openapiTxtCfgApply")) << "what stays the same is not touched again";

    removed("Hall");
    EXPECT_EQ(before, config());
    EXPECT_EQ(0, vlanInfoSelectRowsById(20));
    EXPECT_FALSE(exists(vlanSettingsPath(VlanId(20)).c_str()) || exists(kAudacConfig) ||
                 exists(kShureConfig));
    EXPECT_TRUE(fs::is_empty(platform::fsPath(platform::paths::kScriptDir))) << "no script is left behind";
}

INSTANTIATE_TEST_SUITE_P(Types, EveryTypeTest, testing::ValuesIn(profileTypes()));

TEST_F(ApplyTest, EveryBlockComesWithItsProfile) {
    const struct {
        const char *type;
        std::vector<std::string> lines;
    } rows[] = {
        {"Sonos", {"spanning-tree mst priority 0 28672"}},
        {"ETC Lighting", {"set igmp querier version 2", "set igmp querier election participate 20"}},
        {"DICENTIS Conference system", {"spanning-tree vlan 20 max-age 22"}},
        {PROFILE_TYPE_NAME_LIGHTWARE, {"set igmp mcrtrexpiretime 20 0"}},
        {PROFILE_TYPE_NAME_UNITE, {"set igmp fast-leave 20", "ip igmp snooping querier query-interval 20"}},
        {PROFILE_TYPE_NAME_POLY, {"set igmp proxy-querier 20"}},
        {PROFILE_TYPE_NAME_AVB, {"dot1as", "mmrp periodic state machine"}},
        {"Audio Dante", {"igmp-plus 20", "policy-map POLICY_AV in", "class CLASS_PTP1"}},
        {PROFILE_TYPE_NAME_TELOS, {"class CLASS_TELOS"}},
        {PROFILE_TYPE_NAME_GD, {"class CLASS_GD_COM"}},
    };
    const auto before = config();
    for (const auto &[type, lines] : rows) {
        applied("A", type, {vlanJson(20, 1, "1")});
        for (const auto &line : lines)
            EXPECT_TRUE(has("\n" + line + "\n")) << type << ": " << line;
        removed("A");
        ASSERT_EQ(before, config()) << type;
    }
    applied("A", PROFILE_TYPE_NAME_MILAN_DANTE, {vlanJson(20, 1, "1")});
    EXPECT_TRUE(has("class CLASS_AUDIO1") && !has("CLASS_PTP"));
}

TEST_F(ApplyTest, FiltersGoWithTheLastProfileThatHasThem) {
    const auto addFilters = [&] {
        cli({"configure", "ip access-list NET-BLOCK", "exit", "mac access-list extended visionaryNwAV",
             "end"});
    };
    addFilters();
    const std::string harman = "HARMAN Professional AV Network",
                      visionary = "Visionary Advanced Multi-Domain";
    for (const auto &[type, role] : {std::pair(harman, 2), {PROFILE_TYPE_NAME_GD, 1}}) {
        applied("A", type, {vlanJson(20, role, "1")});
        removed("A");
    }
    EXPECT_TRUE(has("NET-BLOCK") && has("visionaryNwAV"));
    applied("A", harman, {vlanJson(20, 3, "1")});
    removed("A");
    EXPECT_TRUE(has("NET-BLOCK")) << "it was there before the profile";
    cli({"configure", "no ip access-list NET-BLOCK", "no mac access-list extended visionaryNwAV", "end"});
    applied("A", harman, {vlanJson(20, 3, "1")});
    applied("B", visionary, {vlanJson(30, 1, "2")});
    addFilters();
    removed("A");
    EXPECT_TRUE(!has("NET-BLOCK") && has("visionaryNwAV"));
    removed("B");
    EXPECT_FALSE(has("visionaryNwAV"));
}

// --- the lock

TEST_F(ApplyTest, NothingChangesWithoutTheLock) {
    applied("A", "Data", {vlanJson(20, 1, "1")});
    const auto before = everything();
    const auto lock = platform::fsPath(platform::paths::kProfileLock);
    fs::remove(lock);
    fs::create_directory(lock);
    const auto request = parseProfileConfig(requestJson("B", "Data", {vlanJson(30, 1, "2")}))->request;
    for (const auto code : {apply("B", "Data", {vlanJson(30, 1, "2")}), profileVlanAdd(&client, request, 0),
                            profileVlansRemove(&client, {VlanId(20)}), remove("A")})
        EXPECT_EQ(codeOf(ResultCode::Failed), code);
    EXPECT_EQ(before, everything());
    std::vector<std::string> operations;
    std::istringstream lines(log());
    for (std::string line; std::getline(lines, line);)
        if (const auto text = line.find("] cannot lock "); text != std::string::npos) {
            const auto begin = line.rfind('[', text) + 1;
            operations.push_back(line.substr(begin, line.find(':', begin) - begin));
        }
    EXPECT_EQ(operations, (std::vector<std::string>{"profileConfigSet", "profileVlanAdd",
                                                    "profileVlansRemove", "profileDelete"}));
    EXPECT_EQ("cannot lock " + lock, configureProfile(&client, "{}").error().reason);
}

// --- the request

TEST_F(ApplyTest, MalformedRequestsChangeNothing) {
    const auto before = everything();
    const std::string good = requestJson("Hall", "Data", {vlanJson(20, 1, "1")});
    ASSERT_EQ(codeOf(ResultCode::InvalidArgument), profileConfigSet(&client, nullptr));
    const std::string deep(5000, '['), huge(2 << 20, ' '), half = good.substr(0, good.size() / 2);
    std::vector<std::string> bad = {"", "nonsense", "{}", "[]", "{\"profileConfig\": 3}", deep, half, huge};
    const auto with = [&](const std::string &part, const std::string &other) {
        bad.push_back(std::string(good).replace(good.find(part), part.size(), other));
    };
    // Each key missing, null, of another type, huge, negative, fractional.
    for (const std::string key :
         {"\"name\": \"Hall\"", "\"color\": \"#081855\"", "\"profileType\": \"Data\"", "\"vlanNum\": 1"}) {
        with(key, "\"x\": 1");
        for (const auto *value : {"null", "[1]", "{}", "true"})
            with(key, key.substr(0, key.find(':') + 2) + value);
    }
    for (const auto *id : {"0", "-1", "4095", "1e9", "1e300", "20.5", "null", "\"20\"", "[]"})
        with("\"vlanId\": 20", std::string("\"vlanId\": ") + id);
    for (const auto *port : {"0", "-1", "73", "1e9", "1.5", "\"1\"", "null", "1, 1"})
        bad.push_back(requestJson("Hall", "Data", {vlanJson(20, 1, port)}));
    std::string ports = "1";
    for (int i = 0; i < 1000; ++i)
        ports += ", 1";
    const auto a = vlanJson(20, 1, "1"), b = vlanJson(21, 1, ""), c = vlanJson(22, 1, "");
    const std::string address = R"("ipConfig": 3, "ipAddr": "1.2.3\nexit", "ipMask": "255.0.0.0")";
    for (const std::vector<std::string> &list :
         {std::vector{vlanJson(20, 1, "", ports)},
          {a, vlanJson(21, 1, "1")},
          {vlanJson(20, 1, "1", "1")},
          {a, vlanJson(20, 1, "2")},
          {},
          {a, b, c, vlanJson(23, 1, ""), vlanJson(24, 1, "")},
          {R"({"vlanId": 20, "vlanType": 1, "routing": {)" + address + "}}"}})
        bad.push_back(requestJson("Hall", "Data", list));
    // A type is no path, though its VLANs have good ones.
    for (const std::string more : {"", R"("profileType": "Data",)"})
        bad.push_back(requestJson("Hall", "../../../escaped",
                                  {"{" + more + R"("vlanId": 20, "vlanType": 1})",
                                   "{" + more + R"("vlanId": 21, "vlanType": 1})"}));
    for (const auto &text : bad)
        EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply(text)) << text.substr(0, 250);
    EXPECT_EQ(before, everything());
    EXPECT_FALSE(exists("/escaped"));
}

TEST_F(ApplyTest, NamesCannotDoMoreThanName) {
    const auto before = everything();
    for (const auto *name :
         {"", "a\\\"b", "a\\nno vlan 1", "a\\\\b", "\\u0007", "\xff\xfe", "\xc3", "\xe2\x82"})
        EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply(name, "Data", {vlanJson(20, 1, "1")})) << name;
    EXPECT_EQ(before, everything());
    const std::string endless(10000, 'x'), notes = "Bühne links ♪ und rechts ♪ und oben";
    for (const auto &name : {std::string("O'Brien; drop table vlanInfo"), std::string("../../x"),
                             std::string("a/b"), std::string("?"), endless, notes}) {
        applied(name, "Data", {vlanJson(20, 1, "1")});
        char stored[VLAN_INFO_NAME_SIZE] = "";
        ASSERT_EQ(1, vlanInfoSelectById(20, nullptr, stored, nullptr, nullptr));
        EXPECT_EQ(name.substr(0, 255), stored);
        removed(stored);
    }
    EXPECT_EQ(before, everything());
    applied("VLAN0020", "Data", {vlanJson(20, 1, "1")});  // the running configuration leaves it out
}

TEST_F(ApplyTest, PtpComesFromTheTemplate) {
    writeText(profileTemplatePath("Audio Dante").c_str(), R"({"name": "Audio Dante"})");
    applied("A", "Audio Dante", {vlanJson(20, 1, "1")}, R"(, "ptp": true)");
    EXPECT_EQ(1u, logged("overriding ptpTc from 1 to PTP_CONFIG_NONE"));
    EXPECT_FALSE(has("ptp clock"));
    for (const bool on : {true, false}) {
        applied("B", "Audio AES67", {vlanJson(21, 1, "2")}, on ? R"(, "ptp": true)" : R"(, "ptp": false)");
        EXPECT_EQ(on, has("ptp clock e2e-transparent"));
    }
}

TEST_F(ApplyTest, ConfigurationFilesOfDetection) {
    const auto assigned = [](const char *ports) {
        return R"(, "assignedPort": [)" + std::string(ports) + "]";
    };
    const auto request = profileExFilePath(PROFILE_TYPE_NAME_AUDAC);
    applied("Audac", PROFILE_TYPE_NAME_AUDAC,
            {vlanJson(10, 2, "1", "9"), vlanJson(20, 3, "5, 7", "", assigned("3, 5"))});
    const JsonPtr audac(jsonFileLoad(kAudacConfig)), kept(jsonFileLoad(request.c_str()));
    ASSERT_NE(nullptr, audac);
    const TextPtr text(cJSON_PrintUnformatted(audac.get()));
    EXPECT_EQ(R"({"controlVlanID":10,"profileType":"AUDAC Audio and Control Network","controlUnTagPort":[1],)"
              R"("controlTagPort":[9],"audioVlanID":20,"profileType":"AUDAC Audio and Control Network",)"
              R"("audacDevicePort":[3,5,7],"audioTagPort":[]})",
              std::string(text.get()));
    EXPECT_TRUE(cJSON_HasObjectItem(kept.get(), "profileConfig")) << "the whole request is kept";
    removed("Audac");
    EXPECT_FALSE(exists(kAudacConfig));

    applied("Audac", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 1, "4")});
    EXPECT_NE(std::string::npos, readFile(kAudacConfig).find("\"audioVlanID\":\t30"))
        << "the first VLAN is the audio VLAN";
    EXPECT_FALSE(exists(request.c_str()));

    applied("Shure", PROFILE_TYPE_NAME_SHURE_SPLIT,
            {vlanJson(40, 2, "11", "", assigned("12")), vlanJson(41, 3, "13", "14", assigned("12"))});
    EXPECT_NE(std::string::npos, readFile(kShureConfig).find("\"audioTagPort\":\t[14]"));
}

TEST_F(ApplyTest, ForceOverwriteAndKramer) {
    char type[VLAN_INFO_TYPE_SIZE] = "";
    applied("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")}, R"(, "force": true)");
    vlanInfoSelectById(20, nullptr, nullptr, type, nullptr);
    EXPECT_STREQ("Default", type) << "802.1AS is not offered";
    removed("A");

    applied("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")});
    EXPECT_EQ(codeOf(ResultCode::AvbOneVlan), apply("B", PROFILE_TYPE_NAME_AVB, {vlanJson(21, 1, "2")}));
    applied("B", PROFILE_TYPE_NAME_AVB, {vlanJson(21, 1, "2")}, R"(, "overwrite": true)");
    EXPECT_EQ(0, vlanInfoSelectRowsById(20));
    EXPECT_FALSE(has("vlan pvid 20"));
    EXPECT_TRUE(has("vlan pvid 21"));

    applied("V", "Video", {vlanJson(50, 1, "9")});
    const auto onlyV = everything();
    applied("K", PROFILE_TYPE_NAME_KRAMER, {vlanJson(50, 7, "11"), vlanJson(51, 1, "10")});
    char owner[VLAN_INFO_NAME_SIZE] = "";
    vlanInfoSelectById(50, nullptr, owner, type, nullptr);
    EXPECT_STREQ("Video", type);
    EXPECT_STREQ("V", owner) << "a partner's VLAN stays with its profile";
    EXPECT_EQ(VlanId(50), state().interfaces["0/11"].pvid);
    EXPECT_EQ(VlanId(50), state().interfaces["0/9"].pvid);
    removed("K");
    EXPECT_EQ(onlyV, everything());
}

TEST_F(ApplyTest, ConflictsAreRefusedWithTheirCodes) {
    applied("Hall", "Data", {vlanJson(20, 1, "1")});
    applied("S", PROFILE_TYPE_NAME_SMPTE, {vlanJson(30, 1, "2")});
    applied("C", PROFILE_TYPE_NAME_SHURE_CONVERGED, {vlanJson(31, 1, "3")});
    const auto before = everything();
    const auto vlan = vlanJson(40, 1, "4");
    EXPECT_EQ(codeOf(ResultCode::NameInUse), apply("Hall", "Data", {vlan}));
    EXPECT_EQ(codeOf(ResultCode::SmpteOneVlan), apply("T", PROFILE_TYPE_NAME_SMPTE, {vlan}));
    EXPECT_EQ(codeOf(ResultCode::ShureOneVlan), apply("D", PROFILE_TYPE_NAME_SHURE_CONVERGED, {vlan}));
    EXPECT_EQ(codeOf(ResultCode::AvbOneVlan),
              apply("E", PROFILE_TYPE_NAME_MILAN, {vlan, vlanJson(41, 1, "")}));
    EXPECT_EQ(codeOf(ResultCode::NotExist), remove("nobody"));
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), remove("Default"));
    EXPECT_EQ(codeOf(ResultCode::InvalidArgument), profileDelete(&client, "{\"name\": 3}"));
    EXPECT_EQ(before, everything());
    startSwitch({.machineModel = "AVM1000-8"});
    EXPECT_EQ(codeOf(ResultCode::ProfileUnsupported), apply("T", PROFILE_TYPE_NAME_SMPTE, {vlan}));
}

// --- several profiles

TEST_F(ApplyTest, SharedBlocksGoWithTheLastProfileThatNeedsThem) {
    const auto before = config();
    applied("A", "Audio Dante", {vlanJson(20, 1, "1, 2")});
    const auto onlyA = config();
    applied("B", PROFILE_TYPE_NAME_TELOS, {vlanJson(30, 1, "3")});
    EXPECT_TRUE(has("CLASS_TELOS"));
    applied("C", "ETC Lighting", {vlanJson(40, 1, "4")});
    applied("D", PROFILE_TYPE_NAME_MILAN, {vlanJson(50, 1, "5")});
    removed("B");
    EXPECT_FALSE(has("CLASS_TELOS"));
    EXPECT_TRUE(has("CLASS_AUDIO1"));
    removed("D");
    removed("C");
    EXPECT_EQ(onlyA, config());
    removed("A");
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, ChangeInPlaceMovesPortsAndDropsVlans) {
    cli({"vlan database", "vlan 77", "vlan name 77 \"by hand\"", "end"});
    const auto before = config();
    applied("A", "Video", {vlanJson(20, 1, "1, 2", "9"), vlanJson(77, 2, "3")});
    applied("A", "Video", {vlanJson(20, 1, "2, 4", "10")});
    auto now = state();
    EXPECT_FALSE(now.interfaces.contains("0/1")) << "back in VLAN 1 with the default MTU";
    EXPECT_FALSE(now.interfaces.contains("0/9"));
    EXPECT_EQ(VlanId(20), now.interfaces["0/4"].pvid);
    EXPECT_TRUE(now.interfaces["0/10"].tagged.contains(VlanId(20)));
    EXPECT_EQ(9198u, now.interfaces["0/10"].mtu);
    EXPECT_EQ("by hand", now.vlans[VlanId(77)]) << "was there before the profile and stays";
    EXPECT_EQ(0, vlanInfoSelectRowsById(77));
    // A port moves between profiles when that is asked for, and comes back.
    EXPECT_EQ(codeOf(ResultCode::ObjectExists), apply("B", "Data", {vlanJson(30, 1, "4")}));
    applied("B", "Data", {vlanJson(30, 1, "4")}, R"(, "overwrite": true)");
    now = state();
    EXPECT_EQ(VlanId(30), now.interfaces["0/4"].pvid);
    EXPECT_EQ(0u, now.interfaces["0/4"].mtu);
    removed("B");
    EXPECT_EQ(VlanId(20), state().interfaces["0/4"].pvid);
    EXPECT_EQ(9198u, state().interfaces["0/4"].mtu);
    removed("A");
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, RoutingLagsAndLatency) {
    const auto before = config();
    setLatency(300ms);
    applied("A", "Data",
            {R"({"vlanId": 20, "vlanType": 1, "ports": {"untagged": [49], "tagged": [50]},)"
             R"( "routing": {"ipConfig": 3, "ipAddr": "10.0.20.1", "ipMask": "255.255.255.0"}})"});
    EXPECT_TRUE(has("interface lag 1\n") && has("ip address 10.0.20.1 255.255.255.0"));
    removed("A");
    EXPECT_EQ(before, config());
    applied("R", "Data",
            {R"({"vlanId": 21, "vlanType": 1, "routing": {"ipConfig": 2, "ipAddr": null}})",
             R"({"vlanId": 22, "vlanType": 1, "routing": null})"});
    EXPECT_TRUE(has("ip address dhcp"));
    for (const auto latency : {4500ms, 6000ms, 15000ms}) {
        const auto rest = config();
        setLatency(latency);
        const bool inTime = latency < 12s;
        EXPECT_EQ(inTime ? 0 : codeOf(ResultCode::Failed), apply("A", "Data", {vlanJson(20, 1, "1")}));
        platform::sleepFor(60s);
        if (inTime)
            removed("A");
        platform::sleepFor(60s);
        EXPECT_EQ(rest, config()) << "what came too late is taken back, too";
    }
    EXPECT_EQ(1u, logged("step 'vlanParticipationSet' failed"))
        << "the switch took too long, and that is said";
}

TEST_F(ApplyTest, AFourVlanProfileCostsFewCalls) {
    std::string list[4];
    for (std::size_t port = 1; port <= 48; ++port)
        list[port % 4] += (port < 5 ? "" : ", ") + std::to_string(port);
    device->with([](vswitch::Server &server) { server.resetCounts(); });
    applied("Big", "Audio Dante",
            {vlanJson(20, 1, list[0], list[1]), vlanJson(21, 1, list[1], list[2]),
             vlanJson(22, 1, list[2], list[3]), vlanJson(23, 1, list[3], list[0])});
    // One setter each: participation, tagging and PVID of every port and VLAN concerned.
    EXPECT_LE(5 * device->with([](vswitch::Server &s) { return s.callTotal(); }), 48u * 4 + 48 * 4 + 48);
}

TEST_F(ApplyTest, WhatWasThereBeforeComesBack) {
    cli({"vlan database", "vlan 77", "exit", "configure", "interface vlan 1", "routing",
         "ip address 10.0.0.1 255.255.255.0", "exit", "interface vlan 77", "routing",
         "ip address 10.0.77.1 255.255.255.0", "end"});
    const auto before = config();
    // Tagged in VLAN 1 and untagged elsewhere, in either order.
    applied("A", "Video", {vlanJson(1, 1, "", "9"), vlanJson(20, 1, "9")});
    auto now = state();
    EXPECT_TRUE(now.interfaces["0/9"].tagged.contains(VlanId(1)));
    EXPECT_EQ(VlanId(20), now.interfaces["0/9"].pvid);
    removed("A");
    EXPECT_EQ(before, config());

    applied("B", "Data", {vlanJson(77, 1, "3")});
    applied("B", "Data", {R"({"vlanId": 77, "vlanType": 1, "routing": {"ipConfig": 2}})"});
    removed("B");
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, VlansAndFilesChangedByHand) {
    cli({"vlan database", "vlan 77", "end"});
    applied("A", "Data", {vlanJson(77, 1, "3")});
    cli({"vlan database", "no vlan 77", "end"});
    removed("A");
    EXPECT_FALSE(has("vlan 77")) << "deleting a profile makes no VLAN";

    applied("B", "Data", {vlanJson(20, 1, "4")});
    writeText(vlanSettingsPath(VlanId(20)).c_str(), "by hand");
    applied("B", "Data", {vlanJson(20, 1, "5")});
    removed("B");
    EXPECT_FALSE(has("\"B\"")) << "a VLAN of ours goes, whatever its file says";

    cli({"vlan database", "vlan 78", "end"});
    ASSERT_EQ(0, profileVlansRemove(&client, {VlanId(78)}));
    EXPECT_TRUE(has("vlan 78"));
}

// --- faults

TEST_F(ApplyTest, AnyFailingCallLeavesNothingHalfApplied) {
    const auto old = requestJson("Old", "Audio Dante", {vlanJson(20, 1, "1, 2")});
    const auto request =
        requestJson("New", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 2, "2, 3", "9"), vlanJson(31, 3, "4", "9")},
                    R"(, "ptp": true, "overwrite": true)");
    // Port 2 moves from the old profile to the new one and back.
    for (const bool applying : {true, false}) {
        const auto reset = [&] {
            remove("New");
            EXPECT_EQ(0, apply(old));
            EXPECT_TRUE(applying || apply(request) == 0);
            return everything();
        };
        const auto act = [&] { return applying ? apply(request) : remove("New"); };
        const auto from = reset();
        ASSERT_EQ(0, act());
        const auto to = everything();
        bool struck = true;
        std::uint64_t n = 0;
        while (struck) {
            SCOPED_TRACE((applying ? "apply, call " : "delete, call ") + std::to_string(++n));
            ASSERT_EQ(from, reset());
            failCall("*", n);
            const auto result = act();
            struck = callsSeen() >= n;
            clearFaults();
            // A call whose failure does not matter leaves everything done; any other leaves nothing done.
            ASSERT_EQ(result == 0 ? to : from, everything()) << result;
        }
        EXPECT_GT(n, 5u);
    }
}

TEST_F(ApplyTest, ASwitchThatGoesAwayIsReported) {
    const auto request = requestJson("New", "Audio Dante", {vlanJson(30, 1, "2, 3")});
    const auto before = config();
    for (std::uint64_t n = 1;; ++n) {
        failCall("*", n, false, OPEN_E_RPC);
        const auto result = apply(request);
        const bool struck = callsSeen() >= n;
        clearFaults();
        if (!struck)
            break;
        if (result != 0 && config() != before)
            EXPECT_NE(std::string::npos, log().find("could not be taken back")) << n;
        remove("New");
        cli({"vlan database", "no vlan 30", "end"});
        ASSERT_EQ(0, apply(request)) << n;
        ASSERT_EQ(0, remove("New"));
        ASSERT_EQ(before, config()) << n;
    }
}

}  // namespace
