#!/usr/bin/env python3
"""Draws commands and what they print as a terminal shows it: letters, half blocks, 24-bit colours.

    draw_terminal.py OUT.png COLUMNSxLINES COMMAND...
    draw_terminal.py --scan PAGE SCAN.tif

docs/terminal.png shows the upper half of the page that make_scene draws, as the second call makes a bad
scan of it: askew, in uneven yellow light.
"""
import fcntl
import os
import pty
import re
import struct
import subprocess
import sys
import termios

from PIL import Image, ImageChops, ImageDraw, ImageFilter, ImageFont

CELL = (6, 12)  # pixels
FONT = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf"
PAPER, INK, PROMPT = (24, 26, 30), (220, 222, 226), (120, 200, 120)
PART = re.compile(r"\x1b\[(?P<codes>[0-9;]*)m|\x1b\[[0-9;?]*[A-Za-z]|(?P<letter>[^\x1b])")


def printed(command, columns, lines):
    """What it writes to a terminal of this size."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
    process = subprocess.Popen(command, shell=True, stdin=theirs, stdout=theirs, stderr=theirs)
    os.close(theirs)
    data = b""
    while True:
        try:
            some = os.read(ours, 65536)
        except OSError:  # its other end is closed
            break
        if not some:
            break
        data += some
    if process.wait():
        sys.exit(f"{command}: {data.decode(errors='replace')}")
    return data.decode().replace("\r\n", "\n")


def cells(text):
    """Rows of (letter, ink, paper)."""
    rows, column, ink, paper = [[]], 0, INK, PAPER
    for part in PART.finditer(text):
        if part["codes"] is not None:
            codes = [int(code or 0) for code in part["codes"].split(";")]
            while codes:
                code, *codes = codes
                if code in (38, 48) and codes[:1] == [2]:  # 2, red, green, blue
                    ink, paper = (tuple(codes[1:4]), paper) if code == 38 else (ink, tuple(codes[1:4]))
                    codes = codes[4:]
                elif code in (0, 39, 49):
                    ink, paper = ink if code == 49 else INK, paper if code == 39 else PAPER
        elif part[0].endswith("K"):
            del rows[-1][column:]
        elif part["letter"] == "\n":
            rows.append([])
            column = 0
        elif part["letter"] == "\r":
            column = 0
        elif part["letter"]:
            rows[-1][column:column + 1] = [(part["letter"], ink, paper)]
            column += 1
    return rows


def scan(page):
    width, height = page.width, page.height // 2
    levels = page.convert("L").crop((0, 0, width, height)).rotate(-4, Image.Resampling.BICUBIC, fillcolor=255)
    light = Image.radial_gradient("L").resize((2 * width, 2 * height)).crop((0, 0, width, height))
    levels = ImageChops.multiply(levels.filter(ImageFilter.GaussianBlur(1.2)), light.point(lambda v: 255 - v * 0.55))
    return Image.merge("RGB", [levels.point(lambda v, share=share: v * share) for share in (1, 0.97, 0.88)])


def main():
    out, size, *commands = sys.argv[1:]
    if out == "--scan":
        return scan(Image.open(size)).save(commands[0], dpi=(300, 300))
    columns, lines = map(int, size.split("x"))
    rows = []
    for command in commands:
        rows.append([(letter, PROMPT if i == 0 else INK, PAPER) for i, letter in enumerate(f"$ {command}")])
        rows += cells(printed(command, columns, lines).rstrip("\n")) if command else []
    rows = [row for row in rows if row]
    width, height = CELL
    image = Image.new("RGB", ((columns + 2) * width, (len(rows) + 1) * height), PAPER)
    draw = ImageDraw.Draw(image)
    font = ImageFont.truetype(FONT, 10)
    for y, row in enumerate(rows):
        for x, (letter, ink, paper) in enumerate(row):
            left, top = (x + 1) * width, y * height + height // 2
            draw.rectangle((left, top, left + width - 1, top + height - 1), fill=paper)
            if letter in "▀▄█":  # upper half, lower half, both
                first = top + (height // 2 if letter == "▄" else 0)
                last = top + (height // 2 if letter == "▀" else height) - 1
                draw.rectangle((left, first, left + width - 1, last), fill=ink)
            elif letter != " ":
                draw.text((left, top), letter, fill=ink, font=font)
    image.quantize(128, dither=Image.Dither.NONE).save(out, optimize=True)


if __name__ == "__main__":
    main()
