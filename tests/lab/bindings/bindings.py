#!/usr/bin/python3 -B
"""What is configured is bound, what is bound is forwarded: the daemon's messages in order, and what comes of them.

tarn_loader is the daemon with objects from files. Each step loads some operations and looks at what ftmd got meanwhile,
at its table, and at what fpd does with packets.
"""
import ipaddress
import json
import signal
import struct
import sys
import unittest.mock
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
from channels import peers_lab  # noqa: E402

BASE = Path(__file__).with_name("base.json")
SOCKET = "/var/run/tarn_loader.sock"
CORP = [(10, 10), (20, 30)]  # the ranges of list corp
EDGE = {"policy": "edge", "type": "data"}
PATHS = {"policy": "paths", "type": "app-route"}
LOCATOR = ("192.0.2.1", "mpls", "ipsec")


def udp_frame(destination, port):
    """An Ethernet frame with an IPv4 packet of 100 bytes."""
    addresses = ipaddress.ip_address("192.0.2.7").packed + ipaddress.ip_address(destination).packed
    packet = struct.pack(">BBHHHBBH", 0x45, 0, 100, 0, 0, 64, 17, 0) + addresses
    packet += struct.pack(">HHHH", 40000, port, 80, 0)
    return bytes(12) + b"\x08\x00" + packet.ljust(100, b"\0")


def capture(frames):
    head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
    return head + b"".join(struct.pack("<IIII", 1, 0, len(frame), len(frame)) + frame for frame in frames)


def rows(filter_type, filter_id, direction, name, ranges):
    """Rows of the table, as ftmd and fpd show them."""
    row = {"type": filter_type, "filter": filter_id, "direction": direction, "name": name}
    return [{**row, "min": low, "max": high} for low, high in ranges]


def message(kind, filter_type, filter_id, direction, name, ranges):
    """A message, as ftmd logs it."""
    return {"message": f"vpn-filter-{kind}", "type": filter_type, "direction": direction, "filter": filter_id,
            "name": name, "vpns": [{"min": low, "max": high} for low, high in ranges]}


