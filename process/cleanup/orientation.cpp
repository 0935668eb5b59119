// Text is sideways where its lines show across the page, and upside down where more of its letters
// reach below the line than above it: there are more of b d f h k l t and capitals than of g j p q y.
#include "process/cleanup/orientation.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "process/cleanup/skew.h"
#include "process/cleanup/text_ink.h"
#include "process/geometry/geometry.h"
#include "process/geometry/sines.h"
#include "process/process.h"

namespace tq::process {
namespace {

constexpr int kStrip = 96;                         // columns, about an inch
constexpr int kLowestLine = 5, kHighestLine = 45;  // rows
constexpr double kClearly = 1.3;                   // of lines along and across
constexpr int kRange = 1500;
constexpr double kFewestLines = 20, kCertain = 5;  // lines of a strip; standard errors
constexpr double kLeastLean = 0.03, kMostLean = 0.12, kMostDeviation = 0.12;  // of a line's ink

// The ink of a page in strips, made level: counts per strip and row.
class Strips {
 public:
  int rows() const { return rows_; }
  int count() const { return count_; }
  std::span<const std::uint16_t> strip(int i) const {
    return ink_.pixels().subspan(static_cast<std::size_t>(i) * rows_,
                                 static_cast<std::size_t>(rows_));
  }

  // `slope`: rows that lines fall by in a column.
  Status measure(const InkPage& page, double slope) {
    rows_ = page.height();
    count_ = (page.width() - 1) / kStrip + 1;
    TQ_TRY(ink_.allocate(std::int64_t{count_} * rows_));
    const int middle = page.width() / 2;
    for (int y = 0; y < rows_; ++y) {
      const Row row = page.row(y);
      const int bytes = (page.width() + 7) / 8;
      for (int i = 0; i < bytes; ++i) {
        if (row[i] == 0xFF) continue;
        const double fall = slope * (8 * i + 4 - middle);
        const int level = y - static_cast<int>(fall + (fall < 0 ? -0.5 : 0.5));
        if (level < 0 || level >= rows_) continue;
        std::uint16_t& place = ink_[8 * i / kStrip * std::ptrdiff_t{rows_} + level];
        place = word(place + std::popcount(static_cast<unsigned>(row[i] ^ 0xFF)));
      }
    }
    return kOk;
  }

  // How clearly there are lines.
  double lines() const {
    double sum = 0;
    for (int i = 0; i < count_; ++i) {
      const std::span<const std::uint16_t> ink = strip(i);
      for (std::size_t y = 0; y + 1 < ink.size(); ++y) {
        const double difference = double{1} * ink[y + 1] - ink[y];
        sum += difference * difference;
      }
    }
    return sum;
  }

 private:
  int rows_ = 0, count_ = 0;
  RowBuffer<std::uint16_t> ink_;
};

// What speaks for upright lines, and against it.
struct Evidence {
  double lines = 0, sum = 0, squares = 0;

