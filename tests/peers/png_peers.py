#!/usr/bin/env python3
"""PNG files of every colour type, depth and interlacing, made by a small model, against Pillow; and what
is written here against Pillow and pngcheck.

    png_peers.py LIBRARY MODULE     exit code 77 without Pillow"""
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
import pcx_peers
from library import Library, conclude
from pcx_peers import failures, noise, pack

GREY, RGB, INDEXED, GREY_ALPHA, RGBA = 0, 2, 3, 4, 6
DEPTHS = {GREY: (1, 2, 4, 8, 16), RGB: (8, 16), INDEXED: (1, 2, 4, 8), GREY_ALPHA: (8, 16), RGBA: (8, 16)}
CHANNELS = {GREY: 1, RGB: 3, INDEXED: 1, GREY_ALPHA: 2, RGBA: 4}
PASSES = ((0, 0, 8, 8), (4, 0, 8, 8), (0, 4, 4, 8), (2, 0, 4, 4), (0, 2, 2, 4), (1, 0, 2, 2), (0, 1, 1, 2))


def chunk(name, data):
    return struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data))


def pack_row(samples, depth):
    if depth == 16:
        return b"".join(struct.pack(">H", s) for s in samples)
    bits = "".join(format(s, f"0{depth}b") for s in samples)
    bits += "0" * (-len(bits) % 8)
    return bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))


