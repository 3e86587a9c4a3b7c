#!/usr/bin/env python3
"""Shows pavo on a live data plane: who reaches whom, before and after the daemon has found the devices.

Runs inside lab/enclose.sh; ./lab.sh takes care of that.
"""

import argparse
import json
import os
import shlex
import signal
import subprocess
import sys
import time

from topology import SWITCH, Failure, Host, LabRig, Network, ShureDevice, Talker, ip, run, standard_devices

TTY = sys.stdout.isatty()
PORTS = 16
AUDIO_PROFILE = ["profile", "apply", "--name", "House audio", "--type", "AUDAC Audio and Control Network",
                 "--vlan", "10 type=2 untagged=1,5,7", "--vlan", "20 type=3 untagged=3 assigned=5,7"]
VIDEO_PROFILE = ["profile", "apply", "--name", "Projection", "--type", "AVoIP Lightware AV network",
                 "--vlan", "30 type=1 untagged=11-14", "--vlan", "286 type=2"]
SHURE_PROFILE = ["profile", "apply", "--name", "Podium", "--type", "Shure Split Audio and Control Network",
                 "--vlan", "50 type=2 untagged=1,14,15 assigned=14,15", "--vlan", "60 type=3 untagged=3"]
HARMAN_PROFILE = ["profile", "apply", "--name", "Ballroom", "--type", "HARMAN Professional AV Network",
                  "--vlan", "70 type=2 untagged=1,2,4,6 assigned=2,4,6", "--vlan", "71 type=3 untagged=3,8",
                  "--vlan", "72 type=4 untagged=13"]
SETTLE = 10  # real seconds for the data plane and the devices to follow a change
AUTOMATIC, FORCED = 2, 3  # 802.1X control modes of a port
LEAVE = 20 * 15  # seconds of the switch's time until a device that is not seen is removed

PICTURE = r"""
   desk                 media                  wall               every box is a network namespace,
  10.50.0.1           10.50.0.2             10.50.0.3             every line a pair of interfaces
     |                    |                     |
 ____|p1__________________|p3___________________|p13____________________________________
|                                                                                       |
|   switch:   vswitchd  --  Open vSwitch (user-space datapath), lldpd                   |
|             pavo_detection, pavoctl                                                   |
|_____p5_ _ _ _p7____________________________________p11_______p12______________________|
      |        :                                      |         |
      |        : (moves here)                    eth0 |         | eth1
   control  10.50.0.11   00:1b:92:01:00:01          ubex  10.50.0.21   a8:d2:36:00:00:01
      |     speaks LLDP: "Audac control unit"             speaks LLDP: "UBEX-..."
      |
      +-- stage-left   10.50.0.12   00:1b:92:02:00:01      VLANs: 10 control (desk, control unit)
      +-- stage-right  10.50.0.13   00:1b:92:02:00:02             20 audio (media, audio devices)
          audio devices behind the control unit                   30 video (wall, ubex), 286 tagged
"""

HINTS = """
This is a shell inside the laboratory; leaving it ('exit') ends everything.

  on media ping -c 2 10.50.0.12              media pings stage-left across the audio VLAN
  on desk ping -c 2 -W 1 10.50.0.12          desk does not reach it
  on wall python3 -B {lab}/member.py eth0 239.1.2.3 &
                                             wall joins a multicast group (vlan database, set igmp VLAN: snooping)
  on stage-left tcpdump -e -n -i eth0        what an audio device hears
  ip -n ubex link set eth0 down              pull one of its cables (up: plug it back in)
  ip -n control link set eth0 down           the control unit and everything behind it fall silent
  on desk python3 -B {lab}/lldp_frames.py --source 02:00:00:00:01:01 'control bytes' |
      on desk frames raw --interface eth0 -  a hostile LLDP frame to port 1
  vswitchctl table ports                     also lags, vlans, associations, fdb, lldp, log
  vswitchctl cli                             the switch's command line; '?' helps
  pavoctl profile list                       also apply, show, delete; pavoctl vlan list
  tail -f {log}
"""


