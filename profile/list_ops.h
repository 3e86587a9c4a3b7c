// Listing profiles as operations. Any thread may call them.
#ifndef PAVO_PROFILE_LIST_OPS_H
#define PAVO_PROFILE_LIST_OPS_H

#include <cstdint>

#include "swapi/switch.h"

namespace pavo {

// The profiles as a JSON array, one object per profile in the order of their lowest VLAN, see printProfile.
// *out is new text, the caller's to free with free(). 0; 10000 with *out null; 10003 when `out` is null.
std::int32_t profileListGet(Switch sw, char **out);
// The same with full details of each VLAN. An overload that takes a handle produces the cached answer, see
// store/producers.h.
std::int32_t profileListExGet(Switch sw, char **out);

}  // namespace pavo

#endif
