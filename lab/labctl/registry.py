"""The folders of the running labs: $XDG_RUNTIME_DIR/tarnd-labs, or /tmp/tarnd-labs-UID where that is not set.

    NAME/lab.json     what the lab was started with (written before the start, never changed)
    NAME/status.json  the first process's pid and its programs (replaced as a whole by the first process)
    NAME/log/         syslog, the lab's own log and one file for each program (another folder with --logs)

A lab lives as long as its folder is locked: the first process and the `unshare` above it hold an flock on the folder
from before the namespaces are made until they end, however they end. So no pid needs to be trusted, and a folder whose
lock is free is stale. Whoever looks at the labs removes stale folders first. All of that happens under an flock on the
base folder, which goes away with the last lab.
"""
import contextlib
import fcntl
import json
import os
import shutil
import sys
import time
from pathlib import Path

from .config import NAME
from .errors import FAILED, NAME_IN_USE, NO_SUCH_LAB, USAGE, LabError


class Lab:
    """One lab's folder. Properties read the files anew each time."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.name = self.folder.name

    @property
    def description(self):
        return json.loads((self.folder / "lab.json").read_text(encoding="utf-8"))

    @property
    def logs(self):
        return Path(self.description["logs"])

    @property
    def status(self):
        """What the first process last told, or None while the lab is still being made."""
        try:
            return json.loads((self.folder / "status.json").read_text(encoding="utf-8"))
        except FileNotFoundError:
            return None

    @property
    def pid(self):
        status = self.status
        if status is None:
            raise LabError(f"lab {self.name} is still being made, try again", FAILED)
        return status["pid"]

    def is_alive(self):
        try:
            fd = os.open(self.folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        except FileNotFoundError:
            return False
        try:
            fcntl.flock(fd, fcntl.LOCK_SH | fcntl.LOCK_NB)
        except BlockingIOError:
            return True
        finally:
            os.close(fd)
        return False

    def wait_until_dead(self, timeout):
        """Whether the lab ended within `timeout` seconds."""
        end = time.monotonic() + timeout
        while self.is_alive():
            if time.monotonic() > end:
                return False
            time.sleep(0.01)
        return True


def base_folder():
    runtime = os.environ.get("XDG_RUNTIME_DIR")
    if runtime and os.path.isdir(runtime) and os.stat(runtime).st_uid == os.geteuid():
        return Path(runtime) / "tarnd-labs"
    return Path("/tmp") / f"tarnd-labs-{os.geteuid()}"


def create(name, describe):
    """Makes the folder of a new lab and locks it. `describe(folder)` gives the content of lab.json. An empty name
    takes the first free one of lab1, lab2, ... Returns the lab and the descriptor that holds the lock."""
    if name and not NAME.fullmatch(name):
        raise LabError(f'"{name}" cannot name a lab: up to 32 letters, digits, "_", "." and "-"', USAGE)
    with _locked_base(create_it=True) as base:
        living = _living(base)
        if name in living:
            raise LabError(f"lab {name} is already running (lab stop {name} ends it)", NAME_IN_USE)
        name = name or next(f"lab{n}" for n in range(1, len(living) + 2) if f"lab{n}" not in living)
        folder = base / name
        folder.mkdir(mode=0o700)
        lock_fd = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        fcntl.flock(lock_fd, fcntl.LOCK_EX)
        description = describe(folder)
        (folder / "lab.json").write_text(json.dumps(description, indent=1), encoding="utf-8")
    return Lab(folder), lock_fd


def find(name):
    labs = living()
    if name not in labs:
        raise LabError(f"there is no lab {name} (running: {', '.join(sorted(labs)) or 'none'})", NO_SUCH_LAB)
    return labs[name]


def living():
    """The running labs by name. Removes what labs left that ended by themselves."""
    with _locked_base() as base:
        return _living(base) if base else {}


def remove(lab):
    """Removes the folder of a lab that has ended."""
    with _locked_base() as base:
        if base and lab.folder.exists() and not lab.is_alive():
            shutil.rmtree(lab.folder)


def _living(base):
    labs = {}
    for folder in sorted(base.iterdir()):
        lab = Lab(folder)
        if lab.is_alive():
            labs[lab.name] = lab
            continue
        shutil.rmtree(folder)
        print(f"lab: {lab.name} had ended by itself, its folder is removed", file=sys.stderr)
    return labs


@contextlib.contextmanager
def _locked_base(create_it=False):
    """Yields the base folder under its lock, None if there is none. Removes it at the end if it is empty."""
    base = base_folder()
    fd = _open_base(base, create_it)
    if fd is None:
        yield None
        return
    try:
        yield base
    finally:
        with contextlib.suppress(OSError):  # not empty
            base.rmdir()
        os.close(fd)


def _open_base(base, create_it):
    while True:
        if create_it:
            base.mkdir(mode=0o700, exist_ok=True)
        try:
            fd = os.open(base, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC)
        except FileNotFoundError:
            if create_it:
                continue
            return None
        except OSError as error:
            raise LabError(f"{base}: {error.strerror}") from error
        opened = os.fstat(fd)
        if opened.st_uid != os.geteuid():
            os.close(fd)
            raise LabError(f"{base} belongs to another user")
        fcntl.flock(fd, fcntl.LOCK_EX)
        # Its last lab may have gone, and the folder with it, while we waited for the lock.
        with contextlib.suppress(FileNotFoundError):
            if os.stat(base).st_ino == opened.st_ino:
                return fd
        os.close(fd)
