#!/usr/bin/python3 -B
"""Makes captures of the examples' packets: from NAME.packets, NAME.pcap and for what no header tells NAME.pcap.fields.

    packets.py [NAME.packets...]

Without names all beside this script. A file of packets tells, for each, what becomes of it at every place:

    place office vpn=10 interface=ge0/1 direction=in
    at 1000
    192.168.1.5:40001 > 10.1.0.10:443 tcp dscp=10 len=400 x4
        office accept +servers-web class=business

A packet without a line for a place isn't sent there. Times are seconds; they stand until the next one. Lengths are
those of the IP packet, 100 if not told; `x4` is that packet four times. `app` and `dns-app` are names of the catalogue,
and stand for their families too; other words go to the sidecar as they are.
"""
import dataclasses
import ipaddress
import struct
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
CATALOGUE = HERE.parent / "classification/applications.txt"
PROTOCOLS = {"icmp": 1, "tcp": 6, "udp": 17, "gre": 47}
DEFAULT_LENGTH = 100
ETHERNET = bytes.fromhex("020000000001020000000002")


@dataclasses.dataclass
class Packet:
    line: str  # as it stands in the file
    time: int
    source: tuple  # address and port
    destination: tuple
    protocol: int
    dscp: int = 0
    length: int = DEFAULT_LENGTH
    count: int = 1
    fields: dict = dataclasses.field(default_factory=dict)  # the sidecar's
    expected: dict = dataclasses.field(default_factory=dict)  # place -> text


# ---- Reading ----


def catalogue(path=CATALOGUE):
    """Numbers of each application and its family by name. Families are numbered in their order."""
    families, applications = {}, {}
    for line in path.read_text(encoding="utf-8").splitlines():
        first, *columns = (column.strip() for column in line.split("|"))
        if first == "family":
            families[columns[1]] = len(families) + 1
        elif first.isdigit():
            applications[columns[0]] = (int(first), families[columns[2]])
    return applications


def _end(text):
    """192.0.2.1:80, [2001:db8::1]:80, or without a port."""
    if text.startswith("["):
        address, _, port = text[1:].partition("]")
        return ipaddress.ip_address(address), int(port.lstrip(":") or 0)
    address, _, port = text.partition(":")
    return ipaddress.ip_address(address), int(port or 0)


def _packet(line, time, applications):
    source, _, destination, protocol, *words = line.split()
    packet = Packet(line, time, _end(source), _end(destination), PROTOCOLS[protocol])
    for word in words:
        name, _, value = word.partition("=")
        if word[0] == "x" and word[1:].isdigit():
            packet.count = int(word[1:])
        elif name == "len":
            packet.length = int(value)
        elif name == "dscp":
            packet.dscp = int(value)
        elif name in ("app", "dns-app"):
            packet.fields[name], packet.fields[name + "-family"] = applications[value]
        else:
            packet.fields[name] = value
    return packet


def read(path):
    """The places, each with its members by name, and the packets of a file."""
    places, packets, time = {}, [], 0
    applications = catalogue()
    for line in Path(path).read_text(encoding="ascii").splitlines():
        first, _, rest = line.strip().partition(" ")
        if not first or first.startswith("#"):
            continue
        if line[0] == " ":
            packets[-1].expected[first] = rest
        elif first == "place":
            name, *members = rest.split()
            places[name] = dict(member.split("=") for member in members)
        elif first == "at":
            time = int(rest)
        else:
            packets.append(_packet(line, time, applications))
    return places, packets


# ---- Writing ----


def _transport(packet, size):
    sport, dport = packet.source[1], packet.destination[1]
    if packet.protocol == PROTOCOLS["tcp"]:
        return struct.pack(">HHIIBBHHH", sport, dport, 0, 0, 5 << 4, 0x10, 0, 0, 0)
    if packet.protocol == PROTOCOLS["udp"]:
        return struct.pack(">HHHH", sport, dport, size, 0)
    return b""


def frame(packet):
    """An Ethernet frame with the packet."""
    source, destination = packet.source[0].packed, packet.destination[0].packed
    if len(source) == 4:
        kind, size = 0x0800, packet.length - 20
        header = struct.pack(">BBHHHBBH", 0x45, packet.dscp << 2, packet.length, 0, 0, 64, packet.protocol, 0)
    else:
        kind, size = 0x86DD, packet.length - 40
        header = struct.pack(">IHBB", 6 << 28 | packet.dscp << 22, size, packet.protocol, 64)
    data = header + source + destination + _transport(packet, size)
    return ETHERNET + struct.pack(">H", kind) + data + bytes(packet.length - len(data))


def capture(packets):
    """The pcap file."""
    records = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)]
    for packet in packets:
        data = frame(packet)
        records += [struct.pack("<IIII", packet.time, 0, len(data), len(data)) + data] * packet.count
    return b"".join(records)


def sidecar(packets):
    """A line of fields for each frame."""
    lines = ["# What no header tells, a line for each frame."]
    for packet in packets:
        lines += [" ".join(f"{name}={value}" for name, value in packet.fields.items())] * packet.count
    return "\n".join(lines) + "\n"


def outputs(path):
    """What is made of a file: contents by path."""
    packets = read(path)[1]
    base = Path(path).with_suffix(".pcap")
    return {base: capture(packets), base.with_suffix(".pcap.fields"): sidecar(packets).encode()}


if __name__ == "__main__":
    for name in sys.argv[1:] or sorted(HERE.glob("*.packets")):
        for target, content in outputs(name).items():
            target.write_bytes(content)
