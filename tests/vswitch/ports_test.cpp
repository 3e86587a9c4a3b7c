// Speed, error state, transceivers, counters and mirroring of the virtual switch's ports.
#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/switch_fixture.h"
#include "vswitch/cli/command.h"
#include "vswitch/dataplane/port_counters.h"
#include "vswitch/server/saved_state.h"

namespace vswitch {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

class PortsTest : public testing::Test {
  protected:
    void SetUp() override { model.advanceTo(100s, {}); }

    void advance(Duration time) { model.advanceTo(now += time, {}); }
    Device device(const std::string &name, IfNum port, std::uint32_t speed = 0) {
        Device out;
        out.name = name;
        out.port = port;
        out.macs = {Mac::parse("00:1B:92:00:00:00")->plus(++macs)};
        out.speed = speed;
        return out;
    }
    void apply(const std::string &script) {
        std::istringstream in(script);
        std::string lines = "configure\n";
        for (std::string line; std::getline(in, line, ';');)
            lines += line + "\n";
        const auto printed = cli.runScript(lines);
        EXPECT_EQ(std::string::npos, printed.find("Error on line")) << printed;
    }
    // How the switch answers one line of the configuration; empty when it takes it.
    std::string tried(const std::string &line) {
        CliSession session;
        cli.run(session, "configure");
        return cli.run(session, line);
    }
    std::string link(IfNum ifNum) {
        const auto speed = model.linkSpeed(ifNum);
        return speed ? std::to_string(speed->mbps) + (speed->duplex == OPEN_DUPLEX_HALF ? " half" : " full")
                     : "down";
    }

