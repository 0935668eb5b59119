// The module of more formats through the library: whole files, and pictures inside of other files. The files
// of modules/ext are other programs' (make.py there).
#include <gtest/gtest.h>

#include "core/numbers.h"
#include "io/byte_stream.h"
#include "tests/modules/module_files.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/pdf_document.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tiff_file.h"

namespace tq::test {
namespace {

Bytes sample(const std::string& name) {
  return file_content("modules/ext/" + name);
}

std::int32_t decode(const Bytes& file, std::int32_t page = 0) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), page);
}

TEST(WithoutExtModule, ItsFilesAreUnknown) {
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1);
  for (const char* const name : {"rgb.webp", "rgb.jp2", "rgb.avif", "grey.dcm"}) {
    EXPECT_EQ(decode(sample(name)), IMG_UNSUPPORTED) << name;
  }
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
}

class ExtModule : public LibraryTest {
 protected:
  ExtModule() { IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1); }

  // Widths and rows are those of `shown`, of which no sample is farther.
  static void expect_same(const Bytes& file, std::int32_t page, const Bytes& shown,
                          int farthest = 0) {
    const Image image(decode(file, page)), wanted(decode(shown));
    ASSERT_GE(image, 0);
    std::int32_t reason = 0;
    EXPECT_EQ(IMG_get_damage(image, nullptr, &reason), 0) << reason;
    ASSERT_EQ(header_of_image(image).biBitCount, header_of_image(wanted).biBitCount);
    const Rows rows = rows_of_image(image), wanted_rows = rows_of_image(wanted);
    ASSERT_EQ(rows.size(), wanted_rows.size());
    int far = 0;
    for (std::size_t y = 0; y < rows.size(); ++y) {
      ASSERT_EQ(rows[y].size(), wanted_rows[y].size());
      for (std::size_t i = 0; i < rows[y].size(); ++i) {
        far = std::max(far, std::abs(rows[y][i] - wanted_rows[y][i]));
      }
    }
    EXPECT_LE(far, farthest);
  }

  const InstalledModule module_{"ext_module", "trqvext"};
};

constexpr struct Sample {
  const char* name;
  std::int32_t code;
  const char* shown;
  int farthest;
  std::int32_t page = 0;
} kSamples[] = {
    {"rgb.webp", IMG_TYPE_WEBP, "rgb.png", 0},
    {"alpha.webp", IMG_TYPE_WEBP, "alpha.png", 0},
    {"frames.webp", IMG_TYPE_WEBP, "rgb.png", 0, 0},
    {"frames.webp", IMG_TYPE_WEBP, "turned.png", 0, 1},
    {"rgb.jp2", IMG_TYPE_JPEG_2000, "rgb.png", 0},
    {"alpha.jp2", IMG_TYPE_JPEG_2000, "alpha.png", 0},
    {"rgb.j2k", IMG_TYPE_JPEG_2000, "rgb.png", 0},
    {"rgb.heic", IMG_TYPE_HEIF, "rgb.png", 1},
    {"alpha.heic", IMG_TYPE_HEIF, "alpha.png", 1},
#ifndef _WIN32  // where its decoder is left out
    {"rgb.avif", IMG_TYPE_HEIF, "rgb.png", 1},
#endif
};

TEST_F(ExtModule, ShowsWhatOtherProgramsWrite) {
  IMG_set_option(IMG_OPTION_DETECTION, 1);  // one of them looks like something else
  for (const Sample& c : kSamples) {
    SCOPED_TRACE(c.name);
    const Bytes file = sample(c.name);
    EXPECT_EQ(IMGLOW_get_filetype_block(file.data(), file.size()), c.code);
    expect_same(file, c.page, sample(c.shown), c.farthest);
    const bool has_frames = std::string(c.name) == "frames.webp";
    EXPECT_EQ(IMGLOW_get_pages_block(file.data(), file.size()), has_frames ? 2 : 1);
    EXPECT_EQ(decode(file, 2), IMG_PAGE_PAST_END);
  }
  // Behind other bytes of a stream.
  const ScratchFolder folder;
  Bytes behind(9, 'x');
  const Bytes file = sample("rgb.jp2");
  behind.insert(behind.end(), file.begin(), file.end());
  write_file(folder.file("a"), behind);
  OpenFile stream;
  ASSERT_TRUE(stream.open(folder.file("a").c_str(), OpenMode::read).ok());
  const auto handle = static_cast<std::int32_t>(stream.handle());
  EXPECT_GE(Image(IMG_decompress_bitmap_fd(handle, 9, 0)), 0);
}

TEST_F(ExtModule, IsAskedWhenItIsWantedAndMissesNobody) {
  for (const char* const name : {"rgb.webp", "rgb.jp2", "rgb.heic", "grey.dcm"}) {
    const Bytes file = sample(name);
    IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
    EXPECT_EQ(decode(file), IMG_UNSUPPORTED);
    IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1);
    EXPECT_GE(Image(decode(file)), 0);
    IMG_set_option(IMG_OPTION_MAX_PIXELS, 24 * 17 - 1);
    EXPECT_EQ(decode(file), IMG_OUT_OF_MEMORY) << name;
    IMG_set_option(IMG_OPTION_MAX_PIXELS, 0);
  }
}

