#include "platform/paths.h"

namespace platform {

std::string fsPath(std::string_view fixedPath) {
    return std::string(fixedPath);
}

}  // namespace platform
