#include "web/neighbours_ops.h"

#include <cstdio>
#include <new>

#include "common/json.h"
#include "common/log.h"
#include "store/producers.h"
#include "store/response_cache.h"

namespace pavo {
namespace {

// What surrounds the rows of a page.
constexpr std::size_t kPageFrame = 384;

constexpr const char *kChunksKey = "neighbor_ex";

ChunkedList &neighbourChunks() {
    static ChunkedList list(kChunksKey, "lldpRemoteDevice");
    return list;
}

// The chunks of one run on their way into the response cache.
class CachedChunks {
  public:
    explicit CachedChunks(const Where &where) : where_(where) {}

    ChunkStore store() {
        return {[this](const std::string &key, const std::string &answer) {
                    ++touched_;
                    done_ = writeCachedAnswer(key, answer, where_).has_value() && done_;
                },
                [this](const std::string &key) {
                    ++touched_;
                    done_ = deleteCachedAnswer(key, where_).has_value() && done_;
                }};
    }

    // Erases what other processes have left behind these chunks. False when something of all this has failed.
    bool eraseRest() {
        for (; done_; ++touched_) {
            const std::string key = std::string(kChunksKey) + '/' + std::to_string(touched_);
            const auto left = readCachedAnswer(key, where_);
            if (left && !*left)
                break;
            done_ = left && deleteCachedAnswer(key, where_).has_value();
        }
        return done_;
    }

  private:
    Where where_;
    std::size_t touched_ = 0;
    bool done_ = true;
};

double millisecondsOf(platform::Duration time) {
    return static_cast<double>(time.count()) / 1000;
}

std::string pageOf(const PageSink &sink, const NeighbourTiming &timing) {
    char tail[kPageFrame];
    const int length = std::snprintf(
        tail, sizeof tail,
        "],\"indexPage\":1,\"pageSize\":%d,\"total\":%d,\"_timing\":{\"arp_ms\":%.2f,\"portTable_ms\":%.2f,"
        "\"lldp_ms\":%.2f,\"fdb_ms\":%.2f,\"arpCount\":%zu,\"fdbCount\":%d,\"lldpCount\":%zu}}",
        static_cast<int>(sink.rowCount()), static_cast<int>(sink.rowCount()), millisecondsOf(timing.arp),
        millisecondsOf(timing.portTable), millisecondsOf(timing.lldp), millisecondsOf(timing.forwardingTable),
        timing.arpCount, static_cast<int>(timing.forwardingTableCount), timing.lldpCount);
    std::string page = "{\"rows\":[";
    page.reserve(sink.rows().size() + kPageFrame);
    page += sink.rows();
    return page.append(tail, static_cast<std::size_t>(length));
}

std::string vendorsJson(const std::vector<PortVendors> &ports) {
    std::string json = "{\"ports\":[";
    for (const auto &port : ports) {
        json += json.back() == '[' ? "" : ",";
        json += "{\"port\":\"" + portText(port.port.place) + "\",\"portNum\":";
        json += std::to_string(port.port.place.port) + ",\"portName\":\"";
        appendEscaped(json, port.port.name);
        json += "\",\"unit\":" + std::to_string(port.port.place.unit);
        json += ",\"deviceCount\":" + std::to_string(port.devices) + ",\"vendors\":[";
        for (const auto &[vendor, count] : port.vendors) {
            json += json.back() == '[' ? "{\"vendor\":\"" : ",{\"vendor\":\"";
            appendEscaped(json, vendor);
            json += "\",\"deviceCount\":" + std::to_string(count) + "}";
        }
        json += "]}";
    }
    return json + "]}";
}

// The code of what `build` returns; 10000 when it runs out of memory.
template <class Build>
std::int32_t withinMemory(Build build) {
    try {
        return build();
    } catch (const std::bad_alloc &) {
        return codeOf(ResultCode::Failed);
    }
}

std::int32_t handOut(const std::string &text, char **json) {
    *json = newText(text);
    return codeOf(*json != nullptr ? ResultCode::Success : ResultCode::Failed);
}

}  // namespace

std::int32_t neighborRowsBuild(openapiClientHandle_t *client, RowSink &sink, NeighbourTiming &timing) {
    const Where where = std::source_location::current();
    return withinMemory([&] {
        std::string row;
        const auto add = [&](const Neighbour &neighbour) {
            if (printNeighbourRow(neighbour, row))
                sink.add(row);
        };
        const auto read = readNeighbours(client, vendorTable(), add, timing, where);
        return codeOf(read ? sink.error() : read.error().code);
    });
}

std::int32_t neighborPageGet(openapiClientHandle_t *client, char **json) {
    *json = nullptr;
    return withinMemory([&] {
        PageSink sink;
        NeighbourTiming timing;
        const std::int32_t code = neighborRowsBuild(client, sink, timing);
        return code == 0 ? handOut(pageOf(sink, timing), json) : code;
    });
}

std::int32_t neighborChunksBuild(openapiClientHandle_t *client) {
    const Where where = std::source_location::current();
    return withinMemory([&] {
        CachedChunks cache(where);
        ChunkSink sink(neighbourChunks(), cache.store(), where);
        NeighbourTiming timing;
        if (const std::int32_t code = neighborRowsBuild(client, sink, timing); code != 0)
            return code;
        if (const ResultCode finished = sink.finish(); finished != ResultCode::Success)
            return codeOf(finished);
        return codeOf(cache.eraseRest() ? ResultCode::Success : ResultCode::Failed);
    });
}

std::int32_t neighborListExChunkedPush(openapiClientHandle_t *client) {
    return neighborChunksBuild(client);
}

std::int32_t portVendorDetectBuild(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    return withinMemory([&] {
        const auto ports = readPortVendors(client, vendorTable(), where);
        return ports ? handOut(vendorsJson(*ports), json) : codeOf(ports.error().code);
    });
}

}  // namespace pavo
