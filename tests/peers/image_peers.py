#!/usr/bin/env python3
"""Files of raster formats of every width written here and read by Pillow, netpbm, ImageMagick, ffmpeg and FreeImage;
GEM, MSP and DICOM files of others read here. What these write is in tests/corpus.

    image_peers.py LIBRARY MODULE     exit code 77 without Pillow"""
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
from freeimage import FreeImage
from library import Library, conclude

HEIGHT = 13
SIZES = [(width, HEIGHT) for width in (2, 3, 7, 8, 9, 15, 16, 17, 31, 64, 127, 200)] + [(1, 1), (301, 20)]
RLE, CODES = 12, {1: "bmp", 12: "bmp", 2: "pcx", 4: "gif", 44: "gif", 43: "png", 37: "ras", 41: "psd", 25: "ico", 15: "pct",
                  3: "tga", 26: "iff", 20: "xbm", 35: "xpm", 36: "xwd", 5: "wpg", 6: "wmf", 27: "clp", 100: "pnm"}
READERS = {"bmp": "bmptopnm", "pcx": "pcxtoppm", "gif": "giftopnm", "png": "pngtopam", "ras": "rasttopnm",
           "tga": "tgatoppm", "iff": "ilbmtoppm", "xbm": "xbmtopbm", "xpm": "xpmtoppm", "xwd": "xwdtopnm",
           "pnm": "pamtopnm"}
MODES = {"gif": ("1", "4", "P"), "xbm": ("1",), "xpm": ("1", "4", "P")}  # of those that do not hold all
DETECTION, EXTENDED_FORMATS = 2, 6
WITH_FOURTH_BYTE = {3, 5, 6, 26, 27, 36, 37, 100}  # codes that colours of 32 bits are saved as
NOT_BY_PILLOW = {".pct", ".iff", ".xbm", ".xpm", ".xwd", ".wpg"}  # takes X bitmaps the other way round
BY_FREEIMAGE = (".psd", ".ico")
try:
    FREEIMAGE = FreeImage()
except OSError:
    FREEIMAGE = None
failures = []
compared = 0


def equal(name, left, right):
    global compared
    compared += 1
    if left.size != right.size or left.convert("RGB").tobytes() != right.convert("RGB").tobytes():
        failures.append(name)


def noise(width, mode, seed, height=HEIGHT):
    """Runs, single pixels and large values in one picture."""
    state = random.Random(seed)
    most = {"1": 1, "4": 15}.get(mode, 255)
    data = []
    while len(data) < width * height:
        pixel = tuple(state.randint(0, most) for _ in mode) if mode in ("RGB", "CMYK") else state.randint(0, most)
        data += [255 * pixel if mode == "1" else pixel] * state.choice((1, 1, 1, 2, 3, 70))
    image = Image.new({"4": "P"}.get(mode, mode), (width, height))
    image.putdata(data[:width * height])
    if mode in ("P", "4"):
        image.putpalette([state.randint(0, 255) for _ in range(768)])
    return image


def pack(image, mode):
    """(bits, rows, palette) as the library takes them."""
    palette = image.getpalette() if mode in ("P", "4") else [0, 0, 0, 255, 255, 255]
    data, stride = image.tobytes("raw", *(("BGR",) if mode == "RGB" else ())), -(-image.width * len(image.getbands()))
    if mode == "RGBX":
        data, stride = image.convert(mode).tobytes("raw", "BGRX"), 4 * image.width
    if mode == "1":
        stride = (image.width + 7) // 8
    rows = [data[y * stride:(y + 1) * stride] for y in range(image.height)]
    if mode == "4":
        rows = [bytes(a << 4 | b for a, b in zip(row[::2], row[1::2] + b"\0")) for row in rows]
    entries = [tuple(palette[i:i + 3]) for i in range(0, len(palette), 3)]
    return {"1": 1, "4": 4, "P": 8, "RGB": 24, "RGBX": 32}[mode], rows, entries[:16] if mode == "4" else entries


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, **options).stdout


