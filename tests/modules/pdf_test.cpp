// The PDF module through the library: pages, counts, damage, resolutions.
#include <gmock/gmock.h>

#include "tests/modules/module_files.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/pdf_document.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

// Pages of one grey picture of 4 x 3 pixels, with these data.
Bytes document(const std::vector<std::string>& pages, const std::string& more = {}) {
  PdfDocument made;
  made.add(1, "<</Type/Catalog/Pages 2 0 R>>");
  std::string kids;
  int number = 3;
  for (const std::string& data : pages) {
    const auto reference = [&](int i) { return std::to_string(number + i) + " 0 R"; };
    kids += reference(0) + " ";
    made.add(number, "<</Type/Page/MediaBox[0 0 1.411765 2.204082]/Contents " + reference(1) +
                         "/Resources<</XObject<</P " + reference(2) + ">>>>>>");
    made.add_stream(number + 1, "", "q 1.411765 0 0 2.204082 0 0 cm /P Do Q " + more);
    made.add_stream(number + 2,
                    "/Subtype/Image/Width 4/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray",
                    data);
    number += 3;
  }
  made.add(2, "<</Type/Pages/Kids[" + kids + "]/Count " + std::to_string(pages.size()) + ">>");
  made.add_table("/Root 1 0 R/Size " + std::to_string(number));
  return made.bytes();
}

std::int32_t decode(const Bytes& file, std::int32_t page) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), page);
}

class PdfModule : public LibraryTest {
 protected:
  std::int32_t pages_of(const Bytes& file) const {
    const std::string name = folder.file("a.pdf");
    write_file(name, file);
    return IMGLOW_get_pages(name.c_str());
  }

  const ScratchFolder folder;
};

const Bytes kTwoPages = document({"abcdefghijkl", "ABCDEFGHIJKL"});

TEST_F(PdfModule, ShowsAndCountsPagesThatAreMissingWithoutIt) {
  EXPECT_EQ(pages_of(kTwoPages), 1);
  EXPECT_EQ(decode(kTwoPages, 0), IMG_BAD_IMAGE);
  const InstalledModule module("pdf_module", "pdfplug");
  EXPECT_EQ(pages_of(kTwoPages), 2);
  for (const int page : {0, 1}) {
    const Image image(decode(kTwoPages, page));
    const BitmapInfoHeader header = header_of_image(image);
    EXPECT_EQ(header.biWidth, 4);
    EXPECT_EQ(header.biHeight, 3);
    EXPECT_EQ(header.biBitCount, 8);
    EXPECT_EQ(header.biXPelsPerMeter, 204);
    EXPECT_EQ(header.biClrImportant, 0U);
    EXPECT_EQ(rows_of_image(image).at(0).at(1), page == 0 ? 'b' : 'B');
    std::int32_t x = 0, y = 0;
    EXPECT_EQ(IMG_get_resolution(image, &x, &y), 0);
    EXPECT_EQ(std::pair(x, y), std::pair(204000, 98000));
  }
  EXPECT_EQ(decode(kTwoPages, 2), IMG_PAGE_PAST_END);
}

TEST_F(PdfModule, TellsWhatIsMissing) {
  const InstalledModule module("pdf_module", "pdfplug");
  const auto damage_of = [](const Bytes& file) {
    const Image image(decode(file, 0));
    std::int32_t rows = -1, reason = -1;
    EXPECT_EQ(IMG_get_damage(image, &rows, &reason) >= 0, true);
    return std::pair(rows, reason);
  };
  EXPECT_EQ(damage_of(document({"abcdefghijkl"})).second, 0);
  for (const char* name : {"gm", "img2pdf", "linear", "pillow", "tiff2pdf"}) {
    const Bytes whole = file_content("corpus/pdf/" + std::string(name) + ".pdf");
    EXPECT_EQ(damage_of(whole).second, 0) << name;
  }
  EXPECT_EQ(damage_of(document({"abcdefg"})), std::pair(1, int{IMG_READ_FAILED}));
  const Bytes with_text = document({"abcdefghijkl"}, "BT (a) Tj ET");
  EXPECT_EQ(damage_of(with_text), std::pair(3, int{IMG_UNSUPPORTED}));
  EXPECT_EQ(IMG_set_option(IMG_OPTION_STRICT, 1), 0);
  EXPECT_EQ(decode(with_text, 0), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_set_option(IMG_OPTION_STRICT, 0), 1);
}

}  // namespace
}  // namespace tq::test
