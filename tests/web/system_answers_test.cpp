#include "web/system_answers.h"

#include <cstring>
#include <filesystem>

#include "platform/manual_clock.h"
#include "store/profile_db.h"
#include "store/profile_db_ops.h"
#include "tests/web/web_fixture.h"

namespace {

using namespace test_support;
using platform::paths::kProfileDb;

// An answer that goes into a buffer of the caller's.
struct Buffer {
    std::int32_t (*produce)(openapiClientHandle_t *, char *, std::size_t);
    std::size_t size;
    std::int32_t operator()(openapiClientHandle_t *client, char **out) const {
        std::string buffer(size, '\0');
        const std::int32_t result = produce(client, buffer.data(), size);
        *out = result == 0 ? strdup(buffer.c_str()) : nullptr;
        return result;
    }
};
constexpr Buffer kTime{getDeviceTime, 1024}, kLog{getLogConfigJson, 4096}, kImages{getImageInfo, 4096},
    kRadius{getRadiusServerJson, 8192}, kTemplates{ProfileTemplateGet, 30720};

const std::pair<std::string, Producer> kAnswers[] = {{"getPortAuthConfigJson", getPortAuthConfigJson},
                                                     {"systemInfoGet", systemInfoGet},
                                                     {"switchConfigVlanList", switchConfigVlanList},
                                                     {"deviceHealthGet", deviceHealthGet},
                                                     {"getSpecialInfInfo", getSpecialInfInfo},
                                                     {"switchPtpModeGet", switchPtpModeGet},
                                                     {"profileListExGet", profileListExGet},
                                                     {"ProfileTemplateGet", kTemplates},
                                                     {"getRadiusServerJson", kRadius},
                                                     {"getLogConfigJson", kLog},
                                                     {"getDeviceTime", kTime},
                                                     {"getImageInfo", kImages}};

constexpr const char *kSecret = "open sesame";

class SystemAnswersTest : public WebTest {
  protected:
    void SetUp() override {
        WebTest::SetUp();
        startSwitch({.physicalPorts = 3, .lags = 2});
        std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
    }

