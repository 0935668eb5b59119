#!/usr/bin/env python3
"""How well pages are cleaned, on pages that pages.py draws: prints figures beside what they are to be.

    cleanup_quality.py LIBRARY [--set tuning|fresh] [--cache FOLDER] [--list] [NAME ...]

NAME: skew, orientation, binarisation; all without one. --list tells each page that went wrong. Drawing
takes some seconds a page; --cache keeps what was drawn.
"""
import argparse
import ctypes
import io
import pathlib
import pickle
import statistics

import numpy
from PIL import Image

import pages


class Library:
    def __init__(self, name):
        self.library = ctypes.CDLL(name)

    def __getattr__(self, name):
        return getattr(self.library, name)

    def open(self, picture):
        stream = io.BytesIO()
        picture.save(stream, "BMP")
        data = stream.getvalue()
        handle = self.library.IMG_create_handle_block(data, ctypes.c_size_t(len(data)))
        assert handle >= 0, handle
        return handle

    def find(self, name, picture, *arguments):
        """The result and the two numbers that a search gives out."""
        handle = self.open(picture)
        first, second = ctypes.c_int32(), ctypes.c_int32()
        found = getattr(self.library, name)(handle, *arguments, ctypes.byref(first),
                                            ctypes.byref(second))
        self.library.IMG_delete_bitmap(handle)
        return found, first.value, second.value

    def bits(self, handle, size):
        """A 1-bit image as levels."""
        row = ctypes.create_string_buffer((size[0] + 31) // 32 * 4)
        rows = []
        for y in range(size[1]):
            self.library.IMGLOW_get_raster(handle, row, y, 0)
            rows.append(bytes(row))
        return numpy.unpackbits(numpy.frombuffer(b"".join(rows), "uint8").reshape(size[1], -1),
                                axis=1)[:, :size[0]] * 255


class Pages:
    def __init__(self, seeds, cache):
        self.seeds, self.cache = seeds, cache

    def make(self, kind, number, **how):
        seed = self.seeds[number]
        if self.cache is None:
            return pages.make_page(kind, seed, **how)
        name = "_".join([kind, str(seed), *(f"{k}{v}" for k, v in sorted(how.items()))])
        file = self.cache / f"{name}.pickle"
        if not file.exists():
            file.write_bytes(pickle.dumps(pages.make_page(kind, seed, **how)))
        return pickle.loads(file.read_bytes())


def show(name, value, wanted):
    print(f"  {name:48} {value:9.3f}   {wanted}")


def skew(library, drawn, tell):
    turned, errors, left, straight, blank, everything = 0, [], 0, 0, 0, 0
    for kind in pages.KINDS:
        for number in range(4):
            page = drawn.make(kind, number, **({"angle": 0} if number == 3 else {}))
            _, angle, confidence = library.find("IMG_find_skew", page.image, 0)
            everything += 1
            error = abs(angle / 100 + page.angle)
            if confidence < 300 or abs(angle) < 5:
                left += abs(page.angle) >= 0.1
                wrong = abs(page.angle) >= 0.1
            else:
                turned += 1
                errors.append(error)
                straight += page.angle == 0 and error > 0.1
                wrong = error > 0.1
            if wrong:
                tell(kind, page, f"turn {angle / 100} for {-page.angle}, confidence {confidence}")
    for kind in pages.WITHOUT_TEXT:
        for number in range(8):
            page = drawn.make(kind, number)
            _, angle, confidence = library.find("IMG_find_skew", page.image, 0)
            if confidence >= 300 and abs(angle) >= 5:
                blank += 1
                tell(kind, page, f"turn {angle / 100}, confidence {confidence}")
    errors.sort()
    print(f"skew: {everything} pages of text, {turned} turned, {left} left that are not level")
    show("mean error of what is turned, degrees", statistics.mean(errors), "<= 0.15")
    best = errors[:round(len(errors) * 0.8)]
    show("mean error of the best 80 %", statistics.mean(best), "<= 0.02")
    show("within 0.1 degrees, %", 100 * sum(e <= 0.1 for e in errors) / len(errors), ">= 96")
    show("straight pages turned by more than 0.1", straight, "0")
    show("pages without text turned", blank, "0")


def orientation(library, drawn, tell):
    right = wrong = left = blank = 0
    kinds = {}
    for kind in pages.KINDS:
        for number in range(4):
            page = drawn.make(kind, number, quarter=number, angle=0 if number % 2 else 0.4)
            _, angle, confidence = library.find("IMG_find_orientation", page.image)
            told = confidence >= 500
            good = told and (angle // 9000 + number) % 4 == 0
            right, wrong, left = right + good, wrong + (told and not good), left + (not told)
            kinds.setdefault(kind, []).append("+" if good else "-" if told else ".")
            if told and not good:
                tell(kind, page, f"turn {angle / 100}, confidence {confidence}")
    for kind in pages.WITHOUT_TEXT:
        for number in range(8):
            page = drawn.make(kind, number)
            _, angle, confidence = library.find("IMG_find_orientation", page.image)
            if confidence >= 500 and angle != 0:
                blank += 1
                tell(kind, page, f"turn {angle / 100}, confidence {confidence}")
    print("orientation:", *(f"{kind} {''.join(marks)}" for kind, marks in kinds.items()))
    show("right, %", 100 * right / (right + wrong + left), ">= 70, better 90")
    show("wrong", wrong, "0")
    show("pages without text turned", blank, "0")


def binarisation(library, drawn, tell):
    for method, wanted in ((2, "mean F >= 90, PSNR >= 18.5, worst F >= 64"),
                           (1, "mean F >= 85, worst >= 65"), (0, "")):
        scores = []
        for kind in ("latin", "faint", "newspaper", "code", "ar", "table", "screened"):
            for number, effects in enumerate(({"light", "noise"}, {"bleed", "tint"},
                                              {"jpeg", "tint", "light"}, {"tint", "noise"})):
                page = drawn.make(kind, number, mono=False, angle=0, effects=effects, dpi=200)
                handle = library.open(page.image)
                library.IMG_adaptive_mono(handle, method, 0, 0)
                black = library.bits(handle, page.image.size) == 0
                library.IMG_delete_bitmap(handle)
                ink = numpy.asarray(page.truth) == 0
                hit = (black & ink).sum()
                measure = 200.0 * hit / (black.sum() + ink.sum())
                scores.append((measure, -10 * numpy.log10(max((black != ink).mean(), 1e-9))))
                if measure < 70:
                    tell(kind, page, f"method {method}: F {measure:.1f}")
        print(f"binarisation, method {method}: {wanted}")
        show("mean F", statistics.mean(f for f, _ in scores), "")
        show("mean PSNR, dB", statistics.mean(p for _, p in scores), "")
        show("worst F", min(f for f, _ in scores), "")


MEASURES = {"skew": skew, "orientation": orientation, "binarisation": binarisation}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("names", nargs="*", default=list(MEASURES))
    parser.add_argument("--set", choices=("tuning", "fresh"), default="fresh")
    parser.add_argument("--cache", type=pathlib.Path)
    parser.add_argument("--list", action="store_true")
    given = parser.parse_intermixed_args()
    if given.cache:
        given.cache.mkdir(parents=True, exist_ok=True)
    drawn = Pages(pages.FRESH if given.set == "fresh" else pages.TUNING, given.cache)

    def tell(kind, page, what):
        if given.list:
            print(f"    {kind} {page.seed} ({page.dpi} dpi, {page.image.mode}, "
                  f"{' '.join(sorted(page.effects))}): {what}")

    for name in given.names:
        MEASURES[name](Library(given.library), drawn, tell)


if __name__ == "__main__":
    main()
