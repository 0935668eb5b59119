// The rule of Sauvola and Pietikäinen (Pattern Recognition 33, 2000) with the deviation's range taken
// from the image, and with the level of the whole image where nothing varies, so that black areas are
// not hollowed out. Integers as they would be in exact arithmetic, from sums over columns that move
// down and sums over windows that move right: a few rows of memory, whatever the image's height.
#include "process/cleanup/sauvola.h"

#include <algorithm>
#include <cmath>

#include "process/geometry/geometry.h"

namespace tq::process {
namespace {

constexpr std::int64_t kUnit = 256;        // means and deviations are in 1/256
constexpr std::int64_t kFlat = 8 * kUnit;  // deviations below are of nothing but paper or ink
constexpr int kMostGlobalLevel = 128;
constexpr int kUsualK = 34, kUsualWindow = 25, kLeastWindow = 15;

int usual_window(const ImageSource& image) {
  const std::int32_t dots = resolution_of(image.record()).x / 1000;
  return dots > 0 ? std::clamp(dots / 12, kLeastWindow - 1, kWidestWindow - 1) | 1 : kUsualWindow;
}

// Mean and variance of the windows around the pixels of a row. Sums cannot pass 2^32: a window has
// at most 255 x 255 pixels, whose squares are below 2^16. All are without a sign, because a caller
// that writes to the image in between may make them wrong, but nothing else.
class Windows {
 public:
  Windows(const ImageSource& image, int window)
      : image_(image),
        reach_(window / 2),
        entering_(image, GreyKind::luma),
        leaving_(image, GreyKind::luma) {}

  Status allocate() {
    const int width = image_.width();
    TQ_TRY(entering_.allocate());
    TQ_TRY(leaving_.allocate());
    TQ_TRY(sums_.allocate(width));
    return squares_.allocate(width);
  }

  // Before row 0.
  void begin() {
    std::ranges::fill(sums_.pixels(), 0);
    std::ranges::fill(squares_.pixels(), 0);
    rows_ = 0;
    for (int y = 0; y < std::min(reach_, image_.height()); ++y) add(y);
  }
  // To row y, from the one before.
  void move_to(int y) {
    if (y + reach_ < image_.height()) add(y + reach_);
    if (y - reach_ - 1 >= 0) remove(y - reach_ - 1);
  }

  // visit(x, mean, variance) for all of a row: m in 1/256, and 2^16 times the mean of the squares
  // less m * m, which may be below 0 by rounding.
  template <class Visit>
  void each(Visit&& visit) const {
    const int width = image_.width();
    const std::uint32_t* const column_sums = sums_.data();
    const std::uint32_t* const column_squares = squares_.data();
    std::uint32_t sum = 0, squares = 0;
    int last = std::min(reach_, width);  // one past it
    for (int x = 0; x < last; ++x) sum += column_sums[x], squares += column_squares[x];
    int first = 0;
    double share = 0;
    int columns = 0;
    for (int x = 0; x < width; ++x) {
      if (last < width && last <= x + reach_) {
        sum += column_sums[last], squares += column_squares[last];
        ++last;
      }
      if (first < x - reach_) {
        sum -= column_sums[first], squares -= column_squares[first];
        ++first;
      }
      if (last - first != columns) {
        columns = last - first;
        share = 1.0 / (double{1} * columns * rows_);
      }
      // Quotients that are no whole numbers lie further from them than the product's error, which
      // is below the half of what is added.
      constexpr double kSlack = 1.0 / (1 << 17);
      const auto mean = static_cast<std::int64_t>(256.0 * sum * share + kSlack);
      const auto square = static_cast<std::int64_t>(65536.0 * squares * share + kSlack);
      visit(x, mean, square - mean * mean);
    }
  }

 private:
  void add(int y) {
    const Bytes row = entering_.read(y);
    for (std::size_t x = 0; x < row.size(); ++x) {
      const std::uint32_t level = row[x];
      sums_.data()[x] += level;
      squares_.data()[x] += level * level;
    }
    ++rows_;
  }
  void remove(int y) {
    const Bytes row = leaving_.read(y);
    for (std::size_t x = 0; x < row.size(); ++x) {
      const std::uint32_t level = row[x];
      sums_.data()[x] -= level;
      squares_.data()[x] -= level * level;
    }
    --rows_;
  }

  const ImageSource& image_;
  int reach_, rows_ = 0;
  GreyRows entering_, leaving_;
  RowBuffer<std::uint32_t> sums_, squares_;
};

std::int64_t root(std::int64_t value) {
  return value > 0 ? static_cast<std::int64_t>(std::sqrt(static_cast<double>(value))) : 0;
}

}  // namespace

void pack_white(Bytes dark, int width, Row bits) {
  for (std::size_t i = 0; i < bits.size(); ++i) {
    const std::uint8_t* const mark = dark.data() + 8 * i;
    int white = 0;
    for (int k = 0; k < 8; ++k) white = white << 1 | (mark[k] ^ 1);
    bits[i] = byte(white);
  }
  clear_padding(bits, width, 1);
}

Status binarise_by_window(ImageSource& image, int level, int window, int k) {
  const int width = image.width(), height = image.height();
  if (window == 0) window = usual_window(image);
  if (k == 0) k = kUsualK;
  const int flat_level = std::min(level, kMostGlobalLevel);
  Windows windows(image, window);
  GreyRows grey(image, GreyKind::luma);
  RowBuffer<std::uint8_t> dark;
  TQ_TRY(windows.allocate());
  TQ_TRY(grey.allocate());
  TQ_TRY(dark.allocate(row_bytes(width, 1) * 8));

  std::int64_t largest = 0;
  windows.begin();
  for (int y = 0; y < height; ++y) {
    windows.move_to(y);
    windows.each(
        [&](int, std::int64_t, std::int64_t variance) { largest = std::max(largest, variance); });
  }
  const std::int64_t range = std::clamp(root(largest), 16 * kUnit, 128 * kUnit);

  windows.begin();
  return replace_by_mono(image, [&](int y, Row bits) {
    const Bytes levels = grey.read(y);
    std::uint8_t* const marks = dark.data();
    windows.move_to(y);
    windows.each([&](int x, std::int64_t mean, std::int64_t variance) {
      const std::int64_t pixel = levels[x] * kUnit;
      bool black = false;
      if (variance < kFlat * kFlat) {
        black = levels[x] <= flat_level;
      } else if (pixel < mean) {  // no threshold is above the mean
        const std::int64_t least = mean - mean * k / 100;
        black = pixel < least || pixel < least + mean * k * root(variance) / (100 * range);
      }
      marks[x] = byte(black ? 1 : 0);
    });
    pack_white(dark.pixels(), width, bits);
  });
}

}  // namespace tq::process
