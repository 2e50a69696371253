"""The command line of `lab`: one function for each verb."""
import argparse
import json
import os
import signal
import sys

from . import config, launch, registry
from .errors import FAILED, PROGRAM_ENDED, USAGE, WRAPPER_FAILED, LabError

_DESCRIPTION = """\
Runs a whole router on one machine, in namespaces of its own, as root or as an ordinary user. Labs run side by
side and leave the host's /etc, /boot, /run, /tmp and shared memory alone."""

_EPILOG = """\
exit status:
  0  done
  1  status: the lab runs, but a program of it has ended
  2  wrong command line or configuration
  3  there is no lab of that name
  4  the name is in use
  5  the lab could not be made, or a program did not become ready
  enter, and start with a command, exit as the command does, and with 125 for failures of their own."""


def main(arguments=None):
    arguments = sys.argv[1:] if arguments is None else arguments
    own, command = _split_command(arguments)
    options = _parser().parse_args(own)
    options.command = command
    wrapper = options.verb == "enter" or (options.verb == "start" and command)
    signal.signal(signal.SIGTERM, lambda number, frame: sys.exit(128 + number))
    try:
        _require_no_stray_command(options)
        return options.function(options)
    except LabError as error:
        print(f"lab: {error}", file=sys.stderr)
        return WRAPPER_FAILED if wrapper else error.code
    except BrokenPipeError:  # the reader of our output has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except OSError as error:
        print(f"lab: {error}", file=sys.stderr)
        return WRAPPER_FAILED if wrapper else FAILED
    except KeyboardInterrupt:
        return 128 + signal.SIGINT


def _split_command(arguments):
    """Parts our own arguments from the command to run: what follows `--`, or for enter what follows the name."""
    if "--" in arguments:
        split = arguments.index("--")
        own, command = arguments[:split], arguments[split + 1:]
    else:
        own, command = arguments, []
    if own[:1] == ["enter"] and len(own) > 2 and not own[1].startswith("-"):
        split = 4 if own[2] == "--host" else 2
        own, command = own[:split], own[split:] + command
    return own, command


def _require_no_stray_command(options):
    if options.command and options.verb not in ("start", "enter"):
        raise LabError(f"{options.verb} takes no command", USAGE)


def _parser():
    parser = argparse.ArgumentParser(prog="lab", description=_DESCRIPTION, epilog=_EPILOG,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    verbs = parser.add_subparsers(dest="verb", required=True, metavar="VERB")

    verb = verbs.add_parser("start", help="start a lab; with a command: run it inside, then stop the lab",
                            usage="lab start [--name NAME] [--config FILE] [--bin DIR] [--logs DIR] [-- command...]")
    verb.add_argument("--name", default="", help="the lab's name (default: the first free one of lab1, lab2, ...)")
    verb.add_argument("--config", metavar="FILE",
                      help="JSON: files to place inside, programs to start; see docs/lab.md")
    verb.add_argument("--bin", metavar="DIR", help="where programs are looked up first (default: build/release/bin)")
    verb.add_argument("--logs", metavar="DIR", help="where the logs go, and stay after the lab has gone")
    verb.set_defaults(function=_start)

    verb = verbs.add_parser("enter", help="run a command, or a shell, inside a lab",
                            usage="lab enter NAME [--host HOST] [command...]")
    verb.add_argument("name")
    verb.add_argument("--host", help="in the network of this host of the lab")
    verb.set_defaults(function=_enter)

    verb = verbs.add_parser("stop", help="stop a lab and remove what it left")
    which = verb.add_mutually_exclusive_group(required=True)
    which.add_argument("name", nargs="?")
    which.add_argument("--all", action="store_true", help="all labs of this user")
    verb.set_defaults(function=_stop)

    verb = verbs.add_parser("list", help="the running labs of this user")
    verb.add_argument("--json", action="store_true")
    verb.set_defaults(function=_list)

    verb = verbs.add_parser("status", help="a lab's programs; a crashed one with its exit status or signal")
    verb.add_argument("name")
    verb.add_argument("--json", action="store_true")
    verb.set_defaults(function=_status)

    verb = verbs.add_parser("logs", help="print a lab's logs")
    verb.add_argument("name")
    verb.add_argument("log", nargs="?", help="only this one: syslog, lab, or a program's name")
    verb.set_defaults(function=_logs)
    return parser


def _start(options):
    lab = launch.start(options.name, config.load(options.config), options.bin, options.logs)
    if not options.command:
        print(f"{lab.name}: running, first process {lab.pid}, logs in {lab.logs}")
        return 0
    try:
        return launch.run_inside(lab, options.command)
    finally:
        launch.stop(lab)


def _enter(options):
    lab = registry.find(options.name)
    shell = os.environ.get("SHELL", "")
    command = options.command or [shell if os.access(shell, os.X_OK) else "/bin/bash"]
    line, env = launch.enter_command(lab, command, options.host)
    sys.stdout.flush()
    os.execvpe(line[0], line, env)


def _stop(options):
    if not options.all:
        return _stop_one(registry.find(options.name))
    code = 0
    for lab in registry.living().values():
        try:
            _stop_one(lab)
        except LabError as error:
            print(f"lab: {error}", file=sys.stderr)
            code = error.code
    return code


def _stop_one(lab):
    launch.stop(lab)
    print(f"{lab.name}: stopped")
    return 0


def _list(options):
    labs = [lab.status or {"name": lab.name, "pid": None, "logs": str(lab.logs), "starting": True, "programs": []}
            for lab in registry.living().values()]
    if options.json:
        print(json.dumps(labs, indent=1))
        return 0
    for status in labs:
        print(f"{status['name']:16} {status['pid'] or '-':>8}  {_summary(status):24} {status['logs']}")
    return 0


def _status(options):
    lab = registry.find(options.name)
    status = lab.status
    if status is None:
        raise LabError(f"lab {lab.name} is still being made, try again")
    if options.json:
        print(json.dumps(status, indent=1))
    else:
        print(f"{lab.name}: {_summary(status)}, first process {status['pid']}, logs in {status['logs']}")
        for program in status["programs"]:
            print(f"  {program['name']:16} {_program_text(program)}")
    return 0 if status["starting"] or _is_well(status) else PROGRAM_ENDED


def _logs(options):
    folder = registry.find(options.name).logs
    names = [options.log] if options.log else sorted(path.name for path in folder.iterdir())
    for name in names:
        path = folder / name
        if not path.is_file():
            raise LabError(f"lab {options.name} has no log {name}", USAGE)
        if not options.log:
            print(f"==> {name} <==")
        sys.stdout.write(path.read_text(encoding="utf-8", errors="backslashreplace"))
    return 0


def _is_well(status):
    return all(program["well"] for program in status["programs"])


def _summary(status):
    if status["starting"]:
        return "starting"
    bad = [program["name"] for program in status["programs"] if not program["well"]]
    return f"ended: {', '.join(bad)}" if bad else "running"


def _program_text(program):
    if program["signal"]:
        return f"killed by {program['signal']}"
    if program["state"] == "exited":
        return f"exited with status {program['exit_status']}"
    ready = "" if program["ready"] or program["state"] == "waiting" else ", not ready"
    return f"{program['state']}{ready}" + (f", process {program['pid']} inside" if program["pid"] else "")
