// What the virtual switch tells about neighbours: ARP walk, management addresses, switch-port mode, place of
// a port.
#include <random>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

class NeighbourCallsTest : public ControlFixture {
  protected:
    // The ARP table as calls tell it.
    std::map<ArpKey, std::string> walk() {
        std::map<ArpKey, std::string> table;
        std::uint32_t vlan = 0, ip = 0;
        for (;;) {
            char mac[100];
            open_buffdesc text{sizeof mac, mac};
            if (rpcclt_openapiArpEntryNextGet(&client, &vlan, &ip, &text) != OPEN_E_NONE)
                return table;
            EXPECT_TRUE(table.emplace(ArpKey{vlan, ipv4Text(ip)}, mac).second) << "twice: " << ipv4Text(ip);
        }
    }
    // And as the model has it, of what are addresses.
    std::map<ArpKey, std::string> expected() {
        std::map<ArpKey, std::string> table;
        for (const auto &[key, address] : model([](Model &m) { return m.arp(); }))
            if (key.ip != "not an address")
                table.emplace(key, address.text());
        return table;
    }
};

TEST_F(NeighbourCallsTest, ArpWalkTellsTheTable) {
    EXPECT_TRUE(walk().empty());
    std::mt19937 random(7);
    const auto below = [&](std::uint32_t n) { return static_cast<std::uint32_t>(random() % n); };
    cli({"configure", "vlan database", "vlan 20", "exit", "interface 0/3", "vlan pvid 20"});
    for (std::uint32_t n = 0; n < 300; ++n) {
        Device box = host("box " + std::to_string(n), below(4) + 1, "02:00:00:00:00:00");
        box.macs = {mac(n)};
        // Few addresses, so that several boxes share one.
        box.ip = below(10) == 0 ? "not an address"
                                : "10.0." + std::to_string(below(4)) + "." + std::to_string(below(40));
        box.talking = below(5) != 0;
        ASSERT_EQ(OPEN_E_NONE, plug(std::move(box)));
    }
    const auto check = [&] {
        EXPECT_LT(50u, expected().size());
        EXPECT_EQ(expected(), walk());
    };
    check();
    for (std::uint32_t n = 0; n < 300; n += 3) {
        ASSERT_EQ(OPEN_E_NONE, unplug("box " + std::to_string(n)));
        ASSERT_EQ(OPEN_E_NONE, move("box " + std::to_string(n + 1), below(4) + 1));
    }
    check();
    model([](Model &m) {
        ASSERT_EQ(OPEN_E_NONE, m.setLive(8));
        m.seeArp({{{1, "10.0.0.5"}, mac(1001)}, {{20, "10.0.9.9"}, mac(1002)}});
    });
    check();
}

TEST_F(NeighbourCallsTest, ManagementAddress) {
    auto box = host("box", 1, "02:00:00:00:00:01", "Box"),
         mute = host("mute", 2, "02:00:00:00:00:02", "Mute");
    box.lldp->mgmtAddress = "fe80::1";
    for (const auto &each : {box, mute})
        ASSERT_EQ(OPEN_E_NONE, plug(each));
    const auto read = [&](std::uint32_t port, std::uint32_t family, std::uint32_t since = 0) {
        std::uint32_t index = 0, stamp = 0;
        EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiLldpIntfRemoteDeviceNextGet(&client, port, &index, &stamp));
        char text[256] = "";
        open_buffdesc address{sizeof text, text};
        const open_error_t code = rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(
            &client, port, index, stamp + since, &family, &address);
        return code == OPEN_E_NONE ? std::to_string(family) + " " + text : std::to_string(code);
    };
    EXPECT_EQ("2 fe80::1", read(1, 0));
    for (const auto &none : {read(1, 2), read(2, 0), read(1, 0, 1)})
        EXPECT_EQ(std::to_string(OPEN_E_NOT_FOUND), none)
            << "no such family, none at all, a stale time stamp";
}

TEST_F(NeighbourCallsTest, SwitchportModeAndPlace) {
    const auto modeOf = [&](std::uint32_t ifNum) {
        std::uint32_t mode = 0;
        return rpcclt_openapiDot1qSwPortModeGet(&client, ifNum, &mode) == OPEN_E_NONE ? mode : 99;
    };
    EXPECT_EQ(std::uint32_t{OPEN_SWITCHPORT_MODE_GENERAL}, modeOf(3));
    EXPECT_EQ(99u, modeOf(5000));
    EXPECT_EQ("", configure("interface 0/3; switchport mode trunk; interface lag 1; switchport mode access"));
    EXPECT_TRUE(modeOf(3) == 3 && modeOf(49) == 2);
    EXPECT_TRUE(contains(show("show interfaces switchport"), "0/3        trunk\n"));

    const auto placeOf = [&](std::uint32_t ifNum) {
        std::uint32_t unit = 9, slot = 9, port = 9;
        const auto code = rpcclt_openapiHashIntfUnitSlotPortGet(&client, ifNum, &unit, &slot, &port);
        const auto place = std::to_string(unit) + "/" + std::to_string(slot) + "/" + std::to_string(port);
        return code == OPEN_E_NONE ? place : std::to_string(code);
    };
    EXPECT_EQ("1/0/48", placeOf(48));
    EXPECT_EQ("0/1/2", placeOf(50));
    EXPECT_EQ(std::to_string(OPEN_E_NOT_FOUND), placeOf(5000));
}

}  // namespace
}  // namespace vswitch
