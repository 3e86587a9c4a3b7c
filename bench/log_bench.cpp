// One log line through the file sink against a bare fprintf and fflush of the same text.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "bench/ratio.h"
#include "common/log.h"
#include "platform/paths.h"

namespace {

using namespace pavo;

constexpr const char *kMac = "00:1B:92:02:00:01";

void logLine(benchmark::State &state) {
    for (auto _ : state)
        logInfo("[%s:%d] AudacLookup: Added VLAN association MAC %s to VLAN %d\r\n", kMac, 20);
}

void logBareLine(benchmark::State &state) {
    std::FILE *file = std::fopen(platform::fsPath("/tmp/bare.log").c_str(), "a+");
    std::size_t bytes = 0;
    for (auto _ : state) {
        const int written =
            std::fprintf(file,
                         "2026-11-22 21:32:21.796 (INFO): pavo_bench: [%s:%d] AudacLookup: Added VLAN "
                         "association MAC %s to VLAN %d\r\n",
                         __func__, __LINE__, kMac, 20);
        std::fflush(file);
        // The same size of file on both sides.
        bytes += static_cast<std::size_t>(written);
        if (bytes > 1'048'576) {
            bytes = 0;
            file = std::freopen(platform::fsPath("/tmp/bare.log").c_str(), "w", file);
        }
    }
    std::fclose(file);
}

BENCHMARK(logBareLine)->Repetitions(7);
BENCHMARK(logLine)->Repetitions(7);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Log line / fprintf and fflush", "logLine", "logBareLine", 1.3);
    return true;
}();

}  // namespace
