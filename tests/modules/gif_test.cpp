// The LZW module through the library: GIF files made by hand, written and read back.
#include <gmock/gmock.h>

#include <array>

#include "core/numbers.h"
#include "tests/modules/module_files.h"
#include "tests/support/bmp_file.h"
#include "tests/support/digest.h"
#include "tests/support/guarded_block.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using testing::ElementsAre;

class Gif : public testing::Test {
 protected:
  const InstalledModule module{"lzw_module", "trqvpl1"};
};

struct Picture {
  std::int32_t status = 0;
  std::int32_t bits = 0, transparent = 0;
  Rows rows{};
  Bytes palette{};
  friend bool operator==(const Picture&, const Picture&) = default;
};

Picture take(std::int32_t image) {
  Picture picture{.status = image};
  if (image < 0) return picture;
  picture.bits = header_of_image(image).biBitCount;
  picture.rows = rows_of_image(image);
  picture.palette.resize(1024);
  const std::int32_t entries = IMG_get_bitmap_palette(image, picture.palette.data());
  picture.palette.resize(4 * static_cast<std::size_t>(entries));
  picture.transparent = IMGLOW_get_transp_color(image);
  EXPECT_EQ(IMG_delete_bitmap(image), 0);
  return picture;
}

Picture decode(const Bytes& file, std::int32_t page = 0) {
  Picture whole = take(IMG_decompress_bitmap_block(file.data(), file.size(), page));
  MemoryFile pipe(file);
  pipe.most_per_call = 3;
  EXPECT_EQ(take(IMG_decompress_bitmap_fd(1, 0, page)), whole);
  return whole;
}

// A screen of 9 x 9 with four colours; frames of 2 x 2 pixels: clear, four colours, end.
const Bytes kScreen = {'G', 'I', 'F', '8', '9', 'a', 9,  0,  9,  0,   0x81, 0,  0,
                       0,   0,   0,   10,  20,  30,  40, 50, 60, 255, 255,  255};
// Codes are 3 bits wide until the eighth string is known, after the third pixel.
Bytes frame(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
  const std::uint32_t window = 4 | a << 3 | b << 6 | c << 9 | d << 12 | 5 << 16;
  return {
      0x2C, 1, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, byte(window), byte(window >> 8), byte(window >> 16),
      0};
}
const Bytes kControl = {0x21, 0xF9, 4, 1, 0, 0, 2, 0};
const Bytes kComment = {0x21, 0xFE, 3, 'a', 'b', 'c', 2, 'd', 'e', 0};

TEST_F(Gif, FramesAreChosenByPage) {
  const Bytes file =
      joined({kScreen, kComment, kControl, frame(0, 1, 2, 3), kComment, frame(3, 2, 1, 0), {0x3B}});
  const Picture first = decode(file);
  EXPECT_EQ(first.bits, 4);
  EXPECT_THAT(first.rows, ElementsAre(Bytes{0x01, 0, 0, 0}, Bytes{0x23, 0, 0, 0}));
  EXPECT_EQ(first.transparent, 2);
  EXPECT_THAT(Bytes(first.palette.begin(), first.palette.begin() + 8),
              ElementsAre(0, 0, 0, 0, 30, 20, 10, 0));
  const Picture second = decode(file, 1);
  EXPECT_THAT(second.rows, ElementsAre(Bytes{0x32, 0, 0, 0}, Bytes{0x10, 0, 0, 0}));
  EXPECT_EQ(second.transparent, IMG_NO_TRANSPARENCY);
  EXPECT_EQ(decode(file, 2).status, IMG_PAGE_PAST_END);
}

Bytes placed(Bytes frame, std::uint8_t x, std::uint8_t y) {
  frame[1] = x;
  frame[3] = y;
  return frame;
}
Bytes control(int disposal, std::uint16_t delay) {
  Bytes bytes = kControl;
  bytes[3] = byte(disposal << 2 | 1);
  bytes[4] = byte(delay);
  bytes[5] = byte(delay >> 8);
  return bytes;
}
std::uint64_t digest_of(std::int32_t canvas) {
  Digest digest;
  for (const Bytes& row : rows_of_image(canvas)) digest.add(row);
  return digest.value();
}

