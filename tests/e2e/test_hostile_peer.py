# SPDX-License-Identifier: Apache-2.0
"""One companion that suffers every kind of bad peer in turn, and is asked after each whether it is well.

Well means: it runs, it answers the next connection, it holds no file more than before, and its memory is back.
"""
import json
import random
import struct
import time

import pytest

from conftest import assert_quiet, running_companion
from link_client import (AT_ONCE, ATTACHMENT, ENVELOPE, Link, LinkClosed, assert_answers, attachment_frame,
                         envelope_bytes, frame, link_up, new_id)
from session import wait_until

MIB = 1 << 20
MAX_LENGTH = 0x1000000


class World:
    def __init__(self, heartbeats, companion):
        self.heartbeats = heartbeats
        self.companion = companion

    def connect(self, **options):
        """A connection that the companion has taken as its link, without a hello."""
        deadline = time.monotonic() + 30
        while True:
            link = Link.connect(self.heartbeats.usable()["port"], **options)
            try:
                assert_answers(link, timeout=60)  # the test before may have left it much to do
                return link
            except LinkClosed:  # it has not noticed yet that the one before is gone
                link.close()
                assert time.monotonic() < deadline, "every connection is closed"
                time.sleep(0.02)

    def link(self, **options):
        return link_up(self.heartbeats, **options)


def send_as_far_as_possible(link, chunks):
    """How many chunks went out before the companion closed the link."""
    for index, chunk in enumerate(chunks):
        try:
            link.send_raw(chunk)
        except LinkClosed:
            return index
    return None


@pytest.fixture(scope="module")
def world(build, display):
    with running_companion(build, display) as (_, heartbeats, companion):
        all_of_it = World(heartbeats, companion)
        with all_of_it.link() as link:  # so that what is made on first use counts as there before
            link.send_raw(attachment_frame(new_id(), bytes(12 * MIB)))
            assert_answers(link)
        yield all_of_it


@pytest.fixture(autouse=True)
def well_afterwards(world, sanitizer):
    with world.connect():
        files = world.companion.open_files()
    memory = world.companion.resident_kb()
    world.companion.forget_peak()
    yield
    assert_quiet(world.companion)
    with world.connect():
        wait_until(lambda: world.companion.open_files() <= files, 15, "the number of open files of before")
    if sanitizer != "tsan":  # whose shadow of a page stays once it has been touched
        allowed = 8 * 1024 if sanitizer is None else 48 * 1024
        wait_until(lambda: world.companion.resident_kb() <= memory + allowed, 20,
                   f"the {memory} kB of before (now {world.companion.resident_kb()} kB)", interval=0.2)


def assert_peak_growth_below(world, sanitizer, mib, before_kb):
    """Sanitizers pad and delay; with one the bound is half as much again."""
    if sanitizer != "tsan":
        grown = (world.companion.peak_resident_kb() - before_kb) / 1024
        assert grown < mib * (1 if sanitizer is None else 1.5), f"grew by {grown:.0f} MiB"


@pytest.mark.parametrize("length", [0, MAX_LENGTH + 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF])
def test_a_length_out_of_range_closes_the_link_at_once(world, length):
    with world.connect() as link:
        link.send_raw(struct.pack(">IB", length, ENVELOPE) + b"{}")
        assert link.seconds_until_closed(10) < AT_ONCE


def test_the_longest_frame_is_taken(world):
    with world.link() as link:
        link.send_raw(frame(9, bytes(MAX_LENGTH - 1)))
        link.send_raw(frame(ENVELOPE, b" " * (MAX_LENGTH - 1)))
        assert_answers(link)


def test_a_promised_frame_that_never_comes_costs_no_memory(world, sanitizer):
    before = world.companion.resident_kb()
    with world.connect() as link:
        link.send_raw(struct.pack(">IB", MAX_LENGTH, ATTACHMENT) + b"ten bytes.")
        assert 2.9 < link.age_when_closed(12) < 10
    assert_peak_growth_below(world, sanitizer, 8, before)


