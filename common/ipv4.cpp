#include "common/ipv4.h"

#include <arpa/inet.h>

namespace pavo {

std::optional<Ipv4> Ipv4::parse(std::string_view text) {
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1 ||
        text.find('\0') != std::string_view::npos)
        return std::nullopt;
    Ipv4 out;
    out.bits_ = ntohl(address.s_addr);
    return out;
}

std::string Ipv4::text() const {
    std::string out;
    for (int shift = 24; shift >= 0; shift -= 8)
        out += (out.empty() ? "" : ".") + std::to_string(bits_ >> shift & 0xff);
    return out;
}

}  // namespace pavo
