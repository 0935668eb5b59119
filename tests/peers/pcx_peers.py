#!/usr/bin/env python3
"""PCX and DCX files against Pillow, netpbm and ImageMagick, in both directions.

    pcx_peers.py LIBRARY      exit code 77 when no peer is installed"""
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
from library import Library, conclude

WIDTHS = (1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 64, 127, 200)
HEIGHT = 13
LAYOUTS = ((1, 1), (1, 3), (1, 4), (4, 1), (8, 1), (8, 3))  # bits per plane, planes; others are refused
layouts = set()
failures = []
compared = 0


def equal(name, left, right):
    global compared
    compared += 1
    if left.size != right.size or left.convert("RGB").tobytes() != right.convert("RGB").tobytes():
        failures.append(name)


def noise(width, mode, seed):
    """Runs, single pixels and large values in one picture."""
    state = random.Random(seed)
    channels = {"RGB": 3}.get(mode, 1)
    most = {"1": 1, "4": 15}.get(mode, 255)
    data = []
    while len(data) < width * HEIGHT:
        pixel = tuple(state.randint(0, most) for _ in range(channels))
        data += [pixel] * state.choice((1, 1, 1, 2, 3, 70))
    data = data[:width * HEIGHT]
    image = Image.new({"4": "P"}.get(mode, mode), (width, HEIGHT))
    image.putdata(data if channels == 3 else [255 * p[0] if mode == "1" else p[0] for p in data])
    if mode in ("P", "4"):
        image.putpalette([state.randint(0, 255) for _ in range(768)])
    return image


def pack(image, mode):
    """(bits, rows, palette) as the library takes them."""
    width, height = image.size
    palette = image.getpalette() if mode in ("P", "4") else None
    entries = [tuple(palette[3 * i:3 * i + 3]) for i in range(16 if mode == "4" else 256)] if palette else []
    rows = []
    for y in range(height):
        line = [image.getpixel((x, y)) for x in range(width)]
        if mode == "1":
            line += [0] * (-width % 8)
            rows.append(bytes(sum((line[i + k] > 0) << (7 - k) for k in range(8)) for i in range(0, len(line), 8)))
        elif mode == "4":
            line += [0] * (width % 2)
            rows.append(bytes(line[i] << 4 | line[i + 1] for i in range(0, len(line), 2)))
        elif mode == "P":
            rows.append(bytes(line))
        else:
            rows.append(bytes(c for r, g, b in line for c in (b, g, r)))
    bits = {"1": 1, "4": 4, "P": 8, "RGB": 24}[mode]
    return bits, rows, entries or [(0, 0, 0), (255, 255, 255)]


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, **options).stdout


def read_theirs(library, folder):
    """Files of others, read here."""
    for width in WIDTHS:
        for mode in ("1", "P", "RGB"):
            image, name = noise(width, mode, width), folder / f"{mode}{width}.pcx"
            if (width, mode) != (1, "RGB"):  # that one Pillow cannot read itself
                image.save(name)
                equal(f"Pillow's {name.name}", library.rgb(library.open(str(name))), image)
        for mode in ("1", "4", "P", "RGB"):
            image, ppm = noise(width, mode, 99 + width), folder / "in.ppm"
            if len(image.getcolors(256 * 256)) == 1:
                continue  # a map of one colour and black stands for inverted bits, not for the colour
            image.convert("RGB").save(ppm)
            for label, command in (("netpbm", ["ppmtopcx", "-quiet"]), ("netpbm 24", ["ppmtopcx", "-quiet", "-24bit"]),
                                   ("netpbm packed", ["ppmtopcx", "-quiet", "-packed"]),
                                   ("ImageMagick", ["convert", "-", "pcx:-"])):
                if shutil.which(command[0]):
                    name = folder / "theirs.pcx"
                    file = run(*command, input=ppm.read_bytes())
                    name.write_bytes(file)
                    layouts.add((file[3], file[65]))
                    if (file[3], file[65]) not in LAYOUTS:
                        if library.call("IMG_decompress_bitmap", str(name)) != -7:
                            failures.append(f"{label} {mode}{width} is not refused")
                        continue
                    equal(f"{label} {mode}{width}", library.rgb(library.open(str(name))), image)


def write_ours(library, folder):
    """Files from here, read by others."""
    for width in WIDTHS:
        for mode in ("1", "4", "P", "RGB"):
            image, name = noise(width, mode, 7 * width), folder / f"ours-{mode}{width}.pcx"
            bits, rows, palette = pack(image, mode)
            handle = library.make(width, HEIGHT, bits, rows, palette, 300, 150)
            library.save(handle, str(name))
            equal(f"own {name.name}", library.rgb(library.open(str(name))), image)
            if (width, mode) != (1, "RGB"):
                equal(f"Pillow reads {name.name}", Image.open(name), image)
            if shutil.which("pcxtoppm"):
                ppm = folder / "out.ppm"
                ppm.write_bytes(run("pcxtoppm", name))
                equal(f"netpbm reads {name.name}", Image.open(ppm), image)
            # It takes the empty colour map of 1-bit files for all black, and reads none in version 2.
            if shutil.which("convert") and mode in ("P", "RGB"):
                run("convert", name, f"ppm:{folder / 'out.ppm'}")
                equal(f"ImageMagick reads {name.name}", Image.open(folder / "out.ppm"), image)


def containers(library, folder):
    name = folder / "pages.dcx"
    pages = []
    for i in range(100):
        mode = ("1", "4", "P", "RGB")[i % 4]
        image = noise(20 + i, mode, i)
        bits, rows, palette = pack(image, mode)
        library.save(library.make(20 + i, HEIGHT, bits, rows, palette), str(name))
        pages.append(image)
        if i == 30:  # so far all of them
            for page in range(i + 1):
                if page % 4 == 2:  # takes every palette from the end of the container
                    continue
                theirs = Image.open(name)
                theirs.seek(page)
                equal(f"Pillow reads page {page}", theirs, pages[page])
    before = name.read_bytes()
    image = library.make(2, 1, 8, [b"\1\2"])
    if library.call("IMG_save_bitmap", image, str(name), 11) != -7 or name.read_bytes() != before:
        failures.append("page 101")
    if library.call("IMGLOW_get_pages", str(name)) != 100:
        failures.append("page count")
    for page, image in enumerate(pages):
        # Page 0 is asked for by its offset.
        equal(f"page {page}", library.rgb(library.open_page(str(name), page)), image)


def main():
    library = Library(sys.argv[1])
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for part in (read_theirs, write_ours, containers):
            part(library, folder)
    print(f"layouts that others wrote: {sorted(layouts)}")
    print(f"{compared} pictures compared, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
