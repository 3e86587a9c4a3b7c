// The ports of a Shure installation: those that its configuration lists, and those on which LLDP sees a
// device. Any thread may call these functions.
#ifndef PAVO_VLAN_SHURE_PORTS_H
#define PAVO_VLAN_SHURE_PORTS_H

#include <cstdint>
#include <span>
#include <vector>

#include "swapi/switch.h"

namespace pavo {

// Of the listed ports (store/shure_config.h) those with neighbours whose system description begins with
// "Shure", ascending, once for every such neighbour. What the switch does not tell is not seen.
std::vector<IfNum> readShureNeighbourPorts(Switch sw, std::span<const std::int32_t> listed);

}  // namespace pavo

#endif
