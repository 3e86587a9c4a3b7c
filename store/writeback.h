// Writing answers back into the response cache (store/response_cache.h) after something that they show may
// have changed: a table of the answers and who produces them (store/writeback.def, store/producers.h), and
// one way to refresh any.
//
// The producers are in folders above this one and are referred to weakly. One that is in no object of the
// program is "not linked", which is no fault of the build; a program that is to have all of them says so by
// pavo_link_producers() in CMake, since a weak reference takes no object out of an archive.
//
// Any thread of any process may call any function. Refreshing the same answer is done by one caller after the
// other.
#ifndef PAVO_STORE_WRITEBACK_H
#define PAVO_STORE_WRITEBACK_H

#include <cstddef>
#include <cstdint>
#include <source_location>
#include <span>
#include <string>
#include <variant>

#include "common/result.h"
#include "common/where.h"
#include "platform/open_client.h"

namespace pavo {

// Produces the answer `api_name` anew, stores it, and tells the web server. 0; the refresher's result; -1 for
// a null argument or a name that is not in the table (logged). `handle` is a registered client.
std::int32_t rest_db_writeback(openapiClientHandle_t *handle, const char *api_name);

// One answer of the table.
struct WriteBackRow {
    const char *api;  // its name, and the key in the cache
    const char *lock;
    const char *refresher;
    const char *producer;
    const char *failedProducer;  // as it stands in the failure message
    const char *key;             // of the data in the envelope; null when the producer stores by itself
    std::size_t buffer;          // bytes that the producer fills

    using TextProducer = std::int32_t (*)(openapiClientHandle_t *, char **);
    using BufferProducer = std::int32_t (*)(openapiClientHandle_t *, char *, std::size_t);
    using DetailProducer = std::int32_t (*)(openapiClientHandle_t *, std::int32_t, char **);
    using StoringProducer = std::int32_t (*)(openapiClientHandle_t *);
    // Null when it is not linked.
    std::variant<TextProducer, BufferProducer, DetailProducer, StoringProducer> produce;

    bool isLinked() const;
};

// All answers, in the order in which they are searched.
std::span<const WriteBackRow> writeBackRows();

// What rest_db_writeback() does for one of them, for a caller who has to know whether the cache has the answer now.
struct Refreshed {
    std::int32_t result;  // of the refresher
    bool stored;
};
Refreshed writeBackAnswer(openapiClientHandle_t *client, const WriteBackRow &row,
                          Where where = std::source_location::current());

// The data of an answer, produced anew and not stored. Failed with the producer's result as code (logged by the
// producer); NotImplemented when that is not linked, or stores by itself.
Result<std::string> produceAnswer(openapiClientHandle_t *client, const WriteBackRow &row,
                                  Where where = std::source_location::current());

// --- refreshers
//
// Each returns the producer's result, or -1 when that is not linked, memory runs out, what was produced is no
// JSON text, or the lock cannot be had (logged). After a failure the cache has what it had. Whether the
// answer could be stored has no part in the result.

#define PAVO_ANSWER(api, lock, refresher, producer, failedProducer, key, buffer) \
    std::int32_t refresher(openapiClientHandle_t *client);
#include "store/writeback.def"
#undef PAVO_ANSWER

}  // namespace pavo

#endif
