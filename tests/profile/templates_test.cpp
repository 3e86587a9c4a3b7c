// Templates and types of profiles: the operations of the web interface, the type table, the feature mask.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <set>
#include <tuple>

#include "common/json.h"
#include "profile/feature_mask_ops.h"
#include "profile/offer.h"
#include "profile/templates_ops.h"
#include "store/profile_db_ops.h"
#include "store/profile_template_ops.h"
#include "store/vlan_settings.h"
#include "swapi/features.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using platform::paths::kProfileTemplateDir;
using namespace test_support;

std::string at(const std::string &file) {
    return kProfileTemplateDir + file;
}
bool isThere(const std::string &file) {
    return exists(at(file).c_str());
}

// A profile as it is stored; with n = 0 only its name.
std::string profileOf(const std::string &name, int n = 1) {
    const JsonPtr quoted(cJSON_CreateString(name.c_str()));
    return "{\"name\":" + std::string(TextPtr(cJSON_PrintUnformatted(quoted.get())).get()) +
           (n != 0 ? ",\"n\":" + std::to_string(n) : "") + "}";
}

class TemplatesTest : public ProfileTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        for (const char *folder : {kProfileTemplateDir, platform::paths::kVlanProfileConfigDir})
            fs::create_directories(platform::fsPath(folder));
    }
    static void put(const std::string &file, const std::string &text) { writeText(at(file).c_str(), text); }

    std::string list() {
        // Exactly the room that was promised, so that the sanitizers see one byte more.
        std::vector<char> out(PROFILE_TEMPLATE_LIST_SIZE, '\x7f');
        EXPECT_EQ(ProfileTemplateGet(&client, nullptr, out.data()), 0);
        EXPECT_NE(std::memchr(out.data(), '\0', out.size()), nullptr);
        return out.data();
    }
    using Operation = std::int32_t (*)(Switch, const char *);
    std::int32_t put(Operation operation, const std::string &name, int n) {
        return operation(&client, ("{\"profile\":" + profileOf(name, n) + "}").c_str());
    }
    std::int32_t create(const std::string &name, int n = 1) { return put(ProfileTemplateCreate, name, n); }
    std::int32_t edit(const std::string &name, int n = 1) { return put(ProfileTemplateEdit, name, n); }
    std::int32_t remove(const std::string &name) {
        return ProfileTemplateDelete(&client, profileOf(name, 0).c_str());
    }

    // All files in and around the template directory, with their sizes.
    static std::set<std::string> tree() {
        std::set<std::string> out;
        for (const auto &entry : fs::recursive_directory_iterator(platform::fsPath("/usr")))
            if (entry.is_regular_file())
                out.insert(entry.path().string() + " " + std::to_string(entry.file_size()));
        return out;
    }
};

// --- listing

TEST_F(TemplatesTest, ListsWhatTheSwitchOffers) {
    EXPECT_EQ(list(), "[");
    for (const char *file : {"Video", "Audio_Video_AVB", "Audio_Video_AVB_MILAN", "Audio_Video_SMPTE",
                             "Audio_Video_AVB_MILAN_with_Dante_PTPv1_PTPv2_or_AES67", "Audio_Video_AVB_2",
                             "Poly_StudioNet_Modular_Room_Switch", "Poly_StudioNet_Modular_Room", "data"})
        put(file, std::string("\"") + file + "\"");
    const std::string poly = R"("Poly_StudioNet_Modular_Room_Switch",)";
    const std::string room = R"("Poly_StudioNet_Modular_Room",)";
    const auto expect = [&](const std::string &offered) {
        EXPECT_EQ(list(), R"(["Audio_Video_AVB_2",)" + offered + R"("Video","data"])");
    };
    std::int32_t supported = 7;
    EXPECT_EQ(featureSupportedGet(&client, FEATURE_DOT1AS, &supported), 10004);
    EXPECT_EQ(supported, 0);
    expect(R"("Audio_Video_SMPTE",)" + room);
    const std::pair<std::string, std::string> models[] = {
        {"AVM4200-10X", room}, {"AVM4200-10XP rev 2", room + poly}, {std::string(1000, 'A'), room}};
    for (const auto &[model, offered] : models) {
        startSwitch({.machineModel = model});
        expect(offered);
    }
    EXPECT_EQ(logged("ERROR"), 0u);
    failCall("rpcclt_openapiSystemRegMachineModelGet");
    expect(room);
    EXPECT_EQ(logged("ERROR"), 1u);
    fs::remove_all(platform::fsPath(kProfileTemplateDir));
    EXPECT_EQ(list(), "[]");
    EXPECT_EQ(logged("Open dir error...\r\n"), 1u);
}

