#!/usr/bin/env python3
"""Documents through the PDF module, beside poppler: page counts of all there are on the machine, pictures turned and
cut in every way, layouts and ciphers as qpdf writes them.

    pages_peers.py LIBRARY     exit code 77 without poppler and Pillow"""
import io
import itertools
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
from library import Library, conclude

if not shutil.which("pdftoppm"):
    sys.exit(77)
IMG_UNSUPPORTED = -7
library = Library(sys.argv[1])
failures = []


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True)


def counted(name):
    for line in run("pdfinfo", name).stdout.decode(errors="replace").splitlines():
        if line.startswith("Pages:"):
            return int(line.split()[1])
    return None


def shown(name, page=0):
    """The page in colours, or the status."""
    with open(name, "rb") as file:
        image = library.call("IMG_decompress_bitmap_fd", file.fileno(), 0, page)
    if image < 0:
        return image
    picture = library.rgb(image)
    library.delete(image)
    return picture


def document(objects):
    """Objects 1, 2 and so on; the first is the catalog."""
    data, offsets = b"%PDF-1.4\n", []
    for number, value in enumerate(objects, 1):
        offsets.append(len(data))
        data += b"%d 0 obj\n%s\nendobj\n" % (number, value)
    table = b"".join(b"%010d 00000 n \n" % offset for offset in offsets)
    return data + b"xref\n0 %d\n0000000000 65535 f \n%strailer\n<</Size %d/Root 1 0 R>>\nstartxref\n%d\n%%%%EOF\n" % (
        len(offsets) + 1, table, len(offsets) + 1, len(data))


def stream(entries, data):
    return b"<<%s/Length %d>>stream\n%s\nendstream" % (entries, len(data), data)


def one_picture(bits, matrix, rotate, crop):
    """A page of 60 x 40 points, and a picture of 20 x 12 points and pixels on it that looks like no turn of itself."""
    width, height, components = 20, 12, 3 if bits == 24 else 1
    if bits == 1:
        rows = b"".join((0x80000 | 3 << y | y << 15).to_bytes(3, "big") for y in range(height))
    else:
        rows = bytes((7 * i + 13 * (i // 20) ** 2) % 256 for i in range(width * height * components))
    picture = b"/Subtype/Image/Width %d/Height %d/BitsPerComponent %d/ColorSpace/Device%s" % (
        width, height, min(bits, 8), b"RGB" if bits == 24 else b"Gray")
    return document([
        b"<</Type/Catalog/Pages 2 0 R>>",
        b"<</Type/Pages/Kids[3 0 R]/Count 1>>",
        b"<</Type/Page/Parent 2 0 R/MediaBox[0 0 60 40]/CropBox[%s]/Rotate %d/Contents 4 0 R/Resources<</XObject<</P 5 0 R>>>>>>"
        % (crop, rotate),
        stream(b"", b"q %s cm /P Do Q" % matrix),
        stream(picture, rows)])


def drawn_by_points(name):
    """A pixel a point, from the middle of so much that nothing is smoothed."""
    large = Image.open(io.BytesIO(run("pdftoppm", "-r", 8 * 72, "-cropbox", name).stdout)).convert("RGB")
    return large.transform((large.width // 8, large.height // 8), Image.Transform.AFFINE, (8, 0, 0, 0, 8, 0))


MATRICES = [b"20 0 0 12 10 10", b"-20 0 0 12 30 10", b"-20 0 0 -12 30 22", b"20 0 0 -12 10 22",
            b"0 -20 -12 0 22 30", b"0 -20 12 0 10 30", b"0 20 12 0 10 10", b"0 20 -12 0 22 10"]


def compare_turned(folder):
    """Nothing, the left, something on all sides: cut by the crop box."""
    name = folder / "turned.pdf"
    for bits, matrix, rotate, crop in itertools.product(
            (1, 8, 24), MATRICES, (0, 90, 180, 270), (b"0 0 60 40", b"15 0 60 40", b"13 12 19 20")):
        name.write_bytes(one_picture(bits, matrix, rotate, crop))
        ours = shown(name)
        drawn = drawn_by_points(name)
        if isinstance(ours, int):
            failures.append(f"turned: {bits} bits, {matrix}, {rotate}, {crop}: {ours}")
            continue
        # Where the picture is on what is drawn: white is around it.
        if bits == 1:
            found = any(drawn.crop((x, y, x + ours.width, y + ours.height)).tobytes() == ours.tobytes()
                        for x in range(drawn.width - ours.width + 1) for y in range(drawn.height - ours.height + 1))
        else:
            box = drawn.point(lambda level: 255 - level).getbbox()
            found = drawn.crop(box).tobytes() == ours.tobytes()
        if not found:
            failures.append(f"turned: {bits} bits, {matrix}, {rotate}, {crop}: not as it is drawn")


def compare_layouts(folder):
    """The same picture whatever qpdf does to the document around it."""
    if not shutil.which("qpdf"):
        return
    plain = folder / "plain.pdf"
    plain.write_bytes(one_picture(24, MATRICES[0], 0, b"0 0 60 40"))
    ways = [["--object-streams=generate"], ["--linearize"], ["--linearize", "--object-streams=generate"],
            ["--qdf", "--object-streams=disable"], ["--stream-data=compress", "--recompress-flate"]]
    ciphers = [["40"], ["128", "--use-aes=n"], ["128", "--use-aes=y"], ["128", "--use-aes=y", "--cleartext-metadata"],
               ["128", "--force-V4"], ["256"], ["256", "--force-R5"]]
    ways += [["--allow-weak-crypto", "--encrypt", "", "owner", *cipher, "--", f"--object-streams={streams}"]
             for cipher in ciphers for streams in ("generate", "disable")]
    expected = shown(plain).tobytes()
    name = folder / "other.pdf"
    for way in ways:
        done = run("qpdf", *way, plain, name)
        if done.returncode not in (0, 3):
            failures.append(f"qpdf {way}: {done.stderr}")
            continue
        data = name.read_bytes()
        # With a damaged end, too: the tables have to be found again.
        for kind, bytes_ in (("", data), (" cut", data.replace(b"startxref", b"startxxxx"))):
            name.write_bytes(bytes_)
            ours = shown(name)
            if isinstance(ours, int) or ours.tobytes() != expected:
                failures.append(f"qpdf {way}{kind}: {ours}")
    for cipher in ciphers:
        run("qpdf", "--allow-weak-crypto", "--encrypt", "user", "owner", *cipher, "--", plain, name)
        if shown(name) != IMG_UNSUPPORTED:
            failures.append(f"locked, {cipher}: {shown(name)}")


def compare_counts():
    for name in sorted(pathlib.Path("/usr/share").rglob("*.pdf")):
        expected = counted(name)
        if expected is None:
            continue
        ours = library.call("IMGLOW_get_pages", str(name))
        if ours != expected:
            failures.append(f"{name}: {ours} pages, not {expected}")
        for page in range(min(expected, 20)):
            picture = shown(name, page)
            if isinstance(picture, int) and picture != IMG_UNSUPPORTED:
                failures.append(f"{name}: page {page}: {picture}")


with tempfile.TemporaryDirectory() as temporary:
    compare_turned(pathlib.Path(temporary))
    compare_layouts(pathlib.Path(temporary))
    compare_counts()
sys.exit(conclude(failures))
