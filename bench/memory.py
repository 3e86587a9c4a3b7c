#!/usr/bin/env python3
"""Resident memory of the daemon: idle, and with 700 known devices.  usage: memory.py BUILD"""

import os
import shutil
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "demo"))

from rig import Rig  # noqa: E402

DEVICES = 700


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))


def main():
    build = sys.argv[1]
    rig = Rig(build, tempfile.mkdtemp(prefix="memory-", dir=build), scale=50)
    try:
        rig.start_switch()
        pid = rig.start_daemon().pid
        rig.wait_for(lambda: "AudacLookup Init success" in rig.log(), 30, "the daemon has started")
        idle = resident(pid)
        rig.pavoctl("profile", "apply", "--name", "House", "--type", "AUDAC Audio and Control Network", "--vlan",
                    "10 type=2 untagged=5", "--vlan", "20 type=3 assigned=5")
        rig.control("plug", name="control", port="0/5", mac="00:1B:92:01:00:01", lldp={"systemDesc": "Audac"})
        rig.control("plug", name="audio", port="0/5", mac="00:1B:92:02:00:00", behind="control", count=DEVICES)
        rig.control("plug", name="crowd", port="0/7", mac="02:00:00:00:00:00", count=16384 - DEVICES - 1)
        rig.wait_for(lambda: len(rig.table("associations")) == DEVICES, 120, "all devices joined")
        calls = rig.control("counters")["calls"]["rpcclt_openapiCliShowExecuteToFile"]
        rig.wait_for(lambda: rig.control("counters")["calls"]["rpcclt_openapiCliShowExecuteToFile"] > calls + 3, 60,
                     "three more cycles")
        full = resident(pid)
        print(f"daemon idle:             {idle} kB resident")
        print(f"daemon, {DEVICES} devices:     {full} kB resident, {full / idle:.2f} times idle")
    finally:
        rig.stop_all()
        shutil.rmtree(rig.root, ignore_errors=True)


if __name__ == "__main__":
    main()
