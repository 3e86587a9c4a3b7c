// Profile types, templates, demand and the files that profiles keep.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "common/json.h"
#include "store/profile_demand.h"
#include "store/profile_template_ops.h"
#include "store/profile_types_ops.h"
#include "store/shure_config.h"
#include "store/vlan_settings.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using test_support::writeText;

class ProfileFilesTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        for (const char *folder :
             {platform::paths::kProfileTemplateDir, platform::paths::kVlanProfileConfigDir})
            std::filesystem::create_directories(platform::fsPath(folder));
    }
    static void writeTemplate(const std::string &type, const std::string &json) {
        writeText(profileTemplatePath(type).c_str(), json);
    }
};

TEST(ProfileTypesTest, TableIsKnownByExactNames) {
    EXPECT_EQ(profileTypes().size(), 50u);
    ProfileTypeAttributes attributes{.mtu = 7};
    EXPECT_EQ(profileTypeAttrGet("Unite Audio", &attributes), 0);
    EXPECT_EQ(attributes, (ProfileTypeAttributes{
                              .mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 20, .fastLeave = 2}));
    std::int32_t mtu = 7;
    for (const char *name : {"unite audio", "Unite", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(profileTypeAttrGet(name, &attributes), 10000);
        EXPECT_EQ(profileTypeMtuGet(name, &mtu), 10000);
        EXPECT_EQ(mtu, 0);
    }
    EXPECT_EQ(attributes.mtu, 1500) << "left alone";
    EXPECT_EQ(profileTypeMtuGet("GANNET", &mtu), 0);
    EXPECT_EQ(mtu, 9216);
    // What most types have in common, and how many have which MTU.
    std::map<std::int32_t, int> mtus;
    for (const ProfileType &type : profileTypes()) {
        const std::string_view name = type.name;
        const bool two = name == PROFILE_TYPE_NAME_POLY || name == "Allen & Heath gigaACEGX";
        const bool none = name == PROFILE_TYPE_NAME_AVB || name == PROFILE_TYPE_NAME_MILAN ||
                          name == "URC Automation" || name == "Avid S6L";
        EXPECT_EQ(type.attributes.modeA, none ? 0 : two ? 2 : 1) << name;
        EXPECT_EQ(type.attributes.modeB, type.attributes.modeA) << name;
        ++mtus[type.attributes.mtu];
    }
    EXPECT_EQ(mtus, (std::map<std::int32_t, int>{{0, 16}, {1500, 19}, {9198, 14}, {9216, 1}}));
}

TEST(ProfileTemplateTest, PathsHoldNamesInTheirFolder) {
    const std::string folder = platform::paths::kProfileTemplateDir;
    const struct {
        std::string name, path, userPath;
    } cases[] = {
        {"Audio Video AVB MILAN", folder + "Audio_Video_AVB_MILAN", folder + "Audio_Video_AVB_MILAN"},
        {std::string(300, 'n'), folder + std::string(255, 'n'), folder + std::string(31, 'n')},
        {"Größe", folder + "Größe", folder + "Größe"},
        {"../../etc/passwd", "", ""},
        {"a\nb", "", ""},
        {".", "", ""},
        {"..", "", ""},
        {"", "", ""},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(profileTemplatePath(row.name), row.path);
        EXPECT_EQ(profileTemplateUserPath(row.name), row.userPath);
    }
}

// The tests of the feature mask and of the VLAN records go through all keys and types; this is what those do
// not tell apart.
TEST(ProfileDemandTest, TemplateTableAndNameEachSetTheirs) {
    const auto demand = [](const char *type, const char *json, std::int32_t vlanType = 1) {
        const auto parsed = ProfileTemplate::parse(json);
        EXPECT_TRUE(parsed) << json;
        return profileDemand(type, vlanType, parsed ? &*parsed : nullptr);
    };
    EXPECT_EQ(demand("x", R"({"flowControl":true,"MTU":false})"),
              (ProfileDemand{.flowControl = true, .flowControlStated = true, .mtuOff = true}));
    EXPECT_EQ(demand("x", R"({"flowControl":null,"storm":0,"ptp":true})"),
              ProfileDemand{.flowControlStated = true});
    EXPECT_EQ(
        demand("Unite Audio", "{}"),
        (ProfileDemand{.mtu = 1500, .modeA = true, .modeB = true, .querierInterval = 20, .fastLeave = true}));
    EXPECT_EQ(demand("Audio Video AVB MILAN", R"([{"PTP":true}])"),
              (ProfileDemand{.mtu = 1500, .milan = true}));
    EXPECT_TRUE(demand("DICENTIS Conference system", R"({"storm":true})").stormOff);
    EXPECT_EQ(templateDemand("DICENTIS Conference system", nullptr), ProfileDemand{});
    for (const std::int32_t vlanType : {2, 3})
        EXPECT_EQ(demand("HARMAN Professional AV Network", "{}", vlanType).harmanAcl, vlanType == 3);
    for (const char *text : {"", "{", "{\"PTP\":true", "tru"})
        EXPECT_FALSE(ProfileTemplate::parse(text)) << text;

    std::string names;
    for (const DemandName &name : demandNames())
        names += name.wanted(demand("ETC Lighting", R"({"PTP":true,"qos":1,"Sonos":false})"))
                     ? std::string(name.name) + " "
                     : "";
    EXPECT_EQ(names, "PTP QoS querier lighting ");
}

TEST_F(ProfileFilesTest, TemplatesAreLoadedByName) {
    const std::string poly = PROFILE_TYPE_NAME_POLY;
    EXPECT_FALSE(loadProfileTemplate(poly));
    writeTemplate(std::string(PROFILE_TEMPLATE_FILE_POLY), R"({"PTP":true})");
    EXPECT_TRUE(loadProfileTemplate(poly)->isTrue(TemplateKey::Ptp));
    for (const auto &[mine, ptp] : {std::pair{"{}", false}, {"{ broken", true}}) {
        writeTemplate(poly, mine);
        EXPECT_EQ(loadProfileTemplate(poly)->isTrue(TemplateKey::Ptp), ptp) << "a user's own goes first";
        const JsonPtr json(profileTemplateLoad(poly.c_str()));
        EXPECT_EQ(boolMember(json.get(), "PTP").has_value(), ptp);
    }
    for (const char *none : {"", "No Such", "../x", static_cast<const char *>(nullptr)})
        EXPECT_EQ(profileTemplateLoad(none), nullptr);

    ProfileTemplateCache cache(2);
    writeTemplate("a", R"({"AVB":true})");
    EXPECT_NE(cache.find("a"), nullptr);
    EXPECT_EQ(cache.find("b"), nullptr) << "counts all the same";
    writeTemplate("b", "{}");
    writeTemplate("c", "{}");
    EXPECT_EQ(cache.find("b"), nullptr) << "asked once";
    EXPECT_EQ(cache.find("c"), nullptr) << "full";
    EXPECT_NE(cache.find("a"), nullptr);
}

// --- settings files

VlanSettings parsed(const std::string &text) {
    const auto settings = VlanSettings::parse(text);
    EXPECT_TRUE(settings) << text;
    return settings.value_or(VlanSettings{});
}

TEST_F(ProfileFilesTest, SettingsArePrintedAsTheyAreRead) {
    const VlanSettings settings{
        .vlanType = 3,
        .profileType = "Audio Dante",
        .ptpTc = false,
        .assignedPorts = {{IfNum(5), IfNum(7)}},
        .history = VlanHistory{false, "Studio é", VlanRouting{true, false, "10.0.0.1", "255.0.0.0"}}};
    const std::string text = settings.print(VlanId(20));
    EXPECT_EQ(text,
              "{\n\t\"config\":\t{\n\t\t\"vlanId\":\t20,\n\t\t\"vlanType\":\t3,\n"
              "\t\t\"profileType\":\t\"Audio Dante\",\n\t\t\"ptpTc\":\tfalse,\n\t\t\"assignedPort\":\t[5, "
              "7]\n\t},\n"
              "\t\"created\":\tfalse,\n\t\"oldName\":\t\"Studio é\",\n\t\"oldRouting\":\t{\n"
              "\t\t\"routing\":\ttrue,\n\t\t\"dhcp\":\tfalse,\n\t\t\"ipAddr\":\t\"10.0.0.1\",\n"
              "\t\t\"ipMask\":\t\"255.0.0.0\"\n\t}\n}");
    writeText(vlanSettingsPath(VlanId(20)).c_str(), text);
    const auto read = readVlanSettings(VlanId(20));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->print(VlanId(20)), text);
    EXPECT_EQ(read->history, settings.history);
    EXPECT_EQ(VlanSettings{}.print(VlanId(1)),
              "{\n\t\"config\":\t{\n\t\t\"vlanId\":\t1,\n\t\t\"vlanType\":\t0,\n\t\t\"profileType\":\t\"\",\n"
              "\t\t\"assignedPort\":\t[]\n\t},\n\t\"created\":\ttrue,\n\t\"oldName\":\t\"\"\n}");
    EXPECT_FALSE(readVlanSettings(VlanId(21)));
}

