#!/usr/bin/python3 -B
"""What a server tells and does beside configurations: capabilities, schemas, state, actions, streams, sessions."""
import json

import router
from router import DEBUGS, MONITORING, POLICY, plain, wait_until

LIBRARY = "urn:ietf:params:xml:ns:yang:ietf-yang-library"
NOTIFICATIONS = "urn:ietf:params:xml:ns:netconf:notification:1.0"
STREAMS = "urn:ietf:params:xml:ns:netmod:notification"
NAMES = ("first", "second", "third")
HARDWARE = "urn:lumora:yang:hardware"


def stored(notification, hour, body):
    """A line of the notification log."""
    return json.dumps({"eventTime": f"2024-01-15T{hour:02}:00:00.000000Z", "notification": {notification: body}}) + "\n"


class Services(router.Scenario):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.router.stop()
        log = cls.router.folder / "store/notifications.log"
        lines = [stored("lumora-hardware:sfp-state-change", 9, {"sfp-name": "ge0/1", "new-state": "removed"})]
        lines += [stored("lumora-policy:data-policy-association-status", hour,
                         {"policy-name": name, "vpn-list-name": "v", "status": "Failed"})
                  for hour, name in enumerate(NAMES, 10)]
        log.write_text("".join(lines), encoding="utf-8")
        cls.router.start()

    def test_capabilities(self):
        names = list(self.login("reader").server_capabilities)
        for name in ("base:1.0", "base:1.1", "capability:candidate:1.0", "capability:confirmed-commit:1.1",
                     "capability:rollback-on-error:1.0", "capability:validate:1.1", "capability:xpath:1.0",
                     "capability:notification:1.0", "capability:interleave:1.0", "capability:with-defaults:1.0",
                     "capability:yang-library:1."):
            self.assertTrue(any(f"urn:ietf:params:netconf:{name}" in have for have in names), name)

    def test_every_schema_that_is_listed_can_be_got(self):
        session = self.login("reader")
        state = session.get(("subtree", f'<netconf-state xmlns="{MONITORING}"><schemas/></netconf-state>')).data_ele
        schemas = [(entry.findtext(f"{{{MONITORING}}}identifier"), entry.findtext(f"{{{MONITORING}}}version"))
                   for entry in state.iter(f"{{{MONITORING}}}schema")]
        self.assertGreater(len(schemas), 20)
        for name, version in schemas:
            text = session.get_schema(name, version or None).data
            self.assertRegex(text, rf"^(sub)?module {name} \{{", f"{name} {version}")
        self.refused(lambda: session.get_schema("nonsense"), "invalid-value", None, "there is no schema nonsense",
                     bad_element="identifier")
        self.refused(lambda: session.get_schema("lumora-policy", "1999-01-01"), "invalid-value", None, "1999-01-01")

    def test_state_shows_the_server_itself(self):
        session = self.login()
        reader = self.login("reader")
        with session.locked("candidate"):
            text = plain(reader.get(("subtree", f'<netconf-state xmlns="{MONITORING}"/>')))
        for part in (f"<locked-by-session>{session.session_id}</locked-by-session>", "<username>reader</username>",
                     f"<session-id>{reader.session_id}</session-id>", "<source-host>127.0.0.1</source-host>",
                     "<in-rpcs>", "<netconf-start-time>", "<name>running</name>"):
            self.assertIn(part, text)
        library = plain(reader.get(("subtree", f'<yang-library xmlns="{LIBRARY}"/>')))
        self.assertIn("<name>lumora-policy</name>", library)

    def test_an_action_without_its_daemon_names_its_point(self):
        session = self.login("operator")
        self.refused(lambda: self.rpc(session, f'<tarn-dump-policy xmlns="{DEBUGS}"/>'), "operation-failed",
                     "/lumora-debugs:tarn-dump-policy", "tarn_dump_policy")
        with self.assertRaises(router.RPCError):
            self.rpc(session, f'<tarn-dump-policy xmlns="{DEBUGS}"><none/></tarn-dump-policy>')

    def subscribe(self, session, stream, start, stop, filtering):
        """Times are those of the log's day, or a year. ncclient's own filters stand in a wrong namespace."""
        def element(name, value):
            return f"<{name}>{value}</{name}>" if value else ""

        def time(text):
            return f"{text}-01-01T00:00:00Z" if len(text) == 4 else text and f"2024-01-15T{text}"

        self.rpc(session, f'<create-subscription xmlns="{NOTIFICATIONS}">{element("stream", stream)}{filtering}'
                          f'{element("startTime", time(start))}{element("stopTime", time(stop))}</create-subscription>')

    def told(self, session, count):
        """The policies and transceivers that notifications name, up to a number of notifications of any kind."""
        names = []
        for _ in range(count):
            taken = session.take_notification(timeout=10)
            self.assertIsNotNone(taken, f"after {names}")
            ele = taken.notification_ele
            names += [leaf.text for leaf in ele.iter(f"{{{POLICY}}}policy-name", f"{{{HARDWARE}}}sfp-name")]
            names += [node.tag.split("}")[1] for node in ele if node.tag.startswith(f"{{{STREAMS}}}")]
        return names

    def test_replay_of_the_log(self):
        complete = ["replayComplete"]
        def xpath(text):
            return f'<filter type="xpath" xmlns:p="{POLICY}" select="{text}"/>'

        status = f'<data-policy-association-status xmlns="{POLICY}">{{}}</data-policy-association-status>'
        rows = [("10:00:00Z", "", "", [*NAMES, *complete]),
                ("11:00:00Z", "", "", ["second", "third", *complete]),
                ("10:30:00Z", "11:30:00Z", "", ["second", *complete, "notificationComplete"]),
                ("00:00:00Z", "", f'<filter>{status.format("<policy-name>third</policy-name>")}</filter>',
                 ["third", *complete]),
                ("00:00:00Z", "09:30:00Z", "", ["ge0/1", *complete, "notificationComplete"]),
                ("00:00:00Z", "", xpath("/p:data-policy-association-status[p:policy-name='first']"),
                 ["first", *complete])]
        for start, stop, filtering, want in rows:
            with self.subTest(start=start, stop=stop, filtering=filtering):
                session = self.login("reader")
                self.subscribe(session, "", start, stop, filtering)
                self.assertEqual(self.told(session, len(want)), want)
                self.assertIn("<data", plain(session.get_config("running")))  # interleaved

    def test_refused_subscriptions(self):
        session = self.login("reader")
        rows = [(("none", "", "", ""), "invalid-value", "stream"),
                (("", "2100", "", ""), "bad-element", "startTime"),
                (("", "", "2100", ""), "missing-element", "startTime"),
                (("", "10:00:00Z", "09:00:00Z", ""), "bad-element", "stopTime")]
        for options, tag, element in rows:
            with self.subTest(options=options):
                self.refused(lambda these=options: self.subscribe(session, *these), tag, None, bad_element=element)
        session.create_subscription()
        self.refused(session.create_subscription, "operation-failed", None, "has a subscription already")

    def test_kill_session(self):
        killer, victim = self.login(), self.login()
        victim.lock("candidate")
        for number in (killer.session_id, "999999"):
            self.refused(lambda which=number: killer.kill_session(which), "invalid-value", router.ANY)
        killer.kill_session(victim.session_id)
        with killer.locked("candidate"):
            wait_until(lambda: not victim.connected, "the killed session's end is seen")


if __name__ == "__main__":
    router.main()
