#!/usr/bin/env python3
"""Faults and hostile traffic on a live data plane: real interfaces, real frames. Runs inside lab/enclose.sh.

PAVO_BUILD names the build folder. Reachability through a whole story is tested by lab/lab.py itself.
"""

import collections
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
sys.path[:0] = [os.path.join(TREE, "lab"), os.path.join(TREE, "tests", "support")]

import lldp_frames  # noqa: E402
from rig_case import assert_sound  # noqa: E402
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
    """One network for all tests of a class; each leaves it as it found it, but for devices that have joined."""

    switch_options = ()
    profile = PROFILE  # None for the switch alone, without daemon and profiles

    @classmethod
    def setUpClass(cls):
        cls.rig = LabRig(os.environ["PAVO_BUILD"], os.environ["PAVO_LAB"], PORTS, scale=SCALE)
        cls.addClassCleanup(assert_sound, cls.rig)
        cls.net = Network(PORTS, cls.rig.program("frames"), cls.rig.path("tmp"))
        cls.addClassCleanup(cls.net.close)
        cls.addClassCleanup(cls.rig.stop_all)
        cls.devices = standard_devices(cls.net)
        for name, port in (("desk", 1), ("media", 3), ("wall", 4)):
            cls.net.plug(cls.devices[name], port)
        cls.rig.start_switch(*cls.switch_options)
        cls.see("the ports have links", lambda: cls.rig.rows("ports", name="0/4", link=True))
        if cls.profile:
            cls.rig.start_daemon()
            cls.rig.pavoctl(*cls.profile)

    @classmethod
    def see(cls, what, condition):
        return cls.rig.wait_for(condition, LIMIT, what)

    def on(self, port, *lines):
        self.rig.cli("configure", f"interface 0/{port}", *lines)

    def configured(self):
        self.see("the configuration is on the wire", lambda: (self.plane() or {}).get("settled"))

    def associated(self):
        return {row["mac"] for row in self.rig.table("associations") if row["vlan"] == 20}

    def reach(self, source, target, expected=True):
        self.see(f"{source} reaches {target}: {expected}",
                 lambda: self.net.ping(self.devices[source], self.devices[target]) == expected)

    def join(self, port=5):
        self.net.plug(self.devices["control"], port)
        self.see("both audio devices are bound", lambda: self.associated() == {LEFT, RIGHT})
        self.reach("media", "stage-left")

    def plane(self):
        """State of the data plane, None while the switch does not answer."""
        return self.rig.try_control({"op": "dataplane"})

    def pid(self, name):
        return next(row["pid"] for row in self.plane()["processes"] if row["name"] == name)


class RecoveryTest(LiveTest):
    """For tests that disturb something under 1,000 frames a second; everything is as before afterwards."""

    def flows(self):
        """The flows that are watched, sender and receiver; more than one interface of the receiver is one LAG."""
        return [("media", "stage-left")]

    def lags(self):
        return [{key: row[key] for key in ("name", "members", "static", "pvid", "tagged")}
                for row in self.rig.table("lags")]

    def lasting(self):
        """What must not change, None while the switch does not answer."""
        try:
            return self.rig.running_config(), self.associated(), self.lags()
        except Failure:
            return None

    def listen(self, receiver, flow, seconds):
        device = self.devices[receiver]
        return [self.net.listen(device, name, flow, seconds=seconds) for name in device.interfaces()]

    def arrives(self, receiver, flow):
        return any([probe.result()["received"] for probe in self.listen(receiver, flow, 0.2)])

    def recovers(self, what, disturb, back):
        """Until `back` holds and everything is configured as before, nothing else is seen. Returns the frames that each
        of the flows lost."""
        before = self.lasting()
        self.assertEqual({LEFT, RIGHT}, before[1])
        running = []
        for sender, receiver in self.flows():
            flow = self.net.new_flow()
            listeners = self.listen(receiver, flow, 10 * LIMIT)
            running.append((receiver, flow, listeners, self.net.start_sending(
                self.devices[sender], to=self.devices[receiver].mac, flow=flow, rate=1000)))

        def holds():
            now = self.lasting()
            self.assertIn(now, (None, before), what)
            return now and self.plane() is not None and back()

        try:
            for receiver, flow, _, _ in running:
                self.see(f"{what}: undisturbed frames", lambda: self.arrives(receiver, flow))
            disturb()
            self.see(f"{what}: back", holds)
            self.configured()
            for receiver, flow, _, _ in running:
                self.see(f"{what}: frames to {receiver}", lambda: self.arrives(receiver, flow))
            self.assertEqual(before, self.lasting(), what)
        finally:
            for _, _, _, sender in running:
                self.net.end(sender)
            results = [[listener.stop() for listener in listeners] for _, _, listeners, _ in running]
        lost = []
        for heard in results:
            heard = [result for result in heard if result["received"]]
            self.assertEqual(1, len(heard), (what, results))  # of a LAG's members one
            self.assertFalse(heard[0]["duplicates"], what)
            # What the listener was too slow for has been forwarded.
            lost.append(max(0, heard[0]["missing"] - heard[0]["dropped"]))
        return lost


