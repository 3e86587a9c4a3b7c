// The VLAN picture: its growth with VLANs and interfaces, and the quick profile scan against the full one.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/ratio.h"
#include "platform/paths.h"
#include "store/profile_db_ops.h"
#include "store/profile_template.h"
#include "vlan/vlan_info_ops.h"
#include "vswitch/inprocess.h"

namespace {

using namespace pavo;

constexpr double kInterfaces = 48 + 24;

// A switch with that many VLANs, all tagged on a trunk and every fourth of a profile.
struct Installation {
    explicit Installation(std::uint32_t vlans) {
        openapiClientRegister("bench", &client);
        bench::freshTable();
        std::filesystem::create_directories(platform::fsPath(platform::paths::kProfileTemplateDir));
        std::ofstream(platform::fsPath(profileTemplatePath("Audio Dante")))
            << R"({"name": "Audio Dante", "PTP": true, "qos": {}, "STP": false, "multicast": {"queryInterval": 30}})";
        device.with([&](vswitch::Server &server) {
            for (std::uint32_t id = 2; id <= vlans; ++id) {
                server.model().createVlan(id);
                server.model().setParticipation(48, id, OPEN_VLAN_PARTICIPATION_MODE_INCLUDE);
                server.model().setTagging(48, id, true);
            }
        });
        for (std::uint32_t id = 2; id <= vlans; id += 4)
            vlanInfoReplace(static_cast<std::int32_t>(id), 1, "House", "Audio Dante", "#000000");
    }
    ~Installation() { openapiClientTearDown(&client); }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
};

template <class List, class Create, class Free>
void run(benchmark::State &state, Create create, Free free) {
    const auto vlans = static_cast<std::uint32_t>(state.range(0));
    Installation installation(vlans);
    for (auto _ : state) {
        List *list = nullptr;
        if (create(&installation.client, &list) != 0 || list->count != vlans)
            std::abort();
        free(list);
    }
}

void vlanListAll(benchmark::State &state) {
    run<VLAN_INFOX_LIST_T>(state, vlanListAllInfoCreateEX, vlanListInfoFreeEX);
}
void vlanProfilesFull(benchmark::State &state) {
    run<VLAN_PROFILE_LIST_T>(state, vlanListProfileCreateEX, vlanListProfileFreeEX);
}
void vlanProfilesQuick(benchmark::State &state) {
    run<VLAN_PROFILE_LIST_T>(state, vlanListProfileCreateFastEX, vlanListProfileFreeEX);
}

BENCHMARK(vlanListAll)
    ->Arg(1)
    ->Arg(100)
    ->Arg(4094)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(vlanProfilesFull)
    ->Arg(100)
    ->Arg(4094)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);
BENCHMARK(vlanProfilesQuick)
    ->Arg(100)
    ->Arg(4094)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5)
    ->Repetitions(5);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("All VLANs, 4,094 / 100, per VLAN and interface (linear: 1)", "vlanListAll/4094",
                 "vlanListAll/100", 1.5, (4094 + kInterfaces) / (100 + kInterfaces));
    bench::differenceRatio("All VLANs, growth 100 to 4,094 / 1 to 100, per VLAN (linear: 1)",
                           "vlanListAll/4094", "vlanListAll/100", "vlanListAll/100", "vlanListAll/1", 1.25,
                           (4094.0 - 100) / (100 - 1));
    bench::ratio("Quick profile scan / full one, 100 VLANs", "vlanProfilesQuick/100", "vlanProfilesFull/100",
                 0);
    bench::ratio("Quick profile scan / full one, 4,094 VLANs", "vlanProfilesQuick/4094",
                 "vlanProfilesFull/4094", 1.0);
    return true;
}();

}  // namespace
