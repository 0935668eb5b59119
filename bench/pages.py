#!/usr/bin/env python3
"""Draws pages whose truth is known, for the quality of what is found and cleaned: text of many scripts,
columns, tables, forms, drawings, screened pictures, and what scanners do to them. The same seed gives
the same page; TUNING and FRESH are two sets of seeds, and nothing is chosen by looking at the latter.

    pages.py FOLDER KIND SEED ...    writes such pages as PNG, to be looked at

Needs python3-pil, python3-numpy and Debian's fonts: fonts-liberation fonts-dejavu fonts-freefont-ttf
fonts-noto-core fonts-wqy-microhei; the words are those of the installed programs' translations.
"""
import functools
import gettext
import glob
import io
import math
import pathlib
import random
import sys

import numpy
from PIL import Image, ImageDraw, ImageFilter, ImageFont

TUNING, FRESH = range(1000, 1200), range(5000, 5200)
SHEET = (8.27, 11.69)  # inches
FAINT = 150  # the level of faint text

FONTS = {
    "latin": ["liberation*/LiberationSerif-Regular", "liberation*/LiberationSans-Regular",
              "dejavu/DejaVuSerif", "dejavu/DejaVuSans", "freefont/FreeSerif",
              "liberation*/LiberationSansNarrow-Regular", "noto/NotoSerif-Regular",
              "noto/NotoSans-Regular", "liberation*/LiberationSerif-Italic"],
    "code": ["dejavu/DejaVuSansMono", "liberation*/LiberationMono-Regular", "freefont/FreeMono"],
    "el": ["dejavu/DejaVuSerif", "noto/NotoSans-Regular", "freefont/FreeSerif"],
    "ru": ["dejavu/DejaVuSerif", "noto/NotoSans-Regular", "liberation*/LiberationSerif-Regular"],
    "he": ["noto/NotoSerifHebrew-Regular", "dejavu/DejaVuSans", "noto/NotoSansHebrew-Regular"],
    "ar": ["noto/NotoNaskhArabic-Regular", "noto/NotoSansArabic-Regular", "dejavu/DejaVuSans"],
    "vi": ["noto/NotoSerif-Regular", "noto/NotoSans-Regular", "dejavu/DejaVuSans"],
    "zh_CN": ["wqy/wqy-microhei"],
    "hi": ["noto/NotoSansDevanagari-Regular", "noto/NotoSerifDevanagari-Regular"],
    "th": ["noto/NotoSerifThai-Regular", "noto/NotoLoopedThai-Regular"],
}
SCRIPTS = ["latin", "de", "fr", "pl", "vi", "el", "ru", "he", "ar", "zh_CN", "hi", "th", "code"]


@functools.cache
def font_file(pattern):
    return sorted(glob.glob(f"/usr/share/fonts/truetype/{pattern}.tt[fc]"))[0]


@functools.cache
def font(pattern, size):
    return ImageFont.truetype(font_file(pattern), size)


@functools.cache
def words(script):
    if script in ("latin", "code"):
        text = pathlib.Path("/usr/share/common-licenses/GPL-3").read_text()
        return text.split() if script == "latin" else text.splitlines()
    found = []
    for name in ("coreutils", "bash", "apt", "dpkg", "tar", "grep", "appstream", "PackageKit"):
        for file in glob.glob(f"/usr/share/locale/{script}/LC_MESSAGES/{name}.mo"):
            with open(file, "rb") as stream:
                catalogue = gettext.GNUTranslations(stream)
            for key, text in sorted(catalogue._catalog.items(), key=lambda item: str(item[0])):
                if key and len(text) > 20 and text.isprintable() and "%" not in text:
                    found += text.split() if script not in ("zh_CN", "th") else list(text)
    return found


