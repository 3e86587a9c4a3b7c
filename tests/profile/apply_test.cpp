// Profiles from request to switch and back.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "common/owners.h"
#include "common/result.h"
#include "profile/apply.h"
#include "profile/request.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using platform::paths::kAudacConfig;
using platform::paths::kShureConfig;
using test_support::exists;
using test_support::readFile;
using test_support::SwitchTest;
using test_support::writeText;

std::string vlanJson(int id, int role, const std::string &untagged, const std::string &tagged = "",
                     const std::string &more = "") {
    return R"({"vlanId": )" + std::to_string(id) + R"(, "vlanType": )" + std::to_string(role) +
           R"(, "ports": {"untagged": [)" + untagged + R"(], "tagged": [)" + tagged + "]" + more + "}}";
}

std::string requestJson(const std::string &name, const std::string &type,
                        const std::vector<std::string> &vlans, const std::string &more = "") {
    std::string list;
    for (const auto &vlan : vlans)
        list += (list.empty() ? "" : ", ") + vlan;
    return R"({"profileConfig": {"name": ")" + name + R"(", "color": "#081855", "profileType": ")" + type +
           R"(", "vlanNum": )" + std::to_string(vlans.size()) + R"(, "vlans": [)" + list + "]" + more + "}}";
}

class ApplyTest : public SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        const fs::path templates = platform::fsPath(platform::paths::kProfileTemplateDir);
        fs::create_directories(templates);
        fs::copy(fs::path(PAVO_DATA_DIR) / "profileTemplate", templates, fs::copy_options::recursive);
        ASSERT_EQ(0, vlanInfoTableCreate());
    }

    // The configuration as commands, without the comment lines that hold times.
    std::string config() {
        std::istringstream in(show("show running-config"));
        std::string out;
        for (std::string line; std::getline(in, line);)
            if (!line.starts_with('!'))
                out += line + "\n";
        return out;
    }

    // Everything a request may change: switch, database, files.
    std::string everything() {
        std::ostringstream out;
        out << config();
        std::unique_ptr<VlanInfoRowList, void (*)(VlanInfoRowList *)> list(vlanInfoRowListCreate(),
                                                                           vlanInfoRowListFree);
        vlanInfoSelectAll(list.get());
        vlanInfoRowListSort(list.get());
        for (int i = 0; i < list->count; ++i) {
            const auto &row = list->rows[i];
            out << row.id << '|' << row.vlanType << '|' << row.profileName << '|' << row.profileType << '|'
                << row.color << '\n';
        }
        for (const auto *folder : {platform::paths::kVlanProfileConfigDir, platform::paths::kPavoExDir})
            if (const fs::path path = platform::fsPath(folder); fs::exists(path))
                for (const auto &entry : fs::directory_iterator(path))
                    out << entry.path().filename() << '\n';
        for (const auto *file : {kAudacConfig, kShureConfig})
            out << file << ": " << (exists(file) ? readFile(file) : "none") << '\n';
        return out.str();
    }

    std::int32_t apply(const std::string &request) { return profileConfigSet(&client, request.c_str()); }
    std::int32_t remove(const std::string &name) {
        return profileDelete(&client, (R"({"name": ")" + name + R"("})").c_str());
    }
    std::uint64_t unknownCommands() {
        return device->with([](vswitch::Server &server) { return server.cli().unknownCommands(); });
    }
    std::uint64_t scripts() { return callCount("rpcclt_openapiTxtCfgApply"); }
    void setLatency(int milliseconds) {
        device->with([&](vswitch::Server &server) {
            server.model().setLatency(std::chrono::milliseconds(milliseconds));
        });
    }
};

// --- every type
// ---------------------------------------------------------------------------------------------------

class EveryTypeTest : public ApplyTest, public testing::WithParamInterface<const char *> {};

