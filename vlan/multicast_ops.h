// Multicast for the web interface: requests and answers as JSON text.
//
// Common to all: `client` is a registered handle, the result is 0 or a result code, and the reason of a
// failure has been logged. An answer in *json is new text, the caller's to free with free(), and null when
// the operation fails. Any thread may call; changes wait for each other, in this process and in others.
//
// A mode is 0 normal, 1 with a multicast router, 2 blocked. getDenyList() is here, too; it is declared in
// store/producers.h.
#ifndef PAVO_VLAN_MULTICAST_OPS_H
#define PAVO_VLAN_MULTICAST_OPS_H

#include <cjson/cJSON.h>

#include <cstdint>

#include "platform/open_client.h"
#include "store/producers.h"

namespace pavo {

// Subscribers of groups, as rows of this form (vlan/multicast.h):
//   {"unit":1,"port":"5","vlanId":20,"subscriberAddress":"10.0.0.1",
//    "subscriberMacAddress":"00:11:22:33:44:55","multicastAddress":"239.1.1.1",
//    "multicastMacAddress":"01:00:5E:01:01:01","type":"v2","timeout":260}
// The port of a LAG is "lag3"; the timeout is null for version 3.

// Page `index`, from 1, of `size` rows: {"indexPage":1,"pageSize":ROWS RETURNED,"total":ROWS,"rows":[...]}. A
// `unit` other than 0 leaves out the rows of other units.
std::int32_t getMulticastGroups(openapiClientHandle_t *client, std::int32_t unit, std::int32_t index,
                                std::int32_t size, char **json);
// All of them as one page of that form.
std::int32_t multicastGroupsPageGet(openapiClientHandle_t *client, char **json);
// Puts them into the response cache: "multicast_groups_ex/0" and so on, each an enveloped answer
//   {"multicastGroups":{"rows":[...],"chunkIndex":0,"isLastChunk":true},"resp":{...}}
// of at most 500 rows. Chunks of an earlier build that are not needed any more are deleted, also those of
// another process. 10000 also when one of them cannot be stored.
std::int32_t multicastGroupsChunksBuild(openapiClientHandle_t *client);

// {"physicalPort":[{"portNum":5,"multicastMode":2}],"lagPort":[...]}: all interfaces that are not normal,
// ports by interface number and LAGs by theirs.
std::int32_t buildMulticastModeJson(openapiClientHandle_t *client, char **json);
// {"multicastModeConfig":{"physicalPort":[...],"lagPort":[...]}}, one of the arrays or both. An entry in
// which one of the numbers is missing or no number is passed over. 10003 for another request, or a number
// that is none of a port, LAG or mode; 10000 for a port or LAG that the switch does not have. Nothing is
// changed then, and what was changed is taken back when a later step fails.
std::int32_t setMulticastMode(openapiClientHandle_t *client, const char *json);
// No multicast router is behind this port or LAG any more; 10012 when there is no such interface.
std::int32_t removeIgmpMrouterInf(openapiClientHandle_t *client, std::uint32_t ifNum);

// {"blockAddressList":["239.0.0.0","224.1.0.0/8"]}; each blocks all groups with the same first number. The
// first nine characters of an address count; a prefix length may follow. 10003 for another request, an
// address that is none, and more than fit into a script of 2047 characters; the list is as it was then, and is
// brought back when the switch refuses the new one. An empty list deletes the access list, and with it all
// interfaces are normal.
std::int32_t setDenyList(openapiClientHandle_t *client, const char *json);
// The same with the array of addresses.
std::int32_t setDenyListByArray(openapiClientHandle_t *client, const cJSON *addresses);
// Deletes all rules of an IPv4 access list.
void aclRuleClear(openapiClientHandle_t *client, const char *name);

}  // namespace pavo

#endif
