#include "vlan/vlan_info_ops.h"

#include <map>
#include <tuple>

#include "tests/support/limited_memory.h"
#include "tests/vlan/vlan_fixture.h"
#include "vlan/vlan_picture.h"

namespace {

using namespace test_support;
using namespace std::string_literals;
constexpr const char *kShure = "Shure Split Audio and Control Network";

class VlanInfoTest : public VlanTest {
  protected:
    // VLANs 10, 20, 30 with tagged ports and PVIDs, a LAG with members and one without.
    void configure() {
        commands(R"(vlan database; vlan 10,20,30; exit; configure
interface 0/1-0/3; vlan participation include 10,20; vlan tagging 10,20
interface 0/4-0/5; vlan pvid 10; interface 0/3; vlan pvid 30; interface 0/7; addport lag 2
interface lag 1; vlan pvid 20; vlan participation include 10; vlan tagging 10
interface lag 2; vlan pvid 20; vlan participation include 10,30; vlan tagging 10,30)");
    }
};

TEST_F(VlanInfoTest, NamesComeFromTheDatabaseTheSwitchOrTheNumber) {
    commands("vlan database; vlan 10,20,30; vlan name 10 stage; exit; configure; ip management vlan 20 dhcp");
    // What is longer than its field is cut, and terminated.
    const std::string longName(300, 'n'), longType(300, 't');
    vlanInfoReplace(20, 3, longName.c_str(), longType.c_str(), "#0818557");
    vlanInfoDeleteById(1);
    auto list = allInfo();
    ASSERT_EQ(0, result);
    EXPECT_EQ(1, vlanInfoSelectRowsById(1)) << "VLAN 1 gets its entry";
    const auto &first = at(list, 1);
    EXPECT_EQ(std::tuple("Default"s, "#000000"s, "Default"s),
              std::tuple(first.name, first.color, first.profile.profileName));
    EXPECT_TRUE(first.exists && first.isStatic && !first.isMgmtVlan && first.profileType == 1);
    EXPECT_STREQ("stage", at(list, 10).name);
    const auto &hall = at(list, 20);
    EXPECT_EQ(std::tuple(longName.substr(0, 255), "#081855"s, longType.substr(0, 255)),
              std::tuple(hall.name, hall.color, hall.profile.profileName));
    EXPECT_TRUE(hall.profileType == 3 && hall.isMgmtVlan);
    for (const std::uint32_t id : {77u, 0u, 4095u, 70000u}) {
        const Info none = info(id);
        EXPECT_TRUE(result == 0 && none->vlanId == id && !none->exists) << id;
    }
    EXPECT_STREQ("VLAN0010", info(10)->name);
    VLAN_INFO_T base{};
    EXPECT_EQ(0, vlanBaseInfoGet(&client, 20, &base));
    EXPECT_EQ(longType.substr(0, 63), base.profile.profileName);
    EXPECT_EQ(longName.substr(0, 255), base.name);

    for (const char *call :
         {"rpcclt_openapiVlanNameGet", "openapiVlanIsStatic", "rpcclt_openapiCliShowExecuteToFile"})
        failCall(call, 1, false);
    list = allInfo();
    EXPECT_STREQ("VLAN10", at(list, 10).name);
    EXPECT_TRUE(!at(list, 10).isStatic && at(list, 1).isMgmtVlan);
    failCall("rpcclt_openapiVlanNameLenGet", 1, false);
    EXPECT_STREQ("VLAN30", at(allInfo(), 30).name);
    EXPECT_EQ(10000, vlanBaseInfoGet(&client, 10, &base));
    EXPECT_TRUE(base.exists == 1 && base.profileType == 1 && base.ptpTc == 2);
    EXPECT_EQ(2u, logged("Bad return code trying to get VLAN Name Length. (result = "));
    EXPECT_TRUE(logged("[vlanListBaseInfoGetEX:") > 0 && logged("[vlanBaseInfoGet:") > 0);
    clearFaults();
    removeFile(platform::paths::kProfileDb);
    EXPECT_STREQ("stage", at(allInfo(), 10).name) << "without a database there are the switch's VLANs";
    EXPECT_EQ(0, result);
}

TEST_F(VlanInfoTest, PtpTcBySettingsThenByTemplate) {
    commands("vlan database; vlan 2-9");
    for (const auto &[type, json] :
         {std::pair{"On", R"({"PTP":true})"}, {"Off", R"({"PTP":1})"}, {"No", "{}"}})
        writeTemplate(type, json);
    const std::tuple<int, const char *, std::string, int> cases[] = {
        {2, "On", "", 1},      {3, "Off", "", 0}, {4, "No", "", 2},     {5, "Missing", "", 2},
        {6, "On", "false", 0}, {7, "", "", 2},    {8, "Off", "true", 1}};
    for (const auto &[id, type, ptpTc, expected] : cases) {
        vlanInfoReplace(id, 1, "name", type, "#000000");
        if (!ptpTc.empty())
            writeSettings(id, R"({"config":{"ptpTc":)" + ptpTc + "}}");
    }
    const auto list = allInfo();
    for (const auto &[id, type, ptpTc, expected] : cases)
        EXPECT_EQ(expected, at(list, static_cast<std::uint32_t>(id)).ptpTc) << id;
}

TEST_F(VlanInfoTest, PortsAndLagsAreWhereTheSwitchHasThem) {
    configure();
    const auto list = allInfo();
    ASSERT_EQ(0, result);
    ASSERT_EQ(4u, list->count);
    // tagged ports, untagged ports, tagged LAGs, untagged LAGs; LAG 1 has no members and is nowhere.
    EXPECT_EQ((std::vector<Numbers>{{1, 2, 3}, {4, 5}, {2}, {}, {}, {}}), arraysOf(at(list, 10)));
    EXPECT_EQ((std::vector<Numbers>{{1, 2, 3}, {}, {}, {2}, {}, {}}), arraysOf(at(list, 20)));
    EXPECT_EQ((std::vector<Numbers>{{}, {3}, {2}, {}, {}, {}}), arraysOf(at(list, 30)));
    EXPECT_EQ(45u, numbers(at(list, 1).untagPorts).size());
    for (std::uint32_t i = 0; i < list->count; ++i)
        EXPECT_EQ(arraysOf(*list->ids[i]), arraysOf(*info(list->ids[i]->vlanId))) << list->ids[i]->vlanId;

    const auto pictures = readVlanPictures(&client);
    ASSERT_TRUE(pictures && pictures->size() == 4);
    const VlanMembers &ten = (*pictures)[1].members;
    EXPECT_EQ((std::vector{IfNum(1), IfNum(2), IfNum(3)}), ten.taggedPorts);
    EXPECT_EQ((std::vector{IfNum(4), IfNum(5)}), ten.untaggedPorts);
    EXPECT_TRUE(ten.taggedLags == std::vector{2u} && (*pictures)[2].members.untaggedLags == std::vector{2u});

    const JsonPtr members(cJSON_CreateArray());
    EXPECT_EQ(0, lagMembersJsonArrayGet(&client, 48 + 2, members.get()));
    EXPECT_EQ((Numbers{7}), numbers(members.get()));
    EXPECT_EQ(10000, lagMembersJsonArrayGet(&client, 7, members.get()));
    EXPECT_EQ(1u, logged("[lagMembersJsonArrayGet:"));
    EXPECT_EQ(1u, logged("Failed to get the member ports for the LAG interface= 7, result= "));
}

TEST_F(VlanInfoTest, InterfacesOfVlansOutsideTheListGoToItsFirstRecord) {
    configure();
    const auto vlans = created<VLAN_INFOX_LIST_T>(vlanListBaseInfoCreateEX);
    std::swap(vlans->ids[0], vlans->ids[3]);  // order of the given list: 30, 10; 20 and 1 are not in it
    vlans->count = 2;
    auto list = makeRecord<VLAN_PORT_LIST_T>();
    ASSERT_EQ(0, vlanListPortAssGetFromVlanList(&client, list.get(), vlans.get()));
    ASSERT_EQ(2u, list->count);
    EXPECT_EQ(30u, list->ids[0]->vlanId);
    EXPECT_EQ((Numbers{1, 2, 3}), numbers(list->ids[0]->tagPorts)) << "of VLAN 20";
    EXPECT_EQ(46u, numbers(list->ids[0]->untagPorts).size()) << "of VLANs 1 and 30";
    EXPECT_EQ((Numbers{2}), numbers(list->ids[0]->untagLags));
    EXPECT_EQ((Numbers{1, 2, 3}), numbers(list->ids[1]->tagPorts));

    vlans->count = 0;
    list = makeRecord<VLAN_PORT_LIST_T>();
    EXPECT_EQ(0, vlanListPortAssGetFromVlanList(&client, list.get(), vlans.get())) << "nowhere to put them";
    vlans->count = 4;

    startSwitch({.physicalPorts = 8, .lags = 0});
    EXPECT_EQ(10000, vlanListPortAssGetFromVlanList(&client, list.get(), vlans.get()));
    EXPECT_EQ(1u, logged("[vlanListPortAssGetFromVlanList:"));
    ASSERT_TRUE(readVlanPictures(&client)) << "a switch may have no LAGs";
    EXPECT_EQ(8u, readVlanPictures(&client)->front().members.untaggedPorts.size());
    failCall("rpcclt_openapiIfFirstGet");
    EXPECT_FALSE(readVlanPictures(&client)) << "no answer is not an absence";
    clearFaults();
    EXPECT_EQ(nullptr, allInfo());
    EXPECT_EQ(8u, numbers(info(1)->untagPorts).size());
    EXPECT_EQ(10000, result);
}

TEST_F(VlanInfoTest, ShurePortsAsConfiguredAndAsSeen) {
    commands("vlan database; vlan 10,20");
    vlanInfoReplace(10, 2, "control", kShure, "#000000");
    vlanInfoReplace(20, 3, "audio", kShure, "#000000");
    writeText(platform::paths::kShureConfig,
              R"({"shureDevicePort": [5, 6, "x", 900, 4000000000, -1], "shureDevicePort": [7]})");
    plug(host("mxa", 5, "00:0E:DD:00:00:01", "Shure MXA920"));
    plug(host("p300", 5, "00:0E:DD:00:00:02", "Shure P300"));
    plug(host("lower", 6, "00:0E:DD:00:00:03", "shure mixer"));
    plug(host("elsewhere", 7, "00:0E:DD:00:00:04", "Shure MXA920"));
    const Numbers listed{5, 6, 900, INT32_MAX, -1};
    EXPECT_EQ(listed, numbers(info(20, true)->shureDevicePorts));
    EXPECT_EQ((Numbers{5, 5}), numbers(info(20, true)->shureLearnPorts));
    EXPECT_EQ(Numbers{}, numbers(info(10, true)->shureLearnPorts)) << "not on the control VLAN";
    EXPECT_EQ(Numbers{}, numbers(info(20, false)->shureDevicePorts));
    writeText(platform::paths::kShureConfig, "not JSON");
    EXPECT_EQ(Numbers{}, numbers(info(20, true)->shureLearnPorts));
}

TEST_F(VlanInfoTest, AnyCallAndAnyAllocationMayFail) {
    startSwitch({.physicalPorts = 8, .lags = 3});
    configure();
    vlanInfoReplace(20, 3, "audio", kShure, "#000000");
    writeText(platform::paths::kShureConfig, R"({"shureDevicePort": [5]})");
    plug(host("mxa", 5, "00:0E:DD:00:00:01", "Shure MXA920"));
    // Of a list the first LAG is needed, of a record also the length of names; the rest is left out.
    const auto isMade = [&](bool single) {
        return single ? info(20, true) != nullptr : allInfo() != nullptr;
    };
    for (const bool single : {false, true}) {
        int refusals = 0;
        std::uint64_t nth = 0;
        for (bool struck = true; struck;) {
            failCall("*", ++nth);
            const bool made = isMade(single);
            struck = callsSeen() >= nth;
            clearFaults();
            ASSERT_TRUE(made == (single || result == 0)) << nth;
            ASSERT_TRUE(result == 0 || (struck && result == 10000)) << nth << " " << result;
            refusals += result != 0 ? 1 : 0;
        }
        EXPECT_EQ(single ? 2 : 1, refusals);
        EXPECT_GT(nth, 40u);

        // Out of memory, or not copied: nothing of a list, of a record what there is.
        std::map<std::int32_t, int> results;
        for (long n = 0; !results.contains(0); ++n) {
            const LimitedMemory memory(n);
            const bool made = isMade(single);
            ++results[result];
            ASSERT_EQ(single ? result != 10002 : result == 0, made) << n;
        }
        EXPECT_EQ(3u, results.size());
    }
    for (const auto *array :
         {"tagPorts", "untagPorts", "tagLags", "untagLags", "shureDevicePorts", "shureLearnPorts"})
        EXPECT_LE(1u, logged(std::string("Failed to duplicate ") + array + " for VLAN 30")) << array;
}

TEST_F(VlanInfoTest, CallsGrowWithVlansAndInterfacesAlone) {
    const std::uint64_t interfaces = 48 + 24;
    for (const unsigned vlans : {1u, 100u, 4094u}) {
        if (vlans > 1)
            commands("vlan database; vlan 1-" + std::to_string(vlans));
        calls();
        const auto list = allInfo();
        ASSERT_EQ(vlans, list->count);
        EXPECT_LE(calls(), 3 * (vlans + interfaces) + 8)
            << "next, static, name; next, tagged, PVID or members";
        EXPECT_EQ(vlans, quick()->count);
        EXPECT_EQ(1u, calls());
    }
    EXPECT_STREQ("VLAN4094", at(allInfo(), 4094).name);
}

}  // namespace
