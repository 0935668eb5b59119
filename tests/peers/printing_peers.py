#!/usr/bin/env python3
"""Programs for printers, written here and drawn by others: PostScript by Ghostscript, PCL by the few commands that it
takes here. SCT files read by ImageMagick, the data of image objects and of drawings by libtiff.

    printing_peers.py LIBRARY MODULE     exit code 77 without Pillow or Ghostscript"""
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
if not shutil.which("gs"):
    sys.exit(77)
from image_peers import noise, pack, run
from library import Library, conclude

SIZES = [(1, 1), (2, 3), (7, 13), (8, 1), (17, 31), (64, 64), (127, 9), (301, 20)]
PS, EPS, PCL, SCT, ICA, MCA, JED = 62, 14, 57, 60, 24, 49, 56
DOTS = 300
failures = []


def equal(what, left, right):
    if left.size != right.size or left.convert("RGB").tobytes() != right.convert("RGB").tobytes():
        failures.append(what)


def drawn_by_ghostscript(name, image):
    device = "tiff32nc" if image.mode == "CMYK" else "ppmraw"
    out = name.with_suffix(".out")
    run("gs", "-q", "-dNOSAFER", "-dBATCH", "-dNOPAUSE", f"-sDEVICE={device}", f"-r{DOTS}", f"-g{image.width}x{image.height}",
        f"-o{out}", name, "-c", *(["showpage"] if name.suffix == ".eps" else []))
    return Image.open(out)


def unpack_bits(data, length):
    out, at = bytearray(), 0
    while at < len(data):
        count = data[at]
        if count > 128:
            out += data[at + 1:at + 2] * (257 - count)
        elif count < 128:
            out += data[at + 1:at + 2 + count]
        at += 2 if count >= 128 else 2 + count
    return bytes(out).ljust(length, b"\0")


