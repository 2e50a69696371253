#!/usr/bin/python3 -B
"""The example branch in a lab: every packet of its capture gets the verdict that a second evaluator finds by the
running configuration. Then objects change, kind after kind: exactly the programs of their users are made anew."""
import json
import struct
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXAMPLES = HERE.parents[2] / "examples"
sys.path[:0] = [str(HERE.parent), str(EXAMPLES)]
import harness  # noqa: E402
import packets  # noqa: E402
import second_opinion  # noqa: E402
from router_lab import SECONDS, RouterLab, delete, merge  # noqa: E402

PACKETS = [packet for packet in packets.read(EXAMPLES / "branch.packets")[1] for _ in range(packet.count)]
OFFICE, GUEST = (10, "ge0/1"), (40, "ge0/2")
PLACES = (OFFICE, (25, "ge0/3"), GUEST, (50, "ge0/3"))  # the last one has no policy
EDGE_OFFICES = ("data", "edge", "offices")
EDGE_GUESTS = ("data", "edge", "guests")
PATHS_OFFICES = ("app-route", "paths", "offices")
PATHS_GUESTS = ("app-route", "paths", "guests")
CONTEXTS = (EDGE_GUESTS, EDGE_OFFICES, PATHS_GUESTS, PATHS_OFFICES)  # in the order of a pass
FIRST_VPN = {"offices": 10, "guests": 40}
LOCAL, KEELSON = "/policy", "/policy-from-keelson"
PREFIXES = KEELSON + "/lists/data-prefix-list"
GUEST_WEB = KEELSON + "/policer{guest-web}"


def stage_of(shown):
    """What the second evaluator tells of a stage, out of what fpd tells."""
    stage = {name: shown[name] for name in ("stage", "verdict", "default")}
    for action in shown["actions"]:
        if action["action"] == "count":
            stage["count"] = [action["name"], action["packets"], action["bytes"]]
        if action["action"] == "police":
            stage["policer"] = action["packet"]
    return stage


def verdict_of(line):
    """The same of a frame's line."""
    told = json.loads(line)
    verdict = {name: told[name] for name in ("frame", "verdict", "dropped-by", "plp", "treatment") if name in told}
    return {**verdict, "stages": [stage_of(stage) for stage in told["stages"]]}


