#!/usr/bin/env python3
"""Measures the web interface behind lighttpd, with TLS as it is configured.  usage: web.py BUILD"""

import contextlib
import http.client
import json
import os
import re
import shutil
import signal
import ssl
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter
from statistics import median

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "demo"))

from rig import Failure, Rig  # noqa: E402

ROUNDS, SECONDS = 5, 2  # of each measurement; what is compared takes turns
CONNECTIONS = 4
ONE_CALL = "/api/v2/lag/auto"  # a handler with one OpEN call; here pavo_cgi runs it, and not the resident program
HELLO = "/hello/"
CACHED = {"/api/v2/vlan/ports": "/short.json", "/api/v2/port/all": "/long.json"}  # answers, and files that hold the same
CABLES = 40  # plugged in, one after another
LISTENERS, REST = 200, 10  # browsers with an event stream, seconds at rest
PARALLEL, STORMS = 1000, 3  # requests at once, and how often
STORM = (("/api/v2/vlan/ports", "switchConfigVlan"), ("/api/v2/port/status", "swcfg_ports_status"),
         ("/api/v2/interface/status", "interfacesStatus"), ("/api/v2/vlan/list", "vlanList"),
         ("/api/v2/session", "session"))


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


def with_own_pages(rig, token):
    """Adds what is compared to the server: a program, and files that are as long as cached answers; their sizes."""
    folder = rig.path("web")
    sizes = {}
    for path, copy in CACHED.items():
        answer = rig.curl(path, "--header", f"Session: {token}", check=True).stdout.encode()
        with open(os.path.join(folder, "static") + copy, "wb") as file:
            sizes[path] = file.write(answer)
    path = os.path.join(folder, "lighttpd.conf")
    with open(path, encoding="utf-8") as file:
        text = file.read()
    if f"{ONE_CALL}|" not in text:
        raise Failure(f"{ONE_CALL} is not in the configuration as expected")
    with open(path, "w", encoding="utf-8") as file:
        program = os.path.join(rig.build, "bench", "hello_cgi")
        file.write(text.replace(f"{ONE_CALL}|", ""))
        file.write(f'$HTTP["url"] =~ "^{HELLO}" {{\n    alias.url = ("{HELLO}" => "{program}/")\n'
                   '    cgi.assign = ("hello_cgi" => "")\n}\n')
    rig.stop("lighttpd")
    rig.start("lighttpd", "-D", "-f", path)
    rig.wait_for(lambda: rig.curl(HELLO).returncode == 0, 10, "the server answers")
    return sizes


def connect(rig):
    """A connection to the server, with its certificate checked."""
    context = ssl.create_default_context(cafile=rig.certificate())
    return http.client.HTTPSConnection("localhost", int(rig.web.rpartition(":")[2]), timeout=60, context=context)


def stream(rig, token, query=""):
    connection = connect(rig)
    connection.request("GET", "/api/v2/events" + query, headers={"Session": token})
    answer = connection.getresponse()
    if answer.status != 200:
        raise Failure(f"events: {answer.status}")
    return answer


def next_data(answer, kind):
    """The data of the next event of a kind."""
    while True:
        line = answer.readline()
        if not line:
            raise Failure("the event stream ended")
        if line.strip() == b"event: " + kind:
            while not line.startswith(b"data:"):
                line = answer.readline()
            return json.loads(line[5:])


