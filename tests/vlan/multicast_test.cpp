#include "vlan/multicast.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>

#include "common/json.h"
#include "common/text.h"
#include "store/response_cache.h"
#include "tests/support/switch_fixture.h"
#include "vlan/multicast_ops.h"

namespace {

using namespace test_support;

constexpr vswitch::IfNum kFirstLag = 49;
constexpr std::int32_t kFailed = 10000;
constexpr std::int32_t kInvalid = 10003;
constexpr std::int32_t kNotExist = 10012;

// --- the capture

std::vector<std::string> rowsOf(const std::string &shown) {
    std::vector<std::string> rows;
    forEachGroupRow(shown, [&](const GroupRow &row) {
        GroupRowRoom room;
        rows.emplace_back(printGroupRow(row, room));
        const JsonPtr parsed(cJSON_Parse(rows.back().c_str()));
        EXPECT_EQ(rows.back(), printJsonLine(parsed.get()));
    });
    return rows;
}

std::string rowText(const std::string &port, const std::string &host, const std::string &mac,
                    const std::string &type, const std::string &timeout) {
    return R"({"unit":1,"port":")" + port + R"(","vlanId":20,"subscriberAddress":")" + host +
           R"(","subscriberMacAddress":")" + mac +
           R"(","multicastAddress":"239.1.1.1","multicastMacAddress":"01:00:5E:01:01:01","type":")" + type +
           R"(","timeout":)" + timeout + "}";
}

constexpr const char *kHead = "VLAN  Subscriber  Group\n----  -------  -----\n";
const std::string kPair = "10.0.0.1/00:11:22:33:44:55  239.1.1.1/01:00:5E:01:01:01 ";

TEST(MulticastCapture, ThreeFormsOfAnInterfaceAndFurtherSubscribers) {
    const std::string mac = "00:11:22:33:44:55", odd = "20 " + kPair + "0/5 v2 9";
    const std::tuple<const char *, const char *, const char *, const char *> cases[] = {
        {"0/5 v2 260", "5", "v2", "260"},
        {"1/48 v1 0", "48", "v1", "0"},
        {"on-lag 3 v2 17", "lag3", "v2", "17"},
        {"ch7 v2 -1", "lag7", "v2", "-1"},
        {"0/5 v3 260", "5", "v3", "null"},
        {"lag 3 IGMPv3", "lag3", "IGMPv3", "null"},
        {"0/5 v2", "5", "v2", "0"},
        {"0/5 v2 soon", "5", "v2", "0"},
        {"0/ 5 \t v2   9", "5", "v2", "9"}};
    for (const auto &[place, port, type, timeout] : cases)
        EXPECT_EQ(std::vector{rowText(port, "10.0.0.1", mac, type, timeout)},
                  rowsOf(kHead + ("20 " + kPair) + place + "\n"))
            << place;
    for (const char *end : {"", "\r\n"})
        EXPECT_EQ(std::vector{rowText("5", "10.0.0.1", mac, "v2", "9")}, rowsOf("=====\n" + odd + end));

    // Further subscribers have the group and the port of the row before them; without one they are nobody's.
    const auto row = [](const char *host, const char *its) { return rowText("lag3", host, its, "v2", "17"); };
    EXPECT_EQ((std::vector{row("10.0.0.1", mac.c_str()), row("192.168.1.5", "00:11:22:33:44:66"),
                           row("192.168.1.6", "00:11:22:33:44:77"), row("192.168.1.8", "00:11:22:33:44:99")}),
              rowsOf(std::string(kHead) + "  10.0.0.9/00:11:22:33:44:55\n20 " + kPair +
                     "lag 3 v2 17\n"
                     "   192.168.1.5/00:11:22:33:44:66\n\t192.168.1.6/00:11:22:33:44:77 trailing\n"
                     " nobody/00:11:22:33:44:88\n 192.168.1.7\n 192.168.100.100.1/00:11:22:33:44:88\n\n"
                     " 192.168.1.8/00:11:22:33:44:99\n"));
}

