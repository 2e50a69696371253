#!/usr/bin/python3 -B
"""The examples in a lab: each is committed over NETCONF, and every packet of its capture gets the verdict that stands
beside it in the example's file of packets."""
import json
import sys
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parents[2] / "examples")]
import harness  # noqa: E402
import packets  # noqa: E402
from router_lab import RouterLab  # noqa: E402
from verdict_text import verdict_text  # noqa: E402

EXAMPLES = harness.REPOSITORY / "examples"
COMMIT = str(EXAMPLES / "netconf_commit.py")
HUBS = {1, 2, 3}  # indexes of the locators that share the branch's voice


class RouterExamples(harness.Scenario):
    def commit(self, name):
        """The router with an example committed and its locators announced."""
        router = RouterLab(self, name)
        locators = EXAMPLES / f"{name}.locators"
        for line in locators.read_text(encoding="ascii").splitlines() if locators.exists() else []:
            if not line.startswith("#"):
                router.peer("ttmd", line)
        router.lab.run(harness.PYTHON, "-B", COMMIT, str(EXAMPLES / f"{name}.xml"), timeout=60)
        router.settle()
        return router

    def check(self, router, name):
        """Replays the capture at each place. Returns the answers by place."""
        places, rows = packets.read(EXAMPLES / f"{name}.packets")
        names = self.class_names(router)
        answers = {}
        for place, members in places.items():
            words = ["replay"]
            for member, value in members.items():
                words += [f"--{member}", value]
            here = [packet for packet in rows if place in packet.expected]
            (router.lab.logs / "pcap").write_bytes(packets.capture(here))
            (router.lab.logs / "pcap.fields").write_text(packets.sidecar(here), encoding="ascii")
            router.fpctl(*words, "/run/lab/log/pcap", "--sidecar", "--verdicts", "/run/lab/log/verdicts")
            lines = (router.lab.logs / "verdicts").read_text(encoding="utf-8").splitlines()
            answers[place] = [json.loads(line) for line in lines]
            frames = [packet for packet in here for _ in range(packet.count)]
            for packet, answer in zip(frames, answers[place], strict=True):
                self.assertEqual(verdict_text(answer, *names), packet.expected[place], f"{place}: {packet.line}")
        return answers

    @staticmethod
    def class_names(router):
        """Classes and SLA classes by number: numbers are given in the order of the configuration."""
        config = router.running()
        classes = config.get("lumora-policy:policy", {}).get("class-map", {}).get("class", [])
        sla_classes = config.get("lumora-policy:policy-from-keelson", {}).get("sla-class", [])
        return [{number: entry["name"] for number, entry in enumerate(entries, 1)} for entries in (classes, sla_classes)]

    def test_branch(self):
        router = self.commit("branch")
        answers = self.check(router, "branch")
        locators = {answer["treatment"]["locator"]["tloc-index"] for answer in answers["office"]
                    if answer["treatment"].get("locator", {}).get("from") == "tloc-list"}
        self.assertLessEqual(locators, HUBS)
        self.assertGreater(len(locators), 1, "calls are spread over the hubs")

    def test_data_centre(self):
        self.check(self.commit("datacentre"), "datacentre")

    def test_application_aware_routing(self):
        self.check(self.commit("app-route"), "app-route")

    def test_guest_firewall(self):
        self.check(self.commit("guest-firewall"), "guest-firewall")


class Captures(unittest.TestCase):
    def test_they_are_those_that_the_files_of_packets_tell(self):
        for path in EXAMPLES.glob("*.packets"):
            for target, content in packets.outputs(path).items():
                self.assertEqual(target.read_bytes(), content, target.name)


if __name__ == "__main__":
    harness.main()
