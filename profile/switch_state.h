// What profile operations change on the switch, as data: VLANs with their names, VLAN membership and MTU of
// every interface, addresses of VLAN interfaces. One show capture reads it, and the difference of two states
// is one CLI script: so a change touches only what differs, costs one apply however many ports it concerns,
// and is undone by applying the difference the other way.
#ifndef PAVO_PROFILE_SWITCH_STATE_H
#define PAVO_PROFILE_SWITCH_STATE_H

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "platform/open_client.h"

using VlanSet = std::set<std::uint32_t>;

struct InterfaceState {
    std::uint32_t pvid = 1;
    // Participation by VLAN (OPEN_VLAN_PARTICIPATION_MODE_), only what differs from the default: include for
    // VLAN 1, auto for every other.
    std::map<std::uint32_t, std::uint32_t> participation;
    VlanSet tagged;
    std::uint32_t mtu = 0;  // 0: the switch's default

    bool operator==(const InterfaceState &) const = default;
};

struct RoutingState {
    bool routing = false;
    bool dhcp = false;
    std::string ip, mask;  // empty without a manual address

    bool operator==(const RoutingState &) const = default;
};

struct SwitchState {
    std::map<std::uint32_t, std::string> vlans;  // name by id; empty: the default name
    std::map<std::string, InterfaceState>
        interfaces;  // by CLI name ("0/5", "lag 2"); those not listed are default
    std::map<std::uint32_t, RoutingState> routing;  // by VLAN id

    bool operator==(const SwitchState &) const = default;

    bool hasVlan(std::uint32_t id) const { return id == 1 || vlans.contains(id); }
    InterfaceState &interface(const std::string &name) { return interfaces[name]; }
    // Takes a VLAN out of everything: it is gone, and its ports are back in VLAN 1.
    void removeVlan(std::uint32_t id);
    // Puts an interface's untagged frames into VLAN 1 and takes it out of `id`.
    void releasePort(const std::string &name, std::uint32_t id);
    // Without interfaces and VLAN interfaces in their default state, so that equal states compare equal.
    void normalise();
};

// The CLI name of a port (ifNum).
std::string portCliName(std::uint32_t ifNum);

// Reads the state from the running configuration. 0, 10000 (show refused) or 10016 (output unreadable).
std::int32_t switchStateRead(openapiClientHandle_t *client, SwitchState *state);

// The same from the text of "show running-config".
SwitchState switchStateParse(const std::string &runningConfig);

// The script that leads from one state to the other; empty when there is nothing to do. Names that do not
// belong into a script are the caller's to keep out.
std::string switchStateScript(const SwitchState &from, const SwitchState &to);

// Leads the switch from `from` to `to` and reads back, up to 40 times 100 ms apart, until it is there. 0;
// 10000 when the script is refused, the switch cannot be read, or does not get there.
std::int32_t switchStateChange(openapiClientHandle_t *client, const SwitchState &from, const SwitchState &to);

// Takes back a change from `before` to `wanted` that may have happened in part; the rest of the switch is
// left alone. As above.
std::int32_t switchStateRestore(openapiClientHandle_t *client, const SwitchState &before,
                                const SwitchState &wanted);

#endif
