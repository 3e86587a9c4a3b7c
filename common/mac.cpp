#include "common/mac.h"

namespace pavo {
namespace {

constexpr std::size_t kTextSize = 17;
constexpr std::size_t kDigits = 12;
constexpr std::size_t kAddressBits = 48;

}  // namespace

std::optional<Mac> Mac::parse(std::string_view text) {
    if (text.size() != kTextSize)
        return std::nullopt;
    std::uint64_t address = 0;
    std::uint64_t capitals = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i % 3 == 2) {
            if (c != ':')
                return std::nullopt;
            continue;
        }
        const bool capital = c >= 'A' && c <= 'F';
        int digit = 0;
        if (c >= '0' && c <= '9')
            digit = c - '0';
        else if (capital)
            digit = c - 'A' + 10;
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else
            return std::nullopt;
        address = address << 4 | static_cast<std::uint64_t>(digit);
        capitals = capitals << 1 | (capital ? 1 : 0);
    }
    Mac mac;
    mac.bits_ = capitals << kAddressBits | address;
    return mac;
}

std::string Mac::text() const {
    std::string out(kTextSize, ':');
    for (std::size_t digit = 0; digit < kDigits; ++digit) {
        const auto value = static_cast<int>(bits_ >> (kAddressBits - 4 * (digit + 1)) & 0xf);
        const bool capital = (bits_ >> (kAddressBits + kDigits - 1 - digit) & 1) != 0;
        const int letter = (capital ? 'A' : 'a') + value - 10;
        out[digit + digit / 2] = static_cast<char>(value < 10 ? '0' + value : letter);
    }
    return out;
}

}  // namespace pavo
