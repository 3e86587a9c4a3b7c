#include "vswitch/model/types.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace vswitch {

std::optional<Mac> Mac::parse(std::string_view text) {
    if (text.size() != 17)
        return std::nullopt;
    Mac mac;
    for (std::size_t i = 0; i < 6; ++i) {
        unsigned value = 0;
        for (std::size_t k = 0; k < 2; ++k) {
            const int c = std::tolower(static_cast<unsigned char>(text[3 * i + k]));
            if (!std::isxdigit(c))
                return std::nullopt;
            value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        }
        if (i < 5 && text[3 * i + 2] != ':' && text[3 * i + 2] != '-')
            return std::nullopt;
        mac.bytes[i] = static_cast<std::uint8_t>(value);
    }
    return mac;
}

std::string Mac::text() const {
    char out[18];
    std::snprintf(out, sizeof out, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2], bytes[3],
                  bytes[4], bytes[5]);
    return out;
}

Mac Mac::plus(std::uint32_t n) const {
    std::uint64_t value = 0;
    for (const auto byte : bytes)
        value = value << 8 | byte;
    value += n;
    Mac mac;
    for (std::size_t i = 6; i-- > 0; value >>= 8)
        mac.bytes[i] = static_cast<std::uint8_t>(value);
    return mac;
}

bool objectNameValid(std::string_view name) {
    return !name.empty() && name.size() <= kObjectNameMax &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return std::isalnum(c) || c == '_' || c == '-' || c == '.'; });
}

std::string Interface::name() const {
    return (isLag() ? "lag " : "0/") + std::to_string(index);
}

void LldpFields::cutTexts() {
    for (auto *text : {&chassisId, &portId, &portDesc, &systemName, &systemDesc, &mgmtAddress, &capabilities})
        if (text->size() > kLldpTextMax)
            text->resize(kLldpTextMax);
}

}  // namespace vswitch
