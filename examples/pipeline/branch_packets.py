#!/usr/bin/python3 -B
"""Writes the packets of the example branch: branch.pcap and, for what no header tells, branch.pcap.fields.

    branch_packets.py [FOLDER]

The packets are always the same. What a policer limits begins after a pause by which its bucket is full.
"""
import ipaddress
import random
import struct
import sys
from pathlib import Path

SEED = 20260
TCP, UDP, GRE = 6, 17, 47
PAUSE = 7200  # seconds
APPS = {"netflix": 64, "rtp": 71, "smb": 191, "bittorrent": 418, "sip": 522}
FAMILIES = {"audio_video": 3, "file_server": 10, "peer_to_peer": 20, "telephony": 25}


def packet(time, source, destination, protocol=TCP, sport=40000, dport=443, *, dscp=0, length=100, **fields):
    """One packet as its fields; `fields` are those of the sidecar, by their names with _ for -."""
    return {"time": time, "src": source, "dst": destination, "proto": protocol, "sport": sport, "dport": dport,
            "dscp": dscp, "len": length, "fields": {name.replace("_", "-"): value for name, value in fields.items()}}


def single_packets(second):
    """One or a few for each sequence, all at the same time."""
    rtp = {"app": APPS["rtp"], "app_family": FAMILIES["audio_video"]}
    sharing = {"app": APPS["bittorrent"], "app_family": FAMILIES["peer_to_peer"]}
    files = {"app": APPS["smb"], "app_family": FAMILIES["file_server"]}
    video = {"dns": 1, "dns_app": APPS["netflix"]}
    rows = [
        ("192.168.66.7", "10.1.0.10", TCP, 40000, 443, {}),
        ("203.0.113.129", "8.8.8.8", UDP, 40000, 53, {}),
        ("203.0.113.127", "8.8.8.8", UDP, 40000, 53, {}),
        ("192.168.1.5", "10.1.0.10", UDP, 40000, 5060, {"app": APPS["sip"], "app_family": FAMILIES["telephony"]}),
        ("192.168.1.5", "10.1.0.10", TCP, 40001, 443, {}),
        ("192.168.1.5", "10.2.8.1", TCP, 40002, 80, {"dscp": 10}),
        ("192.168.1.5", "10.2.9.1", TCP, 40003, 80, {}),
        ("192.168.1.5", "10.1.0.53", UDP, 40004, 53, video),
        ("192.168.1.5", "8.8.8.8", UDP, 40004, 53, video),
        ("192.168.1.5", "8.8.8.8", UDP, 40004, 53, {"dns": 1}),
        ("192.168.1.5", "172.16.4.4", GRE, 0, 0, {}),
        ("192.168.1.5", "172.31.255.255", TCP, 5500, 22, {}),
        ("192.168.1.5", "172.16.4.4", TCP, 40005, 22, {}),
        ("192.168.1.5", "172.32.0.0", TCP, 40005, 22, {}),
        ("192.168.1.5", "100.64.7.9", UDP, 40005, 123, {}),
        ("192.168.1.6", "93.184.216.34", TCP, 40006, 51413, sharing),
        ("192.168.1.6", "93.184.216.34", TCP, 40006, 445, {**files, "dscp": 8}),
        ("192.168.1.6", "198.18.5.5", TCP, 40007, 443, {}),
        ("192.168.1.6", "198.19.255.1", UDP, 40007, 500, {}),
        ("192.168.1.6", "192.0.2.77", TCP, 40008, 443, {}),
        ("192.168.1.6", "198.51.100.99", TCP, 40009, 80, {}),
        ("192.168.1.6", "203.0.113.5", TCP, 40010, 1433, {}),
        ("192.168.1.6", "203.0.113.31", UDP, 40010, 3306, {}),
        ("192.168.1.6", "203.0.113.32", UDP, 40010, 8444, {}),
        ("192.168.1.6", "203.0.113.48", TCP, 40011, 25, {"class": 2, "plp": 1}),
        ("192.168.1.6", "203.0.113.48", TCP, 40011, 25, {"class": 2}),
        ("192.168.1.6", "203.0.113.66", TCP, 40012, 25, {"length": 1400}),
        ("192.168.1.6", "203.0.113.66", TCP, 40012, 25, {"length": 1400, "dscp": 12}),
        ("192.168.1.6", "192.168.2.1", UDP, 40013, 5060, rtp),
    ]
    return [packet(second, source, destination, protocol, sport, dport, **rest)
            for source, destination, protocol, sport, dport, rest in rows]


def voice_flows(second):
    """Calls of many phones, two packets each."""
    draw = random.Random(SEED)
    rows = []
    for _ in range(24):
        ends = f"192.168.1.{draw.randrange(2, 250)}", f"10.9.{draw.randrange(256)}.{draw.randrange(1, 250)}"
        port = draw.randrange(16384, 32768, 2)
        call = packet(second, *ends, UDP, port, port, dscp=34, app=APPS["rtp"], app_family=FAMILIES["audio_video"])
        rows += [call, call]
    return rows


def bursts(second):
    """More than the policers let through: to the servers, and of a guest to the web."""
    to_servers = [packet(second, "192.168.1.9", "10.1.0.20", UDP, 41000, 4000, length=400) for _ in range(4)]
    to_web = [packet(second + PAUSE, "192.168.1.9", "93.184.216.34", TCP, 42000, 443, length=300) for _ in range(4)]
    later = [packet(second + PAUSE + 1, "192.168.1.9", "93.184.216.34", TCP, 42000, 443, length=500)]
    return to_servers + to_web + later


FIRST = packet(1000, "192.168.1.2", "192.168.1.1", UDP, 68, 67)  # meets no policer
PACKETS = [FIRST] + single_packets(1000 + PAUSE) + voice_flows(1000 + 2 * PAUSE) + bursts(1000 + 3 * PAUSE)


def frame(fields):
    """An Ethernet frame with the packet."""
    header = struct.pack(">BBHHHBBH", 0x45, fields["dscp"] << 2, fields["len"], 0, 0, 64, fields["proto"], 0)
    header += ipaddress.ip_address(fields["src"]).packed + ipaddress.ip_address(fields["dst"]).packed
    transport = b""
    if fields["proto"] == TCP:
        transport = struct.pack(">HHIIBBHHH", fields["sport"], fields["dport"], 0, 0, 5 << 4, 0x10, 0, 0, 0)
    elif fields["proto"] == UDP:
        transport = struct.pack(">HHHH", fields["sport"], fields["dport"], fields["len"] - len(header), 0)
    ip = header + transport
    return bytes.fromhex("020000000001020000000002" "0800") + ip + bytes(fields["len"] - len(ip))


def capture():
    """The pcap file."""
    records = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)]
    for fields in PACKETS:
        data = frame(fields)
        records.append(struct.pack("<IIII", fields["time"], 0, len(data), len(data)) + data)
    return b"".join(records)


def sidecar():
    """A line of fields for each frame."""
    lines = [" ".join(f"{name}={value}" for name, value in fields["fields"].items()) for fields in PACKETS]
    return "\n".join(["# What no header tells, a line for each frame of branch.pcap.", *lines]) + "\n"


if __name__ == "__main__":
    folder = Path(sys.argv[1]) if len(sys.argv) > 1 else Path(__file__).resolve().parent
    (folder / "branch.pcap").write_bytes(capture())
    (folder / "branch.pcap.fields").write_text(sidecar(), encoding="ascii")
