# SPDX-License-Identifier: Apache-2.0
"""Each command of vexil-store, on the executable."""
import json
import re
import stat
import subprocess
import time
import unicodedata

import pytest

import images
from companion_double import CompanionDouble, report_text, snapshot, welcomed
from heartbeats import Heartbeats
from terminal import run_on_terminal

ID = re.compile(r"[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\n")


class Store:
    """The command line of one store."""

    def __init__(self, session):
        self.session = session
        self.program = session.program("vexil-store")
        self.folder = session.root / "data/vexil-store"

    def attempt(self, *arguments, stdin=b"", **environment):
        return subprocess.run([self.program, *map(str, arguments)], env=self.session.environment | environment,
                              input=stdin, capture_output=True, timeout=60)

    def run(self, *arguments, **options):
        done = self.attempt(*arguments, **options)
        assert done.returncode == 0 and done.stderr == b"", (arguments, done)
        return done.stdout.decode()

    def refusal(self, *arguments, status=1, **options):
        done = self.attempt(*arguments, **options)
        assert done.returncode == status and done.stdout == b"", (arguments, done)
        assert re.fullmatch(r"vexil-store: [^\n]*[^.\n]\n", done.stderr.decode()), done.stderr
        return done.stderr.decode()

    def add(self, *arguments, **options):
        printed = self.run("add", *arguments, **options)
        assert ID.fullmatch(printed)
        return printed.strip()

    def listed(self, *options):
        return json.loads(self.run("list", "--json", *options))

    def previews(self, *options):
        return [entry["preview"] for entry in self.listed(*options)]

    def everything(self):
        return [self.run("list", "--json"), self.run("list", "--json", "--favorites"),
                self.run("category", "list", "--json")]

    def on_terminal(self, *arguments, columns=80, typed=(), **environment):
        environment = self.session.environment | {"TERM": "xterm-256color"} | environment
        return run_on_terminal([self.program, *arguments], environment, columns, typed)


@pytest.fixture
def store(bare_session):
    return Store(bare_session)


def columns_of(text):
    """Of what these tests print: a wide character takes two, a mark none."""
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def without_colours(text):
    return re.sub(r"\x1b\[\d*m", "", text)


def test_what_is_added_is_listed_shown_and_searched(store):
    text, image = "one\ttwo\nthree", images.half_transparent()
    text_id = store.add(text)
    piped_id = store.add(stdin="größe\n".encode())
    assert store.add("-", stdin="größe\n".encode()) == piped_id
    image_id = store.add("--image", "-", stdin=image)
    assert [entry["id"] for entry in store.listed()] == [image_id, piped_id, text_id]
    assert store.run("show", text_id[:6].lower()) == text and store.run("show", piped_id) == "größe\n"
    jpeg = store.attempt("show", image_id).stdout
    width, height, at = images.pixels(jpeg)
    assert (width, height) == (64, 48) and images.is_near(at(56, 24), (255, 255, 255))
    file = store.session.root / "picture.jpg"
    file.write_bytes(jpeg)
    assert store.add("--image", file) == image_id  # a JPEG is kept as it is
    assert store.previews("--search", "GRÖSSE") == ["größe"] and store.previews("--search", "none") == []
    assert len(store.listed("--limit", "2")) == 2
    assert [line.split()[:2] for line in store.run("list").splitlines()] == [
        [image_id[:8], "image"], [piped_id[:8], "text"], [text_id[:8], "text"]]


def test_an_entry_is_pinned_named_filed_and_deleted(store):
    first, second, third = (store.add(text) for text in ("first", "second", "third"))
    store.run("pin", first)
    assert store.previews() == ["first", "third", "second"]
    store.run("unpin", first)
    assert store.previews() == ["third", "second", "first"]
    store.run("category", "add", "work", "--color", "red")
    store.run("favorite", second, "--category", "work")
    store.run("favorite", third)
    assert store.previews("--favorites") == ["second", "third"] and store.previews("--category", "WORK") == ["second"]
    store.run("alias", second, "runner-up")
    assert store.previews("--search", "runner") == ["second"] and "[work] runner-up · second" in store.run("list")
    store.run("alias", second, "--remove")
    assert "runner-up" not in store.run("list")
    store.run("unfavorite", third)
    assert store.previews("--favorites") == ["second"]
    store.run("delete", second, "--from", "history")
    assert store.previews() == ["third", "first"] and store.previews("--favorites") == ["second"]
    store.run("delete", first)
    assert store.previews() == ["third"]


