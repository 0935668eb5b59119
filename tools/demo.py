#!/usr/bin/python3
"""Converts a page and pictures with the tarnquill program and compares the results with what other
programs read from the same files. Says what came of it and makes a sheet of copies.

demo.py BIN_FOLDER OUT_FOLDER [FILE...]
"""
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import time

SIZE = (160, 120)  # of scaled pictures
TILE = (260, 195)  # of copies on the sheet


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


NETPBM = {".bmp": "bmptopnm", ".png": "pngtopnm", ".gif": "giftopnm", ".pcx": "pcxtoppm", ".jpg": "jpegtopnm",
          ".tif": "tifftopnm"}


def read_by_netpbm(name):
    pnm = run(NETPBM[pathlib.Path(name).suffix], "-quiet", name)
    if not pnm.startswith(b"P6"):
        pnm = run("ppmtoppm", data=run("pnmdepth", "-quiet", "255", data=pnm))
    return parse_ppm(pnm)


def read_by_imagemagick(name):
    return parse_ppm(run("convert", name, "-depth", "8", "ppm:-"))


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
    from PIL import Image, ImageCms
except ImportError:
    Image = None
PEERS = find_peers()


def read_by_peers(name):
    """{program: picture} of the programs that can read the file."""
    pictures = {}
    for peer, read in PEERS.items():
        try:
            pictures[peer] = read(str(name))
        except (subprocess.CalledProcessError, OSError, ValueError, LookupError):
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
    pictures = read_by_peers(name)
    if low_bits and low_bits[1] == 0xFC:
        pictures.pop("netpbm", None)  # takes words of 5-6-5 bits for others
    pictures = list(pictures.values())
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

def dots(name):
    """The bits of a black and white picture as poppler takes them out of a document, or netpbm of a file."""
    if name.suffix != ".pdf":
        return run("bmptopnm", "-quiet", name).split(maxsplit=3)[3]
    run("pdfimages", name, name.with_suffix(""))
    return pathlib.Path(f"{name.with_suffix('')}-000.pbm").read_bytes().split(maxsplit=3)[3]


