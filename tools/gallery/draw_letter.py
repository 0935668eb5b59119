#!/usr/bin/python3
"""Draws the letter that the gallery's scanner scans: draw_letter.py letter.png

A4 at 300 dots per inch, in the colours of its inks. Needs python3-pil and fonts-urw-base35; the result
is kept beside this file, so that a demonstration needs neither.
"""
import math
import random
import sys

from PIL import Image, ImageDraw, ImageFont

WIDTH, HEIGHT = 2480, 3508
LEFT, RIGHT = 330, 2180
PAPER, INK, BLUE, RED = range(4)
PALETTE = [255, 255, 255, 26, 26, 30, 36, 60, 150, 178, 34, 40]
FONTS = "/usr/share/fonts/opentype/urw-base35/"


def font(name, size):
    return ImageFont.truetype(f"{FONTS}{name}.otf", size)


class Letter:
    def __init__(self):
        self.image = Image.new("P", (WIDTH, HEIGHT), PAPER)
        self.image.putpalette(PALETTE)
        self.draw = ImageDraw.Draw(self.image)
        self.draw.fontmode = "1"
        self.y = 0

    def text(self, x, y, words, name, size, ink=INK, anchor="la", spaced=0):
        if not spaced:
            return self.draw.text((x, y), words, ink, font(name, size), anchor=anchor)
        width = sum(self.draw.textlength(c, font(name, size)) + spaced for c in words) - spaced
        x -= width / 2 if anchor[0] == "m" else 0
        for c in words:
            self.draw.text((x, y), c, ink, font(name, size), anchor="l" + anchor[1])
            x += self.draw.textlength(c, font(name, size)) + spaced

    def paragraph(self, words, name="C059-Roman", size=46, gap=66):
        """Justified, the last line excepted."""
        face, lines = font(name, size), [[]]
        for word in words.split():
            if self.draw.textlength(" ".join(lines[-1] + [word]), face) > RIGHT - LEFT:
                lines.append([])
            lines[-1].append(word)
        for line in lines:
            room = RIGHT - LEFT - sum(self.draw.textlength(w, face) for w in line)
            space = room / (len(line) - 1) if line is not lines[-1] else self.draw.textlength(" ", face)
            x = LEFT
            for word in line:
                self.draw.text((x, self.y), word, INK, face)
                x += self.draw.textlength(word, face) + space
            self.y += gap
        self.y += 34

    def head(self):
        x, y = LEFT + 95, 300  # a buoy in a ring
        for radius, width in ((100, 7), (86, 3)):
            self.draw.ellipse((x - radius, y - radius, x + radius, y + radius), outline=INK, width=width)
        self.draw.polygon([(x - 36, y + 22), (x + 36, y + 22), (x + 15, y - 48), (x - 15, y - 48)], fill=INK)
        self.draw.rectangle((x - 6, y - 70, x + 6, y - 48), fill=INK)
        for row in range(3):
            points = [(x - 70 + i, y + 34 + 14 * row + 6 * math.sin(i / 9 + row)) for i in range(0, 141, 4)]
            self.draw.line(points, INK, 5)
        self.text(LEFT + 250, 212, "ELDERMOOR HARBOUR TRUST", "C059-Bold", 76, spaced=7)
        self.text(LEFT + 252, 312, "Office of Soundings and Lights", "C059-Italic", 54)
        self.text(RIGHT, 312, "The Old Pilot House, Eldermoor", "C059-Italic", 42, anchor="ra")
        self.draw.rectangle((LEFT, 430, RIGHT, 436), fill=INK)
        self.draw.rectangle((LEFT, 444, RIGHT, 446), fill=INK)

    def table(self):
        columns = [LEFT + 20, LEFT + 120, LEFT + 700, LEFT + 1050, LEFT + 1400, RIGHT - 20]
        rows = [("Station", "", "Charted", "March", "June", "Change"),
                ("I", "Outer bar", "6.4 m", "6.1 m", "5.8 m", "\u2212 0.6 m"), ("II", "Pilot steps", "4.8 m", "4.8 m", "4.7 m", "\u2212 0.1 m"),
                ("III", "Fish quay", "3.9 m", "3.7 m", "3.6 m", "\u2212 0.3 m"), ("IV", "North basin", "5.2 m", "5.3 m", "5.3 m", "+ 0.1 m"),
                ("V", "Dry dock sill", "4.1 m", "4.0 m", "4.0 m", "\u2212 0.1 m")]
        self.draw.rectangle((LEFT, self.y, RIGHT, self.y + 4), fill=INK)
        for number, row in enumerate(rows):
            name = "C059-Bold" if number == 0 else "C059-Roman"
            for column, words in enumerate(row):
                self.text(columns[column], self.y + 22, words, name, 42, anchor="ra" if column > 1 else "la")
            self.y += 72
            if number in (0, len(rows) - 1):
                self.draw.rectangle((LEFT, self.y + 8, RIGHT, self.y + (11 if number else 9)), fill=INK)
            self.y += 10 if number == 0 else 0
        self.y += 56

    def tide(self):
        """A curve over a grid, and a hatched bed."""
        top, bottom = self.y, self.y + 440
        for i in range(25):
            x = LEFT + i * (RIGHT - LEFT) // 24
            self.draw.line((x, top, x, bottom), INK, 5 if i % 6 == 0 else 3)
            if i % 6 == 0:
                self.text(x, bottom + 18, f"{i:02}.00", "C059-Roman", 34, anchor="ma")
        for i in range(5):
            y = top + i * (bottom - top) // 4
            self.draw.line((LEFT, y, RIGHT, y), INK, 5 if i in (0, 4) else 3)
            self.text(LEFT - 20, y - 8, f"{4 - i} m", "C059-Roman", 34, anchor="rm")
        points = []
        for x in range(LEFT, RIGHT + 1, 4):
            hour = 24 * (x - LEFT) / (RIGHT - LEFT)
            level = 2.35 + 1.15 * math.cos((hour - 3.2) * math.tau / 12.42) + 0.28 * math.cos((hour - 9) * math.tau / 24.8)
            points.append((x, bottom - level * (bottom - top) / 4))
        self.draw.line(points, BLUE, 8, joint="curve")
        bed = [(x, bottom - 62 - 22 * math.sin(x / 170) - 10 * math.sin(x / 61)) for x in range(LEFT, RIGHT + 1, 6)]
        self.draw.line(bed, INK, 4)
        for x, y in bed[::3]:
            self.draw.line((x, y, x - 18, min(y + 26, bottom)), INK, 2)
        self.y = bottom + 62
        self.text((LEFT + RIGHT) / 2, self.y, "Height of tide at the pilot steps, 14 June, in metres above datum", "C059-Italic", 38, anchor="ma")
        self.y += 92

    def sign(self):
        self.text(LEFT, self.y, "I have the honour to remain, Sir, your obedient servant,", "C059-Roman", 46)
        start = self.y + 185
        points, x = [], LEFT + 20.0
        for i in range(420):
            t = i / 420
            swing = (70 if t < 0.16 else 26) * (1 - 0.55 * t)
            x += 1.5 + 1.5 * math.cos(i / 5.1)
            points.append((x, start + swing * math.sin(i / 7.3 + 2.2 * math.sin(i / 31)) - 20 * t))
        self.draw.line(points, BLUE, 7, joint="curve")
        self.draw.line([(x + 40 - 5 * i, start + 34 + 0.008 * (i - 60) ** 2) for i in range(0, 120, 4)], BLUE, 6, joint="curve")
        self.text(LEFT, start + 78, "M. Aldous Penhallow", "C059-Roman", 46)
        self.text(LEFT, start + 140, "Surveyor of Soundings", "C059-Italic", 44)

    def stamp(self):
        stamp = Image.new("L", (760, 330), 0)
        draw = ImageDraw.Draw(stamp)
        draw.rounded_rectangle((8, 8, 752, 322), 26, outline=255, width=10)
        draw.rounded_rectangle((26, 26, 734, 304), 18, outline=255, width=4)
        draw.text((380, 96), "RECEIVED", 255, font("NimbusSansNarrow-Bold", 108), anchor="mm")
        draw.text((380, 192), "21 JUN 1957", 255, font("NimbusMonoPS-Bold", 76), anchor="mm")
        draw.text((380, 262), "HARBOUR MASTER", 255, font("NimbusSansNarrow-Bold", 52), anchor="mm")
        chosen = random.Random(3)
        for _ in range(2600):  # where the rubber did not touch
            x, y = chosen.randrange(760), chosen.randrange(330)
            draw.ellipse((x, y, x + chosen.randrange(1, 6), y + chosen.randrange(1, 6)), fill=0)
        stamp = stamp.rotate(8, expand=True, resample=Image.BICUBIC).point(lambda v: 255 * (v > 127)).convert("1")
        self.image.paste(RED, (1400, 2790), stamp)