def paint(code, text):
    return f"\033[{code}m{text}\033[0m" if TTY else text


class Show:
    """Prints each expectation as a line and counts those that are not met."""

    def __init__(self, rig, network):
        self.rig = rig
        self.network = network
        self.devices = network.devices
        self.good = 0
        self.bad = 0

    def act(self, title, *lines):
        print(f"\n{paint('1;36', '== ' + title)}")
        for line in lines:
            print(line)
        sys.stdout.flush()

    def line(self, good, what, seen=""):
        """`seen`: what was found instead, or the evidence."""
        if good:
            self.good += 1
        else:
            self.bad += 1
        mark = paint("32", "ok    ") if good else paint("31", "FAILED")
        print(f"  {mark}  {what}" + (paint("2", f"   ({seen})") if seen else ""), flush=True)

    def pavoctl(self, *words):
        print(paint("36", "  $ pavoctl " + shlex.join(words)), flush=True)
        for line in self.rig.pavoctl(*words).stdout.rstrip().splitlines():
            print(f"    {line}")

    def wait(self, what, condition, within):
        """Waits for a condition to come true, up to `within` seconds of the switch's time."""
        try:
            waited = self.rig.wait_for(condition, within / self.rig.scale + SETTLE, what)
            self.line(True, what, f"{waited:.1f} s")
        except Failure as failure:
            self.rig.check_alive()
            self.line(False, what, failure)

    def settled(self, condition):
        """Whether the condition comes true within the time that things take to settle."""
        deadline = time.monotonic() + SETTLE
        while not condition():
            if time.monotonic() > deadline:
                return False
        return True

    def reaches(self, source, *targets):
        """Real pings, request and reply."""
        for target in targets:
            good = self.settled(lambda name=target: self.network.ping(self.devices[source], self.devices[name]))
            self.line(good, f"{source} reaches {target}", "" if good else "no reply")

    def is_apart(self, source, *targets):
        """No reply, twice in a row; a change just made may take a moment to take effect."""
        for target in targets:
            good = self.settled(lambda name=target: not self.network.ping(self.devices[source], self.devices[name],
                                                                          tries=2))
            self.line(good, f"{source} does not reach {target}", "" if good else "it replies")

    def hears(self, sender, *listeners):
        """Exactly these devices receive what `sender` broadcasts."""
        present = [device for device in self.devices.values() if device.interfaces()]
        heard = {}

        def as_expected():
            heard.clear()
            heard.update(self.network.hearers(self.devices[sender], present))
            return set(heard) == set(listeners)

        good = self.settled(as_expected)
        self.line(good, f"a broadcast from {sender} is heard by {', '.join(listeners) or 'nobody'}",
                  "" if good else f"heard by {', '.join(heard) or 'nobody'}")

    def row(self, what, table, within=0, **members):
        self.wait(what, lambda: self.rig.rows(table, **members), within)

    def no_row(self, what, table, within=0, **members):
        self.wait(what, lambda: not self.rig.rows(table, **members), within)

    def summary(self):
        text = f"{self.good} results as expected, {self.bad} not"
        print(paint("31" if self.bad else "32", text), flush=True)
        return 1 if self.bad else 0


# --- the acts


def flat(show):
    devices, network = show.devices, show.network
    show.act("A switch without profiles: everybody reaches everybody",
             "The daemon is not running yet. desk, media and wall are plugged in, the control unit into port 5.")
    for name, port in (("desk", 1), ("media", 3), ("wall", 13), ("control", 5)):
        network.plug(devices[name], port)
    show.row("port 5 has a link", "ports", name="0/5", link=True)
    show.reaches("desk", "media", "wall", "control", "stage-left")
    show.reaches("stage-left", "media", "stage-right")
    show.hears("desk", "media", "wall", "control", "stage-left", "stage-right")
    show.row("the switch hears the control unit by LLDP", "lldp", within=60, port=5, chassisId="00:1B:92:01:00:01",
             systemDesc="Audac control unit, firmware 2.4")


