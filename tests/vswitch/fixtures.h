// Fixtures of these tests: a model with its command line, and a switch with its control requests.
#ifndef PAVO_TESTS_VSWITCH_FIXTURES_H
#define PAVO_TESTS_VSWITCH_FIXTURES_H

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/switch_fixture.h"
#include "vswitch/cli/command.h"

namespace vswitch {

using nlohmann::json;
using namespace std::chrono_literals;

// Commands with "; " or a line end between them.
inline std::vector<std::string> linesOf(const std::string &text) {
    static const std::regex separator("; |\n");
    return {std::sregex_token_iterator(text.begin(), text.end(), separator, -1), {}};
}

inline bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

inline Mac mac(unsigned last) {
    return Mac{{2, 0, 0, 0, 0, 0}}.plus(last);
}

// "1.10@0/5": address ending in 1, VLAN 10, on port 5.
inline std::string fdbOf(const Model &model) {
    std::string out;
    for (const auto &[key, entry] : model.fdb())
        out += (out.empty() ? "" : " ") + std::to_string(key.mac.bytes[5]) + "." + std::to_string(key.vlan) +
               "@" + model.interface(entry.ifNum)->name();
    return out;
}

class ModelFixture : public testing::Test {
  protected:
    explicit ModelFixture(ModelConfig config = {}) : model(std::move(config)) { pass(0s); }
    void restart(ModelConfig config) {
        model = Model(std::move(config));
        pass(0s);
    }
    void pass(Duration time) { model.advanceTo(now += time, {}); }

    // What is printed for commands from privileged mode on, and from configuration mode on.
    std::string apply(const std::string &text) {
        std::string script;
        for (const auto &line : linesOf(text))
            script += line + "\n";
        return cli.runScript(script);
    }
    std::string configure(const std::string &text) { return apply("configure; " + text); }
    std::uint64_t errors() const { return cli.unknownCommands() + cli.refusedCommands(); }
    std::string runningConfig() const { return cli::runningConfig(model); }
    std::string show(const std::string &what) { return cli.show("show " + what).value_or("(refused)"); }
    std::string fdb() const { return fdbOf(model); }

    Duration now{};
    Model model;
    Cli cli{model};
};

class ControlFixture : public test_support::SwitchTest {
  protected:
    json control(const std::string &request) {
        return json::parse(device->with([&](Server &server) { return server.control(request); }));
    }
    json control(const json &request) { return control(request.dump()); }
    json table(const std::string &name) { return control(json{{"op", "table"}, {"name", name}})["rows"]; }
    template <class Read>
    auto model(Read read) {
        return device->with([&](Server &server) { return read(server.model()); });
    }
    std::string runningConfig() { return show("show running-config"); }
    // What is printed for commands from configuration mode on.
    std::string configure(const std::string &commands) {
        auto lines = linesOf(commands);
        lines.insert(lines.begin(), "configure");
        return cli(lines);
    }
};

}  // namespace vswitch

#endif