TEST(MulticastCapture, OddLinesArePassedOver) {
    EXPECT_EQ(0u, rowsOf("").size());
    EXPECT_EQ(0u, rowsOf("20 " + kPair + "0/5 v2 260\n").size()) << "no header";
    std::vector<std::string> odd = {
        "20",
        "20 10.0.0.1 239.1.1.1 0/5 v2 260",
        "20 /00:11:22:33:44:55  239.1.1.1/01:00:5E:01:01:01 0/5 v2 260",
        "20 1234567890.123456/00:11:22:33:44:55  239.1.1.1/01:00:5E:01:01:01 0/5 v2 260",
        "----- ----",
        std::string(5000, '1'),
        std::string(1, '\0') + "20"};
    for (const char *vlan : {"vlan ", "-20 ", "99999999999 "})
        odd.push_back(vlan + kPair + "0/5 v2 260");
    for (const char *place :
         {"0/5", "0 /5 v2 260", "five v2 260", "lag3 v2 260", "lag v2 260", "ch v2 260", "0/5 v2 260 lag"})
        odd.push_back("20 " + kPair + place);
    for (const auto &line : odd)
        EXPECT_EQ(1u, rowsOf(kHead + line + "\n21 " + kPair + "0/5 v2 260\n").size()) << line;
}

TEST(MulticastCapture, WhateverTheTableHoldsIsAStringOfJson) {
    const auto rows = rowsOf(kHead + std::string("20 \"\\\x01\xff"
                                                 "./<\"quote\\>\t 239\xc3\xa4/\x7f\xfe 0/5 \"\\\" 260\n"));
    ASSERT_EQ(1u, rows.size());
    const JsonPtr row(cJSON_Parse(rows[0].c_str()));
    EXPECT_EQ("\"\\\x01\xef\xbf\xbd.", stringMember(row.get(), "subscriberAddress"));
    EXPECT_EQ("\"\\\"", stringMember(row.get(), "type"));
    EXPECT_TRUE(isUtf8(rows[0]));
}

TEST(MulticastCapture, DeniedAddresses) {
    EXPECT_EQ((std::vector<std::string>{"239.0.0.0/8", "224.1.2.3/8", "123456789012345678/8",
                                        "12345678901234567890"}),
              parseDenyList("Destination IP Address......... 239.0.0.0\n"
                            "Destination IP Wildcard Mask... 0.255.255.255\n"
                            " Destination IP Address........ 1.2.3.4\n"
                            "Destination IP Address\n"
                            "Destination IP Address...\t224.1.2.3 more\r\n"
                            "Destination IP Address... 123456789012345678\n"
                            "Destination IP Address... 1234567890123456789012\n"));
}

// --- the switch

class MulticastTest : public SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        ASSERT_TRUE(createResponseCache());
        configure();
    }
    // VLAN 20 is snooped; an amplifier is in it at port 5, another one behind the second LAG.
    void configure() {
        commands(
            "vlan database; vlan 20; set igmp 20; exit; configure; interface 0/5; vlan pvid 20; "
            "vlan participation include 20; exit; interface lag 2; vlan participation include 20; "
            "vlan pvid 20; exit; interface 0/7; addport lag 2");
        auto amp = host("amp", 5, "00:1B:92:00:00:01");
        amp.ip = "10.0.0.1";
        ASSERT_EQ(OPEN_E_NONE, plug(amp));
        ASSERT_EQ(OPEN_E_NONE, plug(host("lagged", 7, "00:1B:92:00:00:02")));
    }
    // Lines of scripts that the switch has not taken.
    std::uint64_t refused() {
        return device->with([](vswitch::Server &server) {
            return server.cli().unknownCommands() + server.cli().refusedCommands();
        });
    }
    void join(unsigned groups, const char *name = "amp", std::uint32_t version = 2) {
        model([&](vswitch::Model &m) {
            for (unsigned n = 0; n < groups; ++n)
                ASSERT_EQ(OPEN_E_NONE, m.joinGroup(name, 0xEF010101 + n, version));
        });
    }
    std::string configuration() { return show("show running-config"); }

    template <class Operation, class... Arguments>
    std::string answer(Operation operation, Arguments... arguments) {
        char *text = nullptr;
        result = operation(&client, arguments..., &text);
        EXPECT_EQ(result == 0, text != nullptr);
        return text != nullptr ? TextPtr(text).get() : "";
    }
    std::string modes() { return answer(buildMulticastModeJson); }
    std::string denied() { return answer(getDenyList); }
    std::int32_t setModes(const std::string &arrays) {
        return setMulticastMode(&client, ("{\"multicastModeConfig\":{" + arrays + "}}").c_str());
    }
    std::int32_t deny(const std::string &addresses) {
        return setDenyList(&client, ("{\"blockAddressList\":[" + addresses + "]}").c_str());
    }
    static std::string chunk(std::size_t index) {
        return readCachedAnswer("multicast_groups_ex/" + std::to_string(index)).value().value_or("");
    }

    // Runs the operation with call 1 failing, then call 2 and so on, until it has no more calls. What it has
    // failed at must leave the configuration as it was, log once or more, and leave no file behind.
    void sweep(const std::function<std::int32_t()> &operation, const std::string &prepare, unsigned least) {
        for (unsigned nth = 1;; ++nth) {
            SCOPED_TRACE(nth);
            startSwitch({});
            configure();
            commands(prepare);
            const auto before = configuration();
            const auto errors = logged("ERROR");
            failCall("*", nth);
            const auto code = operation();
            const bool struck = callsSeen() >= nth;
            clearFaults();
            EXPECT_EQ(struck, code != 0);
            for (const auto &left :
                 std::filesystem::directory_iterator(platform::fsPath(platform::paths::kScriptDir)))
                ADD_FAILURE() << left.path();
            if (!struck) {
                EXPECT_GT(nth, least);
                return;
            }
            EXPECT_EQ(before, configuration());
            EXPECT_EQ(kFailed, code);
            EXPECT_EQ(errors + 1, logged("ERROR")) << log();
        }
    }

    std::int32_t result = -1;
};

