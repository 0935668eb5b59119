// Scans of baseline and extended sequential frames, and what all scans share.
#include "formats/jpeg/decode/scan.h"

#include <cstring>
#include <limits>

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

// The AC coefficients of a block that is all 0, the first one apart.
struct AcResult {
  bool valid;               // false: there is no such code
  std::uint32_t magnitude;  // the sum of the coefficients' magnitudes times their quantiser steps
};
inline AcResult decode_ac(BitReader& reader, const DecodeTable& table, const Places& places,
                          std::int16_t* block) {
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
      k += 16;
    } else {
      valid = symbol.length != 0;
      break;
    }
  } while (k < kBlock);
  reader = r;
  return {valid, magnitude};
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

  // One row of MCUs; false when the data end or are damaged.
  bool decode_row() {
    const int columns = reader_.columns();
    for (int mcu = 0; mcu < columns;) {
      const int count = reader_.start_mcus(std::min(most_mcus_, columns - mcu));
      if (count == 0 || !decode(count)) return false;
      put(mcu, count);
      mcu += count;
    }
    return reader_.intact();
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

  bool decode(int count) {
    BitReader bits = reader_.bits();
    std::memset(blocks_, 0, sizeof(*blocks_) * kBlock * count * unit_count_);
    std::int16_t* block = blocks_;
    std::uint32_t* ac_magnitude = ac_magnitudes_;
    for (int mcu = 0; mcu < count; ++mcu) {
      for (int u = 0; u < unit_count_; ++u, block += kBlock) {
        const Unit& unit = units_[u];
        if (!reader_.source().prepare(bits)) return false;
        std::int32_t& predictor = reader_.predictor(unit.i);
        if (!decode_dc(bits, *unit.dc, predictor)) return false;
        block[0] = word(predictor);
        const AcResult ac = decode_ac(bits, *unit.ac, *unit.places, block);
        if (!ac.valid) return false;
        *ac_magnitude++ = ac.magnitude;
      }
    }
    reader_.bits() = bits;
    return true;
  }

  void put(int first_mcu, int count) {
    const std::int16_t* block = blocks_;
    const std::uint32_t* ac_magnitude = ac_magnitudes_;
    for (int mcu = first_mcu; mcu < first_mcu + count; ++mcu) {
      for (int u = 0; u < unit_count_; ++u, block += kBlock, ++ac_magnitude) {
        const Unit& unit = units_[u];
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
  // A run that leaves the last block needs room behind it; others end in a place that is not yet
  // in use.
  alignas(32) std::int16_t blocks_[kBatch * kBlock + 1];
  std::uint32_t ac_magnitudes_[kBatch];
};

}  // namespace

ScanReader::ScanReader(Tables& tables, const Geometry& geometry, LookupTables& lookups,
                       EntropySource& source)
    : tables_(tables), geometry_(geometry), lookups_(lookups), source_(source) {
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
  if (!source_.restart(bits_)) return false;
  reset();
  return true;
}

Status stream_scan(ScanReader& reader, Reconstruction& picture, const formats::RowSink& sink) {
  StreamingBlocks blocks(reader, picture);
  const int height = reader.geometry().mcu_height();
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    if (!blocks.decode_row()) return kOk;
    TQ_TRY(picture.deliver(sink, mcu_row * height));
  }
  return kOk;
}

void store_sequential_scan(ScanReader& reader, CoefficientStore& store) {
  QuantisationTable ones;
  ones.fill(1);
  const Places places = places_of(ones);
  store_blocks(reader, store, [&](BitReader& bits, int i, const StoredRow& row, int x) {
    std::int16_t block[kBlock + 1] = {};
    std::int32_t& predictor = reader.predictor(i);
    if (!decode_dc(bits, reader.dc(i), predictor)) return false;
    const AcResult ac = decode_ac(bits, reader.ac(i), places, block);
    if (!ac.valid || !reader.source().intact(bits)) return false;
    row.dc[x] = word(predictor);
    row.present[x] = ac.magnitude == 0 ? 0 : ~std::uint64_t{0};  // which ones is never asked
    if (ac.magnitude != 0) std::memcpy(row.block(x), block, kBlock * sizeof(*block));
    return true;
  });
}

}  // namespace tq::jpeg
