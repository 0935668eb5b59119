"""The loaded library: statuses as exceptions, a context for each thread, options, what files are."""
from __future__ import annotations

import contextlib
import ctypes
import functools
import os
import struct
import sys
import threading
from typing import Any, Iterator, NamedTuple, Union

from . import _native as native

Source = Union[str, "os.PathLike[str]", bytes, bytearray, memoryview]  # a name, or a file's bytes


class Error(Exception):
    """A call that failed; `status` is the library's number (IMG_BAD_IMAGE ...)."""

    def __init__(self, status: int, what: str = "") -> None:
        self.status = status
        self.text = status_text(status)
        super().__init__(f"{what}: {self.text}" if what else self.text)
        self._what = what

    def __reduce__(self) -> Any:  # from another process, too
        return Error, (self.status, self._what)


def _load() -> Any:
    name = "tarnquill.dll" if sys.platform == "win32" else "libtarnquill.so.0"
    beside = os.path.join(os.path.dirname(os.path.abspath(__file__)), name)
    return native.load(os.environ.get("TARNQUILL_LIBRARY") or (beside if os.path.exists(beside) else name))


_api = _load()


def status_text(status: int) -> str:
    return str(_api.IMG_status_text(status).decode())


def library_version() -> str:
    number = _api.IMG_library_version()
    return f"{number // 10000}.{number // 100 % 100}.{number % 100}"


def check(result: int, what: str = "") -> int:
    if result < 0:
        raise Error(result, what)
    return result


# ---- Options. Those of the program `tarnquill`: files are read and written as other programs do it, and what
# strangers' files may cost is limited.

_options = {native.IMG_OPTION_READING: 1, native.IMG_OPTION_DETECTION: 1, native.IMG_OPTION_ORIENTATION: 1,
            native.IMG_OPTION_EXTENDED_FORMATS: 1, native.IMG_OPTION_MAX_PIXELS: 1 << 30,
            native.IMG_OPTION_MAX_KBYTES: 2 << 20, native.IMG_OPTION_MAX_SCANS: 500, native.IMG_OPTION_JPEG_WRITING: 1,
            native.IMG_OPTION_PDF_WRITING: 1, native.IMG_OPTION_SAFE_SAVING: 1, native.IMG_OPTION_UTF8_NAMES: 1}


def _option(name: str) -> int:
    number = getattr(native, f"IMG_OPTION_{name.upper()}", None)
    if number is None:
        raise ValueError(f"no such option: {name}")
    return int(number)


def set_option(name: str, value: int) -> None:
    """Of all threads from now on: set_option("strict", 1), by the names of IMG_OPTION_... in tarnquill.h."""
    number = _option(name)
    with context() as api:
        check(api.IMG_set_option(number, value), name)
    _options[number] = value


def get_option(name: str) -> int:
    with context() as api:
        return check(api.IMG_get_option(_option(name)), name)


# ---- Contexts

class Context:
    """Images and settings of the thread that made it. Entered for each call, so that another thread may use
    its images, too: then they wait for each other."""

    def __init__(self) -> None:
        self._api = _api  # is still there when modules are taken apart
        self._number = 0
        self._number = check(_api.IMG_new_context())
        self._lock = threading.RLock()
        self._depth = 0
        self._before = 0
        self._options: dict[int, int] = {}
        self._dropped: list[int] = []  # images that went while somebody else was at work here

    def __enter__(self) -> Any:
        self._lock.acquire()
        self._depth += 1  # from here on a destructor leaves its image to __exit__
        if self._depth == 1:
            self._before = self._api.IMG_use_context(self._number)
            if self._before < 0:
                self._depth -= 1
                self._lock.release()
                raise Error(self._before, "context")
            if self._options != _options:
                self._options = dict(_options)
                for number, value in self._options.items():
                    self._api.IMG_set_option(number, value)
        return self._api

    def __exit__(self, *_: object) -> None:
        if self._depth == 1:
            self._free_dropped()
            self._api.IMG_use_context(self._before)
        self._depth -= 1
        self._lock.release()

    def _free_dropped(self) -> None:
        while self._dropped:
            self._api.IMG_delete_bitmap(self._dropped.pop())

    def drop(self, number: int) -> None:
        """Deletes an image. A destructor calls this at any moment, so it never waits."""
        self._dropped.append(number)
        if self._depth == 0 and self._lock.acquire(blocking=False):
            try:
                with self:
                    pass
            finally:
                self._lock.release()

    def __del__(self) -> None:
        if self._number:
            self._api.IMG_delete_context(self._number)


class Handle:
    """One image of a context. What uses its memory keeps it alive."""

    def __init__(self, context: Context, number: int) -> None:
        self.context = context
        self.number = number

    def __del__(self) -> None:
        self.context.drop(self.number)


class _Thread(threading.local):
    context: Context | None = None


_thread = _Thread()


