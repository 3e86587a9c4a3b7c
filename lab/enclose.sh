#!/usr/bin/env bash
# Runs a command as root in network, mount and process namespaces of its own; however it ends, nothing is left behind.
#   lab/enclose.sh BUILD COMMAND [ARGUMENT]...
# Creates a private folder in BUILD and passes its path to the command in PAVO_LAB. Exit status: the command's, or 2.
set -uo pipefail

refuse() {
    echo "lab: $*" >&2
    exit 2
}

[ $# -ge 2 ] || refuse "usage: lab/enclose.sh BUILD COMMAND [ARGUMENT]..."
[ "$(id -u)" -eq 0 ] || refuse "needs root to create network namespaces: run it with sudo"
missing=()
for program in unshare setpriv flock ip ethtool ping tcpdump lldpd ovs-vswitchd ovsdb-server hostapd wpa_supplicant; do
    PATH="$PATH:/usr/sbin:/sbin" command -v "$program" >/dev/null || missing+=("$program")
done
[ ${#missing[@]} -eq 0 ] || refuse "missing programs: ${missing[*]} (their packages are in scripts/packages.txt)"
export PATH="$PATH:/usr/sbin:/sbin"
apart=(setpriv --pdeathsig KILL unshare --mount --net --pid --fork --mount-proc --kill-child)
why=$("${apart[@]}" true 2>&1) || refuse "cannot create namespaces here: $why"

build=$(cd "$1" && pwd) || refuse "no such build folder: $1"
shift

# Removes the folders of runs that were killed. A run holds the lock in its folder until its last process is gone.
exec 8>"$build/.lab.lock"
flock 8
for old in "$build"/lab-root-*; do
    [ -d "$old" ] && flock --nonblock "$old/.lock" true && rm -rf "$old"
done
root=$(mktemp -d "$build/lab-root-XXXXXX") || refuse "cannot create a folder in $build"
exec 9>"$root/.lock"
flock 9
exec 8>&-

outer=
finish() {
    trap '' INT TERM HUP
    if [ -n "$outer" ] && kill -0 "$outer" 2>/dev/null; then
        # The first process inside takes all others with it; the outer one ends once they are gone.
        first=$(cat "/proc/$outer/task/$outer/children" 2>/dev/null)
        kill -KILL ${first:-"$outer"} 2>/dev/null
        wait "$outer" 2>/dev/null
    fi
    for _ in $(seq 50); do
        rm -rf "$root" 2>/dev/null && return
        sleep 0.1
    done
    echo "lab: cannot remove $root" >&2
}
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# The shell inside stays, as the parent of orphaned processes. The death signals cover a kill -9 of this script or of
# unshare; unshare's own error message when its child is killed is not shown.
exec 3<&0 4>&2
PAVO_LAB="$root" "${apart[@]}" bash -c '
    exec 2>&4 4>&-
    set -e
    for folder in /run/netns /run/lldpd; do
        mkdir -p "$folder"
        mount -t tmpfs tmpfs "$folder"
    done
    ip link set lo up
    set +e
    "$@"
    exit $?' lab "$@" <&3 3<&- 2>/dev/null &
outer=$!
wait "$outer"
status=$?
outer=
exit "$status"
