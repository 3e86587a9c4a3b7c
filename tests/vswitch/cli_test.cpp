#include "vswitch/cli/cli.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "vswitch/cli/command.h"

namespace vswitch {
namespace {

using cli::Command;

class CliTest : public testing::Test {
  protected:
    CliTest() { model.advanceTo({}, {}); }

    static CliSession in(CliMode mode, std::vector<IfNum> interfaces = {1}) {
        return {{CliMode::Exec, mode}, std::move(interfaces)};
    }

    // What is printed for one line in a session of its own.
    std::string run(CliSession session, const std::string &line) { return cli.run(session, line); }
    std::string run(const std::string &line) { return run({}, line); }
    // Commands from configuration mode on, "; " or a line end between them.
    static std::vector<std::string> commands(const std::string &text) {
        return lines(std::regex_replace(text, std::regex("; "), "\n"));
    }
    std::string apply(const std::string &text) {
        return cli.runScript("configure\n" + std::regex_replace(text, std::regex("; "), "\n"));
    }
    std::string runningConfig() const { return cli::runningConfig(model); }
    bool configured(const std::string &line) const {
        return runningConfig().find("\n" + line + "\n") != std::string::npos;
    }
    void expectErrors(const CliSession &session, const std::vector<std::string> &all) {
        for (const auto &line : all)
            EXPECT_NE("", run(session, line)) << line.substr(0, 60);
    }
    // What is printed below a line that is wrong from a column on.
    std::string marker(const CliSession &session, std::size_t column) const {
        return std::string(cli.prompt(session).size() + column, ' ') +
               "^\n% Invalid input detected at '^' marker.\n";
    }
    std::uint64_t errors() const { return cli.unknownCommands() + cli.refusedCommands(); }

    static std::vector<std::string> lines(const std::string &text) {
        std::vector<std::string> out;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }

    Model model;
    Cli cli{model};
    static constexpr IfNum kLag = 49;
};

constexpr const char *kIncomplete = "% Incomplete command. Use '?' to list what may follow.\n";
constexpr const char *kAmbiguous = "% Ambiguous command.\n";

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
                EXPECT_EQ(kIncomplete, output) << line;
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
    EXPECT_EQ(kAmbiguous, run("show por all"));
    EXPECT_EQ(kAmbiguous, run("e"));
    EXPECT_EQ(kIncomplete, run("sh"));
    EXPECT_EQ(kIncomplete, run("vlan"));
    EXPECT_EQ(0u, cli.refusedCommands());
    EXPECT_EQ(4u, cli.unknownCommands());

    auto session = CliSession{};
    for (const auto *line : {"conf", "int 0/2-0/3,1/0/5,0/2", "sp 10 f", "no sh"})
        EXPECT_EQ("", cli.run(session, line));
    EXPECT_EQ((std::vector<IfNum>{2, 3, 5}), session.interfaces);
    EXPECT_EQ("10 full-duplex", model.interface(5)->speed);
    for (const auto &[line, column] : {std::pair{"speed 1 full", 6u}, {"\"mtu\" 2000", 0u}, {"mtu 1499", 4u}})
        EXPECT_EQ(marker(session, column), cli.run(session, line));

