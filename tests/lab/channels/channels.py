#!/usr/bin/python3 -B
"""The daemon with its three peers: it registers, says hello, hears of locators, and any of the four may be killed."""
import os
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
import peers_lab  # noqa: E402

HANGUP = str(Path(__file__).with_name("hangup.py"))
PID_FILE = "/run/tarnd.0.pid"
HELLOS = 9
LONGEST_GAP_MSECS = 1500
TLOC_ADD, TLOC_DELETE = 5, 6  # types of records


class Channels(harness.Scenario):
    def start_peers(self, name, files=None):
        self.peers = peers_lab.PeersLab(self, name, [peers_lab.supervised("tarnd", "-f", "-d")], files)
        return self.peers

    def received(self, record):
        return self.peers.lab.log().count(f"Received TTM Msg {record} of 140 bytes from ttmd")

    def wait_for_records(self, record, count):
        harness.wait_until(lambda: self.received(record) == count, f"{count} records {record} at the daemon")

    def registered_families(self):
        """What ttmd was registered for, in order."""
        lines = self.peers.lab.log("ttmd").splitlines()
        return [line.partition("registers: ")[2][:4] for line in lines if "tarnd registers: " in line]

    def assert_nothing_malformed(self):
        daemon = self.peers.daemon()
        self.assertEqual((daemon["malformed"], daemon["foreign"], daemon["requests"]), (0, 0, 0))
        self.assertEqual(self.peers.ask("ttmd", "stats")["malformed"], 0)
        ftmd = self.peers.ask("ftmd", "stats")
        self.assertEqual((ftmd["malformed"], ftmd["bad-frames"]), (0, 0))

    def test_it_registers_says_hello_and_stops_in_order(self):
        peers = self.start_peers("steady")
        pid = peers.wait_until_up()
        self.assertEqual(self.registered_families(), ["ipv4", "ipv6"])
        self.assertEqual(peers.lab.run("cat", PID_FILE).stdout.strip(), str(pid))

        peers.ask("ttmd", "announce", "192.0.2.1", "mpls", "ipsec")
        self.wait_for_records(TLOC_ADD, 1)
        peers.ask("ttmd", "withdraw", "192.0.2.1", "mpls", "ipsec")
        self.wait_for_records(TLOC_DELETE, 1)

        harness.wait_until(lambda: peers.daemon()["hellos"] >= HELLOS, f"{HELLOS} hellos", HELLOS + 3)
        daemon = peers.daemon()
        self.assertLess(daemon["longest_gap_ms"], LONGEST_GAP_MSECS)
        self.assertEqual((daemon["pid"], daemon["restarts"], daemon["missed"]), (pid, 0, 0))
        self.assert_nothing_malformed()

        peers.ask("sysmgrd", "stop", "tarnd")
        harness.wait_until(lambda: peers.daemon()["state"] == "stopped", "the daemon stops")
        # A leak would be reported by the sanitizer's build as exit status 1.
        self.assertEqual(peers.daemon()["last_end"], "ended with status 0", peers.lab.log("tarnd"))
        self.assertFalse(peers.ask("ftmd", "stats")["connected"])
        self.assertEqual(peers.ask("ttmd", "list")["clients"], [])
        for name in ("ftmd", "sysmgrd", "ttmd"):
            peers.end(name, signal.SIGTERM)
        self.assertEqual(sorted(peers.lab.run("ls", "-A", "/run").stdout.split()), ["fpd.sock", "lab", "lock"])

    def test_it_outlives_its_peers(self):
        peers = self.start_peers("killed-peers")
        pid = peers.wait_until_up()
        peers.ask("ttmd", "announce", "192.0.2.1", "mpls", "ipsec")
        self.wait_for_records(TLOC_ADD, 1)

        peers.restart("ftmd")
        self.assertEqual(peers.wait_until_up(), pid)
        self.assertEqual(len(self.registered_families()), 2, "the other channels stay")

        peers.restart("ttmd")
        self.assertEqual(peers.wait_until_up(), pid)
        self.assertEqual(self.registered_families(), ["ipv4", "ipv6"] * 2)
        peers.ask("ttmd", "announce", "192.0.2.1", "mpls", "ipsec")
        self.wait_for_records(TLOC_ADD, 2)

        # Hellos stop with the connection. The new manager takes the process over.
        peers.restart("sysmgrd")
        self.assertEqual(peers.wait_until_up(), pid)
        harness.wait_until(lambda: peers.daemon()["hellos"] >= 3, "the new manager gets hellos")
        self.assertIn(f"tarnd: runs already, pid {pid}", peers.lab.log("sysmgrd"))
        self.assertEqual(peers.daemon()["missed"], 0)

        for name in ("ttmd", "ftmd", "sysmgrd"):
            peers.end(name)
        for name in ("sysmgrd", "ftmd", "ttmd"):
            peers.start(name)
        self.assertEqual(peers.wait_until_up(), pid)
        self.assertEqual(self.registered_families(), ["ipv4", "ipv6"] * 3)
        self.assert_nothing_malformed()

    def test_its_manager_starts_it_again(self):
        peers = self.start_peers("killed-daemon", files={PID_FILE: "4711\n"})
        killed = peers.wait_until_up()
        stale = "tarnd: a stale pid file is removed"
        self.assertEqual(peers.lab.log("sysmgrd").count(stale), 1)

        peers.signal_pid(killed, signal.SIGKILL)
        harness.wait_until(lambda: peers.daemon()["restarts"] == 1, "the killed daemon is started again")
        self.assertEqual(peers.daemon()["last_end"], "ended by signal 9")
        frozen = peers.wait_until_up()
        self.assertNotEqual(frozen, killed)
        harness.wait_until(lambda: peers.ask("ftmd", "stats")["connections"] == 2, "ftmd is back at the new daemon")

        peers.signal_pid(frozen, signal.SIGSTOP)
        harness.wait_until(lambda: peers.daemon()["restarts"] == 2, "the frozen daemon is started again", 8)
        daemon = peers.daemon()
        self.assertEqual((daemon["missed"], daemon["last_end"]), (1, "ended by signal 9"))
        alone = peers.wait_until_up()
        self.assertNotEqual(alone, frozen)

        # With both gone the file that the manager wrote is left over.
        peers.end("sysmgrd")
        peers.signal_pid(alone, signal.SIGKILL)
        peers.start("sysmgrd")
        self.assertNotEqual(peers.wait_until_up(), alone)
        self.assertEqual(peers.lab.log("sysmgrd").count(stale), 2)
        self.assertEqual(self.registered_families(), ["ipv4", "ipv6"] * 4)

    def test_a_table_manager_that_hangs_up_ends_it(self):
        peers = self.start_peers("hang-up")
        peers.wait_until_up()
        peers.end("ttmd", signal.SIGTERM)
        reader_of_log = peers.lab.status()["pid"]
        os.kill(reader_of_log, signal.SIGSTOP)
        try:
            peers.lab.run(harness.PYTHON, "-B", HANGUP, "/var/run/.ttmd")
        finally:
            os.kill(reader_of_log, signal.SIGCONT)
        harness.wait_until(lambda: peers.daemon()["restarts"] > 0, "the daemon ends and is started again")
        self.assertEqual(peers.daemon()["last_end"], "ended by signal 11")
        self.assertIn("tarn_ttm.cc:", peers.lab.log("tarnd"))
        self.assertIn("failed assertion `status == 0'", peers.lab.log("tarnd"))
        peers.start("ttmd")
        peers.wait_until_up()


if __name__ == "__main__":
    harness.main()
