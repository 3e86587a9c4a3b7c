#include "store/writeback.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <source_location>
#include <string_view>

#include "common/json.h"
#include "common/log.h"
#include "common/response_ops.h"
#include "common/text.h"
#include "store/producers.h"
#include "store/response_cache.h"

namespace pavo {

// Here the producers are weak: without any of them the program still links, and its address is null.
// NOLINTBEGIN(bugprone-macro-parentheses): g++ refuses a declared name in parentheses.
#define PAVO_ANSWER(api, lock, refresher, producer, failedProducer, key, buffer) \
    [[gnu::weak]] decltype(producer) producer;
// NOLINTEND(bugprone-macro-parentheses)
#include "store/writeback.def"
#undef PAVO_ANSWER

namespace {

using Row = WriteBackRow;

const Row kRows[] = {
#define PAVO_ANSWER(api, lock, refresher, producer, failedProducer, key, buffer) \
    {api, lock, #refresher, #producer, failedProducer, key, buffer, &(producer)},
#include "store/writeback.def"
#undef PAVO_ANSWER
};

// Where each row is in the table.
enum RowIndex : std::size_t {
#define PAVO_ANSWER(api, lock, refresher, producer, failedProducer, key, buffer) k_##refresher,
#include "store/writeback.def"
#undef PAVO_ANSWER
};

constexpr std::int32_t kRefused = -1;
constexpr std::int32_t kMirroringDetail = 1;
constexpr std::string_view kTimeApi = "device_time";
// responseJsonStr knows no bound. The text with the most to print for its length is objects in objects: the
// 1023 bytes of the time hold 204 of them, which are less than 45,000 characters when each line is indented.
constexpr std::size_t kTimeEnvelopeSize = 65536;

struct Produced {
    std::int32_t result = kRefused;
    TextPtr data;
    bool outOfMemory = false;
};

template <class Produce>
Produced produceText(Produce produce) {
    char *text = nullptr;
    const std::int32_t result = produce(&text);
    return {result, TextPtr(text)};
}

TextPtr zeroedText(std::size_t size) {
    return TextPtr(static_cast<char *>(std::calloc(1, size)));
}

Produced run(Row::TextProducer produce, const Row &, openapiClientHandle_t *client) {
    return produceText([&](char **text) { return produce(client, text); });
}

Produced run(Row::DetailProducer produce, const Row &, openapiClientHandle_t *client) {
    return produceText([&](char **text) { return produce(client, kMirroringDetail, text); });
}

Produced run(Row::BufferProducer produce, const Row &row, openapiClientHandle_t *client) {
    Produced out{kRefused, zeroedText(row.buffer)};
    if (out.data == nullptr)
        out.outOfMemory = true;
    else
        out.result = produce(client, out.data.get(), row.buffer);
    return out;
}

Produced run(Row::StoringProducer produce, const Row &, openapiClientHandle_t *client) {
    return {produce(client), nullptr};
}

// The envelope of an answer; null when the data is no JSON or memory runs out (logged).
TextPtr makeEnvelope(const Row &row, const char *data, const Where &where) {
    if (row.api != kTimeApi) {
        char *text = nullptr;
        return responseJsonRreallocStr(0, row.key, data, &text) == 0 ? TextPtr(text) : nullptr;
    }
    TextPtr text = zeroedText(kTimeEnvelopeSize);
    if (text == nullptr)
        logError(where, "[%s:%d] %s: alloc failed\n", row.refresher);
    else if (responseJsonStr(0, row.key, data, text.get()) != 0)
        text.reset();
    return text;
}

Refreshed refresh(const Row &row, openapiClientHandle_t *client,
                  std::source_location at = std::source_location::current()) {
    const Where where(row.refresher, static_cast<int>(at.line()));
    if (!row.isLinked()) {
        logError(where, "[%s:%d] %s: %s not linked\n", row.refresher, row.producer);
        return {kRefused, false};
    }
    const ApiLock lock(row.lock, where);
    if (!lock.held())
        return {kRefused, false};
    const Produced produced =
        std::visit([&](auto produce) { return run(produce, row, client); }, row.produce);
    const bool stores = row.key == nullptr;  // by itself
    bool stored = stores && produced.result == 0;
    if (produced.outOfMemory) {
        logError(where, "[%s:%d] %s: alloc failed\n", row.refresher);
    } else if (produced.result != 0 || (!stores && produced.data == nullptr)) {
        logError(where, "[%s:%d] %s: %s failed result=%d\n", row.refresher, row.failedProducer,
                 produced.result);
    } else if (!stores) {
        const TextPtr answer = makeEnvelope(row, produced.data.get(), where);
        if (answer == nullptr)
            return {kRefused, false};
        stored = writeCachedAnswer(row.api, answer.get(), where).has_value();
    }
    return {produced.result, stored};
}

}  // namespace

bool WriteBackRow::isLinked() const {
    return std::visit([](auto address) { return address != nullptr; }, produce);
}

std::span<const WriteBackRow> writeBackRows() {
    return kRows;
}

#define PAVO_ANSWER(api, lock, refresher, producer, failedProducer, key, buffer) \
    std::int32_t refresher(openapiClientHandle_t *client) {                      \
        return refresh(kRows[k_##refresher], client).result;                     \
    }
#include "store/writeback.def"
#undef PAVO_ANSWER

Refreshed writeBackAnswer(openapiClientHandle_t *client, const WriteBackRow &row, Where where) {
    const Refreshed done = refresh(row, client);
    if (done.result == 0)
        signalWebServer(where);
    return done;
}

Result<std::string> produceAnswer(openapiClientHandle_t *client, const WriteBackRow &row, Where where) {
    if (!row.isLinked() || row.key == nullptr) {
        logError(where, "[%s:%d] %s: %s not linked\n", row.api, row.producer);
        return failed(ResultCode::NotImplemented, row.api);
    }
    const Produced produced =
        std::visit([&](auto produce) { return run(produce, row, client); }, row.produce);
    if (produced.outOfMemory) {
        logError(where, "[%s:%d] %s: alloc failed\n", row.api);
        return failed(ResultCode::InvalidPointer);
    }
    if (produced.result != 0 || produced.data == nullptr)
        return failed(produced.result != 0 ? static_cast<ResultCode>(produced.result) : ResultCode::Failed);
    return std::string(produced.data.get());
}

std::int32_t rest_db_writeback(openapiClientHandle_t *handle, const char *api_name) {
    if (handle == nullptr || api_name == nullptr) {
        logError("[%s:%d] rest_db_writeback: NULL handle or api_name\n");
        return kRefused;
    }
    const auto *const row = std::ranges::find(kRows, std::string_view(api_name), &Row::api);
    if (row == std::end(kRows)) {
        logError("[%s:%d] rest_db_writeback: unknown api_name '%s'\n", printable(api_name));
        return kRefused;
    }
    return writeBackAnswer(handle, *row).result;
}

}  // namespace pavo
