#!/usr/bin/env python3
"""Counts code lines per folder, in C, C++, JavaScript, Python and shell, without blank lines and comments, and the
share of the tests.

With --strict the exit code is 1 when tests and fuzzers are not a quarter to a third of all code lines.
"""
import ast
import collections
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TESTS = {"tests", "fuzz"}

# A comment, or a literal that may hold what looks like one.
C_TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<tag>[^(\s]*)\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'',
    re.DOTALL)
LANGUAGES = {".c": "c", ".cpp": "c", ".h": "c", ".mjs": "c", ".py": "python", ".sh": "shell"}


def language(path, text):
    """Scripts without an ending say what they are in their first line."""
    if not path.suffix and text.startswith("#!"):
        return "python" if "python" in text.split("\n")[0] else "shell"
    return LANGUAGES.get(path.suffix)


def filled(text):
    return {number for number, line in enumerate(text.splitlines(), 1) if line.strip()}


def code_lines(path, text):
    kind = language(path, text)
    if kind is None:
        return 0
    if kind == "c":
        def replace(match):
            token = match[0]
            return "\n" * token.count("\n") if token.startswith("/") else token
        return len(filled(C_TOKEN.sub(replace, text)))
    lines = filled(re.sub(r"^\s*#.*", "", text, flags=re.MULTILINE))
    if kind == "python":
        for node in ast.walk(ast.parse(text)):  # a string by itself is a comment
            if isinstance(node, ast.Expr) and isinstance(node.value, ast.Constant):
                lines -= set(range(node.lineno, node.end_lineno + 1))
    return len(lines)


def main():
    names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, capture_output=True,
                           text=True, check=True).stdout.splitlines()
    lines = collections.Counter()
    for name in names:
        path = ROOT / name
        if path.is_file() and path.suffix in {"", *LANGUAGES}:
            folder = name.split("/")[0] if "/" in name else "."
            lines[folder] += code_lines(path, path.read_text())
    for folder, count in sorted(lines.items()):
        if count:
            print(f"{folder:12}{count:8}")
    total = sum(lines.values())
    tests = sum(lines[folder] for folder in TESTS)
    share = tests / total if total else 0
    print(f"{'all':12}{total:8}\ntests and fuzz: {tests} lines, {100 * share:.1f} %")
    if "--strict" in sys.argv and not 1 / 4 <= share <= 1 / 3:
        print("the share of the tests should be a quarter to a third")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
