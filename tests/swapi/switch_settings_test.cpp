#include "swapi/switch_settings_ops.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "common/files.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using namespace platform::paths;
using test_support::exists;

constexpr const char *kShowCall = "rpcclt_openapiCliShowExecuteToFile";

class SwitchSettingsTest : public test_support::SwitchTest {
  protected:
    std::string speedOf(std::uint32_t port) {
        return model([port](vswitch::Model &m) { return m.interface(port)->speed; });
    }
};

TEST_F(SwitchSettingsTest, BootvarIsReadIntoItsColumns) {
    BootImageRecord records[2] = {};
    BootImageList list{records, 2, 7};
    model([](vswitch::Model &m) { m.system().backupImage = "a-name-longer-than-its-column"; });
    ASSERT_EQ(bootvarGetSafe(&client, &list), 0);
    ASSERT_EQ(list.count, 1u);
    EXPECT_STREQ(records[0].backup, "a-name-long");
    EXPECT_EQ(records[0].nextActive, model([](vswitch::Model &m) { return m.system().activeImage; }));
    list.capacity = 0;
    ASSERT_EQ(bootvarGetSafe(&client, &list), 0);
    EXPECT_EQ(list.count, 0u);
    EXPECT_FALSE(exists(kBootvarShow));
    list.count = 7;
    failCall(kShowCall);
    EXPECT_EQ(bootvarGetSafe(&client, &list), 10016);
    EXPECT_EQ(list.count, 0u);
}

