// What this switch is able to do: optional features of its OS, and what it is. Any thread may call these.
#ifndef PAVO_SWAPI_FEATURES_H
#define PAVO_SWAPI_FEATURES_H

#include <cstdint>
#include <optional>
#include <source_location>
#include <string>

#include "swapi/switch.h"

namespace pavo {

// IEEE 802.1AS, as featureSupportedGet knows it.
inline constexpr const char *FEATURE_DOT1AS = "DOT1AS";

// Whether the switch OS offers an optional feature, by its name: *supported is 1 or 0. The switch OS of this
// system cannot be asked, so every feature is 0 with the result 10004.
std::int32_t featureSupportedGet(Switch sw, const char *name, std::int32_t *supported);

// The machine model of the switch; nothing when it cannot be read (logged).
std::optional<std::string> readMachineModel(Switch sw, Where where = std::source_location::current());

// *units: the units in the stack, always 1. Returns 0.
std::int32_t stackUnitCountGet(Switch sw, std::uint32_t *units);

}  // namespace pavo

#endif
