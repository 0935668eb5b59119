#!/usr/bin/env python3
"""GIF files, through the LZW module beside the library, against Pillow and netpbm.

    gif_peers.py LIBRARY MODULE     exit code 77 without Pillow"""
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    from PIL import Image
except ImportError:
    sys.exit(77)
import pcx_peers
from library import Library, conclude
from pcx_peers import HEIGHT, WIDTHS, equal, failures, noise, pack

GIF, GIF_INTERLACED = 4, 44


def still_files(library, folder):
    for width in WIDTHS:
        for mode in ("1", "4", "P"):
            image = noise(width, mode, width)
            for interlace in (0, 1):
                name = folder / "theirs.gif"
                image.save(name, interlace=interlace)
                equal(f"Pillow's {mode}{width}, interlace {interlace}", library.rgb(library.open(str(name))), image)
            bits, rows, palette = pack(image, mode)
            handle = library.make(width, HEIGHT, bits, rows, palette)
            for code in (GIF, GIF_INTERLACED):
                name = folder / "ours.gif"
                library.save(handle, str(name), code)
                equal(f"own {mode}{width}, code {code}", library.rgb(library.open(str(name))), image)
                equal(f"Pillow reads {mode}{width}, code {code}", Image.open(name), image)
                if name.read_bytes()[13 + 3 * (1 << bits) + 9] != (0x40 if code == GIF_INTERLACED else 0):
                    failures.append(f"{mode}{width}: interlace")
                if shutil.which("giftopnm"):
                    ppm = folder / "out.ppm"
                    ppm.write_bytes(subprocess.run(["giftopnm", "-quiet", str(name)], check=True,
                                                   capture_output=True).stdout)
                    equal(f"netpbm reads {mode}{width}, code {code}", Image.open(ppm), image)


def large(library, folder):
    """The code table fills up many times."""
    image = Image.effect_noise((640, 480), 90)
    for interlace in (0, 1):
        name = folder / "large.gif"
        image.save(name, interlace=interlace)
        equal(f"large, interlace {interlace}", library.rgb(library.open(str(name))), image)
    library.save(library.open(str(name)), str(name), GIF)
    equal("large, own", Image.open(name), image)


def frames(library, folder):
    images = [noise(40, "P", seed) for seed in range(5)]
    name = folder / "frames.gif"
    images[0].save(name, save_all=True, append_images=images[1:], disposal=2)
    theirs = Image.open(name)
    for page in range(5):
        theirs.seek(page)
        equal(f"frame {page}", library.rgb(library.open_page(str(name), page)), theirs)
    with open(name, "rb") as file:
        if library.call("IMG_decompress_bitmap_fd", file.fileno(), 0, 5) != -31:
            failures.append("frame 5")


def transparency(library, folder):
    image, name = noise(20, "P", 3), folder / "transparent.gif"
    image.save(name, transparency=image.getpixel((0, 0)))
    handle = library.open(str(name))
    ours, theirs = library.call("IMGLOW_get_transp_color", handle), Image.open(name).info.get("transparency")
    if ours != theirs:
        failures.append(f"transparency read: {ours}, {theirs}")
    library.call("IMGLOW_set_transp_color", handle, 5)
    library.save(handle, str(name), GIF)
    if Image.open(name).info.get("transparency") != 5:
        failures.append("transparency written")


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        # The module is looked for beside the library.
        shutil.copy(sys.argv[1], folder / "libtarnquill.so")
        shutil.copy(sys.argv[2], folder)
        library = Library(str(folder / "libtarnquill.so"))
        for part in (still_files, large, frames, transparency):
            part(library, folder)
        library.call("IMG_unload_plugins")
    print(f"{pcx_peers.compared} pictures compared, {len(failures)} differ")
    return conclude(failures)


if __name__ == "__main__":
    sys.exit(main())