TEST_P(EveryTypeTest, AppliedListedChangedInPlaceAndDeletedWithoutATrace) {
    const std::string type = GetParam();
    cli({"configure", "interface 0/40", "description \"not ours\"", "mtu 2000", "end"});
    const auto before = config();
    const bool single = type.find("AVB") != std::string::npos || type.find("SMPTE") != std::string::npos ||
                        type == PROFILE_TYPE_NAME_SHURE_CONVERGED;
    std::vector<std::string> vlans = {vlanJson(20, 2, "1, 2, 3", "48")};
    if (!single)
        vlans.push_back(vlanJson(30, 3, "5, 6", "48", R"(, "assignedPort": [5, 7])"));
    const auto request = requestJson("Hall", type, vlans, R"(, "ptp": true)");

    ASSERT_EQ(RESULT_SUCCESS, apply(request)) << log();
    const auto applied = config();
    EXPECT_NE(before, applied);
    EXPECT_NE(std::string::npos, applied.find("vlan name 20 \"Hall\""));
    EXPECT_NE(std::string::npos, applied.find("vlan pvid 20"));
    std::int32_t mtu = 0;
    profileTypeMtuGet(type.c_str(), &mtu);
    EXPECT_EQ(mtu != 0,
              applied.find("interface 0/2\nmtu " + std::to_string(mtu)) != std::string::npos ||
                  (mtu != 0 && applied.find("mtu " + std::to_string(mtu) + "\n") != std::string::npos));

    char *text = nullptr;
    ASSERT_EQ(RESULT_SUCCESS, profileListExGet(&client, &text));
    const TextPtr list(text);
    EXPECT_NE(std::string::npos, std::string(list.get()).find("\"name\":\t\"Hall\""));
    EXPECT_NE(std::string::npos, std::string(list.get()).find("\"profileType\":\t\"" + type + "\""));

    const auto scriptsBefore = scripts();
    ASSERT_EQ(RESULT_SUCCESS, apply(request)) << log();
    EXPECT_EQ(applied, config());
    EXPECT_EQ(scriptsBefore, scripts()) << "a second apply touches nothing that stays the same";

    ASSERT_EQ(RESULT_SUCCESS, remove("Hall")) << log();
    EXPECT_EQ(before, config());
    EXPECT_EQ(0u, unknownCommands());
    EXPECT_EQ(0, vlanInfoSelectRowsById(20));
    EXPECT_FALSE(exists(profileVlanConfigPath(20).c_str()));
    EXPECT_FALSE(exists(kAudacConfig));
    EXPECT_FALSE(exists(kShureConfig));
    EXPECT_TRUE(fs::is_empty(platform::fsPath(platform::paths::kScriptDir))) << "no script is left behind";
}

