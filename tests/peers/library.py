"""The library's public interface for the comparisons with other programs."""
import ctypes
import struct

from PIL import Image

HEADER_BYTES = 40


def conclude(failures):
    """The exit code of a script, after a line for each failure."""
    for failure in failures:
        print(failure)
    return 1 if failures else 0


class Library:
    def __init__(self, path):
        self.api = ctypes.CDLL(path)
        self.api.IMG_bitmap_info.restype = ctypes.c_ssize_t

    def call(self, name, *arguments):
        values = [a.encode() if isinstance(a, str) else a for a in arguments]
        return getattr(self.api, name)(*values)

    def checked(self, name, *arguments):
        result = self.call(name, *arguments)
        if result < 0:
            raise RuntimeError(f"{name}{arguments}: {result}")
        return result

    def open(self, name):
        return self.checked("IMG_decompress_bitmap", name)

    def open_page(self, name, page):
        with open(name, "rb") as file:
            return self.checked("IMG_decompress_bitmap_fd", file.fileno(), 0, page)

    def header(self, image):
        block = ctypes.create_string_buffer(1064)
        self.checked("IMGLOW_get_bitmap_header", image, block)
        fields = ("size", "width", "height", "planes", "bits", "compression", "bytes", "x_dpi", "y_dpi",
                  "used", "important")
        return dict(zip(fields, struct.unpack_from("<IiiHHIIiiII", block.raw)))

    def rgb(self, image):
        """The image as Pillow would hold it in mode RGB; it becomes one of 24 bits."""
        header = self.header(image)
        if header["bits"] < 24:
            self.checked("IMG_promote_24", image)
        row, data = ctypes.create_string_buffer((header["width"] * 3 + 3) // 4 * 4), b""
        for y in range(header["height"]):
            self.checked("IMGLOW_get_raster", image, row, y, len(row))
            data += row.raw[:header["width"] * 3]
        return Image.frombytes("RGB", (header["width"], header["height"]), data, "raw", "BGR")

    def make(self, width, height, bits, rows, palette=(), x_dpi=0, y_dpi=0, compression=0, used=0):
        """A new image; rows are packed bytes from the top, palette (red, green, blue)."""
        header = struct.pack("<IiiHHIIiiII", 40, width, height, 1, bits, compression, 0, x_dpi, y_dpi, used, 0)
        entries = b"".join(bytes((b, g, r, 0)) for r, g, b in palette)
        image = self.checked("IMG_create_handle_shell", header + entries.ljust(1024, b"\0"))
        for y, row in enumerate(rows):
            self.checked("IMGLOW_put_raster", image, row, y, len(row))
        return image

    def save(self, image, name, code=-1):
        self.checked("IMG_save_bitmap", image, name, code)

    def delete(self, image):
        self.checked("IMG_delete_bitmap", image)
