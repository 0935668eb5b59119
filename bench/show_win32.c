/* A picture of 12 megapixels in a window of 1600 x 1200, into a bitmap in memory: by the system, by the
 * library, and again from what it has kept. Milliseconds, the best of five. */
#include <windows.h>

#include <stdio.h>
#include <stdlib.h>
#include <tarnquill.h>

enum { kWidth = 4000, kHeight = 3000, kWindowWidth = 1600, kWindowHeight = 1200, kRuns = 5 };

static HDC context;
static int32_t image;
static const uint8_t* dib;

static BITMAPINFO info_of(LONG width, LONG height, WORD bits) {
  BITMAPINFO info = {{sizeof info.bmiHeader, width, height, 1, bits, BI_RGB, 0, 0, 0, 0, 0}, {{0}}};
  return info;
}

static int draw_by_system(void) {
  const BITMAPINFO info = info_of(kWidth, kHeight, 24);
  SetStretchBltMode(context, HALFTONE);
  SetBrushOrgEx(context, 0, 0, NULL);
  return StretchDIBits(context, 0, 0, kWindowWidth, kWindowHeight, 0, 0, kWidth, kHeight,
                       dib + sizeof info.bmiHeader, &info, DIB_RGB_COLORS, SRCCOPY) != 0;
}

static int draw(int32_t fit, int32_t flags) {
  img_view view = {0};
  view.bytes = sizeof view;
  view.fit = fit;
  view.flags = flags;
  return IMG_display_bitmap_iac(image, context, 0, 0, kWindowWidth, kWindowHeight, &view) == IMG_OK;
}
static int draw_reduced(void) {
  return draw(IMG_FIT_STRETCH, 0);
}
static int draw_kept(void) {
  return draw(IMG_FIT_STRETCH, IMG_VIEW_KEEP);
}
static int draw_pixel_by_pixel(void) {
  return draw(IMG_FIT_NONE, 0);
}

static void measure(const char* name, int (*work)(void)) {
  LARGE_INTEGER frequency, begin, end;
  double best = 1e9;
  QueryPerformanceFrequency(&frequency);
  for (int i = 0; i < kRuns; ++i) {
    QueryPerformanceCounter(&begin);
    if (!work()) exit(1);
    GdiFlush();
    QueryPerformanceCounter(&end);
    const double time =
        1000.0 * (double)(end.QuadPart - begin.QuadPart) / (double)frequency.QuadPart;
    if (time < best) best = time;
  }
  printf("%-34s %8.2f ms\n", name, best);
}

int main(void) {
  BITMAPINFO picture = info_of(kWidth, kHeight, 24);
  const BITMAPINFO window = info_of(kWindowWidth, -kWindowHeight, 32);
  static uint8_t row[3 * kWidth];
  void* pixels = NULL;
  uint32_t state = 1;
  image = IMG_create_handle_shell(&picture);
  for (int32_t y = 0; y < kHeight; ++y) {
    for (size_t i = 0; i < sizeof row; ++i) {
      row[i] = (uint8_t)((state = state * 1664525u + 1013904223u) >> 24);
    }
    if (IMGLOW_put_raster(image, row, y, 0) < 0) return 1;
  }
  dib = (const uint8_t*)IMG_bitmap_info(image, NULL, NULL, NULL);
  context = CreateCompatibleDC(NULL);
  SelectObject(context, CreateDIBSection(context, &window, DIB_RGB_COLORS, &pixels, NULL, 0));
  measure("StretchDIBits, HALFTONE", draw_by_system);
  measure("IMG_display_bitmap_iac, reduced", draw_reduced);
  measure("the same, kept", draw_kept);
  measure("pixel by pixel", draw_pixel_by_pixel);
  return 0;
}
