// What is set on images for showing: tone, also of files; who is told.
#include <algorithm>

#include "pixels/tone_table.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

using Display = LibraryTest;

Bytes saved(std::int32_t image, std::int32_t code) {
  Bytes file(20000);
  const std::int32_t bytes = IMG_save_bitmap_block(image, file.data(), file.size(), code);
  EXPECT_GT(bytes, 0);
  file.resize(static_cast<std::size_t>(std::max(bytes, 0)));
  return file;
}

// Files of an image with a tone are those of an image that was toned by hand.
TEST_F(Display, FilesHaveTheTone) {
  struct {
    const char* name;
    int bits;
    std::int32_t code;
    bool inks, in_runs;
  } const kCases[] = {{"black and white", 1, IMG_TYPE_BMP, false, false},
                      {"run lists", 1, IMG_TYPE_BMP, false, true},
                      {"colours", 8, IMG_TYPE_BMP, false, false},
                      {"24 bits", 24, IMG_TYPE_BMP, false, false},
                      {"inks", 32, IMG_TYPE_TIFF, true, false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    Random random(4);
    Rows rows;
    for (int y = 0; y < 5; ++y) rows.push_back(random.bytes(stride(9, c.bits)));
    const Image image = make_image(9, c.bits, rows, c.in_runs);
    if (c.bits == 8) {
      const Bytes palette = random.bytes(1024);
      IMGLOW_put_palette(image, palette.data());
    }
    const Bytes before = saved(image, c.code);
    IMG_set_display_tone(image, 0, 0);
    IMG_set_gamma(image, 300);  // shows only
    ASSERT_EQ(saved(image, c.code), before);
    ASSERT_EQ(IMG_set_display_tone(image, 20, -35), IMG_OK);
    const Bytes after = saved(image, c.code);
    ASSERT_NE(after, before);
    const auto tone = pixels::tone_table(20, -35, 100);
    const auto toned = [&](std::uint8_t level) -> std::uint8_t {
      return c.inks ? static_cast<std::uint8_t>(255 - tone[255 - level]) : tone[level];
    };
    IMG_set_display_tone(image, 0, 0);
    ImageRecord& record = image.record();
    if (c.bits < 24) {
      for (Rgb& entry : palette_of(record)) {
        entry = {toned(entry.blue), toned(entry.green), toned(entry.red), entry.reserved};
      }
    } else {
      for (int y = 0; y < 5; ++y)
        std::ranges::transform(plain_row(record, y), plain_row(record, y).begin(), toned);
    }
    EXPECT_EQ(saved(image, c.code), after);
  }
}

TEST_F(Display, ToneThenGammaOnWhatIsShown) {
  const Image image = make_image(4, 24, {{0, 60, 120, 130, 180, 200, 220, 240, 255, 1, 2, 3}});
  img_view view{};
  view.bytes = sizeof view;
  view.width = 4;
  view.height = 1;
  const auto shown = [&] {
    Bytes pixels(12);
    EXPECT_EQ(IMGLOW_render_view(image, &view, IMG_PIXELS_BGR, pixels.data(), 12, 0, 1), IMG_OK);
    return pixels;
  };
  const Bytes stored = rows_of_image(image)[0];
  EXPECT_EQ(shown(), stored) << "a gamma that nobody has set";
  EXPECT_EQ(IMG_set_display_tone(image, 101, 0), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_set_display_tone(image, 0, -101), IMG_UNSUPPORTED);
  struct {
    std::int32_t brightness, contrast, gamma, used;
  } const kCases[] = {
      {0, 0, 60, 60}, {10, 30, 220, 220}, {-5, 0, 1, 10}, {0, 9, 5000, 1000}, {7, 100, 0, 100}};
  for (const auto& c : kCases) {
    IMG_set_display_tone(image, c.brightness, c.contrast);
    IMG_set_gamma(image, c.gamma);
    const auto table = pixels::tone_table(c.brightness, c.contrast, c.used);
    Bytes expected = stored;
    for (std::uint8_t& level : expected) level = table[level];
    EXPECT_EQ(shown(), expected) << c.gamma;
  }
  view.flags = IMG_VIEW_NO_TONE;
  EXPECT_EQ(shown(), stored);
}

struct Event {
  std::int32_t image, what;
  friend bool operator==(const Event&, const Event&) = default;
};
std::int32_t IMG_CB_STD note(std::intptr_t events, std::int32_t image, std::int32_t what) {
  // Calls back: the image is there, whatever happens to it.
  EXPECT_EQ(IMG_get_croprect(image, nullptr, nullptr, nullptr, nullptr), IMG_OK);
  reinterpret_cast<std::vector<Event>*>(events)->push_back({image, what});
  return -1;
}

TEST_F(Display, TheCallbackIsToldOfImages) {
  std::vector<Event> events;
  IMG_set_display_callback(reinterpret_cast<std::intptr_t>(&events), note);
  const HeaderBlock header = dib_header(3, 2, 24);
  const std::int32_t image = IMG_create_handle_shell(&header);
  const Bytes row(12);
  IMGLOW_put_raster(image, row.data(), 1, 0);
  IMG_invert_bitmap(image);
  EXPECT_LT(IMG_dib_to_runs(image), 0);
  const Bytes file = saved(image, IMG_TYPE_BMP);
  const std::int32_t decoded = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
  EXPECT_LT(IMG_decompress_bitmap_block(file.data(), 20, 0), 0);
  IMG_delete_bitmap(image);
  IMG_delete_bitmap(image);
  IMG_set_display_callback(0, nullptr);
  IMG_delete_bitmap(decoded);
  const std::vector<Event> expected = {{image, IMG_IMAGE_MADE},
                                       {image, IMG_IMAGE_CHANGED},
                                       {image, IMG_IMAGE_CHANGED},
                                       {decoded, IMG_IMAGE_MADE},
                                       {image, IMG_IMAGE_GOING}};
  EXPECT_EQ(events, expected);
}

}  // namespace
}  // namespace tq::test
