// The entropy-coded data of one scan.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "formats/jpeg/decode/entropy.h"
#include "formats/jpeg/decode/markers.h"
#include "formats/jpeg/decode/picture.h"

namespace tq::jpeg {

struct LookupTables {
  std::array<DecodeTable, kHuffmanSlots> own_dc, own_ac;  // room; not all are built
  std::array<const DecodeTable*, kHuffmanSlots> dc{}, ac{};
};

// Tells the caller about long work that delivers no row.
class ScanProgress {
 public:
  ScanProgress(bool on, std::int32_t height) : on_(on), height_(height) {}

  // False when the caller wants no more.
  bool add(std::int64_t pixels);
  Status status() const { return status_; }

 private:
  static constexpr std::int64_t kPixelsPerReport = 1 << 20;

  bool on_;
  std::int32_t height_;
  std::int64_t pixels_ = 0;
  Status status_ = kOk;
};

// What a scan remembers from block to block.
class ScanReader {
 public:
  // `tables` must be valid for its scan (scan_is_valid). One that `recovers` goes on behind damage
  // at the next restart marker, and has blocks without content up to there; else damage ends the
  // scan.
  ScanReader(Tables& tables, const Geometry& geometry, LookupTables& lookups, EntropySource& source,
             ScanProgress& progress, bool recovers);

  const Scan& scan() const { return tables_.scan; }
  const Geometry& geometry() const { return geometry_; }
  const DecodeTable& dc(int i) const { return *lookups_.dc[scan().components[i].dc]; }
  const DecodeTable& ac(int i) const { return *lookups_.ac[scan().components[i].ac]; }
  const Grid& grid(int i) const { return geometry_.grids[scan().components[i].index]; }
  const QuantisationTable& quantisation(int i) const {
    return tables_.quantisation_of(scan().components[i]);
  }

  BitReader& bits() { return bits_; }
  std::int32_t& predictor(int i) { return predictors_[i]; }
  std::uint32_t& end_of_band_run() { return end_of_band_run_; }

  // A component alone is not interleaved: its MCUs are single blocks, as many as hold pixels.
  bool interleaved() const { return scan().count > 1; }
  int rows() const { return interleaved() ? geometry_.mcu_rows : grid(0).rows; }
  int columns() const { return interleaved() ? geometry_.mcu_columns : grid(0).columns; }

  // How many MCUs come before the next restart marker, at most `most`; they are to be read next. 0
  // when a marker is due and not there.
  int start_mcus(int most) {
    if (until_restart_ == 0 && !restart()) return 0;
    const int count = std::min(most, until_restart_);
    until_restart_ -= restarts() ? count : 0;
    return count;
  }

  // What is left of the interval cannot be read. False when the scan is not gone on with.
  bool give_up_interval() {
    note_damage(intact() ? StatusCode::bad_image : source_.end_reason());
    broken_ = recovers_;
    ended_ = !restarts();
    return broken_;
  }
  // Whether the next MCUs are of such an interval.
  bool broken() const { return broken_; }
  // Whether no interval comes behind it.
  bool ended() const { return ended_; }
  // Behind the last coefficient that a block may have.
  int block_end() const { return recovers_ ? kBlock : kBlock + kRoomBehindBlock; }

  // Behind a row of MCUs that have that many pixels: whether there is another one.
  bool end_row(std::int64_t pixels) {
    good_rows_ += damage_ == StatusCode::ok ? 1 : 0;
    return !ended_ && progress_.add(pixels);
  }
  // What was wrong first, and how many rows of pixels came before.
  StatusCode damage() const { return damage_; }
  int good_rows() const;

  EntropySource& source() { return source_; }
  bool intact() const { return source_.intact(bits_); }

 private:
  bool restarts() const { return tables_.restart_interval != 0; }
  bool restart();
  bool find_marker();
  void reset();
  void note_damage(StatusCode reason) {
    if (damage_ == StatusCode::ok) damage_ = reason;
  }

  Tables& tables_;
  const Geometry& geometry_;
  LookupTables& lookups_;
  EntropySource& source_;
  ScanProgress& progress_;
  bool recovers_;
  bool broken_ = false;
  bool ended_ = false;
  int next_marker_ = 0;  // number of the restart marker that comes next, modulo 8
  int missing_ = 0;      // intervals in front of the one at which the source stands
  StatusCode damage_ = StatusCode::ok;
  int good_rows_ = 0;  // of MCUs
  BitReader bits_;
  std::array<std::int32_t, kMostComponents> predictors_{};
  std::uint32_t end_of_band_run_ = 0;
  int until_restart_ = 0;  // MCUs
};

// A sequential scan that holds all components: rows go to the sink as they are whole.
Status stream_scan(ScanReader& reader, Reconstruction& picture, const formats::RowSink& sink);

// Any other scan: its coefficients go to the store. Damaged data end it early.
void store_sequential_scan(ScanReader& reader, CoefficientStore& store);
void store_progressive_scan(ScanReader& reader, CoefficientStore& store);

// Moves the predictor on to the block's DC coefficient; false when there is no such code.
inline bool decode_dc(BitReader& r, const DecodeTable& table, std::int32_t& predictor) {
  r.need(kMostWhole);
  const LookupEntry entry = table.lookup[r.peek(kLookupBits)];
  std::uint32_t difference = 0;
  if ((entry & kNoValue) == 0) [[likely]] {
    difference = r.value(entry).value;
  } else {
    const Symbol size = r.symbol(table, entry);
    if (size.length == 0 || size.value > 16) return false;
    difference = extend(r.take(size.value), size.value);
  }
  predictor += difference;  // wraps round in damaged data
  return true;
}

// Calls `block(bits, i, row, x)` for the blocks of a scan: the bits, which component of the scan
// it is, and where its coefficients go; until it answers false or the data end. Then `rest(i, row,
// x)` for the blocks up to the next restart marker, or of the MCU row, if the reader recovers.
template <class Function, class Rest>
void store_blocks(ScanReader& reader, CoefficientStore& store, Function&& block, Rest&& rest) {
  const int count = reader.scan().count;
  int h[kMostComponents], v[kMostComponents], mcu_blocks = 0;
  for (int i = 0; i < count; ++i) {
    h[i] = reader.interleaved() ? reader.grid(i).h : 1;
    v[i] = reader.interleaved() ? reader.grid(i).v : 1;
    mcu_blocks += h[i] * v[i];
  }
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    StoredRow rows[kMostComponents][kMostFactor];
    for (int i = 0; i < count; ++i) {
      const int component = reader.scan().components[i].index;
      for (int y = 0; y < v[i]; ++y) rows[i][y] = store.row(component, mcu_row * v[i] + y);
    }
    for (int mcu = 0; mcu < reader.columns();) {
      int left = reader.start_mcus(reader.columns() - mcu);
      if (left == 0) return;
      BitReader bits = reader.bits();
      bool readable = !reader.broken();
      for (; left > 0; --left, ++mcu) {
        for (int i = 0; i < count; ++i) {
          for (int y = 0; y < v[i]; ++y) {
            for (int x = mcu * h[i]; x < (mcu + 1) * h[i]; ++x) {
              if (readable && reader.source().prepare(bits) && block(bits, i, rows[i][y], x))
                  [[likely]]
                continue;
              if (readable) {
                reader.bits() = bits;
                if (!reader.give_up_interval()) return;
              }
              readable = false;
              rest(i, rows[i][y], x);
            }
          }
        }
      }
      reader.bits() = bits;
    }
    if (!reader.end_row(std::int64_t{kBlock} * mcu_blocks * reader.columns())) return;
  }
}

}  // namespace tq::jpeg
