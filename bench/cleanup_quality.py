#!/usr/bin/env python3
"""How well pages are cleaned, on pages that pages.py draws: prints figures beside what they are to be.

    cleanup_quality.py LIBRARY [--set tuning|fresh] [--cache FOLDER] [--list] [NAME ...]

NAME: skew, following, orientation, binarisation, and peer, speed: the same figures of leptonica
(Debian's liblept5), and times beside its own; all without one. --list tells each page that went wrong. Drawing
takes some seconds a page; --cache keeps what was drawn.
"""
import argparse
import ctypes
import io
import pathlib
import pickle
import statistics
import time

import numpy
from PIL import Image

import pages
from leptonica import Leptonica


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


def following(library, drawn, tell):
    """Poor scans that are turned further: the answer is to follow."""
    good = everything = 0
    resolutions = (60, 75, 100, 150, 200, 300, 400)
    for number, kind in enumerate(list(pages.KINDS)[:21]):
        dpi = resolutions[number % len(resolutions)]
        page = drawn.make(kind, 0, dpi=dpi, angle=0.3, effects={"bleed", "tint", "light", "noise", "jpeg"},
                          mono=False)
        _, before, confidence = library.find("IMG_find_skew", page.image, 0)
        for turn in (-700, -130, 240, 1000):
            handle = library.open(page.image)
            library.IMG_rotate_bitmap(handle, turn, -1, 0)
            out, sure = ctypes.c_int32(), ctypes.c_int32()
            library.IMG_find_skew(handle, 0, ctypes.byref(out), ctypes.byref(sure))
            library.IMG_delete_bitmap(handle)
            everything += 1
            follows = confidence > 0 and sure.value > 0 and abs(before - turn - out.value) <= 10
            good += follows
            if not follows:
                tell(kind, page, f"{before / 100}, turned by {turn / 100}: {out.value / 100}")
    print(f"poor scans of 60 to 400 dpi, turned: {everything}")
    show("whose answer follows to 0.1 degrees, %", 100 * good / everything, ">= 75")


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


def f_measure(black, ink):
    return 200.0 * (black & ink).sum() / max(black.sum() + ink.sum(), 1)


def binarised(drawn):
    for kind in ("latin", "faint", "newspaper", "code", "ar", "table", "screened"):
        for number, effects in enumerate(({"light", "noise"}, {"bleed", "tint"},
                                          {"jpeg", "tint", "light"}, {"tint", "noise"})):
            yield kind, drawn.make(kind, number, mono=False, angle=0, effects=effects, dpi=200)


def binarisation(library, drawn, tell):
    for method, wanted in ((2, "mean F >= 90, PSNR >= 18.5, worst F >= 64"),
                           (1, "mean F >= 85, worst >= 65"), (0, "")):
        scores = []
        for kind, page in binarised(drawn):
            handle = library.open(page.image)
            library.IMG_adaptive_mono(handle, method, 0, 0)
            black = library.bits(handle, page.image.size) == 0
            library.IMG_delete_bitmap(handle)
            ink = numpy.asarray(page.truth) == 0
            measure = f_measure(black, ink)
            scores.append((measure, -10 * numpy.log10(max((black != ink).mean(), 1e-9))))
            if measure < 70:
                tell(kind, page, f"method {method}: F {measure:.1f}")
        print(f"binarisation, method {method}: {wanted}")
        show("mean F", statistics.mean(f for f, _ in scores), "")
        show("mean PSNR, dB", statistics.mean(p for _, p in scores), "")
        show("worst F", min(f for f, _ in scores), "")


