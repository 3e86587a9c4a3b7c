// The live data plane up to the programs that it drives: what is pushed and what is read back.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "tests/support/model_rules.h"
#include "tests/vswitch/fixtures.h"
#include "vswitch/dataplane/flows.h"
#include "vswitch/dataplane/openflow.h"
#include "vswitch/dataplane/process.h"
#include "vswitch/dataplane/reading.h"

namespace vswitch {
namespace {

const PortMap kPorts = {{1, "p1"}, {2, "p2"}, {3, "p3"}, {4, "p4"}, {5, "p5"}, {6, "p6"}};
constexpr IfNum kScenario = 7, kLag = 9;

const ModelConfig kSmallSwitch{.physicalPorts = 8, .lags = 2, .fdbCapacity = 4};

// What "ovs-ofctl" has printed, without transaction ids.
std::string withoutNumbers(const std::string &printed) {
    return std::regex_replace(
        printed,
        std::regex("OFPT_FLOW_MOD \\(OF1.4\\) \\(xid=0x[0-9a-f]+\\): |(usable|chosen) protocols?: .*\n"), "");
}

std::string decoded(const std::string &messages) {
    test_support::writeText("/tmp/messages", messages);
    const auto shown = runTool({"ovs-ofctl", "ofp-parse", platform::fsPath("/tmp/messages")}, "/", 60s);
    EXPECT_TRUE(shown.good()) << shown.error;
    return withoutNumbers(shown.output);
}

class LiveTest : public ModelFixture {
  protected:
    LiveTest() : ModelFixture(kSmallSwitch) {
        for (const auto &[port, netdev] : kPorts) {
            EXPECT_EQ(OPEN_E_NONE, model.setLive(port));
            model.seeCarrier(port, true);
        }
        apply(R"(vlan database; vlan 10,20; exit; configure; ip access-list A
permit ip 10.0.0.7 0.0.0.255 any; deny ip any 224.0.0.0 15.255.255.255; exit; ip access-list B; deny ip any any)");
    }

