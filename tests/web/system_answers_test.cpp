#include "web/system_answers.h"

#include <filesystem>

#include "platform/manual_clock.h"
#include "store/profile_db.h"
#include "store/profile_db_ops.h"
#include "tests/web/web_fixture.h"

namespace {

using namespace test_support;
using platform::paths::kProfileDb;

using TextProducer = std::int32_t (*)(openapiClientHandle_t *, char **);
using BufferProducer = std::int32_t (*)(openapiClientHandle_t *, char *, std::size_t);

constexpr std::pair<const char *, TextProducer> kTexts[] = {
    {"systemInfoGet", systemInfoGet},         {"deviceHealthGet", deviceHealthGet},
    {"getSpecialInfInfo", getSpecialInfInfo}, {"getPortAuthConfigJson", getPortAuthConfigJson},
    {"switchPtpModeGet", switchPtpModeGet},   {"switchConfigVlanList", switchConfigVlanList},
    {"profileListExGet", profileListExGet}};

struct Buffer {
    const char *name;
    BufferProducer produce;
    std::size_t size;
};
constexpr Buffer kBuffers[] = {{"getDeviceTime", getDeviceTime, 1024},
                               {"getLogConfigJson", getLogConfigJson, 4096},
                               {"getImageInfo", getImageInfo, 4096},
                               {"getRadiusServerJson", getRadiusServerJson, 8192},
                               {"ProfileTemplateGet", ProfileTemplateGet, 30720}};

constexpr const char *kSecret = "open sesame";

class SystemAnswersTest : public WebTest {
  protected:
    void SetUp() override {
        WebTest::SetUp();
        startSwitch({.physicalPorts = 3, .lags = 2});
    }

    json of(BufferProducer produce, std::size_t size) {
        std::string buffer(size, '\0');
        result = produce(&client, buffer.data(), size);
        return result == 0 ? json::parse(buffer.c_str()) : json();
    }
    // Every answer, for what holds for all of them.
    std::vector<std::pair<std::string, std::function<json()>>> answers() {
        std::vector<std::pair<std::string, std::function<json()>>> all;
        for (const auto &[name, produce] : kTexts)
            all.emplace_back(name, [this, run = produce] { return answer(run); });
        for (const auto &buffer : kBuffers)
            all.emplace_back(buffer.name, [this, &buffer] { return of(buffer.produce, buffer.size); });
        return all;
    }
    void configure() {
        commands(
            "vlan database; vlan 10,20; vlan name 20 \"Stage left\"; exit; configure; hostname \"Hall\"; "
            "snmp-server location \"Rack 3\"; snmp-server contact \"House\"; ip management vlan 10 "
            "192.168.1.2 "
            "255.255.255.0; ip default-gateway 192.168.1.1; clock timezone -3:30 zone NST; sntp client mode "
            "unicast; sntp server 10.0.0.9 2; sntp server time.example 1 1123; logging buffered warning; "
            "logging console; logging syslog; logging host 10.0.0.7 1514 notice; radius server timeout 7; "
            "radius server host auth 10.0.0.5 name \"main\" port 1645 priority 1; radius server host acct "
            "10.0.0.6; radius server key auth 10.0.0.5 \"open sesame\"; dot1x system-auth-control; dot1as; "
            "ptp clock e2e-transparent; interface 0/2; vlan pvid 10; vlan participation include 20; vlan "
            "tagging "
            "20; dot1as; no ptp clock e2e-transparent; dot1x port-control force-authorized; dot1x "
            "reauthentication; dot1x timeout reauth-period 600; exit; interface 0/3; addport lag 2; exit; "
            "interface lag 2; vlan pvid 20; exit; interface vlan 10; routing; ip address 10.0.0.1 255.0.0.0; "
            "interface vlan 20; routing; end");
        plug(host("pc", 2, "00:1B:92:00:00:01"));
    }
    void fillDatabase() {
        vlanInfoTableCreate();
        ASSERT_TRUE(replaceProfileRow({10, 2, "Show", "Dante", "#102030"}));
    }
};

TEST_F(SystemAnswersTest, TheSwitchItself) {
    configure();
    platform::manual_clock::advance(std::chrono::seconds(90));
    const auto info = answer(systemInfoGet);
    EXPECT_EQ(info["upTime"], 90);
    const auto expected = json::parse(R"({"hostName": "Hall", "location": "Rack 3", "contact": "House",
        "model": "AVM4848-24X", "serialNumber": "VS0000001", "macAddress": "02:50:56:00:10:00",
        "osVersion": "8.6.3.1", "apiVersion": "1.25.0.1", "upTime": 90, "management": {"vlanId": 10,
        "mode": "static", "address": "192.168.1.2", "mask": "255.255.255.0", "gateway": "192.168.1.1",
        "up": true}})");
    EXPECT_EQ(info, expected);
    commands("configure; ip management vlan 1 dhcp; no ip default-gateway");
    EXPECT_EQ(answer(systemInfoGet)["management"],
              json::parse(R"({"vlanId": 1, "mode": "dhcp", "up": true})"))
        << "no address is no 0.0.0.0";
}

