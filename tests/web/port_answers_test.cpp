#include "web/port_answers.h"

#include <chrono>
#include <filesystem>

#include "store/producers.h"
#include "tests/web/web_fixture.h"

namespace {

using namespace test_support;
using namespace std::chrono_literals;
using platform::paths::kManualTrunkConfig;

const std::pair<const char *, Producer> kProducers[] = {
    {"getPhyInfAllStatusFast", getPhyInfAllStatusFast},
    {"getPortStatusListFast", getPortStatusListFast},
    {"getPortsSettings", getPortsSettings},
    {"interfacesStatusBuild", interfacesStatusBuild},
    {"getLagInfoList", getLagInfoList},
    {"getLagInfoListEx", getLagInfoListEx},
    {"getAutoLagCfg", getAutoLagCfg},
    {"manualTrunkGet", manualTrunkGet},
    {"switchTrunkModeGet", switchTrunkModeGet},
    {"getPortMirroring",
     [](openapiClientHandle_t *client, char **out) { return getPortMirroring(client, 1, out); }},
    {"portHardwareInfoBuild", portHardwareInfoBuild},
    {"fiberOpticsGet", fiberOpticsGet}};

class PortAnswersTest : public WebTest {
  protected:
    json port(const Producer &producer, std::uint32_t ifNum) {
        for (const auto &row : answer(producer))
            if (row.at("ifNum") == ifNum)
                return row;
        return json();
    }
    void setUpEverything() {
        startSwitch({.physicalPorts = 8, .lags = 2});
        commands(R"(vlan database; vlan 10,20; exit; configure; port-channel auto; switchport mode auto
monitor session 1 source interface 0/1 rx; monitor session 1 destination interface 0/3; monitor session 1 mode
interface 0/1; vlan tagging 10; vlan participation include 10,20; vlan pvid 20
interface 0/2; speed 100 half-duplex; interface 0/5-0/6; addport lag 1
interface lag 1; vlan participation include 10; vlan tagging 10)");
        auto slow = host("slow", 1, "00:1B:92:00:00:01", "desc");
        slow.speed = 100;
        ASSERT_EQ(OPEN_E_NONE, plug(slow));
        ASSERT_EQ(OPEN_E_NONE, plug(host("a", 5, "00:1B:92:00:00:05")));
        model([](vswitch::Model &m) {
            m.setErrorDisabled(4, OPEN_ERROR_DISABLE_BPDU_GUARD);
            m.addErrors(1, {.inErrors = (1ull << 53) + 1, .outDiscards = ~0ull});
            const std::string evil = "\"},{\\\x01\xe2\x82\xac\xff\xc3\n\xed\xa0\x80";
            m.edit(1)->description = m.edit(9)->lagName = evil;
            m.setSfp(7,
                     vswitch::SfpModule{evil + std::string(40, 'x'), std::string("\xf0\x9f\x98 ", 4), "    ",
                                        1310, vswitch::SfpDiagnostics{-5250, 3301, 6100, 5013, 0}});
        });
        writeText(kManualTrunkConfig, R"({"physicalPort": [1, 7], "lagPort": [1]})");
        platform::manual_clock::advance(60s);
    }
};

TEST_F(PortAnswersTest, APortTellsSettingsStatusAndCounters) {
    setUpEverything();
    EXPECT_EQ(port(getPhyInfAllStatusFast, 1),
              R"({"ifNum": 1, "unit": 1, "slot": 0, "port": 1, "name": "0/1", "adminEnabled": true,
        "description": "\"},{\\\u0001€??\n???", "autoNegotiation": true, "speedSet": null, "duplexSet": null,
        "mtu": 1518, "pvid": 20, "taggedVlans": [10], "linkUp": true, "speed": 100, "duplex": "full",
        "errorDisabled": false, "errorReason": null, "lag": null, "poe": false, "counters": {
            "inOctets": "154384", "outOctets": "154000", "inPackets": "608", "outPackets": "602",
            "inUnicast": "600", "inMulticast": "2", "inBroadcast": "6",
            "outUnicast": "600", "outMulticast": "2", "outBroadcast": "0",
            "inErrors": "9007199254740993", "outErrors": "0", "inDiscards": "0",
            "outDiscards": "18446744073709551615"}})"_json);
    EXPECT_EQ(port(getPortsSettings, 2),
              R"({"ifNum": 2, "unit": 1, "slot": 0, "port": 2, "name": "0/2", "adminEnabled": true,
        "description": "", "autoNegotiation": false, "speedSet": 100, "duplexSet": "half", "mtu": 1518,
        "pvid": 1, "taggedVlans": [], "lag": null, "poe": false})"_json);
    EXPECT_EQ(port(getPortStatusListFast, 4),
              R"({"ifNum": 4, "unit": 1, "slot": 0, "port": 4, "name": "0/4", "adminEnabled": true,
        "linkUp": false, "speed": null, "duplex": null, "errorDisabled": true, "errorReason": "bpdu-guard",
        "lag": null})"_json);
    const auto row = port(getPortStatusListFast, 5);
    EXPECT_EQ(1, row["lag"]);
    EXPECT_EQ(10000, row["speed"]) << "a port with a cage";
    EXPECT_EQ(8u, answer(getPortStatusListFast).size());
}

