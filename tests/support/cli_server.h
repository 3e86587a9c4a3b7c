// The switch's command line over TCP, beside a switch in the test's own process; the program finds its port.
#ifndef PAVO_TESTS_SUPPORT_CLI_SERVER_H
#define PAVO_TESTS_SUPPORT_CLI_SERVER_H

#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "vswitch/inprocess.h"
#include "vswitch/server/cli_server.h"

namespace test_support {

class RunningCliServer {
  public:
    explicit RunningCliServer(vswitch::InProcessSwitch &device)
        : server_(io_, 0, [&device](const auto &action) { device.with(action); }),
          work_(io_.get_executor()),
          thread_([this] { io_.run(); }) {
        setenv("PAVO_CLI_PORT", std::to_string(server_.port()).c_str(), 1);
    }
    RunningCliServer(const RunningCliServer &) = delete;
    RunningCliServer &operator=(const RunningCliServer &) = delete;
    ~RunningCliServer() {
        unsetenv("PAVO_CLI_PORT");
        io_.stop();
        thread_.join();
    }

    // Sessions whose time is over are closed when this returns.
    void tick() {
        std::promise<void> done;
        asio::post(io_, [&] {
            server_.tick();
            done.set_value();
        });
        done.get_future().wait();
    }

  private:
    asio::io_context io_{1};
    vswitch::CliServer server_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    std::thread thread_;
};

}  // namespace test_support

#endif
