#!/usr/bin/python3
"""Converts pictures with the tarnquill program and compares the results with what other programs
read from the same files. Prints a table and makes a contact sheet.

demo.py BIN_FOLDER OUT_FOLDER [FILE...]
"""
import glob
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import time

MOST_FOUND = 4  # pictures that the machine happens to have
SIZE = (160, 120)


# ---- Pictures as other programs read them: (width, height, bytes of red, green, blue) ----

def parse_ppm(data):
    fields = data.split(maxsplit=4)
    width, height, most = (int(field) for field in fields[1:4])
    if fields[0] != b"P6" or most != 255:
        raise ValueError("not a PPM picture of 8 bits")
    return width, height, data[len(data) - 3 * width * height:]


def run(*command, data=None):
    return subprocess.run(command, input=data, check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL).stdout


def read_by_netpbm(name):
    pnm = run("bmptopnm", "-quiet", name)
    if not pnm.startswith(b"P6"):
        pnm = run("ppmtoppm", data=run("pnmdepth", "-quiet", "255", data=pnm))
    return parse_ppm(pnm)


def read_by_imagemagick(name):
    return parse_ppm(run("convert", "bmp:" + name, "-depth", "8", "ppm:-"))


def read_by_pillow(name):
    with Image.open(name) as image:
        return image.width, image.height, image.convert("RGB").tobytes()


def find_peers():
    found = {}
    if shutil.which("bmptopnm"):
        found["netpbm"] = read_by_netpbm
    if shutil.which("convert") and subprocess.run(["convert", "-version"], capture_output=True).returncode == 0:
        found["ImageMagick"] = read_by_imagemagick
    if Image:
        found["Pillow"] = read_by_pillow
    return found


try:
    from PIL import Image
except ImportError:
    Image = None
PEERS = find_peers()


def read_by_peers(name):
    """{program: picture} of the programs that can read the file."""
    pictures = {}
    for peer, read in PEERS.items():
        try:
            pictures[peer] = read(str(name))
        except (subprocess.CalledProcessError, OSError, ValueError, IndexError):
            pass  # a file that this program does not support
    return pictures


# ---- What an operation does to a picture, told once more ----

def same(picture):
    return picture


def middle(width, height):
    """A rectangle that begins and ends inside of bytes at 1 and 4 bits."""
    return width // 3 | 1, height // 3 | 1, max(width // 3, 1) | 1, max(height // 3, 1) | 1


def cropped(picture):
    width, height, pixels = picture
    x, y, w, h = middle(width, height)
    rows = (pixels[3 * ((y + i) * width + x):][:3 * w] for i in range(h))
    return w, h, b"".join(rows)


