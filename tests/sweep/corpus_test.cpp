// Every file of the corpus against what other programs see in it.
#include <cstdio>
#include <filesystem>
#include <set>

#include "core/numbers.h"
#include "dispatch/file_types.h"
#include "tests/support/corpus.h"
#include "tests/support/digest.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

class Corpus : public LibraryTest {};

// Red, green and blue of all pixels; a sample that is no colour (of ink, or of 16 bits) thrice.
Bytes colours_of(const Image& image) {
  const BitmapInfoHeader header = header_of_image(image);
  std::array<Rgb, 256> palette{};
  IMG_get_bitmap_palette(image, palette.data());
  Bytes colours;
  const auto add = [&](std::uint32_t blue, std::uint32_t green, std::uint32_t red) {
    for (const std::uint32_t level : {red, green, blue}) colours.push_back(byte(level));
  };
  for (const Bytes& row : rows_of_image(image)) {
    for (const std::uint32_t pixel : unpack(row, header.biWidth, header.biBitCount)) {
      if (header.biBitCount <= 8) {
        add(palette[pixel].blue, palette[pixel].green, palette[pixel].red);
      } else if (header.biBitCount == 16) {
        add(pixel >> 8, pixel >> 8, pixel >> 8);
      } else if (header.biBitCount == 32 && header.biCompression == 0) {
        for (int i = 0; i < 4; ++i) add(pixel >> 8 * i, pixel >> 8 * i, pixel >> 8 * i);
      } else {
        add(pixel, pixel >> 8, pixel >> 16);
      }
    }
  }
  return colours;
}

Image decode(const Bytes& file, std::int32_t page) {
  return Image(IMG_decompress_bitmap_block(file.data(), file.size(), page));
}

std::string digest_of(const Bytes& bytes) {
  Digest digest;
  digest.add(bytes);
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest.value()));
  return text;
}

TEST_F(Corpus, EveryFileIsWhatOtherProgramsSeeInIt) {
  const CorpusFile* file = corpus_files().data() - 1;
  for (const CorpusImage& expected : corpus_images()) {
    if (expected.page == 0) ++file;
    SCOPED_TRACE(testing::Message() << expected.name << ", page " << expected.page);
    const Bytes& bytes = file->bytes;
    const bool is_extended = expected.code >= IMG_TYPE_PNM;
    if (is_extended) {
      IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
      EXPECT_EQ(decode(bytes, 0), IMG_UNSUPPORTED) << "nobody asked for it";
    }
    IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, is_extended ? 1 : 0);
    EXPECT_EQ(IMGLOW_get_filetype_block(bytes.data(), bytes.size()), expected.code);
    const std::int32_t pages = IMGLOW_get_pages_block(bytes.data(), bytes.size());
    const formats::FileType* const type = dispatch::find_code(expected.code);
    if (pages >= 0) {
      // Of files that have no code to report pages are not counted either.
      const bool uncounted = type == nullptr || type->uncounted != 0;
      EXPECT_EQ(pages, uncounted ? 1 : file->pages);
    }
    const Image image = decode(bytes, expected.page);
    if (expected.result < 0 || image < 0) {
      EXPECT_EQ(image, expected.result < 0 ? expected.result : 0);
      continue;
    }
    IMG_set_option(IMG_OPTION_DETECTION, 1);
    const std::int32_t named = IMGLOW_get_filetype_block(bytes.data(), bytes.size());
    IMG_set_option(IMG_OPTION_DETECTION, 0);
    EXPECT_TRUE(named >= 0 && (named == expected.code || expected.code < 0)) << named;
    std::int32_t rows = 0, damage = 0;
    EXPECT_GE(IMG_get_damage(image, &rows, &damage), 0);
    EXPECT_EQ(damage, 0);
    const BitmapInfoHeader header = header_of_image(image);
    EXPECT_EQ(header.biBitCount, expected.result);
    EXPECT_EQ(header.biWidth, expected.width);
    EXPECT_EQ(header.biHeight, expected.height);
    const Bytes colours = colours_of(image);
    if (expected.pixels.find('.') == std::string::npos) {
      EXPECT_EQ(digest_of(colours), expected.pixels);
      continue;
    }
    const Bytes shown = colours_of(decode(file_content("corpus/" + expected.pixels), 0));
    ASSERT_EQ(colours.size(), shown.size());
    int furthest = 0, sum = 0;
    for (std::size_t i = 0; i < shown.size(); ++i) {
      const int distance = std::abs(colours[i] - shown[i]);
      furthest = std::max(furthest, distance);
      sum += distance;
    }
    EXPECT_LE(furthest, 4);
    EXPECT_LE(sum / static_cast<double>(shown.size()), 0.7);
  }
}

