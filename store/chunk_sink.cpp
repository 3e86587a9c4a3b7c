#include "store/chunk_sink.h"

#include <new>
#include <stdexcept>

#include "common/log.h"

namespace pavo {

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
        chunks_.back().size() + row.size() + 1 >= ChunkedList::kChunkSize) {
        chunks_.emplace_back();
        rowsInLast_ = 0;
    }
    std::string &chunk = chunks_.back();
    if (rowsInLast_ > 0)
        chunk += ',';
    chunk += row;
    ++rowsInLast_;
    return true;
}

std::string ChunkSink::entryKey(std::size_t index) const {
    return std::string(list_.key_) + '/' + std::to_string(index);
}

std::string ChunkSink::answer(std::size_t index) const {
    const std::string_view parts[] = {"{\"", list_.envelopeKey_, "\":{\"rows\":[", chunks_[index],
                                      "],\"chunkIndex\":"};
    std::string text;
    for (const std::string_view part : parts)
        text += part;
    text += std::to_string(index);
    text += ",\"isLastChunk\":";
    text += index + 1 == chunks_.size() ? "true" : "false";
    return text + "},\"resp\":{\"respCode\":0,\"respMsg\":\"Success\",\"status\":\"success\"}}";
}

ResultCode ChunkSink::finish() {
    if (error() != ResultCode::Success)
        return error();
    try {
        // All of them first: nothing is stored when memory does not last.
        std::vector<std::string> answers;
        for (std::size_t index = 0; index < chunks_.size(); ++index)
            answers.push_back(answer(index));
        const std::lock_guard lock(list_.mutex_);
        for (std::size_t index = 0; index < answers.size(); ++index)
            store_.write(entryKey(index), answers[index]);
        for (std::size_t index = answers.size(); index < list_.stored_; ++index)
            store_.erase(entryKey(index));
        list_.stored_ = answers.size();
    } catch (const std::bad_alloc &) {
        runOutOfMemory();
    }
    return error();
}

}  // namespace pavo
