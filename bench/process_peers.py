#!/usr/bin/env python3
"""Operations beside those of other programs: nanoseconds of processor time per source pixel, how many times as long
ours take as the fastest of the others, and what that is meant to be.

    bench/process_peers.py LIBRARY [NAME...]     those whose name begins like that

A photograph of 12 megapixels and an A4 page at 300 dots per inch, on one thread, in memory that has been used before;
all in turn, the least of five each. Peers, as far as they are installed: python3-opencv, python3-pil, libvips42,
liblept5."""
import ctypes
import math
import os
import random
import sys
import time
from ctypes import POINTER, byref, c_char_p, c_double, c_float, c_int, c_int32, c_size_t, c_void_p

os.environ.update(VIPS_CONCURRENCY="1", OMP_NUM_THREADS="1")
import numpy  # noqa: E402
from PIL import Image, ImageChops, ImageFilter, ImageOps  # noqa: E402

import pages  # noqa: E402

try:
    import cv2
    cv2.setNumThreads(1)
except ImportError:
    cv2 = None

RUNS = 5


def keep_memory():
    """Blocks stay with the process, so that nobody pays for pages that the system has to clear."""
    trim_threshold, most_mapped = -1, -4
    library = ctypes.CDLL(None)
    library.mallopt(most_mapped, 0)
    library.mallopt(trim_threshold, 2**31 - 1)


def optional(name):
    try:
        return ctypes.CDLL(name)
    except OSError:
        return None


def photo(width=4000, height=3000):
    source = random.Random(1)
    layers = []
    for _ in range(3):
        small = Image.frombytes("L", (16, 12), source.randbytes(192))
        noise = Image.effect_noise((width, height), 4)  # around 128
        layers.append(ImageChops.add(small.resize((width, height), Image.BICUBIC), noise, 1, -128))
    return Image.merge("RGB", layers)


def a4_page():
    page = pages.make_page("latin", 1000, angle=0, dpi=300, effects=set(), mono=False).image
    sheet = Image.new("L", (2480, 3508), 255)
    sheet.paste(page, (0, 0))
    return sheet


class Ours:
    def __init__(self, path):
        self.library = ctypes.CDLL(path)
        self.blocks = []

    def dib(self, picture):
        header = numpy.zeros(10, "int32")
        bits = {"RGB": 24, "L": 8, "1": 1}[picture.mode]
        header[:] = 40, *picture.size, 1 | bits << 16, 0, 0, 0, 0, 0, 0
        ramp = {24: [], 8: range(256), 1: (0, 255)}[bits]
        palette = numpy.array([v * 0x010101 for v in ramp], "uint32")
        if bits == 1:
            rows = numpy.packbits(numpy.asarray(picture), axis=1)
        else:
            rows = numpy.asarray(picture).reshape(picture.height, -1)
            if bits == 24:
                rows = rows.reshape(picture.height, -1, 3)[:, :, ::-1].reshape(picture.height, -1)
        rows = numpy.pad(rows, ((0, 0), (0, -rows.shape[1] % 4)))[::-1]
        block = numpy.frombuffer(header.tobytes() + palette.tobytes() + rows.tobytes(), "uint8").copy()
        self.blocks.append(block)
        return block.ctypes.data_as(c_void_p)

    def timed(self, picture, name, *arguments, runs=False):
        """Of the operation alone, on a fresh image each time."""
        dib, call = self.dib(picture), getattr(self.library, "IMG_" + name)

        def run():
            image = self.library.IMG_create_handle_keep(dib)
            if runs:
                self.library.IMG_dib_to_runs(image)
            started = time.process_time()
            status = call(image, *arguments)
            taken = time.process_time() - started
            assert status >= 0, (name, status)
            self.library.IMG_delete_bitmap(image)
            return taken
        return run


def timed(call, *arguments):
    def run():
        started = time.process_time()
        made = call(*arguments)
        taken = time.process_time() - started
        assert made is not None
        return taken
    return run


