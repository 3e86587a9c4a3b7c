#include <filesystem>
#include <tuple>

#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test_support;

template <class... Numbers>
constexpr std::uint32_t bits(Numbers... numbers) {
    return (0u | ... | (1u << numbers));
}

// Bits that the quick scan looks at.
constexpr std::uint32_t kQuickFeatures = bits(0, 1, 2, 9, 13), kQuickSpecified = bits(1, 2, 13);

using VlanProfileTest = VlanTest;

TEST_F(VlanProfileTest, TemplateKeysSetTheirBits) {
    commands("vlan database; vlan 10");
    vlanInfoReplace(10, 4, "name", "Some Type", "#000000");
    const std::tuple<const char *, std::uint32_t, std::uint32_t> cases[] = {
        {R"({"PTP":true})", bits(0), 0},
        {R"({"AVB":true,"poe":true,"Sonos":true,"PTP-BC":true})", bits(1, 3, 9, 13), bits(1, 3, 9, 13)},
        {R"({"flowControl":true})", bits(2), bits(2)},
        {R"({"multicast":{"queryInterval":null},"qos":false})", bits(5, 8), bits(5, 8)},
        {R"({"multicast":[{"queryInterval":30}]})", 0, 0},
        {R"({"MTU":false})", bits(6), 0},
        {R"({"storm":false,"LLDP":false,"ISDP":false,"STP":false})", bits(7, 10, 11, 12),
         bits(7, 10, 11, 12)},
        {R"({"PTP":false,"AVB":1,"poe":"true","Sonos":null,"PTP-BC":{},"MTU":0,"STP":null})", 0, 0},
        {"{", 0, 0}};
    for (const auto &[json, features, specified] : cases) {
        writeTemplate("Some Type", json);
        const auto all = full(), scanned = quick();
        EXPECT_TRUE(at(all, 10).features == features && at(all, 10).specified == specified) << json;
        EXPECT_EQ(features & kQuickFeatures, at(scanned, 10).features) << json;
        EXPECT_EQ(specified & kQuickSpecified, at(scanned, 10).specified) << json;
    }
}

TEST_F(VlanProfileTest, ParametersSettingsAndKind) {
    commands("vlan database; vlan 10-14");
    writeSettings(10, R"({"config":{"ptpTc":true}})");
    writeSettings(11, R"({"config":{"ptpTc":null}})");
    writeSettings(14, R"({"config":{"ptpTc":1}})");
    writeTemplate("HARMAN Professional AV Network", R"({"PTP":true})");
    // Kind, PTP, MTU, what is specified.
    const std::tuple<int, const char *, int, int, int, std::uint32_t> rows[] = {
        {1, "Default", 0, 0, 9198, bits(4, 6, 15)},
        {10, "Audio Video AVB MILAN", 0x20, 1, 1500, bits(0, 6)},
        {11, "Audio Video AVB MILAN with Dante PTPv1 PTPv2 or AES67", 0x40, 2, 1500, bits(0, 4, 6, 15, 18)},
        {12, "HARMAN Professional AV Network", 0, 0, 9198, bits(4, 6, 15, 18, 20)},
        {13, "Avid S6L", 0, 0, 1500, bits(6, 25, 26)},
        {14, "", 0, 2, 0, bits(0)}};
    for (const auto &row : rows)
        vlanInfoReplace(std::get<0>(row), 1, "name", std::get<1>(row), "#000000");
    const auto all = full();
    ASSERT_EQ(std::size(rows), all->count);
    for (const auto &[id, type, kind, ptpTc, mtu, specified] : rows) {
        const auto &p = at(all, static_cast<std::uint32_t>(id));
        EXPECT_TRUE(p.avbKind == kind && p.ptpTc == ptpTc && p.parameters.mtu == mtu &&
                    p.specified == specified)
            << type << p.avbKind << p.ptpTc << p.parameters.mtu << p.specified;
    }
}

TEST_F(VlanProfileTest, QuickScanKnowsThirtyTwoNames) {
    commands("vlan database; vlan 2-40; vlan name 5 \"17 Static\"; vlan name 6 Dynamic");
    for (int id = 1; id <= 40; ++id) {
        // Names without a template count as well; VLAN 40 has the name of VLAN 2.
        const auto type = "Type " + std::to_string(id == 40 ? 2 : id);
        vlanInfoReplace(id, 1, "name", type.c_str(), "#000000");
        if (id % 3 != 0)
            writeTemplate(type, R"({"AVB":true})");
    }
    const auto scanned = quick();
    ASSERT_EQ(40u, scanned->count);
    for (std::uint32_t id = 1; id <= 40; ++id)
        EXPECT_EQ((id <= 32 && id % 3 != 0) || id == 40 ? 2 : 0, at(scanned, id).features) << id;
    EXPECT_EQ(2, at(full(), 34).features);
    EXPECT_FALSE(exists(platform::paths::kVlanShowProfileFast));
}

TEST_F(VlanProfileTest, Failures) {
    failCall("rpcclt_openapiCliShowExecuteToFile");
    const auto scanned = quick();
    EXPECT_TRUE(result == 10000 && scanned != nullptr && scanned->count == 0);
    removeFile(platform::paths::kProfileDb);
    const auto all = full();
    EXPECT_TRUE(result == 10000 && all != nullptr);
    EXPECT_EQ(1u, logged("Can't open database: unable to open database file"));
    // Not a database: every VLAN is one without a profile, said once.
    commands("vlan database; vlan 2-100");
    writeText(platform::paths::kProfileDb, std::string(4096, 'x'));
    const auto spoilt = full();
    EXPECT_TRUE(result == 0 && spoilt->count == 100 && spoilt->ids[0]->profileName[0] == '\0');
    EXPECT_EQ(1u, logged("select * from vlanInfo where id = 1 error: "));
    EXPECT_EQ(2u, logged("[vlanListProfileInfoGetEX:"));
    EXPECT_EQ(1u, logged("[vlanListProfileCreateFastEX:"));
    device->setDown(true);
    EXPECT_EQ(0u, full()->count);
}

TEST_F(VlanProfileTest, RoutingInterfacesAsTheSwitchListsThem) {
    commands(R"(vlan database; vlan 10,20,30; exit; configure; interface vlan 10; routing
ip address 192.168.100.254 255.255.255.240; interface vlan 20; routing; ip address dhcp
interface vlan 30; routing)");
    std::vector<VLAN_ROUTING_INFO_T> table(VLAN_TABLE_SIZE, VLAN_ROUTING_INFO_T{9, 9, "x", "x"});
    ASSERT_EQ(0, vlanListRoutingInfoGet(&client, table.data()));
    for (const std::uint32_t id : {1u, 10u, 20u, 30u, 4095u})
        EXPECT_EQ(id % 10 == 0 ? id : 0, table[id].vlanId);
    EXPECT_STREQ("192.168.100.254", table[10].ipAddr);
    EXPECT_STREQ("255.255.255.240", table[10].ipMask);
    EXPECT_TRUE(table[10].ipConfig == 3 && table[20].ipConfig == 2 && table[30].ipConfig == 1);
    EXPECT_TRUE(std::filesystem::is_empty(platform::fsPath(platform::paths::kScriptDir)));
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(10016, vlanListRoutingInfoGet(&client, table.data()));
    EXPECT_EQ(1u, logged("Can not open file:/mnt/application/pavo/tmp/pavo_out_show_ip_interface_brief_"));
}

}  // namespace
