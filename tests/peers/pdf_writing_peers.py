#!/usr/bin/env python3
"""Documents with PDF_WRITING, as other programs see them: structure, page sizes, pictures, and what renderers
show, beside the pictures that were saved.

    pdf_writing_peers.py LIBRARY MODULE     exit code 77 without Pillow, qpdf or poppler"""
import io
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

try:
    from PIL import Image, ImageChops, ImageOps, ImageStat
except ImportError:
    sys.exit(77)
from library import Library, conclude

try:
    import pikepdf
except ImportError:
    pikepdf = None

if not all(shutil.which(program) for program in ("qpdf", "pdfinfo", "pdfimages", "pdftoppm")):
    sys.exit(77)
WRITING, WIDTH, HEIGHT, MARGIN, FIT, DPI, LOSSLESS, SAFE, TIFF_JPEG = 30, 31, 32, 33, 34, 35, 36, 40, 52
PDF = 59
failures = []
# The programs of this machine see a library with sanitizers in it, too, if it is loaded here.
PLAIN = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, env=PLAIN)
    return done.returncode, done.stdout, done.stderr


def check(condition, *what):
    if not condition:
        failures.append(": ".join(str(word) for word in what))


def scene(width, height, mode):
    """Slopes and a dark corner, so that it has a right way up."""
    colours = Image.merge("RGB", (Image.linear_gradient("L").resize((width, height)),
                                  Image.linear_gradient("L").rotate(90).resize((width, height)),
                                  Image.radial_gradient("L").resize((width, height))))
    colours.paste((10, 40, 90), (0, 0, width // 3, height // 4))
    return colours if mode == "RGB" else colours.convert(mode)


def difference(a, b):
    """The peak signal to noise ratio of two pictures of one size, in dB."""
    mean = sum(ImageStat.Stat(ImageChops.difference(a.convert("RGB"), b.convert("RGB"))).sum2)
    return 10 * math.log10(255 ** 2 / max(mean / (3 * a.width * a.height), 1e-9))


def rendered(name, page, x_dpi, y_dpi):
    """A page as each renderer shows it."""
    at = str(page)
    code, image, words = run("pdftoppm", "-f", at, "-l", at, "-rx", x_dpi, "-ry", y_dpi, name)
    yield "pdftoppm", code, words, image
    if shutil.which("gs"):
        out = f"{name}.ppm"
        code, words, _ = run("gs", "-q", "-dBATCH", "-dNOPAUSE", "-sDEVICE=ppmraw", f"-r{x_dpi}x{y_dpi}",
                             f"-dFirstPage={at}", f"-dLastPage={at}", f"-sOutputFile={out}", name)
        yield "gs", code, words, pathlib.Path(out).read_bytes()
    if shutil.which("mutool"):
        code, image, words = run("mutool", "draw", "-q", "-F", "ppm", "-r", x_dpi, "-o", "-", name, at)
        yield "mutool", code, words.replace(b"warning: ICC support is not available\n", b""), image


def inks_as_seen(picture, folder):
    """By program: what inks look like is its own affair."""
    picture.save(folder / "inks.pdf", quality=95)
    return {program: Image.open(io.BytesIO(image)).convert("RGB")
            for program, _, _, image in rendered(folder / "inks.pdf", 1, 72, 72)}


def check_look(name, picture, page=1, x_dpi=72, y_dpi=72, inks=None):
    for program, code, words, image in rendered(name, page, x_dpi, y_dpi):
        picture = inks[program] if inks else picture
        check(code == 0 and not words, name, program, words.decode(errors="replace"))
        seen = Image.open(io.BytesIO(image)).convert("RGB")
        check(abs(seen.height - picture.height * (y_dpi if program != "mutool" else x_dpi) / y_dpi) <= 2
              and abs(seen.width - picture.width) <= 1, name, program, f"{seen.size}, not {picture.size}")
        ratio = difference(seen.resize(picture.size), picture)
        check(ratio >= 25, name, program, f"{ratio:.1f} dB")


def doubled(picture):
    """Black and white pixels, large enough for renderers that smooth their edges."""
    return picture.convert("RGB").resize((2 * picture.width, 2 * picture.height), Image.NEAREST)


def check_structure(name, pages):
    code, words, errors = run("qpdf", "--check", name)
    check(code == 0 and not errors and b"No syntax or stream encoding errors found" in words, name,
          (words + errors).decode(errors="replace"))
    code, words, errors = run("pdfinfo", name)
    check(code == 0 and not errors and f"Pages:           {pages}\n".encode() in words, name, words, errors)


def page_sizes(name):
    words = run("pdfinfo", "-l", 99999, name)[1].decode()
    return [(float(x), float(y)) for x, y in re.findall(r"Page +\d+ size: +([\d.]+) x ([\d.]+) pts", words)]


def load(library, picture, dpi=(0, 0)):
    """The picture as an image of the library."""
    width, height = picture.size
    bits = {"1": 1, "L": 8, "P": 8, "RGB": 24, "CMYK": 32}[picture.mode]
    palette = [(0, 0, 0), (255, 255, 255)] if bits == 1 else [(i, i, i) for i in range(256)]
    if picture.mode == "P":
        flat = picture.getpalette() + [0] * 768
        palette = [tuple(flat[3 * i:3 * i + 3]) for i in range(256)]
        bits = 4 if max(picture.getdata()) < 16 else 8
    data = picture.tobytes("raw", "BGR" if picture.mode == "RGB" else picture.mode)
    size = len(data) // height
    rows = [data[y * size:(y + 1) * size] for y in range(height)]
    if bits == 4:
        rows = [bytes(a << 4 | b for a, b in zip(row[::2], row[1::2] + b"\0")) for row in rows]
    stride = (width * bits + 31) // 32 * 4
    return library.make(width, height, bits, [row.ljust(stride, b"\0") for row in rows],
                        palette if bits <= 8 else (), *dpi)


def save(library, picture, name, dpi=(0, 0)):
    image = load(library, picture, dpi)
    library.save(image, str(name), PDF)
    library.delete(image)


def check_pictures(library, folder):
    """Every depth, with and without loss."""
    for lossless in (0, 1):
        library.call("IMG_set_option", LOSSLESS, lossless)
        for label, picture in {
                "bits": scene(203, 151, "L").convert("1", dither=0), "grey": scene(203, 151, "L"),
                "colours": scene(203, 151, "RGB"), "inks": scene(203, 151, "RGB").convert("CMYK"),
                "entries": scene(203, 151, "RGB").quantize(200),
                "nibbles": scene(203, 151, "RGB").quantize(14)}.items():
            name = folder / f"{label}{lossless}.pdf"
            save(library, picture, name)
            check_structure(name, 1)
            twice = label == "bits"
            check_look(name, doubled(picture) if twice else picture, 1, *(144, 144) if twice else (72, 72),
                       inks=inks_as_seen(picture, folder) if label == "inks" else None)
            check(page_sizes(name) == [(203, 151)], name, page_sizes(name))
            exact = label == "bits" or (lossless and label != "inks")
            if exact:
                run("pdfimages", "-png", name, folder / "out")
                seen = Image.open(folder / "out-000.png")
                check(seen.convert("RGB").tobytes() == picture.convert("RGB").tobytes(), name, "other pixels")
    library.call("IMG_set_option", LOSSLESS, 0)


def check_resolutions(library, folder):
    """A facsimile's unequal ones; and pages that are given."""
    name, picture = folder / "fax.pdf", scene(1728, 1100, "L").convert("1", dither=0)
    save(library, picture, name, (204, 98))
    check_structure(name, 1)
    x, y = page_sizes(name)[0]
    check(abs(x - 1728 / 204 * 72) < 1 and abs(y - 1100 / 98 * 72) < 1, name, page_sizes(name))
    check_look(name, picture.convert("L").resize((864, 1100)), 1, 102, 98)


def others(folder, picture):
    """Documents of other programs: name, pages."""
    jpeg = folder / "page.jpg"
    picture.save(jpeg)
    plain = folder / "plain.pdf"
    if run("img2pdf", jpeg, jpeg, "-o", plain)[0] != 0:
        picture.save(plain, save_all=True, append_images=[picture])
    yield plain, 2
    for label, *options in (("streams", "--object-streams=generate"), ("tables", "--object-streams=disable"),
                            ("linear", "--linearize"), ("old", "--force-version=1.2"), ("qdf", "--qdf")):
        name = folder / f"{label}.pdf"
        check(run("qpdf", *options, plain, name)[0] == 0, label)
        yield name, 2
    if shutil.which("gs"):
        name = folder / "gs.pdf"
        run("gs", "-q", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pdfwrite", f"-sOutputFile={name}", plain)
        yield name, 2
    if pikepdf is not None:
        name = folder / "updated.pdf"
        with pikepdf.open(plain) as document:
            for _ in range(98):
                document.pages.append(document.pages[0])
            document.docinfo["/Title"] = "kept"
            document.pages[0].Rotate = 90
            document.Root.Pages.Rotate = 90  # is inherited by its pages, and by no others
            document.save(name)
        yield name, 100


def check_others(library, folder):
    picture = scene(203, 151, "RGB")
    library.call("IMG_set_option", WRITING, 0)
    own = folder / "own.pdf"
    for _ in range(3):
        save(library, picture, own)
    library.call("IMG_set_option", WRITING, 1)
    for name, pages in [(own, 3), *others(folder, picture)]:
        before = name.read_bytes()
        old = page_sizes(name)
        for safe in (0, 1):
            for turn in range(3):
                library.call("IMG_set_option", SAFE, safe)
                image = load(library, picture)
                saved = library.call("IMG_save_bitmap", image, str(name), PDF)
                library.delete(image)
                check(saved == 0, name, "append", saved)
        check(name.read_bytes()[:len(before)] == before, name, "its bytes were changed")
        check_structure(name, pages + 6)
        check(page_sizes(name) == old + [(203, 151)] * 6, name, page_sizes(name)[-7:], old[:2])
        check_look(name, picture, pages + 5)
        for words in (b"Title:           kept",) if "updated" in str(name) else ():
            check(words in run("pdfinfo", name)[1], name, "lost", words)
        # Behind what another program has written anew our pages are any other's.
        again = folder / "again.pdf"
        for options in (("--object-streams=generate",), ("--object-streams=disable",)):
            run("qpdf", *options, name, again)
            save(library, picture, again)
            save(library, picture, again)
            check_structure(again, pages + 8)
    for label, options in {"locked": ("--encrypt", "", "owner", "128", "--use-aes=y", "--")}.items():
        name = folder / f"{label}.pdf"
        check(run("qpdf", *options, folder / "plain.pdf", name)[0] == 0, label)
        before = name.read_bytes()
        image = load(library, picture)
        check(library.call("IMG_save_bitmap", image, str(name), PDF) == -3, name, "is no refusal")
        library.delete(image)
        check(name.read_bytes() == before, name, "its bytes were changed")


def stored_files(folder):
    """Files whose data a document holds as they are: name, what they show, whether bytes have to come out."""
    picture = scene(203, 151, "RGB")
    for label, mode, options in (("grey", "L", {}), ("colours", "RGB", {"subsampling": 2}),
                                 ("scans", "RGB", {"progressive": True}), ("plain", "RGB", {"keep_rgb": True}),
                                 ("inks", "CMYK", {})):
        try:
            picture.convert(mode).save(folder / f"{label}.jpg", quality=92, **options)
        except (TypeError, OSError):
            continue
        yield folder / f"{label}.jpg", picture.convert(mode), True
    for orientation in range(1, 9):
        exif = Image.Exif()
        exif[0x112] = orientation
        name = folder / f"turned{orientation}.jpg"
        picture.save(name, quality=92, exif=exif, dpi=(144, 144))
        yield name, ImageOps.exif_transpose(Image.open(name)).convert("RGB"), True
    for label, image in {"bits": scene(203, 151, "L").convert("1", dither=0), "grey": scene(203, 151, "L"),
                         "colours": picture, "entries": picture.quantize(200), "nibbles": picture.quantize(14),
                         "pair": picture.quantize(2),
                         "deep": Image.frombytes("I;16", (203, 151), bytes(
                             b for level in scene(203, 151, "L").tobytes() for b in (77, level)))}.items():
        image.save(folder / f"{label}.png")
        shown = scene(203, 151, "L") if label == "deep" else image
        yield folder / f"{label}.png", shown, False
    fax = scene(203, 151, "L").convert("1", dither=0)
    for label, tags in {"white": {262: 0}, "black": {262: 1}, "low": {262: 0, 266: 2}}.items():
        name = folder / f"{label}.tif"
        fax.save(name, compression="group4", tiffinfo=tags)
        yield name, fax, False


def check_back(library, folder, name, document, keeps_bytes):
    """Out of the document again: the same bytes, or the same pixels."""
    code = 13 if keeps_bytes else 10
    if keeps_bytes or name.suffix == ".tif":
        again = folder / "back"
        again.unlink(missing_ok=True)
        copied = library.call("IMG_copy_page", str(document), 1, str(again), code)
        check(copied == 0, document, "back", copied)
        if keeps_bytes:
            check(again.read_bytes() == name.read_bytes(), document, "other bytes back")
        else:
            shown = Image.open(again).convert("L").tobytes()
            check(shown == Image.open(name).convert("L").tobytes(), document, "other pixels back")
        again = folder / "back.pdf"
        again.unlink(missing_ok=True)
        check(library.call("IMG_copy_page", str(document), 1, str(again), PDF) == 0, document, "to pdf")
        check_structure(again, 1)
        check(page_sizes(again) == page_sizes(document)[:1], again, page_sizes(again))
    if name.suffix == ".png" and name.stem != "deep":
        seen = library.rgb(library.open_page(str(document), 1))
        check(seen.tobytes() == Image.open(name).convert("RGB").tobytes(), document, "other pixels read")


def check_copies(library, folder):
    for name, picture, keeps_bytes in stored_files(folder):
        out = folder / f"{name.stem}-{name.suffix[1:]}.pdf"
        for page in range(2):
            copied = library.call("IMG_copy_page", str(name), 0, str(out), PDF)
            check(copied == 0, out, "copy", copied)
        check_structure(out, 2)
        width, height = picture.size
        dpi = 144 if "turned" in name.stem else 72
        sizes = [(width * 72 / dpi, height * 72 / dpi)] * 2
        seen = [tuple(sorted(size)) for size in page_sizes(out)]
        check(seen == [tuple(sorted(size)) for size in sizes], out, seen, sizes)
        if picture.mode == "1":
            dpi, picture = 144, doubled(picture)
        check_look(out, picture.convert("RGB"), 2, dpi, dpi,
                   inks=inks_as_seen(picture, folder) if picture.mode == "CMYK" else None)
        if keeps_bytes:
            run("pdfimages", "-all", out, folder / "raw")
            check((folder / "raw-000.jpg").read_bytes() == name.read_bytes(), out, "other bytes")
            again = folder / "again.jpg"
            check(library.call("IMG_copy_page", str(name), 0, str(again), 13) == 0, name, "to jpeg")
            check(again.read_bytes() == name.read_bytes(), name, "other bytes")
        if keeps_bytes and picture.mode != "CMYK" and "plain" not in name.stem:
            tif = folder / f"{name.stem}.tif"
            library.call("IMG_set_option", TIFF_JPEG, 7)
            check(library.call("IMG_copy_page", str(name), 0, str(tif), 40) == 0, name, "to tiff")
            ratio = difference(Image.open(tif).convert("RGB"), picture.convert("RGB"))
            check(ratio > 38, tif, f"{ratio:.1f} dB")
        if library.call("IMGLOW_get_pages", str(out)) == 2:  # the module is there
            check_back(library, folder, name, out, keeps_bytes)
    name = folder / "page.bmp"
    scene(203, 151, "RGB").save(name)
    out = folder / "recoded.pdf"
    check(library.call("IMG_copy_page", str(name), 0, str(out), PDF) == 1, name, "is no copy")
    check_structure(out, 1)


def main():
    library = Library(sys.argv[1])
    library.call("IMG_set_option", WRITING, 1)
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        check_pictures(library, folder)
        check_resolutions(library, folder)
        check_others(library, folder)
        check_copies(library, folder)
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
