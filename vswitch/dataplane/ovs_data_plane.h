// The data plane that forwards real frames: Open vSwitch with its user-space datapath, lldpd for LLDP, and
// hostapd while ports authenticate by 802.1X, as child processes in the network namespace of the switch.
//
// A thread of its own does the work, so that the switch answers calls whatever its children are doing. It
// starts the servers, restarts them when they end, brings the flow entries of Open vSwitch to what the
// configuration wants, and reads what is seen on the wire: link state from the kernel at once, learned
// addresses and ARP twice a second, LLDP neighbours once a second. After a crash of Open vSwitch everything
// is pushed again, learned addresses included; neighbours that a crashed lldpd knew stay until their time to
// live is over.
#ifndef PAVO_VSWITCH_DATAPLANE_OVS_DATA_PLANE_H
#define PAVO_VSWITCH_DATAPLANE_OVS_DATA_PLANE_H

#include <memory>

#include "vswitch/dataplane/data_plane.h"

namespace vswitch {

// Takes over `folder` for sockets and files of the servers. Throws std::exception when that is impossible or
// the interfaces cannot be watched; interfaces that do not exist (yet) are ports without link.
std::unique_ptr<DataPlane> startOvsDataPlane(const PortMap &ports, const std::string &folder);

}  // namespace vswitch

#endif
