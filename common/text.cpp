#include "common/text.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <system_error>

#include "common/log_format.h"

namespace pavo {
namespace {

bool continuesCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// Length of the character that begins with this byte; 0 when none does.
std::size_t characterLength(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xc2 && first < 0xe0)
        return 2;
    if (first >= 0xe0 && first < 0xf0)
        return 3;
    return first >= 0xf0 && first < 0xf5 ? 4 : 0;
}

// Whether the second byte of a character belongs to its first: neither a longer form than needed, nor half of
// a surrogate pair, nor beyond the last character.
bool canFollow(char first, char second) {
    const auto next = static_cast<unsigned char>(second);
    switch (static_cast<unsigned char>(first)) {
        case 0xe0:
            return next >= 0xa0;
        case 0xed:
            return next <= 0x9f;
        case 0xf0:
            return next >= 0x90;
        case 0xf4:
            return next <= 0x8f;
        default:
            return true;
    }
}

// Length of the character that a text begins with; 0 for a byte that is part of none, and without text.
std::size_t leadingCharacter(std::string_view text) {
    const std::size_t length = text.empty() ? 0 : characterLength(static_cast<unsigned char>(text[0]));
    const bool sound = length <= text.size() && (length < 2 || canFollow(text[0], text[1])) &&
                       (length < 2 || std::ranges::all_of(text.substr(1, length - 1), continuesCharacter));
    return sound ? length : 0;
}

std::string replaceStrayBytes(std::string_view text, std::string_view replacement) {
    std::string out;
    while (!text.empty()) {
        const std::size_t length = leadingCharacter(text);
        out += length > 0 ? text.substr(0, length) : replacement;
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        // Some terminals take U+0080 to U+009F for control characters, too.
        const bool isC1 = c == 0xc2 && next >= 0x80 && next <= 0x9f;
        out += c < 0x20 || c == 0x7f || isC1 ? '.' : text[i];
        i += isC1 ? 1 : 0;
    }
    return out;
}

std::string cutToBytes(std::string_view text, std::size_t most) {
    if (text.size() <= most)
        return std::string(text);
    while (most > 0 && continuesCharacter(text[most]))
        --most;
    return std::string(text.substr(0, most));
}

bool isUtf8(std::string_view text) {
    while (const std::size_t length = leadingCharacter(text))
        text.remove_prefix(length);
    return text.empty();
}

std::string wellFormed(std::string_view text) {
    return replaceStrayBytes(text, "?");
}

std::string validUtf8(std::string_view text) {
    return replaceStrayBytes(text, "\xef\xbf\xbd");
}

std::string quoteText(std::string_view text) {
    static constexpr std::size_t kShown = 60;
    return '"' + wellFormed(printable(cutToBytes(text, kShown))) + (text.size() > kShown ? "...\"" : "\"");
}

std::uint32_t leadingNumber(std::string_view text) {
    std::uint32_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc::result_out_of_range ? UINT32_MAX : number;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string formatPlain(const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace pavo
