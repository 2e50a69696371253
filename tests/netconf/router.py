"""A real mgmtd in a folder of its own, and NETCONF clients for it.

A scenario is a script tests/netconf/<name>.py of classes derived from Scenario (a unittest.TestCase) and a last line
`router.main()`; `--bin` names the folder of mgmtd and lumora-cli. Each class starts one mgmtd, on free ports, with the
users of USERS; `self.login(user)` gives a manager of ncclient whose session ends with the test.
"""
import argparse
import contextlib
import json
import logging
import os
import re
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from lxml import etree
from ncclient import manager
from ncclient.operations import RaiseMode, RPCError
from ncclient.transport import ssh as transport

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))
from waiting import wait_until  # noqa: E402

BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
POLICY = "urn:lumora:yang:policy"
SYSTEM = "urn:lumora:yang:system"
DEBUGS = "urn:lumora:yang:debugs"
NACM = "urn:ietf:params:xml:ns:yang:ietf-netconf-acm"
MONITORING = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"
PASSWORD = "a proper password"
USERS = {"admin": "admin", "operator": "operator", "reader": "read-only", "nobody": None}
START_SECONDS = 30
ANY = object()  # as a path: any, or none

_bin_folder = Path("build/check/bin")


class Router:
    """A running mgmtd. `close` ends it."""

    def __init__(self):
        self._temporary = tempfile.TemporaryDirectory(prefix="netconf-")
        self.folder = Path(self._temporary.name)
        self.log = self.folder / "log"
        self.start()

    def start(self):
        """Starts mgmtd on what the folder holds."""
        begin = self.log.stat().st_size if self.log.exists() else 0
        options = {"folder": "store", "access-file": "secret", "control": "control", "netconf-socket": "netconf"}
        line = [_bin_folder / "mgmtd", "-f", "--port", "0", "--netconf-address", "127.0.0.1", "--netconf-port", "0",
                *(word for name, value in options.items() for word in (f"--{name}", self.folder / value))]
        with self.log.open("a", encoding="utf-8") as log:
            self._process = subprocess.Popen(line, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        found = wait_until(lambda: re.search(r"NETCONF over SSH, port (\d+)", self._log_from(begin)) or self._ended(),
                           f"mgmtd serves NETCONF: {self._log_from(begin)}", START_SECONDS)
        self.port = int(found[1])

    def _log_from(self, begin):
        return self.log.read_bytes()[begin:].decode(errors="backslashreplace")

    def _ended(self):
        if self._process.poll() is not None:
            raise AssertionError(f"mgmtd has ended with {self._process.returncode}:\n{self._log_from(0)[-8000:]}")

    def stop(self, number=signal.SIGTERM):
        """Ends mgmtd and returns its exit status."""
        self._process.send_signal(number)
        return self._process.wait(START_SECONDS)

    def close(self):
        with contextlib.suppress(AssertionError):
            self._ended()
            self.stop()
        self._temporary.cleanup()
        return self._process.returncode

    def cli(self, *words, text=""):
        """lumora-cli as root; what it prints."""
        done = subprocess.run([_bin_folder / "lumora-cli", "-s", self.folder / "control", *words], input=text,
                              text=True, capture_output=True, timeout=60, check=False)
        if done.returncode != 0:
            raise AssertionError(f"lumora-cli {' '.join(words)}: {done.stdout}{done.stderr}")
        return done.stdout

    def configure(self, configuration):
        """Merges a configuration and commits it."""
        self.cli("configure", "-f", "-", "--commit", "scenario", text=json.dumps(configuration))

    def users_make(self):
        hashed = subprocess.run([_bin_folder / "mgmtd", "--hash-password"], input=PASSWORD, text=True, check=True,
                                capture_output=True).stdout.strip()
        users = [{"name": name, "password": hashed, **({"group": group} if group else {})}
                 for name, group in USERS.items()]
        self.configure({"lumora-system:users": {"user": users}})

    def connect(self, user="admin", **more):
        """A manager. Errors are raised only where the test does so: `ask` gives them back."""
        session = manager.connect(host="127.0.0.1", port=self.port, username=user, password=PASSWORD,
                                  hostkey_verify=False, allow_agent=False, look_for_keys=False, timeout=60, **more)
        session.raise_mode = RaiseMode.ALL
        return session


class Scenario(unittest.TestCase):
    """Tests against one mgmtd. Each begins with the candidate as running and no locks."""

    @classmethod
    def setUpClass(cls):
        cls.router = Router()
        cls.addClassCleanup(cls._router_close)
        cls.router.users_make()

    @classmethod
    def _router_close(cls):
        if cls.router.close() != 0:
            raise AssertionError(f"mgmtd did not end well")

    def login(self, user="admin", **more):
        session = self.router.connect(user, **more)
        self.addCleanup(self._end, session)
        return session

    @staticmethod
    def _end(session):
        session.timeout = 2  # ncclient waits for the answer to what it queued while it noticed the session's end
        with contextlib.suppress(Exception):  # it may have ended in the test
            session.discard_changes()
        with contextlib.suppress(Exception):
            session.close_session()

    def refused(self, call, tag, path=None, message="", **info):
        """Asserts that a call is refused with this tag and path, with a message that holds the text."""
        with self.assertRaises(RPCError) as caught:
            call()
        error = caught.exception
        self.assertEqual(error.tag, tag, error.message)
        self.assertTrue(path is ANY or error.path == path, f"{error.path}: {error.message}")
        self.assertIn(message, error.message)
        self.assertTrue(error.message)
        self.assertEqual(error.severity, "error")
        for name, value in info.items():
            self.assertIn(f"<{name.replace('_', '-')}>{value}</", re.sub(r' xmlns(:\w+)?="[^"]*"', "", error.info))
        return error

    def rpc(self, session, body):
        """Dispatches an operation given as text."""
        return session.dispatch(etree.fromstring(body))


def plain(reply):
    """A data reply as XML without namespaces' declarations and blanks between elements."""
    data = reply.data_ele if hasattr(reply, "data_ele") else reply
    text = etree.tostring(data, encoding="unicode")
    return re.sub(r' xmlns(:\w+)?="[^"]*"', "", re.sub(r">\s+<", "><", text))


def content(xml):
    """The content of a config parameter."""
    return f'<config xmlns="{BASE}" xmlns:nc="{BASE}" xmlns:yang="urn:ietf:params:xml:ns:yang:1">{xml}</config>'


def policy(xml):
    return content(f'<policy xmlns="{POLICY}">{xml}</policy>')


def main():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--bin", type=Path, default=_bin_folder)
    options, rest = parser.parse_known_args()
    globals()["_bin_folder"] = options.bin.resolve()
    logging.getLogger("ncclient").setLevel(logging.CRITICAL)
    logging.getLogger("paramiko").setLevel(logging.CRITICAL)
    transport.TICK = 0.005  # seconds that ncclient lets a request lie before it sends it
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2, warnings="ignore")
