"""What whole-router scenarios share: labs to start, commands to run inside, conditions to wait for.

A scenario is a script tests/lab/<name>/<name>.py with classes derived from Scenario (a unittest.TestCase) and a last
line `harness.main()`. It gets labs from `self.start_lab` or, as another user, from `self.ordinary_user().start_lab`;
they are stopped after each test, and when the test failed their logs are printed. Labs of a test are in a runtime
folder of its own, so they meet neither other tests nor labs that somebody works in. Scenarios never sleep for a fixed
time: `wait_until` polls with a deadline.
"""
import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))
from waiting import wait_until  # noqa: E402,F401  (scenarios use it by this module's name)

REPOSITORY = Path(__file__).resolve().parents[2]
LAB = REPOSITORY / "lab/lab"
PYTHON = "/usr/bin/python3"
NOBODY = 65534
COMMAND_SECONDS = 30  # no command of a scenario may take longer
_TAIL_LINES = 60

_bin_folder = REPOSITORY / "build/release/bin"
soak = False  # the long form of a scenario is wanted
seed = 20260  # of random scenarios


def processes_in_namespace(pid_namespace):
    """The host's pids of the processes in a pid namespace, given as /proc/PID/ns/pid reads."""
    found = []
    for entry in os.listdir("/proc"):
        try:
            if entry.isdigit() and os.readlink(f"/proc/{entry}/ns/pid") == pid_namespace:
                found.append(int(entry))
        except OSError:  # it ended meanwhile, or is not ours to look at
            pass
    return found


class Lab:
    """A running lab. Made by User.start_lab."""

    def __init__(self, user, name, logs):
        self.user, self.name, self.logs = user, name, logs

    def run(self, *command, check=True, timeout=COMMAND_SECONDS):
        """Runs a command inside and returns it completed, with its output as text."""
        return self.user.lab("enter", self.name, *command, check=check, timeout=timeout)

    def talk_to(self, *command):
        """Starts a command inside: a subprocess.Popen with pipes for its input and output, as text."""
        return subprocess.Popen(self.user.lab_line("enter", self.name, *command), env=self.user.lab_env(), cwd="/",
                                text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def status(self):
        return json.loads(self.user.lab("status", self.name, "--json", check=False).stdout)

    def program(self, name):
        """One program's entry in the status."""
        return next(program for program in self.status()["programs"] if program["name"] == name)

    def signal_program(self, name, number=signal.SIGTERM):
        self.run("sh", "-c", f"kill -{int(number)} {self.program(name)['pid']}")

    def log(self, name="syslog"):
        path = self.logs / name
        return path.read_text(errors="backslashreplace") if path.exists() else ""

    def wait_for_log(self, text, name="syslog", seconds=5.0):
        wait_until(lambda: text in self.log(name), f'"{text}" in log {name} of lab {self.name}', seconds)

    def stop(self):
        return self.user.lab("stop", self.name)


class User:
    """Who runs the lab command: `prefix` is put before it (setpriv and the like). Owns a folder for the labs' state,
    their logs and configurations; `close` stops the labs and removes it."""

    def __init__(self, prefix=(), uid=None):
        self._prefix = list(prefix)
        self.folder = Path(tempfile.mkdtemp(prefix="tarnd-scenario-"))
        self.runtime = self.folder / "runtime"  # empty whenever no lab runs
        self.runtime.mkdir()
        if uid is not None:
            for path in (self.folder, self.runtime):
                os.chown(path, uid, uid)

    def lab_line(self, *arguments):
        return [*self._prefix, str(LAB), *arguments]

    def lab_env(self):
        return {**os.environ, "XDG_RUNTIME_DIR": str(self.runtime)}

    def lab(self, *arguments, check=True, timeout=COMMAND_SECONDS):
        """The lab command, completed. With `check` a failure fails the test and shows what was printed."""
        done = subprocess.run(self.lab_line(*arguments), env=self.lab_env(), cwd="/", text=True, check=False,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
        if check and done.returncode != 0:
            raise AssertionError(f"lab {' '.join(arguments)}: exit status {done.returncode}\n"
                                 f"{done.stdout}{done.stderr}")
        return done

    def write_config(self, config):
        """A configuration as a file that `lab start --config` takes."""
        fd, path = tempfile.mkstemp(dir=self.folder, suffix=".json")
        with open(fd, "w", encoding="utf-8") as file:
            json.dump(config, file)
        os.chmod(path, 0o644)
        return path

    def start_lab(self, name, config=None):
        """`config`: a dictionary, or the path of a file."""
        path = config if isinstance(config, (str, Path)) else self.write_config(config or {})
        logs = self.folder / "logs" / name
        self.lab("start", "--name", name, "--config", str(path), "--bin", str(_bin_folder), "--logs", str(logs))
        return Lab(self, name, logs)

    def can_run(self, *command):
        done = subprocess.run([*self._prefix, *command], cwd="/", check=False, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=COMMAND_SECONDS)
        return done.returncode == 0

    def print_logs(self):
        for path in sorted(self.folder.glob("logs/*/*")):
            lines = path.read_text(errors="backslashreplace").splitlines()[-_TAIL_LINES:]
            print("\n".join([f"==> lab {path.parent.name}: {path.name} <==", *lines]), file=sys.stderr)

    def close(self):
        self.lab("stop", "--all", check=False)
        shutil.rmtree(self.folder)


class Scenario(unittest.TestCase):
    maxDiff = None

    def run(self, result=None):
        """Around each test: the labs go after it, and their logs are shown if it failed."""
        self._users, self._present_user = [], None
        problems_before = len(result.failures) + len(result.errors)
        try:
            super().run(result)
        finally:
            for user in self._users:
                if len(result.failures) + len(result.errors) > problems_before:
                    user.print_logs()
                user.close()
        return result

    def present_user(self):
        """The user of the test run; always the same within one test."""
        if self._present_user is None:
            self._present_user = self._add(User())
        return self._present_user

    def ordinary_user(self):
        """A user without rights. Skips the test where the system grants such a user no namespaces."""
        if os.geteuid() != 0:
            self.skipTest("the present user is an ordinary one")
        user = self._add(User(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"], NOBODY))
        if not user.can_run("unshare", "--user", "--map-root-user", "--mount", "--net", "--pid", "--fork", "true"):
            self.skipTest("ordinary users may not make user namespaces here")
        if not user.can_run("test", "-r", str(LAB)):
            self.skipTest("the source tree is not readable for other users")
        return user

    def start_lab(self, name, config=None):
        return self.present_user().start_lab(name, config)

    def _add(self, user):
        self._users.append(user)
        return user


def main():
    """Runs the scenario's tests: [--bin DIR] [--soak] [--seed N] and unittest's own arguments."""
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--bin", type=Path, default=_bin_folder)
    parser.add_argument("--soak", action="store_true")
    parser.add_argument("--seed", type=int, default=seed)
    options, rest = parser.parse_known_args()
    # Scenarios know this module as `harness`.
    globals().update(_bin_folder=options.bin.resolve(), soak=options.soak, seed=options.seed)
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
