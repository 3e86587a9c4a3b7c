"""A virtual switch and a detection daemon as real processes under a private root folder."""

import contextlib
import json
import os
import pwd
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

TREE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TEMPLATES = "/usr/local/appmgr/usr/share/pavo/profileTemplate"
VENDORS = "/usr/local/appmgr/usr/share/pavo/oui/oui.db"
# Where the build puts each program.
FOLDERS = {"vswitchd": "vswitch", "vswitchctl": "vswitch", "pavo_detection": "detection", "pavoctl": "ctl",
           "frames": "lab", "pavo_cgi": "web", "route_documents": "web", "pavo_webd": "web"}


class Failure(Exception):
    """Something expected did not happen, or a program refused."""


def free_port():
    """Not one of those that the kernel gives to outgoing connections: it stays free while its user is started again."""
    while True:
        port = random.randrange(20000, 32000)
        with socket.socket() as probe, contextlib.suppress(OSError):
            probe.bind(("127.0.0.1", port))
            return port


class Rig:
    """Starts, watches and ends the processes; paths are those that the programs use, below `root`."""

    def __init__(self, build, root, scale=1, origin=None):
        self.build = os.path.abspath(build)
        self.root = os.path.abspath(root)
        self.scale = scale
        self.children = {}
        self.kept = set()  # programs that are started again when they end
        self.keeping = threading.Lock()
        self.places = []  # folders outside the root
        self.web = None  # address of the web interface
        self.env = dict(os.environ, PAVO_ROOT=self.root, PAVO_CLOCK_SCALE=str(scale),
                        PAVO_CLOCK_ORIGIN=str(origin if origin is not None else time.time()), TZ="UTC")
        # Of its own, so that several switches run side by side.
        self.env.setdefault("PAVO_CLI_PORT", str(free_port()))
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

    def start(self, name, *arguments, user=None):
        """Starts a program of the build, or of the system. Started by root, it runs as `user`."""
        program = self.program(name) if name in FOLDERS else name
        account = pwd.getpwnam(user) if user else None
        identity = {"user": account.pw_uid, "group": account.pw_gid,
                    "extra_groups": os.getgrouplist(user, account.pw_gid)} if user else {}
        output = open(self.path(f"tmp/{name}.out"), "ab")
        with output:
            self.children[name] = subprocess.Popen([program, *arguments], env=self.env, stdout=output,
                                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                                   start_new_session=True, **identity)
        return self.children[name]

    def keep_running(self, name, *arguments, user=None):
        """Starts a program, and starts it again when it ends, as a service manager does, until stop()."""

        def watch(child):
            while True:
                child.wait()
                time.sleep(0.2)
                with self.keeping:
                    if self.children.get(name) is not child:
                        return
                    child = self.start(name, *arguments, user=user)

        self.kept.add(name)
        threading.Thread(target=watch, args=[self.start(name, *arguments, user=user)], daemon=True).start()

    def start_switch(self, *arguments):
        self.start("vswitchd", *arguments)
        self.wait_for(lambda: self.try_control({"op": "counters"}) is not None, 20, "the switch answers")

    def start_daemon(self):
        return self.start("pavo_detection")

    def start_web(self, *options, user=None):
        """The web interface on a free port of the loopback address, with TLS; `self.web` is its address. `options` are
        those of make-web-config.sh. Started by root, its programs run as `user`."""
        folder = self.path("web")
        words = [os.path.join(TREE, "scripts", "make-web-config.sh"), "--out", folder, "--cgi", self.program("pavo_cgi"),
                 "--documents", self.program("route_documents"), "--bind", "127.0.0.1", *options]
        passed = [name for name in self.env if name.startswith("PAVO_") or name.endswith("SAN_OPTIONS") or name == "TZ"]
        words += [word for name in passed for word in ("--env", f"{name}={self.env[name]}")]
        if user:
            words += ["--user", user]
        if os.path.exists(self.program("pavo_webd")):
            # The address of a socket is short, and the root may be deep.
            place = tempfile.mkdtemp(prefix="pavo-web-")
            self.places.append(place)
            if user:
                shutil.chown(place, user)
            words += ["--resident", os.path.join(place, "socket")]
            self.keep_running("pavo_webd", "--socket", os.path.join(place, "socket"), user=user)
        # Somebody else may take the port in between.
        for _ in range(5):
            port = free_port()
            done = subprocess.run([*words, "--port", str(port)], capture_output=True, text=True, check=False)
            if done.returncode != 0:
                raise Failure(f"make-web-config.sh: {done.stderr.strip()}")
            self.web = f"https://localhost:{port}"
            server = self.start("lighttpd", "-D", "-f", os.path.join(folder, "lighttpd.conf"))
            deadline = time.monotonic() + 20
            while server.poll() is None:
                done = self.curl("/api/v2/openapi", timeout=20)
                if done.returncode == 0:
                    return
                if time.monotonic() > deadline:
                    raise Failure(f"the web interface does not answer: {done.stderr.strip()}")
                time.sleep(0.02)
        raise Failure(f"lighttpd ended with status {server.returncode}: {self.output('lighttpd')}")

    def curl(self, path, *words, **options):
        """curl on a path of the web interface."""
        return subprocess.run(["curl", "--silent", "--show-error", "--fail-with-body", "--cacert", self.certificate(),
                               *words, self.web + path],
                              **{"capture_output": True, "text": True, "check": False, "timeout": 60, **options})

    def certificate(self):
        return self.path("web/server.crt")

    def stop(self, name, how=signal.SIGTERM):
        with self.keeping:
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
        """Who is served by others ends before them."""
        for name in reversed(list(self.children)):
            self.stop(name)
        while self.places:
            shutil.rmtree(self.places.pop(), ignore_errors=True)

    def output(self, name):
        return self.read(f"tmp/{name}.out")

    def check_alive(self):
        for name, child in self.children.items():
            # A stream of events ends with its session.
            ended = child.poll() is not None and (name, child.returncode) != ("curl", 0)
            if ended and name not in self.kept:
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
