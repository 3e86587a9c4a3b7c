#include "swapi/cli_apply_ops.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

constexpr const char *kIn = "/mnt/application/pavo/tmp/pavo_in_test";
constexpr const char *kOut = "/mnt/application/pavo/tmp/pavo_out_test";
constexpr const char *kVlan5 = "vlan database\nvlan 5\nexit\n";

class CliApplyTest : public test_support::SwitchTest {
  protected:
    bool hasVlan5() {
        return model([](vswitch::Model &m) { return m.hasVlan(5); });
    }
};

TEST_F(CliApplyTest, EveryApplyEntryTakesTheScript) {
    writeText(kIn, kVlan5);
    for (const auto &[apply, call] : {std::pair(&txtCfgApply, "rpcclt_openapiTxtCfgApply"),
                                      {&txtCfgNDCApply, "rpcclt_openapiTxtCfgNDCApply"},
                                      {&txtCfgNDCApplyUnCompress, "rpcclt_openapiTxtCfgNDCApply"}}) {
        startSwitch({});
        EXPECT_EQ(apply(&client, kIn, kOut), 0);
        EXPECT_TRUE(hasVlan5());
        EXPECT_EQ(callCount(call), 1u);
        failCall(call);
        EXPECT_EQ(apply(&client, kIn, kOut), 10000);
        EXPECT_EQ(apply(&client, nullptr, kOut), 10003);
    }
    EXPECT_EQ(logged("Bad return code trying to apply the configuration. (result = -2)\n"), 3u);
    EXPECT_EQ(logged("txtCfgApply: Invalid argument\r\n"), 3u);
    EXPECT_EQ(logged("ERROR"), 6u);
}

TEST_F(CliApplyTest, ShowHandsOutWhatWasPrintedAndLeavesNoStaleFile) {
    const Switch sw(&client);
    writeText(kOut, "stale");
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(cliShowExecuteToFile(&client, "show version", kOut), 10000);
    EXPECT_FALSE(exists(kOut));
    EXPECT_EQ(logged("Execute show cmd faile, result:-2\r\n"), 1u);
    EXPECT_EQ(cliShowExecuteToFile(&client, "show version", kOut), 0);
    EXPECT_NE(readFile(kOut).find("Software Version"), std::string::npos);
    EXPECT_NE(sw.show("show version", kOut).value().find("Software Version"), std::string::npos);
    EXPECT_FALSE(exists(kOut));
    std::filesystem::remove_all(platform::fsPath("/mnt/application/pavo/tmp"));
    EXPECT_EQ(codeOf(sw.show("show version", kOut)), 10000);  // the switch cannot write it
}

// The switch OS has room for so much; what fits is still a command and a path.
TEST_F(CliApplyTest, CommandAndPathAreCutToTheirRoom) {
    cli({"vlan database", "vlan 20"});
    const std::string padded = "show vlan" + std::string(254 - 11, ' ') + "20";
    ASSERT_EQ(padded.size(), 254u);
    const std::string folder = "/mnt/application/pavo/tmp/";
    const std::string path = folder + std::string(95 - folder.size(), 'x');
    EXPECT_EQ(cliShowExecuteToFile(&client, (padded + "00").c_str(), (path + "y").c_str()), 0);
    EXPECT_NE(readFile(path.c_str()).find("VLAN ID: 20"), std::string::npos) << readFile(path.c_str());
}

TEST_F(CliApplyTest, WritersTruncateOrAppendButNotThroughLinks) {
    EXPECT_EQ(writeToFile(kIn, "first"), 0);
    EXPECT_EQ(writeToFile(kIn, "a"), 0);
    EXPECT_EQ(writeAppendToFile(kIn, "b"), 0);
    EXPECT_EQ(writeFile(kIn, "a", "c"), 0);
    EXPECT_EQ(readFile(kIn), "abc");
    EXPECT_EQ(writeAppendToFile(kIn, nullptr), 10003);
    EXPECT_EQ(logged("Content error...\r\n"), 1u);
    EXPECT_EQ(writeFile("/tmp/none/x", "w", "a"), -1);
    writeText("/tmp/precious", "kept");
    std::filesystem::create_symlink(platform::fsPath("/tmp/precious"), platform::fsPath("/tmp/link"));
    for (const char *path : {"/tmp/none/x", "/tmp/link"})
        for (const auto write : {writeToFile, writeAppendToFile})
            EXPECT_EQ(write(path, "a"), 10000) << path;
    EXPECT_EQ(readFile("/tmp/precious"), "kept");
    EXPECT_EQ(logged("Open dir error.../tmp/none/x\r\n"), 3u);
}

TEST_F(CliApplyTest, FullDiskLeavesNoTruncatedFile) {
    constexpr std::size_t kRoom = 1u << 16;
    const test_support::FullDisk full(kRoom);
    // Refused when the file is closed, or before that.
    for (const std::size_t size : {kRoom + 1, kRoom * 2}) {
        writeText(kIn, "script");
        EXPECT_EQ(writeAppendToFile(kIn, std::string(size, 'x').c_str()), 10000);
        EXPECT_TRUE(exists(kIn));
        EXPECT_EQ(writeToFile(kIn, std::string(size, 'x').c_str()), 10000);
        EXPECT_FALSE(exists(kIn));
    }
    EXPECT_EQ(logged("Write file error..."), 4u);
}

TEST_F(CliApplyTest, ScriptIsAppliedAndItsFilesGo) {
    const Switch sw(&client);
    const ScriptFiles files = ScriptFiles::forTag("test");
    writeText(kOut, "stale");
    EXPECT_TRUE(sw.apply(kVlan5, files));
    EXPECT_TRUE(hasVlan5());
    EXPECT_FALSE(exists(kIn) || exists(kOut));

    failCall("rpcclt_openapiTxtCfgApply");
    EXPECT_EQ(sw.apply(kVlan5, files).error().step, ScriptFailure::Step::Apply);
    EXPECT_FALSE(exists(kIn) || exists(kOut));
    EXPECT_EQ(sw.apply(kVlan5, {"/tmp/none/x", kOut}).error().step, ScriptFailure::Step::Write);
    EXPECT_EQ(callCount("rpcclt_openapiTxtCfgApply"), 2u);
    // The lines name the operation that the helpers work for.
    EXPECT_EQ(logged(": [TestBody:"), logged("(ERROR)") + logged("(DEBUG)"));
}

}  // namespace
