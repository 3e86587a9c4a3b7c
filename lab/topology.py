"""The network around the switch: namespaces as devices, veth pairs as cables, programs that run in them.

Works only inside lab/enclose.sh, which gives it a /run/netns and processes of its own; what is made here needs no
cleaning up. Everybody has an address in one subnet, so VLANs alone decide who reaches whom.
"""

import json
import os
import re
import signal
import subprocess
import sys
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "demo"))

from rig import Failure, Rig  # noqa: E402

SWITCH, SHELF = "switch", "shelf"
BROADCAST = "ff:ff:ff:ff:ff:ff"
SUBNET = "10.50.0."
CHATTER_FLOW = 0xFFFFFFFF  # the flow of talking devices; nobody counts it
LLDP_FOLDER = "/run/lldpd"
COMMAND_LIMIT = 60  # seconds that a program run for its output may take


def run(namespace, *command, check=True, text_in=None, limit=COMMAND_LIMIT):
    """Runs a command in a namespace (None: in this one) to its end."""
    prefix = ["ip", "netns", "exec", namespace] if namespace else []
    done = subprocess.run([*prefix, *command], input=text_in, stdin=None if text_in is not None else subprocess.DEVNULL,
                          capture_output=True, text=True, check=False, timeout=limit)
    if check and done.returncode != 0:
        raise Failure(f"{' '.join(command)} (in {namespace or 'the outer namespace'}): status {done.returncode}: "
                      f"{(done.stderr or done.stdout).strip()}")
    return done


def ip(namespace, *words, check=True):
    return run(None, "ip", *(["-n", namespace] if namespace else []), *words, check=check)


class Process:
    """A program in a namespace with its output in a file; a child of this process until stop()."""

    def __init__(self, namespace, output, *command):
        self.output = output
        with open(output, "wb") as file:
            self.popen = subprocess.Popen(["ip", "netns", "exec", namespace, *command], stdin=subprocess.DEVNULL,
                                          stdout=file, stderr=subprocess.STDOUT, start_new_session=True)

    def stop(self, how=signal.SIGTERM):
        if self.popen.poll() is None:
            self.popen.send_signal(how)
            try:
                self.popen.wait(5)
            except subprocess.TimeoutExpired:
                self.popen.kill()
                self.popen.wait()
        return self.popen.returncode

    def text(self):
        with open(self.output, encoding="utf-8", errors="replace") as file:
            return file.read()

    def await_text(self, text, seconds=10):
        """Waits until the program has printed that."""
        deadline = time.monotonic() + seconds
        while text not in self.text():
            if self.popen.poll() is not None or time.monotonic() > deadline:
                raise Failure(f"{' '.join(self.popen.args)}: did not say '{text}' but:\n{self.text()}")
            time.sleep(0.01)


# --- devices


