#include "profile/placing.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

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

// A LAG of ports that are all untagged in the VLAN: detection bundles a profile's ports, and their LAG
// follows the profile.
bool isLagOf(const SwitchState &wanted, const std::string &name, const std::set<std::string> &untagged) {
    const auto lag = wanted.lagMembers.find(name);
    return lag != wanted.lagMembers.end() && !lag->second.empty() &&
           std::ranges::includes(untagged, lag->second);
}

std::set<std::string> namesOf(const std::vector<IfNum> &list, PortNames &ports) {
    std::set<std::string> names;
    for (const IfNum port : list)
        if (auto name = ports.find(port))
            names.insert(std::move(*name));
    return names;
}

}  // namespace

void placeVlan(const PlacedVlan &placed, PortNames &ports, SwitchState &wanted) {
    const auto &vlan = placed.vlan;
    const auto untagged = namesOf(vlan.untagged, ports);
    auto members = namesOf(vlan.tagged, ports);
    members.insert(untagged.begin(), untagged.end());
    if (vlan.id != kDefaultVlan && !placed.shared) {
        wanted.vlans[vlan.id] = switchVlanName(placed.profile->request.name, vlan.id);
        for (const auto &[name, ignored] : wanted.lagMembers)
            if (!members.contains(name) && isLagOf(wanted, name, untagged)) {
                members.insert(name);
                if (wanted.interfaces[name].pvid != vlan.id)
                    placeUntagged(wanted.interfaces[name], vlan.id);
            }
    }
    for (auto &[name, interface] : wanted.interfaces) {
        if (placed.shared || members.contains(name))
            continue;
        if (vlan.id == kDefaultVlan)
            untagDefaultVlan(interface);
        else if (interface.isMemberOf(vlan.id))
            wanted.releasePort(name, vlan.id);
    }
    for (const auto &name : untagged)
        placeUntagged(wanted.interfaces[name], vlan.id);
    placeRouting(vlan.id, vlan.routing, wanted);
}

void placeTaggedPorts(const PlacedVlan &placed, PortNames &ports, SwitchState &wanted) {
    for (const auto &name : namesOf(placed.vlan.tagged, ports))
        placeTagged(wanted.interfaces[name], placed.vlan.id);
}

void placeMtu(const Standing &standing, PortNames &ports, SwitchState &wanted) {
    std::map<std::string, std::uint32_t> most;
    for (const auto &placed : standing.vlans) {
        const auto demand = profileDemand(placed.vlan.profileType, placed.vlan.vlanType, nullptr);
        if (demand.mtu <= 0 || placed.shared)
            continue;
        for (const auto *list : {&placed.vlan.untagged, &placed.vlan.tagged})
            for (const auto &name : namesOf(*list, ports))
                most[name] = std::max(most[name], static_cast<std::uint32_t>(demand.mtu));
    }
    for (const auto &[name, mtu] : most)
        wanted.interfaces[name].mtu = mtu;
}

std::set<std::string> claimsOf(const PlacedVlan &placed, PortNames &ports) {
    const auto &vlan = placed.vlan;
    std::set<std::string> claims;
    if (vlan.id != kDefaultVlan && !placed.shared)
        claims = {vlanThing(vlan.id), vlanNameThing(vlan.id)};
    if (vlan.routing.method != IpConfig::Keep)
        claims.insert(routingThing(vlan.id));
    const bool mtu = !placed.shared && profileDemand(vlan.profileType, vlan.vlanType, nullptr).mtu > 0;
    for (const auto *list : {&vlan.untagged, &vlan.tagged})
        for (const auto &name : namesOf(*list, ports)) {
            claims.insert(membershipThing(name, vlan.id));
            if (list == &vlan.untagged)
                claims.insert(pvidThing(name));
            if (mtu)
                claims.insert(mtuThing(name));
        }
    return claims;
}

}  // namespace pavo
