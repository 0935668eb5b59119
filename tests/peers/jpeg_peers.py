#!/usr/bin/env python3
"""JPEG files read and written as other programs do: with IMG_OPTION_READING beside djpeg and Pillow, with
IMG_OPTION_JPEG_WRITING and its relatives beside cjpeg.

    jpeg_peers.py LIBRARY [...]     exit code 77 without djpeg, cjpeg, numpy or Pillow"""
import io
import math
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

try:
    import numpy
    from PIL import Image
except ImportError:
    sys.exit(77)
from library import Library, conclude

if not shutil.which("djpeg") or not shutil.which("cjpeg"):
    sys.exit(77)
READING, WRITING, OPTIMISE, PROGRESSIVE = 1, 20, 21, 22
CORPUS = pathlib.Path(__file__).parent.parent / "corpus/jpeg"
# These are not for other programs, or have a form of their own here.
NOT_COMPARED = {"arithmetic": "refused here", "dot": "a single pixel has no noise"}
failures = []
lowest, compared = 99.0, 0


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, **options).stdout


def psnr(left, right):
    error = numpy.mean((left.astype(float) - right.astype(float)) ** 2)
    return 99.0 if error == 0 else 10 * math.log10(255 * 255 / error)


def luminance(pixels):
    return pixels.astype(float) if pixels.ndim == 2 else pixels @ numpy.array([.299, .587, .114])