    void vlanDatabase(const std::string &lines) { apply("vlan database; " + lines); }
    void port(const std::string &name, const std::string &lines) {
        configure("interface " + name + "; " + lines);
    }
    WireConfig wire() const { return wireConfigOf(model, kPorts); }
    Flows flows() const { return flowsOf(wire()); }
};

TEST_F(LiveTest, AChangeIsFewRowsAndLeavesOtherPortsAlone) {
    port("0/1,0/3", "vlan participation include 10");
    auto was = wire();
    for (const char *line :
         {"vlan association mac 02:00:00:00:00:01 20", "vlan association mac 02:00:00:00:00:01 10",
          "no vlan association mac 02:00:00:00:00:01"}) {
        vlanDatabase(line);
        const auto rows = flowChanges(flowsOf(was), flows());
        EXPECT_TRUE(rows.size() == 1 && contains(rows[0], "dl_src=" + mac(1).text())) << line;
        EXPECT_EQ(std::vector{forgetMac(mac(1))}, staleAddresses(was, wire()));
        was = wire();
    }
    // Rows of one interface, in whatever table; what floods names all that take part.
    const std::regex others("(in_port|reg[0-9])=[134568]"), cookie("cookie=0x100000000(02|09)/");
    for (const char *line :
         {"vlan pvid 10", "vlan participation include 10", "vlan tagging 10", "vlan participation exclude 1",
          "vlan acceptframe vlanonly", "vlan acceptframe admituntaggedonly", "ip access-group A in",
          "ip access-group B out", "addport lag 1", "deleteport lag 1", "shutdown"}) {
        port("0/2", line);
        for (const auto &row : flowChanges(flowsOf(was), flows()))
            EXPECT_FALSE(std::regex_search(row.substr(0, row.find(",actions")), others))
                << line << ": " << row;
        for (const auto &stale : staleAddresses(was, wire()))
            EXPECT_TRUE(std::regex_search(stale, cookie)) << line << ": " << stale;
        was = wire();
    }
}

// '#' an interface's mode, '+' a line end, '%' a VLAN, '@' a digit.
constexpr const char *kSteps = R"(vlan database+vlan %; vlan database+no vlan %; clear mac-addr-table all
vlan database+vlan association mac 02:00:00:00:00:0@ %; vlan database+no vlan association mac 02:00:00:00:00:0@
configure+ip access-list A+deny ip any 10.0.0.0 0.0.0.@; configure+no ip access-list A
#vlan pvid %; #vlan participation include %; #vlan participation exclude %; #vlan participation auto %
#vlan tagging %; #no vlan tagging %; #vlan acceptframe vlanonly; #vlan acceptframe admituntaggedonly
#no vlan acceptframe; #addport lag 1; #addport lag 2; #deleteport lag 1; #shutdown; #no shutdown; #no shutdown
vlan database+set igmp %; vlan database+set igmp %; vlan database+no set igmp %
vlan database+set igmp drop-unknown %; vlan database+set igmp exclude-mrouter-intf %
#ip igmp snooping mrouter interface
#dot1x port-control force-authorized; #dot1x port-control force-unauthorized; #dot1x port-control auto
configure+dot1x system-auth-control; configure+dot1x system-auth-control; configure+no dot1x system-auth-control
#mtu 900@; #ip access-group A in; #ip access-group A out; #ip access-group B in; #no ip access-group A in)";

TEST_F(LiveTest, RowsAndAddressesFollowWhateverChanges) {
    std::mt19937 random(1);
    const auto upTo = [&](unsigned max) { return static_cast<unsigned>(random() % (max + 1)); };
    const auto vlan = [&] { return upTo(3) == 0 ? 1 : upTo(3) * 10; };
    const auto steps = linesOf(kSteps);
    auto was = wire();
    auto rows = flows();
    std::map<FdbKey, IfNum> learned;
    std::set<std::string> added;
    for (int step = 0; step < 2000; ++step) {
        const auto name =
            upTo(3) == 0 ? "lag " + std::to_string(upTo(1) + 1) : "0/" + std::to_string(upTo(5) + 1);
        std::string text;
        for (const char c : steps[upTo(static_cast<unsigned>(steps.size()) - 1)])
            text += c == '#'   ? "configure\ninterface " + name + "\n"
                    : c == '+' ? "\n"
                    : c == '%' ? std::to_string(vlan())
                    : c == '@' ? std::to_string(upTo(3))
                               : std::string(1, c);
        apply(text);
        model.seeCarrier(upTo(5) + 1, upTo(3) != 0);
        model.setCarrier(upTo(5) + 1, upTo(7) == 0 ? Carrier::ForcedDown : Carrier::FollowDevices);
        if (upTo(3) == 0)
            model.seeAddresses({{mac(upTo(3)), vlan(), upTo(9) + 1}, {mac(upTo(9)), vlan(), upTo(9) + 1}});
        for (const auto &[num, port] : kPorts)
            if (upTo(3) != 0)
                model.seeSupplicant({num, model.interface(num)->dot1x.round, upTo(7) != 0, false, "", ""});
        for (int times = 0; times < 3; ++times) {
            const auto kind = upTo(3) == 0 ? IgmpKind::Leave : IgmpKind::Report;
            const Ipv4 host = 0x0a000000 + upTo(9), group = 0xe8010100 + upTo(3);
            model.hearIgmp({kind, vlan(), upTo(5) + 1, 2, mac(upTo(9)), host, group, {}});
        }
        ASSERT_EQ("", test_support::brokenRule(model)) << text;

        const auto next = wire();
        const auto wanted = flowsOf(next);
        const auto update = flowUpdate(was, {}, next, {});
        ASSERT_EQ(flowChanges(rows, wanted), update.lines) << text;
        ASSERT_EQ(static_cast<std::ptrdiff_t>(wanted.size()),
                  static_cast<std::ptrdiff_t>(rows.size()) + update.growth);
        for (const auto &line : update.lines)
            if (const auto actions = line.find(",actions="); line.starts_with("add ")) {
                added.insert(line.substr(4));
                rows[line.substr(4, actions - 4)] = line.substr(actions + 9);
            } else {
                ASSERT_TRUE(line.starts_with("delete_strict ") && rows.erase(line.substr(14)) == 1) << line;
            }
        ASSERT_EQ(wanted, rows) << text;
        for (const auto &line : staleAddresses(was, next))
            std::erase_if(learned, [&, tci = line.find("vlan_tci=")](const auto &item) {
                const auto &[key, num] = item;
                return line == forgetMac(key.mac) || line.ends_with("/0x10000000000,table=10") ||
                       (line.starts_with(forgetInterface(num)) &&
                        (tci == std::string::npos ||
                         key.vlan == std::stoul(line.substr(tci + 9), nullptr, 16)));
            });
        // What is still learned could be learned now.
        const auto mayArrive = [&](const FdbKey &key, IfNum num) {
            const auto at = next.interfaces.find(num);
            const auto to = next.associations.find(key.mac);
            return at != next.interfaces.end() && (at->second.vlans.contains(key.vlan) ||
                                                   (to != next.associations.end() && to->second == key.vlan));
        };
        for (const auto &[key, num] : learned)
            ASSERT_TRUE(mayArrive(key, num)) << key.mac.text() << " in " << key.vlan << " after " << text;
        for (int tries = 0; tries < 20; ++tries)
            if (const auto [key, num] = std::pair(FdbKey{mac(upTo(9)), vlan()}, upTo(9) + 1);
                mayArrive(key, num))
                learned[key] = num;
        was = next;
    }
    // All of it is what Open vSwitch takes for rows, and the switch's own messages say the same.
    for (const auto &line :
         {learnedArpFlow({20, "10.0.0.1"}, mac(1), 2, 60), learnedFlow({mac(1), 20, 2, {}}, 60)})
        added.insert(line.substr(4));
    std::string text, messages;
    for (const auto &row : added) {
        text += row + "\n";
        messages += flowModOf("add " + row).value();
    }
    test_support::writeText("/tmp/flows", text);
    const auto parsed =
        runTool({"ovs-ofctl", "-O", "OpenFlow14", "parse-flows", platform::fsPath("/tmp/flows")}, "/", 60s);
    EXPECT_EQ(added.size(), test_support::occurrences(parsed.output, " ADD ")) << parsed.error;
    EXPECT_EQ(withoutNumbers(parsed.output), decoded(messages));
    // A frame gets a tag only where it has none, not even one of a priority.
    EXPECT_EQ(test_support::occurrences(parsed.output, "push_vlan"),
              test_support::occurrences(parsed.output, "vlan_tci=0x0000/0x1000"));
    std::string deletions;
    for (const auto &line : {forgetInterface(2), forgetArp({20, "10.0.0.1"}),
                             std::string("delete_strict table=20,priority=100,reg0=0,dl_vlan=20")})
        deletions += flowModOf(line).value();
    EXPECT_EQ(R"(DEL table:255 cookie:0x10000000002/0x100ffffffff actions=drop
DEL table:11 arp,vlan_tci=0x0014/0x0fff,arp_spa=10.0.0.1 cookie:0x10100000000/0x10100000000 actions=drop
DEL_STRICT table:20 priority=100,reg0=0,dl_vlan=20 actions=drop
)",
              decoded(deletions));
    EXPECT_NE(std::string::npos,
              decoded(meterOf(18, 2000, 500))
                  .find("ADD meter=18 pktps burst bands=\ntype=drop rate=2000 burst_size=500"));
    for (const char *line :
         {"", "delete cookie=x", "add table=1,ip_dst=1,actions=drop", "add actions=meter:x,output:1",
          "add actions=clone(clone(output:1))", "add actions=output:", "add actions=learn(table=1",
          "add actions=load:1->NXM_NX_REG99[]", "modify actions=drop",
          "add actions=move:NXM_OF_ETH_SRC[]->NXM_NX_REG1[]"})
        EXPECT_FALSE(flowModOf(line)) << line;
}

TEST_F(LiveTest, MembershipLeftToTheSwitchLastsAsLongAsAnAssociatedAddress) {
    vlanDatabase("vlan association mac 02:00:00:00:00:01 20");
    port("0/3", "vlan participation exclude 20");
    port("0/4", "vlan participation include 20; vlan tagging 20");
    port("0/5", "addport lag 1");
    const auto expect = [&](IfNum num, VlanId learnedIn, const std::map<VlanId, bool> &vlans) {
        model.seeAddresses({{mac(1), learnedIn, num}, {mac(2), 20, num == 6 ? 1u : 6u}});
        const auto interfaces = wire().interfaces;
        EXPECT_EQ(vlans, interfaces.at(num).vlans) << num;
        for (const auto &[other, interface] : interfaces)
            EXPECT_TRUE(other == num || other == 4 || !interface.vlans.contains(20)) << other;
    };
    expect(2, 1, {{1, false}});
    expect(2, 20, {{1, false}, {20, false}});
    expect(3, 20, {{1, false}});
    expect(4, 20, {{1, false}, {20, true}});
    expect(kLag, 20, {{1, false}, {20, false}});
    vlanDatabase("no vlan association mac 02:00:00:00:00:01");
    expect(2, 20, {{1, false}});
}

TEST_F(LiveTest, LagsPortsThatAreDownAndFrameSizes) {
    port("0/1-0/2", "addport lag 1");
    port("lag 1", "mtu 9216; vlan participation include 10; vlan tagging 10");
    port("0/3", "shutdown");
    model.setCarrier(4, Carrier::ForcedDown);
    port("0/5", "mtu 1519");
    const auto config = wire();
    EXPECT_TRUE(config.ports.at(2).mtu == 9198 && config.ports.at(5).mtu == 1501);
    EXPECT_EQ((std::vector<IfNum>{1, 2}), config.interfaces.at(kLag).members);
    EXPECT_EQ(4u, config.interfaces.size()) << "of 1 to 6, the LAG for 1 and 2, 3 not at all";
    EXPECT_FALSE(config.ports.at(3).adminUp || config.ports.at(4).adminUp || !config.ports.at(5).adminUp);
    // Others reach it by one member; what came by one member does not go back by the other.
    const std::regex member("output:[12](?![0-9])|members:");
    const auto toAll = flows().at("table=20,priority=100,reg0=0,dl_vlan=10"),
               fromLag = flows().at("table=20,priority=150,reg0=0,reg1=9,dl_vlan=10");
    EXPECT_EQ(1, std::distance(std::sregex_iterator(toAll.begin(), toAll.end(), member), {})) << toAll;
    EXPECT_FALSE(std::regex_search(fromLag, member)) << fromLag;
    port("0/1", "deleteport lag 1");
    EXPECT_EQ(1500u, wire().ports.at(1).mtu);
    EXPECT_EQ(std::vector{forgetInterface(kLag)}, staleAddresses(config, wire())) << "maybe behind 0/1";
    port("lag 1", "shutdown");
    for (const auto &[key, actions] : flows())
        EXPECT_FALSE(std::regex_search(actions, std::regex("output:[23](?![0-9])|members:"))) << key;
}

// Who gets the frames is in tests/live; here is what the flow entries cost.
TEST_F(LiveTest, GroupsGoToThoseThatWantThem) {
    const auto join = [&](IfNum num, Ipv4 group = 0xef010203) {
        model.hearIgmp({IgmpKind::Report, 10, num, 2, mac(num), 0x0a000000 + num, group, {}});
    };
    port("0/1-0/4", "vlan participation include 10");
    join(1);
    EXPECT_TRUE(wire().multicast.empty()) << "without snooping";
    vlanDatabase("set igmp 10; exit; configure; igmp-plus 20");
    EXPECT_TRUE(wire().multicast.at(10).floodUnknown && !wire().multicast.at(20).floodUnknown);
    vlanDatabase("set igmp drop-unknown 10");
    port("0/2", "ip igmp snooping mrouter interface");
    const std::string unknown = "table=20,priority=160,reg0=0,dl_vlan=10,ip,nw_dst=224.0.0.0/4";
    EXPECT_EQ("strip_vlan,output:2", flows().at(unknown));
    vlanDatabase("set igmp exclude-mrouter-intf 10");
    EXPECT_EQ("drop", flows().at(unknown));
    // One more subscriber is one flow entry, however many groups there are.
    for (unsigned n = 0; n < 40; ++n)
        join(1, 0xef020000 + n);
    const auto was = wire();
    join(4, 0xef020007);
    const auto update = flowUpdate(was, {}, wire(), {});
    EXPECT_TRUE(update.growth == 0 && update.lines.size() == 1) << update.lines.size();
}

TEST_F(LiveTest, AccessGroupsAndTheirOrder) {
    configure("ip access-list C; exit; ip access-list D");
    const std::tuple<const char *, std::uint32_t, std::uint32_t, int> steps[] = {
        {"X", 0, 0, OPEN_E_NOT_FOUND}, {"A", 2, 0, OPEN_E_PARAM},         {"B", 0, 20, OPEN_E_NONE},
        {"A", 0, 20, OPEN_E_FAIL},     {"A", 0, 10, OPEN_E_NONE},         {"A", 1, 20, OPEN_E_NONE},
        {"C", 1, 0, OPEN_E_NONE},      {"B", 1, UINT32_MAX, OPEN_E_NONE}, {"D", 1, 0, OPEN_E_FULL}};
    for (const auto &[list, direction, sequence, result] : steps)
        EXPECT_EQ(result, model.bindAccessList(2, list, direction, sequence))
            << list << direction << sequence;
    Model other(kSmallSwitch);
    EXPECT_FALSE(contains(Cli(other).runScript(runningConfig()), "Error"));
    EXPECT_EQ((std::vector<AccessGroup>{
                  {0, 10, "A"}, {0, 20, "B"}, {1, 20, "A"}, {1, 21, "C"}, {1, UINT32_MAX, "B"}}),
              other.interface(2)->accessGroups);
    // The lists one after another; at the end IPv4 is dropped.
    EXPECT_EQ((std::vector<WireRule>{
                  {true, "10.0.0.0/255.255.255.0", ""}, {false, "", "224.0.0.0/240.0.0.0"}, {false, "", ""}}),
              wire().interfaces.at(2).in);
    configure("no ip access-list A; no ip access-list B");
    EXPECT_EQ((std::vector<AccessGroup>{{1, 21, "C"}}), model.interface(2)->accessGroups);
    EXPECT_FALSE(wire().interfaces.at(2).in);
    EXPECT_TRUE(wire().interfaces.at(2).out->empty()) << "a list without lines lets no IPv4 pass";
}

TEST_F(LiveTest, TheTableHoldsWhatWasLastSeenWithinTheRules) {
    Device box{"box", kScenario, "", {mac(7)}, 0, "", {}, true};
    ASSERT_EQ(OPEN_E_NONE, model.plug(box));
    EXPECT_EQ(OPEN_E_PARAM, model.move("box", 1, ""));
    EXPECT_EQ(OPEN_E_FAIL, model.setLive(kScenario));
    EXPECT_EQ(OPEN_E_PARAM, model.setLive(kLag));
    EXPECT_EQ(OPEN_E_PARAM, model.setCarrier(4, Carrier::ForcedUp));
    model.seeCarrier(4, false);
    // The last four: no link, no VLAN, no interface, nobody's port.
    const SeenAddress silent{mac(2), 20, 2, 100s};
    model.seeAddresses(
        {{mac(1), 1, 1}, silent, {mac(3), 1, 4}, {mac(4), 99, 1}, {mac(5), 1, 77}, {mac(6), 1, 8}});
    EXPECT_EQ("1.1@0/1 2.20@0/2 7.1@0/7", fdb());
    EXPECT_EQ(now - 100s, model.fdb().at({mac(2), 20}).lastSeen);
    pass(1000s);
    model.setTalking("box", false);
    pass(1000s);
    EXPECT_EQ("1.1@0/1 2.20@0/2", fdb()) << "what is forwarded elsewhere ages there";
    model.setTalking("box", true);
    model.seeAddresses({{mac(1), 1, 1}, {mac(2), 1, 1}, {mac(3), 1, 1}, {mac(4), 1, 1}});
    EXPECT_EQ("1.1@0/1 2.1@0/1 3.1@0/1 7.1@0/7", fdb()) << "no more than there is room for";
    model.seeAddresses({{mac(3), 1, 2}, {mac(4), 1, 1}});
    EXPECT_EQ("3.1@0/2 4.1@0/1 7.1@0/7", fdb());

    model.seeArp({{{20, "10.0.0.3"}, mac(3)}, {{99, "10.0.0.4"}, mac(4)}});
    EXPECT_EQ((std::map<ArpKey, Mac>{{{20, "10.0.0.3"}, mac(3)}}), model.arp());
    vlanDatabase("no vlan 20");
    EXPECT_TRUE(model.arp().empty());
}

TEST_F(LiveTest, NeighboursKeepTheirIndexWhileTheyAreTheSame) {
    const auto seen = [](IfNum on, const std::string &chassis, const std::string &name) {
        SeenNeighbour out{on, {}};
        out.fields.chassisId = chassis;
        out.fields.systemName = name;
        return out;
    };
    const auto expect = [&](const std::string &expected, const std::vector<SeenNeighbour> &neighbours) {
        model.seeNeighbours(neighbours);
        std::string known;
        for (const auto &[on, all] : model.lldp())
            for (const auto &[index, neighbour] : all)
                known += std::to_string(index) + ":" + neighbour.fields.systemName + "@" +
                         std::to_string(on) + " ";
        EXPECT_EQ(expected, known);
    };
    model.seeCarrier(4, false);
    expect("1:a@1 2:b@1 ", {seen(1, "A", "a"), seen(1, "B", "b"), seen(4, "C", "no link"),
                            seen(8, "D", "not live"), seen(99, "E", "no port")});
    pass(1000s);
    EXPECT_EQ(2u, model.lldp().at(1).size()) << "their time to live counts where they are heard";
    expect("2:renamed@1 ", {seen(1, "B", "renamed")});
    EXPECT_EQ(1u, model.lldp().at(1).at(2).timeStamp);
    model.seeCarrier(1, false);
    model.seeCarrier(1, true);
    EXPECT_FALSE(model.lldp().contains(1));
    expect("3:b@1 4:b@2 ", {seen(1, "B", "b"), seen(2, "B", "b")});
    for (int times = 0; times < 2; ++times)
        expect("5:" + std::string(255, 'n') + "@1 ", {seen(1, std::string(300, 'c'), std::string(300, 'n'))});
}

// --- what tools print

const std::string kDump =
    R"(OFPST_FLOW reply (OF1.4) (xid=0x2):
 cookie=0x10000000001, duration=1.235s, table=10, n_packets=2, hard_timeout=300, hard_age=5, )"
    R"(vlan_tci=0x0001/0x0fff,dl_dst=02:00:00:00:00:02 actions=load:0x2->NXM_NX_REG0[0..15]
 cookie=0x0, duration=9.1s, table=10, n_packets=0, n_bytes=0, priority=0 actions=load:0->NXM_NX_REG0[]
 cookie=0x10000000009, duration=61.5s, table=10, n_packets=2, n_bytes=196, hard_timeout=300, )"
    R"(vlan_tci=0x0014/0x0fff,dl_dst=02:00:00:00:00:03 actions=load:0x9->NXM_NX_REG0[0..15]
 cookie=0x10100000000, duration=1.258s, table=11, n_packets=0, n_bytes=0, hard_timeout=1200, )"
    R"(arp,vlan_tci=0x0001/0x0fff,arp_spa=10.0.0.1 )"
    R"(actions=load:0x1->NXM_NX_REG5[],load:0x200->NXM_NX_REG6[0..15]
)";

