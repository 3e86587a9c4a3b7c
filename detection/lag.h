// Link aggregations (LAGs) and the untagged VLAN of an interface, as the detection threads change them.
// Failures are logged here.
#ifndef PAVO_DETECTION_LAG_H
#define PAVO_DETECTION_LAG_H

#include <source_location>

#include "common/result.h"
#include "swapi/switch.h"

namespace pavo {

// The LAG that has `port` as a member, IfNum() when there is none. Failed when the members of the LAGs cannot
// be read, or not those of all and it is in none of the others.
Result<IfNum> phyPortLagNumGet(Switch sw, IfNum port);

// The first LAG without members, IfNum() when there is none. Failed as above.
Result<IfNum> freeLagFind(Switch sw);

// Takes the interface out of the VLAN of its PVID and makes it an untagged member of `vlan`. Ends at the
// first failure; false then.
bool ifUntaggedSet(Switch sw, IfNum ifNum, VlanId vlan);

// Takes the interface out of the VLAN of its PVID, unless that is VLAN 1, and puts it back into VLAN 1. Ends
// at the first failure; false then.
bool ifUntaggingClear(Switch sw, IfNum ifNum);

}  // namespace pavo

#endif
