#include "swapi/cli_session_ops.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "swapi/cli_client.h"
#include "tests/support/cli_server.h"
#include "tests/support/switch_fixture.h"

namespace pavo {
namespace {

using namespace std::chrono_literals;

constexpr const char *kPassword = "Parole 123";

class CliSessionTest : public test_support::SwitchTest {
  protected:
    void SetUp() override {
        SwitchTest::SetUp();
        commands(std::string("configure; username admin password \"") + kPassword + "\"");
    }
    void TearDown() override {
        fastpath_cli_session_control(&client, CLI_SESSION_CLOSE);
        EXPECT_EQ(0u, logged(kPassword));
        SwitchTest::TearDown();
    }

    std::int32_t control(std::int32_t action) { return fastpath_cli_session_control(&client, action); }
    // The switch has worked off everything when this returns.
    std::int32_t vlanCommand(const std::string &command, std::uint32_t cap = 4096) {
        reply.assign(cap, 'x');
        const auto result =
            fastpath_cli_vlan_db_cmd(&client, "vlan database", command.c_str(), reply.data(), cap);
        reply.resize(strnlen(reply.data(), cap));
        rest.clear();
        char more[4096];
        while (result == 0 && !rest.ends_with("(Config)#") && receive_data(more, sizeof more) == 0)
            rest += more;
        return result;
    }
    std::size_t logins() { return test_support::occurrences(systemLog(), "User admin logged in"); }
    bool hasVlan(vswitch::VlanId id) {
        return model([&](vswitch::Model &model) { return model.hasVlan(id); });
    }