def filtered(row, previous, kind, step):
    out = bytearray([kind])
    for i, value in enumerate(row):
        left = row[i - step] if i >= step else 0
        up = previous[i]
        corner = previous[i - step] if i >= step else 0
        near = min((abs(up - corner), 0, left), (abs(left - corner), 1, up), (abs(left + up - 2 * corner), 2, corner))
        out.append((value - (0, left, up, (left + up) // 2, near[2])[kind]) & 255)
    return bytes(out)


def picture(rows, depth, channels, state):
    """Filtered rows of one pass; every filter occurs."""
    step, out, previous = max(1, depth * channels // 8), b"", None
    for row in rows:
        data = pack_row([s for pixel in row for s in pixel], depth)
        out += filtered(data, previous or bytes(len(data)), state.randint(0, 4), step)
        previous = data
    return out


def model(width, height, kind, depth, interlaced, transparency, seed):
    """A PNG file and the colours that must come out of it."""
    state = random.Random(seed)
    channels, most = CHANNELS[kind], (1 << depth) - 1
    entries = min(1 << depth, 200)
    palette = [tuple(state.randint(0, 255) for _ in range(3)) for _ in range(entries)]
    top = entries - 1 if kind == INDEXED else most
    pixels = [[tuple(state.randint(0, top) for _ in range(channels)) for _ in range(width)] for _ in range(height)]
    alpha, chunks = None, b""
    if kind == INDEXED:
        chunks += chunk(b"PLTE", bytes(c for entry in palette for c in entry))
        if transparency == "several":
            alpha = [state.choice((0, 255) if depth == 4 else range(256)) for _ in range(entries)]
            chunks += chunk(b"tRNS", bytes(alpha))
        elif transparency == "one":
            chunks += chunk(b"tRNS", bytes([255] * (entries - 1) + [0]))
    key = pixels[0][0] if transparency == "one" and kind in (GREY, RGB) else None
    if key is not None:
        chunks += chunk(b"tRNS", b"".join(struct.pack(">H", s) for s in key))
    if interlaced:
        data = b"".join(picture([row[x::dx] for row in pixels[y::dy]], depth, channels, state)
                        for x, y, dx, dy in PASSES if x < width)
    else:
        data = picture(pixels, depth, channels, state)
    chunks += chunk(b"pHYs", struct.pack(">IIB", 11811, 5906, 1))
    file = (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, kind, 0, 0, interlaced))
            + chunk(b"tEXt", b"Comment\0text") + chunks)
    stream = zlib.compress(data)
    for i in range(0, len(stream), 50):
        file += chunk(b"IDAT", stream[i:i + 50])
    file += chunk(b"IEND", b"")

    def on_white(level, a):
        return (level * a + 255 * (255 - a) + 127) // 255

    def eight(sample):
        return sample >> 8 if depth == 16 else sample * 255 // most

    def colour(pixel):
        if kind == INDEXED:
            a = alpha[pixel[0]] if alpha and not single else 255
            return tuple(on_white(c, a) for c in palette[pixel[0]])
        a = eight(pixel[-1]) if kind in (GREY_ALPHA, RGBA) else 255
        if key == pixel and (kind == RGB or depth == 16):  # a level of fewer bits stays an index
            a = 0
        grey = kind in (GREY, GREY_ALPHA)
        return tuple(on_white(eight(pixel[0 if grey else i]), a) for i in range(3))

    single = alpha is not None and sum(a != 255 for a in alpha) == 1 and 0 in alpha
    expected = Image.new("RGB", (width, height))
    expected.putdata([colour(p) for row in pixels for p in row])
    return file, expected, pixels


def same(name, left, right, tolerance=0):
    pcx_peers.compared += 1
    if left.size != right.size or any(abs(a - b) > tolerance for a, b in zip(left.tobytes(), right.tobytes())):
        failures.append(name)


def by_pillow(name):
    image = Image.open(name)
    if image.mode in ("I", "I;16"):
        return None
    if "transparency" in image.info or image.mode in ("LA", "RGBA"):
        image = image.convert("RGBA")
        white = Image.new("RGBA", image.size, (255, 255, 255, 255))
        return Image.alpha_composite(white, image).convert("RGB")
    return image.convert("RGB")


def matrix(library, folder):
    for kind, depths in DEPTHS.items():
        for depth in depths:
            for interlaced in (0, 1):
                for transparency in ("none", "one", "several"):
                    for width, height in ((1, 1), (3, 9), (8, 8), (33, 7), (100, 21)):
                        if transparency == "several" and kind != INDEXED or kind in (GREY_ALPHA, RGBA) and transparency != "none":
                            continue
                        label = f"type {kind}, {depth} bits, interlaced {interlaced}, {transparency}, {width}x{height}"
                        file, expected, pixels = model(width, height, kind, depth, interlaced, transparency, len(label) * width)
                        name = folder / "theirs.png"
                        name.write_bytes(file)
                        image = library.open(str(name))
                        header = library.header(image)
                        if (header["x_dpi"], header["y_dpi"]) != (300, 150):
                            failures.append(label + ": resolution")
                        if header["bits"] == 16:
                            rows = [struct.unpack(f"<{width}H", row[:2 * width]) for row in library.rows(image)]
                            key = pixels[0][0][0] if transparency == "one" else None
                            if [list(r) for r in rows] != [[65535 if p[0] == key else p[0] for p in row] for row in pixels]:
                                failures.append(label)
                            pcx_peers.compared += 1
                        else:
                            ours = library.rgb(image)
                            same(label, ours, expected)
                            # Where one entry stays an index, only Pillow lays it on white.
                            theirs = by_pillow(name) if transparency != "one" or kind == RGB else None
                            if theirs is not None and (kind, depth, transparency) != (RGB, 16, "one"):
                                same(label + ", Pillow", ours, theirs, 1)
                        library.delete(image)


def write_ours(library, folder):
    for width in (1, 2, 7, 9, 64, 131):
        for mode in ("1", "4", "P", "RGB"):
            image, name = noise(width, mode, width), folder / f"{mode}{width}.png"
            bits, rows, palette = pack(image, mode)
            handle = library.make(width, pcx_peers.HEIGHT, bits, rows, palette, 300, 150)
            library.save(handle, str(name))
            again = library.open(str(name))
            if (library.rows(again), library.header(again)["bits"]) != (library.rows(handle), bits) or \
                    (library.header(again)["x_dpi"], library.header(again)["y_dpi"]) != (300, 150):
                if mode != "1" or library.rgb(again).tobytes() != image.convert("RGB").tobytes():
                    failures.append(f"own {name.name}")
            pcx_peers.equal(f"Pillow reads {name.name}", Image.open(name), image)
            check(name)
            if mode in ("4", "P"):
                library.call("IMGLOW_set_transp_color", handle, 3)
                library.save(handle, str(name))
                check(name)
                if library.call("IMGLOW_get_transp_color", library.open(str(name))) != 3 or \
                        Image.open(name).info.get("transparency") not in (3, b"\xff\xff\xff\0"):
                    failures.append(f"transparency of {name.name}")
    state = random.Random(1)
    samples = [[state.randint(0, 65535) for _ in range(31)] for _ in range(9)]
    handle = library.make(31, 9, 16, [struct.pack("<31H", *row) for row in samples])
    name = folder / "16.png"
    library.save(handle, str(name))
    check(name)
    if list(Image.open(name).getdata()) != [s for row in samples for s in row]:
        failures.append("16 bits")
    image = noise(31, "RGB", 5)
    rows = [b"".join(bytes((b, g, r, 77)) for r, g, b in [image.getpixel((x, y)) for x in range(31)]) for y in range(pcx_peers.HEIGHT)]
    # A bare DIB of 32 bits is read as an image of colours.
    dib = struct.pack("<IiiHHIIiiII", 40, 31, pcx_peers.HEIGHT, 1, 32, 0, 0, 0, 0, 0, 0) + b"".join(reversed(rows))
    handle = library.checked("IMG_decompress_bitmap_block", dib, len(dib), 0)
    library.save(handle, str(folder / "32.png"))
    check(folder / "32.png")
    pcx_peers.equal("32 bits", Image.open(folder / "32.png"), image)
    if library.call("IMG_save_bitmap", library.make(31, 1, 32, rows[:1]), str(folder / "cmyk.png"), -1) != -21:
        failures.append("cyan, magenta, yellow, black")


def check(name):
    if shutil.which("pngcheck"):
        result = subprocess.run(["pngcheck", "-q", str(name)], capture_output=True, text=True)
        if result.returncode != 0 or result.stdout.strip():
            failures.append(f"pngcheck {name.name}: {result.stdout}")


def main():
    library = Library(sys.argv[1])
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for part in (matrix, write_ours):
            part(library, folder)
    print(f"{pcx_peers.compared} pictures compared, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
