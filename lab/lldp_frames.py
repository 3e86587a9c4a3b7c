#!/usr/bin/env python3
"""Builds LLDP frames, valid and malformed ones, as lines for `frames raw`.

As a program it prints all cases, or those named: a comment line with the case's name, then its frames in hexadecimal.
"""

import argparse
import random
import struct
import sys

NEAREST_BRIDGE = "01:80:c2:00:00:0e"
ETHER_TYPE = 0x88CC
END, CHASSIS, PORT, TTL, PORT_DESC, SYS_NAME, SYS_DESC, CAPABILITIES, MANAGEMENT, ORGANISATION = (*range(9), 127)
MAC_SUBTYPE = {CHASSIS: 4, PORT: 3}
LOCAL_SUBTYPE = 7
LENGTH_MAX = 511  # nine bits
FRAME_MAX = 1514  # Ethernet header and 1,500 bytes


def mac_bytes(text):
    raw = bytes.fromhex(text.replace(":", ""))
    if len(raw) != 6:
        raise ValueError(f"not a MAC address: {text}")
    return raw


def tlv(kind, value, length=None):
    """A TLV; `length` claims a length other than that of the value."""
    claimed = len(value) if length is None else length
    if not 0 <= kind <= 127 or not 0 <= claimed <= LENGTH_MAX:
        raise ValueError(f"no such TLV: type {kind}, length {claimed}")
    return struct.pack("!H", kind << 9 | claimed) + value


def mac_id(kind, mac):
    return tlv(kind, bytes([MAC_SUBTYPE[kind]]) + mac_bytes(mac))


def text_of(value):
    return value.encode() if isinstance(value, str) else value


def ttl_tlv(seconds):
    return tlv(TTL, struct.pack("!H", seconds))


def management_tlv(address):
    octets = bytes(int(part) for part in address.split("."))
    return tlv(MANAGEMENT, bytes([5, 1]) + octets + bytes([2]) + struct.pack("!I", 1) + bytes([0]))


def frame(source, payload, to=NEAREST_BRIDGE):
    """The whole frame, padded to the Ethernet minimum."""
    return (mac_bytes(to) + mac_bytes(source) + struct.pack("!H", ETHER_TYPE) + payload).ljust(60, b"\0")


def mandatory(chassis, port=None, ttl=120):
    return mac_id(CHASSIS, chassis) + mac_id(PORT, port or chassis) + ttl_tlv(ttl)


def lldpdu(chassis, port=None, ttl=120, port_desc=None, sys_name=None, sys_desc=None, address=None, end=True):
    """A data unit with the given fields; strings are str or bytes, None leaves a TLV out."""
    out = mandatory(chassis, port, ttl)
    for kind, value in ((PORT_DESC, port_desc), (SYS_NAME, sys_name), (SYS_DESC, sys_desc)):
        if value is not None:
            out += tlv(kind, text_of(value))
    if address is not None:
        out += management_tlv(address)
    return out + (tlv(END, b"") if end else b"")


def neighbour(source, n):
    """The n-th of several neighbours behind one port: a chassis and an address of its own."""
    mac = mac_bytes(source)[:3] + n.to_bytes(3, "big")
    text = mac.hex(":")
    return frame(text, lldpdu(text, port_desc=str(n), sys_name=f"neighbour-{n}", sys_desc=f"Audac unit {n}"))


def mutations(sound, count, seed):
    """Copies of a frame with bytes changed, inserted, removed or cut off after the Ethernet header."""
    chance = random.Random(seed)
    out = []
    for _ in range(count):
        body = bytearray(sound[14:])
        for _ in range(chance.randint(1, 8)):
            at = chance.randrange(len(body)) if body else 0
            what = chance.randrange(5)
            if what == 0 and body:
                body[at] = chance.randrange(256)
            elif what == 1 and body:
                body[at] ^= 1 << chance.randrange(8)
            elif what == 2:
                body[at:at] = chance.randbytes(chance.randint(1, 16))
            elif what == 3:
                del body[at:at + chance.randint(1, 16)]
            else:
                del body[at:]
        out.append((sound[:14] + bytes(body))[:FRAME_MAX])
    return out


