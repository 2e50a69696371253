"""What a lab contains: files placed inside it and the programs that it starts, read from a JSON file.

    {
      "base":     "router_lab.json",
      "files":    {"/etc/default/sim_size": "small\n", "/etc/default/sysmgrd.json": {"daemons": []}},
      "private":  ["/var/log"],
      "env":      {"TARN_DEBUG": "1"},
      "hosts":    [
        {"name": "alice", "link": "ge0_1", "address": ["192.168.1.5/24", "fd00:1::5/64"], "gateway": "192.168.1.1"}
      ],
      "programs": [
        {"name": "fpd", "command": ["fpd", "-f"], "ready": {"socket": "/run/fpd.sock"}, "deadline": 10}
      ]
    }

Every member may be missing. With a base, a path beside this file, all of that file counts, too: files and variables of
one name, and programs of one name in their old place, are replaced by this file's. A host is a network namespace beside the lab's own, with an Ethernet link whose other end
is the interface `link` of the lab; address and gateway may be one text, a list, or missing. A file's content is a
text, or an object or a list that is written as JSON. Files may only stand below private folders, so that nothing of
the host is written.
Unknown members are refused: a mistyped one would otherwise be a lab that silently lacks something.
"""
import dataclasses
import json
import os
import posixpath
import re

from .errors import USAGE, LabError

PRIVATE_FOLDERS = ("/run", "/dev/shm", "/tmp", "/boot", "/etc")  # /var/run is a link to /run
DEFAULT_DEADLINE = 10.0  # seconds
MOST_BASES = 4
NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9_.-]{0,31}")
LINK = re.compile(r"[A-Za-z0-9][A-Za-z0-9_.-]{0,14}")

# When a program counts as ready, and the type of the condition's value. `log` looks at lines of the program's own
# output, `syslog` at records of the lab's /dev/log; both at what comes after the program's start. `exit` is for
# set-up steps: ready when the program has ended with that status.
READY_KINDS = {"file": str, "socket": str, "log": str, "syslog": str, "exit": int}


@dataclasses.dataclass
class Program:
    name: str  # also names its output file
    command: list  # without a slash the first word is looked up in the bin folder, then in PATH
    ready: dict  # one entry of READY_KINDS; empty: ready once started
    deadline: float  # seconds from the start until ready
    env: dict


@dataclasses.dataclass
class Host:
    name: str
    link: str  # the interface in the lab at the other end of the host's only one
    address: list  # with prefix lengths
    gateway: list


@dataclasses.dataclass
class Config:
    files: dict  # path inside the lab -> content
    private: list  # further folders that get an empty private copy
    env: dict
    programs: list
    hosts: list

    def to_dict(self):
        return dataclasses.asdict(self)


def load(path):
    """The configuration in a file; the empty one without a file."""
    return parse({}, "no configuration") if path is None else parse(_read(path), path)


def _read(path, depth=0):
    """The decoded file, laid over its base."""
    try:
        with open(path, encoding="utf-8") as file:
            data = json.load(file)
    except OSError as error:
        raise LabError(f"{path}: {error.strerror}", USAGE) from error
    except ValueError as error:  # JSON and UTF-8 errors
        raise LabError(f"{path}: {error}", USAGE) from error
    if not isinstance(data, dict) or "base" not in data:
        return data
    base = data.pop("base")
    if not isinstance(base, str) or depth == MOST_BASES:
        raise LabError(f"{path}: base must be the path of a file, in a chain of at most {MOST_BASES}", USAGE)
    return _laid_over(_read(os.path.join(os.path.dirname(path), base), depth + 1), data)


def _laid_over(base, data):
    """Both in one. What is not as it should be is left to the checks."""
    joined = {**base, **data}
    for member in ("files", "env"):
        if isinstance(base.get(member), dict) and isinstance(data.get(member), dict):
            joined[member] = {**base[member], **data[member]}
    for member in ("private", "hosts", "programs"):
        if isinstance(base.get(member), list) and isinstance(data.get(member), list):
            joined[member] = _lists_joined(base[member], data[member])
    return joined


def _lists_joined(base, own):
    def name_of(entry):
        name = entry.get("name") if isinstance(entry, dict) else None
        return name if isinstance(name, str) else None
    replaced = {name_of(entry): entry for entry in own if name_of(entry)}
    old = [replaced.pop(name_of(entry), entry) for entry in base]
    return old + [entry for entry in own if not any(entry is other for other in old)]


