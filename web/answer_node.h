// A JSON value under construction, and the words that answers have for the switch's numbers.
#ifndef PAVO_WEB_ANSWER_NODE_H
#define PAVO_WEB_ANSWER_NODE_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "common/json.h"
#include "common/text.h"

namespace pavo {

// An object or array under construction. Strings are made well-formed UTF-8. An optional without a value adds
// nothing.
class AnswerNode {
  public:
    static AnswerNode object() { return AnswerNode(cJSON_CreateObject()); }
    static AnswerNode array() { return AnswerNode(cJSON_CreateArray()); }

    // --- members of an object

    AnswerNode &add(const char *key, bool value) {
        return note(cJSON_AddBoolToObject(json_.get(), key, value) != nullptr);
    }
    template <class Number>
        requires(std::is_arithmetic_v<Number> && !std::same_as<Number, bool>)
    AnswerNode &add(const char *key, Number value) {
        return note(cJSON_AddNumberToObject(json_.get(), key, static_cast<double>(value)) != nullptr);
    }
    AnswerNode &add(const char *key, std::string_view text) {
        return note(cJSON_AddStringToObject(json_.get(), key, wellFormed(text).c_str()) != nullptr);
    }
    AnswerNode &add(const char *key, const char *text) { return add(key, std::string_view(text)); }
    AnswerNode &add(const char *key, const std::string &text) { return add(key, std::string_view(text)); }
    AnswerNode &add(const char *key, AnswerNode value) {
        return note(value.whole_ && addItem(json_.get(), key, std::move(value.json_)));
    }
    template <class T>
    AnswerNode &add(const char *key, const std::optional<T> &value) {
        return value ? add(key, *value) : *this;
    }

    // For what does not apply; what is not known is left out.
    AnswerNode &addNull(const char *key) { return note(cJSON_AddNullToObject(json_.get(), key) != nullptr); }
    // As a decimal string: readers of JSON keep 53 bits of a number.
    AnswerNode &addCounter(const char *key, std::uint64_t value) { return add(key, std::to_string(value)); }

    // --- items of an array

    AnswerNode &append(AnswerNode value) {
        if (!value.whole_ || !cJSON_AddItemToArray(json_.get(), value.json_.get()))
            return note(false);
        static_cast<void>(value.json_.release());
        return *this;
    }
    AnswerNode &appendText(std::string_view text) {
        JsonPtr item(cJSON_CreateString(wellFormed(text).c_str()));
        if (item == nullptr || !cJSON_AddItemToArray(json_.get(), item.get()))
            return note(false);
        static_cast<void>(item.release());
        return *this;
    }
    AnswerNode &append(std::uint32_t value) { return note(appendNumber(json_.get(), value)); }

    // In one line; empty when memory ran out, now or before.
    std::string print() const { return whole_ ? printJsonLine(json_.get()) : ""; }

  private:
    explicit AnswerNode(cJSON *json) : json_(json), whole_(json != nullptr) {}
    AnswerNode &note(bool done) {
        whole_ = whole_ && done;
        return *this;
    }

    JsonPtr json_;
    bool whole_;
};

// A table of words; nothing for a number that it does not know.
template <class Number>
struct Word {
    Number number;
    const char *word;
};

template <class Number, std::size_t N>
std::optional<const char *> wordOf(const Word<Number> (&words)[N], const std::optional<Number> &number) {
    for (const auto &known : words)
        if (number && known.number == *number)
            return known.word;
    return std::nullopt;
}

}  // namespace pavo

#endif
