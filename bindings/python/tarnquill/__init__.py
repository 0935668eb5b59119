"""Tarnquill: reads, converts, cleans and writes raster images.

    import tarnquill
    with tarnquill.Image.open("scan.tif") as page:
        page.deskew().despeckle().save("clean.tif", "tiff-g4")

What operations do, and to which images, is said in tarnquill.h; a method has its export's name. tarnquill.batch
takes the same operations through any number of files.
"""
from ._library import (Error, Format, Info, formats, get_option, info, library_version,
                       set_option, status_text)
from .image import Damage, Image

__all__ = ["Damage", "Error", "Format", "Image", "Info", "formats", "get_option", "info", "library_version",
           "set_option", "status_text"]
__version__ = library_version()
