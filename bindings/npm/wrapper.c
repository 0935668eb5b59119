/* What index.mjs calls: one picture at a time, and its rows as red, green, blue, opacity. */
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "tarnquill.h"

#define EXPORT(name) __attribute__((export_name(#name)))

enum {
  kMostPixels = 1 << 28,
  kMostKilobytes = 768 << 10,
  kMostScans = 500,
  kMostPages = 0xFFFF,
  kBandBytes = 1 << 20, /* that rows are handed over in */
  kHeaderBytes = 40,
  kOrientationTag = 274,
  kFirstTurned = 5, /* orientations from here on exchange the sides */
  kPixelBytes = 4,
  kMostDots = 65535 /* of an inch; what says more says nothing */
};

/* Read by index.mjs, which knows the order. */
static struct {
  int32_t width, height, bits;
  int32_t x_resolution, y_resolution; /* thousandths of a dot per inch; 0: not known */
  int32_t pages;
  int32_t damage; /* a status, or 0 */
  int32_t damaged_rows, first_damaged, last_damaged;
  char format[16];
} found;

static int32_t image = IMG_BAD_HANDLE;
static uint8_t* band;

EXPORT(found_address) const void* found_address(void) {
  return &found;
}
EXPORT(status_text) const char* status_text(int32_t status) {
  return IMG_status_text(status);
}
EXPORT(allocate) void* allocate(size_t bytes) {
  return malloc(bytes);
}
EXPORT(release) void release(void* block) {
  free(block);
}

/* Files look as in other programs. What strangers' files may cost is limited. */
EXPORT(start) void start(void) {
  static const int32_t options[][2] = {
      {IMG_OPTION_READING, 1},
      {IMG_OPTION_DETECTION, 1},
      {IMG_OPTION_ORIENTATION, 1},
      {IMG_OPTION_INKS, 1},
      {IMG_OPTION_EXTENDED_FORMATS, 1},
      {IMG_OPTION_MAX_PIXELS, kMostPixels},
      {IMG_OPTION_MAX_KBYTES, kMostKilobytes},
      {IMG_OPTION_MAX_SCANS, kMostScans},
      {IMG_OPTION_MAX_PAGES, kMostPages},
  };
  for (size_t i = 0; i < sizeof options / sizeof options[0]; ++i) {
    IMG_set_option(options[i][0], options[i][1]);
  }
}

/* The format of a code, if it has one; the structure is that of the library then. */
static int find_format(int32_t code, img_format* format) {
  format->size = sizeof *format;
  for (int32_t i = 0; IMG_get_format(i, format) >= 0; ++i) {
    if (format->code == code) return 1;
  }
  return 0;
}

/* Some kinds tell the number of their pages only page by page. */
static int32_t count_pages(const void* file, size_t size, int32_t code, int has_pages) {
  const int32_t counted = IMGLOW_get_pages_block(file, size);
  if (counted > 1) return counted;
  if (!has_pages && code != IMG_TYPE_DICOM) return 1;
  uint8_t header[kHeaderBytes];
  int32_t pages = 1;
  while (pages < kMostPages && IMGLOW_get_fileinfo_page_block(file, size, pages, header) >= 0) {
    ++pages;
  }
  return pages;
}

/* Format and number of pages. */
static int32_t look_at_file(const void* file, size_t size) {
  memset(&found, 0, sizeof found);
  const int32_t code = IMGLOW_get_filetype_block(file, size);
  if (code < 0) return code;
  img_format format;
  const int is_known = find_format(code, &format);
  if (is_known) memcpy(found.format, format.name, sizeof found.format);
  found.pages = count_pages(file, size, code, is_known && (format.flags & IMG_FORMAT_PAGES) != 0);
  return 0;
}

static int32_t orientation_of(const void* file, size_t size, int32_t page) {
  if (page == 0) return IMGLOW_get_image_orientation_block(file, size);
  uint16_t value = 1;
  int32_t type = 0;
  const int32_t result = IMGLOW_get_tiff_tag_block(file, size, page, kOrientationTag, &type, NULL,
                                                   &value, sizeof value);
  return result == sizeof value && type == IMG_TIFF_SHORT ? value : 1;
}

static int32_t field(const uint8_t* header, int at) {
  int32_t value;
  memcpy(&value, header + at, sizeof value);
  return value;
}

static int32_t thousandths(int32_t dots) {
  return dots > 0 && dots <= kMostDots ? 1000 * dots : 0;
}

/* What a file says of a page, as a decode would give it. */
EXPORT(ask) int32_t ask(const void* file, size_t size, int32_t page) {
  int32_t result = look_at_file(file, size);
  if (result < 0) return result;
  uint8_t header[kHeaderBytes];
  result = IMGLOW_get_fileinfo_page_block(file, size, page, header);
  if (result < 0) return result;
  const int turned = orientation_of(file, size, page) >= kFirstTurned;
  found.width = field(header, turned ? 8 : 4);
  found.height = field(header, turned ? 4 : 8);
  found.bits = header[14];
  found.x_resolution = thousandths(field(header, turned ? 28 : 24));
  found.y_resolution = thousandths(field(header, turned ? 24 : 28));
  return 0;
}

EXPORT(close_page) void close_page(void) {
  if (image >= 0) IMG_delete_bitmap(image);
  image = IMG_BAD_HANDLE;
  free(band);
  band = NULL;
}

/* How many rows of the picture are handed over at a time; or a status. */
EXPORT(open_page) int32_t open_page(const void* file, size_t size, int32_t page) {
  close_page();
  if (look_at_file(file, size) < 0) found.pages = 1; /* the decoder says more of why not */
  image = IMG_decompress_bitmap_block(file, size, page);
  if (image < 0) return image;
  if (IMG_bitmap_info(image, &found.width, &found.height, &found.bits) == IMG_OUT_OF_MEMORY) {
    return IMG_OUT_OF_MEMORY;
  }
  IMG_get_resolution(image, &found.x_resolution, &found.y_resolution);
  if (IMG_get_damage(image, &found.damaged_rows, &found.damage) > 0) {
    IMG_get_damaged_rows(image, &found.first_damaged, &found.last_damaged, NULL);
  }
  const int64_t row = (int64_t)kPixelBytes * found.width;
  const int32_t rows = row >= kBandBytes ? 1 : (int32_t)(kBandBytes / row);
  band = malloc((size_t)(rows * row));
  return band == NULL ? IMG_OUT_OF_MEMORY : rows;
}

EXPORT(band_address) const void* band_address(void) {
  return band;
}

/* Fills the band with these rows, which must be in the picture and no more than it holds. */
EXPORT(render) int32_t render(int32_t first, int32_t rows) {
  img_view view;
  memset(&view, 0, sizeof view);
  view.bytes = sizeof view;
  view.width = found.width;
  view.height = found.height;
  view.flags = IMG_VIEW_SQUARE | IMG_VIEW_TOP_LEFT | IMG_VIEW_NO_TONE;
  const size_t row = (size_t)kPixelBytes * (size_t)found.width;
  memset(band, 0, row * (size_t)rows); /* what is transparent stays so */
  const int32_t result =
      IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX, band, (intptr_t)row, first, rows);
  for (uint8_t* pixel = band; pixel < band + row * (size_t)rows; pixel += kPixelBytes) {
    const uint8_t blue = pixel[0];
    pixel[0] = pixel[2];
    pixel[2] = blue;
  }
  return result;
}
