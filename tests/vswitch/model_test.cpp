#include "vswitch/model/model.h"

#include <climits>
#include <functional>
#include <random>
#include <tuple>

#include "tests/support/model_rules.h"
#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

class ModelTest : public ModelFixture {
  protected:
    ModelTest() { restart(100); }
    void restart(std::size_t fdbCapacity) {
        ModelFixture::restart(
            {.physicalPorts = 8, .lags = 2, .lagMembersMax = 2, .fdbCapacity = fdbCapacity});
    }

    static Device device(const std::string &name, IfNum port, unsigned lastMacByte,
                         const std::string &behind = "") {
        return {name, port, behind, {mac(lastMacByte)}, 0, "", LldpFields{}};
    }
    // The forwarding table, and the neighbours with their ports behind it: "1.10@0/5 | amp@5".
    std::string seen() const {
        std::string out = fdb() + " |";
        for (const auto &[port, all] : model.lldp())
            for (const auto &[index, neighbour] : all)
                out += " " + neighbour.device + "@" + std::to_string(port);
        return out;
    }
    std::string seenAfter(Duration time) {
        pass(time);
        return seen();
    }
    // One device at each of the first ports, called and addressed like it.
    void plugOneEach(unsigned ports) {
        for (unsigned n = 1; n <= ports; ++n)
            EXPECT_EQ(OPEN_E_NONE, model.plug(device(std::to_string(n), n, n)));
    }

    static constexpr IfNum kLag = 9;
    static constexpr auto kInclude = OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
};

TEST_F(ModelTest, PlugMoveAndUnplugTakeAlongWhatIsBehind) {
    for (const auto &d : {device("unit", 5, 1), device("amp", 5, 2, "unit"), device("mic", 5, 3, "amp")})
        EXPECT_EQ(OPEN_E_NONE, model.plug(d));
    EXPECT_EQ(OPEN_E_NONE, model.move("unit", 7, ""));
    EXPECT_EQ("1.1@0/7 2.1@0/7 3.1@0/7 | unit@7", seen());
    EXPECT_EQ(OPEN_E_NONE, model.move("amp", 6, ""));
    const std::string both = "1.1@0/7 2.1@0/6 3.1@0/6 | amp@6 unit@7";
    EXPECT_EQ(both, seen());

    // Nothing stands behind itself, nor behind what is elsewhere.
    const std::tuple<const char *, IfNum, const char *> moves[] = {{"amp", 6, "mic"},  {"amp", 7, "mic"},
                                                                   {"amp", 6, "amp"},  {"mic", 6, "nobody"},
                                                                   {"mic", 6, "unit"}, {"unit", kLag, ""}};
    for (const auto &[name, port, behind] : moves)
        EXPECT_EQ(OPEN_E_PARAM, model.move(name, port, behind)) << name << port << behind;
    for (const auto &refused : {device("d", 6, 4, "unit"), device("d", 6, 4, "d"), device("d", 9, 4)})
        EXPECT_EQ(OPEN_E_PARAM, model.plug(refused));
    for (const auto &taken : {device("amp", 3, 4), device("d", 3, 1)})
        EXPECT_EQ(OPEN_E_FAIL, model.plug(taken));
    EXPECT_EQ(both, seen());
    // What moves behind another device at its own port is heard no longer.
    model.move("unit", 6, "");
    EXPECT_EQ("1.1@0/6 2.1@0/6 3.1@0/6 | amp@6 unit@6", seen());
    model.move("unit", 6, "mic");
    EXPECT_EQ("1.1@0/6 2.1@0/6 3.1@0/6 | amp@6", seen());

    model.move("unit", 7, "");
    EXPECT_EQ(OPEN_E_NONE, model.unplug("amp"));
    EXPECT_EQ("1.1@0/7 | unit@7", seen());
    EXPECT_EQ(OPEN_E_NOT_FOUND, model.unplug("mic"));
    EXPECT_EQ(OPEN_E_NONE, model.plug(device("mic", 5, 3))) << "its name and address are free again";
}