def profile(show):
    show.act("The audio profile is applied: everything on port 5 is in the control VLAN")
    show.pavoctl(*AUDIO_PROFILE)
    show.reaches("desk", "control", "stage-left")
    show.reaches("stage-left", "desk")
    show.is_apart("stage-left", "media")
    show.is_apart("media", "stage-left")
    show.is_apart("desk", "media", "wall")
    show.hears("stage-left", "stage-right", "desk")
    show.hears("media")


def join(show):
    show.act("The daemon starts and finds the audio devices by LLDP and the forwarding table")
    show.rig.start_daemon()
    joined_reachability(show, "0/5", within=90)
    show.wait("the switch's own log says so",
              lambda: "AUDAC Audio device Join (MAC: 00:1B:92:02:00:02) on Port 0/5." in show.rig.system_log(), 60)
    devices = show.devices
    with show.network.capture("media", "eth0", "icmp or arp") as seen:
        show.network.ping(devices["media"], devices["stage-left"], tries=3)
    lines = [line for line in seen.text() if line.startswith(devices["stage-left"].mac)]
    show.line(bool(lines) and all("vlan" not in line for line in lines), "its replies arrive at media untagged",
              lines[-1][:90] if lines else "nothing captured")


def joined_reachability(show, port, within):
    """What is true wherever the control unit is plugged in."""
    for name, mac in (("stage-left", "00:1B:92:02:00:01"), ("stage-right", "00:1B:92:02:00:02")):
        show.row(f"{name} is bound to the audio VLAN", "associations", within, mac=mac, vlan=20)
        show.row(f"its address is learned there on port {port}", "fdb", 30, mac=mac, vlan=20, interface=port)
    show.reaches("stage-left", "media")
    show.reaches("media", "stage-left", "stage-right")
    show.is_apart("stage-left", "desk")
    show.is_apart("desk", "stage-right")
    show.reaches("control", "desk")
    show.is_apart("control", "media")
    show.hears("stage-left", "stage-right", "media")
    show.hears("control", "desk")
    # The port is in both VLANs; the VLAN of a device's own frames is the one that it belongs to.
    show.hears("media", "control", "stage-left", "stage-right")
    show.hears("desk", "control", "stage-left", "stage-right")


def move(show):
    show.act("The control unit moves from port 5 to port 7, and the audio devices with it")
    show.network.move(show.devices["control"], 7)
    show.row("port 5 has no link", "ports", name="0/5", link=False)
    joined_reachability(show, "0/7", within=30)
    show.wait("the daemon has noticed",
              lambda: "AUDAC device (MAC: 00:1B:92:02:00:01) from Port 0/5 change to Port 0/7."
              in show.rig.system_log(), 60)


def endpoint(show):
    network, devices = show.network, show.devices
    ubex = devices["ubex"]
    show.act("The video profile is applied, and a Lightware endpoint is plugged in with two uplinks")
    show.pavoctl(*VIDEO_PROFILE)
    network.plug(ubex, 11, "eth0")
    network.plug(ubex, 12, "eth1")
    show.wait("both uplinks are in a LAG with VLAN 30, and VLAN 286 tagged",
              lambda: any(sorted(row["members"]) == [11, 12] and row["pvid"] == 30 and row["tagged"] == [286]
                          for row in show.rig.table("lags")), 120)
    lag = next((row["name"] for row in show.rig.table("lags") if row["members"]), "")
    show.reaches("ubex", "wall")
    show.reaches("wall", "ubex")
    show.row("its address is learned on the LAG", "fdb", 30, mac="A8:D2:36:00:00:01", vlan=30, interface=lag)
    show.is_apart("ubex", "desk", "media")

    heard = network.hearers(devices["wall"], [ubex, devices["desk"], devices["media"]], count=20)
    frames = [(result["received"], result["duplicates"]) for result in heard.get("ubex", [])]
    show.line(list(heard) == ["ubex"] and sum(n for n, _ in frames) == 20 and not any(twice for _, twice in frames),
              "20 broadcasts from wall reach ubex, each on one uplink only, and nobody else", f"received: {frames}")
    heard = network.hearers(ubex, [ubex, devices["wall"]], count=20, ifname="eth0")
    frames = [result["received"] for result in heard.get("wall", [])]
    show.line(frames == [20], "20 broadcasts from ubex reach wall once each", f"received: {frames}")

    print("  The daemon is paused meanwhile: it would remove a port that is down for two scans from the LAG.")
    daemon = show.rig.children["pavo_detection"]
    daemon.send_signal(signal.SIGSTOP)
    try:
        pull_each(show)
    finally:
        daemon.send_signal(signal.SIGCONT)
    show.wait("the LAG is complete after the daemon's next scan",
              lambda: any(sorted(row["members"]) == [11, 12] and row["pvid"] == 30 for row in show.rig.table("lags")),
              120)


