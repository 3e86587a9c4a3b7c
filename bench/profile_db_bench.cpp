// Profile look-up by type against what SQLite alone takes: open, busy timeout, the same query, close.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include "bench/ratio.h"
#include "platform/paths.h"
#include "store/profile_db_ops.h"

namespace {

using namespace pavo;

void fill() {
    bench::freshTable();
    for (int id = 2; id <= 64; ++id)
        vlanInfoReplace(id, 1, "House", id % 8 == 0 ? "Audio Dante" : "Data", "#000000");
}

void profileLookup(benchmark::State &state) {
    fill();
    for (auto _ : state)
        benchmark::DoNotOptimize(vlanIdSelectByProfileTypeAndVlanType("Audio Dante", 1));
}

void profileBareSqlite(benchmark::State &state) {
    fill();
    for (auto _ : state) {
        sqlite3 *db = nullptr;
        sqlite3_open(platform::fsPath(platform::paths::kProfileDb).c_str(), &db);
        sqlite3_busy_timeout(db, 3000);
        char **table = nullptr;
        int rows = 0, columns = 0;
        sqlite3_get_table(db, "select id from vlanInfo where profileType = 'Audio Dante' and vlanType = 1",
                          &table, &rows, &columns, nullptr);
        benchmark::DoNotOptimize(rows);
        sqlite3_free_table(table);
        sqlite3_close(db);
    }
}

BENCHMARK(profileBareSqlite)->Repetitions(7);
BENCHMARK(profileLookup)->Repetitions(7);

[[maybe_unused]] const bool registered = [] {
    bench::ratio("Profile look-up by type / bare SQLite", "profileLookup", "profileBareSqlite", 1.05);
    return true;
}();

}  // namespace
