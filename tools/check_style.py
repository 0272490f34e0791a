#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks what a file looks like: format, licence line, names, sizes, shell scripts.

Prints one line per violation and ends with status 1 where there is any. The sizes of C++ functions are clang-tidy's
business.
"""

import argparse
import ast
import re
import shutil
import subprocess
import sys
from pathlib import Path

LICENCE = "SPDX-License-Identifier: Apache-2.0"
CXX = {".h", ".cpp"}

# Cannot carry a comment, or must stay as it is, byte for byte.
WITHOUT_LICENCE_LINE = [r"LICENSE", r".*\.json", r"fuzz/corpus/.*", r"fuzz/.*\.dict", r".*/(data|golden|corpus)/.*"]

FILE_NAME = re.compile(r"[a-z0-9_]+\.(h|cpp|py|cmake)")
OTHER_FILE_NAMES = {"Vexil.cmake"}

LINE_LIMITS = {".h": 150, ".cpp": 400, ".py": 400}
PYTHON_FUNCTION_LIMIT = 50
# File -> why it is longer than the limit, and better so.
LONGER_WITH_REASON: dict[str, str] = {
    "src/link/clipboard_records.h": "a list of plain records, read like a table",
    "src/base/json_fields.h": "templates: readers and writers of one kind of value stand side by side",
    "src/link/clipboard_link_connection_test.cpp": "independent cases of one class, found by their names",
    "src/panel/clipboard_edit_session_test.cpp": "every way into and out of every state, side by side",
    "src/link/clipboard_link_server_test.cpp": "independent cases of one class, found by their names",
    "src/platform/contract/notifications_contract_test.cpp": "independent cases of one port, found by their names",
    "src/platform/contract/loopback_tcp_contract_test.cpp": "independent cases of one port, found by their names",
    "src/platform/memory/memory_loopback_tcp.cpp": "both ends of a stream and what may break between them",
}


def files_of(root: Path) -> list[str]:
    """What git has or would add; every file but those of a build where there is no git."""
    listed = subprocess.run(
        ["git", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        capture_output=True,
        check=False,
    ) if (root / ".git").exists() and shutil.which("git") else None
    if listed and listed.returncode == 0:
        names = set(listed.stdout.decode().split("\0")) - {""}
    else:
        skipped = {"build", ".git", ".cache", "__pycache__", ".pytest_cache"}
        paths = (path.relative_to(root) for path in root.rglob("*"))
        names = {path.as_posix() for path in paths if not skipped & set(path.parts)}
    return sorted(name for name in names if (root / name).is_file())


def is_text(content: bytes) -> bool:
    return b"\0" not in content[:4096]


def text_violations(file: str, content: bytes) -> list[str]:
    if any(re.fullmatch(pattern, file) for pattern in WITHOUT_LICENCE_LINE) or not is_text(content):
        return []
    problems = []
    if LICENCE not in "\n".join(content.decode("utf-8", "replace").splitlines()[:3]):
        problems.append(f"{file}: no line with {LICENCE}")
    if content and not content.endswith(b"\n"):
        problems.append(f"{file}: no newline at the end")
    for number, line in enumerate(content.split(b"\n"), start=1):
        if line.rstrip(b" \t\r") != line:
            problems.append(f"{file}:{number}: blanks at the end of the line")
    return problems


def source_violations(file: str, content: bytes) -> list[str]:
    path = Path(file)
    problems = []
    if path.suffix in (*CXX, ".py", ".cmake"):
        if not FILE_NAME.fullmatch(path.name) and path.name not in OTHER_FILE_NAMES:
            problems.append(f"{file}: file names are snake_case")
    if path.suffix == ".h" and b"\n#pragma once\n" not in content:
        problems.append(f"{file}: no #pragma once")
    lines, limit = content.count(b"\n"), LINE_LIMITS.get(path.suffix)
    if limit and lines > limit and file not in LONGER_WITH_REASON:
        problems.append(f"{file}: {lines} lines, more than {limit}: split it by meaning, or give the reason here")
    if file in LONGER_WITH_REASON and limit and lines <= limit:
        problems.append(f"{file}: fits the limit again, so it needs no reason any more")
    return problems


def python_violations(file: str, content: bytes) -> list[str]:
    try:
        module = ast.parse(content, file)
    except SyntaxError as error:
        return [f"{file}:{error.lineno}: {error.msg}"]
    problems = []
    for node in ast.walk(module):
        if isinstance(node, ast.FunctionDef | ast.AsyncFunctionDef):
            lines = (node.end_lineno or node.lineno) - node.lineno + 1
            if lines > PYTHON_FUNCTION_LIMIT:
                problems.append(f"{file}:{node.lineno}: {node.name} has {lines} lines, more than {PYTHON_FUNCTION_LIMIT}")
    return problems


def output_of(root: Path, tool: str, arguments: list[str], files: list[str]) -> list[str]:
    """One violation per line that the tool prints; a tool that is not there is one as well."""
    if not files:
        return []
    if not shutil.which(tool):
        return [f"{tool} is not installed, so {len(files)} files could not be checked"]
    outcome = subprocess.run([tool, *arguments, *files], cwd=root, capture_output=True, text=True, check=False)
    if outcome.returncode == 0:
        return []
    lines = (outcome.stdout + outcome.stderr).strip().splitlines()
    return lines or [f"{tool} ended with {outcome.returncode}"]


def violations(root: Path) -> list[str]:
    problems = []
    formatted, scripts = [], []
    for file in files_of(root):
        content = (root / file).read_bytes()
        problems += text_violations(file, content) + source_violations(file, content)
        if Path(file).suffix in CXX:
            formatted.append(file)
        elif Path(file).suffix == ".py":
            problems += python_violations(file, content)
        elif Path(file).suffix == ".sh" or re.match(rb"#!.*\b(ba)?sh\b", content):
            scripts.append(file)
    for file in LONGER_WITH_REASON:
        if not (root / file).is_file():
            problems.append(f"{file}: does not exist, so it needs no reason for its length")
    format_lines = output_of(root, "clang-format", ["--dry-run", "-Werror", "--style=file"], formatted)
    problems += [line for line in format_lines if "error:" in line or "is not installed" in line]
    problems += output_of(root, "shellcheck", ["--format=gcc"], scripts)
    return problems


def main() -> int:
    parser = argparse.ArgumentParser(description="Checks format, licence lines, names and sizes.")
    parser.add_argument("--root", type=Path, default=Path(__file__).resolve().parent.parent)
    problems = violations(parser.parse_args().root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
