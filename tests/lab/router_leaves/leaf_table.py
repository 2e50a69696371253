"""What each leaf of a sequence comes to in a program: a row a leaf, for all kinds of sequences that have it.

A match row has two values and for each the fields of a packet that meets it; a packet that meets nothing is one that
meets the other value. An action row has two values and what its slot shows without the leaf, with the first and with
the second one. Leaves without a second value can't be changed, only made and deleted.
"""
import dataclasses


@dataclasses.dataclass
class Match:
    first: object
    second: object
    packet: dict  # fields that meet the first value
    other: dict  # fields that meet the second
    new_only: tuple = ()  # kinds whose sequences take it only when they are made


@dataclasses.dataclass
class Action:
    first: object
    second: object
    slot: str  # action whose slot shows it; "" for the verdict
    member: str  # of the slot; "" tells whether the slot is there
    absent: object
    shown: object  # with the first value
    changed: object = None  # with the second
    base: dict = dataclasses.field(default_factory=dict)  # what else stands under action
    mandatory: tuple = ()  # kinds in which it is there from the beginning and can't be deleted
    deleted: object = ...  # what is shown when it was deleted, if not as without it
    comes_with: dict = dataclasses.field(default_factory=dict)  # what else comes under action when the leaf is made


MATCHES = {
    "destination-port": Match(["80"], ["443-444"], {"dport": 80}, {"dport": 444}),
    "source-ip": Match(["10.11.0.0/16"], ["10.12.0.0/16"], {"src": "10.11.9.9"}, {"src": "10.12.0.1"}),
    "source-data-prefix-list": Match("one", "two", {"src": "10.11.0.1"}, {"src": "10.12.0.1"}),
    "source-port": Match(["1000-1001"], ["2000"], {"sport": 1001}, {"sport": 2000}),
    "protocol": Match([6], [17], {"proto": 6}, {"proto": 17}),
    "dscp": Match([10], [20], {"dscp": 10}, {"dscp": 20}),
    "tcp": Match("syn", None, {"tcp-flags": 2}, {}),
    "packet-length": Match(["100-200"], ["300"], {"len": 150}, {"len": 300}),
    "plp": Match("high", "low", {"plp": 1}, {"plp": 0}),
    "dns": Match("request", "response", {"dns": 1}, {"dns": 2}),
    "app-list": Match("one", "two", {"app": 522}, {"app": 64}, new_only=("list4",)),
    "dns-app-list": Match("one", "two", {"dns-app": 522}, {"dns-app": 64}, new_only=("list4",)),
    "class": Match("one", "two", {"class": 1}, {"class": 2}),
    "traffic-class": Match([32], [64], {"traffic-class": 32}, {"traffic-class": 64}),
    "next-header": Match([6], [17], {"next-header": 6}, {"next-header": 17}),
    # These tell a sequence's packets from others' in all rows but these two.
    "destination-ip": Match(["10.21.0.0/16"], ["10.22.0.0/16"], {"dst": "10.21.0.1"}, {"dst": "10.22.0.1"}),
    "destination-data-prefix-list": Match("far-one", "far-two", {"dst": "10.23.0.1"}, {"dst": "10.24.0.1"}),
}

_TLOC = {"set": {"tloc": {"ip": "10.255.0.1", "color": "mpls", "encap": "ipsec", "label": 100}}}


def _tloc_base(without):
    return {"set": {"tloc": {name: value for name, value in _TLOC["set"]["tloc"].items() if name != without}}}


def _element(without=None, **more):
    """A list of one element; elements without a label don't count."""
    row = {"index": 0, "tloc-ip": "10.255.0.1", "tloc-color": "mpls", "tloc-encap": "ipsec", "tloc-label": 7, **more}
    return {"set": {"tloc-list": "hubs", "lum-tloc-pref-list": [{k: v for k, v in row.items() if k != without}]}}


EMPTY = [None]

