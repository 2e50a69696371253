"""Random configurations and the edits that lead from one to the next.

A RandomConfig knows what is committed and draws the next commit from few names, so that objects go and come back under
the same name, are changed while others use them, and are deleted with their users or without (which is refused).
Sequences are replaced as a whole, so that any leaf comes, changes and goes.

What the daemon lets depend on the order of events isn't drawn, so that a fresh start with the same configuration must
end in the same state: a VPN has one zone, and a VPN list belongs to one policy of each type (of two bindings of one
place the later one holds); an access list has a sequence (an emptied one keeps its old program); the SLA class of a
context's default stays as long as the context (a deleted one's number is kept), and a sequence's name of one stays with
it (a deleted name is kept); applications stand in an access list from its beginning or not at all (the model refuses
else), and they don't change meanwhile (the access list would not see it).
"""
import random

LOCAL, KEELSON = "/policy", "/policy-from-keelson"
KINDS = {  # path, names, weight
    "local-prefixes": (LOCAL + "/lists/data-prefix-list", 3, 2),
    "prefixes": (KEELSON + "/lists/data-prefix-list", 4, 4),
    "local-apps": (LOCAL + "/lists/app-list", 2, 1),
    "apps": (KEELSON + "/lists/app-list", 3, 2),
    "vpns": (KEELSON + "/lists/vpn-list", 4, 3),
    "local-policer": (LOCAL + "/policer", 2, 1),
    "policer": (KEELSON + "/policer", 2, 1),
    "mirror": (LOCAL + "/mirror", 2, 1),
    "class": (LOCAL + "/class-map/class", 4, 2),
    "sla": (KEELSON + "/sla-class", 4, 2),
    "data": (KEELSON + "/data-policy", 2, 8),
    "app-route": (KEELSON + "/app-route-policy", 2, 5),
    "list4": (LOCAL + "/access-list", 3, 5),
    "list6": (LOCAL + "/ipv6/access-list", 2, 3),
    "interface": ("/vpn/vpn-instance{1}/interface", 3, 3),
    "zone": (LOCAL + "/zone", 3, 2),
    "zone-policy": (LOCAL + "/zone-based-policy", 2, 3),
    "pair": (LOCAL + "/zone-pair", 3, 2),
}
REFERENCES = {  # by kind: member of a value, wherever it stands, and the kind that it names
    "data": {"source-data-prefix-list": "prefixes", "destination-data-prefix-list": "prefixes", "app-list": "apps",
             "dns-app-list": "apps", "mirror": "mirror", "policer": "policer"},
    "list4": {"source-data-prefix-list": "local-prefixes", "destination-data-prefix-list": "local-prefixes",
              "app-list": "local-apps", "mirror": "mirror", "policer": "local-policer", "class": "class"},
    "pair": {"source-zone": "zone", "destination-zone": "zone", "zone-policy": "zone-policy"},
}
REFERENCES["app-route"] = REFERENCES["data"]
REFERENCES["zone-policy"] = {**REFERENCES["data"], "source-data-prefix-list": "local-prefixes",
                             "destination-data-prefix-list": "local-prefixes"}
REFERENCES["list6"] = REFERENCES["list4"]
INVALID_SHARE = 0.3
MOST_SEQUENCES = 4
PREFIXES = ["10.0.0.0/8", "10.1.0.0/16", "10.1.2.0/24", "10.1.2.3/32", "172.16.0.0/12", "192.0.2.0/24", "192.0.2.128/25"]
PORTS = ["53", "80", "443", "1000-2000", "1500-3000", "8080"]
APPS = ["sip", "rtp", "netflix", "smb", "bittorrent"]
FAMILIES = ["telephony", "audio_video", "peer_to_peer"]
COLORS = ["mpls", "biz-internet", "lte", "gold"]
HUBS = ["10.255.0.1", "10.255.0.2", "10.255.0.9"]


def names(kind):
    return [f"{kind}-{index}" for index in range(KINDS[kind][1])]


def path_of(kind, name):
    return f"{KINDS[kind][0]}{{{name}}}"


