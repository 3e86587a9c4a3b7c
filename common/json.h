// cJSON at the edges of the program: owners, whole files, and the members of an object as plain values.
#ifndef PAVO_COMMON_JSON_H
#define PAVO_COMMON_JSON_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/if_num.h"
#include "common/vlan_id.h"

namespace pavo {

struct JsonDeleter {
    void operator()(cJSON *object) const { cJSON_Delete(object); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

struct FreeDeleter {
    void operator()(void *text) const { std::free(text); }
};
// Text printed by cJSON or handed out by an operation of the program.
using TextPtr = std::unique_ptr<char, FreeDeleter>;

// Parses a whole file (a fixed path, see platform/paths.h). Null when it is missing, empty, larger than
// JSON_FILE_MAX or does not parse; the caller owns the object (cJSON_Delete).
inline constexpr std::size_t JSON_FILE_MAX = 4u << 20;
cJSON *jsonFileLoad(const char *path);

// --- members; a null `object` has no members

const cJSON *member(const cJSON *object, const char *key);
// Nothing when there is no such member or it is of another type.
std::optional<std::string> stringMember(const cJSON *object, const char *key);
// true or false as it stands; nothing for any other value.
std::optional<bool> boolMember(const cJSON *object, const char *key);
// A number without a fraction, within 32 bits.
std::optional<std::int32_t> integerMember(const cJSON *object, const char *key);
std::optional<std::int32_t> integerOf(const cJSON *item);

// --- printing; `array` is an array, and false means that memory ran out

bool appendNumber(cJSON *array, double number);
// Adds `item` to `object`, which owns it from then on.
bool addItem(cJSON *object, const char *key, JsonPtr item);
// An array of interface numbers under `key`.
bool addNumbers(cJSON *object, const char *key, std::span<const IfNum> numbers);

// Whether a string stands for itself between the quotes of a JSON string: ASCII without anything to escape.
bool isPlainInJson(std::string_view text);
// Appends a string as it stands between the quotes of a JSON string, by cJSON's rules. Any bytes may come:
// what is no UTF-8 is replaced (validUtf8), a zero becomes \u0000. Throws std::bad_alloc when memory runs
// out.
void appendEscaped(std::string &out, std::string_view text);

// A copy of a text for a caller who frees it with free(); null when memory runs out.
char *newText(std::string_view text);

// The text of a value, formatted (indented with tabs) or in one line; empty when memory runs out.
std::string printJson(const cJSON *value);
std::string printJsonLine(const cJSON *value);

}  // namespace pavo

#endif
