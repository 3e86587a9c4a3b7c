#include "store/chunk_sink.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "common/log.h"

namespace pavo {
namespace {

// What stands around the rows of a chunk, about.
constexpr std::size_t kEnvelopeSize = 256;

}  // namespace

void RowSink::add(std::string_view row) {
    if (error_ != ResultCode::Success)
        return;
    try {
        rowCount_ += take(row) ? 1 : 0;
    } catch (const std::bad_alloc &) {
        runOutOfMemory();
    } catch (const std::length_error &) {
        runOutOfMemory();
    }
}

bool PageSink::take(std::string_view row) {
    if (!rows_.empty())
        rows_ += ',';
    rows_ += row;
    return true;
}

bool ChunkSink::take(std::string_view row) {
    if (row.size() + 2 > ChunkedList::kChunkSize - 1) {
        logAt<std::size_t, std::int32_t>(LOG_LEVEL_ERROR, where_, list_.oversized_, row.size(),
                                         static_cast<std::int32_t>(ChunkedList::kChunkSize));
        return false;
    }
    if (rowsInLast_ == ChunkedList::kRowsMax ||
        chunks_.back().size() - head_.size() + row.size() + 1 >= ChunkedList::kChunkSize) {
        chunks_.push_back(head_);
        rowsInLast_ = 0;
    }
    std::string &chunk = chunks_.back();
    // Rows of one list are about as long as one another.
    if (rowsInLast_ == 0)
        chunk.reserve(kEnvelopeSize + std::min(ChunkedList::kChunkSize,
                                               ChunkedList::kRowsMax * (row.size() + row.size() / 8)));
    if (rowsInLast_ > 0)
        chunk += ',';
    chunk += row;
    ++rowsInLast_;
    return true;
}

std::string ChunkSink::entryKey(std::size_t index) const {
    return std::string(list_.key_) + '/' + std::to_string(index);
}

std::string ChunkSink::tail(std::size_t index) const {
    return "],\"chunkIndex\":" + std::to_string(index) +
           ",\"isLastChunk\":" + (index + 1 == chunks_.size() ? "true" : "false") +
           "},\"resp\":{\"respCode\":0,\"respMsg\":\"Success\",\"status\":\"success\"}}";
}

ResultCode ChunkSink::finish() {
    if (error() != ResultCode::Success)
        return error();
    try {
        // All of them first: nothing is stored when memory does not last.
        for (std::size_t index = 0; index < chunks_.size(); ++index)
            chunks_[index] += tail(index);
        const std::lock_guard lock(list_.mutex_);
        for (std::size_t index = 0; index < chunks_.size(); ++index)
            store_.write(entryKey(index), chunks_[index]);
        for (std::size_t index = chunks_.size(); index < list_.stored_; ++index)
            store_.erase(entryKey(index));
        list_.stored_ = chunks_.size();
    } catch (const std::bad_alloc &) {
        runOutOfMemory();
    }
    return error();
}

}  // namespace pavo