class FaultTest(RecoveryTest):
    """Whatever the switch runs on ends or hangs, traffic, configuration and associations come back by themselves."""

    def test_everything_recovers(self):
        self.join()
        control = self.devices["control"]
        for name, how, word in (("ovs-vswitchd", signal.SIGKILL, "killed"), ("ovsdb-server", signal.SIGKILL, "killed"),
                                ("lldpd", signal.SIGKILL, "killed"), ("ovs-vswitchd", signal.SIGSTOP, "hung"),
                                ("lldpd", signal.SIGSTOP, "hung")):
            old = self.pid(name)
            self.recovers(f"{name} {word}", lambda: os.killpg(old, how) if how == signal.SIGSTOP else os.kill(old, how),
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

    def test_a_change_costs_no_frame_of_other_flows(self):
        media, wall = self.devices["media"], self.devices["wall"]
        self.reach("media", "wall")
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
            self.configured()
        self.net.end(sender)
        result = listener.result()
        self.assertGreater(self.plane()["flowChanges"], before + 100)
        self.assertEqual(json.loads(sender.text())["sent"], result["received"], result)
        self.assertEqual((0, 0), (result["duplicates"], result["reordered"]), result)

    def test_filters_and_shutdown(self):
        """What no story shows: accepted frame types, the deny list, a port that is shut down."""
        media, wall, desk = (self.devices[name] for name in ("media", "wall", "desk"))

        def hear(sender, *names, **options):
            self.see(f"{sender.name} is heard by {names} {options}",
                     lambda: set(self.net.hearers(sender, [media, wall, desk], **options)) == set(names))

        saved = self.rig.running_config()
        # A frame with the tag of a VLAN that the port is not in goes nowhere; in it, it goes to the others.
        hear(desk, vlan=20)
        self.on(1, "vlan participation include 20", "vlan tagging 20")
        hear(desk, "media", "wall", vlan=20)
        self.on(1, "vlan acceptframe admituntaggedonly")
        hear(desk, vlan=20)
        self.on(1, "vlan acceptframe all", "no vlan tagging 20", "vlan participation auto 20")
        self.on(3, "vlan acceptframe vlanonly")
        hear(media)
        self.on(3, "no vlan acceptframe")

        # The deny list, in either direction; what it does not name passes.
        self.rig.cli("configure", "ip access-list NET-BLOCK", f"deny ip any {wall.address} 0.0.0.0", "permit ip any any")
        for port, direction in ((3, "in"), (4, "out")):
            self.reach("media", "wall")
            self.on(port, f"ip access-group NET-BLOCK {direction} 1")
            self.reach("media", "wall", False)
            self.on(port, f"no ip access-group NET-BLOCK {direction}")
        self.rig.cli("configure", "no ip access-list NET-BLOCK")

        self.on(4, "mtu 9018")
        self.see("the frame size is on the wire",
                 lambda: json.loads(ip(SWITCH, "-j", "link", "show", "p4").stdout)[0]["mtu"] == 9000)
        self.on(4, "mtu 1500")  # as the profile has it
        self.reach("media", "wall")
        self.on(4, "shutdown")
        self.see("no link", lambda: self.rig.rows("ports", name="0/4", link=False, admin=False))
        self.reach("media", "wall", False)
        self.on(4, "no shutdown")
        self.reach("media", "wall")
        # An interface that is another one of the same name: the port goes on with it.
        self.net.unplug(wall)
        ip(SWITCH, "link", "delete", "p4")
        self.see("no link", lambda: self.rig.rows("ports", name="0/4", link=False))
        self.net.make_port(4)
        self.net.plug(wall, 4)
        self.reach("media", "wall")
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
        self.see("both uplinks are in one LAG", lambda: any(
            sorted(row["members"]) == [11, 12] and row["pvid"] == 30 and row["tagged"] == [286] for row in self.lags()))
        self.reach("wall", "ubex")
        # The second uplink is in the LAG a moment before the daemon says so.
        self.see("the daemon has joined all four", lambda: self.joins() == [2, 2])
        with Keeper(self.rig) as self.keeper:
            for how in (signal.SIGTERM, signal.SIGKILL):
                # A busy machine drops frames by itself; what the daemon drops, it drops each time.
                self.assertTrue(any(self.restart(how, "pavo_detection") == [0, 0] for _ in range(4)), how)
            # The switch forwards nothing while it is away: how much that costs is up to the machine.
            for names in (["vswitchd"], ["vswitchd", "pavo_detection"]):
                self.restart(signal.SIGKILL, *names)
        self.assertEqual([2, 2], self.joins())


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
        # The address table as Open vSwitch has it, whatever the switch makes of it.
        bridge = "unix:" + self.rig.path("tmp/vswitchd.sock.dataplane/vswitch0.mgmt")
        dump = run(SWITCH, "ovs-ofctl", "-O", "OpenFlow14", "dump-flows", bridge, "table=10").stdout
        rows = [row for row in dump.splitlines() if "hard_timeout" in row]
        self.assertLessEqual(len(rows), 4096)
        self.assertLessEqual(sum("cookie=0x10000000004," in row for row in rows), 2048)
        self.move(7)
        self.net.end(flood)
        self.rig.cli("clear mac-addr-table all")
        self.see("the flood is forgotten", lambda: len(self.rig.table("fdb")) < 100)

    def move(self, port):
        """Takes the control unit to another port; the daemon follows."""
        self.net.move(self.devices["control"], port)
        self.see("the move is noticed", lambda: self.rig.rows("fdb", mac=LEFT, vlan=20, interface=f"0/{port}"))
        self.see("the daemon says so", lambda: f"change to Port 0/{port}." in self.rig.system_log())
        self.reach("media", "stage-left")

    def test_malformed_lldp(self):
        if not self.devices["control"].cables:  # the flood leaves it in port 7
            self.join(7)
        wall = self.devices["wall"]
        self.net.move(wall, 5)  # where the daemon looks at neighbours
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
                     lambda wanted=f"sound-{start}": self.rig.rows("lldp", port=5, systemName=wanted))
        for row in self.rig.table("lldp"):
            for field in ("chassisId", "portId", "portDesc", "systemName", "systemDesc", "mgmtAddress"):
                self.assertLessEqual(len(row[field].encode()), 255, row)
        self.net.move(wall, 4)
        self.move(5)
        self.assertEqual(processes, {row["name"]: row["starts"] for row in self.plane()["processes"]})
        self.assertEqual(before, self.rig.running_config())
        self.assertFalse(self.rig.control("counters")["unknownCommands"])


