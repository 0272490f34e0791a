# SPDX-License-Identifier: Apache-2.0
"""The companion where the things around it are missing, die and come back."""
import os
import pathlib
import re
import time

import pytest

from heartbeats import Heartbeats
from link_client import assert_answers, link_up
from session import Session, tool, wait_until

TWO_POLLS = 1.8


def heard(session, timeout=20):
    observer = Heartbeats(session.bus_address)
    observer.usable(timeout)
    return observer


def test_it_is_silent_and_ends_when_asked_to(session, companion, heartbeats):
    heartbeats.usable()
    companion.stop()
    assert companion.exit_status == 0
    assert companion.stdout() == "" and companion.stderr() == ""


def test_a_session_bus_that_died_and_came_back_is_found_again(session):
    first = Heartbeats(session.bus_address)
    session.start_companion()
    with link_up(first) as link:
        session.kill_bus()
        time.sleep(1)
        session.copy("without a bus")
        assert link.next("pasteboard.changed")[0]["p"]["text"] == "without a bus"
        session.start_bus()
        again = heard(session)
        assert_answers(link)
    with link_up(again) as link:
        session.copy("with the new bus")
        assert link.next("pasteboard.changed")[0]["p"]["text"] == "with the new bus"


def test_a_bus_that_dies_several_times_is_found_each_time(session, companion, heartbeats):
    for _ in range(3):
        heard(session).close()
        session.kill_bus()
        time.sleep(0.3)
        session.start_bus()
    heard(session).close()


def test_it_starts_without_a_session_bus_and_finds_one_that_comes_later(bare_session, display):
    bare_session.use_display_of(display)
    companion = bare_session.start_companion()
    time.sleep(2)
    assert companion.is_running and companion.stderr() == ""
    bare_session.start_bus()
    with link_up(heard(bare_session)) as link:
        bare_session.copy("late bus")
        assert link.next("pasteboard.changed")[0]["p"]["text"] == "late bus"


def test_it_starts_where_no_bus_address_is_known(bare_session, display):
    bare_session.use_display_of(display)
    del bare_session.environment["DBUS_SESSION_BUS_ADDRESS"]
    companion = bare_session.start_companion()
    time.sleep(4)
    assert companion.is_running and companion.stderr() == ""


def without_display(session, **variables):
    environment = {key: value for key, value in session.environment.items() if key != "DISPLAY"} | variables
    companion = session.start_companion(environment)
    companion.expected_stderr.append("(?i)display")
    return companion


def unserved_display():
    """Far from the numbers that servers find by themselves, and another one in each of the runs at one time."""
    number = 200 + os.getpid() % 500
    while pathlib.Path(f"/tmp/.X{number}-lock").exists() or pathlib.Path(f"/tmp/.X11-unix/X{number}").exists():
        number += 1
    return f":{number}"


def test_without_a_display_it_says_so_once_and_serves_the_link(session, heartbeats):
    companion = without_display(session)
    with link_up(heartbeats) as link:
        assert_answers(link)
        time.sleep(3)
        assert_answers(link)
    assert re.fullmatch(r"vexil-shortcut: .*display.*\n", companion.stderr(), re.IGNORECASE), companion.stderr()


def test_a_display_that_nobody_serves_is_no_display(session, heartbeats):
    companion = without_display(session, DISPLAY=unserved_display())
    assert heartbeats.usable()["hotkeyActive"] == "0"
    assert companion.stderr().count("\n") == 1


def test_it_outlives_its_x_server(bare_session, sanitizer):
    bare_session.start_bus()
    server = bare_session.start_display()
    observer = Heartbeats(bare_session.bus_address)
    companion = bare_session.start_companion()
    companion.expected_stderr.append("(?i)display")
    with link_up(observer) as link:
        assert_answers(link)
        before = companion.cpu_seconds()
        server.kill()
        time.sleep(2)
        assert_answers(link)
        observer.all_received()
        observer.wait_for()
        # No loop that asks the lost server again and again.
        assert companion.cpu_seconds() - before < (0.2 if sanitizer is None else 0.8)
    assert companion.is_running
    assert companion.stderr().count("\n") <= 1


def copied_in_the_end(session, link, text="late display"):
    """What is on the clipboard before the companion has found the display is not reported: so copied repeatedly."""
    deadline = time.monotonic() + 30
    while True:
        session.copy(text)
        try:
            return link.next("pasteboard.changed", 2 * TWO_POLLS)[0]["p"]["text"]
        except TimeoutError:
            assert time.monotonic() < deadline, "the display is not picked up"


def test_a_display_that_comes_later_is_picked_up(session, heartbeats):
    """Started before the X server: copies are reported once it runs, without a restart."""
    late = Session(session.build)
    try:
        name = unserved_display()
        companion = without_display(session, DISPLAY=name)
        with link_up(heartbeats) as link:
            late.start("Xvfb", tool("Xvfb"), name, "-screen", "0", "640x480x24", "-nolisten", "tcp", "-noreset")
            wait_until(pathlib.Path(f"/tmp/.X11-unix/X{name[1:]}").exists, 20, "the X server")
            session.environment["DISPLAY"] = name
            assert copied_in_the_end(session, link) == "late display"
        assert companion.stderr().count("\n") == 1
    finally:
        late.close()


def test_killed_and_restarted_it_announces_another_nonce(session, companion, heartbeats):
    first = heartbeats.usable()
    companion.kill()
    heartbeats.forget()
    session.start_companion()
    second = heartbeats.usable()
    assert second["nonce"] != first["nonce"]
    with link_up(heartbeats) as link:
        session.copy("after the restart")
        assert link.next("pasteboard.changed")[0]["p"]["text"] == "after the restart"


def test_idle_it_uses_next_to_no_time(companion, heartbeats, sanitizer):
    with link_up(heartbeats):
        before = companion.cpu_seconds()
        time.sleep(5)
        assert companion.cpu_seconds() - before < (0.1 if sanitizer is None else 0.5)


@pytest.mark.parametrize("redirections", ["2>&-", "<&- >&- 2>&-"])
def test_started_with_descriptors_closed_it_writes_into_nothing_of_its_own(session, heartbeats, redirections):
    environment = session.environment | {"DISPLAY": unserved_display()}  # so that there is something to say
    companion = session.start_companion(environment, redirections)
    with link_up(heartbeats) as link:
        assert_answers(link)
        assert companion.target_of_descriptor(2) == "/dev/null"
        if redirections != "2>&-":
            assert [companion.target_of_descriptor(number) for number in (0, 1)] == ["/dev/null"] * 2
    companion.stop()
    assert companion.exit_status == 0


def test_started_with_standard_error_closed_it_reports_copies(session, heartbeats):
    session.start_companion(redirections="2>&-")
    with link_up(heartbeats) as link:
        session.copy("in silence")
        assert link.next("pasteboard.changed")[0]["p"]["text"] == "in silence"
