// Lines of text show best in a profile across them: the lower edges of letters, summed along lines of
// every slope. Columns of a few pixels are shifted against each other and added.
#include "process/cleanup/skew.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

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

// Lower edges in columns of a few pixels, each over all rows of the page.
class Columns {
 public:
  Status allocate(const InkPage& page, int column_width);
  int count() const { return count_; }
  int column_width() const { return column_width_; }
  std::int64_t edges() const { return edges_; }
  // With rows of nothing at the end, to a multiple of kBlock.
  int rows() const { return rows_; }
  const std::uint8_t* column(int i) const { return cells_.data() + i * std::ptrdiff_t{rows_}; }

  static constexpr int kBlock = 16;

 private:
  int column_width_ = 8, count_ = 0, rows_ = 0;
  std::int64_t edges_ = 0;
  RowBuffer<std::uint8_t> cells_;
};

Status Columns::allocate(const InkPage& page, int column_width) {
  column_width_ = column_width;
  const int height = page.height();
  rows_ = (height - 1) / kBlock * kBlock + kBlock;
  count_ = (page.width() - 1) / column_width + 1;
  TQ_TRY(cells_.allocate(std::int64_t{count_} * rows_));
  const int parts = 8 / column_width, mask = (1 << column_width) - 1;
  for (int y = 0; y < height; ++y) {
    const Bytes row = page.row(y);
    for (int i = 0; i < count_; i += parts) {
      const int below = y + 1 < height ? page.row(y + 1)[i / parts] : 255;
      const unsigned edges = ~unsigned{row[i / parts]} & below;
      if (edges == 0) continue;
      edges_ += std::popcount(edges);
      for (int k = 0; k < parts && i + k < count_; ++k) {
        cells_[(i + k) * std::ptrdiff_t{rows_} + y] =
            byte(std::popcount(edges >> (8 - column_width * (k + 1)) & mask));
      }
    }
  }
  return kOk;
}

// Adds a block of a column to the profile. Copies, so that a compiler need not fear that they overlap.
void add_block(std::uint16_t* profile, const std::uint8_t* column) {
  std::array<std::uint16_t, Columns::kBlock> sums;
  std::array<std::uint8_t, Columns::kBlock> more;
  std::memcpy(sums.data(), profile, sizeof sums);
  std::memcpy(more.data(), column, sizeof more);
  for (int i = 0; i < Columns::kBlock; ++i) sums[i] = word(sums[i] + more[i]);
  std::memcpy(profile, sums.data(), sizeof sums);
}

// How much neighbouring rows of a profile differ.
std::int64_t roughness(std::span<const std::uint16_t> profile) {
  std::int64_t sum = 0;
  for (std::size_t y = 0; y + 1 < profile.size(); ++y) {
    const std::int64_t difference = profile[y + 1] - profile[y];
    sum += difference * difference;
  }
  return sum;
}

class Scores {
 public:
  Scores(const Columns& columns, double aspect) : columns_(columns), aspect_(aspect) {}
  Status allocate() {
    // Columns go up or down by at most the page's width.
    const double most = tangent(kMostSkew + kBeyond + kFineReach) * aspect_ * columns_.count() *
                        columns_.column_width();
    margin_ = static_cast<int>(most) + 2;
    return profile_.allocate(columns_.rows() + 2 * std::int64_t{margin_});
  }

  // Along lines that fall to the right by an angle.
  std::int64_t page(int angle) {
    const int rows = columns_.rows();
    std::ranges::fill(profile_.pixels(), std::uint16_t{0});
    const double slope = tangent(angle) * aspect_ * columns_.column_width();
    for (int i = 0; i < columns_.count(); ++i) {
      const double shift = slope * i;
      const int whole = static_cast<int>(shift + (shift < 0 ? -0.5 : 0.5));
      std::uint16_t* const out = profile_.data() + margin_ - whole;
      const std::uint8_t* const in = columns_.column(i);
      for (int y = 0; y < rows; y += Columns::kBlock) add_block(out + y, in + y);
    }
    return roughness(profile_.pixels());
  }