    void configure() {
        commands(R"(vlan database; vlan 10,20; vlan name 20 "Stage left"; exit; configure; hostname "Hall"
snmp-server location "Rack 3"; snmp-server contact "House"; ip management vlan 10 192.168.1.2 255.255.255.0
ip default-gateway 192.168.1.1; clock timezone -3:30 zone NST; sntp client mode unicast; sntp server 10.0.0.9 2
sntp server time.example 1 1123; logging buffered warning; logging console; logging syslog
logging host 10.0.0.7 1514 notice; radius server timeout 7; radius server host acct 10.0.0.6
radius server host auth 10.0.0.5 name "main" port 1645 priority 1; radius server key auth 10.0.0.5 "open sesame"
dot1x system-auth-control; dot1as; ptp clock e2e-transparent; interface 0/2; vlan pvid 10
vlan participation include 20; vlan tagging 20; dot1as; no ptp clock e2e-transparent
dot1x port-control force-authorized; dot1x reauthentication; dot1x timeout reauth-period 600
interface 0/3; addport lag 2; interface lag 2; vlan pvid 20
interface vlan 10; routing; ip address 10.0.0.1 255.0.0.0; interface vlan 20; routing)");
        plug(host("pc", 2, "00:1B:92:00:00:01"));
        model([](vswitch::Model &m) {
            m.system().backupImage = "8.5.0.2";
            m.system().nextActive = "backup";
        });
    }
    void fillDatabase() {
        vlanInfoTableCreate();
        ASSERT_TRUE(replaceProfileRow({10, 2, "Show", "Dante", "#102030"}));
    }
};

TEST_F(SystemAnswersTest, AnswersAreWhatTheSwitchIsSetTo) {
    configure();
    platform::manual_clock::advance(std::chrono::seconds(90));
    const std::pair<Producer, json> cases[] = {
        {systemInfoGet, R"({"hostName": "Hall", "location": "Rack 3", "contact": "House",
            "model": "AVM4848-24X", "serialNumber": "VS0000001", "macAddress": "02:50:56:00:10:00",
            "osVersion": "8.6.3.1", "apiVersion": "1.25.0.1", "upTime": 90, "management": {"vlanId": 10,
            "mode": "static", "address": "192.168.1.2", "mask": "255.255.255.0", "gateway": "192.168.1.1",
            "up": true}})"_json},
        {getSpecialInfInfo, R"([
            {"type": "management", "vlanId": 10, "method": "static", "address": "192.168.1.2",
             "mask": "255.255.255.0", "gateway": "192.168.1.1", "up": true},
            {"type": "vlan", "vlanId": 10, "method": "static", "address": "10.0.0.1", "mask": "255.0.0.0",
             "up": true},
            {"type": "vlan", "vlanId": 20, "method": "none", "up": true}])"_json},
        {getPortAuthConfigJson, R"({"enabled": true, "ports": [
            {"port": 1, "name": "0/1", "controlMode": "auto", "state": "unauthorized",
             "reauthentication": false, "reauthPeriod": 3600},
            {"port": 2, "name": "0/2", "controlMode": "forceAuthorized", "state": "authorized",
             "reauthentication": true, "reauthPeriod": 600},
            {"port": 3, "name": "0/3", "controlMode": "auto", "state": "authorized",
             "reauthentication": false, "reauthPeriod": 3600}]})"_json},
        {switchPtpModeGet, R"({"transparentClock": true, "dot1as": true, "ports": [
            {"port": 1, "name": "0/1", "transparentClock": true, "dot1as": false},
            {"port": 2, "name": "0/2", "transparentClock": false, "dot1as": true},
            {"port": 3, "name": "0/3", "transparentClock": true, "dot1as": false}]})"_json},
        {kLog, R"({"buffered": {"enabled": true, "level": "warning"},
            "console": {"enabled": true, "level": "alert"}, "syslog": {"enabled": true},
            "hosts": [{"host": "10.0.0.7", "port": 1514, "level": "notice"}]})"_json},
        {kImages, R"({"osVersion": "8.6.3.1", "units": [{"unit": 1, "active": "8.6.3.1",
            "backup": "8.5.0.2", "currentActive": "8.6.3.1", "nextActive": "8.5.0.2"}]})"_json},
        {kRadius, R"({"timeout": 7, "retransmit": 4, "servers": [
            {"host": "10.0.0.5", "name": "main", "type": "auth", "port": 1645, "priority": 1,
             "secretSet": true},
            {"host": "10.0.0.6", "name": "", "type": "acct", "port": 1813, "priority": 8,
             "secretSet": false}]})"_json}};
    for (const auto &[producer, expected] : cases)
        EXPECT_EQ(answer(producer), expected);
    for (const auto *command : {"show running-config", "show radius servers", "show logging buffered"})
        EXPECT_EQ(show(command).find(kSecret), std::string::npos) << command;

    commands("configure; ip management vlan 1 dhcp; no ip default-gateway");
    EXPECT_EQ(answer(systemInfoGet)["management"], R"({"vlanId": 1, "mode": "dhcp", "up": true})"_json)
        << "no address is no 0.0.0.0";
    failCall("rpcclt_openapiSystemUpTimeGet", 1, false, OPEN_E_UNAVAIL);
    EXPECT_FALSE(answer(systemInfoGet).contains("upTime")) << "what is not offered is no failure";
    EXPECT_TRUE(result == 0 && logged("ERROR") == 0) << log();
    unplug("pc");
    EXPECT_EQ(answer(getSpecialInfInfo)[1]["up"], false);
    model([](vswitch::Model &m) { m.system().activeImage.clear(); });
    EXPECT_EQ(answer(kImages), json()) << "a row that cannot be read is not the end of the list";
    EXPECT_EQ(logged("the switch shows no boot images"), 1u);
}

