#!/usr/bin/env python3
"""Checks that every #include follows the direction of the folders. Names file, line and rule."""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
if len(sys.argv) > 1:
    ROOT = pathlib.Path(sys.argv[1])

# Folder: the folders whose headers it may include, besides its own and the public header.
MAY_INCLUDE = {
    "include": set(),
    "platform": set(),
    "core": {"platform"},
    "io": {"core", "platform"},
    "pixels": {"core", "platform"},
    "coding": {"io", "core", "platform"},
    "formats": {"coding", "pixels", "io", "core", "platform"},
    "process": {"pixels", "core", "platform"},
    "show": {"pixels", "core", "platform"},
    "scan": {"dispatch", "formats", "pixels", "io", "core", "platform"},
    "dispatch": {"formats", "pixels", "io", "core", "platform"},
    "api": {"dispatch", "process", "show", "scan", "formats", "io", "core", "platform"},
    # Linked with the objects of what it includes, loaded apart.
    "modules": {"formats", "coding", "pixels", "io", "core", "platform"},
}
# Printed pages are diffused as images are.
ALSO_INCLUDES = {"show/print.cpp": {"process/process.h", "process/frame.h"}}
# Outside of the library: what may see its inside, and what sees the public header only.
INSIDERS = {"tests", "fuzz", "bench"}
OUTSIDERS = ("tests/api", "tests/package", "tools", "examples", "bindings")
PUBLIC = ("tarnquill.h", "include/tarnquill.h", "tarnquill_plugin.h", "include/tarnquill_plugin.h")
FOLDERS = set(MAY_INCLUDE) - {"include"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')
SYSTEM_HEADER = re.compile(r"windows\.h|unistd\.h|dlfcn\.h|fcntl\.h|sys/.*|pthread\.h")
SYSTEM_MACRO = re.compile(r"^\s*#\s*(?:el)?if.*\b(_WIN32|__linux__|__unix__|__APPLE__)\b")


def family(path):
    """formats/bmp/bmp_decode.cpp -> bmp, as for its module; nothing for formats/codec.h and other folders."""
    parts = path.split("/")
    return parts[1] if parts[0] in ("formats", "modules") and len(parts) >= 3 else None


def broken_rule(source, quote, target):
    """The rule that `#include` of `target` in `source` breaks, or None."""
    folder = source.split("/")[0]
    inside = target.split("/")[0]
    outsider = source.startswith(OUTSIDERS)
    library = folder in MAY_INCLUDE
    if library and target.endswith("tarnquill_plugin.h") and not source.startswith(
            ("formats/plugin/", "formats/tiff/", "formats/coded_picture.h", "modules/")):
        return "only formats/plugin/, formats/tiff/, formats/coded_picture.h and modules/ know modules"
    if target in PUBLIC:
        return None
    if folder == "include":
        return None if quote == "<" else "the public header includes standard headers only"
    if library and folder != "platform" and SYSTEM_HEADER.fullmatch(target):
        return "only platform/ includes system headers"
    if quote == "<":
        return f"<{target}>: the library's own headers are included in quotes" if inside in FOLDERS else None
    if outsider:
        return f"{folder}/ sees the public header only" if inside in FOLDERS else None
    if inside not in FOLDERS:
        if not library:
            return None
        return "headers are included by their path from the root" if not (ROOT / target).exists() \
            else f"the library does not include {inside}/"
    if folder in INSIDERS:
        return None
    if target in ALSO_INCLUDES.get(source, ()):
        return None
    if inside != folder and inside not in MAY_INCLUDE[folder]:
        allowed = ", ".join(sorted(MAY_INCLUDE[folder])) or "nothing else"
        return f"{folder}/ does not include {inside}/ (it may include: {allowed})"
    entered = family(target)
    if entered and family(source) != entered and target != f"formats/{entered}/{entered}.h":
        return f"the family {entered} is entered by formats/{entered}/{entered}.h only"
    return None


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", "*.cpp", "*.h", "*.c"],
                            cwd=ROOT, capture_output=True, text=True, check=True).stdout.split("\n")
    sources = [name for name in listed if name and (ROOT / name).exists()]
    breaches = 0
    for source in sources:
        in_platform = source.startswith(("platform/", "include/"))
        for number, line in enumerate((ROOT / source).read_text().splitlines(), 1):
            include = INCLUDE.match(line)
            rule = broken_rule(source, *include.groups()) if include else None
            if source.split("/")[0] in MAY_INCLUDE and not in_platform and SYSTEM_MACRO.match(line):
                rule = "only platform/ asks for the system"
            if rule:
                breaches += 1
                print(f"{source}:{number}: {line.strip()}: {rule}")
    print(f"{len(sources)} files, {breaches} breaches")
    return 1 if breaches or not sources else 0


if __name__ == "__main__":
    sys.exit(main())
