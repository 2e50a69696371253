#!/usr/bin/python3 -B
"""What operators see of a router with traffic, over NETCONF and by the command line: counters and policers packet for
packet, through recompilations and clears; dumps; debugging; shows while the daemon compiles."""
import json
import random
import re
import sys
import threading
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parents[2] / "examples")]
import harness  # noqa: E402
import oper_config as config  # noqa: E402
import packets  # noqa: E402
import shown  # noqa: E402
from control_socket import Lines  # noqa: E402
from netconf_session import DEBUGS, POLICY  # noqa: E402
from oper_config import EDGE, FIRST, GUEST_EDGE, LAN4, LAN6, SECOND, SPARE, UNBOUND, ZONE  # noqa: E402
from router_lab import SECONDS, RouterLab  # noqa: E402
from show_load import ShowLoad  # noqa: E402

ROUNDS, SOAK_ROUNDS = 2 * len(config.CHANGES), 100
PACKETS = 40  # before each look
KINDS = {"application-route": "app-route", "data-policy": "data", "zone": "zone"}
LISTED = [program for program in config.SEQUENCES if program != SECOND]
CLEARS = {"policy counters data edge": (EDGE, GUEST_EDGE), "access-list counters": (LAN4,),
          "ipv6 access-list counters lan": (LAN6,), "policy counters": (SPARE, FIRST, ZONE)}
FRAMES, FRAME_LENGTH = 30_000, 100
DUMPS = ("config", "policy", "acl", "acl6", "vpn-list", "prefix-list", "tloc-list", "tloc", "mirror", "policer", "class",
         "sla-class", "app-list", "memory-stats", "memory-map", "filter", "msgq", "all")
DPI_DUMPS = {"list": "protocol-list", "families": "protocol-family-mapping", "hits": "protocol-hits",
             "configuration": "configuration"}
# What differs from one dump to the next: times, and what connections count.
MOVING = re.compile(r"Last hello .*|(msg|[rt]x)_\w+ +\d+ *")


def counting(stage):
    """The actions of a stage that counted the packet: what they are, and themselves."""
    for action in stage.get("actions", []):
        if action["action"] == "count":
            yield "counter", action
        elif action["action"] == "police" and action["packet"] != "in-bounds":
            yield "policer", action


def program_of(stage, family, vpn):
    if stage["stage"] == "ingress-list":
        return ("acl6" if family == "ipv6" else "acl", stage["program"])
    kind = KINDS[stage["stage"]]
    return (kind, stage["program"]) if kind == "zone" else (kind, stage["program"], config.VPN_LISTS[vpn])


class Tally:
    """What fpd told that its packets met, since each program was loaded."""

    def __init__(self):
        self._rows = {row: (0, 0) for program in config.SEQUENCES for row in config.rows_of(program)}

    def add(self, answer, vpn, length):
        for stage in answer["stages"]:
            for what, action in counting(stage):
                row = (what, *program_of(stage, answer["family"], vpn), action["name"])
                count, size = self._rows[row]
                self._rows[row] = (count + 1, size + length)

    def forget(self, programs):
        self._rows.update((row, (0, 0)) for program in programs for row in config.rows_of(program))

    def rows(self, *programs):
        return {row: self._rows[row] for program in programs for row in config.rows_of(program)}


