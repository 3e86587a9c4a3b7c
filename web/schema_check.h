// Holds the bodies of requests against the schemas of the OpenAPI document.
#ifndef PAVO_WEB_SCHEMA_CHECK_H
#define PAVO_WEB_SCHEMA_CHECK_H

#include <string>

#include "common/json.h"

namespace pavo {

// What is wrong with a value first, for its sender ("vlans[0].vlanId is more than 4094"); empty when it fits.
// `schemas` are those that "$ref" names. Knows the keywords that schemas of requests have: $ref, allOf, type, enum,
// required, properties, items, minimum, maximum, minLength, maxLength, minItems, maxItems; others tell the reader
// something.
std::string schemaViolation(const cJSON *schemas, const cJSON *schema, const cJSON *value,
                            const std::string &name = "");

}  // namespace pavo

#endif
