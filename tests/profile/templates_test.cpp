// The template operations of the web interface.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "common/owners.h"
#include "profile/templates.h"
#include "store/profile_db.h"
#include "store/profile_template.h"
#include "swapi/features.h"
#include "tests/support/switch_fixture.h"

namespace {

namespace fs = std::filesystem;
using platform::paths::kProfileTemplateDir;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

std::string at(const std::string &file) {
    return kProfileTemplateDir + file;
}

// A request text: {"profile": {"name": <name>, "n": <n>}}, or with the name on top.
std::string profileOf(const std::string &name, int n = 1) {
    const JsonPtr root(cJSON_CreateObject());
    cJSON *const profile = cJSON_AddObjectToObject(root.get(), "profile");
    cJSON_AddStringToObject(profile, "name", name.c_str());
    cJSON_AddNumberToObject(profile, "n", n);
    return TextPtr(cJSON_Print(root.get())).get();
}

std::string nameOf(const std::string &name) {
    const JsonPtr root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "name", name.c_str());
    return TextPtr(cJSON_Print(root.get())).get();
}

class TemplatesTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        fs::create_directories(platform::fsPath(kProfileTemplateDir));
    }

    std::string list() {
        // Exactly the room that was promised, so that the sanitizers see one byte more.
        std::vector<char> out(PROFILE_TEMPLATE_LIST_SIZE, '\x7f');
        EXPECT_EQ(ProfileTemplateGet(&client, nullptr, out.data()), 0);
        EXPECT_NE(std::memchr(out.data(), '\0', out.size()), nullptr);
        return out.data();
    }
    std::int32_t create(const std::string &request) {
        return ProfileTemplateCreate(&client, request.c_str());
    }
    std::int32_t edit(const std::string &request) { return ProfileTemplateEdit(&client, request.c_str()); }
    std::int32_t remove(const std::string &request) {
        return ProfileTemplateDelete(&client, request.c_str());
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

TEST_F(TemplatesTest, EmptyAndUnreadableDirectories) {
    EXPECT_EQ(list(), "[");
    EXPECT_EQ(logged("ERROR"), 0u);
    fs::remove_all(platform::fsPath(kProfileTemplateDir));
    EXPECT_EQ(list(), "[]");
    EXPECT_EQ(logged("Open dir error...\r\n"), 1u);
}

TEST_F(TemplatesTest, ListsWhatTheSwitchOffers) {
    for (const char *file :
         {"Video", "Audio_Video_AVB", "Audio_Video_AVB_MILAN", "Audio_Video_SMPTE", "Audio_Dante",
          "Audio_Video_AVB_MILAN_with_Dante_PTPv1_PTPv2_or_AES67", "Audio_Video_AVB_2",
          "Poly_StudioNet_Modular_Room_Switch", "Poly_StudioNet_Modular_Room", "data"})
        writeText(at(file).c_str(), std::string("\"") + file + "\"");
    const std::string common = R"("Audio_Dante","Audio_Video_AVB_2")";
    const std::string rest = R"("Poly_StudioNet_Modular_Room",)";
    const std::string poly = R"("Poly_StudioNet_Modular_Room","Poly_StudioNet_Modular_Room_Switch",)";
    const std::string end = R"("Video","data"])";

    std::int32_t supported = 7;
    EXPECT_EQ(featureSupportedGet(&client, FEATURE_DOT1AS, &supported), 10004);
    EXPECT_EQ(supported, 0);
    EXPECT_EQ(list(), "[" + common + R"(,"Audio_Video_SMPTE",)" + rest + end);
    EXPECT_TRUE(smpteModelSupported(&client));
    startSwitch({.machineModel = "AVM4200-10X"});
    EXPECT_EQ(list(), "[" + common + "," + rest + end);
    startSwitch({.machineModel = "AVM4200-10XP rev 2"});
    EXPECT_EQ(list(), "[" + common + "," + poly + end);
    startSwitch({.machineModel = std::string(1000, 'A')});
    EXPECT_EQ(list(), "[" + common + "," + rest + end);
    EXPECT_EQ(logged("ERROR"), 0u);
    failCall("rpcclt_openapiSystemRegMachineModelGet");
    EXPECT_EQ(list(), "[" + common + "," + rest + end);
    EXPECT_EQ(logged("ERROR"), 1u);
}

TEST_F(TemplatesTest, UnreadableEntriesAreSkipped) {
    writeText(at("a").c_str(), "1");
    writeText(at("b").c_str(), "");
    fs::create_directory(platform::fsPath(at("c")));
    fs::create_symlink("nowhere", platform::fsPath(at("d")));
    ASSERT_EQ(mkfifo(platform::fsPath(at("e")).c_str(), 0600), 0);
    writeText(at("f").c_str(), std::string("2\0,3", 4));
    EXPECT_EQ(list(), "[1,2]");
    EXPECT_EQ(
        logged("ProfileTemplateGet: Failed to open file /usr/local/appmgr/usr/share/pavo/profileTemplate/"),
        4u);
}

TEST_F(TemplatesTest, ListingStopsAtTheFirstThatDoesNotFit) {
    const auto fill = [](std::size_t first, std::size_t second) {
        writeText(at("a").c_str(), std::string(first, '1'));
        writeText(at("b").c_str(), std::string(second, '2'));
    };
    writeText(at("c").c_str(), "3");
    fill(15000, 15715);  // with the separators 30717 of 30719: room for the bracket, not for ",3" as well
    const std::string both = "[" + std::string(15000, '1') + "," + std::string(15715, '2');
    EXPECT_EQ(list(), both + "]");
    EXPECT_EQ(logged("ProfileTemplateGet: Response buffer full, skipping remaining profiles\n"), 1u);
    fill(15000, 15713);
    EXPECT_EQ(list(), both.substr(0, both.size() - 2) + ",3]");
    fill(15000, 15716);
    EXPECT_EQ(list(), "[" + std::string(15000, '1') + "]");
    fill(30717, 1);
    EXPECT_EQ(list(), "[");
    fill(100000, 1);
    EXPECT_EQ(list(), "[");
    EXPECT_EQ(logged("ERROR"), 4u);
}

// --- create and edit

TEST_F(TemplatesTest, CreateStoresTheProfileObjectOnce) {
    EXPECT_EQ(create(profileOf("Audio Video AVB MILAN")), 0);
    EXPECT_EQ(readFile(at("Audio_Video_AVB_MILAN").c_str()), R"({"name":"Audio Video AVB MILAN","n":1})");
    EXPECT_EQ(create(profileOf("Audio Video AVB MILAN", 2)), 14102);
    EXPECT_EQ(readFile(at("Audio_Video_AVB_MILAN").c_str()), R"({"name":"Audio Video AVB MILAN","n":1})");
    EXPECT_EQ(logged("Audio_Video_AVB_MILAN Already exists\n\r"), 1u);

    EXPECT_EQ(edit(profileOf("Audio Video AVB MILAN", 3)), 0);
    EXPECT_EQ(readFile(at("Audio_Video_AVB_MILAN").c_str()), R"({"name":"Audio Video AVB MILAN","n":3})");
    EXPECT_EQ(edit(profileOf("Audio Dante")), 10000);
    EXPECT_FALSE(exists(at("Audio_Dante").c_str()));
    EXPECT_EQ(logged("(WARN)"), 1u);
}

TEST_F(TemplatesTest, NamesAreCutTo31Characters) {
    const std::string cut = "My_own_rather_long_profile_type";  // 31
    const std::string name = "My own rather long profile type, kept";
    EXPECT_EQ(create(profileOf(name)), 0);
    EXPECT_EQ(readFile(at(cut).c_str()), "{\"name\":\"" + name + "\",\"n\":1}");
    EXPECT_EQ(create(profileOf(name + " otherwise")), 14102);
    EXPECT_EQ(edit(profileOf(name + " still", 2)), 0);
    EXPECT_EQ(create(profileOf(std::string(10000, 'x'))), 0);
    EXPECT_TRUE(exists(at(std::string(31, 'x')).c_str()));
    EXPECT_EQ(remove(nameOf(std::string(32, 'x'))), 0);
    // A shipped file has its full name and is out of reach.
    writeText(at("Telos_AllianceLivewire+_AES67").c_str(), "{}");
    writeText(at("Shure_Split_Audio_and_Control_Network").c_str(), "{}");
    EXPECT_EQ(edit(profileOf("Telos AllianceLivewire+ AES67")), 0);
    EXPECT_EQ(edit(profileOf("Shure Split Audio and Control Network")), 10000);
    EXPECT_EQ(remove(nameOf("Shure Split Audio and Control Network")), 10000);
}

TEST_F(TemplatesTest, BadRequests) {
    const auto before = tree();
    EXPECT_EQ(ProfileTemplateCreate(nullptr, "{}"), 10003);
    EXPECT_EQ(ProfileTemplateCreate(&client, nullptr), 10003);
    EXPECT_EQ(ProfileTemplateEdit(&client, nullptr), 10003);
    EXPECT_EQ(logged("param is null \r\n"), 3u);
    EXPECT_EQ(ProfileTemplateDelete(&client, nullptr), 10002);
    for (const char *text : {"", "{", "nonsense"}) {
        EXPECT_EQ(create(text), 10002);
        EXPECT_EQ(edit(text), 10002);
        EXPECT_EQ(remove(text), 10002);
    }
    EXPECT_EQ(logged("profile  load json error\r\n"), 3u);
    EXPECT_EQ(logged("profile load json error\r\n"), 7u);
    for (const char *text :
         {"{}", "[]", "1", R"({"profile":"name"})", R"({"profile":[{"name":"x"}]})",
          R"({"profile":{"name":1}})", R"({"profile":{}})", R"({"Profile":{"name":"x"}})"}) {
        EXPECT_EQ(create(text), 10003) << text;
        EXPECT_EQ(edit(text), 10003) << text;
        EXPECT_EQ(remove(text), 10003) << text;
    }
    EXPECT_EQ(remove(R"({"name":["x"]})"), 10003);
    EXPECT_EQ(logged("profile param error :{}\r\n"), 3u);
    EXPECT_EQ(tree(), before);
}

// Nothing outside the directory is read, written or deleted, whatever the name.
TEST_F(TemplatesTest, HostileNamesStayInside) {
    writeText("/usr/local/appmgr/usr/share/pavo/x", "kept");
    fs::create_directory(platform::fsPath(at("a")));
    writeText(at("a/b").c_str(), "kept");
    const auto before = tree();
    for (const char *name : {"../x", "..", ".", "", "a/b", "/etc/passwd", "a\nb", "a\rb", "a\x7f", "\x01"}) {
        EXPECT_EQ(create(profileOf(name)), 10003) << name;
        EXPECT_EQ(edit(profileOf(name)), 10000) << name;
        EXPECT_EQ(remove(nameOf(name)), 10000) << name;
    }
    EXPECT_EQ(tree(), before);
    // A folder is in the way of a template, but is none.
    EXPECT_EQ(create(profileOf("a")), 14102);
    EXPECT_EQ(edit(profileOf("a")), 10000);
    EXPECT_EQ(remove(nameOf("a")), 10000);
    EXPECT_EQ(tree(), before);
    // Names that are only unusual do what they say.
    for (const char *name :
         {"..x", "a..b", "-rf *", "$(id)`id`", "%s%n", "it's \"q\"; --", "caf\xe9", "\xff\xfe"}) {
        EXPECT_EQ(create(profileOf(name)), 0) << name;
        EXPECT_EQ(readFile(at(profileTemplateFileName(name)).c_str()).substr(0, 9), "{\"name\":\"");
        EXPECT_EQ(edit(profileOf(name, 2)), 0) << name;
        EXPECT_EQ(remove(nameOf(name)), 0) << name;
    }
    EXPECT_EQ(tree(), before);
}

TEST_F(TemplatesTest, FailedWriteIsPassedOn) {
    fs::remove_all(platform::fsPath(kProfileTemplateDir));
    EXPECT_EQ(create(profileOf("Video")), 10000);
    EXPECT_EQ(logged("ERROR"), 1u);
}

// --- delete and count

class TemplateDeleteTest : public TemplatesTest {
  protected:
    static constexpr const char *kType = "House Audio";

    void SetUp() override {
        TemplatesTest::SetUp();
        fs::create_directories(platform::fsPath(platform::paths::kVlanProfileConfigDir));
        ASSERT_EQ(vlanInfoTableCreate(), 0);
        ASSERT_EQ(create(profileOf(kType)), 0);
    }
    void row(std::int32_t id, const char *type, bool onSwitch) {
        ASSERT_EQ(vlanInfoInsert(id, 1, "n", type, "#ffffff"), 0);
        writeText(profileVlanConfigPath(id).c_str(), "{}");
        if (onSwitch) {
            ASSERT_EQ(rpcclt_openapiVlanCreate(&client, static_cast<std::uint32_t>(id)), OPEN_E_NONE);
        }
    }
    bool kept(std::int32_t id) {
        EXPECT_EQ(vlanInfoSelectRowsById(id) == 1, exists(profileVlanConfigPath(id).c_str())) << id;
        return vlanInfoSelectRowsById(id) == 1;
    }
    static bool there() { return exists(at("House_Audio").c_str()); }
};

TEST_F(TemplateDeleteTest, ATemplateInUseStaysWithAllItsRows) {
    row(10, kType, false);
    row(20, kType, true);
    row(30, "Video", true);
    EXPECT_EQ(ProfileAssignedCount(&client, kType), 1);
    EXPECT_EQ(ProfileAssignedCount(&client, "house audio"), 0);
    EXPECT_EQ(ProfileAssignedCount(&client, nullptr), 0);
    EXPECT_EQ(remove(nameOf(kType)), 14101);
    EXPECT_TRUE(there() && kept(10) && kept(20) && kept(30));
    // The name belongs on top here, and nowhere else.
    EXPECT_EQ(remove(profileOf(kType)), 10003);
}

TEST_F(TemplateDeleteTest, OrphansGoWithTheTemplate) {
    row(10, kType, false);
    row(11, kType, false);
    row(30, "Video", false);
    fs::remove(platform::fsPath(profileVlanConfigPath(11)));
    EXPECT_EQ(remove(nameOf(kType)), 0);
    EXPECT_FALSE(there() || kept(10) || kept(11));
    EXPECT_TRUE(kept(30));
    EXPECT_EQ(logged("(INFO): test: [orphanRemove:"), 3u);
    EXPECT_EQ(logged("Cleaning up orphaned VLAN 10 entry (profile: House Audio)\r\n"), 1u);
    EXPECT_EQ(logged("Removed orphaned config file: /tmp/vlan_profile_config/10\r\n"), 1u);
    EXPECT_EQ(remove(nameOf(kType)), 10000);
    EXPECT_EQ(logged("House_Audio non-existent\n\r"), 1u);
}

TEST_F(TemplateDeleteTest, QuotesNeitherBreakNorWidenTheSearch) {
    const char *const quoted = "It's \"loud\"";
    ASSERT_EQ(create(profileOf(quoted)), 0);
    row(20, quoted, true);
    row(21, kType, true);
    row(22, kType, false);
    EXPECT_EQ(remove(nameOf(quoted)), 14101);
    for (const char *all : {"' or '1' = '1", "x' union select 21 --", "'; drop table x;--"}) {
        EXPECT_EQ(ProfileAssignedCount(&client, all), 0);
        ASSERT_EQ(create(profileOf(all)), 0);
        EXPECT_EQ(remove(nameOf(all)), 0);
    }
    EXPECT_TRUE(kept(20) && kept(21) && kept(22));
}

TEST_F(TemplateDeleteTest, NoDatabase) {
    row(10, kType, false);
    fs::remove(platform::fsPath(platform::paths::kProfileDb));
    EXPECT_EQ(ProfileAssignedCount(&client, kType), 0);
    EXPECT_EQ(logged("Can't open database: "), 1u);
    EXPECT_EQ(remove(nameOf(kType)), 0);
    EXPECT_EQ(logged("Can't open database: "), 2u);
    EXPECT_FALSE(there());
    EXPECT_TRUE(exists(profileVlanConfigPath(10).c_str()));
}

// What a silent switch has is not known, so nothing is an orphan.
TEST_F(TemplateDeleteTest, SilentSwitch) {
    row(10, kType, true);
    failCall("openapiVlanCreatedCheck", 1, false, OPEN_E_RPC);
    EXPECT_EQ(ProfileAssignedCount(&client, kType), 0);
    EXPECT_EQ(remove(nameOf(kType)), 0);
    EXPECT_FALSE(there());
    EXPECT_TRUE(kept(10));
}

}  // namespace
