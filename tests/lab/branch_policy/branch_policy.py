#!/usr/bin/python3 -B
"""The example branch in a lab: its objects are loaded, compiled and bound, and every packet of its capture gets the
verdict that a file tells and that a second evaluator finds by the objects. Then objects change, kind after kind.

    branch_policy.py --print-expected > ../../../examples/pipeline/branch.verdicts
"""
import json
import struct
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXAMPLE = HERE.parents[2] / "examples/pipeline"
sys.path[:0] = [str(HERE.parent), str(EXAMPLE)]
import branch_packets  # noqa: E402
import harness  # noqa: E402
import second_opinion  # noqa: E402

CAPTURE = EXAMPLE / "branch.pcap"
EXPECTED_VPNS = (10, 40)  # those of the file
VPNS = (10, 25, 40, 50)  # the last one has no policy
EDGE_OFFICES = ("data", "edge", "offices")
EDGE_GUESTS = ("data", "edge", "guests")
PATHS_OFFICES = ("app-route", "paths", "offices")
PATHS_GUESTS = ("app-route", "paths", "guests")
CONTEXTS = (EDGE_GUESTS, EDGE_OFFICES, PATHS_GUESTS, PATHS_OFFICES)  # in the order of a pass
FIRST_VPN = {"offices": 10, "guests": 40}
SECONDS = 20  # for what takes a moment; sanitizers slow it down


def example_objects():
    objects = second_opinion.Objects()
    objects.apply(json.loads((EXAMPLE / "branch.json").read_text(encoding="ascii")))
    for line in locator_lines():
        objects.announce(line)
    return objects


def locator_lines():
    lines = (EXAMPLE / "locators.script").read_text(encoding="ascii").splitlines()
    return [line for line in lines if line.startswith("announce")]


