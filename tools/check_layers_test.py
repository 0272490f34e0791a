#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Plants each kind of violation in a small tree and expects it to be found."""

import tempfile
import unittest
from pathlib import Path

import check_layers


class LayersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        self.put("src/base/bytes.h")
        self.put("src/platform/pasteboard.h", "base/bytes.h")
        self.put("src/platform/memory/memory_pasteboard.h", "platform/pasteboard.h")
        self.put("src/platform/linux/x11_pasteboard.h", "platform/pasteboard.h", "<xcb/xcb.h>")
        self.put("src/link/frame.h", "base/bytes.h")

    def put(self, path, *includes):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        lines = [f"#include {target}" if target.startswith("<") else f'#include "{target}"' for target in includes]
        file.write_text("\n".join(["#pragma once", *lines, ""]))

    def assert_only(self, *parts):
        found = check_layers.violations(self.root)
        self.assertEqual(len(found), 1, found)
        for part in parts:
            self.assertIn(part, found[0])

    def test_a_clean_tree_has_no_violation(self):
        self.assertEqual(check_layers.violations(self.root), [])

    def test_an_empty_tree_is_not_clean(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(len(check_layers.violations(Path(folder))), 1)

    def test_base_includes_nothing_of_ours(self):
        self.put("src/platform/wall_clock.h")
        self.put("src/base/text.cpp", "platform/wall_clock.h")
        found = check_layers.violations(self.root)
        self.assertIn('base/text.cpp:2: base must not include platform ("platform/wall_clock.h")', found)

    def test_a_lower_folder_does_not_include_a_higher_one(self):
        self.put("src/capture/clipboard_watcher.h")
        self.put("src/link/server.cpp", "capture/clipboard_watcher.h")
        self.assert_only("link must not include capture")

    def test_panel_and_hosts_do_not_know_each_other(self):
        self.put("src/hosts/writer.h")
        self.put("src/panel/model.cpp", "hosts/writer.h")
        self.assert_only("panel must not include hosts")

    def test_only_a_main_file_names_real_implementations(self):
        self.put("src/app/main_linux.cpp", "platform/linux/x11_pasteboard.h")
        self.put("src/store/main_store.cpp", "platform/linux/x11_pasteboard.h")
        self.assertEqual(check_layers.violations(self.root), [])
        self.put("src/app/delegate.cpp", "platform/linux/x11_pasteboard.h")
        self.assert_only("app/delegate.cpp:2", "app must not include platform/linux")

    def test_the_exception_for_a_folder_does_not_open_the_folders_below(self):
        self.put("src/platform/linux/qt/window.h")
        self.put("src/app/main_linux.cpp", "platform/linux/qt/window.h")
        self.assert_only("app must not include platform/linux/qt")

    def test_only_tests_run_on_the_memory_ports(self):
        self.put("src/link/frame_test.cpp", "platform/memory/memory_pasteboard.h", "<gtest/gtest.h>")
        self.assertEqual(check_layers.violations(self.root), [])
        self.put("src/link/server.cpp", "platform/memory/memory_pasteboard.h")
        self.assert_only("link must not include platform/memory")

    def test_only_two_folders_know_qt(self):
        self.put("src/panel/views/list_view.cpp", "<QListView>", "<QtWidgets/QWidget>")
        self.assertEqual(check_layers.violations(self.root), [])
        self.put("src/panel/model.cpp", "<QString>")
        self.assert_only("panel must not know Qt", "<QString>")

    def test_a_library_stays_in_its_folder(self):
        self.put("src/link/server.cpp", "<simdjson.h>")
        self.assert_only("link must not know simdjson")

    def test_the_authority_file_of_x_is_not_all_of_xlib(self):
        self.put("src/platform/linux/connect.cpp", "<X11/Xauth.h>")
        self.assertEqual(check_layers.violations(self.root), [])
        self.put("src/platform/linux/connect.cpp", "<X11/Xlib.h>")
        self.assert_only("platform/linux must not know Xlib")

    def test_the_helper_sees_the_records_only(self):
        self.put("src/link/hosts_records.h")
        self.put("src/helper/service.cpp", "link/hosts_records.h")
        self.assertEqual(check_layers.violations(self.root), [])
        self.put("src/helper/other.cpp", "link/frame.h")
        self.assert_only("helper must not include link")

    def test_two_folders_do_not_include_each_other(self):
        self.put("src/platform/memory/more.h")
        self.put("src/platform/pasteboard_test.cpp", "platform/memory/more.h")
        self.assert_only("platform and platform/memory include each other")

    def test_files_do_not_include_each_other_in_a_circle(self):
        self.put("src/link/a.h", "link/b.h")
        self.put("src/link/b.h", "link/c.h")
        self.put("src/link/c.h", "link/a.h")
        self.assert_only("cycle: link/a.h -> link/b.h -> link/c.h -> link/a.h")

    def test_a_folder_without_a_place_is_a_failure(self):
        self.put("src/utils/strings.h")
        self.assert_only("utils", "not in the table")

    def test_a_file_without_a_folder_is_a_failure(self):
        self.put("src/everything.h")
        self.assert_only("everything.h", "not in the table")

    def test_our_own_files_are_included_from_src_and_in_quotes(self):
        self.put("src/link/server.cpp", "frame.h")
        self.assert_only('"frame.h" is no file of the tree')
        self.put("src/link/server.cpp", "<link/frame.h>")
        self.assert_only("angle brackets")

    def test_fuzz_targets_are_checked_too(self):
        self.put("src/capture/watcher.h")
        self.put("fuzz/deep/frames_fuzz.cpp", "capture/watcher.h")
        self.assert_only("fuzz must not include capture")

    def test_the_table_goes_one_way(self):
        self.assertEqual(check_layers.table_violations(), [])


if __name__ == "__main__":
    unittest.main()
