#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plants findings in a small tree and expects run_tidy.py to fail on them, and to remember what was clean."""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
CLEAN = "int twice(int number) {\n    return 2 * number;\n}\n"


class TidyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name).resolve()
        self.build = self.root / "build"
        self.build.mkdir()
        self.entries = {}
        (self.root / "src").mkdir()
        (self.root / ".clang-tidy").write_text((HERE.parent / ".clang-tidy").read_text())
        self.put(CLEAN)

    def put(self, content, name="src/thing.cpp"):
        file = self.root / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(content)
        flags = "-std=c++20 -Wall -Wextra -Wconversion -Wshadow -Werror -Wno-maybe-uninitialized"
        command = f"/usr/bin/cmake -E env CCACHE_NOHASHDIR=1 /usr/bin/ccache /usr/bin/c++ {flags} " \
                  f"-I{self.root}/src -o {file.stem}.o -c {file}"
        self.entries[name] = {"directory": str(self.build), "command": command, "file": str(file)}
        (self.build / "compile_commands.json").write_text(json.dumps(list(self.entries.values())))

    def tidy(self, *arguments):
        command = [sys.executable, "-B", HERE / "run_tidy.py", "--root", self.root, "--build", self.build, *arguments]
        return subprocess.run(command, capture_output=True, text=True, check=False)

    def assert_finds(self, *words):
        outcome = self.tidy()
        self.assertEqual(outcome.returncode, 1, outcome.stdout)
        for word in words:
            self.assertIn(word, outcome.stdout)

    def test_a_clean_file_passes_and_is_not_looked_at_again(self):
        first, second = self.tidy(), self.tidy()
        self.assertEqual((first.returncode, second.returncode), (0, 0), first.stdout)
        self.assertIn("1 of 1 files to look at", first.stdout)
        self.assertIn("0 of 1 files to look at", second.stdout)

    def test_a_new_header_makes_it_look_again(self):
        self.tidy()
        (self.root / "src/other.h").write_text("#pragma once\n")
        self.assertIn("1 of 1 files to look at", self.tidy().stdout)

    def test_what_only_tests_are_built_from_is_looked_at_on_demand(self):
        for name in ("src/thing_test.cpp", "src/thing_fixture.cpp", "src/platform/contract/peer.cpp", "tests/e2e/owner.cpp"):
            self.put("int* none() {\n    return 0;\n}\n", name)
        usual = self.tidy()
        self.assertEqual(usual.returncode, 0, usual.stdout)
        self.assertIn("1 of 1 files", usual.stdout)
        self.assertIn("0 of 1 files", self.tidy("src").stdout)
        self.assertIn("4 of 5 files", self.tidy("--tests").stdout)
        for word in ("src/thing_test.cpp", "thing_fixture", "platform/contract", "tests/e2e"):
            named = self.tidy(word)
            self.assertEqual(named.returncode, 1, named.stdout)
            self.assertIn("1 of 1 files", named.stdout)

    def test_a_look_at_some_forgets_nothing_about_the_others(self):
        self.put(CLEAN, "src/other.cpp")
        self.tidy()
        self.tidy("src/other.cpp")
        self.assertIn("0 of 2 files", self.tidy().stdout)

    def test_a_word_that_names_nothing_is_no_success(self):
        self.assertEqual(self.tidy("nowhere").returncode, 1)

    def test_names_are_held_to_their_style(self):
        self.put("int Twice(int a_number) {\n    return 2 * a_number;\n}\n")
        self.assert_finds("function 'Twice'", "parameter 'a_number'", "readability-identifier-naming")

    def test_a_finding_is_found_again_until_it_is_mended(self):
        self.put("int* none() {\n    return 0;\n}\n")
        self.assert_finds("modernize-use-nullptr")
        self.assert_finds("modernize-use-nullptr")
        self.put(CLEAN)
        self.assertEqual(self.tidy().returncode, 0)

    def test_a_finding_in_a_header_of_ours_counts(self):
        (self.root / "src/other.h").write_text("#pragma once\ninline int* none() {\n    return 0;\n}\n")
        self.put('#include "other.h"\n' + CLEAN)
        self.assert_finds("other.h:3", "modernize-use-nullptr")

    def test_a_warning_of_clang_counts(self):
        self.put("short narrow(int number) {\n    return number;\n}\n")
        self.assert_finds("implicit conversion")

    def test_a_long_function_counts(self):
        self.put("int many(int number) {\n" + "    ++number;\n" * 60 + "    return number;\n}\n")
        self.assert_finds("readability-function-size")

    def test_code_that_does_not_compile_is_no_success(self):
        self.put("int twice(int number) { return nmber; }\n")
        self.assert_finds("nmber")

    def test_a_build_that_compiles_nothing_is_no_success(self):
        (self.build / "compile_commands.json").write_text("[]")
        self.assertEqual(self.tidy().returncode, 1)

    def test_each_check_that_is_off_has_its_reason(self):
        text = (HERE.parent / ".clang-tidy").read_text()
        comments = [line for line in text.splitlines() if line.startswith("# ")]
        for line in text.splitlines():
            if line.startswith("  -") and not line.startswith(("  - ", "  -*")):
                check = line.strip(" -,")
                self.assertTrue(any(comment.startswith(f"# {check}: ") for comment in comments), check)


if __name__ == "__main__":
    unittest.main()
