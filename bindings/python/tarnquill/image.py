"""The class Image: opening, pixels, saving. What changes pixels is in _operations.py."""
from __future__ import annotations

import ctypes
import os
import secrets
import shutil
import struct
import weakref
from typing import TYPE_CHECKING, Any, Iterator, NamedTuple, Sequence

from . import _native as native
from ._library import (Context, Error, Handle, Info, Source, appends, block_of, check, code_of, context, count_pages,
                       info, name_of, stream_of)
from ._operations import Operations

if TYPE_CHECKING:
    import numpy
    import PIL.Image  # type: ignore[import]

BGRX = 200  # biCompression of 32 bits that are blue, green, red and a byte that says nothing
HEADER = struct.Struct("<IiiHHIIiiII")
GREYS = {bits: [(level,) * 3 for level in range(0, 256, 255 // ((1 << bits) - 1))] for bits in (1, 4, 8)}


class Damage(NamedTuple):
    """Rows, from 0, that are not as they were; -1 for damage behind the picture."""
    first: int
    last: int
    height: int
    reason: Error


class _Pixels:
    """Memory of an image under an array. While there is one, the image keeps its pixels."""

    def __init__(self, handle: Handle, interface: dict[str, Any]) -> None:
        self._handle = handle
        self.__array_interface__ = interface


def _row_bytes(width: int, bits: int) -> int:
    return (width * bits + 31) // 32 * 4


class Image(Operations):
    """A picture. Several threads may use it, one at a time: the others wait."""

    def __init__(self, handle: Handle, source: Source | None = None) -> None:
        """For open, from_numpy and from_pil."""
        self._handle: Handle | None = handle
        self._source = source
        self._view: weakref.ref[_Pixels] | None = None

    # ---- Opening

    @classmethod
    def open(cls, source: Source, page: int = 0) -> Image:
        """A page, from 0, of a file: its name, or its bytes. A damaged file gives what is left of it, see
        `damage`, unless the option "strict" is set."""
        if page < 0 or page > 0 and page >= count_pages(source):  # files of one page would give that one
            raise Error(native.IMG_PAGE_PAST_END, f"page {page}")
        return cls._open(source, page)

    @classmethod
    def _open(cls, source: Source, page: int) -> Image:
        own = context()
        with own as api:
            if isinstance(source, (str, os.PathLike)):
                with stream_of(source) as stream:
                    return cls(_made(own, api.IMG_decompress_bitmap_fd(stream, 0, page), source), source)
            block = block_of(source)
            return cls(_made(own, api.IMG_decompress_bitmap_block(block, len(block), page)), block)

    @classmethod
    def open_all(cls, source: Source) -> Iterator[Image]:
        """All pages, one after the other."""
        for page in range(count_pages(source)):
            yield cls._open(source, page)

    @staticmethod
    def info(source: Source, page: int = 0) -> Info:
        """What the file says about a page; nothing is decoded."""
        return info(source, page)

    @classmethod
    def new(cls, width: int, height: int, bits: int = 24, palette: Sequence[tuple[int, int, int]] | None = None,
            dpi: float | tuple[float, float] | None = None, inks: bool = False) -> Image:
        """All pixels 0. Palettes are (red, green, blue), grey where none is given. 32 bits are blue, green,
        red, unused, or inks: cyan, magenta, yellow, black."""
        entries = [*(palette if palette is not None else GREYS.get(bits, []))][:256]
        header = HEADER.pack(40, width, height, 1, bits, BGRX if bits == 32 and not inks else 0, 0, 0, 0, 0, 0)
        colours = b"".join(bytes((blue, green, red, 0)) for red, green, blue in entries)
        own = context()
        with own as api:
            made = cls(_made(own, api.IMG_create_handle_shell(header + colours.ljust(1024, b"\0"))))
        if dpi is not None:
            made.dpi = dpi  # type: ignore[assignment]
        return made

    def copy(self) -> Image:
        """Another image of the same pixels."""
        header = self._header()
        with self._entered():
            palette = self.palette if header.bits <= 8 else None
            made = Image.new(header.width, header.height, header.bits, palette, self.dpi,
                             inks=header.compression != BGRX)
            if header.bits == 1:
                made._put(self._mono_rows())
                if header.compression != 0:
                    made._call("IMG_dib_to_runs")
            else:
                address, stride = self._rows()
                made._put(ctypes.string_at(address, stride * header.height))
        return made

    # ---- What it is

    @property
    def width(self) -> int:
        return self._header().width

    @property
    def height(self) -> int:
        return self._header().height

    @property
    def bits(self) -> int:
        """A pixel: 1, 4, 8, 16, 24 or 32."""
        return self._header().bits

    @property
    def size(self) -> tuple[int, int]:
        return self._header()[:2]

    @property
    def dpi(self) -> tuple[float, float]:
        """Dots per inch, 0 where they are not known."""
        x, y = ctypes.c_int32(), ctypes.c_int32()
        self._call("IMG_get_resolution", ctypes.byref(x), ctypes.byref(y))
        return x.value / 1000, y.value / 1000

    @dpi.setter
    def dpi(self, value: float | tuple[float, float]) -> None:
        x, y = value if isinstance(value, tuple) else (value, value)
        self._call("IMG_set_resolution", round(x * 1000), round(y * 1000))

    @property
    def pages(self) -> int:
        """Of the file that it was opened from; 1 for others."""
        return 1 if self._source is None else count_pages(self._source)

    @property
    def palette(self) -> list[tuple[int, int, int]]:
        """(red, green, blue) of each index; empty above 8 bits."""
        if self.bits > 8:
            return []
        room = ctypes.create_string_buffer(1024)
        count = self._call("IMG_get_bitmap_palette", room)
        return [(room.raw[i + 2], room.raw[i + 1], room.raw[i]) for i in range(0, 4 * count, 4)]

    @property
    def damage(self) -> Damage | None:
        """What was lost when it was read."""
        first, last, height, reason = (ctypes.c_int32() for _ in range(4))
        if self._call("IMG_get_damage", None, ctypes.byref(reason)) == 0:
            return None
        self._call("IMG_get_damaged_rows", ctypes.byref(first), ctypes.byref(last), ctypes.byref(height))
        return Damage(first.value, last.value, height.value, Error(reason.value))

    def __repr__(self) -> str:
        if self._handle is None:
            return "<tarnquill.Image, closed>"
        header = self._header()
        return f"<tarnquill.Image {header.width} x {header.height}, {header.bits} bits>"

    # ---- Pixels

    def numpy(self) -> numpy.ndarray[Any, Any]:
        """The pixels, from the top row.

        8, 16, 24 and 32 bits: the image's own memory, without a copy, which may be written to. Shapes are
        (height, width), or (height, width, 3 or 4) in the order blue, green, red: numpy()[..., ::-1] is the
        other way round, without a copy, too. Rows lie from the bottom up, so that the first stride is
        negative. 8 bits are indices of `palette`. While such an array is there, what would replace the pixels is a
        BufferError; closing the image leaves the array alone.
        1 and 4 bits: a COPY, one element for each pixel: bool (True is white), and indices."""
        import numpy
        header = self._header()
        with self._entered():
            if header.bits in (1, 4):
                packed = numpy.frombuffer(self._mono_rows() if header.bits == 1 else self._packed_rows(), numpy.uint8)
                rows = packed.reshape(header.height, -1)[::-1]
                if header.bits == 1:
                    return numpy.unpackbits(rows, axis=1, count=header.width).astype(bool)
                pairs: numpy.ndarray[Any, Any] = numpy.stack((rows >> 4, rows & 15), -1)
                return pairs.reshape(header.height, -1)[:, :header.width].copy()
            pixels = self._view() if self._view is not None else None
            if pixels is None:
                address, stride = self._rows()
                kind = "<u2" if header.bits == 16 else "|u1"
                samples = (header.bits // 8,) if header.bits > 16 else ()
                pixels = _Pixels(self._live(), {
                    "version": 3, "typestr": kind, "shape": (header.height, header.width, *samples),
                    "strides": (-stride, header.bits // 8, *((1,) if samples else ())),
                    "data": (address + stride * (header.height - 1), False)})
                self._view = weakref.ref(pixels)
            array: numpy.ndarray[Any, Any] = numpy.asarray(pixels)
            return array

    def __array__(self, dtype: Any = None) -> Any:
        return self.numpy() if dtype is None else self.numpy().astype(dtype)

    @classmethod
    def from_numpy(cls, array: Any, dpi: float | tuple[float, float] | None = None,
                   palette: Sequence[tuple[int, int, int]] | None = None) -> Image:
        """A copy of rows from the top: bool (True is white) gives 1 bit, uint8 8, uint16 16, a third side of 3
        or 4, in the order blue, green, red, 24 or 32."""
        import numpy
        array = numpy.asarray(array)
        kind = (array.dtype.name, array.shape[2:])
        bits = {("bool", ()): 1, ("uint8", ()): 8, ("uint16", ()): 16, ("uint8", (3,)): 24, ("uint8", (4,)): 32}.get(
            kind)
        if bits is None or array.ndim < 2:
            raise ValueError(f"no image has pixels of {array.dtype} and shape {array.shape}")
        made = cls.new(array.shape[1], array.shape[0], bits, palette, dpi)
        if bits > 1:
            made.numpy()[...] = array
        else:
            rows = numpy.zeros((array.shape[0], _row_bytes(array.shape[1], 1)), numpy.uint8)
            packed = numpy.packbits(array, axis=1)
            rows[::-1, :packed.shape[1]] = packed
            made._put(rows.tobytes())
        return made

    def to_pil(self) -> PIL.Image.Image:
        """A copy for Pillow, in mode 1, L, P, I;16, RGB or CMYK."""
        import PIL.Image
        header, palette = self._header(), self.palette
        with self._entered():
            data = self._mono_rows() if header.bits == 1 else self._packed_rows()
        modes = {1: ("1", "1"), 4: ("P", "P;4"), 8: ("P", "P"), 16: ("I;16", "I;16"), 24: ("RGB", "BGR"),
                 32: ("RGB", "BGRX") if header.compression == BGRX else ("CMYK", "CMYK")}
        mode, raw = modes[header.bits]
        image = PIL.Image.frombytes(mode, header[:2], data, "raw", raw, _row_bytes(header.width, header.bits), -1)
        if mode == "P":
            image.putpalette([level for entry in palette for level in entry])
            if palette == GREYS[header.bits]:
                image = image.convert("L")
        if any(self.dpi):
            image.info["dpi"] = self.dpi
        return image

    @classmethod
    def from_pil(cls, image: PIL.Image.Image) -> Image:
        """A copy of an image of Pillow's; what is transparent stands on white."""
        import PIL.Image
        if image.mode in ("RGBA", "LA", "PA") or image.mode == "P" and "transparency" in image.info:
            solid = image.convert("RGBA")
            image = PIL.Image.alpha_composite(PIL.Image.new("RGBA", solid.size, "white"), solid).convert("RGB")
        kinds = {"1": (1, "1"), "L": (8, "L"), "P": (8, "P"), "I;16": (16, "I;16"), "RGB": (24, "BGR"),
                 "CMYK": (32, "CMYK")}
        if image.mode not in kinds:
            image = image.convert("L" if image.mode in ("I", "F") else "RGB")
        bits, raw = kinds[image.mode]
        levels = image.getpalette() if image.mode == "P" else None
        palette = [(levels[i], levels[i + 1], levels[i + 2]) for i in range(0, len(levels), 3)] if levels else None
        dpi = image.info.get("dpi")
        made = cls.new(image.width, image.height, bits, palette, dpi and (float(dpi[0]), float(dpi[1])), inks=True)
        made._put(image.tobytes("raw", raw, _row_bytes(image.width, bits), -1))
        return made

    # ---- Saving

    def save(self, path: str | os.PathLike[str], code: int | str | None = None, *, append: bool = False,
             quality: int = 75) -> Image:
        """To a file, which is replaced when the new one is whole; with `append` a page is added to it.

        code: a number, or a name as `tarnquill formats` shows them ("tiff-g4"); None: by the end of the path.
        quality: of jpeg and pdf, 1 to 100."""
        number = code_of(code)
        path = os.path.realpath(path)
        what = os.fspath(path)
        replaces = os.path.isfile(path) and not append
        if append and os.path.exists(path) and not appends(path, number):
            raise Error(native.IMG_UNSUPPORTED, f"{what}: no page can be added")
        folder, name = os.path.split(path)
        stem, ending = os.path.splitext(name)
        target = os.path.join(folder, f".{stem}-{secrets.token_hex(4)}{ending}") if replaces else path
        try:
            with self._entered() as api:
                api.IMGLOW_set_comp_quality(quality)
                check(api.IMG_save_bitmap(self._live().number, name_of(target), number), what)
            if replaces:
                shutil.copymode(path, target)
                os.replace(target, path)
        except BaseException:
            if replaces and os.path.exists(target):
                os.remove(target)
            raise
        return self

    def to_bytes(self, code: int | str, *, quality: int = 75) -> bytes:
        """The file that save would write."""
        number = code_of(code)
        room = 65536 + _row_bytes(self.width, self.bits) * self.height
        while True:
            block = bytearray(room)
            with self._entered() as api:
                api.IMGLOW_set_comp_quality(quality)
                written = api.IMG_save_bitmap_block(self._live().number, (ctypes.c_char * room).from_buffer(block),
                                                    room, number)
            if written != native.IMG_WRITE_FAILED or room == 0x7FFFFFFF:
                return bytes(memoryview(block)[:check(written)])
            room = min(4 * room, 0x7FFFFFFF)

    # ---- The end

    def close(self) -> None:
        """Gives the memory back, when no array uses it any more."""
        self._handle = None

    def __enter__(self) -> Image:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    # ---- Within

    def _live(self) -> Handle:
        if self._handle is None:
            raise Error(native.IMG_BAD_HANDLE, "closed")
        return self._handle

    def _entered(self) -> Context:
        return self._live().context

    def _call(self, name: str, *arguments: Any) -> int:
        handle = self._live()
        with handle.context as api:
            return check(getattr(api, name)(handle.number, *arguments), name)

    def _change(self, name: str, *arguments: Any) -> int:
        with self._entered():
            if self._view is not None and self._view() is not None:
                raise BufferError("an array uses the pixels of this image: copy it, or delete it before")
            return self._call(name, *arguments)

    def _header(self) -> _Header:
        block = ctypes.create_string_buffer(native.IMG_HEADER_BLOCK_BYTES)
        self._call("IMGLOW_get_bitmap_header", block)
        fields = HEADER.unpack_from(block)
        return _Header(fields[1], fields[2], fields[4], fields[5])

    def _rows(self) -> tuple[int, int]:
        """Where the rows lie, the bottom one first, and the bytes of one; for plain pixels."""
        width, height, bits = (ctypes.c_int32() for _ in range(3))
        handle = self._live()
        with handle.context as api:
            address = api.IMG_bitmap_info(handle.number, *map(ctypes.byref, (width, height, bits)))
        if address in (native.IMG_BAD_HANDLE, native.IMG_OUT_OF_MEMORY):
            raise Error(address)
        entries = {24: 0, 32: 0}.get(bits.value, min(1 << bits.value, 256))
        return address + 40 + 4 * entries, _row_bytes(width.value, bits.value)

    def _packed_rows(self) -> bytes:
        address, stride = self._rows()
        return ctypes.string_at(address, stride * self.height)

    def _mono_rows(self) -> bytes:
        """Of 1 bit, also of what is held as run lists, which stays so."""
        rows = _row_bytes(self.width, 1) * self.height
        block = ctypes.create_string_buffer(48 + rows)
        self._call("IMG_copy_dib", block, len(block))
        return block.raw[48:48 + rows]

    def _put(self, rows: bytes) -> None:
        address, stride = self._rows()
        if len(rows) != stride * self.height:
            raise ValueError("rows of another size")
        ctypes.memmove(address, rows, len(rows))


class _Header(NamedTuple):
    width: int
    height: int
    bits: int
    compression: int


def _made(own: Context, number: int, source: Source = "") -> Handle:
    return Handle(own, check(number, os.fspath(source) if isinstance(source, (str, os.PathLike)) else ""))
