"""A second evaluator: what a packet's verdict must be by the running configuration, without any program.

It reads the configuration as mgmtd shows it and the locators that ttmd announces, walks the sequences in order and
expands lists itself. Nothing here knows classes of packets or tables, but one thing: a rule's counter and policer stand
once for each set of rules that match a packet, so they are kept by that set.
"""
import ipaddress
from collections import defaultdict

STAGES = {"list": "ingress-list", "app-route": "application-route", "data": "data-policy"}
COLORS = {"mpls": 2, "biz-internet": 4, "lte": 6, "gold": 11}
ENCAP_BITS = {"gre": 6, "ipsec": 4}
APPS = {"netflix": 64, "rtp": 71, "youtube": 84, "sip": 522}
FAMILIES = {"file_server": 10, "peer_to_peer": 20}
SERVICES = {"FW": 1}
STRICT_BACKUP = 5
ENTRIES = 16
LONGEST_PAUSE = 3600  # seconds
VERDICTS = {"accept": "accept", "drop": "reject"}
RANGES = {"protocol": "proto", "next-header": "proto", "source-port": "sport", "destination-port": "dport",
          "dscp": "dscp", "packet-length": "len"}
WORDS = {"plp": ("low", "high"), "dns": ("", "request", "response")}  # by number
APP_LISTS = {"app-list": "app", "dns-app-list": "dns-app"}
FLAGS = {"cflowd": "cflowd", "fallback": "fallback", "local": "service-local", "restrict": "service-local-strict",
         "tcp-optimization": "tcp-optimization", "ssl-optimization": "ssl-optimization",
         "packet-duplication": "packet-duplication"}
VALUES = ("dscp", "next-hop", "redirect-dns")


def bits(names, numbers):
    return sum(1 << numbers[name] for name in (names if isinstance(names, list) else [names]))


def holds(ranges, value):
    """Whether a value is one of 7, "7" or "5-9"."""
    bounds = [[int(end) for end in str(text).split("-")] for text in ranges]
    return any(ends[0] <= value <= ends[-1] for ends in bounds)


def by_name(entries):
    return {entry["name"]: entry for entry in entries}


def flow_hash(fields, vpn):
    """FNV-1a over addresses, ports, protocol and VPN, upper half folded onto the lower one."""
    data = fields["src"].packed + fields["dst"].packed
    data += fields["sport"].to_bytes(2, "big") + fields["dport"].to_bytes(2, "big")
    data += bytes([fields["proto"]]) + vpn.to_bytes(4, "big")
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & (1 << 64) - 1
    return (value ^ value >> 32) & 0xFFFFFFFF


def fields_of(packet):
    """The fields that a packet of the capture comes with."""
    (source, sport), (destination, dport) = packet.source, packet.destination
    others = {name: int(value) for name, value in packet.fields.items()}
    return defaultdict(int, src=source, sport=sport, dst=destination, dport=dport, proto=packet.protocol,
                       dscp=packet.dscp, len=packet.length, **others)


