#include "vswitch/server/saved_state.h"

#include <sys/stat.h>

#include <filesystem>
#include <stdexcept>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

using test_support::readFile;
using test_support::writeText;

constexpr const char *kState = "/tmp/state";

class SavedStateTest : public ControlFixture {
  protected:
    void SetUp() override {
        ControlFixture::SetUp();
        device->with([&](Server &server) { state = std::make_unique<SavedState>(server, path); });
    }
    bool keep() {
        return device->with([&](Server &) { return state->keep(); });
    }
    // What a switch that starts with the file has: killed and back.
    std::string restored(ModelConfig config = {}) {
        Server other(std::move(config));
        SavedState its(other, path);
        EXPECT_TRUE(its.restore());
        return other.cli().show("show running-config").value();
    }
    // Whether the file has been written since this was last asked.
    bool written() {
        struct stat info{};
        const bool there = stat(path.c_str(), &info) == 0;
        return std::exchange(inode, there ? info.st_ino : 0) != inode;
    }

    const std::string path = platform::fsPath(kState);
    std::unique_ptr<SavedState> state;
    ino_t inode = 0;
};

TEST_F(SavedStateTest, AcknowledgedChangesAreInTheFileAndReadsWriteNothing) {
    EXPECT_TRUE(keep() && written()) << "also what the switch starts with";
    char name[] = "! stage";
    open_buffdesc stage{sizeof name, name};
    const std::function<open_error_t()> changes[] = {
        [&] { return rpcclt_openapiVlanCreate(&client, 10); },
        [&] { return rpcclt_openapiVlanNameSet(&client, 10, &stage); },
        [&] { return rpcclt_openapiLagPortAdd(&client, 49, 7); },
        [&] { return rpcclt_openapiPtpTcAdminModeSet(&client, OPEN_ENABLE); }};
    for (const auto &change : changes) {
        ASSERT_EQ(OPEN_E_NONE, change());
        EXPECT_TRUE(keep() && written()) << &change - changes;
        EXPECT_EQ(runningConfig(), restored());
    }
    // What changes nothing writes nothing.
    std::uint32_t number = 0;
    EXPECT_EQ(OPEN_E_NONE, openapiVlanIfPvidGet(&client, 5, &number));
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiVlanNextGet(&client, 0, &number));
    EXPECT_NE(OPEN_E_NONE, openapiVlanCreatedCheck(&client, 11));
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiPtpTcAdminModeSet(&client, OPEN_ENABLE));
    EXPECT_TRUE(keep() && !written());
}

TEST_F(SavedStateTest, ADamagedFileIsReportedAndLeftAlone) {
    cli({"vlan database", "vlan 10-12,20", "exit", "configure", "interface 0/1", "vlan pvid 10"});
    EXPECT_TRUE(keep());
    const auto whole = readFile(kState);
    const auto refused = [&](const std::string &content) {
        writeText(kState, content);
        Server other;
        SavedState its(other, path);
        try {
            its.restore();
        } catch (const std::runtime_error &e) {
            EXPECT_TRUE(contains(e.what(), "state file " + path + " is damaged"));
            return readFile(kState) == content && std::as_const(other).model().vlans().size() == 1;
        }
        return false;
    };
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_TRUE(refused(whole.substr(0, length))) << length;
    for (std::size_t at = 0; at < whole.size(); at += 3) {
        auto flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ 1);
        EXPECT_TRUE(refused(flipped)) << at;
    }
    EXPECT_TRUE(refused(whole + "exit\n"));
    EXPECT_TRUE(refused(std::string(whole.size(), '\0')));
    // What an operator has copied from the terminal is welcome.
    writeText(kState, runningConfig());
    EXPECT_EQ(runningConfig(), restored());
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_THROW(restored(), std::runtime_error);
    std::filesystem::remove(path);
    Server other;
    EXPECT_FALSE(SavedState(other, path).restore()) << "a first start";
}

TEST_F(SavedStateTest, AFailedWriteIsReportedAndMadeUpFor) {
    EXPECT_TRUE(keep());
    // No file can be made beside it any more. A link there is not followed, it is replaced.
    std::filesystem::create_directories(path + ".new/inside");
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiVlanCreate(&client, 10));
    for (int times = 0; times < 2; ++times)
        EXPECT_FALSE(keep());
    EXPECT_EQ(1u, test_support::occurrences(systemLog(), "cannot write"));
    std::filesystem::remove_all(path + ".new");
    writeText("/tmp/precious", "kept");
    std::filesystem::create_symlink(platform::fsPath("/tmp/precious"), path + ".new");
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiVlanCreate(&client, 20));
    EXPECT_TRUE(keep());
    EXPECT_EQ("kept", readFile("/tmp/precious"));
    EXPECT_EQ(runningConfig(), restored());
}

TEST_F(SavedStateTest, WhatASmallerSwitchRefusesIsNotLost) {
    cli({"configure", "interface 0/40", "description \"far end\""});
    EXPECT_TRUE(keep());
    EXPECT_FALSE(contains(restored({.physicalPorts = 8}), "far end"));
    EXPECT_TRUE(contains(readFile("/tmp/state.refused"), "far end"));
}

}  // namespace
}  // namespace vswitch