def without_counts(verdict):
    """A verdict as the file has it."""
    stages = [{name: value for name, value in stage.items() if name != "count"} for stage in verdict["stages"]]
    return {**verdict, "stages": stages}


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
        self.lab = self.start_lab("branch", EXAMPLE / "branch_router.json")
        self.objects = example_objects()
        self.plane = second_opinion.Plane(self.objects)
        for line in locator_lines():
            self.peer("ttmd", *line.split())
        harness.wait_until(lambda: self.peer("ttmd", "list")["clients"], "the daemon has the locators", SECONDS)
        self.seen = 0  # messages at ftmd that were looked at
        self.load(EXAMPLE / "branch.json")
        self.filters = {}
        self.messages(CONTEXTS)

    # ---- Talking to the lab ----

    def peer(self, *words):
        return json.loads(self.lab.run("peerctl", "--json", *map(str, words)).stdout)

    def fpctl(self, *words):
        return json.loads(self.lab.run("fpctl", "--json", *map(str, words)).stdout)

    def load(self, path):
        answer = self.peer("--socket", "/var/run/tarn_loader.sock", "load", path)
        self.assertTrue(answer["ok"], answer)

    def change(self, *operations):
        """Loads operations, here and there."""
        path = self.lab.logs / "change.json"
        path.write_text(json.dumps(operations))
        self.load("/run/lab/log/change.json")
        self.objects.apply(operations)

    def announce(self, line):
        self.peer("ttmd", *line.split())
        self.objects.announce(line)

    def messages(self, contexts):
        """Waits for the messages of a pass that compiles these contexts: in its order, for each one that had a filter
        that filter goes before the new one comes. Nothing else comes, and the other filters stay bound."""
        wanted = []
        for key in contexts:
            wanted += ([("vpn-filter-delete", key, self.filters[key])] if key in self.filters else [])
            wanted += [("vpn-filter-add", key, None)]
        harness.wait_until(lambda: len(self._rows()) >= len(wanted), f"{len(wanted)} messages", SECONDS)
        rows = self._rows()
        types = {"data": "data", "app-route": "application-route"}
        for row, (message, key, old) in zip(rows, wanted, strict=True):
            told = (row["message"], row["type"], row["name"], row["vpns"][0]["min"])
            self.assertEqual(told, (message, types[key[0]], key[1], FIRST_VPN[key[2]]), rows)
            self.assertEqual(old is None, message == "vpn-filter-add")
            if old is None:
                self.assertNotEqual(row["filter"], self.filters.get(key), "a new program, a new filter")
                self.filters[key] = row["filter"]
            else:
                self.assertEqual(row["filter"], old)
        self.seen += len(rows)
        self.plane.recompiled(*contexts)
        self._bindings_agree()

    def _rows(self):
        return self.peer("ftmd", "log")["messages"][self.seen:]

    def _bindings_agree(self):
        """fpd has what ftmd has, and every context its filter."""
        table = self.peer("ftmd", "bindings")
        bound = {(row["name"], row["min"]): row["filter"] for row in table["vpns"]}
        for key, filter_id in self.filters.items():
            self.assertEqual(bound[key[1], FIRST_VPN[key[2]]], filter_id, key)
        harness.wait_until(lambda: self.fpctl("bindings")["vpns"] == table["vpns"], "fpd has the bindings", SECONDS)

    def replay(self, vpn):
        words = ["replay", "--vpn", vpn, "--interface", "ge0/1", "--direction", "in", CAPTURE, "--sidecar",
                 "--verdicts", "/run/lab/log/verdicts"]
        answer = self.fpctl(*words)
        self.assertTrue(answer["ok"], answer)
        return [verdict_of(line) for line in (self.lab.logs / "verdicts").read_text().splitlines()]

    def check(self, vpns=VPNS):
        """Every packet's verdict, in these VPNs. Returns fpd's in the last one."""
        for vpn in vpns:
            told = self.replay(vpn)
            for verdict, want in zip(told, self.plane.replay(vpn, branch_packets.PACKETS), strict=True):
                self.assertEqual(verdict, want, f"VPN {vpn}, {branch_packets.PACKETS[want['frame'] - 1]}")
        return told

    # ---- Tests ----

    def test_every_packet_gets_its_verdict(self):
        lines = (EXAMPLE / "branch.verdicts").read_text(encoding="ascii").splitlines()
        expected = [json.loads(line) for line in lines]
        got = [{"vpn": vpn, **without_counts(verdict)} for vpn in EXPECTED_VPNS for verdict in self.check([vpn])]
        for verdict, want in zip(got, expected, strict=True):
            self.assertEqual(verdict, want)
        self._check_copies([verdict["frame"] for verdict in expected if "mirrors" in verdict["treatment"]])
        self.check()

    def _check_copies(self, frames):
        """The copies of mirrored packets are those frames, as they came."""
        data = (self.lab.logs / "copies.pcap").read_bytes()
        place, copies = 24, []
        while place < len(data):
            size = struct.unpack_from("=I", data, place + 8)[0]
            copies.append(data[place + 16:place + 16 + size])
            place += 16 + size
        self.assertEqual(copies, [branch_packets.frame(branch_packets.PACKETS[number - 1]) for number in frames])

    def test_lists_and_classes_reach_exactly_their_users(self):
        self.check()
        self.change({"op": "change", "prefix-list": "partners", "remove": ["172.16.0.0/12"],
                     "add": ["172.16.0.0/16", "172.32.0.0/16"]})
        self.messages([EDGE_OFFICES])
        self.check()
        self.change({"op": "change", "prefix-list": "blocked", "remove": ["192.168.66.0/24"]})
        self.messages([EDGE_GUESTS, EDGE_OFFICES])
        self.check()
        for step in ("delete", "create"):
            self.change({"op": step, "class": "voice"})
            self.messages([EDGE_OFFICES])
            self.check()
        for step in ("delete", "create"):
            self.change({"op": step, "sla-class": "business"})
            self.messages([PATHS_OFFICES])
            self.check()
        self.change({"op": "change", "mirror": "collector",
                     "tunnel": {"source": "10.255.0.101", "destination": "10.255.0.201"}})
        self.messages([EDGE_GUESTS, EDGE_OFFICES])
        self.check()

    def test_locators_that_go_down_are_left_for_the_next_preference(self):
        lost = ["10.255.0.1 mpls ipsec", "10.255.0.2 mpls ipsec", "10.255.0.1 biz-internet ipsec",
                "10.255.0.3 lte ipsec"]
        for locator in lost:
            self.announce(f"announce {locator} status=down")
            self.messages([EDGE_OFFICES])
            self.check([25])
        paths = {verdict["treatment"]["path"] for verdict in self.check([10])}
        self.assertNotIn("locator", paths)
        self.announce(f"announce {lost[0]} status=up")
        self.messages([EDGE_OFFICES])
        self.check()

    def test_a_policer_changes_in_its_running_program(self):
        self.check([40])
        self.change({"op": "change", "policer": "guest-web", "rate": 80, "burst": 100000})
        loaded = self.fpctl("load")
        # The larger burst lets all of the capture's packets through.
        self.assertNotIn("policer-drop", {verdict["verdict"] for verdict in self.check([40])})
        before = self._probe()
        self.change({"op": "change", "policer": "guest-web", "rate": 40})
        after = self._probe()
        self.assertEqual(after["packets"], before["packets"] + 1)
        self.assertAlmostEqual(after["rate"] / before["rate"], 2, 3)
        self.assertAlmostEqual(after["burst"] / before["burst"], 2, 3)
        # A new program's bucket would be full.
        self.assertLess(after["tokens"] - before["tokens"], before["burst"] / 2)
        self.assertGreaterEqual(after["tokens"], before["tokens"])
        self.change({"op": "change", "policer": "guest-web", "rate": 8000, "burst": 700})
        self.check([40, 10])
        self.assertEqual([row["hw-index"] for row in self.fpctl("load")["filters"]],
                         [row["hw-index"] for row in loaded["filters"]])
        self.messages([])

    def _probe(self):
        """Counter and policer of the guests' way to the web, seen by a packet without a length."""
        words = ["forward", 40, "ge0/1", "in", "192.168.1.9", "93.184.216.34", 40000, 443, "tcp", "len=0"]
        actions = {action["action"]: action for action in self.fpctl(*words)["stages"][-1]["actions"]}
        self.plane.counters[EDGE_GUESTS, (30,)][0] += 1
        self.plane.counters[PATHS_GUESTS, (10,)][0] += 1
        policer = {name: actions["police"][name] for name in ("tokens", "rate", "burst")}
        return {"packets": actions["count"]["packets"], **policer}


class Example(unittest.TestCase):
    def test_the_stored_packets_are_those_that_the_generator_makes(self):
        self.assertEqual(CAPTURE.read_bytes(), branch_packets.capture())
        self.assertEqual((EXAMPLE / "branch.pcap.fields").read_text(encoding="ascii"), branch_packets.sidecar())


def print_expected():
    plane = second_opinion.Plane(example_objects())
    for vpn in EXPECTED_VPNS:
        for verdict in plane.replay(vpn, branch_packets.PACKETS):
            print(json.dumps({"vpn": vpn, **without_counts(verdict)}))


if __name__ == "__main__":
    if sys.argv[1:] == ["--print-expected"]:
        print_expected()
    else:
        harness.main()