TEST_F(ModelTest, WhatIsSilentOrGoneAges) {
    auto silent = device("silent", 2, 2);
    silent.lldp->ttl = 400;
    for (const auto &d : {device("talker", 1, 1), silent})
        model.plug(d);
    const std::string all = "1.1@0/1 2.1@0/2 | talker@1 silent@2";
    EXPECT_EQ(all, seenAfter(1000s));
    model.setTalking("silent", false);
    EXPECT_EQ(all, seenAfter(290s));
    EXPECT_EQ("1.1@0/1 | talker@1 silent@2", seenAfter(10s));
    EXPECT_EQ("1.1@0/1 | talker@1", seenAfter(100s));
    EXPECT_TRUE(model.interface(2)->linkUp) << "silence is no pulled cable";
    model.setTalking("silent", true);
    EXPECT_EQ(all, seen());
    for (const auto carrier : {Carrier::ForcedDown, Carrier::ForcedUp}) {
        model.setCarrier(1, carrier);
        EXPECT_EQ(carrier == Carrier::ForcedUp ? all : "2.1@0/2 | silent@2", seen());
    }
    // With the link kept up, entries and neighbours of what is gone stay until they age.
    model.unplug("talker");
    EXPECT_EQ(all, seenAfter(119s));
    EXPECT_EQ("2.1@0/2 | silent@2", seenAfter(181s));
}

TEST_F(ModelTest, VlanOfAnEntryFollowsAssociationTagAndPvid) {
    model.plug(device("plain", 1, 1));
    auto tagged = device("tagged", 1, 2);
    tagged.tag = 30;
    model.plug(tagged);
    EXPECT_EQ("1.1@0/1", fdb());

    for (const auto n : {1u, 2u})
        EXPECT_EQ(OPEN_E_NONE, model.associateMac(mac(n), 20));
    EXPECT_EQ("1.20@0/1", fdb()) << "an association is for untagged frames";
    model.createVlan(30);
    EXPECT_EQ("1.20@0/1", fdb()) << "tagged frames need membership";
    model.setParticipation(1, 30, kInclude);
    model.setPvid(1, 30);
    EXPECT_EQ("1.20@0/1 2.30@0/1", fdb());
    EXPECT_EQ(OPEN_E_NONE, model.dissociateMac(mac(1)));
    EXPECT_EQ("1.30@0/1 2.30@0/1", fdb());

    // Deleting a VLAN takes everything that names it; devices are where the defaults put them.
    model.associateMac(mac(1), 30);
    model.setTagging(1, 30, true);
    model.system().mgmtVlan = 30;
    EXPECT_EQ(OPEN_E_NONE, model.setRouting(30, true));
    EXPECT_TRUE(model.vlanUp(30) && !model.vlanUp(20));
    EXPECT_EQ(OPEN_E_NONE, model.deleteVlan(30));
    EXPECT_TRUE(model.macAssociations().size() == 1 && model.system().mgmtVlan == 1 &&
                model.routing().empty());
    EXPECT_EQ("1.1@0/1", fdb());
}

TEST_F(ModelTest, ALagForwardsForItsMembers) {
    plugOneEach(3);
    model.createVlan(40);
    model.setPvid(kLag, 40);
    for (const IfNum port : {1u, 2u})
        EXPECT_EQ(OPEN_E_NONE, model.lagAdd(kLag, port));
    EXPECT_EQ("1.40@lag 1 2.40@lag 1 3.1@0/3", fdb());
    EXPECT_EQ(OPEN_E_FAIL, model.lagAdd(kLag + 1, 1));
    EXPECT_EQ(OPEN_E_FULL, model.lagAdd(kLag, 3));
    EXPECT_EQ(OPEN_E_NOT_FOUND, model.lagRemove(kLag, 3));
    model.setAdmin(kLag, false);
    EXPECT_EQ("3.1@0/3 | 1@1 2@2 3@3", seen()) << "a LAG that is shut down forwards nothing";
    model.setAdmin(kLag, true);
    model.lagRemove(kLag, 1);
    EXPECT_EQ("1.1@0/1 2.40@lag 1 3.1@0/3", fdb());
}

TEST_F(ModelTest, TableFillsAndRecovers) {
    restart(2);
    plugOneEach(3);
    EXPECT_EQ("1.1@0/1 2.1@0/2", fdb());
    EXPECT_EQ(1u, model.fdbRefused());
    EXPECT_EQ(OPEN_E_FULL, model.learn(mac(9), 1, 1));
    EXPECT_EQ(OPEN_E_NONE, model.learn(mac(1), 1, 1)) << "what is known stays fresh";
    model.unplug("1");
    pass(10s);
    EXPECT_EQ("2.1@0/2 3.1@0/3", fdb()) << "the next frames of the late one find room";
}

