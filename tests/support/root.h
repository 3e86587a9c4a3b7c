// Files under the private root of a test program.
#ifndef PAVO_TESTS_SUPPORT_ROOT_H
#define PAVO_TESTS_SUPPORT_ROOT_H

#include <sys/resource.h>

#include <csignal>
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

// A disk on which no file gets longer than `most` bytes, for as long as it lives; the log has to be shorter.
class FullDisk {
  public:
    explicit FullDisk(rlim_t most) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{most, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
    }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

  private:
    rlimit before_{};
    void (*handler_)(int) = SIG_DFL;
};

}  // namespace test_support

#endif
