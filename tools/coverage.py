#!/usr/bin/env python3
"""Prints how much of each library source the tests of build/coverage ran, the least covered first.

Run `./test coverage` before. With names of sources as arguments, prints their lines that never ran.
"""
import collections
import json
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "coverage"
FOLDERS = ("platform", "core", "io", "formats", "process", "dispatch")


def main():
    counts = collections.defaultdict(collections.Counter)  # source: {line: times}
    for data in BUILD.glob("CMakeFiles/tq_*.dir/**/*.gcda"):
        report = subprocess.run(["gcov", "--json-format", "--stdout", str(data)], cwd=BUILD, check=True,
                                capture_output=True, text=True).stdout
        for line in report.splitlines():
            for entry in json.loads(line)["files"]:
                path = (BUILD / entry["file"]).resolve()
                if not path.is_relative_to(ROOT) or path.relative_to(ROOT).parts[0] not in FOLDERS:
                    continue
                name = str(path.relative_to(ROOT))
                for each in entry["lines"]:
                    counts[name][each["line_number"]] += each["count"]
    if not counts:
        print("no data: run ./test coverage first")
        return 1
    for wanted in sys.argv[1:]:
        text = (ROOT / wanted).read_text().splitlines()
        for number, times in sorted(counts[wanted].items()):
            if times == 0:
                print(f"{wanted}:{number}: {text[number - 1].strip()}")
    if len(sys.argv) > 1:
        return 0
    rates = sorted((sum(map(bool, lines.values())) / len(lines), name) for name, lines in counts.items())
    for rate, name in rates:
        print(f"{100 * rate:5.1f} %  {name}")
    lines = sum(map(len, counts.values()))
    ran = sum(sum(map(bool, each.values())) for each in counts.values())
    print(f"{100 * ran / lines:5.1f} %  of {lines} lines")
    return 0


if __name__ == "__main__":
    sys.exit(main())