const std::string kHeard = R"({"lldp":[{"interface":[
{"name":"p3","via":"LLDP","rid":"1","age":"0 day, 00:00:03","chassis":[{
"id":[{"type":"mac","value":"02:00:00:00:00:0a"}],"name":[{"value":"vm"}],"descr":[{"value":"AUDAC Unit"}],
"mgmt-ip":[{"value":"10.0.0.3"},{"value":"fe80::1"}],"capability":[{"type":"Bridge","enabled":true},
{"type":"Wlan","enabled":false},{"type":"Router","enabled":true}]}],
"port":[{"id":[{"type":"ifname","value":"eth0"}],"descr":[{"value":"uplink"}],"ttl":[{"value":"60"}]}]},
{"name":"p3","via":"CDPv2","chassis":[{"id":[{"type":"local","value":"cdp"}]}],"port":[{}]},
{"name":"p9","via":"LLDP","chassis":[{"id":[{"type":"local","value":"other"}]}],"port":[{}]},
{"name":"p1","via":"LLDP","chassis":[{"id":[{"type":"local","value":"box"}],"name":7}],
"port":[{"id":[{"type":"mac","value":"02-00-00-00-00-0b"}],"ttl":[]}]}]}]})";

std::set<std::string> shown(const LearnedRows &rows) {
    std::set<std::string> out;
    for (const auto &[address, vlan, interface, age] : rows.addresses)
        out.insert(address.text() + " " + std::to_string(vlan) + " " + std::to_string(interface) + " " +
                   std::to_string(age / 1s));
    for (const auto &[key, address] : rows.arp)
        out.insert(key.ip + " " + std::to_string(key.vlan) + " " + address.text());
    return out;
}

