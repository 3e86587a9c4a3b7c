// Writing an answer back that has not changed, against what SQLite alone takes: open, the settings of the
// cache, one SELECT, close.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <string>

#include "bench/ratio.h"
#include "common/json.h"
#include "common/response_ops.h"
#include "platform/paths.h"
#include "store/response_cache.h"
#include "store/response_cache_ops.h"
#include "store/writeback.h"

namespace {

using namespace pavo;

// 28 answers, this one with 48 ports.
constexpr const char *kApi = "swcfg_ports_status";

std::string portsJson() {
    std::string text = "[";
    for (int port = 1; port <= 48; ++port)
        text += std::string(port > 1 ? "," : "") + R"({"port":)" + std::to_string(port) +
                R"(,"link":"up","speed":1000})";
    return text + "]";
}

void fill() {
    restapi_db_operation(REST_DB_CREATE, nullptr, nullptr);
    const std::string text = portsJson();
    for (const auto &row : writeBackRows())
        restapi_db_operation(REST_DB_WRITE, row.api, text.c_str());
}

void cacheUnchanged(benchmark::State &state) {
    fill();
    const std::string text = portsJson();
    for (auto _ : state)
        benchmark::DoNotOptimize(restapi_db_operation(REST_DB_WRITE, kApi, text.c_str()));
}

void cacheBareSelect(benchmark::State &state) {
    fill();
    for (auto _ : state) {
        sqlite3 *db = nullptr;
        sqlite3_open(platform::fsPath(platform::paths::kResponseCache).c_str(), &db);
        sqlite3_busy_timeout(db, 3000);
        sqlite3_exec(db,
                     "PRAGMA cache_size = -2000;PRAGMA temp_store = MEMORY;PRAGMA journal_mode = MEMORY;"
                     "PRAGMA synchronous = OFF;",
                     nullptr, nullptr, nullptr);
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(db, "SELECT data FROM restapi_db WHERE api_name = ?;", -1, &statement, nullptr);
        sqlite3_bind_text(statement, 1, kApi, -1, SQLITE_STATIC);
        sqlite3_step(statement);
        benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
        sqlite3_finalize(statement);
        sqlite3_close(db);
    }
}

// All that a refresher does but for the producer: lock, envelope, store, web server.
void cacheWriteBack(benchmark::State &state) {
    fill();
    const std::string data = portsJson();
    for (auto _ : state) {
        const ApiLock lock(kApi);
        char *answer = nullptr;
        responseJsonRreallocStr(0, kApi, data.c_str(), &answer);
        const TextPtr owned(answer);
        benchmark::DoNotOptimize(restapi_db_operation(REST_DB_WRITE, kApi, answer));
        send_signal_to_ws();
    }
}

// What of that is the envelope.
void cacheEnvelope(benchmark::State &state) {
    const std::string text = portsJson();
    for (auto _ : state) {
        char *out = nullptr;
        responseJsonRreallocStr(0, kApi, text.c_str(), &out);
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}

BENCHMARK(cacheBareSelect)->Repetitions(7);
BENCHMARK(cacheUnchanged)->Repetitions(7);
BENCHMARK(cacheWriteBack)->Repetitions(7);
BENCHMARK(cacheEnvelope)->Repetitions(7);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Write-back of an unchanged answer / bare SELECT by SQLite", "cacheUnchanged",
                 "cacheBareSelect", 1.3);
    bench::ratio("The same with lock and envelope", "cacheWriteBack", "cacheBareSelect", 0);
    bench::ratio("Envelope alone / bare SELECT by SQLite", "cacheEnvelope", "cacheBareSelect", 0);
    return true;
}();

}  // namespace
