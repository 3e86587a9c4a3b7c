#!/usr/bin/env bash
# Builds pavo and demonstrates it on a live data plane: real interfaces, real frames, real LLDP. Needs root.
#   ./lab.sh             runs the demonstration and ends; exit 0 when everything was as expected
#   ./lab.sh --keep      leaves everything running afterwards, with a shell inside; leaving the shell ends it
#   ./lab.sh --scale N   how many times faster than real time the clocks run (1 to 50, default 10)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

usage() {
    sed -n '2,5s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
    exit 2
}

options=()
while [ $# -gt 0 ]; do
    case "$1" in
        --keep) options+=(--keep) ;;
        --scale)
            [[ ${2:-} =~ ^[1-9][0-9]?$ && $2 -le 50 ]] || usage
            options+=(--scale "$2")
            shift
            ;;
        *) usage ;;
    esac
    shift
done
if [ "$(id -u)" -ne 0 ]; then
    echo "lab.sh needs root to create network namespaces: sudo ./lab.sh ${options[*]}" >&2
    exit 2
fi

if ! scripts/install-packages.sh; then
    echo "lab.sh: packages listed in scripts/packages.txt are missing and cannot be installed" >&2
    exit 2
fi
mkdir -p build
echo "Building (a few minutes the first time) ..."
# The lock: a second run in the same tree waits instead of building over the first.
flock build/.lock bash -c '
    cmake --preset release >build/configure.log 2>&1 || { cat build/configure.log; exit 1; }
    cmake --build build/release --target vswitchd vswitchctl pavo_detection pavoctl frames'
export PYTHONDONTWRITEBYTECODE=1
exec lab/enclose.sh build/release python3 lab/lab.py --build build/release "${options[@]}"
