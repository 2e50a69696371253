"""Leaves outside of sequences: a test for each group of them, and which leaves it covers."""
from router_lab import delete, merge

LOCAL, KEELSON = "/policy", "/policy-from-keelson"
COVERED = {}  # path of a leaf -> the test that covers it


def covers(*paths):
    def note(test):
        COVERED.update({path: test.__name__ for path in paths})
        return test
    return note


def lists_below(top):
    return [top + "/lists/" + leaf for leaf in ("data-prefix-list/name", "data-prefix-list/ip-prefix/prefix", "app-list/name",
                                                "app-list/app/name", "app-list/app-family/name")]


def policers_below(top):
    return [f"{top}/policer/{leaf}" for leaf in ("name", "rate", "burst", "exceed")]


def rule(number, match=None, **action):
    return {"number": number, "match": match or {}, "action": {"base-action": "accept", **action}}


class OtherLeaves:
    """To be mixed into a scenario with `router`, `settled` and `words`.

    Two places: VPN 10 with a data and an application-route policy, and the interface ge0/1 with access lists."""

    def policies(self, *sequences, **more):
        """A data policy for VPN 10."""
        return merge(KEELSON, {"lists": {"vpn-list": [{"name": "ten", "vpn": [{"range": "10"}]}]}, "data-policy": [
            {"name": "edge", "vpn-list": [{"name": "ten", "default-action": "accept", "sequence": list(sequences)}]}], **more})

    def lan(self, *sequences, **more):
        """An access list at ge0/1."""
        return [merge(LOCAL, {"access-list": [{"name": "lan", "default-action": "accept", "sequence": list(sequences)}],
                              **more}),
                merge("/vpn/vpn-instance{10}/interface{ge0/1}/access-list{in}", {"acl-name": "lan"})]

    def told(self, *words, vpn=10, interface="ge0/1", direction="in"):
        return self.router.fpctl("forward", vpn, interface, direction, *words)

    def slot(self, name, *words):
        """The slot of an action that a packet meets, or None."""
        actions = [action for stage in self.told(*words)["stages"] for action in stage.get("actions", [])]
        return next((action for action in actions if action["action"] == name), None)

    def steps(self, look, *rows):
        """Edits, each with what is seen after their commit."""
        for number, (edits, wanted) in enumerate(rows):
            self.settled(*edits)
            self.assertEqual(look(), wanted, f"step {number}: {edits}")

    # ---- Words ----

    @covers(LOCAL + "/app-visibility", LOCAL + "/flow-visibility", LOCAL + "/log-frequency",
            LOCAL + "/zone-to-nozone-internet")
    def test_switches(self):
        def set_to(**leaves):
            return [merge(LOCAL, {name.replace("_", "-"): value for name, value in leaves.items()})]
        self.steps(lambda: self.words()["applications"], (set_to(app_visibility=True), 1), (set_to(app_visibility=False), 0),
                   (set_to(app_visibility=True), 1), ([delete(LOCAL + "/app-visibility")], 0))
        self.steps(lambda: self.words()["flows"], (set_to(flow_visibility=True), 1), (set_to(flow_visibility=False), 0),
                   (set_to(flow_visibility=True), 1), ([delete(LOCAL + "/flow-visibility")], 0))
        self.steps(lambda: self.words()["log-frequency"], (set_to(log_frequency=64), 64), (set_to(log_frequency=100), 64),
                   (set_to(log_frequency=4096), 4096), ([delete(LOCAL + "/log-frequency")], 512))
        self.steps(lambda: self.words()["deny-internet"], (set_to(zone_to_nozone_internet="deny"), True),
                   (set_to(zone_to_nozone_internet="allow"), False), (set_to(zone_to_nozone_internet="deny"), True),
                   ([delete(LOCAL + "/zone-to-nozone-internet")], True))  # it stays

    # ---- Lists ----

    def check_lists(self, top, attach, sequence_path, sees_apps):
        """`attach`: edits by which a sequence stands somewhere. `sees_apps`: whether the sequences there see that the
        content of an application list changes."""
        prefixes, apps = top + "/lists/data-prefix-list", top + "/lists/app-list"
        one, two, sip, netflix = "10.1.0.1", "10.2.0.1", "522", "64"

        def rejected():
            return {to for to in (one, two) if self.told("192.0.2.1", to, 1, 2, "udp")["verdict"] == "reject"}

        def apps_rejected():
            return {app for app in (sip, netflix)
                    if self.told("192.0.2.1", "192.0.2.2", 1, 2, "udp", f"app={app}")["verdict"] == "reject"}

        def families_rejected():
            return {family for family in ("25", "3")
                    if self.told("192.0.2.1", "192.0.2.2", 1, 2, "udp", f"app-family={family}")["verdict"] == "reject"}
        self.steps(rejected,
                   ([merge(prefixes + "{near}/ip-prefix{10.1.0.0/16}"),
                     *attach(rule(1, {"destination-data-prefix-list": "near"}, **{"base-action": "drop"}))], {one}),
                   ([merge(prefixes + "{near}/ip-prefix{10.2.0.0/16}")], {one, two}),
                   ([delete(prefixes + "{near}/ip-prefix{10.1.0.0/16}")], {two}),
                   ([delete(prefixes + "{near}"), delete(sequence_path.format(1))], set()))
        self.steps(apps_rejected,
                   ([merge(apps + "{talk}/app{sip}"), *attach(rule(2, {"app-list": "talk"}, **{"base-action": "drop"}))], {sip}),
                   ([merge(apps + "{talk}/app{netflix}")], {sip, netflix} if sees_apps else {sip}),
                   ([delete(apps + "{talk}/app{sip}")], {netflix} if sees_apps else {sip}),
                   ([delete(apps + "{talk}"), delete(sequence_path.format(2))], set()))
        self.steps(families_rejected,
                   ([merge(apps + "{kinds}/app-family{telephony}"),
                     *attach(rule(3, {"app-list": "kinds"}, **{"base-action": "drop"}))], {"25"}),
                   ([merge(apps + "{kinds}/app-family{audio_video}")], {"25", "3"} if sees_apps else {"25"}),
                   ([delete(apps + "{kinds}/app-family{telephony}")], {"3"} if sees_apps else {"25"}),
                   ([delete(apps + "{kinds}"), delete(sequence_path.format(3))], set()))

    @covers(*lists_below(KEELSON))
    def test_lists_of_the_controller(self):
        self.check_lists(KEELSON, lambda row: [self.policies(row)],
                         KEELSON + "/data-policy{{edge}}/vpn-list{{ten}}/sequence{{{}}}", True)

    @covers(*lists_below(LOCAL))
    def test_lists_of_the_local_configuration(self):
        self.settled(*self.lan(rule(9, {"dscp": [63]})))
        self.check_lists(LOCAL, lambda row: self.lan(row), LOCAL + "/access-list{{lan}}/sequence{{{}}}", False)

    # ---- Policers, mirrors, classes ----

    def check_policer(self, top, attach):
        path = top + "/policer{slow}"

        def shown():
            slot = self.slot("police", "len=0")
            return slot and (slot["rate"], slot["burst"], slot["oob-action"], slot["name"])
        self.settled(merge(path, {"rate": "8000", "burst": 1500, "exceed": "drop"}), *attach(rule(1, policer="slow")))
        rate, burst, *rest = shown()  # rate is in clock ticks for a byte, burst in ticks
        self.assertEqual((burst, rest), (rate * 1500, ["drop", "1.slow"]))
        self.steps(shown, ([merge(path, {"rate": "16000"})], (rate // 2, rate // 2 * 1500, "drop", "1.slow")),
                   ([merge(path, {"burst": 3000})], (rate // 2, rate // 2 * 3000, "drop", "1.slow")),
                   ([merge(path, {"exceed": "remark"})], (rate // 2, rate // 2 * 3000, "plp-high", "1.slow")),
                   ([merge(top + "/policer{other}", {"rate": "8000", "burst": 1500, "exceed": "drop"}), delete(path),
                     *attach(rule(1, policer="other"))], (rate, rate * 1500, "drop", "1.other")))

    @covers(*policers_below(KEELSON))
    def test_policers_of_the_controller(self):
        self.check_policer(KEELSON, lambda row: [self.policies(row)])

    @covers(*policers_below(LOCAL))
    def test_policers_of_the_local_configuration(self):
        self.check_policer(LOCAL, lambda row: self.lan(row))

    @covers(LOCAL + "/mirror/name", LOCAL + "/mirror/interface/name", LOCAL + "/mirror/remote-dest/address",
            LOCAL + "/mirror/remote-dest/source")
    def test_mirrors(self):
        path = LOCAL + "/mirror{copy}"

        def shown():
            slot = self.slot("mirror")
            return slot and (slot["type"], slot["interface"], slot["source"], slot["destination"])
        self.settled(merge(path + "/interface{ge0/3}"), self.policies(rule(1, mirror="copy")))
        kind, interface, *_ = shown()
        self.assertEqual(kind, 1)
        self.steps(shown, ([merge(path + "/remote-dest{10.0.0.9}", {"source": "10.0.0.1"})],
                           (3, interface, "10.0.0.1", "10.0.0.9")),
                   ([merge(path + "/remote-dest{10.0.0.9}", {"source": "10.0.0.2"})],
                    (3, interface, "10.0.0.2", "10.0.0.9")),
                   # The type is not found anew by a deletion.
                   ([delete(path + "/interface{ge0/3}")], (3, interface, "10.0.0.2", "10.0.0.9")),
                   ([delete(path), delete(KEELSON + "/data-policy{edge}/vpn-list{ten}/sequence{1}/action/mirror")], None))

    @covers(LOCAL + "/class-map/class/name", LOCAL + "/class-map/class/queue", KEELSON + "/sla-class/name",
            KEELSON + "/app-route-policy/name", KEELSON + "/app-route-policy/vpn-list/name",
            KEELSON + "/app-route-policy/vpn-list/sla-class-name")
    def test_classes(self):
        def number():
            slot = self.slot("set fc")
            return slot and slot["class"]
        # The queue stays in the daemon: no word of the forwarding plane's has it.
        path = LOCAL + "/class-map/class"
        self.steps(number, ([self.policies(rule(1, **{"class": "gold"}))], None), ([merge(path + "{gold}", {"queue": 3})], 1),
                   ([merge(path + "{gold}", {"queue": 4})], 1), ([delete(path + "{gold}/queue")], 1),
                   ([delete(path + "{gold}")], None))

        def sla():
            slot = self.slot("sla-class")
            return slot and slot["primary"]
        path = KEELSON + "/app-route-policy{paths}/vpn-list{ten}"
        self.steps(sla, ([merge(path, {"sequence": [rule(1, {"dscp": [63]})]})], 0), ([merge(KEELSON + "/sla-class{one}"), merge(KEELSON + "/sla-class{two}")], 0),
                   ([merge(path, {"sla-class-name": "one"})], 1), ([merge(path, {"sla-class-name": "two"})], 2),
                   ([delete(path + "/sla-class-name")], 0), ([delete(KEELSON + "/app-route-policy{paths}")], None))

    # ---- Policies, VPNs, interfaces ----

    @covers(KEELSON + "/lists/vpn-list/name", KEELSON + "/lists/vpn-list/vpn/range", KEELSON + "/data-policy/name",
            KEELSON + "/data-policy/direction", KEELSON + "/data-policy/vpn-list/name",
            KEELSON + "/data-policy/vpn-list/default-action")
    def test_heads_of_data_policies(self):
        def bound():
            rows = [row for row in self.router.bindings()["vpns"] if row["name"] == "edge"]
            return {(row["min"], row["max"], row["direction"]) for row in rows}
        policy, vpns = KEELSON + "/data-policy{edge}", KEELSON + "/lists/vpn-list{ten}/vpn"
        self.steps(bound, ([self.policies(rule(1))], {(10, 10, "all")}),
                   ([merge(policy, {"direction": "from-service"})], {(10, 10, "service")}),
                   # A changed sequence leaves the direction alone.
                   ([merge(policy + "/vpn-list{ten}/sequence{1}/match", {"dscp": [1]})], {(10, 10, "service")}),
                   ([merge(policy, {"direction": "from-tunnel"})], {(10, 10, "tunnel")}),
                   ([delete(policy + "/direction")], {(10, 10, "all")}),
                   ([merge(vpns + "{20-29}")], {(10, 10, "all"), (20, 29, "all")}),
                   ([delete(vpns + "{10}")], {(20, 29, "all")}), ([merge(vpns + "{10}")], {(10, 10, "all"), (20, 29, "all")}))
        context = policy + "/vpn-list{ten}"
        self.steps(lambda: self.told()["verdict"], ([merge(context, {"default-action": "drop"})], "reject"),
                   ([merge(context + "/sequence{1}/match", {"dscp": [2]})], "reject"),  # and the default action
                   ([merge(context, {"default-action": "accept"})], "accept"),
                   ([merge(context, {"default-action": "drop"})], "reject"), ([delete(context + "/default-action")], "accept"))
        self.steps(bound, ([delete(policy)], set()))

    @covers(*(f"{LOCAL}{below}/access-list/{leaf}" for below in ("", "/ipv6") for leaf in ("name", "default-action")),
            *("/vpn/vpn-instance/interface" + below + leaf for below in ("", "/ipv6")
              for leaf in ("/access-list/direction", "/access-list/acl-name")),
            "/vpn/vpn-instance/vpn-id", "/vpn/vpn-instance/interface/name", "/vpn/vpn-instance/service/name")
    def test_heads_and_bindings_of_access_lists(self):
        instance = "/vpn/vpn-instance{7}"
        for below, family in (("", "ipv4"), ("/ipv6", "ipv6")):
            lists, interface = f"{LOCAL}{below}/access-list", f"{instance}/interface{{ge0/2}}{below}/access-list"
            one = {"default-action": "drop", "sequence": [rule(1, {"dscp": [1]}, count="one")]}
            two = {"default-action": "accept", "sequence": [rule(1, {"dscp": [1]}, count="two")]}

            def bound():
                return {(row["interface"], row["direction"], row["vpn"], row["name"])
                        for row in self.router.bindings()["interfaces"] if row["family"] == family}
            self.steps(bound, ([merge(lists + "{one}", one), merge(lists + "{two}", two)], set()),
                       ([merge(interface + "{in}", {"acl-name": "one"})], {("ge0/2", "in", 7, "one")}),
                       ([merge(interface + "{out}", {"acl-name": "one"})],
                        {("ge0/2", "in", 7, "one"), ("ge0/2", "out", 7, "one")}),
                       ([merge(interface + "{out}", {"acl-name": "two"})],
                        {("ge0/2", "in", 7, "one"), ("ge0/2", "out", 7, "two")}),
                       ([delete(interface + "{out}")], {("ge0/2", "in", 7, "one")}))

            def verdict():
                return self.told(f"family={family}", vpn=7, interface="ge0/2")["verdict"]
            self.steps(verdict, ([], "reject"), ([merge(lists + "{one}", {"default-action": "accept"})], "accept"),
                       ([merge(lists + "{one}", {"default-action": "drop"})], "reject"),
                       ([delete(lists + "{one}/default-action")], "accept"))
            self.steps(bound, ([delete(interface + "{in}"), delete(lists + "{one}")], set()))
        # The daemon takes no notice of services; with the VPN go its interfaces' bindings.
        self.settled(merge(instance + "/service{FW}"), merge(instance + "/interface{ge0/2}/access-list{in}", {"acl-name": "two"}))
        self.settled(delete(instance))
        self.assertEqual(bound(), set())

    # ---- Zones ----

    @covers(*(f"{LOCAL}/{leaf}" for leaf in (
        "zone/name", "zone/vpn/vpn-id", "zone-pair/name", "zone-pair/pair-id", "zone-pair/source-zone",
        "zone-pair/destination-zone", "zone-pair/zone-policy", "zone-based-policy/name", "zone-based-policy/default-action")))
    def test_zones(self):
        def zones():
            return {(row["vpn"], row["zone"]) for row in self.words()["vpn-zones"]}

        def pairs():
            return {(row["source"], row["destination"], row["pair"]) for row in self.words()["zone-pairs"]}

        def verdict():
            return self.told("out-vpn=20")["verdict"]
        policies, never = LOCAL + "/zone-based-policy", {"number": 1, "match": {"dscp": [63]}, "action": {"base-action": "drop"}}
        self.steps(zones, ([merge(LOCAL + "/zone{in}/vpn{10}"), merge(LOCAL + "/zone{out}/vpn{20}")], {(10, 1), (20, 2)}),
                   ([merge(LOCAL + "/zone{in}/vpn{11}")], {(10, 1), (11, 1), (20, 2)}),
                   ([delete(LOCAL + "/zone{in}/vpn{11}")], {(10, 1), (20, 2)}))
        pair = LOCAL + "/zone-pair{way}"
        self.steps(pairs, ([merge(policies + "{one}", {"default-action": "accept", "sequence": [never]}),
                            merge(policies + "{two}", {"default-action": "drop", "sequence": [never]}),
                            merge(pair, {"source-zone": "in", "destination-zone": "out", "zone-policy": "one"})], {(1, 2, 1)}))
        self.steps(verdict, ([], "accept"), ([merge(policies + "{one}", {"default-action": "drop"})], "reject"),
                   ([merge(policies + "{one}", {"default-action": "inspect"})], "accept"),
                   ([merge(pair, {"zone-policy": "two"})], "reject"), ([merge(pair, {"zone-policy": "one"})], "accept"))
        self.steps(pairs, ([merge(pair, {"source-zone": "out"})], {(2, 2, 1)}),
                   ([merge(pair, {"destination-zone": "in"})], {(2, 1, 1)}), ([merge(pair, {"pair-id": 9})], {(2, 1, 1)}),  # it stays
                   ([delete(pair)], set()))
        self.steps(zones, ([delete(LOCAL + "/zone{in}")], {(20, 2)}))
