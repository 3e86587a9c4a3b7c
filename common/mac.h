// A MAC address, kept as it was written: the switch and the devices spell addresses in capitals or in small
// letters, and what goes out again (scripts, log lines) is spelled as it came in.
#ifndef PAVO_COMMON_MAC_H
#define PAVO_COMMON_MAC_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace pavo {

class Mac {
  public:
    // 00:00:00:00:00:00.
    constexpr Mac() = default;

    // Six two-digit hexadecimal groups joined by colons; nothing for any other text.
    static std::optional<Mac> parse(std::string_view text);

    // 17 characters, spelled as they were read; the second form has room for them, and terminates nothing.
    static constexpr std::size_t kTextSize = 17;
    std::string text() const;
    void writeText(char *out) const;

    // The address in the low 48 bits, first group highest.
    std::uint64_t bits() const { return bits_ & kAddress; }
    bool isZero() const { return bits() == 0; }

    // The same address, however it is spelled.
    bool sameAddress(Mac other) const { return bits() == other.bits(); }

    // The same text: the devices of a family are told apart by it.
    bool operator==(const Mac &) const = default;

  private:
    friend struct std::hash<Mac>;
    static constexpr std::uint64_t kAddress = (std::uint64_t{1} << 48) - 1;

    // Above the address, a bit for each of its twelve digits that is a capital letter, first digit highest.
    std::uint64_t bits_ = 0;
};

// For the log.
inline std::string logForm(Mac mac) {
    return mac.text();
}

}  // namespace pavo

template <>
struct std::hash<pavo::Mac> {
    std::size_t operator()(const pavo::Mac &mac) const noexcept {
        return std::hash<std::uint64_t>{}(mac.bits_);
    }
};

#endif
