// Device contexts get what the renderer makes, and the clipboard gives back what it was given.
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/numbers.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using Drawing = LibraryTest;

// A bitmap in memory, 32 bits from the top.
class Memory {
 public:
  Memory(int width, int height)
      : width_(width), height_(height), context_(CreateCompatibleDC(nullptr)) {
    BITMAPINFO info{};
    info.bmiHeader = {sizeof info.bmiHeader, width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* pixels = nullptr;
    bitmap_ = CreateDIBSection(context_, &info, DIB_RGB_COLORS, &pixels, nullptr, 0);
    before_ = SelectObject(context_, bitmap_);
    pixels_ = static_cast<std::uint32_t*>(pixels);
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() {
    SelectObject(context_, before_);
    DeleteObject(bitmap_);
    DeleteDC(context_);
  }
  HDC context() const { return context_; }
  void fill(Random& random) {
    for (int i = 0; i < width_ * height_; ++i) {
      pixels_[i] = static_cast<std::uint32_t>(random.between(0, 0xFFFFFF));
    }
  }
  // Colours alone.
  std::vector<std::uint32_t> colours() const {
    GdiFlush();
    std::vector<std::uint32_t> all(pixels_, pixels_ + width_ * height_);
    for (std::uint32_t& pixel : all) pixel &= 0xFFFFFF;
    return all;
  }

 private:
  int width_, height_;
  HDC context_;
  HBITMAP bitmap_;
  HGDIOBJ before_;
  std::uint32_t* pixels_;
};

constexpr int kWide = 40, kHigh = 30;
constexpr Rect kPlace{5, 4, 29, 21};

img_view view_of(std::int32_t fit, std::int32_t flags) {
  img_view view{};
  view.bytes = sizeof view;
  view.fit = fit;
  view.flags = flags;
  view.background = 0x00102030;
  view.width = kPlace.width;
  view.height = kPlace.height;
  return view;
}

Image picture(Random& random, int bits, bool in_runs) {
  Rows rows;
  for (int y = 0; y < 50; ++y) rows.push_back(pack(random.pixels(70, bits), bits));
  Image image = make_image(70, bits, rows, in_runs);
  if (bits <= 8) {
    const Bytes palette = random.bytes(1024);
    IMGLOW_put_palette(image, palette.data());
  }
  return image;
}

// The window's pixels drawn into a copy of what is there.
std::vector<std::uint32_t> expected(std::int32_t image, const img_view& view,
                                    const Memory& memory) {
  std::vector<std::uint32_t> all = memory.colours();
  EXPECT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX, &all[kPlace.y * kWide + kPlace.x],
                               4 * kWide, 0, kPlace.height),
            IMG_OK);
  for (std::uint32_t& pixel : all) pixel &= 0xFFFFFF;
  return all;
}

std::int32_t display(std::int32_t image, const Memory& memory, const img_view& view) {
  return IMG_display_bitmap_iac(image, memory.context(), kPlace.x, kPlace.y, kPlace.width,
                                kPlace.height, &view);
}

TEST_F(Drawing, MemoryContextsGetTheRenderedPixels) {
  Random random(1);
  Memory memory(kWide, kHigh);
  const struct {
    int bits;
    bool in_runs;
  } kDepths[] = {{1, false},  {1, true},   {4, false}, {8, false},
                 {16, false}, {24, false}, {32, false}};
  for (const auto& depth : kDepths) {
    const Image image = picture(random, depth.bits, depth.in_runs);
    for (const std::int32_t flags : {0, int{IMG_VIEW_BACKGROUND}, int{IMG_VIEW_KEEP}}) {
      const img_view view = view_of(IMG_FIT_WINDOW, flags);
      for (int pass = 0; pass < 2; ++pass) {  // a kept copy the second time
        memory.fill(random);
        const auto wanted = expected(image, view, memory);
        ASSERT_EQ(display(image, memory, view), IMG_OK);
        EXPECT_EQ(memory.colours(), wanted) << depth.bits << ", flags " << flags;
      }
      const Bytes row(300);
      IMGLOW_put_raster(image, row.data(), 20, 0);
    }
    for (std::int32_t table = 0; table < 16; ++table) {
      // Codes of GDI, of which the low word is theirs; those that ask for no pattern.
      constexpr std::int32_t kCodes[] = {0x000042, 0x1100A6, 0x220326, 0x330008, 0x440328, 0x550009,
                                         0x660046, 0x7700E6, 0x8800C6, 0x990066, 0xAA0029, 0xBB0226,
                                         0xCC0020, 0xDD0228, 0xEE0086, 0xFF0062};
      IMGLOW_set_rop(image, kCodes[table]);
      const img_view view = view_of(IMG_FIT_STRETCH, 0);
      memory.fill(random);
      const auto wanted = expected(image, view, memory);
      ASSERT_EQ(display(image, memory, view), IMG_OK);
      EXPECT_EQ(memory.colours(), wanted) << depth.bits << ", operation " << table;
    }
  }
}