def pull_each(show):
    network = show.network
    for port in (11, 12):
        network.pull(port)
        show.row(f"the cable of port {port} is pulled", "ports", name=f"0/{port}", link=False)
        show.reaches("ubex", "wall")
        show.reaches("wall", "ubex")
        network.reinsert(port)
        show.row("and plugged back in", "ports", name=f"0/{port}", link=True)


GROUP = "239.77.1.1"
OTHER_GROUP = "232.77.1.1"
STREAM = 1000  # frames per second


def stream_table(show, *listeners):
    """Prints the head of a table; returns what prints a row of it."""
    network = show.network
    show.settled(lambda: show.rig.control("dataplane")["settled"])
    print("  " + " " * 44 + "".join(f"{device.name:>12}" for device in listeners), flush=True)

    def row(what, *expected, group=GROUP):
        """Who receives how much of media's stream; the devices named, all of it, and the others nothing."""
        counts = {}

        def as_expected():
            flow = network.new_flow()
            ears = {device.name: network.listen(device, "eth0", flow, seconds=SETTLE, group=group)
                    for device in listeners}
            stream = network.send_group(show.devices["media"], group, flow, rate=STREAM, seconds=0.5)
            stream.popen.wait(SETTLE)
            time.sleep(0.2)
            sent = json.loads(stream.text())["sent"]
            network.end(stream)
            for name, ear in ears.items():
                counts[name] = ear.stop()["received"]
            return all(count == (sent if name in expected else 0) for name, count in counts.items())
        good = show.settled(as_expected)
        show.line(good, f"{what:<36}" + "".join(f"{counts[device.name] * 2:>12,}" for device in listeners))
    return row


def multicast(show):
    network, devices = show.network, show.devices
    show.act("A stream to a multicast group: 1,000 frames/s of media, first for everybody, then for those that join",
             "The audio profile has switched snooping on (igmp-plus 20); it is off at first.",
             "guest-8 and guest-9 are plugged in beside stage-left and stage-right. All join with their kernel's own",
             "IGMP: guest-8 with version 3, guest-9 with version 2.")
    guests = [devices[name] for name in ("guest-8", "guest-9", "guest-10")]
    ports = (8, 9, 10)
    for guest, port in zip(guests, ports):
        network.plug(guest, port)
        show.rig.cli("configure", f"interface 0/{port}", "vlan pvid 20", "vlan participation include 20",
                     "vlan participation exclude 1")
    row = stream_table(show, *guests, devices["desk"])
    everybody = [guest.name for guest in guests]
    before = show.rig.running_config()
    show.rig.cli("configure", "no igmp-plus 20")
    row("no snooping", *everybody)
    show.rig.cli("configure", "igmp-plus 20", "exit", "vlan database", "set igmp fast-leave 20")
    row("snooping, nobody has joined")
    members = [network.join(guest, GROUP, version=version) for guest, version in zip(guests, (3, 2))]
    row("guest-8 and guest-9 have joined", "guest-8", "guest-9")
    network.end(members.pop())
    row("guest-9 has left", "guest-8")
    show.rig.cli("configure", "ip access-list NET-BLOCK", f"deny ip any {GROUP} 0.0.0.0", "permit ip any any", "exit",
                 "interface 0/8", "ip access-group NET-BLOCK in 1", "ip access-group NET-BLOCK out 1")
    row("the group is blocked on port 8")
    show.rig.cli("configure", "interface 0/8", "no ip access-group NET-BLOCK in", "no ip access-group NET-BLOCK out",
                 "exit", "no ip access-list NET-BLOCK")
    row("and unblocked", "guest-8")
    network.end(members.pop())
    show.rig.cli("vlan database", "no set igmp fast-leave 20")
    show.line(before == show.rig.running_config(), "the switch is configured as before")
    for guest, port in zip(guests, ports):
        network.unplug(guest)
        show.rig.cli("configure", f"interface 0/{port}", "no vlan pvid", "vlan participation auto 20",
                     "vlan participation include 1")


