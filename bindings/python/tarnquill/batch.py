"""Many files through a chain of operations, on all processors of a machine or a cluster.

    python3 -m tarnquill.batch --to OUT --code tiff-g4 --do deskew --do despeckle SOURCE...

Sources are files and folders, whose trees are walked. Without more, dask.distributed runs on this machine with a
worker for each processor (--workers N); --scheduler ADDRESS takes a cluster that runs already, whose workers have
this package; --workers 0 works in this process, and --share I/N on the I-th of N parts of the files, for
arrays of jobs.

Every result is written beside its place and renamed. The manifest, OUT/manifest.jsonl, has a line of JSON for each
file: source, status (0, or the library's), text, damage (what the source had lost), pages, results (path, bytes,
sha256), seconds, worker, rss_kib. A run that was interrupted goes on from it. When a worker is lost, its files go to
others.
"""
from __future__ import annotations

import argparse
import importlib
import json
import os
import secrets
import sys
import threading
import time
import zlib
from typing import IO, Any, Callable, Iterable, Iterator, List, NamedTuple, Tuple

from . import _native as native
from ._library import status_text
from .conversion import Job, Record, convert_file, convert_files, make_job, remove_unfinished

Files = List[Tuple[str, str]]  # where it is, and its name below the results' folder
WAVE = 4096  # chunks that the scheduler knows of at a time


class Summary(NamedTuple):
    files: int
    skipped: int  # done by an earlier run
    failed: int  # by this one or an earlier one, as the next
    damaged: int
    seconds: float


def list_files(sources: Iterable[str], without: str = "") -> Files:
    """Folders are walked in the order of names; one of them is left out."""
    found: Files = []
    for source in sources:
        if not os.path.isdir(source):
            found.append((os.path.abspath(source), os.path.basename(source)))
            continue
        for folder, folders, names in os.walk(source):
            folders[:] = sorted(name for name in folders if os.path.abspath(os.path.join(folder, name)) != without)
            for name in sorted(names):
                path = os.path.join(folder, name)
                found.append((os.path.abspath(path), os.path.relpath(path, source)))
    names_below = {relative for _, relative in found}
    if len(names_below) < len(found):
        raise ValueError("two sources would have the same result")
    return found


def part_of(files: Files, number: int, parts: int) -> Files:
    """A file stays in its part whatever others come and go."""
    return [entry for entry in files if zlib.crc32(os.fsencode(entry[1])) % parts == number]


# ---- The manifest

class Manifest:
    def __init__(self, path: str, job: Job, again: bool) -> None:
        """again: files that have failed are done once more."""
        self.done: set[str] = set()
        self.failed: set[str] = set()
        self.damaged: set[str] = set()
        os.makedirs(os.path.dirname(path), exist_ok=True)
        self._file: IO[bytes] = open(path, "a+b")
        self._file.seek(0)
        head = json.loads(json.dumps({"job": job._asdict()}))
        whole = 0
        for line in self._file:
            if not line.endswith(b"\n"):
                break  # the line at which a run was ended
            record = json.loads(line)
            if whole == 0:
                head["job"]["token"] = record["job"]["token"]
                if record != head:
                    raise ValueError(f"{path}: of another job")
            else:
                self._note(record)
            whole += len(line)
        self._file.truncate(whole)
        self.goes_on = whole > 0
        if not self.goes_on:
            head["job"]["token"] = secrets.token_hex(4)
            self._write([head])
        self.job = job._replace(token=head["job"]["token"])
        if again:
            self.done -= self.failed

    def _note(self, record: Record) -> None:
        source = record["source"]
        self.done.add(source)
        for found, is_so in (self.failed, record["status"] != 0), (self.damaged, record["damage"] != ""):
            (found.add if is_so else found.discard)(source)

    def _write(self, lines: Iterable[Any]) -> None:
        self._file.write(b"".join(json.dumps(line).encode() + b"\n" for line in lines))
        self._file.flush()

    def add(self, records: list[Record]) -> None:
        """A file has one line, whatever comes back from how many workers."""
        for record in records:
            if record["source"] not in self.done:
                self._note(record)
                self._write([record])

    def close(self) -> None:
        self._file.close()


# ---- Workers

def _chunks(files: Files, size: int) -> Iterator[Files]:
    for first in range(0, len(files), size):
        yield files[first:first + size]


def _show(futures: list[Any], before: threading.Thread | None) -> threading.Thread:
    """Dask's own bar, one wave after the other."""
    distributed: Any = importlib.import_module("distributed")

    def show() -> None:
        if before is not None:
            before.join()
        distributed.progress(futures, notebook=False)
        print(file=sys.stderr)
    thread = threading.Thread(target=show, daemon=True)
    thread.start()
    return thread