TEST_F(Drawing, TransparentPixelsShowWhatIsThere) {
  Random random(2);
  Memory memory(kWide, kHigh);
  const Image image = picture(random, 4, false);
  IMGLOW_set_transp_color(image, 3);
  const img_view view = view_of(IMG_FIT_WINDOW, 0);
  memory.fill(random);
  const auto wanted = expected(image, view, memory);
  ASSERT_EQ(display(image, memory, view), IMG_OK);
  EXPECT_EQ(memory.colours(), wanted);
}

TEST_F(Drawing, ClipMappingAndWhatIsRefused) {
  Random random(3);
  Memory memory(kWide, kHigh);
  const Image image = picture(random, 24, false);
  img_view view = view_of(IMG_FIT_STRETCH, 0);
  memory.fill(random);
  auto wanted = expected(image, view, memory);
  const auto before = memory.colours();
  const HRGN region = CreateRectRgn(10, 8, 20, 30);
  SelectClipRgn(memory.context(), region);
  for (int y = 0; y < kHigh; ++y) {
    for (int x = 0; x < kWide; ++x) {
      if (x < 10 || x >= 20 || y < 8) wanted[y * kWide + x] = before[y * kWide + x];
    }
  }
  ASSERT_EQ(display(image, memory, view), IMG_OK);
  EXPECT_EQ(memory.colours(), wanted);
  SelectClipRgn(memory.context(), nullptr);
  DeleteObject(region);

  // The same place in units of half a pixel, from another origin and upwards.
  memory.fill(random);
  wanted = expected(image, view, memory);
  SetMapMode(memory.context(), MM_ANISOTROPIC);
  SetWindowExtEx(memory.context(), 2, -2, nullptr);
  SetViewportExtEx(memory.context(), 1, 1, nullptr);
  SetViewportOrgEx(memory.context(), 3, 1, nullptr);
  ASSERT_EQ(IMG_display_bitmap_iac(image, memory.context(), 2 * (kPlace.x - 3), -2 * (kPlace.y - 1),
                                   2 * kPlace.width, -2 * kPlace.height, &view),
            IMG_EMPTY_DISPLAY_RECT);
  ASSERT_EQ(IMG_display_bitmap_iac(image, memory.context(), 2 * (kPlace.x - 3),
                                   -2 * (kPlace.y - 1 + kPlace.height), 2 * kPlace.width,
                                   2 * kPlace.height, &view),
            IMG_OK);
  EXPECT_EQ(GetMapMode(memory.context()), MM_ANISOTROPIC);
  SetMapMode(memory.context(), MM_TEXT);
  SetViewportOrgEx(memory.context(), 0, 0, nullptr);
  EXPECT_EQ(memory.colours(), wanted);
  Rect drawn;
  EXPECT_EQ(IMGLOW_get_display_rect(image, &drawn.x, &drawn.y, &drawn.width, &drawn.height),
            IMG_OK);
  EXPECT_EQ(drawn.x, kPlace.x);
  EXPECT_EQ(drawn.y, kPlace.y);
  EXPECT_EQ(drawn.width, kPlace.width);
  EXPECT_EQ(IMG_display_bitmap_iac(image, nullptr, 0, 0, 9, 9, &view), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_display_bitmap_iac(image, memory.context(), 0, 0, 0, 9, nullptr),
            IMG_EMPTY_DISPLAY_RECT);
}

