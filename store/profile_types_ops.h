// Look-ups in the table of profile types, for callers that have a name. Any thread may call them.
#ifndef PAVO_STORE_PROFILE_TYPES_OPS_H
#define PAVO_STORE_PROFILE_TYPES_OPS_H

#include <cstdint>

#include "store/profile_types.h"

namespace pavo {

// The MTU of a type, 0 when it is not found. 0, or 10000 when there is no such type.
std::int32_t profileTypeMtuGet(const char *typeName, std::int32_t *mtu);

// The attributes of a type. 0, or 10000 with *attributes as it was when there is no such type.
std::int32_t profileTypeAttrGet(const char *typeName, ProfileTypeAttributes *attributes);

}  // namespace pavo

#endif