class Demonstration:
    def __init__(self, programs, out):
        self.programs, self.out = programs, out
        self.results = out / "results"
        self.bad, self.confirmed, self.tiles = 0, 0, []

    def run(self, command, source, name, *options):
        """Runs the program; the result, or None."""
        result = self.results / name
        started = time.monotonic()
        done = subprocess.run([self.programs / "tarnquill", command, *options, source, result],
                              stderr=subprocess.PIPE, text=True)
        self.took = 1000 * (time.monotonic() - started)
        if done.returncode == 0:
            return result
        self.say(f"{command} {source.name} {name}", None, done.stderr.strip())
        self.bad += 1
        return None

    def say(self, what, result, verdict):
        size = f"{result.stat().st_size:,}" if result else ""
        print(f"  {what:52.52} {size:>11} {self.took:6.0f} ms  {verdict}", flush=True)

    def judge(self, good, text):
        self.confirmed += bool(good)
        self.bad += not good
        return text if good else "DIFFERENT: not " + text

    def verdict(self, result, expected, strict=True):
        """What other programs see in the result, compared with the picture expected."""
        readable = with_file_header(result) if result.suffix == ".dib" else result
        seen = read_by_peers(readable)
        if readable != result:
            readable.unlink()
        differing = [peer for peer, picture in seen.items() if picture != expected]
        if expected is None:
            return "not compared: no programs agree on the original"
        if differing:
            self.bad += strict
            return "DIFFERENT for " + ", ".join(differing)
        if not seen:
            return "not compared: no other program here reads it"
        self.confirmed += 1
        return "as expected for " + ", ".join(seen)

    def show_page(self, page):
        self.took = 0
        print(f"== a page: A4 at 300 dots per inch, black and white, {page.stat().st_size:,} bytes")
        pdf = self.run("convert", page, "page.pdf")
        if not pdf:
            return
        ratio = page.stat().st_size // pdf.stat().st_size
        same_dots = "compared by nobody: poppler or netpbm is missing"
        if shutil.which("pdfimages") and shutil.which("bmptopnm"):
            same_dots = self.judge(dots(pdf) == dots(page), "the same dots for poppler and netpbm")
        self.say(f"a PDF document, Group 4: 1/{ratio} of its size", pdf, same_dots)
        self.copy_of(page, f"a page - {pdf.stat().st_size} bytes as group 4")

        x, y = 700, 500
        part = self.run("convert", page, "part.bmp", "--crop", f"{x},{y},{TILE[0]},{TILE[1]}")
        width, _, pixels = agreed(page)
        rows = (pixels[3 * ((y + i) * width + x):][:3 * TILE[0]] for i in range(TILE[1]))
        self.say(f"a part of it, {TILE[0]} x {TILE[1]}", part, self.verdict(part, (*TILE, b"".join(rows))))
        self.copy_of(part, "a part of it dot by dot")

        small = self.results / "small.bmp"
        subprocess.run([self.programs / "contact_sheet", "--cell", "620x877", small, page], check=True)
        small = self.run("gray", small, "page-small.png")
        self.say("a small grey picture that can still be read", small, self.verdict(small, agreed(small)))

    def show_photo(self, photo):
        print(f"== a photograph: 2400 x 1800 pixels of 24 bits, {photo.stat().st_size:,} bytes")
        original = agreed(photo)
        for quality in (90, 30):
            jpeg = self.run("convert", photo, f"photo-{quality}.jpg", "--quality", str(quality))
            shown = "compared by nobody: netpbm is missing"
            if shutil.which("pnmpsnr"):
                ppm = self.out / "photo.ppm"
                for name, data in ((ppm, run("bmptopnm", photo)), (self.out / "jpeg.ppm", run("jpegtopnm", jpeg))):
                    name.write_bytes(data)
                told = subprocess.run(["pnmpsnr", ppm, self.out / "jpeg.ppm"], capture_output=True, text=True)
                decibels = float(re.search(r"Y.*?([0-9.]+) dB", told.stderr + told.stdout)[1])
                shown = self.judge(decibels > 28, f"{decibels:.1f} dB from the original for netpbm")
            self.say(f"JPEG, quality {quality}", jpeg, shown)
        png = self.run("convert", photo, "photo.png")
        self.say("PNG", png, self.verdict(png, original))
        pcx = self.run("convert", photo, "photo.pcx")
        self.say("PCX", pcx, self.verdict(pcx, original))
        few = self.run("reduce", photo, "few.bmp", "--colors", "256")
        gif = self.run("convert", few, "photo.gif")
        if gif:
            self.say("GIF of 256 colours of its own", gif, self.verdict(gif, agreed(few)))
        mono = self.run("dither", photo, "mono.bmp")
        pdf = self.run("convert", mono, "mono.pdf")
        if shutil.which("pdfimages") and shutil.which("bmptopnm"):
            self.say("PDF in black and white, error diffusion", pdf,
                     self.judge(dots(pdf) == dots(mono), "the same dots for poppler and netpbm"))
        self.copy_of(self.run("convert", self.results / "photo-30.jpg", "jpeg.bmp"),
                     f"jpeg - {(self.results / 'photo-30.jpg').stat().st_size} bytes")
        chart = self.run("convert", self.out / "inputs" / "chart-4.bmp", "chart.png")
        self.copy_of(self.run("convert", chart, "chart.bmp"), f"png - {chart.stat().st_size} bytes")
        # Every dot is to be seen on the sheet: scaled first.
        tile = self.run("convert", photo, "tile.bmp", "--decode-size", "x".join(map(str, TILE)))
        for caption, command, *options in (
                ("16 colours of its own", "reduce", "--colors", "16", "--bits", "4"),
                ("16 fixed colours - diffusion", "dither", "--method", "diffusion-color"),
                ("grey", "gray"),
                ("black and white - diffusion", "dither"),
                ("black and white - halftone", "dither", "--method", "halftone")):
            self.copy_of(self.run(command, tile, f"{caption}.bmp", *options), caption)

    def show_tiff(self, page, photo):
        print("== TIFF: what is written here, read by others; what others write, read here")
        fax = self.run("convert", page, "page.tif", "--code", "tiff-g4")
        self.say("the page, Group 4", fax, self.verdict(fax, agreed(page)))
        for code in ("tiff", "tiff-lzw", "tiff-packbits"):
            tiff = self.run("convert", photo, f"photo-{code}.tif", "--code", code)
            self.say(f"the photograph, {code}", tiff, self.verdict(tiff, agreed(photo)))
        if not Image:
            return
        with Image.open(photo) as image:
            scene = image.convert("RGB").resize(TILE)
        kinds = {"grey": "L", "black and white": "1", "palette": "P", "cmyk": "CMYK", "ycbcr": "YCbCr", "rgb": "RGB"}
        pictures = {name: scene.convert(mode) for name, mode in kinds.items()}
        pictures["lab"] = ImageCms.profileToProfile(scene, ImageCms.createProfile("sRGB"),
                                                    ImageCms.createProfile("LAB"), outputMode="LAB")
        pictures["alpha"] = scene.convert("RGBA")
        pictures["alpha"].putalpha(scene.convert("L"))
        for name, picture in pictures.items():
            file = self.results / f"tiff - {name}.tif"
            picture.save(file)
            self.tiles.append(file)
            result = self.run("convert", file, f"{name}.bmp")
            if result and name in ("grey", "black and white", "palette", "rgb"):
                self.say(f"of Pillow: {name}", file, self.verdict(result, read_by_pillow(file)))

    def show_bmp(self, source, strict=True):
        """All that can be done to one file, in one line."""
        bits, compression, bottom_up = bmp_facts(source)
        low_bits = (0xF8, 0xFC if compression == 3 else 0xF8, 0xF8) if bits == 16 else None
        picture = agreed(source, low_bits)
        steps = [("bmp", same, ["--code", "1"]), ("dib", same, ["--code", "48"]),
                 ("bmp", scaled(bottom_up), ["-q", "--decode-size", "x".join(map(str, SIZE))])]
        if bits in (4, 8):
            steps.append(("bmp", same, ["--code", "12"]))
        if picture and min(picture[:2]) >= 8:
            rect = ",".join(map(str, middle(*picture[:2])))
            steps += [("bmp", cropped, ["--crop", rect]), ("bmp", cropped, ["--rect", rect])]
        verdicts, took = {}, 0
        for i, (ending, model, options) in enumerate(steps):
            # The nearest of 8 bits differs by 1 between programs; what the low bits of the library are is certain.
            exactly = ["--contract"] if low_bits else []
            result = self.run("convert", source, f"{source.stem}-{i}.{ending}", *exactly, *options)
            if result:
                verdict = self.verdict(result, picture and model(picture), strict)
                if "DIFFERENT" in verdict:
                    verdict += f" ({' '.join(options)})"
                verdicts[verdict] = verdicts.get(verdict, 0) + 1
            took += self.took
        self.took = took
        self.say(source.name, source, "; ".join(f"{count} {verdict}" for verdict, count in verdicts.items()))

    def show_reductions(self, source):
        """Reduced pictures have no counterpart elsewhere: programs have to agree on what they see."""
        for bits in ("8", "4", "1"):
            for mode, how in (("1", "ordered dither"), ("2", "nearest colour")):
                result = self.run("convert", source, f"{bits}-{mode}.bmp", "--reduce", bits, "--dither-mode", mode)
                if result:
                    self.say(f"{source.name} to {bits} bits, {how}", result, self.verdict(result, agreed(result)))

    def copy_of(self, result, caption):
        """A tile of the sheet: captions are the names of files."""
        if result:
            self.tiles.append(self.results / f"{caption}.bmp")
            if result != self.tiles[-1]:
                shutil.copy(result, self.tiles[-1])

    def sheet(self):
        sheet = self.out / "sheet.bmp"
        subprocess.run([self.programs / "contact_sheet", "--cell", "x".join(map(str, TILE)), "--large", sheet,
                        *self.tiles], check=True)
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


