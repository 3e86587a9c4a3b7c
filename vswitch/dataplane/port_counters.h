// What the kernel counts at the network interfaces behind live ports.
#ifndef PAVO_VSWITCH_DATAPLANE_PORT_COUNTERS_H
#define PAVO_VSWITCH_DATAPLANE_PORT_COUNTERS_H

#include <map>
#include <string>
#include <string_view>

#include "vswitch/dataplane/data_plane.h"
#include "vswitch/model/model.h"

namespace vswitch {

// The counters in the text of "/proc/net/dev", by interface name. Packets are not told apart by kind. Lines
// that are not of its form are passed over.
std::map<std::string, PortCounters, std::less<>> parseNetDev(std::string_view text);

// Reads counters and speeds of these interfaces and puts them into the model; an interface that is gone keeps
// what it had.
void seeWires(Model &model, const PortMap &ports);

}  // namespace vswitch

#endif