    std::string reply, rest;
};

TEST_F(CliSessionTest, LogsInOnceAndRunsCommands) {
    calls();
    EXPECT_EQ(10000, control(CLI_SESSION_QUERY));
    EXPECT_EQ(0u, calls());
    EXPECT_EQ(0, control(CLI_SESSION_KEEP_ALIVE));
    EXPECT_EQ(10000, control(0));
    test_support::RunningCliServer server(*device);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(0, control(CLI_SESSION_OPEN));
    EXPECT_EQ(0, control(CLI_SESSION_QUERY));
    EXPECT_EQ(0, vlanCommand("vlan 77"));
    EXPECT_TRUE(hasVlan(77));
    EXPECT_NE((reply + rest).find("(Vlan)#"), std::string::npos) << reply << rest;
    EXPECT_EQ(0, control(CLI_SESSION_KEEP_ALIVE));
    EXPECT_EQ(0, vlanCommand("show running-config", 12));
    EXPECT_EQ("\r\n(avswitc", reply);
    EXPECT_EQ(1u, logins());
    EXPECT_EQ(0, control(CLI_SESSION_CLOSE));
    EXPECT_EQ(10000, control(CLI_SESSION_QUERY));
}

TEST_F(CliSessionTest, FailureIsFollowedByAnotherLogin) {
    test_support::RunningCliServer server(*device);
    EXPECT_EQ(0, vlanCommand("vlan 11"));
    // Nothing of it reaches the switch.
    EXPECT_EQ(10000, vlanCommand("vlan 12" + std::string(121, ' ')));
    EXPECT_EQ(10000, control(CLI_SESSION_QUERY));
    EXPECT_EQ(0, vlanCommand("vlan 13" + std::string(120, ' ')));
    EXPECT_TRUE(hasVlan(13));
    EXPECT_EQ(2u, logins());
    // The switch closes what is silent for too long.
    for (const bool kept : {true, false}) {
        platform::manual_clock::advance(4min);
        if (kept)
            EXPECT_EQ(0, control(CLI_SESSION_KEEP_ALIVE));
        platform::manual_clock::advance(4min);
        server.tick();
        EXPECT_EQ(0, vlanCommand("vlan 14"));
        EXPECT_EQ(kept ? 2u : 3u, logins());
    }
    platform::manual_clock::advance(6min);
    server.tick();
    EXPECT_EQ(10000, control(CLI_SESSION_KEEP_ALIVE));
    EXPECT_EQ(10000, control(CLI_SESSION_QUERY));
    // So does one whose user has got another password: before it runs anything.
    for (const bool kept : {true, false}) {
        EXPECT_EQ(0, control(CLI_SESSION_OPEN));
        commands(std::string("configure; username admin password \"") + kPassword + (kept ? "!\"" : "\""));
        EXPECT_EQ(10000, kept ? control(CLI_SESSION_KEEP_ALIVE) : vlanCommand("vlan 12"));
        EXPECT_EQ(10000, control(CLI_SESSION_QUERY));
    }
    EXPECT_FALSE(hasVlan(12));
    for (const auto *missing : {"mode", "command", "reply"})
        EXPECT_EQ(10000, fastpath_cli_vlan_db_cmd(&client, *missing == 'm' ? nullptr : "end",
                                                  *missing == 'c' ? nullptr : "end",
                                                  *missing == 'r' ? nullptr : reply.data(), 2));
}

TEST_F(CliSessionTest, NoSessionWithoutCredentialsOrServer) {
    const std::pair<const char *, const char *> kCalls[] = {
        {"rpcclt_openapiUserNameSizeGet", "Get Username Max Failed (-2)."},
        {"rpcclt_openapiPasswordSizeGet", "Get Password Max Failed (-2)."},
        {"rpcclt_openapiUserPasswordGet", "openapiUserPasswordGet Error: -2."}};
    for (const auto &[call, text] : kCalls) {
        failCall(call);
        EXPECT_EQ(10000, control(CLI_SESSION_OPEN));
        EXPECT_EQ(1u, logged(text)) << text;
        clearFaults();
    }
    setenv("PAVO_CLI_PORT", "1", 1);
    EXPECT_EQ(10000, control(CLI_SESSION_OPEN));
    unsetenv("PAVO_CLI_PORT");
    EXPECT_EQ(1u, logged("Connection refused\n"));
    EXPECT_EQ(10000, send_data("end", 3));
    EXPECT_EQ(1u, logged("Failed to write data to telnet server\n"));
    reply = "stale";
    EXPECT_EQ(10000, receive_data(reply.data(), 5));
    EXPECT_EQ('\0', reply.front());
    for (const auto &[text, length] :
         {std::pair<const char *, int>{nullptr, 1}, {"a", 0}, {"a", -1}, {"a", 128}})
        EXPECT_EQ(10000, send_data(text, length));
}

// A server that says one thing after another, each when it has got a line. '|' stands for a packet's end,
// "..." at the end for saying it again and again.
class ScriptedServer {
  public:
    ScriptedServer(std::vector<std::string> says, bool closes)
        : fd_(socket(AF_INET, SOCK_STREAM, 0)), says_(std::move(says)), closes_(closes) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(fd_, reinterpret_cast<sockaddr *>(&address), size);
        listen(fd_, 1);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size);
        port = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;
    // When the client has gone.
    std::string linesReceived() {
        thread_.join();
        return lines_;
    }
    ~ScriptedServer() {
        if (thread_.joinable())
            thread_.join();
        close(fd_);
    }

    std::uint16_t port = 0;

  private:
    void serve() {
        const int peer = accept(fd_, nullptr, nullptr);
        bool open = true;
        for (std::size_t i = 0; i < says_.size() && open; ++i) {
            std::string say = says_[i];
            const bool again = say.ends_with("...");
            say.resize(say.size() - (again ? 3 : 0));
            for (const auto once = say; again && say.size() < 4096;)
                say += once;
            do {
                for (std::size_t at = 0; at <= say.size();) {
                    const auto end = std::min(say.find('|', at), say.size());
                    open = send(peer, say.data() + at, end - at, MSG_NOSIGNAL) >= 0;
                    if (end < say.size())
                        std::this_thread::sleep_for(10ms);  // it comes alone
                    at = end + 1;
                }
            } while (again && open);
            open = open && (i + 1 == says_.size() || readLine(peer));
        }
        while (open && !closes_ && readLine(peer)) {
        }
        close(peer);
    }
    bool readLine(int peer) {
        for (char c = 0; c != '\n'; lines_ += c == '\0' ? '0' : c)
            if (recv(peer, &c, 1, 0) <= 0)
                return false;
        return true;
    }

