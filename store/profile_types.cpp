#include "store/profile_types.h"

#include <algorithm>

namespace pavo {
namespace {

// The two flags of pairA and pairB.
constexpr std::int32_t kHighHalf = 1 << 16;
constexpr std::int32_t kBothHalves = kHighHalf | 1;

// What is not named is 0.
constexpr ProfileType kTypes[] = {
    {.name = PROFILE_TYPE_NAME_AES67, .attributes = {.modeA = 1, .modeB = 1}},
    {.name = "Audio Dante", .attributes = {.modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Audio Q-SYS", .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "Audio Audio-Technica",
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Audio Basalte Multiroom", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = "Audio Genelec Smart IP", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_UNITE,
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 20, .fastLeave = 2}},
    {.name = "Waves Soundgrid", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_TELOS, .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "Allen & Heath gigaACEGX", .attributes = {.mtu = 1500, .modeA = 2, .modeB = 2}},
    {.name = PROFILE_TYPE_NAME_AVB, .attributes = {.mtu = 1500}},
    {.name = PROFILE_TYPE_NAME_MILAN, .attributes = {.mtu = 1500}},
    {.name = PROFILE_TYPE_NAME_SMPTE, .attributes = {.modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_MILAN_DANTE,
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "AJA AV Network", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "BirdDog AV Network", .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "BluOS AV", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Crestron DigitalMedia AV Network",
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = PROFILE_TYPE_NAME_KRAMER, .attributes = {.modeA = 1, .modeB = 1}},
    {.name = "NUCLEUS Converged AV Network", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_HARMAN,
     .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30, .harmanAcl = 1}},
    {.name = "Visionary AV Network",
     .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Visionary Advanced Multi-Domain",
     .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30, .macFilter = 1}},
    {.name = PROFILE_TYPE_NAME_LIGHTWARE,
     .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .lightwareIgmp = 1, .querierInterval = 30}},
    {.name = "Just Add Power AV", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = "Video", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = "Video NDI4", .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "Video NDI5 with Dante,Q-Sys or AES67 audio",
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "Video with AES67 audio", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = "Video with Dante audio",
     .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Video with Q-SYS audio", .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1}},
    {.name = "Blustream Multicast", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_SHURE_CONVERGED,
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = PROFILE_TYPE_NAME_SHURE_SPLIT,
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = PROFILE_TYPE_NAME_AUDAC,
     .attributes = {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "Lighting", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = "ETC Lighting",
     .attributes =
         {.mtu = 1500, .modeA = 1, .modeB = 1, .querierInterval = 30, .etcVlan = 1, .etcGlobal = 1}},
    {.name = "Pharos Lighting Control", .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = "Pharos Lighting Data", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = "Data", .attributes = {.modeA = 1, .modeB = 1}},
    {.name = PROFILE_TYPE_NAME_DEFAULT, .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1}},
    {.name = "Sonos", .attributes = {.modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = PROFILE_TYPE_NAME_POLY, .attributes = {.modeA = 2, .modeB = 2, .polyProxyQuerier = 2}},
    {.name = "Sennheiser TeamConnect Bar S - Single Domain Mode",
     .attributes = {.modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = PROFILE_TYPE_NAME_NICE, .attributes = {.modeA = 1, .modeB = 1, .querierInterval = 30}},
    {.name = "DICENTIS Conference system",
     .attributes = {.modeA = 1, .modeB = 1, .querierInterval = 30, .rstp = 1}},
    {.name = PROFILE_TYPE_NAME_GD, .attributes = {.mtu = 9198, .modeA = 1, .modeB = 1, .macFilter = 1}},
    {.name = "URC Automation", .attributes = {.mtu = 1500, .pairA = kBothHalves, .pairB = kHighHalf}},
    {.name = "Avid S6L", .attributes = {.mtu = 1500, .pairA = kBothHalves, .pairB = kBothHalves}},
    {.name = "GANNET", .attributes = {.mtu = 9216, .modeA = 1, .modeB = 1, .querierInterval = 30}},
};

}  // namespace

std::span<const ProfileType> profileTypes() {
    return kTypes;
}

const ProfileType *findProfileType(std::string_view name) {
    const auto *const type = std::ranges::find(kTypes, name, &ProfileType::name);
    return type != std::end(kTypes) ? type : nullptr;
}

}  // namespace pavo
