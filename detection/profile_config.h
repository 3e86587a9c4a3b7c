// What the detection threads read from the files that the profile operations write.
#ifndef PAVO_DETECTION_PROFILE_CONFIG_H
#define PAVO_DETECTION_PROFILE_CONFIG_H

#include <cjson/cJSON.h>

#include <bitset>
#include <cstdint>

#include "detection/log_text.h"

// Tables per port are indexed by ifNum and cover 1 to 767.
inline constexpr std::uint32_t PORT_TABLE_SIZE = 768;
using PortSet = std::bitset<PORT_TABLE_SIZE>;

// The VLAN id under `key` of a JSON file (a fixed path); 0 when the file cannot be read, lacks the key or
// holds anything but a number from 1 to 4094 there.
std::uint32_t configVlanIdGet(const char *path, const char *key);

// The ifNums in the JSON array `ports`, fractions cut; whatever is no number from 1 to 767 is passed over.
// `added` is logged for each element taken.
PortSet configPortSetGet(const cJSON *ports, const LogText<std::uint32_t> &added);

#endif