TEST_F(SystemAnswersTest, HealthFollowsTheHardware) {
    const auto fresh = answer(deviceHealthGet);
    EXPECT_EQ(fresh["temperature"][0],
              json::parse(R"({"sensor": 1, "name": "MAC", "state": "normal", "celsius": 52,
                              "warningAbove": 85, "criticalAbove": 95})"));
    EXPECT_EQ(fresh["fans"][1], json::parse(R"({"fan": 2, "name": "Fan 2", "state": "ok", "rpm": 4200})"));
    EXPECT_EQ(fresh["powerSupplies"][0],
              json::parse(R"({"supply": 1, "name": "Power supply 1", "state": "ok"})"));
    EXPECT_EQ(fresh["memory"], json::parse(R"({"totalKb": 1048576, "freeKb": 655360})"));
    model([](vswitch::Model &model) {
        EXPECT_EQ(OPEN_E_NONE, model.setTemperature(1, 96));
        EXPECT_EQ(OPEN_E_NONE, model.setTemperature(2, -40));
        EXPECT_EQ(OPEN_E_NONE, model.setTemperature(3, 20, false));
        EXPECT_EQ(OPEN_E_NONE, model.setFan(1, vswitch::UnitState::Failed, 4200));
        EXPECT_EQ(OPEN_E_NONE, model.setPowerSupply(2, vswitch::UnitState::Absent));
        EXPECT_EQ(OPEN_E_NONE, model.setLoad(93, 2000, 100));
    });
    const auto now = answer(deviceHealthGet);
    const auto &sensors = now["temperature"];
    EXPECT_TRUE(sensors[0]["state"] == "critical" && sensors[1]["celsius"] == -40);
    EXPECT_TRUE(sensors[2]["state"] == "failed" && !sensors[2].contains("celsius"));
    EXPECT_TRUE(now["fans"][0]["state"] == "failed" && now["fans"][0]["rpm"] == 0);
    EXPECT_EQ(now["powerSupplies"][1]["state"], "absent");
    EXPECT_EQ(now["cpu"]["percent"], 93);
}

TEST_F(SystemAnswersTest, InterfacesWithAddresses) {
    configure();
    EXPECT_EQ(answer(getSpecialInfInfo), json::parse(R"([
        {"type": "management", "vlanId": 10, "method": "static", "address": "192.168.1.2",
         "mask": "255.255.255.0", "gateway": "192.168.1.1", "up": true},
        {"type": "vlan", "vlanId": 10, "method": "static", "address": "10.0.0.1", "mask": "255.0.0.0",
         "up": true},
        {"type": "vlan", "vlanId": 20, "method": "none", "up": true}])"));
    unplug("pc");
    EXPECT_EQ(answer(getSpecialInfInfo)[1]["up"], false);
}

