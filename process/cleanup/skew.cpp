// Lines of text show best in a profile across them: the lower edges of letters, summed along lines of
// every slope. Columns of a few pixels are shifted against each other and added.
#include "process/cleanup/skew.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "process/cleanup/bit_counts.h"
#include "process/cleanup/kernels.h"
#include "process/cleanup/text_ink.h"
#include "process/geometry/geometry.h"
#include "process/geometry/sines.h"
#include "process/process.h"

namespace tq::process {
namespace {

constexpr int kUsualRange = 1500;
constexpr int kCoarseStep = 50, kFineStep = 5, kFineReach = 60;
constexpr int kBeyond = 100;      // that is looked at behind the range
constexpr int kFewestEdges = 60;  // pixels
constexpr int kEnoughMarks = 60;
constexpr double kMostAspect = 16;
constexpr int kRivalDistance = 200;
constexpr int kSureConfidence = 800;  // of which no rival takes anything
constexpr int kBandColumns = 75;      // of 4 pixels: about three inches
constexpr int kBandReach = 7;         // fine steps
constexpr int kFewestApart = 3;       // hundredths of a degree: what bands differ from the page
constexpr double kGainOfBands = 1.005;

// Lower edges in columns of a few pixels, each over all rows of the page, with nothing before and behind them.
class Columns {
 public:
  // Columns of 4 pixels, or two of them together.
  Status find(const InkPage& page);
  Status join(const Columns& narrow);
  int count() const { return count_; }
  int column_width() const { return column_width_; }
  std::int64_t edges() const { return edges_; }
  int rows() const { return rows_; }
  const std::uint8_t* column(int i) const {
    return cells_.data() + i * stride() + std::ptrdiff_t{kBlock};
  }

  static constexpr int kBlock = kRowsAtATime;

 private:
  std::ptrdiff_t stride() const { return rows_ + std::ptrdiff_t{2 * kBlock}; }

  Status allocate(int column_width, int page_width, int rows);

  int column_width_ = 8, count_ = 0, rows_ = 0;
  std::int64_t edges_ = 0;
  RowBuffer<std::uint8_t> cells_;  // and a column of nothing at the end
};

Status Columns::allocate(int column_width, int page_width, int rows) {
  column_width_ = column_width;
  rows_ = rows;
  count_ = (page_width - 1) / column_width + 1;
  return cells_.allocate((std::int64_t{count_} + 1) * stride());
}

Status Columns::find(const InkPage& page) {
  const int height = page.height();
  TQ_TRY(allocate(4, page.width(), height));
  RowBuffer<std::uint8_t> blank;
  TQ_TRY(blank.allocate(std::ssize(page.row(0))));
  std::ranges::fill(blank.pixels(), std::uint8_t{0xFF});
  for (int y = 0; y < height; ++y) {
    const Row row = page.row(y), below = y + 1 < height ? page.row(y + 1) : blank.pixels();
    for (std::size_t at = 0; at < row.size(); at += 8) {
      std::uint64_t upper, lower;
      std::memcpy(&upper, &row[at], sizeof upper);
      std::memcpy(&lower, &below[at], sizeof lower);
      if ((~upper & lower) == 0) continue;
      const std::uint64_t counts = count_in_fours(~upper & lower);
      edges_ += sum_of_fours(counts);
      std::array<std::uint8_t, 8> pairs;
      std::memcpy(pairs.data(), &counts, sizeof pairs);
      for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (pairs[i] == 0) continue;
        std::uint8_t* const cells = cells_.data() + 2 * (at + i) * stride() + kBlock + y;
        cells[0] = byte(pairs[i] >> 4);
        cells[stride()] = pairs[i] & 15;
      }
    }
  }
  return kOk;
}

Status Columns::join(const Columns& narrow) {
  TQ_TRY(allocate(8, 8 * ((narrow.count_ + 1) / 2), narrow.rows_));
  edges_ = narrow.edges_;
  for (int i = 0; i < count_; ++i) {
    std::uint8_t* const out = cells_.data() + i * stride();
    const std::uint8_t* const left = narrow.cells_.data() + 2 * i * stride();
    const std::uint8_t* const right = left + stride();
    for (std::ptrdiff_t y = 0; y < stride(); ++y) out[y] = byte(left[y] + right[y]);
  }
  return kOk;
}

using Block = std::array<std::uint16_t, Columns::kBlock>;

// Rows y and on of so many columns together.
Block add_columns(const CleanupKernels& kernels, const Columns& columns,
                  std::span<const MovedColumn> moved, int y) {
  const std::size_t most = 255 / columns.column_width();
  Block sums{};
  while (!moved.empty()) {
    const std::span<const MovedColumn> part = moved.first(std::min(moved.size(), most));
    moved = moved.subspan(part.size());
    std::array<std::uint8_t, Columns::kBlock> bytes;
    kernels.add_columns(part.data(), std::ssize(part), columns.rows(), y, bytes.data());
    for (int i = 0; i < Columns::kBlock; ++i) sums[i] = word(sums[i] + bytes[i]);
  }
  return sums;
}

int nearest(double value) {
  return static_cast<int>(value + (value < 0 ? -0.5 : 0.5));
}

// How much neighbouring rows of a profile differ: no page has 2000 blocks in a row, so 16 bits are enough.
class Roughness {
 public:
  void add(const Block& rows) {
    std::array<std::uint16_t, Columns::kBlock> before;
    before[0] = last_;
    std::copy(rows.begin(), rows.end() - 1, before.begin() + 1);
    last_ = rows.back();
    std::int32_t sum = 0;
    for (int i = 0; i < Columns::kBlock; ++i) {
      const auto difference = static_cast<std::int16_t>(rows[i] - before[i]);
      sum += difference * difference;
    }
    sum_ += sum;
  }
  // And nothing behind the last row.
  std::int64_t finish() const { return sum_ + std::int64_t{last_} * last_; }

