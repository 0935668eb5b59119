// Pages that pass from file to file row by row, beside the same ones by way of an image.
#include <gmock/gmock.h>

#include <array>
#include <map>
#include <string>

#include "core/dib.h"
#include "core/numbers.h"
#include "dispatch/file_types.h"
#include "include/tarnquill.h"
#include "io/byte_stream.h"
#include "tests/support/corpus.h"
#include "tests/support/fed_sink.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

constexpr std::int32_t kOptions[] = {IMG_OPTION_READING,         IMG_OPTION_DETECTION,
                                     IMG_OPTION_ORIENTATION,     IMG_OPTION_STRICT,
                                     IMG_OPTION_MAX_KBYTES,      IMG_OPTION_TIFF_BYTE_ORDER,
                                     IMG_OPTION_TIFF_PHOTOMETRIC};

class ConvertPage : public LibraryTest {
 protected:
  ~ConvertPage() override {
    for (const std::int32_t option : kOptions) IMG_set_option(option, 0);
    IMGLOW_set_decompsize(0, 0);
  }
  ScratchFolder folder_;
  std::string source_ = folder_.file("source"), target_ = folder_.file("target");
};

// What a conversion leaves behind.
struct Result {
  std::int32_t status = 0;
  Bytes file{};
  std::array<std::int32_t, 5> damage{};  // whether, rows, reason, first and last of what is lost
};

std::array<std::int32_t, 5> damage_of_last_decode() {
  std::array<std::int32_t, 5> d{};
  d[0] = IMG_get_damage(-1, &d[1], &d[2]);
  IMG_get_damaged_rows(-1, &d[3], &d[4], nullptr);
  return d;
}

// Calls `convert(from, to)`; `before` is what the target holds already.
template <class Convert>
Result run(const std::string& source, const std::string& target, const Bytes& before,
           Convert&& convert) {
  write_file(target, before);
  Result result;
  {
    OpenFile from, to;
    EXPECT_TRUE(from.open(source.c_str(), OpenMode::read).ok());
    EXPECT_TRUE(to.open(target.c_str(), OpenMode::update).ok());
    result.status =
        convert(static_cast<std::int32_t>(from.handle()), static_cast<std::int32_t>(to.handle()));
  }
  result.damage = damage_of_last_decode();
  result.file = file_content(target);
  return result;
}

Result by_rows(const std::string& source, const std::string& target, std::int32_t page,
               std::int32_t code, const Bytes& before = {}) {
  return run(source, target, before, [&](std::int32_t from, std::int32_t to) {
    return IMG_convert_page_fd(from, 0, page, to, code);
  });
}

Result by_image(const std::string& source, const std::string& target, std::int32_t page,
                std::int32_t code, const Bytes& before = {}) {
  return run(source, target, before, [&](std::int32_t from, std::int32_t to) {
    const std::int32_t image = IMG_decompress_bitmap_fd(from, 0, page);
    if (image < 0) return image;
    const std::int32_t saved = IMG_save_bitmap_fd(image, to, code);
    IMG_delete_bitmap(image);
    return saved;
  });
}

constexpr std::int32_t kTargets[] = {IMG_TYPE_BMP,          IMG_TYPE_PNG,     IMG_TYPE_PCX,
                                     IMG_TYPE_TIFF,         IMG_TYPE_TIFF_G3, IMG_TYPE_TIFF_G4,
                                     IMG_TYPE_TIFF_PACKBITS};

// Whole, cut off, and with bytes that are wrong.
std::vector<Bytes> variants_of(const Bytes& file) {
  std::vector<Bytes> variants = {
      file, {file.begin(), file.begin() + std::ssize(file) * 2 / 3}, file};
  for (std::size_t at = file.size() / 2; at < file.size() / 2 + 3; ++at) variants[2][at] ^= 0x5A;
  return variants;
}