    int fd_;
    std::vector<std::string> says_;
    bool closes_;
    std::string lines_;
    std::thread thread_;
};

class LoginTest : public test_support::SwitchTest {
  protected:
    std::int32_t login(std::vector<std::string> says, bool closes = false) {
        ScriptedServer server(std::move(says), closes);
        CliClient connection(patience);
        EXPECT_TRUE(connection.connect(server.port));
        const auto result = connection.login("admin", kPassword);
        connection.close();
        lines = server.linesReceived();
        EXPECT_EQ(0u, logged(kPassword));
        return result;
    }
    const std::vector<std::string> kPrompts = {"\r\nUser:", "Password:", "\r\n(a) >", "(a) #",
                                               "(a) (Config)#"};
    const std::string kLines = std::string("admin0\r\n") + kPassword + "0\r\nenable0\r\nconfigure0\r\n";
    std::chrono::milliseconds patience = 3s;
    std::string lines;
};

TEST_F(LoginTest, GoesByThePromptsHoweverTheyCome) {
    EXPECT_EQ(0, login(kPrompts));
    EXPECT_EQ(kLines, lines);
    // Echoes of the password, one of them cut in two by an answer, are not shown.
    EXPECT_EQ(0, login({"Welcome to (hall)\r\n|Us|er:Par", "ole 123|Pass|word|:", "Parole| 123\r\n(a) >",
                        "(|a|) |#", "conf|igure"}));
    EXPECT_EQ(kLines, lines);
    EXPECT_EQ(0u, logged("Par") + logged("123"));
    EXPECT_EQ(1u, logged("buffer: (Welcome to (hall)\r\nUser:********)"));
    EXPECT_EQ(1u, logged("buffer: (********Password:)"));
    EXPECT_EQ(1u, logged("buffer: (********\r\n(a) >)"));
    EXPECT_EQ(2u, logged("Sent: (********)"));
    // Every option is refused.
    EXPECT_EQ(0, login({"\xff\xfb|\x01\xff\xfd\x1f\xff\xfa\x18(a) >\xff\xf0\xff\xf9User:", "Password:",
                        "(a) (Config)#"}));
    EXPECT_EQ("\xff\xfe\x01\xff\xfc\x1f" + kLines.substr(0, kLines.find("enable")), lines);
    EXPECT_EQ(0, login({"(a) #", "(a) (Config)#"}));
    EXPECT_EQ(3u, logged("stage: 1\n"));
    // A prompt is none before its last byte.
    for (const auto &prompt : kPrompts)
        for (std::size_t size = 0; size < prompt.size(); ++size)
            EXPECT_EQ(LoginStage::Invalid, loginStageOf(prompt.substr(0, size))) << prompt.substr(0, size);
}

TEST_F(LoginTest, EndsWhateverTheServerDoes) {
    const auto invalid = [&] { return logged("We encountered an invalid switch prompt!\n"); };
    patience = 400ms;
    EXPECT_EQ(-2, login({})) << "says nothing";
    for (std::size_t stage = 0; stage < kPrompts.size(); ++stage)
        EXPECT_EQ(stage == 4 ? 0 : -2,
                  login({kPrompts.begin(), kPrompts.begin() + static_cast<std::ptrdiff_t>(stage) + 1}, true))
            << "closes";
    EXPECT_EQ(-2, login({""}, true));
    EXPECT_EQ(0u, invalid());
    for (const auto *flood : {"login: ", "x...", "(x...", "User:...", "\xff\xfb\x01..."})
        EXPECT_NE(0, login({flood})) << flood;
    EXPECT_EQ(4u, invalid());
    EXPECT_EQ(10000, login(std::vector<std::string>(20, "User:"))) << "the same again and again";
}

TEST_F(LoginTest, ReceivesWhatThereIsRoomFor) {
    ScriptedServer server({std::string(10'000, 'a') + '\0' + "bc"}, true);
    CliClient connection(2s);
    ASSERT_TRUE(connection.connect(server.port));
    EXPECT_EQ(std::string(8190, 'a'), connection.receive(8190));
    EXPECT_EQ(std::string(1810, 'a') + "b", connection.receive(1811));
    EXPECT_EQ("c", connection.receive(2));
    EXPECT_EQ(std::nullopt, connection.receive(2));
    EXPECT_FALSE(connection.discardInput());
}

}  // namespace
}  // namespace pavo