TEST_F(PortAnswersTest, InterfacesHaveTheirCountersUntilTheseAreCleared) {
    setUpEverything();
    auto all = answer(interfacesStatusBuild);
    EXPECT_EQ("600", all["ports"][4]["counters"]["inUnicast"]);
    EXPECT_EQ("600", all["lags"][0]["counters"]["inUnicast"]);
    EXPECT_EQ(10000, all["lags"][0]["speed"]);
    EXPECT_EQ("[5, 6]"_json, all["lags"][0]["members"]);
    EXPECT_TRUE(all["lags"][1]["linkUp"] == false && all["lags"][1]["speed"].is_null());
    commands("clear counters");
    const auto cleared = answer(interfacesStatusBuild);
    for (const auto &row : cleared["ports"])
        for (const auto &[name, count] : row["counters"].items())
            EXPECT_EQ("0", count) << row["name"] << name;
    platform::manual_clock::advance(1s);
    all = answer(interfacesStatusBuild);
    EXPECT_EQ("10", all["ports"][0]["counters"]["inUnicast"]);
    EXPECT_EQ("0", all["ports"][0]["counters"]["inErrors"]);
}

// A live port's packets are counted together.
TEST_F(PortAnswersTest, WhatAPortDoesNotTellIsLeftOut) {
    startSwitch({.physicalPorts = 2, .lags = 1});
    model([](vswitch::Model &m) {
        m.setLive(1);
        vswitch::PortCounters seen{.inOctets = 5000000000, .inPackets = 4};
        seen.in = seen.out = std::nullopt;
        m.seeWire(1, seen, 0);
        m.seeCarrier(1, true);
    });
    auto row = port(getPhyInfAllStatusFast, 1);
    EXPECT_EQ("5000000000", row["counters"]["inOctets"]);
    EXPECT_FALSE(row["counters"].contains("inUnicast"));
    EXPECT_TRUE(row["linkUp"] == true && !row.contains("speed") && !row.contains("duplex"));
    // Counters that start again, as those of a network interface made anew, do not run backwards.
    commands("clear counters 0/1");
    model([](vswitch::Model &m) { m.seeWire(1, {.inOctets = 100, .inPackets = 1}, 2500); });
    row = port(getPhyInfAllStatusFast, 1);
    EXPECT_TRUE(row["counters"]["inOctets"] == "100" && row["speed"] == 2500);
}

TEST_F(PortAnswersTest, LagsTellMembersAndWhoIsActive) {
    setUpEverything();
    commands(
        "configure; interface lag 1; no port-channel static; port-channel load-balance 6; description x");
    EXPECT_EQ(answer(getLagInfoList)[0],
              R"({"ifNum": 9, "lag": 1, "interface": "lag 1", "name": "\"},{\\\u0001€??\n???",
        "adminEnabled": true, "static": false, "hash": "ip", "linkUp": true, "speed": 10000, "duplex": "full",
        "members": [5, 6], "activeMembers": [5]})"_json);
    const auto extended = answer(getLagInfoListEx);
    EXPECT_EQ(2u, extended.size());
    EXPECT_EQ("x", extended[0]["description"]);
    EXPECT_EQ("[10]"_json, extended[0]["taggedVlans"]);
    EXPECT_EQ(json::array(), extended[1]["members"]);
    EXPECT_FALSE(extended[0].contains("speedSet")) << "a LAG has no speed of its own";
    EXPECT_EQ(answer(getAutoLagCfg), R"({"enabled": true, "hash": "mac"})"_json);
    commands("configure; no port-channel auto; port-channel auto load-balance 1");
    EXPECT_EQ(answer(getAutoLagCfg), R"({"enabled": false, "hash": "source-mac"})"_json);
}

TEST_F(PortAnswersTest, TrunksAreThoseOfTheFileAndThoseThatCarryTags) {
    setUpEverything();
    EXPECT_EQ(answer(manualTrunkGet), R"({"physicalPort": [1, 7], "lagPort": [1]})"_json);
    const auto trunks = answer(switchTrunkModeGet);
    EXPECT_TRUE(trunks["enabled"] == true && trunks["trunks"].size() == 2);
    EXPECT_EQ("0/1", trunks["trunks"][0]["name"]);
    EXPECT_EQ("[10]"_json, trunks["trunks"][1]["taggedVlans"]);
    commands("configure; interface 0/5; vlan participation include 10; vlan tagging 10");
    EXPECT_EQ(2u, answer(switchTrunkModeGet)["trunks"].size()) << "its LAG is one, it is not";
    std::filesystem::remove(platform::fsPath(kManualTrunkConfig));
    EXPECT_EQ(answer(manualTrunkGet), R"({"physicalPort": [], "lagPort": []})"_json);
    writeText(kManualTrunkConfig, R"({"physicalPort": [3, "4", 3, 0, 2.5, 913, -1, 912]})");
    EXPECT_EQ("[3, 912]"_json, answer(manualTrunkGet)["physicalPort"]);
    std::size_t lines = 0;
    for (const auto *damaged : {"", "{\"physicalPort\": [1", "[1]", "null"}) {
        writeText(kManualTrunkConfig, damaged);
        EXPECT_EQ("", text(manualTrunkGet)) << damaged;
        EXPECT_EQ(10000, result);
        EXPECT_EQ(++lines, logged("[manualTrunkGet:")) << log();
    }
}

