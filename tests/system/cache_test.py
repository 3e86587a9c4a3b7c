#!/usr/bin/env python3
"""The response cache under several processes at once, and the producers of the programs. PAVO_BUILD names the build."""

import json
import os
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.dirname(os.path.dirname(HERE))
BUILD = os.environ.get("PAVO_BUILD", os.path.join(TREE, "build", "dev"))
sys.path.insert(0, os.path.join(TREE, "demo"))

from rig import FOLDERS, Rig  # noqa: E402

LIMIT = 60  # real seconds that any one event may take
FOLDERS["cache_client"] = FOLDERS["web_test"] = FOLDERS["store_test"] = "tests"

# All producers of answers, by answer, in the order of the table.
PRODUCERS = {
    "vlan_list": "switchConfigVlanList",
    "swcfg_port": "getPhyInfAllStatusFast",
    "swcfg_ports_status": "getPortStatusListFast",
    "swcfg_ports_settings": "getPortsSettings",
    "interfaces_status": "interfacesStatusBuild",
    "sw_lag_cfg": "getLagInfoList",
    "sw_lag_cfg_ex": "getLagInfoListEx",
    "sw_auto_lag_cfg": "getAutoLagCfg",
    "sw_manual_trunk_cfg": "manualTrunkGet",
    "sw_auto_trunk_cfg": "switchTrunkModeGet",
    "radius_config": "getRadiusServerJson",
    "radius_port_config": "getPortAuthConfigJson",
    "multicast_mode_ex": "getMulticastModeEx",
    "multicast_block_address": "getDenyList",
    "sw_ptp_cfg": "switchPtpModeGet",
    "sw_portmirroring": "getPortMirroring",
    "system_info": "systemInfoGet",
    "device_health": "deviceHealthGet",
    "special_interface_route": "getSpecialInfInfo",
    "device_time": "getDeviceTime",
    "logging": "getLogConfigJson",
    "profile": "ProfileTemplateGet",
    "profile/list_ex": "profileListExGet",
    "neighbor_ex": "neighborListExChunkedPush",
    "port_vendor_detect": "portVendorDetectBuild",
    "port_hardware_info": "portHardwareInfoBuild",
    "fiberOptics": "fiberOpticsGet",
    "imageInfo": "getImageInfo",
}
# Which of them each program links: all, where it can refresh answers.
LINKED = {
    "pavoctl": set(PRODUCERS.values()),
    "web_test": set(PRODUCERS.values()),
    "pavo_detection": set(),  # refreshes nothing
    "cache_client": {"systemInfoGet"},
}


