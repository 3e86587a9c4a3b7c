// The switch's own settings and hardware: clock, log, RADIUS, 802.1X, temperatures, fans, power supplies.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "platform/manual_clock.h"
#include "tests/support/switch_fixture.h"
#include "vswitch/cli/command.h"
#include "vswitch/server/saved_state.h"

namespace vswitch {
namespace {

using nlohmann::json;

class SystemTest : public test_support::SwitchTest {
  protected:
    json control(const json &request) {
        return json::parse(device->with([&](Server &server) { return server.control(request.dump()); }));
    }
    template <class Read>
    auto model(Read read) {
        return device->with([&](Server &server) { return read(server.model()); });
    }
    // Without the heading, which tells the time.
    std::string config() {
        const auto text = show("show running-config");
        return text.substr(text.find(" secs\"\n"));
    }
    std::string configure(const std::string &commands) {
        std::vector<std::string> lines{"configure"};
        std::istringstream in(std::regex_replace(commands, std::regex("; "), "\n"));
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return cli(lines);
    }
};

constexpr const char *kEverything =
    R"(snmp-server location "Rack 3; \"left\" \\"; snmp-server contact "caf\xe9"
clock timezone -3:30 zone NST; sntp client mode broadcast; sntp server fe80::1 3 123
sntp server time.example 1 1123; no logging buffered; logging console debug; logging syslog
logging host 10.0.0.7 1514 notice; radius server timeout 7; radius server retransmit 2
radius server host auth 10.0.0.5 name "the \"main\" one" port 1645 priority 1
radius server host acct 10.0.0.5 name "" port 1813 priority 8
radius server key auth 10.0.0.5 "open sesame"; interface 0/1-0/2; dot1x reauthentication
dot1x timeout reauth-period 60)";

TEST_F(SystemTest, ConfigurationSurvivesARestart) {
    const auto fresh = config();
    for (const auto *words : {"snmp", "clock", "sntp", "logging", "radius", "reauth"})
        EXPECT_EQ(fresh.find(words), std::string::npos) << words << " is not in a default configuration";
    // The semicolon in the location is none between commands.
    EXPECT_EQ("", cli({"configure", "snmp-server location \"Rack 3; \\\"left\\\"\""}));
    EXPECT_EQ(
        "", configure(std::string(kEverything).substr(std::string(kEverything).find("snmp-server contact"))));
    const auto path = platform::fsPath("/tmp/state");
    device->with([&](Server &server) { EXPECT_TRUE(SavedState(server, path).keep()); });
    EXPECT_EQ(test_support::readFile("/tmp/state").find("sesame"), std::string::npos);
    Server other;
    SavedState its(other, path);
    ASSERT_TRUE(its.restore());
    EXPECT_EQ(other.cli().unknownCommands() + other.cli().refusedCommands(), 0u);
    const auto again = other.cli().show("show running-config").value();
    EXPECT_EQ(again.substr(again.find(" secs\"\n")), config());
    const auto &settings = std::as_const(other).model().settings();
    EXPECT_EQ(settings.location, "Rack 3; \"left\"");
    EXPECT_EQ(settings.clock.offsetMinutes, -210);
    EXPECT_EQ(settings.radius.servers.at({OPEN_RADIUS_AUTH, "10.0.0.5"}).secret, "open sesame");
    EXPECT_EQ(settings.radius.servers.at({OPEN_RADIUS_AUTH, "10.0.0.5"}).name, "the \"main\" one");

    EXPECT_EQ("", configure(R"(no snmp-server location; no snmp-server contact; no clock timezone
no sntp client mode; no sntp server fe80::1; no sntp server time.example; logging buffered; no logging console
no logging syslog; no logging host 10.0.0.7; no radius server timeout; no radius server retransmit
no radius server key auth 10.0.0.5; no radius server host auth 10.0.0.5; no radius server host acct 10.0.0.5
interface 0/1-0/2; no dot1x reauthentication; no dot1x timeout reauth-period)"));
    EXPECT_EQ(config(), fresh);
}

TEST_F(SystemTest, RefusedSettingsChangeNothing) {
    const auto fresh = config();
    const std::string refused =
        R"(clock timezone 15; clock timezone +; clock timezone -12:30; clock timezone 1:60
clock timezone 1:; clock timezone --1; clock timezone 1 zone ABCDEFGHI; clock timezone 1 zone "A B"
sntp server "a b"; sntp server ""; no sntp server 10.0.0.1; logging host "x;y"; no logging host 10.0.0.1
radius server host auth "a b"; radius server key auth 10.0.0.1 x; no radius server host auth 10.0.0.1
radius server key auth 10.0.0.1 hidden 00; snmp-server location ""
interface lag 1; dot1x reauthentication; dot1x timeout reauth-period 5)";
    std::istringstream in(std::regex_replace(refused, std::regex("; "), "\n"));
    int count = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("interface"))
            continue;
        const std::string before = line.starts_with("dot1x") ? "interface lag 1; " : "";
        EXPECT_NE("", configure(before + line)) << line;
        ++count;
    }
    EXPECT_NE("", configure("snmp-server contact " + std::string(256, 'x')));
    EXPECT_EQ(config(), fresh);
    device->with([&](Server &server) {
        EXPECT_EQ(server.cli().refusedCommands(), static_cast<std::uint64_t>(count + 1));
        EXPECT_EQ(server.cli().unknownCommands(), 0u);
    });
    // A secret that is none, and more servers than there is room for.
    EXPECT_EQ("", configure("radius server host auth 10.0.0.1"));
    for (const auto *hidden : {"0", "0G", "ABCDEF", "7f"})
        EXPECT_NE("", configure(std::string("radius server key auth 10.0.0.1 hidden ") + hidden)) << hidden;
    for (int i = 0; i < 40; ++i) {
        const auto address = "10.0.1." + std::to_string(i);
        for (const auto *words : {"radius server host auth ", "logging host ", "sntp server "})
            configure(words + address);
    }
    model([](Model &m) {
        EXPECT_EQ(m.settings().radius.servers.size(), kRadiusServersMax);
        EXPECT_EQ(m.settings().log.hosts.size(), kLogHostsMax);
        EXPECT_EQ(m.settings().clock.servers.size(), kSntpServersMax);
    });
}

