"""The configuration whose counters and policers are watched, the packets that meet it, and changes of it.

Every kind of program is there, a counter's name twice in a program, and two application-route policies, of which only
the first one is listed.
"""
from router_lab import delete, merge

LOCAL, KEELSON = "/policy", "/policy-from-keelson"
VPN_LISTS = {10: "offices", 40: "guests", 50: "labs"}
DSCPS = 60  # of the sequences that changes are made of; packets come without


def sequence(number, match, base="accept", **actions):
    return {"number": number, "match": match, "action": {"base-action": base, **actions}}


def changing(**actions):
    return sequence(90, {"dscp": [DSCPS]}, count="rare", **actions)


def policer(name, exceed):
    return {"name": name, "rate": "8000", "burst": 1500, "exceed": exceed}


def prefixes(name, prefix):
    return {"name": name, "ip-prefix": [{"prefix": prefix}]}


SLA = {"sla-class": {"sla-class-name": "gold"}}
OFFICES = [
    sequence(10, {"destination-data-prefix-list": "servers"}, count="servers", policer="marked"),
    sequence(20, {"destination-port": ["23"]}, "drop", count="telnet"),
    sequence(30, {"protocol": [17]}, count="udp", policer="dropped"),
    changing(),
]
GUESTS = [
    sequence(10, {"destination-port": ["80", "443"]}, count="web", policer="dropped"),
    sequence(20, {"source-ip": ["192.168.0.0/16"], "destination-port": ["8080"]}, count="web", policer="marked"),
    sequence(30, {"destination-data-prefix-list": "servers"}, count="servers"),
]
PATHS = [sequence(10, {"protocol": [6]}, count="tcp", **SLA), changing(**SLA)]
KEELSON_CONFIG = {
    "lists": {"data-prefix-list": [prefixes("servers", "10.1.0.0/16")],
              "vpn-list": [{"name": name, "vpn": [{"range": str(vpn)}]} for vpn, name in VPN_LISTS.items()]},
    "policer": [policer("marked", "remark"), policer("dropped", "drop")],
    "sla-class": [{"name": "gold"}],
    "data-policy": [
        {"name": "edge", "direction": "from-service", "vpn-list": [
            {"name": "offices", "default-action": "accept", "sequence": OFFICES},
            {"name": "guests", "default-action": "accept", "sequence": GUESTS}]},
        {"name": "spare", "vpn-list": [{"name": "labs", "default-action": "drop",
                                        "sequence": [sequence(10, {"protocol": [6]}, count="tcp")]}]}],
    "app-route-policy": [
        {"name": "first", "vpn-list": [{"name": "offices", "sequence": PATHS}]},
        {"name": "second", "vpn-list": [{"name": "guests", "sequence": PATHS}]}],
}
LIST4 = [
    sequence(10, {"source-data-prefix-list": "own", "protocol": [6]}, count="tcp", policer="marked"),
    sequence(20, {"destination-port": ["53"]}, "drop", count="dns"),
    changing(),
]
LIST6 = [sequence(10, {"next-header": [6]}, count="tcp", policer="dropped"), changing()]
BETWEEN = [sequence(10, {"source-data-prefix-list": "own", "destination-port": ["443"]}, "inspect", count="https"),
           sequence(20, {"protocol": [6]}, count="tcp"), changing()]
LOCAL_CONFIG = {
    "lists": {"data-prefix-list": [prefixes("own", "192.168.0.0/16")]},
    "policer": [policer("marked", "remark"), policer("dropped", "drop")],
    "access-list": [{"name": "lan", "default-action": "accept", "sequence": LIST4},
                    {"name": "unbound", "default-action": "accept", "sequence": LIST4}],
    "ipv6": {"access-list": [{"name": "lan", "default-action": "accept", "sequence": LIST6}]},
    "zone": [{"name": "inside", "vpn": [{"vpn-id": 10}]}, {"name": "outside", "vpn": [{"vpn-id": 20}]}],
    "zone-based-policy": [{"name": "between", "default-action": "drop", "sequence": BETWEEN}],
    "zone-pair": [{"name": "out", "source-zone": "inside", "destination-zone": "outside", "zone-policy": "between"}],
}
LAN = {"name": "ge0/1", "access-list": [{"direction": "in", "acl-name": "lan"}],
       "ipv6": {"access-list": [{"direction": "in", "acl-name": "lan"}]}}
