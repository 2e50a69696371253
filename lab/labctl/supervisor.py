"""Starts the lab's programs one after the other, each when the one before it is ready, and watches them.

A program that ends too early, or is not ready within its deadline, makes the start fail. After the start a program that
ends is only noted: the lab stays, so that it can be looked into. The owner's loop calls `advance` some times a second
while `starting`, and `child_ended` for each child that it has reaped. Nothing here waits.
"""
import os
import shutil
import signal
import stat
import time

from .errors import LabError

_LOG_TAIL_LINES = 10


class LogWatch:
    """Looks for a text in the lines that a file gets from now on."""

    def __init__(self, path, text):
        self._path, self._text, self._rest = path, text.encode(), b""
        self._offset = os.path.getsize(path) if os.path.exists(path) else 0

    def found(self):
        if not os.path.exists(self._path):
            return False
        with open(self._path, "rb") as file:
            file.seek(self._offset)
            new = file.read()
        self._offset += len(new)
        *lines, self._rest = (self._rest + new).split(b"\n")
        return any(self._text in line for line in lines)


class RunningProgram:
    """One program of the configuration and what became of it."""

    def __init__(self, spec, log_folder):
        self.spec = spec
        self.log_path = os.path.join(log_folder, spec.name)
        self.pid = None
        self.state = "waiting"  # then "running", then "exited" or "killed"
        self.ready = False
        self.exit_status = None
        self.signal = None  # name of the signal that killed it
        self._started_at = None
        self._watch = None

    def start(self, env, syslog_path):
        for kind, path in (("log", self.log_path), ("syslog", syslog_path)):
            if kind in self.spec.ready:
                self._watch = LogWatch(path, self.spec.ready[kind])
        env = {**env, **self.spec.env}
        self._started_at = time.monotonic()
        self.pid = os.posix_spawn(
            _executable(self.spec, env["PATH"]), self.spec.command, env,
            file_actions=[(os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
                          (os.POSIX_SPAWN_OPEN, 1, self.log_path, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o644),
                          (os.POSIX_SPAWN_DUP2, 1, 2)],
            setsid=True, setsigmask=[], setsigdef=[signal.SIGPIPE, signal.SIGXFSZ, signal.SIGHUP])
        self.state = "running"

    def ended(self, wait_status):
        code = os.waitstatus_to_exitcode(wait_status)
        self.state = "exited" if code >= 0 else "killed"
        self.exit_status = code if code >= 0 else None
        self.signal = signal.Signals(-code).name if code < 0 else None

    def has_ended(self):
        return self.state in ("exited", "killed")

    def is_well(self):
        """Running, or a set-up step that did its work."""
        return self.state == "running" or (self.exit_status is not None and "exit" in self.spec.ready
                                           and self.exit_status == self.spec.ready["exit"])

    def is_ready(self):
        for kind, wanted in self.spec.ready.items():
            if kind == "file":
                return os.path.exists(wanted)
            if kind == "socket":
                return os.path.exists(wanted) and stat.S_ISSOCK(os.stat(wanted).st_mode)
            if kind == "exit":
                return self.has_ended()
            return self._watch.found()
        return True

    def is_late(self):
        return time.monotonic() - self._started_at > self.spec.deadline

    def end_text(self):
        return f"exited with status {self.exit_status}" if self.signal is None else f"was killed by {self.signal}"

    def condition_text(self):
        return " ".join(f"{kind} {wanted}" for kind, wanted in self.spec.ready.items())

    def log_tail(self):
        """The last lines of its output, indented, for messages."""
        if not os.path.exists(self.log_path):
            return ""
        with open(self.log_path, encoding="utf-8", errors="backslashreplace") as file:
            lines = file.read().splitlines()[-_LOG_TAIL_LINES:]
        return "".join(f"\n  {self.spec.name}: {line}" for line in lines)

    def to_dict(self):
        return {"name": self.spec.name, "state": self.state, "ready": self.ready, "well": self.is_well(),
                "pid": self.pid, "exit_status": self.exit_status, "signal": self.signal}


class Supervisor:
    def __init__(self, specs, env, log_folder, on_change):
        """`on_change` is called after each change of a program's state."""
        self.programs = [RunningProgram(spec, log_folder) for spec in specs]
        self._env = env
        self._syslog_path = os.path.join(log_folder, "syslog")
        self._on_change = on_change

    @property
    def starting(self):
        return any(not program.ready for program in self.programs)

    def advance(self):
        """Goes on with the start as far as it can now. Raises LabError when the start has failed."""
        for program in self.programs:
            self._require_well(program)
            if program.ready:
                continue
            if program.state == "waiting":
                self._start(program)
            program.ready = program.is_ready()
            if not program.ready:
                self._require_in_time(program)
                return
            self._on_change()

    def child_ended(self, pid, wait_status):
        """Returns what to log, or None if the child was no program of ours."""
        for program in self.programs:
            if program.pid == pid and not program.has_ended():
                program.ended(wait_status)
                self._on_change()
                return f"{program.spec.name} {program.end_text()}"
        return None

    def signal_last(self, number):
        """Signals the running program that was started last. Returns whether there was one."""
        running = [program for program in self.programs if program.state == "running"]
        if running:
            os.kill(running[-1].pid, number)
        return bool(running)

    def running_count(self):
        return sum(program.state == "running" for program in self.programs)

    def _start(self, program):
        try:
            program.start(self._env, self._syslog_path)
        except OSError as error:
            raise LabError(f"cannot start {program.spec.name}: {program.spec.command[0]}: {error.strerror}") from error
        self._on_change()

    @staticmethod
    def _require_well(program):
        if program.has_ended() and not program.is_well():
            raise LabError(f"{program.spec.name} {program.end_text()} during the start{program.log_tail()}")

    @staticmethod
    def _require_in_time(program):
        if program.is_late():
            raise LabError(f"{program.spec.name} was not ready after {program.spec.deadline:g} s "
                           f"(waited for {program.condition_text()}){program.log_tail()}")


def _executable(spec, path):
    found = shutil.which(spec.command[0], path=path)
    if found is None:
        raise LabError(f"cannot start {spec.name}: {spec.command[0]} is not a program in {path}")
    return found