 private:
  std::int64_t sum_ = 0;
  std::uint16_t last_ = 0;
};

class Scores {
 public:
  Scores(const Columns& columns, double aspect) : columns_(columns), aspect_(aspect) {}
  Status allocate() { return moved_.allocate(columns_.count()); }

  // Along lines that fall to the right by an angle.
  std::int64_t page(int angle) {
    const double slope = tangent(angle) * aspect_ * columns_.column_width();
    for (int i = 0; i < columns_.count(); ++i) {
      moved_[i] = {columns_.column(i), nearest(slope * i)};
    }
    const int most = moved_[columns_.count() - 1].up;
    Roughness roughness;
    for (int y = -std::max(most, 0); y < columns_.rows() - std::min(most, 0);
         y += Columns::kBlock) {
      roughness.add(add_columns(kernels_, columns_, moved_.pixels(), y));
    }
    return roughness.finish();
  }

 private:
  const Columns& columns_;
  double aspect_;
  CleanupKernels kernels_ = cleanup_kernels();
  RowBuffer<MovedColumn> moved_;
};

constexpr int kMostCoarse = 2 * (kMostSkew + kBeyond) / kCoarseStep + 1;
constexpr int kFine = 2 * kFineReach / kFineStep + 1;

// Where a parabola through three values is greatest, from the middle one, in steps.
double summit(double before, double middle, double after) {
  const double bend = before - 2 * middle + after;
  return bend < 0 ? std::clamp(0.5 * (before - after) / bend, -0.5, 0.5) : 0;
}

// The greatest of scores that are `kFineStep` apart, smoothed, neither the first two nor the last two.
struct Peak {
  double place = 0;  // steps from the first score
  double gain = 0;   // over the middle one
};

template <std::size_t kCount>
Peak find_peak(const std::array<double, kCount>& scores) {
  std::array<double, kCount> smooth{};
  for (std::size_t i = 1; i + 1 < kCount; ++i) {
    smooth[i] = scores[i - 1] + 2 * scores[i] + scores[i + 1];
  }
  const auto best = std::max_element(smooth.begin() + 2, smooth.end() - 2);
  return {static_cast<double>(best - smooth.begin()) + summit(best[-1], best[0], best[1]),
          best[0] / std::max(smooth[kCount / 2], 1.0)};
}

// Columns of text that stand beside each other are often not level, and a profile across the whole page prefers
// the slope in which some of their lines happen to meet. Here each band of the page has a profile of its own.
// It is so narrow that shifts by whole rows would favour level lines: they are by quarters, and the edges are
// split over two rows. That blurs a profile, so each slope is seen from four starts, which blur all alike.
//
// Edges at quarters of a row, seen through a triangle of a row to each side, are all four profiles in turn.
class BandScores {
 public:
  BandScores(const Columns& columns, double aspect) : columns_(columns), aspect_(aspect) {}

