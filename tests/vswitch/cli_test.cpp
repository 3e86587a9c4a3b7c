#include "vswitch/cli/cli.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

using cli::Command;

class CliTest : public ModelFixture {
  protected:
    static CliSession in(CliMode mode, std::vector<IfNum> interfaces = {1}) {
        return {{CliMode::Exec, mode}, std::move(interfaces)};
    }

    // What is printed for one line in a session of its own.
    std::string run(CliSession session, const std::string &line) { return cli.run(session, line); }
    std::string run(const std::string &line) { return run({}, line); }
    bool configured(const std::string &line) const { return contains(runningConfig(), "\n" + line + "\n"); }
    void expectErrors(const CliSession &session, const std::vector<std::string> &all) {
        for (const auto &line : all)
            EXPECT_NE("", run(session, line)) << line.substr(0, 60);
    }
    // What is printed below a line that is wrong from a column on.
    std::string marker(const CliSession &session, std::size_t column) const {
        return std::string(cli.prompt(session).size() + column, ' ') +
               "^\n% Invalid input detected at '^' marker.\n";
    }
};

// Words that fit a syntax; of alternatives the first or the last one.
std::vector<std::string> exampleOf(const Command &command, bool last) {
    static const std::map<std::string, std::string> kArguments = {
        {"vlan", "10"},           {"vlans", "10,20-22"}, {"mac", "00:1b:92:02:00:01"},
        {"ip", "10.0.0.1"},       {"net", "239.255.2"},  {"port", "0/2"},
        {"ports", "0/1,0/3-0/4"}, {"lag", "2"},          {"text", "\"a \\\"b\\\"\""}};
    std::vector<std::string> words;
    std::istringstream syntax(command.syntax);
    for (std::string word; syntax >> word;) {
        if (word.ends_with("..."))
            word.resize(word.size() - 3);
        if (word.starts_with("<int:"))
            word = word.substr(5, word.find('-') - 5);
        else if (word.front() == '<')
            word = kArguments.at(word.substr(1, word.size() - 2));
        else
            word = last ? word.substr(word.rfind('|') + 1) : word.substr(0, word.find('|'));
        words.push_back(word);
    }
    return words;
}

TEST_F(CliTest, EveryRowTakesItsOwnSyntaxAndNoMore) {
    model.createVlan(10);
    const auto check = [&](const Command &command, const CliSession &session, bool last) {
        SCOPED_TRACE(command.syntax);
        const auto words = exampleOf(command, last);
        std::string line;
        for (const auto &word : words) {
            const auto before = cli.unknownCommands();
            line += (line.empty() ? "" : " ") + word;
            if (const auto output = run(session, line); cli.unknownCommands() != before) {
                ASSERT_LT(&word, &words.back()) << output;
                EXPECT_EQ("% Incomplete command. Use '?' to list what may follow.\n", output) << line;
            }
        }
        if (!std::string_view(command.syntax).ends_with("..."))
            EXPECT_EQ(marker(session, line.size() + 2), run(session, line + "  surplus"));
    };
    for (const auto *command : cli::allCommands())
        for (unsigned bit = 0; bit < 16; ++bit)
            for (const bool last : {false, true})
                if (const auto mode = static_cast<CliMode>(bit); (command->modes & (1u << bit)) != 0)
                    check(*command, mode == CliMode::Exec ? CliSession{} : in(mode), last);
}

TEST_F(CliTest, AbbreviationsWhileItIsClearWhatIsMeant) {
    EXPECT_EQ(run("show vlan port all"), run("sh v p a"));
    EXPECT_EQ(run("show port all"), run("show port al")) << "an exact word beats an abbreviated one";
    for (const auto *line : {"show por all", "e"})
        EXPECT_EQ("% Ambiguous command.\n", run(line));
    EXPECT_TRUE(cli.refusedCommands() == 0 && cli.unknownCommands() == 2);

    auto session = CliSession{};
    for (const auto *line : {"conf", "int 0/2-0/3,1/0/5,0/2", "sp 10 f", "no sh"})
        EXPECT_EQ("", cli.run(session, line));
    EXPECT_EQ((std::vector<IfNum>{2, 3, 5}), session.interfaces);
    EXPECT_EQ("10 full-duplex", model.interface(5)->speed);
    for (const auto &[line, column] : {std::pair{"speed 1 full", 6u}, {"\"mtu\" 2000", 0u}, {"mtu 1499", 4u}})
        EXPECT_EQ(marker(session, column), cli.run(session, line));
    for (const auto *line : {"sh vlan", "hostname x", "show vlan 99"})
        EXPECT_EQ(std::nullopt, cli.show(line));
    EXPECT_TRUE(contains(cli.help(CliSession{}, "show vlan "), "<cr>"));
    EXPECT_FALSE(contains(cli.help(CliSession{}, ""), "hostname"));
}

