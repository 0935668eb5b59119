#!/usr/bin/env python3
"""Makes the files that ext_test.cpp reads: other programs write them over pictures that are drawn here, and PNG
files show the pixels. What is coded with loss of a level or two says so in the test.

Needs python3-pil, libheif-examples, libopenjp2-tools, libgdcm-tools, as Debian 12 has them."""
import math
import pathlib
import struct
import subprocess

from PIL import Image

HERE = pathlib.Path(__file__).resolve().parent
CORPUS = HERE.parent.parent / "corpus"


def draw(width, height):
    picture = Image.new("RGB", (width, height))
    for y in range(height):
        for x in range(width):
            light = max(0.0, 1 - math.hypot(x - 14, y - 8) / 9)
            picture.putpixel((x, y), (int(40 + 200 * light), 7 * y + 3 * (x % 5), 250 - 9 * x))
    return picture


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL, cwd=HERE)


def segment(number, kind, data):
    """Of JBIG2, on page 1 (ITU-T T.88, 7.2)."""
    return struct.pack(">IBBBI", number, kind, 0, 1, len(data)) + data


def write_jbig2(picture, file):
    """One generic region, its rows as libtiff codes them."""
    strip = HERE / "strip.tif"
    Image.eval(picture.convert("L"), lambda level: 255 - level).convert("1").save(
        strip, compression="group4", tiffinfo={278: picture.height})
    with Image.open(strip) as image:
        coded = strip.read_bytes()[image.tag_v2[273][0]:][:image.tag_v2[279][0]]
    strip.unlink()
    page = struct.pack(">4IBH", *picture.size, 0, 0, 0, 0)
    region = struct.pack(">4IBB", *picture.size, 0, 0, 0, 1) + coded
    file.write_bytes(segment(0, 48, page) + segment(1, 38, region))


def main():
    rgb = draw(24, 17)
    alpha = rgb.copy()
    alpha.putalpha(Image.radial_gradient("L").resize(rgb.size))
    mono = rgb.convert("1")
    for name, picture in (("rgb", rgb), ("alpha", alpha), ("turned", rgb.rotate(180)), ("mono", mono)):
        picture.save(HERE / f"{name}.png", optimize=True)
    rgb.save(HERE / "rgb.webp", lossless=True)
    alpha.save(HERE / "alpha.webp", lossless=True, exact=True)
    rgb.save(HERE / "frames.webp", save_all=True, append_images=[rgb.rotate(180)], lossless=True)
    rgb.save(HERE / "rgb.jp2", irreversible=False)
    alpha.save(HERE / "alpha.jp2", irreversible=False)
    rgb.save(HERE / "source.ppm")
    run("opj_compress", "-i", "source.ppm", "-o", "rgb.j2k", "-n", "2", "-d", "3,5")
    for name in ("rgb", "alpha"):
        run("heif-enc", "-L", "-p", "chroma=444", "--matrix_coefficients=0", f"{name}.png", "-o", f"{name}.heic")
    run("heif-enc", "-A", "-L", "-p", "chroma=444", "--matrix_coefficients=0", "rgb.png", "-o", "rgb.avif")
    (HERE / "source.ppm").unlink()
    write_jbig2(mono, HERE / "mono.jb2")
    for name in ("grey", "scan-window", "range-big", "planes-big"):
        run("gdcmconv", "--raw", CORPUS / "dicom" / f"{name}.dcm", "raw.dcm")
        run("gdcmconv", "--j2k", "raw.dcm", f"{name}.dcm")
    (HERE / "raw.dcm").unlink()


if __name__ == "__main__":
    main()
