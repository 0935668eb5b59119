// What all operations have in common: refusals, aborts, lack of memory, what stays of an image.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "core/image_table.h"
#include "core/memory.h"
#include "include/tarnquill.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

constexpr int kRows = 11;

// Those whose results are judged, and told by no model.
constexpr NamedOperation kJudged[] = {
    {"remove_lines", [](std::int32_t i) { return IMG_remove_lines(i, 9, 2, 1); }},
    {"remove_standing_lines", [](std::int32_t i) { return IMG_remove_lines(i, 3, 2, 3); }},
    {"find_content",
     [](std::int32_t i) { return IMG_find_content(i, nullptr, nullptr, nullptr, nullptr); }},
    {"autocrop", [](std::int32_t i) { return IMG_autocrop_bitmap(i, 1); }},
    {"find_paper",
     [](std::int32_t i) { return IMG_find_paper(i, nullptr, nullptr, nullptr, nullptr); }},
    {"remove_border", [](std::int32_t i) { return IMG_remove_border(i, -1); }},
    {"is_blank", [](std::int32_t i) { return IMG_is_blank(i, 0); }},
};

// Every operation on every kind of image that it takes; the model tells which it refuses.
template <class Check>
void for_each_accepted(Check&& check) {
  std::vector<NamedOperation> operations = all_operations();
  operations.insert(operations.end(), std::begin(kJudged), std::end(kJudged));
  for (const Depth& depth : kDepths) {
    for (const NamedOperation& operation : operations) {
      const KeptImage made(depth, 37, kRows, 3);
      if (operation.run(made.handle()) < 0) continue;
      const auto rows = static_cast<int>(snapshot(made.handle()).rows.size());
      SCOPED_TRACE(std::string(operation.name) + " of " + std::to_string(depth.bits) + " bits");
      check(operation, KeptImage(depth, 37, kRows, 3), rows);
    }
  }
  IMGLOW_set_dithermode(1);
}

// What a call that fails must not change.
struct State {
  explicit State(const KeptImage& image) : seen(snapshot(image.handle())) {}
  Snapshot seen;
  std::int64_t blocks = memory_probe::live_blocks();
  friend bool operator==(const State&, const State&) = default;
};

TEST(OperationRefusal, OddDepthsBadHandlesAndImagesWithoutPixels) {
  Bytes no_image(64);
  EXPECT_EQ(IMG_create_handle_keep(no_image.data()), IMG_BAD_IMAGE);  // leaves a handle, 0
  const KeptImage two_bits({2}, 5, 3, 0);
  const State before(two_bits);
  for (const NamedOperation& operation : all_operations()) {
    SCOPED_TRACE(operation.name);
    const std::string name = operation.name;
    const bool own_code = operation.kind != Kind::colours || name.starts_with("mediancut") ||
                          name.starts_with("octree");
    EXPECT_EQ(operation.run(two_bits.handle()), own_code ? IMG_WRONG_DEPTH : IMG_UNSUPPORTED);
    EXPECT_TRUE(State(two_bits) == before);
    EXPECT_EQ(operation.run(2), IMG_BAD_HANDLE);
    EXPECT_EQ(operation.run(0), IMG_OUT_OF_MEMORY);
  }
  EXPECT_EQ(IMG_delete_bitmap(0), IMG_OK);
}

struct Progress {
  std::int32_t image = -1;
  int act_at = -1;  // the call that acts and whose answer is given
  std::int32_t answer = 0;
  void (*act)(std::int32_t image) = nullptr;
  int calls = 0;
  std::int32_t value = 0;

  static std::int32_t IMG_CB_STD report(std::intptr_t context, std::int32_t value) {
    auto& self = *reinterpret_cast<Progress*>(context);
    self.value = value;
    if (self.calls++ != self.act_at) return 0;
    if (self.act != nullptr) self.act(self.image);
    return self.answer;
  }
  std::int32_t run(const NamedOperation& operation, std::int32_t handle) {
    image = handle;
    IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), report, 1);
    const std::int32_t status = operation.run(handle);
    IMG_set_statusbar(0, nullptr, 0);
    return status;
  }
};

TEST(OperationSweep, AbortsAndRefusedAllocationsLeaveTheImageAndLeakNothing) {
  int refusals = 0;
  for_each_accepted([&](const NamedOperation& operation, const KeptImage& image, int rows) {
    const State before(image);
    for (int row = 0; row < rows; ++row) {
      Progress progress{.act_at = row, .answer = -4711};
      EXPECT_EQ(progress.run(operation, image.handle()), -4711);
      EXPECT_EQ(progress.calls, row + 1);
      EXPECT_TRUE(State(image) == before);
    }
    bool refused = true;
    for (int count = 0; refused; ++count) {
      Progress progress;
      memory_probe::refuse_after(count);
      const std::int32_t status = progress.run(operation, image.handle());
      refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      EXPECT_EQ(memory_probe::tracked_blocks(), 0);
      if (refused) {
        EXPECT_EQ(status, IMG_OUT_OF_MEMORY);
        EXPECT_TRUE(State(image) == before);
      } else {
        EXPECT_GE(status, 0);
        refusals += count;
        // A histogram is shown by a second operation.
        const bool twice = std::string(operation.name).starts_with("histogram");
        EXPECT_EQ(progress.calls, twice ? 2 * rows : rows);
        EXPECT_EQ(progress.value, rows);
      }
    }
  });
  EXPECT_GT(refusals, 500);
}