def parse(data, source):
    """Checks a decoded configuration; `source` names it in errors."""
    check = _Check(source)
    check.members(data, "the configuration", ("files", "private", "env", "programs", "hosts"))
    private = [check.private_folder(p) for p in check.typed(data.get("private", []), list, "private")]
    files = check.contents(data.get("files", {}))
    for target in files:
        check.placed_file(target, [*PRIVATE_FOLDERS, *private])
    programs = [check.program(p) for p in check.typed(data.get("programs", []), list, "programs")]
    names = [program.name for program in programs]
    for name in names:
        check.require(names.count(name) == 1, f"two programs are named {name}")
    hosts = [check.host(host) for host in check.typed(data.get("hosts", []), list, "hosts")]
    for field in ("name", "link"):
        names = [getattr(host, field) for host in hosts]
        for name in names:
            check.require(names.count(name) == 1, f"two hosts have the {field} {name}")
    return Config(files, private, check.texts(data.get("env", {}), "env"), programs, hosts)


class _Check:
    """The rules of the file. Each failure names the file and the place."""

    def __init__(self, source):
        self.source = source

    def require(self, good, problem):
        if not good:
            raise LabError(f"{self.source}: {problem}", USAGE)

    def typed(self, value, kind, where):
        good = isinstance(value, kind) and not isinstance(value, bool)
        self.require(good, f"{where} must be {_KIND_TEXTS[kind]}")
        return value

    def members(self, value, where, known):
        self.typed(value, dict, where)
        for member in value:
            self.require(member in known, f'{where} has the unknown member "{member}" (known: {", ".join(known)})')

    def texts(self, value, where):
        for key, text in self.typed(value, dict, where).items():
            self.typed(text, str, f"{where}: {key}")
        return value

    def contents(self, value):
        files = self.typed(value, dict, "files")
        return self.texts({path: json.dumps(content, indent=2) + "\n" if isinstance(content, (dict, list)) else content
                           for path, content in files.items()}, "files")

    def private_folder(self, path):
        self.typed(path, str, "private")
        good = path == posixpath.normpath(path) and path.startswith("/") and path not in ("/", "/dev", "/proc")
        self.require(good and os.path.isdir(path), f"private: {path} is not an absolute path of a folder")
        return path

    def placed_file(self, path, private):
        inside = any(path.startswith(folder + "/") for folder in private)
        self.require(inside and path == posixpath.normpath(path),
                     f"files: {path} does not stand below a private folder ({', '.join(private)})")

    def program(self, data):
        self.members(data, "a program", ("name", "command", "ready", "deadline", "env"))
        name = self.typed(data.get("name"), str, "a program's name")
        self.require(NAME.fullmatch(name) and name not in ("syslog", "lab"), f'"{name}" cannot name a program')
        command = self.typed(data.get("command"), list, f"{name}: command")
        self.require(command and all(isinstance(word, str) for word in command),
                     f"{name}: command must be a list of words")
        deadline = self.typed(data.get("deadline", DEFAULT_DEADLINE), (int, float), f"{name}: deadline")
        self.require(deadline > 0, f"{name}: deadline must be above 0")
        return Program(name, command, self.ready(data.get("ready", {}), name), float(deadline),
                       self.texts(data.get("env", {}), f"{name}: env"))

    def host(self, data):
        self.members(data, "a host", ("name", "link", "address", "gateway"))
        name = self.typed(data.get("name"), str, "a host's name")
        self.require(NAME.fullmatch(name), f'"{name}" cannot name a host')
        link = self.typed(data.get("link"), str, f"{name}: link")
        self.require(LINK.fullmatch(link), f'{name}: "{link}" cannot name an interface')
        return Host(name, link, self.text_list(data.get("address", []), f"{name}: address"),
                    self.text_list(data.get("gateway", []), f"{name}: gateway"))

    def text_list(self, value, where):
        texts = [value] if isinstance(value, str) else self.typed(value, list, where)
        return [self.typed(text, str, where) for text in texts]

    def ready(self, value, name):
        self.members(value, f"{name}: ready", tuple(READY_KINDS))
        self.require(len(value) <= 1, f"{name}: ready takes one condition")
        for kind, wanted in value.items():
            self.typed(wanted, READY_KINDS[kind], f"{name}: ready: {kind}")
        return value


_KIND_TEXTS = {list: "a list", dict: "an object", str: "a text", int: "a whole number", (int, float): "a number"}
