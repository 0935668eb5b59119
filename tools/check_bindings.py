#!/usr/bin/env python3
"""Compares generated bindings with what a built library exports, and with the header's constants and
structures.

    check_bindings.py BINDINGS LIBRARY [--tools PREFIX]

BINDINGS is what tools/make_bindings.py wrote. Functions are compared by name and number of arguments, those
of Visual Basic, which no compiler here can check, also by the bytes that they put on the stack. Prints one
line per difference; exit code 1 if there is any.
"""
import argparse
import pathlib
import re
import sys

from check_exports import differences, exported
from public_header import read_header

# Of each language: functions with their arguments, constants, structures with what is in them.
PATTERNS = {
    "python/tarnquill/_native.py": (r'^    "(\w+)": \(\w+, \[(.*)\]\),$', r"^(\w+) = -?\d+$",
                                    r"^class (\w+)\(Structure\):\n    _fields_ = \[\n(.*?)\]\n", r'\("\w+", c_\w+'),
    "csharp/Native.cs": (r"public static extern \w+ (\w+)\((.*)\);", r"public const int (\w+) = -?\d+;",
                         r"public sealed class (\w+)\n    \{\n(.*?)\n    \}", r"public \w+ \w+;"),
    "vb6/tarnquill.bas": (r'^Public Declare Function (\w+) Lib "tarnquill\.dll" \((.*)\) As Long$',
                          r"^Public Const (\w+) As Long = -?\d+$", r"^Public Type (\w+)\n(.*?)\nEnd Type$",
                          r"(?:\w|\)) As (?:Long|Byte)$"),
    "delphi/tarnquill.pas": (r"^function (\w+)(?:\((.*)\))?: \w+; .*; external TarnquillLibrary;$",
                             r"^  (\w+) = -?\d+;$", r"^  (\w+) = record\n(.*?)\n  end;$", r"^    \w+: .*;$"),
}


def count(arguments):
    without_attributes = re.sub(r"\[[^]]*\]", "", arguments)
    return len(re.findall(r"[,;]", without_attributes)) + 1 if arguments.strip() else 0


def vb6_bytes(arguments):
    """Everything goes by reference or as a Long or String; anything else would be a mistake."""
    sizes = [4 if re.fullmatch(r"\s*(?:ByRef \w+ As \w+|ByVal \w+ As (?:Long|String))", part) else 0
             for part in arguments.split(",")]
    return sum(sizes) if arguments.strip() else 0


def check(name, text, header, exports, library):
    text = text.replace(" _\n", " ")  # a line that goes on, in Visual Basic
    functions, constants, structures, field = PATTERNS[name]
    found = dict(re.findall(functions, text, re.MULTILINE))
    yield from differences(found, name, exports, library)
    for function in sorted(set(found) & set(header.functions)):
        wanted = len(header.functions[function].parameters)
        if count(found[function]) != wanted:
            yield f"{function}: {count(found[function])} arguments in {name}, not {wanted}"
        if name.endswith(".bas") and vb6_bytes(found[function]) != header.stack_bytes(function):
            yield f"{function}: {vb6_bytes(found[function])} bytes on the stack in {name}"
    yield from differences(re.findall(constants, text, re.MULTILINE), name, header.constants, "the header")
    types = dict(re.findall(structures, text, re.MULTILINE | re.DOTALL))
    yield from differences(types, name, header.structures, "the header")
    for structure, fields in header.structures.items():
        if len(re.findall(field, types.get(structure, ""), re.MULTILINE)) != len(fields):
            yield f"{structure}: not {len(fields)} fields in {name}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("bindings", type=pathlib.Path)
    parser.add_argument("library", type=pathlib.Path)
    parser.add_argument("--tools", default="", help="prefix of objdump and nm")
    options = parser.parse_args()
    header, exports = read_header(), exported(options.library, options.tools)
    complaints = list(header.complaints)
    for name in PATTERNS:
        complaints += check(name, (options.bindings / name).read_text(), header, exports, options.library.name)
    for complaint in complaints:
        print(complaint)
    print(f"{len(PATTERNS)} bindings of {len(exports)} exports, {len(complaints)} differences")
    return 1 if complaints or not exports else 0


if __name__ == "__main__":
    sys.exit(main())
