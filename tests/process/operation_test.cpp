// What all operations have in common: refusals, aborts, lack of memory, what stays of an image.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "core/image_table.h"
#include "core/memory.h"
#include "include/tarnquill.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

constexpr Geometry kSources[] = {{1, 0, 37, 11},  {4, 0, 37, 11},  {8, 0, 37, 11},
                                 {16, 0, 37, 11}, {24, 0, 37, 11}, {32, 200, 37, 11}};

template <class Check>
void for_each_accepted(Check&& check) {
  for (const Geometry& source : kSources) {
    for (const NamedOperation& operation : all_operations()) {
      KeptImage trial(source, 3);
      if (operation.run(trial.handle()) < 0) continue;
      SCOPED_TRACE(std::string(operation.name) + " of " + std::to_string(source.bits) + " bits");
      check(operation, source);
    }
  }
  IMGLOW_set_dithermode(1);
}

TEST(OperationRefusal, NamesTheDepthAndLeavesTheImage) {
  struct Refusal {
    const char* operation;
    std::int32_t status;
    std::set<int> depths;
  };
  const Refusal refusals[] = {
      {"gray", IMG_UNSUPPORTED, {1, 2}},
      {"mediancut", IMG_WRONG_DEPTH, {1, 2}},
      {"octree_8_256", IMG_WRONG_DEPTH, {1, 2, 4, 16}},
      {"popularity", IMG_UNSUPPORTED, {1, 2, 4, 8, 16}},
      {"bayer_mono", IMG_UNSUPPORTED, {1, 2}},
      {"halftone_mono", IMG_UNSUPPORTED, {1, 2}},
      {"diffusion_mono", IMG_UNSUPPORTED, {1, 2}},
      {"thresh_128", IMG_UNSUPPORTED, {1, 2}},
      {"bayer_color", IMG_UNSUPPORTED, {1, 2}},
      {"diffusion_color", IMG_UNSUPPORTED, {1, 2}},
      {"promote_8", IMG_UNSUPPORTED, {2, 24, 32}},
      {"promote_24", IMG_UNSUPPORTED, {2, 24}},
      {"promote_32", IMG_UNSUPPORTED, {2, 32}},
  };
  for (const Refusal& refusal : refusals) {
    for (const NamedOperation& operation : all_operations()) {
      if (std::string(operation.name) != refusal.operation) continue;
      for (const int bits : {1, 2, 4, 8, 16, 24, 32}) {
        const KeptImage image({bits, 0, 5, 3}, 0);
        const Snapshot before = snapshot(image.handle());
        const std::int32_t status = operation.run(image.handle());
        EXPECT_EQ(status < 0, refusal.depths.count(bits) == 1) << refusal.operation << " " << bits;
        if (status >= 0) continue;
        EXPECT_EQ(status, refusal.status) << refusal.operation << " " << bits;
        EXPECT_EQ(snapshot(image.handle()), before);
      }
    }
  }
}

TEST(OperationRefusal, BadHandlesAndImagesWithoutPixels) {
  Bytes no_image(64);
  EXPECT_EQ(IMG_create_handle_keep(no_image.data()), IMG_BAD_IMAGE);  // leaves a handle, 0
  for (const NamedOperation& operation : all_operations()) {
    EXPECT_EQ(operation.run(-1), IMG_BAD_HANDLE) << operation.name;
    EXPECT_EQ(operation.run(1), IMG_BAD_HANDLE) << operation.name;
    EXPECT_EQ(operation.run(0), IMG_OUT_OF_MEMORY) << operation.name;
  }
  EXPECT_EQ(IMG_delete_bitmap(0), IMG_OK);
}

TEST(OperationSweep, ARefusedAllocationLeavesTheImageAndLeaksNothing) {
  for_each_accepted([](const NamedOperation& operation, const Geometry& source) {
    int refusals = 0;
    for (;; ++refusals) {
      ASSERT_LT(refusals, 50);
      const KeptImage image(source, 3);
      if (source.bits == 1) IMG_dib_to_runs(image.handle());
      const Snapshot before = snapshot(image.handle());
      const std::int64_t blocks = memory_probe::live_blocks();
      memory_probe::refuse_after(refusals);
      const std::int32_t status = operation.run(image.handle());
      const bool refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      EXPECT_EQ(memory_probe::tracked_blocks(), 0);
      if (!refused) {
        EXPECT_GE(status, 0);
        break;
      }
      EXPECT_EQ(status, IMG_OUT_OF_MEMORY);
      EXPECT_EQ(snapshot(image.handle()), before);
      EXPECT_EQ(memory_probe::live_blocks(), blocks);
    }
    EXPECT_GE(refusals, 1);
  });
}

