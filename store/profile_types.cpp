#include "store/profile_types.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "common/result.h"

namespace {

// clang-format off
constexpr ProfileTypeEntry kTypes[] = {
    // name, {mtu, modeA, modeB, polyProxyQuerier, lightwareIgmp, querierInterval, fastLeave, harmanAcl, etcVlan,
    //        etcGlobal, rstp, macFilter, pairA, pairB}
    {PROFILE_TYPE_NAME_AES67, {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Audio Dante", {0, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Audio Q-SYS", {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Audio Audio-Technica", {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Audio Basalte Multiroom", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Audio Genelec Smart IP", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_UNITE, {1500, 1, 1, 0, 0, 20, 2, 0, 0, 0, 0, 0, 0, 0}},
    {"Waves Soundgrid", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_TELOS, {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Allen & Heath gigaACEGX", {1500, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_AVB, {1500, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_MILAN, {1500, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_SMPTE, {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_MILAN_DANTE, {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"AJA AV Network", {9198, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"BirdDog AV Network", {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"BluOS AV", {9198, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Crestron DigitalMedia AV Network", {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_KRAMER, {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"NUCLEUS Converged AV Network", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"HARMAN Professional AV Network", {9198, 1, 1, 0, 0, 30, 0, 1, 0, 0, 0, 0, 0, 0}},
    {"Visionary AV Network", {9198, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Visionary Advanced Multi-Domain", {9198, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 1, 0, 0}},
    {PROFILE_TYPE_NAME_LIGHTWARE, {9198, 1, 1, 0, 1, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Just Add Power AV", {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video", {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video NDI4", {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video NDI5 with Dante,Q-Sys or AES67 audio", {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video with AES67 audio", {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video with Dante audio", {9198, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Video with Q-SYS audio", {1500, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Blustream Multicast", {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Shure Converged Audio and Control Network", {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_SHURE_SPLIT, {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_AUDAC, {1500, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Lighting", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"ETC Lighting", {1500, 1, 1, 0, 0, 30, 0, 0, 1, 1, 0, 0, 0, 0}},
    {"Pharos Lighting Control", {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Pharos Lighting Data", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Data", {0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_DEFAULT, {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Sonos", {0, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {PROFILE_TYPE_NAME_POLY, {0, 2, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Sennheiser TeamConnect Bar S - Single Domain Mode", {0, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"Nice Home Management", {0, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
    {"DICENTIS Conference system", {0, 1, 1, 0, 0, 30, 0, 0, 0, 0, 1, 0, 0, 0}},
    {PROFILE_TYPE_NAME_GD, {9198, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}},
    {"URC Automation", {1500, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 65537, 65536}},
    {"Avid S6L", {1500, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 65537, 65537}},
    {"GANNET", {9216, 1, 1, 0, 0, 30, 0, 0, 0, 0, 0, 0, 0, 0}},
};
// clang-format on

const ProfileTypeEntry *find(const char *typeName) {
    if (typeName == nullptr)
        return nullptr;
    const auto *const row = std::find_if(std::begin(kTypes), std::end(kTypes), [typeName](const auto &type) {
        return std::string_view(type.name) == typeName;
    });
    return row != std::end(kTypes) ? row : nullptr;
}

}  // namespace

std::span<const ProfileTypeEntry> profileTypeTable() {
    return kTypes;
}

std::int32_t profileTypeMtuGet(const char *typeName, std::int32_t *mtu) {
    const ProfileTypeEntry *const row = find(typeName);
    *mtu = row != nullptr ? row->attributes.mtu : 0;
    return row != nullptr ? RESULT_SUCCESS : RESULT_FAILED;
}

std::int32_t profileTypeAttrGet(const char *typeName, ProfileTypeAttributes *attributes) {
    const ProfileTypeEntry *const row = find(typeName);
    if (row == nullptr)
        return RESULT_FAILED;
    *attributes = row->attributes;
    return RESULT_SUCCESS;
}