def test_a_text_is_edited(store):
    id = store.add("before")
    editor = store.session.root / "editor"
    editor.write_text('#!/bin/sh\nstat -c "%a %U" "$1" "$(dirname "$1")" >"$EDITED"\nsed -i s/before/after/ "$1"\n')
    editor.chmod(0o755)
    seen = store.session.root / "seen"
    store.run("edit", id, VISUAL=str(editor), EDITOR="false", EDITED=str(seen), TMPDIR=str(store.session.root))
    assert store.run("show", id) == "after"
    assert [line.split()[0] for line in seen.read_text().splitlines()] == ["600", "700"]
    assert "nothing is changed" in store.refusal("edit", id, EDITOR="false")
    assert store.run("edit", id, EDITOR="true") == "" and store.run("show", id) == "after"
    store.run("edit", id, "an argument")
    store.run("edit", id, "-", stdin=b"standard input")
    assert store.run("show", id) == "standard input"
    assert [path.name for path in store.session.root.glob("vexil-store-*")] == []


def test_categories_are_listed_and_changed(store):
    for name in ("one", "two", "three"):
        store.run("category", "add", name)
    store.run("category", "move", "three", "1")
    store.run("category", "rename", "two", "second")
    store.run("category", "color", "second", "blue")
    store.run("category", "delete", "one")
    categories = json.loads(store.run("category", "list", "--json"))
    assert [(entry["name"], entry["colorTag"], entry["order"]) for entry in categories] == [
        ("three", "", 0), ("second", "blue", 1)]
    assert store.run("category", "list") == "1  three         0 favorites\n2  second  blue  0 favorites\n"
    store.refusal("category", "add", "Three")


def test_clearing_asks_before(store):
    store.add("plain")
    store.run("pin", store.add("pinned"))
    store.refusal("clear", status=2, stdin=b"y\n")
    refused = store.on_terminal("clear", typed=[("[y/N]", "n\n")])
    assert refused.status == 1 and "nothing is deleted" in refused.output and len(store.listed()) == 2
    agreed = store.on_terminal("clear", typed=[("[y/N]", "y\n")])
    assert agreed.status == 0 and agreed.lines[-1] == "deleted 1 entry" and store.previews() == ["pinned"]
    assert store.run("clear", "--all", "--yes") == "deleted 1 entry\n" and store.listed() == []


