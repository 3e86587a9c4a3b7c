// Commands of AV features: multicast, 802.1AS and MRP, spanning tree, quality of service, access lists.
#include <gtest/gtest.h>

#include <sstream>

#include "vswitch/cli/cli.h"
#include "vswitch/cli/command.h"

namespace vswitch {
namespace {

class AvCommandsTest : public testing::Test {
  protected:
    AvCommandsTest() { model.advanceTo({}, {}); }

    std::string apply(const std::string &lines) { return cli.runScript("configure\n" + lines); }
    std::string config() const { return cli::runningConfig(model); }
    bool configured(const std::string &line) const {
        return config().find("\n" + line + "\n") != std::string::npos;
    }

    Model model;
    Cli cli{model};
};

constexpr const char *kEverything = R"(vlan database
vlan 10,20
set igmp 10
set igmp fast-leave 10
set igmp flood-report 10
set igmp exclude-mrouter-intf 10
set igmp proxy-querier 20
set igmp querier election participate 20
set igmp maxresponse 10 12
set igmp groupmembership-interval 10 260
set igmp mcrtrexpiretime 20 0
set mld 10
set mld proxy-querier 20
exit
igmp-plus 10
ipv6 mld snooping
set igmp querier version 2
set igmp querier timer expiry 180
ip igmp snooping querier query-interval 30
dot1as
mvrp
mvrp periodic state machine
no mvrp include factory-default-vlan
mmrp
mmrp periodic state machine
msrp
switchport mode auto
spanning-tree mode rapid-pvst
spanning-tree mst priority 0 28672
spanning-tree vlan 10 hello-time 9
spanning-tree vlan 10 forward-time 30
spanning-tree vlan 20 max-age 22
class-map match-all A
match ip dscp 46
match dstip 224.0.1.130 255.255.255.254
match srcl4port 4443
match protocol 50
exit
class-map match-all B
exit
policy-map P in
class B
assign-queue 5
exit
class A
exit
exit
policy-map Q in
exit
classofservice trust dot1p
queue cos-map all 7 6
queue cos-queue strict all 6 4
service-policy in P
ip access-list NET-BLOCK
deny ip any 224.0.0.0 0.255.255.255
permit ip 10.0.0.0 0.0.0.255 any
permit ip any any
exit
mac access-list extended visionaryNwAV
deny any 01:00:5e:00:00:00 00:00:00:7f:ff:ff
permit any any
exit
interface 0/1-0/2
dot1as
mvrp
mmrp
msrp
mrp jointime 25
mrp leavetime 500
mrp leavealltime 2000
mtu 1500
service-policy in Q
interface lag 2
ip igmp snooping mrouter interface
mrp leavetime 60
)";

TEST_F(AvCommandsTest, RunningConfigIsAScriptThatMakesTheSameSwitch) {
    apply(kEverything);
    ASSERT_EQ(0u, cli.unknownCommands() + cli.refusedCommands());
    std::istringstream lines(kEverything);
    for (std::string line; std::getline(lines, line);) {
        const bool rewritten = line.starts_with("interface 0/1-") || line.starts_with("queue cos-queue");
        EXPECT_TRUE(rewritten || configured(line)) << line;
    }
    EXPECT_TRUE(configured("queue cos-queue strict all 4 6"));

    Model other;
    Cli second(other);
    other.advanceTo({}, {});
    second.runScript(config());
    EXPECT_EQ(0u, second.unknownCommands() + second.refusedCommands());
    EXPECT_EQ(config(), cli::runningConfig(other));
    EXPECT_EQ("B", other.qos().policyMaps().at("P").classes.front().name) << "the order of classes stays";
    EXPECT_EQ(
        "Policy Name                     Policy Type Class Members\n"
        "------------------------------- ----------- -------------------------------\n"
        "P                               In          B\n"
        "                                            A\n"
        "Q                               In          \n",
        second.show("show policy-map"));
}

TEST_F(AvCommandsTest, NoFormsUndoEverything) {
    const auto fresh = config();
    apply(kEverything);
    apply(
        "no service-policy in P\nno service-policy in Q\nno policy-map P\nno policy-map Q\nno class-map A\n"
        "no class-map B\nno queue trust all\nno queue cos-map all\nno queue cos-queue strict all 4 5 6\n"
        "no ip access-list NET-BLOCK\nno mac access-list extended visionaryNwAV\n"
        "no spanning-tree mode\nno spanning-tree mst priority 0\nno switchport mode auto\n"
        "no dot1as\nno mvrp\nno mmrp\nno msrp\nmvrp include factory-default-vlan\n"
        "no ip igmp snooping querier query-interval\nno set igmp querier version\n"
        "no set igmp querier timer expiry\nno ipv6 mld snooping\nno igmp-plus 10\n"
        "interface 0/1-0/2\nno dot1as\nno mvrp\nno mmrp\nno msrp\nno mrp jointime\nmrp leavetime 100\n"
        "no mrp leavealltime\nno mtu\ninterface lag 2\nno set igmp mrouter interface\nno mrp leavetime\n"
        "exit\nvlan database\nno set igmp 10\nno set igmp fast-leave 10\nno set igmp flood-report 10\n"
        "no set igmp exclude-mrouter-intf 10\nno set igmp proxy-querier 20\n"
        "no set igmp querier election participate 20\nno set igmp maxresponse 10\n"
        "no set igmp groupmembership-interval 10\nno set igmp mcrtrexpiretime 20\nno set mld 10\n"
        "no set mld proxy-querier 20\nno vlan 10,20\n");
    EXPECT_EQ(0u, cli.unknownCommands());
    // The policy of the ports went with the switch's own.
    EXPECT_EQ(0u, cli.refusedCommands());
    EXPECT_EQ(fresh, config());
}

TEST_F(AvCommandsTest, WhatIsInUseStays) {
    apply(
        "class-map match-all A\nexit\npolicy-map P in\nclass A\nexit\nexit\ninterface 0/3\nservice-policy in "
        "P\n");
    const auto before = config();
    const char *refused[] = {"no class-map A",
                             "no policy-map P",
                             "policy-map P out",
                             "service-policy out P",
                             "service-policy in X",
                             "no service-policy in X",
                             "no class-map X",
                             "no policy-map X",
                             "no ip access-list X",
                             "no mac access-list extended X",
                             "class-map match-all \"A B\"",
                             "class-map match-all a123456789012345678901234567890x",
                             "ip access-list \"\"",
                             "spanning-tree mst priority 0 5",
                             "spanning-tree mst priority 1 4096",
                             "spanning-tree vlan 1 hello-time 2",
                             "igmp-plus 99"};
    for (const auto *line : refused)
        EXPECT_NE(std::string::npos, apply(line).find("Error on line 2.")) << line;
    EXPECT_NE(std::string::npos, apply("policy-map P in\nclass X\n").find("Error on line 3."));
    EXPECT_NE(std::string::npos, apply("interface 0/4\nno service-policy in P\n").find("Error on line 3."));
    EXPECT_EQ(std::size(refused) + 2, cli.refusedCommands());
    EXPECT_EQ(0u, cli.unknownCommands());
    EXPECT_EQ(before, config());
    // A session whose object another one has deleted.
    CliSession session{{CliMode::Exec, CliMode::Config}, {}};
    cli.run(session, "class-map match-all GONE");
    apply("no class-map GONE");
    EXPECT_EQ("No such entry.\n", cli.run(session, "match ip dscp 1"));

    // The switch's "no" takes the policy off every place; a mode without trees per VLAN forgets their timers.
    apply(
        "no service-policy in P\nno policy-map P\nno class-map A\nspanning-tree mode pvst\n"
        "spanning-tree vlan 1 max-age 22\nspanning-tree mode rstp\nspanning-tree mode pvst\n");
    EXPECT_EQ(std::string::npos, config().find("policy"));
    EXPECT_EQ(std::string::npos, config().find("spanning-tree vlan"));
}

TEST_F(AvCommandsTest, NamingAVlanInTheDatabaseCreatesIt) {
    apply("vlan database\nno set igmp maxresponse 30\nset mld 31\n");
    EXPECT_TRUE(model.hasVlan(30) && model.hasVlan(31));
    EXPECT_TRUE(configured("vlan 30,31"));
    apply("vlan database\nno vlan 31\nvlan 31\n");
    EXPECT_FALSE(configured("set mld 31")) << "settings go with the VLAN";
    EXPECT_EQ(0u, cli.unknownCommands() + cli.refusedCommands());
}

TEST_F(AvCommandsTest, TablesHaveAnEnd) {
    for (int i = 0; i < 300; ++i) {
        apply("class-map match-all C" + std::to_string(i) + "\n");
        apply("ip access-list L" + std::to_string(i) + "\n");
    }
    EXPECT_EQ(256u, model.qos().classMaps().size());
    EXPECT_EQ(100u, model.ipAccessLists().size());
    std::string script = "ip access-list L1\n";
    for (int i = 0; i < 2000; ++i)
        script += "permit ip any any\n";
    apply(script);
    EXPECT_EQ(1023u, model.ipAccessLists().at("L1").size());
    script = "class-map match-all C1\n";
    for (int i = 0; i < 64; ++i)
        script += "match ip dscp " + std::to_string(i) + "\n";
    apply(script);
    EXPECT_EQ(13u, model.qos().classMaps().at("C1").size());
}

}  // namespace
}  // namespace vswitch