std::int32_t IMG_CB_STD watch(intptr_t, std::int32_t) {
  return 0;
}

// Who follows a decode makes it look at all of the file: what is left out otherwise is not missed.
TEST_F(Corpus, PartsOfEveryFileAreThoseOfTheWhole) {
  const ScratchFolder folder;
  const std::string name = folder.file("file");
  for (const CorpusFile& file : corpus_files()) {
    SCOPED_TRACE(file.name);
    const Image whole = decode(file.bytes, 0);
    if (whole < 0) continue;
    write_file(name, file.bytes);
    const BitmapInfoHeader header = header_of_image(whole);
    const std::int32_t w = header.biWidth, h = header.biHeight;
    const struct {
      Rect rect;
      Size size;
      std::int32_t reading;
    } parts[] = {{{0, 0, w / 4 + 1, h / 4 + 1}, {}, 0},
                 {{w / 3, h / 2, w / 3 + 1, h / 3 + 1}, {}, 1},
                 {{w - 1, h - 1, 3, 3}, {}, 0},
                 {{w / 2, 0, w / 2, h}, {}, 0},
                 {{0, h / 3, w, 1}, {}, 1},
                 {{}, {w / 8 + 1, h / 8 + 1}, 0},
                 {{}, {w / 2, h / 3}, 1},
                 {{}, {1, 1}, 0}};
    for (const auto& part : parts) {
      IMGLOW_set_decomp_rect(part.rect.x, part.rect.y, part.rect.width, part.rect.height);
      IMGLOW_set_decompsize(part.size.width, part.size.height);
      IMG_set_option(IMG_OPTION_READING, part.reading);
      IMG_set_statusbar(0, watch, 1);
      const Image expected = decode(file.bytes, 0);
      IMG_set_statusbar(0, nullptr, 0);
      const Image from_memory = decode(file.bytes, 0);
      const Image from_file(IMG_decompress_bitmap(name.c_str()));
      if (expected < 0) continue;
      const auto index = &part - parts;
      ASSERT_EQ(rows_of_image(from_memory), rows_of_image(expected)) << index;
      ASSERT_EQ(rows_of_image(from_file), rows_of_image(expected)) << index;
      std::int32_t rows[3] = {};
      EXPECT_EQ(IMG_get_damage(from_memory, &rows[0], nullptr),
                IMG_get_damage(expected, &rows[1], nullptr));
      IMG_get_damage(from_file, &rows[2], nullptr);
      EXPECT_EQ(rows[0], rows[1]) << index;
      EXPECT_EQ(rows[2], rows[1]) << index;
    }
  }
}

// What lies behind the rows that are wanted may be gone, unless damage is an error.
TEST_F(Corpus, PartsAreWholeWhereTheRestIsGone) {
  for (const char* name : {"jpeg/420.jpg", "pcx/rgb24.pcx", "bmp/rgb24.bmp"}) {
    SCOPED_TRACE(name);
    Bytes bytes = file_content(std::string("corpus/") + name);
    const BitmapInfoHeader header = header_of_image(decode(bytes, 0));
    bytes.resize(bytes.size() * 3 / 4);
    EXPECT_EQ(IMG_get_damage(decode(bytes, 0), nullptr, nullptr), 1);
    // The rows of a bitmap come from the bottom.
    const std::int32_t side = header.biHeight / 4;
    const bool upwards = std::string(name).ends_with("bmp");
    IMGLOW_set_decomp_rect(0, upwards ? header.biHeight - side : 0, header.biWidth, side);
    EXPECT_EQ(IMG_get_damage(decode(bytes, 0), nullptr, nullptr), 0);
    IMG_set_option(IMG_OPTION_STRICT, 1);
    EXPECT_LT(IMG_decompress_bitmap_block(bytes.data(), bytes.size(), 0), 0);
    IMG_set_option(IMG_OPTION_STRICT, 0);
    IMGLOW_set_decomp_rect(0, 0, 0, 0);
  }
}

TEST_F(Corpus, EveryFileIsListed) {
  std::set<std::string> listed, there;
  for (const CorpusImage& image : corpus_images()) listed.insert(image.name);
  for (const auto& entry : std::filesystem::recursive_directory_iterator("corpus")) {
    const auto name = entry.path().lexically_relative("corpus");
    if (entry.is_regular_file() && name.has_parent_path()) there.insert(name.generic_string());
  }
  EXPECT_EQ(there, listed);
}

}  // namespace
}  // namespace tq::test
