# SPDX-License-Identifier: Apache-2.0
"""What a person copies, as it arrives on the link."""
import os
import signal
import time

import pytest

import images
from conftest import assert_quiet, running_companion
from heartbeats import Heartbeats
from link_client import assert_answers, link_up
from session import wait_until

POLL = 0.75
TWO_POLLS = 1.8
CONCEALED, TRANSIENT = "org.nspasteboard.ConcealedType", "org.nspasteboard.TransientType"


@pytest.fixture(scope="module")
def world(build, display):
    with running_companion(build, display) as (session, heartbeats, companion), link_up(heartbeats) as link:
        yield session, heartbeats, companion, link


@pytest.fixture
def session(world):
    return world[0]


@pytest.fixture
def heartbeats(world):
    return world[1]


@pytest.fixture
def link(world, session):
    """One for all tests, each of which begins with nothing on its way."""
    _, _, companion, link = world
    begin = f"beginning {len(session.processes)}"
    session.copy(begin)
    while copied(link)[0].get("text") != begin:
        pass
    yield link
    assert_quiet(companion)


@pytest.fixture
def offer(session, build):
    """Offers targets on the clipboard and tells what was asked for: offer({"UTF8_STRING": "text"})."""
    def start(contents, *options):
        words = []
        for index, (target, content) in enumerate(contents.items()):
            file = session.root / f"offered-{len(session.processes)}-{index}"
            file.write_bytes(content.encode() if isinstance(content, str) else content)
            words.append(f"{target}={file}")
        owner = session.start("owner", build / "tests/clipboard_owner", *options, *words)
        wait_until(lambda: "owned" in owner.stdout() or not owner.is_running, 10, "the clipboard")
        assert owner.is_running, owner.stderr()
        return owner
    return start


def asked(owner):
    return [line.split()[1] for line in owner.stdout().splitlines() if line.startswith("asked ")]


def copied(link, timeout=20):
    envelope, attachment = link.next("pasteboard.changed", timeout)
    assert envelope["t"] == "event"
    assert envelope["p"]["hasAttachment"] == (attachment is not None)
    return envelope["p"], attachment


def copied_text(link):
    payload, _ = copied(link)
    assert payload.keys() == {"kind", "text", "hasAttachment"} and payload["kind"] == "text"
    return payload["text"]


def assert_only_this_comes(session, link, text="the next copy"):
    """Nothing of what came before is on its way: the next copy is the next event."""
    session.copy(text)
    assert copied_text(link) == text


@pytest.mark.parametrize("text", [
    "a word", "two\nlines\n", " ", "\t", "Grüße, 世界, 👩‍👩‍👧‍👦 e\u0301", "\"\\/\b\f\r\0x\x1f\x7f", "\ufeffmarked", "\u2028\u2029",
    "{\"v\":1}"])
def test_a_text_arrives_as_it_was_copied(session, link, text):
    session.copy(text)
    assert copied_text(link) == text


def test_a_text_of_4096_characters_is_sent_and_one_more_is_not(session, link):
    longest = "ä" * 4095 + "👩‍👩‍👧‍👦"  # characters as a person counts them, of 25 bytes even
    session.copy(longest)
    assert copied_text(link) == longest
    session.copy(longest + "x")
    time.sleep(TWO_POLLS)
    assert_only_this_comes(session, link)


def test_a_text_of_many_megabytes_is_dropped_and_harms_nothing(session, link):
    session.copy("megabytes " * 1_000_000)
    time.sleep(TWO_POLLS)
    assert_only_this_comes(session, link)


def test_an_image_arrives_as_a_jpeg_with_white_for_what_is_transparent(session, link):
    session.copy(images.half_transparent(), "image/png")
    payload, jpeg = copied(link)
    assert payload == {"kind": "image", "hasAttachment": True}
    assert jpeg[:2] == b"\xff\xd8" and jpeg[-2:] == b"\xff\xd9"
    width, height, at = images.pixels(jpeg)
    assert (width, height) == (64, 48)
    assert images.is_near(at(8, 24), (220, 20, 20))
    assert images.is_near(at(56, 24), (255, 255, 255))


@pytest.mark.parametrize("format", ["tiff", "bmp", "gif", "webp", "jpeg"])
def test_an_image_of_another_format_arrives_as_a_jpeg(session, link, format):
    source = session.root / "source.png"
    source.write_bytes(images.png(32, 24, lambda x, y: (20, 120, 220, 255)))
    session.copy(session.run("convert", source, f"{format}:-"), f"image/{format}")
    payload, jpeg = copied(link)
    assert payload["kind"] == "image"
    width, height, at = images.pixels(jpeg)
    assert (width, height) == (32, 24) and images.is_near(at(16, 12), (20, 120, 220))


def test_an_image_too_large_for_one_property_arrives(session, link):
    noise = os.urandom(900 * 700 * 4)
    session.copy(images.png(900, 700, noise), "image/png")  # 2.5 MB: goes in pieces
    _, jpeg = copied(link, timeout=20)
    assert images.pixels(jpeg)[:2] == (900, 700)


def test_an_image_whose_jpeg_exceeds_12_mib_is_reported_without_it(session, sanitizer, link):
    opaque = bytearray(os.urandom(4500 * 4500 * 4))
    opaque[3::4] = b"\xff" * (4500 * 4500)
    session.copy(images.png(4500, 4500, bytes(opaque)), "image/png")
    payload, jpeg = copied(link, timeout=60)
    assert payload == {"kind": "image", "hasAttachment": False} and jpeg is None


