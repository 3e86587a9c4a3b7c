#include "platform/cli_port.h"
#include "platform/paths.h"

namespace platform {

std::string fsPath(std::string_view fixedPath) {
    return std::string(fixedPath);
}

std::uint16_t cliPort() {
    return kCliPort;
}

}  // namespace platform
