#!/usr/bin/env python3
"""Plays a scenario file on a virtual switch with the daemon running, and reports what is seen.

A scenario is a JSON object: "title", "scale" (how many times faster than real time the clocks run) and "acts", each
with "title" and "steps". A step may have
  "say"      what happens, for the reader
  "switch"   control requests to the switch (see vswitch/server/control.h)
  "pavoctl"  command lines of pavoctl, each a list of words; printed as they would be typed
  "level"    threshold of the daemon's log, 0 to 9
  "expect"   what has to be seen then, each within "within" seconds of the switch's time (default 60):
             {"table": name, "row": {...}}, {"table": name, "noRow": {...}}, {"log": line}, {"system": line},
             {"config": "as before"}: the running configuration is that of the beginning of the act;
             {"pavoctl": words, "shows": text} or {"pavoctl": words, "hides": text}: what pavoctl prints;
             "say" is its description for the reader. Log lines count from the end of the previous step.
"""

import argparse
import difflib
import json
import shlex
import shutil
import signal
import sys
import tempfile
import time

from rig import Failure, Rig

TTY = sys.stdout.isatty()


def paint(code, text):
    return f"\033[{code}m{text}\033[0m" if TTY else text


class Player:
    def __init__(self, rig):
        self.rig = rig
        self.shown = 0.0
        self.config = []
        self.marks = {"log": 0, "system": 0}  # lengths of the logs at the end of the last step

    def progress(self, waited, what, within):
        seconds = waited * self.rig.scale
        if TTY:
            print(f"\r    ... {seconds:4.0f} s of {within} s: {what[:80]}", end="", flush=True)
        elif waited - self.shown > 3:
            self.shown = waited
            print(f"    ... {seconds:.0f} s of {within} s", flush=True)

    def expect(self, wanted, marks):
        rig = self.rig
        within = wanted.get("within", 60)
        evidence, difference = [], []

        def seen():
            if "row" in wanted:
                evidence[:] = rig.rows(wanted["table"], **wanted["row"])
                return bool(evidence)
            if "config" in wanted:
                now = rig.running_config()
                difference[:] = difflib.unified_diff(self.config, now, "before", "now", lineterm="", n=1)
                return now == self.config
            if "pavoctl" in wanted:
                lines = rig.pavoctl(*wanted["pavoctl"]).stdout.splitlines()
                text = wanted.get("shows", wanted.get("hides"))
                evidence[:] = [line for line in lines if text in line]
                return bool(evidence) == ("shows" in wanted)
            if "noRow" in wanted:
                return not rig.rows(wanted["table"], **wanted["noRow"])
            text = rig.log() if "log" in wanted else rig.system_log()
            kind = "log" if "log" in wanted else "system"
            evidence[:] = [line for line in text[marks[kind]:].splitlines() if wanted[kind] in line]
            return bool(evidence)

        kind = next(k for k in ("row", "noRow", "log", "system", "config", "pavoctl") if k in wanted)
        what = wanted.get("say") or f"{kind} {wanted[kind]}"
        self.shown = 0.0
        try:
            waited = rig.wait_for(seen, within / rig.scale + 5, what, lambda w: self.progress(w, what, within))
        except Failure as failure:
            raise Failure("\n".join([str(failure), *difference])) from failure
        if TTY:
            print("\r\033[K", end="")
        source = {"row": "switch", "noRow": "switch", "log": "daemon log", "system": "system log",
                  "config": "switch", "pavoctl": "pavoctl"}[kind]
        print(f"  {paint('32', 'ok')} {what}  ({source}, {waited * rig.scale:.0f} s)", flush=True)
        if evidence and kind in ("log", "system", "pavoctl"):
            print(paint("2", f"       {evidence[-1].strip()[:150 if kind == 'pavoctl' else None]}"))
        elif kind == "row":
            shown = ", ".join(f"{k} {v}" for k, v in evidence[-1].items() if v not in ("", [], None))
            print(paint("2", f"       {wanted['table']}: {shown[:150]}"))

    def step(self, step):
        rig = self.rig
        marks = self.marks
        if "say" in step:
            print(f"\n{paint('1', step['say'])}", flush=True)
        for request in step.get("switch", []):
            rig.control(**request)
        for words in step.get("pavoctl", []):
            print(paint("36", "  $ pavoctl " + shlex.join(words)))
            for line in rig.pavoctl(*words).stdout.rstrip().splitlines():
                print(f"    {line}")
        if "level" in step:
            rig.log_level(step["level"])
        for wanted in step.get("expect", []):
            self.expect(wanted, marks)
        self.marks = {"log": len(rig.log()), "system": len(rig.system_log())}


def play(rig, scenario):
    player = Player(rig)
    for act in scenario["acts"]:
        print(f"\n{paint('1;36', '== ' + act['title'])}")
        player.config = rig.running_config()
        for step in act["steps"]:
            player.step(step)
    counters = rig.control("counters")
    if counters["unknownCommands"]:
        raise Failure(f"the switch did not know {counters['unknownCommands']} of the commands")
    print(f"\nThe switch answered {counters['total']} OpEN calls and refused no command.")


def keep(rig):
    vswitchctl = rig.program("vswitchctl")
    pids = " ".join(str(child.pid) for child in rig.children.values())
    print(f"""
Switch and daemon keep running (clocks {rig.scale} times faster than real time). To experiment:

  export PAVO_ROOT={rig.root}
  {vswitchctl} plug desk 0/9 00:1b:92:00:09:01 --system-desc "Audac MTX"
  {vswitchctl} table fdb          (also: ports, lags, vlans, associations, lldp, devices, log)
  {vswitchctl} cli                (the switch's command line; '?' helps)
  {vswitchctl} --help

The daemon's log:  {rig.path('/tmp/ketch.log')}
To end both:       kill {pids}
""")


def main():
    parser = argparse.ArgumentParser(description="Plays a scenario on a virtual switch with the detection daemon.")
    parser.add_argument("--build", required=True, help="build folder with the programs")
    parser.add_argument("--scenario", required=True)
    parser.add_argument("--keep", action="store_true", help="leave both processes running afterwards")
    arguments = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))

    with open(arguments.scenario, encoding="utf-8") as file:
        scenario = json.load(file)
    root = tempfile.mkdtemp(prefix="run-", dir=arguments.build)
    rig = Rig(arguments.build, root, scenario.get("scale", 20))
    started = time.monotonic()
    status = 1
    try:
        print(paint("1", scenario["title"]))
        rig.start_switch()
        rig.start_daemon()
        play(rig, scenario)
        status = 0
        print(paint("32", f"Every step was seen; it took {time.monotonic() - started:.0f} s."))
        if arguments.keep:
            keep(rig)
            rig.children.clear()
    except (Failure, OSError) as failure:
        if TTY:
            print()
        print(paint("31", f"FAILED: {failure}"))
        tail = rig.log().splitlines()[-15:]
        print("The end of the daemon's log:\n  " + "\n  ".join(tail))
    finally:
        rig.stop_all()
        if not (arguments.keep and status == 0):
            shutil.rmtree(root, ignore_errors=True)
    return status


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