 private:
  const Columns& columns_;
  double aspect_;
  int margin_ = 0;
  RowBuffer<std::uint16_t> profile_;
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
class BandScores {
 public:
  BandScores(const Columns& columns, double aspect) : columns_(columns), aspect_(aspect) {}

  Status allocate() {
    const double most = tangent(kMostSkew + kBeyond + 3 * kFineReach) * aspect_ * kBandColumns *
                        columns_.column_width();
    margin_ = static_cast<int>(most) + 3;
    rows_ = columns_.rows() + Columns::kBlock;
    TQ_TRY(profile_.allocate(rows_ + 2 * std::int64_t{margin_}));
    return split_.allocate(std::int64_t{kBandColumns} * kParts * rows_);
  }

  // Of all bands together, for angles that are a step apart.
  template <std::size_t kCount>
  std::array<double, kCount> around(int middle, int step) {
    std::array<double, kCount> scores{};
    for (int first = 0; first < columns_.count(); first += kBandColumns) {
      const int count = std::min(kBandColumns, columns_.count() - first);
      split(first, count);
      for (int i = 0; i < std::ssize(scores); ++i) {
        scores[i] += band(middle + (i - int{kCount / 2}) * step, count);
      }
    }
    return scores;
  }

 private:
  static constexpr int kParts = 4;  // of a row

  void split(int first, int count) {
    for (int i = 0; i < count; ++i) {
      const std::uint8_t* const in = columns_.column(first + i);
      for (int part = 0; part < kParts; ++part) {
        std::uint8_t* const out = lowered(i, part);
        std::fill(out + columns_.rows(), out + rows_, std::uint8_t{0});
        out[0] = byte((kParts - part) * in[0]);
        for (int y = 1; y < columns_.rows(); ++y) {
          out[y] = byte((kParts - part) * in[y] + part * in[y - 1]);
        }
        out[columns_.rows()] = byte(part * in[columns_.rows() - 1]);
      }
    }
  }

  double band(int angle, int count) {
    const double slope = tangent(angle) * aspect_ * columns_.column_width() * kParts;
    std::int64_t score = 0;
    for (int start = 0; start < kParts; ++start) {
      std::ranges::fill(profile_.pixels(), std::uint16_t{0});
      for (int i = 0; i < count; ++i) {
        const double shift = slope * i;
        const int up = static_cast<int>(shift + (shift < 0 ? -0.5 : 0.5)) + start;
        const int part = -up & (kParts - 1);
        std::uint16_t* const out = profile_.data() + margin_ - (up + part) / kParts;
        const std::uint8_t* const in = lowered(i, part);
        for (int y = 0; y < rows_; y += Columns::kBlock) add_block(out + y, in + y);
      }
      score += roughness(profile_.pixels());
    }
    return static_cast<double>(score);
  }

  // A column of the band, so many parts of a row lower.
  std::uint8_t* lowered(int i, int part) {
    return split_.data() + (i * kParts + part) * std::ptrdiff_t{rows_};
  }

  const Columns& columns_;
  double aspect_;
  int margin_ = 0, rows_ = 0;
  RowBuffer<std::uint16_t> profile_;
  RowBuffer<std::uint8_t> split_;
};

int nearest(double value) {
  return static_cast<int>(value + (value < 0 ? -0.5 : 0.5));
}

Status refine(const InkPage& page, int coarse, int& angle) {
  Columns columns;
  TQ_TRY(columns.allocate(page, 4));
  Scores scores(columns, page.aspect());
  TQ_TRY(scores.allocate());
  std::array<double, kFine + 2> across{};
  const int first = coarse - kFineReach - kFineStep;
  for (int i = 0; i < std::ssize(across); ++i) {
    across[i] = static_cast<double>(scores.page(first + i * kFineStep));
  }
  angle = nearest(first + kFineStep * find_peak(across).place);

  BandScores bands(columns, page.aspect());
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
  Columns columns;
  TQ_TRY(columns.allocate(text, 8));
  if (columns.edges() < kFewestEdges) return kOk;
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
  TQ_TRY(refine(text, (at - steps) * kCoarseStep, fall));
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
