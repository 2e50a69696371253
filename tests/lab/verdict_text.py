"""What became of a packet, as a short text that a person can write down beforehand.

    accept +servers-web sla=business/mpls,biz-internet backup=lte class=business dscp=18 mirror

First the verdict (a drop names its stage), then the counters that the packet met, then what it was given. `via` tells
where it goes if not by routing, `zone` by what it may pass between zones. Numbers of classes and SLA classes come as
names; counts, filter ids and what a policer has left are left out.
"""
STAGES = {"ingress-list": "list", "egress-list": "list", "application-route": "app-route", "data-policy": "data"}
COLORS = ("invalid", "default", "mpls", "metro-ethernet", "biz-internet", "public-internet", "lte", "3g", "red", "green",
          "blue", "gold", "silver", "bronze", "custom1", "custom2", "custom3", "private1", "private2", "private3",
          "private4", "private5", "private6")
STRICT = 5
NOT_TOLD = ("path", "class", "sla-class", "backup-preferred-color", "locator", "mirrors", "logged", "dscp")


def colors(mask):
    return ",".join(name for bit, name in enumerate(COLORS) if mask >> bit & 1)


def _sla_class(value, names):
    words = [names.get(value["primary"], str(value["primary"]))]
    words += ["strict"] if value["backup"] == STRICT else []
    words += [colors(value["preferred-color"])] if value["preferred-color"] else []
    return "/".join(words)


def _locator(value):
    if value["from"] == "tloc-list":
        return "list" if value["resolved"] else "list-down"
    return f"{value['tloc-index'] if value['resolved'] else 'down'}/{value['vpn-label']}/{value['vpn']}"


def _value(value):
    if isinstance(value, dict):
        return ",".join(f"{name}:{_value(item)}" for name, item in value.items())
    return str(value).lower()


def _treatment(told, classes, sla_classes):
    words = []
    if "sla-class" in told:
        words.append("sla=" + _sla_class(told["sla-class"], sla_classes))
    if "backup-preferred-color" in told:
        words.append("backup=" + colors(told["backup-preferred-color"]))
    if "class" in told:
        words.append("class=" + classes.get(told["class"], str(told["class"])))
    if "dscp" in told:
        words.append(f"dscp={told['dscp']}")
    if "locator" in told:
        words.append("tloc=" + _locator(told["locator"]))
    words += ["mirror"] * len(told.get("mirrors", [])) + ["log"] * told.get("logged", 0)
    words += sorted(name if value is True else f"{name}={_value(value)}"
                    for name, value in told.items() if name not in NOT_TOLD and value is not False)
    return words + ([f"via={told['path']}"] if told["path"] not in ("routing", "dropped") else [])


def verdict_text(told, classes=None, sla_classes=None):
    """`told`: a frame's or a packet's answer of fpd's. `classes`, `sla_classes`: names by number."""
    words = [told["verdict"]]
    if "dropped-by" in told:
        words = [f"{told['verdict']}:{STAGES.get(told['dropped-by'], told['dropped-by'])}"]
    for stage in told["stages"]:
        words += [f"+{action['name']}" for action in stage.get("actions", []) if action["action"] == "count"]
        words += ["marked"] if any(action["action"] == "police" and action["packet"] == "marked"
                                   for action in stage.get("actions", [])) else []
    words += _treatment(told["treatment"], {0: "default", **(classes or {})}, {0: "all-tunnels", **(sla_classes or {})})
    words += [f"zone={stage['ruling']}" for stage in told["stages"] if "ruling" in stage]
    return " ".join(words)
