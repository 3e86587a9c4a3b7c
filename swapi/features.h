// What this switch is able to do: optional features of its OS, and what depends on its model. Any thread may
// call these operations.
#ifndef PAVO_SWAPI_FEATURES_H
#define PAVO_SWAPI_FEATURES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/open_client.h"

inline constexpr std::int32_t RESULT_NOT_IMPLEMENTED = 10004;

// IEEE 802.1AS, as featureSupportedGet knows it.
inline constexpr const char *FEATURE_DOT1AS = "DOT1AS";

// Whether the switch OS offers an optional feature, by its name: *supported is 1 or 0. The switch OS of this
// system cannot be asked, so every feature is 0 with the result 10004.
std::int32_t featureSupportedGet(openapiClientHandle_t *client, const char *name, std::int32_t *supported);

// The machine model text of the switch; empty when it cannot be read. 0, or 10000 (logged).
inline constexpr std::size_t MACHINE_MODEL_SIZE = 256;
std::int32_t machineModelGet(openapiClientHandle_t *client, char model[MACHINE_MODEL_SIZE]);

// Whether the SMPTE and Poly profile types are offered on a machine model; with a client, on that of the
// switch (no when it cannot be read).
bool smpteModelSupported(std::string_view model);
bool smpteModelSupported(openapiClientHandle_t *client);
bool polyModelSupported(std::string_view model);

// The number of units that act as one switch. Always 0.
std::int32_t stackUnitCountGet(openapiClientHandle_t *client, std::uint32_t *units);

#endif
