#!/usr/bin/python3 -B
"""The main road, step by step: one commit over NETCONF makes lists, a policy, a context and sequences; it is compiled once
and bound once, and packets meet it. Then single changes, and what each of them moves."""
import json
import struct
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import harness  # noqa: E402
from control_socket import Refused  # noqa: E402
from router_lab import SECONDS, RouterLab, delete, merge  # noqa: E402
from verdict_text import verdict_text  # noqa: E402

COMMIT = str(harness.REPOSITORY / "examples/netconf_commit.py")
POLICY = "/policy-from-keelson/data-policy{edge}"
SEQUENCE = POLICY + "/vpn-list{offices}/sequence{10}"
VPNS = [{"min": 10, "max": 10}, {"min": 20, "max": 29}]
# Parsers that count: the policy's, the context's, one for each sequence.
FIRST_GENERATIONS = 4


class RouterRoad(harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "road", settles=False)
        self.before = self.words()
        self.seen = 0
        done = self.router.lab.run(harness.PYTHON, "-B", COMMIT, str(HERE / "edge.xml"), timeout=SECONDS)
        self.assertIn("committed", done.stdout)

    def words(self):
        return json.loads(self.router.lab.run("lab_words").stdout)

    def messages(self, count):
        """The next messages at ftmd, which are so many."""
        def rows():
            return [row for row in self.router.peer("ftmd", "log")["messages"] if row["sequence"] > self.seen]
        harness.wait_until(lambda: len(rows()) >= count, f"{count} messages", SECONDS)
        harness.wait_until(lambda: self.router.bindings("fpd") == self.router.bindings(), "fpd has the bindings", SECONDS)
        found = rows()
        self.assertEqual(len(found), count, found)
        self.seen = found[-1]["sequence"] if found else self.seen
        for row in found:
            self.assertEqual(row["bytes"], self.bytes_of(row))
        return [{name: row[name] for name in ("message", "type", "direction", "name", "vpns", "filter")} for row in found]

    @staticmethod
    def bytes_of(row):
        """The message on the wire, in hexadecimal."""
        kind = {"vpn-filter-add": 1, "vpn-filter-delete": 2}[row["message"]]
        direction = {"tunnel": 1, "service": 2, "both": 3}[row["direction"]]
        head = struct.pack(">BBBi128sI", kind, 1, direction, row["filter"], row["name"].encode(), len(VPNS))
        return (head + b"".join(struct.pack(">II", vpn["min"], vpn["max"]) for vpn in VPNS)).hex()

    def message(self, kind, filter_id, direction="service"):
        return {"message": f"vpn-filter-{kind}", "type": "data", "direction": direction, "name": "edge", "vpns": VPNS,
                "filter": filter_id}

    def programs(self):
        return {row["filter"]: row["program"] for row in self.router.fpctl("load")["filters"] if row["valid"]}

    def packet(self, vpn, destination, port, side="service"):
        return verdict_text(self.router.fpctl("forward", vpn, "ge0/1", "in", f"from={side}", "192.168.1.5", destination, 40000,
                                              port, "tcp len=100"))

    def counter(self, destination, port):
        told = self.router.fpctl("forward", 10, "ge0/1", "in", "192.168.1.5", destination, 40000, port, "tcp len=0")
        return next(action for action in told["stages"][-1]["actions"] if action["action"] == "count")["packets"]

    def test_one_commit_is_compiled_and_bound_once(self):
        bound = self.messages(1)[0]
        filter_id = bound["filter"]
        self.assertEqual(bound, self.message("add", filter_id))
        self.assertEqual(self.programs(), {filter_id: "edge"})
        self.assertEqual(self.words()["generation"] - self.before["generation"], FIRST_GENERATIONS)
        self.assertEqual(self.packet(10, "10.1.0.1", 443), "accept +servers")
        self.assertEqual(self.packet(25, "10.2.0.1", 23), "reject:data +telnet")
        self.assertEqual(self.packet(30, "10.2.0.1", 23), "accept")
        self.assertEqual(self.packet(25, "10.2.0.1", 23, side="tunnel"), "accept")
        self.assertEqual(self.counter("10.1.0.1", 443), 2)  # this one, too

    def test_a_changed_sequence_is_a_new_program_in_the_old_one_s_place(self):
        old = self.messages(1)[0]["filter"]
        generation = self.words()["generation"]
        self.router.commit(merge(SEQUENCE + "/action", {"base-action": "drop"}))
        gone, come = self.messages(2)
        self.assertEqual(gone, self.message("delete", old))
        self.assertEqual(come, self.message("add", come["filter"]))  # with the direction that was set
        self.assertNotEqual(come["filter"], old)
        self.assertEqual(self.words()["generation"] - generation, 1)
        self.assertEqual(self.packet(10, "10.1.0.1", 443), "reject:data +servers")
        harness.wait_until(lambda: old not in self.programs(), "the old program is released", SECONDS)

        # Only what is bound changes with the direction.
        self.router.commit(merge(POLICY, {"direction": "from-tunnel"}))
        self.assertEqual({(row["message"], row["direction"]) for row in self.messages(1)}, {("vpn-filter-add", "tunnel")})
        self.router.commit(delete(POLICY))
        self.assertEqual(self.messages(1), [self.message("delete", come["filter"], "tunnel")])
        self.assertEqual(self.packet(10, "10.1.0.1", 443), "accept")
        harness.wait_until(lambda: self.programs() == {}, "no program is left", SECONDS)

    def test_refused_commits_and_rollback(self):
        first = self.messages(1)[0]["filter"]
        generation = self.words()["generation"]
        for edit in (delete("/policy-from-keelson/lists/data-prefix-list{servers}"),
                     merge(SEQUENCE + "/match", {"dscp": [64]}), merge(SEQUENCE + "/match", {"app-list": "missing"})):
            with self.assertRaises(Refused):
                self.router.commit(edit)
        self.assertEqual(self.messages(0), [])
        self.assertEqual(self.words()["generation"], generation)
        self.router.commit(merge("/policy-from-keelson/lists/data-prefix-list{servers}/ip-prefix{10.9.0.0/16}"))
        second = self.messages(2)[1]["filter"]
        self.assertEqual(self.packet(10, "10.9.0.1", 443), "accept +servers")
        self.router.control.ask("rollback", number=1)
        self.router.control.ask("commit", comment="back")
        self.assertEqual([row["filter"] for row in self.messages(2)][0], second)
        self.assertEqual(self.packet(10, "10.9.0.1", 443), "accept")
        self.assertNotEqual(first, second)


if __name__ == "__main__":
    harness.main()
