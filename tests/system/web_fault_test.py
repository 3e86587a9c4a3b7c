#!/usr/bin/env python3
"""The web interface when programs are killed, the switch hangs or starts anew, clients go away and administrators meet.
PAVO_BUILD names the build folder."""

import concurrent.futures
import fcntl
import glob
import json
import os
import signal
import time
import unittest

from web_test import LOGIN, PROFILE, WebCase

APPLY, DELETE, DETAIL = "/api/v2/profile/apply", "/api/v2/profile?name=Stage", "/api/v2/profile/detail?name=Stage"


class WebFaultTest(WebCase):
    def setUp(self):
        super().setUp()
        self.before = self.rig.running_config()
        self.rig.start_web()
        done = self.rig.curl("/api/v2/session", "--json", json.dumps(LOGIN), check=True)
        self.session = ("--header", "Session: " + json.loads(done.stdout)["session"]["token"])

    def request(self, path, *words, body=None):
        """Result code and answer; nothing and the status of curl when there is no answer."""
        sent = ("--json", json.dumps(body)) if body is not None else ()
        done = self.rig.curl(path, *self.session, *sent, *words)
        answer = json.loads(done.stdout) if done.returncode == 0 else None
        return (answer["resp"]["respCode"], answer) if answer else (None, done)

    def code(self, *arguments, **options):
        return self.request(*arguments, **options)[0]

    def apply(self, profile=PROFILE):
        return self.code(APPLY, body=profile)

    def delete(self):
        return self.code(DELETE, "--request", "DELETE")

    def programs(self):
        """How many requests are being served."""
        count = 0
        for name in glob.glob("/proc/[0-9]*/environ"):
            try:
                with open(name, "rb") as file:
                    count += f"PAVO_ROOT={self.rig.root}\0".encode() in file.read() and os.path.basename(
                        os.readlink(os.path.dirname(name) + "/exe")) == "pavo_cgi"
            except OSError:
                pass
        return count

    def test_killed_programs(self):
        self.assertEqual(0, self.code("/api/v2/vlan/ports"))
        self.rig.children["pavo_webd"].kill()
        self.see("the resident program is back", lambda: self.code("/api/v2/vlan/ports") == 0)
        self.rig.stop("lighttpd", signal.SIGKILL)
        self.rig.start("lighttpd", "-D", "-f", self.rig.path("web/lighttpd.conf"))
        self.see("the server is back, and sessions are what they were", lambda: self.code("/api/v2/vlan/ports") == 0)
        self.rig.stop("vswitchd", signal.SIGKILL)
        self.assertEqual(10020, self.code("/api/v2/vlan/list"))
        self.rig.start_switch()
        self.assertEqual(0, self.code("/api/v2/vlan/list"))
        self.see("cached answers are of the new switch", lambda: self.code("/api/v2/vlan/ports") == 0)

    def test_program_killed_in_an_apply(self):
        begin = self.rig.control("counters")["total"]
        self.assertEqual(0, self.apply())
        needed = self.rig.control("counters")["total"] - begin
        whole = self.rig.running_config()
        self.assertEqual(0, self.delete())
        self.assertEqual(self.before, self.rig.running_config())
        for calls in (needed // 2, needed * 3 // 4, needed - 1):
            self.rig.control("fault", call="*", nth=calls, kill="after", process="pavo_cgi")
            status, done = self.request(APPLY, body=PROFILE)
            self.assertIsNone(status, calls)
            self.assertIn("50", done.stderr, "the client is told")
            self.rig.control("faults", clear=True)
            self.assertEqual(0, self.apply(), calls)
            self.assertEqual(whole, self.rig.running_config(), calls)
            self.assertEqual(0, self.delete())
            self.assertEqual(self.before, self.rig.running_config(), calls)

    def test_client_that_goes_away(self):
        """What it asked for is carried to its end."""
        with open(self.rig.path("/tmp/profileConfig.lock"), "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.assertEqual(28, self.request(APPLY, "--max-time", "1", body=PROFILE)[1].returncode)
            self.assertEqual(self.before, self.rig.running_config())
        self.see("it is applied", lambda: self.code(DETAIL) == 0)
        self.see("it has ended", lambda: self.programs() == 0)
        status = self.request("/api/v2/profile/status")[1]["profileStatus"]
        self.assertEqual([True, False], [status[0][key] for key in ("asApplied", "interrupted")])

    def test_hung_switch(self):
        switch = self.rig.children["vswitchd"]
        switch.send_signal(signal.SIGSTOP)
        begin = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            codes = list(pool.map(lambda path: self.code(path) if path != APPLY else self.apply(),
                                  ["/api/v2/vlan/list", "/api/v2/vlan/ports", APPLY, "/api/v2/session"] * 2))
        waited = time.monotonic() - begin
        switch.send_signal(signal.SIGCONT)
        self.assertTrue(all(code != 0 for code in codes[:3] + codes[4:7]), codes)
        self.assertNotIn(None, codes)
        self.assertLess(waited, 30)
        self.see("nothing has piled up", lambda: self.programs() == 0)
        self.see("all is well again", lambda: self.code("/api/v2/vlan/list") == 0)
        self.assertEqual(self.before, self.rig.running_config())

    def test_two_administrators(self):
        def work(number):
            profile = json.loads(json.dumps(PROFILE))
            profile["profileConfig"]["vlans"][0]["ports"]["untagged"] = [number]
            return [step() for _ in range(4) for step in (lambda: self.apply(profile), self.delete)]

        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            codes = [code for codes in pool.map(work, (1, 2)) for code in codes]
        self.assertLessEqual(set(codes), {0, 10012}, "done, or nothing left to delete")
        self.assertEqual([0, 0], [self.apply(), self.delete()])
        self.assertEqual(self.before, self.rig.running_config())


if __name__ == "__main__":
    unittest.main()