    for (const auto *line : {"sh vlan", "hostname x", "show vlan 99"})
        EXPECT_EQ(std::nullopt, cli.show(line));
    EXPECT_EQ(run("show vlan"), cli.show("show vlan"));
    EXPECT_NE(std::string::npos, cli.help(CliSession{}, "show vlan ").find("<cr>"));
    EXPECT_EQ(std::string::npos, cli.help(CliSession{}, "").find("hostname"));
}

TEST_F(CliTest, ModesAndPrompts) {
    CliSession session;
    const std::pair<const char *, const char *> steps[] = {
        {"enable", "(avswitch) #"},
        {"vlan database", "(avswitch) (Vlan)#"},
        {"exit", "(avswitch) #"},
        {"configure", "(avswitch) (Config)#"},
        {"interface 0/4-0/6", "(avswitch) (Interface 0/4,...)#"},
        {"interface lag 2", "(avswitch) (Interface lag 2)#"},
        {"exit", "(avswitch) (Config)#"},
        {"interface port-channel 1", "(avswitch) (Interface lag 1)#"},
        {"end", "(avswitch) #"},
        {"exit", "(avswitch) #"}};
    for (const auto &[line, prompt] : steps) {
        EXPECT_EQ("", cli.run(session, line));
        EXPECT_EQ(prompt, cli.prompt(session)) << line;
    }
    EXPECT_NE("", cli.run(session, "hostname x")) << "not in this mode";

    const auto printed =
        cli.runScript("! a comment\r\n\n \t\nconfigure\r\nhostname x\nbogus\nhostname \"y z\"");
    EXPECT_EQ("y z", model.system().hostName);
    EXPECT_NE(std::string::npos, printed.find("(x) (Config)#bogus\n             ^\n"
                                              "% Invalid input detected at '^' marker.\nError on line 6.\n"))
        << printed;
}

constexpr const char *kEverything = R"(vlan database; vlan 10,20
set igmp 10; set igmp fast-leave 10; set igmp flood-report 10; set igmp exclude-mrouter-intf 10
set igmp proxy-querier 20; set igmp querier election participate 20; set igmp maxresponse 10 12
set igmp groupmembership-interval 10 260; set igmp mcrtrexpiretime 20 0; set mld 10; set mld proxy-querier 20
set igmp drop-unknown 10; exit; igmp-plus 10; ipv6 mld snooping; set igmp querier version 2; set igmp querier timer expiry 180
ip igmp snooping querier query-interval 30; dot1as; mvrp; mvrp periodic state machine
no mvrp include factory-default-vlan; mmrp; mmrp periodic state machine; msrp; switchport mode auto
spanning-tree mode rapid-pvst; spanning-tree mst priority 0 28672; spanning-tree vlan 10 hello-time 9
spanning-tree vlan 10 forward-time 30; spanning-tree vlan 20 max-age 22
class-map match-all A; match ip dscp 46; match dstip 224.0.1.130 255.255.255.254; match srcl4port 4443
match protocol 50; exit; class-map match-all B; exit
policy-map P in; class B; assign-queue 5; exit; class A; exit; exit; policy-map Q in; exit
classofservice trust dot1p; queue cos-map all 7 6; queue cos-queue strict all 6 4; service-policy in P
ip access-list NET-BLOCK; deny ip any 224.0.0.0 0.255.255.255; permit ip 10.0.0.0 0.0.0.255 any
permit ip any any; exit
mac access-list extended visionaryNwAV; deny any 01:00:5e:00:00:00 00:00:00:7f:ff:ff; permit any any; exit
interface 0/1-0/2; dot1as; mvrp; mmrp; msrp; mrp jointime 25; mrp leavetime 500; mrp leavealltime 2000
mtu 1500; service-policy in Q; interface lag 2; ip igmp snooping mrouter interface; mrp leavetime 60)";

constexpr const char *kTexts = R"(vlan database; vlan 10,20-23,4094
vlan name 10 "say \"hi\" \\ there"; vlan name 1 "! no comment"; vlan association mac 00:1b:92:02:00:01 20
exit; hostname "hall \\ 2\""; ip management vlan 10 192.168.1.2 255.255.255.0
ip default-gateway 192.168.1.1; bridge aging-time 600; dot1x system-auth-control
ptp clock e2e-transparent; interface 0/1-0/3; shutdown; description "\"\\ exit \\\\\""
speed 10G full-duplex; mtu 9216; vlan acceptframe admituntaggedonly; vlan participation include 10,20-22
vlan participation exclude 1,23; vlan tagging 1,21-23; vlan pvid 10; dot1x port-control force-unauthorized
no ptp clock e2e-transparent; addport lag 2
interface 0/4; vlan participation auto 1; vlan acceptframe vlanonly
interface vlan 10; routing; ip address 10.0.0.1 255.0.0.0
interface vlan 20; routing; ip address dhcp; interface vlan 21; routing; routing
interface lag 2; description uplink; vlan participation include 4094; vlan pvid 4094
no port-channel static; port-channel name "up \"1\"")";

TEST_F(CliTest, RunningConfigIsAScriptThatMakesTheSameSwitch) {
    apply(kEverything);
    for (const auto &line : commands(kEverything)) {
        const bool rewritten = line.starts_with("interface 0/1-") || line.starts_with("queue cos-queue");
        EXPECT_TRUE(rewritten || configured(line)) << line;
    }
    EXPECT_TRUE(configured("queue cos-queue strict all 4 6"));
    apply(kTexts);
    ASSERT_EQ(0u, errors());
    Model other;
    Cli second(other);
    other.advanceTo({}, {});
    second.runScript(runningConfig());
    EXPECT_EQ(0u, second.unknownCommands() + second.refusedCommands());
    EXPECT_EQ(runningConfig(), cli::runningConfig(other));
    EXPECT_EQ(model.macAssociations(), other.macAssociations());
    EXPECT_EQ("say \"hi\" \\ there", other.vlans().at(10).name);
    EXPECT_EQ("hall \\ 2\"", other.system().hostName);
    for (const auto *line : {"ip address 10.0.0.1 255.0.0.0", "ip address dhcp"})
        EXPECT_TRUE(configured(line)) << line;
    EXPECT_EQ(run("show ip interface brief"), second.show("show ip interface brief"));
    EXPECT_EQ("B", other.qos().policyMaps().at("P").classes.front().name) << "the order of classes stays";
    EXPECT_EQ(
        "Policy Name                     Policy Type Class Members\n"
        "------------------------------- ----------- -------------------------------\n"
        "P                               In          B\n"
        "                                            A\n"
        "Q                               In          \n",
        second.show("show policy-map"));
}

