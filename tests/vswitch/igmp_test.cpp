#include "vswitch/model/igmp.h"

#include <sstream>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

constexpr Ipv4 kGroup = 0xEF010101;  // 239.1.1.1
constexpr IfNum kLag = 9;

class IgmpTest : public ModelFixture {
  protected:
    IgmpTest() { restart({}); }
    void TearDown() override { EXPECT_EQ(0u, errors()); }
    // VLAN 10 is snooped; ports 1 to 5 and the first LAG are members and have link.
    void restart(ModelConfig config) {
        config.physicalPorts = 8;
        config.lags = 2;
        ModelFixture::restart(std::move(config));
        for (const IfNum port : {1u, 2u, 3u, 4u, 5u, 7u})
            model.setCarrier(port, Carrier::ForcedUp);
        commands(R"(vlan database; vlan 10,20; set igmp 10; exit; configure; interface 0/7
addport lag 1; interface 0/1-0/5; vlan participation include 10; interface lag 1
vlan participation include 10)");
    }
    void commands(const std::string &text) {
        apply(text);
        pass(0s);
    }

    static IgmpMessage message(IgmpKind kind, IfNum interface, unsigned host, Ipv4 group = kGroup) {
        return {kind, 10, interface, 2, mac(host), host == 0 ? 0 : 0x0A000000 + host, group, {}};
    }
    void join(IfNum interface, unsigned host, Ipv4 group) {
        model.hearIgmp(message(IgmpKind::Report, interface, host, group));
    }
    // "+1.7 -1.7 ?2.9": a report and a leave of host 7 on interface 1, a general query of host 9 on interface 2.
    void hear(const std::string &messages) {
        std::istringstream in(messages);
        char kind = 0, dot = 0;
        IfNum interface = 0;
        unsigned host = 0;
        while (in >> kind >> interface >> dot >> host)
            model.hearIgmp(message(kind == '+'   ? IgmpKind::Report
                                   : kind == '-' ? IgmpKind::Leave
                                                 : IgmpKind::Query,
                                   interface, host, kind == '?' ? 0 : kGroup));
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
    std::string groupsAfter(Duration time) {
        pass(time);
        return groups();
    }
    // "20 239.1.1.1 v2 from 10.0.0.9 to 0/1", oldest first.
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
    std::string queriesAfter(Duration time) {
        pass(time);
        return queries();
    }
};

TEST_F(IgmpTest, SubscribersAreRefreshedMovedAndForgotten) {
    hear("+1.1 +9.2 +7.3");
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1, lag 1 10.0.0.2, lag 1 10.0.0.3", groups());
    EXPECT_EQ((std::map<Ipv4, std::vector<IfNum>>{{kGroup, {1, kLag}}}), model.wireMulticast(10).groups);
    // A full row for each group, interface and version.
    auto other = message(IgmpKind::Report, 1, 4);
    other.version = 3;
    model.hearIgmp(other);
    const auto table = show("igmpsnooping group");
    EXPECT_EQ(
        "10   10.0.0.1/02:00:00:00:00:01         239.1.1.1/01:00:5E:01:01:01        0/1       v2     260\n"
        "10   10.0.0.4/02:00:00:00:00:04         239.1.1.1/01:00:5E:01:01:01        0/1       v3     260\n"
        "10   10.0.0.2/02:00:00:00:00:02         239.1.1.1/01:00:5E:01:01:01        lag 1     v2     260\n"
        "     10.0.0.3/02:00:00:00:00:03\n",
        table.substr(table.rfind("-\n") + 2));
    pass(259s);
    hear("+1.1");
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1", groupsAfter(1s)) << "the others have not reported for 260 s";
    EXPECT_EQ("", groupsAfter(259s));
    commands("vlan database; set igmp groupmembership-interval 10 7");
    hear("+1.1");
    EXPECT_NE("", groupsAfter(6s));
    EXPECT_EQ("", groupsAfter(1s));
    hear("+1.1 +1.2 +9.1");
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, lag 1 10.0.0.1", groups()) << "known in its new place at once";
}

TEST_F(IgmpTest, WhatTheConfigurationDoesNotLetInIsIgnored) {
    const std::pair<const char *, void (*)(IgmpMessage &)> cases[] = {
        {"VLAN without snooping", [](IgmpMessage &m) { m.vlan = 20; }},
        {"no such VLAN", [](IgmpMessage &m) { m.vlan = 30; }},
        {"no member of the VLAN", [](IgmpMessage &m) { m.interface = 6; }},
        {"no such interface", [](IgmpMessage &m) { m.interface = 99; }},
        {"no link", [](IgmpMessage &m) { m.interface = 8; }},
        {"224.0.0.x", [](IgmpMessage &m) { m.group = 0xE00000FB; }},
        {"unicast", [](IgmpMessage &m) { m.group = 0x0A000001; }},
        {"from a multicast address", [](IgmpMessage &m) { m.host = kGroup; }},
        {"from a multicast MAC address", [](IgmpMessage &m) { m.mac = Mac{{1, 0, 0x5E, 0, 0, 1}}; }},
        {"from no MAC address", [](IgmpMessage &m) { m.mac = Mac{}; }}};
    commands("configure; interface 0/8; vlan participation include 10");
    for (const auto &[what, change] : cases)
        for (const auto kind : {IgmpKind::Report, IgmpKind::Leave}) {
            auto ignored = message(kind, 1, 1);
            change(ignored);
            model.hearIgmp(ignored);
            EXPECT_EQ("", groups()) << what;
        }
    hear("+1.0");
    EXPECT_EQ("239.1.1.1: 0/1 0.0.0.0", groups()) << "a host without an address is one";
    hear("-1.0");
    pass(2s);
    // An associated address takes its port into the VLAN.
    model.setCarrier(6, Carrier::ForcedUp);
    model.associateMac(mac(1), 10);
    hear("+6.1 +6.2");
    EXPECT_EQ("239.1.1.1: 0/6 10.0.0.1", groups());
    model.setParticipation(6, 10, OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE);
    EXPECT_EQ("", groupsAfter(0s));
}

TEST_F(IgmpTest, WhatEndsMembershipForgetsIt) {
    for (const auto *lines :
         {"configure; interface 0/1; shutdown", "configure; interface 0/1; vlan participation exclude 10",
          "configure; interface 0/1; addport lag 2", "vlan database; no set igmp 10",
          "vlan database; no vlan 10"}) {
        restart({});
        hear("+1.1 ?1.9");
        ASSERT_EQ("239.1.1.1: 0/1 10.0.0.1", groups());
        ASSERT_EQ(std::vector<IfNum>{1}, model.igmpRouters(10));
        commands(lines);
        EXPECT_EQ("", groups()) << lines;
        EXPECT_EQ(std::vector<IfNum>{}, model.igmpRouters(10)) << lines;
        pass(10s);
    }
}

TEST_F(IgmpTest, ALeaveIsFollowedByTwoQueriesOrNone) {
    hear("+1.1 +1.2 +2.3 -1.1");
    EXPECT_EQ("10 239.1.1.1 v2 from 0.0.0.0 to 0/1", queries());
    EXPECT_EQ("", queriesAfter(999ms));
    EXPECT_EQ("10 239.1.1.1 v2 from 0.0.0.0 to 0/1", queriesAfter(1ms));
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.1, 0/1 10.0.0.2, 0/2 10.0.0.3", groups());
    EXPECT_EQ("", queriesAfter(1s));
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, 0/2 10.0.0.3", groups());
    // Whoever answers stays, also one that was never heard before.
    hear("-2.3 +2.4");
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2, 0/2 10.0.0.4", groupsAfter(2s));
    // A host that has got another address since.
    auto renamed = message(IgmpKind::Leave, 1, 2);
    renamed.host = 0x0A0000FF;
    model.hearIgmp(renamed);
    queries();
    EXPECT_EQ("239.1.1.1: 0/2 10.0.0.4", groupsAfter(2s));
    EXPECT_NE("", queries());
    hear("-3.9");
    EXPECT_EQ("", queries()) << "nobody is asked about a group that nobody has there";

    commands("vlan database; set igmp fast-leave 10");
    hear("+2.1 -2.1");
    EXPECT_EQ("239.1.1.1: 0/2 10.0.0.4", groups()) << "the other one was heard";
    hear("-2.4");
    EXPECT_EQ("", groups());
    EXPECT_EQ("", queries());
}

TEST_F(IgmpTest, RoutersAreThoseConfiguredAndThoseThatAsk) {
    commands("configure; interface 0/4-0/6; ip igmp snooping mrouter interface");
    EXPECT_EQ((std::vector<IfNum>{4, 5}), model.igmpRouters(10)) << "0/6 is no member";
    hear("?2.9 ?7.0");
    EXPECT_EQ((std::vector<IfNum>{2, 4, 5, kLag}), model.wireMulticast(10).routers);
    pass(299s);
    hear("?2.9");
    pass(1s);
    EXPECT_EQ((std::vector<IfNum>{2, 4, 5}), model.igmpRouters(10));
    commands("vlan database; set igmp mcrtrexpiretime 10 0");
    hear("?9.8");
    pass(100h);
    EXPECT_EQ((std::vector<IfNum>{4, 5, kLag}), model.igmpRouters(10));
    commands("configure; interface 0/4; no set igmp mrouter interface");
    EXPECT_EQ((std::vector<IfNum>{5, kLag}), model.igmpRouters(10));
}

TEST_F(IgmpTest, TheQuerierAsksWithOrWithoutAnAddress) {
    EXPECT_EQ("", queriesAfter(1000s)) << "no querier was asked for";
    commands("configure; ip igmp snooping querier query-interval 30");
    EXPECT_EQ("10 0.0.0.0 v2 from 0.0.0.0", queries());
    EXPECT_EQ("", queriesAfter(29s));
    EXPECT_EQ("10 0.0.0.0 v2 from 0.0.0.0", queriesAfter(1s));
    commands(
        "configure; set igmp querier version 3; ip management vlan 10 10.0.0.5 255.255.255.0; igmp-plus 20");
    EXPECT_EQ("20 0.0.0.0 v3 from 0.0.0.0", queries());
    EXPECT_EQ("10 0.0.0.0 v3 from 10.0.0.5; 20 0.0.0.0 v3 from 0.0.0.0", queriesAfter(30s));
    // Off and on again: at once.
    commands("vlan database; no set igmp 10");
    pass(1s);
    commands("vlan database; set igmp 10");
    EXPECT_EQ("10 0.0.0.0 v3 from 10.0.0.5", queries());
    pass(30s);
    EXPECT_EQ(10s, model.takeIgmpQueries().front().maxResponse);
}

TEST_F(IgmpTest, TheQuerierGivesWay) {
    const std::string ours = "10 0.0.0.0 v2 from 10.0.0.5";
    commands(R"(configure; ip management vlan 10 10.0.0.5 255.255.255.0
ip igmp snooping querier query-interval 100)");
    EXPECT_EQ(ours, queries());
    hear("?1.9");
    EXPECT_EQ("", queriesAfter(254s));
    EXPECT_EQ(ours, queriesAfter(1s)) << "the other one has been silent for 255 s";
    hear("?1.0");
    EXPECT_EQ(ours, queriesAfter(100s)) << "one without an address is none to give way to";

    commands(R"(vlan database; set igmp querier election participate 10; exit; configure
set igmp querier timer expiry 60)");
    hear("?1.9");
    EXPECT_EQ(ours, queriesAfter(100s)) << "10.0.0.9 loses the election";
    hear("?1.4");
    EXPECT_EQ("", queriesAfter(59s));
    EXPECT_EQ(ours, queriesAfter(41s));
    // In the name of the querier.
    commands("vlan database; set igmp proxy-querier 10");
    hear("?1.4 +2.1 -2.1");
    EXPECT_EQ("10 239.1.1.1 v2 from 10.0.0.4 to 0/2", queries());
}

TEST_F(IgmpTest, DeniedGroupsAreNotHeard) {
    commands(R"(configure; ip access-list NET-BLOCK; deny ip any 239.0.0.0 0.255.255.255
permit ip any any; exit; ip access-list EMPTY; exit; ip access-list ONLY
permit ip any 239.1.1.1 0.0.0.0; exit; interface 0/1; ip access-group NET-BLOCK in 1; interface 0/2
ip access-group EMPTY in 1; interface 0/3; ip access-group ONLY in)");
    for (const auto group : {kGroup, kGroup + 1, Ipv4{0xE0010101}})
        for (const IfNum port : {1u, 3u})
            join(port, port, group);
    hear("+2.2");
    EXPECT_EQ("224.1.1.1: 0/1 10.0.0.1; 239.1.1.1: 0/2 10.0.0.2, 0/3 10.0.0.3", groups());
    hear("?1.9");
    EXPECT_EQ(std::vector<IfNum>{1}, model.igmpRouters(10));
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
    hear("+1.2 +1.3 +1.4 +3.5 +3.6 +3.7");
    EXPECT_EQ(5u, model.igmpGroups().at({10, kGroup}).size()) << "three of the first, two of the last";
    EXPECT_EQ(3u + 1 + 1 + 1 + 1, model.igmpRefused());
    pass(250s);
    hear("+1.2");
    EXPECT_EQ("239.1.1.1: 0/1 10.0.0.2", groupsAfter(10s));
    for (unsigned n = 0; n < 5; ++n)
        join(1, 9, kGroup + n);
    EXPECT_EQ(2u, model.igmpGroups().size()) << "room is given back";
    for (unsigned n = 0; n < 3; ++n)
        join(2, 9, kGroup + n);
    EXPECT_EQ(2u, model.igmpGroups().size()) << "groups that others had first count, too";
}

TEST_F(IgmpTest, SimulatedDevicesReport) {
    Device device{"amp", 6, "", {mac(1)}, 10, "10.0.0.1", {}};
    commands("configure; interface 0/6; vlan participation include 10");
    ASSERT_EQ(OPEN_E_NONE, model.plug(device));
    ASSERT_EQ(OPEN_E_NONE, model.joinGroup("amp", kGroup, 2));
    const std::string subscribed = "239.1.1.1: 0/6 10.0.0.1", moved = "239.1.1.1: 0/5 10.0.0.1";
    EXPECT_EQ(subscribed, groups());
    // Silent, moved, without link, back again.
    model.setTalking("amp", false);
    EXPECT_EQ("", groupsAfter(260s));
    model.setTalking("amp", true);
    EXPECT_EQ(subscribed, groups());
    ASSERT_EQ(OPEN_E_NONE, model.move("amp", 5, ""));
    EXPECT_EQ(moved, groups());
    for (const bool up : {false, true}) {
        model.setAdmin(5, up);
        EXPECT_EQ(up ? moved : "", groups());
    }
    EXPECT_EQ(OPEN_E_NONE, model.leaveGroup("amp", kGroup));
    EXPECT_EQ("", groupsAfter(2s));
    // Version 1 says nothing when it leaves.
    model.joinGroup("amp", kGroup, 1);
    model.leaveGroup("amp", kGroup);
    EXPECT_EQ(moved, groupsAfter(10s));
    EXPECT_EQ("", groupsAfter(250s));
}

}  // namespace
}  // namespace vswitch
