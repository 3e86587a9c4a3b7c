#include "common/owners.h"

#include <unistd.h>

#include <string>

#include "platform/paths.h"

FilePtr fileOpen(const char *fixedPath, const char *mode) {
    // "e": no child of the program inherits the descriptor.
    return FilePtr(std::fopen(platform::fsPath(fixedPath).c_str(), (std::string(mode) + "e").c_str()));
}

void fileRemove(const char *fixedPath) {
    unlink(platform::fsPath(fixedPath).c_str());
}
