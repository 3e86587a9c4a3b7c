// printf formats that are checked against their arguments when they are compiled, also those that stand in
// tables and are out of reach of the compiler's own check.
//
// What is logged: integers and enumerations (%d, %u, %x; %ld and %lu or %zu for the 64-bit ones), strings
// (%s), and every type with a function logForm() that turns it into one of these, such as the values of the
// field.
#ifndef PAVO_COMMON_LOG_FORMAT_H
#define PAVO_COMMON_LOG_FORMAT_H

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace pavo {

template <class T>
concept HasLogForm = requires(const T &value) { logForm(value); };

// One argument on its way into printf; a string made for the occasion lives as long as this does.
template <class T>
class LogArgument {
  public:
    explicit LogArgument(const T &value) : form_(formOf(value)) {}

    auto value() const {
        if constexpr (std::is_same_v<Form, std::string>)
            return form_.c_str();
        else
            return form_;
    }

  private:
    static auto formOf(const T &value) {
        if constexpr (HasLogForm<T>)
            return logForm(value);
        else if constexpr (std::is_enum_v<T>)
            return static_cast<std::underlying_type_t<T>>(value);
        else if constexpr (std::is_same_v<T, std::string>)
            return value.c_str();
        else if constexpr (std::is_array_v<T> || std::is_pointer_v<T>)
            return static_cast<const char *>(value);
        else
            return value;
    }

    using Form = decltype(formOf(std::declval<const T &>()));
    Form form_;

  public:
    // What a conversion must be for it.
    static constexpr bool kIsString = std::is_same_v<Form, std::string> || std::is_same_v<Form, const char *>;
    static constexpr bool kIsLong = !kIsString && sizeof(Form) > sizeof(int);
    static_assert(kIsString || std::is_integral_v<Form>, "a type that cannot be logged");
};

// Whether the conversions of `text` behind `prefix` are those of Args, in their order.
template <class... Args>
consteval bool formatFits(std::string_view text, std::string_view prefix) {
    constexpr bool kIsString[] = {LogArgument<Args>::kIsString..., false};
    constexpr bool kIsLong[] = {LogArgument<Args>::kIsLong..., false};
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    std::size_t arg = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%')
            continue;
        if (i + 1 < text.size() && text[i + 1] == '%') {
            ++i;
            continue;
        }
        do
            ++i;
        while (i < text.size() && (text[i] == '.' || (text[i] >= '0' && text[i] <= '9')));
        const bool isLong = i < text.size() && (text[i] == 'l' || text[i] == 'z');
        i += isLong ? 1 : 0;
        const char kind = i < text.size() ? text[i] : '\0';
        if (arg == sizeof...(Args) || isLong != kIsLong[arg] ||
            (kIsString[arg] ? kind != 's' : kind != 'd' && kind != 'u' && kind != 'x'))
            return false;
        ++arg;
    }
    return arg == sizeof...(Args);
}

// The format of a log line, "[%s:%d] " in front like all of them. An empty one writes nothing.
template <class... Args>
class LogFormat {
  public:
    // Length of the part in front, which function and line take the place of.
    static constexpr std::size_t kPlaceSize = 8;

    constexpr LogFormat() = default;
    consteval LogFormat(const char *text) : text_(text) {
        if (!formatFits<Args...>(text, "[%s:%d] "))
            throw "the format does not begin with [%s:%d] or does not fit its arguments";
    }

    constexpr const char *text() const { return text_; }

  private:
    const char *text_ = nullptr;
};

// The format of any other text: a script, a statement, a path.
template <class... Args>
class TextFormat {
  public:
    consteval TextFormat(const char *text) : text_(text) {
        if (!formatFits<Args...>(text, ""))
            throw "the format does not fit its arguments";
    }

    constexpr const char *text() const { return text_; }

  private:
    const char *text_;
};

// The formatted text, as long as it gets.
std::string formatPlain(const char *format, ...) __attribute__((format(printf, 1, 2)));

template <class... Args>
std::string formatText(std::type_identity_t<TextFormat<Args...>> format, const Args &...args) {
    return formatPlain(format.text(), LogArgument<Args>(args).value()...);
}

}  // namespace pavo

#endif
