"""A second evaluator: what a packet's verdict must be by the configured objects, without any program.

It reads the descriptions that tarn_loader loads and the locators that ttmd announces, walks the sequences in order and
expands lists itself. Nothing here knows classes of packets or tables, but one thing: a rule's counter and policer stand
once for each set of rules that match a packet, so they are kept by that set.
"""
import ipaddress
from collections import defaultdict

STAGES = (("app-route", "application-route"), ("data", "data-policy"))
COLORS = {"mpls": 2, "biz-internet": 4, "lte": 6, "gold": 11}
ENCAP_BITS = {"gre": 6, "ipsec": 4}
APPS = {"netflix": 64, "rtp": 71, "youtube": 84, "sip": 522}
FAMILIES = {"file_server": 10, "peer_to_peer": 20}
NUMBERED = {"class": 1, "sla-class": 1}  # the first free number; 0 is taken
STRICT_BACKUP = 5
ENTRIES = 16
LONGEST_PAUSE = 3600  # seconds
REWRITTEN = ("class", "dscp", "traffic-class")
FLAGS = {"cflowd": "cflowd", "fallback": "fallback", "local": "service-local", "restrict": "service-local-strict",
         "tcp-optimization": "tcp-optimization", "ssl-optimization": "ssl-optimization",
         "packet-duplication": "packet-duplication"}
VALUES = {"dscp": "dscp", "traffic-class": "traffic-class", "service-type": "service-type", "pool": "nat-pool",
          "next-hop": "next-hop", "redirect-dns": "redirect-dns"}


def texts(value):
    return value if isinstance(value, list) else [value]


def bits(names, numbers):
    return sum(1 << numbers[name] for name in texts(names or []))


def bounds(text):
    low, _, high = text.partition("-")
    return int(low), int(high or low)


def flow_hash(packet, vpn):
    """FNV-1a over addresses, ports, protocol and VPN, upper half folded onto the lower one."""
    data = packet["src"].to_bytes(4, "big") + packet["dst"].to_bytes(4, "big")
    data += packet["sport"].to_bytes(2, "big") + packet["dport"].to_bytes(2, "big")
    data += bytes([packet["proto"]]) + vpn.to_bytes(4, "big")
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & (1 << 64) - 1
    return (value ^ value >> 32) & 0xFFFFFFFF


def fields_of(packet):
    """The fields that a packet of the capture comes with."""
    fields = defaultdict(int)
    fields.update({name: packet[name] for name in ("proto", "sport", "dport", "dscp", "len")})
    fields.update({name: int(ipaddress.ip_address(packet[name])) for name in ("src", "dst")})
    fields.update(packet["fields"])
    return fields


