#include "vswitch/model/igmp.h"

#include <gtest/gtest.h>

#include "vswitch/cli/cli.h"
#include "vswitch/model/model.h"

using namespace std::chrono_literals;

namespace vswitch {
namespace {

constexpr Ipv4 kGroup = 0xEF010101;  // 239.1.1.1
constexpr IfNum kLag = 9;
constexpr auto kInclude = OPEN_VLAN_PARTICIPATION_MODE_INCLUDE,
               kExclude = OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE;

Mac mac(unsigned last) {
    return Mac{{0x02, 0, 0, 0, 0, 0}}.plus(last);
}

class IgmpTest : public testing::Test {
  protected:
    // VLAN 10 is snooped; ports 1 to 5 and the first LAG are members and have link.
    void restart(ModelConfig config) {
        config.physicalPorts = 8;
        config.lags = 2;
        model = Model(config);
        pass(0s);
        commands(
            "vlan database; vlan 10,20; set igmp 10; exit; configure; interface 0/1-0/5; vlan participation "
            "include "
            "10; exit; interface lag 1; vlan participation include 10; exit");
        for (const IfNum port : {1u, 2u, 3u, 4u, 5u, 7u})
            model.setCarrier(port, Carrier::ForcedUp);
        model.lagAdd(kLag, 7);
        pass(0s);
    }
    void SetUp() override { restart({}); }
    void pass(Duration time) { model.advanceTo(now += time, {}); }

    void commands(std::string lines) {
        for (auto at = lines.find("; "); at != std::string::npos; at = lines.find("; ", at))
            lines.replace(at, 2, "\n");
        Cli cli(model);
        const auto printed = cli.runScript(lines);
        EXPECT_EQ(0u, cli.unknownCommands() + cli.refusedCommands()) << printed;
        pass(0s);
    }
    static IgmpMessage message(IgmpKind kind, IfNum interface, unsigned host, Ipv4 group = kGroup) {
        IgmpMessage out;
        out.kind = kind;
        out.vlan = 10;
        out.interface = interface;
        out.mac = mac(host);
        out.host = host == 0 ? 0 : 0x0A000000 + host;
        out.group = group;
        return out;
    }
    void join(IfNum interface, unsigned host, Ipv4 group = kGroup) {
        model.hearIgmp(message(IgmpKind::Report, interface, host, group));
    }
    void leave(IfNum interface, unsigned host, Ipv4 group = kGroup) {
        model.hearIgmp(message(IgmpKind::Leave, interface, host, group));
    }
    void query(IfNum interface, unsigned host, Ipv4 group = 0) {
        model.hearIgmp(message(IgmpKind::Query, interface, host, group));
    }

    // "239.1.1.1: 0/1 10.0.0.1, lag 1 10.0.0.2"
    std::string groups() const {
        std::string out;
        for (const auto &[key, subscribers] : model.igmpGroups()) {
            out += (out.empty() ? "" : "; ") + ipv4Text(key.group) + ":";
            const char *separator = " ";
            for (const auto &[host, subscriber] : subscribers) {
                out += separator + model.interface(host.interface)->name() + " " + ipv4Text(host.host);
                separator = ", ";
            }
        }
        return out;
    }
    // "20 239.1.1.1 v2 from 10.0.0.9 to 1", oldest first.
    std::string queries() {
        std::string out;
        for (const auto &query : model.takeIgmpQueries()) {
            out += (out.empty() ? "" : "; ") + std::to_string(query.vlan) + " " + ipv4Text(query.group) +
                   " v" + std::to_string(query.version) + " from " + ipv4Text(query.source);
            for (const auto ifNum : query.interfaces)
                out += " to " + model.interface(ifNum)->name();
        }
        return out;
    }
    std::string show() {
        Cli cli(model);
        return cli.show("show igmpsnooping group").value();
    }

