#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "bench/ratio.h"
#include "common/log.h"
#include "platform/paths.h"
#include "store/profile_db_ops.h"

namespace {

using Times = std::map<std::string, double>;

struct Row {
    std::string what;
    std::function<double(const Times &)> value;
    double limit;
};

std::vector<Row> &rows() {
    static std::vector<Row> all;
    return all;
}

double timeOf(const Times &times, const std::string &name) {
    const auto it = times.find(name);
    return it == times.end() ? 0.0 : it->second;
}

// The usual table, medians only, and the best time of each benchmark for the ratios.
class Reporter : public benchmark::ConsoleReporter {
  public:
    Reporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        std::vector<Run> shown;
        for (const auto &run : runs) {
            if (run.aggregate_name == "median")
                shown.push_back(run);
            if (run.run_type != Run::RT_Iteration || run.error_occurred)
                continue;
            const auto name =
                run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
            const double time = run.real_accumulated_time / static_cast<double>(run.iterations);
            for (const auto &[counter, value] : run.counters)
                times_[name + ":" + counter] = value;
            const auto [it, isNew] = times_.try_emplace(name, time);
            if (!isNew && time < it->second)
                it->second = time;
        }
        ConsoleReporter::ReportRuns(shown);
    }

    void printRatios() const {
        std::printf("\n%-66s %8s %8s\n", "Ratio (best times of this run)", "value", "wanted");
        for (const auto &row : rows()) {
            const double value = row.value(times_);
            if (!std::isfinite(value))
                continue;  // not among the benchmarks chosen
            if (row.limit > 0)
                std::printf("%-66s %8.3f %8.2f %s\n", row.what.c_str(), value, row.limit,
                            value <= row.limit ? "ok" : "OVER");
            else
                std::printf("%-66s %8.3f\n", row.what.c_str(), value);
        }
    }

  private:
    Times times_;
};

}  // namespace

namespace bench {

void ratio(std::string what, std::string measured, std::string baseline, double limit, double divisor) {
    rows().push_back(
        {std::move(what),
         [=](const Times &times) { return timeOf(times, measured) / timeOf(times, baseline) / divisor; },
         limit});
}

void differenceRatio(std::string what, std::string a, std::string b, std::string c, std::string d,
                     double limit, double divisor) {
    rows().push_back({std::move(what),
                      [=](const Times &times) {
                          return (timeOf(times, a) - timeOf(times, b)) /
                                 (timeOf(times, c) - timeOf(times, d)) / divisor;
                      },
                      limit});
}

void counterRatio(std::string what, std::string of, std::string to, std::string counter) {
    ratio(std::move(what), of + ":" + counter, to + ":" + counter, 0);
}

void freshTable() {
    std::filesystem::remove(platform::fsPath(platform::paths::kProfileDb));
    pavo::vlanInfoTableCreate();
}

}  // namespace bench

int main(int argc, char **argv) {
    auto root = (std::filesystem::current_path() / "bench-root-XXXXXX").string();
    if (mkdtemp(root.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    setenv("PAVO_ROOT", root.c_str(), 1);
    // As on a switch, /tmp is memory and the rest is a disk.
    auto memory = std::string("/dev/shm/pavo-bench-XXXXXX");
    if (mkdtemp(memory.data()) != nullptr)
        std::filesystem::create_directory_symlink(memory, root + "/tmp");
    else
        std::filesystem::create_directories(root + "/tmp");
    std::filesystem::create_directories(root + "/mnt/application/pavo/tmp");
    pavo::devmgrLogOpen(pavo::LOG_SINK_FILE, pavo::LOG_FACILITY_USER, "pavo_bench");
    benchmark::Initialize(&argc, argv);
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    std::filesystem::remove_all(root);
    std::filesystem::remove_all(memory);
    return 0;
}