def read_by_others(name, image, code, what):
    if name.suffix in (".wmf", ".clp"):  # nobody reads these; of those others show smoothed pixels
        return
    # The fields of compressed bitmaps say how large they would be without, which these two refuse. Of one pixel Pillow
    # reads no PCX and no Sun raster; of documents it takes 1 for white, where all others see black.
    refused = {".pcx": image.width == 1, ".ras": image.size == (1, 1), ".psd": image.mode == "1"}
    if code != RLE and name.suffix not in NOT_BY_PILLOW and not refused.get(name.suffix):
        equal(f"Pillow reads {what}", Image.open(name), image)
    reader, picture = READERS.get(name.suffix[1:]), name.parent / "out.ppm"
    if reader and shutil.which(reader):
        picture.write_bytes(run(reader, name))
        equal(f"netpbm reads {what}", Image.open(picture), image)
    # Of pictures ImageMagick and its kin draw one bit all black, of colours they have a limit of their own for the size
    # of counts, and none below 8 bytes; FreeImage overruns its memory below 8 bits and takes short rows for packed.
    if name.suffix == ".pct":
        deep = image.mode == "RGB" or ", P" in what
        seen = FREEIMAGE.pixels(str(name)) if FREEIMAGE and deep and image.width > 7 else b""
        if seen:
            equal(f"FreeImage reads {what}", Image.frombytes("RGBA", image.size, seen), image)
        for command in (["convert"], ["gm", "convert"]):
            if shutil.which(command[0]) and image.mode != "1" and (image.mode == "P" or image.width not in (1, 2, 64)):
                run(*command, name, "-depth", "8", picture)
                equal(f"{command[0]} reads {what}", Image.open(picture), image)
        return
    # It mixes up the palettes of documents, of which ImageMagick reads none.
    coloured = name.suffix == ".psd" and image.mode == "P"
    if coloured and shutil.which("ffmpeg"):
        data = run("ffmpeg", "-v", "error", "-i", name, "-f", "rawvideo", "-pix_fmt", "rgb24", "-")
        equal(f"ffmpeg reads {what}", Image.frombytes("RGB", image.size, data), image)
    if name.suffix in BY_FREEIMAGE and FREEIMAGE and not coloured:
        seen = FREEIMAGE.pixels(str(name)) or bytes(4 * image.width * image.height)
        equal(f"FreeImage reads {what}", Image.frombytes("RGBA", image.size, seen), image)
    if name.suffix == ".wpg" and shutil.which("gm"):
        run("gm", "convert", name, "-depth", "8", picture)
        equal(f"GraphicsMagick reads {what}", Image.open(picture), image)
    # ImageMagick lets netpbm read IFF, takes the empty colour map of 1-bit PCX files for all black, reads none in
    # version 2, and leaves Targa's bottom on top unless told otherwise.
    if name.suffix == ".iff":
        if shutil.which("ffmpeg"):
            run("ffmpeg", "-v", "error", "-y", "-i", name, "-pix_fmt", "rgb24", picture)
            equal(f"ffmpeg reads {what}", Image.open(picture), image)
    elif shutil.which("convert") and code != RLE and not coloured and (name.suffix != ".pcx" or image.mode == "RGB"):
        run("convert", name, "-auto-orient", "-depth", "8", picture)
        equal(f"ImageMagick reads {what}", Image.open(picture), image)


