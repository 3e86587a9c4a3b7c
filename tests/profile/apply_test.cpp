// Profiles from request to switch and back.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "common/json.h"
#include "common/result.h"
#include "profile/configure.h"
#include "store/profile_db.h"
#include "store/profile_db_ops.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "store/vlan_settings.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace std::chrono_literals;
using namespace test_support;

// --- every type

class EveryTypeTest : public ApplyTest, public testing::WithParamInterface<ProfileType> {};

// One line at least of every block that comes with a type.
const std::map<std::string, std::string> kBlocks = {
    {"Sonos", "spanning-tree mst priority 0 28672"},
    {"ETC Lighting",
     "set igmp querier version 2\nset igmp querier timer expiry 180\nspanning-tree mode rstp\n"
     "set igmp querier election participate 20\nset igmp maxresponse 20 10"},
    {"DICENTIS Conference system", "spanning-tree mode rapid-pvst\nspanning-tree vlan 20 max-age 22"},
    {PROFILE_TYPE_NAME_LIGHTWARE, "set igmp groupmembership-interval 20 260\nset igmp mcrtrexpiretime 20 0"},
    {PROFILE_TYPE_NAME_UNITE, "set igmp fast-leave 20\nip igmp snooping querier query-interval 20"},
    {PROFILE_TYPE_NAME_POLY, "set igmp proxy-querier 20\nset mld proxy-querier 20"},
    {PROFILE_TYPE_NAME_AVB,
     "dot1as\nno mvrp include factory-default-vlan\nmsrp\nmmrp periodic state machine"},
    {"Audio Dante",
     "igmp-plus 20\nipv6 mld snooping\nset mld 20\npolicy-map POLICY_AV in\nclass CLASS_PTP1\n"
     "match dstip 224.0.1.130 255.255.255.254\nmatch srcl4port 4443\nclass CLASS_LANTERN2\n"
     "assign-queue 6\nservice-policy in POLICY_AV\nqueue cos-map all 7 6"},
    {PROFILE_TYPE_NAME_MILAN_DANTE, "class CLASS_AUDIO1"},
    {PROFILE_TYPE_NAME_TELOS, "class CLASS_TELOS"},
    {PROFILE_TYPE_NAME_GD, "class CLASS_GD_COM"},
};

TEST_P(EveryTypeTest, AppliedListedChangedInPlaceAndDeletedWithoutATrace) {
    const std::string type = GetParam().name;
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
    if (const auto blocks = kBlocks.find(type); blocks != kBlocks.end())
        expectConfigured(blocks->second);
    EXPECT_FALSE(type == PROFILE_TYPE_NAME_MILAN_DANTE && has("CLASS_PTP"));
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

TEST_F(ApplyTest, FiltersGoWithTheLastProfileThatHasThem) {
    const auto addFilters = [&] {
        enter("configure; ip access-list NET-BLOCK; exit; mac access-list extended visionaryNwAV; end");
    };
    addFilters();
    const std::string harman = "HARMAN Professional AV Network";
    for (const auto &[type, role] : {std::pair(harman, 2), {PROFILE_TYPE_NAME_GD, 1}, {harman, 3}}) {
        applied("A", type, {vlanJson(20, role, "1")});
        removed("A");
    }
    EXPECT_TRUE(has("NET-BLOCK") && has("visionaryNwAV")) << "they were there before the profiles";
    enter("configure; no ip access-list NET-BLOCK; no mac access-list extended visionaryNwAV; end");
    applied("A", harman, {vlanJson(20, 3, "1")});
    applied("B", "Visionary Advanced Multi-Domain", {vlanJson(30, 1, "2")});
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
    const auto text = requestJson("B", "Data", {vlanJson(30, 1, "2")});
    const std::pair<std::string, std::function<std::int32_t()>> operations[] = {
        {"profileConfigSet", [&] { return apply(text); }},
        {"profileVlanAdd", [&] { return profileVlanAdd(&client, parseProfileConfig(text)->request, 0); }},
        {"profileVlansRemove", [&] { return profileVlansRemove(&client, {VlanId(20)}); }},
        {"profileDelete", [&] { return remove("A"); }}};
    for (const auto &[name, run] : operations) {
        EXPECT_EQ(codeOf(ResultCode::Failed), run());
        const auto lines = log().substr(log().rfind("[" + name + ":"));
        EXPECT_EQ(1u, occurrences(lines, "] cannot lock ")) << lines;
    }
    EXPECT_EQ(std::size(operations), logged("] cannot lock "));
    EXPECT_EQ(before, everything());
    EXPECT_EQ("cannot lock " + lock, configureProfile(&client, "{}").error().reason);
}

// --- the request

TEST_F(ApplyTest, MalformedRequestsChangeNothing) {
    const auto before = everything();
    const std::string good = requestJson("Hall", "Data", {vlanJson(20, 1, "1")});
    ASSERT_EQ(codeOf(ResultCode::InvalidArgument), profileConfigSet(&client, nullptr));
    // A type is no path, though its VLANs have good ones.
    const auto path =
        requestJson("Hall", "../../../escaped", {R"({"profileType": "Data", "vlanId": 20, "vlanType": 1})"});
    for (const auto &text : {std::string(5000, '['), good.substr(0, good.size() / 2), path,
                             requestJson("Hall", "Data", {vlanJson(20, 1, "1"), vlanJson(21, 1, "1")})})
        EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply(text)) << text.substr(0, 250);
    EXPECT_EQ(before, everything());
    EXPECT_FALSE(exists("/escaped"));
}

