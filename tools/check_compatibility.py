#!/usr/bin/env python3
"""Checks that docs/compatibility.md and the code name the same rules that callers rely on.

Every line "| rule | file: function | test |" of the document names a source file, a word in it and a
test; every source file that says "callers rely" has at least one line for each time it says so.
"""
import collections
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ["api", "core", "io", "pixels", "coding", "formats", "process", "dispatch", "include"]
ROW = re.compile(r"^\| (?P<rule>[^|]+) \| `(?P<file>[^`:]+): (?P<word>[^`]+)` \| `(?P<test>[^`]+)` \|$")
# A comment may break the words over two lines.
REMARK = re.compile(r"callers\s+(?://|\*)?\s*rely", re.IGNORECASE)


def listed(*patterns):
    names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", *patterns],
                           cwd=ROOT, capture_output=True, text=True, check=True).stdout.splitlines()
    return {name: (ROOT / name).read_text() for name in names if (ROOT / name).exists()}


def main():
    sources = {name: text for name, text in listed("*.cpp", "*.h").items()
               if name.split("/")[0] in FOLDERS}
    tests = "\n".join(listed("tests/*.cpp", "tests/*.py").values())
    rules, complaints = collections.Counter(), []
    lines = (ROOT / "docs/compatibility.md").read_text().splitlines()
    for number, line in enumerate(lines, 1):
        if not line.startswith("| ") or line.startswith(("| Rule ", "| ---")):
            continue
        row = ROW.match(line)
        if not row:
            complaints.append(f"line {number} is no row: {line}")
            continue
        rules[row["file"]] += 1
        if row["word"] not in sources.get(row["file"], ""):
            complaints.append(f"line {number}: no {row['word']} in {row['file']}")
        suite, _, name = row["test"].partition(".")
        if not re.search(rf"\b{suite}\b(, {name}\b|.*{name})", tests) or name not in tests:
            complaints.append(f"line {number}: no test {row['test']}")
    for name, text in sources.items():
        said = len(REMARK.findall(text))
        if said > rules[name]:
            complaints.append(f"{name} says {said} times that callers rely on it, "
                              f"the document {rules[name]} times")
    for complaint in complaints:
        print(f"docs/compatibility.md: {complaint}")
    print(f"{sum(rules.values())} rules, {len(complaints)} complaints")
    return 1 if complaints or not rules else 0


if __name__ == "__main__":
    sys.exit(main())
