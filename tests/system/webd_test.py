#!/usr/bin/env python3
"""pavo_webd as a whole process beside pavo_cgi, switch and daemon. PAVO_BUILD names the build folder."""

import http.client
import json
import os
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, RigTest, run  # noqa: E402

HEADER = b"Content-Type: application/json\r\n\r\n"
LOGIN = {"user": "admin", "password": "switch1234"}
PID_FILE = "/tmp/resourse_pid.txt"
DELTA = "/tmp/rest_db_api_delta.txt"
# What is different with every look.
MEASURED = {"/api/v2/system/time", "/api/v2/system/health", "/api/v2/system/info"}


class Connection(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=LIMIT)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class Stream:
    """The events of one client."""

    def __init__(self, test, query="", **headers):
        self.connection = Connection(test.socket)
        test.addCleanup(self.connection.close)
        self.connection.request("GET", "/api/v2/events" + query, headers={"Session": test.token, **headers})
        self.answer = self.connection.getresponse()
        test.assertEqual((200, "text/event-stream"), (self.answer.status, self.answer.headers["Content-Type"]))
        self.last = self.block()["id"]

    def block(self):
        """The next block, without comments; nothing at the end of the stream."""
        fields = {}
        while line := self.answer.readline():
            name, _, value = line.decode("utf-8", "strict").rstrip("\n").partition(":")
            if name:
                fields[name] = value.strip()
            elif line == b"\n" and fields:
                return fields
        return None

    def event(self, name, **members):
        """The next event of that name with these members, passing over others."""
        while block := self.block():
            self.last = block.get("id", self.last)
            data = json.loads(block.get("data", "{}"))
            if block.get("event") == name and members.items() <= data.items():
                return data
        raise AssertionError(f"the stream has ended without {name} {members}")


