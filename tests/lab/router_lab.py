"""A whole lab router for scenarios: the lab of examples/router_lab.json, its configuration, its packets.

`commit` returns when the daemon has applied the change; what it sends to ftmd is then on its way. `settle` waits until
ftmd and fpd have all of it, by a commit of its own: the policy `settle`, which no packet of a scenario meets, is
compiled anew, and its messages come behind all others. What waits for memory, since replaced programs are given back
half a second later, has then been loaded, too.
"""
import os
import signal
from pathlib import Path

import harness
from control_socket import Broken, Control, Lines, Refused
from netconf_session import NetconfSession

CONFIG = harness.REPOSITORY / "examples/router_lab.json"
SETTLE_VPN = 65000
SECONDS = 60  # for whatever the lab does; sanitizers and a busy machine slow it down


def merge(path, value=None):
    return {"op": "merge", "path": path, "value": {} if value is None else value}


def delete(path):
    return {"op": "delete", "path": path}


class RouterLab:
    def __init__(self, scenario, name, files=None, settles=True, env=None, config=CONFIG):
        """`files` and `env` are added to the lab's. Without `settles` nothing is committed here, and `settle` can't be used."""
        # So that an assertion that fails ends the sanitizers' build as it ends the others.
        env = {"ASAN_OPTIONS": "handle_segv=0:detect_leaks=0", **(env or {})}
        self.lab = scenario.start_lab(name, {"base": str(config), "files": files or {}, "env": env})
        self._scenario = scenario
        self._root = Path(f"/proc/{self.lab.status()['pid']}/root")
        self._namespace = os.readlink(self._root.parent / "ns/pid")
        self._sockets = {}
        self.control = self.session()
        scenario.addCleanup(self.close)
        self.wait_until_up()
        if settles:
            self._make_settle_policy()

    def close(self):
        """Ends the connections to the lab."""
        for connection in (self.control, *self._sockets.values()):
            connection.close()

    def path(self, inside):
        """A path inside the lab as seen from here."""
        return self._root / inside

    def session(self):
        return Control(self.path("run/mgmtd.sock"))

    def netconf(self):
        """A NETCONF session inside. It ends with the test."""
        session = NetconfSession(self.lab)
        self._scenario.addCleanup(session.close)
        return session

    # ---- Asking ----

    def _ask(self, daemon, request):
        """The answer to words. A refusal fails the test."""
        lines = self._sockets.setdefault(daemon, Lines(self._root / f"run/{daemon}.sock"))
        answer = lines.ask(request)
        if not answer["ok"]:
            raise AssertionError(f"{daemon}: {request}: {answer['error']}")
        return answer

    def peer(self, daemon, *words):
        return self._ask(daemon, " ".join(map(str, words)))

    def fpctl(self, *words):
        return self._ask("fpd", " ".join(["--json", *map(str, words)]))

    def daemon(self, name="tarnd"):
        """What sysmgrd knows of a daemon."""
        return next(row for row in self.peer("sysmgrd", "list")["daemons"] if row["name"] == name)

    def running(self, path="/"):
        return self.control.ask("show", path=path, **{"from": "running"})

    # ---- Processes ----

    def host_pid(self, name):
        """The host's pid of a supervised daemon, or None while there is none."""
        inside = self.daemon(name)["pid"]
        for pid in harness.processes_in_namespace(self._namespace):
            try:
                status = Path(f"/proc/{pid}/status").read_text(encoding="ascii")
            except OSError:
                continue
            numbers = next(line for line in status.splitlines() if line.startswith("NSpid:")).split()
            if inside and int(numbers[-1]) == inside:
                return pid
        return None

    def kill(self, name):
        """kill -9 of a supervised daemon, if it lives. Returns whether it did."""
        pid = self.host_pid(name)
        if pid is None:
            return False
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            return False
        return True

    def end(self, name):
        """Ends a program that the lab itself started, for good until `start`."""
        pid = self.lab.program(name)["pid"]
        self.lab.run("sh", "-c", f"kill -9 {pid}")
        harness.wait_until(lambda: self.lab.run("test", "-e", f"/proc/{pid}", check=False).returncode, f"{name} ends")
        self._sockets.pop(name).close()

    def start(self, name):
        """Starts it again and returns when it takes requests."""
        self.lab.run("sh", "-c", f"{name} >> /run/lab/log/{name} 2>&1 &")
        harness.wait_until(lambda: self.lab.run("peerctl", name, "stats", check=False).returncode == 0,
                           f"{name} is ready", SECONDS)

    def wait_until_up(self):
        """mgmtd serves, the policy daemon has read its configuration and is connected with ftmd."""
        harness.wait_until(self._is_up, "mgmtd and tarnd are up", SECONDS)

    def _is_up(self):
        try:
            daemons = self.control.ask("status").get("daemons", [])
        except Broken:
            return False
        ready = [row for row in daemons if row["name"] == "tarnd" and row["state"] == "ready"]
        return ready and self.daemon()["state"] == "up" and self.peer("ftmd", "stats")["connected"]

    # ---- Configuration ----

    def commit(self, *edits, comment="scenario"):
        """Raises Refused with nothing changed, and Broken when mgmtd ended meanwhile."""
        try:
            self.control.ask("edit", list(edits))
            return self.control.ask("commit", comment=comment)
        except Refused:
            self.control.ask("discard")
            raise

    def load(self, configuration, mode="merge", comment="scenario"):
        self.control.ask("load", configuration, mode=mode)
        return self.control.ask("commit", comment=comment)

    def _make_settle_policy(self):
        self.commit(merge("/policy-from-keelson", {
            "lists": {"vpn-list": [{"name": "settle", "vpn": [{"range": str(SETTLE_VPN)}]}]},
            "data-policy": [{"name": "settle", "vpn-list": [
                {"name": "settle", "default-action": "accept",
                 "sequence": [{"number": 1, "match": {"dscp": [1]}, "action": {"base-action": "accept"}}]}]}]}))

    def settle(self):
        """Returns when ftmd and fpd have all that was sent."""
        path = "/policy-from-keelson/data-policy{settle}/vpn-list{settle}/sequence{1}"
        present = self.running(path)["lumora-policy:sequence"][0]["match"]["dscp"][0]
        harness.wait_until(lambda: self._settle_filter() is not None, "the policy is bound", SECONDS)
        before = self._settle_filter()
        self.commit({"op": "replace", "path": path + "/match", "value": {"dscp": [(present + 1) % 64]}})
        harness.wait_until(lambda: self._settle_filter() not in (None, before), "the last message", SECONDS)
        slots = len(self.fpctl("load")["filters"])
        harness.wait_until(lambda: not self._waits_for_memory(slots), "all programs are loaded", SECONDS)
        harness.wait_until(lambda: self.bindings("fpd") == self.bindings("ftmd"), "fpd has the bindings", SECONDS)

    def _waits_for_memory(self, slots):
        return any(row["filter"] == slots for rows in self.bindings().values() for row in rows)

    def _settle_filter(self):
        """A daemon to which ftmd connects before it has compiled tells a row without a filter, which stays."""
        rows = self.peer("ftmd", "bindings")["vpns"]
        return next((row["filter"] for row in rows if row["name"] == "settle" and row["type"] == "data"), None)

    def bindings(self, daemon="ftmd"):
        table = self.fpctl("bindings") if daemon == "fpd" else self.peer("ftmd", "bindings")
        return {"vpns": table["vpns"], "interfaces": table["interfaces"]}
