// The rule of Sauvola and Pietikäinen (Pattern Recognition 33, 2000) with the deviation's range taken
// from the image, and with the level of the whole image where nothing varies, so that black areas are
// not hollowed out. Integers as they would be in exact arithmetic, from sums over columns that move
// down, of all columns before a place: a few rows of memory, whatever the image's height.
#include "process/cleanup/sauvola.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "process/cleanup/kernels.h"
#include "process/geometry/geometry.h"

namespace tq::process {
namespace {

constexpr int kMostGlobalLevel = 128;
constexpr int kUsualK = 34, kUsualWindow = 25, kLeastWindow = 15;

int usual_window(const ImageSource& image) {
  const std::int32_t dots = resolution_of(image.record()).x / 1000;
  return dots > 0 ? std::clamp(dots / 12, kLeastWindow - 1, kWidestWindow - 1) | 1 : kUsualWindow;
}

// The windows around the pixels of a row. Sums cannot pass 2^32: a window has at most 255 x 255 pixels,
// whose squares are below 2^16. All are without a sign, because a caller that writes to the image in
// between may make them wrong, but nothing else.
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
    TQ_TRY(nothing_.allocate(width));
    TQ_TRY(sums_before_.allocate(std::int64_t{width} + 1));
    return squares_before_.allocate(std::int64_t{width} + 1);
  }

  // Before row 0.
  void begin() {
    std::ranges::fill(sums_before_.pixels(), 0);
    std::ranges::fill(squares_before_.pixels(), 0);
    rows_ = 0;
    for (int y = 0; y < std::min(reach_, image_.height()); ++y) move(y, -1);
  }
  // To row y, from the one before.
  void move_to(int y) { move(y + reach_, y - reach_ - 1); }

  // visit(x, count, windows) for all of a row, by so many in turn whose windows are of a size.
  template <class Visit>
  void each(Visit&& visit) const {
    const int width = image_.width();
    for (int x = 0, count = 0; x < width; x += count) {
      const int first = std::max(x - reach_, 0);
      const int last = std::min(x, width - 1 - reach_) + reach_ + 1;  // one past it
      const int columns = last - first;
      count = x >= reach_ && last < width ? width - last + 1 : 1;
      visit(x, count,
            WindowRow{sums_before_.data() + first, squares_before_.data() + first, columns,
                      1.0 / (double{1} * columns * rows_)});
    }
  }

 private:
  void move(int entering, int leaving) {
    const bool enters = entering < image_.height(), leaves = leaving >= 0;
    rows_ += (enters ? 1 : 0) - (leaves ? 1 : 0);
    const Bytes more = enters ? entering_.read(entering) : nothing_.pixels();
    const Bytes less = leaves ? leaving_.read(leaving) : nothing_.pixels();
    kernels_.move_windows(more.data(), less.data(), {sums_before_.data(), squares_before_.data()},
                          image_.width());
  }

  const ImageSource& image_;
  int reach_, rows_ = 0;
  GreyRows entering_, leaving_;
  CleanupKernels kernels_ = cleanup_kernels();
  RowBuffer<std::uint8_t> nothing_;
  RowBuffer<std::uint32_t> sums_before_, squares_before_;
};

}  // namespace

void pack_white(Bytes dark, int width, Row bits) {
  static_assert(std::endian::native == std::endian::little);
  for (std::size_t i = 0; i < bits.size(); ++i) {
    // Each of the eight has a bit of the top byte to itself.
    std::uint64_t marks;
    std::memcpy(&marks, dark.data() + 8 * i, sizeof marks);
    bits[i] = byte(~(marks * 0x8040201008040201 >> 56));
  }
  clear_padding(bits, width, 1);
}

Status binarise_by_window(ImageSource& image, int level, int window, int k) {
  const int width = image.width(), height = image.height();
  if (window == 0) window = usual_window(image);
  if (k == 0) k = kUsualK;
  Windows windows(image, window);
  GreyRows grey(image, GreyKind::luma);
  RowBuffer<std::uint8_t> dark;
  TQ_TRY(windows.allocate());
  TQ_TRY(grey.allocate());
  TQ_TRY(dark.allocate(row_bytes(width, 1) * 8));

  const CleanupKernels kernels = cleanup_kernels();
  constexpr std::int64_t kLeastRange = 16 * kWindowUnit, kMostRange = 128 * kWindowUnit;
  std::int64_t largest = kLeastRange * kLeastRange;  // of variances
  windows.begin();
  for (int y = 0; y < height; ++y) {
    windows.move_to(y);
    windows.each([&](int, int count, const WindowRow& row) {
      largest = kernels.largest_variance(row, largest, count);
    });
  }
  const auto deviation = static_cast<std::int64_t>(std::sqrt(static_cast<double>(largest)));
  const WindowRule rule{std::min(level, kMostGlobalLevel), k, std::min(deviation, kMostRange)};

  windows.begin();
  return replace_by_mono(image, [&](int y, Row bits) {
    const Bytes levels = grey.read(y);
    windows.move_to(y);
    windows.each([&](int x, int count, const WindowRow& row) {
      kernels.mark_by_windows(levels.data() + x, row, rule, dark.data() + x, count);
    });
    pack_white(dark.pixels(), width, bits);
  });
}

}  // namespace tq::process
