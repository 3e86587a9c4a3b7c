// What pavoctl prints: tables for people, the envelope of the web interface for machines.
#ifndef PAVO_CTL_OUTPUT_H
#define PAVO_CTL_OUTPUT_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/if_num.h"
#include "common/json.h"
#include "common/result.h"

namespace pavo::ctl {

// --- failures; a command that fails throws a pavo::Failure, whose reason is shown

template <class T>
T require(Result<T> result) {
    if (!result)
        throw std::move(result).error();
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}

// With what the command failed at in front of the reason.
template <class T>
T require(Result<T> result, const std::string &what) {
    if (!result) {
        const auto &[code, reason] = result.error();
        throw Failure{code, reason.empty() ? what : what + ": " + reason};
    }
    return std::move(*result);
}

// --- tables

using Row = std::vector<std::string>;

class Output {
  public:
    Output();

    // Answers are envelopes.
    bool json = false;

    // Columns as wide as their widest cell, counted in characters; the head is bold on a terminal.
    void printTable(const Row &head, const std::vector<Row> &rows) const;
    // "applied", or the envelope of a success without data.
    void printDone(const char *word) const;
    // One line of its own: a heading in bold and what follows it.
    void printHeading(const std::string &heading, const std::string &rest) const;

  private:
    std::string paint(const char *code, const std::string &text) const;

    bool color_;
};

// The envelope of an answer, with the JSON text `data` under `key` unless these are null.
void printEnvelope(ResultCode code, const char *key, const char *data);
void printEnvelope(const Failure &failure);

// "1-4,7" of numbers in any order; "-" for none. The prefix is in front of each part: "lag1-4,lag7".
std::string rangesOf(std::vector<std::uint32_t> numbers, std::string_view prefix = "");
std::string rangesOf(std::span<const IfNum> ports);

// The array owns the object from then on.
cJSON *appendObject(cJSON *array);

}  // namespace pavo::ctl

#endif
