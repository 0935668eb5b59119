// Rows of one picture or tile, in whichever way they are coded.
#pragma once

#include <array>

#include "coding/ccitt/ccitt.h"
#include "coding/packbits.h"
#include "formats/ica/content.h"
#include "formats/plugin/plugin.h"

namespace tq::ica {

// Whether the coding is one of black and white rows.
inline bool is_of_rows(const Description& about) {
  const std::uint8_t coding = about.coding;
  return about.is_fax() || coding == kPlain || coding == kPackBits || coding == kLzw ||
         coding == kRunLengths;
}

// Lines of so many bits, each from a byte of its own here.
class StoredLines {
 public:
  // `lzw` is the module's coder, for data that need it.
  Status open(StreamHandle stream, const Description& description, const img_strip_coder* lzw,
              std::int64_t line_bits);
  void start(const Place& place, int band);

  // How many bytes of a line there were; fewer at the end of the data.
  std::ptrdiff_t read(std::span<std::uint8_t> line);

  Bytes next_piece();  // of decoded bytes

 private:
  std::ptrdiff_t read_bytes(std::span<std::uint8_t> bytes);

  const img_strip_coder* lzw_ = nullptr;
  std::uint8_t coding_ = kPlain;
  bool unpadded_ = false;
  int line_end_ = 0;  // bits of a line's last byte
  DataPieces pieces_;
  Bytes piece_{};
  packbits::Decoder packbits_;
  GlobalBlock lzw_state_;
  // Of lines that do not begin at bytes.
  coding::BitReader<coding::BitOrder::msb_first> bits_;
  std::array<std::uint8_t, 4096> buffer_{};
};

// Lines that are runs, each with a head that says which line it is.
class RunLines {
 public:
  Status open(StreamHandle stream, const Description& description, std::int32_t width);
  // Lines are counted from 0, or from 1 where there is one of that number.
  void start(const Place& place, int band, std::int32_t height);
  // False at the end of the data. Lines that are not there are white.
  bool next_row();
  std::span<const std::int32_t> row() const {
    return row_.pixels().first(static_cast<std::size_t>(count_));
  }
  bool row_is_good() const { return good_; }
  bool at_end() const { return ended_; }
  Bytes next_piece();  // of the line

 private:
  int next_byte();
  bool read_head();
  void read_runs();

  std::int32_t width_ = 0;
  DataPieces pieces_;
  Bytes piece_{};
  RowBuffer<std::int32_t> row_;
  std::int32_t count_ = 0;
  std::int32_t first_line_ = 0, y_ = 0;
  std::int32_t line_ = -1, line_bytes_ = 0;  // of the head that was read
  bool good_ = true, ended_ = false;
};

inline constexpr int kWays = 3;  // to read what is coded as kMmr

// Rows of 1-bit pictures as transitions.
class BlackRows {
 public:
  Status open(StreamHandle stream, const Description& description, const img_strip_coder* lzw,
              std::int32_t width);
  // `height` 0: not known.
  void start(const Place& place, std::int32_t height);

  bool next_row();
  std::span<const std::int32_t> row();
  bool row_is_good() const;
  bool at_end();  // whether there are no more rows for want of data

 private:
  Description description_;
  std::int32_t width_ = 0;
  DataPieces pieces_;
  ccitt::Decoder fax_[kWays];
  int way_ = 0;
  RunLines runs_;
  StoredLines lines_;
  RowBuffer<std::uint8_t> line_;
  RowBuffer<std::int32_t> row_;
  std::int32_t count_ = 0;
  bool good_ = true;
};

}  // namespace tq::ica
