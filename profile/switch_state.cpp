#include "profile/switch_state.h"

#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

#include "common/text.h"

namespace pavo {
namespace {

using Words = std::vector<std::string>;

constexpr std::pair<std::string_view, Participation> kParticipationWords[] = {
    {"include", Participation::Include},
    {"exclude", Participation::Exclude},
    {"auto", Participation::Auto},
};

constexpr Participation defaultParticipation(VlanId id) {
    return id == kDefaultVlan ? Participation::Include : Participation::Auto;
}

std::uint32_t numberOf(std::string_view text) {
    std::uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::optional<VlanId> vlanOf(std::string_view text) {
    return VlanId::from(numberOf(text));
}

// "10,20-22" as a set; what is no number counts for nothing.
VlanSet vlanList(std::string_view text) {
    VlanSet out;
    while (!text.empty()) {
        const auto comma = text.find(',');
        const auto part = text.substr(0, comma);
        const auto dash = part.find('-');
        const auto low = numberOf(part.substr(0, dash));
        const auto high = dash == std::string_view::npos ? low : numberOf(part.substr(dash + 1));
        for (auto number = low; number <= high; ++number) {
            const auto id = VlanId::from(number);
            if (!id)
                break;
            out.insert(*id);
        }
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    }
    return out;
}

bool isBlank(char c) {
    return c == ' ' || c == '\r' || c == '\t';
}

// The words of a line; "..." is one word, in which a backslash stands before what is meant literally.
Words wordsOf(std::string_view line) {
    Words out;
    for (std::size_t i = 0; i < line.size();) {
        if (isBlank(line[i])) {
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
            while (i < line.size() && !isBlank(line[i]))
                word += line[i++];
        }
        out.push_back(std::move(word));
    }
    return out;
}

bool startsWith(const Words &line, std::initializer_list<std::string_view> begin) {
    if (line.size() < begin.size())
        return false;
    std::size_t i = 0;
    for (const auto word : begin)
        if (line[i++] != word)
            return false;
    return true;
}

void readVlanLine(const Words &line, SwitchState &state) {
    if (line.size() == 2 && line[0] == "vlan") {
        for (const VlanId id : vlanList(line[1]))
            state.vlans.try_emplace(id);
    } else if (line.size() == 4 && startsWith(line, {"vlan", "name"})) {
        if (const auto id = vlanOf(line[2]))
            state.vlans[*id] = line[3];
    }
}

void readInterfaceLine(const Words &line, InterfaceState &interface) {
    if (line.size() == 4 && startsWith(line, {"vlan", "participation"})) {
        for (const auto &[word, participation] : kParticipationWords)
            if (line[2] == word)
                for (const VlanId id : vlanList(line[3]))
                    interface.setParticipation(id, participation);
    } else if (line.size() == 3 && startsWith(line, {"vlan", "tagging"})) {
        interface.tagged.merge(vlanList(line[2]));
    } else if (line.size() == 3 && startsWith(line, {"vlan", "pvid"})) {
        interface.pvid = vlanOf(line[2]).value_or(interface.pvid);
    } else if (line.size() == 2 && line[0] == "mtu") {
        interface.mtu = numberOf(line[1]);
    }
}

void readRoutingLine(const Words &line, VlanRouting &routing) {
    if (startsWith(line, {"routing"})) {
        routing.routing = true;
    } else if (line.size() == 3 && startsWith(line, {"ip", "address", "dhcp"})) {
        routing.dhcp = true;
    } else if (line.size() == 4 && startsWith(line, {"ip", "address"})) {
        routing.ip = line[2];
        routing.mask = line[3];
    }
}

}  // namespace

Participation InterfaceState::participationIn(VlanId id) const {
    const auto it = participation.find(id);
    return it == participation.end() ? defaultParticipation(id) : it->second;
}

void InterfaceState::setParticipation(VlanId id, Participation value) {
    if (value == defaultParticipation(id))
        participation.erase(id);
    else
        participation[id] = value;
}

bool InterfaceState::isMemberOf(VlanId id) const {
    const auto it = participation.find(id);
    return pvid == id || tagged.contains(id) ||
           (it != participation.end() && it->second == Participation::Include);
}

void SwitchState::releasePort(const std::string &name, VlanId id) {
    InterfaceState &port = interfaces[name];
    port.tagged.erase(id);
    port.participation.erase(id);
    if (port.pvid == id) {
        port.pvid = kDefaultVlan;
        port.participation.erase(kDefaultVlan);
    }
}

void SwitchState::removeVlan(VlanId id) {
    vlans.erase(id);
    routing.erase(id);
    for (const auto &[name, interface] : interfaces)
        releasePort(name, id);
}

void SwitchState::normalise() {
    std::erase_if(interfaces, [](const auto &item) { return item.second == InterfaceState{}; });
    std::erase_if(routing, [](const auto &item) { return item.second == VlanRouting{}; });
}

SwitchState parseSwitchState(std::string_view runningConfig) {
    SwitchState state;
    std::string interface;
    std::optional<VlanId> routingVlan;
    bool vlanDatabase = false;
    forEachLine(runningConfig, SIZE_MAX, [&](std::string_view text) {
        const Words line = wordsOf(text);
        if (line.empty() || line[0].starts_with('!'))
            return true;
        if (startsWith(line, {"vlan", "database"})) {
            vlanDatabase = true;
        } else if (line.size() == 3 && startsWith(line, {"interface", "vlan"})) {
            routingVlan = vlanOf(line[2]);
        } else if (startsWith(line, {"interface"}) && line.size() >= 2) {
            interface = line.size() == 2 ? line[1] : "lag " + line[2];
        } else if (line[0] == "exit") {
            interface.clear();
            routingVlan.reset();
            vlanDatabase = false;
        } else if (vlanDatabase) {
            readVlanLine(line, state);
        } else if (!interface.empty()) {
            readInterfaceLine(line, state.interfaces[interface]);
        } else if (routingVlan) {
            readRoutingLine(line, state.routing[*routingVlan]);
        }
        return true;
    });
    state.normalise();
    return state;
}

}  // namespace pavo
