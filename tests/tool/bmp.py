"""A small BMP writer and reader, for comparison with what the program writes."""
import random
import struct


def palette_entries(bits):
    return 1 << bits if bits <= 8 else 0


def row_bytes(width, bits):
    return (width * bits + 31) // 32 * 4


def palette_for(bits, seed=1):
    """Black and white, or colours that differ."""
    if bits == 1:
        return [(0, 0, 0), (255, 255, 255)]
    chosen = random.Random(seed)
    return [tuple(chosen.randrange(256) for _ in range(3)) for _ in range(palette_entries(bits))]


def random_pixels(width, height, bits, seed=1):
    """Rows from the top down; a pixel is an index, or (blue, green, red)."""
    chosen = random.Random(seed)
    if bits <= 8:
        return [[chosen.randrange(1 << bits) for _ in range(width)] for _ in range(height)]
    return [[tuple(chosen.randrange(256) for _ in range(3)) for _ in range(width)] for _ in range(height)]


def pack_row(row, bits):
    width = len(row)
    if bits <= 8:
        value = 0
        for index in row:
            value = value << bits | index
        used = (width * bits + 7) // 8
        packed = (value << (8 * used - width * bits)).to_bytes(used, "big")
    else:
        packed = b"".join(bytes(pixel) + b"\0" * (bits // 8 - 3) for pixel in row)
    return packed.ljust(row_bytes(width, bits), b"\0")


def header(width, height, bits, size_of_rows, compression=0, dots_per_metre=0):
    offset = 54 + 4 * palette_entries(bits)
    return (b"BM" + struct.pack("<IHHI", offset + size_of_rows, 0, 0, offset) +
            struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, compression, size_of_rows,
                        dots_per_metre, dots_per_metre, 0, 0))


def encode(pixels, bits, dots_per_metre=0):
    rows = b"".join(pack_row(row, bits) for row in reversed(pixels))
    palette = b"".join(bytes(entry) + b"\0" for entry in palette_for(bits)) if bits <= 8 else b""
    return header(len(pixels[0]), len(pixels), bits, len(rows), 0, dots_per_metre) + palette + rows


def decode(data):
    """(bits, rows of colours from the top down) of an uncompressed file, or of a bare DIB."""
    at = 14 if data[:2] == b"BM" else 0
    size, width, height, _, bits, compression = struct.unpack_from("<IiiHHI", data, at)
    assert size == 40 and width > 0 and height > 0, "header"
    palette = [tuple(data[at + 40 + 4 * i:][:3]) for i in range(palette_entries(bits))]
    pixels = at + 40 + 4 * len(palette)
    if at:
        assert struct.unpack_from("<I", data, 10)[0] == pixels, "offset of the pixels"
    assert compression == 0 and len(data) == pixels + row_bytes(width, bits) * height, "size"
    rows = [unpack_row(data[pixels + i * row_bytes(width, bits):], width, bits) for i in range(height)]
    if palette:
        rows = [[palette[index] for index in row] for row in rows]
    return bits, rows[::-1]


def unpack_row(data, width, bits):
    if bits >= 24:
        step = bits // 8
        return [tuple(data[step * x:step * x + 3]) for x in range(width)]
    mask = (1 << bits) - 1
    return [data[x * bits // 8] >> (8 - bits - x * bits % 8) & mask for x in range(width)]
