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
