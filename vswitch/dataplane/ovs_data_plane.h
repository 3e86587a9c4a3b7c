// The data plane that forwards real frames: Open vSwitch with its user-space datapath, and lldpd for LLDP, as
// child processes in the network namespace of the switch.
//
// A thread of its own does the work, so that the switch answers calls whatever its children are doing. It
// starts the servers, starts them again when they end, brings the rows of Open vSwitch from what they are to
// what the configuration wants, and reads what the wire shows: link state from the kernel at once, learned
// addresses and ARP twice a second, LLDP neighbours once. After a crash of Open vSwitch everything is pushed
// again, learned addresses included; neighbours that a crashed lldpd knew stay until their time to live has
// passed.
#ifndef PAVO_VSWITCH_DATAPLANE_OVS_DATA_PLANE_H
#define PAVO_VSWITCH_DATAPLANE_OVS_DATA_PLANE_H

#include <memory>

#include "vswitch/dataplane/data_plane.h"

namespace vswitch {

// Takes over `folder` for sockets and files of the servers. Throws std::exception when that, or watching the
// interfaces, is not possible; interfaces that are not there (yet) are ports without link.
std::unique_ptr<DataPlane> startOvsDataPlane(const PortMap &ports, const std::string &folder);

}  // namespace vswitch

#endif