TEST_F(ApplyTest, NamesCannotDoMoreThanName) {
    const auto before = everything();
    for (const auto *name : {"a\\\"b", "a\\nno vlan 1", "a\\\\b", "\\u0007", "\xff\xfe", "\xe2\x82"})
        EXPECT_EQ(codeOf(ResultCode::InvalidArgument), apply(name, "Data", {vlanJson(20, 1, "1")})) << name;
    const std::string notes = "Bühne links ♪ und rechts ♪ und oben";
    for (const auto &name : {std::string("O'Brien; drop table vlanInfo"), std::string("../../x"),
                             std::string(10000, 'x'), notes}) {
        applied(name, "Data", {vlanJson(20, 1, "1")});
        EXPECT_EQ(name.substr(0, 255), (*readProfileRow(20))->profileName);
        removed(name);
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

TEST_F(ApplyTest, ForceOverwriteAndKramer) {
    applied("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")}, R"(, "force": true)");
    EXPECT_EQ("Default", (*readProfileRow(20))->profileType) << "802.1AS is not offered";
    removed("A");
    applied("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")});
    applied("B", PROFILE_TYPE_NAME_AVB, {vlanJson(21, 1, "2")}, R"(, "overwrite": true)");
    EXPECT_TRUE(has("vlan pvid 21") && !has("vlan pvid 20") && vlanInfoSelectRowsById(20) == 0);

    applied("V", "Video", {vlanJson(50, 1, "9")});
    const auto onlyV = everything();
    applied("K", PROFILE_TYPE_NAME_KRAMER, {vlanJson(50, 7, "11"), vlanJson(51, 1, "10")});
    EXPECT_EQ("V", (*readProfileRow(50))->profileName) << "a partner's VLAN stays with its profile";
    for (const auto *port : {"0/9", "0/11"})
        EXPECT_EQ(VlanId(50), state().interfaces[port].pvid);
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
    applied("A", "Audio Dante", {vlanJson(20, 1, "1, 2")});
    const auto onlyA = config();
    applied("B", PROFILE_TYPE_NAME_TELOS, {vlanJson(30, 1, "3")});
    applied("D", PROFILE_TYPE_NAME_MILAN, {vlanJson(50, 1, "5")});
    EXPECT_TRUE(has("CLASS_TELOS"));
    removed("B");
    EXPECT_TRUE(!has("CLASS_TELOS") && has("CLASS_AUDIO1"));
    removed("D");
    EXPECT_EQ(onlyA, config());
}

TEST_F(ApplyTest, ChangeInPlaceMovesPortsAndDropsVlans) {
    enter("vlan database; vlan 77; vlan name 77 \"by hand\"; end");
    const auto before = config();
    applied("A", "Video", {vlanJson(20, 1, "1, 2", "9"), vlanJson(77, 2, "3")});
    applied("A", "Video", {vlanJson(20, 1, "2, 4", "10")});
    auto now = state();
    EXPECT_FALSE(now.interfaces.contains("0/1") || now.interfaces.contains("0/9"))
        << "back in VLAN 1 with the default MTU";
    EXPECT_EQ(VlanId(20), now.interfaces["0/4"].pvid);
    EXPECT_TRUE(now.interfaces["0/10"].tagged.contains(VlanId(20)));
    EXPECT_EQ(9198u, now.interfaces["0/10"].mtu);
    EXPECT_EQ("by hand", now.vlans[VlanId(77)]) << "was there before the profile and stays";
    EXPECT_EQ(0, vlanInfoSelectRowsById(77));
    // A port that moves between profiles has the MTU of the one that it is with.
    applied("B", "Data", {vlanJson(30, 1, "4")}, R"(, "overwrite": true)");
    now = state();
    EXPECT_EQ(VlanId(30), now.interfaces["0/4"].pvid);
    EXPECT_EQ(0u, now.interfaces["0/4"].mtu);
    removed("B");
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

TEST_F(ApplyTest, VlansAndFilesChangedByHand) {
    enter("vlan database; vlan 77; vlan 78; end");
    applied("A", "Data", {vlanJson(77, 1, "3")});
    enter("vlan database; no vlan 77; end");
    removed("A");
    EXPECT_FALSE(has("vlan 77")) << "deleting a profile makes no VLAN";
    ASSERT_EQ(0, profileVlansRemove(&client, {VlanId(78)}));
    EXPECT_TRUE(has("vlan 78"));

    applied("B", "Data", {vlanJson(20, 1, "4")});
    writeText(vlanSettingsPath(VlanId(20)).c_str(), "by hand");
    applied("B", "Data", {vlanJson(20, 1, "5")});
    removed("B");
    EXPECT_FALSE(has("\"B\"")) << "a VLAN of ours goes, whatever its file says";
}

TEST_F(ApplyTest, ASwitchThatGoesAwayIsReported) {
    const auto request = requestJson("New", "Audio Dante", {vlanJson(30, 1, "2, 3")});
    const auto before = config();
    const auto check = [&](std::int32_t result, std::uint64_t n) {
        if (result != 0 && config() != before)
            EXPECT_NE(std::string::npos, log().find("could not be taken back")) << n;
        remove("New");
        cli({"vlan database", "no vlan 30", "end"});
        ASSERT_EQ(0, apply(request)) << n;
        ASSERT_EQ(0, remove("New"));
        ASSERT_EQ(before, config()) << n;
    };
    failEach("*", [&] { return apply(request); }, check, false, OPEN_E_RPC);
}

}  // namespace