def references(kind, value):
    """What a value names: pairs of kind and name."""
    found, known = set(), REFERENCES.get(kind, {})

    def walk(item):
        if isinstance(item, list):
            for entry in item:
                walk(entry)
        elif isinstance(item, dict):
            for member, entry in item.items():
                if member in known and isinstance(entry, str):
                    found.add((known[member], entry))
                walk(entry)
    walk(value)
    if kind in ("data", "app-route"):
        found |= {("vpns", context["name"]) for context in value.get("vpn-list", [])}
        found |= {("sla", context["sla-class-name"]) for context in value.get("vpn-list", []) if "sla-class-name" in context}
    if kind == "interface":
        for family, target in ((value, "list4"), (value.get("ipv6", {}), "list6")):
            found |= {(target, row["acl-name"]) for row in family.get("access-list", [])}
    return found


class RandomConfig:
    def __init__(self, seed):
        self.draw = random.Random(seed)
        self.objects = {}  # (kind, name) -> value, as committed
        self._invalid = 0

    # ---- Commits ----

    def next_commit(self):
        """Edits, the objects afterwards, and whether they must be refused."""
        edits, objects = [], dict(self.objects)
        for _ in range(self.draw.randint(1, 4)):
            self._change(edits, objects)
        must_fail = self.draw.random() < INVALID_SHARE
        if must_fail:
            self._spoil(edits, objects)
        return edits, objects, must_fail

    def _change(self, edits, objects):
        kind = self.draw.choices(list(KINDS), [row[2] for row in KINDS.values()])[0]
        name = self.draw.choice(names(kind))
        if kind == "local-apps" and any((kind, name) in references(user[0], value) for user, value in objects.items()):
            return None
        if (kind, name) in objects and self.draw.random() < 0.3:
            return self._delete(edits, objects, (kind, name))
        value = self._value(kind, name, objects)
        if value is None:
            return None
        if kind == "pair":  # its number, which the daemon gave, stays
            edits.append({"op": "merge", "path": path_of(kind, name), "value": value})
        else:
            edits.append({"op": "replace", "path": path_of(kind, name), "value": value})
        objects[kind, name] = value
        return None

    def _delete(self, edits, objects, target):
        """With all that names it."""
        for user in [key for key, value in objects.items() if target in references(key[0], value)]:
            if user in objects:
                self._delete(edits, objects, user)
        edits.append({"op": "remove", "path": path_of(*target)})
        del objects[target]

    def _spoil(self, edits, objects):
        """Adds one edit by which the commit must be refused."""
        used = sorted({target for key, value in objects.items() for target in references(key[0], value)})
        ways = [
            {"op": "merge", "path": "/policy/class-map/class{class-0}", "value": {"queue": 256}},
            {"op": "merge", "path": KEELSON + "/policer{half}", "value": {"rate": "1000"}},
            {"op": "merge", "path": KEELSON + "/lists/vpn-list{vpns-0}/vpn{77-77}", "value": {}},
            {"op": "merge", "path": KEELSON + "/data-policy{data-0}/vpn-list{missing}", "value": {}},
            {"op": "merge", "path": LOCAL + "/zone-based-policy{bad}", "value": {"sequence": [{"number": 1}]}},
            {"op": "delete", "path": LOCAL + "/zone{missing}"},
        ]
        ways += [{"op": "delete", "path": path_of(*target)} for target in used if target[0] != "sla"]
        self._invalid += 1
        edits.append(ways[self._invalid % len(ways)] if self._invalid % 2 else self.draw.choice(ways))

    # ---- Values ----

    def _some(self, items, most=3):
        return sorted(self.draw.sample(items, self.draw.randint(1, min(most, len(items)))))

    def _maybe(self, value, chance=0.3):
        """The members of `value`, each perhaps."""
        return {name: item() for name, item in value.items() if self.draw.random() < chance}

    def _existing(self, objects, kind):
        return [name for other, name in objects if other == kind]

    def _reference(self, objects, members):
        """Members that name an object that is there."""
        found = {}
        for member, kind in members.items():
            existing = self._existing(objects, kind)
            if existing and self.draw.random() < 0.3:
                found[member] = self.draw.choice(existing)
        return found

    def _value(self, kind, name, objects):
        """A new value, or None if something is missing for it."""
        makers = {"local-prefixes": self._prefixes, "prefixes": self._prefixes, "local-apps": self._apps,
                  "apps": self._apps, "vpns": self._vpns, "local-policer": self._policer, "policer": self._policer,
                  "mirror": self._mirror, "class": self._class, "sla": lambda *_: {}, "data": self._policy,
                  "app-route": self._policy, "list4": self._access_list, "list6": self._access_list,
                  "interface": self._interface, "zone": self._zone, "zone-policy": self._zone_policy,
                  "pair": self._pair}
        return makers[kind](kind, name, objects)

    def _prefixes(self, *_):
        return {"ip-prefix": [{"prefix": prefix} for prefix in self._some(PREFIXES)]}

    def _apps(self, kind, name, objects):
        before = objects.get((kind, name)) or self.objects.get((kind, name))  # also if it goes in this commit
        of_families = "app-family" in before if before else self.draw.random() < 0.4
        if of_families:
            return {"app-family": [{"name": item} for item in self._some(FAMILIES)]}
        return {"app": [{"name": item} for item in self._some(APPS)]}

    def _vpns(self, _kind, name, _objects):
        low = 100 + 100 * int(name[-1])
        ranges = [f"{low}", f"{low + 10}-{low + 19}", f"{low + 20}-{low + 29}", f"{low + 30}"]
        return {"vpn": [{"range": item} for item in self._some(ranges)]}

    def _policer(self, *_):
        # No probe finds an empty bucket: what is left in one depends on time.
        return {"rate": str(self.draw.choice([10 ** 9, 2 * 10 ** 9])), "burst": self.draw.choice([10 ** 7, 2 * 10 ** 7]),
                "exceed": self.draw.choice(["drop", "remark"])}

    def _mirror(self, *_):
        last = self.draw.randint(1, 3)
        return {"remote-dest": [{"address": f"10.254.0.{last}", "source": f"10.254.1.{last}"}]}

    def _class(self, *_):
        return self._maybe({"queue": lambda: self.draw.randint(0, 7)}, 0.6)

    def _match(self, members, objects):
        match = self._maybe({
            "destination-port": lambda: self._some(PORTS), "source-port": lambda: self._some(PORTS),
            "source-ip": lambda: self._some(PREFIXES), "destination-ip": lambda: self._some(PREFIXES),
            "protocol": lambda: self._some([1, 6, 17]), "dscp": lambda: self._some([0, 10, 46]),
            "packet-length": lambda: self._some(["0-100", "64", "1000-1500"]),
            "plp": lambda: self.draw.choice(["low", "high"]), "tcp": lambda: "syn"}, 0.2)
        return {**match, **self._reference(objects, members)}

    def _sequences(self, kind, objects, actions, extra):
        members = {name: target for name, target in REFERENCES[kind].items() if name.endswith("-list")}
        if kind == "list6" or (kind == "list4" and extra == "old"):
            members = {name: target for name, target in members.items() if not name.endswith("app-list")}
        others = {name: target for name, target in REFERENCES[kind].items() if not name.endswith("-list")}
        count = self.draw.randint(1 if kind.startswith("list") else 0, MOST_SEQUENCES)
        rows = []
        for number in sorted(self.draw.sample(range(1, 9), count)):
            action = {"base-action": self.draw.choice(["accept", "drop"]),
                      **self._maybe({"count": lambda: f"count-{self.draw.randint(0, 3)}"}, 0.5),
                      **self._maybe({"log": lambda: [None]}, 0.2), **actions(),
                      **{name: item for name, item in self._reference(objects, others).items()}}
            rows.append({"number": number, "match": self._match(members, objects), "action": action})
        return rows

    def _policy_actions(self):
        setting = self._maybe({
            "dscp": lambda: self.draw.choice([8, 18, 46]),
            "next-hop": lambda: "10.0.0.254",
            "tloc": lambda: {"ip": self.draw.choice(HUBS), "color": self.draw.choice(COLORS), "encap": "ipsec",
                             "label": self.draw.randint(1000, 1003)},
            "local-tloc-list": lambda: {"color": self._some(COLORS), "encap": ["ipsec"]}}, 0.2)
        action = self._maybe({
            "class": lambda: self.draw.choice(names("class")),  # it need not be there
            "cflowd": lambda: [None], "redirect-dns": lambda: "9.9.9.9", "packet-duplication": lambda: [None],
            "loss-protect": lambda: self.draw.choice(["fec-adaptive", "fec-always"]),
            "fallback": lambda: True, "nat": lambda: {"pool": self.draw.randint(1, 3)}}, 0.15)
        return {**action, **({"set": setting} if setting else {})}

    def _sla_action(self):
        action = self._maybe({"backup-preferred-color": lambda: self._some(COLORS)})
        wanted = self._maybe({"strict": lambda: True, "preferred-color": lambda: self._some(COLORS)}, 0.5)
        return {**action, "sla-class": {"sla-class-name": self.draw.choice(names("sla")), **wanted}}

    def _policy(self, kind, name, objects):
        lists = [item for item in self._existing(objects, "vpns") if int(item[-1]) % 2 == int(name[-1])]
        if not lists:
            return None
        contexts = []
        for item in self._some(lists, len(lists)):
            context = {"name": item, **(self._maybe({"default-action": lambda: self.draw.choice(["accept", "drop"])}, 0.6)
                                        if kind == "data" else
                                        self._maybe({"sla-class-name": lambda: self.draw.choice(names("sla"))}, 0.5))}
            actions = self._policy_actions if kind == "data" else self._sla_action
            context["sequence"] = self._sequences(kind, objects, actions, None)
            contexts.append(context)
        direction = self._maybe({"direction": lambda: self.draw.choice(["from-service", "from-tunnel", "all"])}, 0.5)
        return {**(direction if kind == "data" else {}), "vpn-list": contexts}

    def _access_list(self, kind, name, objects):
        actions = lambda: {"set": {"dscp": self.draw.choice([8, 18])}} if self.draw.random() < 0.2 else {}  # noqa: E731
        age = "old" if (kind, name) in self.objects or (kind, name) in objects else "new"
        return {**self._maybe({"default-action": lambda: self.draw.choice(["accept", "drop"])}, 0.6),
                "sequence": self._sequences(kind, objects, actions, age)}

    def _interface(self, _kind, _name, objects):
        value = {}
        for family, target in ((None, "list4"), ("ipv6", "list6")):
            lists = self._existing(objects, target)
            rows = [{"direction": direction, "acl-name": self.draw.choice(lists)}
                    for direction in ("in", "out") if lists and self.draw.random() < 0.5]
            if rows and family:
                value[family] = {"access-list": rows}
            elif rows:
                value["access-list"] = rows
        return value

    def _zone(self, _kind, name, _objects):
        low = 1000 + 10 * int(name[-1])
        return {"vpn": [{"vpn-id": low + item} for item in self._some([0, 1, 2])]}

    def _zone_policy(self, kind, _name, objects):
        actions = lambda: {"base-action": self.draw.choice(["accept", "drop", "inspect"])}  # noqa: E731
        rows = self._sequences(kind, objects, actions, None)
        for row in rows:  # the daemon names the counter
            row["action"] = {name: item for name, item in row["action"].items() if name in ("base-action", "log")}
        return {"default-action": self.draw.choice(["accept", "drop", "inspect"]), "sequence": rows}

    def _pair(self, _kind, _name, objects):
        zones, policies = self._existing(objects, "zone"), self._existing(objects, "zone-policy")
        if not zones or not policies:
            return None
        return {"source-zone": self.draw.choice(zones), "destination-zone": self.draw.choice(zones),
                "zone-policy": self.draw.choice(policies)}
