// What a profile type wants of the switch, table and template taken together, as a set of bits: a view of
// ProfileDemand. Any thread may call this.
#ifndef PAVO_PROFILE_FEATURE_MASK_OPS_H
#define PAVO_PROFILE_FEATURE_MASK_OPS_H

#include <cstdint>

#include "store/profile_demand.h"
#include "swapi/switch.h"

namespace pavo {

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

// The bits of what a profile wants; without a VLAN.
ProfileFeatureMask featureMaskOf(const ProfileDemand &demand);

// What a profile of that type wants for a VLAN (0: none in particular) whose role in the profile is
// `vlanType`. A type that is not in the table has the bits of its template only. 0; 10000 with the mask
// cleared when the template cannot be loaded.
std::int32_t profileFeatureMaskGet(Switch sw, std::int32_t vlanId, const char *typeName,
                                   std::int32_t vlanType, ProfileFeatureMask *mask);

}  // namespace pavo

#endif
