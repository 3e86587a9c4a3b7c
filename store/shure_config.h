// The ports of a Shure installation, as its profile keeps them in platform::paths::kShureConfig, JSON.
#ifndef PAVO_STORE_SHURE_CONFIG_H
#define PAVO_STORE_SHURE_CONFIG_H

#include <cstdint>
#include <string>
#include <vector>

namespace pavo {

// The numbers in "shureDevicePort", as they stand there: nothing makes them ports of this switch. Numbers
// beyond 32 bits become the nearest one within. Empty when the text does not parse or has no such list.
std::vector<std::int32_t> parseShureDevicePorts(const std::string &text);

// The same of the file; empty when there is none.
std::vector<std::int32_t> readShureDevicePorts();

}  // namespace pavo

#endif
