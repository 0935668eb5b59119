#!/usr/bin/env python3
"""Makes the files of SOURCES.md again, and digests.txt: what other programs see in them. A line of that:

    file, page, file type code, depth or status, width, height, digest of the pixels (or the file that shows
    them), the programs that agreed, the rule of the library's own that was applied

Needs imagemagick, graphicsmagick, netpbm, python3-pil, ffmpeg, gimp, icoutils, libfreeimage3, ghostscript,
openjdk-17-jdk-headless, gifsicle, libjpeg-turbo-progs, libtiff-tools, img2pdf, qpdf, dcmtk, python3-pydicom,
python3-numpy, python3-olefile and libgdcm-tools, as Debian 12 has them."""
import collections
import functools
import io
import itertools
import math
import operator
import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile

import numpy
import pydicom
from PIL import Image, ImageChops, ImageDraw
from pydicom.pixel_data_handlers import util as dicom_values

HERE = pathlib.Path(__file__).resolve().parent
sys.path.append(str(HERE.parent / "peers"))
from freeimage import FreeImage  # noqa: E402

LINE = re.compile(r"^(-?\d+) +(-?\d+)(?::(\S+))? +(\S+/\S+) +(.+)$", re.MULTILINE)
FARTHEST = 4  # two decoders of JPEG from each other

JAVA = """
import java.io.File; import javax.imageio.*; import javax.imageio.stream.*;
class Save { public static void main(String[] a) throws Exception {  // format, in, out, compression, order
  ImageWriter writer = ImageIO.getImageWritersByFormatName(a[0]).next();
  ImageWriteParam how = writer.getDefaultWriteParam();
  if (a.length > 3) { how.setCompressionMode(ImageWriteParam.MODE_EXPLICIT); how.setCompressionType(a[3]); }
  if (a.length > 4) ((javax.imageio.plugins.bmp.BMPImageWriteParam) how).setTopDown(true);
  try (ImageOutputStream out = new FileImageOutputStream(new File(a[2]))) {
    writer.setOutput(out);
    writer.write(null, new IIOImage(ImageIO.read(new File(a[1])), null, null), how); } } }
"""
POSTSCRIPT = """%!
/Helvetica findfont 11 scalefont setfont 0.9 1 0.8 setrgbcolor 0 0 200 200 rectfill
0.8 0.1 0.2 setrgbcolor 9 4 7 0 360 arc fill 0.1 0.3 0.8 setrgbcolor 14 3 moveto (fox) show showpage
"""
SCANS = {"scans.txt": "0;\n1;\n2;\n",
         "bits.txt": "0,1,2: 0-0, 0, 2;\n0: 1-63, 0, 1;\n1: 1-5, 0, 0;\n2: 1-63, 0, 0;\n1: 6-63, 0, 0;\n"
                     "0,1,2: 0-0, 2, 1;\n0,1,2: 0-0, 1, 0;\n0: 1-63, 1, 0;\n"}


def draw(width, height):
    """A sky, a ball, a little noise."""
    picture, state = Image.new("RGB", (width, height)), 7
    for y in range(height):
        for x in range(width):
            state = (state * 1103515245 + 12345) % 2**31
            away = math.hypot((x - width * 0.6) / height, y / height - 0.55) / 0.35
            colour = (60 + 150 * y / height, 120 + 90 * y / height, 220 - 60 * x / width)
            if away < 1:
                light = math.sqrt(1 - away * away)
                colour = (230 * light, 60 + 40 * light, 40 + 60 * x / width)
            picture.putpixel((x, y), tuple(int(c) + (state >> 16) % 12 for c in colour))
    return picture