TEST_F(TemplatesTest, UnreadableEntriesAreSkipped) {
    put("a", "1");
    put("b", "");
    fs::create_directory(platform::fsPath(at("c")));
    fs::create_symlink("nowhere", platform::fsPath(at("d")));
    ASSERT_EQ(mkfifo(platform::fsPath(at("e")).c_str(), 0600), 0);
    put("f", std::string("2\0,3", 4));
    put("g", "\"\xff\"");
    EXPECT_EQ(list(), "[1,2,\"?\"]");
    EXPECT_EQ(logged("ProfileTemplateGet: Failed to open file " + at("")), 4u);
}

TEST_F(TemplatesTest, ListingStopsAtTheFirstThatDoesNotFit) {
    put("a", std::string(15000, '1'));
    put("c", "3");
    const auto a = "[" + std::string(15000, '1'), b = std::string(15713, '2');
    // With the separators 30715, 30717 or 30718 of 30719: room for the bracket, not for ",3" as well.
    for (const auto &[more, end] : {std::pair("", ",3]"), {"22", "]"}, {"222", ""}}) {
        put("b", b + more);
        EXPECT_EQ(list(), *end != 0 ? a + "," + b + more + end : a + "]");
    }
    put("a", std::string(100000, '1'));
    EXPECT_EQ(list(), "[");
    EXPECT_EQ(logged("ProfileTemplateGet: Response buffer full, skipping remaining profiles\n"), 3u);
}

// --- create and edit

TEST_F(TemplatesTest, CreateStoresTheProfileObjectOnce) {
    const auto stored = [](const char *file) { return readFile(at(file).c_str()); };
    const std::string name = "Audio Video AVB MILAN";
    EXPECT_EQ(create(name), 0);
    EXPECT_EQ(create(name, 2), 14102);
    EXPECT_EQ(stored("Audio_Video_AVB_MILAN"), profileOf(name));
    EXPECT_EQ(logged("Audio_Video_AVB_MILAN Already exists\n\r"), 1u);
    EXPECT_EQ(edit(name, 3), 0);
    EXPECT_EQ(stored("Audio_Video_AVB_MILAN"), profileOf(name, 3));
    EXPECT_EQ(edit("Audio Dante"), 10000);
    EXPECT_FALSE(isThere("Audio_Dante"));
    EXPECT_EQ(logged("(WARN)"), 1u);
    fs::remove_all(platform::fsPath(kProfileTemplateDir));
    EXPECT_EQ(create("Video"), 10000);
    EXPECT_EQ(logged("ERROR"), 2u) << "a failed write is passed on";
}

TEST_F(TemplatesTest, NamesAreCutTo31Characters) {
    const std::string name = "My own rather long profile type, kept";
    EXPECT_EQ(create(name), 0);
    EXPECT_EQ(readFile(at("My_own_rather_long_profile_type").c_str()), profileOf(name));
    EXPECT_EQ(create(name + " otherwise"), 14102);
    EXPECT_EQ(edit(name + " still", 2), 0);
    EXPECT_EQ(remove(name), 0);
    // A shipped file has its full name and is out of reach.
    put("Shure_Split_Audio_and_Control_Network", "{}");
    EXPECT_EQ(edit("Shure Split Audio and Control Network"), 10000);
    EXPECT_EQ(remove("Shure Split Audio and Control Network"), 10000);
}

