"""What operations that move pixels make of an image (see operations.py): for every pixel of the
result the place in the image that it comes from."""
from decimal import Decimal, getcontext
from fractions import Fraction
import functools
from math import floor

from operations import RAMP, WRONG_DEPTH, UNSUPPORTED, stride

NOT_GREY = -22
getcontext().prec = 40


def grid(image):
    """Pixels as numbers, low byte first."""
    bits, pixels = image["bits"], []
    for row in image["rows"]:
        if bits < 8:
            pixels.append([row[x * bits // 8] >> (8 - bits - x * bits % 8) & (1 << bits) - 1
                           for x in range(image["width"])])
        else:
            size = bits // 8
            pixels.append([int.from_bytes(row[size * x:size * x + size], "little")
                           for x in range(image["width"])])
    return pixels


def from_grid(image, pixels, **changes):
    made = {**image, **changes, "height": len(pixels), "width": len(pixels[0]), "rows": []}
    bits, width = made["bits"], made["width"]
    for values in pixels:
        row = bytearray(stride(width, bits))
        for x, value in enumerate(values):
            if bits < 8:
                row[x * bits // 8] |= value << (8 - bits - x * bits % 8)
            else:
                row[x * bits // 8:(x + 1) * bits // 8] = value.to_bytes(bits // 8, "little")
        if made["in_runs"]:  # what lies behind the width reads as white
            padding = (1 << (len(row) * 8 - width)) - 1
            row = (int.from_bytes(row, "big") | padding).to_bytes(len(row), "big")
        made["rows"].append(bytes(row))
    return 0, made


def pixel_of(image, colour):
    bits, palette = image["bits"], image["palette"]
    if bits >= 24:
        red, green, blue = (colour & 0xFFFFFF).to_bytes(3, "little")
        if bits == 32 and image["compression"] == 0:
            blue, green, red = 255 - red, 255 - green, 255 - blue
        return blue | green << 8 | red << 16
    if colour >= 0:
        return colour
    if bits in (1, 16):
        return (1 << bits) - 1
    return min(range(len(palette)), key=lambda i: sum((255 - v) ** 2 for v in palette[i]))


def moved(image, width, height, source_of, colour=-1):
    pixels, fill = grid(image), pixel_of(image, colour)

    def at(x, y):
        inside = 0 <= x < image["width"] and 0 <= y < image["height"]
        return pixels[y][x] if inside else fill
    return from_grid(image, [[at(*source_of(x, y)) for x in range(width)] for y in range(height)])


def orient(image, value):
    w, h = image["width"], image["height"]
    size = (w, h) if value < 5 else (h, w)
    return moved(image, *size, lambda x, y: {
        1: (x, y), 2: (w - 1 - x, y), 3: (w - 1 - x, h - 1 - y), 4: (x, h - 1 - y),
        5: (y, x), 6: (y, h - 1 - x), 7: (w - 1 - y, h - 1 - x), 8: (w - 1 - y, x)}[value])


def extend(image, left, top, right, bottom, colour):
    if not -1 <= colour < 1 << min(image["bits"], 24):
        return UNSUPPORTED, image
    width, height = image["width"] + left + right, image["height"] + top + bottom
    if width < 1 or height < 1:
        return UNSUPPORTED, image
    return moved(image, width, height, lambda x, y: (x - left, y - top), colour)


def crop(image, x, y, width, height):
    if x + width > image["width"] or y + height > image["height"]:
        return UNSUPPORTED, image
    return moved(image, width, height, lambda i, j: (i + x, j + y))


def is_grey(image):
    return all(b == g == r for b, g, r in image["palette"])


def invert(image):
    if image["bits"] in (4, 8) and not is_grey(image):
        palette = [tuple(255 - v for v in colour) for colour in image["palette"]]
        return from_grid(image, grid(image), palette=palette)
    most = (1 << image["bits"]) - 1
    return from_grid(image, [[most - v for v in row] for row in grid(image)])


@functools.cache
def sine(hundredths):
    """In units of 2^-30, of the angle itself."""
    if not 0 <= hundredths <= 9000:
        return sine(18000 - hundredths) if 9000 < hundredths <= 18000 else -sine(hundredths % 36000 - 18000)
    x = Decimal("3.14159265358979323846264338327950288") * hundredths / 18000
    term = total = x
    for n in range(3, 60, 2):
        term = -term * x * x / (n * (n - 1))
        total += term
    return total * 2 ** 30


def joined(angle):
    """Sine and cosine from those of whole degrees and of hundredths of one."""
    quarter, rest = divmod(angle, 9000)
    s, c = round(sine(rest // 100 * 100)), round(sine(9000 - rest // 100 * 100))
    ds, dc = round(sine(rest % 100)), round(sine(9000 - rest % 100))
    sin, cos = (s * dc + c * ds + 2 ** 29) >> 30, (c * dc - s * ds + 2 ** 29) >> 30
    assert abs(sin - sine(rest)) <= 2 and abs(cos - sine(9000 - rest)) <= 2
    return [(sin, cos), (cos, -sin), (-sin, -cos), (-cos, sin)][quarter]


def rotate(image, angle, colour, mode):
    bits, grey = image["bits"], image["bits"] in (4, 8) and is_grey(image)
    smooth = not mode & 2 and (grey or bits in (1, 24, 32))
    if bits == 16 and not mode & 2:
        return WRONG_DEPTH, image
    if not -1 <= colour < 1 << min(bits, 24):
        return UNSUPPORTED, image
    s, c = joined(angle)
    w, h = image["width"], image["height"]
    width, height = w, h
    if not mode & 1:
        excess = 2 ** 30 - 2 ** 20
        width = max(1, (w * abs(c) + h * abs(s) + excess) >> 30)
        height = max(1, (w * abs(s) + h * abs(c) + excess) >> 30)
    pixels, fill = grid(image), pixel_of(image, colour)
    levels = [b for b, _, _ in image["palette"]] if grey else [0, 255]
    size = 1 if bits <= 8 else bits // 8

    def at(x, y):
        return pixels[y][x] if 0 <= x < w and 0 <= y < h else fill

    def channels(x, y):
        pixel = at(x, y)
        return [levels[pixel]] if bits <= 8 else list(pixel.to_bytes(size, "little"))

    def result(i, j):
        u, v = 2 * i + 1 - width, 2 * j + 1 - height
        x = (c * u + s * v + (w << 30)) * 2  # units of 2^-32 pixels
        y = (c * v - s * u + (h << 30)) * 2
        x, y = (x + 2 ** 23) >> 24, (y + 2 ** 23) >> 24
        if not smooth:
            return at(x >> 8, y >> 8)
        left, top = (x - 128) >> 8, (y - 128) >> 8
        fx, fy = (x - 128) & 255, (y - 128) & 255
        blended = [(a * (256 - fx) * (256 - fy) + b * fx * (256 - fy) + d * (256 - fx) * fy
                    + e * fx * fy + 32768) >> 16
                   for a, b, d, e in zip(channels(left, top), channels(left + 1, top),
                                         channels(left, top + 1), channels(left + 1, top + 1))]
        if bits == 1:
            return int(blended[0] >= 128)
        if grey:
            return min(range(len(levels)), key=lambda n: abs(levels[n] - blended[0]))
        return int.from_bytes(bytes(blended), "little")
    return from_grid(image, [[result(i, j) for i in range(width)] for j in range(height)])


def area_mean(values, width, height):
    """Of a matrix of numbers, by the overlap of each pair of pixels."""
    h, w = len(values), len(values[0])

    def overlaps(i, side, new):
        """Places that cell i of `new` covers, a place being `new` units wide and a cell `side`."""
        for k in range(i * side // new, ((i + 1) * side - 1) // new + 1):
            yield k, min((k + 1) * new, (i + 1) * side) - max(k * new, i * side)
    across = [list(overlaps(i, w, width)) for i in range(width)]
    return [[(2 * sum(values[y][x] * a * b for y, b in overlaps(j, h, height) for x, a in across[i])
              + w * h) // (2 * w * h) for i in range(width)] for j in range(height)]


def kernel_value(kind, t):
    """At t of 1/65536, between values at steps of 1/1024 in units of 2^-20."""
    def exact(n):
        x = Decimal(n) / 1024
        if kind == 2:
            value = max(1 - x, 0)
        elif kind == 3:
            value = ((3 * x - 5) * x * x + 2) / 2 if x < 1 else max(2 - x, 0) and (((5 - x) * x - 8) * x + 4) / 2
        else:
            pi = Decimal("3.14159265358979323846264338327950288")
            value = Decimal(1) if n == 0 else Decimal(0)
            if 0 < n < 3072:
                value = sine_of(pi * x) * sine_of(pi * x / 3) * 3 / (pi * x) ** 2
        return int((value * 2 ** 20 + Decimal("0.5")).to_integral_value("ROUND_FLOOR"))
    here, there = exact(t >> 6), exact((t >> 6) + 1)
    return here + ((there - here) * (t & 63) + 32 >> 6)


def sine_of(x):
    term = total = x
    for n in range(3, 90, 2):
        term = -term * x * x / (n * (n - 1))
        total += term
    return total


@functools.cache
def weights(kind, side, new):
    """The size of blocks, and for every place of the result its (place, weight) in blocks."""
    block = side // (2 * new) if 4 * new <= side else 1
    radius, made = kind - 1, []
    scale = max(Fraction(1), Fraction(side, new * block))
    for i in range(new):
        centre = Fraction((2 * i + 1) * side, 2 * new * block)
        first = max(0, floor(centre - radius * scale + Fraction(1, 2)))
        last = min(-(-side // block), floor(centre + radius * scale + Fraction(1, 2)))
        values = [kernel_value(kind, floor(abs(j + Fraction(1, 2) - centre) / scale * 65536 + Fraction(1, 2)))
                  for j in range(first, last)]
        shares = [floor(Fraction(v << 14, sum(values)) + Fraction(1, 2)) for v in values]
        shares[shares.index(max(shares))] += (1 << 14) - sum(shares)
        made.append(list(enumerate(shares, first)))
    return block, made


def filtered(values, width, height, kind):
    h, w = len(values), len(values[0])
    (fx, across), (fy, down) = weights(kind, w, width), weights(kind, h, height)

    def block(x, y):
        found = [v for row in values[y:y + fy] for v in row[x:x + fx]]
        return (2 * sum(found) + len(found)) // (2 * len(found))
    if fx > 1 or fy > 1:
        values = [[block(x, y) for x in range(0, w, fx)] for y in range(0, h, fy)]
    rows = [[sum(row[x] * share for x, share in taps) + 128 >> 8 for taps in across] for row in values]
    return [[min(max(sum(rows[y][i] * share for y, share in taps) + 2 ** 19 >> 20, 0), 255)
             for i in range(width)] for taps in down]


def resize(image, width, height, method):
    bits, grey = image["bits"], image["bits"] in (4, 8) and is_grey(image)
    if method == 0:
        return moved(image, width, height, lambda x, y: ((2 * x + 1) * image["width"] // (2 * width),
                                                         (2 * y + 1) * image["height"] // (2 * height)))
    if bits == 16 or method == 5 and bits > 8:
        return WRONG_DEPTH, image
    if bits in (4, 8) and not grey:
        return NOT_GREY, image
    levels = [0, 255] if bits == 1 else [b for b, _, _ in image["palette"]]

    def mean(values):
        return filtered(values, width, height, method) if method in (2, 3, 4) else \
            area_mean(values, width, height)
    if bits > 8:
        channels = [mean([[v >> 8 * c & 255 for v in row] for row in grid(image)]) for c in range(bits // 8)]
        return from_grid(image, [[sum(c[y][x] << 8 * i for i, c in enumerate(channels)) for x in range(width)]
                                 for y in range(height)])
    values = mean([[levels[v] for v in row] for row in grid(image)])
    if method == 5:
        runs = {} if bits == 1 else {"bits": 1, "palette": RAMP[::255], "in_runs": True, "compression": 99}
        return from_grid(image, [[int(v >= 128) for v in row] for row in values], **runs)
    if bits == 1:
        return from_grid(image, values, bits=8, palette=RAMP, in_runs=False, compression=0)
    nearest = [min(range(len(levels)), key=lambda n: abs(levels[n] - v)) for v in range(256)]
    return from_grid(image, [[nearest[v] for v in row] for row in values])
