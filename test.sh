#!/usr/bin/env bash
# Checks the sources (scripts/lint.sh), then builds and tests: the optimised programs as a whole, and everything under the
# address and undefined-behaviour sanitizers and under the thread sanitizer.
#   ./test.sh        all of it
#   ./test.sh dev    only this preset (or these), after the check of the sources
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
scripts/install-packages.sh || exit 1
export PYTHONDONTWRITEBYTECODE=1
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 TSAN_OPTIONS=halt_on_error=1
presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan tsan)

failed=0
echo "== lint"
if ! scripts/lint.sh; then
    echo "FAILED: lint"
    failed=1
fi
for preset in "${presets[@]}"; do
    echo "== $preset"
    if ! cmake --preset "$preset" >/dev/null || ! cmake --build "build/$preset" -- --quiet ||
        ! ctest --preset "$preset" --parallel 2; then
        echo "FAILED: $preset"
        failed=1
    fi
done
[ $failed -eq 0 ] && echo "All tests passed: lint ${presets[*]}"
exit $failed
