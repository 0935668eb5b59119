"""Bars of time and memory: the same jobs by this program and by others that are installed, measured here
and now; and, where bench/peer_table has been built, what libraries take within one process."""
import os
import pathlib
import platform
import re
import shutil
import subprocess
import time

from gallery.page import bars, text

LONGEST = 60  # seconds that a job may take
OURS = "tarnquill"
# Title; then {program: words}, ours first. What they read is made by `inputs`.
JOBS = [
    ("4 megapixels from JPEG", {
        OURS: "convert -q photo.jpg a.bmp",
        "djpeg": "djpeg -bmp -outfile b.bmp photo.jpg",
        "gm": "gm convert photo.jpg b.bmp"}),
    ("The same to JPEG", {
        OURS: "convert -q photo.bmp a.jpg --quality 75 --sampling 2x2",
        "cjpeg": "cjpeg -quality 75 -outfile b.jpg photo.bmp",
        "gm": "gm convert -quality 75 photo.bmp b.jpg"}),
    ("The same from JPEG to 800 pixels", {
        OURS: "convert -q photo.jpg a.bmp --size 800",
        "gm": "gm convert photo.jpg -filter Box -resize 800x b.bmp"}),
    ("An A4 page of 300 dots per inch to Group 4", {
        OURS: "convert -q plain.tif a.tif --code tiff-g4",
        "tiffcp": "tiffcp -c g4 plain.tif b.tif",
        "gm": "gm convert plain.tif -compress Group4 b.tif"}),
    ("The same from Group 4", {
        OURS: "convert -q g4.tif a.tif --code tiff",
        "tiffcp": "tiffcp -c none g4.tif b.tif",
        "tifftopnm": "tifftopnm -quiet g4.tif"}),
    ("The same from a PDF, at 300 dots per inch", {
        OURS: "convert -q g4.pdf a.bmp",
        "pdftoppm": "pdftoppm -mono -r 300 -singlefile g4.pdf b",
        "mutool": "mutool draw -q -r 300 -c mono -F pbm -o b.pbm g4.pdf"}),
    ("A part of an A0 plan, 558 megapixels in Group 4", {
        OURS: "convert -q plan.tif a.tif --crop 3000,5000,12000,16000 --code tiff-g4",
        "tiffcrop": "tiffcrop -c g4 -U px -z 3001,5001,15000,21000 plan.tif b.tif",
        "vips": "vips crop plan.tif b.tif[compression=ccittfax4,bitdepth=1] 3000 5000 12000 16000"}),
    ("The plan as a small grey picture", {
        OURS: "convert -q plan.tif a.bmp --size 1200",
        "vips": "vips thumbnail plan.tif b.png 1200"}),
]


def inputs(program, photo, page):
    program.convert(photo, "photo.bmp")
    program.convert("photo.bmp", "photo.jpg", "--quality", "75", "--sampling", "2x2")
    program.convert(page, "plain.tif", "--code", "tiff")
    program.convert(page, "g4.tif", "--code", "tiff-g4")
    program.convert(page, "g4.pdf")
    if any("plan.tif" in commands[OURS] for _, commands in JOBS) and (program.binaries / "plan_memory").exists():
        subprocess.run([program.binaries / "plan_memory", ".", "tif"], cwd=program.work, check=True, capture_output=True)


def measured(program, words):
    """(processor seconds, kilobytes at most) of a process, or None."""
    started = subprocess.run([program.binaries / "measure", *words], cwd=program.work, stdout=subprocess.DEVNULL,
                             stderr=subprocess.PIPE, timeout=LONGEST, env={**os.environ, "VIPS_CONCURRENCY": "1",
                                                                         "OMP_NUM_THREADS": "1"})
    found = re.search(rb"measured ([0-9.]+) ([0-9]+)\s*$", started.stderr)
    return (float(found[1]), int(found[2])) if started.returncode == 0 and found else None


def compare(program, commands, runs):
    """{program: (seconds, kilobytes)}: all in turn, the least of each."""
    least = {}
    for _ in range(runs):
        for name, words in commands.items():
            took = measured(program, words)
            if took is None:
                least.pop(name, None)
                continue
            before = least.get(name, took)
            least[name] = tuple(min(pair) for pair in zip(before, took))
    return least