def peer(_, drawn, tell):
    """What leptonica answers on the same pages."""
    lept = Leptonica()

    def black(picture):
        if picture.mode == "1":
            return lept.open(picture, 1)
        grey = lept.open(picture.convert("L"), 8)
        made = lept.levelled(grey)
        lept.close(grey)
        return made

    errors, right, wrong, everything = [], 0, 0, 0
    for kind in pages.KINDS:
        for number in range(4):
            page = drawn.make(kind, number, **({"angle": 0} if number == 3 else {}))
            picture = black(page.image)
            angle, confidence = lept.skew(picture)
            lept.close(picture)
            if confidence >= 3 and abs(angle) >= 0.05:
                errors.append(abs(angle + page.angle))
            page = drawn.make(kind, number, quarter=number, angle=0 if number % 2 else 0.4)
            picture = black(page.image)
            found = lept.orientation(picture)
            lept.close(picture)
            everything += 1
            good = found == (lept.UP, lept.RIGHT, lept.DOWN, lept.LEFT)[number]
            right, wrong = right + good, wrong + (found != 0 and not good)
    turned = 0
    for kind in pages.WITHOUT_TEXT:
        for number in range(8):
            picture = black(drawn.make(kind, number).image)
            turned += lept.orientation(picture) not in (0, lept.UP)
            lept.close(picture)
    errors.sort()
    print(f"leptonica: skew of {len(errors)} of {everything} pages of text")
    show("mean error of what is turned, degrees", statistics.mean(errors), "")
    show("mean error of the best 80 %", statistics.mean(errors[:round(len(errors) * 0.8)]), "")
    show("within 0.1 degrees, %", 100 * sum(e <= 0.1 for e in errors) / len(errors), "")
    show("orientation right, %", 100 * right / everything, "")
    show("orientation wrong, %", 100 * wrong / everything, "")
    show("pages without text turned", turned, "")
    scores = {"Sauvola": [], "levelled": [], "Otsu": []}
    for kind, page in binarised(drawn):
        grey, ink = lept.open(page.image, 8), numpy.asarray(page.truth) == 0
        for name, made in (("Sauvola", lept.sauvola(grey, 8)), ("levelled", lept.levelled(grey)),
                           ("Otsu", lept.otsu(grey))):
            scores[name].append(f_measure(lept.black(made), ink))
            if scores[name][-1] < 70:
                tell(kind, page, f"{name}: F {scores[name][-1]:.1f}")
            lept.close(made)
        lept.close(grey)
    for name, measures in scores.items():
        show(f"{name}: mean F", statistics.mean(measures), "")
        show(f"{name}: worst F", min(measures), "")


def least_time(run, prepare, finish):
    times = []
    for _ in range(5):
        prepared = prepare()
        started = time.process_time()
        run(prepared)
        times.append(time.process_time() - started)
        finish(prepared)
    return min(times)


def speed(library, drawn, _):
    lept = Leptonica()
    out = ctypes.byref(ctypes.c_int32())

    def despeckled(picture):
        lept.close(lept.despeckled(picture, 3, 3))

    rows = (
        ("components", 1, lept.components, lambda h: library.IMG_despeckle_bitmap(h, 1, 1, 1), 0.5),
        ("despeckle", 1, despeckled, lambda h: library.IMG_despeckle_bitmap(h, 3, 3, 1), 0.4),
        ("find skew", 1, lept.skew, lambda h: library.IMG_find_skew(h, 0, out, out), 0.3),
        ("orientation", 1, lept.orientation, lambda h: library.IMG_find_orientation(h, out, out), 0.25),
        ("Otsu", 8, lambda p: lept.close(lept.otsu(p)),
         lambda h: library.IMG_adaptive_mono(h, 0, 0, 0), 0.9),
        ("Sauvola", 8, lambda p: lept.close(lept.sauvola(p, 12)),
         lambda h: library.IMG_adaptive_mono(h, 1, 0, 0), 0.3),
        ("levelled, Otsu", 8, lambda p: lept.close(lept.levelled(p)),
         lambda h: library.IMG_adaptive_mono(h, 2, 0, 0), 0.3))
    page = drawn.make("latin", 0, angle=1.3, dpi=300, effects={"noise"}, mono=False).image.convert("L")
    mono = page.point(lambda v: 0 if v < 128 else 255).convert("1")
    print("speed: ns per pixel of leptonica and ours, the quotient and what it is to be")
    for name, bits, theirs, ours, wanted in rows:
        picture = mono if bits == 1 else page
        pixels = picture.width * picture.height / 1e9
        peer_time = least_time(theirs, lambda: lept.open(picture, bits), lept.close) / pixels
        own_time = least_time(ours, lambda: library.open(picture), library.IMG_delete_bitmap) / pixels
        print(f"  {name:20} {peer_time:8.3f} {own_time:8.3f} {own_time / peer_time:8.3f}   {wanted}")


MEASURES = {"skew": skew, "following": following, "orientation": orientation,
            "binarisation": binarisation, "peer": peer, "speed": speed}


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