TEST(OperationProgress, ACallbackMayDeleteOrChangeTheImage) {
  const auto remove = [](std::int32_t image) { IMG_delete_bitmap_keep(image); };
  const auto change = [](std::int32_t image) {
    if (IMG_promote_32(image) < 0) IMG_color_gray(image);
  };
  for (const bool removed : {false, true}) {
    for_each_accepted([&](const NamedOperation& operation, const KeptImage& image, int rows) {
      Progress progress{.act_at = std::min(5, rows - 1), .act = removed ? +remove : +change};
      EXPECT_EQ(progress.run(operation, image.handle()), IMG_BAD_HANDLE);
    });
  }
}

TEST(OperationResult, KeepsTheHeaderAndTheImagesSettings) {
  Bytes dib = generate_dib({24, 77}, 37, 11, 3);
  const std::int32_t fields[] = {300, 600, 7, 9};  // resolution, colours used and important
  std::memcpy(dib.data() + 24, fields, sizeof fields);
  for (const NamedOperation& operation : all_operations()) {
    if (operation.kind == Kind::moves) continue;
    SCOPED_TRACE(operation.name);
    const KeptImage image(dib);
    IMG_set_croprect(image.handle(), 3, 2, 10, 5);
    IMGLOW_set_transp_color(image.handle(), 6);
    if (operation.run(image.handle()) < 0) continue;
    const Snapshot after = snapshot(image.handle());
    const bool promoted = after.front[14] == 32, mono = after.front[14] == 1;
    BitmapInfoHeader expected = dib_header(37, 11, after.front[14]).header;
    expected.biCompression = promoted ? 0 : mono ? 99 : 77;
    std::memcpy(&expected.biXPelsPerMeter, fields, sizeof fields);
    EXPECT_EQ(std::memcmp(after.front.data(), &expected, sizeof expected), 0);
    std::array<std::int32_t, 4> crop{};
    IMG_get_croprect(image.handle(), &crop[0], &crop[1], &crop[2], &crop[3]);
    EXPECT_EQ(crop, (std::array{3, 2, 10, 5}));
    EXPECT_EQ(IMGLOW_get_transp_color(image.handle()), 6);
  }
}

TEST(MonoResult, WiderThanRunListsCanHoldStaysPlain) {
  for (const int width : {65533, 65534}) {
    const KeptImage image({8}, width, 2, 3);
    const Snapshot grey = snapshot(image.handle());
    ASSERT_EQ(IMG_thresh_mono(image.handle(), 100), IMG_OK);
    const Snapshot mono = snapshot(image.handle());
    EXPECT_EQ(mono.front[16], width == 65533 ? 99 : 0);
    for (int x = 0; x < width; ++x) {
      ASSERT_EQ(mono.rows[1][x / 8] >> (7 - x % 8) & 1, grey.rows[1][x] > 100 ? 1 : 0) << x;
    }
  }
}

TEST(OctreeColor, PaletteArguments) {
  const Rgb given[2] = {{10, 20, 30, 0}, {200, 210, 220, 0}};
  const auto run = [](const void* palette, std::int32_t count) {
    return IMG_octree_color(KeptImage({24}, 9, 2, 0).handle(), 8, palette, count);
  };
  EXPECT_EQ(run(given, 2), 2);
  EXPECT_EQ(run(given, 2 | INT32_MIN), 2) << "the two top bits do not count";
  EXPECT_EQ(run(given, 0), 0) << "a tree without colours";
  EXPECT_EQ(run(given, -1), IMG_UNSUPPORTED);
  EXPECT_EQ(run(given, 65537), IMG_UNSUPPORTED);
  EXPECT_EQ(std::clamp(run(nullptr, -1), 1, 8), run(nullptr, -1));
}

std::vector<Rgb> palette_of(const KeptImage& image) {
  std::vector<Rgb> palette(256);
  IMGLOW_get_palette(image.handle(), palette.data());
  return palette;
}

TEST(OctreeColor, ALargeWhitePageStaysWhite) {
  // More than 2^32 / 255 white pixels in one leaf.
  constexpr std::int32_t kWidth = 4961, kHeight = 7016;
  Bytes dib = generate_dib({8}, 1, 1, 0);
  dib.resize(dib_bytes(kWidth, kHeight, 8), 255);
  std::memcpy(&dib[4], &kWidth, 4);
  std::memcpy(&dib[8], &kHeight, 4);
  dib[1064] = 0;
  const KeptImage image(std::move(dib));
  ASSERT_EQ(IMG_octree_color(image.handle(), 8, nullptr, 8), 2);
  EXPECT_EQ(palette_of(image)[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(palette_of(image)[1], (Rgb{255, 255, 255, 0}));
}

TEST(PopularityColor, CountsWrapAt65536) {
  // 65536 red pixels count as none, so one green pixel is more popular. The others are black.
  Bytes dib = generate_dib({24}, 256, 257, 0);
  std::fill(dib.begin() + 40, dib.end(), std::uint8_t{0});
  for (std::size_t pixel = 0; pixel < 65536; ++pixel) dib[42 + 3 * pixel] = 0xFF;
  dib[41 + 3 * 65536] = 0x55;
  const KeptImage image(std::move(dib));
  ASSERT_EQ(IMG_popularity_color(image.handle()), IMG_OK);
  const auto palette = palette_of(image);
  EXPECT_EQ(palette[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(palette[1], (Rgb{0, 0, 0, 0})) << "black again, 255 times";
  EXPECT_EQ(palette[2], (Rgb{0, 0x50, 0, 0}));
  EXPECT_EQ(palette[3], (Rgb{0xF0, 0xF0, 0xF0, 0}));
}

}  // namespace
}  // namespace tq::test