TEST_F(CliTest, ModesAndPrompts) {
    CliSession session;
    for (const auto &step : linesOf(R"(vlan database=(Vlan)#; exit=#; configure=(Config)#
interface 0/4-0/6=(Interface 0/4,...)#; interface lag 2=(Interface lag 2)#; exit=(Config)#
interface port-channel 1=(Interface lag 1)#; end=#; exit=#)")) {
        const auto at = step.find('=');
        EXPECT_EQ("", cli.run(session, step.substr(0, at)));
        EXPECT_EQ("(avswitch) " + step.substr(at + 1), cli.prompt(session)) << step;
    }
    EXPECT_NE("", cli.run(session, "hostname x")) << "not in this mode";
    const auto printed =
        cli.runScript("! a comment\r\n\n \t\nconfigure\r\nhostname x\nbogus\nhostname \"y z\"");
    EXPECT_EQ("y z", model.system().hostName);
    EXPECT_TRUE(contains(printed,
                         "(x) (Config)#bogus\n             ^\n"
                         "% Invalid input detected at '^' marker.\nError on line 6.\n"))
        << printed;
}

// What the running configuration shows as it was entered.
constexpr const char *kShown = R"(vlan database; vlan 10,20-23,4094
set igmp 10; set igmp fast-leave 10; set igmp flood-report 10; set igmp exclude-mrouter-intf 10
set igmp proxy-querier 20; set igmp querier election participate 20; set igmp maxresponse 10 12
set igmp groupmembership-interval 10 260; set igmp mcrtrexpiretime 20 0; set mld 10; set mld proxy-querier 20
set igmp drop-unknown 10; vlan name 10 "say \"hi\" \\ there"; vlan name 1 "! no comment"
vlan association mac 00:1B:92:02:00:01 20; exit
igmp-plus 10; ipv6 mld snooping; set igmp querier version 2; set igmp querier timer expiry 180
ip igmp snooping querier query-interval 30; dot1as; mvrp; mvrp periodic state machine
no mvrp include factory-default-vlan; mmrp; mmrp periodic state machine; msrp; switchport mode auto
spanning-tree mode rapid-pvst; spanning-tree mst priority 0 28672; spanning-tree vlan 10 hello-time 9
spanning-tree vlan 10 forward-time 30; spanning-tree vlan 20 max-age 22
class-map match-all A; match ip dscp 46; match dstip 224.0.1.130 255.255.255.254; match srcl4port 4443
match protocol 50; exit; class-map match-all B; exit
policy-map P in; class B; assign-queue 5; exit; class A; exit; exit; policy-map Q in; exit
classofservice trust dot1p; queue cos-map all 7 6; queue cos-queue strict all 4 6; service-policy in P
ip access-list NET-BLOCK; deny ip any 224.0.0.0 0.255.255.255; permit ip 10.0.0.0 0.0.0.255 any
permit ip any any; exit
mac access-list extended visionaryNwAV; deny any 01:00:5e:00:00:00 00:00:00:7f:ff:ff; permit any any; exit
hostname "hall \\ 2\""; ip management vlan 10 192.168.1.2 255.255.255.0; ip default-gateway 192.168.1.1
bridge aging-time 600; dot1x system-auth-control; aaa authentication dot1x default radius
snmp-server location "Rack 3 \"left\" \\"; snmp-server contact "the desk"; clock timezone -3:30 zone NST
sntp client mode broadcast; sntp server fe80::1 3 123; sntp server time.example 1 1123
no logging buffered; logging console debug; logging syslog; logging host 10.0.0.7 1514 notice
radius server timeout 7; radius server retransmit 2
radius server host auth 10.0.0.5 name "the \"main\" one" port 1645 priority 1
radius server host acct 10.0.0.5 name "" port 1813 priority 8
port-channel auto; port-channel auto load-balance 5; monitor session 1 source interface 0/1
monitor session 1 source interface 0/2 rx; monitor session 1 source interface lag 2 tx
monitor session 1 destination interface 0/5; monitor session 1 mode; monitor session 4 source interface 0/5 tx
interface 0/1; dot1as; mvrp; mmrp; msrp; mrp jointime 25; mrp leavetime 500; mrp leavealltime 2000
mtu 1500; service-policy in Q; shutdown; description "\"\\ exit \\\\\""; speed 10G full-duplex
vlan acceptframe admituntaggedonly; vlan pvid 10; dot1x port-control force-unauthorized; dot1x reauthentication
dot1x timeout reauth-period 60; vlan participation include 10,20-22
vlan participation exclude 1,23; vlan tagging 1,21-23; switchport mode trunk
interface 0/2; addport lag 2; interface 0/4; vlan participation auto 1; vlan acceptframe vlanonly
interface vlan 10; routing; ip address 10.0.0.1 255.0.0.0
interface vlan 20; routing; ip address dhcp; interface lag 2; ip igmp snooping mrouter interface
mrp leavetime 60; description "uplink"; vlan participation include 4094; vlan pvid 4094
no port-channel static; port-channel name "up \"1\""; port-channel load-balance 6; switchport mode access)";
// And what it shows otherwise, or not at all.
constexpr const char *kNotShown = R"(ptp clock e2e-transparent; queue cos-queue strict all 6 4
username desk password "close sesame" level 0; username admin password "simsalabim"
radius server key auth 10.0.0.5 "open sesame"; aaa ias-user username a@b.c password "say sesame"
interface 0/1-0/3; no ptp clock e2e-transparent
interface vlan 21; routing; routing)";
constexpr const char *kUndone =
    R"(no service-policy in P; no service-policy in Q; no policy-map P; no policy-map Q
