#include "detection/oui_table.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>

namespace pavo {
namespace {

constexpr OuiRow kTable[] = {
    {"00:60:9F", "harman", 2}, {"00:19:0B", "harman", 4}, {"00:0F:D4", "harman", 3},
    {"6C:B1:58", "harman", 3}, {"58:50:AB", "telos", 3},  {"80:34:28", "audac", 2},
    {"00:1D:C1", "audac", 3},
};

constexpr std::uint32_t valueOf(std::string_view prefix) {
    std::uint32_t value = 0;
    for (const char c : prefix)
        if (c != ':')
            value = value * 16 + static_cast<std::uint32_t>(c <= '9' ? c - '0' : c - 'A' + 10);
    return value;
}

// The prefixes as numbers: tables of the switch have thousands of addresses.
constexpr auto kValues = [] {
    std::array<std::uint32_t, std::size(kTable)> values{};
    std::ranges::transform(kTable, values.begin(), [](const OuiRow &row) { return valueOf(row.prefix); });
    return values;
}();

}  // namespace

const OuiRow *findOui(Mac mac) {
    const auto found = std::ranges::find(kValues, mac.bits() >> 24);
    return found != kValues.end() ? &kTable[found - kValues.begin()] : nullptr;
}

}  // namespace pavo
