// The JSON envelope of every answer, and the readers of a request's parameters.
#ifndef PAVO_COMMON_RESPONSE_OPS_H
#define PAVO_COMMON_RESPONSE_OPS_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/result.h"

namespace pavo {

// Builds the envelope for `code`, with the JSON text `data` under `key` when the code is 0 and a key is
// given, and copies its characters, without a terminating zero, into `out`: the caller supplies a zeroed
// buffer that is large enough. 0; -1 when the data does not parse or memory runs out.
int responseJsonStr(std::int32_t code, const char *key, const char *data, char *out);

// The same into newly allocated text: on success the text that *out pointed to (if any) is freed and *out
// receives the new one, which the caller frees with free(). `data` is not freed. 0, or 10000 with *out as it
// was.
std::int32_t responseJsonRreallocStr(std::int32_t code, const char *key, const char *data, char **out);

// The envelope of a failure: "respMsg" is messageOf(failure). Empty when memory runs out (logged).
std::string failureEnvelope(const Failure &failure);

// Prints a built object; *out is the caller's to free. 0, or 10000 with *out null.
std::int32_t responseJsonToStr(const cJSON *obj, char **out);

// Copies the string member `key` of a request, at most `cap` characters; not terminated when the value fills
// `cap`. 0, or 10003 (logged with the whole request) when the member is missing or no string.
std::int32_t getStrAndCpyTo(const cJSON *obj, const char *key, char *dst, std::size_t cap);

// The integer member `key` of a request. 0, or 10003 (logged with the whole request) when it is missing.
std::int32_t getIntAndCpyTo(const cJSON *obj, const char *key, std::int32_t *value);

}  // namespace pavo

#endif
