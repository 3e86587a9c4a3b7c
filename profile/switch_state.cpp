#include "profile/switch_state.h"

#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdio>
#include <sstream>
#include <string_view>
#include <vector>

#include "common/log.h"
#include "common/owners.h"
#include "common/result.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "swapi/cli_apply.h"

namespace {

constexpr std::uint32_t kInclude = OPEN_VLAN_PARTICIPATION_MODE_INCLUDE;
constexpr std::uint32_t kExclude = OPEN_VLAN_PARTICIPATION_MODE_EXCLUDE;
constexpr std::uint32_t kAuto = OPEN_VLAN_PARTICIPATION_MODE_AUTO;
constexpr const char *kModeWords[] = {"include", "exclude", "auto"};

constexpr int kPolls = 40;
constexpr auto kPollTime = std::chrono::milliseconds(100);

std::uint32_t defaultMode(std::uint32_t vlan) {
    return vlan == 1 ? kInclude : kAuto;
}

std::uint32_t modeOf(const InterfaceState &interface, std::uint32_t vlan) {
    const auto it = interface.participation.find(vlan);
    return it == interface.participation.end() ? defaultMode(vlan) : it->second;
}

void setMode(InterfaceState *interface, std::uint32_t vlan, std::uint32_t mode) {
    if (mode == defaultMode(vlan))
        interface->participation.erase(vlan);
    else
        interface->participation[vlan] = mode;
}

// --- reading

std::uint32_t number(std::string_view text) {
    std::uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// "10,20-22" as a set; what is no number counts for nothing.
VlanSet vlanList(std::string_view text) {
    VlanSet out;
    while (!text.empty()) {
        const auto comma = text.find(',');
        const auto part = text.substr(0, comma);
        const auto dash = part.find('-');
        const auto low = number(part.substr(0, dash));
        const auto high = dash == std::string_view::npos ? low : number(part.substr(dash + 1));
        for (auto id = low; id >= 1 && id <= high && id <= 4094; ++id)
            out.insert(id);
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
    return out;
}

// The words of a line; "..." is one word, in which a backslash stands before what is meant literally.
std::vector<std::string> words(const std::string &line) {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < line.size();) {
        if (line[i] == ' ' || line[i] == '\r' || line[i] == '\t') {
            ++i;
            continue;
        }
        std::string word;
        if (line[i] == '"') {
            for (++i; i < line.size() && line[i] != '"'; ++i) {
                if (line[i] == '\\' && i + 1 < line.size())
                    ++i;
                word += line[i];
            }
            ++i;
        } else {
            while (i < line.size() && line[i] != ' ' && line[i] != '\r' && line[i] != '\t')
                word += line[i++];
        }
        out.push_back(std::move(word));
    }
    return out;
}

bool startsWith(const std::vector<std::string> &line, std::initializer_list<std::string_view> begin) {
    if (line.size() < begin.size())
        return false;
    std::size_t i = 0;
    for (const auto word : begin)
        if (line[i++] != word)
            return false;
    return true;
}

void readVlanLine(const std::vector<std::string> &line, SwitchState *state) {
    if (line.size() == 2 && line[0] == "vlan")
        for (const auto id : vlanList(line[1]))
            state->vlans.try_emplace(id);
    else if (line.size() == 4 && startsWith(line, {"vlan", "name"}))
        state->vlans[number(line[2])] = line[3];
}

void readInterfaceLine(const std::vector<std::string> &line, InterfaceState *interface) {
    if (line.size() == 4 && startsWith(line, {"vlan", "participation"})) {
        for (std::uint32_t mode = 0; mode < std::size(kModeWords); ++mode)
            if (line[2] == kModeWords[mode])
                for (const auto id : vlanList(line[3]))
                    setMode(interface, id, mode);
    } else if (line.size() == 3 && startsWith(line, {"vlan", "tagging"})) {
        interface->tagged.merge(vlanList(line[2]));
    } else if (line.size() == 3 && startsWith(line, {"vlan", "pvid"})) {
        interface->pvid = number(line[2]);
    } else if (line.size() == 2 && line[0] == "mtu") {
        interface->mtu = number(line[1]);
    }
}

void readRoutingLine(const std::vector<std::string> &line, RoutingState *routing) {
    if (startsWith(line, {"routing"})) {
        routing->routing = true;
    } else if (line.size() == 3 && startsWith(line, {"ip", "address", "dhcp"})) {
        routing->dhcp = true;
    } else if (line.size() == 4 && startsWith(line, {"ip", "address"})) {
        routing->ip = line[2];
        routing->mask = line[3];
    }
}

// --- scripts

std::string joined(const VlanSet &ids) {
    std::string out;
    for (const auto id : ids)
        out += (out.empty() ? "" : ",") + std::to_string(id);
    return out;
}

void addList(std::string *out, const char *command, const VlanSet &ids) {
    if (!ids.empty())
        *out += std::string(command) + " " + joined(ids) + "\n";
}

// A port joins before its PVID changes and leaves afterwards, so that its traffic always has a VLAN.
std::string interfaceLines(const InterfaceState &from, const InterfaceState &to) {
    VlanSet vlans;
    for (const auto *state : {&from, &to})
        for (const auto &[id, mode] : state->participation)
            vlans.insert(id);
    std::map<std::uint32_t, VlanSet> changed;
    for (const auto id : vlans)
        if (modeOf(from, id) != modeOf(to, id))
            changed[modeOf(to, id)].insert(id);
    VlanSet tag, untag;
    for (const auto id : to.tagged)
        if (!from.tagged.contains(id))
            tag.insert(id);
    for (const auto id : from.tagged)
        if (!to.tagged.contains(id))
            untag.insert(id);

    std::string out;
    addList(&out, "vlan participation include", changed[kInclude]);
    addList(&out, "vlan tagging", tag);
    addList(&out, "no vlan tagging", untag);
    if (from.pvid != to.pvid)
        out += "vlan pvid " + std::to_string(to.pvid) + "\n";
    addList(&out, "vlan participation exclude", changed[kExclude]);
    addList(&out, "vlan participation auto", changed[kAuto]);
    if (from.mtu != to.mtu)
        out += to.mtu == 0 ? "no mtu\n" : "mtu " + std::to_string(to.mtu) + "\n";
    return out;
}

std::string routingLines(const RoutingState &from, const RoutingState &to) {
    std::string out;
    if (to.routing && !from.routing)
        out += "routing\n";
    if (to.dhcp != from.dhcp || to.ip != from.ip || to.mask != from.mask)
        out += to.dhcp          ? "ip address dhcp\n"
               : !to.ip.empty() ? "ip address " + to.ip + " " + to.mask + "\n"
                                : "no ip address\n";
    if (!to.routing && from.routing)
        out += "no routing\n";
    return out;
}

template <class Map, class Key>
typename Map::mapped_type valueOf(const Map &map, const Key &key) {
    const auto it = map.find(key);
    return it == map.end() ? typename Map::mapped_type{} : it->second;
}

template <class Map>
std::set<typename Map::key_type> keysOf(const Map &a, const Map &b) {
    std::set<typename Map::key_type> keys;
    for (const auto *map : {&a, &b})
        for (const auto &[key, value] : *map)
            keys.insert(key);
    return keys;
}

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text)
        out += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    return out + "\"";
}

