#!/usr/bin/env bash
# Checks the tracked sources without running them: format, includes between folders, clang-tidy. Prints one line per
# part with its time; exit status 1 when any of them found something.
#   scripts/lint.sh                       all of it
#   scripts/lint.sh format includes       only these parts (format, includes, tidy)
#   scripts/lint.sh tidy FILE.cpp ...     clang-tidy on these files only
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

format() {
    git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-19 --dry-run --Werror
}

includes() {
    scripts/check_includes.py
}

# Tests and benchmarks are left out: the macros of their frameworks trip the checks. Their headers are not.
tidy() {
    local log=build/lint-configure.log
    mkdir -p build
    cmake --preset dev >"$log" 2>&1 || {
        cat "$log"
        return 1
    }
    if [ $# -gt 0 ]; then
        printf '%s\0' "$@"
    else
        git ls-files -z '*.cpp' ':!tests/' ':!bench/'
    fi | xargs -0 -n 1 -P "$(nproc)" bash -c '
        found=$(clang-tidy-19 --quiet -p build/dev "$0" 2>&1) || {
            grep -v " warnings generated\.$" <<<"$found"
            exit 1
        }'
}

part() {
    local name=$1 start=$SECONDS result=ok
    "$@" || result=FAILED
    printf '   %-8s %-6s %4d s\n' "$name" "$result" $((SECONDS - start))
    [ "$result" = ok ] || failed=1
}

failed=0
if [ "${1:-}" = tidy ]; then
    part "$@"
else
    [ $# -gt 0 ] || set -- format includes tidy
    for name in "$@"; do
        case "$name" in
            format | includes | tidy) part "$name" ;;
            *)
                sed -n '4,6s/^# \{0,1\}//p' scripts/lint.sh
                exit 2
                ;;
        esac
    done
fi
exit $failed
