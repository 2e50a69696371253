#!/usr/bin/python3 -B
"""Random commits, a part of them such as must be refused: the router ends in the state of a fresh one with the same
configuration. Then the same under kills of the daemons at any moment."""
import random
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
from control_socket import Broken, Refused  # noqa: E402
from random_config import RandomConfig  # noqa: E402
from router_image import image, names_configuration  # noqa: E402
from router_lab import RouterLab, merge  # noqa: E402

COMMITS, SOAK_COMMITS, SOAK_STEP = 200, 10_000, 500
KILLS, SOAK_KILLS, SOAK_KILLS_STEP = 30, 1000, 100
LONGEST_LIFE = 1.2  # seconds between two kills
EARLY_COMMITS = 100
FLAT_KIB = 128  # of live heap: less than one smallest object for each recompilation
HEAP_STATISTICS = "Allocated: "  # how the allocator begins its line, and how often it writes one
HEAP_MOMENTS = 5
MALLOC_CONF = "tcache:false,stats_interval:1048576,stats_interval_opts:gmdablxe"
HOOK = "-cp: "  # in the reason of a refusal for want of the policy daemon


class RouterRandom(harness.Scenario):
    def start_router(self, name, env=None):
        router = RouterLab(self, name, env=env)
        router.commit(merge("/vpn/vpn-instance{1}"), merge("/policy-from-keelson", names_configuration()))
        return router

    def fresh_image(self, name, router):
        """What a fresh router does with the same configuration."""
        fresh = RouterLab(self, name, settles=False)
        fresh.load(router.running(), mode="replace")
        fresh.settle()
        told = image(fresh)
        fresh.lab.stop()
        return told

    def assert_as_fresh(self, router, name):
        router.settle()
        got, want = image(router), self.fresh_image(name, router)
        for part in ("bindings", "zones", "log-frequency"):
            self.assertEqual(got[part], want[part])
        for place, text in want["verdicts"].items():
            self.assertEqual(got["verdicts"][place], text, place)

    def commit_next(self, router, config):
        edits, objects, must_fail = config.next_commit()
        try:
            router.commit(*edits)
        except Refused as refused:
            self.assertTrue(must_fail, f"refused: {refused}; {edits}")
            return False
        self.assertFalse(must_fail, f"taken: {edits}")
        config.objects = objects
        return True

    def test_random_commits_lead_to_the_state_of_a_fresh_start(self):
        router, config = self.start_router("random"), RandomConfig(harness.seed)
        pid = router.daemon()["pid"]
        commits, step = (SOAK_COMMITS, SOAK_STEP) if harness.soak else (COMMITS, COMMITS)
        for begin in range(0, commits, step):
            taken = sum(self.commit_next(router, config) for _ in range(step))
            print(f"commits {begin + step}, taken of the last {step}: {taken}", flush=True)
            self.assertEqual(router.daemon()["pid"], pid, "the daemon lives")
            self.assert_as_fresh(router, f"fresh-{begin}")

    def test_memory_stays_flat_over_recompilations(self):
        if not harness.soak:
            self.skipTest("takes thousands of commits")
        router, config = self.start_router("memory", {"MALLOC_CONF": MALLOC_CONF}), RandomConfig(harness.seed)
        for _ in range(COMMITS):
            self.commit_next(router, config)
        early = None
        path = "/policy-from-keelson/data-policy{names}/vpn-list{names}/sequence{1}/match"
        for count in range(1, SOAK_COMMITS + 1):
            router.commit({"op": "replace", "path": path, "value": {"dscp": [count % 64]}})
            if count == EARLY_COMMITS:
                early = self.live_heap(router)
        late = self.live_heap(router)
        print(f"live heap of the daemon: {early} KiB after {EARLY_COMMITS} recompilations, {late} after {count}")
        self.assertLess(late - early, FLAT_KIB)

    @staticmethod
    def live_heap(router):
        """KiB that the daemon has allocated, as its allocator tells: the least of some moments, since it may tell in the
        middle of a compilation."""
        router.settle()
        lines = [line for line in router.lab.log("tarnd").splitlines() if line.startswith(HEAP_STATISTICS)]
        return min(int(line[len(HEAP_STATISTICS):].split(",")[0]) for line in lines[-HEAP_MOMENTS:]) // 1024

    # ---- Kills ----

    def stream(self, router, config, stop):
        """Commits until told to stop, whatever ends meanwhile. Only a refusal for want of the daemon is good."""
        while not stop.is_set():
            edits, objects, must_fail = config.next_commit()
            number = self.draw.random()
            try:
                router.commit(*edits, comment=str(number))
            except Refused as refused:
                if not must_fail and HOOK not in str(refused):
                    raise
                continue
            except Broken:
                if not self.was_taken(router, str(number)):
                    continue
            config.objects = objects

    def was_taken(self, router, comment):
        """Whether the commit with this comment is running; waits until mgmtd serves again."""
        def last():
            try:
                return router.control.ask("commits")
            except Broken:
                return None
        return harness.wait_until(last, "mgmtd serves again", 60)["commits"][0]["comment"] == comment

    def kill_some(self, router, kills):
        stop, problems = threading.Event(), []

        def run():
            try:
                self.stream(router, self.config, stop)
            except Exception as problem:  # pylint: disable=broad-except
                problems.append(problem)
        writer = threading.Thread(target=run)
        writer.start()
        done = 0
        while done < kills and not problems:
            time.sleep(self.draw.uniform(0, LONGEST_LIFE))
            done += router.kill(self.draw.choice(["tarnd", "tarnd", "mgmtd"]))
        stop.set()
        writer.join()
        if problems:
            raise problems[0]

    def test_kills_at_any_moment_leave_the_state_of_a_fresh_start(self):
        self.draw = random.Random(harness.seed)
        router, self.config = self.start_router("kills"), RandomConfig(harness.seed + 1)
        kills, step = (SOAK_KILLS, SOAK_KILLS_STEP) if harness.soak else (KILLS, KILLS)
        for begin in range(0, kills, step):
            self.kill_some(router, step)
            router.wait_until_up()
            self.assert_as_fresh(router, f"fresh-{begin}")
            print(f"kills {begin + step}, starts of the daemon: {router.daemon()['restarts'] + 1}", flush=True)


if __name__ == "__main__":
    harness.main()