class PlainTest(LiveTest):
    """Hosts that send whatever frames they like."""

    profile = None

    def setUp(self):
        self.saved = self.rig.running_config()
        self.configured()

    def received(self, sender, frames, *receivers):
        """What each of the receivers gets of frames (bytes) that `sender` sends, as bytes with their tags."""
        sockets = {name: RawReceiver(name) for name in receivers}
        try:
            self.net.send_raw(self.devices[sender], frames)
            time.sleep(0.3)
            return {name: [frame for frame in raw.frames() if MARK in frame] for name, raw in sockets.items()}
        finally:
            for raw in sockets.values():
                raw.socket.close()


MARK = b"pavo bridge test"


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


class BridgeTest(PlainTest):
    """The switch forwards what a bridge forwards, and nothing else."""

    def test_a_port_taken_out_of_its_pvid_brings_nothing_into_it(self):
        stray = "02:00:00:00:aa:01"
        plain, prioritised = ethernet(BROADCAST, stray, "88b5"), ethernet(BROADCAST, stray, "8100a000", "88b5")
        got = self.received("media", [plain, prioritised], "wall", "desk")
        self.assertEqual([2, 2], [len(frames) for frames in got.values()])
        self.see("the sender is learned", lambda: self.rig.rows("fdb", mac=stray.upper()))
        self.addCleanup(self.on, 3, "vlan participation include 1")
        self.on(3, "vlan participation exclude 1")
        self.configured()
        self.see("the sender is forgotten", lambda: not self.rig.rows("fdb", mac=stray.upper()))
        self.assertEqual({"wall": [], "desk": []}, self.received("media", [plain, prioritised], "wall", "desk"))
        time.sleep(1)
        self.assertFalse(self.rig.rows("fdb", mac=stray.upper()))

    def test_an_address_moves_with_its_first_frame(self):
        """Also right behind the last one by the old port, and back; what is sent to it goes there only."""
        roamer = "02:00:00:00:aa:02"

        def only_at(name):
            got = self.received("desk", [ethernet(roamer, self.devices["desk"].mac, "88b5")], "media", "wall")
            self.assertEqual([name], [receiver for receiver, frames in got.items() for _ in frames])

        for here, there in (("media", "wall"), ("wall", "media")) * 3:
            self.net.send(self.devices[here], to=BROADCAST, flow=self.net.new_flow(), source=roamer, rate=2000,
                          count=1000)
            self.net.send_raw(self.devices[there], [ethernet(BROADCAST, roamer, "88b5")])
            time.sleep(0.1)
            only_at(there)
        time.sleep(1.5)
        only_at("media")  # it stays there
        self.see("the switch knows, too", lambda: self.rig.rows("fdb", mac=roamer.upper(), interface="0/3"))

    def tags(self, sender, cases, *receivers):
        """Frames with these tags (hexadecimal digits) are sent: the tags that each of the receivers gets, in the order
        of the cases."""
        source = self.devices[sender].mac
        got = self.received(sender, [ethernet(BROADCAST, source, tag, "88b5", payload=MARK + bytes([n + 1]))
                                     for n, tag in enumerate(cases)], *receivers)
        found = {}
        for name, frames in got.items():
            payloads = [frame[12:].rstrip(b"\0").partition(b"\x88\xb5" + MARK) for frame in frames]
            found[name] = [tag.hex() for tag, _, _ in sorted(payloads, key=lambda parts: parts[2])]
        return found

    def test_tags_keep_what_they_carry(self):
        self.addCleanup(self.undo_vlan_20)
        self.rig.cli("vlan database", "vlan 20")
        for port in (3, 4):
            self.on(port, "vlan participation include 20", "vlan pvid 20", "vlan participation exclude 1")
        self.on(1, "vlan participation include 20", "vlan tagging 20")
        self.configured()
        # A kernel that takes no program for the ports: the switch says so, and does without.
        marked = "802.1ad tags and drop-eligible bits" not in self.rig.system_log()
        # Tags of a frame from media, those at desk, which is tagged, and those at wall, which is not.
        cases = [("", "81000014", ""), ("8100a000", "8100a014", ""), ("8100e000", "8100e014", ""),
                 ("88a8c01e", "8100001488a8c01e", "88a8c01e"), ("8100e00088a8001e", "8100e01488a8001e", "88a8001e")]
        sent, at_desk, at_wall = zip(*cases[:5 if marked else 3])
        self.assertEqual({"desk": list(at_desk), "wall": list(at_wall)}, self.tags("media", sent, "desk", "wall"))
        # From one tagged port to another all of the tag comes through, the drop-eligible bit included. The last VLAN ID
        # is one that no frame may carry.
        self.on(4, "vlan tagging 20")
        self.configured()
        sent = ["81000014", "8100a014", "81001014", "8100f014"][:4 if marked else 2]
        self.assertEqual({"wall": sent, "media": [""] * len(sent)},
                         self.tags("desk", [*sent, "81000fff81000014"], "wall", "media"))

    def undo_vlan_20(self):
        self.on(1, "no vlan tagging 20", "vlan participation auto 20")
        for port in (3, 4):
            self.on(port, "no vlan tagging 20", "vlan participation auto 20", "no vlan pvid", "vlan participation include 1")
        self.rig.cli("vlan database", "no vlan 20")
        self.configured()
        self.assertEqual(self.saved, self.rig.running_config())

    def test_what_a_bridge_forwards_and_what_not(self):
        """Others' spanning tree crosses."""
        desk = self.devices["desk"].mac
        cases = [("00:00:00:00:00:00", BROADCAST, 0), ("01:00:5e:00:00:07", BROADCAST, 0), (desk, BROADCAST, 1),
                 (desk, "01:80:c2:00:00:00", 1), (desk, "01:00:0c:cc:cc:cd", 1)]
        cases += [(desk, f"01:80:c2:00:00:{n:02x}", 0) for n in range(1, 16)]
        sent = [ethernet(to, source, "88b5") for source, to, _ in cases]
        bpdu = ethernet("01:80:c2:00:00:00", desk, "0026", payload=bytes.fromhex(
            "424203000000000080000200000000aa0000000080000200000000aa80010000140002000f00") + MARK)
        expected = sorted([bpdu] + [frame for frame, (_, _, copies) in zip(sent, cases) if copies])
        for name, frames in self.received("desk", [*sent, bpdu], "media", "wall").items():
            self.assertEqual(expected, sorted(frames), name)
        time.sleep(1)
        for mac in ("00:00:00:00:00:00", "01:00:5E:00:00:07"):
            self.assertFalse(self.rig.rows("fdb", mac=mac))


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
        for member in list(self.members):
            self.leave(member)
        self.see("nobody is subscribed", lambda: "239." not in self.rig.cli("show igmpsnooping group"))

    def join(self, name, *groups, version=2):
        self.members.append(self.net.join(self.devices[name], *groups, version=version, ifname="eth0"))
        return self.members[-1]

    def leave(self, member):
        self.members.remove(member)
        self.net.end(member)

    def igmp(self, *words):
        self.rig.cli("vlan database", *words)
        self.configured()

    def hearers(self, sender, group, *, count=20):
        """Who receives a group's frames, and how many copies of each."""
        flow = self.net.new_flow()
        listeners = [(name, self.net.listen(device, ifname, flow, seconds=LIMIT, group=group))
                     for name, device in self.devices.items() if device is not self.devices[sender]
                     for ifname in device.interfaces()]
        done = self.net.send_group(self.devices[sender], group, flow, count=count, rate=500)
        done.popen.wait(LIMIT)
        self.net.end(done)
        time.sleep(0.2)  # for what is still under way
        heard = collections.Counter()
        for name, listener in listeners:
            heard[name] += listener.stop()["received"]
        return {name: received / count for name, received in heard.items() if received}

    def heard_by(self, sender, group, *names):
        """Soon: not only when subscriptions age."""
        self.rig.wait_for(lambda: self.hearers(sender, group) == {name: 1 for name in names}, 15,
                          f"{group} of {sender} is heard by {names} only")

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
        everybody = ("media", "wall", "guest6", "guest7")
        self.heard_by("desk", self.GROUP)
        self.igmp("no set igmp drop-unknown 1")
        self.heard_by("desk", self.GROUP, *everybody)
        member = self.join("wall", self.GROUP)
        self.heard_by("desk", self.GROUP, "wall")
        self.leave(member)
        self.igmp("no set igmp 1")
        self.heard_by("desk", self.GROUP, *everybody)
        self.igmp("set igmp 1", "set igmp drop-unknown 1")
        self.heard_by("desk", self.GROUP)

    def test_reports_go_to_routers_only(self):
        def reports(*names):
            captures = {name: self.net.capture(name, "eth0", "-Q", "in", "igmp and host " + self.devices["media"].address)
                        for name in ("desk", "wall")}

            def subscribed():
                return bool(self.rig.rows("igmp", group=self.GROUP))

            def reported():
                # A leave right behind the join could overtake the report in the host's kernel.
                self.rig.wait_for(lambda: not subscribed(), LIMIT, "nobody has joined")
                member = self.join("media", self.GROUP)
                self.rig.wait_for(subscribed, LIMIT, "the report has been heard")
                self.leave(member)
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
        self.igmp("set igmp flood-report 1")
        reports("desk", "wall")
        self.igmp("no set igmp flood-report 1")
        self.on(1, "no ip igmp snooping mrouter interface")
        self.heard_by("wall", self.GROUP)

    def test_querier_and_ageing(self):
        """Subscribers that answer stay, one that is silent goes."""
        self.rig.cli("configure", "ip igmp snooping querier query-interval 10", "exit", "vlan database",
                     "set igmp groupmembership-interval 1 40", "set igmp maxresponse 1 5")
        with self.net.capture("wall", "eth0", "-v", "igmp") as seen:
            self.join("wall", self.GROUP)
            self.send_igmp("media", "media", 0x16, self.OTHER)
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

        def behind_wall():
            # Once more each time: the guest's kernel repeats its own report after a while.
            self.send_igmp("wall", "guest6", 0x16, self.GROUP)
            return self.hearers("desk", self.GROUP) == {"wall": 1}

        self.see("the group follows its subscriber to wall", behind_wall)
        self.leave(self.members[-1])
        self.send_igmp("wall", "guest6", 0x17, self.GROUP, to="224.0.0.2")
        self.net.move(guest, 6)

    def test_deny_list_in_both_directions(self):
        self.join("media", self.GROUP, self.OTHER)
        self.heard_by("desk", self.GROUP, "media")
        self.rig.cli("configure", "ip access-list NET-BLOCK", f"deny ip any {self.GROUP} 0.0.0.0", "permit ip any any")
        self.on(3, *(f"ip access-group NET-BLOCK {direction} 1" for direction in ("in", "out")))
        self.heard_by("desk", self.GROUP)
        self.heard_by("desk", self.OTHER, "media")
        self.join("wall", self.GROUP, self.OTHER)
        self.heard_by("media", self.GROUP)
        self.heard_by("media", self.OTHER, "wall")
        self.heard_by("desk", self.GROUP, "wall")
        self.on(3, *(f"no ip access-group NET-BLOCK {direction}" for direction in ("in", "out")))
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

    def send_igmp(self, sender, host, kind, group, to=None):
        """Sends an IGMP version 2 message as if from another host."""
        def checksum(data):
            total = sum(struct.unpack(f"!{len(data) // 2}H", data))
            total = (total & 0xffff) + (total >> 16)
            return struct.pack("!H", ~(total + (total >> 16)) & 0xffff)
        source, target = self.devices[host], socket.inet_aton(to or group)
        igmp = struct.pack("!BBH4s", kind, 0, 0, socket.inet_aton(group))
        head = struct.pack("!BBHIBBH4s4s4s", 0x46, 0, 32, 0, 1, 2, 0, socket.inet_aton(source.address), target,
                           b"\x94\x04\0\0")
        packet = head[:10] + checksum(head) + head[12:] + igmp[:2] + checksum(igmp) + igmp[4:]
        mac = (b"\x01\0\x5e" + bytes([target[1] & 0x7f]) + target[2:]).hex()
        self.net.send_raw(self.devices[sender], [ethernet(mac, source.mac, "0800", payload=packet)])


