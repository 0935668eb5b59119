#!/usr/bin/python3
"""Views of large pictures beside other programs: show_peers.py LIBRARY.so PLAN.pdf, the drawing that
plan_memory writes. Processor seconds, the best of five; peaks in MB."""
import ctypes
import os
import resource
import subprocess
import sys
import time

from PIL import Image

RUNS = 5
WINDOW = (1600, 1200)


class View(ctypes.Structure):
    _fields_ = [(f"field{i}", ctypes.c_int32) for i in range(16)]


def load():
    return ctypes.CDLL(sys.argv[1])


def render(library, image, bits):
    view = View(field0=64, field5=WINDOW[0], field6=WINDOW[1], field7=1)  # fitted
    stride = WINDOW[0] * bits // 8
    pixels = ctypes.create_string_buffer(stride * WINDOW[1])
    assert library.IMGLOW_render_view(image, ctypes.byref(view), bits, pixels, ctypes.c_ssize_t(stride), 0,
                                      WINDOW[1]) == 0


def show_plan():
    library = load()
    render(library, library.IMG_decompress_bitmap(sys.argv[2].encode()), 8)
    os._exit(0)


def best(work):
    times = []
    for _ in range(RUNS):
        begin = time.process_time()
        work()
        times.append(time.process_time() - begin)
    return min(times)


def best_of_child(start):
    """(seconds, MB) of a process, whose number `start` gives."""
    times, peak = [], 0
    for _ in range(RUNS):
        _, status, usage = os.wait4(start(), 0)
        assert status == 0
        times.append(usage.ru_utime + usage.ru_stime)
        peak = usage.ru_maxrss / 1000
    return min(times), peak


def child():
    number = os.fork()
    return number if number else show_plan()


def program(*words):
    return subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).pid


def line(name, ours, theirs):
    print(f"{name:44} {1000 * ours:8.1f} ms {1000 * theirs:8.1f} ms  ratio {ours / theirs:.2f}")


ours, peak = best_of_child(child)
for name, words in (("mutool draw", ("mutool", "draw", "-q", "-c", "gray", "-w", "1600", "-h", "1200", "-o", "/dev/null",
                                     "-F", "pgm", sys.argv[2])),
                    ("pdftoppm", ("pdftoppm", "-gray", "-scale-to", "1200", sys.argv[2]))):
    theirs, other_peak = best_of_child(lambda: program(*words))
    line(f"A0 plan from PDF, {name}", ours, theirs)
    print(f"{'':44} {peak:8.1f} MB {other_peak:8.1f} MB (ours with Python's)")

picture = Image.frombytes("RGB", (4000, 3000), os.urandom(36_000_000))
picture.save("/tmp/show_peers.bmp")
library = load()
image = library.IMG_decompress_bitmap(b"/tmp/show_peers.bmp")
os.remove("/tmp/show_peers.bmp")
line("12 MP to the window, Pillow's BOX", best(lambda: render(library, image, 32)),
     best(lambda: picture.resize(WINDOW, Image.Resampling.BOX)))
print(f"peak of this process {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1000:.0f} MB")
