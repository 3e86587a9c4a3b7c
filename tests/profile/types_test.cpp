// The type table, the feature mask, and the shipped templates against both.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "common/owners.h"
#include "profile/templates.h"
#include "store/profile_template.h"
#include "store/profile_types.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using platform::paths::kProfileTemplateDir;
using test_support::writeText;

TEST(ProfileTypes, LookUpIsExact) {
    ProfileTypeAttributes attributes{};
    std::int32_t mtu = -1;
    ASSERT_EQ(profileTypeAttrGet("Avid S6L", &attributes), 0);
    EXPECT_EQ(attributes, (ProfileTypeAttributes{1500, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 65537, 65537}));
    EXPECT_EQ(profileTypeMtuGet("GANNET", &mtu), 0);
    EXPECT_EQ(mtu, 9216);
    EXPECT_EQ(profileTypeMtuGet("Lighting", &mtu), 0);
    EXPECT_EQ(mtu, 0);

    const auto kept = attributes;
    for (const char *name : {"avid s6l", "Avid S6L ", "Avid", "", static_cast<const char *>(nullptr)}) {
        mtu = -1;
        EXPECT_EQ(profileTypeMtuGet(name, &mtu), 10000);
        EXPECT_EQ(mtu, 0);
        EXPECT_EQ(profileTypeAttrGet(name, &attributes), 10000);
        EXPECT_EQ(attributes, kept);
    }
}

// Sums over whole columns find a digit in the wrong place.
TEST(ProfileTypes, ColumnsAddUp) {
    ProfileTypeAttributes sum{};
    std::set<std::string> names;
    for (const auto &type : profileTypeTable()) {
        const auto &a = type.attributes;
        names.insert(type.name);
        sum.mtu += a.mtu, sum.modeA += a.modeA, sum.modeB += a.modeB;
        sum.polyProxyQuerier += a.polyProxyQuerier, sum.lightwareIgmp += a.lightwareIgmp;
        sum.querierInterval += a.querierInterval, sum.fastLeave += a.fastLeave, sum.harmanAcl += a.harmanAcl;
        sum.etcVlan += a.etcVlan, sum.etcGlobal += a.etcGlobal, sum.rstp += a.rstp;
        sum.macFilter += a.macFilter, sum.pairA += a.pairA, sum.pairB += a.pairB;
        EXPECT_EQ(a.modeA, a.modeB) << type.name;
    }
    EXPECT_EQ(names.size(), 50u);
    EXPECT_EQ(profileTypeTable().size(), 50u);
    EXPECT_EQ(sum, (ProfileTypeAttributes{166488, 48, 48, 2, 1, 620, 2, 1, 1, 1, 1, 2, 131074, 131073}));
}

class ProfileMaskTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        fs::create_directories(platform::fsPath(kProfileTemplateDir));
        fs::create_directories(platform::fsPath(platform::paths::kVlanProfileConfigDir));
    }

    static void put(const std::string &file, const std::string &text) {
        writeText((kProfileTemplateDir + file).c_str(), text);
    }

    ProfileFeatureMask mask(const char *type, std::int32_t vlanId = 0, std::int32_t vlanType = 1,
                            std::int32_t code = 0) {
        ProfileFeatureMask out{~0u, -1, 0xff};
        EXPECT_EQ(profileFeatureMaskGet(&client, vlanId, type, vlanType, &out), code) << type;
        return out;
    }
    // The bits of a template for a type that is in no table.
    std::uint32_t bits(const std::string &text) {
        put("House_Audio", text);
        return mask("House Audio").features;
    }
};

