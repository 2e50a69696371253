#!/usr/bin/python3 -B
"""Labs are apart from each other and from the host, and nothing of them outlives them."""
import os
import signal
import sys
import uuid
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402

SAME_NAMES = str(Path(__file__).with_name("same_names.py"))
PRIVATE_FOLDERS = ("/etc", "/etc/default", "/etc/confd", "/boot", "/tmp", "/run", "/dev/shm")
SIZE_FILE = Path("/etc/default/sim_size")


def listing(folder):
    return sorted(os.listdir(folder))


class Isolation:
    """The tests, for the present user and for an ordinary one: `user` differs."""

    def setUp(self):
        self.name = f"tarnd-scenario-{uuid.uuid4().hex[:12]}"  # unknown to the host
        self.claims = {"programs": [{"name": "claim", "ready": {"log": "claimed"},
                                     "command": [harness.PYTHON, "-B", SAME_NAMES, "claim", self.name]}]}

    def test_two_labs_with_the_same_names_see_nothing_of_each_other(self):
        user = self.user()
        labs = [user.start_lab(name, self.claims) for name in ("east", "west")]
        for lab, other in (labs, labs[::-1]):
            answers = lab.run(harness.PYTHON, "-B", SAME_NAMES, "ask", self.name).stdout.split("\n")
            self.assertEqual(answers, [f"file {lab.name}", f"memory {lab.name}", f"port {lab.name}", ""])
            lab.wait_for_log(f"claimed by {lab.name}")
            self.assertNotIn(other.name, lab.log())
            self.assertEqual(lab.run("hostname").stdout, f"{lab.name}\n")
        for path in (f"/run/{self.name}", f"/dev/shm/{self.name}"):
            self.assertFalse(os.path.exists(path), path)

    def test_what_a_lab_writes_stays_in_it(self):
        before = {folder: listing(folder) for folder in ("/etc", "/etc/default", "/boot")}
        size_before = SIZE_FILE.read_bytes() if SIZE_FILE.exists() else None
        user = self.user()
        lab = user.start_lab("writer", {"files": {str(SIZE_FILE): "small\n"}})
        self.assertEqual(lab.run("cat", str(SIZE_FILE)).stdout, "small\n")
        self.assertEqual(lab.run("ls", "-A", "/boot").stdout, "")
        lab.run("test", "!", "-e", str(user.folder))  # below the host's /tmp
        self.assertEqual(lab.run("cat", "/etc/debian_version").stdout, Path("/etc/debian_version").read_text())
        for folder in PRIVATE_FOLDERS:
            lab.run("touch", f"{folder}/{self.name}")
        lab.stop()
        leaked = [path for path in (f"{folder}/{self.name}" for folder in PRIVATE_FOLDERS) if os.path.exists(path)]
        for path in leaked:
            os.unlink(path)
        self.assertEqual(leaked, [])
        self.assertEqual({folder: listing(folder) for folder in before}, before)
        self.assertEqual(SIZE_FILE.read_bytes() if SIZE_FILE.exists() else None, size_before)

    def test_the_network_inside_has_loopback_and_tunnels(self):
        lab = self.user().start_lab("net")
        lab.run("ip", "link", "add", "v0", "type", "veth", "peer", "name", "v1")
        links = lab.run("ip", "-o", "link").stdout
        self.assertIn("LOOPBACK,UP", links)
        self.assertEqual(len(links.splitlines()), 3, links)
        if os.path.exists("/dev/net/tun"):
            lab.run("ip", "tuntap", "add", "dev", "t0", "mode", "tun")

    def test_stop_leaves_nothing(self):
        user = self.user()
        lab = user.start_lab("gone", self.claims)
        namespace = os.readlink(f"/proc/{lab.status()['pid']}/ns/pid")
        self.assertGreaterEqual(len(harness.processes_in_namespace(namespace)), 2)
        lab.stop()
        self.assertEqual(harness.processes_in_namespace(namespace), [])
        self.assertEqual(listing(user.runtime), [])

    def test_a_lab_ends_with_its_first_process(self):
        user = self.user()
        for victim in ("first process", "unshare above it"):
            lab = user.start_lab("killed", self.claims)
            pid = lab.status()["pid"]
            namespace = os.readlink(f"/proc/{pid}/ns/pid")
            parent = int(Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[1])
            os.kill(pid if victim == "first process" else parent, signal.SIGKILL)
            harness.wait_until(lambda: not harness.processes_in_namespace(namespace), f"all end with the {victim}")
            gone = harness.wait_until(lambda: user.lab("list").stderr, "the stale lab is noticed")
            self.assertIn("killed had ended by itself", gone)
            self.assertEqual(listing(user.runtime), [])
            self.assertEqual(user.lab("enter", "killed", "true", check=False).returncode, 125)


class PresentUser(Isolation, harness.Scenario):
    def user(self):
        return self.present_user()


class OrdinaryUser(Isolation, harness.Scenario):
    def user(self):
        return self.ordinary_user()

    def test_two_users_may_use_the_same_lab_name(self):
        labs = [user.start_lab("shared", self.claims) for user in (self.ordinary_user(), self.present_user())]
        for lab in labs:
            self.assertEqual(lab.user.lab("list").stdout.split()[:1], ["shared"])


if __name__ == "__main__":
    harness.main()
