// The list of profiles on switches and with databases of every condition.
#include "profile/list.h"

#include <gtest/gtest.h>

#include "common/json.h"
#include "profile/record.h"
#include "store/profile_types.h"
#include "tests/support/profile_fixture.h"

namespace {

using namespace pavo;
using namespace test_support;

constexpr const char *kDatabase = platform::paths::kProfileDb;

class ProfileListTest : public ProfileTest {
  protected:
    Result<std::vector<ListedProfile>> list() { return readProfiles(&client, ListDetails::Full); }
};

TEST_F(ProfileListTest, BeforeAnythingWasAppliedThereIsTheDefaultProfile) {
    for (const bool isEmptyFile : {false, true}) {
        if (isEmptyFile)
            writeText(kDatabase, "");
        EXPECT_EQ(readProfiles(&client, ListDetails::Brief)->front().name, "Default");
        const auto profiles = list();
        ASSERT_TRUE(profiles && profiles->size() == 1 && profiles->front().vlans.front().exists);
        EXPECT_EQ(profiles->front().vlans.front().members->untaggedPorts.size(), 48u);
        EXPECT_EQ(exists(kDatabase), isEmptyFile) << "whoever looks makes none";
    }
    EXPECT_EQ(logged("(ERROR)"), 0u);
    writeText(kDatabase, "damaged");
    EXPECT_EQ(list().error().reason, "the profile database cannot be read");
}

TEST_F(ProfileListTest, ASwitchWithoutLagsHasProfilesToo) {
    startSwitch({.physicalPorts = 8, .lags = 0});
    EXPECT_EQ(list()->front().vlans.front().members->untaggedPorts.size(), 8u);
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(ProfileListTest, LagsAreListedWhereTheyAreUsed) {
    enter(
        "vlan database; vlan 20; exit; configure; interface lag 1; vlan participation include 20;"
        "vlan tagging 20; exit; interface lag 2; vlan pvid 20; vlan participation include 20; exit;"
        "interface 0/7; addport lag 3; end");
    ensureProfileDb();
    ASSERT_TRUE(replaceProfileRow({20, 1, "Hall", "Data", "#081855"}));
    const auto profiles = list();
    ASSERT_TRUE(profiles && profiles->size() == 2);
    const auto &hall = *profiles->back().vlans.front().members;
    EXPECT_TRUE(hall.taggedLags == std::vector{1u} && hall.untaggedLags == std::vector{2u});
    EXPECT_EQ(profiles->front().vlans.front().members->untaggedLags, std::vector{3u})
        << "LAGs without members are nowhere in particular";
    EXPECT_NE(printProfiles(*profiles).find("\"tagged\":\t[1]"), std::string::npos);
}

TEST_F(ProfileListTest, AnAnswerThatIsMissingIsNoAbsence) {
    ensureProfileDb();
    ASSERT_TRUE(list());
    const auto check = [&](const Result<std::vector<ListedProfile>> &profiles, std::uint64_t n) {
        ASSERT_TRUE(profiles || !profiles.error().reason.empty()) << n;
        ASSERT_EQ(profiles.has_value(), n == 0) << n;
        EXPECT_TRUE(n == 0 || logged("(ERROR)") == n);
    };
    failEach("*", [&] { return list(); }, check);
}

TEST_F(ProfileListTest, WhateverTheDatabaseHoldsTheListIsReadable) {
    ensureProfileDb();
    const std::string cut(254, 'x');
    ASSERT_TRUE(replaceProfileRow({20, 1, cut + "\u00fc and more", "Da\xffta", "#08\xc3"}));
    const auto profiles = list();
    ASSERT_TRUE(profiles);
    EXPECT_EQ(profiles->back().name, cut) << "half a character is none";
    const auto text = printProfiles(*profiles);
    EXPECT_NE(text.find("\"Da?ta\""), std::string::npos);
    EXPECT_EQ(profileDelete(&client, (R"({"name": ")" + cut + "\u00fc and more\"}").c_str()), 0);
}

class ListOfAppliedTest : public ApplyTest {
  protected:
    // "A: 20 21; B:" and what each goes without.
    std::string listed() {
        const auto profiles = readProfiles(&client, ListDetails::Brief);
        if (!profiles)
            return profiles.error().reason;
        std::string text;
        for (const auto &profile : *profiles) {
            text += (text.empty() ? "" : "; ") + profile.name + ":";
            for (const auto &vlan : profile.vlans)
                text += " " + std::to_string(vlan.row.id);
            for (const auto &loss : profile.incomplete)
                text += " -" + loss.what + ">" + loss.taker;
        }
        return text;
    }
};

TEST_F(ListOfAppliedTest, WhoLostSomethingToAnotherProfileIsIncomplete) {
    constexpr const char *kOverwrite = R"(, "overwrite": true)";
    applied("A", "Video", {vlanJson(20, 1, "1, 2"), vlanJson(21, 2, "3")});
    const auto onlyA = everything();
    applied("B", "Data", {vlanJson(20, 1, "5"), vlanJson(30, 1, "3")}, kOverwrite);
    EXPECT_EQ(listed(), "Default: 1; B: 20 30; A: 21 -VLAN 20>B -port 3>B");
    // One that has lost all of its VLANs is still there.
    applied("C", "Data", {vlanJson(21, 1, "7")}, kOverwrite);
    EXPECT_EQ(listed(), "Default: 1; B: 20 30; C: 21; A: -VLAN 20>B -VLAN 21>C");
    const auto profiles = *readProfiles(&client, ListDetails::Full);
    const JsonPtr json(cJSON_Parse(printProfile(profiles.back()).c_str()));
    EXPECT_EQ(printJsonLine(json.get()),
              R"({"name":"A","profileType":"Video","color":"#081855","vlans":[],)"
              R"("incomplete":[{"what":"VLAN 20","to":"B"},{"what":"VLAN 21","to":"C"}]})");
    removed("B");
    EXPECT_EQ(listed(), "Default: 1; A: 20 -VLAN 21>C; C: 21");
    removed("C");
    EXPECT_EQ(onlyA, everything());
    applied("P", "Audio Dante", {vlanJson(40, 1, "8")}, R"(, "ptp": true)");
    applied("V", "Audio Video AVB", {vlanJson(41, 1, "9")}, kOverwrite);
    // A partner's VLAN that belongs to somebody else leaves a profile without a row, but not without anything.
    applied("K", PROFILE_TYPE_NAME_KRAMER, {vlanJson(40, 7, "10")});
    EXPECT_EQ(listed(), "Default: 1; A: 20 21; P: 40 -PTP transparent clock>V; V: 41; K:");
}

TEST_F(ListOfAppliedTest, TheRecordStandsInForALostDatabase) {
    applied("A", "Video", {vlanJson(20, 1, "1, 2"), vlanJson(1, 2, "3")});
    applied("B", "Data", {vlanJson(30, 1, "4")});
    const std::string all = "A: 1 20; B: 30";
    const auto record = readFile(platform::paths::kProfileRecord);
    fs::remove(platform::fsPath(kDatabase));
    EXPECT_EQ(listed(), all);
    EXPECT_FALSE(exists(kDatabase)) << "whoever looks makes none";
    ensureProfileDb();
    EXPECT_EQ(listed(), all) << "made again, and empty";
    enter("vlan database; no vlan 30; end");
    EXPECT_EQ(listed(), "A: 1 20") << "row and VLAN were deleted by somebody";
    EXPECT_EQ(logged("(ERROR)"), 0u);
    const std::string damaged = "SQLite format 3\nand nothing of it";
    writeText(kDatabase, damaged);
    EXPECT_EQ(listed(), all);
    EXPECT_EQ(readFile(kDatabase), damaged);
    EXPECT_EQ(readFile(platform::paths::kProfileRecord), record);
    fs::remove(platform::fsPath(platform::paths::kProfileRecord));
    EXPECT_EQ(listed(), "the profile database cannot be read");
    // Unknown is not absent.
    fs::create_directory(platform::fsPath(platform::paths::kProfileRecord));
    fs::remove(platform::fsPath(kDatabase));
    EXPECT_NE(listed().find("cannot be read"), std::string::npos) << listed();
}

}  // namespace
