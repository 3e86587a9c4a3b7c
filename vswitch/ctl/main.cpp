// vswitchctl: plugs devices into the virtual switch, shows its tables, offers its CLI, injects faults.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <msgpack.hpp>
#include <nlohmann/json.hpp>

#include "platform/clock.h"
#include "platform/version.h"
#include "vswitch/client/transport.h"
#include "vswitch/rpc/wire.h"

namespace {

using nlohmann::json;

// Something went wrong; what() says what.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

json control(const json &request) {
    msgpack::sbuffer buffer;
    msgpack::packer packer(buffer);
    packer.pack_array(2);
    packer.pack(vswitch::rpc::kControlCall);
    packer.pack(request.dump());
    std::string reply;
    if (!vswitch::client::exchange(buffer.data(), buffer.size(), reply))
        throw Failure("the switch cannot be reached (is vswitchd running, is PAVO_ROOT the same?)");
    const auto unpacked = msgpack::unpack(reply.data(), reply.size());
    const auto results = unpacked.get().as<std::vector<msgpack::object>>();
    const auto out = json::parse(results.at(1).as<std::string>());
    if (!out.value("ok", false))
        throw Failure(out.value("error", "refused"));
    return out;
}

std::string cellText(const json &value) {
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    if (!value.is_array())
        return value.dump();
    std::string out;
    for (const auto &item : value)
        out += (out.empty() ? "" : ",") + cellText(item);
    return out;
}

void printTable(const json &rows) {
    if (rows.empty()) {
        std::puts("(empty)");
        return;
    }
    std::vector<std::string> names;
    std::vector<std::size_t> widths;
    for (const auto &[name, value] : rows.front().items()) {
        names.push_back(name);
        widths.push_back(name.size());
        for (const auto &row : rows)
            widths.back() = std::max(widths.back(), cellText(row[name]).size());
    }
    const auto line = [&](auto textOf) {
        std::string out;
        for (std::size_t i = 0; i < names.size(); ++i) {
            auto text = textOf(names[i]);
            text.resize(std::max(text.size(), widths[i]), ' ');
            out += text + "  ";
        }
        std::puts(out.substr(0, out.find_last_not_of(' ') + 1).c_str());
    };
    line([](const std::string &name) { return name; });
    for (const auto &row : rows)
        line([&](const std::string &name) { return cellText(row[name]); });
}

void printEvents(std::uint64_t &since, bool asJson) {
    const auto out = control({{"op", "events"}, {"since", since}});
    for (const auto &event : out["events"])
        if (asJson)
            std::puts(event.dump().c_str());
        else
            std::printf("%6llu  %-7s %s\n",
                        static_cast<unsigned long long>(event["number"].get<std::uint64_t>()),
                        event["kind"].get<std::string>().c_str(), event["text"].get<std::string>().c_str());
    std::fflush(stdout);
    since = out["last"];
}

// A session at the switch's command line, until "quit" in privileged mode or the end of input.
void interactive() {
    const auto session = "ctl-" + std::to_string(::getpid());
    const bool terminal = ::isatty(STDIN_FILENO) != 0;
    auto prompt = control({{"op", "cli"}, {"session", session}, {"line", ""}})["prompt"].get<std::string>();
    std::string line;
    for (;;) {
        if (terminal)
            std::cout << prompt << std::flush;
        if (!std::getline(std::cin, line) || line == "quit" || line == "logout")
            return;
        if (line.ends_with('?')) {
            line.pop_back();
            std::cout << control({{"op", "help"}, {"session", session}, {"line", line}})["output"]
                             .get<std::string>();
            continue;
        }
        const auto out = control({{"op", "cli"}, {"session", session}, {"line", line}});
        std::cout << out["output"].get<std::string>();
        prompt = out["prompt"].get<std::string>();
    }
}

// A scenario is a list of control requests, with an object {"op": "wait", "ms": n} wherever time is to pass.
void load(const std::string &path) {
    std::ifstream in(path);
    if (!in)
        throw Failure("cannot read " + path);
    const auto scenario = json::parse(in, nullptr, true, true);
    std::size_t step = 0;
    for (const auto &request : scenario.is_array() ? scenario : scenario.at("steps")) {
        ++step;
        try {
            if (request.value("op", "") == "wait")
                platform::sleepFor(std::chrono::milliseconds(request.value("ms", 0)));
            else
                control(request);
        } catch (const std::exception &e) {
            throw Failure(path + ", step " + std::to_string(step) + ": " + e.what());
        }
    }
}

int run(int argc, char **argv) {
    CLI::App app{"vswitchctl - control the virtual switch OS that runs under PAVO_ROOT"};
    app.set_version_flag("--version", std::string("vswitchctl ") + pavoVersion());
    app.require_subcommand(1);
    bool asJson = false;
    app.add_flag("--json", asJson, "Print answers as JSON");

    json request;
    std::string text, port, mac, behind, name, desc, chassis, portId, portDesc, sysName, capabilities, ip,
        group, when, process;
    std::vector<std::string> words;
    std::uint32_t count = 1, vlan = 0, speed = 0, igmpVersion = 2;
    std::uint64_t number = 0;
    int code = -2;
    bool flag = false;

    auto *plug = app.add_subcommand("plug", "Plug a device into a port");
    plug->add_option("name", name, "Name for the device")->required();
    plug->add_option("port", port, "0/1 to 0/N")->required();
    plug->add_option("mac", mac, "First MAC address")->required();
    plug->add_option("--count", count, "Number of consecutive MAC addresses");
    plug->add_option("--behind", behind, "Device whose pass-through port it uses");
    plug->add_option("--vlan", vlan, "Send frames tagged with this VLAN");
    plug->add_option("--ip", ip, "IP address");
    plug->add_option("--system-desc", desc, "LLDP system description; makes the device an LLDP neighbour");
    plug->add_option("--system-name", sysName, "LLDP system name");
    plug->add_option("--chassis-id", chassis, "LLDP chassis ID, by default the MAC address");
    plug->add_option("--port-id", portId, "LLDP port ID, by default the MAC address");
    plug->add_option("--port-desc", portDesc, "LLDP port description");
    plug->add_option("--capabilities", capabilities,
                     "LLDP capabilities that are enabled, for example bridge, router");
    plug->add_option("--speed", speed, "Fastest speed that it can do, in Mbit/s");
    plug->add_flag("--half-duplex", flag, "It cannot receive while it sends");
    plug->callback([&] {
        request = {{"op", "plug"},   {"name", name},      {"port", port}, {"mac", mac},
                   {"count", count}, {"behind", behind},  {"vlan", vlan}, {"ip", ip},
                   {"speed", speed}, {"halfDuplex", flag}};
        if (!desc.empty()) {
            request["lldp"] = {{"systemDesc", desc}, {"portDesc", portDesc}};
            if (!chassis.empty())
                request["lldp"]["chassisId"] = chassis;
            if (!portId.empty())
                request["lldp"]["portId"] = portId;
            if (!sysName.empty())
                request["lldp"]["systemName"] = sysName;
            if (!capabilities.empty())
                request["lldp"]["capabilities"] = capabilities;
        }
    });
    auto *unplug = app.add_subcommand("unplug", "Unplug a device and everything behind it");
    unplug->add_option("name", name, "Name of the device")->required();
    unplug->callback([&] { request = {{"op", "unplug"}, {"name", name}}; });
    auto *move = app.add_subcommand("move", "Plug a device into another port");
    move->add_option("name", name, "Name of the device")->required();
    move->add_option("port", port, "0/1 to 0/N")->required();
    move->add_option("--behind", behind, "Device whose pass-through port it uses");
    move->callback([&] { request = {{"op", "move"}, {"name", name}, {"port", port}, {"behind", behind}}; });
    auto *talk = app.add_subcommand("talk", "Make a device talk, or silence it with --off");
    talk->add_option("name", name, "Name of the device")->required();
    talk->add_flag("--off", flag, "Silence it: its table entries age");
    talk->callback([&] { request = {{"op", "talk"}, {"name", name}, {"on", !flag}}; });
    auto *igmp = app.add_subcommand("igmp", "Make a device join or leave a multicast group");
    igmp->add_option("action", text, "join or leave")->required()->check(CLI::IsMember({"join", "leave"}));
    igmp->add_option("name", name, "Name of the device")->required();
    igmp->add_option("group", group, "IPv4 address of the group")->required();
    igmp->add_option("--version", igmpVersion, "IGMP version that the device speaks, 1 to 3")
        ->capture_default_str();
    igmp->add_option("--count", count, "Number of consecutive groups");
    igmp->callback([&] {
        request = {{"op", "igmp"},   {"action", text},         {"name", name},
                   {"group", group}, {"version", igmpVersion}, {"count", count}};
    });
    auto *link = app.add_subcommand("link", "Force a port's link");
    link->add_option("port", port, "0/1 to 0/N")->required();
    link->add_option("state", text, "auto follows the devices plugged in")
        ->required()
        ->check(CLI::IsMember({"up", "down", "auto"}));
    link->callback([&] { request = {{"op", "link"}, {"port", port}, {"state", text}}; });

    auto *health =
        app.add_subcommand("health", "Show temperatures, fans, power supplies and load, or set them");
    health->require_subcommand(0, 1);
    std::uint32_t unit = 0, rpm = 0, totalKb = 0, freeKb = 0;
    std::int32_t celsius = 0;
    const auto states = CLI::IsMember({"operational", "failed", "absent"});
    auto *temperature = health->add_subcommand("temperature", "What a sensor measures");
    temperature->add_option("sensor", unit, "Number of the sensor")->required();
    auto *celsiusValue = temperature->add_option("celsius", celsius, "Degrees Celsius");
    auto *noSensor = temperature->add_flag("--failed", flag, "It measures nothing any more");
    auto *fan = health->add_subcommand("fan", "How a fan is");
    fan->add_option("fan", unit, "Number of the fan")->required();
    fan->add_option("state", text, "operational, failed or absent")->required()->check(states);
    auto *rpmValue = fan->add_option("--rpm", rpm, "Revolutions per minute");
    auto *power = health->add_subcommand("power", "How a power supply is");
    power->add_option("supply", unit, "Number of the power supply")->required();
    power->add_option("state", text, "operational, failed or absent")->required()->check(states);
    auto *cpu = health->add_subcommand("cpu", "Load of the processor");
    cpu->add_option("percent", unit, "0 to 100")->required();
    auto *memory = health->add_subcommand("memory", "Memory");
    memory->add_option("totalKb", totalKb, "Kilobytes")->required();
    memory->add_option("freeKb", freeKb, "Kilobytes of it that are free")->required();
    health->callback([&] {
        request = {{"op", "health"}};
        if (*temperature) {
            request["temperature"] = {{"sensor", unit}, {"failed", !noSensor->empty()}};
            if (*celsiusValue)
                request["temperature"]["celsius"] = celsius;
        } else if (*fan) {
            request["fan"] = {{"fan", unit}, {"state", text}};
            if (*rpmValue)
                request["fan"]["rpm"] = rpm;
        } else if (*power) {
            request["power"] = {{"supply", unit}, {"state", text}};
        } else if (*cpu) {
            request["cpu"] = unit;
        } else if (*memory) {
            request["memory"] = {{"totalKb", totalKb}, {"freeKb", freeKb}};
        }
    });
    auto *dot1x = app.add_subcommand("dot1x", "What somebody on a simulated port does by 802.1X");
    dot1x
        ->add_option(
            "action", text,
            "authorize: authenticates, until the link goes down; unauthorize: logs off; reject: fails "
            "when it is asked the next time")
        ->required()
        ->check(CLI::IsMember({"authorize", "unauthorize", "reject"}));
    dot1x->add_option("port", port, "0/1 to 0/N")->required();
    dot1x->callback([&] {
        request = {{"op", "supplicant"},
                   {"port", port},
                   {"accepted", text == "authorize"},
                   {"later", text == "reject"}};
    });

    auto *sfp = app.add_subcommand("sfp", "Put a transceiver into a port, or take it out with --remove");
    sfp->add_option("port", port, "0/1 to 0/N, one with a cage")->required();
    sfp->add_flag("--remove", flag, "Take it out");
    std::map<std::string, std::string> sfpTexts;
    std::map<std::string, std::int64_t> sfpNumbers;
    for (const auto *option : {"vendor", "part", "serial"})
        sfp->add_option("--" + std::string(option), sfpTexts[option],
                        "As the transceiver says, 16 characters");
    const std::pair<const char *, const char *> measured[] = {
        {"wavelength", "nm"},  {"temperature", "0.001 degrees Celsius"},
        {"voltage", "mV"},     {"bias", "uA"},
        {"txPower", "0.1 uW"}, {"rxPower", "0.1 uW"}};
    for (const auto &[option, measure] : measured)
        sfp->add_option("--" + std::string(option), sfpNumbers[option], measure);
    sfp->callback([&] {
        request = {{"op", "sfp"}, {"port", port}, {"remove", flag}};
        for (const auto &[option, value] : sfpTexts)
            request[option] = value;
        for (const auto &[option, value] : sfpNumbers)
            if (sfp->count("--" + option) > 0)
                request[option] = value;
    });
    auto *errDisable = app.add_subcommand("errdisable", "Have the switch disable a port because of an error");
    errDisable->add_option("port", port, "0/1 to 0/N")->required();
    errDisable
        ->add_option("reason", text,
                     "none, link-flap, bpdu-guard, port-security, storm-control, udld or transceiver")
        ->required();
    errDisable->callback([&] { request = {{"op", "errdisable"}, {"port", port}, {"reason", text}}; });
    auto *errors = app.add_subcommand("errors", "Count damaged and discarded frames on a port");
    errors->add_option("port", port, "0/1 to 0/N")->required();
    std::map<std::string, std::uint64_t> errorCounts;
    for (const auto *option : {"inErrors", "outErrors", "inDiscards", "outDiscards"})
        errors->add_option("--" + std::string(option), errorCounts[option], "Frames to add");
    errors->callback([&] {
        request = {{"op", "errors"}, {"port", port}};
        for (const auto &[option, value] : errorCounts)
            request[option] = value;
    });

    auto *table =
        app.add_subcommand("table",
                           "Print a table: ports, lags, vlans, associations, fdb, lldp, arp, devices, igmp, "
                           "log, counters, sfp");
    table->add_option("name", name, "Name of the table")->required();
    auto *exec = app.add_subcommand("exec", "Run CLI lines, one per argument");
    exec->add_option("lines", words, "Commands from privileged mode on")->required();
    auto *cli = app.add_subcommand("cli", "Open a session at the switch's command line");
    auto *raw = app.add_subcommand("request", "Send one control request as JSON and print the answer");
    raw->add_option("json", text, "The request, an object with \"op\"")->required();
    raw->callback([&] { request = json::parse(text); });
    auto *loadFile = app.add_subcommand("load", "Run a scenario file (JSON)");
    loadFile->add_option("file", text, "Path of the file")->required();
    auto *events = app.add_subcommand("events", "Print what happened on the switch");
    events->add_option("--since", number, "Only events after this number");
    events->add_flag("--follow", flag, "Continue until interrupted");

    auto *latency =
        app.add_subcommand("latency", "Show or set the milliseconds until a membership change takes effect");
    auto *latencyValue = latency->add_option("ms", number, "New value; shown if absent");
    latency->callback([&] {
        request = {{"op", "latency"}};
        if (*latencyValue)
            request["ms"] = number;
    });
    auto *fault = app.add_subcommand("fault", "Make an OpEN call fail");
    fault->add_option("call", text, "Name of the call, or '*' for any")->required();
    fault->add_option("--nth", number, "First call to fail (1 is the next)");
    fault->add_option("--code", code, "Result code")->capture_default_str();
    fault->add_flag("--once", flag, "Fail only that call");
    auto *kill =
        fault->add_option("--kill", when,
                          "Instead of failing, end the calling process by SIGKILL before the call is "
                          "carried out, or after it and before the reply; once");
    kill->check(CLI::IsMember({"before", "after"}));
    fault->add_option("--process", process, "Count only the calls of this process, an id or a name");
    fault->callback([&] {
        request = {{"op", "fault"}, {"call", text}, {"nth", number},
                   {"code", code},  {"once", flag}, {"process", process}};
        if (*kill)
            request["kill"] = when;
    });
    auto *faults = app.add_subcommand("faults", "List the faults");
    faults->add_flag("--clear", flag, "Remove them all");
    faults->callback([&] { request = {{"op", "faults"}, {"clear", flag}}; });
    app.add_subcommand("dataplane",
                       "Show what forwards the frames, and whether all configuration has reached it")
        ->callback([&] { request = {{"op", "dataplane"}}; });
    auto *counters = app.add_subcommand("counters", "Show calls answered and commands refused");
    counters->add_flag("--reset", flag, "Reset the call counts to zero");
    counters->callback([&] { request = {{"op", "counters"}, {"reset", flag}}; });

    CLI11_PARSE(app, argc, argv);

    if (*table) {
        const auto rows = control({{"op", "table"}, {"name", name}})["rows"];
        if (asJson)
            std::puts(rows.dump(2).c_str());
        else
            printTable(rows);
    } else if (*exec) {
        std::fputs(control({{"op", "exec"}, {"lines", words}})["output"].get<std::string>().c_str(), stdout);
    } else if (*cli) {
        interactive();
    } else if (*loadFile) {
        load(text);
    } else if (*events) {
        printEvents(number, asJson);
        while (flag) {
            ::usleep(200'000);
            printEvents(number, asJson);
        }
    } else {
        auto out = control(request);
        out.erase("ok");
        if (!out.empty())
            std::puts(out.dump(2).c_str());
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) try { return run(argc, argv); } catch (const std::exception &e) {
    std::fprintf(stderr, "vswitchctl: %s\n", e.what());
    return 1;
}
