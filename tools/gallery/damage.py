"""Files that were cut, bent or made up: what comes out of them, and what the program says."""
import struct

from gallery.page import image, text


def cut(data, share):
    return data[:int(len(data) * share)]


def bent(data, share, bits):
    data = bytearray(data)
    data[int(len(data) * share)] ^= bits
    return bytes(data)


def noisy(data, share, count):
    """Other bytes from there on, none of which means anything to the format."""
    at = int(len(data) * share)
    return data[:at] + bytes((i * 73 + 5) % 250 for i in range(count)) + data[at + count:]


def promising():
    """A header that asks for 10 GB, and a hundred bytes behind it."""
    fields = (154, 0, 0, 54, 40, 60000, 60000, 1, 24, 0, 0, 0, 0, 0, 0)
    return b"BM" + struct.pack("<IHHIIiiHHIIiiII", *fields) + bytes(100)


def without_its_table(data):
    """A document that ends before the table that says where its objects are."""
    return data[:data.rindex(b"startxref")].replace(b"\nxref", b"\n%ref")


# Title, file, made of, what is done to its bytes
CASES = [
    ("JPEG, half of it lost", "cut.jpg", ("photo.bmp",), lambda d: cut(d, 0.5)),
    ("JPEG, 40 bytes of noise", "noise.jpg", ("photo.bmp",), lambda d: noisy(d, 0.45, 40)),
    ("PNG, a third lost", "cut.png", ("photo.bmp",), lambda d: cut(d, 0.66)),
    ("PNG, one bit bent", "bent.png", ("photo.bmp",), lambda d: bent(d, 0.4, 1)),
    ("GIF, broken off", "cut.gif", ("dots.bmp", "--colors", "64"), lambda d: cut(d, 0.6)),
    ("Fax page, 12 bytes of noise", "noise.tif", ("page.tif", "--code", "tiff-g4"), lambda d: noisy(d, 0.5, 12)),
    ("PDF without its table", "table.pdf", ("page.tif",), without_its_table),
    ("PCX, a quarter lost", "cut.pcx", ("dots.bmp",), lambda d: cut(d, 0.75)),
    ("BMP, its end missing", "cut.bmp", ("dots.bmp",), lambda d: cut(d, 0.6)),
    ("TIFF that points beyond its end", "beyond.tif", ("dots.bmp",), lambda d: d[:4] + b"\xf0\xff\xff\x7f" + d[8:]),
    ("60000 \u00d7 60000 pixels in 154 bytes", "promise.bmp", None, lambda _: promising()),
    ("Not a picture at all", "letter.tif", None, lambda _: b"Dear Sir, this is not a picture.\n"),
]
OUTCOMES = {0: ("no complaint", "whole"), 1: ("refused", "refused"), 3: ("what is left", "partly")}


def build(program):
    cards = []
    for title, name, source, damage in CASES:
        if source:
            program.convert(source[0], f"good-{name}", *source[1:])
        whole = (program.work / f"good-{name}").read_bytes() if source else b""
        (program.work / name).write_bytes(damage(whole))
        scaled = ["--size", "x360"] if source and source[0] == "page.tif" else []
        picture, outcome = program.picture(name, f"damaged-{name}.png", *scaled)
        word, kind = OUTCOMES.get(outcome.code, (f"exit code {outcome.code}", "refused"))
        seen = image(picture, f"what is left of {name}") if picture else "<span>no picture</span>"
        says = text(outcome.says or "(nothing)")
        cards.append(f'<li class="{kind}"><div class="left">{seen}</div><h3>{text(title)}</h3>'
                     f'<p class="verdict">{word}, exit code {outcome.code}</p><pre>{says}</pre></li>')
    return {"damaged": "".join(cards)}
