// In the profile of a strip the rows of small letters stand out as bands; what rises from them or hangs
// from them belongs to the nearer one.
#include "process/cleanup/text_lines.h"

#include <algorithm>
#include <cstring>

#include "process/cleanup/bit_counts.h"

namespace tq::process {
namespace {

constexpr int kStrip = 96;                    // an inch, of these units hundredths
constexpr int kReach = 30, kMostRise = 25;    // beside a band
constexpr int kThinnest = 3, kThickest = 30;  // bands
constexpr double kLeastInk = 1.5 * kStrip;    // of a line: a row and a half
constexpr double kBarShare = 0.88, kBarInk = 2.3, kBarLean = 0.25;

struct Band {
  int first, end;
};

}  // namespace

// The ink of a strip by rows.
class TextLines::Profile {
 public:
  Status allocate(int rows) {
    rows_ = rows;
    TQ_TRY(ink_.allocate(rows));
    return sums_.allocate(std::int64_t{rows} + 1);
  }

  void measure(const InkPage& page, int left, int right) {
    for (int y = 0; y < rows_; ++y) {
      const Row row = page.row(y);
      const Bytes part = row.subspan(left / 8, (right + 7) / 8 - left / 8);
      std::int32_t ink = 0;
      for (std::size_t i = 0; i < part.size(); i += 8) {
        std::uint64_t white = ~std::uint64_t{0};
        std::memcpy(&white, &part[i], std::min(part.size() - i, sizeof white));
        if (~white != 0) ink += count_bits(~white);
      }
      ink_[y] = ink;
      sums_[y + 1] = {sums_[y].ink + ink, sums_[y].rows + (ink > 0 ? 1 : 0)};
    }
  }

  int rows() const { return rows_; }
  int ink(int y) const { return y >= 0 && y < rows_ ? ink_[y] : 0; }
  std::int64_t ink(int first, int end) const { return sums_[end].ink - sums_[first].ink; }

  // Rows that hold half as much as those with ink do around them.
  Status find_bands(int reach, int thinnest) {
    bands_.shrink(0);
    int first = -1;
    for (int y = 0; y <= rows_; ++y) {
      bool strong = false;
      if (y < rows_ && ink_[y] > 0) {
        const Sums& from = sums_[std::max(y - reach, 0)];
        const Sums& to = sums_[std::min(y + reach + 1, rows_)];
        strong = 2 * std::int64_t{ink_[y]} * (to.rows - from.rows) >= to.ink - from.ink;
      }
      if (strong && first < 0) first = y;
      if (strong || first < 0) continue;
      if (y - first >= thinnest) TQ_TRY(bands_.reserve_and_add(Band{first, y}));
      first = -1;
    }
    return kOk;
  }
  std::span<const Band> bands() const { return bands_.values(); }

  // The middle of the widest gap among the rows of least ink.
  int widest_gap(int first, int end) const {
    if (first >= end) return first;
    const int least = *std::min_element(ink_.data() + first, ink_.data() + end);
    int start = first, best = 0, middle = first;
    for (int y = first; y <= end; ++y) {
      if (y < end && ink_[y] == least) continue;
      if (y - start > best) best = y - start, middle = (start + y) / 2;
      start = y + 1;
    }
    return middle;
  }

  // The row in which a line's ink lies on balance.
  int balance(int top, int bottom) const {
    double sum = 0;
    for (int y = top; y < bottom; ++y) sum += ink_[y] * (y + 0.5);
    return static_cast<int>(sum / static_cast<double>(ink(top, bottom)));
  }

  // Where most more, or less, ink begins.
  TextLine line(int top, int bottom) const {
    TextLine line{top, top, bottom, bottom};
    const int middle = std::clamp(balance(top, bottom), top, bottom - 1);
    int rise = -1, fall = -1;
    for (int y = top; y <= middle; ++y) {
      const int more = ink(y) - (y > top ? ink(y - 1) : 0);
      if (more > rise) rise = more, line.upper = y;
    }
    for (int y = middle + 1; y <= bottom; ++y) {
      const int less = ink(y - 1) - (y < bottom ? ink(y) : 0);
      if (less >= fall) fall = less, line.lower = y;
    }
    return line;
  }

