#include "ctl/cache_commands.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "common/files.h"
#include "common/text.h"
#include "platform/paths.h"
#include "store/response_cache.h"
#include "store/writeback.h"

namespace pavo::ctl {
namespace {

template <class T>
T requireDb(DbResult<T> result, const std::string &what) {
    if (!result)
        throw Failure{ResultCode::Failed, what + " (SQLite " + std::to_string(codeOf(result)) + ")"};
    if constexpr (!std::is_void_v<T>)
        return std::move(*result);
}

std::string requireAnswer(const std::string &name) {
    std::optional<std::string> answer;
    if (fileExists(platform::paths::kResponseCache))
        answer = requireDb(readCachedAnswer(name), "the cache cannot be read");
    if (!answer)
        throw Failure{ResultCode::ApiNotFound, quoteText(name)};
    return std::move(*answer);
}

const WriteBackRow *findRow(std::string_view name) {
    const auto rows = writeBackRows();
    const auto row = std::ranges::find(rows, name, &WriteBackRow::api);
    return row != rows.end() ? &*row : nullptr;
}

// Why there is no new answer; nothing when there is.
std::optional<Failure> refresh(Switch sw, const std::string &name) {
    const WriteBackRow *const row = findRow(name);
    if (row == nullptr)
        return Failure{ResultCode::ApiNotFound, quoteText(name)};
    if (!row->isLinked())
        return Failure{ResultCode::NotImplemented,
                       name + ": " + row->producer + " is not linked to this program"};
    const auto [result, stored] = writeBackAnswer(sw.handle(), *row);
    if (result != 0)
        return Failure{ResultCode::Failed, name + ": " + row->producer + " result " + std::to_string(result)};
    return stored ? std::nullopt
                  : std::optional(Failure{ResultCode::Failed, name + ": the answer cannot be stored"});
}

}  // namespace

void listCache(const Output &output) {
    auto cached = requireDb(listCachedAnswers(), "the cache cannot be read");
    const JsonPtr answer(cJSON_CreateArray());
    std::vector<Row> rows;
    const auto add = [&](const std::string &name, const WriteBackRow *row, const CachedAnswer *entry) {
        cJSON *const object = appendObject(answer.get());
        cJSON_AddStringToObject(object, "name", wellFormed(name).c_str());
        if (row != nullptr) {
            cJSON_AddStringToObject(object, "producer", row->producer);
            cJSON_AddBoolToObject(object, "isLinked", row->isLinked());
        }
        if (entry != nullptr)
            cJSON_AddNumberToObject(object, "size", static_cast<double>(entry->size));
        const char *const linked = row == nullptr ? "" : row->isLinked() ? "linked" : "not linked";
        rows.push_back({name, row != nullptr ? row->producer : "-", linked,
                        entry != nullptr ? std::to_string(entry->size) : "-"});
    };
    for (const auto &row : writeBackRows()) {
        const auto entry = std::ranges::find(cached, row.api, &CachedAnswer::name);
        add(row.api, &row, entry != cached.end() ? &*entry : nullptr);
    }
    for (const auto &entry : cached)  // stored by a producer itself, or by another program
        if (findRow(entry.name) == nullptr)
            add(entry.name, nullptr, &entry);
    if (output.json)
        printEnvelope(ResultCode::Success, "cache", printJson(answer.get()).c_str());
    else
        output.printTable({"NAME", "PRODUCER", "", "BYTES"}, rows);
}

void readCache(const std::string &name) {
    std::puts(requireAnswer(name).c_str());
}

void refreshCache(Switch sw, const Output &output, const std::vector<std::string> &names) {
    requireDb(createResponseCache(), "the cache cannot be made");
    std::vector<std::string> wanted = names;
    if (names.empty())
        for (const auto &row : writeBackRows())
            if (row.isLinked())
                wanted.emplace_back(row.api);
    std::optional<Failure> first;
    for (const auto &name : wanted)
        if (auto failure = refresh(sw, name); failure && !first)
            first = std::move(failure);
    if (first)
        throw Failure(*std::move(first));
    output.printDone("refreshed");
}

void deleteFromCache(const Output &output, const std::string &name) {
    requireAnswer(name);
    requireDb(deleteCachedAnswer(name), "the answer cannot be deleted");
    signalWebServer();
    output.printDone("deleted");
}

}  // namespace pavo::ctl
