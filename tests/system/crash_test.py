#!/usr/bin/env python3
"""Profile operations that are killed after each of their OpEN calls. PAVO_BUILD names the build folder."""

import itertools
import os
import shutil
import signal
import sqlite3
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import RigTest  # noqa: E402

# What an operator has set up, of what profiles touch.
BY_HAND = ["vlan database", "vlan 77", 'vlan name 77 "the \\"old\\" one"', "set igmp maxresponse 77 7", "exit",
           "configure", "ip igmp snooping querier query-interval 60", "ipv6 mld snooping",
           "classofservice trust dot1p", "queue cos-map all 5 6", "class-map match-all CLASS_VIDEO",
           "match ip dscp 40", "exit", "spanning-tree mode rstp", "ptp clock e2e-transparent",
           "interface 0/3", "vlan participation include 77", "vlan pvid 77", "mtu 2000", "exit",
           "interface 0/4", "vlan participation include 77", "vlan tagging 77", "exit", "exit"]

AUDAC = "AUDAC Audio and Control Network"
FIRST = ["--type", AUDAC, "--vlan", "77 type=3 untagged=4,5", "--vlan", "20 type=2 untagged=1", "--ptp", "off"]
SECOND = ["--type", "DICENTIS Conference system", "--vlan", "20 untagged=1,3", "--vlan", "30 tagged=5"]


def nothing():
    pass


class KilledTest(RigTest):
    def setUp(self):
        super().setUp()
        self.rig.start_switch()
        self.rig.cli(*BY_HAND)

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

    def lose_tmp(self):
        """A reboot: the folder of temporary files is gone."""
        for name in os.listdir(self.rig.path("/tmp")):
            path = self.rig.path("/tmp/" + name)
            if os.path.isdir(path):
                shutil.rmtree(path)
            elif not name.endswith((".out", ".sock", ".lock")):
                os.remove(path)


class CrashTest(KilledTest):
    def sweep(self, prepare, words, then):
        """Kills the operation after each call; `then` is done next and leads to the same end each time."""
        for calls in itertools.count(1):
            prepare()
            struck = self.killed_after(calls, *words)
            then(calls)
            if not struck:
                break
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

        def then_again(words, end, back, start):
            def check(calls):
                self.must(*words)
                self.assertEqual(end, self.everything(), (words, calls))
                self.must(*back)
                self.assertEqual(start, self.everything(), (words, calls))
            return check

        def then_delete(calls):
            self.operate(*delete)  # there may be nothing to delete: killed before it began
            self.assertEqual(before, self.everything(), calls)

        def applied():
            self.must(*apply_first)

        self.sweep(nothing, apply_first, then_again(apply_first, first, delete, before))
        self.sweep(nothing, apply_first, then_delete)
        applied()
        self.sweep(nothing, apply_second, then_again(apply_second, second, apply_first, first))
        for words in (apply_second, delete):
            self.sweep(applied, words, then_delete)

    def test_interrupted_and_rebooted(self):
        """Another profile is what comes next."""
        before = self.rig.running_config()

        def then_another(calls):
            self.lose_tmp()
            self.must("apply", "--name", "Other", "--type", "Sonos", "--vlan", "40 untagged=7")
            self.operate("delete", "House")
            self.must("delete", "Other")
            self.assertEqual(before, self.rig.running_config(), calls)

        self.sweep(nothing, ["apply", "--name", "House", *FIRST], then_another)


class RecoveryTest(KilledTest):
    """What the daemon sets right: at start, and while it runs."""

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
        self.lose_tmp()
        self.rig.control("fault", call="rpcclt_openapiCliShowExecuteToFile", nth=1, once=True, process="pavo_detection")
        self.rig.start_daemon()
        self.see("all is back although the switch did not answer at first", lambda: self.everything() == whole)
        self.rig.stop("pavo_detection")
        self.assertTrue(self.killed_after(1, "delete", "House", call="rpcclt_openapiTxtCfgApply"))
        self.assertNotEqual(before, self.rig.running_config())
        self.rig.start_daemon()
        self.see("the interrupted deletion is finished", lambda: self.rig.running_config() == before)

    def nice(self, word):
        return self.rig.pavoctl("nice", word).stdout.strip()

    def settings_files(self):
        folder = self.rig.path("/tmp/vlan_profile_config")
        return os.listdir(folder) if os.path.isdir(folder) else []

    def start_daemon(self):
        """With its Nice thread: by then it has set right what it found."""
        starts = self.rig.log().count("Nice detection thread started")
        daemon = self.rig.start_daemon()
        self.see("it runs", lambda: self.rig.log().count("Nice detection thread started") > starts)
        return daemon

    def test_nice(self):
        """Killed while it makes the profile: the next daemon finds all of it, or nothing."""
        before = self.rig.running_config()
        self.rig.pavoctl("cache", "refresh", "profile/list_ex")
        self.rig.control("plug", name="nice", port="0/3", mac="F8:57:2E:00:00:01", lldp={"systemDesc": "Controller"})
        self.start_daemon()
        self.see("the web interface sees the profile",
                 lambda: "Elan OS" in self.rig.pavoctl("cache", "read", "profile/list_ex").stdout)
        self.assertEqual("on: nothing to do, as there is a profile", self.nice("status"))
        whole = self.rig.running_config()
        self.rig.stop("pavo_detection")
        killed = []
        for calls in (8, 120, 200):
            self.nice("off")
            self.operate("delete", "Elan OS")
            self.rig.pavoctl("cache", "refresh", "profile/list_ex")
            self.assertEqual((before, []), (self.rig.running_config(), self.settings_files()), calls)
            daemon = self.start_daemon()
            self.assertEqual("off", self.nice("status"))
            self.rig.control("fault", call="*", nth=calls, kill="after", process="pavo_detection")
            del self.rig.children["pavo_detection"]
            self.addCleanup(daemon.kill)
            self.nice("on")
            self.see("it is killed, or has done it",
                     lambda: daemon.poll() is not None or self.settings_files())  # pylint: disable=cell-var-from-loop
            killed.append(daemon.poll() is not None)
            daemon.kill()
            daemon.wait()
            self.rig.control("faults", clear=True)
            self.nice("off")
            self.start_daemon()
            self.rig.stop("pavo_detection")
            self.must("status")
            self.assertIn((self.rig.running_config(), self.settings_files()), ((before, []), (whole, ["1"])), calls)
            self.assertEqual("Elan OS" in self.rig.pavoctl("profile", "list").stdout,
                             "Elan OS" in self.rig.pavoctl("cache", "read", "profile/list_ex").stdout, calls)
        self.assertEqual([True, True], killed[:2])

    def rows(self):
        try:
            with sqlite3.connect(self.rig.path("/tmp/vlanInfo.db")) as connection:
                return connection.execute("select * from vlanInfo").fetchall()
        except sqlite3.Error:
            return None


if __name__ == "__main__":
    unittest.main(verbosity=2)