  Status allocate() {
    const double most = tangent(kMostSkew + kBeyond + 3 * kFineReach) * aspect_ * kBandColumns *
                        columns_.column_width();
    const std::int64_t rows = columns_.rows() + static_cast<std::int64_t>(most) + 2;
    return quarters_.allocate((rows / Columns::kBlock + 1) * Columns::kBlock * kParts + 4 * kStep);
  }

  // Of all bands together, for angles that are a step apart.
  template <std::size_t kCount>
  std::array<double, kCount> around(int middle, int step) {
    std::array<double, kCount> scores{};
    for (int first = 0; first < columns_.count(); first += kBandColumns) {
      const int count = std::min(kBandColumns, columns_.count() - first);
      for (int i = 0; i < std::ssize(scores); ++i) {
        scores[i] += band(middle + (i - int{kCount / 2}) * step, first, count);
      }
    }
    return scores;
  }

 private:
  static constexpr int kParts = 4;  // of a row
  static constexpr int kStep = 16;

  double band(int angle, int first, int count) {
    const double slope = tangent(angle) * aspect_ * columns_.column_width() * kParts;
    // By the quarters that are more than shifts by whole rows.
    std::array<std::array<MovedColumn, kBandColumns>, kParts> moved;
    std::array<std::size_t, kParts> counts{};
    std::int32_t up = 0;
    for (int i = 0; i < count; ++i) {
      const int quarters = nearest(slope * i), part = quarters & (kParts - 1);
      up = (quarters - part) / kParts;
      moved[part][counts[part]++] = {columns_.column(first + i), up};
    }
    std::ranges::fill(quarters_.pixels(), std::uint16_t{0});
    std::uint16_t* out = quarters_.data() + kStep;
    const int bottom = columns_.rows() - std::min(up, 0);
    for (int y = -std::max(up, 0); y < bottom; y += Columns::kBlock) {
      for (int part = 0; part < kParts; ++part) {
        const Block rows =
            add_columns(kernels_, columns_, std::span(moved[part]).first(counts[part]), y);
        for (int i = 0; i < Columns::kBlock; ++i) out[kParts * i - part] = rows[i];
      }
      out += kParts * Columns::kBlock;
    }
    std::int64_t score = 0;
    for (const std::uint16_t* at = quarters_.data(); at < out; at += kStep) score += rises(at);
    return static_cast<double>(score);
  }

  // Squares of what the places a row further on are more, of so many in turn. A place is seen from itself by
  // four, from three to each side by less and less; so here are two triangles, one less the other.
  static std::int32_t rises(const std::uint16_t* at) {
    std::array<std::uint16_t, kStep + 2 * kParts + 2> q;
    std::memcpy(q.data(), at, sizeof q);
    std::int32_t sum = 0;
    for (int i = 0; i < kStep; ++i) {
      const auto rise = static_cast<std::int16_t>(
          q[i + 10] - q[i] + 2 * (q[i + 9] - q[i + 1] + q[i + 6] - q[i + 4]) +
          3 * (q[i + 8] - q[i + 2]) + 4 * (q[i + 7] - q[i + 3]));
      sum += rise * rise;
    }
    return sum;
  }

  const Columns& columns_;
  double aspect_;
  CleanupKernels kernels_ = cleanup_kernels();
  RowBuffer<std::uint16_t> quarters_;
};

Status refine(const Columns& columns, double aspect, int coarse, int& angle) {
  Scores scores(columns, aspect);
  TQ_TRY(scores.allocate());
  std::array<double, kFine + 2> across{};
  const int first = coarse - kFineReach - kFineStep;
  for (int i = 0; i < std::ssize(across); ++i) {
    across[i] = static_cast<double>(scores.page(first + i * kFineStep));
  }
  angle = nearest(first + kFineStep * find_peak(across).place);

  BandScores bands(columns, aspect);
  TQ_TRY(bands.allocate());
  const auto [left, middle, right] = bands.around<3>(angle, 2 * kFineStep);
  const bool is_peak = middle > std::max(left, right);
  if (is_peak && std::abs(2 * kFineStep * summit(left, middle, right)) < kFewestApart) return kOk;
  const Peak peak = find_peak(bands.around<2 * kBandReach + 1>(angle, kFineStep));
  if (peak.gain >= kGainOfBands) angle = nearest(angle + kFineStep * (peak.place - kBandReach));
  return kOk;
}

}  // namespace