def test_an_image_that_cannot_be_read_is_reported_without_an_attachment(session, link):
    session.copy(b"\x89PNG\r\n\x1a\nand then nothing of the kind", "image/png")
    assert copied(link) == ({"kind": "image", "hasAttachment": False}, None)


def test_text_wins_over_an_image(offer, link):
    offer({"UTF8_STRING": "caption", "image/png": images.half_transparent()})
    assert copied_text(link) == "caption"


def test_an_empty_text_gives_way_to_the_image(offer, link):
    offer({"UTF8_STRING": "", "image/png": images.half_transparent()})
    payload, jpeg = copied(link)
    assert payload["kind"] == "image" and jpeg


def test_latin_1_text_is_understood(offer, link):
    offer({"STRING": "caf\u00e9".encode("latin-1")})
    assert copied_text(link) == "café"


def test_content_that_is_neither_text_nor_image_is_not_reported(session, offer, link):
    offer({"text/uri-list": "file:///tmp/x\r\n", "application/x-thing": "thing"})
    time.sleep(TWO_POLLS)
    assert_only_this_comes(session, link)


@pytest.mark.parametrize("marker", [
    CONCEALED, TRANSIENT, "application/x-kde-onlyReplaceEmpty", "application/x-kde-syncselection"])
def test_what_is_marked_concealed_or_transient_is_not_even_read(session, offer, link, marker):
    owner = offer({"UTF8_STRING": "hunter2", "image/png": images.half_transparent(), marker: "1"})
    wait_until(lambda: asked(owner), 15, "the question what there is")
    time.sleep(TWO_POLLS)
    assert set(asked(owner)) <= {"TARGETS", "TIMESTAMP", marker}
    assert_only_this_comes(session, link)


@pytest.mark.parametrize("hint", ["secret", "", "public "])
def test_a_password_of_kde_is_not_even_read(session, offer, link, hint):
    owner = offer({"UTF8_STRING": "hunter2", "x-kde-passwordManagerHint": hint})
    wait_until(lambda: "x-kde-passwordManagerHint" in asked(owner), 15, "the question for the hint")
    time.sleep(TWO_POLLS)
    assert set(asked(owner)) <= {"TARGETS", "TIMESTAMP", "x-kde-passwordManagerHint"}
    assert_only_this_comes(session, link)


def test_a_hint_that_says_public_hides_nothing(offer, link):
    offer({"UTF8_STRING": "hunter2", "x-kde-passwordManagerHint": "public"})
    assert copied_text(link) == "hunter2"


def test_a_frozen_owner_holds_nothing_up(session, link, heartbeats):
    owner = session.copy("frozen")
    assert copied_text(link) == "frozen"
    frozen = session.copy("never to be read")
    frozen.signal(signal.SIGSTOP)
    heartbeats.all_received()
    slowest = 0
    end = time.monotonic() + 5
    while time.monotonic() < end:
        start = time.monotonic()
        assert_answers(link)
        slowest = max(slowest, time.monotonic() - start)
        time.sleep(0.05)
    assert slowest < 1.8  # an owner is waited for two seconds
    assert len(heartbeats.all_received()) >= 1
    assert not owner.is_running  # it lost the clipboard to the frozen one
    session.copy("thawed")
    assert copied_text(link) == "thawed"


def test_an_owner_that_answers_only_what_it_has_is_harmless(session, offer, link):
    offer({"UTF8_STRING": "never to be read"}, "--hang")
    time.sleep(3)
    assert_answers(link)
    assert_only_this_comes(session, link)


def test_an_owner_that_dies_is_harmless(session, link):
    session.copy("short-lived").kill()
    time.sleep(TWO_POLLS)
    session.copy("alive")
    text = copied_text(link)
    if text == "short-lived":  # it was read in time
        text = copied_text(link)
    assert text == "alive"


@pytest.fixture
def fresh(bare_session, display):
    """A companion that has not started, and its session."""
    bare_session.use_display_of(display)
    bare_session.start_bus()
    heartbeats = Heartbeats(bare_session.bus_address)
    yield bare_session, heartbeats
    heartbeats.close()


def test_what_was_on_the_clipboard_before_is_not_reported(fresh):
    session, heartbeats = fresh
    session.copy("before the start")
    session.start_companion()
    with link_up(heartbeats) as link:
        assert_only_this_comes(session, link)


def test_copies_made_while_disconnected_are_not_reported_later(fresh):
    session, heartbeats = fresh
    session.start_companion()
    heartbeats.usable()
    session.copy("before the link")
    time.sleep(TWO_POLLS)
    with link_up(heartbeats) as link:
        assert_only_this_comes(session, link, "with the link")
    time.sleep(0.5)
    session.copy("between the links")
    time.sleep(TWO_POLLS)
    with link_up(heartbeats) as link:
        assert_only_this_comes(session, link, "with the second link")


def test_the_same_text_copied_twice_is_reported_twice(session, link):
    for _ in range(2):
        session.copy("again")
        assert copied_text(link) == "again"


def test_copies_between_two_polls_are_reported_as_one_and_the_last_always(session, link):
    assert_only_this_comes(session, link, "first")  # a poll has just been
    begin = time.monotonic()
    for index in range(20):
        session.copy(f"quick {index}")
    polls = (time.monotonic() - begin) / POLL + 2
    assert polls < 20, "the machine is too slow for any two copies to come between two polls"
    numbers = [int(copied_text(link).removeprefix("quick "))]
    while numbers[-1] != 19:
        numbers.append(int(copied_text(link).removeprefix("quick ")))
    assert numbers == sorted(set(numbers)) and len(numbers) <= polls
    assert_only_this_comes(session, link)