TEST_F(ConvertPage, GivesTheBytesAndTheDamageOfDecodingAndSaving) {
  IMG_set_option(IMG_OPTION_DETECTION, 1);
  std::map<std::string, int> passed;  // by the folder of the corpus and the target's code
  int damaged = 0;
  for (const CorpusFile& file : corpus_files()) {
    if (!file.decoded || file.extended) continue;
    for (const Bytes& bytes : variants_of(file.bytes)) {
      write_file(source_, bytes);
      const bool is_whole = bytes == file.bytes;
      for (int setting = 0; setting < 4; ++setting) {
        IMG_set_option(IMG_OPTION_READING, setting != 1 ? 1 : 0);
        IMG_set_option(IMG_OPTION_STRICT, setting == 2 ? 1 : 0);
        IMG_set_option(IMG_OPTION_ORIENTATION, setting == 3 ? 1 : 0);
        if (is_whole && setting == 2) continue;
        const std::int32_t page = setting == 0 ? file.pages - 1 : 0;
        for (const std::int32_t code : kTargets) {
          SCOPED_TRACE(testing::Message() << file.name << ", " << bytes.size() << " bytes, setting "
                                          << setting << ", to " << code);
          const Result rows = by_rows(source_, target_, page, code);
          if (rows.status < 0) {
            EXPECT_TRUE(rows.file.empty());
            if (rows.status == IMG_UNSUPPORTED) continue;
          }
          const Result image = by_image(source_, target_, page, code);
          EXPECT_EQ(rows.status < 0, image.status < 0) << "which says why is not the same";
          if (rows.status != 0) continue;
          EXPECT_EQ(rows.damage, image.damage);
          EXPECT_TRUE(rows.file == image.file);
          damaged += rows.damage[0];
          ++passed[file.name.substr(0, file.name.find('/')) + '>' + std::to_string(code)];
        }
      }
    }
  }
  EXPECT_GT(damaged, 300);
  const auto count = [&](const std::string& folder, std::int32_t code) {
    return passed[folder + '>' + std::to_string(code)];
  };
  for (const char* const folder : {"jpeg", "png", "tiff", "pcx"}) {
    for (const std::int32_t code : {IMG_TYPE_BMP, IMG_TYPE_PNG, IMG_TYPE_PCX, IMG_TYPE_TIFF}) {
      EXPECT_GT(count(folder, code), 10) << folder << " to " << code;
    }
  }
  EXPECT_GT(count("tiff", IMG_TYPE_TIFF_G4), 20);
  EXPECT_GT(count("bmp", IMG_TYPE_BMP), 20) << "from the bottom up";
}

TEST_F(ConvertPage, AddsPagesAsASaveDoes) {
  IMG_set_option(IMG_OPTION_TIFF_BYTE_ORDER, 1);
  Bytes one, other;
  for (const char* const source :
       {"corpus/tiff/g4.tif", "corpus/jpeg/420.jpg", "corpus/png/grey16.png"}) {
    one = by_rows(source, target_, 0, IMG_TYPE_TIFF, one).file;
    other = by_image(source, target_, 0, IMG_TYPE_TIFF, other).file;
    EXPECT_TRUE(one == other) << source;
  }
  EXPECT_EQ(IMGLOW_get_pages(target_.c_str()), 3);
  // What is there is no page, and what is damaged leaves none.
  const Bytes text(300, 'x');
  const Result refused = by_rows("corpus/jpeg/420.jpg", target_, 0, IMG_TYPE_PNG, text);
  EXPECT_EQ(refused.status, IMG_UNSUPPORTED);
  EXPECT_EQ(refused.file, text);
  Bytes cut = file_content("corpus/jpeg/420.jpg");
  cut.resize(cut.size() * 9 / 10);
  write_file(source_, cut);
  IMG_set_option(IMG_OPTION_READING, 1);
  IMG_set_option(IMG_OPTION_STRICT, 1);
  const Result failed = by_rows(source_, target_, 0, IMG_TYPE_TIFF, one);
  EXPECT_EQ(failed.status, IMG_READ_FAILED);
  EXPECT_TRUE(failed.file == one);
}

