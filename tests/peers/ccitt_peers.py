#!/usr/bin/env python3
"""Group 3, Group 4 and modified Huffman data against libtiff, through Pillow and tiffcp, in both
directions: the raw data lie in strips of TIFF files.

    ccitt_peers.py LIBRARY MODULE CODER     exit code 77 when Pillow or tiffcp are missing"""
import collections
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

try:
    from PIL import Image, ImageDraw
except ImportError:
    sys.exit(77)
if not shutil.which("tiffcp"):
    sys.exit(77)

from library import conclude  # noqa: E402

HUFFMAN, ONE_D, TWO_D, GROUP4 = range(4)
# As TIFF numbers them: compressions, Group 3 options, orders of bits.
PLAIN = 1
COMPRESSION = {HUFFMAN: 2, ONE_D: 3, TWO_D: 3, GROUP4: 4}
T4_OPTIONS, TWO_D_OPTION, FILL_OPTION = 292, 1, 4
MSB_FIRST, LSB_FIRST = 1, 2
TYPES = {1: ("B", 1), 3: ("H", 2), 4: ("I", 4)}

# Scheme, options of the coder, what tiffcp calls it
CODINGS = [(HUFFMAN, "", None), (ONE_D, "e", "g3:1d"), (ONE_D, "ea", "g3:1d:fill"), (TWO_D, "e", "g3:2d"),
           (TWO_D, "ea", "g3:2d:fill"), (TWO_D, "el", "g3:2d"), (GROUP4, "b", "g4"), (GROUP4, "bl", "g4")]

counts = collections.Counter()
failures = []


def check(peer, what, same):
    counts[peer] += 1
    if not same:
        failures.append(f"{peer}: {what}")


# ---- Pages: Pillow's images, and rows of packed bits in which 1 is black ----

