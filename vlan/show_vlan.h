// What "show vlan" prints. Pure functions of a string.
#ifndef PAVO_VLAN_SHOW_VLAN_H
#define PAVO_VLAN_SHOW_VLAN_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/log_format.h"

namespace pavo {

// What is logged of a capture that cannot be read.
inline constexpr LogFormat<std::string> kCannotOpenCapture = "[%s:%d] Can not open file:%s\r\n";

// The numbers of the rows, as they are listed, at most `most`. A row begins with a number from 1 to 4096,
// followed by a name, and says that the VLAN is "Static", "Dynamic" or "Default"; other lines are passed
// over. Lines are read in pieces of 511 bytes.
std::vector<std::uint32_t> parseShowVlan(std::string_view shown, std::size_t most);

}  // namespace pavo

#endif