TEST_F(ModelTest, ChangesShowAfterTheLatencyInTheirOrder) {
    for (const VlanId id : {10u, 20u})
        model.createVlan(id);
    model.plug(device("a", 1, 1));
    model.setLatency(2s);
    model.setPvid(1, 10);
    pass(1s);
    model.setLatency(0s);
    model.setPvid(1, 20);
    model.setTagging(1, 20, true);
    EXPECT_EQ(1u, model.interface(1)->pvid) << "later changes do not overtake";
    EXPECT_EQ("1.1@0/1 | a@1", seenAfter(1s - 1us));
    EXPECT_EQ("1.20@0/1 | a@1", seenAfter(1us));
    EXPECT_TRUE(model.membership(1, 20).tagged);

    // Deleted and created again: nothing of the old one is left, nothing set on the new one is lost.
    model.setParticipation(1, 10, kInclude);
    model.nameVlan(10, "old");
    model.setLatency(2s);
    model.setPvid(2, 10);
    model.deleteVlan(10);
    model.setPvid(3, 20);
    EXPECT_EQ(OPEN_E_NONE, model.associateMac(mac(1), 10));
    EXPECT_EQ("VLAN0010", model.vlans().at(10).name);
    EXPECT_EQ(Model::defaultMembership(10), model.membership(1, 10));
    model.setTagging(1, 10, true);
    EXPECT_EQ(1u, model.interface(3)->pvid);
    pass(2s);
    EXPECT_TRUE(model.interface(2)->pvid == 1 && model.interface(3)->pvid == 20);
    EXPECT_TRUE(model.membership(1, 10).tagged);
    EXPECT_EQ(10u, model.macAssociations().at(mac(1)));
}

TEST_F(ModelTest, LogStaysOfBoundedSize) {
    for (int n = 0; n < 5000; ++n)
        model.log(n % 2 == 0 ? INT_MAX : INT_MIN, "c", "p", "line " + std::to_string(n));
    model.log(6, "c", "p", std::string(5000, 't'));
    EXPECT_EQ(model.config().logCapacity, model.logLines().size());
    EXPECT_GE(4096u, model.events().size());
    EXPECT_EQ(1024u, model.logLines().back().text.size());
    for (const auto &line : model.logLines())
        ASSERT_TRUE(line.severity >= 0 && line.severity <= 7);
}

// --- the rules, checked after each of many random steps

TEST_F(ModelTest, RulesHoldWhateverHappens) {
    for (const unsigned seed : {1u, 2u, 3u, 4u}) {
        restart(seed % 2 == 0 ? 6 : 100);
        std::mt19937 random(seed);
        const auto upTo = [&](unsigned max) { return static_cast<std::uint32_t>(random() % (max + 1)); };
        const auto name = [&] {
            return upTo(9) == 0 ? "" : std::string(1, static_cast<char>('a' + upTo(7)));
        };
        const auto id = [&] { return upTo(20) == 0 ? 4095 : upTo(6); };
        Device d;
        // What is listed more than once happens more often.
        const std::function<void()> steps[] = {
            [&] { model.plug(d); },
            [&] { model.plug(d); },
            [&] { model.unplug(d.name); },
            [&] { model.move(d.name, d.port, d.behind); },
            [&] { model.setTalking(d.name, d.talking); },
            [&] { model.setCarrier(upTo(9), static_cast<Carrier>(upTo(2))); },
            [&] { model.setAdmin(upTo(12), upTo(3) != 0); },
            [&] { model.createVlan(id()); },
            [&] { model.deleteVlan(id()); },
            [&] { model.setPvid(upTo(11), id()); },
            [&] { model.setParticipation(upTo(11), id(), upTo(3)); },
            [&] { model.setTagging(upTo(11), id(), upTo(1) == 0); },
            [&] { model.associateMac(mac(upTo(9)), id()); },
            [&] { model.dissociateMac(mac(upTo(9))); },
            [&] { model.lagAdd(upTo(12), upTo(10)); },
            [&] { model.lagRemove(upTo(12), upTo(10)); },
            [&] { model.learn(mac(upTo(255)), id(), upTo(9)); },
            [&] { model.setLatency(std::chrono::seconds(upTo(3))); },
            [&] { model.clearFdb(); },
            [&] { model.setDot1x(upTo(2) == 0); },
            [&] { model.setPortControl(upTo(9), upTo(4)); },
            [&] { model.setSupplicant(upTo(9), upTo(2) != 0); },
            [&] { pass(std::chrono::seconds(upTo(5))); },
            [&] { pass(std::chrono::seconds(upTo(400))); }};
        for (int step = 0; step < 4000; ++step) {
            d = device(name(), upTo(9), upTo(9), upTo(1) == 0 ? "" : name());
            d.macs.push_back(mac(upTo(200)));
            d.tag = upTo(2) == 0 ? id() : 0;
            d.talking = upTo(3) != 0;
            d.lldp->ttl = upTo(300);
            steps[upTo(std::size(steps) - 1)]();
            ASSERT_EQ("", test_support::brokenRule(model)) << "seed " << seed << ", step " << step;
        }
    }
}

}  // namespace
}  // namespace vswitch
