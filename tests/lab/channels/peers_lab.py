"""A lab with the forwarding plane, the daemon and its three peers, each of which can be killed and started again.

sysmgrd starts the daemon, and starts it again when it ends. What else ends, the scenario starts again.
"""
import json
import signal

import harness

PROGRAMS = {"fpd": ["fpd", "-f"], "ttmd": ["ttmd"], "ftmd": ["ftmd"],
            "sysmgrd": ["sysmgrd", "--config", "/etc/default/sysmgrd.json"]}


def _config(daemons, files):
    programs = [{"name": name, "command": command, "ready": {"socket": f"/var/run/{name}.sock"}}
                for name, command in PROGRAMS.items()]
    files = {"/etc/default/sim_size": "small\n", "/etc/default/sysmgrd.json": json.dumps({"daemons": daemons}), **files}
    # So that an assertion that fails ends the sanitizers' build as it ends the others.
    return {"files": files, "env": {"ASAN_OPTIONS": "handle_segv=0"}, "programs": programs}


def supervised(*command):
    """The daemon as sysmgrd's configuration has it. Its messages go to the lab's log `tarnd`."""
    return {"name": "tarnd", "module": "tarnd", "command": list(command), "output": "/run/lab/log/tarnd"}


class PeersLab:
    """The lab; `daemons` and `files` as in the configurations of sysmgrd and of labs."""

    def __init__(self, scenario, name, daemons, files=None):
        self.lab = scenario.start_lab(name, _config(daemons, files or {}))
        self._pids = {program["name"]: program["pid"] for program in self.lab.status()["programs"]}

    def ask(self, daemon, *words):
        """A peer's answer to a request, which must be a good one."""
        return json.loads(self.lab.run("peerctl", "--json", daemon, *map(str, words)).stdout)

    def fpctl(self, *words):
        return json.loads(self.lab.run("fpctl", "--json", *map(str, words)).stdout)

    def daemon(self):
        """What sysmgrd knows of the daemon."""
        return self.ask("sysmgrd", "list")["daemons"][0]

    # ---- Processes ----

    def signal_pid(self, pid, number):
        self.lab.run("sh", "-c", f"kill -{int(number)} {pid}")

    def end(self, name, number=signal.SIGKILL):
        """Ends a peer and waits until it has gone."""
        pid = self._pids.pop(name)
        self.signal_pid(pid, number)
        harness.wait_until(lambda: self.lab.run("test", "-e", f"/proc/{pid}", check=False).returncode != 0,
                           f"{name} ends")

    def start(self, name):
        """Starts a peer again and returns when it takes requests."""
        started = self.lab.run("sh", "-c", f"{' '.join(PROGRAMS[name])} >> /run/lab/log/{name} 2>&1 & echo $!")
        self._pids[name] = int(started.stdout)
        harness.wait_until(lambda: self.lab.run("peerctl", name, "stats", check=False).returncode == 0,
                           f"{name} is ready")

    def restart(self, name):
        self.end(name)
        self.start(name)

    # ---- Channels ----

    def wait_until_up(self):
        """Waits until the daemon says hello and is connected with all peers. Returns its pid."""
        daemon = harness.wait_until(self._row_if_up, "the daemon says hello", 15)
        harness.wait_until(lambda: self._is_registered(daemon["pid"]), "the daemon registers for both families")
        harness.wait_until(lambda: self.ask("ftmd", "stats")["connected"], "ftmd is connected")
        return daemon["pid"]

    def _row_if_up(self):
        row = self.daemon()
        return row if row["state"] == "up" and row["hellos"] > 0 else None

    def _is_registered(self, pid):
        wanted = [{"name": "tarnd", "pid": pid, "ipv4": True, "ipv6": True, "originates": False}]
        return self.ask("ttmd", "list")["clients"] == wanted