def leave(show):
    show.act("The control unit is unplugged; twenty scans later its audio devices are removed")
    show.network.unplug(show.devices["control"])
    show.no_row("the switch no longer hears the control unit", "lldp", 60, systemName="control")
    show.no_row("port 7 has no addresses", "fdb", 60, interface="0/7")
    show.no_row("no association is left", "associations", LEAVE + 60)
    for mac in ("00:1B:92:02:00:01", "00:1B:92:02:00:02"):
        show.wait(f"the switch's log says that {mac} left",
                  lambda address=mac: f"AUDAC device Leave (Audio MAC: {address})" in show.rig.system_log(), 30)
    show.hears("media")
    show.is_apart("media", "stage-left", "control", "desk")
    show.network.plug(show.devices["control"], 5)
    show.row("plugged back in, they are found again", "associations", 120, mac="00:1B:92:02:00:01", vlan=20)
    show.reaches("stage-left", "media")


def deleted(show):
    show.act("The profiles are deleted: the network is flat again")
    show.pavoctl("profile", "delete", "House audio")
    show.pavoctl("profile", "delete", "Projection")
    show.no_row("no association is left", "associations", 60)
    show.reaches("desk", "media", "wall", "control", "stage-left", "stage-right")
    show.reaches("stage-left", "media")
    show.hears("media", "desk", "wall", "control", "stage-left", "stage-right", *flat_endpoint(show))


def shure(show):
    network, rig, mic = show.network, show.rig, show.devices["mic"]
    show.act("A Shure microphone behind 802.1X: nobody reaches it before it has authenticated",
             "One cable into port 14, two interfaces: control (mic, VLAN 50 with desk) and audio (mic-audio, VLAN 60",
             "with media). lldpd speaks LLDP, wpa_supplicant EAP. The switch checks its own users, here: podium.")
    before = rig.running_config()
    rig.cli("configure", "aaa ias-user username podium password secret", "interface 0/1-0/13",
            "dot1x port-control force-authorized", "exit", "dot1x system-auth-control")
    show.pavoctl(*SHURE_PROFILE)
    rig.log_level(7)
    network.plug(mic, 14)
    show.row("the switch hears it by LLDP", "lldp", 60, port=14, systemDesc=mic.DESCRIPTION)
    show.wait("the daemon finds it, and waits", lambda: "port 14 is unauthorized, not onboard!" in rig.log(), 90)
    rig.log_level(6)
    show.is_apart("mic", "desk")
    show.is_apart("mic-audio", "media")
    show.hears("mic")
    mic.authenticate("podium", "wrong")
    show.wait("with a wrong password it is refused",
              lambda: "Authentication failed on port 0/14" in rig.system_log(), 60)
    show.is_apart("mic", "desk")
    network.unplug(mic)
    mic.authenticate("podium", "secret")
    network.plug(mic, 14)
    show.row("plugged in with the right one it is authorised, and its port forced", "ports", 90, name="0/14",
             authorized=True, dot1x=FORCED)
    print("".join(f"    {line}\n" for line in rig.cli("show dot1x summary").splitlines()
                  if line.startswith(("Port ", "0/13 ", "0/14 ", "0/15 "))), end="", flush=True)
    shure_reachability(show, "0/14")

    print("  The user is removed from the switch, as when an authentication server is gone:", flush=True)
    rig.cli("configure", "no aaa ias-user username podium")
    show.reaches("mic", "desk")
    show.reaches("media", "mic-audio")
    rig.cli("configure", "aaa ias-user username podium password secret")
    network.move(mic, 15)
    show.row("it moves to port 15, which is forced", "ports", 90, name="0/15", authorized=True, dot1x=FORCED)
    shure_reachability(show, "0/15")
    network.plug(show.devices["guest-9"], 14)
    show.row("port 14 is in automatic mode again", "ports", 60, name="0/14", authorized=False, dot1x=AUTOMATIC)
    show.is_apart("guest-9", "desk", "media")
    network.unplug(show.devices["guest-9"])
    network.unplug(mic)
    show.row("unplugged, it leaves port 15 in automatic mode", "ports", 60, name="0/15", dot1x=AUTOMATIC)

    show.pavoctl("profile", "delete", "Podium")
    show.no_row("no association is left", "associations", 60)
    rig.cli("configure", "no dot1x system-auth-control", "interface 0/1-0/13", "no dot1x port-control", "exit",
            "no aaa ias-user username podium")
    show.line(before == rig.running_config(), "the switch is configured as before")


