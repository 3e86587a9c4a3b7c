// What a profile type wants of the switch, table and template taken together, and the operations of the web
// interface on templates. They run on the caller's thread and take no locks; requests and answers are JSON.
#ifndef PAVO_PROFILE_TEMPLATES_H
#define PAVO_PROFILE_TEMPLATES_H

#include <cstddef>
#include <cstdint>

#include "platform/open_client.h"

inline constexpr std::int32_t RESULT_TEMPLATE_IN_USE = 14101;
inline constexpr std::int32_t RESULT_TYPE_DUPLICATED = 14102;

// Bits of ProfileFeatureMask::features. The first group comes from the template ("off" ones are set when the
// template says false), the second from the type table.
inline constexpr std::uint32_t PROFILE_FEATURE_PTP_TC = 1u << 0;  // also by the settings file of the VLAN
inline constexpr std::uint32_t PROFILE_FEATURE_AVB = 1u << 1;
inline constexpr std::uint32_t PROFILE_FEATURE_FLOW_CONTROL = 1u << 2;  // stated, on or off
inline constexpr std::uint32_t PROFILE_FEATURE_POE = 1u << 3;
inline constexpr std::uint32_t PROFILE_FEATURE_QUERY_INTERVAL = 1u << 5;
inline constexpr std::uint32_t PROFILE_FEATURE_STORM_OFF = 1u << 7;  // also by RSTP
inline constexpr std::uint32_t PROFILE_FEATURE_QOS = 1u << 8;        // stated, whatever it says
inline constexpr std::uint32_t PROFILE_FEATURE_SONOS = 1u << 9;
inline constexpr std::uint32_t PROFILE_FEATURE_LLDP_OFF = 1u << 10;
inline constexpr std::uint32_t PROFILE_FEATURE_ISDP_OFF = 1u << 11;
inline constexpr std::uint32_t PROFILE_FEATURE_STP_OFF = 1u << 12;
inline constexpr std::uint32_t PROFILE_FEATURE_PTP_BC = 1u << 13;

inline constexpr std::uint32_t PROFILE_FEATURE_MODE_A = 1u << 4;
inline constexpr std::uint32_t PROFILE_FEATURE_MTU = 1u << 6;
inline constexpr std::uint32_t PROFILE_FEATURE_POLY_PROXY_QUERIER = 1u << 15;
inline constexpr std::uint32_t PROFILE_FEATURE_LIGHTWARE_IGMP = 1u << 16;
inline constexpr std::uint32_t PROFILE_FEATURE_FAST_LEAVE = 1u << 17;
inline constexpr std::uint32_t PROFILE_FEATURE_QUERIER = 1u << 18;
inline constexpr std::uint32_t PROFILE_FEATURE_HARMAN_ACL = 1u << 19;
inline constexpr std::uint32_t PROFILE_FEATURE_ETC_VLAN = 1u << 20;
inline constexpr std::uint32_t PROFILE_FEATURE_ETC_GLOBAL = 1u << 21;
inline constexpr std::uint32_t PROFILE_FEATURE_MODE_B = 1u << 22;
inline constexpr std::uint32_t PROFILE_FEATURE_RSTP = 1u << 23;
inline constexpr std::uint32_t PROFILE_FEATURE_MAC_FILTER = 1u << 24;
inline constexpr std::uint32_t PROFILE_FEATURE_PAIR_A_LOW = 1u << 25;
inline constexpr std::uint32_t PROFILE_FEATURE_PAIR_A_HIGH = 1u << 26;
inline constexpr std::uint32_t PROFILE_FEATURE_PAIR_B_LOW = 1u << 27;

// Bits of ProfileFeatureMask::extra.
inline constexpr std::uint8_t PROFILE_EXTRA_TELOS = 0x01;
inline constexpr std::uint8_t PROFILE_EXTRA_GD = 0x02;
inline constexpr std::uint8_t PROFILE_EXTRA_PAIR_B_HIGH = 0x10;
inline constexpr std::uint8_t PROFILE_EXTRA_MILAN = 0x20;
inline constexpr std::uint8_t PROFILE_EXTRA_MILAN_DANTE = 0x40;

struct ProfileFeatureMask {
    std::uint32_t features;  // PROFILE_FEATURE_
    std::int32_t vlanId;     // of the PTP boundary clock; counts with PROFILE_FEATURE_PTP_BC only
    std::uint8_t extra;      // PROFILE_EXTRA_

    bool operator==(const ProfileFeatureMask &) const = default;
};

// What a profile of that type wants for a VLAN (0: none in particular) whose role in the profile is
// `vlanType`. A type that is not in the table has the bits of its template only. 0; 10000 with the mask
// cleared when the template cannot be loaded.
std::int32_t profileFeatureMaskGet(openapiClientHandle_t *client, std::int32_t vlanId, const char *typeName,
                                   std::int32_t vlanType, ProfileFeatureMask *mask);

// The templates offered on this switch, in the order of their file names, as one JSON array; "[" alone when
// there is none, "[]" when the directory cannot be read. Templates from the first on that does not fit are
// left out. `out` has PROFILE_TEMPLATE_LIST_SIZE bytes. The second argument is not used. Always 0.
inline constexpr std::size_t PROFILE_TEMPLATE_LIST_SIZE = 30720;
std::int32_t ProfileTemplateGet(openapiClientHandle_t *client, const char *request, char *out);

// {"profile": {"name": type, ...}}: stores the "profile" object as a new template. 0; 10002 when the request
// does not parse; 10003 without a client, a request, its "profile" or a usable name; 14102 when the type has
// a template; the writer's code.
std::int32_t ProfileTemplateCreate(openapiClientHandle_t *client, const char *request);

// The same over the template that the type has; 10000 when it has none.
std::int32_t ProfileTemplateEdit(openapiClientHandle_t *client, const char *request);

// {"name": type}: deletes the template of the type, and what the profile database and the settings files
// still hold of its VLANs that the switch no longer has. 0; 10000 when there is no template or it cannot be
// deleted; 10002 when the request does not parse; 10003 without a name; 14101, with nothing changed, when a
// VLAN of the type exists.
std::int32_t ProfileTemplateDelete(openapiClientHandle_t *client, const char *request);

// The number of VLANs of a profile type that exist on the switch; 0 when the database cannot be opened.
std::int32_t ProfileAssignedCount(openapiClientHandle_t *client, const char *typeName);

#endif