class Device:
    """Something with a namespace of its own and network interfaces in it."""

    def __init__(self, network, name, number, mac):
        self.network = network
        self.name = name
        self.address = SUBNET + str(number)
        self.mac = mac
        self.cables = {}  # interface -> port that its cable leads to
        network.add_namespace(name)
        network.devices[name] = self

    def interfaces(self):
        return list(self.cables)

    def alias(self, ifname):
        """What the port description in LLDP is made from."""
        return ifname

    def set_addresses(self, ifname):
        """Called with the interface up, whenever a cable is plugged in or back in."""
        ip(self.name, "address", "replace", self.address + "/24", "dev", ifname)

    def plugged(self, ifname):
        """Called when a cable is plugged in and has its address."""

    def unplugging(self, ifname):
        """Called before a cable is unplugged."""

    def start_lldp(self, *interfaces, description, port_id=None):
        """A real LLDP agent; it stays on through plugging and unplugging, as the device does."""
        base = os.path.join(LLDP_FOLDER, self.name)
        with open(base + ".conf", "w", encoding="ascii") as file:
            # A second between frames: neighbours are gone four seconds after the last one.
            file.write(f"configure lldp tx-interval 1\nconfigure system hostname {self.name}\n")
            if port_id:
                file.write(f"configure lldp portidsubtype local {port_id}\n")
        names = ",".join(interfaces)
        self.lldp_socket = base + ".sock"
        return self.network.spawn(self.name, f"lldpd-{self.name}", "lldpd", "-dd", "-S", description,
                                  "-u", self.lldp_socket, "-p", base + ".pid", "-O", base + ".conf", "-I", names,
                                  "-C", names, "-m", self.address)

    def start_supplicant(self, user, password, ifname="eth0"):
        """Has the device authenticate by 802.1X, with EAP-MD5, until the process that is returned ends."""
        config = os.path.join(self.network.folder, f"supplicant-{self.name}.conf")
        with open(os.open(config, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), "w", encoding="ascii") as file:
            file.write("ap_scan=0\neapol_version=2\nnetwork={\n key_mgmt=IEEE8021X\n eap=MD5\n eapol_flags=0\n"
                       f' identity={user.encode().hex()}\n password="{password}"\n}}\n')
        return self.network.spawn(self.name, f"supplicant-{self.name}", "wpa_supplicant", "-Dwired", "-i", ifname,
                                  "-c", config)


    def start_chatter(self, ifname="eth0"):
        """AV devices announce themselves all the time, so the switch keeps their addresses."""
        return self.network.spawn(self.name, f"chatter-{self.name}", self.network.frames, "send", "--interface", ifname,
                                  "--to", BROADCAST, "--from", self.mac, "--rate", "2", "--flow", str(CHATTER_FLOW))


class Host(Device):
    """An ordinary computer."""


class Talker(Device):
    """An AV device with one interface that is known by its address alone."""

    chatter = None

    def plugged(self, ifname):
        self.chatter = self.start_chatter(ifname)

    def unplugging(self, ifname):
        self.network.end(self.chatter)


class AudioDevice(Device):
    """An audio device behind a control unit: it has no cable of its own."""

    def __init__(self, control, name, number, mac):
        super().__init__(control.network, name, number, mac)
        self.control = control
        self.chatter = None

    def interfaces(self):
        return ["eth0"] if "eth0" in self.control.cables else []

    def connect(self, through):
        ip(self.control.name, "link", "add", "link", through, "name", "eth0", "netns", self.name, "address", self.mac,
           "type", "macvlan", "mode", "bridge")
        ip(self.name, "link", "set", "eth0", "up")
        self.set_addresses("eth0")
        self.chatter = self.start_chatter()

    def disconnect(self):
        self.network.end(self.chatter)
        self.chatter = None
        ip(self.name, "link", "delete", "eth0")


class ControlUnit(Device):
    """An Audac control unit, whose pass-through port has audio devices behind it."""

    DESCRIPTION = "Audac control unit, firmware 2.4"

    def __init__(self, network, name, number, mac):
        super().__init__(network, name, number, mac)
        self.behind = []
        self.lldp = None

    def add_audio_device(self, name, number, mac):
        self.behind.append(AudioDevice(self, name, number, mac))
        return self.behind[-1]

    def port_id(self):
        """What LLDP announces as the port ID; None: what the agent makes of the interface."""

    def plugged(self, ifname):
        for device in self.behind:
            device.connect(ifname)
        if self.lldp is None:
            self.lldp = self.start_lldp("eth0", description=self.DESCRIPTION, port_id=self.port_id())

    def unplugging(self, ifname):
        for device in self.behind:
            device.disconnect()


