// Targa files as other programs do not write them here: rare types and alpha, packets across rows,
// maps and bodies that are cut off. What they write is in the corpus, what they read in tests/peers.
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_targa;
using simple::encode_targa;

struct Targa {
  int type = 2, width = 1, height = 1, bits = 24, descriptor = 0x20;
  Bytes body{};  // what follows the header
  int map_type = 0, first = 0, entries = 0, entry_bits = 0;

  Bytes file() const {
    Bytes bytes = {0,
                   byte(map_type),
                   byte(type),
                   byte(first),
                   byte(first >> 8),
                   byte(entries),
                   byte(entries >> 8),
                   byte(entry_bits),
                   9,
                   9,
                   9,
                   9,
                   byte(width),
                   byte(width >> 8),
                   byte(height),
                   byte(height >> 8),
                   byte(bits),
                   byte(descriptor)};
    return joined({bytes, body});
  }
  // With an extension area that says what alpha is.
  Bytes file_with_alpha(int kind) const {
    Bytes file = this->file();
    Bytes area(495), footer = {byte(file.size()), 0, 0, 0, 0, 0, 0, 0};
    area[0] = 495 & 255;
    area[1] = 495 >> 8;
    area[494] = byte(kind);
    for (const char c : "TRUEVISION-XFILE.") footer.push_back(byte(c));
    return joined({file, area, footer});
  }
};

Bytes first_row(const Bytes& file) {
  return decoded(decode_targa, file).image().at(0);
}

TEST(Targa, EveryTypeAndItsAlpha) {
  const auto row = [](const Targa& targa) { return first_row(targa.file()); };
  EXPECT_EQ(row({.bits = 15, .body = {0x1F, 0x84}}), (Bytes{255, 0, 8, 0}));
  EXPECT_EQ(row({.bits = 16, .body = {0x1F, 0x04}}), (Bytes{255, 0, 8, 0}));
  EXPECT_EQ(row({.bits = 32, .body = {1, 2, 3, 4}}), (Bytes{1, 2, 3, 0}));
  EXPECT_EQ(row({.type = 3, .bits = 16, .body = {7, 9}}), (Bytes{7, 0, 0, 0}));
  const Targa word{.width = 2, .bits = 16, .descriptor = 0x21, .body = {0x1F, 0x84, 0x1F, 0x04}};
  EXPECT_EQ(row(word), (Bytes{255, 0, 8, 255, 255, 255, 0, 0}));
  const Targa colour{.bits = 32, .descriptor = 0x28, .body = {0, 100, 51, 51}};
  const Targa grey{.type = 3, .bits = 16, .descriptor = 0x28, .body = {100, 51}};
  for (const auto& [kind, blue, green, level] :
       {std::tuple{0, 0, 100, 100}, {2, 0, 100, 100}, {3, 204, 224, 224}, {4, 204, 255, 255}}) {
    EXPECT_EQ(first_row(colour.file_with_alpha(kind))[0], blue) << kind;
    EXPECT_EQ(first_row(colour.file_with_alpha(kind))[1], green) << kind;
    EXPECT_EQ(first_row(grey.file_with_alpha(kind))[0], level) << kind;
  }
}

// In packets as well: the second line is looked at before the first one is shown.
TEST(Targa, AlphaThatIsZeroEverywhereIsNone) {
  for (const int last : {0, 1}) {
    const Targa plain{
        .height = 2, .bits = 32, .descriptor = 0x28, .body = {9, 9, 9, 0, 9, 9, 9, byte(last)}};
    const Targa packets{.type = 10,
                        .height = 2,
                        .bits = 32,
                        .descriptor = 0x28,
                        .body = {0x80, 9, 9, 9, 0, 0, 9, 9, 9, byte(last)}};
    const std::uint8_t shown = last == 0 ? 9 : 255;
    EXPECT_EQ(first_row(plain.file()), (Bytes{shown, shown, shown, 0}));
    EXPECT_EQ(first_row(packets.file()), (Bytes{shown, shown, shown, 0}));
  }
  // Below the bit there may be anything.
  EXPECT_EQ(first_row(Targa{.bits = 16, .descriptor = 0x21, .body = {0, 0x7C}}.file()),
            (Bytes{0, 0, 255, 0}));
}

