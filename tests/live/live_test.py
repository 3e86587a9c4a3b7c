#!/usr/bin/env python3
"""Faults and hostile traffic on a live data plane: real interfaces, real frames. Runs inside lab/enclose.sh.

PAVO_BUILD names the build folder. Reachability through a whole story is tested by lab/lab.py itself.
"""

import ctypes
import json
import os
import signal
import socket
import struct
import sys
import time
import unittest

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(TREE, "lab"))

import lldp_frames  # noqa: E402
from topology import BROADCAST, SWITCH, Failure, Host, Keeper, LabRig, Network, ip, run, standard_devices  # noqa: E402

LIMIT = 90  # real seconds that any one event may take
SCALE = 10
PORTS = 12
LEFT, RIGHT = "00:1B:92:02:00:01", "00:1B:92:02:00:02"
PROFILE = ["profile", "apply", "--name", "House", "--type", "AUDAC Audio and Control Network",
           "--vlan", "10 type=2 untagged=1,5,7", "--vlan", "20 type=3 untagged=3,4 assigned=5,7"]
VIDEO_PROFILE = ["profile", "apply", "--name", "Projection", "--type", "AVoIP Lightware AV network",
                 "--vlan", "30 type=1 untagged=9-12", "--vlan", "286 type=2"]
LIGHTWARE_MISSES = 2  # scans after which an uplink that is not seen leaves its LAG


class LiveTest(unittest.TestCase):
    """One network for all tests of a class; each leaves it as it found it."""

    switch_options = ()

    @classmethod
    def setUpClass(cls):
        cls.rig = LabRig(os.environ["PAVO_BUILD"], os.environ["PAVO_LAB"], PORTS, scale=SCALE)
        cls.net = Network(PORTS, cls.rig.program("frames"), cls.rig.path("tmp"))
        cls.devices = standard_devices(cls.net)
        cls.addClassCleanup(cls.close)
        for name, port in (("desk", 1), ("media", 3), ("wall", 4)):
            cls.net.plug(cls.devices[name], port)
        cls.rig.start_switch(*cls.switch_options)
        cls.rig.start_daemon()
        cls.rig.pavoctl(*PROFILE)

    @classmethod
    def close(cls):
        for name in ("pavo_detection", "vswitchd"):
            status = cls.rig.stop(name)
            output = cls.rig.output(name)
            for word in ("Sanitizer", "runtime error"):
                if word in output:
                    raise AssertionError(f"{name} (status {status}):\n{output}")
        cls.rig.stop_all()
        cls.net.close()

    def see(self, what, condition):
        return self.rig.wait_for(condition, LIMIT, what)

    def associated(self):
        return {row["mac"] for row in self.rig.table("associations") if row["vlan"] == 20}

    def reaches(self, source, target):
        return self.net.ping(self.devices[source], self.devices[target])

    def join(self, port=5):
        self.net.plug(self.devices["control"], port)
        self.see("both audio devices are bound", lambda: self.associated() == {LEFT, RIGHT})
        self.see("media reaches stage-left", lambda: self.reaches("media", "stage-left"))

    def leave(self):
        self.net.unplug(self.devices["control"])
        self.see("the audio devices have left", lambda: not self.associated())

    def plane(self):
        """State of the data plane, None while the switch does not answer."""
        return self.rig.try_control({"op": "dataplane"})

    def pid(self, name):
        return next(row["pid"] for row in self.plane()["processes"] if row["name"] == name)


class RecoveryTest(LiveTest):
    """For tests that disturb something under 1,000 frames a second: each case is a line of a table, and everything is
    as before afterwards."""

    def setUp(self):
        self.table = []

    def flows(self):
        """The flows that are watched, sender and receiver; more than one interface of the receiver is one LAG."""
        return [("media", "stage-left")]

    def lags(self):
        return [{key: row[key] for key in ("name", "members", "static", "pvid", "tagged")}
                for row in self.rig.table("lags")]

    def configured(self):
        """What must not change, None while the switch does not answer."""
        try:
            return self.rig.running_config(), self.associated(), self.lags()
        except Failure:
            return None

    def start_flow(self, sender, receiver):
        target, flow = self.devices[receiver], self.net.new_flow()
        listeners = [self.net.listen(target, name, flow, seconds=10 * LIMIT) for name in target.interfaces()]
        return flow, target, listeners, self.net.start_sending(self.devices[sender], to=target.mac, flow=flow, rate=1000)

    def arrives(self, flow, target):
        probes = [self.net.listen(target, name, flow, seconds=0.2) for name in target.interfaces()]
        return any([probe.result()["received"] for probe in probes])

    def recovers(self, what, disturb, back):
        """Frames lost and the longest silence of each flow, and the time until `back` holds and everything is
        configured as before; nothing else is seen in between. Returns the frames lost."""
        before = self.configured()
        self.assertEqual({LEFT, RIGHT}, before[1])
        running = [self.start_flow(*ends) for ends in self.flows()]

        def holds():
            now = self.configured()
            if now is None:
                return False
            self.assertEqual(before, now, what)
            return self.plane() is not None and back()

        lost, cells = [], ""
        try:
            time.sleep(0.3)  # a little undisturbed traffic, so that the silence has a beginning
            start = time.monotonic()
            disturb()
            self.see(f"{what}: back", holds)
            self.see(f"{what}: settled", lambda: (self.plane() or {}).get("settled"))
            for flow, target, _, _ in running:
                self.see(f"{what}: frames to {target.name}", lambda: self.arrives(flow, target))
            restored = time.monotonic() - start
            self.assertEqual(before, self.configured(), what)
            time.sleep(0.3)
        finally:
            for _, _, _, sender in running:
                self.net.end(sender)
            results = [[listener.stop() for listener in listeners] for _, _, listeners, _ in running]
        for heard in results:
            heard = [result for result in heard if result["received"]]
            self.assertEqual(1, len(heard), (what, results))  # of a LAG's members one
            self.assertFalse(heard[0]["duplicates"], what)
            # What the listener was too slow for has been forwarded.
            lost.append(max(0, heard[0]["missing"] - heard[0]["dropped"]))
            cells += f"{lost[-1]:>8} {heard[0]['longestGapMs']:>10.0f}"
        self.table.append(f"  {what:<34}{cells} {restored:>10.1f}")
        return lost

    def print_table(self):
        columns = "".join(f"{'lost':>8} {'silence ms':>10}" for _ in self.flows())
        print(f"\n{'Recovery under 1,000 frames/s':<36}{columns} {'all back s':>10}\n" + "\n".join(self.table),
              flush=True)


