// The neighbour page against the bare walks that it consists of, and its growth with the number of devices.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "bench/ratio.h"
#include "common/json.h"
#include "platform/paths.h"
#include "vswitch/inprocess.h"
#include "web/neighbours_ops.h"

namespace {

using namespace pavo;

constexpr std::uint32_t kFdbEntries = 16384;
constexpr std::uint32_t kArpEntries = 4096;
constexpr std::uint32_t kPorts = 896;
constexpr std::uint32_t kNeighboursPerPort = 2;
constexpr std::uint32_t kVendors = 30000;
constexpr std::uint32_t kTextSize = 256;

// As many vendors as there are in the world, the addresses below among them.
void writeVendors() {
    const std::filesystem::path path = platform::fsPath(platform::paths::kVendorDb);
    if (std::filesystem::exists(path))
        return;
    std::filesystem::create_directories(path.parent_path());
    sqlite3 *db = nullptr;
    std::string sql = "CREATE TABLE oui (mac, vendor); BEGIN;";
    for (std::uint32_t n = 0; n < kVendors; ++n) {
        char row[100];
        std::snprintf(row, sizeof row, "INSERT INTO oui VALUES ('%02X:%02X:%02X', 'Vendor number %u');",
                      n >> 11 << 2, n >> 3 & 255, n & 7, n);
        sql += row;
    }
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK ||
        sqlite3_exec(db, (sql + "COMMIT;").c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
        std::abort();
    sqlite3_close(db);
}

vswitch::Mac macOf(std::uint32_t n) {
    return vswitch::Mac::parse("00:00:00:00:00:00")->plus((n % 1000) << 16 | n / 1000);
}

// `heard` devices that announce themselves, round the ports, and other hosts up to `devices`.
struct Installation {
    Installation(std::uint32_t ports, std::uint32_t heard, std::uint32_t devices, std::uint32_t arp)
        : device(configOf(ports)) {
        openapiClientRegister("bench", &client);
        writeVendors();
        device.with([&](vswitch::Server &server) {
            std::map<vswitch::ArpKey, vswitch::Mac> addresses;
            for (std::uint32_t n = 0; n < devices; ++n) {
                vswitch::Device box;
                box.name = "device " + std::to_string(n);
                box.port = n % ports + 1;
                box.macs = {macOf(n)};
                if (n < heard) {
                    auto &lldp = box.lldp.emplace();
                    lldp.chassisId = box.macs.front().text();
                    lldp.portIdSubtype = 5;
                    lldp.portId = "eth0";
                    lldp.systemName = box.name;
                }
                if (n < arp)
                    addresses[{1, "10.0." + std::to_string(n / 256) + "." + std::to_string(n % 256)}] =
                        box.macs.front();
                server.model().plug(std::move(box));
            }
            server.model().seeArp(std::move(addresses));
        });
    }
    ~Installation() { openapiClientTearDown(&client); }

    static vswitch::ModelConfig configOf(std::uint32_t ports) {
        vswitch::ModelConfig config;
        config.physicalPorts = ports;
        config.lags = 0;
        return config;
    }

    void page() {
        char *text = nullptr;
        if (neighborPageGet(&client, &text) != 0)
            std::abort();
        benchmark::DoNotOptimize(TextPtr(text));
    }

    // The calls of a page, and nothing else.
    void bareWalks() {
        char mac[100] = "";
        char text[kTextSize] = "";
        open_buffdesc macText{sizeof mac, mac};
        std::uint32_t vlan = 0, ip = 0, ifNum = 0, number = 0;
        while (rpcclt_openapiArpEntryNextGet(&client, &vlan, &ip, &macText) == OPEN_E_NONE)
            macText.size = sizeof mac;
        const auto eachPort = [&](auto visit) {
            auto code = rpcclt_openapiIfFirstGet(&client, OPEN_INTF_TYPE_PHY, &ifNum);
            for (; code == OPEN_E_NONE;
                 code = rpcclt_openapiIfNextGet(&client, OPEN_INTF_TYPE_PHY, ifNum, &ifNum))
                if (ifNum < kNeighbourPorts)
                    visit();
        };
        eachPort([&] {
            std::uint32_t slot = 0, port = 0;
            open_buffdesc name{sizeof text, text};
            rpcclt_openapiDot1qSwPortModeGet(&client, ifNum, &number);
            rpcclt_openapiHashIntfUnitSlotPortGet(&client, ifNum, &number, &slot, &port);
            openapiIfNameGet(&client, ifNum, &name);
            openapiVlanIfPvidGet(&client, ifNum, &number);
            openapiIfLinkStateGet(&client, ifNum, &number);
        });
        rpcclt_openapiLldpMgmtStrLenGet(&client, &number);
        eachPort([&] {
            std::uint32_t index = 0, stamp = 0;
            while (rpcclt_openapiLldpIntfRemoteDeviceNextGet(&client, ifNum, &index, &stamp) == OPEN_E_NONE) {
                const auto fresh = [&] { return open_buffdesc{sizeof text, text}; };
                open_buffdesc out = fresh();
                std::uint32_t family = 0;
                rpcclt_openapiLldpIntfRemoteDeviceChassisIdGet(&client, ifNum, index, stamp, &number, &out);
                out = fresh();
                rpcclt_openapiLldpIntfRemoteDevicePortIdGet(&client, ifNum, index, stamp, &number, &out);
                out = fresh();
                rpcclt_openapiLldpIntfRemoteDeviceSystemNameGet(&client, ifNum, index, stamp, &out);
                out = fresh();
                text[0] = '\0';
                rpcclt_openapiLldpIntfRemoteDeviceMgmtAddressNextGet(&client, ifNum, index, stamp, &family,
                                                                     &out);
            }
        });
        mac[0] = '\0';
        vlan = 0;
        macText.size = sizeof mac;
        while (rpcclt_openapiFdbEntryNextGet(&client, &macText, &vlan, &ifNum, &number) == OPEN_E_NONE)
            macText.size = sizeof mac;
    }

    std::uint64_t calls() {
        return device.with([](vswitch::Server &server) { return server.callTotal(); });
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
};

void neighbourPage(benchmark::State &state) {
    Installation installation(kPorts, kPorts * kNeighboursPerPort, kFdbEntries, kArpEntries);
    // Both sides make the same calls, or the comparison is none.
    installation.page();
    const std::uint64_t page = installation.calls();
    installation.bareWalks();
    if (installation.calls() != 2 * page) {
        std::fprintf(stderr, "bench: %llu calls of the page, %llu of the walks\n",
                     static_cast<unsigned long long>(page),
                     static_cast<unsigned long long>(installation.calls() - page));
        std::abort();
    }
    for (auto _ : state)
        installation.page();
}

void neighbourWalks(benchmark::State &state) {
    Installation installation(kPorts, kPorts * kNeighboursPerPort, kFdbEntries, kArpEntries);
    // The switch allocates from the same heap, which is to be as a page leaves it.
    installation.page();
    for (auto _ : state)
        installation.bareWalks();
}

void neighbourPageOfDevices(benchmark::State &state) {
    const auto devices = static_cast<std::uint32_t>(state.range(0));
    Installation installation(48, devices / 2, devices, devices);
    for (auto _ : state)
        installation.page();
}

BENCHMARK(neighbourPage)->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(5);
BENCHMARK(neighbourWalks)->Unit(benchmark::kMillisecond)->Iterations(5)->Repetitions(5);
BENCHMARK(neighbourPageOfDevices)
    ->Arg(700)
    ->Arg(7000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10)
    ->Repetitions(5);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Neighbour page, full tables / the bare walks it makes", "neighbourPage", "neighbourWalks",
                 1.3);
    bench::ratio("Neighbour page, 7,000 / 700 devices, per device (linear: 1)", "neighbourPageOfDevices/7000",
                 "neighbourPageOfDevices/700", 1.25, 10.0);
    return true;
}();

}  // namespace
