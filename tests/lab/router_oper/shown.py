"""What a router shows of its programs, over NETCONF and by the command line: counts by row.

A row is named by what it is ("counter" or "policer"), the kind of its program, the names around it, and its own. Its
value is packets and bytes, or None where the router leaves them out.
"""
import json
from collections import namedtuple

from netconf_session import POLICY

Source = namedtuple("Source", "what kind path")
SOURCES = (
    Source("counter", "data", "data-policy-filter/data-policy-vpnlist/data-policy-counter"),
    Source("policer", "data", "data-policy-filter/data-policy-vpnlist/data-policy-policer"),
    Source("counter", "app-route", "app-route-policy-filter/app-route-policy-vpnlist/app-route-policy-counter"),
    Source("counter", "zone", "zbfw-filter-statistics/zbfw-policy-counter"),
    Source("counter", "acl", "access-list-counters/counter-list"),
    Source("policer", "acl", "access-list-policers/policer-list"),
    Source("counter", "acl6", "ipv6/access-list-counters/counter-list"),
    Source("policer", "acl6", "ipv6/access-list-policers/policer-list"),
)
COUNTS = {"counter": ("packets", "bytes"), "policer": ("oob-packets", "oob-bytes")}
VIEWS = ("policy counters", "policy policers", "access-list counters", "access-list policers",
         "ipv6 access-list counters", "ipv6 access-list policers")
NAMES = ("kind", "policy", "vpn-list", "access-list", "counter", "policer")  # of the command line's rows, in order


def _subtree(path):
    first, _, rest = path.partition("/")
    return f"<{first}>{_subtree(rest)}</{first}>" if first == "ipv6" else f"<{first}/>"


SUBTREE = f'<policy xmlns="{POLICY}">{"".join(sorted({_subtree(source.path) for source in SOURCES}))}</policy>'


def _entries(node, tags, names=()):
    if not tags:
        yield names, node
        return
    for child in node.findall(tags[0]):
        key = child.findtext("name") or child.findtext("counter-name") or child.findtext("policer-name")
        yield from _entries(child, tags[1:], (*names, key) if key else names)


def _counts(what, value):
    counts = tuple(value(name) for name in COUNTS[what])
    return None if counts == (None, None) else tuple(map(int, counts))


def over_netconf(session):
    policy = session.get(SUBTREE).find("data/policy")
    return {(source.what, source.kind, *names): _counts(source.what, node.findtext)
            for source in SOURCES for names, node in _entries(policy, source.path.split("/"))}


def by_command_line(lab, *views):
    """The rows of these views, or of all of them. A session of the command line prints them one after the other."""
    program = lab.talk_to("lumora-cli", "--json", "-f", "-")
    text = program.communicate("".join(f"show {view}\n" for view in views or VIEWS), timeout=60)[0]
    rows, decoder = {}, json.JSONDecoder()
    while text.strip():
        view, end = decoder.raw_decode(text.lstrip())
        text = text.lstrip()[end:]
        for row in next(iter(view.values())):
            what = "counter" if "counter" in row else "policer"
            rows[what, *(row[name] for name in NAMES if name in row)] = _counts(what, row.get)
    return rows
