// Multicast groups: from the capture to the chunks of the response cache, against reading and copying it.
#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdlib>
#include <string>

#include "bench/ratio.h"
#include "common/files.h"
#include "store/response_cache.h"
#include "vlan/multicast.h"
#include "vlan/multicast_ops.h"
#include "vswitch/inprocess.h"

namespace {

using namespace pavo;

constexpr std::uint32_t kGroups = 10000;
constexpr const char *kCapture = "/mnt/application/pavo/tmp/groups";

// A switch on which two devices have joined 10,000 groups.
struct Installation {
    Installation() {
        openapiClientRegister("bench", &client);
        device.with([](vswitch::Server &server) {
            server.cli().runScript("vlan database\nset igmp 1\n");
            for (const std::uint32_t half : {0u, 1u}) {
                vswitch::Device amp;
                amp.name = "amp" + std::to_string(half);
                amp.port = 5 + half;
                amp.macs = {vswitch::Mac::parse("00:1B:92:00:00:01").value().plus(half)};
                amp.ip = "192.168.100.10" + std::to_string(half);
                server.model().plug(amp);
                for (std::uint32_t n = 0; n < kGroups / 2; ++n)
                    server.model().joinGroup(amp.name, 0xEF640000 + half * kGroups / 2 + n, 2);
            }
        });
    }
    ~Installation() { openapiClientTearDown(&client); }
    // The table in a file.
    void capture() {
        if (!Switch(&client).captureShow("show igmpsnooping group", kCapture))
            std::abort();
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
};

// Memory as a program finds it that answers one request and ends: no pages from the last time.
void giveBackMemory(benchmark::State &state) {
    state.PauseTiming();
    ::malloc_trim(0);
    state.ResumeTiming();
}

std::string readAndCopy() {
    const auto text = readFile(kCapture);
    std::string copy;
    copy.append(text.value());
    if (copy.size() < kGroups * std::size_t{80})
        std::abort();
    return copy;
}

void groupsReadAndCopied(benchmark::State &state) {
    Installation installation;
    installation.capture();
    for (auto _ : state) {
        giveBackMemory(state);
        benchmark::DoNotOptimize(readAndCopy());
    }
}

void groupsIntoChunks(benchmark::State &state) {
    Installation installation;
    installation.capture();
    for (auto _ : state) {
        giveBackMemory(state);
        std::size_t stored = 0;
        ChunkedList list("bench", "multicastGroups");
        ChunkSink sink(list,
                       {[&](const std::string &, const std::string &answer) { stored += answer.size(); },
                        [](const std::string &) {}});
        const auto text = readFile(kCapture);
        GroupRowRoom room;
        forEachGroupRow(text.value(), [&](const GroupRow &row) { sink.add(printGroupRow(row, room)); });
        if (sink.rowCount() != kGroups || sink.finish() != ResultCode::Success || stored == 0)
            std::abort();
    }
}

// With the capture by the switch.
void groupsCaptured(benchmark::State &state) {
    Installation installation;
    for (auto _ : state) {
        installation.capture();
        benchmark::DoNotOptimize(readAndCopy());
    }
}

// With the response cache, too.
void groupsCached(benchmark::State &state) {
    Installation installation;
    if (!createResponseCache())
        std::abort();
    for (auto _ : state)
        if (multicastGroupsChunksBuild(&installation.client) != 0)
            std::abort();
}

BENCHMARK(groupsReadAndCopied)->Unit(benchmark::kMicrosecond)->Iterations(50)->Repetitions(7);
BENCHMARK(groupsIntoChunks)->Unit(benchmark::kMicrosecond)->Iterations(50)->Repetitions(7);
BENCHMARK(groupsCaptured)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(5);
BENCHMARK(groupsCached)->Unit(benchmark::kMillisecond)->Iterations(3)->Repetitions(5);

const bool kRatios = [] {
    bench::ratio("10,000 groups: capture into chunks / reading and copying it", "groupsIntoChunks",
                 "groupsReadAndCopied", 3);
    bench::ratio("10,000 groups: captured, chunked, cached / captured and copied", "groupsCached",
                 "groupsCaptured", 3);
    return true;
}();

}  // namespace