std::vector<const char *> allTypes() {
    std::vector<const char *> names;
    for (const auto &entry : profileTypeTable())
        names.push_back(entry.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(Types, EveryTypeTest, testing::ValuesIn(allTypes()),
                         [](const testing::TestParamInfo<const char *> &param) {
                             std::string name = std::to_string(param.index) + "_";
                             for (const char *c = param.param; *c != 0; ++c)
                                 name += std::isalnum(static_cast<unsigned char>(*c)) ? *c : '_';
                             return name;
                         });

// --- the request
// --------------------------------------------------------------------------------------------------

TEST_F(ApplyTest, MalformedRequestsChangeNothing) {
    const auto before = everything();
    const std::string deep(5000, '[');
    const std::string good = requestJson("Hall", "Data", {vlanJson(20, 1, "1")});
    ASSERT_EQ(RESULT_INVALID_ARGUMENT, profileConfigSet(&client, nullptr));
    for (const std::string &text :
         std::vector<std::string>{"", "nonsense", "{}", "[]", "{\"profileConfig\": 3}", deep,
                                  good.substr(0, good.size() / 2), std::string(2 << 20, ' ')})
        EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(text)) << text.substr(0, 60);

    // Each key missing, null, of another type, huge, negative, fractional.
    for (const auto *key :
         {"\"name\": \"Hall\"", "\"color\": \"#081855\"", "\"profileType\": \"Data\"", "\"vlanNum\": 1"})
        for (const auto *value : {"\"x\": 1", "null", "[1]", "{}", "true"}) {
            auto text = good;
            const std::string whole = key, named = whole.substr(0, whole.find(':') + 2);
            text.replace(text.find(whole), whole.size(),
                         std::string(value).starts_with("\"x\"") ? value : named + value);
            EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(text)) << text;
        }
    for (const auto *id : {"0", "-1", "4095", "1e9", "1e300", "20.5", "null", "\"20\"", "[]"}) {
        auto text = good;
        text.replace(text.find("\"vlanId\": 20"), 12, std::string("\"vlanId\": ") + id);
        EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(text)) << id;
    }
    for (const auto *port : {"0", "-1", "73", "1e9", "1.5", "\"1\"", "null", "1, 1"}) {
        EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(requestJson("Hall", "Data", {vlanJson(20, 1, port)})))
            << port;
    }
    std::string ports = "1";
    for (int i = 0; i < 1000; ++i)
        ports += ", 1";
    const std::vector<std::pair<const char *, std::string>> cases = {
        {"too many ports", requestJson("Hall", "Data", {vlanJson(20, 1, "", ports)})},
        {"a port untagged in two VLANs",
         requestJson("Hall", "Data", {vlanJson(20, 1, "1"), vlanJson(21, 1, "1")})},
        {"tagged and untagged", requestJson("Hall", "Data", {vlanJson(20, 1, "1", "1")})},
        {"a VLAN twice", requestJson("Hall", "Data", {vlanJson(20, 1, "1"), vlanJson(20, 1, "2")})},
        {"no VLAN", requestJson("Hall", "Data", {})},
        {"five VLANs", requestJson("Hall", "Data",
                                   {vlanJson(20, 1, ""), vlanJson(21, 1, ""), vlanJson(22, 1, ""),
                                    vlanJson(23, 1, ""), vlanJson(24, 1, "")})},
        {"unknown type", requestJson("Hall", "../../etc/passwd", {vlanJson(20, 1, "1")})},
        {"address",
         requestJson("Hall", "Data",
                     {R"({"vlanId": 20, "vlanType": 1, "routing": {"ipConfig": 3, "ipAddr": "1.2.3\nexit",)"
                      R"( "ipMask": "255.0.0.0"}})"})}};
    for (const auto &[what, text] : cases)
        EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(text)) << what;
    EXPECT_EQ(before, everything());
}

TEST_F(ApplyTest, NamesCannotDoMoreThanName) {
    const auto before = everything();
    for (const auto *name :
         {"", "a\\\"b", "a\\nno vlan 1", "a\\\\b", "\\u0007", "\xff\xfe", "\xc3", "\xe2\x82"})
        EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(requestJson(name, "Data", {vlanJson(20, 1, "1")}))) << name;
    EXPECT_EQ(before, everything());
    for (const std::string &name :
         std::vector<std::string>{"O'Brien; drop table vlanInfo", "../../x", "a/b", "?",
                                  std::string(10000, 'x'), "Bühne links ♪ und rechts ♪ und oben"}) {
        ASSERT_EQ(RESULT_SUCCESS, apply(requestJson(name, "Data", {vlanJson(20, 1, "1")}))) << name;
        char stored[VLAN_INFO_NAME_SIZE] = "";
        ASSERT_EQ(1, vlanInfoSelectById(20, nullptr, stored, nullptr, nullptr));
        EXPECT_EQ(name.substr(0, 255), stored);
        ASSERT_EQ(RESULT_SUCCESS, remove(stored));
    }
    EXPECT_EQ(before, everything());
    EXPECT_EQ(0u, unknownCommands());
}

TEST_F(ApplyTest, PtpComesFromTheTemplate) {
    writeText(profileTemplatePath("Audio Dante").c_str(), R"({"name": "Audio Dante"})");
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("A", "Audio Dante", {vlanJson(20, 1, "1")}, R"(, "ptp": true)")));
    EXPECT_EQ(1u, logged("overriding ptpTc from 1 to PTP_CONFIG_NONE"));
    EXPECT_EQ(std::string::npos, config().find("ptp clock"));
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("B", "Audio AES67", {vlanJson(21, 1, "2")}, R"(, "ptp": true)")));
    EXPECT_NE(std::string::npos, config().find("ptp clock e2e-transparent"));
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("B", "Audio AES67", {vlanJson(21, 1, "2")}, R"(, "ptp": false)")));
    EXPECT_EQ(std::string::npos, config().find("ptp clock e2e-transparent"));
}

