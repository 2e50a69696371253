#!/usr/bin/python3 -B
"""Reading and changing: filters, defaults, every operation of an edit, locks, commits, copies, and their refusals."""
import router
from router import BASE, NACM, POLICY, SYSTEM, content, plain, policy

POLICER = "<policer><name>{}</name><rate>8000</rate><burst>1500</burst><exceed>drop</exceed></policer>"
DEFAULTS = "urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults"


def zone(name, operation=None):
    attribute = f' nc:operation="{operation}"' if operation else ""
    return f"<zone{attribute}><name>{name}</name></zone>"


class Editing(router.Scenario):
    def setUp(self):
        self.session = self.login()

    def zones(self, source="candidate", session=None):
        reply = (session or self.session).get_config(source, ("subtree", f'<policy xmlns="{POLICY}"><zone/></policy>'))
        return [name.text for name in reply.data_ele.iter(f"{{{POLICY}}}name")]

    def edit(self, xml, **options):
        return self.session.edit_config(target="candidate", config=policy(xml), **options)

    def test_operations_of_an_edit(self):
        """Each row: what is there, the edit, its options, and what is there then."""
        rows = [
            ("", zone("a"), {}, ["a"]),
            ("a", zone("b", "merge"), {}, ["a", "b"]),
            ("", zone("a", "create"), {}, ["a"]),
            ("ab", zone("a", "delete"), {}, ["b"]),
            ("b", zone("a", "remove") + zone("c"), {}, ["b", "c"]),
            ("ab", zone("c", "replace"), {}, ["a", "b", "c"]),
            ("ab", zone("c"), {"default_operation": "replace"}, ["c"]),
            ("ab", zone("c") + zone("a", "remove"), {"default_operation": "none"}, None),
            ("ab", zone("c", "create") + zone("a", "remove"), {"default_operation": "none"}, ["b", "c"]),
            ("ab", zone("c"), {"test_option": "test-only"}, ["a", "b"]),
            ("ab", zone("c"), {"test_option": "test-then-set"}, ["a", "b", "c"]),
        ]
        for before, xml, options, after in rows:
            with self.subTest(xml=xml, options=options):
                self.session.discard_changes()
                if before:
                    self.edit("".join(zone(name) for name in before))
                if after is None:
                    with self.assertRaises(router.RPCError):
                        self.edit(xml, **options)
                    after = list(before)
                else:
                    self.edit(xml, **options)
                self.assertEqual(self.zones(), after)
                self.assertEqual(self.zones("running"), [])

    def test_refused_edits_leave_no_trace_and_tell_where(self):
        def element(name):
            return {"bad_element": name}

        self.edit(zone("a"))
        top = "/lumora-policy:policy"
        rows = [
            (zone("a", "create"), "data-exists", top + "/zone[name='a']", {}),
            (zone("z", "delete"), "data-missing", top + "/zone[name='z']", {}),
            ("<zoo/>", "unknown-element", None, element("zoo")),
            ("<zone/>", "missing-element", None, element("name")),
            (zone("a") + "<zone><name>a</name><vpn><vpn-id>x</vpn-id></vpn></zone>", "invalid-value", None, {}),
            (zone("a", "upsert"), "operation-failed", None, {}),
            ('<zone xmlns="urn:none"><name>z</name></zone>', "unknown-namespace", None, {"bad_namespace": "urn:none"}),
            ("<policer><name>p</name><rate>much</rate></policer>", "invalid-value", None, {}),
        ]
        for option in ("stop-on-error", "continue-on-error", "rollback-on-error"):
            for xml, tag, path, info in rows:
                with self.subTest(xml=xml, option=option):
                    edit = zone("fresh") + xml
                    error = self.refused(lambda edit=edit, option=option: self.edit(edit, error_option=option), tag,
                                         path or router.ANY, **info)
                    self.assertTrue(path or error.path is None or error.path.startswith(top), error.path)
                    self.assertEqual(self.zones(), ["a"])

    def test_only_the_candidate_is_edited_and_nothing_is_deleted_whole(self):
        for target in ("running", "startup"):
            with self.assertRaises(router.RPCError):
                self.session.edit_config(target=target, config=policy(zone("a")))
        for target in ("candidate", "running", "startup"):
            with self.assertRaises(router.RPCError):
                self.session.delete_config(target)
        self.refused(lambda: self.session.copy_config("candidate", "running"), "operation-failed", None, '"running"')

    def test_commit_discard_and_copy(self):
        self.edit(zone("a"))
        self.session.commit()
        self.assertEqual(self.zones("running"), ["a"])
        self.edit(zone("b"))
        self.session.discard_changes()
        self.assertEqual(self.zones(), ["a"])
        self.edit(zone("b"))
        self.session.copy_config("running", "candidate")
        self.assertEqual(self.zones(), ["a"])
        whole = plain(self.session.get_config("running"))
        self.assertIn("<name>operator</name>", whole)
        # A whole configuration as the source: users stay in it, or nobody could log in again.
        users = self.session.get_config("running", ("subtree", f'<users xmlns="{SYSTEM}"/>')).data_xml
        inner = users[users.index("<users"):users.index("</users>") + len("</users>")]
        inner += f'<policy xmlns="{POLICY}">{zone("c")}</policy>'
        self.rpc(self.session, f'<copy-config xmlns="{BASE}"><target><candidate/></target><source><config>{inner}'
                               '</config></source></copy-config>')
        self.assertEqual(self.zones(), ["c"])
        self.session.commit()
        self.assertEqual(self.zones("running"), ["c"])
        self.edit(zone("c", "delete"))
        self.session.commit()

    def test_what_is_not_valid_is_not_committed(self):
        pair = "<zone-pair><name>p</name><source-zone>nowhere</source-zone></zone-pair>"
        policer = "<policer><name>p</name></policer>"
        self.session.validate("running")
        self.session.validate("candidate")
        self.edit(policer)
        for call in (lambda: self.session.validate("candidate"), self.session.commit):
            error = self.refused(call, "operation-failed", router.ANY)
            self.assertTrue(error.path.startswith("/lumora-policy:policy/policer[name='p']"), error.path)
        self.session.discard_changes()
        with self.assertRaises(router.RPCError):
            self.edit(pair + policer, test_option="test-then-set")
        self.assertEqual(self.zones(), [])

    def test_locks(self):
        other = self.login("admin")
        for target in ("candidate", "running"):
            with self.session.locked(target):
                for contender in (other, self.session):
                    self.refused(lambda who=contender, what=target: who.lock(what), "lock-denied", None,
                                 f"session {self.session.session_id} holds the lock",
                                 session_id=self.session.session_id)
                self.refused(lambda what=target: other.unlock(what), "operation-failed", router.ANY)
            with other.locked(target):
                pass
        self.session.lock("candidate")
        self.refused(lambda: other.edit_config(target="candidate", config=policy(zone("x"))), "in-use", None,
                     f"the candidate is locked by session {self.session.session_id}")
        self.refused(other.commit, "in-use", None, "locked by session")
        self.edit(zone("x"))
        self.session.close_session()
        self.assertEqual(self.zones(session=other), [], "edits go with the lock")
        with other.locked("candidate"):
            pass
        other.edit_config(target="candidate", config=policy(zone("x")))
        self.refused(lambda: self.login("admin").lock("candidate"), "lock-denied", None, "", session_id=0)


