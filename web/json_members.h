// Builds JSON objects member by member, for answers of many members: whether memory ran out is asked once, at
// the end.
#ifndef PAVO_WEB_JSON_MEMBERS_H
#define PAVO_WEB_JSON_MEMBERS_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/json.h"

namespace pavo {

class JsonRows;

// An object under construction; the document owns it. What is given as std::optional is left out when there
// is no value.
class JsonMembers {
  public:
    JsonMembers(cJSON *object, bool &whole) : object_(object), whole_(whole) {}

    void number(const char *key, double value);
    void flag(const char *key, bool value);
    // Strings of devices hold any byte; they become well-formed UTF-8.
    void text(const char *key, std::string_view value);
    // As a decimal string: readers of JSON keep 53 bits of a number.
    void counter(const char *key, std::uint64_t value);
    void null(const char *key);
    JsonMembers object(const char *key);
    JsonRows rows(const char *key);

    template <class T>
    void number(const char *key, const std::optional<T> &value) {
        if (value)
            number(key, static_cast<double>(*value));
    }
    void flag(const char *key, const std::optional<bool> &value) {
        if (value)
            flag(key, *value);
    }
    void text(const char *key, const std::optional<std::string> &value) {
        if (value)
            text(key, std::string_view(*value));
    }
    // Null for no word.
    void word(const char *key, const char *value) {
        if (value != nullptr)
            text(key, std::string_view(value));
    }

  private:
    void note(const void *added) { whole_ = whole_ && added != nullptr; }

    cJSON *object_;
    bool &whole_;
};

// An array under construction.
class JsonRows {
  public:
    JsonRows(cJSON *array, bool &whole) : array_(array), whole_(whole) {}

    JsonMembers object();
    void number(double value);

  private:
    cJSON *array_;
    bool &whole_;
};

// What `build` makes of an empty object or array, in one line: for the caller to free; null when memory ran
// out.
template <class Build>
char *printRows(Build build) {
    bool whole = true;
    const JsonPtr root(cJSON_CreateArray());
    build(JsonRows(root.get(), whole));
    return whole && root != nullptr ? cJSON_PrintUnformatted(root.get()) : nullptr;
}
template <class Build>
char *printMembers(Build build) {
    bool whole = true;
    const JsonPtr root(cJSON_CreateObject());
    build(JsonMembers(root.get(), whole));
    return whole && root != nullptr ? cJSON_PrintUnformatted(root.get()) : nullptr;
}

}  // namespace pavo

#endif
