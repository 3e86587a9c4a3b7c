#include "vlan/multicast_ops.h"

#include <string>
#include <utility>
#include <vector>

#include "common/json.h"
#include "common/log.h"
#include "common/text.h"
#include "store/response_cache.h"
#include "vlan/multicast.h"

namespace pavo {
namespace {

constexpr std::int32_t kSuccess = codeOf(ResultCode::Success);
constexpr std::int32_t kFailed = codeOf(ResultCode::Failed);
constexpr std::int32_t kInvalid = codeOf(ResultCode::InvalidArgument);

// Of all rows, the switch being one.
constexpr std::int32_t kUnit = 1;

constexpr const char *kGroupsKey = "multicast_groups_ex";

std::int32_t handOut(std::string_view text, char **json, const Where &where) {
    *json = newText(text);
    if (*json != nullptr)
        return kSuccess;
    logError(where, "[%s:%d] Failed to allocate memory\r\n");
    return kFailed;
}

// --- groups

// Some of the rows, and how many there are.
class WindowSink : public RowSink {
  public:
    // Rows `first` to `last`, from 1.
    WindowSink(std::int64_t first, std::int64_t last) : first_(first), last_(last) {}

    const std::string &rows() const { return rows_; }
    std::int32_t inside() const { return inside_; }

  private:
    bool take(std::string_view row) override {
        ++seen_;
        if (seen_ < first_ || seen_ > last_)
            return true;
        if (inside_++ > 0)
            rows_ += ',';
        rows_ += row;
        return true;
    }

    std::int64_t first_;
    std::int64_t last_;
    std::int64_t seen_ = 0;
    std::int32_t inside_ = 0;
    std::string rows_;
};

std::string pageText(std::int32_t index, std::int32_t returned, std::size_t total, const std::string &rows) {
    return formatText("{\"indexPage\":%d,\"pageSize\":%d,\"total\":%zu,\"rows\":[", index, returned, total) +
           rows + "]}";
}

// What reading them into the sink came to.
std::int32_t resultOf(const Result<> &read, const RowSink &sink) {
    return read ? codeOf(sink.error()) : codeOf(read);
}

// --- modes

bool addEntries(cJSON *object, const char *key, const std::vector<ModeEntry> &entries) {
    cJSON *const array = cJSON_AddArrayToObject(object, key);
    for (const ModeEntry &entry : entries) {
        cJSON *const item = cJSON_CreateObject();
        if (!cJSON_AddItemToArray(array, item) ||
            cJSON_AddNumberToObject(item, "portNum", entry.number) == nullptr ||
            cJSON_AddNumberToObject(item, "multicastMode", static_cast<std::int32_t>(entry.mode)) == nullptr)
            return false;
    }
    return array != nullptr;
}

std::string modesText(const MulticastModes &modes) {
    const JsonPtr object(cJSON_CreateObject());
    if (object == nullptr || !addEntries(object.get(), "physicalPort", modes.ports) ||
        !addEntries(object.get(), "lagPort", modes.lags))
        return {};
    return printJsonLine(object.get());
}

// False when an entry has a number that is none of a port, LAG or mode.
bool parseEntries(const cJSON *array, std::vector<ModeEntry> &entries) {
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, array) {
        const cJSON *const number = member(item, "portNum");
        const cJSON *const mode = member(item, "multicastMode");
        if (!cJSON_IsNumber(number) || !cJSON_IsNumber(mode))
            continue;
        const auto port = integerOf(number);
        const auto value = integerOf(mode);
        if (!port || *port < 1 || !value || *value < static_cast<std::int32_t>(MulticastMode::Normal) ||
            *value > static_cast<std::int32_t>(MulticastMode::Blocked))
            return false;
        entries.push_back({static_cast<std::uint32_t>(*port), static_cast<MulticastMode>(*value)});
    }
    return true;
}

std::int32_t refuseFormat(const Where &where) {
    logError(where, "[%s:%d] Json format error\r\n");
    return kInvalid;
}

// --- deny list

std::int32_t denyArray(Switch sw, const cJSON *addresses, const Where &where) {
    if (!cJSON_IsArray(addresses))
        return refuseFormat(where);
    std::vector<std::string> wanted;
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, addresses) {
        if (!cJSON_IsString(item))
            return refuseFormat(where);
        wanted.emplace_back(item->valuestring);
    }
    return codeOf(changeDenyList(sw, wanted, where));
}

}  // namespace

