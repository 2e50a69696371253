#!/usr/bin/python3 -B
"""How long a show of one row takes while 20 sessions show and a policy of 200 rules is compiled again and again. Prints
a table.

    show_load.py [--bin DIR]

A show that comes while the daemon compiles waits for it. What a show took besides is its time without what it shared
with a commit; a commit holds its caller from its checks until the daemon has applied it.
"""
import statistics
import sys
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
from control_socket import Broken, Refused  # noqa: E402
from router_lab import SECONDS, RouterLab, merge  # noqa: E402

RULES, SESSIONS = 200, 20
SHOWS, SHOWS_FOR_A_COMMIT = 20_000, 200
GOAL_MS = 100
CONTEXT = "/policy-from-keelson/data-policy{load}/vpn-list{vpns}"
ROW = "/policy/data-policy-filter{load}/data-policy-vpnlist{vpns}/data-policy-counter{rule-%d}"


def policy():
    rules = [{"number": number, "match": {"destination-port": [str(1000 + number)]},
              "action": {"base-action": "accept", "count": f"rule-{number}"}} for number in range(1, RULES + 1)]
    return merge("/policy-from-keelson", {
        "lists": {"vpn-list": [{"name": "vpns", "vpn": [{"range": "10"}]}]},
        "data-policy": [{"name": "load", "vpn-list": [{"name": "vpns", "default-action": "accept", "sequence": rules}]}]})


class ShowLoad:
    """Begins and ends of shows and commits, and what was wrong."""

    def __init__(self, router):
        self._router = router
        self.shows, self.commits, self.wrong = [], [], []
        router.commit(policy())
        harness.wait_until(lambda: any(row["filter"] >= 0 for row in router.bindings()["vpns"]), "the policy is bound",
                           SECONDS)

    def run(self, shows):
        self._wanted = shows
        sessions = [self._router.session() for _ in range(SESSIONS)]
        for session in sessions:
            session.ask("status")
        threads = [threading.Thread(target=self._show, args=(session,)) for session in sessions]
        for thread in threads:
            thread.start()
        while len(self.shows) < shows and not self.wrong:
            number = len(self.commits)
            begin = time.monotonic()
            self._router.commit({"op": "replace", "path": f"{CONTEXT}/sequence{{100}}/match",
                                 "value": {"destination-port": [str(2000 + number % 1000)]}})
            self.commits.append((begin, time.monotonic()))
            enough = min(shows, SHOWS_FOR_A_COMMIT * len(self.commits))
            harness.wait_until(lambda: len(self.shows) >= enough or self.wrong,  # pylint: disable=W0640
                               "shows are answered", SECONDS)
        for thread in threads:
            thread.join()

    def _show(self, session):
        number = 0
        while len(self.shows) < self._wanted and not self.wrong:
            number = (number + 7) % RULES
            begin = time.monotonic()
            try:
                answer = session.ask("show", path=ROW % (number + 1), **{"from": "state"})
                row = answer["lumora-policy:data-policy-counter"][0]
            except (Broken, Refused) as error:
                row = {"error": str(error)}
            self.shows.append((begin, time.monotonic()))
            if row.get("counter-name") != f"rule-{number + 1}":
                self.wrong.append(row)
        session.close()

    def besides(self):
        """Seconds of each show without those of commits."""
        return [end - begin - sum(max(0, min(end, commit_end) - max(begin, commit_begin))
                                  for commit_begin, commit_end in self.commits) for begin, end in self.shows]


def cuts(times):
    """The median and the 99th percentile of seconds, in milliseconds."""
    quantiles = statistics.quantiles(times, n=100, method="inclusive")
    return quantiles[49] * 1000, quantiles[98] * 1000


class ShowBench(harness.Scenario):
    def test_shows_during_commits(self):
        load = ShowLoad(RouterLab(self, "show-load", settles=False))
        load.run(SHOWS)
        self.assertEqual(load.wrong, [])
        times = {"commits, with the compilation": [end - begin for begin, end in load.commits],
                 "shows": [end - begin for begin, end in load.shows], "shows besides commits": load.besides()}
        for what, row in times.items():
            print(f"\n| {SESSIONS} sessions, {RULES} rules: {what}, ms | p50 {cuts(row)[0]:.1f} | p99 {cuts(row)[1]:.1f} |",
                  flush=True)
        self.assertLess(cuts(load.besides())[1], GOAL_MS)


if __name__ == "__main__":
    harness.main()