TEST_F(Drawing, MetafilesAndWipesGetThemToo) {
  Random random(4);
  Memory memory(kWide, kHigh);
  const Image image = picture(random, 8, false);
  const img_view view = view_of(IMG_FIT_STRETCH, 0);
  const HDC recording = CreateEnhMetaFileA(memory.context(), nullptr, nullptr, nullptr);
  ASSERT_NE(recording, nullptr);
  EXPECT_EQ(IMG_display_bitmap_iac(image, recording, 0, 0, kPlace.width, kPlace.height, &view),
            IMG_OK);
  const HENHMETAFILE file = CloseEnhMetaFile(recording);
  ENHMETAHEADER header{};
  EXPECT_GT(GetEnhMetaFileHeader(file, sizeof header, &header), 0u);
  EXPECT_EQ(header.rclBounds.right - header.rclBounds.left + 1, kPlace.width);
  EXPECT_EQ(header.rclBounds.bottom - header.rclBounds.top + 1, kPlace.height);
  // At half its size: every other pixel, or a mean of four, as the system likes it.
  constexpr int kHalfWide = kPlace.width / 2, kHalfHigh = kPlace.height / 2;
  Memory half(kHalfWide, kHalfHigh);
  const Image plain = make_image(4, 24, Rows(4, Bytes(12, 200)));
  const HDC again = CreateEnhMetaFileA(memory.context(), nullptr, nullptr, nullptr);
  EXPECT_EQ(IMG_display_bitmap_iac(plain, again, 0, 0, kPlace.width, kPlace.height, &view), IMG_OK);
  const HENHMETAFILE grey = CloseEnhMetaFile(again);
  const RECT place{0, 0, kHalfWide, kHalfHigh};
  EXPECT_NE(PlayEnhMetaFile(half.context(), grey, &place), 0);
  EXPECT_EQ(half.colours(), std::vector<std::uint32_t>(kHalfWide * kHalfHigh, 0xC8C8C8));
  DeleteEnhMetaFile(grey);
  DeleteEnhMetaFile(file);
  IMGLOW_set_wipedelay(0);
  for (std::int32_t effect = 0; effect <= 15; ++effect) {
    memory.fill(random);
    const auto wanted = expected(image, view, memory);
    ASSERT_EQ(IMG_display_wipe(image, memory.context(), kPlace.x, kPlace.y, kPlace.width,
                               kPlace.height, &view, effect, 5),
              IMG_OK);
    EXPECT_EQ(memory.colours(), wanted) << effect;
  }
}

TEST_F(Drawing, PrintingToMemoryPlacesThePicture) {
  Random random(6);
  Memory memory(kWide, kHigh);
  for (const int bits : {1, 8, 24}) {
    const Image image = picture(random, bits, false);
    img_view view = view_of(IMG_FIT_STRETCH, 0);
    memory.fill(random);
    IMGLOW_set_alias(bits == 1 ? 0 : 1);  // 1 bit stays 1 bit
    const auto wanted = expected(image, view, memory);
    ASSERT_EQ(IMG_print_bitmap(image, memory.context(), kPlace.x, kPlace.y, kPlace.width,
                               kPlace.height, &view),
              IMG_OK);
    EXPECT_EQ(memory.colours(), wanted) << bits;
    // Enlarged by the device: whole pixels of the image.
    view.source_width = view.source_height = 7;
    memory.fill(random);
    const auto enlarged = expected(image, view, memory);
    ASSERT_EQ(IMG_print_bitmap_fast(image, memory.context(), kPlace.x, kPlace.y, kPlace.width,
                                    kPlace.height, &view),
              IMG_OK);
    const auto got = memory.colours();
    int different = 0;
    for (std::size_t i = 0; i < got.size(); ++i) different += got[i] != enlarged[i];
    EXPECT_LT(different, kPlace.width * kPlace.height / 5) << "edges of pixels only";
  }
}

// A printer that needs no spooler: its driver writes PostScript to a file.
constexpr const char* kPpd = R"PPD(*PPD-Adobe: "4.3"
*FormatVersion: "4.3"
*FileVersion: "1.0"
*LanguageVersion: English
*LanguageEncoding: ISOLatin1
*PCFileName: "TEST.PPD"
*Product: "(Test)"
*PSVersion: "(3010.000) 1"
*ModelName: "Test"
*ShortNickName: "Test"
*NickName: "Test"
*Manufacturer: "Test"
*LanguageLevel: "3"
*ColorDevice: True
*DefaultColorSpace: RGB
*FileSystem: False
*Throughput: "1"
*LandscapeOrientation: Plus90
*TTRasterizer: Type42
*OpenUI *PageSize: PickOne
*DefaultPageSize: A4
*PageSize A4: "<</PageSize[595 842]>>setpagedevice"
*CloseUI: *PageSize
*OpenUI *PageRegion: PickOne
*DefaultPageRegion: A4
*PageRegion A4: "<</PageSize[595 842]>>setpagedevice"
*CloseUI: *PageRegion
*DefaultImageableArea: A4
*ImageableArea A4: "0 0 595 842"
*DefaultPaperDimension: A4
*PaperDimension A4: "595 842"
*DefaultResolution: 300dpi
*DefaultFont: Courier
*Font Courier: Standard "(1.0)" Standard ROM
*Font Helvetica: Standard "(1.0)" Standard ROM
*Font Times-Roman: Standard "(1.0)" Standard ROM
)PPD";

