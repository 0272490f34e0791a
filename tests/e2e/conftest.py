# SPDX-License-Identifier: Apache-2.0
"""Fixtures. Run by ctest, or by hand: python3 -m pytest tests/e2e --build build/dev."""
import contextlib
import os
import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import session as sessions  # noqa: E402
from heartbeats import Heartbeats  # noqa: E402
from link_client import link_up  # noqa: E402

SOURCE_ROOT = pathlib.Path(__file__).resolve().parents[2]


def pytest_addoption(parser):
    parser.addoption("--build", default=os.environ.get("VEXIL_BUILD", str(SOURCE_ROOT / "build/dev")),
                     help="the build folder that holds bin/vexil-shortcut and bin/vexil-store")


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """A failed test shows what every process of its session wrote."""
    outcome = yield
    report = outcome.get_result()
    if report.failed:
        for value in {id(value): value for value in item.funcargs.values()}.values():
            if isinstance(value, sessions.Session):
                report.sections.append(("processes of the session", value.transcript()))


@pytest.fixture(scope="session")
def build(request):
    return pathlib.Path(request.config.getoption("--build")).resolve()


@pytest.fixture(scope="session")
def sanitizer(build):
    """The name of the sanitizer that the companion was built with, or none."""
    program = (build / "bin/vexil-shortcut").read_bytes()
    return next((name for name in ("tsan", "asan") if f"__{name}_init".encode() in program), None)


@pytest.fixture(scope="module")
def display(build):
    """One X server with a window manager for the tests of a file."""
    desktop = sessions.Session(build)
    try:
        desktop.start_display(window_manager=True)
        yield desktop
    finally:
        desktop.close()


@contextlib.contextmanager
def running_companion(build, display):
    """For files whose tests share one companion: the session, its heartbeats, and the companion."""
    session = sessions.Session(build)
    heartbeats = None
    try:
        session.use_display_of(display)
        session.start_bus()
        heartbeats = Heartbeats(session.bus_address)
        yield session, heartbeats, session.start_companion()
    finally:
        if heartbeats is not None:
            heartbeats.close()
        session.close()


def assert_quiet(*processes):
    """In place of the look that closing a session takes, where a file of tests shares it."""
    complaints = [line for process in processes for line in process.complaints()]
    assert not complaints, "\n".join(complaints)
    assert all(process.is_running for process in processes)


@pytest.fixture
def bare_session(build):
    """A home of its own, and nothing else."""
    session = sessions.Session(build)
    try:
        yield session
    finally:
        session.close()


@pytest.fixture
def session(bare_session, display):
    """A home and a bus of its own on the display of the file."""
    bare_session.use_display_of(display)
    bare_session.start_bus()
    yield bare_session


@pytest.fixture
def heartbeats(session):
    observer = Heartbeats(session.bus_address)
    yield observer
    observer.close()


@pytest.fixture
def companion(session, heartbeats):
    return session.start_companion()


@pytest.fixture
def link(companion, heartbeats):
    with link_up(heartbeats) as up:
        yield up