TEST_F(ProfileMaskTest, TemplateKeys) {
    const struct {
        const char *key;
        std::uint32_t onTrue, onFalse, onOther;
    } rows[] = {
        {"PTP", 0x1, 0, 0},         {"AVB", 0x2, 0, 0},       {"flowControl", 0x4, 0x4, 0x4},
        {"poe", 0x8, 0, 0},         {"storm", 0, 0x80, 0},    {"qos", 0x100, 0x100, 0x100},
        {"Sonos", 0x200, 0, 0},     {"LLDP", 0, 0x400, 0},    {"ISDP", 0, 0x800, 0},
        {"STP", 0, 0x1000, 0},      {"PTP-BC", 0x2000, 0, 0}, {"ptp", 0, 0, 0},
        {"queryInterval", 0, 0, 0}, {"MTU", 0, 0, 0},
    };
    for (const auto &row : rows) {
        const auto with = [&](const char *value) {
            return bits(std::string("{\"") + row.key + "\":" + value + "}");
        };
        EXPECT_EQ(with("true"), row.onTrue) << row.key;
        EXPECT_EQ(with("false"), row.onFalse) << row.key;
        for (const char *other : {"null", "0", "1", "\"true\"", "[]", "{}"})
            EXPECT_EQ(with(other), row.onOther) << row.key << other;
    }
    EXPECT_EQ(bits(R"({"multicast":{"queryInterval":0}})"), 0x20u);
    EXPECT_EQ(bits(R"({"multicast":{"querier":true}})"), 0u);
    EXPECT_EQ(bits(R"({"multicast":true})"), 0u);
    EXPECT_EQ(bits("[true]"), 0u);
}

TEST_F(ProfileMaskTest, TypesThatAreSpecial) {
    for (const auto &type : profileTypeTable())
        put(profileTemplateFileName(type.name), "{}");
    const auto expect = [&](const char *type, std::uint32_t features, unsigned extra,
                            std::int32_t vlanType = 1) {
        EXPECT_EQ(mask(type, 0, vlanType),
                  (ProfileFeatureMask{features, 0, static_cast<std::uint8_t>(extra)}))
            << type;
    };
    expect("Audio AES67", 0x400010, 0);
    expect("Audio Video AVB", 0x40, 0);
    expect("Audio Video AVB MILAN", 0x40, 0x20);
    expect("Audio Video AVB MILAN with Dante PTPv1 PTPv2 or AES67", 0x440050, 0x40);
    expect("Telos AllianceLivewire+ AES67", 0x400050, 0x01);
    expect("G&D KVM-over-IP", 0x1400050, 0x02);
    expect("Poly StudioNet Modular Room", 0x408010, 0);
    expect("AVoIP Lightware AV network", 0x450050, 0);
    expect("Unite Audio", 0x460050, 0);
    expect("HARMAN Professional AV Network", 0x440050, 0, 2);
    expect("HARMAN Professional AV Network", 0x4c0050, 0, 3);
    expect("ETC Lighting", 0x740050, 0);
    expect("DICENTIS Conference system", 0xc40090, 0);
    expect("Visionary Advanced Multi-Domain", 0x1440050, 0);
    expect("URC Automation", 0x6000040, 0x10);
    expect("Avid S6L", 0xe000040, 0x10);
}

TEST_F(ProfileMaskTest, SettingsOfTheVlan) {
    put("Unite_Audio", R"({"PTP":false})");
    put("B", "{}");
    put("C", R"({"PTP-BC":true})");
    EXPECT_EQ(mask("C", 30), (ProfileFeatureMask{0x2000, 30, 0}));
    EXPECT_EQ(mask("B", 30), (ProfileFeatureMask{}));
    const auto settings = [](const char *text) { writeText("/tmp/vlan_profile_config/30", text); };
    for (const char *text : {"{\"config\":{\"ptpTc\":false}}", "{\"config\":{\"ptpTc\":1,\"x\":2}}"}) {
        settings(text);
        EXPECT_EQ(mask("Unite Audio", 30).features, 0x460055u);
        EXPECT_EQ(mask("B", 30).features, 0x1u);
        EXPECT_EQ(mask("B", 31).features, 0u);
        EXPECT_EQ(mask("B", 0).features, 0u);
    }
    for (const char *text : {"", "{", "{\"ptpTc\":true}", "{\"config\":{}}", "{\"config\":[1]}"}) {
        settings(text);
        EXPECT_EQ(mask("B", 30).features, 0u) << text;
    }
}

