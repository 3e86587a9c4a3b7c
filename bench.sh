#!/usr/bin/env bash
# Builds and runs the benchmarks and prints their ratios; arguments go to Google Benchmark.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
scripts/install-packages.sh
cmake --preset release >/dev/null
cmake --build build/release -- --quiet
(cd build/release && bench/pavo_bench --benchmark_enable_random_interleaving=true "$@")
PYTHONDONTWRITEBYTECODE=1 python3 bench/memory.py build/release
