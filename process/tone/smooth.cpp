// Means of what lies around a pixel: all alike, or by a bell curve; and what differs from them.
#include <array>

#include "process/geometry/weights.h"
#include "process/tone/filter.h"
#include "process/tone/kernels.h"

namespace tq::process {
namespace {

// Sums of columns, which lose a row above and gain one below.
class BoxRows {
 public:
  BoxRows(const ImageSource& image, int radius)
      : image_(image), rows_(image, true), radius_(radius) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    return columns_.allocate((std::int64_t{image_.width()} + 2 * radius_) * rows_.channels());
  }

  void make(int y, Row to) {
    if (y == 0) {
      for (int j = -radius_; j <= radius_; ++j) add(j, 1);
    } else {
      add(y + radius_, 1);
      add(y - radius_ - 1, -1);
    }
    pad();
    const std::ptrdiff_t size = rows_.channels(), side = 2 * std::ptrdiff_t{radius_} + 1;
    const auto count = static_cast<std::uint32_t>(side * side);
    // Exact for every sum: it is below 2^25, and the error of the factor below 1.
    const std::uint64_t factor = ((std::uint64_t{1} << 48) + count - 1) / count;
    for (std::ptrdiff_t c = 0; c < size; ++c) {
      const std::uint16_t* const first = columns_.data() + c;
      std::uint32_t sum = count / 2;
      for (std::ptrdiff_t i = 0; i < side - 1; ++i) sum += first[i * size];
      const std::uint16_t* in = first + (side - 1) * size;
      const std::uint16_t* out = first;
      for (std::ptrdiff_t i = c; i < std::ssize(to); i += size, in += size, out += size) {
        sum += *in;
        to[static_cast<std::size_t>(i)] = byte(sum * factor >> 48);
        sum -= *out;
      }
    }
  }

 private:
  void add(int y, int sign) {
    const Bytes from = rows_.read(std::clamp(y, 0, image_.height() - 1));
    std::uint16_t* const sums = columns_.data() + std::ptrdiff_t{radius_} * rows_.channels();
    if (sign > 0) {
      for (std::size_t i = 0; i < from.size(); ++i) sums[i] = word(sums[i] + from[i]);
    } else {
      for (std::size_t i = 0; i < from.size(); ++i) sums[i] = word(sums[i] - from[i]);
    }
  }
  void pad() {
    const std::ptrdiff_t size = rows_.channels(), margin = radius_ * size;
    std::uint16_t* const all = columns_.data();
    for (std::ptrdiff_t i = margin; i-- > 0;) all[i] = all[i + size];
    std::uint16_t* const end = all + std::ssize(columns_.pixels()) - margin;
    for (std::ptrdiff_t i = 0; i < margin; ++i) end[i] = end[i - size];
  }

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int radius_;
  RowBuffer<std::uint16_t> columns_;
};

// Along rows into 16 bits with 6 of fraction, then down the columns, as in resizing.
class GaussRows {
 public:
  GaussRows(const ImageSource& image, int deviation)
      : image_(image), bell_(deviation), rows_(image, bell_.radius(), 0) {}

  Status allocate() {
    TQ_TRY(bell_.allocate());
    TQ_TRY(rows_.allocate());
    held_ = std::min(2 * bell_.radius() + 1, image_.height());
    TQ_TRY(places_.allocate(2 * bell_.radius() + 1));
    return made_.allocate(rows_.row_samples() * held_);
  }

  void make(int y, Row to) {
    const int radius = bell_.radius(), last = image_.height() - 1;
    for (; next_ <= std::min(y + radius, last); ++next_) {
      rows_.move_to(next_);
      kernels_.smooth_along(rows_.row(next_), rows_.channels(), bell_.weights(), radius,
                            row_of(next_), std::ssize(to));
    }
    for (int j = -radius; j <= radius; ++j) {
      places_[j + radius] = row_of(std::clamp(y + j, 0, last));
    }
    kernels_.smooth_down(places_.data() + radius, 0, bell_.weights(), radius, to.data(),
                         std::ssize(to));
  }

 private:
  std::int16_t* row_of(int y) const {
    return made_.data() + static_cast<std::ptrdiff_t>(y % held_ * rows_.row_samples());
  }

  const ImageSource& image_;
  Bell bell_;
  PaddedRows rows_;
  ToneKernels kernels_ = tone_kernels();
  int held_ = 1, next_ = 0;
  RowBuffer<const std::int16_t*> places_;
  RowBuffer<std::int16_t> made_;
};

class UnsharpRows {
 public:
  UnsharpRows(const ImageSource& image, int deviation, int amount)
      : rows_(image, true), smooth_(image, deviation), amount_((amount * kSharpest + 50) / 100) {}
  Status allocate() {
    TQ_TRY(rows_.allocate());
    return smooth_.allocate();
  }
  void make(int y, Row to) {
    smooth_.make(y, to);
    tone_kernels().sharpen(rows_.read(y).data(), amount_, to.data(), std::ssize(to));
  }

 private:
  static constexpr int kSharpest = 1 << kSharpenBits;
  GreyOrColourRows rows_;
  GaussRows smooth_;
  int amount_;
};

class EdgeRows {
 public:
  explicit EdgeRows(const ImageSource& image) : rows_(image, 1, 1) {}
  Status allocate() { return rows_.allocate(); }
  void make(int y, Row to) {
    rows_.move_to(y);
    const std::uint8_t* const around[] = {rows_.row(y - 1), rows_.row(y), rows_.row(y + 1)};
    tone_kernels().find_edges(around, rows_.channels(), to.data(), std::ssize(to));
  }

 private:
  PaddedRows rows_;
};

}  // namespace

Status box_filter(ImageSource& image, int radius) {
  return filter_by(image, BoxRows(image, radius));
}

Status gauss_filter(ImageSource& image, int deviation) {
  return filter_by(image, GaussRows(image, deviation));
}

Status unsharp_filter(ImageSource& image, int deviation, int amount) {
  return filter_by(image, UnsharpRows(image, deviation, amount));
}

Status edge_filter(ImageSource& image) {
  return filter_by(image, EdgeRows(image));
}

}  // namespace tq::process
