// From code words to transitions, and from these to the rows of a sink.
#include <algorithm>

#include "core/run_storage.h"
#include "formats/ccitt/bit_source.h"
#include "formats/ccitt/ccitt.h"
#include "formats/ccitt/ccitt_codes.h"

namespace tq::formats {
namespace {

constexpr int kClosers = 4;           // entries behind the last transition that are the width
constexpr int kEolZeros = 11;         // bits of 0 before the 1 that ends an end-of-line code
constexpr int kMostEmptyRuns = 1024;  // of a row, beside those of a pixel and more
constexpr int kEolsAtEnd = 6;         // in a row: the end of the page
constexpr int kListClosers = 6;       // of a run list
constexpr std::size_t kMostListWords = 0x7FFF;  // its first word is its length in bytes

struct DecodedRow {
  int count;  // of transitions; -1: not decoded
  bool ascends;
};
constexpr DecodedRow kNoRow{-1, true};

// The ends of a row's runs while it is decoded, colours by turns; those of runs without length
// stay, because the next row may refer to them.
struct RowInProgress {
  std::int32_t* positions;
  int count = 0;
  int empty_runs = 0;

  int colour() const { return count & 1; }  // 1: black
  bool add(std::int32_t position) {
    if (count > 0 && positions[count - 1] == position) {
      if (++empty_runs > kMostEmptyRuns) return false;
    }
    positions[count++] = position;
    return true;
  }
  DecodedRow close(std::int32_t width) {
    while (count > 0 && positions[count - 1] >= width) --count;
    std::fill_n(positions + count, kClosers, width);
    return {count, empty_runs == 0};
  }
};

// Leaves out pairs at one place, so that what is left ascends. Returns how many that are.
int drop_empty_runs(const std::int32_t* from, int count, std::int32_t* to) {
  int kept = 0;
  for (int i = 0; i < count; ++i) {
    if (kept > 0 && to[kept - 1] == from[i])
      --kept;
    else
      to[kept++] = from[i];
  }
  return kept;
}

// Adds a run of this colour to `position`; false when there is none or it leaves the row.
template <class Source>
bool take_run(Source& source, BitWindow& window, int colour, std::int32_t width,
              std::int32_t& position) {
  const RunTable& table = kRunTable[colour];
  std::int32_t run = 0;
  do {
    source.fill(window);
    const int entry = table[window.peek(kLongestRunCode)];
    if (entry == 0) return false;
    window.skip(entry & 15);
    run = entry >> 4;
    if (run > width - position) return false;
    position += run;
  } while (run >= 64);
  return true;
}

// A row that stands for itself.
template <class Source>
DecodedRow decode_runs(Source& source, BitWindow& window, std::int32_t width, std::int32_t* out) {
  RowInProgress row{out};
  std::int32_t position = 0;
  while (position < width) {
    if (!take_run(source, window, row.colour(), width, position)) return kNoRow;
    if (!row.add(position)) return kNoRow;
  }
  return row.close(width);
}

// A row that refers to `reference`. b1 is its first transition behind a0 to the opposite colour, at
// the beginning of the row even one at 0; the standard's names.
template <class Source>
DecodedRow decode_modes(Source& source, BitWindow& caller_window, std::int32_t width,
                        const std::int32_t* reference, bool ascends, std::int32_t* out) {
  BitWindow window = caller_window;
  RowInProgress row{out};
  const int most_same = ascends ? Source::kAhead : 0;
  const std::int32_t* b1 = reference;
  std::int32_t a0 = 0;
  bool valid = true;
  while (a0 < width) {
    source.fill(window);
    // Most transitions lie right below one of the row before, each said by a single bit.
    const int same = std::min(std::countl_one(window.bits), most_same);
    int taken = 0;
    while (taken < same && a0 < width) {
      a0 = *b1++;
      row.positions[row.count++] = a0;
      ++taken;
    }
    window.skip(taken);
    if (taken == Source::kAhead || a0 >= width) continue;

    source.fill(window);
    const CcittModeEntry mode = kModeTable[window.peek(kLongestModeCode)];
    window.skip(mode.length);
    if (mode.mode == CcittMode::vertical) {
      const std::int32_t a1 = *b1 + mode.distance;
      valid = a1 >= a0 && a1 <= width && row.add(a1);
      a0 = a1;
      b1 += mode.distance < 0 && b1 != reference ? -1 : 1;
    } else if (mode.mode == CcittMode::horizontal) {
      const int colour = row.colour();
      valid = take_run(source, window, colour, width, a0) && row.add(a0) &&
              take_run(source, window, 1 - colour, width, a0) && row.add(a0);
    } else if (mode.mode == CcittMode::pass) {
      a0 = b1[1];
      b1 += 2;
    } else {
      valid = false;
    }
    if (!valid) break;
    if (a0 < width && (a0 > 0 || row.count > 0)) {
      while (*b1 <= a0) b1 += 2;
    }
  }
  caller_window = window;
  return valid ? row.close(width) : kNoRow;
}

// Skips bits until the next are an end-of-line code; false at the end of the data.
template <class Source>
bool find_eol(Source& source, BitWindow& window) {
  while (true) {
    source.fill(window);
    if (source.at_end(window)) return false;
    const int zeros = std::countl_zero(window.bits | 1);
    if (zeros < kEolZeros) {
      // Up to the last 1 of the bits looked at there is no place for the zeros to begin.
      window.skip(kEolZeros - std::countr_zero(window.peek(kEolZeros)));
    } else {
      window.skip(std::min(zeros, Source::kAhead) - kEolZeros);
      if (zeros < Source::kAhead) return true;
    }
  }
}

// An end-of-line code with the zeros that fill it up; false, taking nothing or the rest of the
// data, when there is none.
template <class Source>
bool take_eol(Source& source, BitWindow& window) {
  source.fill(window);
  if (window.peek(kEolZeros) != 0) return false;
  while (window.peek(kEolZeros) == 0) {
    if (source.at_end(window)) return false;
    window.skip(kEolZeros);
    source.fill(window);
  }
  window.skip(std::countl_zero(window.bits) + 1);
  return true;
}

}  // namespace

Status CcittDecoder::open(const CcittCoding& coding, std::int32_t width, CcittRows delivery) {
  coding_ = coding;
  width_ = width;
  as_runs_ = delivery == CcittRows::runs && width <= kWidestRuns;
  count_ = 0;
  const std::int64_t most_entries = std::int64_t{width} + 1 + kMostEmptyRuns + kClosers;
  TQ_TRY(row_.allocate(most_entries));
  TQ_TRY(reference_.allocate(most_entries));
  if (as_runs_) TQ_TRY(list_.allocate(std::int64_t{width} + 1 + kListClosers + 1));
  return bits_.allocate(row_bytes(width, 1));
}

// Makes the row that was decoded the one before.
void CcittDecoder::accept(int count, bool ascends) {
  std::swap(row_, reference_);
  count_ = count;
  ascends_ = ascends;
}

// Delivers the row before, which is the one that was decoded last.
Status CcittDecoder::deliver(const RowSink& sink, std::int32_t y) {
  std::span<const std::int32_t> transitions =
      reference_.pixels().first(static_cast<std::size_t>(count_));
  if (!ascends_) {
    const int kept = drop_empty_runs(reference_.data(), count_, row_.data());
    transitions = row_.pixels().first(static_cast<std::size_t>(kept));
  }
  std::size_t words = 1 + transitions.size() + kListClosers;
  if (2 * words == bits_.size()) ++words;  // that size would say bits
  if (as_runs_ && words <= kMostListWords) {
    std::uint16_t* word = list_.data();
    *word++ = static_cast<std::uint16_t>(2 * words);
    for (const std::int32_t position : transitions) *word++ = static_cast<std::uint16_t>(position);
    word = std::fill_n(word, 3, static_cast<std::uint16_t>(width_));
    std::fill(word, list_.data() + words, static_cast<std::uint16_t>(width_ + 2));
    return sink.row({reinterpret_cast<const std::uint8_t*>(list_.data()), 2 * words}, y);
  }
  transitions_to_bits(transitions, width_, bits_.pixels());
  return sink.row(bits_.pixels(), y);
}

template <class Source>
Status CcittDecoder::decode_group4(Source& source, CcittStrip strip, const RowSink& sink) {
  BitWindow window;
  for (std::int32_t y = 0; y < strip.rows; ++y) {
    if (coding_.byte_aligned) window.align();
    const DecodedRow row =
        decode_modes(source, window, width_, reference_.data(), ascends_, row_.data());
    if (row.count < 0 || source.overrun(window)) return Status::from_raw(y);
    accept(row.count, row.ascends);
    TQ_TRY(deliver(sink, strip.first_row + y));
  }
  return Status::from_raw(strip.rows);
}

template <class Source>
Status CcittDecoder::decode_group3(Source& source, CcittStrip strip, const RowSink& sink) {
  const bool tagged = coding_.scheme == CcittScheme::group3_2d;
  // Bits that fill a byte could be taken for the beginning of an end of line.
  const bool may_have_eols =
      coding_.scheme != CcittScheme::huffman && (coding_.end_of_line || !coding_.byte_aligned);
  BitWindow window;
  bool reference_is_good = true;
  for (std::int32_t y = 0; y < strip.rows; ++y) {
    source.fill(window);
    if (source.at_end(window)) return Status::from_raw(y);
    bool modes = false;
    int eols = 0;
    if (may_have_eols) {
      while (take_eol(source, window)) {
        if (++eols == kEolsAtEnd) return Status::from_raw(y);
        if (tagged) {
          modes = window.peek(1) == 0;
          window.skip(1);
        }
      }
    }
    if (eols == 0) {
      if (coding_.byte_aligned || coding_.scheme == CcittScheme::huffman) window.align();
      source.fill(window);
      if (tagged) {
        modes = window.peek(1) == 0;
        window.skip(1);
      }
    }
    if (source.at_end(window)) return Status::from_raw(y);

    DecodedRow row = kNoRow;
    if (!modes) {
      row = decode_runs(source, window, width_, row_.data());
    } else if (reference_is_good) {
      row = decode_modes(source, window, width_, reference_.data(), ascends_, row_.data());
    }
    if (source.overrun(window)) return Status::from_raw(y);
    reference_is_good = row.count >= 0;
    if (reference_is_good) {
      accept(row.count, row.ascends);
    } else if (coding_.scheme == CcittScheme::huffman || !find_eol(source, window)) {
      return Status::from_raw(y);
    }
    TQ_TRY(deliver(sink, strip.first_row + y));
  }
  return Status::from_raw(strip.rows);
}

Status CcittDecoder::decode(ChunkReader& input, std::int64_t limit, CcittStrip strip,
                            const RowSink& sink) {
  count_ = 0;  // the row before the first is white
  ascends_ = true;
  std::fill_n(reference_.data(), kClosers, width_);
  const auto decode_from = [&](auto&& source) {
    return coding_.scheme == CcittScheme::group4 ? decode_group4(source, strip, sink)
                                                 : decode_group3(source, strip, sink);
  };
  return coding_.lsb_first ? decode_from(BitSource<true>(input, limit))
                           : decode_from(BitSource<false>(input, limit));
}

}  // namespace tq::formats
