// What the exports answer: to handles that name nothing, to an image without pixels, to null
// pointers; the crop rectangle and the values that an image carries.
#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <functional>

#include "core/numbers.h"
#include "tests/support/guarded_block.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class ImageExports : public LibraryTest {};

struct Export {
  const char* name;
  std::function<std::int64_t(std::int32_t)> call;
  bool needs_pixels = true;
};

std::uint8_t buffer[4096];
std::int32_t IMG_CB_C supply_nothing(void*, void*, std::int32_t, std::int32_t) {
  return 0;
}

const std::vector<Export>& exports_on_images() {
  static const std::vector<Export> exports = {
      {"bitmap_info", [](auto h) { return IMG_bitmap_info(h, nullptr, nullptr, nullptr); }},
      {"bitmap_header", [](auto h) { return IMGLOW_get_bitmap_header(h, buffer); }},
      {"get_raster", [](auto h) { return IMGLOW_get_raster(h, buffer, 0, 1); }},
      {"put_raster", [](auto h) { return IMGLOW_put_raster(h, buffer, 0, 1); }},
      {"get_palette", [](auto h) { return IMGLOW_get_palette(h, buffer); }},
      {"put_palette", [](auto h) { return IMGLOW_put_palette(h, buffer); }},
      {"bitmap_palette", [](auto h) { return IMG_bitmap_palette(h); }},
      {"get_bitmap_palette", [](auto h) { return IMG_get_bitmap_palette(h, buffer); }},
      {"runs_to_dib", [](auto h) { return IMG_runs_to_dib(h); }},
      {"dib_to_runs", [](auto h) { return IMG_dib_to_runs(h); }},
      {"save", [](auto h) { return IMG_save_bitmap(h, "nowhere/at/all.bmp", 1); }},
      {"save_fd", [](auto h) { return IMG_save_bitmap_fd(h, -1, 1); }},
      {"save_mem", [](auto h) { return IMG_save_bitmap_mem(h, buffer, 1); }},
      {"save_block", [](auto h) { return IMG_save_bitmap_block(h, buffer, sizeof buffer, 1); }},
      {"get_croprect",
       [](auto h) { return IMG_get_croprect(h, nullptr, nullptr, nullptr, nullptr); }, false},
      {"set_croprect", [](auto h) { return IMG_set_croprect(h, 0, 0, 1, 1); }, false},
      {"display_rect",
       [](auto h) { return IMGLOW_get_display_rect(h, nullptr, nullptr, nullptr, nullptr); },
       false},
      {"gamma", [](auto h) { return IMG_set_gamma(h, 1); }, false},
      {"rop", [](auto h) { return IMGLOW_set_rop(h, 1); }, false},
      {"angle", [](auto h) { return IMG_set_display_angle(h, 90); }, false},
      {"set_transp", [](auto h) { return IMGLOW_set_transp_color(h, 0); }, false},
      {"get_transp", [](auto h) { return IMGLOW_get_transp_color(h); }, false},
  };
  return exports;
}

TEST_F(ImageExports, RefuseHandlesThatNameNoImage) {
  const Image low = make_image(1, 1, Rows(1, Bytes(4)));
  Image middle = make_image(1, 1, Rows(1, Bytes(4)));
  const Image high = make_image(1, 1, Rows(1, Bytes(4)));
  const std::int32_t freed = middle.release();
  ASSERT_EQ(IMG_delete_bitmap(freed), 0);
  for (const std::int32_t handle : {-1, INT_MIN, INT_MAX, high + 1, 9999, 10000, 65536, freed}) {
    for (const Export& tested : exports_on_images()) {
      EXPECT_EQ(tested.call(handle), -13) << tested.name << ' ' << handle;
    }
    EXPECT_EQ(IMG_delete_bitmap(handle), -13);
    EXPECT_EQ(IMG_delete_bitmap_keep(handle), -13);
  }
  // The handle is looked at before anything else.
  EXPECT_EQ(IMG_save_bitmap(freed, nullptr, 77), -13);
  EXPECT_EQ(IMG_save_bitmap_mem(freed, nullptr, 77), -13);
  EXPECT_EQ(IMGLOW_get_raster(freed, nullptr, -1, -1), -13);
  EXPECT_EQ(IMG_set_display_angle(freed, 45), -13);
}

