#include "vswitch/server/control.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

class ControlTest : public ControlFixture {
  protected:
    // All that a control request can change.
    std::string state() {
        std::string out;
        for (const char *name :
             {"ports", "lags", "vlans", "associations", "fdb", "lldp", "devices", "igmp", "sfp", "counters"})
            out += table(name).dump();
        return out + control({{"op", "latency"}}).dump() + control({{"op", "faults"}}).dump();
    }
};

TEST_F(ControlTest, RefusedRequestsSayWhyAndChangeNothing) {
    ASSERT_EQ(OPEN_E_NONE, plug(host("a", 1, "00:1B:92:00:00:01", "desc")));
    const auto before = state();
    const std::string bomb(1 << 20, '[');
    const auto expectRefused = [&](const std::string &request) {
        const auto answer = control(request);
        EXPECT_FALSE(answer.value("ok", true)) << request.substr(0, 80);
        EXPECT_NE("", answer.value("error", "")) << request.substr(0, 80);
    };
    for (const auto &text : {std::string(), std::string("\xff"), bomb, R"({"op":"exec","lines":)" + bomb,
                             std::string("{"), std::string("[]"), std::string(R"({"op":5})")})
        expectRefused(text);
    for (const char *port : {"null", "\"1\"", "\"0/\"", "\"0/1x\"", "\"0/-1\"", "\"0/4294967297\"",
                             "4294967297", "1.5", "-1", "49", "0"})
        expectRefused(R"({"op":"plug","name":"b","port":)" + std::string(port) + "}");
    for (const char *rest :
         {R"("mac":5)", R"("mac":"00:1B:92:00:00:0")", R"("mac":"00:1B:92:00:00:01")",
          R"("macs":["00:1B:92:00:00:02",7])", R"("mac":"00:1B:92:00:00:02","count":65537)",
          R"("mac":"00:1B:92:00:00:02","count":-1)", R"("vlan":4095)", R"("behind":"a")", R"("lldp":[])",
          R"("lldp":{"ttl":"1"})", R"("talking":1)", R"("groups":["10.0.0.1"])", R"("groups":"239.1.1.1")",
          R"("speed":-1)"})
        expectRefused(R"({"op":"plug","name":"b","port":2,)" + std::string(rest) + "}");
    // What follows {"op":" in each.
    const std::string requests =
        R"(plug","port":2 | plug","name":"","port":2 | plug","name":"b" | unplug" | unplug","name":"b"
move","name":"a" | move","name":"a","port":"0/2","behind":"a" | talk","name":"a","on":"no"
link","port":"0/1","state":"sideways" | link","port":"0/99","state":"down"
igmp","action":"join","name":"a","group":"239.1.1" | igmp","action":"join","name":"a","group":"10.0.0.1"
igmp","action":"join","name":"b","group":"239.1.1.1" | igmp","action":"leave","name":"a","group":"239.1.1.1"
igmp","action":"enter","name":"a","group":"239.1.1.1" | igmp","action":"join","name":"a","group":"239.255.255.255","count":2
igmp","action":"join","name":"a","group":"239.1.1.1","version":4 | igmp","action":"join","name":"a","group":7
exec","lines":["vlan database","vlan 10",5] | exec","lines":"vlan database" | cli","line":5
latency","ms":-5 | latency","ms":"5" | fault","call":5 | fault","nth":-1 | fault","code":2147483648
fault","once":1 | fault","kill":"now" | fault","process":5 | faults","clear":"yes" | table","name":"bogus" | events","since":-1 | counters","reset":0
sfp","port":"0/1","vendor":"ACME" | sfp","port":"0/30","temperature":2147483648 | sfp","port":"0/30","temperature":1.5
sfp","port":"0/30","wavelength":-1 | errors","port":"0/1","inErrors":-1 | errors","port":"0/99"
errdisable","port":"0/2","reason":"boredom" | errdisable","port":"0/99","reason":"udld")";
    const std::regex separator(" \\| |\n");
    for (std::sregex_token_iterator it(requests.begin(), requests.end(), separator, -1), end; it != end; ++it)
        expectRefused(R"({"op":")" + it->str() + "}");
    EXPECT_EQ(before, state());
}