def test_a_stream_cut_at_any_byte_does_no_harm(world):
    hello = envelope_bytes("request", "hello", new_id(), {"nonce": "?", "app": "a", "build": "b"})
    stream = attachment_frame(new_id(), b"bytes") + frame(ENVELOPE, hello)
    for cut in range(len(stream)):
        link = Link.connect(world.heartbeats.usable()["port"])
        try:
            link.send_raw(stream[:cut])
        except LinkClosed:
            pass
        link.reset() if cut % 2 else link.close()


def test_a_peer_may_die_in_every_state_of_an_authenticated_link(world):
    def dies_at_once(link):
        pass

    def dies_within_a_length(link):
        link.send_raw(b"\0\0")

    def dies_within_an_envelope(link):
        link.send_raw(frame(ENVELOPE, envelope_bytes("event", "store.changed", new_id()))[:-1])

    def dies_within_an_attachment(link):
        link.send_raw(attachment_frame(new_id(), bytes(8 * MIB))[:-1])

    def dies_between_attachment_and_envelope(link):
        link.send_raw(attachment_frame(new_id(), bytes(8 * MIB)))

    def dies_with_a_request_of_the_companion_unanswered(link):
        link.next("store.snapshot") if not link.requests else None

    for death in list(locals().values()):
        if callable(death):
            link = world.link()
            death(link)
            link.reset()


def test_hundreds_of_connections_that_die_at_once_do_no_harm(world):
    port = world.heartbeats.usable()["port"]
    for index in range(500):
        link = Link.connect(port)
        link.reset() if index % 2 else link.close()


def test_hundreds_of_connections_beside_a_link_are_all_closed(world):
    with world.link() as link:
        port = world.heartbeats.usable()["port"]
        others = [Link.connect(port) for _ in range(200)]
        for other in others:
            other.seconds_until_closed(15)
            other.close()
        assert_answers(link)


EVENT = b'{"v":1,"id":"a","t":"event","m":"store.changed"'
BAD_BODIES = {
    "nothing": b"",
    "one byte": b"{",
    "not JSON": b"\x00\x01\x02",
    "another JSON": b'"hello"',
    "an array": b"[1]",
    "an empty object": b"{}",
    "cut": b'{"v":1,"id":"a","t":"request","m":"unheard.of"',
    "two of them": b'{"v":1,"id":"a","t":"event","m":"x"}{"v":1,"id":"b","t":"event","m":"x"}',
    "nested a thousand deep": EVENT + b',"p":' + b"[" * 1000 + b"]" * 1000 + b"}",
    "nested a million deep": EVENT + b',"p":' + b"[" * MIB + b"]" * MIB + b"}",
    "open a million deep": b'{"p":' * MIB,
    "invalid UTF-8 in the method": b'{"v":1,"id":"a","t":"event","m":"\xff\xfe"}',
    "invalid UTF-8 in the id": b'{"v":1,"id":"\xc3(","t":"event","m":"store.changed"}',
    "invalid UTF-8 in a payload": b'{"v":1,"id":"a","t":"event","m":"hosts.apply","p":{"removeAll":"\xed\xa0\x80"}}',
    "a lone surrogate": b'{"v":1,"id":"\\ud800","t":"event","m":"store.changed"}',
    "a lone surrogate in a payload": b'{"v":1,"id":"a","t":"event","m":"hosts.apply","p":{"removeAll":"\\udfff"}}',
    "v too large": b'{"v":99999999999999999999999,"id":"a","t":"event","m":"store.changed"}',
    "v a fraction": b'{"v":1.5,"id":"a","t":"event","m":"store.changed"}',
    "v beyond a double": b'{"v":1e999,"id":"a","t":"event","m":"store.changed"}',
    "v a string": b'{"v":"1","id":"a","t":"event","m":"store.changed"}',
    "an id that is a number": b'{"v":1,"id":7,"t":"event","m":"store.changed"}',
    "another kind": b'{"v":1,"id":"a","t":"answer","m":"store.changed"}',
    "nulls": b'{"v":null,"id":null,"t":null,"m":null}',
    "repeated keys": b'{"v":1,"v":2,"id":"a","id":"b","t":"event","t":"event","m":"x","m":"y"}',
    "a payload that is no object": b'{"v":1,"id":"a","t":"event","m":"hosts.apply","p":7}',
    "an error that is no object": b'{"v":1,"id":"a","t":"response","m":"store.snapshot","e":7}',
    "a method of a megabyte": b'{"v":1,"id":"a","t":"event","m":"' + b"m" * MIB + b'"}',
    "half a million keys": EVENT + b',"p":{' + b",".join(b'"%d":0' % i for i in range(500_000)) + b"}}",
    "bytes that are not base64": b'{"v":1,"id":"a","t":"response","m":"store.snapshot","p":{"revision":1,"history":'
                                 b'[{"thumbnail":"!"}],"favorites":[],"categories":[]}}',
}


