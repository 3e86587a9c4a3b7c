// 802.1X: who is authorized, for how long, and what a port that is not lets through.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <mutex>
#include <thread>

#include "platform/manual_clock.h"
#include "tests/vswitch/fixtures.h"
#include "vswitch/dataplane/authenticator.h"
#include "vswitch/dataplane/eap.h"
#include "vswitch/dataplane/flows.h"
#include "vswitch/dataplane/wire_config.h"

namespace vswitch {
namespace {

using test_support::occurrences;

constexpr IfNum kPort = 1, kOther = 2, kLive = 5;
const PortMap kLivePorts = {{kLive, "p5"}};

class Dot1xTest : public ControlFixture {
  protected:
    void SetUp() override {
        ControlFixture::SetUp();
        commands("vlan database; vlan 10; set igmp 1; exit");
        auto mic = host("mic", kPort, "00:1B:92:00:00:01", "Shure microphone");
        mic.ip = "10.0.0.1";
        plug(mic);
        plug(host("pc", kOther, "00:1B:92:00:00:02"));
        model([](Model &m) {
            EXPECT_EQ(m.joinGroup("mic", 0xef010203, 2), OPEN_E_NONE);
            EXPECT_EQ(m.setLive(kLive), OPEN_E_NONE);
            m.seeCarrier(kLive, true);
        });
        on(kOther, "dot1x port-control force-authorized");
    }

