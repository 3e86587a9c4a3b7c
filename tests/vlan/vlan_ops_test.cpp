// VLAN operations of the web interface.
#include "vlan/vlan_ops.h"

#include <array>
#include <filesystem>
#include <functional>
#include <tuple>
#include <utility>

#include "swapi/vlan_membership_ops.h"
#include "tests/vlan/vlan_fixture.h"
#include "vlan/switchport_mode.h"
#include "vlan/vlan_changes.h"
#include "vlan/vlan_list.h"

namespace {

using namespace test_support;
using namespace std::string_literals;

class VlanOpsTest : public VlanTest {
  protected:
    void SetUp() override {
        VlanTest::SetUp();
        startSwitch({.physicalPorts = 3, .lags = 1});
        commands("vlan database; vlan 10,20; vlan name 10 stage");
    }

    // The answer of an operation; its result when that is not 0.
    template <class Operation, class... Arguments>
    std::string answer(Operation operation, Arguments... arguments) {
        char *text = nullptr;
        const std::int32_t code = operation(&client, arguments..., &text);
        const TextPtr owned(text);
        EXPECT_EQ(code == 0, text != nullptr);
        return code == 0 ? text : std::to_string(code);
    }
    std::string ids() {
        std::string out;
        model([&](const vswitch::Model &switchModel) {
            for (const auto &vlan : switchModel.vlans())
                out += std::to_string(vlan.first) + " ";
        });
        return out;
    }
    std::string config() {
        const auto text = show("show running-config");
        return text.substr(text.find(" secs\"\n"));
    }
    bool configured(const std::string &part) { return config().find(part) != std::string::npos; }
    std::int32_t create(const std::string &list) {
        return v2VlanListCreate(&client, (R"({"vlan-list":")" + list + R"("})").c_str());
    }
};

TEST(VlanListTest, ItemsRangesAndWhatIsNoNumber) {
    using Ids = std::vector<std::uint32_t>;
    const std::pair<const char *, Ids> cases[] = {
        {"10,20-22", {10, 20, 21, 22}},
        {"5-3", {}},
        {"7,7, 8 - 9", {7, 7, 8, 9}},
        {"all,-1,4095", {0, 0, 1, 4095}},
        {",6,,", {6}},
        {"", {}},
        {"99999999999,4294967295-4294967299", {UINT32_MAX, UINT32_MAX}}};
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(expected, parseVlanList(text)) << text;
    const auto most = parseVlanList("7,1-5000,9");
    EXPECT_EQ(std::tuple(kVlanListMax, 4095u), std::tuple(most.size(), most.back()));
}

TEST_F(VlanOpsTest, BadRequestsTouchNothing) {
    const std::string before = config();
    using Operation = std::int32_t (*)(Switch, const char *);
    const std::tuple<Operation, const char *, std::vector<const char *>> operations[] = {
        {v2VlanListCreate, "vlan-list", {R"({"vlan-list":10})", R"({"Vlan-List":"10"})"}},
        {v2VlanNameSet,
         "name",
         {R"({"vlan-id":"10","name":"x"})", R"({"vlan-id":10.5,"name":"x"})", R"({"vlan-id":10})",
          R"({"vlan-id":10,"name":"a\nvlan 30"})"}},
        {v2VlanParticipationAllSet,
         "mode",
         {R"({"mode":"Include","vlan-id":10})", R"({"mode":"include"})", R"({"mode":0,"vlan-id":10})"}},
        {v2VlanAcceptFrameAllSet,
         "accept-frame",
         {R"({"accept-frame":"VlanOnly"})", R"({"accept-frame":1})"}},
        {v2VlanPvidAllSet, "pvid", {R"({"pvid":"10"})"}},
        {v2VlanTaggingAllSet, "tagging", {R"({"vlan-id":10,"tagging":true})", R"({"tagging":"tagged"})"}},
        {switchportModeAutoSet, "mode", {R"({"mode":"auto"})", R"({"mode":true})"}}};
    calls();
    for (const auto &[operation, key, requests] : operations) {
        for (const char *const none : {static_cast<const char *>(nullptr), "", "{", "[]", "7"})
            EXPECT_EQ(10003, operation(&client, none)) << key;
        const auto reports = logged("Missing or invalid ");
        for (const char *const request : requests)
            EXPECT_EQ(10003, operation(&client, request)) << request;
        EXPECT_EQ(reports + requests.size(), logged("Missing or invalid "));
    }
    EXPECT_EQ(10003, v2VlanListDelete(&client, nullptr));
    EXPECT_EQ(0u, calls());
    EXPECT_EQ(before, config());
    EXPECT_EQ(3u, logged("Failed to parse request JSON\n"));
    EXPECT_EQ(1u, logged("Failed to parse VLAN list"));
}

TEST_F(VlanOpsTest, ListsAreCreatedAndDeletedUpToTheFirstFailure) {
    EXPECT_EQ(0, create("10,5-3,30-31,30"));
    EXPECT_EQ("1 10 20 30 31 ", ids());
    EXPECT_EQ(10000, create("40,none,50"));
    EXPECT_EQ("1 10 20 30 31 40 ", ids());
    EXPECT_EQ(1u, logged("Failed to create VLAN 0\n"));
    device->with([](vswitch::Server &server) { server.model().setLatency(std::chrono::seconds(2)); });
    EXPECT_EQ(0, v2VlanListDelete(&client, "30,99,31,30,0,9999"));
    EXPECT_EQ("1 10 20 40 ", ids()) << "also on a slow switch, the VLANs are gone when it returns";
    EXPECT_EQ(10000, v2VlanListDelete(&client, "40,1,20"));
    EXPECT_EQ(1u, logged("Failed to delete VLAN 1\n"));
    EXPECT_EQ(OPEN_E_NONE, openapiVlanCreatedCheck(&client, 20));
    device->with([](vswitch::Server &server) { server.model().setLatency(std::chrono::hours(1)); });
    EXPECT_EQ(10000, v2VlanListDelete(&client, "20"));
    EXPECT_EQ(1u, logged("Failed to delete VLAN 20\n")) << "accepted, and not done";
}

TEST_F(VlanOpsTest, AnswersTellWhatTheSwitchTells) {
    commands(R"(configure; interface 0/1; vlan participation include 10; vlan tagging 10
interface 0/2; vlan participation exclude 10)");
    const std::string list =
        R"({"max-vlan-entries":4093,"vlans-in-use":3,"vlans":[{"vlan-id":1,"name":"default","type":"Default"},)"
        R"({"vlan-id":10,"name":"stage","type":"Static"},{"vlan-id":20,"name":"VLAN0020","type":"Static"}]})";
    EXPECT_EQ(list, answer(v2VlanListGet));
    EXPECT_EQ(R"({"vlan-id":10,"name":"stage"})", answer(v2VlanNameGet, 10));
    const std::string head = R"({"vlan-id":10,"name":"stage","type":"Static","interfaces":[)";
    const std::string first =
        R"({"interface":"1/0/1","current":"Include","configured":"Include","tagging":"Tagged"})";
    const std::string rest =
        R"(,{"interface":"1/0/2","current":"Exclude","configured":"Exclude","tagging":"Untagged"},)"
        R"({"interface":"1/0/3","current":"Exclude","configured":"Autodetect","tagging":"Untagged"},)"
        R"({"interface":"lag 1","current":"Exclude","configured":"Autodetect","tagging":"Untagged"}]})";
    EXPECT_EQ(head + first + rest, answer(v2VlanDetailGet, 10));
    for (const auto none : {99, 0, 4095, 70000}) {
        EXPECT_EQ("10000", answer(v2VlanDetailGet, none));
        EXPECT_EQ("10000", answer(v2VlanNameGet, none));
    }
    EXPECT_EQ(2u, logged("VLAN 70000 not found\n"));

    // What cannot be read is left out; a list that breaks off is no list.
    const std::pair<const char *, std::string> unread[] = {
        {"openapiVlanIsStatic", R"("type":"Static",)"},
        {"rpcclt_openapiHashIntfUnitSlotPortGet", R"("interface":"1/0/1",)"},
        {"openapiVlanIfParticipationStatusGet", R"("current":"Include",)"},
        {"rpcclt_openapiVlanIfParticipationGet", R"("configured":"Include",)"},
        {"openapiVlanIfTaggingGet", R"(,"tagging":"Tagged")"}};
    for (const auto &[call, part] : unread) {
        std::string without = head + first + rest;
        without.replace(without.find(part), part.size(), "");
        failCall(call);
        EXPECT_EQ(without, answer(v2VlanDetailGet, 10)) << call;
        clearFaults();
    }
    EXPECT_EQ(5u, logged("1 values of VLANs cannot be read (first result = -2)\n"));
    for (const char *const call : {"rpcclt_openapiVlanNameLenGet", "rpcclt_openapiVlanNameGet"}) {
        failCall(call, 1, false);
        EXPECT_EQ(R"({"vlan-id":10})", answer(v2VlanNameGet, 10));
        clearFaults();
    }
    for (const auto &[call, nth] :
         {std::pair("rpcclt_openapiIfNextGet", 2), {"rpcclt_openapiIfFirstGet", 2}}) {
        failCall(call, nth);
        EXPECT_EQ("10000", answer(v2VlanDetailGet, 10)) << call;
        clearFaults();
    }
    failCall("rpcclt_openapiVlanNextGet", 3);
    EXPECT_EQ("10000", answer(v2VlanListGet));
    clearFaults();
    failCall("openapiVlanCreatedCheck", 2, false, OPEN_E_NOT_FOUND);
    failCall("openapiVlanIfTaggingGet", 1, false, OPEN_E_NOT_FOUND);
    EXPECT_EQ("10000", answer(v2VlanDetailGet, 10)) << "deleted while it was read";
}

TEST_F(VlanOpsTest, NamesAreCutAtACharacter) {
    const auto name = [&](const std::string &text, int id = 10) {
        const std::string body = R"({"vlan-id":)" + std::to_string(id) + R"(,"name":")" + text + R"("})";
        return v2VlanNameSet(&client, body.c_str());
    };
    const std::string longest(32, 'n');
    for (const auto &[given, kept] : {std::pair(longest + "nnnnnnnn", longest),
                                      {longest.substr(1) + "\u00fc", longest.substr(1)},
                                      {"Bühne 1"s, "Bühne 1"s},
                                      {""s, "VLAN0010"s}}) {
        EXPECT_EQ(0, name(given)) << given;
        EXPECT_EQ(R"({"vlan-id":10,"name":")" + kept + R"("})", answer(v2VlanNameGet, 10));
    }
    EXPECT_EQ(10000, name("x", 99));
    EXPECT_EQ(1u, logged("VLAN 99 not found\n"));
}

TEST_F(VlanOpsTest, AllPortsAndLagsAreSetWhateverOneOfThemSays) {
    failCall("rpcclt_openapiVlanIfTaggingSet", 2);
    EXPECT_EQ(0, v2VlanTaggingAllSet(&client, R"({"vlan-id":10,"tagging":"tagged"})"));
    EXPECT_EQ(3u, occurrences(config(), "vlan tagging 10\n"));
    EXPECT_EQ(1u, logged("1 of 4 interfaces were not changed (first: interface 2, result = -2)\n"));
    clearFaults();
    EXPECT_EQ(0, v2VlanTaggingAllSet(&client, R"({"vlan-id":10,"tagging":"untagged"})"));
    EXPECT_FALSE(configured("vlan tagging"));
    for (const char *const frames : {"vlanonly", "admituntaggedonly", "all"}) {
        const auto request = R"({"accept-frame":")"s + frames + R"("})";
        EXPECT_EQ(0, v2VlanAcceptFrameAllSet(&client, request.c_str()));
        EXPECT_EQ(frames == "all"s ? 0u : 4u, occurrences(config(), "vlan acceptframe "s + frames + "\n"));
    }
    EXPECT_FALSE(configured("acceptframe"));
    EXPECT_EQ(0, v2VlanPvidAllSet(&client, R"({"pvid":20})"));
    EXPECT_EQ(4u, occurrences(config(), "vlan pvid 20\n")) << "done when it returns";

    EXPECT_EQ(10000, v2VlanPvidAllSet(&client, R"({"pvid":99})"));
    EXPECT_EQ(0, v2VlanTaggingAllSet(&client, R"({"vlan-id":99,"tagging":"tagged"})"));
    EXPECT_EQ(0, v2VlanParticipationAllSet(&client, R"({"vlan-id":9999,"mode":"include"})"));
    EXPECT_EQ(2u, logged("4 of 4 interfaces were not changed"));
    failCall("rpcclt_openapiIfNextGet", 2, false, OPEN_E_RPC);
    EXPECT_EQ(10000, v2VlanPvidAllSet(&client, R"({"pvid":10})")) << "which are all is not known";
}

TEST_F(VlanOpsTest, SwitchportModeIsReadFromTheConfiguration) {
    const std::string on = R"({"mode":"enable"})", off = R"({"mode":"disable"})";
    commands("configure; interface 0/1; description \"switchport mode auto\"");
    EXPECT_EQ(off, answer(switchportModeAutoGet)) << "a description says nothing";
    EXPECT_TRUE(parseSwitchportModeAuto("!\n  switchport mode auto\r\n"));
    EXPECT_TRUE(parseSwitchportModeAuto("interface 0/1 switchport mode auto"));
    EXPECT_FALSE(parseSwitchportModeAuto("no switchport mode auto\n"));
    EXPECT_FALSE(
        parseSwitchportModeAuto("description \"" + std::string(500, 'd') + "switchport mode auto\n"));
    EXPECT_EQ(0, switchportModeAutoSet(&client, on.c_str()));
    EXPECT_EQ(on, answer(switchportModeAutoGet));
    EXPECT_EQ(0, switchportModeAutoSet(&client, off.c_str()));
    EXPECT_EQ(off, answer(switchportModeAutoGet));
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ("10000", answer(switchportModeAutoGet));
    const auto folder = platform::fsPath(platform::paths::kScriptDir);
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << "no file stays behind";
    std::filesystem::remove_all(folder);
    EXPECT_EQ(10000, switchportModeAutoSet(&client, on.c_str()));
}

TEST_F(VlanOpsTest, CreateAndSetMakesAStaticVlanWithAName) {
    EXPECT_EQ(0, vlanCreateAndSet(&client, 1, "mine"));
    EXPECT_EQ(0, vlanCreateAndSet(&client, 30, "hall"));
    EXPECT_EQ(0, vlanCreateAndSet(&client, 20, "foyer"));
    EXPECT_EQ(R"({"vlan-id":1,"name":"default"})", answer(v2VlanNameGet, 1));
    EXPECT_EQ(R"({"vlan-id":20,"name":"foyer"})", answer(v2VlanNameGet, 20));
    EXPECT_EQ(R"({"vlan-id":30,"name":"hall"})", answer(v2VlanNameGet, 30));
    EXPECT_EQ(1u, callCount("rpcclt_openapiTxtCfgApply"));
    for (const int none : {0, -1, 4095})
        EXPECT_EQ(13101, vlanCreateAndSet(&client, none, "x")) << none;
    EXPECT_EQ(1u, logged("vlan 4095 create  error :-5 \n"));
    failCall("rpcclt_openapiVlanCreate");
    EXPECT_EQ(13101, vlanCreateAndSet(&client, 40, "x"));
    clearFaults();
    failCall("rpcclt_openapiTxtCfgApply");
    EXPECT_EQ(10000, vlanCreateAndSet(&client, 40, "bar"));
    EXPECT_EQ(R"({"vlan-id":40,"name":"bar"})", answer(v2VlanNameGet, 40)) << "the rest is done all the same";
    EXPECT_EQ(10000, vlanCreateAndSet(&client, 40, std::string(33, 'n').c_str()));
    EXPECT_EQ(1u, logged("vlan 40 set name :nnnn"));
}

TEST_F(VlanOpsTest, ConfigurationOfAVlanOfAProfile) {
    commands(R"(configure; interface 0/1; vlan pvid 20
interface 0/2; vlan participation include 20; vlan tagging 20)");
    vlanInfoReplace(20, 3, "Hall", "A B", "#102030");
    const std::string all =
        R"({"vlanId":20,"name":"Hall","color":"#102030","profileName":"Hall","vlanType":3,"isStatic":true,)"
        R"("assignedUntagPort":[1],"assignedtagPort":[2],"assignedTagLag":[],"assignedUnTagLag":[],)"
        R"("assignedShureLearnPort":[],"shureDevicePort":[],"profileType":"A B")";
    EXPECT_EQ(all + "}", answer(switchConfigVlanGet, 20));
    std::filesystem::create_directories(platform::fsPath(platform::paths::kPavoExDir));
    const auto keep = [](const std::string &vlans) {
        writeText("/tmp/pavo/pavo_ex/A_B", R"({"profileConfig":{"vlans":[)" + vlans + "]}}");
    };
    keep(R"({"vlanId":10,"ports":{"assignedPort":[9]}},{"vlanId":20,"ports":{"assignedPort":[3,"x",0,1]}})");
    EXPECT_EQ(all + R"(,"assignedPort":[3,1]})", answer(switchConfigVlanGet, 20));
    keep(R"({"vlanId":10,"ports":{"assignedPort":[9]}})");
    EXPECT_EQ(all + R"(,"assignedPort":[]})", answer(switchConfigVlanGet, 20));
    writeText("/tmp/pavo/secret", R"({"profileConfig":{}})");
    vlanInfoReplace(20, 3, "Hall", "../secret", "#102030");
    EXPECT_EQ(std::string::npos, answer(switchConfigVlanGet, 20).find("assignedPort\""))
        << "a type is no way out of the folder";
    EXPECT_EQ("10000", answer(switchConfigVlanGet, 99));
    EXPECT_EQ(1u, logged("VLAN is not configured\n"));
    failCall("rpcclt_openapiIfFirstGet", 2);
    EXPECT_EQ("10000", answer(switchConfigVlanGet, 20));
    EXPECT_EQ(1u, logged("Call vlanAllInfoCreate return error\n"));
}

TEST_F(VlanOpsTest, NothingChangesWithoutTheLockOfProfiles) {
    const std::string before = config();
    std::filesystem::create_directory(platform::fsPath(platform::paths::kProfileLock));
    EXPECT_EQ(10000, create("30"));
    EXPECT_EQ(10000, v2VlanListDelete(&client, "20"));
    EXPECT_EQ(10000, v2VlanNameSet(&client, R"({"vlan-id":10,"name":"x"})"));
    EXPECT_EQ(10000, v2VlanParticipationAllSet(&client, R"({"vlan-id":10,"mode":"include"})"));
    EXPECT_EQ(10000, v2VlanAcceptFrameAllSet(&client, R"({"accept-frame":"vlanonly"})"));
    EXPECT_EQ(10000, v2VlanPvidAllSet(&client, R"({"pvid":10})"));
    EXPECT_EQ(10000, vlanCreateAndSet(&client, 30, "x"));
    EXPECT_EQ(7u, logged("] cannot lock "));
    EXPECT_EQ(before, config());
}

TEST_F(VlanOpsTest, WhatAProfileHasIsNamedOrRefused) {
    commands(
        R"(configure; interface 0/1; vlan pvid 20; interface 0/3; vlan pvid 20; interface lag 1; vlan pvid 10
interface 0/2; vlan participation include 20; vlan tagging 20)");
    vlanInfoReplace(20, 3, "Stage", "Audio Dante", "#102030");
    const std::string before = config();
    const auto refuse = OfProfiles::Refuse, change = OfProfiles::Change;
    const std::uint32_t both[] = {10, 20, 99};
    const std::pair<Result<VlanChange>, std::string> refused[] = {
        {deleteVlans(&client, both, refuse), "VLAN 20"},
        {renameVlan(&client, 20, "x", refuse), "VLAN 20"},
        {setTaggingOfAll(&client, 20, Tagging::Tagged, refuse), "VLAN 20"},
        {setParticipationOfAll(&client, 1, Participation::Auto, refuse), "0/1, 0/3"},
        {setAcceptFramesOfAll(&client, AcceptFrames::VlanOnly, refuse), "0/1, 0/3"},
        {setAcceptFramesOfAll(&client, AcceptFrames::UntaggedOnly, refuse), "0/2"},
        {setPvidOfAll(&client, 10, refuse), "0/1, 0/3"},
        {setPvidOfAll(&client, 20, refuse), "VLAN 20"},
    };
    for (const auto &[done, what] : refused)
        EXPECT_TRUE(!done && done.error().reason == "profile \"Stage\" has " + what) << what;
    EXPECT_EQ(before, config());
    EXPECT_TRUE(setTaggingOfAll(&client, 10, Tagging::Tagged, refuse)) << "nobody's";
    EXPECT_TRUE(setAcceptFramesOfAll(&client, AcceptFrames::All, refuse)) << "drops nothing";

    // What has been changed is told, and nothing else.
    const auto told = [](const Result<VlanChange> &done) {
        return done ? printVlanChange(*done) : done.error().reason;
    };
    failCall("rpcclt_openapiVlanIfPvidSet", 3);
    EXPECT_EQ(R"({"interfaces":4,"refused":1,"pending":false,"profiles":[{"name":"Stage","has":["0/1"]}]})",
              told(setPvidOfAll(&client, 10, change)));
    EXPECT_EQ(1u, logged("] changed by hand: profile \"Stage\" has 0/1\n"));
    clearFaults();
    failCall("rpcclt_openapiVlanNameSet");
    EXPECT_EQ(10000, v2VlanNameSet(&client, R"({"vlan-id":20,"name":"x"})"));
    failCall("rpcclt_openapiVlanIfTaggingSet", 1, false);
    EXPECT_EQ(R"({"interfaces":4,"refused":4,"pending":false,"profiles":[]})",
              told(setTaggingOfAll(&client, 20, Tagging::Tagged, change)));
    clearFaults();
    EXPECT_EQ("VLAN 1 cannot be deleted",
              told(deleteVlans(&client, std::array<std::uint32_t, 2>{1, 20}, change)));
    EXPECT_EQ(1u, logged("] changed by hand: "));
    EXPECT_EQ(R"({"vlans":[],"profiles":[{"name":"Stage","has":["VLAN 20"]}]})",
              told(createNamedVlan(&client, 20, "hall")));
    EXPECT_EQ(
        "VLAN 1 cannot be deleted; those in front of it have been; changed by hand: profile \"Stage\" has "
        "VLAN 20",
        told(deleteVlans(&client, std::array<std::uint32_t, 2>{20, 1}, change)));
    EXPECT_EQ(2u, logged("] changed by hand: profile \"Stage\" has VLAN 20\n"));

    // After a reboot there is only the record.
    std::filesystem::remove(platform::fsPath(platform::paths::kProfileDb));
    writeText(platform::paths::kProfileRecord, R"({"profiles":[
{"profileConfig":{"name":"Foyer","vlans":[{"vlanId":10}]}},{"profileConfig":{"name":"Hall","vlans":[{"vlanId":10}]}}]})");
    EXPECT_EQ("profile \"Hall\" has VLAN 10", told(deleteVlans(&client, both, refuse)));
    // Whose a VLAN is cannot be told any more.
    writeText(platform::paths::kProfileRecord, "damaged");
    EXPECT_FALSE(deleteVlans(&client, both, refuse));
    writeText(platform::paths::kProfileDb, "damaged");
    EXPECT_FALSE(deleteVlans(&client, both, refuse));
    EXPECT_EQ("1 10 ", ids());
    const std::array<std::uint32_t, 3> some{30, 10, 30};
    EXPECT_EQ(R"({"vlans":[30],"profiles":[]})", told(createVlans(&client, some)));
    EXPECT_EQ(R"({"vlans":[30,10],"profiles":[]})", told(deleteVlans(&client, some, change)));

    device->with([](vswitch::Server &server) { server.model().setLatency(std::chrono::hours(1)); });
    EXPECT_EQ(R"({"interfaces":4,"refused":0,"pending":true,"profiles":[]})",
              told(setParticipationOfAll(&client, 1, Participation::Auto, change)));
}