class Reading(router.Scenario):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        session = cls.router.connect()
        session.edit_config(target="candidate", config=content(
            f'<policy xmlns="{POLICY}">{POLICER.format("slow")}{POLICER.format("fast")}{zone("a")}{zone("b")}</policy>'
            f'<nacm xmlns="{NACM}"><rule-list><name>l</name></rule-list></nacm>'))
        session.commit()
        session.close_session()

    def test_subtree_filters(self):
        session = self.login()
        rows = [
            (f'<policy xmlns="{POLICY}"><zone/></policy>',
             "<policy><zone><name>a</name></zone><zone><name>b</name></zone></policy>"),
            (f'<policy xmlns="{POLICY}"><zone><name>b</name></zone></policy>',
             "<policy><zone><name>b</name></zone></policy>"),
            (f'<policy xmlns="{POLICY}"><policer><name>slow</name><rate/></policer></policy>',
             "<policy><policer><name>slow</name><rate>8000</rate></policer></policy>"),
            ('<policy><zone><name>b</name></zone></policy>', "<policy><zone><name>b</name></zone></policy>"),
            (f'<policy xmlns="{POLICY}"><zone><name>c</name></zone></policy>', ""),
            ('<policy xmlns="urn:none"/>', ""),
        ]
        for filtering, want in rows:
            for reply in (session.get_config("running", ("subtree", filtering)), session.get(("subtree", filtering))):
                with self.subTest(filtering=filtering):
                    self.assertEqual(plain(reply).replace("<data/>", "<data></data>"), f"<data>{want}</data>")

    def test_xpath_filters(self):
        session = self.login()
        rows = [("/p:policy/p:zone[p:name='a']", "<policy><zone><name>a</name></zone></policy>"),
                ("//p:policer[p:name='fast']/p:burst",
                 "<policy><policer><name>fast</name><burst>1500</burst></policer></policy>"),
                ("/p:policy/p:zone[p:name='c']", "")]
        for xpath, want in rows:
            reply = session.get_config("running", ("xpath", ({"p": POLICY}, xpath)))
            self.assertEqual(plain(reply).replace("<data/>", "<data></data>"), f"<data>{want}</data>", xpath)
        for xpath in ("/p:policy[", "nonsense()", "/none:a"):
            with self.subTest(xpath=xpath), self.assertRaises(router.RPCError) as caught:
                session.get_config("running", ("xpath", ({"p": POLICY}, xpath)))
            self.assertTrue(caught.exception.message)

    def test_defaults_are_asked_for_in_every_mode(self):
        """The model has no default values, so each mode gives the same."""
        session = self.login()
        filtering = ("subtree", f'<nacm xmlns="{NACM}"/>')
        for mode in ("explicit", "trim", "report-all", "report-all-tagged"):
            text = plain(session.get_config("running", filtering, with_defaults=mode))
            self.assertEqual(text, "<data><nacm><rule-list><name>l</name></rule-list></nacm></data>", mode)
        body = f'<get xmlns="{BASE}"><with-defaults xmlns="{DEFAULTS}">some</with-defaults></get>'
        self.refused(lambda: self.rpc(session, body), "operation-failed", None, '"some"')

    def test_what_makes_no_operation(self):
        session = self.login()
        for body, tag in ((f'<get-data xmlns="{BASE}"/>', "operation-failed"),
                          ('<x xmlns="urn:none"/>', "operation-failed"),
                          (f'<get-config xmlns="{BASE}"/>', "missing-element"),
                          (f'<get xmlns="{BASE}"><filter type="xpath"/></get>', "missing-attribute")):
            with self.subTest(body=body):
                self.refused(lambda text=body: self.rpc(session, text), tag, router.ANY)


if __name__ == "__main__":
    router.main()
