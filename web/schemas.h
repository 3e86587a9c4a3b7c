// JSON schemas of what routes take and answer, by name.
#ifndef PAVO_WEB_SCHEMAS_H
#define PAVO_WEB_SCHEMAS_H

#include "common/json.h"

namespace pavo {

// {"NAME": schema, ...}; they refer to each other as "#/components/schemas/NAME". Null when memory runs out.
JsonPtr parseSchemas();

}  // namespace pavo

#endif