@pytest.mark.parametrize("name", BAD_BODIES)
def test_a_bad_envelope_is_passed_over(world, name):
    with world.connect() as link:
        link.send_raw(frame(ENVELOPE, BAD_BODIES[name]))
        assert_answers(link)


def test_bad_frames_beside_envelopes_are_passed_over(world):
    with world.link() as link:
        link.send_raw(frame(ATTACHMENT, b"") + frame(ATTACHMENT, b"x" * 35) + frame(ATTACHMENT, b"\xff" * 40)
                      + b"".join(frame(kind, b"?") for kind in (0, 3, 0x7F, 0xFF)) + frame(ENVELOPE, b""))
        assert_answers(link)


def test_an_id_of_a_megabyte_is_answered_or_passed_over(world):
    with world.link() as link:
        link.request("unheard.of", id="i" * MIB)
        link.event("store.changed", id="i" * MIB)
        assert_answers(link)


def test_events_with_undecodable_payloads_are_ignored(world):
    with world.link() as link:
        for payload in (None, {}, {"removeAll": 1}, {"removeAll": "yes"}, {"removeAll": []}):
            link.event("hosts.apply", payload)
        link.event("no.such.event", {"x": 1})
        assert_answers(link)


def test_a_bad_answer_to_a_request_of_the_companion_is_taken_for_a_failure(world):
    row = {"id": new_id(), "scope": "history", "kind": "text", "preview": "", "lastCopiedAt": 0, "isPinned": False,
           "isFavorite": False}
    whole = {"revision": 1, "history": [], "favorites": [], "categories": []}
    bad = [{}, {**whole, "revision": "1"}, {**whole, "revision": 1 << 70}, {**whole, "history": [{}]},
           {**whole, "history": [{**row, "scope": "attic"}]}, {**whole, "history": [{**row, "id": "not one"}]}]
    for payload in bad:
        with world.link() as link:
            request, _ = link.next("store.snapshot")
            link.respond(request, payload)
            link.respond(request, whole)  # nobody waits for a second answer
            assert_answers(link)


