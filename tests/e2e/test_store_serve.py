# SPDX-License-Identifier: Apache-2.0
"""vexil-store serve: its limits, other processes at the same database, and what may befall the file."""
import contextlib
import json
import pathlib
import re
import resource
import shutil
import sqlite3
import subprocess
import tempfile
import time

import pytest

import session as sessions
from companion_double import CompanionDouble, report_text, snapshot, welcomed
from heartbeats import Heartbeats
from session import wait_until


@pytest.fixture(scope="module")
def desk(build):
    """A bus without a desktop: nothing here copies from a clipboard."""
    session = sessions.Session(build)
    try:
        session.start_bus()
        yield session
    finally:
        session.close()


@pytest.fixture
def double(desk):
    heartbeats = Heartbeats(desk.bus_address)
    stand_in = CompanionDouble(heartbeats)
    yield stand_in
    stand_in.close()
    heartbeats.close()


def store_folder(desk):
    return desk.root / "data/vexil-store"


def raw_database(desk):
    """What another program sees and does."""
    return sqlite3.connect(store_folder(desk) / "store.db", isolation_level=None, timeout=5)


@pytest.fixture
def fresh(desk):
    shutil.rmtree(store_folder(desk), ignore_errors=True)
    return desk


@contextlib.contextmanager
def serving(desk, double, *options):
    """The program and a link to it, which has to be there still at the end."""
    store = desk.start_store(*options)
    with welcomed(double, store) as link:
        yield store, link
        snapshot(link)
    store.stop()


def previews(rows):
    return [row["preview"] for row in rows]


def report_and_wait(link, *texts):
    for text in texts:
        report_text(link, text)
        link.next("store.changed")


class TestLimits:
    def test_the_history_keeps_its_limit_beside_pinned_and_favorite_entries(self, fresh, double):
        with serving(fresh, double, "--history-limit", "5") as (_, link):
            report_and_wait(link, "pinned", "favorite", "plain")
            plain, favorite, pinned = snapshot(link)["history"]
            link.response(link.request("entry.pin", {"id": pinned["id"], "isPinned": True}))
            link.response(link.request("entry.favorite", {"id": favorite["id"], "scope": "history",
                                                          "isFavorite": True}))
            for number in range(8):
                report_text(link, f"copy {number}")
            view = snapshot(link, 30)
            assert previews(view["history"]) == ["pinned", *(f"copy {n}" for n in range(7, 2, -1)), "favorite"]
            assert previews(view["favorites"]) == ["favorite"]
        # The limit stays with the store.
        with serving(fresh, double) as (_, link):
            report_text(link, "one more")
            assert previews(snapshot(link)["history"]) == ["pinned", "one more", *(f"copy {n}" for n in range(7, 3, -1)),
                                                           "favorite"]
        # A lower one holds before anything is copied.
        with serving(fresh, double, "--history-limit", "1") as (_, link):
            assert previews(snapshot(link)["history"]) == ["pinned", "one more", "favorite"]

    def test_the_panel_gets_as_many_rows_as_were_asked_for_and_all_pinned_ones(self, fresh, double):
        with serving(fresh, double, "--panel-rows", "3") as (_, link):
            for number in range(8):
                report_text(link, f"copy {number}")
            oldest = json.loads(fresh.store_command("list", "--json"))[-1] if snapshot(link) else None
            link.response(link.request("entry.pin", {"id": oldest["id"], "isPinned": True}))
            assert previews(snapshot(link)["history"]) == ["copy 0", "copy 7", "copy 6", "copy 5"]

    @pytest.mark.parametrize("option", ["--history-limit", "--panel-rows"])
    @pytest.mark.parametrize("value", ["0", "-1", "many", ""])
    def test_a_limit_that_makes_no_sense_is_a_mistake_of_usage(self, fresh, option, value):
        done = subprocess.run([fresh.program("vexil-store"), "serve", option, value], env=fresh.environment,
                              capture_output=True, text=True, timeout=20, check=False)
        assert done.returncode == 2 and option in done.stderr and done.stdout == ""
        assert not store_folder(fresh).exists()


