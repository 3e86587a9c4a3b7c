// The state of the switch as data: what is read from the running configuration, and the script from one state
// to another.
#include <gtest/gtest.h>

#include "profile/placing.h"
#include "profile/switch_script.h"

namespace {

using namespace pavo;

SwitchState stateOf(const std::string &lines) {
    return parseSwitchState(lines);
}

// A configuration with one of everything.
constexpr const char *kFull =
    "!Current Configuration:\n!System Description \"x\"\nhostname \"vlan 9\"\nvlan database\nvlan "
    "10,20-21,4095\n"
    "vlan name 10 \"a \\\"b\\\" c\"\r\nexit\nconfigure\ninterface 0/1\nvlan pvid 10\n"
    "vlan participation exclude 1\nvlan participation include 10,20\nvlan tagging 20\nmtu 9198\nexit\n"
    "interface lag 2\nvlan participation auto 1\nexit\ninterface vlan 10\nrouting\n"
    "ip address 10.0.0.1 255.0.0.0\nexit\ninterface vlan 20\nip address dhcp\nexit\n"
    "interface 0/2\nexit\nexit\n";

TEST(SwitchState, IsReadFromTheRunningConfiguration) {
    const auto state = stateOf(kFull);
    EXPECT_EQ(state.vlans,
              (std::map<VlanId, std::string>{{VlanId(10), "a \"b\" c"}, {VlanId(20), ""}, {VlanId(21), ""}}));
    const InterfaceState port{VlanId(10),
                              {{VlanId(1), Participation::Exclude},
                               {VlanId(10), Participation::Include},
                               {VlanId(20), Participation::Include}},
                              {VlanId(20)},
                              9198};
    const InterfaceState lag{VlanId(1), {{VlanId(1), Participation::Auto}}, {}, 0};
    EXPECT_EQ(state.interfaces, (std::map<std::string, InterfaceState>{{"0/1", port}, {"lag 2", lag}}));
    EXPECT_EQ(state.routing,
              (std::map<VlanId, VlanRouting>{{VlanId(10), {true, false, "10.0.0.1", "255.0.0.0"}},
                                             {VlanId(20), {false, true, "", ""}}}));
    for (const char *const text :
         {"vlan database\nvlan x,-,9999-1\nvlan name 0 x\nexit\n", "\"\\",
          "interface 0/1\nvlan pvid 0\nvlan participation some 3\nvlan tagging \nmtu\n",
          "interface loopback 2\nmtu 1500\nvlan pvid 10\nexit\n",
          "interface vlan 10\nip address 10.0.0.1 \"255.0.0.0 x\"\nip address x 255.0.0.0\nexit\n",
          "interface vlan 10\ninterface tunnel 1\nrouting\nip address dhcp\nexit\n"})
        EXPECT_EQ(stateOf(text), SwitchState{}) << text;
}

TEST(SwitchState, DifferencesAreScripts) {
    const std::string vlans = "vlan database\nvlan 10\nexit\n";
    const auto port = [](const std::string &lines) { return "interface 0/1\n" + lines + "exit\n"; };
    const auto config = [](const std::string &lines) { return "config\n" + lines + "exit\n"; };
    const std::string in = "interface vlan 10\n", quoted = "vlan name 10 \"q\\\"\\\\\"\nexit\n";
    const struct {
        std::string from, to, script;
    } rows[] = {
        {kFull, kFull, ""},
        {"", vlans, vlans},
        {vlans, "", "vlan database\nno vlan 10\nexit\n"},
        {vlans, "vlan database\nvlan 10\n" + quoted, "vlan database\n" + quoted},
        {"vlan database\nvlan 10\n" + quoted, vlans, "vlan database\nno vlan name 10\nexit\n"},
        {"", port("vlan pvid 10\nvlan participation include 10\nvlan participation auto 1\nmtu 1500\n"),
         config(port("vlan participation include 10\nvlan pvid 10\nvlan participation auto 1\nmtu 1500\n"))},
        {port("vlan pvid 10\nvlan participation include 10\nvlan tagging 3\nmtu 1500\n"), "",
         config(port("no vlan tagging 3\nvlan pvid 1\nvlan participation auto 10\nno mtu\n"))},
        {vlans, vlans + in + "routing\nip address dhcp\nexit\n",
         config(in + "routing\nip address dhcp\nexit\n")},
        {vlans + in + "routing\nip address 1.2.3.4 255.0.0.0\nexit\n", vlans,
         config(in + "no ip address\nno routing\nexit\n")},
        // The address of a VLAN that goes, goes with it.
        {vlans + in + "routing\nexit\n", "", "vlan database\nno vlan 10\nexit\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(switchScript(stateOf(row.from), stateOf(row.to)), row.script) << row.from << "to\n"
                                                                                << row.to;
}

// They come from the record, which somebody may have edited.
TEST(SwitchState, NamesOfThingsMayEndAnywhere) {
    for (const std::string name : {"interface lag", "interface lag 1", "policy-map ", "vlan ", ""})
        EXPECT_EQ(settingsScript({{name, "x"}}, {}) + settingsScript({}, {{name, "x"}}), "") << name;
}

TEST(SwitchState, OnlyWhatAChangeTouchesIsCompared) {
    const auto from = stateOf("interface 0/1\nmtu 1500\nexit\ninterface 0/2\nmtu 1500\nexit\n");
    auto to = from, byOthers = from;
    to.interfaces["0/1"].mtu = byOthers.interfaces["0/1"].mtu = 9198;
    byOthers.interfaces["0/2"].mtu = 2000;
    byOthers.vlans[VlanId(7)];
    const auto touched = Touched::by(from, to);
    EXPECT_EQ(touched.part(byOthers), touched.part(to));
    EXPECT_NE(touched.part(byOthers), touched.part(from));
}

TEST(SwitchState, AVlanThatGoesLeavesItsPortsInVlan1) {
    auto state = stateOf(kFull);
    state.removeVlan(VlanId(10));
    state.removeVlan(VlanId(20));
    state.normalise();
    EXPECT_EQ(state.interfaces["0/1"], (InterfaceState{VlanId(1), {}, {}, 9198}));
    EXPECT_TRUE(state.routing.empty() && state.hasVlan(VlanId(21)) && !state.hasVlan(VlanId(10)));
}

}  // namespace
