// VLANs for the web interface: requests and answers as JSON text.
//
// Common to all: the result is 0 or a result code, 10003 for a request that is none of those described, with
// the switch not touched, and 10000 for other failures; the reason has been logged. An answer in *json is new
// text, the caller's to free with free(), and null when the operation fails. Any thread may call; changes
// wait for each other and for profile operations (vlan/vlan_changes.h).
//
// Requests are those of vlan/vlan_requests.h, which has them with a result that tells what has been changed.
// Changes of what a profile has are carried out; the log tells what it was, and "pavoctl profile status"
// shows it. vlan/vlan_changes.h has the form that refuses them.
#ifndef PAVO_VLAN_VLAN_OPS_H
#define PAVO_VLAN_VLAN_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

std::int32_t v2VlanListCreate(Switch sw, const char *json);
std::int32_t v2VlanListDelete(Switch sw, const char *list);
// The answer of printVlanSummaries (vlan/vlan_details.h).
std::int32_t v2VlanListGet(Switch sw, char **json);

// The answers of printVlanDetails and printVlanName; 10000 when there is no such VLAN.
std::int32_t v2VlanDetailGet(Switch sw, std::uint32_t vlanId, char **json);
std::int32_t v2VlanNameGet(Switch sw, std::uint32_t vlanId, char **json);
std::int32_t v2VlanNameSet(Switch sw, const char *json);

// --- all ports and LAGs; one that cannot be set stops nothing and does not show in the result

std::int32_t v2VlanParticipationAllSet(Switch sw, const char *json);
std::int32_t v2VlanAcceptFrameAllSet(Switch sw, const char *json);
std::int32_t v2VlanPvidAllSet(Switch sw, const char *json);
std::int32_t v2VlanTaggingAllSet(Switch sw, const char *json);

// --- automatic switchport mode: {"mode": "enable" or "disable"}

std::int32_t switchportModeAutoGet(Switch sw, char **json);
std::int32_t switchportModeAutoSet(Switch sw, const char *json);

// --- for the profile pages

// Creates a static VLAN unless it exists, and names it; 13101 when it cannot be created. VLAN 1 is a success
// with nothing done.
std::int32_t vlanCreateAndSet(Switch sw, std::int32_t vlanId, const char *name);
// Everything known of a VLAN, with these keys in this order:
//   "vlanId", "name" (of the VLAN), "color", "profileName" (the VLAN's name as well), "vlanType" (its role as
//   a number), "isStatic", "assignedUntagPort", "assignedtagPort", "assignedTagLag", "assignedUnTagLag",
//   "assignedShureLearnPort", "shureDevicePort" (arrays of numbers, see vlan/vlan_info_ops.h), "profileType"
//   (the name of the profile type)
// and, unless the role is 1 or no request of that type is kept, "assignedPort": the ports that the request
// assigns to this VLAN's devices, none when it does not name the VLAN.
std::int32_t switchConfigVlanGet(Switch sw, std::uint32_t vlanId, char **json);

}  // namespace pavo

#endif