class TestOtherProcesses:
    def test_a_change_by_another_process_is_told_within_a_second(self, fresh, double):
        with serving(fresh, double) as (_, link):
            assert snapshot(link)["categories"] == []
            with contextlib.closing(raw_database(fresh)) as other:
                other.execute("BEGIN IMMEDIATE")
                other.execute("INSERT INTO categories VALUES ('00000000-0000-4000-8000-000000000001', 'work', 'red', 0)")
                other.execute("UPDATE store SET revision = revision + 1")
                other.execute("COMMIT")
            began = time.monotonic()
            link.next("store.changed")
            assert time.monotonic() - began < 3  # one, and what a busy machine adds
            assert [category["name"] for category in snapshot(link)["categories"]] == ["work"]

    def test_ten_seconds_of_lock_cost_the_copies_and_not_the_link(self, fresh, double):
        with serving(fresh, double) as (store, link):
            store.expected_stderr.append("is in use by another program")
            report_and_wait(link, "before")
            with contextlib.closing(raw_database(fresh)) as other:
                other.execute("BEGIN IMMEDIATE")
                locked = time.monotonic()
                for number in range(3):
                    report_text(link, f"lost {number}")
                wait_until(lambda: store.stderr().count("\n") == 3, 30, "three failures")
                assert re.findall(r"a copied text of 6 B is not stored: \S+store\.db is in use by another program",
                                  store.stderr()) != []
                assert previews(snapshot(link)["history"]) == ["before"]
                wait_until(lambda: time.monotonic() - locked > 10, 15, "ten seconds")
                other.execute("COMMIT")
            report_and_wait(link, "after")
            assert previews(snapshot(link)["history"]) == ["after", "before"]


class TestTheDisk:
    def test_a_disk_that_takes_no_more_costs_the_copy_and_not_the_link(self, fresh, double):
        with serving(fresh, double) as (store, link):
            store.expected_stderr.append("is not stored")
            report_and_wait(link, "before")
            former = resource.prlimit(store.pid, resource.RLIMIT_FSIZE)
            resource.prlimit(store.pid, resource.RLIMIT_FSIZE, (1 << 20, former[1]))
            report_text(link, "x" * 3_000_000)
            wait_until(lambda: "is not stored" in store.stderr(), 20, "the failure")
            assert "a copied text of 3.0 MB is not stored: " in store.stderr()
            assert previews(snapshot(link)["history"]) == ["before"]
            resource.prlimit(store.pid, resource.RLIMIT_FSIZE, former)
            report_and_wait(link, "after")
            assert previews(snapshot(link)["history"]) == ["after", "before"]
        with contextlib.closing(raw_database(fresh)) as database:
            assert database.execute("PRAGMA integrity_check").fetchall() == [("ok",)]

    def refusal(self, desk, **options):
        done = subprocess.run([desk.program("vexil-store"), "serve"], capture_output=True, text=True, timeout=20,
                              check=False, **{"env": desk.environment, **options})
        assert done.returncode == 1 and done.stdout == ""
        assert done.stderr.startswith("vexil-store: ") and done.stderr.count("\n") == 1
        return done.stderr

    @pytest.mark.parametrize("content, reason", [(b"x" * 10_000, "is not a database of vexil-store"),
                                                 (b"short", "is not a database of vexil-store")])
    def test_a_file_that_is_no_database_is_refused_and_kept(self, fresh, content, reason):
        store_folder(fresh).mkdir(parents=True)
        (store_folder(fresh) / "store.db").write_bytes(content)
        assert reason in self.refusal(fresh)
        assert (store_folder(fresh) / "store.db").read_bytes() == content

    def test_a_database_of_another_program_is_refused_and_kept(self, fresh):
        store_folder(fresh).mkdir(parents=True)
        with contextlib.closing(raw_database(fresh)) as other:
            other.execute("CREATE TABLE theirs (a)")
        before = (store_folder(fresh) / "store.db").read_bytes()
        assert "is a database of another program" in self.refusal(fresh)
        assert (store_folder(fresh) / "store.db").read_bytes() == before

    def test_a_newer_schema_is_refused_with_both_versions(self, fresh, double):
        with serving(fresh, double):
            pass
        with contextlib.closing(raw_database(fresh)) as other:
            ours = other.execute("PRAGMA user_version").fetchone()[0]
            other.execute(f"PRAGMA user_version = {ours + 7}")
        assert re.search(rf"newer vexil-store \(schema {ours + 7}; this one reads up to {ours}\)", self.refusal(fresh))

    def test_a_folder_that_may_not_be_written_is_refused(self, fresh):
        setpriv = shutil.which("setpriv")
        folder = pathlib.Path(tempfile.mkdtemp(prefix="vexil-e2e-"))
        try:
            folder.chmod(0o755)
            nobody = [setpriv, "--reuid=65534", "--regid=65534", "--clear-groups"] if setpriv else None
            program = str(fresh.program("vexil-store"))
            if not nobody or subprocess.run([*nobody, program, "--version"], capture_output=True).returncode != 0:
                pytest.skip("nobody else can be made to run the program here")
            done = subprocess.run([*nobody, program, "serve"], capture_output=True, text=True, timeout=20,
                                  env={**fresh.environment, "XDG_DATA_HOME": str(folder)})
            assert done.returncode == 1 and "Permission denied" in done.stderr
            assert list(folder.iterdir()) == []
        finally:
            shutil.rmtree(folder)