def scaled(bottom_up):
    def scale(picture):
        """The nearest pixel; of the rows that fall on one, the first in the order of the file."""
        width, height, pixels = picture
        w, h = SIZE
        if width <= w or height <= h:
            return picture
        source = {}
        for y in range(height - 1, -1, -1) if bottom_up else range(height):
            source.setdefault(y * h // height, y)
        step = (width << 16) // w
        columns = [3 * (i * step >> 16) for i in range(w)]
        rows = []
        for y in range(h):
            row = pixels[3 * source[y] * width:][:3 * width]
            rows.append(b"".join(row[c:c + 3] for c in columns))
        return w, h, b"".join(rows)
    return scale


def with_low_bits_clear(picture, masks):
    """16-bit files: the library leaves the low bits 0 where others repeat the high ones."""
    width, height, pixels = picture
    tables = [bytes(value & mask for value in range(256)) for mask in masks]
    cleared = bytearray(pixels)
    for i, table in enumerate(tables):
        cleared[i::3] = pixels[i::3].translate(table)
    return width, height, bytes(cleared)


def agreed(name, low_bits=None):
    """The picture that programs agree on; one of them alone if no other reads the file."""
    pictures = list(read_by_peers(name).values())
    if low_bits:
        pictures = [with_low_bits_clear(picture, low_bits) for picture in pictures]
    best = max(pictures, key=pictures.count, default=None)
    return best if pictures.count(best) > 1 or len(pictures) == 1 else None


def bmp_facts(name):
    """Bits per pixel, compression, and whether rows are stored bottom-up."""
    data = pathlib.Path(name).read_bytes()[:54]
    if struct.unpack_from("<I", data, 14)[0] == 12:
        return struct.unpack_from("<H", data, 24)[0], 0, True
    height, _, bits, compression = struct.unpack_from("<iHHI", data, 22)
    return bits, compression, height > 0


def with_file_header(name):
    """A bare DIB as a BMP file, for programs that do not read it otherwise."""
    data = pathlib.Path(name).read_bytes()
    bits = struct.unpack_from("<H", data, 14)[0]
    offset = 54 + (4 << bits if bits <= 8 else 0)
    wrapped = pathlib.Path(str(name) + ".bmp")
    wrapped.write_bytes(b"BM" + struct.pack("<IHHI", 14 + len(data), 0, 0, offset) + data)
    return wrapped


# ---- The demonstration ----

class Demonstration:
    def __init__(self, programs, out):
        self.programs, self.out = programs, out
        self.results = out / "results"
        self.rows, self.bad, self.confirmed = [], 0, 0

    def convert(self, source, operation, *options, ending="bmp"):
        """Runs the program; the result's name, or None."""
        result = self.results / f"{source.stem}.{operation.replace(' ', '-')}.{ending}"
        started = time.monotonic()
        done = subprocess.run([self.programs / "tarnquill", "convert", *options, source, result],
                              stderr=subprocess.PIPE, text=True)
        took = 1000 * (time.monotonic() - started)
        if done.returncode:
            self.note(source, operation, "-", took, done.stderr.strip())
            self.bad += 1
            return None
        self.took = took
        return result

    def note(self, source, operation, size, took, verdict):
        print(f"{source.name:22.22} {operation:15} {size:>10} {took:8.1f}  {verdict}", flush=True)

    def check(self, source, operation, result, expected, strict=True):
        """Compares what each program reads from the result with the picture expected."""
        if result is None:
            return
        readable = with_file_header(result) if result.suffix == ".dib" else result
        seen = read_by_peers(readable)
        if readable != result:
            readable.unlink()
        differing = [peer for peer, picture in seen.items() if picture != expected]
        if expected is None:
            verdict = "not compared: no two programs agree on the original"
        elif differing:
            verdict = "DIFFERENT for " + ", ".join(differing)
            self.bad += strict
        elif seen:
            verdict = "as expected for " + ", ".join(seen)
            self.confirmed += 1
        else:
            verdict = "not compared: no other program here reads it"
        self.note(source, operation, str(result.stat().st_size), self.took, verdict)

    def show(self, source, strict=True):
        bits, compression, bottom_up = bmp_facts(source)
        low_bits = (0xF8, 0xFC if compression == 3 else 0xF8, 0xF8) if bits == 16 else None
        picture = agreed(source, low_bits)
        size = "x".join(map(str, SIZE))
        steps = [("save as 1", same, ["--code", "1"], "bmp"),
                 ("save as 48", same, ["--code", "48"], "dib"),
                 ("scale", scaled(bottom_up), ["-q", "--size", size], "bmp")]
        if bits in (4, 8):
            steps.insert(1, ("save as 12", same, ["--code", "12"], "bmp"))
        if picture and min(picture[:2]) >= 8:
            rect = ",".join(map(str, middle(*picture[:2])))
            steps += [("crop", cropped, ["--crop", rect], "bmp"),
                      ("cut decoding", cropped, ["--rect", rect], "bmp")]
        for operation, model, options, ending in steps:
            result = self.convert(source, operation, *options, ending=ending)
            self.check(source, operation, result, picture and model(picture), strict)

    def show_reductions(self, source):
        """Reduced pictures have no counterpart elsewhere: programs have to agree on what they see."""
        for bits in ("8", "4", "1"):
            for mode, how in (("1", "ordered"), ("2", "nearest")):
                operation = f"{bits} bits {how}"
                result = self.convert(source, operation, "--reduce", bits, "--dither-mode", mode)
                self.check(source, operation, result, result and agreed(result))

    def contact_sheet(self, pictures):
        sheet = self.out / "contact-sheet.bmp"
        subprocess.run([self.programs / "contact_sheet", sheet, *pictures], check=True)
        return self.as_png(sheet)

    def operations_sheet(self, picture):
        """Every operation on one picture."""
        sheet = self.out / f"operations-{picture.stem}.bmp"
        subprocess.run([self.programs / "tarnquill", "sheet", picture, sheet], check=True)
        return self.as_png(sheet)

    def as_png(self, sheet):
        png = sheet.with_suffix(".png")
        subprocess.run([self.programs / "tarnquill", "convert", "-q", sheet, png], check=True)
        return png


def found_on_this_machine():
    """BMP files that installed packages brought along."""
    found = []
    for name in sorted(glob.glob("/usr/share/**/*.bmp", recursive=True)):
        if os.path.isfile(name) and 100 < os.path.getsize(name) < 20 << 20:
            found.append(pathlib.Path(name))
    return found[:MOST_FOUND]


def as_bmp(name, folder):
    """A file of the user's, through another program if its format is not read yet."""
    path = pathlib.Path(name)
    if path.read_bytes()[:2] == b"BM":
        return path
    converted = folder / (path.stem + ".bmp")
    if Image:
        with Image.open(path) as image:
            image.convert("RGB").save(converted)
    else:
        subprocess.run(["convert", path, "-type", "TrueColor", "bmp3:" + str(converted)], check=True)
    print(f"{name} became {converted} by another program: its format is not read yet.")
    return converted


def main():
    programs, out = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    show = Demonstration(programs, out)
    inputs = out / "inputs"
    shutil.rmtree(show.results, ignore_errors=True)
    for folder in (inputs, show.results):
        folder.mkdir(parents=True, exist_ok=True)

    print("== pictures")
    subprocess.run([programs / "make_scene", inputs], check=True)
    made = sorted(inputs.glob("*.bmp"))
    (out / "yours").mkdir(exist_ok=True)
    yours = len(sys.argv) - 3
    extra = [as_bmp(name, out / "yours") for name in sys.argv[3:]] + found_on_this_machine()
    subprocess.run([programs / "tarnquill", "info", *made, *extra], check=False)

    print("== conversions")
    print("MS: the milliseconds of a whole process. PIXELS: compared with what these programs read:")
    print(", ".join(PEERS) or "none is installed")
    print(f"{'FILE':22} {'OPERATION':15} {'BYTES':>10} {'MS':>8}  PIXELS")
    for source in made:
        show.show(source)
    show.show_reductions(inputs / "photo-24.bmp")
    for source in extra:
        show.show(source, strict=False)

    results = show.results
    picture = show.contact_sheet(
        [results / f"{name}.bmp" for name in (
            "photo-24.save-as-1", "photo-24.crop", "photo-24.scale", "chart-4.save-as-12",
            "photo-24.8-bits-ordered", "photo-24.4-bits-ordered", "photo-24.1-bits-ordered",
            "page-1.crop", "photo-24.8-bits-nearest", "photo-24.4-bits-nearest",
            "photo-24.1-bits-nearest", "page-1.save-as-1", "scene-565.save-as-1",
            "os2-8.save-as-12", "top-down-24.save-as-1", "chart-rle8.crop")])
    operations = [show.operations_sheet(name) for name in [inputs / "photo-24.bmp", *extra[:yours]]]
    print("== summary")
    print(f"{show.confirmed} results read as expected by other programs, {show.bad} failures.")
    print(f"The picture: {picture.resolve()}")
    for sheet in operations:
        print(f"All operations on one picture: {sheet.resolve()}")
    return 1 if show.bad else 0


if __name__ == "__main__":
    sys.exit(main())