class WebdTest(RigTest):
    def setUp(self):
        super().setUp()
        self.token = None
        self.socket = self.rig.path("tmp/webd.sock")
        self.rig.start_switch()
        self.token = self.cgi("post", "/api/v2/session", LOGIN)["session"]["token"]
        self.start_webd()

    def start_webd(self):
        child = self.rig.start("pavo_webd", "--socket", self.socket)
        self.see("pavo_webd serves", lambda: self.rig.read(PID_FILE) == f"{child.pid} {child.pid}")
        return child

    def cgi_bytes(self, method, path, body=None):
        data = b"" if body is None else json.dumps(body).encode()
        env = dict(self.rig.env, REQUEST_URI=path, REQUEST_METHOD=method.upper(), CONTENT_LENGTH=str(len(data)),
                   QUERY_STRING=path.partition("?")[2], REMOTE_ADDR="127.0.0.1")
        if self.token:
            env["HTTP_SESSION"] = self.token
        return subprocess.run([self.rig.program("pavo_cgi")], env=env, input=data, capture_output=True, check=True,
                              timeout=LIMIT).stdout

    def cgi(self, method, path, body=None):
        answer = json.loads(self.cgi_bytes(method, path, body)[len(HEADER):])
        self.assertEqual(0, answer["resp"]["respCode"], answer)
        return answer

    def fetch(self, path, method="GET", **headers):
        connection = Connection(self.socket)
        connection.request(method, path, headers={"Session": self.token} | headers)
        answer = connection.getresponse()
        body = answer.read()
        connection.close()
        return answer.status, answer.headers, body

    def vlans(self):
        status, _, body = self.fetch("/api/v2/vlan/ports")
        self.assertEqual(200, status)
        return {int(vlan["vlanId"]) for vlan in json.loads(body)["switchConfigVlan"]}

    def test_answers_are_those_of_a_request(self):
        paths = run([self.rig.program("route_documents"), "resident"], check=True).stdout.split()
        self.assertEqual("/api/v2/events", paths.pop(0))
        self.assertGreater(len(paths), 25)
        for path in paths:
            with self.subTest(path):
                status, headers, body = self.fetch(path)
                self.assertEqual((200, "application/json"), (status, headers["Content-Type"]))
                self.assertGreaterEqual(int(headers["Age"]), 0)
                other = self.cgi_bytes("get", path)[len(HEADER):]
                if path in MEASURED:
                    self.assertEqual(json.loads(other).keys(), json.loads(body).keys())
                else:
                    self.assertEqual(other, body)
                self.assertEqual((403, b""), self.fetch(path, Session="0" * 64)[::2])
        query = "/api/v2/vlan/ports?x=%zz"
        self.assertEqual(self.cgi_bytes("get", query)[len(HEADER):], self.fetch(query)[2])
        self.assertEqual(404, self.fetch("/api/v2/vlan/list")[0])
        self.assertEqual(405, self.fetch(paths[0], "POST")[0])

    def test_what_changed_is_shown_with_the_next_request(self):
        self.assertEqual({1}, self.vlans())
        for vlan in range(20, 40):
            self.cgi("post", "/api/v2/vlan/list", {"vlan-list": str(vlan)})
            self.assertIn(vlan, self.vlans())
            if vlan % 8 == 0:
                self.rig.stop("pavo_webd", signal.SIGKILL)
                self.start_webd()
        self.see("the delta file is emptied", lambda: os.path.getsize(self.rig.path(DELTA)) == 0)
        self.rig.cli("vlan database", "vlan 50", "exit")
        self.see("what others change is shown when the answer is too old", lambda: 50 in self.vlans())

        self.rig.stop("vswitchd", signal.SIGKILL)
        self.see("an answer is not given out for ever",
                 lambda: b"does not answer" in self.fetch("/api/v2/vlan/ports")[2])
        self.rig.start_switch()
        self.see("the switch is back", lambda: b'"success"' in self.fetch("/api/v2/vlan/ports")[2])

    def link_reads(self):
        return self.rig.control("counters")["calls"].get("openapiIfLinkStateGet", 0)

    def test_events(self):
        self.rig.pavoctl("profile", "apply", "--name", "House", "--type", "AUDAC Audio and Control Network",
                         "--vlan", "10 type=2 untagged=5,7", "--vlan", "20 type=3 assigned=5,7")
        self.rig.start_daemon()
        self.see("the daemon reports its devices", lambda: self.rig.read("/run/pavo/devices.json"))
        calls = self.link_reads()
        stream, other = Stream(self), Stream(self, "?events=answer&answers=vlan_list")
        # The first look at the links is where their changes begin.
        self.see("links are looked at", lambda: self.link_reads() > calls + 100)
        self.rig.control("plug", name="desk", port="0/5", mac="00:1B:92:01:00:01", lldp={"systemDesc": "Audac MTX"})
        self.rig.control("plug", name="amp", port="0/5", mac="00:1B:92:02:00:01", behind="desk")
        self.assertEqual({"ifNum": 5, "old": "down", "new": "up"}, stream.event("link", ifNum=5))
        joined = stream.event("device", change="joined")
        self.assertEqual((None, "audac", "00:1B:92:02:00:01"),
                         (joined["old"], joined["new"]["family"], joined["new"]["address"]))
        last = stream.last
        self.cgi("post", "/api/v2/vlan/list", {"vlan-list": "77"})
        self.assertEqual({"name": "vlan_list"}, other.event("answer"))
        self.rig.control("unplug", name="desk")
        stream.event("link", ifNum=5, new="down")
        self.assertEqual(joined["new"]["address"], stream.event("device", change="left")["old"]["address"])
        again = Stream(self, "?events=link", **{"Last-Event-ID": last})
        self.assertEqual({"ifNum": 5, "old": "up", "new": "down"}, again.event("link"))
        Stream(self, **{"Last-Event-ID": "00000000-1"}).event("missed")
        self.assertEqual(400, self.fetch("/api/v2/events?events=weather")[0])
        self.assertEqual(403, self.fetch("/api/v2/events", Session="none")[0])

        self.cgi("delete", "/api/v2/session")
        while other.block():
            pass

    def test_ends_and_starts(self):
        for arguments, word in ((("--socket", self.rig.path("tmp/other.sock")), "runs already"), ((), "usage")):
            self.assertIn(word, run([self.rig.program("pavo_webd"), *arguments], env=self.rig.env).stderr)
        self.assertEqual(0o660, os.stat(self.socket).st_mode & 0o777)
        streams = [Stream(self) for _ in range(200)]
        child = self.rig.children["pavo_webd"]
        start = time.monotonic()
        self.assertEqual(0, self.rig.stop("pavo_webd"))
        self.assertLess(time.monotonic() - start, 1 if "san" not in self.rig.build else 10)
        self.assertEqual(0, child.returncode)
        self.assertTrue(all(stream.block() is None for stream in streams))
        self.assertFalse(os.path.exists(self.socket) or self.rig.read(PID_FILE))

        self.start_webd()
        self.rig.stop("pavo_webd", signal.SIGKILL)
        self.assertTrue(os.path.exists(self.socket), "a socket that nobody listens on is in the way")
        self.start_webd()
        with open(self.rig.path(PID_FILE), "w", encoding="ascii") as file:
            file.write("0 0")
        self.assertEqual(0, self.rig.stop("pavo_webd"))
        self.assertEqual("0 0", self.rig.read(PID_FILE), "another program's")


if __name__ == "__main__":
    unittest.main()