// One call fails, or the switch is gone from that call on; then the same is asked again.
TEST_F(VlanOpsTest, WhicheverCallFailsTheResultIsTrue) {
    vlanInfoReplace(20, 3, "Stage", "Audio Dante", "#102030");
    const auto have = [&](const std::string &wanted) { return ids() == wanted; };
    const auto all = [&](const std::string &line) { return occurrences(config(), line) == 4; };
    struct {
        const char *what;
        std::function<std::int32_t()> act;
        std::function<bool()> isDone;
        bool mayBePartial = false;  // some interfaces do not show in the result, but in the log
    } const operations[] = {
        {"create", [&] { return create("30,10,31"); }, [&] { return have("1 10 20 30 31 "); }},
        {"delete", [&] { return v2VlanListDelete(&client, "20,40,10"); }, [&] { return have("1 "); }},
        {"name", [&] { return v2VlanNameSet(&client, R"({"vlan-id":20,"name":"x"})"); },
         [&] { return configured("vlan name 20 \"x\""); }},
        {"create and set", [&] { return vlanCreateAndSet(&client, 40, "x"); },
         [&] { return configured("vlan name 40 \"x\""); }},
        {"PVID", [&] { return v2VlanPvidAllSet(&client, R"({"pvid":20})"); },
         [&] { return all("vlan pvid 20\n"); }, true},
        {"tagging", [&] { return v2VlanTaggingAllSet(&client, R"({"vlan-id":20,"tagging":"tagged"})"); },
         [&] { return all("vlan tagging 20\n"); }, true},
        {"frames", [&] { return v2VlanAcceptFrameAllSet(&client, R"({"accept-frame":"vlanonly"})"); },
         [&] { return all("vlan acceptframe vlanonly\n"); }, true},
        {"automatic", [&] { return switchportModeAutoSet(&client, R"({"mode":"enable"})"); },
         [&] { return configured("\nswitchport mode auto\n"); }}};
    for (const auto &[what, act, isDone, mayBePartial] : operations)
        for (const bool once : {true, false}) {
            bool struck = true;
            for (std::uint64_t n = 1; struck; ++n) {
                startSwitch({.physicalPorts = 3, .lags = 1});
                commands("vlan database; vlan 10,20");
                model([](vswitch::Model &m) { m.setLatency(std::chrono::milliseconds(300)); });
                failCall("*", n, once, once ? OPEN_E_FAIL : OPEN_E_RPC);
                const auto errors = logged("(ERROR)");
                const auto code = act();
                struck = callsSeen() >= n;
                clearFaults();
                const auto where =
                    what + " fails at call "s + std::to_string(n) + (once ? "" : " and all after it");
                EXPECT_TRUE(code != 0 || mayBePartial || isDone()) << where;
                EXPECT_TRUE(isDone() || logged("(ERROR)") > errors) << where << "; nobody says so";
                EXPECT_EQ(0, act()) << where;
                EXPECT_TRUE(isDone()) << where << ", and once more";
            }
        }
}

