// Run lists against plain bitmaps: what is stored in any order, in pieces, again, converted and
// converted back is what is read; in bounded memory.
#include "core/run_storage.h"

#include <gmock/gmock.h>

#include <cstring>

#include "pixels/colours.h"
#include "tests/support/digest.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"

namespace tq::test {
namespace {

class RunStorage : public LibraryTest {};

Bytes with_white_padding(const Bytes& row, std::int32_t width) {
  return pack(unpack(row, width, 1), 1, 0xFF);
}

// The rows as a bitmap would hold them.
class Model {
 public:
  Model(std::int32_t width, std::int32_t height)
      : width_(width), rows_(static_cast<std::size_t>(height), Bytes(stride(width, 1), 0)) {}

  void put(std::int32_t y, const Bytes& bytes, std::int32_t count) {
    Bytes& row = rows_[static_cast<std::size_t>(y)];
    const auto whole = static_cast<std::int32_t>(row.size());
    std::copy_n(bytes.begin(), count == 0 || count > whole ? whole : count, row.begin());
    if (in_runs_) row = with_white_padding(row, width_);
  }
  void convert(bool in_runs) {
    in_runs_ = in_runs;
    if (!in_runs) return;
    for (Bytes& row : rows_) row = with_white_padding(row, width_);
  }
  const Rows& rows() const { return rows_; }
  bool in_runs() const { return in_runs_; }

