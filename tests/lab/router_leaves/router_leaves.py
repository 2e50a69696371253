#!/usr/bin/python3 -B
"""Every leaf of the model, made, changed and deleted by commits: what it comes to in the slots of a program, or in a word
or record of the shared block.

The model is asked for its leaves, and one without a row fails the test. Leaves of sequences stand in leaf_table.py, each
for all kinds of sequences that have it; they share four commits, each leaf in a sequence of its own. All others have a
test in other_leaves.py, which names them.
"""
import dataclasses
import json
import sys
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parents[1]), str(Path(__file__).resolve().parent)]
import harness  # noqa: E402
from leaf_table import ACTIONS, MATCHES, Match  # noqa: E402
from other_leaves import COVERED, OtherLeaves  # noqa: E402
from router_lab import RouterLab, merge  # noqa: E402

LOCAL, KEELSON = "/policy", "/policy-from-keelson"
TOPS = (LOCAL, KEELSON, "/vpn")
KINDS = {  # where the sequences of a kind stand
    "data": KEELSON + "/data-policy/vpn-list/sequence",
    "app-route": KEELSON + "/app-route-policy/vpn-list/sequence",
    "zone": LOCAL + "/zone-based-policy/sequence",
    "list4": LOCAL + "/access-list/sequence",
    "list6": LOCAL + "/ipv6/access-list/sequence",
}
FIRST_VPN = {"data": 2000, "app-route": 3000, "zone": 4000}  # of a kind's owners
SHARE = 5  # leaves that share an owner: a policy, a context or an access list
LOCATORS = ["10.255.0.1 mpls ipsec index=1", "10.255.0.2 mpls ipsec index=2", "10.255.0.1 lte ipsec index=3",
            "10.255.0.1 mpls gre index=4"]
STAGES = ("without it", "made", "changed", "deleted")


def model_leaves(control, path):
    """Paths of the configurable leaves below a node."""
    found = []
    for child in control.ask("schema", path=path)["children"]:
        below = f"{path}/{child['name']}"
        if child.get("state"):
            continue
        if child["kind"] in ("leaf", "leaf-list"):
            found.append(below)
        elif child["kind"] in ("container", "list"):
            found += model_leaves(control, below)
    return found


@dataclasses.dataclass
class Item:
    """One leaf of one kind of sequences, in a sequence of its own."""

    kind: str
    leaf: str  # below match or action
    row: object
    index: int  # among those of its kind

    @property
    def owner(self):
        return self.index // SHARE

    @property
    def is_match(self):
        return isinstance(self.row, Match)

    def header(self):
        """Fields that no other sequence's packets have."""
        by_port = self.leaf.startswith("destination-") and self.is_match and self.leaf != "destination-port"
        return {"sport": 20000 + self.index} if by_port else {"dst": f"10.77.{self.index}.1"}

    def own_match(self):
        header = self.header()
        return {"source-port": [str(header["sport"])]} if "sport" in header else \
            {"destination-ip": [f"10.77.{self.index}.0/24"]}

    def is_new_only(self):
        return self.is_match and self.kind in self.row.new_only

    def value(self, stage):
        """The leaf's value at a stage, None where it isn't there."""
        is_mandatory = self.kind in getattr(self.row, "mandatory", ())
        if stage in (0, 3) and not is_mandatory:
            return None
        if stage in (0, 1) or self.row.second is None or self.is_new_only():
            return self.row.first
        return self.row.second

    def sequence(self, stage):
        """The sequence, or None while it isn't there."""
        if self.is_new_only() and stage == 0:
            return None
        match, action = self.own_match(), {"base-action": "drop" if self.is_match else "accept"}
        value = self.value(stage)
        if self.is_match:
            match.update({} if value is None else {self.leaf: value})
        else:
            _merge_into(action, self.row.base)
            _merge_into(action, self.row.comes_with if stage > 0 else {})
            steps = self.leaf.split("/")
            if steps[-2:-1] == ["lum-tloc-pref-list"] or value is None:
                _set_element(action, steps, value)
            else:
                _merge_into(action, _nested(steps, value))
        return {"number": self.index + 1, "match": match, "action": action}


def _nested(steps, value):
    return {steps[0]: _nested(steps[1:], value) if len(steps) > 1 else value}


def _merge_into(target, source):
    for name, value in source.items():
        if isinstance(value, dict):
            _merge_into(target.setdefault(name, {}), value)
        else:
            target[name] = [dict(row) if isinstance(row, dict) else row for row in value] if isinstance(value, list) else value