TEST_F(MulticastTest, GroupsOfPortsAndLags) {
    for (const bool channels : {false, true}) {
        startSwitch({.igmpShowsChannels = channels});
        configure();
        join(1);
        join(1, "lagged", 3);
        EXPECT_EQ(R"({"indexPage":1,"pageSize":2,"total":2,"rows":[)" +
                      rowText("5", "10.0.0.1", "00:1B:92:00:00:01", "v2", "260") + "," +
                      rowText("lag2", "0.0.0.0", "00:1B:92:00:00:02", "v3", "null") + "]}",
                  answer(multicastGroupsPageGet));
    }
}

TEST_F(MulticastTest, PagesOfGroups) {
    EXPECT_EQ(R"({"indexPage":1,"pageSize":0,"total":0,"rows":[]})", answer(getMulticastGroups, 0, 1, 10));
    join(7);
    const auto page = [&](int unit, int index, int size) {
        const JsonPtr parsed(cJSON_Parse(answer(getMulticastGroups, unit, index, size).c_str()));
        std::string out = std::to_string(integerMember(parsed.get(), "indexPage").value()) + ": " +
                          std::to_string(integerMember(parsed.get(), "pageSize").value()) + " of " +
                          std::to_string(integerMember(parsed.get(), "total").value());
        const cJSON *row = nullptr;
        cJSON_ArrayForEach(row, member(parsed.get(), "rows")) out +=
            " " + stringMember(row, "multicastAddress").value().substr(8);
        return out;
    };
    const std::tuple<int, int, int, const char *> pages[] = {
        {0, 1, 3, "1: 3 of 7 1 2 3"}, {1, 2, 3, "2: 3 of 7 4 5 6"},
        {0, 3, 3, "3: 1 of 7 7"},     {0, 4, 3, "4: 0 of 7"},
        {2, 1, 3, "1: 0 of 0"},       {0, 0, 3, "0: 0 of 7"},
        {0, 1, -3, "1: 0 of 7"},      {0, INT_MAX, INT_MAX, "2147483647: 0 of 7"}};
    for (const auto &[unit, index, size, expected] : pages)
        EXPECT_EQ(expected, page(unit, index, size));
}

TEST_F(MulticastTest, ChunksOfGroups) {
    join(501);
    // Left behind by another process.
    for (const char *key : {"multicast_groups_ex/2", "multicast_groups_ex/3", "multicast_groups_ex/5"})
        ASSERT_TRUE(writeCachedAnswer(key, "old"));
    ASSERT_EQ(0, multicastGroupsChunksBuild(&client));
    const auto last = chunk(1);
    EXPECT_EQ(1u, occurrences(last, "subscriberAddress"));
    EXPECT_TRUE(last.starts_with(R"({"multicastGroups":{"rows":[{"unit":1,)"));
    EXPECT_EQ("", chunk(2) + chunk(3));

    // What cannot be read leaves the last answer in place; what cannot be stored is an error.
    failCall("rpcclt_openapiCliShowExecuteToFile");
    EXPECT_EQ(kFailed, multicastGroupsChunksBuild(&client));
    EXPECT_EQ(last, chunk(1));
    std::filesystem::remove(platform::fsPath("/tmp/restapi_db"));
    std::filesystem::create_directory(platform::fsPath("/tmp/restapi_db"));
    EXPECT_EQ(kFailed, multicastGroupsChunksBuild(&client));
}

