#include "ctl/output.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "common/response_ops.h"
#include "common/text.h"

namespace pavo::ctl {
namespace {

constexpr const char *kBold = "1";
constexpr const char *kGreen = "32";
constexpr std::size_t kGap = 2;  // between columns

// In characters, not bytes.
std::size_t widthOf(const std::string &text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

}  // namespace

Output::Output() : color_(isatty(STDOUT_FILENO) != 0) {}

std::string Output::paint(const char *code, const std::string &text) const {
    return color_ ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
}

void Output::printTable(const Row &head, const std::vector<Row> &rows) const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < head.size(); ++i) {
        widths.push_back(widthOf(head[i]));
        for (const auto &row : rows)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    }
    const auto lineOf = [&](const Row &row) {
        std::string out;
        for (std::size_t i = 0; i < row.size(); ++i)
            out += printable(row[i]) +
                   (i + 1 < row.size() ? std::string(widths[i] - widthOf(row[i]) + kGap, ' ') : "");
        return out;
    };
    std::puts(paint(kBold, lineOf(head)).c_str());
    for (const auto &row : rows)
        std::puts(lineOf(row).c_str());
}

void Output::printDone(const char *word) const {
    if (json)
        printEnvelope(ResultCode::Success, nullptr, nullptr);
    else
        std::puts(paint(kGreen, word).c_str());
}

void Output::printHeading(const std::string &heading, const std::string &rest) const {
    std::printf("%s  %s\n", paint(kBold, printable(heading)).c_str(), printable(rest).c_str());
}

void printEnvelope(ResultCode code, const char *key, const char *data) {
    char *text = nullptr;
    if (responseJsonRreallocStr(codeOf(code), key, data, &text) == codeOf(ResultCode::Success))
        std::puts(TextPtr(text).get());
}

void printEnvelope(const Failure &failure) {
    if (const auto text = failureEnvelope(failure); !text.empty())
        std::puts(text.c_str());
}

std::string rangesOf(std::vector<std::uint32_t> numbers, std::string_view prefix) {
    std::sort(numbers.begin(), numbers.end());
    std::string out;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1)
            ++last;
        out += (out.empty() ? "" : ",") + std::string(prefix) + std::to_string(numbers[i]);
        if (last > i)
            out += "-" + std::to_string(numbers[last]);
        i = last + 1;
    }
    return out.empty() ? "-" : out;
}

std::string rangesOf(std::span<const IfNum> ports) {
    std::vector<std::uint32_t> numbers;
    for (const IfNum port : ports)
        numbers.push_back(port.number());
    return rangesOf(std::move(numbers));
}

cJSON *appendObject(cJSON *array) {
    cJSON *const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

}  // namespace pavo::ctl