class Objects:
    """The objects as the operations leave them."""

    def __init__(self):
        self.kinds = defaultdict(dict)  # kind -> name -> what describes it
        self.contexts = {}  # (type, policy, VPN list) -> its operation
        self.sequences = {}  # the same and number -> its operation
        self.locators = {}  # (address, color, encapsulation) -> its words by name

    def apply(self, operations):
        for operation in operations:
            if "sequence" in operation:
                where = (*self._place(operation, "vpn-list"), operation["sequence"])
                self.sequences[where] = operation
            elif "context" in operation:
                self.contexts[self._place(operation, "context")] = operation
            else:
                self._apply_named(operation)

    def announce(self, line):
        """A command of ttmd, `announce ADDRESS COLOR ENCAP name=value...`."""
        _, address, color, encap, *words = line.split()
        locator = self.locators.setdefault((address, color, encap), {"status": "up"})
        locator.update(word.split("=") for word in words)

    @staticmethod
    def _place(operation, list_member):
        return operation["type"], operation["policy"], operation[list_member]

    def _apply_named(self, operation):
        kind = next(name for name in operation if name not in ("op", "queue"))
        objects = self.kinds[kind]
        name = operation[kind]
        if operation["op"] == "delete":
            del objects[name]
        elif operation["op"] == "create":
            objects[name] = {**operation, "members": list(operation.get("add", []))}
            if kind in NUMBERED:
                taken = {other.get("number") for other in objects.values()}
                objects[name]["number"] = next(n for n in range(NUMBERED[kind], 99) if n not in taken)
        else:
            gone = operation.get("remove", [])
            members = [member for member in objects[name]["members"] if member not in gone]
            objects[name] = {**objects[name], **operation, "members": members + operation.get("add", [])}

    def number(self, kind, name):
        return self.kinds[kind].get(name, {}).get("number", 0)

    # ---- Matching ----

    def _values(self, member, value):
        """The field that a match member looks at, and the ranges of values that it takes."""
        def prefixes(names):
            networks = map(ipaddress.ip_network, names)
            return [(int(network[0]), int(network[-1])) for network in networks]

        def applications(name, prefix):
            entry = self.kinds["app-list"][name]
            numbers, suffix = (FAMILIES, "-family") if entry.get("families") else (APPS, "")
            return prefix + suffix, [(numbers[app],) * 2 for app in entry["members"]]

        direct = {"protocol": "proto", "source-port": "sport", "destination-port": "dport", "dscp": "dscp",
                  "packet-length": "len", "plp": "plp", "dns": "dns"}
        if member in direct:
            return direct[member], [bounds(text) for text in texts(value)]
        if member in ("app-list", "dns-app-list"):
            return applications(value, "app" if member == "app-list" else "dns-app")
        if member == "class":
            return "class", [(self.number("class", value),) * 2]
        field = "src" if member.startswith("source") else "dst"
        return field, prefixes(self.kinds["prefix-list"][value]["members"] if member.endswith("list") else texts(value))

    def matches(self, operation, fields):
        allowed = defaultdict(list)
        for member, value in operation["match"].items():
            field, ranges = self._values(member, value)
            allowed[field] += ranges
        return all(any(low <= fields[field] <= high for low, high in ranges) for field, ranges in allowed.items())

    def context_of(self, policy_type, vpn):
        for key in self.contexts:
            ranges = [bounds(text) for text in self.kinds["vpn-list"][key[2]]["members"]]
            if key[0] == policy_type and any(low <= vpn <= high for low, high in ranges):
                return key
        return None

    # ---- Locators ----

    def _is_up(self, tloc):
        return self.locators.get((tloc["ip"], tloc["color"], tloc["encap"]), {}).get("status") == "up"

    def _entry(self, tloc, vpn):
        known = self.locators.get((tloc["ip"], tloc["color"], tloc["encap"]), {})
        return {"resolved": self._is_up(tloc), "tloc-index": int(known.get("index", 0)), "vpn-label": tloc["label"],
                "vpn": vpn}

    def _spread(self, tlocs):
        """The list's locators that share the traffic, for each of the 16 entries; none if none is up."""
        alive = sorted(filter(self._is_up, tlocs), key=lambda tloc: -tloc["preference"])
        best = [tloc for tloc in alive if tloc["preference"] == alive[0]["preference"]]
        if not best:
            return []
        weight = {id(tloc): int(self.locators[tloc["ip"], tloc["color"], tloc["encap"]]["weight"]) for tloc in best}
        if len(set(weight.values())) == 1:
            return [best[entry % len(best)] for entry in range(ENTRIES)]
        entries = list(best)
        heavy = sorted(best, key=lambda tloc: -weight[id(tloc)])
        for tloc in heavy:
            more = weight[id(tloc)] * ENTRIES // sum(weight.values()) - 1
            entries += [tloc] * (more if more >= 0 else ENTRIES)
        while len(entries) < ENTRIES:
            entries += heavy
        return entries[:ENTRIES]

    def locator(self, operation, hash_value):
        action, vpn = operation["action"], operation.get("vpn", 0)
        if "tloc" in action:
            return {"from": "tloc", **self._entry(action["tloc"], vpn)}
        entry = hash_value % ENTRIES
        entries = self._spread(operation["tlocs"])
        nothing = {"resolved": False, "tloc-index": 0, "vpn-label": 0, "vpn": 0}
        return {"from": "tloc-list", "entry": entry, **(self._entry(entries[entry], vpn) if entries else nothing)}

    # ---- Actions ----

    def _sla_class(self, value):
        return {"primary": self.number("sla-class", value["name"]),
                "backup": STRICT_BACKUP if value.get("strict") else 0,
                "preferred-color": bits(value.get("preferred-color"), COLORS)}

    def _mirror(self, name):
        tunnel = self.kinds["mirror"][name]["tunnel"]
        return {"type": 2, "interface": "", "source": tunnel["source"], "destination": tunnel["destination"],
                "copies": 1}

    def treat(self, operation, hash_value, treatment):
        """Adds a sequence's actions to a treatment."""
        action = operation["action"]
        treatment.update({name: True for member, name in FLAGS.items() if member in action})
        treatment.update({name: action[member] for member, name in VALUES.items() if member in action})
        if self.number("class", action.get("class")):
            treatment["class"] = self.number("class", action["class"])
        if "sla-class" in action:
            treatment["sla-class"] = self._sla_class(action["sla-class"])
        if "backup-preferred-color" in action:
            treatment["backup-preferred-color"] = bits(action["backup-preferred-color"], COLORS)
        if "tloc" in action or "tloc-list" in action:
            treatment["locator"] = self.locator(operation, hash_value)
        if "color-encap" in action:
            value = action["color-encap"]
            treatment["color-encap"] = {"color": bits(value["color"], COLORS),
                                        "encap": bits(value["encap"], ENCAP_BITS)}
        if "local-tloc-list" in action:
            value = action["local-tloc-list"]
            treatment["local-tloc-list"] = {"color-mask": bits(value["color"], COLORS),
                                            "encap-mask": bits(value["encap"], ENCAP_BITS),
                                            "restrict": value.get("restrict", False)}
        if "mirror" in action:
            treatment.setdefault("mirrors", []).append(self._mirror(action["mirror"]))
        if "loss-protect" in action:
            treatment[action["loss-protect"]] = True
        if "log" in action:
            treatment["logged"] = treatment.get("logged", 0) + 1


