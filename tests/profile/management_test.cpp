// Settings of the switch that profiles have nothing to do with.
#include "tests/support/profile_fixture.h"

namespace {

using namespace test_support;

TEST_F(ApplyTest, SettingsOfTheSwitchItselfAreNoneOfAProfilesBusiness) {
    cli({"configure", "snmp-server location \"interface 0/1 vlan database\"", "snmp-server contact \"exit\"",
         "clock timezone +1 zone CET", "sntp client mode unicast", "sntp server 10.0.0.9",
         "logging buffered info", "logging console debug", "logging syslog", "logging host 10.0.0.7",
         "radius server timeout 9", "radius server host auth 10.0.0.5 name \"no vlan 20\"",
         "radius server key auth 10.0.0.5 secret", "dot1x system-auth-control", "interface 0/5",
         "dot1x reauthentication", "dot1x timeout reauth-period 60", "end"});
    const auto before = config();
    EXPECT_TRUE(has("\ndot1x timeout reauth-period 60\n"));
    applied("Show", "Audio Dante", {vlanJson(20, 1, "5, 6")});
    for (const auto *line :
         {"sntp server 10.0.0.9 1 123", "dot1x timeout reauth-period 60", "logging host 10.0.0.7"})
        EXPECT_TRUE(has(line)) << line;
    EXPECT_NE(before, config());
    removed("Show");
    EXPECT_EQ(before, config());
}

}  // namespace