def cases(source, sys_desc="Audac control unit, firmware 2.4", seed=1, mutants=50):
    """Name and frames of each case, in the order in which they make sense to send."""
    chassis, port = mac_id(CHASSIS, source), mac_id(PORT, source)
    life, end = ttl_tlv(120), tlv(END, b"")
    desc = tlv(SYS_DESC, text_of(sys_desc))
    base = chassis + port + life
    sound = lldpdu(source, port_desc="eth0", sys_name="unit", sys_desc=sys_desc, address="10.50.0.99")
    long_text = (text_of(sys_desc) + b" ").ljust(LENGTH_MAX, b"x")
    # As many TLVs of maximum length as fit, then one that the end of the frame cuts.
    whole = base + tlv(PORT_DESC, b"p" * LENGTH_MAX) + tlv(SYS_NAME, b"n" * LENGTH_MAX) + tlv(SYS_DESC, long_text)

    def one(name, *payloads):
        return name, [frame(source, payload) for payload in payloads]

    return [
        one("sound", sound),
        one("no end TLV", base + desc),
        one("nothing at all", b""),
        one("only an end TLV", end),
        one("chassis ID only", chassis),
        one("no chassis ID", port + life + desc + end),
        one("no port ID", chassis + life + desc + end),
        one("no TTL", chassis + port + desc + end),
        one("wrong order", life + port + chassis + desc + end),
        one("two chassis IDs", chassis + mac_id(CHASSIS, "02:00:00:00:00:99") + port + life + desc + end),
        one("two port IDs", chassis + port + port + life + desc + end),
        one("two TTLs", base + life + desc + end),
        one("chassis ID of length 0", tlv(CHASSIS, b"") + port + life + desc + end),
        one("chassis ID of a subtype alone", tlv(CHASSIS, b"\4") + port + life + desc + end),
        one("chassis ID of 255 bytes", tlv(CHASSIS, b"\7" + b"c" * 255) + port + life + desc + end),
        one("chassis ID of 511 bytes", tlv(CHASSIS, b"\7" + b"c" * 510) + port + life + desc + end),
        one("MAC chassis ID of 5 bytes", tlv(CHASSIS, b"\4" + mac_bytes(source)[:5]) + port + life + desc + end),
        one("MAC chassis ID of 7 bytes", tlv(CHASSIS, b"\4" + mac_bytes(source) + b"\1") + port + life + desc + end),
        one("chassis ID of subtype 0", tlv(CHASSIS, b"\0" + mac_bytes(source)) + port + life + desc + end),
        one("chassis ID of subtype 255", tlv(CHASSIS, b"\xff" + mac_bytes(source)) + port + life + desc + end),
        one("port ID of length 0", chassis + tlv(PORT, b"") + life + desc + end),
        one("TTL of 1 byte", chassis + port + tlv(TTL, b"\x78") + desc + end),
        one("TTL of 0 bytes", chassis + port + tlv(TTL, b"") + desc + end),
        one("TTL of 4 bytes", chassis + port + tlv(TTL, b"\0\x78\0\0") + desc + end),
        one("TTL of 65535", chassis + port + ttl_tlv(65535) + desc + end),
        one("half a TLV header", base + b"\x0c"),
        one("TLV cut off", base + tlv(SYS_DESC, b"Audac", 200)),
        one("TLV length past the end", base + tlv(SYS_DESC, text_of(sys_desc), LENGTH_MAX)),
        one("TLV shorter than its text", base + tlv(SYS_DESC, text_of(sys_desc), 3) + end),
        one("end TLV with a value", base + desc + tlv(END, b"Audac")),
        one("TLVs after the end", base + end + desc),
        one("two system descriptions", base + tlv(SYS_DESC, b"first") + desc + end),
        one("description of 511 bytes", base + tlv(SYS_DESC, long_text) + end),
        one("1,500 bytes of text", (whole[:1500 - len(end)] + end), whole[:1500]),
        one("every reserved type", base + b"".join(tlv(kind, b"r") for kind in range(9, 127)) + end),
        one("750 empty TLVs", (base + tlv(SYS_NAME, b"") * 750)[:1500]),
        one("empty texts", lldpdu(source, port_desc="", sys_name="", sys_desc="")),
        one("no UTF-8", lldpdu(source, port_desc=b"\xff\xfe", sys_name=b"\xc3\x28", sys_desc=b"Audac \x80\xbf\xf5")),
        one("control bytes", lldpdu(source, port_desc=bytes(range(1, 32)), sys_name=b"\x1b[2J\x1b]0;x\7",
                                    sys_desc=b"Audac\r\nconfigure\r\nno vlan 20\r\nexit\r\n\x7f")),
        one("NUL bytes", lldpdu(source, port_desc=b"\0", sys_name=b"unit\0x", sys_desc=b"Audac\0hidden")),
        one("conversion and quoting characters",
            lldpdu(source, port_desc="%n%s%p", sys_name='"; reboot; "', sys_desc="Audac %s%n $(reboot) `reboot` '\\")),
        one("management address of length 0", base + desc + tlv(MANAGEMENT, b"") + end),
        one("management address longer than its TLV", base + desc + tlv(MANAGEMENT, b"\xff\1\x0a\x32") + end),
        one("management OID longer than its TLV",
            base + desc + tlv(MANAGEMENT, b"\5\1\x0a\x32\0\x63\2\0\0\0\1\xff") + end),
        one("capabilities of 1 byte", base + desc + tlv(CAPABILITIES, b"\0") + end),
        one("organisation TLV of 3 bytes", base + desc + tlv(ORGANISATION, b"\0\x80\xc2") + end),
        one("organisation TLV with a VLAN name past the end",
            base + desc + tlv(ORGANISATION, b"\0\x80\xc2\3\0\x14\xffaudio") + end),
        one("multicast chassis ID", mac_id(CHASSIS, "ff:ff:ff:ff:ff:ff") + port + life + desc + end),
        ("several neighbours", [neighbour(source, n) for n in range(1, 9)]),
        ("more neighbours than a port keeps", [neighbour(source, n) for n in range(1, 101)]),
        ("mutations", mutations(frame(source, sound), mutants, seed)),
        one("TTL 0", lldpdu(source, ttl=0)),
    ]


def hex_lines(name, frames):
    return [f"# {name}", *(data.hex() for data in frames)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--source", default="02:00:00:00:00:01", help="MAC address of the sender")
    parser.add_argument("--description", default="Audac control unit, firmware 2.4")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--mutations", type=int, default=50)
    parser.add_argument("--list", action="store_true", help="names only")
    parser.add_argument("names", nargs="*", help="cases to print, default all")
    arguments = parser.parse_args()
    made = cases(arguments.source, arguments.description, arguments.seed, arguments.mutations)
    unknown = set(arguments.names) - {name for name, _ in made}
    if unknown:
        parser.error(f"no such case: {', '.join(sorted(unknown))}")
    for name, frames in made:
        if not arguments.names or name in arguments.names:
            print("\n".join([name] if arguments.list else hex_lines(name, frames)))


if __name__ == "__main__":
    sys.exit(main())