class ShureDevice(ControlUnit):
    """A Shure device: one cable, and behind it a control and an audio interface with addresses of their own."""

    DESCRIPTION = "Shure ceiling array microphone"

    def __init__(self, network, name, number, mac):
        super().__init__(network, name, number, mac)
        self.credentials = None
        self.supplicant = None

    def port_id(self):
        return self.behind[0].mac

    def authenticate(self, user, password):
        """By 802.1X from now on, wherever it is plugged in."""
        self.credentials = user, password
        if self.cables:
            self.end_supplicant()
            self.supplicant = self.start_supplicant(user, password)

    def end_supplicant(self):
        if self.supplicant:
            self.network.end(self.supplicant)
        self.supplicant = None

    def plugged(self, ifname):
        super().plugged(ifname)
        if self.credentials:
            self.supplicant = self.start_supplicant(*self.credentials)

    def unplugging(self, ifname):
        self.end_supplicant()
        super().unplugging(ifname)


class Endpoint(Device):
    """A Lightware endpoint: two uplinks with one address, as in a link aggregation.

    There is no bonding driver here. The IP address is that of the device, and each uplink with a carrier has a route:
    answers leave by the first, whichever uplink the question came by.
    """

    DESCRIPTION = "UBEX-PRO20-HDMI-F110"
    UPLINKS = ("eth0", "eth1")

    def __init__(self, network, name, number, mac):
        super().__init__(network, name, number, mac)
        self.lldp = None
        network.set_kernel(name, "1", "ipv4/conf/default/ignore_routes_with_linkdown")
        ip(name, "link", "set", "lo", "up")
        ip(name, "address", "add", self.address + "/32", "dev", "lo")

    def alias(self, ifname):
        return str(self.UPLINKS.index(ifname) + 1)

    def set_addresses(self, ifname):
        metric = 100 * (self.UPLINKS.index(ifname) + 1)
        ip(self.name, "route", "replace", SUBNET + "0/24", "dev", ifname, "src", self.address, "metric", str(metric))

    def plugged(self, ifname):
        if self.lldp is None:
            self.lldp = self.start_lldp(*self.UPLINKS, description=self.DESCRIPTION)


# --- the network


