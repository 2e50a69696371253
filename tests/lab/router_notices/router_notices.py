#!/usr/bin/python3 -B
"""What the router says by itself when filter memory is used up and when there is room again: notifications to a
subscriber, traps to a receiver, lines of syslog. Programs that are not loaded have rows without counts meanwhile."""
import re
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parent / "router_oper")]
import harness  # noqa: E402
import shown  # noqa: E402
from router_lab import SECONDS, RouterLab, delete, merge  # noqa: E402

FILLING, WAITING = 200, 60  # sequences. What waits has no room beside what fills
FILLER = "/policy-from-keelson/data-policy{filler}"
BASE_MIBS = harness.REPOSITORY / "tests/support/base_mibs"
PORTS = {"vpns": 1162, "policies": 1163}  # of the trap receivers, by group
RECEIVER = """
mkdir -p /tmp/$0/cert_indexes && echo 'authCommunity log public' > /tmp/$0/conf
export SNMP_PERSISTENT_DIR=/tmp/$0 MIBDIRS=$1:$LAB_BIN/../share/mibs MIBS=LUMORA-MIB
/usr/sbin/snmptrapd -C -c /tmp/$0/conf -OS -OT -Lf /run/lab/log/traps-$0 -F 'trap %v\\n' udp:127.0.0.1:$2
"""
HEAD = {"severity-level": "major", "host-name": "edge", "system-ip": "10.255.1.1"}
POLICY_EVENT, LIST_EVENT = "data-policy-association-status", "access-list-association-status"
EVENTS = [(POLICY_EVENT, {"policy-name": "large", "vpn-list-name": "offices"}), (LIST_EVENT, {"access-list-name": "lan"})]
TRAPS = {POLICY_EVENT: "lumoraPolicyDataPolicyAssociationStatus", LIST_EVENT: "lumoraPolicyAccessListAssociationStatus"}
VARBINDS = {"policy-name": "lumoraPolicyName", "vpn-list-name": "lumoraPolicyVpnListName",
            "access-list-name": "lumoraPolicyAccessListName", "status": "lumoraPolicyStatus"}
MESSAGES = {  # of syslog, by status
    "Failed": ("Failed to allocate memory for policy large - offices. Continuing without the policy.",
               "Failed to allocate program memory for access list - lan. Continuing without the access-list."),
    "Success": ("Successfully re-programmed policy large - offices", "Successfully re-programmed access list - lan"),
}


def sequences(count):
    return [{"number": number, "match": {"destination-port": [str(1000 + number)]},
             "action": {"base-action": "accept", "count": f"rule-{number}"}} for number in range(1, count + 1)]


def policy(name, vpn_list, vpn, count):
    return merge("/policy-from-keelson", {
        "lists": {"vpn-list": [{"name": vpn_list, "vpn": [{"range": str(vpn)}]}]},
        "data-policy": [{"name": name, "vpn-list": [
            {"name": vpn_list, "default-action": "accept", "sequence": sequences(count)}]}]})


def access_list(name, count):
    return [merge("/policy", {"access-list": [{"name": name, "default-action": "accept", "sequence": sequences(count)}]}),
            merge("/vpn/vpn-instance{10}/interface{ge0/1}/access-list{in}", {"acl-name": name})]


def group(name, *modules):
    return {"name": name, "enable": [{"module": module, "level": ["major"]} for module in modules]}


