// Between model and data plane: what the ports are to do, and how what is seen on the wire enters the model.
#ifndef PAVO_VSWITCH_DATAPLANE_WIRE_CONFIG_H
#define PAVO_VSWITCH_DATAPLANE_WIRE_CONFIG_H

#include "vswitch/dataplane/data_plane.h"
#include "vswitch/model/model.h"

namespace vswitch {

// What the model wants of the live ports. A port whose participation in a VLAN is left to the switch ("auto")
// participates in it, untagged, while an address associated with the VLAN is learned there.
WireConfig wireConfigOf(const Model &model, const PortMap &ports);

// Takes what was seen over into the model. Addresses read before the configuration of `generation` was in
// effect say nothing about the present and are left out.
void putIntoModel(Model &model, const WireView &view, std::uint64_t generation);

}  // namespace vswitch

#endif