std::string vlanLines(const SwitchState &from, const SwitchState &to) {
    VlanSet create;
    std::string names;
    for (const auto &[id, name] : to.vlans) {
        if (!from.hasVlan(id))
            create.insert(id);
        if (name != valueOf(from.vlans, id))
            names += name.empty() ? "no vlan name " + std::to_string(id) + "\n"
                                  : "vlan name " + std::to_string(id) + " " + quoted(name) + "\n";
    }
    std::string out;
    addList(&out, "vlan", create);
    return out + names;
}

// What a change concerns; other parts of the switch may be changed by others at the same time.
struct Touched {
    std::set<std::string> interfaces;
    VlanSet vlans, routing;
};

Touched touchedBy(const SwitchState &from, const SwitchState &to) {
    Touched touched;
    for (const auto &name : keysOf(from.interfaces, to.interfaces))
        if (valueOf(from.interfaces, name) != valueOf(to.interfaces, name))
            touched.interfaces.insert(name);
    for (const auto id : keysOf(from.vlans, to.vlans))
        if (from.hasVlan(id) != to.hasVlan(id) || valueOf(from.vlans, id) != valueOf(to.vlans, id))
            touched.vlans.insert(id);
    for (const auto id : keysOf(from.routing, to.routing))
        if (valueOf(from.routing, id) != valueOf(to.routing, id)) {
            touched.routing.insert(id);
            touched.vlans.insert(id);
        }
    return touched;
}

SwitchState restricted(SwitchState state, const Touched &touched) {
    std::erase_if(state.interfaces,
                  [&](const auto &item) { return !touched.interfaces.contains(item.first); });
    std::erase_if(state.vlans, [&](const auto &item) { return !touched.vlans.contains(item.first); });
    std::erase_if(state.routing, [&](const auto &item) { return !touched.routing.contains(item.first); });
    return state;
}

std::string scriptPath(const char *name) {
    return platform::paths::kScriptDir + std::string(name) + "_" + std::to_string(::getpid());
}

}  // namespace

void SwitchState::releasePort(const std::string &name, std::uint32_t id) {
    auto &port = interfaces[name];
    port.tagged.erase(id);
    port.participation.erase(id);
    if (port.pvid == id) {
        port.pvid = 1;
        port.participation.erase(1);
    }
}

void SwitchState::removeVlan(std::uint32_t id) {
    vlans.erase(id);
    routing.erase(id);
    for (auto &[name, interface] : interfaces)
        releasePort(name, id);
}

