#!/usr/bin/env python3
"""The web interface as it is deployed: lighttpd with its generated configuration, pavo_cgi and pavo_webd, all started by the
rig. PAVO_BUILD names the build folder."""

import json
import os
import pwd
import shutil
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, TREE, RigTest, run  # noqa: E402

LOGIN = json.dumps({"user": "admin", "password": "switch1234"})
PROFILE = json.dumps({"profileConfig": {
    "name": "Stage", "color": "#3366cc", "profileType": "AUDAC Audio and Control Network", "vlanNum": 1,
    "vlans": [{"vlanId": 50, "vlanType": 2, "ports": {"untagged": [1, 2]}}]}})
USER = "www-data"
SCRIPT = os.path.join(TREE, "scripts", "make-web-config.sh")


class WebServerTest(RigTest):
    def json(self, path, *words):
        done = self.rig.curl(path, *words)
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        return json.loads(done.stdout)

    def log_in(self):
        return ("--header", "Session: " + self.json("/api/v2/session", "--json", LOGIN)["session"]["token"])

    def test_events_and_answers(self):
        os.mkdir(self.rig.path("tmp/ketch.log"))  # a log that cannot be written is no part of an answer
        self.rig.start_switch()
        self.rig.start_web()
        session = self.log_in()
        self.rig.start("curl", "--silent", "--no-buffer", "--cacert", self.rig.certificate(), *session,
                       self.rig.web + "/api/v2/events")
        self.see("the stream begins", lambda: "id:" in self.rig.output("curl"))
        self.rig.control("plug", name="desk", port="0/9", mac="00:1B:92:00:09:01")
        self.see("an event comes at once", lambda: "event: link" in self.rig.output("curl"))
        self.rig.children["pavo_webd"].kill()
        self.rig.children.pop("curl").wait(LIMIT)
        self.see("pavo_webd is back", lambda: self.rig.curl("/api/v2/vlan/ports", *session).returncode == 0)

    def test_configuration(self):
        words = [SCRIPT, "--cgi", self.rig.program("pavo_cgi"), "--documents", self.rig.program("route_documents"), "--out",
                 self.rig.path("web")]
        for refused in (["--plain"], ["--plain", "--bind", "0.0.0.0"], ["--user", "nobody at all"], ["--port", "0"],
                        ["--name", "a b"], ["--static", 'x"y']):
            self.assertEqual(2, run([*words, *refused]).returncode, refused)
        certificates = set()
        for _ in range(2):
            run([*words, "--port", "1443", "--name", "10.1.2.3"], check=True)
            with open(self.rig.path("web/server.pem"), encoding="ascii") as file:
                certificates.add(file.read())
        self.assertEqual(1, len(certificates), "a certificate that is there stays")
        self.assertIn("IP Address:10.1.2.3", run(["openssl", "x509", "-noout", "-ext", "subjectAltName", "-in",
                                                  self.rig.path("web/server.crt")], check=True).stdout)

    @unittest.skipUnless(os.geteuid() == 0 and os.stat("/dev/null").st_mode & 0o002, "needs root, and devices for everybody")
    def test_unprivileged_user(self):
        """Switch and daemon run as root, the web interface as a user who can do all that it offers and has the daemon's own files,
        key and configuration out of reach."""
        rig, account = self.rig, pwd.getpwnam(USER)
        as_user = {"user": account.pw_uid, "group": account.pw_gid, "extra_groups": []}
        if run(["test", "-x", rig.program("pavo_cgi")], **as_user).returncode != 0:
            self.skipTest("the user cannot reach the build folder")
        kept = rig.path("mnt/application/pavo")
        for folder, mode, owner in ((rig.root, 0o755, "root"), (rig.path("tmp"), 0o1777, "root"), (kept, 0o1775, "root"),
                                    (kept + "/tmp", 0o755, USER)):
            os.chmod(folder, mode)
            shutil.chown(folder, owner, USER)
        rig.start_switch()
        rig.start_daemon()
        rig.start_web(user=USER)
        for name in ("lighttpd", "pavo_webd"):
            with open(f"/proc/{rig.children[name].pid}/status", encoding="ascii") as file:
                self.assertIn("Uid:" + 4 * f"\t{account.pw_uid}" + "\n", file.read(), name)
        session = self.log_in()
        rig.pavoctl("profile", "apply", "--name", "Hall", "--type", "Audio Dante", "--vlan", "60 untagged=5")
        for path, words in (("profile/apply", ("--json", PROFILE)), ("profile?name=Hall", ("--request", "DELETE")),
                            ("device/list", ()), ("vlan/list", ("--json", '{"vlan-list": "70"}')),
                            ("nice", ("--request", "PUT", "--json", '{"enabled": false}'))):
            answer = self.json("/api/v2/" + path, *session, *words)
            self.assertEqual(0, answer["resp"]["respCode"], (path, answer))
        self.assertEqual([50, 70], [vlan["id"] for vlan in rig.table("vlans") if vlan["id"] != 1])
        rig.pavoctl("profile", "delete", "Stage")
        self.see("the log has the web interface's lines", lambda: "pavo_cgi: [profileConfigSet" in rig.log())
        own = [rig.path(name) for name in ("/mnt/application/pavo/shure_ports.json", "/mnt/application/pavo/net_block_ports.json")]
        for path in own:
            with open(path, "a", encoding="ascii"):
                pass
        own += [rig.path(name) for name in ("/run/pavo/devices.json", "/tmp/pavo_detection.lock", "web/server.pem",
                                            "web/lighttpd.conf", "web/routes.lua")]
        mine = rig.path("tmp/mine")
        for path in own:
            for attempt in ('echo x >>"$0"', 'mv "$0" "$0.old"', 'rm -f "$0"', 'echo x >"$1" && mv -f "$1" "$0"'):
                self.assertNotEqual(0, run(["sh", "-c", attempt, path, mine], **as_user).returncode, (path, attempt))
        self.assertNotEqual(0, run(["cat", rig.path("web/server.pem")], **as_user).returncode)


if __name__ == "__main__":
    unittest.main()
