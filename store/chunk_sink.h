// Where the builders of long lists put their rows: into one page, or into chunks small enough to be kept as
// single answers of the response cache. A row is JSON text of one object, made by the builder; it is not
// looked into.
//
// A sink is used by one thread at a time.
#ifndef PAVO_STORE_CHUNK_SINK_H
#define PAVO_STORE_CHUNK_SINK_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/log_format.h"
#include "common/result.h"
#include "common/where.h"

namespace pavo {

class RowSink {
  public:
    RowSink() = default;
    RowSink(const RowSink &) = delete;
    RowSink &operator=(const RowSink &) = delete;
    virtual ~RowSink() = default;

    // Once memory has run out, rows are ignored.
    void add(std::string_view row);

    // Rows that were taken.
    std::size_t rowCount() const { return rowCount_; }
    // Success, or Failed once memory has run out.
    ResultCode error() const { return error_; }

  protected:
    // False when the row is dropped. May throw std::bad_alloc or std::length_error.
    virtual bool take(std::string_view row) = 0;
    void runOutOfMemory() { error_ = ResultCode::Failed; }

  private:
    std::size_t rowCount_ = 0;
    ResultCode error_ = ResultCode::Success;
};

// All rows as one text.
class PageSink : public RowSink {
  public:
    // The rows, joined by commas.
    const std::string &rows() const { return rows_; }

  private:
    bool take(std::string_view row) override;

    std::string rows_;
};

// How chunks get into the response cache and out of it: the key is that of the entry ("neighbor_ex/0").
struct ChunkStore {
    std::function<void(const std::string &key, const std::string &answer)> write;
    std::function<void(const std::string &key)> erase;
};

// A list that is kept in chunks, under "KEY/0", "KEY/1" and so on. One object for each list, for as long as
// the process lives: it knows how many chunks are in the cache from the last time.
class ChunkedList {
  public:
    // Rows in a chunk at most, and the size that its rows stay below, commas included.
    static constexpr std::size_t kRowsMax = 500;
    static constexpr std::size_t kChunkSize = 0x30000;

    // `key` and `envelopeKey` outlive the list. `oversized` is logged for a row that no chunk can hold, with
    // its size and kChunkSize; without it, the row is dropped silently.
    ChunkedList(std::string_view key, std::string_view envelopeKey,
                LogFormat<std::size_t, std::int32_t> oversized = {})
        : key_(key), envelopeKey_(envelopeKey), oversized_(oversized) {}

  private:
    friend class ChunkSink;

    std::string_view key_;
    std::string_view envelopeKey_;
    LogFormat<std::size_t, std::int32_t> oversized_;
    std::mutex mutex_;  // held while chunks go into the cache
    std::size_t stored_ = 0;
};

// Rows in chunks. They are kept back until finish(): a list that could not be built to its end leaves the
// chunks of the last one as they are.
class ChunkSink : public RowSink {
  public:
    ChunkSink(ChunkedList &list, ChunkStore store, Where where = std::source_location::current())
        : list_(list),
          store_(std::move(store)),
          where_(where),
          head_("{\"" + std::string(list.envelopeKey_) + "\":{\"rows\":[") {}

    // Stores the chunks, the last one marked as such (there is one also without rows), and erases those
    // beyond it that the process stored the last time. Any thread may finish a sink of the same list
    // meanwhile. Once only. Failed, with nothing changed, when memory has run out. What the store makes of it
    // is the store's to report.
    [[nodiscard]] ResultCode finish();

  private:
    bool take(std::string_view row) override;
    std::string entryKey(std::size_t index) const;
    std::string tail(std::size_t index) const;  // what follows the rows of a chunk in its answer

    ChunkedList &list_;
    ChunkStore store_;
    Where where_;
    std::string head_;  // what the answers begin with
    std::vector<std::string> chunks_{head_};
    std::size_t rowsInLast_ = 0;
};

}  // namespace pavo

#endif
