// What "pavoctl profile apply" makes of its options.
#include "ctl/request.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

#include "common/json.h"
#include "ctl/port_list.h"
#include "profile/request.h"
#include "tests/support/switch_fixture.h"

namespace {

using namespace pavo;
using ctl::ApplyOptions;
using ctl::portListOf;
using test_support::SwitchTest;

class RequestTest : public SwitchTest {
  protected:
    ApplyOptions optionsWith(const std::string &vlan) {
        ApplyOptions options;
        options.name = "Hall";
        options.type = "Data";
        options.vlans = {vlan};
        return options;
    }
    ProfileConfig configOf(const ApplyOptions &options) {
        return parseProfileConfig(ctl::requestOf(&client, options)).value();
    }
    // What the options are refused with.
    std::string refusal(const ApplyOptions &options) {
        try {
            return "made " + ctl::requestOf(&client, options);
        } catch (const CLI::ValidationError &error) {
            return error.what();
        }
    }
    std::string refusal(const std::string &vlan) {
        const auto why = refusal(optionsWith(vlan));
        const auto option = "--vlan: \"" + vlan + "\": ";
        return why.starts_with(option) ? why.substr(option.size()) : "not quoted: " + why;
    }
    std::string fileWith(const std::string &text) {
        test_support::writeText("/tmp/request.json", text);
        return platform::fsPath("/tmp/request.json");
    }
};

TEST_F(RequestTest, ListsNamePortsAndLags) {
    const auto config =
        configOf(optionsWith("20 type=3 profile=Video untagged=1-3,7,lag2 tagged=lag3-4,48 assigned=5"));
    const auto &vlan = config.request.vlans.at(0);
    const auto portsOf = [](const std::vector<IfNum> &ports) { return portListOf(ports, {}); };
    EXPECT_EQ(vlan.id, VlanId(20));
    EXPECT_EQ(vlan.vlanType, 3);
    EXPECT_EQ(vlan.profileType, "Video");
    EXPECT_EQ(portsOf(vlan.untagged), "1-3,7,50");
    EXPECT_EQ(portsOf(vlan.tagged), "48,51-52");
    EXPECT_EQ(portsOf(vlan.assigned), "5");
    EXPECT_EQ(configOf(optionsWith("20")).request.vlans.at(0).vlanType, 1);

    const IfNum ports[] = {IfNum(7), IfNum(1), IfNum(2)};
    const std::uint32_t lags[] = {4, 2, 3};
    EXPECT_EQ(portListOf(ports, lags), "1-2,7,lag2-4") << "as it is written";
    EXPECT_EQ(portListOf({}, {}), "-");
}

TEST_F(RequestTest, WhatIsNotUnderstoodIsRefusedAsAWhole) {
    for (const std::string item : {"1;2", "all", "", "1-", "-4", "4-1", "1-4-6", "0/5", "5x", "lag", "LAG2",
                                   "lag2-lag3", "+1", "0x5", "1-99999999999"})
        for (const std::string first : {"", "3,"})
            EXPECT_EQ(
                refusal("20 untagged=" + first + item),
                "untagged: \"" + item + "\" is neither a port (7), nor a LAG (lag2), nor a range of them");
    const std::pair<std::string, std::string> rows[] = {
        {"20 tagged=47-4000000000", "tagged: there is no port 49 (ports 1-48, LAGs lag1-24)"},
        {"20 assigned=0", "assigned: there is no port 0 (ports 1-48, LAGs lag1-24)"},
        {"20 tagged=lag25", "tagged: there is no LAG 25 (ports 1-48, LAGs lag1-24)"},
        {"20 tagged=lag0", "tagged: there is no LAG 0 (ports 1-48, LAGs lag1-24)"},
        {"20.5 untagged=1", "\"20.5\" is not a VLAN id (1 to 4094)"},
        {"", "\"\" is not a VLAN id (1 to 4094)"},
        {"20 type=3.5", "type: \"3.5\" is not a number"},
        {"20 untagged=1 untagged=2", "\"untagged\" is there twice"},
        {"20 untaged=1", "\"untaged\" is not one of type, profile, untagged, tagged, assigned"},
    };
    for (const auto &[vlan, why] : rows)
        EXPECT_EQ(refusal(vlan), why);

    startSwitch({.physicalPorts = 8, .lags = 0});
    EXPECT_EQ(refusal("20 tagged=lag1"), "tagged: there is no LAG 1 (ports 1-8, LAGs -)");
    failCall("rpcclt_openapiIfNextGet", 3);
    EXPECT_THROW(ctl::requestOf(&client, optionsWith("20 untagged=4")), Failure) << "no answer is no absence";
}

TEST_F(RequestTest, WhatIsTooWideIsRefused) {
    auto options = optionsWith("20");
    options.name = std::string(256, 'n');
    EXPECT_EQ(refusal(options),
              "--name: \"" + std::string(60, 'n') + "...\" has 256 bytes; at most 255 are kept");
    options.name.pop_back();
    EXPECT_EQ(configOf(options).request.name, options.name);
    options.color = "#0818555";
    EXPECT_EQ(refusal(options), "--color: \"#0818555\" has 8 bytes; at most 7 are kept");
}

TEST_F(RequestTest, FlagsCountForFilesToo) {
    const std::string body = R"("name": "N", "color": "#081855", "profileType": "Data", "vlanNum": 1,
        "vlans": [{"vlanId": 20, "vlanType": 1}])";
    ApplyOptions options;
    options.file = fileWith(R"({"profileConfig": {"plan": false, "plan": false, )" + body + "}}");
    EXPECT_FALSE(configOf(options).plan);
    options.plan = options.force = true;
    const auto config = configOf(options);
    EXPECT_TRUE(config.plan && config.force && !config.overwrite);
    for (const std::string text : {"nonsense", "{}", R"({"profileConfig": 3})"}) {
        options.file = fileWith(text);
        EXPECT_EQ(ctl::requestOf(&client, options), text) << "refused by who reads it";
    }
    options.file = "/nowhere";
    EXPECT_EQ(refusal(options), "cannot read /nowhere");
    options = optionsWith("20");
    options.plan = true;
    EXPECT_TRUE(configOf(options).plan);
}

}  // namespace