// Frames of all disposals, over the edge too; the digests are of what ImageMagick shows
// over white; Pillow agrees, but for what follows the frame over the edge.
TEST_F(Gif, AnimationsAreDrawnFrameByFrame) {
  const Bytes once_more = {0x21, 0xFF, 11,  'N', 'E', 'T', 'S', 'C', 'A', 'P',
                           'E',  '2',  '.', '0', 3,   1,   1,   0,   0};
  const Bytes file = joined({kScreen,
                             once_more,
                             control(1, 5),
                             placed(frame(0, 1, 2, 3), 0, 0),
                             control(2, 1),
                             placed(frame(1, 1, 0, 2), 1, 1),
                             control(3, 7),
                             placed(frame(0, 0, 1, 1), 1, 0),
                             control(0, 300),
                             placed(frame(1, 0, 0, 0), 8, 8),
                             control(3, 0),
                             placed(frame(0, 1, 1, 0), 2, 2),
                             placed(frame(1, 2, 2, 0), 0, 2),
                             {0x3B}});
  const ScratchFolder folder;
  const std::string name = folder.file("animation.gif");
  write_file(name, file);
  EXPECT_EQ(IMG_get_frame_delay(name.c_str(), 3), 3000);
  EXPECT_EQ(IMG_get_frame_delay(name.c_str(), 4), 0);
  EXPECT_EQ(IMG_get_frame_delay(name.c_str(), 5), IMG_NO_ANIMATION_DELAY);
  EXPECT_EQ(IMG_get_frame_delay(name.c_str(), 6), IMG_PAGE_PAST_END);
  EXPECT_EQ(IMG_get_frame_delay("nowhere.gif", 0), IMG_CANNOT_OPEN);
  const struct {
    std::uint64_t digest;
    std::int32_t delay;
  } kFrames[] = {{0x31c632e1ad2a57b4, 50},   {0xe43a98621a7a4a2d, 100}, {0xbce4d91b7f502f5, 70},
                 {0xffa8af36b0e7adf5, 3000}, {0xb908ceffec8252d, 100},  {0, 100}};
  const Image canvas(IMG_open_animation(name.c_str()));
  ASSERT_GE(canvas, 0);
  EXPECT_EQ(header_of_image(canvas).biBitCount, 32);
  EXPECT_EQ(digest_of(canvas), kFrames[0].digest);
  std::int32_t delay = 0, number = 0;
  for (int shown = 1; shown < 12; ++shown) {
    const auto& expected = kFrames[shown % 6];
    ASSERT_EQ(IMG_next_frame(canvas, &delay, &number), 1);
    EXPECT_EQ(number, shown % 6);
    EXPECT_EQ(delay, expected.delay);
    if (expected.digest != 0) {
      EXPECT_EQ(digest_of(canvas), expected.digest) << number;
    }
  }
  EXPECT_EQ(IMG_next_frame(canvas, &delay, &number), 0);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(IMG_mirror_bitmap(canvas), 0);
  EXPECT_EQ(IMG_next_frame(canvas, &delay, &number), 0);
  EXPECT_EQ(IMG_promote_24(canvas), 0);
  EXPECT_EQ(IMG_next_frame(canvas, &delay, &number), IMG_UNSUPPORTED);
}

std::int32_t IMG_CB_STD delete_canvas(std::intptr_t canvas, std::int32_t) {
  return IMG_delete_bitmap(*reinterpret_cast<std::int32_t*>(canvas));
}

