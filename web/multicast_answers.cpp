// The cached answers about multicast. The response cache refers to its producers weakly, which takes nothing
// out of a library: what is named here comes along with this folder, and getDenyList() with it.
#include "store/producers.h"
#include "vlan/multicast_ops.h"

namespace pavo {

std::int32_t getMulticastModeEx(openapiClientHandle_t *client, char **json) {
    return buildMulticastModeJson(client, json);
}

}  // namespace pavo