class FaultTest(RecoveryTest):
    """Whatever the switch runs on ends or hangs, traffic, configuration and associations come back by themselves."""

    def test_everything_recovers(self):
        self.join()
        control = self.devices["control"]
        for name in ("ovs-vswitchd", "ovsdb-server", "lldpd"):
            old = self.pid(name)
            self.recovers(f"{name} killed", lambda: os.kill(old, signal.SIGKILL),
                          lambda: self.pid(name) not in (0, old))
        for name in ("ovs-vswitchd", "lldpd"):
            old = self.pid(name)
            self.recovers(f"{name} hung", lambda: os.killpg(old, signal.SIGSTOP),
                          lambda: self.pid(name) not in (0, old))
        self.assertTrue(self.rig.rows("lldp", port=5, chassisId=control.mac.upper()))

        def pull(port):
            self.net.pull(port)
            self.see("no link", lambda: self.rig.rows("ports", name=f"0/{port}", link=False))
            self.assertFalse(self.rig.rows("fdb", interface=f"0/{port}"))
            self.net.reinsert(port)

        self.recovers("cable of the audio devices pulled", lambda: pull(5),
                      lambda: self.rig.rows("fdb", mac=LEFT, vlan=20))
        self.recovers("cable of the sender pulled", lambda: pull(3),
                      lambda: self.rig.rows("ports", name="0/3", link=True))
        self.leave()
        self.print_table()

    def test_a_change_costs_no_frame_of_other_flows(self):
        media, wall = self.devices["media"], self.devices["wall"]
        self.see("media reaches wall", lambda: self.reaches("media", "wall"))
        changes = [["vlan database", "vlan 40-60", "exit", "configure", "interface 0/9",
                    "vlan participation include 40-60", "vlan tagging 40-60", "vlan pvid 40"],
                   ["configure", "interface 0/10", "addport lag 1"],
                   ["vlan database", *(f"vlan association mac 02:00:00:00:99:{n:02X} 50" for n in range(40))],
                   ["configure", "interface 0/10", "deleteport lag 1"],
                   ["vlan database", "no vlan 40-60"],
                   ["configure", "interface 0/9", "no vlan pvid", "vlan participation auto 40-60"]]
        before = self.plane()["flowChanges"]
        flow = self.net.new_flow()
        listener = self.net.listen(wall, "eth0", flow, idle_ms=2000)
        sender = self.net.start_sending(media, to=wall.mac, flow=flow, rate=1000)
        for lines in changes:
            self.rig.cli(*lines)
            self.see("the change is on the wire", lambda: self.plane()["settled"])
        self.net.end(sender)
        result = listener.result()
        self.assertGreater(self.plane()["flowChanges"], before + 100)
        self.assertEqual(json.loads(sender.text())["sent"], result["received"], result)
        self.assertEqual((0, 0), (result["duplicates"], result["reordered"]), result)

    def test_tags_filters_and_shutdown(self):
        """What no story shows: tagged delivery, accepted frame types, the deny list, a port that is shut down."""
        media, wall, desk = (self.devices[name] for name in ("media", "wall", "desk"))
        everybody = [media, wall, desk]

        def hear(sender, *names, **options):
            self.see(f"{sender.name} is heard by {names} {options}",
                     lambda: set(self.net.hearers(sender, everybody, **options)) == set(names))

        def on(port, *lines):
            self.rig.cli("configure", f"interface 0/{port}", *lines)

        saved = self.rig.running_config()
        # A frame with the tag of a VLAN that the port is not in goes nowhere; in it, it goes to the others.
        hear(desk, vlan=20)
        on(1, "vlan participation include 20", "vlan tagging 20")
        hear(desk, "media", "wall", vlan=20)
        with self.net.capture("desk", "eth0", "-Q", "in") as seen:
            self.net.hearers(media, [wall])
        lines = [line for line in seen.text() if line.startswith(media.mac)]
        self.assertTrue(lines and all("vlan 20" in line for line in lines), lines)
        on(1, "vlan acceptframe admituntaggedonly")
        hear(desk, vlan=20)
        on(1, "vlan acceptframe all", "no vlan tagging 20", "vlan participation auto 20")
        on(3, "vlan acceptframe vlanonly")
        hear(media)
        on(3, "no vlan acceptframe")
        hear(media, "wall")

        # A tag that is a priority only counts as none, and does not come out at the other end.
        prioritised = bytes.fromhex("ff" * 6 + media.mac.replace(":", "") + "8100e00088b5" + "00" * 50)
        with self.net.capture("wall", "eth0", "ether", "src", media.mac) as seen:
            self.net.send_raw(media, [prioritised])
            self.see("the frame has arrived", seen.packets)
        self.assertNotIn("vlan", "".join(seen.text()))

        # The deny list, in either direction; what it does not name passes.
        self.rig.cli("configure", "ip access-list NET-BLOCK", f"deny ip any {wall.address} 0.0.0.0", "permit ip any any")
        for port, direction in ((3, "in"), (4, "out")):
            self.see("media reaches wall", lambda: self.reaches("media", "wall"))
            on(port, f"ip access-group NET-BLOCK {direction} 1")
            self.see("the filter holds", lambda: not self.reaches("media", "wall"))
            on(port, f"no ip access-group NET-BLOCK {direction}")
        self.rig.cli("configure", "no ip access-list NET-BLOCK")
        self.see("media reaches wall", lambda: self.reaches("media", "wall"))

        on(4, "mtu 9018")
        self.see("the frame size is on the wire",
                 lambda: json.loads(ip(SWITCH, "-j", "link", "show", "p4").stdout)[0]["mtu"] == 9000)
        on(4, "mtu 1500")  # as the profile has it
        on(4, "shutdown")
        self.see("no link", lambda: self.rig.rows("ports", name="0/4", link=False, admin=False))
        self.see("shut down", lambda: not self.reaches("media", "wall"))
        on(4, "no shutdown")
        self.see("media reaches wall", lambda: self.reaches("media", "wall"))
        # An interface that is another one of the same name: the port goes on with it.
        self.net.unplug(wall)
        ip(SWITCH, "link", "delete", "p4")
        self.see("no link", lambda: self.rig.rows("ports", name="0/4", link=False))
        self.net.make_port(4)
        self.net.plug(wall, 4)
        self.see("media reaches wall", lambda: self.reaches("media", "wall"))
        # Nothing can be plugged into a real port.
        self.assertIsNone(self.rig.try_control({"op": "plug", "name": "toy", "port": "0/9", "mac": "02:00:00:00:77:01"}))
        self.assertEqual(saved, self.rig.running_config())


