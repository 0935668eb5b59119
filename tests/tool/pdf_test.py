#!/usr/bin/python3
"""Builds a document of many pages with the tool, page by page, and looks at it with other programs:
qpdf checks its structure, poppler draws it, and every page is compared with its picture.

    pdf_test.py TOOL [KEEP]       KEEP: a folder for the document and the pages as drawn
"""
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile

TOOL = os.path.abspath(sys.argv[1])
PAGES = [  # width, height, bits
    (1, 1, 1), (300, 200, 1), (300, 200, 24), (611, 791, 1), (612, 792, 24), (1224, 1584, 24),
    (2480, 3508, 1), (5000, 7000, 1), (40, 900, 24), (700, 33, 1), (320, 240, 8), (33, 47, 24),
]


def colours(width, height, bits):
    """A picture whose quarters differ, so that it has a right way up: rows of (r, g, b)."""
    corner = [[(255, 0, 0), (0, 255, 0)], [(0, 0, 255), (255, 255, 0)]]
    if bits == 1:
        corner = [[(0, 0, 0), (255, 255, 255)], [(255, 255, 255), (255, 255, 255)]]
    if bits == 8:
        corner = [[(40,) * 3, (120,) * 3], [(200,) * 3, (250,) * 3]]
    left, right = width // 2, width - width // 2
    return [[(corner[y * 2 // height][0])] * left + [corner[y * 2 // height][1]] * right
            for y in range(height)]


def bmp(rows, bits):
    width, height = len(rows[0]), len(rows)
    palette = b''
    if bits <= 8:
        palette = b''.join(bytes([i * 255 // ((1 << bits) - 1)] * 3 + [0]) for i in range(1 << bits))
    body = bytearray()
    cache = {}
    for row in reversed(rows):
        key = id(row), tuple(row[:1] + row[-1:])
        if key not in cache:
            if bits == 1:
                text = ''.join('1' if r else '0' for r, _, _ in row)
                text += '0' * (-len(text) % 32)
                data = int(text, 2).to_bytes(len(text) // 8, 'big')
            elif bits == 8:
                data = bytes(r for r, _, _ in row)
            else:
                data = b''.join(bytes((b, g, r)) for r, g, b in row)
            cache[key] = data + bytes(-len(data) % 4)
        body += cache[key]
    at = 54 + len(palette)
    return (struct.pack('<2sIHHI', b'BM', at + len(body), 0, 0, at) +
            struct.pack('<IiiHHIIiiII', 40, width, height, 1, bits, 0, len(body), 0, 0, 0, 0) +
            palette + bytes(body))


def placed(width, height):
    """Where a page's picture is, from the top left corner in points: x, y, width, height."""
    if width < 612 and height < 792:
        return (612 - width) // 2, 792 - height - (792 - height) // 2, width, height
    if 612 * height // width <= 792:
        high = 612 * height // width
        return 0, 792 - high - (792 - high) // 2, 612, high
    wide = 792 * width // height
    return (612 - wide) // 2, 0, wide, 792


def run(*command):
    result = subprocess.run(command, capture_output=True)
    if result.returncode != 0:
        sys.exit(f'{command}: {result.returncode}\n{result.stdout.decode()}{result.stderr.decode()}')
    return result.stdout


def read_ppm(data):
    match = re.match(rb'P6\s+(\d+)\s+(\d+)\s+255\s', data)
    width = int(match[1])
    pixels = data[match.end():]
    return lambda x, y: tuple(pixels[3 * (y * width + x):3 * (y * width + x) + 3])


def check_page(picture, pixel, page):
    """The middle of every quarter has its colour; just outside is paper."""
    width, height, bits = picture
    x, y, wide, high = placed(width, height)
    rows = colours(width, height, bits)
    for across in (1, 3):
        for down in (1, 3):
            if wide < 8 or high < 8:
                continue
            seen = pixel(x + wide * across // 4, y + high * down // 4)
            wanted = rows[height * down // 4][width * across // 4]
            if bits == 8:
                continue  # one component under a colour space of three: readers differ
            if max(abs(a - b) for a, b in zip(seen, wanted)) > 12:
                sys.exit(f'page {page}, {picture}: {seen} in place of {wanted}')
    if bits != 8 and x > 3 and pixel(x - 3, 396) != (255, 255, 255):
        sys.exit(f'page {page}, {picture}: not where it should be')


def main():
    keep = sys.argv[2] if len(sys.argv) > 2 else None
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        names = []
        for page, (width, height, bits) in enumerate(PAGES):
            names.append(f'page{page:02}.bmp')
            with open(names[-1], 'wb') as file:
                file.write(bmp(colours(width, height, bits), bits))
        run(TOOL, 'convert', *names[:3], 'out.pdf')
        for name in names[3:]:
            run(TOOL, 'append', name, 'out.pdf')
        if shutil.which('qpdf'):
            print(run('qpdf', '--check', 'out.pdf').decode())
        if shutil.which('pdftoppm'):
            run('pdftoppm', '-r', '72', 'out.pdf', 'drawn')
            for page, picture in enumerate(PAGES):
                with open(f'drawn-{page + 1:02}.ppm', 'rb') as file:
                    check_page(picture, read_ppm(file.read()), page)
            print(len(PAGES), 'pages drawn')
        # What is no document of ours stays as it is.
        with open('other.pdf', 'wb') as file:
            file.write(b'%PDF-1.7\n' + b'x' * 400)
        before = open('other.pdf', 'rb').read()
        if subprocess.run([TOOL, 'append', names[0], 'other.pdf'], capture_output=True).returncode == 0:
            sys.exit('a page was added to another document')
        if open('other.pdf', 'rb').read() != before:
            sys.exit('another document was changed')
        if keep:
            os.makedirs(keep, exist_ok=True)
            for name in os.listdir('.'):
                if name.startswith('drawn') or name.endswith('.pdf'):
                    shutil.copy(name, keep)


main()
