#include "common/json.h"

#include <cmath>
#include <utility>

#include "common/files.h"

namespace pavo {
namespace {

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

std::string printJson(const cJSON *value) {
    return ownedText(cJSON_Print(value));
}

std::string printJsonLine(const cJSON *value) {
    return ownedText(cJSON_PrintUnformatted(value));
}

}  // namespace pavo