class RestartTest(RecoveryTest):
    """Daemon and switch start again under joined devices: nobody leaves, nobody moves."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.net.move(cls.devices["wall"], 9)
        cls.rig.pavoctl(*VIDEO_PROFILE)
        cls.rig.log_level(7)
        for port, name in ((11, "eth0"), (12, "eth1")):
            cls.net.plug(cls.devices["ubex"], port, name)

    def flows(self):
        return [("media", "stage-left"), ("wall", "ubex")]

    def scans(self):
        """Scans that daemons have begun: of the LAGs' ports, and of those with audio devices."""
        log = self.rig.log()
        return [log.count(text) for text in ("LightwareLookup wake up", "AudacLookup wake up")]

    def joins(self):
        log = self.rig.log()
        return [log.count(text) for text in ("Added VLAN association MAC", "added to LAG interface")]

    def restart(self, how, *names):
        """Ends the programs; the keeper starts them again. Back when the daemon has completed as many scans as an
        uplink may be missing from: one that it did not know would be out of its LAG, or in another one."""
        children = {name: self.rig.children[name] for name in names}
        before = self.scans()

        def disturb():
            for child in children.values():
                child.send_signal(how)

        def back():
            return all(self.rig.children[name] is not child for name, child in children.items()) and \
                all(now - then > LIGHTWARE_MISSES for now, then in zip(self.scans(), before))

        lost = self.recovers(f"{' and '.join(names)}: {how.name}", disturb, back)
        for name in names:
            self.assertIn((name, -how if name == "pavo_detection" or how == signal.SIGKILL else 0), self.keeper.ends)
        return lost

    def test_restart(self):
        self.join()
        ubex = self.devices["ubex"]
        self.see("both uplinks are in one LAG", lambda: any(
            sorted(row["members"]) == [11, 12] and row["pvid"] == 30 and row["tagged"] == [286] for row in self.lags()))
        self.see("wall reaches ubex", lambda: self.reaches("wall", "ubex"))
        joins = self.joins()
        self.assertEqual([2, 2], joins)
        with Keeper(self.rig) as self.keeper:
            for how in (signal.SIGTERM, signal.SIGKILL):
                self.assertEqual([0, 0], self.restart(how, "pavo_detection"))
            # The switch forwards nothing while it is away: how much that costs is up to the machine.
            for names in (["vswitchd"], ["vswitchd", "pavo_detection"]):
                self.restart(signal.SIGKILL, *names)
        self.assertEqual(joins, self.joins())

        # What was taken over is let go as usual, even when it left while there was no daemon.
        self.rig.stop("pavo_detection", signal.SIGKILL)
        self.net.unplug(self.devices["control"])
        for name in ubex.interfaces():
            self.net.unplug(ubex, name)
        self.rig.start_daemon()
        self.see("the endpoint's LAG is free again",
                 lambda: all((row["members"], row["pvid"], row["tagged"]) == ([], 1, []) for row in self.lags()))
        self.see("the audio devices have left", lambda: not self.associated())
        self.print_table()


