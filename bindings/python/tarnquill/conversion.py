"""One file through a chain of operations: what every worker of tarnquill.batch does, in any process."""
from __future__ import annotations

import ast
import contextlib
import hashlib
import inspect
import os
import secrets
import time
from typing import Any, Dict, Iterator, NamedTuple, Tuple

from . import _native as native
from ._library import Error, Format, code_of, formats
from ._operations import Operations
from .image import Image

Record = Dict[str, Any]  # a line of the manifest
Step = Tuple[str, Tuple[Any, ...], Dict[str, Any]]


class Job(NamedTuple):
    """What is done to every file. Plain values, so that it can be sent and written down."""
    target: str  # a folder
    code: int
    chain: tuple[Step, ...] = ()
    fit: bool = True  # change the depth where the format cannot hold it
    quality: int = 75
    token: str = ""  # in the names of unfinished files


def parse_step(text: str) -> Step:
    """Of "deskew", "resize:800,600" or "rotate:1.5,nearest=True"."""
    name, _, rest = text.partition(":")
    method = getattr(Operations, name, None)
    if name.startswith("_") or not callable(method) or name.startswith(("find_", "get_", "is_")):
        raise ValueError(f"no such operation: {name}")
    values: list[Any] = []
    named: dict[str, Any] = {}
    for part in filter(None, rest.split(",")):
        key, equals, value = part.rpartition("=")
        try:
            parsed: Any = ast.literal_eval(value)
        except (ValueError, SyntaxError):
            parsed = value  # a word, such as "lanczos"
        if equals:
            named[key] = parsed
        else:
            values.append(parsed)
    try:
        inspect.signature(method).bind(None, *values, **named)
    except TypeError as error:
        raise ValueError(f"{text}: {error}") from None
    return name, tuple(values), named


def make_job(target: str, code: int | str, chain: list[str], fit: bool = True, quality: int = 75) -> Job:
    number = code_of(code)
    if not next((entry.writes for entry in formats() if entry.code == number), ()):
        raise ValueError(f"{code}: cannot be written")
    return Job(os.path.abspath(target), number, tuple(map(parse_step, chain)), fit, quality)


def _format(code: int) -> Format:
    return next(entry for entry in formats() if entry.code == code)


def _fit(image: Image, entry: Format) -> None:
    if image.bits in entry.writes:
        return
    if image.bits == 16:
        image.promote(8)
    if entry.writes == (1,):
        image.adaptive_mono()
    elif image.bits not in entry.writes:
        if 24 in entry.writes:
            image.promote(24)
        else:
            image.color_gray()


@contextlib.contextmanager
def _beside(job: Job, path: str) -> Iterator[str]:
    """A name to write under until the file is whole; then it takes its place."""
    folder, name = os.path.split(path)
    os.makedirs(folder, exist_ok=True)
    target = os.path.join(folder, f".{job.token}-{secrets.token_hex(6)}.part{os.path.splitext(name)[1]}")
    try:
        yield target
        os.replace(target, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.remove(target)
        raise


def remove_unfinished(job: Job) -> None:
    """What processes that were ended have left."""
    for folder, _, names in os.walk(job.target):
        for name in names:
            if name.startswith(f".{job.token}-"):
                os.remove(os.path.join(folder, name))


def _digest(path: str) -> Record:
    with open(path, "rb") as file:
        data = file.read()
    return {"path": path, "bytes": len(data), "sha256": hashlib.sha256(data).hexdigest()}


def resident_kib() -> int:
    """Memory of this process; 0 where the system does not say."""
    try:
        with open("/proc/self/statm") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024
    except OSError:
        return 0


def result_name(job: Job, relative: str, page: int | None = None) -> str:
    """The source's whole name stays in it, so that a.tif and a.jpg do not meet."""
    name = _format(job.code).name
    family = name.split("-")[0]  # variants have no ending of their own: tiff-g4
    endings = {entry.name: entry.extension for entry in formats()}
    number = "" if page is None else f"-{page + 1:04}"
    return os.path.join(job.target, f"{relative}{number}.{endings[name] or endings.get(family) or name}")


def convert_file(job: Job, source: str, relative: str) -> Record:
    """Never raises for what is wrong with one file: the record says it. A result is there whole or not at all."""
    began = time.perf_counter()
    record: Record = {"source": source, "status": 0, "text": "", "damage": "", "pages": 0, "results": []}
    entry = _format(job.code)
    try:
        pages = Image.open_all(source)
        if entry.flags & native.IMG_FORMAT_APPENDS:
            path = result_name(job, relative)
            with _beside(job, path) as part:
                for image in pages:
                    _convert_page(job, entry, image, record).save(part, job.code, append=True, quality=job.quality)
            record["results"].append(_digest(path))
        else:
            for page, image in enumerate(pages):
                path = result_name(job, relative, page if page > 0 else None)
                with _beside(job, path) as part:
                    _convert_page(job, entry, image, record).save(part, job.code, quality=job.quality)
                record["results"].append(_digest(path))
    except Error as error:
        record.update(status=error.status, text=str(error))
    except Exception as error:  # one file must not end the others
        status = (native.IMG_CANNOT_CREATE if isinstance(error, OSError) else
                  native.IMG_OUT_OF_MEMORY if isinstance(error, MemoryError) else native.IMG_UNSUPPORTED)
        record.update(status=status, text=f"{type(error).__name__}: {error}")
    record.update(seconds=round(time.perf_counter() - began, 4), worker=os.getpid(), rss_kib=resident_kib())
    return record


def _convert_page(job: Job, entry: Format, image: Image, record: Record) -> Image:
    if image.damage is not None:
        damage = image.damage
        record["damage"] = f"page {record['pages'] + 1}, rows {damage.first} to {damage.last}: {damage.reason}"
    for name, values, named in job.chain:
        getattr(image, name)(*values, **named)
    if job.fit:
        _fit(image, entry)
    record["pages"] += 1
    return image


def convert_files(job: Job, files: list[tuple[str, str]]) -> list[Record]:
    return [convert_file(job, source, relative) for source, relative in files]
