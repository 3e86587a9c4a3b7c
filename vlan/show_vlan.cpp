#include "vlan/show_vlan.h"

#include <algorithm>

#include "common/text.h"

namespace pavo {
namespace {

constexpr std::size_t kLineMax = 511;
constexpr std::uint32_t kNumberMax = 4096;

// The number of the VLAN that a line is about; 0 for any other line.
std::uint32_t parseRow(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const std::size_t digits = std::min(line.find_first_not_of("0123456789"), line.size());
    const std::uint32_t number = leadingNumber(line.substr(0, digits));
    const bool named = line.find_first_not_of(" \t\r\f\v", digits) != std::string_view::npos;
    const auto says = [line](std::string_view type) { return line.find(type) != std::string_view::npos; };
    if (!named || number > kNumberMax || !(says("Static") || says("Dynamic") || says("Default")))
        return 0;
    return number;
}

}  // namespace

std::vector<std::uint32_t> parseShowVlan(std::string_view shown, std::size_t most) {
    std::vector<std::uint32_t> numbers;
    forEachLine(shown, kLineMax, [&](std::string_view line) {
        if (const std::uint32_t number = parseRow(line); number != 0 && numbers.size() < most)
            numbers.push_back(number);
        return numbers.size() < most;
    });
    return numbers;
}

}  // namespace pavo
