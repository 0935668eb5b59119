// What all operations have in common: refusals, aborts, lack of memory, what stays of an image.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "core/image_table.h"
#include "core/memory.h"
#include "include/tarnquill.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

constexpr int kRows = 11;

// Every operation on every kind of image that it takes; the model tells which it refuses.
template <class Check>
void for_each_accepted(Check&& check) {
  struct Source {
    int bits;
    std::uint32_t compression;
    bool in_runs;
  };
  for (const auto& [bits, compression, in_runs] :
       {Source{1, 0, false}, Source{1, 0, true}, Source{4, 0, false}, Source{8, 0, false},
        Source{16, 0, false}, Source{24, 0, false}, Source{32, 200, false}, Source{32, 0, false}}) {
    const auto make = [&, bits = bits, compression = compression, in_runs = in_runs] {
      auto image = std::make_unique<KeptImage>(Geometry{bits, compression, 37, kRows}, 3);
      if (in_runs) IMG_dib_to_runs(image->handle());
      return image;
    };
    for (const NamedOperation& operation : all_operations()) {
      if (operation.run(make()->handle()) < 0) continue;
      SCOPED_TRACE(std::string(operation.name) + " of " + std::to_string(bits) + " bits");
      check(operation, make);
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
  const KeptImage two_bits({2, 0, 5, 3}, 0);
  const State before(two_bits);
  for (const NamedOperation& operation : all_operations()) {
    SCOPED_TRACE(operation.name);
    const std::string name = operation.name;
    const bool own_code = name.starts_with("mediancut") || name.starts_with("octree");
    EXPECT_EQ(operation.run(two_bits.handle()), own_code ? IMG_WRONG_DEPTH : IMG_UNSUPPORTED);
    EXPECT_TRUE(State(two_bits) == before);
    EXPECT_EQ(operation.run(-1), IMG_BAD_HANDLE);
    EXPECT_EQ(operation.run(2), IMG_BAD_HANDLE);
    EXPECT_EQ(operation.run(0), IMG_OUT_OF_MEMORY);
  }
  EXPECT_EQ(IMG_delete_bitmap(0), IMG_OK);
}

TEST(OperationSweep, ARefusedAllocationLeavesTheImageAndLeaksNothing) {
  for_each_accepted([](const NamedOperation& operation, const auto& make) {
    for (int count = 0;; ++count) {
      const auto image = make();
      const State before(*image);
      memory_probe::refuse_after(count);
      const std::int32_t status = operation.run(image->handle());
      const bool refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      EXPECT_EQ(memory_probe::tracked_blocks(), 0);
      if (!refused) {
        EXPECT_GE(status, 0);
        EXPECT_GE(count, 1);
        break;
      }
      EXPECT_EQ(status, IMG_OUT_OF_MEMORY);
      EXPECT_TRUE(State(*image) == before);
    }
  });
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

TEST(OperationSweep, AnAbortAtAnyRowLeavesTheImageAndLeaksNothing) {
  for_each_accepted([](const NamedOperation& operation, const auto& make) {
    const auto image = make();
    const State before(*image);
    for (int row = 0; row < kRows; ++row) {
      Progress progress{.act_at = row, .answer = -4711};
      EXPECT_EQ(progress.run(operation, image->handle()), -4711);
      EXPECT_EQ(progress.calls, row + 1);
      EXPECT_TRUE(State(*image) == before);
    }
    Progress progress;
    EXPECT_GE(progress.run(operation, image->handle()), 0);
    EXPECT_EQ(progress.calls, kRows);
    EXPECT_EQ(progress.value, kRows);
  });
}

TEST(OperationProgress, ACallbackMayDeleteOrChangeTheImage) {
  constexpr void (*kActs[])(std::int32_t) = {
      [](std::int32_t image) { IMG_delete_bitmap_keep(image); },
      [](std::int32_t image) {
        if (IMG_promote_32(image) < 0) IMG_color_gray(image);
      }};
  for_each_accepted([&](const NamedOperation& operation, const auto& make) {
    for (const auto act : kActs) {
      const auto image = make();
      Progress progress{.act_at = 5, .act = act};
      EXPECT_EQ(progress.run(operation, image->handle()), IMG_BAD_HANDLE);
    }
  });
}

TEST(OperationResult, KeepsTheHeaderAndTheImagesSettings) {
  Bytes dib = generate_dib({24, 77, 37, 11}, 3);
  const std::int32_t fields[] = {300, 600, 7, 9};  // resolution, colours used and important
  std::memcpy(dib.data() + 24, fields, sizeof fields);
  for (const NamedOperation& operation : all_operations()) {
    const KeptImage image(dib);
    IMG_set_croprect(image.handle(), 3, 2, 10, 5);
    IMGLOW_set_transp_color(image.handle(), 6);
    if (operation.run(image.handle()) < 0) continue;
    const Snapshot after = snapshot(image.handle());
    EXPECT_EQ(std::memcmp(after.front.data() + 24, fields, sizeof fields), 0) << operation.name;
    EXPECT_EQ(std::memcmp(after.front.data(), dib.data(), 14), 0) << operation.name;
    const bool promoted = after.front[14] == 32, mono = after.front[14] == 1;
    EXPECT_EQ(after.front[16], promoted ? 0 : mono ? 99 : 77) << operation.name;
    std::uint32_t image_bytes = 0;
    std::memcpy(&image_bytes, &after.front[20], 4);
    EXPECT_EQ(image_bytes, after.rows.size() * after.rows[0].size()) << operation.name;
    std::int32_t x = 0, y = 0, width = 0, height = 0;
    IMG_get_croprect(image.handle(), &x, &y, &width, &height);
    EXPECT_EQ((std::array{x, y, width, height}), (std::array{3, 2, 10, 5})) << operation.name;
    EXPECT_EQ(IMGLOW_get_transp_color(image.handle()), 6) << operation.name;
  }
}

TEST(MonoResult, WiderThanRunListsCanHoldStaysPlain) {
  for (const int width : {65533, 65534}) {
    const KeptImage image({8, 0, width, 2}, 3);
    const Snapshot grey = snapshot(image.handle());
    ASSERT_EQ(IMG_thresh_mono(image.handle(), 100), IMG_OK);
    EXPECT_EQ(snapshot(image.handle()).front[16], width == 65533 ? 99 : 0);
    const Bytes row = snapshot(image.handle()).rows[1];
    for (int x = 0; x < width; ++x) {
      const bool white = (row[x / 8] >> (7 - x % 8) & 1) != 0;
      ASSERT_EQ(white, grey.rows[1][x] > 100) << x;
    }
  }
}

TEST(OctreeColor, PaletteArguments) {
  const Rgb given[2] = {{10, 20, 30, 0}, {200, 210, 220, 0}};
  const auto run = [](std::int32_t bits, const void* palette, std::int32_t count) {
    const KeptImage image({24, 0, 9, 2}, 0);
    return IMG_octree_color(image.handle(), bits, palette, count);
  };
  EXPECT_EQ(run(8, given, 2), 2);
  EXPECT_EQ(run(8, given, 2 | INT32_MIN), 2) << "the two top bits do not count";
  EXPECT_EQ(run(8, given, 0), 0) << "a tree without colours";
  EXPECT_EQ(run(8, given, -1), IMG_UNSUPPORTED);
  EXPECT_EQ(run(8, given, 65537), IMG_UNSUPPORTED);
  EXPECT_GT(run(8, nullptr, -1), 0);
  EXPECT_LE(run(8, nullptr, -1), 8);
}

TEST(OctreeColor, ALargeWhitePageStaysWhite) {
  // More than 2^32 / 255 white pixels in one leaf.
  constexpr int kWidth = 4961, kHeight = 7016;
  Bytes dib = generate_dib({8, 0, kWidth, 1}, 0);
  dib.resize(static_cast<std::size_t>(dib_bytes(kWidth, kHeight, 8)));
  std::memcpy(&dib[8], &kHeight, 4);
  std::fill(dib.begin() + 1064, dib.end(), std::uint8_t{255});
  dib[1064] = 0;
  const KeptImage image(std::move(dib));
  ASSERT_EQ(IMG_octree_color(image.handle(), 8, nullptr, 8), 2);
  Rgb palette[256];
  IMGLOW_get_palette(image.handle(), palette);
  EXPECT_EQ(palette[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(palette[1], (Rgb{255, 255, 255, 0}));
}

TEST(PopularityColor, CountsWrapAt65536) {
  // 65536 red pixels count as none, so one green pixel is more popular.
  Bytes dib = generate_dib({24, 0, 256, 257}, 0);
  for (std::size_t i = 40; i < dib.size(); i += 3) {
    const std::size_t pixel = (i - 40) / 3;
    dib[i] = 0;
    dib[i + 1] = pixel == 65536 ? 0x55 : 0;
    dib[i + 2] = pixel < 65536 ? 0xFF : 0;
  }
  const KeptImage image(std::move(dib));
  ASSERT_EQ(IMG_popularity_color(image.handle()), IMG_OK);
  Rgb palette[256];
  IMGLOW_get_palette(image.handle(), palette);
  EXPECT_EQ(palette[0], (Rgb{0, 0, 0, 0}));
  EXPECT_EQ(palette[1], (Rgb{0, 0, 0, 0})) << "black again, 255 times";
  EXPECT_EQ(palette[2], (Rgb{0, 0x50, 0, 0}));
  EXPECT_EQ(palette[3], (Rgb{0xF0, 0xF0, 0xF0, 0}));
}

}  // namespace
}  // namespace tq::test
