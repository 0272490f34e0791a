# SPDX-License-Identifier: Apache-2.0
"""The hosts profiles of vexil-store: its commands, and what a companion, here a stand-in, makes of them."""
import contextlib
import json

import pytest

from companion_double import CompanionDouble, welcomed
from heartbeats import Heartbeats
from session import wait_until

IDLE = {"isInSync": False, "appliedHostnameCount": 0, "appliedProfileCount": 0, "isApplying": False}


@pytest.fixture
def desk(bare_session):
    """A home and a bus; no display, which the store does not need."""
    bare_session.start_bus()
    return bare_session


@pytest.fixture
def double(desk):
    heartbeats = Heartbeats(desk.bus_address)
    stand_in = CompanionDouble(heartbeats)
    yield stand_in
    stand_in.close()
    heartbeats.close()


@pytest.fixture
def store(desk, double):
    return desk.start_store()


def start(session, *arguments):
    return session.start("command", session.program("vexil-store"), *arguments)


def end(process, timeout=60):
    process.wait(timeout)
    return process.exit_status, process.stdout(), process.stderr()


def run(session, *arguments):
    return end(start(session, *arguments))


def written(session, name, text):
    path = session.root / name
    path.write_text(text)
    return path


def status(session):
    return json.loads(session.store_command("status", "--json"))


def applied_counts(profiles):
    enabled = [profile for profile in profiles if profile["isEnabled"]]
    names = sum(len(line.split("#")[0].split()[1:]) for profile in enabled
                for line in profile["content"].splitlines())
    return {"appliedHostnameCount": names, "appliedProfileCount": len(enabled)}


class HostsDouble:
    """The hosts part of a companion: fetches the profiles when it is told to, and reports what it did with them."""

    def __init__(self, link):
        self.link = link
        self.profiles = []
        self.refresh()

    def refresh(self):
        answer, _ = self.link.response(self.link.request("hosts.snapshot", {}))
        self.revision, self.profiles = answer["p"]["revision"], answer["p"]["profiles"]
        self.say()

    def say(self, **changed):
        self.link.event("hosts.state", IDLE | changed)

    def take_command(self, timeout=15):
        event, _ = self.link.next("hosts.apply", timeout)
        assert event["t"] == "event" and event["p"].keys() == {"removeAll"}
        return event["p"]["removeAll"]

    def apply(self, last_applied_at=800_000_000.5):
        answer, _ = self.link.response(self.link.request("hosts.snapshot", {}))
        self.profiles = answer["p"]["profiles"]
        self.say(isApplying=True)
        self.say(isInSync=True, lastAppliedAt=last_applied_at, **applied_counts(self.profiles))


@contextlib.contextmanager
def linked(double, store):
    with welcomed(double, store) as link:
        yield HostsDouble(link)


