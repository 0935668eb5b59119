#!/usr/bin/python3
"""Builds a document of many pages with the tool, page by page, and looks at it with other programs:
qpdf checks its structure, poppler draws it, and every page is compared with its picture.

    pdf_test.py TOOL
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

import bmp

TOOL = os.path.abspath(sys.argv[1])
# Width, height, bits; where the picture is, from the top left corner in points: x, y, width, height.
PAGES = [
    (1, 1, 1, None), (300, 200, 1, (156, 296, 300, 200)), (300, 200, 24, (156, 296, 300, 200)),
    (611, 791, 1, (0, 1, 611, 791)), (612, 792, 24, (0, 0, 612, 792)), (1224, 1584, 24, (0, 0, 612, 792)),
    (2480, 3508, 1, (26, 0, 559, 792)), (5000, 7000, 1, (23, 0, 565, 792)), (40, 900, 24, (288, 0, 35, 792)),
    (700, 33, 1, (0, 382, 612, 28)), (33, 47, 24, (289, 373, 33, 47)),
    (320, 240, 8, (146, 276, 320, 240)),
]
# The quarters differ, so that a picture has a right way up: indices, or (blue, green, red).
QUARTERS = {
    1: ((0, 1), (1, 1)),
    8: ((40, 120), (200, 250)),
    24: (((0, 0, 255), (0, 255, 0)), ((255, 0, 0), (0, 255, 255))),
}


RENDERERS = [
    ('pdftoppm', '-r', '72', 'out.pdf', 'drawn'), ('mutool', 'draw', '-q', '-r', '72', '-o', 'drawn-%02d.ppm', 'out.pdf'),
    ('gs', '-q', '-dNOPAUSE', '-dBATCH', '-r72', '-sDEVICE=ppmraw', '-sOutputFile=drawn-%02d.ppm', 'out.pdf'),
]


def picture_file(width, height, bits):
    upper, lower = (bmp.pack_row([left] * (width // 2) + [right] * (width - width // 2), bits)
                    for left, right in QUARTERS[bits])
    rows = lower * (height // 2) + upper * (height - height // 2)
    greys = range(1 << bits) if bits <= 8 else ()
    palette = b"".join(bytes([level * 255 // (len(greys) - 1)] * 3 + [0]) for level in greys)
    return bmp.header(width, height, bits, len(rows)) + palette + rows


def run(*command):
    result = subprocess.run(command, capture_output=True)
    if result.returncode != 0:
        sys.exit(f'{command}: {result.returncode}\n{result.stdout.decode()}{result.stderr.decode()}')
    return result.stdout


def read_ppm(data):
    match = re.match(rb'P6\s+(?:#.*\n)?(\d+)\s+(\d+)\s+255\s', data)
    width = int(match[1])
    pixels = data[match.end():]
    return lambda x, y: tuple(pixels[3 * (y * width + x):3 * (y * width + x) + 3])


def check_page(picture, pixel, page):
    """The middle of every quarter has its colour; just outside is paper."""
    *_, bits, (x, y, wide, high) = picture
    for down in (0, 1):
        for across in (0, 1):
            seen = pixel(x + wide * (2 * across + 1) // 4, y + high * (2 * down + 1) // 4)
            wanted = QUARTERS[bits][down][across]
            wanted = wanted[::-1] if bits == 24 else (255 * wanted if bits == 1 else wanted,) * 3
            if max(abs(a - b) for a, b in zip(seen, wanted)) > 12:
                sys.exit(f'page {page}, {picture}: {seen} in place of {wanted}')
    if x > 3 and pixel(x - 3, 396) != (255, 255, 255):
        sys.exit(f'page {page}, {picture}: not where it should be')


def check_document(*options):
    name = 'out.pdf'
    pictures = [f'page{page:02}.bmp' for page in range(len(PAGES))]
    run(TOOL, 'convert', *options, *pictures[:3], name)
    for picture in pictures[3:]:
        run(TOOL, 'append', *options, picture, name)
    if shutil.which('qpdf'):
        print(run('qpdf', '--check', name).decode())
    for command in RENDERERS:
        if not shutil.which(command[0]):
            continue
        run(*command)
        for page, picture in enumerate(PAGES):
            # Grey by the contract is one component under a colour space of three: readers differ.
            if picture[3] is None or ('--contract' in options and (picture[2] == 8 or command[0] != 'pdftoppm')):
                continue
            with open(f'drawn-{page + 1:02}.ppm', 'rb') as file:
                check_page(picture, read_ppm(file.read()), page)
        print(len(PAGES), 'pages drawn by', command[0])


def main():
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for page, picture in enumerate(PAGES):
            with open(f'page{page:02}.bmp', 'wb') as file:
                file.write(picture_file(*picture[:3]))
        check_document('--contract')
        check_document('--paper', 'letter', '--page-fit', 'shrink')


main()