def main():
    letter = Letter()
    letter.head()
    letter.text(LEFT, 520, "To the Harbour Master, Eldermoor", "C059-Roman", 46)
    letter.text(RIGHT, 520, "18 June 1957", "C059-Roman", 46, anchor="ra")
    letter.text(LEFT, 584, "Ref. S/57/214", "C059-Roman", 46)
    letter.text(LEFT, 700, "Shoaling of the outer bar: soundings of the second quarter", "C059-Bold", 50)
    letter.y = 800
    letter.paragraph("Sir, I beg to lay before you the soundings taken in the fairway between the 11th and "
                     "the 15th of this month, reduced to chart datum. The work was done from the launch "
                     "by lead and line on the ebb, in calm weather, and every fifth cast was repeated on "
                     "the flood. The two agree to within one tenth of a metre.")
    letter.table()
    letter.paragraph("The outer bar continues to grow. At low water of springs there are now less than "
                     "six metres over it, and vessels drawing more than five should not be brought in "
                     "before half flood. Elsewhere the bed is steady; the gain in the north basin is that of "
                     "last winter\u2019s dredging.")
    letter.tide()
    letter.paragraph("I recommend that the leading lights be moved four degrees to the north until the bar "
                     "has been dredged, and that this letter be copied to the pilots.")
    letter.sign()
    letter.stamp()
    letter.image.save(sys.argv[1], bits=2, optimize=True, dpi=(300, 300))


if __name__ == "__main__":
    main()
