// One cycle of all device families and of vendor recognition, against bare walks of the forwarding table: one for each
// family. Whoever wants to know who is on the network cannot do with less.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/ratio.h"
#include "common/files.h"
#include "detection/registry.h"
#include "platform/paths.h"
#include "store/profile_db.h"
#include "store/profile_types.h"
#include "vswitch/inprocess.h"

namespace {

using namespace pavo;
namespace paths = platform::paths;

constexpr std::uint32_t kFdbEntries = 16384, kDevices = 700;
constexpr std::uint32_t kPerFamily = 172;  // of Audac, Shure, Harman and Telos; the others are Lightware's
constexpr std::uint32_t kLightware = kDevices - 4 * kPerFamily;
constexpr std::uint32_t kMics = 10;     // ports of Shure, from 21 on
constexpr std::uint32_t kUplinks = 31;  // and of Lightware
constexpr int kFamilies = 6;

void write(const std::string &path, const std::string &text) {
    const std::string real = platform::fsPath(path);
    std::filesystem::create_directories(std::filesystem::path(real).parent_path());
    std::ofstream(real) << text;
}

vswitch::Device hosts(const std::string &name, std::uint32_t port, const char *firstMac,
                      std::uint32_t count) {
    vswitch::Device device;
    device.name = name;
    device.port = port;
    for (std::uint32_t n = 0; n < count; ++n)
        device.macs.push_back(vswitch::Mac::parse(firstMac)->plus(n));
    return device;
}

// A switch with a full forwarding table and the devices of all families, which have joined.
struct Installation {
    Installation() {
        openapiClientRegister("bench", &client);
        bench::freshTable();
        const std::tuple<int, int, const char *> vlans[] = {
            {10, 2, PROFILE_TYPE_NAME_AUDAC},    {20, 3, PROFILE_TYPE_NAME_AUDAC},
            {30, 2, PROFILE_TYPE_NAME_HARMAN},   {31, 3, PROFILE_TYPE_NAME_HARMAN},
            {32, 4, PROFILE_TYPE_NAME_HARMAN},   {40, 2, PROFILE_TYPE_NAME_TELOS},
            {41, 3, PROFILE_TYPE_NAME_TELOS},    {50, 1, PROFILE_TYPE_NAME_SHURE_SPLIT},
            {60, 1, PROFILE_TYPE_NAME_LIGHTWARE}};
        device.with([&](vswitch::Server &server) {
            for (const auto &[vlan, role, type] : vlans)
                server.model().createVlan(static_cast<vswitch::VlanId>(vlan));
            for (const vswitch::VlanId vlan : {51, 286})
                server.model().createVlan(vlan);
            server.cli().runScript(
                "configure\nip access-list NET-BLOCK\ndeny ip any 239.0.0.0 0.255.255.255\n"
                "exit\nexit\n");
            plugDevices(server);
        });
        for (const auto &[vlan, role, type] : vlans)
            static_cast<void>(replaceProfileRow({.id = vlan,
                                                 .vlanType = role,
                                                 .profileName = type,
                                                 .profileType = type,
                                                 .color = "#000000"}));
        write(paths::kAudacConfig, R"({"audioVlanID": 20, "audacDevicePort": [5]})");
        write(paths::kShureConfig, R"({"shureDevicePort":[21,22,23,24,25,26,27,28,29,30],"audioVlanID":51,)"
                                   R"("controlVlanID":50})");
        for (const DetectionRow *const row : {&rowOf("harman"), &rowOf("telos")})
            write(detectionConfigPath(*row),
                  R"({"profileConfig":{"vlans":[{"ports":{"assignedPort":[6,7]}}]}})");
        for (int n = 0; n < 3; ++n)
            cycle();
        std::size_t joined = 0, members = 0;
        device.with([&](vswitch::Server &server) {
            joined = server.model().macAssociations().size();
            for (const auto &[num, interface] : server.model().interfaces())
                members += interface.members.size();
        });
        if (joined != kDevices - kLightware || members != kLightware) {
            std::fprintf(stderr, "bench: %zu devices and %zu uplinks have joined\n", joined, members);
            std::abort();
        }
    }
    ~Installation() {
        // Families know their devices for as long as the process lives.
        for (const DetectionRow *const row : detectionRows())
            if (row->loop.end != nullptr)
                row->loop.end(&client, std::source_location::current());
        for (const char *const file : {paths::kAudacConfig, paths::kShureConfig, paths::kNetBlockPorts})
            removeFile(file);
        openapiClientTearDown(&client);
    }

