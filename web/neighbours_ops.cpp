#include "web/neighbours_ops.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "common/json.h"
#include "common/log.h"
#include "store/producers.h"
#include "store/response_cache.h"
#include "web/answer_builder.h"

namespace pavo {
namespace {

// What surrounds the rows of a page.
constexpr std::size_t kPageFrame = 384;
constexpr std::size_t kPageStart = 16384;  // bytes
constexpr std::size_t kPageGrowth = 4;     // times; memory that nobody has written to costs nothing

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

// A page as it grows, in the memory that its caller gets: it is several megabytes long, and copies would cost
// more than its rows do.
class Page : public RowSink {
  public:
    Page() { append("{\"rows\":["); }

    TextPtr finish(const NeighbourTiming &timing) {
        char tail[kPageFrame];
        const int length = std::snprintf(
            tail, sizeof tail,
            "],\"indexPage\":1,\"pageSize\":%d,\"total\":%d,\"_timing\":{\"arp_ms\":%.2f,\"portTable_ms\":%."
            "2f,"
            "\"lldp_ms\":%.2f,\"fdb_ms\":%.2f,\"arpCount\":%zu,\"fdbCount\":%d,\"lldpCount\":%zu}}",
            static_cast<int>(rowCount()), static_cast<int>(rowCount()), millisecondsOf(timing.arp),
            millisecondsOf(timing.portTable), millisecondsOf(timing.lldp),
            millisecondsOf(timing.forwardingTable), timing.arpCount,
            static_cast<int>(timing.forwardingTableCount), timing.lldpCount);
        append({tail, static_cast<std::size_t>(length)});
        text_.get()[length_] = '\0';
        return std::move(text_);
    }

  private:
    bool take(std::string_view row) override {
        if (rowCount() > 0)
            append(",");
        append(row);
        return true;
    }

    void append(std::string_view text) {
        if (length_ + text.size() + 1 > room_)
            grow(std::max({kPageStart, kPageGrowth * room_, length_ + text.size() + 1}));
        length_ += text.copy(text_.get() + length_, text.size());
    }
    void grow(std::size_t room) {
        auto *const larger = static_cast<char *>(std::realloc(text_.get(), room));
        if (larger == nullptr)
            throw std::bad_alloc();
        static_cast<void>(text_.release());
        text_.reset(larger);
        room_ = room;
    }

    TextPtr text_;
    std::size_t room_ = 0;
    std::size_t length_ = 0;
};

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
        json += "],\"recognized\":[";
        for (const auto &vendor : port.recognised) {
            json += json.back() == '[' ? "\"" : ",\"";
            appendEscaped(json, vendor);
            json += '"';
        }
        json += "]}";
    }
    return json + "]}";
}

// The code of what `build` returns; 10000 (logged) when it runs out of memory.
template <class Build>
std::int32_t withinMemory(const Where &where, Build build) {
    try {
        return build();
    } catch (const std::bad_alloc &) {
        logError(where, "[%s:%d] out of memory\n");
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
    return withinMemory(where, [&] {
        std::string row;
        const auto add = [&](const NeighbourLine &neighbour) {
            if (printNeighbourRow(neighbour, row))
                sink.add(row);
        };
        const auto read = readNeighbours(client, vendorTable(), add, timing, where);
        return codeOf(read ? sink.error() : read.error().code);
    });
}

std::int32_t neighborPageGet(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    return withinMemory(where, [&] {
        Page page;
        NeighbourTiming timing;
        const std::int32_t code = neighborRowsBuild(client, page, timing);
        if (code == 0)
            *json = page.finish(timing).release();
        return code;
    });
}

std::int32_t neighborChunksBuild(openapiClientHandle_t *client) {
    const Where where = std::source_location::current();
    return withinMemory(where, [&] {
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
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    return withinMemory(where, [&] {
        const auto ports = readPortVendors(client, vendorTable(), where);
        return ports ? handOut(vendorsJson(*ports), json) : codeOf(ports.error().code);
    });
}

}  // namespace pavo
