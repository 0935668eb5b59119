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

FAX, CODES, JPEG = (7, 8, 10), (0, 7, 8, 9, 10, 16), 40
READING = 1  # an option
DEPTHS = {"1": 1, "4": 4, "L": 8, "P": 8, "I;16": 16, "RGB": 24, "CMYK": 32}
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
        samples = tuple(state.randint(0, 255) for _ in range(4))
        pixel = {"1": 255 * (samples[0] & 1), "4": samples[0] & 15, "I;16": 256 * samples[0] + samples[1],
                 "RGB": samples[:3], "CMYK": samples}.get(mode, samples[0])
        data += [pixel] * state.choice((1, 1, 2, 3, 70))
    image = Image.new("P" if mode == "4" else mode, (width, HEIGHT))
    image.putdata(data[:width * HEIGHT])
    if mode in ("P", "4"):
        image.putpalette([state.randint(0, 255) for _ in range(768)])
    return image


def make(library, image, bits):
    data = image.tobytes("raw", "BGR") if bits == 24 else image.tobytes()
    stride = len(data) // HEIGHT
    rows = [data[y * stride:(y + 1) * stride] for y in range(HEIGHT)]
    if bits == 4:
        rows = [bytes(a << 4 | b for a, b in zip(row[::2], row[1::2] + b"\0")) for row in rows]
    palette = {1: [(0, 0, 0), (255,) * 3], 24: [], 32: []}.get(bits, [(i,) * 3 for i in range(256)])
    if image.mode == "P":
        entries = image.getpalette()
        palette = [tuple(entries[i:i + 3]) for i in range(0, 3 << bits, 3)]
    return library.make(image.width, HEIGHT, bits, rows, palette, *DPI)


def equal(left, right):
    if left.mode == right.mode and left.mode in ("I;16", "CMYK"):
        return left.size == right.size and left.tobytes() == right.tobytes()
    return left.size == right.size and left.convert("RGB").tobytes() == right.convert("RGB").tobytes()


def difference(left, right):
    """The mean one of samples."""
    a, b = left.convert("RGB").tobytes(), right.convert("RGB").tobytes()
    return sum(abs(x - y) for x, y in zip(a, b)) / len(a) if left.size == right.size else 255


def shown(library, name):
    image = library.open(str(name))
    pixels = library.rgb(image)
    library.delete(image)
    return pixels


def written_here(library, folder):
    for code, mode, width in itertools.product(CODES, DEPTHS, WIDTHS):
        if code in FAX and mode != "1":
            continue
        image, name, copy, what = picture(mode, width), folder / "ours.tif", folder / "copy.tif", (code, mode, width)
        name.unlink(missing_ok=True)
        handle = make(library, image, DEPTHS[mode])
        library.save(handle, str(name), code)
        library.delete(handle)
        theirs = Image.open(name)
        # Colours are written as 16 bits, of which it takes the high byte.
        check(f"Pillow reads {what}", equal(theirs, image))
        check(f"Pillow reads the resolution of {what}", tuple(map(round, theirs.info["dpi"])) == DPI)
        check(f"tiffinfo reads {what}", f"Resolution: {DPI[0]}, {DPI[1]} pixels/inch" in run("tiffinfo", "-D", name))
        run("tiffcp", "-c", "none", name, copy)
        check(f"tiffcp reads {what}", equal(Image.open(copy), image))


def jpeg_written_here(library, folder):
    """Files of the first way that JPEG was put into TIFF files. Pillow takes them in colours only; ImageMagick turns the
    colours that libtiff gives it from luma and chrominance once more."""
    scene = Image.linear_gradient("L").resize((90, HEIGHT))
    scenes = {"L": scene, "RGB": Image.merge("RGB", (scene, scene.transpose(Image.FLIP_LEFT_RIGHT), scene.rotate(180)))}
    name, copy = folder / "ours.tif", folder / "copy.tif"
    for mode, image in scenes.items():
        name.unlink(missing_ok=True)
        handle = make(library, image, DEPTHS[mode])
        library.save(handle, str(name), JPEG)
        library.delete(handle)
        run("tiff2rgba", "-c", "none", name, copy)
        check(f"libtiff reads JPEG {mode}", difference(Image.open(copy), image) < 3)
        if mode == "RGB":
            check("Pillow reads JPEG", difference(Image.open(name), image) < 3)
        if shutil.which("gm"):
            run("gm", "convert", name, folder / "copy.ppm")
            check(f"GraphicsMagick reads JPEG {mode}", difference(Image.open(folder / "copy.ppm"), image) < 3)


def jpeg_written_by_tiffcp(library, folder):
    """Strips and tiles, planes together or apart; the colours are as they are, without any chrominance."""
    image = Image.linear_gradient("L").resize((90, 61))
    image = Image.merge("RGB", (image, image.transpose(Image.FLIP_TOP_BOTTOM), image.rotate(180)))
    plain, name = folder / "plain.tif", folder / "theirs.tif"
    image.save(plain)
    for cut, planes, order in itertools.product((("-r", "16"), ("-r", "61"), ("-t", "-w", "32", "-l", "16")),
                                                ("contig", "separate"), ("-B", "-L")):
        run("tiffcp", "-c", "jpeg:r:95", *cut, order, "-p", planes, plain, name)
        run("tiff2rgba", "-c", "none", name, plain.with_suffix(".copy"))
        seen = Image.open(plain.with_suffix(".copy"))
        check(f"JPEG of tiffcp: {cut} {planes} {order}", difference(shown(library, name), seen) < 0.5)


def jpeg_with_fewer_colours(library, folder):
    """Chrominance of two by two pixels, in one strip and in many: smooth between them, as Pillow shows it."""
    scene = Image.linear_gradient("L").resize((90, 61))
    image = Image.merge("RGB", (scene, scene.transpose(Image.FLIP_LEFT_RIGHT), scene.rotate(180)))
    image.paste((255, 0, 0), (20, 10, 60, 40))
    name = folder / "theirs.tif"
    library.checked("IMG_set_option", READING, 1)
    for height in (8, 61):
        image.save(name, compression="jpeg", quality=90, tiffinfo={278: height})
        seen, here = Image.open(name).convert("RGB"), shown(library, name)
        most = max(abs(a - b) for a, b in zip(seen.tobytes(), here.tobytes()))
        check(f"JPEG of Pillow, strips of {height} rows", seen.size == here.size and most <= 4)
        check(f"JPEG of Pillow, strips of {height} rows, mean", difference(seen, here) < 0.1)
    library.checked("IMG_set_option", READING, 0)


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
        jpeg_written_here(library, folder)
        written_by_tiffcp(library, folder)
        jpeg_written_by_tiffcp(library, folder)
        jpeg_with_fewer_colours(library, folder)
    print(compared, "compared")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