    Duration now{};
    Model model;
};

TEST_F(IgmpTest, SubscribersAreRefreshedAndForgotten) {
    join(1, 1);
    join(kLag, 2);
    join(7, 3);  // a member of the LAG
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1, lag 1 10.0.0.2, lag 1 10.0.0.3", groups());
    EXPECT_EQ((std::map<Ipv4, std::vector<IfNum>>{{kGroup, {1, kLag}}}), model.wireMulticast(10).groups);
    pass(259s);
    join(1, 1);
    pass(1s);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1", groups()) << "the others have not reported for 260 s";
    pass(259s);
    EXPECT_EQ("", groups());

    commands("vlan database; set igmp groupmembership-interval 10 7");
    join(1, 1);
    pass(6s);
    EXPECT_NE("", groups());
    pass(1s);
    EXPECT_EQ("", groups());
}

TEST_F(IgmpTest, WhatTheConfigurationDoesNotLetInIsIgnored) {
    struct Case {
        const char *what;
        void (*change)(IgmpMessage &);
    };
    const Case cases[] = {
        {"VLAN without snooping", [](IgmpMessage &m) { m.vlan = 20; }},
        {"no such VLAN", [](IgmpMessage &m) { m.vlan = 30; }},
        {"no member of the VLAN", [](IgmpMessage &m) { m.interface = 6; }},
        {"no such interface", [](IgmpMessage &m) { m.interface = 99; }},
        {"interface 0", [](IgmpMessage &m) { m.interface = 0; }},
        {"224.0.0.x", [](IgmpMessage &m) { m.group = 0xE00000FB; }},
        {"unicast", [](IgmpMessage &m) { m.group = 0x0A000001; }},
        {"no group", [](IgmpMessage &m) { m.group = 0; }},
        {"from a multicast address", [](IgmpMessage &m) { m.host = kGroup; }},
        {"from a multicast MAC address",
         [](IgmpMessage &m) { m.mac = Mac::parse("01:00:5E:00:00:01").value(); }},
        {"from no MAC address", [](IgmpMessage &m) { m.mac = Mac{}; }},
    };
    for (const auto &[what, change] : cases)
        for (const auto kind : {IgmpKind::Report, IgmpKind::Leave}) {
            auto ignored = message(kind, 1, 1);
            change(ignored);
            model.hearIgmp(ignored);
            EXPECT_EQ("", groups()) << what;
        }
    model.setCarrier(2, Carrier::ForcedDown);
    join(2, 1);
    EXPECT_EQ("", groups()) << "no link";
    join(1, 0);
    EXPECT_EQ("239.1.1.1: 0/1 0.0.0.0", groups()) << "a host without an address is one";
}

TEST_F(IgmpTest, AnAssociatedAddressTakesItsPortIntoTheVlan) {
    model.setCarrier(6, Carrier::ForcedUp);
    model.associateMac(mac(1), 10);
    join(6, 1);
    join(6, 2);
    EXPECT_EQ("239.1.1.1: 0/6 10.0.0.1", groups());
    model.setParticipation(6, 10, kExclude);
    pass(0s);
    EXPECT_EQ("", groups());
}

TEST_F(IgmpTest, WhatEndsMembershipForgetsIt) {
    struct Case {
        const char *what;
        const char *lines;
    };
    const Case cases[] = {{"link", "configure; interface 0/1; shutdown"},
                          {"participation", "configure; interface 0/1; vlan participation exclude 10"},
                          {"LAG", "configure; interface 0/1; addport lag 2"},
                          {"snooping", "vlan database; no set igmp 10"},
                          {"VLAN", "vlan database; no vlan 10"}};
    for (const auto &[what, lines] : cases) {
        restart({});
        join(1, 1);
        query(1, 9);
        ASSERT_EQ("239.1.1.1: 0/1 10.0.0.1", groups());
        ASSERT_EQ(std::vector<IfNum>{1}, model.igmpRouters(10));
        commands(lines);
        EXPECT_EQ("", groups()) << what;
        EXPECT_EQ(std::vector<IfNum>{}, model.igmpRouters(10)) << what;
        pass(10s);
    }
}

TEST_F(IgmpTest, ALeaveIsFollowedByTwoQueries) {
    join(1, 1);
    join(1, 2);
    join(2, 3);
    leave(1, 1);
    EXPECT_EQ("10 239.1.1.1 v2 from 0.0.0.0 to 0/1", queries());
    pass(999ms);
    EXPECT_EQ("", queries());
    pass(1ms);
    EXPECT_EQ("10 239.1.1.1 v2 from 0.0.0.0 to 0/1", queries());
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1, 0/1 10.0.0.2, 0/2 10.0.0.3", groups());
    pass(1s);
    EXPECT_EQ("", queries());
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, 0/2 10.0.0.3", groups());

    // Whoever answers stays, also one that was never heard before.
    leave(2, 3);
    join(2, 4);
    pass(2s);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, 0/2 10.0.0.4", groups());
    // A host that has got another address since.
    auto renamed = message(IgmpKind::Leave, 1, 2);
    renamed.host = 0x0A0000FF;
    model.hearIgmp(renamed);
    queries();
    pass(2s);
    EXPECT_EQ("239.1.1.1: 0/2 10.0.0.4", groups());
    EXPECT_NE("", queries());
    // Nobody is asked about a group that nobody has there.
    leave(3, 9);
    EXPECT_EQ("", queries());
}

TEST_F(IgmpTest, AMoveOrAFastLeaveAsksNobody) {
    commands("vlan database; set igmp fast-leave 10");
    join(1, 1);
    join(1, 2);
    join(kLag, 1);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, lag 1 10.0.0.1", groups());
    leave(kLag, 1);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2", groups());
    leave(1, 2);
    EXPECT_EQ("", groups() + queries());
}

TEST_F(IgmpTest, RoutersAreThoseConfiguredAndThoseThatAsk) {
    commands("configure; interface 0/4-0/6; ip igmp snooping mrouter interface");
    EXPECT_EQ((std::vector<IfNum>{4, 5}), model.igmpRouters(10)) << "0/6 is no member";
    query(2, 9);
    query(7, 0);  // a querier without an address, behind a LAG
    EXPECT_EQ((std::vector<IfNum>{2, 4, 5, kLag}), model.wireMulticast(10).routers);
    pass(299s);
    query(2, 9);
    pass(1s);
    EXPECT_EQ((std::vector<IfNum>{2, 4, 5}), model.igmpRouters(10));
    commands("vlan database; set igmp mcrtrexpiretime 10 0");
    query(kLag, 8);
    pass(100h);
    EXPECT_EQ((std::vector<IfNum>{4, 5, kLag}), model.igmpRouters(10));
    commands("configure; interface 0/4; no set igmp mrouter interface");
    EXPECT_EQ((std::vector<IfNum>{5, kLag}), model.igmpRouters(10));
}

TEST_F(IgmpTest, TheQuerierAsksWithOrWithoutAnAddress) {
    pass(1000s);
    EXPECT_EQ("", queries()) << "no querier was asked for";
    commands("configure; ip igmp snooping querier query-interval 30");
    EXPECT_EQ("10 0.0.0.0 v2 from 0.0.0.0", queries());
    pass(29s);
    EXPECT_EQ("", queries());
    pass(1s);
    EXPECT_EQ("10 0.0.0.0 v2 from 0.0.0.0", queries());
    commands(
        "configure; set igmp querier version 3; ip management vlan 10 10.0.0.5 255.255.255.0; igmp-plus 20");
    EXPECT_EQ("20 0.0.0.0 v3 from 0.0.0.0", queries());
    pass(30s);
    EXPECT_EQ("10 0.0.0.0 v3 from 10.0.0.5; 20 0.0.0.0 v3 from 0.0.0.0", queries());
    // Off and on again: at once.
    commands("vlan database; no set igmp 10");
    pass(1s);
    commands("vlan database; set igmp 10");
    EXPECT_EQ("10 0.0.0.0 v3 from 10.0.0.5", queries());
    EXPECT_EQ(10s, [&] {
        pass(30s);
        return model.takeIgmpQueries().front().maxResponse;
    }());
}

TEST_F(IgmpTest, TheQuerierGivesWay) {
    const std::string ours = "10 0.0.0.0 v2 from 10.0.0.5";
    commands(
        "configure; ip management vlan 10 10.0.0.5 255.255.255.0; ip igmp snooping querier query-interval "
        "100");
    EXPECT_EQ(ours, queries());
    query(1, 9);
    pass(100s);
    EXPECT_EQ("", queries());
    pass(154s);
    EXPECT_EQ("", queries());
    pass(1s);
    EXPECT_EQ(ours, queries()) << "the other one has been silent for 255 s";
    query(1, 0);
    pass(100s);
    EXPECT_EQ(ours, queries()) << "one without an address is none to give way to";

    commands(
        "vlan database; set igmp querier election participate 10; exit; configure; set igmp querier timer "
        "expiry 60");
    query(1, 9);
    pass(100s);
    EXPECT_EQ(ours, queries()) << "10.0.0.9 loses the election";
    query(1, 4);
    pass(59s);
    EXPECT_EQ("", queries());
    pass(41s);
    EXPECT_EQ(ours, queries());

    // In the name of the querier.
    commands("vlan database; set igmp proxy-querier 10");
    query(1, 4);
    join(2, 1);
    leave(2, 1);
    EXPECT_EQ("10 239.1.1.1 v2 from 10.0.0.4 to 0/2", queries());
}

TEST_F(IgmpTest, DeniedGroupsAreNotHeard) {
    commands(
        "configure; ip access-list NET-BLOCK; deny ip any 239.0.0.0 0.255.255.255; permit ip any any; exit; "
        "interface 0/1; ip access-group NET-BLOCK in 1; exit; ip access-list EMPTY; exit; interface 0/2; "
        "ip access-group EMPTY in 1");
    join(1, 1);
    join(1, 1, 0xE0010101);
    join(2, 2);
    EXPECT_EQ("224.1.1.1: 0/1 10.0.0.1; 239.1.1.1: 0/2 10.0.0.2", groups());
    query(1, 9);
    EXPECT_EQ(std::vector<IfNum>{1}, model.igmpRouters(10));
    EXPECT_FALSE(model.admitsIp(1, OPEN_ACL_INBOUND, 1, kGroup));
    EXPECT_TRUE(model.admitsIp(1, OPEN_ACL_OUTBOUND, 1, kGroup));
    // A list that permits nothing else denies the rest.
    commands(
        "configure; ip access-list ONLY; permit ip any 239.1.1.1 0.0.0.0; exit; interface 0/3; "
        "ip access-group ONLY in");
    join(3, 3);
    join(3, 3, kGroup + 1);
    EXPECT_EQ("224.1.1.1: 0/1 10.0.0.1; 239.1.1.1: 0/2 10.0.0.2, 0/3 10.0.0.3", groups());
}

TEST_F(IgmpTest, TablesHaveAnEndAndOneInterfaceGetsHalf) {
    restart({.igmpGroupsMax = 4, .igmpSubscribersMax = 8});
    for (unsigned n = 0; n < 5; ++n)
        join(1, 1, kGroup + n);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1; 239.1.1.2: 0/1 10.0.0.1", groups());
    for (unsigned n = 10; n < 13; ++n)
        join(2, 9, kGroup + n);
    join(3, 5, kGroup + 20);
    EXPECT_EQ(4u, model.igmpGroups().size());
    for (unsigned host = 2; host < 5; ++host)
        join(1, host);
    for (unsigned host = 5; host < 8; ++host)
        join(3, host);
    EXPECT_EQ(5u, model.igmpGroups().at({10, kGroup}).size()) << "three of the first, two of the last";
    EXPECT_EQ(3u + 1 + 1 + 1 + 1, model.igmpRefused());
    pass(250s);
    join(1, 2);
    pass(10s);
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2", groups());
    for (unsigned n = 0; n < 5; ++n)
        join(1, 9, kGroup + n);
    EXPECT_EQ(2u, model.igmpGroups().size()) << "room is given back";
    join(2, 9);
    join(2, 9, kGroup + 1);
    join(2, 9, kGroup + 2);
    EXPECT_EQ(2u, model.igmpGroups().size()) << "groups that others had first count, too";
}

TEST_F(IgmpTest, SimulatedDevicesAnswerQueries) {
    Device device;
    device.name = "amp";
    device.port = 6;
    device.tag = 10;
    device.macs = {mac(1)};
    device.ip = "10.0.0.1";
    commands("configure; interface 0/6; vlan participation include 10");
    ASSERT_EQ(OPEN_E_NONE, model.plug(device));
    EXPECT_EQ(OPEN_E_NOT_FOUND, model.joinGroup("nobody", kGroup, 2));
    EXPECT_EQ(OPEN_E_PARAM, model.joinGroup("amp", 0x0A000001, 2));
    EXPECT_EQ(OPEN_E_PARAM, model.joinGroup("amp", kGroup, 4));
    EXPECT_EQ(OPEN_E_NOT_FOUND, model.leaveGroup("amp", kGroup));
    ASSERT_EQ(OPEN_E_NONE, model.joinGroup("amp", kGroup, 2));
    const std::string subscribed = "239.1.1.1: 0/6 10.0.0.1";
    EXPECT_EQ(subscribed, groups());
    pass(260s);
    EXPECT_EQ("", groups()) << "nobody has asked it again";
    commands("configure; ip igmp snooping querier query-interval 100");
    EXPECT_EQ(subscribed, groups());
    for (int n = 0; n < 10; ++n)
        pass(100s);
    EXPECT_EQ(subscribed, groups());

    // Silent, unplugged, moved, back again.
    model.setTalking("amp", false);
    pass(260s);
    EXPECT_EQ("", groups());
    model.setTalking("amp", true);
    EXPECT_EQ(subscribed, groups());
    ASSERT_EQ(OPEN_E_NONE, model.move("amp", 5, ""));
    EXPECT_EQ("239.1.1.1: 0/5 10.0.0.1", groups());
    model.setAdmin(5, false);
    EXPECT_EQ("", groups());
    model.setAdmin(5, true);
    EXPECT_EQ("239.1.1.1: 0/5 10.0.0.1", groups());
    EXPECT_EQ(OPEN_E_NONE, model.leaveGroup("amp", kGroup));
    pass(2s);
    EXPECT_EQ("", groups());
    // Version 1 says nothing when it leaves.
    model.joinGroup("amp", kGroup, 1);
    model.leaveGroup("amp", kGroup);
    pass(10s);
    EXPECT_EQ("239.1.1.1: 0/5 10.0.0.1", groups());
    pass(250s);
    EXPECT_EQ("", groups());
}

TEST_F(IgmpTest, TheTableHasAFullRowForEachGroupAndInterface) {
    EXPECT_NE(std::string::npos, show().find("-------\n"));
    join(1, 1);
    join(1, 2);
    auto third = message(IgmpKind::Report, 1, 3);
    third.version = 3;
    model.hearIgmp(third);
    join(kLag, 4);
    pass(500ms);
    auto text = show();
    EXPECT_EQ(
        "10   10.0.0.1/02:00:00:00:00:01         239.1.1.1/01:00:5E:01:01:01        0/1       v2     260\n"
        "     10.0.0.2/02:00:00:00:00:02\n"
        "10   10.0.0.3/02:00:00:00:00:03         239.1.1.1/01:00:5E:01:01:01        0/1       v3     260\n"
        "10   10.0.0.4/02:00:00:00:00:04         239.1.1.1/01:00:5E:01:01:01        lag 1     v2     260\n",
        text.substr(text.rfind("-\n") + 2));
    restart({.igmpShowsChannels = true});
    join(kLag, 4, 0xEFFFFFFF);
    text = show();
    EXPECT_EQ(
        "10   10.0.0.4/02:00:00:00:00:04         239.255.255.255/01:00:5E:7F:FF:FF  ch1       v2     260\n",
        text.substr(text.rfind("-\n") + 2));
}

}  // namespace
}  // namespace vswitch
