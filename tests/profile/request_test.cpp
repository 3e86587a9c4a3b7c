// The profile apply request: what is parsed, what is refused, and why.
#include "profile/request.h"

#include <gtest/gtest.h>

#include "profile/configure.h"
#include "profile/list.h"
#include "store/profile_db.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using test_support::occurrences;
using test_support::SwitchTest;

// A request with one VLAN; `part` is replaced by `other`.
std::string requestWith(const std::string &part = "", const std::string &other = "") {
    std::string text = R"({"profileConfig": {"name": "Hall", "color": "#081855", "profileType": "Data",
        "vlanNum": 1, "vlans": [{"vlanId": 20, "vlanType": 1, "ports": {"untagged": [1], "tagged": [9]},
        "routing": {"ipConfig": 1}}]}})";
    if (const auto at = text.find(part); !part.empty() && at != std::string::npos)
        text.replace(at, part.size(), other);
    return text;
}

TEST(ProfileRequest, IsParsedIntoValues) {
    const auto config = parseProfileConfig(R"({"profileConfig": {"name": "N", "color": "#12345678",
        "profileType": "Data", "vlanNum": 2, "ptp": 1, "overwrite": true, "force": 1, "vlans": [
        {"vlanId": 20, "vlanType": 2, "ports": {"untagged": [3, 1, 3], "tagged": [9], "assignedPort": [5]},
         "routing": {"ipConfig": 3, "ipAddr": "10.0.0.1", "ipMask": "255.0.0.x"}},
        {"vlanId": 4094, "vlanType": -1, "profileType": "Video"}]}})");
    ASSERT_TRUE(config);
    const auto &request = config->request;
    EXPECT_EQ(request.color, "#123456");
    EXPECT_EQ(request.ptpTc, false) << "only true is on";
    EXPECT_TRUE(config->overwrite && !config->force);
    ASSERT_EQ(request.ids(), (VlanSet{VlanId(20), VlanId(4094)}));
    const auto &vlan = request.vlans[0];
    EXPECT_EQ(vlan.untagged, (std::vector{IfNum(3), IfNum(1), IfNum(3)}));
    EXPECT_EQ(vlan.tagged, std::vector{IfNum(9)});
    EXPECT_EQ(vlan.assigned, std::vector{IfNum(5)});
    EXPECT_EQ(vlan.profileType, "Data");
    EXPECT_EQ(vlan.routing.method, IpConfig::Manual);
    EXPECT_TRUE(vlan.routing.address && !vlan.routing.mask);
    EXPECT_EQ(request.vlans[1].profileType, "Video");
    EXPECT_EQ(config->document.substr(0, 19), "{\n\t\"profileConfig\":");
}

TEST(ProfileRequest, WhatIsTooLongIsCutAtACharacter) {
    const std::string name(254, 'x'), ue = "\u00fc";
    const auto config = parseProfileConfig(requestWith("Hall", name + ue + "more"));
    ASSERT_TRUE(config);
    EXPECT_EQ(config->request.name, name);
    EXPECT_EQ(parseProfileConfig(requestWith("#081855", "#08185" + ue))->request.color, "#08185");
    EXPECT_EQ(cutProfileName(name + "xx"), name + "x");
}

// --- the operations behind it

class ProfileRequestTest : public SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        ensureProfileDb();
    }
    // Why a request is refused.
    std::string refusal(const std::string &text, ResultCode code = ResultCode::InvalidArgument) {
        const auto done = configureProfile(&client, text);
        if (done)
            return "(applied)";
        EXPECT_EQ(done.error().code, code) << done.error().reason;
        return done.error().reason;
    }
    Result<> remove(const std::string &name) {
        return deleteProfile(&client, R"({"name": ")" + name + R"("})");
    }
};

