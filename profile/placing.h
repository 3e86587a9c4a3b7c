// Where a change of profiles leads: the wanted state of VLANs, ports and addresses, worked out from the
// observed one without touching the switch.
#ifndef PAVO_PROFILE_PLACING_H
#define PAVO_PROFILE_PLACING_H

#include <optional>
#include <span>
#include <string>

#include "profile/port_names.h"
#include "profile/request.h"
#include "profile/switch_state.h"
#include "store/profile_db.h"
#include "store/vlan_settings.h"

namespace pavo {

// What a VLAN was before the profile that a request is about to apply to it. One with a row in the database
// is the profile's own, whatever became of its file; one that is not on the switch has no past.
VlanHistory historyOf(const ProfileVlanRequest &vlan, const SwitchState &observed, bool hasRow);

// Everything that a request wants of a VLAN but the tagged ports. The ports exist.
void placeVlan(const ProfileVlanRequest &vlan, const std::string &profileName, PortNames &ports,
               SwitchState &wanted);
// After all PVIDs: taking a port out of VLAN 1 as its PVID must not take a tag of the request along.
void placeTaggedPorts(const ProfileVlanRequest &vlan, PortNames &ports, SwitchState &wanted);

// Takes profiles off VLANs: those that a profile created go, the others get back what their history says.
void vacateVlans(const VlanSet &ids, SwitchState &wanted);

// The MTU of every interface: the largest that the profiles on it ask for. One that no profile asked for
// before is left alone until one does.
void placeMtu(const SwitchState &observed, std::span<const ProfileRow> rowsBefore,
              std::span<const ProfileRow> rowsAfter, SwitchState &wanted);

}  // namespace pavo

#endif
