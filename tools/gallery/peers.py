"""Pictures as other programs read them: (width, height, bytes of red, green, blue); and what operations do
to them, told once more."""
import pathlib
import shutil
import struct
import subprocess

try:
    from PIL import Image, ImageCms
except ImportError:
    Image = ImageCms = None

SIZE = (160, 120)  # of scaled pictures


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
