"""A virtual switch and a detection daemon as real processes under a private root folder."""

import json
import os
import shutil
import signal
import subprocess
import time

TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TEMPLATES = "/usr/local/appmgr/usr/share/pavo/profileTemplate"
VENDORS = "/usr/local/appmgr/usr/share/pavo/oui/oui.db"
# Where the build puts each program.
FOLDERS = {"vswitchd": "vswitch", "vswitchctl": "vswitch", "pavo_detection": "detection", "pavoctl": "ctl",
           "frames": "lab"}


class Failure(Exception):
    """Something expected did not happen, or a program refused."""


class Rig:
    """Starts, watches and ends the processes; paths are those that the programs use, below `root`."""

    def __init__(self, build, root, scale=1, origin=None):
        self.build = os.path.abspath(build)
        self.root = os.path.abspath(root)
        self.scale = scale
        self.children = {}
        self.env = dict(os.environ, PAVO_ROOT=self.root, PAVO_CLOCK_SCALE=str(scale),
                        PAVO_CLOCK_ORIGIN=str(origin if origin is not None else time.time()), TZ="UTC")
        for folder in ("tmp", "mnt/application/pavo/tmp"):
            os.makedirs(self.path(folder), exist_ok=True)
        shutil.copytree(os.path.join(TREE, "data", "profileTemplate"), self.path(TEMPLATES), dirs_exist_ok=True)
        os.makedirs(os.path.dirname(self.path(VENDORS)), exist_ok=True)
        if not os.path.lexists(self.path(VENDORS)):
            os.symlink(os.path.join(self.build, "oui.db"), self.path(VENDORS))

    def path(self, fixed):
        return os.path.join(self.root, fixed.lstrip("/"))

    def program(self, name):
        return os.path.join(self.build, FOLDERS[name], name)

    # --- processes

    def start(self, name, *arguments):
        output = open(self.path(f"tmp/{name}.out"), "ab")
        with output:
            self.children[name] = subprocess.Popen([self.program(name), *arguments], env=self.env, stdout=output,
                                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                                   start_new_session=True)
        return self.children[name]

    def start_switch(self, *arguments):
        self.start("vswitchd", *arguments)
        self.wait_for(lambda: self.try_control({"op": "counters"}) is not None, 20, "the switch answers")

    def start_daemon(self):
        return self.start("pavo_detection")

    def stop(self, name, how=signal.SIGTERM):
        child = self.children.pop(name, None)
        if child is not None and child.poll() is None:
            child.send_signal(how)
            try:
                child.wait(10)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait()
        return child.returncode if child is not None else None

    def stop_all(self):
        for name in list(self.children):
            self.stop(name)

    def output(self, name):
        return self.read(f"tmp/{name}.out")

    def check_alive(self):
        for name, child in self.children.items():
            if child.poll() is not None:
                raise Failure(f"{name} ended with status {child.returncode}:\n{self.output(name)}")

    # --- the switch

    def try_control(self, request):
        done = subprocess.run([self.program("vswitchctl"), "request", json.dumps(request)], env=self.env,
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            self.error = done.stderr.strip()
            return None
        return json.loads(done.stdout) if done.stdout.strip() else {}

    def control(self, op, **members):
        answer = self.try_control({"op": op, **members})
        if answer is None:
            raise Failure(f"{op}: {self.error}")
        return answer

    def cli(self, *lines):
        return self.control("exec", lines=list(lines))["output"]

    def running_config(self):
        """The configuration as commands, without the comment lines that hold times."""
        return [line for line in self.cli("show running-config").splitlines() if not line.startswith("!")]

    def pavoctl(self, *words, check=True):
        done = subprocess.run([self.program("pavoctl"), *words], env=self.env, capture_output=True, text=True,
                              check=False)
        if check and done.returncode != 0:
            raise Failure(f"pavoctl {' '.join(words)}: {done.stderr.strip()}")
        return done

    def table(self, name):
        return self.control("table", name=name)["rows"]

    def rows(self, table, **members):
        return [row for row in self.table(table) if all(row.get(k) == v for k, v in members.items())]

    def system_log(self):
        return "\n".join(row["text"] for row in self.table("log"))

    # --- the daemon's files

    def read(self, fixed):
        try:
            with open(self.path(fixed), encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def log(self):
        return self.read("/tmp/ketch.log.old") + self.read("/tmp/ketch.log")

    def log_level(self, level):
        """Changes the log threshold of every running process: written in place, as they keep the file open."""
        with open(self.path("/tmp/devmgr_log_level"), "r+", encoding="ascii") as file:
            file.write(str(level))

    # --- waiting

    def wait_for(self, condition, seconds, what, progress=None):
        """Polls until the condition holds, for at most `seconds` of real time."""
        start = time.monotonic()
        while True:
            self.check_alive()
            if condition():
                return time.monotonic() - start
            waited = time.monotonic() - start
            if waited > seconds:
                raise Failure(f"not seen within {seconds:.0f} s: {what}")
            if progress:
                progress(waited)
            time.sleep(0.05)
