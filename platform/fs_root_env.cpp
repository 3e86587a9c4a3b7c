#include <cstdlib>

#include "platform/paths.h"

namespace platform {

std::string fsPath(std::string_view fixedPath) {
    const char *root = std::getenv("PAVO_ROOT");
    std::string path = root != nullptr ? root : "";
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path.append(fixedPath);
}

}  // namespace platform