// The words decide, whatever number stands for them.
TEST_F(VlanOpsTest, OneNumberingOfParticipation) {
    const std::tuple<std::string, std::uint32_t, std::string> modes[] = {
        {"include", 0, "Include"}, {"exclude", 1, "Exclude"}, {"auto", 2, "Autodetect"}};
    const auto expectMode = [&](const auto &mode, const char *setBy) {
        const auto &[word, number, shown] = mode;
        std::uint32_t read = 99;
        EXPECT_EQ(0, rpcclt_openapiVlanIfParticipationGet(&client, 10, 2, &read));
        EXPECT_EQ(number, read) << word << " by " << setBy;
        EXPECT_EQ(word != "auto", configured("vlan participation " + word + " 10\n")) << setBy;
        EXPECT_NE(std::string::npos,
                  answer(v2VlanDetailGet, 10)
                      .find(R"("1/0/2","current":")" + (word == "include" ? shown : "Exclude"s) +
                            R"(","configured":")" + shown + '"'))
            << word << " by " << setBy;
        EXPECT_EQ(0, vlanIfParticipationSetAndVerify(&client, 2, 10, (number + 1) % 3));
    };
    for (const auto &mode : modes) {
        const auto &[word, number, shown] = mode;
        EXPECT_EQ(0,
                  v2VlanParticipationAllSet(&client, (R"({"vlan-id":10,"mode":")" + word + R"("})").c_str()));
        EXPECT_EQ(word == "auto" ? 0u : 4u, occurrences(config(), "vlan participation " + word + " 10\n"));
        expectMode(mode, "request");
        commands("configure; interface 0/1-0/3; vlan participation " + word + " 10");
        expectMode(mode, "CLI");
        EXPECT_EQ(0, v2VlanParticipationAllSet(&client, R"({"vlan-id":10,"mode":"auto"})"));
        EXPECT_EQ(0, vlanIfParticipationSetAndVerify(&client, 2, 10, number));
        expectMode(mode, "set and verify");
    }
}

}  // namespace