TEST_F(ApplyTest, ConfigurationFilesOfDetection) {
    const auto assigned = [](const char *ports) {
        return R"(, "assignedPort": [)" + std::string(ports) + "]";
    };
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("Audac", PROFILE_TYPE_NAME_AUDAC,
                                {vlanJson(10, 2, "1", "9"), vlanJson(20, 3, "5, 7", "", assigned("3, 5"))})));
    const JsonPtr audac(jsonFileLoad(kAudacConfig));
    ASSERT_NE(nullptr, audac);
    const TextPtr text(cJSON_PrintUnformatted(audac.get()));
    EXPECT_EQ(R"({"controlVlanID":10,"profileType":"AUDAC Audio and Control Network","controlUnTagPort":[1],)"
              R"("controlTagPort":[9],"audioVlanID":20,"profileType":"AUDAC Audio and Control Network",)"
              R"("audacDevicePort":[3,5,7],"audioTagPort":[]})",
              std::string(text.get()));
    EXPECT_TRUE(exists(profileExFilePath(PROFILE_TYPE_NAME_AUDAC).c_str()));
    ASSERT_EQ(RESULT_SUCCESS, remove("Audac"));
    EXPECT_FALSE(exists(kAudacConfig));

    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("Audac", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 1, "4")})));
    EXPECT_NE(std::string::npos, readFile(kAudacConfig).find("\"audioVlanID\":\t30"))
        << "the first VLAN is the audio VLAN";
    EXPECT_FALSE(exists(profileExFilePath(PROFILE_TYPE_NAME_AUDAC).c_str()));

    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("Shure", PROFILE_TYPE_NAME_SHURE_SPLIT,
                                                {vlanJson(40, 2, "11", "", assigned("12")),
                                                 vlanJson(41, 3, "13", "14", assigned("12"))})));
    EXPECT_NE(std::string::npos, readFile(kShureConfig).find("\"audioTagPort\":\t[14]"));
}

TEST_F(ApplyTest, ForceOverwriteAndKramer) {
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")}, R"(, "force": true)")));
    char type[VLAN_INFO_TYPE_SIZE] = "";
    vlanInfoSelectById(20, nullptr, nullptr, type, nullptr);
    EXPECT_STREQ("Default", type) << "802.1AS is not offered";
    ASSERT_EQ(RESULT_SUCCESS, remove("A"));

    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("A", PROFILE_TYPE_NAME_AVB, {vlanJson(20, 1, "1")})));
    EXPECT_EQ(RESULT_AVB_ONE_VLAN, apply(requestJson("B", PROFILE_TYPE_NAME_AVB, {vlanJson(21, 1, "2")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", PROFILE_TYPE_NAME_AVB, {vlanJson(21, 1, "2")},
                                                R"(, "overwrite": true)")))
        << log();
    EXPECT_EQ(0, vlanInfoSelectRowsById(20));
    EXPECT_EQ(std::string::npos, config().find("vlan pvid 20"));
    EXPECT_NE(std::string::npos, config().find("vlan pvid 21"));

    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("V", "Video", {vlanJson(50, 1, "9")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("K", PROFILE_TYPE_NAME_KRAMER,
                                                {vlanJson(50, 7, "9"), vlanJson(51, 1, "10")})));
    vlanInfoSelectById(50, nullptr, nullptr, type, nullptr);
    EXPECT_STREQ("Video", type);
}

