"""The comparison: a page, pictures and BMP files of every kind, converted in every way there is, and read by
other programs."""
import pathlib
import re
import shutil
import subprocess
import time

from gallery.peers import (SIZE, Image, ImageCms, agreed, bmp_facts, cropped, middle, read_by_peers, read_by_pillow,
                           run, same, scaled, with_file_header)

TILE = (260, 195)  # of copies on the sheet


def dots(name):
    """The bits of a black and white picture as poppler takes them out of a document, or netpbm of a file."""
    if name.suffix != ".pdf":
        return run("bmptopnm", "-quiet", name).split(maxsplit=3)[3]
    run("pdfimages", name, name.with_suffix(""))
    return pathlib.Path(f"{name.with_suffix('')}-000.pbm").read_bytes().split(maxsplit=3)[3]


class Comparison:
    def __init__(self, programs, out, say):
        self.programs, self.out, self.print = programs, out, say
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
        self.print(f"  {what:52.52} {size:>11} {self.took:6.0f} ms  {verdict}")

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
        self.print(f"== a page: A4 at 300 dots per inch, black and white, {page.stat().st_size:,} bytes")
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
        self.print(f"== a photograph: 2400 x 1800 pixels of 24 bits, {photo.stat().st_size:,} bytes")
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
        self.print("== TIFF: what is written here, read by others; what others write, read here")
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
