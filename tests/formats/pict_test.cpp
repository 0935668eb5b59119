// Pictures as no program here writes them: every form of bitmap, bands, commands to be skipped,
// damage. What programs write is in the corpus, what they read in tests/peers.
#include "formats/pict/pict.h"
#include "core/numbers.h"
#include "formats/jpeg/jpeg.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using pict::decode_pict;
using pict::encode_pict;

void put(Bytes& file, std::uint32_t value, int bytes) {
  while (bytes-- > 0) file.push_back(byte(value >> 8 * bytes));
}

struct Box {
  int top = 0, left = 0, bottom = 1, right = 3;
};

void put(Bytes& file, const Box& box) {
  for (const int side : {box.top, box.left, box.bottom, box.right}) put(file, side & 0xFFFF, 2);
}

struct Map {
  int opcode = 0x98;
  int row_bytes = 2, bits = 0, packing = 0, components = 1;  // bits 0: no pixmap
  Bytes colours{};                                           // red, green, blue
  Bytes rows{};
  Box bounds{}, source{}, destination{};
  int table_flags = 0;

  // With an opcode of one or of two bytes.
  Bytes command(int opcode_bytes = 2) const {
    Bytes out;
    put(out, opcode, opcode_bytes);
    const bool direct = opcode >= 0x9A;
    if (direct) put(out, 0xFF, 4);
    put(out, row_bytes | (bits != 0 ? 0x8000 : 0), 2);
    put(out, bounds);
    if (bits != 0) {
      put(out, 0, 2);
      put(out, packing, 2);
      put(out, 0, 4);
      put(out, 0x00960000, 4);
      put(out, 0x004B8000, 4);
      put(out, 0, 2);
      put(out, bits, 2);
      put(out, components, 2);
      out.resize(out.size() + 14);
    }
    if (bits != 0 && !direct) {
      put(out, 0, 4);
      put(out, table_flags, 2);
      put(out, static_cast<std::uint32_t>(colours.size() / 3) - 1, 2);
      for (std::size_t i = 0; i < colours.size(); ++i) {
        if (i % 3 == 0) put(out, table_flags != 0 ? 7 : static_cast<std::uint32_t>(i / 3), 2);
        put(out, colours[i] << 8, 2);
      }
    }
    put(out, source);
    put(out, destination);
    put(out, 0, 2);
    if (opcode % 2 != 0) {
      put(out, 10, 2);
      put(out, Box{});
    }
    out.insert(out.end(), rows.begin(), rows.end());
    if (out.size() % 2 != 0 && opcode_bytes == 2) out.push_back(0xEE);
    return out;
  }
};

// Of the second version, or of the first.
Bytes picture(const Box& frame, const std::vector<Bytes>& commands, bool old = false) {
  Bytes file(512);
  put(file, 0, 2);
  put(file, frame);
  put(file, old ? 0x1101 : 0x001102FF, old ? 2 : 4);
  for (const Bytes& command : commands) file.insert(file.end(), command.begin(), command.end());
  put(file, 0xFF, old ? 1 : 2);
  return file;
}

