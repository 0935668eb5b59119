"""What binarisation and even paper make of an image without a resolution (see operations.py), in
exact integers."""
from math import isqrt

from geometry import NOT_GREY, from_grid, grid
from operations import WRONG_DEPTH, colours, luma, mono

TILE, PAPER = 16, 230


def otsu(levels):
    """Of the levels of a whole image, in doubles as written."""
    total, weight = float(len(levels)), float(sum(levels))
    counts = [levels.count(i) for i in range(256)]
    values, n, s = {}, 0.0, 0.0
    for t in range(255):
        n, s = n + counts[t], s + float(counts[t] * t)
        if 0 < n < total:
            values[t] = (total * s - n * weight) * (total * s - n * weight) / (n * (total - n))
    if not values:
        return 127
    first = last = max(values, key=lambda t: (values[t], -t))
    while values.get(last + 1) == values[first]:
        last += 1
    return (first + last) // 2


def clipped(table, y, x, reach):
    """What is within reach of a place, row by row."""
    return [row[max(x - reach, 0):x + reach + 1]
            for row in table[max(y - reach, 0):y + reach + 1]]


def flat(rows):
    return [value for row in rows for value in row]


def filtered(table, choose):
    return [[choose(flat(clipped(table, y, x, 2))) for x in range(len(table[0]))]
            for y in range(len(table))]


def background(levels):
    """Sixteenths of a level for each pixel."""
    height, width = len(levels), len(levels[0])
    tiles = []
    for top in range(0, height, TILE):
        tiles.append([])
        for left in range(0, width, TILE):
            tile = sorted(flat([row[left:left + TILE] for row in levels[top:top + TILE]]))
            tiles[-1].append(next(v for v in range(256)
                                  if 5 * sum(p > v for p in tile) <= len(tile)))
    tiles = filtered(filtered(tiles, max), min)
    tiles = filtered(tiles, lambda t: max((32 * sum(t) + len(t)) // (2 * len(t)), 16))

    def between(position, count):
        """The two tiles beside a pixel and the second one's share in 32."""
        first, part = divmod(2 * position + 1 - TILE, 2 * TILE)
        return max(first, 0), min(first + 1, count - 1), part

    made = []
    for y in range(height):
        above, below, down = between(y, len(tiles))
        made.append([])
        for x in range(width):
            left, right, across = between(x, len(tiles[0]))
            value = sum(tiles[t][i] * v * h
                        for t, v in ((above, 32 - down), (below, down))
                        for i, h in ((left, 32 - across), (right, across)))
            made[-1].append((value + 512) >> 10)
    return made


def levelled(levels):
    return [[min(255, p * PAPER * 16 // b) for p, b in zip(*rows)]
            for rows in zip(levels, background(levels))]


def greys(image):
    return [[luma(c) for c in colours(image, y)] for y in range(image["height"])]


def sauvola(levels, window, k):
    reach, height, width = window // 2, len(levels), len(levels[0])
    squares = [[p * p for p in row] for row in levels]
    statistics = {}
    for y in range(height):
        for x in range(width):
            near = clipped(levels, y, x, reach)
            n, s = sum(map(len, near)), sum(map(sum, near))
            q = sum(map(sum, clipped(squares, y, x, reach)))
            mean = 256 * s // n
            statistics[y, x] = mean, isqrt(max(65536 * q // n - mean * mean, 0))
    widest = max(d for _, d in statistics.values())
    r = min(max(widest, 16 * 256), 128 * 256)
    otsu_level = min(otsu(flat(levels)), 128)

    def white(y, x):
        mean, deviation = statistics[y, x]
        if deviation < 8 * 256:
            return levels[y][x] > otsu_level
        return 256 * levels[y][x] >= mean - mean * k // 100 + mean * k * deviation // (100 * r)

    return [[white(y, x) for x in range(width)] for y in range(height)]


def searched(image):
    return image["bits"] in (1, 4, 8, 24, 32)


def find_threshold(image):
    if not searched(image):
        return WRONG_DEPTH, image
    return 127 if image["bits"] == 1 else otsu(flat(greys(image))), image


def adaptive_mono(image, method, window=0, k=0):
    if not searched(image):
        return WRONG_DEPTH, image
    if image["bits"] == 1:
        return 0, image
    levels = greys(image)
    if method == 1:
        return 0, mono(image, sauvola(levels, window or 25, k or 34))
    level = otsu(flat(levels))
    if method == 2:
        levels = levelled(levels)
        level = min(max(otsu(flat(levels)), 90), 190)
    return 0, mono(image, [[p > level for p in row] for row in levels])


def level_background(image):
    bits, palette = image["bits"], image["palette"]
    if bits not in (8, 24):
        return WRONG_DEPTH, image
    if bits == 8 and any(len(set(entry)) > 1 for entry in palette):
        return NOT_GREY, image
    pixels = grid(image)
    if bits == 8:
        index = [min(range(256), key=lambda i: (abs(palette[i][0] - v), i)) for v in range(256)]
        made = levelled([[palette[p][0] for p in row] for row in pixels])
        return from_grid(image, [[index[v] for v in row] for row in made])
    channels = [levelled([[p >> shift & 255 for p in row] for row in pixels])
                for shift in (0, 8, 16)]
    return from_grid(image, [[b | g << 8 | r << 16 for b, g, r in zip(*rows)]
                             for rows in zip(*channels)])
