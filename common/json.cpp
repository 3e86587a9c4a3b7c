#include "common/json.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>
#include <utility>

#include "common/files.h"
#include "common/text.h"

namespace pavo {
namespace {

// Characters that stand for themselves in a JSON string.
constexpr auto kIsPlain = [] {
    std::array<bool, 256> plain{};
    for (unsigned char c = ' '; c < 0x7f; ++c)
        plain[c] = c != '"' && c != '\\';
    return plain;
}();

std::string ownedText(char *printed) {
    const TextPtr text(printed);
    return text != nullptr ? text.get() : "";
}

}  // namespace

cJSON *jsonFileLoad(const char *path) {
    const std::optional<std::string> text = readFile(path, JSON_FILE_MAX);
    return text ? cJSON_Parse(text->c_str()) : nullptr;
}

const cJSON *member(const cJSON *object, const char *key) {
    return cJSON_GetObjectItemCaseSensitive(object, key);
}

std::optional<std::string> stringMember(const cJSON *object, const char *key) {
    const char *const text = cJSON_GetStringValue(member(object, key));
    return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

std::optional<bool> boolMember(const cJSON *object, const char *key) {
    const cJSON *const item = member(object, key);
    return cJSON_IsBool(item) ? std::optional(cJSON_IsTrue(item) != 0) : std::nullopt;
}

std::optional<std::int32_t> integerMember(const cJSON *object, const char *key) {
    return integerOf(member(object, key));
}

std::optional<std::int32_t> integerOf(const cJSON *item) {
    if (!cJSON_IsNumber(item) || item->valuedouble != std::floor(item->valuedouble) ||
        std::fabs(item->valuedouble) > 2147483647.0)
        return std::nullopt;
    return static_cast<std::int32_t>(item->valuedouble);
}

bool appendNumber(cJSON *array, double number) {
    JsonPtr item(cJSON_CreateNumber(number));
    if (!cJSON_AddItemToArray(array, item.get()))
        return false;
    static_cast<void>(item.release());
    return true;
}

bool addItem(cJSON *object, const char *key, JsonPtr item) {
    if (!cJSON_AddItemToObject(object, key, item.get()))
        return false;
    static_cast<void>(item.release());
    return true;
}

bool addNumbers(cJSON *object, const char *key, std::span<const IfNum> numbers) {
    cJSON *const array = cJSON_AddArrayToObject(object, key);
    for (const IfNum number : numbers)
        if (!appendNumber(array, number.number()))
            return false;
    return array != nullptr;
}

bool isPlainInJson(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return kIsPlain[static_cast<unsigned char>(c)]; });
}

void appendEscaped(std::string &out, std::string_view text) {
    // Most strings are.
    if (isPlainInJson(text)) {
        out += text;
        return;
    }
    const std::string valid = validUtf8(text);
    for (std::size_t begin = 0; begin <= valid.size();) {
        // cJSON's strings end at a zero.
        const std::string part = valid.c_str() + begin;
        const JsonPtr item(cJSON_CreateStringReference(part.c_str()));
        const TextPtr printed(item != nullptr ? cJSON_PrintUnformatted(item.get()) : nullptr);
        if (printed == nullptr)
            throw std::bad_alloc();
        const std::string_view quoted = printed.get();
        out += begin > 0 ? "\\u0000" : "";
        out += quoted.substr(1, quoted.size() - 2);
        begin += part.size() + 1;
    }
}

char *newText(std::string_view text) {
    auto *const copy = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy != nullptr)
        copy[text.copy(copy, text.size())] = '\0';
    return copy;
}

std::string printJson(const cJSON *value) {
    return ownedText(cJSON_Print(value));
}

std::string printJsonLine(const cJSON *value) {
    return ownedText(cJSON_PrintUnformatted(value));
}

}  // namespace pavo
