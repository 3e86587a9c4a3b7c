// Interface numbers of the switch, and sets of ports.
#ifndef PAVO_COMMON_IF_NUM_H
#define PAVO_COMMON_IF_NUM_H

#include <bitset>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace pavo {

// The switch OS's internal number of a port or LAG; 0 is none.
class IfNum {
  public:
    constexpr IfNum() = default;
    explicit constexpr IfNum(std::uint32_t number) : number_(number) {}

    constexpr std::uint32_t number() const { return number_; }
    explicit constexpr operator bool() const { return number_ != 0; }
    constexpr auto operator<=>(const IfNum &) const = default;

  private:
    std::uint32_t number_ = 0;
};

// For the log.
inline std::uint32_t logForm(IfNum ifNum) {
    return ifNum.number();
}

// Tables per port are indexed by interface number and cover 1 to 767.
inline constexpr std::size_t kPortTableSize = 768;

// A set of ports; numbers that a table per port does not cover are never in it.
class PortSet {
  public:
    static constexpr bool covers(IfNum port) { return port && port.number() < kPortTableSize; }

    // False, with nothing changed, for a number that is not covered.
    bool insert(IfNum port) {
        if (covers(port))
            ports_.set(port.number());
        return covers(port);
    }
    bool contains(IfNum port) const { return covers(port) && ports_[port.number()]; }
    bool empty() const { return ports_.none(); }
    std::size_t size() const { return ports_.count(); }
    bool operator==(const PortSet &) const = default;

  private:
    std::bitset<kPortTableSize> ports_;
};

}  // namespace pavo

template <>
struct std::hash<pavo::IfNum> {
    std::size_t operator()(const pavo::IfNum &ifNum) const noexcept { return ifNum.number(); }
};

#endif