def shure_reachability(show, port):
    """What is true wherever the microphone is plugged in."""
    show.row("its audio interface is in VLAN 60", "fdb", 60, mac=show.devices["mic-audio"].mac.upper(), vlan=60,
             interface=port)
    show.reaches("media", "mic-audio")
    show.reaches("mic", "desk")
    show.is_apart("mic-audio", "desk")
    show.is_apart("mic", "media")


def harman(show):
    network, rig, devices = show.network, show.rig, show.devices
    amplifier, encoder, guest = (devices[name] for name in ("amplifier", "encoder", "guest-8"))
    show.act("Harman devices, told by the first octets of their addresses, and a multicast group that one does not get",
             "amplifier (00:0f:d4) and encoder (00:19:0b) are plugged into ports 4 and 6; neither speaks LLDP.",
             "VLANs: 70 control (desk), 71 audio (media, guest-8), 72 video (wall).")
    before = rig.running_config()
    for device, port in ((amplifier, 4), (encoder, 6), (guest, 8)):
        network.plug(device, port)
    show.reaches("amplifier", "desk", "media", "encoder")
    show.pavoctl(*HARMAN_PROFILE)
    for device, vlan, port in ((amplifier, 71, 4), (encoder, 72, 6)):
        show.row(f"{device.name} is bound to VLAN {vlan}", "associations", 120, mac=device.mac.upper(), vlan=vlan)
        show.row("its address is learned there", "fdb", 30, mac=device.mac.upper(), vlan=vlan, interface=f"0/{port}")
    show.reaches("amplifier", "media", "guest-8")
    show.is_apart("amplifier", "desk", "encoder")
    show.reaches("encoder", "wall")
    show.is_apart("encoder", "media")

    members = [network.join(device, GROUP, OTHER_GROUP) for device in (amplifier, guest)]
    row = stream_table(show, amplifier, guest)
    row("both have joined", "amplifier", "guest-8")
    show.pavoctl("multicast", "deny", GROUP)
    row("239.x.x.x is denied", "guest-8")
    row("another group", "amplifier", "guest-8", group=OTHER_GROUP)
    show.pavoctl("multicast", "mode")
    show.reaches("media", "amplifier")
    network.end(members.pop(0))
    network.move(amplifier, 2)
    members.append(network.join(amplifier, GROUP, OTHER_GROUP))
    show.wait("the amplifier moves to port 2, and NET-BLOCK with it",
              lambda: [line.split() for line in rig.pavoctl("multicast", "mode").stdout.splitlines()[1:]]
              == [["2", "blocked"]], 60)
    row("239.x.x.x is still denied", "guest-8")
    for member in members:
        network.end(member)

    show.pavoctl("profile", "delete", "Ballroom")
    show.no_row("no association is left", "associations", 60)
    show.line(before == rig.running_config(), "the switch is configured as before")
    show.reaches("amplifier", "desk", "media", "encoder")
    for device in (amplifier, encoder, guest):
        network.unplug(device)


