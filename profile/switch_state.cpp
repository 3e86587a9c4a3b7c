#include "profile/switch_state.h"

#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

#include "common/ipv4.h"
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

// They go into scripts again, as one word each.
void setAddress(const std::string &ip, const std::string &mask, VlanRouting &routing) {
    if (!Ipv4::parse(ip) || !Ipv4::parse(mask))
        return;
    routing.ip = ip;
    routing.mask = mask;
}

void readRoutingLine(const Words &line, VlanRouting &routing) {
    if (startsWith(line, {"routing"}))
        routing.routing = true;
    else if (line.size() == 3 && startsWith(line, {"ip", "address", "dhcp"}))
        routing.dhcp = true;
    else if (line.size() == 4 && startsWith(line, {"ip", "address"}))
        setAddress(line[2], line[3], routing);
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
        const Words line = cliWords(text);
        if (line.empty() || line[0].starts_with('!'))
            return true;
        if (startsWith(line, {"vlan", "database"})) {
            vlanDatabase = true;
        } else if (startsWith(line, {"interface"})) {
            interface.clear();
            routingVlan.reset();
            // Others ("loopback 0", "tunnel 1") are none that profiles know.
            if (line.size() == 2)
                interface = line[1];
            else if (line.size() == 3 && line[1] == "lag")
                interface = "lag " + line[2];
            else if (line.size() == 3 && line[1] == "vlan")
                routingVlan = vlanOf(line[2]);
        } else if (line[0] == "exit") {
            interface.clear();
            routingVlan.reset();
            vlanDatabase = false;
        } else if (vlanDatabase) {
            readVlanLine(line, state);
        } else if (!interface.empty()) {
            if (line.size() == 3 && line[0] == "addport")
                state.lagMembers["lag " + line[2]].insert(interface);
            readInterfaceLine(line, state.interfaces[interface]);
        } else if (routingVlan) {
            readRoutingLine(line, state.routing[*routingVlan]);
        }
        return true;
    });
    state.settings = parseSettings(runningConfig);
    state.normalise();
    return state;
}

// --- things

namespace {

constexpr const char *kPresent = "present";
constexpr std::string_view kTagged = " tagged";
constexpr std::string_view kVlanPrefix = "vlan ";
constexpr std::string_view kInterfacePrefix = "interface ";

std::string numberText(VlanId id) {
    return std::to_string(id.number());
}

std::string membershipText(const InterfaceState &interface, VlanId id) {
    std::string out;
    for (const auto &[word, participation] : kParticipationWords)
        if (participation == interface.participationIn(id))
            out = word;
    return interface.tagged.contains(id) ? out + std::string(kTagged) : out;
}

std::string routingText(const VlanRouting &routing) {
    std::string out = routing.routing ? "routing" : "";
    if (routing.dhcp)
        out += " dhcp";
    else if (!routing.ip.empty())
        out += " " + routing.ip + " " + routing.mask;
    return out;
}

VlanRouting parseRoutingText(const std::string &text) {
    VlanRouting routing;
    auto words = cliWords(text);
    if (!words.empty() && words[0] == "routing") {
        routing.routing = true;
        words.erase(words.begin());
    }
    if (words.size() == 1)
        routing.dhcp = true;
    else if (words.size() == 2)
        setAddress(words[0], words[1], routing);
    return routing;
}

void putMembership(std::string_view text, VlanId id, InterfaceState &interface) {
    if (text.ends_with(kTagged)) {
        interface.tagged.insert(id);
        text.remove_suffix(kTagged.size());
    }
    for (const auto &[word, participation] : kParticipationWords)
        if (word == text)
            interface.setParticipation(id, participation);
}

}  // namespace

std::optional<std::string> thingOf(const Things &things, const std::string &name) {
    const auto it = things.find(name);
    return it == things.end() ? std::nullopt : std::optional(it->second);
}

void putThing(Things &things, const std::string &name, const std::optional<std::string> &value) {
    if (value)
        things[name] = *value;
    else
        things.erase(name);
}

std::set<std::string> namesOf(std::initializer_list<const Things *> all) {
    std::set<std::string> names;
    for (const auto *things : all)
        for (const auto &[name, value] : *things)
            names.insert(name);
    return names;
}

