"""Pictures as FreeImage reads them."""
import ctypes
import struct


class FreeImage:
    """That library, as far as it is needed."""
    RGB16 = 9

    def __init__(self):
        self.api = ctypes.CDLL("libfreeimage.so.3")
        for name in ("Load", "ConvertTo32Bits", "GetScanLine"):
            getattr(self, name).restype = ctypes.c_void_p

    def __getattr__(self, name):
        return getattr(self.api, "FreeImage_" + name)

    def load(self, name, flags=0):
        return ctypes.c_void_p(self.Load(self.GetFileType(name.encode(), 0), name.encode(), flags))

    def rows(self, image, row_bytes):
        return [ctypes.string_at(self.GetScanLine(image, y), row_bytes) for y in range(self.GetHeight(image))][::-1]

    def pixels(self, name, deep=False, inks=False):
        """Red, green, blue, alpha of all pixels, of 16 bits the high byte first; or cyan to black. Empty when it cannot."""
        image = self.load(name, int(inks))  # 1: as they are
        if not image:
            return b""
        kind, width = self.GetImageType(image), self.GetWidth(image)
        if deep:
            rows = b"".join(self.rows(image, 6 * width)) if kind == self.RGB16 else b""
            levels = struct.unpack(f"{len(rows) // 2}H", rows)
            return b"".join(struct.pack(">4H", *levels[i:i + 3], 65535) for i in range(0, len(levels), 3))
        if inks:
            return b"".join(self.rows(image, 4 * width)) if self.GetBPP(image) == 32 else b""
        rows = b"".join(self.rows(ctypes.c_void_p(self.ConvertTo32Bits(image)), 4 * width))
        return b"".join(bytes((rows[i + 2], rows[i + 1], rows[i], rows[i + 3])) for i in range(0, len(rows), 4))
