#include "detection/recognition.h"

#include <pthread.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <utility>
#include <vector>

#include "common/files.h"
#include "common/log.h"
#include "detection/oui_table.h"
#include "platform/paths.h"
#include "store/recognition.h"

namespace pavo {
namespace {

struct Knowledge {
    std::shared_mutex mutex;
    PortNeighbourTable neighbours;  // of ports with link
    std::vector<RecognisedDevice> devices;
    // Whether nothing has failed in the last look, and in this one so far.
    bool wasWhole = true, isWhole = true;
};

// Never destroyed: the thread may run until the process is gone.
Knowledge &knowledge() {
    static auto *const instance = new Knowledge;
    return *instance;
}

std::atomic<std::int32_t> running{0};

// Once, until a look has been whole again: a switch that is away for hours is looked at all the time.
void logBroken(const char *table, OpenError error, const Where &where) {
    Knowledge &known = knowledge();
    if (std::exchange(known.isWhole, false) && known.wasWhole)
        logWarn(where, "[%s:%d] vendor recognition: the %s cannot be read to the end (result = %d)\r\n",
                table, error);
}

PortNeighbourTable readPorts(Switch sw, PortNeighbourTable known, const Where &where) {
    PortNeighbourTable now;
    NeighbourReader reader(sw, recognitionNeighbours);
    auto ports = sw.ports();
    for (const IfNum port : ports) {
        auto before = known.extract(port);
        const auto link = sw.hasLink(port);
        if (link && !*link)
            continue;
        PortNeighbours read;
        if (link)
            read = reader.read(port, where);
        if (link && read.outcome)
            now.emplace(port, std::move(read.neighbours));
        else if (!before.empty())
            now.insert(std::move(before));
    }
    if (const auto error = ports.brokenBy()) {
        logBroken("ports", *error, where);
        now.merge(known);
    }
    return now;
}

// Nothing when the table cannot be read to its end.
std::optional<std::vector<RecognisedDevice>> readDevices(Switch sw, const Where &where) {
    std::vector<RecognisedDevice> devices;
    auto table = sw.forwardingTable(where);
    for (const auto &[mac, vlan, port, learned] : table)
        if (const OuiRow *const oui = findOui(mac))
            devices.push_back({mac, port, oui->vendor});
    if (const auto error = table.brokenBy()) {
        logBroken("forwarding table", *error, where);
        return std::nullopt;
    }
    return devices;
}

void writeFileOf(const std::vector<RecognisedDevice> &devices, const Where &where) {
    std::vector<RecognisedVendor> vendors;
    vendors.reserve(devices.size());
    for (const auto &[mac, port, vendor] : devices)
        vendors.push_back({port, vendor});
    if (const std::string text = printRecognition(vendors); !text.empty())
        static_cast<void>(replaceFile(platform::paths::kRecognition, text, where));
    else
        logError(where, "[%s:%d] Could not allocate memory.\r\n");
}

constexpr NeighbourField kNeighbourReads[] = {NeighbourField::ChassisId, NeighbourField::PortId,
                                              NeighbourField::SystemDesc, NeighbourField::SystemName};

}  // namespace

constinit const NeighbourFamily recognitionNeighbours = {.reads = kNeighbourReads};

constinit const DetectionRow vendorRecognition = {
    .name = "vendor recognition",
    .loop = {.texts = {},
             .period = std::chrono::seconds(15),
             .pause = Pause::AfterCycle,
             .cycle = [](Switch sw, const Where &where) { recogniseVendors(sw, where); }},
    .entry = recognise_vendors_thread,
    .running = &running,
};

void *recognise_vendors_thread(void *clientHandle) {
    runDetection(vendorRecognition, clientHandle);
    pthread_exit(nullptr);
}

void recogniseVendors(Switch sw, Where where) {
    Knowledge &known = knowledge();
    const std::unique_lock lock(known.mutex);
    known.wasWhole = std::exchange(known.isWhole, true);
    known.neighbours = readPorts(sw, known.neighbours, where);
    if (auto devices = readDevices(sw, where)) {
        known.devices = std::move(*devices);
        writeFileOf(known.devices, where);
    }
}

std::vector<RecognisedDevice> recognisedDevices() {
    const std::shared_lock lock(knowledge().mutex);
    return knowledge().devices;
}

PortNeighbourTable recognisedNeighbours() {
    const std::shared_lock lock(knowledge().mutex);
    return knowledge().neighbours;
}

}  // namespace pavo