no class-map A; no class-map B; no queue trust all; no queue cos-map all; no queue cos-queue strict all 4 5 6
no ip access-list NET-BLOCK; no mac access-list extended visionaryNwAV; no spanning-tree mode
no spanning-tree mst priority 0; no switchport mode auto; no dot1as; no mvrp; no mmrp; no msrp
mvrp include factory-default-vlan; no ip igmp snooping querier query-interval; no set igmp querier version
no set igmp querier timer expiry; no ipv6 mld snooping; no igmp-plus 10; no hostname; ip management vlan 1 dhcp
no ip default-gateway; no bridge aging-time; no dot1x system-auth-control; no ptp clock e2e-transparent
no snmp-server location; no snmp-server contact; no clock timezone; no sntp client mode; no sntp server fe80::1
no sntp server time.example; logging buffered; no logging console; no logging syslog; no logging host 10.0.0.7
no radius server timeout; no radius server retransmit; no radius server key auth 10.0.0.5
no radius server host auth 10.0.0.5; no radius server host acct 10.0.0.5
no aaa authentication dot1x default; no aaa ias-user username a@b.c; no username desk
username admin password switch1234
no port-channel auto; no port-channel auto load-balance; no monitor session 1 source interface 0/1
no monitor session 1 source interface 0/2; no monitor session 1 source interface lag 2
no monitor session 1 destination interface; no monitor session 1 mode; no monitor session 4
interface 0/1-0/4; no dot1as; no mvrp; no mmrp; no msrp; no mrp jointime; mrp leavetime 100
no mrp leavealltime; no mtu; no shutdown; no description; speed auto; no vlan acceptframe; no dot1x port-control
no dot1x reauthentication; no dot1x timeout reauth-period; vlan participation include 1; no vlan tagging 1
no switchport mode; ptp clock e2e-transparent; interface 0/2; deleteport lag 2; interface lag 2
no set igmp mrouter interface; no mrp leavetime; no description; port-channel static; no port-channel name
no port-channel load-balance; switchport mode general; interface vlan 21; no routing; exit
vlan database; no set igmp 10; no set igmp fast-leave 10; no set igmp flood-report 10
no set igmp exclude-mrouter-intf 10; no set igmp proxy-querier 20; no set igmp maxresponse 10
no set igmp querier election participate 20; no set igmp groupmembership-interval 10
no set igmp mcrtrexpiretime 20; no set mld 10; no set mld proxy-querier 20; no vlan name 1
no vlan association mac 00-1B-92-02-00-01; no vlan 10,20-23,4094)";

