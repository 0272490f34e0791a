# SPDX-License-Identifier: Apache-2.0
"""Measures of the whole program, each in a private desktop: own X server, window manager, session bus and home."""

import contextlib
import os
import re
import signal
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tests" / "e2e"))

from session import Missing, Session, TimedOut, tool, wait_until  # noqa: E402

IDLE_SECONDS = 30
# Until start-up work, late timers and the allocator have settled.
SETTLING_SECONDS = 5
# One for the poll of the clipboard and one for the heartbeat, rounded up.
EXPECTED_SWITCHES_PER_SECOND = 2.0
COLD_STARTS = 7


class CannotMeasure(Exception):
    pass


def heartbeats_in(session: Session):
    # Not at the top: names and bars can be listed where PyGObject is not installed yet.
    from heartbeats import Heartbeats

    return Heartbeats(session.bus_address)


@contextlib.contextmanager
def desktop(build: Path):
    session = Session(build)
    try:
        session.start_display(window_manager=True)
        session.start_bus()
        yield session
    except (Missing, TimedOut, ImportError, OSError, AssertionError, subprocess.SubprocessError) as reason:
        raise CannotMeasure(f"{reason}".splitlines()[0]) from reason
    finally:
        for pid in pids_in(session, "copyq"):
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        session.end_processes()
        session.remove()


def connected_companion(session: Session):
    """vexil-shortcut with a vexil-store at the other end of its link, both idle by now."""
    heartbeats = heartbeats_in(session)
    companion = session.start_companion()
    first = heartbeats.wait_for(lambda heartbeat: "nonce" in heartbeat)
    session.start_store()
    # A hello that is accepted uses the nonce up: a new one is the sign of the link.
    heartbeats.wait_for(lambda heartbeat: heartbeat.get("nonce", first["nonce"]) != first["nonce"], timeout=15)
    heartbeats.close()
    time.sleep(SETTLING_SECONDS)
    return companion


def pids_in(session: Session, program: str) -> list[int]:
    """Processes of that name in the session, its daemons included, told by the home that they were given."""
    mark = f"HOME={session.environment['HOME']}\0".encode()
    found = []
    for folder in Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if (folder / "exe").readlink().name == program and mark in (folder / "environ").read_bytes():
                found.append(int(folder.name))
    return found


def context_switches(pid: int) -> int:
    """Of all threads, voluntary or not."""
    return sum(
        int(count)
        for status in Path(f"/proc/{pid}/task").glob("*/status")
        for count in re.findall(r"^(?:non)?voluntary_ctxt_switches:\s+(\d+)", status.read_text(), re.MULTILINE)
    )


def memory_mb(pid: int, kind: str) -> float:
    text = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return int(re.search(rf"^{kind}:\s+(\d+) kB", text, re.MULTILINE)[1]) / 1024


def idle_wakeups(build: Path) -> dict:
    with desktop(build) as session:
        companion = connected_companion(session)
        before, begin = context_switches(companion.pid), time.monotonic()
        time.sleep(IDLE_SECONDS)
        rate = (context_switches(companion.pid) - before) / (time.monotonic() - begin)
        require_running(companion)
        threads = len(os.listdir(f"/proc/{companion.pid}/task"))
    return figure("idle.wakeups", "1/s", rate, EXPECTED_SWITCHES_PER_SECOND, threads=threads)


def idle_memory(build: Path) -> dict:
    with desktop(build) as session:
        companion = connected_companion(session)
        session.start("copyq", tool("copyq"))
        wait_until(lambda: copyq_answers(session), 30, "an answer of copyq", interval=0.5)
        time.sleep(SETTLING_SECONDS)
        require_running(companion)
        ours, resident = memory_mb(companion.pid, "Pss"), memory_mb(companion.pid, "Rss")
        others = pids_in(session, "copyq")
        theirs, theirs_resident = (sum(memory_mb(pid, kind) for pid in others) for kind in ("Pss", "Rss"))
    return figure("idle.memory", "MB", ours, theirs, **{
        "resident MB": round(resident, 1),
        "of copyq": round(theirs_resident, 1),
        "copyq processes": len(others),
    })


def require_running(companion) -> None:
    if not companion.is_running:
        raise CannotMeasure(f"vexil-shortcut ended with {companion.exit_status}: {companion.stderr()}")


def copyq_answers(session: Session) -> bool:
    asked = subprocess.run(["copyq", "eval", "1"], env=session.environment, capture_output=True, check=False, timeout=30)
    return asked.returncode == 0


def drop_caches() -> bool:
    """Whether files have to be read from the disk again. What the session itself has mapped stays, as in a real one."""
    os.sync()
    try:
        Path("/proc/sys/vm/drop_caches").write_text("3")
    except OSError:
        return False
    return True


def seconds_to_first_heartbeat(session: Session) -> float:
    heartbeats = heartbeats_in(session)
    begin = time.monotonic()
    companion = session.start_companion()
    seconds = heartbeats.timed(timeout=30)[0] - begin
    heartbeats.close()
    companion.stop()
    return seconds


def seconds_to_copyq(session: Session) -> float:
    """One command that starts the server and asks it for something as soon as it can answer."""
    begin = time.monotonic()
    # Not through a pipe: the server would keep it open.
    command = session.start("copyq", tool("copyq"), "--start-server", "eval", "1")
    command.wait(60)
    seconds = time.monotonic() - begin
    if command.stdout().strip() != "1":
        raise CannotMeasure(f"copyq answered {command.stdout()!r}, and {command.stderr()!r}")
    session.run(tool("copyq"), "exit")
    wait_until(lambda: not pids_in(session, "copyq"), 10, "the end of copyq")
    return seconds


def start_cold(build: Path) -> dict:
    with desktop(build) as session:
        is_cold = drop_caches()
        ours, theirs = [], []
        for _ in range(COLD_STARTS):
            drop_caches()
            ours.append(1000 * seconds_to_first_heartbeat(session))
            drop_caches()
            theirs.append(1000 * seconds_to_copyq(session))
    caches = "cold" if is_cold else "warm, as only root may drop them"
    return figure("start.cold", "ms", statistics.median(ours), statistics.median(theirs), files=caches)


def figure(name: str, unit: str, measured: float, reference: float, **also) -> dict:
    return {"name": name, "unit": unit, "measured": measured, "reference": reference, "also": also}


MEASURES = {"idle.wakeups": idle_wakeups, "idle.memory": idle_memory, "start.cold": start_cold}
