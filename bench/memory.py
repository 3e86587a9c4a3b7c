#!/usr/bin/env python3
"""Memory and processor time of the daemon, and how fast 700 devices join at once.  usage: memory.py BUILD"""

import os
import shutil
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "demo"))

from rig import Rig  # noqa: E402

DEVICES = 700
SCALE = 50  # of the clock
REST = 300  # seconds of the program's clock
PROFILES = (("House", "AUDAC Audio and Control Network", "10 type=2 untagged=5", "20 type=3 assigned=5"),
            ("Wall", "AVoIP Lightware AV network", "30 type=1 untagged=11-14", "286 type=2"),
            ("Talk", "Shure Split Audio and Control Network", "50 type=2 untagged=21-22",
             "51 type=3 assigned=21-22"),
            ("Hall", "HARMAN Professional AV Network", "60 type=2 untagged=31 assigned=31", "61 type=3", "62 type=4"),
            ("Desk", "Telos AllianceLivewire+ AES67", "70 type=2 untagged=41 assigned=41", "71 type=3"))
THREADS = ("AudacLookup", "ShureLookup", "HarmanLookup", "TelosLookup")


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat", "rb") as file:
        fields = file.read().rpartition(b")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def share_at_rest(pid):
    """Processor seconds in a second of the program's clock."""
    before, begin = processor_seconds(pid), time.monotonic()
    time.sleep(REST / SCALE)
    return (processor_seconds(pid) - before) / (time.monotonic() - begin) / SCALE


def joins_per_second(rig):
    """From the first device that has joined to the last."""
    first = 0
    while True:
        joined = len(rig.table("associations"))
        first = first or (joined and (time.monotonic(), joined))
        rig.check_alive()
        if joined == DEVICES:
            return (DEVICES - first[1]) / (time.monotonic() - first[0])


def main():
    build = sys.argv[1]
    rig = Rig(build, tempfile.mkdtemp(prefix="memory-", dir=build), scale=SCALE)
    try:
        rig.start_switch()
        pid = rig.start_daemon().pid
        rig.wait_for(lambda: "AudacLookup Init success" in rig.log(), 30, "the daemon has started")
        idle = resident(pid)
        print(f"daemon without profiles:             {idle:6} kB resident")
        for name, kind, *vlans in PROFILES:
            rig.pavoctl("profile", "apply", "--name", name, "--type", kind,
                        *(word for vlan in vlans for word in ("--vlan", vlan)))
        rig.wait_for(lambda: all(f"{name} Init success" in rig.log() for name in THREADS), 60, "all threads run")
        print(f"daemon with all threads at rest:     {resident(pid):6} kB resident, "
              f"{share_at_rest(pid) * 1000:.2f} ms of processor time a second")
        rig.control("plug", name="crowd", port="0/7", mac="02:00:00:00:00:00", count=16384 - DEVICES - 1)
        rig.control("plug", name="control", port="0/5", mac="00:1B:92:01:00:01", lldp={"systemDesc": "Audac"})
        rig.control("plug", name="audio", port="0/5", mac="00:1B:92:02:00:00", behind="control", count=DEVICES)
        print(f"{DEVICES} devices at once:                 {joins_per_second(rig):6.0f} joins a second")
        calls = rig.control("counters")["calls"]["rpcclt_openapiCliShowExecuteToFile"]
        rig.wait_for(lambda: rig.control("counters")["calls"]["rpcclt_openapiCliShowExecuteToFile"] > calls + 9, 60,
                     "more cycles")
        full = resident(pid)
        print(f"daemon, full table, {DEVICES} devices:     {full:6} kB resident, {full / idle:.2f} times idle, "
              f"{share_at_rest(pid) * 1000:.2f} ms of processor time a second")
    finally:
        rig.stop_all()
        shutil.rmtree(rig.root, ignore_errors=True)


if __name__ == "__main__":
    main()
