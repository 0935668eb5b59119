// Run lists: how 1-bit rows are held. A list is a 16-bit length in bytes (itself included), then
// ascending 16-bit positions where the colour changes, starting from white (a first position of 0
// says that the row starts black), then the width three times and the width + 2 three times. Bit 1
// is white. A row whose list would be longer than its bits is kept as bits behind a length of 0. So
// are at first the rows of bits of a page, as many want them as bits again: they wait for what walks
// lists.
#pragma once

#include <cstdint>
#include <span>

#include "core/image_record.h"

namespace tq {

inline constexpr std::int32_t kWidestRuns = 65533;  // positions are 16 bits, closers width + 2

// Whether an image is kept as run lists. Of one that is so narrow and so high as no picture is, the
// offsets of the lists alone would take as much as its pixels.
constexpr bool keeps_runs(std::int32_t width, std::int32_t height) {
  return width <= kWidestRuns && (width > 32 || height <= 65535);
}

// Positions of colour changes of one row, ascending and below the width, without length and
// closers.
using Transitions = std::span<const std::uint16_t>;

// The most transitions that a row of this width can have, for sizing buffers.
constexpr std::int64_t most_transitions(std::int64_t width) {
  return width;
}

// Finds the transitions of the first `width` pixels of a row of bits. Returns how many, or -1 when
// `out` is too small to hold them.
std::int32_t bits_to_transitions(std::span<const std::uint8_t> bits, std::int32_t width,
                                 std::span<std::uint16_t> out);

// Draws a row of `width` pixels; the rest of `bits`, a multiple of 4 bytes, is set to 1.
void transitions_to_bits(Transitions row, std::int32_t width, std::span<std::uint8_t> bits);

// The same for rows of any width.
std::int32_t bits_to_transitions(std::span<const std::uint8_t> bits, std::int32_t width,
                                 std::span<std::int32_t> out);
void transitions_to_bits(std::span<const std::int32_t> row, std::int32_t width,
                         std::span<std::uint8_t> bits);

// Reads a run list as decoders deliver it (length word, positions, closers): positions below
// `width` as long as they ascend, until the list or `out` ends. Returns how many.
std::int32_t read_run_list(std::span<const std::uint8_t> list, std::int32_t width,
                           std::span<std::uint16_t> out);

// A row of an image in run lists. Store takes any row at any time; on failure (out_of_memory) the
// row keeps its value. The row's bits may be asked for instead of transitions, whatever its form.
Status store_transitions(ImageRecord& image, std::int32_t y, Transitions row);
Status store_bits(ImageRecord& image, std::int32_t y, std::span<const std::uint8_t> bits);
void expand_row(const ImageRecord& image, std::int32_t y, std::span<std::uint8_t> bits);

// The same without waiting, and a list of each row that waits: for what goes by transitions more than
// once. The block stays where it is. On failure (out_of_memory) nothing has changed.
Status store_listed(ImageRecord& image, std::int32_t y, std::span<const std::uint8_t> bits);
Status list_waiting_rows(ImageRecord& image);

// A stored row where it lies, until the image changes: its transitions or, where these would be
// longer, its bits. A white row has neither.
struct RowView {
  Transitions transitions;
  std::span<const std::uint8_t> bits;
};
RowView view_row(const ImageRecord& image, std::int32_t y);

// Transitions of a stored row; `out` has room for most_transitions. Returns how many.
std::int32_t row_transitions(const ImageRecord& image, std::int32_t y,
                             std::span<std::uint16_t> out);

}  // namespace tq