bool add_printer(char* name) {
  char folder[MAX_PATH] = "";
  DWORD room = sizeof folder;
  if (GetPrinterDriverDirectoryA(nullptr, nullptr, 1, reinterpret_cast<BYTE*>(folder), room,
                                 &room) == 0) {
    return false;
  }
  std::string ppd = std::string(folder) + "\\test.ppd";
  write_file(ppd, Bytes(kPpd, kPpd + std::strlen(kPpd)));
  char environment[] = "Windows NT x86", driver[] = "wineps.drv",
       port[] = "FILE:", processor[] = "winprint", type[] = "RAW";
  DRIVER_INFO_3A info{};
  info.cVersion = 3;
  info.pName = name;
  info.pEnvironment = environment;
  info.pDriverPath = driver;
  info.pDataFile = ppd.data();
  info.pConfigFile = driver;
  if (AddPrinterDriverExA(nullptr, 3, reinterpret_cast<BYTE*>(&info), APD_COPY_ALL_FILES) == 0 &&
      AddPrinterDriverExA(nullptr, 3, reinterpret_cast<BYTE*>(&info), 0x10) == 0) {
    return false;
  }
  PRINTER_INFO_2A printer{};
  printer.pPrinterName = name;
  printer.pPortName = port;
  printer.pDriverName = name;
  printer.pPrintProcessor = processor;
  printer.pDatatype = type;
  const HANDLE added = AddPrinterA(nullptr, 2, reinterpret_cast<BYTE*>(&printer));
  if (added != nullptr) ClosePrinter(added);
  return added != nullptr || GetLastError() == ERROR_PRINTER_ALREADY_EXISTS;
}

// Two black frames, one in the other, of A4 at 75 dots per inch; grey between.
Image framed_page(bool mono) {
  Image page = make_image(620, 8, Rows(877, Bytes(stride(620, 8))));
  std::array<Rgb, 256> ramp{};
  for (int i = 0; i < 256; ++i) ramp[std::size_t(i)] = {byte(i), byte(i), byte(i), 0};
  IMGLOW_put_palette(page, ramp.data());
  IMG_set_resolution(page, 75000, 75000);
  for (std::int32_t y = 0; y < 877; ++y) {
    Bytes row(stride(620, 8), 180);
    for (std::int32_t x = 0; x < 620; ++x) {
      const std::int32_t edge = std::min({x, y, 619 - x, 876 - y});
      if (edge < 8 || (edge >= 100 && edge < 104)) row[std::size_t(x)] = 0;
    }
    IMGLOW_put_raster(page, row.data(), y, 0);
  }
  EXPECT_EQ(mono ? IMG_thresh_mono(page, 100) : IMG_OK, IMG_OK);
  return page;
}

// What tests/peers/printed_pages.py looks at: grey and 1-bit pixels of the device's, then of the
// image's own.
void print_pages_to(const char* file, char* printer) {
  const HDC context = CreateDCA("WINSPOOL", printer, nullptr, nullptr);
  ASSERT_NE(context, nullptr);
  DOCINFOA document{};
  document.cbSize = sizeof document;
  document.lpszDocName = "pages";
  document.lpszOutput = file;
  ASSERT_GT(StartDocA(context, &document), 0);
  for (int page = 0; page < 4; ++page) {
    const Image image = framed_page(page % 2 != 0);
    StartPage(context);
    const auto print = page < 2 ? IMG_print_bitmap : IMG_print_bitmap_fast;
    EXPECT_EQ(print(image, context, 0, 0, 0, 0, nullptr), IMG_OK);
    EndPage(context);
  }
  EXPECT_GT(EndDoc(context), 0);
  DeleteDC(context);
}

