#!/usr/bin/python3 -B
"""A program compiled into filter memory by one process runs on packets in another, and its memory comes back in time.

filter_demo has the daemon's filter memory and compiler, fpd executes. Both meet in the shared block alone.
"""
import ipaddress
import json
import struct
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402

HERE = Path(__file__).resolve().parent
RULES = str(HERE / "demo.rules")
TCP, UDP = 6, 17
SMALL_BLOCKS = 6144  # 768 KiB


def frame(source, destination, protocol, port, length):
    """An Ethernet frame with an IPv4 packet of `length` bytes."""
    addresses = ipaddress.ip_address(source).packed + ipaddress.ip_address(destination).packed
    header = struct.pack(">BBHHHBBH", 0x45, 0, length, 0, 0, 64, protocol, 0) + addresses
    if protocol == TCP:
        transport = struct.pack(">HHIIBBHHH", 40000, port, 0, 0, 5 << 4, 0x10, 0, 0, 0)
    else:
        transport = struct.pack(">HHHH", 40000, port, length - 20, 0)
    packet = header + transport
    return bytes(12) + b"\x08\x00" + packet + bytes(length - len(packet))


def capture(frames):
    """A pcap file of these frames, all at the same time."""
    head = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
    return head + b"".join(struct.pack("<IIII", 1, 0, len(f), len(f)) + f for f in frames)


WEB = frame("192.0.2.1", "198.51.100.10", TCP, 80, 60)
GUEST = frame("203.0.113.7", "192.0.2.53", UDP, 53, 100)
OTHER = frame("192.0.2.1", "192.0.2.2", UDP, 53, 40)


class Demo:
    """filter_demo inside a lab, one command at a time."""

    def __init__(self, lab):
        self._process = lab.talk_to("filter_demo")

    def run(self, *words):
        self._process.stdin.write(" ".join(str(word) for word in words) + "\n")
        self._process.stdin.flush()
        return json.loads(self._process.stdout.readline())

    def done(self, *words):
        """A command's answer, which must be a good one."""
        answer = self.run(*words)
        if not answer["ok"]:
            raise AssertionError(f"{' '.join(map(str, words))}: {answer['error']}")
        return answer

    def counts(self, *words):
        answer = self.done(*words)
        return answer["packets"], answer["bytes"]

    def quit(self):
        """The exit status."""
        self._process.communicate("quit\n", timeout=harness.COMMAND_SECONDS)
        return self._process.returncode


