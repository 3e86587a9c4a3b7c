// The profile types: one per AV ecosystem, known by its exact name, with what it asks of the switch. The
// table is compiled in; what the user can see and change is in the template of the type
// (store/profile_template.h). Any thread may call these functions.
#ifndef PAVO_STORE_PROFILE_TYPES_H
#define PAVO_STORE_PROFILE_TYPES_H

#include <cstdint>
#include <span>
#include <string_view>

namespace pavo {

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
inline constexpr const char *PROFILE_TYPE_NAME_HARMAN = "HARMAN Professional AV Network";
inline constexpr const char *PROFILE_TYPE_NAME_LIGHTWARE = "AVoIP Lightware AV network";
inline constexpr const char *PROFILE_TYPE_NAME_SHURE_CONVERGED = "Shure Converged Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_SHURE_SPLIT = "Shure Split Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_AUDAC = "AUDAC Audio and Control Network";
inline constexpr const char *PROFILE_TYPE_NAME_DEFAULT = "Default";
inline constexpr const char *PROFILE_TYPE_NAME_POLY = "Poly StudioNet Modular Room";
inline constexpr const char *PROFILE_TYPE_NAME_NICE = "Nice Home Management";
inline constexpr const char *PROFILE_TYPE_NAME_GD = "G&D KVM-over-IP";

// Flags where nothing else is said: nonzero means wanted.
struct ProfileTypeAttributes {
    std::int32_t mtu = 0;  // bytes; 0: the profile does not touch the MTU
    std::int32_t modeA = 0;
    std::int32_t modeB = 0;
    std::int32_t polyProxyQuerier = 0;
    std::int32_t lightwareIgmp = 0;
    std::int32_t querierInterval = 0;  // seconds; 0: no IGMP querier wanted
    std::int32_t fastLeave = 0;
    std::int32_t harmanAcl = 0;  // wanted when 1, on VLANs of type 3 only
    std::int32_t etcVlan = 0;
    std::int32_t etcGlobal = 0;
    std::int32_t rstp = 0;
    std::int32_t macFilter = 0;
    std::int32_t pairA = 0;  // two flags, one in each 16-bit half
    std::int32_t pairB = 0;

    bool operator==(const ProfileTypeAttributes &) const = default;
};

struct ProfileType {
    const char *name;
    ProfileTypeAttributes attributes;
};

// All types, in the order of the look-up.
std::span<const ProfileType> profileTypes();

// The first type of exactly that name, or null.
const ProfileType *findProfileType(std::string_view name);

}  // namespace pavo

#endif