    Model model;
    Cli cli{model};
    Duration now = 100s;
    std::uint32_t macs = 0;
};

TEST_F(PortsTest, ALinkHasTheSpeedThatBothSidesCanDo) {
    for (const auto &[text, mbps, duplex] :
         {std::tuple{"auto", 0u, OPEN_DUPLEX_AUTO}, std::tuple{"10 half-duplex", 10u, OPEN_DUPLEX_HALF},
          std::tuple{"2.5G full-duplex", 2500u, OPEN_DUPLEX_FULL},
          std::tuple{"100G full-duplex", 100000u, OPEN_DUPLEX_FULL}})
        EXPECT_EQ((PortSpeed{mbps, static_cast<std::uint32_t>(duplex)}), parseSpeed(text)) << text;
    EXPECT_EQ("down", link(1));
    model.plug(device("any", 1));
    model.plug(device("cage", 48));
    model.plug(device("slow", 2, 100));
    auto hub = device("hub", 3, 10);
    hub.halfDuplex = true;
    model.plug(hub);
    EXPECT_EQ("1000 full, 10000 full, 100 full, 10 half",
              link(1) + ", " + link(48) + ", " + link(2) + ", " + link(3));
    // A fixed speed is the link's, where the device can do it.
    apply("interface 0/1-0/3;speed 1000 full-duplex");
    EXPECT_EQ("1000 full, down, down", link(1) + ", " + link(2) + ", " + link(3));
    EXPECT_TRUE(model.fdb().size() == 2);
    apply("interface 0/1-0/3;speed 100 half-duplex;interface 0/3;speed auto");
    EXPECT_EQ("100 half, 100 half, 10 half", link(1) + ", " + link(2) + ", " + link(3));
    apply("interface 0/1-0/2;addport lag 1");
    EXPECT_EQ("200 full", link(model.lagIfNum(1)));
}

TEST_F(PortsTest, AnErrorKeepsAPortDownUntilItIsEnabledAgain) {
    model.plug(device("a", 5));
    ASSERT_EQ(OPEN_E_NONE, model.setErrorDisabled(5, *errorReasonOf("link-flap")));
    EXPECT_FALSE(model.interface(5)->linkUp);
    EXPECT_TRUE(model.interface(5)->adminUp && model.fdb().empty());
    EXPECT_NE(std::string::npos, cli.show("show logging buffered")->find("0/5 is error-disabled: link-flap"));
    EXPECT_NE(std::string::npos,
              cli.show("show port status all")
                  ->find("0/5        Copper   auto                           Down  link-flap\n"))
        << *cli.show("show port status all");
    EXPECT_EQ(std::string::npos, cli::runningConfig(model).find("interface 0/5")) << "it is no setting";
    apply("interface 0/5;no shutdown");
    EXPECT_TRUE(model.interface(5)->linkUp && model.fdb().size() == 1);
    EXPECT_EQ(OPEN_E_PARAM, model.setErrorDisabled(5, 99));
    EXPECT_EQ(OPEN_E_PARAM, model.setErrorDisabled(model.lagIfNum(1), OPEN_ERROR_DISABLE_UDLD));
}

// What a port has counted depends on what happened and when, not on when somebody looked.
TEST_F(PortsTest, CountersAreAFunctionOfTime) {
    Model other;
    other.advanceTo(100s, {});
    const auto both = [&](auto change) {
        change(model);
        change(other);
    };
    auto a = device("a", 5), b = device("b", 5);
    a.lldp.emplace();
    b.behind = "a";
    std::uint64_t seen = 0;
    const auto pass = [&](int seconds) {
        for (int i = 0; i < 7 * seconds; ++i) {
            advance(Duration(1s) / 7);
            const auto inOctets = model.counters(5).inOctets;
            EXPECT_GE(inOctets, seen);
            seen = inOctets;
        }
        other.advanceTo(now, {});
    };
    pass(5);
    both([&](Model &m) { m.plug(a); });
    pass(65);
    both([&](Model &m) { m.plug(b); });
    pass(40);
    both([&](Model &m) { m.setTalking("b", false); });
    pass(20);
    both([&](Model &m) { m.setAdmin(5, false); });
    pass(100);
    both([&](Model &m) { m.setAdmin(5, true); });
    pass(20);
    both([&](Model &m) { m.move("a", 6, ""); });
    pass(50);
    for (const IfNum port : {5u, 6u, 7u}) {
        const auto one = model.counters(port), two = other.counters(port);
        EXPECT_TRUE(one.inOctets == two.inOctets && one.outOctets == two.outOctets &&
                    one.in->multicast == two.in->multicast && one.inPackets == two.inPackets)
            << port;
        EXPECT_EQ(one.inPackets, one.in->unicast + one.in->multicast + one.in->broadcast);
    }
    // Talked: a for 145 s, b for 40 s; a was heard as long as it talked.
    const auto counted = model.counters(5);
    EXPECT_NEAR(1850, static_cast<double>(counted.in->unicast), 3);
    EXPECT_NEAR(18, static_cast<double>(counted.in->broadcast), 1);
    EXPECT_NEAR(4, static_cast<double>(counted.in->multicast), 1);
    EXPECT_EQ(0u, model.counters(7).inPackets + model.counters(7).outPackets);

    model.addErrors(5, {.inErrors = ~0ull, .outErrors = 3});
    model.addErrors(5, {.inErrors = 2});
    EXPECT_EQ(1u, model.counters(5).inErrors) << "counters wrap around";
    CliSession session;
    cli.run(session, "clear counters 0/5");
    EXPECT_EQ(0u, model.counters(5).inOctets + model.counters(5).inErrors);
    EXPECT_NE(0u, model.counters(6).inOctets);
    cli.run(session, "clear counters");
    EXPECT_EQ(0u, model.counters(6).inOctets);
    advance(10s);
    EXPECT_EQ(100u, model.counters(6).in->unicast);
    EXPECT_NE(std::string::npos, cli.show("show interface counters")->find("\n0/6        25664 "))
        << *cli.show("show interface counters");
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
    const auto shown = *cli.show("show fiber-ports optics all");
    EXPECT_NE(std::string::npos,
              shown.find("\n0/25       ACME.xxxxxxxxxxx SR               1                40.0"))
        << shown;
    model.setSfp(25, std::nullopt);
    EXPECT_TRUE(model.sfp(25)->wavelength == 0 && model.interface(25)->linkUp);
    model.unplug("a");
    EXPECT_FALSE(model.sfp(25));
    Model small({.physicalPorts = 3, .sfpPorts = 3});
    EXPECT_TRUE(small.interface(3)->hasCage && !small.interface(2)->hasCage);
}

TEST_F(PortsTest, AMirrorListensWhereNothingElseIs) {
    apply(
        "monitor session 1 source interface 0/1;monitor session 1 destination interface 0/5;"
        "interface 0/7;addport lag 1");
    const auto before = cli::runningConfig(model);
    for (const auto *refused :
         {"monitor session 1 source interface 0/5", "monitor session 1 destination interface 0/1",
          "monitor session 2 destination interface 0/5", "monitor session 2 destination interface 0/7",
          "no monitor session 1 source interface 0/2", "monitor session 1 destination interface 0/99",
          "monitor session 5 mode", "monitor session 0 mode",
          "monitor session 1 source interface 0/1 sideways"})
        EXPECT_NE("", tried(refused)) << refused;
    EXPECT_EQ(OPEN_E_FAIL, model.lagAdd(model.lagIfNum(1), 5)) << "it would no longer be a port of its own";
    EXPECT_EQ(before, cli::runningConfig(model));
    EXPECT_EQ("", tried("monitor session 1 destination interface 0/5")) << "as it is";
    EXPECT_EQ("", tried("monitor session 1 destination interface 0/6"));
    EXPECT_EQ(OPEN_E_NONE, model.lagAdd(model.lagIfNum(1), 5));
    EXPECT_EQ(
        "Session  Admin    Destination  Source      Direction\n"
        "-------  -------  -----------  ----------  ---------\n"
        "1        Disable  0/6          0/1         both\n",
        *cli.show("show monitor session 1"));
}

constexpr const char *kSettings =
    "port-channel auto;port-channel auto load-balance 5;monitor session 1 source interface 0/1;"
    "monitor session 1 source interface 0/2 rx;monitor session 1 source interface lag 2 tx;"
    "monitor session 1 destination interface 0/5;monitor session 1 mode;"
    "monitor session 4 source interface 0/5 tx;interface lag 1;port-channel load-balance 6";

TEST_F(PortsTest, SettingsComeBackAsTheyWere) {
    const auto fresh = cli::runningConfig(model);
    for (const auto *word : {"monitor", "load-balance", "port-channel auto", "sfp"})
        EXPECT_EQ(std::string::npos, fresh.find(word));
    apply(kSettings);
    const auto config = cli::runningConfig(model);
    std::istringstream lines(kSettings);
    for (std::string line; std::getline(lines, line, ';');)
        EXPECT_NE(std::string::npos, config.find("\n" + line + "\n")) << line << config;
    Model other;
    other.advanceTo(100s, {});
    Cli second(other);
    second.runScript(config);
    EXPECT_EQ(config, cli::runningConfig(other));
    EXPECT_EQ(0u, second.refusedCommands() + second.unknownCommands());
    EXPECT_NE(std::string::npos, second.show("show auto-lag")->find("Load Balance............. 5\n"));
    apply(
        "no port-channel auto;no port-channel auto load-balance;no monitor session 1 source interface 0/1;"
        "no monitor session 1 source interface 0/2;no monitor session 1 source interface lag 2;"
        "no monitor session 1 destination interface;no monitor session 1 mode;no monitor session 4;"
        "interface lag 1;no port-channel load-balance");
    EXPECT_EQ(fresh, cli::runningConfig(model));
    EXPECT_NE("", tried("interface 0/1; port-channel load-balance 1"));
}

// --- as an operator and the kernel see them

class PortsControlTest : public test_support::SwitchTest {
  protected:
    json control(const std::string &request) {
        return json::parse(device->with([&](Server &server) { return server.control(request); }));
    }
};

TEST_F(PortsControlTest, TheOutsideWorldIsSetByRequests) {
    for (
        const auto *done :
        {R"({"op":"plug","name":"a","port":1,"mac":"00:1B:92:00:00:01","speed":100,"halfDuplex":true})",
         R"({"op":"sfp","port":"0/30","vendor":"ACME","part":"LR","serial":"7","wavelength":1310,"temperature":-5000})",
         R"({"op":"errors","port":"0/1","inErrors":18446744073709551615,"outDiscards":4})",
         R"({"op":"errdisable","port":"0/2","reason":"udld"})"})
        EXPECT_EQ(true, control(done)["ok"]) << done;
    device->with([](Server &server) {
        const auto &model = std::as_const(server).model();
        EXPECT_EQ(OPEN_DUPLEX_HALF, model.linkSpeed(1)->duplex);
        EXPECT_EQ(-5000, model.sfp(30)->diagnostics->temperature);
        EXPECT_EQ(~0ull, model.counters(1).inErrors);
        EXPECT_EQ(OPEN_ERROR_DISABLE_UDLD, model.interface(2)->errorDisabled);
    });
    EXPECT_EQ("ACME", control(R"({"op":"table","name":"sfp"})")["rows"][0]["vendor"]);
    EXPECT_EQ(4, control(R"({"op":"table","name":"counters"})")["rows"][0]["outDiscards"]);
    EXPECT_EQ(true, control(R"({"op":"sfp","port":"0/30","remove":true})")["ok"]);
    EXPECT_EQ(json::array(), control(R"({"op":"table","name":"sfp"})")["rows"]);
    for (const auto *refused :
         {R"({"op":"sfp","port":"0/1","vendor":"ACME"})",
          R"({"op":"sfp","port":"0/30","temperature":2147483648})",
          R"({"op":"sfp","port":"0/30","temperature":1.5})", R"({"op":"sfp","port":"0/30","wavelength":-1})",
          R"({"op":"errdisable","port":"0/2","reason":"boredom"})",
          R"({"op":"errdisable","port":"0/99","reason":"udld"})",
          R"({"op":"errors","port":"0/1","inErrors":-1})", R"({"op":"errors","port":"0/99"})",
          R"({"op":"plug","name":"b","port":3,"mac":"00:1B:92:00:00:02","speed":-1})"})
        EXPECT_EQ(false, control(refused)["ok"]) << refused;
    EXPECT_EQ(json::array(), control(R"({"op":"table","name":"sfp"})")["rows"]);
}

TEST_F(PortsControlTest, SettingsAreInTheSavedState) {
    const auto path = platform::fsPath("/tmp/state");
    device->with([&](Server &server) {
        SavedState state(server, path);
        server.cli().runScript("configure\nmonitor session 2 source interface 0/9 rx\nport-channel auto\n");
        EXPECT_TRUE(state.keep());
        Server other;
        EXPECT_TRUE(SavedState(other, path).restore());
        const auto config = other.cli().show("show running-config").value();
        EXPECT_NE(std::string::npos, config.find("monitor session 2 source interface 0/9 rx\n"));
        EXPECT_NE(std::string::npos, config.find("port-channel auto\n"));
    });
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
