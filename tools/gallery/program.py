"""Programs that are run: the tarnquill program, with what it says, and any, with what it takes."""
import dataclasses
import json
import pathlib
import shutil
import struct
import subprocess
import sys
import threading
import time


class Life:
    """Says what is being done when nothing has been printed for a while."""
    EVERY = 4  # seconds

    def __init__(self):
        self.started = self.last = time.monotonic()
        self.doing = ""
        threading.Thread(target=self._watch, daemon=True).start()

    def _watch(self):
        while True:
            time.sleep(0.5)
            if time.monotonic() - self.last >= self.EVERY:
                self.say(f"{time.monotonic() - self.started:5.0f} s  {self.doing}")

    def say(self, line):
        self.last = time.monotonic()
        print(line, flush=True)

    def begin(self, part):
        self.doing = part
        self.say(f"== {part}")


@dataclasses.dataclass
class Outcome:
    code: int
    says: str  # on standard error, as it is


@dataclasses.dataclass
class Picture:
    """A file of the page: its name there, its size in pixels."""
    name: str
    width: int
    height: int
    bytes: int


class Program:
    """The tarnquill program; pictures for the page go to `pictures`, all else to `work`."""

    def __init__(self, programs, out):
        self.binaries, self.out = pathlib.Path(programs).resolve(), pathlib.Path(out)
        self.pictures, self.work = self.out / "pictures", self.out / "work"
        for folder in (self.pictures, self.work):
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)

    def run(self, *words):
        """Any command of the program, in the folder of the files it is told of."""
        done = subprocess.run([self.binaries / "tarnquill", *map(str, words)], cwd=self.work, capture_output=True,
                              text=True)
        return Outcome(done.returncode, done.stderr.strip()), done.stdout

    def convert(self, *words):
        """Of a conversion that has to succeed."""
        outcome, _ = self.run("convert", *words)
        if outcome.code:
            sys.exit(f"tarnquill convert {' '.join(map(str, words))}: {outcome.says}")
        return outcome

    def info(self, *files):
        """What the program tells of files that it can tell something of."""
        _, told = self.run("info", "--json", *files)
        return {entry["file"]: entry for entry in json.loads(told)}

    def picture(self, source, name, *options):
        """A picture for the page, made of any file; None if nothing comes of it."""
        outcome, _ = self.run("convert", source, (self.pictures / name).resolve(), *options)
        return (self.shown(name) if outcome.code in (0, 3) else None), outcome

    def shown(self, name):
        path = self.pictures / name
        data = path.read_bytes()
        width, height = struct.unpack_from(">II", data, 16)  # of a PNG file
        return Picture(f"{self.pictures.name}/{name}", width, height, len(data))
