// The switch's own settings and hardware: clock, log, RADIUS, temperatures, fans, power supplies.
#include <gtest/gtest.h>

#include "platform/manual_clock.h"
#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

class SystemTest : public ControlFixture {};

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
    for (const auto *line : {"Clock synchronised to 10.0.0.1", "No SNTP server answers"})
        EXPECT_TRUE(contains(systemLog(), line)) << line;
    EXPECT_TRUE(contains(show("show sntp"), "Unicast"));
    configure("clock timezone +5:30 zone IST");
    EXPECT_TRUE(contains(show("show clock"), "IST (UTC+5:30)\nTime source is the local clock"));
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
    EXPECT_TRUE(contains(kept, "all of it") && contains(kept, "%% taken"));
    EXPECT_FALSE(contains(kept, "not taken") || contains(kept, "dropped"));
    EXPECT_TRUE(kept.starts_with("Buffered (In-Memory) Logging         : disabled\n"));
}

TEST_F(SystemTest, HardwareIsAsTheOutsideWorldMakesIt) {
    const auto before = control({{"op", "health"}});
    for (const auto *members :
         {R"("temperature":{"sensor":9})", R"("temperature":{"sensor":1,"celsius":301})",
          R"("temperature":{"sensor":0,"celsius":1})", R"("temperature":{"celsius":1})",
          R"("fan":{"fan":1,"state":"broken"})", R"("fan":{"fan":3,"state":"failed"})",
          R"("fan":{"fan":1,"state":"operational","rpm":20001})", R"("power":{"supply":-1,"state":"failed"})",
          R"("cpu":101)", R"("memory":{"totalKb":10,"freeKb":11})",
          R"("temperature":{"sensor":1,"celsius":90},"cpu":101)"}) {
        EXPECT_FALSE(control(std::string(R"({"op":"health",)") + members + "}")["ok"]) << members;
        EXPECT_EQ(control({{"op", "health"}}), before) << members;
    }
    const auto now = control(std::string(
        R"({"op":"health","temperature":{"sensor":2,"celsius":91},"fan":{"fan":2,"state":"failed"},
            "power":{"supply":1,"state":"absent"},"cpu":55,"memory":{"freeKb":1000}})"));
    EXPECT_TRUE(now["sensors"][1]["state"] == "critical" &&
                now["memory"]["totalKb"] == before["memory"]["totalKb"]);
    for (const auto *line : {"Temperature sensor PHY: critical, 91 degrees Celsius", "Fan 2: failed"})
        EXPECT_TRUE(contains(systemLog(), line)) << line;
    EXPECT_TRUE(contains(show("show environment"), "PHY               91       80       90        Critical"));
}

}  // namespace
}  // namespace vswitch
