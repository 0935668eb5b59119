"""What each operation makes of an image: plain, slow, one pixel after the other.

An image is a dictionary: bits, width, height, compression, palette (list of (b, g, r) for the
depths that have one), rows (from the top, bytes padded to a multiple of 4), in_runs. An operation
returns (status, image); the image is the very same when the status is negative.
"""

WRONG_DEPTH, UNSUPPORTED = -21, -7

DISPERSED = [
    [4, 128, 32, 160, 8, 136, 40, 168], [192, 64, 224, 96, 200, 72, 232, 104],
    [48, 176, 16, 144, 56, 184, 24, 152], [240, 112, 208, 80, 248, 120, 216, 88],
    [12, 140, 44, 172, 4, 132, 36, 164], [204, 76, 236, 108, 196, 68, 228, 100],
    [60, 188, 28, 156, 52, 180, 20, 148], [252, 124, 220, 92, 244, 116, 212, 84]]
CLUSTERED = [
    [136, 192, 160, 128, 116, 60, 92, 124], [168, 232, 224, 212, 84, 20, 28, 40],
    [200, 248, 244, 180, 52, 4, 8, 72], [152, 184, 216, 148, 100, 68, 36, 104],
    [112, 56, 88, 120, 140, 196, 164, 132], [80, 16, 24, 44, 172, 236, 228, 208],
    [48, 0, 12, 76, 204, 252, 240, 176], [96, 64, 32, 108, 156, 188, 220, 144]]

