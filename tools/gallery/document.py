"""The first part of the page: a letter from a scanner, and what becomes of it."""
import json
import math
import pathlib
import shutil
import subprocess

from gallery.page import amount, bars, figure, image, text

LETTER = pathlib.Path(__file__).with_name("letter.png")
CLEANING = ("--remove-border", "--deskew", "--mono", "background", "--despeckle", "--speck-size", "5x5")
SHOWN = 900  # pixels of width


def make_scan(program):
    subprocess.run([program.binaries / "make_scan", LETTER, "scan.bmp"], cwd=program.work, check=True)
    return program.info("scan.bmp")["scan.bmp"]


def sizes(program):
    """The same page in the formats that people keep pages in."""
    made = [("as scanned, in 24 bits", "scan.bmp", None),
            ("as PNG", "scan.png", ("scan.bmp",)),
            ("as JPEG, quality 75", "scan.jpg", ("scan.bmp", "--quality", "75")),
            ("cleaned, as PNG", "page.png", ("page.tif",)),
            ("cleaned, as Group 4", "page.tif", None),
            ("the PDF around it", "page.pdf", None)]
    rows = []
    for caption, name, words in made:
        if words:
            program.convert(words[0], name, *words[1:])
        size = (program.work / name).stat().st_size
        rows.append((caption, size, amount(size)))
    rows.sort(key=lambda row: row[1])
    return bars(rows, "sizes in bytes")


def by_poppler(program):
    """The document as another program shows it; None where that is missing."""
    if not shutil.which("pdftoppm"):
        return None
    target = program.pictures.resolve() / "poppler"
    subprocess.run(["pdftoppm", "-png", "-singlefile", "-r", "75", "page.pdf", target], cwd=program.work, check=True)
    return program.shown("poppler.png")


def small(program):
    """A part of the page at a quarter of its size, by the mean of its dots and by taking every fourth."""
    entry = program.info("page.tif")["page.tif"]
    part = f"{(entry['width'] - 1400) // 2},{entry['height'] * 7 // 100},1400,900"
    mean, _ = program.picture("page.tif", "small-mean.png", "--crop", part, "--size", "25%")
    nearest, _ = program.picture("page.tif", "small-nearest.png", "--crop", part, "--size", "25%", "--filter", "nearest")
    return (figure(image(mean, "a small copy that can be read"),
                   "<b>The mean of the dots under a pixel</b> <code>--size 25%</code>", "dots") +
            figure(image(nearest, "a small copy with holes in its letters"),
                   "<b>Every fourth dot</b> <code>--filter nearest</code>", "dots"))


def build(program, pairs):
    """Pieces for the template."""
    scan = make_scan(program)
    program.convert("scan.bmp", "straight.bmp", "--deskew")
    program.convert("scan.bmp", "page.tif", *CLEANING, "--code", "tiff-g4")
    program.convert("page.tif", "page.pdf", "--title", "Soundings of the second quarter")
    told = json.loads(program.run("info", "--analyse", "scan.bmp")[1])[0]["analysis"]
    shown = {}
    for name in ("scan.bmp", "straight.bmp", "page.tif"):  # straightened pages keep their sides
        stem = name.split(".")[0]
        shown[stem], _ = program.picture(name, f"{stem}.png", "--size", SHOWN)
    drawn = by_poppler(program)
    skew = told["skew"]["degrees"]
    slant = abs(math.tan(math.radians(skew))) * scan["width"] / scan["x_dpi"] * 25.4
    facts = [f"{scan['width']} \u00d7 {scan['height']} pixels of {scan['depth']} bits, {scan['x_dpi']} dots per inch",
             f"a turn of {skew:.1f}\u00b0 makes it straight: one side lies {slant:.0f} mm lower".replace("-", "\u2212"),
             f"text stands {'upright' if told['orientation']['degrees'] == 0 else 'turned'}; "
             f"ink is what is darker than {told['threshold']} of 255"]
    command = f"tarnquill convert scan.bmp page.tif {' '.join(CLEANING)} --code tiff-g4"
    return {
        "document_pair": pairs.pair(shown["scan"], shown["page"], "From the scanner, and cleaned", command, "tall"),
        "document_facts": "".join(f"<li>{text(fact)}</li>" for fact in facts),
        "document_straight": figure(image(shown["straight"], "the scan turned straight"),
                                    "<b>Turned straight</b> <code>--deskew</code>", "sheet"),
        "document_poppler": figure(image(drawn, "the page as poppler draws it"),
                                   "<b>The PDF, as poppler shows it</b> <code>pdftoppm -r 75 page.pdf</code>", "sheet")
                            if drawn else "<p>poppler is not installed: its view of the PDF is not shown.</p>",
        "document_sizes": sizes(program),
        "document_small": small(program),
    }
