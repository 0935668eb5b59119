#!/usr/bin/env python3
"""PCX and PNG beside Pillow in one process: medians of alternating runs, in nanoseconds of CPU time per pixel,
and the bytes written, ours to Pillow's.

    bench/pcx_peers.py LIBRARY"""
import ctypes
import io
import pathlib
import statistics
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "peers"))
from PIL import Image  # noqa: E402
from library import Library  # noqa: E402

WIDTH, HEIGHT, RUNS = 1600, 1200, 9
CODES = {"PCX": 2, "PNG": 43}


def subjects():
    noise = [Image.effect_noise((WIDTH, HEIGHT), 6) for _ in range(3)]
    slope = Image.linear_gradient("L").resize((WIDTH, HEIGHT))
    photo = Image.merge("RGB", [Image.blend(slope.rotate(90 * i), n, 0.5) for i, n in enumerate(noise)])
    grey = Image.effect_noise((WIDTH // 8, HEIGHT // 8), 60).resize((WIDTH, HEIGHT))
    coloured = grey.convert("P")
    coloured.putpalette([level for i in range(256) for level in (i, 255 - i, 99)])
    page = Image.effect_noise((WIDTH // 8, HEIGHT // 8), 90).resize((WIDTH, HEIGHT)).convert("1", dither=0)
    return (("24 bits", photo), ("8 bits", grey), ("8 bits, palette", coloured), ("1 bit", page))


def timed(work):
    start = time.process_time()
    work()
    return time.process_time() - start


def medians(ours, theirs):
    times = [(timed(ours), timed(theirs)) for _ in range(RUNS)]
    return [statistics.median(column) for column in zip(*times)]


def report(label, ours, theirs, bytes_ratio=""):
    mine, other = (1e9 * t / (WIDTH * HEIGHT) for t in medians(ours, theirs))
    print(f"{label:26} {mine:8.2f} {other:8.2f} {mine / other:8.2f} {bytes_ratio:>8}")


def main():
    library = Library(sys.argv[1])
    api = library.api
    print(f"{'':26} {'ours':>8} {'Pillow':>8} {'ratio':>8} {'bytes':>8}")
    for depth, picture in subjects():
        for kind in CODES:
            stream = io.BytesIO()
            picture.save(stream, kind)
            file = stream.getvalue()

            def read():
                library.delete(api.IMG_decompress_bitmap_block(file, ctypes.c_size_t(len(file)), 0))

            def read_theirs():
                Image.open(io.BytesIO(file)).load()

            report(f"{kind} {depth} read", read, read_theirs)
            image = api.IMG_decompress_bitmap_block(file, ctypes.c_size_t(len(file)), 0)
            room = ctypes.create_string_buffer(8 * WIDTH * HEIGHT)

            def write():
                size = api.IMG_save_bitmap_block(image, room, ctypes.c_size_t(len(room)), CODES[kind])
                if size <= 0:
                    raise RuntimeError("not saved")
                return size

            bytes_ratio = f"{write() / len(file):.3f}"
            report(f"{kind} {depth} write", write, lambda: picture.save(io.BytesIO(), kind), bytes_ratio)
            library.delete(image)


if __name__ == "__main__":
    main()
