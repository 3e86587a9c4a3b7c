#!/usr/bin/env python3
"""Plays a scenario file on a virtual switch with daemon and web interface running, and reports what is seen.

A scenario is a JSON object: "title", "scale" (how many times faster than real time the clocks run) and "acts", each
with "title" and "steps". A step may have
  "say"      what happens, for the reader
  "switch"   control requests to the switch (see vswitch/server/control.h)
  "pavoctl"  command lines of pavoctl, each a list of words; printed as they would be typed
  "curl"     requests to the web interface: lists of curl's words, printed as they would be typed. $WEB is its address, $CA its
             certificate; a word {"json": value} is a body, "@NAME" a file, and a list that begins with "NAME=" keeps
             what the answer has under that key, as $NAME. The answer has to tell of success; it is shown in part
  "files"    JSON values by the names of files that are made of them before
  "follow"   words of a curl that stays in the background until the end of the act, such as a stream of events
  "level"    threshold of the daemon's log, 0 to 9
  "expect"   what has to be seen then, each within "within" seconds of the switch's time (default 60):
             {"table": name, "row": {...}}, {"table": name, "noRow": {...}}, {"log": line}, {"system": line},
             {"config": "as before"}: the running configuration is that of the beginning of the act;
             {"pavoctl": words, "shows": text} or {"pavoctl": words, "hides": text}: what pavoctl prints;
             {"curl": words, "shows": text} or {"curl": words, "hides": text}: what the web interface answers;
             {"followed": text}: a line of what the curl in the background has printed since the previous step;
             "say" is its description for the reader. Log lines count from the end of the previous step.
"""

