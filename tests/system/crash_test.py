#!/usr/bin/env python3
"""Profile operations that are killed after each of their OpEN calls. PAVO_BUILD names the build folder."""

import os
import shutil
import signal
import sqlite3
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(os.path.dirname(HERE))
BUILD = os.environ.get("PAVO_BUILD", os.path.join(TREE, "build", "dev"))
sys.path.insert(0, os.path.join(TREE, "demo"))

from rig import Rig  # noqa: E402

# What an operator has set up, of what profiles touch.
BY_HAND = """
vlan database
vlan 77
vlan name 77 "the \\"old\\" one"
set igmp maxresponse 77 7
exit
configure
ip igmp snooping querier query-interval 60
ipv6 mld snooping
classofservice trust dot1p
queue cos-map all 5 6
class-map match-all CLASS_VIDEO
match ip dscp 40
exit
spanning-tree mode rstp
ptp clock e2e-transparent
interface 0/3
vlan participation include 77
vlan pvid 77
mtu 2000
exit
interface 0/4
vlan participation include 77
vlan tagging 77
exit
exit
""".strip().splitlines()

AUDAC = "AUDAC Audio and Control Network"
FIRST = ["--type", AUDAC, "--vlan", "77 type=3 untagged=4,5", "--vlan", "20 type=2 untagged=1", "--ptp", "off"]
SECOND = ["--type", "DICENTIS Conference system", "--vlan", "20 untagged=1,3", "--vlan", "30 tagged=5"]


class CrashTest(unittest.TestCase):
    def setUp(self):
        self.rig = Rig(BUILD, tempfile.mkdtemp(prefix="crash-", dir=BUILD), 50)
        self.rig.start_switch()
        self.rig.cli(*BY_HAND)

    def tearDown(self):
        self.rig.stop_all()
        output = self.rig.output("vswitchd")
        shutil.rmtree(self.rig.root, ignore_errors=True)
        self.assertNotIn("Sanitizer", output)

    def everything(self):
        """Switch, database and files, as a list of lines."""
        lines = self.rig.running_config()
        database = self.rig.path("/tmp/vlanInfo.db")
        if os.path.exists(database):
            with sqlite3.connect(database) as connection:
                lines += [str(row) for row in connection.execute("select * from vlanInfo order by id")]
        for folder in ("/tmp/vlan_profile_config", "/tmp/pavo/pavo_ex"):
            path = self.rig.path(folder)
            lines += sorted(os.listdir(path)) if os.path.isdir(path) else []
        for file in ("/tmp/audac_config", "/tmp/shure_config"):
            lines += self.rig.read(file).splitlines()
        return lines

    def operate(self, *words):
        done = self.rig.pavoctl("profile", *words, check=False)
        self.assertNotIn("Sanitizer", done.stderr)
        return done

    def must(self, *words):
        done = self.operate(*words)
        self.assertEqual(0, done.returncode, (words, done.stderr))

    def killed_after(self, calls, *words, call="*"):
        """False when the operation has fewer calls."""
        self.rig.control("fault", call=call, nth=calls, kill="after", process="pavoctl")
        done = self.operate(*words)
        self.rig.control("faults", clear=True)
        self.assertIn(done.returncode, (0, -signal.SIGKILL), done.stderr)
        return done.returncode != 0

    def sweep(self, prepare, words, then):
        """Kills the operation after each call; `then` is done next and leads to the same end each time."""
        calls = 0
        struck = True
        while struck:
            calls += 1
            prepare()
            struck = self.killed_after(calls, *words)
            then(calls)
        self.assertGreater(calls, 8)

    def test_every_call(self):
        apply_first = ["apply", "--name", "House", *FIRST]
        apply_second = ["apply", "--name", "House", *SECOND]
        delete = ["delete", "House"]
        self.must(*apply_first)
        self.must(*delete)  # the database is there from now on
        before = self.everything()
        self.must(*apply_first)
        first = self.everything()
        self.must(*apply_second)
        second = self.everything()
        self.must(*delete)
        self.assertEqual(before, self.everything())

        def then_again(words, end):
            def check(calls):
                self.must(*words)
                self.assertEqual(end, self.everything(), (words, calls))
                self.must(*delete)
                self.assertEqual(before, self.everything(), (words, calls))
            return check

        def then_delete(calls):
            self.operate(*delete)  # there may be nothing to delete: killed before it began
            self.assertEqual(before, self.everything(), calls)

        def applied():
            self.must(*apply_first)

        for then in (then_again(apply_first, first), then_delete):
            self.sweep(lambda: None, apply_first, then)
        for then in (then_again(apply_second, second), then_delete):
            self.sweep(applied, apply_second, then)
        self.sweep(applied, delete, then_delete)

    def test_interrupted_and_rebooted(self):
        """The folder of temporary files is gone, and another profile is what comes next."""
        before = self.rig.running_config()
        for calls in range(1, 100):
            struck = self.killed_after(calls, "apply", "--name", "House", *FIRST)
            for name in os.listdir(self.rig.path("/tmp")):
                path = self.rig.path("/tmp/" + name)
                if os.path.isdir(path):
                    shutil.rmtree(path)
                elif not name.endswith((".out", ".sock", ".lock")) and os.path.isfile(path):
                    os.remove(path)
            self.must("apply", "--name", "Other", "--type", "Sonos", "--vlan", "40 untagged=7")
            self.operate("delete", "House")
            self.must("delete", "Other")
            self.assertEqual(before, self.rig.running_config(), calls)
            if not struck:
                return
        self.fail("the operation never ended")


class RecoveryTest(CrashTest):
    """What the daemon sets right: at start, and while it runs."""
    test_every_call = test_interrupted_and_rebooted = None

    def see(self, what, condition):
        self.rig.wait_for(condition, 60, what)

    def lose_tmp(self):
        for path in ("vlanInfo.db", "audac_config"):
            os.remove(self.rig.path("/tmp/" + path))
        for path in ("vlan_profile_config", "pavo"):
            shutil.rmtree(self.rig.path("/tmp/" + path))

    def test_daemon(self):
        before = self.rig.running_config()
        self.must("apply", "--name", "House", *FIRST)
        whole = self.everything()
        self.lose_tmp()
        self.rig.start_daemon()
        self.see("all is back after a reboot", lambda: self.everything() == whole)
        with open(self.rig.path("/tmp/vlanInfo.db"), "wb") as file:
            file.write(b"no database at all" * 100)
        self.see("the damaged database is made again", lambda: self.rows() is not None and self.everything() == whole)
        self.rig.stop("pavo_detection")
        self.assertTrue(self.killed_after(1, "delete", "House", call="rpcclt_openapiTxtCfgApply"))
        self.assertNotEqual(before, self.rig.running_config())
        self.rig.start_daemon()
        self.see("the interrupted deletion is finished", lambda: self.rig.running_config() == before)
        self.rig.stop("pavo_detection")

    def rows(self):
        try:
            with sqlite3.connect(self.rig.path("/tmp/vlanInfo.db")) as connection:
                return connection.execute("select * from vlanInfo").fetchall()
        except sqlite3.Error:
            return None


if __name__ == "__main__":
    unittest.main(verbosity=2)
