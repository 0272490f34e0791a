#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs bench.py on executables that print what the test wants."""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SCRIPT = """#!/bin/sh
[ "$1" = --list ] && { echo NAME; exit 0; }
BODY
"""


class BenchTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = Path(folder.name)
        (self.build / "bench").mkdir()

    def put(self, name, body):
        path = self.build / "bench" / name
        path.write_text(SCRIPT.replace("NAME", name).replace("BODY", body))
        path.chmod(0o755)

    def put_figure(self, name, measured, reference):
        values = {"name": name, "unit": "ms", "measured": measured, "reference": reference}
        self.put(name, f"echo '{json.dumps(values)}'")

    def bench(self, *arguments):
        script = Path(__file__).with_name("bench.py")
        return subprocess.run([sys.executable, "-B", script, "--build", self.build, *arguments],
                              capture_output=True, text=True, check=False)

    def test_a_ratio_within_its_bar_is_ok(self):
        self.put_figure("link.decode", 19, 10)
        outcome = self.bench("--check", "link.decode")
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertRegex(outcome.stdout, r"^link\.decode .* ratio +1\.90 +bar 2\.00 +ok ")

    def test_a_ratio_beyond_its_bar_is_short_and_fails_the_check(self):
        self.put_figure("link.decode", 21, 10)
        outcome = self.bench("--check", "link.decode")
        self.assertEqual(outcome.returncode, 1)
        self.assertIn("SHORT", outcome.stdout)

    def test_a_measure_without_an_executable_is_an_error(self):
        outcome = self.bench("--check", "link.decode")
        self.assertEqual(outcome.returncode, 1)
        self.assertRegex(outcome.stdout, "^link.decode +ERROR +no executable")

    def test_an_executable_that_fails_is_an_error_with_its_words(self):
        self.put("link.decode", "echo no peer >&2; exit 1")
        outcome = self.bench("link.decode")
        self.assertEqual(outcome.returncode, 1)
        self.assertIn("no peer", outcome.stdout)

    def test_an_executable_that_prints_something_else_is_an_error(self):
        self.put("link.decode", "echo fast")
        self.assertIn("printed no JSON", self.bench("link.decode").stdout)

    def test_a_reference_of_zero_is_an_error(self):
        self.put_figure("link.decode", 1, 0)
        self.assertEqual(self.bench("--check", "link.decode").returncode, 1)

    def test_a_program_that_is_missing_is_an_error(self):
        outcome = self.bench("--check", "idle.wakeups")
        self.assertEqual(outcome.returncode, 1)
        self.assertRegex(outcome.stdout, "^idle.wakeups +ERROR .*vexil-shortcut")

    def test_a_measure_without_a_bar_is_reported_without_a_verdict(self):
        self.put_figure("json.growth", 5, 1)
        outcome = self.bench("json.growth")
        self.assertEqual(outcome.returncode, 0)
        self.assertRegex(outcome.stdout, r"^json\.growth .* ratio +5\.00$")

    def test_a_name_that_nobody_knows_is_refused(self):
        outcome = self.bench("--check", "link.speed")
        self.assertEqual(outcome.returncode, 2)
        self.assertIn("link.speed", outcome.stderr)

    def test_json_says_the_same(self):
        self.put_figure("link.decode", 30, 10)
        outcome = self.bench("--json", "link.decode")
        self.assertEqual(outcome.returncode, 1)
        figure = json.loads(outcome.stdout)[0]
        self.assertEqual((figure["name"], figure["ratio"], figure["bar"], figure["verdict"]),
                         ("link.decode", 3.0, 2.0, "SHORT"))


if __name__ == "__main__":
    unittest.main()
