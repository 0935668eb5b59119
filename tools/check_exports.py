#!/usr/bin/env python3
"""Compares the public header with what a built library exports, or writes the DLL's export list.

    check_exports.py --library FILE [--tools PREFIX] [--plain]
                                    a .so or .dll against the header; with --plain its imports and
                                    static initialisers are checked too
    check_exports.py --write-def FILE [--undecorated]
                                    the list that the DLL is linked by: every name with the bytes of
                                    its arguments on 32-bit Windows (name@bytes), or without

Prints one line per difference; exit code 1 if there is any.
"""
import argparse
import pathlib
import re
import subprocess
import sys

from public_header import HEADER, read_header

SYMBOL_VERSION = "@@TARNQUILL_0.1"  # of exports.map

# What the library may need from the system.
ALLOWED_IMPORTS = re.compile(r"KERNEL32\.dll|msvcrt\.dll|libc\.so\.6|libm\.so\.6|libpng16\.so\.16|libz\.so\.1", re.IGNORECASE)

# What threads share: the first context, and what is locked or atomic. All else stands in contexts.
SHARED_STATE = {"tq::the_context", "table", "licence_check", "open_pipes", "detach_action", "found", "mask", "notice",
                "register_lock", "live_blocks", "blocks_without_huge_pages", "loaded()::state", "host", "scanner", "scan::sane_stand_in",
                "scan::twain_stand_in"}


def run(command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(library, tools):
    if library.suffix == ".dll":
        text = run([f"{tools}objdump", "-p", library])
        table = text.split("[Ordinal/Name Pointer] Table", 1)[1].split("\n\n", 1)[0]
        return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+\w+\s+)?(\S+)$", table, re.MULTILINE)
    lines = run([f"{tools}nm", "-D", "--defined-only", library]).splitlines()
    names = [line.split()[-1] for line in lines if " A " not in line]  # that one is the version itself
    return [name.removesuffix(SYMBOL_VERSION) if name.endswith(SYMBOL_VERSION) else f"{name} without {SYMBOL_VERSION}"
            for name in names]


def system_complaints(library, tools):
    if library.suffix == ".dll":
        imports = re.findall(r"DLL Name: (\S+)", run([f"{tools}objdump", "-p", library]))
    else:
        imports = re.findall(r"\(NEEDED\).*\[(.*)\]", run([f"{tools}readelf", "-dW", library]))
    for name in imports:
        if not ALLOWED_IMPORTS.fullmatch(name):
            yield f"{library.name}: needs {name}"
    if library.suffix != ".dll":
        # The compiler's own start-up file brings one entry.
        sections = run([f"{tools}readelf", "-SW", library])
        array = re.search(r"\.init_array\s+\w+\s+\w+\s+\w+\s+(\w+)\s+(\w+)", sections)
        pointer = 8 if "ELF64" in run([f"{tools}readelf", "-hW", library]) else 4
        if array and int(array[1], 16) > pointer:
            yield f"{library.name}: has static initialisers ({int(array[1], 16) // pointer - 1} objects)"
        for line in run([f"{tools}objdump", "-tC", library]).splitlines():
            symbol = re.match(r"\w+ .{6}O \.(?:data|bss)\s+\w+\s+(?:\.hidden )?(.*)", line)
            name = symbol and symbol[1].removeprefix("tq::").split("(anonymous namespace)::")[-1]
            if symbol and not {symbol[1], name} & SHARED_STATE | set(re.findall(r"^(?:completed\.0|__\w+)$", name)):
                yield f"{library.name}: {symbol[1]} is shared by threads"


def differences(left, left_name, right, right_name):
    for name in sorted(set(left) - set(right)):
        yield f"{name}: in {left_name}, not in {right_name}"
    for name in sorted(set(right) - set(left)):
        yield f"{name}: in {right_name}, not in {left_name}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--header", type=pathlib.Path, default=HEADER)
    parser.add_argument("--library", type=pathlib.Path)
    parser.add_argument("--tools", default="", help="prefix of objdump, nm and readelf")
    parser.add_argument("--plain", action="store_true")
    parser.add_argument("--write-def", type=pathlib.Path)
    parser.add_argument("--undecorated", action="store_true")
    options = parser.parse_args()

    header = read_header(options.header)
    exports, complaints = header.functions, header.complaints
    if options.write_def:
        options.write_def.write_text("LIBRARY tarnquill.dll\nEXPORTS\n" + "".join(
            f"  {name}\n" if options.undecorated else f"  {name}@{header.stack_bytes(name)}\n" for name in exports))
    if options.library:
        complaints += differences(exports, options.header.name,
                                  exported(options.library, options.tools), options.library.name)
        if options.plain:
            complaints += system_complaints(options.library, options.tools)
    for complaint in complaints:
        print(complaint)
    if not exports:
        print(f"{options.header}: declares nothing")
    print(f"{len(exports)} exports, {len(complaints)} differences")
    return 1 if complaints or not exports else 0


if __name__ == "__main__":
    sys.exit(main())
