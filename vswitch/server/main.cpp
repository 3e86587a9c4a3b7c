// vswitchd: the virtual switch OS as a process of its own.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <asio.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "platform/cli_port.h"
#include "platform/paths.h"
#include "platform/version.h"
#include "vswitch/dataplane/ovs_data_plane.h"
#include "vswitch/rpc/wire.h"
#include "vswitch/server/cli_server.h"
#include "vswitch/server/saved_state.h"
#include "vswitch/server/server.h"

namespace {

using asio::local::stream_protocol;
using vswitch::SavedState;
using vswitch::Server;

// One client: reads a request, answers it, reads the next. Everything runs on the io_context's single thread,
// so the switch is in a consistent state however many clients there are.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    Connection(stream_protocol::socket socket, Server &server, SavedState &state)
        : socket_(std::move(socket)), server_(server), state_(state) {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (::getsockopt(socket_.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0)
            caller_ = peer.pid;
    }

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
        const bool answered = server_.handle(body_.data(), body_.size(), reply_, caller_);
        state_.keep();  // what a reply acknowledges survives the end of this process
        if (!answered)
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
    SavedState &state_;
    unsigned char head_[vswitch::rpc::kLengthSize] = {};
    std::string body_, reply_;
    pid_t caller_ = 0;  // the process that opened the connection
};

class Listener {
  public:
    // `cliServer` may be null.
    Listener(asio::io_context &io, Server &server, SavedState &state, vswitch::CliServer *cliServer,
             const std::string &address)
        : acceptor_(io, stream_protocol::endpoint(address)),
          timer_(io),
          server_(server),
          state_(state),
          cliServer_(cliServer) {
        accept();
        keepTime();
    }

  private:
    void accept() {
        acceptor_.async_accept([this](asio::error_code error, stream_protocol::socket socket) {
            if (!error)
                std::make_shared<Connection>(std::move(socket), server_, state_)->readRequest();
            if (error != asio::error::operation_aborted)
                accept();
        });
    }

    // Tables age, delayed changes take effect and the data plane is followed even while nobody calls.
    void keepTime() {
        timer_.expires_after(std::chrono::milliseconds(50));
        timer_.async_wait([this](asio::error_code error) {
            if (error)
                return;
            server_.tick();
            server_.exchangeWithDataPlane();
            state_.keep();
            if (cliServer_ != nullptr)
                cliServer_->tick();
            keepTime();
        });
    }