class Leptonica:
    """Of 24 bits it makes 32."""

    def __init__(self):
        self.library = optional("liblept.so.5")
        if self.library is not None:
            self.library.setMsgSeverity(6)
            for name in ("pixCreate", "pixGetData"):
                getattr(self.library, name).restype = c_void_p

    def pix(self, picture):
        bits = {"RGB": 32, "L": 8, "1": 1}[picture.mode]
        if bits == 1:
            rows = numpy.packbits(~numpy.asarray(picture), axis=1)
        else:
            rows = numpy.asarray(picture.convert("RGBA") if bits == 32 else picture).reshape(picture.height, -1)
        rows = numpy.pad(rows, ((0, 0), (0, -rows.shape[1] % 4))).tobytes()
        pix = c_void_p(self.library.pixCreate(*picture.size, bits))
        ctypes.memmove(c_void_p(self.library.pixGetData(pix)), rows, len(rows))
        self.library.pixEndianByteSwap(pix)
        return pix

    def timed(self, picture, name, *arguments, fresh=True):
        pix, call = self.pix(picture), getattr(self.library, name)
        call.restype = c_void_p if fresh else c_int

        def run():
            started = time.process_time()
            made = call(*[pix if a is Image else a for a in arguments])
            taken = time.process_time() - started
            assert made or not fresh, name
            if fresh:
                self.library.pixDestroy(byref(c_void_p(made)))
            return taken
        return run


class Vips:
    def __init__(self):
        self.library = optional("libvips.so.42")
        if self.library is not None:
            self.library.vips_init(b"bench")
            self.library.vips_cache_set_max(0)
            self.library.vips_image_new_from_memory.restype = c_void_p
            self.library.vips_image_write_to_memory.restype = c_void_p
            self.library.vips_enum_from_nick.restype = c_int

    def image(self, picture):
        data = picture.tobytes()
        bands = len(picture.getbands())
        return c_void_p(self.library.vips_image_new_from_memory(
            c_char_p(data), c_size_t(len(data)), *picture.size, bands, 0)), data

    def timed(self, picture, name, *arguments):
        source, data = self.image(picture)

        def run():
            started = time.process_time()
            made, size = c_void_p(), c_size_t()
            status = getattr(self.library, "vips_" + name)(source, byref(made), *arguments, None)
            block = c_void_p(self.library.vips_image_write_to_memory(made, byref(size)))
            taken = time.process_time() - started
            assert status == 0 and block and data, name
            self.library.g_free(block)
            self.library.g_object_unref(made)
            return taken
        return run


class Bench:
    def __init__(self, path, wanted):
        self.ours, self.wanted = Ours(path), wanted
        self.lept, self.vips = Leptonica(), Vips()
        there = [("OpenCV", cv2), ("Pillow", Image), ("libvips", self.vips.library), ("leptonica", self.lept.library)]
        print("peers:", ", ".join(name for name, library in there if library is not None))
        print(f"{'':32}{'ours':>8}{'peer':>9}{'ratio':>8}{'wanted':>8}")

    def row(self, name, picture, target, ours, **peers):
        """ours: name and arguments; a peer's: what is called with the picture as it has it, or what is timed by itself."""
        if self.wanted and not any(name.startswith(w) for w in self.wanted):
            return
        runs = {}
        for form in ("", " in runs") if picture.mode == "1" else ("",):
            runs["ours" + form] = self.ours.timed(picture, *ours, runs=form != "")
        if cv2 is not None and "cv" in peers:
            array = numpy.array(picture)
            runs["OpenCV"] = timed(peers["cv"], array)
        if "pil" in peers:
            runs["Pillow"] = timed(peers["pil"], picture)
        if self.vips.library is not None and "vips" in peers:
            runs["libvips"] = self.vips.timed(picture, *peers["vips"])
        if self.lept.library is not None and "lept" in peers:
            runs["leptonica"] = peers["lept"](self.lept, picture)
        for run in runs.values():
            run()
        least = {who: min(times) for who, times in
                 zip(runs, zip(*[[run() for run in runs.values()] for _ in range(RUNS)]))}
        pixels = picture.width * picture.height
        others = {who: t for who, t in least.items() if not who.startswith("ours")}
        peer = min(others, key=others.get, default=None)
        for who in least.keys() - others.keys():
            line = f"{name + who[4:]:32}{least[who] * 1e9 / pixels:8.3f}"
            if peer is not None:
                line += f"{others[peer] * 1e9 / pixels:9.3f}{least[who] / others[peer]:8.2f}"
            print(f"{line}{target:8.2f}   {peer}", flush=True)
        self.ours.blocks.clear()


def lept(name, *arguments, fresh=True):
    return lambda library, picture: library.timed(picture, name, *arguments, fresh=fresh)


