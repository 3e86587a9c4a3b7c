// Runs every input of the corpora through its target, as a test: fuzz_replay CORPUS [TARGET]. A folder without a
// target, and a target without inputs, fail it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include "fuzz/support.h"
#include "fuzz/targets.h"

namespace {

namespace fs = std::filesystem;

// Number of inputs; their names tell which one it was when the process dies.
std::size_t replay(const fuzz::Target &target, const fs::path &folder) {
    std::set<fs::path> inputs;
    if (fs::is_directory(folder))
        inputs = {fs::directory_iterator(folder), fs::directory_iterator()};
    for (const auto &input : inputs) {
        std::ifstream in(input, std::ios::binary);
        std::string content(std::istreambuf_iterator<char>(in), {});
        std::printf("%s\n", input.c_str());
        std::fflush(stdout);
        // No byte more than the input: the address sanitizer sees what is read beyond.
        const auto exact = std::make_unique<char[]>(content.size());
        content.copy(exact.get(), content.size());
        target.run({exact.get(), content.size()});
    }
    return inputs.size();
}

int run(const fs::path &corpus, const std::string &only) {
    const fuzz::PrivateRoot root;
    int failures = 0;
    for (const auto &target : fuzz::kTargets)
        if ((only.empty() || target.name == only) && replay(target, corpus / target.name) == 0) {
            std::fprintf(stderr, "no inputs for %.*s\n", static_cast<int>(target.name.size()),
                         target.name.data());
            ++failures;
        }
    for (const auto &entry : fs::directory_iterator(corpus))
        if (std::ranges::none_of(fuzz::kTargets, [&](const fuzz::Target &target) {
                return target.name == entry.path().filename().string();
            })) {
            std::fprintf(stderr, "no target for %s\n", entry.path().c_str());
            ++failures;
        }
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv) try {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS [TARGET]\n", argv[0]);
        return 2;
    }
    return run(argv[1], argc > 2 ? argv[2] : "");
} catch (const std::exception &e) {
    std::fprintf(stderr, "%s\n", e.what());
    return EXIT_FAILURE;
}