class Network:
    """The switch's ports p1..pN in its namespace, the cables c1..cN on the shelf until they are plugged in."""

    def __init__(self, ports, frames, folder):
        if not os.environ.get("PAVO_LAB"):
            raise Failure("the network can only be created inside lab/enclose.sh")
        self.frames = frames  # the program
        self.folder = folder  # for output files and captures
        self.devices = {}
        self.processes = []
        self.flow = 0
        self.spawned = 0
        self.ports = ports
        for name in (SWITCH, SHELF):
            self.add_namespace(name)
        for n in range(1, ports + 1):
            self.make_port(n)

    def make_port(self, n):
        ip(SWITCH, "link", "add", f"p{n}", "type", "veth", "peer", "name", f"c{n}", "netns", SHELF)
        run(SWITCH, "ethtool", "-K", f"p{n}", "tx", "off")
        ip(SWITCH, "link", "set", f"p{n}", "up")

    def set_kernel(self, namespace, value, *settings):
        run(namespace, "tee", *("/proc/sys/net/" + name for name in settings), text_in=value)

    def add_namespace(self, name):
        ip(None, "netns", "add", name)
        if os.path.isdir("/proc/sys/net/ipv6"):
            # Only the intended frames.
            self.set_kernel(name, "1", "ipv6/conf/all/disable_ipv6", "ipv6/conf/default/disable_ipv6")
        # One subnet in several VLANs, and a device with two uplinks: no reverse-path filter.
        self.set_kernel(name, "0", "ipv4/conf/all/rp_filter", "ipv4/conf/default/rp_filter")

    def spawn(self, namespace, label, *command):
        self.spawned += 1
        process = Process(namespace, os.path.join(self.folder, f"{label}-{self.spawned}.out"), *command)
        self.processes.append(process)
        return process

    def end(self, process):
        self.processes.remove(process)
        return process.stop()

    def close(self):
        for process in reversed(self.processes):
            process.stop()
        self.processes.clear()

    # --- cables

    def holder(self, port):
        """Device and interface at the other end of a port's cable, or None."""
        for device in self.devices.values():
            for ifname, at in device.cables.items():
                if at == port:
                    return device, ifname
        return None

    def plug(self, device, port, ifname="eth0"):
        """Puts the port's cable into the device."""
        if self.holder(port) or ifname in device.cables:
            raise Failure(f"cannot plug {device.name} {ifname} into port {port}: in use")
        # Complete before the device sees it: its LLDP agent uses the first address as its chassis ID.
        ip(SHELF, "link", "set", f"c{port}", "address", device.mac, "alias", device.alias(ifname))
        ip(SHELF, "link", "set", f"c{port}", "netns", device.name, "name", ifname)
        run(device.name, "ethtool", "-K", ifname, "tx", "off")
        ip(device.name, "link", "set", ifname, "up")
        device.cables[ifname] = port
        device.set_addresses(ifname)
        device.plugged(ifname)

    def unplug(self, device, ifname="eth0"):
        """Takes the cable out of the device; the port's link goes down."""
        port = device.cables[ifname]
        device.unplugging(ifname)
        del device.cables[ifname]
        ip(device.name, "link", "set", ifname, "down", "netns", SHELF, "name", f"c{port}")

    def move(self, device, port, ifname="eth0"):
        self.unplug(device, ifname)
        self.plug(device, port, ifname)

    def pull(self, port):
        """Pulls the cable at the device's end: the device keeps everything but the link."""
        device, ifname = self.holder(port)
        ip(device.name, "link", "set", ifname, "down")

    def reinsert(self, port):
        device, ifname = self.holder(port)
        ip(device.name, "link", "set", ifname, "up")
        device.set_addresses(ifname)

    # --- traffic

    def forget_neighbours(self, *devices):
        for device in devices:
            ip(device.name, "neighbour", "flush", "all")

    def ping(self, source, target, tries=1):
        """Whether a reply arrives. The ARP tables are flushed first, so that the ARP request has to cross, too."""
        for _ in range(tries):
            self.forget_neighbours(source, target)
            if run(source.name, "ping", "-n", "-q", "-c", "1", "-W", "1", target.address, check=False).returncode == 0:
                return True
        return False

    def listen(self, device, ifname, flow, idle_ms=None, seconds=None, group=None):
        """Counts the frames of a flow in the background: result() waits for its end.

        It listens when this returns.
        """
        return Listener(self, device, ifname, flow, idle_ms, seconds, group)

    def join(self, device, *groups, ifname="eth0", version=None):
        """The device's kernel joins multicast groups, until the process that is returned ends."""
        if version:
            self.set_kernel(device.name, str(version), f"ipv4/conf/{ifname}/force_igmp_version")
        member = self.spawn(device.name, f"member-{device.name}", sys.executable, "-B",
                            os.path.join(HERE, "member.py"), ifname, *groups)
        member.await_text("joined")
        return member

    def send_group(self, device, group, flow, **options):
        """Sends to a multicast group in the background."""
        words = [self.frames, "send", "--interface", "eth0", "--group", group, "--address", device.address, "--from",
                 device.mac, "--flow", str(flow)]
        for name, value in options.items():
            words += ["--" + name, str(value)]
        return self.spawn(device.name, f"group-{device.name}-{flow}", *words)

    def send(self, device, *, to, flow, ifname="eth0", source=None, **options):
        """Sends with `frames send` and returns its result; options are those of that program (rate, count, ...)."""
        return json.loads(run(device.name, *self.send_command(device, to, flow, ifname, source, options),
                              limit=options.get("seconds", 0) + COMMAND_LIMIT).stdout)

    def start_sending(self, device, *, to, flow, ifname="eth0", source=None, **options):
        """The same in the background; the process prints its line of JSON when it is stopped or done."""
        return self.spawn(device.name, f"send-{device.name}-{flow}",
                          *self.send_command(device, to, flow, ifname, source, options))

    def send_command(self, device, to, flow, ifname, source, options):
        words = [self.frames, "send", "--interface", ifname, "--to", to, "--from", source or device.mac, "--flow",
                 str(flow)]
        for name, value in options.items():
            words += ["--" + name, str(value)]
        return words

    def send_raw(self, device, frames, ifname="eth0"):
        """Sends frames (bytes) unchanged."""
        lines = "".join(frame.hex() + "\n" for frame in frames)
        return json.loads(run(device.name, self.frames, "raw", "--interface", ifname, "-", text_in=lines).stdout)

    def new_flow(self):
        self.flow += 1
        return self.flow

    def hearers(self, sender, devices, count=5, to=BROADCAST, ifname="eth0", vlan=None):
        """Which of the devices receive what `sender` sends: name -> one result per interface that did."""
        flow = self.new_flow()
        listeners = [(device, self.listen(device, name, flow, idle_ms=700))
                     for device in devices if device is not sender for name in device.interfaces()]
        self.send(sender, to=to, flow=flow, ifname=ifname, count=count, rate=100, **({"vlan": vlan} if vlan else {}))
        heard = {}
        for device, listener in listeners:
            result = listener.result()
            if result["received"]:
                heard.setdefault(device.name, []).append(result)
        return heard

    def capture(self, namespace, ifname, *expression):
        """tcpdump in the background: `with net.capture("media", "eth0", "icmp") as seen: ...`."""
        return Capture(self, namespace, ifname, expression)


