#!/usr/bin/python3
"""Tests of the command line program: tool_test.py PROGRAM [unittest's arguments]."""
import fcntl
import json
import os
import pathlib
import pty
import re
import resource
import shutil
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

import bmp

CORPUS = pathlib.Path(__file__).resolve().parent.parent / "corpus"
PROGRAM = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 1 else "tarnquill"
WAIT = 60  # seconds, where something has to happen soon


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, data):
        path = self.folder / name
        path.write_bytes(data)
        return path

    def write_picture(self, name, width=20, height=10, bits=24, **more):
        return self.write(name, bmp.encode(bmp.random_pixels(width, height, bits), bits, **more))

    def run_tool(self, *words, data=b"", stdout=subprocess.PIPE, **more):
        return subprocess.run([PROGRAM, *map(os.fspath, words)], input=data, stdout=stdout, stderr=subprocess.PIPE,
                              cwd=self.folder, timeout=WAIT, **more)

    def start(self, *words, **more):
        process = subprocess.Popen([PROGRAM, *words], cwd=self.folder, **more)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def succeed(self, *words, **more):
        done = self.run_tool(*words, **more)
        self.assertEqual((done.returncode, done.stderr.decode()), (0, ""), words)
        return done.stdout

    def refuse(self, code, message, *words, **more):
        """The run ends with this exit code and message; the names are those of the test's folder."""
        done = self.run_tool(*words, **more)
        self.assertEqual(done.returncode, code, (words, done.stderr))
        self.assertIn(message, done.stderr.decode(), words)
        return done

    def convert(self, source, *options):
        """(bits, rows) of a result."""
        self.succeed("convert", *options, source, "result.bmp")
        return bmp.decode((self.folder / "result.bmp").read_bytes())

    def names(self):
        return sorted(os.listdir(self.folder))


class Usage(ToolTest):
    def test_wrong_usage_is_exit_code_2_and_says_what_is_wrong(self):
        self.write_picture("a.bmp")
        self.write_picture("b.bmp")
        for words, message in [
                ([], "a command is missing"),
                (["transmogrify"], "unknown command transmogrify"),
                (["info"], "needs the name of a file"),
                (["info", "--colour", "a.bmp"], "unknown option --colour"),
                (["convert", "a.bmp"], "convert needs an input and an output"),
                (["convert", "a.bmp", "out"], "use --code"),
                (["convert", "a.bmp", "-"], "needs --code"),
                (["convert", "a.bmp", "b.bmp", "c.bmp"], "need a folder"),
                (["convert", "a.bmp", "."], "needs --code"),
                (["convert", "--code", "bmq", "a.bmp", "x"], "unknown file type code 'bmq'"),
                (["convert", "a.bmp", "x.bmp", "--crop"], "--crop needs a value"),
                (["convert", "--quality", "101", "a.bmp", "x.jpg"], "--quality takes a number"),
                (["convert", "--sampling", "4x3", "a.bmp", "x.jpg"], "products up to 8"),
                (["convert", "--crop", "1,2,3", "a.bmp", "x.bmp"], "--crop takes X,Y,W,H"),
                (["convert", "--crop", "0,0,9999999999,5", "a.bmp", "x.bmp"], "--crop takes"),
                (["convert", "--size", "0x5", "a.bmp", "x.bmp"], "--size takes N, WxH"),
                (["convert", "--pa", "1", "a.bmp", "x.bmp"], "--pa could be --pages or --page"),
                (["convert", "--pages", "3-2", "a.bmp", "x.bmp"], "--pages takes numbers and ranges"),
                (["convert", "--paper", "a9", "a.bmp", "x.pdf"], "--paper takes a3"),
                (["convert", "--log", "x", "a.bmp", "x.bmp"], "--log and --resume need a folder"),
                (["convert", "--reduce", "2", "a.bmp", "x.bmp"], "--reduce takes 8, 4 or 1"),
                (["dither", "--method", "x", "a.bmp", "x.bmp"], "--method takes one of"),
                (["convert", "--page", "0", "a.bmp", "x.bmp"], "--page takes a number from 1"),
                (["convert", "--rect", "0,0,5,5", "--decode-size", "5x5", "a.bmp", "x.bmp"], "exclude each other"),
                (["convert", "--crop", "20,0,5,5", "a.bmp", "x.bmp"], "a.bmp: --crop lies outside of the image of 20x10"),
        ]:
            with self.subTest(words):
                self.refuse(2, message, *words)
        self.assertEqual(self.names(), ["a.bmp", "b.bmp"])

    def test_help_and_version_go_to_standard_output(self):
        self.assertIn(b"Commands:", self.succeed("--help"))
        self.assertRegex(self.succeed("--version"), rb"^tarnquill (\d+\.\d+\.\d+) \(library \1, interface 8\.3\)\n$")
        for words in (["convert", "-h"], ["help", "convert"], ["convert", "--help", "a", "b"]):
            self.assertIn(b"--dither-mode N", self.succeed(*words))

    def test_options_may_stand_anywhere_and_end_at_two_dashes(self):
        self.write_picture("-a.bmp")
        self.succeed("convert", "-o", "b.bmp", "--crop=1,1,3,2", "--", "-a.bmp")
        self.succeed("convert", "./-a.bmp", "-qoc.bmp", "--code", "bmp", "--pape", "a4", "--crop", "3x2+1+1")
        self.assertEqual((self.folder / "b.bmp").read_bytes(), (self.folder / "c.bmp").read_bytes())

    def test_an_image_is_not_written_to_a_terminal(self):
        self.write_picture("a.bmp")
        ours, theirs = pty.openpty()
        self.refuse(2, "not written to a terminal", "convert", "--code", "bmp", "a.bmp", "-", stdout=theirs)
        os.close(theirs)
        os.close(ours)


