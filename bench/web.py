#!/usr/bin/env python3
"""Measures the web interface behind lighttpd, with TLS as it is configured.  usage: web.py BUILD"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from statistics import median

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "demo"))

from rig import Failure, Rig  # noqa: E402

ROUNDS, SECONDS = 5, 2  # of each measurement; what is compared takes turns
CONNECTIONS = 4
ONE_CALL = "/api/v2/lag/auto"  # a handler with one OpEN call
HELLO = "/hello/"


def say(what, value):
    print(f"{what + ':':<72} {value}", flush=True)


def requests_per_second(rig, path, *words):
    done = subprocess.run(["wrk", "--threads", "1", "--connections", str(CONNECTIONS), "--duration", f"{SECONDS}s",
                           *words, rig.web + path], capture_output=True, text=True, check=True)
    if re.search("Non-2xx|Socket errors", done.stdout):
        raise Failure(f"{path}: {done.stdout}")
    return float(re.search(r"Requests/sec: *([0-9.]+)", done.stdout)[1])


def compare(rig, what, wanted, measured, baseline):
    """The median of the ratios of neighbouring measurements, and their range."""
    pairs = [(requests_per_second(rig, *measured), requests_per_second(rig, *baseline)) for _ in range(ROUNDS)]
    ratios = sorted(a / b for a, b in pairs)
    say(what, f"{median(ratios):.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f}; wanted >= {wanted}), "
              f"{median(a for a, _ in pairs):.0f} / {median(b for _, b in pairs):.0f} requests a second")


def log_in(rig):
    done = rig.curl("/api/v2/session", "--json", json.dumps({"user": "admin", "password": "switch1234"}), check=True)
    return json.loads(done.stdout)["session"]["token"]


def with_own_pages(rig):
    """Adds the program for comparison to the server."""
    folder = rig.path("web")
    with open(os.path.join(folder, "lighttpd.conf"), "a", encoding="utf-8") as file:
        program = os.path.join(rig.build, "bench", "hello_cgi")
        file.write(f'$HTTP["url"] =~ "^{HELLO}" {{\n    alias.url = ("{HELLO}" => "{program}/")\n'
                   '    cgi.assign = ("hello_cgi" => "")\n}\n')
    rig.stop("lighttpd")
    rig.start("lighttpd", "-D", "-f", os.path.join(folder, "lighttpd.conf"))
    rig.wait_for(lambda: rig.curl(HELLO).returncode == 0, 10, "the server answers")


def main():
    build = sys.argv[1]
    rig = Rig(build, tempfile.mkdtemp(prefix="web-", dir=build))
    try:
        rig.start_switch()
        rig.start_web()
        with_own_pages(rig)
        session = ("--header", f"Session: {log_in(rig)}")
        compare(rig, "GET answered from one OpEN call / hello-world program in C", 0.85, (ONE_CALL, *session), (HELLO,))
    finally:
        rig.stop_all()
        shutil.rmtree(rig.root, ignore_errors=True)


if __name__ == "__main__":
    main()
