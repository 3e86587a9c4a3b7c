// The command line over TCP, on the loopback address: telnet sessions, see telnet_session.h.
//
// At most kSessionsMax sessions at a time. One that is silent for kIdleMax is closed, one that has not
// logged in after kLoginMax, too; who gives a wrong password hears of it after kRefusalPause. All these are
// real time, also where the switch's clock is a faster one: people type in it.
// A client that does not read holds up nobody but itself.
#ifndef PAVO_VSWITCH_SERVER_CLI_SERVER_H
#define PAVO_VSWITCH_SERVER_CLI_SERVER_H

#include <asio.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/clock.h"
#include "vswitch/server/server.h"

namespace vswitch {

class CliServer {
  public:
    static constexpr std::size_t kSessionsMax = 8;
    static constexpr platform::Duration kIdleMax = std::chrono::minutes(5),
                                        kLoginMax = std::chrono::minutes(1);
    static constexpr std::chrono::seconds kRefusalPause{1};

    // Runs an action on the switch, which is up to date then; what the action has changed is kept when it
    // returns.
    using Access = std::function<void(const std::function<void(Server &)> &)>;

    // Port 0: any free one. Throws std::system_error when it is not to be had. `io` is run by one thread.
    CliServer(asio::io_context &io, std::uint16_t port, Access access);
    ~CliServer();

    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

    // Closes sessions whose time is over; to be called often, by the thread that runs `io`.
    void tick();

  private:
    class Connection;
    void accept();
    void welcome(asio::ip::tcp::socket socket);

    asio::ip::tcp::acceptor acceptor_;
    std::shared_ptr<const Access> access_;
    bool accepting_ = false;
    std::vector<std::weak_ptr<Connection>> connections_;
};

}  // namespace vswitch

#endif
