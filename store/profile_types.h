// The profile types: one per AV ecosystem, known by its exact name, with what it asks of the switch. The
// table is compiled in; what the user can see and change stands in the template of the type
// (store/profile_template.h). Any thread may call these operations.
#ifndef PAVO_STORE_PROFILE_TYPES_H
#define PAVO_STORE_PROFILE_TYPES_H

#include <cstdint>
#include <span>

// The names that code refers to; the table knows them all.
inline constexpr const char *PROFILE_TYPE_NAME_AES67 = "Audio AES67";
inline constexpr const char *PROFILE_TYPE_NAME_UNITE = "Unite Audio";
inline constexpr const char *PROFILE_TYPE_NAME_TELOS = "Telos AllianceLivewire+ AES67";
inline constexpr const char *PROFILE_TYPE_NAME_AVB = "Audio Video AVB";
inline constexpr const char *PROFILE_TYPE_NAME_MILAN = "Audio Video AVB MILAN";
inline constexpr const char *PROFILE_TYPE_NAME_SMPTE = "Audio Video SMPTE";
inline constexpr const char *PROFILE_TYPE_NAME_MILAN_DANTE =
    "Audio Video AVB MILAN with Dante PTPv1 PTPv2 or AES67";
inline constexpr const char *PROFILE_TYPE_NAME_KRAMER = "Kramer AV";
inline constexpr const char *PROFILE_TYPE_NAME_LIGHTWARE = "AVoIP Lightware AV network";
inline constexpr const char *PROFILE_TYPE_NAME_SHURE_CONVERGED = "Shure Converged Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_SHURE_SPLIT = "Shure Split Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_AUDAC = "AUDAC Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_DEFAULT = "Default";
inline constexpr const char *PROFILE_TYPE_NAME_POLY = "Poly StudioNet Modular Room";
inline constexpr const char *PROFILE_TYPE_NAME_GD = "G&D KVM-over-IP";

// Flags where nothing else is said: nonzero means wanted.
struct ProfileTypeAttributes {
    std::int32_t mtu;  // bytes; 0: the profile does not touch the MTU
    std::int32_t modeA;
    std::int32_t modeB;
    std::int32_t polyProxyQuerier;
    std::int32_t lightwareIgmp;
    std::int32_t querierInterval;  // seconds; 0: no IGMP querier wanted
    std::int32_t fastLeave;
    std::int32_t harmanAcl;  // wanted when 1, on VLANs of type 3 only
    std::int32_t etcVlan;
    std::int32_t etcGlobal;
    std::int32_t rstp;
    std::int32_t macFilter;
    std::int32_t pairA;  // two flags, one in each 16-bit half
    std::int32_t pairB;

    bool operator==(const ProfileTypeAttributes &) const = default;
};

struct ProfileTypeEntry {
    const char *name;
    ProfileTypeAttributes attributes;
};

// All types, in the order of the look-up; the first exact match of a name counts.
std::span<const ProfileTypeEntry> profileTypeTable();

// The MTU of a type, 0 when it is not found. 0, or 10000 when there is no such type.
std::int32_t profileTypeMtuGet(const char *typeName, std::int32_t *mtu);

// The attributes of a type. 0, or 10000 with *attributes as it was when there is no such type.
std::int32_t profileTypeAttrGet(const char *typeName, ProfileTypeAttributes *attributes);

#endif
