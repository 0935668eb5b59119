// Plain and coded lines.
#include "formats/ica/rows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <iterator>

#include "core/run_storage.h"
#include "io/endian.h"
#include "pixels/rows.h"

namespace tq::ica {
namespace {

std::int32_t IMG_CB_C next_coded(void* context, const void** bytes) {
  const Bytes piece = static_cast<DataPieces*>(context)->next_piece();
  *bytes = piece.data();
  return static_cast<std::int32_t>(piece.size());
}

ccitt::Coding fax_coding(const Description& description) {
  using ccitt::Scheme;
  switch (description.coding) {
    case kHuffman:
      return {.scheme = Scheme::huffman};
    case kGroup3:
      return {.scheme = Scheme::group3_1d};
    case kGroup3TwoWays:
      return {.scheme = Scheme::group3_2d};
    default:
      return {.scheme = Scheme::group4};
  }
}

// The reference leaves open whether a bit follows the first end-of-line code; and there are readers
// for which all rows are alike.
constexpr ccitt::Coding kMmrWays[] = {
    {.own_first_row = true}, {.own_first_row = true, .bits_behind_first_row = 1}, {}};
static_assert(std::size(kMmrWays) == kWays);

}  // namespace

Status StoredLines::open(StreamHandle stream, const Description& description,
                         const img_strip_coder* lzw, std::int64_t line_bits) {
  coding_ = description.coding;
  unpadded_ = description.unpadded;
  line_end_ = static_cast<int>(line_bits % 8);
  lzw_ = lzw;
  if (coding_ == kLzw) {
    if (lzw == nullptr) return StatusCode::no_lzw_module;
    TQ_TRY(lzw_state_.allocate(lzw->decoder_bytes));
  }
  return pieces_.open(stream, description.lsb_first);
}

void StoredLines::start(const Place& place, int band) {
  pieces_.start(place, band);
  piece_ = {};
  if (coding_ == kPackBits) packbits_.start(PieceSource::of(pieces_));
  if (coding_ == kLzw) lzw_->begin_decode(lzw_state_.data(), next_coded, &pieces_);
  bits_ = coding::BitReader<coding::BitOrder::msb_first>(PieceSource::of(*this));
}

std::ptrdiff_t StoredLines::read_bytes(std::span<std::uint8_t> bytes) {
  if (coding_ == kPackBits) return packbits_.read(bytes);
  if (coding_ == kLzw) {
    return lzw_->decode(lzw_state_.data(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
  }
  return read_pieces(PieceSource::of(pieces_), piece_, bytes);
}

Bytes StoredLines::next_piece() {
  const std::ptrdiff_t there = read_bytes(buffer_);
  return Bytes(buffer_).first(static_cast<std::size_t>(there));
}

std::ptrdiff_t StoredLines::read(std::span<std::uint8_t> line) {
  if (!unpadded_) {
    if (coding_ == kPackBits) packbits_.cut_run();
    return read_bytes(line);
  }
  const std::ptrdiff_t bytes = std::ssize(line);
  for (std::ptrdiff_t i = 0; i < bytes; ++i) {
    const int bits = i == bytes - 1 && line_end_ != 0 ? line_end_ : 8;
    if (!bits_.has(bits)) return i;
    line[i] = byte(bits_.peek(bits) << (8 - bits));
    bits_.skip(bits);
  }
  return bytes;
}

Status RunLines::open(StreamHandle stream, const Description& description, std::int32_t width) {
  width_ = width;
  TQ_TRY(row_.allocate(std::int64_t{width} + 1));
  return pieces_.open(stream, description.lsb_first);
}

void RunLines::start(const Place& place, int band, std::int32_t height) {
  const auto begin = [&] {
    pieces_.start(place, band);
    piece_ = {};
  };
  begin();
  first_line_ = 0;
  while (read_head()) {
    if (line_ == height) first_line_ = 1;
    while (line_bytes_ > 0 && !next_piece().empty()) {
    }
  }
  begin();
  y_ = 0;
  ended_ = !read_head();
}

int RunLines::next_byte() {
  if (piece_.empty()) piece_ = pieces_.next_piece();
  if (piece_.empty()) return -1;
  const int value = piece_.front();
  piece_ = piece_.subspan(1);
  return value;
}

bool RunLines::read_head() {
  std::array<std::uint8_t, 4> head{};
  for (std::uint8_t& at : head) {
    const int value = next_byte();
    if (value < 0) return false;
    at = byte(value);
  }
  line_ = load_be16(&head[0]);
  line_bytes_ = load_be16(&head[2]);
  return true;
}

Bytes RunLines::next_piece() {
  if (piece_.empty() && line_bytes_ > 0) piece_ = pieces_.next_piece();
  const auto here = std::min<std::ptrdiff_t>(line_bytes_, std::ssize(piece_));
  const Bytes taken = piece_.first(static_cast<std::size_t>(here));
  piece_ = piece_.subspan(taken.size());
  line_bytes_ -= static_cast<std::int32_t>(here);
  return taken;
}

// A word begins with as many ones as say how long it is.
void RunLines::read_runs() {
  struct Word {
    int bits;   // behind the ones and their zero
    int least;  // run
  };
  constexpr Word kWords[] = {{3, 1}, {6, 9}, {9, 73}, {12, 585}, {15, 4681}};
  constexpr int kEmptyRun = 7, kLineEnd = 8;  // ones
  coding::BitReader<coding::BitOrder::msb_first> bits(PieceSource::of(*this));
  std::int64_t x = 0;
  count_ = 0;
  const auto change = [&] {
    if (x >= width_) return;
    if (count_ > 0 && row_[count_ - 1] == x) {
      --count_;
    } else {
      row_[count_++] = static_cast<std::int32_t>(x);
    }
  };
  while (x < width_) {
    if (!bits.has(1)) break;
    bits.fill();
    const int ones = std::min(std::countl_one(bits.bits()), kLineEnd);
    if (ones >= kLineEnd) break;
    const bool is_run = ones < static_cast<int>(std::size(kWords));
    const int length = ones + 1 + (is_run ? kWords[ones].bits : 0);
    good_ = (is_run || ones == kEmptyRun) && bits.has(length);
    if (!good_) break;
    bits.skip(ones + 1);
    if (is_run) {
      x += kWords[ones].least + static_cast<int>(bits.peek(kWords[ones].bits));
      bits.skip(kWords[ones].bits);
    }
    change();
  }
  if (x > width_) good_ = false;
  while (line_bytes_ > 0 && !next_piece().empty()) {
  }
}

bool RunLines::next_row() {
  // Lines that come once more are no longer waited for.
  while (!ended_ && line_ - first_line_ < y_) {
    good_ = false;
    while (line_bytes_ > 0 && !next_piece().empty()) {
    }
    ended_ = !read_head();
  }
  count_ = 0;
  if (!ended_ && line_ - first_line_ == y_) {
    read_runs();
    ended_ = !read_head();
  }
  ++y_;
  return true;
}

Status BlackRows::open(StreamHandle stream, const Description& description,
                       const img_strip_coder* lzw, std::int32_t width) {
  description_ = description;
  width_ = width;
  if (description.coding == kBlack) return kOk;
  if (description.coding == kRunLengths) return runs_.open(stream, description, width);
  if (description.is_fax()) {
    TQ_TRY(pieces_.open(stream, description.lsb_first));
    if (description.coding != kMmr) return fax_[0].open(fax_coding(description), width);
    for (int i = 0; i < kWays; ++i) TQ_TRY(fax_[i].open(kMmrWays[i], width));
    return kOk;
  }
  TQ_TRY(lines_.open(stream, description, lzw, width));
  TQ_TRY(line_.allocate(row_bytes(width, 1)));
  return row_.allocate(std::int64_t{width} + 1);
}

void BlackRows::start(const Place& place, std::int32_t height) {
  const int band = description_.in_bands ? 1 : 0;
  good_ = true;
  if (description_.coding == kRunLengths) return runs_.start(place, band, height);
  if (!description_.is_fax()) return lines_.start(place, band);
  way_ = 0;
  const auto begin = [&] {
    pieces_.start(place, band);
    fax_[way_].start(PieceSource::of(pieces_));
  };
  begin();
  if (description_.coding != kMmr) return;
  const auto two_rows = [&] {
    return fax_[way_].next_row() && (height == 1 || fax_[way_].next_row());
  };
  while (way_ < kWays && !two_rows()) {
    ++way_;
    if (way_ < kWays) begin();
  }
  if (way_ == kWays) way_ = 0;
  begin();
}

bool BlackRows::next_row() {
  if (description_.coding == kBlack) return true;
  if (description_.coding == kRunLengths) return runs_.next_row();
  if (description_.is_fax()) return fax_[way_].next_row();
  const auto stored = line_.pixels().first(static_cast<std::size_t>((width_ + 7) / 8));
  const std::ptrdiff_t there = lines_.read(stored);
  if (there == 0) return false;
  good_ = there == std::ssize(stored);
  std::fill(stored.begin() + there, stored.end(), std::uint8_t{0});
  pixels::invert(stored, stored);
  count_ = bits_to_transitions(line_.pixels(), width_, row_.pixels());
  return true;
}

std::span<const std::int32_t> BlackRows::row() {
  static constexpr std::int32_t kFromTheLeft[] = {0};
  if (description_.coding == kBlack) return kFromTheLeft;
  if (description_.coding == kRunLengths) return runs_.row();
  if (description_.is_fax()) return fax_[way_].row();
  return row_.pixels().first(static_cast<std::size_t>(count_));
}

bool BlackRows::row_is_good() const {
  if (description_.coding == kRunLengths) return runs_.row_is_good();
  return description_.is_fax() ? fax_[way_].row_is_good() : good_;
}

bool BlackRows::at_end() {
  return !description_.is_fax() || fax_[way_].at_end();
}

}  // namespace tq::ica
