#!/usr/bin/env python3
"""Times Pillow on images like those of process_bench.cpp: nanoseconds per pixel, the median of five."""
import statistics
import time

import numpy
from PIL import Image


def photo(width=4000, height=3000):
    random = numpy.random.default_rng(1)
    layers = []
    for _ in range(3):
        small = random.integers(0, 256, (12, 16), dtype=numpy.uint8)
        layers.append(numpy.asarray(Image.fromarray(small).resize((width, height), Image.BICUBIC), int))
    noise = random.integers(-4, 4, (height, width, 3))
    return Image.fromarray(numpy.clip(numpy.stack(layers, 2) + noise, 0, 255).astype(numpy.uint8))


def measure(name, picture, run):
    times = []
    for _ in range(5):
        started = time.perf_counter()
        run(picture)
        times.append(time.perf_counter() - started)
    print(f"{name:40} {statistics.median(times) * 1e9 / picture.width / picture.height:8.2f} ns/px")


def main():
    colour = photo()
    grey = colour.convert("L")
    levels = Image.new("P", (1, 1))
    levels.putpalette([v for r in range(8) for g in range(8) for b in range(4)
                       for v in (r * 255 // 7, g * 255 // 7, b * 255 // 3)])
    measure("24 -> 8 grey", colour, lambda p: p.convert("L"))
    measure("8 -> 1 Floyd-Steinberg", grey, lambda p: p.convert("1"))
    measure("24 -> fixed palette, Floyd-Steinberg", colour, lambda p: p.quantize(palette=levels, dither=1))


if __name__ == "__main__":
    main()