def widths(library, folder):
    for width, height in SIZES:
        for mode in ("1", "4", "P", "RGB", "RGBX"):
            image = noise(width, mode[:3], 7 * width, height)
            handle = library.make(width, height, *pack(image, mode), 300, 150, 200 if mode == "RGBX" else 0)
            for code, ending in CODES.items():
                if mode == "RGBX" and code not in WITH_FOURTH_BYTE:
                    continue
                name, what = folder / f"ours.{ending}", f"code {code}, {mode}{width}"
                name.unlink(missing_ok=True)
                status = library.call("IMG_save_bitmap", handle, str(name), code)
                refused = mode not in (("4", "P") if code == RLE else MODES.get(ending, mode)) or (
                    width > 256 and ending == "ico")
                if (status < 0) != refused:
                    failures.append(f"{what}: status {status}")
                if status < 0:
                    continue
                read_by_others(name, image, code, what)
                if ending == "ras" and width == 7:  # begins like an X window dump
                    continue
                if ending == "ico" and width not in (16, 32, 48, 64):  # is not recognised
                    continue
                # Noise may look like a format that is tried before PNM.
                library.call("IMG_set_option", DETECTION, 1 if ending == "pnm" else 0)
                image_here = library.open(str(name))
                library.call("IMG_set_option", DETECTION, 0)
                equal(f"own {what}", library.rgb(image_here), image)
                library.delete(image_here)
            library.delete(handle)
            if shutil.which("pnmtopng"):
                name = folder / "theirs.png"
                image.convert("RGB").save(folder / "in.ppm")
                name.write_bytes(run("pnmtopng", "-interlace", folder / "in.ppm"))
                theirs = library.open(str(name))
                equal(f"netpbm's interlaced png, {mode}{width}", library.rgb(theirs), image)
                library.delete(theirs)


def containers(library, folder):
    name, pages = folder / "pages.dcx", []
    for i in range(100):
        mode = ("1", "4", "P", "RGB")[i % 4]
        pages.append(noise(20 + i, mode, i))
        library.save(library.make(20 + i, HEIGHT, *pack(pages[-1], mode)), str(name))
    for page, image in enumerate(pages):
        equal(f"page {page}", library.rgb(library.open_page(str(name), page)), image)
        if page < 30 and page % 4 != 2:  # takes every palette from the end of the container
            theirs = Image.open(name)
            theirs.seek(page)
            equal(f"Pillow reads page {page}", theirs, image)


def inks(library, folder):
    """32 bits of ink, in documents."""
    name = folder / "inks.psd"
    for width, height in SIZES:
        image = noise(width, "CMYK", width, height)
        data = image.tobytes()
        rows = [data[4 * width * y:4 * width * (y + 1)] for y in range(height)]
        library.save(library.make(width, height, 32, rows), str(name))
        others = {"Pillow": Image.open(name).tobytes(),
                  "ImageMagick": run("convert", name, "-depth", "8", "cmyk:-") if shutil.which("convert") else data}
        failures.extend(f"{other} reads {width} inks" for other, seen in others.items() if seen != data)


def deep_png(library, folder):
    """16 bits, and 32 bits of colour; 32 bits of ink are refused."""
    state, name = random.Random(1), folder / "deep.png"
    samples = [[state.randint(0, 65535) for _ in range(31)] for _ in range(9)]
    library.save(library.make(31, 9, 16, [struct.pack("<31H", *row) for row in samples]), str(name))
    if list(Image.open(name).getdata()) != [s for row in samples for s in row]:
        failures.append("16 bits")
    image = noise(31, "RGB", 5)
    rows = [image.convert("RGBA").tobytes("raw", "BGRA")[124 * y:124 * y + 124] for y in range(HEIGHT)]
    dib = struct.pack("<IiiHHIIiiII", 40, 31, HEIGHT, 1, 32, 0, 0, 0, 0, 0, 0) + b"".join(reversed(rows))
    library.save(library.checked("IMG_decompress_bitmap_block", dib, len(dib), 0), str(name))
    equal("32 bits", Image.open(name), image)
    if library.call("IMG_save_bitmap", library.make(31, 1, 32, rows[:1]), str(name), -1) != -21:
        failures.append("cyan, magenta, yellow, black")
    for file in folder.glob("*.png"):
        if shutil.which("pngcheck") and run("pngcheck", "-q", file):
            failures.append(f"pngcheck {file.name}")


def seen_here(library, name):
    image = library.open(str(name))
    picture = library.rgb(image)
    library.delete(image)
    return picture