class TestProfiles:
    def test_a_profile_from_its_first_to_its_last_day(self, desk):
        lines = written(desk, "staging.hosts", "10.0.0.5 api.test www.test # east\n")
        assert run(desk, "hosts", "add", "Staging", lines) == (0, "", "")
        assert run(desk, "hosts", "add", "Empty", "--disabled") == (0, "", "")
        assert run(desk, "hosts", "show", "staging") == (0, "10.0.0.5 api.test www.test # east\n", "")
        listed = json.loads(desk.store_command("hosts", "list", "--json"))
        assert [(one["name"], one["isEnabled"], one["hostnames"], one["issues"]) for one in listed] == [
            ("Staging", True, 2, 0), ("Empty", False, 0, 0)]
        table = [line.split() for line in desk.store_command("hosts", "list").decode().splitlines()]
        assert table == [["Staging", "enabled", "2", "host", "names"], ["Empty", "disabled", "0", "host", "names"]]
        for arguments in (("disable", "Staging"), ("enable", listed[1]["id"][:8].lower()),
                          ("rename", "Staging", "Old one"), ("delete", "EMPTY")):
            assert run(desk, "hosts", *arguments) == (0, "", "")
        left = json.loads(desk.store_command("hosts", "list", "--json"))
        assert [(one["id"], one["name"], one["isEnabled"]) for one in left] == [(listed[0]["id"], "Old one", False)]

    def test_check_says_it_as_compilers_do(self, desk):
        bad = written(desk, "bad.hosts", "# fine\n1.2.3.4\n1.2.3.4 good bad!name\n999.1.1.1 x\n")
        expected = '{0}:2: no host name after the address\n{0}:3: invalid host name "bad!name"\n' \
                   '{0}:4: invalid address "999.1.1.1"\n'
        code, out, err = run(desk, "hosts", "check", bad)
        assert (code, out) == (1, expected.format(bad)) and err.count("\n") == 1
        assert run(desk, "hosts", "add", "Bad", bad) == (0, "", expected.format("Bad"))
        for arguments in (("Bad",), ()):
            code, out, _ = run(desk, "hosts", "check", *arguments)
            assert (code, out) == (1, expected.format("Bad"))
        good = written(desk, "good.hosts", "::1 localhost\n")
        assert run(desk, "hosts", "check", good) == (0, "", "")

    def test_an_edit_is_checked_and_a_failing_editor_changes_nothing(self, desk):
        desk.store_command("hosts", "add", "Work", written(desk, "work.hosts", "1.2.3.4 a\n"))
        editor = written(desk, "editor", '#!/bin/sh\necho "5.6.7.8 b c!" >> "$1"\n')
        editor.chmod(0o700)
        desk.environment |= {"VISUAL": str(editor), "TMPDIR": str(desk.root)}
        assert run(desk, "hosts", "edit", "Work") == (0, "", 'Work:2: invalid host name "c!"\n')
        assert desk.store_command("hosts", "show", "Work") == b"1.2.3.4 a\n5.6.7.8 b c!\n"
        editor.write_text('#!/bin/sh\necho lost > "$1"\nexit 3\n')
        code, _, err = run(desk, "hosts", "edit", "Work")
        assert code == 1 and err.count("\n") == 1
        editor.write_text('#!/bin/sh\nprintf "\\377" > "$1"\n')
        code, _, err = run(desk, "hosts", "edit", "Work")
        kept = err.rstrip("\n").rpartition(" ")[2]
        assert code == 1 and open(kept, "rb").read() == b"\xff"
        assert desk.store_command("hosts", "show", "Work") == b"1.2.3.4 a\n5.6.7.8 b c!\n"

    def test_what_cannot_be_is_an_error_in_a_sentence(self, desk):
        desk.store_command("hosts", "add", "Work")
        binary = desk.root / "binary"
        binary.write_bytes(b"1.2.3.4 a\0b\n")
        for code, *arguments in ((1, "add", "WORK"), (1, "add", " "), (1, "add", "x", binary), (1, "show", "nobody"),
                                 (1, "add", "x", "/no/such/file"), (1, "check", "nobody"), (1, "apply"),
                                 (2, "apply", "--wait", "0"), (2, "rename", "Work"), (2, "nonsense"), (2,)):
            found, out, err = run(desk, "hosts", *arguments)
            assert (found, out, err.count("\n")) == (code, "", 1), arguments
        assert len(json.loads(desk.store_command("hosts", "list", "--json"))) == 1


