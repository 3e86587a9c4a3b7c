#!/usr/bin/env python3
"""Requests that nobody should send, to every route of the OpenAPI document: without what it takes, with what it does not take,
broken off, without a session or the right. They change nothing. PAVO_BUILD names the build folder."""

import concurrent.futures
import copy
import json
import os
import unittest

import jsonschema

from web_test import HEADER, LAST, LOGIN, PROFILE, SOUND, WebCase
from rig import TEMPLATES  # web_test has set the path

FORBIDDEN = b"Status:403\r\n\r\n"
ADMINISTRATOR = {"put /api/v2/system/management", "get /api/v2/log", "get /api/v2/log/level", "put /api/v2/log/level",
                 "delete /api/v2/cache/answer"}
ANYONE = {"post /api/v2/session", "delete /api/v2/session", "get /api/v2/openapi"}
# Texts that anybody may choose: what is in them is only a name.
FREE = {"name", "description", "color"}
# Numbers that the operation does not judge.
ANY_NUMBER = {"vlanNum", "vlanType", "multicastMode"}
TEXTS = ['x"; no vlan 20', "x'; drop table vlanInfo; --", "x\nno vlan 20\nexit", "$(touch /tmp/x)`touch /tmp/x`;touch /tmp/x",
         "%s%n%1000000d", "../../../tmp/x", "x\0y", "\x1b[2J\x7f", "\ud800", "y" * 5000, ""]
NUMBERS = [-1, 0, 1.5, 1e308, 2**31 + 20, 2**32 + 20, 2**64 + 20]
OTHERS = [None, True, [], {}, [[[]]], [None], {"": {}}]
BODIES = [b"", b"{", b"[]", b"null", b"0", b'"x"', b"{}x", b'{"a":' * 3000, b"[" * 100000, b'{"\xff\xfe": "\xc0\x80"}',
          b'{"a": "\0"}', b'{"names": [' + b"9" * 5000 + b"]}"]


def unique(pairs):
    keys = [key for key, _ in pairs]
    assert len(keys) == len(set(keys)), keys
    return dict(pairs)


def places(value, path=()):
    """The paths of all members, members of members and so on, and what is there."""
    if path:
        yield path, value
    for key, item in value.items() if isinstance(value, dict) else enumerate(value) if isinstance(value, list) else ():
        yield from places(item, (*path, key))


def replaced(body, path, value):
    body = copy.deepcopy(body)
    owner = body
    for key in path[:-1]:
        owner = owner[key]
    owner[path[-1]] = value
    return body


