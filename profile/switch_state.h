// What profile operations change on the switch, as data: VLANs with their names, VLAN membership and MTU of
// every interface, addresses of VLAN interfaces, and the settings of feature blocks. The same type holds what
// is observed, what is wanted and what was before. Pure functions on plain values; any thread may call them.
#ifndef PAVO_PROFILE_SWITCH_STATE_H
#define PAVO_PROFILE_SWITCH_STATE_H

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "common/vlan_id.h"
#include "profile/settings.h"
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
    Settings settings;
    // Ports of each LAG that has any, by CLI name. Observed only: profiles do not change them.
    std::map<std::string, std::set<std::string>> lagMembers;

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

// A state as things with a name and a value each: "vlan 20", "vlan 20 name", "vlan 20 routing", "interface
// 0/5 pvid", "interface 0/5 mtu", "interface 0/5 vlan 20" (membership: "include", "include tagged", "auto
// tagged", "exclude", ...), and the settings by their names. What stands at its default is absent.
using Things = std::map<std::string, std::string>;
std::optional<std::string> thingOf(const Things &things, const std::string &name);

// Nothing takes the thing out.
void putThing(Things &things, const std::string &name, const std::optional<std::string> &value);
std::set<std::string> namesOf(std::initializer_list<const Things *> all);
// Whether a VLAN is there: VLAN 1 is, and so is none at all.
bool hasVlan(const Things &things, const std::optional<VlanId> &id);

Things thingsOf(const SwitchState &state);
// The other way; LAG members are none.
SwitchState stateOf(const Things &things);

// What kind of thing a name is of. `interface` and `id` are those of the name, where it has them.
struct ThingName {
    enum class Kind { Vlan, VlanName, Routing, Pvid, Mtu, Membership, Setting };
    Kind kind = Kind::Setting;
    std::string interface{};
    std::optional<VlanId> id{};
};
ThingName parseThingName(const std::string &name);
bool isSetting(const std::string &name);
// Access lists come from elsewhere: profiles only take them away.
bool isFilter(const std::string &name);
std::string vlanThing(VlanId id);
std::string vlanNameThing(VlanId id);
std::string routingThing(VlanId id);
std::string pvidThing(const std::string &interface);
std::string mtuThing(const std::string &interface);
std::string membershipThing(const std::string &interface, VlanId id);

}  // namespace pavo

#endif
