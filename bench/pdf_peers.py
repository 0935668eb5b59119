#!/usr/bin/env python3
"""Documents of scanned pages beside other programs: pdf_peers.py FOLDER, of the programs `tarnquill` and `measure`,
with the module pdfplug where it is found. Processor time, the least of three alternating runs, and peaks."""
import os
import pathlib
import random
import subprocess
import sys
import tempfile

from PIL import Image, ImageDraw

FOLDER = pathlib.Path(sys.argv[1]).resolve()
TOOL, MEASURE = FOLDER / "tarnquill", FOLDER / "measure"
RUNS = 3


def page(seed):
    """Lines of words at 300 dots per inch, as far as strokes are letters."""
    source = random.Random(seed)
    image = Image.new("1", (2480, 3508), 1)
    draw = ImageDraw.Draw(image)
    for top in range(250, 3250, 58):
        x = 250
        while x < 2200:
            for _ in range(source.randrange(2, 11)):
                draw.line((x, top + source.randrange(9), x + source.randrange(-6, 12), top + 32), fill=0, width=4)
                x += 19
            x += 24
    return image


def photo(seed):
    noise = Image.effect_noise((620, 877), 40 + seed).resize((2480, 3508), Image.Resampling.BICUBIC)
    slope = Image.linear_gradient("L").resize(noise.size)
    return Image.merge("RGB", (noise, slope, Image.blend(noise, slope, 0.5)))


def run(*command):
    """Processor seconds and megabytes."""
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run([MEASURE, *command], cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                              check=True)
        seconds, kilobytes = done.stderr.split()[-2:]
        return float(seconds), int(kilobytes) / 1000


def least(*commands):
    """The least of each; the commands take turns."""
    runs = [[run(*command) for command in commands] for _ in range(RUNS)]
    return [(min(r[i][0] for r in runs), min(r[i][1] for r in runs)) for i in range(len(commands))]


def show(name, ours, theirs, wanted):
    print(f"{name:46} {1000 * ours[0]:8.1f} ms {ours[1]:6.1f} MB  {1000 * theirs[0]:8.1f} ms {theirs[1]:6.1f} MB  "
          f"{ours[0] / theirs[0]:5.2f} ({wanted})")
    sys.stdout.flush()


def extraction(name, document, pages, drawing):
    out = "out-%03d.pbm" if drawing else "out-%03d.ppm"
    mono = ["-mono"] if drawing else []
    ours, images, mutool, poppler = least(
        (TOOL, "convert", document, out), ("pdfimages", document, "out"),
        ("mutool", "draw", "-q", "-r", "300", "-o", out, document),
        ("pdftoppm", "-r", "300", *mono, document, "out"))
    for peer, figures, wanted in (("pdfimages", images, 0.7), ("mutool draw", mutool, 0.8), ("pdftoppm", poppler, 0.2)):
        show(f"{name}, {pages} pages, {peer}", ours, figures, wanted)
    show(f"{name}, page {pages} alone, page 1", *least(
        (TOOL, "convert", "--page", str(pages), document, out), (TOOL, "convert", "--page", "1", document, out)), 1.1)


def main():
    with tempfile.TemporaryDirectory() as folder:
        at = lambda name: os.path.join(folder, name)  # noqa: E731
        tiffs = []
        for seed in range(10):
            tiffs.append(at(f"{seed}.tif"))
            page(seed).save(tiffs[-1], compression="group4", dpi=(300, 300))
        subprocess.run(["tiffcp", "-c", "g4", *tiffs * 10, at("pages.tif")], check=True)
        subprocess.run(["tiff2pdf", "-o", at("pages.pdf"), at("pages.tif")], check=True)
        extraction("Group 4, A4", at("pages.pdf"), 100, True)

        photos = [photo(seed) for seed in range(10)]
        photos[0].save(at("photos.pdf"), save_all=True, append_images=photos[1:] + photos, resolution=300)
        extraction("JPEG of 8.7 megapixels", at("photos.pdf"), 20, False)

        photos[0].resize((7213, 7213)).save(at("large.jpg"), quality=75)
        jpegs = []
        for number in range(350):
            jpegs.append(at(f"{number:03}.jpg"))
            os.link(at("large.jpg"), jpegs[-1])
        seconds, peak = run(TOOL, "convert", *jpegs, at("wrapped.pdf"))
        print(f"350 JPEG files of 52 megapixels, {os.path.getsize(at('large.jpg'))} bytes, into one document: "
              f"{seconds:.2f} s, {peak:.1f} MB (16)")
        subprocess.run(["pdfimages", "-all", "-f", "350", "-l", "350", at("wrapped.pdf"), at("back")], check=True)
        same = pathlib.Path(at("back-000.jpg")).read_bytes() == pathlib.Path(at("large.jpg")).read_bytes()
        print(f"pdfimages -all gives {'the same' if same else 'OTHER'} bytes for the last one")


main()