void SwitchState::normalise() {
    std::erase_if(interfaces, [](const auto &item) { return item.second == InterfaceState{}; });
    std::erase_if(routing, [](const auto &item) { return item.second == RoutingState{}; });
}

std::string portCliName(std::uint32_t ifNum) {
    return "0/" + std::to_string(ifNum);
}

SwitchState switchStateParse(const std::string &runningConfig) {
    SwitchState state;
    std::istringstream in(runningConfig);
    std::string text, interface;
    std::uint32_t routingVlan = 0;
    bool vlanDatabase = false;
    while (std::getline(in, text)) {
        const auto line = words(text);
        if (line.empty() || line[0].starts_with('!'))
            continue;
        if (startsWith(line, {"vlan", "database"})) {
            vlanDatabase = true;
        } else if (line.size() == 3 && startsWith(line, {"interface", "vlan"})) {
            routingVlan = number(line[2]);
        } else if (startsWith(line, {"interface"}) && line.size() >= 2) {
            interface = line.size() == 2 ? line[1] : "lag " + line[2];
        } else if (line[0] == "exit") {
            interface.clear();
            routingVlan = 0;
            vlanDatabase = false;
        } else if (vlanDatabase) {
            readVlanLine(line, &state);
        } else if (!interface.empty()) {
            readInterfaceLine(line, &state.interfaces[interface]);
        } else if (routingVlan != 0) {
            readRoutingLine(line, &state.routing[routingVlan]);
        }
    }
    state.normalise();
    return state;
}

std::int32_t switchStateRead(openapiClientHandle_t *client, SwitchState *state) {
    const auto path = scriptPath("pavo_out_show_running-config");
    if (cliShowExecuteToFile(client, "show running-config", path.c_str()) != RESULT_SUCCESS)
        return RESULT_FAILED;
    std::string text;
    {
        const FilePtr file = fileOpen(path.c_str(), "r");
        if (file == nullptr) {
            LOG_ERROR("[%s:%d] can not open file:%s\r\n", path.c_str());
            return RESULT_OPEN_FAILED;
        }
        char buffer[4096];
        for (std::size_t got; (got = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;)
            text.append(buffer, got);
    }
    fileRemove(path.c_str());
    *state = switchStateParse(text);
    return RESULT_SUCCESS;
}

std::string switchStateScript(const SwitchState &from, const SwitchState &to) {
    std::string interfaces;
    for (const auto &name : keysOf(from.interfaces, to.interfaces))
        if (const auto lines = interfaceLines(valueOf(from.interfaces, name), valueOf(to.interfaces, name));
            !lines.empty())
            interfaces += "interface " + name + "\n" + lines + "exit\n";
    for (const auto id : keysOf(from.routing, to.routing))
        // The address of a VLAN that goes, goes with it.
        if (const auto lines = routingLines(valueOf(from.routing, id), valueOf(to.routing, id));
            !lines.empty() && to.hasVlan(id))
            interfaces += "interface vlan " + std::to_string(id) + "\n" + lines + "exit\n";
    VlanSet remove;
    for (const auto &[id, name] : from.vlans)
        if (id != 1 && !to.hasVlan(id))
            remove.insert(id);

    std::string out;
    if (const auto lines = vlanLines(from, to); !lines.empty())
        out += "vlan database\n" + lines + "exit\n";
    if (!interfaces.empty())
        out += "config\n" + interfaces + "exit\n";
    if (!remove.empty())
        out += "vlan database\nno vlan " + joined(remove) + "\nexit\n";
    return out;
}

std::int32_t switchStateChange(openapiClientHandle_t *client, const SwitchState &from,
                               const SwitchState &to) {
    const auto touched = touchedBy(from, to);
    const auto goal = restricted(to, touched);
    const auto script = switchStateScript(restricted(from, touched), goal);
    if (script.empty())
        return RESULT_SUCCESS;
    const auto result = cliScriptRun(client, script, scriptPath("pavo_in_profile").c_str(),
                                     scriptPath("pavo_out_profile").c_str(), nullptr);
    if (result != RESULT_SUCCESS)
        return result;
    for (int poll = 0; poll < kPolls; ++poll) {
        SwitchState now;
        if (const auto read = switchStateRead(client, &now); read != RESULT_SUCCESS)
            return read;
        if (switchStateScript(restricted(std::move(now), touched), goal).empty())
            return RESULT_SUCCESS;
        platform::sleepFor(kPollTime);
    }
    LOG_ERROR("[%s:%d] the switch did not take the configuration after %d reads\n", kPolls);
    return RESULT_FAILED;
}

std::int32_t switchStateRestore(openapiClientHandle_t *client, const SwitchState &before,
                                const SwitchState &wanted) {
    SwitchState now;
    if (const auto read = switchStateRead(client, &now); read != RESULT_SUCCESS)
        return read;
    const auto touched = touchedBy(before, wanted);
    return switchStateChange(client, restricted(std::move(now), touched), restricted(before, touched));
}
