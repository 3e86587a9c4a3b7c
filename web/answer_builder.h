// The rules that answers of the web interface have for what the switch does not tell, which is either left
// out or fails the whole answer.
#ifndef PAVO_WEB_ANSWER_BUILDER_H
#define PAVO_WEB_ANSWER_BUILDER_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>

#include "common/log.h"
#include "common/result.h"
#include "swapi/open_result.h"
#include "swapi/switch.h"
#include "web/answer_node.h"

namespace pavo {

// Reads for one answer. A value that the switch does not tell is left out; a switch that cannot be reached,
// or a table that is not complete, fails the answer. Each failure is logged once, on behalf of the producer
// that `where` names. A value that the switch does not offer, or no longer has, is not a failure.
class AnswerReader {
  public:
    explicit AnswerReader(const Where &where) : where_(where) {}

    const Where &where() const { return where_; }
    bool failed() const { return code_ != ResultCode::Success; }
    ResultCode code() const { return code_; }

    template <class T>
    std::optional<T> value(OpenResult<T> read, const char *what) {
        if (read)
            return std::optional<T>(std::move(*read));
        report(read.error(), what, read.error() == OpenError::Unreachable);
        return std::nullopt;
    }

    // An entry of a table, which is not complete without it. Nothing when it has gone since the walk came by.
    template <class T>
    std::optional<T> entry(OpenResult<T> read, const char *what) {
        if (read)
            return std::optional<T>(std::move(*read));
        report(read.error(), what, read.error() != OpenError::NotFound);
        return std::nullopt;
    }

    // Fails the answer for a reason of its own.
    void refuse(const char *why) {
        if (!failed())
            logError(where_, "[%s:%d] %s\n", why);
        code_ = failed() ? code_ : ResultCode::Failed;
    }

    // For a walk that the loop has left.
    template <class Table>
    void end(const Table &walk, const char *what) {
        if (const auto broken = walk.brokenBy())
            report(*broken, what, true);
    }

    // The value of a Result, whose failure has been logged and fails the answer.
    template <class T>
    std::optional<T> require(Result<T> read) {
        if (read)
            return std::optional<T>(std::move(*read));
        if (!failed())
            code_ = read.error().code;
        return std::nullopt;
    }

  private:
    void report(OpenError error, const char *what, bool fails) {
        const bool isOffered = error != OpenError::Unavailable && error != OpenError::NotFound;
        if (!failed() && (fails || isOffered))
            logError(where_, "[%s:%d] %s cannot be read (result = %d)\n", what, error);
        if (fails && !failed())
            code_ = ResultCode::Failed;
    }

    Where where_;
    ResultCode code_ = ResultCode::Success;
};

// Whether a producer has a client and a place for its answer; logged otherwise. The place is emptied.
bool canAnswer(const openapiClientHandle_t *client, char **json, const Where &where);
bool canAnswer(const openapiClientHandle_t *client, const char *buffer, const Where &where);

// Hands an answer out as new text. 10002 (logged) when memory has run out.
std::int32_t handOutText(const AnswerNode &answer, char **json, const Where &where);

// Copies an answer into the caller's buffer, terminated. 10002 (logged) when memory has run out, 10000 when it
// does not fit; the buffer is left as it was then.
std::int32_t fillBuffer(const AnswerNode &answer, char *buffer, std::size_t size, const Where &where);

// A producer that hands out new text: build(Switch, AnswerReader &) makes the answer.
template <class Build>
std::int32_t handOut(openapiClientHandle_t *client, char **json, Build build,
                     Where where = std::source_location::current()) {
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    AnswerReader reader(where);
    const AnswerNode answer = build(Switch(client), reader);
    return reader.failed() ? codeOf(reader.code()) : handOutText(answer, json, where);
}

// The same for a producer that fills a buffer.
template <class Build>
std::int32_t fillIn(openapiClientHandle_t *client, char *json, std::size_t size, Build build,
                    Where where = std::source_location::current()) {
    if (!canAnswer(client, json, where))
        return codeOf(ResultCode::InvalidArgument);
    AnswerReader reader(where);
    const AnswerNode answer = build(Switch(client), reader);
    return reader.failed() ? codeOf(reader.code()) : fillBuffer(answer, json, size, where);
}

}  // namespace pavo

#endif
