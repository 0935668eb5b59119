# five lines
from tarnquill import Image
with Image.open("scan.bmp") as page:
    page.remove_border().deskew()
    page.adaptive_mono("background")
    page.save("letter.tif", "tiff-g4")
# until here
