#include "ctl/port_list.h"

#include <algorithm>
#include <optional>

#include "common/text.h"
#include "ctl/output.h"

namespace pavo::ctl {
namespace {

constexpr std::string_view kLag = "lag";

struct Range {
    std::uint32_t low, high;
};

// "7" or "1-4".
std::optional<Range> parseRange(std::string_view text) {
    const auto dash = text.find('-');
    const auto low = wholeNumber(text.substr(0, dash));
    const auto high = dash == std::string_view::npos ? low : wholeNumber(text.substr(dash + 1));
    if (!low || !high || *low > *high || *high > UINT32_MAX)
        return std::nullopt;
    return Range{static_cast<std::uint32_t>(*low), static_cast<std::uint32_t>(*high)};
}

std::vector<std::uint32_t> numbersOf(const std::map<std::uint32_t, IfNum> &interfaces) {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(interfaces.size());
    for (const auto &interface : interfaces)
        numbers.push_back(interface.first);
    return numbers;
}

}  // namespace

Result<Interfaces> Interfaces::read(Switch sw) {
    Interfaces out;
    auto ports = sw.ports();
    for (const IfNum port : ports)
        out.ports_.emplace(port.number(), port);
    auto lags = sw.lags();
    std::optional<LagNumbering> numbering;
    for (const IfNum lag : lags) {
        if (!numbering)
            numbering = LagNumbering{lag};
        out.lags_.emplace(numbering->numberOf(lag), lag);
    }
    if (ports.brokenBy() || lags.brokenBy())
        return failed(ResultCode::Failed, "the interfaces of the switch cannot be read");
    return out;
}

std::expected<void, std::string> Interfaces::add(std::string_view item, std::vector<IfNum> &found) const {
    const bool isLag = item.starts_with(kLag);
    const auto range = parseRange(isLag ? item.substr(kLag.size()) : item);
    if (!range)
        return std::unexpected(quoteText(item) +
                               " is neither a port (7), nor a LAG (lag2), nor a range of them");
    const auto &known = isLag ? lags_ : ports_;
    for (auto number = range->low;; ++number) {
        const auto interface = known.find(number);
        if (interface == known.end())
            return std::unexpected("there is no " + (isLag ? "LAG " : std::string("port ")) +
                                   std::to_string(number) + " (ports " + rangesOf(numbersOf(ports_)) +
                                   ", LAGs " + portListOf({}, numbersOf(lags_)) + ")");
        found.push_back(interface->second);
        if (number == range->high)
            return {};
    }
}

std::expected<std::vector<IfNum>, std::string> Interfaces::find(std::string_view list) const {
    std::vector<IfNum> found;
    for (std::size_t begin = 0; begin <= list.size();) {
        const auto comma = std::min(list.find(',', begin), list.size());
        if (auto added = add(list.substr(begin, comma - begin), found); !added)
            return std::unexpected(added.error());
        begin = comma + 1;
    }
    return found;
}

std::string portListOf(std::span<const IfNum> ports, std::span<const std::uint32_t> lags) {
    std::string out = ports.empty() && !lags.empty() ? "" : rangesOf(ports);
    if (!lags.empty())
        out += (out.empty() ? "" : ",") + rangesOf({lags.begin(), lags.end()}, kLag);
    return out;
}

}  // namespace pavo::ctl
