#!/usr/bin/python3 -B
"""Users of different groups: the whole table of operation by group, and rules that open and close."""
import router
from router import BASE, DEBUGS, MONITORING, NACM, POLICY, plain, policy

EDIT = f'<edit-config xmlns="{BASE}"><target><candidate/></target>{policy("<zone><name>z</name></zone>")}</edit-config>'
CANDIDATE = "<{0} xmlns='" + BASE + "'><target><candidate/></target></{0}>"

# Operation, body, and what the users of router.USERS get: "+" it runs, "!" it is permitted and fails for a reason of
# its own, "-" access-denied. In the order admin, operator, reader, nobody.
TABLE = [
    ("get", f'<get xmlns="{BASE}"><filter><policy xmlns="{POLICY}"/></filter></get>', "+++-"),
    ("get-config", f'<get-config xmlns="{BASE}"><source><running/></source></get-config>', "+++-"),
    ("get-schema", f'<get-schema xmlns="{MONITORING}"><identifier>lumora-vpn</identifier></get-schema>', "+++-"),
    ("create-subscription", '<create-subscription xmlns="urn:ietf:params:xml:ns:netconf:notification:1.0"/>', "+++-"),
    ("dump", f'<tarn-dump-filter xmlns="{DEBUGS}"/>', "!!--"),
    ("debug", f'<tarn-debug-config xmlns="{DEBUGS}"/>', "!!--"),
    ("clear", f'<tarn-clear-policy-acl xmlns="{POLICY}"/>', "!!--"),
    ("lock", CANDIDATE.format("lock"), "+---"),
    ("edit-config", EDIT, "+---"),
    ("validate", f'<validate xmlns="{BASE}"><source><candidate/></source></validate>', "+---"),
    ("discard-changes", f'<discard-changes xmlns="{BASE}"/>', "+---"),
    ("copy-config", f'<copy-config xmlns="{BASE}"><target><candidate/></target><source><running/></source>'
                    "</copy-config>", "+---"),
    ("commit", f'<commit xmlns="{BASE}"/>', "+---"),
    ("cancel-commit", f'<cancel-commit xmlns="{BASE}"/>', "!---"),
    ("unlock", CANDIDATE.format("unlock"), "+---"),
    ("delete-config", f'<delete-config xmlns="{BASE}"><target/></delete-config>', "!---"),
    ("kill-session", f'<kill-session xmlns="{BASE}"><session-id>999999</session-id></kill-session>', "!---"),
    ("close-session", f'<close-session xmlns="{BASE}"/>', "++++"),
]


class Rights(router.Scenario):
    def outcome(self, session, body):
        try:
            self.rpc(session, body)
        except router.RPCError as error:
            self.assertTrue(error.message)
            return "-" if error.tag == "access-denied" else "!"
        return "+"

    def test_operations_by_group(self):
        found = {}
        for user in router.USERS:
            session = self.login(user)
            for name, body, _ in TABLE:
                found[name] = found.get(name, "") + self.outcome(session, body)
        self.assertEqual(found, {name: want for name, _, want in TABLE})

    def test_secrets_are_for_administrators(self):
        for user, sees in (("admin", True), ("operator", False), ("reader", False)):
            session = self.login(user)
            for text in (plain(session.get_config("running")), plain(session.get())):
                self.assertEqual("<password>" in text, sees, user)
            xpath = session.get(("xpath", ({"s": router.SYSTEM}, "//s:user[starts-with(s:password, '$')]/s:name")))
            self.assertEqual("<name>admin</name>" in plain(xpath), sees, "a filter finds out nothing")

    def test_a_denial_names_user_and_operation_and_is_counted(self):
        session, admin = self.login("reader"), self.login()

        def count():
            reply = admin.get(("subtree", f'<nacm xmlns="{NACM}"><denied-operations/></nacm>'))
            return int(reply.data_ele.findtext(f".//{{{NACM}}}denied-operations"))

        before = count()
        self.refused(session.commit, "access-denied", "/ietf-netconf:commit", "user reader may not call it")
        self.assertEqual(count(), before + 1)
        admin.edit_config(target="candidate", config=policy("<zone><name>counted</name></zone>"))
        admin.commit()
        self.assertEqual(count(), before + 1, "counters outlive a commit")


class Rules(router.Scenario):
    """Rules open edits of zones and their commit to the operator, and close mirrors to him."""

    RULES = [{"name": "no-mirrors", "path": "/lumora-policy:policy/mirror", "action": "deny"},
             {"name": "zones", "path": "/lumora-policy:policy/zone", "action": "permit"},
             *({"name": name, "module-name": "ietf-netconf", "rpc-name": name, "access-operations": "exec",
                "action": "permit"} for name in ("edit-config", "commit", "discard-changes"))]

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        mirror = {"name": "m", "remote-dest": [{"address": "192.0.2.1", "source": "192.0.2.2"}]}
        cls.router.configure({
            "lumora-policy:policy": {"mirror": [mirror]},
            "ietf-netconf-acm:nacm": {"groups": {"group": [{"name": "noc", "user-name": ["operator"]}]},
                                      "rule-list": [{"name": "noc", "group": ["noc"], "rule": cls.RULES}]}})

    def test_one_rule_opens(self):
        session = self.login("operator")
        session.edit_config(target="candidate", config=policy("<zone><name>open</name></zone>"))
        session.commit()
        self.assertIn("open", plain(session.get_config("running")))
        policer = "<policer><name>p</name><rate>8000</rate><burst>1500</burst><exceed>drop</exceed></policer>"
        self.refused(lambda: session.edit_config(target="candidate", config=policy(policer)), "access-denied",
                     "/lumora-policy:policy/policer[name='p']", "operator")
        self.refused(lambda: session.lock("candidate"), "access-denied", "/ietf-netconf:lock", "operator")
        self.refused(lambda: self.login("reader").edit_config(target="candidate", config=policy("<zone/>")),
                     "access-denied", "/ietf-netconf:edit-config", "reader")

    def test_one_rule_closes(self):
        for user, sees in (("operator", False), ("reader", True), ("admin", True)):
            text = plain(self.login(user).get_config("running"))
            self.assertEqual("<mirror>" in text, sees, user)

    def test_a_change_of_rules_counts_for_open_sessions(self):
        session, admin = self.login("reader"), self.login()
        denial = ('<rule-list><name>quiet</name><group>read-only</group><rule><name>get</name><rpc-name>get</rpc-name>'
                  "<action>deny</action></rule></rule-list>")
        admin.edit_config(target="candidate", config=router.content(f'<nacm xmlns="{NACM}">{denial}</nacm>'))
        session.get()
        admin.commit()
        self.refused(session.get, "access-denied", "/ietf-netconf:get", "reader")
        self.assertIsNotNone(session.get_config("running"))


if __name__ == "__main__":
    router.main()
