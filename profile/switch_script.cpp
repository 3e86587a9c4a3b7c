#include "profile/switch_script.h"

#include <map>
#include <utility>

namespace pavo {
namespace {

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

std::string numberOf(VlanId id) {
    return std::to_string(id.number());
}

std::string joined(const VlanSet &ids) {
    std::string out;
    for (const VlanId id : ids)
        out += (out.empty() ? "" : ",") + numberOf(id);
    return out;
}

std::string listLine(const char *command, const VlanSet &ids) {
    return ids.empty() ? "" : std::string(command) + " " + joined(ids) + "\n";
}

VlanSet onlyIn(const VlanSet &a, const VlanSet &b) {
    VlanSet out;
    for (const VlanId id : a)
        if (!b.contains(id))
            out.insert(id);
    return out;
}

// A port joins before its PVID changes and leaves afterwards, so that its traffic always has a VLAN.
std::string interfaceLines(const InterfaceState &from, const InterfaceState &to) {
    std::map<Participation, VlanSet> changed;
    for (const VlanId id : keysOf(from.participation, to.participation))
        if (from.participationIn(id) != to.participationIn(id))
            changed[to.participationIn(id)].insert(id);

    std::string out = listLine("vlan participation include", changed[Participation::Include]) +
                      listLine("vlan tagging", onlyIn(to.tagged, from.tagged)) +
                      listLine("no vlan tagging", onlyIn(from.tagged, to.tagged));
    if (from.pvid != to.pvid)
        out += "vlan pvid " + numberOf(to.pvid) + "\n";
    out += listLine("vlan participation exclude", changed[Participation::Exclude]) +
           listLine("vlan participation auto", changed[Participation::Auto]);
    if (from.mtu != to.mtu)
        out += to.mtu == 0 ? "no mtu\n" : "mtu " + std::to_string(to.mtu) + "\n";
    return out;
}

std::string routingLines(const VlanRouting &from, const VlanRouting &to) {
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
            names.append(name.empty() ? "no vlan name " + numberOf(id) + "\n"
                                      : "vlan name " + numberOf(id) + " " + quoted(name) + "\n");
    }
    return listLine("vlan", create) + names;
}

}  // namespace

std::string switchScript(const SwitchState &from, const SwitchState &to) {
    std::string interfaces;
    for (const auto &name : keysOf(from.interfaces, to.interfaces))
        if (const auto lines = interfaceLines(valueOf(from.interfaces, name), valueOf(to.interfaces, name));
            !lines.empty())
            interfaces.append("interface " + name + "\n" + lines + "exit\n");
    for (const VlanId id : keysOf(from.routing, to.routing))
        // The address of a VLAN that goes, goes with it.
        if (const auto lines = routingLines(valueOf(from.routing, id), valueOf(to.routing, id));
            !lines.empty() && to.hasVlan(id))
            interfaces.append("interface vlan " + numberOf(id) + "\n" + lines + "exit\n");
    VlanSet remove;
    for (const auto &[id, name] : from.vlans)
        if (!to.hasVlan(id))
            remove.insert(id);

    std::string out;
    if (const auto lines = vlanLines(from, to); !lines.empty())
        out += "vlan database\n" + lines + "exit\n";
    if (!interfaces.empty())
        out += "config\n" + interfaces + "exit\n";
    if (!remove.empty())
        out += "vlan database\n" + listLine("no vlan", remove) + "exit\n";
    return out;
}

Touched Touched::by(const SwitchState &from, const SwitchState &to) {
    Touched touched;
    for (const auto &name : keysOf(from.interfaces, to.interfaces))
        if (valueOf(from.interfaces, name) != valueOf(to.interfaces, name))
            touched.interfaces.insert(name);
    for (const VlanId id : keysOf(from.vlans, to.vlans))
        if (from.hasVlan(id) != to.hasVlan(id) || valueOf(from.vlans, id) != valueOf(to.vlans, id))
            touched.vlans.insert(id);
    for (const VlanId id : keysOf(from.routing, to.routing))
        if (valueOf(from.routing, id) != valueOf(to.routing, id)) {
            touched.routing.insert(id);
            touched.vlans.insert(id);
        }
    return touched;
}

SwitchState Touched::part(SwitchState state) const {
    std::erase_if(state.interfaces, [&](const auto &item) { return !interfaces.contains(item.first); });
    std::erase_if(state.vlans, [&](const auto &item) { return !vlans.contains(item.first); });
    std::erase_if(state.routing, [&](const auto &item) { return !routing.contains(item.first); });
    return state;
}

}  // namespace pavo
