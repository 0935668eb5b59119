// The entropy-coded data of one scan.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "formats/jpeg/coefficients.h"
#include "formats/jpeg/entropy_source.h"
#include "formats/jpeg/frame.h"
#include "formats/jpeg/picture.h"

namespace tq::formats {

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

  BitReader& bits() { return bits_; }
  std::int32_t& predictor(int i) { return predictors_[static_cast<std::size_t>(i)]; }
  std::uint32_t& end_of_band_run() { return end_of_band_run_; }

  // A component alone is not interleaved: its MCUs are single blocks, as many as hold pixels.
  bool interleaved() const { return scan().count > 1; }
  int rows() const { return interleaved() ? geometry_.mcu_rows : grid(0).rows; }
  int columns() const { return interleaved() ? geometry_.mcu_columns : grid(0).columns; }

  // Before every MCU. False when a restart marker is due and not there.
  bool start_mcu() {
    if (until_restart_ == 0 && !restart()) return false;
    --until_restart_;
    return true;
  }
  // MCUs, this one included, that come before the next restart marker.
  std::int64_t until_restart() const { return until_restart_; }
  void skip_mcus(std::int64_t count) { until_restart_ -= count; }

  // The same for as many MCUs as come before the next restart marker, at most `most`; 0 for false.
  int start_mcus(int most) {
    if (until_restart_ == 0 && !restart()) return 0;
    const auto count = static_cast<int>(std::min<std::int64_t>(most, until_restart_));
    until_restart_ -= count;
    return count;
  }

  bool start_block() { return source_.prepare(bits_); }
  EntropySource& source() { return source_; }
  bool intact() const { return source_.intact(bits_); }

 private:
  bool restart();
  void reset();

  Tables& tables_;
  const Geometry& geometry_;
  LookupTables& lookups_;
  EntropySource& source_;
  BitReader bits_;
  std::array<std::int32_t, kMostComponents> predictors_{};
  std::uint32_t end_of_band_run_ = 0;
  std::int64_t until_restart_ = 0;
};

// A sequential scan that holds all components: rows go to the sink as they are whole.
Status stream_scan(ScanReader& reader, Band& band, const RowSink& sink);

// Any other scan: its coefficients go to the store. Damaged data end it early.
void store_sequential_scan(ScanReader& reader, CoefficientStore& store);
void store_progressive_scan(ScanReader& reader, CoefficientStore& store);

}  // namespace tq::formats
