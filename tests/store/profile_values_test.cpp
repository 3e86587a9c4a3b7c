// Profile types, templates, demand and the files that profiles keep.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "common/json.h"
#include "store/profile_demand.h"
#include "store/profile_template_ops.h"
#include "store/profile_types_ops.h"
#include "store/shure_config.h"
#include "store/vlan_settings.h"
#include "tests/support/root.h"

namespace {

using namespace pavo;
using test_support::writeText;

TEST(ProfileTypesTest, TableIsKnownByExactNames) {
    EXPECT_EQ(profileTypes().size(), 50u);
    ProfileTypeAttributes attributes{};
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

TEST(ProfileTemplateTest, TemplatesAreLoadedByName) {
    std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
    const auto writeTemplate = [](const std::string &type, const std::string &json) {
        writeText(profileTemplatePath(type).c_str(), json);
    };
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

TEST(VlanSettingsTest, ArePrintedAsTheyAreRead) {
    std::filesystem::create_directories(platform::fsPath(platform::paths::kVlanProfileConfigDir));
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
    EXPECT_FALSE(readVlanSettings(VlanId(21)));
}

TEST(VlanSettingsTest, WhatMakesNoSenseIsLeftOut) {
    for (const char *text : {"", "{", "by hand"})
        EXPECT_FALSE(VlanSettings::parse(text)) << text;
    const VlanHistory plain{true, "", VlanRouting{true, false, "", ""}};
    const struct {
        const char *json;
        std::optional<bool> ptpTc{};
        std::optional<std::vector<IfNum>> ports{};
        std::optional<VlanHistory> history{};
    } cases[] = {
        {R"({"config":{"ptpTc":true,"assignedPort":[]}})", true, std::vector<IfNum>{}},
        {R"({"config":{"ptpTc":null,"assignedPort":[3,"4",-1,0,5.5,6]}})", false, {{IfNum(3), IfNum(6)}}},
        {R"({"config":{"ptpTc":1,"assignedPort":5}})", false},
        {R"({"config":[],"ptpTc":true})"},
        {"[]"},
        {R"({"oldName":"x","created":1})"},
        {R"({"created":false,"oldName":"a\"b","oldRouting":7})", {}, {}, VlanHistory{.created = false}},
        {R"({"created":true,"oldName":"x\ny"})", {}, {}, VlanHistory{}},
        {R"({"created":true,"oldRouting":{"routing":true,"ipAddr":"10.0.0.1"}})", {}, {}, plain},
        {R"({"created":true,"oldRouting":{"routing":true,"ipAddr":"10.0.0.1; x","ipMask":"255.0.0.0"}})",
         {},
         {},
         plain},
    };
    for (const auto &row : cases) {
        const VlanSettings settings = VlanSettings::parse(row.json).value();
        EXPECT_EQ(settings.ptpTc, row.ptpTc) << row.json;
        EXPECT_EQ(settings.assignedPorts, row.ports) << row.json;
        EXPECT_EQ(settings.history, row.history) << row.json;
    }
    for (const char *name : {"", "a\\b", "\x7f", "\xff", "\xc3"})
        EXPECT_FALSE(isVlanName(name));
    EXPECT_TRUE(isVlanName("It's the hall, Straße 1"));
}

TEST(VlanSettingsTest, NothingIsPrintedWithoutMemory) {
    cJSON_Hooks hooks{[](std::size_t) -> void * { return nullptr; }, std::free};
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