def _set_element(action, steps, value):
    """A leaf of the list's first element; the element's key makes the element."""
    if value is None:
        if steps == ["base-action"]:
            del action["base-action"]
        return
    rows = action["set"].setdefault("lum-tloc-pref-list", [])
    if steps[-1] == "index":
        rows.append({"index": value, "tloc-ip": "10.255.0.1", "tloc-color": "mpls", "tloc-encap": "ipsec", "tloc-label": 7})
    else:
        rows[0][steps[-1]] = value


class RouterLeaves(OtherLeaves, harness.Scenario):
    def setUp(self):
        self.router = RouterLab(self, "leaves")
        for line in LOCATORS:
            self.router.peer("ttmd", "announce", line)

    def settled(self, *edits):
        self.router.commit(*edits)
        self.router.settle()

    def words(self):
        return json.loads(self.router.lab.run("lab_words").stdout)

    # ---- The model ----

    def test_every_leaf_has_a_row(self):
        leaves = {leaf for top in TOPS for leaf in model_leaves(self.router.control, top)}
        rows = set(COVERED) | {path + "/number" for path in KINDS.values()}
        for path in KINDS.values():
            known = [f"{path}/match/{leaf}" for leaf in MATCHES] + [f"{path}/action/{leaf}" for leaf in ACTIONS]
            rows |= leaves.intersection(known)
        self.assertEqual(sorted(leaves - rows), [], "leaves without a row")
        self.assertEqual(sorted(set(COVERED) - leaves), [], "rows without a leaf")

    def items(self):
        """What to try, kind by kind."""
        found = []
        for kind, path in KINDS.items():
            leaves = model_leaves(self.router.control, path)
            rows = [(leaf.removeprefix(path + "/match/"), MATCHES) for leaf in leaves if "/match/" in leaf]
            rows += [(leaf.removeprefix(path + "/action/"), ACTIONS) for leaf in leaves if "/action/" in leaf]
            found += [Item(kind, leaf, table[leaf], index) for index, (leaf, table) in enumerate(rows)]
        return found

    # ---- Leaves of sequences ----

    def objects(self, items):
        """What the sequences name, and their owners."""
        owners = {kind: sorted({item.owner for item in items if item.kind == kind}) for kind in KINDS}
        prefixes = [{"name": name, "ip-prefix": [{"prefix": prefix}]} for name, prefix in (
            ("one", "10.11.0.0/16"), ("two", "10.12.0.0/16"), ("far-one", "10.23.0.0/16"), ("far-two", "10.24.0.0/16"))]
        apps = [{"name": "one", "app": [{"name": "sip"}]}, {"name": "two", "app": [{"name": "netflix"}]}]
        policers = [{"name": name, "rate": "8000", "burst": 1500, "exceed": "drop"} for name in ("one", "two")]
        names = [{"name": "one"}, {"name": "two"}]
        lists = {"data-prefix-list": prefixes, "app-list": apps}
        local = {
            "lists": lists, "policer": policers, "class-map": {"class": names},
            "mirror": [{"name": name, "remote-dest": [{"address": f"10.254.0.{number}", "source": "10.254.1.1"}]}
                       for number, name in enumerate(("one", "two"), 1)],
            "zone": [{"name": f"z{index}", "vpn": [{"vpn-id": FIRST_VPN["zone"] + index}]} for index in owners["zone"]],
            "zone-based-policy": [{"name": f"leaves-{index}", "default-action": "accept"} for index in owners["zone"]],
            "access-list": [{"name": f"leaves-{index}", "default-action": "accept"} for index in owners["list4"]],
            "ipv6": {"access-list": [{"name": f"leaves-{index}", "default-action": "accept"} for index in owners["list6"]]}}
        vpn_lists = [{"name": f"{kind}-{index}", "vpn": [{"range": str(FIRST_VPN[kind] + index)}]}
                     for kind in ("data", "app-route") for index in owners[kind]]
        contexts = {kind: [{"name": f"{kind}-{index}"} for index in owners[kind]] for kind in ("data", "app-route")}
        for context in contexts["data"]:
            context["default-action"] = "accept"
        keelson = {"lists": {**lists, "vpn-list": vpn_lists}, "policer": policers, "sla-class": names,
                   "data-policy": [{"name": "leaves", "vpn-list": contexts["data"]}],
                   "app-route-policy": [{"name": "leaves", "vpn-list": contexts["app-route"]}]}
        vpn = {"vpn-instance": [{"vpn-id": "1"}, {"vpn-id": "2"}, {"vpn-id": "3"}]}
        return [merge(LOCAL, local), merge(KEELSON, keelson), merge("/vpn", vpn), *self.bind_edits(owners)]

    @staticmethod
    def bind_edits(owners):
        """Pairs for the zone-based policies, interfaces for the access lists."""
        edits = [merge(f"{LOCAL}/zone-pair{{leaves-{index}}}", {"source-zone": f"z{index}", "destination-zone": f"z{index}",
                                                              "zone-policy": f"leaves-{index}"}) for index in owners["zone"]]
        for kind, below in (("list4", ""), ("list6", "/ipv6")):
            edits += [merge(f"/vpn/vpn-instance{{1}}/interface{{leaves-{index}}}{below}/access-list{{in}}",
                            {"acl-name": f"leaves-{index}"}) for index in owners[kind]]
        return edits

    @staticmethod
    def sequence_path(item):
        return {"data": f"{KEELSON}/data-policy{{leaves}}/vpn-list{{data-{item.owner}}}",
                "app-route": f"{KEELSON}/app-route-policy{{leaves}}/vpn-list{{app-route-{item.owner}}}",
                "zone": f"{LOCAL}/zone-based-policy{{leaves-{item.owner}}}",
                "list4": f"{LOCAL}/access-list{{leaves-{item.owner}}}",
                "list6": f"{LOCAL}/ipv6/access-list{{leaves-{item.owner}}}"}[item.kind] + f"/sequence{{{item.index + 1}}}"

    def filters(self):
        """The filter of each kind's owners, by kind and owner."""
        found, table = {}, self.router.bindings()
        for row in table["vpns"]:
            for kind, name in (("data", "data"), ("app-route", "application-route")):
                if row["type"] == name:
                    found[kind, row["min"] - FIRST_VPN[kind]] = row["filter"]
        for row in table["interfaces"]:
            found["list4" if row["family"] == "ipv4" else "list6", int(row["name"].rpartition("-")[2])] = row["filter"]
        words = self.words()
        zones = {row["zone"]: row["vpn"] - FIRST_VPN["zone"] for row in words["vpn-zones"]}
        found.update({("zone", zones[row["source"]]): row["filter"] for row in words["zone-pairs"]})
        return found

    def classify(self, filter_id, header):
        fields = " ".join(f"{name}={value}" for name, value in header.items())
        return self.router.fpctl("classify", filter_id, fields)

    def check_match(self, item, stage, filter_id):
        """Whether a packet with the first value's fields is matched, and one with the second's."""
        hits = tuple(self.classify(filter_id, {**item.header(), **packet})["verdict"] == "reject"
                     for packet in (item.row.packet, item.row.other))
        value = item.value(stage)
        if value is None:
            return hits, (item.sequence(stage) is not None,) * 2
        return hits, (value == item.row.first, value != item.row.first)

    def check_action(self, item, stage, filter_id):
        """What the slot shows, and what it must show."""
        row, value = item.row, item.value(stage)
        shown = row.absent if value is None else row.shown if value == row.first else row.changed
        if stage == 3 and row.deleted is not ...:
            shown = row.deleted
        answer = self.classify(filter_id, item.header())
        if row.slot == "":
            return answer["verdict"], shown
        slot = next((action for action in answer["actions"] if action["action"] == row.slot), None)
        if slot and row.member.startswith("first-"):
            member = {"first-index": "tloc-index", "first-label": "vpn-label"}[row.member]
            return slot["tlocs"][0][member], shown
        told = (slot is not None) if row.member == "" else slot[row.member] if slot else None
        if row.slot == "police" and told:
            told = told[told.index("."):]
        if row.slot == "count" and item.kind == "zone" and value is None:  # the daemon names it
            told = None
        return told, shown

    def test_leaves_of_sequences(self):
        items = self.items()
        self.router.commit(*self.objects(items))
        wrong = []
        for stage, name in enumerate(STAGES):
            wanted = {self.sequence_path(item): item.sequence(stage) for item in items}
            self.settled(*[{"op": "replace", "path": path, "value": value} for path, value in wanted.items() if value])
            filters = self.filters()
            for item in items:
                check = self.check_match if item.is_match else self.check_action
                told, want = check(item, stage, filters[item.kind, item.owner])
                if told != want:
                    wrong.append(f"{item.kind} {item.leaf}, {name}: {told} instead of {want}")
        self.assertEqual(wrong, [])


if __name__ == "__main__":
    harness.main()
