// Rows of every kind of sample, whole, short, in strips of any order, of pages whose height is known
// and not: the image is what a plain model says.
#include "scan/page_builder.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::scan {
namespace {

using test::Bytes;
using test::Image;
using test::Random;

class PageBuilding : public test::LibraryTest {};

constexpr std::array<Rgb, 2> kColours = {Rgb{1, 2, 3, 0}, Rgb{9, 8, 7, 0}};

Bytes scanner_row(const PageShape& shape, Random& random) {
  return random.bytes(static_cast<std::size_t>(sample_bytes(shape)));
}

// The pixels of the library's row, as image_builder knows them. `row` may be cut short.
test::Pixels model(const PageShape& shape, const Bytes& row) {
  test::Pixels pixels;
  for (std::size_t x = 0; x < static_cast<std::size_t>(shape.width); ++x) {
    const auto at = [&](std::size_t i) -> std::uint32_t {
      const bool black_is_0 = shape.samples != Samples::black_bits;
      if (i >= row.size()) return black_is_0 && shape.samples != Samples::indices ? 255 : 0;
      return row[i];
    };
    const auto bytes = static_cast<std::size_t>(shape.sample_bytes);
    const auto high = [&](std::size_t sample) { return at(bytes * sample + bytes - 1); };
    switch (shape.samples) {
      case Samples::black_bits:
        pixels.push_back((at(x / 8) >> (7 - x % 8) & 1) ^ 1);
        break;
      case Samples::white_bits:
        pixels.push_back(at(x / 8) >> (7 - x % 8) & 1);
        break;
      case Samples::rgb:
        pixels.push_back(high(3 * x) << 16 | high(3 * x + 1) << 8 | high(3 * x + 2));
        break;
      default:
        pixels.push_back(high(x));
    }
  }
  return pixels;
}

test::Pixels row_of(const Image& image, std::int32_t y) {
  const ImageRecord& record = image.record();
  Bytes row(static_cast<std::size_t>(record.bytes_per_row));
  EXPECT_EQ(IMGLOW_get_raster(image, row.data(), y, 0), IMG_OK);
  return test::unpack(row, record.width, record.bits);
}

std::vector<PageShape> shapes() {
  std::vector<PageShape> all;
  for (const std::int32_t width : {1, 37, 200}) {
    for (const Samples samples : {Samples::black_bits, Samples::white_bits, Samples::grey,
                                  Samples::indices, Samples::rgb}) {
      all.push_back({.samples = samples, .width = width, .palette = kColours});
    }
    all.push_back({.samples = Samples::grey, .sample_bytes = 2, .width = width});
    all.push_back({.samples = Samples::rgb, .sample_bytes = 2, .width = width});
  }
  all.push_back({.samples = Samples::black_bits, .width = 70000});  // too wide for run lists
  return all;
}

TEST_F(PageBuilding, PixelsAreThoseOfTheModel) {
  Random random(1);
  for (PageShape shape : shapes()) {
    for (const bool known : {true, false}) {
      const std::int32_t rows = shape.width > 1000 ? 3 : known ? 9 : 2500;
      shape.height = known ? rows + 2 : -1;  // two never come
      shape.resolution = {203200, 97790};
      PageBuilder page;
      ASSERT_EQ(page.begin(shape), kOk);
      std::vector<Bytes> sent;
      for (std::int32_t y = 0; y < rows; ++y) {
        sent.push_back(scanner_row(shape, random));
        if (y % 3 == 1) sent.back().resize(sent.back().size() / 2 / 6 * 6);
        ASSERT_EQ(page.put_row(y, sent.back()), kOk);
      }
      EXPECT_EQ(page.put_row(-1, sent[0]), kOk);
      const Image image(page.finish().raw());
      ASSERT_GE(image, 0);
      const ImageRecord& record = image.record();
      EXPECT_EQ(record.height, rows);
      EXPECT_EQ(record.crop.height, rows);
      EXPECT_EQ(record.in_runs, record.bits == 1 && shape.width < 65534);
      EXPECT_EQ(header_of(record).biHeight, rows);
      EXPECT_EQ(header_of(record).biXPelsPerMeter, 203);
      EXPECT_EQ(resolution_of(record).y, 97790);
      if (record.bits < 24) {
        const Rgb ramp = record.bits == 1 ? Rgb{255, 255, 255, 0} : Rgb{1, 1, 1, 0};
        EXPECT_EQ(palette_of(record)[1], shape.samples == Samples::indices ? kColours[1] : ramp);
      }
      for (std::int32_t y = 0; y < rows; ++y) {
        ASSERT_EQ(row_of(image, y), model(shape, sent[static_cast<std::size_t>(y)])) << y;
      }
    }
  }
}

// A strip that comes out of order, rows that are left out, one that comes again.
TEST_F(PageBuilding, RowsMayComeAtAnyPlace) {
  for (const std::int32_t height : {8, -1}) {
    for (const Samples samples : {Samples::white_bits, Samples::grey, Samples::rgb}) {
      const PageShape shape{.samples = samples, .width = 16, .height = height};
      const Bytes black(static_cast<std::size_t>(sample_bytes(shape)), 0);
      PageBuilder page;
      ASSERT_EQ(page.begin(shape), kOk);
      EXPECT_EQ(page.finish(), StatusCode::bad_image) << "nothing has come";
      for (const std::int32_t y : {5, 2, 5, 6}) ASSERT_EQ(page.put_row(y, black), kOk);
      const Image image(page.finish().raw());
      EXPECT_EQ(image.record().height, 7);
      const test::Pixels white = model(shape, {});
      for (std::int32_t y = 0; y < 7; ++y) {
        const bool sent = y == 2 || y >= 5;
        EXPECT_EQ(row_of(image, y), sent ? test::Pixels(16, 0) : white) << y;
      }
    }
  }
}

TEST_F(PageBuilding, ThreePassesMakeColours) {
  PageBuilder page;
  const PageShape shape{.samples = Samples::rgb, .width = 2, .height = 3};
  ASSERT_EQ(page.begin(shape), kOk);
  for (const int channel : {2, 0, 1}) {
    const auto level = static_cast<std::uint8_t>(16 * channel + 1);
    for (std::int32_t y = 0; y < 3 - channel; ++y) {
      ASSERT_EQ(page.put_channel(y, channel, Bytes{level, byte(level + 1)}), kOk);
    }
  }
  const Image image(page.finish().raw());
  EXPECT_EQ(row_of(image, 0), (test::Pixels{0x011121, 0x021222}));
  EXPECT_EQ(row_of(image, 2), (test::Pixels{0x01FFFF, 0x02FFFF})) << "what did not come is white";
}

std::int32_t IMG_CB_STD delete_image(std::intptr_t image, std::int32_t) {
  return IMG_delete_bitmap(static_cast<std::int32_t>(image));
}
std::int32_t IMG_CB_STD replace_pixels(std::intptr_t image, std::int32_t) {
  IMG_set_statusbar(0, nullptr, 0);
  return IMG_promote_24(static_cast<std::int32_t>(image));
}
std::int32_t IMG_CB_STD refuse(std::intptr_t, std::int32_t) {
  return -77;
}

TEST_F(PageBuilding, CallbacksMayDoAnything) {
  const std::pair<img_progress_fn, std::int32_t> kCallbacks[] = {
      {delete_image, IMG_BAD_HANDLE}, {replace_pixels, IMG_BAD_HANDLE}, {refuse, -77}};
  for (const auto& [callback, result] : kCallbacks) {
    PageBuilder page;
    ASSERT_EQ(page.begin({.width = 8, .height = 2}), kOk);
    IMG_set_statusbar(0, callback, 1);
    EXPECT_EQ(page.put_row(0, Bytes(8)).raw(), result);
    IMG_set_statusbar(0, nullptr, 0);
    EXPECT_LT(page.finish().raw(), 0);
  }
}

TEST_F(PageBuilding, SizesAreChecked) {
  PageBuilder page;
  EXPECT_EQ(page.begin({.width = 0, .height = 1}), StatusCode::bad_image);
  EXPECT_EQ(page.begin({.samples = Samples::rgb, .width = INT32_MAX, .height = INT32_MAX}),
            StatusCode::out_of_memory);
  ASSERT_EQ(page.begin({.width = 100, .height = -1}), kOk);
  EXPECT_EQ(page.put_row(INT32_MAX, Bytes(100)), StatusCode::out_of_memory);
}

}  // namespace
}  // namespace tq::scan