TEST_F(SystemAnswersTest, TimeAndWhereItComesFrom) {
    configure();
    auto time = of(getDeviceTime, 1024);
    EXPECT_EQ(time["timeZone"], json::parse(R"({"offsetMinutes": -210, "name": "NST"})"));
    EXPECT_TRUE(time["time"].get<std::string>().ends_with("-03:30"));
    EXPECT_EQ(time["sntp"], json::parse(R"({"mode": "unicast", "synchronised": false, "servers":
        [{"host": "10.0.0.9", "port": 123, "priority": 2},
         {"host": "time.example", "port": 1123, "priority": 1}]})"));
    auto clock = host("clock", 1, "00:1B:92:00:00:02");
    clock.ip = "10.0.0.9";
    plug(clock);
    platform::manual_clock::advance(vswitch::kSntpPollInterval);
    time = of(getDeviceTime, 1024);
    EXPECT_TRUE(time["sntp"]["synchronised"] == true && time["sntp"]["synchronisedTo"] == "10.0.0.9");
    EXPECT_EQ(time["sntp"]["lastUpdate"], time["utc"]);
    unplug("clock");
    platform::manual_clock::advance(vswitch::kSntpPollInterval);
    const auto later = of(getDeviceTime, 1024);
    EXPECT_FALSE(later["sntp"]["synchronised"].get<bool>() || later["sntp"].contains("synchronisedTo"));
    EXPECT_EQ(later["sntp"]["lastUpdate"], time["sntp"]["lastUpdate"]) << "the last answer was then";
    commands("configure; no clock timezone");
    EXPECT_TRUE(of(getDeviceTime, 1024)["time"].get<std::string>().ends_with("+00:00"));
}

TEST_F(SystemAnswersTest, LogImagesRadius) {
    configure();
    EXPECT_EQ(of(getLogConfigJson, 4096), json::parse(R"({"buffered": {"enabled": true, "level": "warning"},
        "console": {"enabled": true, "level": "alert"}, "syslog": {"enabled": true},
        "hosts": [{"host": "10.0.0.7", "port": 1514, "level": "notice"}]})"));
    model([](vswitch::Model &m) {
        m.system().backupImage = "8.5.0.2";
        m.system().nextActive = "backup";
    });
    EXPECT_EQ(of(getImageInfo, 4096), json::parse(R"({"osVersion": "8.6.3.1", "units": [{"unit": 1,
        "active": "8.6.3.1", "backup": "8.5.0.2", "currentActive": "8.6.3.1", "nextActive": "8.5.0.2"}]})"));
    model([](vswitch::Model &m) { m.system().activeImage.clear(); });
    EXPECT_EQ(of(getImageInfo, 4096), json()) << "a row that cannot be read is not the end of the list";
    EXPECT_EQ(logged("the switch shows no boot images"), 1u);
    EXPECT_EQ(of(getRadiusServerJson, 8192), json::parse(R"({"timeout": 7, "retransmit": 4, "servers": [
        {"host": "10.0.0.5", "name": "main", "type": "auth", "port": 1645, "priority": 1, "secretSet": true},
        {"host": "10.0.0.6", "name": "", "type": "acct", "port": 1813, "priority": 8, "secretSet": false}]})"));
}

TEST_F(SystemAnswersTest, PortsOf8021XAndPtp) {
    configure();
    auto ports = answer(getPortAuthConfigJson);
    EXPECT_TRUE(ports["enabled"].get<bool>() && ports["ports"].size() == 3);
    EXPECT_EQ(ports["ports"][0], json::parse(R"({"port": 1, "name": "0/1", "controlMode": "auto",
        "state": "unauthorized", "reauthentication": false, "reauthPeriod": 3600})"));
    EXPECT_EQ(ports["ports"][1], json::parse(R"({"port": 2, "name": "0/2", "controlMode": "forceAuthorized",
        "state": "authorized", "reauthentication": true, "reauthPeriod": 600})"));
    EXPECT_EQ(answer(switchPtpModeGet), json::parse(R"({"transparentClock": true, "dot1as": true, "ports": [
        {"port": 1, "name": "0/1", "transparentClock": true, "dot1as": false},
        {"port": 2, "name": "0/2", "transparentClock": false, "dot1as": true},
        {"port": 3, "name": "0/3", "transparentClock": true, "dot1as": false}]})"));
}

