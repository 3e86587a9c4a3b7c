// One Audac cycle against the bare walk of the tables it reads, through the same in-process client.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "bench/ratio.h"
#include "common/device_list.h"
#include "detection/audac.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "vswitch/inprocess.h"

namespace {

using namespace pavo;

constexpr std::uint32_t kFdbEntries = 16384;
constexpr std::uint32_t kAudacPort = 5, kOtherPort = 7;

vswitch::Device crowd(const char *name, std::uint32_t port, const char *firstMac, std::uint32_t count) {
    vswitch::Device device;
    device.name = name;
    device.port = port;
    for (std::uint32_t n = 0; n < count; ++n)
        device.macs.push_back(vswitch::Mac::parse(firstMac)->plus(n));
    return device;
}

// A switch with a full forwarding table, of which `devices` entries are audio devices that the list knows.
struct Installation {
    explicit Installation(std::uint32_t devices) {
        openapiClientRegister("bench", &client);
        device.with([&](vswitch::Server &server) {
            auto &model = server.model();
            model.createVlan(10);
            model.createVlan(20);
            auto control = crowd("control", kAudacPort, "00:1B:92:01:00:01", 1);
            control.lldp.emplace();
            control.lldp->chassisId = control.macs.front().text();
            control.lldp->systemDesc = "Audac control unit";
            model.plug(control);
            auto audio = crowd("audio", kAudacPort, "00:1B:92:02:00:00", devices);
            audio.behind = "control";
            model.plug(audio);
            model.plug(crowd("crowd", kOtherPort, "02:00:00:00:00:00", kFdbEntries - 1 - devices));
        });
        std::ofstream(platform::fsPath(platform::paths::kAudacConfig))
            << R"({"audioVlanID": 20, "audacDevicePort": [5]})";
        bench::freshTable();
        static_cast<void>(replaceProfileRow({.id = 10,
                                             .vlanType = 1,
                                             .profileName = "House",
                                             .profileType = PROFILE_TYPE_NAME_AUDAC,
                                             .color = "#000000"}));
        cycle();
        if (list.count() != devices) {
            std::fprintf(stderr, "bench: %zu of %u devices joined\n", list.count(), devices);
            std::abort();
        }
    }
    ~Installation() { openapiClientTearDown(&client); }

    void cycle() {
        if (audacValidityCheck(&client) == 0) {
            repairAudacLink(&client, &list);
            audacLookup(&client, &list);
        }
    }

    void bareWalk() {
        char mac[100] = "";
        std::uint32_t vlan = 0, ifNum = 0, type = 0;
        open_buffdesc text{sizeof mac, mac};
        while (rpcclt_openapiFdbEntryNextGet(&client, &text, &vlan, &ifNum, &type) == OPEN_E_NONE)
            text.size = sizeof mac;
        std::uint32_t length = 0;
        rpcclt_openapiLldpMgmtStrLenGet(&client, &length);
        for (std::uint32_t port = 0; rpcclt_openapiLldpIntfNextGet(&client, port, &port) == OPEN_E_NONE;) {
            if (port != kAudacPort)
                continue;
            std::uint32_t index = 0, stamp = 0, subtype = 0;
            char buffer[256];
            open_buffdesc out{sizeof buffer, buffer};
            while (rpcclt_openapiLldpIntfRemoteDeviceNextGet(&client, port, &index, &stamp) == OPEN_E_NONE) {
                rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(&client, port, index, stamp, &subtype, &out);
                out.size = sizeof buffer;
                rpcclt_openapiLldpIntfRemoteDevicePortIdGet(&client, port, index, stamp, &subtype, &out);
                out.size = sizeof buffer;
                rpcclt_openapiLldpIntfRemoteDeviceSystemDescGet(&client, port, index, stamp, &out);
                out.size = sizeof buffer;
            }
        }
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
    DeviceList<DetectedDevice> list;
};

void audacCycle(benchmark::State &state) {
    Installation installation(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state)
        installation.cycle();
}

void audacBareWalk(benchmark::State &state) {
    Installation installation(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state)
        installation.bareWalk();
}

BENCHMARK(audacBareWalk)->Arg(700)->Arg(7000)->Unit(benchmark::kMillisecond)->Iterations(20)->Repetitions(7);
BENCHMARK(audacCycle)->Arg(700)->Arg(7000)->Unit(benchmark::kMillisecond)->Iterations(20)->Repetitions(7);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Audac cycle, 16,384 entries, 700 devices / bare walk", "audacCycle/700",
                 "audacBareWalk/700", 1.25);
    bench::differenceRatio("Audac cycle less walk, 7,000 devices / 700 devices / 10 (linear: 1)",
                           "audacCycle/7000", "audacBareWalk/7000", "audacCycle/700", "audacBareWalk/700",
                           2.0, 10.0);
    return true;
}();

}  // namespace