class WebHostileTest(WebCase):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.rig.cli("configure", "username reader password reads1234 level 1", "username writer password writes1234 level 15",
                     "vlan database", "vlan 20,30", "exit")
        self.paths = self.document()
        self.operations = {f"{method} {path}": operation for path, item in self.paths["paths"].items()
                           for method, operation in item.items() if path != "/api/v2/events"}
        self.sound = {name: (query, body) for name, query, body in SOUND + LAST}
        self.token = self.log_in(**LOGIN)
        self.assertEqual(0, self.code(self.call("post /api/v2/profile/apply", body=PROFILE)))
        self.pool = concurrent.futures.ThreadPoolExecutor(4)
        self.addCleanup(self.pool.shutdown)
        self.schemas = {}

    def log_in(self, user, password):
        return json.loads(self.call("post /api/v2/session", body={"user": user, "password": password})[len(HEADER):])[
            "session"]["token"]

    def call(self, name, query=None, body=None, **variables):
        method, path = name.split()
        return self.cgi(method, path, query, body, **variables)

    def fits(self, schema, value):
        key = json.dumps(schema)
        if key not in self.schemas:
            self.schemas[key] = jsonschema.Draft202012Validator({**schema, "components": self.paths["components"]})
        return self.schemas[key].is_valid(value)

    def answer(self, name, out):
        """Strict JSON that fits the document."""
        self.assertTrue(out.startswith(HEADER), out[:200])
        answer = json.loads(out[len(HEADER):].decode("utf-8", "strict"), object_pairs_hook=unique)
        self.assertTrue(self.fits(self.operations[name]["responses"]["200"]["content"]["application/json"]["schema"], answer),
                        answer)
        return answer

    @staticmethod
    def code(out):
        return json.loads(out[len(HEADER):])["resp"]["respCode"]

    def state(self):
        """What a request could change: the switch's configuration and all files but logs and sessions."""
        files = {}
        for folder, _, names in os.walk(self.rig.root):
            for name in names:
                path = os.path.join(folder, name)
                if not any(part in path for part in ("/tmp/session", "/tmp/ketch.log", ".out", ".sock")):
                    with open(path, "rb") as file:
                        files[path] = file.read()
        return self.rig.running_config(), files

    def refused(self, requests):
        """All are refused, and nothing has changed. `requests`: of arguments of call()."""
        before = self.state()

        def judge(request):
            name, query, body, variables = request
            try:
                answer = self.answer(name, self.call(name, query, body, **variables))
                assert answer.get("resp", {}).get("respCode"), "not refused"
                assert len(json.dumps(answer)) < 2000, "an answer without end"
            except Exception as error:
                return f"{name} {query} {str(body)[:300]} {variables}: {error!r}"[:1000]
            return None

        wrong = [what for what in self.pool.map(judge, requests) if what]
        self.assertEqual([], wrong)
        after = self.state()
        self.assertEqual(before[0], after[0])
        self.assertEqual({}, {path: text for path, text in after[1].items() ^ before[1].items()})

    def test_empty_and_broken_requests(self):
        requests = []
        for name, operation in self.operations.items():
            self.assertEqual(name in ANYONE, not operation["security"], name)
            takes = "requestBody" in operation or any(p.get("required") for p in operation["parameters"])
            if takes and name != "post /api/v2/cache/refresh":
                requests.append((name, None, None, {}))
            requests += [(name, query, None, {}) for query in ("id=%zz", "name=%00", "a=%0a", "%f")]
            requests += [(name, None, b"{}", {"CONTENT_LENGTH": length}) for length in ("3", "-1", "x", "1048577", "9" * 30)]
        self.refused(requests)

    def test_hostile_bodies(self):
        requests = []
        for name, operation in self.operations.items():
            if "requestBody" not in operation:
                continue
            schema = operation["requestBody"]["content"]["application/json"]["schema"]
            sound = self.sound[name][1]
            requests += [(name, None, body, {}) for body in BODIES]
            text = json.dumps(sound).encode()
            requests += [(name, None, text + b" " * 2**20, {}), (name, None, text[:-1], {}),
                         (name, None, text[:-2], {"CONTENT_LENGTH": str(len(text))})]
            for path, old in places(sound):
                # What has the wrong type is refused for that, whatever it says.
                texts, numbers = (TEXTS, NUMBERS[:1]) if isinstance(old, str) else (TEXTS[:1], NUMBERS)
                for value in texts + numbers + OTHERS:
                    body = replaced(sound, path, value)
                    free = path[-1] in FREE or value in OTHERS or (path[-1] in ANY_NUMBER and value in NUMBERS)
                    if body != sound and not (self.fits(schema, body) and free):
                        requests.append((name, None, body, {}))
        # Wrong passwords come from everywhere, so that none is refused for those before it.
        requests = [(name, query, body, {**variables, "REMOTE_ADDR": f"10.0.{n // 250}.{n % 250}"})
                    for n, (name, query, body, variables) in enumerate(requests)]
        self.refused(requests)

    def test_hostile_parameters(self):
        requests = []
        for name, operation in self.operations.items():
            for parameter in operation["parameters"]:
                if parameter.get("in") == "query":
                    sound = self.sound.get(name, ({},))[0]
                    # Numbers are sound lists of VLANs, and of those that do not exist none is deleted.
                    wrong = [value for value in TEXTS + NUMBERS if isinstance(value, str) or
                             not self.fits(parameter["schema"], value) and (parameter["name"] != "list" or value != int(value))]
                    requests += [(name, {**sound, parameter["name"]: value}, None, {}) for value in
                                 [*(b"\xed\xa0\x80" if value == "\ud800" else value for value in wrong), b"\xff", "1%"]]
        self.refused(requests)

    def test_names_are_only_names(self):
        """What a name may hold reaches the switch as a name, or not at all."""
        for text in TEXTS + ["Bühne 1", "rock'n'roll", "a,b;c|d&e", "!", "no shutdown", "exit", '"', "\\"]:
            for name, undo in (("put /api/v2/vlan/name", "vlan name 20"), ("post /api/v2/profile/templates", None)):
                before = self.state()
                body = {"vlan-id": 20, "name": text} if undo else {"profile": {"name": text, "description": text}}
                answer = self.answer(name, self.call(name, None, body))
                after = self.state()
                if answer["resp"]["respCode"] != 0:
                    self.assertEqual(before, after, (name, text))
                    continue
                if undo:
                    self.assertEqual(before[1], after[1], text)
                    self.assertLessEqual({line.strip()[:12] for line in set(after[0]) ^ set(before[0])}, {undo}, text)
                    told = self.answer("get /api/v2/vlan/name", self.call("get /api/v2/vlan/name", {"id": 20}))
                    self.assertEqual(text[:32] or "VLAN0020", told["vlanName"]["name"])
                else:
                    self.assertEqual(before[0], after[0], text)
                    made = {os.path.dirname(path) for path in set(after[1]) ^ set(before[1])}
                    self.assertLessEqual(made, {self.rig.path(TEMPLATES)}, text)
                    self.call("delete /api/v2/profile/templates", {"name": text})
                    self.assertEqual(before, self.state(), text)

    def test_rights(self):
        before = self.state()
        users = {"reader": self.log_in("reader", "reads1234"), "writer": self.log_in("writer", "writes1234")}
        folder = self.rig.path("/tmp/session")
        directory, link = "d" * 64, "e" * 64
        os.mkdir(os.path.join(folder, directory))
        os.symlink(users["writer"], os.path.join(folder, link))
        nobody = ["", "0" * 64, "(null)", ".lock", ".failures", ".", "..", "../session/" + self.token, "./" + self.token,
                  self.token.upper(), self.token + "0", self.token[:-1], self.token + "\n", "%s%n", "x" * 300, directory, link]

        def judge(name, user, token):
            query, body = self.sound.get(name, ({}, None))
            reads = name.startswith("get ")
            may = name in ANYONE or (user is not None and name not in ADMINISTRATOR and (reads or user == "writer"))
            # Who may write is asked for what is no request: nothing is to be changed here.
            sent = (query, body) if reads or not may else ("%zz", None)
            out = self.call(name, *sent, HTTP_SESSION=token)
            if not may:
                return None if out == FORBIDDEN else f"{name} of {user or token}: {out[:300]}"
            code = self.answer(name, out).get("resp", {}).get("respCode", 0)
            # There is no daemon and no cache, and what is asked for by name is not there yet.
            fails = code in (10012, 10023) or name == "get /api/v2/device/list"
            return None if (code == 0) == reads or fails else f"{name} of {user}: {out[:300]}"

        requests = [(name, user, token) for name in self.operations for user, token in users.items()]
        requests += [(name, None, "") for name in self.operations]
        requests += [("get /api/v2/session", None, token) for token in nobody]
        self.assertEqual([], [what for what in self.pool.map(lambda request: judge(*request), requests) if what])
        self.assertEqual(before, self.state())
        # A level or password that has changed ends the sessions from before.
        self.rig.cli("configure", "username reader password others1234", "username writer level 1", "exit")
        self.assertEqual(FORBIDDEN, self.call("put /api/v2/nice", None, {"enabled": True}, HTTP_SESSION=users["writer"]))
        self.see("its reads end shortly after",
                 lambda: self.call("get /api/v2/session", HTTP_SESSION=users["reader"]) == FORBIDDEN)


if __name__ == "__main__":
    unittest.main()
