// The darkest, the lightest and the middle one of the levels around a pixel.
#include <array>

#include "process/tone/filter.h"
#include "process/tone/kernels.h"

namespace tq::process {
namespace {

// The least, or the greatest, of a window: of each row first, by windows of up to twice the size at a
// time. Down the columns rows come in blocks as high as the window, which so lies in two of them: of
// the upper block what is known is the extremes from each row to its end, of the lower one those of
// all rows that have come. A row is compared three times, however high the window is (van Herk).
class ExtremeRows {
 public:
  ExtremeRows(const ImageSource& image, int radius, bool lightest)
      : image_(image),
        rows_(image, radius, 0),
        radius_(radius),
        side_(2 * radius + 1),
        extreme_(lightest ? tone_kernels().greater : tone_kernels().lesser) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    const std::int64_t samples = rows_.row_samples();
    TQ_TRY(wide_.allocate(samples + 2 * std::int64_t{radius_} * rows_.channels()));
    TQ_TRY(lower_.allocate(samples));
    TQ_TRY(upper_.allocate(side_ * samples));
    samples_ = std::ssize(lower_.pixels());
    return kOk;
  }

  void make(int y, Row to) {
    for (int i = y == 0 ? 0 : y + 2 * radius_; i <= y + 2 * radius_; ++i) take(i);
    const std::uint8_t* const upper = place(y % side_);
    if (y % side_ == 0) {
      std::copy_n(upper, samples_, to.begin());
    } else {
      extreme_(upper, lower_.data(), to.data(), samples_);
    }
  }

 private:
  // Rows of the lower block take the places of those that the window has left.
  std::uint8_t* place(int i) const { return upper_.data() + i * samples_; }

  // Row `i` below the first row of the first window.
  void take(int i) {
    across(std::clamp(i - radius_, 0, image_.height() - 1));
    const int at = i % side_;
    std::copy_n(wide_.data(), samples_, place(at));
    if (at == 0) {
      std::copy_n(wide_.data(), samples_, lower_.data());
    } else {
      extreme_(lower_.data(), wide_.data(), lower_.data(), samples_);
    }
    if (at < side_ - 1) return;
    for (int j = side_ - 2; j >= 0; --j) extreme_(place(j), place(j + 1), place(j), samples_);
  }

  void across(int y) {
    if (y == known_) return;
    known_ = y;
    rows_.move_to(y);
    const int size = rows_.channels();
    const std::uint8_t* from = rows_.row(y) - std::ptrdiff_t{radius_} * size;
    std::ptrdiff_t left = std::ssize(wide_.pixels());
    for (int done = 1; done < side_;) {
      const int step = std::min(done, side_ - done);
      left -= std::ptrdiff_t{step} * size;
      extreme_(from, from + std::ptrdiff_t{step} * size, wide_.data(), left);
      from = wide_.data();
      done += step;
    }
  }

  const ImageSource& image_;
  PaddedRows rows_;
  int radius_, side_;
  void (*extreme_)(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* to,
                   std::ptrdiff_t count);
  std::ptrdiff_t samples_ = 0;
  int known_ = -1;
  RowBuffer<std::uint8_t> wide_, lower_, upper_;
};

class SmallMedianRows {
 public:
  explicit SmallMedianRows(const ImageSource& image) : rows_(image, 1, 1) {}
  Status allocate() { return rows_.allocate(); }
  void make(int y, Row to) {
    rows_.move_to(y);
    const std::uint8_t* const around[] = {rows_.row(y - 1), rows_.row(y), rows_.row(y + 1)};
    tone_kernels().median_of_nine(around, rows_.channels(), to.data(), std::ssize(to));
  }

 private:
  PaddedRows rows_;
};

// How often each level comes, in parts of 16 levels and by itself. Four counts are added at a time:
// none of them passes 16 bits.
struct Counts {
  std::uint16_t parts[16];
  std::uint16_t levels[16][16];
};

void add_sixteen(std::uint16_t* to, const std::uint16_t* more, const std::uint16_t* less) {
  for (int i = 0; i < 16; i += 4) {
    std::uint64_t sum, plus, minus;
    std::memcpy(&sum, to + i, sizeof sum);
    std::memcpy(&plus, more + i, sizeof plus);
    std::memcpy(&minus, less + i, sizeof minus);
    sum = sum + plus - minus;
    std::memcpy(to + i, &sum, sizeof sum);
  }
}

// The middle of a window from counts of its columns: the window takes the column that comes in and
// loses the one that goes, whatever its height. Of single levels it only follows those parts where
// the middle lies.
class MedianRows {
 public:
  MedianRows(const ImageSource& image, int radius)
      : image_(image), rows_(image, true), radius_(radius) {}

