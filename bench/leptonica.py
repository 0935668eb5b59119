"""The peer whose figures stand beside ours: Debian's liblept5 by its C interface."""
import ctypes
import io

import numpy
from PIL import Image


class Leptonica:
    UP, LEFT, DOWN, RIGHT = 1, 2, 3, 4

    def __init__(self, name="liblept.so.5"):
        self.library = ctypes.CDLL(name)
        for function in ("pixReadMem", "pixConvertTo8", "pixConvertTo1", "pixSelectBySize", "pixConnCompBB",
                         "pixGetData", "pixOtsuThreshOnBackgroundNorm"):
            getattr(self.library, function).restype = ctypes.c_void_p
        self.library.setMsgSeverity(6)

    def open(self, picture, bits):
        """A picture of 1 bit or of grey as its own."""
        stream = io.BytesIO()
        picture.save(stream, "BMP")
        data = stream.getvalue()
        read = ctypes.c_void_p(self.library.pixReadMem(data, ctypes.c_size_t(len(data))))
        made = (self.library.pixConvertTo1(read, 128) if bits == 1 else
                self.library.pixConvertTo8(read, 0))
        self.close(read)
        return ctypes.c_void_p(made)

    def close(self, *pictures):
        for picture in pictures:
            self.library.pixDestroy(ctypes.byref(picture))

    def black(self, picture):
        """Where a picture of 1 bit is black."""
        width, height = (getattr(self.library, f"pixGet{side}")(picture) for side in ("Width", "Height"))
        words = self.library.pixGetWpl(picture)
        data = ctypes.string_at(self.library.pixGetData(picture), 4 * words * height)
        bits = numpy.unpackbits(numpy.frombuffer(data, "<u4").astype(">u4").view("uint8"))
        return bits.reshape(height, -1)[:, :width] == 1

    def skew(self, picture):
        """Degrees to turn by clockwise, and how sure."""
        angle, confidence = ctypes.c_float(), ctypes.c_float()
        failed = self.library.pixFindSkewSweepAndSearch(
            picture, ctypes.byref(angle), ctypes.byref(confidence), 4, 2, ctypes.c_float(15),
            ctypes.c_float(1), ctypes.c_float(0.01))
        return (0.0, 0.0) if failed else (angle.value, confidence.value)

    def orientation(self, picture):
        """UP, LEFT, DOWN, RIGHT or 0: where the page's top is."""
        up, left, found = ctypes.c_float(), ctypes.c_float(), ctypes.c_int32()
        if self.library.pixOrientDetect(picture, ctypes.byref(up), ctypes.byref(left), 0, 0):
            return 0
        self.library.makeOrientDecision(up, left, ctypes.c_float(0), ctypes.c_float(0),
                                        ctypes.byref(found), 0)
        return found.value

    def sauvola(self, picture, half_window, k=0.34):
        made = ctypes.c_void_p()
        self.library.pixSauvolaBinarize(picture, half_window, ctypes.c_float(k), 1, None, None, None,
                                        ctypes.byref(made))
        return made

    def otsu(self, picture):
        made = ctypes.c_void_p()
        width, height = self.library.pixGetWidth(picture), self.library.pixGetHeight(picture)
        self.library.pixOtsuAdaptiveThreshold(picture, width, height, 0, 0, ctypes.c_float(0.1), None,
                                              ctypes.byref(made))
        return made

    def levelled(self, picture):
        return ctypes.c_void_p(self.library.pixOtsuThreshOnBackgroundNorm(
            picture, None, 10, 15, 100, 50, 255, 2, 2, ctypes.c_float(0.1), None))

    def components(self, picture):
        boxes = ctypes.c_void_p(self.library.pixConnCompBB(picture, 8))
        count = self.library.boxaGetCount(boxes)
        self.library.boxaDestroy(ctypes.byref(boxes))
        return count

    def despeckled(self, picture, width, height):
        either, larger = 5, 2  # a side that is greater
        return ctypes.c_void_p(self.library.pixSelectBySize(picture, width, height, 8, either, larger,
                                                            None))