TEST_F(ApplyTest, ConflictsAreRefusedWithTheirCodes) {
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("Hall", "Data", {vlanJson(20, 1, "1")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("S", PROFILE_TYPE_NAME_SMPTE, {vlanJson(30, 1, "2")})));
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("C", PROFILE_TYPE_NAME_SHURE_CONVERGED, {vlanJson(31, 1, "3")})));
    const auto before = everything();
    EXPECT_EQ(RESULT_NAME_IN_USE, apply(requestJson("Hall", "Data", {vlanJson(21, 1, "4")})));
    EXPECT_EQ(RESULT_SMPTE_ONE_VLAN,
              apply(requestJson("T", PROFILE_TYPE_NAME_SMPTE, {vlanJson(32, 1, "4")})));
    EXPECT_EQ(RESULT_SHURE_ONE_VLAN,
              apply(requestJson("D", PROFILE_TYPE_NAME_SHURE_CONVERGED, {vlanJson(33, 1, "4")})));
    EXPECT_EQ(RESULT_AVB_ONE_VLAN,
              apply(requestJson("E", PROFILE_TYPE_NAME_MILAN, {vlanJson(34, 1, "4"), vlanJson(35, 1, "")})));
    EXPECT_EQ(RESULT_NOT_EXIST, remove("nobody"));
    EXPECT_EQ(RESULT_INVALID_ARGUMENT, remove("Default"));
    EXPECT_EQ(RESULT_INVALID_ARGUMENT, profileDelete(&client, "{\"name\": 3}"));
    EXPECT_EQ(before, everything());

    vswitch::ModelConfig config;
    config.machineModel = "AVM1000-8";
    startSwitch(config);
    EXPECT_EQ(RESULT_PROFILE_UNSUPPORTED,
              apply(requestJson("T", PROFILE_TYPE_NAME_SMPTE, {vlanJson(32, 1, "4")})));
}

// --- several profiles
// ---------------------------------------------------------------------------------------------

TEST_F(ApplyTest, SharedBlocksGoWithTheLastProfileThatNeedsThem) {
    const auto before = config();
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("A", "Audio Dante", {vlanJson(20, 1, "1, 2")})));
    const auto onlyA = config();
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", PROFILE_TYPE_NAME_TELOS, {vlanJson(30, 1, "3")})));
    EXPECT_NE(std::string::npos, config().find("CLASS_TELOS"));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("C", "ETC Lighting", {vlanJson(40, 1, "4")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("D", PROFILE_TYPE_NAME_MILAN, {vlanJson(50, 1, "5")})));
    ASSERT_EQ(RESULT_SUCCESS, remove("B"));
    EXPECT_EQ(std::string::npos, config().find("CLASS_TELOS"));
    EXPECT_NE(std::string::npos, config().find("CLASS_AUDIO1"));
    ASSERT_EQ(RESULT_SUCCESS, remove("D"));
    ASSERT_EQ(RESULT_SUCCESS, remove("C"));
    EXPECT_EQ(onlyA, config());
    ASSERT_EQ(RESULT_SUCCESS, remove("A"));
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, ChangeInPlaceMovesPortsAndDropsVlans) {
    cli({"vlan database", "vlan 77", "vlan name 77 \"by hand\"", "end"});
    const auto before = config();
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("A", "Video", {vlanJson(20, 1, "1, 2", "9"), vlanJson(77, 2, "3")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("A", "Video", {vlanJson(20, 1, "2, 4", "10")})));
    SwitchState state;
    ASSERT_EQ(RESULT_SUCCESS, switchStateRead(&client, &state));
    EXPECT_FALSE(state.interfaces.contains("0/1")) << "back in VLAN 1 with the default MTU";
    EXPECT_FALSE(state.interfaces.contains("0/9"));
    EXPECT_EQ(20u, state.interfaces["0/4"].pvid);
    EXPECT_TRUE(state.interfaces["0/10"].tagged.contains(20));
    EXPECT_EQ(9198u, state.interfaces["0/10"].mtu);
    EXPECT_EQ("by hand", state.vlans[77]) << "was there before the profile and stays";
    EXPECT_EQ(0, vlanInfoSelectRowsById(77));
    // A port may move between profiles.
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", "Data", {vlanJson(30, 1, "4")})));
    ASSERT_EQ(RESULT_SUCCESS, switchStateRead(&client, &state));
    EXPECT_EQ(30u, state.interfaces["0/4"].pvid);
    EXPECT_EQ(0u, state.interfaces["0/4"].mtu);
    ASSERT_EQ(RESULT_SUCCESS, remove("A"));
    ASSERT_EQ(RESULT_SUCCESS, remove("B"));
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, RoutingLagsAndLatency) {
    const auto before = config();
    setLatency(300);
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson(
                  "A", "Data",
                  {R"({"vlanId": 20, "vlanType": 1, "ports": {"untagged": [49], "tagged": [50]},)"
                   R"( "routing": {"ipConfig": 3, "ipAddr": "10.0.20.1", "ipMask": "255.255.255.0"}})"})))
        << log();
    EXPECT_NE(std::string::npos, config().find("interface lag 1\n"));
    EXPECT_NE(std::string::npos, config().find("ip address 10.0.20.1 255.255.255.0"));
    ASSERT_EQ(RESULT_SUCCESS, remove("A")) << log();
    EXPECT_EQ(before, config());
    setLatency(5000);
    EXPECT_EQ(RESULT_FAILED, apply(requestJson("A", "Data", {vlanJson(20, 1, "1")})));
    EXPECT_EQ(1u, logged("step 'vlanParticipationSet' failed"))
        << "the switch took too long, and that is said";
}

