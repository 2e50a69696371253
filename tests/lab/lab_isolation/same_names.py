"""Runs inside a lab: claims names that only one process of a machine can have, then answers to its lab's name.

Usage: same_names.py claim NAME     takes the names and serves until it is ended
       same_names.py ask NAME       prints what stands behind each name, one line each
"""
import os
import socket
import sys
import syslog
from multiprocessing import resource_tracker, shared_memory

PORT = 4565
SIZE = 64


def claim(name):
    """Each step fails if another lab's claim can be seen."""
    answer = os.environ["LAB_NAME"].encode()
    with open(f"/var/run/{name}", "xb") as file:
        file.write(answer)
    block = shared_memory.SharedMemory(name, create=True, size=SIZE)
    block.buf[:len(answer)] = answer
    listener = socket.create_server(("127.0.0.1", PORT))
    syslog.syslog(f"{name} is claimed by {answer.decode()}")
    print("claimed", flush=True)
    while True:
        peer, _ = listener.accept()
        peer.sendall(answer)
        peer.close()


def ask(name):
    with open(f"/var/run/{name}", encoding="ascii") as file:
        print("file", file.read())
    block = shared_memory.SharedMemory(name)
    resource_tracker.unregister(f"/{name}", "shared_memory")  # else our end would remove it
    print("memory", bytes(block.buf).rstrip(b"\0").decode())
    block.close()
    with socket.create_connection(("127.0.0.1", PORT), timeout=5) as peer:
        print("port", peer.recv(SIZE).decode())


if __name__ == "__main__":
    {"claim": claim, "ask": ask}[sys.argv[1]](sys.argv[2])
