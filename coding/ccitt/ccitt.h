// Facsimile coding of 1-bit rows (ITU-T T.4 and T.6), both ways. A row is the list of its
// transitions: ascending positions where the colour changes, beginning with white.
#pragma once

#include <cstdint>
#include <span>

#include "coding/bits.h"
#include "core/memory.h"

namespace tq::ccitt {

enum class Scheme : std::uint8_t {
  huffman,    // runs only, every row from a byte of its own, no end-of-line codes
  group3_1d,  // runs only
  group3_2d,  // a tag bit before every row says whether it refers to the one before
  group4,     // every row refers to the one before
};

struct Coding {
  Scheme scheme = Scheme::group4;
  bool byte_aligned = false;  // rows start, or with Group 3 end-of-line codes end, at a byte
  bool end_of_line = true;    // Group 3: a code before every row; the decoder finds out by itself
                              // unless rows are byte-aligned
  // The encoder alone.
  bool end_of_block = false;  // the codes that end a page
  std::int32_t k = 4;         // group3_2d: every k-th row stands for itself
  // The decoder alone. Group 4: no byte is asked for before the one at hand is used up.
  bool sparing = false;
  // Group 4: the first row stands for itself; an end-of-line code and so many bits follow it.
  bool own_first_row = false;
  int bits_behind_first_row = 0;
};

using BitReader = coding::BitReader<coding::BitOrder::msb_first>;
using BitWriter = coding::BitWriter<coding::BitOrder::msb_first>;

// How a row ends: as it should, for want of a code, with a run beyond the width, or wrongly.
enum class RowEnd : std::uint8_t { good, short_of_codes, too_long, bad };

class Decoder {
 public:
  Status open(const Coding& coding, std::int32_t width);

  // Begins with these data and a white row before the first.
  void start(coding::PieceSource data);

  // Decodes a row. False when the data end, or have an error from which there is no way back; then
  // there are no more rows. A Group 3 row with an error is a copy of the one before it.
  bool next_row();

  // Whether that row is what was coded, and whether the data have ended.
  bool row_is_good() const { return reference_is_good_; }
  bool at_end() { return reader_.at_end(); }

  // The transitions of that row, all below the width; valid until the next.
  std::span<const std::int32_t> row();

 private:
  // A row as it is coded: the ends of its runs, of those without length as well, and behind them
  // the width a few times.
  struct Runs {
    RowBuffer<std::int32_t> ends;
    std::int32_t count = 0;
    bool ascend = true;  // no run is without length
  };

  bool take_first_row_end();
  bool next_group4_row();
  bool next_group3_row();
  bool start_group3_row(bool& by_modes);
  RowEnd decode_runs();
  RowEnd decode_modes();
  RowEnd look_behind(RowEnd end);
  void close_row(Runs& runs, std::int32_t count, bool ascend) const;

  Coding coding_;
  std::int32_t width_ = 0;
  BitReader reader_;
  Runs runs_, reference_;          // of the row at work, and of the one before
  bool reference_is_good_ = true;  // the row before had no error
  int first_rows_ = 0;             // that were decoded, two at most
};

class Encoder {
 public:
  Status open(const Coding& coding, std::int32_t width);

  // Begins with a white row before the first.
  void start();

  // The next row: transitions as far as they ascend below the width, pairs at one place being runs
  // without length; or bits, 1 being white.
  void take_transitions(std::span<const std::int32_t> transitions);
  void take_bits(std::span<const std::uint8_t> bits);

  // How far behind `out` putting the row writes at most, and how far finishing.
  std::int64_t most_bytes() const;
  static constexpr std::int64_t kMostBytesAtEnd = 100;

  // Codes the row that was taken; the end of the complete bytes. The next row goes on there.
  std::uint8_t* put_row(std::uint8_t* out);

  // Completes the last byte, with the codes that end a page if there shall be any.
  std::uint8_t* finish(std::uint8_t* out);

 private:
  void close_row(std::int32_t count);
  bool start_row();

  Coding coding_;
  std::int32_t width_ = 0;
  BitWriter writer_;
  RowBuffer<std::int32_t> row_, reference_;  // transitions, then the width a few times
  std::int32_t count_ = 0, before_ = 0;      // transitions of these two
  std::int32_t rows_ = 0;                    // put so far
};

}  // namespace tq::ccitt