TEST_F(ExtModule, FilesThatAreCutOrDamagedHaveAStatusOrRows) {
  for (const Sample& c : kSamples) {
    SCOPED_TRACE(c.name);
    const Bytes whole = sample(c.name);
    if (std::string(c.name) == "rgb.avif")
      continue;  // libheif 1.15 leaks what it cannot decode of these
    for (std::size_t bytes = 0; bytes < whole.size(); bytes += 1 + whole.size() / 97) {
      Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(bytes)), damaged = whole;
      damaged[bytes] ^= 0x55;
      for (const Bytes& file : {cut, damaged}) {
        const Image image(decode(file, c.page));
        EXPECT_GE(image, IMG_NO_PDF_MODULE);
        IMGLOW_get_pages_block(file.data(), file.size());
      }
    }
  }
}

TEST_F(ExtModule, DicomFramesAreAsTheyAreWithoutIt) {
  for (const char* const name : {"grey", "scan-window", "range-big", "planes-big"}) {
    SCOPED_TRACE(name);
    const std::string file = std::string(name) + ".dcm";
    expect_same(sample(file), 0, file_content("corpus/dicom/" + file));
  }
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// ICA: a segment with a content of 24 x 17, coding 84.
Bytes ica_of(const Bytes& data, bool with_height) {
  const auto count = static_cast<int>(data.size());
  return Bytes{0x70, 0, 0x91, 1, 0xFF, 0x94, 9, 0, 0x0B, 0xB8, 0x0B, 0xB8, 0, 24, 0} +
         Bytes{byte(with_height ? 17 : 0), 0x95, 2, 0x84, 1, 0x96, 1, 1, 0xFE, 0x92} +
         Bytes{byte(count >> 8), byte(count)} + data + Bytes{0x93, 0, 0x71, 0};
}

TEST_F(ExtModule, Jbig2InsideOfTiffAndIca) {
  const Bytes coded = sample("mono.jb2"), shown = sample("mono.png");
  for (const int coding : {34661, 34715}) {
    TiffPicture picture{.width = 24, .height = 17, .bits = 1, .photometric = 0};
    picture.values.resize(24 * 17);
    picture.coding = coding;
    picture.encode = [&](const std::vector<Bytes>&, int) { return coded; };
    const Bytes file = tiff_file({}, {tiff_page(picture, {})});
    expect_same(file, 0, shown);
    IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
    EXPECT_EQ(decode(file), IMG_UNSUPPORTED);
    IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1);
    // The older coding of that name, and data that are cut.
    picture.encode = [&](const std::vector<Bytes>&, int) { return Bytes{0, 0, 1, 0} + Bytes(30); };
    EXPECT_EQ(decode(tiff_file({}, {tiff_page(picture, {})})), IMG_UNSUPPORTED);
    picture.encode = [&](const std::vector<Bytes>&, int) {
      return Bytes(coded.begin(), coded.begin() + 40);
    };
    const Image cut(decode(tiff_file({}, {tiff_page(picture, {})})));
    EXPECT_EQ(IMG_get_damage(cut, nullptr, nullptr), 1);
  }
  expect_same(ica_of(coded, true), 0, shown);
  expect_same(ica_of(coded, false), 0, shown);
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
  EXPECT_EQ(decode(ica_of(coded, true)), IMG_UNSUPPORTED);
}

Bytes document(const std::string& entries, const Bytes& data, const std::string& globals = {}) {
  PdfDocument made;
  made.add(1, "<</Type/Catalog/Pages 2 0 R>>");
  made.add(2, "<</Type/Pages/Kids[3 0 R]/Count 1>>");
  made.add(3,
           "<</Type/Page/MediaBox[0 0 24 17]/Contents 4 0 R/Resources<</XObject<</P 5 0 R>>>>>>");
  made.add_stream(4, "", "q 24 0 0 17 0 0 cm /P Do Q ");
  made.add_stream(5, "/Subtype/Image" + entries, std::string(data.begin(), data.end()));
  made.add_stream(6, "", globals);
  made.add_table("/Root 1 0 R/Size 7");
  return made.bytes();
}

TEST_F(ExtModule, PicturesInsideOfDocuments) {
  const InstalledModule pdf("pdf_module", "pdfplug");
  const std::string mono =
      "/Width 24/Height 17/BitsPerComponent 1/ColorSpace/DeviceGray/Filter/JBIG2Decode";
  const Bytes rgb = sample("rgb.jp2"), black = sample("mono.jb2");
  const Bytes picture = document("/Width 1/Height 1/Filter/JPXDecode", rgb);
  expect_same(picture, 0, sample("rgb.png"));
  expect_same(document("/Filter/JPXDecode/ColorSpace/DeviceRGB", sample("rgb.j2k")), 0,
              sample("rgb.png"));
  expect_same(document(mono, black), 0, sample("mono.png"));
  // Segments that go before are looked at.
  const std::string parameters = "/DecodeParms<</JBIG2Globals 6 0 R>>";
  const std::string profiles{"\0\0\0\7\x34\0\0\0\0\0\4\0\0\0\0", 15};
  expect_same(document(mono + parameters, black, profiles), 0, sample("mono.png"));
  const std::string wrong{"\0\0\0\7\0\0\0\0\0\0\2\0\0", 13};  // symbols, without their description
  const Image image(decode(document(mono + parameters, black, wrong)));
  EXPECT_EQ(IMG_get_damage(image, nullptr, nullptr), 1);
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 0);
  EXPECT_EQ(decode(picture), IMG_UNSUPPORTED);
  EXPECT_EQ(decode(document(mono, black)), IMG_UNSUPPORTED);
}

}  // namespace
}  // namespace tq::test