class Operations(ToolTest):
    def test_each_command_gives_its_depth_and_pixels(self):
        grey = [[(v, v, v) for v in range(0, 256, 15)]] * 5
        self.write("grey.bmp", bmp.encode(grey, 24))
        self.write_picture("index.bmp", 9, 4, 4)
        for words, source, bits in [
                (["gray"], "grey.bmp", 8), (["dither"], "grey.bmp", 1),
                (["dither", "--method", "halftone"], "grey.bmp", 1),
                (["dither", "--method", "bayer-color"], "grey.bmp", 4),
                (["reduce", "--colors", "8", "--bits", "4"], "grey.bmp", 4),
                (["reduce", "--method", "popularity"], "grey.bmp", 8),
                (["reduce", "--method", "fixed", "--dither-mode", "2"], "grey.bmp", 8),
                (["threshold", "--level", "100"], "grey.bmp", 1), (["threshold"], "grey.bmp", 1),
                (["promote", "--bits", "8"], "index.bmp", 8), (["promote"], "index.bmp", 24)]:
            self.succeed(*words, source, "result.bmp")
            result = bmp.decode((self.folder / "result.bmp").read_bytes())
            self.assertEqual(result[0], bits, words)
            if words == ["threshold", "--level", "100"]:
                self.assertEqual(result[1][0], [(255 * (v > 100),) * 3 for v in range(0, 256, 15)])


    def test_pixels_go_where_the_command_says(self):
        rows = bmp.random_pixels(7, 4, 24)
        self.write("in.bmp", bmp.encode(rows, 24))
        white = (255, 255, 255)
        for words, expected in [
                (["flip"], rows[::-1]), (["mirror"], [row[::-1] for row in rows]),
                (["invert"], [[tuple(255 - v for v in pixel) for pixel in row] for row in rows]),
                (["orient", "--value", "6"], [list(column) for column in zip(*rows[::-1])]),
                (["rotate", "--angle", "-90"], [list(column) for column in zip(*rows)][::-1]),
                (["crop", "--rect", "2,1,3,2"], [row[2:5] for row in rows[1:3]]),
                (["extend", "--margins", "1,-1,0,1"], [[white] + row for row in rows[1:]] + [[white] * 8]),
                (["resize", "--size", "14x8", "--filter", "nearest"], [
                    [pixel for pixel in row for _ in "12"] for row in rows for _ in "12"]),
                (["resize", "--size", "100%"], rows), (["resize", "--size", "7"], rows)]:
            self.succeed(*words, "in.bmp", "out.bmp")
            self.assertEqual(bmp.decode((self.folder / "out.bmp").read_bytes())[1], expected, words)
        self.refuse(2, "--margins takes L,T,R,B", "extend", "--margins", "1,2,3", "in.bmp", "out.bmp")
        self.refuse(2, "--angle takes a number of degrees", "rotate", "--angle", "1x", "in.bmp", "out.bmp")
        self.refuse(2, "--size takes N, WxH, Wx, xH or N%", "resize", "--size", "0%", "in.bmp", "out.bmp")


class Info(ToolTest):
    def test_shows_what_the_files_are(self):
        self.write_picture("photo.bmp", 20, 10, 24, dots_per_metre=11811)
        self.write_picture("a long name.bmp", 300, 7, 1)
        self.assertEqual(self.succeed("info", "photo.bmp", "a long name.bmp").decode(), """\
FILE             FORMAT  CODE   SIZE  DEPTH  COLOURS  DPI  PAGES  CODING  ORIENTATION  BYTES
photo.bmp        BMP        1  20x10     24  RGB      300      1  none              1    654
a long name.bmp  BMP        1  300x7      1  mono       -      1  none              1    342
""")

    def test_json_is_valid_for_any_name_and_carries_failures(self):
        odd = b'q"\\\n\xff\xc3\xa9.bmp'
        pathlib.Path(os.fsdecode(os.fsencode(self.folder) + b"/" + odd)).write_bytes(
            bmp.encode(bmp.random_pixels(4, 3, 8), 8, 3780))
        self.write("noise", bytes(range(100, 160)))
        done = self.run_tool("info", "--json", os.fsdecode(odd), "noise", "missing")
        self.assertEqual(done.returncode, 1)
        picture, noise, missing = json.loads(done.stdout)
        self.assertEqual(picture, {"file": 'q"\\\n\ufffdé.bmp', "bytes": 1090, "format": "BMP", "code": 1, "pages": 1,
                                   "coding": "none", "orientation": 1, "width": 4, "height": 3, "depth": 8,
                                   "colours": "palette", "x_dpi": 96, "y_dpi": 96})
        self.assertEqual((noise["file"], noise["status"]), ("noise", -7))
        self.assertEqual(missing, {"file": "missing", "status": -2, "error": "missing: no such file (-2)"})

    def test_names_cannot_control_the_terminal(self):
        name = "e\033[2J\u009b\x7f\ré\u202e\u2066\u2028.bmp"
        self.write_picture(name)
        self.assertIn("e?[2J???é???.bmp  BMP ", self.succeed("info", name).decode())
        self.assertIn(r"e\u001b[2J\u009b\u007f\u000dé\u202e\u2066\u2028.bmp", self.succeed("info", "--json", name).decode())
        self.refuse(1, "tarnquill: ??é?: no such file (-2)\n", "info", b"\n\xc2\x80\xc3\xa9\x9b")

    def test_goes_on_after_files_that_cannot_be_read(self):
        self.write_picture("good.bmp")
        self.write("flat.bmp", bmp.header(0, 5, 24, 0))
        self.write("unread.gx2", b"GX2" + bytes(9))
        self.write("coded.dcm", bytes(128) + b"DICM\2\0\x10\0UI\x16\0" + b"1.2.840.10008.1.2.4.70" + bytes(8))
        self.succeed("convert", "good.bmp", "good.tif")
        plain = (self.folder / "good.tif").read_bytes()
        self.write("jpeg2000.tif", plain.replace(b"\3\1\3\0\1\0\0\0\1\0", b"\3\1\3\0\1\0\0\0" + (34712).to_bytes(2, "little")))
        done = self.run_tool("info", "missing.bmp", "flat.bmp", "unread.gx2", "coded.dcm", "jpeg2000.tif",
                             CORPUS / "jpeg" / "arithmetic.jpg", ".", "good.bmp")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.decode().replace(f"{CORPUS}/jpeg/", "").splitlines(), [
            "tarnquill: missing.bmp: no such file (-2)",
            "tarnquill: flat.bmp: image data is invalid (-3)",
            "tarnquill: unread.gx2: GX2 files cannot be read (-7)",
            "tarnquill: coded.dcm: DICOM of transfer syntax 1.2.840.10008.1.2.4.70 cannot be read (-7)",
            "tarnquill: jpeg2000.tif: TIFF with JPEG 2000 compression cannot be read (-7)",
            "tarnquill: arithmetic.jpg: JPEG with arithmetic coding cannot be read (-3)",
            "tarnquill: .: is a folder (-2)"])
        self.assertRegex(done.stdout.decode(), r"(?m)^unread.gx2 +GX2 +22 +- +- +- +- +1 +- +- +12$")
        self.assertRegex(done.stdout.decode(), r"(?m)^good.bmp +BMP +1 +20x10 ")
        if os.geteuid() != 0:
            (self.folder / "good.bmp").chmod(0)
            self.refuse(1, "tarnquill: good.bmp: permission denied (-2)", "info", "good.bmp")

    def test_tells_what_is_damaged(self):
        whole = self.write_picture("whole.bmp").read_bytes()
        self.write("cut.bmp", whole[:len(whole) - 200])  # from the bottom: rows of 60 bytes
        note = "tarnquill: cut.bmp: rows 0 to 3 of 10 are missing\n"
        self.assertEqual(self.succeed("info", "--check", "whole.bmp"), self.succeed("info", "whole.bmp"))
        self.refuse(3, note, "info", "--check", "cut.bmp")
        self.refuse(3, note, "convert", "cut.bmp", "rest.png")
        self.assertIn(b" 20x10 ", self.succeed("info", "--check", "rest.png"))
        self.refuse(1, "tarnquill: cut.bmp: reading failed (-12)", "convert", "--strict", "cut.bmp", "none.png")
        self.assertFalse((self.folder / "none.png").exists())
        self.succeed("convert", "--contract", "cut.bmp", "kept.png")
        self.refuse(1, "tarnquill: whole.bmp: out of memory, or the image is too large (-1)",
                    "convert", "--limit-pixels=199", "whole.bmp", "none.png")

    def test_shows_images_as_other_programs_do(self):
        self.write_picture("a.bmp")
        self.succeed("convert", "--dpi=600", "a.bmp", "a.tif")
        self.assertRegex(self.succeed("info", "a.tif").decode(), r"(?m)^a.tif .* 20x10 +24  RGB +600 ")
        turned = bytearray((self.folder / "a.tif").read_bytes())
        entry = turned.index(b"\x12\x01\x03\x00\x01\x00\x00\x00\x01")  # Orientation 1
        turned[entry + 8] = 6
        self.write("turned.tif", bytes(turned))
        self.succeed("convert", "turned.tif", "upright.png")
        self.assertIn(b" 10x20 ", self.succeed("info", "turned.tif"))
        self.assertIn(b" 10x20 ", self.succeed("info", "upright.png"))
        self.succeed("convert", "--no-orient", "turned.tif", "stored.png")
        self.assertIn(b" 20x10 ", self.succeed("info", "stored.png"))
        for name, seen in (("tiff/zip.tif", "TIFF +0 .* deflate"), ("mca/mono.mca", "MCA +49 .* 2 "),
                           ("sct/grey.sct", "SCT +60 ")):
            self.assertRegex(self.succeed("info", CORPUS / name).decode(), seen)
        # Inks stay inks where they can.
        inks = CORPUS / "jpeg" / "cmyk.jpg"
        for name, depth in (("inks.tif", 32), ("colours.png", 24)):
            self.succeed("convert", "-q", inks, name)
            self.assertRegex(self.succeed("info", name).decode(), rf" {depth} +(CMYK|RGB) ")
        self.refuse(1, "tarnquill: none.png: PNG holds no inks: leave out --keep-inks", "convert", "--keep-inks", inks,
                    "none.png")
        usual, optimised, progressive = (self.succeed("convert", "--code=jpeg", *options, inks, "-")
                                         for options in ([], ["--optimise"], ["--progressive"]))
        self.assertLess(len(optimised), len(usual))
        self.assertIn(b"\xff\xc2", progressive)
        self.assertRegex(self.succeed("formats").decode(), r"(?m)^ +43  png +PNG +1 4 8 16 24 +1 4 8 16 24 32$")

    def test_counts_pages(self):
        self.write_picture("a.bmp")
        self.succeed("convert", "a.bmp", "a.bmp", "pages.dcx")
        self.succeed("append", "a.bmp", "pages.dcx")
        self.succeed("append", "a.bmp", "a.bmp", "two.tif")
        self.assertIn(b"  297  PageNumber                         2  1 0\n", self.succeed("tags", "--page=2", "two.tif"))
        self.assertRegex(self.succeed("info", "--pages", "two.tif", "a.bmp").decode(),
                         r"(?s)PAGE  CODING.* 2  none +1 +\d+\na.bmp +BMP .* 1  none +1 +\d+\n$")
        self.refuse(1, "tarnquill: two.tif: page is beyond the last one (-31)", "tags", "--page=3", "two.tif")
        self.refuse(1, "tarnquill: a.bmp: format or parameter is not supported (-7)", "tags", "a.bmp")
        self.assertEqual([self.succeed("pages", CORPUS / name) for name in ("icon/sizes.ico", "gif/frames.gif")],
                         [b"2\n", b"3\n"])
        self.assertEqual(self.succeed("pages", "pages.dcx"), b"3\n")
        self.assertEqual(self.succeed("pages", "a.bmp", "pages.dcx"), b"a.bmp: 1\npages.dcx: 3\n")
        self.succeed("convert", "--page", "3", "pages.dcx", "last.png")
        self.assertRegex(self.succeed("info", "last.png").decode(), r"PNG +43 +20x10 ")
        for command in (["info"], ["convert", "-o", "b.bmp"]):
            self.refuse(1, "tarnquill: a.bmp: page is beyond the last one (-31)", *command, "--page=2", "a.bmp")

    def test_reads_standard_input(self):
        picture = self.write_picture("a.bmp").read_bytes()
        self.assertIn(b"standard input  BMP", self.succeed("info", "-", data=picture))
        self.assertIn(b"standard input  BMP", self.succeed("info", "--pages", "-", data=picture))
        self.refuse(1, "tarnquill: standard input: no image of a known format (-7)", "info", "-")


