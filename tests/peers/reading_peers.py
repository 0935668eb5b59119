#!/usr/bin/env python3
"""Bitmaps and PCX files of every kind, written here and read as other programs read them (option READING). Where two of
those agree about a picture, the library has to agree with them.

    reading_peers.py LIBRARY MODULE     exit code 77 without Pillow"""
import ctypes
import io
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
from freeimage import FreeImage
from library import Library, conclude

READING, DETECTION = 1, 2
try:
    FREEIMAGE = FreeImage()
except OSError:
    FREEIMAGE = None
CONVERTERS = [program for program in (["convert"], ["gm", "convert"]) if shutil.which(program[0])]
NETPBM = {"bmp": "bmptopnm", "pcx": "pcxtoppm", "gif": "giftopnm"}
failures, agreed, alone = [], 0, 0
state = random.Random(12)


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True)
    return done.stdout if done.returncode == 0 else b""


def on_white(data, has_alpha):
    """Bytes red, green, blue of red, green, blue, alpha."""
    pixels = (data[i:i + 4] for i in range(0, len(data), 4))
    return b"".join(bytes((level * alpha + 255 * (255 - alpha) + 127) // 255 for level in pixel)
                    for *pixel, alpha in ((*pixel[:3], pixel[3] if has_alpha else 255) for pixel in pixels))


def by_pillow(name):
    try:
        return Image.open(name).convert("RGBA").tobytes()
    except (OSError, ValueError, struct.error):
        return b""


def by_others(name, size, has_alpha):
    """What each program sees, if it sees something: the last of a kin counts."""
    seen = {"Pillow": by_pillow(name)}
    for program in CONVERTERS:
        seen["Magick"] = run(*program, f"{name}[0]", "-depth", "8", "rgba:-") or seen.get("Magick", b"")
    reader = NETPBM.get(name.suffix[1:])
    if reader and shutil.which(reader):
        picture = run(reader, name)
        seen["netpbm"] = Image.open(io.BytesIO(picture)).convert("RGBA").tobytes() if picture else b""
    if FREEIMAGE:
        seen["FreeImage"] = FREEIMAGE.pixels(str(name))
    return [(program, on_white(data, has_alpha)) for program, data in seen.items() if len(data) == 4 * size[0] * size[1]]


def seen_here(library, image):
    if image < 0:
        return b""
    header = library.header(image)
    if header["bits"] == 32:
        row, data = ctypes.create_string_buffer(4 * header["width"]), b""
        for y in range(header["height"]):
            library.checked("IMGLOW_get_raster", image, row, y, len(row))
            data += row.raw
        ours = Image.frombytes("RGB", (header["width"], header["height"]), data, "raw", "BGRX").tobytes()
    else:
        ours = library.rgb(image).tobytes()
    library.delete(image)
    return ours


def check(library, what, name, size):
    """`what` may end in " ~", where levels are rounded in different ways, or "opaque", where alpha is none."""
    global agreed, alone
    image = library.call("IMG_decompress_bitmap", str(name))
    ours, most = seen_here(library, image), 1 if what.endswith("~") else 0
    views = by_others(name, size, not what.endswith("opaque"))
    near = lambda left, right: len(left) == len(right) and all(abs(a - b) <= most for a, b in zip(left, right))
    pairs = [one for i, one in enumerate(views) if any(near(one[1], other) for _, other in views[:i])]
    agreed += bool(pairs)
    alone += not pairs
    if pairs and not any(near(ours, data) for _, data in pairs):
        failures.append(f"{what}: {image}, unlike {[program for program, _ in pairs]}")
    elif not pairs and image < 0:
        failures.append(f"{what}: {image}")
    if "-v" in sys.argv:
        print(what, "agree" if pairs else "alone", {program: near(data, ours) for program, data in views})


def noise(count, most):
    data = []
    while len(data) < count:
        data += [state.randint(0, most)] * state.choice((1, 1, 1, 2, 3, 30))
    return data[:count]


def packed(values, bits, align):
    """A row of values, high bits first below a byte, low byte first above."""
    if bits >= 8:
        row = b"".join(value.to_bytes(bits // 8, "little") for value in values)
    else:
        text = "".join(f"{value:0{bits}b}" for value in values)
        row = int(text.ljust(-(-len(text) // 8) * 8, "0"), 2).to_bytes(-(-len(text) // 8), "big")
    return row.ljust(-(-len(row) // align) * align, b"\0")


# --- BMP ---

def bmp(width, height, bits, data, header=40, compression=0, masks=(), palette=(), used=0, offset=None, gap=b""):
    if header == 12:
        fields = struct.pack("<IHHHH", 12, width, height, 1, bits)
    else:
        fields = struct.pack("<IiiHHIIiiII", header, width, height, 1, bits, compression, len(data), 2835, 2835, used, 0)
        behind = b"".join(struct.pack("<I", mask) for mask in masks)
        fields = fields[:header] + behind if header <= 40 else (fields + behind).ljust(header, b"\0")
        if header == 64:
            fields = fields[:40].ljust(64, b"\0")
    colours = b"".join(bytes((b, g, r)) + (b"" if header == 12 else b"\0") for r, g, b in palette)
    before = 14 + len(fields) + len(colours) + len(gap)
    start = before if offset is None else offset
    return b"BM" + struct.pack("<IHHI", before + len(data), 0, 0, start) + fields + colours + gap + data


def colours(count):
    return [tuple(state.randint(0, 255) for _ in range(3)) for _ in range(count)]


MASKS = {"555": (0x7C00, 0x3E0, 0x1F), "565": (0xF800, 0x7E0, 0x1F)}
WIDE_MASKS = {"bgrx": (0xFF0000, 0xFF00, 0xFF), "rgbx": (0xFF, 0xFF00, 0xFF0000), "xbgr": (0xFF000000, 0xFF0000, 0xFF00)}
BLACK, WHITE = (0, 0, 0), (255, 255, 255)


def bitmaps():
    """Pairs of a name and a file, with the picture's size."""
    for width, height in ((7, 5), (31, 13)):
        def rows(bits, most=None):
            values = [noise(width, (1 << bits) - 1 if most is None else most) for _ in range(height)]
            return b"".join(packed(row, bits, 4) for row in values)
        for header in (12, 16, 40, 52, 56, 64, 108, 124):
            for name, two in {"bw": (BLACK, WHITE), "wb": (WHITE, BLACK), "two": colours(2)}.items():
                yield f"1 bit {name}, header {header}", bmp(width, height, 1, rows(1), header, palette=two)
            for bits in (2, 4, 8):
                palette = colours(1 << bits)
                yield f"{bits} bits, header {header}", bmp(width, height, bits, rows(bits), header, palette=palette)
            few = bmp(width, height, 8, rows(8, 9), header, palette=colours(10), used=10)
            yield f"10 colours, header {header}", few
            yield f"24 bits, header {header}", bmp(width, height, 24, rows(24), header)
            if header not in (12, 16, 64):
                yield f"32 bits, header {header}", bmp(width, height, 32, rows(32), header)
                yield f"16 bits, header {header} ~", bmp(width, height, 16, rows(16), header)
                for name, masks in MASKS.items():
                    yield f"16 bits {name}, header {header} ~", bmp(width, height, 16, rows(16), header, 3, masks)
                for name, masks in WIDE_MASKS.items():
                    yield f"32 bits {name}, header {header}", bmp(width, height, 32, rows(32), header, 3, masks)
        alpha = (0xFF0000, 0xFF00, 0xFF, 0xFF000000)
        for header in (56, 108, 124):
            yield f"alpha, header {header}", bmp(width, height, 32, rows(32), header, 3, alpha)
            yield f"empty alpha, header {header}, opaque", bmp(width, height, 32, rows(32, 0xFFFFFF), header, 3, alpha)
        yield "alpha, compression 6", bmp(width, height, 32, rows(32), 40, 6, alpha)
        palette = colours(256)
        for bits, masks, compression in ((8, (), 0), (24, (), 0), (32, (), 0), (16, (), 0), (16, MASKS["565"], 3)):
            table = palette if bits == 8 else ()
            yield f"top-down, {bits} bits, compression {compression} ~", bmp(
                width, -height, bits, rows(bits), 40, compression, masks, table)
        yield "no offset", bmp(width, height, 8, rows(8), palette=palette, offset=0)
        yield "gap", bmp(width, height, 8, rows(8), palette=palette, gap=b"gap.")
        yield "300 colours", bmp(width, height, 8, rows(8), palette=colours(300), used=300)


def run_lengths():
    for bits in (4, 8):
        palette = colours(1 << bits)
        pair = 0x12 if bits == 4 else 7
        whole = b"".join(bytes((9, pair + y, 0, 0)) for y in range(4))
        literal = b"\0\5\x12\x34\x50\0" if bits == 4 else b"\0\5\1\2\3\4\5\0"
        kinds = {"whole": whole, "literals": (literal + bytes((4, 9, 0, 0))) * 4, "short lines": b"\3\x11\0\0" * 4,
                 "early end": b"\5\x11\0\0\3\x22", "deltas": b"\2\x11\0\2\3\1\2\x22\0\2\1\2\1\x33",
                 "delta to the right": b"\2\x11\0\2\4\0\2\x22\0\0" * 4, "no colours": b""}
        for name, codes in kinds.items():
            for height in (4, -4) if name in ("whole", "short lines", "deltas") else (4,):
                yield f"RLE{bits} {name} {height}", bmp(
                    9, height, bits, codes + b"\0\1", compression=1 if bits == 8 else 2, palette=palette)
    yield "RLE24", bmp(9, 4, 24, (b"\4\1\2\3\0\3" + bytes(range(9)) + b"\0\2\7\7\7\0\0") * 4 + b"\0\1", 64, 4)


# --- PCX ---

def coded(line):
    out, i = b"", 0
    while i < len(line):
        count = 1
        while count < 63 and i + count < len(line) and line[i + count] == line[i]:
            count += 1
        out += bytes((0xC0 | count, line[i])) if count > 1 or line[i] >= 0xC0 else line[i:i + 1]
        i += count
    return out


def pcx(width, height, bits, planes, data, encoding=1, version=5, entries=b"", information=1, palette=b""):
    line = -(-width * bits // 16) * 2
    header = struct.pack("<BBBBHHHHHH", 10, version, encoding, bits, 0, 0, width - 1, height - 1, 72, 72)
    header += entries.ljust(48, b"\0") + struct.pack("<BBHH", 0, planes, line, information)
    return header.ljust(128, b"\0") + data + palette


def pictures():
    for width, height in ((2, 1), (7, 5), (33, 9)):
        for bits, planes in ((1, 1), (2, 1), (4, 1), (8, 1), (1, 2), (1, 3), (1, 4), (8, 3)):
            for encoding in (1, 0):
                lines = [b"".join(packed(noise(width, (1 << bits) - 1), bits, 2) for _ in range(planes))
                         for _ in range(height)]
                data = b"".join(coded(line) if encoding else line for line in lines)
                levels = bytes(state.randint(0, 255) for _ in range(768))
                behind = b"\x0c" + levels if (bits, planes) == (8, 1) else b""
                for version in (5, 3):
                    for information in (1, 2):
                        what = f"{bits} bits {planes} planes {width} wide, encoding {encoding} version {version}, {information}"
                        yield what, pcx(width, height, bits, planes, data, encoding, version, levels[:48], information, behind)
                if (bits, planes) == (8, 1):
                    yield f"{what}, trailing", pcx(width, height, bits, planes, data, encoding, 5, b"", 1, behind + b"more")
                if bits * planes == 1:
                    yield f"{what}, no colours", pcx(width, height, bits, planes, data, encoding)


def size_of(data):
    if data[:2] == b"BM":
        core = data[14] == 12
        width, height = struct.unpack_from("<hh" if core else "<ii", data, 18)
        if data[14] == 16:
            width, height = struct.unpack_from("<ii", data, 18)
        return width, abs(height)
    low, top, right, bottom = struct.unpack_from("<HHHH", data, 4)
    return right - low + 1, bottom - top + 1


def bare(library, what, data):
    """A bitmap without its file header is the same picture, unless it passes for something else."""
    seen = []
    for part in (data, data[14:]):
        seen.append(seen_here(library, library.call("IMG_decompress_bitmap_block", part, len(part), 0)))
    if seen[1] and seen[0] != seen[1]:
        failures.append(f"{what}, without file header")


def main():
    with tempfile.TemporaryDirectory() as folder_name:
        folder = pathlib.Path(folder_name)
        # The module is looked for beside the library.
        shutil.copy(sys.argv[1], folder / "libtarnquill.so")
        shutil.copy(sys.argv[2], folder)
        library = Library(str(folder / "libtarnquill.so"))
        for option in (READING, DETECTION):
            library.checked("IMG_set_option", option, 1)
        for ending, kinds in (("bmp", bitmaps), ("bmp", run_lengths), ("pcx", pictures)):
            name = folder / f"theirs.{ending}"
            for what, data in kinds():
                name.write_bytes(data)
                check(library, what, name, size_of(data))
                if kinds == bitmaps and what not in ("no offset", "gap") and "header 16" not in what and what != "10 colours, header 12":
                    bare(library, what, data)
        library.call("IMG_unload_plugins")
    print(f"{agreed} pictures that others agree about, {alone} that they do not, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