def available(program, jobs):
    for title, commands in jobs:
        words = {name: line.split() for name, line in commands.items()}
        words[OURS] = [str(program.binaries / "tarnquill"), *words[OURS]]
        words = {name: line for name, line in words.items() if name == OURS or shutil.which(line[0])}
        if len(words) > 1 and ("plan.tif" not in words[OURS] or (program.work / "plan.tif").exists()):
            yield title, words, commands


def rows_of_table(program):
    """(name, ratio, peer) as bench/peer_table prints them in a run of its own."""
    table = program.binaries / "peer_table"
    if not table.exists():
        return []
    library = program.binaries.parent / "lib"
    done = subprocess.run([table], capture_output=True, text=True, timeout=10 * LONGEST,
                          env={**os.environ, "LD_LIBRARY_PATH": str(library)})
    found = re.findall(r"^(\S.{33}) +[0-9.]+ us .*?([0-9.]+) of ((?:lib|Free|lept|gif)\S+)$", done.stdout, re.MULTILINE)
    return [(name.strip(), float(ratio), peer) for name, ratio, peer in found]


def library_bars(rows):
    if not rows:
        return ""
    lines = "".join(
        f'<div class="bar ratio"><span>{text(name)}<small>{text(peer)} takes 1</small></span>'
        f'<i class="{"over" if ratio > 2 else ""}"><b style="width:{50 * min(ratio, 2):.1f}%"></b></i>'
        f'<em>{ratio:.2f}</em></div>' for name, ratio, peer in sorted(rows, key=lambda row: row[1]))
    return (f'<h3>Libraries within one process</h3><p>Processor time as a share of the other library\u2019s, by '
            f'<code>bench/peer_table</code> in this run. The line is where both take the same; bars end at twice that.'
            f'</p><div class="bars ratios">{lines}</div>')


def machine():
    lines = pathlib.Path("/proc/cpuinfo").read_text().splitlines()
    name = next((line.split(":")[1].strip() for line in lines if line.startswith("model name")), platform.machine())
    load = os.getloadavg()[0]
    return (f"{name}, {os.cpu_count()} processors, {platform.system()} {platform.release()}, "
            f"load {load:.1f} when it began, {time.strftime('%d %B %Y, %H:%M %Z')}")


def build(program, life, photo, page, quick):
    where, runs = machine(), 3 if quick else 5
    inputs(program, photo, page)
    cards = []
    for title, words, commands in available(program, JOBS):
        life.doing = f"speed: {title}"
        least = compare(program, words, runs)
        if OURS not in least or len(least) < 2:
            continue
        names = sorted(least, key=lambda name: name != OURS)
        time_bars = bars([(n, least[n][0], f"{1000 * least[n][0]:,.0f}\u00a0ms") for n in names], "processor time")
        memory_bars = bars([(n, least[n][1], f"{least[n][1] / 1000:,.1f}\u00a0MB") for n in names], "memory")
        lines = "\n".join(f"tarnquill {commands[n]}" if n == OURS else commands[n] for n in names)
        cards.append(f'<li><h3>{text(title)}</h3><div class="two"><div><h4>processor time</h4>{time_bars}</div>'
                     f'<div><h4>most memory</h4>{memory_bars}</div></div>'
                     f'<details><summary>what was run</summary><pre>{text(lines)}</pre></details></li>')
    library = []
    if not quick:
        life.doing = "speed: bench/peer_table"
        library = rows_of_table(program)
    note = "" if cards else "<p>Nothing to compare with is installed.</p>"
    section = f"""<section id="speed">
<h2>Speed and memory</h2>
<p class="intro">The same jobs by this program and by others installed here: whole processes, from file to file, the least
of {runs} runs each. {text(where)}.</p>
<ul class="jobs">{"".join(cards)}</ul>{note}
{library_bars(library)}
</section>

"""
    return {"speed": section, "speed_link": '<a href="#speed">Speed and memory</a> '}
