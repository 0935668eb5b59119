#!/usr/bin/env python3
"""tarnquill.batch over two workers of dask.distributed, of which one is killed in the middle.

    batch_test.py BINDINGS LIBRARY [FILES]      exit code 77 when python3-distributed is missing

FILES of mixed formats are made, 100 where nothing is said; some are cut off, some are no pictures, one ends any
process that reads it. Every one must have one result or one line that says why not. CONTRIBUTING has the long run.
Runs in the folder tests/.
"""
import collections
import hashlib
import json
import os
import pathlib
import random
import signal
import sys
import tempfile
import threading
import time

try:
    import dask
    import distributed
except ImportError:
    sys.exit(77)

BINDINGS, os.environ["TARNQUILL_LIBRARY"] = pathlib.Path(sys.argv[1]).resolve(), os.path.abspath(sys.argv[2])
COUNT = int(sys.argv[3]) if len(sys.argv) > 3 else 100
os.environ["PYTHONPATH"] = str(BINDINGS / "python")
sys.path.insert(0, os.environ["PYTHONPATH"])
from tarnquill import batch  # noqa: E402

CUT, NONSENSE, DEADLY, WHOLE = "cut", "nonsense", "deadly", "whole"
# Of a worker: a file that takes its process with it, as a fault of the library would.
PRELOAD = """
import os
from tarnquill import conversion
def convert_file(job, source, relative, plain=conversion.convert_file):
    if "deadly" in relative:
        os._exit(1)
    return plain(job, source, relative)
conversion.convert_file = convert_file
"""


def make_files(folder):
    """{path: what it is}; damaged ones are JPEG files whose end is missing."""
    samples = [path for kind in ("bmp", "tiff", "png", "pcx", "gif", "jpeg", "pdf", "sun", "xpm", "targa")
               for path in sorted(pathlib.Path("corpus", kind).iterdir())
               if path.name not in ("arithmetic.jpg", "gs.pdf", "frames-cut.gif")]
    jpeg = pathlib.Path("corpus/jpeg/420.jpg").read_bytes()
    found = {}
    for i in range(COUNT):
        sample = samples[i % len(samples)]
        kind = DEADLY if i == COUNT // 2 else CUT if i % 25 == 7 else NONSENSE if i % 25 == 13 else WHOLE
        data = {CUT: jpeg[:-40], NONSENSE: bytes([i % 256]) * 500}.get(kind) or sample.read_bytes()
        path = folder / f"{i % 17:02}" / f"{i:05}-{kind}-{sample.name}"
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(data)
        found[str(path)] = kind
    return found


def kill_one(client, manifest, killed):
    workers = client.run(os.getpid)
    while not manifest.exists() or len(manifest.read_bytes().splitlines()) < COUNT // 3:
        time.sleep(0.01)
    killed.append(random.choice(list(workers.values())))
    os.kill(killed[0], signal.SIGKILL)


def check(made, out, records):
    failures = []

    def expect(what, *values):
        if len(set(values)) > 1:
            failures.append(f"{what}: {', '.join(map(str, values))}")
    lines = collections.Counter(record["source"] for record in records)
    expect("lines twice", 0, sum(count > 1 for count in lines.values()))
    expect("files missing", 0, len(set(made) - set(lines)))
    wanted, results = set(), {path for path in out.rglob("*") if path.is_file() and path.name != "manifest.jsonl"}
    for record in records:
        source, kind = record["source"], made[record["source"]]
        failed = kind in (NONSENSE, DEADLY)
        expect(f"{source} failed", failed, record["status"] < 0)
        expect(f"{source} damaged", kind == CUT, record["damage"] != "")
        expect(f"{source} results", 0 if failed else 1, len(record["results"]))
        for result in record["results"]:
            path = pathlib.Path(result["path"])
            expect("ending", ".tif", path.suffix)
            wanted.add(path)
            expect(f"{path} digest", result["sha256"], hashlib.sha256(path.read_bytes()).hexdigest())
    expect("results", 0, len(results ^ wanted))
    return failures, len(results)


def main():
    dask.config.set({"distributed.scheduler.allowed-failures": 1})
    with tempfile.TemporaryDirectory() as name:
        folder, killed = pathlib.Path(name).resolve(), []
        (folder / "in").mkdir()
        (folder / "preload.py").write_text(PRELOAD)
        made = make_files(folder / "in")
        out = folder / "in" / "out"
        job = batch.make_job(str(out), "tiff-packbits", ["rotate:180"])
        manifest = out / "manifest.jsonl"
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None, silence_logs=50,
                                      preload=[str(folder / "preload.py")]) as cluster, \
                distributed.Client(cluster) as client:
            killer = threading.Thread(target=kill_one, args=(client, manifest, killed), daemon=True)
            killer.start()
            summary = batch.run([str(folder / "in")], job, client=client, chunk=4 if COUNT < 1000 else 16)
        records = [json.loads(line) for line in manifest.read_text().splitlines()[1:]]
        failures, results = check(made, out, records)
        workers = {record["worker"] for record in records} - {0}
        # A run that was ended in the middle of a line goes on there, and another job does not.
        with open(manifest, "r+b") as file:
            file.truncate(manifest.stat().st_size - 20)
        for left in 1, 0:
            again = batch.run([str(folder / "in")], job)
            if (again.files, again.skipped, again.failed) != (left, COUNT - left, summary.failed):
                failures.append(f"gone on: {again}")
        try:
            batch.run([str(folder / "in")], job._replace(quality=1))
            failures.append("another job went on")
        except ValueError:
            pass
        if not killed or len(workers) < 3:
            failures.append(f"no worker was killed and replaced: {workers}")
    for worker in workers:  # whether memory grows is for who reads it
        own = [record["rss_kib"] // 1024 for record in records if record["worker"] == worker]
        if len(own) > 500:
            print(f"a worker: {own[len(own) // 10]} MiB after a tenth of {len(own)} files, {own[-1]} MiB at the end")
    kinds = collections.Counter(made.values())
    print("\n".join([*failures, f"{COUNT} files, {dict(kinds)}; {results} results in {summary.seconds:.1f} s by "
                     f"{len(workers)} workers, {killed} killed; {summary.failed} failed, {summary.damaged} damaged"]))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