  Status allocate() {
    TQ_TRY(rows_.allocate());
    return columns_.allocate(std::int64_t{image_.width()} * rows_.channels());
  }

  void make(int y, Row to) {
    if (y == 0) {
      for (int j = -radius_; j <= radius_; ++j) count(j, 1);
    } else {
      count(y + radius_, 1);
      count(y - radius_ - 1, -1);
    }
    for (int c = 0; c < rows_.channels(); ++c) make_channel(c, to);
  }

 private:
  void count(int y, int sign) {
    const Bytes from = rows_.read(std::clamp(y, 0, image_.height() - 1));
    for (std::size_t i = 0; i < from.size(); ++i) {
      Counts& column = columns_.data()[i];
      const int level = from[i];
      column.parts[level >> 4] = word(column.parts[level >> 4] + sign);
      std::uint16_t& single = column.levels[level >> 4][level & 15];
      single = word(single + sign);
    }
  }

  const Counts& column(int x, int c) const {
    const int inside = std::clamp(x, 0, image_.width() - 1);
    return columns_.data()[std::ptrdiff_t{inside} * rows_.channels() + c];
  }

  void make_channel(int c, Row to) const {
    static constexpr std::uint16_t kNone[16] = {};
    const int side = 2 * radius_ + 1, middle = side * side / 2;
    Counts window{};
    int known[16];  // the pixel at which the levels of a part were true
    std::ranges::fill(known, -side);
    for (int x = -radius_; x < radius_; ++x) add_sixteen(window.parts, column(x, c).parts, kNone);
    for (int x = 0; x < image_.width(); ++x) {
      add_sixteen(window.parts, column(x + radius_, c).parts, kNone);
      int left = middle, part = 0;
      for (; part < 15 && left >= window.parts[part]; ++part) left -= window.parts[part];
      follow(window.levels[part], known[part], part, x, c);
      int level = 0;
      for (; level < 15 && left >= window.levels[part][level]; ++level) {
        left -= window.levels[part][level];
      }
      to[static_cast<std::size_t>(std::ptrdiff_t{x} * rows_.channels() + c)] =
          byte(part * 16 + level);
      add_sixteen(window.parts, kNone, column(x - radius_, c).parts);
    }
  }

  void follow(std::uint16_t* levels, int& known, int part, int x, int c) const {
    static constexpr std::uint16_t kNone[16] = {};
    if (x - known > radius_) {
      std::fill_n(levels, 16, std::uint16_t{0});
      for (int i = x - radius_; i <= x + radius_; ++i) {
        add_sixteen(levels, column(i, c).levels[part], kNone);
      }
    } else {
      for (int i = known + 1; i <= x; ++i) {
        add_sixteen(levels, column(i + radius_, c).levels[part],
                    column(i - radius_ - 1, c).levels[part]);
      }
    }
    known = x;
  }

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int radius_;
  RowBuffer<Counts> columns_;
};

// Ink is dark where there is most of it.
Status extreme_filter(ImageSource& image, int radius, bool lightest) {
  return filter_by(image, ExtremeRows(image, radius, lightest != has_inks(image)));
}

}  // namespace

Status median_filter(ImageSource& image, int radius) {
  // Of black and white the middle is what there is more of: the mean of levels tells that as well.
  if (image.bits() == 1) return box_filter(image, radius);
  if (radius == 1) return filter_by(image, SmallMedianRows(image));
  return filter_by(image, MedianRows(image, radius));
}

Status darkest_filter(ImageSource& image, int radius) {
  return extreme_filter(image, radius, false);
}

Status lightest_filter(ImageSource& image, int radius) {
  return extreme_filter(image, radius, true);
}

}  // namespace tq::process