  void add(double value) {
    ++lines;
    sum += value;
    squares += value * value;
  }
  double mean() const { return lines > 0 ? sum / lines : 0; }
  // How sure the mean's sign is, in its standard errors; 0 where lines tell too little: Greek and
  // Cyrillic lean a little to the wrong side, Chinese lines differ too much from each other, and rows
  // that hold most of a line are head lines or underlines, of which nobody knows which.
  double certainty() const {
    if (lines < kFewestLines) return 0;
    const double variance = squares / lines - mean() * mean(), lean = std::abs(mean());
    const bool tells = lean >= kLeastLean && lean <= kMostLean && variance > 0 &&
                       variance <= kMostDeviation * kMostDeviation;
    return tells ? mean() / std::sqrt(variance / lines) : 0;
  }
};

// One line of text of a strip, by the ink of its rows.
void judge_line(std::span<const std::uint16_t> ink, Evidence& evidence) {
  const int rows = static_cast<int>(ink.size());
  int rise = 0, fall = 0, most_rise = -1, most_fall = -1, total = 0;
  for (int y = 0; y <= rows; ++y) {
    const int above = y > 0 ? ink[y - 1] : 0, here = y < rows ? ink[y] : 0;
    if (here - above > most_rise) most_rise = here - above, rise = y;
    if (above - here >= most_fall) most_fall = above - here, fall = y;
    total += here;
  }
  if (fall <= rise + 1 || total < 3 * kStrip / 2) return;
  int above = 0, below = 0;
  for (int y = 0; y < rise; ++y) above += ink[y];
  for (int y = fall; y < rows; ++y) below += ink[y];
  evidence.add(double{1} * (above - below) / total);
}

Evidence judge(const Strips& strips) {
  Evidence evidence;
  for (int i = 0; i < strips.count(); ++i) {
    const std::span<const std::uint16_t> ink = strips.strip(i);
    int start = -1;
    for (int y = 0; y <= strips.rows(); ++y) {
      const bool has_ink = y < strips.rows() && ink[y] > 0;
      if (has_ink && start < 0) start = y;
      if (has_ink || start < 0) continue;
      const int high = y - start;
      if (high >= kLowestLine && high <= kHighestLine) {
        judge_line(ink.subspan(static_cast<std::size_t>(start), static_cast<std::size_t>(high)),
                   evidence);
      }
      start = -1;
    }
  }
  return evidence;
}

}  // namespace

Status find_orientation(const InkPage& text, int marks, Orientation& orientation) {
  orientation = {};
  InkPage across;
  TQ_TRY(across.transpose(text));
  const InkPage* pages[] = {&text, &across};
  Strips strips[2];
  double strength[2];
  for (int i = 0; i < 2; ++i) {
    Skew skew;
    TQ_TRY(find_lines(*pages[i], marks, kRange, skew));
    TQ_TRY(strips[i].measure(*pages[i], -tangent(skew.angle) * pages[i]->aspect()));
    strength[i] = strips[i].lines();
  }
  const int sideways = strength[1] > strength[0] ? 1 : 0;
  if (strength[sideways] < kClearly * strength[1 - sideways]) return kOk;
  const double certainty = judge(strips[sideways]).certainty();
  if (std::abs(certainty) < kCertain) return kOk;
  // Of the transposed page the rows are columns from the left: what stands on its head there reads
  // downwards, and a turn back by a quarter makes it upright.
  const int upright = sideways == 0 ? 0 : 9000, upside_down = sideways == 0 ? 18000 : 27000;
  orientation.angle = certainty > 0 ? upright : upside_down;
  orientation.confidence = static_cast<int>(std::min(100 * std::abs(certainty), 1e6));
  return kOk;
}

Status find_orientation(ImageSource& image, std::int32_t& angle, std::int32_t& confidence) {
  InkPage page;
  int marks = 0;
  TQ_TRY(page.find(image, InkPage::Reports::source_rows));
  TQ_TRY(keep_text(page, marks));
  Orientation found;
  TQ_TRY(find_orientation(page, marks, found));
  angle = found.angle;
  confidence = found.confidence;
  return Status::from_raw(found.confidence > 0 ? 1 : 0);
}

Status auto_orient_bitmap(ImageSource& image, std::int32_t least, std::int32_t& angle) {
  constexpr std::int32_t kUsual = -1, kUsualLeast = 500;
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (least < kUsual) return StatusCode::unsupported;
  InkPage page;
  int marks = 0;
  TQ_TRY(page.find(image, InkPage::Reports::none));
  TQ_TRY(keep_text(page, marks));
  Orientation found;
  TQ_TRY(find_orientation(page, marks, found));
  const bool turns = found.confidence > 0 && found.angle != 0 &&
                     found.confidence >= (least == kUsual ? kUsualLeast : least);
  angle = turns ? found.angle : 0;
  if (!turns) {
    for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
    return kOk;
  }
  TQ_TRY(rotate_bitmap(image, found.angle, kPaper, 0));
  return Status::from_raw(1);
}

}  // namespace tq::process
