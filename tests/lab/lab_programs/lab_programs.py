#!/usr/bin/python3 -B
"""A lab starts its programs in order, each when the one before is ready, and tells what became of them."""
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402

PROGRAMS = Path(__file__).with_name("programs.json")
SLEEPER = {"name": "sleeper", "command": ["sleep", "1000"]}


def shell(name, script, **members):
    return {"name": name, "command": ["sh", "-c", script], **members}


class Programs(harness.Scenario):
    def test_each_program_starts_when_the_one_before_is_ready(self):
        # Each program of the file ends at once if its predecessor's sign is not there yet.
        lab = self.start_lab("order", PROGRAMS)
        states = {program["name"]: program["state"] for program in lab.status()["programs"]}
        self.assertEqual(list(states), ["set-up", "by-file", "by-socket", "by-log", "by-syslog", "last"])
        self.assertEqual(set(list(states.values())[1:]), {"running"})
        self.assertEqual(lab.program("set-up")["exit_status"], 0)
        self.assertEqual(lab.user.lab("status", "order").returncode, 0)

    def test_status_tells_how_a_program_ended(self):
        lab = self.start_lab("crash", {"programs": [
            SLEEPER,
            shell("exits", "while ! test -e /run/go; do sleep 0.01; done; exit 3"),
            {"name": "crashes", "command": ["sleep", "1000"]}]})
        lab.run("touch", "/run/go")
        lab.signal_program("crashes", signal.SIGSEGV)
        harness.wait_until(lambda: [p["state"] for p in lab.status()["programs"]] == ["running", "exited", "killed"],
                           "both ends are noticed")
        self.assertEqual(lab.program("exits")["exit_status"], 3)
        self.assertEqual(lab.program("crashes")["signal"], "SIGSEGV")
        status = lab.user.lab("status", "crash", check=False)
        self.assertEqual(status.returncode, 1)
        self.assertIn("exits            exited with status 3\n", status.stdout)
        self.assertIn("crashes          killed by SIGSEGV\n", status.stdout)
        self.assertIn("ended: exits, crashes", lab.user.lab("list").stdout)
        self.assertIn("exits exited with status 3\n", lab.user.lab("logs", "crash", "lab").stdout)

    def test_a_start_that_fails_says_why_and_leaves_nothing(self):
        cases = [
            ("a program is never ready",
             shell("slow", "echo so far; sleep 1000", ready={"file": "/run/x"}, deadline=0.2),
             ["slow was not ready after 0.2 s (waited for file /run/x)", "slow: so far"]),
            ("a program ends before it is ready", shell("early", "echo oops >&2; exit 4", ready={"log": "up"}),
             ["early exited with status 4 during the start", "early: oops"]),
            ("a program dies before it is ready", shell("dies", "kill -ABRT $$", ready={"log": "up"}),
             ["dies was killed by SIGABRT during the start"]),
            ("a set-up step fails", shell("step", "exit 1", ready={"exit": 0}), ["step exited with status 1"]),
            ("a program does not exist", {"name": "none", "command": ["no-such-program"]},
             ["cannot start none: no-such-program is not a program in"]),
            ("a line is not complete", shell("partial", "printf up; sleep 1000", ready={"log": "up"}, deadline=0.2),
             ["partial was not ready after 0.2 s"]),
        ]
        user = self.present_user()
        for behaviour, program, texts in cases:
            with self.subTest(behaviour):
                config = user.write_config({"programs": [SLEEPER, program]})
                done = user.lab("start", "--name", "broken", "--config", config, check=False)
                self.assertEqual(done.returncode, 5, done.stderr)
                for text in ["lab broken did not start", *texts]:
                    self.assertIn(text, done.stderr)
                self.assertEqual(list(user.runtime.iterdir()), [])

    def test_stop_ends_programs_in_reverse_order_and_kills_the_stubborn(self):
        report = "trap 'echo {0} >> /run/lab/log/ends; exit 0' TERM; echo up; while :; do sleep 0.01; done"
        lab = self.start_lab("ends", {"programs": [
            shell("first", report.format("first"), ready={"log": "up"}),
            shell("stubborn", "trap '' TERM; echo up; while :; do sleep 1; done", ready={"log": "up"}),
            shell("last", report.format("last"), ready={"log": "up"})]})
        lab.stop()
        self.assertEqual(lab.log("ends"), "last\nfirst\n")

    def test_each_syslog_record_is_one_line(self):
        lab = self.start_lab("records")
        send = ("import socket; s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM); s.connect('/dev/log');"
                "[s.send(r) for r in (b'<14>one\\n', b'<15>two\\nlines\\0', b'<11>\\xff',"
                " b'<12>' + b'x' * 9000, b'<13>end')]")
        lab.run(harness.PYTHON, "-c", send)
        lab.wait_for_log("<13>end\n")
        self.assertEqual(lab.log(), f"<14>one\n<15>two\\nlines\n<11>\\xff\n<12>{'x' * 9000}\n<13>end\n")

    def test_programs_come_from_the_bin_folder_first_and_stay_visible(self):
        # The folder stands in /tmp, which is private inside.
        user = self.present_user()
        folder = user.folder / "bin"
        folder.mkdir()
        (folder / "fpd").write_text("#!/bin/sh\necho plane\n")
        (folder / "fpd").chmod(0o755)
        config = user.write_config({"programs": [{"name": "fpd", "command": ["fpd"], "ready": {"exit": 0}}]})
        done = user.lab("start", "--config", config, "--bin", str(folder),
                        "--", "sh", "-c", "fpd; cat /run/lab/log/fpd")
        self.assertEqual(done.stdout, "plane\nplane\n")


