#!/usr/bin/env python3
"""How well specks, lines, surrounds and empty pages are told, on pages drawn in layers, so that the
truth is known to the pixel. Prints figures beside what they are to be.

    cleaning_quality.py LIBRARY [--seeds FIRST COUNT] [--list] [despeckle|lines|paper|blank ...]
"""
import argparse
import ctypes
import io
import random

import numpy
from PIL import Image, ImageDraw
from scipy import ndimage

import pages

SCRIPTS = ("latin", "de", "fr", "vi", "ru", "ar", "he")
CORNERS = numpy.ones((3, 3))


class Library:
    def __init__(self, name):
        self.library = ctypes.CDLL(name)

    def open(self, levels):
        """Of booleans (ink) an image of 1 bit, else of grey."""
        picture = Image.fromarray(levels if levels.dtype == "uint8" else ~levels)
        stream = io.BytesIO()
        picture.save(stream, "BMP")
        data = stream.getvalue()
        handle = self.library.IMG_create_handle_block(data, ctypes.c_size_t(len(data)))
        assert handle >= 0, handle
        return handle

    def ink(self, handle, shape):
        row = ctypes.create_string_buffer((shape[1] + 31) // 32 * 4)
        rows = []
        for y in range(shape[0]):
            self.library.IMGLOW_get_raster(handle, row, y, 0)
            rows.append(row.raw)
        bits = numpy.unpackbits(numpy.frombuffer(b"".join(rows), "uint8").reshape(shape[0], -1), axis=1)
        return bits[:, :shape[1]] == 0

    def cleaned(self, ink, name, *arguments):
        handle = self.open(ink)
        result = getattr(self.library, name)(handle, *arguments)
        assert result >= 0, (name, result)
        left = self.ink(handle, ink.shape)
        self.library.IMG_delete_bitmap(handle)
        return left

    def rectangle(self, levels, name):
        handle = self.open(levels)
        values = [ctypes.c_int32() for _ in range(4)]
        result = getattr(self.library, name)(handle, *map(ctypes.byref, values))
        self.library.IMG_delete_bitmap(handle)
        assert result >= 0, (name, result)
        return [v.value for v in values]

    def number(self, levels, name, *arguments):
        handle = self.open(levels)
        result = getattr(self.library, name)(handle, *arguments)
        self.library.IMG_delete_bitmap(handle)
        assert result >= 0, (name, result)
        return result


def drawn(paper):
    """What was drawn, as a scanner would see it, a little unsharp."""
    return numpy.asarray(paper.image.reduce(2)) < 128


def text_page(seed, dpi=None):
    source = random.Random(f"clean {seed}")
    paper = pages.Paper(source, dpi or source.choice((150, 200, 300)))
    script = SCRIPTS[seed % len(SCRIPTS)]
    if seed % 9 == 8:
        pages.draw_table(paper, ruled=False)
    else:
        pages.draw_text(paper, script)
    return source, paper, script


def is_dot(width, height, pixels, side):
    longer, shorter = max(width, height), min(width, height)
    return side / 2 <= longer <= min(side, 2 * shorter) and longer >= 2 and pixels >= 0.6 * width * height


def despeckle(library, seeds, tell):
    specks = gone = marks = kept = page = page_kept = 0
    for seed in seeds:
        # With 150 dots to the inch thin letters fall apart into what cannot be told from dots.
        source, paper, script = text_page(seed, (200, 200, 300)[seed % 7 % 3])
        clean = drawn(paper)
        dpi = paper.dpi // 2
        side = max(round(dpi / 40), 3)
        if seed % 3 == 0:  # leaders
            y = source.randrange(200, clean.shape[0] - 200)
            clean[y - 20:y + 20] = False
            size, step = max(dpi // 80, 2), dpi // 12
            for x in range(dpi, clean.shape[1] - dpi, step):
                clean[y:y + size, x:x + size] = True
        around = ndimage.binary_dilation(clean, CORNERS, 2)
        dirt = numpy.zeros_like(clean)
        for _ in range(400):
            w, h = source.randrange(1, side + 1), source.randrange(1, side + 1)
            x, y = source.randrange(clean.shape[1] - w), source.randrange(clean.shape[0] - h)
            box = slice(max(y - 1, 0), y + h + 1), slice(max(x - 1, 0), x + w + 1)
            if not around[box].any() and not dirt[box].any():
                dirt[y:y + h, x:x + w] = True
        left = library.cleaned(clean | dirt, "IMG_despeckle_bitmap", side, side, 5)
        labels, count = ndimage.label(dirt, CORNERS)
        stayed = len(numpy.unique(labels[left & dirt]))
        labels, _ = ndimage.label(clean, CORNERS)
        boxes = ndimage.find_objects(labels)
        pixels = ndimage.sum(clean, labels, range(1, len(boxes) + 1))
        small = [i + 1 for i, (a, b) in enumerate(boxes)
                 if is_dot(b.stop - b.start, a.stop - a.start, pixels[i], side)]
        there = len(numpy.intersect1d(small, numpy.unique(labels[left & clean])))
        specks, gone = specks + count, gone + count - stayed
        marks, kept = marks + len(small), kept + there
        page, page_kept = page + clean.sum(), page_kept + (left & clean).sum()
        if tell:
            print(f"  {seed} {script} {dpi} dpi: {count - stayed} of {count} gone, {there} of {len(small)} kept")
    print(f"despeckle: specks gone {100 * gone / specks:.1f} % (93), of {marks} marks kept "
          f"{100 * kept / marks:.1f} % (97.5), ink kept {100 * page_kept / page:.2f} % (99.5)")


def lines(library, seeds, tell):
    line_ink = gone = text_ink = kept = 0
    for seed in seeds:
        source, paper, script = text_page(seed)
        dpi = paper.dpi // 2
        text = paper.image
        paper.image = Image.new("L", text.size, 255)
        paper.draw = ImageDraw.Draw(paper.image)
        thick = max(source.uniform(0.006, 0.02), 1.6 / dpi)  # thinner ones no scanner sees whole
        slant = source.uniform(-0.015, 0.015) if seed % 2 else 0
        if seed % 4 == 0:  # a table
            for i in range(source.randrange(6, 25)):
                paper.rule(0.8, 1 + 0.37 * i, 7.4, 1 + 0.37 * i + 6.6 * slant, thick)
            for i in range(source.randrange(2, 7)):
                paper.rule(0.8 + 1.1 * i, 1, 0.8 + 1.1 * i, 10, thick)
        elif seed % 4 == 1:  # ruled paper
            step = source.uniform(0.2, 0.35)
            for i in range(int(9 / step)):
                paper.rule(0.5, 1 + step * i, 7.8, 1 + step * i + 7.3 * slant, thick)
        elif seed % 4 == 2:  # underlined
            for _ in range(20):
                x, y = source.uniform(0.8, 5), source.uniform(1, 10)
                paper.rule(x, y, x + source.uniform(0.7, 2.4), y, thick)
        else:  # squares
            for i in range(30):
                paper.rule(0.8, 1 + 0.2 * i, 6.8, 1 + 0.2 * i + 6 * slant, thick)
                paper.rule(0.8 + 0.2 * i, 1, 0.8 + 0.2 * i - 6 * slant, 7, thick)
        ruled, written = drawn(paper), numpy.asarray(text.reduce(2)) < 128
        both = numpy.asarray(Image.fromarray(numpy.minimum(
            numpy.asarray(text), numpy.asarray(paper.image))).reduce(2)) < 128
        if seed % 3 == 0:  # worn
            noise = numpy.random.default_rng(seed).random(both.shape)
            both &= noise > 0.01
        left = library.cleaned(both, "IMG_remove_lines", 0, 0, 3)
        only = ruled & ~written & both
        a, b = only.sum(), (written & both).sum()
        c, d = (only & ~left).sum(), (written & left).sum()
        line_ink, gone, text_ink, kept = line_ink + a, gone + c, text_ink + b, kept + d
        if tell:
            print(f"  {seed} {script} {dpi} dpi, kind {seed % 4}: {100 * c / a:.1f} % gone, {100 * d / b:.1f} % kept")
    print(f"lines: line ink gone {100 * gone / line_ink:.1f} % (97), text ink kept {100 * kept / text_ink:.1f} % (97)")


def paper_found(library, seeds, tell):
    overlaps = []
    for seed in seeds:
        source, paper, _ = text_page(seed, 100 if seed % 2 else 150)
        sheet = numpy.asarray(paper.image.reduce(2), "float32")
        height, width = sheet.shape
        angle = 0 if seed % 4 == 0 else source.uniform(-4, 4)
        left, top = (source.randrange(10, 200) for _ in range(2))
        size = (width + left + source.randrange(0, 150), height + top + source.randrange(0, 150))
        mask = Image.new("L", size, 0)
        mask.paste(255, (left, top, left + width, top + height))
        picture = Image.new("L", size, 0)
        picture.paste(Image.fromarray(sheet.astype("uint8")), (left, top))
        mask = numpy.asarray(mask.rotate(angle, Image.BICUBIC)) > 127
        dark = source.uniform(5, 70)
        levels = numpy.where(mask, numpy.asarray(picture.rotate(angle, Image.BICUBIC), "float32") * 0.75 + 50, dark)
        levels += numpy.random.default_rng(seed).normal(0, 5, levels.shape)
        if seed % 3 == 0:
            levels = pages.cast_light(levels, source)
        levels = numpy.clip(levels, 0, 255).astype("uint8")
        if seed % 2:
            levels = levels < 128
        x, y, w, h = library.rectangle(levels, "IMG_find_paper")
        ys, xs = numpy.nonzero(mask)
        a, b, c, d = xs.min(), ys.min(), xs.max() + 1, ys.max() + 1
        common = max(0, min(x + w, c) - max(x, a)) * max(0, min(y + h, d) - max(y, b))
        overlaps.append(100 * common / (w * h + (c - a) * (d - b) - common))
        if tell:
            print(f"  {seed} at {angle:.1f}: {overlaps[-1]:.2f} %")
    print(f"paper: overlap {numpy.mean(overlaps):.2f} % (98), worst {min(overlaps):.2f} % (95)")


def blank_page(seed):
    """A page, and whether there is something on it."""
    source = random.Random(f"blank {seed}")
    paper = pages.Paper(source, source.choice((100, 150, 200, 300)))
    something = seed % 2 == 1
    word = source.choice(pages.words("latin"))
    face = pages.font(source.choice(pages.FONTS["latin"]), paper.px(source.uniform(9, 12) / 72))
    if something:
        kind = seed // 2 % 6
        if kind == 0:  # a page number
            paper.draw.text((paper.px(source.uniform(0.5, 7.5)), paper.px(source.choice((0.45, 11)))),
                            str(source.randrange(1, 400)), 0, font=face)
        elif kind == 1:
            paper.draw.text((paper.px(source.uniform(1, 6)), paper.px(source.uniform(1, 10))), word, 0, font=face)
        elif kind == 2:  # a signature
            x, y = source.uniform(1, 5), source.uniform(2, 10)
            points = [(paper.px(x + 0.05 * i), paper.px(y + source.uniform(-0.15, 0.15))) for i in range(30)]
            paper.draw.line(points, 40, max(paper.px(0.012), 1))
        elif kind == 3:
            pages.draw_letter(paper)
        elif kind == 4:  # faint
            paper.text("latin", (1, 2, 7, 4), 11, ink=source.randrange(100, 170))
        else:
            paper.rule(1, 5, source.uniform(2, 7), 5)
    levels = numpy.asarray(paper.image.reduce(2), "float32")
    dpi = paper.dpi // 2
    if not something and seed // 2 % 3 == 0:  # the back shines through
        back = pages.Paper(source, dpi)
        pages.draw_text(back, "latin")
        levels = numpy.minimum(levels, 255 - (255 - numpy.asarray(back.image.reduce(2), "float32")[:, ::-1]) * 0.1)
    picture = Image.fromarray(levels.astype("uint8"))
    draw = ImageDraw.Draw(picture)
    if source.random() < 0.4:  # punch holes
        for y in (3.9, 7.1):
            x, r = source.uniform(0.35, 0.6), 0.118
            draw.ellipse([round(v * dpi) for v in (x - r, y - r, x + r, y + r)], source.randrange(80))
    if source.random() < 0.4:  # a lid along an edge
        draw.rectangle((0, 0, round(source.uniform(0.02, 0.2) * dpi), picture.height), source.randrange(90))
    for _ in range(source.randrange(60)):  # dust
        x, y = source.randrange(picture.width), source.randrange(picture.height)
        r = source.uniform(0.1, 0.25) * dpi / 25.4
        draw.ellipse((x - r, y - r, x + r, y + r), source.randrange(120))
    effects = {e for e in ("tint", "light", "noise", "jpeg") if source.random() < 0.4}
    image = numpy.asarray(pages.scan(source, numpy.asarray(picture, "float32"), effects).convert("L"))
    faint = something and seed // 2 % 6 == 4
    if source.random() < 0.4 and not faint and not effects & {"light", "tint"}:
        image = image < 128
    return image, something, sorted(effects)


def blank(library, seeds, tell):
    right = lost = 0
    for seed in seeds:
        levels, something, effects = blank_page(seed)
        found = library.number(levels, "IMG_is_blank", 0)
        right += found == (not something)
        lost += something and found
        if tell and found == something:
            print(f"  {seed} kind {seed // 2 % 6} {effects} {levels.dtype}: {'lost' if something else 'not called blank'}")
    print(f"blank: right {100 * right / len(seeds):.1f} % (95), pages lost {lost} (0)")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("--seeds", nargs=2, type=int, default=(1000, 40))
    parser.add_argument("--list", action="store_true")
    parser.add_argument("names", nargs="*")
    options = parser.parse_intermixed_args()
    measures = {"despeckle": despeckle, "lines": lines, "paper": paper_found, "blank": blank}
    library = Library(options.library)
    first, count = options.seeds
    for name in options.names or measures:
        measures[name](library, range(first, first + count), options.list)


if __name__ == "__main__":
    main()