 private:
  std::int32_t width_;
  Rows rows_;
  bool in_runs_ = false;
};

TEST_F(RunStorage, IsAPlainBitmapForWhoeverReadsAndWritesRows) {
  Random random(2);
  const std::vector<int> densities = {0, 0, 1, 5, 50, 100};
  for (int round = 0; round < 150; ++round) {
    const bool narrow = round % 3 != 2;
    const std::int32_t width = narrow ? random.between(1, 200) : random.between(1000, 3000);
    const std::int32_t height = random.between(1, 12);
    Model model(width, height);
    const Image image = make_image(width, 1, model.rows());
    const auto whole = static_cast<std::int32_t>(stride(width, 1));
    for (int step = 0; step < 60; ++step) {
      if (random.chance(10)) {
        const bool in_runs = !model.in_runs();
        ASSERT_EQ(in_runs ? IMG_dib_to_runs(image) : IMG_runs_to_dib(image), 0);
        ASSERT_EQ(in_runs ? IMG_dib_to_runs(image) : IMG_runs_to_dib(image), 0) << "once is enough";
        ASSERT_EQ(header_of_image(image).biCompression, in_runs ? 99u : 0u);
        model.convert(in_runs);
        ASSERT_EQ(rows_of_image(image), model.rows()) << width;
        continue;
      }
      const std::int32_t y = random.between(0, height - 1);
      const Bytes row = random.bit_row(width, random.pick(densities));
      const std::int32_t count = random.chance(50) ? 0 : random.between(1, whole + 3);
      Bytes given = row;
      given.resize(static_cast<std::size_t>(std::min(count == 0 ? whole : count, whole)));
      ASSERT_EQ(IMGLOW_put_raster(image, given.data(), y, count), 0);
      model.put(y, row, count);
      Bytes read(static_cast<std::size_t>(whole));
      ASSERT_EQ(IMGLOW_get_raster(image, read.data(), y, 0), 0);
      ASSERT_EQ(read, model.rows()[static_cast<std::size_t>(y)]) << width << ' ' << step;
    }
    ASSERT_EQ(rows_of_image(image), model.rows()) << width;
    ASSERT_EQ(header_of_image(image).biWidth, width);
  }
}

TEST_F(RunStorage, TransitionsAreWhereNeighboursDiffer) {
  Random random(3);
  for (std::int32_t width = 1; width <= 260; ++width) {
    for (const int percent : {0, 3, 50, 97, 100}) {
      const Bytes row = random.bit_row(width, percent);
      std::vector<std::uint16_t> expected;
      Pixels pixels = unpack(row, width, 1);
      pixels.insert(pixels.begin(), 1);  // white in front of the row
      for (std::size_t x = 0; x + 1 < pixels.size(); ++x) {
        if (pixels[x] != pixels[x + 1]) expected.push_back(static_cast<std::uint16_t>(x));
      }
      // The row ends with its last pixel: what a caller of the function owns.
      const Bytes tight(row.begin(), row.begin() + (width + 7) / 8);
      std::vector<std::uint16_t> found(expected.size());
      ASSERT_EQ(bits_to_transitions(tight, width, found), static_cast<int>(expected.size()));
      ASSERT_EQ(found, expected) << width;
      if (!expected.empty()) {
        found.pop_back();
        ASSERT_EQ(bits_to_transitions(tight, width, found), -1);
      }
      Bytes drawn(row.size(), kStale);
      transitions_to_bits(expected, width, drawn);
      ASSERT_EQ(drawn, with_white_padding(row, width)) << width;

      const Image image = make_image(width, 1, {row}, true);
      std::vector<std::uint16_t> kept(static_cast<std::size_t>(width));
      const std::int32_t count = row_transitions(image.record(), 0, kept);
      kept.resize(static_cast<std::size_t>(count));
      ASSERT_EQ(kept, expected) << width;
    }
  }
}

TEST_F(RunStorage, OverwrittenRowsDoNotAddUp) {
  constexpr std::int32_t kWidth = 3000, kHeight = 20;
  constexpr std::int64_t kPlain = 376 * kHeight;
  Random random(4);
  const Image image = make_image(kWidth, 1, Rows(kHeight, Bytes(376, 0)), true);
  Rows model = rows_of_image(image);
  std::int64_t largest = 0;
  for (int step = 0; step < 20000; ++step) {
    const std::int32_t y = random.between(0, kHeight - 1);
    const Bytes row = with_white_padding(random.bit_row(kWidth, random.between(0, 12)), kWidth);
    ASSERT_EQ(IMGLOW_put_raster(image, row.data(), y, 0), 0);
    model[static_cast<std::size_t>(y)] = row;
    largest = std::max<std::int64_t>(largest, image.record().dib_size);
  }
  EXPECT_EQ(rows_of_image(image), model);
  // Twice the rows, half as much for growth, and the step by which a block grows.
  EXPECT_LT(largest, 3 * kPlain + 2 * 64000 + 8192) << "4 MB of lists were written";
  // Noise costs no more than bits do, and white rows cost nothing.
  for (std::int32_t y = 0; y < kHeight; ++y) {
    ASSERT_EQ(IMGLOW_put_raster(image, random.bit_row(kWidth, 50).data(), y, 0), 0);
  }
  const ImageRecord& record = image.record();
  EXPECT_LE(record.runs_end - record.runs_dead, 48 + kPlain + 2 * kHeight);
  for (std::int32_t y = 0; y < kHeight; ++y) {
    ASSERT_EQ(IMGLOW_put_raster(image, Bytes(376, 0xFF).data(), y, 0), 0);
  }
  EXPECT_EQ(record.runs_end - record.runs_dead, 48u);
}

TEST_F(RunStorage, RowsThatWaitedAreTheListsOfThoseThatDidNot) {
  Random random(7);
  for (int round = 0; round < 200; ++round) {
    const std::int32_t width = random.between(1, 700), height = random.between(1, 30);
    Rows model(static_cast<std::size_t>(height), Bytes(stride(width, 1), 0xFF));
    const Image image = make_image(width, 1, model, true),
                listed = make_image(width, 1, model, true);
    bool flipped = false;
    for (int step = 0; step < 2 * height; ++step) {
      const std::int32_t y = random.between(0, height - 1);
      Bytes& row = model[static_cast<std::size_t>(y)];
      row = with_white_padding(random.bit_row(width, random.pick<int>({0, 1, 5, 50})), width);
      std::vector<std::uint16_t> changes(static_cast<std::size_t>(width));
      const std::int32_t count = bits_to_transitions(row, width, changes);
      ASSERT_TRUE(store_listed(listed.record(), y, row).ok());
      const std::int32_t at = flipped ? height - 1 - y : y;
      ASSERT_TRUE((random.chance(90)
                       ? store_bits(image.record(), at, row)
                       : store_transitions(image.record(), at, Transitions(changes).first(count)))
                      .ok());
      if (random.chance(5)) {
        ASSERT_TRUE(list_waiting_rows(image.record()).ok());
      }
      if (random.chance(5)) {
        ASSERT_EQ(IMG_flip_bitmap(image), 0);
        flipped = !flipped;
      }
    }
    if (flipped) {
      ASSERT_EQ(IMG_flip_bitmap(image), 0);
    }
    ASSERT_EQ(rows_of_image(image), model) << width;
    const std::uint8_t* const dib = image.record().dib;
    ASSERT_TRUE(list_waiting_rows(image.record()).ok());
    ASSERT_EQ(rows_of_image(image), model) << width;
    const auto used = [](const ImageRecord& record) { return record.runs_end - record.runs_dead; };
    ASSERT_EQ(used(image.record()), used(listed.record())) << width;
    ASSERT_EQ(image.record().dib, dib) << "callers hold its address";
  }
}

TEST_F(RunStorage, WidestImagesAndTheHighestNarrowOnesStayPlain) {
  Random random(6);
  const auto check = [&](std::int32_t width, std::size_t height, bool in_runs) {
    Rows rows = {random.bit_row(width, 0), random.bit_row(width, 1), random.bit_row(width, 50)};
    rows[0].back() = 0;  // the last pixels black
    rows.resize(height, rows[2]);
    const Image image = make_image(width, 1, rows);
    EXPECT_EQ(IMG_dib_to_runs(image), 0);
    EXPECT_EQ(header_of_image(image).biCompression, in_runs ? 99u : 0u);
    for (Bytes& row : rows) {
      if (in_runs) row = with_white_padding(row, width);
    }
    EXPECT_EQ(rows_of_image(image), rows);
    EXPECT_EQ(IMG_runs_to_dib(image), 0);
    EXPECT_EQ(rows_of_image(image), rows);
  };
  check(65533, 3, true);
  check(65534, 3, false);
  check(32, 65535, true);
  check(32, 65536, false);
  check(33, 65536, true);
}

TEST_F(RunStorage, ConversionsKeepWhatElseTheImageHas) {
  const Bytes palette = {0, 7, 8, 0, 1, 2, 3, 0};
  const Image image = make_image(50, 1, Rows(6, Bytes(8, 0xF0)));
  BitmapInfoHeader header = header_of_image(image);
  header.biXPelsPerMeter = 204;
  header.biYPelsPerMeter = 196;
  set_header(image.record(), header);
  EXPECT_EQ(IMGLOW_put_palette(image, palette.data()), 0);
  EXPECT_EQ(IMG_set_croprect(image, 1, 2, 3, 3), 0);
  for (const auto convert : {IMG_dib_to_runs, IMG_runs_to_dib}) {
    EXPECT_EQ(convert(image), 0);
    header.biCompression = convert == IMG_dib_to_runs ? 99 : 0;
    const BitmapInfoHeader now = header_of_image(image);
    EXPECT_EQ(std::memcmp(&now, &header, sizeof now), 0);
    Bytes p(8);
    EXPECT_EQ(IMG_get_bitmap_palette(image, p.data()), 2);
    EXPECT_EQ(p, palette);
    const Rect& crop = image.record().crop;
    EXPECT_THAT((std::array{crop.x, crop.y, crop.width, crop.height}),
                testing::ElementsAre(1, 2, 3, 3));
  }
  const Image grey = make_image(50, 8, Rows(1, Bytes(52)));
  EXPECT_EQ(IMG_dib_to_runs(grey), -21);
  EXPECT_EQ(IMG_runs_to_dib(grey), 0);
}

// The 256 colours are data: their digest was taken from where they are laid down.
TEST(FixedPalettes, SystemColoursAreTheTable) {
  Digest digest;
  for (const Rgb& c : pixels::fixed_palette(2))
    digest.add(Bytes{c.blue, c.green, c.red, c.reserved});
  EXPECT_EQ(digest.value(), 0x8AE10656FB5AF42B);
}

}  // namespace
}  // namespace tq::test