TEST_F(ImageExports, HandleLeftByBadGeometryHasNoPixelsButCanBeDeleted) {
  for (const auto& [width, height, bits] : std::vector<std::array<int, 3>>{
           {0, 1, 8}, {1, 0, 8}, {1, 1, 0}, {-5, 1, 1}, {1, INT_MIN, 24}, {1, 1, 33}}) {
    HeaderBlock dib = dib_header(width, height, bits);
    EXPECT_EQ(IMG_create_handle_keep(&dib), -3);
    for (const Export& tested : exports_on_images()) {
      EXPECT_EQ(tested.call(0), tested.needs_pixels ? -1 : 0) << tested.name;
    }
    EXPECT_EQ(IMG_create_handle_keep(&dib), -3) << "and takes the next handle";
    EXPECT_EQ(IMG_delete_bitmap(1), 0);
    EXPECT_EQ(IMG_delete_bitmap_keep(0), 0);
  }
}

// The clipboard's bitmaps: with the options, those of a core header too.
TEST_F(ImageExports, BitmapsInMemoryEndWhereTheCallerSays) {
  const GuardedBlock core(Bytes{12, 0, 0, 0, 3, 0, 2, 0, 1, 0, 24, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  EXPECT_EQ(IMG_create_handle_block(core.data(), core.size()), -7);
  IMG_set_option(IMG_OPTION_DETECTION, 1);
  IMG_set_option(IMG_OPTION_READING, 1);
  {
    const Image image(IMG_create_handle_block(core.data(), core.size()));
    EXPECT_EQ(rows_of_image(image), (Rows{Bytes(12), {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}}));
  }
  IMG_set_option(IMG_OPTION_DETECTION, 0);
  IMG_set_option(IMG_OPTION_READING, 0);
}

TEST_F(ImageExports, NullPointersAreRefusedOrSkipped) {
  const Image image = make_image(3, 8, {{1, 2, 3, 4}, {5, 6, 7, 8}});
  const std::vector<std::pair<std::int64_t, std::int64_t>> answers = {
      {IMG_create_handle_keep(nullptr), -3},
      {IMG_create_handle_shell(nullptr), -3},
      {IMG_create_handle(nullptr), -7},
      {IMG_create_handle_block(nullptr, 10), -7},
      {IMG_create_handle_ddb(nullptr), -8},
      {IMGLOW_get_raster(image, nullptr, 0, 0), -7},
      {IMGLOW_put_raster(image, nullptr, 0, 0), -7},
      {IMGLOW_get_bitmap_header(image, nullptr), 0},
      {IMGLOW_get_palette(image, nullptr), 0},
      {IMGLOW_put_palette(image, nullptr), 0},
      {IMG_get_bitmap_palette(image, nullptr), 256},
      {IMG_decompress_bitmap(nullptr), -2},
      {IMG_decompress_bitmap_mem(nullptr, 0), -7},
      {IMG_decompress_bitmap_block(nullptr, 10, 0), -7},
      {IMGLOW_decompress_bitmap_mem(nullptr, 0, nullptr, nullptr, nullptr), -7},
      {IMGLOW_decompress_bitmap_block(nullptr, 10, 0, nullptr, nullptr, nullptr), -7},
      {IMGLOW_get_filetype(nullptr), -2},
      {IMGLOW_get_filetype_mem(nullptr), -7},
      {IMGLOW_get_filetype_block(nullptr, 10), -7},
      {IMGLOW_get_pages(nullptr), -2},
      {IMGLOW_get_pages_mem(nullptr), -7},
      {IMGLOW_get_pages_block(nullptr, 10), -7},
      {IMGLOW_get_fileinfo_mem(nullptr, buffer), -7},
      {IMG_save_bitmap(image, nullptr, 1), -2},
      {IMG_save_bitmap(image, nullptr, -1), -2},
      {IMG_save_bitmap_mem(image, nullptr, 1), -7},
      {IMG_save_bitmap_block(image, nullptr, 10, 1), -7},
      {IMGLOW_save_bitmap(IMG_MEMORY_STREAM, nullptr, 1, supply_nothing, nullptr), -3},
      {IMGLOW_save_bitmap_mem(nullptr, buffer, 1, supply_nothing, nullptr), -7},
      {IMG_ifl_version(nullptr, nullptr), 0},
  };
  for (std::size_t i = 0; i < answers.size(); ++i) {
    EXPECT_EQ(answers[i].first, answers[i].second) << "line " << i;
  }
}

TEST_F(ImageExports, CropRectangleIsClampedAxisByAxis) {
  const std::vector<std::array<std::int32_t, 4>> axis_of_ten = {
      {0, 10, 0, 9},      {0, 9, 0, 9},           {0, 8, 0, 8},       {3, 4, 3, 4},
      {3, 6, 3, 6},       {3, 7, 3, 6},           {3, INT_MAX, 3, 6}, {9, 1, 9, 0},
      {9, 0, 9, 0},       {8, 1, 8, 1},           {8, -7, 8, 1},      {10, 3, 0, 3},
      {-1, 3, 0, 3},      {INT_MIN, 2, 0, 2},     {INT_MAX, 2, 0, 2}, {5, INT_MIN, 5, 1},
      {9, INT_MAX, 9, 0}, {1, INT_MAX - 1, 1, 8}, {10, 10, 0, 9},
  };
  const Image wide = make_image(10, 8, Rows(40, Bytes(12)));
  const Image high = make_image(40, 8, Rows(10, Bytes(40)));
  for (const auto& [from, side, clamped_from, clamped_side] : axis_of_ten) {
    std::int32_t x = 0, y = 0, w = 0, h = 0;
    ASSERT_EQ(IMG_set_croprect(wide, from, 7, side, 11), 0);
    ASSERT_EQ(IMG_get_croprect(wide, &x, &y, &w, &h), 0);
    EXPECT_THAT((std::array{x, y, w, h}), testing::ElementsAre(clamped_from, 7, clamped_side, 11));
    ASSERT_EQ(IMG_set_croprect(high, 7, from, 11, side), 0);
    ASSERT_EQ(IMG_get_croprect(high, &x, nullptr, nullptr, &h), 0);
    ASSERT_EQ(IMG_get_croprect(high, nullptr, &y, &w, nullptr), 0);
    EXPECT_THAT((std::array{x, y, w, h}), testing::ElementsAre(7, clamped_from, 11, clamped_side));
  }
}

TEST_F(ImageExports, ValuesBelongToOneImage) {
  const Image image = make_image(2, 8, Rows(2, Bytes(4)));
  const Image other = make_image(2, 8, Rows(2, Bytes(4)));
  for (const auto& [set, kept] : {std::pair{0x7FFFFE05, 5}, {-1, 255}}) {
    EXPECT_EQ(IMGLOW_set_transp_color(image, set), 0);
    EXPECT_EQ(IMGLOW_get_transp_color(image), kept);
  }
  for (const std::int32_t angle : {90, 180, 0, 270, 1, -90, 45, 360, INT_MIN}) {
    const bool right = angle >= 0 && angle < 360 && angle % 90 == 0;
    EXPECT_EQ(IMG_set_display_angle(image, angle), right ? 0 : -7);
    EXPECT_EQ(image.record().display_angle, right ? angle : 270);
  }
  EXPECT_EQ(IMGLOW_get_transp_color(other), -26);
  EXPECT_EQ(other.record().display_angle, 0);
}

TEST_F(ImageExports, RasterAccessStaysInsideTheRow) {
  for (const bool in_runs : {false, true}) {
    const Image image = make_image(33, 1, Rows(2, Bytes(8, 0xFF)), in_runs);
    for (const auto& [row, bytes] : std::vector<std::pair<int, int>>{
             {-1, 0}, {2, 0}, {0, -1}, {INT_MIN, 8}, {INT_MAX, 8}, {0, INT_MIN}}) {
      Bytes out(8, 0x11);
      EXPECT_EQ(IMGLOW_get_raster(image, out.data(), row, bytes), -7);
      EXPECT_EQ(out, Bytes(8, 0x11));
      EXPECT_EQ(IMGLOW_put_raster(image, out.data(), row, bytes), -7);
    }
    const Bytes row(8, 0xFF);  // exactly as long as what may be touched
    EXPECT_EQ(IMGLOW_put_raster(image, row.data(), 0, INT_MAX), 0);
    EXPECT_EQ(rows_of_image(image), Rows(2, row));
  }
}

TEST_F(ImageExports, WritesThroughTheHeadersAddressDoNotMoveRows) {
  const Bytes second = {6, 7, 8, 9, 10, 0, 0, 0};
  const Image image = make_image(5, 8, {{1, 2, 3, 4, 5, 0, 0, 0}, second});
  const HeaderBlock lies = dib_header(1 << 30, -4, 32);
  std::memcpy(reinterpret_cast<void*>(IMG_bitmap_info(image, nullptr, nullptr, nullptr)), &lies,
              40);
  std::int32_t width = 0;
  IMG_bitmap_info(image, &width, nullptr, nullptr);
  EXPECT_EQ(width, 1 << 30) << "the header is what the caller made of it";
  Bytes row(8);
  EXPECT_EQ(IMGLOW_get_raster(image, row.data(), 1, 0), 0);
  EXPECT_EQ(row, second);
  EXPECT_EQ(IMG_bitmap_palette(image), 256);
  EXPECT_EQ(IMG_save_bitmap_block(image, buffer, sizeof buffer, 1), 54 + 1024 + 16);
  EXPECT_EQ(buffer[18], 5);
}

// As another program reads it: header, colours, rows from the bottom.
TEST_F(ImageExports, CopiesAreWhatEveryProgramTakes) {
  Random random(9);
  struct {
    int bits, copied;
  } const kinds[] = {{1, 1}, {4, 4}, {8, 8}, {16, 8}, {24, 24}, {32, 24}};
  for (const auto& [bits, copied] : kinds) {
    SCOPED_TRACE(bits);
    Rows rows;
    for (int y = 0; y < 6; ++y) rows.push_back(pack(random.pixels(21, bits), bits));
    const Image image = make_image(21, bits, rows, bits == 1);
    if (bits == 32) reinterpret_cast<BitmapInfoHeader*>(image.record().dib)->biCompression = 0;
    ASSERT_EQ(IMG_set_resolution(image, 300000, 150000), 0);
    ASSERT_EQ(IMGLOW_set_transp_color(image, 1), 0);
    ASSERT_EQ(IMG_set_croprect(image, 3, 1, 10, 4), 0);
    const std::int32_t colours = copied <= 8 ? 1 << copied : 0;
    const std::int32_t size = IMG_copy_dib(image, nullptr, 0);
    ASSERT_EQ(size, 40 + 4 * colours + 4 * static_cast<int>(stride(10, copied)));
    Bytes dib(static_cast<std::size_t>(size), 0xEE);
    EXPECT_EQ(IMG_copy_dib(image, dib.data(), dib.size() - 1), size);
    EXPECT_EQ(dib[0], 0xEE);
    EXPECT_EQ(IMG_copy_dib(image, dib.data(), dib.size()), size);
    const BitmapInfoHeader expected{
        .biSize = 40,
        .biWidth = 10,
        .biHeight = 4,
        .biPlanes = 1,
        .biBitCount = word(copied),
        .biCompression = 0,
        .biSizeImage = static_cast<std::uint32_t>(4 * stride(10, copied)),
        .biXPelsPerMeter = 11811,
        .biYPelsPerMeter = 5906,
        .biClrUsed = static_cast<std::uint32_t>(colours),
        .biClrImportant = 0};
    EXPECT_EQ(std::memcmp(dib.data(), &expected, sizeof expected), 0);
    if (bits == 16) {
      for (std::size_t i = 0; i < 256; ++i) {
        EXPECT_EQ(std::memcmp(&dib[40 + 4 * i], Bytes{byte(i), byte(i), byte(i), 0}.data(), 4), 0);
      }
    }
    for (std::size_t y = 0; y < 4; ++y) {
      const auto at = dib.end() - static_cast<std::ptrdiff_t>((y + 1) * stride(10, copied));
      const Pixels got =
          unpack(Bytes(at, at + static_cast<std::ptrdiff_t>(stride(10, copied))), 10, copied);
      const Pixels all = unpack(rows[1 + y], 21, bits);
      for (std::size_t x = 0; x < 10; ++x) {
        std::uint32_t pixel = all[3 + x];
        if (bits == 16) pixel >>= 8;
        if (bits == 32) {
          const std::uint32_t light = 255 - (pixel >> 24);
          const auto level = [&](int i) {
            return ((255 - (pixel >> 8 * i & 255)) * light + 127) / 255;
          };
          pixel = level(0) << 16 | level(1) << 8 | level(2);
        }
        ASSERT_EQ(got[x], pixel);
      }
    }
  }
  EXPECT_EQ(IMG_copy_dib(77, nullptr, 0), IMG_BAD_HANDLE);
}

}  // namespace
}  // namespace tq::test
