#include <charconv>
#include <cstdlib>
#include <string_view>

#include "platform/cli_port.h"
#include "platform/paths.h"

namespace platform {

std::string fsPath(std::string_view fixedPath) {
    const char *root = std::getenv("PAVO_ROOT");
    std::string path = root != nullptr ? root : "";
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path.append(fixedPath);
}

std::uint16_t cliPort() {
    const char *set = std::getenv("PAVO_CLI_PORT");
    if (set == nullptr)
        return kCliPort;
    const std::string_view text = set;
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc{} && end == text.data() + text.size() ? port : std::uint16_t{0};
}

}  // namespace platform
