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

// What a scan remembers from block to block.
class ScanReader {
 public:
  // `tables` must be valid for its scan (scan_is_valid).
  ScanReader(Tables& tables, const Geometry& geometry, LookupTables& lookups,
             EntropySource& source);

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

  EntropySource& source() { return source_; }
  bool intact() const { return source_.intact(bits_); }

 private:
  bool restarts() const { return tables_.restart_interval != 0; }
  bool restart();
  void reset();

  Tables& tables_;
  const Geometry& geometry_;
  LookupTables& lookups_;
  EntropySource& source_;
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
// it is, and where its coefficients go; until it answers false or the data end.
template <class Function>
void store_blocks(ScanReader& reader, CoefficientStore& store, Function&& block) {
  const int count = reader.scan().count;
  int h[kMostComponents], v[kMostComponents];
  for (int i = 0; i < count; ++i) {
    h[i] = reader.interleaved() ? reader.grid(i).h : 1;
    v[i] = reader.interleaved() ? reader.grid(i).v : 1;
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
      for (; left > 0; --left, ++mcu) {
        for (int i = 0; i < count; ++i) {
          for (int y = 0; y < v[i]; ++y) {
            for (int x = mcu * h[i]; x < (mcu + 1) * h[i]; ++x) {
              if (!reader.source().prepare(bits) || !block(bits, i, rows[i][y], x)) return;
            }
          }
        }
      }
      reader.bits() = bits;
    }
  }
}

}  // namespace tq::jpeg
