// A test with a virtual switch in its own process, a registered client and a log at DEBUG.
#ifndef PAVO_TESTS_SUPPORT_SWITCH_FIXTURE_H
#define PAVO_TESTS_SUPPORT_SWITCH_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/log.h"
#include "platform/manual_clock.h"
#include "platform/open_client.h"
#include "tests/support/root.h"
#include "vswitch/inprocess.h"

namespace test_support {

using namespace pavo;

class SwitchTest : public testing::Test {
  protected:
    // Sleeps move the time by themselves, unless a test with threads says setAutoAdvance(false).
    void SetUp() override {
        platform::manual_clock::setAutoAdvance(true);
        writeText(platform::paths::kLogLevelFile, "7");
        devmgrLogOpen(LOG_SINK_FILE, LOG_FACILITY_USER, "test");
        startSwitch({});
        ASSERT_EQ(OPEN_E_NONE, openapiClientRegister("test", &client));
    }

    void TearDown() override {
        openapiClientTearDown(&client);
        // Only what was started is closed.
        logDebug("[%s:%d] end of test\n");
        devmgrLogClose();
    }

    // Replaces the switch by a fresh one.
    void startSwitch(vswitch::ModelConfig config) {
        device.reset();
        device = std::make_unique<vswitch::InProcessSwitch>(std::move(config));
    }

    // --- the switch as an operator sees it
    std::string cli(const std::vector<std::string> &lines) {
        return device->with([&](vswitch::Server &server) {
            vswitch::CliSession session;
            std::string out;
            for (const auto &line : lines)
                out += server.cli().run(session, line);
            return out;
        });
    }
    // A script with "; " between its lines, all of which the switch accepts.
    void commands(std::string lines) {
        for (auto at = lines.find("; "); at != std::string::npos; at = lines.find("; ", at))
            lines.replace(at, 2, "\n");
        device->with([&](vswitch::Server &server) {
            const auto refused = [&] {
                return server.cli().unknownCommands() + server.cli().refusedCommands();
            };
            const auto before = refused();
            const auto printed = server.cli().runScript(lines);
            EXPECT_EQ(before, refused()) << printed;
        });
    }
    std::string show(const std::string &command) {
        return device->with(
            [&](vswitch::Server &server) { return server.cli().show(command).value_or("(refused)"); });
    }
    template <class Action>
    auto model(Action action) {
        return device->with([&](vswitch::Server &server) { return action(server.model()); });
    }
    std::string systemLog() { return show("show logging buffered"); }

    // --- the outside world
    open_error_t plug(vswitch::Device what) {
        return device->with([&](vswitch::Server &server) { return server.model().plug(std::move(what)); });
    }
    open_error_t unplug(const std::string &name) {
        return device->with([&](vswitch::Server &server) { return server.model().unplug(name); });
    }
    open_error_t move(const std::string &name, vswitch::IfNum port, const std::string &behind = "") {
        return device->with([&](vswitch::Server &server) { return server.model().move(name, port, behind); });
    }
    // A device at a port; with a system description it is an LLDP neighbour.
    static vswitch::Device host(const std::string &name, vswitch::IfNum port, const std::string &mac,
                                const std::string &systemDesc = "", const std::string &behind = "") {
        vswitch::Device out;
        out.name = name;
        out.port = port;
        out.behind = behind;
        out.macs = {vswitch::Mac::parse(mac).value()};
        if (!systemDesc.empty()) {
            vswitch::LldpFields lldp;
            lldp.chassisId = lldp.portId = mac;
            lldp.systemName = name;
            lldp.systemDesc = systemDesc;
            out.lldp = lldp;
        }
        return out;
    }

    // --- faults: the nth matching call from now fails, and unless `once` all after it
    void failCall(const std::string &call, std::uint64_t nth = 1, bool once = true,
                  open_error_t code = OPEN_E_FAIL) {
        device->with([&](vswitch::Server &server) { server.addFault({call, nth, code, once, 0}); });
    }
    void clearFaults() {
        device->with([](vswitch::Server &server) { server.clearFaults(); });
    }
    // Calls that a fault from failCall has seen; below its nth, the fault never struck.
    std::uint64_t callsSeen() {
        return device->with([](vswitch::Server &server) {
            return server.faults().empty() ? std::uint64_t{0} : server.faults().front().seen;
        });
    }
    std::uint64_t callCount(const std::string &call) {
        return device->with([&](vswitch::Server &server) {
            const auto it = server.callCounts().find(call);
            return it == server.callCounts().end() ? std::uint64_t{0} : it->second;
        });
    }
    // All calls since the last time.
    std::uint64_t calls() {
        return device->with([](vswitch::Server &server) {
            const auto total = server.callTotal();
            server.resetCounts();
            return total;
        });
    }

    // --- the program's log
    static std::string log() { return readFile(platform::paths::kLogFile); }
    static std::size_t logged(const std::string &part) { return occurrences(log(), part); }

    openapiClientHandle_t client{};
    std::unique_ptr<vswitch::InProcessSwitch> device;
};

}  // namespace test_support

#endif