class Dot1xTest(PlainTest):
    """A port in mode auto forwards after a real exchange: hostapd on one side, wpa_supplicant on the other."""

    PORT = 4  # of the device that authenticates
    REFUSED, CLOSED = "Authentication failed on port 0/4", "Port 0/4 is unauthorized"

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.wall = cls.devices["wall"]
        cls.wall.start_lldp("eth0", description="Shure microphone")
        cls.rig.cli("configure", "aaa ias-user username shure password secret", "interface 0/1-0/3",
                    "dot1x port-control force-authorized", "exit", "dot1x system-auth-control")
        cls.supplicant = None

    def authorized(self):
        return self.rig.rows("ports", name=f"0/{self.PORT}")[0]["authorized"]

    def setUp(self):
        super().setUp()
        self.silence()
        self.on(self.PORT, "dot1x port-control force-authorized", "dot1x port-control auto")

    def said(self, text):
        return self.rig.system_log().count(text)

    def silence(self):
        if self.supplicant:
            self.net.end(self.supplicant)
        type(self).supplicant = None

    def supplicate(self, password, user="shure"):
        self.silence()
        type(self).supplicant = self.wall.start_supplicant(user, password)

    def successes(self):
        return self.supplicant.text().count("CTRL-EVENT-EAP-SUCCESS")

    def expect(self, authorized):
        self.see(f"authorized: {authorized}", lambda: self.authorized() == authorized)
        self.configured()
        self.reach("desk", "wall", authorized)

    def authenticate(self):
        self.supplicate("secret")
        self.expect(True)

    def crosses(self, sender, receiver):
        broadcast = ethernet(BROADCAST, self.devices[sender].mac, "88b5")
        return bool(self.received(sender, [broadcast], receiver)[receiver])

    def heard(self):
        return self.rig.rows("lldp", port=self.PORT)

    def test_passwords(self):
        self.expect(False)
        self.assertFalse(self.crosses("desk", "wall") or self.crosses("wall", "desk"))
        self.assertFalse([row for row in self.rig.table("fdb") if row["mac"].lower() == self.wall.mac])
        self.see("an unauthorized neighbour is seen", self.heard)
        for password, user in (("wrong", "shure"), ("secret", "x\nflags=[AUTHORIZED]\ndot1xAuthSessionUserName=shure")):
            before = self.said(self.REFUSED)
            self.setUp()
            self.supplicate(password, user)
            self.see("the refusal is in the log", lambda: self.said(self.REFUSED) > before)  # pylint: disable=cell-var-from-loop
            self.expect(False)
        self.authenticate()
        self.assertTrue(self.crosses("desk", "wall") and self.crosses("wall", "desk"))
        self.assertRegex(self.rig.cli("show dot1x clients"),
                         f"(?i)0/{self.PORT} +{self.wall.mac} +[0-9]+ +shure")
        # A password that changes: who does not know the new one is out, and in again with the old one.
        failures = self.said(self.REFUSED)
        self.rig.cli("configure", "aaa ias-user username shure password other")
        self.expect(False)
        self.assertGreater(self.said(self.REFUSED), failures)
        self.rig.cli("configure", "aaa ias-user username shure password secret")
        self.authenticate()
        # EAPOL to somebody's own address is for the switch, too.
        frame = ethernet(self.devices["desk"].mac, self.wall.mac, "888e0201")
        self.assertEqual([], self.received("wall", [frame], "desk")["desk"])

    def test_link_and_mode(self):
        self.authenticate()
        self.on(self.PORT, "dot1x port-control force-unauthorized")
        self.expect(False)
        self.see("a neighbour that may not do anything is seen", self.heard)
        self.on(self.PORT, "dot1x port-control force-authorized")
        self.expect(True)
        before = self.successes()
        self.on(self.PORT, "dot1x port-control auto")
        self.expect(True)
        self.assertGreater(self.successes(), before, "authenticated once more")
        self.net.pull(self.PORT)
        self.see("the link counts", lambda: not self.authorized())
        self.silence()
        self.net.reinsert(self.PORT)
        self.see("the port has link", lambda: self.rig.rows("ports", name=f"0/{self.PORT}", link=True))
        self.expect(False)
        self.authenticate()

    def test_restarts(self):
        self.authenticate()
        refusals = self.said(self.CLOSED)
        for name, how in (("ovs-vswitchd", signal.SIGKILL), ("hostapd", signal.SIGKILL), ("hostapd", signal.SIGSTOP)):
            before, old = self.successes(), self.pid(name)
            os.kill(old, how)
            self.see(f"{name} is back", lambda: self.plane() and self.pid(name) not in (0, old))
            if name == "hostapd":
                self.see("the device is asked again", lambda: self.successes() > before)
            self.expect(True)
        self.assertEqual(refusals, self.said(self.CLOSED))
        before = self.successes()
        self.rig.stop("vswitchd", signal.SIGKILL)
        self.rig.restart("vswitchd")
        self.see("the switch answers", self.plane)
        self.expect(True)
        self.assertGreater(self.successes(), before, "nobody is authorized without an exchange")

    def test_radius(self):
        ip(SWITCH, "link", "set", "lo", "up")
        paths = {name: self.rig.path(f"tmp/radius.{name}") for name in ("conf", "clients", "users")}
        for name, text in (("users", '"shure" MD5 "secret"\n'), ("clients", "127.0.0.1 sesame\n"), ("conf", (
                "driver=none\neap_server=1\nradius_server_auth_port=1812\n"
                f"eap_user_file={paths['users']}\nradius_server_clients={paths['clients']}\n"))):
            with open(paths[name], "w", encoding="ascii") as file:
                file.write(text)
        server = self.net.spawn(SWITCH, "radius", "hostapd", paths["conf"])
        self.rig.cli("configure", "aaa authentication dot1x default radius", "radius server host auth 127.0.0.1",
                     "radius server key auth 127.0.0.1 sesame")
        self.authenticate()
        self.supplicate("wrong")
        self.expect(False)
        self.net.end(server)
        self.supplicate("secret")
        self.expect(False)
        self.rig.cli("configure", "no radius server host auth 127.0.0.1", "no aaa authentication dot1x default")
        self.authenticate()


if __name__ == "__main__":
    unittest.main(verbosity=2)
