// The profile apply request: its JSON form, the record it is parsed into, and the configuration files that
// detection reads. Runs on the caller's thread, one request at a time (callers serialise).
#ifndef PAVO_PROFILE_REQUEST_H
#define PAVO_PROFILE_REQUEST_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/open_client.h"

inline constexpr std::size_t PROFILE_VLANS_MAX = 4;
inline constexpr std::size_t PROFILE_PORTS_MAX = 912;

// PTP setting of a profile.
inline constexpr std::int32_t PTP_CONFIG_DISABLE = 0;
inline constexpr std::int32_t PTP_CONFIG_ENABLE = 1;
inline constexpr std::int32_t PTP_CONFIG_NONE = 2;

// Role of a VLAN within profiles that separate control and audio.
inline constexpr std::int32_t VLAN_TYPE_CONTROL = 2;
inline constexpr std::int32_t VLAN_TYPE_AUDIO = 3;

struct ProfilePortList {
    std::uint32_t count;
    std::uint32_t ports[PROFILE_PORTS_MAX];  // ifNums in request order
};

struct ProfileVlanRequest {
    char name[256];  // of the profile
    char color[8];
    char profileType[256];  // of this VLAN
    std::int32_t ptpTc;
    std::int32_t vlanId;
    std::int32_t vlanType;
    ProfilePortList untagged;
    ProfilePortList tagged;
    ProfilePortList assigned;
    std::int32_t routing;  // IP configuration method: 0 none, 1 no address, 2 DHCP, 3 manual
    char ipAddr[16];
    char ipMask[16];
};

struct ProfileRequest {
    char name[256];
    char color[8];
    char profileType[256];
    std::int32_t ptpTc;
    std::int32_t declaredVlans;
    std::size_t vlanCount;
    ProfileVlanRequest vlans[PROFILE_VLANS_MAX];
};

// Applies the profile that the JSON request describes ({"profileConfig": {...}}). 0; 10003 for a request that
// is no JSON, lacks a required key, has one of a wrong type, or more than four VLANs or 912 ports in a list;
// otherwise the result of profileVlanAdd. A failed request leaves switch, database and files as they were.
std::int32_t profileConfigSet(openapiClientHandle_t *client, const char *requestText);

// Write the configuration files of Shure and Audac detection. 0 or the writer's code.
std::int32_t profileConfigShureSaveToFile(openapiClientHandle_t *client, const ProfileRequest *request);
std::int32_t profileConfigAudacSaveToFile(openapiClientHandle_t *client, const ProfileRequest *request);

// The file that keeps the whole request of a type with several VLANs.
std::string profileExFilePath(const char *profileType);

// Adds a port list under `key`, as an array of numbers.
void profilePortsToJson(cJSON *object, const char *key, const ProfilePortList &list);

#endif
