// Bitmaps of the window system. GDI32 is looked up and never imported: a process without windows
// does without it, and one that has a bitmap has loaded it.
#include "platform/device_bitmap.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace tq::platform {
namespace {

// The function's address, typed like its declaration; null without GDI32.
template <class Function>
Function gdi_function(const char* name) {
  const HMODULE gdi = GetModuleHandleA("GDI32.DLL");
  if (gdi == nullptr) return nullptr;
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(gdi, name)));
}

}  // namespace

bool query_device_bitmap(void* bitmap, DeviceBitmap& found) {
  const auto get_object = gdi_function<decltype(&::GetObjectA)>("GetObjectA");
  if (bitmap == nullptr || get_object == nullptr) return false;
  // Room for the largest description, so that a font or pen is not cut to the size of a bitmap's.
  DIBSECTION description{};
  const int bytes = get_object(bitmap, sizeof description, &description);
  if (bytes != sizeof(BITMAP) && bytes != sizeof(DIBSECTION)) return false;
  const BITMAP& shape = description.dsBm;
  found.width = shape.bmWidth;
  found.height = shape.bmHeight;
  found.monochrome = shape.bmPlanes * shape.bmBitsPixel == 1;
  return true;
}

bool read_device_bitmap(void* bitmap, std::int32_t height, void* dib_header, void* pixels) {
  const auto get_rows = gdi_function<decltype(&::GetDIBits)>("GetDIBits");
  const auto create_context = gdi_function<decltype(&::CreateCompatibleDC)>("CreateCompatibleDC");
  const auto delete_context = gdi_function<decltype(&::DeleteDC)>("DeleteDC");
  if (get_rows == nullptr || create_context == nullptr || delete_context == nullptr) return false;
  const HDC context = create_context(nullptr);
  if (context == nullptr) return false;
  const int rows = get_rows(context, static_cast<HBITMAP>(bitmap), 0, static_cast<UINT>(height),
                            pixels, static_cast<BITMAPINFO*>(dib_header), DIB_RGB_COLORS);
  delete_context(context);
  return rows == height;
}

}  // namespace tq::platform
