# SPDX-License-Identifier: Apache-2.0
"""The panel without its pixels, before a running vexil-store: what is done in it, as database and clipboard see it."""
import json
import signal
import sqlite3
import subprocess
import types

import pytest

import images
from conftest import assert_quiet
from session import Session, tool, wait_until


class Panel:
    """The driver of the panel's model: commands go in, the last state that came out is looked at."""

    def __init__(self, session, build):
        self.process = session.start("panel", build / "tests/panel_driver", stdin=subprocess.PIPE)
        self.process.is_ours = True
        self._commands = 0

    def do(self, command, **arguments):
        """Returns once it is done; what it leads to may still be on its way."""
        self._commands += 1
        self.process.write(json.dumps({"command": command, **arguments}).encode() + b"\n")
        return self.wait(lambda state: state["commands"] == self._commands)

    def state(self):
        complete = self.process.stdout().rpartition("\n")[0]
        return json.loads(complete.rpartition("\n")[2]) if complete else None

    def wait(self, predicate, timeout=20, what="such a state of the panel"):
        def found():
            state = self.state()
            return state if state is not None and predicate(state) else None
        return wait_until(found, timeout, what)

    def row(self, preview):
        """The visible row with that preview, once there is one."""
        def find(state):
            return next((row for row in state["visible"] if row["preview"] == preview), None)
        return find(self.wait(find, what=f"the row {preview!r}"))

    def image(self):
        def find(state):
            return next((row for row in state["visible"] if row["kind"] == "image"), None)
        return find(self.wait(find, what="the image"))

    def show(self, tab="history"):
        """Opens it as the hot key would, with what the store has now."""
        self.do("show")
        return self.do("tab", text=tab)


class Store:
    """The database of a session, read behind the program's back."""

    def __init__(self, session):
        self._file = session.root / "data/vexil-store/store.db"

    def rows(self, query, *arguments):
        connection = sqlite3.connect(f"file:{self._file}?mode=ro", uri=True, timeout=5)
        try:
            return connection.execute(query, arguments).fetchall()
        finally:
            connection.close()

    def entry(self, id):
        """(in history, pinned, favorite, category, alias), or none."""
        found = self.rows("SELECT in_history, pinned_at IS NOT NULL, is_favorite, category_id, alias FROM entries "
                          "WHERE id = ?", id)
        return found[0] if found else None

    def content(self, id):
        return self.rows("SELECT data FROM contents JOIN entries ON entry = number WHERE id = ?", id)[0][0]

    def uses(self, id):
        return self.rows("SELECT count(*) FROM usages JOIN entries ON entry = number WHERE id = ?", id)[0][0]


@pytest.fixture(scope="module")
def world(build, display):
    """A store and a panel that have found each other; what they have copied lies in the store already."""
    session = Session(build)
    try:
        session.use_display_of(display)
        session.start_bus()
        process = session.start_store()
        panel = Panel(session, build)
        panel.wait(lambda state: state["isConnected"], what="the store")
        yield types.SimpleNamespace(session=session, panel=panel, store=Store(session), process=process)
    finally:
        session.close()


@pytest.fixture
def session(world):
    return world.session


@pytest.fixture
def panel(world):
    yield world.panel
    assert_quiet(world.panel.process)


@pytest.fixture
def store(world):
    return world.store


def copied(session, panel, content, target=None):
    """Copies, and opens the panel until it shows the copy; its row."""
    before = {row["id"] for row in panel.show()["visible"]}
    session.copy(content, target)

    def arrived():
        panel.show()
        new = [row for row in panel.state()["visible"] if row["id"] not in before]
        return new[0] if new else None
    return wait_until(arrived, 20, "the copy", interval=0.1)


def clipboard(session, target):
    return session.run(tool("xclip"), "-out", "-selection", "clipboard", "-target", target)


def targets(session):
    return clipboard(session, "TARGETS").decode().split()


def pick(panel, id):
    before = panel.state()["picks"]
    panel.do("pick", id=id)
    panel.wait(lambda state: state["picks"] == before + 1, what="the end of the pick")