TEST_F(ProfileRequestTest, RefusalsNameTheFieldAndTheReason) {
    std::string ports = "1", five = R"("vlans": [{)";
    for (std::size_t i = 0; i < PROFILE_PORTS_MAX; ++i)
        ports += ", 1";
    for (int i = 0; i < 4; ++i)
        five += R"("vlanId": 20, "vlanType": 1}, {)";
    const auto vlans = R"("vlans": [)", id = R"("vlanId": 20)", num = R"("vlanNum": 1)";
    // A part of the request, what is in its place, and what is said of that; without a part, of the whole.
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"", "nonsense", "the request is not JSON"},
        {"", std::string(PROFILE_REQUEST_MAX + 1, ' '), "the request has more than 1048576 bytes"},
        {"", "[]", R"("profileConfig" is missing)"},
        {"", R"({"profileConfig": 3})", R"("profileConfig": 3 is not an object)"},
        {R"("color")", R"("x")", R"("color" is missing)"},
        {R"("Hall")", "[\"\x7f\"]", R"("name": ["."] is not a string)"},
        {num, R"("vlanNum": 1.5)", R"("vlanNum": 1.5 is not a 32-bit integer)"},
        {vlans, R"("vlans": 0, "x": [)", R"("vlans": 0 is not an array)"},
        {vlans, five + R"(}], "x": [)", R"("vlans" has more than 4 VLANs)"},
        {vlans, R"("vlans": [3], "x": [)", R"("vlans[0]": 3 is not an object)"},
        {id, R"("vlanId": 20.5)", R"("vlans[0].vlanId": 20.5 is not a VLAN id (1 to 4094))"},
        {id, R"("vlanId": "20")", R"("vlans[0].vlanId": "20" is not a VLAN id (1 to 4094))"},
        {id, R"("vlanId": 4095)", R"("vlans[0].vlanId": 4095 is not a VLAN id (1 to 4094))"},
        {id, R"("vlanId": 1e300)", R"("vlans[0].vlanId": 1e+300 is not a VLAN id (1 to 4094))"},
        {id, R"("x": 20)", R"("vlans[0].vlanId" is missing)"},
        {R"("vlanType": 1)", R"("vlanType": true)", R"("vlans[0].vlanType": true is not a 32-bit integer)"},
        {R"({"untagged": [1])", R"([3], "p": {"x": 1)", R"("vlans[0].ports": [3] is not an object)"},
        {"[9]", R"("9")", R"("vlans[0].ports.tagged": "9" is not an array)"},
        {"[1]", "[1, 2.5]", R"("vlans[0].ports.untagged[1]": 2.5 is not an interface number)"},
        {"[9]", "[" + ports + "]", R"("vlans[0].ports.tagged" has more than 912 ports)"},
        {R"("ipConfig": 1)", R"("ipConfig": 4)",
         R"("vlans[0].routing.ipConfig": 4 is not an IP configuration method (0 to 3))"},
        {R"("ipConfig": 1)", R"("ipAddr": "10.0.0.1\n no shutdown")",
         R"("vlans[0].routing.ipAddr": "10.0.0.1. no shutdown" is not an IPv4 address)"},
        {num, R"("vlanNum": 1, "plan": 1)", R"("plan": 1 is not true or false)"},
        {"Hall", "", R"("name": it is empty)"},
        {"Hall", "a\\nb", R"("name": it has characters that a VLAN name cannot have)"},
        {"Data", "../x", R"("profileType": there is no type "../x")"},
        {R"("vlanType")", R"("profileType": "", "vlanType")",
         R"("vlans[0].profileType": there is no type "")"},
        {"[1]", "[73]", R"("vlans[0].ports.untagged": there is no interface 73)"},
        {"[1]", "[2, 2]", R"("vlans[0].ports.untagged": 0/2 is untagged twice)"},
        {"[1]", "[9]", R"("vlans[0].ports.tagged": 0/9 is untagged in this VLAN)"},
        {"[{", R"([{"vlanId": 20, "vlanType": 2}, {)", R"("vlans[1].vlanId": VLAN 20 is named twice)"},
        {R"("ipConfig": 1)", R"("ipConfig": 3, "ipAddr": "10.0.0.1")",
         R"("vlans[0].routing": a manual address needs "ipAddr" and "ipMask" as IPv4)"},
        {"[{", R"([], "x": [{)", R"("vlans": a profile has one to four VLANs)"},
    };
    for (const auto &[part, other, reason] : rows) {
        const auto old = log().size();
        EXPECT_EQ(refusal(part.empty() ? other : requestWith(part, other)), reason);
        EXPECT_EQ(occurrences(log().substr(old), "(ERROR)"), 1u) << reason;
    }
    EXPECT_EQ(logged("Json format error\r\n"), 2u);
    EXPECT_EQ(logged("Param error :"), 6u);
    EXPECT_EQ(logged("profile refused: \""), std::size(rows) - 8);
    EXPECT_EQ(logged("profile refused: \"name\": it is empty (result = 10003)"), 1u);
    EXPECT_EQ(deleteProfile(&client, "[").error().reason, "the request is not JSON");
    EXPECT_EQ(remove("").error().reason, R"("name" is missing or empty)");
    EXPECT_EQ(remove("nobody").error().reason, "there is no such profile");

    failCall("openapiIfTypeGet");
    EXPECT_EQ(refusal(requestWith(), ResultCode::Failed),
              R"("vlans[0].ports.untagged": the switch does not answer for interface 1)");
    EXPECT_EQ(readProfiles(&client, ListDetails::Brief)->size(), 1u) << "nothing of all this was applied";
}

TEST_F(ProfileRequestTest, LongNamesAreFoundByWhatTheUserSaid) {
    const auto name = std::string(254, 'n') + "\u00fc";
    EXPECT_EQ(refusal(requestWith("Hall", name)), "(applied)");
    EXPECT_EQ(readProfiles(&client, ListDetails::Full)->back().name, cutProfileName(name));
    EXPECT_TRUE(remove(name));
}

TEST_F(ProfileRequestTest, ReservedNamesAreForTheDefaultProfile) {
    for (const std::string name : {"Default", "default"}) {
        const auto reason = R"("name": ")" + name + R"(" is for the default profile of VLAN 1)";
        EXPECT_EQ(refusal(requestWith("Hall\"", name + R"(", "overwrite": true)")), reason);
        auto text = requestWith(R"(Hall", "color": "#081855", "profileType": "Data)",
                                name + R"(", "color": "#081855", "profileType": "Default)");
        EXPECT_EQ(refusal(text), reason) << "no deletion would find it";
        text.replace(text.find("20"), 2, "1");
        EXPECT_EQ(refusal(text), "(applied)");
    }
    // The request that the program itself makes of one that overwrites the AVB profile of VLAN 1.
    auto avb = requestWith("Data", "Audio Video AVB");
    avb.replace(avb.find("20"), 2, "1");
    ASSERT_EQ(refusal(avb), "(applied)");
    avb = requestWith("Data\"", R"(Audio Video AVB", "overwrite": true)");
    EXPECT_EQ(refusal(avb), "(applied)");
    EXPECT_EQ((*readProfileRow(1))->profileType, "Default");
    EXPECT_EQ((*readProfileRow(1))->profileName, "default");
}

}  // namespace
