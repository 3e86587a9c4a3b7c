#include "profile/placing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

#include "common/text.h"
#include "store/profile_demand.h"

namespace pavo {
namespace {

constexpr std::size_t kVlanNameMax = 32;

// What the running configuration says of a VLAN of that name: nothing when it is the default one.
std::string switchVlanName(const std::string &profileName, VlanId id) {
    return profileName == formatText("VLAN%04d", id) ? "" : cutToBytes(profileName, kVlanNameMax);
}

void include(InterfaceState &interface, VlanId id) {
    interface.setParticipation(id, Participation::Include);
}

// Takes an interface out of the VLAN that its untagged frames went to so far.
void leavePvid(InterfaceState &interface) {
    interface.tagged.erase(interface.pvid);
    interface.setParticipation(interface.pvid, Participation::Auto);
}

void placeUntagged(InterfaceState &interface, VlanId id) {
    if (interface.pvid != id)
        leavePvid(interface);
    include(interface, id);
    interface.tagged.erase(id);
    interface.pvid = id;
}

void placeTagged(InterfaceState &interface, VlanId id) {
    if (interface.pvid == id && id != kDefaultVlan) {
        interface.pvid = kDefaultVlan;
        include(interface, kDefaultVlan);
    }
    include(interface, id);
    interface.tagged.insert(id);
}

// Every port that has no other VLAN is in VLAN 1; one that carries it beside its own stops doing so.
void untagDefaultVlan(InterfaceState &interface) {
    if (interface.tagged.erase(kDefaultVlan) != 0 && interface.pvid != kDefaultVlan)
        interface.setParticipation(kDefaultVlan, Participation::Auto);
}

void placeRouting(VlanId id, const RoutingRequest &routing, SwitchState &wanted) {
    switch (routing.method) {
        case IpConfig::Dhcp:
            wanted.routing[id] = {true, true, "", ""};
            break;
        case IpConfig::Manual:
            wanted.routing[id] = {true, false, routing.address.value_or(Ipv4{}).text(),
                                  routing.mask.value_or(Ipv4{}).text()};
            break;
        case IpConfig::None:
            wanted.routing.erase(id);
            break;
        case IpConfig::Keep:
            break;
    }
}

// The MTU that each VLAN's profile asks for, where it does. VLAN 1 asks for nothing: every port that has no
// other VLAN is in it.
using MtuOfVlan = std::map<VlanId, std::uint32_t>;

MtuOfVlan wantedMtus(std::span<const ProfileRow> rows) {
    MtuOfVlan mtus;
    for (const auto &row : rows) {
        const auto id = row.vlan();
        const auto demand = profileDemand(row.profileType, row.vlanType, nullptr);
        if (id && *id != kDefaultVlan && demand.mtu > 0)
            mtus[*id] = static_cast<std::uint32_t>(demand.mtu);
    }
    return mtus;
}

// 0 when no profile on the interface asks for one.
std::uint32_t largestMtu(const InterfaceState &interface, const MtuOfVlan &mtus) {
    std::uint32_t most = 0;
    for (const auto &[id, mtu] : mtus)
        if (interface.isMemberOf(id))
            most = std::max(most, mtu);
    return most;
}

// Nothing for a VLAN without a settings file, or with one that another program wrote.
std::optional<VlanHistory> readHistory(VlanId id) {
    const auto settings = readVlanSettings(id);
    return settings ? settings->history : std::nullopt;
}

}  // namespace

VlanHistory historyOf(const ProfileVlanRequest &vlan, const SwitchState &observed, bool hasRow) {
    VlanHistory history;
    if (observed.hasVlan(vlan.id)) {
        if (hasRow) {
            history = readHistory(vlan.id).value_or(VlanHistory{});
        } else {
            const auto named = observed.vlans.find(vlan.id);
            history = {false, named == observed.vlans.end() ? "" : named->second, std::nullopt};
        }
    }
    if (vlan.routing.method != IpConfig::Keep && !history.oldRouting) {
        const auto routing = observed.routing.find(vlan.id);
        history.oldRouting = routing == observed.routing.end() ? VlanRouting{} : routing->second;
    }
    return history;
}

void placeVlan(const ProfileVlanRequest &vlan, const std::string &profileName, PortNames &ports,
               SwitchState &wanted) {
    if (vlan.id != kDefaultVlan)
        wanted.vlans[vlan.id] = switchVlanName(profileName, vlan.id);
    std::set<std::string> members;
    for (const auto *list : {&vlan.untagged, &vlan.tagged})
        for (const IfNum port : *list)
            members.insert(ports.of(port));
    for (auto &[name, interface] : wanted.interfaces) {
        if (members.contains(name))
            continue;
        if (vlan.id == kDefaultVlan)
            untagDefaultVlan(interface);
        else if (interface.isMemberOf(vlan.id))
            wanted.releasePort(name, vlan.id);
    }
    for (const IfNum port : vlan.untagged)
        placeUntagged(wanted.interfaces[ports.of(port)], vlan.id);
    placeRouting(vlan.id, vlan.routing, wanted);
}

void placeTaggedPorts(const ProfileVlanRequest &vlan, PortNames &ports, SwitchState &wanted) {
    for (const IfNum port : vlan.tagged)
        placeTagged(wanted.interfaces[ports.of(port)], vlan.id);
}

void vacateVlans(const VlanSet &ids, SwitchState &wanted) {
    for (const VlanId id : ids) {
        const auto history = readHistory(id).value_or(VlanHistory{});
        // A VLAN that is gone is not made again.
        if (id != kDefaultVlan && (history.created || !wanted.hasVlan(id))) {
            wanted.removeVlan(id);
            continue;
        }
        if (history.oldRouting)
            wanted.routing[id] = *history.oldRouting;
        for (auto &[name, interface] : wanted.interfaces)
            if (id == kDefaultVlan)
                untagDefaultVlan(interface);
            else
                wanted.releasePort(name, id);
        if (id != kDefaultVlan)
            wanted.vlans[id] = history.oldName;
    }
}

void placeMtu(const SwitchState &observed, std::span<const ProfileRow> rowsBefore,
              std::span<const ProfileRow> rowsAfter, SwitchState &wanted) {
    const auto before = wantedMtus(rowsBefore);
    const auto after = wantedMtus(rowsAfter);
    for (auto &[name, interface] : wanted.interfaces) {
        const auto it = observed.interfaces.find(name);
        const auto was = largestMtu(it == observed.interfaces.end() ? InterfaceState{} : it->second, before);
        if (const auto now = largestMtu(interface, after); now != 0)
            interface.mtu = now;
        else if (was != 0)
            interface.mtu = 0;
    }
}

}  // namespace pavo
