// Scans of baseline and extended sequential frames, and what all scans share.
#include "formats/jpeg/decode/scan.h"

#include <cstring>
#include <limits>

#include "core/context.h"

namespace tq::jpeg {
namespace {

const DecodeTable* look_up(HuffmanSlot& slot, HuffmanClass kind, DecodeTable& own,
                           const DecodeTable* known) {
  if (!slot.changed) return known;
  slot.changed = false;
  return &decode_table(slot.spec, kind, own);
}

// What happens to the coefficient at each place of the zigzag sequence, and behind it.
struct Place {
  std::uint16_t step;      // of its quantiser
  std::uint16_t position;  // in the block, column by column
};
using Places = std::array<Place, kBlock + kRoomBehindBlock>;

Places places_of(const QuantisationTable& table) {
  Places places{};
  for (int k = 0; k < kBlock + kRoomBehindBlock; ++k) {
    places[k] = {k < kBlock ? table[k] : std::uint16_t{0}, kColumnOrder[k]};
  }
  return places;
}

// The AC coefficients of a block that is all 0, the first one apart; none may come at `block_end` or
// behind it.
struct AcResult {
  bool valid;               // false: there is no such code or place
  std::uint32_t magnitude;  // the sum of the coefficients' magnitudes times their quantiser steps
};
inline AcResult decode_ac(BitReader& reader, const DecodeTable& table, const Places& places,
                          int block_end, std::int16_t* block) {
  BitReader r = reader;
  std::uint32_t magnitude = 0;
  int k = 1;
  const auto store_value = [&](int run, Value v) {
    const Place place = places[k + run];
    magnitude += v.magnitude * place.step;
    block[place.position] = word(v.value);
    k += run + 1;
  };
  const auto store = [&](LookupEntry entry) { store_value(byte(entry >> 8), r.value(entry)); };
  bool valid = true;
  do {
    r.refill();
    LookupEntry entry = table.lookup[r.peek(kLookupBits)];
    if ((entry & kNoValue) == 0) [[likely]] {
      store(entry);
      if (kWordBits == 32 || k >= kBlock) continue;
      // What is left is enough for another one.
      entry = table.lookup[r.peek(kLookupBits)];
      if ((entry & kNoValue) == 0) [[likely]] {
        store(entry);
        continue;
      }
    }
    const Symbol symbol = r.symbol(table, entry);
    const int run = symbol.value >> 4;
    const int size = symbol.value & 15;
    if (size != 0) {
      const std::int32_t value = extend(r.take(size), size);
      const std::uint32_t value_magnitude = value < 0 ? -value : value;
      store_value(run, {value, value_magnitude});
    } else if (run == 15) {
      k = std::min(k + 16, kBlock);  // zeros may go beyond the block
    } else {
      valid = symbol.length != 0;
      break;
    }
  } while (k < kBlock);
  reader = r;
  return {valid && k <= block_end, magnitude};
}

// A few MCUs at a time: their coefficients stay in the cache, and are not read before the last of
// them has been written.
class StreamingBlocks {
 public:
  StreamingBlocks(ScanReader& reader, Reconstruction& picture)
      : reader_(reader), picture_(picture) {
    for (int i = 0; i < reader.scan().count; ++i) {
      const Grid& grid = reader.grid(i);
      const int component = reader.scan().components[i].index;
      places_[i] = places_of(reader.quantisation(i));
      for (int y = 0; y < grid.v; ++y) {
        for (int x = 0; x < grid.h; ++x) {
          units_[unit_count_++] = {&reader.dc(i), &reader.ac(i), &places_[i], i,
                                   component,     grid.h,        x,           y};
        }
      }
    }
    most_mcus_ = kBatch / std::max(unit_count_, 1);
  }

  // One row of MCUs; false when there is not one, as the data end or are damaged.
  bool decode_row() {
    const int columns = reader_.columns();
    for (int mcu = 0; mcu < columns;) {
      const int count = reader_.start_mcus(std::min(most_mcus_, columns - mcu));
      if (count == 0) return false;
      const int blocks = count * unit_count_;
      const int read = decode(count);
      if (read < blocks && !keep_levels(read, blocks)) return false;
      if (reader_.ended() && mcu == 0 && read < unit_count_) return false;
      put(mcu, count);
      mcu += count;
    }
    return true;
  }

 private:
  static constexpr int kBatch = 64;  // as many as the largest MCU has

  struct Unit {  // a block of the MCU
    const DecodeTable* dc;
    const DecodeTable* ac;
    const Places* places;
    int i, component;
    int h, x, y;
  };

  // What is missing of an interval keeps its level; false when the scan is not gone on with.
  bool keep_levels(int from, int to) {
    if (!reader_.broken() && !reader_.give_up_interval()) return false;
    std::fill(blocks_ + kBlock * from, blocks_ + kBlock * to, std::int16_t{0});
    for (int n = from; n < to; ++n) {
      blocks_[kBlock * n] = word(reader_.predictor(units_[n % unit_count_].i));
      ac_magnitudes_[n] = 0;
    }
    return true;
  }

  // How many blocks of these MCUs could be read.
  int decode(int count) {
    if (reader_.broken()) return 0;
    const int blocks = count * unit_count_;
    std::memset(blocks_, 0, sizeof(*blocks_) * kBlock * blocks);
    BitReader bits = reader_.bits();
    const int read = decode_blocks(blocks, bits);
    reader_.bits() = bits;
    return read - (read == blocks && !reader_.intact() ? 1 : 0);
  }

