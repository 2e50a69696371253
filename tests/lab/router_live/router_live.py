#!/usr/bin/python3 -B
"""Real packets through the router: hosts of the lab exchange TCP, UDP and ICMP, and commits decide what becomes of them.
`--soak` runs an hour of mixed traffic with a commit a second."""
import json
import subprocess
import sys
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent))
import harness  # noqa: E402
from router_lab import SECONDS, RouterLab, merge  # noqa: E402

CONFIG = harness.REPOSITORY / "examples/live_lab.json"
TRAFFIC = str(harness.REPOSITORY / "examples/traffic.py")
ALICE, BOB, CAROL = "192.168.1.5", "10.1.0.10", "10.255.0.200"
BOB6 = "fd00:2::10"
KEELSON = "/policy-from-keelson"
POLICY = KEELSON + "/data-policy{edge}"
SEQUENCE = POLICY + "/vpn-list{ten}/sequence{10}"
SOAK_SECONDS = 3600
EFFECT_SECONDS = 1.0  # from a commit's answer to what the packets meet


class Host:
    """One of the lab's hosts; runs traffic.py."""

    def __init__(self, scenario, lab, name):
        self._scenario, self._lab, self._name = scenario, lab, name

    def _line(self, *words):
        return self._lab.user.lab_line("enter", self._lab.name, "--host", self._name, harness.PYTHON, "-B", TRAFFIC,
                                       *map(str, words))

    def run(self, *words, timeout=SECONDS):
        done = subprocess.run(self._line(*words), env=self._lab.user.lab_env(), cwd="/", text=True, check=False,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
        return done.returncode, done.stdout + done.stderr

    def start(self, *words):
        """A process that runs until the test ends; returns when it is ready, if it is one that says so."""
        process = subprocess.Popen(self._line(*words), env=self._lab.user.lab_env(), cwd="/", text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self._scenario.addCleanup(self._end, process)
        if words[0] != "stream":
            self._scenario.assertEqual(process.stdout.readline(), "ready\n")
        return process

    @staticmethod
    def _end(process):
        process.kill()
        process.wait()
        process.stdin.close()
        process.stdout.close()


class Sink:
    """What a host receives on a UDP port."""

    def __init__(self, host, port):
        self._process = host.start("sink", port)

    def told(self):
        """Packets, bytes, first and last arrival and the last packet's type of service, since the last call."""
        self._process.stdin.write("\n")
        self._process.stdin.flush()
        return json.loads(self._process.stdout.readline())

    def wait_for_some(self, what):
        return harness.wait_until(lambda: (told := self.told())["packets"] and told, what, SECONDS)

    def wait_for_silence(self, what):
        """The last arrival before half a second without any."""
        last = None

        def is_silent():
            nonlocal last
            last = self.told().get("last", last)
            return time.monotonic() - (last or begin) > 0.5
        begin = time.monotonic()
        harness.wait_until(is_silent, what, SECONDS)
        return last


class RouterLive(harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "live", settles=False, config=CONFIG)
        self.alice, self.bob, self.carol = (Host(self, self.router.lab, name) for name in ("alice", "bob", "carol"))
        # A sanitizer's build is several times slower, on a machine that does more at a time.
        self.sanitized = self.router.lab.run("sh", "-c", 'grep -q __asan_init "$LAB_BIN/fpd"', check=False).returncode == 0
        self.effect_seconds = EFFECT_SECONDS * (10 if self.sanitized else 1)

    def policy(self, match, action, *edits, **objects):
        """A data policy of the service side of VPN 10: one sequence, all else passes."""
        self.router.commit(*edits, merge(KEELSON, {
            "lists": {"vpn-list": [{"name": "ten", "vpn": [{"range": "10"}]}]},
            "data-policy": [{"name": "edge", "direction": "from-service", "vpn-list": [
                {"name": "ten", "default-action": "accept",
                 "sequence": [{"number": 10, "match": match, "action": action}]}]}], **objects}))

    def verdict(self, *words):
        return self.router.fpctl("forward", 10, "ge0/1", "in", "out-vpn=20", *words)

    def drops(self):
        return {row["reason"]: row["packets"] for row in self.router.fpctl("live")["drops"]
                if row["interface"] == "ge0/1"}

    def transfer(self, address, size):
        port = self.serving.setdefault("port", 5000)
        process = self.serving.get("process")
        if process is None:
            process = self.serving["process"] = self.bob.start("serve", port)
        status, sent = self.alice.run("send", address, port, size)
        self.assertEqual(status, 0, sent)
        self.assertEqual(process.stdout.readline(), sent)

    # ---- Scenarios ----

    def test_hosts_exchange_packets_and_commits_decide(self):
        self.serving = {}
        for address in ("192.168.1.1", BOB, BOB6):
            status, told = self.alice.run("ping", address, 5)
            self.assertEqual(status, 0, told)
        self.transfer(BOB, 3_000_000)
        self.transfer(BOB6, 1_000_000)

        sink = Sink(self.bob, 6000)
        self.alice.start("stream", BOB, 6000, 400_000, 500)
        self.alice.start("stream", BOB6, 6006, 100_000, 500)
        sink.wait_for_some("the stream arrives")

        self.policy({"protocol": [17]}, {"base-action": "drop"})
        begin = time.monotonic()
        last = sink.wait_for_silence("the dropped stream ends")
        self.assertLess(last - begin, self.effect_seconds)
        self.assertIn("rejected", self.drops())
        status, told = self.alice.run("ping", BOB, 2)
        self.assertEqual(status, 0, told)

        sink.told()
        self.router.commit(merge(SEQUENCE + "/action", {"base-action": "accept", "set": {"dscp": 18}}))
        begin = time.monotonic()
        told = sink.wait_for_some("the stream is allowed again")
        self.assertLess(told["first"] - begin, self.effect_seconds)
        harness.wait_until(lambda: sink.told().get("tos") == 18 << 2, "the stream is marked", SECONDS)

    def test_a_policer_holds_a_stream_to_its_rate(self):
        offered, rate = (20_000_000, 4_000_000) if self.sanitized else (100_000_000, 20_000_000)
        burst = rate // 8 // 4  # a quarter of a second: what a busy machine keeps back is made up for
        self.policy({"protocol": [17]}, {"base-action": "accept", "policer": "limit"},
                    policer=[{"name": "limit", "rate": str(rate), "burst": burst, "exceed": "drop"}])
        harness.wait_until(lambda: "police" in str(self.verdict(ALICE, BOB, 1, 6000, "udp")), "the policer", SECONDS)
        sink = Sink(self.bob, 6000)
        self.alice.start("stream", BOB, 6000, offered, 1400)
        sink.wait_for_some("the stream arrives")
        harness.wait_until(lambda: self.drops().get("policed", 0) > 0, "the burst is used up", SECONDS)
        self.assertEqual(self.measure(sink, rate), "")

    def measure(self, sink, rate):
        """Why the stream isn't held to the rate. A machine that stands still for longer than a burst is given two
        more chances."""
        for _ in range(3):
            begin = sink.wait_for_some("the stream goes on")["last"]
            received = 0
            last = begin

            def is_over():
                nonlocal received, last
                told = sink.told()
                received, last = received + told["bytes"], told.get("last", last)
                return last - begin > 3
            harness.wait_until(is_over, "three seconds of the stream", SECONDS)
            found = received * 8 / (last - begin)
            if abs(found / rate - 1) < 0.05:
                return ""
        return f"{found:.0f} bits a second in place of {rate}"

    def test_mirrors_get_copies(self):
        self.policy({"protocol": [17], "destination-port": ["6000"]}, {"base-action": "accept", "mirror": "copy"},
                    merge("/policy/mirror{copy}/remote-dest{" + CAROL + "}", {"source": "10.255.0.1"}))
        harness.wait_until(lambda: self.mirror_types() == [2], "the mirror to a tunnel is in force", SECONDS)
        capture = self.carol.start("capture", 5)
        self.alice.start("stream", BOB, 6000, 100_000, 500)
        copies = [bytes.fromhex(capture.stdout.readline()) for _ in range(5)]
        for copy in copies:
            self.assertEqual(copy[:4].hex() + copy[6:10].hex() + copy[12:24].hex(),
                             "4500020c" + "4000402f" + "0aff0001" + "0aff00c8" + "00000800")
        frames = self.captured()
        self.assertLessEqual({copy[24:] for copy in copies}, {frame[14:] for frame in frames})

        self.router.commit(merge("/policy/mirror{wire}/interface{ge0/0}"), merge(SEQUENCE + "/action", {"mirror": "wire"}))
        harness.wait_until(lambda: self.mirror_types() == [1], "the mirror to an interface is in force", SECONDS)
        before = len(self.captured())
        harness.wait_until(lambda: len(self.captured()) > before, "copies in the capture file", SECONDS)

    def mirror_types(self):
        """1 for an interface, 2 for a tunnel."""
        treatment = self.verdict(ALICE, BOB, 1, 6000, "udp")["treatment"]
        return [mirror["type"] for mirror in treatment.get("mirrors", [])]

    def captured(self):
        """The frames of fpd's capture file."""
        data = self.router.path("run/lab/log/copies.pcap").read_bytes()[24:]
        frames = []
        while len(data) >= 16:
            size = int.from_bytes(data[8:12], "little")
            frames.append(data[16:16 + size])
            data = data[16 + size:]
        return frames

    def test_return_traffic_of_an_inspected_flow_passes(self):
        for host in (self.alice, self.bob):
            host.start("echo", 7000)
        self.assertEqual(self.bob.run("ask", ALICE, 7000, SECONDS)[0], 0)
        self.router.commit(merge("/policy", {
            "zone": [{"name": "staff", "vpn": [{"vpn-id": 10}]}, {"name": "servers", "vpn": [{"vpn-id": 20}]}],
            "zone-pair": [{"name": "out", "source-zone": "staff", "destination-zone": "servers", "zone-policy": "out"}],
            "zone-based-policy": [{"name": "out", "default-action": "drop", "sequence": [
                {"number": 10, "match": {"protocol": [17]}, "action": {"base-action": "inspect"}}]}]}))
        # Not before the zones are in force: then nothing else lets bob's packets pass.
        harness.wait_until(lambda: self.bob.run("ask", ALICE, 7000, 1)[0] == 1, "bob's flows are stopped", SECONDS)
        self.assertEqual(self.alice.run("ask", BOB, 7000, SECONDS)[0], 0)
        self.assertEqual(self.router.fpctl("flows")["count"], 1)

    def test_an_hour_of_mixed_traffic_and_a_commit_a_second(self):
        if not harness.soak:
            self.skipTest("an hour of traffic")
        sink, self.serving = Sink(self.bob, 6000), {}
        self.policy({"protocol": [17]}, {"base-action": "accept"})
        self.alice.start("stream", BOB, 6000, 2_000_000, 700)
        self.alice.start("stream", BOB6, 6000, 1_000_000, 700)
        actions = ({"base-action": "accept", "set": {"dscp": 18}}, {"base-action": "drop"}, {"base-action": "accept"})
        end, memory, rounds = time.monotonic() + SOAK_SECONDS, [], 0
        while time.monotonic() < end:
            begin = time.monotonic()
            self.router.commit(merge(SEQUENCE + "/action", actions[rounds % len(actions)]))
            rounds += 1
            if rounds % 10 == 0:
                self.transfer(BOB, 500_000)
                self.assertEqual(self.alice.run("ping", BOB6, 2)[0], 0)
                sink.wait_for_some("the streams go on")
                memory.append(self.memory())
            harness.wait_until(lambda: time.monotonic() - begin >= 1, "the second is over", 2)
        settled = memory[len(memory) // 4:]
        self.assertLess(max(settled), min(settled) + 4096, f"KiB over {rounds} commits")

    def memory(self):
        """KiB that fpd's process holds of its own; the programs lie in shared memory."""
        status = self.router.path(f"proc/{self.router.lab.program('fpd')['pid']}/status").read_text(encoding="ascii")
        return int(next(line for line in status.splitlines() if line.startswith("RssAnon")).split()[1])


if __name__ == "__main__":
    harness.main()