TEST_F(Drawing, PagesArePrinted) {
  char name[] = "TarnquillTest";
  char kept[MAX_PATH] = "";
  if (const char* const wanted = std::getenv("TQ_PRINTED")) {
    GetFullPathNameA(wanted, sizeof kept, kept, nullptr);
    DeleteFileA(kept);  // nothing of an earlier run is looked at
  }
  EXPECT_EQ(IMG_print_pages(nullptr, 1, nullptr, nullptr, nullptr, 1, nullptr), IMG_UNSUPPORTED);
  if (!add_printer(name)) GTEST_SKIP() << "no driver to print with, " << GetLastError();
  const Image page = framed_page(false);
  const ScratchFolder folder;
  const std::string file = folder.file("page.ps");
  const std::int32_t image = page;
  EXPECT_EQ(IMG_print_pages(&image, 1, "NoSuchPrinter", nullptr, nullptr, 1, nullptr),
            IMG_CANNOT_OPEN);
  EXPECT_EQ(IMG_print_pages(&image, 1, name, "page", file.c_str(), 1, nullptr), 1);
  const Bytes printed = file_content(file);
  const std::string text(printed.begin(),
                         printed.begin() + std::min<std::ptrdiff_t>(std::ssize(printed), 4));
  EXPECT_EQ(text, "%!PS");
  Rect drawn;
  IMGLOW_get_display_rect(image, &drawn.x, &drawn.y, &drawn.width, &drawn.height);
  EXPECT_NEAR(drawn.width, 2480, 2);
  EXPECT_NEAR(drawn.height, 3508, 2);
  if (kept[0] != '\0') print_pages_to(kept, name);
}

// In place of what the device would make of greys.
TEST_F(Drawing, DevicesOfOneBitGetDiffusedPixels) {
  Random random(7);
  const HDC context = CreateCompatibleDC(nullptr);
  const HBITMAP bitmap = CreateBitmap(kWide, kHigh, 1, 1, nullptr);
  const HGDIOBJ before = SelectObject(context, bitmap);
  for (const int bits : {8, 24}) {
    const Image image = picture(random, bits, false);
    const img_view view = view_of(IMG_FIT_STRETCH, 0);
    Rows levels;
    for (std::int32_t y = 0; y < kPlace.height; ++y) {
      Bytes row(stride(kPlace.width, 8));
      EXPECT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_GREY, row.data(), kPlace.width, y, 1),
                IMG_OK);
      levels.push_back(row);
    }
    const Image expected = make_image(kPlace.width, 8, levels);
    std::array<Rgb, 256> ramp{};
    for (int i = 0; i < 256; ++i) ramp[std::size_t(i)] = {byte(i), byte(i), byte(i), 0};
    IMGLOW_put_palette(expected, ramp.data());
    IMG_diffusion_mono(expected);
    ASSERT_EQ(
        IMG_print_bitmap(image, context, kPlace.x, kPlace.y, kPlace.width, kPlace.height, &view),
        IMG_OK);
    const Rows rows = rows_of_image(expected);
    int different = 0;
    for (int y = 0; y < kPlace.height; ++y) {
      const auto row = unpack(rows[std::size_t(y)], kPlace.width, 1);
      for (int x = 0; x < kPlace.width; ++x) {
        const bool white = GetPixel(context, kPlace.x + x, kPlace.y + y) == 0xFFFFFF;
        different += white != (row[std::size_t(x)] != 0);
      }
    }
    EXPECT_EQ(different, 0) << bits;
  }
  SelectObject(context, before);
  DeleteObject(bitmap);
  DeleteDC(context);
}

TEST_F(Drawing, TheClipboardGivesBackWhatItWasGiven) {
  Random random(5);
  for (const int bits : {1, 4, 8, 24}) {
    const Image image = picture(random, bits, bits == 1);
    IMG_set_resolution(image, 300000, 150000);
    const std::int32_t copied = IMG_copy_to_clipboard(image, nullptr);
    if (copied == IMG_WRITE_FAILED) GTEST_SKIP() << "no clipboard here";
    ASSERT_EQ(copied, IMG_OK);
    const Image pasted(IMG_paste_from_clipboard(nullptr));
    ASSERT_GE(pasted, 0);
    IMG_promote_24(image);
    if (bits < 24) IMG_promote_24(pasted);
    EXPECT_EQ(rows_of_image(pasted), rows_of_image(image)) << bits;
    EXPECT_EQ(header_of_image(pasted).biXPelsPerMeter, 300);
  }
  const Image image = picture(random, 4, false);
  IMGLOW_set_transp_color(image, 2);
  ASSERT_EQ(IMG_copy_to_clipboard(image, nullptr), IMG_OK);
  ASSERT_NE(OpenClipboard(nullptr), 0);
  EXPECT_EQ(EnumClipboardFormats(0), 8u);
  const auto* const bytes = static_cast<const std::uint8_t*>(GlobalLock(GetClipboardData(17)));
  ASSERT_NE(bytes, nullptr);
  const std::uint32_t stored = rows_of_image(image)[49][0] >> 4;
  EXPECT_EQ(bytes[124 + 3], stored == 2 ? 0 : 255);
  EmptyClipboard();
  CloseClipboard();
  EXPECT_EQ(IMG_paste_from_clipboard(nullptr), IMG_CANNOT_OPEN);
}

}  // namespace
}  // namespace tq::test
