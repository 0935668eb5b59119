// Device-dependent bitmaps of the window system; there are none outside Windows.
#pragma once

#include <cstdint>

namespace tq::platform {

struct DeviceBitmap {
  std::int32_t width = 0, height = 0;
  bool monochrome = false;
};

// False when `bitmap` is no device-dependent bitmap.
bool query_device_bitmap(void* bitmap, DeviceBitmap& found);

// Fills palette and rows of a packed DIB whose header is in place; false on failure.
bool read_device_bitmap(void* bitmap, std::int32_t height, void* dib_header, void* pixels);

}  // namespace tq::platform
