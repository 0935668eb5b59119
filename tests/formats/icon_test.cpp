// Icons as other programs do not write them here: every depth with and without a mask, directories
// that lie. What programs write is in the corpus, what they read in tests/peers.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "io/endian.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using simple::decode_icon;
using simple::encode_icon;

void put(Bytes& file, std::uint32_t value, int bytes) {
  for (; bytes > 0; --bytes, value >>= 8) file.push_back(byte(value));
}

struct Bitmap {
  int width = 2, height = 2;  // as in the header: of picture and mask
  int bits = 8, compression = 0;
  Bytes colours{};  // B G R 0
  Bytes data{};     // rows from the bottom, mask
  std::uint32_t header_bytes = 40;

  Bytes bytes() const {
    Bytes out;
    put(out, header_bytes, 4);
    put(out, static_cast<std::uint32_t>(width), 4);
    put(out, static_cast<std::uint32_t>(height), 4);
    put(out, 1, 2);
    put(out, bits, 2);
    put(out, compression, 4);
    out.resize(32);
    put(out, static_cast<std::uint32_t>(colours.size() / 4), 4);
    out.resize(40);
    for (const Bytes* part : {&colours, &data}) out.insert(out.end(), part->begin(), part->end());
    return out;
  }
};

struct Entry {
  Bytes image;
  int side = 1;                       // in the directory
  std::uint32_t longer = 0, off = 0;  // than it is, from where it is
};

Bytes icon(const std::vector<Entry>& entries) {
  Bytes file = {0, 0, 1, 0}, images;
  put(file, static_cast<std::uint32_t>(entries.size()), 2);
  for (const Entry& entry : entries) {
    put(file, entry.side, 1);
    put(file, entry.side, 1);
    put(file, 0, 6);
    put(file, static_cast<std::uint32_t>(entry.image.size()) + entry.longer, 4);
    put(file, static_cast<std::uint32_t>(6 + 16 * entries.size() + images.size()) + entry.off, 4);
    images.insert(images.end(), entry.image.begin(), entry.image.end());
  }
  file.insert(file.end(), images.begin(), images.end());
  return file;
}

// Two colours each; the mask hides the right pixel of a 2 x 1 picture.
TEST(Icon, EveryDepthWithAndWithoutAMask) {
  const Bytes grey = {0, 0, 0, 0, 255, 255, 255, 0}, colours = {1, 2, 3, 0, 4, 5, 6, 0};
  const struct {
    Bitmap bitmap;
    int bits;
    Bytes plain, masked;
  } cases[] = {
      {{.bits = 1, .colours = grey, .data = {0x40, 0, 0, 0}}, 1, {0x40, 0, 0, 0}, {0, 0, 0}},
      {{.bits = 1, .colours = colours, .data = {0x40, 0, 0, 0}}, 4, {0x01, 0, 0, 0}, {1, 2, 3}},
      {{.bits = 4, .colours = colours, .data = {0x12, 0, 0, 0}}, 4, {0x12, 0, 0, 0}, {4, 5, 6}},
      {{.colours = colours, .data = {1, 9, 0, 0}}, 8, {1, 9, 0, 0}, {4, 5, 6}},
      {{.bits = 16, .data = {0x22, 0x7C, 1, 0}}, 24, {16, 8, 255, 8, 0, 0, 0, 0}, {16, 8, 255}},
      {{.bits = 24, .data = {1, 2, 3, 4, 5, 6, 0, 0}}, 24, {1, 2, 3, 4, 5, 6, 0, 0}, {1, 2, 3}},
      {{.bits = 32, .data = {1, 2, 3, 0, 4, 5, 6, 0}}, 24, {1, 2, 3, 4, 5, 6, 0, 0}, {1, 2, 3}},
      {{.bits = 32, .compression = 3, .data = {1, 2, 3, 0, 4, 5, 6, 0}},
       24,
       {1, 2, 3, 4, 5, 6, 0, 0},
       {1, 2, 3}},
  };
  for (auto [bitmap, bits, plain, masked] : cases) {
    SCOPED_TRACE(testing::Message() << bitmap.bits << " bits");
    if (bitmap.compression == 3) bitmap.data.insert(bitmap.data.begin(), 12, 0xEE);
    // Behind the picture no mask, half a one, one that hides nothing of it, and one that does.
    for (const Bytes& mask : {Bytes{}, Bytes{0x40}, Bytes{0x3F, 0, 0, 0}, Bytes{0x40, 0, 0, 0}}) {
      Bitmap whole = bitmap;
      whole.data.insert(whole.data.end(), mask.begin(), mask.end());
      const CollectingSink sink = decoded(decode_icon, icon({{whole.bytes()}}));
      const bool hides = mask.size() == 4 && mask[0] == 0x40;
      EXPECT_EQ(sink.header.header.biBitCount, hides ? 24 : bits);
      Bytes row = plain;
      if (hides) row = {masked[0], masked[1], masked[2], 255, 255, 255, 0, 0};
      EXPECT_EQ(sink.image().at(0), row);
    }
  }
}

TEST(Icon, AlphaCountsInPlaceOfTheMask) {
  const Bitmap bitmap{.bits = 32, .data = {0, 0, 0, 128, 9, 8, 7, 0, 0xC0, 0, 0, 0}};
  EXPECT_EQ(decoded(decode_icon, icon({{bitmap.bytes()}})).rows.at(0).bytes,
            (Bytes{127, 127, 127, 255, 255, 255, 0, 0}));
}