struct Progress {
  int calls = 0;
  std::int32_t value = 0;
  int abort_at = -1;
  std::int32_t image = -1;  // deleted at the call `delete_at`
  int delete_at = -1;
  void (*during_call)(std::int32_t image) = nullptr;

  static std::int32_t IMG_CB_STD report(std::intptr_t context, std::int32_t value) {
    auto& self = *reinterpret_cast<Progress*>(context);
    self.value = value;
    const int call = self.calls++;
    if (call == self.delete_at && self.during_call != nullptr) self.during_call(self.image);
    return call == self.abort_at ? -4711 : 0;
  }
  std::int32_t run(const NamedOperation& operation, std::int32_t handle) {
    IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), report, 1);
    const std::int32_t status = operation.run(handle);
    IMG_set_statusbar(0, nullptr, 0);
    return status;
  }
};

TEST(OperationSweep, AnAbortAtAnyRowLeavesTheImageAndLeaksNothing) {
  for_each_accepted([](const NamedOperation& operation, const Geometry& source) {
    for (int row = 0; row < source.height; ++row) {
      const KeptImage image(source, 3);
      const Snapshot before = snapshot(image.handle());
      const std::int64_t blocks = memory_probe::live_blocks();
      Progress progress{.abort_at = row};
      EXPECT_EQ(progress.run(operation, image.handle()), -4711);
      EXPECT_EQ(progress.calls, row + 1);
      EXPECT_EQ(snapshot(image.handle()), before);
      EXPECT_EQ(memory_probe::live_blocks(), blocks);
    }
  });
}

TEST(OperationProgress, ReportsEveryRowOnceWithTheHeight) {
  for_each_accepted([](const NamedOperation& operation, const Geometry& source) {
    const KeptImage image(source, 3);
    Progress progress;
    EXPECT_GE(progress.run(operation, image.handle()), 0);
    EXPECT_EQ(progress.calls, source.height);
    EXPECT_EQ(progress.value, source.height);
  });
}

TEST(OperationProgress, ACallbackMayDeleteOrChangeTheImage) {
  for_each_accepted([](const NamedOperation& operation, const Geometry& source) {
    {
      const KeptImage image(source, 3);
      Progress progress{.image = image.handle(), .delete_at = 5, .during_call = [](auto handle) {
                          IMG_delete_bitmap_keep(handle);
                        }};
      EXPECT_EQ(progress.run(operation, image.handle()), IMG_BAD_HANDLE);
    }
    const KeptImage image(source, 3);
    const auto change = [](std::int32_t handle) {
      if (IMG_promote_32(handle) < 0) IMG_color_gray(handle);
    };
    Progress progress{.image = image.handle(), .delete_at = 5, .during_call = change};
    // The callback's own operation is reported too, and goes through.
    EXPECT_EQ(progress.run(operation, image.handle()), IMG_BAD_HANDLE);
  });
}

TEST(OperationResult, KeepsTheHeaderAndTheImagesSettings) {
  Bytes dib = generate_dib({24, 0, 37, 11}, 3);
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
    std::uint32_t image_bytes = 0;
    std::memcpy(&image_bytes, &after.front[20], 4);
    EXPECT_EQ(image_bytes, after.rows.size() * after.rows[0].size()) << operation.name;
    std::int32_t x = 0, y = 0, width = 0, height = 0;
    IMG_get_croprect(image.handle(), &x, &y, &width, &height);
    EXPECT_EQ((std::array{x, y, width, height}), (std::array{3, 2, 10, 5})) << operation.name;
    EXPECT_EQ(IMGLOW_get_transp_color(image.handle()), 6) << operation.name;
  }
}

TEST(OperationResult, OnlyRgb32LosesItsMarker) {
  const KeptImage rgb({32, 200, 9, 2}, 1);
  EXPECT_EQ(IMG_bayer_color(rgb.handle()), IMG_OK);
  EXPECT_EQ(snapshot(rgb.handle()).front[16], 0);
  const KeptImage other({24, 77, 9, 2}, 1);
  EXPECT_EQ(IMG_color_gray(other.handle()), IMG_OK);
  EXPECT_EQ(snapshot(other.handle()).front[16], 77);
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

TEST(OctreeColor, NoiseFillsThePaletteAndEnds) {
  const KeptImage image({24, 0, 701, 301}, 0);
  const std::int32_t written = IMG_octree_color(image.handle(), 8, nullptr, 256);
  EXPECT_GT(written, 200);
  EXPECT_LE(written, 256);
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
