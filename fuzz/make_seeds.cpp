// Writes the seed corpus: make_seeds FOLDER CORPUS makes a folder in the first for each kind of
// input, of what the library itself writes and of the files of the second.
#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "dispatch/file_types.h"
#include "fuzz/decode_settings.h"
#include "fuzz/fuzz_support.h"
#include "tests/support/bmp_file.h"
#include "tests/support/corpus.h"
#include "tests/support/image_builder.h"
#include "tests/support/scratch_folder.h"

namespace {

namespace test = tq::test;
using test::Bytes;

std::filesystem::path folder;
bool all_written = true;

void write_file(const std::string& name, const Bytes& content) {
  std::filesystem::create_directories((folder / name).parent_path());
  test::write_file((folder / name).string(), content);
}

// Decoded as it is, and with one setting at a time: in the end with all settings and by all routes.
void write_decode_seeds(const std::string& name, const Bytes& file) {
  static std::uint32_t count = 0;
  const bool is_pnm = file.size() > 2 && file[0] == 'P' && file[1] >= '1' && file[1] <= '6';
  for (int variant = 0; variant < 3; ++variant) {
    Bytes settings(sizeof(tq::fuzz::DecodeSettings));
    settings.back() = is_pnm ? 1 : 0;  // options: those that want more formats
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
    for (std::int32_t code = 0; code <= IMG_TYPE_PNM; ++code) {
      Bytes file(10000);
      IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, code == IMG_TYPE_PNM ? 1 : 0);
      const std::int32_t size = IMG_save_bitmap_block(image, file.data(), file.size(), code);
      if (size < 1) continue;
      file.resize(static_cast<std::size_t>(size));
      // A document is read when the number in the picture's name is that of the picture's object.
      const std::string name = "/Tarnquill0";
      const auto found = std::search(file.begin(), file.end(), name.begin(), name.end());
      if (found != file.end()) found[10] = '5';
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

bool takes_pages(const tq::formats::FileType* type) {
  return type != nullptr && type->can_append != nullptr && type->decode != nullptr;
}

// By what number the append target knows a format that takes pages.
std::uint8_t append_number(std::int32_t code) {
  std::uint8_t number = 0;
  for (const tq::formats::FileType& type : tq::dispatch::file_types()) {
    if (type.code == code) break;
    if (takes_pages(&type)) ++number;
  }
  return number;
}

// Files of some pages for every format that pages are added to.
void write_append_seeds() {
  IMGLOW_set_fileio(tq::fuzz::caller_read, tq::fuzz::caller_write, tq::fuzz::caller_seek);
  for (const tq::formats::FileType& type : tq::dispatch::file_types()) {
    if (!takes_pages(&type)) continue;
    tq::fuzz::caller_file = {};
    for (std::uint8_t pages = 0; pages < 4; ++pages) {
      write_file("append/" + std::string(type.name) + "_" + std::to_string(pages),
                 test::joined({{append_number(type.code), pages}, tq::fuzz::caller_file.bytes}));
      const bool takes_grey = (type.write_depths & tq::formats::depths(8)) != 0;
      tq::HeaderBlock header = tq::dib_header(21, 9, pages == 1 && takes_grey ? 8 : 1);
      tq::fuzz::caller_file.position = 0;
      all_written =
          all_written && type.encode({tq::StreamHandle{1}, &header, {stripes, nullptr}}).ok();
    }
  }
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
}

// ---- What nobody writes so that it is short -----------------------------------------------------

// A metafile that draws something with every record.
void write_drawing_seeds() {
  const std::vector<int> head = {0xCDD7, 0x9AC6, 0, 0,     0, 60, 40, 96, 0, 0,
                                 0,      1,      9, 0x300, 0, 0,  8,  0,  0, 0};
  const std::vector<std::vector<int>> records = {
      {0x0103, 8},
      {0x020C, 40, 60},
      {0x02FA, 0, 3, 0, 255, 0},
      {0x02FC, 2, 255, 0, 5},
      {0x02FB, -12, 0, 300, 300, 700, 1, 1, 0, 0},
      {0x0142, 5, 0, 40, 0, 8, 0, 2,   0, 1,      1, 0,    0, 0,    0, 0,
       0,      0, 0, 0,  0, 0, 0, 255, 0, 0xFF00, 0, 0x80, 0, 0x40, 0},
      {0x01F9, 0, 2, 2, 2, 0x101, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0x40},
      {0x06FF, 0, 6, 0, 0, 0, 0, 0, 5, 5, 50, 30},
      {0x012D, 0},
      {0x012D, 3},
      {0x012D, 2},
      {0x001E},
      {0x0416, 30, 50, 5, 5},
      {0x0415, 20, 20, 10, 10},
      {0x0220, 2, 2},
      {0x0817, 5, 5, 30, 30, 35, 50, 5, 5},
      {0x081A, 5, 5, 30, 30, 35, 50, 5, 5},
      {0x0830, 5, 5, 30, 30, 35, 50, 5, 5},
      {0x061C, 9, 9, 35, 50, 5, 5},
      {0x0127, -1},
      {0x012C, 5},
      {0x012E, 25},
      {0x0521, 3, 0x4241, 0x43, 10, 10},
      {0x0A32, 10, 10, 2, 6, 0, 0, 60, 40, 0x4241, 9, 12},
      {0x0538, 2, 3, 3, 0, 0, 20, 0, 20, 20, 5, 5, 40, 5, 40, 30},
      {0x061D, 0x21, 0xF0, 20, 30, 5, 5},
      {0x0104, 7},
      {0x0213, 40, 60}};
  const auto put = [](Bytes& file, int value) {
    file.push_back(static_cast<std::uint8_t>(value));
    file.push_back(static_cast<std::uint8_t>(value >> 8));
  };
  const auto add = [&](Bytes& file, const std::vector<int>& record) {
    put(file, 2 + static_cast<int>(record.size()));
    put(file, 0);
    for (const int word : record) put(file, word);
  };
  Bytes all;
  for (const int word : head) put(all, word);
  for (const std::vector<int>& record : records) add(all, record);
  add(all, {0});
  write_decode_seeds("drawing", all);
}

// ---- What other programs write ------------------------------------------------------------------

void write_corpus_seeds(const std::string& corpus) {
  constexpr std::size_t kMostBytes = 4000;
  Bytes query(sizeof(tq::fuzz::DecodeSettings));
  query[0] = static_cast<std::uint8_t>(tq::fuzz::Route::query);
  for (const test::CorpusFile& file : test::corpus_files(corpus)) {
    if (file.bytes.size() > kMostBytes) continue;
    std::string name = file.name;
    std::ranges::replace(name, '/', '_');
    if (file.decoded) write_decode_seeds(name, file.bytes);
    if (!file.decoded) write_file("decode/" + name, test::joined({query, file.bytes}));
    const std::int32_t code = IMGLOW_get_filetype_block(file.bytes.data(), file.bytes.size());
    if (file.bytes.size() > 2 && file.bytes[0] == 'G' && file.bytes[1] == 'I') {
      write_file("module/" + name, test::joined({Bytes{1, 0, 255}, file.bytes}));
    }
    if (code == IMG_TYPE_PDF) write_file("pdf/" + name, file.bytes);
    if (takes_pages(tq::dispatch::find_code(code))) {
      write_file("append/" + name, test::joined({{append_number(code), 0}, file.bytes}));
    }
  }
}

// Any bytes are coded rows, or a sequence of calls.
void write_random_seeds() {
  test::Random random(2);
  // A width below 1024 follows the flags.
  for (std::uint8_t flags = 0; flags < 128; ++flags) {
    write_file("ccitt/" + std::to_string(flags), test::joined({{flags}, random.bytes(600)}));
  }
  for (std::uint32_t seed = 0; seed < 130; ++seed) {
    const std::string name = std::to_string(seed);
    Bytes calls = random.bytes(40 + 6 * seed);
    // Small ones now and then: counts, rows, sides.
    for (std::size_t i = 2; i < calls.size(); i += 3) calls[i] %= 40;
    write_file("sequence/mixed_" + name, calls);
    write_file("module/mixed_" + name, calls);
    write_file("process/mixed_" + name, calls);
    write_file("view/mixed_" + name, calls);
    write_file("pdf_repair/" + name, random.bytes(seed));
  }
}

// Words of command lines, a zero byte between them.
void write_options_seeds() {
  const char* const lines[] = {"--code=12 -crop 1,2,30,40 a.bmp -o b.bmp", "-q -- -a.bmp --size",
                               "--size 640x480 - 3x2147483647+-5+1", "--crop -1,-9,99999999999,1",
                               "\x9b\xe2\x80\xae --output= --k\xc2\x9b"};
  for (std::size_t i = 0; i < std::size(lines); ++i) {
    const std::string_view line = lines[i];
    Bytes words(line.begin(), line.end());
    std::replace(words.begin(), words.end(), std::uint8_t{' '}, std::uint8_t{0});
    write_file("options/" + std::to_string(i), words);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  folder = argv[1];
  write_saved_seeds();
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
  write_drawing_seeds();
  write_append_seeds();
  write_random_seeds();
  write_options_seeds();
  write_corpus_seeds(argv[2]);
  return all_written ? 0 : 1;
}
