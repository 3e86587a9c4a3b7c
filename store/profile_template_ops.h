// Loading a template as JSON. Any thread may call this.
#ifndef PAVO_STORE_PROFILE_TEMPLATE_OPS_H
#define PAVO_STORE_PROFILE_TEMPLATE_OPS_H

#include <cjson/cJSON.h>

namespace pavo {

// The parsed template of a type, the caller's to delete (cJSON_Delete). Null when the name is null or empty
// or the file is missing or does not parse.
cJSON *profileTemplateLoad(const char *typeName);

}  // namespace pavo

#endif