TEST(ReadingTest, LearnedRows) {
    const std::set<std::string> all = {"02:00:00:00:00:02 1 2 5", "02:00:00:00:00:03 20 9 61",
                                       "10.0.0.1 1 02:00:00:00:00:01"};
    EXPECT_EQ(all, shown(learnedRowsOf(kDump)));
    for (std::size_t length = 0; length < kDump.size(); ++length)
        ASSERT_TRUE(std::ranges::includes(all, shown(learnedRowsOf(kDump.substr(0, length))))) << length;
}

TEST(ReadingTest, Neighbours) {
    const auto heard = neighboursOf(kHeard, kPorts).value();
    std::ostringstream fields;
    for (const auto &[port, f] : heard)
        fields << port << "|" << f.chassisIdSubtype << "|" << f.chassisId << "|" << f.portIdSubtype << "|"
               << f.portId << "|" << f.portDesc << "|" << f.systemName << "|" << f.systemDesc << "|"
               << f.mgmtAddress << "|" << f.capabilities << "|" << f.ttl << "\n";
    EXPECT_EQ(
        "3|4|02:00:00:00:00:0A|5|eth0|uplink|vm|AUDAC Unit|10.0.0.3|bridge, router|60\n"
        "1|7|box|3|02:00:00:00:00:0B||||||120\n",
        fields.str())
        << "of the switch's ports, by LLDP";
    EXPECT_EQ(0u, neighboursOf(R"({"lldp":[{}]})", kPorts).value().size());
    for (const char *other : {"[]", "{}", "null", "lldpcli: cannot connect"})
        EXPECT_FALSE(neighboursOf(other, kPorts)) << other;
    for (std::size_t length = 0; length < kHeard.size(); ++length)
        ASSERT_FALSE(neighboursOf(kHeard.substr(0, length), kPorts)) << length;
    // A device may say what it likes; the others are heard all the same.
    for (const std::string bytes :
         {"\xff", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82", "\x1f"}) {
        const auto found = neighboursOf(std::regex_replace(kHeard, std::regex("AUDAC"), bytes), kPorts);
        ASSERT_TRUE(found) << testing::PrintToString(bytes);
        EXPECT_EQ(std::string(bytes.size(), '?') + " Unit", found->at(0).fields.systemDesc);
    }
}

// --- the switch and its data plane

struct RecordingDataPlane : DataPlane {
    explicit RecordingDataPlane(PortMap names) : map(std::move(names)) {}
    PortMap ports() const override { return map; }
    void push(const WireConfig &config, std::uint64_t number) override {
        pushed.push_back(config);
        generation = number;
    }
    void sendQueries(const std::vector<IgmpQuery> &) override {}
    std::optional<WireView> collect() override { return std::exchange(view, std::nullopt); }
    DataPlaneStatus status() const override { return reported; }

    PortMap map;
    std::vector<WireConfig> pushed;
    std::uint64_t generation = 0;
    DataPlaneStatus reported;
    std::optional<WireView> view;
};

TEST(ServerTest, PushesChangesAndTakesWhatIsOfNow) {
    Server server(kSmallSwitch);
    for (const IfNum none : {0u, kLag, 99u})
        EXPECT_THROW(server.attach(std::make_unique<RecordingDataPlane>(PortMap{{none, "p0"}})),
                     std::invalid_argument);
    EXPECT_TRUE(server.settled());
    auto dataPlane = std::make_unique<RecordingDataPlane>(kPorts);
    auto &wire = *dataPlane;
    server.attach(std::move(dataPlane));
    const auto pushes = [&] {
        const auto before = wire.pushed.size();
        for (int times = 0; times < 3; ++times)
            server.exchangeWithDataPlane();
        return wire.pushed.size() - before;
    };
    const auto see = [&](std::uint64_t generation, std::vector<SeenAddress> addresses) {
        wire.view.emplace().generation = generation;
        wire.view->addresses = std::move(addresses);
    };
    EXPECT_TRUE(wire.pushed.size() == 1 && pushes() == 0 && !server.settled());
    wire.reported.generation = wire.generation;
    EXPECT_TRUE(server.settled());

    server.model().createVlan(20);
    server.model().edit(1)->description = "not of the wire";
    server.model().setLatency(500ms);
    server.model().setPvid(1, 20);
    EXPECT_EQ(0u, pushes());
    platform::manual_clock::advance(500ms);
    server.tick();
    EXPECT_FALSE(server.settled()) << "not yet handed over";
    see(wire.reported.generation, {{mac(1), 1, 1}});
    wire.view->carrier = {{1, true}, {2, true}};
    wire.view->neighbours = std::vector{SeenNeighbour{2, {}}};
    wire.view->messages = {"lldpd ended"};
    EXPECT_EQ(1u, pushes());
    EXPECT_EQ(20u, wire.pushed.back().interfaces.at(1).pvid);
    EXPECT_FALSE(server.settled()) << "handed over, not in force";
    EXPECT_EQ("", fdbOf(server.model())) << "it was seen before port 1 moved to VLAN 20";
    EXPECT_NE(std::string::npos, server.cli().show("show logging buffered")->find("lldpd ended"));
    wire.reported.generation = wire.generation;
    see(wire.generation, {{mac(1), 20, 1}});
    EXPECT_EQ(0u, pushes());
    EXPECT_TRUE(server.settled());
    wire.view.emplace().carrier = {{3, true}};
    EXPECT_EQ(0u, pushes());
    EXPECT_EQ("1.20@0/1", fdbOf(server.model())) << "what cannot be read now stays";
    EXPECT_EQ(1u, server.model().lldp().at(2).size());

    // An address brings a membership, pushed once.
    server.model().setLatency(0s);
    server.model().associateMac(mac(2), 20);
    EXPECT_EQ(1u, pushes());
    for (const std::size_t expected : {1u, 0u}) {
        see(wire.generation, {{mac(2), 20, 2}});
        EXPECT_EQ(expected, pushes());
        EXPECT_TRUE(wire.pushed.back().interfaces.at(2).vlans.contains(20));
    }
    // A group is pushed in the round that hears of it.
    server.model().editVlan(20)->igmpSnooping = true;
    server.model().setParticipation(1, 20, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE);
    wire.view.emplace().igmp = {{IgmpKind::Report, 20, 1, 2, mac(1), 0x0a000001, 0xef010203, {}}};
    server.exchangeWithDataPlane();
    EXPECT_EQ(std::vector<IfNum>{1}, wire.pushed.back().multicast.at(20).groups.at(0xef010203));
    see(wire.generation, {{mac(2), 20, 2}});
    server.model().clearFdb();
    EXPECT_EQ(1u, pushes());
    EXPECT_EQ("", fdbOf(server.model())) << "what was to be forgotten does not come back by a late view";
}

// --- other programs

class ProcessTest : public testing::Test {
  protected:
    static bool readable(int descriptor) {
        pollfd end{descriptor, POLLIN, 0};
        return ::poll(&end, 1, 20000) == 1;
    }
    // Becomes readable when the process ends.
    static Descriptor watch(pid_t pid) {
        return Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    }
    // Starts the server; the number that it prints first.
    int startAndRead() {
        EXPECT_TRUE(server.start());
        std::string line;
        for (const auto deadline = std::chrono::steady_clock::now() + 20s;
             !line.ends_with('\n') && std::chrono::steady_clock::now() < deadline;)
            line = test_support::readFile("/tmp/server.out");
        return std::atoi(line.c_str());
    }
    std::string howItEnded() {
        std::string how;
        return readable(server.endDescriptor()) && server.ended(how) && !server.running() ? how
                                                                                          : "not at all";
    }

    std::string folder = platform::fsPath("/tmp");
    ServerProcess server{"server", {"sh", "-c", "exit 3"}, folder};
};

TEST_F(ProcessTest, ToolsRunToTheirEndOrAreEnded) {
    const auto shell = [&](const char *script, std::chrono::milliseconds limit = 60s, int abort = -1) {
        return runTool({"sh", "-c", script}, folder, limit, abort);
    };
    const auto much = shell("head -c 300000 /dev/zero >&2; head -c 200000 /dev/zero; cat; exit 7");
    EXPECT_TRUE(much.status == 7 && much.output.size() == 200000 && much.error.size() == 300000);
    EXPECT_EQ("$(id) ; 'x\n", runTool({"echo", "$(id) ; 'x"}, folder, 60s).output);
    EXPECT_EQ(std::filesystem::canonical(folder).string() + "\n", shell("pwd -P").output);
    for (const auto &in : {folder, std::string("/nowhere")})
        EXPECT_EQ("cannot start no-such-program", runTool({"no-such-program"}, in, 60s).error);
    EXPECT_EQ(-1, shell("kill -9 $$").status);
    const auto late = shell("echo begun; exec sleep 1000", 300ms);
    EXPECT_TRUE(late.status == -1 && late.output == "begun\n" && !late.error.empty());
    ASSERT_TRUE(server.start());
    EXPECT_EQ(-1, shell("exec sleep 1000", 1h, server.endDescriptor()).status) << "given up with the server";
}

TEST_F(ProcessTest, EndsOfServersAreNoticed) {
    ASSERT_TRUE(server.start());
    EXPECT_EQ("ended with status 3", howItEnded());
    std::string how;
    EXPECT_FALSE(server.ended(how)) << "told once";
    server.setArguments({"no-such-program"});
    EXPECT_FALSE(server.start() || server.running());
    server.setArguments({"sh", "-c", "sleep 1000 & echo $!; wait"});
    const auto child = watch(startAndRead());
    EXPECT_EQ(2u, server.starts());
    ::kill(server.pid(), SIGKILL);
    EXPECT_EQ("was ended by signal 9", howItEnded());
    EXPECT_TRUE(readable(child.get())) << "what it had started goes with it";

    // Who does not listen to SIGTERM ends all the same.
    server.setArguments({"sh", "-c", "trap '' TERM; echo $$; exec sleep 1000"});
    const auto deaf = watch(startAndRead());
    server.stop();
    EXPECT_TRUE(readable(deaf.get()) && !server.running() && !server.ended(how));

    // And when the switch is killed.
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    const Descriptor told(ends[0]), tell(ends[1]);
    const auto killed = ::fork();
    if (killed == 0) {
        const int pid = startAndRead();
        [[maybe_unused]] const auto written = ::write(tell.get(), &pid, sizeof pid);
        ::raise(SIGKILL);
    }
    int pid = 0;
    ASSERT_TRUE(readable(told.get()) && ::read(told.get(), &pid, sizeof pid) == sizeof pid && pid > 0);
    const auto orphan = watch(pid);
    ::waitpid(killed, nullptr, 0);
    EXPECT_TRUE(!orphan || readable(orphan.get()));
}

}  // namespace
}  // namespace vswitch