def write_dump(name, picture, samples, photometric, allocated, stored, signed, *more):
    """What dump2dcm makes a file of."""
    fields = {0x2: len(picture.getbands()), 0x10: picture.height, 0x11: picture.width, 0x100: allocated, 0x101: stored,
              0x102: stored - 1, 0x103: signed}
    lines = [f"(0028,{tag:04x}) US {value}" for tag, value in fields.items()] + [f"(0028,0004) CS [{photometric}]", *more]
    lines += ["(0008,0016) UI =SecondaryCaptureImageStorage", "(0008,0018) UI [1.2.3.4]",
              f"(7fe0,0010) {'OW' if allocated > 8 else 'OB'} ={name}.raw"]
    pathlib.Path(name + ".dump").write_text("\n".join(sorted(lines)) + "\n")
    pathlib.Path(name + ".raw").write_bytes(b"".join(
        (value & 0xFFFF).to_bytes(allocated // 8, "little") for value in samples))


def draw_dumps():
    """Levels; what a scanner of people delivers, with a window and without; planes; a palette; brightness and colour."""
    small = draw(30, 20)
    grey, indexed = small.convert("L"), small.quantize(40)
    deep = [4 * level + i % 5 for i, level in enumerate(grey.tobytes())]
    write_dump("grey", grey, grey.tobytes(), "MONOCHROME2", 8, 8, 0)
    write_dump("scan", grey, deep, "MONOCHROME2", 16, 12, 0, "(0028,1050) DS [40\\300]", "(0028,1051) DS [400\\20]",
               "(0028,1052) DS [-524.5]", "(0028,1053) DS [1.25]")
    write_dump("range", grey, [level - 500 for level in deep], "MONOCHROME1", 16, 16, 1)
    write_dump("planes", small, b"".join(band.tobytes() for band in small.split()), "RGB", 8, 8, 0, "(0028,0006) US 1")
    write_dump("rgb", small, small.tobytes(), "RGB", 8, 8, 0, "(0028,0006) US 0")
    write_dump("palette", indexed, indexed.tobytes(), "PALETTE COLOR", 8, 8, 0,
               *(line for i in range(3) for line in (
                   f"(0028,{0x1101 + i:04x}) US 40\\0\\16",
                   f"(0028,{0x1201 + i:04x}) OW " + "\\".join(f"{257 * c:04x}" for c in indexed.getpalette()[i:120:3]))))


def write_text(picture, lines):
    for i, line in enumerate(lines):
        ImageDraw.Draw(picture).text((2, 2 + 13 * i), line, 0)
    return picture


def draw_sources():
    small = draw(29, 19)
    for name, picture in (("photo.png", draw(48, 37)), ("photo.jpg", draw(48, 37)), ("small.png", small),
                          ("small.tif", small), ("even.png", draw(28, 19)), ("wide.png", draw(131, 67))):
        picture.save(name)
    small.putalpha(Image.radial_gradient("L").resize(small.size))
    small.save("alpha.png")
    mono = write_text(Image.new("1", (45, 21), 1), ["Tarn"])
    mono.save("mono.png")
    mono.save("mono.tif", compression="group4")
    mono.rotate(180).save("mono2.png")
    chart = Image.new("P", (45, 21), 15)
    for i in range(15):
        ImageDraw.Draw(chart).rectangle((3 * i, 20 - i * 37 % 20, 3 * i + 1, 20), i)
    runs = Image.new("P", (44, 20))  # no literal run of an odd number of bytes: Java's writer forgets to pad these
    runs.putdata([(x // 4 + y if y < 10 else 7 * x + 3 * y) % 16 for y in range(20) for x in range(44)])
    for name, picture in (("chart", chart), ("runs", runs)):
        picture.putpalette([level for i in range(16) for level in
                            ((128 if i < 8 else 255) * (i & 1), (128 if i < 8 else 255) * (i >> 1 & 1), 16 * i + 15)])
        picture.save(name + ".png", bits=4)
        picture.save(name + "8.png", bits=8)
    draw_dumps()
    words = "a tarn is a small lake in the mountains its water is quiet cold and clear".split()
    write_text(Image.new("1", (600, 800), 1),
               [" ".join(words[(i * 5 + j * 3 + i // 4) % len(words)] for j in range(15 if i % 9 else 4))
                for i in range(60)]).save("page.png")
    for name, text in {"text.ps": POSTSCRIPT, "Save.java": JAVA, **SCANS}.items():
        pathlib.Path(name).write_text(text)


def run(*command):
    """What the command writes, nothing when it fails."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return done.stdout if done.returncode == 0 else b""


def runs(row):
    return [(len(list(group)), value) for value, group in itertools.groupby(row)]


def write_cut(picture, file):
    # Runs of one pixel: shorter rows would not be recognised.
    rows = [b"".join(bytes((129, v)) for v in picture.crop((0, y, picture.width, y + 1)).tobytes()) + b"\0"
            for y in range(picture.height)]
    file.write_bytes(struct.pack("<3H", *picture.size, 0) + b"".join(struct.pack("<H", len(r)) + r for r in rows))


def write_msp(picture, file):
    rows = [b"".join(bytes((0, n, v)) for n, v in runs(picture.crop((0, y, picture.width, y + 1)).tobytes()))
            for y in range(picture.height)]
    fields = list(struct.unpack("<2H", b"LinS")) + list(picture.size) + [1, 1, 1, 1, *picture.size, 0, 0]
    checksum = functools.reduce(operator.xor, fields)
    file.write_bytes(struct.pack("<16H", *fields, checksum, 0, 0, 0) + struct.pack(f"<{len(rows)}H", *map(len, rows)) +
                     b"".join(rows))


# What is in files that no other program reads, with the program that coded it.
CODED = {}


def coded_strip(picture, coding="group4"):
    """As libtiff codes it."""
    name = pathlib.Path("strip.tif")
    ImageChops.invert(picture).save(name, compression=coding, tiffinfo={278: picture.height})
    with Image.open(name) as image:
        return name.read_bytes()[image.tag_v2[273][0]:][:image.tag_v2[279][0]]


def write_ica(picture, file, coding="group4"):
    data, size = coded_strip(picture, coding), struct.pack(">5H", 3000, 3000, *picture.size, 0x9502)
    parts = b"".join(b"\xFE\x92" + struct.pack(">H", len(data[i:i + 8191])) + data[i:i + 8191] for i in range(0, len(data), 8191))
    CODED[file] = ("libtiff", [picture])
    file.write_bytes(b"\x70\0\x91\1\xFF\x94\x09\0" + size + bytes(({"group4": 0x82, "tiff_lzw": 0x0D}[coding],)) + b"\1\x96\1\1" + parts + b"\x93\0\x71\0")


def write_mca(pictures, file):
    """The image objects of a document by Apache FOP, without what hosts put before each field."""
    graphics = "".join(f'<fo:block><fo:external-graphic src="url({name})"/></fo:block>' for name in pictures)
    pathlib.Path("document.fo").write_text(
        '<fo:root xmlns:fo="http://www.w3.org/1999/XSL/Format"><fo:layout-master-set><fo:simple-page-master '
        'master-name="a" page-width="99mm" page-height="99mm"><fo:region-body/></fo:simple-page-master>'
        '</fo:layout-master-set><fo:page-sequence master-reference="a"><fo:flow flow-name="xsl-region-body">'
        f'{graphics}</fo:flow></fo:page-sequence></fo:root>')
    subprocess.run(["fop", "-q", "-fo", "document.fo", "-afp", "document.afp"], check=True)
    data, at, fields, inside = pathlib.Path("document.afp").read_bytes(), 0, [], False
    while at < len(data):
        field = data[at + 1:at + 1 + int.from_bytes(data[at + 1:at + 3], "big")]
        inside = inside or field[2:5] == b"\xD3\xA8\xFB"
        fields += [field] if inside else []
        inside = inside and field[2:5] != b"\xD3\xA9\xFB"
        at += 1 + len(field)
    CODED[file] = ("FOP", [Image.open(name) for name in pictures])
    file.write_bytes(b"\0\x08\xD3\xA8\xA8\0\0\0" + b"".join(fields) + b"\0\x08\xD3\xA9\xA8\0\0\0")


def write_jed(picture, file):
    boxes = [(x, y, x + 512, y + 512) for y in range(0, picture.height, 512) for x in range(0, picture.width, 512)]
    wide = Image.new("1", (boxes[-1][2], boxes[-1][3]), 255)
    wide.paste(picture, (0, 0))
    tiles = [coded_strip(wide.crop(box)) for box in boxes]
    head = struct.pack("<I2H", 128, picture.height, picture.width // 8) + struct.pack(">IB", 128 + 4 * len(tiles), len(tiles))
    index = b"".join(struct.pack("<2BH", i, 0, len(tile)) for i, tile in enumerate(tiles))
    CODED[file] = ("libtiff", [picture])
    file.write_bytes(head.ljust(36, b"\0") + b"\4".ljust(92, b"\0") + index + b"".join(tiles))


def write_sct(picture, file):
    sides = "".join(f"{side / 300:+.6E} " for side in picture.size[::-1])
    counts = "".join(f"{side:+012d}" for side in picture.size[::-1])
    mask = {"L": 8, "RGB": 7, "CMYK": 15}[picture.mode]
    head = bytes(80) + b"CT".ljust(944, b"\0") + struct.pack(">2BH", 1, len(picture.mode), mask) + (sides + counts).encode()
    rows = [band.crop((0, y, picture.width + picture.width % 2, y + 1)).tobytes()
            for y in range(picture.height) for band in picture.split()]
    file.write_bytes(head.ljust(2048, b"\0") + b"".join(rows))
    CODED[file] = ("ImageMagick", [Image.frombytes("RGBA", picture.size, run("convert", str(file), "-depth", "8", "rgba:-"))])


RGB, GREY = (0x30000, 0x30001, 0x30002), (0x10000,)


def write_fpx(pictures, colours, file):
    """The last picture in tiles: as it is, or of one colour where a tile has one; those before it are smaller ones."""
    def chained(data, size, first, table):
        count = -(-len(data) // size)
        table += [first + i + 1 for i in range(count - 1)] + [0xFFFFFFFE] * min(count, 1)
        return data.ljust(count * size, b"\0")

    def tiled(picture):
        head, data = b"", b""
        for box in ((x, y, x + 64, y + 64) for y in range(0, picture.height, 64) for x in range(0, picture.width, 64)):
            used = picture.crop((*box[:2], min(box[2], picture.width), min(box[3], picture.height)))
            one = len(used.getcolors(4096)) == 1
            head += struct.pack("<3I", len(data), 0 if one else 4096 * len(colours), int(one))
            head += used.resize((1, 1)).tobytes().ljust(4, b"\0") if one else bytes(4)
            data += b"" if one else picture.crop(box).tobytes()
        fields = 36, *picture.size, len(head) // 16, 64, 64, len(colours), 36, 16
        return bytes(28) + struct.pack("<9I", *fields) + head, bytes(28) + data

    blob = struct.pack(f"<2I{len(colours)}I", 8 + 4 * len(colours), len(colours), *colours)
    values = {0x01000002: struct.pack("<2I", 19, pictures[-1].width), 0x01000003: struct.pack("<2I", 19, pictures[-1].height)}
    values |= {0x02000002 | i << 16: struct.pack("<2I", 65, len(blob)) + blob for i in range(len(pictures))}
    pairs, body = b"", b""
    for number, value in values.items():
        pairs += struct.pack("<2I", number, 8 + 8 * len(values) + len(body))
        body += value
    contents = struct.pack("<2HI16sI16sI", 0xFFFE, 0, 0, bytes(16), 1, bytes(16), 48)
    contents += struct.pack("<2I", 8 + len(pairs + body), len(values)) + pairs + body
    none, store = 0xFFFFFFFF, 1
    entries = [["Root Entry", 5, none, none, store, None], ["Data Object Store 000001", 1, none, none, 2, None],
               ["\5Image Contents", 2, none, 3, none, contents]]
    for i, picture in enumerate(pictures):
        at, last = len(entries), i + 1 == len(pictures)
        head, data = tiled(picture)
        entries += [[f"Resolution {i:04}", 1, none, none if last else at + 3, at + 2, None],
                    ["Subimage 0000 Data", 2, none, none, none, data], ["Subimage 0000 Header", 2, at + 1, none, none, head]]
    minis, mini_table, longs, table = b"", [], b"", []
    for entry in entries:
        if entry[5] is not None and len(entry[5]) < 4096:
            entry.append(len(minis) // 64)
            minis += chained(entry[5], 64, len(minis) // 64, mini_table)
    directory = -(-len(entries) // 4)
    table += [0xFFFFFFFD] + list(range(2, directory + 1)) + [0xFFFFFFFE, 0xFFFFFFFE]
    first = len(table)
    longs += chained(minis, 512, first, table)
    for entry in entries:
        if entry[5] is not None and len(entry[5]) >= 4096:
            entry.append(len(table))
            longs += chained(entry[5], 512, len(table), table)
    head = bytes.fromhex("D0CF11E0A1B11AE1").ljust(24, b"\0") + struct.pack("<5H", 0x3E, 3, 0xFFFE, 9, 6)
    head = head.ljust(44, b"\0") + struct.pack("<9I", 1, 1, 0, 4096, directory + 1, 1, 0xFFFFFFFE, 0, 0)
    records = b""
    for name, kind, left, right, child, content, *start in entries:
        text = name.encode("utf-16le")
        record = text.ljust(64, b"\0") + struct.pack("<H2B3I", len(text) + 2, kind, 1, left, right, child)
        root = kind == 5
        record += bytes.fromhex("0067615654C1CE11855300AA00A1F95B") if root else bytes(16)
        size = len(minis) if root else len(content or b"")
        records += record.ljust(116, b"\0") + struct.pack("<3I", first if root else start[0] if start else 0, size, 0)
    sectors = [struct.pack(f"<{len(part)}I", *part).ljust(512, b"\xff") for part in (table, mini_table)]
    file.write_bytes(head.ljust(512, b"\xff") + sectors[0] + records.ljust(512 * directory, b"\0") + sectors[1] + longs)
    # Pillow reads neither tiles of one colour nor those that reach beyond the picture.
    seen = pictures[-1].size in ((64, 64), (128, 64))
    CODED[file] = ("olefile", [Image.open(file)]) if seen else ("make.py", pictures[-1:])


def make(command, file):
    file.parent.mkdir(exist_ok=True)
    if command.startswith("pillow "):
        exec(command[7:], {**globals(), "o": file})  # a line of the list beside this script
        return
    command = re.sub(r"(?<= )([()])(?= )", r"\\\1", command)
    command = command.replace("java ", "java Save.java ").replace("ffmpeg ", "ffmpeg -v error -bitexact ")
    subprocess.run(["bash", "-c", f"set -o pipefail; o='{file}'; {command}"], check=True)


# ---- What others see: red, green, blue, alpha of all pixels, 8 bits or 16 with the high byte first ---------

BY_FREEIMAGE = ("psd", "pict", "icon")


def by_pillow(file, page, inks):
    with Image.open(file) as image:
        if page:
            image.seek(page)
        if inks:
            return image.tobytes() if image.mode == "CMYK" else b""
        return image.convert("RGBA").tobytes() if image.mode[0] != "I" else b""


def by_netpbm(file, page):
    readers = {"bmp": ["bmptopnm"], "pcx": ["pcxtoppm"], "png": ["pngtopam"], "gif": ["giftopnm", f"-image={page + 1}"],
               "sun": ["rasttopnm"], "macpaint": ["macptopbm"], "gem": ["gemtopnm"], "targa": ["tgatoppm"],
               "iff": ["ilbmtoppm"], "xbm": ["xbmtopbm"], "xpm": ["xpmtoppm"], "xwd": ["xwdtopnm"]}
    picture = run(*readers.get(file.parent.name, ["false"]), str(file))
    return Image.open(io.BytesIO(picture)).convert("RGBA").tobytes() if picture else b""


def by_pydicom(file):
    """The pixels, or the levels that windows and ranges give."""
    data = pydicom.dcmread(file)
    values, kind = data.pixel_array, data.PhotometricInterpretation
    if kind.startswith("PALETTE"):
        values = dicom_values.apply_color_lut(values, data) >> 8
    elif kind.startswith("YBR"):
        values = dicom_values.convert_color_space(values, "YBR_FULL", "RGB")
    elif data.SamplesPerPixel == 1 and (data.BitsStored != 8 or "WindowWidth" in data):
        values = dicom_values.apply_modality_lut(values, data).astype(float)
        if "WindowWidth" in data:
            width, centre = [value[0] if isinstance(value, pydicom.multival.MultiValue) else value
                             for value in (data.WindowWidth, data.WindowCenter)]
            values = (values - (centre - 0.5)) / (width - 1) + 0.5
        else:
            values = (values - values.min()) / (values.max() - values.min())
        values = numpy.floor(numpy.clip(values * 255, 0, 255) + 0.5)
    values = values.astype("uint8")
    return Image.fromarray(255 - values if kind == "MONOCHROME1" else values)


def by_dcmtk(file):
    plain = pydicom.dcmread(file).BitsStored == 8
    return Image.open(io.BytesIO(run("dcmj2pnm", str(file)) if plain else run("dcmj2pnm", "+Wi", "1", str(file)) or
                                 run("dcmj2pnm", "+Wm", str(file))))


def dicom_views(file):
    for name, program in (("pydicom", by_pydicom), ("dcmtk", by_dcmtk)):
        try:
            yield name, program(file).convert("RGBA").tobytes()
        except (OSError, RuntimeError):
            pass


def views(file, page, rules):
    if file in CODED:
        coder, pictures = CODED[file]
        yield from ((name, pictures[page].convert("RGBA").tobytes()) for name in (coder, "Pillow"))
        return
    if file.suffix == ".dcm":
        yield from dicom_views(file)
        return
    deep, alpha, inks = not {"high", "rounded"}.isdisjoint(rules), "white" in rules, "inks" in rules
    kind = "cmyk:-" if inks else "rgba:-"
    depth = ["-depth", "16", "-endian", "MSB"] if deep else ["-depth", "8"]
    if file.parent.name != "iff":  # which they let netpbm read
        yield "ImageMagick", run("convert", f"{file}[{page}]", *depth, kind)
        yield "GraphicsMagick", run("gm", "convert", f"{file}[{page}]", *depth, kind)
    if page == 0 and not inks:
        yield "ffmpeg", run("ffmpeg", "-v", "error", "-i", str(file), "-f", "rawvideo", "-pix_fmt",
                            "rgba64be" if deep else "rgba", "-frames:v", "1", "-")
    if page == 0 and file.parent.name in BY_FREEIMAGE:
        yield "FreeImage", FreeImage().pixels(str(file), deep, inks)
    if not deep:
        try:
            yield "Pillow", by_pillow(file, page, inks)
        except (OSError, EOFError, ValueError):
            pass
        yield "netpbm", b"" if alpha or inks else by_netpbm(file, page)
        if file.parent.name == "icon":
            picture = run("icotool", "-x", f"-i{page + 1}", "-o", "-", str(file))
            yield "icotool", Image.open(io.BytesIO(picture)).convert("RGBA").tobytes() if picture else b""


def ruled(view, rules):
    """Red, green and blue by the library's own rules: those of 16-bit bitmaps, the high byte of 16, on white."""
    view = view[::2] if "high" in rules else view
    if "rounded" in rules:
        view = bytes(((high << 8 | low) + 128) // 257 for high, low in zip(view[::2], view[1::2]))
    if "inks" in rules:
        return bytes(level for level in view for _ in range(3))
    kept = [int(bits) for bits in rules[0].split("-")] if rules[0][:1].isdigit() else (8, 8, 8)
    masks = [0xFF00 >> bits & 0xFF for bits in kept]
    again = kept if "full" in rules else (8, 8, 8)
    out = bytearray()
    for i in range(0, len(view), 4):
        alpha = view[i + 3] if "white" in rules else 255
        levels = [c & mask | (c & mask) >> bits for c, mask, bits in zip(view[i:i + 3], masks, again)]
        out += bytes((c * alpha + 255 * (255 - alpha) + 127) // 255 for c in levels)
    return bytes(out)


def fnv(data):
    value = 0xCBF29CE484222325
    for byte in data:
        value = (value ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return f"{value:016x}"


def agreed(file, page, rules):
    """The digest that most programs see, and which they are."""
    seen = collections.defaultdict(list)
    for program, view in views(file, page, rules):
        if view:
            seen[fnv(ruled(view, rules))].append(program)
    digest, programs = max(seen.items(), key=lambda item: len(item[1]), default=("-", []))
    return (digest, programs) if len(programs) > 1 else ("-", ["-"])


def sizes_of(file):
    """Of the pages; layers are none."""
    if file in CODED:
        return ["%d %d" % picture.size for picture in CODED[file][1]]
    if file.suffix == ".dcm":
        data = pydicom.dcmread(file)
        return [f"{data.Columns} {data.Rows}"]
    sizes = run("identify", "-format", "%w %h\n", str(file)).decode().splitlines()
    if not sizes:
        sizes = run("ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0",
                    str(file)).decode().replace(",", " ").splitlines()
    return sizes[:1] if file.parent.name == "psd" else sizes or ["0 0"]


# ---- JPEG: whole numbers may be rounded in several ways -----------------------------------------------------

# ffmpeg's upright sampling is a matter of its own
SIDEWAYS = {"gray", "yuvj444p", "yuvj422p", "yuvj411p"}


def by_ffmpeg(file):
    layout = run("ffprobe", "-v", "error", "-show_entries", "stream=pix_fmt", "-of", "csv=p=0", str(file)).decode().strip()
    return run("ffmpeg", "-v", "error", "-i", str(file), "-sws_flags", "neighbor+full_chroma_int+accurate_rnd",
               "-f", "rawvideo", "-pix_fmt", "gray" if layout == "gray" else "rgb24", "-") if layout in SIDEWAYS else b""


def shown(file, known):
    """A file with the pixels, no sample smoothed, and the programs that see nearly the same."""
    plain, part = ["-define", "jpeg:fancy-upsampling=off", "-depth", "8"], file
    if file.suffix == ".pct":
        part, data = pathlib.Path("part.jpg"), file.read_bytes()
        part.write_bytes(data[data.index(b"\xff\xd8\xff"):])
    image = Image.open(part) if file.suffix != ".dcm" else Image.new("L", (1, 1))
    if image.mode == "CMYK":  # the samples side by side
        programs, pixels = ["Pillow"], Image.frombytes("L", (4 * image.width, image.height), image.tobytes())
        others = {"ImageMagick": run("convert", str(file), *plain, "cmyk:-")}
    elif file.suffix == ".tif":
        programs, pixels = ["Pillow"], image.convert("RGB")
        others = {"ImageMagick": run("convert", str(file), "-depth", "8", "rgb:-")}
    elif file.suffix == ".dcm":
        raw = pathlib.Path("raw.dcm")
        subprocess.run(["gdcmconv", "--raw", str(file), str(raw)], check=True)
        programs, pixels, view = ["pydicom"], by_pydicom(raw), by_dcmtk(file)
        others = {"dcmtk": view.tobytes()}
    else:
        programs = ["djpeg"]
        pixels = Image.open(io.BytesIO(run("djpeg", "-nosmooth", "-dct", "float", str(part))))
        others = {"ffmpeg": by_ffmpeg(file),
                  "ImageMagick": run("convert", *plain, str(file), "gray:-" if pixels.mode == "L" else "rgb:-")}
    data = pixels.tobytes()
    programs += [other for other, seen in others.items()
                 if len(seen) == len(data) and max(abs(a - b) for a, b in zip(seen, data)) <= FARTHEST]
    key = (pixels.mode, pixels.size, data)
    if key not in known:
        known[key] = HERE / "shown" / (file.stem + ".png")
        known[key].parent.mkdir(exist_ok=True)
        pixels.save(known[key], optimize=True)
    return f"shown/{known[key].name}", programs


def main():
    lines, known = [], {}
    for old in HERE.glob("*/"):
        shutil.rmtree(old)

    def add(file, page, code, result, size, seen, rules=""):
        name, (pixels, programs) = file.relative_to(HERE), seen
        if int(result) > 0 and len(programs) < 2:
            print("not agreed:", name, page)
        lines.append(f"{name} {page} {code} {result} {size} {pixels} {','.join(programs)} {rules or '-'}\n")

    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        draw_sources()
        for code, result, rules, name, command in LINE.findall((HERE / "SOURCES.md").read_text()):
            file = HERE / name
            make(command, file)
            sizes = sizes_of(file)
            for page, size in enumerate(sizes if int(result) > 0 else sizes[:1]):
                lossy = int(result) > 0 and (file.suffix == ".jpg" or re.search("jpeg|window|range", file.stem))
                seen = shown(file, known) if lossy else agreed(file, page, rules.split(","))
                add(file, page, code, result, size, seen, rules)
        for (mode, size, _), name in known.items():
            add(name, 0, 43, 8 if mode == "L" else 24, "%d %d" % size, agreed(name, 0, [""]))
    (HERE / "digests.txt").write_text("".join(lines))


if __name__ == "__main__":
    main()
