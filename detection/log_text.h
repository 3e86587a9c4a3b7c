// Message formats as data: what several device families log alike, but in their own words, stands in their
// tables.
//
// A format in a table is out of reach of the compiler's printf check, so these types check it themselves: the
// conversions (%s, %d and %u) must be those of Args, or the table does not compile. An empty text writes
// nothing.
#ifndef PAVO_DETECTION_LOG_TEXT_H
#define PAVO_DETECTION_LOG_TEXT_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

#include "common/log.h"
#include "platform/l7proc.h"

template <class... Args>
consteval const char *checkedFormat(const char *text, std::string_view prefix) {
    constexpr bool isText[] = {std::is_same_v<Args, const char *>..., false};
    std::string_view rest(text);
    if (!rest.starts_with(prefix))
        throw "the format lacks its prefix";
    rest.remove_prefix(prefix.size());
    std::size_t arg = 0;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        if (rest[i] != '%')
            continue;
        const char kind = ++i < rest.size() ? rest[i] : '\0';
        if (arg == sizeof...(Args) || (isText[arg] ? kind != 's' : kind != 'd' && kind != 'u'))
            throw "a conversion does not fit its argument";
        ++arg;
    }
    if (arg != sizeof...(Args))
        throw "an argument has no conversion";
    return text;
}

// A format for the log, "[%s:%d] " in front like all of them.
template <class... Args>
class LogText {
  public:
    constexpr LogText() = default;
    consteval LogText(const char *text) : text_(checkedFormat<Args...>(text, "[%s:%d] ")) {}

    // Called with __func__ and __LINE__.
    void write(int level, const char *function, int line, Args... args) const {
        if (text_ != nullptr)
            devmgrLog(level, text_, function, line, args...);
    }

  private:
    const char *text_ = nullptr;
};

// A format for the switch's system log.
template <class... Args>
class SystemText {
  public:
    constexpr SystemText() = default;
    consteval SystemText(const char *text) : text_(checkedFormat<Args...>(text, "")) {}

    // Writes at severity notice, called with __FILE__ and __LINE__. The text written, empty when there is
    // none.
    std::string write(const char *file, int line, Args... args) const {
        char out[512] = "";
        if (text_ != nullptr) {
            std::snprintf(out, sizeof out, text_, args...);
            l7proc_logf(LOG_LEVEL_NOTICE, file, line, "%s", out);
        }
        return out;
    }

  private:
    const char *text_ = nullptr;
};

#endif