def resized(width, height, method, cv_method=None, pil_method=None):
    peers = {}
    if cv_method is not None:
        peers["cv"] = lambda p: cv2.resize(p, (width, height), interpolation=cv_method)
    if pil_method is not None:
        peers["pil"] = lambda p: p.resize((width, height), pil_method)
    return ("resize_bitmap", width, height, method), peers


def photographs(bench, colour, grey):
    table = numpy.arange(256, dtype="uint32") ** 2 // 255
    levels = table.astype("uint8")
    area, cubic = (cv2.INTER_AREA, cv2.INTER_CUBIC) if cv2 is not None else (None, None)
    null = c_void_p()
    bench.row("24 flip", colour, 1.0, ("flip_bitmap",), cv=lambda p: cv2.flip(p, 0), pil=ImageOps.flip,
              vips=("flip", c_int(1)))
    bench.row("24 mirror", colour, 0.5, ("mirror_bitmap",), cv=lambda p: cv2.flip(p, 1), pil=ImageOps.mirror,
              vips=("flip", c_int(0)))
    bench.row("24 turn 90", colour, 0.5, ("rotate_bitmap", 9000, -1, 0),
              cv=lambda p: cv2.rotate(p, cv2.ROTATE_90_CLOCKWISE), pil=lambda p: p.transpose(Image.ROTATE_270))
    bench.row("24 turn 180", colour, 0.5, ("rotate_bitmap", 18000, -1, 0),
              cv=lambda p: cv2.rotate(p, cv2.ROTATE_180), pil=lambda p: p.transpose(Image.ROTATE_180))

    def turned(p):
        turn = cv2.getRotationMatrix2D((2000, 1500), -1.3, 1)
        return cv2.warpAffine(p, turn, (4000, 3000))
    bench.row("24 turn 1.3", colour, 0.5, ("rotate_bitmap", 130, -1, 1), cv=turned,
              pil=lambda p: p.rotate(-1.3, Image.BILINEAR))
    bench.row("24 invert", colour, 1.0, ("invert_bitmap",), cv=lambda p: cv2.bitwise_not(p), pil=ImageChops.invert,
              vips=("invert",))
    for name, target, width, height in (("1/2", 0.9, 2000, 1500), ("1/8", 0.6, 500, 375),
                                        ("800x600", 0.6, 800, 600), ("777x583", 0.5, 777, 583)):
        ours, peers = resized(width, height, 1, area, Image.BOX)
        if name.startswith("1/"):
            peers["pil"] = lambda p, f=4000 // width: p.reduce(f)
            peers["vips"] = ("shrink", c_double(4000 // width), c_double(4000 // width))
        bench.row("24 area " + name, colour, target, ours, **peers)
    for name, target, width, height in (("1/2", 0.4, 2000, 1500), ("777x583", 0.5, 777, 583)):
        ours, peers = resized(width, height, 4, None, Image.LANCZOS)
        bench.row("24 Lanczos " + name, colour, target, ours, **peers,
                  vips=("resize", c_double(width / 4000)))
    ours, peers = resized(6000, 4500, 3, cubic, Image.BICUBIC)
    bench.row("24 cubic x 1.5", colour, 0.5, ours, **peers)

    def unsharp(p):
        return cv2.addWeighted(p, 2, cv2.GaussianBlur(p, (13, 13), 2), -1, 0)
    for bits, picture, gauss, median in ((24, colour, 0.8, 1.0), (8, grey, 0.8, 1.0)):
        bench.row(f"{bits} Gauss 2.0", picture, gauss, ("filter_bitmap", 1, 200, 0),
                  cv=lambda p: cv2.GaussianBlur(p, (13, 13), 2), vips=("gaussblur", c_double(2)))
        bench.row(f"{bits} median 3x3", picture, median, ("filter_bitmap", 2, 1, 0),
                  cv=lambda p: cv2.medianBlur(p, 3), pil=lambda p: p.filter(ImageFilter.MedianFilter(3)))
    bench.row("24 unsharp", colour, 0.8, ("filter_bitmap", 5, 200, 100), cv=unsharp)
    bench.row("24 table", colour, 0.6, ("tone_table", levels.ctypes.data_as(c_void_p)),
              cv=lambda p: cv2.LUT(p, levels), pil=lambda p: p.point(table.tolist() * 3))
    bench.row("24 to 256 colours", colour, 1.0, ("quantize_bitmap", 8, 256, 0), 
              pil=lambda p: p.quantize(256, Image.Quantize.FASTOCTREE, dither=0))
    bench.row("8 turn 1.3", grey, 0.5, ("rotate_bitmap", 130, -1, 1), cv=turned,
              pil=lambda p: p.rotate(-1.3, Image.BILINEAR), lept=lept("pixRotateAMGray", Image, c_float(0.0226893), 255))
    bench.row("8 Otsu", grey, 0.9, ("adaptive_mono", 0, 0, 0),
              cv=lambda p: cv2.threshold(p, 0, 255, cv2.THRESH_OTSU))
    made = c_void_p()
    bench.row("8 Sauvola", grey, 0.3, ("adaptive_mono", 1, 25, 34),
              lept=lept("pixSauvolaBinarize", Image, 12, c_float(0.34), 1, null, null, null, byref(made), fresh=False))
    bench.row("8 levelled, Otsu", grey, 0.3, ("adaptive_mono", 2, 0, 0),
              lept=lept("pixAdaptThresholdToBinary", Image, null, c_float(1.0)))


def pages_of_a4(bench, page):
    null, number, first, second = c_void_p(), c_int32(), c_float(), c_float()
    mono = page.point(lambda v: 255 * (v > 127)).convert("1")
    bench.row("1 flip", mono, 0.5, ("flip_bitmap",), lept=lept("pixFlipTB", null, Image))
    bench.row("1 mirror", mono, 0.5, ("mirror_bitmap",), lept=lept("pixFlipLR", null, Image))
    bench.row("1 invert", mono, 1.0, ("invert_bitmap",), lept=lept("pixInvert", null, Image))
    bench.row("1 turn 90", mono, 0.4, ("rotate_bitmap", 9000, -1, 0), lept=lept("pixRotate90", Image, 1))
    bench.row("1 turn 180", mono, 0.5, ("rotate_bitmap", 18000, -1, 0), lept=lept("pixRotate180", null, Image))

    def smooth(library, picture):
        grey = picture.convert("L")
        rotated = library.library.pixRotateAMGray
        rotated.restype = c_void_p

        def run():
            source = library.pix(grey)
            started = time.process_time()
            turned = c_void_p(rotated(source, c_float(0.0226893), 255))
            bits = c_void_p(library.library.pixThresholdToBinary(turned, 128))
            taken = time.process_time() - started
            for pix in (source, turned, bits):
                library.library.pixDestroy(byref(pix))
            return taken
        library.library.pixThresholdToBinary.restype = c_void_p
        return run
    bench.row("1 turn 1.3 smooth", mono, 0.2, ("rotate_bitmap", 130, -1, 1), lept=smooth)
    bench.row("1 turn 1.3 nearest", mono, 0.8, ("rotate_bitmap", 130, -1, 3),
              lept=lept("pixRotate", Image, c_float(math.radians(1.3)), 2, 1, 0, 0))
    bench.row("1 to 1/4 grey", mono, 0.8, ("resize_bitmap", 620, 877, 1), lept=lept("pixScaleToGray4", Image))
    bench.row("1 to 0.3 grey", mono, 0.1, ("resize_bitmap", 744, 1052, 1), lept=lept("pixScaleToGray", Image, c_float(0.3)))
    bench.row("1 despeckle", mono, 0.4, ("despeckle_bitmap", 5, 5, 1),
              lept=lept("pixSelectBySize", Image, 6, 6, 8, 5, 4, null))
    bench.row("1 find skew", mono, 0.3, ("find_skew", 1500, byref(number), byref(number)),
              lept=lept("pixFindSkewSweepAndSearch", Image, byref(first), byref(second), 4, 2, c_float(15.0), c_float(1.0),
                        c_float(0.01), fresh=False))
    bench.row("1 find orientation", mono, 0.25, ("find_orientation", byref(number), byref(number)),
              lept=lept("pixOrientDetect", Image, byref(first), byref(second), 0, 0, fresh=False))


def main():
    keep_memory()
    bench = Bench(sys.argv[1], sys.argv[2:])
    colour = photo()
    photographs(bench, colour, colour.convert("L"))
    pages_of_a4(bench, a4_page())


if __name__ == "__main__":
    main()
