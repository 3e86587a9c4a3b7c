#!/usr/bin/env python3
"""Measures pavo on real frames: joins, forwarding beside Open vSwitch alone, and pushes of configuration.

Nothing timed is judged, but the run fails when something does not happen at all. Inside lab/enclose.sh only:
usage: lab/enclose.sh BUILD python3 -B bench/live.py --build BUILD [--real]
"""

import argparse
import contextlib
import json
import os
import re
import signal
import sys
import threading
import time
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from statistics import median

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "lab"))

from topology import SWITCH, ControlUnit, Failure, Host, LabRig, Network, ip, run, standard_devices  # noqa: E402

PORTS, PLAIN_PORTS = 12, range(49, 61)  # of the switch for joins and forwarding, of Open vSwitch alone
PUSH_PORTS, VLANS, ASSOCIATIONS = 48, range(100, 200), 700
SCALE, SCAN = 10, 15  # the switch's clock, and its seconds between two scans of the daemon
JOINS, JOINS_REAL, ROUNDS, CHANGES = 8, 5, 3, 5  # repetitions
GROUP = "239.77.1.1"
RATES = (1000, 10000)  # frames per second of which none is to be lost
LIMIT = 60  # real seconds that any one event may take
VARIANTS = NORMAL, _, SCANNING, APPLYING = "Open vSwitch, NORMAL", "pavo idle", "pavo scanning", "pavo applying"
AUDIO = ["profile", "apply", "--name", "House", "--type", "AUDAC Audio and Control Network",
         "--vlan", "10 type=2 untagged=1,5,7", "--vlan", "20 type=3 untagged=3,4 assigned=5,7"]
OTHER = ["profile", "apply", "--name", "Projection", "--type", "AVoIP Lightware AV network",
         "--vlan", "30 type=1 untagged=9-12", "--vlan", "286 type=2"]


@contextlib.contextmanager
def switch(net, folder, ports, scale, *arguments):
    rig = LabRig(net.build, os.path.join(net.folder, folder), ports, scale=scale)
    try:
        rig.start_switch(*arguments)
        yield rig
        rig.check_alive()
    finally:
        rig.stop_all()


def start_daemon(rig):
    """Starts the daemon and sees it scan; there is a profile."""
    def scans():
        return rig.control("counters")["calls"].get("rpcclt_openapiCliShowExecuteToFile", 0)
    before = scans()
    rig.start_daemon()
    rig.wait_for(lambda: scans() > before, LIMIT, "the daemon scans")


def settled(rig, begin, what, condition=lambda status: status["flows"]):
    """Waits until all is in force and the condition holds of the data plane's status, which is returned."""
    status = {}

    def holds():
        status.update(rig.control("dataplane"))
        return status["settled"] and condition(status)
    rig.wait_for(holds, LIMIT, what)
    return dict(status, seconds=time.monotonic() - begin)


def change(rig, command, *arguments):
    before, begin = rig.control("dataplane")["flowChanges"], time.monotonic()
    command(*arguments)
    return settled(rig, begin, " ".join(arguments), lambda status: status["flowChanges"] > before)


# --- joins


def joins(rig, net, count):
    """Scan periods from a control unit's first LLDP frame to the first answer to an audio device behind it:
    one that nobody knows, and each time at another phase of the daemon's scan."""
    control, left, media = (net.devices[name] for name in ("control", "stage-left", "media"))
    period, periods = SCAN / rig.scale, []
    rig.pavoctl(*AUDIO)
    for n in range(count):
        if control.cables:
            net.unplug(control)
        rig.wait_for(lambda: not rig.rows("lldp", systemName="control"), LIMIT, "the switch forgets the unit")
        # Switch and daemon would let the devices leave after 20 scans; this is the same at once.
        rig.stop("pavo_detection")
        rig.cli("vlan database", *(f"no vlan association mac {device.mac}" for device in control.behind))
        start_daemon(rig)
        time.sleep(period * n / count)
        port = (5, 7)[n % 2]
        with net.capture(SWITCH, f"p{port}", "-Q", "in", "ether proto 0x88cc") as seen:
            net.plug(control, port)
            # Asks for the address at every ping; by default it would wait a second.
            net.set_kernel(left.name, "50", "ipv4/neigh/eth0/retrans_time_ms")
            ping = net.spawn(left.name, "ping", "ping", "-n", "-D", "-i", "0.05", media.address)
            ping.await_text("bytes from", LIMIT)
            net.end(ping)
        heard = float(run(None, "tcpdump", "-tt", "-n", "-r", seen.file).stdout.split()[0])
        answered = float(re.search(r"^\[([\d.]+)\] \d+ bytes from", ping.text(), re.MULTILINE).group(1))
        if answered <= heard:
            raise Failure("stage-left was answered before its control unit was heard")
        periods.append((answered - heard) / period)
    rig.stop("pavo_detection")
    return f"clock {rig.scale} times real time", f"{median(periods):.2f}", f"{max(periods):.2f}", count


