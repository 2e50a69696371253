"""Makes a lab, ends it, and runs commands inside it: the outer side of the namespaces."""
import json
import os
import signal
import subprocess
import sys
from pathlib import Path

from . import registry
from .errors import FAILED, USAGE, LabError
from .first_process import STOP_SECONDS
from .hosts import namespace_path

SOURCE_ROOT = Path(__file__).resolve().parents[2]
DEFAULT_BIN = SOURCE_ROOT / "build/release/bin"
SYSTEM_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

_UNSHARE = ["unshare", "--mount", "--net", "--ipc", "--pid", "--uts", "--fork", "--kill-child",
            "--propagation", "private"]
_UNSHARE_AS_USER = ["--user", "--map-root-user"]
_ENTER = ["--mount", "--net", "--ipc", "--pid", "--uts"]
_ENTER_AS_USER = ["--user", "--preserve-credentials"]


def start(name, config, bin_folder, log_folder):
    """Starts a lab and returns it once all its programs are ready. On failure nothing of it is left but the logs in
    a `log_folder` of the caller's (None: inside the lab's own folder)."""
    bin_folder = Path(bin_folder or DEFAULT_BIN).resolve()
    shared = [str(folder) for folder in [bin_folder.parent / "share"] if folder.is_dir()]

    def describe(folder):
        logs = Path(log_folder).resolve() if log_folder else folder / "log"
        logs.mkdir(parents=True, exist_ok=True)
        return {"name": folder.name, "folder": str(folder), "logs": str(logs), "bin": str(bin_folder),
                "path": f"{bin_folder}:{SYSTEM_PATH}", "visible": [str(SOURCE_ROOT), str(bin_folder), *shared],
                "config": config.to_dict()}

    lab, lock_fd = registry.create(name, describe)
    try:
        try:
            _start_first_process(lab, lock_fd)
        finally:
            os.close(lock_fd)
    except BaseException:
        lab.wait_until_dead(timeout=5)
        registry.remove(lab)
        raise
    return lab


def _start_first_process(lab, lock_fd):
    """Returns when the first process reports that all is ready. Otherwise that process is gone on return."""
    read_fd, write_fd = os.pipe()
    own_log = lab.logs / "lab"
    command = [*_UNSHARE, *([] if os.geteuid() == 0 else _UNSHARE_AS_USER), sys.executable, "-B", "-m",
               "labctl.first_process", str(lab.folder), str(write_fd), str(lock_fd)]
    env = {**os.environ, "PYTHONPATH": str(SOURCE_ROOT / "lab"), "PATH": SYSTEM_PATH}
    with open(own_log, "ab") as output:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, env=env,
                                   cwd="/", start_new_session=True, pass_fds=(write_fd, lock_fd))
    os.close(write_fd)
    try:
        with open(read_fd, "rb") as pipe:
            report = pipe.readline()
        error = json.loads(report)["error"] if report else _early_end_text(own_log)
        if error:
            raise LabError(f"lab {lab.name} did not start: {error}", FAILED)
    except BaseException:
        process.kill()  # and by --kill-child all below it
        process.wait()
        raise


def _early_end_text(own_log):
    """The first process said nothing: unshare was refused, or it was killed."""
    text = own_log.read_text(encoding="utf-8", errors="backslashreplace").strip()
    hint = "" if os.geteuid() == 0 else "\n  (an ordinary user needs user namespaces: sysctl user.max_user_namespaces)"
    return (text or "its first process was killed") + hint


def stop(lab):
    """Ends a lab and removes its folder. Programs get SIGTERM first, last started first."""
    grace = (STOP_SECONDS + 1) * (len(lab.description["config"]["programs"]) + 1)
    pid = lab.pid
    _kill(lab, pid, signal.SIGTERM)
    if not lab.wait_until_dead(grace):
        _kill(lab, pid, signal.SIGKILL)
        if not lab.wait_until_dead(grace):
            raise LabError(f"lab {lab.name} does not end (first process {pid})")
    registry.remove(lab)


def _kill(lab, pid, number):
    if not lab.is_alive():
        return
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


def enter_command(lab, command, host=None):
    """The command line and the environment that run `command` in the lab, in the present folder if it exists there;
    with `host` in the network of that host of the lab."""
    description, pid = lab.description, lab.pid
    as_user = [] if os.geteuid() == 0 else _ENTER_AS_USER
    folder = os.getcwd()
    if not os.path.isdir(f"/proc/{pid}/root{folder}"):
        folder = "/"
    env = {**os.environ, "PATH": description["path"], "LAB_NAME": lab.name, "LAB_BIN": description["bin"]}
    if host is not None:
        names = [row["name"] for row in description["config"].get("hosts", [])]
        if host not in names:
            raise LabError(f"lab {lab.name} has no host {host} (hosts: {', '.join(names) or 'none'})", USAGE)
        command = ["nsenter", f"--net={namespace_path(host)}", "--", *command]
    return ["nsenter", "--target", str(pid), *as_user, *_ENTER, f"--wdns={folder}", "--", *command], env


def run_inside(lab, command):
    """Runs a command in the lab and returns its exit status, 128 and the signal's number if it was killed. Ctrl-C
    is the command's business meanwhile."""
    line, env = enter_command(lab, command)
    before = signal.signal(signal.SIGINT, lambda number, frame: None)  # unlike "ignore" not inherited
    try:
        code = subprocess.run(line, env=env, check=False).returncode
    finally:
        signal.signal(signal.SIGINT, before)
    return code if code >= 0 else 128 - code
