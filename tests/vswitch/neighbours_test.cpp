// What the virtual switch tells about neighbours: ARP walk, management addresses, switch-port mode, place of
// a port.
#include <gtest/gtest.h>

#include <random>

#include "tests/support/switch_fixture.h"

namespace {

using namespace vswitch;

class NeighbourCallsTest : public test_support::SwitchTest {
  protected:
    // The ARP table as calls tell it.
    std::map<ArpKey, std::string> walk() {
        std::map<ArpKey, std::string> table;
        std::uint32_t vlan = 0;
        std::uint32_t ip = 0;
        for (;;) {
            char mac[100];
            open_buffdesc text{sizeof mac, mac};
            if (rpcclt_openapiArpEntryNextGet(&client, &vlan, &ip, &text) != OPEN_E_NONE)
                return table;
            const std::string address = std::to_string(ip >> 24) + "." + std::to_string(ip >> 16 & 255) +
                                        "." + std::to_string(ip >> 8 & 255) + "." + std::to_string(ip & 255);
            EXPECT_TRUE(table.emplace(ArpKey{vlan, address}, mac).second) << "twice: " << address;
        }
    }
    std::map<ArpKey, std::string> expected() {
        return device->with([](Server &server) {
            std::map<ArpKey, std::string> table;
            for (const auto &[key, mac] : server.model().arp())
                table.emplace(key, mac.text());
            return table;
        });
    }
};

TEST_F(NeighbourCallsTest, ArpWalkTellsTheTable) {
    EXPECT_TRUE(walk().empty());
    std::mt19937 random(7);
    const auto below = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    cli({"configure", "vlan database", "vlan 20", "exit", "interface 0/3", "vlan pvid 20"});
    for (std::uint32_t n = 0; n < 300; ++n) {
        Device box = host("box " + std::to_string(n), below(4) + 1, "02:00:00:00:00:00");
        box.macs = {Mac::parse("02:00:00:00:00:00")->plus(n)};
        // Few addresses, so that several boxes share one.
        box.ip = below(10) == 0 ? "not an address"
                                : "10.0." + std::to_string(below(4)) + "." + std::to_string(below(40));
        box.talking = below(5) != 0;
        ASSERT_EQ(OPEN_E_NONE, plug(std::move(box)));
    }
    const auto check = [&] {
        auto table = expected();
        std::erase_if(table, [](const auto &row) { return row.first.ip == "not an address"; });
        EXPECT_LT(50u, table.size());
        EXPECT_EQ(table, walk());
    };
    check();
    for (std::uint32_t n = 0; n < 300; n += 3)
        ASSERT_EQ(OPEN_E_NONE, unplug("box " + std::to_string(n)));
    for (std::uint32_t n = 1; n < 300; n += 3)
        ASSERT_EQ(OPEN_E_NONE, move("box " + std::to_string(n), below(4) + 1));
    check();
    device->with([](Server &server) {
        ASSERT_EQ(OPEN_E_NONE, server.model().setLive(8));
        server.model().seeArp({{{1, "10.0.0.5"}, Mac::parse("04:00:00:00:00:01").value()},
                               {{20, "10.0.9.9"}, Mac::parse("04:00:00:00:00:02").value()}});
    });
    check();
}

TEST_F(NeighbourCallsTest, ManagementAddress) {
    Device box = host("box", 1, "02:00:00:00:00:01", "Box");
    box.lldp->mgmtAddress = "fe80::1";
    ASSERT_EQ(OPEN_E_NONE, plug(box));
    ASSERT_EQ(OPEN_E_NONE, plug(host("mute", 2, "02:00:00:00:00:02", "Mute")));
    const auto read = [&](std::uint32_t port, std::uint32_t family) {
        std::uint32_t index = 0;
        std::uint32_t stamp = 0;
        EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiLldpIntfRemoteDeviceNextGet(&client, port, &index, &stamp));
        char text[256] = "";
        open_buffdesc address{sizeof text, text};
        const open_error_t code = rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(
            &client, port, index, stamp, &family, &address);
        return code == OPEN_E_NONE ? std::to_string(family) + " " + text : std::to_string(code);
    };
    EXPECT_EQ("2 fe80::1", read(1, 0));
    EXPECT_EQ(std::to_string(OPEN_E_NOT_FOUND), read(1, 2));
    EXPECT_EQ(std::to_string(OPEN_E_NOT_FOUND), read(2, 0));
}

TEST_F(NeighbourCallsTest, SwitchportModeAndPlace) {
    const auto modeOf = [&](std::uint32_t ifNum) {
        std::uint32_t mode = 0;
        return rpcclt_openapiDot1qSwPortModeGet(&client, ifNum, &mode) == OPEN_E_NONE ? mode : 99;
    };
    const std::string before = show("show running-config");
    EXPECT_EQ(std::uint32_t{OPEN_SWITCHPORT_MODE_GENERAL}, modeOf(3));
    EXPECT_EQ(99u, modeOf(5000));
    EXPECT_EQ("", cli({"configure", "interface 0/3", "switchport mode trunk", "interface lag 1",
                       "switchport mode access"}));
    EXPECT_EQ(3u, modeOf(3));
    EXPECT_EQ(2u, modeOf(49));
    EXPECT_NE(std::string::npos, show("show interfaces switchport").find("0/3        trunk\n"));
    const std::string config = show("show running-config");
    EXPECT_NE(std::string::npos, config.find("interface 0/3\nswitchport mode trunk\nexit\n")) << config;
    startSwitch({});
    device->with([&](Server &server) { server.cli().runScript("configure\n" + config); });
    EXPECT_EQ(3u, modeOf(3));
    EXPECT_EQ(2u, modeOf(49));
    EXPECT_EQ("", cli({"configure", "interface 0/3", "no switchport mode", "interface lag 1",
                       "switchport mode general"}));
    EXPECT_EQ(before, show("show running-config"));

    std::uint32_t unit = 9;
    std::uint32_t slot = 9;
    std::uint32_t port = 9;
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiHashIntfUnitSlotPortGet(&client, 48, &unit, &slot, &port));
    EXPECT_EQ((std::vector<std::uint32_t>{1, 0, 48}), (std::vector<std::uint32_t>{unit, slot, port}));
    ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiHashIntfUnitSlotPortGet(&client, 50, &unit, &slot, &port));
    EXPECT_EQ((std::vector<std::uint32_t>{0, 1, 2}), (std::vector<std::uint32_t>{unit, slot, port}));
    EXPECT_EQ(OPEN_E_NOT_FOUND, rpcclt_openapiHashIntfUnitSlotPortGet(&client, 5000, &unit, &slot, &port));
}

}  // namespace