# --- forwarding


def start_plain(net):
    """Open vSwitch as it comes, in a namespace of its own, where its one flow is NORMAL."""
    net.add_namespace("plain")
    folder = os.path.join(net.folder, "plain")
    os.mkdir(folder)
    database, socket, rundir = f"{folder}/conf.db", f"unix:{folder}/db.sock", ("env", f"OVS_RUNDIR={folder}")
    options = "--no-chdir", "-vconsole:warn", "-vfile:off", "-vsyslog:off"
    run(None, "ovsdb-tool", "create", database, "/usr/share/openvswitch/vswitch.ovsschema")
    net.spawn("plain", "plain-db", *rundir, "ovsdb-server", database, f"--remote=p{socket}", *options)
    words = ["add-br", "plain0", "--", "set", "Bridge", "plain0", "datapath_type=netdev"]
    for port in PLAIN_PORTS:
        ip(SWITCH, "link", "set", f"p{port}", "netns", "plain", "up")
        words += ["--", "add-port", "plain0", f"p{port}"]
    run(None, "ovs-vsctl", f"--db={socket}", "--retry", "--timeout=10", "--no-wait", *words)
    net.spawn("plain", "plain-switch", *rundir, "ovs-vswitchd", socket, *options)
    unit = ControlUnit(net, "plain-control", 31, "00:1b:92:01:00:31")
    unit.add_audio_device("plain-stage-left", 32, "00:1b:92:02:00:32")
    hosts = [Host(net, f"plain-{name}", n, f"02:00:00:00:01:{n}") for n, name in ((33, "media"), (34, "wall"))]
    for device, port in zip((unit, *hosts), PLAIN_PORTS):
        net.plug(device, port)


def send(net, source, targets, rate, seconds):
    """Sends to all targets at once, `rate` frames per second in all; what each of them has received."""
    for target in targets:
        # Its address is learned then, and not about to be forgotten.
        if not net.ping(source, target, tries=20):
            raise Failure(f"{source.name} does not reach {target.name}")
    flows = [(target, net.new_flow()) for target in targets]
    listeners = [net.listen(target, "eth0", flow, seconds=LIMIT) for target, flow in flows]
    senders = [net.start_sending(source, to=target.mac, flow=flow, rate=rate / len(targets), seconds=seconds)
               for target, flow in flows]
    for sender in senders:
        sender.popen.wait(LIMIT)
    time.sleep(0.3)  # for what is under way
    results = [listener.stop() for listener in listeners]
    for result, sender, target in zip(results, senders, targets):
        if net.end(sender) != 0 or not result["received"]:
            raise Failure(f"nothing of {source.name} has reached {target.name}: {sender.text()}")
        result["sent"] = json.loads(sender.text())["sent"]
        # What the listener was too slow for has been forwarded.
        result["lost"] = result["sent"] - result["received"] + result["duplicates"] - result["dropped"]
    return results


@contextlib.contextmanager
def doing(rig, variant, times):
    """What pavo does meanwhile; `times` gets the seconds until another profile is in force, or gone."""
    over = threading.Event()

    def apply():
        while not over.is_set():
            times.append(change(rig, rig.pavoctl, *OTHER)["seconds"])
            times.append(change(rig, rig.pavoctl, "profile", "delete", "Projection")["seconds"])

    with contextlib.ExitStack() as stack:
        if variant == NORMAL:  # has the machine to itself
            rig.children["vswitchd"].send_signal(signal.SIGSTOP)
            stack.callback(rig.children["vswitchd"].send_signal, signal.SIGCONT)
        if variant in (SCANNING, APPLYING):
            start_daemon(rig)
            stack.callback(rig.stop, "pavo_detection")
        if variant == APPLYING:
            applied = stack.enter_context(ThreadPoolExecutor()).submit(apply)
            stack.callback(over.set)
        yield
    if variant == APPLYING:
        applied.result()  # or its failure
    rig.check_alive()


def forwarding(rig, net):
    """(variant, rate, target) -> results; rate 0: as fast as possible. And the seconds of profile changes."""
    results, times = defaultdict(list), []
    for variant in VARIANTS * ROUNDS:
        prefix = "plain-" if variant == NORMAL else ""
        source, *targets = (net.devices[prefix + name] for name in ("media", "wall", "stage-left"))
        with doing(rig, variant, times):
            for n, target in enumerate(targets):
                results[variant, 0, n] += send(net, source, [target], 0, 1)
            for rate in RATES:
                for n, result in enumerate(send(net, source, targets, rate, 1)):
                    results[variant, rate, n].append(result)
    return results, times


