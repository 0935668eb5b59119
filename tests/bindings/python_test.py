#!/usr/bin/env python3
"""The Python package over a built library.

    python_test.py BINDINGS LIBRARY [TEST...]     exit code 77 when numpy or Pillow are missing

BINDINGS is what tools/make_bindings.py wrote. Runs in the folder tests/.
"""
import concurrent.futures
import gc
import inspect
import os
import pathlib
import pickle
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
import unittest.mock

try:
    import numpy
    import PIL.Image
except ImportError:
    sys.exit(77)

BINDINGS, os.environ["TARNQUILL_LIBRARY"] = pathlib.Path(sys.argv[1]).resolve(), os.path.abspath(sys.argv[2])
sys.path[:0] = [str(BINDINGS / "python"), str(pathlib.Path(__file__).resolve().parents[2] / "tools")]
import tarnquill  # noqa: E402
from public_header import read_header  # noqa: E402
from tarnquill import _native as native  # noqa: E402
from tarnquill import Image, _operations  # noqa: E402

CORPUS = pathlib.Path("corpus")

# Exports with an image that no method is for: what draws, prints and scans is the system's, and what changes the
# form or one row of an image is what arrays are for.
WITHOUT_METHOD = {
    "IMG_delete_bitmap_keep", "IMG_get_croprect", "IMG_set_croprect", "IMGLOW_get_display_rect", "IMG_set_gamma",
    "IMGLOW_set_rop", "IMG_set_display_angle", "IMGLOW_set_transp_color", "IMGLOW_get_transp_color",
    "IMGLOW_get_raster", "IMGLOW_put_raster", "IMGLOW_get_palette", "IMGLOW_put_palette", "IMG_bitmap_palette",
    "IMG_runs_to_dib", "IMG_view_layout", "IMG_window_to_image", "IMG_image_to_window", "IMG_zoom_view",
    "IMG_scroll_view", "IMGLOW_render_view", "IMG_set_display_tone", "IMG_display_bitmap_iac", "IMG_display_wipe",
    "IMG_print_bitmap", "IMG_print_bitmap_fast", "IMG_copy_to_clipboard", "IMG_save_bitmap_fd", "IMG_save_bitmap_mem"}

# Arguments of every operation, and the bits of an image that takes it.
OPERATIONS = {
    "flip": (24,), "mirror": (1,), "orient": (8, 6), "crop": (24, 1, 2, 3, 4), "extend": (1, 1, 2, 3, 4),
    "rotate": (24, 1.5), "resize": (8, 9, 7, "lanczos"), "resample": (1, 100), "invert": (8,), "tone": (24, 10, -5, 1.5),
    "tone_table": (8, bytes(range(256))), "get_histogram": (24, 1), "auto_levels": (24,), "equalize": (8,),
    "filter": (24, "unsharp", 1.5), "convolve": (8, [[1, 2, 1]]), "quantize": (24, 16, True), "color_gray": (24,),
    "mediancut_color": (24,), "octree_color": (24,), "popularity_color": (24,), "bayer_color": (8,),
    "diffusion_color": (24,), "bayer_mono": (8,), "halftone_mono": (8,), "diffusion_mono": (24,), "thresh_mono": (8, 99),
    "adaptive_mono": (8, "background"), "promote": (1, 24), "level_background": (8,), "deskew": (1,),
    "auto_orient": (1,), "despeckle": (1,), "remove_lines": (1,), "autocrop": (1,), "remove_border": (1,),
    "find_threshold": (8,), "find_skew": (1,), "find_orientation": (1,), "find_content": (1,), "find_paper": (8,),
    "is_blank": (1,)}


def pixels(bits, width=31, height=17):
    noise = numpy.random.default_rng(bits).integers(0, 256, (height, width, 4), numpy.uint8)
    return {1: noise[..., 0] > 127, 8: noise[..., 0], 16: noise[..., 0] * numpy.uint16(257), 24: noise[..., :3],
            32: noise}[bits]


class PythonTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def status(self, status, call, *arguments, **named):
        with self.assertRaises(tarnquill.Error) as caught:
            call(*arguments, **named)
        self.assertEqual(caught.exception.status, status, caught.exception)

    def test_reads_what_pillow_reads(self):
        for path in (CORPUS / name for name in ("tiff/g4.tif", "tiff/grey4.tif", "tiff/grey-pillow.tif", "jpeg/cmyk.jpg",
                                                "png/grey16.png", "png/index4.png", "pcx/rgb24-pillow.pcx",
                                                "pcx/mono-pillow.pcx", "png/index8-one.png")):
            theirs, by_name, by_bytes = PIL.Image.open(path), Image.open(path), Image.open(path.read_bytes())
            with self.subTest(path):
                ours = by_name.to_pil()
                self.assertEqual(ours.size, theirs.size)
                mode = "I" if ours.mode == "I;16" else ours.mode if ours.mode in ("1", "L", "CMYK") else "RGB"
                apart = numpy.subtract(ours.convert(mode), theirs.convert(mode), dtype=int)
                self.assertLessEqual(abs(apart).max(), 2 if path.suffix == ".jpg" else 0)  # of another arithmetic
                self.assertTrue((by_bytes.numpy() == by_name.numpy()).all())

    def test_keeps_pixels_on_the_way_through_arrays_and_pillow(self):
        for bits in (1, 8, 16, 24, 32):
            array = pixels(bits)
            image = Image.from_numpy(array, dpi=(204, 98))
            with self.subTest(bits):
                self.assertEqual((image.bits, image.size, image.dpi), (bits, (31, 17), (204, 98)))
                self.assertTrue((image.numpy() == array).all())
                self.assertTrue((image.copy().numpy() == array).all())
                again = Image.from_pil(image.to_pil())
                self.assertTrue((again.numpy()[..., :3] == array[..., :3]).all() if bits == 32 else
                                (again.numpy() == array).all())
                self.assertEqual(again.dpi, (204, 98))
        palette = [(i, 255 - i, i // 2) for i in range(256)]
        coloured = Image.from_numpy(pixels(8), palette=palette)
        self.assertEqual((coloured.palette, Image.from_pil(coloured.to_pil()).palette), (palette, palette))
        transparent = PIL.Image.new("RGBA", (2, 1), (255, 0, 0, 0))
        self.assertEqual(Image.from_pil(transparent).numpy().tolist(), [[[255] * 3] * 2])

    def test_an_array_is_the_memory_of_the_image_and_holds_it(self):
        image = Image.from_numpy(pixels(24))
        array = image.numpy()
        array[0, 0] = (1, 2, 3)
        self.assertEqual(image.to_pil().getpixel((0, 0)), (3, 2, 1))
        self.assertRaises(BufferError, image.flip)
        row = image.numpy()[3][::-1]  # what is made from it holds it as well
        del array
        self.assertRaises(BufferError, image.crop, 0, 0, 2, 2)
        expected = row.copy()
        image.close()
        self.status(native.IMG_BAD_HANDLE, image.flip)
        others = [Image.from_numpy(255 - pixels(24)) for _ in range(5)]  # would take memory that had been given back
        self.assertTrue((row == expected).all())
        del others
        image = Image.from_numpy(pixels(8))
        image.numpy().mean()
        self.assertTrue((image.flip().numpy() == pixels(8)[::-1]).all())

    def test_every_export_for_images_has_a_method(self):
        source = "".join(pathlib.Path(module.__file__).read_text() for module in
                         (_operations, sys.modules["tarnquill.image"], sys.modules["tarnquill._library"]))
        called = set(re.findall(r"IMG(?:LOW)?_[a-z]\w+", source))
        wanted = {function.name for function in read_header().functions.values()
                  if function.parameters and function.parameters[0].name == "image"}
        self.assertEqual(wanted - called, WITHOUT_METHOD)

    def test_every_operation_is_done(self):
        methods = {name for name, value in inspect.getmembers(_operations.Operations) if name[0] != "_" and
                   callable(value)}
        self.assertEqual(methods, set(OPERATIONS))
        for name, (bits, *arguments) in OPERATIONS.items():
            with self.subTest(name):
                image = Image.from_numpy(pixels(bits, 61, 47), dpi=(204, 98))
                answer = getattr(image, name)(*arguments)
                self.assertEqual(answer is image, not re.match("find_|get_|is_", name))

    def test_operations_do_what_their_names_say(self):
        array = pixels(24)
        expected = {"flip": array[::-1], "mirror": array[:, ::-1], "invert": 255 - array, "orient": array[::-1, ::-1]}
        for name, result in expected.items():
            image = Image.from_numpy(array)
            getattr(image, name)(*([3] if name == "orient" else []))
            self.assertTrue((image.numpy() == result).all(), name)
        self.assertTrue((Image.from_numpy(array).rotate(90).numpy() == numpy.rot90(array, -1)).all())
        self.assertTrue((Image.from_numpy(array).crop(3, 2, 9, 5).numpy() == array[2:7, 3:12]).all())
        self.assertEqual(Image.from_numpy(array).resize(9, 5).size, (9, 5))
        red = Image.from_numpy(array).get_histogram(1)
        self.assertEqual(red, numpy.bincount(array[..., 2].ravel(), minlength=256).tolist())
        self.assertTrue((Image.from_numpy(array).tone_table(bytes(range(255, -1, -1))).numpy() == 255 - array).all())

    def test_saves_replace_or_append_and_fail_without_a_trace(self):
        path = self.folder / "pages.tif"
        first, second = Image.from_numpy(pixels(24)), Image.from_numpy(pixels(8))
        first.save(path)
        second.save(path, append=True)
        self.assertEqual((Image.open(path, 1).pages, Image.open(path, 1).bits), (2, 8))
        self.assertEqual([image.bits for image in Image.open_all(path)], [24, 8])
        second.save(path)
        self.assertEqual(Image.open(path).pages, 1)
        self.assertEqual(path.read_bytes(), second.to_bytes("tiff"))
        self.status(native.IMG_WRONG_DEPTH, first.save, path, "tiff-g4")
        with unittest.mock.patch("os.replace", side_effect=PermissionError):
            self.assertRaises(PermissionError, first.save, path)
        self.assertEqual(Image.open(path).bits, 8)
        jpeg = self.folder / "one.jpg"
        first.save(jpeg, quality=95)
        self.assertLess(len(first.to_bytes("jpeg", quality=10)), jpeg.stat().st_size)
        self.status(native.IMG_UNSUPPORTED, first.save, jpeg, append=True)
        noisy = Image.from_numpy(pixels(8, 300, 300))  # texts are larger than pixels
        self.assertTrue((Image.open(noisy.to_bytes("xpm")).numpy() == noisy.numpy()).all())
        self.assertEqual(sorted(os.listdir(self.folder)), ["one.jpg", "pages.tif"])

    def test_says_what_went_wrong(self):
        self.status(native.IMG_CANNOT_OPEN, Image.open, self.folder / "missing.tif")
        self.status(native.IMG_UNSUPPORTED, Image.open, b"nothing that is known")
        self.status(native.IMG_PAGE_PAST_END, Image.open, CORPUS / "jpeg" / "420.jpg", 1)
        self.status(native.IMG_WRONG_DEPTH, Image.from_numpy(pixels(24)).despeckle)
        error = pickle.loads(pickle.dumps(tarnquill.Error(native.IMG_BAD_IMAGE, "x.tif")))
        self.assertEqual((error.status, str(error)), (native.IMG_BAD_IMAGE,
                                                      f"x.tif: {tarnquill.status_text(native.IMG_BAD_IMAGE)}"))
        whole = (CORPUS / "jpeg" / "420.jpg").read_bytes()
        self.assertIsNone(Image.open(whole).damage)
        damage = Image.open(whole[:-40]).damage
        self.assertEqual(damage.reason.status, native.IMG_READ_FAILED)
        tarnquill.set_option("strict", 1)
        try:
            self.status(native.IMG_READ_FAILED, Image.open, whole[:-40])
        finally:
            tarnquill.set_option("strict", 0)
        found = tarnquill.info(CORPUS / "tiff" / "g4.tif")
        self.assertEqual((found.format, found.bits, found.pages), ("tiff-g4", 1, 1))
        for name, pages in ("gif/frames.gif", 3), ("gif/dot.gif", 1), ("pdf/gm.pdf", 1):
            path = CORPUS / name
            self.assertEqual((tarnquill.info(path).pages, len(list(Image.open_all(path.read_bytes())))), (pages, pages))

    def test_threads_have_contexts_of_their_own(self):
        names = [*(CORPUS / "jpeg").glob("4*.jpg"), *(CORPUS / "tiff").glob("g4*.tif")] * 6

        def digest(name):
            image = Image.open(name)
            return image, image.copy().rotate(7).to_bytes("bmp")
        alone = [digest(name)[1] for name in names]
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            made = list(pool.map(digest, names))
        contexts = {image._handle.context for image, _ in made}
        self.assertGreater(len(contexts), 1)
        for context in contexts:
            with context as api:
                self.assertEqual(api.IMG_use_context(context._number), context._number)
        self.assertEqual([data for _, data in made], alone)
        # Images outlive their threads, and are used and deleted by others.
        self.assertEqual([image.rotate(7).to_bytes("bmp") for image, _ in made], alone)

        def in_one_context():
            made[0][0].flip().flip()
        threads = [threading.Thread(target=in_one_context) for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(made[0][0].to_bytes("bmp"), alone[0])

    def test_nothing_stays_behind(self):
        gc.collect()
        first = Image.from_numpy(pixels(8))._handle.number  # the lowest that is free is given out

        def make():
            images.extend(Image.from_numpy(pixels(8)) for _ in range(50))
        images = []
        for _ in range(100):
            threading.Thread(target=make).run()
            thread = threading.Thread(target=make)
            thread.start()
            thread.join()
            images.clear()
        self.assertEqual(Image.from_numpy(pixels(8))._handle.number, first)
        gc.collect()
        number = tarnquill._library._api.IMG_new_context()
        self.assertLess(number, 50)  # those of threads that have ended can be had again
        tarnquill._library._api.IMG_delete_context(number)

    @unittest.skipUnless(shutil.which("mypy"), "mypy")
    def test_types_are_whole(self):
        subprocess.run(["mypy", "--strict", "--no-error-summary", "--cache-dir", str(self.folder), "--python-executable",
                        sys.executable, "-p", "tarnquill"], check=True, cwd=BINDINGS / "python")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