class HostileTest(LiveTest):
    """What a device may send does no harm to the switch or to the others."""

    switch_options = ("--fdb", "4096")

    def test_flood_of_addresses(self):
        wall = self.devices["wall"]
        self.net.send(wall, to=BROADCAST, flow=self.net.new_flow(), source="06:00:00:00:00:00", sources=20000,
                      count=60000, rate=20000)
        self.see("the flood has been learned", lambda: len(self.rig.table("fdb")) >= 2000)
        flood = self.net.start_sending(wall, to=BROADCAST, flow=self.net.new_flow(), source="06:00:00:00:00:00",
                                       sources=20000, rate=2000)
        self.join()
        self.assertLessEqual(len(self.rig.table("fdb")), 4096)
        rows = self.learned_rows()
        self.assertLessEqual(len(rows), 4096)
        self.assertLessEqual(sum("cookie=0x10000000004," in row for row in rows), 2048)
        self.net.move(self.devices["control"], 7)
        self.see("the move is noticed", lambda: self.rig.rows("fdb", mac=LEFT, vlan=20, interface="0/7"))
        self.see("media reaches stage-left", lambda: self.reaches("media", "stage-left"))
        self.net.end(flood)
        self.leave()
        self.rig.cli("clear mac-addr-table all")
        self.see("the flood is forgotten", lambda: len(self.rig.table("fdb")) < 100)

    def learned_rows(self):
        """The address table as Open vSwitch has it, whatever the switch makes of it."""
        bridge = "unix:" + self.rig.path("tmp/vswitchd.sock.dataplane/vswitch0.mgmt")
        dump = run(SWITCH, "ovs-ofctl", "-O", "OpenFlow14", "dump-flows", bridge, "table=10").stdout
        return [row for row in dump.splitlines() if "hard_timeout" in row]

    def test_malformed_lldp(self):
        wall = self.devices["wall"]
        self.net.move(wall, 7)  # where the daemon looks at neighbours
        processes = {row["name"]: row["starts"] for row in self.plane()["processes"]}
        before = self.rig.running_config()
        # Ten at a time, from as many senders: each case is in the table when it is read, next to a sound one.
        senders = [f"06:00:00:00:01:{n:02x}" for n in range(10)]
        names = [name for name, _ in lldp_frames.cases(wall.mac)]
        for start in range(0, len(names), len(senders)):
            for name, sender in zip(names[start:], senders):
                self.net.send_raw(wall, dict(lldp_frames.cases(sender))[name])
            sound = lldp_frames.lldpdu(wall.mac, sys_name=f"sound-{start}", sys_desc="after all that")
            self.net.send_raw(wall, [lldp_frames.frame(wall.mac, sound)])
            self.see(f"the sound frame after {names[start:start + 10]} is heard",
                     lambda wanted=f"sound-{start}": self.rig.rows("lldp", port=7, systemName=wanted))
        for row in self.rig.table("lldp"):
            for field in ("chassisId", "portId", "portDesc", "systemName", "systemDesc", "mgmtAddress"):
                self.assertLessEqual(len(row[field].encode()), 255, row)
        self.join()
        self.assertEqual(processes, {row["name"]: row["starts"] for row in self.plane()["processes"]})
        self.leave()
        self.assertEqual(before, self.rig.running_config())
        self.assertFalse(self.rig.control("counters")["unknownCommands"])
        self.net.move(wall, 4)