TEST_F(TemplatesTest, BadRequests) {
    const auto before = tree();
    EXPECT_EQ(ProfileTemplateCreate(nullptr, "{}"), 10003);
    EXPECT_EQ(ProfileTemplateCreate(&client, nullptr), 10003);
    EXPECT_EQ(ProfileTemplateEdit(&client, nullptr), 10003);
    EXPECT_EQ(ProfileTemplateDelete(&client, nullptr), 10002);
    const auto expectEach = [&](std::int32_t code, const std::vector<const char *> &texts) {
        for (const char *text : texts)
            for (const auto operation : {ProfileTemplateCreate, ProfileTemplateEdit, ProfileTemplateDelete})
                EXPECT_EQ(operation(&client, text), code) << text;
    };
    expectEach(10002, {"", "{", "nonsense"});
    expectEach(10003, {"{}", "1", R"({"profile":"x"})", R"({"profile":[{"name":"x"}]})",
                       R"({"profile":{"name":1}})", R"({"Profile":{"name":"x"}})"});
    // The name belongs on top here, and nowhere else.
    EXPECT_EQ(ProfileTemplateDelete(&client, R"({"profile":{"name":"x"}})"), 10003);
    EXPECT_EQ(logged("param is null \r\n"), 3u);
    EXPECT_EQ(logged("profile  load json error\r\n"), 3u);
    EXPECT_EQ(logged("profile load json error\r\n"), 7u);
    EXPECT_EQ(logged("profile param error :{}\r\n"), 3u);
    EXPECT_EQ(tree(), before);
}

// Nothing outside the directory is read, written or deleted, whatever the name.
TEST_F(TemplatesTest, HostileNamesStayInside) {
    writeText("/usr/local/appmgr/usr/share/pavo/x", "kept");
    fs::create_directory(platform::fsPath(at("a")));
    put("a/b", "kept");
    const auto before = tree();
    for (const char *name : {"../x", "..", "", "a/b", "/etc/passwd", "a\nb", "a\x7f"}) {
        EXPECT_EQ(create(name), 10003) << name;
        EXPECT_EQ(edit(name), 10000) << name;
        EXPECT_EQ(remove(name), 10000) << name;
    }
    // A folder is in the way of a template, but is none.
    EXPECT_EQ(create("a"), 14102);
    EXPECT_EQ(edit("a"), 10000);
    EXPECT_EQ(remove("a"), 10000);
    EXPECT_EQ(tree(), before);
}

// --- delete and count

class TemplateDeleteTest : public TemplatesTest {
  protected:
    static constexpr const char *kType = "House Audio";

    void SetUp() override {
        TemplatesTest::SetUp();
        ASSERT_EQ(vlanInfoTableCreate(), 0);
        ASSERT_EQ(create(kType), 0);
    }
    static std::string pathOf(std::int32_t id) { return vlanSettingsPath(*VlanId::from(id)); }
    void row(std::int32_t id, const char *type, bool onSwitch) {
        ASSERT_EQ(vlanInfoInsert(id, 1, "n", type, "#ffffff"), 0);
        writeText(pathOf(id).c_str(), "{}");
        if (onSwitch)
            enter("vlan database; vlan " + std::to_string(id));
    }
    bool kept(std::int32_t id) {
        EXPECT_EQ(vlanInfoSelectRowsById(id) == 1, exists(pathOf(id).c_str())) << id;
        return vlanInfoSelectRowsById(id) == 1;
    }
};

TEST_F(TemplateDeleteTest, ATemplateInUseStaysAndOrphansGoWithTheirs) {
    row(10, kType, false);
    row(20, kType, true);
    row(30, "Video", false);
    EXPECT_EQ(ProfileAssignedCount(&client, kType), 1);
    EXPECT_EQ(ProfileAssignedCount(&client, "house audio") + ProfileAssignedCount(&client, nullptr), 0);
    EXPECT_EQ(remove(kType), 14101);
    EXPECT_TRUE(isThere("House_Audio") && kept(10) && kept(20) && kept(30));

    EXPECT_EQ(rpcclt_openapiVlanDelete(&client, 20), OPEN_E_NONE);
    fs::remove(platform::fsPath(pathOf(20)));
    EXPECT_EQ(remove(kType), 0);
    EXPECT_FALSE(isThere("House_Audio") || kept(10) || kept(20));
    EXPECT_TRUE(kept(30));
    EXPECT_EQ(logged("Cleaning up orphaned VLAN 10 entry (profile: House Audio)\r\n"), 1u);
    EXPECT_EQ(logged("Removed orphaned config file: /tmp/vlan_profile_config/10\r\n"), 1u);
    EXPECT_EQ(remove(kType), 10000);
    EXPECT_EQ(logged("House_Audio non-existent\n\r"), 1u);
}

