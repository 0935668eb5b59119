// PCX images of every layout with the rows that must come out of them, in memory that ends with
// them; cut off; and files that lie.
#include <gmock/gmock.h>

#include "formats/pcx/pcx.h"
#include "tests/support/codec_runs.h"
#include "tests/support/guarded_block.h"
#include "tests/support/pcx_file.h"

namespace tq::test {
namespace {

using pcx::decode_pcx;
using Image = std::vector<Bytes>;  // rows from the top
using Palette = std::vector<Rgb>;

const Palette kBlackWhite = {{0, 0, 0, 0}, {255, 255, 255, 0}};

struct Layout {
  const char* name;
  PcxFields file;
  int bits;
  Image rows;
  Palette palette{};   // its first entries
  bool shown = false;  // as other programs show it
};

// clang-format off
std::vector<Layout> layouts() {
  const std::vector<std::array<std::uint8_t, 3>> map = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  const Palette mapped = {{3, 2, 1, 0}, {6, 5, 4, 0}, {9, 8, 7, 0}};
  const Palette large = {{7, 255, 0, 0}, {7, 254, 1, 0}};
  return {
    {"1 bit", {.size = {3, 2, 1, 1, 1}, .data = {0xA0, 0x40}}, 1, {{0xA0, 0, 0, 0}, {0x40, 0, 0, 0}}, kBlackWhite},
    {"1 bit, lines longer than rows", {.size = {3, 2, 1, 1, 6}, .data = {0xC6, 0xA0, 0xC6, 0x40}}, 1, {{0xA0, 0xA0, 0xA0, 0xA0}, {0x40, 0x40, 0x40, 0x40}}, kBlackWhite},
    {"4 bits in 4 planes", {.size = {9, 1, 1, 4, 2}, .colours = map, .data = {0x80, 0x80, 0x40, 0, 0x20, 0, 0x10, 0x80}}, 4, {{0x12, 0x48, 0, 0, 0x90, 0, 0, 0}}, mapped},
    {"the same, said to be 4 bits in 4 planes", {.size = {8, 1, 4, 4, 1}, .data = {0x80, 0x40, 0x20, 0x10}}, 4, {{0x12, 0x48, 0, 0}}},
    {"3 planes, the fourth is 0 though a run reaches into it", {.size = {8, 2, 1, 3, 1}, .data = {0xC6, 0x81}}, 4, {{0x70, 0, 0, 0x07}, {0x70, 0, 0, 0x07}}},
    {"4 bits in 1 plane", {.size = {3, 1, 4, 1, 2}, .data = {0x12, 0x34}}, 4, {{0x12, 0x34, 0, 0}}},
    {"the same, said to be 16 bits", {.size = {3, 1, 16, 1, 2}, .data = {0x12, 0x34}}, 4, {{0x12, 0x34, 0, 0}}},
    {"8 bits", {.size = {5, 2, 8, 1, 6}, .data = {1, 2, 3, 4, 5, 0, 0xC5, 6, 0}, .tail = pcx_palette()}, 8, {{1, 2, 3, 4, 5, 0, 0, 0}, {6, 6, 6, 6, 6, 0, 0, 0}}, large},
    {"8 bits, no marker before the palette", {.size = {1, 1, 8, 1, 1}, .data = {9}, .tail = pcx_palette(0, 99)}, 8, {{9, 0, 0, 0}}, large},
    {"24 bits", {.size = {2, 2, 8, 3, 2}, .data = {0xC1, 0xFF, 2, 3, 4, 5, 6, 11, 12, 13, 14, 15, 16}}, 24, {{5, 3, 0xFF, 6, 4, 2, 0, 0}, {15, 13, 11, 16, 14, 12, 0, 0}}},
    {"24 bits, lines shorter than rows", {.size = {3, 1, 8, 3, 2}, .data = {1, 2, 3, 4, 5, 6}}, 24, {{5, 3, 1, 6, 4, 2, 0, 0, 0, 0, 0, 0}}},
    {"8 bits, lines shorter than rows", {.size = {3, 1, 8, 1, 2}, .data = {1, 2}, .tail = pcx_palette()}, 8, {{1, 2, 0, 0}}, large},
    {"a run may cross into the next line", {.size = {5, 2, 8, 1, 5}, .data = {0xCA, 7}, .tail = pcx_palette()}, 8, {{7, 7, 7, 7, 7, 0, 0, 0}, {7, 7, 7, 7, 7, 0, 0, 0}}, large},
    {"runs of none write nothing", {.size = {2, 1, 8, 1, 2}, .data = {0xC0, 9, 5, 0xC0, 9, 6}, .tail = pcx_palette()}, 8, {{5, 6, 0, 0}}, large},
    {"no palette before version 5, 16 colours", {.size = {2, 1, 1, 4, 1}, .version = 3, .colours = map}, 4, {{}}, {{0, 0, 0, 0}, {0, 0, 128, 0}, {0, 128, 0, 0}, {0, 128, 128, 0}, {128, 0, 0, 0}, {128, 0, 128, 0}, {128, 128, 0, 0}, {128, 128, 128, 0}, {0, 0, 0, 0}, {0, 0, 255, 0}}},
    {"grey, 16 levels", {.size = {2, 1, 1, 4, 1}, .palette_information = 2, .colours = map}, 4, {{}}, {{0, 0, 0, 0}, {17, 17, 17, 0}, {34, 34, 34, 0}}},
    {"grey, two levels", {.size = {2, 1, 1, 1, 1}, .palette_information = 2, .colours = {{9, 9, 9}, {0, 0, 0}}, .data = {0x80}}, 1, {{0x80, 0, 0, 0}}, kBlackWhite},
    {"any colour, black: inverted", {.size = {3, 1, 1, 1, 1}, .colours = {{0, 0, 1}, {0, 0, 0}}, .data = {0x20}}, 1, {{0xDF, 0, 0, 0}}, kBlackWhite},
    {"white, white: black, white", {.size = {3, 1, 1, 1, 1}, .colours = {{255, 255, 255}, {255, 255, 255}}, .data = {0x20}}, 1, {{0x20, 0, 0, 0}}, kBlackWhite},
    {"other pairs are kept", {.size = {3, 1, 1, 1, 1}, .colours = {{255, 255, 255}, {0, 0, 1}}, .data = {0x20}}, 1, {{0x20, 0, 0, 0}}, {{255, 255, 255, 0}, {1, 0, 0, 0}}},
    {"plain bytes", {.size = {2, 2, 8, 1, 2}, .data = {0xC1, 2, 3, 4}, .tail = pcx_palette(), .encoding = 0}, 8, {{0xC1, 2, 0, 0}, {3, 4, 0, 0}}, large, true},
    {"four colours in 1 plane", {.size = {5, 1, 2, 1, 2}, .colours = map, .data = {0x1B, 0x80}}, 4, {{0x01, 0x23, 0x20, 0}}, {mapped[0], mapped[1], mapped[2], kBlackWhite[0]}, true},
    {"four colours in 2 planes, none given", {.size = {4, 1, 1, 2, 1}, .data = {0x50, 0x30}}, 4, {{0x01, 0x23, 0, 0}}, {{0, 0, 0, 0}, {255, 255, 0, 0}, {255, 0, 255, 0}, {255, 255, 255, 0}}, true},
    {"the header's colours count always", {.size = {2, 1, 1, 4, 1}, .version = 3, .palette_information = 2, .colours = map}, 4, {{}}, mapped, true},
    {"unless there are none", {.size = {2, 1, 1, 4, 1}, .version = 5}, 4, {{}}, {{0, 0, 0, 0}, {0, 0, 128, 0}}, true},
    {"black and white, whatever the header says", {.size = {3, 1, 1, 1, 1}, .palette_information = 2, .colours = {{0, 0, 1}, {0, 0, 0}}, .data = {0x20}}, 1, {{0x20, 0, 0, 0}}, kBlackWhite, true},
    {"a palette before the end", {.size = {1, 1, 8, 1, 1}, .data = {9}, .tail = joined({pcx_palette(), {1, 2}})}, 8, {{9, 0, 0, 0}}, large, true},
    {"a palette behind other bytes", {.size = {1, 1, 8, 1, 1}, .data = {9}, .tail = joined({{5, 5}, pcx_palette(), {1, 2}})}, 8, {{9, 0, 0, 0}}, large, true},
    {"a palette without marker is none", {.size = {1, 1, 8, 1, 1}, .data = {9}, .tail = pcx_palette(0, 99)}, 8, {{9, 0, 0, 0}}, {{0, 0, 0, 0}, {1, 1, 1, 0}}, true},
  };
}
// clang-format on

TEST(PcxDecode, EveryLayoutGivesItsHeaderPaletteAndRows) {
  for (const Layout& layout : layouts()) {
    // In memory that does not say where it ends the palette is the one behind the marker, and
    // nothing is read behind it.
    for (const bool end_is_known : {true, false}) {
      SCOPED_TRACE(testing::Message() << layout.name << ", " << end_is_known);
      const bool without_rows = layout.file.data.empty();  // then only the palette is looked at
      if (without_rows && !end_is_known) continue;
      const GuardedBlock block(pcx_file(layout.file));
      CollectingSink sink;
      end_is_known ? open_memory_stream(block.data(), block.size())
                   : open_memory_stream(block.data());
      Options options;
      options.set(IMG_OPTION_READING, layout.shown);
      EXPECT_EQ(decode_pcx({kMemoryStream, 0, sink.sink(), -1, options}).raw(),
                without_rows ? -12 : 1);
      const BitmapInfoHeader& header = sink.header.header;
      EXPECT_EQ(sink.headers, 1);
      EXPECT_EQ(sink.image(), layout.rows);
      EXPECT_EQ(header.biWidth, layout.file.size.width);
      EXPECT_EQ(header.biBitCount, layout.bits);
      EXPECT_EQ(header.biXPelsPerMeter, 300);
      EXPECT_EQ(header.biYPelsPerMeter, 150);
      EXPECT_EQ(header.biSizeImage,
                layout.file.size.height * row_bytes(layout.file.size.width, layout.bits));
      const bool unmarked = !layout.file.tail.empty() && layout.file.tail[0] != 12;
      Palette palette = layout.palette;
      if (unmarked && !end_is_known) palette = {{0, 0, 0, 0}, {1, 1, 1, 0}};  // grey
      for (std::size_t i = 0; i < palette.size(); ++i) {
        EXPECT_EQ(sink.header.palette[i], palette[i]) << i;
      }
    }
  }
}

TEST(PcxDecode, CutOffFileKeepsWhatItHas) {
  const Bytes file = pcx_file({.size = {3, 3, 8, 1, 3}, .data = {1, 2, 3, 4, 5, 6, 0xC2, 7}});
  // By bytes of data; what a partly filled line lacks is 0, a run's length alone is nothing.
  const Image rows[] = {{},
                        {{1, 0, 0, 0}},
                        {{1, 2, 0, 0}},
                        {{1, 2, 3, 0}},
                        {{1, 2, 3, 0}, {4, 0, 0, 0}},
                        {{1, 2, 3, 0}, {4, 5, 0, 0}},
                        {{1, 2, 3, 0}, {4, 5, 6, 0}},
                        {{1, 2, 3, 0}, {4, 5, 6, 0}},
                        {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 7, 0, 0}}};
  for (std::ptrdiff_t bytes = -1; bytes <= 8; ++bytes) {
    SCOPED_TRACE(bytes);
    const std::int32_t status = bytes < 0 ? -2 : bytes == 0 ? -12 : 1;
    CollectingSink sink = decoded(decode_pcx, {file.begin(), file.begin() + 128 + bytes}, status);
    if (bytes < 0) continue;
    Image image = sink.image();
    image.resize(sink.rows.size());
    EXPECT_EQ(image, rows[bytes]);
    EXPECT_EQ(sink.header.palette[200], (Rgb{200, 200, 200, 0})) << "no palette: grey";
  }
}

TEST(PcxDecode, FilesThatLie) {
  const Bytes run = {0xFF, 1};
  const struct {
    const char* name;
    PcxFields file;
    std::int32_t status;
    int headers = 0;
  } cases[] = {
      {"no bytes per line", {.size = {8, 8, 8, 1, 0}, .data = run}, -3},
      {"no planes", {.size = {8, 8, 8, 0, 8}, .data = run}, -3},
      {"2 bits", {.size = {8, 8, 2, 1, 2}, .data = run}, -7},
      {"8 bits in 4 planes", {.size = {8, 8, 8, 4, 8}, .data = run}, -7},
      {"16 bits in 4 planes", {.size = {8, 8, 16, 4, 8}, .data = run}, -7},
      {"corners the wrong way round", {.size = {-1, 8, 8, 1, 8}, .data = run}, -3, 1},
      {"no height", {.size = {8, 0, 8, 1, 8}, .data = run}, -3, 1},
      {"a run of more than two lines", {.size = {31, 9, 8, 1, 31}, .data = run}, -3, 1},
      {"the same, late", {.size = {2, 9, 8, 1, 2}, .data = {1, 0xC4, 1}}, -3, 1},
  };
  for (const auto& refused : cases) {
    SCOPED_TRACE(refused.name);
    const CollectingSink sink = decoded(decode_pcx, pcx_file(refused.file), refused.status);
    EXPECT_EQ(sink.headers, refused.headers);
    EXPECT_THAT(sink.rows, testing::IsEmpty());
  }
  // Two lines are allowed.
  EXPECT_EQ(
      decoded(decode_pcx, pcx_file({.size = {2, 2, 8, 1, 2}, .data = {0xC4, 1}}), 1).rows.size(),
      2u);
}

}  // namespace
}  // namespace tq::test
