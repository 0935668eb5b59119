// Pages from file to file: which are copied as they are coded, and what becomes of the target.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "include/tarnquill.h"
#include "tests/support/corpus.h"
#include "tests/support/fed_sink.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

class CopyPage : public LibraryTest {
 protected:
  CopyPage() { IMG_set_option(IMG_OPTION_PDF_WRITING, 1); }
  ~CopyPage() override {
    IMG_set_option(IMG_OPTION_PDF_WRITING, 0);
    IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
  }
  ScratchFolder folder_;
  std::string target_ = folder_.file("target");
};

bool contains(const Bytes& whole, const Bytes& part) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

// peers/pdf_writing_peers.py looks at what such documents show.
TEST_F(CopyPage, DataPassAsTheyAreWhereTheTargetHoldsThem) {
  const std::set<std::string> whole = {
      "png/dot.png",    "png/grey1.png",  "png/grey16.png",  "png/grey2.png",
      "png/grey4.png",  "png/grey8.png",  "png/index1.png",  "png/index1-colours.png",
      "png/index2.png", "png/index4.png", "png/index8.png",  "png/index8-one.png",
      "png/page.png",   "png/rgb8.png",   "png/rgb8-gs.png", "png/rgb8-ffmpeg.png",
      "png/rgb16.png",  "tiff/g4.tif",    "tiff/g4-gm.tif",  "tiff/g4-black-zero.tif",
      "tiff/pages.tif"};
  int copies = 0;
  for (const CorpusFile& file : corpus_files()) {
    const bool is_jpeg = file.name.starts_with("jpeg/");
    if (!is_jpeg && !file.name.starts_with("png/") && !file.name.starts_with("tiff/")) continue;
    const std::string source = "corpus/" + file.name;
    std::filesystem::remove(target_);
    const std::int32_t copied = IMG_copy_page(source.c_str(), 0, target_.c_str(), IMG_TYPE_PDF);
    const std::int32_t image = IMG_decompress_bitmap(source.c_str());
    if (image < 0) {
      EXPECT_LT(copied, 0) << file.name;
      EXPECT_FALSE(std::filesystem::exists(target_)) << file.name;
      continue;
    }
    IMG_delete_bitmap(image);
    if (copied == IMG_WRONG_DEPTH) continue;  // 16 bits that have to be decoded
    EXPECT_EQ(copied, is_jpeg || whole.contains(file.name) ? 0 : 1) << file.name;
    if (!is_jpeg) continue;
    ++copies;
    EXPECT_TRUE(contains(file_content(target_), file.bytes)) << file.name;
    EXPECT_EQ(IMG_copy_page(source.c_str(), 0, target_.c_str(), IMG_TYPE_JPEG), 0);
    EXPECT_EQ(file_content(target_), file.bytes);
  }
  EXPECT_GT(copies, 25);
}

TEST_F(CopyPage, WithoutPdfWritingPagesAreAsTheyAlwaysWere) {
  IMG_set_option(IMG_OPTION_PDF_WRITING, 0);
  EXPECT_EQ(IMG_copy_page("corpus/jpeg/420.jpg", 0, target_.c_str(), IMG_TYPE_PDF), 1);
  EXPECT_FALSE(contains(file_content(target_), file_content("corpus/jpeg/420.jpg")));
}

TEST_F(CopyPage, OntoItselfAFileIsReadBeforeItIsWritten) {
  write_file(target_, file_content("corpus/jpeg/grey.jpg"));
  const std::int32_t copied = IMG_copy_page(target_.c_str(), 0, target_.c_str(), IMG_TYPE_JPEG);
#ifdef _WIN32
  EXPECT_EQ(copied, IMG_CANNOT_CREATE) << "while it is read";
#else
  EXPECT_EQ(copied, 1);
#endif
  const std::int32_t image = IMG_decompress_bitmap(target_.c_str());
  EXPECT_GE(image, 0);
  EXPECT_EQ(IMG_delete_bitmap(image), 0);
}

TEST_F(CopyPage, SettingsOfDecodingDoNotCountAndStay) {
  IMGLOW_set_decompsize(4, 3);
  IMGLOW_set_decomp_rect(1, 1, 2, 2);
  EXPECT_EQ(IMG_copy_page("corpus/bmp/rgb24.bmp", 0, target_.c_str(), IMG_TYPE_BMP), 1);
  IMGLOW_set_decomp_rect(0, 0, 0, 0);
  const std::int32_t scaled = IMG_decompress_bitmap(target_.c_str());
  IMGLOW_set_decompsize(0, 0);
  const std::int32_t whole = IMG_decompress_bitmap(target_.c_str());
  const std::int32_t wanted = IMG_decompress_bitmap("corpus/bmp/rgb24.bmp");
  std::int32_t width[3] = {};
  int i = 0;
  for (const std::int32_t image : {scaled, whole, wanted}) {
    IMG_bitmap_info(image, &width[i++], nullptr, nullptr);
    EXPECT_EQ(IMG_delete_bitmap(image), 0);
  }
  EXPECT_EQ(width[0], 4);
  EXPECT_EQ(width[1], width[2]);
}