TEST_F(PortAnswersTest, MirrorSessionsHaveSourcesAndADestination) {
    setUpEverything();
    commands(
        "configure; monitor session 1 source interface lag 1; monitor session 3 source interface 0/2 tx");
    EXPECT_EQ(answer(kProducers[9].second), R"({"maxSessions": 4, "sessions": [
        {"session": 1, "enabled": true, "destination": {"ifNum": 3, "name": "0/3"}, "sources": [
            {"ifNum": 1, "name": "0/1", "direction": "rx"}, {"ifNum": 9, "name": "lag 1", "direction": "both"}]},
        {"session": 3, "enabled": false, "destination": null, "sources": [
            {"ifNum": 2, "name": "0/2", "direction": "tx"}]}]})"_json);
    const auto brief = answer([](auto *handle, char **out) { return getPortMirroring(handle, 0, out); });
    EXPECT_FALSE(brief["sessions"][0]["destination"].contains("name"));
    commands("configure; no monitor session 1; no monitor session 3");
    EXPECT_EQ(json::array(), answer(kProducers[9].second)["sessions"]);
}

TEST_F(PortAnswersTest, HardwareAndTransceivers) {
    setUpEverything();
    EXPECT_EQ(port(portHardwareInfoBuild, 1),
              R"({"ifNum": 1, "unit": 1, "slot": 0, "port": 1, "name": "0/1", "adminEnabled": true,
        "media": "copper", "capabilities": {"speeds": [10, 100, 1000, 2500, 5000, 10000], "halfDuplex": true,
        "autoNegotiation": true, "poe": false}})"_json);
    EXPECT_EQ("sfp", port(portHardwareInfoBuild, 8)["media"]);
    const auto optics = answer(fiberOpticsGet);
    ASSERT_EQ(4u, optics.size()) << "ports with a cage alone";
    EXPECT_EQ(optics[0], R"({"ifNum": 5, "unit": 1, "slot": 0, "port": 5, "name": "0/5", "adminEnabled": true,
        "present": true, "vendor": "VSWITCH", "partNumber": "DAC-10G-1M", "serial": "DAC1005", "wavelength": null,
        "temperature": null, "voltage": null, "bias": null, "txPower": null, "txPowerDbm": null, "rxPower": null,
        "rxPowerDbm": null})"_json);
    EXPECT_TRUE(optics[1]["present"] == false && !optics[1].contains("vendor"));
    EXPECT_EQ(optics[2], R"({"ifNum": 7, "unit": 1, "slot": 0, "port": 7, "name": "0/7", "adminEnabled": true,
        "present": true, "vendor": "\"},{\\\u0001€??\n???x", "partNumber": "???", "serial": "", "wavelength": 1310,
        "temperature": -5.25, "voltage": 3.301, "bias": 6.1, "txPower": 0.5013, "txPowerDbm": -3.0, "rxPower": 0,
        "rxPowerDbm": null})"_json);
}

TEST_F(PortAnswersTest, AnyCallAndAnyAllocationMayFail) {
    setUpEverything();
    for (const auto &[name, producer] : kProducers) {
        const bool noCalls = name == std::string("manualTrunkGet");
        const auto [failures, partial] = failEachCall(name, producer);
        EXPECT_EQ(!noCalls, failures > 0) << name;
        EXPECT_EQ(!noCalls && std::string(name) != "getAutoLagCfg", partial > 0) << name;
    }
    startSwitch({.physicalPorts = 2, .lags = 1});
    commands("configure; monitor session 1 source interface 0/1; interface 0/1; vlan tagging 1");
    for (const auto &[name, producer] : kProducers) {
        SCOPED_TRACE(name);
        failEachAllocation(producer);
        char *out = nullptr;
        EXPECT_EQ(10003, producer(nullptr, &out));
        EXPECT_EQ(10003, producer(&client, nullptr));
    }
    EXPECT_LT(100u, logged("out of memory"));
}

// Each page of the largest switch, in calls to it.
TEST_F(PortAnswersTest, CallsGrowWithInterfacesAlone) {
    startSwitch({.physicalPorts = 512, .lags = 128});
    commands("vlan database; vlan 10-3000");
    for (const auto &[name, producer] : kProducers) {
        calls();
        answer(producer);
        EXPECT_EQ(0, result) << name;
        EXPECT_LE(calls(), 17u * (512 + 128)) << name;
    }
}

}  // namespace