def test_a_picked_text_is_on_the_clipboard_and_counts_as_used(session, panel, store):
    row = copied(session, panel, "picked: grün")
    session.copy("something else")
    pick(panel, row["id"])
    for target in ("UTF8_STRING", "text/plain;charset=utf-8", "text/plain"):
        assert clipboard(session, target).decode() == "picked: grün"
    assert clipboard(session, "STRING") == "picked: grün".encode("latin-1")
    wait_until(lambda: store.uses(row["id"]) == 1, 10, "the use")


def test_a_picked_image_is_on_the_clipboard_as_it_was_kept_and_as_png(session, panel, store):
    row = copied(session, panel, images.half_transparent(), "image/png")
    assert row["kind"] == "image"
    session.copy("something else")
    pick(panel, row["id"])
    assert {"image/jpeg", "image/png"} <= set(targets(session)) and "UTF8_STRING" not in targets(session)
    jpeg, png = clipboard(session, "image/jpeg"), clipboard(session, "image/png")
    assert jpeg == store.content(row["id"])
    assert png.startswith(b"\x89PNG\r\n\x1a\n")
    source = session.root / "picked.png"
    source.write_bytes(png)
    width, height, at = images.pixels(session.run("convert", source, "-quality", "95", "jpg:-"))
    assert (width, height) == (64, 48)
    assert images.is_near(at(8, 24), (220, 20, 20)) and images.is_near(at(56, 24), (255, 255, 255))
    wait_until(lambda: store.uses(row["id"]) == 1, 10, "the use")


def test_what_is_picked_is_not_recorded_as_another_copy(session, panel, store):
    row = copied(session, panel, "picked and not copied")
    before = store.rows("SELECT copied_revision FROM entries WHERE id = ?", row["id"])
    pick(panel, row["id"])
    copied(session, panel, "a copy made after it")  # which the watcher reports, had it reported the pick, after that
    assert store.rows("SELECT copied_revision FROM entries WHERE id = ?", row["id"]) == before


def test_a_pinned_entry_is_pinned_in_the_store_and_leads_the_list(session, panel, store):
    row = copied(session, panel, "pinned")
    copied(session, panel, "copied later")
    panel.do("pin", id=row["id"])
    wait_until(lambda: store.entry(row["id"])[1], 10, "the pin")
    panel.wait(lambda state: state["visible"][0]["id"] == row["id"] and state["visible"][0]["isPinned"])
    panel.do("pin", id=row["id"])
    wait_until(lambda: not store.entry(row["id"])[1], 10, "the end of the pin")


def test_a_favorite_is_filed_under_its_category_and_taken_out_again(session, panel, store):
    row = copied(session, panel, "favorite")
    session.store_command("category", "add", "Work")
    work = store.rows("SELECT id FROM categories WHERE name = 'Work'")[0][0]
    copied(session, panel, "what makes the store tell of its change")
    panel.wait(lambda state: any(category["id"] == work for category in state["categories"]), what="the category")
    assert panel.do("star", id=row["id"])["favoriteCandidate"] == row["id"]
    assert "favoriteCandidate" not in panel.do("favorite", id=row["id"], category=work)
    wait_until(lambda: store.entry(row["id"])[2:4] == (1, work), 10, "the favorite")
    panel.wait(lambda state: state["favoritesCount"] == 1)
    panel.show("favorites")
    state = panel.do("category", category=work)
    assert [shown["id"] for shown in state["visible"]] == [row["id"]]
    panel.do("star", id=row["id"])
    wait_until(lambda: store.entry(row["id"])[2] == 0, 10, "the end of the favorite")
    panel.wait(lambda state: state["favoritesCount"] == 0)


def test_an_alias_is_stored_and_the_content_left_alone(session, panel, store):
    row = copied(session, panel, "to be named")
    panel.do("edit", id=row["id"])
    panel.wait(lambda state: state["editingText"] == "to be named" and state["canSaveEdit"])
    panel.do("save", text="  its name \n")
    panel.wait(lambda state: "editingRow" not in state, what="the end of the edit")
    assert store.entry(row["id"])[4] == "its name"
    assert store.content(row["id"]) == "to be named"
    panel.wait(lambda state: any(shown.get("alias") == "its name" for shown in state["visible"]))


