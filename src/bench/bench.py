#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the measures and holds them against their bars.

Every figure is a ratio to a reference taken in the same run; less is better. The C++ measures are the executables in
build/release/bench, the ones of whole programs are in process_measures.py.
"""

import argparse
import json
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple

import process_measures


class Bar(NamedTuple):
    ratio: float
    measured: str
    reference: str


BARS: dict[str, Bar] = {
    "link.decode": Bar(2.0, "12 MiB attachment and envelope, fed in 64 KiB reads, to the delivered attachment",
                       "memcpy of the same bytes"),
    "link.image-event": Bar(1.2, "a 12 MiB copy published over loopback until the peer has it",
                            "a bare blocking socket sending the same bytes to the same peer"),
    "link.round-trip": Bar(1.6, "a 300-byte request, main queue to main queue and back; a processor for each side",
                           "ping-pong over a bare blocking socket, placed likewise"),
    # Where threads take turns, the one more that reads for the main queue costs two more switches: 7 us in the kernel.
    "link.round-trip-one-processor": Bar(1.9, "the same, both sides on one processor",
                                         "ping-pong over a bare blocking socket, placed likewise"),
    "json.snapshot-read": Bar(1.8, "10 MB snapshot of 10,000 rows into records, thumbnails decoded",
                              "simdjson's DOM parse of the same bytes"),
    "json.snapshot-write": Bar(1.5, "the records of that snapshot written", "json.snapshot-read"),
    "capture.png-to-jpeg": Bar(1.2, "a screenshot of 3840x2160 from PNG to JPEG through the codec port",
                               "libpng and libjpeg-turbo called directly"),
    "panel.filter": Bar(1.5, "three letters typed over 100,000 rows of 200 characters, mixed scripts",
                        "memmem over the same folded bytes"),
    "panel.narrow": Bar(0.34, "the fourth letter", "panel.filter"),
    "panel.reload": Bar(1.3, "a new snapshot of 10,000 rows of 200 characters, until it can be searched",
                        "ICU's case folding of the same text"),
    "panel.reload-stall": Bar(1.0, "the longest turn of the main queue for a snapshot of 10,000 rows", "2 ms"),
    "panel.move": Bar(2.0, "a cursor key in 100,000 rows", "one in 100 rows"),
    "store.snapshot": Bar(2.0, "a snapshot of 2,000 rows out of 100,000 entries, read and written as JSON",
                          "the bare SQLite query for these rows, stepped to its end"),
    "store.snapshot-cached": Bar(2.0, "the answer to the panel where nothing has changed", "memcpy of the bytes into the frame"),
    "store.insert": Bar(1.3, "a copy of 1,000 bytes stored durably",
                        "a bare SQLite insert of the same bytes with the same settings"),
    "store.insert-full": Bar(2.0, "the same in a full history, from which another copy falls out",
                             "the same insert, which lets nothing fall out"),
    "store.search": Bar(4.0, "`list --search` over 100,000 entries of 200 characters",
                        "memmem over the same folded bytes, entry by entry"),
    "store.image": Bar(1.3, "a JPEG of 12 MiB stored with its thumbnail",
                       "libjpeg-turbo's scaled decoding and encoding, and a bare insert"),
    "idle.wakeups": Bar(3.0, "context switches a second of vexil-shortcut, connected and idle, over 30 s",
                        "2.0: 1.33 for the poll and 0.33 for the heartbeat, rounded up"),
    "idle.memory": Bar(0.25, "proportional memory of vexil-shortcut, connected and idle",
                       "all processes of an idle copyq server"),
    "start.cold": Bar(0.2, "exec of vexil-shortcut to its first heartbeat",
                      "copyq --start-server until it answers"),
}


class Figure(NamedTuple):
    """What a measure printed, and what to make of it."""

    name: str
    values: dict
    error: str

    @property
    def ratio(self) -> float | None:
        if self.error or not self.values["reference"]:
            return None
        return self.values["measured"] / self.values["reference"]

    @property
    def verdict(self) -> str:
        if self.error or self.ratio is None:
            return "ERROR"
        if self.name not in BARS:
            return "-"
        return "ok" if self.ratio <= BARS[self.name].ratio else "SHORT"


def executables_in(build: Path) -> dict[str, Path]:
    """Measure -> the executable that takes it."""
    found = {}
    for path in sorted((build / "bench").glob("*")):
        if path.is_file() and path.stat().st_mode & 0o111:
            listed = subprocess.run([path, "--list"], capture_output=True, text=True, check=True)
            found.update(dict.fromkeys(listed.stdout.split(), path))
    return found


def figure_from_executable(path: Path, name: str) -> Figure:
    outcome = subprocess.run([path, "--only", name], capture_output=True, text=True, check=False)
    if outcome.returncode != 0:
        return Figure(name, {}, outcome.stderr.strip() or f"{path.name} ended with {outcome.returncode}")
    try:
        values = json.loads(outcome.stdout)
    except ValueError:
        return Figure(name, {}, f"{path.name} printed no JSON: {outcome.stdout[:100]!r}")
    return Figure(name, values, "")


def figure_of(name: str, build: Path, executables: dict[str, Path]) -> Figure:
    if name in process_measures.MEASURES:
        try:
            return Figure(name, process_measures.MEASURES[name](build), "")
        except process_measures.CannotMeasure as reason:
            return Figure(name, {}, str(reason))
    if name in executables:
        return figure_from_executable(executables[name], name)
    return Figure(name, {}, f"no executable in {build}/bench takes this measure")


def number(value: float) -> str:
    return f"{value:.0f}" if value >= 1000 else f"{value:.3g}"


def line_of(figure: Figure) -> str:
    bar = BARS.get(figure.name)
    if figure.ratio is None:
        return f"{figure.name:<24} ERROR  {figure.error or 'the reference is zero'}"
    unit = figure.values["unit"]
    measured, reference = number(figure.values["measured"]), number(figure.values["reference"])
    line = f"{figure.name:<24} {measured:>6} {unit:<4} reference {reference:>6} {unit:<4} ratio {figure.ratio:5.2f}"
    if bar:
        line += f"  bar {bar.ratio:4.2f}  {figure.verdict:<5}  {bar.measured} / {bar.reference}"
    for key, value in figure.values.get("also", {}).items():
        line += f"; {key} {value}"
    return line


def json_of(figure: Figure) -> dict:
    bar = BARS.get(figure.name)
    texts = {"what": bar.measured, "reference_is": bar.reference, "bar": bar.ratio} if bar else {}
    outcome = {"verdict": figure.verdict, "ratio": figure.ratio}
    return {"name": figure.name, **texts, **figure.values, **outcome, **({"error": figure.error} if figure.error else {})}


def options() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./bench", description="One line per measure: measured, reference, their ratio, its bar, ok or SHORT.")
    parser.add_argument("names", nargs="*", metavar="NAME", help="only these measures")
    parser.add_argument("--check", action="append", default=[], metavar="NAME",
                        help="only this measure; the exit status tells whether its bar is met")
    parser.add_argument("--json", action="store_true", help="one JSON array instead of lines")
    parser.add_argument("--list", action="store_true", help="names, bars and what is measured")
    parser.add_argument("--build", type=Path, default=Path("build/release"), help=argparse.SUPPRESS)
    return parser.parse_args()


def main() -> int:
    chosen = options()
    if chosen.list:
        for name, bar in BARS.items():
            print(f"{name:<24} at most {bar.ratio:4.2f}  {bar.measured} / {bar.reference}")
        return 0
    build = chosen.build.resolve()
    executables = executables_in(build)
    every = [*BARS, *sorted(set(executables) - set(BARS))]
    names = [*chosen.names, *chosen.check] or every
    if unknown := [name for name in names if name not in every]:
        print(f"no measure is called {', '.join(unknown)}; ./bench --list names them", file=sys.stderr)
        return 2
    figures = []
    for name in names:
        figures.append(figure_of(name, build, executables))
        if not chosen.json:
            print(line_of(figures[-1]), flush=True)
    if chosen.json:
        print(json.dumps([json_of(figure) for figure in figures], indent=2))
    return 1 if any(figure.verdict in ("SHORT", "ERROR") for figure in figures) else 0


if __name__ == "__main__":
    sys.exit(main())
