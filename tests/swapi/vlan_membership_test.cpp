#include "swapi/vlan_membership_ops.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "swapi/swapi_ops.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using namespace std::chrono_literals;
using platform::manual_clock::totalSlept;

constexpr std::uint32_t kPort = 3;
constexpr std::uint32_t kVlan = 286;

class VlanMembershipTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        createVlan();
    }

    void createVlan() { cli({"vlan database", "vlan " + std::to_string(kVlan)}); }
    void setLatency(platform::Duration latency) {
        model([latency](vswitch::Model &m) { m.setLatency(latency); });
    }

    // The wrappers that set and read back, with their calls.
    struct Wrapper {
        std::function<std::int32_t()> change;
        const char *setCall;
        const char *getCall;
    };
    std::vector<Wrapper> wrappers() {
        return {{[this] { return vlanIfPvidSetAndVerify(&client, kPort, kVlan); },
                 "rpcclt_openapiVlanIfPvidSet", "openapiVlanIfPvidGet"},
                {[this] { return vlanIfTaggingSetAndVerify(&client, kPort, kVlan, 1); },
                 "rpcclt_openapiVlanIfTaggingSet", "openapiVlanIfTaggingGet"},
                {[this] { return vlanIfParticipationSetAndVerify(&client, kPort, kVlan, 0); },
                 "rpcclt_openapiVlanIfParticipationSet", "rpcclt_openapiVlanIfCurrentParticipationGet"}};
    }
};

TEST_F(VlanMembershipTest, ChangeIsWaitedForWithinTheBudget) {
    for (const auto &[latency, code, reads] :
         {std::tuple{0ms, 0, 1u}, {3900ms, 0, 40u}, {4000ms, 10000, 40u}})
        for (const Wrapper &wrapper : wrappers()) {
            startSwitch({});
            createVlan();
            setLatency(latency);
            const auto before = totalSlept();
            EXPECT_EQ(wrapper.change(), code);
            EXPECT_EQ(totalSlept() - before, latency);
            EXPECT_EQ(callCount(wrapper.getCall), reads);
        }
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(VlanMembershipTest, FailedCallsAreLoggedAndNotRepeated) {
    setLatency(1s);
    std::size_t errors = 0;
    for (const Wrapper &wrapper : wrappers()) {
        failCall(wrapper.setCall);
        EXPECT_EQ(wrapper.change(), 10000);
        EXPECT_EQ(callCount(wrapper.getCall), 0u);
        failCall(wrapper.getCall, 3);
        EXPECT_EQ(wrapper.change(), 10000);
        EXPECT_EQ(callCount(wrapper.getCall), 3u);
        EXPECT_EQ(logged("ERROR"), errors += 2);
    }
    for (const std::string what :
         {"PVID. (result = -2)\n", "VLAN tagging configuration. (result = -2, ifNum = 3, taggingMode = 1)\n",
          "VLAN participation configuration. (result = -2, ifNum = 3, partStatus = 0)\n"})
        for (const char *verb : {"set ", "get "})
            EXPECT_EQ(logged("Bad return code trying to " + (verb + what)), 1u);
}

TEST_F(VlanMembershipTest, DeleteWaitsUntilTheVlanIsGone) {
    setLatency(3900ms);
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 0);
    EXPECT_EQ(totalSlept(), 3900ms);
    createVlan();
    setLatency(5s);
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 10000);
    EXPECT_EQ(totalSlept(), 7900ms);
    EXPECT_EQ(logged("ERROR"), 0u);
    failCall("rpcclt_openapiVlanDelete");
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 10000);
    EXPECT_EQ(logged("Bad return code trying to delete vlan. (result = -2)\n"), 1u);

    // Numbers that are no VLANs are refused as the switch does it.
    for (const std::uint32_t number : {0u, 4095u, 65537u}) {
        EXPECT_EQ(vlanIfPvidSetAndVerify(&client, kPort, number), 10000);
        EXPECT_EQ(vlanDeleteAndVerify(&client, number), 10000);
    }
    EXPECT_EQ(logged("Bad return code trying to set PVID. (result = -5)\n"), 3u);
}

TEST_F(VlanMembershipTest, AdminStateIsWaitedFor) {
    ifAdminStateWaitSettled(&client, kPort, OPEN_ENABLE);
    EXPECT_EQ(totalSlept(), 0s);
    ifAdminStateWaitSettled(&client, kPort, OPEN_DISABLE);
    EXPECT_EQ(totalSlept(), 4s);
    EXPECT_EQ(logged("ifAdminStateWaitSettled: ifNum = 3 did not reach admin state 0 after 40 retries\n"),
              1u);
    failCall("openapiIfAdminStateGet");
    ifAdminStateWaitSettled(&client, kPort, OPEN_ENABLE);
    EXPECT_EQ(logged("ifAdminStateWaitSettled: get failed (rc = -2, ifNum = 3)\n"), 1u);
}

// Which of its ends a walk came to.
TEST_F(VlanMembershipTest, WalksTellTheEndOfTheTableFromAFailure) {
    const Switch sw(&client);
    const auto walk = [&] {
        auto all = sw.vlans();
        std::string ids;
        for (const VlanId id : all)
            ids += std::to_string(id.number()) + " ";
        return std::pair(ids, all.brokenBy());
    };
    EXPECT_EQ(walk(), std::pair(std::string("1 286 "), std::optional<OpenError>()));
    failCall("rpcclt_openapiVlanNextGet", 2, true, OPEN_E_RPC);
    EXPECT_EQ(walk(), std::pair(std::string("1 "), std::optional(OpenError::Unreachable)));

    EXPECT_EQ(sw.vlanPresence(VlanId(286)), Presence::Present);
    EXPECT_EQ(sw.vlanPresence(VlanId(287)), Presence::Absent);
    failCall("openapiVlanCreatedCheck", 1, true, OPEN_E_RPC);
    EXPECT_EQ(sw.vlanPresence(VlanId(287)), Presence::Unknown);
}

// The wrappers for callers with numbers pass on values and codes as they are.
TEST_F(VlanMembershipTest, ThinWrappersPassOnWhatTheCallsSay) {
    const Switch sw(&client);
    std::uint32_t number = 0;
    EXPECT_EQ(swapiIfFirstGet(&client, OPEN_INTF_TYPE_LAG, &number), OPEN_E_NONE);
    EXPECT_EQ(sw.lagNumbering()->first, IfNum(number));
    EXPECT_EQ(vlanIfPvidSetAndVerify(&client, kPort, kVlan), 0);
    EXPECT_EQ(swapiVlanIfPvidGet(&client, kPort, &number), 0);
    EXPECT_EQ(number, kVlan);
    failCall("rpcclt_openapiLagMaxMemberCountGet", 1, true, OPEN_E_RPC);
    EXPECT_EQ(lagMaxMemberCountGet(&client, &number), OPEN_E_RPC);
    EXPECT_EQ(lagMaxMemberCountGet(&client, &number), OPEN_E_NONE);
    EXPECT_EQ(number, 8u);
    EXPECT_EQ(dot1xPortControlModeSet(&client, kPort, OPEN_DOT1X_AUTO), OPEN_E_NONE);
    EXPECT_EQ(sw.portControl(IfNum(kPort)), PortControl::Auto);
    EXPECT_EQ(ptpTcAdminModeSet(&client, OPEN_ENABLE), OPEN_E_NONE);
    EXPECT_EQ(sw.ptpTc(), true);
    EXPECT_EQ(ptpTcIntfAdminModeSet(&client, 9999, OPEN_DISABLE), OPEN_E_PARAM);
}

}  // namespace
