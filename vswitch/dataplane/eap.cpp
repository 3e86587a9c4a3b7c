#include "vswitch/dataplane/eap.h"

#include <algorithm>

namespace vswitch {
namespace {

// Supplicants that one port has room for: somebody who makes up addresses fills up his own port only.
constexpr int kStationsMax = 16;

std::string hexOf(std::string_view bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += kDigits[byte >> 4];
        out += kDigits[byte & 0xf];
    }
    return out;
}

// Takes a line off the front.
std::string_view lineOf(std::string_view &text) {
    const auto end = std::min(text.find('\n'), text.size());
    const auto line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

bool printable(char c) {
    return c >= 0x20 && c < 0x7f;
}

}  // namespace

std::string hostapdConfig(const WirePort &port, const WireAccess &access, const std::string &systemName,
                          std::uint32_t reauthSeconds, const std::string &usersFile) {
    std::string config = "interface=" + port.netdev +
                         "\ndriver=wired\nieee8021x=1\neapol_version=2\nuse_pae_group_addr=1\n"
                         "eap_reauth_period=" +
                         std::to_string(reauthSeconds) + "\nmax_num_sta=" + std::to_string(kStationsMax) +
                         "\nap_max_inactivity=2000000000\n";
    if (access.radius.empty())
        return config + "eap_server=1\neap_user_file=" + usersFile + "\n";
    auto name = systemName.empty() ? "switch" : systemName;
    std::ranges::replace_if(name, [](char c) { return !printable(c); }, '?');
    // The port is an Ethernet, which hostapd would not say by itself.
    config += "nas_identifier=" + name + "\nradius_auth_req_attr=61:d:15\n";
    for (const auto &server : access.radius)
        config += "auth_server_addr=" + server.address + "\nauth_server_port=" + std::to_string(server.port) +
                  "\nauth_server_shared_secret=" + server.secret + "\n";
    return config;
}

std::string hostapdUsers(const WireAccess &access) {
    std::string out;
    for (const auto &[name, password] : access.users)
        out.append("\"").append(name).append("\" MD5 ").append(hexOf(password)).append("\n");
    return out;
}

std::optional<Station> stationOf(std::string_view answer) {
    Station station;
    station.mac = lineOf(answer);
    if (!Mac::parse(station.mac))
        return std::nullopt;
    // The name is the device's own text, as it came, and may look like more lines: they count for nothing.
    constexpr std::string_view kFlags = "flags=", kUser = "dot1xAuthSessionUserName=";
    const auto flags = lineOf(answer);
    station.authorized = flags.starts_with(kFlags) && flags.find("[AUTHORIZED]") != std::string_view::npos;
    while (!answer.empty())
        if (const auto line = lineOf(answer); line.starts_with(kUser)) {
            station.user = line.substr(kUser.size(), kIasNameMax);
            break;
        }
    std::ranges::replace_if(station.user, [](char c) { return !printable(c); }, '?');
    return station;
}

std::optional<HostapdEvent> hostapdEventOf(std::string_view message) {
    constexpr std::string_view kBegin = "IFNAME=";
    if (!message.starts_with(kBegin))
        return std::nullopt;
    message.remove_prefix(kBegin.size());
    const auto blank = message.find(' ');
    if (blank == std::string_view::npos)
        return std::nullopt;
    return HostapdEvent{std::string(message.substr(0, blank)),
                        message.substr(blank).find("CTRL-EVENT-EAP-FAILURE") != std::string_view::npos};
}

std::string identityRequest(const Mac &source) {
    constexpr unsigned char kTo[] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x03};
    // EAPOL version 2, an EAP packet of 5 bytes: request 0 of 5 bytes, for the identity.
    constexpr unsigned char kRequest[] = {0x88, 0x8e, 2, 0, 0, 5, 1, 0, 0, 5, 1};
    constexpr std::size_t kFrameMin = 60;
    std::string frame(std::begin(kTo), std::end(kTo));
    frame.append(source.bytes.begin(), source.bytes.end());
    frame.append(std::begin(kRequest), std::end(kRequest));
    frame.resize(kFrameMin, '\0');
    return frame;
}

}  // namespace vswitch
