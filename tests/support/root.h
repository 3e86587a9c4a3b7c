// Files under the private root of a test program.
#ifndef PAVO_TESTS_SUPPORT_ROOT_H
#define PAVO_TESTS_SUPPORT_ROOT_H

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/paths.h"

namespace test_support {

// Empties the root folder and makes the folders the program expects. Runs before every test.
void clearRoot();

inline std::string readFile(const char *fixedPath) {
    std::ifstream in(platform::fsPath(fixedPath), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeText(const char *fixedPath, const std::string &text) {
    std::ofstream(platform::fsPath(fixedPath), std::ios::binary | std::ios::trunc) << text;
}

inline bool exists(const char *fixedPath) {
    return std::filesystem::exists(platform::fsPath(fixedPath));
}

inline std::size_t occurrences(const std::string &text, const std::string &part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

}  // namespace test_support

#endif
