// String helpers.
#ifndef PAVO_COMMON_TEXT_H
#define PAVO_COMMON_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pavo {

// A string from the network or a user as it may be logged or shown: control characters become dots.
std::string printable(std::string_view text);

// At most `most` bytes of a UTF-8 string; a character that would be cut in half goes as a whole.
std::string cutToBytes(std::string_view text, std::size_t most);

// True for well-formed UTF-8.
bool isUtf8(std::string_view text);

// The text as UTF-8 that any reader accepts: a byte that is part of no character becomes '?'.
std::string wellFormed(std::string_view text);

// The same with U+FFFD, the replacement character, in the place of each such byte.
std::string validUtf8(std::string_view text);

// In double quotes for a message: printable, well-formed, and what is longer than 60 bytes cut ("...").
std::string quoteText(std::string_view text);

// The decimal number that a string begins with, as far as its digits go; 0 without one, as large as can be
// when there are too many digits.
std::uint32_t leadingNumber(std::string_view text);

// The decimal number that a string is, sign included; nothing when it is anything else or more than 64 bits.
std::optional<std::int64_t> wholeNumber(std::string_view text);

// Copies a string into a fixed field, cut to its width and always terminated.
template <std::size_t N>
void copyText(char (&field)[N], std::string_view text) {
    const std::size_t length = text.substr(0, N - 1).copy(field, N - 1);
    for (std::size_t i = length; i < N; ++i)
        field[i] = '\0';
}

// visit(line) for the lines of a text, without their line feeds, until it returns false. A line longer than
// `most` bytes comes in pieces of that length.
template <class Visit>
void forEachLine(std::string_view text, std::size_t most, Visit visit) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view piece = text.substr(0, std::min(end, most));
        if (!visit(piece))
            return;
        text.remove_prefix(std::min(text.size(), piece.size() + (piece.size() == end ? 1 : 0)));
    }
}

}  // namespace pavo

#endif
