#include "swapi/vlan_membership.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/switch_fixture.h"

namespace {

using namespace std::chrono_literals;
using platform::manual_clock::totalSlept;

constexpr std::uint32_t kPort = 3;
constexpr std::uint32_t kVlan = LIGHTWARE_TAGGED_VLAN;

class VlanMembershipTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        createVlan();
    }

    void createVlan() { cli({"vlan database", "vlan " + std::to_string(kVlan)}); }
    void setLatency(platform::Duration latency) {
        device->with([latency](vswitch::Server &server) { server.model().setLatency(latency); });
    }
    vswitch::Membership membership() {
        return device->with([](vswitch::Server &server) { return server.model().membership(kPort, kVlan); });
    }

    // The wrappers that set and read back, with their calls and messages.
    struct Wrapper {
        std::function<std::int32_t()> change;
        const char *setCall;
        const char *getCall;
        const char *what;  // in the messages
    };
    std::vector<Wrapper> wrappers() {
        return {{[this] { return vlanIfPvidSetAndVerify(&client, kPort, kVlan); },
                 "rpcclt_openapiVlanIfPvidSet", "openapiVlanIfPvidGet", "PVID. (result = -2)\n"},
                {[this] { return vlanIfTaggingSetAndVerify(&client, kPort, kVlan, 1); },
                 "rpcclt_openapiVlanIfTaggingSet", "openapiVlanIfTaggingGet",
                 "VLAN tagging configuration. (result = -2, ifNum = 3, taggingMode = 1)\n"},
                {[this] { return vlanIfParticipationSetAndVerify(&client, kPort, kVlan, 0); },
                 "rpcclt_openapiVlanIfParticipationSet", "rpcclt_openapiVlanIfCurrentParticipationGet",
                 "VLAN participation configuration. (result = -2, ifNum = 3, partStatus = 0)\n"}};
    }
};

TEST_F(VlanMembershipTest, ChangeThatShowsAtOnceNeedsNoSleep) {
    for (const Wrapper &wrapper : wrappers()) {
        EXPECT_EQ(wrapper.change(), 0);
        EXPECT_EQ(callCount(wrapper.getCall), 1u);
    }
    EXPECT_EQ(totalSlept(), 0s);
    EXPECT_EQ(membership(), (vswitch::Membership{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, true}));
    std::uint32_t pvid = 0;
    EXPECT_EQ(swapiVlanIfPvidGet(&client, kPort, &pvid), 0);
    EXPECT_EQ(pvid, kVlan);
}

TEST_F(VlanMembershipTest, ChangeIsWaitedForWithinTheBudget) {
    for (const auto &[latency, code] : {std::pair{3900ms, 0}, {4000ms, 10000}})
        for (const Wrapper &wrapper : wrappers()) {
            startSwitch({});
            createVlan();
            setLatency(latency);
            const auto before = totalSlept();
            EXPECT_EQ(wrapper.change(), code);
            EXPECT_EQ(totalSlept() - before, latency);
            EXPECT_EQ(callCount(wrapper.getCall), 40u);
        }
    EXPECT_EQ(logged("ERROR"), 0u);
}

TEST_F(VlanMembershipTest, FailedCallsAreLoggedAndNotRepeated) {
    setLatency(1s);
    std::size_t errors = 0;
    for (const Wrapper &wrapper : wrappers()) {
        failCall(wrapper.setCall);
        EXPECT_EQ(wrapper.change(), 10000);
        EXPECT_EQ(logged(std::string("Bad return code trying to set ") + wrapper.what), 1u);
        EXPECT_EQ(callCount(wrapper.getCall), 0u);
        clearFaults();
        failCall(wrapper.getCall, 3);
        EXPECT_EQ(wrapper.change(), 10000);
        EXPECT_EQ(logged(std::string("Bad return code trying to get ") + wrapper.what), 1u);
        EXPECT_EQ(callCount(wrapper.getCall), 3u);
        clearFaults();
        EXPECT_EQ(logged("ERROR"), errors += 2);
    }
}

TEST_F(VlanMembershipTest, DeleteWaitsUntilTheVlanIsGone) {
    setLatency(3900ms);
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 0);
    EXPECT_EQ(totalSlept(), 3900ms);
    EXPECT_EQ(openapiVlanCreatedCheck(&client, kVlan), OPEN_E_NOT_FOUND);

    createVlan();
    setLatency(5s);
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 10000);
    EXPECT_EQ(totalSlept(), 7900ms);
    EXPECT_EQ(logged("ERROR"), 0u);

    failCall("rpcclt_openapiVlanDelete");
    EXPECT_EQ(vlanDeleteAndVerify(&client, kVlan), 10000);
    EXPECT_EQ(logged("Bad return code trying to delete vlan. (result = -2)\n"), 1u);
}

TEST_F(VlanMembershipTest, AdminStateIsWaitedFor) {
    ifAdminStateWaitSettled(&client, kPort, OPEN_ENABLE);
    EXPECT_EQ(totalSlept(), 0s);
    EXPECT_EQ(logged("ERROR"), 0u);
    ifAdminStateWaitSettled(&client, kPort, OPEN_DISABLE);
    EXPECT_EQ(totalSlept(), 4s);
    EXPECT_EQ(logged("ifAdminStateWaitSettled: ifNum = 3 did not reach admin state 0 after 40 retries\n"),
              1u);
    failCall("openapiIfAdminStateGet");
    ifAdminStateWaitSettled(&client, kPort, OPEN_ENABLE);
    EXPECT_EQ(logged("ifAdminStateWaitSettled: get failed (rc = -2, ifNum = 3)\n"), 1u);
}

TEST_F(VlanMembershipTest, TaggingClearDoesBothStepsWhateverHappens) {
    ASSERT_EQ(vlanIfParticipationSetAndVerify(&client, kPort, kVlan, 0), 0);
    ASSERT_EQ(vlanIfTaggingSetAndVerify(&client, kPort, kVlan, 1), 0);
    failCall("rpcclt_openapiVlanIfParticipationSet");
    ifTaggingClear(&client, kPort);
    EXPECT_EQ(membership(), (vswitch::Membership{OPEN_VLAN_PARTICIPATION_MODE_INCLUDE, false}));
    failCall("rpcclt_openapiVlanIfTaggingSet");
    ifTaggingClear(&client, kPort);
    EXPECT_EQ(membership().participation, std::uint32_t{OPEN_VLAN_PARTICIPATION_MODE_AUTO});
}

}  // namespace
