// From code words to transitions.
#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "coding/ccitt/ccitt.h"
#include "coding/ccitt/codes.h"

namespace tq::ccitt {
namespace {

constexpr int kLongestRunCode = 13;   // bits
constexpr int kLongestModeCode = 7;   // bits
constexpr int kTerminators = 4;       // entries behind the last run end that are the width
constexpr int kMostEmptyRuns = 1024;  // of a row, beside those of a pixel and more
constexpr int kEolZeros = 11;         // bits of 0 before the 1 that ends an end-of-line code

// Calls enter(index, code) for all indices of `index_bits` bits that begin with the code.
template <class Enter>
constexpr void for_each_index(Code code, int index_bits, Enter enter) {
  const int open_bits = index_bits - code.length;
  for (int rest = 0; rest < 1 << open_bits; ++rest) enter(code.bits << open_bits | rest);
}

// A run looked up by the next 13 bits: its length in pixels, 64 and more being make-up codes, above
// its code's length in the low four bits. 0: no code begins like this.
using RunTable = std::array<std::uint16_t, 1 << kLongestRunCode>;

constexpr RunTable run_table(const RunCodes& codes) {
  RunTable table{};
  for (int i = 0; i < kRunCodes; ++i) {
    for_each_index(codes[i], kLongestRunCode,
                   [&](int index) { table[index] = word(run_of(i) << 4 | codes[i].length); });
  }
  return table;
}
constexpr std::array<RunTable, 2> kRunTable = {run_table(kRunCode[0]), run_table(kRunCode[1])};

enum class Mode : std::uint8_t { none, pass, horizontal, vertical };

// A mode looked up by the next 7 bits. `none`: an extension, an end of block, or no code at all.
struct ModeEntry {
  Mode mode = Mode::none;
  std::uint8_t length = 0;
  std::int8_t distance = 0;
};

constexpr auto kModeTable = [] {
  std::array<ModeEntry, 1 << kLongestModeCode> table{};
  const auto enter = [&](Code code, Mode mode, std::int8_t distance) {
    for_each_index(code, kLongestModeCode, [&](int index) {
      table[index] = {mode, code.length, distance};
    });
  };
  enter(kPass, Mode::pass, 0);
  enter(kHorizontal, Mode::horizontal, 0);
  for (std::int8_t distance = -3; distance <= 3; ++distance) {
    enter(kVertical[distance + 3], Mode::vertical, distance);
  }
  return table;
}();

// The ends of a row's runs while they are decoded, colours by turns; those of runs without length
// stay, because the next row may refer to them.
struct RunsInProgress {
  std::int32_t* ends;
  std::int32_t count = 0;
  int empty_runs = 0;

