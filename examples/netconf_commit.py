#!/usr/bin/python3 -B
"""Commits configurations over NETCONF: all files in one commit, merged into what is running, or not at all.

    netconf_commit.py [--host HOST] [--port PORT] [--user NAME] [--password WORD] FILE...

A file holds the elements that stand below <config>. The user and password that hold without options are those of the
lab. Needs Debian's own python3 with ncclient.
"""
import argparse
import sys
import time

from ncclient import NCClientError, manager

BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=830)
    parser.add_argument("--user", default="lab")
    parser.add_argument("--password", default="lab")
    parser.add_argument("files", nargs="+", metavar="FILE")
    return parser.parse_args()


def connect(options):
    """A session. The server's key isn't checked: it is made anew in each lab."""
    return manager.connect(host=options.host, port=options.port, username=options.user, password=options.password,
                           hostkey_verify=False, allow_agent=False, look_for_keys=False, timeout=120)


def commit(session, text):
    """Returns the seconds that the commit took. The candidate is as before when it was refused."""
    with session.locked("candidate"):
        try:
            session.edit_config(target="candidate", config=f'<config xmlns="{BASE}">{text}</config>')
            begin = time.monotonic()
            session.commit()
            return time.monotonic() - begin
        except NCClientError:
            session.discard_changes()
            raise


def main():
    options = arguments()
    texts = []
    for name in options.files:
        with open(name, encoding="utf-8") as file:
            texts.append(file.read())
    try:
        with connect(options) as session:
            seconds = commit(session, "\n".join(texts))
    except (NCClientError, OSError) as error:
        print(f"netconf_commit: {error}", file=sys.stderr)
        return 1
    print(f"committed {', '.join(options.files)}: {seconds * 1000:.0f} ms until the daemons had applied it")
    return 0


if __name__ == "__main__":
    sys.exit(main())