bool hasVlan(const Things &things, const std::optional<VlanId> &id) {
    return !id || *id == kDefaultVlan || things.contains(vlanThing(*id));
}

bool isSetting(const std::string &name) {
    return parseThingName(name).kind == ThingName::Kind::Setting;
}

bool isFilter(const std::string &name) {
    return name.starts_with("ip access-list ") || name.starts_with("mac access-list ");
}

std::string vlanThing(VlanId id) {
    return std::string(kVlanPrefix) + numberText(id);
}
std::string vlanNameThing(VlanId id) {
    return vlanThing(id) + " name";
}
std::string routingThing(VlanId id) {
    return vlanThing(id) + " routing";
}
std::string pvidThing(const std::string &interface) {
    return std::string(kInterfacePrefix) + interface + " pvid";
}
std::string mtuThing(const std::string &interface) {
    return std::string(kInterfacePrefix) + interface + " mtu";
}
std::string membershipThing(const std::string &interface, VlanId id) {
    return std::string(kInterfacePrefix) + interface + " " + vlanThing(id);
}

Things thingsOf(const SwitchState &state) {
    Things things;
    for (const auto &[id, name] : state.vlans) {
        things[vlanThing(id)] = kPresent;
        if (!name.empty())
            things[vlanNameThing(id)] = name;
    }
    for (const auto &[id, routing] : state.routing)
        if (routing != VlanRouting{})
            things[routingThing(id)] = routingText(routing);
    for (const auto &[name, interface] : state.interfaces) {
        if (interface.pvid != kDefaultVlan)
            things[pvidThing(name)] = numberText(interface.pvid);
        if (interface.mtu != 0)
            things[mtuThing(name)] = std::to_string(interface.mtu);
        VlanSet ids = interface.tagged;
        for (const auto &[id, participation] : interface.participation)
            ids.insert(id);
        for (const VlanId id : ids)
            things[membershipThing(name, id)] = membershipText(interface, id);
    }
    for (const auto &[name, value] : state.settings)
        things[name] = value;
    return things;
}

ThingName parseThingName(const std::string &name) {
    const auto words = cliWords(name);
    using Kind = ThingName::Kind;
    if (name.starts_with(kVlanPrefix) && words.size() >= 2) {
        if (const auto id = vlanOf(words[1]))
            return {words.size() == 2       ? Kind::Vlan
                    : words[2] == "routing" ? Kind::Routing
                                            : Kind::VlanName,
                    "", id};
    } else if (name.starts_with(kInterfacePrefix) && words.size() >= 3) {
        const bool lag = words[1] == "lag" && words.size() >= 4;
        const std::size_t rest = lag ? 3 : 2;
        const auto interface = lag ? words[1] + " " + words[2] : words[1];
        if (words.size() == rest + 1 && words[rest] == "pvid")
            return {Kind::Pvid, interface, std::nullopt};
        if (words.size() == rest + 1 && words[rest] == "mtu")
            return {Kind::Mtu, interface, std::nullopt};
        if (words.size() == rest + 2 && words[rest] == "vlan")
            return {Kind::Membership, interface, vlanOf(words[rest + 1])};
        return {Kind::Setting, interface, std::nullopt};
    }
    return {Kind::Setting, "", vlanOfSetting(name)};
}

SwitchState stateOf(const Things &things) {
    SwitchState state;
    using Kind = ThingName::Kind;
    for (const auto &[name, value] : things) {
        const auto thing = parseThingName(name);
        const VlanId id = thing.id.value_or(kDefaultVlan);
        switch (thing.kind) {
            case Kind::Vlan:
                state.vlans.try_emplace(id);
                break;
            case Kind::VlanName:
                state.vlans[id] = value;
                break;
            case Kind::Routing:
                state.routing[id] = parseRoutingText(value);
                break;
            case Kind::Pvid:
                state.interfaces[thing.interface].pvid = vlanOf(value).value_or(kDefaultVlan);
                break;
            case Kind::Mtu:
                state.interfaces[thing.interface].mtu = numberOf(value);
                break;
            case Kind::Membership:
                if (thing.id)
                    putMembership(value, id, state.interfaces[thing.interface]);
                break;
            case Kind::Setting:
                state.settings[name] = value;
                break;
        }
    }
    state.normalise();
    return state;
}

}  // namespace pavo
