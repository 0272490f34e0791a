# SPDX-License-Identifier: Apache-2.0
"""Who gets a link, and who does not."""
import base64
import time

import pytest

from conftest import assert_quiet, running_companion
from link_client import AT_ONCE, FEATURES, Link, LinkClosed, assert_answers, link_up
from session import wait_until


@pytest.fixture(scope="module")
def world(build, display):
    with running_companion(build, display) as (session, heartbeats, companion):
        heartbeats.usable()
        yield session, heartbeats, companion, companion.open_files()


@pytest.fixture
def session(world):
    return world[0]


@pytest.fixture
def heartbeats(world):
    return world[1]


@pytest.fixture
def companion(world, heartbeats):
    """One for all tests, each of which finds it without a link."""
    _, _, companion, idle_files = world
    wait_until(lambda: companion.open_files() <= idle_files, 15, "the end of the link of the test before")
    heartbeats.all_received()
    yield companion
    assert_quiet(companion)


def test_the_heartbeat_says_where_and_with_which_nonce(companion, heartbeats):
    heartbeat = heartbeats.usable()
    assert heartbeats.types == {"(a{ss})"}
    assert heartbeat.keys() == {"hotkeyActive", "port", "nonce"}
    assert heartbeat["hotkeyActive"] in ("0", "1")
    assert 1 <= int(heartbeat["port"]) <= 65535
    assert len(base64.b64decode(heartbeat["nonce"], validate=True)) == 32


def test_the_heartbeat_comes_every_three_seconds(companion, heartbeats):
    times = [heartbeats.timed()[0] for _ in range(3)]
    # One may be heard late; with one left out the mean would be 4.5.
    assert 2.5 < (times[-1] - times[0]) / 2 < 4.2
    for earlier, later in zip(times, times[1:]):
        assert 1.5 < later - earlier < 5.5


def test_the_companion_listens_on_the_loopback_interface_only(companion, heartbeats):
    port = int(heartbeats.usable()["port"])
    listening = []
    for table in ("tcp", "tcp6"):
        for line in open(f"/proc/{companion.pid}/net/{table}").readlines()[1:]:
            address, state = line.split()[1], line.split()[3]
            if state == "0A" and int(address.rpartition(":")[2], 16) == port:
                listening.append((table, address.rpartition(":")[0]))
    assert listening == [("tcp", "0100007F")]


def test_a_hello_is_acknowledged_and_the_store_is_fetched(companion, heartbeats):
    heartbeat = heartbeats.usable()
    with Link.connect(heartbeat["port"]) as link:
        id = link.request("hello", {"nonce": heartbeat["nonce"], "app": "e2e", "build": "1"})
        answer, _ = link.response(id)
        heartbeats.spend(heartbeat["nonce"])
        assert answer["p"] == {"app": "Vexil Shortcut", "features": FEATURES}
        request, _ = link.next("store.snapshot")
        assert request["t"] == "request" and request["p"] == {}


def test_after_a_hello_the_heartbeat_carries_another_nonce(companion, heartbeats):
    used = heartbeats.usable()["nonce"]
    with link_up(heartbeats):
        assert heartbeats.usable()["nonce"] != used


def test_a_wrong_nonce_is_rejected_and_the_link_closes(companion, heartbeats):
    heartbeat = heartbeats.usable()
    for nonce in ("A" * 43 + "=", "", heartbeat["nonce"][:-1], heartbeat["nonce"] + "=", "é" * 4000):
        with Link.connect(heartbeat["port"]) as link:
            answer = link.hello(nonce)
            assert answer["e"] == {"code": "bad_nonce", "message": "Nonce rejected"}
            assert link.seconds_until_closed(10) < AT_ONCE
    with link_up(heartbeats) as link:  # refusals use nothing up
        assert_answers(link)


@pytest.mark.parametrize("payload", [None, {}, {"nonce": 1, "app": "a", "build": "b"}, {"app": "a", "build": "b"},
                                     "without app"])