class Paper:
    """A sheet being drawn: dark on white, `zoom` times as fine as what comes out of it."""

    def __init__(self, source, dpi, zoom=2):
        self.random, self.dpi = source, dpi * zoom
        self.image = Image.new("L", tuple(round(side * self.dpi) for side in SHEET), 255)
        self.draw = ImageDraw.Draw(self.image)

    def px(self, inches):
        return round(inches * self.dpi)

    def text(self, script, box, points, leading=1.25, ink=0, ragged=None, fill=1.0, first=0):
        """Lines of words in a box of inches; returns how many were drawn."""
        source = self.random
        face = font(source.choice(FONTS.get(script, FONTS["latin"])), max(self.px(points / 72), 6))
        left, top, right, bottom = (self.px(side) for side in box)
        step = self.px(points * leading / 72)
        all_words, at = words(script), source.randrange(2000)
        space = "" if script in ("zh_CN", "th") else " "
        ragged = source.random() < 0.5 if ragged is None else ragged
        count, indent = 0, 0
        y = top + first
        while y + step <= bottom:
            if source.random() < 0.06:
                indent = self.px(0.25)
                if source.random() < 0.4:
                    y += step // 2
                    continue
            limit = right - left - indent
            if indent or source.random() < 0.07:
                limit = int(limit * source.uniform(0.3, 1))
            if script == "code":
                line = all_words[at % len(all_words)]
                at += 1
                indent = self.px(0.3) * source.randrange(4)
            else:
                line = []
                while face.getlength(space.join(line + [all_words[at % len(all_words)]])) < limit:
                    line.append(all_words[at % len(all_words)])
                    at += 1
                at += not line
                line = space.join(line)
            x = left + indent
            if script in ("he", "ar"):
                x = right - indent - round(face.getlength(line))
            elif not ragged and script != "code" and limit == right - left and " " in line:
                self.justified(line, x, y, limit, face, ink)
                line = ""
            if line and source.random() < fill:
                self.draw.text((x, y), line, ink, font=face)
            count += 1
            indent = 0
            y += step
        return count

    def justified(self, line, x, y, limit, face, ink):
        parts = line.split(" ")
        room = limit - sum(face.getlength(part) for part in parts)
        for part in parts:
            self.draw.text((round(x), y), part, ink, font=face)
            x += face.getlength(part) + room / max(len(parts) - 1, 1)

    def screened(self, box, angle, ruling, tone=None):
        """A picture as dots of a printer's screen, `ruling` to the inch."""
        left, top, right, bottom = (self.px(side) for side in box)
        width, height = right - left, bottom - top
        if tone is None:
            small = numpy.array([[self.random.uniform(20, 235) for _ in range(7)] for _ in range(9)])
            tone = numpy.asarray(Image.fromarray(small.astype("uint8")).resize((width, height),
                                                                               Image.BICUBIC))
        y, x = numpy.mgrid[0:height, 0:width].astype("float32")
        turn, pitch = math.radians(angle), 2 * math.pi * ruling / self.dpi
        u, v = x * math.cos(turn) - y * math.sin(turn), x * math.sin(turn) + y * math.cos(turn)
        screen = (numpy.cos(u * pitch) + numpy.cos(v * pitch)) * 63.75 + 127.5
        self.image.paste(Image.fromarray(numpy.where(tone > screen, 255, 0).astype("uint8")),
                         (left, top))

    def photograph(self, box):
        left, top, right, bottom = (self.px(side) for side in box)
        size, picture = (right - left, bottom - top), None
        for grid, share in ((5, 0.5), (17, 0.3), (60, 0.2)):
            noise = Image.frombytes("L", (grid, grid), self.random.randbytes(grid * grid))
            layer = numpy.asarray(noise.resize(size, Image.BICUBIC), "float32") * share
            picture = layer if picture is None else picture + layer
        self.image.paste(Image.fromarray(picture.astype("uint8")), (left, top))

    def rule(self, x0, y0, x1, y1, thickness=0.008, ink=0):
        self.draw.line([self.px(v) for v in (x0, y0, x1, y1)], ink, max(self.px(thickness), 1))


def draw_text(paper, script, ink=0):
    source = paper.random
    points, left = source.uniform(9, 13), source.uniform(0.8, 1.3)
    paper.text(script, (left, source.uniform(0.8, 2), 8.27 - left, source.uniform(6, 10.9)), points,
               source.uniform(1.15, 1.6), ink)


def draw_columns(paper, script="latin", count=None, level=False, ink=0):
    source = paper.random
    count = count or source.randrange(2, 5)
    gap, left = source.uniform(0.18, 0.35), 0.7
    width = (8.27 - 2 * left + gap) / count
    top = source.uniform(0.8, 2.5)
    if source.random() < 0.7:
        paper.text(script, (left, 0.7, 8.2, top), source.uniform(20, 34), ink=ink)
    points, leading = source.uniform(7, 10), source.uniform(1.1, 1.3)
    for i in range(count):
        y, x = top, left + i * width
        while y < 10:
            end = min(y + source.uniform(2, 6), 10.9)
            own = 1 if level else source.uniform(0.93, 1.07)
            paper.text(script, (x, y, x + width - gap, end), points * own, leading, ink, first=0
                       if level else source.randrange(paper.px(0.1)))
            y = end + (0 if level else source.uniform(0.1, 0.5))


