// The list of profiles on switches and with databases of every condition.
#include "profile/list.h"

#include <gtest/gtest.h>

#include "common/json.h"
#include "profile/apply_ops.h"
#include "profile/list_ops.h"
#include "store/profile_db.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using test_support::exists;
using test_support::SwitchTest;
using test_support::writeText;

constexpr const char *kDatabase = platform::paths::kProfileDb;

class ProfileListTest : public SwitchTest {
  protected:
    Result<std::vector<ListedProfile>> list() { return readProfiles(&client, ListDetails::Full); }
};

TEST_F(ProfileListTest, BeforeAnythingWasAppliedThereIsTheDefaultProfile) {
    for (const auto details : {ListDetails::Brief, ListDetails::Full})
        for (const bool isEmptyFile : {false, true}) {
            if (isEmptyFile)
                writeText(kDatabase, "");
            const auto profiles = readProfiles(&client, details);
            ASSERT_TRUE(profiles && profiles->size() == 1);
            EXPECT_EQ(profiles->front().name, "Default");
            EXPECT_TRUE(profiles->front().vlans.front().exists);
            std::filesystem::remove(platform::fsPath(kDatabase));
        }
    EXPECT_EQ(list()->front().vlans.front().members->untaggedPorts.size(), 48u);
    EXPECT_FALSE(exists(kDatabase)) << "whoever looks makes none";
    EXPECT_EQ(logged("(ERROR)"), 0u);

    writeText(kDatabase, "damaged");
    EXPECT_EQ(list().error().reason, "the profile database cannot be read");
}

TEST_F(ProfileListTest, ASwitchWithoutLagsHasProfilesToo) {
    startSwitch({.physicalPorts = 8, .lags = 0});
    char *text = nullptr;
    EXPECT_EQ(profileListExGet(&client, &text), 0);
    const TextPtr owner(text);
    EXPECT_NE(std::string(text).find("\"untagged\":\t[1, 2, 3, 4, 5, 6, 7, 8]"), std::string::npos);
    EXPECT_EQ(logged("(ERROR)"), 0u);
}

TEST_F(ProfileListTest, LagsAreListedWhereTheyAreUsed) {
    cli({"vlan database", "vlan 20", "exit", "configure", "interface lag 1", "vlan participation include 20",
         "vlan tagging 20", "exit", "interface lag 2", "vlan pvid 20", "vlan participation include 20",
         "exit", "interface 0/7", "addport lag 3", "end"});
    ensureProfileDb();
    ASSERT_TRUE(replaceProfileRow({20, 1, "Hall", "Data", "#081855"}));
    const auto profiles = list();
    ASSERT_TRUE(profiles && profiles->size() == 2);
    const auto &rest = *profiles->front().vlans.front().members,
               &hall = *profiles->back().vlans.front().members;
    EXPECT_EQ(hall.taggedLags, std::vector{1u});
    EXPECT_EQ(hall.untaggedLags, std::vector{2u});
    EXPECT_EQ(rest.untaggedLags, std::vector{3u}) << "LAGs without members are nowhere in particular";
    EXPECT_NE(printProfiles(*profiles).find("\"tagged\":\t[1]"), std::string::npos);
}

TEST_F(ProfileListTest, AnAnswerThatIsMissingIsNoAbsence) {
    ensureProfileDb();
    ASSERT_TRUE(list());
    for (std::uint64_t n = 1;; ++n) {
        failCall("*", n);
        const auto profiles = list();
        const bool struck = callsSeen() >= n;
        clearFaults();
        if (!struck)
            break;
        ASSERT_FALSE(profiles) << n;
        EXPECT_NE(profiles.error().reason, "") << n;
        EXPECT_EQ(logged("(ERROR)"), n);
    }
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

}  // namespace