class TestWithACompanion:
    def test_a_change_is_told_and_an_apply_comes_back_with_what_was_done(self, desk, double, store):
        with linked(double, store) as hosts:
            assert hosts.profiles == []
            desk.store_command("hosts", "add", "Work", written(desk, "work.hosts", "1.2.3.4 a b\n"))
            event, _ = hosts.link.next("hosts.changed")
            assert [profile["name"] for profile in event["p"]["profiles"]] == ["Work"]
            hosts.refresh()
            assert hosts.profiles == event["p"]["profiles"] and hosts.revision == 1
            command = start(desk, "hosts", "apply")
            assert hosts.take_command() is False
            hosts.apply()
            assert end(command) == (0, "applied 2 host names of 1 profile\n", "")
            found = status(desk)
            assert found["hostsState"] == {"isInSync": True, "appliedHostnameCount": 2, "appliedProfileCount": 1,
                                           "lastAppliedAt": 800_000_000.5, "isApplying": False}
            assert (found["hostsProfiles"], found["enabledHostsProfiles"]) == (1, 1)
            command = start(desk, "hosts", "remove-all")
            assert hosts.take_command() is True
            hosts.say(isApplying=True, appliedProfileCount=1)
            hosts.say()
            assert end(command) == (0, "removed everything that was applied\n", "")

    def test_a_change_just_before_an_apply_is_applied(self, desk, double, store):
        with linked(double, store) as hosts:
            desk.store_command("hosts", "add", "Work", written(desk, "work.hosts", "1.2.3.4 a\n"))
            command = start(desk, "hosts", "apply")
            hosts.link.next("hosts.changed")
            hosts.refresh()
            assert hosts.take_command() is False
            hosts.apply()
            assert end(command) == (0, "applied 1 host name of 1 profile\n", "")

    def test_a_failure_is_told_in_the_companions_words(self, desk, double, store):
        with linked(double, store) as hosts:
            command = start(desk, "hosts", "apply")
            hosts.take_command()
            hosts.say(isApplying=True)
            hosts.say(lastError="Could not read /etc/hosts.")
            assert end(command) == (1, "", "vexil-store: Vexil Shortcut could not do it: Could not read /etc/hosts\n")
            assert "Could not read /etc/hosts." in desk.store_command("status").decode()

    def test_a_companion_that_says_nothing_is_not_waited_for_for_ever(self, desk, double, store):
        with linked(double, store) as hosts:
            command = start(desk, "hosts", "apply", "--wait", "1")
            hosts.take_command()
            code, out, err = end(command)
            assert (code, out) == (1, "") and "nothing was heard" in err
            command = start(desk, "hosts", "apply", "--wait", "1")
            hosts.take_command()
            hosts.say(isApplying=True)
            code, out, err = end(command)
            assert (code, out) == (1, "") and "not done after 1 second" in err

    def test_the_link_and_the_store_may_go_while_it_waits(self, desk, double, store):
        wait_until(lambda: status(desk)["isServing"], 15, "the store")
        code, out, err = run(desk, "hosts", "apply")
        assert (code, out) == (1, "") and "no Vexil Shortcut is linked" in err
        with linked(double, store) as hosts:
            command = start(desk, "hosts", "apply")
            hosts.take_command()
        code, out, err = end(command)
        assert (code, out) == (1, "") and "link to Vexil Shortcut was lost" in err
        with linked(double, store) as hosts:
            command = start(desk, "hosts", "apply")
            hosts.take_command()
            store.kill()
            code, out, err = end(command)
        assert (code, out) == (1, "") and "vexil-store serve has ended" in err
        code, out, err = run(desk, "hosts", "apply")
        assert (code, out) == (1, "") and "no vexil-store serve is running" in err


class TestStatus:
    def test_it_says_what_is_stored_and_what_is_linked(self, desk, double):
        empty = status(desk)
        assert (empty["isServing"], empty["isCompanionLinked"], empty["history"]) == (False, False, 0)
        store = desk.start_store()
        with linked(double, store) as hosts:
            found = wait_until(lambda: (now := status(desk))["isCompanionLinked"] and now, 15, "the link in the status")
            assert found["isServing"] and found["linkedSince"] > 0 and found["isHotKeyActive"] is False
            hosts.link.event("shortcut.state", {"hotkeyActive": True})
            wait_until(lambda: status(desk)["isHotKeyActive"] is True, 15, "the hot key in the status")
            hosts.link.event("pasteboard.changed", {"kind": "text", "text": "copied", "hasAttachment": False})
            hosts.link.next("store.changed")
            found = status(desk)
            assert (found["history"], found["pinned"], found["favorites"], found["images"]) == (1, 0, 0, 0)
            assert found["contentBytes"] == 6 and found["bytesOnDisk"] > 4096
            table = dict(line.split("  ", 1) for line in desk.store_command("status").decode().splitlines())
            assert table["serve"].strip() == "running" and table["companion"].strip().startswith("linked since ")
            assert table["hot key"].strip() == "active" and table["hosts file"].strip().startswith("not in sync")
        wait_until(lambda: not status(desk)["isCompanionLinked"], 15, "the loss of the link in the status")
        with linked(double, store):
            wait_until(lambda: status(desk)["isCompanionLinked"], 15, "the link in the status")
            store.kill()
            found = status(desk)
        assert not found["isServing"] and not found["isCompanionLinked"] and "isHotKeyActive" not in found
        assert found["hostsState"] == IDLE
