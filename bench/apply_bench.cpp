// A four-VLAN profile on 48 ports: OpEN calls, scripts and the switch's time, against one setter per port and
// VLAN; and what the record of what was before adds to it, against the same apply without its writes: two
// files written to the disk, and no call. How long that takes is up to the disk below the current folder.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "bench/ratio.h"
#include "common/files.h"
#include "platform/paths.h"
#include "profile/apply_ops.h"
#include "profile/record.h"
#include "swapi/vlan_membership.h"
#include "vswitch/inprocess.h"

namespace {

bool recordIsWritten = true;
std::uint32_t recordWrites = 0;
std::chrono::duration<double, std::milli> recordTime{};

}  // namespace

// The linker sends the calls of `writeProfileRecord` here (bench/CMakeLists.txt); the second one is itself.
pavo::Result<> interceptRecord(const pavo::ProfileRecord &record,
                               pavo::Where where) asm("__wrap_" PAVO_WRITE_RECORD);
pavo::Result<> reallyWriteRecord(const pavo::ProfileRecord &record,
                                 pavo::Where where) asm("__real_" PAVO_WRITE_RECORD);

pavo::Result<> interceptRecord(const pavo::ProfileRecord &record, pavo::Where where) {
    ++recordWrites;
    if (!recordIsWritten)
        return {};
    const auto begin = std::chrono::steady_clock::now();
    auto written = reallyWriteRecord(record, where);
    recordTime += std::chrono::steady_clock::now() - begin;
    return written;
}

namespace {

using namespace pavo;

constexpr std::uint32_t kPorts = 48;
constexpr std::uint32_t kVlans = 4;

// Port p is untagged in VLAN 20 + p % 4 and tagged in the next one.
std::uint32_t untaggedVlan(std::uint32_t port) {
    return 20 + port % kVlans;
}
std::uint32_t taggedVlan(std::uint32_t port) {
    return 20 + (port + 1) % kVlans;
}

std::string portList(std::uint32_t vlan, std::uint32_t (*of)(std::uint32_t)) {
    std::string out;
    for (std::uint32_t port = 1; port <= kPorts; ++port)
        if (of(port) == vlan)
            out += (out.empty() ? "" : ",") + std::to_string(port);
    return out;
}

std::string request() {
    std::string vlans;
    for (std::uint32_t vlan = 20; vlan < 20 + kVlans; ++vlan)
        vlans += (vlans.empty() ? "" : ",") + std::string(R"({"vlanId":)") + std::to_string(vlan) +
                 R"(,"vlanType":1,"ports":{"untagged":[)" + portList(vlan, untaggedVlan) + R"(],"tagged":[)" +
                 portList(vlan, taggedVlan) + "]}}";
    return R"({"profileConfig":{"name":"Big","color":"#081855","profileType":"Audio Dante","vlanNum":4,"vlans":[)" +
           vlans + "]}}";
}

struct Installation {
    explicit Installation(std::int64_t latencyMs) {
        const auto templates = platform::fsPath(platform::paths::kProfileTemplateDir);
        std::filesystem::create_directories(templates);
        std::filesystem::copy(PAVO_DATA_DIR "/profileTemplate", templates,
                              std::filesystem::copy_options::overwrite_existing);
        bench::freshTable();
        removeFile(platform::paths::kProfileRecord);
        std::filesystem::remove_all(platform::fsPath(platform::paths::kVlanProfileConfigDir));
        recordWrites = 0;
        recordTime = {};
        openapiClientRegister("bench", &client);
        device.with([&](vswitch::Server &server) {
            server.model().setLatency(std::chrono::milliseconds(latencyMs));
            server.resetCounts();
        });
    }
    ~Installation() { openapiClientTearDown(&client); }

    void report(benchmark::State &state) {
        device.with([&](vswitch::Server &server) {
            const auto &counts = server.callCounts();
            const auto scripts = counts.find("rpcclt_openapiTxtCfgApply");
            state.counters["calls"] = static_cast<double>(server.callTotal());
            state.counters["scripts"] = scripts == counts.end() ? 0.0 : static_cast<double>(scripts->second);
        });
        state.counters["records"] = recordWrites;
        state.counters["recordMs"] = recordTime.count();
    }

    vswitch::InProcessSwitch device;
    openapiClientHandle_t client{};
};

void apply(benchmark::State &state, bool withRecord) {
    for (auto _ : state) {
        state.PauseTiming();
        auto one = std::make_unique<Installation>(state.range(0));
        const auto text = request();
        recordIsWritten = withRecord;
        state.ResumeTiming();
        if (profileConfigSet(&one->client, text.c_str()) != 0)
            state.SkipWithError("apply failed");
        state.PauseTiming();
        recordIsWritten = true;
        if (recordWrites == 0)
            state.SkipWithError("the record's writes were not intercepted");
        if (withRecord != fileExists(platform::paths::kProfileRecord))
            state.SkipWithError("the record is not as it was to be");
        one->report(state);
        one.reset();
        state.ResumeTiming();
    }
}

void applyProfile(benchmark::State &state) {
    apply(state, true);
}
void applyUnrecorded(benchmark::State &state) {
    apply(state, false);
}

void configureOneByOne(openapiClientHandle_t *client) {
    const Switch sw(client);
    for (std::uint32_t vlan = 20; vlan < 20 + kVlans; ++vlan)
        rpcclt_openapiVlanCreate(client, vlan);
    bool done = true;
    for (std::uint32_t number = 1; number <= kPorts; ++number) {
        const IfNum port(number);
        const VlanId untagged = *VlanId::from(untaggedVlan(number));
        const VlanId tagged = *VlanId::from(taggedVlan(number));
        for (const auto &[id, tagging] :
             {std::pair(untagged, Tagging::Untagged), std::pair(tagged, Tagging::Tagged)})
            done = setParticipationAndVerify(sw, port, id, Participation::Include) &&
                   setTaggingAndVerify(sw, port, id, tagging) && done;
        done = setPvidAndVerify(sw, port, untagged) &&
               setParticipationAndVerify(sw, port, kDefaultVlan, Participation::Auto) && done;
    }
    if (!done)
        throw std::runtime_error("a setter failed");
}

// What the same membership costs with one verified setter each.
void applyOneByOne(benchmark::State &state) {
    for (auto _ : state) {
        state.PauseTiming();
        auto one = std::make_unique<Installation>(state.range(0));
        state.ResumeTiming();
        configureOneByOne(&one->client);
        state.PauseTiming();
        one->report(state);
        one.reset();
        state.ResumeTiming();
    }
}

// Latency 0 and 100 ms, which all of them wait for on the real clock.
BENCHMARK(applyOneByOne)->Arg(0)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(applyProfile)->Arg(0)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(25);
BENCHMARK(applyUnrecorded)->Arg(0)->Arg(100)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(25);

[[maybe_unused]] const bool registered = [] {
    bench::counterRatio("OpEN calls: one setter per port and VLAN / profile apply (5 or more wanted)",
                        "applyOneByOne/0", "applyProfile/0", "calls");
    bench::ratio("Profile apply / one by one, latency 100 ms", "applyProfile/100", "applyOneByOne/100", 0);
    bench::counterRatio("OpEN calls: profile apply with record / without (1 wanted)", "applyProfile/0",
                        "applyUnrecorded/0", "calls");
    bench::ratio("Profile apply with record / without, latency 0", "applyProfile/0", "applyUnrecorded/0", 0);
    bench::ratio("Profile apply with record / without, latency 100 ms", "applyProfile/100",
                 "applyUnrecorded/100", 0);
    return true;
}();

}  // namespace