class PlainTest(LiveTest):
    """The switch alone, without daemon and profiles; hosts that send whatever frames they like."""

    HOSTS = (("desk", 1), ("media", 3), ("wall", 4))

    @classmethod
    def setUpClass(cls):
        cls.rig = LabRig(os.environ["PAVO_BUILD"], os.environ["PAVO_LAB"], PORTS, scale=SCALE)
        cls.net = Network(PORTS, cls.rig.program("frames"), cls.rig.path("tmp"))
        cls.devices = standard_devices(cls.net)
        cls.addClassCleanup(cls.close_plain)
        for name, port in cls.HOSTS:
            cls.net.plug(cls.devices[name], port)
        cls.rig.start_switch(*cls.switch_options)
        cls.rig.wait_for(lambda: cls.rig.rows("ports", name="0/4", link=True), LIMIT, "the ports have links")

    @classmethod
    def close_plain(cls):
        status = cls.rig.stop("vswitchd")
        output = cls.rig.output("vswitchd")
        cls.rig.stop_all()
        cls.net.close()
        for word in ("Sanitizer", "runtime error"):
            if word in output:
                raise AssertionError(f"vswitchd (status {status}):\n{output}")

    def setUp(self):
        self.saved = self.rig.running_config()
        self.configured()

    def configured(self):
        self.see("the configuration is on the wire", lambda: (self.plane() or {}).get("settled"))

    def on(self, port, *lines):
        self.rig.cli("configure", f"interface 0/{port}", *lines)

    def received(self, sender, frames, *receivers):
        """What each of the receivers gets of frames (bytes) that `sender` sends, as bytes with their tags."""
        sockets = {name: RawReceiver(name) for name in receivers}
        try:
            self.net.send_raw(self.devices[sender], frames)
            time.sleep(0.3)
            return {name: [frame for frame in raw.frames() if frame[12:].find(MARK) >= 0 or frame[:6] == BPDU]
                    for name, raw in sockets.items()}
        finally:
            for raw in sockets.values():
                raw.close()


MARK = b"pavo bridge test"
BPDU = bytes.fromhex("0180c2000000")


def ethernet(to, source, *headers, payload=MARK):
    """A frame: addresses, then tags and EtherType as hexadecimal digits, padded to the shortest length."""
    frame = bytes.fromhex((to + source).replace(":", "") + "".join(headers)) + payload
    return frame.ljust(60, b"\0")


class RawReceiver:
    """All frames that arrive at a device from now on, tags included."""

    AUXDATA, VALID, TPID_VALID = 8, 1 << 4, 1 << 6

    def __init__(self, name, ifname="eth0"):
        here = os.open("/proc/self/ns/net", os.O_RDONLY)
        there = os.open(f"/run/netns/{name}", os.O_RDONLY)
        libc = ctypes.CDLL(None, use_errno=True)
        try:
            if libc.setns(there, 0x40000000) != 0:
                raise OSError(ctypes.get_errno(), "setns")
            try:
                self.socket = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, 0)
                self.socket.setsockopt(263, self.AUXDATA, 1)  # SOL_PACKET, PACKET_AUXDATA
                self.socket.setsockopt(263, 23, 1)  # PACKET_IGNORE_OUTGOING
                self.socket.bind((ifname, 3))  # ETH_P_ALL
            finally:
                libc.setns(here, 0x40000000)
        finally:
            os.close(here)
            os.close(there)
        self.socket.setblocking(False)

    def frames(self):
        found = []
        while True:
            try:
                frame, extra, _, _ = self.socket.recvmsg(16384, 256)
            except BlockingIOError:
                return found
            for level, kind, data in extra:
                if (level, kind) == (263, self.AUXDATA):
                    status, _, _, _, _, tci, tpid = struct.unpack("IIIHHHH", data[:20])
                    if status & self.VALID:  # the kernel has taken the tag out
                        tpid = tpid if status & self.TPID_VALID else 0x8100
                        frame = frame[:12] + struct.pack("!HH", tpid, tci) + frame[12:]
            found.append(frame)

    def close(self):
        self.socket.close()