TEST_F(SystemAnswersTest, HealthFollowsTheHardware) {
    model([](vswitch::Model &m) {
        EXPECT_EQ(OPEN_E_NONE, m.setTemperature(2, 96));
        EXPECT_EQ(OPEN_E_NONE, m.setTemperature(3, 20, false));
        EXPECT_EQ(OPEN_E_NONE, m.setFan(1, vswitch::UnitState::Failed, 4200));
        EXPECT_EQ(OPEN_E_NONE, m.setPowerSupply(2, vswitch::UnitState::Absent));
        EXPECT_EQ(OPEN_E_NONE, m.setLoad(93, 2000, 100));
    });
    EXPECT_EQ(answer(deviceHealthGet), R"({"cpu": {"percent": 93}, "memory": {"totalKb": 2000, "freeKb": 100},
        "fans": [{"fan": 1, "name": "Fan 1", "rpm": 0, "state": "failed"},
                 {"fan": 2, "name": "Fan 2", "rpm": 4200, "state": "ok"}],
        "powerSupplies": [{"supply": 1, "name": "Power supply 1", "state": "ok"},
                          {"supply": 2, "name": "Power supply 2", "state": "absent"}],
        "temperature": [
        {"sensor": 1, "name": "MAC", "state": "normal", "celsius": 52, "warningAbove": 85, "criticalAbove": 95},
        {"sensor": 2, "name": "PHY", "state": "critical", "celsius": 96, "warningAbove": 80, "criticalAbove": 90},
        {"sensor": 3, "name": "CPU", "state": "failed", "warningAbove": 75, "criticalAbove": 85}]})"_json);
    model([](vswitch::Model &m) { EXPECT_EQ(OPEN_E_NONE, m.setTemperature(1, -40)); });
    EXPECT_EQ(answer(deviceHealthGet)["temperature"][0]["celsius"], -40);
}

TEST_F(SystemAnswersTest, TimeAndWhereItComesFrom) {
    configure();
    auto time = answer(kTime);
    EXPECT_EQ(time["timeZone"], R"({"offsetMinutes": -210, "name": "NST"})"_json);
    EXPECT_TRUE(time["time"].get<std::string>().ends_with("-03:30"));
    EXPECT_EQ(time["sntp"], R"({"mode": "unicast", "synchronised": false, "servers":
        [{"host": "10.0.0.9", "port": 123, "priority": 2},
         {"host": "time.example", "port": 1123, "priority": 1}]})"_json);
    auto clock = host("clock", 1, "00:1B:92:00:00:02");
    clock.ip = "10.0.0.9";
    plug(clock);
    platform::manual_clock::advance(vswitch::kSntpPollInterval);
    EXPECT_EQ(answer(kTime)["sntp"]["synchronised"], false) << "its port is not authorized";
    model([](vswitch::Model &m) { EXPECT_EQ(m.setSupplicant(1, true), OPEN_E_NONE); });
    platform::manual_clock::advance(vswitch::kSntpPollInterval);
    time = answer(kTime);
    EXPECT_TRUE(time["sntp"]["synchronised"] == true && time["sntp"]["synchronisedTo"] == "10.0.0.9");
    EXPECT_EQ(time["sntp"]["lastUpdate"], time["utc"]);
    unplug("clock");
    platform::manual_clock::advance(vswitch::kSntpPollInterval);
    const auto later = answer(kTime);
    EXPECT_FALSE(later["sntp"]["synchronised"].get<bool>() || later["sntp"].contains("synchronisedTo"));
    EXPECT_EQ(later["sntp"]["lastUpdate"], time["sntp"]["lastUpdate"]) << "the last answer was then";
    commands("configure; no clock timezone");
    EXPECT_TRUE(answer(kTime)["time"].get<std::string>().ends_with("+00:00"));
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
    EXPECT_EQ(answer(switchConfigVlanList), R"([
        {"vlanId": 1, "name": "Default", "color": "#000000", "isStatic": true, "isManagement": false,
         "vlanType": 1, "profileType": "Default", "ports": {"untagged": [1, 3], "tagged": []},
         "lags": {"untagged": [], "tagged": []}},
        {"vlanId": 10, "name": "Show", "color": "#102030", "isStatic": true, "isManagement": true,
         "vlanType": 2, "profileType": "Dante", "ports": {"untagged": [2], "tagged": []},
         "lags": {"untagged": [], "tagged": []}},
        {"vlanId": 20, "name": "Stage left", "color": "#000000", "isStatic": true, "isManagement": false,
         "vlanType": 1, "profileType": "Default", "ports": {"untagged": [], "tagged": [2]},
         "lags": {"untagged": [2], "tagged": []}}])"_json);
    writeText(kProfileDb, "no database");
    EXPECT_EQ(names(), "") << "what cannot be read is not the default";
    EXPECT_EQ(result, 10000);
}

