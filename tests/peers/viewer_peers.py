#!/usr/bin/python3
"""The viewer for Windows on a display: what it shows after each key is what the library of this system
makes of the same view.

    viewer_peers.py LIBRARY.so VIEWER.exe [FILE PICTURE.png]

The last two: a picture of the viewer with a file, as it looks on a desktop. Skipped without Xvfb,
xdotool, Pillow or the library.
"""
import ctypes
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
try:
    from PIL import Image, ImageChops, ImageGrab
except ImportError:
    Image = None
if Image is None or None in map(shutil.which, ("Xvfb", "xdotool")) or not pathlib.Path(sys.argv[1]).exists():
    print("Xvfb, xdotool, Pillow or the library are missing")
    sys.exit(SKIPPED)
LIBRARY = ctypes.CDLL(sys.argv[1])
WAIT = 60  # seconds
SETTLED = 1.0  # after which nothing more is drawn
SCROLL_BAR = 24  # pixels, more than it is wide


class View(ctypes.Structure):
    _fields_ = [(name, ctypes.c_int32) for name in
                ("bytes source_x source_y source_width source_height width height fit zoom scroll_x scroll_y "
                 "device_dpi_x device_dpi_y angle flags").split()] + [("background", ctypes.c_uint32)]


FIT_NONE, FIT_WINDOW = 0, 1
BACKGROUND = 4


def draw_page(name):
    """Something that looks different from every side, in every colour, larger than the window."""
    image = Image.new("RGB", (1300, 900))
    image.putdata([(x * 255 // 1300, y * 255 // 900, (x * y >> 6) & 255 if (x // 40 + y // 40) % 2 else 90)
                   for y in range(900) for x in range(1300)])
    image.save(name)


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.split()


class Viewer:
    def __init__(self, folder, file, desktop=None):
        ours, theirs = os.pipe()
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(theirs), "-screen", "0", "1024x768x24"],
                                       pass_fds=[theirs], stderr=subprocess.DEVNULL)
        os.close(theirs)
        self.display = ":" + os.read(ours, 20).decode().strip()
        os.environ["DISPLAY"] = self.display
        if desktop:
            os.environ["WINE_DESKTOP"] = desktop
        self.process = subprocess.Popen([ROOT / "tools/wine32.sh", "--display", "run", sys.argv[2], file], cwd=folder)
        self.window = None
        end = time.time() + WAIT
        while not self.window and time.time() < end:
            self.window = (run("xdotool", "search", "--onlyvisible", "--name", "tarnquill" if desktop else
                               pathlib.Path(file).name) or [None])[0]
            time.sleep(0.2)
        assert self.window, "no window"
        x, y = self.area()[:2]
        run("xdotool", "mousemove", str(x + 30), str(y + 30))  # keys go to the window that it is in
        time.sleep(2 * SETTLED)

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.process.kill()
        subprocess.run([ROOT / "tools/wine32.sh", "--display", "stop"], check=False)
        self.server.kill()
        self.process.wait()
        self.server.wait()

    def area(self):
        found = dict(line.split("=") for line in run("xdotool", "getwindowgeometry", "--shell", self.window))
        return [int(found[key]) for key in ("X", "Y", "WIDTH", "HEIGHT")]

    def picture(self):
        time.sleep(SETTLED)
        x, y, width, height = self.area()
        return ImageGrab.grab(xdisplay=self.display).convert("RGB").crop((x, y, x + width, y + height))

    def press(self, key):
        run("xdotool", "key", key)

    def drag(self, start, end):
        x, y = self.area()[:2]
        for words in (["mousemove", x + start[0], y + start[1]], ["mousedown", 1],
                      ["mousemove", x + (start[0] + end[0]) // 2, y + end[1]],
                      ["mousemove", x + end[0], y + end[1]], ["mouseup", 1]):
            run("xdotool", *map(str, words))
            time.sleep(0.1)


def rendered(image, view):
    pixels = ctypes.create_string_buffer(4 * view.width * view.height)
    assert LIBRARY.IMGLOW_render_view(image, ctypes.byref(view), 32, pixels, ctypes.c_ssize_t(4 * view.width), 0,
                                      view.height) == 0
    return Image.frombytes("RGB", (view.width, view.height), pixels.raw, "raw", "BGRX")


def compare(what, viewer, image, view, margin=0):
    seen, wanted = viewer.picture(), rendered(image, view)
    box = (0, 0, view.width - margin, view.height - margin)
    differs = ImageChops.difference(seen.crop(box), wanted.crop(box)).getbbox()
    if differs:
        seen.save(ROOT / "build/viewer-seen.png")
        wanted.save(ROOT / "build/viewer-wanted.png")
    assert differs is None, f"{what}: differs within {differs} of {box}"
    print(f"{what}: the same {box[2]} x {box[3]} pixels")


def window_to_image(image, view, place):
    x, y = ctypes.c_int32(), ctypes.c_int32()
    LIBRARY.IMG_window_to_image(image, ctypes.byref(view), *place, ctypes.byref(x), ctypes.byref(y))
    return x.value, y.value


def check(folder):
    file = os.path.join(folder, "page.bmp")
    draw_page(file)
    image = LIBRARY.IMG_decompress_bitmap(file.encode())
    with Viewer(folder, file) as viewer:
        width, height = viewer.area()[2:]
        view = View(bytes=ctypes.sizeof(View), width=width, height=height, fit=FIT_WINDOW, flags=BACKGROUND,
                    background=0x808080)
        compare("fitted", viewer, image, view)
        viewer.press("r")
        view.angle = 90
        compare("turned", viewer, image, view)
        viewer.press("w")
        time.sleep(SETTLED)
        compare("wiped", viewer, image, view)
        viewer.press("G")
        LIBRARY.IMG_set_gamma(image, 120)
        compare("gamma", viewer, image, view)
        viewer.press("C")
        viewer.press("b")
        LIBRARY.IMG_set_display_tone(image, -10, 10)
        compare("brightness and contrast", viewer, image, view)
        viewer.press("1")
        view.fit, view.zoom = FIT_NONE, 1000
        compare("pixel by pixel", viewer, image, view, SCROLL_BAR)
        viewer.press("Right")
        viewer.press("Down")
        view.scroll_x = view.scroll_y = 40
        compare("scrolled", viewer, image, view, SCROLL_BAR)
        viewer.press("f")
        viewer.press("0")
        view.fit, view.scroll_x, view.scroll_y = FIT_WINDOW, 0, 0
        LIBRARY.IMG_set_display_tone(image, 0, 0)
        LIBRARY.IMG_set_gamma(image, 100)
        compare("fitted again", viewer, image, view)
        start, end = (width // 2 - 50, height // 3), (width // 2 + 70, height // 2)
        (left, top), (right, bottom) = (window_to_image(image, view, place) for place in (start, end))
        viewer.drag(start, end)
        view.source_x, view.source_width = min(left, right), abs(right - left) + 1
        view.source_y, view.source_height = min(top, bottom), abs(bottom - top) + 1
        compare("cropped", viewer, image, view)


with tempfile.TemporaryDirectory(dir=ROOT / "build") as scratch:
    if len(sys.argv) > 3:
        with Viewer(scratch, os.path.abspath(sys.argv[3]), "1000x740") as viewer:
            viewer.picture().save(sys.argv[4])
    else:
        check(scratch)
