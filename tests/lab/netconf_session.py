"""A NETCONF session of ncclient's inside a lab, which has a network of its own.

NetconfSession starts this file as a program there. A request is a line of JSON: `rpc`, an operation as XML, or
`notification`, how many seconds to wait for the next one. So is the answer: `xml`, null when no notification came, or
`error`.
"""
import json
import sys
import xml.etree.ElementTree as ElementTree

PYTHON = "/usr/bin/python3"
SECONDS = 120  # for any answer
DEBUGS, POLICY = "urn:lumora:yang:debugs", "urn:lumora:yang:policy"
_BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
_EVENTS = "urn:ietf:params:xml:ns:netconf:notification:1.0"


class NetconfSession:
    def __init__(self, lab):
        self._process = lab.talk_to(PYTHON, "-B", __file__)
        self._read()

    def close(self):
        self._process.stdin.close()
        self._process.wait(SECONDS)
        self._process.stdout.close()

    def rpc(self, operation):
        """The reply's root, without namespaces in its tags. An rpc-error fails the test."""
        return self._ask(rpc=operation)

    def get(self, subtree):
        return self.rpc(f'<get xmlns="{_BASE}"><filter type="subtree">{subtree}</filter></get>')

    def subscribe(self, start=None):
        """`start`: the replay's first moment, as in RFC 3339."""
        time = f"<startTime>{start}</startTime>" if start else ""
        self.rpc(f'<create-subscription xmlns="{_EVENTS}">{time}</create-subscription>')

    def notification(self, seconds=SECONDS):
        """The next one as its name and its members by name, eventTime among them. None if there was none in time."""
        root = self._ask(notification=seconds)
        if root is None:
            return None
        event = next(node for node in root if node.tag != "eventTime")
        return event.tag, {"eventTime": root.findtext("eventTime"), **{node.tag: node.text for node in event}}

    def _ask(self, **request):
        self._process.stdin.write(json.dumps(request) + "\n")
        self._process.stdin.flush()
        return self._read()

    def _read(self):
        line = self._process.stdout.readline()
        answer = json.loads(line) if line else {"error": "the session has ended"}
        if "error" in answer:
            raise AssertionError(f"NETCONF: {answer['error']}")
        return None if answer["xml"] is None else _without_namespaces(answer["xml"])


def _without_namespaces(text):
    root = ElementTree.fromstring(text.encode())
    for node in root.iter():
        node.tag = node.tag.rpartition("}")[2]
    return root


# ---- The program ----


def _answer(session, request):
    from lxml import etree
    if "rpc" in request:
        return session.dispatch(etree.fromstring(request["rpc"])).xml
    taken = session.take_notification(timeout=request["notification"])
    return taken and taken.notification_xml


def _serve():
    from ncclient import NCClientError, manager
    with manager.connect(host="127.0.0.1", port=830, username="lab", password="lab", hostkey_verify=False,
                         allow_agent=False, look_for_keys=False, timeout=SECONDS) as session:
        print('{"xml": null}', flush=True)
        for line in sys.stdin:
            try:
                answer = {"xml": _answer(session, json.loads(line))}
            except NCClientError as error:
                answer = {"error": str(error)}
            print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    _serve()
