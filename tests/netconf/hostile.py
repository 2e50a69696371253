#!/usr/bin/python3 -B
"""Peers and messages that mean no good: others get in and get answers meanwhile, and mgmtd lives on."""
import queue
import resource
import socket
import time

from ncclient.transport.session import SessionListener

import router
from router import BASE, POLICY, plain

PEERS = 1000
BOMB = "<!DOCTYPE r [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>]>"


class Answers(SessionListener):
    """What comes back, as text; "ended" when the session has."""

    def __init__(self):
        self.texts = queue.Queue()

    def callback(self, root, raw):
        self.texts.put(raw)

    def errback(self, ex):
        self.texts.put("ended")


class Hostile(router.Scenario):
    def ask(self, session, message):
        """Sends a text as a message; what comes back."""
        answers = Answers()
        session._session.add_listener(answers)  # ncclient has no public way for what is no rpc of its own
        session._session.send(message)
        return answers.texts.get(timeout=60)

    def test_silent_and_half_open_peers_keep_nobody_out(self):
        """Some say nothing, some half a line, some a line and then nothing."""
        beginnings = [b"", b"SSH-2", b"SSH-2.0-half\r\n"]
        peers = []
        self.addCleanup(lambda: [peer.close() for peer in peers])
        _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
        for number in range(PEERS):
            peers.append(socket.create_connection(("127.0.0.1", self.router.port), timeout=30))
            peers[-1].send(beginnings[number % len(beginnings)])
        begin = time.monotonic()
        session = self.login("reader")
        self.assertLess(time.monotonic() - begin, 15)
        self.assertIn("<data", plain(session.get_config("running")))

    def test_messages_beyond_the_limits(self):
        def config(xml):
            return (f'<rpc message-id="7" xmlns="{BASE}"><edit-config><target><candidate/></target><config>{xml}'
                    "</config></edit-config></rpc>")

        def filtering(xml):
            return f'<rpc message-id="7" xmlns="{BASE}"><get><filter type="subtree">{xml}</filter></get></rpc>'

        zone = f'<policy xmlns="{POLICY}"><zone><name>z</name></zone></policy>'
        rows = [("deep", config("<a>" * 10000 + "</a>" * 10000), "too-big"),
                ("16 MB", config(f"<a>{'x' * (16 << 20)}</a>"), "too-big"),
                ("a bomb", BOMB + config("<a>&b;</a>"), "operation-failed"),
                ("entities", config("<a>&b;</a>"), "operation-failed"),
                ("not closed", "<rpc garbage", "operation-failed"),
                ("no namespace in a filter", filtering('<p xmlns=""/><p xmlns=""/>'), "<data/>"),
                ("none, deeper", filtering("<x><p xmlns=''/><p\txmlns = ''/></x><x/>"), "<data/>"),
                ("none in a configuration", config('<p xmlns=""/><p xmlns=""/>'), "unknown-namespace"),
                ("no prefix", filtering('<x xmlns:p=""><p:b/><p:b/></x>'), "operation-failed"),
                ("a text for a configuration", config("&lt;p xmlns=''/>&lt;p xmlns=''/>"), "bad-element"),
                ("proper", config(zone), "<ok/>")]
        session = self.login()
        for name, message, want in rows:
            with self.subTest(name):
                self.assertIn(want, self.ask(session, message)[:2000])
        self.assertIn("<name>z</name>", plain(session.get_config("candidate")))

    def test_broken_framing_ends_one_session_only(self):
        session, other = self.login(), self.login()
        session._session._channel.sendall(b"\n#0\n")
        router.wait_until(lambda: not session.connected, "the session ends")
        self.assertIn("<data", plain(other.get_config("running")))


if __name__ == "__main__":
    router.main()