def flat_endpoint(show):
    """The endpoint stays in its LAG when the profile goes; it hears VLAN 1 if the LAG is in it again."""
    lag = next((row for row in show.rig.table("lags") if row["members"]), None)
    return ["ubex"] if lag is None or lag["pvid"] == 1 else []


# --- start and end


def shell(show):
    """Sets everything up and leaves the user to it."""
    rig = show.rig
    print("\nThe profiles are applied once more, for you to experiment with.")
    for words in (AUDIO_PROFILE, VIDEO_PROFILE):
        show.pavoctl(*words)
    here = os.path.dirname(os.path.abspath(__file__))
    print(HINTS.format(lab=here, log=rig.path("/tmp/ketch.log")), flush=True)
    start = rig.path("tmp/bashrc")
    with open(start, "w", encoding="ascii") as file:
        file.write("PS1='(lab) \\w\\$ '\non() { ip netns exec \"$@\"; }\n")
    folders = [os.path.dirname(rig.program(name)) for name in ("vswitchctl", "pavoctl", "pavo_detection", "frames")]
    env = dict(rig.env, PATH=":".join([*folders, os.environ["PATH"]]), BASH_ENV=start)
    subprocess.run(["bash", "--rcfile", start], env=env, check=False)


def play(show):
    for act in (flat, profile, join, move, endpoint, multicast, leave, deleted, shure, harman):
        act(show)
        show.rig.check_alive()
    counters = show.rig.control("counters")
    show.line(not counters["unknownCommands"], f"the switch knew every command in {counters['total']} calls",
              f"{counters['unknownCommands']} unknown" if counters["unknownCommands"] else "")


def failed(rig, failure):
    print(paint("31", f"FAILED: {failure}"))
    for title, text in (("the daemon's log", rig.log()), ("the switch's output", rig.output("vswitchd"))):
        print(f"The end of {title}:\n  " + "\n  ".join(text.splitlines()[-15:]))


def main():
    parser = argparse.ArgumentParser(description="Shows pavo on a live data plane.")
    parser.add_argument("--build", required=True, help="build folder with the programs")
    parser.add_argument("--scale", type=int, default=10, help="how many times faster than real time the clocks run")
    parser.add_argument("--keep", action="store_true", help="open a shell in the laboratory afterwards")
    arguments = parser.parse_args()
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda got, _: sys.exit(128 + got))

    started = time.monotonic()
    print(PICTURE, flush=True)
    rig = LabRig(arguments.build, os.environ["PAVO_LAB"], PORTS, scale=arguments.scale)
    network = Network(PORTS, rig.program("frames"), rig.path("tmp"))
    standard_devices(network)
    for port in (8, 9, 10):
        Host(network, f"guest-{port}", 50 + port, f"02:00:00:00:02:{port:02}")
    mic = ShureDevice(network, "mic", 31, "00:0e:dd:01:00:01")
    mic.add_audio_device("mic-audio", 32, "00:0e:dd:02:00:01")
    Talker(network, "amplifier", 33, "00:0f:d4:00:00:01")
    Talker(network, "encoder", 34, "00:19:0b:00:00:01")
    show = Show(rig, network)
    status = 1
    try:
        rig.start_switch()
        play(show)
        status = show.summary()
        print(f"It took {time.monotonic() - started:.0f} s; the clocks ran {rig.scale} times as fast.")
        if arguments.keep:
            shell(show)
    except (Failure, OSError, subprocess.SubprocessError) as failure:
        failed(rig, failure)
    finally:
        rig.stop_all()
        network.close()
    return status


if __name__ == "__main__":
    sys.exit(main())