def test_a_changed_text_is_stored_and_shown(session, panel, store):
    row = copied(session, panel, "to be changed")
    panel.do("edit", id=row["id"])
    panel.wait(lambda state: state["canSaveEdit"])
    panel.do("text", text="changed: 世界")
    panel.do("save", text="")
    panel.wait(lambda state: "editingRow" not in state, what="the end of the edit")
    assert store.content(row["id"]) == "changed: 世界"
    assert panel.row("changed: 世界")["id"] == row["id"]


def test_what_the_store_refuses_is_said_and_the_edit_stays_open(session, panel, store):
    row = copied(session, panel, "not to be emptied")
    panel.do("edit", id=row["id"])
    panel.wait(lambda state: state["canSaveEdit"])
    panel.do("text", text="")
    panel.do("save", text="")
    state = panel.wait(lambda state: "editError" in state, what="the refusal")
    assert state["editingRow"] == row["id"] and state["canSaveEdit"]
    panel.do("end edit")
    assert store.content(row["id"]) == "not to be emptied"


def test_a_deleted_entry_is_gone_from_the_store(session, panel, store):
    row = copied(session, panel, "to be deleted")
    state = panel.do("delete", id=row["id"])
    assert row["id"] not in [shown["id"] for shown in state["visible"]]
    wait_until(lambda: store.entry(row["id"]) is None, 10, "the deletion")


def test_the_list_is_searched_and_walked_with_the_keys(session, panel):
    row = copied(session, panel, "Die STRASSE am Fluß")
    state = panel.do("query", text="straße am fluss")
    assert [shown["id"] for shown in state["visible"]] == [row["id"]]
    assert panel.do("down")["selectedRowID"] == row["id"]
    assert "selectedRowID" not in panel.do("up")


def test_the_tab_outlives_the_program(session, panel):
    panel.do("tab", text="history")
    file = session.root / "config/VexilShortcut/defaults.ini"
    wait_until(lambda: file.exists() and "clipboardPanel.showsFavorites=false" in file.read_text(), 10, "the setting")
    panel.do("tab", text="favorites")
    wait_until(lambda: "clipboardPanel.showsFavorites=true" in file.read_text(), 10, "the setting")


def test_a_store_that_dies_empties_the_panel_and_its_successor_fills_it(world, session, panel, store):
    row = copied(session, panel, "survives the store")
    session.copy("what the clipboard holds")
    panel.do("edit", id=row["id"])
    panel.wait(lambda state: state["canSaveEdit"])
    panel.do("text", text="typed before the end")
    world.process.kill()
    state = panel.wait(lambda state: not state["isConnected"], what="the end of the link")
    assert state["visible"] == [] and state["editingText"] == "typed before the end"
    assert panel.do("save", text="")["editError"] == "Store unavailable"
    panel.do("end edit")
    before = state["picks"]
    assert panel.do("pick", id=row["id"])["picks"] == before + 1
    assert clipboard(session, "UTF8_STRING") == b"what the clipboard holds"
    world.process = session.start_store()
    panel.wait(lambda state: state["isConnected"], 30, "the next store")
    panel.show()
    assert panel.row("survives the store")["id"] == row["id"]


def test_a_pick_from_a_store_that_hangs_and_dies_ends_and_leaves_the_clipboard_alone(world, session, panel):
    row = copied(session, panel, "never fetched")
    session.copy("what the clipboard holds")
    world.process.signal(signal.SIGSTOP)
    before = panel.state()["picks"]
    panel.do("pick", id=row["id"])
    assert panel.state()["picks"] == before
    world.process.kill()
    panel.wait(lambda state: state["picks"] == before + 1, what="the end of the pick")
    assert clipboard(session, "UTF8_STRING") == b"what the clipboard holds"