class Rectangles(ToolTest):
    WIDTH, HEIGHT = 45, 21
    # As given, and where it comes to lie.
    CASES = [
        ("0,0,45,21", (0, 0, 45, 21)),  # all of it
        ("3,2,9,5", (3, 2, 9, 5)),  # begins and ends inside of a byte
        ("8,0,16,21", (8, 0, 16, 21)),
        ("1,0,44,21", (1, 0, 44, 21)),  # touches the right and the bottom edge
        ("44,20,1,1", (44, 20, 1, 1)),  # the last pixel
        ("0,20,45,1", (0, 20, 45, 1)),
        ("17,3,1000,1000", (17, 3, 28, 18)),  # reaches out of the image
        ("-5,-6,10,10", (0, 0, 5, 4)),
        ("2147483647x2147483647+13+7", (13, 7, 32, 14)),
    ]

    def test_are_exact_to_the_pixel_at_every_depth(self):
        for bits in (1, 4, 8, 24, 32):
            source = self.write_picture("source.bmp", self.WIDTH, self.HEIGHT, bits)
            _, whole = bmp.decode(source.read_bytes())
            for option in ("--crop", "--rect"):
                for text, (x, y, width, height) in self.CASES:
                    with self.subTest(bits=bits, option=option, rect=text):
                        expected = [row[x:x + width] for row in whole[y:y + height]]
                        self.assertEqual(self.convert(source, option, text), (bits, expected))

    def test_crop_applies_to_the_scaled_and_reduced_image(self):
        source = self.write_picture("source.bmp", self.WIDTH, self.HEIGHT, 24)
        for options in (["--decode-size", "30x11"], ["--reduce", "1"], ["--decode-size", "31x13", "--reduce", "4"],
                        ["--size", "30x11"], ["--rotate", "90", "--flip"], ["--gray", "--invert"]):
            with self.subTest(options):
                bits, whole = self.convert(source, *options)
                expected = [row[5:18] for row in whole[3:9]]
                self.assertEqual(self.convert(source, *options, "--crop", "5,3,13,6"), (bits, expected))


