// Where pictures lie in windows, and points there and back.
#include "show/view.h"

#include <cstddef>

#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

using Views = LibraryTest;

img_view view_of(std::int32_t width, std::int32_t height, std::int32_t fit) {
  img_view view{};
  view.bytes = sizeof view;
  view.width = width;
  view.height = height;
  view.fit = fit;
  return view;
}

Image blank(std::int32_t width, std::int32_t height, std::int32_t x_dpi = 0,
            std::int32_t y_dpi = 0) {
  Image image =
      make_image(width, 8, Rows(static_cast<std::size_t>(height), Bytes(stride(width, 8))));
  IMG_set_resolution(image, 1000 * x_dpi, 1000 * y_dpi);
  return image;
}

// Worked out by hand.
TEST_F(Views, PicturesAreFittedAndPlaced) {
  struct {
    const char* name;
    std::int32_t width, height, x_dpi, y_dpi, window_width, window_height, fit, zoom, angle, flags;
    Rect picture;
  } const kCases[] = {
      {"natural", 100, 50, 0, 0, 300, 200, IMG_FIT_NONE, 0, 0, 0, {100, 75, 100, 50}},
      {"halves upwards", 5, 3, 0, 0, 9, 9, IMG_FIT_NONE, 500, 0, IMG_VIEW_TOP_LEFT, {0, 0, 3, 2}},
      {"never nothing", 5, 3, 0, 0, 9, 9, IMG_FIT_NONE, 1, 0, IMG_VIEW_TOP_LEFT, {0, 0, 1, 1}},
      {"fax", 1728, 1000, 204, 98, 900, 900, IMG_FIT_WINDOW, 0, 0, 0, {76, 0, 747, 900}},
      {"square",
       1728,
       1000,
       204,
       98,
       900,
       900,
       IMG_FIT_WINDOW,
       0,
       0,
       IMG_VIEW_SQUARE,
       {0, 189, 900, 521}},
      {"turned fax", 1728, 1000, 204, 98, 900, 900, IMG_FIT_WINDOW, 0, 90, 0, {0, 76, 900, 747}},
      {"by width where both fit", 40, 20, 0, 0, 80, 40, IMG_FIT_WINDOW, 0, 0, 0, {0, 0, 80, 40}},
      {"no larger", 40, 20, 0, 0, 80, 60, IMG_FIT_SHRINK, 0, 0, 0, {20, 20, 40, 20}},
      {"shrunk", 400, 200, 0, 0, 80, 60, IMG_FIT_SHRINK, 0, 0, 0, {0, 10, 80, 40}},
      {"width", 40, 20, 0, 0, 30, 5, IMG_FIT_WIDTH, 0, 0, 0, {0, 0, 30, 15}},
      {"height", 40, 20, 0, 0, 30, 25, IMG_FIT_HEIGHT, 0, 0, 0, {0, 0, 50, 25}},
      {"fill", 40, 20, 0, 0, 30, 30, IMG_FIT_FILL, 0, 0, 0, {0, 0, 60, 30}},
      {"stretch", 40, 20, 300, 0, 7, 9, IMG_FIT_STRETCH, 5, 0, 0, {0, 0, 7, 9}},
      {"true size", 300, 600, 300, 300, 200, 200, IMG_FIT_SIZE, 0, 0, 0, {52, 4, 96, 192}},
      {"twice that", 300, 600, 300, 300, 200, 400, IMG_FIT_SIZE, 2000, 0, 0, {4, 8, 192, 384}},
      {"no size", 30, 60, 300, 0, 200, 200, IMG_FIT_SIZE, 2000, 0, 0, {70, 40, 60, 120}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const Image image = blank(c.width, c.height, c.x_dpi, c.y_dpi);
    img_view view = view_of(c.window_width, c.window_height, c.fit);
    view.zoom = c.zoom;
    view.angle = c.angle;
    view.flags = c.flags;
    view.device_dpi_x = view.device_dpi_y = 96;
    img_layout layout{};
    ASSERT_EQ(IMG_view_layout(image, &view, &layout), IMG_OK);
    EXPECT_EQ(layout.x, c.picture.x);
    EXPECT_EQ(layout.y, c.picture.y);
    EXPECT_EQ(layout.width, c.picture.width);
    EXPECT_EQ(layout.height, c.picture.height);
  }
}

TEST_F(Views, RefusesWhatCannotBe) {
  const Image image = blank(70, 30);
  struct {
    std::int32_t img_view::*field;
    std::int32_t value, status;
  } const kCases[] = {
      {&img_view::bytes, 0, IMG_UNSUPPORTED},
      {&img_view::fit, 8, IMG_UNSUPPORTED},
      {&img_view::fit, IMG_FIT_SIZE, IMG_UNSUPPORTED},
      {&img_view::zoom, -1, IMG_UNSUPPORTED},
      {&img_view::zoom, 1000000000, IMG_UNSUPPORTED},
      {&img_view::angle, 45, IMG_UNSUPPORTED},
      {&img_view::angle, -90, IMG_UNSUPPORTED},
      {&img_view::flags, 32, IMG_UNSUPPORTED},
      {&img_view::width, 0, IMG_EMPTY_DISPLAY_RECT},
      {&img_view::source_x, 70, IMG_BAD_IMAGE},
      {&img_view::source_height, INT32_MIN, IMG_BAD_IMAGE},
  };
  EXPECT_EQ(IMG_view_layout(image, nullptr, nullptr), IMG_UNSUPPORTED);
  for (const auto& c : kCases) {
    img_view view = view_of(10, 10, IMG_FIT_NONE);
    view.*c.field = c.value;
    EXPECT_EQ(IMG_view_layout(image, &view, nullptr), c.status) << c.value;
  }
  img_view early = view_of(10, 10, IMG_FIT_SIZE);
  early.bytes = offsetof(img_view, fit);  // of a caller who knows no more
  EXPECT_EQ(IMG_view_layout(image, &early, nullptr), IMG_OK);
  EXPECT_EQ(IMG_zoom_view(image, &early, 0, 0, 2000), IMG_UNSUPPORTED);
}

TEST_F(Views, PointsLeadThereAndBack) {
  Random random(1);
  for (int i = 0; i < 300; ++i) {
    const Image image = blank(random.between(1, 90), random.between(1, 90));
    img_view view = view_of(random.between(1, 60), random.between(1, 60), random.between(0, 6));
    view.zoom = random.between(10, 16000);
    view.angle = 90 * random.between(0, 3);
    view.scroll_x = random.between(0, 500);
    view.scroll_y = random.between(0, 500);
    IMG_set_display_angle(image, 90 * random.between(0, 3));
    img_layout layout{};
    ASSERT_EQ(IMG_view_layout(image, &view, &layout), IMG_OK);
    const bool turned = (view.angle + image.record().display_angle) % 180 != 0;
    const std::int32_t across = turned ? image.record().height : image.record().width;
    const std::int32_t down = turned ? image.record().width : image.record().height;
    std::int32_t x = 0, y = 0, back_x = 0, back_y = 0;
    for (int point = 0; point < 20; ++point) {
      const std::int32_t window_x = layout.x + random.between(0, layout.width - 1);
      const std::int32_t window_y = layout.y + random.between(0, layout.height - 1);
      ASSERT_EQ(IMG_window_to_image(image, &view, window_x, window_y, &x, &y), 1);
      ASSERT_EQ(IMG_image_to_window(image, &view, x, y, &back_x, &back_y), 1);
      if (layout.width <= across) {
        EXPECT_EQ(back_x, window_x);
      }
      if (layout.height <= down) {
        EXPECT_EQ(back_y, window_y);
      }
      // The other way round, of the axes that are enlarged.
      std::int32_t there_x = 0, there_y = 0;
      ASSERT_EQ(IMG_window_to_image(image, &view, back_x, back_y, &there_x, &there_y), 1);
      if ((turned ? layout.height : layout.width) >= image.record().width) {
        EXPECT_EQ(there_x, x);
      }
      if ((turned ? layout.width : layout.height) >= image.record().height) {
        EXPECT_EQ(there_y, y);
      }
    }
    EXPECT_EQ(IMG_window_to_image(image, &view, layout.x - 1, layout.y, &x, &y), 0);
    EXPECT_EQ(IMG_window_to_image(image, &view, layout.x, layout.y, &back_x, &back_y), 1);
    EXPECT_EQ(x, back_x);
    EXPECT_EQ(IMG_image_to_window(image, &view, INT32_MAX, INT32_MIN, &x, &y), 0);
  }
}

TEST_F(Views, ZoomKeepsThePointAndScrollsEnd) {
  const Image image = blank(1000, 800);
  img_view view = view_of(200, 100, IMG_FIT_WINDOW);
  std::int32_t x = 0, y = 0, zoomed_x = 0, zoomed_y = 0;
  ASSERT_EQ(IMG_window_to_image(image, &view, 120, 40, &x, &y), 1);
  ASSERT_EQ(IMG_zoom_view(image, &view, 120, 40, 3000), IMG_OK);
  EXPECT_EQ(view.fit, IMG_FIT_NONE);
  ASSERT_EQ(IMG_window_to_image(image, &view, 120, 40, &zoomed_x, &zoomed_y), 1);
  EXPECT_NEAR(zoomed_x, x, 1);
  EXPECT_NEAR(zoomed_y, y, 1);
  const img_view before = view;
  EXPECT_EQ(IMG_zoom_view(image, &view, 0, 0, 0), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_zoom_view(image, &view, 0, 0, INT32_MAX), IMG_UNSUPPORTED);
  EXPECT_EQ(view.zoom, before.zoom);
  ASSERT_EQ(IMG_scroll_view(image, &view, INT32_MAX, -5), IMG_OK);
  EXPECT_EQ(view.scroll_x, 3000 - 200);
  EXPECT_EQ(view.scroll_y, before.scroll_y - 5);
  ASSERT_EQ(IMG_scroll_view(image, &view, -INT32_MAX, INT32_MIN), IMG_OK);
  EXPECT_EQ(view.scroll_x, 0);
  EXPECT_EQ(view.scroll_y, 0);
}

}  // namespace
}  // namespace tq::test
