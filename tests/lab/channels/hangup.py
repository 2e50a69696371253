#!/usr/bin/python3 -B
"""A server at the path in its first argument that hangs up on its first client while the client registers.

Nobody reads /dev/log meanwhile, and it is filled here. So a client that logs each connection stands still behind its
register message and before what it would say next.
"""
import socket
import sys

REGISTER_SIZE = 8



def fill_log():
    """Returns when not even a new sender has room. Each has a limit of its own besides the reader's."""
    sent = True
    while sent:
        sent = False
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setblocking(False)
            sender.connect("/dev/log")
            try:
                while True:
                    sender.send(b"<191>full")
                    sent = True
            except BlockingIOError:
                pass


fill_log()
with socket.socket(socket.AF_UNIX) as server:
    server.bind(sys.argv[1])
    server.listen()
    client = server.accept()[0]
    client.recv(REGISTER_SIZE, socket.MSG_WAITALL)
    client.close()
