// Requests to change VLANs as the web interface sends them, in JSON text but for the list of what is to be
// deleted (null is no request). What a profile has is changed, and named in the result.
//
// InvalidArgument (logged) for what is none of the requests described, with the switch not touched. All else
// is in vlan/vlan_changes.h.
#ifndef PAVO_VLAN_VLAN_REQUESTS_H
#define PAVO_VLAN_VLAN_REQUESTS_H

#include <source_location>

#include "common/result.h"
#include "common/where.h"
#include "swapi/switch.h"
#include "vlan/vlan_changes.h"

namespace pavo {

// A VLAN list is "10,20-25", see vlan/vlan_list.h.

// {"vlan-list": text}: creates those that do not exist, up to the first that fails.
Result<VlanChange> requestVlans(Switch sw, const char *json, Where where = std::source_location::current());
// Deletes those of the list that exist, up to the first that fails.
Result<VlanChange> requestNoVlans(Switch sw, const char *list, Where where = std::source_location::current());
// {"vlan-id": number, "name": text}; the name is cut to 32 characters.
Result<VlanChange> requestVlanName(Switch sw, const char *json,
                                   Where where = std::source_location::current());

// --- all ports and LAGs

// {"mode": "include", "exclude" or "auto", "vlan-id": number}
Result<VlanChange> requestParticipation(Switch sw, const char *json,
                                        Where where = std::source_location::current());
// {"accept-frame": "all", "vlanonly" or "admituntaggedonly"}
Result<VlanChange> requestAcceptFrames(Switch sw, const char *json,
                                       Where where = std::source_location::current());
// {"pvid": number}; Failed when there is no such VLAN.
Result<VlanChange> requestPvid(Switch sw, const char *json, Where where = std::source_location::current());
// {"vlan-id": number, "tagging": "tagged" or "untagged"}
Result<VlanChange> requestTagging(Switch sw, const char *json, Where where = std::source_location::current());

}  // namespace pavo

#endif
