// An IPv4 address or netmask.
#ifndef PAVO_COMMON_IPV4_H
#define PAVO_COMMON_IPV4_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pavo {

class Ipv4 {
  public:
    // 0.0.0.0.
    constexpr Ipv4() = default;

    // Four decimal numbers without leading zeros, joined by dots; nothing for any other text.
    static std::optional<Ipv4> parse(std::string_view text);
    static constexpr Ipv4 fromNumber(std::uint32_t hostOrder) {
        Ipv4 out;
        out.bits_ = hostOrder;
        return out;
    }

    std::string text() const;
    bool operator==(const Ipv4 &) const = default;

  private:
    std::uint32_t bits_ = 0;  // host byte order
};

}  // namespace pavo

#endif
