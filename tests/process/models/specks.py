"""What the removal of specks makes of an image (see operations.py)."""
from geometry import from_grid, grid
from operations import WRONG_DEPTH

CORNERS = [(-1, -1), (0, -1), (1, -1), (-1, 0), (1, 0), (-1, 1), (0, 1), (1, 1)]
SIDES = [(0, -1), (-1, 0), (1, 0), (0, 1)]


class Component:
    def __init__(self, pixels):
        self.pixels = pixels
        xs, ys = zip(*pixels)
        self.left, self.top, self.right, self.bottom = min(xs), min(ys), max(xs), max(ys)
        self.width, self.height = self.right - self.left + 1, self.bottom - self.top + 1


def components(pixels, value, steps):
    """By flooding."""
    height, width = len(pixels), len(pixels[0])
    seen, found = set(), []
    for start in ((x, y) for y in range(height) for x in range(width)):
        if start in seen or pixels[start[1]][start[0]] != value:
            continue
        reached, waiting = {start}, [start]
        while waiting:
            x, y = waiting.pop()
            for dx, dy in steps:
                place = (x + dx, y + dy)
                if 0 <= place[0] < width and 0 <= place[1] < height and place not in reached \
                        and pixels[place[1]][place[0]] == value:
                    reached.add(place)
                    waiting.append(place)
        seen |= reached
        found.append(Component(sorted(reached)))
    return found


def marks(small, others, unit):
    """Those of the small components that belong to writing."""
    def is_round(c):
        longer, shorter = max(c.width, c.height), min(c.width, c.height)
        return longer >= 2 and longer >= unit / 2 and longer <= 2 * shorter

    letters = [c for c in others if c.height <= 18 * unit]

    def over_or_under(c, letter):
        return letter.left <= c.right and c.left <= letter.right and letter.top - c.bottom <= 2 * unit \
            and c.top - letter.bottom <= unit

    def on_line(c, letter):
        if abs(letter.bottom - c.bottom) > 1:
            return False
        return letter.left < c.left <= letter.right + 1 + 5 * unit \
            or letter.right > c.right and letter.left <= c.right + 1 + 3 * unit

    def stands(c):
        return is_round(c) and any(over_or_under(c, o) or on_line(c, o) for o in letters)

    def alike(a, b):
        return a is not b and abs(a.width - b.width) <= 1 and abs(a.height - b.height) <= 1

    def in_row(c):
        dots = [o for o in small if max(o.width, o.height) >= max(2, unit / 4)]
        return c in dots and 2 <= sum(
            alike(o, c) and abs(o.bottom - c.bottom) <= 1 and o.left < c.right + 1 + 12 * unit
            and o.right + 1 > c.left - 12 * unit for o in dots)

    def upper(c):
        return is_round(c) and any(
            alike(o, c) and o.left <= c.right and o.right >= c.left
            and 1 <= o.bottom - c.bottom <= 4 * unit and stands(o) for o in small)

    return [c for c in small if stands(c) or in_row(c) or upper(c)]


def despeckle(image, width, height, mode):
    if image["bits"] != 1:
        return WRONG_DEPTH, image
    pixels, removed = [list(row) for row in grid(image)], 0
    w, h = len(pixels[0]), len(pixels)
    width, height = min(width, w), min(height, h)

    def remove(value, steps, spare=lambda small, others: []):
        found = components(pixels, value, steps)
        small = [c for c in found if c.width <= width and c.height <= height]
        spared = spare(small, [c for c in found if c not in small])
        gone = [c for c in small if c not in spared]
        if value == 1:  # with black all around
            gone = [c for c in gone if c.left and c.top and c.right < w - 1 and c.bottom < h - 1]
        for c in gone:
            for x, y in c.pixels:
                pixels[y][x] = 1 - value
        return len(gone)

    if mode & 1:
        keep = (lambda small, others: marks(small, others, max(width, height))) if mode & 4 else \
            (lambda small, others: [])
        removed += remove(0, CORNERS, keep)
    if mode & 2:
        removed += remove(1, SIDES)
    return removed, from_grid(image, pixels)[1]
