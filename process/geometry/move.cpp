// Rows and columns in another order: nothing else happens to a pixel.
#include <algorithm>

#include "pixels/turn.h"
#include "process/geometry/geometry.h"
#include "process/geometry/transpose.h"
#include "process/process.h"

namespace tq::process {
namespace {

// Run lists stay where they are.
Status flip_runs(ImageSource& image) {
  for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
  ImageRecord& record = image.record();
  std::reverse(record.run_table, record.run_table + record.height);
  return kOk;
}

// The same row from the right; returns how many transitions it has.
std::size_t mirror_transitions(Transitions row, int width, std::span<std::uint16_t> out) {
  std::size_t count = 0;
  if (row.size() % 2 != 0) out[count++] = 0;
  for (std::size_t i = row.size(); i-- > 0;) {
    if (row[i] > 0) out[count++] = word(width - row[i]);
  }
  return count;
}

Status mirror_runs(ImageSource& image, ImageDraft& result, bool from_bottom) {
  RowBuffer<std::uint16_t> mirrored;
  RowBuffer<std::uint8_t> bits;
  TQ_TRY(mirrored.allocate(most_transitions(image.width())));
  TQ_TRY(bits.allocate(row_bytes(image.width(), 1)));
  for (int y = 0; y < image.height(); ++y) {
    TQ_TRY(image.next_row());
    const RowView row = view_row(image.record(), from_bottom ? image.height() - 1 - y : y);
    if (row.bits.empty()) {
      const std::size_t count =
          mirror_transitions(row.transitions, image.width(), mirrored.pixels());
      TQ_TRY(store_transitions(result.record(), y, mirrored.pixels().first(count)));
    } else {
      pixels::mirror_row(row.bits, image.width(), 1, bits.pixels());
      TQ_TRY(store_bits(result.record(), y, bits.pixels()));
    }
  }
  return kOk;
}

// From the top, so that rows are read as they lie in memory: what is stored past the caches may lie
// anyhow.
Status flip_rows(ImageSource& image, ImageDraft& result) {
  ImageRecord& made = result.record();
  const int height = image.height();
  const CopyBytes copy = copy_rows_of(std::int64_t{made.bytes_per_row} * height);
  for (int y = 0; y < height; ++y) {
    TQ_TRY(image.next_row());
    const Bytes from = plain_row(image.record(), height - 1 - y);
    const Row row = plain_row(made, y);
    copy(from.data(), row.data(), std::ssize(from), 0);
    clear_padding(row, image.width(), image.bits());
  }
  return kOk;
}

Status move_rows(ImageSource& image, ImageDraft& result, pixels::Turn turn) {
  if (turn.from_bottom && !turn.from_right) return flip_rows(image, result);
  const int width = image.width(), height = image.height(), bits = image.bits();
  return make_rows(
      result, image,
      [&](int y, Row row) {
        const Bytes from = plain_row(image.record(), turn.from_bottom ? height - 1 - y : y);
        pixels::mirror_row(from, width, bits, row);
      },
      turn.from_bottom);
}

Status transpose(ImageSource& image, ImageDraft& result, pixels::Turn turn) {
  TransposedRows rows(image, turn);
  TQ_TRY(rows.allocate());
  for (int y = 0; y < image.width(); ++y) {
    TQ_TRY(image.next_row(image.width()));
    TQ_TRY(rows.make_row(result.record(), y));
  }
  return kOk;
}

Status turn_pixels(ImageSource& image, ImageDraft& result, pixels::Turn turn) {
  if (turn.swapped) return transpose(image, result, turn);
  return image.in_runs() ? mirror_runs(image, result, turn.from_bottom)
                         : move_rows(image, result, turn);
}

}  // namespace

Status orient_bitmap(ImageSource& image, std::int32_t value) {
  release_display_cache(image.record());
  if (!has_known_depth(image)) return StatusCode::wrong_depth;
  if (value < 1 || value > 8) return StatusCode::unsupported;
  if (value == 1) return kOk;
  const pixels::Turn turn = pixels::turn_of(value);
  if (image.in_runs() && !turn.swapped && !turn.from_right) {
    TQ_TRY(flip_runs(image));
  } else {
    const NewShape shape = turn.swapped ? same_kind(image, image.height(), image.width())
                                        : same_kind(image, image.width(), image.height());
    ImageDraft result;
    TQ_TRY(create_result(result, image, shape));
    TQ_TRY(turn_pixels(image, result, turn));
    result.install(image.record());
  }
  note_moved_pixels(image.record(), turn.swapped);
  return kOk;
}

Status flip_bitmap(ImageSource& image) {
  return orient_bitmap(image, 4);
}

Status mirror_bitmap(ImageSource& image) {
  return orient_bitmap(image, 2);
}

}  // namespace tq::process