# --- multicast


def stream(net, source, subscriber, bystander, **options):
    """Sends to the group; what the subscriber and the bystander have received of it."""
    flow = net.new_flow()
    listeners = [net.listen(device, "eth0", flow, seconds=LIMIT, group=GROUP) for device in (subscriber, bystander)]
    sender = net.send_group(source, GROUP, flow, **options)
    sender.popen.wait(LIMIT)
    time.sleep(0.3)  # for what is under way
    results = [listener.stop() for listener in listeners]
    net.end(sender)
    if not results[0]["received"]:
        raise Failure(f"nothing of the group has reached {subscriber.name}")
    return results


def captured(seen, pattern, which):
    """The time of the first (0) or the last (-1) captured frame whose line has that."""
    lines = [line for line in run(None, "tcpdump", "-tt", "-n", "-r", seen.file).stdout.splitlines()
             if re.search(pattern, line)]
    if not lines:
        raise Failure(f"no {pattern} has been captured")
    return float(lines[which].split()[0])


def multicast(rig, net):
    """Frames per second to one subscriber, frames at a bystander, and the seconds of joins and of leaves."""
    media, wall, other = (net.devices[name] for name in ("media", "wall", "stage-left"))
    vlan = next(row["pvid"] for row in rig.rows("ports") if row["ifNum"] == 4)  # of the profile that is applied
    words = [f"set igmp {setting}{vlan}" for setting in ("", "fast-leave ", "drop-unknown ")]
    rig.cli("vlan database", *words)
    joined, left = [], []
    for _ in range(CHANGES):
        flow = net.new_flow()
        sender = net.send_group(media, GROUP, flow, rate=1000)
        with net.capture(wall.name, "eth0", "igmp or udp") as seen:
            member = net.join(wall, GROUP, version=2)
            time.sleep(1)
            net.end(member)
            time.sleep(1)
        net.end(sender)
        joined.append(captured(seen, "UDP", 0) - captured(seen, "v2 report", 0))
        left.append(max(0.0, captured(seen, "UDP", -1) - captured(seen, "leave", 0)))
    member = net.join(wall, GROUP, version=2)
    time.sleep(1)
    speeds = [stream(net, media, wall, other, seconds=1) for _ in range(ROUNDS)]
    net.end(member)
    rig.cli("vlan database", *(f"no {line}" for line in reversed(words)))
    return max(subscriber["framesPerSecond"] for subscriber, _ in speeds), \
        sum(bystander["received"] for _, bystander in speeds), joined, left


def cpu_share(rig, seconds=4):
    """CPU seconds per second of the switch and all that it has started."""
    def ticks():
        switch, found = rig.children["vswitchd"].pid, {}
        for name in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError), open(f"/proc/{name}/stat", "rb") as file:
                _, parent, _, session, *fields = file.read().rpartition(b")")[2].split()
                # The processor time of its own, and of children that have ended.
                found[int(name)] = int(parent), int(session), sum(map(int, fields[7:11]))
        # The servers that it has started have sessions of their own.
        sessions = {switch, *(pid for pid, (parent, _, _) in found.items() if parent == switch)}
        return sum(ticks for _, session, ticks in found.values() if session in sessions)
    before, begin = ticks(), time.monotonic()
    time.sleep(seconds)
    return (ticks() - before) / os.sysconf("SC_CLK_TCK") / (time.monotonic() - begin)


# --- pushes


def mac(n):
    return f"02:00:00:01:{n >> 8:02X}:{n & 255:02X}"


def configuration():
    every = f"{VLANS[0]}-{VLANS[-1]}"
    lines = ["vlan database", f"vlan {every}"]
    lines += [f"vlan association mac {mac(n)} {VLANS[n % len(VLANS)]}" for n in range(ASSOCIATIONS)]
    lines += ["exit", "configure"]
    for port in range(1, PUSH_PORTS + 1):
        lines += [f"interface 0/{port}", f"vlan participation include {every}", f"vlan tagging {every}",
                  f"vlan pvid {VLANS[port % len(VLANS)]}", "exit"]
    return "\n".join(lines)


