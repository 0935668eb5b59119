#!/usr/bin/env python3
"""JPEG files from here read by djpeg and Pillow.

    jpeg_peers.py LIBRARY     exit code 77 without Pillow or djpeg"""
import io
import math
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

try:
    from PIL import Image, ImageChops, ImageFilter, ImageStat
except ImportError:
    sys.exit(77)
from library import Library, conclude
from image_peers import failures, pack

SIZES = ((1, 1), (7, 9), (8, 8), (17, 16), (33, 31), (64, 40), (131, 67))
worst = {}


def photo(width, height, seed):
    """Soft shapes with some grain, so that neither smooth nor rough blocks are missing."""
    state = random.Random(seed)
    small = Image.new("RGB", (width // 6 + 2, height // 6 + 2))
    small.putdata([tuple(state.randint(0, 255) for _ in range(3)) for _ in range(small.width * small.height)])
    soft = small.resize((width, height), Image.BICUBIC).filter(ImageFilter.GaussianBlur(1))
    grain = Image.frombytes("RGB", (width, height), state.randbytes(3 * width * height))
    return Image.blend(soft, grain, 0.06)


def psnr(left, right):
    if left.size != right.size:
        return 0
    statistics = ImageStat.Stat(ImageChops.difference(left.convert("RGB"), right.convert("RGB")))
    error = sum(statistics.sum2) / sum(statistics.count)
    return 10 * math.log10(255 * 255 / error) if error else 99


def djpeg(name):
    done = subprocess.run(("djpeg", "-dct", "int", "-nosmooth", name), capture_output=True)
    # Padding to 16 bits may leave a byte behind the last code, which it remarks on.
    if done.returncode and b" 1 extraneous bytes before marker 0xd9" not in done.stderr:
        failures.append(f"djpeg: {done.stderr}")
    return Image.open(io.BytesIO(done.stdout))


def close(what, found, wanted, case):
    worst[what] = min(worst.get(what, 99), found)
    if found < wanted:
        failures.append(f"{what}: {found:.1f} dB, {case}")


def read_here(library, name):
    image = library.open(str(name))
    pixels = library.rgb(image)
    library.delete(image)
    return pixels


def write_ours(library, folder):
    """Others read the same picture from them as the library does."""
    name = folder / "ours.jpg"
    for i, quality in enumerate((1, 25, 50, 75, 90, 95, 100)):
        for j, (h, v) in enumerate(((1, 1), (2, 1), (1, 2), (2, 2), (4, 2), (0, 0))):
            size = SIZES[(i + j) % len(SIZES)]
            source = photo(*size, i)
            bits, rows, palette = (8, *grey_rows(source)) if h == 0 else pack(source, "RGB")
            library.call("IMGLOW_set_comp_quality", quality)
            library.call("IMGLOW_set_jpg_interleave", h, v)
            image = library.make(*size, bits, rows, palette)
            library.save(image, str(name))
            library.delete(image)
            here, case = read_here(library, name), (quality, h, v, size)
            close("written, djpeg", psnr(here, djpeg(name)), 45, case)
            close("written, Pillow", psnr(here, Image.open(name)), 25, case)  # with smooth chroma


def grey_rows(image):
    grey = image.convert("L")
    data = grey.tobytes()
    rows = [data[y * grey.width:(y + 1) * grey.width] for y in range(grey.height)]
    return rows, [(i, i, i) for i in range(256)]


def main():
    if not shutil.which("djpeg"):
        return 77
    library = Library(sys.argv[1])
    with tempfile.TemporaryDirectory() as name:
        write_ours(library, pathlib.Path(name))
    for what, found in worst.items():
        print(f"{what}: {found:.2f} dB at worst")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