ACTIONS = {
    "base-action": Action("accept", "drop", "", "", "none", "accept", "reject",
                          mandatory=("data", "zone", "list4", "list6")),
    "count": Action("first", "second", "count", "name", None, "first", "second"),
    "log": Action(EMPTY, None, "log", "", False, True),
    "cflowd": Action(EMPTY, None, "cflowd-v9", "", False, True),
    "mirror": Action("one", "two", "mirror", "destination", None, "10.254.0.1", "10.254.0.2"),
    "policer": Action("one", "two", "police", "name", None, ".one", ".two"),
    "class": Action("one", "two", "set fc", "class", None, 1, 2),
    "redirect-dns": Action("9.9.9.9", "8.8.4.4", "redirect-dns", "next-hop", None, "9.9.9.9", "8.8.4.4"),
    "tcp-optimization": Action(EMPTY, None, "tcp optimization", "", False, True),
    "ssl-optimization": Action(EMPTY, None, "ssl-optimization", "", False, True),
    "packet-duplication": Action(EMPTY, None, "pkt dup", "", False, True),
    "loss-protect": Action("fec-adaptive", None, "fec adaptive", "", False, True),
    "fallback": Action(True, False, "fallback", "", False, True, False),
    "backup-preferred-color": Action(["mpls"], ["lte", "gold"], "set backup-preferred-color", "color", None, 1 << 2,
                                     1 << 6 | 1 << 11),
    "nat/use-vpn": Action(2, 3, "set nat use-vpn", "vrid", None, 2, 3),
    "nat/pool": Action(7, 8, "set nat pool-id", "pool-id", None, 7, 8),
    "set/dscp": Action(10, 20, "set dscp", "dscp", None, 10, 20),
    "set/traffic-class": Action(32, 64, "set traffic-class", "traffic-class", None, 32, 64),
    "set/next-hop": Action("10.0.0.1", "10.0.0.2", "set next-hop", "next-hop", None, "10.0.0.1", "10.0.0.2"),
    # A locator keeps the VPN that it was made with until it is changed itself.
    "set/vpn": Action(5, 6, "set tloc", "vpn", None, 5, 5, deleted=5, comes_with=_TLOC),
    "set/service-type": Action("FW", "IDP", "set svc-type", "svc-type", None, 1, 3),
    "set/local": Action(EMPTY, None, "set svc-local", "", False, True, base={"set": {"service-type": "FW"}}),
    "set/restrict": Action(EMPTY, None, "set svc-local-strict", "", False, True, base={"set": {"service-type": "FW"}}),
    "set/tloc-list": Action("hubs", "others", "tloc-list", "", False, True, True),
    "set/tloc/ip": Action("10.255.0.1", "10.255.0.2", "set tloc", "tloc-index", 0, 1, 2, base=_tloc_base("ip")),
    "set/tloc/color": Action("mpls", "lte", "set tloc", "tloc-index", 0, 1, 3, base=_tloc_base("color")),
    "set/tloc/encap": Action("gre", "ipsec", "set tloc", "tloc-index", 1, 4, 1, base=_tloc_base("encap")),
    "set/tloc/label": Action(200, 300, "set tloc", "vpn-label", 0, 200, 300, base=_tloc_base("label")),
    "set/color-encap/color": Action("mpls", "lte", "set tloc-color-encap", "color", 0, 1 << 2, 1 << 6,
                                    base={"set": {"color-encap": {"encap": "ipsec"}}}),
    "set/color-encap/encap": Action("gre", "ipsec", "set tloc-color-encap", "encap", 0, 1 << 6, 1 << 4,
                                    base={"set": {"color-encap": {"color": "mpls"}}}),
    "set/local-tloc-list/color": Action(["mpls"], ["lte", "gold"], "set local-tloc-list", "color-mask", 0, 1 << 2,
                                        1 << 6 | 1 << 11, base={"set": {"local-tloc-list": {"encap": ["ipsec"]}}}),
    "set/local-tloc-list/encap": Action(["gre"], ["ipsec"], "set local-tloc-list", "encap-mask", 0, 1 << 6, 1 << 4,
                                        base={"set": {"local-tloc-list": {"color": ["mpls"]}}}),
    "set/local-tloc-list/restrict": Action(EMPTY, None, "set local-tloc-list", "restrict", False, True,
                                           base={"set": {"local-tloc-list": {"color": ["mpls"], "encap": ["ipsec"]}}}),
    "set/lum-tloc-pref-list/index": Action(0, None, "tloc-list", "first-index", 0, 1,
                                           base={"set": {"tloc-list": "hubs"}}),
    "set/lum-tloc-pref-list/tloc-ip": Action("10.255.0.1", "10.255.0.2", "tloc-list", "first-index", None, 1, 2,
                                             base=_element("tloc-ip"), mandatory=("data",)),
    "set/lum-tloc-pref-list/tloc-color": Action("mpls", "lte", "tloc-list", "first-index", None, 1, 3,
                                                base=_element("tloc-color"), mandatory=("data",)),
    "set/lum-tloc-pref-list/tloc-encap": Action("ipsec", "gre", "tloc-list", "first-index", None, 1, 4,
                                                base=_element("tloc-encap"), mandatory=("data",)),
    "set/lum-tloc-pref-list/tloc-label": Action(200, 300, "tloc-list", "first-label", 0, 200, 300,
                                                base=_element("tloc-label")),
    "set/lum-tloc-pref-list/tloc-preference": Action(9, 3, "tloc-list", "first-index", 2, 1, 2, base={"set": {
        "tloc-list": "hubs", "lum-tloc-pref-list": [
            {"index": 0, "tloc-ip": "10.255.0.1", "tloc-color": "mpls", "tloc-encap": "ipsec", "tloc-label": 7},
            {"index": 1, "tloc-ip": "10.255.0.2", "tloc-color": "mpls", "tloc-encap": "ipsec", "tloc-label": 7,
             "tloc-preference": 5}]}}),
    # A name that is deleted stays.
    "sla-class/sla-class-name": Action("one", "two", "sla-class", "primary", 0, 1, 2, deleted=2),
    "sla-class/strict": Action(True, False, "sla-class", "backup", 0, 5, 0),
    "sla-class/preferred-color": Action(["mpls"], ["lte", "gold"], "sla-class", "preferred-color", 0, 1 << 2,
                                        1 << 6 | 1 << 11),
}