TEST_F(Gif, AnimationsEndWithTheirImageAndWithBrokenFrames) {
  const ScratchFolder folder;
  // An animation keeps its file open.
  const auto open = [&](const char* name, const Bytes& file) {
    write_file(folder.file(name), file);
    return IMG_open_animation(folder.file(name).c_str());
  };
  Bytes second = frame(3, 2, 1, 0);
  second[10] = 9;  // bits of a pixel
  const Image canvas(open("broken.gif", joined({kScreen, frame(0, 1, 2, 3), second, {0x3B}})));
  EXPECT_EQ(IMG_next_frame(canvas, nullptr, nullptr), IMG_BAD_IMAGE);
  EXPECT_EQ(IMG_next_frame(canvas, nullptr, nullptr), IMG_UNSUPPORTED);
  std::int32_t deleted =
      open("two.gif", joined({kScreen, frame(0, 1, 2, 3), frame(3, 2, 1, 0), {0x3B}}));
  IMG_set_statusbar(reinterpret_cast<std::intptr_t>(&deleted), delete_canvas, 1);
  const std::int32_t result = IMG_next_frame(deleted, nullptr, nullptr);
  IMG_set_statusbar(0, nullptr, 0);
  if (result != IMG_BAD_HANDLE) {
    EXPECT_EQ(result, 1) << "the module reports no progress";
    IMG_delete_bitmap(deleted);
  }
  const Image still = make_image(2, 8, {{1, 2, 0, 0}});
  EXPECT_EQ(IMG_next_frame(still, nullptr, nullptr), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_open_animation("nowhere.gif"), IMG_CANNOT_OPEN);
  EXPECT_EQ(open("none.gif", kScreen), IMG_BAD_IMAGE);
}