TEST_F(TemplateDeleteTest, QuotesNeitherBreakNorWidenTheSearch) {
    const char *const quoted = "It's \"loud\"";
    ASSERT_EQ(create(quoted), 0);
    row(20, quoted, true);
    row(21, kType, true);
    row(22, kType, false);
    EXPECT_EQ(remove(quoted), 14101);
    for (const char *all : {"' or '1' = '1", "x' union select 21 --", "'; drop table x;--"}) {
        EXPECT_EQ(ProfileAssignedCount(&client, all), 0);
        ASSERT_EQ(create(all), 0);
        EXPECT_EQ(remove(all), 0);
    }
    EXPECT_TRUE(kept(20) && kept(21) && kept(22));
}

TEST_F(TemplateDeleteTest, WhatIsNotKnownIsNoOrphan) {
    row(10, kType, true);
    for (const bool lost : {false, true}) {
        if (lost)
            fs::remove(platform::fsPath(platform::paths::kProfileDb));
        else
            failCall("openapiVlanCreatedCheck", 1, false, OPEN_E_RPC);
        EXPECT_EQ(ProfileAssignedCount(&client, kType), 0);
        EXPECT_EQ(remove(kType), 0);
        EXPECT_TRUE(!isThere("House_Audio") && exists(pathOf(10).c_str()) && (lost || kept(10)));
        clearFaults();
        ASSERT_EQ(create(kType), 0);
    }
    EXPECT_EQ(logged("Can't open database: "), 2u);
}

// --- types and what their templates ask for

class ProfileMaskTest : public TemplatesTest {
  protected:
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
    // What true, false and any other value of a key ask for.
    const std::tuple<const char *, std::uint32_t, std::uint32_t, std::uint32_t> rows[] = {
        {"PTP", 0x1, 0, 0},    {"AVB", 0x2, 0, 0},    {"flowControl", 0x4, 0x4, 0x4}, {"poe", 0x8, 0, 0},
        {"storm", 0, 0x80, 0}, {"LLDP", 0, 0x400, 0}, {"qos", 0x100, 0x100, 0x100},   {"Sonos", 0x200, 0, 0},
        {"STP", 0, 0x1000, 0}, {"ISDP", 0, 0x800, 0}, {"PTP-BC", 0x2000, 0, 0},       {"ptp", 0, 0, 0}};
    for (const auto &[key, onTrue, onFalse, onOther] : rows)
        for (const auto &[value, wanted] :
             {std::pair("true", onTrue), {"false", onFalse}, {"null", onOther}, {"1", onOther}})
            EXPECT_EQ(bits(std::string("{\"") + key + "\":" + value + "}"), wanted) << key << value;
    EXPECT_EQ(bits(R"({"multicast":{"queryInterval":0}})"), 0x20u);
    EXPECT_EQ(bits(R"({"multicast":{"querier":true}})") | bits(R"({"multicast":true})"), 0u);
}

TEST_F(ProfileMaskTest, TypesThatAreSpecial) {
    for (const auto &type : profileTypes())
        put(profileTemplateFileName(type.name), "{}");
    const std::tuple<const char *, std::uint32_t, std::uint8_t, std::int32_t> rows[] = {
        {"Audio Video AVB MILAN with Dante PTPv1 PTPv2 or AES67", 0x440050, 0x40, 1},
        {"Telos AllianceLivewire+ AES67", 0x400050, 0x01, 1},
        {"G&D KVM-over-IP", 0x1400050, 0x02, 1},
        {"HARMAN Professional AV Network", 0x440050, 0, 2},
        {"HARMAN Professional AV Network", 0x4c0050, 0, 3},
        {"DICENTIS Conference system", 0xc40090, 0, 1},
        {"Avid S6L", 0xe000040, 0x10, 1}};
    for (const auto &[type, features, extra, vlanType] : rows)
        EXPECT_EQ(mask(type, 0, vlanType), (ProfileFeatureMask{features, 0, extra})) << type;
}

