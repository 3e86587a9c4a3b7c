#include "swapi/switch_settings.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sstream>

#include "common/ipv4.h"
#include "common/log_format.h"
#include "common/text.h"
#include "platform/paths.h"

namespace pavo {
namespace {

constexpr std::size_t kLineMax = 1023;
constexpr int kBootvarHeaderLines = 14;
constexpr std::size_t kSpeedScriptMax = 1023;
constexpr std::size_t kSpeedTextMax = 32;

// The columns of "show ip management" behind its dotted leaders.
constexpr std::size_t kVlanColumn = 52;
constexpr std::size_t kTextColumn = 47;

struct AddressLine {
    std::string_view label;
    std::optional<std::string> ManagementAddress::*value;
};
constexpr AddressLine kAddressLines[] = {{"IP Address", &ManagementAddress::ip},
                                         {"Subnet Mask", &ManagementAddress::mask},
                                         {"Method", &ManagementAddress::method},
                                         {"Default Gateway", &ManagementAddress::gateway},
                                         {"Interface Status", &ManagementAddress::status}};

std::optional<std::string> firstWord(std::string_view text) {
    std::istringstream words{std::string(text)};
    std::string word;
    return words >> word ? std::optional(word) : std::nullopt;
}

bool isAddress(const std::string &text) {
    return Ipv4::parse(text).has_value();
}

// What speeds are written with; anything else, a line end above all, must not appear in a script.
bool isSpeedText(std::string_view speed) {
    return std::all_of(speed.begin(), speed.end(), [](unsigned char c) {
        return c < 0x80 && (std::isalnum(c) != 0 ||
                            std::string_view(" ./-_").find(static_cast<char>(c)) != std::string_view::npos);
    });
}

// The CLI's word for a speed: "100 Full" is "100 full-duplex"; a speed without a duplex mode is "auto".
std::string speedKeyword(std::string_view speed) {
    if (const auto full = speed.find("Full"); full != std::string_view::npos)
        return std::string(speed.substr(0, full)) + "full-duplex";
    if (const auto half = speed.find("Half"); half != std::string_view::npos)
        return std::string(speed.substr(0, half)) + "half-duplex";
    return "auto";
}

// A show command that fails has left no output to open.
Result<std::string> readShow(Switch sw, const char *command, const char *file, const Where &where) {
    auto shown = sw.show(command, file, where);
    if (shown || shown.error().code == ResultCode::OpenFailed)
        return shown;
    logError(where, kCannotOpenFile, std::string(file));
    return failed(ResultCode::OpenFailed, shown.error().reason);
}

}  // namespace

std::vector<BootImage> parseBootImages(std::string_view shown, std::size_t most) {
    std::vector<BootImage> images;
    int line = 0;
    forEachLine(shown, kLineMax, [&](std::string_view text) {
        if (++line <= kBootvarHeaderLines)
            return true;
        BootImage image;
        std::istringstream columns{std::string(text)};
        if (images.size() == most || !(columns >> image.unit >> image.active >> image.backup >>
                                       image.currentActive >> image.nextActive))
            return false;
        images.push_back(std::move(image));
        return true;
    });
    return images;
}

ManagementAddress parseManagementAddress(std::string_view shown) {
    ManagementAddress address;
    forEachLine(shown, kLineMax, [&](std::string_view line) {
        if (line.starts_with("IPv4 Management Interface") && line.size() > kVlanColumn) {
            std::istringstream rest{std::string(line.substr(kVlanColumn))};
            if (std::int32_t vlan = 0; rest >> vlan)
                address.vlan = vlan;
        }
        for (const AddressLine &known : kAddressLines)
            if (line.starts_with(known.label) && line.size() > kTextColumn)
                if (auto word = firstWord(line.substr(kTextColumn)))
                    address.*known.value = std::move(word);
        return true;
    });
    return address;
}

std::string dhcpScript(VlanId vlan) {
    return formatText("config\nip management vlan %d dhcp\nexit\n", vlan);
}

std::expected<std::string, const char *> staticAddressScript(VlanId vlan, const std::string &ip,
                                                             const std::string &mask,
                                                             const std::string &gateway) {
    const bool hasGateway = !gateway.empty() && gateway != "0.0.0.0";
    if (!isAddress(ip) || !isAddress(mask))
        return std::unexpected("management address");
    if (hasGateway && !isAddress(gateway))
        return std::unexpected("management gateway");
    if (!hasGateway)
        return formatText("config\nip management vlan %d %s %s\nno ip default-gateway\nexit\n", vlan, ip,
                          mask);
    return formatText("config\nip management vlan %d %s %s\nip default-gateway %s\nexit\n", vlan, ip, mask,
                      gateway);
}

std::optional<std::vector<std::string>> speedScripts(std::span<const IfNum> ports, std::string_view speed) {
    if (!isSpeedText(speed))
        return std::nullopt;
    const std::string keyword = speedKeyword(speed.substr(0, kSpeedTextMax));
    static constexpr std::string_view kBegin = "config\n";
    static constexpr std::string_view kEnd = "exit\n";
    std::vector<std::string> scripts;
    std::string script(kBegin);
    for (const IfNum port : ports) {
        const std::string block = formatText("interface 0/%d\nspeed %s\nexit\n", port, keyword);
        // The ports that a script has no room for go into the next one.
        if (script.size() + block.size() + kEnd.size() > kSpeedScriptMax) {
            scripts.push_back(script.append(kEnd));
            script = kBegin;
        }
        script += block;
    }
    scripts.push_back(script.append(kEnd));
    return scripts;
}

Result<std::vector<BootImage>> readBootImages(Switch sw, std::size_t most, Where where) {
    const auto shown = readShow(sw, "show bootvar", platform::paths::kBootvarShow, where);
    if (!shown)
        return std::unexpected(shown.error());
    return parseBootImages(*shown, most);
}

Result<ManagementAddress> readManagementAddress(Switch sw, Where where) {
    const auto shown = readShow(sw, "show ip management", platform::paths::kIpManagementShow, where);
    if (!shown)
        return std::unexpected(shown.error());
    return parseManagementAddress(*shown);
}

}  // namespace pavo
