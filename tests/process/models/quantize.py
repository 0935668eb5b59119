"""A palette of an image's own colours (see operations.py): boxes of cells, split one after the other."""
from operations import WRONG_DEPTH, colours, stride

CELL = 8


class Box:
    """Cells by their place, each with the (red, green, blue) in it, between bounds."""

    def __init__(self, cells, low, high):
        self.cells, self.low, self.high = cells, low, high
        self.pixels = [pixel for inside in cells.values() for pixel in inside]
        self.error = float(sum(v * v for p in self.pixels for v in p)) - explained(self.pixels)

    def split(self):
        best, parts = -1.0, None
        for axis in range(3):
            for at in range(self.low[axis] + 1, self.high[axis]):
                below = {place: inside for place, inside in self.cells.items() if place[axis] < at}
                if not 0 < len(below) < len(self.cells):
                    continue
                above = {place: inside for place, inside in self.cells.items() if place[axis] >= at}
                value = explained([p for c in below.values() for p in c]) \
                    + explained([p for c in above.values() for p in c])
                if value > best:
                    cut = tuple(at if i == axis else v for i, v in enumerate(self.high))
                    rest = tuple(at if i == axis else v for i, v in enumerate(self.low))
                    best, parts = value, (below, self.low, cut, above, rest, self.high)
        return parts and (Box(*parts[:3]), Box(*parts[3:]))


def explained(pixels):
    return sum(float(sum(p[c] for p in pixels)) ** 2 for c in range(3)) / len(pixels)


def mean(pixels):
    return tuple((2 * sum(p[c] for p in pixels) + len(pixels)) // (2 * len(pixels)) for c in range(3))


def indexed(image, bits, palette, rows, count):
    made = []
    for row in rows:
        out = bytearray(stride(len(row), bits))
        for x, index in enumerate(row):
            out[x * bits // 8] |= index << (8 - bits - x * bits % 8)
        made.append(bytes(out))
    palette = [(b, g, r) for r, g, b in palette] + [(0, 0, 0)] * ((1 << bits) - len(palette))
    compression = 0 if image["compression"] == 200 else image["compression"]
    return count, {**image, "bits": bits, "palette": palette, "compression": compression, "rows": made}


def quantize(image, bits, most, dither):
    if image["bits"] not in (24, 32):
        return WRONG_DEPTH, image
    rows = [[(r, g, b) for b, g, r in colours(image, y)] for y in range(image["height"])]
    different = list(dict.fromkeys(p for row in rows for p in row))
    if len(different) <= most:
        return indexed(image, bits, different, [[different.index(p) for p in row] for row in rows], len(different))
    cells = {}
    for row in rows:
        for pixel in row:
            cells.setdefault(tuple(v // CELL for v in pixel), []).append(pixel)
    boxes, whole = [Box(cells, (0, 0, 0), (32, 32, 32))], set()
    while len(boxes) < most:
        worst = max((i for i in range(len(boxes)) if i not in whole),
                    key=lambda i: boxes[i].error, default=None)
        if worst is None or boxes[worst].error <= 0:
            break
        parts = boxes[worst].split()
        if parts is None:
            whole.add(worst)
            continue
        boxes[worst] = parts[0]
        boxes.append(parts[1])
    palette = [mean(box.pixels) for box in boxes]
    known = {}

    def index_of(pixel):
        place = tuple(v // CELL for v in pixel)
        if place not in known:
            level = mean(cells[place]) if place in cells else tuple(v * CELL + CELL // 2 for v in place)
            known[place] = min(range(len(palette)), key=lambda i: sum((a - b) ** 2 for a, b in zip(palette[i], level)))
        return known[place]
    if not dither:
        return indexed(image, bits, palette, [[index_of(p) for p in row] for row in rows], len(palette))
    sixteenths, made = {}, []
    for y, row in enumerate(rows):
        step, out = 1 if y % 2 == 0 else -1, [0] * len(row)
        for x in range(len(row))[::step]:
            received = sixteenths.get((x, y), (0, 0, 0))
            wanted = tuple(min(max(v + (e + 8 >> 4), 0), 255) for v, e in zip(row[x], received))
            out[x] = index_of(wanted)
            error = [a - b for a, b in zip(wanted, palette[out[x]])]
            for dx, dy, weight in ((step, 0, 7), (-step, 1, 3), (0, 1, 5), (step, 1, 1)):
                place = (x + dx, y + dy)
                before = sixteenths.get(place, (0, 0, 0))
                sixteenths[place] = tuple(s + weight * e for s, e in zip(before, error))
        made.append(out)
    return indexed(image, bits, palette, made, len(palette))
