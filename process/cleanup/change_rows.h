// Rows of a 1-bit image by the ascending positions where the colour changes, from white: out of
// run lists and plain rows of any width, and back into them.
#pragma once

#include "core/run_storage.h"
#include "process/frame.h"
#include "process/geometry/geometry.h"

namespace tq::process {

using Changes = std::span<const std::int32_t>;

class ChangeRows {
 public:
  Status allocate(const ImageRecord& image) {
    if (image.in_runs) TQ_TRY(words_.allocate(most_transitions(image.width)));
    return changes_.allocate(most_transitions(image.width));
  }

  // Valid until the next call.
  Changes read(const ImageRecord& image, std::int32_t y) const {
    const std::span<std::int32_t> out = changes_.pixels();
    if (!image.in_runs)
      return out.first(bits_to_transitions(plain_row(image, y), image.width, out));
    const RowView row = view_row(image, y);
    if (!row.bits.empty()) return out.first(bits_to_transitions(row.bits, image.width, out));
    std::ranges::copy(row.transitions, out.begin());
    return out.first(row.transitions.size());
  }

  Status store(ImageRecord& image, std::int32_t y, Changes changes) const {
    if (image.in_runs) {
      std::ranges::transform(changes, words_.data(), [](std::int32_t x) { return word(x); });
      return store_transitions(image, y, words_.pixels().first(changes.size()));
    }
    const Row row = plain_row(image, y);
    transitions_to_bits(changes, image.width, row);
    clear_padding(row, image.width, 1);
    return kOk;
  }

 private:
  RowBuffer<std::int32_t> changes_;
  RowBuffer<std::uint16_t> words_;
};

// Draws a row of black runs from the left.
class ChangePen {
 public:
  explicit ChangePen(std::span<std::int32_t> out, std::int32_t width) : out_(out), width_(width) {}
  void draw(std::int32_t first, std::int32_t end) {
    if (first >= end) return;
    if (count_ > 0 && out_[count_ - 1] == first) {
      --count_;
    } else {
      out_[count_++] = first;
    }
    if (end < width_) out_[count_++] = end;
  }
  Changes row() const { return out_.first(count_); }

 private:
  std::span<std::int32_t> out_;
  std::int32_t width_;
  std::size_t count_ = 0;
};

}  // namespace tq::process
