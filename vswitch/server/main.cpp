// vswitchd: the virtual switch OS as a process of its own.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <asio.hpp>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "platform/paths.h"
#include "vswitch/rpc/wire.h"
#include "vswitch/server/server.h"

namespace {

using asio::local::stream_protocol;
using vswitch::Server;

// One client: reads a request, answers it, reads the next. Everything runs on the one thread of the
// io_context, so the switch is in one consistent state whatever the number of clients.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(stream_protocol::socket socket, Server &server)
        : socket_(std::move(socket)), server_(server) {}

    void readRequest() {
        auto self = shared_from_this();
        asio::async_read(socket_, asio::buffer(head_), [self](asio::error_code error, std::size_t) {
            if (!error)
                self->readBody();
        });
    }

  private:
    void readBody() {
        const auto length = vswitch::rpc::getLength(head_);
        if (length > vswitch::rpc::kFrameMax)
            return;
        body_.resize(length);
        auto self = shared_from_this();
        asio::async_read(socket_, asio::buffer(body_), [self](asio::error_code error, std::size_t) {
            if (!error)
                self->answer();
        });
    }

    void answer() {
        if (!server_.handle(body_.data(), body_.size(), reply_))
            return;
        vswitch::rpc::putLength(reply_.size(), head_);
        const std::array<asio::const_buffer, 2> frame{asio::buffer(head_), asio::buffer(reply_)};
        auto self = shared_from_this();
        asio::async_write(socket_, frame, [self](asio::error_code error, std::size_t) {
            if (!error)
                self->readRequest();
        });
    }

    stream_protocol::socket socket_;
    Server &server_;
    unsigned char head_[vswitch::rpc::kLengthSize] = {};
    std::string body_, reply_;
};

class Listener {
  public:
    Listener(asio::io_context &io, Server &server, const std::string &address)
        : acceptor_(io, stream_protocol::endpoint(address)), timer_(io), server_(server) {
        accept();
        keepTime();
    }

  private:
    void accept() {
        acceptor_.async_accept([this](asio::error_code error, stream_protocol::socket socket) {
            if (!error)
                std::make_shared<Connection>(std::move(socket), server_)->readRequest();
            if (error != asio::error::operation_aborted)
                accept();
        });
    }

    // Tables age and delayed changes take effect also while nobody calls.
    void keepTime() {
        timer_.expires_after(std::chrono::milliseconds(100));
        timer_.async_wait([this](asio::error_code error) {
            if (error)
                return;
            server_.tick();
            keepTime();
        });
    }

    stream_protocol::acceptor acceptor_;
    asio::steady_timer timer_;
    Server &server_;
};

int fail(const std::string &why) {
    std::fprintf(stderr, "vswitchd: %s\n", why.c_str());
    return 1;
}

int serve(const vswitch::ModelConfig &config, const std::string &startup) {
    // The folders that programs on the switch expect.
    std::error_code ignored;
    const std::filesystem::path socketPath(platform::fsPath(vswitch::rpc::kSocketPath));
    std::filesystem::create_directories(socketPath.parent_path(), ignored);
    std::filesystem::create_directories(platform::fsPath(platform::paths::kScriptDir), ignored);

    // One switch per root: the lock goes with the process, so what is left of a killed one does not matter.
    const auto lockPath = socketPath.string() + ".lock";
    const int lock = ::open(lockPath.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock < 0)
        return fail("cannot open " + lockPath);
    if (::flock(lock, LOCK_EX | LOCK_NB) != 0)
        return fail("already running: " + lockPath);

    Server server(config);
    if (!startup.empty()) {
        std::ifstream in(startup);
        std::ostringstream script;
        if (!(script << in.rdbuf()))
            return fail("cannot read " + startup);
        server.cli().runScript(script.str());
        if (server.cli().unknownCommands() + server.cli().refusedCommands() > 0)
            std::fprintf(stderr, "vswitchd: some commands of %s were refused\n", startup.c_str());
    }

    // A socket address is short, a root may be deep: bind from inside the folder.
    asio::io_context io(1);
    const int folder = ::open(socketPath.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ::unlink(socketPath.c_str());
    const auto mask = ::umask(0077);
    Listener listener(io, server,
                      "/proc/self/fd/" + std::to_string(folder) + "/" + socketPath.filename().string());
    ::umask(mask);
    ::close(folder);

    asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait([&](asio::error_code, int) { io.stop(); });
    std::printf("vswitchd: %u ports and %u LAGs, listening on %s\n", config.physicalPorts, config.lags,
                socketPath.c_str());
    std::fflush(stdout);
    io.run();
    ::unlink(socketPath.c_str());
    return 0;
}

}  // namespace

int main(int argc, char **argv) try {
    CLI::App app{
        "vswitchd - the virtual switch OS.\nListens on /tmp/vswitchd.sock under the folder PAVO_ROOT."};
    vswitch::ModelConfig config;
    std::string startup;
    app.add_option("--ports", config.physicalPorts, "Physical ports")
        ->check(CLI::Range(1u, vswitch::kInterfacesMax))
        ->capture_default_str();
    app.add_option("--lags", config.lags, "Link aggregation groups")
        ->check(CLI::Range(0u, vswitch::kInterfacesMax))
        ->capture_default_str();
    app.add_option("--fdb", config.fdbCapacity, "Forwarding table entries")->capture_default_str();
    app.add_option("--model", config.machineModel, "Machine model")->capture_default_str();
    app.add_option("--name", config.hostName, "Host name")->capture_default_str();
    app.add_option("--config", startup, "Start-up configuration: a file of CLI commands");
    CLI11_PARSE(app, argc, argv);
    if (config.physicalPorts + config.lags > vswitch::kInterfacesMax)
        return fail("at most " + std::to_string(vswitch::kInterfacesMax) + " interfaces in all");
    return serve(config, startup);
} catch (const std::exception &e) {
    return fail(e.what());
}
