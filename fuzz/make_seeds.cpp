// Writes the seed corpus: make_seeds FOLDER makes a folder in it for each kind of input.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "formats/pdf/pdf.h"
#include "fuzz/decode_settings.h"
#include "tests/support/ccitt_model.h"
#include "tests/support/jpeg_file.h"

namespace {

using namespace std::string_view_literals;
namespace test = tq::test;
using tq::fuzz::Route;
using Bytes = std::vector<std::uint8_t>;
using SettingBytes = std::array<std::uint8_t, tq::fuzz::kSettingBytes>;

class Writer {
 public:
  Writer& u8(std::uint32_t value) {
    bytes.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  Writer& u16(std::uint32_t value) { return u8(value).u8(value >> 8); }
  Writer& u32(std::uint32_t value) { return u16(value).u16(value >> 16); }
  Writer& text(std::string_view characters) {
    for (const char c : characters) u8(static_cast<unsigned char>(c));
    return *this;
  }
  Writer& fill(std::size_t count, std::uint32_t value) {
    for (std::size_t i = 0; i < count; ++i) u8(value);
    return *this;
  }
  Writer& data(const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }
  Bytes bytes;
};

std::filesystem::path folder;
bool all_written = true;

void write_file(const std::string& name, const Bytes& content) {
  std::ofstream out(folder / name, std::ios::binary);
  out.write(reinterpret_cast<const char*>(content.data()),
            static_cast<std::streamsize>(content.size()));
  all_written = all_written && out.good();
}

void write_decode_seed(const std::string& name, const SettingBytes& settings, const Bytes& file) {
  Writer seed;
  for (const std::uint8_t byte : settings) seed.u8(byte);
  write_file("decode/" + name, seed.data(file).bytes);
}

// ---- BMP files --------------------------------------------------------------------------------

struct Bmp {
  std::int32_t width = 13, height = 7;
  std::uint32_t bits = 24, compression = 0;
  std::uint32_t header_bytes = 40;
  bool file_header = true;
  std::uint32_t colours_used = 0;
  std::uint32_t per_metre = 3780;
  bool white_first = false;  // of a 1-bit palette
  Bytes pixels = {};         // instead of a pattern
};

std::uint32_t row_bytes(const Bmp& bmp) {
  return (static_cast<std::uint32_t>(bmp.width) * bmp.bits + 31) / 32 * 4;
}

void write_palette(const Bmp& bmp, Writer& file) {
  if (bmp.bits < 1 || bmp.bits > 8) return;
  const std::uint32_t entries = 1u << bmp.bits;
  for (std::uint32_t i = 0; i < entries; ++i) {
    std::uint32_t level = i * 255 / (entries - 1);
    if (bmp.bits == 1 && bmp.white_first) level = 255 - level;
    const std::uint32_t green = bmp.bits == 1 ? level : 255 - level;
    file.u8(level).u8(green).u8(level);
    if (bmp.header_bytes != 12) file.u8(0);
  }
}

void write_info_header(const Bmp& bmp, Writer& file) {
  file.u32(bmp.header_bytes);
  if (bmp.header_bytes == 12) {
    file.u16(static_cast<std::uint32_t>(bmp.width)).u16(static_cast<std::uint32_t>(bmp.height));
    file.u16(1).u16(bmp.bits);
    return;
  }
  file.u32(static_cast<std::uint32_t>(bmp.width)).u32(static_cast<std::uint32_t>(bmp.height));
  file.u16(1).u16(bmp.bits).u32(bmp.compression).u32(0);
  file.u32(bmp.per_metre).u32(bmp.per_metre).u32(bmp.colours_used).u32(0);
  file.fill(bmp.header_bytes - 40, 0);
}

Bytes make(const Bmp& bmp) {
  Writer headers;
  write_info_header(bmp, headers);
  if (bmp.compression == 3 && bmp.header_bytes == 40) {
    headers.u32(0xF800).u32(0x07E0).u32(0x001F);
  }
  write_palette(bmp, headers);
  Bytes pixels = bmp.pixels;
  if (pixels.empty()) {
    const auto height = static_cast<std::uint32_t>(bmp.height < 0 ? -bmp.height : bmp.height);
    for (std::uint32_t i = 0; i < row_bytes(bmp) * height; ++i) {
      pixels.push_back(static_cast<std::uint8_t>(i * 7 + i / 16));
    }
  }
  Writer file;
  if (bmp.file_header) {
    const auto offset = static_cast<std::uint32_t>(14 + headers.bytes.size());
    file.text("BM").u32(offset + static_cast<std::uint32_t>(pixels.size())).u32(0).u32(offset);
  }
  return file.data(headers.bytes).data(pixels).bytes;
}

// Runs, literals with and without a pad byte, skips in both directions, codes past the row's end.
const Bytes kRle8 = {5,    0xAA, 0, 3, 1, 2, 3, 0, 0, 4, 9, 8, 7,   6,   0, 0, 13,
                     0x11, 0,    0, 0, 2, 2, 1, 0, 5, 1, 2, 3, 4,   5,   0, 0, 0,
                     200,  0x22, 0, 0, 3, 1, 0, 2, 0, 0, 0, 2, 255, 255, 0, 1};
const Bytes kRle4 = {5,    0x12, 0,   5,    0x12, 0x34, 0x50, 0, 0, 6, 0x12, 0x34,
                     0x56, 0,    0,   0,    3,    7,    0,    2, 3, 1, 9,    0xAB,
                     0,    0,    250, 0xCD, 0,    4,    1,    2, 0, 0, 0,    1};

// Rows behind a length word: white, one black run, bits, a list of exactly a row's length.
Bytes length_prefixed_rows() {
  Writer rows;
  const auto list = [&](std::initializer_list<std::uint32_t> changes) {
    rows.u16(static_cast<std::uint32_t>(2 * (1 + changes.size() + 6)));
    for (const std::uint32_t x : changes) rows.u16(x);
    rows.u16(100).u16(100).u16(100).u16(102).u16(102).u16(102);
  };
  list({});
  list({10, 20});
  list({0, 50, 60, 99});
  rows.u16(16).fill(14, 0x5A);
  list({});
  list({3});
  return rows.bytes;
}

struct NamedBmp {
  const char* name;
  Bmp bmp;
};

std::vector<NamedBmp> bmp_kinds() {
  std::vector<NamedBmp> kinds = {
      {"mono", {.bits = 1}},
      {"mono_white_first", {.width = 33, .bits = 1, .white_first = true}},
      {"palette16", {.bits = 4}},
      {"palette256", {.bits = 8}},
      {"palette256_short", {.bits = 8, .file_header = false, .colours_used = 256}},
      {"rgb555", {.bits = 16}},
      {"rgb565", {.bits = 16, .compression = 3}},
      {"rgb24", {.bits = 24}},
      {"rgb32", {.bits = 32}},
      {"rgb32_fields", {.bits = 32, .compression = 3}},
      {"rle8", {.bits = 8, .compression = 1, .pixels = kRle8}},
      {"rle4", {.bits = 4, .compression = 2, .pixels = kRle4}},
      {"os2_mono", {.bits = 1, .header_bytes = 12}},
      {"os2_palette256", {.bits = 8, .header_bytes = 12}},
      {"os2_rgb24", {.bits = 24, .header_bytes = 12}},
      {"header64", {.bits = 24, .header_bytes = 64}},
      {"header108", {.bits = 8, .header_bytes = 108}},
      {"header124", {.bits = 32, .compression = 3, .header_bytes = 124}},
      {"run_rows",
       {.width = 100, .height = 6, .bits = 1, .compression = 99, .pixels = length_prefixed_rows()}},
      {"jpeg", {.bits = 24, .compression = 0x4745504A}},
      {"bits12", {.bits = 12}},
      {"bits0", {.bits = 0}},
      {"unknown_compression", {.bits = 8, .compression = 200}},
      // Sizes that must be refused, or answered without going through all of them.
      {"huge", {.width = 30000, .height = 30000, .pixels = Bytes(10)}},
      {"tall", {.width = 1, .height = 0x7FFFFFFF, .bits = 1, .pixels = Bytes(10)}},
      {"wide", {.width = 0x7FFFFFFF, .height = 1, .bits = 32, .pixels = Bytes(10)}},
      {"lowest_height", {.height = INT32_MIN, .pixels = Bytes(10)}},
      {"negative_width", {.width = -5, .pixels = Bytes(10)}},
      {"wider_than_runs", {.width = 65540, .height = 2, .bits = 1}},
      {"many_colours", {.bits = 8, .file_header = false, .colours_used = 0xFFFFFFFF}},
      {"rle8_empty", {.width = 5000, .height = 10, .bits = 8, .compression = 1, .pixels = {0, 1}}},
  };
  // The same without a file header, and from the top.
  const std::size_t count = 10;
  for (std::size_t i = 0; i < count; ++i) {
    static std::string names[2 * count];
    Bmp bare = kinds[i].bmp;
    bare.file_header = false;
    names[2 * i] = std::string("bare_") + kinds[i].name;
    kinds.push_back({names[2 * i].c_str(), bare});
    Bmp top_down = kinds[i].bmp;
    top_down.height = -top_down.height;
    names[2 * i + 1] = std::string("top_down_") + kinds[i].name;
    kinds.push_back({names[2 * i + 1].c_str(), top_down});
  }
  return kinds;
}

struct NamedSettings {
  const char* name;
  SettingBytes bytes;
};

constexpr std::uint8_t byte_of(Route route) {
  return static_cast<std::uint8_t>(route);
}

// In the order of SettingByte: route, colours, switch, decode size, rectangle, page, offset, bytes
// per call, failing call, progress, refused allocation, touch, crop rectangle.
const NamedSettings kSettings[] = {
    {"plain", {byte_of(Route::block)}},
    {"reduce8", {byte_of(Route::global_block), 1}},
    {"reduce4", {byte_of(Route::name), 2 | 4}},
    {"reduce1", {byte_of(Route::packed_dib), 3}},
    {"scaled", {byte_of(Route::descriptor), 3, 0, 5, 3}},
    {"rectangle", {byte_of(Route::caller_io), 0, 0, 0, 0, 3, 2, 9, 5, 0, 4}},
    {"rectangle_outside", {byte_of(Route::block), 1, 0, 0, 0, 100, 100, 20, 20}},
    {"scrambled", {byte_of(Route::descriptor), 8, 0, 0, 0, 0, 0, 0, 0, 2, 9}},
    {"slow_caller", {byte_of(Route::caller_io), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
    {"failing_caller", {byte_of(Route::caller_io), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 6}},
    {"aborted", {byte_of(Route::block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
    {"no_memory", {byte_of(Route::block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3}},
    {"cropped", {byte_of(Route::block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 3, 2, 6, 4}},
    {"small_room", {byte_of(Route::block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 30}},
    {"caller_output", {byte_of(Route::block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 1}},
    {"sink", {byte_of(Route::sink_block)}},
    {"sink_global", {byte_of(Route::sink_global_block), 0, 0, 0, 0, 0, 0, 0, 0, 1}},
    {"sink_caller", {byte_of(Route::sink_caller_io)}},
    {"sink_stops", {byte_of(Route::sink_block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4}},
    {"header_only", {byte_of(Route::sink_block), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
    {"query", {byte_of(Route::query)}},
    {"query_text", {byte_of(Route::query), 16, 2}},
    {"query_caller", {byte_of(Route::query), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5}},
};

void write_bmp_seeds() {
  const auto kinds = bmp_kinds();
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const Bytes file = make(kinds[i].bmp);
    const std::string name = std::string("bmp_") + kinds[i].name;
    write_decode_seed(name, kSettings[0].bytes, file);
    // Every way with some kind, every kind with some ways.
    for (std::size_t k = 0; k < 3; ++k) {
      const NamedSettings& settings = kSettings[(i * 3 + k) % std::size(kSettings)];
      write_decode_seed(name + "_" + settings.name, settings.bytes, file);
    }
    Bytes cut = file;
    cut.resize(file.size() * (i % 7 + 1) / 9);
    write_decode_seed(name + "_cut", kSettings[i % std::size(kSettings)].bytes, cut);
  }
  for (const NamedSettings& settings : kSettings) {
    for (const std::size_t kind : {0u, 3u, 7u, 10u}) {
      write_decode_seed(std::string("way_") + settings.name + "_" + kinds[kind].name,
                        settings.bytes, make(kinds[kind].bmp));
    }
  }
}

// ---- Signatures -------------------------------------------------------------------------------

struct Signature {
  const char* name;
  std::string_view start;
  std::size_t at = 0;
};

constexpr Signature kSignatures[] = {
    {"eps", "\xC5\xD0\xD3\xC6"sv},
    {"pdf", "%PDF-1.4\n"sv},
    {"dcx", "\xB1\x68\xDE\x3A\x10\0\0\0\0\0\0\0"sv},
    {"jpg", "\xFF\xD8\xFF\xE0"sv},
    {"wpg", "\xFFWPC"sv},
    {"cal", "srcdocid"sv},
    {"png", "\x89PNG\r\n\x1A\n"sv},
    {"ncr", "NN"sv},
    {"ncr_lower", "nn"sv},
    {"kfx", ".KF"sv},
    {"iff", "FORM"sv},
    {"fpx", "\xD0\xCF\x11\xE0\xA1\xB1"sv},
    {"gx2", "GX2"sv},
    {"lsd", "\xDC\xDC"sv},
    {"pcx", "\x0A\x05\x01\x08"sv},
    {"ico", "\0\0\1\0\1\0\x20"sv},
    {"tga_palette", "\0\1\1"sv},
    {"tga_rgb", "\0\0\x0A"sv},
    {"tga_other", "\x30\0\x9C"sv},
    {"wmf", "\xD7\xCD\xC6\x9A"sv},
    {"ica", "0000"sv},
    {"ica_p", "p"sv},
    {"mca", "\x01\x02\xD3\xA6\xFB"sv},
    {"pcd", "\xFF\xFF\xFF\xFF"sv},
    {"clp", "P\xC3"sv},
    {"img", "\0\1\0\x08"sv},
    {"btr", "\xBB\0\0\1"sv},
    {"msp", "LinS"sv},
    {"msp_old", "DanM"sv},
    {"xbm", "#define a_width 16\n#define a_height 16\n"sv},
    {"xbm_no_line", "#define a_width 16"sv},
    {"xpm", "/* XPM */"sv},
    {"xwd", "\1\1\1\1\0\0\0\7"sv},
    {"ras", "\x59\xA6\x6A\x95"sv},
    {"jed", "\x80\0\0"sv},
    {"fxs", "\x0B#\2\xC0\6"sv},
    {"cut", "\x10\1\x20\1\0\0\5\5"sv},
    {"mag", "WTI"sv},
    {"txt", "a plain text\n"sv},
    {"psd", "8BPS"sv},
    {"imt",
     "\x27"
     "C1\0"sv},
    {"pct", "\x11\1"sv, 522},
    {"mac", "PNTG"sv, 65},
    {"mac_packed", "\xB9\0\xB9\0"sv, 512},
    {"sct", "CT"sv, 80},
    {"dcm", "DICM"sv, 128},
    {"dcm_bare", "\x08\0\0\0\4\0\0\0\x10\0\0\0\x08\0\1\0\4\0\0\0"sv},
};

void write_signature_seeds() {
  for (const Signature& signature : kSignatures) {
    // What surrounds a signature must match no other test.
    Writer file;
    file.fill(signature.at, 0xEE).text(signature.start).fill(600, 0xEE);
    const std::string name = std::string("type_") + signature.name;
    write_decode_seed(name, {byte_of(Route::query), 16}, file.bytes);
    write_decode_seed(name + "_decode", {byte_of(Route::caller_io), 16}, file.bytes);
  }
}

// ---- Files whose variant is looked for --------------------------------------------------------

struct Tiff {
  const char* name;
  std::uint32_t compression, field_type = 3, entries = 2, directory = 8;
};

void write_tiff_seeds() {
  constexpr Tiff kTiffs[] = {
      {"plain", 1},
      {"huffman", 2},
      {"g3", 3},
      {"g4", 4},
      {"lzw", 5},
      {"jpeg", 6},
      {"other", 7},
      {"packbits", 32773},
      {"t45", 45},
      {"t32010", 32010},
      {"t32008", 32008},
      {"long", 5, 4},
      {"byte", 5, 1},
      {"cut", 5, 3, 60000},
      {"far", 5, 3, 2, 4000},
      {"beyond", 5, 3, 2, 0xFFFFFFF0},
  };
  for (const Tiff& tiff : kTiffs) {
    for (const bool big : {false, true}) {
      Writer file;
      const auto u16 = [&](std::uint32_t v) { big ? file.u8(v >> 8).u8(v) : file.u16(v); };
      const auto u32 = [&](std::uint32_t v) {
        if (big) {
          u16(v >> 16);
          u16(v);
        } else {
          file.u32(v);
        }
      };
      file.text(big ? "MM" : "II");
      u16(42);
      u32(tiff.directory);
      u16(tiff.entries);
      u16(256), u16(3), u32(1), u16(13), u16(0);
      u16(259), u16(tiff.field_type), u32(1);
      if (tiff.field_type == 4) {
        u32(tiff.compression);
      } else {
        u16(tiff.compression), u16(0);
      }
      u32(0);
      const std::string name = std::string("tiff_") + tiff.name + (big ? "_big" : "_little");
      write_decode_seed(name, {byte_of(Route::query)}, file.bytes);
    }
  }
}

void write_gif_seeds() {
  for (int variant = 0; variant < 8; ++variant) {
    const bool interlaced = (variant & 1) != 0;
    const bool table = (variant & 2) != 0;
    const bool extensions = (variant & 4) != 0;
    Writer file;
    file.text("GIF89a").u16(4).u16(3).u8(table ? 0x81 : 0).u8(0).u8(0);
    if (table) file.fill(12, 0x40);
    if (extensions) {
      file.text("!\xF9"sv).u8(4).u8(0).u16(10).u8(0).u8(0);
      file.text("!\xFE"sv).u8(5).text("hello"sv).u8(3).text("you"sv).u8(0);
    }
    file.text(","sv).u16(0).u16(0).u16(4).u16(3).u8(interlaced ? 0x40 : 0).u8(2).u8(0).u8(0x3B);
    const std::string name = "gif_" + std::to_string(variant);
    write_decode_seed(name, {byte_of(Route::query)}, file.bytes);
    write_decode_seed(name + "_decode", {byte_of(Route::block)}, file.bytes);
    file.bytes.erase(file.bytes.end() - 8, file.bytes.end());
    write_decode_seed(name + "_cut", {byte_of(Route::query)}, file.bytes);
  }
}

// ---- PCX, DCX and PNG files -------------------------------------------------------------------

struct Pcx {
  const char* name;
  std::uint32_t width, height, bits, planes, bytes_per_line;
  std::uint32_t version = 5, palette = 1;
};

Bytes make(const Pcx& pcx) {
  Writer file;
  file.u8(10).u8(pcx.version).u8(1).u8(pcx.bits).u16(0).u16(0).u16(pcx.width - 1);
  file.u16(pcx.height - 1).u16(300).u16(150).fill(48, 0x5B).u8(0).u8(pcx.planes);
  file.u16(pcx.bytes_per_line).u16(pcx.palette).fill(58, 0);
  // A file may claim more than anybody wants to write.
  constexpr std::uint64_t kMost = 5000;
  const std::uint64_t claimed = std::uint64_t{pcx.planes} * pcx.bytes_per_line * pcx.height;
  auto left = static_cast<std::uint32_t>(std::min(claimed, kMost));
  for (std::uint32_t i = 0; left > 0; ++i) {
    const std::uint32_t count = i % 3 == 0 ? std::min(left, 1 + i % 63) : 1;
    if (count > 1) file.u8(0xC0 | count);
    file.u8(i * 37 % 0xC0);
    left -= count;
  }
  if (pcx.bits * pcx.planes == 8) file.u8(12).fill(768, 0x44);
  return file.bytes;
}

std::uint32_t crc_of(const Bytes& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
  }
  return ~crc;
}

Writer& big(Writer& to, std::uint32_t value) {
  return to.u8(value >> 24).u8(value >> 16).u8(value >> 8).u8(value);
}

void put_chunk(Writer& file, std::string_view name, const Bytes& data) {
  Writer covered;
  covered.text(name).data(data);
  big(file, static_cast<std::uint32_t>(data.size())).data(covered.bytes);
  big(file, crc_of(covered.bytes));
}

// 7 x 5 pixels in one stored block of deflate.
Bytes make_png(std::uint32_t type, std::uint32_t depth, std::uint32_t interlaced,
               bool transparent) {
  constexpr std::uint32_t kChannels[] = {1, 0, 3, 1, 2, 0, 4};
  Writer file, header, pixels, stream, colours;
  file.text("\x89PNG\r\n\x1A\n"sv);
  big(big(header, 7), 5).u8(depth).u8(type).u8(0).u8(0).u8(interlaced);
  put_chunk(file, "IHDR", header.bytes);
  for (std::uint32_t i = 0; i < 3u << depth && i < 768; ++i) colours.u8(i * 5);
  if (type == 3) put_chunk(file, "PLTE", colours.bytes);
  if (transparent && type == 3) put_chunk(file, "tRNS", {255, 0});
  if (transparent && type == 0) put_chunk(file, "tRNS", {0, 1});
  if (transparent && type == 2) put_chunk(file, "tRNS", {0, 1, 0, 2, 0, 3});
  constexpr std::uint32_t kPasses[7][2] = {{1, 1}, {1, 1}, {2, 1}, {2, 2}, {4, 1}, {3, 3}, {7, 2}};
  const std::uint32_t plain[2] = {7, 5};
  for (std::uint32_t pass = 0; pass < (interlaced != 0 ? 7u : 1u); ++pass) {
    const std::uint32_t* size = interlaced != 0 ? kPasses[pass] : plain;
    for (std::uint32_t y = 0; y < size[1]; ++y) {
      pixels.u8(y % 5);
      for (std::uint32_t i = 0; i < (size[0] * kChannels[type] * depth + 7) / 8; ++i)
        pixels.u8(i * 9);
    }
  }
  std::uint32_t a = 1, b = 0;
  for (const std::uint8_t byte : pixels.bytes) {
    a = (a + byte) % 65521;
    b = (b + a) % 65521;
  }
  const auto count = static_cast<std::uint32_t>(pixels.bytes.size());
  stream.u8(0x78).u8(1).u8(1).u16(count).u16(~count).data(pixels.bytes);
  big(stream, b << 16 | a);
  put_chunk(file, "IDAT", stream.bytes);
  put_chunk(file, "IEND", {});
  return file.bytes;
}

void write_paged_seeds() {
  const Pcx kinds[] = {{"1", 13, 5, 1, 1, 2},
                       {"1_old", 13, 5, 1, 1, 2, 3},
                       {"4_planes", 13, 5, 1, 4, 2},
                       {"3_planes", 13, 5, 1, 3, 2},
                       {"4", 13, 5, 4, 1, 7},
                       {"8", 13, 5, 8, 1, 13},
                       {"8_grey", 13, 5, 8, 1, 14, 5, 2},
                       {"24", 13, 5, 8, 3, 13},
                       {"16_planes", 9, 3, 4, 4, 2},
                       {"short_lines", 90, 3, 8, 3, 5},
                       {"2", 9, 3, 2, 1, 3},
                       {"no_lines", 9, 3, 8, 1, 0},
                       {"huge", 65536, 65536, 8, 3, 65535}};
  std::size_t way = 0;
  const auto write = [&](const std::string& name, const Bytes& file) {
    write_decode_seed(name, kSettings[0].bytes, file);
    for (int i = 0; i < 3; ++i) {
      const NamedSettings& settings = kSettings[way++ % std::size(kSettings)];
      write_decode_seed(name + "_" + settings.name, settings.bytes, file);
    }
  };
  for (const Pcx& pcx : kinds) {
    const Bytes page = make(pcx);
    write(std::string("pcx_") + pcx.name, Bytes(page.begin(), page.end()));
    Writer dcx;
    dcx.u32(987654321).u32(20).u32(20 + static_cast<std::uint32_t>(page.size())).u32(0).u32(0);
    dcx.data(page).data(page);
    write(std::string("dcx_") + pcx.name, dcx.bytes);
    SettingBytes second{};
    second[tq::fuzz::kPageByte] = 1;
    write_decode_seed(std::string("dcx_second_") + pcx.name, second, dcx.bytes);
  }
  constexpr std::uint32_t kTypes[][2] = {{0, 1}, {0, 2},  {0, 4},  {0, 8}, {0, 16},
                                         {2, 8}, {2, 16}, {3, 1},  {3, 2}, {3, 4},
                                         {3, 8}, {4, 8},  {4, 16}, {6, 8}, {6, 16}};
  for (const auto& type : kTypes) {
    for (const std::uint32_t interlaced : {0u, 1u}) {
      for (const bool transparent : {false, true}) {
        write("png_" + std::to_string(type[0]) + "_" + std::to_string(type[1]) +
                  (interlaced != 0 ? "_passes" : "") + (transparent ? "_transparent" : ""),
              make_png(type[0], type[1], interlaced, transparent));
      }
    }
  }
}

// ---- Facsimile data and documents -------------------------------------------------------------

void write_ccitt_seeds() {
  using tq::formats::CcittScheme;
  std::uint32_t variant = 0;
  for (const int run : {1, 9, 200}) {
    for (std::uint32_t flags = 0; flags < 64; flags += 3) {
      const tq::formats::CcittCoding coding{static_cast<CcittScheme>(flags & 3), (flags & 4) != 0,
                                            (flags & 8) != 0, (flags & 16) != 0, (flags & 32) != 0};
      const std::uint32_t width = 40 + 13 * variant;
      Writer seed;
      seed.u8(flags | (variant & 1) << 6).u16(width - 1);
      seed.data(tq::test::ccitt_by_model(
          coding, tq::test::printed_page(static_cast<int>(width), 12, run, variant)));
      write_file("ccitt/" + std::to_string(variant++), seed.bytes);
    }
  }
}

std::int32_t IMG_CB_C stripes(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  std::fill_n(static_cast<std::uint8_t*>(dest), bytes, static_cast<std::uint8_t>(0x0F << y % 5));
  return 0;
}

void write_pdf_seeds() {
  Bytes block(20000);
  tq::HeaderBlock header = tq::dib_header(21, 9, 1);
  tq::open_memory_stream(block.data(), block.size());
  for (int pages = 1; pages <= 3; ++pages) {
    all_written = all_written &&
                  tq::formats::encode_pdf({tq::kMemoryStream, &header, {stripes, nullptr}}).ok();
    const auto size = tq::memory_position();
    write_file("pdf/pages_" + std::to_string(pages), Bytes(block.begin(), block.begin() + size));
  }
  // As the reader wants it: a page number that is a place, a name that ends in an object's number.
  for (const char* filter : {"CCITTFaxDecode", "DCTDecode"}) {
    std::string file = "%PDF-1.2\r\n/Tarnquill4\r\n";
    std::vector<std::size_t> offsets;
    const auto object = [&](const std::string& content) {
      offsets.push_back(file.size());
      file += std::to_string(offsets.size()) + " 0 obj << " + content + " >>\r\n";
    };
    object("/Pages 2 0 R");
    object("/Kids [3 0 R]");
    object("/Type /Page");
    object(std::string("/Filter /") + filter +
           " /Width 40 /Height 3 /BitsPerComponent 1 >>\r\nstream\r\n\x98\x66\x66\xFF\r\n");
    const std::size_t table = file.size();
    file += "xref\r\n0 5\r\n0000000000 65535 f\r\n";
    for (const std::size_t offset : offsets) {
      char entry[32];
      std::snprintf(entry, sizeof entry, "%010u 00000 n\r\n", static_cast<unsigned>(offset));
      file += entry;
    }
    file += "trailer\r\n<<\r\n/Root 1 0 R\r\n>>\r\nstartxref\r\n" + std::to_string(table) +
            "\r\n%%EOF\r\n";
    write_file(std::string("pdf/") + filter, Bytes(file.begin(), file.end()));
  }
}

// ---- Sequences --------------------------------------------------------------------------------

// Any bytes are a sequence of calls; these cover every call once and mix their arguments.
void write_sequence_seeds() {
  std::uint32_t state = 1;
  for (int seed = 0; seed < 64; ++seed) {
    Writer calls;
    for (int i = 0; i < 40 + 8 * seed; ++i) {
      state = state * 1664525 + 1013904223;
      const std::uint32_t value = state >> 24;
      // Every third byte small: counts, rows, sides.
      calls.u8(i % 3 == 2 ? value % 40 : value);
    }
    write_file("sequence/mixed_" + std::to_string(seed), calls.bytes);
  }
  for (std::uint32_t call = 0; call < 64; ++call) {
    Writer calls;
    // Some images first, then the same call with various arguments.
    calls.data({0, 1, 9, 5, 0, 2, 17, 4, 0, 3, 8, 8, 0, 0, 40, 3});
    for (std::uint32_t i = 0; i < 24; ++i) calls.u8(call).u8(i).u8(20 + i).u8(i * 11).u8(21);
    write_file("sequence/call_" + std::to_string(call), calls.bytes);
  }
}

// ---- JPEG -------------------------------------------------------------------------------------

// Every layout and kind of scan, small.
void write_jpeg_seeds() {
  struct Layout {
    const char* name;
    std::vector<test::JpegComponent> components;
    std::vector<test::JpegScan> scans;
    bool progressive;
  };
  const std::vector<test::JpegComponent> grey(1);
  const std::vector<test::JpegComponent> full(3);
  const std::vector<test::JpegComponent> halved = {{2, 2, 0}, {1, 1, 1}, {1, 1, 1}};
  const std::vector<test::JpegScan> refined = {{{0}, 0, 0, 0, 1},
                                               {{0}, 1, 63, 0, 2},
                                               {{0}, 1, 63, 2, 1},
                                               {{0}, 0, 0, 1, 0},
                                               {{0}, 1, 63, 1, 0}};
  const std::vector<test::JpegScan> bands = {
      {{0, 1, 2}, 0, 0, 0, 1}, {{0}, 1, 9, 0, 0},       {{2}, 1, 63, 0, 1}, {{1}, 1, 63, 0, 0},
      {{0}, 10, 63, 0, 0},     {{0, 1, 2}, 0, 0, 1, 0}, {{2}, 1, 63, 1, 0}};
  const Layout layouts[] = {{"grey", grey, {}, false},
                            {"full", full, {}, false},
                            {"halved", halved, {}, false},
                            {"uneven", {{3, 1, 0}, {1, 2, 1}, {2, 1, 1}}, {}, false},
                            {"four", std::vector<test::JpegComponent>(4), {}, false},
                            {"alone", halved, {{{2}}, {{0}}, {{1}}}, false},
                            {"refined", grey, refined, true},
                            {"bands", halved, bands, true}};
  unsigned seed = 0;
  for (const Layout& layout : layouts) {
    for (const int interval : {0, 1}) {
      test::JpegPicture picture{.width = 19, .height = 18, .progressive = layout.progressive};
      picture.restart_interval = interval;
      picture.components = layout.components;
      picture.scans = layout.scans;
      picture.quantisers.assign(2, std::vector<int>(64, 3));
      if (layout.components.size() == 4) picture.extra = test::adobe_segment(2);
      test::random_coefficients(picture, ++seed);
      const Bytes file = test::jpeg_file(picture);
      const std::string name = std::string("jpeg_") + layout.name + std::to_string(interval);
      write_decode_seed(name, {byte_of(Route::block)}, file);
      write_file("jpeg_decode/" + name, file);
    }
  }
  for (std::uint32_t kind = 0; kind < 8; ++kind) {
    Writer settings;
    settings.u8(kind).u8(20 + kind).u8(9).u8(96).u8(10 * kind).u8(1 + kind % 3).u8(1).u8(kind);
    for (std::uint32_t i = 0; i < 600; ++i) settings.u8(i * i * (kind + 1) >> 3);
    write_file("jpeg_encode/" + std::to_string(kind), settings.bytes);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_seeds FOLDER\n");
    return 2;
  }
  folder = argv[1];
  std::error_code error;
  std::filesystem::create_directories(folder / "decode", error);
  std::filesystem::create_directories(folder / "sequence", error);
  std::filesystem::create_directories(folder / "jpeg_decode", error);
  std::filesystem::create_directories(folder / "jpeg_encode", error);
  write_bmp_seeds();
  write_signature_seeds();
  write_tiff_seeds();
  write_gif_seeds();
  write_paged_seeds();
  std::filesystem::create_directories(folder / "ccitt", error);
  std::filesystem::create_directories(folder / "pdf", error);
  write_ccitt_seeds();
  write_pdf_seeds();
  write_sequence_seeds();
  write_jpeg_seeds();
  return all_written ? 0 : 1;
}
