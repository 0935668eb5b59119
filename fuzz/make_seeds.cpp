// Writes the seed corpus: make_seeds FOLDER makes a folder in it for each kind of input. Most seeds
// are what the library itself writes; the others are what it only reads.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "formats/ccitt/ccitt.h"
#include "formats/pdf/pdf.h"
#include "fuzz/decode_settings.h"
#include "fuzz/fuzz_support.h"
#include "modules/lzw/gif.h"
#include "tests/support/bmp_file.h"
#include "tests/support/image_builder.h"
#include "tests/support/jpeg_file.h"
#include "tests/support/pcx_file.h"

namespace {

using namespace std::string_view_literals;
namespace test = tq::test;
using test::Bytes;

std::filesystem::path folder;
bool all_written = true;

void write_file(const std::string& name, const Bytes& content) {
  std::error_code error;
  std::filesystem::create_directories((folder / name).parent_path(), error);
  std::ofstream out(folder / name, std::ios::binary);
  out.write(reinterpret_cast<const char*>(content.data()),
            static_cast<std::streamsize>(content.size()));
  all_written = all_written && out.good();
}

Bytes bytes_of(std::string_view text) {
  return {text.begin(), text.end()};
}

// Decoded as it is, and with one setting at a time: in the end with all settings and by all routes.
void write_decode_seeds(const std::string& name, const Bytes& file) {
  static std::uint32_t count = 0;
  for (int variant = 0; variant < 3; ++variant) {
    Bytes settings(sizeof(tq::fuzz::DecodeSettings));
    if (variant > 0) {
      settings[0] = static_cast<std::uint8_t>(count);
      settings[1 + count * 7 % (settings.size() - 1)] = static_cast<std::uint8_t>(count % 13);
      ++count;
    }
    write_file("decode/" + name + "_" + std::to_string(variant), test::joined({settings, file}));
  }
}

// ---- What the library writes --------------------------------------------------------------------

void write_saved_seeds() {
  test::Random random(1);
  for (const int bits : {1, 4, 8, 24, 32}) {
    test::Rows rows;
    for (int y = 0; y < 7; ++y) rows.push_back(test::pack(random.pixels(13, bits), bits));
    const test::Image image = test::make_image(13, bits, rows);
    for (std::int32_t code = 0; code <= IMG_TYPE_NCR; ++code) {
      Bytes file(10000);
      const std::int32_t size = IMG_save_bitmap_block(image, file.data(), file.size(), code);
      if (size < 1) continue;
      file.resize(static_cast<std::size_t>(size));
      write_decode_seeds("saved_" + std::to_string(code) + "_" + std::to_string(bits), file);
    }
  }
}

std::int32_t IMG_CB_C stripes(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  for (std::int32_t x = 0; x < bytes; ++x) {
    static_cast<std::uint8_t*>(dest)[x] = static_cast<std::uint8_t>(0x0F << (x / 3 + y) % 5);
  }
  return 0;
}

void write_gif_seeds() {
  gif::host() = {nullptr, tq::fuzz::caller_write, nullptr};
  for (const int bits : {1, 4, 8}) {
    for (const bool interlaced : {false, true}) {
      const tq::HeaderBlock header = tq::dib_header(29, 11, bits);
      gif::HeaderBlock image;
      std::memcpy(&image, &header, sizeof image);
      tq::fuzz::caller_file = {};
      all_written = all_written && gif::encode(1, image, stripes, nullptr, interlaced) == 0;
      const std::string name = std::to_string(bits) + (interlaced ? "_passes" : "");
      write_decode_seeds("gif_" + name, tq::fuzz::caller_file.bytes);
      write_file("gif/" + name, test::joined({Bytes(2, interlaced), tq::fuzz::caller_file.bytes}));
    }
  }
}

void write_pdf_seeds() {
  Bytes block(20000);
  tq::HeaderBlock header = tq::dib_header(21, 9, 1);
  tq::open_memory_stream(block.data(), block.size());
  for (int pages = 1; pages <= 3; ++pages) {
    all_written = all_written &&
                  tq::formats::encode_pdf({tq::kMemoryStream, &header, {stripes, nullptr}}).ok();
    write_file("pdf/pages_" + std::to_string(pages),
               Bytes(block.begin(), block.begin() + tq::memory_position()));
  }
  // As the reader wants it: a page number that is a place, a name that ends in an object's number.
  for (const std::string filter : {"CCITTFaxDecode", "DCTDecode"}) {
    std::string file = "%PDF-1.2\r\n/Tarnquill4\r\n", table = "0000000000 65535 f\r\n";
    int number = 0;
    for (const std::string& object :
         {std::string("/Pages 2 0 R"), std::string("/Kids [3 0 R]"), std::string("/Type /Page"),
          "/Filter /" + filter +
              " /Width 40 /Height 3 /BitsPerComponent 1 >>\r\nstream\r\n\x98\x66\x66\xFF\r\n"}) {
      const std::string offset = std::to_string(file.size());
      table.append(10 - offset.size(), '0').append(offset).append(" 00000 n\r\n");
      file.append(std::to_string(++number)).append(" 0 obj << ").append(object).append(" >>\r\n");
    }
    const std::string start = std::to_string(file.size());
    file.append("xref\r\n0 5\r\n").append(table).append("trailer\r\n<<\r\n/Root 1 0 R\r\n>>\r\n");
    file.append("startxref\r\n").append(start).append("\r\n%%EOF\r\n");
    write_file("pdf/" + filter, bytes_of(file));
    write_decode_seeds("pdf_" + filter, bytes_of(file));
  }
}

// ---- What it reads ------------------------------------------------------------------------------

void write_bmp_seeds() {
  // File header, size of the header, width, height, bits, compression.
  test::BmpFields files[] = {
      {true, 40, 13, 7, 8, 1},      {true, 40, 13, 7, 4, 2},     {true, 40, 100, 4, 1, 99},
      {true, 12, 13, 7, 8},         {true, 12, 13, 7, 24},       {true, 64, 13, 7, 1},
      {true, 108, 13, 7, 4},        {true, 124, 13, 7, 32, 3},   {true, 40, 13, 7, 16, 3},
      {false, 40, 13, -7, 16},      {false, 40, 13, 7, 8},       {false, 40, 13, 7, 1},
      {true, 40, 30000, 30000, 8},  {true, 40, 1, INT32_MAX, 1}, {true, 40, INT32_MAX, 1, 32},
      {true, 40, 13, INT32_MIN, 4}, {true, 40, 5000, 10, 8, 1}};
  // Runs, literals, skips; lists of transitions.
  Bytes pixels = {5,  0xAA, 0, 3, 1,   2, 3,   0, 0,   0, 0,   2, 2,   1, 0,   0, 14, 0,
                  50, 0,    9, 0, 100, 0, 100, 0, 100, 0, 102, 0, 102, 0, 102, 0, 0,  1};
  pixels.resize(500, 0x5A);
  int number = 0;
  for (test::BmpFields& fields : files) {
    fields.pixels = pixels;
    write_decode_seeds("bmp_" + std::to_string(number++), test::bmp_file(fields));
  }
}

void write_pcx_seeds() {
  // Width, height, bits, planes, bytes per line.
  constexpr test::PcxSize kSizes[] = {
      {13, 5, 1, 1, 2}, {13, 5, 1, 4, 2},           {13, 5, 1, 3, 2},
      {13, 5, 4, 1, 7}, {13, 5, 8, 1, 14},          {13, 5, 8, 3, 13},
      {9, 3, 4, 4, 2},  {90, 3, 8, 3, 5},           {9, 3, 2, 1, 3},
      {9, 3, 8, 1, 0},  {65536, 65536, 8, 3, 65535}};
  int number = 0;
  for (const test::PcxSize& size : kSizes) {
    test::PcxFields fields{.size = size, .version = number % 4 == 3 ? 3 : 5};
    fields.palette_information = 1 + number % 2;
    for (int i = 0; i < 120; ++i) {
      fields.data.push_back(static_cast<std::uint8_t>(i % 3 == 0 ? 0xC1 + i % 5 : i % 0xC0));
    }
    if (number % 3 == 1) fields.tail = test::pcx_palette();
    const Bytes page = test::pcx_file(fields);
    write_decode_seeds("pcx_" + std::to_string(number), page);
    write_decode_seeds("dcx_" + std::to_string(number++), test::dcx_file({page, page}, 3));
  }
}

void put_chunk(Bytes& file, std::string_view name, const Bytes& data) {
  const Bytes checked = test::joined({bytes_of(name), data});
  std::uint32_t sum = 0xFFFFFFFF;
  for (const std::uint8_t byte : checked) {
    sum ^= byte;
    for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xEDB88320 : sum >> 1;
  }
  Bytes length(4), last(4);
  tq::store_be32(&length[0], static_cast<std::uint32_t>(data.size()));
  tq::store_be32(&last[0], ~sum);
  file = test::joined({file, length, checked, last});
}

// 7 x 5 pixels of 0 to 64 bits in one stored block of deflate, large enough for any of them.
void write_png_seeds() {
  for (int kind = 0; kind < 70; ++kind) {
    const auto type = static_cast<std::uint8_t>(kind % 7);
    const auto depth = static_cast<std::uint8_t>(1 << kind / 7 % 5);
    const std::uint8_t interlaced = kind < 35 ? 0 : 1;
    Bytes file = bytes_of("\x89PNG\r\n\x1A\n"sv);
    put_chunk(file, "IHDR", {0, 0, 0, 7, 0, 0, 0, 5, depth, type, 0, 0, interlaced});
    if (type == 3) put_chunk(file, "PLTE", Bytes(depth < 16 ? std::size_t{3} << depth : 9, 0x5A));
    if (interlaced != 0 && type < 4) put_chunk(file, "tRNS", Bytes(type == 2 ? 6 : 2));
    put_chunk(file, "pHYs", {0, 0, 11, 19, 0, 0, 11, 19, 1});
    Bytes data = {0x78, 1, 1, 0x90, 1, 0x6F, 0xFE};
    for (std::uint32_t i = 0; i < 400; ++i) data.push_back(static_cast<std::uint8_t>(i % 5));
    put_chunk(file, "IDAT", data);
    put_chunk(file, "IEND", {});
    write_decode_seeds("png_" + std::to_string(kind), file);
  }
}

// Formats that are only told apart.
void write_query_seeds() {
  // clang-format off
  constexpr std::string_view kStarts[] = {
      "\xC5\xD0\xD3\xC6", "%PDF-1.4\n", "\xFFWPC", "srcdocid", "NN", ".KF", "FORM",
      "\xD0\xCF\x11\xE0\xA1\xB1", "GX2", "\xDC\xDC", "\0\0\1\0\1\0\x20"sv, "\0\1\1"sv, "\x30\0\x9C"sv,
      "\xD7\xCD\xC6\x9A", "0000", "p", "\1\2\xD3\xA6\xFB", "\xFF\xFF\xFF\xFF", "P\xC3", "\0\1\0\x08"sv,
      "\xBB\0\0\1"sv, "LinS", "DanM", "#define a_width 16\n#define a_height 16\n", "/* XPM */",
      "\1\1\1\1\0\0\0\7"sv, "\x59\xA6\x6A\x95", "\x80\0\0"sv, "\x0B#\2\xC0\6", "\x10\1\x20\1\0\0\5\5"sv,
      "WTI", "a plain text\n", "8BPS", "\x27" "C1\0"sv,
      "\x08\0\0\0\4\0\0\0\x10\0\0\0\x08\0\1\0\4\0\0\0"sv,
      "II*\0\x08\0\0\0\2\0\0\1\3\0\1\0\0\0\x0D\0\0\0\3\1\3\0\1\0\0\0\5\0\0\0\0\0\0\0"sv,
      "MM\0*\0\0\0\x08\0\1\1\3\0\4\0\0\0\1\0\0\x80\5\0\0\0\0"sv};
  // clang-format on
  // And some that begin later.
  const std::pair<std::size_t, std::string_view> later[] = {
      {522, "\x11\1"}, {65, "PNTG"}, {512, "\xB9\0\xB9\0"sv}, {80, "CT"}, {128, "DICM"}};
  std::vector<Bytes> files;
  for (const std::string_view start : kStarts) files.push_back(bytes_of(start));
  for (const auto& [at, text] : later) files.push_back(test::joined({Bytes(at), bytes_of(text)}));
  for (std::size_t i = 0; i < files.size(); ++i) {
    Bytes settings(sizeof(tq::fuzz::DecodeSettings));
    settings[0] = static_cast<std::uint8_t>(tq::fuzz::Route::query);
    write_file("decode/query_" + std::to_string(i),
               test::joined({settings, files[i], Bytes(600, '\n')}));
  }
}

void write_ccitt_seeds() {
  for (int variant = 0; variant < 64; ++variant) {
    const tq::formats::CcittCoding coding{static_cast<tq::formats::CcittScheme>(variant & 3),
                                          (variant & 4) != 0, (variant & 8) != 0,
                                          (variant & 16) != 0, (variant & 32) != 0};
    const int width = 40 + 13 * variant;
    Bytes block(10000);
    tq::open_memory_stream(block.data(), block.size());
    tq::formats::CcittEncoder encoder;
    all_written = all_written && encoder.open(coding, width).ok() &&
                  encoder.encode(tq::kMemoryStream, {stripes, nullptr}, {0, 12}).ok();
    block.resize(static_cast<std::size_t>(tq::memory_position()));
    const Bytes settings = {static_cast<std::uint8_t>(variant),
                            static_cast<std::uint8_t>(width - 1),
                            static_cast<std::uint8_t>((width - 1) >> 8)};
    write_file("ccitt/" + std::to_string(variant), test::joined({settings, block}));
  }
}

// Layouts in one scan, in a scan for each component, in progressive bands, with restarts and
// without.
void write_jpeg_seeds() {
  const std::vector<test::JpegComponent> layouts[] = {std::vector<test::JpegComponent>(1),
                                                      std::vector<test::JpegComponent>(3),
                                                      std::vector<test::JpegComponent>(4),
                                                      {{2, 2, 0}, {1, 1, 1}, {1, 1, 1}},
                                                      {{3, 1, 0}, {1, 2, 1}, {2, 1, 1}}};
  for (unsigned seed = 0; seed < 30; ++seed) {
    test::JpegPicture picture{.width = 19, .height = 18};
    picture.components = layouts[seed % 5];
    picture.restart_interval = seed % 4 == 0 ? 1 : 0;
    picture.progressive = seed % 3 == 2;
    std::vector<int> all(picture.components.size());
    std::iota(all.begin(), all.end(), 0);
    for (const int round : {1, 0}) {
      if (picture.progressive) picture.scans.push_back({all, 0, 0, 1 - round, round});
      for (const int i : all) {
        if (picture.progressive) picture.scans.push_back({{i}, 1, 63, 1 - round, round});
        if (seed % 3 == 1 && round == 1) picture.scans.push_back({{i}});
      }
    }
    picture.quantisers.assign(2, std::vector<int>(64, 3));
    if (all.size() == 4) picture.extra = test::adobe_segment(2);
    test::random_coefficients(picture, seed, 4);
    const Bytes file = test::jpeg_file(picture);
    write_decode_seeds("jpeg_" + std::to_string(seed), file);
    write_file("jpeg_decode/" + std::to_string(seed), file);
  }
}

// Any bytes are settings and pixels, or a sequence of calls.
void write_random_seeds() {
  test::Random random(2);
  for (std::uint32_t seed = 0; seed < 130; ++seed) {
    const std::string name = std::to_string(seed);
    // Depth, sides, resolution, quality, sampling.
    const Bytes settings = {
        static_cast<std::uint8_t>(seed), static_cast<std::uint8_t>(30 * seed), 9, 96, 40, 1, 2};
    if (seed < 8) write_file("jpeg_encode/" + name, test::joined({settings, random.bytes(300)}));
    Bytes calls = random.bytes(40 + 6 * seed);
    // Small ones now and then: counts, rows, sides.
    for (std::size_t i = 2; i < calls.size(); i += 3) calls[i] %= 40;
    write_file("sequence/mixed_" + name, calls);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  folder = argv[1];
  for (const auto write : {write_saved_seeds, write_gif_seeds, write_pdf_seeds, write_bmp_seeds,
                           write_pcx_seeds, write_png_seeds, write_query_seeds, write_ccitt_seeds,
                           write_jpeg_seeds, write_random_seeds})
    write();
  return all_written ? 0 : 1;
}