class Listener:
    """A running `frames receive`."""

    def __init__(self, network, device, ifname, flow, idle_ms, seconds, group=None):
        words = ["--idle", str(idle_ms)] if idle_ms else []
        words += ["--group", group] if group else []
        words += ["--seconds", str(seconds)] if seconds else []
        self.network = network
        self.process = network.spawn(device.name, f"receive-{device.name}-{ifname}-{flow}", network.frames, "receive",
                                     "--interface", ifname, "--flow", str(flow), *words)
        self.process.await_text("listening")

    def result(self, limit=COMMAND_LIMIT):
        """What it has counted; waits until it ends by itself."""
        self.process.popen.wait(limit)
        return self.stop()

    def stop(self):
        """What it has counted so far."""
        status = self.network.end(self.process)
        line = self.process.text().splitlines()[-1]
        if status != 0:
            raise Failure(f"frames receive: {line}")
        return json.loads(line)


class Capture:
    """A running tcpdump; packets() and text() once the context has ended."""

    STATISTICS = re.compile(r"(\d+) packets? captured, (\d+) packets? received by filter, \d+ packets? dropped")

    def __init__(self, network, namespace, ifname, expression):
        self.network = network
        self.where = namespace, ifname
        self.expression = expression
        self.file = os.path.join(network.folder, f"{namespace}-{ifname}-{network.new_flow()}.pcap")

    def __enter__(self):
        namespace, ifname = self.where
        self.process = self.network.spawn(namespace, f"tcpdump-{namespace}-{ifname}", "tcpdump", "-i", ifname, "-n",
                                          "-U", "-Z", "root", "--immediate-mode", "-w", self.file, *self.expression)
        self.process.await_text("listening on")
        return self

    def __exit__(self, *_):
        # Ended at once, tcpdump would lose what the kernel still holds for it: wait until it reports that this is
        # nothing, or that nothing more comes (with -Q, frames of the other direction are counted, not captured).
        deadline = time.monotonic() + 5
        last, unchanged = None, 0
        while unchanged < 5:
            counts = self.statistics()
            if counts and counts[0] == counts[1]:
                break
            unchanged = unchanged + 1 if counts and counts[0] == last else 0
            last = counts and counts[0]
            if time.monotonic() > deadline:
                raise Failure(f"tcpdump cannot keep up: {counts}")
            time.sleep(0.05)
        self.network.end(self.process)

    def statistics(self):
        """Frames captured and received so far, as tcpdump reports; None when it does not."""
        said = len(self.STATISTICS.findall(self.process.text()))
        self.process.popen.send_signal(signal.SIGUSR1)
        deadline = time.monotonic() + 1
        while time.monotonic() < deadline:
            counts = self.STATISTICS.findall(self.process.text())
            if len(counts) > said:
                return counts[-1]
            time.sleep(0.01)
        return None

    def text(self):
        """A line per frame, with Ethernet addresses and tags."""
        return run(None, "tcpdump", "-e", "-n", "-t", "-r", self.file).stdout.splitlines()

    def packets(self):
        return len(self.text())


