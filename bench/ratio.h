// Benchmarks that are judged by a ratio: two benchmarks of the same run, one the baseline of the other. Times
// are the best of the repetitions, so that a busy machine disturbs less.
#ifndef PAVO_BENCH_RATIO_H
#define PAVO_BENCH_RATIO_H

#include <string>

namespace bench {

// Asks for a line "what: time of `measured` / time of `baseline`, divided by `divisor`" in the final table,
// with the limit that is wanted (0: none). The names are those of registered benchmarks.
void ratio(std::string what, std::string measured, std::string baseline, double limit, double divisor = 1.0);

// Asks for a line "what: (a - b) / (c - d) / divisor".
void differenceRatio(std::string what, std::string a, std::string b, std::string c, std::string d,
                     double limit, double divisor);

// Asks for a line with the ratio of a counter of two benchmarks.
void counterRatio(std::string what, std::string of, std::string to, std::string counter);

// A profile database with its seed row only.
void freshTable();

}  // namespace bench

#endif
