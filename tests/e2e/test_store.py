# SPDX-License-Identifier: Apache-2.0
"""vexil-store: beside the real companion, and before a stand-in that lies to it."""
import json
import sqlite3
import struct
import time

import pytest

import images
from companion_double import CompanionDouble, called, report_image, report_text, snapshot, welcomed
from link_client import ENVELOPE, UUID_TEXT, envelope_bytes, frame, new_id
from session import wait_until


def database(session):
    return session.root / "data/vexil-store/store.db"


def contents(session):
    """(kind, content) of the history, newest first, read behind the program's back."""
    if not database(session).exists():
        return []
    connection = sqlite3.connect(f"file:{database(session)}?mode=ro", uri=True, timeout=5)
    try:
        return connection.execute("SELECT kind, data FROM entries JOIN contents ON entry = number WHERE in_history "
                                  "ORDER BY copied_revision DESC").fetchall()
    except sqlite3.OperationalError as error:  # its tables are just being made
        assert "no such table" in str(error), error
        return []
    finally:
        connection.close()


def texts(session):
    return [content for kind, content in contents(session) if kind == "text"]


def wait_for_text(session, text, timeout=20):
    wait_until(lambda: text in texts(session), timeout, f"the entry {text!r}")


def copy_until_recorded(session, text, timeout=30):
    """Copies made before the link stands are lost by design, so a person would copy again."""
    deadline = time.monotonic() + timeout
    while text not in texts(session):
        assert time.monotonic() < deadline, f"{text!r} is never recorded"
        session.copy(text)
        try:
            wait_for_text(session, text, 2)
        except AssertionError:
            pass


def listed(session):
    return json.loads(session.store_command("list", "--json"))


@pytest.fixture
def store(session, heartbeats):
    return session.start_store()


@pytest.fixture
def double(heartbeats):
    stand_in = CompanionDouble(heartbeats)
    yield stand_in
    stand_in.close()


class TestBesideTheCompanion:
    def test_a_text_and_an_image_are_recorded(self, session, store, companion):
        copy_until_recorded(session, "the first text")
        session.copy(images.half_transparent(), "image/png")
        wait_until(lambda: contents(session) and contents(session)[0][0] == "image", 20, "the image")
        jpeg = contents(session)[0][1]
        assert jpeg[:2] == b"\xff\xd8"
        width, height, at = images.pixels(jpeg)
        assert (width, height) == (64, 48)
        assert images.is_near(at(8, 24), (220, 20, 20)) and images.is_near(at(56, 24), (255, 255, 255))
        image, text = listed(session)
        assert (image["kind"], image["size"]) == ("image", len(jpeg))
        assert (text["kind"], text["size"], text["preview"]) == ("text", 14, "the first text")
        assert session.store_command("show", image["id"]) == jpeg
        assert session.store_command("show", text["id"][:8].lower()) == b"the first text"
        table = session.store_command("list").decode().splitlines()
        assert [line.split()[:2] for line in table] == [[image["id"][:8], "image"], [text["id"][:8], "text"]]

    def test_the_companion_killed_and_restarted_is_found_again(self, session, store, companion):
        copy_until_recorded(session, "before")
        companion.kill()
        session.start_companion()
        copy_until_recorded(session, "after")
        assert texts(session) == ["after", "before"]

    def test_the_store_killed_and_restarted_records_on(self, session, store, companion):
        copy_until_recorded(session, "before")
        store.kill()
        session.copy("while nobody records")
        time.sleep(1.8)
        session.start_store()
        copy_until_recorded(session, "after")
        assert texts(session) == ["after", "before"]

    def test_a_restarted_bus_does_not_end_the_recording(self, session, store, companion):
        copy_until_recorded(session, "before")
        session.kill_bus()
        time.sleep(0.5)
        session.copy("without a bus")
        wait_for_text(session, "without a bus")
        session.start_bus()
        companion.kill()
        session.start_companion()
        copy_until_recorded(session, "with another bus")

    def test_it_may_start_before_the_bus(self, bare_session, display):
        bare_session.use_display_of(display)
        store = bare_session.start_store()
        bare_session.start_companion()
        time.sleep(1)
        assert store.is_running
        bare_session.start_bus()
        copy_until_recorded(bare_session, "late bus")