class Conversions(ToolTest):
    def test_the_code_or_the_name_chooses_the_format(self):
        source = self.write_picture("a.bmp", 45, 21, 8)
        original = source.read_bytes()
        for options, name, compression in ((["--code", "12"], "x", 1), (["--code", "BMP-RLE"], "x.bmp", 1),
                                           ([], "x.BMP", 0), (["--code=1"], "x.dib", 0)):
            with self.subTest(options=options, name=name):
                self.succeed("convert", *options, "a.bmp", name)
                self.assertEqual((self.folder / name).read_bytes()[30], compression)
                self.assertEqual(self.convert(name), bmp.decode(original))
        self.succeed("convert", "a.bmp", "y.dib")
        self.assertEqual((self.folder / "y.dib").read_bytes(), original[14:])

    def test_scaling_and_reducing_while_decoding(self):
        source = self.write_picture("a.bmp", 200, 100, 24)
        bits, rows = self.convert(source, "--decode-size", "50x40", "--reduce", "8", "--dither-mode", "2")
        self.assertEqual((bits, len(rows[0]), len(rows)), (8, 50, 40))
        done = self.refuse(0, "200x100 pixels are not larger than 200x40", "convert", "--decode-size", "200x40",
                           "a.bmp", "b.bmp")
        self.assertEqual((self.folder / "b.bmp").read_bytes(), source.read_bytes(), done.stderr)
        self.succeed("convert", "-q", "--decode-size", "300x40", "a.bmp", "b.bmp")

    def test_quality_and_sampling_of_every_result(self):
        self.write_picture("b.bmp", 64, 64)
        self.succeed("gray", "b.bmp", "a.bmp")
        def results(*options):
            self.succeed("convert", "-q", "--code", "jpeg", *options, "a.bmp", "b.bmp", "out/")
            return [(self.folder / "out" / name).read_bytes() for name in ("a.jpg", "b.jpg")]
        sizes = {quality: [len(file) for file in results(f"--quality={quality}")] for quality in (10, 50, 90)}
        for i in range(2):
            self.assertLess(sizes[10][i], sizes[50][i])
            self.assertLess(sizes[50][i], sizes[90][i])
        # The factors of the first component in SOF0; the grey image in front does not change them.
        for options, factors in (((), 0x21), (("--sampling", "2x2"), 0x22), (("--sampling=1x1",), 0x11)):
            grey, colour = results(*options)
            self.assertEqual(grey[grey.index(b"\xFF\xC0") + 11], 0x11)
            self.assertEqual(colour[colour.index(b"\xFF\xC0") + 11], factors)

    def test_standard_input_and_output(self):
        for bits in (1, 24):
            picture = bmp.encode(bmp.random_pixels(300, 200, bits), bits)
            result = self.succeed("convert", "--code", "bmp", "-", "-", data=picture)
            self.assertEqual(bmp.decode(result), bmp.decode(picture))
        self.assertEqual(self.names(), [])

    def test_many_inputs_go_to_a_folder(self):
        for name in ("a.bmp", "b.x.bmp"):
            self.write_picture(name)
        (self.folder / "more").mkdir()
        self.write_picture("more/a.bmp", 5, 5)
        self.write("bad.bmp", b"nothing")
        for out, options in (("out", []), ("jobs", ["--jobs", "3"])):
            done = self.run_tool("convert", *options, "a.bmp", "bad.bmp", "b.x.bmp", "more/a.bmp", out + "/",
                                 "--code", "dib")
            self.assertEqual(done.returncode, 1)
            self.assertEqual(sorted(done.stderr.decode().splitlines()), [
                "2 converted, 2 failed",
                "tarnquill: bad.bmp: no image of a known format (-7)",
                f"tarnquill: more/a.bmp: {out}/a.dib is already the result of another input (-6)"])
            self.assertEqual(sorted(os.listdir(self.folder / out)), ["a.dib", "b.x.dib"])
            self.assertEqual((self.folder / out / "a.dib").read_bytes(), (self.folder / "a.bmp").read_bytes()[14:])

    def test_jobs_share_the_settings_of_the_command_line(self):
        names = [f"{i}.bmp" for i in range(20)]
        for name in names:
            self.write_picture(name, 40, 30)
        for out, jobs in (("one", "1"), ("four", "4")):
            self.succeed("convert", "-q", "--jobs", jobs, "--decode-size", "20x15", "--reduce", "8", "--code", "bmp", *names, out + "/")
        for name in names:
            self.assertEqual((self.folder / "one" / name).read_bytes(), (self.folder / "four" / name).read_bytes())
            self.assertEqual(bmp.decode((self.folder / "four" / name).read_bytes())[0], 8)

    def test_verbose_tells_of_each_result(self):
        self.write_picture("a.bmp", 20, 10, 4)
        self.refuse(0, "a.bmp -> b.bmp: BMP compressed, 3x2, 4-bit\n", "convert", "-v", "--crop", "1,1,3,2",
                  "--code", "12", "a.bmp", "b.bmp")
        self.succeed("convert", "-v", "a.bmp", "b.bmp", preexec_fn=lambda: os.close(2))
        self.assertEqual((self.folder / "b.bmp").read_bytes(), (self.folder / "a.bmp").read_bytes())


