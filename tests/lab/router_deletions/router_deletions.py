#!/usr/bin/python3 -B
"""Deletions: of a policy, of lists with their users, of zones with their VPNs, of everything at once; objects that are
replaced by others, or made anew, in the commit that deletes them. The daemon lives through all of it."""
import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
import harness  # noqa: E402
from control_socket import Refused  # noqa: E402
from router_lab import RouterLab, delete, merge  # noqa: E402
from verdict_text import verdict_text  # noqa: E402

LOCAL, KEELSON = "/policy", "/policy-from-keelson"
LIST_SEQUENCE = LOCAL + "/access-list{lan}/sequence{10}"


def prefix_list(name, prefix):
    return {"name": name, "ip-prefix": [{"prefix": prefix}]}


def sequence(number, match, **action):
    return {"number": number, "match": match, "action": {"base-action": "accept", **action}}


def mirror(name, last):
    return {"name": name, "remote-dest": [{"address": f"10.254.0.{last}", "source": "10.254.1.1"}]}


def policer(name, exceed):
    return {"name": name, "rate": "8000", "burst": 1500, "exceed": exceed}


BASE = {
    "lumora-policy:policy": {
        "log-frequency": 64, "zone-to-nozone-internet": "deny",
        "class-map": {"class": [{"name": "gold", "queue": 1}]},
        "lists": {"data-prefix-list": [prefix_list("near", "10.1.0.0/16"), prefix_list("far", "10.2.0.0/16")],
                  "app-list": [{"name": "talk", "app": [{"name": "sip"}]}]},
        "mirror": [mirror("one", 1), mirror("two", 2)],
        "policer": [policer("slow", "drop"), policer("slower", "remark")],
        "access-list": [{"name": "lan", "default-action": "accept", "sequence": [
            sequence(10, {"source-data-prefix-list": "near"}, count="lan", mirror="one", policer="slow"),
            sequence(20, {"app-list": "talk"}, **{"class": "gold"}, count="talk")]}],
        "zone": [{"name": "inside", "vpn": [{"vpn-id": 10}, {"vpn-id": 11}]}, {"name": "outside", "vpn": [{"vpn-id": 20}]}],
        "zone-based-policy": [{"name": "guard", "default-action": "drop", "sequence": [
            {"number": 1, "match": {"protocol": [6]}, "action": {"base-action": "inspect"}}]}],
        "zone-pair": [{"name": "out", "pair-id": 1, "source-zone": "inside", "destination-zone": "outside",
                       "zone-policy": "guard"}],
    },
    "lumora-policy:policy-from-keelson": {
        "lists": {"data-prefix-list": [prefix_list("servers", "10.3.0.0/16"), prefix_list("hosts", "10.4.0.0/16")],
                  "app-list": [{"name": "films", "app-family": [{"name": "audio_video"}]}],
                  "vpn-list": [{"name": "offices", "vpn": [{"range": "100-109"}]},
                               {"name": "guests", "vpn": [{"range": "120"}]}]},
        "policer": [policer("web", "drop")],
        "sla-class": [{"name": "fast"}],
        "data-policy": [{"name": "edge", "direction": "from-service", "vpn-list": [
            {"name": "offices", "default-action": "accept", "sequence": [
                sequence(10, {"destination-data-prefix-list": "servers"}, count="servers", policer="web"),
                sequence(20, {"app-list": "films"}, **{"class": "gold"}, count="films"),
                sequence(30, {"destination-data-prefix-list": "hosts"}, count="hosts", set={
                    "tloc-list": "hubs", "lum-tloc-pref-list": [{"index": 0, "tloc-ip": "10.255.0.1", "tloc-color": "mpls",
                                                                 "tloc-encap": "ipsec"}]})]},
            {"name": "guests", "default-action": "drop",
             "sequence": [sequence(10, {"destination-data-prefix-list": "servers"}, count="guests")]}]}],
        "app-route-policy": [{"name": "paths", "vpn-list": [{"name": "offices", "sla-class-name": "fast", "sequence": [
            sequence(10, {"protocol": [17]}, **{"sla-class": {"sla-class-name": "fast"}})]}]}],
    },
    "lumora-vpn:vpn": {"vpn-instance": [{"vpn-id": "100", "interface": [
        {"name": "ge0/1", "access-list": [{"direction": "in", "acl-name": "lan"}]}]}]},
}
EVERYTHING = [delete(LOCAL), delete(KEELSON), delete("/vpn")]
# The switch for traffic to the internet stays when its leaf goes.
NO_SWITCHES = {"zones": False, "deny-internet": True, "log-frequency": 512, "applications": 0, "flows": 0,
               "vpn-zones": [], "zone-pairs": []}