TEST(Targa, MapsBeginAnywhere) {
  const Targa targa{.type = 1,
                    .width = 4,
                    .bits = 8,
                    .body = {1, 2, 3, 0, 0x1F, 0x7C, 4, 5, 6, 7},
                    .map_type = 1,
                    .first = 5,
                    .entries = 2,
                    .entry_bits = 24};
  Targa words = targa;
  words.entry_bits = 16;
  words.first = 255;
  Targa beyond = targa;
  beyond.first = 0xFFFF;
  CollectingSink sink = decoded(decode_targa, targa.file());
  EXPECT_EQ(sink.header.palette[5], (Rgb{1, 2, 3, 0}));
  EXPECT_EQ(sink.header.palette[6], (Rgb{0, 0x1F, 0x7C, 0}));
  EXPECT_EQ(sink.header.palette[4], (Rgb{}));
  EXPECT_EQ(sink.rows[0].bytes, (Bytes{4, 5, 6, 7}));
  sink = decoded(decode_targa, words.file());
  EXPECT_EQ(sink.header.palette[255], (Rgb{8, 132, 0, 0}));
  EXPECT_EQ(sink.rows[0].bytes, (Bytes{0x1F, 0x7C, 4, 5}));
  EXPECT_EQ(decoded(decode_targa, beyond.file()).header.palette[255], (Rgb{}));
  // Behind a map that colours do not need.
  EXPECT_EQ(
      first_row(
          Targa{.body = {9, 9, 1, 2, 3}, .map_type = 1, .entries = 2, .entry_bits = 8}.file()),
      (Bytes{1, 2, 3, 0}));
}

// A run that ends in the third row, literals that the file does not hold whole, in every order.
TEST(Targa, PacketsCrossRows) {
  Targa targa{.type = 11, .width = 3, .height = 5, .bits = 8, .body = {0, 1, 0x86, 5, 3, 6, 7}};
  const auto rows = [&](int descriptor) {
    targa.descriptor = descriptor;
    return decoded(decode_targa, targa.file()).rows;
  };
  const std::vector<CollectedRow> down = {
      {0, {1, 5, 5, 0}}, {1, {5, 5, 5, 0}}, {2, {5, 5, 6, 0}}, {3, {7, 0, 0, 0}}};
  EXPECT_EQ(rows(0x20), down);
  EXPECT_EQ(rows(0)[3], (CollectedRow{1, {7, 0, 0, 0}}));
  EXPECT_EQ(rows(0x30)[0], (CollectedRow{0, {5, 5, 1, 0}}));
  EXPECT_EQ(rows(0x10)[3], (CollectedRow{1, {0, 0, 7, 0}}));
}

TEST(Targa, RefusesWhatCannotBe) {
  const auto status = [](Targa targa, int expected) {
    if (targa.body.empty()) targa.body = Bytes(30);
    decoded(decode_targa, targa.file(), expected);
  };
  for (const int type : {0, 32, 33, 0x9C}) status({.type = type}, -7);
  status({.descriptor = 0x60}, -7);
  status({.type = 1, .bits = 16, .map_type = 1, .entries = 1, .entry_bits = 24}, -7);
  status({.type = 1, .bits = 8, .map_type = 1, .entries = 1, .entry_bits = 8}, -3);
  status({.type = 1, .bits = 8}, -3);
  status({.type = 9, .bits = 4, .map_type = 1, .entries = 1, .entry_bits = 24}, -3);
  status({.type = 1, .bits = 8, .map_type = 1, .entries = 256, .entry_bits = 24}, -12);
  status({.type = 3, .bits = 24}, -3);
  status({.bits = 8}, -3);
  status({.map_type = 2}, -3);
  status({.width = 0}, -3);
  status({.width = 0xFFFF, .height = 0xFFFF}, -1);
  decoded(decode_targa, {0, 0, 2, 0, 1, 0, 32, 32, 0, 0, 5, 0, 5, 0, 0x30, 1, 0, 0, 22, 0}, -3);
  decoded(decode_targa, Bytes(17), -12);
}

TEST(Targa, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    for (const bool ramp : {true, false}) {
      HeaderBlock image = grey_image(300, 2, bits);
      if (!ramp) image.palette[1] = {1, 2, 3, 0};
      Random random(static_cast<std::uint32_t>(bits));
      Pixels pixels = random.pixels(300, bits);
      std::fill_n(pixels.begin() + 7, 140, pixels[5]);
      const auto rows = {Bytes(std::size_t(row_bytes(300, bits))), pack(pixels, bits)};
      const CollectingSink back = decoded(decode_targa, encoded(encode_targa, image, rows));
      if (bits == 32) std::ranges::for_each(pixels, [](auto& pixel) { pixel &= 0xFFFFFF; });
      EXPECT_EQ(unpack(back.image().at(1), 300, bits > 8 ? 24 : 8), pixels);
      if (bits <= 8) {
        EXPECT_EQ(back.header.palette, image.palette);
      }
    }
  }
  HeaderBlock image = dib_header(65536, 1, 24);
  const auto refused = [&](bool cmyk) {
    return simple::can_encode_targa({.stream{}, .image = &image, .rows{}, .cmyk = cmyk}).raw();
  };
  EXPECT_EQ(refused(false), -7);
  image = dib_header(1, 1, 16);
  EXPECT_EQ(refused(false), -21);
  image = dib_header(1, 1, 32);
  EXPECT_EQ(refused(true), -21);
}

}  // namespace
}  // namespace tq::test
