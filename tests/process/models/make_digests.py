#!/usr/bin/env python3
"""Writes ../digests.inc: for every operation a digest of the results on the generated images of
../generated_image.cpp; with --check the exit code is 1 when they are not those."""
import pathlib
import sys

import cleanup
import filters
import geometry as geo
import operations as ops
import quantize
import specks
import tone

WIDTHS = [1, 2, 3, 7, 8, 9, 17, 31, 64, 70, 133]
HEIGHTS = [1, 2, 3, 19]
# bits, compression, in run lists
SOURCES = [(1, 0, False), (1, 0, True), (4, 0, False), (8, 0, False), (16, 0, False),
           (24, 0, False), (32, 200, False), (32, 0, False)]

TABLES = [i * i // 3 + 91 * i & 255 for i in range(768)]
KERNEL = [3, -1, 4, -1, -5, 9, -2, 6, -5, -3, 5, -8, 9, -7, -4]
GIVEN = [(i * 37 & 255, i * 101 & 255, i * 59 & 255) for i in range(40)]

OPERATIONS = [
    ("gray", ops.gray),
    ("mediancut", lambda i: ops.mediancut(i, 1)),
    ("mediancut_system", lambda i: ops.mediancut(i, 2)),
    ("octree_8_256", lambda i: ops.octree(i, 8, None, 256)),
    ("octree_8_20", lambda i: ops.octree(i, 8, None, 20)),
    ("octree_8_3", lambda i: ops.octree(i, 8, None, 3)),
    ("octree_4_256", lambda i: ops.octree(i, 4, None, 256)),
    ("octree_given_40", lambda i: ops.octree(i, 8, GIVEN, 40)),
    ("popularity", ops.popularity),
    ("bayer_mono", lambda i: ops.ordered(i, ops.DISPERSED)),
    ("halftone_mono", lambda i: ops.ordered(i, ops.CLUSTERED)),
    ("diffusion_mono", ops.stucki),
    ("thresh_128", lambda i: ops.threshold(i, 128)),
    ("thresh_below", lambda i: ops.threshold(i, -2)),
    ("thresh_255", lambda i: ops.threshold(i, 255)),
    ("thresh_automatic", lambda i: ops.threshold(i, -1)),
    ("bayer_color", ops.ordered_sixteen),
    ("diffusion_color", ops.diffused_sixteen),
    ("promote_8", lambda i: ops.promote(i, 8)),
    ("promote_24", lambda i: ops.promote(i, 24)),
    ("promote_32", lambda i: ops.promote(i, 32)),
    ("flip", lambda i: geo.orient(i, 4)),
    ("mirror", lambda i: geo.orient(i, 2)),
    ("turn_180", lambda i: geo.orient(i, 3)),
    ("transpose", lambda i: geo.orient(i, 5)),
    ("turn_90", lambda i: geo.orient(i, 6)),
    ("transverse", lambda i: geo.orient(i, 7)),
    ("turn_270", lambda i: geo.orient(i, 8)),
    ("crop", lambda i: geo.crop(i, 1, 0, 6, 10)),
    ("extend", lambda i: geo.extend(i, 5, -2, 3, 1, -1)),
    ("shift", lambda i: geo.extend(i, -9, 4, 9, -4, 0)),
    ("invert", geo.invert),
    ("despeckle", lambda i: specks.despeckle(i, 3, 2, 1)),
    ("despeckle_holes", lambda i: specks.despeckle(i, 2, 3, 2)),
    ("despeckle_both", lambda i: specks.despeckle(i, 4, 4, 3)),
    ("despeckle_marks", lambda i: specks.despeckle(i, 3, 3, 5)),
    ("nearest", lambda i: geo.resize(i, 50, 13, 0)),
    ("area_down", lambda i: geo.resize(i, 9, 5, 1)),
    ("area_up", lambda i: geo.resize(i, 70, 23, 1)),
    ("triangle", lambda i: geo.resize(i, 23, 9, 2)),
    ("cubic", lambda i: geo.resize(i, 50, 7, 3)),
    ("lanczos", lambda i: geo.resize(i, 40, 12, 4)),
    ("lanczos_blocks", lambda i: geo.resize(i, 5, 3, 4)),
    ("area_mono", lambda i: geo.resize(i, 11, 6, 5)),
    ("rotate_10", lambda i: geo.rotate(i, 1000, -1, 0)),
    ("rotate_back", lambda i: geo.rotate(i, 36000 - 1013, 0, 1)),
    ("rotate_147", lambda i: geo.rotate(i, 14701, 1, 2)),
    ("rotate_nearest", lambda i: geo.rotate(i, 200, -1, 3)),
    ("tone", lambda i: tone.tone(i, 20, 35, 180)),
    ("tone_dark", lambda i: tone.tone(i, -10, -60, 45)),
    ("tone_table", lambda i: tone.changed(i, [TABLES[:256]] * 3)),
    ("tone_table3", lambda i: tone.changed(i, [TABLES[at:at + 256] for at in (0, 256, 512)])),
    ("histogram_grey", lambda i: tone.histogram(i, 0, 37)),
    ("histogram_red", lambda i: tone.histogram(i, 1, 5)),
    ("histogram_blue", lambda i: tone.histogram(i, 3, 5)),
    ("auto_levels", lambda i: tone.auto_levels(i, 50)),
    ("auto_levels_most", lambda i: tone.auto_levels(i, 3000)),
    ("equalize", tone.equalize),
    ("box", lambda i: filters.filtered(i, 0, 2)),
    ("gauss", lambda i: filters.filtered(i, 1, 73)),
    ("gauss_wide", lambda i: filters.filtered(i, 1, 310)),
    ("median", lambda i: filters.filtered(i, 2, 1)),
    ("median_wide", lambda i: filters.filtered(i, 2, 4)),
    ("darkest", lambda i: filters.filtered(i, 3, 1)),
    ("lightest", lambda i: filters.filtered(i, 4, 5)),
    ("unsharp", lambda i: filters.filtered(i, 5, 100, 170)),
    ("edges", lambda i: filters.filtered(i, 6, 1)),
    ("convolve", lambda i: filters.convolved(i, KERNEL, 5, 3, -7, 40)),
    ("convolve_large", lambda i: filters.convolved(i, [v * 10 ** 8 for v in KERNEL], 3, 5, 10 ** 9, 0)),
    ("quantize_8", lambda i: quantize.quantize(i, 8, 25, 0)),
    ("quantize_4", lambda i: quantize.quantize(i, 4, 16, 1)),
    ("find_threshold", cleanup.find_threshold),
    ("otsu_mono", lambda i: cleanup.adaptive_mono(i, 0)),
    ("sauvola_mono", lambda i: cleanup.adaptive_mono(i, 1)),
    ("sauvola_narrow", lambda i: cleanup.adaptive_mono(i, 1, 5, 60)),
    ("sauvola_wide", lambda i: cleanup.adaptive_mono(i, 1, 255, 10)),
    ("levelled_mono", lambda i: cleanup.adaptive_mono(i, 2)),
    ("level_background", cleanup.level_background),
]


class Random:
    def __init__(self, seed):
        self.state = seed

    def byte(self):
        self.state = (self.state * 1664525 + 1013904223) & 0xFFFFFFFF
        return self.state >> 24


def generate(bits, compression, in_runs, width, height, number):
    random = Random(number + 1)
    palettes = {
        0: lambda i, n: (i * 255 // (n - 1),) * 3,
        1: lambda i, n: (random.byte(), random.byte(), random.byte()),
        2: lambda i, n: (255 - i * 3 & 255, 200 + i & 255, i * 85 & 255),
    }
    entries = {1: 2, 4: 16, 8: 256, 16: 256}.get(bits, 0)
    palette = [palettes[number % 3](i, entries) for i in range(entries)]
    kind = number % 4

    def level(x, y, channel):
        if kind == 0:
            return random.byte()
        if kind == 1:
            return x * 7 + y * 13 + channel * 85 & 255
        if kind == 2:
            return (x // 8 * 67 + y // 4 * 131 + channel * 29) * 37 & 255
        return min(max(90 + abs((x * 5 + channel * 40) % 200 - 100) + random.byte() // 16 + y, 0), 255)

    rows = []
    for y in range(height):
        row = bytearray(ops.stride(width, bits))
        for x in range(width):
            if bits < 8:
                row[x * bits // 8] |= level(x, y, 0) >> (8 - bits) << (8 - bits - x * bits % 8)
            else:
                for channel in range(bits // 8):
                    row[x * bits // 8 + channel] = level(x, y, channel)
        rows.append(bytes(row))
    if in_runs:  # what lies behind the width reads as white
        compression = 99
        for y, row in enumerate(rows):
            padding = (1 << (len(row) * 8 - width)) - 1
            rows[y] = (int.from_bytes(row, "big") | padding).to_bytes(len(row), "big")
    if bits == 1 and all(palette[0]):
        palette = [(0, 0, 0), (255, 255, 255)]
    return {"bits": bits, "width": width, "height": height, "compression": compression,
            "palette": palette, "rows": rows, "in_runs": in_runs}


class Digest:
    """FNV-1a, 64 bits."""

    def __init__(self):
        self.value = 0xCBF29CE484222325

    def add(self, data):
        for byte in data:
            self.value = (self.value ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF

    def add_result(self, status, image):
        entries = {1: 2, 4: 16, 8: 256, 16: 256}.get(image["bits"], 0)
        palette = image["palette"] + [(0, 0, 0)] * (entries - len(image["palette"]))
        self.add((status & 0xFFFFFFFF).to_bytes(4, "little"))
        self.add([image["bits"], image["compression"]])
        for colour in palette:
            self.add([*colour, 0])
        for row in image["rows"]:
            self.add(row)


def main():
    lines = ["// Written by models/make_digests.py from an independent model of the operations.\n"]
    sizes = [(width, height) for width in WIDTHS for height in HEIGHTS]
    images = [generate(*source, *size, number) for source in SOURCES
              for number, size in enumerate(sizes)]
    for operation, run in OPERATIONS:
        digest = Digest()
        for image in images:
            digest.add_result(*run(image))
        lines.append(f'{{"{operation}", 0x{digest.value:016X}}},\n')
    written = pathlib.Path(__file__).resolve().parent.parent / "digests.inc"
    if "--check" in sys.argv:
        sys.exit(written.read_text() != "".join(lines))
    written.write_text("".join(lines))


if __name__ == "__main__":
    main()
