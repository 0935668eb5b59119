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

  // How much the rows of the profile differ along lines that fall to the right by an angle.
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
    std::int64_t score = 0;
    for (std::size_t y = 0; y + 1 < profile_.size(); ++y) {
      const std::int64_t difference = profile_.data()[y + 1] - profile_.data()[y];
      score += difference * difference;
    }
    return score;
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

Status refine(const InkPage& page, int coarse, int& angle) {
  Columns columns;
  TQ_TRY(columns.allocate(page, 4));
  Scores scores(columns, page.aspect());
  TQ_TRY(scores.allocate());
  std::array<double, kFine + 2> raw{}, smooth{};
  for (int i = 0; i < kFine + 2; ++i) {
    raw[i] = static_cast<double>(scores.page(coarse - kFineReach + (i - 1) * kFineStep));
  }
  for (int i = 1; i <= kFine; ++i) smooth[i] = raw[i - 1] + 2 * raw[i] + raw[i + 1];
  const auto best = std::max_element(smooth.begin() + 2, smooth.begin() + kFine);
  const int at = static_cast<int>(best - smooth.begin());
  const double exact =
      coarse - kFineReach + kFineStep * (at - 1 + summit(best[-1], best[0], best[1]));
  angle = static_cast<int>(exact + (exact < 0 ? -0.5 : 0.5));
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
