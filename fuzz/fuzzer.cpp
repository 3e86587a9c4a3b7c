// The fuzzer of every target in one program: the name it is started by says which, build/fuzz/fuzz/NAME.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "fuzz/support.h"
#include "fuzz/targets.h"

namespace {

const fuzz::Target *current = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    static const fuzz::PrivateRoot root;
    const auto name = *argc > 0 ? std::filesystem::path(**argv).filename().string() : "";
    for (const auto &target : fuzz::kTargets)
        if (target.name == name)
            current = &target;
    if (current != nullptr)
        return 0;
    std::fprintf(stderr, "start it by the name of a target:\n");
    for (const auto &target : fuzz::kTargets)
        std::fprintf(stderr, "  %.*s\n", static_cast<int>(target.name.size()), target.name.data());
    std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    current->run({reinterpret_cast<const char *>(data), size});
    return 0;
}