class FrameDemo(harness.Scenario):
    def setUp(self):
        self.lab = self.start_lab("frame", HERE / "frame_demo.json")
        self.demo = Demo(self.lab)

    def tearDown(self):
        self.assertEqual(self.demo.quit(), 0)

    def replay(self, filter_id, *frames):
        """Sends frames through a filter of fpd and returns its answer."""
        (self.lab.logs / "packets.pcap").write_bytes(capture(frames))
        return self.fpctl("replay", filter_id, "/run/lab/log/packets.pcap")

    def fpctl(self, *words):
        return json.loads(self.lab.run("fpctl", "--json", *map(str, words)).stdout)

    def test_counters_and_policers_are_counted_over_there_and_read_and_cleared_here(self):
        demo = self.demo
        compiled = demo.done("compile", RULES)
        self.assertEqual((compiled["filter"], compiled["rules"]), (0, 2))
        self.assertEqual(compiled["blocks"], (compiled["length"] + 127) // 128)
        self.replay(0, *[WEB] * 5, *[GUEST] * 10, OTHER)
        self.assertEqual(demo.counts("counters", 0, "web"), (5, 300))
        self.assertEqual(demo.counts("counters", 0, "guest"), (10, 1000))
        self.assertEqual(demo.counts("counters", 0, "default"), (1, 40))
        self.assertEqual(demo.counts("counters", 0, "nobody"), (0, 0))
        # The bucket holds three packets of the guest's.
        self.assertEqual(demo.counts("policer", 0, "2.slow"), (7, 700))
        self.assertEqual(demo.counts("policer", 0, "slow"), (0, 0))

        demo.done("clear", 0, "web")
        demo.done("clear", 0, "2.slow")
        self.assertEqual(demo.counts("counters", 0, "web"), (0, 0))
        self.assertEqual(demo.counts("policer", 0, "2.slow"), (0, 0))
        self.assertEqual(demo.counts("counters", 0, "guest"), (10, 1000))
        self.replay(0, WEB)
        self.assertEqual(demo.counts("counters", 0, "web"), (1, 60))

        # Without a rate nothing is out of bounds any more.
        demo.done("change", 0, "slow", 0, 0)
        self.replay(0, *[GUEST] * 10)
        self.assertEqual(demo.counts("policer", 0, "2.slow"), (0, 0))
        self.assertFalse(demo.run("change", 1, "slow", 0, 0)["ok"])

    def test_a_freed_program_runs_on_until_nobody_uses_it(self):
        demo = self.demo
        blocks = demo.done("compile", RULES)["blocks"]
        users = self.lab.talk_to("sh", "-c", "while ! test -e /tmp/rest; do fpctl classify 0 > /dev/null; echo used; done")
        users.stdout.readline()  # they are at it
        demo.done("free", 0)
        self.assertEqual(demo.done("compile", RULES)["filter"], 1, "the change is a new program beside the old one")
        # In steady use the old one stays for several periods, and works.
        self.assertEqual(demo.done("wait", 1700), {"command": "wait", "ok": True, "released_blocks": 0, "waiting": 1})
        packets, _ = demo.counts("counters", 0, "default")
        self.assertGreater(packets, 0)
        self.assertTrue(demo.done("memory")["filters"][0]["freed"])

        self.lab.run("touch", "/tmp/rest")
        users.communicate(timeout=harness.COMMAND_SECONDS)
        self.assertEqual(demo.done("wait"), {"command": "wait", "ok": True, "released_blocks": blocks, "waiting": 0})
        memory = demo.done("memory")
        self.assertEqual(memory["used_blocks"], blocks)
        self.assertEqual([slot["filter"] for slot in memory["filters"]], [1])
        self.assertFalse(demo.run("counters", 0, "web")["ok"])
        self.assertEqual(self.fpctl("classify", 0)["verdict"], "no-program")
        self.replay(1, WEB)
        self.assertEqual(demo.counts("counters", 1, "web"), (1, 60))

    def test_a_full_memory_recovers_to_the_last_block(self):
        demo = self.demo
        first = demo.done("compile", RULES)
        fitting = SMALL_BLOCKS // first["blocks"]
        for filter_id in range(1, fitting):
            self.assertEqual(demo.done("compile", RULES)["filter"], filter_id)
        refused = demo.run("compile", RULES)
        self.assertEqual((refused["ok"], refused["filter"]), (False, -1))
        self.assertEqual(len(self.fpctl("load")["filters"]), fitting)

        demo.done("free", 0)
        self.assertFalse(demo.run("compile", RULES)["ok"], "a freed program keeps its blocks for a while")
        self.assertFalse(demo.run("free", 0)["ok"])
        demo.done("wait")
        self.assertEqual(demo.done("compile", RULES)["filter"], 0)

        for filter_id in range(fitting):
            demo.done("free", filter_id)
        self.assertEqual(demo.done("wait")["released_blocks"], fitting * first["blocks"])
        memory = demo.done("memory")
        self.assertEqual((memory["blocks"], memory["used_blocks"], memory["filters"]), (SMALL_BLOCKS, 0, []))

    def test_wrong_commands_are_told(self):
        for words in (["compile"], ["compile", "/nowhere"], ["free", "x"], ["free", "-1"], ["free", "100000"],
                      ["counters", "0"], ["change", "0", "slow", "a", "b"], ["wait", "-1"], ["nothing"]):
            answer = self.demo.run(*words)
            self.assertFalse(answer["ok"], words)
            self.assertTrue(answer["error"], words)


harness.main()
