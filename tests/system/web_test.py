#!/usr/bin/env python3
"""The web interface as whole processes: every route through pavo_cgi, and the web server in front of it. PAVO_BUILD names
the build folder."""

import json
import os
import socket
import subprocess
import sys
import threading
import unittest
import urllib.parse

import jsonschema

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, TREE, RigTest, run  # noqa: E402

HEADER = b"Content-Type: application/json\r\n\r\n"
LOGIN = {"user": "admin", "password": "switch1234"}
PROFILE = {"profileConfig": {"name": "Stage", "color": "#3366cc", "profileType": "Audio Dante", "vlanNum": 1, "vlans": [
    {"vlanId": 50, "vlanType": 1, "ports": {"untagged": [1, 2], "tagged": [24]}}]}}

# A sound request for each route that takes something, in an order in which they all succeed.
SOUND = [
    ("post /api/v2/session", {}, LOGIN),
    ("post /api/v2/vlan/list", {}, {"vlan-list": "20,30-31"}),
    ("put /api/v2/vlan/name", {}, {"vlan-id": 20, "name": "stage"}),
    ("post /api/v2/vlan/name", {}, {"vlan-id": 40, "name": "light"}),
    ("put /api/v2/vlan/participation", {}, {"mode": "include", "vlan-id": 30}),
    ("put /api/v2/vlan/tagging", {}, {"vlan-id": 30, "tagging": "tagged"}),
    ("put /api/v2/vlan/accept-frame", {}, {"accept-frame": "all"}),
    ("put /api/v2/vlan/pvid", {}, {"pvid": 1}),
    ("put /api/v2/vlan/switchport-mode", {}, {"mode": "disable"}),
    ("get /api/v2/vlan/detail", {"id": 30}, None),
    ("get /api/v2/vlan/name", {"id": 20}, None),
    ("get /api/v2/vlan/profile", {"id": 20}, None),
    ("delete /api/v2/vlan/list", {"list": "20,30-31,40"}, None),
    ("put /api/v2/port/speed", {}, {"ports": [3], "speed": "100 Full"}),
    ("put /api/v2/system/management", {}, {"vlanId": 1, "mode": "dhcp"}),
    ("post /api/v2/profile/templates", {}, {"profile": {"name": "House", "description": "of our own"}}),
    ("put /api/v2/profile/templates", {}, {"profile": {"name": "House", "description": "changed"}}),
    ("delete /api/v2/profile/templates", {"name": "House"}, None),
    ("post /api/v2/profile/plan", {}, PROFILE),
    ("post /api/v2/profile/apply", {}, PROFILE),
    ("get /api/v2/profile/detail", {"name": "Stage"}, None),
    ("get /api/v2/profile/status", {"name": "Stage"}, None),
    ("put /api/v2/multicast/modes", {},
     {"multicastModeConfig": {"physicalPort": [{"portNum": 5, "multicastMode": 1}]}}),
    ("delete /api/v2/multicast/router", {"ifNum": 5}, None),
    ("put /api/v2/multicast/deny", {}, {"blockAddressList": ["239.0.0.0"]}),
    ("post /api/v2/multicast/groups", {}, None),
    ("put /api/v2/nice", {}, {"enabled": False}),
    ("put /api/v2/log/level", {}, {"level": 6}),
    ("get /api/v2/vendor", {"mac": "00:1b:92"}, None),
    ("post /api/v2/cache/refresh", {}, {"names": ["vlan_list"]}),
    ("get /api/v2/cache/answer", {"name": "vlan_list"}, None),
]
# Afterwards, when all that can be read has been read.
LAST = [
    ("delete /api/v2/cache/answer", {"name": "vlan_list"}, None),
    ("delete /api/v2/profile", {"name": "Stage"}, None),
    ("delete /api/v2/session", {}, None),
]


class WebCase(RigTest):
    """A switch, and requests to pavo_cgi."""

    def setUp(self):
        super().setUp()
        self.token = None
        self.rig.start_switch()

    def cgi(self, method, path, query=None, body=None, **variables):
        """What pavo_cgi prints. Texts and bytes are sent as they are; variables are those of its environment."""
        text = query if isinstance(query, str) else urllib.parse.urlencode(query or {})
        data = b"" if body is None else body if isinstance(body, bytes) else json.dumps(body).encode()
        env = dict(self.rig.env, REQUEST_URI=path + ("?" + text if text else ""), REQUEST_METHOD=method.upper(),
                   QUERY_STRING=text, CONTENT_LENGTH=str(len(data)), REMOTE_ADDR="127.0.0.1")
        if self.token:
            env["HTTP_SESSION"] = self.token
        return subprocess.run([self.rig.program("pavo_cgi")], env={**env, **variables}, input=data, capture_output=True,
                              check=True, timeout=LIMIT).stdout

    def document(self):
        return json.loads(run([self.rig.program("route_documents"), "openapi"], check=True).stdout)


