// Which way up a page of text is. Its lines show along it or across it. Of a line, dots and accents stand
// above the letters in nearly every script; more letters rise above the others than hang below them in
// Latin script, and the reverse in Cyrillic, which therefore never decides by itself; Indian letters
// hang from a bar; and full stops stand at the foot.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "process/cleanup/components.h"
#include "process/cleanup/ink.h"
#include "process/cleanup/skew.h"
#include "process/cleanup/text_ink.h"
#include "process/cleanup/text_lines.h"
#include "process/geometry/geometry.h"
#include "process/geometry/sines.h"
#include "process/process.h"

namespace tq::process {
namespace {

constexpr int kRange = 1500;
constexpr int kLeastLines = 200;  // confidence
constexpr int kClearly = 2;       // of what is found along and across
constexpr double kCertain = 5;    // standard errors

// What is counted on a page, of those that speak for it lying upright and those against it.
struct Pairs {
  int upright = 0, upside_down = 0;

  void add(bool speaks_for) { ++(speaks_for ? upright : upside_down); }
  // In standard errors of as many that are tossed.
  double excess(double most) const {
    const double all = upright + upside_down;
    return all > 0 ? std::clamp((upright - upside_down) / std::sqrt(all), -most, most) : 0;
  }
};

// Free columns beside a mark among the letters of its line.
int room_beside(const InkPage& page, const TextLine& line, int x, int step) {
  const int most = line.height();
  int room = 0;
  while (room < most && !page.has_ink(x, line.upper, x + 1, line.lower)) ++room, x += step;
  return room;
}

class Evidence {
 public:
  // `page` lies level.
  Status gather(const InkPage& page, double inch);

  // Signed, in standard errors: above 0 for upright. Letters only add to what else is found: what they
  // tell of Latin script is the reverse of what they tell of Cyrillic. Nothing is told of a screen, which
  // has more dots than `pieces`, the letters and marks of a page.
  double certainty(int pieces) const {
    if (dots_.upright + dots_.upside_down > pieces) return 0;
    const double marks = dots_.excess(kMostByDots) + stops() + bars();
    const double letters = letters_.excess(2 * kMostByLetters) / 2;
    return std::abs(marks) < kLeastMarks || marks * (marks + letters) <= 0 ? 0 : marks + letters;
  }

 private:
  static constexpr double kMostByDots = 12, kMostByLetters = 4, kLeastMarks = 2.5;
  static constexpr double kMostByStops = 6, kMostByMixedStops = 2;
  static constexpr int kFewestStops = 16, kPure = 8;
  static constexpr double kLeastBars = 0.6, kBarWeight = 8;
  static constexpr std::size_t kFewestBarLines = 15;

  double bars() const { return std::abs(bars_) < kLeastBars ? 0 : kBarWeight * bars_; }
  // Pieces of broken letters look like full stops, at either side.
  double stops() const {
    const auto [less, more] = std::minmax(stops_.upright, stops_.upside_down);
    if (more >= kFewestStops && more >= kPure * less) return stops_.excess(kMostByStops);
    return stops_.excess(2 * kMostByMixedStops) / 2;
  }
  void judge(const InkPage& page, const TextLine& line, const Component& c);
  void judge_mark(const InkPage& page, const TextLine& line, const Component& c);

