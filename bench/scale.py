#!/usr/bin/env python3
"""What tarnquill.batch gives and costs on this machine.

    scale.py BINDINGS LIBRARY [FILES]

Draws pages (Pillow, python3-distributed), takes FILES of them (400) through `deskew` to TIFF Group 4 in this
process and with one and two workers, and prints files per second by the clock, the processor time that they take
and the memory of workers at the beginning and at the end; then what scheduler and client cost for each file, by
files with which there is nothing to do.
"""
import json
import os
import pathlib
import statistics
import sys
import tempfile
import time

BINDINGS, os.environ["TARNQUILL_LIBRARY"] = pathlib.Path(sys.argv[1]).resolve(), os.path.abspath(sys.argv[2])
COUNT = int(sys.argv[3]) if len(sys.argv) > 3 else 400
os.environ["PYTHONPATH"] = str(BINDINGS / "python")
sys.path[:0] = [os.environ["PYTHONPATH"], str(pathlib.Path(__file__).parent)]
import distributed  # noqa: E402
import pages  # noqa: E402
from tarnquill import Image, batch  # noqa: E402

DIFFERENT = 20


def draw(folder):
    """COUNT pages of A4 at 200 dots per inch, one half grey JPEG, the other TIFF Group 4."""
    folder.mkdir()
    for i in range(COUNT):
        first = folder / f"{i % DIFFERENT:05}.{'jpg' if i % 2 else 'tif'}"
        path = first.with_name(f"{i:05}{first.suffix}")
        if i >= DIFFERENT:
            path.write_bytes(first.read_bytes())
            continue
        page = pages.make_page("letter", i, angle=i % 7 - 3, dpi=200)
        image = Image.from_pil(page.image.convert("L"))
        image.dpi = 200
        if i % 2:
            image.save(path)
        else:
            image.adaptive_mono("otsu").save(path, "tiff-g4")


def cluster_of(workers):
    return distributed.LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None,
                                    silence_logs=50)


def run(source, out, job, workers, chunk=16):
    """(seconds, processor seconds of workers, of scheduler and client, records)"""
    def used_by_workers():
        return sum(client.run(time.process_time).values())
    if workers == 0:
        began, used = time.perf_counter(), time.process_time()
        batch.run([str(source)], job)
        took = time.perf_counter() - began, time.process_time() - used, 0
    else:
        with cluster_of(workers) as cluster, distributed.Client(cluster) as client:
            client.run(__import__, "tarnquill.batch")
            began, used, theirs = time.perf_counter(), time.process_time(), used_by_workers()
            batch.run([str(source)], job, client=client, chunk=chunk)
            took = time.perf_counter() - began, used_by_workers() - theirs, time.process_time() - used
    return *took, [json.loads(line) for line in (out / "manifest.jsonl").read_text().splitlines()[1:]]


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        draw(folder / "pages")
        for workers in (0, 1, 2):
            out = folder / f"out{workers}"
            job = batch.make_job(str(out), "tiff-g4", ["deskew"])
            took, used, _, records = run(folder / "pages", out, job, workers)
            assert len(records) == COUNT and not any(record["status"] for record in records)
            print(f"{workers or 'no'} workers: {COUNT / took:.1f} files/s, {1000 * used / COUNT:.1f} ms of processor "
                  f"time a file in workers", flush=True)
            for worker in sorted({record["worker"] for record in records} if workers else ()):
                own = [record["rss_kib"] for record in records if record["worker"] == worker]
                tenth = max(len(own) // 10, 1)
                print(f"    worker: {statistics.mean(own[:tenth]) / 1024:.1f} MiB in the first tenth of {len(own)} "
                      f"files, {statistics.mean(own[-tenth:]) / 1024:.1f} MiB in the last", flush=True)
        nothing = folder / "nothing"
        nothing.mkdir()
        for i in range(10 * COUNT):
            (nothing / f"{i:06}").write_bytes(b"")
        for chunk in (1, 16, 64):
            out = folder / f"none{chunk}"
            took, _, used, records = run(nothing, out, batch.make_job(str(out), "tiff-g4", []), 2, chunk)
            print(f"chunks of {chunk:2}: {1000 * used / len(records):.3f} ms of processor time a file in scheduler "
                  f"and client, {len(records) / took:.0f} files/s at most", flush=True)


if __name__ == "__main__":
    main()
