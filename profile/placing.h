// Where profiles lead: the wanted state of VLANs, ports and addresses, worked out from what is there without
// them. It touches nothing on the switch but the names of its ports.
#ifndef PAVO_PROFILE_PLACING_H
#define PAVO_PROFILE_PLACING_H

#include <set>
#include <string>

#include "profile/port_names.h"
#include "profile/standing.h"
#include "profile/switch_state.h"

namespace pavo {

// Everything that a profile wants of a VLAN but the tagged ports. Ports that do not exist are passed over.
// Members that the profile does not name leave the VLAN, but for LAGs of its untagged ports.
void placeVlan(const PlacedVlan &placed, PortNames &ports, SwitchState &wanted);
// After all PVIDs: taking a port out of VLAN 1 as its PVID must not take a tag of the request along.
void placeTaggedPorts(const PlacedVlan &placed, PortNames &ports, SwitchState &wanted);

// The MTU of every port that a profile names: the largest that those profiles ask for.
void placeMtu(const Standing &standing, PortNames &ports, SwitchState &wanted);

// The things (see profile/switch_state.h) that a profile names itself; placing it may change others.
std::set<std::string> claimsOf(const PlacedVlan &placed, PortNames &ports);

}  // namespace pavo

#endif
