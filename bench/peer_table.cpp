// What callers feel, beside the usual libraries in one process: alternating, the least of five, processor
// time of the thread. What both make is compared before it is timed.
//   LD_LIBRARY_PATH=lib bin/peer_table [WORD...]     rows whose names hold one of the words
#include <leptonica/allheaders.h>

#include <FreeImage.h>  // behind the other one: it defines a name of its
#include <fcntl.h>
#include <gif_lib.h>
#include <png.h>
#include <tiffio.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <span>
#include <string>

#include "bench/pictures.h"
#include "core/numbers.h"
#include "include/tarnquill.h"

namespace tq::bench {
namespace {

constexpr double kPhoto = 12e6, kPage = 2480.0 * 3508;  // pixels

double now() {
  timespec time = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

using Work = std::function<void()>;

double time_of(const Work& work, int repeats) {
  const double start = now();
  for (int i = 0; i < repeats; ++i) work();
  return (now() - start) / repeats;
}

int repeats_of(const Work& work) {
  int repeats = 1;
  while (repeats < 1000000 && time_of(work, repeats) * repeats < 0.01) repeats *= 2;
  return repeats;
}

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

// The peer may be a part of our own work: what a saving is measured by.
struct Peer {
  const char* name;
  Work work;
};

class Table {
 public:
  Table(int count, char** words) : words_(words, words + count) {}

  bool wants(const std::string& name) const {
    const auto in_name = [&](const std::string& word) { return name.find(word) != name.npos; };
    return words_.empty() || std::any_of(words_.begin(), words_.end(), in_name);
  }
  // `pixels` makes nanoseconds a pixel of our time, else it is microseconds.
  void row(const char* name, double pixels, const Work& ours, const Peer& peer = {}) const {
    if (!wants(name)) return;
    double least[2] = {1e9, 1e9};
    const int repeats = repeats_of(ours), peer_repeats = peer.work ? repeats_of(peer.work) : 0;
    for (int i = 0; i < 5; ++i) {
      least[0] = std::min(least[0], time_of(ours, repeats));
      if (peer.work) least[1] = std::min(least[1], time_of(peer.work, peer_repeats));
    }
    std::printf("%-34s %10.2f %s", name, 1e6 * least[0], "us");
    if (pixels > 0) std::printf(" %7.2f ns/px", 1e9 * least[0] / pixels);
    if (peer.work) std::printf(" %*.2f of %s", pixels > 0 ? 6 : 20, least[0] / least[1], peer.name);
    std::printf("\n");
    std::fflush(stdout);
  }

 private:
  std::vector<std::string> words_;
};

std::string folder() {
  static char name[] = "/tmp/peer_tableXXXXXX";
  static const char* const made = mkdtemp(name);
  return made;
}
std::string in_folder(const char* name) {
  return folder() + "/" + name;
}
Bytes bytes_of(const std::string& name) {
  std::ifstream in(name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

std::int32_t image_of(Picture& picture) {
  return IMG_create_handle_keep(picture.dib.data());
}
std::int32_t decode(const Bytes& file) {
  const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
  if (image < 0) fail("not decoded");
  return image;
}
void decode_and_delete(const Bytes& file) {
  IMG_delete_bitmap(decode(file));
}
void save(std::int32_t image, const std::string& name, std::int32_t code) {
  if (IMG_save_bitmap(image, name.c_str(), code) < 0) fail("not saved: " + name);
}
Bytes saved(Picture& picture, std::int32_t code, const char* name) {
  const std::int32_t image = image_of(picture);
  save(image, in_folder(name), code);
  IMG_delete_bitmap(image);
  return bytes_of(in_folder(name));
}

// All rows, from the top.
Bytes pixels_of(std::int32_t image) {
  std::int32_t width = 0, height = 0, bits = 0;
  IMG_bitmap_info(image, &width, &height, &bits);
  const auto stride = row_bytes(width, bits);
  Bytes rows(static_cast<std::size_t>(stride * height));
  for (std::int32_t y = 0; y < height; ++y) {
    IMGLOW_get_raster(image, rows.data() + y * stride, y, static_cast<std::int32_t>(stride));
  }
  return rows;
}
Bytes decoded(const Bytes& file) {
  const std::int32_t image = decode(file);
  Bytes rows = pixels_of(image);
  IMG_delete_bitmap(image);
  return rows;
}
Bytes pixels_of(FIBITMAP* bitmap) {
  const std::size_t stride = FreeImage_GetPitch(bitmap), height = FreeImage_GetHeight(bitmap);
  Bytes rows(stride * height);
  for (std::size_t y = 0; y < height; ++y) {
    std::memcpy(rows.data() + y * stride,
                FreeImage_GetScanLine(bitmap, static_cast<int>(height - 1 - y)), stride);
  }
  return rows;
}
void must_equal(const Bytes& ours, const Bytes& theirs, const char* what) {
  if (ours != theirs) fail(std::string(what) + ": different");
}

FIBITMAP* freeimage_of(Picture& picture) {
  FIBITMAP* bitmap = FreeImage_Allocate(picture.width, picture.height, picture.bits);
  for (int y = 0; y < picture.height; ++y) {
    std::memcpy(FreeImage_GetScanLine(bitmap, picture.height - 1 - y), picture.row(y),
                FreeImage_GetLine(bitmap));
  }
  for (int i = 0; i < 1 << picture.bits && picture.bits <= 8; ++i) {
    const auto v = static_cast<BYTE>(i * 255 / ((1 << picture.bits) - 1));
    FreeImage_GetPalette(bitmap)[i] = {v, v, v, 0};
  }
  return bitmap;
}
Pix* leptonica_of(Picture& picture) {
  Pix* pix = pixCreate(picture.width, picture.height, picture.bits == 24 ? 32 : picture.bits);
  for (int y = 0; y < picture.height; ++y) {
    const std::uint8_t* row = picture.row(y);
    l_uint32* line = pixGetData(pix) + static_cast<std::ptrdiff_t>(y) * pixGetWpl(pix);
    for (int x = 0; x < picture.width; ++x) {
      if (picture.bits == 24) composeRGBPixel(row[3 * x + 2], row[3 * x + 1], row[3 * x], line + x);
      if (picture.bits == 8) SET_DATA_BYTE(line, x, row[x]);
      if (picture.bits == 1 && (row[x / 8] << x % 8 & 0x80) == 0) SET_DATA_BIT(line, x);
    }
  }
  return pix;
}

FIBITMAP* by_freeimage(const Bytes& file) {
  FIMEMORY* memory = FreeImage_OpenMemory(const_cast<BYTE*>(file.data()), DWORD(file.size()));
  FIBITMAP* bitmap = FreeImage_LoadFromMemory(FIF_BMP, memory, 0);
  FreeImage_CloseMemory(memory);
  return bitmap;
}

Picture& mono() {
  static Picture page = make_mono_page();
  return page;
}

// An operation on a fresh image over a picture, and one of leptonica's.
void operation(const Table& table, const char* name, Picture& picture,
               const std::function<std::int32_t(std::int32_t)>& work,
               const std::function<Pix*(Pix*)>& peer = nullptr) {
  if (!table.wants(name)) return;
  Pix* const pix = peer ? leptonica_of(picture) : nullptr;
  const Work ours = [&] {
    const std::int32_t image = image_of(picture);
    if (work(image) < 0) fail("refused");
    IMG_delete_bitmap(image);
  };
  const Work theirs = [&] {
    Pix* made = peer(pix);
    pixDestroy(&made);
  };
  table.row(name, picture.pixels(), ours, {"leptonica", peer ? theirs : nullptr});
}

void saving(const Table& table) {
  const auto save_row = [&](const char* name, Picture& picture, std::int32_t code,
                            FREE_IMAGE_FORMAT format, const char* ending) {
    if (!table.wants(name)) return;
    const std::string mine = in_folder("ours.") + ending, other = in_folder("peer.") + ending;
    const std::int32_t image = image_of(picture);
    FIBITMAP* const bitmap = freeimage_of(picture);
    const Work ours = [&] { save(image, mine, code); };
    const Work theirs = [&] { FreeImage_Save(format, bitmap, other.c_str(), 0); };
    ours();
    if (format != FIF_UNKNOWN) theirs();
    if (format == FIF_BMP) must_equal(decoded(bytes_of(mine)), decoded(bytes_of(other)), name);
    Bytes room(bytes_of(mine).size() + 1000);
    const Work to_memory = [&] { IMG_save_bitmap_block(image, room.data(), room.size(), code); };
    table.row(name, picture.pixels(), ours,
              format == FIF_UNKNOWN ? Peer{"to memory", to_memory} : Peer{"FreeImage", theirs});
    FreeImage_Unload(bitmap);
    IMG_delete_bitmap(image);
    unlink(mine.c_str());
    unlink(other.c_str());
  };
  save_row("save BMP 24 to a file", photo(24), IMG_TYPE_BMP, FIF_BMP, "bmp");
  save_row("save BMP 1 to a file", mono(), IMG_TYPE_BMP, FIF_BMP, "bmp");
  save_row("save PCX 24 to a file", photo(24), IMG_TYPE_PCX, FIF_UNKNOWN, "pcx");
  save_row("save PCX 1 to a file", mono(), IMG_TYPE_PCX, FIF_UNKNOWN, "pcx");
  save_row("save JPEG to a file", photo(24), IMG_TYPE_JPEG, FIF_UNKNOWN, "jpg");

  const std::int32_t deep = image_of(photo(24));
  FIBITMAP* const bitmap = freeimage_of(photo(24));
  Bytes room(std::size_t{37} << 20);
  const Work to_memory = [&] {
    IMG_save_bitmap_block(deep, room.data(), room.size(), IMG_TYPE_BMP);
  };
  const Work peer_to_memory = [&] {
    FIMEMORY* memory = FreeImage_OpenMemory(nullptr, 0);
    FreeImage_SaveToMemory(FIF_BMP, bitmap, memory, 0);
    FreeImage_CloseMemory(memory);
  };
  table.row("save BMP 24 to memory", kPhoto, to_memory, {"FreeImage", peer_to_memory});
  FreeImage_Unload(bitmap);
  IMG_delete_bitmap(deep);

  const std::int32_t page = image_of(mono());
  const Work append = [&, name = in_folder("pages.dcx")] {
    static int pages = 0;
    if (pages++ % 50 == 0) unlink(name.c_str());
    save(page, name, IMG_TYPE_DCX);
  };
  const Work alone = [&, name = in_folder("page.pcx")] { save(page, name, IMG_TYPE_PCX); };
  table.row("append a page to DCX", 0, append, {"saving it as PCX", alone});
  IMG_delete_bitmap(page);
}

Bytes photo_jpeg(int sampling, int quality) {
  tjhandle handle = tjInitCompress();
  unsigned char* out = nullptr;
  unsigned long size = 0;
  const Picture& from = photo(24);  // upside down, which is as hard
  tjCompress2(handle, from.dib.data() + 40, from.width, 0, from.height, TJPF_BGR, &out, &size,
              sampling, quality, 0);
  Bytes file(out, out + size);
  tjFree(out);
  tjDestroy(handle);
  return file;
}

void jpeg(const Table& table) {
  Bytes out(std::size_t{36} << 20);
  const auto peer = [&](const Bytes& file, int scale) {
    tjhandle handle = tjInitDecompress();
    const int width = (4000 + scale - 1) / scale, height = (3000 + scale - 1) / scale;
    tjDecompress2(handle, file.data(), file.size(), out.data(), width, 0, height, TJPF_BGR,
                  TJFLAG_FASTUPSAMPLE);
    tjDestroy(handle);
  };
  const struct {
    const char* name;
    int sampling, quality;
  } cases[] = {{"decode JPEG 4:2:0 q75", TJSAMP_420, 75},
               {"decode JPEG 4:2:0 q90", TJSAMP_420, 90},
               {"decode JPEG 4:4:4 q75", TJSAMP_444, 75}};
  for (const auto& [name, sampling, quality] : cases) {
    if (!table.wants(name)) continue;
    const Bytes file = photo_jpeg(sampling, quality);
    table.row(name, kPhoto, [&] { decode_and_delete(file); },
              {"libjpeg-turbo", [&] { peer(file, 1); }});
  }
  const Bytes file = photo_jpeg(TJSAMP_420, 75);
  const Work whole = [&] { decode_and_delete(file); };
  const Work eighth = [&] {
    IMGLOW_set_decompsize(500, 375);
    whole();
    IMGLOW_set_decompsize(0, 0);
  };
  table.row("part: JPEG at 1/8", kPhoto, eighth, {"libjpeg-turbo", [&] { peer(file, 8); }});

  if (!table.wants("encode JPEG 4:2:0 q90")) return;
  const std::int32_t image = image_of(photo(24));
  Bytes room(std::size_t{37} << 20);
  IMGLOW_set_comp_quality(90);
  IMGLOW_set_jpg_interleave(2, 2);
  const Work ours = [&] { IMG_save_bitmap_block(image, room.data(), room.size(), IMG_TYPE_JPEG); };
  table.row("encode JPEG 4:2:0 q90", kPhoto, ours,
            {"libjpeg-turbo", [&] { photo_jpeg(TJSAMP_420, 90); }});
  IMG_delete_bitmap(image);
}

void parts(const Table& table) {
  const struct {
    const char *name, *file;
    std::int32_t code;
  } cases[] = {{"part: JPEG, top left 1/16", "part.jpg", IMG_TYPE_JPEG},
               {"part: BMP, top left 1/16", "part.bmp", IMG_TYPE_BMP},
               {"part: PCX, top left 1/16", "part.pcx", IMG_TYPE_PCX},
               {"part: PNG, top left 1/16", "part.png", IMG_TYPE_PNG},
               {"part: BMP at 1/2", "half.bmp", IMG_TYPE_BMP}};
  for (const auto& [name, file_name, code] : cases) {
    if (!table.wants(name)) continue;
    const Bytes file = saved(photo(24), code, file_name);
    const bool half = std::string(name).find("1/2") != std::string::npos;
    const Work whole = [&] { decode_and_delete(file); };
    const Bytes all = decoded(file);
    const auto set = [&](bool on) {
      if (half)
        IMGLOW_set_decompsize(on ? 2000 : 0, on ? 1500 : 0);
      else
        IMGLOW_set_decomp_rect(0, 0, on ? 1000 : 0, on ? 750 : 0);
    };
    set(true);
    const Bytes part = decoded(file);
    for (std::size_t y = 0; y < 750 && !half; ++y) {
      if (!std::equal(part.begin() + 3000 * y, part.begin() + 3000 * (y + 1),
                      all.begin() + 12000 * y)) {
        fail("another part");
      }
    }
    set(false);
    table.row(name, kPhoto,
              [&] {
                set(true);
                whole();
                set(false);
              },
              {"the whole", whole});
  }
}

void reductions(const Table& table) {
  const Bytes bmp = saved(photo(24), IMG_TYPE_BMP, "reduced.bmp");
  const Work whole = [&] { decode_and_delete(bmp); };
  const struct {
    const char* name;
    int bits, mode;
  } cases[] = {{"reduce while decoding: 8, nearest", 8, 2},
               {"reduce while decoding: 8, ordered", 8, 1},
               {"reduce while decoding: 4, ordered", 4, 1},
               {"reduce while decoding: 1, ordered", 1, 1}};
  for (const auto& [name, bits, mode] : cases) {
    const Work ours = [&, bits = bits, mode = mode] {
      IMGLOW_set_decomp_reduction(bits);
      IMGLOW_set_dithermode(mode);
      whole();
      IMGLOW_set_decomp_reduction(0);
      IMGLOW_set_dithermode(1);
    };
    table.row(name, kPhoto, ours, {"the whole", whole});
  }
}

void operations(const Table& table) {
  operation(table, "1 to 8 bits", mono(), IMG_promote_8,
            [](Pix* pix) { return pixConvert1To8(nullptr, pix, 255, 0); });
  operation(table, "1 to 24 bits", mono(), IMG_promote_24,
            [](Pix* pix) { return pixConvert1To32(nullptr, pix, 0xFFFFFF00, 0); });
  operation(
      table, "octree with diffusion", photo(24),
      [](std::int32_t image) { return IMG_octree_color(image, 8, nullptr, 256); },
      [](Pix* pix) { return pixOctreeColorQuant(pix, 240, 1); });
  operation(table, "16 colours, ordered", photo(24), IMG_bayer_color);
  operation(table, "16 colours, diffused", photo(24), IMG_diffusion_color);
  operation(
      table, "threshold to run lists", page(8),
      [](std::int32_t image) { return IMG_thresh_mono(image, 128); },
      [](Pix* pix) { return pixThresholdToBinary(pix, 128); });
  operation(
      table, "threshold of a photograph", photo(8),
      [](std::int32_t image) { return IMG_thresh_mono(image, 128); },
      [](Pix* pix) { return pixThresholdToBinary(pix, 128); });
  const struct {
    const char* name;
    int width;
  } cases[] = {{"Stucki, 200 pixels wide", 200}, {"Stucki, 900 pixels wide", 900}};
  for (const auto& [name, width] : cases) {
    Picture narrow = empty_picture(width, 2000, 8);
    for (int y = 0; y < narrow.height; ++y) std::copy_n(photo(8).row(y), width, narrow.row(y));
    operation(table, name, narrow, IMG_diffusion_mono);
  }
}

// The middle one of those that giflib and libpng demand.
int take_bytes(GifFileType* gif, GifByteType* to, int count) {
  auto& rest = *static_cast<std::span<const std::uint8_t>*>(gif->UserData);
  const auto taken = std::min<std::size_t>(rest.size(), std::size_t(count));
  std::copy_n(rest.begin(), taken, to);
  rest = rest.subspan(taken);
  return static_cast<int>(taken);
}
Bytes by_giflib(const Bytes& file) {
  std::span<const std::uint8_t> rest = file;
  int error = 0;
  GifFileType* gif = DGifOpen(&rest, take_bytes, &error);
  DGifSlurp(gif);
  const SavedImage& first = gif->SavedImages[0];
  Bytes rows(first.RasterBits, first.RasterBits + std::ptrdiff_t{gif->SWidth} * gif->SHeight);
  DGifCloseFile(gif, &error);
  return rows;
}
Bytes by_libpng(const Bytes& file) {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  std::span<const std::uint8_t> rest = file;
  png_set_read_fn(png, &rest, [](png_structp from, png_bytep to, std::size_t count) {
    auto& bytes = *static_cast<std::span<const std::uint8_t>*>(png_get_io_ptr(from));
    std::copy_n(bytes.begin(), count, to);
    bytes = bytes.subspan(count);
  });
  png_read_info(png, info);
  const std::size_t stride = (png_get_rowbytes(png, info) + 3) / 4 * 4;
  const std::size_t height = png_get_image_height(png, info);
  Bytes rows(stride * height);
  for (std::size_t y = 0; y < height; ++y) png_read_row(png, rows.data() + y * stride, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return rows;
}
Bytes by_libtiff(const std::string& name) {
  TIFF* tiff = TIFFOpen(name.c_str(), "r");
  const auto strip = static_cast<std::size_t>(TIFFStripSize(tiff));
  const std::uint32_t strips = TIFFNumberOfStrips(tiff);
  Bytes rows(strip * strips);
  for (std::uint32_t i = 0; i < strips; ++i) {
    TIFFReadEncodedStrip(tiff, i, rows.data() + i * strip, tmsize_t(strip));
  }
  TIFFClose(tiff);
  return rows;
}

// What pads rows is nobody's.
Bytes padded_white(Bytes rows, std::size_t stride, std::size_t bytes) {
  for (std::size_t y = 0; y < rows.size(); y += stride) {
    std::fill_n(rows.data() + y + bytes, stride - bytes, std::uint8_t{0xFF});
  }
  return rows;
}

void pages(const Table& table) {
  if (table.wants("read BMP 1")) {
    const Bytes file = saved(mono(), IMG_TYPE_BMP, "page.bmp");
    FIBITMAP* const bitmap = by_freeimage(file);
    must_equal(decoded(file), padded_white(pixels_of(bitmap), 312, 310), "BMP 1");
    FreeImage_Unload(bitmap);
    table.row("read BMP 1", kPage, [&] { decode_and_delete(file); },
              {"FreeImage", [&] { FreeImage_Unload(by_freeimage(file)); }});
  }
  if (table.wants("read PNG 1")) {
    const Bytes file = saved(mono(), IMG_TYPE_PNG, "page.png");
    must_equal(decoded(file), padded_white(by_libpng(file), 312, 310), "PNG 1");
    table.row("read PNG 1", kPage, [&] { decode_and_delete(file); },
              {"libpng", [&] { by_libpng(file); }});
  }
  if (table.wants("read Group 4")) {
    const Bytes file = saved(mono(), IMG_TYPE_TIFF_G4, "page.tif");
    const std::string name = in_folder("page.tif");
    Bytes rows;  // white is 0 there, and nothing is padded
    for (const std::uint8_t bits : by_libtiff(name)) {
      rows.push_back(byte(~bits));
      if (rows.size() % 312 == 310) rows.insert(rows.end(), 2, 0xFF);
    }
    must_equal(decoded(file), rows, "Group 4");
    table.row("read Group 4", kPage,
              [&] { IMG_delete_bitmap(IMG_decompress_bitmap(name.c_str())); },
              {"libtiff", [&] { by_libtiff(name); }});
  }
  if (table.wants("read GIF")) {
    const Bytes file = saved(photo(8), IMG_TYPE_GIF, "photo.gif");
    must_equal(decoded(file), by_giflib(file), "GIF");
    table.row("read GIF", kPhoto, [&] { decode_and_delete(file); },
              {"giflib", [&] { by_giflib(file); }});
  }
}

void small_files(const Table& table) {
  Picture small = empty_picture(28, 32, 8);
  const Bytes bmp = saved(small, IMG_TYPE_BMP, "small.bmp");
  const Bytes png = saved(small, IMG_TYPE_PNG, "small.png");
  const Bytes jpg = saved(small, IMG_TYPE_JPEG, "small.jpg");
  std::int32_t header[10];
  const auto info = [&](const Bytes& file) {
    if (IMGLOW_get_fileinfo_block(file.data(), file.size(), header) < 0) fail("no header");
  };
  table.row("small BMP from memory", 0, [&] { decode_and_delete(bmp); },
            {"FreeImage", [&] { FreeImage_Unload(by_freeimage(bmp)); }});
  table.row("small PNG: header", 0, [&] { info(png); });
  table.row("small JPEG: header", 0, [&] { info(jpg); });
  const std::string name = in_folder("small.bmp");
  const Work from_disk = [&] { IMGLOW_get_fileinfo(name.c_str(), header); };
  const Work three_calls = [&] {
    char room[4096];
    const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (read(file, room, sizeof room) < 0) fail("not read");
    close(file);
  };
  table.row("small BMP: header, from disk", 0, from_disk, {"open, read, close", three_calls});
  std::vector<std::int32_t> images(9000);
  if (!table.wants("9,000th image")) return;
  const auto make = [&] {
    const std::int32_t image = IMG_create_handle_shell(small.dib.data());
    return image < 0 ? (fail("no image"), image) : image;
  };
  const Work one_image = [&] { IMG_delete_bitmap(make()); };
  for (auto& image : images) image = make();
  table.row("9,000th image", 0, one_image);
  for (const auto image : images) IMG_delete_bitmap(image);
}

}  // namespace
}  // namespace tq::bench

int main(int count, char** words) {
  using namespace tq::bench;
  setMsgSeverity(L_SEVERITY_NONE);
  TIFFSetWarningHandler(nullptr);
  const Table table(count - 1, words + 1);
  saving(table);
  jpeg(table);
  parts(table);
  reductions(table);
  operations(table);
  pages(table);
  small_files(table);
  return std::system(("rm -r " + folder()).c_str());
}
