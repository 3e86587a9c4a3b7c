// Lists of VLANs as operators write them: "10,20-25". Pure functions of a string.
#ifndef PAVO_VLAN_VLAN_LIST_H
#define PAVO_VLAN_VLAN_LIST_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace pavo {

inline constexpr std::size_t kVlanListMax = 4096;

// The numbers of a list, in its order and with duplicates, at most kVlanListMax. Items stand between commas:
// a number, or an inclusive range, which adds nothing when it runs backwards. Whatever is no number counts as
// 0, and no number is held against the range of VLAN ids: that is for the caller. Nothing between two commas
// is no item.
std::vector<std::uint32_t> parseVlanList(std::string_view text);

}  // namespace pavo

#endif
