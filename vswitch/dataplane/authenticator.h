// 802.1X on real ports: a hostapd that has the ports with mode auto, told what to do over its control socket.
//
// One hostapd serves all ports: they are added to it and removed while it runs, so a port that changes leaves
// the others alone, and there is one process to watch. It hears EAPOL beside Open vSwitch, as lldpd hears
// LLDP, so an exchange needs no flow entry and goes on while Open vSwitch restarts. It decides who is
// accepted; whether frames pass, the model decides, as with everything else.
//
// hostapd does not look at links and knows nothing of somebody who says nothing. Therefore a port is removed
// when its link is lost, and added when it is back; and where hostapd knows nobody, the switch asks for an
// identity, at once and then every 30 seconds.
//
// When hostapd has ended, or a port has got other settings (users, servers, periods), who was accepted stays
// so for kGrace: on the same link it is the same device, and it is asked to authenticate again at once. The time
// begins anew when hostapd takes the port, but three times that is the end of it.
#ifndef PAVO_VSWITCH_DATAPLANE_AUTHENTICATOR_H
#define PAVO_VSWITCH_DATAPLANE_AUTHENTICATOR_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vswitch/dataplane/process.h"
#include "vswitch/model/types.h"

namespace vswitch {

inline constexpr auto kGrace = std::chrono::seconds(10);

// A port that is to authenticate, as long as all of it stays the same.
struct AuthenticatedPort {
    std::string netdev;
    int index = 0;             // of the interface
    std::uint64_t losses = 0;  // of its carrier
    std::uint64_t round = 0;
    std::string config;  // the text of its file
    std::string users;   // of the one that it refers to

    bool sameLink(const AuthenticatedPort &other) const {
        return netdev == other.netdev && index == other.index && losses == other.losses &&
               round == other.round;
    }
    bool operator==(const AuthenticatedPort &) const = default;
};

// One thread.
class Authenticator {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr const char *kSocket = "hostapd.ctl";
    static constexpr const char *kUsers = "hostapd.users";

    // `folder` is where hostapd runs and has its socket.
    explicit Authenticator(std::string folder, Clock::duration grace = kGrace)
        : folder_(std::move(folder)), grace_(grace) {}

    // Brings hostapd to serving exactly these ports, which have link, and takes in what it says; what does
    // not fit into a tenth of a second follows with the next call. Status as of a tool: 1 hostapd refuses
    // something; -1 it does not answer.
    ToolResult serve(const std::map<IfNum, AuthenticatedPort> &wanted);
    // The same while no hostapd runs: accounts for links, and for those whose grace is over.
    void wait(const std::map<IfNum, AuthenticatedPort> &wanted);
    // hostapd has ended.
    void disconnect();

    // What has changed since the last call.
    std::vector<SeenSupplicant> takeChanges();

    int descriptor() const {
        return socket_.get();
    }  // readable when hostapd says something; -1: not connected
    Clock::time_point next() const { return next_; }  // when serve() has something to do

  private:
    struct Port {
        AuthenticatedPort present;  // what hostapd has been told
        bool here = false;          // it has taken it
        bool authenticated = false;
        bool failureSaid = false;  // on this link, since the last success
        std::string mac, user;
        Clock::time_point graceSince{}, graceUntil{}, nextTry{}, nextLook{}, nextRequest{};
    };

    bool connect();
    std::optional<std::string> request(const std::string &command);
    void grantGrace(Port &port) const;
    void takeEvents();
    void take(std::string_view event);
    void followLinks(const std::map<IfNum, AuthenticatedPort> &wanted);
    bool install(IfNum num, Port &port, const AuthenticatedPort &wanted, ToolResult &result);
    bool look(IfNum num, Port &port);
    void report(IfNum num, Port &port, bool authenticated, const std::string &mac = {},
                const std::string &user = {});

    const std::string folder_;
    const Clock::duration grace_;
    Descriptor socket_;
    std::map<IfNum, Port> ports_;
    std::map<IfNum, SeenSupplicant> changes_;
    Clock::time_point next_{};
};

}  // namespace vswitch

#endif