CONFIG = {"lumora-policy:policy": LOCAL_CONFIG, "lumora-policy:policy-from-keelson": KEELSON_CONFIG,
          "lumora-vpn:vpn": {"vpn-instance": [{"vpn-id": 10, "interface": [LAN]}]}}

# ---- Programs ----

EDGE, GUEST_EDGE, SPARE = ("data", "edge", "offices"), ("data", "edge", "guests"), ("data", "spare", "labs")
FIRST, SECOND = ("app-route", "first", "offices"), ("app-route", "second", "guests")
ZONE, LAN4, LAN6 = ("zone", "between"), ("acl", "lan"), ("acl6", "lan")
UNBOUND = ("acl", "unbound")
SEQUENCES = {EDGE: OFFICES, GUEST_EDGE: GUESTS, SPARE: KEELSON_CONFIG["data-policy"][1]["vpn-list"][0]["sequence"],
             FIRST: PATHS, SECOND: PATHS, ZONE: BETWEEN, LAN4: LIST4, LAN6: LIST6, UNBOUND: LIST4}


def rows_of(program):
    """Its counters and policers, as rows are named: what, kind, names."""
    for row in SEQUENCES[program]:
        action = row["action"]
        yield ("counter", *program, action["count"])
        if "policer" in action:
            yield ("policer", *program, f"{row['number']}.{action['policer']}")


# ---- Packets ----

SOURCES = ("192.168.1.5", "172.16.0.5")
DESTINATIONS = ("10.1.0.10", "10.2.0.10")
PORTS = (23, 53, 80, 443, 8080)
PLACES = ((10, "ge0/1"), (40, "ge0/2"), (50, "ge0/3"))


def packet(random):
    """A packet to forward: its VPN, its length, and the words that fpctl takes for it."""
    vpn, interface = random.choice(PLACES)
    length, port = random.randint(60, 1500), random.choice(PORTS)
    zone = ["out-vpn=20"] if vpn == 10 and random.random() < 0.5 else []
    words = ["forward", vpn, interface, "in", *zone]
    if vpn == 10 and random.random() < 0.3:
        words += ["family=ipv6", "src6=2001:db8::1", "dst6=2001:db8::2", f"dport={port}", "next-header=6", "proto=6"]
    else:
        words += [random.choice(SOURCES), random.choice(DESTINATIONS), 40000, port, random.choice(("tcp", "udp"))]
    return vpn, length, [*words, f"len={length}"]


# ---- Changes ----


def dscp_change(path):
    """Its sequence 90 matches another DSCP."""
    return lambda number: {"op": "replace", "path": path + "/sequence{90}/match", "value": {"dscp": [number % DSCPS + 1]}}


def prefix_change(path):
    """Its prefix list gets a prefix, or loses it."""
    return lambda number: (delete if number // len(CHANGES) % 2 else merge)(path + "/ip-prefix{10.200.0.0/16}")


def rate_change(path):
    return lambda number: merge(path, {"rate": str(8000 + number)})


# Which programs are made anew, and the edit of a round.
CHANGES = (
    ({EDGE}, dscp_change(KEELSON + "/data-policy{edge}/vpn-list{offices}")),
    ({EDGE, GUEST_EDGE}, prefix_change(KEELSON + "/lists/data-prefix-list{servers}")),
    ({FIRST}, dscp_change(KEELSON + "/app-route-policy{first}/vpn-list{offices}")),
    (set(), rate_change(KEELSON + "/policer{dropped}")),
    ({LAN4}, dscp_change(LOCAL + "/access-list{lan}")),
    ({LAN6}, dscp_change(LOCAL + "/ipv6/access-list{lan}")),
    ({ZONE}, dscp_change(LOCAL + "/zone-based-policy{between}")),
    ({LAN4, ZONE}, prefix_change(LOCAL + "/lists/data-prefix-list{own}")),
    (set(), rate_change(LOCAL + "/policer{marked}")),
)
