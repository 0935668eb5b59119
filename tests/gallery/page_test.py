#!/usr/bin/python3
"""Makes the demonstration's page, with one job measured, and looks at it as a browser and its reader would.

    page_test.py PROGRAMS
"""
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as xml

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
import demo  # noqa: E402
from gallery import formats, program, speed  # noqa: E402

PROGRAMS = pathlib.Path(sys.argv.pop(1)).resolve()


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        made = program.Program(PROGRAMS, cls.folder.name)
        (made.out / "inputs").mkdir()
        subprocess.run([PROGRAMS / "make_scene", made.out / "inputs"], check=True)
        speed.JOBS = [("<A job> & its \"copy\"", {speed.OURS: "convert -q photo.jpg a.bmp", "cp": "cp photo.jpg b.jpg",
                                                 "false": "false"})]
        demo.make_page(made, program.Life(), quick=True)
        cls.out, cls.text = made.out, (made.out / "index.html").read_text()
        cls.page = xml.fromstring(cls.text)  # what is not well-formed ends here

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def every(self, path):
        found = self.page.findall(f".//{path}")
        self.assertTrue(found, path)
        return found

    def test_names_the_files_that_are_there_and_no_others(self):
        named = set()
        for image in self.every("img"):
            file = self.out / image.get("src")
            size = struct.unpack_from(">II", file.read_bytes(), 16)
            self.assertEqual((image.get("width"), image.get("height")), tuple(map(str, size)), file)
            self.assertTrue(image.get("alt"), file)
            named.add(file)
        self.assertEqual(named, set((self.out / "pictures").iterdir()))

    def test_needs_no_network_and_leads_nowhere_else(self):
        self.assertNotRegex(self.text, r"(?i)https?:|//[a-z]|url\(|@import")
        ids = [element.get("id") for element in self.page.iter() if element.get("id")]
        self.assertEqual(len(ids), len(set(ids)))
        for link in self.every("a"):
            self.assertIn(link.get("href")[1:], ids)
        for label in self.every("label"):
            self.assertIn(label.get("for"), ids)

    def test_shows_before_and_after_without_a_script(self):
        for pair in self.page.findall(".//figure[@class]"):
            if pair.get("class").startswith("pair"):
                buttons = pair.findall("input[@type='radio']")
                self.assertEqual([b.get("class") for b in buttons], ["before", "both", "after"])
                pictures = [(self.out / i.get("src")).read_bytes() for i in pair.findall(".//img")]
                self.assertEqual(len(pictures), 2)
                self.assertNotEqual(*pictures, "an operation that changes nothing")

    def test_shows_a_sample_of_every_folder(self):
        shown = " ".join(image.get("src") for image in self.every("section[@id='formats']//img"))
        for folder in formats.CORPUS.iterdir():
            if folder.is_dir() and folder.name not in formats.NO_SAMPLES:
                self.assertTrue(f"/{folder.name}-" in shown, folder)

    def test_shows_what_is_left_of_damaged_files_and_what_is_said(self):
        kinds = set()
        for card in self.every("ul[@class='damaged']/li"):
            kind, says = card.get("class"), card.find("pre").text
            kinds.add(kind)
            self.assertEqual(card.find(".//img") is None, kind == "refused", says)
            self.assertEqual(says.startswith("tarnquill: "), kind != "whole", says)
        self.assertEqual(kinds, {"whole", "partly", "refused"})

    def test_shows_five_lines_of_each_language_and_runs_what_it_can(self):
        cards = self.every("div[@class='languages']/figure")
        self.assertEqual([len(card.find("pre").text.splitlines()) for card in cards], [5] * 4)
        self.assertIn("run here: letter.tif", cards[0].find(".//span").text)

    def test_bars_are_of_what_was_measured(self):
        job, = self.every("ul[@class='jobs']/li")
        self.assertEqual(job.find("h3").text, speed.JOBS[0][0])
        self.assertEqual([s.text for s in job.findall(".//span")], [speed.OURS, "cp"] * 2)  # none of what failed
        for bars in job.findall(".//div[@class='bars']"):
            widths = [float(re.search(r"[0-9.]+", b.get("style"))[0]) for b in bars.findall(".//b")]
            values = [float(e.text.split("\u00a0")[0].replace(",", "")) for e in bars.findall(".//em")]
            self.assertEqual(max(widths), 100)
            self.assertAlmostEqual(widths[1] / widths[0], values[1] / values[0], delta=0.2)


if __name__ == "__main__":
    unittest.main()
