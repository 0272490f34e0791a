# SPDX-License-Identifier: Apache-2.0
"""The library of these tests, checked against itself: what finds faults must not have them."""
import os
import signal
import socket

import pytest

import images
from heartbeats import Heartbeats
from link_client import ENVELOPE, Link, LinkClosed, ProtocolError, envelope_bytes, frame, new_id
from session import TimedOut, wait_until


@pytest.fixture
def pair():
    a, b = socket.socketpair()
    with Link(a) as left, Link(b) as right:
        yield left, right


def test_what_one_end_sends_the_other_reads(pair):
    left, right = pair
    id = left.request("store.snapshot", {}, attachment=b"\0\1\2")
    envelope, attachment = right.read()
    assert envelope == {"v": 1, "id": id, "t": "request", "m": "store.snapshot", "p": {}}
    assert attachment == b"\0\1\2"
    right.respond(envelope, {"revision": 1})
    assert left.response(id)[0]["p"] == {"revision": 1}


def test_frames_that_come_in_pieces_are_joined(pair):
    left, right = pair
    data = frame(ENVELOPE, envelope_bytes("event", "store.changed", new_id()))
    left.send_raw(data[:3])
    with pytest.raises(TimeoutError):
        right.read(timeout=0.05)
    left.send_raw(data[3:] + data)
    assert [right.read()[0]["m"] for _ in range(2)] == ["store.changed"] * 2


@pytest.mark.parametrize("body", [
    b"", b"[]", b"{", b'{"v":1,"id":"x","t":"event","m":"a"}', b'{"v":1,"id":"x","t":"response","m":"a","p":null}',
    b'{"v":1,"v":1,"id":"x","t":"response","m":"a"}', b'{"v":2,"id":"x","t":"response","m":"a"}',
    b'{"v":1,"id":"x","t":"answer","m":"a"}', b'{"v":1,"id":"x","t":"response","m":"\xff"}'])
def test_what_the_protocol_does_not_allow_is_noticed(pair, body):
    left, right = pair
    left.send_raw(frame(ENVELOPE, body))
    with pytest.raises(ProtocolError):
        right.read()


@pytest.mark.parametrize("data", [b"\0\0\0\0\1", b"\1\0\0\1\1", b"\0\0\0\1\3"])
def test_a_bad_frame_is_noticed(pair, data):
    left, right = pair
    left.send_raw(data)
    with pytest.raises(ProtocolError):
        right.read()


def test_the_end_of_the_stream_is_told_from_its_end_within_a_frame(pair):
    left, right = pair
    left.send_raw(b"\0\0")
    left.close()
    with pytest.raises(ProtocolError):
        right.read()
    a, b = socket.socketpair()
    a.close()
    with pytest.raises(LinkClosed):
        Link(b).read()


def test_a_heartbeat_is_heard(bare_session):
    bare_session.start_bus()
    hearing, posting = Heartbeats(bare_session.bus_address), Heartbeats(bare_session.bus_address)
    posting.post({"hotkeyActive": "0"})
    posting.post({"hotkeyActive": "1", "port": "1", "nonce": "n"})
    assert hearing.wait_for(lambda heartbeat: "port" in heartbeat)["nonce"] == "n"
    assert hearing.types == {"(a{ss})"}
    hearing.spend("n")
    with pytest.raises(AssertionError):
        hearing.usable(timeout=0.1)
    hearing.close()
    posting.close()


def test_a_bus_comes_back_at_its_address(bare_session):
    bare_session.start_bus()
    bare_session.kill_bus()
    with pytest.raises(Exception):
        Heartbeats(bare_session.bus_address)
    bare_session.start_bus()
    Heartbeats(bare_session.bus_address).close()


def test_a_program_that_writes_on_standard_error_or_ends_badly_is_reported(bare_session):
    loud = bare_session.start("loud", "/bin/sh", "-c", "echo ouch >&2; echo allowed >&2; exit 3")
    loud.expected_stderr.append("^allowed$")
    loud.wait(5)
    assert loud.complaints() == ["loud wrote on standard error:\n  ouch", "loud ended with status 3"]


def test_a_program_that_dies_of_being_asked_to_end_is_reported(bare_session):
    careless = bare_session.start("careless", "/bin/sleep", "1000")
    careless.stop()
    assert careless.complaints() == ["careless ended with status -15"]


def test_nothing_is_left_behind(build):
    from session import Session
    session = Session(build)
    sleeper = session.start("sleeper", "/bin/sleep", "1000")
    folder = session.root
    session.close()
    assert not os.path.exists(f"/proc/{sleeper.pid}") and not folder.exists()


def test_waiting_ends():
    with pytest.raises(TimedOut):
        wait_until(lambda: False, 0.05, "never")


def test_the_clipboard_owner_tells_what_it_is_asked(bare_session, build):
    bare_session.start_display()
    content = bare_session.root / "content"
    content.write_text("hidden")
    owner = bare_session.start("owner", build / "tests/clipboard_owner", f"UTF8_STRING={content}")
    wait_until(lambda: "owned" in owner.stdout(), 15, "the clipboard")
    targets = bare_session.run("xclip", "-selection", "clipboard", "-out", "-target", "TARGETS").decode()
    assert targets.split() == ["TARGETS", "UTF8_STRING"]
    assert bare_session.run("xclip", "-selection", "clipboard", "-out", "-target", "UTF8_STRING") == b"hidden"
    wait_until(lambda: owner.stdout().split() == ["owned", "asked", "TARGETS", "asked", "UTF8_STRING"], 15, "the report")


def test_the_images_are_what_they_say(bare_session):
    source = bare_session.root / "half.png"
    source.write_bytes(images.half_transparent())
    flat = bare_session.run("convert", source, "-background", "white", "-flatten", "jpg:-")
    width, height, at = images.pixels(flat)
    assert (width, height) == (64, 48)
    assert images.is_near(at(8, 24), (220, 20, 20)) and images.is_near(at(56, 24), (255, 255, 255))


def test_a_process_that_is_stopped_can_be_ended(bare_session):
    sleeper = bare_session.start("sleeper", "/bin/sleep", "1000")
    sleeper.signal(signal.SIGSTOP)
    sleeper.stop()
    assert sleeper.exit_status == -signal.SIGTERM
