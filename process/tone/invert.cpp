// Light for dark: of values every bit, of colours in a palette the entries.
#include <algorithm>

#include "process/process.h"
#include "process/tone/tone.h"

namespace tq::process {
namespace {

// A change at the left edge comes or goes.
Status invert_runs(ImageSource& image, ImageDraft& result) {
  RowBuffer<std::uint16_t> buffer;
  TQ_TRY(buffer.allocate(most_transitions(image.width()) + 1));
  const std::span<std::uint16_t> room = buffer.pixels();
  for (int y = 0; y < image.height(); ++y) {
    TQ_TRY(image.next_row());
    const std::int32_t count = row_transitions(image.record(), y, room.subspan(1));
    const bool black = count > 0 && room[1] == 0;
    room[0] = 0;
    TQ_TRY(store_transitions(result.record(), y,
                             black ? room.subspan(2, count - 1) : room.first(count + 1)));
  }
  return kOk;
}

template <class Word>
void invert_word(const std::uint8_t* from, std::uint8_t* to) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  word = ~word;
  std::memcpy(to, &word, sizeof word);
}

Status invert_rows(ImageSource& image, ImageDraft& result) {
  return make_single_rows(result, image, [&](int y, Row row) {
    // A row is a multiple of 4 bytes.
    const std::uint8_t* const from = plain_row(image.record(), y).data();
    std::size_t at = 0;
    for (; at + 8 <= row.size(); at += 8) invert_word<std::uint64_t>(from + at, row.data() + at);
    if (at < row.size()) invert_word<std::uint32_t>(from + at, row.data() + at);
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