TEST(VlanSettingsTest, WhatMakesNoSenseIsLeftOut) {
    for (const char *text : {"", "{", "by hand"})
        EXPECT_FALSE(VlanSettings::parse(text)) << text;
    const struct {
        const char *json;
        std::optional<bool> ptpTc;
        std::optional<std::vector<IfNum>> ports;
    } configs[] = {
        {R"({"config":{"ptpTc":true,"assignedPort":[]}})", true, std::vector<IfNum>{}},
        {R"({"config":{"ptpTc":null,"assignedPort":[3,"4",-1,0,5.5,6]}})", false, {{IfNum(3), IfNum(6)}}},
        {R"({"config":{"ptpTc":1,"assignedPort":5}})", false, {}},
        {R"({"config":[],"ptpTc":true})", {}, {}},
        {"[]", {}, {}},
    };
    for (const auto &row : configs) {
        EXPECT_EQ(parsed(row.json).ptpTc, row.ptpTc) << row.json;
        EXPECT_EQ(parsed(row.json).assignedPorts, row.ports) << row.json;
    }
    const VlanRouting none{true, false, "", ""};
    const struct {
        const char *json;
        std::optional<VlanHistory> history;
    } histories[] = {
        {R"({"oldName":"x"})", {}},
        {R"({"created":1})", {}},
        {R"({"created":true})", VlanHistory{}},
        {R"({"created":false,"oldName":"a\"b","oldRouting":7})", VlanHistory{.created = false}},
        {R"({"created":true,"oldName":"x\ny"})", VlanHistory{}},
        {R"({"created":true,"oldRouting":{"routing":true,"ipAddr":"10.0.0.1"}})",
         VlanHistory{true, "", none}},
        {R"({"created":true,"oldRouting":{"routing":true,"ipAddr":"10.0.0.1; x","ipMask":"255.0.0.0"}})",
         VlanHistory{true, "", none}},
    };
    for (const auto &row : histories)
        EXPECT_EQ(parsed(row.json).history, row.history) << row.json;
    for (const char *name : {"", "a\\b", "\x7f", "\xff", "\xc3"})
        EXPECT_FALSE(isVlanName(name));
    EXPECT_TRUE(isVlanName("It's the hall, Straße 1"));
}

void *noMemory(std::size_t) {
    return nullptr;
}

TEST(VlanSettingsTest, NothingIsPrintedWithoutMemory) {
    cJSON_Hooks hooks{noMemory, std::free};
    cJSON_InitHooks(&hooks);
    const std::string text = VlanSettings{}.print(VlanId(2));
    cJSON_InitHooks(nullptr);
    EXPECT_EQ(text, "");
}

TEST(ShureConfigTest, PortsAsTheyStand) {
    const struct {
        const char *json;
        std::vector<std::int32_t> ports;
    } cases[] = {
        {R"({"shureDevicePort":[5,6,"x",900,4000000000,-1],"shureDevicePort":[7]})",
         {5, 6, 900, INT32_MAX, -1}},
        {R"({"shureDevicePort":[]})", {}},
        {R"({"other":[5]})", {}},
        {"not JSON", {}},
        {"", {}},
    };
    for (const auto &row : cases)
        EXPECT_EQ(parseShureDevicePorts(row.json), row.ports) << row.json;
}

}  // namespace
