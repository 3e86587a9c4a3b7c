#!/usr/bin/env python3
"""Joins multicast groups on an interface, as any program does, and leaves them when it is ended.

usage: member.py INTERFACE GROUP...
"""

import signal
import socket
import struct
import sys


def main():
    index = socket.if_nametoindex(sys.argv[1])
    member = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGINT})
    for group in sys.argv[2:]:
        request = socket.inet_aton(group) + struct.pack("=4sI", b"", index)
        member.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, request)
    print("joined", flush=True)
    signal.sigwait({signal.SIGTERM, signal.SIGINT})
    member.close()


if __name__ == "__main__":
    main()
