// Ruled lines go. Those that lie are found from long runs; those that stand lie when the page is
// turned over its diagonal.
#include <algorithm>
#include <utility>

#include "process/cleanup/change_rows.h"
#include "process/cleanup/components.h"
#include "process/cleanup/ruled_line.h"
#include "process/geometry/transpose.h"
#include "process/process.h"

namespace tq::process {
namespace {

enum Mode : std::int32_t { kHorizontal = 1, kVertical = 2, kBoth = 3 };

class LinePass {
 public:
  explicit LinePass(LineSize size)
      : size_(size), long_runs_(Components::Neighbours::eight, Components::Colour::black) {}

  // What goes; `page` is read as a whole.
  Status find(ImageRecord& page) {
    TQ_TRY(list_waiting_rows(page));
    TQ_TRY(rows_.allocate(page));
    TQ_TRY(drawn_.allocate(most_transitions(page.width)));
    for (std::int32_t y = 0; y < page.height; ++y) {
      TQ_TRY(long_runs_.add_row(long_runs(rows_.read(page, y), page.width), page.width));
    }
    long_runs_.settle();
    TQ_TRY(sort_pieces());
    RuledLine line(size_);
    std::size_t first = 0;
    for (std::size_t i = 0; i < long_runs_.all().size(); ++i) {
      const std::size_t end = ends_[i];
      bool found = false;
      TQ_TRY(line.find(page, long_runs_.all()[i], pieces_.values().subspan(first, end - first),
                       found));
      first = end;
      if (!found) continue;
      ++lines_;
      TQ_TRY(line.add_erased(erased_));
    }
    std::ranges::sort(erased_.values(), [](const LinePiece& a, const LinePiece& b) {
      return a.y != b.y ? a.y < b.y : a.first < b.first;
    });
    return kOk;
  }

  std::int32_t lines() const { return lines_; }

  // Row y without them, for y from 0 on.
  Status store_row(const ImageRecord& page, std::int32_t y, ImageRecord& result) {
    const Changes changes = rows_.read(page, y);
    ChangePen pen(drawn_.pixels(), page.width);
    std::size_t next = erased_at_;
    while (erased_at_ < erased_.size() && erased_[erased_at_].y == y) ++erased_at_;
    for (std::size_t i = 0; i < changes.size(); i += 2) {
      std::int32_t first = changes[i];
      const std::int32_t end = i + 1 < changes.size() ? changes[i + 1] : page.width;
      while (next < erased_at_ && erased_[next].end <= first) ++next;
      for (std::size_t k = next; k < erased_at_ && erased_[k].first < end; ++k) {
        pen.draw(first, std::min(erased_[k].first, end));
        first = std::max(first, erased_[k].end);
      }
      pen.draw(first, end);
    }
    return rows_.store(result, y, pen.row());
  }

 private:
  // Those that may be of a line, small holes closed.
  Changes long_runs(Changes changes, std::int32_t width) const {
    ChangePen pen(drawn_.pixels(), width);
    const std::int32_t shortest = size_.shortest_run(), part = std::max(shortest / 2, 8);
    std::int32_t first = 0, end = -1;
    const auto draw = [&] {
      if (end - first >= shortest) pen.draw(first, end);
    };
    for (std::size_t i = 0; i < changes.size(); i += 2) {
      const std::int32_t from = changes[i];
      const std::int32_t to = i + 1 < changes.size() ? changes[i + 1] : width;
      if (to - from < part) continue;
      if (end >= 0 && from - end <= size_.widest_hole()) {
        end = to;
        continue;
      }
      draw();
      first = from, end = to;
    }
    draw();
    return pen.row();
  }

  // By the component that they belong to.
  Status sort_pieces() {
    const std::size_t count = long_runs_.all().size();
    TQ_TRY(ends_.allocate(static_cast<std::int64_t>(count)));
    std::size_t runs = 0;
    for (std::int32_t y = 0; y < long_runs_.rows(); ++y) {
      for (const Run& run : long_runs_.row(y)) ++ends_[run.component], ++runs;
    }
    std::size_t sum = 0;  // an end is its component's begin until it is filled
    for (std::size_t& end : ends_.pixels()) sum += std::exchange(end, sum);
    TQ_TRY(pieces_.reserve(runs));
    for (std::size_t i = 0; i < runs; ++i) pieces_.add({});
    for (std::int32_t y = 0; y < long_runs_.rows(); ++y) {
      for (const Run& run : long_runs_.row(y)) {
        pieces_[ends_[run.component]++] = {y, run.first, run.end};
      }
    }
    return kOk;
  }

  LineSize size_;
  Components long_runs_;
  ChangeRows rows_;
  RowBuffer<std::int32_t> drawn_;
  RowBuffer<std::size_t> ends_;  // per component, in `pieces_`
  GrowingBuffer<LinePiece> pieces_, erased_;
  std::size_t erased_at_ = 0;
  std::int32_t lines_ = 0;
};

Status turn_over(const ImageSource& from, ImageRecord& to, ImageSource* reports) {
  TransposedRows rows(from, pixels::turn_of(5));
  TQ_TRY(rows.allocate());
  for (std::int32_t y = 0; y < to.height; ++y) {
    if (reports != nullptr) TQ_TRY(reports->next_row());
    TQ_TRY(rows.make_row(to, y));
  }
  return kOk;
}

// Those that lie; rows are reported where `reports` says so.
Status remove_lying(ImageRecord& from, ImageRecord& to, LineSize size, ImageSource* reports,
                    std::int32_t& removed) {
  LinePass pass(size);
  TQ_TRY(pass.find(from));
  for (std::int32_t y = 0; y < to.height; ++y) {
    if (reports != nullptr) TQ_TRY(reports->next_row());
    TQ_TRY(pass.store_row(from, y, to));
  }
  removed += pass.lines();
  return kOk;
}

}  // namespace

Status remove_lines(ImageSource& image, std::int32_t length, std::int32_t thickness,
                    std::int32_t mode) {
  release_display_cache(image.record());
  if (image.bits() != 1) return StatusCode::wrong_depth;
  if (length < 0 || thickness < 0 || mode < kHorizontal || mode > kBoth) {
    return StatusCode::unsupported;
  }
  // Of A4: half an inch, 1/25 inch.
  constexpr std::int64_t kMost = std::int64_t{1} << 28;  // so that sums of a few stay in 32 bits
  const std::int64_t longer = std::max({image.width(), image.height(), 1170});
  const auto choose = [kMost](std::int32_t given, std::int64_t usual) {
    return static_cast<std::int32_t>(std::min(given > 0 ? given : usual, kMost));
  };
  const LineSize size{choose(length, 50 * longer / 1170), choose(thickness, 4 * longer / 1170)};

  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, image.width(), image.height())));
  ImageRecord& made = result.record();
  std::int32_t removed = 0;
  if ((mode & kHorizontal) != 0) {
    TQ_TRY(remove_lying(image.record(), made, size, mode == kBoth ? nullptr : &image, removed));
  }
  if ((mode & kVertical) != 0) {
    ImageDraft turned;
    TQ_TRY(create_result(turned, image, same_kind(image, image.height(), image.width())));
    {
      const ImageSource lying(made);
      TQ_TRY(turn_over(mode == kBoth ? lying : image, turned.record(), nullptr));
    }
    TQ_TRY(remove_lying(turned.record(), turned.record(), size, nullptr, removed));
    const ImageSource standing(turned.record());
    TQ_TRY(turn_over(standing, made, &image));
  }
  if (removed > 0) result.install(image.record());
  return Status::from_raw(removed);
}

}  // namespace tq::process
