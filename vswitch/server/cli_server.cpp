#include "vswitch/server/cli_server.h"

#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "vswitch/server/telnet_session.h"

namespace vswitch {

using asio::ip::tcp;

// Reads, works off line by line, and reads on when all answers are sent.
class CliServer::Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(tcp::socket socket, std::shared_ptr<const Access> access)
        : socket_(std::move(socket)),
          pause_(socket_.get_executor()),
          access_(std::move(access)),
          since_(platform::monotonicNow()) {}

    void start() { send(TelnetSession::greeting()); }

    bool isOverdue() const {
        const auto passed = static_cast<double>((platform::monotonicNow() - since_).count());
        const auto most = session_.isLoggedIn() ? kIdleMax : kLoginMax;
        return passed > static_cast<double>(most.count()) * platform::clockRate();
    }
    void close() {
        asio::error_code ignored;
        std::ignore = socket_.shutdown(tcp::socket::shutdown_both, ignored);
        std::ignore = socket_.close(ignored);
    }

  private:
    void send(std::string text) {
        output_ = std::move(text);
        asio::async_write(socket_, asio::buffer(output_),
                          [self = shared_from_this()](asio::error_code error, std::size_t) {
                              if (!error)
                                  self->work();
                          });
    }

    // A client that does not wait keeps its place among the sessions until then, too.
    void sendLater(std::string text) {
        output_ = std::move(text);
        pause_.expires_after(kRefusalPause);
        pause_.async_wait(
            [self = shared_from_this()](asio::error_code) { self->send(std::move(self->output_)); });
    }

    void work() {
        std::optional<std::string> output;
        (*access_)([&](Server &server) {
            const bool before = session_.isLoggedIn();
            output = session_.next(server);
            // The time for the login does not begin anew with each character.
            if (session_.isLoggedIn() || before)
                since_ = platform::monotonicNow();
        });
        if (output && session_.hasRefused())
            sendLater(std::move(*output));
        else if (output)
            send(std::move(*output));
        else if (session_.isOver())
            close();
        else
            read();
    }

    void read() {
        socket_.async_read_some(asio::buffer(input_),
                                [self = shared_from_this()](asio::error_code error, std::size_t size) {
                                    if (error)
                                        return;
                                    self->session_.feed({self->input_.data(), size});
                                    self->work();
                                });
    }

    tcp::socket socket_;
    asio::steady_timer pause_;
    std::shared_ptr<const Access> access_;
    TelnetSession session_;
    platform::Duration since_;  // the last input of a user, or the connection before there is one
    std::array<char, 1024> input_{};
    std::string output_;
};

CliServer::CliServer(asio::io_context &io, std::uint16_t port, Access access)
    : acceptor_(io, tcp::endpoint(asio::ip::address_v4::loopback(), port)),
      access_(std::make_shared<const Access>(std::move(access))) {
    accept();
}

CliServer::~CliServer() = default;

void CliServer::accept() {
    accepting_ = true;
    acceptor_.async_accept([this](asio::error_code error, tcp::socket socket) {
        if (error == asio::error::operation_aborted)
            return;
        accepting_ = false;
        // Out of descriptors, for instance: the next tick tries again.
        if (error)
            return;
        welcome(std::move(socket));
        accept();
    });
}

void CliServer::welcome(tcp::socket socket) {
    std::erase_if(connections_, [](const auto &connection) { return connection.expired(); });
    if (connections_.size() < kSessionsMax) {
        const auto connection = std::make_shared<Connection>(std::move(socket), access_);
        connections_.push_back(connection);
        connection->start();
        return;
    }
    asio::error_code ignored;
    std::ignore = socket.non_blocking(true, ignored);
    socket.write_some(asio::buffer(std::string("Too many sessions.\r\n")), ignored);
}

void CliServer::tick() {
    for (const auto &weak : connections_)
        if (const auto connection = weak.lock(); connection && connection->isOverdue())
            connection->close();
    if (!accepting_)
        accept();
}

}  // namespace vswitch