TEST_F(SystemAnswersTest, VlansWithProfilesAndMembers) {
    configure();
    const auto names = [&] {
        std::string out;
        for (const auto &vlan : answer(switchConfigVlanList))
            out += vlan["name"].get<std::string>() + " ";
        return out;
    };
    EXPECT_EQ(names(), "Default VLAN0010 Stage left ") << "without a profile database";
    fillDatabase();
    EXPECT_EQ(answer(switchConfigVlanList), json::parse(R"([
        {"vlanId": 1, "name": "Default", "color": "#000000", "isStatic": true, "isManagement": false,
         "vlanType": 1, "profileType": "Default", "ports": {"untagged": [1, 3], "tagged": []},
         "lags": {"untagged": [], "tagged": []}},
        {"vlanId": 10, "name": "Show", "color": "#102030", "isStatic": true, "isManagement": true,
         "vlanType": 2, "profileType": "Dante", "ports": {"untagged": [2], "tagged": []},
         "lags": {"untagged": [], "tagged": []}},
        {"vlanId": 20, "name": "Stage left", "color": "#000000", "isStatic": true, "isManagement": false,
         "vlanType": 1, "profileType": "Default", "ports": {"untagged": [], "tagged": [2]},
         "lags": {"untagged": [2], "tagged": []}}])"));
    writeText(kProfileDb, "no database");
    EXPECT_EQ(names(), "") << "what cannot be read is not the default";
    EXPECT_EQ(result, 10000);
}

TEST_F(SystemAnswersTest, ProfileTemplatesThatAreOffered) {
    namespace fs = std::filesystem;
    const auto folder = std::string(platform::paths::kProfileTemplateDir);
    EXPECT_EQ(of(ProfileTemplateGet, 30720), json()) << "no folder";
    EXPECT_EQ(result, 10000);
    fs::create_directories(platform::fsPath(folder));
    EXPECT_EQ(of(ProfileTemplateGet, 30720), json::array());
    writeText((folder + "A").c_str(), R"({"name": "caf)"
                                      "\xe9\"}");
    writeText((folder + "B").c_str(), R"({"name": "broken")");
    writeText((folder + "C").c_str(), "{} {}");
    writeText((folder + "D").c_str(), R"({"name": "last"})");
    EXPECT_EQ(of(ProfileTemplateGet, 30720), json::parse(R"([{"name": "caf?"}, {"name": "last"}])"));
    EXPECT_EQ(logged("is no JSON"), 2u);
    failCall("rpcclt_openapiSystemRegMachineModelGet");
    EXPECT_EQ(of(ProfileTemplateGet, 30720), json()) << "an unknown model is none with fewer templates";
}

TEST_F(SystemAnswersTest, WhateverStringsHoldTheAnswerParses) {
    const std::string evil = "x\xff\xc3 \"quoted\" \\ \xed\xa0\x80 </script>";
    model([&](vswitch::Model &m) {
        auto &system = m.system();
        auto &settings = m.settings();
        system.hostName = system.serialNumber = system.osVersion = system.machineModel = evil;
        settings.location = settings.contact = settings.clock.zone = evil + "\n\x01";
        settings.clock.servers = {{evil}};
        settings.log.hosts = {{evil}};
        settings.radius.servers = {{{OPEN_RADIUS_AUTH, evil}, {evil, 1, 1, kSecret}}};
    });
    vlanInfoTableCreate();
    ASSERT_TRUE(replaceProfileRow({1, 1, evil, evil, "#\xff\""}));
    std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
    for (const auto &[name, answer] : answers()) {
        SCOPED_TRACE(name);
        const auto parsed = answer();
        EXPECT_EQ(result, 0) << log();
        EXPECT_EQ(parsed.dump().find(kSecret), std::string::npos);
    }
    EXPECT_EQ(answer(systemInfoGet)["location"], "x?? \"quoted\" \\ ??? </script>\n\x01");
}

