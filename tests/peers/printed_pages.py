#!/usr/bin/python3
"""Pages that were printed as PostScript, as Ghostscript draws them: printed_pages.py FILE.ps.

Each has two black frames, grey or white between, in A4 at 300 dots per inch. The frames lie within one
pixel of their places and what is between them is of one colour: bands leave no stripe.
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PAGE = (620, 877)  # in pixels of the picture: frames at 0 to 8 and 100 to 104
DPI = 300

try:
    from PIL import Image
except ImportError:
    Image = None
printed = pathlib.Path(sys.argv[1])
if Image is None or shutil.which("gs") is None or not printed.exists():
    print("Ghostscript, Pillow or the pages are missing")
    sys.exit(SKIPPED)


def expected_edges(sheet):
    """Where the frames begin and end, across and down: true size, or what of it fits, in the middle."""
    scale = min(DPI / 75, sheet[0] / PAGE[0], sheet[1] / PAGE[1])
    sides = [side * scale for side in PAGE]
    corner = [(whole - side) / 2 for whole, side in zip(sheet, sides)]
    return [[corner[i] + at * scale for at in (0, 8, 100, 104, PAGE[i] - 104, PAGE[i] - 100, PAGE[i] - 8, PAGE[i])]
            for i in (0, 1)]


def changes(line, black):
    """Where a row of levels becomes black or ceases to be."""
    return [x for x, (a, b) in enumerate(zip([255, *line], [*line, 255])) if (a < black) != (b < black)]


def check(page, number):
    sheet = page.size
    level = page.getpixel((sheet[0] // 2, sheet[1] // 2))
    edges = expected_edges(sheet)
    middle = (page.crop((0, sheet[1] // 2, sheet[0], sheet[1] // 2 + 1)),
              page.crop((sheet[0] // 2, 0, sheet[0] // 2 + 1, sheet[1])))
    for line, wanted, name in zip(middle, edges, ("across", "down")):
        found = changes(line.getdata(), level // 2)
        assert len(found) == len(wanted), f"page {number}, {name}: frames at {found}"
        off = max(abs(a - b) for a, b in zip(found, wanted))
        print(f"page {number}, {name}: within {off:.2f} pixels, {found}")
        assert off <= 1, f"page {number}, {name}: {found}, not {wanted}"
    (left, top), (right, bottom) = ((round(edges[0][i]) + 2 * (i == 3) - 2 * (i == 4),
                                     round(edges[1][i]) + 2 * (i == 3) - 2 * (i == 4)) for i in (3, 4))
    least, most = page.crop((left, top, right, bottom)).getextrema()
    assert least == most == level, f"page {number}: levels {least} to {most} in what should be even"


with tempfile.TemporaryDirectory() as folder:
    subprocess.run(["gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pnggray", f"-r{DPI}",
                    "-o", folder + "/%d.png", printed], check=True)
    pages = sorted(pathlib.Path(folder).iterdir())
    assert len(pages) == 4, f"{len(pages)} pages"
    for number, name in enumerate(pages, 1):
        check(Image.open(name), number)