std::int32_t getMulticastGroups(openapiClientHandle_t *client, std::int32_t unit, std::int32_t index,
                                std::int32_t size, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    const std::int64_t last = std::int64_t{index} * size;
    WindowSink sink(last - size + 1, last);
    PageSink none;
    const bool others = unit != 0 && unit != kUnit;
    RowSink &rows = others ? static_cast<RowSink &>(none) : sink;
    if (const auto result = resultOf(readGroups(client, rows, where), rows); result != kSuccess)
        return result;
    return handOut(pageText(index, sink.inside(), sink.rowCount(), sink.rows()), json, where);
}

std::int32_t multicastGroupsPageGet(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    PageSink sink;
    if (const auto result = resultOf(readGroups(client, sink, where), sink); result != kSuccess)
        return result;
    const auto count = static_cast<std::int32_t>(sink.rowCount());
    return handOut(pageText(1, count, sink.rowCount(), sink.rows()), json, where);
}

std::int32_t multicastGroupsChunksBuild(openapiClientHandle_t *client) {
    const Where where = std::source_location::current();
    static ChunkedList list(kGroupsKey, "multicastGroups",
                            "[%s:%d] multicast_groups_ex: oversized row %zu >= %d bytes, dropping\r\n");
    // Chunks of two builds must not mix, nor the older table come last.
    const ApiLock lock(kGroupsKey, where);
    if (!lock.held())
        return kFailed;
    std::size_t count = 0;
    bool stored = true;
    ChunkSink sink(list,
                   {[&](const std::string &key, const std::string &answer) {
                        ++count;
                        stored = writeCachedAnswer(key, answer, where) && stored;
                    },
                    [&](const std::string &key) {
                        ++count;
                        stored = deleteCachedAnswer(key, where) && stored;
                    }},
                   where);
    if (const auto result = resultOf(readGroups(client, sink, where), sink); result != kSuccess)
        return result;
    if (const auto finished = sink.finish(); finished != ResultCode::Success)
        return codeOf(finished);
    // What another process has left behind, after what this one had.
    for (;; ++count) {
        const std::string key = std::string(kGroupsKey) + '/' + std::to_string(count);
        const auto left = readCachedAnswer(key, where);
        if (!left || !*left || !deleteCachedAnswer(key, where)) {
            stored = left && !*left && stored;
            break;
        }
    }
    return stored ? kSuccess : kFailed;
}

std::int32_t buildMulticastModeJson(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    const auto modes = readMulticastModes(client, where);
    if (!modes)
        return codeOf(modes);
    if (const auto text = modesText(*modes); !text.empty())
        return handOut(text, json, where);
    logError(where, "[%s:%d] getMulticastMode response str error\r\n");
    return kFailed;
}

std::int32_t setMulticastMode(openapiClientHandle_t *client, const char *json) {
    const Where where = std::source_location::current();
    if (json == nullptr)
        return refuseFormat(where);
    const JsonPtr request(cJSON_Parse(json));
    const cJSON *const config = member(request.get(), "multicastModeConfig");
    const cJSON *const ports = member(config, "physicalPort");
    const cJSON *const lags = member(config, "lagPort");
    if (!cJSON_IsArray(ports) && !cJSON_IsArray(lags))
        return refuseFormat(where);
    MulticastModes wanted;
    if (!parseEntries(ports, wanted.ports) || !parseEntries(lags, wanted.lags)) {
        logError(where, "[%s:%d] Param error :%s\r\n", wellFormed(printable(json)));
        return kInvalid;
    }
    return codeOf(changeMulticastModes(client, wanted, where));
}

std::int32_t removeIgmpMrouterInf(openapiClientHandle_t *client, std::uint32_t ifNum) {
    return codeOf(removeRouterInterface(client, IfNum(ifNum)));
}

std::int32_t getDenyList(openapiClientHandle_t *client, char **json) {
    const Where where = std::source_location::current();
    *json = nullptr;
    const auto denied = readDenyList(client, where);
    if (!denied)
        return codeOf(denied);
    std::string text = "[";
    for (const std::string &address : *denied) {
        text += text.size() > 1 ? ",\"" : "\"";
        appendEscaped(text, address);
        text += '"';
    }
    return handOut(text + "]", json, where);
}

std::int32_t setDenyList(openapiClientHandle_t *client, const char *json) {
    const JsonPtr request(json != nullptr ? cJSON_Parse(json) : nullptr);
    return denyArray(client, member(request.get(), "blockAddressList"), std::source_location::current());
}

std::int32_t setDenyListByArray(openapiClientHandle_t *client, const cJSON *addresses) {
    return denyArray(client, addresses, std::source_location::current());
}

void aclRuleClear(openapiClientHandle_t *client, const char *name) {
    if (name != nullptr)
        static_cast<void>(clearAccessList(client, name));
}

}  // namespace pavo
