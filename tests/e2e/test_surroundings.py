# SPDX-License-Identifier: Apache-2.0
"""The companion where the things around it are missing, die and come back."""
import pathlib
import re
import time

from heartbeats import Heartbeats
from link_client import link_up
from session import Session, tool, wait_until

TWO_POLLS = 1.8


def heard(session, timeout=12):
    observer = Heartbeats(session.bus_address)
    observer.usable(timeout)
    return observer


def test_it_is_silent_and_ends_when_asked_to(session, companion, heartbeats):
    heartbeats.usable()
    companion.stop()
    assert companion.exit_status in (0, -15)
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
        assert link.is_open()
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


def test_without_a_display_it_says_so_once_and_serves_the_link(session, heartbeats):
    companion = without_display(session)
    with link_up(heartbeats) as link:
        link.response(link.request("unheard.of"))
        time.sleep(3)
        assert link.is_open()
    assert re.fullmatch(r"vexil-shortcut: .*display.*\n", companion.stderr(), re.IGNORECASE), companion.stderr()


def test_a_display_that_nobody_serves_is_no_display(session, heartbeats):
    companion = without_display(session, DISPLAY=":987")
    assert heartbeats.usable()["hotkeyActive"] == "0"
    assert companion.stderr().count("\n") == 1


def test_it_outlives_its_x_server(bare_session):
    bare_session.start_bus()
    server = bare_session.start_display()
    observer = Heartbeats(bare_session.bus_address)
    companion = bare_session.start_companion()
    companion.expected_stderr.append("(?i)display")
    with link_up(observer) as link:
        server.kill()
        time.sleep(2)
        link.response(link.request("unheard.of"))
        observer.all_received()
        observer.wait_for(timeout=5)
    assert companion.is_running and companion.cpu_seconds() < 3
    assert companion.stderr().count("\n") <= 1


def test_a_display_that_comes_later_is_picked_up(session, display, heartbeats):
    """Started before the X server: copies are reported once it runs, without a restart."""
    late = Session(session.build)
    try:
        number = 90
        while (lock := pathlib.Path(f"/tmp/.X{number}-lock")).exists():
            number += 1
        companion = without_display(session, DISPLAY=f":{number}")
        with link_up(heartbeats) as link:
            late.start("Xvfb", tool("Xvfb"), f":{number}", "-screen", "0", "640x480x24", "-nolisten", "tcp")
            wait_until(lock.exists, 10, "the X server")
            session.environment["DISPLAY"] = f":{number}"
            time.sleep(6)
            session.copy("late display")
            assert link.next("pasteboard.changed")[0]["p"]["text"] == "late display"
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
        assert companion.cpu_seconds() - before < (0.05 if sanitizer is None else 0.25)