def pushes(net):
    """What was done, and the statuses after it, one for each time."""
    startup = os.path.join(net.folder, "startup")
    for what, text in (("start, no configuration", ""), ("start", configuration())):
        with open(startup, "w", encoding="ascii") as file:
            file.write(text + "\n")
        begin = time.monotonic()
        with switch(net, f"push{len(text)}", PUSH_PORTS, SCALE, "--config", startup) as rig:
            status = settled(rig, begin, "the switch has started")
            yield what, [status]
            counters = rig.control("counters")
            if counters["unknownCommands"] or counters["refusedCommands"]:
                raise Failure(f"the switch has refused some of its configuration: {counters}")
            if not text:
                continue

            old, begin = next(row for row in status["processes"] if row["name"] == "ovs-vswitchd"), time.monotonic()
            os.kill(old["pid"], signal.SIGKILL)
            yield "ovs-vswitchd killed", [settled(rig, begin, "everything is back", lambda status: any(
                row["name"] == old["name"] and row["starts"] > old["starts"] for row in status["processes"]))]
            single = [change(rig, rig.cli, "vlan database", f"vlan association mac {mac(ASSOCIATIONS + n)} {VLANS[n]}")
                      for n in range(CHANGES)]
            if any(status["lastFlowChanges"] != 1 for status in single):
                raise Failure(f"one association has not changed one flow: {single}")
            yield "one more association", single
            yield "one port leaves one VLAN", [
                change(rig, rig.cli, "configure", f"interface 0/{n + 1}", f"vlan participation exclude {VLANS[n]}")
                for n in range(CHANGES)]


# --- tables


def table(title, columns, rows):
    print(f"\n{title:<34}" + "".join(f"{column:>14}" for column in columns), flush=True)
    for name, *cells in rows:
        print(f"  {name:<32}" + "".join(f"{cell:>14}" for cell in cells), flush=True)


def forwarded(results):
    for n, target in enumerate(("wall", "stage-left")):
        for variant in VARIANTS:
            speed, normal = (max(result["framesPerSecond"] for result in results[name, 0, n])
                             for name in (variant, NORMAL))
            lost, sent = ({rate: sum(result[key] for result in results[variant, rate, n]) for rate in (0, *RATES)}
                          for key in ("lost", "sent"))
            steady = [result for rate in RATES for result in results[variant, rate, n]]
            yield (f"{target}, {variant}", f"{speed:,.0f}", f"{speed / normal:.2f}", f"{lost[0] / sent[0]:.0%}",
                   *(f"{lost[rate]}/{sent[rate]}" for rate in RATES),
                   sum(result["duplicates"] for result in steady), f"{max(r['longestGapMs'] for r in steady):.0f}")


def pushed(rows):
    start = None
    for what, statuses in rows:
        ms, seconds = (median(status[key] for status in statuses) for key in ("lastPushMs", "seconds"))
        start = ms if what == "start" else start
        yield (what, statuses[-1]["flows"], statuses[-1]["lastFlowChanges"], f"{ms:.1f}",
               f"{ms / start:.3f}" if start else "", f"{seconds:.2f}")


def main():
    parser = argparse.ArgumentParser(description="Measures pavo on real frames.")
    parser.add_argument("--build", required=True, help="build folder with the programs")
    parser.add_argument("--real", action="store_true", help="joins on a clock in real time, too")
    arguments = parser.parse_args()
    net = Network(PLAIN_PORTS[-1], os.path.join(arguments.build, "lab", "frames"), os.environ["PAVO_LAB"])
    net.build = arguments.build
    standard_devices(net)
    for name, port in (("media", 3), ("wall", 4)):
        net.plug(net.devices[name], port)

    columns = "median", "worst", "joins"
    if arguments.real:
        with switch(net, "real", PORTS, 1) as rig:
            table("Join, in scan periods of 15 s", columns, [joins(rig, net, JOINS_REAL)])
        net.unplug(net.devices["control"])
    with switch(net, "live", PORTS, SCALE) as rig:
        table("Join, in scan periods of 15 s", columns, [joins(rig, net, JOINS)])
        print(f"\nSwitch idle, {PORTS} ports: {cpu_share(rig):.3f} CPU seconds per second, its children included")
        start_plain(net)
        results, times = forwarding(rig, net)
        speed, strays, joined, left = multicast(rig, net)
    table("64-byte frames of media to", ["best full/s", "of NORMAL", "lost", *(f"lost {rate:,}/s" for rate in RATES),
                                         "twice", "gap ms"], forwarded(results))
    print(f"  {len(times)} times a profile was applied or deleted and in force after {median(times):.2f} s (median)")
    normal = max(result["framesPerSecond"] for result in results[NORMAL, 0, 0])
    table("64-byte frames to a group", ["best full/s", "of NORMAL", "at others", "join ms", "leave ms"],
          [("one subscriber", f"{speed:,.0f}", f"{speed / normal:.2f}", strays, f"{median(joined) * 1000:.0f}",
            f"{median(left) * 1000:.0f}")])
    table(f"Pushes: {PUSH_PORTS} ports, {len(VLANS)} VLANs, {ASSOCIATIONS} MACs",
          ["flows", "changed", "push ms", "of start", "in force s"], pushed(pushes(net)))
    net.close()


if __name__ == "__main__":
    main()