def test_an_export_comes_back_as_it_was(store):
    store.run("category", "add", "work", "--color", "red")
    store.run("favorite", store.add("--image", "-", stdin=images.half_transparent()), "--category", "work")
    store.run("pin", store.add("pinned"))
    store.run("alias", store.add("named \x1b \u2028 😀"), "a name")
    before, file = store.everything(), store.session.root / "all.jsonl"
    assert store.run("export", file) == "exported 3 entries\n"
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    exported = file.read_bytes()
    assert all(json.loads(line) for line in exported.splitlines())
    store.run("clear", "--all", "--yes")
    store.run("category", "delete", "work")
    assert store.run("import", file) == "imported 3 entries and 1 category\n"
    assert store.everything() == before and store.attempt("export", "-").stdout == exported
    for damaged in (exported[:-20], exported[:len(exported) // 2], exported.replace(b"pinned", b"pruned"),
                    exported + b"\n", b"", b"garbage"):
        store.run("clear", "--all", "--yes")
        file.write_bytes(damaged)
        assert f"{file}" in store.refusal("import", file) and store.listed() == []
    assert store.run("import", "-", stdin=exported).startswith("imported 3 entries")
    assert store.everything()[:2] == before[:2]


def test_progress_is_shown_on_a_terminal_only(store):
    store.add("hello")
    file = store.session.root / "all.jsonl"
    shown = store.on_terminal("export", str(file))
    assert re.search(r"\rexporting \[#+\] 100%\r\x1b\[Kexported 1 entry\r\n$", shown.output), shown.output


@pytest.mark.parametrize("columns", [80, 40])
def test_the_list_fits_into_a_terminal(store, columns):
    for text in ("short", "long " * 40, "日本語のテキスト" * 12, "\x1b]0;owned\x07\x1b[2J"):
        store.add(text)
    id = store.add("named")
    store.run("alias", id, "\x1b[31mred\u009b31m")
    store.run("pin", id)
    shown = store.on_terminal("list", columns=columns)
    lines = [without_colours(line) for line in shown.lines]
    assert len(lines) == 5 and "\x1b" not in "".join(lines) and "\x07" not in shown.output
    assert "\x9b" not in shown.output and "␛[31mred" in lines[0]
    assert all(columns_of(line) <= columns for line in lines)
    assert any(line.endswith("…") for line in lines) and all(re.match(r"[0-9A-F]{8}  ", line) for line in lines)
    assert "\x1b[" in shown.output
    for plain in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
        assert "\x1b" not in store.on_terminal("list", columns=columns, **plain).output
    assert "\x1b" not in store.run("list") and "long " * 39 in store.run("list")


def test_what_is_shown_cannot_command_the_terminal(store):
    id = store.add("\x1b]0;owned\x07a\nb")
    assert store.on_terminal("show", id).output == "␛]0;owned␇a\r\nb\r\n"
    assert store.run("show", id) == "\x1b]0;owned\x07a\nb"
    image = store.add("--image", "-", stdin=images.half_transparent())
    assert store.on_terminal("show", image).status == 1


def test_errors_are_one_sentence_and_tell_failures_from_bad_usage(store):
    assert "nothing has been stored yet" in store.refusal("show", "00")
    store.add("hello")
    for command in (["show", "zz"], ["pin", "zz"], ["add", ""], ["add", "--image", "/etc/hostname"],
                    ["import", "/nonexistent"], ["export", "/nonexistent/file"], ["list", "--category", "none"]):
        store.refusal(*command)
    for command in ([], ["nonsense"], ["show"], ["list", "--limit", "x"], ["list", "--nonsense"], ["category"],
                    ["category", "move", "a", "0"], ["serve", "more"], ["alias", "zz"]):
        assert "--help" in store.refusal(*command, status=2) or command[0] == "alias"
    (store.folder / "store.db").write_bytes(b"not a database at all, but long enough to be looked at" * 20)
    assert "store.db" in store.refusal("list") and "store.db" in store.refusal("add", "hello")
    assert (store.folder / "store.db").read_bytes().startswith(b"not a database")


def test_help_is_there_for_every_command(store):
    overview = store.run("--help")
    names = re.findall(r"^  ([a-z]+) ", overview, re.MULTILINE)
    assert {"serve", "list", "show", "add", "pin", "unpin", "favorite", "unfavorite", "alias", "edit", "delete",
            "category", "clear", "export", "import"} <= set(names)
    for name in names:
        page = store.run(name, "--help")
        assert f"Usage: vexil-store {name}" in page
        assert all(len(line) <= 80 for line in page.splitlines()), page


class TestBesideAServingStore:
    @pytest.fixture
    def double(self, bare_session):
        bare_session.start_bus()
        heartbeats = Heartbeats(bare_session.bus_address)
        stand_in = CompanionDouble(heartbeats)
        yield stand_in
        stand_in.close()
        heartbeats.close()

    def test_a_companion_hears_of_each_change_within_a_second(self, store, double):
        serving = store.session.start_store()
        with welcomed(double, serving) as link:
            report_text(link, "copied")
            link.next("store.changed")
            copied = snapshot(link)["history"][0]["id"]
            for change in (["add", "added"], ["pin", copied], ["favorite", copied], ["alias", copied, "name"],
                           ["edit", copied, "edited"], ["category", "add", "work"], ["delete", copied],
                           ["clear", "--yes"]):
                store.run(*change)
                begin = time.monotonic()
                link.next("store.changed")
                assert time.monotonic() - begin < 2, change  # a second, and what a busy machine and a sanitizer take
            seen = snapshot(link)
            assert seen["history"] == [] and [category["name"] for category in seen["categories"]] == ["work"]
        assert store.listed() == []
