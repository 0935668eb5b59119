#!/usr/bin/env python3
"""PCX and PNG beside Pillow in one process: medians of alternating runs, in nanoseconds of CPU time per pixel.

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
    drawing = Image.effect_noise((WIDTH // 8, HEIGHT // 8), 60).resize((WIDTH, HEIGHT)).convert("P")
    page = Image.effect_noise((WIDTH // 8, HEIGHT // 8), 90).resize((WIDTH, HEIGHT)).convert("1", dither=0)
    return (("24 bits", photo, ("PCX", "PNG")), ("8 bits", drawing, ("PCX", "PNG")), ("1 bit", page, ("PCX", "PNG")))


def timed(work):
    start = time.process_time()
    work()
    return time.process_time() - start


def medians(ours, theirs):
    times = [(timed(ours), timed(theirs)) for _ in range(RUNS)]
    return [statistics.median(column) for column in zip(*times)]


def report(label, ours, theirs):
    mine, other = (1e9 * t / (WIDTH * HEIGHT) for t in medians(ours, theirs))
    print(f"{label:24} {mine:8.2f} {other:8.2f} {mine / other:8.2f}")


def main():
    library = Library(sys.argv[1])
    api = library.api
    print(f"{'':24} {'ours':>8} {'Pillow':>8} {'ratio':>8}")
    for depth, picture, formats in subjects():
        for kind in formats:
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
                if api.IMG_save_bitmap_block(image, room, ctypes.c_size_t(len(room)), CODES[kind]) <= 0:
                    raise RuntimeError("not saved")

            report(f"{kind} {depth} write", write, lambda: picture.save(io.BytesIO(), kind))
            library.delete(image)


if __name__ == "__main__":
    main()