class RouterNotices(harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "notices", {"/etc/default/sim_size": "small\n"}, settles=False)
        self.session = self.router.netconf()
        self.session.subscribe()
        for name, port in PORTS.items():
            self.start_receiver(name, port)
        # The association's traps belong to the VPNs.
        self.router.commit(merge("/snmp/trap", {
            "group": [group("vpns", "vpn"), group("policies", "policy")],
            "target": [{"address": "127.0.0.1", "port": port, "group-name": name} for name, port in PORTS.items()]}))

    def start_receiver(self, name, port):
        self.router.lab.run("sh", "-c", RECEIVER, name, str(BASE_MIBS), str(port))
        self.router.lab.wait_for_log("NET-SNMP version", f"traps-{name}", SECONDS)

    def traps(self, name):
        return [line for line in self.router.lab.log(f"traps-{name}").splitlines() if line.startswith("trap ")]

    def has_one_program(self):
        """And it is bound. What is given back later would be another chance for those that wait."""
        return (sum(row["valid"] for row in self.router.fpctl("load")["filters"]) == 1
                and any(row["filter"] >= 0 for row in self.router.bindings()["vpns"]))

    def assert_events(self, status):
        """The next notifications are those of both objects, with lines of syslog beside them."""
        found = [self.session.notification() for _ in EVENTS]
        for (name, members), (wanted, fields) in zip(found, EVENTS, strict=True):
            time = members.pop("eventTime")
            self.assertEqual((name, members), (wanted, {**HEAD, **fields, "status": status}))
            self.told.append((name, {"eventTime": time, **members}))
        log = self.router.lab.log()
        for message in MESSAGES[status]:
            self.assertRegex(log, rf"%Lumora-.*: {re.escape(message)}")
        harness.wait_until(lambda: self.router.lab.log().count("1400002: Notification: ") >= len(self.told),
                           "the notifications' lines of syslog", SECONDS)

    def assert_rows(self, waiting, filler=None):
        """The rows' counts: those of what waits, of what fills."""
        names = [f"rule-{number}" for number in range(1, max(WAITING, FILLING) + 1)]
        rows = {("counter", *program, name): waiting for name in names[:WAITING]
                for program in (("data", "large", "offices"), ("acl", "lan"))}
        if filler:
            rows.update({("counter", "data", "filler", "guests", name): filler for name in names[:FILLING]})
        self.assertEqual(shown.over_netconf(self.session), rows)
        self.assertEqual(shown.by_command_line(self.router.lab, "policy counters", "access-list counters"), rows)

    def assert_traps(self):
        """The receiver of the group with VPNs has all that was told, by names."""
        harness.wait_until(lambda: len(self.traps("vpns")) >= len(self.told), "the traps", SECONDS)
        for line, (name, members) in zip(self.traps("vpns"), self.told, strict=True):
            parts = [f" = OID: LUMORA-MIB::{TRAPS[name]}", "LUMORA-MIB::eventTime.0 = STRING: ",
                     "LUMORA-MIB::netconfNotificationSeverity.0 = INTEGER: major(2)"]
            parts += [f"LUMORA-MIB::{VARBINDS[member]}.0 = STRING: {value}" for member, value in members.items()
                      if member in VARBINDS]
            place = 0
            for part in parts:
                place = line.find(part, place) + 1
                self.assertGreater(place, 0, f"{part} in its place: {line}")

    def assert_replayed(self):
        replay = self.router.netconf()
        replay.subscribe(self.told[0][1]["eventTime"])
        self.assertEqual([replay.notification() for _ in self.told], self.told)
        self.assertEqual(replay.notification()[0], "replayComplete")

    def test_exhaustion_and_recovery_are_told(self):
        self.told = []
        self.router.commit(policy("filler", "guests", 40, FILLING))
        harness.wait_until(self.has_one_program, "the filler is loaded", SECONDS)
        self.router.commit(policy("large", "offices", 10, WAITING), *access_list("lan", WAITING))
        self.assert_events("Failed")  # the first ones: a program that is loaded at once isn't worth telling
        self.assert_rows(None, (0, 0))
        self.router.commit(delete(FILLER))
        self.assert_events("Success")
        self.assert_rows((0, 0))
        self.assert_traps()
        self.assert_replayed()

        # Groups are in force with the next trap, so the other receiver has missed nothing that was meant for it.
        self.router.commit(merge("/snmp/trap", {"group": [group("policies", "vpn")]}))
        self.router.commit(policy("filler", "guests", 40, FILLING))
        name, members = self.session.notification()
        self.assertEqual((name, members["policy-name"], members["status"]), (POLICY_EVENT, "filler", "Failed"))
        harness.wait_until(lambda: self.traps("policies"), "a trap for the other group", SECONDS)
        self.assertEqual(len(self.traps("policies")), 1)
        self.assertIn("LUMORA-MIB::lumoraPolicyName.0 = STRING: filler", self.traps("policies")[0])


if __name__ == "__main__":
    harness.main()
