// Routing interfaces of the CLI, and the call for names of VLANs.
#include "tests/support/switch_fixture.h"
#include "vswitch/cli/command.h"

namespace {

using namespace test_support;
class RoutingTest : public SwitchTest {};

TEST_F(RoutingTest, CommandsAndRunningConfig) {
    const auto plain = show("show running-config");
    cli({"vlan database", "vlan 10,20"});
    const auto fresh = show("show running-config");
    EXPECT_EQ("Routing is not enabled on this interface.\n",
              cli({"configure", "interface vlan 10", "ip address dhcp"}));
    EXPECT_EQ("VLAN does not exist.\n", cli({"configure", "interface vlan 30"}));
    EXPECT_EQ("", cli({"configure", "interface vlan 10", "routing", "ip address 10.0.0.1 255.0.0.0",
                       "interface vlan 20", "routing", "routing", "ip address dhcp", "interface 0/1",
                       "mtu 9216", "interface vlan 20", "exit", "hostname core"}));
    const auto text = show("show running-config");
    EXPECT_NE(std::string::npos,
              text.find("interface vlan 10\nrouting\nip address 10.0.0.1 255.0.0.0\nexit\n"));
    EXPECT_NE(std::string::npos, text.find("interface vlan 20\nrouting\nip address dhcp\nexit\n"));
    const auto brief = show("show ip interface brief");
    startSwitch({});
    device->with([&](vswitch::Server &server) { server.cli().runScript(text); });
    EXPECT_EQ(brief, show("show ip interface brief"));
    EXPECT_EQ(text, show("show running-config"));

    EXPECT_EQ("", cli({"configure", "no hostname", "interface 0/1", "no mtu", "interface vlan 10",
                       "no routing", "interface vlan 20", "no routing"}));
    EXPECT_EQ(fresh, show("show running-config"));
    cli({"configure", "interface vlan 10", "routing", "interface 0/2", "vlan pvid 10"});
    EXPECT_NE(std::string::npos, show("show ip interface brief").find("vlan 10     Down"));
    plug(host("pc", 2, "02:00:00:00:00:01"));
    EXPECT_NE(std::string::npos, show("show ip interface brief").find("vlan 10     Up"));
    cli({"vlan database", "no vlan 10,20"});
    EXPECT_EQ(plain, show("show running-config")) << "the VLAN took its routing interface with it";
}

TEST_F(RoutingTest, VlanNamesByCall) {
    cli({"vlan database", "vlan 10"});
    std::uint32_t length = 0;
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiVlanNameLenGet(&client, &length));
    const auto name = [&] {
        char text[64];
        open_buffdesc out{length, text};
        return rpcclt_openapiVlanNameGet(&client, 10, &out) == OPEN_E_NONE ? std::string(text) : "(none)";
    };
    const auto rename = [&](std::string text, std::uint32_t vlan = 10) {
        open_buffdesc in{static_cast<std::uint32_t>(text.size()), text.data()};
        return rpcclt_openapiVlanNameSet(&client, vlan, &in);
    };
    EXPECT_EQ(OPEN_E_NONE, rename(std::string(length - 1, 'n')));
    for (const auto &bad : {std::string(length, 'n'), std::string("a\nvlan 20")})
        EXPECT_EQ(OPEN_E_PARAM, rename(bad));
    EXPECT_EQ(OPEN_E_NOT_FOUND, rename("x", 11));
    EXPECT_EQ(std::string(length - 1, 'n'), name());
}

}  // namespace
