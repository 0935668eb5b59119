#!/usr/bin/env python3
"""What the library of this system sees in the corpus, whole, cut off and damaged, for the tests of the npm package.

    npm_expected.py BINDINGS LIBRARY OUT     exit code 77 without numpy, or when the library has not been built

OUT becomes JSON: for each file and each kind of damage what `info` owes, and `decode` for each page: a status below
0, or sides, resolution, damage and the digest of red, green, blue and opacity.
"""
import ctypes
import hashlib
import json
import os
import pathlib
import struct
import sys

try:
    import numpy
except ImportError:
    sys.exit(77)

BINDINGS, os.environ["TARNQUILL_LIBRARY"] = pathlib.Path(sys.argv[1]).resolve(), os.path.abspath(sys.argv[2])
if not os.path.exists(os.environ["TARNQUILL_LIBRARY"]):
    sys.exit(77)
sys.path.insert(0, str(BINDINGS / "python"))
import tarnquill  # noqa: E402

MOST_PAGES = 12


def damaged(data, kind):
    """As npm_test.mjs does it."""
    if kind == "cut":
        return data[:len(data) * 2 // 3]
    if kind == "changed":
        changed = bytearray(data)
        for at in range(60, len(changed), 211):
            changed[at] ^= 0x5A
        return bytes(changed)
    return data


def rgba_of(image):
    """From the packed DIB that other programs would get: nothing of the library's drawing is in it."""
    size = image._call("IMG_copy_dib", None, 0)
    block = ctypes.create_string_buffer(size)
    image._call("IMG_copy_dib", block, size)
    header, width, height, _, bits = struct.unpack_from("<IiiHH", block)
    used = struct.unpack_from("<I", block, 32)[0] or (1 << bits if bits <= 8 else 0)
    palette = numpy.frombuffer(block, numpy.uint8, 4 * used, header).reshape(-1, 4)
    stride = (width * bits + 31) // 32 * 4
    rows = numpy.frombuffer(block, numpy.uint8, stride * height, header + 4 * used).reshape(height, stride)[::-1]
    rgba = numpy.full((height, width, 4), 255, numpy.uint8)
    if bits > 8:
        rgba[..., :3] = rows[:, :width * bits // 8].reshape(height, width, bits // 8)[..., 2::-1]
        return rgba
    if bits == 1:
        index = numpy.unpackbits(rows, axis=1)[:, :width]
    elif bits == 4:
        index = numpy.stack((rows >> 4, rows & 15), -1).reshape(height, -1)[:, :width]
    else:
        index = rows[:, :width]
    rgba[..., :3] = palette[index][..., 2::-1]
    transparent = transparent_index(image)
    if transparent >= 0:
        rgba[index == transparent] = 0
    return rgba


def transparent_index(image):
    with image._entered() as api:
        return int(api.IMGLOW_get_transp_color(image._live().number))


def decoded(data, page):
    try:
        image = tarnquill.Image.open(data, page)
    except tarnquill.Error as error:
        return error.status
    damage = image.damage
    return {"width": image.width, "height": image.height, "bits": image.bits,
            "dpi": dict(zip("xy", image.dpi)) if all(image.dpi) else None,
            "damage": damage and damage.reason.text,
            "damagedRows": damage and {"first": damage.first, "last": damage.last},
            "digest": hashlib.sha256(rgba_of(image).tobytes()).hexdigest()}


def seen(data):
    try:
        said = tarnquill.info(data)
    except tarnquill.Error as error:
        return {"info": error.status, "pages": [decoded(data, 0)]}
    info = {"format": said.format, "pages": said.pages, "bits": said.bits, "width": said.width, "height": said.height}
    return {"info": info, "pages": [decoded(data, page) for page in range(min(said.pages, MOST_PAGES))]}


def main():
    for name, value in (("inks", 1), ("max_pixels", 1 << 28), ("max_kbytes", 768 << 10)):
        tarnquill.set_option(name, value)
    files = sorted(path for path in pathlib.Path("corpus").glob("*/*") if path.parent.name != "shown")
    expected = {}
    for path in files:
        data = path.read_bytes()
        expected[str(path)] = {kind: seen(damaged(data, kind)) for kind in ("whole", "cut", "changed")}
    pathlib.Path(sys.argv[3]).write_text(json.dumps(expected))


if __name__ == "__main__":
    main()
