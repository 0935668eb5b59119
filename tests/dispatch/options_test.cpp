// What options change on the way from a decoder to an image.
#include <algorithm>
#include <cstring>

#include "tests/support/collecting_sink.h"
#include "tests/support/corpus.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class Options : public LibraryTest {
 protected:
  ~Options() override {
    for (const std::int32_t option :
         {IMG_OPTION_ORIENTATION, IMG_OPTION_INKS, IMG_OPTION_DETECTION}) {
      IMG_set_option(option, 0);
    }
    IMGLOW_set_decompsize(0, 0);
    IMGLOW_set_decomp_rect(0, 0, 0, 0);
  }
};

Bytes tiff_of(std::int32_t image, int orientation) {
  Bytes file(300000);
  const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), IMG_TYPE_TIFF);
  EXPECT_GT(bytes, 0);
  file.resize(static_cast<std::size_t>(bytes));
  const Bytes entry = {18, 1, 3, 0, 1, 0, 0, 0, 1, 0};  // Orientation, of a SHORT: 1
  const auto found = std::search(file.begin(), file.end(), entry.begin(), entry.end());
  EXPECT_NE(found, file.end());
  found[8] = byte(orientation);
  return file;
}

Image decode(const Bytes& file) {
  return Image(IMG_decompress_bitmap_block(file.data(), file.size(), 0));
}

std::vector<Pixels> picture_of(std::int32_t image) {
  const BitmapInfoHeader header = header_of_image(image);
  std::vector<Pixels> picture;
  for (const Bytes& row : rows_of_image(image)) {
    picture.push_back(unpack(row, header.biWidth, header.biBitCount));
  }
  return picture;
}

// Pixel by pixel, as TIFF 6.0 says what the first row and the first column are.
std::vector<Pixels> turned(const std::vector<Pixels>& from, int orientation) {
  const std::size_t width = from[0].size(), height = from.size();
  const bool swapped = orientation >= 5;
  std::vector<Pixels> to(swapped ? width : height, Pixels(swapped ? height : width));
  for (std::size_t row = 0; row < height; ++row) {
    for (std::size_t column = 0; column < width; ++column) {
      const std::size_t right = width - 1 - column, bottom = height - 1 - row;
      const std::size_t x[] = {column, right, right, column, row, bottom, bottom, row};
      const std::size_t y[] = {row, row, bottom, bottom, column, column, right, right};
      to[y[orientation - 1]][x[orientation - 1]] = from[row][column];
    }
  }
  return to;
}

TEST_F(Options, ImagesAreTurnedAsTheirFileSays) {
  Random random(3);
  struct {
    std::int32_t width, height;
    int bits;
  } const cases[] = {{37, 21, 1}, {8, 8, 1},  {3, 70, 1}, {700, 9, 1}, {13, 6, 4},
                     {12, 7, 8},  {5, 9, 16}, {9, 5, 24}, {1, 4, 32}};
  for (const auto& [width, height, bits] : cases) {
    Rows rows;
    for (std::int32_t y = 0; y < height; ++y)
      rows.push_back(pack(random.pixels(width, bits), bits));
    const Image image = make_image(width, bits, rows);
    ASSERT_EQ(IMG_set_resolution(image, 200000, 100000), 0);
    const std::vector<Pixels> upright = picture_of(decode(tiff_of(image, 1)));
    for (int orientation = 1; orientation <= 8; ++orientation) {
      SCOPED_TRACE(testing::Message() << width << " x " << height << ", " << bits
                                      << " bits, orientation " << orientation);
      const Bytes file = tiff_of(image, orientation);
      EXPECT_EQ(IMGLOW_get_image_orientation_block(file.data(), file.size()), orientation);
      EXPECT_EQ(picture_of(decode(file)), upright);
      IMG_set_option(IMG_OPTION_ORIENTATION, 1);
      const Image shown = decode(file);
      IMG_set_option(IMG_OPTION_ORIENTATION, 0);
      EXPECT_EQ(picture_of(shown), turned(upright, orientation));
      std::int32_t x = 0, y = 0;
      EXPECT_EQ(IMG_get_resolution(shown, &x, &y), 0);
      EXPECT_EQ(x, orientation < 5 ? 200000 : 100000);
      EXPECT_EQ(header_of_image(shown).biYPelsPerMeter, orientation < 5 ? 100 : 200);
    }
  }
}

