#!/usr/bin/python3 -B
"""mgmtd ends and comes back with the same store while the policy daemon lives on: nothing is read again, nothing moves,
and the next commits reach the packets as before, hooks included."""
import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
from router_lab import CONFIG, RouterLab, delete, merge  # noqa: E402
from verdict_text import verdict_text  # noqa: E402

SUPERVISOR = "/etc/default/sysmgrd.json"
SEQUENCE = "/policy-from-keelson/data-policy{edge}/vpn-list{offices}/sequence{10}"
EDGE = {
    "lists": {"vpn-list": [{"name": "offices", "vpn": [{"range": "10"}]}]},
    "data-policy": [{"name": "edge", "vpn-list": [
        {"name": "offices", "default-action": "accept",
         "sequence": [{"number": 10, "match": {"destination-port": ["443"]}, "action": {"base-action": "accept"}}]}]}],
}
ZONES = {
    "zone": [{"name": "inside", "vpn": [{"vpn-id": 1}]}, {"name": "outside", "vpn": [{"vpn-id": 2}]}],
    "zone-based-policy": [{"name": "between", "default-action": "drop"}],
    "zone-pair": [{"name": "way", "source-zone": "inside", "destination-zone": "outside", "zone-policy": "between"}],
}


def supervisor_without_dependence():
    """The lab's, but the policy daemon is left alone when mgmtd ends."""
    files = json.loads(CONFIG.read_text(encoding="utf-8"))["files"]
    daemons = files[SUPERVISOR]["daemons"]
    return {SUPERVISOR: {"daemons": [
        {key: value for key, value in row.items() if key != "restart_with"} for row in daemons]}}


class RouterReconnect(harness.Scenario):
    def state(self):
        return {"bindings": self.router.bindings(), "fpd": self.router.bindings("fpd"),
                "messages": len(self.router.peer("ftmd", "log")["messages"]),
                "words": self.router.lab.run("lab_words").stdout, "pid": self.router.daemon()["pid"]}

    def verdict(self):
        return verdict_text(self.router.fpctl("forward", 10, "ge0/1", "in", "from=service", "192.168.1.5", "10.2.0.1", 40000,
                                              443, "tcp len=100"))

    def reconnect(self):
        mgmtd = self.router.daemon("mgmtd")["pid"]
        self.assertTrue(self.router.kill("mgmtd"))
        harness.wait_until(lambda: self.router.daemon("mgmtd")["pid"] not in (0, None, mgmtd), "a new mgmtd", 30)
        self.router.wait_until_up()

    def test_a_daemon_that_lives_on_goes_on(self):
        self.router = RouterLab(self, "reconnect", files=supervisor_without_dependence())
        self.router.commit(merge("/policy-from-keelson", EDGE))
        self.router.settle()
        for action, verdict in (("drop", "reject:data"), ("accept", "accept"), ("drop", "reject:data")):
            before = self.state()
            self.reconnect()
            self.assertEqual(self.state(), before)
            self.router.commit(merge(SEQUENCE + "/action", {"base-action": action}))
            self.router.settle()
            self.assertEqual(self.verdict(), verdict)
        # The hooks of zone pairs are registered anew, too.
        self.router.commit(merge("/policy", ZONES))
        self.router.commit(delete("/policy/zone-pair{way}"))
        self.assertEqual(self.router.daemon()["pid"], before["pid"])


if __name__ == "__main__":
    harness.main()