class Bindings(harness.Scenario):
    def start_daemon(self, name):
        self.peers = peers_lab.PeersLab(self, name, [peers_lab.supervised("tarn_loader")])
        self.pid = self.peers.wait_until_up()
        self.seen = 0  # messages of ftmd's log
        return self.peers

    def write(self, name, content):
        """A file for the lab; its path inside."""
        (self.peers.lab.logs / name).write_bytes(content)
        return f"/run/lab/log/{name}"

    def load(self, operations, check=True):
        """Loads operations, or a text with them."""
        text = operations if isinstance(operations, str) else json.dumps(operations)
        path = self.write("step.json", text.encode())
        return self.peers.lab.run("peerctl", "--socket", SOCKET, "load", path, check=check)

    # ---- What came of it ----

    def assert_messages(self, *expected):
        """What ftmd got since the last time, in order."""
        def log():
            rows = self.peers.ask("ftmd", "log")["messages"]
            return rows[self.seen:] if len(rows) >= self.seen + len(expected) else None
        messages = harness.wait_until(log, f"{len(expected)} messages at ftmd")
        self.seen += len(messages)
        for row in messages:
            del row["sequence"], row["connection"]
        self.assertEqual(messages, list(expected))
        return messages

    def assert_table(self, *expected):
        """ftmd's table, and fpd's."""
        table = [row for part in expected for row in part]
        self.assertEqual(self.peers.ask("ftmd", "bindings")["vpns"], table)
        harness.wait_until(lambda: self.peers.fpctl("bindings")["vpns"] == table, "fpd has the table")

    def forward(self, vpn, port, **options):
        """The way of a packet to a server: its verdict, and the names of the stages' bindings."""
        words = [f"{name}={value}" for name, value in options.items()]
        addresses = ("192.0.2.7", "10.1.0.5", 40000, port, "udp", "len=100")
        answer = self.peers.fpctl("forward", vpn, "ge0/1", "in", *words, *addresses)
        return answer["verdict"], [stage["name"] for stage in answer["stages"]]

    def replay(self, vpn, *frames):
        """Packets of a capture that are accepted and rejected there, in all and by stage."""
        path = self.write("packets.pcap", capture(frames))
        answer = self.peers.fpctl("replay", "--vpn", vpn, "--interface", "ge0/1", "--direction", "in", path)
        stages = {row["stage"]: (row["accepted"], row["rejected"]) for row in answer["filters"]}
        return (answer["accepted"], answer["rejected"]), stages

    def assert_ends_well(self):
        peers = self.peers
        stats = peers.ask("ftmd", "stats")
        self.assertEqual((stats["malformed"], stats["bad-frames"], stats["missed-deletes"]), (0, 0, 0))
        peers.ask("sysmgrd", "stop", "tarnd")
        harness.wait_until(lambda: peers.daemon()["state"] == "stopped", "the daemon stops")
        # A leak would be reported by the sanitizer's build as exit status 1.
        self.assertEqual(peers.daemon()["last_end"], "ended with status 0", peers.lab.log("tarnd"))

    # ---- Tests ----

    def test_changes_are_told_one_by_one(self):
        self.start_daemon("changes")
        self.load(BASE.read_text())
        self.assert_messages(message("add", "data", 0, "service", "edge", CORP),
                             message("add", "application-route", 1, "all", "paths", CORP))
        self.assert_table(rows("data", 0, "service", "edge", CORP), rows("application-route", 1, "all", "paths", CORP))
        programs = {slot["filter"]: slot["program"] for slot in self.peers.fpctl("load")["filters"]}
        self.assertEqual(programs, {0: "edge", 1: "paths"})

        for vpn, port, options, expected in (
                (10, 53, {}, ("accept", ["paths", "edge"])),
                (25, 80, {}, ("reject", ["paths", "edge"])),
                (25, 80, {"from": "tunnel"}, ("accept", ["paths"])),
                (19, 80, {}, ("accept", [])),
                (40, 80, {}, ("accept", []))):  # bound without sequences, so without a program
            self.assertEqual(self.forward(vpn, port, **options), expected, (vpn, port, options))
        frames = [udp_frame("10.1.0.5", 53)] * 3 + [udp_frame("10.1.0.5", 80)] * 2 + [udp_frame("10.2.0.5", 80)]
        self.assertEqual(self.replay(20, *frames), ((4, 2), {"application-route": (6, 0), "data-policy": (4, 2)}))

        # A range that joins or leaves is told alone, to those who use the list.
        self.load([{"op": "change", "vpn-list": "corp", "add": ["50-59"]}])
        self.assert_messages(message("add", "data", 0, "service", "edge", [(50, 59)]),
                             message("add", "application-route", 1, "all", "paths", [(50, 59)]))
        self.assertEqual(self.forward(55, 80), ("reject", ["paths", "edge"]))
        self.load([{"op": "change", "vpn-list": "corp", "remove": ["50-59"]}])
        self.assert_messages(message("delete", "data", 0, "service", "edge", [(50, 59)]),
                             message("delete", "application-route", 1, "all", "paths", [(50, 59)]))
        self.assertEqual(self.forward(55, 80), ("accept", []))

        # A direction is told at once, over the old one, for contexts without a program, too.
        self.load([{"op": "change", **EDGE, "direction": "tunnel"}])
        self.assert_messages(message("add", "data", 0, "tunnel", "edge", CORP),
                             message("add", "none", -1, "tunnel", "edge", [(40, 40)]))
        self.assertEqual(self.forward(25, 80), ("accept", ["paths"]))
        self.assertEqual(self.forward(25, 80, **{"from": "tunnel"}), ("reject", ["paths", "edge"]))

        # Another program: the old binding goes before the new one comes.
        self.load([{"op": "delete", "sequence": 20, **EDGE, "vpn-list": "corp"}])
        self.assert_messages(message("delete", "data", 0, "tunnel", "edge", CORP),
                             message("add", "data", 2, "tunnel", "edge", CORP))
        self.assertEqual(self.forward(25, 80, **{"from": "tunnel"}), ("accept", ["paths", "edge"]))

        self.load([{"op": "delete", **PATHS}])
        self.assert_messages(message("delete", "application-route", 1, "all", "paths", CORP))
        self.load([{"op": "delete", **EDGE}])
        self.assert_messages(message("delete", "data", 2, "tunnel", "edge", CORP))
        # What was told without a program is not taken back: no packet meets it.
        self.assert_table(rows("none", -1, "tunnel", "edge", [(40, 40)]))

        # Flows are cleared when nobody wants applications to be recognised any more.
        for wanted in (True, False):
            self.load([{"op": "change", "visibility": "applications", "value": wanted}])
        self.assert_messages({"message": "dpi-clear-flows"})
        self.assert_ends_well()

    def test_a_locator_changes_a_program(self):
        peers = self.start_daemon("locator")
        self.announce()
        self.load([{"op": "create", "vpn-list": "dc", "add": ["60"]},
                   {"op": "create", "policy": "wan", "type": "data"},
                   {"op": "create", "context": "dc", "policy": "wan", "type": "data", "default-action": "accept"},
                   {"op": "create", "sequence": 10, "policy": "wan", "type": "data", "vpn-list": "dc",
                    "match": {"protocol": "17"},
                    "action": {"base-action": "accept",
                               "tloc": {"ip": "192.0.2.1", "color": "mpls", "encap": "ipsec", "label": 1003}}}])
        self.assert_messages(message("add", "data", 0, "all", "wan", [(60, 60)]))
        self.assertEqual(self.tloc_set(), {"resolved": True, "tloc-index": 7, "vpn-label": 1003})

        peers.ask("ttmd", "withdraw", *LOCATOR)
        self.assert_another_program()
        self.assertFalse(self.tloc_set()["resolved"])
        self.announce()
        self.assert_another_program()
        self.assertTrue(self.tloc_set()["resolved"])

        # Neither the loss of the manager nor its return with the same locator is a change.
        peers.restart("ttmd")
        self.assertEqual(peers.wait_until_up(), self.pid)
        self.announce()
        peers.ask("ttmd", "withdraw", *LOCATOR)
        self.assert_another_program()
        self.assert_ends_well()

    def announce(self):
        self.peers.ask("ttmd", "announce", *LOCATOR, "index=7")

    def tloc_set(self):
        """The action on a packet of VPN 60."""
        answer = self.peers.fpctl("forward", 60, "ge0/1", "in", "proto=udp")
        action = answer["stages"][0]["actions"][0]
        return {name: action[name] for name in ("resolved", "tloc-index", "vpn-label")}

    def assert_another_program(self):
        """Policy wan has got another program, once."""
        told = [message(kind, "data", unittest.mock.ANY, "all", "wan", [(60, 60)]) for kind in ("delete", "add")]
        old, new = self.assert_messages(*told)
        self.assertNotEqual(old["filter"], new["filter"])
        self.assert_table(rows("data", new["filter"], "all", "wan", [(60, 60)]))

    def test_bindings_outlive_ftmd_and_not_the_daemon(self):
        peers = self.start_daemon("killed")
        self.load(BASE.read_text())
        first = [message("add", "data", 0, "service", "edge", CORP),
                 message("add", "application-route", 1, "all", "paths", CORP)]
        self.assert_messages(*first)

        # All is told anew, under the names of the lists, and contexts without a program are told as well.
        peers.end("ftmd")
        self.assertEqual(self.forward(25, 80), ("reject", ["paths", "edge"]), "fpd keeps the table")
        peers.start("ftmd")
        self.seen = 0
        self.assert_messages(message("add", "data", 0, "service", "corp", CORP),
                             message("add", "none", -1, "service", "guest", [(40, 40)]),
                             message("add", "application-route", 1, "all", "corp", CORP))
        self.assert_table(rows("none", -1, "service", "guest", [(40, 40)]), rows("data", 0, "service", "corp", CORP),
                          rows("application-route", 1, "all", "corp", CORP))
        self.assertEqual(self.forward(25, 80), ("reject", ["corp", "corp"]))

        # A new daemon has nothing bound until it is configured.
        peers.signal_pid(self.pid, signal.SIGKILL)
        harness.wait_until(lambda: peers.daemon()["restarts"] == 1, "the killed daemon is started again")
        peers.wait_until_up()
        harness.wait_until(lambda: peers.ask("ftmd", "stats")["connections"] == 2, "ftmd is back at the new daemon")
        self.assert_table()
        self.load(BASE.read_text())
        self.assert_messages(*first)
        self.assert_table(rows("data", 0, "service", "edge", CORP), rows("application-route", 1, "all", "paths", CORP))
        self.assertEqual(self.forward(25, 80), ("reject", ["paths", "edge"]))
        self.assert_ends_well()

    def test_a_wrong_description_is_refused(self):
        peers = self.start_daemon("refused")
        wrong = [{"op": "create", "vpn-list": "corp", "add": ["10"]},
                 {"op": "create", "policy": "edge", "type": "datum"}]
        reason = ('/run/lab/log/step.json: operation 2 {"op":"create","policy":"edge","type":"datum"}: '
                  'type datum is neither data nor app-route\n')
        refused = self.load(wrong, check=False)
        self.assertEqual((refused.returncode, refused.stderr), (1, f"error: {reason}"))
        # What came before stays done.
        self.load([{"op": "create", **EDGE},
                   {"op": "create", "context": "corp", **EDGE, "default-action": "reject"},
                   {"op": "create", "sequence": 1, **EDGE, "vpn-list": "corp", "action": {"base-action": "accept"}}])
        self.assert_messages(message("add", "data", 0, "all", "edge", [(10, 10)]))
        self.assert_ends_well()
        self.write("step.json", json.dumps(wrong).encode())
        refused = peers.lab.run("tarn_loader", "/run/lab/log/step.json", check=False)
        self.assertEqual((refused.returncode, refused.stderr), (1, f"tarn_loader: {reason}"))


if __name__ == "__main__":
    harness.main()
