#!/usr/bin/env python3
"""Keeps the tables of docs/formats.md those of the library, and the one of README.md theirs.

    format_tables.py LIBRARY            prints what is not current, with exit code 1
    format_tables.py LIBRARY --write    makes it current

Behind every heading stands a comment with the names of its codes, "<!-- codes: bmp bmp-rle -->", and
the table that is made from what IMG_get_format says of them, and of saves of longer and longer rows.
"""
import ctypes
import functools
import operator
import pathlib
import re
import struct
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT, README = ROOT / "docs" / "formats.md", ROOT / "README.md"
BLOCK = re.compile(r"^<!-- codes: (?P<names>.*?) -->\n(?P<table>(?:\|.*\n)*)", re.MULTILINE)
SECTION = re.compile(r"^## (?P<title>.+)\n<!-- codes: (?P<names>.*?) -->", re.MULTILINE)
SUMMARY = re.compile(r"(?<=<!-- formats -->\n)(?:\|.*\n)*")
READS, WRITES, PAGES, APPENDS = 1, 2, 4, 8
DEPTHS = (1, 4, 8, 16, 24, 32)
EXTENDED_FORMATS = 6
HEAD = "| Code | Name | Ending | Reads | Writes | Longest side | Pages |\n|---:|---|---|---|---|---|---|\n"
LONGEST = 1 << 20  # pixels; what has room for more is not asked further


class Format(ctypes.Structure):
    """img_format"""
    _fields_ = [(name, ctypes.c_int32) for name in ("size", "code", "flags", "read_depths", "write_depths")] + [
        ("name", ctypes.c_char * 16), ("title", ctypes.c_char * 32), ("extension", ctypes.c_char * 8)]


def read_formats(library):
    """{name: Format}"""
    library.IMG_set_option(EXTENDED_FORMATS, 1)
    found = {}
    while True:
        entry = Format(size=ctypes.sizeof(Format))
        if library.IMG_get_format(len(found), ctypes.byref(entry)) != 0:
            return found
        found[entry.name.decode()] = entry


class Sides:
    """How long a side may be that is saved."""

    def __init__(self, library):
        self.library = library
        self.room = ctypes.create_string_buffer(4 * LONGEST + 100_000)
        library.IMG_save_bitmap_block.argtypes = [ctypes.c_int32, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int32]

    def fits(self, entry, bits, width):
        header = struct.pack("<IiiHHIIiiII", 40, width, 1, 1, bits, 0, 0, 0, 0, 0, 0) + bytes(1024)
        image = self.library.IMG_create_handle_shell(header)
        result = self.library.IMG_save_bitmap_block(image, self.room, len(self.room), entry.code)
        self.library.IMG_delete_bitmap(image)
        return result >= 0

    def longest(self, entry):
        bits = next(depth for i, depth in enumerate(DEPTHS) if entry.write_depths >> i & 1)
        if self.fits(entry, bits, LONGEST):
            return "any"
        least, most = 1, LONGEST  # fits, does not
        while most - least > 1:
            middle = (least + most) // 2
            least, most = (middle, most) if self.fits(entry, bits, middle) else (least, middle)
        return f"{least:,}"


def listed(depths):
    return ", ".join(str(depth) for i, depth in enumerate(DEPTHS) if depths >> i & 1) or "no"


def row(entry, sides):
    ending = entry.extension.decode()
    return (f"| {entry.code} | `{entry.name.decode()}` | {f'`.{ending}`' if ending else ''} "
            f"| {listed(entry.read_depths)} | {listed(entry.write_depths)} "
            f"| {sides.longest(entry) if entry.flags & WRITES else ''} "
            f"| {pages(entry.flags)} |\n")


def pages(flags):
    return "added" if flags & APPENDS else "read" if flags & PAGES and flags & READS else ""


def summary(text, formats):
    """A row for every section but the last, which has what is refused."""
    rows = ["| Format | Reads | Writes | Pages |\n|---|---|---|---|\n"]
    for section in list(SECTION.finditer(text))[:-1]:
        entries = [formats[name] for name in section["names"].split()]
        read, written, flags = (functools.reduce(operator.or_, (getattr(entry, field) for entry in entries))
                                for field in ("read_depths", "write_depths", "flags"))
        title = section["title"]
        rows.append(f"| [{title}](docs/formats.md#{title.lower().replace(' ', '-')}) | {listed(read)} "
                    f"| {listed(written)} | {pages(flags)} |\n")
    return "".join(rows)


def check(library, write=False):
    """Complaints; what tables can mend is mended if wanted."""
    library = ctypes.CDLL(str(library))
    formats, sides, told, complaints = read_formats(library), Sides(library), [], []

    def table(match):
        names = match["names"].split()
        told.extend(names)
        complaints.extend(f"no format {name}" for name in names if name not in formats)
        rows = [row(formats[name], sides) for name in names if name in formats]
        return f"<!-- codes: {match['names']} -->\n{HEAD}{''.join(rows)}"

    made = {DOCUMENT: BLOCK.sub(table, DOCUMENT.read_text())}
    complaints += [f"{name} stands there {told.count(name)} times" for name in formats if told.count(name) != 1]
    titles = [section["title"].lower() for section in SECTION.finditer(made[DOCUMENT])][:-1]
    complaints += [f"{b} stands behind {a}" for a, b in zip(titles, titles[1:]) if a > b]
    if not complaints:
        made[README] = SUMMARY.sub(summary(made[DOCUMENT], formats), README.read_text())
    for path, text in made.items():
        if write:
            path.write_text(text)
        elif text != path.read_text():
            complaints.append(f"{path.name}: not what the library says: tools/format_tables.py LIBRARY --write")
    return complaints


def main():
    complaints = check(sys.argv[1], "--write" in sys.argv)
    print("".join(f"formats: {complaint}\n" for complaint in complaints), end="")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
