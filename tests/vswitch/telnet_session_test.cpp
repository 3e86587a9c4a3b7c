#include "vswitch/server/telnet_session.h"

#include <gtest/gtest.h>

#include "tests/vswitch/fixtures.h"

namespace vswitch {
namespace {

class TelnetSessionTest : public ControlFixture {
  protected:
    void SetUp() override {
        ControlFixture::SetUp();
        configure("username desk password \"look at it\"; username gone password 12345678 level 0");
        session = {};
    }
    // Everything that is sent for some input.
    std::string feed(const std::string &bytes) {
        session.feed(bytes);
        std::string out;
        device->with([&](Server &server) {
            while (const auto text = session.next(server))
                out += *text;
        });
        return out;
    }
    std::string login(const std::string &name, const std::string &password) {
        const auto asked = feed(name + "\r\n");
        return asked + feed(password + "\r\n");
    }

    TelnetSession session;
};

TEST_F(TelnetSessionTest, LetsInWhoIsKnown) {
    EXPECT_EQ("Password:\r\n(avswitch) >", login("admin", kFactoryPassword));
    EXPECT_EQ("\r\n(avswitch) #", feed(std::string("enable\0\r\n", 9)));
    EXPECT_EQ("\r\n(avswitch) (Config)#", feed(std::string("configure\r\0", 11)));
    EXPECT_EQ("\r\n(hall) (Config)#", feed("hostname hall\n"));
    EXPECT_EQ("\r\n(hall) #\r\n(hall) >", feed("end\r\ndisable\r\n"));
    EXPECT_EQ("", feed("exit\r\n"));
    EXPECT_TRUE(session.isOver());

    for (const auto &[name, password] :
         {std::pair{"admin", "switch123"}, {"gone", "12345678"}, {"no user", ""}, {"", "look at it"}}) {
        session = {};
        EXPECT_TRUE(
            contains(login(name, password), *name == '\0' ? "User:Password:" : "Login incorrect\r\nUser:"));
        EXPECT_FALSE(session.isLoggedIn());
    }
    session = {};
    for (int i = 0; i < 3; ++i)
        login("admin", "x");
    EXPECT_TRUE(session.isOver());
    const auto log = systemLog();
    EXPECT_EQ(4u, test_support::occurrences(log, "User admin: login to the command line refused"));
    for (const auto *secret : {kFactoryPassword, "no user", "look at it"})
        EXPECT_FALSE(contains(log, secret)) << secret;
}

TEST_F(TelnetSessionTest, ReadersReadAndChangedUsersLeave) {
    login("desk", "look at it");
    EXPECT_TRUE(contains(feed("show vlan\r\n"), "VLAN"));
    EXPECT_TRUE(contains(feed("enable\r\n"), "Access denied"));
    for (const auto *line :
         {"show running-config", "show users accounts", "configure", "end", "vlan database"})
        EXPECT_TRUE(contains(feed(line + std::string("\r\n")), "% Invalid input")) << line;
    configure("username desk level 15");
    EXPECT_EQ("The account has changed.\r\n", feed("enable\r\n"));
    EXPECT_TRUE(session.isOver());
    EXPECT_EQ("", feed("show vlan\r\n"));
}

TEST_F(TelnetSessionTest, EchoesAndEditsForThoseWhoAgree) {
    EXPECT_EQ("\xff\xfb\x01\xff\xfb\x03\r\nUser:", TelnetSession::greeting());
    EXPECT_EQ("\xff\xfe\x1f\xff\xfc\x18",
              feed("\xff\xfd\x01\xff\xfd\x03\xff\xfb\x1f\xff\xfd\x18\xff\xfa\x1f\1\2\xff\xf0"));
    EXPECT_EQ("adn\xc3\xa4\b \b\b \bmin\r\nPassword:", feed("adn\xc3\xa4\x7f\x7fmin\r\n"));
    EXPECT_EQ("\r\n\r\n(avswitch) >", feed(std::string(kFactoryPassword) + '\r'));
    const auto help = feed("\nshow v?");
    EXPECT_TRUE(help.starts_with("show v?\r\nvlan ") && help.ends_with("\r\n(avswitch) >show v")) << help;
    EXPECT_EQ("\b \b\b \b\b \b\b \b\b \b\b \ben\r\n(avswitch) #", feed("\x15"
                                                                       "en\x1b[A\r\n"));
    EXPECT_EQ("configure\r\n(avswitch) (Config)#", feed("configure\r\n"));
    EXPECT_EQ("hostname \"why?\"\r\n(why?) (Config)#", feed("hostname \"why?\"\r\n"));
    EXPECT_EQ("x\r\n(why?) (Config)#", feed("x\3"));
    EXPECT_EQ("\r\n(why?) #", feed("\x1a"));
    EXPECT_TRUE(feed(std::string(TelnetSession::kLineMax + 1, 'x') + "\r\n")
                    .ends_with("xx\r\n% Line too long.\r\n(why?) #"));
    feed("\4");
    EXPECT_TRUE(session.isOver());
}

TEST_F(TelnetSessionTest, UsersAreConfiguration) {
    for (const auto *refused : {"username admin level 1", "no username admin", "username desk password short",
                                "username \"a b\" password 12345678", "no username nobody",
                                "username nobody level 1", "username desk password hidden xyz"})
        EXPECT_NE("", configure(refused)) << refused;
    EXPECT_EQ("", configure("username admin password another1"));
    const auto lines = runningConfig();
    for (const auto *secret : {"look at it", "another1"})
        EXPECT_FALSE(contains(lines, secret));
    EXPECT_TRUE(contains(show("show users accounts"), "desk"));
    startSwitch({});
    device->with([&](Server &server) { server.cli().runScript(lines); });
    EXPECT_EQ(lines.substr(lines.find("configure")),
              runningConfig().substr(runningConfig().find("configure")));
    EXPECT_EQ("", configure("no username desk"));

    char text[65];
    char name[] = "admin", nobody[] = "desk";
    open_buffdesc admin{sizeof name, name}, desk{sizeof nobody, nobody}, password{sizeof text, text};
    std::uint32_t level = 0;
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiUserPasswordGet(&client, &admin, &password));
    EXPECT_STREQ("another1", text);
    EXPECT_EQ(OPEN_E_NONE, rpcclt_openapiUserLevelGet(&client, &admin, &level));
    EXPECT_EQ(15u, level);
    EXPECT_EQ(OPEN_E_NOT_FOUND, rpcclt_openapiUserLevelGet(&client, &desk, &level));
}

}  // namespace
}  // namespace vswitch
