#!/usr/bin/python3 -B
"""Traffic between a lab's hosts; runs inside one of them.

    traffic.py ping ADDRESS COUNT              sends pings until COUNT are answered; ends with their times
    traffic.py serve PORT                      a line for each TCP connection: bytes and checksum of what came
    traffic.py send ADDRESS PORT BYTES         a transfer; prints bytes and checksum of what went
    traffic.py stream ADDRESS PORT RATE SIZE   UDP packets of SIZE bytes (IP), RATE bits a second, until standard input ends
    traffic.py sink PORT                       for each line of standard input: what came since the last one
    traffic.py watch PORT SECONDS              a line for each half second: how many UDP packets came, and how they are marked
    traffic.py echo PORT                       sends UDP packets back
    traffic.py ask ADDRESS PORT SECONDS        exits with 0 when an echo comes back
    traffic.py capture COUNT                   the next GRE packets, in hexadecimal, from the outer IP header on
"""
import hashlib
import json
import os
import select
import socket
import struct
import sys
import threading
import time

ECHO = {socket.AF_INET: (8, 0, socket.IPPROTO_ICMP), socket.AF_INET6: (128, 129, socket.IPPROTO_ICMPV6)}


def family_of(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def say(*words):
    print(*words, flush=True)


def checksum(data):
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    total = (total & 0xFFFF) + (total >> 16)
    return ~((total & 0xFFFF) + (total >> 16)) & 0xFFFF


def ping(address, count):
    """The kernel completes the checksum of ICMPv6 and strips its IP header."""
    family = family_of(address)
    request, answer, protocol = ECHO[family]
    connection = socket.socket(family, socket.SOCK_RAW, protocol)
    times = []
    for number in range(100 * int(count)):
        body = struct.pack("!HH", os.getpid() & 0xFFFF, number) + b"live" * 14
        head = struct.pack("!BBH", request, 0, 0)
        if family == socket.AF_INET:
            head = struct.pack("!BBH", request, 0, checksum(head + body))
        begin = time.monotonic()
        connection.sendto(head + body, (address, 0))
        while (left := begin + 0.5 - time.monotonic()) > 0 and select.select([connection], [], [], left)[0]:
            data = connection.recv(2048)
            data = data[(data[0] & 15) * 4:] if family == socket.AF_INET else data
            if data[0] == answer and data[4:] == body:
                times.append(time.monotonic() - begin)
                break
        if len(times) == int(count):
            say(f"{address}: {count} answers, {number + 1} sent, {1000 * sum(times) / len(times):.2f} ms on average")
            return 0
    return 1


def serve(port):
    server = socket.create_server(("::", int(port)), family=socket.AF_INET6, dualstack_ipv6=True)
    say("ready")
    while True:
        connection, _ = server.accept()
        size, digest = 0, hashlib.sha256()
        while data := connection.recv(1 << 16):
            size += len(data)
            digest.update(data)
        say(size, digest.hexdigest())


def send(address, port, size):
    data = os.urandom(int(size))
    with socket.create_connection((address, int(port)), timeout=60) as connection:
        connection.sendall(data)
    say(len(data), hashlib.sha256(data).hexdigest())


def stream(address, port, rate, size):
    """Paced by the clock; what a stall kept back for longer than 20 ms is not made up for."""
    header = 48 if ":" in address else 28
    payload, gap = bytes(int(size) - header), int(size) * 8 / float(rate)
    connection = socket.socket(family_of(address), socket.SOCK_DGRAM)
    connection.connect((address, int(port)))
    threading.Thread(target=lambda: (sys.stdin.read(), os._exit(0)), daemon=True).start()
    due = time.monotonic()
    while True:
        now = time.monotonic()
        due = max(due, now - 0.02)
        while due <= now:
            try:
                connection.send(payload)
            except OSError:  # an error of ICMP came back, or no room: the stream goes on
                pass
            due += gap
        time.sleep(max(due - time.monotonic(), 0.0005))


def receiver(port):
    """A UDP socket of both families that tells the type of service."""
    connection = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
    for level, option in ((socket.IPPROTO_IP, socket.IP_RECVTOS), (socket.IPPROTO_IPV6, socket.IPV6_RECVTCLASS)):
        connection.setsockopt(level, option, 1)
    connection.bind(("::", int(port)))
    return connection


def watch(port, seconds):
    connection, begin = receiver(port), time.monotonic()
    for half in range(1, 2 * int(seconds) + 1):
        packets, marks = 0, set()
        while (left := begin + half / 2 - time.monotonic()) > 0:
            if select.select([connection], [], [], left)[0]:
                packets, marks = packets + 1, marks | {connection.recvmsg(1 << 16, 256)[1][0][2][0] >> 2}
        say(f"{half / 2:4.1f} s  {packets:4} packets  {' '.join(f'dscp {mark}' for mark in sorted(marks))}".rstrip())


def sink(port):
    """Arrivals are told with the monotonic clock, which all processes of the machine share."""
    connection = receiver(port)
    told = {"packets": 0, "bytes": 0}
    say("ready")
    while True:
        for ready in select.select([connection, sys.stdin], [], [])[0]:
            if ready is connection:
                data, extra, _, sender = connection.recvmsg(1 << 16, 256)
                header = 28 if sender[0].startswith("::ffff:") else 48
                now = time.monotonic()
                told = {"first": told.get("first", now), "last": now, "packets": told["packets"] + 1,
                        "bytes": told["bytes"] + len(data) + header, "tos": extra[0][2][0] if extra else None}
            elif not sys.stdin.readline():
                return
            else:
                say(json.dumps(told))
                told = {"packets": 0, "bytes": 0}


def echo(port):
    connection = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
    connection.bind(("::", int(port)))
    say("ready")
    while True:
        data, sender = connection.recvfrom(2048)
        connection.sendto(data, sender)


def ask(address, port, seconds):
    connection = socket.socket(family_of(address), socket.SOCK_DGRAM)
    connection.connect((address, int(port)))
    end = time.monotonic() + float(seconds)
    while time.monotonic() < end:
        try:
            connection.send(b"live")
            if select.select([connection], [], [], 0.1)[0] and connection.recv(2048) == b"live":
                return 0
        except OSError:  # an error of ICMP came back
            pass
    return 1


def capture(count):
    connection = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(0x0800))
    say("ready")
    left = int(count)
    while left > 0:
        packet = connection.recv(1 << 16)
        if packet[9] == 47:
            say(packet.hex())
            left -= 1


if __name__ == "__main__":
    sys.exit(globals()[sys.argv[1]](*sys.argv[2:]))