# --- the switch's programs


class LabRig(Rig):
    """Switch and daemon in the namespace of the switch, on real interfaces."""

    def __init__(self, build, root, ports, lags=8, scale=1):
        super().__init__(build, root, scale)
        self.ports = ports
        self.lags = lags
        self.started = {}  # name -> arguments
        self.kept = set()  # names that a Keeper looks after
        self.lock = threading.RLock()

    def start(self, name, *arguments):
        with self.lock, open(self.path(f"tmp/{name}.out"), "ab") as output:
            self.started[name] = arguments
            self.children[name] = subprocess.Popen(
                ["ip", "netns", "exec", SWITCH, self.program(name), *arguments], env=self.env, stdout=output,
                stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, start_new_session=True)
            return self.children[name]

    def restart(self, name):
        return self.start(name, *self.started[name])

    def stop(self, name, how=signal.SIGTERM):
        with self.lock:
            return super().stop(name, how)

    def check_alive(self):
        with self.lock:
            for name, child in self.children.items():
                if name not in self.kept and child.poll() is not None:
                    raise Failure(f"{name} ended with status {child.returncode}:\n{self.output(name)}")

    def start_switch(self, *arguments):
        ports = ",".join(f"{n}=p{n}" for n in range(1, self.ports + 1))
        super().start_switch("--dataplane", "ovs", "--ports", str(self.ports), "--lags", str(self.lags), "--port-map",
                             ports, "--state", self.path("tmp/running-state"), *arguments)


class Keeper:
    """Restarts programs that end without being told to, as the init of a switch does."""

    POLL = 0.05
    PAUSE = 1  # minimum seconds between two starts of one program

    def __init__(self, rig, *names):
        self.rig = rig
        self.names = names or ("vswitchd", "pavo_detection")
        self.ends = []  # (name, status) of each unexpected end
        self.starts = {}
        self.over = threading.Event()
        self.thread = threading.Thread(target=self.keep, daemon=True)

    def __enter__(self):
        self.rig.kept.update(self.names)
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.over.set()
        self.thread.join()
        self.rig.kept.difference_update(self.names)

    def keep(self):
        ended = {}
        while not self.over.wait(self.POLL):
            with self.rig.lock:
                for name in self.names:
                    child = self.rig.children.get(name)
                    if child is None or child.poll() is None:
                        continue
                    if ended.get(name) is not child:
                        ended[name] = child
                        self.ends.append((name, child.returncode))
                    if time.monotonic() - self.starts.get(name, 0) >= self.PAUSE:
                        self.starts[name] = time.monotonic()
                        self.rig.restart(name)


def standard_devices(network):
    """The devices of the laboratory, by name; none is plugged in."""
    control = ControlUnit(network, "control", 11, "00:1b:92:01:00:01")
    control.add_audio_device("stage-left", 12, "00:1b:92:02:00:01")
    control.add_audio_device("stage-right", 13, "00:1b:92:02:00:02")
    Endpoint(network, "ubex", 21, "a8:d2:36:00:00:01")
    for n, name in enumerate(("desk", "media", "wall"), start=1):
        Host(network, name, n, f"02:00:00:00:01:0{n}")
    return network.devices
