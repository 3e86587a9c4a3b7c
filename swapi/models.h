// The switch models that the program knows, in one place.
#ifndef PAVO_SWAPI_MODELS_H
#define PAVO_SWAPI_MODELS_H

#include <string_view>

namespace pavo {

struct SwitchModel {
    std::string_view machineModel;  // as the switch OS reports it
    std::string_view modelId;       // as callers ask about it
    bool smpte;  // offers SMPTE profiles: boundary clock in hardware, room for uncompressed video
    bool poly;   // the room switch, with the modular room profile
};

inline constexpr SwitchModel kSwitchModels[] = {
    {"AVM4200-10X", "AV10X", false, false},   {"AVM4200-10XP", "AV10XP", false, true},
    {"AVM4200-18X", "AV18X", false, false},   {"AVM4200-28XP", "AV28XP", false, false},
    {"AVM4200-52XP", "AV52XP", false, false}, {"AVM4800-24F", "AV24F", true, false},
    {"AVM4800-36Q", "AV36Q", true, false},    {"AVM4800-48F", "AV48F", true, false},
    {"AVM4800-52Q", "AV52Q", true, false},    {"AVM4848-12X", "AV12X", true, false},
    {"AVM4848-24F", "AV24FX", true, false},   {"AVM4848-24X", "AV24X", true, false},
    {"AVM4848-48F", "AV48FX", true, false},
};

}  // namespace pavo

#endif
