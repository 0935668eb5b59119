#include <tarnquill.h>

int main(void) {
  // five lines
  int32_t page = IMG_decompress_bitmap("scan.bmp");
  IMG_remove_border(page, -1);
  IMG_deskew_bitmap(page, 0, -1, -1, 0);
  IMG_adaptive_mono(page, 2, 0, 0);
  return IMG_save_bitmap(page, "letter.tif", IMG_TYPE_TIFF_G4);
  // until here
}