// The height is the picture's own when the data are for that and for no mask.
TEST(Icon, HeightOfPictureAndMaskOrOfThePicture) {
  const auto height = [](const Bitmap& bitmap, int side) {
    return decoded(decode_icon, icon({{bitmap.bytes(), side}})).header.header.biHeight;
  };
  EXPECT_EQ(height({.height = 4, .bits = 24, .data = Bytes(24)}, 2), 2);
  EXPECT_EQ(height({.height = 4, .bits = 24, .data = Bytes(32)}, 4), 4);
  EXPECT_EQ(height({.height = 4, .bits = 24, .data = Bytes(31)}, 4), 2);
  EXPECT_EQ(height({.height = 4, .bits = 24, .data = Bytes(48)}, 4), 2);
  EXPECT_EQ(height({.height = 3, .bits = 24, .data = Bytes(24)}, 3), 3);
}

TEST(Icon, PagesAreTheLargestFirstThenTheDeepest) {
  const auto sized = [](int side, int bits) {
    const auto bytes = 16 + 4 * side * row_bytes(side, bits);
    return Entry{
        Bitmap{.width = side, .height = 2 * side, .bits = bits, .data = Bytes(std::size_t(bytes))}
            .bytes()};
  };
  const Entry png{file_content("corpus/png/rgba8.png")};  // 29 x 19
  Bytes file = icon({sized(16, 8), sized(20, 24), sized(16, 24), {Bytes(50)}, png, sized(16, 8)});
  const struct { int width, bits; } pages[] = {{29, 24}, {20, 24}, {16, 24}, {16, 8}, {16, 8}};
  open_memory_stream(file.data(), file.size());
  EXPECT_EQ(simple::count_icon_pages(kMemoryStream).raw(), 5);
  for (int page = 0; page <= 5; ++page) {
    CollectingSink sink;
    open_memory_stream(file.data(), file.size());
    const Status status = decode_icon({.stream = kMemoryStream, .sink = sink.sink(), .page = page});
    if (page == 5) {
      EXPECT_EQ(status.raw(), -31);
      break;
    }
    EXPECT_EQ(status, kOk);
    EXPECT_EQ(sink.header.header.biWidth, pages[page].width);
    EXPECT_EQ(sink.header.header.biBitCount, pages[page].bits);
  }
}

TEST(Icon, EntriesThatCannotBeArePassedOver) {
  const Bitmap good{.data = Bytes(16)};
  const auto with = [&](auto change) {
    Bitmap bitmap = good;
    change(bitmap);
    return Entry{bitmap.bytes()};
  };
  const Entry bad[] = {
      {good.bytes(), 1, 0, 0xFFFFFFFF},
      {good.bytes(), 1, 0, 1000},
      {good.bytes(), 1, 1000},
      {good.bytes(), 1, 0x7FFFFFFF},
      with([](Bitmap& b) { b.width = 0; }),
      with([](Bitmap& b) { b.width = 1025; }),
      with([](Bitmap& b) { b.width = -1; }),
      with([](Bitmap& b) { b.height = -4; }),
      with([](Bitmap& b) {
        b.height = 1;
        b.data.clear();
        b.header_bytes = 12;
      }),
      with([](Bitmap& b) {
        b.height = 2050;
        b.bits = 1;
      }),
      with([](Bitmap& b) { b.colours = Bytes(4 * 257); }),
      {Bytes(39)},
  };
  for (const Entry& entry : bad) {
    SCOPED_TRACE(&entry - bad);
    Bytes first = icon({entry});
    decoded(decode_icon, first, -3);
    EXPECT_EQ(decoded(decode_icon, icon({entry, {good.bytes()}})).header.header.biWidth, 2);
  }
  decoded(decode_icon, icon({with([](Bitmap& b) { b.bits = 2; })}), -3);
  decoded(decode_icon, icon({with([](Bitmap& b) { b.compression = 1; })}), -7);
  decoded(decode_icon, icon({}), -3);
  decoded(decode_icon, {0, 0, 2, 0, 1, 0}, -3);
  decoded(decode_icon, {0, 0, 1, 0, 1}, -12);
}

TEST(Icon, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    for (const bool marked : {false, true}) {
      HeaderBlock image = grey_image(256, 2, bits);
      if (marked) image.header.biClrUsed = kTransparent | 1;
      const Pixels pixels = {1, 0, 1, 0};
      const std::vector<Bytes> rows = {pack(pixels, bits),
                                       Bytes(std::size_t(row_bytes(256, bits)))};
      const Bytes file = encoded(encode_icon, image, rows);
      EXPECT_EQ(file[6], 0);
      EXPECT_EQ(file[7], 2);
      EXPECT_EQ(file[8], bits == 1 ? 2 : bits == 4 ? 16 : 0);
      EXPECT_EQ(load_le32(&file[14]) + 22, file.size());
      const CollectingSink sink = decoded(decode_icon, file);
      const bool hides = marked && bits <= 8;
      const int depth = hides ? 24 : std::min(bits, 24);
      ASSERT_EQ(sink.header.header.biBitCount, depth);
      Pixels expected = pixels;
      if (hides) expected = {0xFFFFFF, 0, 0xFFFFFF, 0};
      EXPECT_EQ(unpack(sink.image().at(0), 4, depth), expected);
    }
  }
  HeaderBlock image = dib_header(257, 1, 8);
  EXPECT_EQ(simple::can_encode_icon({.stream{}, .image = &image, .rows{}}).raw(), -7);
  image = dib_header(1, 1, 32);
  EXPECT_EQ(simple::can_encode_icon({.stream{}, .image = &image, .rows{}, .cmyk = true}).raw(),
            -21);
  image = dib_header(1, 1, 16);
  EXPECT_EQ(simple::can_encode_icon({.stream{}, .image = &image, .rows{}}).raw(), -21);
}

}  // namespace
}  // namespace tq::test