TEST_F(SystemTest, TheClockIsSetByServersThatAnswer) {
    configure("sntp client mode unicast; sntp server 10.0.0.1 2; sntp server 10.0.0.2 1");
    const auto to = [&] { return model([](Model &m) { return m.sntp().synchronisedTo; }); };
    const auto at = [&](const char *name, IfNum port, const char *mac, const char *ip) {
        auto what = host(name, port, mac);
        what.ip = ip;
        return plug(what);
    };
    at("one", 1, "00:1B:92:00:00:01", "10.0.0.1");
    EXPECT_EQ(to(), "") << "asked again in a minute";
    platform::manual_clock::advance(kSntpPollInterval);
    EXPECT_EQ(to(), "10.0.0.1");
    at("two", 2, "00:1B:92:00:00:02", "10.0.0.2");
    platform::manual_clock::advance(kSntpPollInterval);
    EXPECT_EQ(to(), "10.0.0.2") << "the higher priority";
    configure("no sntp server 10.0.0.2");
    EXPECT_EQ(to(), "10.0.0.1") << "a change is taken up at once";
    configure("interface 0/1; shutdown");
    platform::manual_clock::advance(kSntpPollInterval);
    EXPECT_EQ(to(), "");
    EXPECT_NE(systemLog().find("Clock synchronised to 10.0.0.1"), std::string::npos);
    EXPECT_NE(systemLog().find("No SNTP server answers"), std::string::npos);
    EXPECT_NE(show("show sntp").find("Unicast"), std::string::npos);
    configure("clock timezone +5:30 zone IST");
    EXPECT_NE(show("show clock").find("IST (UTC+5:30)\nTime source is the local clock"), std::string::npos);
}

TEST_F(SystemTest, TheLogKeepsWhatItsLevelSays) {
    const auto log = [&](int severity, const char *text) {
        model([&](Model &m) { m.log(severity, "TEST", "here", text); });
    };
    log(7, "all of it");
    configure("logging buffered warning");
    log(4, "taken");
    log(5, "not taken");
    configure("no logging buffered");
    log(0, "dropped");
    const auto kept = systemLog();
    EXPECT_NE(kept.find("all of it"), std::string::npos);
    EXPECT_NE(kept.find("%% taken"), std::string::npos);
    EXPECT_EQ(kept.find("not taken"), std::string::npos);
    EXPECT_EQ(kept.find("dropped"), std::string::npos);
    EXPECT_TRUE(kept.starts_with("Buffered (In-Memory) Logging         : disabled\n"));
    EXPECT_NE(show("show logging").find("Buffered Logging.............................. disabled"),
              std::string::npos);
}

