#!/usr/bin/env python3
"""Decoding of the formats of one file each beside other programs: milliseconds of processor time for 12 megapixels,
the least of five alternating runs, and how many times as long the others take.

    bench/format_peers.py LIBRARY [NAME...]     those whose name begins like that

Ours and Pillow decode from memory. Of a program it is the time of its process without that for one pixel. A format
that the library does not read yet is left out."""
import ctypes
import io
import os
import pathlib
import resource
import shutil
import struct
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "peers"))
from PIL import Image  # noqa: E402
from library import Library  # noqa: E402

SIZE, RUNS = (4000, 3000), 5
os.environ.update(OMP_NUM_THREADS="1", MAGICK_THREAD_LIMIT="1")


def pictures(size):
    """A photograph, a page of words and the same in grey, as far as a formula goes."""
    noise = Image.effect_noise((400, 300), 60).resize(size)
    slope = Image.linear_gradient("L").resize(size)
    page = Image.effect_noise((400, 300), 90).point(lambda level: 255 * (level > 90)).resize(size)
    return {"RGB": Image.merge("RGB", (noise, slope, Image.blend(noise, slope, 0.5))), "L": noise,
            "P": noise.point(lambda level: level & 0xF8).quantize(32), "1": page.convert("1", dither=0)}


def write_cut(picture, name):
    rows = [b"".join(bytes((129, level)) for level in picture.crop((0, y, picture.width, y + 1)).tobytes()) + b"\0"
            for y in range(picture.height)]
    pathlib.Path(name).write_bytes(struct.pack("<3H", *picture.size, 0) +
                                   b"".join(struct.pack("<H", len(row)) + row for row in rows))


def write_dicom(picture, name, deep=False):
    folder = pathlib.Path(name).parent
    levels, samples = picture.tobytes(), len(picture.getbands())
    data = b"".join(level.to_bytes(1, "little") + b"\3" for level in levels) if deep else levels
    bits = 16 if deep else 8
    fields = {2: samples, 6: 0, 0x10: picture.height, 0x11: picture.width, 0x100: bits, 0x101: bits - 4 * deep,
              0x102: bits - 1 - 4 * deep, 0x103: 0}
    lines = [f"(0028,{tag:04x}) US {value}" for tag, value in fields.items()]
    lines += [f"(0028,0004) CS [{'RGB' if samples == 3 else 'MONOCHROME2'}]", "(0008,0018) UI [1.2.3.4]",
              "(0008,0016) UI =SecondaryCaptureImageStorage", f"(7fe0,0010) {'OW' if deep else 'OB'} ={folder}/raw"]
    (folder / "raw").write_bytes(data)
    (folder / "dump").write_text("\n".join(lines))
    subprocess.run(["dump2dcm", "-q", folder / "dump", name], check=True)


def by_command(*command):
    """A picture goes in as a portable map, $i; the file is what comes out, or $o."""
    def write(picture, name):
        source = pathlib.Path(name).parent / ("in.pbm" if picture.mode == "1" else "in.ppm")
        picture.convert(picture.mode if picture.mode != "P" else "RGB").save(source)
        words = [{"$i": str(source), "$o": str(name)}.get(word, word) for word in command]
        with open(os.devnull if "$o" in command else name, "wb") as out:
            subprocess.run(words, check=True, stdout=out)
    return write


NETPBM = {"ras": "rasttopnm", "tga": "tgatoppm", "iff": "ilbmtoppm", "pct": "picttoppm", "xbm": "xbmtopbm",
          "xpm": "xpmtoppm", "xwd": "xwdtopnm", "mac": "macptopbm", "img": "gemtopnm", "ico": "winicontopam",
          "psd": None}
# Name, ending, kind of picture, who writes it: the library (by its code), Pillow, or a command.
FORMATS = (
    ("Sun raster 24", "ras", "RGB", 37), ("Sun raster 8", "ras", "P", 37), ("Sun raster 1", "ras", "1", 37),
    ("Sun raster runs", "ras", "P", by_command("pnmtorast", "-rle", "$i")),
    ("Targa 24", "tga", "RGB", "Pillow"), ("Targa 24 runs", "tga", "RGB", 3), ("Targa 8 runs", "tga", "P", 3),
    ("Photoshop 24", "psd", "RGB", 41), ("Photoshop 24 raw", "psd", "RGB", by_command("convert", "$i", "-compress", "None", "$o")),
    ("Photoshop 8", "psd", "P", 41),
    ("PICT 24", "pct", "RGB", 15), ("PICT 8", "pct", "P", 15), ("PICT 1", "pct", "1", 15),
    ("IFF 24", "iff", "RGB", 26), ("IFF 8", "iff", "P", 26), ("IFF 1", "iff", "1", 26),
    ("X bitmap", "xbm", "1", 20), ("X pixmap", "xpm", "P", 35),
    ("X window dump 24", "xwd", "RGB", 36), ("X window dump 8", "xwd", "P", 36), ("X window dump 1", "xwd", "1", 36),
    ("CALS", "cal", "1", 18), ("GEM", "img", "1", by_command("pbmtogem", "$i")), ("MSP", "msp", "1", "Pillow"),
    ("CUT", "cut", "L", write_cut),
    ("DICOM 8", "dcm", "L", write_dicom), ("DICOM 24", "dcm", "RGB", write_dicom),
    ("DICOM 12", "dcm", "L", lambda picture, name: write_dicom(picture, name, True)),
    ("DICOM runs", "dcm", "RGB", lambda picture, name: (
        write_dicom(picture, name + "x"), subprocess.run(["dcmcrle", name + "x", name], check=True))),
)