def black_and_white(library, folder):
    """CALS both ways; GEM and MSP as others write them."""
    ours, source, out = folder / "ours.cal", folder / "in.pbm", folder / "out.pbm"
    converters = [program for program in (("convert",), ("gm", "convert")) if shutil.which(program[0])]
    for width, height in ((1, 1), (7, 3), (31, 13), (301, 20), (2000, 5)):
        image = noise(width, "1", width).resize((width, height))
        image.save(source)
        library.save(library.make(width, height, *pack(image, "1"), 300, 300), str(ours))
        equal(f"own CALS {width}", seen_here(library, ours), image)
        for program in converters:
            run(*program, ours, out)
            equal(f"{program[0]} reads CALS {width}", Image.open(out), image)
            run(*program, source, folder / "theirs.cal")
            equal(f"{program[0]}'s CALS {width}", seen_here(library, folder / "theirs.cal"), image)
        image.save(folder / "theirs.msp")
        equal(f"Pillow's MSP {width}", seen_here(library, folder / "theirs.msp"), image)
        if shutil.which("pbmtogem"):
            (folder / "theirs.img").write_bytes(run("pbmtogem", source))
            equal(f"netpbm's GEM {width}", seen_here(library, folder / "theirs.img"), image)
    for mode in ("8", "RGB"):
        if library.call("IMG_save_bitmap", library.make(1, 1, 8 if mode == "8" else 24, [b"\0\0\0"]), str(ours), 18) != -21:
            failures.append(f"CALS of {mode}")


def levels(library, folder):
    """PNM in text, and of other ranges, as netpbm makes them."""
    source, other, usual = folder / "in.pnm", folder / "other.pnm", folder / "usual.pnm"
    library.call("IMG_set_option", DETECTION, 1)  # noise may look like a format that is tried earlier
    for width in (1, 7, 64, 301) if shutil.which("pamdepth") else ():
        for mode in ("1", "L", "RGB"):
            noise(width, mode, width).save(source, "PPM")
            other.write_bytes(run("pnmtoplainpnm", source))
            equal(f"text {mode} {width}", seen_here(library, other), Image.open(source))
            for most in (1, 15, 100, 1000, 65535) if mode != "1" else ():
                other.write_bytes(run("pamdepth", most, source))
                usual.write_bytes(run("pamdepth", 255, other))
                equal(f"{mode} {width} of {most}", seen_here(library, other), Image.open(usual))
    library.call("IMG_set_option", DETECTION, 0)


def medical(library, folder):
    """Colours and levels in all transfer syntaxes that dcmtk writes without loss."""
    plain, other = folder / "plain.dcm", folder / "other.dcm"
    for width in (1, 2, 7, 64, 301) if shutil.which("dump2dcm") else ():
        for mode in ("L", "RGB"):
            image = noise(width, mode, width)
            (folder / "raw").write_bytes(image.tobytes())
            fields = {2: len(mode), 6: 0, 0x10: HEIGHT, 0x11: width, 0x100: 8, 0x101: 8, 0x102: 7, 0x103: 0}
            lines = [f"(0028,{tag:04x}) US {value}" for tag, value in fields.items()]
            lines += [f"(0028,0004) CS [{'RGB' if mode == 'RGB' else 'MONOCHROME2'}]", f"(7fe0,0010) OB ={folder / 'raw'}",
                      "(0008,0016) UI =SecondaryCaptureImageStorage", "(0008,0018) UI [1.2.3.4]"]
            (folder / "dump").write_text("\n".join(lines))
            run("dump2dcm", "-q", folder / "dump", plain)
            for command in (["dcmconv", "+te"], ["dcmconv", "+ti"], ["dcmconv", "+tb"], ["dcmconv", "+td"], ["dcmcrle"]):
                run(*command, plain, other)
                equal(f"{command} {mode} {width}", seen_here(library, other), image)


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        # The module is looked for beside the library.
        shutil.copy(sys.argv[1], folder / "libtarnquill.so")
        shutil.copy(sys.argv[2], folder)
        library = Library(str(folder / "libtarnquill.so"))
        library.call("IMG_set_option", EXTENDED_FORMATS, 1)
        for part in (widths, containers, inks, deep_png, black_and_white, levels, medical):
            part(library, folder)
        library.call("IMG_unload_plugins")
    print(f"{compared} pictures compared, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
