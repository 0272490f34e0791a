# SPDX-License-Identifier: Apache-2.0
"""docs/link-protocol.md says what is so: its examples are read, and its example program is run."""
import json
import re
import socket

import pytest

import images
from companion_double import CompanionDouble, report_image, report_text, snapshot, welcomed
from conftest import SOURCE_ROOT
from heartbeats import Heartbeats
from link_client import FEATURES, Link, checked_envelope, new_id
from session import wait_until

PAGE = (SOURCE_ROOT / "docs/link-protocol.md").read_text()


def blocks(language):
    return re.findall(rf"```{language}\n(.*?)```", PAGE, re.DOTALL)


@pytest.mark.parametrize("text", blocks("json"))
def test_every_example_is_a_valid_envelope(text):
    checked_envelope(text.encode())


def test_every_method_has_an_example_or_shares_one():
    table = re.findall(r"^\| `([a-z]+\.?[a-zA-Z]*)` \| (?:request|event) \|", PAGE, re.MULTILINE)
    assert len(table) == 16
    shown = {json.loads(text)["m"] for text in blocks("json")} | {"entry.delete", "entry.editText", "hosts.changed"}
    assert set(table) - shown == set()
    for method in table:
        assert re.search(rf"^### .*{re.escape(method)}\b", PAGE, re.MULTILINE) or method == "hello", method


def test_the_features_of_the_example_are_the_features():
    acknowledgement = next(json.loads(text) for text in blocks("json") if '"features"' in text)
    assert acknowledgement["p"]["features"] == FEATURES


def test_the_dumps_are_the_frames_that_they_explain():
    streams = []
    for dump in blocks("hex"):
        rows = [re.match(r"([0-9a-f]{4})  ((?:[0-9a-f]{2} ?)+)", line) for line in dump.splitlines()]
        assert [int(row[1], 16) for row in rows] == [16 * index for index in range(len(rows))]
        streams.append(bytes.fromhex("".join(row[2] for row in rows)))
    assert len(streams) == 2
    a, b = socket.socketpair()
    with Link(a) as writer, Link(b) as reader:
        writer.send_raw(b"".join(streams))
        assert reader.read()[0]["m"] == "store.changed"
        envelope, attachment = reader.read()
    assert envelope["p"] == {"kind": "image", "hasAttachment": True} and attachment == b"\xff\xd8\xff\xd9"


@pytest.fixture
def example(session):
    return session.start("example", "/usr/bin/python3", "-B", SOURCE_ROOT / "docs/examples/minimal_main_application.py")


def test_the_example_program_does_what_the_page_asks_of_it(bare_session):
    bare_session.start_bus()
    hearing = Heartbeats(bare_session.bus_address)
    double = CompanionDouble(hearing)
    program = bare_session.start("example", "/usr/bin/python3", "-B",
                                 SOURCE_ROOT / "docs/examples/minimal_main_application.py")
    with welcomed(double, program) as link:
        report_text(link, "one")
        assert link.next("store.changed")
        report_image(link, b"four")
        assert link.next("store.changed")
        image, text = snapshot(link)["history"]
        assert (image["kind"], text["kind"], text["preview"]) == ("image", "text", "one")
        answer, attachment = link.response(link.request("entry.payload", {"id": image["id"], "scope": "history"}))
        assert answer["p"]["hasAttachment"] and attachment == b"four"
        answer, attachment = link.response(link.request("entry.payload", {"id": text["id"], "scope": "history"}))
        assert answer["p"]["text"] == "one" and attachment is None
        answer, _ = link.response(link.request("entry.payload", {"id": new_id(), "scope": "history"}))
        assert answer["e"]["code"] == "not_found"
        answer, _ = link.response(link.request("entry.pin", {"id": text["id"], "isPinned": True}))
        assert answer["e"]["code"] == "unknown_message"
    with welcomed(double, program):  # again, after the end of the first link
        pass
    assert program.is_running and program.stderr() == ""
    hearing.close()
    double.close()


def test_the_example_program_records_a_text_and_an_image(session, companion, example):
    wait_until(lambda: "linked with Vexil Shortcut" in example.stdout(), 15, "the link")
    session.copy("of the 'page'\n")
    wait_until(lambda: "text \"of the 'page'\\n\"" in example.stdout(), 10, "the text")
    session.copy(images.half_transparent(), "image/png")
    wait_until(lambda: re.search(r"^image [1-9]\d+$", example.stdout(), re.MULTILINE), 10, "the image")
    assert example.is_running and example.stderr() == ""


def test_the_example_program_links_again_after_the_companion_was_restarted(session, companion, example):
    wait_until(lambda: "linked with" in example.stdout(), 15, "the link")
    companion.kill()
    session.start_companion()
    wait_until(lambda: example.stdout().count("linked with") == 2, 20, "the second link")
    assert example.is_running
