#!/usr/bin/env bash
# Builds pavo and its virtual switch, plugs AV devices into the switch and shows the daemon at work.
#   ./run.sh          plays the story and ends; exit 0 when every step was seen
#   ./run.sh --keep   leaves switch, daemon and web interface running afterwards, until Ctrl-C
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
case "${1:-}" in
    "" | --keep) ;;
    *)
        sed -n '2,4s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
        exit 2
        ;;
esac
scripts/install-packages.sh
mkdir -p build
echo "Building (a few minutes the first time) ..."
# The lock: a second run in the same tree waits instead of building over the first.
flock build/.lock bash -c '
    cmake --preset release >build/configure.log 2>&1 || { cat build/configure.log; exit 1; }
    cmake --build build/release --target vswitchd vswitchctl pavo_detection pavoctl \
        pavo_cgi pavo_webd route_documents'
PYTHONDONTWRITEBYTECODE=1 exec python3 demo/story.py --build build/release --scenario data/scenarios/story.json ${1:+"$1"}