import argparse
import difflib
import json
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import textwrap
import threading
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
        self.marks = {"log": 0, "system": 0, "followed": 0}  # lengths of the logs at the end of the last step
        self.variables = {}  # of the curl lines

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
        kind = next(k for k in ("row", "noRow", "log", "system", "followed", "config", "pavoctl", "curl") if k in wanted)
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
            if "curl" in wanted:
                text = wanted.get("shows", wanted.get("hides"))
                evidence[:] = [line for line in self.curl(wanted["curl"]).splitlines() if text in line]
                return bool(evidence) == ("shows" in wanted)
            if "noRow" in wanted:
                return not rig.rows(wanted["table"], **wanted["noRow"])
            text = self.texts()[kind]
            evidence[:] = [line for line in text[marks[kind]:].splitlines() if wanted[kind] in line]
            return bool(evidence)

        what = wanted.get("say") or f"{kind} {wanted[kind]}"
        self.shown = 0.0
        try:
            waited = rig.wait_for(seen, within / rig.scale + 5, what, lambda w: self.progress(w, what, within))
        except Failure as failure:
            raise Failure("\n".join([str(failure), *difference])) from failure
        if TTY:
            print("\r\033[K", end="")
        source = {"row": "switch", "noRow": "switch", "log": "daemon log", "system": "system log",
                  "config": "switch", "pavoctl": "pavoctl", "curl": "web interface",
                  "followed": "web interface"}[kind]
        print(f"  {paint('32', 'ok')} {what}  ({source}, {waited * rig.scale:.0f} s)", flush=True)
        if evidence and kind in ("log", "system", "pavoctl", "curl", "followed"):
            print(paint("2", f"       {evidence[-1].strip()[:None if kind in ('log', 'system') else 150]}"))
        elif kind == "row":
            shown = ", ".join(f"{k} {v}" for k, v in evidence[-1].items() if v not in ("", [], None))
            print(paint("2", f"       {wanted['table']}: {shown[:150]}"))

    def texts(self):
        return {"log": self.rig.log(), "system": self.rig.system_log(), "followed": self.rig.output("curl")}

    def typed(self, words):
        """A curl line as a person would type it, and its words as curl gets them."""
        shown, real = ["curl", "-s", "--cacert", "$CA"], ["curl", "-sS", "--cacert", self.rig.certificate()]
        for word in words:
            text = json.dumps(word["json"], separators=(",", ":")) if isinstance(word, dict) else word
            simple = "$" not in text or isinstance(word, dict)
            shown.append(shlex.quote(text) if simple else f'"{text}"' if " " in text or "?" in text else text)
            if not isinstance(word, dict):
                for name, value in {"WEB": self.rig.web + "/api/v2", **self.variables}.items():
                    text = text.replace("$" + name, value)
            real.append("@" + self.rig.path(text[1:]) if text.startswith("@") else text)
        return " ".join(shown), real

    def curl(self, words):
        done = subprocess.run([*self.typed(words)[1], "--max-time", "60"], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(f"curl: {done.stderr.strip()}")
        return done.stdout

    def request(self, words):
        """Sends a request, shows line and answer, and keeps what the line is to keep."""
        name = words[0][:-1] if words[0].endswith("=") else None
        words = words[1:] if name else words
        line = self.typed(words)[0]
        print(paint("36", f"  $ {line}"))
        answer = self.curl(words)
        try:
            answer = json.loads(answer)
            outcome = answer.pop("resp")
        except (ValueError, KeyError) as error:
            raise Failure(f"{line}: {answer}") from error
        text = json.dumps(answer, ensure_ascii=False)
        print(f"    {outcome['status']}" + (f": {text[:110]}{' ...' if len(text) > 110 else ''}" if answer else ""))
        if outcome["status"] != "success":
            raise Failure(f"{line}: {outcome}")
        if name:
            self.variables[name] = next(data[name.lower()] for data in answer.values())
            print(paint("36", f"  $ {name}={self.variables[name]}"))

    def write(self, name, value):
        print(paint("36", f"  $ cat {name}"))
        for line in textwrap.wrap(json.dumps(value), 110):
            print(f"    {line}")
        with open(self.rig.path(name), "w", encoding="utf-8") as file:
            json.dump(value, file)

    def follow(self, words):
        line, real = self.typed(words)
        print(paint("36", f"  $ {line} &"))
        self.rig.start(*real)

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
        for name, value in step.get("files", {}).items():
            self.write(name, value)
        for words in step.get("curl", []):
            self.request(words)
        if "follow" in step:
            self.follow(step["follow"])
        if "level" in step:
            rig.log_level(step["level"])
        for wanted in step.get("expect", []):
            self.expect(wanted, marks)
        self.marks = {kind: len(text) for kind, text in self.texts().items()}


def play(rig, scenario):
    player = Player(rig)
    for act in scenario["acts"]:
        print(f"\n{paint('1;36', '== ' + act['title'])}")
        player.config = rig.running_config()
        if any("curl" in step for step in act["steps"]) and not rig.web:
            rig.start_web()
            print(paint("2", f"CA={rig.certificate()} WEB={rig.web}/api/v2"))
        for step in act["steps"]:
            player.step(step)
        rig.stop("curl")
    counters = rig.control("counters")
    if counters["unknownCommands"]:
        raise Failure(f"the switch did not know {counters['unknownCommands']} of the commands")
    print(f"\nThe switch answered {counters['total']} OpEN calls and refused no command.")


PLAN = {"profileConfig": {
    "name": "Stage", "color": "#3366cc", "profileType": "Audio Dante", "vlanNum": 1,
    "vlans": [{"vlanId": 20, "vlanType": 1, "ports": {"untagged": [1, 2, 3, 4], "tagged": [48]}}]}}


def keep(rig):
    """Tells how to carry on, and waits for Ctrl-C."""
    vswitchctl = rig.program("vswitchctl")
    if not rig.web:
        rig.start_web()
    session = '-H "Session: $TOKEN"'
    print(f"""
Switch, daemon and web interface keep running until Ctrl-C (clocks {rig.scale} times faster than real time). To experiment,
in another terminal:

  export PAVO_ROOT={rig.root}
  {vswitchctl} plug desk 0/9 00:1b:92:00:09:01 --system-desc "Audac MTX"
  {vswitchctl} table fdb          (also: ports, lags, vlans, associations, lldp, devices, log)
  {vswitchctl} cli                (the switch's command line; '?' helps)
  {vswitchctl} --help
  telnet 127.0.0.1 {rig.env['PAVO_CLI_PORT']}          (the same, after login)

The web interface:  {rig.web}   user admin, password switch1234

  WEB={rig.web}/api/v2 CA={rig.certificate()}
  TOKEN=$(curl -s --cacert $CA --json '{{"user":"admin","password":"switch1234"}}' $WEB/session |
      sed -n 's/.*"token":[^"]*"\\([^"]*\\)".*/\\1/p')
  curl -s --cacert $CA {session} $WEB/vlan/list
  curl -s --cacert $CA {session} $WEB/neighbour/list
  curl -s --cacert $CA {session} --json '{json.dumps(PLAN, separators=(",", ":"))}' $WEB/profile/plan
  curl -s --cacert $CA {session} -N $WEB/events
  curl -s --cacert $CA {session} -X DELETE $WEB/session

A session ends when it has not been used for {7200 / rig.scale:.0f} seconds (two hours by the switch's clock).
The log:  {rig.path('/tmp/ketch.log')}
""", flush=True)
    threading.Event().wait()


def main():
    parser = argparse.ArgumentParser(description="Plays a scenario on a virtual switch with the detection daemon.")
    parser.add_argument("--build", required=True, help="build folder with the programs")
    parser.add_argument("--scenario", required=True)
    parser.add_argument("--keep", action="store_true", help="leave all running afterwards, until Ctrl-C")
    arguments = parser.parse_args()
    for ending in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(ending, lambda number, _: sys.exit(128 + number))

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
    except (Failure, OSError) as failure:
        if TTY:
            print()
        print(paint("31", f"FAILED: {failure}"))
        tail = rig.log().splitlines()[-15:]
        print("The end of the daemon's log:\n  " + "\n  ".join(tail))
    finally:
        rig.stop_all()
        shutil.rmtree(root, ignore_errors=True)
    return status


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