// The size and the rectangle to decode are those of the picture as it is shown.
TEST_F(Options, SettingsOfDecodingApplyToTheTurnedPicture) {
  Random random(4);
  Rows rows;
  for (int y = 0; y < 30; ++y) rows.push_back(pack(random.pixels(50, 8), 8));
  const Image image = make_image(50, 8, rows);
  IMG_set_option(IMG_OPTION_ORIENTATION, 1);
  const Image shown = decode(tiff_of(image, 6));
  const Bytes upright = tiff_of(shown, 1), file = tiff_of(image, 6);
  IMGLOW_set_decompsize(11, 17);
  EXPECT_EQ(picture_of(decode(file)), picture_of(decode(upright)));
  EXPECT_EQ(header_of_image(decode(file)).biWidth, 11);
  IMGLOW_set_decompsize(0, 0);
  IMGLOW_set_decomp_rect(5, 7, 20, 30);
  EXPECT_EQ(picture_of(decode(file)), picture_of(decode(upright)));
  EXPECT_EQ(header_of_image(decode(file)).biHeight, 30);
}

void reverse(Bytes& file, std::size_t at, std::size_t bytes) {
  const auto first = file.begin() + static_cast<std::ptrdiff_t>(at);
  std::reverse(first, first + static_cast<std::ptrdiff_t>(bytes));
}

// Header and colours, of what is no pixels.
Bytes with_low_bytes_first(Bytes dump) {
  const std::size_t header = dump[2] << 8 | dump[3], colours = dump[78] << 8 | dump[79];
  for (std::size_t field = 0; field < 100; field += 4) reverse(dump, field, 4);
  for (std::size_t at = header; at < header + 12 * colours; at += 12) {
    reverse(dump, at, 4);
    for (std::size_t level = 4; level < 10; level += 2) reverse(dump, at + level, 2);
  }
  return dump;
}

TEST_F(Options, FilesOfAnotherBeginningHoldTheSamePicture) {
  int files = 0;
  for (const CorpusFile& file : corpus_files()) {
    Bytes other = file.bytes;
    if (file.name.ends_with(".xwd")) {
      other = with_low_bytes_first(other);
    } else if (file.name.ends_with(".pct")) {
      other.erase(other.begin(), other.begin() + 512);
    } else if (file.name.ends_with(".xbm")) {
      const std::string comment = "/* made by hand */\n\n/**/ ";
      other.insert(other.begin(), comment.begin(), comment.end());
    } else {
      continue;
    }
    SCOPED_TRACE(file.name);
    ++files;
    IMG_set_option(IMG_OPTION_DETECTION, 0);
    EXPECT_EQ(IMG_decompress_bitmap_block(other.data(), other.size(), 0), IMG_UNSUPPORTED);
    IMG_set_option(IMG_OPTION_DETECTION, 1);
    const Image expected = decode(file.bytes), shown = decode(other);
    ASSERT_GE(shown, 0);
    EXPECT_EQ(picture_of(shown), picture_of(expected));
  }
  EXPECT_GE(files, 20);
}

TEST_F(Options, InksArriveAsTheColoursTheyLookLike) {
  Random random(5);
  const Image inks =
      make_image(7, 32, {pack(random.pixels(7, 32), 32), pack(random.pixels(7, 32), 32)});
  auto* const header = reinterpret_cast<BitmapInfoHeader*>(inks.record().dib);
  header->biCompression = 0;
  const Bytes file = tiff_of(inks, 1);
  const std::vector<Pixels> stored = picture_of(decode(file));
  IMG_set_option(IMG_OPTION_INKS, 1);
  const Image image = decode(file);
  ASSERT_EQ(header_of_image(image).biBitCount, 24);
  const std::vector<Pixels> shown = picture_of(image);
  for (std::size_t y = 0; y < stored.size(); ++y) {
    for (std::size_t x = 0; x < stored[y].size(); ++x) {
      const auto ink = [&](int i) { return static_cast<int>(stored[y][x] >> 8 * i & 0xFF); };
      std::uint32_t expected = 0;
      for (int i = 0; i < 3; ++i) {
        const int level = ((255 - ink(i)) * (255 - ink(3)) + 127) / 255;
        expected |= static_cast<std::uint32_t>(level) << 8 * (2 - i);
      }
      ASSERT_EQ(shown[y][x], expected);
    }
  }
  std::array<std::int32_t, 10> info{};
  EXPECT_EQ(IMGLOW_get_fileinfo_block(file.data(), file.size(), info.data()), 0);
  EXPECT_EQ(info[3] >> 16, 24);
}

}  // namespace
}  // namespace tq::test