def _distribute(client: Any, job: Job, files: Files, size: int, add: Callable[[list[Record]], None],
                shows: bool) -> None:
    distributed: Any = importlib.import_module("distributed")
    chunks, running, suspects = _chunks(files, size), {}, []
    bar = None
    results = distributed.as_completed([])

    def submit_wave() -> None:
        nonlocal bar
        wave = {}
        for chunk in chunks:
            wave[client.submit(convert_files, job, chunk, pure=False)] = chunk
            if len(wave) == WAVE:
                break
        running.update(wave)
        results.update(list(wave))
        if shows and wave:
            bar = _show(list(wave), bar)
    submit_wave()
    for future in results:
        chunk = running.pop(future)
        try:
            add(future.result())
        except distributed.KilledWorker:
            suspects += chunk  # one of these ends its worker
        if len(running) < WAVE // 4:
            submit_wave()
    if bar is not None:
        bar.join(5)
    for source, relative in suspects:  # alone, so that none is blamed for another
        try:
            add([client.submit(convert_file, job, source, relative, pure=False).result()])
        except distributed.KilledWorker:
            add([{"source": source, "status": native.IMG_BAD_IMAGE, "text": "ends its worker", "damage": "", "pages": 0,
                  "results": [], "seconds": 0, "worker": 0, "rss_kib": 0}])


def run(sources: Iterable[str], job: Job, *, client: Any = None, manifest: str | None = None, chunk: int = 16,
        again: bool = False, share: tuple[int, int] | None = None, shows: bool = False) -> Summary:
    """Takes files through a job of make_job. `client` is one of dask.distributed; None: this process works."""
    began = time.perf_counter()
    files = list_files(sources, job.target)
    if share is not None:
        files = part_of(files, *share)
    book = Manifest(manifest or os.path.join(job.target, "manifest.jsonl"), job, again)
    try:
        left = [entry for entry in files if entry[0] not in book.done]
        if client is not None:
            _distribute(client, book.job, left, chunk, book.add, shows)
        else:
            for source, relative in left:
                book.add([convert_file(book.job, source, relative)])
        if client is not None or book.goes_on:
            remove_unfinished(book.job)
    finally:
        book.close()
    return Summary(len(left), len(files) - len(left), len(book.failed), len(book.damaged), time.perf_counter() - began)


def _client(options: argparse.Namespace) -> Any:
    distributed: Any = importlib.import_module("distributed")
    if options.scheduler:
        return distributed.Client(options.scheduler)
    workers = options.workers or os.cpu_count()
    return distributed.Client(distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None))


def _share(text: str) -> tuple[int, int]:
    number, parts = map(int, text.split("/"))
    if not 0 <= number < parts:
        raise ValueError
    return number, parts


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tarnquill.batch", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sources", nargs="*", metavar="SOURCE")
    parser.add_argument("--list", metavar="FILE", help="more sources, one a line; -: standard input")
    parser.add_argument("--to", required=True, metavar="FOLDER")
    parser.add_argument("--code", required=True, help="of the results: a number or a name, 'tarnquill formats'")
    parser.add_argument("--do", action="append", default=[], metavar="OPERATION[:VALUE,...]",
                        help="a method of tarnquill.Image, in the order given")
    parser.add_argument("--no-fit", action="store_true", help="refuse pages of a depth that the format cannot hold")
    parser.add_argument("--quality", type=int, default=75, help="of jpeg and pdf")
    parser.add_argument("--workers", type=int, metavar="N", help="processes; 0: this one")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a running cluster, tcp://host:8786")
    parser.add_argument("--share", type=_share, metavar="I/N", help="only this part of the files, I from 0, in this process")
    parser.add_argument("--chunk", type=int, default=16, metavar="N", help="files that a worker gets at a time")
    parser.add_argument("--manifest", metavar="FILE")
    parser.add_argument("--again", action="store_true", help="files that have failed before, too")
    parser.add_argument("--quiet", action="store_true", help="no bar")
    options = parser.parse_args()
    if options.list:
        with (sys.stdin if options.list == "-" else open(options.list)) as lines:
            options.sources += filter(None, (line.rstrip("\n") for line in lines))
    try:
        job = make_job(options.to, options.code, options.do, not options.no_fit, options.quality)
        name = "manifest.jsonl" if options.share is None else "manifest-%d-of-%d.jsonl" % options.share
        manifest = options.manifest or os.path.join(job.target, name)
        alone = options.workers == 0 or options.share is not None
        client = None if alone else _client(options)
        summary = run(options.sources, job, client=client, manifest=manifest, chunk=options.chunk, again=options.again,
                      share=options.share, shows=not options.quiet and not alone)
        if client is not None:
            client.close()
            if client.cluster is not None:
                client.cluster.close()
    except (ValueError, OSError) as error:
        print(f"tarnquill.batch: {error}", file=sys.stderr)
        return 2
    print(f"{summary.files} files in {summary.seconds:.1f} s, {summary.failed} failed, {summary.damaged} damaged, "
          f"{summary.skipped} done before; {manifest}")
    return 1 if summary.failed else 0


if __name__ == "__main__":
    sys.exit(main())
