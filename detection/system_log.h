// The switch's own system log: messages to the people who look after the switch, with formats that are
// checked when they are compiled.
#ifndef PAVO_DETECTION_SYSTEM_LOG_H
#define PAVO_DETECTION_SYSTEM_LOG_H

#include <cstddef>
#include <cstdio>
#include <source_location>
#include <string>
#include <type_traits>

#include "common/log.h"
#include "platform/l7proc.h"

namespace pavo {

// The format of a message; an empty one writes nothing.
template <class... Args>
class SystemFormat {
  public:
    constexpr SystemFormat() = default;
    consteval SystemFormat(const char *text) : text_(text) {
        if (!formatFits<Args...>(text, ""))
            throw "the format does not fit its arguments";
    }

    constexpr const char *text() const { return text_; }

  private:
    const char *text_ = nullptr;
};

// Writes one message at severity notice, from the source line `at`. What was written, at most 511 characters;
// empty when the format is.
template <class... Args>
std::string logToSystem(const std::source_location &at, std::type_identity_t<SystemFormat<Args...>> format,
                        const Args &...args) {
    constexpr std::size_t kRoom = 512;
    if (format.text() == nullptr)
        return {};
    std::string text(kRoom - 1, '\0');
    std::snprintf(text.data(), kRoom, format.text(), LogArgument<Args>(args).value()...);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    l7proc_logf(LOG_LEVEL_NOTICE, at.file_name(), static_cast<int>(at.line()), "%s", text.c_str());
    return text;
}

}  // namespace pavo

#endif
