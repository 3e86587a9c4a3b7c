#!/usr/bin/env bash
# Builds the fuzzers (preset fuzz: clang, address and undefined-behaviour sanitizers) and runs one target after the
# other. What is found is kept in build/fuzz/found and built upon by the next run; exit status 1 when a target fails.
#   ./fuzz.sh                    every target for a minute
#   ./fuzz.sh 3600 [TARGET ...]  so many seconds each, all targets or these (the folders of fuzz/corpus)
#   ./fuzz.sh keep [TARGET ...]  minimises what was found, at most 40 small inputs for a target, into fuzz/corpus
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
usage() {
    sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
    exit 2
}
seconds=${1:-60}
[ $# -gt 0 ] && shift
[[ $seconds =~ ^([0-9]+|keep)$ ]] || usage
targets=("$@")
[ $# -gt 0 ] || targets=($(ls fuzz/corpus))
for target in "${targets[@]}"; do
    [ -d "fuzz/corpus/$target" ] || usage
done

scripts/install-packages.sh || exit 1
mkdir -p build
cmake --preset fuzz >build/fuzz-configure.log || {
    cat build/fuzz-configure.log
    exit 1
}
cmake --build build/fuzz --target pavo_fuzz -- --quiet || exit 1

# The private roots of the targets; in memory, where there is room for it.
temporary=$(mktemp -d -p "$([ -w /dev/shm ] && echo /dev/shm || echo "${TMPDIR:-/tmp}")")
trap 'rm -rf "$temporary"' EXIT
export TMPDIR=$temporary
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1
symbolizer=$(compgen -c llvm-symbolizer | sort -V | tail -1)
[ -n "$symbolizer" ] && ASAN_SYMBOLIZER_PATH=$(readlink -f "$(command -v "$symbolizer")") && export ASAN_SYMBOLIZER_PATH
work=build/fuzz/work
mkdir -p "$work"
failed=0

fuzz() {
    local target=$1 log=$work/$1.log found=$work/found/$1 options=(-timeout=20 -rss_limit_mb=3000 -max_len=4096)
    mkdir -p "$found" "$work/failures"
    [ -f "fuzz/dict/$target.dict" ] && options+=("-dict=fuzz/dict/$target.dict")
    if "build/fuzz/fuzz/$target" "${options[@]}" -max_total_time="$seconds" -print_final_stats=1 \
        -artifact_prefix="$work/failures/$target-" "$found" "fuzz/corpus/$target" >"$log" 2>&1; then
        printf '   %-16s %6d s %10s runs, %s inputs kept\n' "$target" "$seconds" \
            "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" "$(ls "$found" | wc -l)"
    else
        failed=1
        echo "FAILED: $target, see $log"
        grep -a -m 3 -E 'violated|SUMMARY|Test unit written' "$log"
    fi
}

# The smallest inputs that reach what all of them reach.
keep() {
    local target=$1 found=$work/found/$1 kept=$temporary/kept
    rm -rf "$kept"
    mkdir -p "$kept" "$found"
    "build/fuzz/fuzz/$target" -set_cover_merge=1 -max_len=4096 "$kept" "fuzz/corpus/$target" "$found" \
        >"$work/$target.merge.log" 2>&1 || {
        echo "FAILED: $target, see $work/$target.merge.log"
        failed=1
        return
    }
    local room=$((40 - $(ls "fuzz/corpus/$target" | wc -l))) name
    for name in $(find "$kept" -type f -size -3 -printf '%s %f\n' | sort -n | cut -d' ' -f2); do
        [ "$room" -gt 0 ] || break
        [ -z "$(find "fuzz/corpus/$target" -type f -exec cmp -s "$kept/$name" {} \; -print -quit)" ] || continue
        cp "$kept/$name" "fuzz/corpus/$target/${name:0:12}"
        room=$((room - 1))
    done
    printf '   %-16s %s inputs\n' "$target" "$(ls "fuzz/corpus/$target" | wc -l)"
}

for target in "${targets[@]}"; do
    ln -sf pavo_fuzz "build/fuzz/fuzz/$target"
    if [ "$seconds" = keep ]; then keep "$target"; else fuzz "$target"; fi
done
exit $failed
