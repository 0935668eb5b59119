#!/usr/bin/env python3
"""Counts code lines per folder, without blank lines and comments, and the share of the tests.

With --strict the exit code is 1 when tests and fuzzers are not 25 to 33 % of all code lines.
"""
import collections
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TESTS = {"tests", "fuzz"}
LEAST, MOST = 25, 33  # per cent

# A comment, or a literal that may hold what looks like one.
TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(?P<tag>[^(\s]*)\(.*?\)(?P=tag)"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'',
    re.DOTALL)


def code_lines(text):
    def replace(match):
        token = match[0]
        return "\n" * token.count("\n") if token.startswith("/") else token

    return sum(1 for line in TOKEN.sub(replace, text).splitlines() if line.strip())


def main():
    files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", "*.cpp", "*.h", "*.c"],
                           cwd=ROOT, capture_output=True, text=True, check=True).stdout.splitlines()
    lines = collections.Counter()
    for name in files:
        if (ROOT / name).exists():
            lines[name.split("/")[0]] += code_lines((ROOT / name).read_text())
    for folder, count in sorted(lines.items()):
        print(f"{folder:12}{count:8}")
    total = sum(lines.values())
    tests = sum(lines[folder] for folder in TESTS)
    share = 100 * tests / total if total else 0
    print(f"{'all':12}{total:8}\ntests and fuzz: {tests} lines, {share:.1f} %")
    if "--strict" in sys.argv and not LEAST <= share <= MOST:
        print(f"the share of the tests should be {LEAST} to {MOST} %")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
