#include "swapi/client_init.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "platform/l7proc.h"
#include "swapi/models.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using namespace std::chrono_literals;
using platform::manual_clock::totalSlept;

constexpr const char *kCheck = "rpcclt_openapiConnectivityCheck";

using ClientInitTest = test_support::SwitchTest;

TEST_F(ClientInitTest, ProcessIsKnownByItsNameAndNumber) {
    openapiClientHandle_t handle{};
    ASSERT_EQ(initHandler("detection", &handle), 0);
    const std::string number = std::to_string(getpid());
    EXPECT_EQ(logged("Register RPC to OpEN success. (client name = detection_" + number + ")\n"), 1u);
    // The crash logger's name is the one that the switch's own log shows.
    l7proc_logf(LOG_LEVEL_INFO, __FILE__, __LINE__, "after registration");
    EXPECT_NE(systemLog().find("detection-" + number), std::string::npos) << systemLog();

    ASSERT_EQ(initHandler(nullptr, &handle), 0);
    EXPECT_EQ(logged("(client name = common.c_" + number + ")\n"), 1u);
    openapiClientTearDown(&handle);
}

TEST_F(ClientInitTest, SwitchHasSevenChecksToAnswer) {
    openapiClientHandle_t handle{};
    failCall(kCheck, 1, false, OPEN_E_RPC);
    EXPECT_EQ(initHandler("detection", &handle), -1);
    EXPECT_EQ(totalSlept(), 18s);
    EXPECT_EQ(callCount(kCheck), 7u);
    EXPECT_EQ(logged("RPC call can fail until server starts. Keep trying (result = -1)\n"), 6u);

    for (const char *call : {"rpcclt_openapiNetworkOSVersionGet", "rpcclt_openapiApiVersionGet"}) {
        clearFaults();
        failCall(call);
        EXPECT_EQ(initHandler("detection", &handle), 0) << call;
    }
    EXPECT_EQ(logged("Network OS Version retrieve error\n"), 1u);
    EXPECT_EQ(logged("Open API Version retrieve error\n"), 1u);
    openapiClientTearDown(&handle);
}

TEST_F(ClientInitTest, ModelIsLookedUpByOurOwnName) {
    const SwitchModel &own = kSwitchModels[1];
    model([&](vswitch::Model &m) { m.system().machineModel = own.machineModel; });
    EXPECT_EQ(get_device_model_mapping(&client, own.modelId.data()), 0);
    for (const char *other : {kSwitchModels[0].modelId.data(), "AV", static_cast<const char *>(nullptr)})
        EXPECT_EQ(get_device_model_mapping(&client, other), 1);
    failCall("rpcclt_openapiSystemRegMachineModelGet");
    EXPECT_EQ(get_device_model_mapping(&client, "AV10X"), -1);
    EXPECT_EQ(logged("Machine model retrieve error (result = -2)\n"), 1u);
}

}  // namespace
