#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs clang-tidy over every compiled file of ours, in parallel, and remembers what was clean.

What only tests are built from takes longer than all the rest, so it is looked at where --tests is given, or where it is
named. A file is run again when it, any header of the tree, .clang-tidy, its compile command or clang-tidy itself has
changed.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

TIDY = "clang-tidy"
# Sources that only tests are built from, by their path in the tree; a word that looks like one of them names it.
TEST_SOURCE = re.compile(r"_test\b|_fixture\b|\btest_|\bplatform/contract\b|\btests\b")


class Unit(NamedTuple):
    file: Path
    arguments: list[str]  # the compiler first
    directory: str


def without_launcher(arguments: list[str]) -> list[str]:
    """Drops what stands before the compiler (cmake -E env X=Y ccache): clang-tidy takes the first word for it."""
    for position, word in enumerate(arguments):
        if word.startswith("-") and not word.startswith("-E"):
            return arguments[max(position - 1, 0) :]
    return arguments


def units_of(build: Path, root: Path) -> list[Unit]:
    entries = json.loads((build / "compile_commands.json").read_text())
    units = []
    for entry in entries:
        file = Path(entry["directory"], entry["file"]).resolve()
        if file.is_relative_to(root) and not file.is_relative_to(build):
            units.append(Unit(file, without_launcher(shlex.split(entry["command"])), entry["directory"]))
    return sorted(units)


def selected(units: list[Unit], root: Path, only: list[str], with_tests: bool) -> list[Unit]:
    """The units that are named by a word of `only`, which may be part of their path; all, where there is no word."""
    found = []
    for unit in units:
        path = unit.file.relative_to(root).as_posix()
        words = [word for word in only or [""] if word in path]
        is_wanted = with_tests or not TEST_SOURCE.search(path) or any(TEST_SOURCE.search(word) for word in words)
        if words and is_wanted:
            found.append(unit)
    return found


def digest_of(*parts: bytes) -> str:
    digest = hashlib.sha256()
    for part in parts:
        digest.update(len(part).to_bytes(8, "little") + part)
    return digest.hexdigest()


def surroundings_of(root: Path) -> bytes:
    """What may change the verdict on any file."""
    headers = sorted(path for top in ("src", "fuzz", "tests") for path in (root / top).rglob("*.h"))
    parts = [f"{header.relative_to(root)}\0".encode() + header.read_bytes() for header in headers]
    parts += [config.read_bytes() for config in sorted(root.glob("**/.clang-tidy"))]
    version = subprocess.run([TIDY, "--version"], capture_output=True, check=True).stdout
    return digest_of(version, *parts).encode()


def check(unit: Unit, database: Path) -> tuple[bool, str]:
    # The commands are those of g++, which knows warnings that clang does not.
    command = [TIDY, "--quiet", "--extra-arg=-Wno-unknown-warning-option", "-p", str(database), str(unit.file)]
    outcome = subprocess.run(command, capture_output=True, text=True, check=False)
    noise = ("warnings generated", "warning generated", "Suppressed ", "Use -header-filter", "warnings treated as")
    errors = [line for line in outcome.stderr.splitlines() if not any(part in line for part in noise)]
    said = outcome.stdout.strip() + ("\n" + "\n".join(errors) if outcome.returncode != 0 and errors else "")
    return outcome.returncode == 0 and not outcome.stdout.strip(), said


def write_database(units: list[Unit], folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    entries = [{"directory": u.directory, "file": str(u.file), "arguments": u.arguments} for u in units]
    (folder / "compile_commands.json").write_text(json.dumps(entries))


def run(build: Path, root: Path, jobs: int, only: list[str], with_tests: bool) -> int:
    known = units_of(build, root)
    units = selected(known, root, only, with_tests)
    if not units:
        print(f"{build}/compile_commands.json names no such file of {root}")
        return 1
    cache = build / "tidy"
    write_database(known, cache)
    (cache / "clean").mkdir(exist_ok=True)
    surroundings = surroundings_of(root)
    stamps = {
        unit.file: cache / "clean" / digest_of(surroundings, unit.file.read_bytes(), " ".join(unit.arguments).encode())
        for unit in known
    }
    waiting = [unit for unit in units if not stamps[unit.file].exists()]
    print(f"clang-tidy: {len(waiting)} of {len(units)} files to look at", flush=True)
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for unit, (clean, said) in zip(waiting, pool.map(lambda unit: check(unit, cache), waiting), strict=True):
            if clean:
                stamps[unit.file].touch()
            else:
                failed += 1
                print(f"{unit.file.relative_to(root)}:\n{said}", flush=True)
    for stamp in set((cache / "clean").iterdir()) - set(stamps.values()):
        stamp.unlink()
    print(f"clang-tidy: {failed} files with findings" if failed else "clang-tidy: clean")
    return 1 if failed else 0


def main() -> int:
    root = Path(__file__).resolve().parent.parent
    parser = argparse.ArgumentParser(description="Runs clang-tidy over the tree.")
    parser.add_argument("only", nargs="*", help="only files with this in their path")
    parser.add_argument("--tests", action="store_true", help="also what only tests are built from")
    parser.add_argument("--root", type=Path, default=root)
    parser.add_argument("--build", type=Path, default=root / "build/dev", help="where compile_commands.json is")
    parser.add_argument("--jobs", type=int, default=len(os.sched_getaffinity(0)))
    options = parser.parse_args()
    if not shutil.which(TIDY):
        print(f"{TIDY} is not installed (packaging/debian-packages.txt)")
        return 1
    return run(options.build.resolve(), options.root.resolve(), options.jobs, options.only, options.tests)


if __name__ == "__main__":
    sys.exit(main())
