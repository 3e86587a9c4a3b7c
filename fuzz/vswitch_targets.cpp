// Targets for what the virtual switch reads: scripts, requests, its state file, and the tools of real ports.
#include <msgpack.hpp>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "fuzz/support.h"
#include "fuzz/targets.h"
#include "platform/manual_clock.h"
#include "platform/paths.h"
#include "profile/settings.h"
#include "profile/switch_script.h"
#include "profile/switch_state.h"
#include "tests/support/model_rules.h"
#include "vswitch/cli/command.h"
#include "vswitch/dataplane/eap.h"
#include "vswitch/dataplane/flows.h"
#include "vswitch/dataplane/reading.h"
#include "vswitch/dataplane/wire_config.h"
#include "vswitch/rpc/wire.h"
#include "vswitch/server/saved_state.h"
#include "vswitch/server/server.h"
#include "vswitch/server/telnet_session.h"

using namespace std::chrono_literals;

namespace fuzz {
namespace {

using namespace vswitch;
using nlohmann::json;
using test_support::brokenRule;

ModelConfig smallSwitch() {
    platform::manual_clock::reset();
    platform::manual_clock::setAutoAdvance(true);
    return SwitchRig::config();
}

pavo::VlanId programsVlan(vswitch::VlanId number) {
    return pavo::VlanId::from(number).value_or(pavo::kDefaultVlan);
}

void checkRules(const Model &model) {
    const auto broken = brokenRule(model);
    require(broken.empty(), "the rules of the model hold", broken);
}

std::uint64_t refusals(const Cli &cli) {
    return cli.unknownCommands() + cli.refusedCommands();
}

// What the configuration says is what another switch makes of it.
void checkConfiguration(const Model &model) {
    const auto commands = commandsOf(model);
    Model other(SwitchRig::config());
    Cli cli(other);
    const auto printed = cli.runScript(commands);
    require(refusals(cli) == 0, "a switch takes its own configuration", printed);
    require(commandsOf(other) == commands, "a configuration comes back as it was",
            commands + "---\n" + commandsOf(other));
}

// The program reads the configuration as the model has it.
void checkProgramsView(const Model &unsettled) {
    const auto model = unsettled.settled();
    const auto state = pavo::parseSwitchState(commandsOf(model));
    for (const auto &[id, vlan] : model.vlans())
        require(state.hasVlan(programsVlan(id)), "every VLAN is read", std::to_string(id));
    for (const auto &[num, interface] : model.interfaces()) {
        const auto found = state.interfaces.find(interface.name());
        const auto read = found == state.interfaces.end() ? pavo::InterfaceState{} : found->second;
        require(read.pvid.number() == interface.pvid, "PVIDs are read", interface.name());
        for (const auto &[id, vlan] : model.vlans()) {
            const auto membership = model.membership(num, id);
            const auto vlanId = programsVlan(id);
            require(static_cast<std::uint32_t>(read.participationIn(vlanId)) == membership.participation &&
                        read.tagged.contains(vlanId) == membership.tagged,
                    "memberships are read", interface.name() + " in VLAN " + std::to_string(id));
        }
    }
    // The difference to a fresh switch, run there, makes it one like this, as far as the program looks.
    Model other(SwitchRig::config());
    Cli cli(other);
    const auto fresh = pavo::parseSwitchState(commandsOf(other));
    cli.runScript(pavo::switchScript(fresh, state));
    require(refusals(cli) == 0, "a switch takes the program's script", pavo::switchScript(fresh, state));
    auto made = pavo::parseSwitchState(commandsOf(other));
    made.settings = state.settings;
    made.lagMembers = state.lagMembers;
    require(pavo::switchScript(made, state).empty(), "and is as wanted then",
            pavo::switchScript(made, state));
}

// Real ports 1 and 2 of the small switch.
const PortMap kLivePorts = {{1, "p1"}, {2, "p2"}};

}  // namespace

void runSwitchScript(std::string_view input) {
    Model model(smallSwitch());
    model.advanceTo(1s, {});
    Cli cli(model);
    cli.runScript(input);
    checkRules(model);
    checkConfiguration(model);
    checkProgramsView(model);
    // Every mode that the script leads into has its prompt and its help; shows print lines.
    CliSession session;
    for (const auto line : partsOf(input, '\n', 32)) {
        cli.help(session, line);
        cli.run(session, line);
        cli.prompt(session);
    }
    for (const auto &row : cli::allCommands())
        if (std::string_view(row->syntax).starts_with("show ") &&
            std::string_view(row->syntax).find('<') == std::string_view::npos)
            if (const auto shown = cli.show(row->syntax))
                require(shown->empty() || shown->ends_with('\n'), "a show command prints whole lines",
                        *shown);
    checkRules(model);
}

// However a user's input is cut into packets, the session is the same; nobody gets in without the
// password, which is in no log.
void serveTelnet(std::string_view input) {
    std::string outputs[2], logs[2];
    for (const bool cut : {false, true}) {
        Server server(smallSwitch());
        TelnetSession session;
        const auto feed = [&](std::string_view bytes) {
            session.feed(bytes);
            while (const auto text = session.next(server))
                outputs[cut] += *text;
        };
        // Half of the inputs begin behind the login.
        if (input.starts_with('!'))
            feed(std::string(kAdminName) + "\r" + kFactoryPassword + "\r");
        for (std::size_t at = 0; at < input.size(); at += cut ? 1 : input.size())
            feed(input.substr(at, cut ? 1 : input.size()));
        std::string_view missing = kFactoryPassword;
        for (const char c : input)
            if (!missing.empty() && c == missing.front())
                missing.remove_prefix(1);
        require(!session.isLoggedIn() || input.starts_with('!') || missing.empty(),
                "nobody gets in without the password");
        for (const auto &line : std::as_const(server).model().logLines())
            logs[cut] += line.text + "\n";
        checkRules(std::as_const(server).model());
        checkConfiguration(std::as_const(server).model());
    }
    require(outputs[0] == outputs[1] && logs[0] == logs[1], "packets do not matter", outputs[1]);
    require(!logs[0].contains(kFactoryPassword), "no password in the log", logs[0]);
}

// Frames as they come on a connection; the last one may be cut short.
void serveFrames(std::string_view input) {
    Server server(smallSwitch());
    server.setKiller([](Server &, pid_t) {});
    const auto *bytes = reinterpret_cast<const unsigned char *>(input.data());
    for (int frames = 0; frames < 16 && input.size() >= rpc::kLengthSize; ++frames) {
        const auto length = std::min(rpc::getLength(bytes), input.size() - rpc::kLengthSize);
        const auto frame = input.substr(rpc::kLengthSize, length);
        std::string reply;
        if (server.handle(frame.data(), frame.size(), reply)) {
            const auto handle = msgpack::unpack(reply.data(), reply.size());
            const auto &answer = handle.get();
            require(answer.type == msgpack::type::ARRAY && answer.via.array.size > 0,
                    "a reply is an array that begins with a code");
            require(answer.via.array.ptr[0].as<open_error_t>() == OPEN_E_NONE || answer.via.array.size == 1,
                    "results come only with success");
        } else {
            require(reply.empty(), "no reply to a malformed request");
        }
        input.remove_prefix(rpc::kLengthSize + length);
        bytes += rpc::kLengthSize + length;
    }
    checkRules(std::as_const(server).model());
    checkConfiguration(std::as_const(server).model());
}

// A request in each line, as an operator sends them, or a scenario file of several.
void serveControl(std::string_view input) {
    Server server(smallSwitch());
    server.setKiller([](Server &, pid_t) {});
    for (const auto line : partsOf(input, '\n', 16)) {
        const auto answer = server.control(std::string(line));
        const auto parsed = json::parse(answer, nullptr, false);
        require(parsed.is_object() && parsed.contains("ok") && parsed["ok"].is_boolean(),
                "an answer says whether it worked", answer);
        require(parsed["ok"] == true || !parsed.value("error", "").empty(), "a refusal says why", answer);
        server.tick();
        platform::sleepFor(1s);
    }
    for (const char *const table :
         {"ports", "lags", "vlans", "associations", "fdb", "lldp", "arp", "devices", "log"})
        require(isStrictJson(server.control(json{{"op", "table"}, {"name", table}}.dump())),
                "tables parse in a strict parser", table);
    checkRules(std::as_const(server).model());
    checkConfiguration(std::as_const(server).model());
}

// The file is the input; what a switch makes of it is what it keeps, and what comes back.
void restoreSavedState(std::string_view input) {
    constexpr const char *kFile = "/tmp/fuzz.state";
    const auto path = platform::fsPath(kFile);
    removeFiles((std::string(kFile) + ".refused").c_str());
    writeFile(kFile, input);
    Server server(smallSwitch());
    SavedState state(server, path);
    try {
        if (!state.restore())
            return;
    } catch (const std::runtime_error &) {
        require(readFile(kFile) == input, "a damaged file is left alone");
        return;
    }
    require(refusals(server.cli()) == 0 || readFile("/tmp/fuzz.state.refused") == input,
            "what is refused is not lost");
    server.model().log(6, "c", "p", "touched");
    require(state.keep(), "the configuration can be kept");
    const auto commands = commandsOf(std::as_const(server).model());
    Server other(smallSwitch());
    SavedState again(other, path);
    require(refusals(server.cli()) > 0 || again.restore(), "what was kept comes back");
    require(refusals(server.cli()) > 0 || commandsOf(std::as_const(other).model()) == commands,
            "what was kept is what comes back",
            commands + "---\n" + commandsOf(std::as_const(other).model()));
}

// What the tools of the data plane print goes into the tables of a switch with real ports.
void takeReadings(std::string_view input) {
    const std::string text(input);
    Server server(smallSwitch());
    auto &model = server.model();
    model.createVlan(20);
    for (const auto &[port, netdev] : kLivePorts) {
        model.setLive(port);
        model.seeCarrier(port, true);
    }
    WireView view;
    auto rows = learnedRowsOf(text);
    for (const auto &address : rows.addresses)
        require(address.vlan <= 4095 && address.age >= 0s, "an address has a VLAN and an age");
    view.addresses = std::move(rows.addresses);
    for (const auto &[key, mac] : rows.arp)
        require(key.vlan <= 4095 && rows.arpInterfaces.contains(key) && text.contains(key.ip),
                "an address is one that was seen", key.ip);
    view.arp = std::move(rows.arp);
    view.neighbours = neighboursOf(text, kLivePorts);
    for (const auto &neighbour : view.neighbours.value_or(std::vector<SeenNeighbour>{}))
        require(kLivePorts.contains(neighbour.port), "a neighbour is at a real port");
    if (const auto station = stationOf(text)) {
        const auto port = kLivePorts.begin()->first;
        model.setDot1x(true);
        view.supplicants[port] = {port,
                                  model.interface(port)->dot1x.round,
                                  station->authorized,
                                  hostapdEventOf(text).has_value(),
                                  station->mac,
                                  station->user};
        require(station->user.size() <= kIasNameMax && !station->user.contains('\n'),
                "a user is a short line");
    }
    putIntoModel(model, view, view.generation);
    checkRules(model);
    for (const char *const table : {"fdb", "lldp", "arp"})
        require(isStrictJson(server.control(json{{"op", "table"}, {"name", table}}.dump())),
                "tables parse in a strict parser", table);
    // The configuration that follows from it is one for Open vSwitch.
    for (const auto &[entry, actions] : flowsOf(wireConfigOf(model, kLivePorts)))
        require(!entry.contains('\n') && !actions.contains('\n'), "a flow entry is one line", entry);
    platform::sleepFor(400s);
    server.tick();
    checkRules(model);
}

}  // namespace fuzz