  Pairs letters_, dots_, stops_;
  double bars_ = 0;
};

Status Evidence::gather(const InkPage& page, double inch) {
  TextLines lines;
  TQ_TRY(lines.find(page, inch));
  if (lines.count() >= kFewestBarLines) {
    bars_ = (lines.bars_above() - lines.bars_below()) / static_cast<double>(lines.count());
  }
  Components components(Components::Neighbours::eight, Components::Colour::black);
  TQ_TRY(find_components(page, components));
  for (const Component& c : components.all()) {
    const TextLine* const line = lines.at((c.left + c.right) / 2, (c.top + c.bottom) / 2);
    if (line != nullptr) judge(page, *line, c);
  }
  return kOk;
}

void Evidence::judge(const InkPage& page, const TextLine& line, const Component& c) {
  const double high = line.height();
  const int height = c.bottom - c.top, width = c.right - c.left;
  if (height <= 0.5 * high) {
    if (c.pixels > 1 && width <= 0.6 * high) judge_mark(page, line, c);
    return;
  }
  if (height < 0.6 * high || height > 2.5 * high || width > 6 * high) return;
  const bool rises = c.top < line.upper - 0.2 * high;
  const bool hangs = c.bottom > line.lower + 0.2 * high;
  if (rises != hangs) letters_.add(rises);
}

// Dots and accents stand over a letter in most scripts; full stops and commas stand alone at the foot of
// the line.
void Evidence::judge_mark(const InkPage& page, const TextLine& line, const Component& c) {
  const double high = line.height();
  const bool over = page.has_ink(c.left, c.bottom, c.right, line.lower);
  const bool under = page.has_ink(c.left, line.upper, c.right, c.top);
  if (over != under) {
    if (over && c.bottom <= line.upper + 0.15 * high) dots_.add(true);
    if (under && c.top >= line.lower - 0.15 * high) dots_.add(false);
    return;
  }
  if (over) return;
  const double near = std::max(1.0, 0.12 * high);
  const auto stands = [&](double from_foot, double reach) {
    return from_foot <= near && reach > 0.05 * high && reach <= 0.45 * high;
  };
  const bool low = stands(line.lower - c.bottom, line.lower - c.top);
  if (!low && !stands(c.top - line.upper, c.bottom - line.upper)) return;
  // Not a piece of a letter: there is a space beside it, or some room on both sides.
  const int left = room_beside(page, line, c.left - 1, -1);
  const int right = room_beside(page, line, c.right, 1);
  const int less = std::min(left, right), more = std::max(left, right);
  if (less < std::max(1.0, 0.06 * high)) return;
  if (more >= 0.35 * high || less >= 0.15 * high) stops_.add(low);
}

struct Orientation {
  int angle = 0;  // the turn that makes it upright: 0, 9000, 18000 or 27000
  int confidence = 0;
};

Status find_orientation(ImageSource& image, InkPage::Reports reports, Orientation& orientation) {
  InkPage text, ink;
  int marks = 0;
  TQ_TRY(text.find(image, reports));
  TQ_TRY(keep_text(text, marks));
  if (marks == 0) return kOk;
  TQ_TRY(ink.find(image, InkPage::Reports::none, {.fine = true}));
  TQ_TRY(keep_near(ink, text));
  InkPage across, ink_across;
  TQ_TRY(across.transpose(text));
  TQ_TRY(ink_across.transpose(ink));
  const InkPage* const pages[] = {&text, &across};
  const InkPage* const inks[] = {&ink, &ink_across};
  Skew skews[2];
  for (int i = 0; i < 2; ++i) TQ_TRY(find_lines(*pages[i], marks, kRange, skews[i]));
  double certain[2] = {};
  for (int i = 0; i < 2; ++i) {
    const Skew& lines = skews[i];
    if (lines.confidence < kLeastLines || lines.confidence * kClearly < skews[1 - i].confidence)
      continue;
    InkPage level;
    TQ_TRY(level.level(*inks[i], -tangent(lines.angle) * inks[i]->aspect()));
    Evidence evidence;
    TQ_TRY(evidence.gather(level, double{1} * pages[i]->block_height() / level.block_height()));
    certain[i] = evidence.certainty(marks);
  }
  const int sideways = std::abs(certain[1]) > std::abs(certain[0]) ? 1 : 0;
  const double certainty = certain[sideways];
  if (std::abs(certainty) < kClearly * std::abs(certain[1 - sideways])) return kOk;
  if (std::abs(certainty) < kCertain) return kOk;
  // Of the transposed page the rows are columns from the left: what stands on its head there reads
  // downwards, and a turn back by a quarter makes it upright.
  const int upright = sideways == 0 ? 0 : 9000, upside_down = sideways == 0 ? 18000 : 27000;
  orientation.angle = certainty > 0 ? upright : upside_down;
  orientation.confidence = static_cast<int>(100 * std::abs(certainty));
  return kOk;
}

}  // namespace

Status find_orientation(ImageSource& image, std::int32_t& angle, std::int32_t& confidence) {
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  Orientation found;
  TQ_TRY(find_orientation(image, InkPage::Reports::source_rows, found));
  angle = found.angle;
  confidence = found.confidence;
  return Status::from_raw(found.confidence > 0 ? 1 : 0);
}

Status auto_orient_bitmap(ImageSource& image, std::int32_t least, std::int32_t& angle) {
  constexpr std::int32_t kUsual = -1, kUsualLeast = 500;
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (least < kUsual) return StatusCode::unsupported;
  Orientation found;
  TQ_TRY(find_orientation(image, InkPage::Reports::none, found));
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
