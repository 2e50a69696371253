"""Hosts of a lab: network namespaces beside the lab's own, each with one Ethernet link, `eth0`, to an interface of it.

They share all else with the lab: files, processes, users. The namespaces are known by name as `ip netns` knows them, in
the lab's own /run, and go with the lab. Offloads are off at the host's end, so that what leaves it are frames as a wire
would carry them: no longer than the MTU, with their checksums. An address is usable at once: IPv6 doesn't look first
whether somebody else has it.
"""
import ctypes
import errno
import fcntl
import socket
import struct
import subprocess

_SIOCETHTOOL = 0x8946
# ETHTOOL_S...: receive and transmit checksums, scatter, segmentation of TCP, segmentation and coalescing in the kernel.
_OFFLOADS_OFF = (0x15, 0x17, 0x19, 0x1F, 0x24, 0x2C)


def namespace_path(name):
    """The host's network namespace, inside the lab."""
    return f"/run/netns/{name}"


def make(host):
    """Makes the namespace, the link and the addresses. The lab's end is left down, for whoever works it. Raises OSError
    or subprocess.CalledProcessError."""
    _ip("netns", "add", host.name)
    _ip("link", "add", host.link, "type", "veth", "peer", "name", f"{host.name[:12]}-0")
    for command in _OFFLOADS_OFF:  # here, before the interface moves: it keeps them
        _offload_off(f"{host.name[:12]}-0", command)
    _ip("link", "set", f"{host.name[:12]}-0", "netns", host.name, "name", "eth0")
    inside = ("-n", host.name)
    for interface in ("lo", "eth0"):
        _ip(*inside, "link", "set", interface, "up")
    for address in host.address:
        _ip(*inside, "address", "add", address, "dev", "eth0", *(["nodad"] if ":" in address else []))
    for gateway in host.gateway:
        _ip(*inside, *(["-6"] if ":" in gateway else []), "route", "add", "default", "via", gateway)


def _ip(*arguments):
    subprocess.run(["ip", *arguments], check=True)


def _offload_off(interface, command):
    value = ctypes.create_string_buffer(struct.pack("II", command, 0), 8)
    request = struct.pack("16sP", interface.encode(), ctypes.addressof(value)) + bytes(16)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as connection:
        try:
            fcntl.ioctl(connection, _SIOCETHTOOL, request)
        except OSError as error:
            if error.errno != errno.EOPNOTSUPP:  # an offload that the driver doesn't have
                raise