def draw_table(paper, ruled=True):
    source = paper.random
    rows, columns = source.randrange(12, 40), source.randrange(3, 9)
    top, left, right = 1.2, 0.8, 7.5
    high, wide = min(9.0 / rows, 0.4), (right - left) / columns
    face = font(source.choice(FONTS["latin"]), paper.px(min(high * 0.6, 0.15)))
    all_words = words("latin")
    for row in range(rows):
        for column in range(columns):
            if source.random() < 0.15:
                continue
            entry = (source.choice(all_words)[:12] if column == 0 else
                     f"{source.uniform(0, 9999):.2f}" if source.random() < 0.8 else "-")
            paper.draw.text((paper.px(left + column * wide + 0.05), paper.px(top + row * high + 0.02)),
                            entry, 0, font=face)
    if ruled:
        for row in range(rows + 1):
            paper.rule(left, top + row * high, right, top + row * high)
        for column in range(columns + 1):
            paper.rule(left + column * wide, top, left + column * wide, top + rows * high)


def draw_form(paper):
    source = paper.random
    y = 1.0
    paper.text("latin", (0.9, 0.5, 7, 0.95), 18)
    while y < 10:
        high = source.uniform(0.3, 0.6)
        parts = source.randrange(1, 4)
        for i in range(parts):
            x0, x1 = 0.8 + i * 6.7 / parts, 0.8 + (i + 1) * 6.7 / parts
            paper.draw.rectangle([paper.px(v) for v in (x0, y, x1, y + high)], outline=0,
                                 width=max(paper.px(0.008), 1))
            paper.text("latin", (x0 + 0.05, y + 0.02, x0 + 1.2, y + 0.2), 7)
            if source.random() < 0.6:
                paper.text("latin", (x0 + 0.2, y + 0.14, x1 - 0.2, y + 0.4), 11)
        y += high


def draw_drawing(paper):
    source = paper.random
    for _ in range(source.randrange(15, 60)):
        x, y = source.uniform(0.8, 7), source.uniform(0.8, 10)
        kind = source.randrange(3)
        box = [paper.px(v) for v in (x, y, x + source.uniform(0.3, 2), y + source.uniform(0.3, 2))]
        line = max(paper.px(0.012), 1)
        if kind == 0:
            paper.draw.line(box, 0, line)
        elif kind == 1:
            paper.draw.ellipse(box, outline=0, width=line)
        else:
            paper.draw.arc(box, source.uniform(0, 180), source.uniform(180, 360), 0, line)


def draw_screened_page(paper, script="latin"):
    """Text around pictures of dots."""
    source = paper.random
    y, angle, ruling = 0.8, source.choice((0, 15, 30, 45, 75)), source.choice((65, 85))
    while y < 9.5:
        high = source.uniform(1.2, 2.6)
        paper.text(script, (1, y, 7.2, min(y + high, 10.9)), source.uniform(9, 12))
        y += high + 0.1
        if y < 9:
            high = source.uniform(1.2, 2.8)
            x = source.uniform(1, 2.5)
            paper.screened((x, y, source.uniform(4.5, 7.2), min(y + high, 10.9)), angle, ruling)
            y += high + 0.15


def draw_blank(paper):
    pass


def draw_dots(paper):
    source = paper.random
    paper.screened((0.8, 0.8, 7.4, source.uniform(5, 10.8)), source.choice((0, 15, 30, 45, 75)),
                   source.choice((65, 85, 100)))


def draw_photo(paper):
    paper.photograph((0.6, 0.6, 7.6, paper.random.uniform(5, 11)))


def draw_pair(paper):
    """A photograph beside text."""
    paper.photograph((1, 1, 7.2, 4.5))
    paper.text(paper.random.choice(("latin", "de", "fr")), (1, 4.7, 7.2, 10.8), 11)


def draw_letter(paper):
    source = paper.random
    paper.text("latin", (1, 1, 4, 2), 11)
    paper.text("latin", (1, 3, 7, 3 + source.uniform(0.8, 4)), 11)


KINDS = {
    **{script: functools.partial(draw_text, script=script) for script in SCRIPTS},
    "columns": functools.partial(draw_columns, level=True), "newspaper": draw_columns,
    "newspaper_ru": functools.partial(draw_columns, script="ru"), "table": draw_table,
    "bare_table": functools.partial(draw_table, ruled=False), "form": draw_form,
    "screened": draw_screened_page, "pair": draw_pair, "letter": draw_letter,
    "faint": functools.partial(draw_text, script="latin", ink=FAINT),
}
WITHOUT_TEXT = {"blank": draw_blank, "dots": draw_dots, "photo": draw_photo, "drawing": draw_drawing}