// The caller is this process: it notes what the switch was like when it would have died.
TEST_F(ControlTest, AFaultKillsTheCallerOfTheNthCall) {
    std::vector<bool> vlanAtDeath;
    device->with([&](Server &server) {
        server.setKiller([&](Server &dying, pid_t caller) {
            EXPECT_EQ(::getpid(), caller);
            vlanAtDeath.push_back(dying.model().hasVlan(10));
        });
    });
    const auto create = [&] { return rpcclt_openapiVlanCreate(&client, 10); };
    const json self = std::to_string(::getpid());
    control({{"op", "fault"}, {"nth", 2}, {"kill", "before"}, {"process", self}});
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiConnectivityCheck(&client));
    EXPECT_EQ(OPEN_E_RPC, create());
    control({{"op", "fault"}, {"call", "rpcclt_openapiVlanCreate"}, {"kill", "after"}});
    control({{"op", "fault"}, {"kill", "after"}, {"process", "nobody"}});
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiConnectivityCheck(&client));
    EXPECT_EQ(OPEN_E_RPC, create());
    EXPECT_EQ(OPEN_E_NONE, create()) << "each strikes once";
    EXPECT_EQ((std::vector{false, true}), vlanAtDeath) << "before the call was carried out, and after it";
    EXPECT_EQ(5u, control({{"op", "counters"}})["total"]);
    EXPECT_EQ(0u, control({{"op", "faults"}})["faults"].back()["seen"]) << "the calls of another process";
}

TEST_F(ControlTest, OperationsDoWhatTheySay) {
    // What follows {"op":" in each.
    for (const char *request :
         {R"(plug","name":"unit","port":"0/5","mac":"00:1B:92:01:00:01","ip":"10.0.0.2","lldp":{})",
          R"(plug","name":"amp","port":5,"macs":["00:1B:92:02:00:01"],"behind":"unit")",
          R"(move","name":"unit","port":"0/7")", R"(latency","ms":250)",
          R"(exec","lines":["vlan database","vlan association mac 00:1B:92:02:00:01 20"])",
          R"(fault","call":"x","nth":3,"code":-3,"once":true)"})
        EXPECT_TRUE(control(R"({"op":")" + std::string(request) + "}")["ok"]) << request;
    EXPECT_EQ(json::parse(R"([{"mac":"00:1B:92:01:00:01","vlan":1,"interface":"0/7","port":7,"learned":true},
                              {"mac":"00:1B:92:02:00:01","vlan":20,"interface":"0/7","port":7,"learned":true}])"),
              table("fdb"));
    EXPECT_EQ("10.0.0.2", table("lldp").at(0)["mgmtAddress"]);
    EXPECT_EQ(250, control({{"op", "latency"}})["ms"]);
    EXPECT_EQ(json::parse(R"([{"call":"x","nth":3,"code":-3,"once":true,"seen":0}])"),
              control({{"op", "faults"}})["faults"]);

    // Sessions keep their mode, each its own.
    control({{"op", "cli"}, {"session", "s"}, {"line", "configure"}});
    EXPECT_EQ("(avswitch) (Config)#", control({{"op", "cli"}, {"session", "s"}})["prompt"]);
    EXPECT_EQ("(avswitch) #", control({{"op", "cli"}, {"session", "t"}})["prompt"]);

    const auto events = control({{"op", "events"}});
    const auto last = events["last"].get<std::uint64_t>();
    EXPECT_EQ(last, events["events"].back()["number"]);
    control({{"op", "link"}, {"port", "0/7"}, {"state", "down"}});
    const auto newer = control({{"op", "events"}, {"since", last}})["events"];
    EXPECT_EQ("Link Down: 0/7", newer.back()["text"]);
    EXPECT_EQ(last + 1, newer.front()["number"]);

    control({{"op", "exec"}, {"lines", {"bogus"}}});
    rpcclt_openapiConnectivityCheck(&client);
    const auto counters = control({{"op", "counters"}, {"reset", true}});
    EXPECT_EQ(1, counters["unknownCommands"]);
    EXPECT_EQ(1, counters["calls"]["rpcclt_openapiConnectivityCheck"]);
    EXPECT_EQ(0, control({{"op", "counters"}})["total"]);
}

}  // namespace
}  // namespace vswitch
