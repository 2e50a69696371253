#!/usr/bin/python3 -B
"""The daemon's life in a lab: it waits for the forwarding plane, starts, obeys its signals, stops and leaves nothing."""
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402

PID_FILE = "/var/run/tarnd.0.pid"
SMALL = {"/etc/default/sim_size": "small\n"}
FPD = {"name": "fpd", "command": ["fpd", "-f"], "ready": {"log": "fpd: ready"}}
TARND = {"name": "tarnd", "command": ["tarnd", "-f"]}
STARTED = {"ready": {"syslog": "Initialization - Stage 2 complete"}, "deadline": 20}


class Tarnd(harness.Scenario):
    def start(self, name, *programs):
        return self.start_lab(name, {"files": SMALL, "programs": list(programs)})

    def wait_for_end(self, lab, name="tarnd"):
        harness.wait_until(lambda: lab.program(name)["state"] != "running", f"{name} ends")
        return lab.program(name)

    def test_it_starts_obeys_its_signals_and_stops_in_order(self):
        lab = self.start("life", FPD, {**TARND, **STARTED})
        for text in ("%Lumora-", "-TARND-6-INFO-1100001: Starting", "Initialization - Stage 1 complete"):
            self.assertIn(text, lab.log())
        # The word is 0 at start, so the first signal brings the resting state and the next one full debug.
        for word in ("0x20", "0xfffffffffffffffe", "0x20"):
            before = lab.log().count("Setting debug-flags")
            lab.signal_program("tarnd", signal.SIGUSR1)
            harness.wait_until(lambda: lab.log().count("Setting debug-flags") > before, "the signal is logged")
            self.assertTrue(lab.log().rstrip().endswith(f"Setting debug-flags to {word}"), lab.log())
        lab.signal_program("tarnd", signal.SIGUSR2)
        # A leak would be reported by the sanitizer's build as exit status 1.
        self.assertEqual(self.wait_for_end(lab)["exit_status"], 0, lab.log("tarnd"))
        self.assertIn("Received termination signal. Stopping and exiting gracefully..", lab.log())
        self.assertEqual(lab.run("ls", "/var/run").stdout.count(".pid"), 0)

    def test_it_waits_for_the_forwarding_plane(self):
        lab = self.start("waiting", TARND)
        lab.wait_for_log("1100001: Starting")
        lab.signal_program("tarnd", signal.SIGUSR2)  # served by the event loop, which does not run yet
        self.assertNotIn("Stage 1", lab.log())
        lab.run("sh", "-c", "fpd -f > /run/fpd.out 2>&1 &")
        lab.wait_for_log("Initialization - Stage 2 complete", seconds=20)
        self.assertEqual(self.wait_for_end(lab)["exit_status"], 0, lab.log("tarnd"))

    def test_sigterm_ends_the_wait(self):
        lab = self.start("terminated", TARND)
        lab.wait_for_log("1100001: Starting")
        lab.signal_program("tarnd", signal.SIGTERM)
        self.assertEqual(self.wait_for_end(lab)["exit_status"], 0, lab.log("tarnd"))

    def test_a_pid_file_refuses_a_second_daemon(self):
        lab = self.start("second")
        usage = lab.run("tarnd", "-x", check=False)
        self.assertEqual((usage.returncode, usage.stderr.splitlines()[-1]), (1, "usage: tarnd [-f]"))
        for content, pid in (("", 0), ("4711\n", 4711)):
            lab.run("sh", "-c", f"printf '{content}' > {PID_FILE}")
            for arguments in (["-f"], ["-x"]):  # the file is looked at before the options
                self.assertEqual(lab.run("tarnd", *arguments, check=False).returncode, 255)
            lab.wait_for_log(f"Daemon tarnd already exists @ pid {pid}")

    def test_a_foreign_layout_stops_it(self):
        lab = self.start("foreign", FPD)
        lab.run("sh", "-c", "echo regular > /etc/default/sim_size")
        done = lab.run("sh", "-c", "tarnd -f; echo status $?", check=False)
        self.assertIn(f"status {128 + signal.SIGILL}", done.stdout)
        lab.wait_for_log("fp and ftmd images not compatible! tbl-num")


if __name__ == "__main__":
    harness.main()
