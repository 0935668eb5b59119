#!/usr/bin/env python3
"""Times Pillow on images like those of process_bench.cpp: nanoseconds per pixel, the median of five."""
import random
import statistics
import time

from PIL import Image, ImageChops


def photo(width=4000, height=3000):
    source = random.Random(1)
    layers = []
    for _ in range(3):
        small = Image.frombytes("L", (16, 12), source.randbytes(192))
        noise = Image.effect_noise((width, height), 4)  # around 128
        layers.append(ImageChops.add(small.resize((width, height), Image.BICUBIC), noise, 1, -128))
    return Image.merge("RGB", layers)


def measure(name, picture, run):
    times = []
    for _ in range(5):
        started = time.process_time()
        run(picture)
        times.append(time.process_time() - started)
    print(f"{name:40} {statistics.median(times) * 1e9 / picture.width / picture.height:8.2f} ns/px")


def main():
    colour = photo()
    grey = colour.convert("L")
    levels = Image.new("P", (1, 1))
    levels.putpalette([v for r in range(8) for g in range(8) for b in range(4)
                       for v in (r * 255 // 7, g * 255 // 7, b * 255 // 3)])
    measure("24 -> 8 grey", colour, lambda p: p.convert("L"))
    measure("8 -> 1 Floyd-Steinberg", grey, lambda p: p.convert("1"))
    measure("24 turned by 90", colour, lambda p: p.transpose(Image.ROTATE_90))
    measure("24 turned by 1.3, bilinear", colour, lambda p: p.rotate(-1.3, Image.BILINEAR))
    measure("24 mirrored", colour, lambda p: p.transpose(Image.FLIP_LEFT_RIGHT))
    measure("24 area 1/2", colour, lambda p: p.reduce(2))
    measure("24 area 1600 x 1200", colour, lambda p: p.resize((1600, 1200), Image.BOX))
    measure("24 area 777x583", colour, lambda p: p.resize((777, 583), Image.BOX))
    measure("24 Lanczos 1/2", colour, lambda p: p.resize((2000, 1500), Image.LANCZOS))
    measure("24 -> fixed palette, Floyd-Steinberg", colour, lambda p: p.quantize(palette=levels, dither=1))


if __name__ == "__main__":
    main()