class Rows(ToolTest):
    def compare(self, data, *options):
        """By name, rows go straight from file to file if they can; what comes through a pipe is made an image."""
        self.write("in", data)
        results = []
        for source in ("in", "-"):
            done = self.run_tool("convert", *options, "-o", "out", source, data=data)
            out = self.folder / "out"
            results.append((done.returncode, done.stderr.decode().replace("standard input", "in"),
                            out.read_bytes() if out.exists() else None))
            if out.exists():
                out.unlink()
        self.assertEqual(results[0], results[1])
        self.assertEqual(self.names(), ["in"])
        return results[0][0]

    def test_change_nothing_on_their_way_from_file_to_file(self):
        files = [file for folder in ("jpeg", "png", "tiff", "pcx", "bmp") for file in sorted((CORPUS / folder).iterdir())]
        ends = []
        for i, file in enumerate(files):
            whole = file.read_bytes()
            code = ("bmp", "png", "pcx", "tiff", "tiff-g4")[i % 5]
            more = (["--verbose"], ["--no-orient"], ["--contract"])[i // 5 % 3]
            for data, options in ((whole, more), (whole[:len(whole) * 2 // 3], []), (whole[:len(whole) // 2], ["--strict"])):
                with self.subTest(file=file.name, code=code, bytes=len(data), options=options):
                    ends.append(self.compare(data, "--code", code, *options))
        for code in (0, 1, 3):
            self.assertGreater(ends.count(code), 20, code)

    def test_take_the_memory_of_some_rows(self):
        side = 3000
        self.write("a.bmp", bmp.header(side, side, 24, 3 * side * side) + bytes(3 * side * side))
        self.succeed("convert", "a.bmp", "b.bmp", "--limit-kbytes", "1500")
        self.assertEqual((self.folder / "b.bmp").read_bytes(), (self.folder / "a.bmp").read_bytes())
        self.succeed("convert", "a.bmp", "a.pcx")
        for name in ("b.bmp", "b.png", "b.pcx", "b.tif"):
            self.succeed("convert", "a.pcx", name, "--limit-kbytes", "1500")
        self.refuse(1, "out of memory", "convert", "a.pcx", "b.png", "--mirror", "--limit-kbytes", "1500")


class Pages(ToolTest):
    def test_all_are_taken_or_those_asked_for(self):
        for i in range(4):
            self.write_picture(f"{i}.bmp", 10 + i, 5)
        self.succeed("convert", "0.bmp", "1.bmp", "2.bmp", "three.dcx")
        self.succeed("convert", CORPUS / "gif" / "frames.gif", "gif.pdf")
        def widths(*words, out):
            self.succeed("convert", "-q", *words, out)
            infos = json.loads(self.succeed("info", "--pages", "--json", *sorted(self.folder.glob(out.replace("%03d", "*")))))
            return [info["width"] for info in infos]
        for out in ("out.pdf", "out.tif", "out-%03d.png", "out.dcx"):
            self.assertEqual(widths("three.dcx", "3.bmp", out=out), [10, 11, 12, 13], out)
        for pages, expected in (("2-", [11, 12]), ("3,1-2", [12, 10, 11]), ("2", [11])):
            self.assertEqual(widths("--pages", pages, "three.dcx", out="some.tif"), expected)
        self.assertEqual(self.succeed("pages", "out.pdf", "gif.pdf"), b"out.pdf: 4\ngif.pdf: 3\n")
        if shutil.which("pdfinfo"):
            self.assertRegex(subprocess.run(["pdfinfo", self.folder / "gif.pdf"], capture_output=True).stdout, rb"Pages: +3\n")
        self.succeed("convert", "-q", "--code", "bmp", "three.dcx", "3.bmp", "out/")
        self.assertEqual(sorted(os.listdir(self.folder / "out")),
                         ["3.bmp", "three-001.bmp", "three-002.bmp", "three-003.bmp"])
        self.refuse(2, "three.dcx has 3 pages, and the format holds one: name the results x-%03d.png, or choose by --page",
                    "convert", "three.dcx", "x.png")
        self.refuse(1, "three.dcx: page is beyond the last one (-31)", "convert", "--pages", "2-4,5", "three.dcx", "x.tif")
        self.refuse(0, "the largest of 2 pictures is taken", "convert", CORPUS / "icon" / "sizes.ico", "x.png")
        self.assertIn(b" 48x48 ", self.succeed("info", "x.png"))

    def test_of_documents_are_as_large_as_the_picture_or_the_paper(self):
        self.write("fax.bmp", bmp.encode(bmp.random_pixels(1728, 1100, 1), 1))
        for options, size in (
                (["--dpi", "204x98"], (609.9, 808.2)), (["--dpi", "204x98", "--margin", "10mm"], (666.6, 864.9)),
                (["--dpi", "300"], (414.7, 264)), (["--dpi", "300", "--size", "50%"], (414.7, 264)),
                (["--dpi", "300", "--size", "600", "--paper", "a4"], (595.3, 841.9)),
                (["--paper", "100x150mm", "--page-fit", "shrink"], (283.5, 425.2)), (["--paper", "letter"], (612, 792))):
            self.succeed("convert", *options, "fax.bmp", "fax.pdf")
            media = re.search(rb"/MediaBox *\[ *0 +0 +([\d.]+) +([\d.]+)", (self.folder / "fax.pdf").read_bytes())
            for seen, expected in zip(media.groups(), size):
                self.assertAlmostEqual(float(seen), expected, delta=1, msg=options)

    def test_are_taken_out_as_they_are(self):
        photo = CORPUS / "jpeg" / "420-progressive.jpg"
        self.write_picture("page.bmp", 33, 20, 1)
        self.write_picture("chart.bmp", 21, 9, 8)
        self.succeed("convert", "--code", "tiff-g4", "page.bmp", "page.tif")
        self.succeed("convert", "chart.bmp", "chart.png")
        self.succeed("convert", "-q", "page.tif", photo, "chart.png", "book.pdf")
        self.succeed("extract", "book.pdf", "out-%02d")
        self.assertEqual([name for name in self.names() if name.startswith("out")],
                         ["out-01.tif", "out-02.jpg", "out-03.png"])
        self.assertEqual((self.folder / "out-02.jpg").read_bytes(), photo.read_bytes())
        for source, result in (("page.bmp", "out-01.tif"), ("chart.bmp", "out-03.png")):
            self.assertEqual(self.convert(result, "--promote", "24"), self.convert(source, "--promote", "24"), result)
        self.refuse(2, "3 pages need a name with %d in it", "extract", "book.pdf", "one")
        self.assertIn("page 2 -> one.jpg: as it was", self.refuse(0, "", "extract", "-v", "--page", "2", "book.pdf",
                                                                  "one").stderr.decode())
        self.refuse(1, "(-31)", "extract", "--page", "4", "book.pdf", "none")
        self.assertNotIn("none", "".join(self.names()))


class Damage(ToolTest):
    def test_of_files_cut_anywhere_is_told(self):
        self.write_picture("a.bmp", 60, 50, 24)
        self.succeed("reduce", "a.bmp", "few.bmp")
        for name, source, least in (("a.jpg", "a.bmp", 8), ("a.png", "a.bmp", 9), ("b.bmp", "a.bmp", 9), ("a.pcx", "a.bmp", 9),
                                    ("a.gif", "few.bmp", 8), (CORPUS / "tiff" / "grey-pillow.tif", None, 7)):
            if source:
                self.succeed("convert", "--quality", "95", source, name)
            self.succeed("info", "--check", name)
            whole, told = (self.folder / name).read_bytes(), 0
            for tenth in range(1, 11):
                self.write("cut", whole[:len(whole) * tenth // 11])
                done = self.run_tool("convert", "--code", "bmp", "cut", "rest")
                with self.subTest(name=name, tenth=tenth, said=done.stderr):
                    self.assertEqual(done.stderr.count(b"\n"), 1)
                    self.assertEqual((self.folder / "rest").exists(), done.returncode == 3)
                    if done.returncode == 3:
                        told += 1
                        self.assertRegex(done.stderr, rb"^tarnquill: cut: rows \d+ to \d+ of \d+ are missing( in part)?\n$")
                        (self.folder / "rest").unlink()
                        self.assertEqual(self.run_tool("info", "--check", "cut").returncode, 3)
                    self.refuse(1, "tarnquill: cut: ", "convert", "--strict", "--code", "bmp", "cut", "rest")
                    self.assertFalse((self.folder / "rest").exists())
            self.assertGreaterEqual(told, least, name)


class Chain(ToolTest):
    def test_is_done_in_the_order_of_the_command_line(self):
        rows = bmp.random_pixels(12, 8, 24)
        self.write("in.bmp", bmp.encode(rows, 24))
        turned = [list(column) for column in zip(*rows[::-1])]
        for options, expected in (
                ("--rotate 90 --crop 1,2,3,4", [row[1:4] for row in turned[2:6]]),
                ("--crop 1,2,3,4 --rotate 90", [list(c) for c in zip(*[row[1:4] for row in rows[2:6]][::-1])]),
                ("--flip --mirror --rotate 180 --invert --invert", rows), ("--orient 6", turned),
                ("--size 6x4 --filter nearest", [row[1::2] for row in rows[1::2]]),
                ("--size 24 --enlarge --filter nearest", [[p for p in row for _ in "12"] for row in rows for _ in "12"])):
            self.assertEqual(self.convert("in.bmp", *options.split())[1], expected, options)
        for options, size in (("--size 6", (6, 4)), ("--size 6x", (6, 4)), ("--size x2", (3, 2)), ("--size 50%", (6, 4)),
                              ("--fit 5x5", (5, 3)), ("--size 200%", (24, 16)), ("--fit 30x24 --enlarge", (30, 20)),
                              ("--dpi 200x100 --size 6", (5, 6))):
            bits, result = self.convert("in.bmp", *options.split())
            self.assertEqual((len(result[0]), len(result)), size, options)
        self.refuse(0, "12x8 pixels are not enlarged to 24x16 without --enlarge", "convert", "--size", "24", "in.bmp", "out.bmp")
        self.write("grey.bmp", bmp.encode([[(v, v, v) for v in range(256)]] * 4, 24))
        for options, bits in (("--gray", 8), ("--threshold auto", 1), ("--dither bayer", 1), ("--gray --bits 4", 4),
                              ("--colors 16", 4), ("--colors 200", 8), ("--bits 1 --bits 24", 24), ("--bits 8 --gray", 8),
                              ("--threshold 99 --size 50%", 8), ("--threshold 99 --size 50% --filter mono", 1),
                              ("--mono background --despeckle", 1), ("--mono sauvola --mono-window 9", 1), ("--level", 24),
                              ("--tone 10,-10,120 --auto-levels --equalize --effect median", 24)):
            self.assertEqual(self.convert("grey.bmp", *options.split())[0], bits, options)
        self.write("32.bmp", bmp.encode(rows, 32))
        self.assertEqual(self.convert("32.bmp", "--bits", "24"), (24, rows))
        self.assertEqual([self.convert("grey.bmp", "--gray")[1][0][v][0] for v in (0, 255)], [0, 255])
        self.refuse(1, "grey.bmp: specks are removed from black and white only: make it that before, by --mono",
                    "despeckle", "grey.bmp", "out.bmp")

    def test_cleans_pages(self):
        bars = [[int(not (40 <= x < 560 and y % 20 < 6 and 40 <= y < 760)) for x in range(600)] for y in range(800)]
        self.write("page.bmp", bmp.encode(bars, 1))
        self.succeed("rotate", "--angle", "2", "page.bmp", "turned.bmp")
        analysis = json.loads(self.succeed("info", "--analyse", "page.bmp"))[0]["analysis"]
        self.assertEqual(set(analysis), {"skew", "orientation", "content", "paper", "blank", "threshold"})
        self.assertFalse(analysis["blank"])
        for command in ("deskew", "despeckle", "autocrop", "remove-border", "remove-lines", "auto-orient"):
            self.succeed(command, "page.bmp", "out.bmp")
        self.refuse(0, "tarnquill: turned.bmp: ", "clean", "turned.bmp", "out.bmp")
        self.succeed("convert", "page.bmp", "bed.bmp", "--bits", "8", "--rotate", "2", "--extend", "50,50,50,50", "--fill", "0")
        _, cleaned = self.convert("bed.bmp", "-q", "--clean")
        edges = cleaned[0] + cleaned[-1] + [pixel for row in cleaned for pixel in (row[0], row[-1])]
        self.assertGreater(min(edges)[0], 200, "what was around the sheet is left")

    def test_ends_in_what_the_format_holds(self):
        self.write_picture("colour.bmp", 20, 10, 24)
        for bits in (1, 4):
            self.write_picture(f"{bits}.bmp", 20, 10, bits)
        for source, out, note, depth in (
                ("1.bmp", "x.jpg", "1.bmp: 1 bit becomes grey for JPEG", 8), ("4.bmp", "x.jpg", "4.bmp: 4 bits become 24", 24),
                ("colour.bmp", "x.gif", "colour.bmp: the colours become 256 for GIF", 8),
                (CORPUS / "jpeg/cmyk.jpg", "x.png", "cyan, magenta, yellow, black become colours", 24),
                (CORPUS / "tiff/grey16.tif", "x.pdf", "16 bits become 8 for PDF", 8)):
            self.refuse(0, note, "convert", source, out)
            self.assertIn(f'"depth": {depth},'.encode(), self.succeed("info", "--json", out))


class Batches(ToolTest):
    def test_tell_what_came_of_them_and_go_on_where_they_ended(self):
        names = [f"{i}.bmp" for i in range(5)]
        for name in names:
            whole = self.write_picture(name).read_bytes()
        self.write("cut.bmp", whole[:-100])
        self.write("bad.bmp", b"nothing")
        inputs = [*names, "cut.bmp", "bad.bmp"]
        os.utime(self.folder / "0.bmp", (10 ** 9, 10 ** 9))
        words = ["convert", "--code", "png", "--keep-dates", "--resume", "log", *inputs, "out/"]
        self.refuse(1, "\n6 converted, 1 of them damaged, 1 failed\n", *words)
        self.assertEqual((self.folder / "out" / "0.png").stat().st_mtime, 10 ** 9)
        log = [json.loads(line) for line in (self.folder / "log").read_text().splitlines()]
        self.assertEqual(sorted((line["input"], line["status"]) for line in log), sorted(
            [(name, "converted") for name in names] + [("bad.bmp", "failed"), ("cut.bmp", "damaged")]))
        self.refuse(1, "\n0 converted, 1 failed, 6 passed over\n", *words)
        self.write_picture("1.bmp", 30, 30)  # has changed, and a result is gone
        (self.folder / "out" / "2.png").unlink()
        self.refuse(1, "\n2 converted, 1 failed, 4 passed over\n", *words)
        self.refuse(1, "\n6 converted, 1 of them damaged, 1 failed\n", *words, "--gray")
        self.refuse(1, "\n0 converted, 1 failed, 6 passed over\n", "convert", "-n", "--code", "png", *inputs, "out/")
        self.refuse(1, "tarnquill: none.bmp: no such file (-2)\ntarnquill: nothing was converted\n",
                    "convert", "--code", "png", "0.bmp", "none.bmp", "new/")
        self.assertFalse((self.folder / "new").exists())

    def test_show_how_far_they_are(self):
        for i in range(3):
            rows = 4_000_000
            with open(self.folder / f"{i}.bmp", "wb") as file:
                file.write(bmp.header(1, rows, 24, 4 * rows))
                file.truncate(54 + 4 * rows)
        ours, theirs = pty.openpty()
        self.addCleanup(os.close, ours)
        process = self.start("convert", "--jobs", "1", "--code", "bmp", "0.bmp", "1.bmp", "2.bmp", "out/", stderr=theirs)
        os.close(theirs)
        shown = b""
        while b"[3/3]" not in shown:
            shown += os.read(ours, 1000)
        self.assertRegex(shown, rb"\[2/3\] 1\.bmp  (reading|writing) \[#*\.*\] +\d+ %")
        while b"3 converted" not in shown:
            shown += os.read(ours, 1000)
        self.assertEqual(process.wait(WAIT), 0)


class View(ToolTest):
    HALF = "\u2580"

    def cells(self, text):
        """The rows of pixels that half blocks in 24-bit colours show."""
        rows = []
        for line in text.decode().splitlines():
            ink = paper = None
            upper, lower = [], []
            for which, colour, cell in re.findall(r"\033\[([34]8);2;(\d+;\d+;\d+)m|\033\[0m|(.)", line):
                if which == "38":
                    ink = tuple(map(int, colour.split(";")))
                elif which == "48":
                    paper = tuple(map(int, colour.split(";")))
                elif cell:
                    upper.append(ink if cell == self.HALF else paper)
                    lower.append(paper)
            rows += [upper, lower]
        return rows if any(rows[-1]) else rows[:-1]

    def sixels(self, text):
        head, size, data = re.fullmatch(r'\033Pq("1;1;)(\d+;\d+)(.*)\033\\\n', text.decode()).groups()
        width, height = map(int, size.split(";"))
        rows = [[None] * width for _ in range(height)]
        colours, colour, x, top = {}, None, 0, 0
        for number, levels, count, what in re.findall(r"#(\d+)(?:;2;(\d+;\d+;\d+))?|!?(\d*)([?-~$-])", data):
            if levels:
                colours[number] = tuple(map(int, levels.split(";")))
            elif number:
                colour = colours[number]
            elif what in "$-":
                x, top = 0, top + 6 * (what == "-")
            else:
                for column in range(x, x + int(count or 1)):
                    for y in range(6):
                        if (ord(what) - 63) >> y & 1:
                            rows[top + y][column] = colour
                x += int(count or 1)
        return rows

    def test_shows_the_pixels(self):
        stored = bmp.random_pixels(20, 9, 24)
        self.write("a.bmp", bmp.encode(stored, 24))
        pixels = [[pixel[::-1] for pixel in row] for row in stored]
        self.write("wide.bmp", bmp.encode([[(9, 8, 7)] * 800] * 90, 24))
        self.assertEqual(self.cells(self.succeed("view", "a.bmp")), pixels)
        self.assertEqual(self.cells(self.succeed("view", "--crop", "3,2,6,5", "a.bmp")),
                         [row[3:9] for row in pixels[2:7]])
        self.assertEqual(self.cells(self.succeed("view", "--zoom", "200", "a.bmp")),
                         [[c for c in row for _ in "ab"] for row in pixels for _ in "ab"])
        self.assertEqual(self.cells(self.succeed("view", "wide.bmp")), [[(7, 8, 9)] * 80] * 9)
        ours, theirs = pty.openpty()
        self.addCleanup(os.close, ours)
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("4H", 6, 12, 0, 0))
        self.succeed("view", "a.bmp", stdout=theirs)
        os.close(theirs)
        fitted = self.cells(os.read(ours, 100000))
        self.assertEqual((len(fitted[0]), len(fitted)), (12, 5))

    def test_shows_sixels(self):
        levels = [0, 51, 102, 153, 204, 255]  # whole percents
        pixels = [[(levels[(x + y) % 6], levels[y % 6], 255) for x in range(30)] for y in range(13)]
        self.write("a.bmp", bmp.encode(pixels, 24))
        percent = [[tuple(round(v / 2.55) for v in pixel[::-1]) for pixel in row] for row in pixels]
        self.assertEqual(self.sixels(self.succeed("view", "--sixel", "a.bmp")), percent)


class Scanning(ToolTest):
    def test_a_feeder_gives_numbered_files_with_its_resolution(self):
        for name, text in (("dll.conf", "test\n"), ("test.conf", 'number_of_devices 1\ntest-picture "Grid"\n')):
            self.write(name, text.encode())
        # SANE and its threads lose memory of their own.
        device = {**os.environ, "SANE_CONFIG_DIR": str(self.folder), "ASAN_OPTIONS": "detect_leaks=0"}
        if b"test:0" not in self.run_tool("scan", "--list", env=device).stdout:
            self.skipTest("no libsane, or not its test device")
        self.succeed("scan", "-q", "--source", "test:0", "--feeder", "--mode", "bw", "--dpi", "150",
                     "-o", "page-####.tif", env=device)
        pages = [f"page-{number:04}.tif" for number in range(1, 11)]
        self.assertEqual(self.names(), ["dll.conf", *pages, "test.conf"])
        for page in json.loads(self.succeed("info", "--json", *pages)):
            self.assertEqual((page["x_dpi"], page["y_dpi"], page["depth"]), (150, 150, 1), page)


class Destinations(ToolTest):
    def test_a_failing_conversion_leaves_the_existing_file(self):
        self.write_picture("a.bmp")
        self.write("cut.bmp", b"BM\0\0")
        self.write("kept", b"precious")
        before = self.names()
        for words, message in [
                ("convert --code kfx a.bmp", "tarnquill: kept: format or parameter is not supported (-7)"),
                ("convert --code 12 a.bmp", "tarnquill: kept: BMP compressed holds 4 and 8 bits only: add --colors 256"),
                ("convert --code 10 a.bmp", "tarnquill: kept: TIFF Group 4 holds black and white only: add --threshold"),
                ("convert --code 64 a.bmp", "(-7)"),
                ("convert --code bmp cut.bmp", "tarnquill: cut.bmp: "),
                ("convert --code bmp missing.bmp", "tarnquill: missing.bmp: no such file (-2)"),
                ("promote --bits 8 --code bmp a.bmp", "tarnquill: a.bmp: format or parameter is not supported (-7)")]:
            with self.subTest(words):
                self.refuse(1, message, *words.split(), "kept")
                self.assertEqual((self.folder / "kept").read_bytes(), b"precious")
                self.assertEqual(self.names(), before)
        self.refuse(1, "tarnquill: no/where.bmp: cannot be created (-6)", "convert", "a.bmp", "no/where.bmp")

    def test_a_file_may_be_converted_onto_itself_and_keeps_its_permissions(self):
        source = self.write_picture("a.bmp", 45, 21, 4)
        source.chmod(0o640)
        whole = bmp.decode(source.read_bytes())[1]
        (self.folder / "link.bmp").symlink_to("a.bmp")
        self.succeed("convert", "--crop", "1,1,9,9", "a.bmp", "link.bmp")
        self.assertTrue((self.folder / "link.bmp").is_symlink())
        self.assertEqual(bmp.decode(source.read_bytes())[1], [row[1:10] for row in whole[1:10]])
        self.assertEqual(stat.S_IMODE(source.stat().st_mode), 0o640)
        self.assertEqual(self.names(), ["a.bmp", "link.bmp"])

    def test_pipes_and_devices_stay_what_they_are(self):
        source = self.write_picture("a.bmp")
        pipe = self.folder / "pipe"
        os.mkfifo(pipe)
        for words, move in ((["--code", "1", "a.bmp", "pipe"], pipe.read_bytes),
                            (["pipe", "b.bmp"], lambda: pipe.write_bytes(source.read_bytes()))):
            process = self.start("convert", *words)
            self.assertIn(move(), (source.read_bytes(), source.stat().st_size))
            self.assertEqual(process.wait(WAIT), 0)
            self.assertTrue(pipe.is_fifo())
        self.assertEqual((self.folder / "b.bmp").read_bytes(), source.read_bytes())

    def test_a_full_device_and_a_closed_pipe_are_failed_writes(self):
        self.write_picture("a.bmp", 400, 400)
        # Through a link of the test's own: a program that replaced it would not harm the machine.
        (self.folder / "full").symlink_to("/dev/full")
        self.write_picture("small.bmp", 4, 4)  # fails when buffers are flushed
        for source in ("a.bmp", "small.bmp"):
            self.refuse(1, "tarnquill: full: writing failed (-9)", "convert", "--code", "1", source, "full")
        self.assertTrue((self.folder / "full").is_char_device())
        reading, writing = os.pipe()
        os.close(reading)
        with open("/dev/full", "wb") as full:
            for words, to in ((["convert", "--code", "1", "a.bmp", "-"], writing), (["--help"], full),
                              (["info", "a.bmp"], full), (["pages", "a.bmp"], full)):
                self.refuse(1, "tarnquill: standard output: writing failed (-9)\n", *words, stdout=to)
        os.close(writing)

    def test_what_runs_out_is_named_and_leaves_nothing(self):
        self.write_picture("a.bmp", 100, 100)
        self.write("other.dcx", b"x" * 100000)
        self.write("other.pdf", b"%PDF-1.7\n")
        before = self.names()
        for message, words, most in [
                ("b.bmp: writing failed (-9)", ["convert", "a.bmp", "b.bmp"], 1000),
                (f"a temporary file in {self.folder}/: writing failed (-9)", ["convert", "--code=1", "a.bmp", "-"], 1000),
                # Refused before they are copied.
                ("other.dcx: image data is invalid (-3)", ["append", "a.bmp", "other.dcx"], 50000),
                ("other.pdf: image data is invalid (-3)", ["append", "a.bmp", "other.pdf"], 50000)]:
            with self.subTest(words):
                self.refuse(1, "tarnquill: " + message, *words, env={"TMPDIR": str(self.folder)},
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (most, most)))
                self.assertEqual(self.names(), before)

    @unittest.skipIf(b"__asan_init" in pathlib.Path(PROGRAM).read_bytes(), "takes all memory there is")
    def test_out_of_memory_goes_on_with_the_next_file(self):
        self.write_picture("a.bmp")
        for words in (["info"], ["pages"], ["convert", "--code=1", "-o", "out/"]):
            done = self.refuse(1, "tarnquill: /dev/zero: out of memory", *words, "/dev/zero", "a.bmp",
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (1 << 28, 1 << 28)))
            self.assertEqual(b"a.bmp" in done.stdout, words[0] != "convert")
        self.assertEqual(os.listdir(self.folder / "out"), ["a.bmp"])


class Appending(ToolTest):
    def test_at_once_takes_turns(self):
        self.write_picture("a.bmp")
        def start():
            return [self.start("append", "a.bmp", "pages.dcx") for _ in range(6)]
        runs = start()  # with no file yet
        self.assertEqual([run.wait(WAIT) for run in runs], [0] * 6)
        with open(self.folder / "pages.dcx") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            runs = start()
            time.sleep(0.3)
            self.assertEqual([run.poll() for run in runs], [None] * 6)
        self.assertEqual([run.wait(WAIT) for run in runs], [0] * 6)
        self.assertEqual(self.succeed("pages", "pages.dcx"), b"12\n")

    def test_starts_over_when_the_file_has_changed(self):
        picture = self.write_picture("a.bmp").read_bytes()
        self.succeed("convert", "a.bmp", "pages.dcx")
        self.succeed("convert", "a.bmp", "a.bmp", "a.bmp", "other.dcx")
        os.mkfifo(self.folder / "late")
        process = self.start("append", "a.bmp", "late", "pages.dcx")
        with open(self.folder / "late", "wb") as late:  # read when pages.dcx has been copied
            os.replace(self.folder / "other.dcx", self.folder / "pages.dcx")
            late.write(picture)
        self.assertEqual(process.wait(WAIT), 0)
        self.assertEqual(self.succeed("pages", "pages.dcx"), b"5\n")


class Interrupts(ToolTest):
    def test_waiting_for_standard_input_ends(self):
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT, signal.SIGHUP):
            self.write("out.bmp", b"precious")
            process = self.start("convert", "-", "out.bmp", stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            process.stdin.write(b"BM and some more")
            process.stdin.flush()
            time.sleep(0.2)
            self.assertIsNone(process.poll())
            process.send_signal(number)
            self.assertEqual(process.wait(WAIT), -number)
            process.stdin.close()
            self.assertEqual(process.stderr.read(), b"tarnquill: standard input: interrupted (-1000)\n")
            process.stderr.close()
            self.assertEqual((self.folder / "out.bmp").read_bytes(), b"precious")
            self.assertEqual(self.names(), ["out.bmp"])

    def test_long_work_shows_a_bar_and_ends_without_a_half_file(self):
        rows = 30_000_000  # of one pixel each; the file has no blocks behind its header
        with open(self.folder / "tall.bmp", "wb") as file:
            file.write(bmp.header(1, rows, 24, 4 * rows))
            file.truncate(54 + 4 * rows)
        self.write("out.bmp", b"precious")
        ours, theirs = pty.openpty()
        self.addCleanup(os.close, ours)
        process = self.start("convert", "--reduce", "8", "--dither-mode", "2", "tall.bmp", "out.bmp",
                             stderr=theirs)
        os.close(theirs)
        shown = b""
        while b"%" not in shown:
            shown += os.read(ours, 1000)
        self.assertRegex(shown, rb"tall\.bmp  (reading|writing) \[#*\.*\] +\d+ %")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(WAIT), -signal.SIGINT)
        shown += os.read(ours, 100000)
        # The name tells that decoding ended, not that a whole result was thrown away.
        self.assertIn(b"\r\033[Ktarnquill: tall.bmp: interrupted (-1000)", shown)
        self.assertEqual((self.folder / "out.bmp").read_bytes(), b"precious")
        self.assertEqual(self.names(), ["out.bmp", "tall.bmp"])


if __name__ == "__main__":
    unittest.main()