class BridgeTest(PlainTest):
    """The switch forwards what a bridge forwards, and nothing else."""

    def test_a_port_taken_out_of_its_pvid_brings_nothing_into_it(self):
        wall, desk = self.devices["wall"], self.devices["desk"]
        stray = "02:00:00:00:aa:01"
        plain, prioritised = ethernet(BROADCAST, stray, "88b5"), ethernet(BROADCAST, stray, "8100a000", "88b5")
        self.assertEqual([2, 2], [len(got) for got in self.received("media", [plain, prioritised], "wall", "desk").values()])
        self.see("the sender is learned", lambda: self.rig.rows("fdb", mac=stray.upper()))
        self.addCleanup(self.on, 3, "vlan participation include 1")
        self.on(3, "vlan participation exclude 1")
        self.configured()
        self.see("the sender is forgotten", lambda: not self.rig.rows("fdb", mac=stray.upper()))
        self.assertEqual({"wall": [], "desk": []}, self.received("media", [plain, prioritised], "wall", "desk"))
        time.sleep(1)
        self.assertFalse(self.rig.rows("fdb", mac=stray.upper()))
        self.on(3, "vlan participation include 1")
        self.configured()
        self.assertTrue(self.net.ping(wall, desk))

    def test_an_address_moves_with_its_first_frame(self):
        """Also right behind the last one by the old port, and back; what is sent to it goes there only."""
        roamer = "02:00:00:00:aa:02"
        media, wall = self.devices["media"], self.devices["wall"]
        to_roamer = [ethernet(roamer, self.devices["desk"].mac, "88b5")]
        for here, there in ((media, wall), (wall, media)) * 3:
            self.net.send(here, to=BROADCAST, flow=self.net.new_flow(), source=roamer, rate=2000, count=1000)
            self.net.send_raw(there, [ethernet(BROADCAST, roamer, "88b5")])
            time.sleep(0.1)
            got = self.received("desk", to_roamer, here.name, there.name)
            self.assertEqual({here.name: 0, there.name: 1}, {name: len(frames) for name, frames in got.items()})
        # It stays there.
        time.sleep(1.5)
        got = self.received("desk", to_roamer, "media", "wall")
        self.assertEqual({"media": 1, "wall": 0}, {name: len(frames) for name, frames in got.items()})
        self.see("the switch knows, too", lambda: self.rig.rows("fdb", mac=roamer.upper(), interface="0/3"))

    def test_tags_keep_what_they_carry(self):
        self.addCleanup(self.undo_vlan_20)
        self.rig.cli("vlan database", "vlan 20")
        for port in (3, 4):
            self.on(port, "vlan participation include 20", "vlan pvid 20", "vlan participation exclude 1")
        self.on(1, "vlan participation include 20", "vlan tagging 20")
        self.configured()
        media, desk = self.devices["media"].mac, self.devices["desk"].mac
        # A kernel that takes no program for the ports: the switch says so, and does without.
        marked = "802.1ad tags and drop-eligible bits" not in self.rig.system_log()
        # Tags of a frame from media, those at desk, which is tagged, and those at wall, which is not.
        cases = [("", "81000014", ""), ("8100a000", "8100a014", ""), ("8100e000", "8100e014", ""),
                 ("88a8c01e", "8100001488a8c01e", "88a8c01e"), ("8100e00088a8001e", "8100e01488a8001e", "88a8001e")]
        for sent, at_desk, at_wall in cases:
            if "88a8" in sent and not marked:
                continue
            got = self.received("media", [ethernet(BROADCAST, media, sent, "88b5")], "desk", "wall")
            for name, tags in (("desk", at_desk), ("wall", at_wall)):
                expected = ethernet(BROADCAST, media, tags, "88b5").rstrip(b"\0")
                self.assertEqual([expected.hex()], [frame.rstrip(b"\0").hex() for frame in got[name]], (sent, name))
        # From one tagged port to another all of the tag comes through, the drop-eligible bit included.
        self.on(4, "vlan tagging 20")
        self.configured()
        for tci in ("0014", "a014", "1014", "f014") if marked else ("0014", "a014"):
            got = self.received("desk", [ethernet(BROADCAST, desk, "8100" + tci, "88b5")], "wall", "media")
            self.assertEqual(["8100" + tci], [frame[12:16].hex() for frame in got["wall"]])
            self.assertEqual(["88b5"], [frame[12:14].hex() for frame in got["media"]], tci)
        # A VLAN ID that no frame may carry.
        got = self.received("desk", [ethernet(BROADCAST, desk, "81000fff", "81000014", "88b5")], "wall", "media")
        self.assertEqual({"wall": [], "media": []}, got)

    def undo_vlan_20(self):
        self.on(1, "no vlan tagging 20", "vlan participation auto 20")
        for port in (3, 4):
            self.on(port, "no vlan tagging 20", "vlan participation auto 20", "no vlan pvid", "vlan participation include 1")
        self.rig.cli("vlan database", "no vlan 20")
        self.configured()
        self.assertEqual(self.saved, self.rig.running_config())

    def test_what_no_bridge_forwards(self):
        desk = self.devices["desk"].mac
        cases = [("00:00:00:00:00:00", BROADCAST, 0), ("01:00:5e:00:00:07", BROADCAST, 0), (desk, BROADCAST, 1),
                 (desk, "01:80:c2:00:00:00", 1), (desk, "01:00:0c:cc:cc:cd", 1)]
        cases += [(desk, f"01:80:c2:00:00:{n:02x}", 0) for n in range(1, 16)]
        for source, to, copies in cases:
            got = self.received("desk", [ethernet(to, source, "88b5")], "media", "wall")
            self.assertEqual([copies, copies], [len(frames) for frames in got.values()], (source, to))
        time.sleep(1)
        for mac in ("00:00:00:00:00:00", "01:00:5E:00:00:07"):
            self.assertFalse(self.rig.rows("fdb", mac=mac))

    def test_spanning_tree_of_others_crosses(self):
        bpdu = ethernet("01:80:c2:00:00:00", "02:00:00:00:aa:05", "0026", payload=bytes.fromhex(
            "424203000000000080000200000000aa0000000080000200000000aa80010000140002000f00"))
        got = self.received("media", [bpdu], "wall", "desk")
        self.assertEqual([[bpdu]] * 2, list(got.values()))


