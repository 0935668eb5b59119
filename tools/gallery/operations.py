"""The sheet of operations: a picture before and after each of them."""

# Title, source, options. Sources are made by `sources`.
OPERATIONS = [
    ("Grey", "photo", ["--gray"]),
    ("16 colours of its own", "photo", ["--colors", "16"]),
    ("16 fixed colours, diffusion", "dots", ["--dither", "diffusion-color"]),
    ("Black and white, diffusion", "dots", ["--dither", "diffusion"]),
    ("Black and white, halftone", "dots", ["--dither", "halftone"]),
    ("Black and white, ordered", "dots", ["--dither", "bayer"]),
    ("Black and white, one level", "photo", ["--threshold", "auto"]),
    ("Brighter and steeper", "photo", ["--tone", "12,30,120"]),
    ("Levels spread evenly", "photo", ["--equalize"]),
    ("Negative", "photo", ["--invert"]),
    ("Sharper", "soft", ["--effect", "unsharp", "--radius", "250", "--amount", "180"]),
    ("Specks of noise removed", "noisy", ["--effect", "median"]),
    ("Edges", "photo", ["--effect", "edges"]),
    ("Turned by any angle", "photo", ["--rotate", "-7.5", "--keep-size"]),
    ("Even and light paper", "paper", ["--level"]),
    ("Black and white by what is around", "paper", ["--mono", "sauvola"]),
    ("Specks removed from a page", "dusty", ["--despeckle", "--speck-size", "5x5"]),
    ("Ruled lines removed", "form", ["--remove-lines"]),
]


def sprinkled(data):
    """A BMP file of 24 bits with specks that the same file always gets."""
    data, at = bytearray(data), 54
    state = 1
    while at + 3 < len(data):
        state = state * 1103515245 + 12345 & 0x7FFFFFFF
        at += 3 * (20 + (state >> 16) % 60)
        level = 255 * (state >> 12 & 1)
        data[at:at + 3] = bytes([level] * 3)[:max(0, len(data) - at)]
    return data


def sources(program, photo):
    program.convert(photo, "photo.bmp", "--size", "720x540")
    program.convert(photo, "dots.bmp", "--size", "360x270")
    program.convert("photo.bmp", "soft.bmp", "--effect", "gauss", "--radius", "160")
    (program.work / "noisy.bmp").write_bytes(sprinkled((program.work / "photo.bmp").read_bytes()))
    program.convert("straight.bmp", "paper.bmp", "--crop", "600,1610,960,720", "--size", "720x540")
    program.convert("straight.bmp", "dusty.bmp", "--mono", "background", "--crop", "180,1100,960,720")
    program.convert("page.tif", "form.bmp", "--crop", "180,770,1200,900")


def build(program, pairs, photo):
    sources(program, photo)
    before, cards = {}, []
    for number, (title, source, options) in enumerate(OPERATIONS):
        shrink = ["--size", "720x540"] if source in ("form", "dusty") else []
        if source not in before:
            before[source], _ = program.picture(f"{source}.bmp", f"before-{source}.png", *shrink)
        after, outcome = program.picture(f"{source}.bmp", f"after-{number:02}.png", *options, *shrink)
        if after is None:
            raise SystemExit(f"{title}: {outcome.says}")
        cards.append(pairs.pair(before[source], after, title, " ".join(options), source))
    return {"operations": "".join(cards), "operation_count": len(cards)}
