#!/usr/bin/env bash
# Builds and runs the benchmarks and prints their ratios; arguments go to Google Benchmark.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
scripts/install-packages.sh
cmake --preset release >/dev/null
cmake --build build/release -- --quiet
(cd build/release && bench/pavo_bench --benchmark_enable_random_interleaving=true "$@")
PYTHONDONTWRITEBYTECODE=1 python3 bench/memory.py build/release
PYTHONDONTWRITEBYTECODE=1 python3 bench/web.py build/release
if why=$(lab/enclose.sh build/release true 2>&1); then
    lab/enclose.sh build/release python3 -B bench/live.py --build build/release
else
    echo "Live measurements skipped: $why"
fi