def packed(picture):
    """(bits, rows, palette) as the library takes them."""
    data = picture.tobytes("raw", "BGR") if picture.mode == "RGB" else picture.tobytes()
    stride = len(data) // picture.height
    palette = picture.getpalette() if picture.mode == "P" else [0] * 3 + [255] * 3
    return ({"1": 1, "P": 8, "RGB": 24}[picture.mode], [data[y * stride:(y + 1) * stride] for y in range(picture.height)],
            [tuple(palette[i:i + 3]) for i in range(0, len(palette), 3)])


def write(library, picture, name, writer):
    """Whether there is a file now."""
    if writer == "Pillow":
        picture.save(name)
    elif callable(writer):
        writer(picture, name)
    else:
        image = library.make(*picture.size, *packed(picture), 300, 300)
        status = library.call("IMG_save_bitmap", image, name, writer)
        library.delete(image)
        return status == 0
    return True


def time_of(work):
    start = time.process_time()
    done = work()
    return time.process_time() - start if done else None


def process_time(command):
    """Of a process, in the system's and in its own code: mapping files is reading, too."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime - before.ru_utime if done.returncode == 0 else None


def subjects(library, name, dot):
    """Ours and the others, each a function from a file's name to seconds; of programs, of both."""
    file = pathlib.Path(name).read_bytes()

    def ours():
        image = library.call("IMG_decompress_bitmap_block", file, ctypes.c_size_t(len(file)), 0)
        return image >= 0 and library.call("IMG_delete_bitmap", image) == 0

    def pillow():
        try:
            Image.open(io.BytesIO(file)).load()
        except (OSError, ValueError, IndexError, Image.DecompressionBombError):
            return False
        return True

    yield "ours", lambda: time_of(ours)
    yield "Pillow", lambda: time_of(pillow)
    netpbm = NETPBM.get(pathlib.Path(name).suffix[1:])
    programs = {"ImageMagick": ["convert", "$", "null:"], "GraphicsMagick": ["gm", "convert", "$", "null:"],
                "netpbm": [netpbm or "false", "$"], "ffmpeg": ["ffmpeg", "-v", "error", "-threads", "1", "-i", "$", "-f", "null", "-"],
                "dcmtk": ["dcm2pnm", "$"] if name.endswith(".dcm") else ["false"]}
    for program, command in programs.items():
        if not shutil.which(command[0]):
            continue

        def run(command=command):
            large, small = (process_time([file if word == "$" else word for word in command]) for file in (name, dot))
            return None if large is None else max(large - (small or 0), 0)
        yield program, run


def main():
    library, wanted = Library(sys.argv[1]), tuple(sys.argv[2:]) or ("",)
    others = ("Pillow", "ImageMagick", "GraphicsMagick", "netpbm", "ffmpeg", "dcmtk")
    print(f"{'':18}{'ours, ms':>9}" + "".join(f"{other:>15}" for other in others))
    with tempfile.TemporaryDirectory() as folder:
        large, small = pictures(SIZE), pictures((1, 1))
        for title, ending, mode, writer in FORMATS:
            if not title.startswith(wanted):
                continue
            name, dot = f"{folder}/large.{ending}", f"{folder}/dot.{ending}"
            if not write(library, large[mode], name, writer) or not write(library, small[mode], dot, writer):
                continue
            works = dict(subjects(library, name, dot))
            times = {subject: [] for subject in works}
            for _ in range(RUNS):
                for subject, work in works.items():
                    if None not in times[subject]:
                        times[subject].append(work())
            if None in times["ours"]:
                continue
            mine = min(times.pop("ours"))
            ratios = [f"{min(times[other]) / mine:15.1f}" if None not in times.get(other, [None]) else f"{'-':>15}"
                      for other in others]
            print(f"{title:18}{1000 * mine:9.1f}" + "".join(ratios), flush=True)


if __name__ == "__main__":
    main()
