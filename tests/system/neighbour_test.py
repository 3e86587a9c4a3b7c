#!/usr/bin/env python3
"""The neighbour list of whole processes: pavoctl, cache and switch. PAVO_BUILD names the build folder."""

import itertools
import json
import os
import signal
import socketserver
import struct
import subprocess
import sys
import threading
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, RigTest  # noqa: E402

HOSTILE = "\"},{\\\"\x1b[31m\x07\t\n\x7f\u009b2J\u2028\u0000\udbff".encode("utf-8", "replace").decode()


class NeighbourTest(RigTest):
    """Python's parser reads every answer: it refuses control characters in strings and bytes that are no UTF-8."""

    def setUp(self):
        super().setUp()
        self.rig.start_switch()

    def answer(self, *words):
        done = subprocess.run([self.rig.program("pavoctl"), *words], env=self.rig.env, capture_output=True, check=True)
        return json.loads(done.stdout.decode("utf-8", "strict"))

    def test_hostile_names(self):
        for port, field in enumerate(("systemName", "mgmtAddress", "portId", "chassisId"), start=1):
            self.rig.control("plug", name=f"box {port}", port=f"0/{port}", mac=f"02:00:00:00:00:0{port}",
                             lldp={field: HOSTILE, "systemDesc": "Box"})
        name = HOSTILE.split("\0", maxsplit=1)[0]
        rows = self.answer("neighbours", "--json")["lldpRemoteDevice"]["rows"]
        self.assertEqual([name] * 4, [rows[0]["hostName"], rows[1]["hostIpAddress"], rows[2]["remotePortId"],
                                      rows[3]["hostMacAddress"]])
        self.rig.pavoctl("cache", "refresh", "neighbor_ex")
        self.assertEqual(rows, self.answer("cache", "read", "neighbor_ex/0")["lldpRemoteDevice"]["rows"])
        table = self.rig.pavoctl("neighbours").stdout
        self.assertEqual(1 + len(rows), table.count("\n"))
        self.assertNotRegex(table, "[\x00-\x09\x0b-\x1f\x7f-\x9f]")

    def test_switch_that_goes_away_leaves_the_cached_answer(self):
        self.rig.control("plug", name="host", port="0/5", mac="02:00:00:00:00:01", count=1201)
        self.rig.pavoctl("cache", "refresh", "neighbor_ex")
        sizes = [len(self.answer("cache", "read", f"neighbor_ex/{i}")["lldpRemoteDevice"]["rows"]) for i in range(3)]
        self.assertEqual([500, 500, 201], sizes)
        before = self.answer("cache", "read", "neighbor_ex/2")
        for nth in (1, 700):
            self.rig.control("fault", call="rpcclt_openapiFdbEntryNextGet", nth=nth, once=True)
            self.assertNotEqual(0, self.rig.pavoctl("cache", "refresh", "neighbor_ex", check=False).returncode)
            self.assertEqual(before, self.answer("cache", "read", "neighbor_ex/2"))
            self.rig.control("faults", clear=True)
        self.rig.stop("vswitchd", signal.SIGKILL)
        self.assertEqual(3, self.rig.pavoctl("neighbours", check=False).returncode)
        self.assertEqual(before, self.answer("cache", "read", "neighbor_ex/2"))

    def test_follow(self):
        self.rig.control("plug", name="first", port="0/1", mac="02:00:00:00:00:01")
        with open(self.rig.path("tmp/follow"), "w+b") as output:
            follower = subprocess.Popen([self.rig.program("pavoctl"), "neighbours", "--follow", "--interval", "1"],
                                        env=self.rig.env, stdout=output, stderr=subprocess.STDOUT)
            try:
                def seen(text):
                    self.see(text, lambda: text in self.rig.read("tmp/follow"))
                seen("02:00:00:00:00:01")
                self.rig.control("plug", name="second", port="0/2", mac="02:00:00:00:00:02",
                                 lldp={"systemName": "desk\x1b[2J", "systemDesc": "Desk"})
                seen("joined  0/2  02:00:00:00:00:02")
                seen("  0/2  02:00:00:00:00:02  desk.[2J")  # at once, or when it has announced its name
                self.rig.control("move", name="second", port="0/3")
                seen("moved   0/3 from 0/2  02:00:00:00:00:02")
                self.rig.control("unplug", name="first")
                seen("left    0/1  02:00:00:00:00:01")
                # A switch that is away takes nobody with it.
                self.rig.stop("vswitchd", signal.SIGKILL)
                seen("pavoctl: ")
                self.assertEqual(1, self.rig.read("tmp/follow").count("left "))
                self.rig.start_switch()
                self.rig.control("plug", name="third", port="0/4", mac="02:00:00:00:00:03")
                seen("joined  0/4  02:00:00:00:00:03")
                self.assertIsNone(follower.poll())
            finally:
                follower.send_signal(signal.SIGINT)
                self.assertEqual(-signal.SIGINT, follower.wait(LIMIT))

    def test_follower_whose_reader_has_gone(self):
        command = [self.rig.program("pavoctl"), "neighbours", "--follow", "--interval", "1"]
        with subprocess.Popen(command, env=self.rig.env, stdout=subprocess.PIPE) as follower:
            follower.stdout.readline()
            follower.stdout.close()
            self.assertEqual(0, follower.wait(LIMIT))
        with open("/dev/full", "wb") as full:
            for words in (command, command[:2]):
                self.assertEqual(1, subprocess.run(words, env=self.rig.env, stdout=full, timeout=LIMIT,
                                                   check=False).returncode)

    def test_tables_that_go_in_circles_end(self):
        self.rig.stop("vswitchd")
        mac = "02:00:00:00:00:0"
        circles = {"ArpEntryNextGet": [(0, 1, ip, mac + str(ip)) for ip in (1, 2)],
                   "FdbEntryNextGet": [(0, mac + "1", 1, 1, 1), (0, "?", 1, 1, 1), (0, mac + "1", 2, 1, 1)],
                   "IntfRemoteDeviceNextGet": [(0, 1, 7), (0, 2, 5)]}
        for call, entries in circles.items():
            with BrokenSwitch(self.rig.path("tmp/vswitchd.sock"), call, entries):
                done = subprocess.run([self.rig.program("pavoctl"), "neighbours"], env=self.rig.env, timeout=LIMIT,
                                      capture_output=True, check=False)
            self.assertEqual(1, done.returncode, call)