TEST_F(MulticastTest, ModesOfPortsAndLags) {
    EXPECT_EQ(R"({"physicalPort":[],"lagPort":[]})", modes());
    const std::string set =
        R"("physicalPort":[{"portNum":5,"multicastMode":2},{"portNum":6,"multicastMode":1}],)"
        R"("lagPort":[{"portNum":24,"multicastMode":2},{"portNum":1,"multicastMode":1}])";
    EXPECT_EQ(0, setModes(set));
    EXPECT_EQ("{" + set + "}", modes());
    EXPECT_EQ(1u, logged("Aplly cli to switch\r\n"));
    const auto blocked = configuration();
    for (const char *line : {"ip access-group NET-BLOCK in 1\n", "ip access-group NET-BLOCK out 1\n"})
        EXPECT_EQ(2u, occurrences(blocked, line));
    EXPECT_EQ(2u, occurrences(blocked, "ip igmp snooping mrouter interface\n"));

    // Normal again; the last entry of an interface counts; entries without both numbers do not.
    EXPECT_EQ(0, setModes(R"("lagPort":[{"portNum":24,"multicastMode":2}])"));
    EXPECT_EQ(0u, callCount("rpcclt_openapiAclIntfDirDelete")) << "what stays blocked is never open";
    EXPECT_EQ(0,
              setModes(R"("physicalPort":[{"portNum":5,"multicastMode":2},{"portNum":5,"multicastMode":0},)"
                       R"({"portNum":6},{"multicastMode":2},{"portNum":"7","multicastMode":2},5,null,)"
                       R"({"portNum":8,"multicastMode":true}],"lagPort":[{"portNum":1,"multicastMode":2}])"));
    EXPECT_EQ(R"({"physicalPort":[{"portNum":6,"multicastMode":1}],)"
              R"("lagPort":[{"portNum":1,"multicastMode":2},{"portNum":24,"multicastMode":2}]})",
              modes());
    EXPECT_EQ(0u, refused());
}

// Port 5 is blocked.
const std::string kBlocked =
    "configure; ip access-list NET-BLOCK; permit ip any any; exit; interface 0/5; "
    "ip access-group NET-BLOCK in 1; ip access-group NET-BLOCK out 1";