TEST_F(SystemAnswersTest, ProfileTemplatesThatAreOffered) {
    const auto folder = std::string(platform::paths::kProfileTemplateDir);
    EXPECT_EQ(answer(kTemplates), json::array());
    for (const auto &[name, json] : {std::pair{"A", "{\"name\": \"caf\xe9\"}"},
                                     {"B", R"({"name": "broken")"},
                                     {"C", "{} {}"},
                                     {"D", R"({"name": "last"})"}})
        writeText((folder + name).c_str(), json);
    EXPECT_EQ(answer(kTemplates), R"([{"name": "caf?"}, {"name": "last"}])"_json);
    EXPECT_EQ(logged("is no JSON"), 2u);
    failCall("rpcclt_openapiSystemRegMachineModelGet");
    EXPECT_EQ(answer(kTemplates), json()) << "an unknown model is none with fewer templates";
    std::filesystem::remove_all(platform::fsPath(folder));
    EXPECT_EQ(answer(kTemplates), json()) << "no folder";
    EXPECT_EQ(result, 10000);
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
    for (const auto &[name, producer] : kAnswers) {
        EXPECT_EQ(answer(producer).dump().find(kSecret), std::string::npos) << name;
        EXPECT_EQ(result, 0) << name << log();
    }
    EXPECT_EQ(answer(systemInfoGet)["location"], "x?? \"quoted\" \\ ??? </script>\n\x01");
}

TEST_F(SystemAnswersTest, AnyCallAndAnyAllocationMayFailAndAnyBufferBeTooSmall) {
    configure();
    fillDatabase();
    for (const auto &[name, producer] : kAnswers) {
        SCOPED_TRACE(name);
        const auto [failures, partial] = failEachCall(name, producer);
        EXPECT_LT(0, failures + partial);
        if (name != "profileListExGet" && name != "ProfileTemplateGet")
            EXPECT_GT(failEachAllocation(producer), 10);

        const auto whole = text(producer);
        const auto *const buffer = producer.target<Buffer>();
        if (buffer == nullptr) {
            char untouched = 'x', *out = &untouched;
            EXPECT_TRUE(producer(nullptr, &out) == 10003 && out == nullptr);
            EXPECT_EQ(producer(&client, nullptr), 10003);
            continue;
        }
        for (const std::size_t size : {std::size_t{0}, std::size_t{1}, whole.size() / 2, whole.size()}) {
            std::string small(size + 8, '#');
            const auto lines = logged("ERROR");
            EXPECT_EQ(buffer->produce(&client, small.data(), size), 10000);
            EXPECT_EQ(small, std::string(size + 8, '#')) << "untouched";
            EXPECT_EQ(logged("ERROR"), lines + 1);
        }
        std::string exact(whole.size() + 1, '#');
        EXPECT_EQ(buffer->produce(&client, exact.data(), exact.size()), 0);
        EXPECT_EQ(exact.c_str(), whole);
        EXPECT_EQ(buffer->produce(nullptr, exact.data(), exact.size()), 10003);
        EXPECT_EQ(buffer->produce(&client, nullptr, exact.size()), 10003);
    }
}

}  // namespace
