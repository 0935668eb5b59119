using static Tarnquill.Native;

static class Letter {
  static int Main() {
    // five lines
    int page = IMG_decompress_bitmap(Text("scan.bmp"));
    IMG_remove_border(page, -1);
    IMG_deskew_bitmap(page, 0, -1, -1, out _);
    IMG_adaptive_mono(page, 2, 0, 0);
    return IMG_save_bitmap(page, Text("letter.tif"), IMG_TYPE_TIFF_G4);
    // until here
  }
}
