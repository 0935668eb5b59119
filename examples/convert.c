/* Loads an image of any known format, cuts the middle out of it and saves that as a BMP file.
 *
 *   cc convert.c $(pkg-config --cflags --libs tarnquill) -o convert && ./convert in.bmp out.bmp */
#include <stdio.h>

#include "tarnquill.h"

static int failed(const char* name, int32_t status) {
  fprintf(stderr, "%s: status %d\n", name, (int)status);
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s IN OUT\n", argv[0]);
    return 2;
  }

  const int32_t image = IMG_decompress_bitmap(argv[1]);
  if (image < 0) return failed(argv[1], image);

  int32_t width, height, bits;
  IMG_bitmap_info(image, &width, &height, &bits);
  printf("%s: %d x %d pixels, %d bits each\n", argv[1], (int)width, (int)height, (int)bits);

  /* Saving writes the crop rectangle. It stays clear of the edges here: a rectangle that touches
   * the right or bottom edge is cut one pixel before it. */
  if (width >= 4 && height >= 4) {
    IMG_set_croprect(image, width / 4, height / 4, width / 2, height / 2);
  }

  const int32_t saved = IMG_save_bitmap(image, argv[2], IMG_TYPE_BMP);
  IMG_delete_bitmap(image);
  return saved < 0 ? failed(argv[2], saved) : 0;
}
