// Lightware detection in OpEN calls: an unchanged cycle against the reads it cannot do without, and the way
// from plugging an endpoint in to its finished link aggregation.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "bench/ratio.h"
#include "detection/lightware.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "vlan/profile_vlan.h"
#include "vswitch/inprocess.h"

namespace {

using namespace pavo;

constexpr std::uint32_t kVlan = 30;
constexpr std::uint32_t kPorts = 48;

struct Projection {
    explicit Projection(int latencyMs = 0) {
        openapiClientRegister("bench", &client);
        device.with([](vswitch::Server &server) {
            auto &model = server.model();
            model.createVlan(kVlan);
            model.createVlan(286);
            for (std::uint32_t port = 1; port <= kPorts; ++port)
                model.setPvid(port, kVlan);
        });
        bench::freshTable();
        static_cast<void>(replaceProfileRow({.id = kVlan,
                                             .vlanType = 1,
                                             .profileName = "Projection",
                                             .profileType = PROFILE_TYPE_NAME_LIGHTWARE,
                                             .color = "#000000"}));
        device.with([&](vswitch::Server &server) {
            server.model().setLatency(std::chrono::milliseconds(latencyMs));
        });
    }
    ~Projection() { openapiClientTearDown(&client); }

    void plug(std::uint32_t port, const std::string &chassis, const std::string &uplink) {
        vswitch::Device endpoint;
        endpoint.name = "ubex " + std::to_string(port);
        endpoint.port = port;
        endpoint.macs = {vswitch::Mac::parse("A8:D2:36:00:00:00")->plus(port)};
        endpoint.lldp.emplace();
        endpoint.lldp->chassisId = chassis;
        endpoint.lldp->portDesc = uplink;
        endpoint.lldp->systemDesc = "UBEX-PRO20";
        device.with([&](vswitch::Server &server) { return server.model().plug(endpoint); });
    }
    std::uint64_t calls() {
        return device.with([](vswitch::Server &server) { return server.callTotal(); });
    }
    bool complete() {
        return device.with([](vswitch::Server &server) {
            const auto &model = server.model();
            const auto *lag = model.interface(model.lagIfNum(1));
            return lag->members.size() == 2 && lag->pvid == kVlan && model.membership(lag->num, 286).tagged;
        });
    }

    // Every read the cycle is made of, once.
    void bareReads() {
        findVlanOfProfileType(&client, PROFILE_TYPE_NAME_LIGHTWARE, LIGHTWARE_TAGGED_VLAN);
        std::uint32_t size = 0;
        rpcclt_openapiLldpMgmtStrLenGet(&client, &size);
        char text[256];
        for (std::uint32_t port = 0; rpcclt_openapiLldpIntfNextGet(&client, port, &port) == OPEN_E_NONE;) {
            std::uint32_t pvid = 0, index = 0, stamp = 0, subtype = 0;
            openapiVlanIfPvidGet(&client, port, &pvid);
            while (rpcclt_openapiLldpIntfRemoteDeviceNextGet(&client, port, &index, &stamp) == OPEN_E_NONE) {
                open_buffdesc out{sizeof text, text};
                rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(&client, port, index, stamp, &out);
                out.size = sizeof text;
                rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(&client, port, index, stamp, &subtype, &out);
                out.size = sizeof text;
                rpcclt_openapiLldpIntfRemoteDevicePortDescGet(&client, port, index, stamp, &out);
            }
        }
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
    DeviceList<LightwareLink> list;
};

template <class Work>
void countCycle(benchmark::State &state, Work work) {
    Projection projection;
    for (std::uint32_t port = 1; port <= kPorts; ++port)
        projection.plug(port, "A8:D2:36:01:00:" + std::to_string(10 + port), "1");
    lightwareLookup(&projection.client, &projection.list);
    const auto before = projection.calls();
    for (auto _ : state)
        work(&projection);
    state.counters["calls"] =
        static_cast<double>(projection.calls() - before) / static_cast<double>(state.iterations());
}

void lightwareCycle(benchmark::State &state) {
    countCycle(state, [](Projection *projection) {
        // As the thread does: the profile first, then the lookup.
        if (checkReason(lightwareDetection.loop, &projection->client) == Presence::Present)
            lightwareLookup(&projection->client, &projection->list);
    });
}

void lightwareBareReads(benchmark::State &state) {
    countCycle(state, [](Projection *projection) { projection->bareReads(); });
}

// Two uplinks plugged in at once; the argument is the switch's latency in milliseconds, waited for on the
// real clock.
void lightwareOnline(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto projection = std::make_unique<Projection>(static_cast<int>(state.range(0)));
        projection->plug(1, "A8:D2:36:01:00:01", "1");
        projection->plug(2, "A8:D2:36:01:00:01", "2");
        const auto before = projection->calls();
        state.ResumeTiming();
        int scans = 0;
        for (; scans < 5 && !projection->complete(); ++scans)
            lightwareLookup(&projection->client, &projection->list);
        state.PauseTiming();
        state.counters["scans"] = scans;
        state.counters["calls"] = static_cast<double>(projection->calls() - before);
        projection.reset();
        state.ResumeTiming();
    }
}

BENCHMARK(lightwareBareReads)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(lightwareCycle)->Unit(benchmark::kMicrosecond)->Repetitions(3);
BENCHMARK(lightwareOnline)->Arg(0)->Arg(1000)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);

[[maybe_unused]] const bool registered = [] {
    bench::counterRatio("OpEN calls: Lightware cycle, 48 endpoints / bare reads (1.1 wanted)",
                        "lightwareCycle", "lightwareBareReads", "calls");
    return true;
}();

}  // namespace