TEST_F(SystemTest, PortsAreAuthorizedBySupplicants) {
    const auto authorized = [&](IfNum port) { return model([&](Model &m) { return m.authorized(port); }); };
    EXPECT_TRUE(authorized(1)) << "802.1X is off";
    EXPECT_FALSE(authorized(49)) << "a LAG";
    configure(
        "dot1x system-auth-control; interface 0/2; dot1x port-control force-authorized; interface 0/3; "
        "dot1x port-control force-unauthorized");
    EXPECT_TRUE(!authorized(1) && authorized(2) && !authorized(3));
    const json login = {{"op", "supplicant"}, {"port", "0/1"}};
    EXPECT_FALSE(control(login)["ok"]) << "nobody is there";
    plug(host("pc", 1, "00:1B:92:00:00:01"));
    EXPECT_TRUE(control(login)["ok"]);
    EXPECT_TRUE(authorized(1));
    control({{"op", "link"}, {"port", "0/1"}, {"state", "down"}});
    control({{"op", "link"}, {"port", "0/1"}, {"state", "auto"}});
    EXPECT_FALSE(authorized(1)) << "whoever comes next has to authenticate";
    control(login);
    EXPECT_TRUE(authorized(1));
    control({{"op", "supplicant"}, {"port", 1}, {"accepted", false}});
    EXPECT_FALSE(authorized(1));
    EXPECT_FALSE(control({{"op", "supplicant"}, {"port", 99}})["ok"]);
    EXPECT_NE(show("show dot1x summary").find("0/3        force-unauthorized  Unauthorized  No       3600"),
              std::string::npos);
}

TEST_F(SystemTest, HardwareIsAsTheOutsideWorldMakesIt) {
    const auto before = control({{"op", "health"}});
    const json refused[] = {{{"temperature", {{"sensor", 9}}}},
                            {{"temperature", {{"sensor", 1}, {"celsius", 301}}}},
                            {{"temperature", {{"sensor", 0}, {"celsius", 1}}}},
                            {{"temperature", {{"celsius", 1}}}},
                            {{"fan", {{"fan", 1}, {"state", "broken"}}}},
                            {{"fan", {{"fan", 3}, {"state", "failed"}}}},
                            {{"fan", {{"fan", 1}, {"state", "operational"}, {"rpm", 20001}}}},
                            {{"power", {{"supply", -1}, {"state", "failed"}}}},
                            {{"cpu", 101}},
                            {{"memory", {{"totalKb", 10}, {"freeKb", 11}}}},
                            {{"temperature", {{"sensor", 1}, {"celsius", 90}}}, {"cpu", 101}}};
    for (auto request : refused) {
        request["op"] = "health";
        EXPECT_FALSE(control(request)["ok"]) << request;
        EXPECT_EQ(control({{"op", "health"}}), before) << request;
    }
    const auto now = control({{"op", "health"},
                              {"temperature", {{"sensor", 2}, {"celsius", 91}}},
                              {"fan", {{"fan", 2}, {"state", "failed"}}},
                              {"power", {{"supply", 1}, {"state", "absent"}}},
                              {"cpu", 55},
                              {"memory", {{"freeKb", 1000}}}});
    EXPECT_EQ(now["sensors"][1]["state"], "critical");
    EXPECT_EQ(now["fans"][1], (json{{"name", "Fan 2"}, {"rpm", 0}, {"state", "failed"}}));
    EXPECT_EQ(now["supplies"][0]["state"], "absent");
    EXPECT_TRUE(now["cpu"] == 55 && now["memory"]["freeKb"] == 1000 &&
                now["memory"]["totalKb"] == before["memory"]["totalKb"]);
    const auto lines = systemLog();
    EXPECT_NE(lines.find("Temperature sensor PHY: critical, 91 degrees Celsius"), std::string::npos);
    EXPECT_NE(lines.find("Fan 2: failed"), std::string::npos);
    EXPECT_NE(show("show environment").find("PHY               91       80       90        Critical"),
              std::string::npos);
    control({{"op", "health"}, {"fan", {{"fan", 2}, {"state", "operational"}, {"rpm", 3000}}}});
    EXPECT_EQ(control({{"op", "health"}})["fans"][1]["rpm"], 3000);
}

}  // namespace
}  // namespace vswitch