def test_a_snapshot_as_large_as_a_frame_holds_nothing_up(world):
    with world.link() as link:
        request, _ = link.next("store.snapshot")
        row = {"id": new_id(), "scope": "history", "kind": "text", "preview": "p" * 200, "lastCopiedAt": 0.5,
               "isPinned": False, "isFavorite": False, "thumbnail": "QUJD" * 200}
        rows = [row] * (15 * MIB // len(json.dumps(row)))
        link.respond(request, {"revision": 1, "history": rows, "favorites": [], "categories": []})
        assert_answers(link)
        world.heartbeats.all_received()
        world.heartbeats.wait_for()


def test_responses_that_nobody_waits_for_are_ignored(world):
    with world.link() as link:
        one = envelope_bytes("response", "store.snapshot", new_id(), {"revision": 1})
        link.send_raw(frame(ENVELOPE, one) * 20_000)
        assert_answers(link, timeout=20)


def test_a_flood_of_events_is_taken_or_waits(world):
    with world.link() as link:
        link.send_raw(frame(ENVELOPE, envelope_bytes("event", "store.changed", new_id())) * 100_000, timeout=60)
        assert_answers(link, timeout=60)


def test_a_flood_of_hellos_with_a_wrong_nonce_gets_one_refusal(world):
    link = Link.connect(world.heartbeats.usable()["port"])
    hello = envelope_bytes("request", "hello", new_id(), {"nonce": "wrong", "app": "a", "build": "b"})
    send_as_far_as_possible(link, [frame(ENVELOPE, hello) * 100] * 100)
    refusals = 0
    with pytest.raises(LinkClosed):
        while True:
            kind, body = link.read_frame()
            assert kind == ENVELOPE and json.loads(body)["e"]["code"] == "bad_nonce"
            refusals += 1
    assert refusals <= 1  # none where the reset overtook it
    link.close()


def test_a_flood_of_connections_with_wrong_nonces_lets_the_right_one_in(world):
    port = world.heartbeats.usable()["port"]
    for _ in range(200):
        with Link.connect(port) as link:
            try:
                assert link.hello("wrong")["e"]["code"] == "bad_nonce"
            except LinkClosed:
                pass
    with world.link() as link:
        assert_answers(link)


def test_ten_thousand_staged_attachments_stay_until_the_link_ends(world, sanitizer):
    before = world.companion.resident_kb()
    with world.link() as link:
        for _ in range(100):
            link.send_raw(b"".join(attachment_frame(new_id(), b"x" * 1024) for _ in range(100)))
        assert_answers(link)
    assert_peak_growth_below(world, sanitizer, 64, before)


def test_staged_attachments_of_more_than_64_mib_close_the_link(world, sanitizer):
    before = world.companion.resident_kb()
    with world.link() as link:
        sent = send_as_far_as_possible(link, (attachment_frame(new_id(), bytes(MIB)) for _ in range(200)))
        assert sent is None or sent >= 63
        link.seconds_until_closed(15)
    assert_peak_growth_below(world, sanitizer, 128, before)


def test_replacing_a_staged_attachment_does_not_add_up(world, sanitizer):
    before = world.companion.resident_kb()
    with world.link() as link:
        id = new_id()
        for _ in range(100):
            link.send_raw(attachment_frame(id, bytes(MIB)))
        assert_answers(link)
    assert_peak_growth_below(world, sanitizer, 32, before)


def test_empty_attachments_count_too(world, sanitizer):
    """An id without a byte still has to be kept: two million of them are a gigabyte somewhere, or a closed link."""
    before = world.companion.resident_kb()
    digits = random.Random(7)
    with world.link() as link:
        send_as_far_as_possible(link, (b"".join(frame(ATTACHMENT, b"%036x" % digits.getrandbits(144))
                                                for _ in range(20_000)) for _ in range(100)))
    assert_peak_growth_below(world, sanitizer, 192, before)


def test_a_peer_that_stops_reading_loses_its_link(world, sanitizer):
    before = world.companion.resident_kb()
    with world.link(receive_buffer=4096) as link:
        # Each answer repeats the id of its request, so that every megabyte sent is one that has to be written.
        request = frame(ENVELOPE, envelope_bytes("request", "unheard.of", "i" * MIB))
        sent = send_as_far_as_possible(link, [request] * 400)
        assert sent is not None and sent >= 60
    assert_peak_growth_below(world, sanitizer, 192, before)


def test_a_peer_that_only_sends_bytes_of_chance_loses_its_link(world):
    digits = random.Random(11)
    for _ in range(20):
        with Link.connect(world.heartbeats.usable()["port"]) as link:
            try:
                link.send_raw(digits.randbytes(100_000), timeout=5)
                link.seconds_until_closed(12)
            except (LinkClosed, TimeoutError):
                pass


def test_valid_envelopes_with_bytes_flipped_do_no_harm(world):
    digits = random.Random(13)
    whole = envelope_bytes("event", "hosts.apply", new_id(), {"removeAll": False})
    with world.connect() as link:
        for _ in range(2000):
            body = bytearray(whole)
            for _ in range(digits.randrange(1, 5)):
                body[digits.randrange(len(body))] = digits.randrange(256)
            link.send_raw(frame(ENVELOPE, bytes(body)))
        assert_answers(link)