TEST_F(CopyPage, WhoseProgressEndsItLeavesTheTargetAsItWas) {
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 1);
  Bytes large = file_content("corpus/jpeg/420.jpg");
  const std::size_t pieces = 4;
  large.resize(pieces * 65536 - 100);  // what stands behind a picture is the file's own
  const std::string source = folder_.file("large.jpg");
  write_file(source, large);
  for (const char* const first : {"", "corpus/jpeg/grey.jpg"}) {
    std::filesystem::remove(target_);
    if (*first != '\0') {
      ASSERT_EQ(IMG_copy_page(first, 0, target_.c_str(), IMG_TYPE_PDF), 0);
    }
    const Bytes before = file_content(target_);
    std::size_t calls = 0;
    const auto copy = [&](std::size_t last) {
      calls = 0;
      const OnProgress progress([&](std::int32_t value) {
        EXPECT_EQ(value, pieces);
        return ++calls > last ? -55 : 0;
      });
      return IMG_copy_page(source.c_str(), 0, target_.c_str(), IMG_TYPE_PDF);
    };
    for (std::size_t last = 0; last < pieces; ++last) {
      EXPECT_EQ(copy(last), -55);
      EXPECT_EQ(file_content(target_), before);
    }
    EXPECT_EQ(copy(pieces), 0);
    EXPECT_EQ(calls, pieces);
    EXPECT_TRUE(contains(file_content(target_), large));
  }
}

TEST_F(CopyPage, WhatCannotBeDoneIsRefusedBeforeTheTargetIsTouched) {
  const auto copy = [&](const char* from, std::int32_t page, const char* to, std::int32_t code) {
    return IMG_copy_page(from, page, to, code);
  };
  const char* const jpeg = "corpus/jpeg/420.jpg";
  const char* const to = target_.c_str();
  EXPECT_EQ(copy("corpus/none.jpg", 0, to, IMG_TYPE_PDF), IMG_CANNOT_OPEN);
  EXPECT_EQ(copy(nullptr, 0, to, IMG_TYPE_PDF), IMG_CANNOT_OPEN);
  EXPECT_EQ(copy(jpeg, 0, nullptr, IMG_TYPE_PDF), IMG_CANNOT_OPEN);
  EXPECT_EQ(copy(jpeg, 1, to, IMG_TYPE_PDF), IMG_PAGE_PAST_END);
  EXPECT_EQ(copy(jpeg, -1, to, IMG_TYPE_PDF), IMG_PAGE_PAST_END);
  EXPECT_EQ(copy("corpus/tiff/pages.tif", 99, to, IMG_TYPE_PDF), IMG_PAGE_PAST_END);
  EXPECT_EQ(copy(jpeg, 0, to, IMG_TYPE_BTR), IMG_UNSUPPORTED);
  EXPECT_EQ(copy(jpeg, 0, to, 12345), IMG_UNSUPPORTED);
  EXPECT_EQ(copy(jpeg, 0, to, IMG_TYPE_BY_NAME), IMG_UNSUPPORTED);
  EXPECT_FALSE(std::filesystem::exists(target_));
  write_file(target_, Bytes(300, 'x'));
  EXPECT_EQ(copy(jpeg, 0, to, IMG_TYPE_PDF), IMG_BAD_IMAGE);
  EXPECT_EQ(file_content(target_), Bytes(300, 'x'));
  IMG_set_option(IMG_OPTION_PDF_PAGE_WIDTH, 1000);
  IMG_set_option(IMG_OPTION_PDF_PAGE_HEIGHT, 1000);
  IMG_set_option(IMG_OPTION_PDF_MARGIN, 500);
  std::filesystem::remove(target_);
  EXPECT_EQ(copy(jpeg, 0, to, IMG_TYPE_PDF), IMG_UNSUPPORTED);
  EXPECT_FALSE(std::filesystem::exists(target_));
  for (const std::int32_t option :
       {IMG_OPTION_PDF_PAGE_WIDTH, IMG_OPTION_PDF_PAGE_HEIGHT, IMG_OPTION_PDF_MARGIN}) {
    IMG_set_option(option, 0);
  }
}

}  // namespace
}  // namespace tq::test