TEST_F(CliTest, TheDefaultMtuIsNotShown) {
    Model other({.defaultMtu = 1500});
    Cli second(other);
    second.runScript(
        "configure\ninterface 0/1-0/3\nmtu 1500\ninterface 0/2\nmtu 1518\ninterface 0/3\nmtu 9198\n");
    const auto shown = cli::runningConfig(other);
    EXPECT_EQ(std::string::npos, shown.find("mtu 1500"));
    EXPECT_NE(std::string::npos, shown.find("interface 0/2\nmtu 1518\nexit\n\ninterface 0/3\nmtu 9198\n"));
    second.runScript("configure\ninterface 0/2-0/3\nno mtu\n");
    EXPECT_EQ(std::string::npos, cli::runningConfig(other).find("mtu"));
    EXPECT_EQ(1500u, other.interface(3)->mtu);
    EXPECT_EQ(1518u, model.interface(1)->mtu);
}

TEST_F(CliTest, NoFormsUndo) {
    const auto fresh = runningConfig();
    apply(kEverything);
    apply(R"(no service-policy in P; no service-policy in Q; no policy-map P; no policy-map Q; no class-map A
no class-map B; no queue trust all; no queue cos-map all; no queue cos-queue strict all 4 5 6
no ip access-list NET-BLOCK; no mac access-list extended visionaryNwAV; no spanning-tree mode
no spanning-tree mst priority 0; no switchport mode auto; no dot1as; no mvrp; no mmrp; no msrp
mvrp include factory-default-vlan; no ip igmp snooping querier query-interval; no set igmp querier version
no set igmp querier timer expiry; no ipv6 mld snooping; no igmp-plus 10
interface 0/1-0/2; no dot1as; no mvrp; no mmrp; no msrp; no mrp jointime; mrp leavetime 100
no mrp leavealltime; no mtu; interface lag 2; no set igmp mrouter interface; no mrp leavetime; exit
vlan database; no set igmp 10; no set igmp fast-leave 10; no set igmp flood-report 10
no set igmp exclude-mrouter-intf 10; no set igmp proxy-querier 20; no set igmp maxresponse 10
no set igmp querier election participate 20; no set igmp groupmembership-interval 10
no set igmp mcrtrexpiretime 20; no set mld 10; no set mld proxy-querier 20; no vlan 10,20)");
    EXPECT_EQ(fresh, runningConfig());
    // A command and what takes it back, in turns. What hangs on a VLAN goes with it.
    apply(
        "vlan database; vlan 10; exit; interface vlan 10; routing; ip address dhcp; exit; vlan database; "
        "no vlan 10");
    EXPECT_EQ(fresh, runningConfig());
    CliSession routed = in(CliMode::VlanInterface, {});
    routed.vlan = 1;
    const std::pair<CliSession, const char *> cases[] = {
        {in(CliMode::VlanDatabase), R"(vlan 10-12,20; no vlan 10-12,20; vlan name 1 x; no vlan name 1
vlan association mac 00:1b:92:02:00:01 1; no vlan association mac 00-1B-92-02-00-01)"},
        {in(CliMode::Config), R"(hostname x; no hostname; bridge aging-time 10; no bridge aging-time
ip management vlan 1 10.0.0.2 255.0.0.0; ip management vlan 1 dhcp
ip default-gateway 10.0.0.1; no ip default-gateway
dot1x system-auth-control; no dot1x system-auth-control
ptp clock e2e-transparent; no ptp clock e2e-transparent)"},
        {in(CliMode::Interface, {1, 2}), R"(shutdown; no shutdown; description "x y"; no description
speed 2.5G half-duplex; speed auto; mtu 9216; no mtu; vlan acceptframe vlanonly; no vlan acceptframe
vlan participation exclude 1; vlan participation include 1; vlan tagging 1; no vlan tagging 1
dot1x port-control force-authorized; no dot1x port-control
no ptp clock e2e-transparent; ptp clock e2e-transparent; addport lag 1; deleteport lag 1)"},
        {routed, "routing; no routing"},
        {in(CliMode::Interface, {kLag}), R"(no port-channel static; port-channel static
port-channel name x; no port-channel name)"}};
    for (const auto &[session, text] : cases) {
        bool changed = false;
        for (const auto &line : commands(text)) {
            EXPECT_EQ("", run(session, line));
            changed = !changed;
            EXPECT_EQ(changed, fresh != runningConfig()) << line;
        }
    }
    EXPECT_EQ(0u, errors());
}

TEST_F(CliTest, RefusedCommandsAreCountedAndChangeNothing) {
    apply(
        "vlan database; vlan 10,20; exit; class-map match-all A; exit; policy-map P in; class A; exit; exit; "
        "interface 0/3; service-policy in P");
    const auto before = runningConfig();
    const auto vlanDb = in(CliMode::VlanDatabase), config = in(CliMode::Config),
               ports = in(CliMode::Interface, {1, 2}), lag = in(CliMode::Interface, {kLag});
    const std::string tooLong(65, 'x');
    expectErrors(vlanDb, {"vlan name 10 " + tooLong.substr(32)});
    expectErrors(vlanDb, commands("no vlan 1,10; no vlan 10,15,20; vlan name 99 x; "
                                  "no vlan association mac 00:1b:92:02:00:01"));
    expectErrors(config, {"hostname " + tooLong});
    expectErrors(config, commands(R"(hostname ""; ip management vlan 99 dhcp; no class-map A; no policy-map P
policy-map P out; interface vlan 30; service-policy out P; service-policy in X; no service-policy in X; no class-map X
no policy-map X; no ip access-list X; no mac access-list extended X; class-map match-all "A B"
class-map match-all a123456789012345678901234567890x; ip access-list ""; igmp-plus 99
spanning-tree mst priority 0 5; spanning-tree mst priority 1 4096; spanning-tree vlan 1 hello-time 2)"));
    expectErrors(ports, {"description " + tooLong});
    expectErrors(ports, commands("vlan pvid 99; vlan participation include 10,99; vlan tagging 10-20; "
                                 "deleteport lag 1; port-channel static"));
    expectErrors(lag, {"addport lag 2", "speed auto", "dot1x port-control auto",
                       "port-channel name " + tooLong.substr(49)});
    for (const auto *text : {"policy-map P in; class X", "interface 0/4; no service-policy in P",
                             "interface vlan 10; ip address dhcp"})
        EXPECT_NE(std::string::npos, apply(text).find("Error on line 3."));
    EXPECT_EQ(39u, cli.refusedCommands());
    EXPECT_EQ(0u, cli.unknownCommands());
    EXPECT_EQ(before, runningConfig());
    // A session whose object another one has deleted.
    auto session = in(CliMode::Config);
    cli.run(session, "class-map match-all GONE");
    apply("no class-map GONE");
    EXPECT_EQ("No such entry.\n", cli.run(session, "match ip dscp 1"));
}

TEST_F(CliTest, TablesHaveAnEnd) {
    std::string maps, lists, rules = "ip access-list L1", matches = "class-map match-all C1";
    for (int i = 0; i < 2000; ++i) {
        maps += "class-map match-all C" + std::to_string(i % 300) + "; exit; ";
        lists += "ip access-list L" + std::to_string(i % 300) + "; exit; ";
        rules += "; permit ip any any";
        matches += "; match ip dscp " + std::to_string(i % 64);
    }
    for (const auto &script : {maps, lists, rules, matches})
        apply(script);
    EXPECT_EQ(256u, model.qos().classMaps().size());
    EXPECT_EQ(13u, model.qos().classMaps().at("C1").size());
    EXPECT_EQ(100u, model.ipAccessLists().size());
    EXPECT_EQ(1023u, model.ipAccessLists().at("L1").size());
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
    Device device;
    device.name = "x";
    device.port = 2;
    device.lldp.emplace();
    device.lldp->systemName = "evil\n(avswitch) #\x1b[2J";
    device.lldp->chassisId = std::string(300, 'c');
    model.plug(device);
    const auto neighbours = lines(run("show lldp remote-device all"));
    EXPECT_EQ(5u + model.config().physicalPorts, neighbours.size());
    EXPECT_EQ("0/2        1       " + std::string(21, 'c') + std::string(25, ' ') + "evil.(avswitch) #.[2J",
              neighbours[6]);
    EXPECT_EQ(std::string::npos, run("show lldp remote-device detail 0/2").find('\x1b'));
}

}  // namespace
}  // namespace vswitch