TEST_F(SwitchSettingsTest, ManagementAddressIsSetAndRead) {
    cli({"vlan database", "vlan 4094"});
    std::int32_t vlan = 0;
    char method[MGMT_TEXT_SIZE], ip[MGMT_TEXT_SIZE], mask[MGMT_TEXT_SIZE], gateway[MGMT_TEXT_SIZE];
    ASSERT_EQ(managementPortIPv4ParametersSetSafe(&client, 4094, 1, "192.168.100.101", "255.255.255.128",
                                                  "192.168.100.254"),
              0);
    ASSERT_EQ(managementPortIPv4ParametersGetSafe(&client, &vlan, method, ip, mask, gateway), 0);
    EXPECT_EQ(std::to_string(vlan) + " " + method + " " + ip + " " + mask + " " + gateway,
              "4094 Manual 192.168.100.101 255.255.255.128 192.168.100.254");
    char narrow[8] = "";
    EXPECT_EQ(managementGatewayGet(&client, narrow, sizeof narrow), 0);
    EXPECT_STREQ(narrow, "192.168");
    for (const char *none : {"", "0.0.0.0"}) {
        model([](vswitch::Model &m) { m.system().mgmtGateway = "10.0.0.1"; });
        ASSERT_EQ(managementPortIPv4ParametersSetSafe(&client, 4094, 1, "10.0.0.6", "255.0.0.0", none), 0);
        EXPECT_EQ(managementGatewayGet(&client, narrow, sizeof narrow), 0);
        EXPECT_STREQ(narrow, "") << "no gateway";
    }
    ASSERT_EQ(managementPortIPv4ParametersSetSafe(&client, 4094, 2, nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(model([](vswitch::Model &m) { return m.system().mgmtDhcp; }));
    model([](vswitch::Model &m) { m.system().mgmtIp = std::string(500, '9'); });
    ASSERT_EQ(managementPortIPv4ParametersGetSafe(&client, nullptr, nullptr, ip, nullptr, nullptr), 0);
    EXPECT_EQ(ip, std::string(MGMT_TEXT_SIZE - 1, '9'));
    for (const char *file : {kIpManagementIn, kIpManagementOut, kIpManagementSetLock, kIpManagementShow})
        EXPECT_FALSE(exists(file)) << file;

    failCall(kShowCall, 1, false);
    EXPECT_EQ(managementVlanGet(&client, &vlan), 10016);
    EXPECT_EQ(managementGatewayGet(&client, narrow, sizeof narrow), 10016);
    EXPECT_TRUE(vlan == 1 && narrow[0] == '\0');
}

TEST_F(SwitchSettingsTest, MalformedAddressesAreNotSent) {
    const char *const good = "10.0.0.5", *const bad = "10.0.0.5\nno vlan 5";
    for (const auto &[vlan, ip, mask, gateway] : {std::tuple{0, good, good, good},
                                                  {4095, good, good, good},
                                                  {1, bad, good, good},
                                                  {1, good, bad, good},
                                                  {1, good, good, bad},
                                                  {1, nullptr, good, good},
                                                  {1, good, nullptr, good},
                                                  {1, good, good, nullptr}})
        EXPECT_EQ(managementPortIPv4ParametersSetSafe(&client, vlan, 1, ip, mask, gateway), 10003);
    EXPECT_EQ(callCount("rpcclt_openapiTxtCfgApply"), 0u);
    EXPECT_EQ(logged("ERROR"), 8u);
}

TEST_F(SwitchSettingsTest, SpeedIsDerivedFromItsText) {
    const std::uint32_t two[] = {1, 3};
    for (const auto &[text, speed] :
         {std::pair{"100 Full", "100 full-duplex"}, {"10 Half duplex", "10 half-duplex"}, {"1000", "auto"}}) {
        EXPECT_EQ(multipleIfSpeedSetSafe(&client, two, text), 0);
        EXPECT_EQ(speedOf(1) + speedOf(2) + speedOf(3), std::string(speed) + "auto" + speed);
    }
    EXPECT_EQ(multipleIfSpeedSetSafe(&client, {}, "100 Full"), 0);
    for (const char *bad :
         {"100\nno vlan 5\nFull", "100;Full", "100\x1b Full", static_cast<const char *>(nullptr)})
        EXPECT_EQ(multipleIfSpeedSetSafe(&client, two, bad), 10003);
    EXPECT_EQ(callCount("rpcclt_openapiTxtCfgApply"), 4u);

    // Ports beyond one script go into the next.
    std::vector<std::uint32_t> ports(48);
    std::iota(ports.begin(), ports.end(), 1);
    ASSERT_EQ(multipleIfSpeedSetSafe(&client, ports, "100 Full"), 0);
    EXPECT_EQ(callCount("rpcclt_openapiTxtCfgApply"), 6u);
    for (const std::uint32_t port : ports)
        EXPECT_EQ(speedOf(port), "100 full-duplex") << port;
    failCall("rpcclt_openapiTxtCfgApply", 2);
    EXPECT_EQ(multipleIfSpeedSetSafe(&client, ports, "1000"), 10000);
    EXPECT_EQ(speedOf(48), "100 full-duplex");
}

TEST_F(SwitchSettingsTest, ThreadsTakeTurns) {
    std::vector<std::thread> threads;
    for (std::uint32_t t = 1; t <= 4; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) {
                // Without the lock another's script would be applied, or none found.
                EXPECT_EQ(multipleIfSpeedSetSafe(&client, {&t, 1}, i % 2 == 0 ? "100 Full" : "Auto"), 0);
                EXPECT_EQ(speedOf(t), i % 2 == 0 ? "100 full-duplex" : "auto");
            }
        });
    for (auto &thread : threads)
        thread.join();
    EXPECT_FALSE(exists(kSpeedLock));
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(SwitchSettingsTest, EachOperationHasALockOfItsOwn) {
    // Reading the management address does not wait for somebody who is setting it, nor the other way round:
    // that would be forever here.
    {
        const FileLock reading(kIpManagementGetLock);
        EXPECT_EQ(managementPortIPv4ParametersSetSafe(&client, 1, 2, nullptr, nullptr, nullptr), 0);
    }
    std::int32_t vlan = 0;
    const FileLock setting(kIpManagementSetLock);
    EXPECT_EQ(managementVlanGet(&client, &vlan), 0);

    // A lock file that cannot be used stops the operation.
    BootImageList list{nullptr, 0, 0};
    std::filesystem::create_directory(platform::fsPath(kBootvarLock));
    const auto calls = callCount(kShowCall);
    EXPECT_EQ(bootvarGetSafe(&client, &list), 10000);
    EXPECT_EQ(callCount(kShowCall), calls);
}

}  // namespace