TEST_F(SystemAnswersTest, NoSecretLeavesTheSwitch) {
    configure();
    for (const auto *command : {"show running-config", "show radius servers", "show logging buffered"})
        EXPECT_EQ(show(command).find(kSecret), std::string::npos) << command;
    EXPECT_EQ(of(getRadiusServerJson, 8192).dump().find("sesame"), std::string::npos);
}

TEST_F(SystemAnswersTest, BuffersAreNeverExceeded) {
    configure();
    std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
    for (const auto &buffer : kBuffers) {
        SCOPED_TRACE(buffer.name);
        std::string whole(buffer.size, '\0');
        ASSERT_EQ(buffer.produce(&client, whole.data(), buffer.size), 0);
        const auto length = std::string(whole.c_str()).size();
        for (const std::size_t size : {std::size_t{0}, std::size_t{1}, length / 2, length}) {
            std::string small(size + 8, '#');
            const auto lines = logged("ERROR");
            EXPECT_EQ(buffer.produce(&client, small.data(), size), 10000);
            EXPECT_EQ(small, std::string(size + 8, '#')) << "untouched";
            EXPECT_EQ(logged("ERROR"), lines + 1);
        }
        std::string exact(length + 1, '#');
        EXPECT_EQ(buffer.produce(&client, exact.data(), length + 1), 0);
        EXPECT_EQ(exact.c_str(), std::string(whole.c_str()));
        EXPECT_EQ(buffer.produce(nullptr, exact.data(), length + 1), 10003);
        EXPECT_EQ(buffer.produce(&client, nullptr, length + 1), 10003);
    }
    for (const auto &[name, produce] : kTexts) {
        SCOPED_TRACE(name);
        char untouched = 'x', *text = &untouched;
        EXPECT_EQ(produce(nullptr, &text), 10003);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(produce(&client, nullptr), 10003);
    }
}

TEST_F(SystemAnswersTest, AnyCallAndAnyAllocationMayFail) {
    configure();
    fillDatabase();
    std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
    for (const auto &[name, produced] : answers()) {
        SCOPED_TRACE(name);
        const auto [failures, partial] = failEachCall(name, produced);
        EXPECT_LT(0, failures + partial);
        // A switch that is gone fails them all.
        const auto lines = logged("ERROR");
        device->setDown(true);
        EXPECT_TRUE(produced().is_null());
        EXPECT_NE(result, 0);
        EXPECT_LE(logged("ERROR") - lines, 2u);
        device->setDown(false);
        ASSERT_EQ(OPEN_E_NONE, rpcclt_openapiConnectivityCheck(&client));
        if (name != "profileListExGet" && name != "ProfileTemplateGet")
            EXPECT_GT(failEachAllocation(produced), 10);
    }
}

// What a switch does not offer is no failure, and none of its answers make up a value.
TEST_F(SystemAnswersTest, WhatIsNotOfferedIsLeftOut) {
    failCall("rpcclt_openapiSystemUpTimeGet", 1, false, OPEN_E_UNAVAIL);
    EXPECT_FALSE(answer(systemInfoGet).contains("upTime"));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(logged("ERROR"), 0u);
    clearFaults();
    failCall("rpcclt_openapiFanNextGet", 2);
    EXPECT_TRUE(answer(deviceHealthGet).is_null()) << "a table that breaks off";
    EXPECT_EQ(result, 10000);
    EXPECT_EQ(logged("[deviceHealthGet:"), 1u);
    EXPECT_EQ(logged("the list of fans cannot be read (result = -2)"), 1u);
}

}  // namespace