Status find_lines(const InkPage& text, int marks, int range, Skew& skew) {
  skew = {};
  // Pixels of such a shape are those of no scanner.
  if (text.aspect() < 1 / kMostAspect || text.aspect() > kMostAspect) return kOk;
  Columns narrow, columns;
  TQ_TRY(narrow.find(text));
  if (narrow.edges() < kFewestEdges) return kOk;
  TQ_TRY(columns.join(narrow));
  Scores scores(columns, text.aspect());
  TQ_TRY(scores.allocate());

  std::array<std::int64_t, kMostCoarse> coarse{};
  const int steps = (range + kBeyond) / kCoarseStep, count = 2 * steps + 1;
  for (int i = 0; i < count; ++i) coarse[i] = scores.page((i - steps) * kCoarseStep);
  const std::span<const std::int64_t> all = std::span(coarse).first(count);
  const auto best = std::ranges::max_element(all);
  const int at = static_cast<int>(best - all.begin());
  // What fits best beyond the range is not looked for.
  if (at < 2 || at >= count - 2) return kOk;

  std::array<std::int64_t, kMostCoarse> sorted = coarse;
  const auto middle = sorted.begin() + count / 2;
  std::nth_element(sorted.begin(), middle, sorted.begin() + count);
  // Of few marks some slope always fits best.
  const std::int64_t weight = std::min(marks, kEnoughMarks);
  const std::int64_t confidence =
      100 * *best / std::max<std::int64_t>(*middle, 1) * weight / kEnoughMarks;
  std::int64_t rival = 0;
  for (int i = 0; i < count; ++i) {
    if (std::abs(i - at) * kCoarseStep >= kRivalDistance) rival = std::max(rival, coarse[i]);
  }
  if (confidence < kSureConfidence && 7 * rival >= 5 * *best) return kOk;

  int fall = 0;
  TQ_TRY(refine(narrow, text.aspect(), (at - steps) * kCoarseStep, fall));
  if (std::abs(fall) > range + kFineStep) return kOk;
  skew.angle = -std::clamp(fall, -range, range);
  skew.confidence = static_cast<int>(std::min<std::int64_t>(confidence, 1'000'000));
  return kOk;
}

Status find_skew(ImageSource& image, InkPage::Reports reports, int range, Skew& skew) {
  if (range < 0 || range > kMostSkew) return StatusCode::unsupported;
  if (range == 0) range = kUsualRange;
  InkPage page;
  TQ_TRY(page.find(image, reports));
  int marks = 0;
  TQ_TRY(keep_text(page, marks));
  return find_lines(page, marks, range, skew);
}

Status find_skew(ImageSource& image, std::int32_t range, std::int32_t& angle,
                 std::int32_t& confidence) {
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  Skew skew;
  TQ_TRY(find_skew(image, InkPage::Reports::source_rows, range, skew));
  angle = skew.angle;
  confidence = skew.confidence;
  return Status::from_raw(skew.confidence > 0 ? 1 : 0);
}

Status deskew_bitmap(ImageSource& image, std::int32_t range, std::int32_t least,
                     std::int32_t colour, std::int32_t& angle) {
  constexpr int kUsualLeast = 300, kSmallest = 5;
  constexpr std::int32_t kUsual = -1, kKeepSides = 1;
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (least < kUsual) return StatusCode::unsupported;
  Pixel outside;
  TQ_TRY(choose_pixel(image, colour, outside));
  Skew skew;
  TQ_TRY(find_skew(image, InkPage::Reports::none, range, skew));
  const bool turns = skew.confidence > 0 && std::abs(skew.angle) >= kSmallest &&
                     skew.confidence >= (least == kUsual ? kUsualLeast : least);
  angle = turns ? skew.angle : 0;
  if (!turns) {
    for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
    return kOk;
  }
  TQ_TRY(rotate_bitmap(image, skew.angle, colour, kKeepSides));
  return Status::from_raw(1);
}

}  // namespace tq::process
