"""The lab's first process: process 1 of its namespaces. When it ends, the kernel ends everything in the lab.

Run as `python3 -m labctl.first_process FOLDER REPORT_FD LOCK_FD` by launch.py, under unshare. It builds the lab,
starts the programs, writes one line of JSON to the report descriptor ({"error": null} or the reason) and then serves
/dev/log, reaps children and waits for SIGTERM, which stops the programs in reverse order. The lock descriptor is only
held: it marks the lab as living.
"""
import json
import os
import selectors
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path

from . import config, filesystem, hosts
from .errors import LabError
from .supervisor import Supervisor
from .syslog_reader import SyslogReader

STOP_SECONDS = 3.0  # for each program, between SIGTERM and SIGKILL
_TICK_SECONDS = 0.02  # how often readiness is looked at during the start and the stop
_LOGS = f"{filesystem.LAB_FOLDER}/log"


class FirstProcess:
    def __init__(self, description, host_pid):
        self._description = description
        self._host_pid = host_pid
        self._config = config.parse(description["config"], "lab.json")
        self._stopping = False
        self._supervisor = Supervisor(self._config.programs, self._environment(), _LOGS, self._write_status)

    def build(self):
        filesystem.build(self._description["folder"], self._description["logs"], self._description["visible"],
                         self._config.private, self._config.files)
        socket.sethostname(self._description["name"])
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        for host in self._config.hosts:
            hosts.make(host)
        self._syslog = SyslogReader(f"{_LOGS}/syslog")
        self._wakeup_fd = _signal_pipe(self._on_stop_signal)
        self._selector = selectors.DefaultSelector()
        self._selector.register(self._syslog, selectors.EVENT_READ, self._syslog.read)
        self._selector.register(self._wakeup_fd, selectors.EVENT_READ, self._drain_wakeup)
        self._write_status()

    def start_programs(self):
        """Returns when all are ready. Raises LabError when one fails, or the lab is told to stop meanwhile."""
        self._supervisor.advance()
        while self._supervisor.starting:
            self._serve(_TICK_SECONDS)
            if self._stopping:
                raise LabError("it was stopped during the start")
            self._supervisor.advance()

    def serve_until_stopped(self):
        while not self._stopping:
            self._serve(None)

    def stop_programs(self):
        """The last first, each with its time to end by itself."""
        while self._supervisor.signal_last(signal.SIGTERM):
            count = self._supervisor.running_count()
            end = time.monotonic() + STOP_SECONDS
            while self._supervisor.running_count() == count and time.monotonic() < end:
                self._serve(_TICK_SECONDS)
            if self._supervisor.running_count() == count:
                self._supervisor.signal_last(signal.SIGKILL)
                while self._supervisor.running_count() == count:
                    self._serve(_TICK_SECONDS)

    def _serve(self, timeout):
        for key, _ in self._selector.select(timeout):
            key.data()
        self._reap()

    def _reap(self):
        while True:
            try:
                pid, wait_status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            note = self._supervisor.child_ended(pid, wait_status)
            if note and not self._stopping:
                log(note)

    def _on_stop_signal(self, _number, _frame):
        self._stopping = True

    def _drain_wakeup(self):
        os.read(self._wakeup_fd, 4096)

    def _environment(self):
        env = {"PATH": self._description["path"], "HOME": "/root", "LANG": "C.UTF-8",
               "LAB_NAME": self._description["name"], "LAB_BIN": self._description["bin"]}
        env.update({name: os.environ[name] for name in os.environ if name.endswith("SAN_OPTIONS")})
        return {**env, **self._config.env}

    def _write_status(self):
        programs = [program.to_dict() for program in self._supervisor.programs]
        status = {"name": self._description["name"], "pid": self._host_pid, "logs": self._description["logs"],
                  "starting": self._supervisor.starting, "programs": programs}
        path = f"{filesystem.LAB_FOLDER}/status.json"
        with open(f"{path}.new", "w", encoding="utf-8") as file:
            json.dump(status, file)
        os.replace(f"{path}.new", path)


def log(text):
    """To the lab's own log: launch.py made it our output."""
    print(time.strftime("%H:%M:%S"), text, flush=True)


def _signal_pipe(on_stop):
    """SIGTERM and SIGINT ask for a stop; these and SIGCHLD wake the loop."""
    read_fd, write_fd = os.pipe()
    os.set_blocking(write_fd, False)
    signal.set_wakeup_fd(write_fd, warn_on_full_buffer=False)
    signal.signal(signal.SIGCHLD, lambda number, frame: None)
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, on_stop)
    return read_fd


def _report(report_fd, error):
    os.write(report_fd, json.dumps({"error": error}).encode() + b"\n")
    os.close(report_fd)


def main():
    folder, report_fd, lock_fd = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    for fd in (report_fd, lock_fd):
        os.set_inheritable(fd, False)
    host_pid = int(os.readlink("/proc/self"))  # /proc is still the host's and counts in its numbers
    description = json.loads(Path(folder, "lab.json").read_text(encoding="utf-8"))
    try:
        first = FirstProcess(description, host_pid)
        first.build()
        first.start_programs()
    except (LabError, OSError, subprocess.CalledProcessError) as error:
        _report(report_fd, str(error))
        return 1
    _report(report_fd, None)
    log("started")
    first.serve_until_stopped()
    first.stop_programs()
    log("stopped")
    return 0


if __name__ == "__main__":
    sys.exit(main())
