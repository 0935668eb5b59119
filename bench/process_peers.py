#!/usr/bin/env python3
"""Times Pillow and OpenCV on images like those of process_bench.cpp: nanoseconds per pixel, the least
of five, on one thread."""
import random
import time

import cv2
import numpy
from PIL import Image, ImageChops, ImageFilter


def photo(width=4000, height=3000):
    source = random.Random(1)
    layers = []
    for _ in range(3):
        small = Image.frombytes("L", (16, 12), source.randbytes(192))
        noise = Image.effect_noise((width, height), 4)  # around 128
        layers.append(ImageChops.add(small.resize((width, height), Image.BICUBIC), noise, 1, -128))
    return Image.merge("RGB", layers)


def measure(name, picture, run):
    height, width = picture.shape[:2] if isinstance(picture, numpy.ndarray) else picture.size[::-1]
    times = []
    for _ in range(5):
        started = time.process_time()
        run(picture)
        times.append(time.process_time() - started)
    print(f"{name:40} {min(times) * 1e9 / width / height:8.2f} ns/px")


def measure_opencv(colour, grey):
    cv2.setNumThreads(1)
    table = (numpy.arange(256) ** 2 // 255).astype(numpy.uint8)
    for bits, picture in ((24, numpy.array(colour)), (8, numpy.array(grey))):
        def unsharp(p):
            return cv2.addWeighted(p, 2, cv2.GaussianBlur(p, (13, 13), 2), -1, 0)
        measure(f"OpenCV: {bits} Gauss 2.0", picture, lambda p: cv2.GaussianBlur(p, (13, 13), 2))
        measure(f"OpenCV: {bits} unsharp", picture, unsharp)
        measure(f"OpenCV: {bits} median 3x3", picture, lambda p: cv2.medianBlur(p, 3))
        measure(f"OpenCV: {bits} median 7x7", picture, lambda p: cv2.medianBlur(p, 7))
        measure(f"OpenCV: {bits} table", picture, lambda p: cv2.LUT(p, table))
        measure(f"OpenCV: {bits} box 7x7", picture, lambda p: cv2.blur(p, (7, 7)))
        measure(f"OpenCV: {bits} darkest 7x7", picture, lambda p: cv2.erode(p, numpy.ones((7, 7))))
        measure(f"OpenCV: {bits} inverted", picture, cv2.bitwise_not)
        measure(f"OpenCV: {bits} flipped", picture, lambda p: cv2.flip(p, 0))
        measure(f"OpenCV: {bits} mirrored", picture, lambda p: cv2.flip(p, 1))
        measure(f"OpenCV: {bits} turned by 90", picture, lambda p: cv2.rotate(p, cv2.ROTATE_90_CLOCKWISE))
        measure(f"OpenCV: {bits} turned by 180", picture, lambda p: cv2.rotate(p, cv2.ROTATE_180))
        for what, width, height, method in (
                ("area 1/2", 2000, 1500, cv2.INTER_AREA), ("area 1/8", 500, 375, cv2.INTER_AREA),
                ("area 800x600", 800, 600, cv2.INTER_AREA), ("area 777x583", 777, 583, cv2.INTER_AREA),
                ("cubic 1.5 x", 6000, 4500, cv2.INTER_CUBIC)):
            measure(f"OpenCV: {bits} {what}", picture,
                    lambda p: cv2.resize(p, (width, height), interpolation=method))
        turn = cv2.getRotationMatrix2D((2000, 1500), -1.3, 1)
        measure(f"OpenCV: {bits} turned by 1.3", picture, lambda p: cv2.warpAffine(p, turn, (4000, 3000)))


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
    measure("24 Lanczos 777x583", colour, lambda p: p.resize((777, 583), Image.LANCZOS))
    measure("24 cubic 1.5 x", colour, lambda p: p.resize((6000, 4500), Image.BICUBIC))
    measure("24 table", colour, lambda p: p.point([v * v // 255 for v in range(256)] * 3))
    measure("24 median 3x3", colour, lambda p: p.filter(ImageFilter.MedianFilter(3)))
    measure("24 -> 256 colours", colour, lambda p: p.quantize(256, dither=0))
    measure_opencv(colour, grey)
    measure("24 -> fixed palette, Floyd-Steinberg", colour, lambda p: p.quantize(palette=levels, dither=1))


if __name__ == "__main__":
    main()