// With READING the first frame stands at 1, 1 of the screen, whose other pixels are of the background.
TEST_F(Gif, TheFirstFrameIsShownOnTheScreen) {
  const Bytes pixels = frame(0, 1, 2, 3), trailer = {0x3B};
  const auto screen = [](std::uint8_t side, std::uint8_t background, std::uint8_t flags = 0x81) {
    Bytes bytes = kScreen;
    bytes[6] = bytes[8] = side;
    bytes[10] = flags;
    bytes[11] = background;
    if (flags == 0) bytes.resize(13);
    return bytes;
  };
  Bytes two = {0x2C, 1, 0, 1, 0, 2, 0, 1, 0, 0x80, 0, 0, 0, 255, 255, 255, 2, 2, 0x44, 0x0A, 0};
  const struct {
    const char* name;
    Bytes file;
    int bits;
    Rows rows;  // the first three
    std::size_t entry;
    Bytes colour;
  } cases[] = {
      {"background",
       joined({screen(5, 1), pixels}),
       4,
       {{0x11, 0x11, 0x10, 0}, {0x10, 0x11, 0x10, 0}, {0x12, 0x31, 0x10, 0}},
       1,
       {30, 20, 10}},
      {"transparent background",
       joined({screen(5, 2), kControl, pixels}),
       4,
       {{0x33, 0x33, 0x30, 0}, {0x30, 0x13, 0x30, 0}, {0x32, 0x33, 0x30, 0}},
       3,
       {255, 255, 255}},
      {"cut off",
       joined({screen(2, 1), pixels}),
       4,
       {{0x11, 0, 0, 0}, {0x10, 0, 0, 0}},
       1,
       {30, 20, 10}},
      {"a colour more",
       joined({screen(4, 1), two}),
       4,
       {{0x22, 0x22, 0, 0}, {0x20, 0x12, 0, 0}, {0x22, 0x22, 0, 0}},
       2,
       {30, 20, 10}},
      {"none",
       joined({screen(4, 1, 0), two}),
       1,
       {Bytes(4, 255), {0xBF, 255, 255, 255}, Bytes(4, 255)},
       1,
       {255, 255, 255}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    IMG_set_option(IMG_OPTION_READING, 1);
    const Bytes file = joined({c.file, pixels, trailer});
    const Picture shown = decode(file);
    HeaderBlock info;
    EXPECT_EQ(IMGLOW_get_fileinfo_block(file.data(), file.size(), &info), 0);
    EXPECT_EQ(decode(file, 1).rows.size(), 2u);
    IMG_set_option(IMG_OPTION_READING, 0);
    EXPECT_EQ(shown.bits, c.bits);
    EXPECT_EQ(info.header.biBitCount, c.bits);
    EXPECT_EQ(info.header.biWidth, c.file[6]);
    ASSERT_EQ(shown.rows.size(), c.file[8]);
    EXPECT_EQ(Rows(shown.rows.begin(), shown.rows.begin() + std::ssize(c.rows)), c.rows);
    EXPECT_TRUE(std::equal(c.colour.begin(), c.colour.end(), &shown.palette[4 * c.entry]));
  }
}

TEST_F(Gif, TwoColoursAreOneBitOnlyWhenTheyAreBlackAndWhite) {
  const struct {
    Bytes palette;
    int bits, pixels, transparent;
  } cases[] = {{{0, 0, 0, 255, 255, 255}, 1, 0x40, 0},
               {{255, 255, 255, 0, 0, 0}, 1, 0x80, 1},
               {{255, 0, 0, 0, 0, 0}, 4, 0x01, 0}};
  const Bytes control = {0x21, 0xF9, 4, 1, 0, 0, 0, 0};
  for (const auto& c : cases) {
    const Picture picture =
        decode(joined({{'G', 'I', 'F', '8', '7', 'a', 2, 0, 1, 0, 0x80, 0, 0},
                       c.palette,
                       control,
                       // Pixels 0, 1
                       {0x2C, 0, 0, 0, 0, 2, 0, 1, 0, 0, 2, 2, 0x44, 0x0A, 0, 0x3B}}));
    EXPECT_EQ(picture.bits, c.bits);
    EXPECT_EQ(picture.transparent, c.transparent);
    EXPECT_EQ(picture.rows.at(0).at(0) & (c.bits == 1 ? 0xC0 : 0xFF), c.pixels);
  }
}

// Strings of all lengths and code tables that fill up. The code behind the last pixel grows with the
// next string, too.
TEST_F(Gif, WhatIsWrittenReadsBackAndIsTheSameAsEver) {
  Digest digest;
  Random random(3);
  for (std::int32_t width = 1; width <= 600; ++width) {
    const int bits = std::array{8, 1, 4}[width % 3];
    Rows rows(width % 100 == 0 ? 90u : 1u);
    for (Bytes& row : rows) row = pack(random.pixels(width, bits), bits);
    const Image image = make_image(width, bits, rows);
    EXPECT_EQ(IMGLOW_set_transp_color(image, 1), 0);
    for (const std::int32_t code : {IMG_TYPE_GIF, IMG_TYPE_GIF_INTERLACED}) {
      Bytes file(100000);
      const std::int32_t size = IMG_save_bitmap_block(image, file.data(), file.size(), code);
      ASSERT_GT(size, 0);
      file.resize(static_cast<std::size_t>(size));
      digest.add(file);
      // In memory that does not say where it ends nothing behind the file is touched.
      const GuardedBlock block(file);
      const Picture back = take(IMG_decompress_bitmap_mem(block.data(), 0));
      EXPECT_EQ(back.transparent, 1);
      EXPECT_EQ(back.bits, std::max(bits, 4)) << "two colours that are both black";
      if (bits > 1) {
        EXPECT_EQ(back.rows, rows) << width;
      }
    }
  }
  EXPECT_EQ(digest.value(), 0xD2A87B61895C1695);
}

TEST_F(Gif, RefusesOtherDepthsAndShortWrites) {
  for (const int bits : {16, 24, 32, 8}) {
    const Image image = make_image(3, bits, Rows(3, Bytes(12)));
    Bytes block(100);
    EXPECT_EQ(IMG_save_bitmap_block(image, block.data(), 100, IMG_TYPE_GIF), bits == 8 ? -9 : -21);
  }
}

}  // namespace
}  // namespace tq::test