def drawn_by_printer(data):
    """The raster commands; whatever else there is has to be one of those known."""
    at, rows, palette, colour, width, height, depth = 0, [], {}, [0, 0, 0], 0, 0, 1
    while at < len(data):
        if data[at:at + 2] == b"\x1bE":
            at += 2
            continue
        command = re.match(rb"\x1b([*&][a-z])((?:-?\d*[a-z])*-?\d*[A-Z])", data[at:])
        at += command.end()
        for value, letter in re.findall(rb"(-?\d*)([a-zA-Z])", command[2]):
            what, value = command[1] + letter.upper(), int(value or 0)
            if what == b"*vW":
                depth = 24 if data[at + 1] == 3 else 8
            elif what in (b"*vA", b"*vB", b"*vC"):
                colour["ABC".index(chr(what[2]))] = value
            elif what == b"*vI":
                palette[value] = bytes(colour)
            elif what == b"*rS":
                width = value
            elif what == b"*rT":
                height = value
            elif what == b"*bW":
                rows.append(unpack_bits(data[at:at + value], (width * depth + 7) // 8))
            elif what not in (b"&lO", b"&lE", b"*tR", b"*pX", b"*pY", b"*rF", b"*rA", b"*bM", b"*rC"):
                failures.append(f"command {what}")
            at += value if what in (b"*vW", b"*bW") else 0
    rows += [bytes((width * depth + 7) // 8)] * (height - len(rows))
    if depth == 1:
        return Image.frombytes("1", (width, height), bytes(255 - v for v in b"".join(rows)))
    pixels = b"".join(rows) if depth == 24 else b"".join(palette[v] for v in b"".join(rows))
    return Image.frombytes("RGB", (width, height), pixels)


def group4(data, width, height):
    """Read by libtiff."""
    fields = [(256, 4, 1, width), (257, 4, 1, height), (258, 3, 1, 1), (259, 3, 1, 4), (262, 3, 1, 0), (273, 4, 1, 8),
              (278, 4, 1, height), (279, 4, 1, len(data))]
    directory = struct.pack("<H", len(fields)) + b"".join(struct.pack("<HHII", *field) for field in fields) + bytes(4)
    name = pathlib.Path(tempfile.gettempdir()) / f"group4-{width}x{height}.tif"
    name.write_bytes(struct.pack("<2sHI", b"II", 42, 8 + len(data)) + data + directory)
    picture = Image.open(name)
    picture.load()
    name.unlink()
    return picture


def image_data(data):
    """The coded rows of an image object, taken out of structured fields first."""
    if data[2] == 0xD3:
        joined, at = b"", 0
        while at < len(data):
            length, code = struct.unpack_from(">HI", data, at)
            if code >> 8 == 0xD3EEFB:
                joined += data[at + 8:at + length]
            at += length
        data = joined
    at, rows = 0, b""
    while at < len(data):
        length = data[at + 1] if data[at] != 0xFE else struct.unpack_from(">H", data, at + 2)[0]
        first = at + (2 if data[at] != 0xFE else 4)
        if data[at:at + 2] == b"\xFE\x92":
            rows += data[first:first + length]
        at = first + length
    return rows


def tiles(data):
    """A drawing, tile by tile."""
    height, row_bytes = struct.unpack_from("<HH", data, 4)
    at, columns, rows = struct.unpack_from(">I", data, 8)[0], -(-row_bytes // 64), -(-height // 512)
    picture = Image.new("1", (512 * columns, 512 * rows), 255)
    for i in range(columns * rows):
        number, plain, length = struct.unpack_from("<BBH", data, 128 + 4 * i)
        part = data[at:at + length]
        tile = Image.frombytes("1", (512, 512), bytes(255 - v for v in part)) if plain else group4(part, 512, 512)
        picture.paste(tile, (i % columns * 512, i // columns * 512))
        at += length
    return picture.crop((0, 0, 8 * row_bytes, height))


def black_and_white(library, folder):
    for width, height in SIZES + [(700, 1030)]:
        image = noise(width, "1", width + 1, height)
        handle = library.make(width, height, *pack(image, "1"), DOTS, DOTS)
        for code in (ICA, MCA):
            name = folder / f"object.{code}"
            name.unlink(missing_ok=True)
            library.checked("IMG_save_bitmap", handle, str(name), code)
            equal(f"libtiff reads {code} {width}", group4(image_data(name.read_bytes()), width, height), image)
        name = folder / "drawing.jed"
        library.checked("IMG_save_bitmap", handle, str(name), JED)
        wide = Image.new("1", ((width + 7) // 8 * 8, height), 255)
        wide.paste(image, (0, 0))
        equal(f"libtiff reads {JED} {width}", tiles(name.read_bytes()), wide)


def compare(library, folder):
    for width, height in SIZES:
        for mode in ("1", "4", "P", "RGB", "RGBX", "L", "CMYK"):
            image = noise(width, {"RGBX": "RGB"}.get(mode, mode), 3 * width, height)
            if mode == "CMYK":
                data, bits, palette = image.tobytes(), 32, []
                rows = [data[4 * width * y:4 * width * (y + 1)] for y in range(height)]
            elif mode == "L":
                data, bits, palette = image.tobytes(), 8, [(i, i, i) for i in range(256)]
                rows = [data[width * y:width * (y + 1)] for y in range(height)]
            else:
                bits, rows, palette = pack(image, mode)
            handle = library.make(width, height, bits, rows, palette, DOTS, DOTS, 200 if mode == "RGBX" else 0)
            for code, ending in ((PS, "ps"), (EPS, "eps"), (PCL, "pcl"), (SCT, "sct")):
                name, what = folder / f"ours.{ending}", f"{ending} {mode} {width}x{height}"
                status = library.call("IMG_save_bitmap", handle, str(name), code)
                if status < 0:
                    if (status, code, mode) != (-21, PCL, "CMYK"):
                        failures.append(f"{what}: {status}")
                elif code == PCL:
                    equal(what, drawn_by_printer(name.read_bytes()), image)
                elif code == SCT and mode == "CMYK":
                    # To it 255 is no ink, as in its other formats; here it is all of it.
                    turned = bytes(255 - level for level in image.tobytes())
                    if shutil.which("convert") and run("convert", name, "-depth", "8", "cmyk:-") != turned:
                        failures.append(what)
                elif code == SCT:
                    if shutil.which("convert"):
                        run("convert", name, "-depth", "8", folder / "out.ppm")
                        equal(what, Image.open(folder / "out.ppm"), image)
                else:
                    equal(what, drawn_by_ghostscript(name, image), image)
            library.delete(handle)


def main():
    library = Library(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        compare(library, pathlib.Path(folder))
        black_and_white(library, pathlib.Path(folder))
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
