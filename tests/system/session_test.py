#!/usr/bin/env python3
"""The switch's command line over TCP, as people and programs meet it. PAVO_BUILD names the build folder."""

import os
import pty
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "support"))

from rig_case import LIMIT, RigTest  # noqa: E402


class SessionTest(RigTest):
    """A switch with a port of its own."""

    def setUp(self):
        super().setUp()
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.rig.env["PAVO_CLI_PORT"] = str(self.port)
        self.rig.start_switch("--state", self.rig.path("tmp/state"))

    def connect(self):
        peer = socket.create_connection(("127.0.0.1", self.port), LIMIT)
        self.addCleanup(peer.close)
        return peer

    @staticmethod
    def expect(read, mark):
        seen = b""
        while mark not in seen:
            piece = read()
            if not piece:
                raise AssertionError(f"{mark} is not in {seen}")
            seen += piece
        return seen

    def log_in(self, peer):
        for line, mark in ((b"", b"User:"), (b"admin\r\n", b"Password:"), (b"switch1234\r\n", b">"),
                           (b"enable\r\n", b"#")):
            peer.sendall(line)
            self.expect(lambda: peer.recv(4096), mark)

    def test_telnet(self):
        master, slave = pty.openpty()
        with subprocess.Popen(["telnet", "127.0.0.1", str(self.port)], stdin=slave, stdout=slave, stderr=slave,
                              start_new_session=True) as client:
            os.close(slave)
            try:
                seen = b""
                for line, mark in ((b"", b"User:"), (b"admin\r", b"Password:"), (b"switch1234\r", b"(avswitch) >"),
                                   (b"en\r", b"(avswitch) #"), (b"show v?", b"(avswitch) #show v"),
                                   (b"lan\r", b"(avswitch) #"), (b"conf\r", b"(avswitch) (Config)#"),
                                   (b"hostname hall\r", b"(hall) (Config)#"), (b"\x1a", b"(hall) #"),
                                   (b"logout\r", b"Connection closed")):
                    os.write(master, line)
                    seen += self.expect(lambda: os.read(master, 4096), mark)
            finally:
                client.kill()
                os.close(master)
        self.assertNotIn(b"switch1234", seen)
        self.assertIn(b"(Config)#hostname hall", seen, "characters are echoed")
        self.assertIn('hostname "hall"', self.rig.running_config())

    def test_what_has_been_answered_stays(self):
        peer = self.connect()
        self.log_in(peer)
        peer.sendall(b"configure\r\nusername desk password \"look at it\" level 15\r\nhostname kept\r\n")
        self.expect(lambda: peer.recv(4096), b"(kept) (Config)#")
        self.rig.stop("vswitchd", signal.SIGKILL)
        self.rig.start_switch("--state", self.rig.path("tmp/state"))
        self.assertIn("desk", self.rig.cli("show users accounts"))
        self.assertNotIn("look at it", self.rig.read("tmp/state"))

    def test_nobody_holds_up_the_others(self):
        # Does not read what it asks for; the kernel takes some of it.
        greedy = self.connect()
        self.log_in(greedy)
        greedy.setblocking(False)
        try:
            while True:
                greedy.send(b"show running-config\r\n" * 100)
        except BlockingIOError:
            pass
        others = [self.connect() for _ in range(7)]
        self.log_in(others[0])
        self.assertIn("VLAN", self.rig.cli("show vlan"))
        surplus = self.connect()
        self.expect(lambda: surplus.recv(4096), b"Too many sessions.")
        others[0].sendall(b"logout\r\n")
        while others[0].recv(4096):
            pass
        self.see("there is room again", lambda: b"User:" in self.connect().recv(4096))

    def test_a_guess_takes_a_second_and_tells_nothing(self):
        peers = [self.connect() for _ in range(2)]
        for peer, name in zip(peers, (b"admin", b"nobody")):
            self.expect(lambda: peer.recv(4096), b"User:")
            peer.sendall(name + b"\r\n")
            self.expect(lambda: peer.recv(4096), b"Password:")
        begin = time.monotonic()
        for peer in peers:
            peer.sendall(b"a wrong one\r\n")
        self.assertEqual({b"\r\nLogin incorrect\r\nUser:"},
                         {self.expect(lambda: peer.recv(4096), b"User:") for peer in peers})
        self.assertGreaterEqual(time.monotonic() - begin, 1)

    def test_ports(self):
        other = self.new_rig()
        for port, why in ((str(self.port), f"no command line on 127.0.0.1:{self.port}: Address already in use"),
                          ("http", "PAVO_CLI_PORT is not a port number")):
            other.env["PAVO_CLI_PORT"] = port
            done = subprocess.run([other.program("vswitchd")], env=other.env, capture_output=True, text=True,
                                  timeout=LIMIT, check=False)
            self.assertEqual((1, f"vswitchd: {why}\n"), (done.returncode, done.stderr))


if __name__ == "__main__":
    unittest.main()