class BranchPolicy(harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "branch")
        self.objects = second_opinion.Objects()
        self.plane = second_opinion.Plane(self.objects)
        for line in (EXAMPLES / "branch.locators").read_text(encoding="ascii").splitlines():
            if line.startswith("announce"):
                self.announce(line)
        harness.wait_until(lambda: self.router.peer("ttmd", "list")["clients"], "the daemon has the locators", SECONDS)
        self.router.lab.run(harness.PYTHON, "-B", str(EXAMPLES / "netconf_commit.py"), str(EXAMPLES / "branch.xml"),
                            timeout=SECONDS)
        self.objects.read(self.router.running())
        self.router.settle()
        self.filters = self._bound()
        self.seen = self.router.peer("ftmd", "log")["messages"][-1]["sequence"]  # of those that were looked at

    # ---- Talking to the lab ----

    def change(self, *edits):
        """Commits, and tells the second evaluator."""
        self.router.commit(*edits)
        self.objects.read(self.router.running())

    def announce(self, line):
        self.router.peer("ttmd", line)
        self.objects.announce(line)

    def messages(self, contexts):
        """Waits for the messages of a pass that compiles these contexts: in its order, for each its
        old filter goes before the new one comes. Nothing else comes, and the other filters stay bound."""
        wanted = [(message, key) for key in contexts for message in ("vpn-filter-delete", "vpn-filter-add")]
        harness.wait_until(lambda: len(self._rows()) >= len(wanted), f"{len(wanted)} messages", SECONDS)
        self.router.settle()
        rows = self._rows()
        types, filters = {"data": "data", "app-route": "application-route"}, dict(self.filters)
        for row, (message, key) in zip(rows, wanted, strict=True):
            told = (row["message"], row["type"], row["name"], row["vpns"][0]["min"])
            self.assertEqual(told, (message, types[key[0]], key[1], FIRST_VPN[key[2]]), rows)
            self.assertEqual(row["filter"] == self.filters[key], message == "vpn-filter-delete", rows)
            filters[key] = row["filter"]
        self.filters, self.seen = filters, rows[-1]["sequence"] if rows else self.seen
        self.assertEqual(self._bound(), filters)
        self.plane.recompiled(*contexts)

    def _bound(self):
        """fpd's filter of each context."""
        bound = {(row["name"], row["min"]): row["filter"] for row in self.router.bindings("fpd")["vpns"]}
        return {key: bound[key[1], FIRST_VPN[key[2]]] for key in CONTEXTS}

    def _rows(self):
        """New messages about the branch's policies."""
        return [row for row in self.router.peer("ftmd", "log")["messages"]
                if row["sequence"] > self.seen and row.get("name") in ("edge", "paths")]

    def check(self, *places):
        """Every packet's verdict, at these places or all. Returns those of the last one."""
        for vpn, interface in places or PLACES:
            self.router.fpctl("replay", "--vpn", vpn, "--interface", interface, "--direction", "in",
                              EXAMPLES / "branch.pcap", "--sidecar", "--verdicts", "/run/lab/log/verdicts")
            lines = (self.router.lab.logs / "verdicts").read_text(encoding="utf-8").splitlines()
            told = [verdict_of(line) for line in lines]
            for verdict, want in zip(told, self.plane.replay(vpn, interface, PACKETS), strict=True):
                self.assertEqual(verdict, want, f"VPN {vpn}, {PACKETS[want['frame'] - 1].line}")
        return told

    # ---- Tests ----

    def test_lists_and_classes_reach_exactly_their_users(self):
        self._check_copies([verdict["frame"] for place in PLACES for verdict in self.check(place)
                            if "mirrors" in verdict["treatment"]])
        partners = PREFIXES + "{partners}/ip-prefix"
        for edits in ([delete(partners + "{172.16.0.0/12}")],
                      [merge(partners + "{172.16.0.0/16}"), merge(partners + "{172.32.0.0/16}")]):
            self.change(*edits)
            self.messages([EDGE_OFFICES])
            self.check()
        self.change(delete(PREFIXES + "{blocked}/ip-prefix{192.168.66.0/24}"))
        self.messages([EDGE_GUESTS, EDGE_OFFICES])
        self.check()
        for path, users in ((LOCAL + "/class-map/class{voice}", [EDGE_OFFICES]),
                            (KEELSON + "/sla-class{business}", [PATHS_OFFICES])):
            for step in (delete, merge):
                self.change(step(path))
                self.messages(users)
                self.check()
        self.change(merge(LOCAL + "/mirror{collector}/remote-dest{10.255.0.200}", {"source": "10.255.0.101"}))
        self.messages([EDGE_GUESTS, EDGE_OFFICES])
        self.check()

    def _check_copies(self, frames):
        """The copies of mirrored packets are those frames, as they came."""
        data = (self.router.lab.logs / "copies.pcap").read_bytes()
        place, copies = 24, []
        while place < len(data):
            size = struct.unpack_from("=I", data, place + 8)[0]
            copies.append(data[place + 16:place + 16 + size])
            place += 16 + size
        self.assertEqual(copies, [packets.frame(PACKETS[number - 1]) for number in frames])

    def test_locators_that_go_down_are_left_for_the_next_preference(self):
        lost = ["10.255.0.1 mpls ipsec", "10.255.0.2 mpls ipsec", "10.255.0.1 biz-internet ipsec",
                "10.255.0.3 lte ipsec"]
        for locator in lost:
            self.announce(f"announce {locator} status=down")
            self.messages([EDGE_OFFICES])
            self.check(PLACES[1])
        paths = {verdict["treatment"]["path"] for verdict in self.check(OFFICE)}
        self.assertNotIn("locator", paths)
        self.announce(f"announce {lost[0]} status=up")
        self.messages([EDGE_OFFICES])
        self.check()

    def test_a_policer_changes_in_its_running_program(self):
        self.check(GUEST)
        self.change(merge(GUEST_WEB, {"rate": "80", "burst": 100000}))
        # The larger burst lets all of the capture's packets through.
        self.assertNotIn("policer-drop", {verdict["verdict"] for verdict in self.check(GUEST)})
        before = self._probe()
        self.change(merge(GUEST_WEB, {"rate": "40"}))
        after = self._probe()
        self.assertEqual(after["packets"], before["packets"] + 1)
        self.assertAlmostEqual(after["rate"] / before["rate"], 2, 3)
        self.assertAlmostEqual(after["burst"] / before["burst"], 2, 3)
        # A new program's bucket would be full.
        self.assertLess(after["tokens"] - before["tokens"], before["burst"] / 2)
        self.assertGreaterEqual(after["tokens"], before["tokens"])
        self.change(merge(GUEST_WEB, {"rate": "8000", "burst": 700}))
        self.check(GUEST, OFFICE)
        self.messages([])

    def _probe(self):
        """Counter and policer of the guests' way to the web, seen by a packet without a length."""
        words = ("forward", *GUEST, "in", "192.168.1.9", "93.184.216.34", 40000, 443, "tcp len=0")
        actions = {action["action"]: action for action in self.router.fpctl(*words)["stages"][-1]["actions"]}
        self.plane.counters[EDGE_GUESTS, (30,)][0] += 1
        self.plane.counters[PATHS_GUESTS, (10,)][0] += 1
        policer = {name: actions["police"][name] for name in ("tokens", "rate", "burst")}
        return {"packets": actions["count"]["packets"], **policer}


if __name__ == "__main__":
    harness.main()
