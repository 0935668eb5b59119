// What pages paint: pictures, where, and whether anything else is seen.
#include <gmock/gmock.h>

#include <cstdio>

#include "formats/pdf/page/pages.h"
#include "tests/support/pdf_document.h"

namespace tq::test {
namespace {

using namespace pdf::objects;
using pdf::content::Painted;
using pdf::content::Painting;

// A page of 100 x 200 with these contents, pictures /A and /M (a mask), forms and what they need.
PdfDocument with_contents(const std::string& contents, const std::string& resources = {}) {
  PdfDocument document;
  document.add(1, "<</Pages 2 0 R/OCProperties<</D<</OFF[30 0 R]>>>>>>");
  document.add(2, "<</Kids[3 0 R]/Count 1/MediaBox[0 0 100 200]>>");
  document.add(3, "<</Contents 4 0 R/Resources 5 0 R>>");
  document.add_stream(4, "", contents);
  document.add(
      5,
      "<<" + resources +
          "/XObject<</A 10 0 R/M 11 0 R/F 12 0 R/L 13 0 R/N 14 0 R/H 15 0 R/P 16 0 R/No 99 0 R>>"
          "/ExtGState<</Half<</ca .5>>/None<</ca 0>>>>/Properties<</Off 31 0 R/On 32 0 R>>"
          "/ColorSpace<</Ink[/Separation/Spot/DeviceRGB 9 0 R]/Own[/Indexed/DeviceRGB 1<00>]>>>>");
  document.add_stream(10, "/Subtype/Image/Width 1/Height 1", "x");
  document.add_stream(11, "/Subtype/Image/ImageMask true", "x");
  // A form within a form, out of its box; its own resources; one that leaves states behind.
  document.add_stream(
      12,
      "/Subtype/Form/BBox[0 0 1 1]/Matrix[10 0 0 10 0 0]/Resources<</XObject<</I 10 0 R"
      "/G 13 0 R>>>>",
      "2 0 0 .5 0 0 cm /I Do /G Do /A Do Q Q 5 0 0 5 0 0 cm q");
  document.add_stream(13, "/Subtype/Form/BBox[0 0 9 9]", "/I Do /A Do /L Do");
  document.add_stream(14, "/Subtype/Form/BBox[0 0 99 99]", "0 0 9 9 re f");
  document.add_stream(15, "/Subtype/Image/OC 31 0 R", "x");
  document.add_stream(16, "/Subtype/Image/OC<</OCGs[30 0 R 33 0 R]>>", "x");
  document.add(31, "<</Type/OCMD/OCGs 30 0 R>>");
  document.add(32, "<</Type/OCG>>");
  document.add_table("/Size 50/Root 1 0 R");
  return document;
}

std::string painted(const std::string& contents, const std::string& resources = {}) {
  const MemoryFile memory(with_contents(contents, resources).bytes());
  File file;
  pdf::page::Page page;
  EXPECT_EQ(file.open(MemoryFile::kHandle), kOk);
  EXPECT_EQ(pdf::page::find_page(file, 0, page), kOk);
  Painting painting;
  EXPECT_EQ(read_contents(file, page.object, page.resources, page.box, painting), kOk);
  std::string result;
  for (const Painted& picture : painting.pictures()) {
    char text[200];
    const auto& m = picture.matrix;
    std::snprintf(text, sizeof text, "[%g %g %g %g %g %g]", m.a, m.b, m.c, m.d, m.e, m.f);
    const std::string name = picture.image.number == 0
                                 ? std::string(picture.dictionary.text()) + "=" +
                                       std::string(picture.data.begin(), picture.data.end())
                                 : std::to_string(picture.image.number);
    result += name + text;
    if (picture.fill != 0) {
      std::snprintf(text, sizeof text, "#%06x", static_cast<unsigned>(picture.fill));
      result += text;
    }
    if (picture.alpha != 255) result += "%" + std::to_string(picture.alpha);
    const auto& c = picture.clip;
    if (c.left != 0 || c.bottom != 0 || c.right != 100 || c.top != 200) {
      std::snprintf(text, sizeof text, "(%g %g %g %g)", c.left, c.bottom, c.right, c.top);
      result += text;
    }
    result += " ";
  }
  return result + (painting.has_more() ? "+" : "");
}

TEST(PdfContent, PicturesStandWhereMatricesPutThem) {
  const std::pair<const char*, const char*> cases[] = {
      {"q 100 0 0 200 0 0 cm /A Do Q /A Do", "10[100 0 0 200 0 0] 10[1 0 0 1 0 0] "},
      // New matrices come first.
      {"2 0 0 3 10 20 cm 0 1 -1 0 5 7 cm/A Do", "10[0 3 -2 0 20 41] "},
      {"Q Q q 9 0 0 9 0 0 cm Q Q/A Do Q", "10[1 0 0 1 0 0] "},
      {"1 0 0 1 100.5 0 cm /A Do 1 0 0 1 -101 0 cm /A Do",
       "10[1 0 0 1 -0.5 0] "},  // beside the page
      {"q 10 10 20 20 re W n 50 0 0 50 0 0 cm /A Do Q", "10[50 0 0 50 0 0](10 10 30 30) "},
      {"30 30 -20 -20 re W* n q 15 0 9 9 re W n Q 0 5 5 0 0 0 cm /A Do", ""},
      {"0 0 9 9 re 1 1 l W n /A Do", "10[1 0 0 1 0 0] "},  // no rectangle: ignored
      {"0 0 9 9 re n /A Do", "10[1 0 0 1 0 0] "},
      {"1 0 .2 rg 50 0 0 50 0 0 cm/M Do 0 0 0 0 k /M Do .5 g /M Do /Ink cs 1 scn /M Do",
       "11[50 0 0 50 0 0]#ff0033 11[50 0 0 50 0 0]#ffffff 11[50 0 0 50 0 0]#808080 11[50 0 0 50 0 "
       "0] "},
      {"/Half gs /A Do /None gs /A Do", "10[1 0 0 1 0 0]%128 "},
      {"/No Do /Nothing Do Do 5 Do (A) Do /A Do", "10[1 0 0 1 0 0] "},
      // Forms: the matrix, the box, resources, and a form in itself.
      {"1 0 0 1 5 5 cm /F Do /A Do",
       "10[20 0 0 5 5 5](5 5 15 15) 10[20 0 0 5 5 5](5 5 15 15) 10[1 0 0 1 5 5] "},
      {"/L Do", "10[1 0 0 1 0 0](0 0 9 9) "},
      // What is switched off.
      {"/H Do /P Do", "16[1 0 0 1 0 0] "},
      {"/OC /Off BDC /A Do /Span BMC /A Do EMC /A Do EMC /OC /On BDC /A Do EMC",
       "10[1 0 0 1 0 0] "},
  };
  for (const auto& [contents, expected] : cases) EXPECT_EQ(painted(contents), expected) << contents;
}

TEST(PdfContent, WhatElseIsSeenIsTold) {
  const std::pair<const char*, bool> cases[] = {
      {"BT (a) Tj ET", true},
      {"BT 3 Tr (a) Tj [(b)] TJ ET", false},
      {"BT 3 Tr (a) Tj ET q 0 Tr BT [-5(  )( b)]TJ ET Q", true},
      {"BT 7 Tr (a) ' ET", false},
      {"BT 1 2 (a) \" ET", true},
      {"BT (   ) Tj () Tj [] TJ ET", false},
      {"0 0 9 9 re f", true},
      {"1 g 0 0 9 9 re f 1 1 1 rg 0 0 9 9 re b 0 0 0 0 k 0 0 9 9 re f*", true},  // b strokes
      {"1 g 0 0 9 9 re f 1 1 1 rg 0 0 9 9 re f 0 0 0 0 k 0 0 9 9 re F", false},
      {"1 G 0 0 m 9 9 l S 1 1 1 RG 0 0 m 9 9 l s", false},
      {"1 1 1 RG 0 0 m 9 9 l s 0 G 0 5 m 9 5 l S", true},
      {"/Ink cs 0 scn 0 0 9 9 re f", false},
      {"/Ink cs 0.1 scn 0 0 9 9 re f", true},
      {"/Pattern cs /P1 scn 0 0 9 9 re f", true},
      {"0 0 9 9 re n 0 0 9 9 re W n f S", false},
      {"200 0 9 9 re f", false},                      // beside the page
      {"0 0 5 5 re W n 50 50 9 9 re f /S sh", true},  // the shading alone
      {"/None gs 0 0 9 9 re f", false},
      {"/OC /Off BDC 0 0 9 9 re f EMC", false},
      {"/N Do", true},
      // Under a picture that covers the page, but not under a mask, or a part.
      {"0 0 9 9 re f 100 0 0 200 0 0 cm /A Do", false},
      {"0 0 9 9 re f 100 0 0 200 0 0 cm /M Do", true},
      {"0 0 9 9 re f 100 0 0 150 0 0 cm /A Do", true},
      {"q 100 0 0 200 0 0 cm /A Do Q 0 0 9 9 re f", true},
  };
  for (const auto& [contents, more] : cases) {
    EXPECT_EQ(painted(contents).ends_with('+'), more) << contents;
  }
}

TEST(PdfContent, InlineImagesEndWhereContentsGoOn) {
  const std::string at = "[1 0 0 1 0 0] ";
  const std::pair<std::string, std::string> cases[] = {
      // By their size.
      {"BI/W 3/H 2/BPC 8/CS/G ID EI EI EI\n/A Do",
       "<</W 3/H 2/BPC 8/CS/G  >>=EI EI " + at + "10" + at},
      {"BI /W 2 /H 2 /BPC 4 /CS /RGB ID 123456 EI", "<< /W 2 /H 2 /BPC 4 /CS /RGB  >>=123456" + at},
      {"BI/W 9/H 2/IM true ID\n1234\nEI Q", "<</W 9/H 2/IM true  >>=1234" + at},
      // By what is behind them.
      {"BI/W 3/H 2/F/Fl ID 12 EI \x01 34\nEI\nQ 1 0 0 1 0 0 cm",
       "<</W 3/H 2/F/Fl  >>=12 EI \x01 34" + at},
      {"BI/W 3/F/DCT ID EIEI EI", "<</W 3/F/DCT  >>=EIEI" + at},
      {"BI/W 3/H 2/BPC 8/CS/G ID 123\nEI\n/A Do",
       "<</W 3/H 2/BPC 8/CS/G  >>=123" + at + "10" + at},  // shorter than they say
      {"BI/W 3/F/DCT ID 12345 /A Do", "10" + at},          // without an end
      {"BI/W 3/F/DCT /A Do", "10" + at},
      // Colour spaces of the page's.
      {"BI/CS/Own/F/Fl ID 1 EI",
       "<</ColorSpace [/Indexed/DeviceRGB 1<00>] /CS/Own/F/Fl  >>=1" + at},
  };
  for (const auto& [contents, expected] : cases) EXPECT_EQ(painted(contents), expected) << contents;
  // Across all that is read at a time.
  const std::string large(200000, 'x');
  EXPECT_EQ(painted("BI/F/Fl ID " + large + "\nEI /A Do"), "<</F/Fl  >>=" + large + at + "10" + at);
}

TEST(PdfContent, IsReadAcrossPiecesAndHasLimits) {
  const std::string picture = "10[1 0 0 1 0 0] ";
  // Statements longer than what is read at a time, and nothing that ends.
  EXPECT_EQ(painted("[" + std::string(100000, ' ') + "(a)] n /A Do"), picture);
  std::string operands;
  for (int i = 0; i < 300000; ++i) operands += "1234567 ";
  EXPECT_EQ(painted(operands + "/A Do"), picture);
  EXPECT_EQ(painted("(" + std::string(3000000, 'x') + ") n /A Do"), picture);
  EXPECT_EQ(painted("(" + std::string(3000000, 'x')), "");
  std::string many;
  for (int i = 0; i < 10001; ++i) many += "/No Do ";
  EXPECT_EQ(painted(many), "+");
  many.clear();
  for (int i = 0; i < 100; ++i) many += "q 1 0 0 1 1 0 cm ";
  for (int i = 0; i < 100; ++i) many += "Q ";
  EXPECT_EQ(painted(many + "/A Do"), picture);
  EXPECT_EQ(painted("[[[[ << ) > } /A Do"), "");
  many.clear();
  for (int i = 0; i < 30; ++i) many += "4000000000000000 0 0 1000000000000 0 0 cm ";
  EXPECT_EQ(painted(many + "0 0 0 0 1 1 cm /A Do"), "") << "no numbers any more";
  // Names that are looked for in much text, over and over.
  many.clear();
  for (int i = 0; i < 1000; ++i) many += "/None gs ";
  EXPECT_EQ(painted("/A Do " + many, "/Much(" + std::string(1 << 20, 'x') + ")"), picture + "+");
}

}  // namespace
}  // namespace tq::test