TEST_F(ConvertPage, EndsAtTheCallersWordAndLeavesTheTargetAsItWas) {
  for (const std::int32_t code : kTargets) {
    const char* const source = code == IMG_TYPE_TIFF_G3 || code == IMG_TYPE_TIFF_G4
                                   ? "corpus/tiff/g4.tif"
                                   : "corpus/jpeg/420.jpg";
    int rows = 0;
    for (const int last : {0, 1, 20}) {
      rows = 0;
      const OnProgress progress([&](std::int32_t) { return ++rows > last ? -55 : 0; });
      const Result ended = by_rows(source, target_, 0, code);
      EXPECT_EQ(ended.status, -55);
      EXPECT_TRUE(ended.file.empty());
      EXPECT_EQ(rows, last + 1);
    }
  }
}

std::int32_t IMG_CB_C draw_row(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  auto* const row = static_cast<std::uint8_t*>(dest);
  for (std::int32_t i = 0; i < bytes; ++i) row[i] = byte(i * y >> 6);
  return 0;
}

// An image of it would be 18 MB.
TEST_F(ConvertPage, TakesLittleMemory) {
  HeaderBlock header = dib_header(3000, 2000, 24);
  {
    OpenFile file;
    ASSERT_TRUE(file.open(source_.c_str(), OpenMode::create).ok());
    ASSERT_EQ(IMGLOW_save_bitmap(static_cast<std::int32_t>(file.handle()), &header, IMG_TYPE_PCX,
                                 draw_row, nullptr),
              0);
  }
  IMG_set_option(IMG_OPTION_MAX_KBYTES, 1500);
  EXPECT_EQ(by_image(source_, target_, 0, IMG_TYPE_PNG).status, IMG_OUT_OF_MEMORY);
  for (const std::int32_t code : {IMG_TYPE_BMP, IMG_TYPE_PNG, IMG_TYPE_PCX, IMG_TYPE_TIFF}) {
    EXPECT_EQ(by_rows(source_, target_, 0, code).status, 0) << code;
  }
}

TEST_F(ConvertPage, WhatNeedsAnImageIsLeftToIt) {
  const auto to_png = [&](const char* source, std::int32_t page = 0) {
    return by_rows(source, target_, page, IMG_TYPE_PNG).status;
  };
  EXPECT_EQ(to_png("corpus/bmp/rgb24.bmp"), IMG_UNSUPPORTED) << "bottom-up";
  EXPECT_EQ(to_png("corpus/tiff/pages.tif", 99), IMG_PAGE_PAST_END);
  EXPECT_EQ(to_png("corpus/jpeg/420.jpg", -1), IMG_PAGE_PAST_END);
  EXPECT_EQ(by_rows("corpus/jpeg/420.jpg", target_, 0, IMG_TYPE_JPEG).status, IMG_UNSUPPORTED);
  EXPECT_EQ(by_rows("corpus/jpeg/420.jpg", target_, 0, 12345).status, IMG_UNSUPPORTED);
  EXPECT_EQ(by_rows("corpus/jpeg/420.jpg", target_, 0, IMG_TYPE_TIFF_G4).status, IMG_WRONG_DEPTH);
  IMGLOW_set_decompsize(4, 3);
  EXPECT_EQ(to_png("corpus/jpeg/420.jpg"), IMG_UNSUPPORTED);
  IMGLOW_set_decompsize(0, 0);
  EXPECT_EQ(to_png("corpus/jpeg/420.jpg"), 0);
  write_file(source_, file_content("corpus/jpeg/420.jpg"));
  OpenFile both;
  ASSERT_TRUE(both.open(source_.c_str(), OpenMode::update).ok());
  const auto stream = static_cast<std::int32_t>(both.handle());
  EXPECT_EQ(IMG_convert_page_fd(stream, 0, 0, stream, IMG_TYPE_BMP), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_convert_page_fd(stream, 0, 0, IMG_MEMORY_STREAM, IMG_TYPE_BMP), IMG_UNSUPPORTED);
}

}  // namespace
}  // namespace tq::test
