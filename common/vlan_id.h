// The number of a VLAN, 1 to 4094.
#ifndef PAVO_COMMON_VLAN_ID_H
#define PAVO_COMMON_VLAN_ID_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>

namespace pavo {

class VlanId {
  public:
    static constexpr std::uint32_t kMin = 1;
    static constexpr std::uint32_t kMax = 4094;

    // VLAN 1, the default VLAN.
    constexpr VlanId() = default;

    // A number that is known to be one when the code is written.
    explicit consteval VlanId(std::uint32_t number) : number_(checked(number)) {}

    // Nothing for a number that is no VLAN's.
    static constexpr std::optional<VlanId> from(std::int64_t number) {
        if (number < kMin || number > kMax)
            return std::nullopt;
        VlanId id;
        id.number_ = static_cast<std::uint16_t>(number);
        return id;
    }

    constexpr std::uint32_t number() const { return number_; }
    constexpr auto operator<=>(const VlanId &) const = default;

  private:
    static consteval std::uint16_t checked(std::uint32_t number) {
        if (number < kMin || number > kMax)
            throw "not a VLAN";
        return static_cast<std::uint16_t>(number);
    }

    std::uint16_t number_ = kMin;
};

inline constexpr VlanId kDefaultVlan{1};

using VlanSet = std::set<VlanId>;

// For the log.
inline std::uint32_t logForm(VlanId id) {
    return id.number();
}

}  // namespace pavo

template <>
struct std::hash<pavo::VlanId> {
    std::size_t operator()(const pavo::VlanId &id) const noexcept { return id.number(); }
};

#endif