  [[gnu::always_inline]] int decode_blocks(int count, BitReader& bits) {
    const int block_end = reader_.block_end();
    std::int16_t* block = blocks_;
    for (int read = 0; read < count;) {
      for (int u = 0; u < unit_count_; ++u, ++read, block += kBlock) {
        const Unit& unit = units_[u];
        if (!reader_.source().prepare(bits)) return read;
        std::int32_t& predictor = reader_.predictor(unit.i);
        if (!decode_dc(bits, *unit.dc, predictor)) return read;
        block[0] = word(predictor);
        const AcResult ac = decode_ac(bits, *unit.ac, *unit.places, block_end, block);
        if (!ac.valid) return read;
        ac_magnitudes_[read] = ac.magnitude;
      }
    }
    return count;
  }

  void put(int first_mcu, int count) {
    const std::int16_t* block = blocks_;
    const std::uint32_t* ac_magnitude = ac_magnitudes_;
    const bool partial = picture_.is_partial();
    for (int mcu = first_mcu; mcu < first_mcu + count; ++mcu) {
      for (int u = 0; u < unit_count_; ++u, block += kBlock, ++ac_magnitude) {
        const Unit& unit = units_[u];
        if (partial && !picture_.needs(unit.component, mcu * unit.h + unit.x, unit.y)) continue;
        picture_.put(unit.component, mcu * unit.h + unit.x, unit.y, block, *ac_magnitude);
      }
    }
    picture_.flush();
  }

  ScanReader& reader_;
  Reconstruction& picture_;
  std::array<Places, kMostComponents> places_;  // by component of the scan
  std::array<Unit, kBatch> units_;
  int unit_count_ = 0;
  int most_mcus_;
  // A block is two lines of the cache. A run that leaves the last one needs room behind it; others
  // end in a place that is not yet in use.
  alignas(64) std::int16_t blocks_[kBatch * kBlock + 1];
  std::uint32_t ac_magnitudes_[kBatch];
};

}  // namespace

ScanReader::ScanReader(Tables& tables, const Geometry& geometry, LookupTables& lookups,
                       EntropySource& source, ScanProgress& progress, bool recovers)
    : tables_(tables),
      geometry_(geometry),
      lookups_(lookups),
      source_(source),
      progress_(progress),
      recovers_(recovers) {
  for (int i = 0; i < kHuffmanSlots; ++i) {
    lookups.dc[i] = look_up(tables.dc[i], HuffmanClass::dc, lookups.own_dc[i], lookups.dc[i]);
    lookups.ac[i] = look_up(tables.ac[i], HuffmanClass::ac, lookups.own_ac[i], lookups.ac[i]);
  }
  source_.start_scan(bits_);
  reset();
}

void ScanReader::reset() {
  predictors_.fill(0);
  end_of_band_run_ = 0;
  until_restart_ = restarts() ? tables_.restart_interval : std::numeric_limits<int>::max();
}

bool ScanReader::restart() {
  reset();
  if (missing_ > 0) {
    --missing_;
  } else if (!find_marker()) {
    return recovers_;
  }
  broken_ = missing_ > 0;
  return true;
}

bool ScanReader::find_marker() {
  constexpr int kMostMissing = 2;
  bool repeated = false;
  const int marker =
      recovers_ ? source_.find_restart(bits_, next_marker_, repeated) : source_.restart(bits_);
  if (repeated) note_damage(StatusCode::bad_image);
  if (marker < 0) {
    note_damage(source_.end_reason());
    broken_ = ended_ = true;
    return false;
  }
  const int ahead = (marker - next_marker_) & 7;
  if (ahead != 0) note_damage(StatusCode::bad_image);
  missing_ = recovers_ && ahead <= kMostMissing ? ahead : 0;
  next_marker_ = (next_marker_ + missing_ + 1) & 7;
  return true;
}

int ScanReader::good_rows() const {
  const int v = interleaved() ? 1 : grid(0).v;
  return good_rows_ * geometry_.mcu_height() / v;
}

bool ScanProgress::add(std::int64_t pixels) {
  pixels_ += pixels;
  if (!on_ || pixels_ < kPixelsPerReport) return true;
  pixels_ %= kPixelsPerReport;
  status_ = report_progress(height_);
  return !status_.failed();
}

Status stream_scan(ScanReader& reader, Reconstruction& picture, const formats::RowSink& sink) {
  StreamingBlocks blocks(reader, picture);
  const int height = reader.geometry().mcu_height();
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    picture.begin_row(mcu_row * height);
    const bool there = blocks.decode_row();
    if (reader.damage() != StatusCode::ok) sink.damaged(reader.damage());
    if (!there) break;
    TQ_TRY(picture.deliver(sink, mcu_row * height));
    if (picture.is_partial() && sink.ends_at(picture.delivered_to())) return kOk;
    if (reader.ended()) break;
  }
  return picture.finish(sink);
}

void store_sequential_scan(ScanReader& reader, CoefficientStore& store) {
  QuantisationTable ones;
  ones.fill(1);
  const Places places = places_of(ones);
  const auto store_block = [&](BitReader& bits, int i, const StoredRow& row, int x) {
    std::int16_t block[kBlock + 1] = {};
    std::int32_t& predictor = reader.predictor(i);
    if (!decode_dc(bits, reader.dc(i), predictor)) return false;
    const AcResult ac = decode_ac(bits, reader.ac(i), places, reader.block_end(), block);
    if (!ac.valid || !reader.source().intact(bits)) return false;
    row.dc[x] = word(predictor);
    row.present[x] = ac.magnitude == 0 ? 0 : ~std::uint64_t{0};  // which ones is never asked
    if (ac.magnitude != 0) std::memcpy(row.block(x), block, kBlock * sizeof(*block));
    return true;
  };
  store_blocks(reader, store, store_block,
               [&](int i, const StoredRow& row, int x) { row.dc[x] = word(reader.predictor(i)); });
}

}  // namespace tq::jpeg
