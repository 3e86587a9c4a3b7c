#include "common/mac.h"

#include <array>

namespace pavo {
namespace {

constexpr std::size_t kDigits = 12;
constexpr std::size_t kAddressBits = 48;
// What tells a letter from the same one in capitals; digits have this bit, too.
constexpr unsigned kSmall = 0x20;

constexpr std::uint8_t kNoDigit = 0xff;
constexpr auto kDigitOf = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::uint8_t i = 0; i < 10; ++i)
        values['0' + i] = i;
    for (std::uint8_t i = 10; i < 16; ++i)
        values['a' + i - 10] = values['A' + i - 10] = i;
    return values;
}();

}  // namespace

std::optional<Mac> Mac::parse(std::string_view text) {
    if (text.size() != kTextSize)
        return std::nullopt;
    std::uint64_t address = 0;
    std::uint64_t capitals = 0;
    for (std::size_t i = 0; i < kTextSize; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (i % 3 == 2) {
            if (c != ':')
                return std::nullopt;
            continue;
        }
        const std::uint8_t digit = kDigitOf[c];
        if (digit == kNoDigit)
            return std::nullopt;
        address = address << 4 | digit;
        capitals = capitals << 1 | ((c & kSmall) == 0 ? 1 : 0);
    }
    Mac mac;
    mac.bits_ = capitals << kAddressBits | address;
    return mac;
}

std::string Mac::text() const {
    std::string out(kTextSize, '\0');
    writeText(out.data());
    return out;
}

void Mac::writeText(char *out) const {
    for (std::size_t digit = 0; digit < kDigits; ++digit) {
        const bool capital = (bits_ >> (kAddressBits + kDigits - 1 - digit) & 1) != 0;
        const auto *const digits = capital ? "0123456789ABCDEF" : "0123456789abcdef";
        if (digit > 0 && digit % 2 == 0)
            *out++ = ':';
        *out++ = digits[bits_ >> (kAddressBits - 4 * (digit + 1)) & 0xf];
    }
}

}  // namespace pavo