TEST(Pict, EveryKindOfBitmap) {
  const Bytes grey = {0, 0, 0, 255, 255, 255}, colours = {1, 2, 3, 4, 5, 6};
  const struct {
    Map map;
    int bits;
    Bytes row;
  } cases[] = {
      {{.opcode = 0x90, .rows = {0x5F, 0xFF}}, 1, {0xA0, 0, 0, 0}},
      {{.opcode = 0x91, .rows = {0x5F, 0xFF}}, 1, {0xA0, 0, 0, 0}},
      {{.row_bytes = 8, .rows = {4, 0, 0x5F, 0xFA, 0}}, 1, {0xA0, 0, 0, 0}},
      {{.bits = 1, .colours = grey, .rows = {0x40, 0}}, 1, {0x40, 0, 0, 0}},
      {{.bits = 1, .colours = colours, .rows = {0x40, 0}}, 4, {0x01, 0, 0, 0}},
      {{.bits = 2, .colours = colours, .rows = {0x6C, 0}}, 4, {0x12, 0x30, 0, 0}},
      {{.opcode = 0x99, .bits = 4, .colours = colours, .rows = {0x12, 0x30}},
       4,
       {0x12, 0x30, 0, 0}},
      {{.row_bytes = 8, .bits = 8, .colours = colours, .rows = {2, 0xF9, 7}}, 8, {7, 7, 7, 0}},
      {{.row_bytes = 8, .bits = 8, .colours = colours, .rows = {2, 0xF9, 1}, .table_flags = 0x8000},
       8,
       {1, 1, 1, 0}},
      {{.row_bytes = 260, .bits = 8, .colours = colours, .rows = {0, 2, 0xF9, 7}}, 8, {7, 7, 7, 0}},
      {{.opcode = 0x9A,
        .row_bytes = 6,
        .bits = 16,
        .packing = 3,
        .rows = {0x7C, 0x22, 0, 1, 0x80, 0}},
       24,
       {16, 8, 255, 8, 0, 0, 0, 0, 0, 0, 0, 0}},
      {{.opcode = 0x9B, .row_bytes = 8, .bits = 16, .rows = {6, 0xFF, 0x7C, 0x22, 0, 0, 1}},
       24,
       {16, 8, 255, 16, 8, 255, 8, 0, 0, 0, 0, 0}},
      {{.opcode = 0x9A,
        .row_bytes = 12,
        .bits = 32,
        .packing = 1,
        .components = 3,
        .rows = {0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9}},
       24,
       {3, 2, 1, 6, 5, 4, 9, 8, 7, 0, 0, 0}},
      {{.opcode = 0x9A,
        .row_bytes = 12,
        .bits = 32,
        .packing = 2,
        .components = 3,
        .rows = {1, 2, 3, 4, 5, 6, 7, 8, 9}},
       24,
       {3, 2, 1, 6, 5, 4, 9, 8, 7, 0, 0, 0}},
      {{.opcode = 0x9A,
        .row_bytes = 12,
        .bits = 32,
        .components = 3,
        .rows = {6, 0xFE, 1, 0xFE, 2, 0xFE, 3}},
       24,
       {3, 2, 1, 3, 2, 1, 3, 2, 1, 0, 0, 0}},
      {{.opcode = 0x9A,
        .row_bytes = 12,
        .bits = 32,
        .packing = 4,
        .components = 4,
        .rows = {8, 0xFE, 9, 0xFE, 1, 0xFE, 2, 0xFE, 3}},
       24,
       {3, 2, 1, 3, 2, 1, 3, 2, 1, 0, 0, 0}},
  };
  for (const auto& [map, bits, row] : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << map.opcode << ", " << map.bits << " bits");
    for (const bool old : {false, true}) {
      const Bytes file = picture(Box{}, {map.command(old ? 1 : 2)}, old);
      const CollectingSink sink = decoded(decode_pict, file);
      const HeaderBlock& image = sink.header;
      EXPECT_EQ(image.header.biBitCount, bits);
      EXPECT_EQ(image.header.biXPelsPerMeter, map.bits != 0 ? 150 : 0);
      EXPECT_EQ(image.header.biYPelsPerMeter, map.bits != 0 ? 76 : 0);
      if (bits == 4 || bits == 8) {
        EXPECT_EQ(image.palette[1], (Rgb{6, 5, 4, 0}));
      }
      ASSERT_EQ(sink.rows.size(), 1u);
      EXPECT_EQ(sink.rows[0].bytes, row);
    }
  }
}

// Red, green, blue of the pixels of a row.
Pixels row_of(const CollectingSink& sink, int y) {
  return unpack(sink.rows.at(static_cast<std::size_t>(y)).bytes, sink.header.header.biWidth, 24);
}

constexpr std::uint32_t kWhite = 0xFFFFFF;

TEST(Pict, SeveralBitmapsAreDrawnOnWhite) {
  const Bytes colours = {0, 0, 0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4};
  // Two rows of three pixels, of which the right lower four are drawn twice as large, and beyond the
  // frame; and a black dot.
  const Map map{.row_bytes = 4,
                .bits = 8,
                .colours = colours,
                .rows = {9, 9, 9, 0, 9, 1, 2, 0, 9, 3, 4, 0},
                .bounds = {10, 10, 13, 13},
                .source = {11, 11, 13, 13},
                .destination = {-1, -2, 3, 2}};
  const Map dot{.rows = {0x80, 0},
                .bounds = {0, 0, 1, 1},
                .source = {0, 0, 1, 1},
                .destination = {-3, -3, -2, -2}};
  const Bytes file = picture({-3, -3, 3, 3}, {map.command(), dot.command()});
  const CollectingSink sink = decoded(decode_pict, file);
  EXPECT_EQ(sink.header.header.biWidth, 6);
  ASSERT_EQ(sink.rows.size(), 6u);
  const Pixels one = {kWhite, 1, 1, 2, 2, kWhite}, three = {kWhite, 3, 3, 4, 4, kWhite};
  EXPECT_EQ(row_of(sink, 0), (Pixels{0, kWhite, kWhite, kWhite, kWhite, kWhite}));
  EXPECT_EQ(row_of(sink, 1), Pixels(6, kWhite));
  EXPECT_EQ(row_of(sink, 2), one);
  EXPECT_EQ(row_of(sink, 3), one);
  EXPECT_EQ(row_of(sink, 4), three);
  EXPECT_EQ(row_of(sink, 5), three);
}