def test_a_hello_that_does_not_decode_is_rejected(companion, heartbeats, payload):
    heartbeat = heartbeats.usable()
    if payload == "without app":
        payload = {"nonce": heartbeat["nonce"], "build": "b"}
    with Link.connect(heartbeat["port"]) as link:
        id = link.request("hello", payload)
        assert link.response(id)[0]["e"]["code"] == "bad_nonce"
        assert link.seconds_until_closed(10) < AT_ONCE


def test_a_replayed_nonce_is_rejected_and_the_link_closes(companion, heartbeats):
    used = heartbeats.usable()
    with link_up(heartbeats) as link:
        assert link.hello(used["nonce"])["e"]["code"] == "bad_nonce"
        assert link.seconds_until_closed(10) < AT_ONCE
    assert heartbeats.usable()["nonce"] != used["nonce"]
    deadline = time.monotonic() + 15
    while True:
        with Link.connect(used["port"]) as again:
            try:
                assert again.hello(used["nonce"])["e"]["code"] == "bad_nonce"
                break
            except LinkClosed:  # the companion has not noticed yet that the other link is gone
                assert time.monotonic() < deadline
                time.sleep(0.05)


def test_another_version_is_answered_with_version_mismatch(companion, heartbeats):
    heartbeat = heartbeats.usable()
    for version in (0, 2, -1, 1 << 40):
        with Link.connect(heartbeat["port"]) as link:
            answer = link.hello(heartbeat["nonce"], v=version)
            assert answer["e"] == {"code": "version_mismatch", "message": "Protocol version mismatch"}
            assert link.seconds_until_closed(10) < AT_ONCE


def test_hello_again_on_an_authenticated_link_is_accepted_with_the_current_nonce(link, heartbeats):
    second = heartbeats.usable()["nonce"]
    assert link.hello(second)["p"]["app"] == "Vexil Shortcut"
    heartbeats.spend(second)
    assert heartbeats.usable()["nonce"] != second
    assert_answers(link)


def test_a_second_connection_is_closed_at_once(link, heartbeats):
    with Link.connect(heartbeats.usable()["port"]) as second:
        assert second.seconds_until_closed(10) < AT_ONCE
    assert_answers(link)


def test_a_second_connection_is_closed_even_before_the_first_said_hello(companion, heartbeats):
    heartbeat = heartbeats.usable()
    with Link.connect(heartbeat["port"]) as first, Link.connect(heartbeat["port"]) as second:
        assert second.seconds_until_closed(10) < AT_ONCE
        assert "p" in first.hello(heartbeat["nonce"])
        heartbeats.spend(heartbeat["nonce"])


def test_a_silent_connection_is_closed_after_three_seconds(companion, heartbeats):
    with Link.connect(heartbeats.usable()["port"]) as link:
        assert 2.9 < link.age_when_closed(12) < 10


def test_another_request_before_the_hello_is_unknown_and_does_not_extend_the_three_seconds(companion, heartbeats):
    heartbeat = heartbeats.usable()
    with Link.connect(heartbeat["port"]) as link:
        for method in ("store.snapshot", "entry.pin", "no.such"):
            answer, _ = link.response(link.request(method, {}))
            assert answer["e"] == {"code": "unknown_message", "message": "Unknown message"}
            assert answer["m"] == method
        assert 2.9 < link.age_when_closed(12) < 10


def test_a_hello_after_another_request_is_accepted(companion, heartbeats):
    heartbeat = heartbeats.usable()
    with Link.connect(heartbeat["port"]) as link:
        link.response(link.request("no.such"))
        assert "p" in link.hello(heartbeat["nonce"])
        heartbeats.spend(heartbeat["nonce"])
        time.sleep(3.5)
        assert_answers(link)


def test_nothing_of_the_companions_own_is_sent_before_the_hello(session, companion, heartbeats):
    with Link.connect(heartbeats.usable()["port"]) as link:
        session.copy("not for strangers")
        with pytest.raises(LinkClosed):
            link.read_frame(timeout=12)