class RouterOper(harness.Scenario):
    def start_router(self, name):
        self.router = RouterLab(self, name, settles=False)
        self.router.load(config.CONFIG)
        harness.wait_until(lambda: None not in self.filters().values(), "all programs are bound", SECONDS)
        self.wait_for_plane()
        self.session = self.router.netconf()

    def wait_for_plane(self):
        harness.wait_until(lambda: self.router.bindings("fpd") == self.router.bindings(), "fpd has the bindings", SECONDS)

    def cli(self, *words):
        return self.router.lab.run("lumora-cli", *words).stdout

    def filters(self):
        """fpd's filter of each program that packets meet, None without one."""
        bound, pairs = self.router.bindings("fpd"), self.router.fpctl("zones")["pairs"]
        lists = {"ipv4": "acl", "ipv6": "acl6"}
        found = {(KINDS.get(row["type"], row["type"]), row["name"], config.VPN_LISTS[row["min"]]): row["filter"]
                 for row in bound["vpns"]}
        found.update(((lists[row["family"]], row["name"]), row["filter"]) for row in bound["interfaces"])
        found.update((ZONE, row["filter"]) for row in pairs)
        return {program: found.get(program) for program in config.SEQUENCES if program != UNBOUND}

    # ---- Counters and policers ----

    def send(self, choice, tally):
        for _ in range(PACKETS):
            vpn, length, words = config.packet(choice)
            tally.add(self.router.fpctl(*words), vpn, length)

    def assert_shown(self, tally):
        want = tally.rows(*LISTED)
        self.assertEqual(shown.over_netconf(self.session), want)
        self.assertEqual(shown.by_command_line(self.router.lab), want)

    def recompile(self, number):
        """Commits a change, waits until fpd has what comes of it, and returns the programs that were made anew."""
        wanted, edit = config.CHANGES[number % len(config.CHANGES)]
        before = self.filters()
        self.router.commit(edit(number))

        def changed():
            present = self.filters()
            return {program for program in present if present[program] != before[program]}
        harness.wait_until(lambda: wanted <= changed(), f"{wanted} are made anew", SECONDS)
        self.wait_for_plane()
        self.assertEqual(changed(), wanted)
        return wanted

    def test_counts_are_the_planes_through_recompilations(self):
        self.start_router("counts")
        tally, choice = Tally(), random.Random(harness.seed)
        for number in range(SOAK_ROUNDS if harness.soak else ROUNDS):
            self.send(choice, tally)
            self.assert_shown(tally)
            tally.forget(self.recompile(number))
            self.assert_shown(tally)
        # The second application-route policy is not listed; by its name it is shown.
        self.send(choice, tally)
        second = tally.rows(SECOND)
        self.assertEqual(shown.by_command_line(self.router.lab, "policy counters app-route second"), second)
        self.assertNotEqual(second["counter", *SECOND, "tcp"], (0, 0))
        for words, programs in CLEARS.items():
            self.cli("clear", *words.split())
            tally.forget(programs)
            self.assert_shown(tally)

    # ---- Clears ----

    def write_capture(self):
        """Frames that meet one record of each program on their way."""
        frame = packets.Packet("", 1, (packets.ipaddress.ip_address("192.168.1.5"), 40000),
                               (packets.ipaddress.ip_address("10.1.0.10"), 443), 6, length=FRAME_LENGTH, count=FRAMES)
        (self.router.lab.logs / "frames.pcap").write_bytes(packets.capture([frame]))

    def replay(self):
        """Sends the frames, from another thread than the test's."""
        plane = Lines(self.router.path("run/fpd.sock"))
        plane.ask({"request": "replay", "vpn": 10, "interface": "ge0/1", "direction": "in", "out-vpn": 20,
                   "file": "/run/lab/log/frames.pcap", "verdicts": "/run/lab/log/verdicts"})
        plane.close()

    def values_met(self):
        """What each frame found in its counters and policers after they had counted it: by row, frame after frame."""
        values = {}
        for line in (self.router.lab.logs / "verdicts").read_text(encoding="utf-8").splitlines():
            for stage in json.loads(line)["stages"]:
                for what, action in counting(stage):
                    row = (what, *program_of(stage, "ipv4", 10), action["name"])
                    values.setdefault(row, []).append(tuple(action[name] for name in shown.COUNTS[what]))
        return values

    def test_a_clear_during_traffic_loses_no_later_packet(self):
        self.start_router("clears")
        self.write_capture()
        thread, clears = threading.Thread(target=self.replay), 0
        thread.start()
        while thread.is_alive():
            for action in ("data-policy", "app-route-policy", "zonepair-policy", "policy-acl"):
                self.session.rpc(f'<tarn-clear-{action} xmlns="{POLICY}"/>')
            clears += 1
        met = self.values_met()
        self.assertEqual(len(met), 6)
        for row, values in met.items():
            self.assertGreaterEqual(len(values), FRAMES if row[0] == "counter" else FRAMES / 2)
            self.assert_counted(row, values, clears)
        # What comes behind the last clear is shown, all of it.
        self.replay()
        met, rows = self.values_met(), shown.over_netconf(self.session)
        self.assertEqual({row: rows[row] for row in met}, {row: values[-1] for row, values in met.items()})

    def assert_counted(self, row, values, clears):
        """Each frame is one more, unless a clear came: then counting begins anew, with the frame that met the clear or
        without it, and with one that a clear before had met."""
        starts = 0
        for before, (count, size) in zip([(0, 0), *values], values):
            if count == before[0] + 1 and size == before[1] + FRAME_LENGTH:
                continue
            starts += 1
            self.assertLessEqual(count, 2, row)
            self.assertLessEqual(size, 2 * FRAME_LENGTH, row)
        self.assertLessEqual(starts, clears, row)
        self.assertGreater(starts, 0, row)

    # ---- Dumps and debugging ----

    def has_no_old_program(self):
        return sum(row["valid"] for row in self.router.fpctl("load")["filters"]) == len(config.SEQUENCES)

    def dump(self, name):
        return self.still(self.session.rpc(f'<tarn-{name} xmlns="{DEBUGS}"/>').findtext("text") or "")

    @staticmethod
    def still(text):
        """Without what moves, and without the end of line that the command line puts behind a text."""
        return MOVING.sub("", text).rstrip("\n")

    def test_dumps_are_the_same_over_netconf_and_by_the_command_line(self):
        self.start_router("dumps")
        harness.wait_until(self.has_no_old_program, "replaced programs are given back", SECONDS)
        pairs = [(f"dump-{name}", ("dump", name)) for name in DUMPS]
        pairs += [(f"dpi-dump-{name}", ("application", word)) for word, name in DPI_DUMPS.items()]
        texts = {}
        for name, words in pairs:
            with self.subTest(dump=name):
                texts[name] = self.dump(name)
                self.assertTrue(texts[name])
                self.assertEqual(self.still(self.cli("show", *words)), texts[name])
        self.assertEqual(self.dump("dump-admin-tech"), texts["dump-all"])
        self.assertEqual(self.still(self.cli("show", "tech")), texts["dump-all"])
        for part in ("policy", "acl", "prefix-list", "filter"):
            self.assertIn(texts[f"dump-{part}"].strip(), texts["dump-all"], part)

    def traces(self):
        """Lines of syslog about programs that were built."""
        return self.router.lab.log().count("zone-based policy between program built")

    def test_debugging_is_shown_and_logged(self):
        self.start_router("debugs")
        change = config.dscp_change(config.LOCAL + "/zone-based-policy{between}")
        present = f'<debugs xmlns="{DEBUGS}"/>'

        def debugs():
            rows = json.loads(self.cli("--json", "show", "debugs"))["debugs"]
            tarn = self.session.get(present).find("data/debugs/tarn")
            self.assertEqual({row["debug"] for row in rows}, {node.tag for node in tarn} if tarn is not None else set())
            return {row["debug"] for row in rows}
        self.assertEqual((debugs(), self.traces()), (set(), 0))
        for number, (word, want) in enumerate((("policy", {"policy"}), ("ttm", {"policy", "ttm"}), ("all", {"all"}))):
            self.cli("debug", word)
            self.assertEqual(debugs(), want)
            traced = self.traces()
            self.router.commit(change(number))
            harness.wait_until(lambda: self.traces() > traced, f"lines of debug {word}", SECONDS)  # pylint: disable=W0640
        self.cli("undebug", "all")
        self.assertEqual(debugs(), set())
        traced, begun = self.traces(), self.filters()[ZONE]
        self.router.commit(change(40))
        harness.wait_until(lambda: self.filters()[ZONE] != begun, "the program is made anew", SECONDS)
        self.assertEqual(self.traces(), traced)

    # ---- Load ----

    def test_shows_are_answered_while_the_daemon_compiles(self):
        load = ShowLoad(RouterLab(self, "load", settles=False))
        load.run(shows=600)
        self.assertEqual(load.wrong, [])
        self.assertGreater(len(load.commits), 0)
        self.assertLess(max(load.besides()), SECONDS)


if __name__ == "__main__":
    harness.main()
