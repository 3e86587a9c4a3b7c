// Result codes, their messages, and the JSON envelope of every answer.
#ifndef PAVO_COMMON_RESULT_H
#define PAVO_COMMON_RESULT_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>

// The codes the code refers to by name; getErrMsg knows them all.
inline constexpr std::int32_t RESULT_SUCCESS = 0;
inline constexpr std::int32_t RESULT_FAILED = 10000;
inline constexpr std::int32_t RESULT_INVALID_POINTER =
    10002;  // also: a list or buffer could not be allocated
inline constexpr std::int32_t RESULT_INVALID_ARGUMENT = 10003;
inline constexpr std::int32_t RESULT_OUT_OF_MEMORY = 10005;
inline constexpr std::int32_t RESULT_OPEN_FAILED = 10016;
inline constexpr std::int32_t RESULT_CONFIG_INVALID = 17001;  // also: the profile is not configured

// The message of a code; static, never null. "Error code unknown" for a code in no row.
const char *getErrMsg(std::int32_t code);

// Builds the envelope for `code`, with the JSON text `data` under `key` when the code is 0 and a key is
// given, and copies its characters, without a terminating zero, into `out`: the caller supplies a zeroed
// buffer that is large enough. 0; -1 when the data does not parse or memory runs out.
int responseJsonStr(std::int32_t code, const char *key, const char *data, char *out);

// The same into newly allocated text: on success the text that *out pointed to (if any) is freed and *out
// receives the new one, which the caller frees with free(). `data` is not freed. 0, or 10000 with *out as it
// was.
std::int32_t responseJsonRreallocStr(std::int32_t code, const char *key, const char *data, char **out);

// Prints a built object; *out is the caller's to free. 0, or 10000 with *out null.
std::int32_t responseJsonToStr(const cJSON *obj, char **out);

// Copies the text member `key` of a request, at most `cap` characters; not terminated when the value fills
// `cap`. 0, or 10003 (logged with the whole request) when the member is missing or no text.
std::int32_t getStrAndCpyTo(const cJSON *obj, const char *key, char *dst, std::size_t cap);

// The integer member `key` of a request. 0, or 10003 (logged with the whole request) when it is missing.
std::int32_t getIntAndCpyTo(const cJSON *obj, const char *key, std::int32_t *value);

// Parses a whole file (a fixed path, see platform/paths.h). Null when it is missing, empty, larger than
// JSON_FILE_MAX or does not parse; the caller owns the object (cJSON_Delete).
inline constexpr std::size_t JSON_FILE_MAX = 4u << 20;
cJSON *jsonFileLoad(const char *path);

#endif