 private:
  struct Sums {
    std::int64_t ink;
    std::int32_t rows;  // that have some
  };

  int rows_ = 0;
  RowBuffer<std::int32_t> ink_;
  RowBuffer<Sums> sums_;
  GrowingBuffer<Band> bands_;
};

// The bars of letters that hang from them cover nearly all of a line's letters, and little lies beyond.
void TextLines::judge_bar(const InkPage& page, int left, int right, const Profile& profile,
                          const TextLine& line) {
  int bar = line.top;
  for (int y = line.top; y < line.bottom; ++y) {
    if (profile.ink(y) > profile.ink(bar)) bar = y;
  }
  const auto total = static_cast<double>(profile.ink(line.top, line.bottom));
  const auto above = static_cast<double>(profile.ink(line.top, bar));
  const auto below = static_cast<double>(profile.ink(bar + 1, line.bottom));
  const double lean = (below - above) / total;
  if (lean < kBarLean && lean > -kBarLean) return;
  if (profile.ink(bar) * double{1} * (line.bottom - line.top) < kBarInk * total) return;
  int covered = 0, letters = 0;
  for (int i = left / 8; 8 * i < right; ++i) {
    unsigned any = 0, on_bar = 0;
    for (int y = line.top; y < line.bottom; ++y) {
      const unsigned ink = page.row(y)[i] ^ 0xFFu;
      any |= ink;
      if (y >= bar - 1 && y <= bar + 1) on_bar |= ink;
    }
    letters += count_bits(any);
    covered += count_bits(on_bar);
  }
  if (covered >= kBarShare * letters) ++(lean > 0 ? bars_above_ : bars_below_);
}

Status TextLines::find_in_strip(const InkPage& page, int left, int right, double inch,
                                Profile& profile) {
  profile.measure(page, left, right);
  const auto blocks = [inch](int hundredths) { return static_cast<int>(hundredths * inch); };
  TQ_TRY(profile.find_bands(blocks(kReach), blocks(kThinnest)));
  const std::span<const Band> bands = profile.bands();
  int gap = 0;  // before a band
  for (std::size_t i = 0; i < bands.size(); ++i) {
    const Band band = bands[i];
    const bool last = i + 1 == bands.size();
    const int next = last ? profile.rows() : profile.widest_gap(band.end, bands[i + 1].first);
    int top = std::max(gap, band.first - blocks(kMostRise));
    int bottom = std::min(next, band.end + blocks(kMostRise));
    gap = next;
    while (top < band.first && profile.ink(top) == 0) ++top;
    while (bottom > band.end && profile.ink(bottom - 1) == 0) --bottom;
    const TextLine line = profile.line(top, bottom);
    if (line.height() <= 2 || line.height() > blocks(kThickest)) continue;
    if (static_cast<double>(profile.ink(top, bottom)) < kLeastInk * inch * inch) continue;
    TQ_TRY(lines_.reserve_and_add(line));
    judge_bar(page, left, right, profile, line);
  }
  return ends_.reserve_and_add(lines_.size());
}

Status TextLines::find(const InkPage& page, double inch) {
  strip_width_ = static_cast<int>(kStrip / 8 * inch + 0.5) * 8;
  Profile profile;
  TQ_TRY(profile.allocate(page.height()));
  for (int left = 0; left < page.width(); left += strip_width_) {
    const int right = std::min(left + strip_width_, page.width());
    TQ_TRY(find_in_strip(page, left, right, inch, profile));
  }
  return kOk;
}

const TextLine* TextLines::at(int x, int y) const {
  const std::size_t strip = static_cast<std::size_t>(x / strip_width_);
  const std::size_t first = strip == 0 ? 0 : ends_[strip - 1];
  const std::span<const TextLine> lines = lines_.values().subspan(first, ends_[strip] - first);
  const auto found = std::ranges::upper_bound(lines, y, {}, &TextLine::bottom);
  return found != lines.end() && found->top <= y ? &*found : nullptr;
}

}  // namespace tq::process