    stream_protocol::acceptor acceptor_;
    asio::steady_timer timer_;
    Server &server_;
    SavedState &state_;
    vswitch::CliServer *cliServer_;
};

int fail(const std::string &why) {
    std::fprintf(stderr, "vswitchd: %s\n", why.c_str());
    return 1;
}

// The command line over TCP. Null, with a warning, when somebody else has the port that nobody has
// chosen: many switches may run on one machine, and only those that are used need one. Throws when the
// chosen one is not to be had.
std::unique_ptr<vswitch::CliServer> startCliServer(asio::io_context &io, Server &server, SavedState &state) {
    const auto port = platform::cliPort();
    if (port == 0)
        throw std::invalid_argument("PAVO_CLI_PORT is not a port number");
    const auto access = [&](const std::function<void(Server &)> &action) {
        server.tick();
        action(server);
        state.keep();  // before the answer goes out
    };
    try {
        return std::make_unique<vswitch::CliServer>(io, port, access);
    } catch (const std::system_error &e) {
        const auto why = "no command line on 127.0.0.1:" + std::to_string(port) + ": " + e.code().message();
        if (std::getenv("PAVO_CLI_PORT") != nullptr)
            throw std::runtime_error(why);
        std::fprintf(stderr, "vswitchd: %s; PAVO_CLI_PORT chooses another port\n", why.c_str());
        return nullptr;
    }
}

struct Options {
    vswitch::ModelConfig model;
    std::string startup, state, dataPlane = "scenario";
    std::vector<std::string> ports;
};

// "5=p5,7=p7": only what Linux accepts as an interface name, and nothing that a tool could take for an
// option.
vswitch::PortMap portMapOf(const std::vector<std::string> &entries) {
    vswitch::PortMap ports;
    for (const auto &entry : entries) {
        const auto equals = entry.find('=');
        const auto name = equals == std::string::npos ? "" : entry.substr(equals + 1);
        const bool nameGood = !name.empty() && name.size() <= 15 && name.front() != '-' &&
                              name.front() != '.' &&
                              name.find_first_not_of(
                                  "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                  "0123456789_.-") == std::string::npos;
        unsigned number = 0;
        const auto [end, error] = std::from_chars(entry.data(), entry.data() + entry.size(), number);
        if (!nameGood || error != std::errc{} || end != entry.data() + equals ||
            !ports.emplace(number, name).second)
            throw std::invalid_argument("not a port and its interface, or a duplicate port: " + entry);
        for (const auto &[port, other] : ports)
            if (port != number && other == name)
                throw std::invalid_argument("duplicate interface: " + entry);
    }
    return ports;
}

int serve(const Options &options) {
    const auto &config = options.model;
    const auto &startup = options.startup;
    // The folders that programs on the switch expect to exist.
    std::error_code ignored;
    const std::filesystem::path socketPath(platform::fsPath(vswitch::rpc::kSocketPath));
    std::filesystem::create_directories(socketPath.parent_path(), ignored);
    std::filesystem::create_directories(platform::fsPath(platform::paths::kScriptDir), ignored);

    // One switch per root: the lock ends with the process, so what a killed one left behind does not matter.
    const auto lockPath = socketPath.string() + ".lock";
    const int lock = ::open(lockPath.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock < 0)
        return fail("cannot open " + lockPath);
    if (::flock(lock, LOCK_EX | LOCK_NB) != 0)
        return fail("already running: " + lockPath);

    Server server(config);
    SavedState state(server, options.state);
    if (!state.restore() && !startup.empty()) {
        std::ifstream in(startup);
        std::ostringstream script;
        if (!in)
            return fail("cannot read " + startup);
        script << in.rdbuf();
        server.cli().runScript(script.str());
    }
    if (server.cli().unknownCommands() + server.cli().refusedCommands() > 0)
        std::fprintf(stderr, "vswitchd: some commands of the start-up configuration were refused\n");

    if (!state.keep())
        return fail("cannot write " + options.state);

    if (options.dataPlane == "ovs")
        server.attach(
            vswitch::startOvsDataPlane(portMapOf(options.ports), socketPath.string() + ".dataplane"));

    // A socket address is short and the root may be deep: bind from inside the folder.
    asio::io_context io(1);
    const auto cliServer = startCliServer(io, server, state);
    const int folder = ::open(socketPath.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ::unlink(socketPath.c_str());
    const auto mask = ::umask(0077);
    Listener listener(io, server, state, cliServer.get(),
                      "/proc/self/fd/" + std::to_string(folder) + "/" + socketPath.filename().string());
    ::umask(mask);
    ::close(folder);
    // Who owns the folder of scripts may call, too: the programs that root does not run.
    struct stat scripts{};
    if (::geteuid() == 0 && ::stat(platform::fsPath(platform::paths::kScriptDir).c_str(), &scripts) == 0 &&
        scripts.st_uid != 0 && ::lchown(socketPath.c_str(), scripts.st_uid, scripts.st_gid) != 0)
        std::fprintf(stderr, "vswitchd: %s stays root's\n", socketPath.c_str());

    asio::signal_set signals(io, SIGINT, SIGTERM);
    signals.async_wait([&](asio::error_code, int) { io.stop(); });
    std::printf("vswitchd: %u ports and %u LAGs, listening on %s\n", config.physicalPorts, config.lags,
                socketPath.c_str());
    std::fflush(stdout);
    io.run();
    state.keep();
    ::unlink(socketPath.c_str());
    return 0;
}

}  // namespace

int main(int argc, char **argv) try {
    CLI::App app{
        "vswitchd - the virtual switch OS.\nListens on /tmp/vswitchd.sock under the folder PAVO_ROOT, and "
        "for telnet "
        "on 127.0.0.1, port 60000 or PAVO_CLI_PORT."};
    app.set_version_flag("--version", std::string("vswitchd ") + pavoVersion());
    Options options;
    auto &config = options.model;
    app.add_option("--ports", config.physicalPorts, "Number of physical ports")
        ->check(CLI::Range(1u, vswitch::kInterfacesMax))
        ->capture_default_str();
    app.add_option("--lags", config.lags, "Number of link aggregation groups")
        ->check(CLI::Range(0u, vswitch::kInterfacesMax))
        ->capture_default_str();
    app.add_option("--default-mtu", config.defaultMtu,
                   "MTU that ports and LAGs have by default, which the running configuration does not show")
        ->check(CLI::Range(vswitch::kMtuMin, vswitch::kMtuMax))
        ->capture_default_str();
    app.add_option("--fdb", config.fdbCapacity, "Capacity of the forwarding table")->capture_default_str();
    app.add_option("--model", config.machineModel, "Machine model")->capture_default_str();
    app.add_option("--name", config.hostName, "Host name")->capture_default_str();
    app.add_option("--config", options.startup, "Start-up configuration, a file of CLI commands");
    app.add_option("--state", options.state,
                   "Keep the running configuration in this file, and start with it if the file exists");
    app.add_option(
           "--dataplane", options.dataPlane,
           "What forwards: scenario (vswitchctl plugs devices in) or ovs (Open vSwitch and lldpd on the "
           "interfaces of --port-map; needs root)")
        ->check(CLI::IsMember({"scenario", "ovs"}))
        ->capture_default_str();
    auto *portMap =
        app.add_option("--port-map", options.ports, "Ports that are Linux interfaces, such as 5=eth1,7=eth2")
            ->delimiter(',');
    CLI11_PARSE(app, argc, argv);
    if (config.physicalPorts + config.lags > vswitch::kInterfacesMax)
        return fail("at most " + std::to_string(vswitch::kInterfacesMax) + " ports and LAGs in total");
    if ((options.dataPlane == "ovs") == options.ports.empty())
        return fail(portMap->get_name() + " and --dataplane ovs require each other");
    return serve(options);
} catch (const std::exception &e) {
    return fail(e.what());
}