class Objects:
    """The objects as a configuration has them."""

    def __init__(self):
        self.locators = {}  # (address, color, encapsulation) -> its words by name
        self._numbers = {"class": {}, "sla-class": {}}

    def read(self, config):
        local, keelson = config["lumora-policy:policy"], config["lumora-policy:policy-from-keelson"]
        self.lists = {kind: by_name(entries) for kind, entries in keelson["lists"].items()}
        self.policers, self._mirrors = by_name(keelson["policer"]), by_name(local["mirror"])
        self._number("class", local["class-map"]["class"])
        self._number("sla-class", keelson["sla-class"])
        self._access_lists = {4: by_name(local["access-list"]), 6: by_name(local["ipv6"]["access-list"])}
        self._interfaces = {(int(row["vpn-id"]), interface["name"]): interface
                            for row in config["lumora-vpn:vpn"]["vpn-instance"]
                            for interface in row.get("interface", [])}
        self._contexts = {(kind, policy["name"], context["name"]): context for kind in ("app-route", "data")
                          for policy in keelson[kind + "-policy"] for context in policy["vpn-list"]}

    def _number(self, kind, entries):
        """Who stays keeps its number, who is new gets the first free one; 0 is taken."""
        names, old = [entry["name"] for entry in entries], self._numbers[kind]
        numbers = self._numbers[kind] = {name: old[name] for name in names if name in old}
        for name in names:
            if name not in numbers:
                numbers[name] = next(number for number in range(1, 99) if number not in numbers.values())

    def announce(self, line):
        """What ttmd gets, `announce ADDRESS COLOR ENCAP name=value...`."""
        _, address, color, encap, *words = line.split()
        locator = self.locators.setdefault((address, color, encap), {"status": "up"})
        locator.update(word.split("=") for word in words)

    def number(self, kind, name):
        return self._numbers[kind].get(name, 0)

    # ---- Matching ----

    def _member_matches(self, member, value, fields):
        if member in RANGES:
            return holds(value if isinstance(value, list) else [value], fields[RANGES[member]])
        if member in WORDS:
            return fields[member] == WORDS[member].index(value)
        if member in APP_LISTS:
            entry, field = self.lists["app-list"][value], APP_LISTS[member]
            return fields[field] in [APPS[app["name"]] for app in entry.get("app", [])] or \
                fields[field + "-family"] in [FAMILIES[family["name"]] for family in entry.get("app-family", [])]
        if member.endswith("-data-prefix-list"):
            value = [row["prefix"] for row in self.lists["data-prefix-list"][value]["ip-prefix"]]
        address = fields["src" if member.startswith("source") else "dst"]
        return any(address in ipaddress.ip_network(prefix) for prefix in value)

    def rules(self, owner, fields):
        """The sequences that match, in order."""
        return [sequence for sequence in sorted(owner["sequence"], key=lambda sequence: sequence["number"])
                if all(self._member_matches(*member, fields) for member in sequence.get("match", {}).items())]

    def owners(self, vpn, interface, version):
        """What a packet meets: the interface's list and the contexts of its VPN, with what names them."""
        bound = self._interfaces.get((vpn, interface), {})
        for row in (bound.get("ipv6", {}) if version == 6 else bound).get("access-list", []):
            if row["direction"] == "in":
                yield ("list", row["acl-name"]), self._access_lists[version][row["acl-name"]]
        for key, context in self._contexts.items():
            if holds([row["range"] for row in self.lists["vpn-list"][key[2]]["vpn"]], vpn):
                yield key, context

    # ---- Locators ----

    def _known(self, tloc):
        return self.locators.get((tloc["ip"], tloc["color"], tloc["encap"]), {})

    def _entry(self, tloc, vpn):
        known = self._known(tloc)
        return {"resolved": known.get("status") == "up", "tloc-index": int(known.get("index", 0)),
                "vpn-label": tloc["label"], "vpn": vpn}

    def _spread(self, tlocs):
        """The list's locators that share the traffic, for each of the 16 entries; none if none is up."""
        alive = sorted((tloc for tloc in tlocs if self._known(tloc).get("status") == "up"),
                       key=lambda tloc: -tloc["preference"])
        best = [tloc for tloc in alive if tloc["preference"] == alive[0]["preference"]]
        if not best:
            return []
        weight = {id(tloc): int(self._known(tloc)["weight"]) for tloc in best}
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

    def _locator(self, action, hash_value):
        vpn = int(action.get("vpn", 0))
        if "tloc" in action:
            return {"from": "tloc", **self._entry(action["tloc"], vpn)}
        tlocs = [{name.removeprefix("tloc-"): value for name, value in row.items()}
                 for row in action["lum-tloc-pref-list"]]
        entry, entries = hash_value % ENTRIES, self._spread(tlocs)
        nothing = {"resolved": False, "tloc-index": 0, "vpn-label": 0, "vpn": 0}
        return {"from": "tloc-list", "entry": entry, **(self._entry(entries[entry], vpn) if entries else nothing)}

    # ---- Actions ----

    def sla_class(self, value):
        return {"primary": self.number("sla-class", value.get("sla-class-name")),
                "backup": STRICT_BACKUP if value.get("strict") else 0,
                "preferred-color": bits(value.get("preferred-color", []), COLORS)}

    def _mirror(self, name):
        tunnel = self._mirrors[name]["remote-dest"][0]
        return {"type": 2, "interface": "", "source": tunnel["source"], "destination": tunnel["address"], "copies": 1}

    def treat(self, action, hash_value, treatment):
        """Adds a sequence's actions to a treatment."""
        action = {**action, **action.get("set", {})}
        treatment.update({name: True for member, name in FLAGS.items() if member in action})
        treatment.update({member: action[member] for member in VALUES if member in action})
        if self.number("class", action.get("class")):
            treatment["class"] = self.number("class", action["class"])
        if "sla-class" in action:
            treatment["sla-class"] = self.sla_class(action["sla-class"])
        if "backup-preferred-color" in action:
            treatment["backup-preferred-color"] = bits(action["backup-preferred-color"], COLORS)
        if "tloc" in action or "tloc-list" in action:
            treatment["locator"] = self._locator(action, hash_value)
        if "color-encap" in action:
            value = action["color-encap"]
            treatment["color-encap"] = {"color": bits(value["color"], COLORS),
                                        "encap": bits(value["encap"], ENCAP_BITS)}
        if "local-tloc-list" in action:
            value = action["local-tloc-list"]
            treatment["local-tloc-list"] = {"color-mask": bits(value["color"], COLORS),
                                            "encap-mask": bits(value["encap"], ENCAP_BITS),
                                            "restrict": "restrict" in value}
        if "service-type" in action:
            treatment["service-type"] = SERVICES[action["service-type"]]
        if "nat" in action:
            treatment["nat-pool"] = action["nat"]["pool"]
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
        self.counters = defaultdict(lambda: [0, 0])  # by owner and set of rules: packets, bytes
        self._buckets = {}  # the same: bytes left, time of the last packet

    def recompiled(self, *owners):
        """These have new programs, which begin to count anew."""
        for key in [key for key in self.counters if key[0] in owners]:
            del self.counters[key]

    def replay(self, vpn, interface, packets):
        self._buckets.clear()  # full after the pause
        now = 0
        for number, packet in enumerate(packets):
            distance = packet.time - packets[number - 1].time if number else 0
            now += min(distance, LONGEST_PAUSE)
            yield {"frame": number + 1, **self._verdict(vpn, interface, fields_of(packet), now)}

    def _police(self, key, policer, size, now):
        left, before = self._buckets.get(key, (policer["burst"], now))
        left = min(policer["burst"], left + (now - before) * int(policer["rate"]) / 8)
        in_bounds = size <= left
        self._buckets[key] = (left - size if in_bounds else left, now)
        if in_bounds:
            return "in-bounds"
        return "dropped" if policer["exceed"] == "drop" else "marked"

    def _stage(self, key, owner, rules, fields, now):
        """What one stage shows: the first matching sequence's verdict, counter and policer."""
        if not rules:
            return {"verdict": VERDICTS.get(owner.get("default-action"), "none"), "default": True}
        action, state = rules[0]["action"], (key, tuple(rule["number"] for rule in rules))
        shown = {"verdict": VERDICTS[action["base-action"]], "default": False}
        if "count" in action:
            counter = self.counters[state]
            counter[0] += 1
            counter[1] += fields["len"]
            shown["count"] = [action["count"], *counter]
        if "policer" in action:
            shown["policer"] = self._police(state, self.objects.policers[action["policer"]], fields["len"], now)
        return shown

    def _verdict(self, vpn, interface, fields, now):
        hash_value = flow_hash(fields, vpn)
        treatment, stages, result = {}, [], {"verdict": "accept"}
        high = fields["plp"] != 0
        for key, owner in self.objects.owners(vpn, interface, fields["src"].version):
            name, rules = STAGES[key[0]], self.objects.rules(owner, fields)
            shown = self._stage(key, owner, rules, fields, now)
            stages.append({"stage": name, **shown})
            if rules:
                self.objects.treat(rules[0]["action"], hash_value, treatment)
            elif key[0] == "app-route":
                treatment["sla-class"] = self.objects.sla_class(owner)
            high = high or shown.get("policer") == "marked"
            if shown["verdict"] == "reject" or shown.get("policer") == "dropped":
                verdict = "reject" if shown["verdict"] == "reject" else "policer-drop"
                result = {"verdict": verdict, "dropped-by": name}
                break
            fields["dscp"] = treatment.get("dscp", fields["dscp"])
            fields["plp"] = int(high)
        treatment["path"] = path_of(treatment, "dropped-by" in result)
        return {**result, "plp": "high" if high else "low", "stages": stages, "treatment": treatment}