def measure_events(rig, token):
    """From the control program's return, by which the switch knows of the cable, to the browser's socket."""
    answer = stream(rig, token, "?events=link")
    times = []
    for _ in range(CABLES // 2):
        for change in (lambda: rig.control("plug", name="desk", port="0/9", mac="02:00:00:00:00:09"),
                       lambda: rig.control("unplug", name="desk")):
            begin = time.monotonic()
            change()
            if next_data(answer, b"link")["ifNum"] != 9:
                raise Failure("an event of another port")
            times.append(time.monotonic() - begin)
    times.sort()
    say(f"event of a cable to the browser's socket ({CABLES} cables, ms)",
        f"median {1000 * median(times):.0f}, 95 % {1000 * times[CABLES * 95 // 100 - 1]:.0f}, "
        f"worst {1000 * times[-1]:.0f} (wanted <= 1000)")


def resident(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS"))


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat", "rb") as file:
        fields = file.read().rpartition(b")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measure_listeners(rig, token):
    pid = rig.children["pavo_webd"].pid

    def rests(what):
        before = processor_seconds(pid)
        time.sleep(REST)
        say(what, f"{resident(pid)} kB resident, {(processor_seconds(pid) - before) / REST * 1000:.1f} ms of processor "
                  "time a second")

    rests("pavo_webd at rest, nobody listens")
    with contextlib.ExitStack() as stack:
        for _ in range(LISTENERS):
            stack.enter_context(contextlib.closing(stream(rig, token)))
        rests(f"pavo_webd at rest, {LISTENERS} browsers listen")


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


def storm(rig, token):
    """PARALLEL requests that start together while cables come and go; how many answers of which kind."""
    results, lock, barrier, over = Counter(), threading.Lock(), threading.Barrier(PARALLEL + 1), threading.Event()

    def ask(path, key):
        connection = connect(rig)
        connection.connect()
        barrier.wait()
        try:
            connection.request("GET", path, headers={"Session": token})
            answer = connection.getresponse()
            body = answer.read()
            what = str(answer.status)
            if answer.status == 200:
                data = json.loads(body)
                what = "right" if data["resp"]["respCode"] == 0 and key in data else f"refused: {data['resp']['respMsg']}"
        except (OSError, ValueError, KeyError, http.client.HTTPException) as error:
            what = f"wrong: {error!r}"
        finally:
            connection.close()
        with lock:
            results[what] += 1

    def plug():
        while not over.is_set():
            for op in ("plug", "unplug"):
                for number in range(10, 20):
                    rig.control(op, name=f"crowd{number}",
                                **({"port": f"0/{number}", "mac": f"02:00:00:00:01:{number}"} if op == "plug" else {}))

    threads = [threading.Thread(target=ask, args=STORM[number % len(STORM)], daemon=True) for number in range(PARALLEL)]
    plugging = threading.Thread(target=plug, daemon=True)
    for thread in [plugging, *threads]:
        thread.start()
    barrier.wait(60)
    begin = time.monotonic()
    for thread in threads:
        thread.join()
    seconds = time.monotonic() - begin
    over.set()
    plugging.join()
    return results, seconds


def measure_storm(rig, token):
    programs = ("pavo_webd", "lighttpd", "vswitchd")
    results, states = Counter(), []
    for _ in range(STORMS):
        found, seconds = storm(rig, token)
        results += found
        time.sleep(3)
        states.append({name: (descriptors(rig.children[name].pid), resident(rig.children[name].pid)) for name in programs})
    say(f"{STORMS} times {PARALLEL} requests at once while cables come and go", f"{dict(results)}, the last in {seconds:.1f} s")
    for name in programs:
        say(f"{name} after each: descriptors, kB resident",
            ", ".join(f"{files} {memory}" for files, memory in (state[name] for state in states)))
    if set(results) != {"right"}:
        raise Failure("wrong answers")


def main():
    build = sys.argv[1]
    rig = Rig(build, tempfile.mkdtemp(prefix="web-", dir=build))
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        rig.start_switch()
        rig.start_web()
        token = log_in(rig)
        sizes = with_own_pages(rig, token)
        session = ("--header", f"Session: {token}")
        for path, copy in CACHED.items():
            compare(rig, f"cached GET / static file of the same {sizes[path]} bytes", 0.6, (path, *session), (copy,))
        compare(rig, "GET answered from one OpEN call / hello-world program in C", 0.85, (ONE_CALL, *session), (HELLO,))
        measure_events(rig, token)
        measure_listeners(rig, token)
        measure_storm(rig, token)
    finally:
        rig.stop_all()
        shutil.rmtree(rig.root, ignore_errors=True)


if __name__ == "__main__":
    main()
