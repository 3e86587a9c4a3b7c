// Applying and deleting profiles as operations. Each takes the profile lock.
#ifndef PAVO_PROFILE_APPLY_OPS_H
#define PAVO_PROFILE_APPLY_OPS_H

#include <cstdint>

#include "common/vlan_id.h"
#include "profile/detection_files.h"
#include "profile/request.h"
#include "swapi/switch.h"

namespace pavo {

// Applies the profile that the JSON request describes ({"profileConfig": {...}}). 0; 10003 for a request that
// is no JSON, lacks a required key, has one of a wrong type, or more than four VLANs or 912 ports in a list;
// otherwise the result of profileVlanAdd. A failed request leaves switch, database and files as they were.
std::int32_t profileConfigSet(Switch sw, const char *requestText);

// What profileConfigSet would change for that request, as JSON (see profile/plan.h); the caller frees the
// text. It changes nothing. The codes of profileConfigSet; 10002 when there is no place for the text.
std::int32_t profilePlanGet(Switch sw, const char *requestText, char **text);

// How each profile stands beside the switch as it is, as JSON (see profile/apply.h); the caller frees the
// text. 0; 10000 when the switch or the database cannot be read; 10002 as above.
std::int32_t profileStatusGet(Switch sw, char **text);

// Configures the switch for a finished request. 0; 10003 for a VLAN named twice, unknown types, ports that do
// not exist, a port untagged in two VLANs, names that cannot be VLAN names, malformed addresses; 14103,
// 14106, 14109 when a type that is for one VLAN only has another; 14107 when another profile has the name;
// 14108 when the switch does not offer the type; 10000 and others when a step fails: then everything is as
// before, or the log says what is not.
std::int32_t profileVlanAdd(Switch sw, const ProfileRequest &request, std::int32_t overwrite);

// Removes profiles from VLANs. 0, or the code of the step that failed, as above.
std::int32_t profileVlansRemove(Switch sw, const VlanSet &ids);

// Deletes the profile that the JSON request names ({"name": "..."}). 0; 10003 for a request that is no JSON
// or has no name, and for "Default"; 10012 when there is no such profile; else as profileVlansRemove.
std::int32_t profileDelete(Switch sw, const char *requestText);

// Write the configuration files of Shure and Audac detection. 0 or 10000.
std::int32_t profileConfigShureSaveToFile(Switch sw, const ProfileRequest &request);
std::int32_t profileConfigAudacSaveToFile(Switch sw, const ProfileRequest &request);

}  // namespace pavo

#endif
