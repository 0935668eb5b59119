/* The interface seen by a C compiler: types, calling conventions, constants. */
#include <string.h>
#include <tarnquill.h>

#define HOLD(condition) \
  if (!(condition)) return #condition

static int rows_seen;

static int32_t IMG_CB_STD on_progress(intptr_t context, int32_t value) {
  return context == 5 && value == 2 ? ++rows_seen - 1 : -99;
}

static int32_t IMG_CB_C on_supply(void* context, void* dest, int32_t y, int32_t bytes) {
  (void)y;
  memset(dest, *(const unsigned char*)context, (size_t)bytes);
  return 0;
}

static int32_t IMG_CB_C on_header(void* header, void* context) {
  int32_t width;
  memcpy(&width, (const unsigned char*)header + 4, sizeof width);
  *(int32_t*)context = width;
  return IMG_STOP_AFTER_HEADER;
}

static int32_t IMG_CB_C on_row(void* row, void* context, int32_t y, int32_t bytes) {
  (void)row, (void)context, (void)y, (void)bytes;
  return -98;
}

/* Loads, queries, aborts and saves; the condition that did not hold, or null. */
const char* call_from_c(void);

const char* call_from_c(void) {
  /* 3 x 2 pixels of 8 bits. */
  unsigned char header[IMG_HEADER_BLOCK_BYTES] = {40, 0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 1, 0, 8};
  unsigned char file[2000], row[4] = {0}, value = 0x42;
  int32_t major = 0, minor = 0, width = 0, size, image;

  HOLD(IMG_ifl_version(&major, &minor) == IMG_OK && major == 8 && minor == 3);
  image = IMG_create_handle_shell(header);
  HOLD(image >= 0);
  size = IMG_save_bitmap_block(image, file, sizeof file, IMG_TYPE_BMP);
  HOLD(size == 54 + 1024 + 8);
  HOLD(IMGLOW_get_filetype_block(file, (size_t)size) == IMG_TYPE_BMP);
  HOLD(IMG_delete_bitmap(image) == IMG_OK);

  HOLD(IMGLOW_save_bitmap_mem(file, header, IMG_TYPE_BMP, on_supply, &value) == size);
  HOLD(IMGLOW_decompress_bitmap_block(file, (size_t)size, 0, on_row, &width, on_header) ==
       IMG_STOP_AFTER_HEADER);
  HOLD(width == 3);
  HOLD(IMG_set_statusbar(5, on_progress, 1) == IMG_OK);
  image = IMG_decompress_bitmap_block(file, (size_t)size, 0);
  HOLD(IMG_set_statusbar(0, NULL, 0) == IMG_OK);
  HOLD(image >= 0 && rows_seen == 2);
  HOLD(IMGLOW_get_raster(image, row, 1, 0) == IMG_OK);
  HOLD(row[0] == 0x42 && row[2] == 0x42);
  HOLD(IMG_delete_bitmap(image) == IMG_OK);
  return NULL;
}