  int colour() const { return count & 1; }  // 1: black
  bool add(std::int32_t end) {
    if (count > 0 && ends[count - 1] == end) {
      if (++empty_runs > kMostEmptyRuns) return false;
    }
    ends[count++] = end;
    return true;
  }
};

// Leaves out pairs at one place, so that what is left ascends. Returns how many that are.
std::int32_t drop_empty_runs(std::span<const std::int32_t> ends, std::int32_t* out) {
  std::int32_t kept = 0;
  for (const std::int32_t end : ends) {
    if (kept > 0 && out[kept - 1] == end)
      --kept;
    else
      out[kept++] = end;
  }
  return kept;
}

// Adds a run of this colour to `position`. One that leaves the row is read, but not added.
RowEnd take_run(BitReader& reader, int colour, std::int32_t width, std::int32_t& position) {
  const RunTable& table = kRunTable[colour];
  std::int32_t run = 0;
  do {
    int entry = 0;
    do {
      reader.fill();
      entry = table[reader.peek(kLongestRunCode)];
    } while (!reader.holds(entry == 0 ? kLongestRunCode : entry & 15));
    if (entry == 0) return RowEnd::short_of_codes;
    reader.skip(entry & 15);
    run = entry >> 4;
    if (run > width - position) return RowEnd::too_long;
    position += run;
  } while (run >= 64);
  return RowEnd::good;
}

// Skips bits until the next are an end-of-line code; false at the end of the data.
bool find_eol(BitReader& reader) {
  while (true) {
    reader.fill();
    if (reader.at_end()) return false;
    const int zeros = std::countl_zero(reader.bits() | 1);
    if (zeros < kEolZeros) {
      // Up to the last 1 of the bits looked at there is no place for the zeros to begin.
      reader.skip(kEolZeros - std::countr_zero(reader.peek(kEolZeros)));
    } else {
      reader.skip(std::min(zeros, BitReader::kAhead) - kEolZeros);
      if (zeros < BitReader::kAhead) return true;
    }
  }
}

// An end-of-line code with the zeros that fill it up; false, taking nothing or the rest of the
// data, when there is none.
bool take_eol(BitReader& reader) {
  reader.fill();
  if (reader.peek(kEolZeros) != 0) return false;
  while (reader.peek(kEolZeros) == 0) {
    if (reader.at_end()) return false;
    reader.skip(kEolZeros);
    reader.fill();
  }
  reader.skip(std::countl_zero(reader.bits()) + 1);
  return true;
}

}  // namespace

Status Decoder::open(const Coding& coding, std::int32_t width) {
  coding_ = coding;
  width_ = width;
  const std::int64_t most_entries = std::int64_t{width} + 1 + kMostEmptyRuns + kTerminators;
  TQ_TRY(runs_.ends.allocate(most_entries));
  return reference_.ends.allocate(most_entries);
}

void Decoder::start(coding::PieceSource data) {
  reader_ = BitReader(data, coding_.sparing);
  close_row(reference_, 0, true);
  reference_is_good_ = true;
  first_rows_ = 0;
}

// Completes a row behind its last run end.
void Decoder::close_row(Runs& runs, std::int32_t count, bool ascend) const {
  while (count > 0 && runs.ends[count - 1] >= width_) --count;
  std::fill_n(runs.ends.data() + count, kTerminators, width_);
  runs.count = count;
  runs.ascend = ascend;
}

std::span<const std::int32_t> Decoder::row() {
  const auto ends = reference_.ends.pixels().first(reference_.count);
  if (reference_.ascend) return ends;
  // Where the next row will be decoded there is room.
  return runs_.ends.pixels().first(drop_empty_runs(ends, runs_.ends.data()));
}

// A row that stands for itself.
RowEnd Decoder::decode_runs() {
  BitReader reader = reader_;
  RunsInProgress row{runs_.ends.data()};
  std::int32_t position = 0;
  RowEnd result = RowEnd::good;
  while (result == RowEnd::good && position < width_) {
    result = take_run(reader, row.colour(), width_, position);
    if (result == RowEnd::good && !row.add(position)) result = RowEnd::bad;
  }
  reader_ = reader;
  close_row(runs_, row.count, row.empty_runs == 0);
  return result;
}

// A row that refers to the one before. b1 is that one's first run end behind a0 to the opposite
// colour, at the beginning of the row even one at 0; the standard's names.
RowEnd Decoder::decode_modes() {
  BitReader reader = reader_;
  RunsInProgress row{runs_.ends.data()};
  const std::int32_t width = width_;
  const std::int32_t* const reference = reference_.ends.data();
  const std::int32_t* b1 = reference;
  const int most_same = reference_.ascend ? BitReader::kAhead : 0;
  std::int32_t a0 = 0;
  RowEnd result = RowEnd::good;
  const auto take = [&](int colour) {
    result = take_run(reader, colour, width, a0);
    if (result == RowEnd::good && !row.add(a0)) result = RowEnd::bad;
    return result == RowEnd::good;
  };
  while (a0 < width) {
    reader.fill();
    // Most transitions lie right below one of the row before, each said by a single bit. Where run
    // ends there are not all different, each step has to look for b1.
    const int same = std::min(std::countl_one(reader.bits()), most_same);
    int taken = 0;
    while (taken < same && a0 < width) {
      a0 = *b1++;
      row.ends[row.count++] = a0;
      ++taken;
    }
    reader.skip(taken);
    if (taken == BitReader::kAhead || a0 >= width) continue;

    ModeEntry mode;
    do {
      reader.fill();
      mode = kModeTable[reader.peek(kLongestModeCode)];
    } while (!reader.holds(mode.mode == Mode::none ? kLongestModeCode : mode.length));
    reader.skip(mode.length);
    if (mode.mode == Mode::vertical) {
      const std::int32_t a1 = *b1 + mode.distance;
      if (a1 > width) {
        result = RowEnd::too_long;
      } else if (a1 < a0 || !row.add(a1)) {
        result = RowEnd::bad;
      }
      a0 = a1;
      b1 += mode.distance < 0 && b1 != reference ? -1 : 1;
    } else if (mode.mode == Mode::horizontal) {
      const int colour = row.colour();
      if (take(colour)) take(1 - colour);
    } else if (mode.mode == Mode::pass) {
      a0 = b1[1];
      b1 += 2;
    } else {
      result = RowEnd::short_of_codes;
    }
    if (result != RowEnd::good) break;
    if (a0 < width && (a0 > 0 || row.count > 0)) {
      while (*b1 <= a0) b1 += 2;
    }
  }
  reader_ = reader;
  close_row(runs_, row.count, row.empty_runs == 0);
  return result;
}

bool Decoder::take_first_row_end() {
  reader_.fill();
  if (reader_.peek(kEol.length) != kEol.bits) return false;
  reader_.skip(kEol.length + coding_.bits_behind_first_row);
  return true;
}

bool Decoder::next_group4_row() {
  if (coding_.byte_aligned) reader_.align();
  bool by_runs = false;
  if (coding_.own_first_row && first_rows_ < 2) {
    by_runs = first_rows_ == 0;
    if (!by_runs && !take_first_row_end()) return false;
    ++first_rows_;
  }
  const RowEnd end = by_runs ? decode_runs() : decode_modes();
  if (end != RowEnd::good || reader_.overrun()) return false;
  std::swap(runs_, reference_);
  return true;
}

// What stands before a row; false at the end of the page.
bool Decoder::start_group3_row(bool& by_modes) {
  const bool tagged = coding_.scheme == Scheme::group3_2d;
  // Bits that fill a byte could be taken for the beginning of an end of line.
  const bool may_have_eols =
      coding_.scheme != Scheme::huffman && (coding_.end_of_line || !coding_.byte_aligned);
  const auto take_tag = [&] {
    by_modes = tagged && reader_.peek(1) == 0;
    if (tagged) reader_.skip(1);
  };
  reader_.fill();
  if (reader_.at_end()) return false;
  int eols = 0;
  while (may_have_eols && take_eol(reader_)) {
    if (++eols == kEolsAtEnd) return false;
    take_tag();
  }
  if (eols == 0) {
    if (coding_.byte_aligned || coding_.scheme == Scheme::huffman) reader_.align();
    reader_.fill();
    take_tag();
  }
  return !reader_.at_end();
}

// Some writers leave out what is white at the end of a row, or let its last run go too far: an end of
// line in the right place shows that nothing else is wrong. What is too long is cut, and what is
// missing becomes white.
RowEnd Decoder::look_behind(RowEnd result) {
  reader_.fill();
  const int zeros = std::countl_zero(reader_.bits());
  const bool at_eol = zeros >= kEolZeros && zeros < BitReader::kAhead && reader_.has(zeros + 1);
  if (!at_eol || result == RowEnd::bad) return RowEnd::bad;
  // Behind an odd number of ends the rest of the row is black.
  const bool black = result == RowEnd::short_of_codes && runs_.count % 2 != 0;
  if (black) close_row(runs_, runs_.count - 1, runs_.ascend);
  return RowEnd::good;
}

bool Decoder::next_group3_row() {
  bool by_modes = false;
  if (!start_group3_row(by_modes)) return false;
  RowEnd result = RowEnd::bad;
  if (!by_modes || reference_is_good_) result = by_modes ? decode_modes() : decode_runs();
  if (reader_.overrun()) return false;
  if (result != RowEnd::good && coding_.scheme == Scheme::group3_1d) result = look_behind(result);
  reference_is_good_ = result == RowEnd::good;
  if (reference_is_good_) {
    std::swap(runs_, reference_);
    return true;
  }
  return coding_.scheme != Scheme::huffman && find_eol(reader_);
}

bool Decoder::next_row() {
  return coding_.scheme == Scheme::group4 ? next_group4_row() : next_group3_row();
}

}  // namespace tq::ccitt
