// Link aggregations (LAGs) and their untagged VLAN, as the detection threads change them.
#ifndef PAVO_DETECTION_LAG_H
#define PAVO_DETECTION_LAG_H

#include <cstdint>

#include "platform/open_client.h"

// The LAG that has `port` as a member; *lagIfNum is untouched when there is none. 0, or 10000 when the
// members of LAGs cannot be read.
std::int32_t phyPortLagNumGet(openapiClientHandle_t *client, std::uint32_t port, std::uint32_t *lagIfNum);

// The first LAG without members; *lagIfNum is untouched when there is none. 0, or 10000 as above.
std::int32_t freeLagFind(openapiClientHandle_t *client, std::uint32_t *lagIfNum);

// Takes the interface out of the VLAN of its PVID and makes it an untagged member of `vlanId`. Ends at the
// first failure, which is logged.
void ifUntaggedSet(openapiClientHandle_t *client, std::uint32_t ifNum, std::uint32_t vlanId);

// Puts the interface back into VLAN 1. Ends at the first failure, which is logged.
void ifUntaggingClear(openapiClientHandle_t *client, std::uint32_t ifNum);

#endif
