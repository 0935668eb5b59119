// GDI, the spooler and the clipboard. None of their libraries is imported: who has a device context has
// loaded GDI32 and USER32, and printing and the clipboard load what they need.
#include "platform/surface.h"

#include <algorithm>
#include <cstring>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#include <winspool.h>

#include "platform/thread.h"

namespace tq::platform {
namespace {

template <class Function>
void look_up(HMODULE library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

#define TQ_GDI_FUNCTIONS(of)                                                                     \
  of(GetDeviceCaps) of(GetObjectType) of(LPtoDP) of(SaveDC) of(RestoreDC) of(SetMapMode)         \
      of(SetWindowOrgEx) of(SetViewportOrgEx) of(SetGraphicsMode) of(ModifyWorldTransform)       \
          of(GetGraphicsMode) of(GetClipBox) of(StretchDIBits) of(SetDIBitsToDevice)             \
              of(SetStretchBltMode) of(CreateCompatibleDC) of(CreateDIBSection) of(SelectObject) \
                  of(BitBlt) of(GetCurrentObject) of(GetObjectA) of(DeleteObject) of(DeleteDC)   \
                      of(CreateDCA) of(ResetDCA) of(StartDocA) of(StartPage) of(EndPage)         \
                          of(EndDoc) of(AbortDoc) of(GdiFlush)

struct Gdi {
#define TQ_MEMBER(name) decltype(&::name) name = nullptr;
  TQ_GDI_FUNCTIONS(TQ_MEMBER)
#undef TQ_MEMBER
  bool all = false;
};

Gdi find_gdi() {
  Gdi found;
  const HMODULE library = LoadLibraryA("GDI32.DLL");
  if (library == nullptr) return found;
  found.all = true;
#define TQ_LOOK_UP(name)               \
  look_up(library, #name, found.name); \
  found.all = found.all && found.name != nullptr;
  TQ_GDI_FUNCTIONS(TQ_LOOK_UP)
#undef TQ_LOOK_UP
  return found;
}

const Gdi& gdi() {
  static constinit Gdi table;
  static constinit Lock lock;
  const Locked locked(lock);
  if (!table.all) table = find_gdi();
  return table;
}

HDC handle_of(void* context) {
  return static_cast<HDC>(context);
}

constexpr int kRefused = 0;

}  // namespace

bool has_surfaces() {
  return true;
}

bool query_surface(void* context, Surface& found) {
  const Gdi& system = gdi();
  if (context == nullptr || !system.all) return false;
  const HDC device = handle_of(context);
  const DWORD type = system.GetObjectType(device);
  if (type != OBJ_DC && type != OBJ_MEMDC && type != OBJ_ENHMETADC && type != OBJ_METADC) {
    return false;
  }
  found = {.width = system.GetDeviceCaps(device, HORZRES),
           .height = system.GetDeviceCaps(device, VERTRES),
           .dpi_x = system.GetDeviceCaps(device, LOGPIXELSX),
           .dpi_y = system.GetDeviceCaps(device, LOGPIXELSY),
           .bits = system.GetDeviceCaps(device, BITSPIXEL) * system.GetDeviceCaps(device, PLANES)};
  BITMAP bitmap{};
  if (type == OBJ_MEMDC &&  // else the device's that it is compatible with
      system.GetObjectA(system.GetCurrentObject(device, OBJ_BITMAP), sizeof bitmap, &bitmap) != 0) {
    found.bits = bitmap.bmBitsPixel * bitmap.bmPlanes;
  }
  const bool is_display = system.GetDeviceCaps(device, TECHNOLOGY) == DT_RASDISPLAY;
  found.readable = is_display && (type == OBJ_DC || type == OBJ_MEMDC);
  return true;
}

Drawing::Drawing(void* context) : context_(context) {}

Drawing::~Drawing() {
  if (saved_ != 0) gdi().RestoreDC(handle_of(context_), saved_);
}

bool Drawing::to_device(Box& box) const {
  const auto sum = [](std::int64_t at, std::int32_t side) {
    return static_cast<LONG>(std::min<std::int64_t>(at + side, INT32_MAX));
  };
  POINT corners[2] = {{box.x, box.y}, {sum(box.x, box.width), sum(box.y, box.height)}};
  if (gdi().LPtoDP(handle_of(context_), corners, 2) == 0) return false;
  const auto span = [](std::int64_t a, std::int64_t b, std::int32_t& at, std::int32_t& side) {
    at = static_cast<std::int32_t>(std::min(a, b));
    side = static_cast<std::int32_t>(std::min<std::int64_t>(std::max(a, b) - at, INT32_MAX));
  };
  span(corners[0].x, corners[1].x, box.x, box.width);
  span(corners[0].y, corners[1].y, box.y, box.height);
  return true;
}

bool Drawing::begin() {
  const Gdi& system = gdi();
  const HDC device = handle_of(context_);
  saved_ = system.SaveDC(device);
  if (saved_ == 0) return false;
  if (system.GetGraphicsMode(device) == GM_ADVANCED) {
    system.ModifyWorldTransform(device, nullptr, MWT_IDENTITY);
  }
  system.SetMapMode(device, MM_TEXT);
  system.SetWindowOrgEx(device, 0, 0, nullptr);
  system.SetViewportOrgEx(device, 0, 0, nullptr);
  return true;
}

Box Drawing::clip() const {
  RECT box{};
  const int kind = gdi().GetClipBox(handle_of(context_), &box);
  if (kind == NULLREGION) return {};
  // A metafile clips nothing.
  if (kind == ERROR) return {-(1 << 28), -(1 << 28), 1 << 29, 1 << 29};
  return {box.left, box.top, box.right - box.left, box.bottom - box.top};
}

bool Drawing::put(const Box& to, const void* header, const void* rows, std::int32_t from_x,
                  std::uint32_t operation) const {
  const auto* const info = static_cast<const BITMAPINFO*>(header);
  if (operation == SRCCOPY) {
    return gdi().SetDIBitsToDevice(handle_of(context_), to.x, to.y, to.width, to.height, from_x, 0,
                                   0, to.height, rows, info, DIB_RGB_COLORS) != kRefused;
  }
  // The answer is negative for rows from the top.
  return gdi().StretchDIBits(handle_of(context_), to.x, to.y, to.width, to.height, from_x, 0,
                             to.width, to.height, rows, info, DIB_RGB_COLORS,
                             operation) != kRefused;
}

bool Drawing::stretch(const Box& to, const void* header, const void* rows,
                      std::uint32_t operation) const {
  const auto* const info = static_cast<const BITMAPINFO*>(header);
  gdi().SetStretchBltMode(handle_of(context_), COLORONCOLOR);
  return gdi().StretchDIBits(handle_of(context_), to.x, to.y, to.width, to.height, 0, 0,
                             info->bmiHeader.biWidth, info->bmiHeader.biHeight, rows, info,
                             DIB_RGB_COLORS, operation) != kRefused;
}

bool Drawing::read(const Box& from, void* rows) const {
  const Gdi& system = gdi();
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = from.width;
  info.bmiHeader.biHeight = -from.height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  void* pixels = nullptr;
  const HDC device = handle_of(context_);
  const HBITMAP section =
      system.CreateDIBSection(device, &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
  if (section == nullptr) return false;
  const HDC memory = system.CreateCompatibleDC(device);
  bool copied = false;
  if (memory != nullptr) {
    const HGDIOBJ before = system.SelectObject(memory, section);
    copied =
        system.BitBlt(memory, 0, 0, from.width, from.height, device, from.x, from.y, SRCCOPY) != 0;
    system.GdiFlush();
    const std::size_t bytes = std::size_t{4} * from.width * from.height;
    if (copied) std::memcpy(rows, pixels, bytes);
    system.SelectObject(memory, before);
    system.DeleteDC(memory);
  }
  system.DeleteObject(section);
  return copied;
}

// --- Printing ---

namespace {

struct Spooler {
  decltype(&::OpenPrinterA) OpenPrinterA = nullptr;
  decltype(&::ClosePrinter) ClosePrinter = nullptr;
  decltype(&::DocumentPropertiesA) DocumentPropertiesA = nullptr;
  decltype(&::DeviceCapabilitiesA) DeviceCapabilitiesA = nullptr;
  decltype(&::GetDefaultPrinterA) GetDefaultPrinterA = nullptr;

  bool find() {
    const HMODULE library = LoadLibraryA("WINSPOOL.DRV");
    if (library == nullptr) return false;
    look_up(library, "OpenPrinterA", OpenPrinterA);
    look_up(library, "ClosePrinter", ClosePrinter);
    look_up(library, "DocumentPropertiesA", DocumentPropertiesA);
    look_up(library, "DeviceCapabilitiesA", DeviceCapabilitiesA);
    look_up(library, "GetDefaultPrinterA", GetDefaultPrinterA);
    return OpenPrinterA != nullptr && ClosePrinter != nullptr && DocumentPropertiesA != nullptr &&
           DeviceCapabilitiesA != nullptr && GetDefaultPrinterA != nullptr;
  }
};

constexpr DWORD kNameBytes = 512;

// How a printer is set, in a block of its own; null where it does not say.
DEVMODEA* mode_of(const Spooler& spooler, HANDLE printer, char* name) {
  const LONG bytes = spooler.DocumentPropertiesA(nullptr, printer, name, nullptr, nullptr, 0);
  if (bytes < static_cast<LONG>(sizeof(DEVMODEA))) return nullptr;
  auto* const mode = static_cast<DEVMODEA*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
  if (mode == nullptr) return nullptr;
  if (spooler.DocumentPropertiesA(nullptr, printer, name, mode, nullptr, DM_OUT_BUFFER) == IDOK) {
    return mode;
  }
  HeapFree(GetProcessHeap(), 0, mode);
  return nullptr;
}

}  // namespace

PrintJob::~PrintJob() {
  if (context_ != nullptr) {
    if (begun_) gdi().AbortDoc(handle_of(context_));
    gdi().DeleteDC(handle_of(context_));
  }
  if (mode_ != nullptr) HeapFree(GetProcessHeap(), 0, mode_);
}

bool PrintJob::open(const char* printer, std::int32_t& copies, bool& no_printer) {
  Spooler spooler;
  no_printer = true;
  if (!gdi().all || !spooler.find()) return false;
  char name[kNameBytes];
  DWORD room = kNameBytes;
  if (printer == nullptr) {
    if (spooler.GetDefaultPrinterA(name, &room) == 0) return false;
  } else {
    if (std::strlen(printer) >= kNameBytes) return false;
    std::strcpy(name, printer);
  }
  HANDLE opened = nullptr;
  if (spooler.OpenPrinterA(name, &opened, nullptr) == 0) return false;
  auto* const mode = mode_of(spooler, opened, name);
  mode_ = mode;
  spooler.ClosePrinter(opened);
  const int most = spooler.DeviceCapabilitiesA(name, nullptr, DC_COPIES, nullptr, mode);
  if (mode != nullptr && copies > 1 && most >= copies) {
    mode->dmFields |= DM_COPIES | DM_COLLATE;
    mode->dmCopies = static_cast<short>(copies);
    mode->dmCollate = DMCOLLATE_TRUE;
    copies = 1;
  }
  context_ = gdi().CreateDCA("WINSPOOL", name, nullptr, mode);
  no_printer = context_ == nullptr;
  return context_ != nullptr;
}

bool PrintJob::begin(const char* title, const char* output_file) {
  DOCINFOA document{};
  document.cbSize = sizeof document;
  document.lpszDocName = title == nullptr ? "" : title;
  document.lpszOutput = output_file;
  begun_ = gdi().StartDocA(handle_of(context_), &document) > 0;
  return begun_;
}

void* PrintJob::begin_page(bool landscape) {
  auto* const mode = static_cast<DEVMODEA*>(mode_);
  if (mode != nullptr) {
    mode->dmFields |= DM_ORIENTATION;
    mode->dmOrientation = landscape ? DMORIENT_LANDSCAPE : DMORIENT_PORTRAIT;
    gdi().ResetDCA(handle_of(context_), mode);
  }
  return gdi().StartPage(handle_of(context_)) > 0 ? context_ : nullptr;
}

bool PrintJob::end_page() {
  return gdi().EndPage(handle_of(context_)) > 0;
}

bool PrintJob::end() {
  begun_ = false;
  return gdi().EndDoc(handle_of(context_)) > 0;
}

void wait_milliseconds(std::int32_t time) {
  Sleep(static_cast<DWORD>(time));
}

// --- Clipboard ---

namespace {

struct User {
  decltype(&::OpenClipboard) OpenClipboard = nullptr;
  decltype(&::CloseClipboard) CloseClipboard = nullptr;
  decltype(&::EmptyClipboard) EmptyClipboard = nullptr;
  decltype(&::SetClipboardData) SetClipboardData = nullptr;
  decltype(&::GetClipboardData) GetClipboardData = nullptr;
  decltype(&::EnumClipboardFormats) EnumClipboardFormats = nullptr;

  bool open(void* window) {
    const HMODULE library = LoadLibraryA("USER32.DLL");
    if (library == nullptr) return false;
    look_up(library, "OpenClipboard", OpenClipboard);
    look_up(library, "CloseClipboard", CloseClipboard);
    look_up(library, "EmptyClipboard", EmptyClipboard);
    look_up(library, "SetClipboardData", SetClipboardData);
    look_up(library, "GetClipboardData", GetClipboardData);
    look_up(library, "EnumClipboardFormats", EnumClipboardFormats);
    if (OpenClipboard == nullptr || CloseClipboard == nullptr || EmptyClipboard == nullptr ||
        SetClipboardData == nullptr || GetClipboardData == nullptr ||
        EnumClipboardFormats == nullptr) {
      return false;
    }
    return OpenClipboard(static_cast<HWND>(window)) != 0;
  }
};

HGLOBAL global_copy(const ClipboardItem& item) {
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, item.size);
  if (block == nullptr) return nullptr;
  std::memcpy(GlobalLock(block), item.bytes, item.size);
  GlobalUnlock(block);
  return block;
}

}  // namespace

Clipboard put_on_clipboard(void* window, const ClipboardItem* items, int count) {
  User user;
  if (!user.open(window)) return Clipboard::taken;
  Clipboard result = user.EmptyClipboard() != 0 ? Clipboard::done : Clipboard::taken;
  for (int i = 0; i < count && result == Clipboard::done; ++i) {
    const HGLOBAL block = global_copy(items[i]);
    if (block == nullptr) {
      result = Clipboard::no_memory;
    } else if (user.SetClipboardData(items[i].format, block) == nullptr) {
      GlobalFree(block);
      result = Clipboard::taken;
    }
  }
  user.CloseClipboard();
  return result;
}

Clipboard take_from_clipboard(void* window,
                              void (*take)(void* self, const void* bytes, std::size_t size),
                              void* self) {
  User user;
  if (!user.open(window)) return Clipboard::taken;
  Clipboard result = Clipboard::nothing;
  // What its owner has put there comes before what the system has made of it.
  UINT format = 0;
  while (result == Clipboard::nothing && (format = user.EnumClipboardFormats(format)) != 0) {
    if (format != kClipboardDib && format != kClipboardDibV5) continue;
    const HGLOBAL block = user.GetClipboardData(format);
    const void* const bytes = block == nullptr ? nullptr : GlobalLock(block);
    if (bytes == nullptr) continue;
    take(self, bytes, GlobalSize(block));
    GlobalUnlock(block);
    result = Clipboard::done;
  }
  user.CloseClipboard();
  return result;
}

}  // namespace tq::platform
