#!/usr/bin/python3 -B
"""Confirmed commits: time-outs, persist names, cancels, sessions' ends, and a restart while one is pending."""
import signal

import router
from router import BASE, POLICY, policy, wait_until


class Confirmed(router.Scenario):
    def setUp(self):
        self.watcher = self.login("reader")
        self.session = self.login()

    def zones(self, session=None):
        reply = (session or self.watcher).get_config(
            "running", ("subtree", f'<policy xmlns="{POLICY}"><zone/></policy>'))
        return {name.text for name in reply.data_ele.iter(f"{{{POLICY}}}name")}

    def begin(self, name, session=None, **options):
        """Adds a zone by a confirmed commit."""
        session = session or self.session
        session.discard_changes()
        session.edit_config(target="candidate", config=policy(f"<zone><name>{name}</name></zone>"))
        session.commit(confirmed=True, **options)
        self.assertIn(name, self.zones())

    def gone(self, name, seconds=10):
        wait_until(lambda: name not in self.zones(), f"zone {name} is undone", seconds)

    def test_time_runs_out_unless_confirmed_or_extended(self):
        self.begin("late", timeout="1")
        self.gone("late")
        self.begin("kept", timeout="1")
        self.session.commit(confirmed=True, timeout="600")
        self.session.commit()
        self.assertIn("kept", self.zones())
        self.refused(self.session.cancel_commit, "operation-failed", None, "no commit waits for a confirmation")

    def test_others_neither_commit_nor_confirm(self):
        self.begin("mine")
        other = self.login("admin")
        for call in (other.commit, other.cancel_commit):
            self.refused(call, "in-use", None, f"which only session {self.session.session_id} can give")
        self.refused(lambda: other.lock("running"), "lock-denied", None, "waits for its confirmation", session_id=0)
        self.session.cancel_commit()
        self.assertNotIn("mine", self.zones())

    def test_the_end_of_its_session_undoes_it(self):
        for end in ("close_session", "kill"):
            session = self.login()
            self.begin(end, session)
            if end == "kill":
                self.session.kill_session(session.session_id)
            else:
                session.close_session()
            self.gone(end)

    def test_a_persist_name_outlives_the_session(self):
        session = self.login()
        self.begin("named", session, persist="p")
        session.close_session()
        self.assertIn("named", self.zones())
        for call in (lambda: self.session.commit(persist_id="q"), lambda: self.session.cancel_commit(persist_id="q")):
            self.refused(call, "invalid-value", None, bad_element="persist-id")
        self.rpc(self.session, f'<commit xmlns="{BASE}"><confirmed/><persist-id>p</persist-id><persist>r</persist>'
                               "</commit>")
        self.session.cancel_commit(persist_id="r")
        self.assertNotIn("named", self.zones())
        self.begin("firm", persist="p")
        self.session.commit(persist_id="p")
        self.assertIn("firm", self.zones())
        self.refused(lambda: self.session.commit(persist_id="p"), "invalid-value", None, bad_element="persist-id")

    def test_times_beyond_the_limit_are_refused(self):
        self.session.edit_config(target="candidate", config=policy("<zone><name>t</name></zone>"))
        self.refused(lambda: self.session.commit(confirmed=True, timeout="604801"), "invalid-value", None,
                     "at most 604800", bad_element="confirm-timeout")
        with self.assertRaises(router.RPCError):
            self.session.commit(confirmed=True, timeout="0")
        self.assertNotIn("t", self.zones())


class Restarted(router.Scenario):
    def test_a_restart_undoes_it_whatever_its_name(self):
        for number, name in ((signal.SIGTERM, "stopped"), (signal.SIGKILL, "crashed")):
            with self.subTest(name=name):
                session = self.router.connect()
                session.edit_config(target="candidate", config=policy(f"<zone><name>{name}</name></zone>"))
                session.commit(confirmed=True, persist="p", timeout="600")
                self.router.stop(number)
                self.router.start()
                session = self.login()
                running = session.get_config("running").data_xml
                self.assertNotIn(f"<name>{name}</name>", running)
                self.assertIn("<name>operator</name>", running)
                self.refused(lambda: session.commit(persist_id="p"), "invalid-value", None, bad_element="persist-id")
                self.assertIn("system", self.router.cli("history"))


if __name__ == "__main__":
    router.main()