def context() -> Context:
    """The calling thread's own."""
    if _thread.context is None:
        _thread.context = Context()
    return _thread.context


# ---- Files

def name_of(path: str | os.PathLike[str]) -> bytes:
    return os.fsencode(path)  # UTF-8 on Windows, as IMG_OPTION_UTF8_NAMES asks for


@contextlib.contextmanager
def stream_of(path: str | os.PathLike[str]) -> Iterator[int]:
    try:
        number = os.open(path, os.O_RDONLY | getattr(os, "O_BINARY", 0))
    except OSError as error:
        raise Error(native.IMG_CANNOT_OPEN, os.fspath(path)) from error
    try:
        if sys.platform == "win32":
            import msvcrt
            yield msvcrt.get_osfhandle(number)
        else:
            yield number
    finally:
        os.close(number)


def block_of(data: bytes | bytearray | memoryview) -> bytes:
    return data if isinstance(data, bytes) else bytes(data)


class Format(NamedTuple):
    """A file type code; depths are bits a pixel."""
    code: int
    name: str
    title: str
    extension: str
    flags: int  # IMG_FORMAT_...
    reads: tuple[int, ...]
    writes: tuple[int, ...]


@functools.lru_cache(None)
def formats() -> tuple[Format, ...]:
    """Of the library that is loaded, by code."""
    found: list[Format] = []
    entry = native.img_format(size=ctypes.sizeof(native.img_format))

    def depths(bits: int) -> tuple[int, ...]:
        return tuple(depth for i, depth in enumerate((1, 4, 8, 16, 24, 32)) if bits >> i & 1)
    with context() as api:
        while api.IMG_get_format(len(found), ctypes.byref(entry)) >= 0:
            found.append(Format(entry.code, entry.name.decode(), entry.title.decode(), entry.extension.decode(),
                                entry.flags, depths(entry.read_depths), depths(entry.write_depths)))
    return tuple(sorted(found))


def code_of(code: int | str | None) -> int:
    """A number, or a name such as "tiff-g4"; None: by the name of the file."""
    if code is None:
        return native.IMG_TYPE_BY_NAME
    if isinstance(code, int):
        return code
    for entry in formats():
        if entry.name == code.lower():
            return entry.code
    raise ValueError(f"no such format: {code}")


def appends(path: str | os.PathLike[str], code: int) -> bool:
    """Whether saving adds a page to a file that is there."""
    ending = os.path.splitext(os.fspath(path))[1][1:4].lower()
    return any(entry.flags & native.IMG_FORMAT_APPENDS and (
        entry.code == code or code == native.IMG_TYPE_BY_NAME and entry.extension == ending) for entry in formats())


class Info(NamedTuple):
    """What a file says about one of its pages."""
    code: int
    format: str
    pages: int
    width: int
    height: int
    bits: int
    dpi: tuple[int, int]


class File:
    """Questions about a file, by its name or by its bytes; several at a time in one context."""

    def __init__(self, source: Source) -> None:
        self.is_named = isinstance(source, (str, os.PathLike))
        self.what = os.fspath(source) if isinstance(source, (str, os.PathLike)) else ""
        if isinstance(source, (str, os.PathLike)):
            self._place: tuple[Any, ...] = (name_of(source),)
        else:
            block = block_of(source)
            self._place = (block, len(block))

    def ask(self, name: str, *arguments: Any) -> int:
        """The export's result, whatever it is."""
        with context() as api:
            return int(getattr(api, name if self.is_named else f"{name}_block")(*self._place, *arguments))

    def header(self, page: int) -> tuple[int, Any]:
        header = ctypes.create_string_buffer(40)
        return self.ask("IMGLOW_get_fileinfo_page", page, header), struct.unpack("<IiiHHIIiiII", header.raw)

    def pages(self) -> int:
        """As the program counts them: some kinds tell their number only page by page."""
        counted = self.ask("IMGLOW_get_pages")
        if counted == native.IMG_CANNOT_OPEN:
            raise Error(counted, self.what)
        code = self.ask("IMGLOW_get_filetype")
        known = next((entry for entry in formats() if entry.code == code), None)
        if counted > 1 or known and code != native.IMG_TYPE_DICOM and not known.flags & native.IMG_FORMAT_PAGES:
            return max(counted, 1)
        pages = 1
        while pages < 0xFFFF and self.header(pages)[0] >= 0:
            pages += 1
        return pages


def count_pages(source: Source) -> int:
    return File(source).pages()


def info(source: Source, page: int = 0) -> Info:
    """Without decoding anything."""
    file = File(source)
    code = check(file.ask("IMGLOW_get_filetype"), file.what)
    result, (_, width, height, _, bits, _, _, x_dpi, y_dpi, _, _) = file.header(page)
    check(result, file.what)
    name = next((entry.name for entry in formats() if entry.code == code), "")
    return Info(code, name, file.pages(), width, height, bits, (x_dpi, y_dpi))