TEST_F(ApplyTest, AFourVlanProfileCostsFewCalls) {
    std::string list[4];
    for (int port = 1; port <= 48; ++port)
        for (int vlan = 0; vlan < 4; ++vlan)
            if (port % 4 == vlan)
                list[vlan] += (list[vlan].empty() ? "" : ", ") + std::to_string(port);
    std::vector<std::string> vlans;
    for (int vlan = 0; vlan < 4; ++vlan)
        vlans.push_back(vlanJson(20 + vlan, 1, list[vlan], list[(vlan + 1) % 4]));
    device->with([](vswitch::Server &server) { server.resetCounts(); });
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("Big", "Audio Dante", vlans))) << log();
    const auto calls = device->with([](vswitch::Server &server) { return server.callTotal(); });
    // One setter each: participation, tagging and PVID of every port and VLAN concerned.
    constexpr std::uint64_t kOneByOne = 48 * 4 + 48 * 4 + 48;
    EXPECT_LE(5 * calls, kOneByOne) << calls << " calls";
}

TEST_F(ApplyTest, TheWholeRequestIsKeptAndATypeIsNoPath) {
    ASSERT_EQ(
        RESULT_SUCCESS,
        apply(requestJson("T", PROFILE_TYPE_NAME_TELOS,
                          {vlanJson(20, 2, "1", "", R"(, "assignedPort": [7])"), vlanJson(21, 3, "")})));
    const JsonPtr kept(jsonFileLoad(profileExFilePath(PROFILE_TYPE_NAME_TELOS).c_str()));
    EXPECT_TRUE(cJSON_HasObjectItem(kept.get(), "profileConfig")) << "detection looks for it there";

    const auto before = everything();
    const std::string typed = R"({"vlanId": 30, "vlanType": 1, "profileType": "Data"})";
    const std::string other = R"({"vlanId": 31, "vlanType": 1, "profileType": "Data"})";
    EXPECT_EQ(RESULT_INVALID_ARGUMENT, apply(requestJson("X", "../../../escaped", {typed, other})));
    EXPECT_FALSE(exists("/escaped"));
    EXPECT_EQ(before, everything());
}

TEST_F(ApplyTest, HonestOddRequestsAreTaken) {
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("VLAN0020", "Data", {vlanJson(20, 1, "1")})))
        << "a name that the running configuration leaves out";
    ASSERT_EQ(
        RESULT_SUCCESS,
        apply(requestJson("R", "Data",
                          {R"({"vlanId": 21, "vlanType": 1, "routing": {"ipConfig": 2, "ipAddr": null}})",
                           R"({"vlanId": 22, "vlanType": 1, "routing": null})"})));
    EXPECT_NE(std::string::npos, config().find("ip address dhcp"));
}