// A JPEG picture of 7 x 9 pixels at (left, top).
Bytes jpeg_command(int left, int top, const char* coding = "jpeg") {
  const Bytes jpeg = file_content("corpus/jpeg/7x9-420.jpg");
  Bytes body;
  put(body, 0, 2);
  for (const int element : {1 << 16, 0, 0, 0, 1 << 16, 0, left << 16, top << 16, 1 << 30})
    put(body, element, 4);
  put(body, 3, 4);  // a matte
  body.resize(body.size() + 10);
  put(body, Box{0, 0, 9, 7});
  put(body, 0, 4);
  put(body, 2, 4);  // a mask
  put(body, 6, 4);
  body.resize(body.size() + 2 + 3 + 2);
  put(body, 86, 4);
  for (int i = 0; i < 4; ++i) body.push_back(byte(coding[i]));
  body.resize(body.size() + 24);
  put(body, 0x00070009, 4);
  body.resize(body.size() + 50);
  body.insert(body.end(), jpeg.begin(), jpeg.end());
  if (body.size() % 2 != 0) body.push_back(0);
  Bytes out;
  put(out, 0x8200, 2);
  put(out, static_cast<std::uint32_t>(body.size()), 4);
  out.insert(out.end(), body.begin(), body.end());
  return out;
}

// Some writers put long counts before rows of 201 bytes, or short ones before rows of 252.
TEST(Pict, CountsOfOtherSizesAreFound) {
  for (const int row_bytes : {202, 252}) {
    const bool long_counts = row_bytes == 202;
    Bytes row = {0x81, 6, byte(257 - (row_bytes - 128)), 6};
    row.insert(row.begin(), 4);
    if (long_counts) row.insert(row.begin(), 0);
    Bytes rows = row;
    rows.insert(rows.end(), row.begin(), row.end());
    const Box box{0, 0, 2, row_bytes};
    const Map map{.row_bytes = row_bytes,
                  .bits = 8,
                  .colours = {0, 0, 0},
                  .rows = rows,
                  .bounds = box,
                  .source = box,
                  .destination = box};
    const CollectingSink sink = decoded(decode_pict, picture(box, {map.command()}));
    EXPECT_EQ(sink.rows.at(1).bytes[static_cast<std::size_t>(row_bytes) - 1], 6);
  }
}

TEST(Pict, CompressedPictures) {
  const CollectingSink alone = decoded(jpeg::decode_jpeg, file_content("corpus/jpeg/7x9-420.jpg"));
  const CollectingSink whole = decoded(decode_pict, picture({0, 0, 9, 7}, {jpeg_command(0, 0)}));
  EXPECT_EQ(whole.image(), alone.image());
  const Box box{0, 0, 9, 3};
  const Map stand_in{.rows = Bytes(18), .bounds = box, .source = box, .destination = box};
  const Bytes both = picture({0, 0, 9, 7}, {jpeg_command(0, 0), stand_in.command()});
  EXPECT_EQ(decoded(decode_pict, both).image(), alone.image());
  const CollectingSink two =
      decoded(decode_pict, picture({0, 0, 9, 15}, {jpeg_command(8, 0), jpeg_command(0, 0)}));
  for (int y = 0; y < 9; ++y) {
    Pixels row = unpack(alone.image().at(static_cast<std::size_t>(y)), 7, 24);
    const Pixels left = row;
    row.push_back(kWhite);
    row.insert(row.end(), left.begin(), left.end());
    EXPECT_EQ(row_of(two, y), row);
  }
  decoded(decode_pict, picture({0, 0, 9, 7}, {jpeg_command(0, 0, "rle ")}), -7);
}

