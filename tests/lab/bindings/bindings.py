#!/usr/bin/python3 -B
"""What is configured is bound, what is bound is forwarded: the daemon's messages in order, and what comes of them.

Each step commits something, or ends a daemon, and looks at what ftmd got meanwhile, at its table, and at what fpd does
with packets.
"""
import json
import sys
import unittest.mock
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import harness  # noqa: E402
from router_lab import SECONDS, RouterLab, delete, merge  # noqa: E402

KEELSON = "/policy-from-keelson"
CORP = [(10, 10), (20, 30)]  # the ranges of list corp
EDGE, PATHS = KEELSON + "/data-policy{edge}", KEELSON + "/app-route-policy{paths}"
CORP_RANGE = KEELSON + "/lists/vpn-list{corp}/vpn{50-59}"
LOCATOR = ("192.0.2.1", "mpls", "ipsec")


def rows(filter_type, filter_id, direction, name, ranges):
    """Rows of the table, as ftmd and fpd show them."""
    row = {"type": filter_type, "filter": filter_id, "direction": direction, "name": name}
    return [{**row, "min": low, "max": high} for low, high in ranges]


def message(kind, filter_type, filter_id, direction, name, ranges):
    """A message, as ftmd logs it."""
    return {"message": f"vpn-filter-{kind}", "type": filter_type, "direction": direction, "filter": filter_id,
            "name": name, "vpns": [{"min": low, "max": high} for low, high in ranges]}


FIRST = [message("add", "data", 0, "service", "edge", CORP),
         message("add", "application-route", 1, "none", "paths", CORP)]