class CommandLine(harness.Scenario):
    def test_exit_statuses(self):
        user = self.present_user()
        user.start_lab("here")
        cases = [
            (["start", "--name", "here"], 4, "lab here is already running"),
            (["start", "--name", "a/b"], 2, '"a/b" cannot name a lab'),
            (["stop", "absent"], 3, "there is no lab absent (running: here)"),
            (["status", "absent"], 3, "there is no lab absent"),
            (["logs", "here", "nothing"], 2, "lab here has no log nothing"),
            (["enter", "absent", "true"], 125, "there is no lab absent"),
            (["enter", "here", "sh", "-c", "exit 7"], 7, ""),
            (["enter", "here", "--", "ls", "--version"], 0, ""),
            (["start", "--", "sh", "-c", "exit 8"], 8, ""),
            (["start", "--", "sh", "-c", "kill -TERM $$"], 128 + signal.SIGTERM, ""),
            (["stop"], 2, "required"),
            (["--help"], 0, ""),
            (["stop", "--all"], 0, ""),
            (["list"], 0, ""),
        ]
        for arguments, code, text in cases:
            with self.subTest(" ".join(arguments)):
                done = user.lab(*arguments, check=False)
                self.assertEqual(done.returncode, code, done.stderr)
                self.assertIn(text, done.stderr)
        self.assertEqual(list(user.runtime.iterdir()), [])

    def test_a_wrong_configuration_is_refused_and_named(self):
        cases = [
            ({"program": []}, 'unknown member "program"'),
            ({"files": {"/usr/share/x": ""}}, "/usr/share/x does not stand below a private folder"),
            ({"files": {"/etc/../usr/x": ""}}, "does not stand below a private folder"),
            ({"files": {"/etc/x": 1}}, "files: /etc/x must be a text"),
            ({"private": ["/"]}, "private: / is not"),
            ({"programs": [{"name": "a"}]}, "a: command must be a list"),
            ({"programs": [SLEEPER, SLEEPER]}, "two programs are named sleeper"),
            ({"programs": [{**SLEEPER, "name": "syslog"}]}, '"syslog" cannot name a program'),
            ({"programs": [{**SLEEPER, "ready": {"port": 1}}]}, 'unknown member "port"'),
            ({"programs": [{**SLEEPER, "ready": {"file": "/a", "log": "b"}}]}, "ready takes one condition"),
            ({"programs": [{**SLEEPER, "deadline": "1"}]}, "deadline must be a number"),
            ({"programs": [{**SLEEPER, "deadline": 0}]}, "deadline must be above 0"),
            ([], "the configuration must be an object"),
        ]
        user = self.present_user()
        for config, text in cases:
            with self.subTest(text):
                path = user.write_config(config)
                done = user.lab("start", "--config", path, check=False)
                self.assertEqual(done.returncode, 2, done.stderr)
                self.assertIn(f"lab: {path}: ", done.stderr)
                self.assertIn(text, done.stderr)


if __name__ == "__main__":
    harness.main()