def pages():
    """{name: image}"""
    text = Image.new("L", (620, 877), 255)
    draw = ImageDraw.Draw(text)
    for line in range(60):
        draw.text((40, 40 + 13 * line), f"{line} The quick brown fox jumps over the lazy dog, 0123456789. " * 2, 0)
    text = text.resize((2480, 3508), Image.BICUBIC).point(lambda grey: 255 * (grey > 140)).convert("1")
    grey = Image.linear_gradient("L").rotate(30).resize((1600, 700))
    found = {"text": text, "halftone": grey.convert("1"), "noise": Image.effect_noise((999, 99), 99).convert("1"),
             "dots": grey.point(lambda level: level // 32 * 32).resize((5000, 300)).convert("1")}
    for width in (1, 2, 7, 8, 9, 31, 33, 1001, 1728, 2623, 2625):
        found[f"text {width}"] = text.crop((163, 500, 163 + width, 560))
        found[f"halftone {width}"] = found["halftone"].resize((width, 20), Image.NEAREST)
    for width, height in ((1, 1), (17, 5), (2480, 100), (65000, 3)):
        found[f"white {width}"] = Image.new("1", (width, height), 1)
        found[f"black {width}"] = Image.new("1", (width, height), 0)
    found["wide text"] = text.resize((65000, 40), Image.NEAREST)
    found["wide halftone"] = found["halftone"].resize((65000, 40), Image.NEAREST)
    runs = [*range(70), *range(70, 2700, 37)]
    every_run = Image.new("1", (5300, 2 * len(runs)), 1)
    for i, run in enumerate(runs[1:]):
        ImageDraw.Draw(every_run).rectangle((0, 2 * i, run - 1, 2 * i), 0)
        ImageDraw.Draw(every_run).rectangle((5300 - run, 2 * i + 1, 5299, 2 * i + 1), 0)
    found["every run"] = every_run
    return found


def bits(image):
    return image.convert("1").tobytes("raw", "1;I")


# ---- TIFF files of one page ----

def tiff(image_size, strip, compression, options=0, order=MSB_FIRST):
    width, height = image_size
    tags = [(256, 4, width), (257, 4, height), (258, 3, 1), (259, 3, compression), (262, 3, 0), (266, 3, order),
            (273, 4, 8), (277, 3, 1), (278, 4, height), (279, 4, len(strip))]
    if compression == 3:
        tags.append((T4_OPTIONS, 4, options))
    padded = strip + bytes(len(strip) % 2)
    directory = b"".join(struct.pack("<HHII", tag, kind, 1, value) for tag, kind, value in tags)
    return (struct.pack("<2sHI", b"II", 42, 8 + len(padded)) + padded + struct.pack("<H", len(tags)) + directory +
            bytes(4))


def read_tiff(name):
    """({tag: values}, [strip])"""
    data = pathlib.Path(name).read_bytes()
    order = "<" if data[:2] == b"II" else ">"
    at, = struct.unpack_from(order + "I", data, 4)
    tags = {}
    for i in range(struct.unpack_from(order + "H", data, at)[0]):
        entry = at + 2 + 12 * i
        tag, kind, count = struct.unpack_from(order + "HHI", data, entry)
        if kind in TYPES:
            code, size = TYPES[kind]
            place = entry + 8 if size * count <= 4 else struct.unpack_from(order + "I", data, entry + 8)[0]
            tags[tag] = struct.unpack_from(f"{order}{count}{code}", data, place)
    return tags, [data[offset:offset + size] for offset, size in zip(tags[273], tags[279])]


# ---- The two sides ----

def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, **options).stdout


def ours(mode, scheme, options, size, data):
    result = subprocess.run([sys.argv[3], mode, str(scheme), "-" + options, *map(str, size)], input=data,
                            capture_output=True)
    return result.stdout if result.returncode == 0 else None


def read_here(name):
    """The bits of a coded file of somebody's, its strips decoded here."""
    tags, strips = read_tiff(name)
    width, height = tags[256][0], tags[257][0]
    flags = tags.get(T4_OPTIONS, (0,))[0]
    scheme = {2: HUFFMAN, 3: TWO_D if flags & TWO_D_OPTION else ONE_D, 4: GROUP4}[tags[259][0]]
    options = "e" + "a" * (scheme in (ONE_D, TWO_D) and flags & FILL_OPTION != 0)
    options += "l" * (tags.get(266, (1,))[0] == LSB_FIRST)
    rows = min(tags.get(278, (height,))[0], height)
    decoded = b""
    for i, strip in enumerate(strips):
        decoded += ours("decode", scheme, options, (width, min(rows, height - i * rows)), strip) or b"failed"
    # Files whose bit 0 is black have the colours the other way round.
    return bits(Image.frombytes("1", (width, height), decoded, "raw", "1" if tags[262][0] == 1 else "1;I"))


def compare(name, image, folder):
    rows, size = bits(image), image.size
    plain, coded, theirs = folder / "plain.tif", folder / "coded.tif", folder / "theirs.tif"
    plain.write_bytes(tiff(size, rows, PLAIN))
    for scheme, options, tiffcp in CODINGS:
        what = f"{name}, scheme {scheme} {options}"
        flags = (TWO_D_OPTION if scheme == TWO_D else 0) | (FILL_OPTION if "a" in options else 0)
        order = LSB_FIRST if "l" in options else MSB_FIRST
        data = ours("encode", scheme, options, size, rows)
        coded.write_bytes(tiff(size, data, COMPRESSION[scheme], flags, order))
        check("Pillow reads", what, bits(Image.open(coded)) == rows)
        run("tiffcp", "-c", "none", coded, theirs)
        check("tiffcp reads", what, bits(Image.open(theirs)) == rows)
        if tiffcp:
            run("tiffcp", "-c", tiffcp, "-r", size[1], "-f", "lsb2msb" if "l" in options else "msb2lsb", plain, theirs)
            check("tiffcp writes", what, read_here(theirs) == rows)
            if scheme == GROUP4:
                check("tiffcp writes the same bytes", what, read_tiff(theirs)[1][0] == data)
        if scheme == HUFFMAN:
            image.save(theirs, compression="tiff_ccitt")
            check("Pillow writes", what, read_here(theirs) == rows)


def main():
    with tempfile.TemporaryDirectory() as folder:
        found = pages()
        for name, image in found.items():
            compare(name, image, pathlib.Path(folder))
    for peer, count in sorted(counts.items()):
        print(f"{peer}: {count}")
    print(f"{len(found)} pages, {sum(counts.values())} comparisons, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