# A port with link.
PORT = {"ConnectivityCheck": (0,), "IfFirstGet": (0, 1), "SwPortModeGet": (0, 1), "UnitSlotPortGet": (0, 1, 0, 1),
        "IfNameGet": (0, "0/1"), "IfPvidGet": (0, 1), "IfLinkStateGet": (0, 0)}
NOT_FOUND = (-4,)


class BrokenSwitch(socketserver.ThreadingUnixStreamServer):
    """Answers one call with the entries of a table, round and round."""

    daemon_threads = True

    def __init__(self, path, call, entries):
        if os.path.exists(path):
            os.unlink(path)
        super().__init__(path, BrokenReplies)
        self.call, self.circle = call, itertools.cycle(entries)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def __exit__(self, *what):
        self.shutdown()
        super().__exit__(*what)


class BrokenReplies(socketserver.StreamRequestHandler):
    """One connection."""

    def handle(self):
        while len(head := self.rfile.read(4)) == 4:
            request = self.rfile.read(struct.unpack(">I", head)[0]).decode("latin-1")
            known = [reply for name, reply in PORT.items() if name in request]
            reply = next(self.server.circle) if self.server.call in request else (known or [NOT_FOUND])[0]
            packed = bytes([0x90 | len(reply)]) + b"".join(
                bytes([0xa0 | len(item)]) + item.encode() if isinstance(item, str) else struct.pack("b", item)
                for item in reply)
            self.wfile.write(struct.pack(">I", len(packed)) + packed)



if __name__ == "__main__":
    unittest.main()
