// Small components go: of black ones, of white ones in black, or of both, one after the other.
#include <algorithm>

#include "process/cleanup/change_rows.h"
#include "process/cleanup/components.h"
#include "process/cleanup/specks.h"
#include "process/process.h"

namespace tq::process {
namespace {

enum Mode : std::int32_t { kBlack = 1, kWhite = 2, kSpareMarks = 4, kAllModes = 7 };

// What becomes of a small component.
enum Fate : std::uint16_t { kUndecided, kStays, kGoes };

// Rows go from one set of pixels to another, or back to their place, when nothing that begins below
// can change what is small.
class SpeckPass {
 public:
  using Colour = Components::Colour;
  SpeckPass(ImageRecord& result, SpeckSize size, Colour colour, bool spares_marks)
      : result_(result),
        size_(size),
        colour_(colour),
        components_(
            colour == Colour::black ? Components::Neighbours::eight : Components::Neighbours::four,
            colour),
        marks_(size),
        spares_marks_(spares_marks) {}

  Status allocate() {
    TQ_TRY(rows_.allocate(result_));
    return drawn_.allocate(most_transitions(result_.width));
  }

  Status add_row(const ImageRecord& from, std::int32_t y) {
    TQ_TRY(components_.add_row(rows_.read(from, y), result_.width));
    const bool is_last = y == result_.height - 1;
    const std::int64_t ready = y + 1 - (is_last ? 0 : size_.height + rows_below() + 1);
    if (!is_last && ready - stored_ < batch()) return kOk;
    components_.settle();
    TQ_TRY(decide(is_last));
    while (stored_ < ready) TQ_TRY(store_row());
    components_.forget_rows(static_cast<std::int32_t>(
        std::max<std::int64_t>(components_.first_row(), stored_ - rows_above())));
    return kOk;
  }

  std::int32_t removed() const { return removed_; }

 private:
  std::int64_t rows_below() const { return spares_marks_ ? marks_.rows_below() : 0; }
  std::int64_t rows_above() const { return spares_marks_ ? marks_.rows_above() + size_.height : 0; }
  std::int64_t batch() const {
    return std::max<std::int64_t>(64, size_.height + rows_below() + rows_above());
  }

  bool is_speck(const Component& c) const {
    if (!size_.fits(c)) return false;
    if (colour_ == Colour::black) return true;
    // A hole has black all around.
    return c.left > 0 && c.top > 0 && c.right < result_.width && c.bottom < result_.height;
  }

  Status decide(bool is_last) {
    if (spares_marks_) TQ_TRY(marks_.sort(components_.all(), result_.width));
    for (Component& c : components_.all()) {
      const bool is_known = is_last || c.bottom + rows_below() < components_.rows();
      if (c.mark != kUndecided || !is_known || !is_speck(c)) continue;
      c.mark = spares_marks_ && marks_.is_mark(c) ? kStays : kGoes;
      if (c.mark == kGoes && removed_ < INT32_MAX) ++removed_;
    }
    return kOk;
  }

  Status store_row() {
    const std::int32_t y = stored_++;
    ChangePen pen(drawn_.pixels(), result_.width);
    std::int32_t drawn_to = 0;
    for (const Run& run : components_.row(y)) {
      if (components_.all()[run.component].mark == kGoes) continue;
      if (colour_ == Colour::black) {
        pen.draw(run.first, run.end);
      } else {
        pen.draw(drawn_to, run.first);
        drawn_to = run.end;
      }
    }
    if (colour_ == Colour::white) pen.draw(drawn_to, result_.width);
    return rows_.store(result_, y, pen.row());
  }

  ImageRecord& result_;
  SpeckSize size_;
  Colour colour_;
  Components components_;
  Marks marks_;
  bool spares_marks_;
  ChangeRows rows_;
  RowBuffer<std::int32_t> drawn_;
  std::int32_t stored_ = 0, removed_ = 0;  // rows, components
};

}  // namespace

Status despeckle_bitmap(ImageSource& image, std::int32_t width, std::int32_t height,
                        std::int32_t mode) {
  release_display_cache(image.record());
  if (image.bits() != 1) return StatusCode::wrong_depth;
  if (width < 1 || height < 1 || mode < 0 || mode > kAllModes || (mode & (kBlack | kWhite)) == 0) {
    return StatusCode::unsupported;
  }
  const SpeckSize size{std::min(width, image.width()), std::min(height, image.height())};
  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, image.width(), image.height())));
  ImageRecord& made = result.record();
  std::int64_t removed = 0;
  const bool is_both = (mode & kBlack) != 0 && (mode & kWhite) != 0;
  if ((mode & kBlack) != 0) {
    SpeckPass pass(made, size, Components::Colour::black, (mode & kSpareMarks) != 0);
    TQ_TRY(pass.allocate());
    for (int y = 0; y < image.height(); ++y) {
      if (!is_both) TQ_TRY(image.next_row());
      TQ_TRY(pass.add_row(image.record(), y));
    }
    removed += pass.removed();
  }
  if ((mode & kWhite) != 0) {
    SpeckPass pass(made, size, Components::Colour::white, false);
    TQ_TRY(pass.allocate());
    for (int y = 0; y < image.height(); ++y) {
      TQ_TRY(image.next_row());
      TQ_TRY(pass.add_row(is_both ? made : image.record(), y));
    }
    removed += pass.removed();
  }
  if (removed > 0) result.install(image.record());
  return Status::from_raw(static_cast<std::int32_t>(std::min<std::int64_t>(removed, INT32_MAX)));
}

}  // namespace tq::process