TEST_F(ProfileMaskTest, NoTemplateNoMask) {
    const ProfileFeatureMask none{};
    put("Broken", "{");
    fs::create_directories(platform::fsPath(kProfileTemplateDir) + "/Folder");
    writeText("/usr/local/appmgr/usr/share/pavo/outside", R"({"PTP":true})");
    for (const char *type :
         {"Audio Dante", "Broken", "Folder", "", ".", "..", "../outside", "x/../../outside", "/etc/passwd",
          "Audio\nDante", static_cast<const char *>(nullptr)})
        EXPECT_EQ(mask(type, 30, 3, 10000), none) << (type != nullptr ? type : "");
    // A name is cut to what fits a file name, and only then looked for.
    EXPECT_EQ(mask(std::string(10000, 'x').c_str(), 30, 3, 10000), none);
    put(std::string(255, 'x'), R"({"PTP":true})");
    EXPECT_EQ(mask((std::string(255, 'x') + "/../y").c_str()).features, 0x1u);
}

// --- the shipped templates

const cJSON *member(const cJSON *obj, const char *key) {
    return cJSON_GetObjectItemCaseSensitive(obj, key);
}

TEST_F(ProfileMaskTest, ShippedTemplatesAgreeWithTheTable) {
    const fs::path shipped = fs::path(PAVO_DATA_DIR) / "profileTemplate";
    fs::copy(shipped, platform::fsPath(kProfileTemplateDir), fs::copy_options::recursive);
    std::set<std::string> expected;
    std::size_t listing = 1;
    for (const auto &type : profileTypeTable()) {
        SCOPED_TRACE(type.name);
        const bool poly = type.name == std::string_view(PROFILE_TYPE_NAME_POLY);
        const std::string file =
            poly ? std::string(PROFILE_TEMPLATE_FILE_POLY) : profileTemplateFileName(type.name);
        expected.insert(file);
        const std::string text = test_support::readFile((kProfileTemplateDir + file).c_str());
        listing += text.size() + 1;

        const JsonPtr tmpl(profileTemplateLoad(type.name));
        ASSERT_NE(tmpl, nullptr);
        ASSERT_NE(tmpl->child, nullptr);
        EXPECT_STREQ(tmpl->child->string, "name");
        EXPECT_STREQ(cJSON_GetStringValue(tmpl->child), type.name);
        EXPECT_EQ(text, TextPtr(cJSON_PrintUnformatted(tmpl.get())).get());

        const auto &row = type.attributes;
        const cJSON *const multicast = member(tmpl.get(), "multicast");
        const cJSON *const interval = member(multicast, "queryInterval");
        EXPECT_EQ(cJSON_IsFalse(member(tmpl.get(), "MTU")) != 0, row.mtu != 0);
        EXPECT_EQ(interval != nullptr ? interval->valueint : 0, row.querierInterval);
        EXPECT_EQ(cJSON_IsTrue(member(multicast, "fastLeave")) != 0, row.fastLeave != 0);

        const auto wants = mask(type.name).features;
        const auto has = [wants](std::uint32_t bit) { return (wants & bit) != 0; };
        EXPECT_EQ(has(PROFILE_FEATURE_SONOS), type.name == std::string_view("Sonos"));
        EXPECT_EQ(has(PROFILE_FEATURE_AVB), std::string_view(type.name).starts_with(PROFILE_TYPE_NAME_AVB));
        EXPECT_FALSE(has(PROFILE_FEATURE_LLDP_OFF));  // detection lives on it
        // 802.1AS, the transparent clock and the boundary clock shut each other out.
        EXPECT_LE(has(PROFILE_FEATURE_AVB) + has(PROFILE_FEATURE_PTP_TC) + has(PROFILE_FEATURE_PTP_BC), 1);
    }
    std::set<std::string> found;
    for (const auto &entry : fs::directory_iterator(shipped))
        found.insert(entry.path().filename());
    EXPECT_EQ(found, expected);
    EXPECT_LT(listing, 30719u);
}

}  // namespace