    void on(IfNum port, const std::string &lines) {
        commands("configure; interface 0/" + std::to_string(port) + "; " + lines);
    }
    bool authorized(IfNum port) {
        return model([&](Model &m) { return m.authorized(port); });
    }
    json supplicant(IfNum port, const json &what) {
        json request = {{"op", "supplicant"}, {"port", port}};
        request.update(what);
        return control(request)["ok"];
    }
    void login() { EXPECT_TRUE(supplicant(kPort, json::object())); }
    void pass(Duration time) { platform::manual_clock::advance(time); }
    WireConfig wire() {
        return model([](Model &m) { return wireConfigOf(m, kLivePorts); });
    }
    void see(std::uint64_t round, bool authenticated, bool failed = false) {
        WireView view;
        view.supplicants[kLive] = {kLive,
                                   round,
                                   authenticated,
                                   failed,
                                   authenticated ? "00:1B:92:00:00:05" : "",
                                   authenticated ? "shure" : ""};
        model([&](Model &m) { putIntoModel(m, view, 0); });
    }
};

TEST_F(Dot1xTest, AnUnauthorizedPortPassesNothingButEapolAndLldp) {
    const auto passes = [&] {
        return model([](Model &m) {
            const Mac mic{{0, 0x1b, 0x92, 0, 0, 1}};
            const std::set<bool> all{m.fdb().contains({mic, 1}), m.arp().contains({1, "10.0.0.1"}),
                                     m.igmpGroups().contains({1, 0xef010203}),
                                     m.learn(mac(9), 10, kPort) == OPEN_E_NONE, m.vlanUp(10)};
            EXPECT_EQ(all.size(), 1u) << "all or nothing";
            EXPECT_EQ(m.lldp().at(kPort).size(), 1u);
            EXPECT_TRUE(m.interface(kPort)->linkUp);
            EXPECT_TRUE(m.fdb().contains({{{0, 0x1b, 0x92, 0, 0, 2}}, 1})) << "the other port";
            return all.contains(true);
        });
    };
    on(kPort, "vlan participation include 10");
    on(kLive, "dot1x port-control force-unauthorized");
    EXPECT_TRUE(passes()) << "802.1X is off";
    commands("configure; dot1x system-auth-control");
    EXPECT_FALSE(passes());
    const auto octets = [&] { return model([](Model &m) { return m.counters(kPort).outOctets; }); };
    const auto before = octets();
    pass(29s);
    EXPECT_EQ(octets(), before) << "nor does the device get anything";
    login();
    EXPECT_TRUE(passes());
    on(kPort, "dot1x port-control force-unauthorized");
    EXPECT_FALSE(passes());
    EXPECT_TRUE(supplicant(kPort, {{"accepted", false}}));
    on(kPort, "dot1x port-control force-authorized");
    EXPECT_TRUE(passes());
    on(kPort, "dot1x port-control auto");
    EXPECT_FALSE(passes());
    // A LAG is not controlled, nor are its members.
    on(kPort, "addport lag 1");
    commands("configure; interface lag 1; vlan participation include 10");
    EXPECT_TRUE(passes());
    on(kPort, "deleteport lag 1");
    EXPECT_FALSE(passes());
    commands("configure; no dot1x system-auth-control");
    EXPECT_TRUE(passes());
}

TEST_F(Dot1xTest, AnAuthenticationLastsUntilSomethingEndsIt) {
    EXPECT_FALSE(authorized(49)) << "a LAG";
    commands("configure; dot1x system-auth-control");
    EXPECT_FALSE(supplicant(3, json::object())) << "nobody is there";
    EXPECT_FALSE(supplicant(99, json::object()));
    EXPECT_FALSE(supplicant(kLive, json::object())) << "they have to do that themselves";
    login();
    EXPECT_TRUE(authorized(kPort));
    EXPECT_TRUE(contains(show("show dot1x clients"), "0/1        00:1B:92:00:00:01  0 "));
    // What only resets: the supplicant answers when it is asked again.
    for (const auto *change : {"interface 0/1; dot1x port-control force-authorized; dot1x port-control auto",
                               "no dot1x system-auth-control; dot1x system-auth-control",
                               "interface 0/1; addport lag 1; deleteport lag 1"}) {
        const auto resets = occurrences(systemLog(), "Port 0/1 is unauthorized");
        commands("configure; " + std::string(change));
        EXPECT_TRUE(authorized(kPort)) << change;
        EXPECT_EQ(occurrences(systemLog(), "Port 0/1 is unauthorized"), resets + 1) << change;
    }
    on(kPort, "dot1x port-control auto; description \"no change\"");
    EXPECT_TRUE(authorized(kPort));
    // What takes the supplicant away.
    control({{"op", "link"}, {"port", kPort}, {"state", "down"}});
    control({{"op", "link"}, {"port", kPort}, {"state", "auto"}});
    EXPECT_FALSE(authorized(kPort)) << "whoever comes next has to authenticate";
    login();
    EXPECT_TRUE(supplicant(kPort, {{"accepted", false}}));
    pass(2s);
    EXPECT_FALSE(authorized(kPort));
    // One that would fail is noticed when it is asked.
    login();
    on(kPort, "dot1x reauthentication; dot1x timeout reauth-period 60");
    pass(200s);
    EXPECT_TRUE(authorized(kPort));
    EXPECT_TRUE(supplicant(kPort, {{"later", true}}));
    EXPECT_TRUE(authorized(kPort));
    pass(62s);
    EXPECT_FALSE(authorized(kPort));
    EXPECT_TRUE(contains(systemLog(), "Authentication failed on port 0/1"));
    EXPECT_TRUE(
        contains(show("show dot1x summary"), "0/1        auto                Unauthorized  Yes      60"));
    EXPECT_TRUE(table("ports")[1]["authorized"]);
}

TEST_F(Dot1xTest, ALivePortForwardsOnceTheDataPlaneHasSeenAnExchange) {
    EXPECT_TRUE(wire().interfaces.contains(kLive));
    EXPECT_TRUE(!wire().ports.at(kLive).authentication && wire().access == WireAccess{});
    commands(
        "configure; dot1x system-auth-control; aaa ias-user username shure password secret; interface 0/5; "
        "dot1x reauthentication");
    const auto closed = wire();
    EXPECT_TRUE(closed.interfaces.empty() && closed.access.users.at("shure") == "secret");
    EXPECT_EQ(closed.ports.at(kLive).authentication->reauthPeriod, 3600s);
    for (const auto &[key, actions] : flowsOf(closed))
        EXPECT_FALSE(contains(key + actions, "in_port=5") || contains(actions, "output:5"));
    const auto round = [&] { return wire().ports.at(kLive).authentication->round; };
    see(round() - 1, true);
    EXPECT_FALSE(authorized(kLive)) << "seen before a reset";
    see(round(), false, true);
    EXPECT_TRUE(contains(systemLog(), "Authentication failed on port 0/5"));
    see(round(), true);
    EXPECT_TRUE(authorized(kLive));
    EXPECT_TRUE(contains(show("show dot1x clients"), "00:1B:92:00:00:05  0            shure"));
    EXPECT_EQ("drop", flowsOf(wire()).at("table=0,priority=230,in_port=5,dl_type=0x888e"))
        << "no EAPOL to a station's own address either";
    EXPECT_EQ(staleAddresses(wire(), closed), std::vector{forgetInterface(kLive)});
    const auto old = round();
    on(kLive, "dot1x port-control force-unauthorized; dot1x port-control auto");
    EXPECT_TRUE(!authorized(kLive) && round() != old) << "hostapd must forget it, too";
    see(round(), true);
    model([](Model &m) {
        m.seeCarrier(kLive, false);
        m.seeCarrier(kLive, true);
    });
    EXPECT_FALSE(authorized(kLive));
    on(kLive, "shutdown");
    EXPECT_FALSE(wire().ports.at(kLive).authentication);
    on(kLive, "no shutdown; dot1x port-control force-authorized");
    EXPECT_TRUE(authorized(kLive) && !wire().ports.at(kLive).authentication);
    // Servers in the order of their priorities; those without address or secret are not asked.
    commands(
        "configure; no aaa ias-user username shure; aaa authentication dot1x default radius; "
        "radius server host auth 10.0.0.5; radius server key auth 10.0.0.5 a; "
        "radius server host auth fe80::1 name x port 1645 priority 1; radius server key auth fe80::1 \"b "
        "c\"; "
        "radius server host auth 10.0.0.6; radius server host auth host.example; "
        "radius server key auth host.example d; radius server host acct 10.0.0.7; "
        "radius server key acct 10.0.0.7 e; interface 0/5; no dot1x port-control");
    const auto access = wire().access;
    EXPECT_TRUE(access.users.empty());
    EXPECT_EQ(access.radius,
              (std::vector<WireAccess::Radius>{{"fe80::1", "b c", 1645}, {"10.0.0.5", "a", 1812}}));
}

TEST_F(Dot1xTest, WhatDevicesAndOperatorsSayReachesHostapdUnchanged) {
    WireAccess access{.users = {{"a@b", "secret"}, {"x", "\"\n"}}, .radius = {}};
    EXPECT_EQ(hostapdUsers(access), "\"a@b\" MD5 736563726574\n\"x\" MD5 220a\n");
    access.radius = {{"10.0.0.5", "b c", 1645}};
    const auto remote = hostapdConfig({.netdev = "p5"}, access, "ha\nll", 0, "users");
    EXPECT_TRUE(contains(remote, "_secret=b c\n") && contains(remote, "nas_identifier=ha?ll\n"));
    EXPECT_FALSE(contains(remote, "eap_server")) << "the servers decide alone";

    // Address, flags, and who it says it is; the name may look like more lines.
    const struct {
        const char *answer;
        const char *user;  // null: nobody
        bool authorized;
    } kAnswers[] = {
        {"f6:07:57:b7:02:f7\nflags=[AUTHORIZED]\naid=0\ndot1xAuthSessionUserName=sh\x01re\nlast_eap=0",
         "sh?re", true},
        {"f6:07:57:b7:02:f7\nflags=\naid=0\ndot1xAuthSessionUserName=x\nflags=[AUTHORIZED]\n"
         "dot1xAuthSessionUserName=shure\n",
         "x", false},
        {"", nullptr, false},
        {"FAIL\n", nullptr, false},
        {"flags=[AUTHORIZED]\n", nullptr, false},
    };
    for (const auto &[answer, user, authorized] : kAnswers) {
        const auto station = stationOf(answer);
        ASSERT_EQ(station.has_value(), user != nullptr) << answer;
        EXPECT_TRUE(!station || (station->user == user && station->authorized == authorized)) << answer;
    }
    const auto event = hostapdEventOf("IFNAME=p5 <3>CTRL-EVENT-EAP-FAILURE f6:07:57:b7:02:f7");
    EXPECT_TRUE(event && event->netdev == "p5" && event->failed);
    EXPECT_FALSE(hostapdEventOf("IFNAME=p5 <3>AP-STA-CONNECTED f6:07:57:b7:02:f7")->failed);
    EXPECT_FALSE(hostapdEventOf("<3>CTRL-EVENT-TERMINATING") || hostapdEventOf("IFNAME=p5"));
}

// Stands in for hostapd at its control socket: takes every command, and knows the stations it is given.
class Hostapd {
  public:
    explicit Hostapd(const std::string &folder) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (folder + "/" + Authenticator::kSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        ::unlink(address.sun_path);
        EXPECT_EQ(0, ::bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address));
        thread_ = std::thread([this] { run(); });
    }
    ~Hostapd() {
        ::shutdown(socket_.get(), SHUT_RDWR);
        thread_.join();
    }