def path_of(treatment, dropped):
    if dropped:
        return "dropped"
    if "service-local" in treatment:
        return "local-service"
    if "locator" in treatment:
        if treatment["locator"]["resolved"]:
            return "locator"
        return "fallback" if "fallback" in treatment else "unresolved"
    if "next-hop" in treatment:
        return "next-hop"
    return "nat" if "nat-pool" in treatment else "routing"


class Plane:
    """What the forwarding plane keeps from packet to packet."""

    def __init__(self, objects):
        self.objects = objects
        self.counters = defaultdict(lambda: [0, 0])  # by context and set of rules: packets, bytes
        self._buckets = {}  # the same: bytes left, time of the last packet

    def recompiled(self, *contexts):
        """These contexts have new programs, which begin to count anew."""
        for key in [key for key in self.counters if key[0] in contexts]:
            del self.counters[key]

    def replay(self, vpn, packets):
        self._buckets.clear()  # full after the pause
        now = 0
        for number, packet in enumerate(packets):
            distance = packet["time"] - packets[number - 1]["time"] if number else 0
            now += min(distance, LONGEST_PAUSE)
            yield {"frame": number + 1, **self._verdict(vpn, fields_of(packet), now)}

    def _police(self, key, policer, size, now):
        left, before = self._buckets.get(key, (policer["burst"], now))
        left = min(policer["burst"], left + (now - before) * policer["rate"] / 8)
        in_bounds = size <= left
        self._buckets[key] = (left - size if in_bounds else left, now)
        if in_bounds:
            return "in-bounds"
        return "dropped" if policer["exceed"] == "drop" else "marked"

    def _stage(self, key, rules, fields, now):
        """What one stage shows: the first matching sequence's verdict, counter and policer."""
        shown = {"verdict": self.objects.contexts[key]["default-action"], "default": not rules}
        if not rules:
            return shown
        action, state = rules[0]["action"], (key, tuple(rule["sequence"] for rule in rules))
        shown["verdict"] = action["base-action"]
        if "count" in action:
            counter = self.counters[state]
            counter[0] += 1
            counter[1] += fields["len"]
            shown["count"] = [action["count"], *counter]
        if "policer" in action:
            policer = self.objects.kinds["policer"][action["policer"]]
            shown["policer"] = self._police(state, policer, fields["len"], now)
        return shown

    def _rules(self, key, fields):
        numbers = sorted(where[3] for where in self.objects.sequences if where[:3] == key)
        rules = [self.objects.sequences[(*key, number)] for number in numbers]
        return [rule for rule in rules if self.objects.matches(rule, fields)]

    def _verdict(self, vpn, fields, now):
        hash_value = flow_hash(fields, vpn)
        treatment, stages, result = {}, [], {"verdict": "accept"}
        high = fields["plp"] != 0
        for policy_type, name in STAGES:
            key = self.objects.context_of(policy_type, vpn)
            if key is None:
                continue
            rules = self._rules(key, fields)
            shown = self._stage(key, rules, fields, now)
            stages.append({"stage": name, **shown})
            default_class = self.objects.contexts[key].get("sla-class")
            if rules:
                self.objects.treat(rules[0], hash_value, treatment)
            elif default_class:
                self.objects.treat({"action": {"sla-class": {"name": default_class}}}, hash_value, treatment)
            high = high or shown.get("policer") == "marked"
            if shown["verdict"] == "reject" or shown.get("policer") == "dropped":
                verdict = "reject" if shown["verdict"] == "reject" else "policer-drop"
                result = {"verdict": verdict, "dropped-by": name}
                break
            fields.update({field: treatment[field] for field in REWRITTEN if field in treatment})
            fields["plp"] = int(high)
        treatment["path"] = path_of(treatment, "dropped-by" in result)
        return {**result, "plp": "high" if high else "low", "stages": stages, "treatment": treatment}
