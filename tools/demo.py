#!/usr/bin/python3
"""Shows the library at work: OUT_FOLDER/index.html, a page of what it does to documents and pictures; before
that, unless it has to be quick, everything is converted in every way and read by other programs.

demo.py [--quick] BIN_FOLDER OUT_FOLDER [FILE...]
demo.py --packed BIN_FOLDER OUT_FOLDER

For a package the page has nothing that was measured or dated: the same programs make the same page.
"""
import pathlib
import resource
import shutil
import subprocess
import sys
import time

from gallery import checks, damage, document, formats, languages, operations, page, peers, program, speed

TILES = ["scan.png", "page.png", "before-photo.png", "after-00.png", "after-02.png", "after-03.png", "after-09.png"]


def as_bmp(programs, name, folder):
    """A file of the user's; through another program if the library does not read its format."""
    path, converted = pathlib.Path(name), folder / (pathlib.Path(name).stem + ".bmp")
    if path.read_bytes()[:2] == b"BM":
        return path
    if subprocess.run([programs / "tarnquill", "convert", "-q", path, converted], capture_output=True).returncode == 0:
        return converted
    if peers.Image:
        with peers.Image.open(path) as image:
            image.convert("RGB").save(converted)
    else:
        subprocess.run(["convert", path, "-type", "TrueColor", "bmp3:" + str(converted)], check=True)
    print(f"{name} became {converted} by another program: its format is not read yet.")
    return converted


def compare(programs, out, files, life):
    """What other programs see in results of every kind: the comparison, its sheets made."""
    show = checks.Comparison(programs, out, life.say)
    inputs, yours = out / "inputs", out / "yours"
    yours.mkdir(exist_ok=True)
    shutil.rmtree(show.results, ignore_errors=True)
    show.results.mkdir()
    extra = [as_bmp(programs, name, yours) for name in files]
    life.say("Sizes in bytes; milliseconds of a whole process; read for comparison by " +
             (", ".join(peers.PEERS) or "no other program: none is installed"))
    show.show_page(inputs / "page-1.bmp")
    show.show_photo(inputs / "photo-24.bmp")
    show.show_tiff(inputs / "page-1.bmp", inputs / "photo-24.bmp")
    life.begin("BMP files of every kind: saved as 1, 12 and 48, scaled, cropped, cut while decoding")
    for source in sorted(inputs.glob("*.bmp")):
        show.show_bmp(source)
    show.show_reductions(inputs / "photo-24.bmp")
    for source in extra:
        show.show_bmp(source, strict=False)
    life.say(f"The picture: {show.sheet().resolve()}")
    for picture in [inputs / "photo-24.bmp", *extra]:
        life.say(f"All operations on one picture: {show.operations_sheet(picture).resolve()}")
    return show


def small_sheet(made):
    """One picture of what is on the page, for a terminal."""
    subprocess.run([made.binaries / "contact_sheet", "--cell", "240x180", "--large", made.work / "small.bmp",
                    *(made.pictures / name for name in TILES)], check=True)
    made.convert("small.bmp", (made.out / "small.png").resolve())


def told_of(show, quick):
    """How the page came about."""
    others = " and ".join([", ".join([*peers.PEERS][:-1]), [*peers.PEERS][-1]] if len(peers.PEERS) > 1 else peers.PEERS)
    told = (f"In the same run {show.confirmed} results were read as expected by {others}; {show.bad} were not."
            if show else "A run without <code>--quick</code> has other programs read the results, too.")
    return (f"Everything on this page was made and measured by one run of <code>./demo{' --quick' if quick else ''}</code>, "
            f"{processor_seconds():.0f} seconds of processor time, on {time.strftime('%d %B %Y')}. {told}")


def make_page(made, life, show=None, quick=False, packed=False):
    """Every part of the page, then the page."""
    inputs, pairs = (made.out / "inputs").resolve(), page.Pairs()
    photo, parts = inputs / "photo-24.bmp", {"speed": "", "speed_link": ""}
    builders = [
        ("a page from the scanner", lambda: document.build(made, pairs)),
        ("operations", lambda: operations.build(made, pairs, photo)),
        ("formats", lambda: formats.build(made, life)),
        ("damaged files", lambda: damage.build(made)),
        ("the letter in five lines", lambda: languages.build(made))]
    if not packed:
        builders.append(("speed and memory beside others",
                         lambda: speed.build(made, life, photo, inputs / "page-1.bmp", quick)))
    for doing, build in builders:
        life.begin(doing)
        parts.update(build())
    told = "Everything on this page was made by one run of the program." if packed else told_of(show, quick)
    page.write(made.out / "index.html", **parts, told=told)


def processor_seconds():
    usages = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    return sum(usage.ru_utime + usage.ru_stime for usage in usages)


def main():
    options = {word for word in sys.argv[1:] if word in ("--quick", "--packed")}
    quick, packed = "--quick" in options, "--packed" in options
    programs, out, *files = [word for word in sys.argv[1:] if word not in options]
    life = program.Life()
    life.begin("pictures")
    made = program.Program(programs, out)
    (made.out / "inputs").mkdir(exist_ok=True)
    subprocess.run([made.binaries / "make_scene", made.out / "inputs"], check=True)
    show = None if options else compare(made.binaries, made.out, files, life)
    make_page(made, life, show, quick, packed)
    if packed:
        shutil.rmtree(made.out / "inputs")
    else:
        small_sheet(made)
    shutil.rmtree(made.work)
    life.begin("summary")
    if show:
        life.say(f"{show.confirmed} results read as expected by other programs, {show.bad} failures.")
    life.say(f"{processor_seconds():.0f} s of processor time. The page: {(made.out / 'index.html').resolve()}")
    return 1 if show and show.bad else 0


if __name__ == "__main__":
    sys.exit(main())
