// Light for dark: of values every bit, of colours in a palette the entries.
#include <algorithm>

#include "process/geometry/kernels.h"
#include "process/process.h"
#include "process/tone/tone.h"

namespace tq::process {
namespace {

constexpr std::uint8_t kAllBits = 0xFF;

// A change at the left edge comes or goes.
Status invert_runs(ImageSource& image, ImageDraft& result) {
  const CopyBytes copy = copy_rows_of(row_bytes(image.width(), 1));
  RowBuffer<std::uint16_t> changes;  // after one at 0
  RowBuffer<std::uint8_t> bits;
  TQ_TRY(changes.allocate(most_transitions(image.width()) + 1));
  TQ_TRY(bits.allocate(row_bytes(image.width(), 1)));
  for (int y = 0; y < image.height(); ++y) {
    TQ_TRY(image.next_row());
    const RowView row = view_row(image.record(), y);
    if (!row.bits.empty()) {
      copy(row.bits.data(), bits.data(), std::ssize(row.bits), kAllBits);
      TQ_TRY(store_bits(result.record(), y, bits.pixels()));
    } else if (!row.transitions.empty() && row.transitions[0] == 0) {
      TQ_TRY(store_transitions(result.record(), y, row.transitions.subspan(1)));
    } else {
      const std::size_t count = row.transitions.size();
      std::copy_n(row.transitions.data(), count, changes.data() + 1);
      TQ_TRY(store_transitions(result.record(), y, changes.pixels().first(count + 1)));
    }
  }
  return kOk;
}

Status invert_rows(ImageSource& image, ImageDraft& result) {
  const CopyBytes copy = copy_rows_of(std::int64_t{result.record().bytes_per_row} * image.height());
  return make_single_rows(result, image, [&](int y, Row row) {
    copy(plain_row(image.record(), y).data(), row.data(), std::ssize(row), kAllBits);
    clear_padding(row, image.width(), image.bits());
  });
}

}  // namespace

Status invert_bitmap(ImageSource& image) {
  release_display_cache(image.record());
  if (!has_known_depth(image)) return StatusCode::wrong_depth;
  if (has_colour_palette(image)) {
    return replace_entries(image, [](Rgb c) {
      return Rgb{byte(255 - c.blue), byte(255 - c.green), byte(255 - c.red), c.reserved};
    });
  }
  ImageDraft result;
  TQ_TRY(create_result(result, image, same_kind(image, image.width(), image.height())));
  TQ_TRY(image.in_runs() ? invert_runs(image, result) : invert_rows(image, result));
  result.install(image.record());
  return kOk;
}

}  // namespace tq::process