class MulticastTest(PlainTest):
    """IGMP of the hosts' own kernels, in VLAN 1: who gets a group's frames, and for how long."""

    GROUP, OTHER = "239.5.5.5", "239.5.5.6"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for n, port in ((41, 6), (42, 7)):
            cls.net.plug(Host(cls.net, f"guest{port}", n, f"02:00:00:00:01:{n}"), port)
        cls.rig.cli("vlan database", "set igmp 1", "set igmp fast-leave 1", "set igmp drop-unknown 1")

    def setUp(self):
        self.members = []
        super().setUp()

    def tearDown(self):
        for member in self.members:
            self.net.end(member)
        self.see("nobody is subscribed", lambda: not self.groups())

    def join(self, name, *groups, version=2, ifname="eth0"):
        member = self.net.join(self.devices[name], *groups, version=version, ifname=ifname)
        self.members.append(member)
        return member

    def leave(self, member):
        self.members.remove(member)
        self.net.end(member)

    def groups(self):
        return [line for line in self.rig.cli("show igmpsnooping group").splitlines() if "239." in line]

    def hearers(self, sender, group, *, count=20):
        """Who receives a group's frames, and how many copies of each."""
        flow = self.net.new_flow()
        listeners = [(name, self.net.listen(device, ifname, flow, idle_ms=500, group=group))
                     for name, device in self.devices.items() if device is not self.devices[sender]
                     for ifname in device.interfaces()]
        done = self.net.send_group(self.devices[sender], group, flow, count=count, rate=500)
        done.popen.wait(LIMIT)
        self.net.end(done)
        heard = {}
        for name, listener in listeners:
            if received := listener.result()["received"]:
                heard[name] = heard.get(name, 0) + received
        return {name: received / count for name, received in heard.items()}

    def heard_by(self, sender, group, *names):
        heard = {}

        def holds():
            heard.clear()
            heard.update(self.hearers(sender, group))
            return heard == {name: 1 for name in names}
        try:
            self.rig.wait_for(holds, 15, "the right ones hear the group")
        except Failure as failure:
            raise AssertionError(f"{group} of {sender}: heard by {heard}, not by {names}; {self.groups()}") from failure

    def test_join_and_leave(self):
        for version in (2, 3):
            self.heard_by("desk", self.GROUP)
            first = self.join("media", self.GROUP, version=version)
            self.heard_by("desk", self.GROUP, "media")
            second = self.join("wall", self.GROUP, self.OTHER, version=version)
            self.heard_by("desk", self.GROUP, "media", "wall")
            self.heard_by("media", self.OTHER, "wall")
            self.heard_by("media", self.GROUP, "wall")  # the sender gets nothing back
            self.leave(first)
            self.heard_by("desk", self.GROUP, "wall")
            self.leave(second)
            self.heard_by("desk", self.GROUP)
        # What is for everybody on the link is not for IGMP.
        self.heard_by("desk", "224.0.0.251", "media", "wall", "guest6", "guest7")

    def test_unknown_groups_as_configured(self):
        self.heard_by("desk", self.GROUP)
        self.rig.cli("vlan database", "no set igmp drop-unknown 1")
        self.heard_by("desk", self.GROUP, "media", "wall", "guest6", "guest7")
        member = self.join("wall", self.GROUP)
        self.heard_by("desk", self.GROUP, "wall")
        self.leave(member)
        self.rig.cli("vlan database", "no set igmp 1")
        self.heard_by("desk", self.GROUP, "media", "wall", "guest6", "guest7")
        self.rig.cli("vlan database", "set igmp 1", "set igmp drop-unknown 1")
        self.heard_by("desk", self.GROUP)

    def test_reports_go_to_routers_only(self):
        def reports(*names):
            captures = {name: self.net.capture(name, "eth0", "-Q", "in", "igmp and host " + self.devices["media"].address)
                        for name in ("desk", "wall")}

            def reported():
                self.leave(self.join("media", self.GROUP))
                return all(int((captures[name].statistics() or "0")[0]) for name in names)

            with captures["desk"], captures["wall"]:
                self.rig.wait_for(reported, 15, f"{names} hear the reports")
                time.sleep(0.5)
            self.assertEqual(set(names), {name for name, seen in captures.items() if seen.packets()})

        reports()
        self.on(1, "ip igmp snooping mrouter interface")
        self.configured()
        reports("desk")
        # A router gets every group.
        self.heard_by("wall", self.GROUP, "desk")
        self.rig.cli("vlan database", "set igmp flood-report 1")
        self.configured()
        reports("desk", "wall")
        self.rig.cli("vlan database", "no set igmp flood-report 1")
        self.on(1, "no ip igmp snooping mrouter interface")
        self.heard_by("wall", self.GROUP)

    def test_querier_and_ageing(self):
        """Subscribers that answer stay, one that is silent goes."""
        self.rig.cli("configure", "ip igmp snooping querier query-interval 10", "exit", "vlan database",
                     "set igmp groupmembership-interval 1 40", "set igmp maxresponse 1 5")
        with self.net.capture("wall", "eth0", "-v", "igmp") as seen:
            self.join("wall", self.GROUP)
            silent = ethernet("01:00:5e:05:05:06", self.devices["media"].mac, "0800", payload=igmp2(
                0x16, self.devices["media"].address, self.OTHER))
            self.net.send_raw(self.devices["media"], [silent])
            self.heard_by("desk", self.OTHER, "media")
            time.sleep(60 / SCALE)
            self.heard_by("desk", self.OTHER)
            self.heard_by("desk", self.GROUP, "wall")
        queries = [line for line in seen.text() if "igmp query" in line]
        self.assertGreater(len(queries), 3)
        self.assertIn("0.0.0.0 > 224.0.0.1", queries[0])
        self.rig.cli("configure", "no ip igmp snooping querier query-interval", "exit", "vlan database",
                     "no set igmp groupmembership-interval 1", "no set igmp maxresponse 1")

    def test_a_subscriber_moves(self):
        guest = self.devices["guest6"]
        member = self.join("guest6", self.GROUP)
        self.heard_by("desk", self.GROUP, "guest6")
        self.net.move(guest, 8)
        self.heard_by("desk", self.GROUP)  # until it reports again, as the kernel does when a link comes up
        self.leave(member)
        self.join("guest6", self.GROUP)
        self.heard_by("desk", self.GROUP, "guest6")
        # With the old port as it is: a host behind another switch.
        self.net.send_raw(self.devices["wall"], [ethernet("01:00:5e:05:05:05", guest.mac, "0800", payload=igmp2(
            0x16, guest.address, self.GROUP))])
        self.heard_by("desk", self.GROUP, "wall")
        self.leave(self.members[-1])
        self.net.send_raw(self.devices["wall"], [ethernet("01:00:5e:00:00:02", guest.mac, "0800", payload=igmp2(
            0x17, guest.address, self.GROUP, to="224.0.0.2"))])
        self.net.move(guest, 6)

    def test_deny_list_in_both_directions(self):
        self.join("media", self.GROUP, self.OTHER)
        self.heard_by("desk", self.GROUP, "media")
        self.rig.cli("configure", "ip access-list NET-BLOCK", f"deny ip any {self.GROUP} 0.0.0.0", "permit ip any any")
        for direction in ("in", "out"):
            self.on(3, f"ip access-group NET-BLOCK {direction} 1")
        self.heard_by("desk", self.GROUP)
        self.heard_by("desk", self.OTHER, "media")
        self.join("wall", self.GROUP, self.OTHER)
        self.heard_by("media", self.GROUP)
        self.heard_by("media", self.OTHER, "wall")
        self.heard_by("desk", self.GROUP, "wall")
        for direction in ("in", "out"):
            self.on(3, f"no ip access-group NET-BLOCK {direction}")
        self.rig.cli("configure", "no ip access-list NET-BLOCK")
        self.heard_by("media", self.GROUP, "wall")

    def test_a_lag_gets_one_copy(self):
        ubex = self.devices["ubex"]
        for port, name in ((11, "eth0"), (12, "eth1")):
            self.on(port, "addport lag 1")
            self.net.plug(ubex, port, name)
        self.join("ubex", self.GROUP)
        self.join("wall", self.GROUP)
        self.heard_by("desk", self.GROUP, "ubex", "wall")
        # What comes in on one member does not go out on the other.
        self.heard_by("ubex", self.GROUP, "wall")
        for member in list(self.members):
            self.leave(member)
        for port, name in ((11, "eth0"), (12, "eth1")):
            self.net.unplug(ubex, name)
            self.on(port, "deleteport lag 1")

    def test_restart_of_open_vswitch(self):
        self.join("media", self.GROUP)
        self.heard_by("desk", self.GROUP, "media")
        flow, old = self.net.new_flow(), self.pid("ovs-vswitchd")
        bystander = self.net.listen(self.devices["wall"], "eth0", flow, seconds=LIMIT, group=self.GROUP)
        sender = self.net.send_group(self.devices["desk"], self.GROUP, flow, rate=1000)
        os.kill(old, signal.SIGKILL)
        self.see("it is back", lambda: (self.plane() or {}).get("settled") and self.pid("ovs-vswitchd") not in (0, old))
        self.heard_by("desk", self.GROUP, "media")
        self.net.end(sender)
        self.assertEqual(0, bystander.stop()["received"])


def igmp2(kind, source, group, to=None):
    """An IGMP version 2 message in its IPv4 packet."""
    def checksum(data):
        total = sum(struct.unpack(f"!{len(data) // 2}H", data))
        total = (total & 0xffff) + (total >> 16)
        return ~(total + (total >> 16)) & 0xffff
    igmp = struct.pack("!BBH4s", kind, 0, 0, socket.inet_aton(group))
    igmp = igmp[:2] + struct.pack("!H", checksum(igmp)) + igmp[4:]
    head = struct.pack("!BBHIBBH4s4s4s", 0x46, 0, 32, 0, 1, 2, 0, socket.inet_aton(source),
                       socket.inet_aton(to or group), b"\x94\x04\0\0")
    return head[:10] + struct.pack("!H", checksum(head)) + head[12:] + igmp


if __name__ == "__main__":
    unittest.main(verbosity=2)
