// Writes the seed corpus: make_seeds FOLDER CORPUS makes a folder in the first for each kind of
// input, of what the library itself writes and of the files of the second.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "dispatch/file_types.h"
#include "formats/fax.h"
#include "fuzz/decode_settings.h"
#include "fuzz/fuzz_support.h"
#include "tests/support/bmp_file.h"
#include "tests/support/corpus.h"
#include "tests/support/image_builder.h"

namespace {

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
      tq::HeaderBlock header = tq::dib_header(21, 9, pages == 1 ? 8 : 1);
      tq::fuzz::caller_file.position = 0;
      all_written =
          all_written && type.encode({tq::StreamHandle{1}, &header, {stripes, nullptr}}).ok();
    }
  }
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
}

void write_pdf_seeds() {
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
    write_decode_seeds("pdf_" + filter, bytes_of(file));
  }
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
    if (takes_pages(tq::dispatch::find_code(code))) {
      write_file("append/" + name, test::joined({{append_number(code), 0}, file.bytes}));
    }
    // For the targets of one format; page and interlacing stand in front of a GIF file.
    switch (code) {
      case IMG_TYPE_JPEG:
        write_file("jpeg_decode/" + name, file.bytes);
        break;
      case IMG_TYPE_GIF:
      case IMG_TYPE_GIF_INTERLACED:
        write_file("gif/" + name, test::joined({Bytes{0, 1}, file.bytes}));
        write_file("module/" + name, test::joined({Bytes{1, 0, 255}, file.bytes}));
        break;
      default:
        break;
    }
  }
}

void write_ccitt_seeds() {
  for (int variant = 0; variant < 64; ++variant) {
    const auto flag = [&](int bit) { return (variant >> bit & 1) != 0; };
    const int width = 40 + 13 * variant;
    const tq::formats::FaxStrip strip{
        .coding = {static_cast<tq::ccitt::Scheme>(variant & 3), flag(3), flag(4), flag(5)},
        .lsb_first = flag(2),
        .width = width,
        .rows = 12};
    Bytes block(10000);
    tq::open_memory_stream(block.data(), block.size());
    tq::StreamWriter out;
    all_written = all_written && out.open(tq::kMemoryStream).ok() &&
                  encode_fax_strip(out, strip, {stripes, nullptr}).ok() && out.flush().ok();
    block.resize(static_cast<std::size_t>(tq::memory_position()));
    const Bytes settings = {static_cast<std::uint8_t>(variant),
                            static_cast<std::uint8_t>(width - 1),
                            static_cast<std::uint8_t>((width - 1) >> 8)};
    write_file("ccitt/" + std::to_string(variant), test::joined({settings, block}));
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
    write_file("module/mixed_" + name, calls);
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
  for (const auto write : {write_saved_seeds, write_append_seeds, write_pdf_seeds,
                           write_ccitt_seeds, write_options_seeds, write_random_seeds})
    write();
  write_corpus_seeds(argv[2]);
  return all_written ? 0 : 1;
}
