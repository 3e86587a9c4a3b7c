// Applying and removing profiles on the switch: VLANs, ports, feature blocks, database rows and per-VLAN
// files, as one transaction. Callers serialise profile operations.
#ifndef PAVO_PROFILE_APPLY_H
#define PAVO_PROFILE_APPLY_H

#include <cstdint>
#include <vector>

#include "platform/open_client.h"
#include "profile/request.h"

// Codes of requests that conflict with what is there.
inline constexpr std::int32_t RESULT_AVB_ONE_VLAN = 14103;
inline constexpr std::int32_t RESULT_SHURE_ONE_VLAN = 14106;
inline constexpr std::int32_t RESULT_NAME_IN_USE = 14107;
inline constexpr std::int32_t RESULT_PROFILE_UNSUPPORTED = 14108;
inline constexpr std::int32_t RESULT_SMPTE_ONE_VLAN = 14109;
inline constexpr std::int32_t RESULT_NOT_EXIST = 10012;

// Configures the switch for a finished request. The whole request is checked first; then only what differs is
// changed: VLANs and names, port membership, PVIDs, MTU and VLAN addresses in one script, database rows, the
// per-VLAN files, and the feature blocks that no present profile has switched on yet.
//
// VLANs of the same profile (name) that the request no longer names leave it. With `overwrite` a profile of
// the same name on other VLANs is replaced instead of being a conflict.
//
// 0; 10003 for ids outside 1 to 4094, a VLAN named twice, unknown types, ports that do not exist, a port
// untagged in two VLANs, names that cannot be VLAN names, malformed addresses; 14103, 14106, 14109 when a
// type that is for one VLAN only has another; 14107 when another profile has the name; 14108 when the switch
// does not offer the type; 10000 and others when a step fails: then everything is as before, or the log says
// what is not.
std::int32_t profileVlanAdd(openapiClientHandle_t *client, const ProfileRequest *request,
                            std::int32_t overwrite);

// The same with the VLANs of other profiles that the request takes the place of.
std::int32_t profileApply(openapiClientHandle_t *client, const ProfileRequest &request, bool overwrite,
                          const std::vector<std::int32_t> &replaced);

// Removes profiles from VLANs: feature blocks that nobody else needs, the VLANs, database rows and files go,
// ports fall back to VLAN 1. VLAN 1 itself returns to the default profile; a VLAN that was there before the
// profile stays. As above.
std::int32_t profileVlansRemove(openapiClientHandle_t *client, const std::vector<std::int32_t> &vlanIds);

// Deletes the profile that the JSON request names ({"name": "..."}). 0; 10003 for a request that is no JSON
// or has no name, and for "Default"; 10012 when there is no such profile; else as profileVlansRemove. The
// files of detection go with the last profile of their type, so that its thread ends.
std::int32_t profileDelete(openapiClientHandle_t *client, const char *requestText);

// The profiles as a JSON array, one object per profile in the order of their lowest VLAN: {"name",
// "profileType", "color", "vlans": [{"vlanId", "vlanType", "profileType", "exists"}, ...]}. *out is new text,
// the caller's to free with free(). 0, or 10000 with *out null.
std::int32_t profileListGet(openapiClientHandle_t *client, char **out);

// The same with everything known of each VLAN: also "vlanName", "ptpTc", "ports" {"untagged", "tagged"}
// (ifNums), "lags" {"untagged", "tagged"} (LAG numbers), and "assignedPort" where the profile's request named
// them.
std::int32_t profileListExGet(openapiClientHandle_t *client, char **out);

#endif
