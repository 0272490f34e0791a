#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plants each kind of violation in a small tree and expects it to be found."""

import tempfile
import unittest
from pathlib import Path
from unittest import mock

import check_style

LICENCE = f"// {check_style.LICENCE}\n"
SCRIPT_LICENCE = f"# {check_style.LICENCE}\n"


class StyleTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        reasons = mock.patch.dict(check_style.LONGER_WITH_REASON, clear=True)
        reasons.start()
        self.addCleanup(reasons.stop)
        repository = Path(check_style.__file__).resolve().parent.parent
        (self.root / ".clang-format").write_text((repository / ".clang-format").read_text())
        self.put("src/link/frame.h", LICENCE + "#pragma once\n\nint frame();\n")
        self.put("src/link/frame.cpp", LICENCE + "int frame() {\n    return 1;\n}\n")
        self.put("run", "#!/usr/bin/env bash\n" + SCRIPT_LICENCE + "set -eu\necho hello\n")
        self.put("tools/check.py", SCRIPT_LICENCE + "def check():\n    return 1\n")

    def put(self, path, content):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content if isinstance(content, bytes) else content.encode())

    def assert_only(self, *parts):
        found = check_style.violations(self.root)
        self.assertEqual(len(found), 1, found)
        for part in parts:
            self.assertIn(part, found[0])

    def test_a_clean_tree_has_no_violation(self):
        self.assertEqual(check_style.violations(self.root), [])

    def test_a_file_without_its_licence_line(self):
        self.put("docs/map.md", "# Map\n")
        self.assert_only("docs/map.md", "SPDX")

    def test_what_cannot_carry_a_licence_line_needs_none(self):
        self.put("CMakePresets.json", "{}\n")
        self.put("fuzz/corpus/frames/one", "no newline")
        self.put("tests/picture.png", b"\x89PNG\0\0")
        self.assertEqual(check_style.violations(self.root), [])

    def test_a_file_that_is_not_formatted(self):
        self.put("src/link/frame.cpp", LICENCE + "int frame(){return 1;}\n")
        found = check_style.violations(self.root)
        self.assertTrue(found and all("src/link/frame.cpp:2" in line for line in found), found)

    def test_a_header_that_may_be_read_twice(self):
        self.put("src/link/frame.h", LICENCE + "int frame();\n")
        self.assert_only("src/link/frame.h", "#pragma once")

    def test_a_file_with_a_name_of_another_style(self):
        self.put("src/link/FrameDecoder.cpp", LICENCE)
        self.assert_only("FrameDecoder.cpp", "snake_case")

    def test_a_header_and_a_source_that_are_too_long(self):
        self.put("src/link/frame.h", LICENCE + "#pragma once\n" + "\n//\n" * 75)
        self.assert_only("src/link/frame.h: 152 lines")
        self.put("src/link/frame.h", LICENCE + "#pragma once\n")
        self.put("src/link/frame.cpp", LICENCE + "//\n" * 400)
        self.assert_only("src/link/frame.cpp: 401 lines")

    def test_a_reason_for_a_length_lasts_as_long_as_the_length(self):
        with mock.patch.dict(check_style.LONGER_WITH_REASON, {"src/link/frame.cpp": "a table"}):
            self.assert_only("src/link/frame.cpp", "needs no reason")
            self.put("src/link/frame.cpp", LICENCE + "//\n" * 400)
            self.assertEqual(check_style.violations(self.root), [])
            (self.root / "src/link/frame.cpp").unlink()
            self.assert_only("src/link/frame.cpp", "does not exist")

    def test_a_python_function_that_is_too_long(self):
        self.put("tools/check.py", SCRIPT_LICENCE + "def check():\n" + "    print()\n" * 50)
        self.assert_only("tools/check.py:2", "check has 51 lines")

    def test_python_that_does_not_parse(self):
        self.put("tools/check.py", SCRIPT_LICENCE + "def check(:\n")
        self.assert_only("tools/check.py:2")

    def test_blanks_and_a_missing_newline_at_the_end(self):
        self.put("tools/check.py", SCRIPT_LICENCE + "print() \n")
        self.assert_only("tools/check.py:2", "blanks")
        self.put("tools/check.py", SCRIPT_LICENCE + "print()")
        self.assert_only("tools/check.py", "no newline")

    def test_a_script_with_a_mistake(self):
        self.put("run", "#!/usr/bin/env bash\n" + SCRIPT_LICENCE + "rm -r $1/x\n")
        self.assert_only("run:3", "SC2086")

    def test_a_tool_that_is_missing_is_no_success(self):
        with mock.patch.object(check_style.shutil, "which", return_value=None):
            found = check_style.violations(self.root)
        self.assertEqual([line.split(",")[0] for line in found],
                         ["clang-format is not installed", "shellcheck is not installed"])


if __name__ == "__main__":
    unittest.main()
