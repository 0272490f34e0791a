#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the direction of every include.

The table below says which folders a folder may include, besides itself; a folder that is not in it is a failure, so
that a new one gets its place by decision. Prints one line per violation and ends with status 1 where there is any.
"""

import argparse
import fnmatch
import re
import sys
from pathlib import Path
from typing import NamedTuple

# Folder -> folders that it may include. A folder is the directory of the file, relative to src (or to the root, for
# fuzz and tests). The order is from the bottom up: an entry may only name entries above it.
LAYERS: dict[str, set[str]] = {
    "base": set(),
    "platform": {"base"},
    "platform/memory": {"base", "platform"},
    "platform/linux": {"base", "platform"},
    "platform/linux/qt": {"base", "platform"},
    "platform/contract": {"base", "platform", "platform/memory", "platform/linux"},
    "link": {"base", "platform"},
    "capture": {"base", "platform", "link"},
    "panel": {"base", "platform", "link", "capture"},
    "panel/views": {"base", "platform", "link", "panel"},
    "hosts": {"base", "platform", "link"},
    "app": {"base", "platform", "link", "capture", "panel", "hosts"},
    "helper": {"base"},
    "store/database": {"base", "link"},
    "store/cli": {"base", "link", "hosts", "store/database"},
    "store": {"base", "platform", "link", "hosts", "store/database", "store/cli"},
    "bench": {
        "base",
        "platform",
        "platform/memory",
        "platform/linux",
        "link",
        "capture",
        "panel",
        "hosts",
        "store/database",
        "store",
    },
    "fuzz": {"base", "platform", "platform/memory", "link", "hosts", "store/database", "store"},
    "tests": {"base", "platform", "platform/memory", "platform/linux", "link", "capture", "panel", "hosts", "store"},
}

# Single files that may include more than their folder: (file, what), as patterns.
EXCEPTIONS: list[tuple[str, str]] = [
    # The only places that name real implementations.
    ("*/main_*.cpp", "platform/linux/*.h"),
    ("app/ui_module.cpp", "platform/linux/qt/*.h"),
    ("app/ui_module.cpp", "panel/views/*.h"),
    # Tests run on the in-memory ports; what several tests share is called *_fixture or test_*.
    ("*_test.cpp", "platform/memory/*.h"),
    ("*_fixture.*", "platform/memory/*.h"),
    ("*/test_*", "platform/memory/*.h"),
    # The helper runs as root and sees no more of these two folders than the records and the pure text.
    ("helper/*", "link/hosts_records.h"),
    ("helper/*", "hosts/hosts_syntax.h"),
    ("helper/*", "hosts/managed_hosts_block.h"),
]

# Headers of libraries, and the folders that may know the library; nested folders must be named. Everything that is not
# listed (the standard library, POSIX) is free.
LIBRARIES: list[tuple[str, str, set[str]]] = [
    ("Qt", r"Q[A-Z].*|Qt[A-Z].*/.*", {"panel/views", "platform/linux/qt"}),
    ("GLib", r"glib.*|gio/.*|gobject/.*|gdk-pixbuf/.*", {"platform/linux", "platform/linux/qt", "helper", "store"}),
    ("Asio", r"asio.*", {"platform/linux"}),
    ("xcb", r"xcb/.*", {"platform/linux", "platform/linux/qt"}),
    ("Xau", r"X11/Xauth\.h", {"platform/linux"}),
    ("Xlib", r"X11/(?!Xauth\.h).*", set()),
    ("simdjson", r"simdjson.*", {"base"}),
    ("ICU", r"unicode/.*", {"base"}),
    ("libjpeg", r"jpeglib\.h|jerror\.h|turbojpeg\.h", {"platform/linux", "store/database"}),
    ("libpng", r"png\.h", {"platform/linux"}),
    ("SQLite", r"sqlite3.*", {"store/database"}),
    ("Nettle", r"nettle/.*", {"store/database"}),
    ("CLI11", r"CLI/.*", {"store", "store/cli"}),
    ("GoogleTest", r"g(test|mock)/.*", set()),
]
# May know every library: measures compare with them, tests look at what came out.
FREE_OF_LIBRARIES = ["platform/contract/*", "bench/*", "fuzz/*", "tests/*", "*_test.cpp", "*_fixture.*", "*/test_*"]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SUFFIXES = {".h", ".hpp", ".cpp", ".cc", ".cxx"}


class Include(NamedTuple):
    line: int
    is_quoted: bool
    target: str


class Tree:
    """The C++ files of a checkout, by their path relative to src (or to the root, outside of src)."""

    def __init__(self, root: Path):
        self.files: dict[str, list[Include]] = {}
        for top, base in ((root / "src", root / "src"), (root / "fuzz", root), (root / "tests", root)):
            for path in sorted(top.rglob("*")):
                if path.suffix in SUFFIXES and path.is_file():
                    self.files[path.relative_to(base).as_posix()] = includes_of(path)


def includes_of(path: Path) -> list[Include]:
    found = []
    for number, text in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        if match := INCLUDE.match(text):
            found.append(Include(number, match[1] == '"', match[2]))
    return found


def folder_of(file: str) -> str:
    """The directory of the file; what lies under fuzz or tests counts as these."""
    directory = file.rpartition("/")[0]
    top = directory.partition("/")[0]
    return top if top in ("fuzz", "tests") else directory


def matches_any(file: str, patterns: list[str]) -> bool:
    return any(fnmatch.fnmatchcase(file, pattern) for pattern in patterns)


def is_excepted(file: str, target: str) -> bool:
    for who, what in EXCEPTIONS:
        # A pattern's * would also match a slash: "platform/linux/*.h" does not mean the folders below.
        if fnmatch.fnmatchcase(file, who) and fnmatch.fnmatchcase(target, what) and target.count("/") == what.count("/"):
            return True
    return False


def table_violations() -> list[str]:
    problems = []
    known: set[str] = set()
    for folder, allowed in LAYERS.items():
        for other in sorted(allowed - known):
            problems.append(f"table: {folder} names {other}, which does not stand above it")
        known.add(folder)
    return problems


def quoted_violation(tree: Tree, file: str, include: Include) -> str | None:
    target = include.target
    if target not in tree.files:
        return f'"{target}" is no file of the tree (quoted includes are relative to src)'
    ours, theirs = folder_of(file), folder_of(target)
    if theirs == ours or theirs in LAYERS.get(ours, set()) or is_excepted(file, target):
        return None
    return f'{ours} must not include {theirs} ("{target}")'


def angled_violation(tree: Tree, file: str, include: Include) -> str | None:
    if include.target in tree.files:
        return f"our own {include.target} is included with angle brackets"
    if matches_any(file, FREE_OF_LIBRARIES):
        return None
    for library, pattern, folders in LIBRARIES:
        if re.fullmatch(pattern, include.target) and folder_of(file) not in folders:
            return f"{folder_of(file)} must not know {library} (<{include.target}>)"
    return None


def include_violations(tree: Tree) -> list[str]:
    problems = []
    for file, includes in tree.files.items():
        if folder_of(file) not in LAYERS:
            problems.append(f"{file}: the folder {folder_of(file) or '.'} is not in the table of layers")
            continue
        for include in includes:
            check = quoted_violation if include.is_quoted else angled_violation
            if problem := check(tree, file, include):
                problems.append(f"{file}:{include.line}: {problem}")
    return problems


def folder_violations(tree: Tree) -> list[str]:
    """Pairs of folders that include each other, by whatever exception."""
    edges = {
        (folder_of(file), folder_of(include.target))
        for file, includes in tree.files.items()
        for include in includes
        if include.is_quoted and include.target in tree.files
    }
    return [f"{a} and {b} include each other" for a, b in sorted(edges) if a < b and (b, a) in edges]


def cycle_violations(tree: Tree) -> list[str]:
    problems: list[str] = []
    finished: set[str] = set()

    def visit(file: str, trail: list[str]) -> None:
        if file in trail:
            problems.append("cycle: " + " -> ".join([*trail[trail.index(file) :], file]))
        elif file not in finished:
            for include in tree.files.get(file, []):
                if include.is_quoted:
                    visit(include.target, [*trail, file])
            finished.add(file)

    for file in tree.files:
        visit(file, [])
    return problems


def violations(root: Path) -> list[str]:
    tree = Tree(root)
    if not tree.files:
        return [f"{root}: no C++ file found"]
    return table_violations() + include_violations(tree) + folder_violations(tree) + cycle_violations(tree)


def main() -> int:
    parser = argparse.ArgumentParser(description="Checks the direction of every include.")
    parser.add_argument("--root", type=Path, default=Path(__file__).resolve().parent.parent)
    problems = violations(parser.parse_args().root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
