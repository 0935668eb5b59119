#!/usr/bin/env python3
"""TIFF files of every code written here and read by tiffcp, tiffinfo and Pillow; every file that tiffcp makes of a page
read here.

    tiff_peers.py LIBRARY MODULE     exit code 77 without Pillow or libtiff's programs"""
import itertools
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
if not shutil.which("tiffcp") or not shutil.which("tiffinfo"):
    sys.exit(77)
from library import Library, conclude

FAX, CODES = (7, 8, 10), (0, 7, 8, 9, 10, 16)
WIDTHS = (1, 7, 8, 9, 33, 200)
HEIGHT, DPI = 23, (300, 200)
failures = []
compared = 0


def check(what, passed):
    global compared
    compared += 1
    if not passed:
        failures.append(what)


def run(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True).stdout.decode()


def picture(mode, width):
    state = random.Random(width)
    data = []
    while len(data) < width * HEIGHT:
        pixel = tuple(state.randint(0, 255) for _ in range(3)) if mode == "RGB" else state.randint(0, 255)
        data += [255 * (pixel & 1) if mode == "1" else pixel] * state.choice((1, 1, 2, 3, 70))
    image = Image.new(mode, (width, HEIGHT))
    image.putdata(data[:width * HEIGHT])
    if mode == "P":
        image.putpalette([state.randint(0, 255) for _ in range(768)])
    return image


def make(library, image):
    bits = {"1": 1, "L": 8, "P": 8, "RGB": 24}[image.mode]
    stride = (image.width + 7) // 8 if bits == 1 else image.width * bits // 8
    data = image.tobytes("raw", "BGR") if bits == 24 else image.tobytes()
    palette = {1: [(0, 0, 0), (255,) * 3], 24: []}.get(bits) or [(i,) * 3 for i in range(256)]
    if image.mode == "P":
        entries = image.getpalette()
        palette = [tuple(entries[i:i + 3]) for i in range(0, 768, 3)]
    return library.make(image.width, HEIGHT, bits, [data[y * stride:(y + 1) * stride] for y in range(HEIGHT)], palette,
                        *DPI)


def equal(left, right):
    return left.size == right.size and left.convert("RGB").tobytes() == right.convert("RGB").tobytes()


def shown(library, name):
    image = library.open(str(name))
    pixels = library.rgb(image)
    library.delete(image)
    return pixels


def written_here(library, folder):
    for code, mode, width in itertools.product(CODES, ("1", "L", "P", "RGB"), WIDTHS):
        if code in FAX and mode != "1":
            continue
        image, name, copy, what = picture(mode, width), folder / "ours.tif", folder / "copy.tif", (code, mode, width)
        name.unlink(missing_ok=True)
        handle = make(library, image)
        library.save(handle, str(name), code)
        library.delete(handle)
        theirs = Image.open(name)
        # Colours are written as 16 bits, of which it takes the high byte.
        check(f"Pillow reads {what}", equal(theirs, image))
        check(f"Pillow reads the resolution of {what}", tuple(map(round, theirs.info["dpi"])) == DPI)
        check(f"tiffinfo reads {what}", f"Resolution: {DPI[0]}, {DPI[1]} pixels/inch" in run("tiffinfo", "-D", name))
        run("tiffcp", "-c", "none", name, copy)
        check(f"tiffcp reads {what}", equal(Image.open(copy), image))


def written_by_tiffcp(library, folder):
    codings = {"1": ("none", "lzw", "zip", "packbits", "g3", "g3:2d", "g3:fill", "g4"),
               None: ("none", "lzw", "lzw:2", "zip:2", "packbits")}
    cuts = (("-r", "4"), ("-r", str(HEIGHT)), ("-t", "-w", "16", "-l", "16"))
    for mode, cut, order, bits, planes in itertools.product(
            ("1", "L", "P", "RGB"), cuts, ("-B", "-L"), ("msb2lsb", "lsb2msb"), ("contig", "separate")):
        if planes == "separate" and mode != "RGB":
            continue
        for coding, big in itertools.product(codings.get(mode, codings[None]), ((), ("-8",))):
            if mode == "P" and coding.endswith(":2"):
                continue
            image, plain, name = picture(mode, 61), folder / "plain.tif", folder / "theirs.tif"
            image.save(plain)
            # A colour of Pillow's is the byte above a zero byte.
            run("tiffcp", *big, "-c", coding, *cut, order, "-f", bits, "-p", planes, plain, name)
            check(f"of tiffcp: {mode} {cut} {order} {bits} {planes} {coding} {big}",
                  near(shown(library, name), image))


def near(left, right):
    pairs = zip(left.convert("RGB").tobytes(), right.convert("RGB").tobytes())
    return left.size == right.size and all(abs(a - b) <= (right.mode == "P") for a, b in pairs)


def main():
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch)
        for file in sys.argv[1:3]:
            shutil.copy(file, folder)
        library = Library(str(folder / pathlib.Path(sys.argv[1]).name))
        written_here(library, folder)
        written_by_tiffcp(library, folder)
    print(compared, "compared")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
