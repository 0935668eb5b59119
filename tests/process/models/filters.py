"""What filters make of an image (see operations.py): each level from the window around it."""
from decimal import Decimal, getcontext
import functools
from fractions import Fraction
from math import ceil, floor

from geometry import NOT_GREY, from_grid, grid, is_grey
from operations import WRONG_DEPTH
from tone import clamp, has_inks, has_levels, nearest_level

getcontext().prec = 40
MEDIAN, DARKEST, LIGHTEST = 2, 3, 4


def planes(image):
    """Levels, or each channel, as matrices."""
    bits = image["bits"]
    if bits > 8:
        return [[[v >> 8 * c & 255 for v in row] for row in grid(image)] for c in range(bits // 8)]
    levels = [0, 255] if bits == 1 else [entry[0] for entry in image["palette"]]
    return [[[levels[v] for v in row] for row in grid(image)]]


def from_planes(image, made):
    bits = image["bits"]
    if bits > 8:
        return from_grid(image, [[sum(v << 8 * c for c, v in enumerate(pixel)) for pixel in zip(*rows)]
                                 for rows in zip(*made)])
    if bits == 1:
        return from_grid(image, [[int(v >= 128) for v in row] for row in made[0]])
    nearest = [nearest_level(image, v) for v in range(256)]
    return from_grid(image, [[nearest[v] for v in row] for row in made[0]])


def refusal(image, takes_mono):
    if not has_levels(image) and not (takes_mono and image["bits"] == 1):
        return WRONG_DEPTH
    return NOT_GREY if image["bits"] in (4, 8) and not is_grey(image) else 0


def by_window(plane, aside, above, made):
    """`made` gets the rows of each window; edges repeat."""
    h, w = len(plane), len(plane[0])
    wide = [[row[min(max(x, 0), w - 1)] for x in range(-aside, w + aside)] for row in plane]
    rows = [wide[min(max(y, 0), h - 1)] for y in range(-above, h + above)]
    return [[made([row[x:x + 2 * aside + 1] for row in rows[y:y + 2 * above + 1]]) for x in range(w)]
            for y in range(h)]


@functools.cache
def bell(deviation):
    """14 bits, each side rounded from its far end."""
    sigma = Decimal(deviation) / 100
    values = [(-Decimal(j * j) / (2 * sigma * sigma)).exp() for j in range(ceil(3 * sigma) + 1)]
    total = 2 * sum(values) - values[0]
    beyond = [floor(sum(values[j:]) * 2 ** 14 / total + Decimal("0.5")) for j in range(1, len(values))] + [0]
    side = [a - b for a, b in zip(beyond, beyond[1:])]
    return side[::-1] + [2 ** 14 - 2 * beyond[0]] + side


def gauss(plane, deviation):
    weights = bell(deviation)
    radius = len(weights) // 2

    def weighted(values):
        return sum(w * v for w, v in zip(weights, values))
    along = by_window(plane, radius, 0, lambda window: weighted(window[0]) + 128 >> 8)
    return by_window(along, 0, radius, lambda window: clamp(weighted([v for v, in window]) + 2 ** 19 >> 20))


def unsharp(plane, deviation, amount):
    parts = (amount * 2048 + 50) // 100  # of 2048
    return [[clamp(v + ((v - s) * parts + 1024 >> 11)) for v, s in zip(*rows)]
            for rows in zip(plane, gauss(plane, deviation))]


def slopes(window):
    (a, b, c), (d, _, f), (g, h, i) = window
    return clamp(max(abs(c + 2 * f + i - a - 2 * d - g), abs(g + 2 * h + i - a - 2 * b - c)))


def windowed(plane, kind, radius, amount, inks):
    if kind == 1:
        return gauss(plane, radius)
    if kind == 5:
        return unsharp(plane, radius, amount)
    pick = {
        0: lambda values: floor(Fraction(sum(values), len(values)) + Fraction(1, 2)),
        MEDIAN: lambda values: sorted(values)[len(values) // 2],
        DARKEST: max if inks else min,
        LIGHTEST: min if inks else max,
    }
    return by_window(plane, radius, radius,
                     slopes if kind == 6 else lambda window: pick[kind](sum(window, [])))


def filtered(image, kind, radius, amount=0):
    refused = refusal(image, kind in (MEDIAN, DARKEST, LIGHTEST))
    if refused:
        return refused, image
    return from_planes(image, [windowed(plane, kind, radius, amount, has_inks(image)) for plane in planes(image)])


def convolved(image, kernel, width, height, divisor, offset):
    refused = refusal(image, False)
    if refused:
        return refused, image

    def result(window):
        total = sum(w * v for w, v in zip(kernel, sum(window, [])))
        return clamp(floor(Fraction(total, divisor) + offset + Fraction(1, 2)))
    return from_planes(image, [by_window(plane, width // 2, height // 2, result) for plane in planes(image)])