RAMP = [(i, i, i) for i in range(256)]
SIXTEEN = [tuple((128 if i < 8 else 255) if i & bit else 0 for bit in (4, 2, 1)) for i in range(16)]
UNIFORM = [((i & 3) * 255 // 3, (i >> 2 & 7) * 255 // 7, (i >> 5 & 7) * 255 // 7) for i in range(256)]


def system_palette():
    """The colours that a window system reserves, and a grid of 7 x 9 x 4 levels between them."""
    corners = [(0, 0, 0), (128, 0, 0), (0, 128, 0), (128, 128, 0), (0, 0, 128), (128, 0, 128),
               (0, 128, 128), (128, 128, 128), (192, 220, 192), (166, 202, 240)]
    entries = list(corners)  # red, green, blue

    def grid(red, first_green, last_green, skip_first=(), skip_last=()):
        greens = [0, 31, 63, 95, 127, 159, 191, 223, 255]
        for green in greens[greens.index(first_green):greens.index(last_green) + 1]:
            blues = [0, 85, 170, 255]
            if green == first_green:
                blues = [b for b in blues if b not in skip_first]
            if green == last_green:
                blues = [b for b in blues if b not in skip_last]
            entries.extend((red, green, b) for b in blues)

    grid(42, 63, 255, skip_first=(0, 85))
    for red in (85, 127, 170, 212):
        grid(red, 0, 255)
    grid(255, 0, 255, skip_first=(0, 255), skip_last=(0, 255))
    entries += [(204, 204, 255), (255, 204, 255), (51, 255, 255), (102, 255, 255), (153, 255, 255),
                (204, 255, 255)]
    grid(0, 127, 255, skip_last=(0, 255))
    grid(42, 0, 63, skip_last=(170, 255))
    entries += [(255, 251, 240), (160, 160, 164), (128, 128, 128), (255, 0, 0), (0, 255, 0),
                (255, 255, 0), (0, 0, 255), (255, 0, 255), (0, 255, 255), (255, 255, 255)]
    assert len(entries) == 256
    return [(b, g, r) for r, g, b in entries]


SYSTEM = system_palette()


def stride(width, bits):
    return ((width * bits + 7) // 8 + 3) // 4 * 4


def to_zero(numerator, denominator):
    quotient = abs(numerator) // denominator
    return -quotient if numerator < 0 else quotient


def colours(image, y):
    """Row y as (b, g, r)."""
    row, out = image["rows"][y], []
    for x in range(image["width"]):
        bits = image["bits"]
        if bits == 4:
            out.append(image["palette"][row[x // 2] >> 4 if x % 2 == 0 else row[x // 2] & 15])
        elif bits == 8:
            out.append(image["palette"][row[x]])
        elif bits == 16:
            out.append(image["palette"][row[2 * x + 1]])
        elif bits == 24:
            out.append(tuple(row[3 * x:3 * x + 3]))
        elif image["compression"] != 0:
            out.append(tuple(row[4 * x:4 * x + 3]))
        else:
            c, m, yellow, k = row[4 * x:4 * x + 4]
            out.append(tuple(max(255 - ink - k, 0) for ink in (yellow, m, c)))
    return out


def luma(colour):
    b, g, r = colour
    return (11 * b + 30 * r + 59 * g) // 100


def weighted(colour):
    b, g, r = colour
    return 75 * g + 38 * r + 14 * b


def lowered(colour):
    grey = weighted(colour) >> 7
    return grey - 40 if grey > 40 else 0


def result(image, bits, palette, rows):
    compression = 0 if image["compression"] == 200 else image["compression"]
    return {**image, "bits": bits, "palette": palette, "compression": compression, "in_runs": False,
            "rows": [bytes(r) + bytes(stride(image["width"], bits) - len(r)) for r in rows]}


def mono(image, white_rows):
    """Rows of booleans as run lists; what lies behind the width reads as white."""
    rows = []
    for white in white_rows:
        bits = list(white) + [True] * (stride(image["width"], 1) * 8 - len(white))
        rows.append(bytes(sum(bit << (7 - i) for i, bit in enumerate(bits[at:at + 8]))
                          for at in range(0, len(bits), 8)))
    return {**image, "bits": 1, "palette": [(0, 0, 0), (255, 255, 255)], "compression": 99,
            "in_runs": True, "rows": rows}


def nibbles(indices):
    padded = indices + [0] * (len(indices) % 2)
    return bytes(padded[i] << 4 | padded[i + 1] for i in range(0, len(padded), 2))


def nearest(colour, palette, bound):
    best, found = bound, 0
    for i, entry in enumerate(palette):
        distance = sum(((c >> 1) - (p >> 1)) ** 2 for c, p in zip(colour, entry))
        if distance < best:
            best, found = distance, i
    return found


def deep(image):
    return image["bits"] in (4, 8, 16, 24, 32)


# --- Fewer colours ------------------------------------------------------------------------------

def gray(image):
    if not deep(image):
        return UNSUPPORTED, image
    bits = image["bits"]
    formula = {4: lambda c: weighted(c) // 100 & 255, 8: lowered, 16: lowered,
               24: lambda c: weighted(c) >> 7 & 255, 32: lambda c: weighted(c) >> 7 & 255}[bits]
    return 0, result(image, 8, RAMP, [[formula(c) for c in colours(image, y)]
                                      for y in range(image["height"])])


def mediancut(image, mode):
    if not deep(image):
        return WRONG_DEPTH, image
    palette = SYSTEM if mode == 2 else UNIFORM
    height, width = image["height"], image["width"]
    load = lambda y: {x: list(c) for x, c in enumerate(colours(image, min(y, height - 1)))}
    current, following, cache, rows = load(0), load(1), {}, []
    for y in range(height):
        out = []
        for x in range(width):
            value = list(current[x])
            key = value[2] >> 3 << 10 | value[1] >> 3 << 5 | value[0] >> 3
            if key not in cache:
                cache[key] = nearest(value, palette, 1 << 30)
            out.append(cache[key])
            for channel in range(3):
                error = value[channel] - palette[cache[key]][channel]
                for line, dx, part in ((current, 1, 4), (current, 2, 8), (following, -2, 16),
                                       (following, -1, 8), (following, 0, 4), (following, 1, 8),
                                       (following, 2, 16)):
                    if x + dx in line:
                        moved = line[x + dx][channel] + to_zero(error, part)
                        line[x + dx][channel] = min(max(moved, 0), 255)
        rows.append(out)
        current, following = following, load(y + 2)
    return 0, result(image, 8, palette, rows)


class Node:
    def __init__(self, level):
        self.level, self.count, self.sums = level, 0, [0, 0, 0]
        self.children, self.index = [None] * 8, 0


class Tree:
    def __init__(self, most):
        self.most, self.leaves, self.limit = most, 0, 7
        self.root, self.reducible = Node(-1), [[] for _ in range(8)]  # latest last

    @staticmethod
    def path(colour):
        b, g, r = colour
        return [(b >> bit & 1) * 4 + (g >> bit & 1) * 2 + (r >> bit & 1) for bit in range(7, -1, -1)]

    @staticmethod
    def add(node, colour):
        node.count += 1
        node.sums = [s + c for s, c in zip(node.sums, colour)]

    def insert(self, colour):
        path = self.path(colour)
        while True:
            nodes = [self.root]
            for step in path:
                child = nodes[-1].children[step]
                if child is None:
                    break
                nodes.append(child)
                if child.count:
                    return self.add(child, colour)
            if self.leaves < self.most:
                break
            self.reduce()
        if len(nodes) - 1 > self.limit:  # the child that is missing lies below the limit
            node = nodes[self.limit + 1]
        else:
            node = nodes[-1]
            for level in range(len(nodes) - 1, self.limit + 1):
                child = Node(level)
                node.children[path[level]] = child
                if level < self.limit:
                    self.reducible[level].append(child)
                node = child
        self.leaves += 1
        self.add(node, colour)

    def reduce(self):
        level = max(i for i in range(7) if self.reducible[i])
        nodes = self.reducible[level][::-1]
        node = min(nodes, key=lambda n: sum(c.count for c in n.children if c))  # the first of equals
        self.reducible[level].remove(node)
        self.limit = level
        had_pixels = node.count != 0
        for i, child in enumerate(node.children):
            if child is None:
                continue
            node.count += child.count
            node.sums = [a + b for a, b in zip(node.sums, child.sums)]
            node.children[i] = None
            self.leaves -= 1
        if not had_pixels:
            self.leaves += 1

    def palette(self):
        entries = []

        def visit(node):
            if len(entries) == self.most:
                return
            if node.count:
                node.index = len(entries)
                entries.append(tuple(min(s // node.count, 255) for s in node.sums))
            for child in node.children:
                if child:
                    visit(child)

        visit(self.root)
        return entries

    def find(self, colour, entries):
        node = self.root
        for step in self.path(colour):
            node = node.children[step]
            if node is None:
                return nearest(colour, entries, 65535)
            if node.count:
                return node.index
        raise AssertionError("a path without a leaf")


def octree(image, bits, given, count):
    if image["bits"] not in (8, 24, 32):
        return WRONG_DEPTH, image
    most = min(max(count, 8), 256)
    tree = Tree(min(most, 16) if bits == 4 else most)
    if given is not None:
        for colour in given[:count & 0x3FFFFFFF]:
            tree.insert(colour)
    else:
        for y in range(image["height"]):
            for colour in colours(image, y):
                tree.insert(colour)
    entries = tree.palette()
    width, height = image["width"], image["height"]
    load = lambda y: {x: list(c) for x, c in enumerate(colours(image, min(y, height - 1)))}
    current, following, rows = load(0), load(1), []
    for y in range(height):
        step = 1 if y % 2 == 0 else -1
        out = [0] * width
        for x in range(width)[::step]:
            value = [min(max(v, 0), 255) for v in current[x]]
            out[x] = tree.find(value, entries)
            for channel in range(3):
                error = value[channel] - entries[out[x]][channel]
                for line, dx, weight in ((current, step, 7), (following, -step, 3),
                                         (following, 0, 5), (following, step, 1)):
                    if x + dx in line:
                        line[x + dx][channel] += to_zero(error * weight, 16)
        rows.append(nibbles(out) if bits == 4 else out)
        current, following = following, load(y + 2)
    return len(entries), result(image, 4 if bits == 4 else 8, entries, rows)


def popularity(image):
    if image["bits"] < 24:
        return UNSUPPORTED, image
    counts = [0] * 4096
    key_of = lambda c: c[2] >> 4 << 8 | c[1] >> 4 << 4 | c[0] >> 4
    for y in range(image["height"]):
        for colour in colours(image, y):
            counts[key_of(colour)] = (counts[key_of(colour)] + 1) % 65536
    keys = [0]
    for _ in range(255):
        best, chosen = counts[0], 0
        for key in range(4096):
            if counts[key] >= best:
                best, chosen = counts[key], key
        keys.append(chosen)
        counts[chosen] = 0
    parts = [(k & 15, k >> 4 & 15, k >> 8) for k in keys]
    known = {}

    def find(colour):
        pixel = tuple(c >> 4 for c in colour)
        if pixel not in known:
            best, known[pixel] = 65535, 0
            for i, entry in enumerate(parts):
                distance = sum((2 * a - 2 * b) ** 2 for a, b in zip(entry, pixel))
                if distance < best:
                    best, known[pixel] = distance, i
        return known[pixel]

    return 0, result(image, 8, [tuple(p << 4 for p in part) for part in parts],
                     [[find(c) for c in colours(image, y)] for y in range(image["height"])])


# --- Black and white, 16 colours ------------------------------------------------------------------

def ordered(image, matrix):
    if not deep(image):
        return UNSUPPORTED, image
    return 0, mono(image, [[matrix[x % 8][y % 8] < luma(c) for x, c in enumerate(colours(image, y))]
                           for y in range(image["height"])])


def stucki(image):
    if not deep(image):
        return UNSUPPORTED, image
    width, height = image["width"], image["height"]
    load = lambda y: [luma(c) for c in colours(image, y)] if y < height else [0] * width
    lines, rows = [load(0), load(1), load(2)], []
    for y in range(height):
        step = 1 if y % 2 == 0 else -1
        white = [False] * width
        for x in range(width)[::step]:
            error = lines[0][x]
            if error > 127:
                white[x] = True
                error -= 255
            for dy, weights in ((0, {1: 8, 2: 4}), (1, {-2: 2, -1: 4, 0: 8, 1: 4, 2: 2}),
                                (2, {-2: 1, -1: 2, 0: 4, 1: 2, 2: 1})):
                for dx, weight in weights.items():
                    if 0 <= x + step * dx < width:
                        lines[dy][x + step * dx] += to_zero(weight * error, 42)
        rows.append(white)
        lines = lines[1:] + [load(y + 3)]
    return 0, mono(image, rows)


def threshold(image, value):
    if not deep(image):
        return UNSUPPORTED, image
    grey = [[luma(c) for c in colours(image, y)] for y in range(image["height"])]
    table = list(range(256))
    if value == -1:
        counts = [0] * 256
        for row in grey:
            for level in row:
                counts[level] += 1
        total = float(image["width"] * image["height"])
        running = 0.0
        for i in range(256):
            running += counts[i] / total
            table[i] = int(255.0 * running)
        value = 40
    return 0, mono(image, [[table[level] > value for level in row] for row in grey])


def ordered_sixteen(image):
    if not deep(image):
        return UNSUPPORTED, image
    rows = []
    for y in range(image["height"]):
        out = []
        for x, colour in enumerate(colours(image, y)):
            t = DISPERSED[x % 8][y % 8]
            grey = weighted(colour) >> 7 if image["bits"] == 4 else lowered(colour)
            if image["bits"] == 16:
                colour, grey = (0, 0, 0), 0
            b, g, r = colour
            out.append((8 if grey > t + 40 else 0) | (4 if b > t else 0) | (2 if g > t else 0)
                       | (1 if r > t else 0))
        rows.append(nibbles(out))
    return 0, result(image, 4, SIXTEEN, rows)


def diffused_sixteen(image):
    if not deep(image):
        return UNSUPPORTED, image
    height, width = image["height"], image["width"]
    load = lambda y: {x: list(c) for x, c in enumerate(colours(image, min(y, height - 1)))}
    current, following, rows = load(0), load(1), []
    for y in range(height):
        out = []
        for x in range(width):
            b, g, r = current[x]
            index = (4 if b > 180 else 0) | (2 if g > 180 else 0) | (1 if r > 180 else 0)
            if max(b, g, r) > 220:
                index |= 8
            out.append(index)
            for channel in range(3):
                error = current[x][channel] - SIXTEEN[index][channel]
                for line, dx, shift in ((current, 1, 2), (current, 2, 3), (following, -2, 4),
                                        (following, -1, 3), (following, 0, 2), (following, 1, 3),
                                        (following, 2, 4)):
                    if x + dx in line:
                        line[x + dx][channel] += error >> shift
        rows.append(nibbles(out))
        current, following = following, load(y + 2)
    return 0, result(image, 4, SIXTEEN, rows)


# --- More bits ------------------------------------------------------------------------------------

def indices(image, y):
    row, bits = image["rows"][y], image["bits"]
    return [row[x * bits // 8] >> (8 - bits - x * bits % 8) & ((1 << bits) - 1)
            for x in range(image["width"])]


def promote(image, bits):
    source = image["bits"]
    refused = {8: source >= 24, 24: source == 24, 32: source == 32}[bits]
    if refused:
        return UNSUPPORTED, image
    rows = []
    for y in range(image["height"]):
        row = image["rows"][y]
        if source == 16:
            row = row[:2 * image["width"]]
            rows.append(row[1::2] if bits == 8 else row)
        elif source == 24:
            rows.append(b"".join(bytes([0, *row[3 * x:3 * x + 3][::-1]])
                                 for x in range(image["width"])))
        elif source == 32:
            out = []
            for x in range(image["width"]):
                p = row[4 * x:4 * x + 4]
                if image["compression"] != 0:
                    out += [p[3], p[2], p[1]]
                else:
                    out += [max(255 - p[2] - p[3], 0), max(255 - p[1] - p[3], 0),
                            max(255 - p[0] - p[3], 0)]
            rows.append(out)
        elif bits == 8:
            rows.append([255 * i if source == 1 else i for i in indices(image, y)])
        else:
            rows.append([v for i in indices(image, y)
                         for v in (*image["palette"][i], 0)[:bits // 8]])
    palette = (RAMP if image["in_runs"] else image["palette"]) if bits == 8 else []
    return 0, {**result(image, bits, palette, rows), "compression": 0}
