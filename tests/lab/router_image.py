"""What a router does, as far as it must not depend on how it came there: bindings, and verdicts on many headers.

Left out, or translated, since it depends on the order of events:

- ids of filters; rows without a program, which appear when ftmd connects anew; so do those of zone-based policies
- names in rows of VPNs: the policy's, or the VPN list's if ftmd has connected anew since
- numbers of classes and SLA classes: told by name; the policies `names` give each name to a packet of its own
- numbers of zones: told by the VPNs that a zone has
- counters, tokens of policers, the generation number, the words that count edits of fields
- whether traffic to the internet passes: the switch stays as it was when its leaf goes
"""
import json
import random

from verdict_text import verdict_text

SEED = 4711
HEADERS = 60
VPNS = [1, 100, 110, 125, 200, 215, 300, 320, 400, 419]
INTERFACES = ["interface-0", "interface-1", "interface-2"]
CLASS_VPN, SLA_VPN = 64000, 64001
CLASS_NAMES = [f"class-{index}" for index in range(4)]
SLA_NAMES = [f"sla-{index}" for index in range(4)]
NO_PROGRAM = -1


def names_configuration():
    """Policies by which each class and SLA class shows its number. They may name classes that are not there."""
    def rows(names, action):
        return [{"number": index + 1, "match": {"destination-ip": [f"10.200.0.{index}/32"]},
                 "action": {"base-action": "accept", **action(name)}} for index, name in enumerate(names)]

    return {"lists": {"vpn-list": [{"name": "names", "vpn": [{"range": str(CLASS_VPN)}]},
                                   {"name": "sla-names", "vpn": [{"range": str(SLA_VPN)}]}]},
            "data-policy": [{"name": "names", "vpn-list": [
                {"name": "names", "default-action": "accept",
                 "sequence": rows(CLASS_NAMES, lambda name: {"class": name})}]}],
            "app-route-policy": [{"name": "names", "vpn-list": [
                {"name": "sla-names",
                 "sequence": rows(SLA_NAMES, lambda name: {"sla-class": {"sla-class-name": name}})}]}]}


def headers():
    """Headers that the objects of random_config.py tell apart, always the same."""
    draw = random.Random(SEED)
    addresses = ["10.1.2.3", "10.1.2.9", "10.1.9.9", "10.9.9.9", "172.16.0.1", "192.0.2.1", "192.0.2.200", "8.8.8.8"]
    ports = [53, 80, 443, 1000, 1700, 2500, 8080, 9999]
    found = []
    for _ in range(HEADERS):
        words = [draw.choice(addresses), draw.choice(addresses), draw.choice(ports), draw.choice(ports),
                 draw.choice(["tcp", "udp", "icmp"]), f"dscp={draw.choice([0, 10, 46, 20])}",
                 f"len={draw.choice([64, 90, 700, 1200])}", f"plp={draw.choice([0, 1])}",
                 *draw.choice([[], ["app=522", "app-family=25"], ["app=64", "app-family=3"], ["app=418", "app-family=20"]]),
                 *draw.choice([[], ["tcp-flags=2"]])]
        found.append(" ".join(map(str, words)))
    return found


def _shown_number(router, vpn, index, member):
    told = router.fpctl("forward", vpn, "probe", "in", "192.0.2.1", f"10.200.0.{index}", 1, 1, "tcp")["treatment"]
    value = told.get(member, 0)
    return value["primary"] if isinstance(value, dict) else value


def class_names(router):
    """Names of classes and SLA classes by the numbers that they have now."""
    classes = {_shown_number(router, CLASS_VPN, index, "class"): name for index, name in enumerate(CLASS_NAMES)}
    sla_classes = {_shown_number(router, SLA_VPN, index, "sla-class"): name for index, name in enumerate(SLA_NAMES)}
    classes.pop(0, None)
    sla_classes.pop(0, None)
    return classes, sla_classes


def bindings_image(table):
    rows = [("vpn", row["type"], row["min"], row["max"], row["direction"])
            for row in table["vpns"] if row["type"] not in ("none", "zone") and row["filter"] != NO_PROGRAM]
    rows += [("interface", row["family"], row["interface"], row["direction"], row["vpn"], row["name"])
             for row in table["interfaces"] if row["filter"] != NO_PROGRAM]
    return sorted(rows)


def zones_image(words):
    """The zone tables: VPNs that share a zone, and the pairs by these."""
    zones = {}
    for row in words["vpn-zones"]:
        zones.setdefault(row["zone"], []).append(row["vpn"])
    zones = {number: sorted(vpns) for number, vpns in zones.items()}
    pairs = [(zones.get(row["source"], []), zones.get(row["destination"], []), row["pair"]) for row in words["zone-pairs"]]
    # A zone without VPNs can't be told from another one.
    return sorted(zones.values()), sorted(pair for pair in pairs if pair[0] and pair[1])


def image(router):
    """All of it; the router has settled."""
    names = class_names(router)
    words = json.loads(router.lab.run("lab_words").stdout)
    verdicts = {}
    for vpn in VPNS:
        for index, header in enumerate(headers()):
            side = "service" if index % 2 else "tunnel"
            interface = INTERFACES[index % len(INTERFACES)] if vpn == VPNS[0] else "none"
            place = f"{vpn} {interface} {'in' if index % 3 else 'out'} from={side} family={'ipv6' if index % 5 == 4 else 'ipv4'}"
            verdicts[place, header] = verdict_text(router.fpctl("forward", place, header), *names)
    return {"bindings": bindings_image(router.bindings()), "zones": zones_image(words), "log-frequency": words["log-frequency"],
            "verdicts": verdicts}
