#include "web/schema_check.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "common/text.h"

namespace pavo {
namespace {

constexpr std::string_view kSchemas = "#/components/schemas/";

bool hasType(const cJSON *value, std::string_view type) {
    if (type == "integer")
        return cJSON_IsNumber(value) && std::trunc(value->valuedouble) == value->valuedouble;
    return (type == "object" && cJSON_IsObject(value)) || (type == "array" && cJSON_IsArray(value)) ||
           (type == "string" && cJSON_IsString(value)) || (type == "number" && cJSON_IsNumber(value)) ||
           (type == "boolean" && cJSON_IsBool(value)) || (type == "null" && cJSON_IsNull(value));
}

// "a string or null" of a name or a list of names; empty when the value has one of them.
std::string wrongType(const cJSON *types, const cJSON *value) {
    std::string names;
    const auto fits = [&](const cJSON *type) {
        const char *const name = cJSON_GetStringValue(type);
        names += (names.empty() ? "" : " or ") + std::string(name != nullptr ? name : "");
        return name != nullptr && hasType(value, name);
    };
    if (!cJSON_IsArray(types))
        return fits(types) ? "" : names;
    const cJSON *type = nullptr;
    cJSON_ArrayForEach(type, types) if (fits(type)) return "";
    return names;
}

bool isOneOf(const cJSON *values, const cJSON *value) {
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, values) if (cJSON_Compare(item, value, true)) return true;
    return false;
}

// Length of a string, number of items or the number itself is beyond a limit.
std::string beyond(const cJSON *schema, const char *least, const char *most, double size) {
    const cJSON *const low = member(schema, least);
    const cJSON *const high = member(schema, most);
    if (low != nullptr && size < low->valuedouble)
        return "less than " + std::to_string(static_cast<long>(low->valuedouble));
    if (high != nullptr && size > high->valuedouble)
        return "more than " + std::to_string(static_cast<long>(high->valuedouble));
    return "";
}

std::string outOfRange(const cJSON *schema, const cJSON *value) {
    if (cJSON_IsNumber(value))
        if (const auto what = beyond(schema, "minimum", "maximum", value->valuedouble); !what.empty())
            return "is " + what;
    if (cJSON_IsArray(value))
        if (const auto what = beyond(schema, "minItems", "maxItems", cJSON_GetArraySize(value));
            !what.empty())
            return "has " + what + " items";
    if (cJSON_IsString(value)) {
        const auto isFirst = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
        const std::string_view text = value->valuestring;
        const auto length = static_cast<double>(std::ranges::count_if(text, isFirst));
        if (const auto what = beyond(schema, "minLength", "maxLength", length); !what.empty())
            return "has " + what + " characters";
    }
    return "";
}

}  // namespace

std::string schemaViolation(const cJSON *schemas, const cJSON *schema, const cJSON *value,
                            const std::string &name) {
    const std::string what = name.empty() ? "the body" : quoteText(name);
    if (const char *const ref = cJSON_GetStringValue(member(schema, "$ref")))
        return schemaViolation(schemas, member(schemas, ref + std::min(std::strlen(ref), kSchemas.size())),
                               value, name);
    if (const cJSON *const types = member(schema, "type"))
        if (const auto wanted = wrongType(types, value); !wanted.empty())
            return what + " is not of type " + wanted;
    if (const cJSON *const values = member(schema, "enum"); values != nullptr && !isOneOf(values, value))
        return what + " is none of the values that it can have";
    if (auto wrong = outOfRange(schema, value); !wrong.empty())
        return what + " " + wrong;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, member(schema, "allOf")) {
        if (auto wrong = schemaViolation(schemas, item, value, name); !wrong.empty())
            return wrong;
    }
    if (cJSON_IsObject(value)) {
        cJSON_ArrayForEach(item, member(schema, "required")) {
            if (member(value, item->valuestring) == nullptr)
                return what + " has no " + quoteText(item->valuestring);
        }
        cJSON_ArrayForEach(item, member(schema, "properties")) {
            // The first of several with the same name is the one that counts.
            const cJSON *const found = member(value, item->string);
            const std::string path = (name.empty() ? "" : name + ".") + item->string;
            if (found != nullptr)
                if (auto wrong = schemaViolation(schemas, item, found, path); !wrong.empty())
                    return wrong;
        }
    }
    if (const cJSON *const each = member(schema, "items"); each != nullptr && cJSON_IsArray(value)) {
        int index = 0;
        cJSON_ArrayForEach(item, value) {
            const std::string path = name + "[" + std::to_string(index++) + "]";
            if (auto wrong = schemaViolation(schemas, each, item, path); !wrong.empty())
                return wrong;
        }
    }
    return "";
}

}  // namespace pavo
