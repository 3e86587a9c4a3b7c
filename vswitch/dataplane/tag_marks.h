// What Open vSwitch does not tell apart in the tag of a frame, told apart before the frame gets there.
//
// Open vSwitch takes an 802.1ad tag for a VLAN tag like any other, and clears the drop-eligible bit of the
// tag that a frame comes with. A small program in the kernel (XDP) looks at every frame of a port first:
//   802.1ad tag        a tag with VLAN 0 is put in front: the frame counts as untagged, the tag is payload
//   drop-eligible bit  a tag with VLAN 4095 is put in front; the flow entries remove it, and what is behind
//                      it leaves the switch as it came
//   VLAN 4095          dropped: a frame may not carry it
#ifndef PAVO_VSWITCH_DATAPLANE_TAG_MARKS_H
#define PAVO_VSWITCH_DATAPLANE_TAG_MARKS_H

#include "vswitch/dataplane/process.h"

namespace vswitch {

// The program, to be attached to interfaces by LinkWatch::setFilter; none (errno says why) when the kernel
// does not take it. Forwarding goes on without it, with the flaws above.
Descriptor loadTagMarks();

}  // namespace vswitch

#endif
