"""The lab's own view of the file system. Runs in the first process, in a mount namespace made just before.

/run, /dev/shm, /tmp, /boot and the configured private folders become empty tmpfs; /etc becomes a tmpfs filled with
a copy; /dev is rebuilt from the host's nodes, so that /dev/log and new terminals are the lab's own. Everything else
is the host's, writable as the user's rights allow. Folders that the lab needs and a private one would hide (programs,
sources, logs) are bound again at their own paths: they are opened first and mounted through the descriptor.
"""
import contextlib
import ctypes
import os
import shutil
import stat

from .config import PRIVATE_FOLDERS

LAB_FOLDER = "/run/lab"  # the lab's folder as seen inside
ETC_FOLDERS = ("/etc/default", "/etc/confd", "/etc/lumora")

_MS_NOSUID, _MS_NODEV, _MS_NOEXEC, _MS_BIND, _MS_REC = 0x2, 0x4, 0x8, 0x1000, 0x4000
_DEVICES = ("null", "zero", "full", "random", "urandom", "tty", "net/tun")
_DEVICE_LINKS = {"fd": "/proc/self/fd", "stdin": "fd/0", "stdout": "fd/1", "stderr": "fd/2", "ptmx": "pts/ptmx"}

_libc = ctypes.CDLL(None, use_errno=True)


def build(state_folder, log_folder, visible, private, files):
    """Mounts everything and writes the configured files. `visible` are folders that must keep their paths. Raises
    OSError that names the path."""
    kept = {path: _open_folder(path) for path in visible if os.path.isdir(path)}
    state_fd, log_fd = _open_folder(state_folder), _open_folder(log_folder)
    for folder in [f for f in PRIVATE_FOLDERS if not f.startswith(("/dev", "/etc"))] + list(private):
        _mount_tmpfs(folder, "1777" if folder == "/tmp" else "0755")
    _make_etc()
    _make_dev()
    _mount("proc", "/proc", "proc", _MS_NOSUID | _MS_NODEV | _MS_NOEXEC)
    _place_files(files)  # before the binds, which show folders of the host
    os.makedirs("/run/lock", exist_ok=True)
    _bind(state_fd, LAB_FOLDER)
    _bind(log_fd, f"{LAB_FOLDER}/log")
    for path, fd in kept.items():
        if not os.path.isdir(path) or not os.path.samestat(os.stat(path), os.fstat(fd)):
            _bind(fd, path)
    for fd in (*kept.values(), state_fd, log_fd):
        os.close(fd)
    os.chdir("/tmp")  # what programs leave in their folder, core files say, goes with the lab


def _open_folder(path):
    return os.open(path, os.O_PATH | os.O_DIRECTORY | os.O_CLOEXEC)


def _mount(source, target, kind, flags, options=""):
    result = _libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode())
    if result != 0:
        code = ctypes.get_errno()
        raise OSError(code, f"cannot mount {kind or 'a bind'}: {os.strerror(code)}", target)


def _mount_tmpfs(target, mode):
    _mount("tmpfs", target, "tmpfs", _MS_NOSUID, f"mode={mode}")


def _bind(fd, target):
    """Through the descriptor, since a private folder may hide the path by now."""
    os.makedirs(target, exist_ok=True)
    _mount(f"/proc/self/fd/{fd}", target, "", _MS_BIND | _MS_REC)


def _place_files(files):
    for path, content in files.items():
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)


def _make_etc():
    host = os.open("/etc", os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    _mount_tmpfs("/etc", "0755")
    _copy_folder(f"/proc/self/fd/{host}", "/etc")
    os.close(host)
    for folder in ETC_FOLDERS:
        os.makedirs(folder, exist_ok=True)


def _copy_folder(source, target):
    """Copies what this user may read: an ordinary user's lab has no shadow file. Sockets and the like stay behind."""
    with os.scandir(source) as entries:
        for entry in entries:
            copy = os.path.join(target, entry.name)
            with contextlib.suppress(PermissionError):
                if entry.is_symlink():
                    os.symlink(os.readlink(entry.path), copy)
                elif entry.is_dir():
                    os.mkdir(copy)
                    _copy_folder(entry.path, copy)
                    _copy_owner(entry, copy)
                elif entry.is_file():
                    shutil.copyfile(entry.path, copy)
                    _copy_owner(entry, copy)


def _copy_owner(entry, copy):
    status = entry.stat()
    with contextlib.suppress(OSError):  # in a user namespace only the user itself is mapped
        os.chown(copy, status.st_uid, status.st_gid)
    os.chmod(copy, stat.S_IMODE(status.st_mode))


def _make_dev():
    host = _open_folder("/dev")
    _mount_tmpfs("/dev", "0755")
    for folder, mode in (("/dev/shm", 0o1777), ("/dev/pts", 0o755), ("/dev/net", 0o755)):
        os.mkdir(folder)
        os.chmod(folder, mode)
    for name in _DEVICES:
        source = f"/proc/self/fd/{host}/{name}"
        if not os.path.exists(source):  # a host without the tun module has no /dev/net/tun
            continue
        with open(f"/dev/{name}", "wb"):
            pass
        _mount(source, f"/dev/{name}", "", _MS_BIND)
    os.close(host)
    for name, target in _DEVICE_LINKS.items():
        os.symlink(target, f"/dev/{name}")
    _mount_tmpfs("/dev/shm", "1777")
    _mount("devpts", "/dev/pts", "devpts", _MS_NOSUID | _MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0620")
