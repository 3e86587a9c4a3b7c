#!/usr/bin/env python3
"""The response cache under several processes at once, and the producers of the programs. PAVO_BUILD names the build."""

import json
import os
import signal
import sqlite3
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, RigTest, run  # noqa: E402


class CacheTest(RigTest):
    def touch(self, fixed):
        with open(self.rig.path(fixed), "w", encoding="ascii"):
            pass

    def start(self, *words):
        child = subprocess.Popen([self.rig.program("cache_client"), *words], env=self.rig.env, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.kill, child)
        return child

    @staticmethod
    def kill(child):
        child.kill()
        child.communicate()

    def end(self, child):
        """What it printed; its standard input ends."""
        out, err = child.communicate(timeout=LIMIT)
        self.assertEqual("", err)
        return out.strip()

    def client(self, *words):
        return self.end(self.start(*words))

    def producers(self):
        return [line.split() for line in self.rig.read("/tmp/producers").splitlines()]

    def waits_for_lock(self, child):
        """Whether the process is blocked on a lock of a file."""
        with open("/proc/locks", encoding="ascii") as file:
            return any(line.split()[1:3] == ["->", "FLOCK"] and line.split()[5] == str(child.pid) for line in file)

    def cache(self):
        return json.loads(self.rig.pavoctl("--json", "cache", "list").stdout)["cache"]

    def refused(self, *words):
        done = self.rig.pavoctl(*words, check=False)
        self.assertEqual("", done.stdout)
        return done.returncode, done.stderr

    def first_and_next(self):
        """Two that refresh one answer: the first produces, and the second waits for it."""
        self.client("create")
        self.touch("/tmp/wait")
        first = self.start("refresh", "system_info")
        self.see("the first one produces", lambda: len(self.producers()) == 1)
        second = self.start("refresh", "system_info")
        self.see("the second one waits", lambda: self.waits_for_lock(second))
        return first, second

    # --- several processes

    def test_two_refreshers_of_one_answer(self):
        first, second = self.first_and_next()
        other = self.start("lock", "vlan_list")
        self.assertEqual("locked\n", other.stdout.readline(), "other answers are not held up")
        os.remove(self.rig.path("/tmp/wait"))
        self.assertEqual(["0", "0"], [self.end(first), self.end(second)])
        self.assertEqual([[what, str(who.pid)] for who in (first, second) for what in ("begin", "end")],
                         self.producers())
        answer = json.loads(self.rig.pavoctl("cache", "read", "system_info").stdout)
        self.assertEqual({"by": second.pid}, answer["systemInfo"])
        self.assertEqual("system_info\nsystem_info\n", self.rig.read("/tmp/rest_db_api_delta.txt"))

    def test_killed_holding_the_lock(self):
        killed, next_one = self.first_and_next()
        killed.kill()
        self.see("the next one produces", lambda: len(self.producers()) >= 2)
        os.remove(self.rig.path("/tmp/wait"))
        self.assertEqual("0", self.end(next_one))
        self.assertIn(f'"by":\t{next_one.pid}', self.client("read", "system_info"))

    def test_reader_beside_a_writer(self):
        self.client("create")
        size = 200000
        self.client("alternate", "big", str(size), "2")
        readers = [self.start("watch", "big", str(size)) for _ in range(2)]
        for reader in readers:
            self.assertEqual("watching\n", reader.stdout.readline())
        writers = [self.start("alternate", name, str(size), "60") for name in ("big", "other")]
        self.assertEqual(["", ""], [self.end(writer) for writer in writers], "results other than a write")
        for reader in readers:
            self.assertIn(self.end(reader).split(), (["a"], ["b"], ["a", "b"]), "whole answers, and no failures")
        lines = self.rig.read("/tmp/rest_db_api_delta.txt").splitlines()
        self.assertEqual({"big", "other"}, set(lines), "no line is torn")
        self.assertEqual((62, 60), (lines.count("big"), lines.count("other")))
        self.assertNotIn("ERROR", self.rig.log())

    def test_killed_while_writing(self):
        """Nothing waits for the disk, so the file may be damaged; the cache works again when it is made again."""
        self.client("create")
        for pause in (0.0, 0.01, 0.03, 0.05):
            writer = self.start("alternate", "big", "200000", "100000")
            deadline = time.monotonic() + pause
            self.see("it writes", lambda: self.rig.read("/tmp/rest_db_api_delta.txt").count("big") > 3
                     and time.monotonic() > deadline)  # pylint: disable=cell-var-from-loop
            writer.kill()
            writer.wait()
            self.assertEqual("0", self.client("create"))
            self.assertEqual("101", self.client("write", "vlan_list", str(pause)))
            self.assertEqual(f"0 {pause}", self.client("read", "vlan_list"))

    # --- disk, links, names

    def test_full_disk(self):
        tmp = self.rig.path("/tmp")
        if run(["mount", "-t", "tmpfs", "-o", "size=256k", "none", tmp]).returncode != 0:
            self.skipTest("needs root and a tmpfs of its own")
        self.addCleanup(run, ["umount", "-q", tmp])

        self.client("create")
        self.assertEqual("101", self.client("write", "big", "old"))
        self.assertEqual("13", self.client("alternate", "big", "600000", "1"))  # SQLITE_FULL
        self.assertIn("] Execution failed: database or disk is full\n", self.rig.log())
        self.assertEqual("0 old", self.client("read", "big"))
        self.assertEqual("", self.client("alternate", "small", "50000", "1"))

    # --- web server

    def test_web_server_is_told(self):
        self.client("create")
        server = subprocess.Popen([sys.executable, "-c", "import signal\nsignal.signal(signal.SIGINT, lambda *_: "
                                   "print('told', flush=True))\nprint('ready', flush=True)\n"
                                   "while True: signal.pause()"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.kill, server)
        self.assertEqual("ready\n", server.stdout.readline())
        pid_file = self.rig.path("/tmp/resourse_pid.txt")
        for count in (1, 2):
            with open(pid_file, "w", encoding="ascii") as file:
                file.write(f"{server.pid} {server.pid}\n")
            self.assertEqual("0", self.client("refresh", "system_info"))
            self.assertEqual("told\n", server.stdout.readline())
            self.assertEqual("101", self.client("write", "vlan_list", str(count)), "the store alone tells nobody")
        server.send_signal(signal.SIGTERM)
        self.assertEqual("", server.communicate(timeout=LIMIT)[0])
        self.assertEqual("0", self.client("refresh", "system_info"), "a server that has ended is logged only")

    # --- pavoctl

    def test_commands_without_a_switch(self):
        missing = (1, 'pavoctl: 10023: Request api not found: "vlan_list"\n')
        self.assertEqual(missing, self.refused("cache", "read", "vlan_list"))
        self.assertEqual([], [row["name"] for row in self.cache() if "size" in row])
        self.assertFalse(os.path.exists(self.rig.path("/tmp/restapi_db")), "looking makes nothing")
        self.client("create")
        self.assertEqual(missing, self.refused("cache", "read", "vlan_list"))
        self.client("write", "vlan_list", "{}")
        self.client("write", "neighbor_ex/0", "{\"a\":1}")
        table = self.rig.pavoctl("cache", "list").stdout
        self.assertRegex(table, r"(?m)^vlan_list +switchConfigVlanList +(not )?linked +2$")
        self.assertRegex(table, r"(?m)^neighbor_ex/0 +- +7$")
        self.rig.pavoctl("cache", "delete", "vlan_list")
        self.assertEqual(missing, self.refused("cache", "delete", "vlan_list"))
        self.assertEqual((3, "pavoctl: the switch cannot be reached\n"), self.refused("cache", "refresh", "vlan_list"))
        self.rig.start_switch()
        self.assertEqual((1, 'pavoctl: 10023: Request api not found: "nobody"\n'),
                         self.refused("cache", "refresh", "nobody"))

    def test_refresh(self):
        """Each answer is JSON in an envelope, under its key."""
        self.rig.start_switch()
        self.rig.pavoctl("cache", "refresh")
        for api in (row["name"] for row in self.cache() if "producer" in row):
            self.rig.pavoctl("cache", "refresh", api)
            name = "neighbor_ex/0" if api == "neighbor_ex" else api
            answer = json.loads(self.rig.pavoctl("cache", "read", name).stdout)
            self.assertEqual(("success", 2), (answer["resp"]["status"], len(answer)), api)
        self.rig.pavoctl("cache", "delete", "vlan_list")
        os.remove(self.rig.path("/tmp/rest_db_api_delta.txt"))
        os.mkdir(self.rig.path("/tmp/rest_db_api_delta.txt"))
        self.assertEqual((1, "pavoctl: 10000: General Failed: vlan_list: the answer cannot be stored\n"),
                         self.refused("cache", "refresh", "vlan_list"))

    def test_vendor(self):
        for mac in ("00:1B:92", "00-1b-92-01-02-03"):
            answer = json.loads(self.rig.pavoctl("--json", "vendor", mac).stdout)
            self.assertEqual({"prefix": "00:1B:92", "vendor": "l-acoustics"}, answer["vendor"])
        self.assertEqual((1, "pavoctl: 10012: Object not exist: no vendor has registered 02:00:00\n"),
                         self.refused("vendor", "02:00:00"))
        for wrong in ("001b92", "00:1b", "00:1b:92:", "00:1b:92' or '1'='1", "zz:1b:92", ""):
            self.assertEqual(2, self.refused("vendor", wrong)[0], wrong)
        with sqlite3.connect(self.rig.path("/usr/local/appmgr/usr/share/pavo/oui/oui.db")) as database:
            count, = database.execute("select count(*) from oui").fetchone()
        self.assertGreater(count, 30000)

    # --- what is in the programs

    def test_linked_producers(self):
        rows = [row for row in self.cache() if "producer" in row]
        every = {row["producer"] for row in rows}
        self.assertEqual((28, {True}), (len(every), {row["isLinked"] for row in rows}))
        for program, expected in (("pavoctl", every), ("web_test", every), ("pavo_detection", every),
                                  ("cache_client", {"systemInfoGet"})):
            if program == "web_test" and not os.path.exists(self.rig.program(program)):
                continue  # a build that tests whole programs only
            symbols = run(["nm", "-C", "--defined-only", self.rig.program(program)], check=True).stdout
            functions = [line.split(" ", 2)[2] for line in symbols.splitlines() if line.split(" ", 2)[1] in "TW"]
            linked = {name for name in every if any(text.startswith(f"pavo::{name}(") for text in functions)}
            self.assertEqual(expected, linked, program)


if __name__ == "__main__":
    unittest.main(verbosity=2)
