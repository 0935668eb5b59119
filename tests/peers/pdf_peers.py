#!/usr/bin/env python3
"""Documents as other programs write them and as hands do: every filter, space, mask and cipher. Their pages have to be
the pictures that they were made of, or what another program shows.

    pdf_peers.py LIBRARY MODULE     exit code 77 without Pillow and pikepdf, or without the module for documents"""
import ctypes
import io
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import zlib

try:
    import pikepdf
    from PIL import Image, ImageChops, ImageDraw
except ImportError:
    sys.exit(77)
from library import Library, conclude

INKS = 4  # the option
Name, Array, Dictionary = pikepdf.Name, pikepdf.Array, pikepdf.Dictionary
failures, compared = [], 0
state = random.Random(5)


# --- Pictures ---

def photo(mode, width=83, height=61):
    """Gradients, shapes and some noise."""
    picture = Image.new("RGB", (width, height))
    for y in range(height):
        for x in range(width):
            noise = state.randrange(12)
            picture.putpixel((x, y), (x * 243 // width + noise, y * 243 // height + noise, (x + y) % 97 * 2 + noise))
    draw = ImageDraw.Draw(picture)
    draw.ellipse((10, 10, 40, 50), fill=(250, 30, 20))
    draw.rectangle((50, 20, 75, 33), fill=(0, 0, 0), outline=(255, 255, 255))
    if mode == "CMYK":
        cyan, magenta, yellow = picture.split()
        return Image.merge("CMYK", (cyan, magenta, yellow, picture.convert("L").point(lambda v: v // 4)))
    return picture.convert(mode)


def text_page(width=401, height=263):
    picture = Image.new("1", (width, height), 1)
    draw = ImageDraw.Draw(picture)
    for y in range(8, height, 16):
        draw.text((9 + y % 5, y), "The quick brown fox 0123456789 jumps over it", fill=0)
    return picture


def inks_to_rgb(picture):
    """As this library does it without profiles."""
    *inks, black = picture.split()
    light = list(black.getdata())
    planes = []
    for ink in inks:
        plane = Image.new("L", picture.size)
        plane.putdata([((255 - i) * (255 - k) + 127) // 255 for i, k in zip(ink.getdata(), light)])
        planes.append(plane)
    return Image.merge("RGB", planes)


def packed(samples, bits, per_row):
    """Rows of samples below a byte."""
    out = b""
    for at in range(0, len(samples), per_row):
        row = "".join(format(sample, f"0{bits}b") for sample in samples[at:at + per_row])
        row += "0" * (-len(row) % 8)
        out += int(row, 2).to_bytes(len(row) // 8, "big")
    return out


# --- Codings ---

def lzw(data, early):
    codes, string, next_code, bits, out, word, there = {}, b"", 258, 9, bytearray(), 0, 0

    def put(code):
        nonlocal word, there
        word, there = word << bits | code, there + bits
        while there >= 8:
            there -= 8
            out.append(word >> there & 255)
            word &= (1 << there) - 1

    put(256)
    for value in data:
        longer = string + bytes((value,))
        if len(longer) == 1 or longer in codes:
            string = longer
            continue
        put(codes[string] if len(string) > 1 else string[0])
        codes[longer] = next_code
        next_code += 1
        if next_code + early > 1 << bits:
            bits += 1
        if next_code == 4094:
            bits = min(bits, 12)
            put(256)
            codes, next_code, bits = {}, 258, 9
        string = longer[-1:]
    put(codes[string] if len(string) > 1 else string[0])
    if next_code + 1 + early > 1 << bits:
        bits = min(bits + 1, 12)
    put(257)
    out.append(word << 8 - there & 255)
    return bytes(out)


def ascii85(data):
    import base64
    return base64.a85encode(data, wrapcol=72) + b"~>"


def run_length(data):
    out, at = bytearray(), 0
    while at < len(data):
        end = at + 1
        while end < len(data) and end - at < 128 and data[end] == data[at]:
            end += 1
        if end - at > 2:
            out += bytes((257 - (end - at), data[at]))
        else:
            end = min(at + 50, len(data))
            out += bytes((end - at - 1,)) + data[at:end]
        at = end
    return bytes(out) + b"\x80"


def png_rows(data, row, pixel):
    """Each row with another filter."""
    out, above = bytearray(), bytes(row)
    for number, at in enumerate(range(0, len(data), row)):
        line, kind = data[at:at + row], number % 5
        out.append(kind)
        for x, value in enumerate(line):
            a, b, c = line[x - pixel] if x >= pixel else 0, above[x], above[x - pixel] if x >= pixel else 0
            p = a + b - c
            paeth = min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]
            out.append(value - (0, a, b, (a + b) // 2, paeth)[kind] & 255)
        above = line
    return bytes(out)


def tiff_rows(data, row, samples):
    out = bytearray()
    for at in range(0, len(data), row):
        line = data[at:at + row]
        out += bytes((line[x] - (line[x - samples] if x >= samples else 0)) & 255 for x in range(row))
    return bytes(out)


# --- Documents ---

def add_page(document, images, size, contents=None, **entries):
    """`images`: streams, Im0 and on. Without contents the first fills the page."""
    contents = contents or f"q {size[0]} 0 0 {size[1]} 0 0 cm /Im0 Do Q"
    page = Dictionary(Type=Name.Page, MediaBox=Array([0, 0, *size]), Contents=document.make_stream(contents.encode()),
                      Resources=Dictionary(XObject=Dictionary({f"/Im{i}": image for i, image in enumerate(images)})),
                      **{key: value for key, value in entries.items()})
    document.pages.append(pikepdf.Page(document.make_indirect(page)))


def image(document, data, size, bits, space, **entries):
    """`Filter` and others as they are; the data are what they decode."""
    stream = document.make_stream(b"")
    for key, value in {"Type": Name.XObject, "Subtype": Name.Image, "Width": size[0], "Height": size[1],
                       "BitsPerComponent": bits, "ColorSpace": space, **entries}.items():
        if value is not None:
            stream[f"/{key}"] = value
    stream.write(data, filter=entries.get("Filter"), decode_parms=entries.get("DecodeParms"))
    for key in ("Filter", "DecodeParms"):
        if entries.get(key) is not None:
            stream[f"/{key}"] = entries[key]
    return stream


class Run:
    def __init__(self, library, folder):
        self.library, self.folder, self.number = library, folder, 0

    def path(self, ending="pdf"):
        self.number += 1
        return self.folder / f"{self.number}.{ending}"

    def save(self, document, **how):
        path = self.path()
        document.save(path, **{"compress_streams": False, "stream_decode_level": pikepdf.StreamDecodeLevel.none, **how})
        return path

    def one_image(self, *arguments, **entries):
        document = pikepdf.new()
        picture = image(document, *arguments, **entries)
        add_page(document, [picture], [side * 72 / 200 for side in arguments[1]])
        return self.save(document)

    def high_bytes(self, handle, header):
        row, data = ctypes.create_string_buffer((header["width"] * 2 + 3) // 4 * 4), b""
        for y in range(header["height"]):
            self.library.checked("IMGLOW_get_raster", handle, row, y, len(row))
            data += row.raw[1:2 * header["width"]:2]
        return Image.frombytes("L", (header["width"], header["height"]), data).convert("RGB")

    def check(self, name, path, expected, bits=None, levels=0, page=0, dpi=None):
        """`expected`: a picture, or a number of dots per inch at which pdftoppm shows it. `levels`: how far the
        means of 8 by 8 pixels may be apart; 0: everything is the same."""
        global compared
        try:
            handle = self.library.open_page(str(path), page)
        except RuntimeError as error:
            failures.append(f"{name}: {error}")
            return
        header = self.library.header(handle)
        seen = self.high_bytes(handle, header) if header["bits"] == 16 else self.library.rgb(handle)
        self.library.delete(handle)
        if isinstance(expected, (int, float)):
            expected = shown(path, page, expected).crop((0, 0, header["width"], header["height"]))
        if bits and header["bits"] != bits:
            failures.append(f"{name}: {header['bits']} bits a pixel, not {bits}")
        if dpi and abs(header["x_dpi"] - dpi) > 1:
            failures.append(f"{name}: {header['x_dpi']} dots per inch, not {dpi}")
        expected = expected.convert("RGB")
        if seen.size != expected.size:
            failures.append(f"{name}: {seen.size}, not {expected.size}")
            return
        compared += 1
        if levels == 0:
            if seen.tobytes() != expected.tobytes():
                failures.append(f"{name}: other pixels, {ImageChops.difference(seen, expected).getextrema()}")
            return
        cells = [[p.resize((max(p.width // 8, 1), max(p.height // 8, 1)), Image.BOX)] for p in (seen, expected)]
        worst = max(high for _, high in ImageChops.difference(cells[0][0], cells[1][0]).getextrema())
        if worst > levels:
            failures.append(f"{name}: cells differ by {worst}")


def shown(path, page, dpi):
    done = subprocess.run(["pdftoppm", "-r", str(dpi), "-f", str(page + 1), "-singlefile", path], capture_output=True)
    return Image.open(io.BytesIO(done.stdout))


def check_filters(run):
    grey, rgb = photo("L"), photo("RGB")
    for predictor in (1, 2, 12, 15):
        for picture, samples in ((grey, 1), (rgb, 3)):
            data, row = picture.tobytes(), picture.width * samples
            rows = {1: data, 2: tiff_rows(data, row, samples)}.get(predictor) or png_rows(data, row, samples)
            numbers = {"Predictor": predictor, "Colors": samples, "Columns": picture.width}
            space = Name.DeviceGray if samples == 1 else Name.DeviceRGB
            for early in (0, 1):
                path = run.one_image(lzw(rows, early), picture.size, 8, space, Filter=Name.LZWDecode,
                                     DecodeParms=Dictionary(EarlyChange=early, **numbers))
                run.check(f"LZW, early {early}, predictor {predictor}, {samples}", path, picture, 8 if samples == 1 else 24)
            path = run.one_image(zlib.compress(rows), picture.size, 8, space, Filter=Name.FlateDecode, DecodeParms=Dictionary(**numbers))
            run.check(f"Flate, predictor {predictor}, {samples}", path, picture, dpi=200)
    data, nothing = rgb.tobytes(), Dictionary()
    codings = {"plain": (data, None), "ASCII85": (ascii85(data), Name.ASCII85Decode),
               "ASCIIHex": (data.hex().encode() + b">", Name.ASCIIHexDecode),
               "runs": (run_length(data), Name.RunLengthDecode),
               "three": (ascii85(zlib.compress(run_length(data))),
                         Array([Name.ASCII85Decode, Name.FlateDecode, Name.RunLengthDecode]))}
    for name, (coded, filters) in codings.items():
        run.check(name, run.one_image(coded, rgb.size, 8, Name.DeviceRGB, Filter=filters), rgb, 24)


def check_spaces(run):
    grey, rgb, inks, text = photo("L"), photo("RGB"), photo("CMYK"), text_page()
    document = pikepdf.new()
    width = grey.width
    levels = list(grey.getdata())
    for bits in (1, 2, 4, 16):
        samples = [level >> 8 - bits if bits < 16 else level * 257 for level in levels]
        top = (1 << bits) - 1
        expected = Image.new("L", grey.size)
        expected.putdata([sample * 255 // top for sample in samples])
        data = packed(samples, bits, width)
        run.check(f"grey {bits}", run.one_image(data, grey.size, bits, Name.DeviceGray), expected, {2: 4}.get(bits, bits))
        inverted = run.one_image(data, grey.size, bits, Name.DeviceGray, Decode=Array([1, 0]))
        run.check(f"grey {bits}, inverted", inverted, ImageChops.invert(expected))
        ink = run.one_image(data, grey.size, bits, Array([Name.Separation, Name.Black, Name.DeviceGray, Dictionary(
            FunctionType=2, Domain=Array([0, 1]), C0=Array([1]), C1=Array([0]), N=1)]))
        run.check(f"black ink {bits}", ink, ImageChops.invert(expected))
    for colours, bits in ((2, 1), (4, 2), (16, 4), (256, 8)):
        indexed = rgb.quantize(colours)
        table = bytes(indexed.getpalette()[:3 * colours])
        data = packed(list(indexed.getdata()), bits, width)
        space = Array([Name.Indexed, Name.DeviceRGB, colours - 1, pikepdf.String(table)])
        run.check(f"indexed {bits}", run.one_image(data, rgb.size, bits, space), indexed, max(bits, 4))
        document = pikepdf.new()
        space = Array([Name.Indexed, Name.DeviceRGB, colours - 1, document.make_stream(table)])
        picture = image(document, zlib.compress(data), rgb.size, bits, space, Filter=Name.FlateDecode)
        add_page(document, [picture], rgb.size)
        run.check(f"indexed {bits} by a stream", run.save(document), indexed)
    document = pikepdf.new()
    profile = document.make_stream(b"none")
    profile.N = 3
    add_page(document, [image(document, rgb.tobytes(), rgb.size, 8, Array([Name.ICCBased, profile]))], rgb.size)
    run.check("with a profile", run.save(document), rgb, 24)
    calibrated = Array([Name.CalRGB, Dictionary(WhitePoint=Array([.95, 1, 1.09]))])
    run.check("calibrated", run.one_image(rgb.tobytes(), rgb.size, 8, calibrated), rgb, 24)
    run.check("inks", run.one_image(inks.tobytes(), inks.size, 8, Name.DeviceCMYK), inks_to_rgb(inks))
    run.check("inks, inverted", run.one_image(bytes(255 - b for b in inks.tobytes()), inks.size, 8, Name.DeviceCMYK,
                                              Decode=Array([1, 0] * 4)), inks_to_rgb(inks))
    few = rgb.point(lambda v: v >> 4)
    run.check("rgb 4", run.one_image(packed([v for p in few.getdata() for v in p], 4, 3 * width), rgb.size, 4, Name.DeviceRGB),
              few.point(lambda v: v * 17), 24)
    run.check("rgb 16", run.one_image(b"".join(bytes((b, b)) for b in rgb.tobytes()), rgb.size, 16, Name.DeviceRGB), rgb, 24)
    lab = Array([Name.Lab, Dictionary(WhitePoint=Array([.9505, 1, 1.089]), Range=Array([-128, 127, -128, 127]))])
    run.check("lab", run.one_image(rgb.convert("RGB").tobytes(), rgb.size, 8, lab), 200, 24, levels=30)
    run.check("a mask", run.one_image(text.tobytes(), text.size, 1, None, ImageMask=True), text, 1)


def check_fax(run):
    text = text_page()
    for name, options, k in (("g4", ["-c", "g4"], -1), ("g3:1d", ["-c", "g3:1d"], 0), ("g3:2d", ["-c", "g3:2d"], 1),
                             ("g3:1d:fill", ["-c", "g3:1d:fill"], 0)):
        source, coded = run.path("tif"), run.path("tif")
        text.save(source)
        if subprocess.run(["tiffcp", *options, "-r", "1000", source, coded]).returncode != 0:
            continue
        with Image.open(coded) as opened:
            offset, count = opened.tag_v2[273][0], opened.tag_v2[279][0]
        data = coded.read_bytes()[offset:offset + count]
        for black_is_1 in (False, True):
            path = run.one_image(data, text.size, 1, Name.DeviceGray, Filter=Name.CCITTFaxDecode, DecodeParms=Dictionary(
                K=k, Columns=text.width, Rows=text.height, BlackIs1=black_is_1, EndOfLine=k >= 0,
                EncodedByteAlign=False))
            # Pillow's own polarity: as it reads the file.
            expected = Image.open(coded)
            if expected.tag_v2.get(262) == 1:
                expected = ImageChops.invert(expected.convert("L"))
            run.check(f"{name}, black is 1: {black_is_1}", path, ImageChops.invert(expected.convert("L")) if black_is_1 else expected, 1)
        path = run.path()
        if subprocess.run(["tiff2pdf", "-o", path, coded], capture_output=True).returncode == 0:
            run.check(f"tiff2pdf, {name}", path, text, 1)


def check_jpeg(run):
    for mode, space in (("L", Name.DeviceGray), ("RGB", Name.DeviceRGB), ("CMYK", Name.DeviceCMYK)):
        for progressive in (False, True):
            for sampling in (0, 2):
                data = io.BytesIO()
                photo(mode, 160, 117).save(data, "JPEG", quality=85, progressive=progressive, subsampling=sampling)
                with Image.open(io.BytesIO(data.getvalue())) as opened:
                    opened.load()
                    expected = inks_to_rgb(opened) if mode == "CMYK" else opened
                decode = Array([1, 0] * 4) if mode == "CMYK" else None
                path = run.one_image(data.getvalue(), (160, 117), 8, space, Filter=Name.DCTDecode, Decode=decode)
                run.check(f"JPEG {mode} {progressive} {sampling}", path, expected, levels=4)
    data = io.BytesIO()
    photo("RGB", 160, 117).save(data, "JPEG")
    path = run.one_image(zlib.compress(data.getvalue()), (100, 100), 8, Name.DeviceGray, Filter=Array([Name.FlateDecode, Name.DCTDecode]))
    run.check("a frame of another size", path, Image.open(data), 24, levels=4)


    # Converted inks, by TurboJPEG; colours that only the dictionary knows for colours, by cjpeg.
    try:
        turbo = ctypes.CDLL("libturbojpeg.so.0")
    except OSError:
        turbo = None
    if turbo:
        turbo.tjInitCompress.restype = ctypes.c_void_p
        inks = photo("CMYK", 160, 117)
        stored, size = ctypes.c_void_p(), ctypes.c_ulong()
        cmyk, half = 11, 2
        if turbo.tjCompress2(ctypes.c_void_p(turbo.tjInitCompress()), bytes(255 - b for b in inks.tobytes()), 160, 0, 117,
                             cmyk, ctypes.byref(stored), ctypes.byref(size), half, 90, 0) == 0:
            data = ctypes.string_at(stored, size.value)
            expected = inks_to_rgb(Image.open(io.BytesIO(data)))
            for inverted in (True, False):
                path = run.one_image(data, (160, 117), 8, Name.DeviceCMYK, Filter=Name.DCTDecode,
                                     Decode=Array([1, 0] * 4) if inverted else None)
                other = inks_to_rgb(ImageChops.invert(Image.open(io.BytesIO(data))))
                run.check(f"JPEG YCCK {inverted}", path, expected if inverted else other, levels=4)
    if shutil.which("cjpeg"):
        rgb = photo("RGB", 160, 117)
        source = io.BytesIO()
        rgb.save(source, "PPM")
        data = subprocess.run(["cjpeg", "-rgb", "-quality", "90"], input=source.getvalue(), capture_output=True).stdout
        adobe = data.find(b"\xff\xee")
        if adobe > 0:
            data = data[:adobe] + data[adobe + 2 + int.from_bytes(data[adobe + 2:adobe + 4], "big"):]
        path = run.one_image(data, rgb.size, 8, Name.DeviceRGB, Filter=Name.DCTDecode,
                             DecodeParms=Dictionary(ColorTransform=0))
        run.check("JPEG of colours", path, rgb, levels=4)


def check_masks(run):
    rgb, grey, text = photo("RGB"), photo("L"), text_page(83, 61)
    alpha = Image.new("L", rgb.size)
    alpha.putdata([x * 255 // 82 for _ in range(61) for x in range(83)])

    def on_white(picture, cover):
        white = [255] * len(cover.getdata())
        planes = []
        for plane in picture.split():
            out = Image.new("L", picture.size)
            out.putdata([(level * a + w * (255 - a) + 127) // 255
                         for level, a, w in zip(plane.getdata(), cover.getdata(), white)])
            planes.append(out)
        return Image.merge(picture.mode, planes)

    def masked(picture, space, **entries):
        document = pikepdf.new()
        entries = {key: value(document) if callable(value) else value for key, value in entries.items()}
        add_page(document, [image(document, picture.tobytes(), picture.size, 8, space, **entries)], rgb.size)
        return run.save(document)

    def soft(document, **more):
        return image(document, alpha.tobytes(), alpha.size, 8, Name.DeviceGray, **more)

    run.check("soft mask", masked(rgb, Name.DeviceRGB, SMask=soft), on_white(rgb, alpha), 24)
    run.check("soft mask over grey", masked(grey, Name.DeviceGray, SMask=soft), on_white(grey, alpha), 8)
    stencil = lambda document: image(document, text.tobytes(), text.size, 1, None, ImageMask=True)
    run.check("stencil", masked(rgb, Name.DeviceRGB, Mask=stencil), on_white(rgb, ImageChops.invert(text.convert("L"))), 24)
    keyed = Image.new("L", rgb.size)
    keyed.putdata([0 if p[0] >= 250 else 255 for p in rgb.getdata()])
    run.check("key", masked(rgb, Name.DeviceRGB, Mask=Array([250, 255, 0, 255, 0, 255])), on_white(rgb, keyed), 24)
    mixed = ImageChops.multiply(rgb, Image.merge("RGB", [alpha] * 3))
    matte = lambda document: soft(document, Matte=Array([0, 0, 0]))
    run.check("matte", masked(mixed, Name.DeviceRGB, SMask=matte), on_white(rgb, alpha), 24, levels=6)


def check_pages(run):
    text, rgb, grey = text_page(), photo("RGB"), photo("L")
    # Strips, upright and on a turned page.
    for rotate in (0, 90, 180, 270):
        document = pikepdf.new()
        pictures, contents = [], ""
        for number, top in enumerate(range(0, text.height, 50)):
            strip = text.crop((0, top, text.width, min(top + 50, text.height)))
            pictures.append(image(document, strip.tobytes(), strip.size, 1, Name.DeviceGray))
            low = text.height - top - strip.height
            contents += f"q {text.width * .24:.3f} 0 0 {strip.height * .24:.3f} 0 {low * .24:.3f} cm /Im{number} Do Q "
        add_page(document, pictures, (text.width * .24, text.height * .24), contents, Rotate=rotate)
        run.check(f"strips, {rotate}", run.save(document), text.rotate(-rotate, expand=True), 1, dpi=300)
    # Tiles, two by two.
    for rotate in (0, 90):
        document = pikepdf.new()
        pictures, contents = [], ""
        for x, y in ((0, 0), (40, 0), (0, 30), (40, 30)):
            tile = rgb.crop((x, y, 83 if x else 40, 61 if y else 30))
            contents += f"q {tile.width} 0 0 {tile.height} {x} {61 - y - tile.height} cm /Im{len(pictures)} Do Q "
            pictures.append(image(document, tile.tobytes(), tile.size, 8, Name.DeviceRGB))
        add_page(document, pictures, rgb.size, contents, Rotate=rotate)
        run.check(f"tiles, {rotate}", run.save(document), rgb.rotate(-rotate, expand=True), 24, dpi=72)
    # Text as a mask in colour over a coarse picture: as scanners part pages.
    document = pikepdf.new()
    small = grey.resize((50, 33))
    pictures = [image(document, small.tobytes(), small.size, 8, Name.DeviceGray),
                image(document, text.tobytes(), text.size, 1, None, ImageMask=True)]
    size = (text.width * .24, text.height * .24)
    place = f"{size[0]} 0 0 {size[1]} 0 0 cm"
    add_page(document, pictures, size, f"q {place} /Im0 Do Q q .8 0 .1 rg {place} /Im1 Do Q")
    run.check("layers", run.save(document), 300, 24, levels=40)
    # A page cut by its crop box, and inline data.
    document = pikepdf.new()
    add_page(document, [image(document, rgb.tobytes(), rgb.size, 8, Name.DeviceRGB)], rgb.size, CropBox=Array([10, 20, 73, 55]))
    run.check("cut", run.save(document), rgb.crop((10, 61 - 55, 73, 61 - 20)), 24)
    document = pikepdf.new()
    inline = "q 83 0 0 61 0 0 cm BI /W 83 /H 61 /BPC 8 /CS /G /F [/AHx /Fl] ID " + zlib.compress(grey.tobytes()).hex() + "> EI Q"
    add_page(document, [], grey.size, inline)
    run.check("inline", run.save(document), grey, 8)
    document = pikepdf.new()
    for degrees in (0, 90, 180, 270):
        add_page(document, [image(document, rgb.tobytes(), rgb.size, 8, Name.DeviceRGB)], rgb.size, Rotate=degrees)
    path = run.save(document)
    for page, degrees in enumerate((0, 90, 180, 270)):
        run.check(f"turned by {degrees}", path, rgb.rotate(-degrees, expand=True), 24, page=page)


def check_structures(run):
    grey = photo("L")
    document = pikepdf.new()
    for number in range(3):
        add_page(document, [image(document, zlib.compress(grey.rotate(number * 90, expand=True).tobytes()),
                                  grey.rotate(number * 90, expand=True).size, 8, Name.DeviceGray, Filter=Name.FlateDecode)],
                 grey.rotate(number * 90, expand=True).size)
    plain = run.save(document)
    ways = {"object streams": ["--object-streams=generate"], "linearised": ["--linearize"], "qdf": ["--qdf"],
            "both": ["--object-streams=generate", "--linearize"]}
    for bits, more in ((40, []), (128, ["--use-aes=n"]), (128, ["--use-aes=y"]), (128, ["--use-aes=y", "--cleartext-metadata"]), (256, []),
                       (256, ["--force-R5"])):
        weak = ["--allow-weak-crypto"] if bits < 256 else []
        ways[f"encrypted, {bits} {more}"] = [*weak, "--encrypt", "", "owner", str(bits), *more, "--"]
        ways[f"encrypted, {bits} {more}, object streams"] = [*weak, "--object-streams=generate", "--encrypt", "", "owner", str(bits), *more, "--"]
    for name, options in ways.items():
        path = run.path()
        done = subprocess.run(["qpdf", *options, plain, path], capture_output=True, text=True)
        if done.returncode != 0:
            print(name, done.stderr)
            continue
        for page in (0, 2):
            run.check(f"{name}, page {page}", path, grey.rotate(page * 90, expand=True), 8, page=page)


def check_programs(run):
    grey, rgb, text = photo("L"), photo("RGB"), text_page()
    pictures = {"1": text, "L": grey, "RGB": rgb, "P": rgb.quantize(200), "I;16": None}
    for mode, picture in pictures.items():
        source = run.path("png")
        if picture is None:
            picture = Image.new("I;16", grey.size)
            picture.putdata([level * 257 for level in grey.getdata()])
            picture.save(source)
            picture = grey
        else:
            picture.save(source)
        bits = {"1": 1, "L": 8, "RGB": 24, "P": 8, "I;16": 16}[mode]
        commands = {"img2pdf": ["img2pdf", source, "-o"], "ImageMagick, Zip": ["convert", source, "-compress", "Zip"],
                    "ImageMagick, LZW": ["convert", source, "-compress", "LZW"],
                    "ImageMagick, RLE": ["convert", source, "-compress", "RLE"],
                    "ImageMagick, none": ["convert", source, "-compress", "None"]}
        if mode == "1":
            commands["ImageMagick, Group4"] = ["convert", source, "-compress", "Group4"]
            commands["ImageMagick, Fax"] = ["convert", source, "-compress", "Fax"]
        for name, command in commands.items():
            path = run.path()
            done = subprocess.run([*command, path], capture_output=True, text=True) if shutil.which(command[0]) else None
            if done is None or done.returncode != 0:
                continue
            run.check(f"{name}, {mode}", path, picture, bits if name == "img2pdf" else None)
        path = run.path()
        if mode in ("1", "L", "RGB", "P"):
            Image.open(source).save(path)
            run.check(f"Pillow, {mode}", path, picture, levels=12 if mode != "1" else 0)
        # Ghostscript writes again what img2pdf wrote.
        path, again = run.path(), run.path()
        if mode != "I;16" and subprocess.run(["img2pdf", source, "-o", path], capture_output=True).returncode == 0:
            done = subprocess.run(["gs", "-q", "-dNOPAUSE", "-dBATCH", "-sDEVICE=pdfwrite", "-dAutoFilterColorImages=false",
                                   "-dAutoFilterGrayImages=false", "-dColorImageFilter=/FlateEncode", "-dGrayImageFilter=/FlateEncode",
                                   f"-sOutputFile={again}", path], capture_output=True)
            if done.returncode == 0:
                run.check(f"Ghostscript, {mode}", again, picture)
    try:
        from reportlab.pdfgen import canvas
        from reportlab.lib.utils import ImageReader
        path = run.path()
        paper = canvas.Canvas(str(path), pagesize=rgb.size)
        paper.drawImage(ImageReader(rgb), 0, 0)
        paper.showPage()
        paper.save()
        run.check("reportlab", path, rgb)
    except ImportError:
        pass
    try:
        import cairo
    except ImportError:
        return
    path = run.path()
    surface = cairo.PDFSurface(str(path), rgb.width, rgb.height)
    context = cairo.Context(surface)
    data = bytearray(b"".join(bytes((b, g, r, 0)) for r, g, b in rgb.getdata()))
    context.set_source_surface(cairo.ImageSurface.create_for_data(data, cairo.FORMAT_RGB24, *rgb.size))
    context.paint()
    surface.finish()
    run.check("cairo", path, rgb)


def main():
    library = Library(sys.argv[1])
    library.call("IMG_set_option", INKS, 1)
    with tempfile.TemporaryDirectory() as folder:
        run = Run(library, pathlib.Path(folder))
        probe = pikepdf.new()
        add_page(probe, [image(probe, b"\0", (1, 1), 8, Name.DeviceGray)], (1, 1))
        if library.call("IMG_decompress_bitmap", str(run.save(probe))) < 0:
            sys.exit(77)
        for check in (check_filters, check_spaces, check_fax, check_jpeg, check_masks, check_pages, check_structures, check_programs):
            check(run)
    print(f"{compared} pages compared")
    sys.exit(conclude(failures))


if __name__ == "__main__":
    main()