def as_bmp(programs, name, folder):
    """A file of the user's; through another program if the library does not read its format."""
    path, converted = pathlib.Path(name), folder / (pathlib.Path(name).stem + ".bmp")
    if path.read_bytes()[:2] == b"BM":
        return path
    if subprocess.run([programs / "tarnquill", "convert", "-q", path, converted], capture_output=True).returncode == 0:
        return converted
    if Image:
        with Image.open(path) as image:
            image.convert("RGB").save(converted)
    else:
        subprocess.run(["convert", path, "-type", "TrueColor", "bmp3:" + str(converted)], check=True)
    print(f"{name} became {converted} by another program: its format is not read yet.")
    return converted


def main():
    programs, out = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    # Where the module for GIF is built; installed, it lies beside the library.
    os.environ["LD_LIBRARY_PATH"] = str(programs.resolve().parent / "modules" / "lzw_module")
    show = Demonstration(programs, out)
    inputs, yours = out / "inputs", out / "yours"
    shutil.rmtree(show.results, ignore_errors=True)
    for folder in (inputs, yours, show.results):
        folder.mkdir(parents=True, exist_ok=True)
    subprocess.run([programs / "make_scene", inputs], check=True)
    extra = [as_bmp(programs, name, yours) for name in sys.argv[3:]]
    print("Sizes in bytes; milliseconds of a whole process; read for comparison by",
          ", ".join(PEERS) or "no other program: none is installed")

    show.show_page(inputs / "page-1.bmp")
    show.show_photo(inputs / "photo-24.bmp")
    show.show_tiff(inputs / "page-1.bmp", inputs / "photo-24.bmp")
    print("== BMP files of every kind: saved as 1, 12 and 48, scaled, cropped, cut while decoding")
    for source in sorted(inputs.glob("*.bmp")):
        show.show_bmp(source)
    show.show_reductions(inputs / "photo-24.bmp")
    for source in extra:
        show.show_bmp(source, strict=False)

    print("== summary")
    print(f"{show.confirmed} results read as expected by other programs, {show.bad} failures.")
    print(f"The picture: {show.sheet().resolve()}")
    for picture in [inputs / "photo-24.bmp", *extra]:
        print(f"All operations on one picture: {show.operations_sheet(picture).resolve()}")
    return 1 if show.bad else 0


if __name__ == "__main__":
    sys.exit(main())
