// Pages of text: where its characters go, and how many pages there are.
#include <map>
#include <set>

#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "formats/stroke_font.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

CollectingSink page_of(const std::string& text, int page, int status = 0) {
  Bytes file = bytes_of(text);
  CollectingSink sink;
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(simple::decode_text({.stream = kMemoryStream, .sink = sink.sink(), .page = page}).raw(),
            status);
  return sink;
}

int pages_of(const std::string& text) {
  Bytes file = bytes_of(text);
  open_memory_stream(file.data(), file.size());
  return simple::count_text_pages(kMemoryStream).raw();
}

// Black dots of the cells that have some, by line and column; dots outside of cells are in (-1, -1).
using Cells = std::map<std::pair<int, int>, int>;
Cells cells_of(const CollectingSink& sink) {
  Cells cells;
  for (const CollectedRow& row : sink.rows) {
    const Pixels dots = unpack(row.bytes, 1700, 1);
    for (int x = 0; x < 1700; ++x) {
      if (dots[static_cast<std::size_t>(x)] != 0) continue;
      const bool inside = x >= 50 && x < 1650 && row.y >= 44 && row.y < 2156;
      ++cells[inside ? std::pair((row.y - 44) / 32, (x - 50) / 20) : std::pair(-1, -1)];
    }
  }
  return cells;
}

TEST(Text, CharactersGoToTheirCells) {
  using Places = std::vector<std::pair<int, int>>;
  const struct {
    std::string text;
    Places places;
  } cases[] = {
      {"AB", {{0, 0}, {0, 1}}},
      {"A\nB\rC\r\nD\n\nE", {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {5, 0}}},
      {"A\tB\t\tC", {{0, 0}, {0, 8}, {0, 24}}},
      {"A\x1B\x01\vB\x7F", {{0, 0}, {0, 1}}},
      {"A\b\bB C\x1A"
       "D",
       {{0, 0}, {0, 2}}},
      {std::string(79, ' ') + "AB", {{0, 79}, {1, 0}}},
      {std::string(80, ' ') + "\nA", {{1, 0}}},
      {std::string(70, ' ') + "\t\tA", {{1, 0}}},
      {"A\fB", {{0, 0}}},
      {std::string(65, '\n') + "A\nB", {{65, 0}}},
  };
  for (const auto& [text, places] : cases) {
    const CollectingSink sink = page_of(text, 0);
    ASSERT_EQ(sink.rows.size(), 2200u);
    EXPECT_EQ(sink.header.header.biXPelsPerMeter, 200);
    Places seen;
    for (const auto& [place, dots] : cells_of(sink)) seen.push_back(place);
    EXPECT_EQ(seen, places) << text;
  }
  // Both are there where one is printed over the other.
  const auto dots_of = [](const char* text) { return cells_of(page_of(text, 0)).begin()->second; };
  const int over = dots_of("|\b-");
  EXPECT_GT(over, dots_of("|"));
  EXPECT_GT(over, dots_of("-"));
}

TEST(Text, PagesAreThoseOnWhichSomethingGoesOn) {
  const std::string full(66, '\n');
  const struct {
    std::string text;
    int pages;
  } cases[] = {{"", 1},
               {"A", 1},
               {"A\f", 1},
               {"A\fB", 2},
               {"A\f\fB", 3},
               {full, 1},
               {full + "A", 2},
               {full + "\fA", 2},
               {full + "\f\fA", 3},
               {"\x1A\fA", 1},
               {full + full + "A", 3},
               {std::string(66 * 80, 'A'), 1},
               {std::string(66 * 80 + 1, 'A'), 2}};
  for (const auto& [text, pages] : cases) {
    EXPECT_EQ(pages_of(text), pages) << text;
    page_of(text, pages, -31);
    if (pages > 1) {
      EXPECT_FALSE(cells_of(page_of(text, pages - 1)).empty());
    }
  }
  EXPECT_EQ(cells_of(page_of(full + "\r\n\fA", 2)).begin()->first, std::pair(0, 0));
}

// All can be told apart, and stay in their cells.
TEST(Text, EveryCharacterHasAForm) {
  std::set<std::vector<int>> forms;
  const Bytes blank = {0x20, 0xA0};
  for (int c = 0x20; c < 0x100; ++c) {
    const formats::Glyph glyph = formats::glyph_of(byte(c));
    std::vector<int> form;
    for (int i = 0; i < glyph.count; ++i) {
      const formats::Stroke& stroke = glyph.strokes[static_cast<std::size_t>(i)];
      for (const int x : {stroke.from_x, stroke.to_x})
        EXPECT_TRUE(x >= 0 && x <= formats::kGlyphWidth) << c;
      for (const int y : {stroke.from_y, stroke.to_y})
        EXPECT_TRUE(y >= 0 && y <= formats::kGlyphHeight) << c;
      form.insert(form.end(), {stroke.from_x, stroke.from_y, stroke.to_x, stroke.to_y});
    }
    const bool is_blank = std::ranges::find(blank, byte(c)) != blank.end();
    EXPECT_EQ(form.empty(), is_blank) << c;
    EXPECT_LT(glyph.count, formats::Glyph::kMost) << c;
    if (c < 0x7F) {
      EXPECT_TRUE(forms.insert(form).second) << c;
    }
  }
}

}  // namespace
}  // namespace tq::test