def ssim(left, right):
    """Structural similarity of luminance, the mean of windows of 8 by 8."""
    def windows(pixels):
        height, width = (side // 8 * 8 for side in pixels.shape[:2])
        return luminance(pixels)[:height, :width].reshape(height // 8, 8, width // 8, 8)
    a, b = windows(left), windows(right)
    mean = lambda values: values.mean((1, 3))
    at, bt = mean(a), mean(b)
    c1, c2 = (.01 * 255) ** 2, (.03 * 255) ** 2
    spread = mean(a * a) - at * at + mean(b * b) - bt * bt
    together = mean(a * b) - at * bt
    return float(numpy.mean((2 * at * bt + c1) * (2 * together + c2) / ((at * at + bt * bt + c1) * (spread + c2))))


def photograph(width, height, seed=1):
    """Slopes, edges, textures and noise."""
    y, x = numpy.mgrid[0:height, 0:width]
    state = numpy.random.default_rng(seed)
    wave = numpy.sin(x * .011) * numpy.cos(y * .007) * 60 + numpy.sin(x * .13 + numpy.sin(y * .05) * 3) * 25
    shapes = (((x // 37) ^ (y // 53)) % 5) * 9
    noise = state.normal(0, 3, (height, width))
    planes = [120 + (wave + shapes) * (1 - .25 * c) + noise + 30 * numpy.sin(x * .003 * (c + 1) + y * .002) for c in range(3)]
    planes[0] = planes[0] + 60 * ((x - width / 2) ** 2 + (y - height / 3) ** 2 < (width / 6) ** 2)
    return numpy.clip(numpy.stack(planes, 2), 0, 255).astype(numpy.uint8)


def text_page(width, height, seed=2):
    """Black strokes on white, a little blurred, as a scanner sees them; a coloured heading."""
    state = random.Random(seed)
    page = numpy.full((height, width), 250.0)
    for top in range(16, height - 16, 22):
        left = 12
        while left < width - 20:
            for _ in range(3):
                x, y = left + state.randrange(8), top + state.randrange(10)
                if state.random() < .5:
                    page[y:y + 2, left:left + 8] = 20
                else:
                    page[top:top + 12, x:x + 2] = 20
            left += 11 if state.random() < .85 else 22
    page[1:-1, 1:-1] = (page[:-2, 1:-1] + page[2:, 1:-1] + page[1:-1, :-2] + page[1:-1, 2:] + 4 * page[1:-1, 1:-1]) / 8
    colours = numpy.stack([page] * 3, 2)
    colours[:height // 8, :, 1:] *= .6
    return numpy.clip(colours, 0, 255).astype(numpy.uint8)


def ppm(pixels):
    kind = b"P5" if pixels.ndim == 2 else b"P6"
    return kind + b"\n%d %d\n255\n" % (pixels.shape[1], pixels.shape[0]) + pixels.tobytes()


def read_here(library, name):
    """Colours, grey or inks as the library gives them, and dots per inch."""
    image = library.open(str(name))
    header = library.header(image)
    row_bytes = (header["width"] * header["bits"] // 8 + 3) // 4 * 4
    rows = numpy.zeros((header["height"], row_bytes), numpy.uint8)
    for y in range(header["height"]):
        library.checked("IMGLOW_get_raster", image, rows[y].ctypes.data_as(library.pointer), y, row_bytes)
    library.delete(image)
    channels = header["bits"] // 8
    pixels = rows[:, :header["width"] * channels].reshape(header["height"], header["width"], channels)
    pixels = pixels[:, :, ::-1] if channels == 3 else pixels
    return pixels, (header["x_dpi"], header["y_dpi"])


def inks_to_colours(cmyk):
    light = 255 - cmyk.astype(int)
    return ((light[:, :, :3] * light[:, :, 3:] + 127) // 255).astype(numpy.uint8)


def compare_read(library, name, what=""):
    global lowest, compared
    ours, dpi = read_here(library, name)
    theirs = Image.open(name)
    inks = theirs.mode == "CMYK"
    expected = numpy.array(theirs if theirs.mode in ("L", "RGB", "CMYK") else theirs.convert("RGB"))
    expected = expected.reshape(expected.shape[0], expected.shape[1], -1)
    if ours.shape != expected.shape:
        failures.append(f"{name.name}: {ours.shape}, not {expected.shape}")
        return
    if inks:
        ours, expected = inks_to_colours(ours), inks_to_colours(expected)
    quality = psnr(ours, expected)
    most = int(numpy.abs(ours.astype(int) - expected.astype(int)).max())
    lowest, compared = min(lowest, quality) if ours.size > 100 else lowest, compared + 1
    # Of a few pixels a single one that is rounded the other way counts for much.
    if (quality < 52 and ours.size > 100) or most > (5 if inks else 4):
        failures.append(f"{name.name} {what}: {quality:.2f} dB, {most} at most")
    known = theirs.info.get("dpi", (0, 0))
    if any(abs(a - b) > .51 for a, b in zip(dpi, known)):
        failures.append(f"{name.name}: {dpi} dots per inch, not {known}")


def reading(library, folder):
    library.call("IMG_set_option", READING, 1)
    for name in sorted(CORPUS.glob("*.jpg")):
        if name.stem not in NOT_COMPARED:
            try:
                compare_read(library, name)
            except (OSError, RuntimeError) as error:
                failures.append(f"{name.name}: {error}")
    name = folder / "made.jpg"
    for width, height in ((1, 1), (2, 3), (3, 2), (5, 5), (16, 16), (17, 33), (35, 18), (131, 67), (640, 480)):
        colours = ppm(photograph(width, height))
        for sampling in ("1x1", "2x1", "1x2", "2x2", "4x1", "1x4", "4x2", "2x4"):
            for more in ((), ("-progressive",), ("-restart", "1"), ("-restart", "3B")):
                name.write_bytes(run("cjpeg", "-quality", "90", "-sample", sampling, *more, input=colours))
                try:
                    compare_read(library, name, f"{width}x{height} {sampling} {more}")
                except RuntimeError as error:
                    failures.append(f"{width}x{height} {sampling} {more}: {error}")
        for mode, quality in (("L", 80), ("CMYK", 95)):
            Image.fromarray(photograph(width, height)).convert(mode).save(name, quality=quality, dpi=(150, 75))
            compare_read(library, name, f"{width}x{height} {mode}")
    exif = Image.Exif()
    for orientation in range(1, 9):
        exif[274], exif[282], exif[283], exif[296] = orientation, 120.5, 120.5, 3  # Pillow takes the first for both
        stream = io.BytesIO()
        Image.fromarray(photograph(64, 48)).save(stream, "jpeg", exif=exif)
        data = stream.getvalue()
        at = data.index(b"JFIF") - 4
        name.write_bytes(data[:at] + data[at + 18:])  # no resolution but that of EXIF
        compare_read(library, name)
        if library.call("IMGLOW_get_image_orientation", str(name)) != orientation:
            failures.append(f"orientation {orientation}")
    library.call("IMG_set_option", READING, 0)
    print(f"{compared} pictures read, {lowest:.1f} dB at least")


def write_here(library, image, name, quality, sampling, options):
    library.call("IMGLOW_set_comp_quality", quality)
    library.call("IMGLOW_set_jpg_interleave", *sampling)
    for option in options:
        library.checked("IMG_set_option", option, 1)
    library.save(image, str(name), 13)
    for option in options:
        library.checked("IMG_set_option", option, 0)
    return name.read_bytes()


def decoded(data):
    return numpy.array(Image.open(io.BytesIO(data)))


def writing(library, folder):
    ways = ((("baseline", (), (), 1.005),
             ("optimised", ("-optimize",), (OPTIMISE,), 1.005),
             ("progressive", ("-progressive",), (PROGRESSIVE,), 1.01)))
    worst = {}
    scenes = {"photograph": photograph(1203, 805), "noise": photograph(400, 299, 5), "text": text_page(1000, 1401)}
    scenes["grey"] = scenes["text"][:, :, 1].copy()
    for scene, pixels in scenes.items():
        name = folder / "ours.jpg"
        height, width = pixels.shape[:2]
        if pixels.ndim == 2:
            image = library.make(width, height, 8, [row.tobytes() + b"\0" * (-width % 4) for row in pixels], [(i, i, i) for i in range(256)])
        else:
            image = library.make(width, height, 24, [row[:, ::-1].tobytes() + b"\0" * (-3 * width % 4) for row in pixels])
        for quality in (50, 75, 90):
            for sampling in ((1, 1), (2, 1), (2, 2)):
                for way, flags, options, most in ways:
                    ours = write_here(library, image, name, quality, sampling, (WRITING,) + options)
                    theirs = run("cjpeg", "-quality", quality, "-sample", f"{sampling[0]}x{sampling[1]}", "-dct", "int", *flags,
                                 input=ppm(pixels))
                    # The picture is the same whatever the coding.
                    shown, expected = decoded(ours), decoded(theirs)
                    found = (len(ours) / len(theirs), psnr(expected, pixels) - psnr(shown, pixels),
                             ssim(expected, pixels) - ssim(shown, pixels))
                    what = f"{scene}, quality {quality}, {sampling}, {way}"
                    if any(a > b for a, b in zip(found, (most, .02, .0002))):
                        failures.append(f"{what}: of the bytes, dB less, SSIM less: {found}")
                    worst[way] = [max(pair) for pair in zip(worst.get(way, found), found)]
                    name.write_bytes(ours)
                    run("djpeg", name)
                    if options and write_here(library, image, name, quality, sampling, options) == ours:
                        failures.append(f"{what}: option {WRITING} changes nothing")
        library.delete(image)
    for way, (ratio, loss, unlike) in worst.items():
        print(f"{way}: at most {ratio:.4f} of cjpeg's bytes, {loss:.4f} dB and {unlike:.6f} of SSIM less")
    inks = numpy.array(Image.fromarray(photograph(203, 105)).convert("CMYK"))
    inks[:, :, 3] = inks[:, :, 0] // 2
    image = library.make(203, 105, 32, [row.tobytes() for row in inks])
    found = psnr(decoded(write_here(library, image, name, 95, (1, 1), (WRITING,))), inks)
    print(f"inks: {found:.1f} dB")
    if found < 40:
        failures.append(f"inks: {found:.1f} dB")


def main():
    import ctypes
    library = Library(sys.argv[1])
    library.pointer = ctypes.c_void_p
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        reading(library, folder)
        writing(library, folder)
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
