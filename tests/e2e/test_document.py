# SPDX-License-Identifier: Apache-2.0
"""docs/link-protocol.md says what is so: its examples are read, and its example program is run."""
import json
import re
import socket

import pytest

from conftest import SOURCE_ROOT
from link_client import FEATURES, Link, checked_envelope
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


def test_the_example_program_records_a_text_and_an_image(session, heartbeats, companion):
    import images
    program = session.start("example", "/usr/bin/python3", "-u", SOURCE_ROOT / "docs/examples/minimal_main_application.py")
    wait_until(lambda: "linked with Vexil Shortcut" in program.stdout(), 15, "the link")
    session.copy("of the 'page'\n")
    wait_until(lambda: "text \"of the 'page'\\n\"" in program.stdout(), 10, "the text")
    session.copy(images.half_transparent(), "image/png")
    wait_until(lambda: re.search(r"^image [1-9]\d+$", program.stdout(), re.MULTILINE), 10, "the image")
    assert program.is_running and program.stderr() == ""


def test_the_example_program_links_again_after_the_companion_was_restarted(session, heartbeats, companion):
    program = session.start("example", "/usr/bin/python3", "-u", SOURCE_ROOT / "docs/examples/minimal_main_application.py")
    wait_until(lambda: "linked with" in program.stdout(), 15, "the link")
    companion.kill()
    session.start_companion()
    wait_until(lambda: program.stdout().count("linked with") == 2, 20, "the second link")
    assert program.is_running
