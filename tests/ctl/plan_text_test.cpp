// Plans and states in words: what people read of them.
#include "ctl/plan_text.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace pavo;
using ctl::planText;
using ctl::stateText;

// "thing|now|then" each.
std::vector<PlanLine> linesOf(const std::string &text) {
    std::vector<PlanLine> lines;
    std::istringstream in(text);
    for (PlanLine line; std::getline(in >> std::ws, line.what, '|');) {
        std::getline(std::getline(in, line.now, '|'), line.then, ';');
        lines.push_back(line);
    }
    return lines;
}

TEST(PlanTextTest, WhatBelongsTogetherIsOneLine) {
    ProfilePlan plan;
    plan.profile = "Stage";
    plan.switchWide = linesOf(
        "class-map match-all CLASS_AUDIO1|default|(1 lines);"
        "class-map match-all CLASS_AUDIO2|default|(1 lines); ip access-list VISIONARY|present|absent;"
        "class-map match-all CLASS_VIDEO|(1 lines)|(1 lines);"
        "mvrp include factory-default-vlan|default|on; policy-map POLICY_AV in|(12 lines)|default;"
        "ptp clock e2e-transparent|on|default; queue cos-map all|(1 lines)|(6 lines);"
        "spanning-tree mode|default|rstp");
    plan.vlans = linesOf(
        "igmp-plus 100|default|on; igmp-plus 21|default|on; set igmp maxresponse 77|7|10;"
        "spanning-tree vlan 77 hello-time|2|9; vlan 100|absent|present; vlan 100 name|default|\"Stage\";"
        "vlan 20 name|\"Hall\"|\"Stage\"; vlan 21|absent|present; vlan 21 name|default|\"Stage\";"
        "vlan 22|absent|present; vlan 30|present|absent; vlan 77 routing|default|routing dhcp");
    plan.taken = {{"Hall", "VLAN 20", "Stage"}, {"Bar", "port 9", "Stage"}, {"Hall", "port 2", "Stage"}};
    plan.notKept = {"mmrp stays at on: it was changed since\n"};
    EXPECT_EQ(planText(plan), R"(Switch-wide
  ip access-list VISIONARY           removed
  mvrp include factory-default-vlan  on -> off
  policy POLICY_AV                   removed
  ptp clock e2e-transparent          on -> off
  queue cos-map all                  changed
  spanning-tree mode                 default -> rstp
  class maps                         changed: CLASS_VIDEO
  class maps                         new: CLASS_AUDIO1, CLASS_AUDIO2
VLANs
  VLAN 20      name "Hall" -> "Stage"
  VLAN 21,100  new, named "Stage"
  VLAN 22      new
  VLAN 30      removed
  VLAN 77      interface default -> routing dhcp
  VLAN 21,100  igmp-plus off -> on
  VLAN 77      set igmp maxresponse 7 -> 10
  VLAN 77      spanning-tree vlan 77 hello-time 2 -> 9
Taken
  VLAN 20, port 2 from "Hall"
  port 9 from "Bar"
Note
  mmrp stays at on: it was changed since.
)");
    EXPECT_EQ(planText({}, 2), "  nothing would change\n");

    plan = {};
    for (char c = 'A'; c <= 'P'; ++c)
        plan.switchWide.push_back({std::string("class-map match-all CLASS_") + c, "default", "(1 lines)"});
    plan.switchWide.push_back({"hostname", "default", std::string(100, 'x')});
    EXPECT_EQ(planText(plan), "Switch-wide\n  hostname    default -> " + std::string(100, 'x') + R"(
  class maps  new: CLASS_A, CLASS_B, CLASS_C, CLASS_D, CLASS_E, CLASS_F, CLASS_G, CLASS_H, CLASS_I,
              CLASS_J, CLASS_K, CLASS_L, CLASS_M, CLASS_N, CLASS_O, CLASS_P
)") << "long ones go on in the next line";
    plan = {};
    plan.notKept = {"a change was interrupted"};
    EXPECT_EQ(planText(plan), "nothing would change\nNote\n  a change was interrupted\n");
}

TEST(PlanTextTest, ChangesOfAPortAreTogetherAndPortsWithTheSameAreARun) {
    ProfilePlan plan;
    for (const std::string port : {"0/1", "0/10", "0/2", "0/3", "0/9", "lag 2"})
        for (const auto *setting :
             {"mtu|default|9198", "pvid|1|20", "vlan 1|default|auto", "vlan 20|default|include"})
            plan.ports.push_back(linesOf("interface " + port + " " + setting).front());
    // At ports 5 and 6 a PVID without the memberships that would go with it, all of them or one.
    for (const auto &line :
         linesOf("0/4 pvid|20|1; 0/4 vlan 1|exclude|default; 0/4 vlan 20|include|default; 0/5 pvid|1|20;"
                 "0/6 pvid|1|20; 0/6 vlan 20|include tagged|include; 0/7 vlan 1|default|exclude;"
                 "0/7 vlan 20|include tagged|auto tagged; 0/7 vlan 30|auto|include tagged;"
                 "0/7 vlan 31|default|exclude; 0/8 mrp leavetime|default|200; 0/8 mvrp|default|on;"
                 "1/0/8 mvrp|on|default"))
        plan.ports.push_back({"interface " + line.what, line.now, line.then});
    EXPECT_EQ(planText(plan, 1), R"( Ports
   0/1-3,0/9-10,lag2  VLAN 1 -> 20 untagged, MTU default -> 9198
   0/4                VLAN 20 -> 1 untagged
   0/5                PVID 1 -> 20
   0/6                PVID 1 -> 20, VLAN 20 tagged -> untagged
   0/7                leaves VLAN 1, leaves VLAN 20, VLAN 30 tagged, VLAN 31 auto -> excluded
   0/8                mrp leavetime default -> 200, mvrp off -> on
   1/0/8              mvrp on -> off
)");
}

TEST(PlanTextTest, StateNamesAllThatIsNotAsApplied) {
    ProfileStatus status{"Hall", {}, {}, false};
    EXPECT_TRUE(status.isAsApplied());
    EXPECT_EQ(stateText(status), "as applied");
    status.losses = {{"Hall", "VLAN 20", "B"}, {"Hall", "port 3", "C"}, {"Hall", "port 2", "B"}};
    status.repair.ports = {{"interface 0/5 mvrp", "default", "on"}};
    EXPECT_EQ(stateText(status), R"(incomplete: VLAN 20, port 2 are with "B", port 3 is with "C"; drifted)");
    EXPECT_FALSE(status.isAsApplied());
    status = {"Hall", {}, {}, true};
    EXPECT_EQ(stateText(status), "interrupted: finished or taken back by the next operation");
    EXPECT_FALSE(status.isAsApplied());
}

}  // namespace