class Page:
    """image: as scanned; angle: degrees by which the page lies turned clockwise; dpi; truth: the sheet
    as drawn, in the same place, dark on white; has_text."""


def cast_light(levels, source):
    height, width = levels.shape
    y, x = numpy.mgrid[0:height, 0:width].astype("float32")
    light = (0.75 + 0.25 * numpy.cos((x / width - source.random()) * source.uniform(1, 3)) *
             numpy.cos((y / height - source.random()) * source.uniform(1, 3)))
    light -= source.uniform(0, 0.35) * numpy.exp(-x / width * source.uniform(4, 20))
    return levels * numpy.clip(light, 0.3, 1)


def scan(source, levels, effects):
    """What a scanner makes of a page of levels."""
    if "bleed" in effects:
        back = numpy.asarray(Image.fromarray(levels[:, ::-1].astype("uint8")).filter(
            ImageFilter.GaussianBlur(1.5)), "float32")
        levels = numpy.minimum(levels, 255 - (255 - back) * source.uniform(0.15, 0.35))
    if "tint" in effects:
        paper, ink = source.uniform(190, 240), source.uniform(20, 70)
        levels = ink + levels * ((paper - ink) / 255)
    if "light" in effects:
        levels = cast_light(levels, source)
    if "noise" in effects:
        noise = numpy.random.default_rng(source.randrange(1 << 30))
        levels = levels + noise.normal(0, source.uniform(3, 9), levels.shape)
    image = Image.fromarray(numpy.clip(levels, 0, 255).astype("uint8"))
    if "jpeg" in effects:
        stream = io.BytesIO()
        image.save(stream, "JPEG", quality=source.randrange(25, 60))
        image = Image.open(stream)
        image.load()
    return image


def make_page(kind, seed, angle=None, dpi=None, effects=None, mono=None, quarter=0):
    """angle: None draws one from -15 to 15. quarter: further turns by 90 degrees clockwise. effects: of
    bleed, tint, light, noise, jpeg, surround; None draws them, as mono does: whether to 1 bit."""
    source = random.Random(f"{kind} {seed}")
    dpi = dpi or source.choice((100, 150, 150, 200, 200, 300))
    if angle is None:
        angle = round(source.uniform(-15, 15) if source.random() < 0.5 else source.gauss(0, 3), 2)
    if effects is None:
        effects = {e for e in ("bleed", "tint", "light", "noise", "jpeg", "surround")
                   if source.random() < 0.3}
    mono = source.random() < 0.5 if mono is None else mono
    paper = Paper(source, dpi)
    draws = KINDS | WITHOUT_TEXT
    draws[kind](paper)
    surround = source.uniform(10, 60) if "surround" in effects else 255
    turned = paper.image.rotate(-angle, Image.BICUBIC, fillcolor=255)
    if surround != 255:  # the sheet's edges lie otherwise than the text
        edges = angle + source.uniform(-3, 3)
        mask = Image.new("L", turned.size, 255).rotate(-edges, Image.BICUBIC, fillcolor=0)
        text, turned = turned, Image.new("L", (turned.width + paper.px(1),
                                               turned.height + paper.px(0.6)), round(surround))
        turned.paste(text, (paper.px(0.5), paper.px(0.3)), mask)
    fine = turned.reduce(2)
    page = Page()
    page.kind, page.seed, page.angle, page.dpi = kind, seed, angle, dpi
    page.has_text = kind in KINDS
    page.effects, page.quarter = effects, quarter
    middle = (255 + (FAINT if kind == "faint" else 0)) // 2
    page.truth = fine.point(lambda v: 0 if v < middle else 255)
    image = scan(source, numpy.asarray(fine, "float32"), effects)
    if mono:
        image = image.point(lambda v, t=source.randrange(110, 140): 0 if v < t else 255).convert("1")
    if quarter:
        image = image.transpose({1: Image.ROTATE_270, 2: Image.ROTATE_180, 3: Image.ROTATE_90}[quarter])
    page.image = image
    return page


def main():
    folder = pathlib.Path(sys.argv[1])
    for kind, seed in zip(sys.argv[2::2], sys.argv[3::2]):
        page = make_page(kind, int(seed))
        page.image.save(folder / f"{kind}_{seed}.png")
        print(kind, seed, page.angle, page.dpi, sorted(page.effects), page.image.mode)


if __name__ == "__main__":
    main()