class WebTest(WebCase):
    def test_every_route_answers_by_its_schema(self):
        self.rig.start_daemon()
        self.see("the daemon reports its devices", lambda: self.rig.read("/run/pavo/devices.json"))
        document = self.document()
        left = {f"{method} {path}" for path, item in document["paths"].items() for method in item}

        def check(schema, value):
            jsonschema.Draft202012Validator({**schema, "components": document["components"]}).validate(value)

        def call(name, query, body):
            left.discard(name)
            method, path = name.split()
            operation = document["paths"][path][method]
            wanted = {p["name"] for p in operation["parameters"] if p.get("required")}
            self.assertLessEqual(wanted, set(query), name)
            if "requestBody" in operation:
                check(operation["requestBody"]["content"]["application/json"]["schema"], body)
            out = self.cgi(method, path, query, body)
            self.assertTrue(out.startswith(HEADER), f"{name}: {out}")
            answer = json.loads(out[len(HEADER):].decode("utf-8", "strict"))
            with self.subTest(name):
                if "openapi" not in answer:
                    self.assertEqual(0, answer["resp"]["respCode"], answer)
                schema = operation["responses"]["200"]["content"]["application/json"]["schema"]
                check(schema, answer)
                keys = {key for part in schema.get("allOf", []) for key in part.get("properties", {})}
                self.assertLessEqual(keys, set(answer), "the data are there")
            return answer

        for name, query, body in SOUND:
            answer = call(name, query, body)
            self.token = self.token or answer["session"]["token"]
        for name in sorted(name for name in left if name.startswith("get ") and name != "get /api/v2/events"):
            call(name, {}, None)
        left.remove("get /api/v2/events")
        self.assertIn(b"resident program", self.cgi("get", "/api/v2/events"))
        for request in LAST:
            call(*request)
        self.assertEqual(set(), left)
        self.assertTrue(self.cgi("get", "/api/v2/vlan/list").startswith(b"Status:403"))

    def test_streams_that_are_closed(self):
        """What the program opens does not become its output, and a body that is not there is an error."""
        body = json.dumps(LOGIN)
        env = dict(self.rig.env, REQUEST_URI="/api/v2/session", REQUEST_METHOD="POST", CONTENT_LENGTH=str(len(body)))
        cgi = self.rig.program("pavo_cgi")
        done = run(["sh", "-c", 'exec "$0" <&-', cgi], env=env)
        self.assertEqual((0, 10021), (done.returncode, json.loads(done.stdout.partition("\n\n")[2])["resp"]["respCode"]))
        run(["sh", "-c", 'exec "$0" >&- 2>&-', cgi], env=env, input=body)
        for folder, _, files in os.walk(self.rig.path("tmp")):
            for name in filter(lambda name: os.path.isfile(os.path.join(folder, name)), files):
                with open(os.path.join(folder, name), "rb") as file:
                    self.assertNotIn(b"respCode", file.read(), name)

    def test_two_administrators(self):
        """One on the web, one at the command line: each gets what was asked for, and both leave nothing behind."""
        self.token = json.loads(self.cgi("post", "/api/v2/session", body=LOGIN)[len(HEADER):])["session"]["token"]
        before = self.rig.running_config()
        answers = []

        def web():
            for _ in range(5):
                for method, path, query, body in (
                        ("post", "/api/v2/profile/apply", None, PROFILE),
                        ("put", "/api/v2/vlan/name", None, {"vlan-id": 50, "name": "by hand"}),
                        ("delete", "/api/v2/profile", {"name": "Stage"}, None)):
                    answers.append(json.loads(self.cgi(method, path, query, body)[len(HEADER):]))

        other = threading.Thread(target=web)
        other.start()
        try:
            for _ in range(5):
                for words in (("create", "100-120"), ("participation", "100", "include"), ("name", "101", "foyer"),
                              ("participation", "100", "auto"), ("delete", "100-120")):
                    self.rig.pavoctl("vlan", *words)
        finally:
            other.join()
        self.assertEqual([0] * 15, [answer["resp"]["respCode"] for answer in answers], answers)
        self.assertEqual([[{"name": "Stage", "has": ["VLAN 50"]}]] * 5,
                         [answer["vlanChange"]["profiles"] for answer in answers[1::3]])
        self.assertNotIn("(ERROR)", self.rig.log())
        self.assertEqual(before, self.rig.running_config())

    def test_the_document_in_the_tree_is_the_one_served(self):
        with open(os.path.join(TREE, "data", "openapi.json"), encoding="utf-8") as file:
            self.assertEqual(self.document(), json.load(file), "make it anew: route_documents openapi >data/openapi.json")

    def test_web_server(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        folder = self.rig.path("web")
        variables = [word for name, value in self.rig.env.items() if name.startswith("PAVO_") or name == "TZ"
                     for word in ("--env", f"{name}={value}")]
        run([os.path.join(TREE, "scripts", "make-web-config.sh"), "--out", folder, "--cgi",
             self.rig.program("pavo_cgi"), "--documents", self.rig.program("route_documents"), "--bind", "127.0.0.1",
             "--port", str(port), *variables], check=True)
        self.assertEqual(0o600, os.stat(os.path.join(folder, "server.pem")).st_mode & 0o777)
        with open(os.path.join(folder, "static", "index.html"), "w", encoding="ascii") as page:
            page.write("<!DOCTYPE html><title>pavo</title>")
        server = subprocess.Popen(["lighttpd", "-D", "-f", os.path.join(folder, "lighttpd.conf")])
        self.addCleanup(server.wait, 10)
        self.addCleanup(server.terminate)

        def curl(path, *words):
            done = run(["curl", "--silent", "--show-error", "--cacert", os.path.join(folder, "server.crt"), "--include",
                        "--max-time", str(LIMIT), *words, f"https://localhost:{port}{path}"])
            head, _, body = done.stdout.replace("\r\n", "\n").partition("\n\n")
            return int(head.split()[1]) if head else 0, head.lower(), body

        def code(path, *words):
            return curl(path, *words)[0]

        self.rig.wait_for(lambda: code("/") == 200, LIMIT, "the web server answers")
        status, head, body = curl("/api/v2/session", "--json", json.dumps(LOGIN))
        self.assertEqual(200, status)
        for header in ("x-content-type-options: nosniff", "content-security-policy:", "strict-transport-security:",
                       "cache-control: no-store", "content-type: application/json"):
            self.assertIn(header, head)
        session = ("--header", "Session: " + json.loads(body)["session"]["token"])
        status, _, body = curl("/api/v2/vlan/list", *session)
        self.assertEqual((200, 1), (status, json.loads(body)["vlanList"]["vlans-in-use"]))
        self.assertEqual(200, code("/api/v2/%76lan/list", *session))
        self.assertEqual(200, code("/api/v2/vlan/detail?id=1&note=a%2Fb", *session))
        self.assertEqual(403, code("/api/v2/vlan/list"))
        for path, words, status in (("/api/v2/vlan/lists", (), 404), ("/api/v2/", (), 404), ("/api/v2", (), 404),
                                    ("/server.pem", (), 404), ("/api/v2/vlan/../../server.pem", ("--path-as-is",), 400),
                                    ("/api/v2/vlan/detail?id=1&note=a/b", session, 400)):
            self.assertEqual(status, code(path, *words), path)
        for words in (("--request", "PATCH"), ("--head",), ("--request", "OPTIONS")):
            status, head, _ = curl("/api/v2/vlan/list", *words)
            self.assertEqual(405, status, words)
            self.assertIn("allow: get, post, delete", head)
        large = self.rig.path("tmp/large")
        with open(large, "wb") as file:
            file.write(b" " * (2 << 20))
        # By HTTP/2 curl may report that the server gave the stream up instead of what it answered.
        self.assertEqual(413, code("/api/v2/nice", *session, "--http1.1", "--request", "PUT", "--data-binary", "@" + large))
        self.assertEqual(200, code("/api/v2/session", *session, "--request", "DELETE"))
        self.assertEqual(403, code("/api/v2/vlan/list", *session))


if __name__ == "__main__":
    unittest.main()