class TestBeforeAStandIn:
    def test_it_says_hello_with_the_announced_nonce_and_serves_the_store(self, session, store, double):
        with welcomed(double, store) as link:
            assert snapshot(link).keys() == {"revision", "history", "favorites", "categories"}
            report_text(link, "one")
            link.next("store.changed")
            jpeg = session.run("convert", "-size", "40x30", "xc:teal", "jpg:-")
            report_image(link, jpeg)
            link.next("store.changed")
            image, text = snapshot(link)["history"]
            assert [image["kind"], text["kind"]] == ["image", "text"] and text["preview"] == "one"
            assert UUID_TEXT.fullmatch(image["id"]) and image["scope"] == "history"
            assert abs(time.time() - 978_307_200 - text["lastCopiedAt"]) < 60
            answer, attachment = link.response(link.request("entry.payload", {"id": image["id"], "scope": "history"}))
            assert answer["p"] == {"kind": "image", "hasAttachment": True} and attachment == jpeg
            answer, attachment = link.response(link.request("entry.payload", {"id": text["id"], "scope": "history"}))
            assert answer["p"] == {"kind": "text", "text": "one", "hasAttachment": False} and attachment is None

    def test_what_it_does_not_have_or_know_is_an_error(self, store, double):
        with welcomed(double, store) as link:
            answer, _ = link.response(link.request("entry.payload", {"id": new_id(), "scope": "history"}))
            assert answer["e"]["code"] == "not_found"
            answer, _ = link.response(link.request("no.such", {}))
            assert answer["e"] == {"code": "unknown_message", "message": "Unknown message"}
            answer, _ = link.response(link.request("entry.payload", {"id": "not one", "scope": "attic"}))
            assert "e" in answer

    def test_texts_of_all_kinds_come_back_as_they_were(self, session, store, double):
        odd = ["\0", "a\0b", "\ufeff", "'; DROP TABLE entries; --", "👩‍👩‍👧‍👦" * 100, "\r\n", " ", "e\u0301",
               "é"]
        with welcomed(double, store) as link:
            for text in odd:
                report_text(link, text)
                link.next("store.changed")
            rows = snapshot(link)["history"]
            back = [link.response(link.request("entry.payload", {"id": row["id"], "scope": "history"}))[0]["p"]["text"]
                    for row in rows]
        assert back == odd[::-1]

    def test_after_a_refusal_it_tries_again_with_the_next_nonce(self, store, double):
        welcomed(double, store).close()
        with called(double, store) as link:
            request, _ = link.next("hello")
            link.respond(request, error=("bad_nonce", "Nonce rejected"))
        double.renew_nonce()
        with welcomed(double, store) as link:
            assert snapshot(link)["history"] == []

    def test_bad_heartbeats_are_passed_over(self, store, double):
        for port in (None, "0", "65536", "-1", "abc", "", " 1", "9" * 400, "1"):
            double.announce(port=port)
        for changed in ({"nonce": None}, {"hotkeyActive": None}, {"more": "x"}):
            double.announce(**changed)
        with welcomed(double, store) as link:
            assert snapshot(link)["history"] == []

    def test_it_links_again_when_the_link_ends_in_any_state(self, store, double):
        for state in ("before the answer", "after it", "with a request unanswered", "within a frame"):
            link = called(double, store)
            request, _ = link.next("hello")
            if state != "before the answer":
                link.respond(request, {"app": "Vexil Shortcut", "features": []})
            if state == "with a request unanswered":
                link.request("store.snapshot", {})
            if state == "within a frame":
                link.send_raw(b"\0\0\1")
            link.reset()
            double.renew_nonce()
            time.sleep(0.1)
        with welcomed(double, store) as link:
            assert snapshot(link)["history"] == []

    @pytest.mark.parametrize("length", [0, 0x1000001, 0xFFFFFFFF])
    def test_a_length_out_of_range_ends_the_link_and_not_the_store(self, store, double, length):
        with welcomed(double, store) as link:
            link.send_raw(struct.pack(">IB", length, ENVELOPE))
            link.seconds_until_closed(10)
        with welcomed(double, store) as link:
            assert snapshot(link)["history"] == []

    def test_bad_reports_are_passed_over(self, session, store, double):
        with welcomed(double, store) as link:
            for payload in (None, {}, {"kind": "film", "hasAttachment": False},
                            {"kind": "text", "text": 7, "hasAttachment": False},
                            {"kind": "text", "hasAttachment": "no"}, {"kind": "text", "hasAttachment": False}):
                link.event("pasteboard.changed", payload)
            link.send_raw(frame(ENVELOPE, b'{"v":1,"id":"a","t":"event","m":"pasteboard.changed","p":'
                                          b'{"kind":"text","text":"\xff","hasAttachment":false}}'))
            link.send_raw(frame(ENVELOPE, b"[" * 100_000))
            report_text(link, "a good one")
            link.next("store.changed")
            assert [row["preview"] for row in snapshot(link)["history"]] == ["a good one"]
        assert texts(session) == ["a good one"]

    def test_an_image_that_came_without_its_bytes_does_no_harm(self, store, double):
        with welcomed(double, store) as link:
            link.event("pasteboard.changed", {"kind": "image", "hasAttachment": False})
            link.event("pasteboard.changed", {"kind": "image", "hasAttachment": True})
            report_image(link, b"not an image at all")
            report_text(link, "after it")
            link.next("store.changed")
            wait_until(lambda: any(row["preview"] == "after it" for row in snapshot(link)["history"]), 15, "the text")

    def test_a_flood_of_copies_is_recorded_whole_and_in_order(self, store, double):
        with welcomed(double, store) as link:
            for number in range(300):
                report_text(link, f"copy {number}")
            rows = snapshot(link, 60)["history"]  # asked after them, it is answered after them
        assert [row["preview"] for row in rows] == [f"copy {number}" for number in range(299, -1, -1)]

    def test_what_was_recorded_survives_a_kill_at_any_moment(self, session, store, double):
        with welcomed(double, store) as link:
            for number in range(20):
                report_text(link, f"copy {number}")
                link.next("store.changed")  # it is on disk by now
            store.kill()
        again = session.start_store()
        with welcomed(double, again) as link:
            assert [row["preview"] for row in snapshot(link)["history"]] == [f"copy {n}" for n in range(19, -1, -1)]


    def test_started_with_standard_error_closed_it_records(self, session, double, heartbeats):
        store = session.start_store(redirections="2>&-")
        with welcomed(double, store) as link:
            report_text(link, "in silence")
            assert [row["preview"] for row in snapshot(link)["history"]] == ["in silence"]
        assert store.target_of_descriptor(2) == "/dev/null"

    def test_started_with_all_descriptors_closed_what_it_says_does_not_go_into_the_database(self, session, double):
        store = session.start_store("--verbose", redirections="<&- >&- 2>&-")
        with welcomed(double, store) as link:
            report_text(link, "in silence")
            link.next("store.changed")
        assert [store.target_of_descriptor(number) for number in range(3)] == ["/dev/null"] * 3
        store.stop()
        with sqlite3.connect(database(session)) as connection:
            assert connection.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        assert texts(session) == ["in silence"]


class TestCommandLine:
    def test_an_empty_store_lists_nothing_and_is_no_error(self, session):
        assert listed(session) == [] and session.store_command("list") == b""

    def test_an_unknown_entry_is_an_error_in_a_sentence(self, session, store, double):
        welcomed(double, store).close()
        done = session.start("show", session.program("vexil-store"), "show", new_id())
        assert done.wait(20) == 1
        assert done.stdout() == "" and done.stderr().count("\n") == 1

    def test_a_second_store_is_refused_while_one_serves(self, session, store, double):
        welcomed(double, store).close()
        second = session.start("second", session.program("vexil-store"), "serve")
        assert second.wait(20) == 1
        assert second.stderr().count("\n") == 1
        assert store.is_running
