// What has changed between two looks at the neighbours. Pure functions on plain values.
#ifndef PAVO_CTL_NEIGHBOUR_CHANGES_H
#define PAVO_CTL_NEIGHBOUR_CHANGES_H

#include <cstdint>
#include <string>
#include <vector>

#include "common/if_num.h"

namespace pavo::ctl {

// A line of the neighbour list, as it came from the network: strings may hold anything.
struct SeenNeighbour {
    IfNum interface;
    std::string portName;
    std::uint32_t vlan = 0;
    bool byLldp = false;
    std::string name;    // that it announces; empty without one
    std::string vendor;  // empty when unknown
    std::string ip, mac, remotePortId;

    bool operator==(const SeenNeighbour &) const = default;
};

struct NeighbourChange {
    enum class Kind { Joined, Left, Moved, Named };
    Kind kind = Kind::Joined;
    SeenNeighbour neighbour;  // as it is now; as it was when it has left
    std::string from{};       // where it was: the name of a port, only when it has moved
};

// Devices that are new, gone, at another port, or at the same one under another name: a device is often seen
// before it announces one. A device is known by its MAC address, or by name and port ID when it has none; one
// that is at several ports has moved when one of these is gone and another one is new. Other changes (VLAN,
// addresses, a name that is gone) are none. In the order of ports.
std::vector<NeighbourChange> changesOf(const std::vector<SeenNeighbour> &before,
                                       const std::vector<SeenNeighbour> &after);

}  // namespace pavo::ctl

#endif