TEST_F(CliTest, RunningConfigIsAScriptThatMakesTheSameSwitchAndNoFormsUndoIt) {
    const auto fresh = runningConfig();
    EXPECT_TRUE(contains(fresh, "!\nconfigure\nexit\n")) << "nothing that is as it always is";
    configure(kShown);
    for (const auto &line : linesOf(kShown))
        EXPECT_TRUE(configured(line)) << line;
    configure(kNotShown);
    ASSERT_EQ(0u, errors());
    EXPECT_FALSE(contains(runningConfig(), "sesame"));
    Model other;
    Cli second(other);
    other.advanceTo({}, {});
    second.runScript(runningConfig());
    EXPECT_EQ(0u, second.unknownCommands() + second.refusedCommands());
    EXPECT_EQ(runningConfig(), cli::runningConfig(other));
    EXPECT_EQ("say \"hi\" \\ there", other.vlans().at(10).name);
    EXPECT_EQ("hall \\ 2\"", other.system().hostName);
    EXPECT_EQ("B", other.qos().policyMaps().at("P").classes.front().name) << "the order of classes stays";
    const auto &radius = other.settings().radius.servers.at({OPEN_RADIUS_AUTH, "10.0.0.5"});
    EXPECT_TRUE(radius.secret == "open sesame" && radius.name == "the \"main\" one");
    EXPECT_EQ("say sesame", other.settings().dot1x.users.at("a@b.c"));
    EXPECT_EQ(-210, other.settings().clock.offsetMinutes);
    for (const auto *tables : {"show ip interface brief", "show policy-map", "show auto-lag"})
        EXPECT_EQ(run(tables), second.show(tables));
    EXPECT_TRUE(contains(run("show policy-map"),
                         "P                               In          B\n"
                         "                                            A\n"));
    configure(kUndone);
    EXPECT_EQ(0u, errors());
    EXPECT_EQ(fresh, runningConfig());
    // The default frame size depends on the switch.
    Model large({.defaultMtu = 1500});
    Cli(large).runScript("configure\ninterface 0/2\nmtu 1518\nno mtu\n");
    EXPECT_TRUE(large.interface(2)->mtu == 1500 && model.interface(2)->mtu == 1518);
}

TEST_F(CliTest, RefusedCommandsAreCountedAndChangeNothing) {
    configure(
        R"(vlan database; vlan 10,20; exit; class-map match-all A; exit; policy-map P in; class A; exit; exit
interface 0/3; service-policy in P; exit; radius server host auth 10.0.0.5; interface 0/7; addport lag 1; exit
monitor session 1 source interface 0/1; monitor session 1 destination interface 0/5)");
    ASSERT_EQ(0u, errors());
    const auto before = runningConfig();
    const std::string tooLong(65, 'x');
    const std::pair<CliSession, std::string> refused[] = {
        {in(CliMode::VlanDatabase), R"(no vlan 1,10; no vlan 10,15,20; vlan name 99 x
no vlan association mac 00:1b:92:02:00:01; vlan name 10 )" +
                                        tooLong.substr(32)},
        {in(CliMode::Config), R"(hostname ""; ip management vlan 99 dhcp; no class-map A; no policy-map P
policy-map P out; interface vlan 30; service-policy out P; service-policy in X; no service-policy in X; no class-map X
no policy-map X; no ip access-list X; no mac access-list extended X; class-map match-all "A B"
class-map match-all a123456789012345678901234567890x; ip access-list ""; igmp-plus 99
spanning-tree mst priority 0 5; spanning-tree mst priority 1 4096; spanning-tree vlan 1 hello-time 2
clock timezone 15; clock timezone +; clock timezone -12:30; clock timezone 1:60; clock timezone 1:
clock timezone --1; clock timezone 1 zone ABCDEFGHI; clock timezone 1 zone "A B"; sntp server "a b"
sntp server ""; no sntp server 10.0.0.1; logging host "x;y"; no logging host 10.0.0.1; radius server host auth "a b"
radius server key auth 10.0.0.1 x; no radius server host auth 10.0.0.1; radius server key auth 10.0.0.1 hidden 00
radius server key auth 10.0.0.5 hidden 0; radius server key auth 10.0.0.5 hidden 0G
aaa ias-user username "a b" password x; aaa ias-user username a password ""; no aaa ias-user username a
aaa ias-user username a password hidden 0; radius server key auth 10.0.0.5 hidden ABCDEF; radius server key auth 10.0.0.5 hidden 7f; snmp-server location ""
monitor session 1 source interface 0/5; monitor session 1 destination interface 0/1
monitor session 2 destination interface 0/5; monitor session 2 destination interface 0/7
no monitor session 1 source interface 0/2
hostname )" + tooLong + "; snmp-server contact " +
                                  std::string(256, 'x')},
        {in(CliMode::Interface, {1, 2}), R"(vlan pvid 99; vlan participation include 10,99; vlan tagging 10-20
deleteport lag 1; port-channel static; description )" +
                                             tooLong},
        {in(CliMode::Interface, {model.lagIfNum(1)}),
         R"(addport lag 2; speed auto; dot1x port-control auto; dot1x reauthentication
dot1x timeout reauth-period 5; port-channel name )" +
             tooLong.substr(49)}};
    std::size_t count = 3;
    for (const auto &[session, text] : refused) {
        expectErrors(session, linesOf(text));
        count += linesOf(text).size();
    }
    for (const auto *text : {"policy-map P in; class X", "interface 0/4; no service-policy in P",
                             "interface vlan 10; ip address dhcp"})
        EXPECT_TRUE(contains(configure(text), "Error on line 3."));
    EXPECT_EQ(count, cli.refusedCommands());
    EXPECT_EQ(0u, cli.unknownCommands());
    EXPECT_EQ(before, runningConfig());
    // A session whose object another one has deleted.
    auto session = in(CliMode::Config);
    cli.run(session, "class-map match-all GONE");
    configure("no class-map GONE");
    EXPECT_EQ("No such entry.\n", cli.run(session, "match ip dscp 1"));
}