// Behind every command the bitmap is found; what it skips would end the picture.
TEST(Pict, CommandsThatDrawNoBitmapAreSkipped) {
  const Bytes bitmap = Map{.rows = {0xA0, 0}}.command(1);
  const auto check = [&](int opcode, const Bytes& behind, bool old) {
    SCOPED_TRACE(testing::Message() << std::hex << opcode << (old ? ", old" : ""));
    Bytes command;
    put(command, static_cast<std::uint32_t>(opcode), old ? 1 : 2);
    command.insert(command.end(), behind.begin(), behind.end());
    if (!old && command.size() % 2 != 0) command.push_back(0xFF);
    if (!old) command.push_back(0);
    command.insert(command.end(), bitmap.begin(), bitmap.end());
    const CollectingSink sink = decoded(decode_pict, picture(Box{}, {command}, old));
    EXPECT_EQ(sink.rows.size(), 1u);
  };
  const struct {
    int first, last, bytes, count_bytes;  // the count is 3; of regions 5, with itself
  } commands[] = {
      {0x00, 0x00, 0, 0},     {0x01, 0x01, -1, 2},    {0x02, 0x02, 8, 0},
      {0x03, 0x03, 2, 0},     {0x04, 0x04, 1, 0},     {0x05, 0x05, 2, 0},
      {0x06, 0x07, 4, 0},     {0x08, 0x08, 2, 0},     {0x09, 0x0A, 8, 0},
      {0x0B, 0x0C, 4, 0},     {0x0D, 0x0D, 2, 0},     {0x0E, 0x0F, 4, 0},
      {0x10, 0x10, 8, 0},     {0x11, 0x11, 1, 0},     {0x15, 0x16, 2, 0},
      {0x17, 0x19, 0, 0},     {0x1A, 0x1B, 6, 0},     {0x1C, 0x1C, 0, 0},
      {0x1D, 0x1D, 6, 0},     {0x1E, 0x1E, 0, 0},     {0x1F, 0x1F, 6, 0},
      {0x20, 0x20, 8, 0},     {0x21, 0x21, 4, 0},     {0x22, 0x22, 6, 0},
      {0x23, 0x23, 2, 0},     {0x24, 0x27, 0, 2},     {0x28, 0x28, 4, 1},
      {0x29, 0x2A, 1, 1},     {0x2B, 0x2B, 2, 1},     {0x2C, 0x2F, 0, 2},
      {0x30, 0x37, 8, 0},     {0x38, 0x3F, 0, 0},     {0x40, 0x47, 8, 0},
      {0x48, 0x4F, 0, 0},     {0x50, 0x57, 8, 0},     {0x58, 0x5F, 0, 0},
      {0x60, 0x67, 12, 0},    {0x68, 0x6F, 4, 0},     {0x70, 0x77, -1, 2},
      {0x78, 0x7F, 0, 0},     {0x80, 0x87, -1, 2},    {0x88, 0x8F, 0, 0},
      {0x92, 0x97, 0, 2},     {0x9C, 0x9F, 0, 2},     {0xA0, 0xA0, 2, 0},
      {0xA1, 0xA1, 2, 2},     {0xA2, 0xAF, 0, 2},     {0xB0, 0xCF, 0, 0},
      {0xD0, 0xFE, 0, 4},     {0x100, 0x1FF, 2, 0},   {0x5000, 0x50FF, 160, 0},
      {0x8000, 0x80FF, 0, 0}, {0x8100, 0x81FF, 0, 4}, {0x8201, 0xFFFF, 0, 4},
  };
  for (const auto& [first, last, bytes, count_bytes] : commands) {
    Bytes behind(static_cast<std::size_t>(std::max(bytes, 0)), 0xFF);
    if (count_bytes != 0) {
      put(behind, bytes < 0 ? 5 : 3, count_bytes);
      behind.insert(behind.end(), 3, 0xFF);
    }
    for (const int opcode : {first, last}) {
      check(opcode, behind, false);
      if (opcode < 0x100) check(opcode, behind, true);
    }
  }
  Bytes pattern(10, 0xFF), dithered(16, 0xFF), pixels(10, 0xFF);
  pattern[0] = dithered[0] = pixels[0] = 0;
  pattern[1] = 0;
  dithered[1] = 2;
  pixels[1] = 1;
  Bytes map = Map{.row_bytes = 8, .bits = 8, .colours = {0, 0, 0}, .rows = {}}.command();
  map.resize(map.size() - 18);  // no rectangles, no mode
  pixels.insert(pixels.end(), map.begin() + 2, map.end());
  pixels.insert(pixels.end(), {2, 0xF9, 0xFF});
  for (const Bytes& kind : {pattern, dithered, pixels}) check(0x13, kind, true);
}

