#include "swapi/cli_command_ops.h"

#include <gtest/gtest.h>

#include "platform/paths.h"
#include "tests/support/switch_fixture.h"

namespace pavo {
namespace {

using platform::paths::kCommandIn;
using platform::paths::kCommandOut;
using test_support::exists;
using test_support::readFile;
using test_support::writeText;

class CliCommandTest : public test_support::SwitchTest {
  protected:
    std::int32_t run(const char *cmd, std::uint32_t cap, std::int32_t configure) {
        reply.assign(cap + 1, 'x');
        return fastpath_cli_cmd_int(&client, cmd, reply.data(), cap, configure);
    }
    std::string reply;
};

TEST_F(CliCommandTest, ConfiguresOrShows) {
    EXPECT_EQ(0, run("hostname hall", 8, 1));
    EXPECT_EQ("configure\nhostname hall\nend\n", readFile(kCommandIn));
    EXPECT_EQ("xxxxxxxxx", reply);
    EXPECT_EQ(0, run("show running-config", 100'000, 0));
    EXPECT_NE(reply.find("hostname \"hall\"\n"), std::string::npos);
    EXPECT_EQ(std::string(readFile(kCommandIn)), reply.c_str());
    EXPECT_EQ(0, run("show running-config", 5, 0));
    EXPECT_EQ(std::string("!Cur\0x", 6), reply);
    EXPECT_EQ(0, run(("show running-config" + std::string(300, ' ')).c_str(), 0, 0));

    for (const std::int32_t configure : {0, 1})
        for (int missing = 0; missing < 3; ++missing)
            EXPECT_EQ(10000, fastpath_cli_cmd_int(missing == 0 ? nullptr : &client,
                                                  missing == 1 ? nullptr : "show vlan",
                                                  missing == 2 ? nullptr : reply.data(), 4, configure));
    EXPECT_EQ(10016, run("show nothing", 100, 0));
    EXPECT_EQ(
        1u,
        logged(
            "Failed to generate output /mnt/application/pavo/tmp/pavo_cmd_in_file.txt file via openAPI\n"));
    failCall("rpcclt_openapiTxtCfgApply", 1, false);
    EXPECT_EQ(10000, run("hostname other", 8, 1));
    EXPECT_EQ(1u, logged("openapiTxtCfgApply failed\n"));
    EXPECT_EQ(10000, fastpath_cli_cmd(&client, "show nothing", reply.data(), 8, 0));
    EXPECT_EQ(10000, fastpath_cli_config_cmd(&client, "hostname other", reply.data(), 8));
}

TEST_F(CliCommandTest, TwoCommandsOfWhichTheFirstEntersAMode) {
    writeText(kCommandOut, "stale");
    EXPECT_EQ(0, fastpath_cli_splmode_cmd_int(&client, "interface 0/3", "description \"left\""));
    EXPECT_NE(show("show running-config").find("interface 0/3\ndescription \"left\"\n"), std::string::npos);
    EXPECT_FALSE(exists(kCommandIn) || exists(kCommandOut));
    failCall("rpcclt_openapiTxtCfgApply");
    EXPECT_EQ(10000, fastpath_cli_splmode_cmd(&client, "interface 0/3", "shutdown"));
    EXPECT_EQ("end\nconfigure\ninterface 0/3\nshutdown\nend\nconfigure\nend\nconfigure\n",
              readFile(kCommandIn));
    EXPECT_EQ(1u, logged("openapiTxtCfgApply failed for interface dot1p queue map\n"));
    EXPECT_EQ(10000, fastpath_cli_splmode_config_cmd(&client, nullptr, "shutdown"));
    EXPECT_EQ(10000, fastpath_cli_splmode_cmd(nullptr, "interface 0/3", "shutdown"));
}

}  // namespace
}  // namespace pavo
