"""What operations on levels make of an image (see operations.py), pixel by pixel."""
from fractions import Fraction
from math import floor

from geometry import from_grid, grid, is_grey
from operations import UNSUPPORTED, WRONG_DEPTH, colours, luma, to_zero


def clamp(value):
    return min(max(value, 0), 255)


def has_inks(image):
    return image["bits"] == 32 and image["compression"] == 0


def has_levels(image):
    return image["bits"] in (4, 8, 24, 32)


def nearest_level(image, level):
    return min(range(len(image["palette"])), key=lambda i: abs(image["palette"][i][0] - level))


def with_pixels(image, change):
    """`change` gets the bytes of a pixel and its place."""
    size = image["bits"] // 8
    return from_grid(image, [[int.from_bytes(bytes(change(pixel.to_bytes(size, "little"), x, y)), "little")
                              for x, pixel in enumerate(row)] for y, row in enumerate(grid(image))])


def changed(image, tables):
    if not has_levels(image):
        return WRONG_DEPTH, image
    if image["bits"] in (4, 8):
        if is_grey(image) and tables[0] == tables[1] == tables[2]:
            levels = [entry[0] for entry in image["palette"]]
            to = [i if tables[0][v] == v else nearest_level(image, tables[0][v]) for i, v in enumerate(levels)]
            return from_grid(image, [[to[i] for i in row] for row in grid(image)])
        palette = [tuple(table[v] for table, v in zip(tables, entry)) for entry in image["palette"]]
        return from_grid(image, grid(image), palette=palette)
    if has_inks(image):
        mean = [(b + g + r + 1) // 3 for b, g, r in zip(*tables)]
        return with_pixels(image, lambda pixel, x, y: [
            255 - table[255 - ink] for table, ink in zip((*reversed(tables), mean), pixel)])
    unused = list(range(256))
    return with_pixels(image, lambda pixel, x, y: [t[v] for t, v in zip((*tables, unused), pixel)])


def tone_table(brightness, contrast, gamma):
    def toned(v):
        away = v - 128
        if contrast <= 0:
            away = to_zero(away * (100 + contrast), 100)
        elif contrast < 100:
            away = to_zero(away * 100, 100 - contrast)
        else:
            away = 127 if away >= 0 else -128
        return clamp(128 + away + to_zero(255 * brightness, 100))

    def power(v):
        """The greatest r for which r - 1/2 is not above 255 (v / 255)^(100 / gamma)."""
        r = 0
        while r < 255 and (2 * r + 1) ** gamma * 510 ** 100 <= (2 * v) ** 100 * 510 ** gamma:
            r += 1
        return r
    powers = [power(v) for v in range(256)]
    return [powers[toned(v)] for v in range(256)]


def tone(image, brightness, contrast, gamma):
    return changed(image, [tone_table(brightness, contrast, gamma)] * 3)


def shown(image):
    return [colour for y in range(image["height"]) for colour in colours(image, y)]


def histogram(image, channel, factor):
    """Drawn as a table, so that an image shows it: the counts times a factor, low byte."""
    if not has_levels(image):
        return WRONG_DEPTH, image
    pick = [luma, lambda c: c[2], lambda c: c[1], lambda c: c[0]][channel]
    values = [pick(colour) for colour in shown(image)]
    return changed(image, [[values.count(v) * factor + v & 255 for v in range(256)]] * 3)


def auto_levels(image, clip):
    if not has_levels(image):
        return WRONG_DEPTH, image
    values = sorted(v for colour in shown(image) for v in colour)
    cut = len(values) * clip // 10000
    low, high = values[cut], values[-1 - cut]
    if low == high:
        return changed(image, [list(range(256))] * 3)
    stretched = [clamp(floor(Fraction(255 * (v - low), high - low) + Fraction(1, 2))) for v in range(256)]
    return changed(image, [stretched] * 3)


def equalize(image):
    if not has_levels(image):
        return WRONG_DEPTH, image
    greys = sorted(luma(colour) for colour in shown(image))
    least = greys.count(greys[0])

    def step(grey):
        """By the share of the pixels that are not brighter, the darkest ones left out."""
        up_to = sum(v <= grey for v in greys) - least
        if up_to < 0 or len(greys) == least:
            return 0
        return floor(Fraction(255 * up_to, len(greys) - least) + Fraction(1, 2)) - grey
    steps = [step(v) for v in range(256)]
    if image["bits"] in (4, 8):
        if is_grey(image):
            return changed(image, [[v + steps[v] for v in range(256)]] * 3)
        palette = [tuple(clamp(v + steps[luma(entry)]) for v in entry) for entry in image["palette"]]
        return from_grid(image, grid(image), palette=palette)
    rows = [colours(image, y) for y in range(image["height"])]

    def moved(pixel, x, y):
        by = steps[luma(rows[y][x])]
        if not has_inks(image):
            return [clamp(v + by) for v in pixel[:3]] + list(pixel[3:])
        black = clamp(pixel[3] - by)
        by -= pixel[3] - black
        return [clamp(ink - by) for ink in pixel[:3]] + [black]
    return with_pixels(image, moved)