TEST_F(MulticastTest, OtherRequestsForModesChangeNothing) {
    commands(kBlocked);
    const auto before = configuration();
    for (const char *text :
         {"", "{", "[]", "null", "{}", R"({"multicastModeConfig":5})",
          R"({"multicastModeConfig":{"physicalPort":{},"lagPort":7}})", static_cast<const char *>(nullptr)})
        EXPECT_EQ(kInvalid, setMulticastMode(&client, text)) << text;
    EXPECT_EQ(8u, logged("Json format error\r\n"));
    const std::tuple<const char *, const char *, std::int32_t> entries[] = {
        {"0", "0", kInvalid}, {"5.5", "0", kInvalid}, {"4294967301", "0", kInvalid},
        {"5", "3", kInvalid}, {"999", "0", kFailed},  {"2147483647", "0", kFailed}};
    for (const auto &[number, mode, code] : entries)
        for (const std::string kind : {"physicalPort", "lagPort"})
            EXPECT_EQ(code, setModes("\"" + kind + R"(":[{"portNum":5,"multicastMode":0},{"portNum":)" +
                                     number + R"(,"multicastMode":)" + mode + "}]"))
                << kind << number;
    EXPECT_EQ(kFailed, setModes(R"("physicalPort":[{"portNum":49,"multicastMode":1}])")) << "the first LAG";
    EXPECT_EQ(kFailed, setModes(R"("lagPort":[{"portNum":25,"multicastMode":1}])"));
    EXPECT_EQ(3u, logged("openapiHashIntfUnitSlotPortGet return error code:-4"));
    EXPECT_EQ(before, configuration());
    EXPECT_EQ(0u, refused());
}

TEST_F(MulticastTest, FailedChangesOfModesAreTakenBack) {
    const std::string request =
        R"("physicalPort":[{"portNum":5,"multicastMode":0},{"portNum":6,"multicastMode":2},)"
        R"({"portNum":8,"multicastMode":1}],"lagPort":[{"portNum":1,"multicastMode":2}])";
    sweep([&] { return setModes(request); },
          kBlocked + "; exit; interface 0/6; ip igmp snooping mrouter interface", 12);
    EXPECT_EQ(R"({"physicalPort":[{"portNum":6,"multicastMode":2},{"portNum":8,"multicastMode":1}],)"
              R"("lagPort":[{"portNum":1,"multicastMode":2}]})",
              modes());
    // Unknown is not absent.
    sweep([&] { return modes().empty() ? result : 0; },
          kBlocked + "; exit; interface 0/6; ip igmp snooping mrouter interface", 4);
    EXPECT_NE(0u, logged("Bad return code trying to get first LAG interface. (result = -2)\r\n"));
}

TEST_F(MulticastTest, AMulticastRouterIsRemoved) {
    commands(
        "configure; interface 0/5; ip igmp snooping mrouter interface; exit; interface lag 2; "
        "ip igmp snooping mrouter interface");
    EXPECT_EQ(0, removeIgmpMrouterInf(&client, kFirstLag + 1));
    EXPECT_EQ(R"({"physicalPort":[{"portNum":5,"multicastMode":1}],"lagPort":[]})", modes());
    EXPECT_EQ(0, removeIgmpMrouterInf(&client, 5));
    EXPECT_EQ(R"({"physicalPort":[],"lagPort":[]})", modes());
    EXPECT_EQ(kNotExist, removeIgmpMrouterInf(&client, 0));
    EXPECT_EQ(kNotExist, removeIgmpMrouterInf(&client, 999));
    sweep([&] { return removeIgmpMrouterInf(&client, 5); },
          "configure; interface 0/5; ip igmp snooping mrouter interface", 2);
}

TEST_F(MulticastTest, DenyList) {
    EXPECT_EQ("[]", denied());
    EXPECT_EQ(1u, logged("No ACL rule NET-BLOCK present\r\n"));
    EXPECT_EQ(0, deny(R"("224.0.0.0","239.255.255.250","238.12.1.5","237.0.0.0/8")"));
    EXPECT_NE(std::string::npos, configuration().find("ip access-list NET-BLOCK\n"
                                                      "deny ip any 224.0.0.0 0.255.255.255\n"
                                                      "deny ip any 239.255.2.0 0.255.255.255\n"
                                                      "deny ip any 238.12.1.0 0.255.255.255\n"
                                                      "deny ip any 237.0.0.0 0.255.255.255\n"
                                                      "permit ip any any\nexit\n"));
    const std::string list = R"(["224.0.0.0/8","239.255.2.0/8","238.12.1.0/8","237.0.0.0/8"])";
    EXPECT_EQ(list, denied());
    // What was read may be written as it is.
    EXPECT_EQ(0, deny(list.substr(1, list.size() - 2)));
    EXPECT_EQ(list, denied());
    ASSERT_EQ(0, setModes(R"("physicalPort":[{"portNum":5,"multicastMode":2}])"));
    EXPECT_EQ(0, deny(R"("225.0.0.0")"));
    EXPECT_EQ(R"(["225.0.0.0/8"])", denied());
    EXPECT_EQ(R"({"physicalPort":[{"portNum":5,"multicastMode":2}],"lagPort":[]})", modes());
    EXPECT_EQ(0, deny(""));
    EXPECT_EQ(std::string::npos, configuration().find("NET-BLOCK"));
    EXPECT_EQ("[]", denied());
    EXPECT_EQ(R"({"physicalPort":[],"lagPort":[]})", modes());
    EXPECT_EQ(0u, refused());
    EXPECT_EQ(0, deny(""));
}

TEST_F(MulticastTest, WhatCannotBeDeniedChangesNothing) {
    ASSERT_EQ(0, deny(R"("224.0.0.0")"));
    const auto before = configuration();
    for (const char *address :
         {"224", "224.", "224.0.0.", "1.2.3.4", "239.12.1.5", "239.255.255.250/8", "10.0.0.0/8"})
        EXPECT_TRUE(denyListScript(std::vector<std::string>{address})) << address;
    for (const char *bad : {R"("")", R"("224..1.1")", R"("256.0.0.0")", R"("224.00.0.0")", R"("1.2.3.4.5")",
                            R"("0x1.0.0.0")", R"(" 224.0.0.0")", R"("224.1\nexit")", R"("239.1.1.1\nexit")",
                            R"("239.255.999.999")", R"("239.1.1.1/33")", R"("239.1.1.1/")",
                            R"("239.1.1.1/x")", "\"\xff\"", "5", R"(["224.0.0.0"])", "{}"})
        EXPECT_EQ(kInvalid, deny(R"("225.0.0.0",)" + std::string(bad))) << bad;
    for (const char *text :
         {"", "{", "[]", "{}", R"({"blockAddressList":"224.0.0.0"})", R"({"blockAddressList":{}})"})
        EXPECT_EQ(kInvalid, setDenyList(&client, text)) << text;
    EXPECT_EQ(kInvalid, setDenyList(&client, nullptr));
    EXPECT_EQ(kInvalid, setDenyListByArray(&client, nullptr));
    std::string many = R"("225.0.0.0")";
    for (int n = 0; n < 55; ++n)
        many += R"(,"225.0.0.0")";
    EXPECT_EQ(kInvalid, deny(many));
    EXPECT_EQ(before, configuration());
    EXPECT_EQ(std::string::npos, log().find("\nexit"));
    EXPECT_EQ(0, deny(many.substr(12))) << "one less";
    EXPECT_EQ(55u, occurrences(configuration(), "deny ip any 225.0.0.0"));
    EXPECT_EQ(0u, refused());
}

TEST_F(MulticastTest, AFailedChangeBringsTheRulesBack) {
    // Also rules that an operator wrote.
    const char *const kRules =
        "configure; ip access-list NET-BLOCK; permit ip 10.0.0.1 0.0.0.0 any; "
        "deny ip any 239.0.0.0 0.255.255.255; permit ip any any; exit; interface 0/5; "
        "ip access-group NET-BLOCK in 7; ip access-group NET-BLOCK out 1";
    sweep([&] { return deny(R"("225.0.0.0","226.0.0.0")"); }, kRules, 9);
    EXPECT_EQ(R"(["225.0.0.0/8","226.0.0.0/8"])", denied());
    sweep([&] { return deny(""); }, kRules, 9);
    sweep([&] { return denied().empty() ? result : 0; }, kRules, 1);
}

TEST_F(MulticastTest, RulesAreNotLostWhenNobodyIsLeftToBringThemBack) {
    const std::string rules =
        "ip access-list NET-BLOCK\npermit ip 10.0.0.1 0.0.0.0 any\ndeny ip any 239.0.0.0 0.255.255.255\n"
        "permit ip any any\nexit\n";
    const auto lose = [&](std::uint64_t deleted) {
        device->with([&](vswitch::Server &server) {
            server.cli().runScript("configure\nno ip access-list NET-BLOCK\n" + rules);
        });
        failCall("rpcclt_openapiAclRuleDeleteLast", deleted + 1, false);
        failCall("rpcclt_openapiTxtCfgApply", 1, false);
        EXPECT_EQ(kFailed, deny(R"("225.0.0.0")"));
        clearFaults();
        EXPECT_EQ(3 - deleted, occurrences(configuration(), " ip "));
    };
    const std::function<std::int32_t()> next[] = {[&] { return denied().empty() ? result : 0; },
                                                  [&] { return setModes(R"("lagPort":[])"); },
                                                  [&] { return codeOf(restoreDenyList(&client)); }};
    for (std::uint64_t deleted = 1; deleted <= 3; ++deleted) {
        lose(deleted);
        failCall("rpcclt_openapiTxtCfgApply");
        EXPECT_EQ(kFailed, next[0]()) << "unknown is not empty";
        EXPECT_EQ(0, next[deleted - 1]());
        EXPECT_NE(std::string::npos, configuration().find(rules)) << deleted;
    }
    // What an operator has done since stays, and so does a later change.
    for (const std::string since :
         {"ip access-list NET-BLOCK; deny ip any any; exit", "no ip access-list NET-BLOCK"}) {
        lose(2);
        commands("configure; " + since);
        const auto edited = configuration();
        EXPECT_EQ("[]", denied());
        EXPECT_EQ(edited, configuration());
    }
    lose(2);
    EXPECT_EQ(0, deny(R"("225.0.0.0")"));
    EXPECT_EQ(R"(["225.0.0.0/8"])", denied());
}

TEST_F(MulticastTest, RulesOfAnyListAreCleared) {
    commands("configure; ip access-list OTHER; deny ip any 224.0.0.0 0.255.255.255; permit ip any any; exit");
    for (const char *name :
         {"OTHER", "OTHER", "NONE", "a name that is longer than any that an access list has"})
        aclRuleClear(&client, name);
    aclRuleClear(&client, nullptr);
    EXPECT_NE(std::string::npos, configuration().find("ip access-list OTHER\nexit\n"));
    EXPECT_EQ(2u, callCount("rpcclt_openapiAclRuleDeleteLast"));
}

}  // namespace
