#!/usr/bin/env python3
"""The daemon and the virtual switch as real processes. PAVO_BUILD names the build folder."""

import json
import os
import random
import re
import shlex
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import BUILD, LIMIT, TREE, RigTest, run  # noqa: E402
from rig import FOLDERS, TEMPLATES, VENDORS  # noqa: E402

NO_SWITCH = 10000 & 0xFF  # how the daemon ends without one
AUDAC = "AUDAC Audio and Control Network"
CONTROL = {"name": "control", "port": "0/5", "mac": "00:1B:92:01:00:01", "lldp": {"systemDesc": "Audac MTX"}}
AUDIO = {"name": "audio", "port": "0/5", "mac": "00:1B:92:02:00:01", "behind": "control"}


class SystemTest(RigTest):
    def started(self, rig=None):
        """Switch and daemon up, a profile for audio devices applied."""
        rig = rig or self.rig
        rig.start_switch()
        rig.start_daemon()
        self.sees("daemon started", "AudacLookup Init success", rig=rig)
        self.apply_audac(rig)

    def running(self, rig=None):
        """The same with an audio device that has joined."""
        self.started(rig)
        self.plug_audio(rig)

    def apply_audac(self, rig=None):
        (rig or self.rig).pavoctl("profile", "apply", "--name", "House", "--type", AUDAC, "--vlan",
                                  "10 type=2 untagged=5,7", "--vlan", "20 type=3 assigned=5,7")

    def plug_audio(self, rig=None):
        for device in (CONTROL, AUDIO):
            (rig or self.rig).control("plug", **device)
        self.see("device joined", lambda: self.joined(rig), rig)

    def joined(self, rig=None):
        return (rig or self.rig).rows("associations", mac=AUDIO["mac"], vlan=20)

    def logged(self, text, rig=None):
        return (rig or self.rig).log().count(text)

    def sees(self, what, text, times=1, rig=None):
        """Waits until a text has been logged that often."""
        self.see(what, lambda: self.logged(text, rig) >= times, rig)

    def left(self):
        return "AUDAC device Leave (Audio MAC: " + AUDIO["mac"] in self.rig.system_log()

    # --- start and end

    def test_switch_that_never_starts_or_late(self):
        check = "RPC call can fail until server starts"
        self.assertEqual(NO_SWITCH, self.rig.start_daemon().wait(LIMIT))
        self.rig.children.clear()
        self.assertEqual((6, 1), (self.logged(check), self.logged("initHandler error")))
        late = self.new_rig(scale=3)  # slow enough for the switch to start between two checks
        late.start_daemon()
        self.sees("second check", check, 2, late)
        late.start_switch()
        self.sees("registration", "AudacLookup Init success", rig=late)

    def test_two_copies_side_by_side(self):
        other = self.new_rig()
        self.running()
        self.running(other)
        self.rig.control("unplug", name="audio")
        self.rig.stop("vswitchd")
        time_of_other = other.control("counters")["total"]
        self.see("the other copy goes on", lambda: other.control("counters")["total"] > time_of_other, other)
        self.assertTrue(self.joined(other))
        second = run([other.program("vswitchd")], env=other.env)
        self.assertEqual(1, second.returncode)
        self.assertIn("already running", second.stderr)

    # --- trouble

    def test_switch_killed_and_back(self):
        self.running()
        self.rig.control("plug", name="crowd", port="0/7", mac="02:00:00:00:00:00", count=8000)
        walked = self.rig.control("counters")["calls"].get("rpcclt_openapiFdbEntryNextGet", 0)
        self.see("a walk has begun", lambda: self.rig.control("counters")["calls"]
                 ["rpcclt_openapiFdbEntryNextGet"] > walked)
        self.rig.stop("vswitchd", signal.SIGKILL)
        self.sees("the thread waits for the switch", "waiting for the switch;")
        self.assertLess(self.logged("(ERROR)"), 30)
        self.assertEqual(0, self.logged("Leave"))
        # A switch that comes back without its configuration has no profile VLAN.
        self.rig.start_switch()
        self.see("the thread ends", self.left)
        self.apply_audac()
        self.plug_audio()

    def passed(self, seconds):
        """Lets program time pass."""
        time.sleep(seconds / self.rig.scale)

    def profile_db(self):
        database = sqlite3.connect(self.rig.path("/tmp/vlanInfo.db"), isolation_level=None)
        self.addCleanup(database.close)
        return database

    def test_what_cannot_be_asked_is_not_gone(self):
        self.running()
        starts = self.logged("AudacLookup Init success")

        def nobody_leaves(what):
            self.passed(40)
            self.assertTrue(self.joined(), what)
            self.assertFalse(self.left(), what)
            self.assertEqual(starts, self.logged("AudacLookup Init success"), what)

        waiting = "waiting for the profile database;"
        locked = self.profile_db()
        locked.execute("BEGIN EXCLUSIVE")
        self.sees("the database is locked", waiting)
        locked.execute("ROLLBACK")
        nobody_leaves("a locked database")
        self.assertEqual(1, self.logged(waiting))
        with open(self.rig.path("/tmp/vlanInfo.db"), "r+b") as file:
            whole = file.read()
            file.seek(0)
            file.write(b"x" * len(whole))
            file.flush()
            self.passed(100)
            file.seek(0)
            file.write(whole)
        nobody_leaves("a damaged database")
        self.rig.control("fault", call="openapiVlanCreatedCheck", nth=1, once=True)
        self.passed(20)
        nobody_leaves("a failed check")
        switch = self.rig.children["vswitchd"]
        switch.send_signal(signal.SIGSTOP)
        self.sees("a call has timed out", "waiting for the switch;")
        switch.send_signal(signal.SIGCONT)
        nobody_leaves("a switch that hangs")
        self.rig.control("plug", name="late", port="0/5", mac="00:1B:92:02:00:02", behind="control")
        self.see("who comes now joins", lambda: len(self.rig.rows("associations", vlan=20)) == 2)

    def test_hung_switch_at_the_start_and_at_the_end(self):
        self.running()
        self.rig.control("plug", name="crowd", port="0/5", mac="00:1B:92:03:00:00", count=100, behind="control")
        self.see("a hundred joined", lambda: len(self.rig.rows("associations")) == 101)
        self.rig.children["vswitchd"].send_signal(signal.SIGSTOP)
        self.profile_db().execute("delete from vlanInfo where id != 1")
        started = time.monotonic()
        self.sees("torn down", "AudacLookup cli apply failed", 101)
        self.assertLess(time.monotonic() - started, 20)
        self.rig.stop("pavo_detection", signal.SIGKILL)
        started = time.monotonic()
        self.assertEqual(NO_SWITCH, self.rig.start_daemon().wait(LIMIT))
        self.assertLess(time.monotonic() - started, 10)  # 3 for the check that hangs; the pauses are scaled
        self.rig.children["vswitchd"].send_signal(signal.SIGCONT)
        self.rig.children.pop("pavo_detection")

    def test_one_daemon_at_a_time(self):
        self.running()
        second = self.run_program("pavo_detection")
        self.assertEqual(1, second.returncode)
        for text in (second.stderr, self.rig.log()):
            self.assertIn("already running: /tmp/pavo_detection.lock", text)
        # The lock of a killed one does not count, and no link is followed.
        self.rig.stop("pavo_detection", signal.SIGKILL)
        lock, victim = self.rig.path("/tmp/pavo_detection.lock"), self.rig.path("/tmp/victim")
        os.rename(lock, lock + ".away")
        os.symlink(victim, lock)
        linked = self.run_program("pavo_detection")
        self.assertEqual(1, linked.returncode)
        self.assertIn("cannot open the lock file", linked.stderr)
        self.assertFalse(os.path.exists(victim))
        os.rename(lock + ".away", lock)
        self.rig.start_daemon()
        self.sees("taken over", "from an earlier run: taken over")

    def test_devices(self):
        rig = self.rig

        def devices():
            done = rig.pavoctl("devices", "--json", check=False)
            return [(row["family"], row["address"], row.get("ifNum"), row.get("vlanId"), row["state"],
                     row.get("missed", 0), "reason" in row)
                    for row in json.loads(done.stdout).get("devices", [])] if done.returncode == 0 else done.stdout

        self.running()
        joined, refused = ("audac", AUDIO["mac"], 5, 20), ("audac", "00:1B:92:02:00:77", 5)
        self.see("seen", lambda: devices()[:1] == [(*joined, "seen", 0, False)])
        table = rig.pavoctl("devices").stdout
        self.assertRegex(table, rf"audac +{AUDIO['mac']} +.*\b5 +20 +seen")
        # One that the switch refuses, and one that no family looks after.
        rig.control("fault", call="rpcclt_openapiTxtCfgApply", code=-1)
        rig.control("plug", name="late", port="0/5", mac=refused[1], behind="control")
        rig.control("plug", name="amp", port="0/9", mac="00:0F:D4:00:00:09")
        self.see("refused, unmanaged", lambda: [row[:5] for row in devices() if row[0] == "harman" or row[1] == refused[1]] ==
                 [(*refused, None, "refused"), ("harman", "00:0F:D4:00:00:09", 9, 1, "unmanaged")])
        self.assertIn("refused: ", rig.pavoctl("devices").stdout)
        rig.control("unplug", name=AUDIO["name"])
        self.see("missing", lambda: [row for row in devices() if row[:4] == joined and row[4] == "missing" and row[5] > 0])
        # Who else writes there is no daemon; who reads it need not be anybody.
        for path, mode in (("/run/pavo", 0o40755), ("/run/pavo/devices.json", 0o100644)):
            self.assertEqual(mode, os.stat(rig.path(path)).st_mode)
        rig.stop("pavo_detection", signal.SIGKILL)
        self.assertIn("is not running", devices())
        # What it had reported does not hold for the next one, which has it from the switch.
        rig.control("faults", clear=True)
        rig.start_daemon()
        self.see("from the switch", lambda: [row for row in devices() if row[1] == AUDIO["mac"]])

    def test_daemon_killed_under_joined_devices(self):
        rig = self.rig
        self.running()
        rig.pavoctl("profile", "apply", "--name", "Wall", "--type", "AVoIP Lightware AV network", "--vlan",
                    "30 type=1 untagged=11-14", "--vlan", "286 type=2")
        for port, name, chassis in ((11, "1", "ubex-a"), (12, "2", "ubex-a"), (13, "1", "ubex-b")):
            rig.control("plug", name=f"uplink{port}", port=f"0/{port}", mac=f"A8:D2:36:00:00:{port}",
                        lldp={"systemDesc": "UBEX-PRO20", "chassisId": chassis, "portDesc": name})

        def bound():
            return [{key: row[key] for key in ("name", "members", "pvid", "tagged")} for row in rig.table("lags")], \
                rig.table("associations")

        rig.log_level(7)
        self.sees("two LAGs", " added to LAG interface ", 3)
        before = bound()
        calls = rig.control("counters")["calls"]
        rig.stop("pavo_detection", signal.SIGKILL)
        rig.start_daemon()
        self.sees("taken over", "taken over", 4)
        self.passed(100)
        self.assertEqual(before, bound())
        again = rig.control("counters")["calls"]
        for call in ("rpcclt_openapiLagPortAdd", "rpcclt_openapiVlanIfParticipationSet", "rpcclt_openapiTxtCfgApply"):
            self.assertEqual(calls.get(call), again.get(call), call)
        # What left in between is released.
        rig.stop("pavo_detection", signal.SIGKILL)
        rig.control("unplug", name="uplink13")
        rig.control("unplug", name="audio")
        rig.cli("clear mac-addr-table all")  # or the switch would know the address for 300 s
        rig.start_daemon()
        self.see("released", lambda: sum(len(row["members"]) for row in rig.table("lags")) == 2)
        self.see("left", lambda: not rig.rows("associations"))

    def test_full_disk_under_the_scripts(self):
        folder = self.rig.path("/mnt/application/pavo/tmp")
        if run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", folder]).returncode != 0:
            self.skipTest("needs the right to mount")
        self.addCleanup(run, ["umount", folder])
        self.addCleanup(self.rig.stop_all)
        self.started()
        filler = os.path.join(folder, "filler")
        with self.assertRaises(OSError), open(filler, "wb", buffering=0) as file:
            while True:
                file.write(b"x" * 4096)
        for device in (CONTROL, AUDIO):
            self.rig.control("plug", **device)
        self.sees("a failure is reported", "(ERROR)")
        self.assertFalse(self.rig.rows("associations"))
        os.unlink(filler)
        self.see("joined once there is room", self.joined)

    # --- the wire, spoken by hand

    def connect(self, rig=None):
        client = socket.socket(socket.AF_UNIX)
        folder = os.open((rig or self.rig).path("/tmp"), os.O_PATH)
        try:
            client.connect(f"/proc/self/fd/{folder}/vswitchd.sock")
        finally:
            os.close(folder)
        client.settimeout(LIMIT)
        return client

    @staticmethod
    def call(client, body):
        client.sendall(struct.pack(">I", len(body)) + body)
        head = client.recv(4, socket.MSG_WAITALL)
        return client.recv(struct.unpack(">I", head)[0], socket.MSG_WAITALL) if len(head) == 4 else None

    def test_wire_and_garbage(self):
        self.rig.start_switch()
        good = self.encode("openapiVlanCreatedCheck", 1)
        client = self.connect()
        self.assertEqual(b"\x91\x00", self.call(client, good))
        self.assertEqual(b"\x91\xfc", self.call(client, good[:-1] + b"\x02"))  # code -4: not found
        for garbage in (b"", b"\xc1", good[:-1], b"\x91" * 100000):
            with self.connect() as liar:
                self.assertIsNone(self.call(liar, garbage), garbage[:20])
        with self.connect() as liar:
            liar.sendall(b"\xff\xff\xff\xff")  # a length beyond the limit
            try:
                self.assertFalse(liar.recv(1))
            except ConnectionResetError:
                pass  # hung up just as well
        idle = [self.connect() for _ in range(100)]
        for each in [client, *reversed(idle)]:
            self.assertEqual(b"\x91\x00", self.call(each, good))
            each.close()

    def test_control_program(self):
        self.rig.start_switch("--default-mtu", "1500")

        def ctl(words, success=True, **options):
            done = self.run_program("vswitchctl", *shlex.split(words), **options)
            self.assertEqual(success, done.returncode == 0, (words, done.stderr))
            return done.stdout if success else done.stderr

        scenario = self.rig.path("/tmp/scenario.json")
        with open(scenario, "w", encoding="utf-8") as file:
            json.dump([{"op": "plug", **CONTROL}, {"op": "wait", "ms": 10}, {"op": "plug", **AUDIO}], file)
        ctl("load " + scenario)
        self.assertIn("step 1", ctl("load " + scenario, success=False))
        session = ctl("cli", input="configure\nhostname \"stage one\"\nvl?\nexit\nshow version\nnonsense\n")
        for text in ("VLAN configuration mode", "Machine Model", "^"):
            self.assertIn(text, session)
        for words in ("fault * --nth 1 --once", "exec configure 'interface 0/1' 'mtu 1500'",
                      "exec configure 'interface 0/2' 'mtu 1518'",
                      "plug tap 0/30 00:1b:92:00:30:01 --speed 100 --half-duplex",
                      "sfp 0/30 --vendor ACME --wavelength 1310 --temperature -5000",
                      "errors 0/30 --inErrors 18446744073709551615", "health temperature 2 -15",
                      "health temperature 1 --failed", "health fan 2 failed", "health fan 1 operational --rpm 900",
                      "health power 1 absent", "health cpu 44", "health memory 100 50"):
            ctl(words)
        self.assertEqual(["mtu 1518"], [line for line in self.rig.running_config() if "mtu" in line])
        health = ctl("health")
        for words in ("table nothing", "sfp 0/1 --vendor ACME", "errdisable 0/1 boredom", "errors 0/99 --inErrors 1",
                      "plug x 0/1 00:1b:92:00:30:02 --speed -1", "health fan 9 failed", "health fan 1 broken",
                      "health cpu 101", "health temperature 1 301", "health memory 50 100", "dot1x authorize 0/1"):
            ctl(words, success=False)
        self.assertEqual(health, ctl("health"))
        values = json.loads(health)
        sensors, fans = values["sensors"], values["fans"]
        self.assertEqual(["failed", ("normal", -15), ("operational", 900), "failed", "absent", 44, 50], [
            sensors[0]["state"], (sensors[1]["state"], sensors[1]["celsius"]), (fans[0]["state"], fans[0]["rpm"]),
            fans[1]["state"], values["supplies"][0]["state"], values["cpu"], values["memory"]["freeKb"]])
        for words, pattern in (("table fdb", AUDIO["mac"]), ("events", "plugged into 0/5"),
                               ("counters", r'"unknownCommands": ?1\b'), ("faults", '"nth": ?1'),
                               ("exec 'show port status all'", r"0/30 +SFP +auto +100 Half +Up"),
                               ("exec 'show fiber-ports optics all'", r"0/30 +ACME +-5\.0 "),
                               ("--json table counters", '"inErrors": ?18446744073709551615')):
            self.assertRegex(ctl(words), pattern)
        for words in ("faults --clear", "errdisable 0/30 bpdu-guard", "sfp 0/30 --remove", "link 0/1 up",
                      "dot1x authorize 0/1", "dot1x reject 0/1", "dot1x unauthorize 0/1"):
            ctl(words)
        self.assertRegex(ctl("faults"), r'"faults": ?\[\]')
        self.assertIn("DAC-10G-1M", ctl("table sfp"))
        self.assertRegex(ctl("exec 'show port status all'"), r"0/30 +SFP +auto +Down  bpdu-guard")

    # --- state of the switch

    @staticmethod
    def encode(*values):
        """A list of strings and numbers in MessagePack."""
        out = bytes([0x90 | len(values)])
        for value in values:
            out += (b"\xce" + struct.pack(">I", value) if isinstance(value, int)
                    else b"\xda" + struct.pack(">H", len(value)) + value.encode())
        return out

    def changes(self, *rigs):
        """Requests, each of which changes the configuration: setters, and scripts of many lines."""
        out = []
        for vlan in range(10, 22):
            path = f"/mnt/application/pavo/tmp/change_{vlan}"
            for rig in rigs:
                with open(rig.path(path), "w", encoding="ascii") as file:
                    file.write(f"vlan database\nvlan name {vlan} \"hall {vlan}\"\nvlan {vlan + 100}\nexit\nconfigure\n"
                               f"interface 0/{vlan}\ndescription \"to {vlan}\"\nmtu 9198\nvlan pvid {vlan + 100}\n"
                               f"exit\nhostname h{vlan}\nexit\n")
            out += [self.encode("rpcclt_openapi" + call, *arguments) for call, *arguments in (
                ("VlanCreate", vlan), ("VlanNameSet", vlan, f"V{vlan}"), ("VlanIfPvidSet", 1, vlan),
                ("VlanIfParticipationSet", vlan, 2, 0), ("VlanIfTaggingSet", 2, vlan, 1),
                ("TxtCfgApply", path, path + "_out"), ("VlanDelete", vlan))]
        return out

    def change(self, client, request):
        """Whether the switch acknowledges it."""
        try:
            reply = self.call(client, request)
        except ConnectionError:
            reply = None
        self.assertIn(reply, (None, b"\x91\x00"))
        return reply is not None

    def test_acknowledged_changes_survive_a_kill(self):
        reference = self.new_rig()
        changes = self.changes(reference, self.rig)
        reference.start_switch()
        expected = [reference.running_config()]
        taken = 0
        with self.connect(reference) as client:
            for request in changes:
                start = time.monotonic()
                self.assertTrue(self.change(client, request))
                taken += time.monotonic() - start
                expected.append(reference.running_config())

        state = self.rig.path("tmp/switch-state")
        dice = random.Random(5)
        done = kills = 0
        self.rig.start_switch("--state", state)
        while done < len(changes):
            # Half of the time the changes are accepted, and take effect long after the kill.
            self.rig.control("latency", ms=60000 if kills % 2 else 0)
            killer = threading.Timer(dice.uniform(0, taken / 5), self.rig.children["vswitchd"].kill)
            with self.connect() as client:
                killer.start()
                while done < len(changes) and self.change(client, changes[done]):
                    done += 1
            killer.join()
            self.rig.stop("vswitchd", signal.SIGKILL)
            kills += 1
            # What was under way at the kill is there as a whole or not at all.
            self.rig.start_switch("--state", state)
            now = self.rig.running_config()
            if done < len(changes) and now == expected[done + 1]:
                done += 1
            self.assertEqual(expected[done], now, f"after {done} changes, kill {kills}")
        self.assertLess(1, kills)

    def test_damaged_state_is_not_an_empty_switch(self):
        state = self.rig.path("tmp/switch-state")
        self.rig.start_switch("--state", state)
        self.rig.cli("vlan database", "vlan 10-20", "exit")
        self.rig.stop("vswitchd", signal.SIGKILL)
        with open(state, "r+", encoding="ascii") as file:
            text = file.read()
            file.truncate(len(text) // 2)
        for path, why in ((state, "damaged"), (self.rig.path("tmp/nowhere/state"), "cannot write")):
            done = self.run_program("vswitchd", "--state", path)
            self.assertEqual((1, ""), (done.returncode, done.stdout))
            self.assertIn(why, done.stderr)
        self.assertEqual(len(text) // 2, os.path.getsize(state))

    # --- pavoctl

    def plan_and_status(self, ctl):
        """Beside a profile "B\u00fchne" on VLAN 20: what --plan and status tell, and that neither changes anything."""
        before, name = self.rig.running_config(), "B\u00fchne"
        hall = ("profile", "apply", "--name", "Hall", "--type", "ETC Lighting", "--vlan", "20 untagged=1-2,9",
                "--vlan", "30 untagged=10-12,lag3")
        self.assertIn(f'VLAN 20 belongs to profile "{name}"', ctl(*hall, "--plan", status=1))
        self.assertRegex(ctl(*hall, "--plan", "--overwrite"), "(?m)^  0/10-12,lag3 +VLAN 1 -> 30 untagged, MTU .*$")
        data = json.loads(ctl("--json", *hall, "--plan", "--overwrite"))["plan"]
        self.assertEqual([{"what": "VLAN 20", "from": name, "to": "Hall"}], data["taken"])
        self.assertEqual(before, self.rig.running_config())
        self.assertEqual(f"{name}  as applied\n", ctl("profile", "status"))

        ctl(*hall, "--overwrite")
        self.assertEqual("nothing would change\n", ctl(*hall, "--overwrite", "--plan"))
        self.assertEqual([f'{name}  incomplete: VLAN 20 is with "Hall"', "Hall  as applied"],
                         sorted(ctl("profile", "status", status=1, output=True).splitlines()))
        self.assertRegex(ctl("profile", "list"), rf"(?m)^{name} .* -  .*incomplete$")
        self.assertEqual("Hall  as applied\n", ctl("profile", "status", "Hall"))
        self.assertIn('no profile "nobody" has been applied', ctl("profile", "status", "nobody", status=1))

        self.rig.cli("configure", "no spanning-tree mode", "interface 0/11", "no mtu", "end")
        self.assertIn("Hall  drifted\n", ctl("profile", "status", "Hall", status=1, output=True))
        entry, = json.loads(ctl("--json", "profile", "status", "Hall", status=1, output=True))["profileStatus"]
        self.assertEqual((False, "rstp"), (entry["asApplied"], entry["repair"]["switch"][0]["then"]))

        self.rig.control("fault", call="rpcclt_openapiTxtCfgApply", nth=2)
        self.assertIn("could not be taken back: the configuration of the switch",
                      ctl("profile", "apply", "--name", "New", "--type", "Audio Dante", "--vlan", "40 untagged=20",
                          status=1))
        self.rig.control("faults", clear=True)
        self.assertIn("New  interrupted", ctl("profile", "status", "New", status=1, output=True))
        os.unlink(self.rig.path("/tmp/vlanInfo.db"))
        self.assertRegex(ctl("profile", "list"), rf"(?s)Hall .*{name} ")
        self.assertFalse(os.path.exists(self.rig.path("/tmp/vlanInfo.db")))
        ctl("profile", "delete", "Hall")
        self.assertEqual(f"{name}  as applied\n", ctl("profile", "status"))
        self.assertEqual(before, self.rig.running_config())

    def test_pavoctl(self):
        def ctl(*words, status=0, output=None):
            """What it prints: its output, or what it complains about."""
            done = self.rig.pavoctl(*words, check=False)
            self.assertEqual(status, done.returncode, (words, done.stdout, done.stderr))
            return done.stdout if output or status == 0 else done.stderr

        def apply(vlan, *words, name="x", status=0):
            return ctl("profile", "apply", "--name", name, "--type", "Data", "--vlan", vlan, *words, status=status)

        self.assertIn("cannot be reached", ctl("profile", "list", status=3))
        self.rig.start_switch()
        for words in ((), ("apply", "--name", "x"), ("apply", "/nowhere"), ("apply", "request.json", "--name", "x")):
            ctl("profile", *words, status=2)
        self.assertIn("there is no port 49 (ports 1-48, LAGs lag1-24)", apply("20 untagged=49", status=2))
        self.assertEqual("Default", ctl("profile", "list").split("\n")[1].split()[0])
        self.assertEqual("", ctl("profile", "status"))
        self.assertIn("Audio Dante", ctl("profile", "types"))
        self.assertIn("Video NDI4", ctl("profile", "templates"))
        self.assertEqual(50, len(json.loads(ctl("--json", "profile", "types"))["profileTypes"]))

        before = self.rig.running_config()
        ctl("profile", "apply", "--name", "B\u00fchne", "--type", "Audio Dante", "--vlan", "20 untagged=1-4,7 tagged=48,lag2")
        for words in (("show", "B\u00fchne"), ("list",)):
            self.assertRegex(ctl("profile", *words), r" 1-4,7 +48,lag2 ")
        self.assertIn("14107: The profile name is already in use", apply("21", name="B\u00fchne", status=1))
        failure = json.loads(ctl("--json", "profile", "delete", "nobody", status=1, output=True))["resp"]
        self.assertEqual((10012, "Object not exist: there is no such profile"), (failure["respCode"], failure["respMsg"]))
        self.assertIn("10003: Invalid argument: \"name\": \"Default\" is for the default profile",
                      apply("21", "--overwrite", name="Default", status=1))
        vlan = json.loads(ctl("--json", "vlan", "list"))["vlans"][1]
        self.assertEqual((20, [1, 2, 3, 4, 7]), (vlan["vlanId"], vlan["untagPorts"]))
        self.assertIn("Audio Dante", ctl("vlan", "show", "20"))
        ctl("vlan", "show", "4000", status=1)
        self.assertEqual("created 700-701\n", ctl("vlan", "create", "700-701"))
        self.rig.cli("configure", "ip management vlan 701 dhcp", "interface vlan 700", "routing")
        for vlans, why in (("20", 'profile "B\u00fchne" has VLAN 20; --force'), ("701", "the management interface; --force"),
                           ("700", "a routing interface; --force"), ("700,1", "VLAN 1 cannot be deleted"),
                           ("700,", "is no list"), ("701-700", "is no list"), ("7-x", "is no list")):
            self.assertIn(why, ctl("vlan", "delete", vlans, status=1))
        self.assertEqual({"vlans": [], "profiles": [{"name": "B\u00fchne", "has": ["VLAN 20"]}]},
                         json.loads(ctl("--json", "vlan", "name", "20", "x", "--force"))["vlanChange"])
        self.assertIn('profile "B\u00fchne" has VLAN 20, which applying it again brings back',
                      ctl("vlan", "name", "20", "B\u00fchne", "--force"))
        ctl("vlan", "name", "700", "foyer")
        self.assertEqual("foyer\n", ctl("vlan", "name", "700"))
        ctl("vlan", "participation", "700", "include")
        self.assertRegex(ctl("vlan", "interfaces", "700"), r"(?m)^lag 24 +Include +Include +Untagged$")
        ctl("vlan", "tagging", "700", "yes", status=2)
        self.assertIn("there is no VLAN 99", ctl("vlan", "tagging", "99", "tagged", status=1))
        self.assertEqual("deleted 700-701\n", ctl("vlan", "delete", "700-703", "--force"))
        self.assertEqual("disable\n", ctl("vlan", "auto"))

        self.plan_and_status(ctl)

        completion = os.path.join(TREE, "data", "completion", "pavoctl.bash")
        script = f"""source {completion}; PATH={os.path.dirname(self.rig.program('pavoctl'))}:$PATH
            complete_line() {{ COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _pavoctl; printf '%s\n' "${{COMPREPLY[@]}}"; }}
            complete_line pavoctl pro; complete_line pavoctl profile de; complete_line pavoctl profile show B
            complete_line pavoctl cache ref; complete_line pavoctl cache read profile/
            complete_line pavoctl profile sta; complete_line pavoctl profile status B
            complete_line pavoctl profile apply --type 'Video N'; complete_line pavoctl profile apply --pl
            complete_line pavoctl profile apply --vlan '"20 untagged=1,'; complete_line pavoctl profile show '"$'"""
        evidence = self.rig.path("/tmp/evidence")
        apply("21", name=f"$(touch {evidence})")
        done = run(["bash", "-c", script], env=self.rig.env)
        self.assertEqual("", done.stderr)
        for word in ("profile", "delete", "status", "refresh", "profile/list_ex", "B", "NDI4", "--plan",
                     "20 untagged=1,lag", "\\$(touch"):
            self.assertIn(word, done.stdout)
        self.assertFalse(os.path.exists(evidence), "names are not expanded")
        ctl("profile", "delete", f"$(touch {evidence})")

        ctl("profile", "delete", "B\u00fchne")
        self.assertEqual(before, self.rig.running_config())
        self.assertEqual(0, self.rig.control("counters")["unknownCommands"])


class ProgramTest(unittest.TestCase):
    """The programs without a switch."""

    def test_version(self):
        with open(os.path.join(TREE, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"project\(pavo VERSION ([\d.]+)", file.read())[1]
        for name in ("pavo_detection", "pavoctl", "vswitchd", "vswitchctl", "frames"):
            with self.subTest(name), tempfile.TemporaryDirectory(dir=BUILD) as root:
                done = run([os.path.join(BUILD, FOLDERS[name], name), "--version"],
                           env=dict(os.environ, PAVO_ROOT=root), timeout=LIMIT)
                self.assertEqual((0, f"{name} {version}\n", ""), (done.returncode, done.stdout, done.stderr))
                self.assertEqual([], os.listdir(root))

    def test_installation(self):
        with tempfile.TemporaryDirectory(dir=BUILD) as stage:
            run(["cmake", "--install", BUILD, "--prefix", "/usr"], env=dict(os.environ, DESTDIR=stage), check=True)
            installed = {os.path.relpath(os.path.join(folder, name), stage)
                         for folder, _, names in os.walk(stage) for name in names}
            templates = {os.path.join(TEMPLATES[1:], name)
                         for name in os.listdir(os.path.join(TREE, "data", "profileTemplate"))}
            web = {f"usr/libexec/pavo/{name}"
                   for name in ("pavo_cgi", "pavo_webd", "route_documents", "make-web-config.sh")}
            units = {f"usr/lib/systemd/system/{name}.service" for name in ("pavo_detection", "pavo_web", "pavo_webd")}
            self.assertEqual({"usr/sbin/pavo_detection", "usr/bin/pavoctl", "usr/sbin/vswitchd", "usr/bin/vswitchctl",
                              "usr/share/bash-completion/completions/pavoctl", "usr/share/doc/pavo/README.md",
                              "usr/share/doc/pavo/CHANGELOG.md", "usr/share/pavo/openapi.json",
                              "usr/lib/sysusers.d/pavo.conf", "usr/lib/tmpfiles.d/pavo.conf",
                              VENDORS[1:]} | templates | web | units, installed)

            def pavoctl(*words):
                return run([os.path.join(stage, "usr/bin/pavoctl"), *words], env=dict(os.environ, PAVO_ROOT=stage),
                           check=True).stdout

            self.assertIn("A first profile", pavoctl("--help"))
            self.assertEqual("l-acoustics\n", pavoctl("vendor", "00:1b:92:01:02:03"))
            switch = subprocess.Popen([os.path.join(stage, "usr/sbin/vswitchd")], stdout=subprocess.PIPE,
                                      env=dict(os.environ, PAVO_ROOT=stage))
            try:
                self.assertIn(b"listening", switch.stdout.readline())
                self.assertIn("Video NDI4", pavoctl("profile", "templates"))
            finally:
                switch.terminate()
                switch.communicate()


class StoryTest(RigTest):
    def test_story(self):
        with open(os.path.join(TREE, "data", "scenarios", "story.json"), encoding="utf-8") as file:
            scenario = json.load(file)
        scenario["scale"] = 50  # nobody watches
        faster = self.rig.path("tmp/story.json")
        with open(faster, "w", encoding="utf-8") as file:
            json.dump(scenario, file)
        done = run([sys.executable, os.path.join(TREE, "demo", "story.py"), "--build", BUILD, "--scenario", faster])
        self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        self.assertIn("refused no command", done.stdout)


if __name__ == "__main__":
    unittest.main()