TEST_F(ApplyTest, WhatWasThereBeforeComesBack) {
    cli({"vlan database", "vlan 77", "exit", "configure", "interface vlan 1", "routing",
         "ip address 10.0.0.1 255.255.255.0", "exit", "interface vlan 77", "routing",
         "ip address 10.0.77.1 255.255.255.0", "end"});
    const auto before = config();
    // Tagged in VLAN 1 and untagged elsewhere, in either order.
    ASSERT_EQ(RESULT_SUCCESS,
              apply(requestJson("A", "Video", {vlanJson(1, 1, "", "9"), vlanJson(20, 1, "9")})));
    SwitchState state;
    ASSERT_EQ(RESULT_SUCCESS, switchStateRead(&client, &state));
    EXPECT_TRUE(state.interfaces["0/9"].tagged.contains(1));
    EXPECT_EQ(20u, state.interfaces["0/9"].pvid);
    ASSERT_EQ(RESULT_SUCCESS, remove("A"));
    EXPECT_EQ(before, config());

    const std::string routed = R"({"vlanId": 77, "vlanType": 1, "routing": {"ipConfig": 2}})";
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", "Data", {vlanJson(77, 1, "3")})));
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", "Data", {routed})));
    ASSERT_EQ(RESULT_SUCCESS, remove("B"));
    EXPECT_EQ(before, config());
}

TEST_F(ApplyTest, VlansAndFilesChangedByHand) {
    cli({"vlan database", "vlan 77", "end"});
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("A", "Data", {vlanJson(77, 1, "3")})));
    cli({"vlan database", "no vlan 77", "end"});
    ASSERT_EQ(RESULT_SUCCESS, remove("A"));
    EXPECT_EQ(std::string::npos, config().find("vlan 77")) << "deleting a profile makes no VLAN";

    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", "Data", {vlanJson(20, 1, "4")})));
    writeText(profileVlanConfigPath(20).c_str(), "by hand");
    ASSERT_EQ(RESULT_SUCCESS, apply(requestJson("B", "Data", {vlanJson(20, 1, "5")})));
    ASSERT_EQ(RESULT_SUCCESS, remove("B"));
    EXPECT_EQ(std::string::npos, config().find("\"B\"")) << "a VLAN of ours goes, whatever its file says";

    cli({"vlan database", "vlan 78", "end"});
    ASSERT_EQ(RESULT_SUCCESS, profileVlansRemove(&client, {78}));
    EXPECT_NE(std::string::npos, config().find("vlan 78"));
}

// --- faults
// -------------------------------------------------------------------------------------------------------

TEST_F(ApplyTest, AnyFailingCallLeavesNothingHalfApplied) {
    const auto old = requestJson("Old", "Audio Dante", {vlanJson(20, 1, "1, 2")});
    const auto request =
        requestJson("New", PROFILE_TYPE_NAME_AUDAC, {vlanJson(30, 2, "2, 3", "9"), vlanJson(31, 3, "4", "9")},
                    R"(, "ptp": true)");
    // Port 2 moves from the old profile to the new one; deleting that leaves it in VLAN 1.
    const auto reset = [&](bool withNew) {
        remove("New");
        return apply(old) == RESULT_SUCCESS && (!withNew || apply(request) == RESULT_SUCCESS);
    };
    ASSERT_TRUE(reset(false));
    const auto without = everything();
    ASSERT_TRUE(reset(true));
    const auto with = everything();
    ASSERT_EQ(RESULT_SUCCESS, remove("New"));
    const auto deleted = everything();

    for (const bool applying : {true, false}) {
        const auto &from = applying ? without : with;
        const auto &to = applying ? with : deleted;
        for (std::uint64_t n = 1;; ++n) {
            ASSERT_TRUE(reset(!applying));
            ASSERT_EQ(from, everything()) << "before call " << n;
            failCall("*", n);
            const auto result = applying ? apply(request) : remove("New");
            const bool struck = callsSeen() >= n;
            clearFaults();
            // A call whose failure does not matter leaves everything done; any other leaves nothing done.
            ASSERT_EQ(result == RESULT_SUCCESS ? to : from, everything())
                << (applying ? "apply" : "delete") << ", call " << n << ", result " << result;
            if (!struck) {
                EXPECT_GT(n, 5u);
                break;
            }
        }
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
        if (result != RESULT_SUCCESS && config() != before) {
            EXPECT_NE(std::string::npos, log().find("could not be taken back")) << n;
        }
        remove("New");
        cli({"vlan database", "no vlan 30", "end"});
        ASSERT_EQ(RESULT_SUCCESS, apply(request)) << n;
        ASSERT_EQ(RESULT_SUCCESS, remove("New"));
        ASSERT_EQ(before, config()) << n;
    }
}

}  // namespace
