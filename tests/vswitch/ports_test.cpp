// Speed, error state, transceivers, counters and mirroring of the virtual switch's ports.
#include <gtest/gtest.h>

#include "tests/vswitch/fixtures.h"
#include "vswitch/dataplane/port_counters.h"

namespace vswitch {
namespace {

class PortsTest : public ModelFixture {
  protected:
    Device device(const std::string &name, IfNum port, std::uint32_t speed = 0) {
        Device out{name, port, "", {mac(++macs)}, 0, "", {}};
        out.speed = speed;
        return out;
    }
    // Links of the ports, "1000 full down".
    std::string links(std::initializer_list<IfNum> ports) {
        std::string out;
        for (const auto port : ports) {
            const auto speed = model.linkSpeed(port);
            out +=
                (out.empty() ? "" : ", ") +
                (speed ? std::to_string(speed->mbps) + (speed->duplex == OPEN_DUPLEX_HALF ? " half" : " full")
                       : "down");
        }
        return out;
    }

    std::uint32_t macs = 0;
};

TEST_F(PortsTest, ALinkHasTheSpeedThatBothSidesCanDo) {
    EXPECT_EQ("down", links({1}));
    auto hub = device("hub", 3, 10);
    hub.halfDuplex = true;
    for (const auto &d : {device("any", 1), device("cage", 48), device("slow", 2, 100), hub})
        model.plug(d);
    EXPECT_EQ("1000 full, 10000 full, 100 full, 10 half", links({1, 48, 2, 3}));
    // A fixed speed is the link's, where the device can do it.
    configure("interface 0/1-0/3; speed 1000 full-duplex");
    EXPECT_EQ("1000 full, down, down", links({1, 2, 3}));
    EXPECT_EQ(2u, model.fdb().size());
    configure("interface 0/1-0/3; speed 100 half-duplex; interface 0/3; speed auto");
    EXPECT_EQ("100 half, 100 half, 10 half", links({1, 2, 3}));
    configure("interface 0/1-0/2; addport lag 1");
    EXPECT_EQ("200 full", links({model.lagIfNum(1)}));
    configure("interface 0/48; speed 2.5G full-duplex");
    EXPECT_EQ("2500 full", links({48}));
}

TEST_F(PortsTest, AnErrorKeepsAPortDownUntilItIsEnabledAgain) {
    model.plug(device("a", 5));
    ASSERT_EQ(OPEN_E_NONE, model.setErrorDisabled(5, *errorReasonOf("link-flap")));
    EXPECT_FALSE(model.interface(5)->linkUp);
    EXPECT_TRUE(model.interface(5)->adminUp && model.fdb().empty());
    EXPECT_TRUE(contains(show("logging buffered"), "0/5 is error-disabled: link-flap"));
    EXPECT_TRUE(contains(show("port status all"),
                         "0/5        Copper   auto                           Down  link-flap\n"));
    EXPECT_FALSE(contains(runningConfig(), "interface 0/5")) << "it is no setting";
    configure("interface 0/5; no shutdown");
    EXPECT_TRUE(model.interface(5)->linkUp && model.fdb().size() == 1);
    EXPECT_EQ(OPEN_E_PARAM, model.setErrorDisabled(5, 99));
    EXPECT_EQ(OPEN_E_PARAM, model.setErrorDisabled(model.lagIfNum(1), OPEN_ERROR_DISABLE_UDLD));
}

// What a port has counted depends on what happened and when, not on when somebody looked.
TEST_F(PortsTest, CountersAreAFunctionOfTime) {
    Model other;
    auto a = device("a", 5), b = device("b", 5);
    a.lldp.emplace();
    b.behind = "a";
    std::uint64_t seen = 0;
    // Only one of them is looked at all the time.
    const auto waited = [&](int seconds, const std::function<void(Model &)> &change) {
        for (int i = 0; i < 7 * seconds; ++i) {
            pass(Duration(1s) / 7);
            const auto inOctets = model.counters(5).inOctets;
            EXPECT_GE(inOctets, seen);
            seen = inOctets;
        }
        other.advanceTo(now, {});
        change(model);
        change(other);
    };
    waited(5, [&](Model &m) { m.plug(a); });
    waited(65, [&](Model &m) { m.plug(b); });
    waited(40, [&](Model &m) { m.setTalking("b", false); });
    waited(20, [&](Model &m) { m.setAdmin(5, false); });
    waited(100, [&](Model &m) { m.setAdmin(5, true); });
    waited(20, [&](Model &m) { m.move("a", 6, ""); });
    waited(50, [](Model &) {});
    for (const IfNum port : {5u, 6u, 7u}) {
        const auto one = model.counters(port), two = other.counters(port);
        EXPECT_TRUE(one.inOctets == two.inOctets && one.outOctets == two.outOctets &&
                    one.in->multicast == two.in->multicast && one.inPackets == two.inPackets)
            << port;
        EXPECT_EQ(one.inPackets, one.in->unicast + one.in->multicast + one.in->broadcast);
    }
    // Talked: a for 145 s, b for 40 s; a was heard as long as it talked.
    const auto counted = model.counters(5).in.value();
    EXPECT_NEAR(1850, static_cast<double>(counted.unicast), 3);
    EXPECT_NEAR(18, static_cast<double>(counted.broadcast), 1);
    EXPECT_NEAR(4, static_cast<double>(counted.multicast), 1);
    EXPECT_EQ(0u, model.counters(7).inPackets + model.counters(7).outPackets);

    model.addErrors(5, {.inErrors = ~0ull, .outErrors = 3});
    model.addErrors(5, {.inErrors = 2});
    EXPECT_EQ(1u, model.counters(5).inErrors) << "counters wrap around";
    apply("clear counters 0/5");
    EXPECT_EQ(0u, model.counters(5).inOctets + model.counters(5).inErrors);
    EXPECT_NE(0u, model.counters(6).inOctets);
    apply("clear counters");
    pass(10s);
    EXPECT_EQ(100u, model.counters(6).in->unicast);
    EXPECT_TRUE(contains(show("interface counters"), "\n0/6        25664 "));
}

TEST_F(PortsTest, TransceiversAreInCages) {
    EXPECT_EQ(OPEN_E_PARAM, model.setSfp(24, SfpModule{}));
    EXPECT_FALSE(model.sfp(25));
    model.plug(device("a", 25));
    EXPECT_EQ("DAC-10G-1M", model.sfp(25)->partNumber) << "the end of its cable";
    const SfpModule module{"ACME\n" + std::string(20, 'x'), "SR", "1", 850,
                           SfpDiagnostics{40000, 3300, 6000, 5000, 1}};
    ASSERT_EQ(OPEN_E_NONE, model.setSfp(25, module));
    EXPECT_EQ(kSfpTextMax, model.sfp(25)->vendor.size());
    EXPECT_TRUE(contains(show("fiber-ports optics all"),
                         "\n0/25       ACME.xxxxxxxxxxx SR               1                40.0"));
    model.setSfp(25, std::nullopt);
    EXPECT_TRUE(model.sfp(25)->wavelength == 0 && model.interface(25)->linkUp);
    model.unplug("a");
    EXPECT_FALSE(model.sfp(25));
    Model small({.physicalPorts = 3, .sfpPorts = 3});
    EXPECT_TRUE(small.interface(3)->hasCage && !small.interface(2)->hasCage);
}

TEST_F(PortsTest, AMirrorListensWhereNothingElseIs) {
    const std::string head = "monitor session 1 ";
    configure(head + "source interface 0/1; " + head + "destination interface 0/5");
    EXPECT_EQ(OPEN_E_FAIL, model.lagAdd(model.lagIfNum(1), 5)) << "it would no longer be a port of its own";
    for (const auto *port : {"0/5", "0/6"})
        configure(head + "destination interface " + port);
    EXPECT_EQ(0u, errors());
    EXPECT_EQ(OPEN_E_NONE, model.lagAdd(model.lagIfNum(1), 5));
    EXPECT_TRUE(contains(show("monitor session 1"), "\n1        Disable  0/6          0/1         both\n"));
}

TEST(PortCountersTest, LinesOfTheKernelAreRead) {
    const auto counted = parseNetDev(
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo "
        "colls\n"
        "    lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
        "sw-p1:18446744073709551615 2 3 4 0 0 0 0 9 10 11 12 0 0 0 0\n"
        " short: 1 2 3\n wrong: 1 x 3 4 5 6 7 8 9 10 11 12\n no colon\n:\n");
    ASSERT_EQ(2u, counted.size());
    const auto &port = counted.at("sw-p1");
    EXPECT_EQ(~0ull, port.inOctets);
    EXPECT_EQ((std::vector<std::uint64_t>{2, 3, 4, 9, 10, 11, 12}),
              (std::vector{port.inPackets, port.inErrors, port.inDiscards, port.outOctets, port.outPackets,
                           port.outErrors, port.outDiscards}));
    EXPECT_FALSE(port.in || port.out);
    // The loopback interface is always there.
    Model model;
    model.advanceTo({}, {});
    model.setLive(1);
    seeWires(model, {{1, "lo"}, {2, "no-such-one"}});
    EXPECT_FALSE(model.counters(1).in);
}

}  // namespace
}  // namespace vswitch
