// What profile operations change on the switch, as data: VLANs with their names, VLAN membership and MTU of
// every interface, addresses of VLAN interfaces. The same type holds what is observed, what is wanted and
// what was before. Pure functions on plain values; any thread may call them.
#ifndef PAVO_PROFILE_SWITCH_STATE_H
#define PAVO_PROFILE_SWITCH_STATE_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "common/vlan_id.h"
#include "store/vlan_settings.h"
#include "swapi/switch.h"

namespace pavo {

struct InterfaceState {
    VlanId pvid = kDefaultVlan;
    // By VLAN, only what differs from the default: Include for VLAN 1, Auto for every other.
    std::map<VlanId, Participation> participation;
    VlanSet tagged;
    std::uint32_t mtu = 0;  // 0: the switch's default

    bool operator==(const InterfaceState &) const = default;

    Participation participationIn(VlanId id) const;
    void setParticipation(VlanId id, Participation value);
    // By PVID, static membership or tag.
    bool isMemberOf(VlanId id) const;
};

struct SwitchState {
    std::map<VlanId, std::string> vlans;  // names; an empty one is the default name
    // By CLI name ("0/5", "lag 2"); those not listed are in their default state.
    std::map<std::string, InterfaceState> interfaces;
    std::map<VlanId, VlanRouting> routing;

    bool operator==(const SwitchState &) const = default;

    bool hasVlan(VlanId id) const { return id == kDefaultVlan || vlans.contains(id); }
    // Takes a VLAN out of everything: it is gone, and its ports are back in VLAN 1.
    void removeVlan(VlanId id);
    // Puts an interface's untagged frames into VLAN 1 and takes it out of `id`.
    void releasePort(const std::string &name, VlanId id);
    // Without interfaces and VLAN interfaces in their default state, so that equal states compare equal.
    void normalise();
};

// From the text of "show running-config". Lines that are not about the above are passed over.
SwitchState parseSwitchState(std::string_view runningConfig);

}  // namespace pavo

#endif