// The frame at another resolution is the canvas, in place of the picture's.
TEST(Pict, HeaderOfTheSecondVersion) {
  Bytes header = {0x0C, 0, 0xFF, 0xFE, 0, 0, 0, 200, 0, 0, 0, 100, 0, 0};
  put(header, Box{});
  put(header, 0, 4);
  const Map map{.rows = {0xA0, 0}};
  const CollectingSink sink = decoded(decode_pict, picture({0, 0, 9, 9}, {header, map.command()}));
  EXPECT_EQ(sink.header.header.biWidth, 3);
  EXPECT_EQ(sink.header.header.biBitCount, 1);
  EXPECT_EQ(sink.header.header.biXPelsPerMeter, 200);
  EXPECT_EQ(sink.header.header.biYPelsPerMeter, 100);
}

TEST(Pict, DamageKeepsWhatIsThereOrIsRefused) {
  const auto status = [](const Box& frame, const Map& map, int expected) {
    decoded(decode_pict, picture(frame, {map.command()}), expected);
  };
  status({}, {.row_bytes = 0, .rows = {0, 0}}, -3);
  status({}, {.bits = 3, .colours = {0, 0, 0}}, -3);
  status({}, {.bits = 8, .colours = Bytes(3)}, -3);  // rows too short
  status({}, {.row_bytes = 8, .bits = 8, .colours = Bytes(std::size_t{3 * 257})}, -3);
  status({}, {.bounds = {1, 0, 1, 3}}, -3);
  status({}, {.opcode = 0x9A, .row_bytes = 12, .bits = 32, .packing = 3, .components = 3}, -3);
  status({}, {.opcode = 0x9A, .row_bytes = 12, .bits = 32, .components = 2}, -3);
  status({0, 0, 0, 3}, {.rows = {0, 0}}, -3);
  // Canvases that are too large, for an image and for this reader.
  status({-32768, -32768, 32767, 32767}, {.rows = {0, 0}}, -7);
  status({0, 0, 8193, 8192}, {.rows = {0, 0}}, -7);
  decoded(decode_pict, picture({}, {}), -7);
  Bytes file = picture({}, {Map{.rows = {0, 0}}.command()});
  file[522 + 1] = 0x12;
  decoded(decode_pict, file, -3);
  decoded(decode_pict, Bytes(520), -12);
  // The last row is not there, and a bitmap behind the first is cut off.
  const Map map{.row_bytes = 8,
                .rows = {2, 0xF9, 0xA0, 2, 0xF9},
                .bounds = {0, 0, 3, 3},
                .source = {0, 0, 3, 3},
                .destination = {0, 0, 3, 3}};
  file = picture({0, 0, 3, 3}, {map.command(1)}, true);
  file.resize(file.size() - 3);
  EXPECT_EQ(decoded(decode_pict, file).rows.size(), 1u);
  Bytes bad = Map{.bits = 3}.command();
  EXPECT_EQ(decoded(decode_pict, picture({}, {Map{.rows = {0, 0}}.command(), bad})).rows.size(),
            1u);
}

TEST(Pict, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    for (const int width : {1, 2, 5, 16, 300}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, " << width);
      HeaderBlock image = grey_image(width, 2, bits);
      image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = 300;
      if (bits == 8) image.palette[3] = {1, 2, 3, 0};
      Pixels pixels(static_cast<std::size_t>(width));
      for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = i % 3 == 1 ? 0 : 1;
      const std::vector<Bytes> rows = {Bytes(std::size_t(row_bytes(width, bits))),
                                       pack(pixels, bits)};
      image.header.biCompression = kRgb32;
      const Bytes file = encoded(encode_pict, image, rows);
      EXPECT_EQ(file.size() - 512, file[512] << 8 | file[513]);
      const CollectingSink sink = decoded(decode_pict, file);
      EXPECT_EQ(sink.header.header.biXPelsPerMeter, 300);
      if (bits <= 8) {
        EXPECT_EQ(sink.header.palette, image.palette);
      }
      const int depth = sink.header.header.biBitCount;
      ASSERT_EQ(depth, std::min(bits, 24));
      EXPECT_EQ(unpack(sink.rows.at(1).bytes, width, depth), pixels);
    }
  }
  const auto refused = [](int width, int height, int bits, bool cmyk = false) {
    HeaderBlock image = dib_header(width, height, bits);
    return pict::can_encode_pict({.stream{}, .image = &image, .rows{}, .cmyk = cmyk}).raw();
  };
  EXPECT_EQ(refused(4095, 32767, 24), 0);
  EXPECT_EQ(refused(4096, 1, 24), -7);
  EXPECT_EQ(refused(16383, 1, 8), -7);
  EXPECT_EQ(refused(1, 32768, 1), -7);
  EXPECT_EQ(refused(1, 1, 16), -21);
  EXPECT_EQ(refused(1, 1, 32, true), -21);
}

}  // namespace
}  // namespace tq::test