TEST_F(CliTest, TablesHaveAnEnd) {
    std::string maps, lists, servers, rules = "ip access-list L1", matches = "class-map match-all C1";
    for (int i = 0; i < 2000; ++i) {
        const auto number = std::to_string(i % 300), address = "10.0.1." + std::to_string(i % 40);
        maps += "class-map match-all C" + number + "; exit; ";
        lists += "ip access-list L" + number + "; exit; ";
        for (const auto *words : {"radius server host auth ", "logging host ", "sntp server "})
            servers += words + address + "; ";
        rules += "; permit ip any any";
        matches += "; match ip dscp " + std::to_string(i % 64);
    }
    for (const auto &script : {maps, lists, servers, rules, matches})
        configure(script);
    EXPECT_EQ(256u, model.qos().classMaps().size());
    EXPECT_EQ(13u, model.qos().classMaps().at("C1").size());
    EXPECT_EQ(100u, model.ipAccessLists().size());
    EXPECT_EQ(1023u, model.ipAccessLists().at("L1").size());
    EXPECT_EQ(kRadiusServersMax, model.settings().radius.servers.size());
    EXPECT_EQ(kLogHostsMax, model.settings().log.hosts.size());
    EXPECT_EQ(kSntpServersMax, model.settings().clock.servers.size());
}

TEST_F(CliTest, HostileLinesAreRefusedAndKeepTheirHandsOff) {
    const auto before = runningConfig();
    const auto vlanDb = in(CliMode::VlanDatabase);
    std::string bomb = "vlan 1-4094";
    while (bomb.size() < (1 << 20))
        bomb += ",1-4094";
    expectErrors(vlanDb, {bomb, "vlan ,", "vlan 10-", "vlan 20-10", "vlan 0", "vlan 4294967306", "vlan -1",
                          "vlan \"\"", "vlan association mac 00:1b:92:02:00:0g 10"});
    expectErrors(in(CliMode::Config),
                 {std::string("hostname a\0b", 12), "hostname \"a\nshutdown\"",
                  "hostname " + std::string(1 << 20, 'x'), "interface 0/0", "interface 0/49",
                  "interface 0/1-", "interface lag 0", "ip default-gateway 1.2.3",
                  "ip default-gateway 1.2.3.256", "ip default-gateway 00000000001.2.3.4"});
    expectErrors(in(CliMode::Interface), {"description \"a\rb\"", "description a\x1b[2J"});
    expectErrors(CliSession{}, {"\"", "\"\\", std::string(3, '\0'), "\xff\xfe"});
    EXPECT_EQ(25u, cli.unknownCommands());
    EXPECT_EQ(before, runningConfig());

    // The longest line that is taken, worked off without multiplying.
    bomb.resize(bomb.rfind(',', 16000));
    EXPECT_EQ("", run(vlanDb, bomb));
    EXPECT_EQ(4094u, model.vlans().size());
    // A quote left open ends with the line.
    EXPECT_EQ("", run(in(CliMode::Interface), "description \"left \\\"open\\"));
    EXPECT_EQ("left \"open\\", model.interface(1)->description);
}

TEST_F(CliTest, TextsOfDevicesStayInTheirColumnAndOnTheirLine) {
    Device device{"x", 2, "", {}, 0, "", LldpFields{}};
    device.lldp->systemName = "evil\n(avswitch) #\x1b[2J";
    device.lldp->chassisId = std::string(300, 'c');
    model.plug(device);
    const auto neighbours = linesOf(run("show lldp remote-device all"));
    EXPECT_EQ(5u + model.config().physicalPorts, neighbours.size());
    EXPECT_EQ("0/2        1       " + std::string(21, 'c') + std::string(25, ' ') + "evil.(avswitch) #.[2J",
              neighbours[6]);
    EXPECT_EQ(std::string::npos, run("show lldp remote-device detail 0/2").find('\x1b'));
}

}  // namespace
}  // namespace vswitch
