#include "vlan/vlan_list.h"

#include <algorithm>

#include "common/text.h"

namespace pavo {
namespace {

std::uint32_t numberOf(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    return leadingNumber(text);
}

}  // namespace

std::vector<std::uint32_t> parseVlanList(std::string_view text) {
    std::vector<std::uint32_t> ids;
    while (!text.empty() && ids.size() < kVlanListMax) {
        const std::string_view item = text.substr(0, text.find(','));
        text.remove_prefix(std::min(item.size() + 1, text.size()));
        if (item.empty())
            continue;
        const std::size_t dash = item.find('-');
        const std::uint32_t first = numberOf(item.substr(0, dash));
        const std::uint32_t last = dash == std::string_view::npos ? first : numberOf(item.substr(dash + 1));
        for (std::uint64_t id = first; id <= last && ids.size() < kVlanListMax; ++id)
            ids.push_back(static_cast<std::uint32_t>(id));
    }
    return ids;
}

}  // namespace pavo