class CacheTest(unittest.TestCase):
    def setUp(self):
        self.rig = Rig(BUILD, tempfile.mkdtemp(prefix="cache-", dir=BUILD), 50)
        self.clients = []

    def tearDown(self):
        self.rig.stop_all()
        for child in self.clients:
            if child.poll() is None:
                child.kill()
            child.communicate()
        subprocess.run(["umount", "-q", self.rig.path("/tmp")], capture_output=True, check=False)
        shutil.rmtree(self.rig.root, ignore_errors=True)

    def start(self, *words):
        child = subprocess.Popen([self.rig.program("cache_client"), *words], env=self.rig.env, stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.clients.append(child)
        return child

    def end(self, child):
        """What it printed; its standard input ends."""
        out, err = child.communicate(timeout=LIMIT)
        self.assertNotIn("Sanitizer", err)
        self.assertEqual("", err)
        return out.strip()

    def client(self, *words):
        return self.end(self.start(*words))

    def producers(self):
        return [line.split() for line in self.rig.read("/tmp/producers").splitlines()]

    def touch(self, fixed):
        with open(self.rig.path(fixed), "w", encoding="ascii"):
            pass

    def waits_for_lock(self, child):
        """Whether the process is blocked on a lock of a file."""
        with open("/proc/locks", encoding="ascii") as file:
            return any(line.split()[1:3] == ["->", "FLOCK"] and line.split()[5] == str(child.pid) for line in file)

    def see(self, what, condition):
        self.rig.wait_for(condition, LIMIT, what)

    # --- several processes

    def test_two_refreshers_of_one_answer(self):
        self.client("create")
        self.touch("/tmp/wait")
        first = self.start("refresh", "system_info")
        self.see("the first one produces", lambda: len(self.producers()) == 1)
        second = self.start("refresh", "system_info")
        self.see("the second one waits", lambda: self.waits_for_lock(second))
        other = self.start("lock", "vlan_list")
        self.assertEqual("locked\n", other.stdout.readline(), "other answers are not held up")
        self.end(other)
        self.assertEqual([["begin", str(first.pid)]], self.producers())
        os.remove(self.rig.path("/tmp/wait"))
        self.assertEqual(["0", "0"], [self.end(first), self.end(second)])
        self.assertEqual([["begin", str(first.pid)], ["end", str(first.pid)],
                          ["begin", str(second.pid)], ["end", str(second.pid)]], self.producers())
        answer = json.loads(self.rig.pavoctl("cache", "read", "system_info").stdout)
        self.assertEqual({"systemInfo": {"by": second.pid},
                          "resp": {"respCode": 0, "respMsg": "Success", "status": "success"}}, answer)
        self.assertEqual("system_info\nsystem_info\n", self.rig.read("/tmp/rest_db_api_delta.txt"))

    def test_killed_holding_the_lock(self):
        self.client("create")
        self.touch("/tmp/wait")
        killed = self.start("refresh", "system_info")
        self.see("it produces", lambda: len(self.producers()) == 1)
        next_one = self.start("refresh", "system_info")
        self.see("the next one waits", lambda: self.waits_for_lock(next_one))
        os.remove(self.rig.path("/tmp/wait"))
        self.touch("/tmp/wait")
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
            seen = dict(part.split("=") for part in self.end(reader).split())
            self.assertLessEqual(set(seen), {"a", "b"}, "whole answers, old or new, and no failures")
            self.assertGreater(sum(int(count) for count in seen.values()), 0)
        lines = self.rig.read("/tmp/rest_db_api_delta.txt").splitlines()
        self.assertEqual({"big", "other"}, set(lines), "no line is torn")
        self.assertEqual((62, 60), (lines.count("big"), lines.count("other")))
        self.assertEqual("", "".join(line for line in self.rig.log().splitlines() if "ERROR" in line))

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
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "none", tmp], capture_output=True,
                                 check=False)
        if mounted.returncode != 0:
            self.skipTest("needs root and a tmpfs of its own")
        self.client("create")
        self.assertEqual("101", self.client("write", "big", "old"))
        self.assertEqual("13", self.client("fill", "big", "600000"))  # SQLITE_FULL
        self.assertIn("[restapi_db_operation:", self.rig.log())
        self.assertIn("] Execution failed: database or disk is full\n", self.rig.log())
        self.assertEqual("0 old", self.client("read", "big"))
        self.assertEqual("101", self.client("fill", "small", "50000"))

    def test_names_with_quotes_and_semicolons(self):
        self.client("create")
        self.client("write", "bystander", "1")
        for name in ("x'; DROP TABLE restapi_db; --", "x' OR '1'='1", 'a"b;c', "$(touch /tmp/evidence)", "../../evil"):
            self.client("write", name, "'")
            self.assertEqual("'\n", self.rig.pavoctl("cache", "read", name).stdout)
            self.assertIn(name, [row["name"] for row in self.cache()])
            self.rig.pavoctl("cache", "delete", name)
            self.assertEqual("10023", self.client("read", name).strip())
        self.assertEqual("0 1", self.client("read", "bystander"))
        self.assertFalse(os.path.exists("/tmp/evidence"))

    # --- web server

    def test_web_server_is_told(self):
        self.client("create")
        server = subprocess.Popen([sys.executable, "-c", "import signal\nsignal.signal(signal.SIGINT, lambda *_: "
                                   "print('told', flush=True))\nprint('ready', flush=True)\n"
                                   "while True: signal.pause()"], stdout=subprocess.PIPE, text=True)
        self.clients.append(server)
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
        self.assertIn("] rest_db_writeback(): cannot signal thread ", self.rig.log())

    # --- pavoctl

    def cache(self):
        return json.loads(self.rig.pavoctl("--json", "cache", "list").stdout)["cache"]

    def refused(self, *words):
        done = self.rig.pavoctl(*words, check=False)
        self.assertEqual("", done.stdout)
        return done.returncode, done.stderr

    def test_commands_without_a_switch(self):
        self.assertEqual([], [row["name"] for row in self.cache() if "size" in row])
        self.assertFalse(os.path.exists(self.rig.path("/tmp/restapi_db")), "looking makes nothing")
        missing = (1, 'pavoctl: 10023: Request api not found: "vlan_list"\n')
        self.assertEqual(missing, self.refused("cache", "read", "vlan_list"))
        self.client("create")
        self.assertEqual(missing, self.refused("cache", "read", "vlan_list"))
        self.client("write", "vlan_list", "{}")
        self.client("write", "neighbor_ex/0", "{\"a\":1}")
        self.assertEqual({"vlan_list": 2, "neighbor_ex/0": 7},
                         {row["name"]: row["size"] for row in self.cache() if "size" in row})
        table = self.rig.pavoctl("cache", "list").stdout
        self.assertRegex(table, r"(?m)^vlan_list +switchConfigVlanList +(not )?linked +2$")
        self.assertRegex(table, r"(?m)^neighbor_ex/0 +- +7$")
        self.assertEqual("{}\n", self.rig.pavoctl("cache", "read", "vlan_list").stdout)
        self.assertEqual("deleted\n", self.rig.pavoctl("cache", "delete", "vlan_list").stdout)
        self.assertEqual(missing, self.refused("cache", "delete", "vlan_list"))
        self.assertEqual((3, "pavoctl: the switch cannot be reached\n"), self.refused("cache", "refresh", "vlan_list"))
        self.rig.start_switch()
        self.assertEqual((1, 'pavoctl: 10023: Request api not found: "nobody"\n'),
                         self.refused("cache", "refresh", "nobody"))

    def test_refresh(self):
        """Each answer that this build can produce is JSON in an envelope, under its key."""
        self.rig.start_switch()
        self.rig.pavoctl("cache", "refresh")
        for api in PRODUCERS:
            self.rig.pavoctl("cache", "refresh", api)
            name = "neighbor_ex/0" if api == "neighbor_ex" else api
            answer = json.loads(self.rig.pavoctl("cache", "read", name).stdout)
            self.assertEqual("success", answer["resp"]["status"], api)
            self.assertEqual(2, len(answer), api)
        self.rig.pavoctl("cache", "delete", "vlan_list")
        os.remove(self.rig.path("/tmp/rest_db_api_delta.txt"))
        os.mkdir(self.rig.path("/tmp/rest_db_api_delta.txt"))
        self.assertEqual((1, "pavoctl: 10000: General Failed: vlan_list: the answer cannot be stored\n"),
                         self.refused("cache", "refresh", "vlan_list"))

    def test_vendor(self):
        def vendor(*words):
            return self.rig.pavoctl("vendor", *words).stdout

        for mac in ("00:1B:92", "00-1b-92-01-02-03"):
            self.assertEqual("l-acoustics\n", vendor(mac))
        answer = json.loads(self.rig.pavoctl("--json", "vendor", "00:1b:92:01:02:03").stdout)
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
        self.assertEqual(list(PRODUCERS.items()), [(row["name"], row["producer"]) for row in rows])
        self.assertEqual(LINKED["pavoctl"], {row["producer"] for row in rows if row["isLinked"]})
        for program, expected in LINKED.items():
            path = self.rig.program(program)
            if not os.path.exists(path):
                self.assertEqual("web_test", program)
                continue
            symbols = subprocess.run(["nm", "-C", "--defined-only", path], capture_output=True, text=True,
                                     check=True).stdout
            functions = [line.split(" ", 2)[2] for line in symbols.splitlines() if line.split(" ", 2)[1] in "TW"]
            linked = {producer for producer in PRODUCERS.values()
                      if any(text.startswith(f"pavo::{producer}(") for text in functions)}
            self.assertEqual(expected, linked, program)


if __name__ == "__main__":
    unittest.main(verbosity=2)