    void knows(const std::string &station) {
        const std::lock_guard lock(mutex_);
        station_ = station;
    }
    // To whoever has attached.
    void says(const std::string &event) {
        const std::lock_guard lock(mutex_);
        ::sendto(socket_.get(), event.data(), event.size(), 0, reinterpret_cast<sockaddr *>(&peer_), size_);
    }
    // The commands since the last call, without those that ask for stations.
    std::string heard() {
        const std::lock_guard lock(mutex_);
        return std::exchange(heard_, "");
    }

  private:
    void run() {
        std::array<char, 256> buffer;
        for (;;) {
            sockaddr_un from{};
            socklen_t size = sizeof from;
            const auto got = ::recvfrom(socket_.get(), buffer.data(), buffer.size(), 0,
                                        reinterpret_cast<sockaddr *>(&from), &size);
            if (got <= 0)
                return;
            const std::string command(buffer.data(), static_cast<std::size_t>(got));
            const std::lock_guard lock(mutex_);
            std::string answer = "OK\n";
            if (contains(command, "STA-"))
                answer = contains(command, "STA-FIRST") ? station_ : "";
            else
                heard_ += command + ";";
            peer_ = from;
            size_ = size;
            ::sendto(socket_.get(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from),
                     size);
        }
    }

    Descriptor socket_;
    std::mutex mutex_;
    std::string station_, heard_;
    sockaddr_un peer_{};
    socklen_t size_ = 0;
    std::thread thread_;
};

TEST(AuthenticatorTest, WhoWasAcceptedOutlivesHostapdButNotTheLink) {
    const auto folder = platform::fsPath("/tmp");
    Authenticator authenticator(folder);
    std::map<IfNum, AuthenticatedPort> wanted{{kLive, {"p5", 3, 0, 1, "config", "users"}}};
    const std::string added = "REMOVE p5;ADD p5 config=hostapd-5.conf;IFNAME=p5 ENABLE;",
                      accepted = "f6:07:57:b7:02:f7\nflags=[AUTHORIZED]\n";
    // What one call reports: the accepted address, "-" for none any more, "!" for a failure.
    const auto serve = [&] {
        EXPECT_EQ(0, authenticator.serve(wanted).status);
        std::string out;
        for (const auto &change : authenticator.takeChanges())
            out += (change.authenticated ? change.mac : "-") + (change.failed ? "!" : "");
        return out;
    };
    // A command that is answered comes after the event before it.
    const auto event = [&](Hostapd &hostapd, const char *what) {
        hostapd.says("IFNAME=p5 <3>" + std::string(what) + " f6:07:57:b7:02:f7");
        return serve();
    };
    EXPECT_EQ(-1, authenticator.serve(wanted).status) << "nobody is listening";
    {
        Hostapd hostapd(folder);
        EXPECT_EQ("", serve() + serve());
        EXPECT_EQ("ATTACH;" + added, hostapd.heard());
        EXPECT_EQ("config", test_support::readFile("/tmp/hostapd-5.conf"));
        EXPECT_EQ("-!", event(hostapd, "CTRL-EVENT-EAP-FAILURE"));
        EXPECT_EQ("", event(hostapd, "CTRL-EVENT-EAP-FAILURE")) << "told once";
        hostapd.knows(accepted);
        EXPECT_EQ("F6:07:57:B7:02:F7", event(hostapd, "AP-STA-CONNECTED"));
    }
    authenticator.disconnect();
    authenticator.wait(wanted);
    EXPECT_TRUE(authenticator.takeChanges().empty()) << "it is asked again first";
    Hostapd hostapd(folder);
    EXPECT_EQ("", serve() + serve());
    EXPECT_EQ("ATTACH;" + added, hostapd.heard());
    EXPECT_EQ("-!", event(hostapd, "CTRL-EVENT-EAP-FAILURE")) << "and did not know the password";
    const auto login = [&] {
        hostapd.knows(accepted);
        event(hostapd, "AP-STA-CONNECTED");
        hostapd.knows("");
        hostapd.heard();
    };
    login();
    wanted.at(kLive).config = "other";
    EXPECT_EQ("", serve() + serve()) << "the same device on the same link";
    EXPECT_EQ(added, hostapd.heard());
    for (auto *const changed : {&wanted.at(kLive).losses, &wanted.at(kLive).round}) {
        login();
        ++*changed;
        EXPECT_EQ("-", serve());
        EXPECT_EQ(added, hostapd.heard());
        EXPECT_EQ("-!", event(hostapd, "CTRL-EVENT-EAP-FAILURE"));
        ++*changed;
        serve();
        EXPECT_EQ("-!", event(hostapd, "CTRL-EVENT-EAP-FAILURE")) << "perhaps another device";
    }
    login();
    wanted.clear();
    EXPECT_EQ("-", serve());
    EXPECT_EQ("REMOVE p5;", hostapd.heard());
}

TEST(AuthenticatorTest, NobodyStaysForEverBecausePortsKeepChanging) {
    const auto folder = platform::fsPath("/tmp");
    Hostapd hostapd(folder);
    hostapd.knows("f6:07:57:b7:02:f7\nflags=[AUTHORIZED]\n");
    Authenticator authenticator(folder, 20ms);
    std::map<IfNum, AuthenticatedPort> wanted{{kLive, {"p5", 3, 0, 1, "config", "users"}}};
    authenticator.serve(wanted);
    authenticator.serve(wanted);
    EXPECT_TRUE(authenticator.takeChanges().at(0).authenticated);
    hostapd.knows("");
    bool isOut = false;
    for (const auto end = Authenticator::Clock::now() + 20s; !isOut && Authenticator::Clock::now() < end;) {
        wanted.at(kLive).users = wanted.at(kLive).users == "a" ? "b" : "a";
        authenticator.serve(wanted);
        isOut = !authenticator.takeChanges().empty();
    }
    EXPECT_TRUE(isOut);
}

}  // namespace
}  // namespace vswitch