    static void plugDevices(vswitch::Server &server) {
        auto &model = server.model();
        auto control = hosts("control", 5, "00:1B:92:01:00:01", 1);
        control.lldp.emplace();
        control.lldp->chassisId = control.macs.front().text();
        control.lldp->systemDesc = "Audac control unit";
        model.plug(control);
        auto audio = hosts("audio", 5, "00:1B:92:02:00:00", kPerFamily);
        audio.behind = "control";
        model.plug(audio);
        model.plug(hosts("harman", 6, "00:0F:D4:00:00:00", kPerFamily));
        model.plug(hosts("telos", 7, "58:50:AB:00:00:00", kPerFamily));
        for (std::uint32_t n = 0; n < kPerFamily; ++n) {
            auto mic = hosts("mic" + std::to_string(n), 21 + n % kMics, "00:0E:DD:00:00:00", 1);
            mic.macs.front() = mic.macs.front().plus(n);
            mic.lldp.emplace();
            mic.lldp->portId = mic.macs.front().text();
            mic.lldp->chassisId = vswitch::Mac::parse("02:0E:DD:00:00:00")->plus(n).text();
            mic.lldp->systemDesc = "Shure MXA920";
            model.plug(mic);
        }
        for (std::uint32_t n = 0; n < kLightware; ++n) {
            const std::uint32_t port = kUplinks + n;
            server.cli().runScript("configure\ninterface 0/" + std::to_string(port) +
                                   "\nvlan participation include 60\nvlan pvid 60\nexit\nexit\n");
            auto uplink = hosts("uplink" + std::to_string(n), port, "A8:D2:36:00:00:00", 1);
            uplink.macs.front() = uplink.macs.front().plus(n);
            uplink.lldp.emplace();
            uplink.lldp->chassisId = "ubex-" + std::to_string(n / 2);
            uplink.lldp->portDesc = std::to_string(n % 2 + 1);
            uplink.lldp->systemDesc = "UBEX-PRO20";
            model.plug(uplink);
        }
        const auto known = static_cast<std::uint32_t>(model.fdb().size());
        model.plug(hosts("crowd", 48, "02:00:00:00:00:00", kFdbEntries - known));
    }

    static const DetectionRow &rowOf(const std::string &name) {
        for (const DetectionRow *const row : detectionRows())
            if (row->name == name)
                return *row;
        std::abort();
    }

    // What the threads do once a period.
    void cycle() {
        const Where where = std::source_location::current();
        for (const DetectionRow *const row : detectionRows()) {
            if (row->name == std::string("profile keeper"))
                continue;
            if (checkReason(row->loop, &client) != Presence::Present)
                std::abort();
            if (cycles == 0 && row->loop.begin != nullptr && !row->loop.begin(&client, where))
                std::abort();
            row->loop.cycle(&client, where);
        }
        ++cycles;
    }

    void bareWalk() {
        char mac[100] = "";
        std::uint32_t vlan = 0, ifNum = 0, type = 0;
        open_buffdesc text{sizeof mac, mac};
        while (rpcclt_openapiFdbEntryNextGet(&client, &text, &vlan, &ifNum, &type) == OPEN_E_NONE)
            text.size = sizeof mac;
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
    int cycles = 0;
};

void familiesCycle(benchmark::State &state) {
    Installation installation;
    for (auto _ : state)
        installation.cycle();
}

void familiesBareWalks(benchmark::State &state) {
    Installation installation;
    for (auto _ : state)
        for (int family = 0; family < kFamilies; ++family)
            installation.bareWalk();
}

BENCHMARK(familiesBareWalks)->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(5);
BENCHMARK(familiesCycle)->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(5);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Cycle of six families and recognition, 16,384 entries, 700 devices / six bare walks",
                 "familiesCycle", "familiesBareWalks", 1.3);
    return true;
}();

}  // namespace
