"""What changes an image, or looks at it: methods with the names of the exports, whose manual is tarnquill.h.

Whatever changes an image returns it, so that calls can be chained; what else the export has told (how many specks
have gone, whether a page was turned) is then in `result`. On failure the image stays as it was.

Angles are degrees clockwise. A colour is a palette index, a sample of 16 bits, or 0xBBGGRR; -1: paper.
"""
from __future__ import annotations

import ctypes
from typing import Any, NamedTuple, Sequence, TypeVar

Self = TypeVar("Self", bound="Operations")

METHODS = ("nearest", "box", "triangle", "cubic", "lanczos", "mono")
FILTERS = ("box", "gauss", "median", "darkest", "lightest", "unsharp", "edges")
MONO = ("otsu", "sauvola", "background")


class Turn(NamedTuple):
    """An angle in degrees that makes a page straight, and how sure that is: 1 is enough to turn it."""
    angle: float
    confidence: float


class Box(NamedTuple):
    x: int
    y: int
    width: int
    height: int


def _number(name: str, names: Sequence[str]) -> int:
    if name not in names:
        raise ValueError(f"{name!r} is none of {', '.join(names)}")
    return list(names).index(name)


class Operations:
    result: int = 0

    def _call(self, name: str, *arguments: Any) -> int:
        raise NotImplementedError

    def _change(self, name: str, *arguments: Any) -> int:
        raise NotImplementedError

    def _do(self: Self, name: str, *arguments: Any) -> Self:
        self.result = self._change(name, *arguments)
        return self

    def _find(self, name: str, *arguments: Any, outs: int) -> list[int]:
        """What a search has found, behind what it returns."""
        values = [ctypes.c_int32() for _ in range(outs)]
        found = self._call(name, *arguments, *map(ctypes.byref, values))
        return [found, *(value.value for value in values)]

    # ---- Other places

    def flip(self: Self) -> Self:
        """Top to bottom."""
        return self._do("IMG_flip_bitmap")

    def mirror(self: Self) -> Self:
        """Left to right."""
        return self._do("IMG_mirror_bitmap")

    def orient(self: Self, value: int) -> Self:
        """Undoes an orientation, 1 to 8, as TIFF counts them."""
        return self._do("IMG_orient_bitmap", value)

    def crop(self: Self, x: int, y: int, width: int, height: int) -> Self:
        return self._do("IMG_crop_bitmap", x, y, width, height)

    def extend(self: Self, left: int, top: int, right: int, bottom: int, colour: int = -1) -> Self:
        """Margins in pixels; negative ones are taken away."""
        return self._do("IMG_extend_bitmap", left, top, right, bottom, colour)

    def rotate(self: Self, angle: float, colour: int = -1, *, keep_size: bool = False, nearest: bool = False) -> Self:
        """To hundredths of a degree."""
        return self._do("IMG_rotate_bitmap", round(angle * 100), colour, keep_size + 2 * nearest)

    def resize(self: Self, width: int, height: int, method: str = "box") -> Self:
        """METHODS; "mono" is "box" and then 1 bit."""
        return self._do("IMG_resize_bitmap", width, height, _number(method, METHODS))

    def resample(self: Self, x_dpi: int, y_dpi: int | None = None, method: str = "box") -> Self:
        """To dots per inch: fax pages become square."""
        return self._do("IMG_resample_bitmap", x_dpi, x_dpi if y_dpi is None else y_dpi, _number(method, METHODS))

    # ---- Tone

    def invert(self: Self) -> Self:
        return self._do("IMG_invert_bitmap")

    def tone(self: Self, brightness: int = 0, contrast: int = 0, gamma: float = 1.0) -> Self:
        """-100 to 100 each; a gamma above 1 is lighter."""
        return self._do("IMG_tone_bitmap", brightness, contrast, round(gamma * 100))

    def tone_table(self: Self, table: bytes | Sequence[int]) -> Self:
        """256 levels for all channels, or 768 for blue, green and red."""
        if len(table) not in (256, 768):
            raise ValueError("256 or 768 levels")
        name = "IMG_tone_table" if len(table) == 256 else "IMG_tone_table3"
        return self._do(name, (ctypes.c_uint8 * len(table))(*table))

    def get_histogram(self, channel: int = 0) -> list[int]:
        """256 counts of 0 grey, 1 red, 2 green, 3 blue."""
        counts = (ctypes.c_uint32 * 256)()
        self._call("IMG_get_histogram", channel, counts)
        return list(counts)

    def auto_levels(self: Self, clip: float = 0.005) -> Self:
        """A share of the levels, below one half, that may become black, and white."""
        return self._do("IMG_auto_levels", round(clip * 10000))

    def equalize(self: Self) -> Self:
        return self._do("IMG_equalize_bitmap")

    def filter(self: Self, kind: str, radius: float = 1, amount: int = 100) -> Self:
        """FILTERS; the radius is in pixels, of "gauss" and "unsharp" to hundredths; amount is percent of
        "unsharp"."""
        number = _number(kind, FILTERS)
        unit = 100 if kind in ("gauss", "unsharp") else 1
        return self._do("IMG_filter_bitmap", number, round(radius * unit), amount)

    def convolve(self: Self, kernel: Sequence[Sequence[int]], divisor: int = 0, offset: int = 0) -> Self:
        """Rows of weights; a divisor of 0 is their sum, or 1."""
        weights = [weight for row in kernel for weight in row]
        width = len(weights) // max(len(kernel), 1)
        if any(len(row) != width for row in kernel):
            raise ValueError("rows of different lengths")
        return self._do("IMG_convolve_bitmap", (ctypes.c_int32 * len(weights))(*weights), width, len(kernel),
                        divisor or sum(weights) or 1, offset)

    # ---- Fewer and more colours

    def quantize(self: Self, colours: int = 256, dither: bool = False) -> Self:
        """From 24 or 32 bits to a palette of 4 or 8; `result` is its entries."""
        return self._do("IMG_quantize_bitmap", 4 if colours <= 16 else 8, colours, int(dither))

    def color_gray(self: Self) -> Self:
        return self._do("IMG_color_gray")

    def mediancut_color(self: Self) -> Self:
        return self._do("IMG_mediancut_color")

    def octree_color(self: Self, bits: int = 8, colours: int = 256) -> Self:
        return self._do("IMG_octree_color", bits, None, colours)

    def popularity_color(self: Self) -> Self:
        return self._do("IMG_popularity_color")

    def bayer_color(self: Self) -> Self:
        return self._do("IMG_bayer_color")

    def diffusion_color(self: Self) -> Self:
        return self._do("IMG_diffusion_color")

    def bayer_mono(self: Self) -> Self:
        return self._do("IMG_bayer_mono")

    def halftone_mono(self: Self) -> Self:
        return self._do("IMG_halftone_mono")

    def diffusion_mono(self: Self) -> Self:
        return self._do("IMG_diffusion_mono")

    def thresh_mono(self: Self, threshold: int = -1) -> Self:
        """White is what is brighter; see find_threshold."""
        return self._do("IMG_thresh_mono", threshold)

    def adaptive_mono(self: Self, method: str = "sauvola", window: int = 0, k: float = 0) -> Self:
        """MONO: one level, a level for each pixel, one level on paper that was made even. k: 0.01 to 1."""
        return self._do("IMG_adaptive_mono", _number(method, MONO), window, round(k * 100))

    def promote(self: Self, bits: int) -> Self:
        """To 8, 24 or 32 bits."""
        if bits not in (8, 24, 32):
            raise ValueError("8, 24 or 32 bits")
        return self._do({8: "IMG_promote_8", 24: "IMG_promote_24", 32: "IMG_promote_32"}[bits])

    # ---- Pages

    def level_background(self: Self) -> Self:
        """Makes paper even and light."""
        return self._do("IMG_level_background")

    def deskew(self: Self, range: float = 15, least: float = 1, colour: int = -1) -> Self:  # noqa: A002
        """Turns a page straight; the range is degrees each way, `least` the confidence from which on to turn.
        `result` is 1 if it was turned."""
        return self._do("IMG_deskew_bitmap", round(range * 100), round(least * 300), colour, None)

    def auto_orient(self: Self, least: float = 1) -> Self:
        """Turns a page of text upright; `result` is 1 if it was turned."""
        return self._do("IMG_auto_orient_bitmap", round(least * 500), None)

    def despeckle(self: Self, width: int = 3, height: int = 3, *, black: bool = True, white: bool = False,
                  spare_dots: bool = True) -> Self:
        """Of 1 bit; `result` is how many specks have gone."""
        mode = black + 2 * white + 4 * (spare_dots and black)
        return self._do("IMG_despeckle_bitmap", width, height, mode)

    def remove_lines(self: Self, length: int = 0, thickness: int = 0, *, lying: bool = True,
                     standing: bool = True) -> Self:
        """Of 1 bit; `result` is how many ruled lines have gone."""
        return self._do("IMG_remove_lines", length, thickness, lying + 2 * standing)

    def autocrop(self: Self, margin: int = 0) -> Self:
        return self._do("IMG_autocrop_bitmap", margin)

    def remove_border(self: Self, colour: int = -1) -> Self:
        """Paints what is dark around a page."""
        return self._do("IMG_remove_border", colour)

    def find_threshold(self) -> int:
        return self._call("IMG_find_threshold")

    def find_skew(self, range: float = 15) -> Turn:  # noqa: A002
        _, angle, confidence = self._find("IMG_find_skew", round(range * 100), outs=2)
        return Turn(angle / 100, confidence / 300)

    def find_orientation(self) -> Turn:
        _, angle, confidence = self._find("IMG_find_orientation", outs=2)
        return Turn(angle / 100, confidence / 500)

    def find_content(self) -> Box | None:
        """Writing and pictures; None for a blank page."""
        found, *box = self._find("IMG_find_content", outs=4)
        return Box(*box) if found else None

    def find_paper(self) -> Box | None:
        """The sheet inside a dark surround; None where there is no surround."""
        found, *box = self._find("IMG_find_paper", outs=4)
        return Box(*box) if found else None

    def is_blank(self, tolerance: int = 0) -> bool:
        return self._call("IMG_is_blank", tolerance) == 1