TEST_F(ProfileMaskTest, SettingsOfTheVlan) {
    put("Unite_Audio", R"({"PTP":false})");
    put("B", R"({"PTP-BC":true})");
    EXPECT_EQ(mask("B", 30), (ProfileFeatureMask{0x2000, 30, 0}));
    for (const std::string text : {R"({"config":{"ptpTc":false}})", R"({"config":{"ptpTc":1,"x":2}})", "{",
                                   R"({"ptpTc":true})", R"({"config":[1]})"}) {
        const auto ptp = text.starts_with(R"({"config":{)") ? 1u : 0u;
        writeText("/tmp/vlan_profile_config/30", text);
        EXPECT_EQ(mask("Unite Audio", 30).features, 0x460050u | ptp * 5) << text;
        EXPECT_EQ(mask("B", 30).features, 0x2000u | ptp) << text;
        EXPECT_EQ(mask("B", 31).features | mask("B", 0).features, 0x2000u);
    }
    put("Broken", "{");
    for (const char *type :
         {"Audio Dante", "Broken", "", "../profileTemplate/B", static_cast<const char *>(nullptr)})
        EXPECT_EQ(mask(type, 30, 3, 10000), ProfileFeatureMask{}) << "no template, no mask";
}

TEST_F(ProfileMaskTest, ShippedTemplatesAgreeWithTheTable) {
    const fs::path shipped = fs::path(PAVO_DATA_DIR) / "profileTemplate";
    fs::copy(shipped, platform::fsPath(kProfileTemplateDir), fs::copy_options::recursive);
    std::set<std::string> expected;
    std::size_t listing = 1;
    for (const auto &type : profileTypes()) {
        SCOPED_TRACE(type.name);
        const std::string_view name = type.name;
        const std::string file = name == PROFILE_TYPE_NAME_POLY ? std::string(PROFILE_TEMPLATE_FILE_POLY)
                                                                : profileTemplateFileName(type.name);
        expected.insert(file);
        const std::string text = readFile(at(file).c_str());
        listing += text.size() + 1;

        const JsonPtr tmpl(profileTemplateLoad(type.name));
        EXPECT_TRUE(text.starts_with(profileOf(type.name, 0).substr(0, name.size() + 10))) << text;
        EXPECT_EQ(text, printJsonLine(tmpl.get()));

        const auto &row = type.attributes;
        const cJSON *const multicast = member(tmpl.get(), "multicast");
        const cJSON *const interval = member(multicast, "queryInterval");
        EXPECT_EQ(boolMember(tmpl.get(), "MTU") == false, row.mtu != 0);
        EXPECT_EQ(interval != nullptr ? interval->valueint : 0, row.querierInterval);
        EXPECT_EQ(boolMember(multicast, "fastLeave") == true, row.fastLeave != 0);

        const auto wants = mask(type.name).features;
        const auto has = [wants](std::uint32_t bit) { return (wants & bit) != 0; };
        EXPECT_FALSE(has(PROFILE_FEATURE_LLDP_OFF));  // detection lives on it
        // 802.1AS, the transparent clock and the boundary clock shut each other out.
        EXPECT_LE(has(PROFILE_FEATURE_AVB) + has(PROFILE_FEATURE_PTP_TC) + has(PROFILE_FEATURE_PTP_BC), 1);
    }
    for (const auto &entry : fs::directory_iterator(shipped))
        EXPECT_EQ(expected.erase(entry.path().filename()), 1u) << entry.path();
    EXPECT_TRUE(expected.empty());
    EXPECT_LT(listing, 30719u);
}

}  // namespace