class RouterDeletions(harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "deletions")
        self.router.load(BASE)
        self.pid = self.router.daemon()["pid"]

    def tearDown(self):
        self.assertEqual(self.router.daemon()["pid"], self.pid, "the daemon lives")
        self.assertNotIn("assertion", self.router.lab.log("tarnd"))

    def commit(self, *edits):
        self.router.commit(*edits)
        self.router.settle()

    def bound(self):
        """What is bound, by policy or list and its first VPN or its interface."""
        table = self.router.bindings()
        rows = {(row["name"], row["min"]) for row in table["vpns"] if row["name"] != "settle"}
        return rows | {(row["name"], row["interface"]) for row in table["interfaces"]}

    def verdict(self, vpn, destination, *words, source="192.0.2.1"):
        told = self.router.fpctl("forward", vpn, "ge0/1", "in", source, destination, 40000, 443, "tcp", *words)
        return verdict_text(told, {1: "gold"}, {1: "fast"})

    def words(self):
        return json.loads(self.router.lab.run("lab_words").stdout)

    def test_parts_and_what_names_them(self):
        self.router.settle()
        self.assertEqual(self.bound(), {("edge", 100), ("edge", 120), ("paths", 100), ("lan", "ge0/1")})
        self.assertEqual(self.verdict(100, "10.3.0.1"), "accept +servers sla=fast")
        with self.assertRaises(Refused):  # somebody names it
            self.router.commit(delete(KEELSON + "/lists/data-prefix-list{servers}"))

        # A list with one of its users, which is a sequence, while another user stays on another list.
        self.commit(delete(KEELSON + "/lists/data-prefix-list{servers}"),
                    delete(KEELSON + "/data-policy{edge}/vpn-list{offices}/sequence{10}"),
                    merge(KEELSON + "/data-policy{edge}/vpn-list{guests}/sequence{10}/match",
                          {"destination-data-prefix-list": "hosts"}))
        self.assertEqual(self.verdict(100, "10.3.0.1"), "accept sla=fast")
        self.assertEqual(self.verdict(120, "10.3.0.1"), "reject:data")
        self.assertEqual(self.verdict(120, "10.4.0.1"), "accept +guests")

        # A VPN list with the contexts that name it.
        self.commit(delete(KEELSON + "/lists/vpn-list{guests}"), delete(KEELSON + "/data-policy{edge}/vpn-list{guests}"))
        self.assertEqual(self.bound(), {("edge", 100), ("paths", 100), ("lan", "ge0/1")})
        self.assertEqual(self.verdict(120, "10.4.0.1"), "accept")

        # Classes go while sequences wait for them; the default of a context keeps the number of an SLA class.
        self.assertEqual(self.verdict(100, "10.9.0.1", "app-family=3"), "accept +films sla=fast class=gold")
        self.commit(delete(KEELSON + "/sla-class{fast}"), delete(LOCAL + "/access-list{lan}/sequence{20}"),
                    delete(LOCAL + "/class-map/class{gold}"))
        self.assertEqual(self.verdict(100, "10.9.0.1", "app-family=3"), "accept +films sla=fast")
        udp = self.router.fpctl("forward", 100, "none", "in", "192.0.2.1", "10.9.0.1", 1, 2, "udp")
        self.assertEqual(verdict_text(udp), "accept sla=all-tunnels")

        # A whole policy, its lists with it.
        self.commit(delete(KEELSON + "/data-policy{edge}"), delete(KEELSON + "/lists/data-prefix-list{hosts}"),
                    delete(KEELSON + "/lists/app-list{films}"), delete(KEELSON + "/policer{web}"))
        self.assertEqual(self.bound(), {("paths", 100), ("lan", "ge0/1")})

        # An access list with its binding.
        self.commit(delete("/vpn/vpn-instance{100}/interface{ge0/1}"), delete(LOCAL + "/access-list{lan}"),
                    delete(LOCAL + "/mirror{one}"), delete(LOCAL + "/policer{slow}"))
        self.assertEqual(self.bound(), {("paths", 100)})
        self.assertEqual(self.verdict(100, "10.4.0.1", source="10.1.0.1"), "accept sla=fast")

    def test_zones_with_their_vpns(self):
        harness.wait_until(lambda: len(self.words()["vpn-zones"]) == 3, "the zones are in force", 20)
        self.router.settle()
        self.assertEqual([row["pair"] for row in self.words()["zone-pairs"]], [1])
        self.commit(delete(LOCAL + "/zone{inside}/vpn{11}"))
        self.assertEqual(sorted(row["vpn"] for row in self.words()["vpn-zones"]), [10, 20])
        self.commit(delete(LOCAL + "/zone-pair{out}"), delete(LOCAL + "/zone{inside}"))
        self.assertEqual([row["vpn"] for row in self.words()["vpn-zones"]], [20])
        self.assertEqual(self.words()["zone-pairs"], [])
        self.commit(delete(LOCAL + "/zone-based-policy{guard}"), delete(LOCAL + "/zone{outside}"))
        self.assertEqual(self.words()["vpn-zones"], [])

    def test_an_access_list_takes_new_objects_while_the_old_ones_go(self):
        near, far = "10.1.0.1", "10.2.0.1"
        self.router.settle()
        self.assertEqual(self.verdict(1, "192.0.2.9", source=near), "accept +lan mirror")
        self.commit(merge(LIST_SEQUENCE + "/action", {"mirror": "two"}), delete(LOCAL + "/mirror{one}"))
        self.commit(merge(LIST_SEQUENCE + "/action", {"policer": "slower"}), delete(LOCAL + "/policer{slow}"))
        self.assertEqual(self.verdict(1, "192.0.2.9", "len=1600", source=near), "accept +lan marked mirror")
        self.commit(merge(LIST_SEQUENCE + "/match", {"source-data-prefix-list": "far"}),
                    delete(LOCAL + "/lists/data-prefix-list{near}"))
        self.assertEqual(self.verdict(1, "192.0.2.9", source=near), "accept")
        self.assertEqual(self.verdict(1, "192.0.2.9", source=far), "accept +lan mirror")
        # All three at once, and made anew under their names.
        self.commit(delete(LOCAL + "/mirror{two}"), delete(LOCAL + "/policer{slower}"),
                    delete(LOCAL + "/lists/data-prefix-list{far}"),
                    merge(LOCAL, {"mirror": [mirror("one", 9)], "policer": [policer("slow", "drop")],
                                  "lists": {"data-prefix-list": [prefix_list("near", "10.5.0.0/16")]}}),
                    merge(LIST_SEQUENCE, sequence(10, {"source-data-prefix-list": "near"}, mirror="one", policer="slow")))
        self.assertEqual(self.verdict(1, "192.0.2.9", source=far), "accept")
        self.assertEqual(self.verdict(1, "192.0.2.9", "len=1600", source="10.5.0.1"), "policer-drop:list +lan mirror")

    def test_everything_goes_at_once_and_comes_back(self):
        self.router.settle()
        before = self.bound()
        for _ in range(2):
            self.router.commit(*EVERYTHING)
            harness.wait_until(lambda: not self.router.bindings()["interfaces"] and not self.router.bindings()["vpns"],
                               "nothing is bound", 20)
            words = self.words()
            self.assertEqual({name: words[name] for name in NO_SWITCHES}, NO_SWITCHES)
            self.router.load(BASE)
            harness.wait_until(lambda: self.bound() == before, "all is bound again", 20)
        # The same names in the commit that deletes them, with another prefix in a list.
        text = json.dumps(BASE).replace("10.3.0.0/16", "10.6.0.0/16")
        anew = [merge("/" + name.partition(":")[2], value) for name, value in json.loads(text).items()]
        self.router.commit(*EVERYTHING, *anew)
        harness.wait_until(lambda: self.verdict(100, "10.6.0.1") == "accept +servers sla=fast", "the new program", 20)
        self.assertEqual(self.bound(), before)


if __name__ == "__main__":
    harness.main()