class Bindings(harness.Scenario):
    def start_router(self, name):
        self.router = RouterLab(self, name, settles=False)
        self.seen = 0  # messages of ftmd's log
        return self.router

    def load_base(self):
        self.router.load(json.loads((HERE / "base.json").read_text(encoding="ascii")))

    # ---- What came of it ----

    def assert_messages(self, *expected):
        """What ftmd got since the last time, in order."""
        def log():
            found = self.router.peer("ftmd", "log")["messages"][self.seen:]
            return found if len(found) >= len(expected) else None
        found = harness.wait_until(log, f"{len(expected)} messages at ftmd", SECONDS)
        self.seen += len(found)
        for row in found:
            del row["sequence"], row["connection"], row["bytes"]
        self.assertEqual(found, list(expected))
        return found

    def assert_table(self, *expected):
        """ftmd's table, and fpd's."""
        table = [row for part in expected for row in part]
        self.assertEqual(self.router.bindings()["vpns"], table)
        harness.wait_until(lambda: self.router.bindings("fpd")["vpns"] == table, "fpd has the table", SECONDS)

    def forward(self, vpn, port, side="service"):
        """The way of a packet when fpd has what ftmd has."""
        harness.wait_until(lambda: self.router.bindings() == self.router.bindings("fpd"), "fpd has the table", SECONDS)
        return self.way(vpn, port, side)

    def way(self, vpn, port, side="service"):
        """The way of a packet to a server: its verdict, and the names of the stages' bindings."""
        answer = self.router.fpctl("forward", vpn, "ge0/1", "in", f"from={side}", "192.0.2.7", "10.1.0.5", 40000, port,
                                   "udp len=100")
        return answer["verdict"], [stage["name"] for stage in answer["stages"]]

    def assert_nothing_malformed(self):
        stats = self.router.peer("ftmd", "stats")
        self.assertEqual((stats["malformed"], stats["bad-frames"], stats["missed-deletes"]), (0, 0, 0))

    # ---- Tests ----

    def test_changes_are_told_one_by_one(self):
        router = self.start_router("changes")
        self.load_base()
        self.assert_messages(*FIRST)
        self.assert_table(rows("data", 0, "service", "edge", CORP), rows("application-route", 1, "none", "paths", CORP))
        for vpn, port, side, expected in (
                (10, 53, "service", ("accept", ["paths", "edge"])),
                (25, 80, "service", ("reject", ["paths", "edge"])),
                (25, 80, "tunnel", ("accept", ["paths"])),
                (19, 80, "service", ("accept", [])),
                (40, 80, "service", ("accept", []))):  # bound without sequences, so without a program
            self.assertEqual(self.forward(vpn, port, side), expected, (vpn, port, side))

        # A range that joins or leaves is told alone, to those who use the list.
        for kind, edit, expected in (("add", merge, ("reject", ["paths", "edge"])), ("delete", delete, ("accept", []))):
            router.commit(edit(CORP_RANGE))
            self.assert_messages(message(kind, "data", 0, "service", "edge", [(50, 59)]),
                                 message(kind, "application-route", 1, "none", "paths", [(50, 59)]))
            self.assertEqual(self.forward(55, 80), expected)

        # A direction is told at once, over the old one, for contexts without a program, too.
        router.commit(merge(EDGE, {"direction": "from-tunnel"}))
        self.assert_messages(message("add", "data", 0, "tunnel", "edge", CORP),
                             message("add", "none", -1, "tunnel", "edge", [(40, 40)]))
        self.assertEqual(self.forward(25, 80), ("accept", ["paths"]))
        self.assertEqual(self.forward(25, 80, "tunnel"), ("reject", ["paths", "edge"]))

        router.commit(delete(PATHS))
        self.assert_messages(message("delete", "application-route", 1, "none", "paths", CORP))
        router.commit(delete(EDGE))
        self.assert_messages(message("delete", "data", 0, "tunnel", "edge", CORP))
        # What was told without a program is not taken back: no packet meets it.
        self.assert_table(rows("none", -1, "tunnel", "edge", [(40, 40)]))

        # Flows are cleared when nobody wants applications to be recognised any more.
        for wanted in (True, False):
            router.commit(merge("/policy", {"app-visibility": wanted}))
        self.assert_messages({"message": "dpi-clear-flows"})
        self.assert_nothing_malformed()

    def test_a_locator_changes_a_program(self):
        router = self.start_router("locator")
        router.peer("ttmd", "announce", *LOCATOR, "index=7")
        harness.wait_until(lambda: router.peer("ttmd", "list")["clients"], "the daemon registers", SECONDS)
        tloc = dict(zip(("ip", "color", "encap"), LOCATOR), label=1003)
        router.commit(merge(KEELSON, {
            "lists": {"vpn-list": [{"name": "dc", "vpn": [{"range": "60"}]}]},
            "data-policy": [{"name": "wan", "vpn-list": [{"name": "dc", "default-action": "accept", "sequence": [
                {"number": 10, "match": {"protocol": [17]},
                 "action": {"base-action": "accept", "set": {"tloc": tloc}}}]}]}]}))
        self.assert_messages(message("add", "data", 0, "all", "wan", [(60, 60)]))
        self.assert_table(rows("data", 0, "all", "wan", [(60, 60)]))
        self.assertTrue(self.is_resolved())
        router.peer("ttmd", "withdraw", *LOCATOR)
        self.assert_another_program()
        self.assertFalse(self.is_resolved())
        router.peer("ttmd", "announce", *LOCATOR, "index=7")
        self.assert_another_program()
        self.assertTrue(self.is_resolved())

        # Neither the loss of the manager nor its return with the same locator is a change.
        router.end("ttmd")
        router.start("ttmd")
        harness.wait_until(lambda: router.peer("ttmd", "list")["clients"], "the daemon registers anew", SECONDS)
        router.peer("ttmd", "announce", *LOCATOR, "index=7")
        router.peer("ttmd", "withdraw", *LOCATOR)
        self.assert_another_program()
        self.assert_nothing_malformed()

    def is_resolved(self):
        """Whether a packet of VPN 60 finds its locator."""
        answer = self.router.fpctl("forward", 60, "ge0/1", "in", "proto=udp")
        return answer["stages"][0]["actions"][0]["resolved"]

    def assert_another_program(self):
        """Policy wan has got another program, once."""
        told = [message(kind, "data", unittest.mock.ANY, "all", "wan", [(60, 60)]) for kind in ("delete", "add")]
        old, new = self.assert_messages(*told)
        self.assertNotEqual(old["filter"], new["filter"])
        self.assert_table(rows("data", new["filter"], "all", "wan", [(60, 60)]))

    def test_bindings_outlive_ftmd_and_are_told_anew(self):
        router = self.start_router("killed")
        self.load_base()
        self.assert_messages(*FIRST)

        before = self.forward(25, 80)
        router.end("ftmd")
        self.assertEqual(self.way(25, 80), before, "fpd keeps the table")
        router.start("ftmd")
        self.seen = 0
        self.assert_told_anew()

        # A new daemon has its configuration before it is connected.
        self.assertTrue(router.kill("tarnd"))
        harness.wait_until(lambda: router.peer("ftmd", "stats")["connections"] == 2, "ftmd is back", SECONDS)
        router.wait_until_up()
        self.assert_told_anew()
        self.assert_nothing_malformed()

    def assert_told_anew(self):
        """All is told at once, under the names of the lists, and contexts without a program are told as well."""
        self.assert_messages(message("add", "data", 0, "service", "corp", CORP),
                             message("add", "none", -1, "service", "guest", [(40, 40)]),
                             message("add", "application-route", 1, "none", "corp", CORP))
        self.assert_table(rows("none", -1, "service", "guest", [(40, 40)]), rows("data", 0, "service", "corp", CORP),
                          rows("application-route", 1, "none", "corp", CORP))
        self.assertEqual(self.forward(25, 80), ("reject", ["corp", "corp"]))


if __name__ == "__main__":
    harness.main()
