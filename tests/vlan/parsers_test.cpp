// What the switch's show commands print, and the VLAN of a profile type.
#include <string>
#include <vector>

#include "tests/vlan/vlan_fixture.h"
#include "vlan/ip_interfaces.h"
#include "vlan/profile_vlan.h"
#include "vlan/show_vlan.h"

namespace {

using namespace pavo;
using test_support::exists;

constexpr const char *kType = "AUDAC Audio and Control Network";

TEST(ShowVlanTest, RowsBeginWithANumberAndSayAType) {
    using Rows = std::vector<std::uint32_t>;
    const struct {
        std::string shown;
        Rows numbers;
    } cases[] = {
        {"VLAN ID VLAN Name   VLAN Type\n------- ----------- ---------\n1       default     Default\n", {1}},
        {"10 stage Static\n \t20 x Dynamic\r\n10 again Static", {10, 20, 10}},
        {"17Static\n18\n19 Static", {17, 19}},
        {"0 zero Static\n4096 top Static\n4097 over Static\n99999999999999999999 x Static", {4096}},
        {"5 no type\nx6 y Static\n-7 y Static\n+8 y Static\n9 static", {}},
        {"11 " + std::string(600, 'n') + " Static\n12 x Static", {12}},
        {"12345 x Static\n13 y Static", {13}},
    };
    for (const auto &row : cases)
        EXPECT_EQ(row.numbers, parseShowVlan(row.shown, 10)) << row.shown;
    EXPECT_EQ((Rows{1, 2}), parseShowVlan("1 a Static\n2 b Static\n3 c Static\n", 2));
}

TEST(IpInterfacesTest, LinesOfVlansWithAllColumns) {
    const struct {
        const char *shown;
        std::vector<IpInterface> interfaces;
    } cases[] = {
        {"Interface State IP Address IP Mask TYPE Method\nvlan 20 Down 0.0.0.0 0.0.0.0 None DHCP\r\n",
         {{VlanId(20), IpMethod::Dhcp, "0.0.0.0", "0.0.0.0", false}}},
        {"vlan 0 Up 1.1.1.1 2.2.2.2 P Manual\nvlan 4095 Up 1.1.1.1 2.2.2.2 P Manual\n", {}},
        {"vlan x Up 1.1.1.1 2.2.2.2 P Manual\nvlan 99999999999 Up 1.1.1.1 2.2.2.2 P Manual", {}},
        {"vlan 10 Booting 1.1.1.1 2.2.2.2 P None\n",
         {{VlanId(10), IpMethod::Other, "1.1.1.1", "2.2.2.2", std::nullopt}}},
        {"vlan 10 Up 1.1.1.1 2.2.2.2 P\n vlan 10 Up 1.1.1.1 2.2.2.2 P Manual\nVlan 9 U 1 2 P Manual", {}},
    };
    for (const auto &row : cases)
        EXPECT_EQ(row.interfaces, parseIpInterfaces(row.shown)) << row.shown;
}

using ProfileVlanTest = test_support::VlanTest;

TEST_F(ProfileVlanTest, DatabaseAndSwitchMustBothKnowIt) {
    for (const auto &[id, vlanType] : {std::pair{286, 1}, {20, 1}, {30, 2}, {5000, 1}})
        ASSERT_EQ(0, vlanInfoInsert(id, vlanType, "n", kType, ""));
    const auto presence = [this] { return findVlanOfProfileType(&client, kType, VlanId(286)).presence; };
    commands("vlan database; vlan 286,30");
    EXPECT_EQ(30, vlanInfoSelectHasofProfileType(&client, kType, 286));
    EXPECT_EQ(286, vlanInfoSelectHasofProfileType(&client, kType, 1));
    EXPECT_EQ(286, vlanInfoSelectHasofProfileType(&client, kType, 0)) << "none is excluded";
    EXPECT_EQ(VlanId(30), findVlanOfProfileType(&client, kType, VlanId(286)).vlan);
    EXPECT_EQ(Presence::Present, presence());
    failCall("openapiVlanCreatedCheck");
    EXPECT_EQ(30, vlanInfoSelectHasofProfileType(&client, kType, 286)) << "a later one that is there";
    clearFaults();
    commands("vlan database; no vlan 30");
    EXPECT_EQ(0, vlanInfoSelectHasofProfileType(&client, kType, 286));
    EXPECT_EQ(Presence::Absent, presence());
    failCall("openapiVlanCreatedCheck");
    EXPECT_EQ(Presence::Unknown, presence()) << "one of them may be there";

    EXPECT_EQ(0, vlanInfoSelectHasofProfileType(&client, "x'; delete from vlanInfo; --", 0));
    EXPECT_EQ(0, vlanInfoSelectHasofProfileType(&client, nullptr, 0));
    EXPECT_EQ(2u, logged("[vlanInfoSelectHasofProfileType:"));
    EXPECT_EQ(1, vlanInfoSelectRowsById(30));
    removeFile(platform::paths::kProfileDb);
    EXPECT_EQ(0, vlanInfoSelectHasofProfileType(&client, kType, 1));
    EXPECT_EQ(Presence::Unknown, presence());
    EXPECT_FALSE(exists(platform::paths::kProfileDb));
}

}  // namespace
